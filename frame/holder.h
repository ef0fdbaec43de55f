// SPDX-License-Identifier: MIT
// holder.h - who holds the lock: the companion segment and its process slots.
//
// Beside the region (never inside its 85032 bytes) lives a small System V
// segment of its own, the companion, and a set of slot semaphores, both under
// key 4657. Every process that inits or attaches claims one slot: in one
// semop it raises slot semaphore i from 0 to 1 with SEM_UNDO, so the kernel
// lowers it again when the process ends, however it ends. A slot semaphore
// at 0 is the kernel's word that the process that claimed the slot is gone.
//
// The lock path writes who holds the lock into the companion, with plain
// stores and no extra system call:
//   lock:   slot.acquiring = now; take the lock; since = now;
//           holder = {slot, generation}; slot.acquiring = 0
//   unlock: holder = none (only if it is still this process); give it back
// So "holder = D" means that D has taken the lock and not yet given it back;
// if D's slot semaphore is 0, or the slot was claimed again since (its
// generation moved on), D died holding the lock. A raw client that takes
// the semaphore without writing a record leaves "no holder" behind: the
// holder is then unknown and nothing frees it by itself.
//
// Every word another process writes is reached through __atomic builtins on
// 32-bit words (no 64-bit atomics: 32-bit targets would need libatomic).
#pragma once

#include <cstddef>
#include <cstdint>

namespace qos {

constexpr int kCompanionKey = 4657;  // the companion segment and the slot semaphores
constexpr uint32_t kCompanionMagic = 0x514c4b48;  // "QLKH"
constexpr uint16_t kCompanionVersion = 1;
constexpr int kProcessSlots = 64;

// How the lock is built; a process never shares a region with one built
// the other way.
enum LockMode : uint16_t { kLockSemaphore = 1, kLockRobustMutex = 2 };

// The holder word: the slot (plus one) in the top 8 bits and the slot's
// generation in the low 24 bits; 0 when nobody holds the lock. A process
// that links the library but owns no slot (a forked child that did not
// attach again) writes the slot field kNoSlot and its pid below it.
using HolderWord = uint32_t;
constexpr HolderWord kNoHolder = 0;
constexpr uint32_t kNoSlot = 0xff;
// A tool that freed a dead holder's lock writes this slot field (and its
// pid) just before it raises the semaphore; the next taker overwrites it.
constexpr uint32_t kFreedByTool = 0xfe;
constexpr uint32_t kGenerationMask = 0xffffff;
constexpr HolderWord holderWord(uint32_t slot, uint32_t generation) {
  return ((slot + 1) << 24) | (generation & kGenerationMask);
}
constexpr HolderWord slotlessHolderWord(uint32_t pid) { return (kNoSlot << 24) | (pid & kGenerationMask); }
constexpr HolderWord freedHolderWord(uint32_t pid) { return (kFreedByTool << 24) | (pid & kGenerationMask); }
constexpr uint32_t holderSlotField(HolderWord w) { return w >> 24; }  // 0 none, kNoSlot, else slot + 1
constexpr uint32_t holderLow(HolderWord w) { return w & kGenerationMask; }

// One process slot, written by its owner only (the freer reads it).
struct ProcessSlot {
  uint32_t generation;     // raised at each claim (low 24 bits count)
  int32_t pid;             // the owner's pid in its own PID namespace
  uint64_t pidNamespace;   // inode of the owner's /proc/self/ns/pid (0: unknown)
  uint64_t startTime;      // the owner's start time, clock ticks after boot (0: unknown)
  uint32_t acquiringSec;   // while the owner waits for or takes the lock: when it began
  uint32_t acquiringNsec;
  uint8_t reserved[32];
};
static_assert(sizeof(ProcessSlot) == 64, "a slot is one cache line");

struct CompanionHeader {
  uint32_t magic;          // kCompanionMagic, stored last by the creator
  uint16_t version;        // kCompanionVersion
  uint16_t mode;           // LockMode
  uint32_t size;           // sizeof(Companion)
  uint32_t slots;          // kProcessSlots
  uint8_t reserved[48];
};
static_assert(sizeof(CompanionHeader) == 64, "the header is one cache line");

struct HolderRecord {
  HolderWord holder;       // who holds the lock (kNoHolder: nobody known)
  uint32_t sinceSec;       // since when (realtime)
  uint32_t sinceNsec;
  int32_t pid;             // the holder's pid in its own PID namespace
  uint8_t reserved[48];
};
static_assert(sizeof(HolderRecord) == 64, "the record is one cache line");

struct Companion {
  CompanionHeader header;
  alignas(64) uint8_t mutex[64];  // the robust mutex of the robust lock mode
  HolderRecord record;
  ProcessSlot slots[kProcessSlots];
};
static_assert(sizeof(Companion) == 64 * (3 + kProcessSlots), "layout of the companion");
static_assert(offsetof(Companion, record) == 128 && offsetof(Companion, slots) == 192, "layout of the companion");

// The mode this build locks with.
#ifdef QOSDB_ROBUST_LOCK
constexpr LockMode kBuiltLockMode = kLockRobustMutex;
#else
constexpr LockMode kBuiltLockMode = kLockSemaphore;
#endif

inline HolderWord loadHolder(const Companion& c) { return __atomic_load_n(&c.record.holder, __ATOMIC_ACQUIRE); }
// Replaces `expected` by `desired`; false when the record held something else.
inline bool swapHolder(Companion& c, HolderWord expected, HolderWord desired) {
  return __atomic_compare_exchange_n(&c.record.holder, &expected, desired, false, __ATOMIC_ACQ_REL,
                                     __ATOMIC_ACQUIRE);
}

}  // namespace qos

// ---- the library's side (frame/holder.cpp) ----------------------------------
namespace qos {

// Attaches this process to the companion (creating it and the slot
// semaphores when nobody has yet) and claims a slot unless this process
// already owns one there. 0, or -1 after a level-0 log line when the
// companion is foreign, stale or built for the other lock mode.
int attachCompanion();
// Claims a free slot for this process (one semop per slot tried); without
// one, the process is recorded as a holder without a slot.
void claimSlot();
// Clears the holder record: the lock was just set free by qos_IntDb_Init.
void clearHolderRecord();

}  // namespace qos
