// lock_test.cpp - processes waiting for the lock: a waiter retries without
// sleeping for a while, then sleeps in the kernel until the lock is free.
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

#include "frame/holder.h"
#include "support/fixture.h"

namespace qostest {
namespace {

using Lock = StoreTest;

int exitOf(pid_t pid) {
  int st = -1;
  return waitpid(pid, &st, 0) == pid && WIFEXITED(st) ? WEXITSTATUS(st) : -1;
}

// While this process holds the lock, four processes that want it sleep in the
// kernel (after a spell of retries), changing nothing; given back, the lock
// serves them in turn (5000 locked read-yield-write cycles each), no update is
// lost and the lock ends free.
TEST_F(Lock, WaitersSleepWhileItIsHeldAndLoseNoUpdateOnceItIsFree) {
  const int semId = semget(QOS_SEM_KEY, 1, 0);
  uint32_t row = 0, total = 1;
  ASSERT_EQ(qos_TaDb_AddNewTa(0, QOS_TA_DSA, 0, 0, nullptr, &row), 0);
  ASSERT_EQ(qos_taDb_Lock(), 0);
  pid_t pids[4];
  for (pid_t& pid : pids) {
    if ((pid = fork()) == 0) _exit(runPeer({"increment", "5000", std::to_string(row)}).status);
  }
  // The robust mutex counts no waiters: the peers get a tenth of a second to block.
  const bool sem = qos::kBuiltLockMode == qos::kLockSemaphore;
  for (int i = 0; i < (sem ? 10000 : 1) && !(sem && semctl(semId, 0, GETNCNT) == 4); ++i) usleep(sem ? 1000 : 100000);
  EXPECT_EQ(sem ? semctl(semId, 0, GETNCNT) : 4, 4);
  EXPECT_EQ(qos_TaDb_GetTaSubtype(row, &total), 0);
  EXPECT_EQ(total, 0u);
  ASSERT_EQ(qos_taDb_Unlock(), 0);
  for (pid_t pid : pids) EXPECT_EQ(exitOf(pid), 0);
  EXPECT_EQ(qos_TaDb_GetTaSubtype(row, &total), 0);
  EXPECT_EQ(total, 20000u);
  EXPECT_EQ(semctl(semId, 0, GETVAL), 1);
  EXPECT_TRUE(logs.records().empty());
}

}  // namespace
}  // namespace qostest
