// SPDX-License-Identifier: MIT
// lookups.cpp - every lookup family against its floor, on empty and full tables.
//
// A lookup's floor is the loop a caller would write over the mapped rows:
// the same rows, the same match, the same range (up to the table's maximum
// index where the lookup stops there), no call, no checks. On full tables
// the key sits in the last row the lookup reaches (transaction 9's rows are
// the last ones), so both scan everything; on empty tables both miss.
#include <array>
#include <functional>

#include "peer.h"
#include "qosintdb.h"
#include "store.h"
#include "timing.h"

namespace qosbench {
namespace {

using qos::ClsfRow;
using qos::SfRow;

constexpr uint32_t kLastFlow = kOutcomeDsFlow;
constexpr uint32_t kLastClsf = kClassifiers - 1;
constexpr uint32_t kLastCluster = QOS_SID_CLUSTER_ROWS - 1;
const uint32_t kClusterFlowId = sfIdOf(flowOfCluster(kLastCluster));
const uint8_t kClusterId = clusterIdOf(kLastCluster);
const uint32_t kLastActiveId = sfIdOf(2 * (QOS_ACTIVE_SF_ROWS - 1));
constexpr uint16_t kLastTaId = 100 + kOutcomeTa;

// The first row in [from, last] that satisfies pred, or -1.
template <typename Row, std::size_t N, typename Pred>
int32_t scan(const Row (&rows)[N], int32_t from, int32_t last, Pred pred) {
  if (last > static_cast<int32_t>(N) - 1) last = static_cast<int32_t>(N) - 1;
  for (int32_t i = from < 0 ? 0 : from; i <= last; ++i) {
    if (pred(rows[i])) return i;
  }
  return -1;
}

// Calls next(prev) from -1 until it fails; the number of calls.
template <typename Next>
int32_t walk(Next next) {
  int32_t calls = 1;
  for (int32_t prev = -1; (prev = next(prev)) >= 0;) ++calls;
  return calls;
}

int32_t sfLast() { return region().stats.sfDbMaxIndex; }
int32_t clsfLast() { return region().stats.clsfDbMaxIndex; }
bool isFlow(const SfRow& r) { return r.state != QOS_SF_EMPTY && r.state != QOS_SF_REFERENCED; }
bool isClassifier(const ClsfRow& r) { return r.status != QOS_CLSF_EMPTY && r.status != QOS_CLSF_PHS_PLACEHOLDER; }

struct Lookup {
  const char* name;
  std::function<int32_t()> lib;
  std::function<int32_t()> floor;
};

// Keys pass through this, so that no call is folded at compile time.
template <typename T>
T key(T v) {
  benchmark::DoNotOptimize(v);
  return v;
}

std::vector<Lookup> lookups() {
  auto& r = region();
  return {
      // ---- service flows ----
      {"FindSfById",
       [] {
         uint32_t i;
         return qos_intDb_FindSfById(key(sfIdOf(kLastFlow)), &i);
       },
       [&r] {
         uint32_t id = key(sfIdOf(kLastFlow));
         return scan(r.sf, 0, sfLast(), [id](const SfRow& f) { return isFlow(f) && f.sfId == id; });
       }},
      {"FindSfByRef",
       [] {
         uint32_t i;
         return qos_intDb_FindSfByRef(key(refOf(kLastFlow)), &i);
       },
       [&r] {
         uint32_t ref = key(refOf(kLastFlow));
         return scan(r.sf, 0, sfLast(), [ref](const SfRow& f) { return isFlow(f) && f.ref == ref; });
       }},
      {"FindSfByTaAndRef",
       [] {
         uint32_t i;
         return qos_intDb_FindSfByTaAndRef(key(refOf(kLastFlow)), key(kOutcomeTa), &i);
       },
       [&r] {
         uint32_t ref = key(refOf(kLastFlow));
         int32_t ta = key(kOutcomeTa);
         return scan(r.sf, 0, sfLast(), [=](const SfRow& f) { return f.ref == ref && f.taIndex == ta; });
       }},
      {"FindSFByTaIndex",
       [] {
         uint32_t i;
         return qos_intDb_FindSFByTaIndex(key(kOutcomeTa), &i);
       },
       [&r] {
         int32_t ta = key(kOutcomeTa);
         return scan(r.sf, 0, kFlows - 1, [ta](const SfRow& f) { return f.used() && f.taIndex == ta; });
       }},
      {"FindSFByTaIndexAndDirection",
       [] {
         uint32_t i;
         return qos_intDb_FindSFByTaIndexAndDirection(key(kOutcomeTa), key(uint32_t{QOS_DIR_DOWNSTREAM}), &i);
       },
       [&r] {
         int32_t ta = key(kOutcomeTa);
         uint32_t dir = key(uint32_t{QOS_DIR_DOWNSTREAM});
         return scan(r.sf, 0, kFlows - 1,
                     [=](const SfRow& f) { return f.used() && f.taIndex == ta && f.direction == dir; });
       }},
      {"NextSFIndexOfTa.walk",
       [] {
         int32_t ta = key(kOutcomeTa);
         return walk([ta](int32_t prev) {
           uint32_t i;
           return qos_intDb_NextSFIndexOfTa(ta, prev, &i) == 0 ? static_cast<int32_t>(i) : -1;
         });
       },
       [&r] {
         int32_t ta = key(kOutcomeTa);
         return walk([&r, ta](int32_t prev) {
           return scan(r.sf, prev + 1, kFlows - 1, [ta](const SfRow& f) { return isFlow(f) && f.taIndex == ta; });
         });
       }},
      {"GetSfTaIndexAndPairSf",
       [] {
         uint32_t ta, pair;
         return qos_intDb_GetSfTaIndexAndPairSf(key(kOutcomeUsFlow), &ta, &pair);
       },
       [&r] {
         uint32_t self = key(kOutcomeUsFlow);
         int32_t ta = r.sf[self].taIndex;
         if (!r.sf[self].used() || ta < 0) return -1;
         return scan(r.sf, 0, sfLast(),
                     [&](const SfRow& f) { return &f != &r.sf[self] && f.used() && f.taIndex == ta; });
       }},
      // ---- classifiers ----
      {"FindClsfByRef",
       [] {
         uint32_t i;
         return qos_intDb_FindClsfByRef(key(uint32_t{clsfRefOf(kLastClsf)}), &i);
       },
       [&r] {
         uint32_t ref = key(uint32_t{clsfRefOf(kLastClsf)});
         return scan(r.clsf, 0, clsfLast(), [ref](const ClsfRow& c) { return isClassifier(c) && c.ref == ref; });
       }},
      {"FindClsfById",
       [] {
         uint32_t i;
         return qos_intDb_FindClsfById(key(uint32_t{clsfIdOf(kLastClsf)}), key(sfIdOf(kLastFlow)), &i);
       },
       [&r] {
         uint32_t id = key(uint32_t{clsfIdOf(kLastClsf)});
         uint32_t sf = key(sfIdOf(kLastFlow));
         return scan(r.clsf, 0, clsfLast(),
                     [=](const ClsfRow& c) { return c.used() && c.clsfId == id && c.sfId == sf; });
       }},
      {"FindClsfByTaAndRef",
       [] {
         uint32_t i;
         return qos_intDb_FindClsfByTaAndRef(key(uint32_t{clsfRefOf(kLastClsf)}), key(uint32_t{kOutcomeTa}), &i);
       },
       [&r] {
         uint32_t ref = key(uint32_t{clsfRefOf(kLastClsf)});
         int32_t ta = key(kOutcomeTa);
         return scan(r.clsf, 0, clsfLast(),
                     [=](const ClsfRow& c) { return c.used() && c.ref == ref && c.taIndex == ta; });
       }},
      {"GetNextClsfOfSf.walk",
       [] {
         uint32_t sf = key(sfIdOf(kLastFlow));
         return walk([sf](int32_t prev) {
           uint16_t id;
           uint32_t i;
           return qos_intDb_GetNextClsfOfSf(sf, prev, &id, &i) == 0 ? static_cast<int32_t>(i) : -1;
         });
       },
       [&r] {
         uint32_t sf = key(sfIdOf(kLastFlow));
         return walk([&r, sf](int32_t prev) {
           return scan(r.clsf, prev + 1, clsfLast(), [sf](const ClsfRow& c) { return c.used() && c.sfId == sf; });
         });
       }},
      // ---- SID clusters and switchover criteria ----
      {"GetSfSidCluster",
       [] {
         SidChannelMapping out[4];
         return qos_intDb_GetSfSidCluster(key(kClusterFlowId), key(kClusterId), out);
       },
       [&r] {
         uint32_t sf = key(kClusterFlowId);
         uint8_t id = key(kClusterId);
         SidChannelMapping out[4];
         int32_t k = scan(r.sidClusters, 0, kLastCluster,
                          [=](const qos::SidClusterRow& c) { return c.sfId == sf && c.clusterId == id; });
         if (k < 0) return -1;
         for (int p = 0; p < 4; ++p) {
           out[p].ucid = r.sidClusters[k].channels[p].ucid;
           out[p].sid = r.sidClusters[k].channels[p].sid;
         }
         benchmark::DoNotOptimize(out);
         return k;
       }},
      {"GetNextSfSidCluster.walk",
       [] {
         uint32_t sf = key(kClusterFlowId);
         return walk([sf](int32_t prev) {
           uint8_t id;
           return qos_intDb_GetNextSfSidCluster(sf, &prev, &id, nullptr) == 0 ? prev : -1;
         });
       },
       [&r] {
         uint32_t sf = key(kClusterFlowId);
         return walk([&r, sf](int32_t prev) {
           return scan(r.sidClusters, prev + 1, kLastCluster, [sf](const qos::SidClusterRow& c) { return c.sfId == sf; });
         });
       }},
      {"GetSidClusterTableRow",
       [] {
         uint32_t sid;
         return qos_intDb_GetSidClusterTableRow(key(kClusterFlowId), key(kClusterId), key(uint8_t{4}), &sid);
       },
       [&r] {
         uint32_t sf = key(kClusterFlowId);
         uint8_t id = key(kClusterId);
         uint8_t ucid = key(uint8_t{4});
         for (const qos::SidClusterRow& c : r.sidClusters) {
           if (c.sfId != sf || c.clusterId != id) continue;
           for (const SidChannelMapping& m : c.channels) {
             if (m.ucid == ucid) return static_cast<int32_t>(m.sid);
           }
         }
         return -1;
       }},
      {"GetSfSidClusterParams",
       [] {
         uint32_t a, b;
         uint16_t c;
         uint8_t d;
         return qos_intDb_GetSfSidClusterParams(key(sfIdOf(kOutcomeUsFlow)), &a, &b, &c, &d);
       },
       [&r] {
         uint32_t sf = key(sfIdOf(kOutcomeUsFlow));
         return scan(r.switchover, 0, QOS_SWITCHOVER_ROWS - 1, [sf](const qos::SwitchoverRow& s) { return s.sfId == sf; });
       }},
      // ---- active tables ----
      {"GetActiveSfIndexBySfid",
       [] {
         uint32_t i;
         return qos_intDb_GetActiveSfIndexBySfid(key(kLastActiveId), &i);
       },
       [&r] {
         uint32_t sf = key(kLastActiveId);
         return scan(r.activeSf, 0, QOS_ACTIVE_SF_ROWS - 1, [sf](const qos::ActiveSfRow& a) { return a.used() && a.sfId == sf; });
       }},
      {"GetActivePhsIndexByClsf",
       [] {
         uint32_t i;
         return qos_intDb_GetActivePhsIndexByClsf(key(kLastActiveId), key(uint32_t{QOS_ACTIVE_PHS_ROWS}),
                                                  key(uint8_t{QOS_DIR_UPSTREAM}), &i);
       },
       [&r] {
         uint32_t sf = key(kLastActiveId);
         uint32_t clsf = key(uint32_t{QOS_ACTIVE_PHS_ROWS});
         return scan(r.phsUs, 0, QOS_ACTIVE_PHS_ROWS - 1,
                     [=](const qos::ActivePhsRow& p) { return p.status == 1 && p.sfId == sf && p.clsfId == clsf; });
       }},
      // ---- transactions ----
      {"FindTaIndexByTaId",
       [] {
         uint32_t i;
         return qos_TaDb_FindTaIndexByTaId(key(uint32_t{kLastTaId}), &i);
       },
       [&r] {
         uint32_t id = key(uint32_t{kLastTaId});
         return scan(r.ta, 0, QOS_TA_ROWS - 1, [id](const qos::TaRow& t) { return t.used() && t.taId == id; });
       }},
  };
}

}  // namespace

void registerLookups() {
  for (const Lookup& l : lookups()) {
    for (Tables t : {Tables::kEmpty, Tables::kFull}) {
      std::string suffix = std::string(l.name) + "/" + tablesName(t);
      reg("lib/" + suffix, [t, fn = l.lib](benchmark::State& s) {
        useTables(t);
        eachIteration(s, fn);
      });
      reg("floor/" + suffix, [t, fn = l.floor](benchmark::State& s) {
        useTables(t);
        eachIteration(s, fn);
      });
    }
  }
  registerPeerLookups();
}

}  // namespace qosbench
