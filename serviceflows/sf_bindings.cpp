// SPDX-License-Identifier: MIT
// sf_bindings.cpp - the flow row changes other subsystems ask for.
//
// Classifiers and PHS rules bind to their flow and move its counters, SID
// clusters count in it, the end of a transaction settles it: each through
// one function of serviceflows/internal.h, so that every write of a flow row
// is made in this folder. Nothing here checks, logs or calls out of the
// folder.
#include <cstring>

#include "frame/state.h"
#include "serviceflows/internal.h"

namespace qos {
namespace flows {

namespace {

constexpr int32_t kNone = -1;

void name(SfRow& row, const Placeholder& names) {
  row.state = QOS_SF_REFERENCED;
  if (names.hasRef) row.ref = static_cast<uint16_t>(names.ref);
  if (names.hasSfId) row.sfId = names.sfId;
  if (names.hasTa) row.taIndex = names.taIndex;
}

}  // namespace

int32_t bindClassifier(RowPick pick, const Placeholder& names) {
  if (pick.row < 0) return -1;
  SfRow& row = local.sf[pick.row];
  if (pick.found) {
    row.clsfCounter++;
  } else {
    name(row, names);
    row.clsfCounter = 1;
  }
  return pick.row;
}

int32_t bindPhsRule(RowPick pick, const Placeholder& names) {
  if (pick.row < 0) return -1;
  SfRow& row = local.sf[pick.row];
  if (!pick.found) name(row, names);
  row.phsCounter++;
  return pick.row;
}

void markChanging(uint32_t sfIndex, int32_t taIndex) {
  SfRow& row = local.sf[sfIndex];
  row.state = QOS_SF_CHANGING;
  row.taIndex = taIndex;
}

void workOn(uint32_t sfIndex, int32_t taIndex) { local.sf[sfIndex].taIndex = taIndex; }

void countAppendedClassifier(uint32_t sfIndex) {
  SfRow& row = local.sf[sfIndex];
  row.clsfCounter++;
  row.appendedClsfCounter++;
}

void countDeletedClassifier(uint32_t sfIndex) {
  SfRow& row = local.sf[sfIndex];
  row.clsfCounter--;
  row.deletedClsfCounter++;
}

void countPhsRule(uint32_t sfIndex) { local.sf[sfIndex].phsCounter++; }

// A counter wrapped to 4294967295 would make the consistency check refuse
// the flow's configuration for rules it does not have.
void dropPhsRules(uint32_t sfIndex, bool all) {
  uint32_t& counter = local.sf[sfIndex].phsCounter;
  if (all) {
    counter = 0;
  } else if (counter != 0) {
    counter--;
  }
}

void countCluster(uint32_t sfId, int8_t delta) {
  const int32_t i = findById(sfId);
  if (i < 0) return;
  int8_t& counter = local.sf[i].sidClusterCounter;
  counter = static_cast<int8_t>(static_cast<uint8_t>(counter) + static_cast<uint8_t>(delta));
}

void rename(uint32_t sfIndex, uint32_t sfId) { local.sf[sfIndex].sfId = sfId; }

void setUsPrimaryRef(uint16_t ref) { local.stats->usPrimarySfRef = ref; }

void holdIn(uint32_t sfIndex, uint32_t state, int32_t taIndex) {
  SfRow& row = local.sf[sfIndex];
  row.state = state;
  row.heldTaIndex = taIndex;
  row.taIndex = kNone;
}

void leaveIn(uint32_t sfIndex, uint32_t state) {
  SfRow& row = local.sf[sfIndex];
  row.state = state;
  row.taIndex = kNone;
}

void commit(uint32_t sfIndex, bool forgetRef) {
  SfRow& row = local.sf[sfIndex];
  if (forgetRef) row.ref = 0;
  row.committed = 1;
  row.pairSfIndex = kNone;
}

void uncommit(uint32_t sfIndex) { local.sf[sfIndex].committed = 0; }

void endHold(uint32_t sfIndex) { local.sf[sfIndex].heldTaIndex = kNone; }

void release(uint32_t sfIndex) {
  qos_intDb_SfDb_RowReset(sfIndex);
  lowerMaxIndex();
}

void forgetOperationalRefs() {
  for (auto& row : local.sf) {
    if (row.state == QOS_SF_OPERATIONAL) row.ref = 0;
  }
}

void lowerMaxIndex() { sfTable().lower(); }

}  // namespace flows
}  // namespace qos
