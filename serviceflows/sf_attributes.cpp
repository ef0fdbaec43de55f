// SPDX-License-Identifier: MIT
// sf_attributes.cpp - reading and writing single fields of a flow row.
//
// The caller's QoS control code keeps flow rows current through these: the
// SFID once the CMTS assigns it, the SID, the parameter-set bits, the
// transaction links, the flow's index in the caller's own QoS database; and
// reads the counters. Three more keep flow data of the statistics block:
// the primary upstream and downstream references and the number of active
// upstream flows. Each changes its one field and nothing else: no state
// transition is tested, no transaction moves into heldTaIndex.
//
// Every member opens the same way: the table is attached; the index is
// 0..127 (a negative index passed as unsigned is above 127), and a member
// either logs an index out of range or refuses it silently; some members
// also refuse a free row (memberRow). What differs between members is
// their Rule, the field and its width, written in one line each below.
#include "frame/log.h"
#include "frame/out.h"
#include "qosintdb.h"

using qos::local;
using qos::SfRow;

namespace {

// How a member treats an index above 127 and a free row.
struct Rule {
  bool logsRange;
  bool refusesFreeRow;
};
constexpr Rule kUsedRow{true, true};    // logs the index, refuses a free row
constexpr Rule kAnyRow{true, false};    // logs the index, reads free rows too
constexpr Rule kQuietRow{false, false};  // silent on the index, free rows too

// A transaction link: written whatever it holds, 0 only when it names one.
int32_t readLink(int32_t* out, int32_t link) {
  if (out == nullptr) return -1;
  *out = link;
  return link >= 0 ? 0 : -1;
}

// Primary references: the direction's low byte must be 1 or 2.
uint16_t* primaryRef(uint32_t direction) {
  const uint8_t dir = static_cast<uint8_t>(direction);
  if (dir != QOS_DIR_DOWNSTREAM && dir != QOS_DIR_UPSTREAM) return nullptr;
  return dir == QOS_DIR_UPSTREAM ? &local.stats->usPrimarySfRef : &local.stats->dsPrimarySfRef;
}

// A member's row: nullptr for an index above 127, and for a free row where
// the rule refuses one. The member has checked that the table is attached
// and, where its rule says so, logged an index out of range.
SfRow* memberRow(uint32_t sfIndex, Rule rule) {
  if (sfIndex >= qos::kSfRows) return nullptr;
  SfRow& row = local.sf[sfIndex];
  if (rule.refusesFreeRow && !row.used()) return nullptr;
  return &row;
}

}  // namespace

// The three kinds of member that differ only in their rule, field and
// width. Each defines the whole member, so every log record names it.

// A member that copies `field` out at the width of Out.
#define QOS_SF_GETTER(name, Out, field, rule)                      \
  int32_t name(uint32_t sfIndex, Out* out) {                       \
    QOS_REQUIRE_SF_DB(-1);                                         \
    if ((rule).logsRange) QOS_REQUIRE_SF_INDEX(sfIndex, -1);       \
    const SfRow* row = memberRow(sfIndex, rule);                   \
    return row == nullptr ? -1 : qos::writeOut(out, row->field);   \
  }

// A member that stores the low bits of its value in `field`.
#define QOS_SF_SETTER(name, field, rule)                            \
  int32_t name(uint32_t sfIndex, uint32_t value) {                  \
    QOS_REQUIRE_SF_DB(-1);                                          \
    if ((rule).logsRange) QOS_REQUIRE_SF_INDEX(sfIndex, -1);        \
    SfRow* row = memberRow(sfIndex, rule);                          \
    if (row == nullptr) return -1;                                  \
    row->field = static_cast<decltype(row->field)>(value);          \
    return 0;                                                       \
  }

// A member that reads a transaction link, silent on the index.
#define QOS_SF_LINK_GETTER(name, field)                      \
  int32_t name(uint32_t sfIndex, int32_t* out) {             \
    QOS_REQUIRE_SF_DB(-1);                                   \
    const SfRow* row = memberRow(sfIndex, kQuietRow);        \
    return row == nullptr ? -1 : readLink(out, row->field);  \
  }

extern "C" {

QOS_SF_GETTER(qos_intDb_GetSfRef, uint32_t, ref, kUsedRow)
QOS_SF_GETTER(qos_intDb_GetSfId, uint32_t, sfId, kUsedRow)
QOS_SF_SETTER(qos_intDb_SetSfId, sfId, kAnyRow)
QOS_SF_GETTER(qos_intDb_GetSfSid, uint16_t, sid, kAnyRow)
QOS_SF_SETTER(qos_intDb_SetSfSid, sid, kQuietRow)
QOS_SF_GETTER(qos_intDb_GetSFState, uint32_t, state, kAnyRow)
QOS_SF_SETTER(qos_intDb_SetSFState, state, kQuietRow)
QOS_SF_GETTER(qos_intDb_GetServiceFlowDirection, uint8_t, direction, kAnyRow)
QOS_SF_GETTER(qos_intDb_GetSfDirection, uint8_t, direction, kQuietRow)
QOS_SF_GETTER(qos_intDb_GetServiceFlowParamSet, uint8_t, paramSetType, kAnyRow)
QOS_SF_GETTER(qos_intDb_GetSfQosDbIndex, uint32_t, qosDbIndex, kAnyRow)
QOS_SF_SETTER(qos_intDb_SetSfQosDbIndex, qosDbIndex, kAnyRow)
QOS_SF_LINK_GETTER(qos_intDb_GetSFTaIndex, taIndex)
QOS_SF_SETTER(qos_intDb_SetSFTaIndex, taIndex, kQuietRow)
QOS_SF_LINK_GETTER(qos_intDb_GetSFHeldTaIndex, heldTaIndex)
QOS_SF_GETTER(qos_intDb_GetSfClusterCounter, uint8_t, sidClusterCounter, kAnyRow)
QOS_SF_GETTER(qos_intDb_GetServiceFlowClassCounter, uint32_t, clsfCounter, kAnyRow)
QOS_SF_GETTER(qos_intDb_GetServiceFlowPhsCounter, uint32_t, phsCounter, kAnyRow)

int32_t qos_intDb_CheckSFOperational(uint32_t sfIndex) {
  QOS_REQUIRE_SF_DB(-1);
  const SfRow* row = memberRow(sfIndex, kQuietRow);
  return row != nullptr && row->state == QOS_SF_OPERATIONAL ? 0 : -1;
}

// 0 clears the bits; any other value adds its low 8 bits to them.
int32_t qos_intDb_SetServiceFlowParamSet(uint32_t sfIndex, uint32_t paramSetType) {
  QOS_REQUIRE_SF_ROW(sfIndex, -1);
  SfRow& row = local.sf[sfIndex];
  if (paramSetType == 0) {
    row.paramSetType = 0;
  } else {
    row.paramSetType = static_cast<uint8_t>(row.paramSetType | paramSetType);
  }
  return 0;
}

int32_t qos_intDb_GetSfPrimaryRef(uint32_t direction, uint16_t* ref) {
  QOS_REQUIRE_SF_DB(-1);
  uint16_t* primary = primaryRef(direction);
  if (primary == nullptr) return -1;
  return qos::writeOut(ref, *primary);
}

int32_t qos_intDb_SetSfPrimaryRef(uint32_t direction, uint32_t ref) {
  QOS_REQUIRE_SF_DB(-1);
  uint16_t* primary = primaryRef(direction);
  if (primary == nullptr) return -1;
  *primary = static_cast<uint16_t>(ref);
  return 0;
}

int32_t qos_intDb_GetActiveSfNumber(uint32_t* activeSfNumber) {
  QOS_REQUIRE_SF_DB(-1);
  return qos::writeOut(activeSfNumber, local.stats->activeSfNumber);
}

}  // extern "C"
