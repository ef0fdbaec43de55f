// SPDX-License-Identifier: MIT
// serviceflows_test.cpp - flow adds and take-overs, lookups, transaction
// marks, the attribute family and the dumps.
#include <functional>
#include <tuple>

#include "support/fixture.h"

namespace qostest {
namespace {

using Strings = std::vector<std::string>;
using Offsets = std::vector<std::size_t>;
using std::make_tuple;
using V = std::vector<int64_t>;  // calls in a braced list run in order
#define CALL(expr) [] { return expr; }

qos::SfRow& sf(uint32_t row) { return store().sf[row]; }
int32_t& sfMax() { return store().stats.sfDbMaxIndex; }

// A flow row written straight into the region, as another subsystem would.
void putRow(uint32_t row, uint32_t state, uint16_t ref, int32_t ta, uint8_t dir = 1) {
  sf(row).state = state, sf(row).ref = ref, sf(row).direction = dir, sf(row).taIndex = ta;
}

using ServiceFlows = StoreTest;

TEST_F(ServiceFlows, FreeRowRuleGrowsTheRangeReusesHolesAndRefusesWhenFull) {
  for (uint32_t ref = 1; ref <= 5; ++ref) ASSERT_EQ(qos_intDb_AddSf(0x100 + ref, ref, 1), 0);
  uint32_t row = 0;
  ASSERT_EQ(qos_intDb_FindSfDbNextFreeIndex(&row), 0);  // row 5: the range grows, row unused
  EXPECT_EQ(qos_intDb_AddSfReference(20, 2, 1), 0);     // takes row 5 without growing
  EXPECT_EQ(qos_intDb_AddSfId(0x700, 2, 3), 0);         // grows to row 6
  qos_intDb_SfDb_RowReset(2);
  EXPECT_EQ(qos_intDb_AddSf(0x200, 9, 2), 0);  // the hole inside the range
  EXPECT_EQ(make_tuple(sf(5).ref, sf(6).sfId, sf(2).sfId, sfMax()), make_tuple(uint16_t{20}, 0x700u, 0x200u, 6));

  for (uint32_t i = 0; i < 128; ++i) putRow(i, QOS_SF_OPERATIONAL, 1000, -1);
  sfMax() = 127;
  const auto before = snapshot();
  EXPECT_EQ(qos_intDb_AddSf(0x55, 7, 1), -1);
  EXPECT_EQ(qos_intDb_AddSfReference(7, 1, 3), -1);
  EXPECT_EQ(qos_intDb_AddSfId(0x55, 1, 3), -1);
  EXPECT_EQ(changedOffsets(before, snapshot()), Offsets{});
  EXPECT_EQ(logs.texts(), (Strings{"qos_intDb_AddSf: SF int DB is full. SFId = 0x55 SF Ref=7 cannot be added to DB",
                                    "qos_intDb_AddSfReference: SF int DB is full. SF Ref=7 of TA index = 3 cannot be added to DB",
                                    "qos_intDb_AddSfId: SF int DB is full. SF ID = 0x55 of TA index = 3 cannot be added to DB"}));
  for (const auto& r : logs.records()) EXPECT_EQ(r.text.substr(0, r.function.size()), r.function);
}

// Row 1 is a placeholder with counters, row 2 free but still carrying a
// reference: the adds' take-over scans look at no state.
TEST_F(ServiceFlows, AddsTakeOverRowsOfTheirFlowAndKeepTheirCounters) {
  const struct { std::function<int32_t()> add; uint32_t row, state; int32_t ta; } cases[] = {
      {CALL(qos_intDb_AddSf(0x300, 5, 2)), 1, QOS_SF_OPERATIONAL, 4},
      {CALL(qos_intDb_AddSfReference(5, 2, 4)), 1, QOS_SF_ADDING, 4},
      {CALL(qos_intDb_AddSfReference(5, 2, 6)), 0, QOS_SF_ADDING, 6},  // other transaction
      {CALL(qos_intDb_AddSf(0x300, 8, 2)), 2, QOS_SF_OPERATIONAL, 4},
      {CALL(qos_intDb_AddSfReference(8, 2, 4)), 2, QOS_SF_ADDING, 4},
  };
  for (const auto& c : cases) {
    qos_intDb_SfDb_Reset();
    putRow(1, QOS_SF_REFERENCED, 5, 4);
    sf(1).clsfCounter = 3, sf(1).phsCounter = 2;
    putRow(2, QOS_SF_EMPTY, 8, 4);
    sfMax() = 2;
    ASSERT_EQ(c.add(), 0);
    const qos::SfRow& r = sf(c.row);
    EXPECT_EQ(make_tuple(r.state, r.direction, r.taIndex), make_tuple(c.state, uint8_t{2}, c.ta));
    EXPECT_EQ(make_tuple(sf(1).clsfCounter, sf(1).phsCounter, sfMax()), make_tuple(3u, 2u, 2));
  }
  // The same twice: one row. A reference too wide to match row 1: a new row.
  EXPECT_EQ((V{qos_intDb_AddSfReference(5, 2, 6), qos_intDb_AddSfReference(5, 2, 6), sfMax()}), (V{0, 0, 2}));
  EXPECT_EQ(qos_intDb_AddSf(0x301, 0x10005, 1), 0);
  EXPECT_EQ(sf(3).ref, 5);

  ASSERT_EQ(qos_intDb_AddSfId(0xABC, 1, 4), 0);
  const auto before = snapshot();
  EXPECT_EQ(qos_intDb_AddSfId(0xABC, 2, 6), -1);
  EXPECT_EQ(changedOffsets(before, snapshot()), Offsets{});
  EXPECT_EQ(logs.texts(), Strings{"Add SF ID to int DB: SFID=0xabc already exists with TA index=4"});
  // Its own transaction: the same row.
  EXPECT_EQ(qos_intDb_AddSfId(0xABC, 2, 4), 0);
  EXPECT_EQ(make_tuple(sf(4).direction, sfMax()), make_tuple(uint8_t{2}, 4));
}

// Rows: 0 placeholder, 1 adding, 2 free with leftovers; 5 lies above the range.
TEST_F(ServiceFlows, LookupsHaveTheirOwnStateFiltersAndRanges) {
  putRow(0, QOS_SF_REFERENCED, 9, 3, 2);
  putRow(1, QOS_SF_ADDING, 9, 3, 1);
  putRow(2, QOS_SF_EMPTY, 8, 3, 1);
  putRow(5, QOS_SF_OPERATIONAL, 8, 4, 2);
  sfMax() = 2;
  const uint32_t none = 0xFFFFFFFF, untouched = 77;
#define FIND(expr) [](uint32_t* o) { return expr; }
  const struct { std::function<int32_t(uint32_t*)> find; int32_t result; uint32_t out; } cases[] = {
      {FIND(qos_intDb_FindSfByRef(9, o)), 0, 1}, {FIND(qos_intDb_FindSfByRef(8, o)), -1, untouched},
      {FIND(qos_intDb_FindSfByRef(0x10009, o)), -1, untouched},
      {FIND(qos_intDb_FindSfByTaAndRef(9, 3, o)), 0, 0}, {FIND(qos_intDb_FindSfByTaAndRef(8, 3, o)), 0, 2},
      {FIND(qos_intDb_FindSfByTaAndRef(8, 4, o)), -1, none}, {FIND(qos_intDb_FindSfByTaAndRef(9, -1, o)), -1, untouched},
      {FIND(qos_intDb_FindSFByTaIndex(3, o)), 0, 0}, {FIND(qos_intDb_FindSFByTaIndex(4, o)), 0, 5},
      {FIND(qos_intDb_FindSFByTaIndexAndDirection(3, 1, o)), 0, 1}, {FIND(qos_intDb_FindSFByTaIndexAndDirection(4, 2, o)), 0, 5},
      {FIND(qos_intDb_FindSFByTaIndexAndDirection(3, 0x101, o)), -1, untouched},
      {FIND(qos_intDb_NextSFIndexOfTa(3, -1, o)), 0, 1}, {FIND(qos_intDb_NextSFIndexOfTa(3, 1, o)), -1, none},
      {FIND(qos_intDb_NextSFIndexOfTa(4, 0, o)), 0, 5}, {FIND(qos_intDb_NextSFIndexOfTa(4, 128, o)), -1, untouched},
      {FIND(qos_intDb_NextSFIndexOfTa(-1, -1, o)), -1, untouched},
  };
  for (const auto& c : cases) {
    uint32_t out = untouched;
    EXPECT_EQ((V{c.find(&out), out, c.find(nullptr)}), (V{c.result, c.out, -1})) << "case " << &c - cases;
  }
#undef FIND
  EXPECT_TRUE(logs.records().empty());
}

TEST_F(ServiceFlows, TransactionMovesOfChangeDeleteAndPairs) {
  putRow(0, QOS_SF_OPERATIONAL, 1, 0);
  putRow(1, QOS_SF_OPERATIONAL, 2, -1);
  sf(1).heldTaIndex = 7;
  // Row 0: the working transaction now holds. Row 1: none working, the holder stays.
  EXPECT_EQ((V{qos_intDb_StartDeleteSF(0, 5), qos_intDb_StartDeleteSF(1, 10), qos_intDb_ChangeSF(1, 5)}), V(3, 0));
  EXPECT_EQ(make_tuple(sf(0).state, sf(0).taIndex, sf(0).heldTaIndex), make_tuple(uint32_t{QOS_SF_DELETING}, 5, 0));
  EXPECT_EQ(make_tuple(sf(1).state, sf(1).taIndex, sf(1).heldTaIndex), make_tuple(uint32_t{QOS_SF_CHANGING}, 5, 7));
  EXPECT_TRUE(logs.records().empty());

  sfMax() = 2;
  putRow(2, QOS_SF_ADDING, 3, -1);
  struct Pair { uint32_t ta = 99, pair = 99; int32_t result; };
  auto pairOf = [](uint32_t row) {
    Pair p;
    p.result = qos_intDb_GetSfTaIndexAndPairSf(row, &p.ta, &p.pair);
    return make_tuple(p.result, p.ta, p.pair);
  };
  EXPECT_EQ(pairOf(1), make_tuple(0, 5u, 0u));
  sf(0).taIndex = 6;
  EXPECT_EQ(pairOf(1), make_tuple(0, 5u, 0xFFFFFFFFu));   // alone in its transaction
  EXPECT_EQ(pairOf(2), make_tuple(-1, 0xFFFFFFFFu, 99u));  // no transaction
  EXPECT_EQ(std::get<0>(pairOf(3)), -1);                   // free row
  EXPECT_EQ(std::get<0>(pairOf(128)), -1);
  EXPECT_EQ(logs.texts(), Strings{"func qos_intDb_GetSfTaIndexAndPairSf: ---> SF DB index 128 is out of range"});
}

TEST_F(ServiceFlows, NextActiveUpstreamFlowIgnoresTheState) {
  for (int row : {6, 127}) sf(row).direction = QOS_DIR_UPSTREAM, sf(row).paramSetType = 5;  // free rows
  sf(1).paramSetType = QOS_PARAMSET_ACTIVE;                                                 // active but downstream
  uint32_t next = 99, last = 99;
  EXPECT_EQ((V{qos_intDb_FindNextActiveSf(-1, &next), next, qos_intDb_FindNextActiveSf(6, &last), last,
               qos_intDb_FindNextActiveSf(127, &next), qos_intDb_FindNextActiveSf(128, &next)}), (V{0, 6, 0, 127, -1, -1}));
  EXPECT_EQ(logs.texts(), (Strings{"func: qos_intDb_FindNextActiveSf, no next US active SF has been found ",
                                   "func: qos_intDb_FindNextActiveSf, no next US active SF (input SfDbIndex 128) "}));
}

// The attribute family, one member per line: range logged, free row
// refused, the field's offset and width, the output's width (0: a setter).
struct Member { const char* name; std::function<int32_t(uint32_t, void*)> call; bool logsRange, refusesFreeRow;
                std::size_t field, fieldWidth, outWidth; };
#define F(field) offsetof(qos::SfRow, field)
#define GET(fn, T) #fn, [](uint32_t i, void* o) { return fn(i, static_cast<T*>(o)); }
#define SET(fn) #fn, [](uint32_t i, void*) { return fn(i, 0xA1B2C3D4); }
const Member kMembers[] = {
    {GET(qos_intDb_GetSfRef, uint32_t), true, true, F(ref), 2, 4},
    {GET(qos_intDb_GetSfId, uint32_t), true, true, F(sfId), 4, 4},
    {SET(qos_intDb_SetSfId), true, false, F(sfId), 4, 0},
    {GET(qos_intDb_GetSfSid, uint16_t), true, false, F(sid), 2, 2},
    {SET(qos_intDb_SetSfSid), false, false, F(sid), 2, 0},
    {GET(qos_intDb_GetSFState, uint32_t), true, false, F(state), 4, 4},
    {SET(qos_intDb_SetSFState), false, false, F(state), 4, 0},
    {GET(qos_intDb_GetServiceFlowDirection, uint8_t), true, false, F(direction), 1, 1},
    {GET(qos_intDb_GetSfDirection, uint8_t), false, false, F(direction), 1, 1},
    {GET(qos_intDb_GetServiceFlowParamSet, uint8_t), true, false, F(paramSetType), 1, 1},
    {GET(qos_intDb_GetSfQosDbIndex, uint32_t), true, false, F(qosDbIndex), 4, 4},
    {SET(qos_intDb_SetSfQosDbIndex), true, false, F(qosDbIndex), 4, 0},
    {GET(qos_intDb_GetSFTaIndex, int32_t), false, false, F(taIndex), 4, 4},
    {SET(qos_intDb_SetSFTaIndex), false, false, F(taIndex), 4, 0},
    {GET(qos_intDb_GetSFHeldTaIndex, int32_t), false, false, F(heldTaIndex), 4, 4},
    {GET(qos_intDb_GetSfClusterCounter, uint8_t), true, false, F(sidClusterCounter), 1, 1},
    {GET(qos_intDb_GetServiceFlowClassCounter, uint32_t), true, false, F(clsfCounter), 4, 4},
    {GET(qos_intDb_GetServiceFlowPhsCounter, uint32_t), true, false, F(phsCounter), 4, 4},
};
#undef GET
#undef SET
#undef F

template <typename T>
uint32_t load(const void* p) { T v; return std::memcpy(&v, p, sizeof v), v; }
uint32_t readWidth(const void* p, std::size_t w) { return w == 1 ? load<uint8_t>(p) : w == 2 ? load<uint16_t>(p) : load<uint32_t>(p); }

TEST_F(ServiceFlows, AttributeFamilyRangeFreeRowAndWidth) {
  for (const Member& m : kMembers) {
    SCOPED_TRACE(m.name);
    qos_intDb_SfDb_Reset();
    auto* bytes = reinterpret_cast<uint8_t*>(&sf(0));
    for (std::size_t b = 0; b < sizeof(qos::SfRow); ++b) bytes[b] = static_cast<uint8_t>(b + 1);
    auto before = snapshot();
    uint8_t out[8];
    auto call = [&](uint32_t index) { return std::memset(out, 0xEE, sizeof out), m.call(index, out); };
    for (uint32_t index : {128u, 0xFFFFFFFFu}) {
      logs.clear();
      EXPECT_EQ(call(index), -1);
      EXPECT_EQ(out[0], 0xEE);
      const std::string range = "func " + std::string(m.name) + ": ---> SF DB index " + std::to_string(int32_t(index));
      EXPECT_EQ(logs.texts(), m.logsRange ? Strings{range + " is out of range"} : Strings{});
    }
    EXPECT_EQ(changedOffsets(before, snapshot()), Offsets{});
    // A free row (row 1); its transaction links read -1, which fails too.
    const bool link = m.outWidth != 0 && (m.field == offsetof(qos::SfRow, taIndex) || m.field == offsetof(qos::SfRow, heldTaIndex));
    EXPECT_EQ(call(1), m.refusesFreeRow || link ? -1 : 0);
    EXPECT_EQ(out[0] == 0xEE, m.refusesFreeRow || m.outWidth == 0);
    // A used row: exactly the field, at the output's width.
    before = snapshot();
    EXPECT_EQ(call(0), 0);
    const uint32_t field = readWidth(bytes + m.field, m.fieldWidth);
    Offsets changed = changedOffsets(before, snapshot());
    if (m.outWidth != 0) {
      EXPECT_EQ(readWidth(out, m.outWidth), field);
      EXPECT_EQ(out[m.outWidth], 0xEE);
      EXPECT_EQ(changed, Offsets{});
      EXPECT_EQ(m.call(0, nullptr), -1);
    } else {
      EXPECT_EQ(field, m.fieldWidth == 2 ? 0xC3D4u : 0xA1B2C3D4u);
      for (std::size_t off : changed) EXPECT_LT(off - m.field, m.fieldWidth);  // row 0 starts the region
    }
  }
}

TEST_F(ServiceFlows, AttributeExtras) {
  putRow(0, QOS_SF_ADDING, 1, -1);
  // The low 8 bits are ORed in; 0 clears.
  EXPECT_EQ((V{qos_intDb_SetServiceFlowParamSet(0, 2), qos_intDb_SetServiceFlowParamSet(0, 0x104), sf(0).paramSetType,
               qos_intDb_SetServiceFlowParamSet(0, 0), sf(0).paramSetType}), (V{0, 0, 6, 0, 0}));
  EXPECT_EQ((V{qos_intDb_CheckSFOperational(0), qos_intDb_SetSFState(0, 1), qos_intDb_CheckSFOperational(0)}), (V{-1, 0, 0}));
  // Low byte 2: upstream; the low 16 bits of the reference.
  EXPECT_EQ((V{qos_intDb_SetSfPrimaryRef(0x102, 0x10007), qos_intDb_SetSfPrimaryRef(3, 9)}), (V{0, -1}));
  EXPECT_EQ(make_tuple(store().stats.usPrimarySfRef, store().stats.dsPrimarySfRef), make_tuple(uint16_t{7}, uint16_t{0}));
  EXPECT_TRUE(logs.records().empty());
}

// The statistics getters of every table read their own field of the block.
TEST_F(ServiceFlows, StatisticsGettersReadTheirFields) {
  qos::QosIntDbStats& st = store().stats;
  st.sfNumber = 11, st.sfDbMaxIndex = 12, st.clsfNumber = 13, st.clsfDbMaxIndex = 14, st.clsfMaxNum = 15;
  st.clusterNumber = 16, st.clusterMaxNum = 17, st.clusterDbMaxIndex = 18, st.activeSfNumber = 19;
  int32_t (*const getters[])(uint32_t*) = {qos_intDb_GetSfNumber, qos_intDb_GetSfDbMaxIndex, qos_intDb_GetClsfNumber,
                                           qos_intDb_GetClsfDbMaxIndex, qos_intDb_GetClsfMaxNum, qos_intDb_GetClusterNumber,
                                           qos_intDb_GetClusterMaxNum, qos_intDb_GetClusterDbMaxIndex,
                                           qos_intDb_GetActiveSfNumber};
  for (uint32_t i = 0; i < 9; ++i) {
    uint32_t v = 0;
    EXPECT_EQ((V{getters[i](&v), v, getters[i](nullptr)}), (V{0, 11 + i, -1})) << i;
  }
}

TEST_F(ServiceFlows, DumpsOfOneRowAndOfTheTable) {
  ASSERT_EQ(qos_intDb_AddSf(0x1234, 5, 2), 0);
  ASSERT_EQ(qos_intDb_AddSfId(0xA, 1, 3), 0);
  sf(0).sid = 0x3F, sf(0).sidClusterCounter = -1, sf(0).clsfCounter = 3;
  EXPECT_EQ(captureStdout([] { EXPECT_EQ(qos_intDb_fullPrintSF(0), 0); }),
            "  SF DB Idx = 0    SFID = 0x1234      Ref = 5   Direction = 2   Status=1   \n"
            "  ParamSet Type      = 0\n  SID                = 0x3f\n  SID Cluster index  = 0\n"
            "  Main DB index      = 0\n  Active TA db index = -1\n  Held TA db index   = -1\n"
            "  Pair SF db index   = 0\n  SidClusterCounter  = -1\n  clsf counter       = 3\n"
            "  phs counter        = 0\n  \n");
  const std::string row1 = "SF DB Idx=1    SFID=0xa         Ref=0   Dir=1  Status=2  ParamSetType=0  SID=0x0     ClustIdx=0\n";
  EXPECT_EQ(captureStdout([] { EXPECT_EQ(qos_intDb_shortPrintSF(128), 0); }),
            "   Service Flow internal data base \n\n"
            "SF DB Idx=0    SFID=0x1234      Ref=5   Dir=2  Status=1  ParamSetType=0  SID=0x3f    ClustIdx=0\n" + row1);
  EXPECT_EQ(captureStdout([] { EXPECT_EQ(qos_intDb_shortPrintSF(1), 0); }), row1);
  EXPECT_EQ(captureStdout([] { EXPECT_EQ(qos_intDb_shortPrintSF(2), 0); }), "");
  EXPECT_EQ(captureStdout([] { EXPECT_EQ(qos_intDb_fullPrintSF(2), -1); }), "The specified SF internal DB entry is not used (index 2) \n");
  const std::string incorrect = " Incorrect SF internal DB index -1 \n";
  EXPECT_EQ(captureStdout([] { EXPECT_EQ(qos_intDb_shortPrintSF(-1), -1); }), incorrect);
  EXPECT_EQ(captureStdout([] { EXPECT_EQ(qos_intDb_fullPrintSF(0xFFFFFFFF), -1); }), incorrect);
  EXPECT_TRUE(logs.records().empty());
}

}  // namespace
}  // namespace qostest
