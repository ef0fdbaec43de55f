// SPDX-License-Identifier: MIT
// report.cpp - collecting medians and writing the table of results.
#include "report.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace qosbench {
namespace {

// Counters worth a note in the table, with the words that explain them.
const std::pair<const char*, const char*> kNotes[] = {
    {"AddNewTa_takes", "semaphore takes per qos_TaDb_AddNewTa"},
    {"sem_takes", "semaphore takes per run"},
    {"logs", "log records per run"},
    {"rows", "rows walked"},
};

std::string duration(double ns) {
  char text[32];
  if (ns < 1000) {
    std::snprintf(text, sizeof text, "%.1f ns", ns);
  } else if (ns < 1e6) {
    std::snprintf(text, sizeof text, "%.2f µs", ns / 1e3);
  } else {
    std::snprintf(text, sizeof text, "%.2f ms", ns / 1e6);
  }
  return text;
}

std::string ratio(double r) {
  char text[32];
  std::snprintf(text, sizeof text, r < 10 ? "%.2f" : "%.0f", r);
  return text;
}

// "lib/FindSfById/full" -> {"lib", "FindSfById", "full"}.
struct Name {
  std::string kind, op, tables;
};

Name split(const std::string& name) {
  Name n;
  std::size_t a = name.find('/');
  std::size_t b = name.find('/', a + 1);
  n.kind = name.substr(0, a);
  n.op = name.substr(a + 1, b == std::string::npos ? std::string::npos : b - a - 1);
  if (b != std::string::npos) n.tables = name.substr(b + 1);
  return n;
}

std::string tail(const Name& n) { return n.tables.empty() ? n.op : n.op + "/" + n.tables; }

}  // namespace

void MedianReporter::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    if (run.error_occurred) {
      failed_.push_back(run.benchmark_name() + ": " + run.error_message);
      continue;
    }
    const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
    if (run.run_type == Run::RT_Aggregate && !median) continue;
    const std::string name = run.run_name.function_name;
    auto it = results_.find(name);
    if (it == results_.end()) {
      order_.push_back(name);
      it = results_.emplace(name, Result{}).first;
    }
    Result& r = it->second;
    if (r.median && !median) continue;
    r.ns = run.GetAdjustedRealTime() * 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit);
    r.counters.clear();
    for (const auto& c : run.counters) r.counters[c.first] = c.second.value;
    r.median = median;
    r.repetitions = median ? static_cast<int>(run.repetitions) : 1;
  }
  ConsoleReporter::ReportRuns(runs);
}

const MedianReporter::Result* MedianReporter::find(const std::string& name) const {
  auto it = results_.find(name);
  return it == results_.end() ? nullptr : &it->second;
}

bool MedianReporter::writeMarkdown(const std::string& path, const Machine& machine) const {
  std::ofstream out(path);
  if (!out) return false;
  int repetitions = 1;
  for (const auto& r : results_) repetitions = std::max(repetitions, r.second.repetitions);
  out << "Machine: " << machine.cpu << ", " << machine.cores << " cores, " << machine.compiler
      << ". Medians of " << repetitions << " repetition" << (repetitions == 1 ? "" : "s") << ".\n\n";
  out << "| operation | tables | library | floor | library ÷ floor | SQLite | SQLite ÷ library | notes |\n"
      << "|---|---|--:|--:|--:|--:|--:|---|\n";
  for (const std::string& name : order_) {
    const Name n = split(name);
    if (n.kind != "lib") continue;
    const Result& lib = results_.at(name);
    const Result* floor = find("floor/" + tail(n));
    const Result* peer = find("peer/" + tail(n));
    std::ostringstream notes;
    for (const auto& note : kNotes) {
      auto c = lib.counters.find(note.first);
      if (c == lib.counters.end() || (c->second == 0 && std::string(note.first) == "logs")) continue;
      if (notes.tellp() > 0) notes << "; ";
      notes << note.second << ": " << c->second;
    }
    out << "| `" << n.op << "` | " << n.tables << " | " << duration(lib.ns) << " | "
        << (floor ? duration(floor->ns) : "") << " | " << (floor && floor->ns > 0 ? ratio(lib.ns / floor->ns) : "")
        << " | " << (peer ? duration(peer->ns) : "") << " | " << (peer && lib.ns > 0 ? ratio(peer->ns / lib.ns) : "")
        << " | " << notes.str() << " |\n";
  }
  out << "\n| reference | median |\n|---|--:|\n";
  for (const std::string& name : order_) {
    const Name n = split(name);
    if (n.kind == "ref") out << "| " << tail(n) << " | " << duration(results_.at(name).ns) << " |\n";
  }
  out << "\n| processes sharing the region | DSA lifecycles per second, all processes |\n|--:|--:|\n";
  for (const std::string& name : order_) {
    const Name n = split(name);
    if (n.kind != "mp") continue;
    const Result& r = results_.at(name);
    auto rate = r.counters.find("lifecycles_per_s");
    out << "| " << n.tables.substr(n.tables.find(':') + 1) << " | "
        << (rate == r.counters.end() ? 0.0 : rate->second) << " |\n";
  }
  return static_cast<bool>(out);
}

}  // namespace qosbench
