// SPDX-License-Identifier: MIT
// scenario.cpp - qosdb run: play scenario files against the live store.
//
// A scenario is a text file with one operation of the client API per line:
// its name, then its input arguments (syntax in operations.h). `#` starts a
// comment; a line that starts with `##` is narration, printed as it comes.
// Every file is read whole (tools/api/scenario.h) before anything runs, so a
// malformed line stops the run at its line and column and nothing in the
// store changes.
//
// The tool behaves as a client: it holds the lock around each operation,
// except around the operations that take it by themselves. A scenario may
// also hold the lock over several lines with qos_taDb_Lock and
// qos_taDb_Unlock; then the tool takes it no more until the unlock, and a
// line that would wait for a lock that the scenario holds is refused while
// parsing.
#include <sys/stat.h>

#include <fstream>
#include <sstream>
#include <iostream>
#include <memory>

#include "commands.h"
#include "operations.h"
#include "qosintdb.h"
#include "qosplatform_host.h"
#include "store.h"

namespace qosdb {
namespace {

struct Step {
  int line = 0;
  std::string text;       // the line without its comment
  std::string narration;  // for "##" lines
  const Operation* op = nullptr;
  std::function<CallResult()> call;
};

struct Scenario {
  std::string file;  // as given, for errors
  std::string name;  // its base name, for the printout
  std::vector<Step> steps;
};

std::string join(const std::vector<std::string>& parts, const char* sep) {
  std::string out;
  for (const auto& p : parts) out += (out.empty() ? "" : sep) + p;
  return out;
}

Scenario parse(const std::string& file, std::istream& in, bool& lockHeld) {
  Scenario s{file, file.substr(file.find_last_of('/') + 1), {}};
  std::vector<qosapi::ScenarioLine> lines;
  try {
    lines = qosapi::readScenario(in, file);
  } catch (const qosapi::ScenarioError& e) {
    throw Failure(e.what(), 2);
  }
  for (const auto& line : lines) {
    Step step;
    step.line = line.line;
    step.text = line.text;
    step.narration = line.narration;
    if (line.op != nullptr) {
      step.op = findOperation(line.op->name);
      const Operation& op = *step.op;
      if (lockHeld && (op.locking == Locking::Itself || op.locking == Locking::Takes)) {
        throw Failure(qosapi::located(file, line.line, line.column,
                                      op.name + " would wait for the lock that this scenario holds (take it with "
                                                "qos_taDb_Lock, give it back with qos_taDb_Unlock first)"),
                      2);
      }
      if (op.locking == Locking::Takes) lockHeld = true;
      if (op.locking == Locking::Gives) lockHeld = false;
      step.call = op.prepare(line.inputs);
    }
    s.steps.push_back(std::move(step));
  }
  return s;
}

// Prints what the library logs during one call.
class LogPrinter {
 public:
  explicit LogPrinter(bool show) : show_(show) { qos_host_set_log_hook(&LogPrinter::hook, this); }
  ~LogPrinter() { qos_host_set_log_hook(nullptr, nullptr); }
  std::vector<std::string>& pending() { return pending_; }

 private:
  static void hook(const LogSite* site, const char* text, void* self) {
    auto* me = static_cast<LogPrinter*>(self);
    if (!me->show_) return;
    me->pending_.push_back("    log L" + std::to_string(site->level) + " M" + std::to_string(site->module) + " " +
                           (site->function != nullptr ? site->function : "?") + ": " + text);
  }
  bool show_;
  std::vector<std::string> pending_;
};

class Runner {
 public:
  explicit Runner(bool brief) : brief_(brief), logs_(!brief) {}

  // Plays one scenario; the number of calls that did not return 0.
  std::size_t play(const Scenario& s) {
    if (!brief_) std::cout << "== " << s.name << "\n";
    int calls = 0;
    std::vector<std::string> nonZero;
    for (const Step& step : s.steps) {
      if (step.op == nullptr) {
        std::cout << (brief_ ? "" : "## ") << step.narration << std::endl;
        continue;
      }
      CallResult r = call(s, step);
      ++calls;
      if (r.hasResult && r.result != 0) nonZero.push_back(std::to_string(step.line));
      if (brief_ && !(r.hasResult && r.result != 0)) {
        logs_.pending().clear();
        continue;
      }
      std::cout << step.line << ": " << step.text << " -> "
                << (r.hasResult ? std::to_string(r.result) : r.text.empty() ? "done" : r.text);
      for (const auto& o : r.outputs) std::cout << "  " << o;
      std::cout << "\n";
      for (const auto& l : logs_.pending()) std::cout << l << "\n";
      logs_.pending().clear();
      std::cout.flush();
    }
    std::cout << s.name << ": " << calls << (calls == 1 ? " operation, " : " operations, ")
              << (nonZero.empty() ? "all returned 0" : "non-zero results on lines " + join(nonZero, ", ")) << std::endl;
    return nonZero.size();
  }

  void finish() const {
    if (scenarioHolds_) std::cerr << "qosdb: note: the scenario ends holding the lock; it stays taken" << std::endl;
  }

 private:
  CallResult call(const Scenario& s, const Step& step) {
    const Operation& op = *step.op;
    if (!attached_ && !op.attaches && op.needsStore) {
      try {
        attach();
      } catch (const Failure& f) {
        throw Failure(s.file + ":" + std::to_string(step.line) + ": " + f.what(), f.status);
      }
      attached_ = true;
    }
    std::cout.flush();
    CallResult r;
    if (op.locking == Locking::ByCaller && !scenarioHolds_ && attached_) {
      ensureLockHolderAlive();
      Locked lock;
      r = step.call();
    } else {
      if (op.locking == Locking::Takes) ensureLockHolderAlive();
      r = step.call();
    }
    if (op.attaches && r.result == 0) attached_ = true;
    if (op.locking == Locking::Takes && r.result == 0) scenarioHolds_ = true;
    if (op.locking == Locking::Gives && r.result == 0) scenarioHolds_ = false;
    return r;
  }

  bool brief_;
  LogPrinter logs_;
  bool attached_ = false;
  bool scenarioHolds_ = false;
};

}  // namespace

// The scenarios a regular file says it plays after ("#after NAME" lines,
// NAME a base name), read from its first 4 KiB.
std::vector<std::string> playsAfter(const std::string& file) {
  std::vector<std::string> after;
  struct stat st;
  if (stat(file.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return after;
  char head[4096];
  std::ifstream in(file, std::ios::binary);
  in.read(head, sizeof head);
  std::istringstream lines(std::string(head, static_cast<std::size_t>(in.gcount())));
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("#after ", 0) == 0) after.push_back(line.substr(7, line.find_last_not_of(" \t\r") - 6));
  }
  return after;
}

// The files in the order they play: as given, except that a file that says
// it plays after another of the given files comes after it (so that a
// shell's alphabetical glob still plays registration.qos first).
std::vector<std::string> playingOrder(const std::vector<std::string>& files) {
  std::vector<std::string> order;
  std::vector<bool> placed(files.size(), false);
  auto base = [](const std::string& f) { return f.substr(f.find_last_of('/') + 1); };
  for (bool progress = true; progress && order.size() < files.size();) {
    progress = false;
    for (std::size_t i = 0; i < files.size(); ++i) {
      if (placed[i]) continue;
      bool ready = true;
      for (const auto& name : files[i] == "-" ? std::vector<std::string>{} : playsAfter(files[i])) {
        for (std::size_t j = 0; j < files.size(); ++j) ready = ready && (placed[j] || j == i || base(files[j]) != name);
      }
      if (!ready) continue;
      order.push_back(files[i]);
      placed[i] = progress = true;
    }
  }
  for (std::size_t i = 0; i < files.size(); ++i) {  // a cycle: the rest as given
    if (!placed[i]) order.push_back(files[i]);
  }
  return order;
}

// Exit status 0 when every call returned 0, 1 when one did not; a file that
// cannot be read as a scenario is a usage error (2) and nothing plays.
int runCommand(const std::vector<std::string>& files, bool brief) {
  std::vector<Scenario> scenarios;
  bool lockHeld = false;
  for (const auto& file : playingOrder(files)) {
    if (file == "-") {
      scenarios.push_back(parse("stdin", std::cin, lockHeld));
      continue;
    }
    struct stat st;
    if (stat(file.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
      throw Failure("scenario " + file + " is a directory (name its .qos files)", 2);
    }
    std::ifstream in(file);
    if (!in) throw Failure("cannot read scenario " + file, 2);
    scenarios.push_back(parse(file, in, lockHeld));
  }
  Runner runner(brief);
  std::size_t failed = 0;
  for (const auto& s : scenarios) failed += runner.play(s);
  runner.finish();
  return failed == 0 ? 0 : 1;
}

int listOperationsCommand() {
  for (const auto& op : operations()) {
    std::cout << op.name;
    for (const auto& in : op.inputs) std::cout << " " << in;
    if (op.locking == Locking::Itself) std::cout << "   (takes the lock by itself)";
    std::cout << "\n";
  }
  return 0;
}

}  // namespace qosdb
