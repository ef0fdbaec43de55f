// SPDX-License-Identifier: MIT
// sf_ops.cpp - adding, finding and marking service flows.
//
// Flows enter the SF int DB three ways: at registration, operational at
// once with reference and SFID (qos_intDb_AddSf); in a modem-initiated DSA
// by reference under the transaction's TA DB index; in a CMTS-initiated DSA
// by SFID. Each add takes over a row that already answers to the flow (a
// placeholder a classifier or PHS rule left, or an earlier add of the same
// flow) and otherwise takes a row by the maximum-index rule; a taken-over
// row keeps its counters. A DSC marks a flow changing, a DSD deleting, each
// under the transaction now working on it; the transaction's end is
// outcome processing's business, not this file's.
//
// Lookups by reference or SFID scan the used range (rows 0 to sfDbMaxIndex);
// lookups by transaction scan all 128 rows, since a transaction's rows can
// lie anywhere. Each lookup has its own state filter: the reference lookup
// and the transaction walk skip placeholders, the transaction lookups skip
// only free rows, and the take-over scans of the adds and the lookup by
// transaction and reference look at no state at all. Reference and
// direction arguments are compared whole, so a value wider than its field
// never matches a row; it is stored as its low bits.
#include "frame/log.h"
#include "frame/out.h"
#include "qosintdb.h"
#include "serviceflows/internal.h"

using qos::local;
using qos::SfRow;

namespace {

constexpr int32_t kLastSfRow = static_cast<int32_t>(qos::kSfRows) - 1;
constexpr int32_t kHighestTaIndex = 10;  // the message store's extra record counts too

// The row after prevIndex: row 0 for a negative prevIndex.
int32_t rowAfter(int32_t prevIndex) { return prevIndex < 0 ? 0 : prevIndex + 1; }

bool isFlow(const SfRow& r) { return r.used() && r.state != QOS_SF_REFERENCED; }

}  // namespace

extern "C" {

int32_t qos_intDb_AddSf(uint32_t sfId, uint32_t ref, uint32_t direction) {
  QOS_REQUIRE_SF_DB(-1);
  if (local.stats == nullptr) QOS_LOG(QOS_LOG_ERROR, "%s(): QosIntDbStats = NULL)", __func__);
  if (!local.sf.attached()) QOS_LOG(QOS_LOG_ERROR, "%s(): SFStatsDb = NULL)", __func__);
  if (local.stats == nullptr || !local.sf.attached()) return -1;

  auto table = qos::sfTable();
  int32_t i = table.findOrTakeFree([ref](const SfRow& r) { return r.ref == ref; }).row;
  if (i < 0) {
    QOS_LOG(QOS_LOG_ERROR, "%s: SF int DB is full. SFId = 0x%x SF Ref=%d cannot be added to DB",
            __func__, static_cast<unsigned>(sfId), static_cast<int>(ref));
    return -1;
  }
  SfRow& row = table[i];
  row.direction = static_cast<uint8_t>(direction);
  row.state = QOS_SF_OPERATIONAL;
  row.ref = static_cast<uint16_t>(ref);
  row.sfId = sfId;

  // Clusters may have been stored before the flow; every cluster row of the
  // SFID, whatever its status, adds one to the count the row already holds.
  // The cluster rows are only read here.
  for (const qos::SidClusterRow& cluster : local.sidClusters) {
    if (cluster.sfId != sfId) continue;
    row.sidClusterCounter = static_cast<int8_t>(static_cast<uint8_t>(row.sidClusterCounter) + 1);
  }
  return 0;
}

int32_t qos_intDb_AddSfReference(uint32_t ref, uint32_t direction, int32_t taIndex) {
  QOS_REQUIRE_SF_DB(-1);
  auto table = qos::sfTable();
  int32_t i =
      table.findOrTakeFree([=](const SfRow& r) { return r.ref == ref && r.taIndex == taIndex; }).row;
  if (i < 0) {
    QOS_LOG(QOS_LOG_ERROR,
            "%s: SF int DB is full. SF Ref=%d of TA index = %d cannot be added to DB", __func__,
            static_cast<int>(ref), static_cast<int>(taIndex));
    return -1;
  }
  SfRow& row = table[i];
  row.state = QOS_SF_ADDING;
  row.direction = static_cast<uint8_t>(direction);
  row.ref = static_cast<uint16_t>(ref);
  row.taIndex = taIndex;
  return 0;
}

int32_t qos_intDb_AddSfId(uint32_t sfId, uint32_t direction, int32_t taIndex) {
  QOS_REQUIRE_SF_DB(-1);
  auto table = qos::sfTable();
  auto pick = table.findOrTakeFree([sfId](const SfRow& r) { return r.sfId == sfId; });
  int32_t i = pick.row;
  if (pick.found && table[i].taIndex != taIndex) {
    QOS_LOG(QOS_LOG_ERROR, "Add SF ID to int DB: SFID=0x%x already exists with TA index=%d",
            static_cast<unsigned>(sfId), static_cast<int>(table[i].taIndex));
    return -1;
  }
  if (i < 0) {
    QOS_LOG(QOS_LOG_ERROR,
            "%s: SF int DB is full. SF ID = 0x%x of TA index = %d cannot be added to DB",
            __func__, static_cast<unsigned>(sfId), static_cast<int>(taIndex));
    return -1;
  }
  SfRow& row = table[i];
  row.state = QOS_SF_ADDING;
  row.direction = static_cast<uint8_t>(direction);
  row.sfId = sfId;
  row.taIndex = taIndex;
  return 0;
}

// Any transaction value is stored; heldTaIndex is left alone.
int32_t qos_intDb_ChangeSF(uint32_t sfIndex, int32_t taIndex) {
  QOS_REQUIRE_SF_DB(-1);
  if (sfIndex >= qos::kSfRows) return -1;
  qos::flows::markChanging(sfIndex, taIndex);
  return 0;
}

// Whatever the flow's state, it becomes deleting; the transaction that was
// working on it now only holds it.
int32_t qos_intDb_StartDeleteSF(uint32_t sfIndex, int32_t taIndex) {
  QOS_REQUIRE_SF_DB(-1);
  if (sfIndex >= qos::kSfRows || taIndex < 0 || taIndex > kHighestTaIndex) return -1;
  SfRow& row = local.sf[sfIndex];
  row.state = QOS_SF_DELETING;
  if (row.taIndex >= 0) row.heldTaIndex = row.taIndex;
  row.taIndex = taIndex;
  return 0;
}

int32_t qos_intDb_FindSfByRef(uint32_t ref, uint32_t* sfIndex) {
  QOS_REQUIRE_SF_DB(-1);
  if (sfIndex == nullptr) return -1;
  return qos::writeRow(qos::sfTable().findInRange(
                    [ref](const SfRow& r) { return isFlow(r) && r.ref == ref; }),
                sfIndex);
}

// Writes -1 before it looks, so a miss leaves -1 behind.
int32_t qos_intDb_FindSfByTaAndRef(uint32_t ref, int32_t taIndex, uint32_t* sfIndex) {
  QOS_REQUIRE_SF_DB(-1);
  if (taIndex < 0 || sfIndex == nullptr) return -1;
  *sfIndex = static_cast<uint32_t>(-1);
  return qos::writeRow(qos::sfTable().findInRange(
                    [=](const SfRow& r) { return r.ref == ref && r.taIndex == taIndex; }),
                sfIndex);
}

int32_t qos_intDb_FindSFByTaIndex(int32_t taIndex, uint32_t* sfIndex) {
  QOS_REQUIRE_SF_DB(-1);
  if (sfIndex == nullptr) return -1;
  return qos::writeRow(local.sf.find([taIndex](const SfRow& r) { return r.used() && r.taIndex == taIndex; }),
                sfIndex);
}

int32_t qos_intDb_FindSFByTaIndexAndDirection(int32_t taIndex, uint32_t direction,
                                              uint32_t* sfIndex) {
  QOS_REQUIRE_SF_DB(-1);
  if (sfIndex == nullptr) return -1;
  return qos::writeRow(local.sf.find([=](const SfRow& r) {
    return r.used() && r.taIndex == taIndex && r.direction == direction;
  }),
                sfIndex);
}

int32_t qos_intDb_NextSFIndexOfTa(int32_t taIndex, int32_t prevIndex, uint32_t* sfIndex) {
  QOS_REQUIRE_SF_DB(-1);
  if (prevIndex > kLastSfRow || taIndex < 0 || sfIndex == nullptr) return -1;
  *sfIndex = static_cast<uint32_t>(-1);
  return qos::writeRow(local.sf.find([taIndex](const SfRow& r) { return isFlow(r) && r.taIndex == taIndex; },
                              rowAfter(prevIndex)),
                sfIndex);
}

int32_t qos_intDb_GetSfTaIndexAndPairSf(uint32_t sfIndex, uint32_t* taIndex,
                                        uint32_t* pairSfIndex) {
  QOS_REQUIRE_SF_ROW(sfIndex, -1);
  const SfRow& row = local.sf[sfIndex];
  if (taIndex == nullptr || !row.used()) return -1;
  const int32_t ta = row.taIndex;
  *taIndex = static_cast<uint32_t>(ta);
  if (ta < 0) return -1;
  if (pairSfIndex == nullptr) return 0;
  int32_t pair = qos::sfTable().findInRange(
      [&](const SfRow& r) { return &r != &row && r.used() && r.taIndex == ta; });
  *pairSfIndex = static_cast<uint32_t>(pair);
  return 0;
}

// The flow's state is not looked at: an upstream row with the active set
// bit counts in whatever state it is.
int32_t qos_intDb_FindNextActiveSf(int32_t prevIndex, uint32_t* sfIndex) {
  QOS_REQUIRE_SF_DB(-1);
  if (prevIndex > kLastSfRow) {
    QOS_LOG(QOS_LOG_ERROR, "func: %s, no next US active SF (input SfDbIndex %d) ", __func__,
            static_cast<int>(prevIndex));
    return -1;
  }
  if (sfIndex == nullptr) return -1;
  int32_t i = local.sf.find(
      [](const SfRow& r) {
        return r.direction == QOS_DIR_UPSTREAM && (r.paramSetType & QOS_PARAMSET_ACTIVE) != 0;
      },
      rowAfter(prevIndex));
  if (i < 0) {
    QOS_LOG(QOS_LOG_ERROR, "func: %s, no next US active SF has been found ", __func__);
    return -1;
  }
  *sfIndex = static_cast<uint32_t>(i);
  return 0;
}

int32_t qos_intDb_FindSFIdValid(uint32_t sfId) {
  (void)sfId;
  return -1;
}

}  // extern "C"
