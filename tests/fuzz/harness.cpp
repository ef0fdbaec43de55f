// SPDX-License-Identifier: MIT
// harness.cpp - libFuzzer entry: each input is a sequence of calls across
// the whole client API (operations.h says how it is read) on a fresh store
// in guarded memory (guarded.h).
//
// After each call the harness checks that no byte around the region or
// around the arguments it passed changed; after each input it checks the
// region's invariants and fails on any finding classed corrupt (a state no
// sequence of operations can produce, whatever the arguments).
//
// The harness keeps the lock rules of a client: it never takes the lock
// twice, never gives back a lock it does not hold, and never calls an
// operation that locks by itself while it holds the lock; such steps are
// read and skipped.
//
//   qos_fuzz [libFuzzer options] [corpus dirs]
//   qos_fuzz --encode OUT_DIR FILE.qos...   scenario files as seed inputs
//   QOS_FUZZ_TRACE=1 qos_fuzz INPUT          each call and its result
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

#include "qosintdb.h"
#include "tests/fuzz/encode.h"
#include "tests/fuzz/guarded.h"
#include "tests/fuzz/operations.h"
#include "tools/inspect/integrity.h"

namespace {

// Each scenario alone, and each one played on what the scenarios before it
// on the command line left (they build on one another).
int encodeMain(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: qos_fuzz --encode OUT_DIR FILE.qos...\n";
    return 2;
  }
  const std::string dir = argv[0];
  std::string played;
  for (int i = 1; i < argc; ++i) {
    std::string file = argv[i];
    std::ifstream in(file);
    std::string input;
    try {
      if (!in) throw std::runtime_error(file + ": cannot read");
      input = fuzz::encodeScenario(in, file);
    } catch (const std::exception& e) {
      std::cerr << e.what() << "\n";
      return 1;
    }
    std::string base = file.substr(file.find_last_of('/') + 1);
    base = base.substr(0, base.rfind('.'));
    std::ofstream(dir + "/" + base, std::ios::binary) << input;
    if (!played.empty()) std::ofstream(dir + "/after-" + base, std::ios::binary) << played + input;
    played += input;
  }
  return 0;
}

// Fails on states that no sequence of calls and direct writes into the
// bonding change store (which clients may do) can produce.
void checkIntegrity() {
  const auto& image = *reinterpret_cast<const qos::QosIntDbRegion*>(fuzz::region());
  bool corrupt = false;
  for (const auto& f : qos::inspect::checkIntegrity(image)) {
    if (f.cls != qos::inspect::FindingClass::Corrupt) continue;
    std::fprintf(stderr, "%s\n", qos::inspect::describe(f).c_str());
    corrupt = true;
  }
  if (corrupt) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  for (int i = 1; i < *argc; ++i) {
    if (std::strcmp((*argv)[i], "--encode") == 0) std::exit(encodeMain(*argc - i - 1, *argv + i + 1));
  }
  // A semaphore and a region of our own, whatever else runs on this host.
  if (unshare(CLONE_NEWIPC) != 0) {
    std::fprintf(stderr, "qos_fuzz: no private IPC namespace (unshare: %s)\n", std::strerror(errno));
    std::exit(1);
  }
  // The dumps go to standard output; libFuzzer reports on standard error.
  int null = open("/dev/null", O_WRONLY);
  if (null >= 0) dup2(null, STDOUT_FILENO);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::resetHarnessState();
  if (qos_IntDb_Init() != 0) std::abort();
  const std::vector<fuzz::Operation>& ops = fuzz::operations();
  fuzz::Reader in(data, size);
  bool held = false;
  static const bool trace = std::getenv("QOS_FUZZ_TRACE") != nullptr;
  while (!in.done()) {
    const fuzz::Operation& op = ops[in.byte() % ops.size()];
    fuzz::Call call{in};
    uint8_t flags = in.byte();
    call.nullMask = (flags & 0x80) != 0 ? flags & 0x7F : 0;
    switch (op.locking) {
      case fuzz::Locking::ByCaller:
      case fuzz::Locking::None: break;
      case fuzz::Locking::Itself: call.allowed = !held; break;
      case fuzz::Locking::Takes: call.allowed = !held; break;
      case fuzz::Locking::Gives: call.allowed = held; break;
    }
    op.run(call);
    if (trace) std::fprintf(stderr, "%s -> %d%s\n", op.name.c_str(), call.result, call.allowed ? "" : " (skipped)");
    if (call.allowed && op.locking == fuzz::Locking::Takes) held = true;
    if (call.allowed && op.locking == fuzz::Locking::Gives) held = false;
    fuzz::checkPages();
    fuzz::checkRegionCanary();
  }
  if (held) qos_taDb_Unlock();
  checkIntegrity();
  return 0;
}
