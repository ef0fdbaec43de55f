// SPDX-License-Identifier: MIT
// holder.cpp - the lock's companion: attaching to it, claiming a slot.
//
// The companion is created by whichever of qos_IntDb_Init and
// qos_IntDb_RetrieveAccess comes first (IPC_CREAT | IPC_EXCL); everyone
// else checks it before trusting a word of it: its exact size, its owner
// (the caller's uid or root), no access for others, then its magic, layout
// version and lock mode. The creator stores the magic last, so a process
// that attaches while the companion is being set up waits a little for it.
#include <fcntl.h>
#include <pthread.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "frame/log.h"
#include "qosintdb.h"

namespace qos {
namespace {

constexpr int kCompanionPermissions = 0660;
constexpr int kSetupWaitMs = 200;

// Whether a System V object belongs to this user (or to root) and is closed
// to others.
bool trustedOwner(uid_t uid, unsigned mode) {
  return (uid == geteuid() || uid == 0) && (mode & 0007) == 0;
}

// The start time of this process (field 22 of /proc/self/stat); 0 when
// unknown.
uint64_t ownStartTime() {
  char buf[512];
  int fd = open("/proc/self/stat", O_RDONLY | O_CLOEXEC);
  if (fd == -1) return 0;
  ssize_t n = read(fd, buf, sizeof buf - 1);
  close(fd);
  if (n <= 0) return 0;
  buf[n] = '\0';
  const char* p = strrchr(buf, ')');
  for (int field = 2; p != nullptr && field < 22; ++field) p = strchr(p + 1, ' ');
  if (p == nullptr) return 0;
  uint64_t v = 0;
  for (++p; *p >= '0' && *p <= '9'; ++p) v = v * 10 + static_cast<uint64_t>(*p - '0');
  return v;
}

uint64_t ownPidNamespace() {
  struct stat st;
  return stat("/proc/self/ns/pid", &st) == 0 ? static_cast<uint64_t>(st.st_ino) : 0;
}

// A forked child does not inherit the parent's slot (SEM_UNDO adjustments
// are not inherited): it claims its own when it first locks or attaches.
void forgetSlotInChild() {
  local.slot = nullptr;
  local.slotClaimed = false;
  local.slotPid = static_cast<int>(getpid());
  local.holder = slotlessHolderWord(static_cast<uint32_t>(local.slotPid));
}

void setUp(Companion& c) {
  c.header.version = kCompanionVersion;
  c.header.mode = kBuiltLockMode;
  c.header.size = sizeof(Companion);
  c.header.slots = kProcessSlots;
  __atomic_store_n(&c.record.holder, kNoHolder, __ATOMIC_RELAXED);
#ifdef QOSDB_ROBUST_LOCK
  pthread_mutexattr_t attr;
  pthread_mutexattr_init(&attr);
  pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
  pthread_mutexattr_setrobust(&attr, PTHREAD_MUTEX_ROBUST);
  pthread_mutex_init(reinterpret_cast<pthread_mutex_t*>(c.mutex), &attr);
  pthread_mutexattr_destroy(&attr);
#endif
  __atomic_store_n(&c.header.magic, kCompanionMagic, __ATOMIC_RELEASE);
}

const char* modeName(uint32_t mode) {
  return mode == kLockSemaphore ? "the semaphore" : mode == kLockRobustMutex ? "the robust mutex" : "an unknown lock";
}

// The companion segment, checked; nullptr after a level-0 log line.
Companion* companionSegment(int& id) {
  bool created = true;
  id = shmget(kCompanionKey, sizeof(Companion), IPC_CREAT | IPC_EXCL | kCompanionPermissions);
  if (id == -1 && errno == EEXIST) {
    created = false;
    id = shmget(kCompanionKey, 0, 0);
  }
  if (id == -1) {
    QOS_LOG(QOS_LOG_SEMAPHORE, "Failed to access the QOS TA lock companion segment (key %d)", kCompanionKey);
    return nullptr;
  }
  struct shmid_ds ds;
  if (shmctl(id, IPC_STAT, &ds) != 0 || ds.shm_segsz != sizeof(Companion) ||
      !trustedOwner(ds.shm_perm.uid, ds.shm_perm.mode)) {
    QOS_LOG(QOS_LOG_SEMAPHORE, "Refusing the QOS TA lock companion segment (key %d): wrong size, owner or permissions",
            kCompanionKey);
    return nullptr;
  }
  void* at = shmat(id, nullptr, 0);
  if (at == reinterpret_cast<void*>(-1)) {
    QOS_LOG(QOS_LOG_SEMAPHORE, "Failed to attach the QOS TA lock companion segment (key %d)", kCompanionKey);
    return nullptr;
  }
  auto* c = static_cast<Companion*>(at);
  if (created) setUp(*c);
  for (int ms = 0; ms < kSetupWaitMs && __atomic_load_n(&c->header.magic, __ATOMIC_ACQUIRE) == 0; ++ms) usleep(1000);
  const char* wrong = nullptr;
  if (__atomic_load_n(&c->header.magic, __ATOMIC_ACQUIRE) != kCompanionMagic) {
    wrong = "wrong magic";
  } else if (c->header.version != kCompanionVersion || c->header.size != sizeof(Companion) ||
             c->header.slots != kProcessSlots) {
    wrong = "wrong layout version";
  }
  if (wrong != nullptr) {
    QOS_LOG(QOS_LOG_SEMAPHORE, "Refusing the QOS TA lock companion segment (key %d): %s", kCompanionKey, wrong);
  } else if (c->header.mode != kBuiltLockMode) {
    QOS_LOG(QOS_LOG_SEMAPHORE, "Refusing to share the QOS internal DB: it is locked with %s, this process with %s",
            modeName(c->header.mode), modeName(kBuiltLockMode));
    wrong = "mode";
  }
  if (wrong == nullptr) return c;
  shmdt(at);
  return nullptr;
}

// The slot semaphores, checked; -1 after a level-0 log line.
int slotSemaphores() {
  int id = semget(kCompanionKey, kProcessSlots, IPC_CREAT | IPC_EXCL | kCompanionPermissions);
  if (id != -1) return id;  // a new set starts with every slot at 0, free
  if (errno == EEXIST) id = semget(kCompanionKey, 0, 0);
  struct semid_ds ds;
  union {
    int val;
    struct semid_ds* buf;
  } arg;
  arg.buf = &ds;
  if (id == -1 || semctl(id, 0, IPC_STAT, arg) != 0 || ds.sem_nsems != static_cast<unsigned long>(kProcessSlots) ||
      !trustedOwner(ds.sem_perm.uid, ds.sem_perm.mode)) {
    QOS_LOG(QOS_LOG_SEMAPHORE, "Refusing the QOS TA lock slot semaphores (key %d): missing, wrong size or owner",
            kCompanionKey);
    return -1;
  }
  return id;
}

}  // namespace

void claimSlot() {
  local.slotClaimed = true;
  if (local.companion == nullptr) return;
  // The slot of the lock's last operator is left alone while it is dead:
  // it is the evidence that frees a holder that died before writing its
  // record (or after clearing it).
  const uint64_t ns = ownPidNamespace();
  const int lastOperator = semctl(semget(QOS_SEM_KEY, 1, 0), 0, GETPID);
  for (int i = 0; i < kProcessSlots; ++i) {
    const ProcessSlot& old = local.companion->slots[i];
    if (lastOperator > 0 && old.pid == lastOperator && old.pidNamespace == ns) continue;
    struct sembuf claim[2] = {{static_cast<unsigned short>(i), 0, IPC_NOWAIT},
                              {static_cast<unsigned short>(i), 1, SEM_UNDO | IPC_NOWAIT}};
    if (semop(local.slotSemId, claim, 2) != 0) continue;
    ProcessSlot& s = local.companion->slots[i];
    __atomic_store_n(&s.acquiringSec, 0, __ATOMIC_RELAXED);
    s.pid = static_cast<int32_t>(getpid());
    s.pidNamespace = ns;
    s.startTime = ownStartTime();
    uint32_t generation = (s.generation + 1) & kGenerationMask;
    __atomic_store_n(&s.generation, generation, __ATOMIC_RELEASE);
    local.slot = &s;
    local.slotPid = s.pid;
    local.holder = holderWord(static_cast<uint32_t>(i), generation);
    return;
  }
  QOS_LOG(QOS_LOG_SEMAPHORE, "No free QOS TA lock slot (%d in use): this process is reported as an unknown holder",
          kProcessSlots);
  local.slot = nullptr;
  local.slotPid = static_cast<int>(getpid());
  local.holder = slotlessHolderWord(static_cast<uint32_t>(local.slotPid));
}

namespace {
bool forkHandlerSet = false;

}  // namespace

int attachCompanion() {
  if (!forkHandlerSet) {
    forkHandlerSet = pthread_atfork(nullptr, nullptr, forgetSlotInChild) == 0;
  }
  int id = -1;
  Companion* c = companionSegment(id);
  int semId = c == nullptr ? -1 : slotSemaphores();
  if (semId == -1) {
    if (c != nullptr) shmdt(c);
    return -1;
  }
  bool same = id == local.companionId && semId == local.slotSemId && local.slot != nullptr;
  if (same) {
    shmdt(c);  // attached already
    return 0;
  }
  if (local.companion != nullptr && local.companion != c) shmdt(local.companion);
  local.companion = c;
  local.companionId = id;
  local.slotSemId = semId;
  claimSlot();
  return 0;
}

void clearHolderRecord() {
  if (local.companion != nullptr) __atomic_store_n(&local.companion->record.holder, kNoHolder, __ATOMIC_RELEASE);
}

}  // namespace qos
