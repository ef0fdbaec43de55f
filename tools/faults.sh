#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# faults.sh - do the tests notice a broken library? Plants each fault of
# tools/faults/*.patch in turn into a scratch copy of the tree (never into this
# one), builds it, runs every test and prints one row per fault: whether a
# test failed and which.
#   tools/faults.sh [PATCH...]   default: every patch under tools/faults/
# FAULTS_DIR (default /tmp/qosdb-faults-$USER) holds the copy (src/) and the
# one build directory every fault reuses (build/); FAULTS_REV=<commit> tests
# the tests of that commit instead of the work tree's. Exit status 1 when a fault
# goes unnoticed or the unbroken copy fails its tests.
set -uo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
work=${FAULTS_DIR:-/tmp/qosdb-faults-$(id -un)}
src=$work/src build=$work/build
patches=("$@")
[ ${#patches[@]} -gt 0 ] || patches=("$top"/tools/faults/*.patch)

# The copy follows the work tree (or, with FAULTS_REV, that commit); only the
# files whose content differs are copied, so the build directory rebuilds
# just what changed, a fault left by an interrupted run included.
stage=$top
if [ -n "${FAULTS_REV:-}" ]; then
  stage=$work/rev
  rm -rf "$stage" && mkdir -p "$stage"
  git -C "$top" archive "$FAULTS_REV" | tar -x -C "$stage"
  (cd "$stage" && find . -type f | sed 's|^\./||') | sort >"$work/new.list"
else
  (cd "$top" && git ls-files -co --exclude-standard) | sort >"$work/new.list"
fi
mkdir -p "$src" "$build"
(cd "$src" && find . -type f | sed 's|^\./||') | sort >"$work/old.list"
comm -23 "$work/old.list" "$work/new.list" | (cd "$src" && xargs -r rm -f)
while read -r f; do
  [ -f "$stage/$f" ] || continue
  cmp -s "$stage/$f" "$src/$f" || { mkdir -p "$src/$(dirname "$f")" && cp "$stage/$f" "$src/$f"; }
done <"$work/new.list"

build_and_test() {  # prints the failing tests; fails when the build does
  cmake -S "$src" -B "$build" -DBUILD_TESTING=ON >"$work/cmake.log" 2>&1 &&
    cmake --build "$build" -j2 >"$work/build.log" 2>&1 || return 1
  # A fault that leaves the lock taken hangs a test: it fails by its timeout,
  # cut here from 300 to 30 seconds.
  sed -i 's/TIMEOUT;300/TIMEOUT;30/; s/TIMEOUT 300)/TIMEOUT 30)/' "$build"/tests/*_include.cmake "$build"/tests/*_tests.cmake 2>/dev/null
  ctest --test-dir "$build" -j2 --timeout 30 >"$work/ctest.log" 2>&1
  sed -n 's/^[[:space:]]*[0-9]* - \([^ ]*\) (.*)$/\1/p' "$work/ctest.log" | sort | tr '\n' ' '
}

failed=$(build_and_test) || { echo "the unbroken copy does not build: $work/build.log"; exit 1; }
[ -z "$failed" ] || { echo "the unbroken copy fails: $failed"; exit 1; }

status=0
printf '| %-28s | %-6s | %s\n' fault caught "failing tests"
for p in "${patches[@]}"; do
  name=$(basename "$p" .patch)
  if ! patch -s -p1 -d "$src" <"$p"; then
    printf '| %-28s | %-6s | %s\n' "$name" "-" "patch does not apply"
    status=1
    continue
  fi
  if failed=$(build_and_test); then
    if [ -n "$failed" ]; then caught=yes; else caught=no status=1; fi
  else
    caught=build failed="the fault does not compile ($work/build.log)" status=1
  fi
  printf '| %-28s | %-6s | %s\n' "$name" "$caught" "$failed"
  patch -s -R -p1 -d "$src" <"$p"
done
exit $status
