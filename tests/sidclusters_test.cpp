// SPDX-License-Identifier: MIT
// sidclusters_test.cpp - SID clusters: the high-water mark, the flow's
// cluster counter, walks, switchover criteria and the dump.
#include "support/fixture.h"

namespace qostest {
namespace {

using V = std::vector<int64_t>;  // calls in a braced list run in order

qos::SidClusterRow& cl(uint32_t row) { return store().sidClusters[row]; }
int32_t mark() { return store().stats.clusterDbMaxIndex; }
int8_t counterOf(uint32_t sfRow) { return store().sf[sfRow].sidClusterCounter; }

// Ports 1 and 2 on (ucid, sid) and (ucid+1, sid+1); the first action word set.
struct Channels {
  SidChannelMapping m[4];
};
Channels channels(uint8_t ucid, uint16_t sid) {
  return {{{QOS_MAP_DELETE, ucid, 0, sid}, {0, static_cast<uint8_t>(ucid + 1), 0, static_cast<uint16_t>(sid + 1)}, {}, {}}};
}
int32_t add(uint32_t sfId, uint8_t id, uint8_t ucid) { return qos_intDb_AddSfSidCluster(sfId, id, channels(ucid, ucid * 10).m); }

using SidClusters = StoreTest;

TEST_F(SidClusters, ClustersStoredBeforeTheFlowAreCountedByItsAdd) {
  ASSERT_EQ(add(0x77, 1, 3), 0);
  EXPECT_EQ(mark(), 0);  // row 0 lies in the range already
  ASSERT_EQ((V{add(0x77, 2, 5), add(0x88, 1, 5)}), (V{0, 0}));
  EXPECT_EQ(mark(), 2);
  EXPECT_EQ(store().sf[0].state, 0u);  // no flow row was touched
  ASSERT_EQ(qos_intDb_AddSf(0x77, 4, 2), 0);
  EXPECT_EQ(counterOf(0), 2);
  ASSERT_EQ(qos_intDb_AddSf(0x77, 4, 2), 0);  // counts again on top
  EXPECT_EQ(counterOf(0), 4);
}

TEST_F(SidClusters, AddRewriteAndDeleteMoveTheFlowCounter) {
  ASSERT_EQ((V{qos_intDb_AddSf(0x77, 4, 2), add(0x77, 1, 3), add(0x77, 2, 4)}), (V{0, 0, 0}));
  ASSERT_EQ(add(0x77, 1, 9), 0);  // rewrite: no count, action words not written
  EXPECT_EQ((V{counterOf(0), cl(0).channels[0].action, cl(0).channels[0].ucid, cl(0).channels[0].sid}), (V{2, 0, 9, 90}));
  ASSERT_EQ(qos_intDb_DelSfSidCluster(0x77, 1), 0);
  EXPECT_EQ(qos_intDb_DelSfSidCluster(0x77, 1), -1);
  EXPECT_EQ(counterOf(0), 1);
  EXPECT_EQ(std::memcmp(&cl(0), &store().sidClusters[78], sizeof(qos::SidClusterRow)), 0);  // as free as the last row
  ASSERT_EQ(add(0x77, 3, 1), 0);  // reuses row 0 below the mark
  EXPECT_EQ((V{cl(0).clusterId, mark(), counterOf(0)}), (V{3, 1, 2}));
  ASSERT_EQ(qos_intDb_DeleteSidClustersOfSf(0x77), 0);  // the flow goes: counter left alone
  EXPECT_EQ((V{counterOf(0), cl(1).sfId}), (V{2, 0}));
  EXPECT_TRUE(logs.records().empty());
}

TEST_F(SidClusters, FullTableRefusesNewPairsButRewritesStoredOnes) {
  for (uint8_t id = 0; id < 79; ++id) ASSERT_EQ(add(0x10, id, 1), 0);
  uint32_t row = 0;
  EXPECT_EQ(qos_intDb_FindClusterDbNextFreeIndex(&row), -1);
  const auto before = snapshot();
  EXPECT_EQ(add(0x10, 200, 1), -1);
  EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});
  EXPECT_EQ(logs.texts(), std::vector<std::string>{"qos_intDb_AddSfSidCluster: SID Cluster int DB is full. "
                                                   "ClusterId =200 of service flow SFID=16 cannot be added to DB"});
  EXPECT_EQ(logs.records()[0].level, 1);
  EXPECT_EQ(add(0x10, 5, 7), 0);
  EXPECT_EQ(cl(5).channels[0].ucid, 7u);
}

TEST_F(SidClusters, ReadsWalksAndMappingLookups) {
  ASSERT_EQ((V{add(0x99, 1, 3), add(0x99, 4, 6), add(0x55, 1, 3)}), (V{0, 0, 0}));
  Channels out = channels(0, 0);
  ASSERT_EQ(qos_intDb_GetSfSidCluster(0x99, 4, out.m), 0);
  // The caller's action words stay.
  EXPECT_EQ((V{out.m[0].action, out.m[1].ucid, out.m[1].sid}), (V{QOS_MAP_DELETE, 7, 61}));
  EXPECT_EQ(qos_intDb_GetSfSidCluster(0x99, 2, out.m), -1);

  uint8_t id = 0;
  const struct { int32_t cursor, result, after; } walks[] = {
      {-5, 0, 0}, {-1, 0, 0}, {0, 0, 1}, {1, -1, 1}, {78, -1, 78}, {INT32_MAX, -1, INT32_MAX}};
  for (const auto& w : walks) {
    int32_t cursor = w.cursor;
    EXPECT_EQ((V{qos_intDb_GetNextSfSidCluster(0x99, &cursor, &id, nullptr), cursor}), (V{w.result, w.after})) << w.cursor;
  }
  EXPECT_EQ(id, 4u);

  auto sidOf = [](uint32_t sfId, uint8_t cluster, uint8_t ucid) {
    uint32_t sid = 123;
    return V{qos_intDb_GetSidClusterTableRow(sfId, cluster, ucid, &sid), sid};
  };
  EXPECT_EQ(sidOf(0x99, 4, 9), (V{-1, 123}));
  EXPECT_EQ(sidOf(0x99, 4, 7), (V{0, 61}));
  EXPECT_EQ(sidOf(0, 0, 0), (V{0, 0}));  // free rows are matched like used ones
  EXPECT_TRUE(logs.records().empty());
}

TEST_F(SidClusters, SwitchoverCriteriaLimitsAndCount) {
  ASSERT_EQ(qos_intDb_SetSfSidClusterParams(0x99, 1000, 2000, 30, 4), 0);
  ASSERT_EQ(qos_intDb_SetSfSidClusterParams(0x99, 1, 2, 3, 5), 0);  // rewrites its row
  EXPECT_EQ((V{store().switchover[0].maxRequests, store().switchover[1].sfId}), (V{5, 0}));
  uint32_t bytes = 0, total = 0;
  uint16_t time = 0;
  uint8_t requests = 0;
  EXPECT_EQ((V{qos_intDb_GetSfSidClusterParams(0x99, &bytes, &total, &time, &requests), bytes, total, time, requests,
               qos_intDb_GetSfSidClusterParams(0x99, &bytes, &total, &time, nullptr)}), (V{0, 1, 2, 3, 5, -1}));
  EXPECT_EQ(qos_intDb_DeleteSfSidClusterParams(0x99), 0);
  EXPECT_EQ(qos_intDb_DeleteSfSidClusterParams(0x99), 0);  // unknown SFID: 0 too
  for (uint32_t i = 0; i < 64; ++i) ASSERT_EQ(qos_intDb_SetSfSidClusterParams(0x100 + i, 1, 1, 1, 1), 0);
  EXPECT_EQ(qos_intDb_SetSfSidClusterParams(0x200, 1, 1, 1, 1), -1);
  ASSERT_EQ(qos_intDb_SetClusterMaxNum(200), 0);
  EXPECT_EQ(store().stats.clusterMaxNum, 79u);
  ASSERT_EQ(add(0x99, 1, 3), 0);
  uint32_t count = 9;
  ASSERT_EQ(qos_intDb_GetClusterNumber(&count), 0);
  EXPECT_EQ(count, 0u);  // no operation keeps the count
  EXPECT_TRUE(logs.records().empty());
}

TEST_F(SidClusters, DumpListsRowsInUseUpToTheMark) {
  ASSERT_EQ((V{add(0x99, 1, 3), add(0x55, 2, 5)}), (V{0, 0}));
  cl(1).status = 2;  // not status 1
  cl(2).status = 1;  // above the mark
  EXPECT_EQ(captureStdout([] { EXPECT_EQ(qos_intDb_PrintSidClusters(), 0); }),
            "\n   SID Clusters List: \n\n"
            "SF ID: 153  Cluster ID: 1:\n"
            "       UC ID: 3       SID: 30   \n"
            "       UC ID: 4       SID: 31   \n"
            "       UC ID: 0       SID: 0   \n"
            "       UC ID: 0       SID: 0   \n"
            "\n\n");
}

}  // namespace
}  // namespace qostest
