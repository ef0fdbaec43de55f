// SPDX-License-Identifier: MIT
// semcount.h - counting the semaphore operations the library makes.
//
// The benchmark program defines semop() itself, ahead of the C library: every
// call the library makes (through qos_taDb_Lock, qos_taDb_Unlock, or the
// operations that lock by themselves) is counted and then passed on.
#pragma once

#include <cstdint>

namespace qosbench {

struct SemCount {
  uint64_t calls = 0;  // semop() calls
  uint64_t takes = 0;  // operations that took the semaphore (sem_op < 0, done)

  SemCount operator-(const SemCount& o) const { return {calls - o.calls, takes - o.takes}; }
};

SemCount semCount();

}  // namespace qosbench
