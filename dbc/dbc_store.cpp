// SPDX-License-Identifier: MIT
// dbc_store.cpp - the dynamic bonding change store (QosDBC DB).
//
// A DBC adds and deletes SID-to-channel mappings of the upstream flows' SID
// clusters. The client's DBC handling collects the requested modifications
// here (ModDb), checks them against the flows' current clusters and the new
// channel set, builds the clusters each (flow, cluster) pair will have, by
// transmit port (ActiveDb), derives the ports each flow may use (SF
// bitmaps), and finally writes the clusters into the SID cluster table.
//
// The store is one block of the shared region, reached through the exported
// pointer dbcTaDb; clients also read and write it directly (the ActiveDb
// actions 4 and 5 come only from them). So nothing read from it is trusted:
// a count is never used beyond its list's capacity, a port outside 1..4
// never indexes the per-port fields, and an append to a full list is
// refused. Lists only grow; qos_dbc_DbReset and qos_dbc_ResetSfBitmaps
// empty them. Every operation answers -1 while dbcTaDb is NULL. The caller
// holds the lock; nothing here takes it. The store writes only its own
// block: the clusters it builds go into the SID cluster table through that
// table's operations, and the flow and active tables are only read.
#include <algorithm>
#include <cstring>

#include "frame/log.h"
#include "qosintdb.h"

namespace {

constexpr uint32_t kPorts = QOS_CHANNELS_PER_CLUSTER;
constexpr uint32_t kPortAssigned = 2;
constexpr uint32_t kNotActive = 0xFFFFFFFF;  // activeSfIndex of a flow not in the Active SF DB
constexpr uint8_t kBitmapBits = 8;

// Entries of a list that may be read: the count as stored, at most the capacity.
uint32_t inUse(uint32_t count, uint32_t capacity) { return count < capacity ? count : capacity; }
uint32_t modsInUse() { return inUse(dbcTaDb->modCount, QOS_DBC_MOD_ENTRIES); }
uint32_t activesInUse() { return inUse(dbcTaDb->activeCount, QOS_DBC_ACTIVE_ENTRIES); }
uint32_t bitmapsInUse() { return inUse(dbcTaDb->bitmapCount, QOS_DBC_BITMAP_ENTRIES); }

bool validPort(uint32_t port) { return port >= 1 && port <= kPorts; }

// The first of `used` ModDb or ActiveDb entries of this flow and cluster, or -1.
template <typename Entry>
int32_t findPair(const Entry* entries, uint32_t used, uint32_t sfId, uint8_t clusterId) {
  for (uint32_t i = 0; i < used; ++i) {
    if (entries[i].sfId == sfId && entries[i].clusterId == clusterId) return static_cast<int32_t>(i);
  }
  return -1;
}

QosDbcSfBitmap* findBitmap(uint32_t sfId) {
  for (uint32_t m = 0; m < bitmapsInUse(); ++m) {
    if (dbcTaDb->sfBitmaps[m].sfId == sfId) return &dbcTaDb->sfBitmaps[m];
  }
  return nullptr;
}

// Starts ActiveDb entry j; the per-port fields are filled by the caller.
QosDbcActiveEntry& openActive(uint32_t j, uint32_t sfId, uint8_t clusterId, uint32_t action) {
  QosDbcActiveEntry& entry = dbcTaDb->activeDb[j];
  entry.sfId = sfId;
  entry.clusterId = clusterId;
  entry.clusterAction = action;
  return entry;
}

void assignPort(QosDbcActiveEntry& entry, uint32_t port, uint16_t sid) {
  entry.sid[port - 1] = sid;
  entry.portState[port - 1] = kPortAssigned;
}

bool appliedAsCluster(const QosDbcActiveEntry& entry) {
  return entry.clusterAction == QOS_DBC_FROM_CLUSTER || entry.clusterAction == QOS_DBC_CLIENT_SET;
}

// Position of `ucid` among the four UCIDs of a cluster, or -1.
int32_t slotOf(const uint8_t (&ucids)[kPorts], uint8_t ucid) {
  const uint8_t* at = std::find(ucids, ucids + kPorts, ucid);
  return at == ucids + kPorts ? -1 : static_cast<int32_t>(at - ucids);
}

// Applies one modification to the UCIDs its flow's cluster holds now (none
// when the cluster is not stored); UCID 0 in a mapping is no channel.
bool verify(const QosDbcModEntry& mod, const uint32_t channelUcids[kPorts]) {
  uint8_t ucids[kPorts] = {};
  SidChannelMapping current[kPorts] = {};
  if (qos_intDb_GetSfSidCluster(mod.sfId, mod.clusterId, current) == 0) {
    for (uint32_t i = 0; i < kPorts; ++i) ucids[i] = current[i].ucid;
  }
  for (uint32_t d = 0; d < inUse(mod.deleteCount, QOS_DBC_MAPS_PER_MOD); ++d) {
    const uint8_t ucid = mod.deleteMaps[d].ucid;
    if (ucid == 0) continue;
    const int32_t slot = slotOf(ucids, ucid);
    if (slot < 0) return false;
    ucids[slot] = 0;
  }
  for (uint32_t a = 0; a < inUse(mod.addCount, QOS_DBC_MAPS_PER_MOD); ++a) {
    const uint8_t ucid = mod.addMaps[a].ucid;
    if (ucid == 0) continue;
    const int32_t slot = slotOf(ucids, 0);
    if (slotOf(ucids, ucid) >= 0 || slot < 0) return false;
    ucids[slot] = ucid;
  }
  for (uint8_t ucid : ucids) {
    if (ucid != 0 && std::find(channelUcids, channelUcids + kPorts, uint32_t{ucid}) == channelUcids + kPorts) return false;
  }
  return true;
}

}  // namespace

extern "C" {

int32_t qos_dbc_DbReset(void) {
  if (dbcTaDb == nullptr) {
    QOS_LOG_DBC(QOS_LOG_ERROR, "Cannot reset QosDBC DB, shared mem not connected");
    return -1;
  }
  std::memset(dbcTaDb, 0, sizeof *dbcTaDb);
  return 0;
}

// The entry's add and delete counts are not cleared first: a reset store
// has them at 0. A modification that would hold more than four adds or four
// deletes, or a full ModDb, is refused whole.
int32_t qos_dbc_AddSfSidClusterMod(uint32_t sfId, uint8_t clusterId, uint32_t count,
                                   const SidChannelMapping* mappings) {
  if (dbcTaDb == nullptr || (mappings == nullptr && count != 0)) return -1;
  const uint32_t k = dbcTaDb->modCount;
  if (k >= QOS_DBC_MOD_ENTRIES) {
    QOS_LOG_DBC(QOS_LOG_ERROR, "ModDb is full (%d entries), cannot add SF %d, Cluster %d",
                QOS_DBC_MOD_ENTRIES, sfId, clusterId);
    return -1;
  }
  QosDbcModEntry& mod = dbcTaDb->modDb[k];
  uint32_t adds = mod.addCount;
  uint32_t deletes = mod.deleteCount;
  for (uint32_t i = 0; i < count; ++i) {
    adds += mappings[i].action == QOS_MAP_ADD ? 1 : 0;
    deletes += mappings[i].action == QOS_MAP_DELETE ? 1 : 0;
  }
  if (adds > QOS_DBC_MAPS_PER_MOD || deletes > QOS_DBC_MAPS_PER_MOD) {
    QOS_LOG_DBC(QOS_LOG_ERROR,
                "ModDb : SF %d, Cluster %d, %u add and %u delete mappings, at most %d of each, refused",
                sfId, clusterId, adds, deletes, QOS_DBC_MAPS_PER_MOD);
    return -1;
  }

  mod.sfId = sfId;
  mod.clusterId = clusterId;
  for (uint32_t i = 0; i < count; ++i) {
    const SidChannelMapping& m = mappings[i];
    ModMapping* to = nullptr;
    if (m.action == QOS_MAP_ADD) {
      to = &mod.addMaps[mod.addCount++];
    } else if (m.action == QOS_MAP_DELETE) {
      to = &mod.deleteMaps[mod.deleteCount++];
    } else {
      QOS_LOG_DBC(QOS_LOG_NOTICE,
                  "ModDb : SF %d, Cluster %d, Sid %d, Ucid %d, Unrecognized SidCluster action : %d, ignoring",
                  sfId, clusterId, m.sid, m.ucid, m.action);
      continue;
    }
    to->sid = m.sid;
    to->ucid = m.ucid;
  }
  dbcTaDb->modCount = k + 1;
  return 0;
}

// Every modification must apply to its flow's current cluster (an absent
// cluster is empty): deleted channels present, added ones new, at most four
// channels, all of them among channelUcids. Changes nothing, logs nothing.
int32_t qos_dbc_VerifyAllSidClusterMaps(const uint32_t channelUcids[4]) {
  if (dbcTaDb == nullptr || channelUcids == nullptr) return -1;
  for (uint32_t k = 0; k < modsInUse(); ++k) {
    if (!verify(dbcTaDb->modDb[k], channelUcids)) return -1;
  }
  return 0;
}

// A mapping whose channel is on no port 1..4 is skipped. A full ActiveDb
// stops the pass with -1 (entries built so far stay); a full bitmap list
// gives -1 once the pass is complete.
int32_t qos_dbc_SetActions(void) {
  if (dbcTaDb == nullptr) return -1;
  int32_t result = 0;
  for (uint32_t k = 0; k < modsInUse(); ++k) {
    QosDbcModEntry& mod = dbcTaDb->modDb[k];
    uint32_t activeSfIndex = 0;
    if (qos_intDb_GetActiveSfIndexBySfid(mod.sfId, &activeSfIndex) != 0) {
      mod.activeIndex = -1;
      continue;
    }
    SidChannelMapping cluster[kPorts] = {};
    if (qos_intDb_GetSfSidCluster(mod.sfId, mod.clusterId, cluster) != 0) {
      QOS_LOG_DBC(QOS_LOG_NOTICE, "Could not find ClusterId %d of SF %d", mod.clusterId, mod.sfId);
      continue;
    }
    const uint32_t j = dbcTaDb->activeCount;
    if (j >= QOS_DBC_ACTIVE_ENTRIES) {
      QOS_LOG_DBC(QOS_LOG_ERROR, "ActiveDb is full (%d entries), cannot add SF %d, Cluster %d",
                  QOS_DBC_ACTIVE_ENTRIES, mod.sfId, mod.clusterId);
      return -1;
    }
    QosDbcActiveEntry& entry = openActive(j, mod.sfId, mod.clusterId, QOS_DBC_FROM_CLUSTER);
    for (const SidChannelMapping& m : cluster) {
      if (m.sid == 0 || m.ucid == 0) continue;
      uint8_t port = 0;
      (void)DocsisDb_GetPortFromUcid(m.ucid, &port);
      if (!validPort(port)) {
        QOS_LOG_DBC(QOS_LOG_ERROR, "SF %d, Cluster %d : Ucid %d is on no upstream port (port %d), skipping",
                    mod.sfId, mod.clusterId, m.ucid, port);
        continue;
      }
      assignPort(entry, port, m.sid);
      if (qos_dbc_SetSfChannelActive(mod.sfId, static_cast<uint8_t>(port - 1), 1) != 0) result = -1;
    }
    mod.activeIndex = static_cast<int32_t>(j);
    entry.modIndex = k;
    entry.activeSfIndex = activeSfIndex;
    dbcTaDb->activeCount = j + 1;
  }
  return result;
}

// A new entry is made even when the ModDb holds no modification of this
// flow and cluster (then it has no ModDb link); only an empty ModDb refuses
// it, before anything is written. A flow not in the Active SF DB gets
// activeSfIndex 0xFFFFFFFF.
int32_t qos_dbc_ActiveDbAddSid(uint32_t sfId, uint8_t clusterId, uint32_t port, uint16_t sid) {
  if (dbcTaDb == nullptr) return -1;
  if (!validPort(port)) {
    QOS_LOG_DBC(QOS_LOG_ERROR, "AddSid : Sf %d, Clust %d, port %d is not an upstream port (1..4), ignoring",
                sfId, clusterId, port);
    return -1;
  }
  int32_t existing = findPair(dbcTaDb->activeDb, activesInUse(), sfId, clusterId);
  if (existing >= 0) {
    assignPort(dbcTaDb->activeDb[existing], port, sid);
    return 0;
  }

  if (dbcTaDb->modCount == 0) {
    QOS_LOG_DBC(QOS_LOG_NOTICE, "No MODs in ModDb, ignoring (AddSid : Sf %d, Clust %d, port %d, sid %d)", sfId,
                clusterId, port, sid);
    return -1;
  }
  const uint32_t j = dbcTaDb->activeCount;
  if (j >= QOS_DBC_ACTIVE_ENTRIES) {
    QOS_LOG_DBC(QOS_LOG_ERROR, "ActiveDb is full (%d entries), cannot add SF %d, Cluster %d",
                QOS_DBC_ACTIVE_ENTRIES, sfId, clusterId);
    return -1;
  }
  QosDbcActiveEntry& entry = openActive(j, sfId, clusterId, QOS_DBC_CREATED);
  int32_t k = findPair(dbcTaDb->modDb, modsInUse(), sfId, clusterId);
  if (k >= 0) {
    dbcTaDb->modDb[k].activeIndex = static_cast<int32_t>(j);
    entry.modIndex = static_cast<uint32_t>(k);
  }
  uint32_t activeSfIndex = 0;
  entry.activeSfIndex = qos_intDb_GetActiveSfIndexBySfid(sfId, &activeSfIndex) == 0 ? activeSfIndex : kNotActive;
  dbcTaDb->activeCount = j + 1;
  assignPort(entry, port, sid);
  return 0;
}

int32_t qos_dbc_RefreshBitmaps(void) {
  if (dbcTaDb == nullptr) return -1;
  qos_dbc_ResetSfBitmaps();
  int32_t result = 0;
  for (uint32_t j = 0; j < activesInUse(); ++j) {
    const QosDbcActiveEntry& entry = dbcTaDb->activeDb[j];
    if (!appliedAsCluster(entry)) continue;
    for (uint8_t c = 0; c < kPorts; ++c) {
      if (entry.sid[c] == 0 || entry.portState[c] != kPortAssigned) continue;
      if (qos_dbc_SetSfChannelActive(entry.sfId, c, 1) != 0) result = -1;
    }
  }
  return result;
}

// Deletes the clusters marked for deletion, then writes every cluster
// applied as built (actions 2 and 4); port p takes its UCID from the DOCSIS
// database. Entries of action 3 are left out.
int32_t qos_dbc_UpdateSfSidClusterDb(void) {
  if (dbcTaDb == nullptr) return -1;
  for (uint32_t j = 0; j < activesInUse(); ++j) {
    const QosDbcActiveEntry& entry = dbcTaDb->activeDb[j];
    if (entry.clusterAction == QOS_DBC_CLIENT_DELETE) (void)qos_intDb_DelSfSidCluster(entry.sfId, entry.clusterId);
  }
  for (uint32_t j = 0; j < activesInUse(); ++j) {
    const QosDbcActiveEntry& entry = dbcTaDb->activeDb[j];
    if (!appliedAsCluster(entry)) continue;
    SidChannelMapping channels[kPorts] = {};
    for (uint32_t p = 1; p <= kPorts; ++p) {
      if (entry.portState[p - 1] != kPortAssigned) continue;
      uint8_t ucid = 0;
      (void)DocsisDb_GetPortUcid(static_cast<uint8_t>(p), &ucid);
      channels[p - 1].ucid = ucid;
      channels[p - 1].sid = entry.sid[p - 1];
    }
    (void)qos_intDb_AddSfSidCluster(entry.sfId, entry.clusterId, channels);
  }
  return 0;
}

// channel is port - 1; a channel of 8 or more changes no bit but still
// finds or makes the flow's entry.
int32_t qos_dbc_SetSfChannelActive(uint32_t sfId, uint8_t channel, int32_t active) {
  if (dbcTaDb == nullptr) return -1;
  QosDbcSfBitmap* bitmap = findBitmap(sfId);
  if (bitmap == nullptr) {
    const uint32_t m = dbcTaDb->bitmapCount;
    if (m >= QOS_DBC_BITMAP_ENTRIES) {
      QOS_LOG_DBC(QOS_LOG_ERROR, "SF bitmap list is full (%d entries), cannot add SF %d", QOS_DBC_BITMAP_ENTRIES,
                  sfId);
      return -1;
    }
    bitmap = &dbcTaDb->sfBitmaps[m];
    bitmap->sfId = sfId;
    dbcTaDb->bitmapCount = m + 1;
  }
  if (channel < kBitmapBits) {
    const uint8_t bit = static_cast<uint8_t>(1u << channel);
    bitmap->channelBitmap = static_cast<uint8_t>(active != 0 ? bitmap->channelBitmap | bit : bitmap->channelBitmap & ~bit);
  }
  return 0;
}

int32_t qos_dbc_GetSfChannelBitmap(uint32_t sfId, uint32_t* bitmap) {
  if (dbcTaDb == nullptr || bitmap == nullptr) return -1;
  const QosDbcSfBitmap* entry = findBitmap(sfId);
  if (entry == nullptr) return -1;
  *bitmap = entry->channelBitmap;
  return 0;
}

int32_t qos_dbc_ResetSfBitmaps(void) {
  if (dbcTaDb == nullptr) return -1;
  dbcTaDb->bitmapCount = 0;
  std::memset(dbcTaDb->sfBitmaps, 0, sizeof dbcTaDb->sfBitmaps);
  return 0;
}

}  // extern "C"
