#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# bench.sh - builds the benchmark suite (Release) and runs it in a private IPC
# namespace; writes every run and the table of medians.
#   tools/bench.sh [Google Benchmark flags, e.g. --benchmark_filter=Lifecycle]
# Results: build-bench/results/bench.json (all runs and their aggregates) and
# build-bench/results/bench.md (the medians with the ratios to the floors and
# to SQLite, as the README shows them).
set -euo pipefail
cd "$(dirname "$0")/.."
tools/deps.sh
cmake -S . -B build-bench -DQOSDB_BUILD_BENCH=ON -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF
cmake --build build-bench -j"$(nproc)" --target qosdb_bench

out=build-bench/results
mkdir -p "$out"
# The suite creates segment 14 and semaphore 4656: keep them away from any
# store of this machine when a private IPC namespace can be had.
namespace=()
if unshare -i true 2>/dev/null; then namespace=(unshare -i); fi
"${namespace[@]}" build-bench/bench/qosdb_bench \
  --benchmark_repetitions=5 --benchmark_report_aggregates_only=true --benchmark_min_time=0.1 \
  --benchmark_out="$out/bench.json" --benchmark_out_format=json \
  --qos_markdown="$out/bench.md" "$@"
echo "results: $out/bench.md, $out/bench.json"
