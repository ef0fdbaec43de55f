// lock_test.cpp - processes waiting for the lock: a waiter retries without
// sleeping for a while, then sleeps in the kernel until the lock is free.
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include <sys/shm.h>

#include "frame/holder.h"
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
#ifndef QOSDB_ROBUST_LOCK
  EXPECT_TRUE(eventually([&] { return semctl(semId, 0, GETNCNT) == 4; }));
#else
  usleep(100000);
#endif
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

// The holder record names whoever holds the lock by its slot, which the
// kernel keeps raised while the process lives: this process, then a forked
// child (which claims a slot of its own), then nobody; the child's slot
// falls to 0 when it ends.
TEST_F(Lock, TheRecordNamesTheHolderBySlotAndTheSlotDiesWithItsProcess) {
  auto* c = static_cast<qos::Companion*>(shmat(shmget(qos::kCompanionKey, 0, 0), nullptr, SHM_RDONLY));
  const int slots = semget(qos::kCompanionKey, 0, 0);
  ASSERT_NE(c, reinterpret_cast<void*>(-1));
  auto ownSlot = [&](pid_t pid) {
    for (int i = 0; i < qos::kProcessSlots; ++i) {
      if (c->slots[i].pid == pid && semctl(slots, i, GETVAL) == 1) return i;
    }
    return -1;
  };
  const int mine = ownSlot(getpid());
  ASSERT_GE(mine, 0);
  ASSERT_EQ(qos_IntDb_RetrieveAccess(), 0);  // attaching again keeps the slot
  EXPECT_EQ(ownSlot(getpid()), mine);
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  for (bool child : {false, true}) {
    pid_t pid = child ? fork() : getpid();
    if (pid == 0) {
      qos_taDb_Lock();
      const qos::HolderWord held = qos::loadHolder(*c);
      qos_taDb_Unlock();
      (void)!write(fds[1], &held, sizeof held);
      _exit(qos::loadHolder(*c) == qos::kNoHolder ? 0 : 1);
    }
    qos::HolderWord held = 0;
    if (child) {
      ASSERT_EQ(read(fds[0], &held, sizeof held), static_cast<ssize_t>(sizeof held));
      int st = -1;
      waitpid(pid, &st, 0);
      EXPECT_EQ(st, 0);
    } else {
      ASSERT_EQ(qos_taDb_Lock(), 0);
      held = qos::loadHolder(*c);
      ASSERT_EQ(qos_taDb_Unlock(), 0);
    }
    const int slot = static_cast<int>(qos::holderSlotField(held)) - 1;
    ASSERT_TRUE(slot >= 0 && slot < qos::kProcessSlots) << held;
    EXPECT_EQ(slot == mine, !child);
    EXPECT_EQ(c->slots[slot].pid, pid);
    EXPECT_EQ(qos::holderLow(held), c->slots[slot].generation);
    EXPECT_EQ(semctl(slots, slot, GETVAL), child ? 0 : 1);
    EXPECT_EQ(c->slots[slot].acquiringSec, 0u);
  }
  EXPECT_EQ(qos::loadHolder(*c), qos::kNoHolder);
  EXPECT_TRUE(logs.records().empty());
  shmdt(c);
}

}  // namespace
}  // namespace qostest
