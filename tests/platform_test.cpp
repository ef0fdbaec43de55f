// SPDX-License-Identifier: MIT
// platform_test.cpp - the host platform against strangers: segments that
// another user or program left under the region's key, event directories and
// senders that are not ours, and listeners that do not keep up.
#include <sched.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "support/fixture.h"

namespace qostest {
namespace {

constexpr uid_t kStranger = 65534;
constexpr uint8_t kPattern = 0x5A;
using Logged = std::vector<std::tuple<int, std::string, std::string>>;

// Runs fn in a forked child; its exit status (0: everything as expected).
int inChild(const std::function<int()>& fn) {
  pid_t pid = fork();
  if (pid == 0) _exit(fn());
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

Logged logged(const LogCapture& logs) {
  Logged out;
  for (const auto& r : logs.records()) out.emplace_back(r.level, r.function, r.text);
  return out;
}

bool allPattern(int shmid, std::size_t size) {
  auto* p = static_cast<uint8_t*>(shmat(shmid, nullptr, 0));
  bool same = true;
  for (std::size_t i = 0; i < size; ++i) same = same && p[i] == kPattern;
  shmdt(p);
  return same;
}

// A segment 14 that is not the stack's: neither attach nor create hands it
// out, each says why at level 0, and not a byte of it changes.
TEST(HostShm, SegmentsOfStrangersAreRefusedUntouched) {
  struct Case { uid_t creator; std::size_t size; int mode; uid_t owner; const char* why; };
  const Case cases[] = {
      {0, 4096, 0600, 0, "segment 14 holds 4096 bytes, not 85032: refused"},
      {kStranger, QOS_REGION_SIZE, 0666, kStranger,
       "segment 14 belongs to uid 65534 (created by uid 65534), not to uid 0 or root: refused"},
      {kStranger, QOS_REGION_SIZE, 0660, 0, "segment 14 belongs to uid 0 (created by uid 65534), not to uid 0 or root: refused"},
      {0, QOS_REGION_SIZE, 0660, kStranger, "segment 14 belongs to uid 65534 (created by uid 0), not to uid 0 or root: refused"},
      {0, QOS_REGION_SIZE, 0604, 0, "segment 14 has mode 0604, open to other users: refused"},
  };
  for (const Case& c : cases) {
    auto make = [&c] {
      int id = shmget(QOS_REGION_SEGMENT_ID, c.size, IPC_CREAT | IPC_EXCL | c.mode);
      shmid_ds ds{};
      if (id == -1 || shmctl(id, IPC_STAT, &ds) != 0) return 1;
      ds.shm_perm.uid = c.owner;
      return shmctl(id, IPC_SET, &ds) == 0 ? 0 : 2;
    };
    ASSERT_EQ(c.creator == 0 ? make() : inChild([&] { return setuid(c.creator) == 0 ? make() : 3; }), 0) << c.why;
    int id = shmget(QOS_REGION_SEGMENT_ID, 0, 0);
    auto* p = static_cast<uint8_t*>(shmat(id, nullptr, 0));
    std::memset(p, kPattern, c.size);
    shmdt(p);
    LogCapture logs;
    EXPECT_EQ(qos_IntDb_RetrieveAccess(), -1) << c.why;
    EXPECT_EQ(qos_IntDb_Init(), -1) << c.why;
    EXPECT_EQ(logged(logs), (Logged{{0, "shm_get", c.why},
                                    {0, "shm_create", c.why},
                                    {1, "qos_IntDb_Init", "******* QOS internal DB create failure *********"}}));
    EXPECT_EQ(dbcTaDb, nullptr);
    EXPECT_EQ(qos_IntDb_Reset(), -1) << c.why;  // nothing half attached
    EXPECT_TRUE(allPattern(id, c.size)) << c.why;
    shmctl(id, IPC_RMID, nullptr);
  }
  // The stack's own segment: made by this user, closed to others.
  ASSERT_EQ(qos_IntDb_Init(), 0);
  shmid_ds ds{};
  ASSERT_EQ(shmctl(shmget(QOS_REGION_SEGMENT_ID, 0, 0), IPC_STAT, &ds), 0);
  EXPECT_EQ(std::make_tuple(ds.shm_segsz, ds.shm_perm.mode & 0777u, ds.shm_perm.cuid),
            std::make_tuple(std::size_t{QOS_REGION_SIZE}, 0660u, geteuid()));
}

// ---- Events ------------------------------------------------------------------------------------

constexpr uint32_t kDest = 77;

class HostEvents : public ::testing::Test {
 protected:
  void SetUp() override {
    char base[] = "/tmp/qosdb-platform-XXXXXX";
    ASSERT_NE(mkdtemp(base), nullptr);
    base_ = base;
    dir_ = base_ + "/qosintdb-ev-" + std::to_string(geteuid());
    setenv("QOSDB_EVENT_DIR", base, 1);
  }
  void TearDown() override {
    unsetenv("QOSDB_EVENT_DIR");
    std::system(("rm -rf " + base_).c_str());
  }
  static int send(uint32_t event) {
    uint32_t payload = event + 1;
    return EV_GenEvent(kDest, event, &payload, sizeof payload);
  }
  // 1 and the event number of the next event within timeoutMs; 0 and 0 when none came.
  static std::pair<int, uint32_t> next(int fd, int timeoutMs = 0) {
    uint32_t event = 0, payload = 0, length = sizeof payload;
    int rc = qos_host_event_receive(fd, timeoutMs, &event, &payload, &length);
    return {rc, rc == 1 && payload == event + 1 && length == sizeof payload ? event : 0};
  }
  std::string base_;
  std::string dir_;
};

// A directory that is not this user's private one is never used: nobody
// listens there, nothing is sent there.
TEST_F(HostEvents, OnlyAPrivateDirectoryOfThisUserIsUsed) {
  const std::function<void(const std::string&)> cases[] = {
      [](const std::string& d) { mkdir(d.c_str(), 0777), chmod(d.c_str(), 0777); },
      [](const std::string& d) { mkdir(d.c_str(), 0750); },
      [](const std::string& d) { mkdir(d.c_str(), 0700), chown(d.c_str(), kStranger, kStranger); },
      [this](const std::string& d) { mkdir((base_ + "/real").c_str(), 0700), symlink((base_ + "/real").c_str(), d.c_str()); },
  };
  for (const auto& makeDir : cases) {
    makeDir(dir_);
    uint32_t dropped = qos_host_events_dropped();
    errno = 0;
    EXPECT_EQ((std::pair<int, int>{qos_host_event_listen(kDest), errno}), std::make_pair(-1, EPERM));
    EXPECT_EQ((std::pair<int, uint32_t>{send(1), qos_host_events_dropped()}), std::make_pair(-1, dropped + 1));
    std::system(("rm -rf " + dir_ + " " + base_ + "/real").c_str());
  }
}

// Who reaches a listener: this user's processes in its IPC namespace only.
TEST_F(HostEvents, AListenerHearsThisUserInThisNamespaceOnly) {
  int fd = qos_host_event_listen(kDest);
  ASSERT_GE(fd, 0);
  sockaddr_un addr{};
  socklen_t len = sizeof addr;
  ASSERT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len), 0);
  struct stat d{}, s{};  // the listener made its directory and socket private
  ASSERT_EQ(stat(dir_.c_str(), &d) | stat(addr.sun_path, &s), 0);
  EXPECT_EQ(std::make_tuple(d.st_mode & 0777u, d.st_uid, s.st_mode & 0777u), std::make_tuple(0700u, geteuid(), 0600u));
  struct Case { const char* what; std::function<int()> child; uint32_t ignored; };
  const Case cases[] = {
      {"another user cannot enter the directory",
       [&] {
         int s = socket(AF_UNIX, SOCK_DGRAM, 0);
         uint32_t d[3] = {2, 4, 3};
         return setuid(kStranger) == 0 && sendto(s, d, sizeof d, 0, reinterpret_cast<sockaddr*>(&addr), len) == -1 &&
                        errno == EACCES
                    ? 0
                    : 1;
       },
       0},
      {"a process of another real user that got in is ignored",
       [] { return setresuid(kStranger, 0, 0) == 0 && send(3) == 0 ? 0 : 1; }, 1},
      {"another IPC namespace has no listener", [] { return unshare(CLONE_NEWIPC) == 0 && send(4) != 0 ? 0 : 1; }, 0},
  };
  for (const Case& c : cases) {
    uint32_t ignored = qos_host_events_ignored();
    EXPECT_EQ(inChild(c.child), 0) << c.what;
    EXPECT_EQ(next(fd), std::make_pair(0, 0u)) << c.what;
    EXPECT_EQ(qos_host_events_ignored(), ignored + c.ignored) << c.what;
  }
  EXPECT_EQ(inChild([] { return send(5); }), 0);  // a process of this user
  EXPECT_EQ(next(fd), std::make_pair(1, 5u));
  EXPECT_EQ(qos_host_event_listen(kDest), -1);
  EXPECT_EQ(errno, EADDRINUSE);
  close(fd);  // gone without removing its socket: the next listener takes the name over
  fd = qos_host_event_listen(kDest);
  EXPECT_GE(fd, 0);
  qos_host_event_close(fd);
}

// A listener that is full or gone never holds the sender up: the event is
// dropped at once and counted, and the next one goes through once there is room.
TEST_F(HostEvents, AFullOrAbsentListenerCostsTheSenderADroppedEventNotAWait) {
  int fd = qos_host_event_listen(kDest);
  ASSERT_GE(fd, 0);
  alarm(20);  // a sender that waited would end the test here
  uint32_t queued = 0;
  while (queued < 10000 && send(queued + 100) == 0) ++queued;
  uint32_t dropped = qos_host_events_dropped();
  EXPECT_EQ((std::vector<int>{send(1), send(2), send(3)}), (std::vector<int>{-1, -1, -1}));
  EXPECT_EQ(qos_host_events_dropped(), dropped + 3);
  EXPECT_EQ(next(fd), std::make_pair(1, 100u));  // the oldest is still first
  EXPECT_EQ(send(6), 0);
  for (uint32_t i = 1; i < queued; ++i) ASSERT_EQ(next(fd), std::make_pair(1, 100 + i));
  EXPECT_EQ(next(fd), std::make_pair(1, 6u));
  sockaddr_un addr{};
  socklen_t len = sizeof addr;
  getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
  EXPECT_EQ(qos_host_event_close(fd), 0);
  EXPECT_NE(access(addr.sun_path, F_OK), 0);  // the socket went with it
  EXPECT_EQ((std::pair<int, uint32_t>{send(7), qos_host_events_dropped()}), std::make_pair(-1, dropped + 4));
  alarm(0);
  EXPECT_GT(queued, 0u);
}

}  // namespace
}  // namespace qostest
