// SPDX-License-Identifier: MIT
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
#include <vector>

#include "frame/region.h"

namespace qosdb {

// A failure of a command: main prints "qosdb: <what>" on one line and exits
// with `status`.
struct Failure : std::runtime_error {
  Failure(const std::string& what, int status = 1) : std::runtime_error(what), status(status) {}
  int status;
};

// The lock as the system and its holder record report it; nothing is
// created or changed. The holder is judged from the record only (a pid is
// never proof): recorded holder whose slot the kernel still vouches for is
// alive; one whose slot semaphore fell to 0, or whose slot was claimed again
// since, is dead. No record while the lock is taken is an unknown holder
// (a raw semop client, a process of an older build, or one that has just
// taken the semaphore), except when the kernel's last operator is provably
// a dead process of the stack (see store.cpp).
enum class Holder { None, Alive, Dead, Unknown };
struct LockInfo {
  bool exists = false;       // the semaphore (key 4656)
  int value = 0;             // 1 free, 0 taken (the semaphore lock)
  int waiting = 0;           // processes sleeping in the kernel for it
  bool taken = false;
  bool companion = false;    // a trusted holder record exists
  Holder holder = Holder::None;
  uint32_t word = 0;         // the holder word as read (what a freer swaps out)
  int slot = -1;             // the holder's slot
  uint32_t generation = 0;
  pid_t pid = 0;             // in the holder's own PID namespace
  uint64_t pidNamespace = 0;
  bool otherNamespace = false;
  bool inferred = false;     // dead holder known from the kernel's last operator, not from a record
  double since = 0;          // seconds since the epoch
  std::string unknownWhy;    // why the holder is unknown
  std::vector<std::string> acquiring;  // live slots taking the lock: "process 12 (slot 3)"
  bool heldByDead() const { return taken && holder == Holder::Dead; }
  // "process 12 (slot 3, generation 7)", or what is known instead.
  std::string holderText() const;
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

// Processes attached to segment 14 (0 when there is none).
int attachedProcesses();

// The outcome of freeing a lock.
struct Freed {
  bool done = false;
  std::string check;  // the integrity check of the region, one line
};
// Frees the lock of the holder `info` describes, if the record still says
// so: swaps the holder word for this process's own, checks the region,
// clears the word and raises the semaphore from 0 to 1 (never above 1).
// Needs this process attached.
Freed freeLock(const LockInfo& info);

// Removes the lock's companion segment and slot semaphores; whether any was there.
bool removeCompanion();

}  // namespace qosdb
