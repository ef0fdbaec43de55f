// SPDX-License-Identifier: MIT
// store.cpp - attaching, the lock and its holder, consistent copies.
#include "store.h"

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <pthread.h>
#include <signal.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iostream>
#include <sys/stat.h>

#include "frame/holder.h"
#include "qosintdb.h"
#include "qosintdb_platform.h"
#include "tools/inspect/integrity.h"

namespace qosdb {
namespace {

int existingSemaphore() { return semget(QOS_SEM_KEY, 1, 0); }

// A zombie has ended but still answers kill(pid, 0).
bool zombie(pid_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  if (!std::getline(stat, line)) return false;
  auto close = line.rfind(')');
  return close != std::string::npos && close + 2 < line.size() && line[close + 2] == 'Z';
}

}  // namespace

bool processAlive(pid_t pid) {
  if (pid <= 0) return false;
  if (kill(pid, 0) != 0 && errno != EPERM) return false;
  return !zombie(pid);
}

namespace {

// The companion and its slot semaphores, checked as the library checks them
// (size, owner, magic, version); nullptr when there is none to trust.
struct CompanionView {
  qos::Companion* c = nullptr;
  int semId = -1;
};
CompanionView companionView() {
  static CompanionView view;
  static int viewId = -1;
  int id = shmget(qos::kCompanionKey, 0, 0);
  int semId = semget(qos::kCompanionKey, 0, 0);
  if (id == -1 || semId == -1) return {};
  if (id == viewId && view.c != nullptr) {
    view.semId = semId;
    return view;
  }
  shmid_ds ds{};
  if (shmctl(id, IPC_STAT, &ds) != 0 || ds.shm_segsz != sizeof(qos::Companion) ||
      (ds.shm_perm.uid != geteuid() && ds.shm_perm.uid != 0)) {
    return {};
  }
  void* at = shmat(id, nullptr, 0);
  if (at == reinterpret_cast<void*>(-1)) return {};
  auto* c = static_cast<qos::Companion*>(at);
  if (__atomic_load_n(&c->header.magic, __ATOMIC_ACQUIRE) != qos::kCompanionMagic ||
      c->header.version != qos::kCompanionVersion || c->header.slots != qos::kProcessSlots) {
    shmdt(at);
    return {};
  }
  view = {c, semId};
  viewId = id;
  return view;
}

uint64_t ownPidNamespace() {
  struct stat st {};
  return stat("/proc/self/ns/pid", &st) == 0 ? static_cast<uint64_t>(st.st_ino) : 0;
}

bool slotLive(const CompanionView& v, int slot) { return semctl(v.semId, slot, GETVAL) > 0; }

// This process's own holder word: the live slot that records its pid in
// its namespace (the library claimed it when this process attached).
qos::HolderWord ownWord(const CompanionView& v) {
  for (int i = 0; i < qos::kProcessSlots; ++i) {
    const qos::ProcessSlot& s = v.c->slots[i];
    if (s.pid == getpid() && s.pidNamespace == ownPidNamespace() && slotLive(v, i)) {
      return qos::holderWord(static_cast<uint32_t>(i), __atomic_load_n(&s.generation, __ATOMIC_ACQUIRE));
    }
  }
  return qos::slotlessHolderWord(static_cast<uint32_t>(getpid()));
}

// No record while the semaphore is taken (or only the mark of a tool that
// freed it before). The kernel remembers the last process that operated on
// the semaphore (GETPID). If that is the pid of a process of the stack in
// this PID namespace whose slot is dead, and no process with that pid runs
// any more, then its operation was the last one and left the value at 0;
// the library never waits for zero, so that operation took the lock: it
// died between taking the semaphore and writing its record, or between
// clearing the record and giving the semaphore back. Anything else stays
// unknown.
void judgeUnrecorded(LockInfo& info, const CompanionView& v, int semId) {
  info.holder = Holder::Unknown;
  pid_t last = semctl(semId, 0, GETPID);
  if (last <= 0 || processAlive(last)) return;
  int found = -1;
  for (int i = 0; i < qos::kProcessSlots && found == -1; ++i) {
    const qos::ProcessSlot& s = v.c->slots[i];
    if (s.pid == last && s.pidNamespace == ownPidNamespace() && !slotLive(v, i)) found = i;
  }
  if (found == -1) return;
  info.holder = Holder::Dead;
  info.inferred = true;
  info.unknownWhy.clear();
  info.slot = found;
  info.generation = v.c->slots[found].generation;
  info.pid = last;
  info.pidNamespace = v.c->slots[found].pidNamespace;
  info.since = v.c->slots[found].acquiringSec + v.c->slots[found].acquiringNsec / 1e9;
}

std::string clockText(double t) {
  time_t secs = static_cast<time_t>(t);
  tm parts{};
  gmtime_r(&secs, &parts);
  char buf[64];
  std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &parts);
  char ms[8];
  std::snprintf(ms, sizeof ms, ".%03d", static_cast<int>((t - static_cast<double>(secs)) * 1000) % 1000);
  return std::string(buf) + ms + " UTC";
}

}  // namespace

std::string LockInfo::holderText() const {
  if (holder == Holder::None) return "none";
  if (slot < 0) return pid > 0 ? "unknown (process " + std::to_string(pid) + ": " + unknownWhy + ")"
                               : "unknown (" + unknownWhy + ")";
  std::string text = "process " + std::to_string(pid) + " (slot " + std::to_string(slot) + ", generation " +
                     std::to_string(generation) +
                     (otherNamespace ? ", PID namespace " + std::to_string(pidNamespace) : std::string()) + ")";
  if (since > 0) text += ", since " + clockText(since);
  return text;
}

LockInfo lockInfo() {
  LockInfo info;
  int id = existingSemaphore();
  if (id == -1) return info;
  info.exists = true;
  info.value = semctl(id, 0, GETVAL);
  info.waiting = semctl(id, 0, GETNCNT);
  CompanionView v = companionView();
  info.companion = v.c != nullptr;
#ifdef QOSDB_ROBUST_LOCK
  info.taken = info.companion && qos::loadHolder(*v.c) != qos::kNoHolder &&
               qos::holderSlotField(qos::loadHolder(*v.c)) != qos::kFreedByTool;
#else
  info.taken = info.value == 0;
#endif
  if (!info.companion) {
    info.holder = info.taken ? Holder::Unknown : Holder::None;
    info.unknownWhy = "the store keeps no holder record";
    return info;
  }
  for (int i = 0; i < qos::kProcessSlots; ++i) {
    const qos::ProcessSlot& s = v.c->slots[i];
    if (__atomic_load_n(&s.acquiringSec, __ATOMIC_ACQUIRE) != 0 && slotLive(v, i)) {
      info.acquiring.push_back("process " + std::to_string(s.pid) + " (slot " + std::to_string(i) + ")");
    }
  }
  if (!info.taken) return info;
  info.word = qos::loadHolder(*v.c);
  uint32_t field = qos::holderSlotField(info.word);
  if (info.word == qos::kNoHolder || field == qos::kFreedByTool) {
    info.unknownWhy = info.word == qos::kNoHolder
                          ? "no holder record: a client that took the semaphore with its own semop, or a process of "
                            "the stack that has just taken it"
                          : "no holder record since qosdb freed the lock: a client that took the semaphore with its "
                            "own semop, or a process of the stack that has just taken it";
    judgeUnrecorded(info, v, id);
  } else if (field == qos::kNoSlot) {
    info.holder = Holder::Unknown;
    info.pid = static_cast<pid_t>(qos::holderLow(info.word));
    info.unknownWhy = "a process of the stack without a slot";
  } else {
    info.slot = static_cast<int>(field) - 1;
    info.generation = qos::holderLow(info.word);
    const qos::ProcessSlot& s = v.c->slots[info.slot];
    info.pid = v.c->record.pid;
    info.pidNamespace = s.pidNamespace;
    info.since = v.c->record.sinceSec + v.c->record.sinceNsec / 1e9;
    bool reclaimed = (__atomic_load_n(&s.generation, __ATOMIC_ACQUIRE) & qos::kGenerationMask) != info.generation;
    info.holder = reclaimed || !slotLive(v, info.slot) ? Holder::Dead : Holder::Alive;
    if (qos::loadHolder(*v.c) != info.word) return lockInfo();  // it changed hands while read
  }
  info.otherNamespace = info.pidNamespace != 0 && info.pidNamespace != ownPidNamespace();
  return info;
}

int attachedProcesses() {
  int shmid = shmget(QOS_REGION_SEGMENT_ID, 0, 0);
  shmid_ds ds{};
  return shmid != -1 && shmctl(shmid, IPC_STAT, &ds) == 0 ? static_cast<int>(ds.shm_nattch) : 0;
}

Freed freeLock(const LockInfo& info) {
  Freed freed;
  CompanionView v = companionView();
  int semId = existingSemaphore();
  auto* base = static_cast<qos::QosIntDbRegion*>(shm_get(1, QOS_REGION_SEGMENT_ID));
  if (v.c == nullptr || semId == -1 || base == nullptr) return freed;
  const qos::HolderWord own = ownWord(v);
  if (!qos::swapHolder(*v.c, info.word, own)) return freed;  // another freer, or the holder, came first
  // An unrecorded holder: the kernel's last operator must still be the dead
  // process and the lock still taken, now that this process owns the record.
  if (info.inferred &&
      (semctl(semId, 0, GETVAL) != 0 || semctl(semId, 0, GETPID) != info.pid || processAlive(info.pid))) {
    qos::swapHolder(*v.c, own, info.word);
    return freed;
  }
  auto copy = std::make_unique<qos::QosIntDbRegion>();
  std::memcpy(copy.get(), base, sizeof *copy);
  std::vector<qos::inspect::Finding> findings = qos::inspect::checkIntegrity(*copy);
  std::size_t corrupt = 0;
  for (const auto& f : findings) corrupt += f.cls == qos::inspect::FindingClass::Corrupt ? 1 : 0;
  freed.check = findings.empty() ? "every invariant holds"
                                 : std::to_string(corrupt) + " corrupt, " + std::to_string(findings.size() - corrupt) +
                                       " suspect (qosdb check lists them)";
#ifdef QOSDB_ROBUST_LOCK
  // The kernel marked the dead owner's mutex: take it, mark it consistent, give it back.
  auto* mutex = reinterpret_cast<pthread_mutex_t*>(v.c->mutex);
  int rc = pthread_mutex_trylock(mutex);
  if (rc != 0 && rc != EOWNERDEAD) {
    qos::swapHolder(*v.c, own, info.word);
    return freed;
  }
  if (rc == EOWNERDEAD) pthread_mutex_consistent(mutex);
  qos::swapHolder(*v.c, own, qos::kNoHolder);
  pthread_mutex_unlock(mutex);
#else
  qos::swapHolder(*v.c, own, qos::freedHolderWord(static_cast<uint32_t>(getpid())));
  sembuf release[2] = {{0, 0, IPC_NOWAIT}, {0, +1, IPC_NOWAIT}};  // from 0 to 1, never above
  (void)semop(semId, release, 2);
#endif
  freed.done = true;
  return freed;
}

bool removeCompanion() {
  int id = shmget(qos::kCompanionKey, 0, 0);
  int semId = semget(qos::kCompanionKey, 0, 0);
  bool segment = id != -1 && shmctl(id, IPC_RMID, nullptr) == 0;
  bool semaphores = semId != -1 && semctl(semId, 0, IPC_RMID) == 0;
  return segment || semaphores;
}

bool storeExists() { return existingSemaphore() != -1 || shmget(QOS_REGION_SEGMENT_ID, 0, 0) != -1; }

qos::QosIntDbRegion* attach() {
  int shmid = shmget(QOS_REGION_SEGMENT_ID, 0, 0);
  if (shmid == -1) throw Failure("no store here: shared memory segment 14 does not exist (qosdb init creates one)");
  shmid_ds ds{};
  if (shmctl(shmid, IPC_STAT, &ds) == 0 && ds.shm_segsz < QOS_REGION_SIZE) {
    throw Failure("segment 14 holds " + std::to_string(ds.shm_segsz) + " bytes, not a store of " +
                  std::to_string(QOS_REGION_SIZE));
  }
  if (existingSemaphore() == -1) {
    throw Failure("no store here: the semaphore (key 4656) does not exist (qosdb init creates one)");
  }
  if (qos_IntDb_RetrieveAccess() != 0) throw Failure("cannot attach to the store");
  auto* base = static_cast<qos::QosIntDbRegion*>(shm_get(1, QOS_REGION_SEGMENT_ID));
  if (base == nullptr) throw Failure("cannot attach to the store");
  return base;
}

void ensureLockHolderAlive() {
  LockInfo info = lockInfo();
  if (!info.exists) throw Failure("the store's semaphore (key 4656) is gone");
  if (info.heldByDead()) {
    throw Failure("the lock is held by process " + std::to_string(info.pid) +
                  ", which no longer runs; qosdb unlock --force frees it");
  }
  if (info.taken) std::cerr << "qosdb: waiting for the lock (held by " << info.holderText() << ")" << std::endl;
}

Locked::Locked() {
  if (qos_taDb_Lock() != 0) throw Failure("cannot take the lock");
}

Locked::~Locked() { qos_taDb_Unlock(); }

std::unique_ptr<qos::QosIntDbRegion> snapshot(const qos::QosIntDbRegion& live, bool useLock) {
  auto copy = std::make_unique<qos::QosIntDbRegion>();
  if (!useLock) {
    std::memcpy(copy.get(), &live, sizeof live);
    return copy;
  }
  ensureLockHolderAlive();
  Locked lock;
  std::memcpy(copy.get(), &live, sizeof live);
  return copy;
}

}  // namespace qosdb
