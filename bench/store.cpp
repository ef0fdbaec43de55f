// SPDX-License-Identifier: MIT
// store.cpp - creating the benchmarks' store and filling its tables.
#include "store.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "qosintdb.h"
#include "qosplatform_host.h"

namespace qosbench {
namespace {

uint64_t logs = 0;

void countLog(const LogSite*, const char*, void*) { ++logs; }

qos::QosIntDbRegion* attach() {
  qos_host_set_log_hook(countLog, nullptr);
  if (qos_IntDb_Init() != 0) {
    std::fprintf(stderr, "qosdb_bench: cannot create the store\n");
    std::exit(1);
  }
  return static_cast<qos::QosIntDbRegion*>(shm_get(1, QOS_REGION_SEGMENT_ID));
}

void freeClsf(qos::ClsfRow& row) {
  row = {};
  row.taIndex = -1;
}

void fillTransactions(qos::QosIntDbRegion& r) {
  for (uint32_t i = 0; i < QOS_TA_ROWS; ++i) {
    qos::TaRow& t = r.ta[i];
    t.rowStatus = 1;
    t.taId = static_cast<uint16_t>(100 + i);
    t.type = QOS_TA_DSA;
    t.initiator = QOS_TA_BY_MODEM;
  }
  r.taControl.taRowsUsed = QOS_TA_ROWS;
}

// Flows 0..63 in force; 64..125 changing under transactions 0..8; 126 and
// 127 adding under transaction 9. Even rows upstream: the first 32 of them
// active (each with SID clusters), the rest provisioned; odd rows downstream.
void fillFlows(qos::QosIntDbRegion& r) {
  for (uint32_t i = 0; i < kFlows; ++i) {
    qos::SfRow& f = r.sf[i];
    f = {};
    const bool upstream = i % 2 == 0;
    f.sfId = sfIdOf(i);
    f.ref = static_cast<uint16_t>(refOf(i));
    f.direction = upstream ? QOS_DIR_UPSTREAM : QOS_DIR_DOWNSTREAM;
    f.sid = upstream ? static_cast<uint16_t>(i + 1) : 0;
    f.paramSetType = !upstream || i < kOperationalFlows ? 7 : QOS_PARAMSET_PROVISIONED;
    f.heldTaIndex = -1;
    f.pairSfIndex = -1;
    f.qosDbIndex = static_cast<int32_t>(i);
    f.phsCounter = i < 96 ? 1 : 0;
    if (i < kOperationalFlows) {
      f.state = QOS_SF_OPERATIONAL;
      f.committed = 1;
      f.taIndex = -1;
    } else if (i < kOutcomeUsFlow) {
      f.state = QOS_SF_CHANGING;
      f.committed = 1;
      f.taIndex = static_cast<int32_t>((i - kOperationalFlows) % 9);
    } else {
      f.state = QOS_SF_ADDING;
      f.taIndex = kOutcomeTa;
    }
  }
  r.stats.sfDbMaxIndex = kFlows - 1;
}

// Classifiers of flows in force are operational, without references; those
// of pending flows are adding under the flow's transaction.
void fillClassifiers(qos::QosIntDbRegion& r) {
  for (uint32_t j = 0; j < kClassifiers; ++j) {
    qos::ClsfRow& c = r.clsf[j];
    qos::SfRow& f = r.sf[flowOfClsf(j)];
    c = {};
    c.clsfId = clsfIdOf(j);
    c.sfId = f.sfId;
    c.ref = clsfRefOf(j);
    if (f.state == QOS_SF_OPERATIONAL) {
      c.status = QOS_CLSF_OPERATIONAL;
      c.taIndex = -1;
    } else {
      c.status = QOS_CLSF_ADDING;
      c.sfRef = f.ref;
      c.taIndex = f.taIndex;
    }
    f.clsfCounter++;
  }
  r.stats.clsfDbMaxIndex = kClassifiers - 1;
}

void fillClusters(qos::QosIntDbRegion& r) {
  for (uint32_t k = 0; k < QOS_SID_CLUSTER_ROWS; ++k) {
    qos::SidClusterRow& c = r.sidClusters[k];
    qos::SfRow& f = r.sf[flowOfCluster(k)];
    c = {};
    c.status = 1;
    c.sfId = f.sfId;
    c.clusterId = clusterIdOf(k);
    for (uint32_t p = 0; p < QOS_CHANNELS_PER_CLUSTER; ++p) {
      c.channels[p].ucid = static_cast<uint8_t>(p + 1);
      c.channels[p].sid = static_cast<uint16_t>(1000 + 4 * k + p);
    }
    f.sidClusterCounter++;
  }
  r.stats.clusterDbMaxIndex = QOS_SID_CLUSTER_ROWS - 1;
  r.stats.clusterMaxNum = QOS_SID_CLUSTER_ROWS;
  for (uint32_t s = 0; s < QOS_SWITCHOVER_ROWS; ++s) {
    r.switchover[s] = {1, sfIdOf(2 * s), 3000, 6000, 100, 4, 0};
  }
}

void fillActive(qos::QosIntDbRegion& r) {
  (void)qos_intDb_FillActiveUsSfTable();
  for (uint32_t i = 0; i < QOS_ACTIVE_PHS_ROWS; ++i) {
    r.phsUs[i] = {1, sfIdOf(2 * i), i + 1, static_cast<uint8_t>(i + 1), {}, 0};
    r.phsDs[i] = {1, sfIdOf(2 * i + 1), i + 1, static_cast<uint8_t>(i + 1), {}, 0};
  }
}

void makeRoom(qos::QosIntDbRegion& r) {
  qos_intDb_ResetTaDbRow(kOutcomeTa);
  qos_intDb_SfDb_RowReset(kOutcomeUsFlow);
  qos_intDb_SfDb_RowReset(kOutcomeDsFlow);
  for (uint32_t j = kOutcomeFirstClsf; j < kClassifiers; ++j) freeClsf(r.clsf[j]);
  const uint32_t lastCluster = QOS_SID_CLUSTER_ROWS - 1;
  r.sf[flowOfCluster(lastCluster)].sidClusterCounter--;
  r.sidClusters[lastCluster] = {};
  r.switchover[QOS_SWITCHOVER_ROWS - 1] = {};
  (void)qos_intDb_DeleteActiveUsSfEntry(r.activeSf[QOS_ACTIVE_SF_ROWS - 1].sfId);
  r.phsUs[QOS_ACTIVE_PHS_ROWS - 1] = {};
  r.phsDs[QOS_ACTIVE_PHS_ROWS - 1] = {};
}

}  // namespace

const char* tablesName(Tables t) { return t == Tables::kEmpty ? "empty" : "full"; }

qos::QosIntDbRegion& region() {
  static qos::QosIntDbRegion* base = attach();
  return *base;
}

uint64_t logCount() { return logs; }

void useTables(Tables t) {
  qos::QosIntDbRegion& r = region();
  qos_IntDb_Reset();
  qos_host_docsis_set_upstream_mode(0, 0);
  if (t == Tables::kEmpty) return;
  fillTransactions(r);
  fillFlows(r);
  fillClassifiers(r);
  fillClusters(r);
  fillActive(r);
  if (t == Tables::kFullRoom) makeRoom(r);
}

Saved& Saved::range(const void* start, std::size_t length) {
  auto offset = static_cast<std::size_t>(static_cast<const uint8_t*>(start) -
                                         reinterpret_cast<const uint8_t*>(&region()));
  ranges_.push_back({offset, length});
  return *this;
}

Saved& Saved::flowFamily() {
  qos::QosIntDbRegion& r = region();
  return range(&r, offsetof(qos::QosIntDbRegion, msgErrors));
}

void Saved::take() {
  const auto* base = reinterpret_cast<const uint8_t*>(&region());
  bytes_.clear();
  for (const Range& g : ranges_) bytes_.insert(bytes_.end(), base + g.offset, base + g.offset + g.length);
}

void Saved::restore() const {
  auto* base = reinterpret_cast<uint8_t*>(&region());
  const uint8_t* from = bytes_.data();
  for (const Range& g : ranges_) {
    std::memcpy(base + g.offset, from, g.length);
    from += g.length;
  }
}

Saved rowsAnAddTouches() {
  qos::QosIntDbRegion& r = region();
  Saved s;
  s.row(r.stats);
  for (uint32_t i : {0u, 1u, kOutcomeUsFlow, kOutcomeDsFlow}) s.row(r.sf[i]);
  for (uint32_t j : {0u, 1u, kOutcomeFirstClsf, kOutcomeFirstClsf + 1}) s.row(r.clsf[j]);
  for (uint32_t k : {0u, QOS_SID_CLUSTER_ROWS - 1u}) s.row(r.sidClusters[k]);
  for (uint32_t a : {0u, QOS_ACTIVE_SF_ROWS - 1u}) s.row(r.activeSf[a]);
  for (uint32_t p : {0u, QOS_ACTIVE_PHS_ROWS - 1u}) s.row(r.phsUs[p]).row(r.phsDs[p]);
  s.take();
  return s;
}

}  // namespace qosbench
