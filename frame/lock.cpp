// lock.cpp - the one lock of the modem stack.
//
// A single System V semaphore (key 4656, value 1 = free) serialises every
// process that uses the region. It is not recursive and has no SEM_UNDO: a
// process that dies holding it leaves it taken (qosdb unlock --force frees
// it). Callers take it around their operations; only the transaction row
// reset and the transaction allocation take it by themselves.
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

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

// A busy semaphore is tried this many times without sleeping before the
// wait blocks; between two attempts the process waits a little on the
// processor, and gives it away every fourth time.
constexpr int kAttemptsBeforeSleeping = 64;
constexpr int kAttemptsPerYield = 4;
constexpr std::chrono::nanoseconds kPause{2000};

// With one processor the holder cannot run while this process waits on it,
// so there the process gives the processor away at once.
bool severalProcessors() {
  static const bool several = sysconf(_SC_NPROCESSORS_ONLN) > 1;
  return several;
}

void waitOnProcessor() {
  const auto end = std::chrono::steady_clock::now() + kPause;
  while (std::chrono::steady_clock::now() < end) {
  }
}

// Takes the semaphore. A process that sleeps in semop is handed the
// semaphore by the kernel as soon as it is given back, and holds it, doing
// nothing, until it is scheduled again: every hand-over to a sleeper costs a
// wake-up during which nobody works, and under load the whole stack queues
// behind it. So a busy semaphore is first tried again without sleeping
// (IPC_NOWAIT); it stays with processes that run. After a bounded number of
// attempts the wait blocks as before, so that a long hold costs no CPU.
int takeSemaphore() {
  struct sembuf attempt = local.lockOp;
  attempt.sem_flg = static_cast<short>(attempt.sem_flg | IPC_NOWAIT);
  for (int i = 1; i <= kAttemptsBeforeSleeping; ++i) {
    int rc = semop(local.semId, &attempt, 1);
    if (rc != -1 || (errno != EAGAIN && errno != EINTR)) return rc;
    if (i % kAttemptsPerYield != 0 && severalProcessors()) {
      waitOnProcessor();
    } else {
      sched_yield();
    }
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
