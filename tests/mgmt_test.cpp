// SPDX-License-Identifier: MIT
// mgmt_test.cpp - SNMP walks and attribute reads over rows as they are stored.
#include <algorithm>

#include "frame/region.h"
#include "support/fixture.h"

namespace qostest {
namespace {

using Idx = std::vector<uint32_t>;
using Ports = std::vector<std::pair<uint8_t, uint16_t>>;  // (UCID, SID) of ports 1..

class Walks : public StoreTest {
 protected:
  void flow(int row, uint32_t state, uint32_t sfId, uint16_t ref, uint16_t sid) {
    qos::SfRow& r = store().sf[row];
    r.state = state, r.sfId = sfId, r.ref = ref, r.sid = sid;
    store().stats.sfDbMaxIndex = std::max(store().stats.sfDbMaxIndex, row);
  }
  void cluster(int row, uint32_t status, uint32_t sfId, uint8_t clusterId, const Ports& ports) {
    qos::SidClusterRow& r = store().sidClusters[row];
    r = qos::SidClusterRow{};
    r.status = status, r.sfId = sfId, r.clusterId = clusterId;
    for (std::size_t i = 0; i < ports.size(); ++i) r.channels[i].ucid = ports[i].first, r.channels[i].sid = ports[i].second;
  }
  // Every index a walk visits from the all-zero index until get-next fails.
  template <typename Next>
  static std::vector<Idx> walk(std::size_t n, Next next) {
    std::vector<Idx> out;
    Idx from(n, 0), to(n, 0);
    while (out.size() < 50 && next(from, to) == 0) out.push_back(from = to);
    return out;
  }
};

TEST_F(Walks, CmServiceWalkInBothUpstreamModes) {
  flow(0, QOS_SF_OPERATIONAL, 1, 1, 7), flow(1, QOS_SF_OPERATIONAL, 2, 2, 3), flow(2, QOS_SF_ADDING, 3, 3, 5);
  flow(3, QOS_SF_OPERATIONAL, 4, 4, 12), flow(4, QOS_SF_OPERATIONAL, 5, 5, 7), flow(5, QOS_SF_OPERATIONAL, 6, 6, 0);
  store().sf[9].state = QOS_SF_OPERATIONAL, store().sf[9].sid = 4;  // above sfDbMaxIndex
  cluster(0, 1, 9, 1, {{1, 10}, {2, 20}, {3, 30}});
  cluster(1, 1, 8, 1, {{1, 10}, {2, 0}, {0, 0}, {4, 0xFFFF}});
  cluster(2, 0, 7, 1, {{1, 40}});
  const uint32_t ifs[4] = {5, 4, 0, 0xFFFFFFFF};
  auto cmServiceWalk = [&] {
    return walk(2, [&](const Idx& a, Idx& b) {
      return qos_intDb_GetNextCmServiceTableIndex(a[0], a[1], ifs, &b[0], &b[1]);
    });
  };
  for (auto [multiple, tcc] : {std::pair{0, 1}, std::pair{1, 0}}) {
    qos_host_docsis_set_upstream_mode(multiple, tcc);
    EXPECT_EQ(cmServiceWalk(), (std::vector<Idx>{{5, 3}, {5, 7}, {5, 12}}));
  }
  uint32_t next = 99;
  EXPECT_EQ(qos_intDb_GetSnmpNextSid(12, &next), -1);
  qos_host_docsis_set_upstream_mode(1, 1);
  EXPECT_EQ(cmServiceWalk(), (std::vector<Idx>{{4, 20}, {5, 10}, {0xFFFFFFFF, 0xFFFF}}));
  EXPECT_EQ(qos_intDb_GetNextCmServiceTableIndex(5, 9, nullptr, &next, &next), -1);
  EXPECT_EQ(next, 99u);
  EXPECT_TRUE(logs.records().empty());
}

TEST_F(Walks, SidClusterWalkListsChannelsOfClustersInUse) {
  cluster(3, 1, 9, 1, {{3, 1}, {1, 2}, {0, 3}, {3, 4}});
  cluster(0, 1, 2, 7, {{0, 0}, {4, 5}});
  cluster(1, 0, 1, 1, {{1, 1}});
  qos_host_docsis_set_upstream_mode(1, 1);
  EXPECT_EQ(walk(3, [](const Idx& a, Idx& b) {
              return qos_intDb_GetNextSfSidClusterTableIndex(a[0], a[1], a[2], &b[0], &b[1], &b[2]);
            }),
            (std::vector<Idx>{{2, 7, 4}, {9, 1, 1}, {9, 1, 3}}));
  Idx out(3, 0);
  EXPECT_EQ(qos_intDb_GetNextSfSidClusterTableIndex(2, 0x100, 0, &out[0], &out[1], nullptr), -1);
  EXPECT_EQ(qos_intDb_GetNextSfSidClusterTableIndex(2, 0x100, 0, &out[0], &out[1], &out[2]), 0);
  EXPECT_EQ(out, Idx({9, 1, 1}));
}

TEST_F(Walks, CmServiceAttributes) {
  flow(0, QOS_SF_OPERATIONAL, 100, 11, 7), flow(1, QOS_SF_OPERATIONAL, 200, 22, 8), flow(2, QOS_SF_OPERATIONAL, 300, 33, 9);
  for (auto [row, sfId] : std::vector<std::pair<int, uint32_t>>{{0, 200}, {1, 100}, {5, 400}}) {
    store().activeSf[row].status = 1, store().activeSf[row].sfId = sfId;
  }
  cluster(0, 1, 100, 1, {{1, 50}, {2, 51}});
  cluster(1, 0, 300, 1, {{1, 60}});
  cluster(2, 1, 400, 1, {{0, 0}, {0, 0}, {3, 70}});
  const uint32_t k = 0xEEEE;  // output left alone
  struct Case { uint32_t multiple, port, sid; int32_t result; Idx out; };
  for (const Case& c : std::vector<Case>{
           {1, 1, 50, 0, {1, 22, 2}},  // value2: the ref of SF row 1, row number = active index
           {1, 2, 51, 0, {1, 22, 2}}, {1, 2, 50, -1, {k, k, k}}, {1, 1, 60, -1, {k, k, k}},
           {1, 3, 70, -1, {5, k, k}},  // SF row 5 is free: fails after writing activeIndex
           {0, 1, 7, 0, {1, 0, 1}}, {0, 4, 8, 0, {0, 0, 1}}, {0, 1, 9, -1, {k, k, k}}, {0, 1, 50, -1, {k, k, k}},
           {0, 0, 7, -1, {k, k, k}}, {1, 5, 50, -1, {k, k, k}}, {0, 1, 0, -1, {k, k, k}}, {1, 1, 16384, -1, {k, k, k}}}) {
    qos_host_docsis_set_upstream_mode(c.multiple, 1);
    Idx out(3, k);
    EXPECT_EQ(qos_intDb_GetCmServiceTableAttr(c.port, c.sid, &out[0], &out[1], &out[2]), c.result) << c.sid;
    EXPECT_EQ(out, c.out) << c.port << "/" << c.sid;
  }
  uint32_t a = k;
  EXPECT_EQ(qos_intDb_GetCmServiceTableAttr(1, 7, &a, nullptr, &a), -1);
  EXPECT_EQ(a, k);
  EXPECT_TRUE(logs.records().empty());
}

}  // namespace
}  // namespace qostest
