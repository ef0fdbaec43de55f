// SPDX-License-Identifier: MIT
// clsf_bindings.cpp - the classifier row changes other subsystems ask for.
//
// PHS placeholders, the settling of a transaction's classifiers, the
// renaming of a flow and the table reset: each through one function of
// classifiers/internal.h, so that every write of a classifier row is made
// in this folder. Nothing here calls out of the folder.
#include <cstring>

#include "classifiers/internal.h"
#include "frame/log.h"

namespace qos {
namespace classifiers {

namespace {

constexpr int32_t kNone = -1;

void free(ClsfRow& row) {
  std::memset(&row, 0, sizeof row);
  row.status = QOS_CLSF_EMPTY;
  row.taIndex = kNone;
}

}  // namespace

void makePhsPlaceholder(int32_t clsfIndex, const Placeholder& names) {
  ClsfRow& row = local.clsf[clsfIndex];
  row.status = QOS_CLSF_PHS_PLACEHOLDER;
  if (names.hasRef) row.ref = static_cast<uint8_t>(names.ref);
  if (names.hasSfRef) row.sfRef = static_cast<uint16_t>(names.sfRef);
  if (names.hasClsfId) row.clsfId = static_cast<uint16_t>(names.clsfId);
  if (names.hasSfId) row.sfId = names.sfId;
  if (names.hasTa) row.taIndex = names.taIndex;
}

void workOn(int32_t clsfIndex, int32_t taIndex) { local.clsf[clsfIndex].taIndex = taIndex; }

void settleAdded(int32_t clsfIndex) {
  ClsfRow& row = local.clsf[clsfIndex];
  row.status = QOS_CLSF_OPERATIONAL;
  row.sfRef = 0;
  row.taIndex = kNone;
  row.ref = 0;
}

void settleChanged(int32_t clsfIndex) {
  ClsfRow& row = local.clsf[clsfIndex];
  switch (row.status) {
    case QOS_CLSF_ADDING:
    case QOS_CLSF_CHANGING:
      row.status = QOS_CLSF_OPERATIONAL;
      break;
    case QOS_CLSF_DELETING:
      release(clsfIndex);
      return;
    default:
      QOS_LOG_AS("qos_intDb_UpdateSfOnTaSucceeded", QOS_MODULE_TABLES, QOS_LOG_NOTICE,
                 "Incorrect status %d of classifier ClsfID=0x%x on DSC success processing",
                 static_cast<int>(row.status), static_cast<unsigned>(row.clsfId));
      break;
  }
  row.taIndex = kNone;
}

void undoChange(int32_t clsfIndex) {
  ClsfRow& row = local.clsf[clsfIndex];
  if (row.status == QOS_CLSF_ADDING) {
    release(clsfIndex);
    return;
  }
  if (row.status == QOS_CLSF_CHANGING || row.status == QOS_CLSF_DELETING) row.status = QOS_CLSF_OPERATIONAL;
  row.taIndex = kNone;
}

void release(int32_t clsfIndex) {
  free(local.clsf[clsfIndex]);
  lowerMaxIndex();
}

void forgetOperationalRefs() {
  for (auto& row : local.clsf) {
    if (row.status != QOS_CLSF_OPERATIONAL) continue;
    row.ref = 0;
    row.sfRef = 0;
  }
}

void renameSfId(uint32_t oldSfId, uint32_t newSfId) {
  for (auto& row : local.clsf) {
    if (row.used() && row.sfId == oldSfId) row.sfId = newSfId;
  }
}

void resetRows() {
  for (auto& row : local.clsf) free(row);
  QosIntDbStats& stats = *local.stats;
  stats.clsfNumber = 0;
  stats.clsfDbMaxIndex = 0;
  stats.clsfMaxNum = 160;
}

void lowerMaxIndex() { clsfTable().lower(); }

}  // namespace classifiers
}  // namespace qos
