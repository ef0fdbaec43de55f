// SPDX-License-Identifier: MIT
// admin.cpp - show, check and administer the store: show, init, reset,
// destroy, check, lock-status, unlock.
#include <sys/ipc.h>
#include <sys/sem.h>

#include <iostream>
#include <memory>

#include "commands.h"
#include "qosintdb.h"
#include "qosplatform_host.h"
#include "show.h"
#include "snapshot.h"
#include "store.h"
#include "tools/inspect/integrity.h"

namespace qosdb {
namespace {

// Collects what the library logs while it lives.
class LogLines {
 public:
  LogLines() { qos_host_set_log_hook(&LogLines::hook, this); }
  ~LogLines() { qos_host_set_log_hook(nullptr, nullptr); }
  const std::vector<std::string>& texts() const { return texts_; }

 private:
  static void hook(const LogSite*, const char* text, void* self) {
    static_cast<LogLines*>(self)->texts_.push_back(text);
  }
  std::vector<std::string> texts_;
};

// Throws a Failure when `what` would harm a running stack: the lock is held
// by a living or unknown holder (never overridden), or other processes are
// attached to the region (overridden by `despiteAttached`).
void refuseUnderRunningStack(const std::string& what, bool despiteAttached) {
  LockInfo info = lockInfo();
  if (info.taken && (info.holder == Holder::Alive || info.holder == Holder::Unknown)) {
    throw Failure("the lock is held by " + info.holderText() +
                  (info.holder == Holder::Alive ? ", which still runs" : "") + "; refusing to " + what);
  }
  int attached = attachedProcesses();
  if (attached > 0 && !despiteAttached) {
    throw Failure(std::to_string(attached) + " process" + (attached == 1 ? " is" : "es are") +
                  " attached to segment 14; refusing to " + what + " (--despite-attached overrides)");
  }
}

}  // namespace

int showCommand(const std::vector<std::string>& tables, bool json, bool useLock, const std::string& from) {
  std::vector<std::string> wanted = resolveTables(tables);
  std::unique_ptr<qos::QosIntDbRegion> copy = from.empty() ? snapshot(*attach(), useLock) : readSnapshot(from).region;
  if (json) {
    std::cout << showJson(*copy, wanted).dump(2) << "\n";
  } else {
    showText(std::cout, *copy, wanted);
  }
  return 0;
}

int initCommand(bool force, bool despiteAttached) {
  if (storeExists() && !force) {
    throw Failure("a store exists already; qosdb reset empties it, qosdb init --force creates it anew");
  }
  refuseUnderRunningStack("create the store anew under it", despiteAttached);
  if (qos_IntDb_Init() != 0) throw Failure("cannot create the store");
  std::cout << "store created: region of " << QOS_REGION_SIZE << " bytes (segment " << QOS_REGION_SEGMENT_ID
            << "), every table reset, semaphore " << QOS_SEM_KEY << " free\n";
  return 0;
}

int resetCommand() {
  attach();
  ensureLockHolderAlive();
  {
    // What qos_IntDb_Reset does, under the lock like any client; the
    // transaction table's reset takes the lock row by row itself.
    Locked lock;
    qos_intDb_SfDb_Reset();
    qos_intDb_MsgDb_reset();
  }
  qos_intDb_TaDb_reset();
  std::cout << "store reset: flows, classifiers, SID clusters, active tables, messages and transactions are empty; "
               "the bonding change store is kept\n";
  return 0;
}

int destroyCommand(bool despiteAttached) {
  if (storeExists()) refuseUnderRunningStack("remove the store", despiteAttached);
  removeCompanion();
  int semId = semget(QOS_SEM_KEY, 1, 0);
  bool semaphore = semId != -1 && semctl(semId, 0, IPC_RMID) == 0;
  bool segment = qos_host_shm_remove(QOS_REGION_SEGMENT_ID) == 0;
  if (!semaphore && !segment) throw Failure("no store here: neither segment 14 nor semaphore 4656 exists");
  std::cout << "removed" << (segment ? " segment 14" : "") << (segment && semaphore ? " and" : "")
            << (semaphore ? " semaphore 4656" : "") << "\n";
  return 0;
}

int checkCommand(bool useLock, const std::string& from) {
  if (!from.empty()) openPrivateStore(from);
  qos::QosIntDbRegion* live = attach();
  auto copy = std::make_unique<qos::QosIntDbRegion>();
  int32_t registration;
  LogLines logs;
  {
    std::unique_ptr<Locked> lock;
    if (useLock) {
      ensureLockHolderAlive();
      lock = std::make_unique<Locked>();
    }
    registration = qos_intDb_CheckCorrectness();
    *copy = *live;
  }
  // The last message of a failed check is its reason; any before it are notes.
  std::size_t notes = logs.texts().size() - (registration != 0 && !logs.texts().empty() ? 1 : 0);
  for (std::size_t i = 0; i < notes; ++i) std::cout << "registration check: note: " << logs.texts()[i] << "\n";
  if (registration == 0) {
    std::cout << "registration check: passed\n";
  } else {
    std::cout << "registration check: failed: " << (logs.texts().empty() ? "(no reason logged)" : logs.texts().back())
              << "\n";
  }

  std::vector<qos::inspect::Finding> findings = qos::inspect::checkIntegrity(*copy);
  std::size_t corrupt = 0;
  for (const auto& f : findings) {
    std::cout << qos::inspect::describe(f) << "\n";
    corrupt += f.cls == qos::inspect::FindingClass::Corrupt ? 1 : 0;
  }
  if (findings.empty()) {
    std::cout << "integrity: every invariant holds\n";
  } else {
    std::cout << "integrity: " << corrupt << " corrupt, " << findings.size() - corrupt << " suspect\n";
  }
  return registration == 0 && findings.empty() ? 0 : 1;
}

int lockStatusCommand() {
  LockInfo info = lockInfo();
  if (!info.exists) throw Failure("no store here: the semaphore (key 4656) does not exist");
#ifdef QOSDB_ROBUST_LOCK
  std::cout << "robust mutex: " << (info.taken ? "taken" : "free") << "\n";
#else
  std::cout << "semaphore " << QOS_SEM_KEY << ": value " << info.value;
  if (info.value == 1) {
    std::cout << ", free\n";
  } else if (info.value == 0) {
    std::cout << ", taken\n";
  } else {
    std::cout << ", broken: more than one process can take it\n";
  }
#endif
  std::cout << "holder: " << (info.taken ? info.holderText() : "none");
  if (info.taken && info.holder == Holder::Alive) std::cout << ", running";
  if (info.taken && info.holder == Holder::Dead) std::cout << ", no longer running";
  std::cout << "\n";
  if (info.heldByDead()) std::cout << "the lock is held by a dead process: qosdb unlock --force frees it\n";
  std::cout << "processes waiting for it: " << info.waiting;
  for (std::size_t i = 0; i < info.acquiring.size(); ++i) std::cout << (i == 0 ? "; taking it: " : ", ") << info.acquiring[i];
  std::cout << "\n";
  return 0;
}

int unlockCommand(bool force, bool holderGone) {
  if (!force) throw Failure("unlock frees a lock whose holder died; say unlock --force", 2);
  LockInfo info = lockInfo();
  if (!info.exists) throw Failure("no store here: the semaphore (key 4656) does not exist");
  if (!info.taken) throw Failure("the lock is not taken (value " + std::to_string(info.value) + "); nothing to free");
  if (info.value > 1) throw Failure("the semaphore reads " + std::to_string(info.value) + "; qosdb init --force repairs it");
  if (!info.heldByDead() && !holderGone) {
    throw Failure("the lock is held by " + info.holderText() +
                  (info.holder == Holder::Alive ? ", which still runs" : "") +
                  "; refusing to free it (--i-know-the-holder-is-gone frees it all the same)");
  }
  attach();
  Freed freed = freeLock(info);
  if (!freed.done) throw Failure("the lock changed hands meanwhile; nothing freed");
  std::cout << "lock freed (it was held by " << (info.pid > 0 ? "process " + std::to_string(info.pid) : "an unknown process")
            << (info.heldByDead() ? ", which no longer runs)" : ")") << "; integrity: " << freed.check << "\n";
  return 0;
}

}  // namespace qosdb
