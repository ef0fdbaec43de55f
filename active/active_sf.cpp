// SPDX-License-Identifier: MIT
// active_sf.cpp - the active upstream service flow table (Active SF DB).
//
// One row per upstream flow that runs with its active parameter set, named
// by SFID; a flow's row index is its active index, the number by which the
// bonding change store and the SNMP walks know it. After registration the
// table is filled in one pass with the primary upstream flow in row 0;
// afterwards single entries come and go (a DSD that ends removes one).
// Only rows 0..31 ever hold an entry, the modem's limit of 32 active
// upstream flows; rows 32..63 are reserved.
//
// A free row remembers when it was released (releaseOrder): an add takes
// the free row released longest ago, not the lowest one, so that an active
// index that just went away is not handed to another flow at once. The
// counts in the statistics block follow every fill, add and delete.
//
// Only this folder writes the active flow and active PHS rows and the
// active counts of the statistics block; the fill asks serviceflows/ to
// record the primary upstream reference. Nothing here writes a flow row.
#include <cstdio>
#include <cstring>

#include "frame/log.h"
#include "frame/out.h"
#include "active/internal.h"
#include "qosintdb.h"
#include "serviceflows/internal.h"

using qos::ActiveSfRow;
using qos::local;
using qos::SfRow;

namespace {

constexpr int32_t kEntries = QOS_ACTIVE_SF_ROWS;

bool isActiveUpstream(const SfRow& r) {
  return r.direction == QOS_DIR_UPSTREAM && (r.paramSetType & QOS_PARAMSET_ACTIVE) != 0;
}

bool qualifiesForFill(const SfRow& r) { return r.state == QOS_SF_OPERATIONAL && isActiveUpstream(r); }

int32_t findEntry(uint32_t sfId) {
  return local.activeSf.find([sfId](const ActiveSfRow& r) { return r.used() && r.sfId == sfId; }, 0,
                             kEntries - 1);
}

void enter(ActiveSfRow& row, uint32_t sfId) {
  row.status = 1;
  row.sfId = sfId;
  row.releaseOrder = 0;
}

// The primary upstream flow for the fill: the one named by usPrimarySfRef,
// else the qualifying flow with the smallest reference (the lowest row of
// equal ones; a reference of 65535 never wins). -1 when nothing qualifies.
int32_t choosePrimary() {
  auto flows = qos::sfTable();
  uint16_t primaryRef = local.stats->usPrimarySfRef;
  if (primaryRef != 0) {
    int32_t row = flows.findInRange([primaryRef](const SfRow& r) { return qualifiesForFill(r) && r.ref == primaryRef; });
    if (row >= 0) return row;
  }
  int32_t best = -1;
  uint16_t bestRef = 0xFFFF;
  for (int32_t i = 0; i <= flows.last(); ++i) {
    if (qualifiesForFill(flows[i]) && flows[i].ref < bestRef) {
      best = i;
      bestRef = flows[i].ref;
    }
  }
  return best;
}

template <typename Table>
void rename(const Table& table, int32_t last, uint32_t oldSfId, uint32_t newSfId) {
  for (int32_t i = 0; i <= last; ++i) {
    if (table[i].used() && table[i].sfId == oldSfId) table[i].sfId = newSfId;
  }
}

}  // namespace

namespace qos {
namespace active {

void renameSfId(uint32_t oldSfId, uint32_t newSfId, uint8_t direction) {
  rename(local.activeSf, local.activeSf.kRows - 1, oldSfId, newSfId);
  const auto& phs = direction == QOS_DIR_UPSTREAM ? local.phsUs : local.phsDs;
  rename(phs, QOS_ACTIVE_PHS_ROWS - 1, oldSfId, newSfId);
}

void resetRows() {
  for (auto& row : local.activeSf) {
    std::memset(&row, 0, sizeof row);
    row.releaseOrder = 1;
  }
  for (std::size_t i = 0; i < kActivePhsReserved; ++i) {
    std::memset(&local.phsUs[i], 0, sizeof(ActivePhsRow));
    std::memset(&local.phsDs[i], 0, sizeof(ActivePhsRow));
  }
  local.stats->activeSfExtraNumber = 0;
  local.stats->activeSfNumber = 0;
}

}  // namespace active
}  // namespace qos

extern "C" {

int32_t qos_intDb_FillActiveUsSfTable(void) {
  QOS_REQUIRE_SF_DB(-1);
  int32_t primary = choosePrimary();
  if (primary < 0) {
    QOS_LOG(QOS_LOG_ERROR, "QOS: No active US Service Flow (cannot find Ref Id of primary SF)");
    return -1;
  }
  auto flows = qos::sfTable();
  qos::flows::setUsPrimaryRef(flows[primary].ref);
  enter(local.activeSf[0], flows[primary].sfId);

  // The table keeps 32 flows; a configuration that passed the consistency
  // check never has more. Any beyond are left out and reported once.
  int32_t written = 1;
  int32_t qualifying = 1;
  for (int32_t i = 0; i <= flows.last(); ++i) {
    if (i == primary || !qualifiesForFill(flows[i])) continue;
    ++qualifying;
    if (written < kEntries) enter(local.activeSf[written++], flows[i].sfId);
  }
  if (qualifying > written) {
    QOS_LOG(QOS_LOG_ERROR, "%s: Active SF DB is full. Only %d of %d active US Service Flows are entered",
            __func__, written, qualifying);
  }
  local.stats->activeSfNumber = static_cast<uint32_t>(written);
  local.stats->activeSfExtraNumber = static_cast<uint32_t>(written - 1);
  return 0;
}

int32_t qos_intDb_AddActiveUsSfEntry(uint32_t sfId) {
  QOS_REQUIRE_SF_DB(-1);
  if (sfId == 0) return -1;
  if (findEntry(sfId) >= 0) return 0;
  int32_t flow = qos::sfTable().findInRange(
      [sfId](const SfRow& r) { return r.used() && r.sfId == sfId && isActiveUpstream(r); });
  if (flow < 0) return -1;

  int32_t row = -1;
  for (int32_t i = 0; i < kEntries; ++i) {
    const ActiveSfRow& r = local.activeSf[i];
    if (!r.used() && (row < 0 || r.releaseOrder < local.activeSf[row].releaseOrder)) row = i;
  }
  if (row < 0) {
    QOS_LOG(QOS_LOG_ERROR, "%s: Active SF DB is full. SFID=0x%x cannot be added", __func__, sfId);
    return -1;
  }
  enter(local.activeSf[row], sfId);
  ++local.stats->activeSfExtraNumber;
  ++local.stats->activeSfNumber;
  return 0;
}

int32_t qos_intDb_DeleteActiveUsSfEntry(uint32_t sfId) {
  QOS_REQUIRE_SF_DB(-1);
  int32_t row = findEntry(sfId);
  if (row < 0) {
    QOS_LOG(QOS_LOG_ERROR, "%s: SFID=0x%x is not found into active SF DB", __func__, sfId);
    return -1;
  }
  int32_t latest = 0;
  for (int32_t i = 0; i < kEntries; ++i) {
    const ActiveSfRow& r = local.activeSf[i];
    if (!r.used() && r.releaseOrder > latest) latest = r.releaseOrder;
  }
  ActiveSfRow& entry = local.activeSf[row];
  // Wraps rather than overflows after 2^31 releases.
  entry.releaseOrder = static_cast<int32_t>(static_cast<uint32_t>(latest) + 1u);
  entry.sfId = 0;
  entry.status = 0;
  --local.stats->activeSfExtraNumber;
  --local.stats->activeSfNumber;
  return 0;
}

int32_t qos_intDb_GetActiveSfIndexBySfid(uint32_t sfId, uint32_t* activeIndex) {
  QOS_REQUIRE_SF_DB(-1);
  if (activeIndex == nullptr) return -1;
  return qos::writeRow(findEntry(sfId), activeIndex);
}

int32_t qos_intDb_GetActiveSfId(uint32_t activeIndex, uint32_t* sfId) {
  QOS_REQUIRE_SF_DB(-1);
  if (sfId == nullptr || activeIndex >= kEntries || !local.activeSf[activeIndex].used()) return -1;
  *sfId = local.activeSf[activeIndex].sfId;
  return 0;
}

int32_t qos_intDb_SetActiveSfId(uint32_t activeIndex, uint32_t sfId) {
  QOS_REQUIRE_SF_DB(-1);
  if (activeIndex >= kEntries || !local.activeSf[activeIndex].used()) return -1;
  local.activeSf[activeIndex].sfId = sfId;
  return 0;
}

int32_t qos_intDb_PrintActiveSfDB(void) {
  QOS_REQUIRE_SF_DB(-1);
  std::puts("\n   Active upstream Service Flow internal data base \n");
  int32_t i = 0;
  for (const ActiveSfRow& r : local.activeSf) {
    if (r.used()) std::printf("DB Idx=%-2d   SFID=0x%-8x  Row status=%d \n", i, r.sfId, static_cast<int>(r.status));
    ++i;
  }
  return 0;
}

}  // extern "C"
