#!/usr/bin/env bash
# demo.sh - builds the library and runs the main job.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/deps.sh
cmake -S . -B build -DBUILD_TESTING=OFF
cmake --build build -j"$(nproc)" --target dsa_example
# A private IPC namespace keeps the demo's store apart from any other.
if unshare -i true 2>/dev/null; then
  exec unshare -i build/examples/dsa_example
fi
echo "note: no private IPC namespace here; using this machine's default store"
exec build/examples/dsa_example
