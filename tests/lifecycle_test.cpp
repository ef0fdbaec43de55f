// lifecycle_test.cpp - whole lives of flows through the public operations:
// registration, a modem-initiated DSA, a CMTS-initiated DSC of the held
// flow, a DSD, the end of each hold and the transaction row resets. After
// each step only the rows that the step concerns have changed.
#include <algorithm>
#include <set>

#include "frame/region.h"
#include "support/fixture.h"

namespace qostest {
namespace {

using qos::QosIntDbRegion;

qos::QosIntDbRegion& db() { return *reinterpret_cast<QosIntDbRegion*>(region()); }

// The rows (as "table index") in which two snapshots differ.
std::set<std::string> touched(const std::vector<uint8_t>& before) {
  const struct { const char* name; std::size_t offset, rowSize; } areas[] = {  // by offset; row size 0: one name
      {"sf", offsetof(QosIntDbRegion, sf), sizeof(qos::SfRow)},
      {"clsf", offsetof(QosIntDbRegion, clsf), sizeof(qos::ClsfRow)},
      {"stats", offsetof(QosIntDbRegion, stats), 0},
      {"cluster", offsetof(QosIntDbRegion, sidClusters), sizeof(qos::SidClusterRow)},
      {"switchover", offsetof(QosIntDbRegion, switchover), sizeof(qos::SwitchoverRow)},
      {"active", offsetof(QosIntDbRegion, activeSf), sizeof(qos::ActiveSfRow)},
      {"other", offsetof(QosIntDbRegion, phsUs), 0},
      {"ta", offsetof(QosIntDbRegion, ta), sizeof(qos::TaRow)},
      {"other", offsetof(QosIntDbRegion, taControl), 0}};
  std::set<std::string> out;
  for (std::size_t off : changedOffsets(before, snapshot())) {
    auto a = std::find_if(std::rbegin(areas), std::rend(areas), [&](const auto& x) { return off >= x.offset; });
    out.insert(a->rowSize ? a->name + (" " + std::to_string((off - a->offset) / a->rowSize)) : a->name);
  }
  return out;
}

using Names = std::set<std::string>;
using V = std::vector<int64_t>;

uint32_t newTa(uint32_t taId, uint32_t type, uint32_t initiator) {
  uint32_t index = 99;
  EXPECT_EQ(qos_TaDb_AddNewTa(taId, type, initiator, 0, nullptr, &index), 0);
  return index;
}

// Runs an outcome operation; the events it sent.
std::vector<Event> eventsOf(int32_t (*op)(uint32_t), uint32_t ta) {
  EventCapture events;
  EXPECT_EQ(op(ta), 0);
  return events.events();
}
const auto succeeded = qos_intDb_UpdateSfOnTaSucceeded;

using Lifecycle = StoreTest;

TEST_F(Lifecycle, RegistrationDsaDscDsdAndEnd) {
  const SidChannelMapping maps[4] = {{0, 1, 0, 21}, {0, 2, 0, 22}, {0, 0, 0, 0}, {0, 0, 0, 0}};
  const auto& sf = db().sf;
  const auto& clsf = db().clsf;

  // Registration: an upstream and a downstream flow with a classifier each.
  ASSERT_EQ((V{qos_intDb_AddSf(0x100, 1, QOS_DIR_UPSTREAM), qos_intDb_SetServiceFlowParamSet(0, QOS_PARAMSET_ACTIVE),
               qos_intDb_AddSf(0x101, 2, QOS_DIR_DOWNSTREAM), qos_intDb_AddClsf(0x100, 1, 1), qos_intDb_AddClsf(0x101, 2, 2),
               qos_intDb_FillActiveUsSfTable()}),
            V(6, 0));
  auto before = snapshot();
  ASSERT_EQ(qos_intDb_UpdateOnRegFinish(), 0);
  EXPECT_EQ(touched(before), (Names{"sf 0", "sf 1", "clsf 0", "clsf 1"}));
  EXPECT_EQ(sf[0].ref + sf[1].ref + clsf[0].ref + clsf[0].sfRef + clsf[1].ref + clsf[1].sfRef, 0);

  // The modem adds an upstream flow with a classifier; the CMTS assigns 0x102.
  const uint32_t dsa = newTa(0, QOS_TA_DSA, QOS_TA_BY_MODEM);
  ASSERT_EQ((V{qos_intDb_AddSfReference(3, QOS_DIR_UPSTREAM, dsa), qos_intDb_AddClsfRef(3, 1, dsa),
               qos_intDb_SetSfId(2, 0x102), qos_intDb_SetClsfSfid(2, 0x102),
               qos_intDb_SetServiceFlowParamSet(2, QOS_PARAMSET_ACTIVE), qos_intDb_AddSfSidCluster(0x102, 1, maps),
               qos_intDb_SetSfSidClusterParams(0x102, 1000, 2000, 30, 4), qos_intDb_AddActiveUsSfEntry(0x102)}),
            V(8, 0));
  before = snapshot();
  EXPECT_EQ(eventsOf(succeeded, dsa), std::vector<Event>{});
  EXPECT_EQ(touched(before), (Names{"sf 2", "clsf 2"}));
  EXPECT_EQ((V{sf[2].state, sf[2].heldTaIndex, sf[2].ref, sf[2].committed, clsf[2].status, clsf[2].taIndex}),
            (V{QOS_SF_OPERATIONAL, dsa, 0, 1, QOS_CLSF_OPERATIONAL, -1}));

  // The CMTS changes the flow and its classifier while the DSA still holds it.
  const uint32_t dsc = newTa(0x9001, QOS_TA_DSC, QOS_TA_BY_CMTS);
  ASSERT_EQ((V{qos_intDb_ChangeSF(2, dsc), qos_intDb_ChangeClassifier(2, 2, dsc)}), (V{0, 0}));
  before = snapshot();
  EXPECT_EQ(eventsOf(succeeded, dsc), (std::vector<Event>{{QOS_EV_COMPONENT, QOS_EV_HELD_SF_CHANGED, dsa}}));
  EXPECT_EQ(touched(before), (Names{"sf 2", "clsf 2"}));
  EXPECT_EQ((V{sf[2].heldTaIndex, clsf[2].status}), (V{dsc, QOS_CLSF_OPERATIONAL}));
  before = snapshot();
  ASSERT_EQ(qos_intDb_UpdateSfOnTaEnd(dsa), 0);  // holds nothing any more
  EXPECT_EQ(touched(before), Names{});
  qos_intDb_ResetTaDbRow(static_cast<int32_t>(dsa));

  // The modem deletes the flow, still held by the DSC.
  const uint32_t dsd = newTa(0, QOS_TA_DSD, QOS_TA_BY_MODEM);
  ASSERT_EQ(qos_intDb_StartDeleteSF(2, dsd), 0);
  before = snapshot();
  EXPECT_EQ(eventsOf(succeeded, dsd), (std::vector<Event>{{QOS_EV_COMPONENT, QOS_EV_HELD_SF_DELETED, dsc}}));
  EXPECT_EQ(touched(before), (Names{"sf 2", "clsf 2", "stats", "cluster 0", "switchover 0", "active 1"}));
  EXPECT_EQ((V{sf[2].state, sf[2].heldTaIndex, sf[2].committed, clsf[2].status, db().stats.clsfDbMaxIndex,
               db().stats.activeSfNumber}),
            (V{QOS_SF_DELETED, dsd, 0, 0, 1, 1}));

  before = snapshot();
  ASSERT_EQ(qos_intDb_UpdateSfOnTaEnd(dsc), 0);
  EXPECT_EQ(touched(before), Names{});
  ASSERT_EQ(qos_intDb_UpdateSfOnTaEnd(dsd), 0);
  EXPECT_EQ(touched(before), (Names{"sf 2", "stats"}));
  EXPECT_EQ((V{sf[2].state, db().stats.sfDbMaxIndex}), (V{0, 1}));
  qos_intDb_ResetTaDbRow(static_cast<int32_t>(dsc));
  qos_intDb_ResetTaDbRow(static_cast<int32_t>(dsd));
  EXPECT_EQ(touched(before), (Names{"sf 2", "stats", "ta 0", "ta 1"}));
  EXPECT_TRUE(logs.records().empty());
}

}  // namespace
}  // namespace qostest
