// SPDX-License-Identifier: MIT
// store.h - the store the benchmarks run on, and the tables they fill it with.
//
// The benchmarks attach one region (a private IPC namespace keeps it apart
// from any real modem stack) and put it into one of three layouts before
// they measure:
//
//   kEmpty     every table reset; an operation that needs a row to act on
//              (a flow to rename, an active flow to enter) gets that one row.
//   kFull      every row of every table in use: 128 flows, 320 classifiers,
//              79 SID clusters, 64 switchover rows, 32 active flows, 32 + 32
//              active PHS rules, 10 transactions. Transaction 9 owns the last
//              two flows (126 upstream, 127 downstream) and the last five
//              classifiers (315..319): the row a lookup is after is the last
//              one it reaches.
//   kFullRoom  kFull with transaction 9's rows free again (transaction row 9,
//              flows 126-127, classifiers 315..319) and the last row of the
//              cluster, switchover, active and PHS tables free. The maximum
//              indexes stay at the end of the tables, so an add scans every
//              used row before it finds its own.
//
// Rows are written here directly, field by field, so that every benchmark
// starts from the same known bytes; the operations under measurement then
// run through the library's exported interface only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "frame/region.h"

namespace qosbench {

enum class Tables { kEmpty, kFull, kFullRoom };

// "empty", "full" (kFull and kFullRoom) - the suffix of a benchmark's name.
const char* tablesName(Tables t);

// Creates the store (once per process) and returns its region.
qos::QosIntDbRegion& region();

// Puts the store into a layout (see above).
void useTables(Tables t);

// Log records the library produced since the store was created; the
// benchmarks discard the texts and count them.
uint64_t logCount();

// ---- The full layout ------------------------------------------------------

constexpr uint32_t kFlows = QOS_SF_ROWS;
constexpr uint32_t kClassifiers = QOS_CLSF_ROWS;
constexpr uint32_t kOperationalFlows = 64;  // rows 0..63; the check's limit
constexpr int32_t kOutcomeTa = 9;           // the transaction of the last rows
constexpr uint32_t kOutcomeUsFlow = 126;
constexpr uint32_t kOutcomeDsFlow = 127;
constexpr uint32_t kOutcomeFirstClsf = 315;

inline uint32_t sfIdOf(uint32_t flow) { return 0x1000 + flow; }
inline uint32_t refOf(uint32_t flow) { return flow + 1; }
inline uint32_t flowOfClsf(uint32_t clsf) { return clsf * 2 / 5; }
inline uint16_t clsfIdOf(uint32_t clsf) { return static_cast<uint16_t>(clsf + 1); }
// Pending classifiers (of flows 64..127, rows 160..319) carry references
// 1..160; classifiers in force have none.
inline uint8_t clsfRefOf(uint32_t clsf) { return clsf < 160 ? 0 : static_cast<uint8_t>(clsf - 159); }
// The cluster in row k belongs to the (k mod 32)-th active upstream flow.
inline uint32_t flowOfCluster(uint32_t k) { return 2 * (k % 32); }
inline uint8_t clusterIdOf(uint32_t k) { return static_cast<uint8_t>(k / 32 + 1); }

// ---- Putting rows back ----------------------------------------------------

// A copy of some byte ranges of the region, written back on restore().
class Saved {
 public:
  Saved& range(const void* start, std::size_t length);
  template <typename Row>
  Saved& row(const Row& r) {
    return range(&r, sizeof r);
  }
  // Every table of the flow family: flows to active PHS rules.
  Saved& flowFamily();
  void take();
  void restore() const;

 private:
  struct Range {
    std::size_t offset;
    std::size_t length;
  };
  std::vector<Range> ranges_;
  std::vector<uint8_t> bytes_;
};

// The rows any add may touch in the kEmpty and kFullRoom layouts.
Saved rowsAnAddTouches();

}  // namespace qosbench
