// SPDX-License-Identifier: MIT
// switchover.cpp - the SID cluster switchover table.
//
// One 20-byte row per SFID with the flow's four SID cluster switchover
// criteria (maximum outstanding bytes, total bytes requested, time in the
// cluster, requests), stored as the caller gives them and never
// interpreted. Registration sets them, outcome processing deletes them with
// the flow's clusters. Rows are matched by SFID without looking at the
// status, like the cluster rows; a deleted row is zeroed whole.
#include <cstring>

#include "frame/log.h"
#include "qosintdb.h"

using qos::local;
using qos::SwitchoverRow;

namespace {

int32_t findSfId(uint32_t sfId) {
  return local.switchover.find([sfId](const SwitchoverRow& r) { return r.sfId == sfId; });
}

}  // namespace

extern "C" {

int32_t qos_intDb_SetSfSidClusterParams(uint32_t sfId, uint32_t maxOutstandingBytes,
                                        uint32_t maxTotalBytesRequested, uint16_t maxTimeInCluster,
                                        uint8_t maxRequests) {
  QOS_REQUIRE_SF_DB(-1);
  int32_t i = findSfId(sfId);
  if (i < 0) i = local.switchover.find([](const SwitchoverRow& r) { return !r.used(); });
  if (i < 0) return -1;
  SwitchoverRow& row = local.switchover[i];
  row.status = 1;
  row.sfId = sfId;
  row.maxOutstandingBytes = maxOutstandingBytes;
  row.maxTotalBytesRequested = maxTotalBytesRequested;
  row.maxTimeInCluster = maxTimeInCluster;
  row.maxRequests = maxRequests;
  return 0;
}

int32_t qos_intDb_GetSfSidClusterParams(uint32_t sfId, uint32_t* maxOutstandingBytes,
                                        uint32_t* maxTotalBytesRequested,
                                        uint16_t* maxTimeInCluster, uint8_t* maxRequests) {
  QOS_REQUIRE_SF_DB(-1);
  if (maxOutstandingBytes == nullptr || maxTotalBytesRequested == nullptr ||
      maxTimeInCluster == nullptr || maxRequests == nullptr) {
    return -1;
  }
  int32_t i = findSfId(sfId);
  if (i < 0) return -1;
  const SwitchoverRow& row = local.switchover[i];
  *maxOutstandingBytes = row.maxOutstandingBytes;
  *maxTotalBytesRequested = row.maxTotalBytesRequested;
  *maxTimeInCluster = row.maxTimeInCluster;
  *maxRequests = row.maxRequests;
  return 0;
}

// 0 also when the SFID had no criteria.
int32_t qos_intDb_DeleteSfSidClusterParams(uint32_t sfId) {
  QOS_REQUIRE_SF_DB(-1);
  int32_t i = findSfId(sfId);
  if (i >= 0) std::memset(&local.switchover[i], 0, sizeof(SwitchoverRow));
  return 0;
}

}  // extern "C"
