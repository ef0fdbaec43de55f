// SPDX-License-Identifier: MIT
// lockholder_test.cpp - the lock and its holder record: waiters sleep and
// lose no update, living or unknown holders are never freed, dead ones are
// freed once (by hand or by `qosdb watch`), foreign companions are refused,
// admin commands spare a running stack.
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
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
// Runs qosdb and checks its exit status and output (a regular expression).
void expectRun(const std::vector<std::string>& args, int status, const std::string& output) {
  const Out out = qosdb(args);
  EXPECT_TRUE(out.first == status && std::regex_match(out.second, std::regex(output))) << out.first << " " << out.second;
}
int semId() { return semget(QOS_SEM_KEY, 1, 0); }
int semValue() { return semctl(semId(), 0, GETVAL); }
const bool emulated = QOS_TEST_EXEC_PREFIX[0] != '\0', sem = qos::kBuiltLockMode == qos::kLockSemaphore;
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
    raw ? semop(semId(), &take, 1) : qos_taDb_Lock();
    (void)!write(ready[1], "x", 1);
    (void)!read(go[0], &take, 1);  // waits for the word (into `take`, done with)
    raw ? semop(semId(), &give, 1) : qos_taDb_Unlock();
    _exit(0);
  }
  bool taken() { pollfd p{ready[0], POLLIN, 0}; return poll(&p, 1, 10000) == 1; }
  void end(bool kill) {
    kill ? (void)::kill(pid, SIGKILL) : (void)!write(go[1], "x", 1);
    waitpid(pid, nullptr, 0);
  }
};

using Lock = qostest::StoreTest;

// While this process holds the lock, four processes that want it sleep in the
// kernel (after a spell of retries), changing nothing; given back, the lock
// serves them in turn (5000 locked read-yield-write cycles each), no update is
// lost and the lock ends free.
TEST_F(Lock, WaitersSleepWhileItIsHeldAndLoseNoUpdateOnceItIsFree) {
  uint32_t row = 0, total = 1;
  ASSERT_EQ(qos_TaDb_AddNewTa(0, QOS_TA_DSA, 0, 0, nullptr, &row), 0);
  ASSERT_EQ(qos_taDb_Lock(), 0);
  pid_t pids[4];
  for (pid_t& pid : pids) pid = spawn([row] { return qostest::runPeer({"increment", "5000", std::to_string(row)}).status; });
  // The robust mutex counts no waiters: the peers get a tenth of a second to block.
  for (int i = 0; i < (sem ? 10000 : 1) && !(sem && semctl(semId(), 0, GETNCNT) == 4); ++i) usleep(sem ? 1000 : 100000);
  EXPECT_EQ(sem ? semctl(semId(), 0, GETNCNT) : 4, 4);
  EXPECT_TRUE(qos_TaDb_GetTaSubtype(row, &total) == 0 && total == 0) << total;
  ASSERT_EQ(qos_taDb_Unlock(), 0);
  for (pid_t pid : pids) EXPECT_EQ(exitOf(pid), 0);
  EXPECT_TRUE(qos_TaDb_GetTaSubtype(row, &total) == 0 && total == 20000) << total;
  EXPECT_EQ(semValue(), 1);
  EXPECT_TRUE(logs.records().empty());
}

// Whatever a bystander does to the semaphore, a living holder (or one that
// wrote no record) is never freed by `unlock --force`, nor is the store made
// anew or removed under it; the louder flag frees it, and the holder's own
// unlock afterwards does not raise the value to 2. Rows: a raw holder, one in
// another PID namespace, the bystander (0 none, 1 waits for zero, 2 SETVAL 0).
TEST_F(Lock, LivingOrUnknownHoldersAreNeverFreedByForce) {
  if (!sem) GTEST_SKIP() << "the semaphore lock only";
  const bool nsAllowed = exitOf(spawn([] { return unshare(CLONE_NEWPID); })) == 0;
  const std::string living = "process \\d+ \\(slot \\d+, generation \\d+\\), since .*, which still runs";
  const std::tuple<bool, bool, int, std::string> rows[] = {
      {false, false, 0, living},
      {false, false, 1, living},
      {false, false, 2, living},
      {false, true, 0, "process 1 \\(slot \\d+, generation \\d+, PID namespace \\d+\\).*, which still runs"},
      {true, false, 0, "unknown \\(no holder record.*: a client that took the semaphore.*\\)"},
  };
  for (const auto& [raw, otherNs, bystander, refusal] : rows) {
    SCOPED_TRACE(refusal + std::to_string(bystander));
    if (otherNs && !nsAllowed) continue;
    Holder holder(raw, otherNs);
    ASSERT_TRUE(holder.taken());
    // A bystander waiting for zero, or one setting the value to 0.
    if (bystander == 1) exitOf(spawn([] { return semop(semId(), std::array<sembuf, 1>{}.data(), 1); }));
    if (bystander == 2) semctl(semId(), 0, SETVAL, 0);
    expectRun({"unlock", "--force"}, 1,
              "qosdb: the lock is held by " + refusal + R"(; refusing to free it \(--i-know-the-holder-is-gone frees it all the same\)\n)");
    EXPECT_EQ(qosdb({"init", "--force", "--despite-attached"}).first, 1);
    EXPECT_EQ(qosdb({"destroy", "--despite-attached"}).first, 1);
    EXPECT_EQ(semValue(), 0);
    EXPECT_EQ(qosdb({"unlock", "--force", "--i-know-the-holder-is-gone"}).first, 0);
    EXPECT_EQ(semValue(), 1);
    holder.end(raw);  // a raw client would give it back a second time
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
TEST_F(Lock, ADeadHolderIsReportedAndFreedOnceByConcurrentForcedUnlocks) {
  const std::string taken = sem ? "semaphore 4656: value 0, taken\n" : "robust mutex: taken\n",
                    waiting = "processes waiting for it: 0\n";
  for (int round = 0; round < (emulated ? 2 : 5); ++round) {
    Holder holder;
    ASSERT_TRUE(holder.taken());
    const std::string pid = std::to_string(holder.pid), named = taken + "holder: process " + pid +
        " \\(slot \\d+, generation \\d+\\), since \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} UTC, ";
    for (const char* state : {"running\n", "no longer running\nthe lock is held by a dead process: qosdb "
                                           "unlock --force frees it\n"}) {
      expectRun({"lock-status"}, 0, named + state + waiting);
      if (state[0] == 'r') holder.end(true);
    }
    EXPECT_EQ(qosdb({"show"}), (Out{1, "qosdb: the lock is held by process " + pid +
                                           ", which no longer runs; qosdb unlock --force frees it\n"}));
    const pid_t a = spawn([] { return qosdb({"unlock", "--force"}).first; });
    const pid_t b = spawn([] { return qosdb({"unlock", "--force"}).first; });
    EXPECT_EQ((exitOf(a) == 0) + (exitOf(b) == 0), 1);
    expectRun({"lock-status"}, 0, (sem ? "semaphore 4656: value 1, free\n" : "robust mutex: free\n") + ("holder: none\n" + waiting));
  }
}

// The fault matrix: a process running flow lifecycles is SIGKILLed at a
// random moment, again and again, with `qosdb watch` running. Every time
// the stack goes on (a fresh process gets the lock), no completed row is
// lost, and every recovery the watch made was checked (a kill in the middle
// of a locked stretch may leave a half-written row, which the check names).
TEST_F(Lock, WatchRecoversHoldersKilledAtRandomAndLosesNoRow) {
  const std::string watchLog = "/tmp/lockholder_watch_" + std::to_string(getpid());
  std::string command = "exec";
  for (const std::string& w : qostest::commandWords(QOSDB_BIN, {"watch", "--poll", "0.02"})) command += " " + w;
  const pid_t watch = spawn([&] { return execl("/bin/sh", "sh", "-c", (command + " >" + watchLog).c_str(), nullptr); });
  // The worker counts the steps it completed here; step k, in one locked
  // stretch, adds flow k and drops flow k - 8.
  auto* done = static_cast<volatile uint32_t*>(mmap(nullptr, 4, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  std::mt19937 random(12345);
  uint32_t lost = 0, index = 0;
  for (int round = 0; round < (emulated ? 20 : 200); ++round) {
    *done = 0;
    const pid_t worker = spawn([&] {
      for (uint32_t k = 1;; *done = k++) {
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
    int ms = 0;
    while (waitpid(prober, nullptr, WNOHANG) == 0 && ++ms < 3000) usleep(1000);
    if (ms == 3000) {  // the stack froze: say how, and leave nothing running
      kill(prober, SIGKILL), kill(watch, SIGTERM);
      FAIL() << "frozen after round " << round << ":\n" << qosdb({"lock-status"}).second;
    }
    qos_taDb_Lock();
    for (uint32_t id = *done > 6 ? *done - 6 : 1; id <= *done; ++id) lost += qos_intDb_FindSfById(id, &index) != 0;
    qos_intDb_SfDb_Reset();
    qos_taDb_Unlock();
  }
  kill(watch, SIGTERM);
  EXPECT_EQ(exitOf(watch), 0);
  EXPECT_EQ(lost, 0u);
  // Between its first and last line the watch logs each recovery with the
  // check it made; the robust mutex is recovered by whichever process takes it next.
  std::ifstream in(watchLog);
  int lines = 0, checked = 0;
  for (std::string line; std::getline(in, line); ++lines) {
    checked += std::regex_match(line, std::regex(R"(freed the lock of dead process \d+; integrity: (every invariant holds|\d+ corrupt, \d+ suspect \(qosdb check lists them\)))"));
  }
  unlink(watchLog.c_str());
  EXPECT_EQ(checked, lines - 2);
  EXPECT_GT(checked, sem ? 0 : -1);
  EXPECT_EQ(semValue(), 1);
}

// A companion that is not the store's own is never trusted: init and attach
// fail with a level-0 line naming why. Rows: segment size (0: none, but too
// few slot semaphores), permissions, owner, magic, lock mode, the line.
TEST(LockCompanion, AForeignOrStaleCompanionIsRefused) {
  const std::string refuse = "Refusing the QOS TA lock companion segment (key 4657): ",
                    shape = refuse + "wrong size, owner or permissions";
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
    if (shmid_ds ds{}; owner && shmctl(id, IPC_STAT, &ds) == 0) ds.shm_perm.uid = owner, shmctl(id, IPC_SET, &ds);
    if (size == full) {
      auto* c = static_cast<qos::Companion*>(shmat(id, nullptr, 0));
      c->header = {magic, qos::kCompanionVersion, mode, sizeof(qos::Companion), qos::kProcessSlots, {}};
      shmdt(c);
    }
    qostest::LogCapture logs;
    EXPECT_EQ(qos_IntDb_Init(), -1);
    EXPECT_EQ(qos_IntDb_RetrieveAccess(), -1);
    ASSERT_EQ(logs.records().size(), 2u);
    EXPECT_EQ(std::make_pair(logs.records()[0].level, logs.records()[0].text), std::make_pair(0, text));
  }
  dropCompanion();
  EXPECT_EQ(qos_IntDb_Init(), 0);
}

}  // namespace
