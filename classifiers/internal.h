// SPDX-License-Identifier: MIT
// classifiers/internal.h - what other subsystems may ask of the classifier
// table.
//
// Only classifiers/ writes classifier rows and the classifier words of the
// statistics block. PHS rules that name a classifier before it arrives,
// the end of a transaction and the renaming of a flow ask through these.
// None of them checks the ready flag; only the settling of a changed
// classifier logs, under the name of the outcome operation that calls it.
#pragma once

#include <cstdint>

#include "frame/state.h"

namespace qos {
namespace classifiers {

// What a PHS placeholder row is named by; fields not named stay as the row
// had them.
struct Placeholder {
  bool hasRef = false;
  uint32_t ref = 0;
  bool hasSfRef = false;
  uint32_t sfRef = 0;
  bool hasClsfId = false;
  uint32_t clsfId = 0;
  bool hasSfId = false;
  uint32_t sfId = 0;
  bool hasTa = false;
  int32_t taIndex = -1;

  Placeholder& withRef(uint32_t value) { hasRef = true; ref = value; return *this; }
  Placeholder& withSfRef(uint32_t value) { hasSfRef = true; sfRef = value; return *this; }
  Placeholder& withClsfId(uint32_t value) { hasClsfId = true; clsfId = value; return *this; }
  Placeholder& withSfId(uint32_t value) { hasSfId = true; sfId = value; return *this; }
  Placeholder& withTa(int32_t value) { hasTa = true; taIndex = value; return *this; }
};

// The classifier row a PHS rule works on: the first row of the used range
// that `match` accepts, else a free row by the maximum-index rule (which
// may grow the range).
template <typename Pred>
RowPick pickRow(Pred match) {
  return clsfTable().findOrTakeFree(match);
}

// A free row by the maximum-index rule, for a placeholder; -1 when full.
inline int32_t takeFreeRow() { return clsfTable().takeFree(); }

// Makes row clsfIndex a PHS placeholder (status `phsPlaceholder`) named by
// `names`.
void makePhsPlaceholder(int32_t clsfIndex, const Placeholder& names);

// Transaction taIndex works on the classifier (taIndex only).
void workOn(int32_t clsfIndex, int32_t taIndex);

// ---- End of a transaction --------------------------------------------------

// A DSA succeeded: the classifier is operational and forgets its references.
void settleAdded(int32_t clsfIndex);
// A DSC succeeded: added and changed classifiers are operational, deleted
// ones are freed; any other status is logged as the success operation's.
void settleChanged(int32_t clsfIndex);
// A DSC did not succeed: added classifiers are freed, the others stay in force.
void undoChange(int32_t clsfIndex);
// Frees the row and lowers the maximum index.
void release(int32_t clsfIndex);
// Registration is over: operational classifiers forget their references.
void forgetOperationalRefs();

// Every row that carries oldSfId takes newSfId.
void renameSfId(uint32_t oldSfId, uint32_t newSfId);

// Empties every classifier row and the classifier words of the statistics
// block (the upstream classifier limit becomes 160).
void resetRows();

// Lowers the maximum index to the highest used row.
void lowerMaxIndex();

}  // namespace classifiers
}  // namespace qos
