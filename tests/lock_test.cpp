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

// While this process holds the lock, four processes that want it retry a
// while and then sleep in the kernel, changing nothing; given back, the lock
// serves them in turn (5000 locked read-yield-write cycles each), no update
// is lost and the semaphore ends free.
TEST_F(Lock, WaitersSleepWhileItIsHeldAndLoseNoUpdateOnceItIsFree) {
  const int semId = semget(QOS_SEM_KEY, 1, 0);
  uint32_t row = 0;
  ASSERT_EQ(qos_TaDb_AddNewTa(0, QOS_TA_DSA, 0, 0, nullptr, &row), 0);
  ASSERT_EQ(qos_taDb_Lock(), 0);
  pid_t pids[4];
  for (pid_t& pid : pids) {
    pid = fork();
    if (pid == 0) _exit(runPeer({"increment", "5000", std::to_string(row)}).status);
  }
  EXPECT_TRUE(eventually([&] { return semctl(semId, 0, GETNCNT) == 4; }));
  uint32_t total = 1;
  EXPECT_EQ(qos_TaDb_GetTaSubtype(row, &total), 0);
  EXPECT_EQ(total, 0u);

  ASSERT_EQ(qos_taDb_Unlock(), 0);
  for (pid_t pid : pids) {
    int status = -1;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  EXPECT_EQ(qos_TaDb_GetTaSubtype(row, &total), 0);
  EXPECT_EQ(total, 20000u);
  EXPECT_EQ(semctl(semId, 0, GETVAL), 1);
  EXPECT_TRUE(logs.records().empty());
}

}  // namespace
}  // namespace qostest
