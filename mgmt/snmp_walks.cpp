// SPDX-License-Identifier: MIT
// snmp_walks.cpp - the SNMP agent's view of the flow and SID cluster tables.
//
// Two MIB tables are served straight from the shared tables: the CM service
// table, indexed by (upstream interface index, SID), and the service flow
// SID cluster table, indexed by (SFID, SID Cluster ID, UCID). A walk asks
// for the index that follows the one it holds, until there is none. Every
// get-next works the same way: the candidates of its table are generated
// from the rows as they are now, and the smallest one strictly greater than
// the given index is the answer (components compared in order, as unsigned
// numbers; a candidate that appears twice answers once).
//
// Where upstream SIDs come from depends on the modem's upstream mode, asked
// of the DOCSIS database at every call: with multiple upstreams and a
// Transmit Channel Configuration in the REG-RSP they are the SIDs of the SID
// clusters (entry i = transmit port i+1), otherwise the `sid` of each
// operational flow. Nothing here writes a table; outputs are written only
// on success.
#include <array>
#include <cstddef>

#include "frame/log.h"
#include "qosintdb.h"

using qos::local;
using qos::SfRow;
using qos::SidClusterRow;

namespace {

constexpr uint32_t kPorts = QOS_CHANNELS_PER_CLUSTER;
constexpr uint32_t kSidLimit = 16384;  // SIDs are 14-bit values, 0 = none
constexpr uint32_t kClusterInUse = 1;

template <std::size_t N>
using Index = std::array<uint32_t, N>;

// The smallest candidate strictly greater than `after`. `candidates(emit)`
// calls emit once per candidate, in any order.
template <std::size_t N, typename Candidates>
bool nextIndex(const Index<N>& after, Candidates candidates, Index<N>& next) {
  bool found = false;
  candidates([&](const Index<N>& candidate) {
    if (after < candidate && (!found || candidate < next)) {
      next = candidate;
      found = true;
    }
  });
  return found;
}

// (SID) of every operational flow of the used range.
template <typename Emit>
void flowSids(Emit emit) {
  auto flows = qos::sfTable();
  for (int32_t i = 0; i <= flows.last(); ++i) {
    const SfRow& row = flows[i];
    if (row.state == QOS_SF_OPERATIONAL) emit(Index<1>{row.sid});
  }
}

// (interface index, SID) of every port of the clusters in use; a port
// without an interface and a port without a SID give none.
template <typename Emit>
void clusterPortSids(const uint32_t usIfIndex[kPorts], Emit emit) {
  for (const SidClusterRow& row : local.sidClusters) {
    if (row.status != kClusterInUse) continue;
    for (uint32_t i = 0; i < kPorts; ++i) {
      if (usIfIndex[i] != 0 && row.channels[i].sid != 0) {
        emit(Index<2>{usIfIndex[i], row.channels[i].sid});
      }
    }
  }
}

// (SFID, cluster ID, UCID) of every channel of the clusters in use.
template <typename Emit>
void clusterChannels(Emit emit) {
  for (const SidClusterRow& row : local.sidClusters) {
    if (row.status != kClusterInUse) continue;
    for (const SidChannelMapping& channel : row.channels) {
      if (channel.ucid != 0) emit(Index<3>{row.sfId, row.clusterId, channel.ucid});
    }
  }
}

bool multipleUpstreamMode() {
  uint32_t multiple = 0;
  (void)DocsisDb_GetMultipleUpstreams(&multiple);
  return multiple != 0 && DocsisDb_IsTccReceivedInRegRsp() != 0;
}

bool nextFlowSid(uint32_t sid, uint32_t& nextSid) {
  Index<1> next{};
  if (!nextIndex(Index<1>{sid}, [](auto emit) { flowSids(emit); }, next)) return false;
  nextSid = next[0];
  return true;
}

bool activeIndexOf(uint32_t sfId, uint32_t& activeIndex) {
  uint32_t index = 0;
  if (qos_intDb_GetActiveSfIndexBySfid(sfId, &index) != 0) return false;
  activeIndex = index;
  return true;
}

}  // namespace

extern "C" {

int32_t qos_intDb_GetSnmpNextSid(uint32_t sid, uint32_t* nextSid) {
  QOS_REQUIRE_SF_DB(-1);
  if (nextSid == nullptr) return -1;
  return nextFlowSid(sid, *nextSid) ? 0 : -1;
}

// Before attachment there is no table to walk: -1, silently, in both modes.
int32_t qos_intDb_GetNextCmServiceTableIndex(uint32_t ifIndex, uint32_t sid, const uint32_t usIfIndex[4],
                                             uint32_t* nextIfIndex, uint32_t* nextSid) {
  if (!local.sfDbReady) return -1;
  if (usIfIndex == nullptr || nextIfIndex == nullptr || nextSid == nullptr) return -1;
  if (!multipleUpstreamMode()) {
    // One upstream: every SID is on the first port's interface.
    if (!nextFlowSid(sid, *nextSid)) return -1;
    *nextIfIndex = usIfIndex[0];
    return 0;
  }
  Index<2> next{};
  if (!nextIndex(Index<2>{ifIndex, sid}, [usIfIndex](auto emit) { clusterPortSids(usIfIndex, emit); },
                 next)) {
    return -1;
  }
  *nextIfIndex = next[0];
  *nextSid = next[1];
  return 0;
}

int32_t qos_intDb_GetCmServiceTableAttr(uint32_t usPort, uint32_t sid, uint32_t* activeIndex,
                                        uint32_t* value2, uint32_t* value3) {
  if (usPort < 1 || usPort > kPorts || sid == 0 || sid >= kSidLimit) return -1;
  if (!local.sfDbReady) return -1;
  if (activeIndex == nullptr || value2 == nullptr || value3 == nullptr) return -1;

  if (!multipleUpstreamMode()) {
    int32_t row = qos::sfTable().findInRange(
        [sid](const SfRow& r) { return r.state == QOS_SF_OPERATIONAL && r.sid == sid; });
    if (row < 0 || !activeIndexOf(local.sf[row].sfId, *activeIndex)) return -1;
    *value2 = 0;
    *value3 = 1;
    return 0;
  }

  const uint32_t port = usPort - 1;
  int32_t row = local.sidClusters.find([sid, port](const SidClusterRow& r) { return r.channels[port].sid == sid; });
  if (row < 0) return -1;
  const SidClusterRow& cluster = local.sidClusters[row];
  if (!activeIndexOf(cluster.sfId, *activeIndex)) return -1;
  // value2 is the reference of the flow row whose SF DB index equals the
  // active index (not necessarily the cluster's flow); a free row fails,
  // with activeIndex already written.
  uint32_t ref = 0;
  if (qos_intDb_GetSfRef(*activeIndex, &ref) != 0) return -1;
  uint32_t sids = 0;
  for (const SidChannelMapping& channel : cluster.channels) sids += channel.sid != 0 ? 1 : 0;
  *value2 = ref;
  *value3 = sids;
  return 0;
}

// The table lists the clusters whatever the upstream mode; -1 before attachment.
int32_t qos_intDb_GetNextSfSidClusterTableIndex(uint32_t sfId, uint32_t clusterId, uint32_t ucid,
                                                uint32_t* nextSfId, uint32_t* nextClusterId,
                                                uint32_t* nextUcid) {
  if (!local.sfDbReady) return -1;
  if (nextSfId == nullptr || nextClusterId == nullptr || nextUcid == nullptr) return -1;
  Index<3> next{};
  if (!nextIndex(Index<3>{sfId, clusterId, ucid}, [](auto emit) { clusterChannels(emit); }, next)) {
    return -1;
  }
  *nextSfId = next[0];
  *nextClusterId = next[1];
  *nextUcid = next[2];
  return 0;
}

}  // extern "C"
