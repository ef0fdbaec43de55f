// SPDX-License-Identifier: MIT
// report.h - the medians of a run, as the console shows them and as the
// README's table of results.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace qosbench {

struct Machine {
  std::string cpu;
  unsigned cores;
  std::string compiler;
};

// The console reporter, also keeping each benchmark's median (or its single
// run, without repetitions) for the markdown table.
class MedianReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override;

  // The table: every lib/ benchmark with its floor/ and peer/ partners and
  // their ratios, then the multi-process rates. False when the file cannot
  // be written.
  bool writeMarkdown(const std::string& path, const Machine& machine) const;

  // Benchmarks that stopped with an error.
  const std::vector<std::string>& failed() const { return failed_; }

 private:
  struct Result {
    double ns = 0;
    std::map<std::string, double> counters;
    bool median = false;
    int repetitions = 1;
  };
  const Result* find(const std::string& name) const;

  std::vector<std::string> order_;
  std::vector<std::string> failed_;
  std::map<std::string, Result> results_;
};

}  // namespace qosbench
