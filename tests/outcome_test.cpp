// SPDX-License-Identifier: MIT
// outcome_test.cpp - what the end of a transaction does to its flows and
// classifiers: every cell of the two state tables, the events to holders,
// the end of the hold after each outcome, add abort, ack lost, registration
// finish, the upstream deletions, the maximum indexes and bad input.
#include "frame/region.h"
#include "support/fixture.h"

namespace qostest {
namespace {

using Op = int32_t (*)(uint32_t);
const Op ok = qos_intDb_UpdateSfOnTaSucceeded, fail = qos_intDb_UpdateSfOnTaFailure,
         err = qos_intDb_UpdateSfOnTaError, forced = qos_intDb_UpdateSfOnTaForcedEnd,
         abort_ = qos_intDb_UpdateSfAddAbort, end = qos_intDb_UpdateSfOnTaEnd, ackLost = qos_intDb_UpdateSfOnTaAckLost;
constexpr int32_t N = -1;  // no transaction
constexpr int32_t T = 2;   // the transaction that ends
constexpr int32_t H = 4;   // another transaction that holds the flow
constexpr uint32_t kOwnFlow = 0x100;
using V = std::vector<int64_t>;
using Texts = std::vector<std::string>;
using Events = std::vector<Event>;


// Empties the store and allocates transactions 0..2; T (2) gets type and initiator.
void freshStoreWithTa(uint32_t type, uint32_t initiator = QOS_TA_BY_MODEM) {
  ASSERT_EQ(qos_IntDb_Reset(), 0);
  for (uint32_t i = 0, index = 99; i <= T; ++i) {
    ASSERT_EQ(qos_TaDb_AddNewTa(0x8000 + i, i == T ? type : uint32_t{QOS_TA_DSA}, initiator, 0, nullptr, &index), 0);
    ASSERT_EQ(index, i);
  }
}

qos::SfRow& putFlow(int32_t i, uint32_t state, uint32_t sfId, int32_t ta, int32_t held = N,
                    uint8_t direction = QOS_DIR_DOWNSTREAM) {
  qos::SfRow& r = store().sf[i];
  r.state = state, r.sfId = sfId, r.direction = direction, r.taIndex = ta, r.heldTaIndex = held;
  store().stats.sfDbMaxIndex = std::max(store().stats.sfDbMaxIndex, i);
  return r;
}

void putClsf(int32_t i, uint32_t status, uint32_t sfId, int32_t ta, uint16_t clsfId = 0) {
  qos::ClsfRow& r = store().clsf[i] = qos::ClsfRow{};
  r.status = status, r.ref = static_cast<uint8_t>(0x30 + i), r.clsfId = clsfId, r.sfRef = static_cast<uint16_t>(0x40 + i);
  r.sfId = sfId, r.taIndex = ta;
  store().stats.clsfDbMaxIndex = std::max(store().stats.clsfDbMaxIndex, i);
}

uint32_t pendingState(uint32_t type) {
  return type == QOS_TA_DSA ? QOS_SF_ADDING : type == QOS_TA_DSD ? QOS_SF_DELETING : QOS_SF_CHANGING;
}
std::vector<uint32_t> statuses(int from, int n) {
  std::vector<uint32_t> s;
  for (int i = from; i < from + n; ++i) s.push_back(store().clsf[i].status);
  return s;
}
bool isResetFlow(const qos::SfRow& r) {
  return r.state == 0 && r.sfId == 0 && r.taIndex == N && r.heldTaIndex == N && r.qosDbIndex == N;
}
bool isResetClsf(const qos::ClsfRow& r) {
  qos::ClsfRow empty{};
  empty.taIndex = N;
  return std::memcmp(&r, &empty, sizeof r) == 0;
}

using Outcome = StoreTest;

// The flow state table: a downstream flow of T, held by H, through each
// outcome, then the end of T's hold. After the outcome: state, working and
// holding transaction, committed, reference, pair; the event, if any, goes to
// the former holder H. After the end: freed, state, working and holding
// transaction; "meanwhile" another transaction starts on the flow before it.
TEST_F(Outcome, FlowRowsOfTheTransactionAndTheEndOfItsHold) {
  const V freed{1, 0, N, N};
  const struct { const char* name; uint32_t type, initiator; Op op; V after; uint32_t event; V end;
                 int32_t meanwhile = N; } cases[] = {
      {"DSA succeeded", QOS_TA_DSA, 0, ok, {1, N, T, 1, 0, N}, 0, {0, 1, N, N}},
      {"DSC succeeded", QOS_TA_DSC, 0, ok, {1, N, T, 1, 5, N}, QOS_EV_HELD_SF_CHANGED, {0, 1, N, N}},
      {"DSD succeeded", QOS_TA_DSD, 0, ok, {6, N, T, 0, 5, 9}, QOS_EV_HELD_SF_DELETED, freed},
      {"DSD succeeded, flow taken on", QOS_TA_DSD, 0, ok, {6, N, T, 0, 5, 9}, QOS_EV_HELD_SF_DELETED, {0, 6, 6, N}, 6},
      {"DSA failure", QOS_TA_DSA, 0, fail, {5, N, T, 7, 5, 9}, 0, freed},
      {"DSC failure", QOS_TA_DSC, 0, fail, {1, N, T, 7, 5, 9}, 0, {0, 1, N, N}},
      {"DSD failure", QOS_TA_DSD, 0, fail, {4, T, H, 7, 5, 9}, 0, {0, 4, T, H}},
      {"modem DSA error", QOS_TA_DSA, 0, err, {5, N, T, 7, 5, 9}, 0, freed},
      {"CMTS DSA error", QOS_TA_DSA, 1, err, {4, N, T, 7, 5, 9}, 0, {0, 4, N, N}},
      {"DSC error", QOS_TA_DSC, 0, err, {4, N, T, 7, 5, 9}, 0, {0, 4, N, N}},
      {"DSD error", QOS_TA_DSD, 0, err, {6, N, T, 0, 5, 9}, QOS_EV_HELD_SF_DELETED, freed},
      {"DSA forced end", QOS_TA_DSA, 0, forced, {5, N, H, 7, 5, 9}, 0, {0, 5, N, H}},
      {"DSC forced end", QOS_TA_DSC, 0, forced, {1, N, H, 7, 5, 9}, 0, {0, 1, N, H}},
      {"DSD forced end", QOS_TA_DSD, 0, forced, {4, N, H, 7, 5, 9}, 0, {0, 4, N, H}},
      {"unknown type succeeded", 7, 0, ok, {3, T, H, 7, 5, 9}, 0, {0, 3, T, H}},
      {"unknown type error", 7, 0, err, {3, T, H, 7, 5, 9}, 0, {0, 3, T, H}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    freshStoreWithTa(c.type, c.initiator);
    putFlow(2, QOS_SF_OPERATIONAL, 0x50, N);
    qos::SfRow& r = putFlow(3, pendingState(c.type), kOwnFlow, T, H);
    r.ref = 5, r.committed = 7, r.pairSfIndex = 9;
    const auto before = snapshot();
    EventCapture events;
    logs.clear();
    EXPECT_EQ(c.op(T), 0);
    EXPECT_EQ((V{r.state, r.taIndex, r.heldTaIndex, r.committed, r.ref, r.pairSfIndex}), c.after);
    EXPECT_EQ(events.events(), (c.event ? Events{{QOS_EV_COMPONENT, c.event, H}} : Events{}));
    for (std::size_t off : changedOffsets(before, snapshot())) EXPECT_EQ(off / sizeof(qos::SfRow), 3u);
    if (c.meanwhile != N) r.taIndex = c.meanwhile;
    EXPECT_EQ(end(T), 0);
    EXPECT_EQ((V{isResetFlow(r), r.state, r.taIndex, r.heldTaIndex}), c.end);
    EXPECT_EQ((V{store().stats.sfDbMaxIndex, store().sf[2].state}), (V{c.end == freed ? 2 : 3, QOS_SF_OPERATIONAL}));
    EXPECT_TRUE(logs.records().empty());
  }
}

// Several held flows of one transaction: one event per held flow, in row order.
TEST_F(Outcome, HeldFlowsAreToldInRowOrder) {
  for (uint32_t type : {QOS_TA_DSC, QOS_TA_DSD}) {
    freshStoreWithTa(type);
    const int32_t ta[] = {T, T, T, 5}, held[] = {6, N, 1, 3};  // row 3: another transaction's flow
    for (int i = 0; i < 4; ++i) putFlow(i, pendingState(type), 0x10 + i, ta[i], held[i]);
    EventCapture events;
    EXPECT_EQ(ok(T), 0);
    uint32_t ev = type == QOS_TA_DSC ? QOS_EV_HELD_SF_CHANGED : QOS_EV_HELD_SF_DELETED;
    EXPECT_EQ(events.events(), (Events{{32, ev, 6}, {32, ev, 1}}));
  }
}

// The classifier state table. Rows 0..4 (status 1..5) are T's on another
// flow; rows 5..9 (status 1..5) belong to T's flow under another transaction.
TEST_F(Outcome, ClassifierRowsOfTheTransaction) {
  const std::vector<uint32_t> kept = {1, 2, 3, 4, 5}, gone = {0, 0, 0, 0, 0};
  const std::vector<uint32_t> dscDone = {1, 1, 1, 0, 5}, dscUndone = {1, 0, 1, 1, 5};
  const auto incorrect = [](std::string s) {
    return "Incorrect status " + s + " of classifier ClsfID=0x1" + s + " on DSC success processing";
  };
  // Statuses after (0: freed) of T's rows and of the flow's; the transaction of T's rows that stay.
  const struct { const char* name; uint32_t type; Op op; std::vector<uint32_t> ofTa; int32_t taAfter;
                 std::vector<uint32_t> ofFlow; Texts logs; } cases[] = {
      {"DSA succeeded", QOS_TA_DSA, ok, {1, 1, 1, 1, 1}, N, kept, {}},
      {"DSC succeeded", QOS_TA_DSC, ok, dscDone, N, kept, {incorrect("1"), incorrect("5")}},
      {"DSD succeeded", QOS_TA_DSD, ok, kept, T, gone, {}},
      {"DSA failure", QOS_TA_DSA, fail, gone, N, kept, {}},
      {"DSC failure", QOS_TA_DSC, fail, dscUndone, N, kept, {}},
      {"DSD failure", QOS_TA_DSD, fail, kept, T, kept, {}},
      {"DSA error", QOS_TA_DSA, err, gone, N, kept, {}},
      {"DSC error", QOS_TA_DSC, err, dscUndone, N, kept, {}},
      {"DSD error", QOS_TA_DSD, err, kept, T, gone, {}},
      {"DSA forced end", QOS_TA_DSA, forced, gone, N, kept, {}},
      {"DSC forced end", QOS_TA_DSC, forced, dscUndone, N, kept, {}},
      {"DSD forced end", QOS_TA_DSD, forced, kept, T, gone, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    freshStoreWithTa(c.type);
    putFlow(0, pendingState(c.type), kOwnFlow, T);
    for (int s = 1; s <= 5; ++s) {
      putClsf(s - 1, s, 0x999, T, static_cast<uint16_t>(0x10 + s));
      putClsf(s + 4, s, kOwnFlow, H, static_cast<uint16_t>(0x20 + s));
    }
    logs.clear();
    EXPECT_EQ(c.op(T), 0);
    EXPECT_EQ(statuses(0, 5), c.ofTa);
    EXPECT_EQ(statuses(5, 5), c.ofFlow);
    const bool cleared = c.type == QOS_TA_DSA && c.op == ok;  // references cleared
    for (int i = 0; i < 10; ++i) {
      const qos::ClsfRow& row = store().clsf[i];
      EXPECT_TRUE(row.status == 0 ? isResetClsf(row) : row.taIndex == (i < 5 ? c.taAfter : H)) << i;
      EXPECT_TRUE(i >= 5 || row.status == 0 || (row.ref == 0 && row.sfRef == 0) == cleared) << i;
    }
    EXPECT_EQ(logs.texts(), c.logs);
    for (const auto& rec : logs.records())
      EXPECT_EQ(std::make_pair(rec.function, rec.level),
                std::make_pair(std::string("qos_intDb_UpdateSfOnTaSucceeded"), int{QOS_LOG_NOTICE}));
  }
}

// The flow list keeps the first two flows; entries not filled match nothing.
TEST_F(Outcome, DsdFreesTheClassifiersOfItsFirstTwoFlowsOnly) {
  for (Op op : {ok, err, forced}) {
    freshStoreWithTa(QOS_TA_DSD);
    for (int i = 0; i < 3; ++i) {
      putFlow(i, QOS_SF_DELETING, 0xA1 + i, T);
      putClsf(i, QOS_CLSF_OPERATIONAL, 0xA1 + i, N);
    }
    EXPECT_EQ(op(T), 0);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(store().sf[i].taIndex, N);  // the third flow is settled too
    EXPECT_EQ(statuses(0, 3), (std::vector<uint32_t>{0, 0, QOS_CLSF_OPERATIONAL}));

    freshStoreWithTa(QOS_TA_DSD);
    putFlow(0, QOS_SF_DELETING, 0xA1, T);
    putClsf(0, QOS_CLSF_ADDING, 0, 5);  // another transaction's DSA, SFID not known yet
    putClsf(1, QOS_CLSF_OPERATIONAL, 0xA1, N);
    EXPECT_EQ(op(T), 0);
    EXPECT_EQ(statuses(0, 2), (std::vector<uint32_t>{QOS_CLSF_ADDING, 0}));
  }
}

// With the last row freed, both maximum indexes cover the whole table.
TEST_F(Outcome, MaximumIndexesAfterTheLastFree) {
  freshStoreWithTa(QOS_TA_DSA);
  putFlow(4, QOS_SF_ADDING, 0, T);
  putClsf(7, QOS_CLSF_ADDING, 0, T);
  ASSERT_EQ(fail(T), 0);
  EXPECT_EQ((V{store().stats.clsfDbMaxIndex, store().stats.sfDbMaxIndex}), (V{319, 4}));
  ASSERT_EQ(end(T), 0);
  EXPECT_EQ(store().stats.sfDbMaxIndex, 127);
}

// Without an added flow of its own, an abort writes nothing. The end of the
// hold then frees the rejected flow.
TEST_F(Outcome, AddAbortRejectsTheAddedFlowsAndFreesTheClassifiers) {
  for (bool adding : {true, false}) {
    SCOPED_TRACE(adding ? "with an added flow" : "without");
    freshStoreWithTa(QOS_TA_DSA);
    if (adding) putFlow(0, QOS_SF_ADDING, 0, T);
    putFlow(1, QOS_SF_CHANGING, 0x51, T);
    putFlow(2, QOS_SF_ADDING, 0x52, 5);
    putClsf(0, QOS_CLSF_ADDING, 0, T);
    putClsf(1, QOS_CLSF_PHS_PLACEHOLDER, 0, T);
    putClsf(2, QOS_CLSF_OPERATIONAL, 0x51, N);
    putClsf(3, QOS_CLSF_ADDING, 0x52, 5);
    const auto before = snapshot();
    EXPECT_EQ(abort_(T), 0);
    const auto changed = changedOffsets(before, snapshot());
    EXPECT_TRUE(adding || changed.empty());
    if (!adding) continue;
    EXPECT_EQ((V{store().sf[0].state, store().sf[0].heldTaIndex, store().sf[0].taIndex}), (V{QOS_SF_ADD_REJECTED, T, N}));
    EXPECT_TRUE(isResetClsf(store().clsf[0]) && isResetClsf(store().clsf[1]));
    EXPECT_EQ(end(T), 0);
    EXPECT_TRUE(isResetFlow(store().sf[0]));
    const std::size_t clsf0 = offsetof(qos::QosIntDbRegion, clsf), clsf2 = clsf0 + 2 * sizeof(qos::ClsfRow);
    for (std::size_t off : changed) EXPECT_TRUE(off < sizeof(qos::SfRow) || (off >= clsf0 && off < clsf2)) << off;
  }
}

TEST_F(Outcome, AckLostTellsTheTransactionsNowWorkingOnHeldFlows) {
  freshStoreWithTa(QOS_TA_DSA);
  putFlow(0, QOS_SF_OPERATIONAL, 0x50, 5, T);
  putFlow(1, QOS_SF_ADD_REJECTED, 0x51, 6, T);  // rejected: nothing to tell
  putFlow(2, QOS_SF_OPERATIONAL, 0x52, N, T);   // nobody works on it
  putFlow(3, QOS_SF_CHANGING, 0x53, 7, T);
  putFlow(4, QOS_SF_CHANGING, 0x54, 8, H);      // held by another transaction
  const auto before = snapshot();
  EventCapture events;
  EXPECT_EQ(ackLost(T), 0);
  EXPECT_EQ(events.events(), (Events{{32, QOS_EV_HOLDER_ACK_LOST, 5}, {32, QOS_EV_HOLDER_ACK_LOST, 7}}));
  EXPECT_TRUE(changedOffsets(before, snapshot()).empty());
}

TEST_F(Outcome, RegistrationFinishClearsReferencesOfOperationalRowsOnly) {
  putFlow(0, QOS_SF_OPERATIONAL, 0x50, N).ref = 1;
  putFlow(1, QOS_SF_ADDING, 0, 3).ref = 2;
  putClsf(0, QOS_CLSF_OPERATIONAL, 0x50, N);
  putClsf(1, QOS_CLSF_ADDING, 0, 3);
  EXPECT_EQ(qos_intDb_UpdateOnRegFinish(), 0);
  const qos::QosIntDbRegion& r = store();
  EXPECT_EQ((V{r.sf[0].ref, r.sf[1].ref, r.clsf[0].ref, r.clsf[0].sfRef, r.clsf[1].ref, r.clsf[1].sfRef}),
            (V{0, 2, 0, 0, 0x31, 0x41}));
}

// A DSD of an upstream flow takes its clusters, switchover criteria and
// active entry with it; a downstream flow of the same DSD takes nothing. An
// upstream flow missing from the active table: the active table says so, the
// outcome goes on.
TEST_F(Outcome, UpstreamDsdTakesClustersCriteriaAndActiveEntry) {
  const SidChannelMapping maps[4] = {{0, 1, 0, 11}, {0, 2, 0, 12}, {0, 0, 0, 0}, {0, 0, 0, 0}};
  for (int variant : {0, 1, 2}) {  // succeeded, error, succeeded without the active entry
    SCOPED_TRACE(variant);
    freshStoreWithTa(QOS_TA_DSD);
    putFlow(0, QOS_SF_DELETING, 0x200, T, N, QOS_DIR_UPSTREAM).paramSetType = QOS_PARAMSET_ACTIVE;
    putFlow(1, QOS_SF_DELETING, 0x300, T);
    putFlow(2, QOS_SF_OPERATIONAL, 0x400, N, N, QOS_DIR_UPSTREAM).paramSetType = QOS_PARAMSET_ACTIVE;
    for (uint32_t sfId : {0x200u, 0x300u, 0x400u}) {
      ASSERT_EQ((V{qos_intDb_AddSfSidCluster(sfId, 1, maps), qos_intDb_AddSfSidCluster(sfId, 2, maps),
                   qos_intDb_SetSfSidClusterParams(sfId, 1000, 2000, 30, 4)}), V(3, 0));
    }
    ASSERT_EQ(variant == 2 ? 0 : qos_intDb_AddActiveUsSfEntry(0x200), 0);
    ASSERT_EQ(qos_intDb_AddActiveUsSfEntry(0x400), 0);
    logs.clear();

    EXPECT_EQ((variant == 1 ? err : ok)(T), 0);
    auto kept = [](uint32_t sfId) {  // cluster, criteria, active entry
      struct { int32_t row = -1; uint32_t a, b, index; uint16_t c; uint8_t d, cluster; } o;
      return V{qos_intDb_GetNextSfSidCluster(sfId, &o.row, &o.cluster, nullptr),
               qos_intDb_GetSfSidClusterParams(sfId, &o.a, &o.b, &o.c, &o.d),
               qos_intDb_GetActiveSfIndexBySfid(sfId, &o.index)};
    };
    EXPECT_EQ(kept(0x200), (V{-1, -1, -1}));
    EXPECT_EQ(kept(0x300), (V{0, 0, -1}));
    EXPECT_EQ(kept(0x400), (V{0, 0, 0}));
    EXPECT_EQ((V{store().sf[0].state, store().sf[1].state}), (V{QOS_SF_DELETED, QOS_SF_DELETED}));
    const Texts missing{"qos_intDb_DeleteActiveUsSfEntry: SFID=0x200 is not found into active SF DB"};
    EXPECT_EQ(logs.texts(), variant == 2 ? missing : Texts{});
  }
}

// Indexes above 10, index 10 (no transaction row) and a free transaction row
// (3): nothing written, no event; only the type lookups log.
TEST_F(Outcome, BadTransactionIndexesWriteNothing) {
  const std::string range10 = "qos_TaDb_GetTaType: ---> DSX TA DB index 10 is out of range";
  const struct { Op op; uint32_t taIndex; int32_t result; Texts logs; } cases[] = {
      {ok, 11, -1, {}}, {fail, 11, -1, {}}, {err, 0xFFFFFFFF, -1, {}}, {forced, 11, -1, {}},
      {end, 11, -1, {}}, {abort_, 11, -1, {}}, {ackLost, 11, -1, {}},
      {ok, 10, -1, {range10}}, {err, 10, -1, {range10, "QOS:  Cannot determine DSX TA type; TA index=10"}},
      {end, 10, -1, {range10}}, {abort_, 10, 0, {}}, {ackLost, 10, 0, {}},
      {ok, 3, -1, {}}, {fail, 3, -1, {}}, {forced, 3, -1, {}}, {end, 3, -1, {}},
      {err, 3, -1, {"QOS:  Cannot determine DSX TA type; TA index=3"}},  // last: its record is checked below
  };
  freshStoreWithTa(QOS_TA_DSA);
  putFlow(0, QOS_SF_ADDING, 0, 3, 3);
  putClsf(0, QOS_CLSF_ADDING, 0, 3);
  const auto before = snapshot();
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    logs.clear();
    EventCapture events;
    EXPECT_EQ(c.op(c.taIndex), c.result);
    EXPECT_EQ(logs.texts(), c.logs);
    EXPECT_TRUE(changedOffsets(before, snapshot()).empty());
    EXPECT_TRUE(events.events().empty());
  }
  ASSERT_EQ(logs.records().size(), 1u);
  EXPECT_EQ(std::make_pair(logs.records()[0].function, logs.records()[0].level),
            std::make_pair(std::string("qos_intDb_UpdateSfOnTaError"), int{QOS_LOG_ERROR}));
}

}  // namespace
}  // namespace qostest
