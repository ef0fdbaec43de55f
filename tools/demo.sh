#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# demo.sh - builds the library and the qosdb tool, then runs the demo: a
# small modem stack (event listener, control process, SNMP agent) around one
# store in a private IPC namespace (qosdb demo).
set -euo pipefail
cd "$(dirname "$0")/.."
tools/deps.sh
cmake -S . -B build -DBUILD_TESTING=OFF --log-level=WARNING
cmake --build build -j"$(nproc)" --target qosdb
exec build/tools/qosdb demo
