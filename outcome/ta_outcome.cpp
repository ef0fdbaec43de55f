// SPDX-License-Identifier: MIT
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
// below, by transaction type and outcome. The cells decide; the tables
// write: flow rows change through serviceflows/, classifier rows through
// classifiers/, clusters and active entries through their operations, so
// this folder writes no row itself. These operations never touch PHS rules,
// message buffers or transaction rows, and never take the lock: the client
// holds it around each call.
#include "classifiers/internal.h"
#include "frame/log.h"
#include "qosintdb.h"
#include "serviceflows/internal.h"

using qos::ClsfRow;
using qos::local;
using qos::SfRow;
namespace flows = qos::flows;
namespace classifiers = qos::classifiers;

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

// Sends one outcome event with a 4-byte payload to component 32; 0 when the
// event service took it.
int32_t sendTaEvent(uint32_t payload, uint32_t event) {
  uint32_t dest = ICC_dest_of(QOS_EV_COMPONENT);
  return EV_GenEvent(dest, event, &payload, sizeof payload) == 0 ? 0 : -1;
}

// ---- Flow rows -------------------------------------------------------------
// Each cell sees one used row of its transaction (taIndex = t), by index
// and as it reads, and asks serviceflows/ for every change.

// Tells the transaction that still holds the flow, if any, what became of it.
void tellHolder(const SfRow& row, uint32_t event) {
  if (row.heldTaIndex >= 0) (void)sendTaEvent(static_cast<uint32_t>(row.heldTaIndex), event);
}

void addSucceeded(uint32_t i, const SfRow&, const Walk& w) {
  flows::commit(i, true);
  flows::holdIn(i, QOS_SF_OPERATIONAL, w.ta);
}

void changeSucceeded(uint32_t i, const SfRow& row, const Walk& w) {
  flows::commit(i, false);
  tellHolder(row, QOS_EV_HELD_SF_CHANGED);
  flows::holdIn(i, QOS_SF_OPERATIONAL, w.ta);
}

// DSD success and error: the flow is gone, and with an upstream flow its
// SID clusters, switchover criteria and active entry.
void deleteEnded(uint32_t i, const SfRow& row, const Walk& w) {
  flows::uncommit(i);
  tellHolder(row, QOS_EV_HELD_SF_DELETED);
  flows::holdIn(i, QOS_SF_DELETED, w.ta);
  if (row.direction == QOS_DIR_UPSTREAM) {
    (void)qos_intDb_DeleteSidClustersOfSf(row.sfId);
    (void)qos_intDb_DeleteSfSidClusterParams(row.sfId);
    (void)qos_intDb_DeleteActiveUsSfEntry(row.sfId);
  }
}

void addFailed(uint32_t i, const SfRow&, const Walk& w) { flows::holdIn(i, QOS_SF_ADD_REJECTED, w.ta); }
void changeFailed(uint32_t i, const SfRow&, const Walk& w) { flows::holdIn(i, QOS_SF_OPERATIONAL, w.ta); }

// A flow that the CMTS added exists there and has to be deleted; one that
// the modem asked for never came into force.
void addInError(uint32_t i, const SfRow&, const Walk& w) {
  flows::holdIn(i, w.initiator != QOS_TA_BY_MODEM ? QOS_SF_DELETING : QOS_SF_ADD_REJECTED, w.ta);
}
void changeInError(uint32_t i, const SfRow&, const Walk& w) { flows::holdIn(i, QOS_SF_DELETING, w.ta); }

void addForced(uint32_t i, const SfRow&, const Walk&) { flows::leaveIn(i, QOS_SF_ADD_REJECTED); }
void changeForced(uint32_t i, const SfRow&, const Walk&) { flows::leaveIn(i, QOS_SF_OPERATIONAL); }
void deleteForced(uint32_t i, const SfRow&, const Walk&) { flows::leaveIn(i, QOS_SF_DELETING); }

// ---- Classifier rows -------------------------------------------------------
// Each cell is the settling of classifiers/ that the row needs; it sees the
// used rows of its transaction (see ofTransaction).

// The classifier rows of the transaction: for DSA and DSC those it works on
// (taIndex); for DSD every classifier of its flows, whatever their taIndex,
// since they go with the flow.
bool ofTransaction(const ClsfRow& row, const Walk& w) {
  return w.type == QOS_TA_DSD ? w.flows.holds(row.sfId) : row.taIndex == w.ta;
}

// ---- The two tables --------------------------------------------------------

using SfCell = void (*)(uint32_t, const SfRow&, const Walk&);
using ClsfCell = void (*)(int32_t);

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
using classifiers::release;
using classifiers::settleAdded;
using classifiers::settleChanged;
using classifiers::undoChange;
constexpr ClsfCell kClsfCells[kTypes][kOutcomes] = {
    //          succeeded      failure     error       forced end
    /* DSA */ {settleAdded,   release,    release,    release},
    /* DSC */ {settleChanged, undoChange, undoChange, undoChange},
    /* DSD */ {release,       nullptr,    release,    release},
};

// Every row of the transaction is recorded in the flow list, whatever the
// outcome and type; only the DSD classifier cells read it.
int32_t settle(Outcome outcome, Walk& w) {
  const bool knownType = w.type < kTypes;
  for (uint32_t i = 0; i < qos::kSfRows; ++i) {
    const SfRow& row = local.sf[i];
    if (!row.used() || row.taIndex != w.ta) continue;
    w.flows.record(row.sfId);
    SfCell cell = knownType ? kFlowCells[w.type][outcome] : nullptr;
    if (cell != nullptr) cell(i, row, w);
  }
  ClsfCell cell = knownType ? kClsfCells[w.type][outcome] : nullptr;
  if (cell == nullptr) return 0;
  for (int32_t c = 0; c < static_cast<int32_t>(qos::kClsfRows); ++c) {
    const ClsfRow& row = local.clsf[c];
    if (row.used() && ofTransaction(row, w)) cell(c);
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

// Why a walk cannot start: an index above 10, or a transaction whose type
// cannot be read.
enum class Start { kOpen, kBadIndex, kUnknownType };

// Reads the transaction's type into the walk.
Start start(Walk& w, uint32_t taIndex) {
  if (taIndex > kHighestTaIndex) return Start::kBadIndex;
  return qos_TaDb_GetTaType(taIndex, &w.type) == 0 ? Start::kOpen : Start::kUnknownType;
}

// The outcomes that report nothing when the walk cannot start.
int32_t settleQuietly(uint32_t taIndex, Outcome outcome) {
  Walk w(taIndex);
  if (start(w, taIndex) != Start::kOpen) return -1;
  return settle(outcome, w);
}

}  // namespace

extern "C" {

int32_t qos_intDb_UpdateSfOnTaSucceeded(uint32_t taIndex) {
  QOS_REQUIRE_SF_DB(-1);
  return settleQuietly(taIndex, kSucceeded);
}

int32_t qos_intDb_UpdateSfOnTaFailure(uint32_t taIndex) {
  QOS_REQUIRE_SF_DB(-1);
  return settleQuietly(taIndex, kFailure);
}

// The only outcome that reports a type it cannot read.
int32_t qos_intDb_UpdateSfOnTaError(uint32_t taIndex) {
  QOS_REQUIRE_SF_DB(-1);
  Walk w(taIndex);
  const Start s = start(w, taIndex);
  if (s == Start::kUnknownType) {
    QOS_LOG(QOS_LOG_ERROR, "QOS:  Cannot determine DSX TA type; TA index=%d", static_cast<int>(taIndex));
  }
  if (s != Start::kOpen) return -1;
  (void)qos_TaDb_GetTaInitiator(taIndex, &w.initiator);
  return settle(kError, w);
}

int32_t qos_intDb_UpdateSfOnTaForcedEnd(uint32_t taIndex) {
  QOS_REQUIRE_SF_DB(-1);
  return settleQuietly(taIndex, kForcedEnd);
}

int32_t qos_intDb_UpdateSfOnTaEnd(uint32_t taIndex) {
  QOS_REQUIRE_SF_DB(-1);
  Walk w(taIndex);
  if (start(w, taIndex) != Start::kOpen) return -1;
  for (uint32_t i = 0; i < qos::kSfRows; ++i) {
    const SfRow& row = local.sf[i];
    if (!row.used() || row.heldTaIndex != w.ta) continue;
    flows::endHold(i);
    if (goesWithHolder(row, w.type)) flows::release(i);
  }
  return 0;
}

int32_t qos_intDb_UpdateSfAddAbort(uint32_t taIndex) {
  QOS_REQUIRE_SF_DB(-1);
  if (taIndex > kHighestTaIndex) return -1;
  const auto ta = static_cast<int32_t>(taIndex);
  uint32_t aborted = 0;
  for (uint32_t i = 0; i < qos::kSfRows; ++i) {
    const SfRow& row = local.sf[i];
    if (row.state != QOS_SF_ADDING || row.taIndex != ta) continue;
    flows::holdIn(i, QOS_SF_ADD_REJECTED, ta);
    ++aborted;
  }
  if (aborted == 0) return 0;
  for (int32_t c = 0; c < static_cast<int32_t>(qos::kClsfRows); ++c) {
    const ClsfRow& row = local.clsf[c];
    if (row.used() && row.taIndex == ta) classifiers::release(c);
  }
  return 0;
}

int32_t qos_intDb_UpdateSfOnTaAckLost(uint32_t taIndex) {
  QOS_REQUIRE_SF_DB(-1);
  if (taIndex > kHighestTaIndex) return -1;
  const auto ta = static_cast<int32_t>(taIndex);
  for (const auto& row : local.sf) {
    if (!row.used() || row.state == QOS_SF_ADD_REJECTED || row.heldTaIndex != ta) continue;
    if (row.taIndex != kNone) {
      (void)sendTaEvent(static_cast<uint32_t>(row.taIndex), QOS_EV_HOLDER_ACK_LOST);
    }
  }
  return 0;
}

int32_t qos_intDb_UpdateOnRegFinish(void) {
  QOS_REQUIRE_SF_DB(-1);
  qos::flows::forgetOperationalRefs();
  qos::classifiers::forgetOperationalRefs();
  return 0;
}

}  // extern "C"
