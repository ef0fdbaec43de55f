// shm.cpp - host shared memory: System V segments keyed by the segment id.
//
// Segments are created with mode 0660, so one private IPC namespace
// isolates the region together with the semaphore. Creating a segment that
// exists attaches it; a process that attached a segment once gets the same
// address again.
#include <sys/ipc.h>
#include <sys/shm.h>

#include <array>
#include <cstdint>

#include "qosplatform_host.h"

namespace {

constexpr int kMaxIds = 64;
std::array<void*, kMaxIds> attached{};

void* attach(int id, int shmid) {
  void* addr = shmat(shmid, nullptr, 0);
  if (addr == reinterpret_cast<void*>(-1)) return nullptr;
  if (id >= 0 && id < kMaxIds) attached[static_cast<std::size_t>(id)] = addr;
  return addr;
}

void* already(int id) {
  return (id >= 0 && id < kMaxIds) ? attached[static_cast<std::size_t>(id)] : nullptr;
}

}  // namespace

extern "C" {

int shm_init(int, int, int) { return 0; }

void* shm_create(int, int id, uint32_t size) {
  int shmid = shmget(static_cast<key_t>(id), size, IPC_CREAT | 0660);
  if (shmid == -1) return nullptr;
  if (void* addr = already(id)) return addr;
  return attach(id, shmid);
}

void* shm_get(int, int id) {
  int shmid = shmget(static_cast<key_t>(id), 0, 0);
  if (shmid == -1) return nullptr;
  if (void* addr = already(id)) return addr;
  return attach(id, shmid);
}

int qos_host_shm_remove(int id) {
  int shmid = shmget(static_cast<key_t>(id), 0, 0);
  if (shmid == -1) return -1;
  return shmctl(shmid, IPC_RMID, nullptr);
}

}  // extern "C"
