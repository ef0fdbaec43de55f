// outcome_test.cpp - what the end of a transaction does to its flows and
// classifiers: every cell of the two state tables, the events to holders,
// the end of the hold after each outcome, add abort, ack lost, registration
// finish, the upstream deletions, the maximum indexes and bad input.
#include <array>

#include "frame/region.h"
#include "support/fixture.h"

namespace qostest {
namespace {

using Op = int32_t (*)(uint32_t);
const Op ok = qos_intDb_UpdateSfOnTaSucceeded, fail = qos_intDb_UpdateSfOnTaFailure,
         err = qos_intDb_UpdateSfOnTaError, forced = qos_intDb_UpdateSfOnTaForcedEnd,
         abort_ = qos_intDb_UpdateSfAddAbort;
constexpr int32_t N = -1;  // no transaction
constexpr int32_t T = 2;   // the transaction that ends
constexpr int32_t H = 4;   // another transaction that holds the flow
constexpr uint32_t kOwnFlow = 0x100;
constexpr uint32_t kNoType = 7;

qos::QosIntDbRegion& db() { return *reinterpret_cast<qos::QosIntDbRegion*>(region()); }

// Empties the store and allocates transactions 0..2; T (2) gets type and initiator.
void freshStoreWithTa(uint32_t type, uint32_t initiator = QOS_TA_BY_MODEM) {
  ASSERT_EQ(qos_IntDb_Reset(), 0);
  for (uint32_t i = 0; i <= T; ++i) {
    uint32_t index = 99;
    ASSERT_EQ(qos_TaDb_AddNewTa(0x8000 + i, i == T ? type : uint32_t{QOS_TA_DSA}, initiator, 0, nullptr, &index), 0);
    ASSERT_EQ(index, i);
  }
}

qos::SfRow& putFlow(int32_t i, uint32_t state, uint32_t sfId, int32_t ta, int32_t held = N,
                    uint8_t direction = QOS_DIR_DOWNSTREAM) {
  qos::SfRow& r = db().sf[i];
  r.state = state;
  r.sfId = sfId;
  r.direction = direction;
  r.taIndex = ta;
  r.heldTaIndex = held;
  if (db().stats.sfDbMaxIndex < i) db().stats.sfDbMaxIndex = i;
  return r;
}

qos::ClsfRow& putClsf(int32_t i, uint32_t status, uint32_t sfId, int32_t ta, uint16_t clsfId = 0) {
  qos::ClsfRow& r = db().clsf[i];
  r.status = status;
  r.sfId = sfId;
  r.taIndex = ta;
  r.clsfId = clsfId;
  r.ref = static_cast<uint8_t>(0x30 + i);
  r.sfRef = static_cast<uint16_t>(0x40 + i);
  if (db().stats.clsfDbMaxIndex < i) db().stats.clsfDbMaxIndex = i;
  return r;
}

uint32_t pendingState(uint32_t type) {
  return type == QOS_TA_DSA ? QOS_SF_ADDING : type == QOS_TA_DSD ? QOS_SF_DELETING : QOS_SF_CHANGING;
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

struct FlowCase {
  const char* name;
  uint32_t type, initiator;
  Op op;
  uint32_t state;
  int32_t ta, held;
  uint32_t committed;
  uint16_t ref;
  int32_t pair;
  std::vector<uint32_t> events;  // each with the former holder H as payload
};

// The flow state table: a downstream flow of T, held by H, through each outcome.
TEST_F(Outcome, FlowRowsOfTheTransaction) {
  const std::vector<FlowCase> cases = {
      {"DSA succeeded", QOS_TA_DSA, 0, ok, 1, N, T, 1, 0, N, {}},
      {"DSC succeeded", QOS_TA_DSC, 0, ok, 1, N, T, 1, 5, N, {QOS_EV_HELD_SF_CHANGED}},
      {"DSD succeeded", QOS_TA_DSD, 0, ok, 6, N, T, 0, 5, 9, {QOS_EV_HELD_SF_DELETED}},
      {"DSA failure", QOS_TA_DSA, 0, fail, 5, N, T, 7, 5, 9, {}},
      {"DSC failure", QOS_TA_DSC, 0, fail, 1, N, T, 7, 5, 9, {}},
      {"DSD failure", QOS_TA_DSD, 0, fail, 4, T, H, 7, 5, 9, {}},
      {"modem DSA error", QOS_TA_DSA, 0, err, 5, N, T, 7, 5, 9, {}},
      {"CMTS DSA error", QOS_TA_DSA, 1, err, 4, N, T, 7, 5, 9, {}},
      {"DSC error", QOS_TA_DSC, 0, err, 4, N, T, 7, 5, 9, {}},
      {"DSD error", QOS_TA_DSD, 0, err, 6, N, T, 0, 5, 9, {QOS_EV_HELD_SF_DELETED}},
      {"DSA forced end", QOS_TA_DSA, 0, forced, 5, N, H, 7, 5, 9, {}},
      {"DSC forced end", QOS_TA_DSC, 0, forced, 1, N, H, 7, 5, 9, {}},
      {"DSD forced end", QOS_TA_DSD, 0, forced, 4, N, H, 7, 5, 9, {}},
      {"unknown type succeeded", kNoType, 0, ok, 3, T, H, 7, 5, 9, {}},
      {"unknown type error", kNoType, 0, err, 3, T, H, 7, 5, 9, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    freshStoreWithTa(c.type, c.initiator);
    qos::SfRow& r = putFlow(3, pendingState(c.type), kOwnFlow, T, H);
    r.ref = 5;
    r.committed = 7;
    r.pairSfIndex = 9;
    const auto before = snapshot();
    EventCapture events;
    logs.clear();

    EXPECT_EQ(c.op(T), 0);
    EXPECT_EQ(r.state, c.state);
    EXPECT_EQ(r.taIndex, c.ta);
    EXPECT_EQ(r.heldTaIndex, c.held);
    EXPECT_EQ(r.committed, c.committed);
    EXPECT_EQ(r.ref, c.ref);
    EXPECT_EQ(r.pairSfIndex, c.pair);
    std::vector<Event> expected;
    for (uint32_t e : c.events) expected.push_back({QOS_EV_COMPONENT, e, H});
    EXPECT_EQ(events.events(), expected);
    for (std::size_t off : changedOffsets(before, snapshot())) EXPECT_EQ(off / sizeof(qos::SfRow), 3u);
    EXPECT_TRUE(logs.records().empty());
  }
}

// Several held flows of one transaction: one event per held flow, in row order.
TEST_F(Outcome, HeldFlowsAreToldInRowOrder) {
  for (uint32_t type : {QOS_TA_DSC, QOS_TA_DSD}) {
    freshStoreWithTa(type);
    putFlow(0, pendingState(type), 0x10, T, 6);
    putFlow(1, pendingState(type), 0x11, T, N);
    putFlow(2, pendingState(type), 0x12, T, 1);
    putFlow(3, pendingState(type), 0x13, 5, 3);  // another transaction's flow
    EventCapture events;
    EXPECT_EQ(qos_intDb_UpdateSfOnTaSucceeded(T), 0);
    uint32_t ev = type == QOS_TA_DSC ? QOS_EV_HELD_SF_CHANGED : QOS_EV_HELD_SF_DELETED;
    EXPECT_EQ(events.events(), (std::vector<Event>{{32, ev, 6}, {32, ev, 1}}));
  }
}

struct ClsfCase {
  const char* name;
  uint32_t type;
  Op op;
  std::array<uint32_t, 5> ofTa;  // statuses after, 0 = freed, rows in status 1..5 under T
  int32_t taAfter;               // of the rows of T that stay
  std::array<uint32_t, 5> ofFlow;  // rows in status 1..5 of T's flow, under H
  std::vector<std::string> logs;
};

// The classifier state table. Rows 0..4 (status 1..5) are T's on another
// flow; rows 5..9 (status 1..5) belong to T's flow under another transaction.
TEST_F(Outcome, ClassifierRowsOfTheTransaction) {
  const std::array<uint32_t, 5> kept = {1, 2, 3, 4, 5}, gone = {0, 0, 0, 0, 0};
  const std::array<uint32_t, 5> dscDone = {1, 1, 1, 0, 5}, dscUndone = {1, 0, 1, 1, 5};
  const auto incorrect = [](int s) {
    return "Incorrect status " + std::to_string(s) + " of classifier ClsfID=0x1" + std::to_string(s) +
           " on DSC success processing";
  };
  const std::vector<ClsfCase> cases = {
      {"DSA succeeded", QOS_TA_DSA, ok, {1, 1, 1, 1, 1}, N, kept, {}},
      {"DSC succeeded", QOS_TA_DSC, ok, dscDone, N, kept, {incorrect(1), incorrect(5)}},
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
    for (int s = 1; s <= 5; ++s) {
      const qos::ClsfRow& mine = db().clsf[s - 1];
      const qos::ClsfRow& flows = db().clsf[s + 4];
      EXPECT_EQ(mine.status, c.ofTa[s - 1]) << "status " << s;
      EXPECT_EQ(flows.status, c.ofFlow[s - 1]) << "status " << s;
      EXPECT_TRUE(mine.status == 0 ? isResetClsf(mine) : mine.taIndex == c.taAfter);
      EXPECT_TRUE(flows.status == 0 ? isResetClsf(flows) : flows.taIndex == H);
      const bool cleared = c.type == QOS_TA_DSA && c.op == ok;
      EXPECT_TRUE(mine.status == 0 || (mine.ref == 0 && mine.sfRef == 0) == cleared);
    }
    EXPECT_EQ(logs.texts(), c.logs);
    for (const auto& rec : logs.records()) {
      EXPECT_EQ(rec.level, QOS_LOG_NOTICE);
      EXPECT_EQ(rec.function, "qos_intDb_UpdateSfOnTaSucceeded");
    }
  }
}

// The flow list keeps the first two flows; entries not filled match nothing.
TEST_F(Outcome, DsdFreesTheClassifiersOfItsFirstTwoFlowsOnly) {
  for (Op op : {ok, err, forced}) {
    freshStoreWithTa(QOS_TA_DSD);
    putFlow(0, QOS_SF_DELETING, 0xA1, T);
    putFlow(1, QOS_SF_DELETING, 0xA2, T);
    putFlow(2, QOS_SF_DELETING, 0xA3, T);
    for (int i = 0; i < 3; ++i) putClsf(i, QOS_CLSF_OPERATIONAL, 0xA1 + i, N);
    EXPECT_EQ(op(T), 0);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(db().sf[i].taIndex, N);  // the third flow is settled too
    EXPECT_EQ(db().clsf[0].status, 0u);
    EXPECT_EQ(db().clsf[1].status, 0u);
    EXPECT_EQ(db().clsf[2].status, QOS_CLSF_OPERATIONAL);

    freshStoreWithTa(QOS_TA_DSD);
    putFlow(0, QOS_SF_DELETING, 0xA1, T);
    putClsf(0, QOS_CLSF_ADDING, 0, 5);  // another transaction's DSA, SFID not known yet
    putClsf(1, QOS_CLSF_OPERATIONAL, 0xA1, N);
    EXPECT_EQ(op(T), 0);
    EXPECT_EQ(db().clsf[0].status, QOS_CLSF_ADDING);
    EXPECT_EQ(db().clsf[1].status, 0u);
  }
}

struct EndCase {
  const char* name;
  uint32_t type, initiator;
  Op earlier;
  bool freed;
  uint32_t state;           // when kept
  int32_t ta;               // when kept
  int32_t workerMeanwhile;  // another transaction starts on the flow before the end
};

// The end of the hold after each earlier outcome: which flows it frees.
TEST_F(Outcome, EndAfterEachOutcome) {
  const std::vector<EndCase> cases = {
      {"DSA succeeded", QOS_TA_DSA, 0, ok, false, 1, N, N},
      {"DSA failure", QOS_TA_DSA, 0, fail, true, 0, N, N},
      {"modem DSA error", QOS_TA_DSA, 0, err, true, 0, N, N},
      {"CMTS DSA error", QOS_TA_DSA, 1, err, false, 4, N, N},
      {"DSA forced end", QOS_TA_DSA, 0, forced, false, 5, N, N},
      {"DSA add abort", QOS_TA_DSA, 0, abort_, true, 0, N, N},
      {"DSC succeeded", QOS_TA_DSC, 0, ok, false, 1, N, N},
      {"DSC failure", QOS_TA_DSC, 0, fail, false, 1, N, N},
      {"DSC error", QOS_TA_DSC, 0, err, false, 4, N, N},
      {"DSC forced end", QOS_TA_DSC, 0, forced, false, 1, N, N},
      {"DSD succeeded", QOS_TA_DSD, 0, ok, true, 0, N, N},
      {"DSD succeeded, flow taken on", QOS_TA_DSD, 0, ok, false, 6, 6, 6},
      {"DSD failure", QOS_TA_DSD, 0, fail, false, 4, T, N},
      {"DSD error", QOS_TA_DSD, 0, err, true, 0, N, N},
      {"DSD forced end", QOS_TA_DSD, 0, forced, false, 4, N, N},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    freshStoreWithTa(c.type, c.initiator);
    putFlow(2, QOS_SF_OPERATIONAL, 0x50, N);
    qos::SfRow& r = putFlow(5, pendingState(c.type), kOwnFlow, T);
    ASSERT_EQ(c.earlier(T), 0);
    if (c.workerMeanwhile != N) r.taIndex = c.workerMeanwhile;
    EXPECT_EQ(qos_intDb_UpdateSfOnTaEnd(T), 0);
    if (c.freed) {
      EXPECT_TRUE(isResetFlow(r));
    } else {
      EXPECT_EQ(r.state, c.state);
      EXPECT_EQ(r.taIndex, c.ta);
      EXPECT_EQ(r.heldTaIndex, N);
    }
    EXPECT_EQ(db().stats.sfDbMaxIndex, c.freed ? 2 : 5);
    EXPECT_EQ(db().sf[2].state, QOS_SF_OPERATIONAL);
  }
}

// With the last row freed, both maximum indexes cover the whole table.
TEST_F(Outcome, MaximumIndexesAfterTheLastFree) {
  freshStoreWithTa(QOS_TA_DSA);
  putFlow(4, QOS_SF_ADDING, 0, T);
  putClsf(7, QOS_CLSF_ADDING, 0, T);
  ASSERT_EQ(qos_intDb_UpdateSfOnTaFailure(T), 0);
  EXPECT_EQ(db().stats.clsfDbMaxIndex, 319);
  EXPECT_EQ(db().stats.sfDbMaxIndex, 4);
  ASSERT_EQ(qos_intDb_UpdateSfOnTaEnd(T), 0);
  EXPECT_EQ(db().stats.sfDbMaxIndex, 127);
}

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
    EXPECT_EQ(qos_intDb_UpdateSfAddAbort(T), 0);
    if (!adding) {
      EXPECT_TRUE(changedOffsets(before, snapshot()).empty());
      continue;
    }
    EXPECT_EQ(db().sf[0].state, QOS_SF_ADD_REJECTED);
    EXPECT_EQ(db().sf[0].heldTaIndex, T);
    EXPECT_EQ(db().sf[0].taIndex, N);
    EXPECT_TRUE(isResetClsf(db().clsf[0]));
    EXPECT_TRUE(isResetClsf(db().clsf[1]));
    for (std::size_t off : changedOffsets(before, snapshot())) {
      bool inFlow0 = off < sizeof(qos::SfRow);
      bool inClsf01 = off >= offsetof(qos::QosIntDbRegion, clsf) &&
                      off < offsetof(qos::QosIntDbRegion, clsf) + 2 * sizeof(qos::ClsfRow);
      EXPECT_TRUE(inFlow0 || inClsf01) << "offset " << off;
    }
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
  EXPECT_EQ(qos_intDb_UpdateSfOnTaAckLost(T), 0);
  EXPECT_EQ(events.events(), (std::vector<Event>{{32, QOS_EV_HOLDER_ACK_LOST, 5}, {32, QOS_EV_HOLDER_ACK_LOST, 7}}));
  EXPECT_TRUE(changedOffsets(before, snapshot()).empty());
}

TEST_F(Outcome, RegistrationFinishClearsReferencesOfOperationalRowsOnly) {
  putFlow(0, QOS_SF_OPERATIONAL, 0x50, N).ref = 1;
  putFlow(1, QOS_SF_ADDING, 0, 3).ref = 2;
  putClsf(0, QOS_CLSF_OPERATIONAL, 0x50, N);
  putClsf(1, QOS_CLSF_ADDING, 0, 3);
  EXPECT_EQ(qos_intDb_UpdateOnRegFinish(), 0);
  EXPECT_EQ(db().sf[0].ref, 0);
  EXPECT_EQ(db().sf[1].ref, 2);
  EXPECT_EQ(db().clsf[0].ref, 0);
  EXPECT_EQ(db().clsf[0].sfRef, 0);
  EXPECT_EQ(db().clsf[1].ref, 0x31);
  EXPECT_EQ(db().clsf[1].sfRef, 0x41);
}

// A DSD of an upstream flow takes its clusters, switchover criteria and
// active entry with it; a downstream flow of the same DSD takes nothing.
TEST_F(Outcome, UpstreamDsdTakesClustersCriteriaAndActiveEntry) {
  const SidChannelMapping maps[4] = {{0, 1, 0, 11}, {0, 2, 0, 12}, {0, 0, 0, 0}, {0, 0, 0, 0}};
  for (Op op : {ok, err}) {
    freshStoreWithTa(QOS_TA_DSD);
    putFlow(0, QOS_SF_DELETING, 0x200, T, N, QOS_DIR_UPSTREAM).paramSetType = QOS_PARAMSET_ACTIVE;
    putFlow(1, QOS_SF_DELETING, 0x300, T);
    putFlow(2, QOS_SF_OPERATIONAL, 0x400, N, N, QOS_DIR_UPSTREAM).paramSetType = QOS_PARAMSET_ACTIVE;
    for (uint32_t sfId : {0x200u, 0x300u, 0x400u}) {
      ASSERT_EQ(qos_intDb_AddSfSidCluster(sfId, 1, maps), 0);
      ASSERT_EQ(qos_intDb_AddSfSidCluster(sfId, 2, maps), 0);
      ASSERT_EQ(qos_intDb_SetSfSidClusterParams(sfId, 1000, 2000, 30, 4), 0);
    }
    ASSERT_EQ(qos_intDb_AddActiveUsSfEntry(0x200), 0);
    ASSERT_EQ(qos_intDb_AddActiveUsSfEntry(0x400), 0);
    logs.clear();

    EXPECT_EQ(op(T), 0);
    uint32_t a, b, index;
    uint16_t c;
    uint8_t d, cluster;
    int32_t row = -1;
    EXPECT_EQ(qos_intDb_GetNextSfSidCluster(0x200, &row, &cluster, nullptr), -1);
    EXPECT_EQ(qos_intDb_GetSfSidClusterParams(0x200, &a, &b, &c, &d), -1);
    EXPECT_EQ(qos_intDb_GetActiveSfIndexBySfid(0x200, &index), -1);
    for (uint32_t sfId : {0x300u, 0x400u}) {
      row = -1;
      EXPECT_EQ(qos_intDb_GetNextSfSidCluster(sfId, &row, &cluster, nullptr), 0);
      EXPECT_EQ(qos_intDb_GetSfSidClusterParams(sfId, &a, &b, &c, &d), 0);
    }
    EXPECT_EQ(qos_intDb_GetActiveSfIndexBySfid(0x400, &index), 0);
    EXPECT_TRUE(logs.records().empty());
  }
}

// An upstream flow missing from the active table: the active table says so,
// the outcome goes on.
TEST_F(Outcome, UpstreamDsdOfAFlowWithoutActiveEntry) {
  freshStoreWithTa(QOS_TA_DSD);
  putFlow(0, QOS_SF_DELETING, 0x500, T, N, QOS_DIR_UPSTREAM);
  putFlow(1, QOS_SF_DELETING, 0x501, T);
  EXPECT_EQ(qos_intDb_UpdateSfOnTaSucceeded(T), 0);
  EXPECT_EQ(logs.texts(), std::vector<std::string>{
                              "qos_intDb_DeleteActiveUsSfEntry: SFID=0x500 is not found into active SF DB"});
  EXPECT_EQ(db().sf[0].state, QOS_SF_DELETED);
  EXPECT_EQ(db().sf[1].state, QOS_SF_DELETED);
}

struct BadCase {
  const char* name;
  Op op;
  uint32_t taIndex;
  int32_t result;
  std::vector<std::string> logs;
};

// Indexes above 10, index 10 (no transaction row) and a free transaction row.
TEST_F(Outcome, BadTransactionIndexesWriteNothing) {
  const std::string noType3 = "QOS:  Cannot determine DSX TA type; TA index=3";
  const std::string range10 = "qos_TaDb_GetTaType: ---> DSX TA DB index 10 is out of range";
  const std::vector<BadCase> cases = {
      {"succeeded 11", ok, 11, -1, {}},
      {"failure 11", fail, 11, -1, {}},
      {"error -1", err, 0xFFFFFFFF, -1, {}},
      {"forced end 11", forced, 11, -1, {}},
      {"end 11", qos_intDb_UpdateSfOnTaEnd, 11, -1, {}},
      {"add abort 11", abort_, 11, -1, {}},
      {"ack lost 11", qos_intDb_UpdateSfOnTaAckLost, 11, -1, {}},
      {"succeeded 10", ok, 10, -1, {range10}},
      {"error 10", err, 10, -1,
       {range10, "QOS:  Cannot determine DSX TA type; TA index=10"}},
      {"end 10", qos_intDb_UpdateSfOnTaEnd, 10, -1, {range10}},
      {"add abort 10", abort_, 10, 0, {}},
      {"ack lost 10", qos_intDb_UpdateSfOnTaAckLost, 10, 0, {}},
      {"succeeded, free row", ok, 3, -1, {}},
      {"failure, free row", fail, 3, -1, {}},
      {"error, free row", err, 3, -1, {noType3}},
      {"forced end, free row", forced, 3, -1, {}},
      {"end, free row", qos_intDb_UpdateSfOnTaEnd, 3, -1, {}},
  };
  freshStoreWithTa(QOS_TA_DSA);
  putFlow(0, QOS_SF_ADDING, 0, 3, 3);
  putClsf(0, QOS_CLSF_ADDING, 0, 3);
  const auto before = snapshot();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    logs.clear();
    EventCapture events;
    EXPECT_EQ(c.op(c.taIndex), c.result);
    EXPECT_EQ(logs.texts(), c.logs);
    EXPECT_TRUE(changedOffsets(before, snapshot()).empty());
    EXPECT_TRUE(events.events().empty());
  }
  logs.clear();
  qos_intDb_UpdateSfOnTaError(3);
  ASSERT_EQ(logs.records().size(), 1u);
  EXPECT_EQ(logs.records()[0].level, QOS_LOG_ERROR);
  EXPECT_EQ(logs.records()[0].function, "qos_intDb_UpdateSfOnTaError");
}

}  // namespace
}  // namespace qostest
