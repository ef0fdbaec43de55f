// SPDX-License-Identifier: MIT
// phs_rules.cpp - PHS rule bindings.
//
// A PHS rule has no row of its own and none of its suppression parameters
// are kept here: what the database keeps is the binding. The owning flow's
// phsCounter counts its rules; the classifier the rule names must exist or
// is stood in for by a placeholder classifier row (status
// `phsPlaceholder`) carrying the names the rule gave, which the classifier's
// own add takes over later. The registration and DSA adds also create a
// placeholder flow row (state `referenced`) when the flow is not known yet;
// the DSC operations need the flow to exist and leave it `changing` under
// the caller's transaction. The counters change when the operation runs;
// the outcome processing never touches them.
//
// This folder owns no row: the flow rows change through serviceflows/ and
// the placeholder classifier rows through classifiers/, each by the narrow
// functions of their internal headers; nothing here may write a row itself.
//
// The adds make both searches before they write anything, so a failure
// leaves every row as it was (a maximum index raised while choosing a row
// may stay raised). The active PHS tables are not touched here.
#include "classifiers/internal.h"
#include "frame/log.h"
#include "qosintdb.h"
#include "serviceflows/internal.h"

using qos::ClsfRow;
using qos::local;
using qos::SfRow;

namespace {

// Flow rows with this SFID, whatever their state.
auto withSfId(uint32_t sfId) {
  return [sfId](const SfRow& r) { return r.sfId == sfId; };
}

// Classifier rows of this identifier and flow, whatever their status.
auto withClsfId(uint32_t clsfId, uint32_t sfId) {
  return [clsfId, sfId](const ClsfRow& r) { return uint32_t{r.clsfId} == clsfId && r.sfId == sfId; };
}

// The first flow row with this SFID; -1 if none.
int32_t flowById(uint32_t sfId) { return qos::sfTable().findInRange(withSfId(sfId)); }

// The first classifier row of this identifier and flow; -1 if none.
int32_t clsfById(uint32_t clsfId, uint32_t sfId) {
  return qos::clsfTable().findInRange(withClsfId(clsfId, sfId));
}

bool freeFor(int32_t rowTaIndex, int32_t taIndex) {
  return rowTaIndex == -1 || rowTaIndex == taIndex;
}

// A classifier row and its flow may be used by the caller's transaction
// only when no other transaction works on either of them.
bool noConflict(const ClsfRow& clsf, const SfRow& flow, int32_t taIndex) {
  return freeFor(clsf.taIndex, taIndex) && freeFor(flow.taIndex, taIndex);
}

using FlowNames = qos::flows::Placeholder;
using ClsfNames = qos::classifiers::Placeholder;

}  // namespace

// The first words of the message that a DSC names an unknown flow.
#define QOS_PHS_UNKNOWN_FLOW "Cannot find SFID=0x%x in QOS internal DB for PHS "

extern "C" {

int32_t qos_intDb_AddPhs(uint32_t sfRef, uint32_t clsfRef) {
  QOS_REQUIRE_SF_DB(-1);
  const qos::RowPick clsfPick =
      qos::classifiers::pickRow([clsfRef](const ClsfRow& r) { return uint32_t{r.ref} == clsfRef; });
  const bool newClsf = !clsfPick.found;
  const int32_t c = clsfPick.row;
  if (!newClsf && uint32_t{local.clsf[c].sfRef} != sfRef) {
    QOS_LOG(
        QOS_LOG_ERROR,
        "Cannot add PHS because of Clsf Ref and SF Ref mismatch, ClsfRef=%d, SF Ref=0x%x, SF ref in DB Clsf=0x%x",
        static_cast<int>(clsfRef), static_cast<unsigned>(sfRef),
        static_cast<unsigned>(local.clsf[c].sfRef));
    return -1;
  }
  if (c < 0) {
    QOS_LOG(QOS_LOG_ERROR,
            "%s: Clsf int DB is full. Referenced Clsf=%d cannot be added to DB for PHS", __func__,
            static_cast<int>(clsfRef));
    return -1;
  }
  const qos::RowPick flowPick =
      qos::flows::pickRow([sfRef](const SfRow& r) { return uint32_t{r.ref} == sfRef; });
  const int32_t f = flowPick.row;
  if (f < 0) {
    QOS_LOG(QOS_LOG_ERROR,
            "%s: SF int DB is full. Referenced SF = %d cannot be added to DB for PHS", __func__,
            static_cast<int>(sfRef));
    return -1;
  }
  if (newClsf) qos::classifiers::makePhsPlaceholder(c, ClsfNames().withRef(clsfRef).withSfRef(sfRef));
  qos::flows::bindPhsRule(flowPick, FlowNames().withRef(sfRef));
  return 0;
}

int32_t qos_intDb_AddPhsRef(uint32_t sfRef, uint32_t clsfRef, int32_t taIndex) {
  QOS_REQUIRE_SF_DB(-1);
  const qos::RowPick clsfPick = qos::classifiers::pickRow([clsfRef, taIndex](const ClsfRow& r) {
    return uint32_t{r.ref} == clsfRef && r.taIndex == taIndex;
  });
  const bool newClsf = !clsfPick.found;
  const int32_t c = clsfPick.row;
  if (!newClsf && uint32_t{local.clsf[c].sfRef} != sfRef) return -1;
  if (c < 0) {
    QOS_LOG(QOS_LOG_ERROR, "%s: Clsf int DB is full. Refered Clsf=%d cannot be added for PHS",
            __func__, static_cast<int>(clsfRef));
    return -1;
  }
  const qos::RowPick flowPick =
      qos::flows::pickRow([sfRef](const SfRow& r) { return uint32_t{r.ref} == sfRef; });
  const int32_t f = flowPick.row;
  if (f < 0) {
    QOS_LOG(QOS_LOG_ERROR, "%s: SF int DB is full. Referred SF=%d cannot be added to DB for PHS",
            __func__, static_cast<int>(sfRef));
    return -1;
  }
  if (newClsf) {
    qos::classifiers::makePhsPlaceholder(c, ClsfNames().withRef(clsfRef).withSfRef(sfRef).withTa(taIndex));
  }
  qos::flows::bindPhsRule(flowPick, FlowNames().withRef(sfRef).withTa(taIndex));
  return 0;
}

int32_t qos_intDb_AddPhsId(uint32_t sfId, uint32_t clsfId, int32_t taIndex) {
  QOS_REQUIRE_SF_DB(-1);
  const qos::RowPick clsfPick = qos::classifiers::pickRow(withClsfId(clsfId, sfId));
  const bool newClsf = !clsfPick.found;
  const int32_t c = clsfPick.row;
  if (!newClsf && !freeFor(local.clsf[c].taIndex, taIndex)) return -1;
  if (c < 0) {
    QOS_LOG(QOS_LOG_ERROR, "%s: Clsf int DB is full. Classifier with ID=%d cannot be added for PHS",
            __func__, static_cast<int>(clsfId));
    return -1;
  }
  const qos::RowPick flowPick = qos::flows::pickRow(withSfId(sfId));
  const int32_t f = flowPick.row;
  if (f < 0) {
    QOS_LOG(QOS_LOG_ERROR,
            "%s: SF int DB is full. Service Flow with ID=%d cannot be added to DB for PHS",
            __func__, static_cast<int>(sfId));
    return -1;
  }
  if (newClsf) {
    qos::classifiers::makePhsPlaceholder(c, ClsfNames().withClsfId(clsfId).withSfId(sfId).withTa(taIndex));
  }
  qos::flows::bindPhsRule(flowPick, FlowNames().withSfId(sfId).withTa(taIndex));
  return 0;
}

int32_t qos_intDb_AppendPhs_ClsfRef(uint32_t sfId, uint32_t clsfRef, int32_t taIndex) {
  QOS_REQUIRE_SF_DB(-1);
  const int32_t f = flowById(sfId);
  if (f < 0) {
    QOS_LOG(QOS_LOG_ERROR, QOS_PHS_UNKNOWN_FLOW "adding", static_cast<unsigned>(sfId));
    return -1;
  }
  const SfRow& flow = local.sf[f];
  int32_t c = qos::clsfTable().findInRange(
      [clsfRef, sfId](const ClsfRow& r) { return uint32_t{r.ref} == clsfRef && r.sfId == sfId; });
  if (c >= 0) {
    if (!noConflict(local.clsf[c], flow, taIndex)) {
      QOS_LOG(
          QOS_LOG_ERROR,
          "Cannot append PHS, since other DSX TA runs on the SF or Clsf (SFID=0x%x, ClsfRef=%d)",
          static_cast<unsigned>(sfId), static_cast<int>(clsfRef));
      return -1;
    }
    qos::classifiers::workOn(c, taIndex);
  } else {
    if ((c = qos::classifiers::takeFreeRow()) < 0) {
      QOS_LOG(QOS_LOG_ERROR,
              "%s: Clsf int DB is full. Classifier with Ref=%d cannot be added for PHS", __func__,
              static_cast<int>(clsfRef));
      return -1;
    }
    qos::classifiers::makePhsPlaceholder(c, ClsfNames().withRef(clsfRef).withSfId(sfId).withTa(taIndex));
  }
  qos::flows::markChanging(static_cast<uint32_t>(f), taIndex);
  qos::flows::countPhsRule(static_cast<uint32_t>(f));
  return 0;
}

// A modem-initiated DSC may only name classifiers that exist; the CMTS may
// name one this modem has not heard of yet, which gets a placeholder.
int32_t qos_intDb_AppendPhs_ClsfId(uint32_t sfId, uint32_t clsfId, int32_t taIndex) {
  QOS_REQUIRE_SF_DB(-1);
  uint32_t initiator = 0;
  if (qos_TaDb_GetTaInitiator(static_cast<uint32_t>(taIndex), &initiator) != 0) {
    QOS_LOG(QOS_LOG_ERROR, "Cannot find TA initiator (TA DB index=%d) for PHS adding",
            static_cast<int>(taIndex));
    return -1;
  }
  const int32_t f = flowById(sfId);
  if (f < 0) {
    QOS_LOG(QOS_LOG_ERROR, QOS_PHS_UNKNOWN_FLOW "adding", static_cast<unsigned>(sfId));
    return -1;
  }
  const SfRow& flow = local.sf[f];
  int32_t c = clsfById(clsfId, sfId);
  if (c >= 0 && !noConflict(local.clsf[c], flow, taIndex)) {
    QOS_LOG(QOS_LOG_ERROR,
            "Cannot append PHS, since other DSX TA runs on the SF or Clsf (SFID=0x%x, ClsfId=%d)",
            static_cast<unsigned>(sfId), static_cast<int>(clsfId));
    return -1;
  }
  if (c < 0 && initiator == QOS_TA_BY_MODEM) {
    QOS_LOG(QOS_LOG_ERROR, "Cannot append PHS, since its classifier is not found (ClsfId=%d)",
            static_cast<int>(clsfId));
    return -1;
  }
  if (c < 0) {
    if ((c = qos::classifiers::takeFreeRow()) < 0) {
      QOS_LOG(QOS_LOG_ERROR, "Clsf int DB is full. Classifier with ID=%d cannot be added for PHS",
              static_cast<int>(clsfId));
      return -1;
    }
    qos::classifiers::makePhsPlaceholder(c, ClsfNames().withClsfId(clsfId).withSfId(sfId).withTa(taIndex));
  }
  qos::flows::markChanging(static_cast<uint32_t>(f), taIndex);
  qos::flows::countPhsRule(static_cast<uint32_t>(f));
  return 0;
}

int32_t qos_intDb_ChangePhs(uint32_t sfId, uint32_t clsfId, int32_t taIndex) {
  QOS_REQUIRE_SF_DB(-1);
  const int32_t f = flowById(sfId);
  if (f < 0) {
    QOS_LOG(QOS_LOG_ERROR, QOS_PHS_UNKNOWN_FLOW "adding", static_cast<unsigned>(sfId));
    return -1;
  }
  const SfRow& flow = local.sf[f];
  int32_t c = clsfById(clsfId, sfId);
  if (c < 0) {
    QOS_LOG(QOS_LOG_ERROR, "Cannot change PHS, since its classifier is not found (ClsfId=%d)",
            static_cast<int>(clsfId));
    return -1;
  }
  if (!noConflict(local.clsf[c], flow, taIndex)) {
    QOS_LOG(QOS_LOG_ERROR,
            "Cannot change PHS, since other DSX TA runs on the SF or Clsf (SFID=0x%x, ClsfId=%d)",
            static_cast<unsigned>(sfId), static_cast<int>(clsfId));
    return -1;
  }
  qos::flows::markChanging(static_cast<uint32_t>(f), taIndex);
  return 0;
}

// A single-rule delete on a flow that counts no rule leaves the counter at
// 0: a counter wrapped to 4294967295 would make the consistency check
// refuse the flow's configuration for PHS rules it does not have.
int32_t qos_intDb_DeletePhs(uint32_t sfId, int32_t taIndex, uint32_t deleteAll) {
  QOS_REQUIRE_SF_DB(-1);
  const int32_t f = flowById(sfId);
  if (f < 0) {
    QOS_LOG(QOS_LOG_ERROR, QOS_PHS_UNKNOWN_FLOW "deleting", static_cast<unsigned>(sfId));
    return -1;
  }
  qos::flows::markChanging(static_cast<uint32_t>(f), taIndex);
  qos::flows::dropPhsRules(static_cast<uint32_t>(f), deleteAll != 0);
  return 0;
}

}  // extern "C"
