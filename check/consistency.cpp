// SPDX-License-Identifier: MIT
// consistency.cpp - the registration consistency check.
//
// Once registration has put its flows, classifiers, PHS rules and SID
// clusters into the tables, the client asks whether the modem can carry
// them: nothing may name an object that never arrived, every admitted or
// active upstream flow needs a SID or a SID cluster, and the totals must
// stay within the modem's fixed limits (the active upstream flow table, for
// one, holds 32 flows). The check reads the tables and changes nothing; it
// logs the first problem and answers -1, so the client can correct the
// configuration and ask again.
//
// The totals are 16-bit counts, as the firmware keeps them: they wrap at
// 65536 and are compared with the limits as signed 16-bit numbers.
#include "frame/log.h"
#include "qosintdb.h"

using qos::local;
using qos::SfRow;

namespace {

constexpr int32_t kMaxServiceFlows = 64;
constexpr int32_t kMaxClassifiers = 160;
constexpr int32_t kMaxPhsRules = 96;
constexpr int32_t kMaxActiveUpstreamFlows = 32;

// What one pass over the flow rows gathers.
struct FlowTotals {
  uint16_t operational = 0;
  uint16_t classifiers = 0;
  uint16_t upstreamClassifiers = 0;  // on admitted or active upstream flows
  uint16_t phsRules = 0;
  uint16_t activeUpstream = 0;
  uint16_t sidClusters = 0;
  int32_t firstFault = -1;  // first row naming an unknown flow or lacking a SID
};

int16_t asSigned(uint16_t total) { return static_cast<int16_t>(total); }

bool admittedOrActiveUpstream(const SfRow& r) {
  return r.direction == QOS_DIR_UPSTREAM && (r.paramSetType & (QOS_PARAMSET_ADMITTED | QOS_PARAMSET_ACTIVE)) != 0;
}

bool activeUpstream(const SfRow& r) {
  return r.direction == QOS_DIR_UPSTREAM && (r.paramSetType & QOS_PARAMSET_ACTIVE) != 0;
}

bool faulty(const SfRow& r) {
  return r.state == QOS_SF_REFERENCED || (admittedOrActiveUpstream(r) && r.sid == 0 && r.sidClusterCounter == 0);
}

// Rows of every state count as their fields say; free rows hold zeros.
FlowTotals gatherFlowTotals() {
  FlowTotals t;
  auto flows = qos::sfTable();
  for (int32_t i = 0; i <= flows.last(); ++i) {
    const SfRow& r = flows[i];
    uint16_t clsf = static_cast<uint16_t>(r.clsfCounter);
    if (r.state == QOS_SF_OPERATIONAL) ++t.operational;
    if (t.firstFault < 0 && faulty(r)) t.firstFault = i;
    if (admittedOrActiveUpstream(r)) t.upstreamClassifiers = static_cast<uint16_t>(t.upstreamClassifiers + clsf);
    if (activeUpstream(r)) {
      ++t.activeUpstream;
      t.sidClusters = static_cast<uint16_t>(t.sidClusters + (r.sidClusterCounter == 0 ? 1 : r.sidClusterCounter));
    }
    t.phsRules = static_cast<uint16_t>(t.phsRules + r.phsCounter);
    t.classifiers = static_cast<uint16_t>(t.classifiers + clsf);
  }
  return t;
}

}  // namespace

extern "C" {

int32_t qos_intDb_CheckCorrectness(void) {
  QOS_REQUIRE_SF_DB(-1);
  const FlowTotals t = gatherFlowTotals();

  if (asSigned(t.operational) > kMaxServiceFlows) {
    QOS_LOG(QOS_LOG_ERROR, "CheckCorrectness: Number of Service Flows (%d) exceeds to the maximum",
            asSigned(t.operational));
    return -1;
  }

  auto classifiers = qos::clsfTable();
  int32_t placeholder =
      classifiers.findInRange([](const qos::ClsfRow& r) { return r.status == QOS_CLSF_PHS_PLACEHOLDER; });
  if (placeholder >= 0) {
    QOS_LOG(QOS_LOG_ERROR, "PHS refers to unknown Classifier (Ref %d, Id %d)",
            static_cast<int>(classifiers[placeholder].ref), static_cast<int>(classifiers[placeholder].clsfId));
    return -1;
  }

  if (t.firstFault >= 0) {
    const SfRow& r = local.sf[t.firstFault];
    if (r.state == QOS_SF_REFERENCED) {
      QOS_LOG(QOS_LOG_ERROR, "Classifier or PHS refer to unknown Service Flow: Ref=%d, SF DB index=%d",
              static_cast<int>(r.ref), t.firstFault);
    } else {
      QOS_LOG(QOS_LOG_ERROR, " Neither Sid, nor Sid Cluster is defined for Active SF  (SF Id =  %d)",
              static_cast<int>(r.sfId));
    }
    return -1;
  }

  // A warning only: the check goes on.
  if (asSigned(t.classifiers) > kMaxClassifiers) {
    QOS_LOG(QOS_LOG_ERROR, "Unsufficient space for %d classifiers (Max num is %d", asSigned(t.classifiers),
            kMaxClassifiers);
  }

  const int32_t clsfMaxNum = local.stats->clsfMaxNum;
  if (clsfMaxNum > 0 && asSigned(t.upstreamClassifiers) > clsfMaxNum) {
    QOS_LOG(QOS_LOG_ERROR, "Num of US classifiers on act or adm SFs - %d, is more then permitted limit %d",
            asSigned(t.upstreamClassifiers), clsfMaxNum);
    return -1;
  }

  if (asSigned(t.phsRules) > kMaxPhsRules) {
    QOS_LOG(QOS_LOG_ERROR, "Unsufficient space for %d PHSs (Max PHS num: %d", asSigned(t.phsRules), kMaxPhsRules);
    return -1;
  }

  if (asSigned(t.activeUpstream) > kMaxActiveUpstreamFlows) {
    QOS_LOG(QOS_LOG_ERROR, "Number of US active service flows %d is more then FW limitation - %d",
            asSigned(t.activeUpstream), kMaxActiveUpstreamFlows);
    return -1;
  }

  const int64_t clusterMaxNum = local.stats->clusterMaxNum;
  if (asSigned(t.sidClusters) > clusterMaxNum) {
    QOS_LOG(QOS_LOG_ERROR, "Number of SID Clusters %d is more then FW limitation - %d", asSigned(t.sidClusters),
            static_cast<int>(clusterMaxNum));
    return -1;
  }
  return 0;
}

}  // extern "C"
