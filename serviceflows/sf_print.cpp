// SPDX-License-Identifier: MIT
// sf_print.cpp - diagnostic dumps of flow rows to standard output.
//
// A full dump of one row, field by field, and a one-line summary of one row
// or of every used row. They only read; the text goes to standard output,
// and the logger hears only of a process that has not attached. Indexes
// are printed with %d, so an unsigned index that was a negative number
// prints as that number.
#include <cstdio>

#include "frame/log.h"
#include "qosintdb.h"

using qos::local;
using qos::SfRow;

namespace {

constexpr int32_t kSfRowCount = static_cast<int32_t>(qos::kSfRows);

void printIncorrectIndex(int32_t sfIndex) {
  std::printf(" Incorrect SF internal DB index %d \n", static_cast<int>(sfIndex));
}

void printSummary(int32_t sfIndex, const SfRow& row) {
  std::printf(
      "SF DB Idx=%-2d   SFID=0x%-8x  Ref=%-2d  Dir=%d  Status=%d  ParamSetType=%d  SID=0x%-4x  "
      "ClustIdx=%d\n",
      static_cast<int>(sfIndex), static_cast<unsigned>(row.sfId), static_cast<int>(row.ref),
      static_cast<int>(row.direction), static_cast<int>(row.state),
      static_cast<int>(row.paramSetType), static_cast<unsigned>(row.sid),
      static_cast<int>(row.sidClusterIndex));
}

}  // namespace

extern "C" {

int32_t qos_intDb_fullPrintSF(uint32_t sfIndex) {
  QOS_REQUIRE_SF_DB(-1);
  const int index = static_cast<int>(sfIndex);
  if (sfIndex >= qos::kSfRows) {
    printIncorrectIndex(index);
    return -1;
  }
  const SfRow& row = local.sf[sfIndex];
  if (!row.used()) {
    std::printf("The specified SF internal DB entry is not used (index %d) \n", index);
    return -1;
  }
  std::printf("  SF DB Idx = %d    SFID = %-#8x    Ref = %d   Direction = %d   Status=%d   \n", index,
              static_cast<unsigned>(row.sfId), static_cast<int>(row.ref),
              static_cast<int>(row.direction), static_cast<int>(row.state));
  std::printf("  ParamSet Type      = %d\n", static_cast<int>(row.paramSetType));
  std::printf("  SID                = 0x%x\n", static_cast<unsigned>(row.sid));
  std::printf("  SID Cluster index  = %d\n", static_cast<int>(row.sidClusterIndex));
  std::printf("  Main DB index      = %d\n", static_cast<int>(row.qosDbIndex));
  std::printf("  Active TA db index = %d\n", static_cast<int>(row.taIndex));
  std::printf("  Held TA db index   = %d\n", static_cast<int>(row.heldTaIndex));
  std::printf("  Pair SF db index   = %d\n", static_cast<int>(row.pairSfIndex));
  std::printf("  SidClusterCounter  = %d\n", static_cast<int>(row.sidClusterCounter));
  std::printf("  clsf counter       = %d\n", static_cast<int>(row.clsfCounter));
  std::printf("  phs counter        = %d\n", static_cast<int>(row.phsCounter));
  std::puts("  ");
  return 0;
}

// An index above 127 prints every used row under a heading; free rows
// print nothing, and printing nothing is still a success.
int32_t qos_intDb_shortPrintSF(int32_t sfIndex) {
  QOS_REQUIRE_SF_DB(-1);
  if (sfIndex < 0) {
    printIncorrectIndex(sfIndex);
    return -1;
  }
  const bool whole = sfIndex >= kSfRowCount;
  if (whole) std::puts("   Service Flow internal data base \n");
  const int32_t from = whole ? 0 : sfIndex;
  const int32_t to = whole ? kSfRowCount - 1 : sfIndex;
  for (int32_t i = from; i <= to; ++i) {
    if (local.sf[i].used()) printSummary(i, local.sf[i]);
  }
  return 0;
}

}  // extern "C"
