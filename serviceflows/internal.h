// SPDX-License-Identifier: MIT
// serviceflows/internal.h - what other subsystems may ask of the flow table.
//
// Only serviceflows/ writes flow rows and the flow words of the statistics
// block. A subsystem that needs a flow row changed (a classifier that binds
// to its flow, a PHS rule that counts on it, a SID cluster that counts in
// it, the end of a transaction) calls one of these. None of them checks the
// table's ready flag or logs: the exported operation that calls them has
// done its checks, and logs under its own name.
#pragma once

#include <cstdint>

#include "frame/state.h"

namespace qos {
namespace flows {

// What a placeholder row (state `referenced`) is named by when a binding
// creates it; fields not named stay as the free row had them.
// Placeholder().withRef(7).withTa(0) names reference 7 under transaction 0.
struct Placeholder {
  bool hasRef = false;
  uint32_t ref = 0;
  bool hasSfId = false;
  uint32_t sfId = 0;
  bool hasTa = false;
  int32_t taIndex = -1;

  Placeholder& withRef(uint32_t value) { hasRef = true; ref = value; return *this; }
  Placeholder& withSfId(uint32_t value) { hasSfId = true; sfId = value; return *this; }
  Placeholder& withTa(int32_t value) { hasTa = true; taIndex = value; return *this; }
};

// The flow row that answers to this SFID (used, not a placeholder, within
// the used range), as qos_intDb_FindSfById finds it; -1.
int32_t findById(uint32_t sfId);

// The flow row an add of another table binds to: the first row of the used
// range that `match` accepts, else a free row by the maximum-index rule
// (which may grow the range: the table's own bookkeeping, hence here).
template <typename Pred>
RowPick pickRow(Pred match) {
  return sfTable().findOrTakeFree(match);
}

// Binds a classifier to the flow row `pick` chose (pickRow):
// a found row counts one classifier more; a free row becomes a placeholder
// counting exactly this one. The row, or -1 when the table was full.
int32_t bindClassifier(RowPick pick, const Placeholder& names);

// Binds a PHS rule the same way; the row's rule counter goes up by one
// whether it was found or created.
int32_t bindPhsRule(RowPick pick, const Placeholder& names);

// A DSC works on the flow: state `changing` under transaction taIndex.
void markChanging(uint32_t sfIndex, int32_t taIndex);

// Transaction taIndex works on the flow (taIndex only, state unchanged).
void workOn(uint32_t sfIndex, int32_t taIndex);

// A DSC appended a classifier to the flow / marked one of its classifiers
// for deletion.
void countAppendedClassifier(uint32_t sfIndex);
void countDeletedClassifier(uint32_t sfIndex);

// A DSC appended a PHS rule to the flow; deleted one rule (the counter stays
// at 0 when it counts none) or all of them.
void countPhsRule(uint32_t sfIndex);
void dropPhsRules(uint32_t sfIndex, bool all);

// A SID cluster of this SFID was stored (+1) or deleted (-1): the counter of
// the flow that answers to the SFID (qos_intDb_FindSfById) moves, if any.
void countCluster(uint32_t sfId, int8_t delta);

// Gives the flow row another SFID.
void rename(uint32_t sfIndex, uint32_t sfId);

// The primary upstream reference of the statistics block.
void setUsPrimaryRef(uint16_t ref);

// ---- End of a transaction --------------------------------------------------

// The transaction stops working on the flow and holds it in `state`.
void holdIn(uint32_t sfIndex, uint32_t state, int32_t taIndex);
// The transaction stops working on the flow without holding it.
void leaveIn(uint32_t sfIndex, uint32_t state);
// A DSA or DSC came into force: committed, no pair; an added flow also
// forgets its reference.
void commit(uint32_t sfIndex, bool forgetRef);
// A DSD ended: the flow is no longer committed.
void uncommit(uint32_t sfIndex);
// The holding transaction's hold is over.
void endHold(uint32_t sfIndex);
// Frees the row (a row reset) and lowers the maximum index.
void release(uint32_t sfIndex);
// Registration is over: operational flows forget their references.
void forgetOperationalRefs();

// Empties every flow row and the flow words of the statistics block,
// including its reserved words.
void resetRows();

// Lowers the maximum index to the highest used row.
void lowerMaxIndex();

}  // namespace flows
}  // namespace qos
