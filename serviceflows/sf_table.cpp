// SPDX-License-Identifier: MIT
// sf_table.cpp - the service flow table (SF int DB).
//
// One 80-byte row per service flow the modem knows: flows accepted at
// registration, flows that DSX transactions are adding, changing or
// deleting, and placeholder rows (state `referenced`) for flows that a
// classifier or PHS rule names before the flow itself arrives. A row keeps
// the flow's names (reference and SFID), direction, SID, parameter-set bits,
// its transaction links (taIndex: working on it now, heldTaIndex: finished
// and still holding it) and its classifier, PHS and cluster counters; the
// QoS parameters themselves stay in the caller's own database.
//
// Scans of the used range stop at sfDbMaxIndex; rows are taken by the
// maximum-index rule shared with the classifier and cluster tables.
//
// Only this folder writes flow rows and the flow words of the statistics
// block. The client changes them through the exported operations; the
// classifier, PHS, SID cluster and outcome code through the narrow
// functions of serviceflows/internal.h. Nothing here may write a row of
// another table or call into another subsystem.
#include <cstring>

#include "frame/log.h"
#include "frame/out.h"
#include "qosintdb.h"
#include "serviceflows/internal.h"

using qos::local;

namespace {

void resetSfRow(qos::SfRow& row, int32_t qosDbIndex) {
  std::memset(&row, 0, sizeof row);
  row.taIndex = -1;
  row.heldTaIndex = -1;
  row.qosDbIndex = qosDbIndex;
}

}  // namespace

namespace qos {
namespace flows {

int32_t findById(uint32_t sfId) {
  return sfTable().findInRange([sfId](const SfRow& r) {
    return r.used() && r.state != QOS_SF_REFERENCED && r.sfId == sfId;
  });
}

// A table reset leaves qosDbIndex 0, a row reset -1.
void resetRows() {
  for (auto& row : local.sf) resetSfRow(row, 0);
  QosIntDbStats& stats = *local.stats;
  stats.reserved0 = 0;
  stats.sfNumber = 0;
  stats.sfDbMaxIndex = 0;
  stats.reserved36 = 0;
  stats.usPrimarySfRef = 0;
  stats.reserved50 = 0;
  stats.reserved52 = 0;
  stats.dsPrimarySfRef = 0;
  stats.reserved58 = 0;
  stats.reserved60 = 0;
}

}  // namespace flows
}  // namespace qos

extern "C" {

void qos_intDb_SfDb_RowReset(uint32_t sfIndex) {
  if (sfIndex >= qos::kSfRows || !local.sf.attached()) return;
  resetSfRow(local.sf[sfIndex], -1);
}

int32_t qos_intDb_FindSfDbNextFreeIndex(uint32_t* sfIndex) {
  QOS_REQUIRE_SF_DB(-1);
  return qos::sfTable().takeFreeInto(sfIndex);
}

int32_t qos_intDb_FindSfById(uint32_t sfId, uint32_t* sfIndex) {
  QOS_REQUIRE_SF_DB(-1);
  if (sfIndex == nullptr) return -1;
  return qos::writeRow(qos::flows::findById(sfId), sfIndex);
}

int32_t qos_intDb_GetSfDbMaxIndex(uint32_t* maxIndex) {
  QOS_REQUIRE_SF_DB(-1);
  return qos::writeOut(maxIndex, local.stats->sfDbMaxIndex);
}

int32_t qos_intDb_UpdateSfNumber(uint32_t* sfNumber) {
  QOS_REQUIRE_SF_DB(-1);
  if (sfNumber == nullptr) return -1;
  uint32_t freeRows = 0;
  for (const auto& row : local.sf) freeRows += row.used() ? 0 : 1;
  local.stats->sfNumber = freeRows;
  *sfNumber = freeRows;
  return 0;
}

int32_t qos_intDb_GetSfNumber(uint32_t* sfNumber) {
  QOS_REQUIRE_SF_DB(-1);
  return qos::writeOut(sfNumber, local.stats->sfNumber);
}

int32_t qos_intDb_GetNextSFDbIndex(void) { return -1; }

int32_t qos_intDb_DsdReqRecieved(void) { return 0; }

}  // extern "C"
