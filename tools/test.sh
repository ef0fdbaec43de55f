#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# test.sh - builds everything and runs every test (GoogleTest under CTest).
set -euo pipefail
cd "$(dirname "$0")/.."
tools/deps.sh
cmake -S . -B build -DBUILD_TESTING=ON -DQOSDB_WERROR=ON
cmake --build build -j"$(nproc)"
ctest --test-dir build -j"$(nproc)" --output-on-failure
