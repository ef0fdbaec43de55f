#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# coverage.sh - line coverage of the core library under the whole test suite.
#   tools/coverage.sh        build-coverage/: gcov build, every test, gcovr report
# Only the core library folders count; the text report per file is left in
# build-coverage/coverage.txt.
set -euo pipefail
cd "$(dirname "$0")/.."
command -v gcovr >/dev/null || tools/deps.sh ci

cmake -S . -B build-coverage -DBUILD_TESTING=ON -DQOSDB_COVERAGE=ON -DCMAKE_BUILD_TYPE=Debug >/dev/null
cmake --build build-coverage -j"$(nproc)"
find build-coverage -name '*.gcda' -delete
ctest --test-dir build-coverage -j"$(nproc)" --output-on-failure >build-coverage/ctest.log ||
  { tail -n 40 build-coverage/ctest.log; exit 1; }

filters=()
for dir in frame transactions serviceflows classifiers phs sidclusters messages outcome active check mgmt dbc; do
  filters+=(--filter "$dir/")
done
gcovr --root . --object-directory build-coverage "${filters[@]}" --txt build-coverage/coverage.txt --print-summary |
  grep '^lines:'
