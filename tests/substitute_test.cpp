// SPDX-License-Identifier: MIT
// substitute_test.cpp - a flow's new SFID reaches its flow row, every
// classifier and active row that carries the old SFID, and the active PHS
// table of the flow's direction only; nothing else changes.
#include "support/fixture.h"

namespace qostest {
namespace {

// A row's status (a flow's state) and SFID.
template <typename Row>
void row(Row& r, uint32_t status, uint32_t sfId) { r.status = status, r.sfId = sfId; }
void row(qos::SfRow& r, uint32_t state, uint32_t sfId) { r.state = state, r.sfId = sfId; }
// The region a snapshot holds, as rows.
qos::QosIntDbRegion& rows(std::vector<uint8_t>& bytes) { return *reinterpret_cast<qos::QosIntDbRegion*>(bytes.data()); }

using Substitute = StoreTest;

TEST_F(Substitute, ReachesEveryRowOfTheSfidInTheFlowsDirection) {
  for (uint8_t flowDirection : {2, 1, 0}) {  // no known direction counts as downstream
    SCOPED_TRACE(static_cast<int>(flowDirection));
    uint8_t dir = flowDirection == QOS_DIR_UPSTREAM ? QOS_DIR_UPSTREAM : QOS_DIR_DOWNSTREAM;
    uint8_t other = QOS_DIR_UPSTREAM + QOS_DIR_DOWNSTREAM - dir;
    auto own = [dir](qos::QosIntDbRegion& db) -> qos::ActivePhsRow* { return dir == QOS_DIR_UPSTREAM ? db.phsUs : db.phsDs; };
    ASSERT_EQ(qos_IntDb_Reset(), 0);
    store().sf[7].sfId = 0x10;  // a free flow row keeps its stale SFID
    ASSERT_EQ(qos_intDb_AddSf(0x10, 1, flowDirection), 0);
    ASSERT_EQ(qos_intDb_AddSf(0x11, 2, other), 0);
    // Classifier rows 0, 1 and 319 (beyond the classifier range) and active
    // rows 2 and 40 (reserved) are renamed; free rows and other SFIDs not.
    uint32_t classifiers[][2] = {{1, 0x10}, {5, 0x10}, {0, 0x10}, {1, 0x11}};
    for (int i = 0; i < 4; ++i) row(store().clsf[i], classifiers[i][0], classifiers[i][1]);
    row(store().clsf[319], QOS_CLSF_ADDING, 0x10);
    for (int i : {2, 3, 40}) row(store().activeSf[i], i != 3, 0x10);
    ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 1, 1, dir), 0);
    ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x11, 1, 1, dir), 0);
    ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 2, 2, dir), 0);
    ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 1, 1, other), 0);
    ASSERT_EQ(qos_intDb_SetActivePhsSfid(20, dir, 0x10), 0);  // free row
    row(own(store())[32], 1, 0x10);                          // reserved row
    logs.clear();

    auto expected = snapshot();
    ASSERT_EQ(qos_intDb_SubstituteSfId(0x10, 0x20), 0);
    qos::QosIntDbRegion& want = rows(expected);
    want.sf[0].sfId = 0x20;
    for (int i : {0, 1, 319}) want.clsf[i].sfId = 0x20;
    for (int i : {2, 40}) want.activeSf[i].sfId = 0x20;
    for (int i : {0, 2}) own(want)[i].sfId = 0x20;
    EXPECT_EQ(changedOffsets(expected, snapshot()), std::vector<std::size_t>{});
    EXPECT_TRUE(logs.records().empty());
  }
}

TEST_F(Substitute, RefusalsChangeNothingAndTheFirstUsedFlowRowOfTheWholeTableIsRenamed) {
  ASSERT_EQ(qos_intDb_AddSf(0x10, 1, QOS_DIR_UPSTREAM), 0);
  row(store().sf[5], 0, 0x40);  // free flow row
  row(store().clsf[0], 1, 0x40);
  row(store().sf[100], QOS_SF_REFERENCED, 0x30);  // beyond the scanned range
  row(store().sf[101], QOS_SF_OPERATIONAL, 0x30);
  auto expected = snapshot();
  EXPECT_EQ(qos_intDb_SubstituteSfId(0x10, 0), -1);
  EXPECT_EQ(qos_intDb_SubstituteSfId(0, 0x20), -1);
  EXPECT_EQ(qos_intDb_SubstituteSfId(0x99, 0x20), -1);
  EXPECT_EQ(qos_intDb_SubstituteSfId(0x40, 0x20), -1);
  EXPECT_EQ(logs.texts(), (std::vector<std::string>{
                              "Incorrect parameter for SFID substitution, old SFID=0x10, new SFID=0x0 ",
                              "Incorrect parameter for SFID substitution, old SFID=0x0, new SFID=0x20 ",
                              "No SF with SFID=0x99 was found; SFID cannot be substituted ",
                              "No SF with SFID=0x40 was found; SFID cannot be substituted "}));
  for (const auto& r : logs.records()) EXPECT_EQ(r.level, 1);
  ASSERT_EQ(qos_intDb_SubstituteSfId(0x30, 0x31), 0);
  rows(expected).sf[100].sfId = 0x31;
  EXPECT_EQ(changedOffsets(expected, snapshot()), std::vector<std::size_t>{});
}

}  // namespace
}  // namespace qostest
