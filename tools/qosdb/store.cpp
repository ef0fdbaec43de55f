// store.cpp - attaching, the lock and its holder, consistent copies.
#include "store.h"

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <signal.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

#include "qosintdb.h"
#include "qosintdb_platform.h"

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

LockInfo lockInfo() {
  LockInfo info;
  int id = existingSemaphore();
  if (id == -1) return info;
  info.exists = true;
  info.value = semctl(id, 0, GETVAL);
  info.lastPid = semctl(id, 0, GETPID);
  info.waiting = semctl(id, 0, GETNCNT);
  if (info.lastPid < 0) info.lastPid = 0;
  info.lastAlive = processAlive(info.lastPid);
  return info;
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
    throw Failure("the lock is held by process " + std::to_string(info.lastPid) +
                  ", which no longer runs; qosdb unlock --force frees it");
  }
  if (info.value == 0) {
    std::cerr << "qosdb: waiting for the lock (held by process " << info.lastPid << ")" << std::endl;
  }
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
