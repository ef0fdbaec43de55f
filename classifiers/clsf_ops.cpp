// SPDX-License-Identifier: MIT
// clsf_ops.cpp - adding classifiers and marking them for change or deletion.
//
// Three adds, one per source of classifiers: registration (operational at
// once, no transaction), and a DSA naming the classifier by reference or by
// identifier (adding, bound to the transaction). Four DSC operations work on
// a flow the caller has already found by its row index: append by reference
// or identifier, change, delete. Every operation has serviceflows/ move the
// flow's classifier counters (and mark or create the flow row) at the
// moment it marks a row; the outcome processing settles the rows when the
// transaction ends and never touches the counters.
//
// Arrival order is free: an add that names a flow the table does not hold
// creates the flow row as a placeholder (state `referenced`), which the
// flow's own add takes over later; an add that finds a PHS placeholder for
// its classifier takes that row over. A failing add leaves every row as it
// was; only a maximum index raised while choosing a row may stay raised.
// The DSC operations mark the flow `changing` first and leave it so even
// when placing the classifier fails afterwards.
#include "frame/log.h"
#include "qosintdb.h"
#include "serviceflows/internal.h"

using qos::ClsfRow;
using qos::local;
using qos::SfRow;

namespace {

constexpr int32_t kHighestTaIndex = 10;  // the message store's extra record passes too

// A PHS placeholder that a classifier with this flow reference may take over.
bool placeholderFor(const ClsfRow& r, uint32_t sfRef) {
  return r.status == QOS_CLSF_PHS_PLACEHOLDER && uint32_t{r.sfRef} == sfRef;
}

// The silent range checks of the DSC operations.
bool dscArgsValid(uint32_t sfIndex, uint32_t clsfIndex, int32_t taIndex) {
  return sfIndex < qos::kSfRows && clsfIndex < qos::kClsfRows && taIndex >= 0 &&
         taIndex <= kHighestTaIndex;
}

void writeAdding(ClsfRow& row, int32_t taIndex) {
  row.status = QOS_CLSF_ADDING;
  row.taIndex = taIndex;
}

}  // namespace

extern "C" {

int32_t qos_intDb_AddClsf(uint32_t sfId, uint32_t sfRef, uint32_t clsfRef) {
  QOS_REQUIRE_SF_DB(-1);
  const qos::RowPick pick = qos::clsfTable().findOrTakeFree(
      [clsfRef](const ClsfRow& r) { return uint32_t{r.ref} == clsfRef; });
  int32_t c = pick.row;
  if (pick.found && !placeholderFor(local.clsf[c], sfRef)) return -1;
  if (c < 0) {
    QOS_LOG(QOS_LOG_ERROR, "%s: Classifier int DB is full. Clsf Ref=%d cannot be added to DB",
            __func__, static_cast<int>(clsfRef));
    return -1;
  }
  const qos::RowPick flowPick = qos::flows::pickRow(
      [sfRef](const SfRow& r) { return r.used() && uint32_t{r.ref} == sfRef; });
  if (flowPick.found && local.sf[flowPick.row].state != QOS_SF_REFERENCED &&
      local.sf[flowPick.row].sfId != sfId) {
    return -1;
  }
  if (qos::flows::bindClassifier(flowPick, qos::flows::Placeholder().withRef(sfRef).withSfId(sfId)) < 0) {
    QOS_LOG(QOS_LOG_ERROR,
            "%s: SF int DB is full. Referenced SF cannot be added to DB for Clsf Ref=%d", __func__,
            static_cast<int>(clsfRef));
    return -1;
  }
  ClsfRow& row = local.clsf[c];
  row.status = QOS_CLSF_OPERATIONAL;
  row.ref = static_cast<uint8_t>(clsfRef);
  row.sfRef = static_cast<uint16_t>(sfRef);
  return 0;
}

int32_t qos_intDb_AddClsfRef(uint32_t sfRef, uint32_t clsfRef, int32_t taIndex) {
  QOS_REQUIRE_SF_DB(-1);
  const qos::RowPick pick = qos::clsfTable().findOrTakeFree([clsfRef, taIndex](const ClsfRow& r) {
    return uint32_t{r.ref} == clsfRef && r.taIndex == taIndex;
  });
  int32_t c = pick.row;
  if (pick.found && !placeholderFor(local.clsf[c], sfRef)) {
    QOS_LOG(QOS_LOG_ERROR,
            "%s: Clsf with Ref=%d and TA idx=%d already exists. DB idx=%d, SF Ref=%d", __func__,
            static_cast<int>(clsfRef), static_cast<int>(taIndex), static_cast<int>(c),
            static_cast<int>(sfRef));
    return -1;
  }
  if (c < 0) {
    QOS_LOG(QOS_LOG_ERROR, "%s: Classifier int DB is full. Clsf Ref=%d cannot be added to DB",
            __func__, static_cast<int>(clsfRef));
    return -1;
  }
  const qos::RowPick flowPick = qos::flows::pickRow([sfRef, taIndex](const SfRow& r) {
    return uint32_t{r.ref} == sfRef && r.taIndex == taIndex;
  });
  if (qos::flows::bindClassifier(flowPick, qos::flows::Placeholder().withRef(sfRef).withTa(taIndex)) < 0) {
    QOS_LOG(QOS_LOG_ERROR,
            "%s: SF int DB is full. Referenced SF cannot be added to DB for Clsf Ref=%d", __func__,
            static_cast<int>(clsfRef));
    return -1;
  }
  ClsfRow& row = local.clsf[c];
  writeAdding(row, taIndex);
  row.sfRef = static_cast<uint16_t>(sfRef);
  row.ref = static_cast<uint8_t>(clsfRef);
  return 0;
}

int32_t qos_intDb_AddClsfId(uint32_t sfId, uint32_t clsfId, int32_t taIndex) {
  QOS_REQUIRE_SF_DB(-1);
  const qos::RowPick pick = qos::clsfTable().findOrTakeFree(
      [sfId, clsfId](const ClsfRow& r) { return r.sfId == sfId && uint32_t{r.clsfId} == clsfId; });
  int32_t c = pick.row;
  if (c < 0) {
    QOS_LOG(QOS_LOG_ERROR, "%s: Classifier int DB is full. Clsf Id=%d cannot be added to DB",
            __func__, static_cast<int>(clsfId));
    return -1;
  }
  const qos::RowPick flowPick = qos::flows::pickRow([sfId](const SfRow& r) { return r.sfId == sfId; });
  const int32_t f = qos::flows::bindClassifier(flowPick, qos::flows::Placeholder().withSfId(sfId));
  if (f < 0) {
    QOS_LOG(QOS_LOG_ERROR,
            "%s: SF int DB is full. Referenced SF cannot be added to DB for Clsf Id=%d", __func__,
            static_cast<int>(clsfId));
    return -1;
  }
  qos::flows::workOn(static_cast<uint32_t>(f), taIndex);
  ClsfRow& row = local.clsf[c];
  writeAdding(row, taIndex);
  row.sfId = sfId;
  row.clsfId = static_cast<uint16_t>(clsfId);
  return 0;
}

int32_t qos_intDb_AppendClsfRef(uint32_t sfIndex, uint32_t clsfRef, int32_t taIndex) {
  QOS_REQUIRE_SF_DB(-1);
  if (!dscArgsValid(sfIndex, 0, taIndex)) return -1;
  qos::flows::markChanging(sfIndex, taIndex);
  const SfRow& flow = local.sf[sfIndex];
  const qos::RowPick pick = qos::clsfTable().findOrTakeFree([clsfRef, taIndex](const ClsfRow& r) {
    return uint32_t{r.ref} == clsfRef && r.taIndex == taIndex;
  });
  int32_t c = pick.row;
  if (pick.found && !placeholderFor(local.clsf[c], flow.ref)) {
    QOS_LOG(QOS_LOG_ERROR, "%s: Clsf with Ref=%d and TA idx=%d already exists. DB idx=%d, SF Id=%d",
            __func__, static_cast<int>(clsfRef), static_cast<int>(taIndex), static_cast<int>(c),
            static_cast<int>(flow.sfId));
    return -1;
  }
  if (c < 0) {
    QOS_LOG(
        QOS_LOG_ERROR,
        "%s: Classifier int DB is full. Clsf Ref =%d of service flow SFID=%d cannot be added to DB",
        __func__, static_cast<int>(clsfRef), static_cast<int>(flow.sfId));
    return -1;
  }
  ClsfRow& row = local.clsf[c];
  writeAdding(row, taIndex);
  row.sfId = flow.sfId;
  row.ref = static_cast<uint8_t>(clsfRef);
  qos::flows::countAppendedClassifier(sfIndex);
  return 0;
}

int32_t qos_intDb_AppendClsfId(uint32_t sfIndex, uint32_t clsfId, int32_t taIndex) {
  QOS_REQUIRE_SF_DB(-1);
  if (!dscArgsValid(sfIndex, 0, taIndex)) return -1;
  qos::flows::markChanging(sfIndex, taIndex);
  const uint32_t sfId = local.sf[sfIndex].sfId;
  const qos::RowPick pick = qos::clsfTable().findOrTakeFree(
      [sfId, clsfId](const ClsfRow& r) { return r.sfId == sfId && uint32_t{r.clsfId} == clsfId; });
  int32_t c = pick.row;
  if (c < 0) {
    QOS_LOG(
        QOS_LOG_ERROR,
        "%s: Classifier int DB is full. Clsf Id=%d of service flow SFID=%d cannot be added to DB",
        __func__, static_cast<int>(clsfId), static_cast<int>(sfId));
    return -1;
  }
  ClsfRow& row = local.clsf[c];
  writeAdding(row, taIndex);
  row.sfId = sfId;
  row.clsfId = static_cast<uint16_t>(clsfId);
  qos::flows::countAppendedClassifier(sfIndex);
  return 0;
}

// Callers have checked that the rows are in use, belong together and are
// free of other transactions; this only marks them.
int32_t qos_intDb_ChangeClassifier(uint32_t sfIndex, uint32_t clsfIndex, int32_t taIndex) {
  QOS_REQUIRE_SF_DB(-1);
  if (!dscArgsValid(sfIndex, clsfIndex, taIndex)) return -1;
  qos::flows::markChanging(sfIndex, taIndex);
  ClsfRow& row = local.clsf[clsfIndex];
  row.status = QOS_CLSF_CHANGING;
  row.taIndex = taIndex;
  return 0;
}

// The counters move now; the row is freed only if the transaction succeeds.
int32_t qos_intDb_DeleteClassifier(uint32_t sfIndex, uint32_t clsfIndex, int32_t taIndex) {
  QOS_REQUIRE_SF_DB(-1);
  if (!dscArgsValid(sfIndex, clsfIndex, taIndex)) return -1;
  qos::flows::markChanging(sfIndex, taIndex);
  qos::flows::countDeletedClassifier(sfIndex);
  ClsfRow& row = local.clsf[clsfIndex];
  row.status = QOS_CLSF_DELETING;
  row.taIndex = taIndex;
  return 0;
}

}  // extern "C"
