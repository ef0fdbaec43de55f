// SPDX-License-Identifier: MIT
// main.cpp - qosdb_bench: the library's operations against their floors and
// against SQLite, on one store in a private IPC namespace.
//
//   qosdb_bench [Google Benchmark flags] [--qos_markdown=FILE] [--qos_mp_seconds=S]
//
// --qos_markdown writes the table of medians (with the ratios to the floors
// and to the peer) that the README shows; --qos_mp_seconds sets how long each
// process of the multi-process figure runs (default 0.5). The exit status is
// 1 when a benchmark stopped with an error.
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "report.h"
#include "store.h"
#include "timing.h"

namespace qosbench {

Settings& settings() {
  static Settings s;
  return s;
}

double clockCost() {
  static const double cost = [] {
    std::vector<double> samples(20001);
    for (double& s : samples) {
      auto t0 = std::chrono::steady_clock::now();
      auto t1 = std::chrono::steady_clock::now();
      s = std::chrono::duration<double>(t1 - t0).count();
    }
    std::nth_element(samples.begin(), samples.begin() + samples.size() / 2, samples.end());
    return samples[samples.size() / 2];
  }();
  return cost;
}

void countLogs(benchmark::State& state, uint64_t before) {
  state.counters["logs"] =
      benchmark::Counter(static_cast<double>(logCount() - before), benchmark::Counter::kAvgIterations);
}

namespace {

std::string cpuModel() {
  std::ifstream in("/proc/cpuinfo");
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("model name", 0) == 0) {
      std::size_t colon = line.find(':');
      if (colon != std::string::npos) return line.substr(line.find_first_not_of(' ', colon + 1));
    }
  }
  return "unknown";
}

std::string compiler() {
#if defined(__clang__)
  return std::string("clang ") + __clang_version__;
#elif defined(__GNUC__)
  return std::string("GCC ") + __VERSION__;
#else
  return "unknown";
#endif
}

// Takes our own flags out of argv; the rest goes to Google Benchmark.
std::string takeFlags(int& argc, char** argv) {
  std::string markdown;
  int out = 1;
  for (int i = 1; i < argc; ++i) {
    const char* a = argv[i];
    if (std::strncmp(a, "--qos_markdown=", 15) == 0) {
      markdown = a + 15;
    } else if (std::strncmp(a, "--qos_mp_seconds=", 17) == 0) {
      settings().mpSeconds = std::atof(a + 17);
    } else {
      argv[out++] = argv[i];
    }
  }
  argc = out;
  return markdown;
}

}  // namespace
}  // namespace qosbench

int main(int argc, char** argv) {
  using namespace qosbench;
  if (unshare(CLONE_NEWIPC) != 0) {
    std::fprintf(stderr, "note: no private IPC namespace; the benchmarks use the system's segment 14 and semaphore 4656\n");
  }
  const std::string markdown = takeFlags(argc, argv);

  Machine machine{cpuModel(), std::thread::hardware_concurrency(), compiler()};
  benchmark::AddCustomContext("cpu_model", machine.cpu);
  benchmark::AddCustomContext("cores", std::to_string(machine.cores));
  benchmark::AddCustomContext("compiler", machine.compiler);
  {
    std::ostringstream ns;
    ns << clockCost() * 1e9;
    benchmark::AddCustomContext("clock_cost_ns", ns.str());
  }

  registerLookups();
  registerOperations();
  registerLocking();
  registerLifecycles();

  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  MedianReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  if (!markdown.empty() && !reporter.writeMarkdown(markdown, machine)) {
    std::fprintf(stderr, "qosdb_bench: cannot write %s\n", markdown.c_str());
    return 1;
  }
  for (const std::string& f : reporter.failed()) std::fprintf(stderr, "qosdb_bench: failed: %s\n", f.c_str());
  return reporter.failed().empty() ? 0 : 1;
}
