// SPDX-License-Identifier: MIT
// inspect_test.cpp - the store's invariants (qosinspect): what breaks them on
// purpose, and states that the operations reach without breaking them.
#include <functional>
#include <memory>
#include <utility>

#include "frame/region.h"
#include "support/fixture.h"
#include "tools/inspect/integrity.h"

namespace {

using qos::QosIntDbRegion;
using qos::inspect::checkIntegrity;
using qos::inspect::FindingClass;
using Expected = std::vector<std::pair<FindingClass, std::string>>;
constexpr FindingClass kCorrupt = FindingClass::Corrupt;
constexpr FindingClass kSuspect = FindingClass::Suspect;

std::unique_ptr<QosIntDbRegion> copyOfStore() {
  auto copy = std::make_unique<QosIntDbRegion>();
  std::memcpy(copy.get(), qostest::region(), sizeof *copy);
  return copy;
}

Expected found(const QosIntDbRegion& r) {
  Expected out;
  for (const auto& f : checkIntegrity(r)) out.emplace_back(f.cls, f.where);
  return out;
}

// A store with a flow (row 0), a cluster (row 0) and a transaction (row 0).
class InspectTest : public qostest::StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    SidChannelMapping ports[4] = {{0, 1, 0, 0x11}, {}, {}, {}};
    uint32_t ta = 0;
    qos_taDb_Lock();
    ASSERT_EQ(qos_intDb_AddSf(0x10, 1, QOS_DIR_UPSTREAM), 0);
    ASSERT_EQ(qos_intDb_AddSfSidCluster(0x10, 1, ports), 0);
    qos_taDb_Unlock();
    ASSERT_EQ(qos_TaDb_AddNewTa(0, QOS_TA_DSA, QOS_TA_BY_MODEM, 0, nullptr, &ta), 0);
  }
};

TEST_F(InspectTest, EachBrokenInvariantIsFoundWithItsClass) {
  EXPECT_EQ(found(*copyOfStore()), Expected{});  // as the operations built it
  struct Case { const char* where; FindingClass cls; std::function<void(QosIntDbRegion&)> breakIt; };
#define B(where, cls, ...) Case{where, cls, [](QosIntDbRegion& r) { __VA_ARGS__; }}
  const Case cases[] = {
      B("stats.sfDbMaxIndex", kCorrupt, r.stats.sfDbMaxIndex = 128),
      B("stats.clusterMaxNum", kCorrupt, r.stats.clusterMaxNum = 80),
      B("stats.clsfNumber", kCorrupt, r.stats.clsfNumber = 1),
      B("stats.activeSfNumber", kCorrupt, r.stats.activeSfNumber = 3, r.stats.activeSfExtraNumber = 2),
      B("stats.activeSfExtraNumber", kCorrupt, r.stats.activeSfExtraNumber = 5),
      B("sf[0].committed", kCorrupt, r.sf[0].committed = 2),
      B("sf[0].pad11", kCorrupt, r.sf[0].pad11 = 1),
      B("clsf[0].status", kCorrupt, r.clsf[0].status = 6),
      B("sidClusters[3].sfId", kCorrupt, r.sidClusters[3].sfId = 5),
      B("sidClusters[1].sfId", kCorrupt, r.sidClusters[1] = r.sidClusters[0], r.stats.clusterDbMaxIndex = 1),
      B("activeSf[40].status", kCorrupt, r.activeSf[40].status = 1),
      B("phsDs[33].phsi", kCorrupt, r.phsDs[33].phsi = 1),
      B("phsUs[0].dsid", kCorrupt, r.phsUs[0].status = 1, r.phsUs[0].sfId = r.phsUs[0].clsfId = 0xFFFFFFFF, r.phsUs[0].phsi = 255,
        r.phsUs[0].dsid = 7),
      B("msgs[10].ack.length", kCorrupt, r.msgs[10].ack.length = 1600),
      B("ta[0].rowStatus", kCorrupt, r.ta[0].rowStatus = 7),
      B("ta[0].smState", kCorrupt, r.ta[0].smState = 4),
      B("ta[0].authLen", kCorrupt, r.ta[0].authLen = 256),
      B("ta[2].taId", kCorrupt, r.ta[2].taId = 5),
      B("taControl.lastCmTaId", kCorrupt, r.taControl.lastCmTaId = 0x8000),
      B("taControl.taRowsUsed", kCorrupt, r.taControl.taRowsUsed = 0),
      B("sidClusters[0].channels[2].action", kCorrupt, r.sidClusters[0].channels[2].action = 1),
      B("sf[0].paramSetType", kSuspect, r.sf[0].paramSetType = 8),
      B("dbc.modCount", kSuspect, r.dbc.modCount = 39),
      B("dbc.modDb[0].addCount", kSuspect, r.dbc.modCount = 1, r.dbc.modDb[0].addCount = 5),
      B("sf[0].state", kSuspect, r.sf[0].state = 9),
      B("sf[5].state", kSuspect, r.sf[5].state = QOS_SF_OPERATIONAL, r.sf[5].direction = QOS_DIR_UPSTREAM),
      B("sf[0].taIndex", kSuspect, r.sf[0].taIndex = 57),
      B("sf[0].direction", kSuspect, r.sf[0].direction = 3),
      B("sf[4].sfId", kSuspect, r.sf[4].sfId = 9),
      B("clsf[0].taIndex", kSuspect, r.clsf[0].status = QOS_CLSF_OPERATIONAL, r.clsf[0].taIndex = 11),
      B("phsUs[1].sfId", kSuspect, r.phsUs[1].sfId = 3),
      B("ta[0].type", kSuspect, r.ta[0].type = 3),
      B("ta[3].subtype", kSuspect, r.ta[3].subtype = 1),
      B("dbc.activeDb[0].clusterAction", kSuspect, r.dbc.activeCount = 1, r.dbc.activeDb[0].clusterAction = 9),
      B("dbc.sfBitmaps[5].sfId", kSuspect, r.dbc.sfBitmaps[5].sfId = 1),
  };
  for (const Case& c : cases) {
    auto r = copyOfStore();
    c.breakIt(*r);
    EXPECT_EQ(found(*r), (Expected{{c.cls, c.where}})) << c.where;
  }
  // 0xFF over a row never passes, and each finding names a field of that row.
  using Fill = std::pair<const char*, void (*)(QosIntDbRegion&)>;
#define F(where, member) Fill{where ".", [](QosIntDbRegion& r) { std::memset(&r.member, 0xFF, sizeof r.member); }}
  for (const auto& [where, fill] : {F("stats", stats), F("sf[9]", sf[9]), F("clsf[5]", clsf[5]),
                                    F("sidClusters[2]", sidClusters[2]), F("switchover[1]", switchover[1]),
                                    F("activeSf[3]", activeSf[3]), F("phsUs[2]", phsUs[2]), F("msgs[4]", msgs[4]),
                                    F("ta[0]", ta[0]), F("taControl", taControl), F("dbc.modDb[2]", dbc.modDb[2])}) {
    auto r = copyOfStore();
    fill(*r);
    Expected findings = found(*r);
    EXPECT_FALSE(findings.empty()) << where;
    for (const auto& f : findings) EXPECT_EQ(f.second.rfind(where, 0), 0u) << f.second;
  }
  auto r = copyOfStore();
  r->ta[0].rowStatus = 7;
  EXPECT_EQ(qos::inspect::describe(checkIntegrity(*r).at(0)), "corrupt: ta[0].rowStatus is 7; rows are 0 (free) or 1");
}

// States that operations produce, with the findings they deserve: none for
// proper use, suspect (never corrupt) for misuse.
TEST_F(InspectTest, StatesTheOperationsReachAreNeverCorrupt) {
  SidChannelMapping ports[4] = {{0, 2, 0, 0x12}, {}, {}, {}};
  struct Case { const char* what; std::function<void()> reach; Expected findings; };
  const Case cases[] = {
      {"an active flow added before any fill counts itself in both counts",
       [] { qos_intDb_SetServiceFlowParamSet(0, QOS_PARAMSET_ACTIVE), qos_intDb_AddActiveUsSfEntry(0x10); }, {}},
      {"a fill and the delete of its only flow leave the extra count one below zero",
       [] {
         qos_intDb_SetServiceFlowParamSet(0, QOS_PARAMSET_ACTIVE), qos_intDb_FillActiveUsSfTable();
         qos_intDb_DeleteActiveUsSfEntry(0x10);
       },
       {}},
      {"a cluster of SFID 0 takes a free row above the high-water index",
       [&] { qos_intDb_AddSfSidCluster(0, 0, ports); }, {{kSuspect, "sidClusters[1].status"}}},
      {"a direction stored unchecked", [] { qos_intDb_AddSf(0x20, 2, 3); }, {{kSuspect, "sf[1].direction"}}},
      {"a setter on a free active PHS row", [] { qos_intDb_SetActivePhsSfid(4, QOS_DIR_UPSTREAM, 7); },
       {{kSuspect, "phsUs[4].sfId"}}},
      {"a state set on a row the table never handed out", [] { qos_intDb_SetSFState(9, QOS_SF_OPERATIONAL); },
       {{kSuspect, "sf[9].state"}, {kSuspect, "sf[9].direction"}}},
      {"a classifier marked on rows nobody added", [] { qos_intDb_ChangeClassifier(3, 7, 1); },
       {{kSuspect, "sf[3].state"}, {kSuspect, "sf[3].direction"}, {kSuspect, "clsf[7].status"}}},
  };
  for (const Case& c : cases) {
    ASSERT_EQ(qos_IntDb_Init(), 0);
    qos_taDb_Lock();
    qos_intDb_AddSf(0x10, 1, QOS_DIR_UPSTREAM), qos_intDb_AddSfSidCluster(0x10, 1, ports), c.reach();
    qos_taDb_Unlock();
    EXPECT_EQ(found(*copyOfStore()), c.findings) << c.what;
  }
}

}  // namespace
