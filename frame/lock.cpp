// lock.cpp - the one lock of the modem stack.
//
// A single System V semaphore (key 4656, value 1 = free) serialises every
// process that uses the region. It is not recursive and has no SEM_UNDO: a
// process that dies holding it leaves it taken (qosdb unlock --force frees
// it). Callers take it around their operations; only the transaction row
// reset and the transaction allocation take it by themselves.
#include <sched.h>

#include <cerrno>

#include "frame/log.h"
#include "qosintdb.h"

using qos::local;

namespace {

// One semaphore operation; a wait interrupted by a signal is resumed, so a
// caller never goes on believing it holds a lock it does not.
int semaphoreOp(struct sembuf* op) {
  int rc;
  do {
    rc = semop(local.semId, op, 1);
  } while (rc == -1 && errno == EINTR);
  return rc;
}

// Attempts to take a busy semaphore without sleeping before the wait blocks.
constexpr int kAttemptsBeforeSleeping = 64;

// Takes the semaphore. A process that sleeps in semop is handed the
// semaphore by the kernel as soon as it is given back, and holds it, doing
// nothing, until it is scheduled again: every hand-over to a sleeper costs a
// wake-up during which nobody works. So a busy semaphore is first tried
// again without sleeping (IPC_NOWAIT), giving the processor away between
// attempts; it stays with processes that run. After a bounded number of
// attempts the wait blocks as before, so that a long hold costs no CPU.
int takeSemaphore() {
  struct sembuf attempt = local.lockOp;
  attempt.sem_flg = static_cast<short>(attempt.sem_flg | IPC_NOWAIT);
  for (int i = 0; i < kAttemptsBeforeSleeping; ++i) {
    int rc = semop(local.semId, &attempt, 1);
    if (rc != -1 || (errno != EAGAIN && errno != EINTR)) return rc;
    sched_yield();
  }
  return semaphoreOp(&local.lockOp);
}

}  // namespace

extern "C" {

int32_t qos_taDb_Lock(void) {
  int rc = takeSemaphore();
  if (rc != -1) return rc;
  static const LogSite site = {QOS_LOG_SEMAPHORE, 1, QOS_MODULE_TABLES, __func__, __LINE__};
  return logger_build_send_log_msg(&site, 0, "Failed to lock the QOS TA semaphore");
}

int32_t qos_taDb_Unlock(void) {
  int rc = semaphoreOp(&local.unlockOp);
  if (rc != -1) return rc;
  static const LogSite site = {QOS_LOG_SEMAPHORE, 1, QOS_MODULE_TABLES, __func__, __LINE__};
  return logger_build_send_log_msg(&site, 0, "Failed to Unlock the QOS TA semaphore");
}

}  // extern "C"
