// SPDX-License-Identifier: MIT
// cluster_table.cpp - the SID Cluster int DB.
//
// One 44-byte row per (SFID, SID Cluster ID) of a multi-channel upstream
// flow: for each of the modem's four upstream transmit ports, the channel
// (UCID) and the SID the flow uses there. Rows are keyed by SFID, not by
// flow row, so clusters may be stored before their flow exists; the flow
// counts them when it is added. While the flow row exists, every row created
// or deleted here moves its sidClusterCounter by one. Registration, the
// bonding change store and outcome processing change the table, always
// under the caller's lock (the row and the counter change in two steps).
//
// Lookups match rows by SFID and cluster ID without looking at the status:
// a free row reads as SFID 0, cluster 0, and answers to them. Callers never
// use SFID 0, and the rows stay findable exactly as other processes of the
// stack expect. The mark clusterDbMaxIndex only grows between resets; new
// rows are taken by the maximum-index rule shared with the flow table.
//
// Only this folder writes cluster and switchover rows and the cluster words
// of the statistics block. A flow's cluster counter is the flow table's:
// this file asks serviceflows/ to move it and never writes a flow row.
#include <cstdio>
#include <cstring>

#include "frame/log.h"
#include "frame/out.h"
#include "qosintdb.h"
#include "serviceflows/internal.h"
#include "sidclusters/internal.h"

using qos::local;
using qos::SidClusterRow;

namespace {

constexpr uint32_t kLargestClusterMaxNum = qos::kSidClusterRows;
constexpr int32_t kLastRow = static_cast<int32_t>(qos::kSidClusterRows) - 1;

// First row of the whole table holding this pair, whatever its status; -1.
int32_t findPair(uint32_t sfId, uint8_t clusterId) {
  return local.sidClusters.find(
      [=](const SidClusterRow& r) { return r.sfId == sfId && r.clusterId == clusterId; });
}

// Copies the UCID and SID of the four ports; action words stay as they were.
void copyChannels(const SidChannelMapping* from, SidChannelMapping* to) {
  for (int port = 0; port < QOS_CHANNELS_PER_CLUSTER; ++port) {
    to[port].ucid = from[port].ucid;
    to[port].sid = from[port].sid;
  }
}

}  // namespace

namespace qos {
namespace clusters {

void resetRows() {
  std::memset(local.switchover.data(), 0, sizeof(SwitchoverRow) * kSwitchoverRows);
  std::memset(local.sidClusters.data(), 0, sizeof(SidClusterRow) * kSidClusterRows);
  QosIntDbStats& stats = *local.stats;
  stats.clusterNumber = 0;
  stats.clusterMaxNum = 38;
  stats.clusterDbMaxIndex = 0;
}

}  // namespace clusters
}  // namespace qos

extern "C" {

int32_t qos_intDb_AddSfSidCluster(uint32_t sfId, uint8_t clusterId,
                                  const SidChannelMapping channels[4]) {
  QOS_REQUIRE_SF_DB(-1);
  if (channels == nullptr) return -1;
  int32_t i = findPair(sfId, clusterId);
  const bool created = i < 0;
  if (created) {
    i = qos::clusterTable().takeFree();
    if (i < 0) {
      QOS_LOG(QOS_LOG_ERROR,
              "%s: SID Cluster int DB is full. ClusterId =%d of service flow SFID=%d cannot be "
              "added to DB",
              __func__, static_cast<int>(clusterId), static_cast<int>(sfId));
      return -1;
    }
  }
  SidClusterRow& row = local.sidClusters[i];
  row.status = 1;
  row.clusterId = clusterId;
  row.sfId = sfId;
  copyChannels(channels, row.channels);
  if (created) qos::flows::countCluster(sfId, +1);
  return 0;
}

int32_t qos_intDb_DelSfSidCluster(uint32_t sfId, uint8_t clusterId) {
  QOS_REQUIRE_SF_DB(-1);
  int32_t i = findPair(sfId, clusterId);
  if (i < 0) return -1;
  std::memset(&local.sidClusters[i], 0, sizeof(SidClusterRow));
  qos::flows::countCluster(sfId, -1);
  return 0;
}

// The flow is going away with its clusters: its counter is left alone.
int32_t qos_intDb_DeleteSidClustersOfSf(uint32_t sfId) {
  QOS_REQUIRE_SF_DB(-1);
  for (auto& row : local.sidClusters) {
    if (row.sfId == sfId) std::memset(&row, 0, sizeof row);
  }
  return 0;
}

int32_t qos_intDb_GetSfSidCluster(uint32_t sfId, uint8_t clusterId, SidChannelMapping out[4]) {
  QOS_REQUIRE_SF_DB(-1);
  if (out == nullptr) return -1;
  int32_t i = findPair(sfId, clusterId);
  if (i < 0) return -1;
  copyChannels(local.sidClusters[i].channels, out);
  return 0;
}

int32_t qos_intDb_GetNextSfSidCluster(uint32_t sfId, int32_t* rowIndex, uint8_t* clusterId,
                                      SidChannelMapping* out) {
  QOS_REQUIRE_SF_DB(-1);
  if (rowIndex == nullptr || clusterId == nullptr) return -1;
  // Below -1 starts at row 0 too; past the table finds nothing.
  const int32_t from = *rowIndex < 0 ? 0 : (*rowIndex >= kLastRow ? kLastRow + 1 : *rowIndex + 1);
  int32_t i = local.sidClusters.find([sfId](const SidClusterRow& r) { return r.sfId == sfId; }, from);
  if (i < 0) return -1;
  const SidClusterRow& row = local.sidClusters[i];
  *rowIndex = i;
  *clusterId = row.clusterId;
  if (out != nullptr) copyChannels(row.channels, out);
  return 0;
}

// Read by the SNMP agent without the initialised check; a process that has
// not attached has no table to read and gets -1, without a message.
int32_t qos_intDb_GetSidClusterTableRow(uint32_t sfId, uint8_t clusterId, uint8_t ucid,
                                        uint32_t* sid) {
  if (!local.sfDbReady || sid == nullptr) return -1;
  // A matching row without this channel does not end the search.
  for (const auto& row : local.sidClusters) {
    if (row.sfId != sfId || row.clusterId != clusterId) continue;
    for (const auto& channel : row.channels) {
      if (channel.ucid == ucid) {
        *sid = channel.sid;
        return 0;
      }
    }
  }
  return -1;
}

// Without the initialised check; a process that has not attached prints
// nothing and gets -1.
int32_t qos_intDb_PrintSidClusters(void) {
  if (!local.sfDbReady) return -1;
  std::puts("\n   SID Clusters List: \n");
  auto table = qos::clusterTable();
  for (int32_t i = 0; i <= table.last(); ++i) {
    const SidClusterRow& row = table[i];
    if (row.status != 1) continue;
    std::printf("SF ID: %d  Cluster ID: %d:\n", static_cast<int>(row.sfId),
                static_cast<int>(row.clusterId));
    for (const auto& channel : row.channels) {
      std::printf("       UC ID: %d       SID: %d   \n", static_cast<int>(channel.ucid),
                  static_cast<int>(channel.sid));
    }
    std::putchar('\n');
  }
  std::putchar('\n');
  return 0;
}

int32_t qos_intDb_GetClusterDbMaxIndex(uint32_t* maxIndex) {
  QOS_REQUIRE_SF_DB(-1);
  return qos::writeOut(maxIndex, local.stats->clusterDbMaxIndex);
}

int32_t qos_intDb_GetClusterMaxNum(uint32_t* maxNum) {
  QOS_REQUIRE_SF_DB(-1);
  return qos::writeOut(maxNum, local.stats->clusterMaxNum);
}

int32_t qos_intDb_SetClusterMaxNum(uint32_t maxNum) {
  QOS_REQUIRE_SF_DB(-1);
  local.stats->clusterMaxNum = maxNum < kLargestClusterMaxNum ? maxNum : kLargestClusterMaxNum;
  return 0;
}

// No operation keeps a count of the clusters in use: the word stays 0 from
// the last reset on, and the count is what the table walks give.
int32_t qos_intDb_GetClusterNumber(uint32_t* clusterNumber) {
  QOS_REQUIRE_SF_DB(-1);
  return qos::writeOut(clusterNumber, local.stats->clusterNumber);
}

// The row is not marked in use; the mark may have grown for it.
int32_t qos_intDb_FindClusterDbNextFreeIndex(uint32_t* rowIndex) {
  QOS_REQUIRE_SF_DB(-1);
  return qos::clusterTable().takeFreeInto(rowIndex);
}

}  // extern "C"
