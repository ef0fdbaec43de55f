// SPDX-License-Identifier: MIT
// guarded.h - the fuzzer's platform: memory that faults on any stray access.
//
// The region that shm_create hands out ends flush against an inaccessible
// page, and the page before the one it starts in is inaccessible too; the
// slack between that page and the region's first byte holds a canary. The
// same arrangement serves the buffers that the harness passes to the
// library: an input or output of n bytes occupies the last n bytes before
// a guard page, and the rest of its page holds the canary.
#pragma once

#include <cstddef>
#include <cstdint>

namespace fuzz {

constexpr uint8_t kCanary = 0xC5;

// The region as shm_create made it, NULL before.
uint8_t* region();
// Aborts unless the slack before the region still holds the canary.
void checkRegionCanary();

// One page of storage followed by a guard page, allocated once.
class GuardedPage {
 public:
  static constexpr std::size_t kSize = 4096;
  GuardedPage();
  // The last `size` bytes of the page (size <= kSize); the rest is canary.
  uint8_t* place(std::size_t size);
  // Aborts when a byte before the placed bytes lost its canary.
  void check(const char* what) const;

 private:
  uint8_t* page_;
  std::size_t used_ = 0;
};

// What the DOCSIS configuration database and the event service answer.
struct PlatformAnswers {
  uint32_t multipleUpstreams = 0;
  int tccInRegRsp = 0;
  uint8_t portUcid[4] = {0, 0, 0, 0};  // UCID of ports 1..4
  uint8_t unknownUcidPort = 0;         // port reported for any other UCID
  int eventResult = 0;
};
PlatformAnswers& answers();

}  // namespace fuzz
