// store.h - reaching the live store as one more process of the stack.
//
// The tool attaches with qos_IntDb_RetrieveAccess like any process of the
// stack and never re-initialises a store it did not create. Before it
// attaches it makes sure that the semaphore exists (attaching would create
// one that nobody sets free), and before it waits for the lock it makes sure
// that the holder still runs: a lock left by a dead process is reported,
// not waited for.
#pragma once

#include <sys/types.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "frame/region.h"

namespace qosdb {

// A failure of a command: main prints "qosdb: <what>" on one line and exits
// with `status`.
struct Failure : std::runtime_error {
  Failure(const std::string& what, int status = 1) : std::runtime_error(what), status(status) {}
  int status;
};

// The semaphore as the system reports it; nothing is created or changed.
struct LockInfo {
  bool exists = false;
  int value = 0;          // 1 free, 0 taken
  pid_t lastPid = 0;      // the last process that operated on it (0: unknown)
  int waiting = 0;        // processes waiting to take it
  bool lastAlive = false; // whether lastPid still runs
  bool heldByDead() const { return exists && value == 0 && !lastAlive; }
};
LockInfo lockInfo();
bool processAlive(pid_t pid);

// Attaches to the existing store; the region in this process. Throws a
// Failure when there is no store.
qos::QosIntDbRegion* attach();

// Throws a Failure when the lock is held by a process that no longer runs.
void ensureLockHolderAlive();

// Holds the stack's lock while it lives (qos_taDb_Lock / qos_taDb_Unlock).
class Locked {
 public:
  Locked();
  ~Locked();
  Locked(const Locked&) = delete;
  Locked& operator=(const Locked&) = delete;
};

// A copy of the region, taken under the lock unless `useLock` is false.
std::unique_ptr<qos::QosIntDbRegion> snapshot(const qos::QosIntDbRegion& live, bool useLock);

// Whether a store (segment or semaphore) exists at all.
bool storeExists();

}  // namespace qosdb
