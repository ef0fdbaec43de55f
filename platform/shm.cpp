// SPDX-License-Identifier: MIT
// shm.cpp - host shared memory: System V segments keyed by the segment id.
//
// A segment key is a public name: any user of the machine can create
// segment 14 before the stack starts, with any size and mode. So this
// service trusts only segments it can vouch for:
//   - create asks for a new segment (IPC_CREAT | IPC_EXCL, mode 0660). When
//     the key exists already (a second qos_IntDb_Init, or the stack started
//     again after a crash: System V segments outlive their processes) the
//     existing segment is taken only if it passes the checks below;
//   - every segment handed out has exactly the expected size, belongs to
//     (and was created by) the caller's user or root, and grants nothing to
//     others. Anything else is refused with a level-0 log line and NULL,
//     before the library has touched a byte of it.
// The expected size of a segment is the size this process asked for when it
// created it; a process that only attaches never asked, so for the region
// (segment 14) it is QOS_REGION_SIZE from the client header, which every
// process of the stack is built against. A segment of any other id that
// this process did not create has no known size and is refused.
//
// Segments belong to the IPC namespace, so one private namespace isolates
// the region together with the semaphore. A process that attached a segment
// once gets the same address again while the key names the same segment.
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>

#include "qosintdb.h"
#include "qosplatform_host.h"

namespace {

constexpr int kMaxIds = 64;
constexpr int kSegmentMode = 0660;
constexpr unsigned kOthersMask = 0007;

struct Mapping {
  int shmid = -1;
  void* addr = nullptr;
  uint32_t createdSize = 0;  // the size this process created it with; 0: attached only
};
std::array<Mapping, kMaxIds> mappings{};

Mapping* slot(int id) { return (id >= 0 && id < kMaxIds) ? &mappings[static_cast<std::size_t>(id)] : nullptr; }

// Refusals are logged at level 0, like the other failures of the store's
// foundations, under the function that refused.
const LogSite kCreateSite{QOS_LOG_SEMAPHORE, 1, QOS_MODULE_TABLES, "shm_create", __LINE__};
const LogSite kGetSite{QOS_LOG_SEMAPHORE, 1, QOS_MODULE_TABLES, "shm_get", __LINE__};

// The size segment `shmid` under `id` must have in this process, 0 when unknown.
uint32_t expectedSize(int id, int shmid) {
  if (const Mapping* m = slot(id); m != nullptr && m->shmid == shmid && m->createdSize != 0) return m->createdSize;
  return id == QOS_REGION_SEGMENT_ID ? static_cast<uint32_t>(QOS_REGION_SIZE) : 0;
}

bool trustedUser(uid_t uid) { return uid == geteuid() || uid == 0; }

// True when the segment has exactly `size` bytes, its owner and creator are
// this user or root and others get no access; otherwise logs why and false.
bool vouchFor(const LogSite& site, int id, int shmid, uint32_t size) {
  shmid_ds ds{};
  char why[160];
  if (shmctl(shmid, IPC_STAT, &ds) != 0) {
    std::snprintf(why, sizeof why, "segment %d cannot be examined (errno %d): refused", id, errno);
  } else if (size == 0) {
    std::snprintf(why, sizeof why, "segment %d has no size known to this process: refused", id);
  } else if (ds.shm_segsz != size) {
    std::snprintf(why, sizeof why, "segment %d holds %zu bytes, not %u: refused", id,
                  static_cast<std::size_t>(ds.shm_segsz), size);
  } else if (!trustedUser(ds.shm_perm.uid) || !trustedUser(ds.shm_perm.cuid)) {
    std::snprintf(why, sizeof why, "segment %d belongs to uid %u (created by uid %u), not to uid %u or root: refused",
                  id, static_cast<unsigned>(ds.shm_perm.uid), static_cast<unsigned>(ds.shm_perm.cuid),
                  static_cast<unsigned>(geteuid()));
  } else if ((ds.shm_perm.mode & kOthersMask) != 0) {
    std::snprintf(why, sizeof why, "segment %d has mode %04o, open to other users: refused", id,
                  static_cast<unsigned>(ds.shm_perm.mode & 0777));
  } else {
    return true;
  }
  logger_build_send_log_msg(&site, 0, "%s", why);
  return false;
}

// The address of segment `shmid` under `id` in this process: the earlier
// mapping when the key still names the same segment, else a new one.
void* map(int id, int shmid) {
  Mapping* m = slot(id);
  if (m != nullptr && m->addr != nullptr && m->shmid == shmid) return m->addr;
  void* addr = shmat(shmid, nullptr, 0);
  if (addr == reinterpret_cast<void*>(-1)) return nullptr;
  // An older mapping of a removed segment stays mapped: the library may
  // still hold its address.
  if (m != nullptr) {
    if (m->shmid != shmid) m->createdSize = 0;
    m->shmid = shmid;
    m->addr = addr;
  }
  return addr;
}

}  // namespace

extern "C" {

int shm_init(int, int, int) { return 0; }

void* shm_create(int, int id, uint32_t size) {
  int shmid = shmget(static_cast<key_t>(id), size, IPC_CREAT | IPC_EXCL | kSegmentMode);
  if (shmid != -1) {
    void* addr = map(id, shmid);
    if (Mapping* m = slot(id); addr != nullptr && m != nullptr) m->createdSize = size;
    return addr;
  }
  if (errno != EEXIST) return nullptr;
  shmid = shmget(static_cast<key_t>(id), 0, 0);
  if (shmid == -1 || !vouchFor(kCreateSite, id, shmid, size)) return nullptr;
  return map(id, shmid);
}

void* shm_get(int, int id) {
  int shmid = shmget(static_cast<key_t>(id), 0, 0);
  if (shmid == -1) return nullptr;
  if (const Mapping* m = slot(id); m != nullptr && m->addr != nullptr && m->shmid == shmid) return m->addr;
  if (!vouchFor(kGetSite, id, shmid, expectedSize(id, shmid))) return nullptr;
  return map(id, shmid);
}

int qos_host_shm_remove(int id) {
  int shmid = shmget(static_cast<key_t>(id), 0, 0);
  if (shmid == -1) return -1;
  return shmctl(shmid, IPC_RMID, nullptr);
}

}  // extern "C"
