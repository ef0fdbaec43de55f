// SPDX-License-Identifier: MIT
// check_test.cpp - the registration consistency check: every limit at its
// value and one above, the order of the checks, the 16-bit totals, and
// that the check writes nothing.
#include <algorithm>

#include "support/fixture.h"

namespace qostest {
namespace {

struct Flow {
  uint32_t state = QOS_SF_OPERATIONAL;
  uint8_t direction = QOS_DIR_DOWNSTREAM, paramSet = 0;
  uint16_t sid = 0;
  int8_t clusters = 0;
  uint32_t classifiers = 0, phsRules = 0, sfId = 0;
  uint16_t ref = 0;
};

// n flow rows from `first` on; the scanned range grows to cover them.
void flows(int first, int n, const Flow& f) {
  for (int row = first; row < first + n; ++row) {
    qos::SfRow& r = store().sf[row];
    r.state = f.state, r.sfId = f.sfId, r.ref = f.ref, r.direction = f.direction, r.sid = f.sid;
    r.paramSetType = f.paramSet, r.sidClusterCounter = f.clusters, r.clsfCounter = f.classifiers, r.phsCounter = f.phsRules;
    store().stats.sfDbMaxIndex = std::max(store().stats.sfDbMaxIndex, row);
  }
}
void clsf(int row, uint32_t status, uint8_t ref, uint16_t clsfId) {
  store().clsf[row].status = status, store().clsf[row].ref = ref, store().clsf[row].clsfId = clsfId;
  store().stats.clsfDbMaxIndex = std::max(store().stats.clsfDbMaxIndex, row);
}
void limit(int32_t clsfMaxNum) { store().stats.clsfMaxNum = clsfMaxNum; }
void sfRange(int32_t last) { store().stats.sfDbMaxIndex = last; }
void clusterLimit(uint32_t n) { store().stats.clusterMaxNum = n; }

Flow ds(uint32_t classifiers = 0, uint32_t phsRules = 0) {
  Flow f;
  f.classifiers = classifiers, f.phsRules = phsRules;
  return f;
}
Flow us(uint8_t paramSet, uint16_t sid, int8_t clusters = 0, uint32_t classifiers = 0) {
  Flow f;
  f.direction = QOS_DIR_UPSTREAM, f.paramSet = paramSet, f.sid = sid, f.clusters = clusters, f.classifiers = classifiers;
  return f;
}
Flow state(Flow f, uint32_t state, uint32_t sfId = 0, uint16_t ref = 0) {
  f.state = state, f.sfId = sfId, f.ref = ref;
  return f;
}
constexpr uint8_t kAct = QOS_PARAMSET_ACTIVE, kAdm = QOS_PARAMSET_ADMITTED;
const char* const kTooManyFlows = "CheckCorrectness: Number of Service Flows (65) exceeds to the maximum";
const char* const kTooManyClusters = "Number of SID Clusters 39 is more then FW limitation - 38";
const char* const kClsfSpace161 = "Unsufficient space for 161 classifiers (Max num is 160";
const char* const kTooManyPhs97 = "Unsufficient space for 97 PHSs (Max PHS num: 96";

using Check = StoreTest;

TEST_F(Check, LimitsAndTheirOrder) {
  struct Case {
    const char* name;
    std::function<void()> setup;
    int32_t result;
    std::vector<std::string> texts;
  } cases[] = {
      {"empty store", [] {}, 0, {}},
      // Service flows: operational rows of the scanned range only.
      {"64 operational flows", [] { flows(0, 64, ds()); }, 0, {}},
      {"65 operational flows", [] { flows(0, 65, ds()); }, -1, {kTooManyFlows}},
      {"65 flows, one adding", [] { flows(0, 65, ds()), flows(30, 1, state(ds(), QOS_SF_ADDING)); }, 0, {}},
      {"65th flow beyond the range", [] { flows(0, 65, ds()), sfRange(63); }, 0, {}},
      // Unknown classifiers and flows, in the order they are looked for.
      {"two classifier placeholders", [] { clsf(2, 1, 1, 1), clsf(3, 5, 7, 300), clsf(5, 5, 8, 9); }, -1,
       {"PHS refers to unknown Classifier (Ref 7, Id 300)"}},
      {"placeholder beyond the range", [] { clsf(5, 5, 8, 9), store().stats.clsfDbMaxIndex = 4; }, 0, {}},
      {"flow count first", [] { flows(0, 65, ds()), clsf(0, 5, 1, 2); }, -1, {kTooManyFlows}},
      {"placeholder before unknown flow", [] { flows(0, 1, state(ds(), 7)), clsf(4, 5, 1, 2); }, -1,
       {"PHS refers to unknown Classifier (Ref 1, Id 2)"}},
      {"downstream flow referenced only", [] { flows(3, 1, state(ds(), 7, 0, 12)); }, -1,
       {"Classifier or PHS refer to unknown Service Flow: Ref=12, SF DB index=3"}},
      {"first faulty row wins", [] { flows(2, 1, state(us(kAdm, 0), 2, 0x55)), flows(4, 1, state(ds(), 7)); }, -1,
       {" Neither Sid, nor Sid Cluster is defined for Active SF  (SF Id =  85)"}},
      {"provisioned only, no SID", [] { flows(0, 1, us(QOS_PARAMSET_PROVISIONED, 0)); }, 0, {}},
      {"cluster instead of SID", [] { flows(0, 1, us(kAct, 0, 2)); }, 0, {}},
      // SID clusters: a SID alone counts one cluster; admitted flows none.
      {"38 clusters", [] { flows(0, 12, us(kAct, 0, 3)), flows(12, 2, us(kAct, 9)); }, 0, {}},
      {"39 clusters", [] { flows(0, 12, us(kAct, 0, 3)), flows(12, 3, us(kAct, 9)); }, -1, {kTooManyClusters}},
      {"admitted flows", [] { flows(0, 13, us(kAct, 0, 3)), flows(13, 5, us(kAdm, 9)); }, -1, {kTooManyClusters}},
      {"signed cluster counter", [] { flows(0, 13, us(kAct, 0, 3)), flows(13, 1, us(kAct, 9, -1)); }, 0, {}},
      {"cluster limit as set", [] { clusterLimit(2), flows(0, 3, us(kAct, 9)); }, -1,
       {"Number of SID Clusters 3 is more then FW limitation - 2"}},
      // Classifier space: a warning only; totals wrap at 65536.
      {"160 classifiers", [] { flows(0, 2, ds(80)); }, 0, {}},
      {"161 classifiers", [] { flows(0, 2, ds(80)), flows(2, 1, ds(1)); }, 0, {kClsfSpace161}},
      {"classifier total wraps", [] { flows(0, 1, ds(65536 + 161)); }, 0, {kClsfSpace161}},
      {"warning, then PHS failure", [] { flows(0, 1, ds(161, 97)); }, -1, {kClsfSpace161, kTooManyPhs97}},
      // Upstream classifiers on admitted or active flows.
      {"10 US classifiers, limit 10", [] { limit(10), flows(0, 2, us(kAdm, 1, 0, 5)); }, 0, {}},
      {"11 US classifiers, limit 10", [] { limit(10), flows(0, 1, us(kAdm, 1, 0, 5)), flows(1, 1, us(kAct, 1, 0, 6)); },
       -1, {"Num of US classifiers on act or adm SFs - 11, is more then permitted limit 10"}},
      {"limit 0 is off", [] { limit(0), flows(0, 1, us(kAct, 1, 0, 11)); }, 0, {}},
      {"limit -1 is off", [] { limit(-1), flows(0, 1, us(kAct, 1, 0, 11)); }, 0, {}},
      {"provisioned and downstream not limited",
       [] { limit(10), flows(0, 1, us(QOS_PARAMSET_PROVISIONED, 0, 0, 11)), flows(1, 1, ds(11)); }, 0, {}},
      {"default limit 160", [] { flows(0, 1, us(kAct, 1, 0, 161)); }, -1,
       {kClsfSpace161, "Num of US classifiers on act or adm SFs - 161, is more then permitted limit 160"}},
      {"US classifiers before PHS", [] { limit(10), flows(0, 1, us(kAct, 1, 0, 11)), flows(1, 1, ds(0, 97)); }, -1,
       {"Num of US classifiers on act or adm SFs - 11, is more then permitted limit 10"}},
      // PHS rules: 16-bit totals compared as signed numbers.
      {"96 PHS rules", [] { flows(0, 2, ds(0, 48)); }, 0, {}},
      {"97 PHS rules", [] { flows(0, 1, ds(0, 96)), flows(1, 1, ds(0, 1)); }, -1, {kTooManyPhs97}},
      {"32768 PHS rules read negative", [] { flows(0, 1, ds(0, 0x8000)); }, 0, {}},
      {"PHS total wraps", [] { flows(0, 1, ds(0, 65536 + 97)); }, -1, {kTooManyPhs97}},
      // Active upstream flows, in any state; checked before the clusters.
      {"32 active upstream flows", [] { flows(0, 32, us(kAct, 1)); }, 0, {}},
      {"33, clusters over too", [] { clusterLimit(1), flows(0, 33, state(us(kAct, 1), 6)); }, -1,
       {"Number of US active service flows 33 is more then FW limitation - 32"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_EQ(qos_IntDb_Reset(), 0);
    c.setup();
    logs.clear();
    auto before = snapshot();
    EXPECT_EQ(qos_intDb_CheckCorrectness(), c.result);
    EXPECT_EQ(logs.texts(), c.texts);
    for (const auto& r : logs.records())
      EXPECT_EQ(std::make_tuple(r.level, r.module, r.function), std::make_tuple(1, 24, "qos_intDb_CheckCorrectness"));
    EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});
  }
}

}  // namespace
}  // namespace qostest
