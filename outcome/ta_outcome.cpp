// ta_outcome.cpp - what the end of a DSX transaction does to its rows.
//
// While a DSA, DSC or DSD runs, the flows and classifiers it works on carry
// its TA DB index in taIndex: new rows are adding, changed rows changing,
// rows to go deleting. When the client's state machine learns how the
// transaction ended, one operation here walks the flow table and then the
// classifier table once, moves every row of the transaction on, frees the
// rows that are no longer needed (recomputing both maximum indexes after
// each free) and tells other transactions holding a flow through an event,
// sent in row order while the walk goes on. A finished transaction keeps
// its flows in heldTaIndex until its hold time is over
// (qos_intDb_UpdateSfOnTaEnd).
//
// The four outcomes (succeeded, failure, error, forced end) share one walk;
// what each does to a row is one small function per cell of the two tables
// below, by transaction type and outcome. These operations never touch PHS
// rules, message buffers or transaction rows, and never take the lock: the
// client holds it around each call.
#include <cstring>

#include "frame/internal.h"
#include "frame/log.h"
#include "qosintdb.h"

using qos::ClsfRow;
using qos::local;
using qos::SfRow;

namespace {

// Index 10 passes: the message store has a record 10 (the transaction table
// then refuses it in the type lookup).
constexpr uint32_t kHighestTaIndex = 10;
constexpr int32_t kNone = -1;

// SFIDs of the transaction's flows, read by the DSD classifier cells.
//
// A transaction carries at most two flows (one per direction), so the list
// records the first two; a third row of the same transaction is settled
// like the others but not recorded, and nothing else is overwritten.
// An entry that was not filled matches nothing: after a DSD of one flow,
// classifier rows whose SFID is still 0 (such as the classifiers of another
// transaction's pending DSA whose flow has no SFID yet) stay.
class FlowList {
 public:
  void record(uint32_t sfId) {
    if (count_ < kEntries) ids_[count_++] = sfId;
  }
  bool holds(uint32_t sfId) const {
    for (uint32_t i = 0; i < count_; ++i) {
      if (ids_[i] == sfId) return true;
    }
    return false;
  }

 private:
  static constexpr uint32_t kEntries = 2;
  uint32_t ids_[kEntries] = {0, 0};
  uint32_t count_ = 0;
};

// One outcome being applied: the transaction (t), what the table says of it,
// and the flows seen so far.
struct Walk {
  explicit Walk(uint32_t taIndex) : ta(static_cast<int32_t>(taIndex)) {}

  int32_t ta;
  uint32_t type = 0;
  uint32_t initiator = QOS_TA_BY_MODEM;  // read by the error outcome only
  FlowList flows;
};

// ---- Freeing rows ----------------------------------------------------------

void freeFlow(uint32_t sfIndex) {
  qos_intDb_SfDb_RowReset(sfIndex);
  (void)qos_intDb_UpdateSfDbMaxIndex();
}

void freeClsf(ClsfRow& row) {
  std::memset(&row, 0, sizeof row);
  row.status = QOS_CLSF_EMPTY;
  row.taIndex = kNone;
  (void)qos_intDb_UpdateClsfDbMaxIndex();
}

// ---- Flow rows -------------------------------------------------------------

// The transaction stops working on the flow and holds it in `state`.
void holdIn(SfRow& row, uint32_t state, int32_t ta) {
  row.state = state;
  row.heldTaIndex = ta;
  row.taIndex = kNone;
}

// The transaction stops working on the flow without holding it.
void leaveIn(SfRow& row, uint32_t state) {
  row.state = state;
  row.taIndex = kNone;
}

// Tells the transaction that still holds the flow, if any, what became of it.
void tellHolder(const SfRow& row, uint32_t event) {
  if (row.heldTaIndex >= 0) (void)qos_intDb_SendTaEvent(static_cast<uint32_t>(row.heldTaIndex), event);
}

void addSucceeded(SfRow& row, const Walk& w) {
  row.ref = 0;
  row.committed = 1;
  row.pairSfIndex = kNone;
  holdIn(row, QOS_SF_OPERATIONAL, w.ta);
}

void changeSucceeded(SfRow& row, const Walk& w) {
  row.committed = 1;
  row.pairSfIndex = kNone;
  tellHolder(row, QOS_EV_HELD_SF_CHANGED);
  holdIn(row, QOS_SF_OPERATIONAL, w.ta);
}

// DSD success and error: the flow is gone, and with an upstream flow its
// SID clusters, switchover criteria and active entry.
void deleteEnded(SfRow& row, const Walk& w) {
  row.committed = 0;
  tellHolder(row, QOS_EV_HELD_SF_DELETED);
  holdIn(row, QOS_SF_DELETED, w.ta);
  if (row.direction == QOS_DIR_UPSTREAM) {
    (void)qos_intDb_DeleteSidClustersOfSf(row.sfId);
    (void)qos_intDb_DeleteSfSidClusterParams(row.sfId);
    (void)qos_intDb_DeleteActiveUsSfEntry(row.sfId);
  }
}

void addFailed(SfRow& row, const Walk& w) { holdIn(row, QOS_SF_ADD_REJECTED, w.ta); }
void changeFailed(SfRow& row, const Walk& w) { holdIn(row, QOS_SF_OPERATIONAL, w.ta); }

// A flow that the CMTS added exists there and has to be deleted; one that
// the modem asked for never came into force.
void addInError(SfRow& row, const Walk& w) {
  holdIn(row, w.initiator != QOS_TA_BY_MODEM ? QOS_SF_DELETING : QOS_SF_ADD_REJECTED, w.ta);
}
void changeInError(SfRow& row, const Walk& w) { holdIn(row, QOS_SF_DELETING, w.ta); }

void addForced(SfRow& row, const Walk&) { leaveIn(row, QOS_SF_ADD_REJECTED); }
void changeForced(SfRow& row, const Walk&) { leaveIn(row, QOS_SF_OPERATIONAL); }
void deleteForced(SfRow& row, const Walk&) { leaveIn(row, QOS_SF_DELETING); }

// ---- Classifier rows -------------------------------------------------------
// Each cell sees the used rows of its transaction (see ofTransaction).

void clsfAddSucceeded(ClsfRow& row, const Walk&) {
  row.status = QOS_CLSF_OPERATIONAL;
  row.sfRef = 0;
  row.taIndex = kNone;
  row.ref = 0;
}

void clsfChangeSucceeded(ClsfRow& row, const Walk&) {
  switch (row.status) {
    case QOS_CLSF_ADDING:
    case QOS_CLSF_CHANGING:
      row.status = QOS_CLSF_OPERATIONAL;
      break;
    case QOS_CLSF_DELETING:
      freeClsf(row);
      return;
    default:
      QOS_LOG_AS("qos_intDb_UpdateSfOnTaSucceeded", QOS_MODULE_TABLES, QOS_LOG_NOTICE,
                 "Incorrect status %d of classifier ClsfID=0x%x on DSC success processing",
                 static_cast<int>(row.status), static_cast<unsigned>(row.clsfId));
      break;
  }
  row.taIndex = kNone;
}

// A DSC that did not succeed: added classifiers go, the others stay in force.
void clsfChangeUndone(ClsfRow& row, const Walk&) {
  if (row.status == QOS_CLSF_ADDING) {
    freeClsf(row);
    return;
  }
  if (row.status == QOS_CLSF_CHANGING || row.status == QOS_CLSF_DELETING) row.status = QOS_CLSF_OPERATIONAL;
  row.taIndex = kNone;
}

void clsfFreed(ClsfRow& row, const Walk&) { freeClsf(row); }

// The classifier rows of the transaction: for DSA and DSC those it works on
// (taIndex); for DSD every classifier of its flows, whatever their taIndex,
// since they go with the flow.
bool ofTransaction(const ClsfRow& row, const Walk& w) {
  return w.type == QOS_TA_DSD ? w.flows.holds(row.sfId) : row.taIndex == w.ta;
}

// ---- The two tables --------------------------------------------------------

using SfCell = void (*)(SfRow&, const Walk&);
using ClsfCell = void (*)(ClsfRow&, const Walk&);

enum Outcome { kSucceeded, kFailure, kError, kForcedEnd, kOutcomes };
constexpr uint32_t kTypes = 3;  // DSA, DSC, DSD; other types change no row

// Flow rows of the transaction (taIndex = t); nullptr leaves the row as it is.
constexpr SfCell kFlowCells[kTypes][kOutcomes] = {
    //          succeeded         failure        error            forced end
    /* DSA */ {addSucceeded,    addFailed,    addInError,      addForced},
    /* DSC */ {changeSucceeded, changeFailed, changeInError,   changeForced},
    /* DSD */ {deleteEnded,     nullptr,      deleteEnded,     deleteForced},
};

// Classifier rows; nullptr: no classifier walk.
constexpr ClsfCell kClsfCells[kTypes][kOutcomes] = {
    //          succeeded            failure           error             forced end
    /* DSA */ {clsfAddSucceeded,    clsfFreed,        clsfFreed,        clsfFreed},
    /* DSC */ {clsfChangeSucceeded, clsfChangeUndone, clsfChangeUndone, clsfChangeUndone},
    /* DSD */ {clsfFreed,           nullptr,          clsfFreed,        clsfFreed},
};

// Every row of the transaction is recorded in the flow list, whatever the
// outcome and type; only the DSD classifier cells read it.
int32_t settle(Outcome outcome, Walk& w) {
  const bool knownType = w.type < kTypes;
  for (auto& row : local.sf) {
    if (!row.used() || row.taIndex != w.ta) continue;
    w.flows.record(row.sfId);
    SfCell cell = knownType ? kFlowCells[w.type][outcome] : nullptr;
    if (cell != nullptr) cell(row, w);
  }
  ClsfCell cell = knownType ? kClsfCells[w.type][outcome] : nullptr;
  if (cell == nullptr) return 0;
  for (auto& row : local.clsf) {
    if (row.used() && ofTransaction(row, w)) cell(row, w);
  }
  return 0;
}

// Which rows the end of a transaction's hold frees: a DSA's rejected flows,
// and a DSD's flows that no other transaction has started working on.
bool goesWithHolder(const SfRow& row, uint32_t type) {
  switch (type) {
    case QOS_TA_DSA:
      return row.state == QOS_SF_ADD_REJECTED;
    case QOS_TA_DSD:
      return row.taIndex == kNone;
    default:
      return false;
  }
}

}  // namespace

// The start of every outcome operation that takes a TA DB index: the flow
// family is attached and the index is at most 10.
#define QOS_OUTCOME_PREAMBLE(taIndex) \
  QOS_REQUIRE_SF_DB(-1);              \
  if ((taIndex) > kHighestTaIndex) return -1

// ... and, for the outcomes that depend on it, the transaction's type can be
// read into `walk`. Only the error outcome reports a type it cannot read.
#define QOS_OUTCOME_START(taIndex, walk, reportUnknownType)                                \
  QOS_OUTCOME_PREAMBLE(taIndex);                                                         \
  Walk walk(taIndex);                                                                      \
  if (qos_TaDb_GetTaType((taIndex), &(walk).type) != 0) {                                 \
    if (reportUnknownType) {                                                               \
      QOS_LOG(QOS_LOG_ERROR, "QOS:  Cannot determine DSX TA type; TA index=%d",            \
              static_cast<int>(taIndex));                                                  \
    }                                                                                      \
    return -1;                                                                             \
  }                                                                                        \
  (void)0

extern "C" {

int32_t qos_intDb_UpdateSfOnTaSucceeded(uint32_t taIndex) {
  QOS_OUTCOME_START(taIndex, w, false);
  return settle(kSucceeded, w);
}

int32_t qos_intDb_UpdateSfOnTaFailure(uint32_t taIndex) {
  QOS_OUTCOME_START(taIndex, w, false);
  return settle(kFailure, w);
}

int32_t qos_intDb_UpdateSfOnTaError(uint32_t taIndex) {
  QOS_OUTCOME_START(taIndex, w, true);
  (void)qos_TaDb_GetTaInitiator(taIndex, &w.initiator);
  return settle(kError, w);
}

int32_t qos_intDb_UpdateSfOnTaForcedEnd(uint32_t taIndex) {
  QOS_OUTCOME_START(taIndex, w, false);
  return settle(kForcedEnd, w);
}

int32_t qos_intDb_UpdateSfOnTaEnd(uint32_t taIndex) {
  QOS_OUTCOME_START(taIndex, w, false);
  for (uint32_t i = 0; i < qos::kSfRows; ++i) {
    SfRow& row = local.sf[i];
    if (!row.used() || row.heldTaIndex != w.ta) continue;
    row.heldTaIndex = kNone;
    if (goesWithHolder(row, w.type)) freeFlow(i);
  }
  return 0;
}

int32_t qos_intDb_UpdateSfAddAbort(uint32_t taIndex) {
  QOS_OUTCOME_PREAMBLE(taIndex);
  const auto ta = static_cast<int32_t>(taIndex);
  uint32_t aborted = 0;
  for (auto& row : local.sf) {
    if (row.state != QOS_SF_ADDING || row.taIndex != ta) continue;
    holdIn(row, QOS_SF_ADD_REJECTED, ta);
    ++aborted;
  }
  if (aborted == 0) return 0;
  for (auto& row : local.clsf) {
    if (row.used() && row.taIndex == ta) freeClsf(row);
  }
  return 0;
}

int32_t qos_intDb_UpdateSfOnTaAckLost(uint32_t taIndex) {
  QOS_OUTCOME_PREAMBLE(taIndex);
  const auto ta = static_cast<int32_t>(taIndex);
  for (const auto& row : local.sf) {
    if (!row.used() || row.state == QOS_SF_ADD_REJECTED || row.heldTaIndex != ta) continue;
    if (row.taIndex != kNone) {
      (void)qos_intDb_SendTaEvent(static_cast<uint32_t>(row.taIndex), QOS_EV_HOLDER_ACK_LOST);
    }
  }
  return 0;
}

int32_t qos_intDb_UpdateOnRegFinish(void) {
  QOS_REQUIRE_SF_DB(-1);
  for (auto& row : local.sf) {
    if (row.state == QOS_SF_OPERATIONAL) row.ref = 0;
  }
  for (auto& row : local.clsf) {
    if (row.status != QOS_CLSF_OPERATIONAL) continue;
    row.ref = 0;
    row.sfRef = 0;
  }
  return 0;
}

int32_t qos_intDb_SendTaEvent(uint32_t payload, uint32_t event) {
  uint32_t dest = ICC_dest_of(QOS_EV_COMPONENT);
  return EV_GenEvent(dest, event, &payload, sizeof payload) == 0 ? 0 : -1;
}

}  // extern "C"
