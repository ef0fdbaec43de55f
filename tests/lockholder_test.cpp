// lockholder_test.cpp - the lock's holder record: living or unknown holders
// are never freed, dead ones are freed once (by hand or by `qosdb watch`),
// foreign companions are refused, admin commands spare a running stack.
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <random>
#include <regex>
#include <tuple>

#include "frame/holder.h"
#include "support/fixture.h"

namespace {

using Out = std::pair<int, std::string>;
Out qosdb(const std::vector<std::string>& args) {
  qostest::PeerResult r = qostest::runProgram(QOSDB_BIN, args, true);
  return {r.status, r.out};
}
int semValue() { return semctl(semget(QOS_SEM_KEY, 1, 0), 0, GETVAL); }
bool emulated() { return std::string(QOS_TEST_EXEC_PREFIX).size() > 0; }
template <typename F>
pid_t spawn(F body) {  // runs body() in a child that exits with its result
  const pid_t pid = fork();
  if (pid == 0) _exit(body());
  return pid;
}
int exitOf(pid_t pid) {
  int st = -1;
  return waitpid(pid, &st, 0) == pid && WIFEXITED(st) ? WEXITSTATUS(st) : -1;
}
bool byteWithin(int fd, int timeoutMs) {
  pollfd p{fd, POLLIN, 0};
  char c;
  return poll(&p, 1, timeoutMs) == 1 && read(fd, &c, 1) == 1;
}

// A process that takes the lock (`raw`: with its own semop, writing no
// record; `otherNs`: as first process of a new PID namespace), says so, and
// gives it back when told.
struct Holder {
  pid_t pid = 0;
  int ready[2], go[2];
  explicit Holder(bool raw = false, bool otherNs = false) {
    if (pipe(ready) != 0 || pipe(go) != 0 || (pid = fork()) != 0) return;
    if (otherNs && (unshare(CLONE_NEWPID) != 0 || fork() != 0)) _exit(wait(nullptr) < 0);
    sembuf take{0, -1, 0}, give{0, +1, 0};
    raw ? semop(semget(QOS_SEM_KEY, 1, 0), &take, 1) : qos_taDb_Lock();
    (void)!write(ready[1], "x", 1);
    (void)!byteWithin(go[0], -1);
    raw ? semop(semget(QOS_SEM_KEY, 1, 0), &give, 1) : qos_taDb_Unlock();
    _exit(0);
  }
  bool taken() { return byteWithin(ready[0], 10000); }
  void end(bool kill) {
    kill ? (void)::kill(pid, SIGKILL) : (void)!write(go[1], "x", 1);
    waitpid(pid, nullptr, 0);
  }
};

using LockHolder = qostest::StoreTest;

// Whatever a bystander does to the semaphore, a living holder (or one that
// wrote no record) is never freed by `unlock --force`, nor is the store made
// anew or removed under it; the louder flag frees it, and the holder's own
// unlock afterwards does not raise the value to 2.
TEST_F(LockHolder, LivingOrUnknownHoldersAreNeverFreedByForce) {
  if (qos::kBuiltLockMode != qos::kLockSemaphore) GTEST_SKIP() << "the semaphore lock only";
  const bool nsAllowed = exitOf(spawn([] { return unshare(CLONE_NEWPID); })) == 0;
  const std::string living = "process \\d+ \\(slot \\d+, generation \\d+\\), since .*, which still runs";
  const struct {
    bool raw, otherNs;
    int bystander;  // 0 none, 1 waits for zero, 2 SETVAL 0
    std::string refusal;
  } rows[] = {
      {false, false, 0, living},
      {false, false, 1, living},
      {false, false, 2, living},
      {false, true, 0, "process 1 \\(slot \\d+, generation \\d+, PID namespace \\d+\\).*, which still runs"},
      {true, false, 0, "unknown \\(no holder record.*: a client that took the semaphore.*\\)"},
  };
  const int semId = semget(QOS_SEM_KEY, 1, 0);
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    if (row.otherNs && !nsAllowed) continue;
    Holder holder(row.raw, row.otherNs);
    ASSERT_TRUE(holder.taken());
    sembuf zero{0, 0, 0};
    if (row.bystander == 1) exitOf(spawn([&] { return semop(semId, &zero, 1); }));
    if (row.bystander == 2) semctl(semId, 0, SETVAL, 0);
    Out refused = qosdb({"unlock", "--force"});
    EXPECT_EQ(refused.first, 1);
    EXPECT_TRUE(std::regex_match(refused.second, std::regex("qosdb: the lock is held by " + row.refusal +
                                                            "; refusing to free it \\(--i-know-the-holder-is-gone "
                                                            "frees it all the same\\)\n")))
        << refused.second;
    EXPECT_EQ(qosdb({"init", "--force", "--despite-attached"}).first, 1);
    EXPECT_EQ(qosdb({"destroy", "--despite-attached"}).first, 1);
    EXPECT_EQ(semValue(), 0);
    EXPECT_EQ(qosdb({"unlock", "--force", "--i-know-the-holder-is-gone"}).first, 0);
    EXPECT_EQ(semValue(), 1);
    holder.end(row.raw);  // a raw client would give it back a second time
    EXPECT_EQ(semValue(), 1);
  }
  EXPECT_EQ(qosdb({"init", "--force"}), (Out{1, "qosdb: 1 process is attached to segment 14; refusing to create the "
                                                "store anew under it (--despite-attached overrides)\n"}));
  EXPECT_EQ(qosdb({"destroy"}).first, 1);
  EXPECT_EQ(qosdb({"init", "--force", "--despite-attached"}).first, 0);
  EXPECT_EQ(semValue(), 1);
}

// The status names a living holder by process, slot and generation; once
// it dies, the status and lock users say so, exactly one of two concurrent
// `unlock --force` frees it, and the status names nobody.
TEST_F(LockHolder, ADeadHolderIsReportedAndFreedOnceByConcurrentForcedUnlocks) {
  const bool sem = qos::kBuiltLockMode == qos::kLockSemaphore;
  const std::string taken = sem ? "semaphore 4656: value 0, taken\n" : "robust mutex: taken\n";
  for (int round = 0; round < (emulated() ? 2 : 5); ++round) {
    Holder holder;
    ASSERT_TRUE(holder.taken());
    const std::string pid = std::to_string(holder.pid), named = taken + "holder: process " + pid +
        " \\(slot \\d+, generation \\d+\\), since \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} UTC, ";
    const std::string waiting = "processes waiting for it: 0\n";
    for (const char* state : {"running\n", "no longer running\nthe lock is held by a dead process: qosdb "
                                                  "unlock --force frees it\n"}) {
      Out status = qosdb({"lock-status"});
      EXPECT_TRUE(std::regex_match(status.second, std::regex(named + state + waiting))) << status.second;
      if (state[0] == 'r') holder.end(true);
    }
    EXPECT_EQ(qosdb({"show"}), (Out{1, "qosdb: the lock is held by process " + pid +
                                           ", which no longer runs; qosdb unlock --force frees it\n"}));
    const pid_t a = spawn([] { return qosdb({"unlock", "--force"}).first; });
    const pid_t b = spawn([] { return qosdb({"unlock", "--force"}).first; });
    EXPECT_EQ((exitOf(a) == 0) + (exitOf(b) == 0), 1);
    EXPECT_EQ(qosdb({"lock-status"}).second,
              (sem ? "semaphore 4656: value 1, free\n" : "robust mutex: free\n") + std::string("holder: none\n") + waiting);
    EXPECT_EQ(semValue(), 1);
  }
}

// The fault matrix: a process running flow lifecycles is SIGKILLed at a
// random moment, again and again, with `qosdb watch` running. Every time
// the stack goes on (a fresh process gets the lock), no completed row is
// lost, and every recovery the watch made was checked (a kill in the middle
// of a locked stretch may leave a half-written row, which the check names).
TEST_F(LockHolder, WatchRecoversHoldersKilledAtRandomAndLosesNoRow) {
  const std::string watchLog = "/tmp/lockholder_watch_" + std::to_string(getpid());
  std::string command = "exec";
  for (const std::string& w : qostest::commandWords(QOSDB_BIN, {"watch", "--poll", "0.02"})) command += " " + w;
  command += " >" + watchLog;
  const pid_t watch = spawn([&] { return execl("/bin/sh", "sh", "-c", command.c_str(), nullptr); });
  // The worker counts the steps it completed here; step k, in one locked
  // stretch, adds flow k and drops flow k - 8.
  auto* done = static_cast<volatile uint32_t*>(mmap(nullptr, 4, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  std::mt19937 random(12345);
  int frozen = 0, lost = 0;
  for (int round = 0; round < (emulated() ? 20 : 200) && frozen == 0; ++round) {
    *done = 0;
    const pid_t worker = spawn([&] {
      for (uint32_t k = 1, index = 0;; *done = k++) {
        qos_taDb_Lock();
        qos_intDb_AddSf(k, k, QOS_DIR_UPSTREAM);
        if (k > 8 && qos_intDb_FindSfById(k - 8, &index) == 0) qos_intDb_SfDb_RowReset(index);
        qos_taDb_Unlock();
      }
      return 0;
    });
    usleep(std::uniform_int_distribution<int>(200, 3000)(random));
    kill(worker, SIGKILL);
    waitpid(worker, nullptr, 0);
    const pid_t prober = spawn([] { return qos_taDb_Lock() | qos_taDb_Unlock(); });
    for (int ms = 0; waitpid(prober, nullptr, WNOHANG) == 0; usleep(1000)) {
      if (++ms == 3000) {
        ++frozen;
        ADD_FAILURE() << "frozen after round " << round << ":\n" << qosdb({"lock-status"}).second;
        qosdb({"unlock", "--force", "--i-know-the-holder-is-gone"});
      }
    }
    uint32_t index = 0;
    qos_taDb_Lock();
    for (uint32_t id = *done > 6 ? *done - 6 : 1; id <= *done; ++id) lost += qos_intDb_FindSfById(id, &index) != 0;
    qos_intDb_SfDb_Reset();
    qos_taDb_Unlock();
  }
  kill(watch, SIGTERM);
  EXPECT_EQ(exitOf(watch), 0);
  EXPECT_EQ(frozen, 0);
  EXPECT_EQ(lost, 0);
  std::ifstream in(watchLog);
  int recovered = 0, checked = 0;
  for (std::string line; std::getline(in, line);) {
    recovered += line.rfind("freed the lock of dead process ", 0) == 0;
    checked += std::regex_match(line, std::regex("freed the lock of dead process \\d+; integrity: (every invariant "
                                                 "holds|\\d+ corrupt, \\d+ suspect \\(qosdb check lists them\\))"));
  }
  unlink(watchLog.c_str());
  // The robust mutex is recovered by whichever process takes it next.
  EXPECT_GT(recovered, qos::kBuiltLockMode == qos::kLockSemaphore ? 0 : -1);
  EXPECT_EQ(checked, recovered);
  RecordProperty("recoveries", recovered);
  EXPECT_EQ(semValue(), 1);
}

// A companion that is not the store's own is never trusted: init and attach
// fail with a level-0 line naming why. Rows: segment size (0: none, but too
// few slot semaphores), permissions, owner, magic, lock mode, the line.
TEST(LockCompanion, AForeignOrStaleCompanionIsRefused) {
  const std::string refuse = "Refusing the QOS TA lock companion segment (key 4657): ",
                    shape = refuse + "wrong size, owner or permissions";
  const bool sem = qos::kBuiltLockMode == qos::kLockSemaphore;
  const size_t full = sizeof(qos::Companion);
  const std::tuple<size_t, int, uid_t, uint32_t, uint16_t, std::string> rows[] = {
      {100, 0660, 0, 0, 0, shape},
      {full, 0660, 4242, 0, 0, shape},
      {full, 0666, 0, 0, 0, shape},
      {full, 0660, 0, 0x1234, 0, refuse + "wrong magic"},
      {full, 0660, 0, qos::kCompanionMagic, sem ? qos::kLockRobustMutex : qos::kLockSemaphore,
       std::string("Refusing to share the QOS internal DB: it is locked with ") +
           (sem ? "the robust mutex, this process with the semaphore" : "the semaphore, this process with the robust mutex")},
      {0, 0, 0, 0, 0, "Refusing the QOS TA lock slot semaphores (key 4657): missing, wrong size or owner"},
  };
  auto dropCompanion = [] {
    shmctl(shmget(qos::kCompanionKey, 0, 0), IPC_RMID, nullptr);
    semctl(semget(qos::kCompanionKey, 0, 0), 0, IPC_RMID);
  };
  for (const auto& [size, perms, owner, magic, mode, text] : rows) {
    SCOPED_TRACE(text);
    if (owner != 0 && geteuid() != 0) continue;
    dropCompanion();
    const int id = size ? shmget(qos::kCompanionKey, size, IPC_CREAT | perms) : semget(qos::kCompanionKey, 3, IPC_CREAT | 0660);
    shmid_ds ds{};
    if (owner && shmctl(id, IPC_STAT, &ds) == 0) ds.shm_perm.uid = owner, shmctl(id, IPC_SET, &ds);
    if (size == full) {
      auto* c = static_cast<qos::Companion*>(shmat(id, nullptr, 0));
      c->header = {magic, qos::kCompanionVersion, mode, sizeof(qos::Companion), qos::kProcessSlots, {}};
      shmdt(c);
    }
    qostest::LogCapture logs;
    EXPECT_EQ(qos_IntDb_Init(), -1);
    EXPECT_EQ(qos_IntDb_RetrieveAccess(), -1);
    ASSERT_EQ(logs.records().size(), 2u);
    EXPECT_EQ(logs.records()[0].level, 0);
    EXPECT_EQ(logs.records()[0].text, text);
  }
  dropCompanion();
  EXPECT_EQ(qos_IntDb_Init(), 0);
}

}  // namespace
