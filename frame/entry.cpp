// SPDX-License-Identifier: MIT
// entry.cpp - creating, attaching to and resetting the store.
//
// Exactly one process of the stack calls qos_IntDb_Init at start-up: it
// creates the region, zeroes it, points the tables at it, resets them and
// creates the semaphore with the value 1. Every other process calls
// qos_IntDb_RetrieveAccess, which attaches and changes no table. Attaching
// before any qos_IntDb_Init has run leaves this process with a semaphore
// that nobody has set free yet: its locks wait until qos_IntDb_Init runs.
//
// These entry points are the one place in frame/ that calls up into the
// subsystems (their init and reset operations); the rest of frame/ only
// maps the region, logs and locks.
// Both also attach to the lock's companion (frame/holder.h), creating it
// when it does not exist yet.
#include <sys/ipc.h>
#include <sys/sem.h>

#include <unistd.h>

#include <cstdint>
#include <cstring>

#include "frame/log.h"
#include "qosintdb.h"

using qos::local;

namespace {

constexpr int kShmPool = 1;
constexpr int kSemFlags = IPC_CREAT | 0777;

void fillLockOps() {
  local.lockOp = {0, -1, 0};
  local.unlockOp = {0, +1, 0};
  local.severalProcessors = sysconf(_SC_NPROCESSORS_ONLN) > 1;
}

// The base the platform gave, if the library can use it: not NULL and
// aligned for the region's widest words. Then the lock's companion; a
// foreign or stale companion, or one of the other lock mode, refuses the
// store. On refusal this process keeps no base.
bool usable(void* base) {
  local.regionBase = nullptr;
  if (base == nullptr) return false;
  if (reinterpret_cast<uintptr_t>(base) % alignof(uint64_t) != 0) {
    QOS_LOG(QOS_LOG_SEMAPHORE, "QOS internal DB segment at %p is not 8-byte aligned; refused", base);
    return false;
  }
  if (qos::attachCompanion() != 0) return false;
  local.regionBase = static_cast<qos::QosIntDbRegion*>(base);
  return true;
}

}  // namespace

extern "C" {

int32_t qos_IntDb_Init(void) {
  shm_init(1, 0, 0);
  void* base = shm_create(kShmPool, QOS_REGION_SEGMENT_ID, QOS_REGION_SIZE);
  if (base == nullptr) {
    local.regionBase = nullptr;
    QOS_LOG(QOS_LOG_ERROR, "******* QOS internal DB create failure *********");
    return -1;
  }
  if (!usable(base)) return -1;
  std::memset(local.regionBase, 0, QOS_REGION_SIZE);

  qos_intDb_SfDb_init(local.regionBase);
  qos_intDb_TaDb_init(local.regionBase);
  qos_intDb_MsgDb_init(local.regionBase);
  qos_dbc_DbInit(local.regionBase);

  qos_intDb_SfDb_Reset();
  qos_intDb_MsgDb_reset();

  local.semId = semget(QOS_SEM_KEY, 1, kSemFlags);
  if (local.semId == -1) {
    QOS_LOG(QOS_LOG_SEMAPHORE, "Failed to create QOS TA semaphore");
    return -1;
  }
  if (semctl(local.semId, 0, SETVAL, 1) == -1) {
    QOS_LOG(QOS_LOG_SEMAPHORE, "Failed to initialize QOS TA semaphore");
    return -1;
  }
  fillLockOps();
  qos::clearHolderRecord();  // the lock is free: nobody holds it

  // Takes the lock once per transaction row, hence only now.
  qos_intDb_TaDb_reset();
  return 0;
}

int32_t qos_IntDb_RetrieveAccess(void) {
  shm_init(1, 0, 0);
  if (!usable(shm_get(kShmPool, QOS_REGION_SEGMENT_ID))) return -1;

  qos_intDb_SfDb_init(local.regionBase);
  qos_intDb_MsgDb_init(local.regionBase);
  qos_intDb_TaDb_init(local.regionBase);
  qos_dbc_DbInit(local.regionBase);

  local.semId = semget(QOS_SEM_KEY, 1, kSemFlags);
  if (local.semId == -1) {
    QOS_LOG(QOS_LOG_SEMAPHORE, "Failed to access QOS TA semaphore");
    return -1;
  }
  fillLockOps();
  return 0;
}

int32_t qos_IntDb_Reset(void) {
  if (local.regionBase == nullptr) return -1;
  qos_intDb_SfDb_Reset();
  qos_intDb_MsgDb_reset();
  qos_intDb_TaDb_reset();
  return 0;
}

}  // extern "C"
