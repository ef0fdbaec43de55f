#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# fuzz.sh - builds the libFuzzer harness (tests/fuzz) and fuzzes the client API.
#   tools/fuzz.sh [seconds]       fuzz for that long (default 60) in build-fuzz/
# The corpus grows in build-fuzz/corpus from run to run; seeds are the shipped
# scenarios (tools/scenarios) and one input that fills every table. A finding
# stops the run and leaves build-fuzz/crash-*; replay it with
#   QOS_FUZZ_TRACE=1 build-fuzz/tests/fuzz/qos_fuzz build-fuzz/crash-...
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"
command -v clang++ >/dev/null && dpkg-query -W libclang-rt-14-dev >/dev/null 2>&1 || tools/deps.sh ci

CC=clang CXX=clang++ cmake -S . -B build-fuzz -DQOSDB_BUILD_FUZZ=ON -DQOSDB_SANITIZE=ON \
  -DBUILD_SHARED_LIBS=OFF -DBUILD_TESTING=OFF -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS=-O1 >/dev/null
cmake --build build-fuzz -j"$(nproc)" --target qos_fuzz
fuzzer=build-fuzz/tests/fuzz/qos_fuzz

seeds=build-fuzz/seeds
rm -rf "$seeds"
mkdir -p "$seeds" build-fuzz/corpus
# The scenarios build on the registration; the harness writes each alone and
# each played after the ones before it.
"$fuzzer" --encode "$seeds" tools/scenarios/registration.qos \
  $(ls tools/scenarios/*.qos | grep -v '/registration\.qos$')
{
  for i in $(seq 1 130); do echo "qos_intDb_AddSf $i $i $((i % 2 + 1))"; done
  for i in $(seq 1 322); do echo "qos_intDb_AddClsf 1 1 $((i + 1))"; done
  for i in $(seq 1 80); do echo "qos_intDb_AddSfSidCluster $i 1 1/$i"; done
  for i in $(seq 1 11); do echo "qos_TaDb_AddNewTa $i 0 1 -"; done
  for i in $(seq 1 35); do echo "qos_intDb_AddActivePhsEntryByDsid $i"; done
} >build-fuzz/full-tables.qos
"$fuzzer" --encode "$seeds" build-fuzz/full-tables.qos

echo "fuzzing for ${seconds} s"
"$fuzzer" -max_total_time="$seconds" -max_len=8192 -print_final_stats=1 -artifact_prefix=build-fuzz/ \
  build-fuzz/corpus "$seeds" 2>build-fuzz/fuzz.log || { tail -n 60 build-fuzz/fuzz.log; exit 1; }
grep -E '^(Done|stat::number_of_executed_units)' build-fuzz/fuzz.log
