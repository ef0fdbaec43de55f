// phs_test.cpp - PHS rule bindings: placeholders, the conflict rule, the
// initiator rule of the identifier append, unknown flows and the counter.
#include <cstdio>

#include "frame/region.h"
#include "support/fixture.h"

namespace qostest {
namespace {

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

// Flow 0x100 (reference 3) with classifier 9 (reference 7), both settled,
// and two transactions: row 0 started by the CMTS, row 1 by the modem.
class Phs : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    ASSERT_EQ(qos_TaDb_AddNewTa(55, QOS_TA_DSC, QOS_TA_BY_CMTS, 0, nullptr, &cmtsTa), 0);
    ASSERT_EQ(qos_TaDb_AddNewTa(0, QOS_TA_DSC, QOS_TA_BY_MODEM, 0, nullptr, &modemTa), 0);
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
  // The one message of a refused call, which changed nothing.
  void expectRefused(const std::function<int32_t()>& call, const std::string& text) {
    auto before = snapshot();
    logs.clear();
    EXPECT_EQ(call(), -1);
    EXPECT_EQ(logs.texts(), std::vector<std::string>{text});
    for (const auto& r : logs.records()) EXPECT_EQ(r.level, QOS_LOG_ERROR);
    EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});
  }
  uint32_t cmtsTa = 99, modemTa = 99;
};

// Another transaction on the classifier or on the flow blocks change and
// append; none, or the caller's own, does not.
TEST_F(Phs, ConflictRuleOnClassifierAndFlow) {
  const int32_t ta = static_cast<int32_t>(cmtsTa), other = static_cast<int32_t>(modemTa);
  struct Op {
    std::function<int32_t(int32_t)> call;
    const char* conflictText;
    uint32_t phsAfter;
    bool bindsClsf;
  } ops[] = {
      {[](int32_t t) { return qos_intDb_ChangePhs(0x100, 9, t); },
       "Cannot change PHS, since other DSX TA runs on the SF or Clsf (SFID=0x100, ClsfId=9)", 0, false},
      {[](int32_t t) { return qos_intDb_AppendPhs_ClsfId(0x100, 9, t); },
       "Cannot append PHS, since other DSX TA runs on the SF or Clsf (SFID=0x100, ClsfId=9)", 1, false},
      {[](int32_t t) { return qos_intDb_AppendPhs_ClsfRef(0x100, 7, t); },
       "Cannot append PHS, since other DSX TA runs on the SF or Clsf (SFID=0x100, ClsfRef=7)", 1, true},
  };
  struct Busy {
    int32_t clsfTa, flowTa;
    bool conflict;
  } busy[] = {{-1, -1, false}, {ta, ta, false}, {other, -1, true}, {-1, other, true}, {ta, other, true}};
  for (const auto& op : ops) {
    for (const auto& b : busy) {
      SCOPED_TRACE(::testing::Message() << op.conflictText << " / " << b.clsfTa << " " << b.flowTa);
      settle();
      clsf(0).taIndex = b.clsfTa;
      sf(0).taIndex = b.flowTa;
      if (b.conflict) {
        expectRefused([&] { return op.call(ta); }, op.conflictText);
        continue;
      }
      EXPECT_EQ(op.call(ta), 0);
      EXPECT_EQ(sfStr(0), "state=3 sfId=0x100 ref=3 ta=" + std::to_string(ta) +
                              " phs=" + std::to_string(op.phsAfter));
      EXPECT_EQ(clsf(0).taIndex, op.bindsClsf ? ta : b.clsfTa);
      EXPECT_EQ(clsf(0).status, uint32_t{QOS_CLSF_OPERATIONAL});
      EXPECT_TRUE(logs.records().empty());
    }
  }
}

TEST_F(Phs, IdentifierAppendOfAnUnknownClassifierDependsOnTheInitiator) {
  const int32_t modem = static_cast<int32_t>(modemTa), cmts = static_cast<int32_t>(cmtsTa);
  expectRefused([&] { return qos_intDb_AppendPhs_ClsfId(0x100, 12, modem); },
                "Cannot append PHS, since its classifier is not found (ClsfId=12)");
  expectRefused([] { return qos_intDb_AppendPhs_ClsfId(0x100, 12, 5); },
                "Cannot find TA initiator (TA DB index=5) for PHS adding");
  logs.clear();
  EXPECT_EQ(qos_intDb_AppendPhs_ClsfId(0x100, 12, cmts), 0);
  EXPECT_EQ(clsfStr(1), "status=5 ref=0 id=0xc sfRef=0 sfId=0x100 ta=" + std::to_string(cmts));
  EXPECT_EQ(sfStr(0), "state=3 sfId=0x100 ref=3 ta=" + std::to_string(cmts) + " phs=1");
  // A CMTS-added classifier then takes the placeholder over.
  EXPECT_EQ(qos_intDb_AppendClsfId(0, 12, cmts), 0);
  EXPECT_EQ(clsfStr(1), "status=2 ref=0 id=0xc sfRef=0 sfId=0x100 ta=" + std::to_string(cmts));
  EXPECT_EQ(clsfStr(2), "status=0 ref=0 id=0x0 sfRef=0 sfId=0x0 ta=-1");
  EXPECT_TRUE(logs.records().empty());

  // An index outside the transaction table: the table's own message first.
  EXPECT_EQ(qos_intDb_AppendPhs_ClsfId(0x100, 12, 11), -1);
  EXPECT_EQ(logs.texts(), (std::vector<std::string>{
                              "qos_TaDb_GetTaInitiator: ---> DSX TA DB index 11 is out of range",
                              "Cannot find TA initiator (TA DB index=11) for PHS adding"}));
  EXPECT_EQ(logs.records()[1].function, "qos_intDb_AppendPhs_ClsfId");
}

TEST_F(Phs, UnknownFlowsAndClassifiersAreRefused) {
  const int32_t cmts = static_cast<int32_t>(cmtsTa);
  expectRefused([] { return qos_intDb_AppendPhs_ClsfRef(0x999, 7, 0); },
                "Cannot find SFID=0x999 in QOS internal DB for PHS adding");
  expectRefused([cmts] { return qos_intDb_AppendPhs_ClsfId(0x999, 9, cmts); },
                "Cannot find SFID=0x999 in QOS internal DB for PHS adding");
  expectRefused([] { return qos_intDb_ChangePhs(0x999, 9, 0); },
                "Cannot find SFID=0x999 in QOS internal DB for PHS adding");
  expectRefused([] { return qos_intDb_DeletePhs(0x999, 0, 1); },
                "Cannot find SFID=0x999 in QOS internal DB for PHS deleting");
  expectRefused([] { return qos_intDb_ChangePhs(0x100, 9 + 65536, 0); },
                "Cannot change PHS, since its classifier is not found (ClsfId=65545)");
  expectRefused([] { return qos_intDb_AddPhs(4, 7); },
                "Cannot add PHS because of Clsf Ref and SF Ref mismatch, ClsfRef=7, SF Ref=0x4, SF ref in DB Clsf=0x3");
}

TEST_F(Phs, DeleteLowersOrClearsTheCounterWithoutWrapping) {
  struct Case {
    uint32_t deleteAll, before, after;
  } cases[] = {{1, 3, 0}, {0, 3, 2}, {0, 1, 0}, {0, 0, 0}, {7, 0, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.deleteAll << " " << c.before);
    sf(0).phsCounter = c.before;
    EXPECT_EQ(qos_intDb_DeletePhs(0x100, 10, c.deleteAll), 0);
    EXPECT_EQ(sfStr(0), "state=3 sfId=0x100 ref=3 ta=10 phs=" + std::to_string(c.after));
  }
  EXPECT_TRUE(logs.records().empty());
}

// DSA adds: a second rule finds the first one's flow; a classifier of
// another flow reference, or one that another transaction works on, is
// refused without a message.
TEST_F(Phs, DsaAddsShareTheFlowAndRefuseForeignClassifiersSilently) {
  qos_intDb_SfDb_Reset();
  ASSERT_EQ(qos_intDb_AddPhsRef(3, 7, 2), 0);
  ASSERT_EQ(qos_intDb_AddPhsRef(3, 8, 2), 0);
  EXPECT_EQ(sfStr(0), "state=7 sfId=0x0 ref=3 ta=2 phs=2");
  EXPECT_EQ(sf(1).state, uint32_t{QOS_SF_EMPTY});
  EXPECT_EQ(clsfStr(1), "status=5 ref=8 id=0x0 sfRef=3 sfId=0x0 ta=2");
  ASSERT_EQ(qos_intDb_AddPhsId(0x100, 9, 2), 0);
  EXPECT_EQ(clsfStr(2), "status=5 ref=0 id=0x9 sfRef=0 sfId=0x100 ta=2");
  EXPECT_EQ(sfStr(1), "state=7 sfId=0x100 ref=0 ta=2 phs=1");
  auto before = snapshot();
  EXPECT_EQ(qos_intDb_AddPhsRef(4, 7, 2), -1);
  EXPECT_EQ(qos_intDb_AddPhsId(0x100, 9, 3), -1);
  EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});
  EXPECT_TRUE(logs.records().empty());
}

}  // namespace
}  // namespace qostest
