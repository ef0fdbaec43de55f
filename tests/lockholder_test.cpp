// lockholder_test.cpp - a process of the stack killed while it holds the
// lock: the stack stands still until `qosdb unlock --force` frees the lock,
// and no row written before the crash is lost.
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "support/fixture.h"

namespace {

using qostest::runProgram;

constexpr int kFlows = 5;

// Waits up to timeoutMs for one byte on fd; true when it came.
bool byteWithin(int fd, int timeoutMs) {
  pollfd p{fd, POLLIN, 0};
  char c;
  return poll(&p, 1, timeoutMs) == 1 && read(fd, &c, 1) == 1;
}

// A child that runs `body` and then reports on its pipe; the parent's end.
template <typename Body>
int child(pid_t& pid, Body body) {
  int fds[2];
  if (pipe(fds) != 0) return -1;
  pid = fork();
  if (pid == 0) {
    close(fds[0]);
    if (qos_IntDb_RetrieveAccess() != 0) _exit(3);
    body();
    (void)!write(fds[1], "x", 1);
    pause();  // until killed (the holder) or until the body exits itself
    _exit(0);
  }
  close(fds[1]);
  return fds[0];
}

TEST(LockHolderTest, DeadHolderStopsTheStackUntilForcedUnlockAndLosesNoRow) {
  ASSERT_EQ(qos_IntDb_Init(), 0);

  // The holder: five flows, each added under the lock; then a sixth added
  // with the lock still held, when it is killed.
  pid_t holder = 0;
  int holderPipe = child(holder, [] {
    for (uint32_t i = 1; i <= kFlows; ++i) {
      qos_taDb_Lock();
      qos_intDb_AddSf(0x100 + i, i, QOS_DIR_UPSTREAM);
      qos_taDb_Unlock();
    }
    qos_taDb_Lock();
    qos_intDb_AddSf(0x200, 9, QOS_DIR_DOWNSTREAM);
  });
  ASSERT_TRUE(byteWithin(holderPipe, 60000)) << "the holder never took the lock";
  ASSERT_EQ(kill(holder, SIGKILL), 0);
  ASSERT_EQ(waitpid(holder, nullptr, 0), holder);

  // Another process of the stack now waits for the lock and does not get it.
  pid_t waiter = 0;
  int waiterPipe = child(waiter, [] {
    qos_taDb_Lock();
    qos_taDb_Unlock();
    _exit(0);  // reports through its pipe closing
  });
  pollfd p{waiterPipe, POLLIN, 0};
  EXPECT_EQ(poll(&p, 1, 1000), 0) << "a lock whose holder died was taken";

  qostest::PeerResult status = runProgram(QOSDB_BIN, {"lock-status"});
  EXPECT_EQ(status.status, 0);
  EXPECT_NE(status.out.find("last operation by process " + std::to_string(holder) + ", no longer running\n"),
            std::string::npos)
      << status.out;
  EXPECT_NE(status.out.find("the lock is held by a dead process: qosdb unlock --force frees it\n"), std::string::npos)
      << status.out;

  qostest::PeerResult unlock = runProgram(QOSDB_BIN, {"unlock", "--force"});
  EXPECT_EQ(unlock.status, 0) << unlock.out;
  int waited = 0;
  ASSERT_EQ(waitpid(waiter, &waited, 0), waiter);
  EXPECT_TRUE(WIFEXITED(waited) && WEXITSTATUS(waited) == 0);

  qos_taDb_Lock();
  uint32_t index = 0;
  for (uint32_t i = 1; i <= kFlows; ++i) {
    EXPECT_EQ(qos_intDb_FindSfById(0x100 + i, &index), 0) << "flow " << i << " lost";
  }
  EXPECT_EQ(qos_intDb_FindSfById(0x200, &index), 0) << "the flow added under the dead holder's lock is lost";
  qos_taDb_Unlock();
  EXPECT_NE(runProgram(QOSDB_BIN, {"lock-status"}).out.find(", free\n"), std::string::npos);
  close(holderPipe);
  close(waiterPipe);
}

}  // namespace
