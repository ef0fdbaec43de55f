// substitute_test.cpp - a flow's new SFID reaches its flow row, every
// classifier and active row that carries the old SFID, and the active PHS
// table of the flow's direction only; nothing else changes.
#include "support/fixture.h"

namespace qostest {
namespace {

constexpr std::size_t kClsf = 10240, kActive = 21460, kPhsUs = 22228, kPhsDs = 22908;

// A row's status word and SFID word.
void row(std::size_t status, std::size_t sfId, uint32_t statusValue, uint32_t sfIdValue) {
  put<uint32_t>(status, statusValue), put<uint32_t>(sfId, sfIdValue);
}
void setSfId(std::vector<uint8_t>& bytes, std::size_t offset, uint32_t sfId) { std::memcpy(&bytes[offset], &sfId, 4); }

using Substitute = StoreTest;

TEST_F(Substitute, ReachesEveryRowOfTheSfidInTheFlowsDirection) {
  for (uint8_t flowDirection : {2, 1, 0}) {  // no known direction counts as downstream
    SCOPED_TRACE(static_cast<int>(flowDirection));
    uint8_t dir = flowDirection == QOS_DIR_UPSTREAM ? QOS_DIR_UPSTREAM : QOS_DIR_DOWNSTREAM;
    uint8_t other = QOS_DIR_UPSTREAM + QOS_DIR_DOWNSTREAM - dir;
    std::size_t own = dir == QOS_DIR_UPSTREAM ? kPhsUs : kPhsDs;
    ASSERT_EQ(qos_IntDb_Reset(), 0);
    put<uint32_t>(80 * 7 + 4, 0x10);  // a free flow row keeps its stale SFID
    ASSERT_EQ(qos_intDb_AddSf(0x10, 1, flowDirection), 0);
    ASSERT_EQ(qos_intDb_AddSf(0x11, 2, other), 0);
    // Classifier rows 0, 1 and 319 (beyond the classifier range) and active
    // rows 2 and 40 (reserved) are renamed; free rows and other SFIDs not.
    uint32_t classifiers[][2] = {{1, 0x10}, {5, 0x10}, {0, 0x10}, {1, 0x11}};
    for (int i = 0; i < 4; ++i) row(kClsf + 20 * i, kClsf + 20 * i + 12, classifiers[i][0], classifiers[i][1]);
    row(kClsf + 20 * 319, kClsf + 20 * 319 + 12, QOS_CLSF_ADDING, 0x10);
    for (int i : {2, 3, 40}) row(kActive + 12 * i, kActive + 12 * i + 4, i != 3, 0x10);
    ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 1, 1, dir), 0);
    ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x11, 1, 1, dir), 0);
    ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 2, 2, dir), 0);
    ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 1, 1, other), 0);
    ASSERT_EQ(qos_intDb_SetActivePhsSfid(20, dir, 0x10), 0);  // free row
    row(own + 20 * 32, own + 20 * 32 + 4, 1, 0x10);            // reserved row
    logs.clear();

    auto expected = snapshot();
    ASSERT_EQ(qos_intDb_SubstituteSfId(0x10, 0x20), 0);
    setSfId(expected, 0 + 4, 0x20);
    for (int i : {0, 1, 319}) setSfId(expected, kClsf + 20 * i + 12, 0x20);
    for (int i : {2, 40}) setSfId(expected, kActive + 12 * i + 4, 0x20);
    for (int i : {0, 2}) setSfId(expected, own + 20 * i + 4, 0x20);
    EXPECT_EQ(changedOffsets(expected, snapshot()), std::vector<std::size_t>{});
    EXPECT_TRUE(logs.records().empty());
  }
}

TEST_F(Substitute, RefusalsChangeNothingAndTheFirstUsedFlowRowOfTheWholeTableIsRenamed) {
  ASSERT_EQ(qos_intDb_AddSf(0x10, 1, QOS_DIR_UPSTREAM), 0);
  row(80 * 5, 80 * 5 + 4, 0, 0x40);  // free flow row
  row(kClsf, kClsf + 12, 1, 0x40);
  row(80 * 100, 80 * 100 + 4, QOS_SF_REFERENCED, 0x30);  // beyond the scanned range
  row(80 * 101, 80 * 101 + 4, QOS_SF_OPERATIONAL, 0x30);
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
  setSfId(expected, 80 * 100 + 4, 0x31);
  EXPECT_EQ(changedOffsets(expected, snapshot()), std::vector<std::size_t>{});
}

}  // namespace
}  // namespace qostest
