// SPDX-License-Identifier: MIT
// classifiers_test.cpp - classifiers and PHS rule bindings: arrival orders
// of flows, classifiers and PHS rules, take-overs, full tables, the DSC
// marks and their argument checks, lookups, the dump, the PHS conflict and
// initiator rules and the rule counter.
#include <algorithm>
#include <cstdio>

#include "frame/region.h"
#include "support/fixture.h"

namespace qostest {
namespace {

qos::SfRow& sf(int i) { return store().sf[i]; }
qos::ClsfRow& clsf(int i) { return store().clsf[i]; }
qos::QosIntDbStats& stats() { return store().stats; }

// The fields the classifier operations touch, as one line.
std::string clsfStr(int i) {
  const qos::ClsfRow& r = clsf(i);
  char b[96];
  std::snprintf(b, sizeof b, "status=%u ref=%u id=0x%x sfRef=%u sfId=0x%x ta=%d", r.status, r.ref, r.clsfId, r.sfRef,
                r.sfId, r.taIndex);
  return b;
}
void putClsf(int i, uint32_t status, uint8_t ref, uint16_t clsfId, uint16_t sfRef, uint32_t sfId, int32_t taIndex) {
  qos::ClsfRow& r = clsf(i) = qos::ClsfRow{};
  r.status = status, r.ref = ref, r.clsfId = clsfId, r.sfRef = sfRef, r.sfId = sfId, r.taIndex = taIndex;
}
std::string sfStr(int i) {
  const qos::SfRow& r = sf(i);
  char b[96];
  std::snprintf(b, sizeof b, "state=%u sfId=0x%x ref=%u ta=%d clsf=%u app=%u del=%u phs=%u", r.state, r.sfId, r.ref,
                r.taIndex, r.clsfCounter, r.appendedClsfCounter, r.deletedClsfCounter, r.phsCounter);
  return b;
}

using V = std::vector<int64_t>;
using Classifiers = StoreTest;

#define CALL(expr) [] { return expr; }
using Call = std::function<int32_t()>;

// Whatever order the three parts of one binding arrive in, the rows end the same.
TEST_F(Classifiers, EveryArrivalOrderEndsInTheSameRows) {
  const struct { const char* name; Call steps[3]; const char *clsfRow, *flowRow; } families[] = {  // steps: PHS, clsf, flow
      {"registration", {CALL(qos_intDb_AddPhs(3, 7)), CALL(qos_intDb_AddClsf(0x100, 3, 7)), CALL(qos_intDb_AddSf(0x100, 3, 2))},
       "status=1 ref=7 id=0x0 sfRef=3 sfId=0x0 ta=-1", "state=1 sfId=0x100 ref=3 ta=-1 clsf=1 app=0 del=0 phs=1"},
      {"DSA by reference", {CALL(qos_intDb_AddPhsRef(3, 7, 4)), CALL(qos_intDb_AddClsfRef(3, 7, 4)), CALL(qos_intDb_AddSfReference(3, 2, 4))},
       "status=2 ref=7 id=0x0 sfRef=3 sfId=0x0 ta=4", "state=2 sfId=0x0 ref=3 ta=4 clsf=1 app=0 del=0 phs=1"},
      {"DSA by identifier", {CALL(qos_intDb_AddPhsId(0x100, 9, 4)), CALL(qos_intDb_AddClsfId(0x100, 9, 4)), CALL(qos_intDb_AddSfId(0x100, 2, 4))},
       "status=2 ref=0 id=0x9 sfRef=0 sfId=0x100 ta=4", "state=2 sfId=0x100 ref=0 ta=4 clsf=1 app=0 del=0 phs=1"},
  };
  for (const auto& f : families) {
    int order[3] = {0, 1, 2};
    std::vector<uint8_t> first;
    do {
      SCOPED_TRACE(::testing::Message() << f.name << " order " << order[0] << order[1] << order[2]);
      qos_intDb_SfDb_Reset();
      for (int step : order) EXPECT_EQ(f.steps[step](), 0);
      EXPECT_EQ(clsfStr(0) + " / " + sfStr(0), std::string(f.clsfRow) + " / " + f.flowRow);
      EXPECT_EQ(stats().clsfDbMaxIndex + stats().sfDbMaxIndex, 0);  // no row wasted
      if (first.empty()) first = snapshot();
      EXPECT_EQ(changedOffsets(first, snapshot()), std::vector<std::size_t>{});
    } while (std::next_permutation(order, order + 3));
  }
  EXPECT_TRUE(logs.records().empty());
}

// A reference add takes over only a placeholder of the same flow reference;
// registration refuses silently, and a row it chose stays free (only the
// maximum index raised while choosing stays raised).
TEST_F(Classifiers, TakeOverOnlyOfAMatchingPlaceholder) {
  ASSERT_EQ(qos_intDb_AddPhsRef(3, 7, 0), 0);
  EXPECT_EQ(qos_intDb_AddClsfRef(4, 7, 0), -1);
  EXPECT_EQ(clsfStr(0), "status=5 ref=7 id=0x0 sfRef=3 sfId=0x0 ta=0");
  EXPECT_EQ(qos_intDb_AddClsfRef(3, 7, 0), 0);
  EXPECT_EQ(qos_intDb_AddClsfRef(3, 7, 0), -1);
  EXPECT_EQ(qos_intDb_AddClsfRef(3, 7, 1), 0);  // another transaction: another classifier and flow
  EXPECT_EQ(clsfStr(0), "status=2 ref=7 id=0x0 sfRef=3 sfId=0x0 ta=0");
  EXPECT_EQ(clsfStr(1), "status=2 ref=7 id=0x0 sfRef=3 sfId=0x0 ta=1");
  EXPECT_EQ(sfStr(1), "state=7 sfId=0x0 ref=3 ta=1 clsf=1 app=0 del=0 phs=0");
  const std::string exists = "qos_intDb_AddClsfRef: Clsf with Ref=7 and TA idx=0 already exists. DB idx=0, SF Ref=";
  EXPECT_EQ(logs.texts(), (std::vector<std::string>{exists + "4", exists + "3"}));
  EXPECT_EQ(logs.records()[1].level, QOS_LOG_ERROR);

  qos_intDb_SfDb_Reset();
  // Placeholder row 1 of classifier 9, flow reference 5.
  ASSERT_EQ((V{qos_intDb_AddSf(0x100, 3, QOS_DIR_UPSTREAM), qos_intDb_AddClsf(0x100, 3, 7), qos_intDb_AddPhs(5, 9)}), V(3, 0));
  logs.clear();
  auto before = snapshot();
  EXPECT_EQ(qos_intDb_AddClsf(0x100, 3, 7), -1);  // an operational classifier holds reference 7
  EXPECT_EQ(qos_intDb_AddClsf(0x100, 3, 9), -1);  // placeholder of another flow reference
  EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});
  EXPECT_EQ(qos_intDb_AddClsf(0x200, 3, 8), -1);  // flow reference 3 has another SFID
  EXPECT_EQ(stats().clsfDbMaxIndex, 2);
  stats().clsfDbMaxIndex = 1;
  EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});
  EXPECT_TRUE(logs.records().empty());
}

TEST_F(Classifiers, FullTablesRefuseWithTheirMessagesAndWriteNoRow) {
  uint32_t ta = 0;  // a CMTS-initiated transaction, row 0
  ASSERT_EQ(qos_TaDb_AddNewTa(55, QOS_TA_DSC, QOS_TA_BY_CMTS, 0, nullptr, &ta), 0);
  // DSC appends mark flow row 0 before they fail.
  struct Case { bool flowsFull; Call call; const char* text; bool marksFlow = false; } cases[] = {
      {false, CALL(qos_intDb_AddClsf(0x100, 3, 7)), "qos_intDb_AddClsf: Classifier int DB is full. Clsf Ref=7 cannot be added to DB"},
      {false, CALL(qos_intDb_AddClsfRef(3, 7, 0)), "qos_intDb_AddClsfRef: Classifier int DB is full. Clsf Ref=7 cannot be added to DB"},
      {false, CALL(qos_intDb_AddClsfId(0x100, 9, 0)), "qos_intDb_AddClsfId: Classifier int DB is full. Clsf Id=9 cannot be added to DB"},
      {false, CALL(qos_intDb_AppendClsfRef(0, 7, 0)), "qos_intDb_AppendClsfRef: Classifier int DB is full. Clsf Ref =7 of service flow SFID=256 cannot be added to DB", true},
      {false, CALL(qos_intDb_AppendClsfId(0, 9, 0)), "qos_intDb_AppendClsfId: Classifier int DB is full. Clsf Id=9 of service flow SFID=256 cannot be added to DB", true},
      {false, CALL(qos_intDb_AddPhs(3, 7)), "qos_intDb_AddPhs: Clsf int DB is full. Referenced Clsf=7 cannot be added to DB for PHS"},
      {false, CALL(qos_intDb_AddPhsRef(3, 7, 0)), "qos_intDb_AddPhsRef: Clsf int DB is full. Refered Clsf=7 cannot be added for PHS"},
      {false, CALL(qos_intDb_AddPhsId(0x100, 9, 0)), "qos_intDb_AddPhsId: Clsf int DB is full. Classifier with ID=9 cannot be added for PHS"},
      {false, CALL(qos_intDb_AppendPhs_ClsfRef(0x100, 7, 0)), "qos_intDb_AppendPhs_ClsfRef: Clsf int DB is full. Classifier with Ref=7 cannot be added for PHS"},
      {false, CALL(qos_intDb_AppendPhs_ClsfId(0x100, 9, 0)), "Clsf int DB is full. Classifier with ID=9 cannot be added for PHS"},
      {true, CALL(qos_intDb_AddClsf(0x100, 3, 7)), "qos_intDb_AddClsf: SF int DB is full. Referenced SF cannot be added to DB for Clsf Ref=7"},
      {true, CALL(qos_intDb_AddClsfRef(3, 7, 0)), "qos_intDb_AddClsfRef: SF int DB is full. Referenced SF cannot be added to DB for Clsf Ref=7"},
      {true, CALL(qos_intDb_AddClsfId(0x100, 9, 0)), "qos_intDb_AddClsfId: SF int DB is full. Referenced SF cannot be added to DB for Clsf Id=9"},
      {true, CALL(qos_intDb_AddPhs(3, 7)), "qos_intDb_AddPhs: SF int DB is full. Referenced SF = 3 cannot be added to DB for PHS"},
      {true, CALL(qos_intDb_AddPhsRef(3, 7, 0)), "qos_intDb_AddPhsRef: SF int DB is full. Referred SF=3 cannot be added to DB for PHS"},
      {true, CALL(qos_intDb_AddPhsId(0x100, 9, 0)), "qos_intDb_AddPhsId: SF int DB is full. Service Flow with ID=256 cannot be added to DB for PHS"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    qos_intDb_SfDb_Reset();
    ASSERT_EQ(qos_intDb_AddSf(0x100, 3, QOS_DIR_UPSTREAM), 0);  // row 0
    for (int i = 0; c.flowsFull && i < 128; ++i) {
      sf(i) = qos::SfRow{};
      sf(i).state = QOS_SF_OPERATIONAL, sf(i).sfId = 0x1000u + i, sf(i).ref = static_cast<uint16_t>(1000 + i);
    }
    for (int i = 0; !c.flowsFull && i < 320; ++i) putClsf(i, QOS_CLSF_OPERATIONAL, 200, 0, 0, 0x9999, -1);
    stats().sfDbMaxIndex = c.flowsFull ? 127 : 0;
    stats().clsfDbMaxIndex = c.flowsFull ? 0 : 319;
    auto before = snapshot();
    logs.clear();
    EXPECT_EQ(c.call(), -1);
    ASSERT_EQ(logs.texts(), std::vector<std::string>{c.text});
    EXPECT_EQ(logs.records()[0].level, QOS_LOG_ERROR);
    if (c.marksFlow) {
      EXPECT_EQ(sfStr(0), "state=3 sfId=0x100 ref=3 ta=0 clsf=0 app=0 del=0 phs=0");
      sf(0).state = QOS_SF_OPERATIONAL, sf(0).taIndex = -1;
    }
    EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});
  }
}

// The DSC operations mark at once, keep the counters at once and leave the
// flow changing even when the append fails afterwards. Bad indexes: hostile_test.
TEST_F(Classifiers, DscOperationsMarkAndCountAtOnce) {
  ASSERT_EQ((V{qos_intDb_AddSf(0x100, 3, QOS_DIR_UPSTREAM), qos_intDb_AddClsf(0x100, 3, 7), qos_intDb_SetClsfId(0, 9),
               qos_intDb_SetClsfSfid(0, 0x100)}), V(4, 0));
  EXPECT_EQ((V{qos_intDb_AppendClsfRef(0, 8, 2), qos_intDb_AppendClsfId(0, 12, 2)}), (V{0, 0}));
  EXPECT_EQ(clsfStr(1), "status=2 ref=8 id=0x0 sfRef=0 sfId=0x100 ta=2");
  EXPECT_EQ(clsfStr(2), "status=2 ref=0 id=0xc sfRef=0 sfId=0x100 ta=2");
  EXPECT_EQ(sfStr(0), "state=3 sfId=0x100 ref=3 ta=2 clsf=3 app=2 del=0 phs=0");
  EXPECT_EQ((V{qos_intDb_ChangeClassifier(0, 0, 3), qos_intDb_DeleteClassifier(0, 1, 3)}), (V{0, 0}));
  EXPECT_EQ(clsfStr(0), "status=3 ref=7 id=0x9 sfRef=3 sfId=0x100 ta=3");
  EXPECT_EQ(clsfStr(1), "status=4 ref=8 id=0x0 sfRef=0 sfId=0x100 ta=3");
  EXPECT_EQ(sfStr(0), "state=3 sfId=0x100 ref=3 ta=3 clsf=2 app=2 del=1 phs=0");
  // An identifier add takes over whatever row holds it.
  EXPECT_EQ(qos_intDb_AddClsfId(0x100, 9, 1), 0);
  EXPECT_EQ(clsfStr(0), "status=2 ref=7 id=0x9 sfRef=3 sfId=0x100 ta=1");
  EXPECT_EQ(sfStr(0), "state=3 sfId=0x100 ref=3 ta=1 clsf=3 app=2 del=1 phs=0");
  EXPECT_TRUE(logs.records().empty());

  sf(0).state = QOS_SF_OPERATIONAL;
  EXPECT_EQ(qos_intDb_AppendClsfRef(0, 7, 1), -1);
  EXPECT_EQ(sfStr(0), "state=3 sfId=0x100 ref=3 ta=1 clsf=3 app=2 del=1 phs=0");
  EXPECT_EQ(logs.texts(), std::vector<std::string>{
                              "qos_intDb_AppendClsfRef: Clsf with Ref=7 and TA idx=1 already exists. DB idx=0, SF Id=256"});
}

template <typename T>
int64_t found(int32_t rc, const T& out) { return rc == 0 ? static_cast<int64_t>(out) : -1; }

TEST_F(Classifiers, LookupsSeeOrSkipPlaceholdersAndStopAtTheMaximumIndex) {
  putClsf(0, QOS_CLSF_PHS_PLACEHOLDER, 7, 9, 0, 0x100, 2);
  putClsf(1, QOS_CLSF_OPERATIONAL, 7, 0, 3, 0x100, -1);
  putClsf(2, QOS_CLSF_DELETING, 8, 11, 0, 0x200, 3);
  putClsf(4, QOS_CLSF_OPERATIONAL, 9, 12, 0, 0x100, -1);
  putClsf(5, QOS_CLSF_OPERATIONAL, 9, 13, 0, 0x100, -1);  // above the maximum index
  stats().clsfDbMaxIndex = 4;
  uint32_t i = 99;
  uint16_t id = 99;
  // By reference the placeholder is passed over, by identifier or transaction
  // and reference it is found; neither has an SFID, nor has row 1 an identifier.
  EXPECT_EQ((V{found(qos_intDb_FindClsfByRef(7, &i), i), found(qos_intDb_FindClsfByRef(7 + 256, &i), i),
               found(qos_intDb_FindClsfById(9, 0x100, &i), i), found(qos_intDb_FindClsfById(9 + 65536, 0x100, &i), i),
               found(qos_intDb_FindClsfByTaAndRef(7, 2, &i), i), found(qos_intDb_FindClsfByTaAndRef(7, ~0u, &i), i),
               found(qos_intDb_GetClsfSfid(0, &i), i), found(qos_intDb_GetClsfId(1, &id), id),
               found(qos_intDb_GetClsfId(4, &id), id)}),
            (V{1, -1, 0, -1, 0, 1, -1, -1, 12}));
  V walk;
  for (int32_t prev = -1; qos_intDb_GetNextClsfOfSf(0x100, prev, &id, &i) == 0; prev = int32_t(i)) walk.insert(walk.end(), {i, id});
  EXPECT_EQ(walk, (V{0, 9, 1, 0, 4, 12}));
  EXPECT_EQ(qos_intDb_GetNextClsfOfSf(0x100, 320, &id, &i), -1);
  EXPECT_TRUE(logs.records().empty());
  EXPECT_EQ(qos_intDb_IsClsfInDeleting(320, &i), -1);
  EXPECT_EQ(qos_intDb_SetClsfId(~0u, 1), -1);
  EXPECT_EQ(logs.texts(), (std::vector<std::string>{"func qos_intDb_IsClsfInDeleting: ---> Clsf DB index 320 is out of range",
                                                    "func qos_intDb_SetClsfId: ---> Clsf DB index -1 is out of range"}));
}

TEST_F(Classifiers, PrintShowsUsedRows) {
  putClsf(0, QOS_CLSF_PHS_PLACEHOLDER, 7, 0x1a, 3, 0x100, 2);
  putClsf(2, QOS_CLSF_OPERATIONAL, 12, 0xbeef, 300, 0x12345678, -1);
  stats().clsfDbMaxIndex = 2;
  const std::string row0 = "Clsf DB Idx=0    ClsfID=0x1a     Ref=7    SFID=0x100        SF Ref=3   Status=5  TaIndex=2 \n";
  const std::string row2 = "Clsf DB Idx=2    ClsfID=0xbeef   Ref=12   SFID=0x12345678   SF Ref=300  Status=1  TaIndex=-1 \n";
  EXPECT_EQ(captureStdout([] { EXPECT_EQ(qos_intDb_PrintClsf(1000), 0); }),
            "   Classifier internal data base \n\n" + row0 + row2);
  EXPECT_EQ(captureStdout([] { EXPECT_EQ(qos_intDb_PrintClsf(2), 0); }), row2);
  EXPECT_EQ(captureStdout([] { EXPECT_EQ(qos_intDb_PrintClsf(1), 0); }), "");
  EXPECT_EQ(captureStdout([] { EXPECT_EQ(qos_intDb_PrintClsf(-1), -1); }), " Incorrect classifier internal DB index -1 \n");
  EXPECT_TRUE(logs.records().empty());
}

// ---- PHS rule bindings ----

constexpr int32_t kCmtsTa = 0, kModemTa = 1;  // transaction rows the fixture allocates

// Flow 0x100 (reference 3) at row 0 with classifier 9 (reference 7) at row
// 0, both settled; transaction 0 started by the CMTS, 1 by the modem.
class Phs : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    uint32_t cmts = 99, modem = 99;
    ASSERT_EQ((V{qos_TaDb_AddNewTa(55, QOS_TA_DSC, QOS_TA_BY_CMTS, 0, nullptr, &cmts), cmts,
                 qos_TaDb_AddNewTa(0, QOS_TA_DSC, QOS_TA_BY_MODEM, 0, nullptr, &modem), modem}),
              (V{0, kCmtsTa, 0, kModemTa}));
    settle();
  }
  void settle() {
    qos_intDb_SfDb_Reset();
    ASSERT_EQ((V{qos_intDb_AddSf(0x100, 3, QOS_DIR_UPSTREAM), qos_intDb_AddClsf(0x100, 3, 7), qos_intDb_SetClsfId(0, 9),
                 qos_intDb_SetClsfSfid(0, 0x100)}), V(4, 0));
    logs.clear();
  }
  // A refused call logs exactly these texts (level 1) and changes nothing.
  void expectRefused(const Call& call, const std::vector<std::string>& texts) {
    auto before = snapshot();
    logs.clear();
    EXPECT_EQ(call(), -1);
    EXPECT_EQ(logs.texts(), texts);
    for (const auto& r : logs.records()) EXPECT_EQ(r.level, QOS_LOG_ERROR);
    EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});
    logs.clear();
  }
};

// Another transaction on the classifier or on the flow blocks change and
// append; none, or the caller's own, does not.
TEST_F(Phs, ConflictRuleOnClassifierAndFlow) {
  // When allowed: the flow's rule count after, the classifier's transaction after (-2: unchanged).
  const struct { Call call; const char* conflictText; int phs; int32_t clsfTaAfter; } ops[] = {
      {CALL(qos_intDb_ChangePhs(0x100, 9, kCmtsTa)),
       "Cannot change PHS, since other DSX TA runs on the SF or Clsf (SFID=0x100, ClsfId=9)", 0, -2},
      {CALL(qos_intDb_AppendPhs_ClsfId(0x100, 9, kCmtsTa)),
       "Cannot append PHS, since other DSX TA runs on the SF or Clsf (SFID=0x100, ClsfId=9)", 1, -2},
      {CALL(qos_intDb_AppendPhs_ClsfRef(0x100, 7, kCmtsTa)),
       "Cannot append PHS, since other DSX TA runs on the SF or Clsf (SFID=0x100, ClsfRef=7)", 1, kCmtsTa},
  };
  const int32_t busy[][3] = {{-1, -1, 0}, {kCmtsTa, kCmtsTa, 0}, {kModemTa, -1, 1}, {-1, kModemTa, 1}, {kCmtsTa, kModemTa, 1}};
  for (const auto& op : ops) {
    for (const auto& b : busy) {
      SCOPED_TRACE(::testing::Message() << op.conflictText << " / " << b[0] << " " << b[1]);
      settle();
      clsf(0).taIndex = b[0], sf(0).taIndex = b[1];
      if (b[2]) {
        expectRefused(op.call, {op.conflictText});
        continue;
      }
      EXPECT_EQ(op.call(), 0);
      EXPECT_EQ(sfStr(0), "state=3 sfId=0x100 ref=3 ta=0 clsf=1 app=0 del=0 phs=" + std::to_string(op.phs));
      EXPECT_EQ(clsf(0).taIndex, op.clsfTaAfter == -2 ? b[0] : op.clsfTaAfter);
      EXPECT_TRUE(logs.records().empty());
    }
  }
}

// An identifier append of an unknown classifier: refused for the modem and
// for a transaction of no known initiator; for the CMTS a placeholder.
TEST_F(Phs, RefusalsAndTheInitiatorRule) {
  const std::string noSf = "Cannot find SFID=0x999 in QOS internal DB for PHS ";
  const struct { Call call; std::vector<std::string> texts; } refusals[] = {
      {CALL(qos_intDb_AppendPhs_ClsfId(0x100, 12, kModemTa)), {"Cannot append PHS, since its classifier is not found (ClsfId=12)"}},
      {CALL(qos_intDb_AppendPhs_ClsfId(0x100, 12, 5)), {"Cannot find TA initiator (TA DB index=5) for PHS adding"}},  // free row
      {CALL(qos_intDb_AppendPhs_ClsfId(0x100, 12, 11)), {"qos_TaDb_GetTaInitiator: ---> DSX TA DB index 11 is out of range",
                                                          "Cannot find TA initiator (TA DB index=11) for PHS adding"}},
      {CALL(qos_intDb_AppendPhs_ClsfRef(0x999, 7, 0)), {noSf + "adding"}},
      {CALL(qos_intDb_AppendPhs_ClsfId(0x999, 9, kCmtsTa)), {noSf + "adding"}},
      {CALL(qos_intDb_ChangePhs(0x999, 9, 0)), {noSf + "adding"}},
      {CALL(qos_intDb_DeletePhs(0x999, 0, 1)), {noSf + "deleting"}},
      {CALL(qos_intDb_ChangePhs(0x100, 9 + 65536, 0)), {"Cannot change PHS, since its classifier is not found (ClsfId=65545)"}},
      {CALL(qos_intDb_AddPhs(4, 7)),
       {"Cannot add PHS because of Clsf Ref and SF Ref mismatch, ClsfRef=7, SF Ref=0x4, SF ref in DB Clsf=0x3"}},
  };
  for (const auto& r : refusals) expectRefused(r.call, r.texts);
  EXPECT_EQ(qos_intDb_AppendPhs_ClsfId(0x100, 12, kCmtsTa), 0);
  EXPECT_EQ(clsfStr(1), "status=5 ref=0 id=0xc sfRef=0 sfId=0x100 ta=0");
  EXPECT_EQ(sfStr(0), "state=3 sfId=0x100 ref=3 ta=0 clsf=1 app=0 del=0 phs=1");
  // The classifier the CMTS then appends takes the placeholder over.
  EXPECT_EQ(qos_intDb_AppendClsfId(0, 12, kCmtsTa), 0);
  EXPECT_EQ(clsfStr(1), "status=2 ref=0 id=0xc sfRef=0 sfId=0x100 ta=0");
  EXPECT_EQ(clsf(2).status, uint32_t{QOS_CLSF_EMPTY});
  EXPECT_EQ(qos_intDb_AppendPhs_ClsfRef(0x100, 8, kCmtsTa), 0);  // an unknown reference: a placeholder too
  EXPECT_EQ(clsfStr(2), "status=5 ref=8 id=0x0 sfRef=0 sfId=0x100 ta=0");
  EXPECT_TRUE(logs.records().empty());
}

// A single delete on a flow that counts no rule leaves 0, never 4294967295.
TEST_F(Phs, DeleteLowersOrClearsTheCounterWithoutWrapping) {
  const uint32_t cases[][3] = {{1, 3, 0}, {0, 3, 2}, {0, 1, 0}, {0, 0, 0}, {7, 0, 0}};  // deleteAll, before, after
  for (const auto& c : cases) {
    sf(0).phsCounter = c[1];
    EXPECT_EQ(qos_intDb_DeletePhs(0x100, 10, c[0]), 0);
    EXPECT_EQ(sfStr(0), "state=3 sfId=0x100 ref=3 ta=10 clsf=1 app=0 del=0 phs=" + std::to_string(c[2]));
  }
  EXPECT_TRUE(logs.records().empty());
}

// A second DSA rule finds the first one's flow; a classifier of another
// flow reference, or one another transaction works on, is refused silently.
TEST_F(Phs, DsaAddsShareTheFlowAndRefuseForeignClassifiersSilently) {
  qos_intDb_SfDb_Reset();
  ASSERT_EQ((V{qos_intDb_AddPhsRef(3, 7, 2), qos_intDb_AddPhsRef(3, 8, 2), qos_intDb_AddPhsId(0x100, 9, 2)}), V(3, 0));
  EXPECT_EQ(sfStr(0), "state=7 sfId=0x0 ref=3 ta=2 clsf=0 app=0 del=0 phs=2");
  EXPECT_EQ(sfStr(1), "state=7 sfId=0x100 ref=0 ta=2 clsf=0 app=0 del=0 phs=1");
  EXPECT_EQ(clsfStr(2), "status=5 ref=0 id=0x9 sfRef=0 sfId=0x100 ta=2");
  expectRefused(CALL(qos_intDb_AddPhsRef(4, 7, 2)), {});
  expectRefused(CALL(qos_intDb_AddPhsId(0x100, 9, 3)), {});
}

}  // namespace
}  // namespace qostest
