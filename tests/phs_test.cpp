// phs_test.cpp - PHS rule bindings: the conflict rule, the initiator rule of
// the identifier append, unknown flows and classifiers, the rule counter.
#include <cstdio>

#include "frame/region.h"
#include "support/fixture.h"

namespace qostest {
namespace {

constexpr int32_t kCmtsTa = 0, kModemTa = 1;  // transaction rows the fixture allocates

qos::SfRow& sf(int i) { return reinterpret_cast<qos::SfRow*>(region())[i]; }
qos::ClsfRow& clsf(int i) { return reinterpret_cast<qos::ClsfRow*>(region() + 10240)[i]; }

std::string clsfStr(int i) {
  const qos::ClsfRow& r = clsf(i);
  char b[96];
  std::snprintf(b, sizeof b, "status=%u ref=%u id=0x%x sfRef=%u sfId=0x%x ta=%d", r.status, r.ref,
                r.clsfId, r.sfRef, r.sfId, r.taIndex);
  return b;
}

std::string sfStr(int i) {
  const qos::SfRow& r = sf(i);
  char b[64];
  std::snprintf(b, sizeof b, "state=%u sfId=0x%x ref=%u ta=%d phs=%u", r.state, r.sfId, r.ref,
                r.taIndex, r.phsCounter);
  return b;
}

// Flow 0x100 (reference 3) at row 0 with classifier 9 (reference 7) at row
// 0, both settled; transaction 0 started by the CMTS, 1 by the modem.
class Phs : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    uint32_t cmts = 99, modem = 99;
    ASSERT_EQ(qos_TaDb_AddNewTa(55, QOS_TA_DSC, QOS_TA_BY_CMTS, 0, nullptr, &cmts), 0);
    ASSERT_EQ(qos_TaDb_AddNewTa(0, QOS_TA_DSC, QOS_TA_BY_MODEM, 0, nullptr, &modem), 0);
    ASSERT_TRUE(cmts == kCmtsTa && modem == kModemTa);
    settle();
  }
  void settle() {
    qos_intDb_SfDb_Reset();
    ASSERT_EQ(qos_intDb_AddSf(0x100, 3, QOS_DIR_UPSTREAM), 0);
    ASSERT_EQ(qos_intDb_AddClsf(0x100, 3, 7), 0);
    ASSERT_EQ(qos_intDb_SetClsfId(0, 9), 0);
    ASSERT_EQ(qos_intDb_SetClsfSfid(0, 0x100), 0);
    logs.clear();
  }
  // A refused call logs exactly these texts (level 1) and changes nothing.
  void expectRefused(const std::function<int32_t()>& call, const std::vector<std::string>& texts) {
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
  struct Op {
    std::function<int32_t()> call;
    const char* conflictText;
    const char* flowAfter;
    int32_t clsfTaAfter;  // -2: unchanged
  } ops[] = {
      {[] { return qos_intDb_ChangePhs(0x100, 9, kCmtsTa); },
       "Cannot change PHS, since other DSX TA runs on the SF or Clsf (SFID=0x100, ClsfId=9)", "state=3 sfId=0x100 ref=3 ta=0 phs=0", -2},
      {[] { return qos_intDb_AppendPhs_ClsfId(0x100, 9, kCmtsTa); },
       "Cannot append PHS, since other DSX TA runs on the SF or Clsf (SFID=0x100, ClsfId=9)", "state=3 sfId=0x100 ref=3 ta=0 phs=1", -2},
      {[] { return qos_intDb_AppendPhs_ClsfRef(0x100, 7, kCmtsTa); },
       "Cannot append PHS, since other DSX TA runs on the SF or Clsf (SFID=0x100, ClsfRef=7)", "state=3 sfId=0x100 ref=3 ta=0 phs=1", kCmtsTa},
  };
  const int32_t busy[][3] = {{-1, -1, 0}, {kCmtsTa, kCmtsTa, 0}, {kModemTa, -1, 1}, {-1, kModemTa, 1}, {kCmtsTa, kModemTa, 1}};
  for (const auto& op : ops) {
    for (const auto& b : busy) {
      SCOPED_TRACE(::testing::Message() << op.conflictText << " / " << b[0] << " " << b[1]);
      settle();
      clsf(0).taIndex = b[0];
      sf(0).taIndex = b[1];
      if (b[2]) {
        expectRefused(op.call, {op.conflictText});
        continue;
      }
      EXPECT_EQ(op.call(), 0);
      EXPECT_EQ(sfStr(0), op.flowAfter);
      EXPECT_EQ(clsf(0).taIndex, op.clsfTaAfter == -2 ? b[0] : op.clsfTaAfter);
      EXPECT_TRUE(logs.records().empty());
    }
  }
}

TEST_F(Phs, IdentifierAppendOfAnUnknownClassifierDependsOnTheInitiator) {
  expectRefused([] { return qos_intDb_AppendPhs_ClsfId(0x100, 12, kModemTa); },
                {"Cannot append PHS, since its classifier is not found (ClsfId=12)"});
  expectRefused([] { return qos_intDb_AppendPhs_ClsfId(0x100, 12, 5); },  // a free transaction row
                {"Cannot find TA initiator (TA DB index=5) for PHS adding"});
  expectRefused([] { return qos_intDb_AppendPhs_ClsfId(0x100, 12, 11); },
                {"qos_TaDb_GetTaInitiator: ---> DSX TA DB index 11 is out of range",
                 "Cannot find TA initiator (TA DB index=11) for PHS adding"});
  EXPECT_EQ(qos_intDb_AppendPhs_ClsfId(0x100, 12, kCmtsTa), 0);
  EXPECT_EQ(clsfStr(1), "status=5 ref=0 id=0xc sfRef=0 sfId=0x100 ta=0");
  EXPECT_EQ(sfStr(0), "state=3 sfId=0x100 ref=3 ta=0 phs=1");
  // The classifier the CMTS then appends takes the placeholder over.
  EXPECT_EQ(qos_intDb_AppendClsfId(0, 12, kCmtsTa), 0);
  EXPECT_EQ(clsfStr(1), "status=2 ref=0 id=0xc sfRef=0 sfId=0x100 ta=0");
  EXPECT_EQ(clsf(2).status, uint32_t{QOS_CLSF_EMPTY});
  EXPECT_TRUE(logs.records().empty());
}

TEST_F(Phs, UnknownFlowsAndClassifiersAreRefused) {
  expectRefused([] { return qos_intDb_AppendPhs_ClsfRef(0x999, 7, 0); }, {"Cannot find SFID=0x999 in QOS internal DB for PHS adding"});
  expectRefused([] { return qos_intDb_AppendPhs_ClsfId(0x999, 9, kCmtsTa); }, {"Cannot find SFID=0x999 in QOS internal DB for PHS adding"});
  expectRefused([] { return qos_intDb_ChangePhs(0x999, 9, 0); }, {"Cannot find SFID=0x999 in QOS internal DB for PHS adding"});
  expectRefused([] { return qos_intDb_DeletePhs(0x999, 0, 1); }, {"Cannot find SFID=0x999 in QOS internal DB for PHS deleting"});
  expectRefused([] { return qos_intDb_ChangePhs(0x100, 9 + 65536, 0); }, {"Cannot change PHS, since its classifier is not found (ClsfId=65545)"});
  expectRefused([] { return qos_intDb_AddPhs(4, 7); },
                {"Cannot add PHS because of Clsf Ref and SF Ref mismatch, ClsfRef=7, SF Ref=0x4, SF ref in DB Clsf=0x3"});
}

// A single delete on a flow that counts no rule leaves 0, never 4294967295.
TEST_F(Phs, DeleteLowersOrClearsTheCounterWithoutWrapping) {
  const uint32_t cases[][3] = {{1, 3, 0}, {0, 3, 2}, {0, 1, 0}, {0, 0, 0}, {7, 0, 0}};  // deleteAll, before, after
  for (const auto& c : cases) {
    sf(0).phsCounter = c[1];
    EXPECT_EQ(qos_intDb_DeletePhs(0x100, 10, c[0]), 0);
    EXPECT_EQ(sfStr(0), "state=3 sfId=0x100 ref=3 ta=10 phs=" + std::to_string(c[2]));
  }
  EXPECT_TRUE(logs.records().empty());
}

// A second DSA rule finds the first one's flow; a classifier of another
// flow reference, or one another transaction works on, is refused silently.
TEST_F(Phs, DsaAddsShareTheFlowAndRefuseForeignClassifiersSilently) {
  qos_intDb_SfDb_Reset();
  ASSERT_EQ(qos_intDb_AddPhsRef(3, 7, 2), 0);
  ASSERT_EQ(qos_intDb_AddPhsRef(3, 8, 2), 0);
  ASSERT_EQ(qos_intDb_AddPhsId(0x100, 9, 2), 0);
  EXPECT_EQ(sfStr(0), "state=7 sfId=0x0 ref=3 ta=2 phs=2");
  EXPECT_EQ(sfStr(1), "state=7 sfId=0x100 ref=0 ta=2 phs=1");
  EXPECT_EQ(clsfStr(2), "status=5 ref=0 id=0x9 sfRef=0 sfId=0x100 ta=2");
  expectRefused([] { return qos_intDb_AddPhsRef(4, 7, 2); }, {});
  expectRefused([] { return qos_intDb_AddPhsId(0x100, 9, 3); }, {});
}

}  // namespace
}  // namespace qostest
