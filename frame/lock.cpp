// SPDX-License-Identifier: MIT
// lock.cpp - the one lock of the modem stack.
//
// A single System V semaphore (key 4656, value 1 = free) serialises every
// process that uses the region. It is not recursive and has no SEM_UNDO: a
// process that dies holding it leaves it taken (qosdb watch or qosdb unlock
// --force frees it, once the holder record proves the holder dead). Callers
// take it around their operations; only the transaction row reset and the
// transaction allocation take it by themselves.
//
// Around the semaphore the lock writes who holds it into the companion
// (frame/holder.h) with plain stores: no system call beyond the semop.
//
// Built with QOSDB_ROBUST_LOCK, the lock is a process-shared robust mutex in
// the companion instead: the kernel hands a dead owner's mutex to the next
// taker with EOWNERDEAD, which logs it and carries on.
#include <pthread.h>
#include <sched.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "frame/log.h"
#include "qosintdb.h"

using qos::local;

namespace {

#ifdef CLOCK_REALTIME_COARSE
constexpr clockid_t kRecordClock = CLOCK_REALTIME_COARSE;  // read without a system call
#else
constexpr clockid_t kRecordClock = CLOCK_REALTIME;
#endif

// The record around taking the lock: this process's slot says that it is
// acquiring; once it holds the lock, the holder word says so.
void beginAcquiring() {
  if (!local.slotClaimed) qos::claimSlot();  // once, in a forked child
  if (local.slot == nullptr) return;
  timespec now;
  clock_gettime(kRecordClock, &now);
  local.slot->acquiringNsec = static_cast<uint32_t>(now.tv_nsec);
  __atomic_store_n(&local.slot->acquiringSec, static_cast<uint32_t>(now.tv_sec) | 1u, __ATOMIC_RELEASE);
}

void recordHolder(bool taken) {
  if (taken && local.companion != nullptr) {
    timespec now;
    clock_gettime(kRecordClock, &now);
    local.companion->record.sinceSec = static_cast<uint32_t>(now.tv_sec);
    local.companion->record.sinceNsec = static_cast<uint32_t>(now.tv_nsec);
    local.companion->record.pid = local.slotPid;
    __atomic_store_n(&local.companion->record.holder, local.holder, __ATOMIC_RELEASE);
  }
  if (local.slot != nullptr) __atomic_store_n(&local.slot->acquiringSec, 0u, __ATOMIC_RELEASE);
}

// Clears the holder word if it still names this process. False when the
// word names another holder (the lock was taken from this process by force
// and handed on): then giving it back would let two processes in. A lock
// taken without a record (a client's raw semop, given back through
// qos_taDb_Unlock) is given back as it always was.
bool clearHolder() {
  return local.companion == nullptr || qos::swapHolder(*local.companion, local.holder, qos::kNoHolder) ||
         qos::loadHolder(*local.companion) == qos::kNoHolder;
}

#ifndef QOSDB_ROBUST_LOCK

// One semaphore operation; a wait interrupted by a signal is resumed, so a
// caller never goes on believing it holds a lock it does not.
int semaphoreOp(struct sembuf* op) {
  int rc;
  do {
    rc = semop(local.semId, op, 1);
  } while (rc == -1 && errno == EINTR);
  return rc;
}

// A busy semaphore is tried this many times without sleeping before the
// wait blocks; between two attempts the process waits a little on the
// processor, and gives it away every fourth time.
constexpr int kAttemptsBeforeSleeping = 64;
constexpr int kAttemptsPerYield = 4;
constexpr long kPauseNs = 2000;

void waitOnProcessor() {
  timespec start, now;
  clock_gettime(CLOCK_MONOTONIC, &start);
  do {
    clock_gettime(CLOCK_MONOTONIC, &now);
  } while ((now.tv_sec - start.tv_sec) * 1000000000L + (now.tv_nsec - start.tv_nsec) < kPauseNs);
}

// Takes the semaphore. A process that sleeps in semop is handed the
// semaphore by the kernel as soon as it is given back, and holds it, doing
// nothing, until it is scheduled again: every hand-over to a sleeper costs a
// wake-up during which nobody works, and under load the whole stack queues
// behind it. So a busy semaphore is first tried again without sleeping
// (IPC_NOWAIT); it stays with processes that run. After a bounded number of
// attempts the wait blocks as before, so that a long hold costs no CPU.
// With one processor the holder cannot run while this process waits on it,
// so there the process gives the processor away at once.
int takeLock() {
  struct sembuf attempt = local.lockOp;
  attempt.sem_flg = static_cast<short>(attempt.sem_flg | IPC_NOWAIT);
  for (int i = 1; i <= kAttemptsBeforeSleeping; ++i) {
    int rc = semop(local.semId, &attempt, 1);
    if (rc != -1 || (errno != EAGAIN && errno != EINTR)) return rc;
    if (i % kAttemptsPerYield != 0 && local.severalProcessors) {
      waitOnProcessor();
    } else {
      sched_yield();
    }
  }
  return semaphoreOp(&local.lockOp);
}

int giveLock() { return semaphoreOp(&local.unlockOp); }

#else

static_assert(sizeof(pthread_mutex_t) <= sizeof(qos::Companion::mutex), "the mutex fits its area");

pthread_mutex_t* mutex() {
  return local.companion == nullptr ? nullptr : reinterpret_cast<pthread_mutex_t*>(local.companion->mutex);
}

int takeLock() {
  pthread_mutex_t* m = mutex();
  if (m == nullptr) return -1;
  int rc = pthread_mutex_lock(m);
  if (rc == EOWNERDEAD) {
    QOS_LOG(QOS_LOG_SEMAPHORE, "QOS TA lock owner died holding it; the lock is recovered");
    rc = pthread_mutex_consistent(m);
  }
  return rc == 0 ? 0 : -1;
}

int giveLock() {
  pthread_mutex_t* m = mutex();
  return m != nullptr && pthread_mutex_unlock(m) == 0 ? 0 : -1;
}

#endif

}  // namespace

extern "C" {

int32_t qos_taDb_Lock(void) {
  beginAcquiring();
  int rc = takeLock();
  recordHolder(rc != -1);
  if (rc != -1) return rc;
  static const LogSite site = {QOS_LOG_SEMAPHORE, 1, QOS_MODULE_TABLES, __func__, __LINE__};
  return logger_build_send_log_msg(&site, 0, "Failed to lock the QOS TA semaphore");
}

int32_t qos_taDb_Unlock(void) {
  if (!clearHolder()) {
    QOS_LOG(QOS_LOG_SEMAPHORE, "QOS TA semaphore was freed by force while this process held it; not given back again");
    return 0;
  }
  int rc = giveLock();
  if (rc != -1) return rc;
  static const LogSite site = {QOS_LOG_SEMAPHORE, 1, QOS_MODULE_TABLES, __func__, __LINE__};
  return logger_build_send_log_msg(&site, 0, "Failed to Unlock the QOS TA semaphore");
}

}  // extern "C"
