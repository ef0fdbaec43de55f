// SPDX-License-Identifier: MIT
// frame_test.cpp - the region after creation, attachment from another
// process, reset and a second creation. The lock itself: lock_test.
#include <sys/sem.h>

#include <tuple>

#include "support/fixture.h"

namespace qostest {
namespace {

using Frame = StoreTest;

// Every byte of a freshly created region is zero except the reset values.
TEST_F(Frame, InitLeavesOnlyTheResetValues) {
  std::vector<uint8_t> expected(QOS_REGION_SIZE, 0);
  auto& want = *reinterpret_cast<qos::QosIntDbRegion*>(expected.data());
  for (auto& r : want.sf) r.taIndex = r.heldTaIndex = -1;
  for (auto& r : want.clsf) r.taIndex = -1;
  want.stats.clsfMaxNum = 160, want.stats.clusterMaxNum = 38;
  for (auto& r : want.activeSf) r.releaseOrder = 1;
  for (int i = 0; i < 10; ++i) want.msgErrors[i].errorCode = 253;
  want.msgErrors[10].confCode = 10;
  for (auto& r : want.ta) r.type = QOS_TA_DSD, r.reserved28 = r.reserved32 = -1;
  want.taControl.retryLimit = 3;
  std::vector<uint8_t> actual = snapshot();
  EXPECT_EQ(changedOffsets(expected, actual), std::vector<std::size_t>{});
  EXPECT_TRUE(logs.records().empty());
}

// A second process attaches and sees the rows this process wrote.
TEST_F(Frame, AnotherProcessAttachesAndSeesTheRows) {
  uint32_t a = 0, b = 0;
  ASSERT_EQ(qos_TaDb_AddNewTa(0x321, QOS_TA_DSC, 1, 0, nullptr, &a), 0);
  ASSERT_EQ(qos_TaDb_AddNewTa(0, QOS_TA_DSD, 0, 0, nullptr, &b), 0);
  auto before = snapshot();
  PeerResult peer = runPeer({"show"});
  EXPECT_EQ(peer.status, 0);
  EXPECT_EQ(peer.out, "row 0 id 801 type 1\nrow 1 id 1 type 2\n");
  // Attaching changes nothing but record 10's confirmation code, already 10.
  EXPECT_TRUE(changedOffsets(before, snapshot()).empty());
}

// A reset empties the tables but keeps the generated IDs and the bonding
// change store; a second qos_IntDb_Init starts from zero.
TEST_F(Frame, ResetKeepsIdsAndTheBondingStoreInitAgainDoesNot) {
  uint32_t row = 0;
  qos_TaDb_AddNewTa(0, QOS_TA_DSA, 0, 0, nullptr, &row);
  const uint8_t bytes[3] = {1, 2, 3};
  qos_intDb_MsgUpdateReqBuffer(row, bytes, 3);
  qos::QosIntDbRegion& db = store();
  db.dbc.modCount = 5, db.stats.sfDbMaxIndex = 17, db.sf[17].state = QOS_SF_OPERATIONAL;
  ASSERT_EQ(qos_IntDb_Reset(), 0);
  EXPECT_EQ(std::make_tuple(db.ta[0].rowStatus, db.taControl.lastCmTaId, db.msgs[0].req.length, db.msgs[0].req.data[0]),
            std::make_tuple(0u, uint16_t{1}, 0u, uint8_t{0}));  // generated IDs go on, the request is emptied
  EXPECT_EQ(std::make_tuple(db.sf[17].state, db.stats.sfDbMaxIndex, db.dbc.modCount), std::make_tuple(0u, 0, 5u));
  EXPECT_EQ(semctl(semget(QOS_SEM_KEY, 1, 0), 0, GETVAL), 1);

  qos_TaDb_AddNewTa(0, QOS_TA_DSA, 0, 0, nullptr, &row);
  ASSERT_EQ(qos_IntDb_Init(), 0);
  EXPECT_EQ(std::make_tuple(db.taControl.lastCmTaId, db.dbc.modCount, db.ta[0].rowStatus), std::make_tuple(uint16_t{0}, 0u, 0u));
  EXPECT_EQ(dbcTaDb, &store().dbc);
}

}  // namespace
}  // namespace qostest
