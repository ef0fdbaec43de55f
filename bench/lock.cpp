// SPDX-License-Identifier: MIT
// lock.cpp - the lock's round trip against a process-shared mutex, and the
// transaction allocation that takes the lock by itself.
#include <dlfcn.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "qosintdb.h"
#include "semcount.h"
#include "store.h"
#include "timing.h"

namespace {

qosbench::SemCount counted;

using SemopFn = int (*)(int, struct sembuf*, size_t);

SemopFn realSemop() {
  static SemopFn fn = reinterpret_cast<SemopFn>(dlsym(RTLD_NEXT, "semop"));
  if (fn == nullptr) {
    std::fprintf(stderr, "qosdb_bench: no semop in the C library\n");
    std::abort();
  }
  return fn;
}

}  // namespace

// Every semop of the process, the library's included, comes through here.
// A take is an operation that lowered the semaphore (an attempt refused
// with IPC_NOWAIT takes nothing).
extern "C" int semop(int semid, struct sembuf* sops, size_t nsops) noexcept {
  ++counted.calls;
  const int rc = realSemop()(semid, sops, nsops);
  for (size_t i = 0; rc == 0 && i < nsops; ++i) {
    if (sops[i].sem_op < 0) ++counted.takes;
  }
  return rc;
}

namespace qosbench {

SemCount semCount() { return counted; }

namespace {

// A mutex in shared memory that any process mapping it could lock: the best
// a lock shared between processes costs when nobody else wants it; robust,
// what the robust lock mode costs at best.
pthread_mutex_t* newSharedMutex(bool robust) {
  void* p = mmap(nullptr, sizeof(pthread_mutex_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  auto* mutex = static_cast<pthread_mutex_t*>(p);
  pthread_mutexattr_t attr;
  pthread_mutexattr_init(&attr);
  pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
  if (robust) pthread_mutexattr_setrobust(&attr, PTHREAD_MUTEX_ROBUST);
  pthread_mutex_init(mutex, &attr);
  pthread_mutexattr_destroy(&attr);
  return mutex;
}
pthread_mutex_t* sharedMutex() {
  static pthread_mutex_t* m = newSharedMutex(false);
  return m;
}
pthread_mutex_t* robustMutex() {
  static pthread_mutex_t* m = newSharedMutex(true);
  return m;
}

// Per-iteration counters of the semaphore operations made since `from`.
void countSemops(benchmark::State& s, const SemCount& from) {
  const SemCount made = semCount() - from;
  s.counters["semop_calls"] = benchmark::Counter(static_cast<double>(made.calls), benchmark::Counter::kAvgIterations);
  s.counters["sem_takes"] = benchmark::Counter(static_cast<double>(made.takes), benchmark::Counter::kAvgIterations);
}

}  // namespace

void registerLocking() {
  reg("lib/LockRoundTrip", [](benchmark::State& s) {
    region();
    const SemCount from = semCount();
    eachIteration(s, [] { return qos_taDb_Lock() | qos_taDb_Unlock(); });
    countSemops(s, from);
  });
  reg("floor/LockRoundTrip", [](benchmark::State& s) {
    pthread_mutex_t* m = sharedMutex();
    eachIteration(s, [m] { return pthread_mutex_lock(m) | pthread_mutex_unlock(m); });
  });
  reg("floor/RobustLockRoundTrip", [](benchmark::State& s) {
    pthread_mutex_t* m = robustMutex();
    eachIteration(s, [m] { return pthread_mutex_lock(m) | pthread_mutex_unlock(m); });
  });
  // What the semaphore costs by itself, and what any two system calls cost.
  reg("ref/semop pair on the store's semaphore", [](benchmark::State& s) {
    region();
    const int id = semget(QOS_SEM_KEY, 1, 0);
    struct sembuf take = {0, -1, 0}, give = {0, +1, 0};
    eachIteration(s, [&] { return semop(id, &take, 1) | semop(id, &give, 1); });
  });
  reg("ref/two trivial system calls", [](benchmark::State& s) {
    eachIteration(s, [] { return syscall(SYS_getppid) + syscall(SYS_getppid); });
  });

  // The allocation searches, resets and claims its row within one hold of
  // the lock: one take per call, shown by the sem_takes counter of the
  // allocation alone (AddNewTa_takes) and of the pair.
  for (Tables t : {Tables::kEmpty, Tables::kFullRoom}) {
    reg(std::string("lib/AddNewTa+ResetTaDbRow/") + tablesName(t), [t](benchmark::State& s) {
      useTables(t);
      const uint8_t auth[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
      uint64_t allocationTakes = 0;
      const SemCount from = semCount();
      for (auto _ : s) {
        uint32_t ta = 0;
        const SemCount before = semCount();
        int32_t rc = qos_TaDb_AddNewTa(0, QOS_TA_DSA, QOS_TA_BY_MODEM, sizeof auth, auth, &ta);
        allocationTakes += (semCount() - before).takes;
        if (rc != 0) {
          s.SkipWithError("no free transaction row");
          break;
        }
        qos_intDb_ResetTaDbRow(static_cast<int32_t>(ta));
      }
      countSemops(s, from);
      s.counters["AddNewTa_takes"] =
          benchmark::Counter(static_cast<double>(allocationTakes), benchmark::Counter::kAvgIterations);
    });
  }
}

}  // namespace qosbench
