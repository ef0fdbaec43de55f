// SPDX-License-Identifier: MIT
// dbc_test.cpp - the bonding change store: a DBC from its modifications to
// the written clusters, verification, and what full lists and bad input do.
#include "support/fixture.h"

namespace qostest {
namespace {

using Ports = std::vector<std::pair<uint8_t, uint16_t>>;  // (UCID, SID) of ports 1..4
using Vals = std::vector<uint32_t>;

SidChannelMapping map(uint32_t action, uint8_t ucid, uint16_t sid = 0) { return {action, ucid, 0, sid}; }

class Dbc : public StoreTest {
 protected:
  void SetUp() override { StoreTest::SetUp(); for (uint8_t p = 1; p <= 4; ++p) qos_host_docsis_set_port_ucid(p, p); }
  void active(int row, uint32_t sfId) { store().activeSf[row].status = 1, store().activeSf[row].sfId = sfId; }
  void cluster(uint32_t sfId, uint8_t clusterId, const Ports& ports) {
    SidChannelMapping m[4] = {};
    for (std::size_t i = 0; i < ports.size(); ++i) m[i] = map(0, ports[i].first, ports[i].second);
    ASSERT_EQ(qos_intDb_AddSfSidCluster(sfId, clusterId, m), 0);
  }
  Ports stored(uint32_t sfId, uint8_t clusterId) {
    SidChannelMapping m[4] = {};
    Ports out;
    if (qos_intDb_GetSfSidCluster(sfId, clusterId, m) == 0) for (const auto& c : m) out.emplace_back(c.ucid, c.sid);
    return out;
  }
  int32_t mod(uint32_t sfId, uint8_t clusterId, std::vector<SidChannelMapping> maps) {
    return qos_dbc_AddSfSidClusterMod(sfId, clusterId, static_cast<uint32_t>(maps.size()), maps.data());
  }
  // The call fails, logs exactly `text` in module 42 at `level` and changes no byte of the region.
  void refused(const std::function<int32_t()>& call, int level, const std::string& text) {
    auto before = snapshot();
    logs.clear();
    EXPECT_EQ(call(), -1) << text;
    EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{}) << text;
    ASSERT_EQ(logs.records().size(), 1u) << text;
    EXPECT_EQ(std::make_tuple(logs.texts()[0], logs.records()[0].level, logs.records()[0].module),
              std::make_tuple(text, level, int{QOS_MODULE_DBC}));
  }
};

TEST_F(Dbc, ModificationsBecomeWrittenClusters) {
  active(0, 200), active(1, 100);
  cluster(100, 1, {{1, 11}, {2, 12}, {0, 0}, {7, 17}});  // UCID 7 is on no port
  cluster(200, 2, {{1, 21}});
  ASSERT_EQ(mod(100, 1, {map(2, 2, 12), map(0, 7, 77), map(1, 3, 13)}), 0);
  ASSERT_EQ(mod(200, 2, {}), 0);
  ASSERT_EQ(mod(300, 1, {map(1, 1, 31)}), 0);
  ASSERT_EQ(mod(200, 5, {}), 0);  // no such cluster
  const uint32_t channels[4] = {4, 3, 7, 1};
  EXPECT_EQ(qos_dbc_VerifyAllSidClusterMaps(channels), 0);
  EXPECT_EQ(qos_dbc_SetActions(), 0);
  EXPECT_EQ(logs.texts(), (std::vector<std::string>{
                              "ModDb : SF 100, Cluster 1, Sid 77, Ucid 7, Unrecognized SidCluster action : 0, ignoring",
                              "SF 100, Cluster 1 : Ucid 7 is on no upstream port (port 0), skipping",
                              "Could not find ClusterId 5 of SF 200"}));
  EXPECT_EQ(std::vector<int>({logs.records()[0].level, logs.records()[1].level, logs.records()[2].level}),
            std::vector<int>({QOS_LOG_NOTICE, QOS_LOG_ERROR, QOS_LOG_NOTICE}));
  const QosDbcDb& d = *dbcTaDb;
  const QosDbcModEntry& m = d.modDb[0];
  EXPECT_EQ((Vals{d.modCount, uint32_t(m.activeIndex), m.sfId, m.clusterId, m.addCount, m.addMaps[0].sid, m.addMaps[0].ucid,
                  m.deleteCount, m.deleteMaps[0].sid, m.deleteMaps[0].ucid, uint32_t(d.modDb[2].activeIndex)}),
            (Vals{4, 0, 100, 1, 1, 13, 3, 1, 12, 2, 0xFFFFFFFF}));
  const QosDbcActiveEntry &a = d.activeDb[0], &b = d.activeDb[1];
  EXPECT_EQ((Vals{d.activeCount, a.activeSfIndex, a.modIndex, a.sfId, a.clusterId, a.sid[0], a.sid[1], a.sid[2],
                  a.portState[0], a.portState[1], a.portState[2], a.clusterAction, b.activeSfIndex, b.modIndex,
                  b.clusterAction}),
            (Vals{2, 1, 0, 100, 1, 11, 12, 0, 2, 2, 0, 2, 0, 1, 2}));
  EXPECT_EQ((Vals{d.bitmapCount, d.sfBitmaps[0].sfId, d.sfBitmaps[0].channelBitmap, d.sfBitmaps[1].sfId,
                  d.sfBitmaps[1].channelBitmap}),
            (Vals{2, 100, 3, 200, 1}));

  dbcTaDb->activeDb[0].portState[1] = 0;  // the client drops port 2 of (100, 1)
  dbcTaDb->activeDb[1].clusterAction = QOS_DBC_CLIENT_DELETE;
  EXPECT_EQ(qos_dbc_ActiveDbAddSid(100, 1, 3, 13), 0);
  EXPECT_EQ(qos_dbc_ActiveDbAddSid(300, 1, 2, 31), 0);  // flow 300 is not active
  const QosDbcActiveEntry& c = d.activeDb[2];
  EXPECT_EQ((Vals{d.activeCount, uint32_t(d.modDb[2].activeIndex), c.activeSfIndex, c.modIndex, c.sid[1], c.portState[1],
                  c.clusterAction}),
            (Vals{3, 2, 0xFFFFFFFF, 2, 31, 2, QOS_DBC_CREATED}));
  EXPECT_EQ(qos_dbc_RefreshBitmaps(), 0);
  uint32_t bitmap = 0;
  EXPECT_EQ(qos_dbc_GetSfChannelBitmap(100, &bitmap), 0);
  EXPECT_EQ(qos_dbc_GetSfChannelBitmap(200, &bitmap), -1);
  EXPECT_EQ(qos_dbc_GetSfChannelBitmap(300, &bitmap), -1);
  EXPECT_EQ(bitmap, 5u);
  qos_host_docsis_set_port_ucid(3, 9);  // the written UCID is the port's own
  EXPECT_EQ(qos_dbc_UpdateSfSidClusterDb(), 0);
  EXPECT_EQ(stored(100, 1), (Ports{{1, 11}, {0, 0}, {9, 13}, {0, 0}}));
  EXPECT_EQ(stored(200, 2), Ports{});
  EXPECT_EQ(stored(300, 1), Ports{});
}

TEST_F(Dbc, VerificationChecksEachModificationAgainstClusterAndChannels) {
  cluster(100, 1, {{1, 11}, {2, 12}});
  struct Case { uint32_t sfId; std::vector<SidChannelMapping> maps; uint32_t channels[4]; int32_t result; };
  const std::vector<Case> cases = {
      {100, {map(2, 5)}, {1, 2, 3, 4}, -1},                        // deletes a channel it lacks
      {100, {map(1, 2)}, {1, 2, 3, 4}, -1},                        // adds one it has
      {100, {map(1, 3), map(1, 4), map(1, 5)}, {1, 2, 3, 5}, -1},  // fifth channel
      {100, {map(1, 3)}, {1, 2, 4, 0}, -1},                        // channel not in the new set
      {100, {}, {1, 0, 0, 0}, -1},                                 // a zero matches nothing
      {100, {map(2, 2), map(1, 3)}, {3, 1, 0, 0}, 0},
      {100, {map(2, 0), map(1, 0)}, {1, 2, 0, 0}, 0},              // UCID 0 is no channel
      {999, {map(1, 1), map(1, 2), map(1, 3), map(1, 4)}, {4, 3, 2, 1}, 0},  // no cluster: empty
      {999, {map(2, 1)}, {1, 2, 3, 4}, -1}};
  for (const Case& c : cases) {
    ASSERT_EQ(qos_dbc_DbReset(), 0);
    EXPECT_EQ(qos_dbc_VerifyAllSidClusterMaps(c.channels), 0);  // empty ModDb
    ASSERT_EQ(mod(999, 1, {}), 0);                               // a first entry that passes
    ASSERT_EQ(mod(c.sfId, 1, c.maps), 0);
    auto before = snapshot();
    EXPECT_EQ(qos_dbc_VerifyAllSidClusterMaps(c.channels), c.result) << &c - cases.data();
    EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});
  }
  EXPECT_EQ(qos_dbc_VerifyAllSidClusterMaps(nullptr), -1);
  EXPECT_TRUE(logs.records().empty());
}

TEST_F(Dbc, FullListsBadPortsAndWildCountsAreRefused) {
  active(0, 1);
  cluster(1, 1, {{1, 11}});
  for (uint32_t sf = 1; sf <= 38; ++sf) ASSERT_EQ(mod(sf, 1, {}), 0);
  refused([&] { return mod(39, 1, {}); }, 1, "ModDb is full (38 entries), cannot add SF 39, Cluster 1");
  ASSERT_EQ(qos_dbc_DbReset(), 0);
  refused([&] { return mod(1, 2, {map(1, 1), map(1, 2), map(1, 3), map(1, 4), map(1, 5)}); }, 1,
          "ModDb : SF 1, Cluster 2, 5 add and 0 delete mappings, at most 4 of each, refused");
  refused([] { return qos_dbc_ActiveDbAddSid(5, 1, 1, 9); }, 2,
          "No MODs in ModDb, ignoring (AddSid : Sf 5, Clust 1, port 1, sid 9)");
  ASSERT_EQ(mod(1, 1, {}), 0);
  for (int port : {0, 5, -1}) {
    refused([port] { return qos_dbc_ActiveDbAddSid(5, 1, static_cast<uint32_t>(port), 9); }, 1,
            "AddSid : Sf 5, Clust 1, port " + std::to_string(port) + " is not an upstream port (1..4), ignoring");
  }
  EXPECT_EQ(qos_dbc_ActiveDbAddSid(5, 1, 4, 9), 0);
  EXPECT_EQ(qos_dbc_ActiveDbAddSid(5, 1, 4, 10), 0);  // same entry, second SID
  EXPECT_EQ((Vals{dbcTaDb->activeCount, dbcTaDb->activeDb[0].activeSfIndex, dbcTaDb->activeDb[0].sid[3]}),
            (Vals{1, 0xFFFFFFFF, 10}));
  uint32_t bitmap = 7;
  EXPECT_EQ(qos_dbc_SetSfChannelActive(5, 8, 1), 0);  // channel 8 sets no bit but makes the entry
  EXPECT_EQ(qos_dbc_GetSfChannelBitmap(5, &bitmap), 0);
  EXPECT_EQ(bitmap, 0u);

  // Counts a client wrote beyond their lists read as full lists.
  dbcTaDb->modCount = 1000, dbcTaDb->activeCount = 0xFFFFFFFF, dbcTaDb->bitmapCount = 500;
  refused([&] { return mod(2, 1, {}); }, 1, "ModDb is full (38 entries), cannot add SF 2, Cluster 1");
  refused([] { return qos_dbc_ActiveDbAddSid(6, 1, 1, 9); }, 1, "ActiveDb is full (38 entries), cannot add SF 6, Cluster 1");
  refused([] { return qos_dbc_SetSfChannelActive(66, 0, 1); }, 1, "SF bitmap list is full (64 entries), cannot add SF 66");
  const uint32_t channels[4] = {1, 2, 3, 4};
  refused([] { return qos_dbc_SetActions(); }, 1, "ActiveDb is full (38 entries), cannot add SF 1, Cluster 1");
  EXPECT_EQ(qos_dbc_VerifyAllSidClusterMaps(channels), 0);
  EXPECT_EQ(qos_dbc_RefreshBitmaps(), 0);
  EXPECT_EQ(qos_dbc_UpdateSfSidClusterDb(), 0);
  EXPECT_EQ(qos_dbc_GetSfChannelBitmap(5, nullptr), -1);
}

}  // namespace
}  // namespace qostest
