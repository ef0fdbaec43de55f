// lockholder_test.cpp - the lock's holder record: living or unknown holders
// are never freed, dead ones are freed once (by hand or by `qosdb watch`),
// foreign companions are refused, admin commands spare a running stack.
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <random>
#include <regex>
#include <sstream>
#include <string>

#include "frame/holder.h"
#include "support/fixture.h"

namespace {

using qostest::runProgram;
using Out = std::pair<int, std::string>;

Out qosdb(const std::vector<std::string>& args) {
  qostest::PeerResult r = runProgram(QOSDB_BIN, args, true);
  return {r.status, r.out};
}
int semValue() { return semctl(semget(QOS_SEM_KEY, 1, 0), 0, GETVAL); }
bool emulated() { return std::string(QOS_TEST_EXEC_PREFIX).size() > 0; }
bool pidNamespacesAllowed() {
  pid_t pid = fork();
  if (pid == 0) _exit(unshare(CLONE_NEWPID) == 0 ? 0 : 1);
  int st = -1;
  waitpid(pid, &st, 0);
  return st == 0;
}

// Waits up to timeoutMs for one byte on fd.
bool byteWithin(int fd, int timeoutMs) {
  pollfd p{fd, POLLIN, 0};
  char c;
  return poll(&p, 1, timeoutMs) == 1 && read(fd, &c, 1) == 1;
}

// A process that takes the lock (`raw`: with its own semop, writing no
// record), says so on `ready`, and gives it back when a byte comes on `go`.
struct Holder {
  pid_t pid = 0;
  int ready[2], go[2];
  explicit Holder(bool raw = false, bool otherPidNamespace = false) {
    if (pipe(ready) != 0 || pipe(go) != 0) return;
    pid = fork();
    if (pid != 0) return;
    if (otherPidNamespace && (unshare(CLONE_NEWPID) != 0 || fork() != 0)) {
      wait(nullptr);  // the holder is the new namespace's first process
      _exit(0);
    }
    sembuf take{0, -1, 0}, give{0, +1, 0};
    raw ? semop(semget(QOS_SEM_KEY, 1, 0), &take, 1) : qos_taDb_Lock();
    (void)!write(ready[1], "x", 1);
    char c;
    (void)!read(go[0], &c, 1);
    raw ? semop(semget(QOS_SEM_KEY, 1, 0), &give, 1) : qos_taDb_Unlock();
    _exit(0);
  }
  bool taken() { return byteWithin(ready[0], 10000); }
  void release() {
    (void)!write(go[1], "x", 1);
    waitpid(pid, nullptr, 0);
  }
  void killIt() {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
};

using LockHolder = qostest::StoreTest;

// Whatever a bystander does to the semaphore, a living holder (or one that
// wrote no record) is never freed by `unlock --force`; the louder flag frees
// it, and the holder's own unlock afterwards does not raise the value to 2.
TEST_F(LockHolder, LivingOrUnknownHoldersAreNeverFreedByForce) {
  if (qos::kBuiltLockMode != qos::kLockSemaphore) GTEST_SKIP() << "the semaphore lock only";
  const int semId = semget(QOS_SEM_KEY, 1, 0);
  struct Row {
    const char* name;
    bool raw, otherNs;
    void (*bystander)(int semId);
    const char* refusal;
  } rows[] = {
      {"alone", false, false, [](int) {}, "process \\d+ \\(slot \\d+, generation \\d+\\), since .*, which still runs"},
      {"wait-for-zero bystander", false, false,
       [](int id) {
         if (fork() == 0) {
           sembuf zero{0, 0, 0};
           _exit(semop(id, &zero, 1));
         }
         wait(nullptr);
       },
       "process \\d+ .*, which still runs"},
      {"SETVAL 0", false, false, [](int id) { semctl(id, 0, SETVAL, 0); }, "process \\d+ .*, which still runs"},
      {"other PID namespace", false, true, [](int) {}, "process 1 \\(slot \\d+, generation \\d+, PID namespace \\d+\\).*, which still runs"},
      {"raw semop", true, false, [](int) {}, "unknown \\(no holder record.*: a client that took the semaphore.*\\)"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    if (row.otherNs && !pidNamespacesAllowed()) continue;
    Holder holder(row.raw, row.otherNs);
    ASSERT_TRUE(holder.taken());
    row.bystander(semId);
    Out refused = qosdb({"unlock", "--force"});
    EXPECT_EQ(refused.first, 1);
    EXPECT_TRUE(std::regex_match(refused.second, std::regex(std::string("qosdb: the lock is held by ") + row.refusal +
                                                            "; refusing to free it \\(--i-know-the-holder-is-gone "
                                                            "frees it all the same\\)\n")))
        << refused.second;
    EXPECT_EQ(qosdb({"init", "--force", "--despite-attached"}).first, 1);
    EXPECT_EQ(qosdb({"destroy", "--despite-attached"}).first, 1);
    EXPECT_EQ(semValue(), 0);
    EXPECT_EQ(qosdb({"unlock", "--force", "--i-know-the-holder-is-gone"}).first, 0);
    EXPECT_EQ(semValue(), 1);
    row.raw ? holder.killIt() : holder.release();  // a raw client would give it back a second time
    EXPECT_EQ(semValue(), 1);
  }
  EXPECT_EQ(qosdb({"init", "--force"}), (Out{1, "qosdb: 1 process is attached to segment 14; refusing to create the "
                                                "store anew under it (--despite-attached overrides)\n"}));
  EXPECT_EQ(qosdb({"destroy"}).first, 1);
  EXPECT_EQ(qosdb({"init", "--force", "--despite-attached"}).first, 0);
  EXPECT_EQ(semValue(), 1);
}

// A dead holder's lock: reported, refused by lock users, freed by exactly
// one of two concurrent `unlock --force`; the value ends at 1.
TEST_F(LockHolder, ADeadHolderIsFreedOnceByConcurrentForcedUnlocks) {
  if (qos::kBuiltLockMode != qos::kLockSemaphore) GTEST_SKIP() << "the semaphore lock only";
  for (int round = 0; round < (emulated() ? 2 : 5); ++round) {
    Holder holder;
    ASSERT_TRUE(holder.taken());
    holder.killIt();
    const std::string pid = std::to_string(holder.pid);
    Out status = qosdb({"lock-status"});
    EXPECT_TRUE(std::regex_match(status.second, std::regex("semaphore 4656: value 0, taken\n"
                                                           "holder: process " + pid + " \\(slot \\d+, generation \\d+\\), "
                                                           "since \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} UTC, "
                                                           "no longer running\n"
                                                           "the lock is held by a dead process: qosdb unlock --force "
                                                           "frees it\nprocesses waiting for it: 0\n")))
        << status.second;
    EXPECT_EQ(qosdb({"show"}), (Out{1, "qosdb: the lock is held by process " + pid +
                                           ", which no longer runs; qosdb unlock --force frees it\n"}));
    pid_t freers[2];
    for (pid_t& f : freers) {
      if ((f = fork()) == 0) _exit(qosdb({"unlock", "--force"}).first);
    }
    int ok = 0;
    for (pid_t f : freers) {
      int st = -1;
      waitpid(f, &st, 0);
      ok += WIFEXITED(st) && WEXITSTATUS(st) == 0;
    }
    EXPECT_EQ(ok, 1);
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
  pid_t watch = fork();
  if (watch == 0) {
    std::vector<std::string> words = qostest::commandWords(QOSDB_BIN, {"watch", "--poll", "0.02"});
    std::vector<char*> argv;
    for (auto& w : words) argv.push_back(w.data());
    argv.push_back(nullptr);
    if (!freopen(watchLog.c_str(), "w", stdout)) _exit(3);
    execvp(argv[0], argv.data());
    _exit(127);
  }
  std::mt19937 random(12345);
  const int rounds = emulated() ? 20 : 200;
  int frozen = 0, lost = 0;
  for (int round = 0; round < rounds && frozen == 0; ++round) {
    int reports[2];
    ASSERT_EQ(pipe(reports), 0);
    pid_t worker = fork();
    if (worker == 0) {
      close(reports[0]);
      // Step k, in one locked stretch: add flow k, drop flow k - 8.
      for (uint32_t k = 1;; ++k) {
        uint32_t index = 0;
        qos_taDb_Lock();
        qos_intDb_AddSf(k, k, QOS_DIR_UPSTREAM);
        if (k > 8 && qos_intDb_FindSfById(k - 8, &index) == 0) qos_intDb_SfDb_RowReset(index);
        qos_taDb_Unlock();
        (void)!write(reports[1], &k, sizeof k);
      }
    }    close(reports[1]);
    usleep(std::uniform_int_distribution<int>(200, 3000)(random));
    kill(worker, SIGKILL);
    waitpid(worker, nullptr, 0);
    uint32_t k = 0, last = 0;
    while (read(reports[0], &k, sizeof k) == sizeof k) last = k;
    close(reports[0]);

    int got[2];
    ASSERT_EQ(pipe(got), 0);
    pid_t prober = fork();
    if (prober == 0) {
      qos_taDb_Lock();
      (void)!write(got[1], "x", 1);
      qos_taDb_Unlock();
      _exit(0);
    }
    if (!byteWithin(got[0], 3000)) {
      ++frozen;
      ADD_FAILURE() << "frozen after round " << round << ":\n" << qosdb({"lock-status"}).second;
      qosdb({"unlock", "--force", "--i-know-the-holder-is-gone"});
    }
    waitpid(prober, nullptr, 0);
    close(got[0]), close(got[1]);
    uint32_t index = 0;
    qos_taDb_Lock();
    for (uint32_t id = last > 6 ? last - 6 : 1; id <= last; ++id) lost += qos_intDb_FindSfById(id, &index) != 0;
    qos_intDb_SfDb_Reset();
    qos_taDb_Unlock();
  }
  kill(watch, SIGTERM);
  int st = -1;
  waitpid(watch, &st, 0);
  EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0);
  EXPECT_EQ(frozen, 0);
  EXPECT_EQ(lost, 0);
  std::ifstream in(watchLog);
  std::string line;
  int recovered = 0, checked = 0;
  while (std::getline(in, line)) {
    recovered += line.rfind("freed the lock of dead process ", 0) == 0;
    checked += std::regex_match(line, std::regex("freed the lock of dead process \\d+; integrity: (every invariant "
                                                 "holds|\\d+ corrupt, \\d+ suspect \\(qosdb check lists them\\))"));
  }
  unlink(watchLog.c_str());
  // The robust mutex is recovered by whichever process takes it next.
  if (qos::kBuiltLockMode == qos::kLockSemaphore) {
    EXPECT_GT(recovered, 0);
  }
  EXPECT_EQ(checked, recovered);
  RecordProperty("recoveries", recovered);
  EXPECT_EQ(semValue(), 1);
}

// A companion that is not the store's own is never trusted: init and
// attach fail with a level-0 line naming why.
TEST(LockCompanion, AForeignOrStaleCompanionIsRefused) {
  const std::string layout = "Refusing the QOS TA lock companion segment (key 4657): ";
  struct Row {
    const char* name;
    size_t size;
    int perms;
    uid_t owner;
    uint32_t magic;
    uint16_t mode;
    int slotSems;
    std::string text;
  } rows[] = {
      {"size", 100, 0660, 0, 0, 0, 0, layout + "wrong size, owner or permissions"},
      {"owner", sizeof(qos::Companion), 0660, 4242, 0, 0, 0, layout + "wrong size, owner or permissions"},
      {"open to others", sizeof(qos::Companion), 0666, 0, 0, 0, 0, layout + "wrong size, owner or permissions"},
      {"magic", sizeof(qos::Companion), 0660, 0, 0x1234, 0, 0, layout + "wrong magic"},
      {"mode", sizeof(qos::Companion), 0660, 0, qos::kCompanionMagic,
       qos::kBuiltLockMode == qos::kLockSemaphore ? qos::kLockRobustMutex : qos::kLockSemaphore, 0,
       std::string("Refusing to share the QOS internal DB: it is locked with ") +
           (qos::kBuiltLockMode == qos::kLockSemaphore ? "the robust mutex, this process with the semaphore"
                                                       : "the semaphore, this process with the robust mutex")},
      {"slot semaphores", 0, 0, 0, 0, 0, 3,
       "Refusing the QOS TA lock slot semaphores (key 4657): missing, wrong size or owner"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    if (row.owner != 0 && geteuid() != 0) continue;
    for (int key : {qos::kCompanionKey}) {
      shmctl(shmget(key, 0, 0), IPC_RMID, nullptr);
      semctl(semget(key, 0, 0), 0, IPC_RMID);
    }
    if (row.size != 0) {
      int id = shmget(qos::kCompanionKey, row.size, IPC_CREAT | row.perms);
      shmid_ds ds{};
      shmctl(id, IPC_STAT, &ds);
      ds.shm_perm.uid = row.owner ? row.owner : ds.shm_perm.uid;
      shmctl(id, IPC_SET, &ds);
      if (row.size == sizeof(qos::Companion)) {
        auto* c = static_cast<qos::Companion*>(shmat(id, nullptr, 0));
        c->header = {row.magic, qos::kCompanionVersion, row.mode, sizeof(qos::Companion), qos::kProcessSlots, {}};
        shmdt(c);
      }
    }
    if (row.slotSems != 0) semget(qos::kCompanionKey, row.slotSems, IPC_CREAT | 0660);
    qostest::LogCapture logs;
    EXPECT_EQ(qos_IntDb_Init(), -1);
    EXPECT_EQ(qos_IntDb_RetrieveAccess(), -1);
    ASSERT_EQ(logs.records().size(), 2u);
    EXPECT_EQ(logs.records()[0].level, 0);
    EXPECT_EQ(logs.records()[0].text, row.text);
  }
  shmctl(shmget(qos::kCompanionKey, 0, 0), IPC_RMID, nullptr);
  semctl(semget(qos::kCompanionKey, 0, 0), 0, IPC_RMID);
  EXPECT_EQ(qos_IntDb_Init(), 0);
}

}  // namespace
