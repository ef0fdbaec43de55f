// SPDX-License-Identifier: MIT
// watch.cpp - qosdb watch: the lock's supervisor.
//
// Runs in the foreground until SIGINT or SIGTERM (the modem's init system
// starts it). Every poll it reads the lock's holder record; when the holder
// is provably dead (frame/holder.h) it frees the lock, checks the region's
// invariants and logs one level-0 line through the platform logger with the
// dead pid and the check's result. A living or unknown holder is never
// touched: the stack keeps its blocking behaviour, recovery is done here.
#include <signal.h>
#include <time.h>

#include <cmath>
#include <iostream>

#include "commands.h"
#include "qosintdb.h"
#include "qosintdb_platform.h"
#include "store.h"

namespace qosdb {
namespace {

volatile sig_atomic_t stopRequested = 0;
void requestStop(int) { stopRequested = 1; }

}  // namespace

int watchCommand(double pollSeconds) {
  attach();
  struct sigaction sa {};
  sa.sa_handler = requestStop;
  sigemptyset(&sa.sa_mask);
  sigaction(SIGINT, &sa, nullptr);
  sigaction(SIGTERM, &sa, nullptr);
  std::cout << "watching the lock every " << std::lround(pollSeconds * 1000) << " ms until SIGINT or SIGTERM"
            << std::endl;
  timespec pause{0, static_cast<long>(pollSeconds * 1e9)};
  while (!stopRequested) {
    LockInfo info = lockInfo();
    if (info.heldByDead()) {
      Freed freed = freeLock(info);
      if (freed.done) {
        static const LogSite site = {QOS_LOG_SEMAPHORE, 1, QOS_MODULE_TABLES, "qosdb_watch", __LINE__};
        logger_build_send_log_msg(&site, 0, "QOS TA lock of dead process %d freed; integrity: %s",
                                  static_cast<int>(info.pid), freed.check.c_str());
        std::cout << "freed the lock of dead process " << info.pid << "; integrity: " << freed.check << std::endl;
      }
    }
    nanosleep(&pause, nullptr);
  }
  std::cout << "watch stopped" << std::endl;
  return 0;
}

}  // namespace qosdb
