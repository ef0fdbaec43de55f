// SPDX-License-Identifier: MIT
// clsf_table.cpp - the classifier table (Clsf int DB).
//
// One 20-byte row per packet classifier the modem knows: its names (the
// one-byte reference used inside one configuration or DSX message, the
// two-byte identifier the CMTS assigns), the flow it feeds (by reference
// and by SFID), its place in the DSX life cycle and the transaction working
// on it. No match criteria live here, only identity, binding and state.
// Rows in status `phsPlaceholder` are not classifiers yet: a PHS rule named
// them first, and the add that names the same classifier takes them over.
// Lookups that answer "which classifier is meant" pass over placeholders;
// lookups by identifier, transaction or flow see them.
//
// Scans cover rows 0 to clsfDbMaxIndex; new rows come from the maximum-index
// rule shared with the flow and cluster tables. This file holds the lookups,
// the accessors, the free-row search and the dump; clsf_ops.cpp adds and
// marks classifiers; clsf_bindings.cpp makes the changes PHS rules and the
// end of a transaction ask for. Only this folder writes classifier rows and
// the classifier words of the statistics block; it asks serviceflows/ for
// every change of a flow row and never writes one. Nothing here ever
// writes a row other than the one whose index the caller passed.
#include <cstdio>

#include "frame/log.h"
#include "frame/out.h"
#include "qosintdb.h"

using qos::ClsfRow;
using qos::local;

namespace {

constexpr int32_t kRows = static_cast<int32_t>(qos::kClsfRows);

// A row that stands for a real classifier (neither free nor a placeholder).
bool isClassifier(const ClsfRow& r) { return r.used() && r.status != QOS_CLSF_PHS_PLACEHOLDER; }

// Writes the first row of the scanned range that satisfies pred; -1 if none.
template <typename Pred>
int32_t findInto(uint32_t* clsfIndex, Pred pred) {
  if (clsfIndex == nullptr) return -1;
  return qos::writeRow(qos::clsfTable().findInRange(pred), clsfIndex);
}

void printRow(int32_t i, const ClsfRow& r) {
  std::printf(
      "Clsf DB Idx=%-2d   ClsfID=0x%-4x   Ref=%-2d   SFID=0x%-8x   SF Ref=%-2d  Status=%d  TaIndex=%d \n",
      static_cast<int>(i), static_cast<unsigned>(r.clsfId), static_cast<int>(r.ref),
      static_cast<unsigned>(r.sfId), static_cast<int>(r.sfRef), static_cast<int>(r.status),
      static_cast<int>(r.taIndex));
}

}  // namespace

extern "C" {

int32_t qos_intDb_FindClsfByRef(uint32_t ref, uint32_t* clsfIndex) {
  QOS_REQUIRE_SF_DB(-1);
  return findInto(clsfIndex,
                  [ref](const ClsfRow& r) { return isClassifier(r) && uint32_t{r.ref} == ref; });
}

int32_t qos_intDb_FindClsfById(uint32_t clsfId, uint32_t sfId, uint32_t* clsfIndex) {
  QOS_REQUIRE_SF_DB(-1);
  return findInto(clsfIndex, [clsfId, sfId](const ClsfRow& r) {
    return r.used() && uint32_t{r.clsfId} == clsfId && r.sfId == sfId;
  });
}

int32_t qos_intDb_FindClsfByTaAndRef(uint32_t ref, uint32_t taIndex, uint32_t* clsfIndex) {
  QOS_REQUIRE_SF_DB(-1);
  return findInto(clsfIndex, [ref, taIndex](const ClsfRow& r) {
    return r.used() && uint32_t{r.ref} == ref && static_cast<uint32_t>(r.taIndex) == taIndex;
  });
}

int32_t qos_intDb_GetNextClsfOfSf(uint32_t sfId, int32_t prevIndex, uint16_t* clsfId,
                                  uint32_t* clsfIndex) {
  QOS_REQUIRE_SF_DB(-1);
  if (prevIndex >= kRows || clsfId == nullptr || clsfIndex == nullptr) return -1;
  int32_t from = prevIndex < 0 ? 0 : prevIndex + 1;
  int32_t row = qos::clsfTable().findInRange(
      [sfId](const ClsfRow& r) { return r.used() && r.sfId == sfId; }, from);
  if (row < 0) return -1;
  *clsfId = local.clsf[row].clsfId;
  *clsfIndex = static_cast<uint32_t>(row);
  return 0;
}

int32_t qos_intDb_IsClsfInDeleting(uint32_t clsfIndex, uint32_t* deleting) {
  QOS_REQUIRE_CLSF_ROW(clsfIndex, -1);
  if (deleting == nullptr) return -1;
  *deleting = local.clsf[clsfIndex].status == QOS_CLSF_DELETING ? 1 : 0;
  return 0;
}

int32_t qos_intDb_SetClsfId(uint32_t clsfIndex, uint32_t clsfId) {
  QOS_REQUIRE_CLSF_ROW(clsfIndex, -1);
  local.clsf[clsfIndex].clsfId = static_cast<uint16_t>(clsfId);
  return 0;
}

// 0 only for a real classifier whose identifier is known.
int32_t qos_intDb_GetClsfId(uint32_t clsfIndex, uint16_t* clsfId) {
  QOS_REQUIRE_CLSF_ROW(clsfIndex, -1);
  const ClsfRow& r = local.clsf[clsfIndex];
  if (clsfId == nullptr || !isClassifier(r) || r.clsfId == 0) return -1;
  *clsfId = r.clsfId;
  return 0;
}

int32_t qos_intDb_SetClsfSfid(uint32_t clsfIndex, uint32_t sfId) {
  QOS_REQUIRE_CLSF_ROW(clsfIndex, -1);
  local.clsf[clsfIndex].sfId = sfId;
  return 0;
}

int32_t qos_intDb_GetClsfSfid(uint32_t clsfIndex, uint32_t* sfId) {
  QOS_REQUIRE_CLSF_ROW(clsfIndex, -1);
  const ClsfRow& r = local.clsf[clsfIndex];
  if (sfId == nullptr || !isClassifier(r)) return -1;
  *sfId = r.sfId;
  return 0;
}

int32_t qos_intDb_GetClsfDbMaxIndex(uint32_t* maxIndex) {
  QOS_REQUIRE_SF_DB(-1);
  return qos::writeOut(maxIndex, local.stats->clsfDbMaxIndex);
}

// Stored as given: a value below 1 (or above INT32_MAX, read back signed)
// switches the consistency check's limit off.
int32_t qos_intDb_SetClsfMaxNum(uint32_t maxNum) {
  QOS_REQUIRE_SF_DB(-1);
  local.stats->clsfMaxNum = static_cast<int32_t>(maxNum);
  return 0;
}

int32_t qos_intDb_GetClsfMaxNum(uint32_t* maxNum) {
  QOS_REQUIRE_SF_DB(-1);
  return qos::writeOut(maxNum, local.stats->clsfMaxNum);
}

int32_t qos_intDb_GetClsfNumber(uint32_t* clsfNumber) {
  QOS_REQUIRE_SF_DB(-1);
  return qos::writeOut(clsfNumber, local.stats->clsfNumber);
}

// The row is not claimed: the caller writes its status under the same lock.
int32_t qos_intDb_FindClsfDbNextFreeIndex(uint32_t* clsfIndex) {
  QOS_REQUIRE_SF_DB(-1);
  return qos::clsfTable().takeFreeInto(clsfIndex);
}

int32_t qos_intDb_PrintClsf(int32_t clsfIndex) {
  QOS_REQUIRE_SF_DB(-1);
  if (clsfIndex < 0) {
    std::printf(" Incorrect classifier internal DB index %d \n", static_cast<int>(clsfIndex));
    return -1;
  }
  int32_t first = clsfIndex;
  int32_t last = clsfIndex;
  if (clsfIndex >= kRows) {
    std::puts("   Classifier internal data base \n");
    first = 0;
    last = kRows - 1;
  }
  for (int32_t i = first; i <= last; ++i) {
    if (local.clsf[i].used()) printRow(i, local.clsf[i]);
  }
  return 0;
}

}  // extern "C"
