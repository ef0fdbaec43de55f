#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# abi.sh - the exported ABI of libqosintdb.so against the committed baseline.
#   tools/abi.sh check [LIB]   abidiff abi/libqosintdb.abi against LIB (default:
#                              a core-only build in build-abi); fails on any
#                              incompatible change, reports compatible ones
#   tools/abi.sh update [LIB]  rewrites abi/libqosintdb.abi from LIB
# When the baseline and SOVERSION change: README, "Versions and the ABI".
set -euo pipefail
export LC_ALL=C
cd "$(dirname "$0")/.."
baseline=abi/libqosintdb.abi
constants=abi/constants.txt  # the header's enumeration values, which no symbol carries
mode="${1:-check}"
lib="${2:-}"

if [[ -z "$lib" ]]; then
  cmake -S . -B build-abi -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_SHARED_LIBS=ON -DBUILD_TESTING=OFF \
        -DQOSDB_BUILD_PLATFORM=OFF -DQOSDB_BUILD_TOOLS=OFF -DQOSDB_BUILD_EXAMPLES=OFF >/dev/null
  cmake --build build-abi -j"$(nproc)" --target qosintdb >/dev/null
  lib=build-abi/libqosintdb.so
fi

# No paths or source lines of this machine in the baseline.
dump() {
  abidw --headers-dir include --no-show-locs --no-corpus-path --no-comp-dir-path "$1"
}

# "NAME value" for every enumeration constant of the client header.
enum_values() {
  local dir
  dir="$(mktemp -d)"
  {
    echo '#include <stdio.h>'
    echo '#include "qosintdb.h"'
    echo 'int main(void) {'
    grep -oE '\bQOS_[A-Z0-9_]+ *=' include/qosintdb.h | tr -d ' =' | sort -u |
      sed 's/.*/    printf("%s %ld\\n", "&", (long)&);/'
    echo '    return 0;'
    echo '}'
  } >"$dir/enums.c"
  "${CC:-cc}" -Iinclude "$dir/enums.c" -o "$dir/enums"
  "$dir/enums"
  rm -rf "$dir"
}

case "$mode" in
  update)
    mkdir -p abi
    dump "$lib" >"$baseline"
    enum_values >"$constants"
    echo "abi.sh: $baseline rewritten from $lib"
    ;;
  check)
    # Changes of types the public headers do not declare are not reported.
    set +e
    abidiff --headers-dir2 include "$baseline" "$lib"
    rc=$?
    set -e
    changed="$(comm -23 "$constants" <(enum_values))"
    if [[ -n "$changed" ]]; then
      echo "enumeration values removed or changed (baseline values):"
      echo "$changed" | sed 's/^/  /'
      rc=$((rc | 12))
    fi
    # abidiff's status bits: 1 error, 2 usage, 4 ABI changed, 8 incompatible.
    if ((rc & 8)); then
      echo "abi.sh: INCOMPATIBLE ABI change against $baseline (see above)."
      echo "  Restore the ABI, or, for a new major release, raise QOSINTDB_VERSION_MAJOR"
      echo "  (the SOVERSION), start a new version node in cmake/qosintdb.map and run tools/abi.sh update."
      exit 1
    elif ((rc & 3)); then
      echo "abi.sh: abidiff failed (status $rc)"
      exit 1
    elif ((rc & 4)); then
      echo "abi.sh: compatible additions only; run tools/abi.sh update with the next MINOR release."
    else
      echo "abi.sh: the ABI matches $baseline"
    fi
    ;;
  *)
    echo "usage: tools/abi.sh check|update [path/to/libqosintdb.so]" >&2
    exit 2
    ;;
esac
