// SPDX-License-Identifier: MIT
// timing.h - how the benchmarks are registered and timed.
//
// Names are "<kind>/<operation>/<tables>": kind "lib" for the library's
// operation, "floor" for a plain scan with the same match over the same rows
// (what no implementation can beat by much), "peer" for the same work in
// SQLite, "ref" for reference figures, "mp" for the multi-process rate. The
// report pairs lib/X with floor/X and peer/X.
//
// An operation that changes the tables is timed alone: the rows it changed
// are put back before each run, outside the timed stretch, and the cost of
// reading the clock (calibrated once at start) is taken off each sample.
#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <string>
#include <utility>

namespace qosbench {

// Registers a benchmark with nanosecond units.
template <typename Fn>
benchmark::internal::Benchmark* reg(const std::string& name, Fn&& fn) {
  return benchmark::RegisterBenchmark(name.c_str(), std::forward<Fn>(fn))->Unit(benchmark::kNanosecond);
}

// Seconds that one pair of steady_clock readings adds to a sample.
double clockCost();

// Runs `op` once per iteration, timed alone; `before` runs untimed ahead of
// every run. The benchmark must be registered with UseManualTime().
template <typename Before, typename Op>
void timedEach(benchmark::State& state, Before&& before, Op&& op) {
  const double cost = clockCost();
  for (auto _ : state) {
    before();
    auto t0 = std::chrono::steady_clock::now();
    op();
    auto t1 = std::chrono::steady_clock::now();
    double s = std::chrono::duration<double>(t1 - t0).count() - cost;
    state.SetIterationTime(s > 0 ? s : 0);
  }
}

// Runs `op` once per iteration (automatic timing); its result is kept alive
// and memory is assumed changed after each run, so nothing is hoisted.
template <typename Op>
void eachIteration(benchmark::State& state, Op&& op) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(op());
    benchmark::ClobberMemory();
  }
}

// Settings taken from the command line.
struct Settings {
  double mpSeconds = 0.5;  // how long each process of the multi-process figure runs
};
Settings& settings();

// Adds a per-iteration counter of how many log records the runs produced.
void countLogs(benchmark::State& state, uint64_t before);

// The benchmark families (one per source file).
void registerLookups();
void registerOperations();
void registerLocking();
void registerLifecycles();

}  // namespace qosbench
