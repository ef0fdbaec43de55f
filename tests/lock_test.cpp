// lock_test.cpp - processes waiting for the lock: a waiter retries without
// sleeping for a while, then sleeps in the kernel until the lock is free.
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "support/fixture.h"

namespace qostest {
namespace {

using Lock = StoreTest;

// Polls `cond` for up to ten seconds.
template <typename Cond>
bool eventually(Cond cond) {
  for (int i = 0; i < 10000; ++i) {
    if (cond()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return cond();
}

// Held for long, the lock makes a waiter give up retrying and sleep (one
// process waiting in the kernel); given back, it goes to that waiter, and
// the semaphore ends free.
TEST_F(Lock, AWaiterSleepsUntilTheLockIsGivenBack) {
  const int semId = semget(QOS_SEM_KEY, 1, 0);
  uint32_t row = 0;
  ASSERT_EQ(qos_TaDb_AddNewTa(0, QOS_TA_DSA, 0, 0, nullptr, &row), 0);
  ASSERT_EQ(qos_taDb_Lock(), 0);
  pid_t child = fork();
  if (child == 0) {
    int rc = qos_taDb_Lock();
    qos_TaDb_SetTaSubtype(row, 7);
    rc |= qos_taDb_Unlock();
    _exit(rc == 0 ? 0 : 1);
  }
  EXPECT_TRUE(eventually([&] { return semctl(semId, 0, GETNCNT) == 1; }));
  EXPECT_EQ(waitpid(child, nullptr, WNOHANG), 0);  // still waiting
  uint32_t subtype = 1;
  EXPECT_EQ(qos_TaDb_GetTaSubtype(row, &subtype), 0);
  EXPECT_EQ(subtype, 0u);

  ASSERT_EQ(qos_taDb_Unlock(), 0);
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_EQ(qos_TaDb_GetTaSubtype(row, &subtype), 0);
  EXPECT_EQ(subtype, 7u);
  EXPECT_EQ(semctl(semId, 0, GETVAL), 1);
  EXPECT_TRUE(logs.records().empty());
}

// Four processes, 5000 locked read-yield-write cycles each: waiters retry
// and sleep in turn, and no update is lost.
TEST_F(Lock, FourProcessesLoseNoUpdate) {
  uint32_t row = 0;
  ASSERT_EQ(qos_TaDb_AddNewTa(0, QOS_TA_DSA, 0, 0, nullptr, &row), 0);
  pid_t pids[4];
  for (pid_t& pid : pids) {
    pid = fork();
    if (pid == 0) _exit(runPeer({"increment", "5000", std::to_string(row)}).status);
  }
  for (pid_t pid : pids) {
    int status = -1;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  uint32_t total = 0;
  EXPECT_EQ(qos_TaDb_GetTaSubtype(row, &total), 0);
  EXPECT_EQ(total, 20000u);
  EXPECT_EQ(semctl(semget(QOS_SEM_KEY, 1, 0), 0, GETVAL), 1);
}

}  // namespace
}  // namespace qostest
