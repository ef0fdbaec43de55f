// SPDX-License-Identifier: MIT
// guarded_platform.cpp - the platform functions for the fuzzer.
//
// Shared memory is one guarded mapping (guarded.h); the logger formats every
// message, so that a format that does not fit its arguments shows up under
// the sanitizers, and checks the call-site record; events and the DOCSIS
// configuration database answer what the current input asked for.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "qosintdb.h"
#include "qosintdb_platform.h"
#include "tests/fuzz/guarded.h"

namespace fuzz {
namespace {

std::size_t pageSize() { return static_cast<std::size_t>(sysconf(_SC_PAGESIZE)); }

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "guarded platform: %s\n", what);
  std::abort();
}

// `size` bytes whose last byte is flush against an inaccessible page, with
// an inaccessible page before the first page they occupy; the slack at the
// start of that first page is filled with the canary.
uint8_t* mapGuarded(std::size_t size, uint8_t** slack) {
  const std::size_t page = pageSize();
  const std::size_t pages = (size + page - 1) / page;
  auto* base = static_cast<uint8_t*>(
      mmap(nullptr, (pages + 2) * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  if (base == MAP_FAILED) fail("mmap failed");
  if (mprotect(base + page, pages * page, PROT_READ | PROT_WRITE) != 0) fail("mprotect failed");
  uint8_t* end = base + page + pages * page;
  *slack = base + page;
  std::memset(*slack, kCanary, pages * page);
  return end - size;
}

uint8_t* gRegion = nullptr;
uint8_t* gSlack = nullptr;
PlatformAnswers gAnswers;

bool allCanary(const uint8_t* from, const uint8_t* to) {
  static uint8_t canary[GuardedPage::kSize];
  if (canary[0] != kCanary) std::memset(canary, kCanary, sizeof canary);
  for (; to - from > 0; from += sizeof canary) {
    std::size_t n = std::min<std::size_t>(static_cast<std::size_t>(to - from), sizeof canary);
    if (std::memcmp(from, canary, n) != 0) return false;
  }
  return true;
}

}  // namespace

uint8_t* region() { return gRegion; }

void checkRegionCanary() {
  if (gRegion != nullptr && !allCanary(gSlack, gRegion)) fail("write before the region's first byte");
}

GuardedPage::GuardedPage() {
  uint8_t* slack = nullptr;
  mapGuarded(pageSize(), &slack);
  page_ = slack;
}

uint8_t* GuardedPage::place(std::size_t size) {
  if (size > kSize) fail("guarded page overfilled");
  const std::size_t page = pageSize();
  std::memset(page_, kCanary, page);
  used_ = size;
  return page_ + page - size;
}

void GuardedPage::check(const char* what) const {
  if (!allCanary(page_, page_ + pageSize() - used_)) {
    std::fprintf(stderr, "guarded platform: write before the %s passed to the library\n", what);
    std::abort();
  }
}

PlatformAnswers& answers() { return gAnswers; }

}  // namespace fuzz

extern "C" {

int shm_init(int, int, int) { return 0; }

void* shm_create(int pool, int id, uint32_t size) {
  if (pool != 1 || id != QOS_REGION_SEGMENT_ID || size != QOS_REGION_SIZE) fuzz::fail("unexpected segment");
  if (fuzz::gRegion == nullptr) fuzz::gRegion = fuzz::mapGuarded(size, &fuzz::gSlack);
  return fuzz::gRegion;
}

void* shm_get(int pool, int id) {
  if (pool != 1 || id != QOS_REGION_SEGMENT_ID) fuzz::fail("unexpected segment");
  return fuzz::gRegion;
}

int logger_build_send_log_msg(const LogSite* site, int zero, const char* format, ...) {
  if (site == nullptr || format == nullptr || site->function == nullptr) fuzz::fail("log without a call site");
  if (site->flag != 1 || zero != 0 || site->level < QOS_LOG_SEMAPHORE || site->level > QOS_LOG_NOTICE ||
      (site->module != QOS_MODULE_TABLES && site->module != QOS_MODULE_DBC)) {
    fuzz::fail("malformed call-site record");
  }
  char text[1024];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  return 0;
}

uint32_t ICC_dest_of(uint32_t component) { return 0x1000 + component; }

int EV_GenEvent(uint32_t dest, uint32_t event, const void* payload, uint32_t length) {
  if (dest != 0x1000 + QOS_EV_COMPONENT || payload == nullptr || length != 4) fuzz::fail("malformed event");
  if (event != QOS_EV_HELD_SF_CHANGED && event != QOS_EV_HOLDER_ACK_LOST && event != QOS_EV_HELD_SF_DELETED) {
    fuzz::fail("unknown event");
  }
  volatile uint32_t value;
  std::memcpy(const_cast<uint32_t*>(&value), payload, sizeof value);
  return fuzz::gAnswers.eventResult;
}

int DocsisDb_GetMultipleUpstreams(uint32_t* multipleUpstreams) {
  if (multipleUpstreams == nullptr) fuzz::fail("NULL passed to DocsisDb_GetMultipleUpstreams");
  *multipleUpstreams = fuzz::gAnswers.multipleUpstreams;
  return 0;
}

int DocsisDb_IsTccReceivedInRegRsp(void) { return fuzz::gAnswers.tccInRegRsp; }

int DocsisDb_GetPortFromUcid(uint8_t ucid, uint8_t* port) {
  if (port == nullptr) fuzz::fail("NULL passed to DocsisDb_GetPortFromUcid");
  for (uint8_t p = 1; p <= 4; ++p) {
    if (ucid != 0 && fuzz::gAnswers.portUcid[p - 1] == ucid) {
      *port = p;
      return 0;
    }
  }
  *port = fuzz::gAnswers.unknownUcidPort;
  return -1;
}

int DocsisDb_GetPortUcid(uint8_t port, uint8_t* ucid) {
  if (ucid == nullptr) fuzz::fail("NULL passed to DocsisDb_GetPortUcid");
  *ucid = port >= 1 && port <= 4 ? fuzz::gAnswers.portUcid[port - 1] : 0;
  return port >= 1 && port <= 4 ? 0 : -1;
}

}  // extern "C"
