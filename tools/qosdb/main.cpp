// SPDX-License-Identifier: MIT
// main.cpp - qosdb: attach to the live QoS store and show, check and drive it.
#include <iostream>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "qosintdb.h"
#include "snapshot.h"
#include "show.h"
#include "store.h"

int main(int argc, char** argv) {
  CLI::App app{"qosdb - show, check and drive the QoS internal database of a running modem stack"};
  app.require_subcommand(1);
  app.failure_message([](const CLI::App*, const CLI::Error& e) { return "qosdb: " + std::string(e.what()) + "\n"; });
  app.footer("Exit status: 0 success; 1 the store says no (a check failed, the lock is held, a call or a refusal\n"
             "failed); 2 a usage error (a bad option, argument or scenario line).");
  app.set_version_flag("--version",
                       std::string("qosdb ") + QOSINTDB_VERSION_STRING + " (library " + qos_IntDb_Version() +
                           "; JSON format " + std::to_string(qosdb::kJsonFormat) + ", snapshot format " +
                           std::to_string(qosdb::kSnapshotFormat) + ")");

  std::function<int()> command;

  std::vector<std::string> tables;
  bool json = false;
  bool noLock = false;
  auto* show = app.add_subcommand("show", "print tables of the store (" + qosdb::tableNames() + ")");
  show->add_option("tables", tables, "tables to print; all when none is named");
  show->add_flag("--json", json, "one JSON document, keyed by the fields' names");
  show->add_flag("--no-lock", noLock, "read without taking the lock (when its holder hangs)");
  std::string from;
  const char* fromHelp = "read a snapshot file (qosdb dump) instead of the live store; - reads standard input";
  show->add_option("--from", from, fromHelp);
  show->callback([&] { command = [&] { return qosdb::showCommand(tables, json, !noLock, from); }; });

  bool force = false;
  bool despite = false;
  auto* init = app.add_subcommand("init", "create the store and reset every table, as the stack's first process does");
  init->add_flag("--force", force, "create it anew even when a store exists (never under a living lock holder)");
  init->add_flag("--despite-attached", despite, "and even when processes are attached to it");
  init->callback([&] { command = [&] { return qosdb::initCommand(force, despite); }; });

  app.add_subcommand("reset", "empty the tables of the running store (qos_IntDb_Reset)")->callback([&] {
    command = [] { return qosdb::resetCommand(); };
  });
  auto* destroy = app.add_subcommand("destroy", "remove the store's segment and semaphore");
  destroy->add_flag("--despite-attached", despite, "even when processes are attached (never under a living lock holder)");
  destroy->callback([&] { command = [&] { return qosdb::destroyCommand(despite); }; });

  auto* check = app.add_subcommand("check", "registration check and the store's invariants; exit 0 when all hold");
  check->add_flag("--no-lock", noLock, "read without taking the lock");
  check->add_option("--from", from, fromHelp);
  check->callback([&] { command = [&] { return qosdb::checkCommand(!noLock, from); }; });

  app.add_subcommand("lock-status", "the lock: its holder, since when, whether it still runs, who waits")
      ->callback([&] { command = [] { return qosdb::lockStatusCommand(); }; });

  auto* unlock = app.add_subcommand("unlock", "free a lock whose holder died");
  bool holderGone = false;
  unlock->add_flag("--force", force, "required: free the lock of a holder that is provably dead");
  unlock->add_flag("--i-know-the-holder-is-gone", holderGone, "free it even when its holder runs or is unknown");
  unlock->callback([&] { command = [&] { return qosdb::unlockCommand(force, holderGone); }; });

  double poll = 0.1;
  auto* watch = app.add_subcommand("watch", "supervise the lock until SIGINT/SIGTERM: free a dead holder's lock, check");
  watch->add_option("--poll", poll, "seconds between two looks (at most 0.2)")->check(CLI::Range(0.001, 0.2));
  watch->callback([&] { command = [&] { return qosdb::watchCommand(poll); }; });

  int count = 0;
  double timeout = 0;
  auto* events = app.add_subcommand("events", "listen for the store's events to component 32 and print them");
  events->add_option("--count", count, "stop after this many events (exit 1 when they do not come in time)")
      ->check(CLI::Range(0, 1000000));
  events->add_option("--timeout", timeout, "stop after this many seconds")->check(CLI::Range(0.0, 1e6));
  events->callback([&] { command = [&] { return qosdb::eventsCommand(count, timeout); }; });

  std::vector<uint32_t> ifIndex{4, 80, 81, 82};
  bool multiple = false;
  auto* walk = app.add_subcommand("walk", "walk the CM service and SID cluster tables as the SNMP agent does");
  walk->add_option("--if-index", ifIndex, "interface index of upstream ports 1..4")->delimiter(',')->expected(4);
  walk->add_flag("--multiple-upstreams", multiple, "answer as a modem on multiple upstreams with a TCC");
  walk->add_option("--from", from, fromHelp);
  walk->callback([&] { command = [&] { return qosdb::walkCommand(ifIndex, multiple, from); }; });

  std::vector<std::string> files;
  bool brief = false;
  bool list = false;
  auto* run = app.add_subcommand("run", "play scenario files: one client operation per line, under the lock");
  run->add_option("files", files, "scenario files (- reads standard input)");
  run->add_flag("--brief", brief, "print the narration (## lines) and the calls that did not return 0");
  run->add_flag("--list", list, "list every operation with its arguments");
  run->callback([&] {
    command = [&] {
      if (list) return qosdb::listOperationsCommand();
      if (files.empty()) throw qosdb::Failure("run needs a scenario file (qosdb run --list shows the operations)", 2);
      return qosdb::runCommand(files, brief);
    };
  });

  std::string scenarios;
  auto* demo = app.add_subcommand("demo", "start a small modem stack around a private store and tell its story");
  demo->add_option("--scenarios", scenarios, "directory of the shipped scenarios");
  demo->callback([&] { command = [&] { return qosdb::demoCommand(scenarios); }; });

  std::string captureFile;
  bool follow = false;
  double interval = 0.2;
  auto* capture = app.add_subcommand("capture", "write the stored DSX messages as a pcap file (DOCSIS, link type 143)");
  capture->add_option("file", captureFile, "the file to write (- writes standard output)")->required();
  capture->add_flag("--follow", follow, "keep writing frames as messages change, until stopped");
  capture->add_option("--interval", interval, "seconds between two looks at the store with --follow")
      ->check(CLI::Range(0.01, 60.0));
  capture->callback([&] { command = [&] { return qosdb::captureCommand(captureFile, follow, interval); }; });

  std::string dumpFile;
  auto* dump = app.add_subcommand("dump", "copy the region into a snapshot file that any host reads (show/check/walk --from)");
  dump->add_option("file", dumpFile, "the file to write (- writes standard output)")->required();
  dump->add_flag("--no-lock", noLock, "copy without taking the lock (when its holder hangs); marked in the file");
  dump->callback([&] { command = [&] { return qosdb::dumpCommand(dumpFile, !noLock); }; });

  auto* load = app.add_subcommand("load", "write a snapshot file into the live store under the lock, then check it");
  load->add_option("file", dumpFile, "the snapshot (- reads standard input)")->required();
  load->add_flag("--force", force, "load even while other processes are attached to the store");
  load->callback([&] { command = [&] { return qosdb::loadCommand(dumpFile, force); }; });

  std::vector<std::string> sides;
  auto* diff = app.add_subcommand("diff", "the fields that differ between two regions; exit 1 when any does");
  diff->add_option("sides", sides, "two sources: a snapshot file or live")->required()->expected(2);
  diff->add_flag("--json", json, "the differences as one JSON document");
  diff->callback([&] { command = [&] { return qosdb::diffCommand(sides[0], sides[1], json); }; });

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    // --help and --version end with 0; every other parse error is a usage
    // error (2), whatever CLI11's own number for it.
    return app.exit(e) == 0 ? 0 : 2;
  }
  try {
    return command();
  } catch (const qosdb::Failure& f) {
    std::cout.flush();
    std::cerr << "qosdb: " << f.what() << std::endl;
    return f.status;
  }
}
