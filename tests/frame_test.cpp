// frame_test.cpp - the region after creation, attachment from another
// process, reset and a second creation. The lock itself: lock_test.
#include <sys/sem.h>

#include "support/fixture.h"

namespace qostest {
namespace {

using Frame = StoreTest;

// Every byte of a freshly created region is zero except the reset values.
TEST_F(Frame, InitLeavesOnlyTheResetValues) {
  std::vector<uint8_t> expected(QOS_REGION_SIZE, 0);
  auto set32 = [&](std::size_t off, int32_t v) { std::memcpy(&expected[off], &v, 4); };
  for (int i = 0; i < 128; ++i) {
    set32(80 * i + 28, -1);  // taIndex
    set32(80 * i + 32, -1);  // heldTaIndex
  }
  for (int i = 0; i < 320; ++i) set32(10240 + 20 * i + 16, -1);  // classifier taIndex
  set32(16640 + 20, 160);                                      // clsfMaxNum
  set32(16640 + 28, 38);                                       // clusterMaxNum
  for (int i = 0; i < 64; ++i) set32(21460 + 12 * i + 8, 1);   // active releaseOrder
  for (int i = 0; i < 10; ++i) set32(23588 + 24 * i + 4, 253);  // errorCode
  set32(23588 + 24 * 10, 10);                                  // record 10 confCode
  for (int i = 0; i < 10; ++i) {
    set32(76784 + 300 * i + 8, 2);    // type
    set32(76784 + 300 * i + 28, -1);  // reserved
    set32(76784 + 300 * i + 32, -1);  // reserved
  }
  set32(79784, 3);  // retryLimit
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
  put<uint32_t>(79796, 5);      // bonding change store: modCount
  put<int32_t>(16640 + 8, 17);  // sfDbMaxIndex
  put<uint32_t>(80 * 17, 1);    // a used flow row
  ASSERT_EQ(qos_IntDb_Reset(), 0);
  EXPECT_EQ(at<uint32_t>(76784), 0u);         // transaction row free
  EXPECT_EQ(at<uint16_t>(79784 + 8), 1u);     // generated IDs go on
  EXPECT_EQ(at<uint32_t>(23852 + 1600), 0u);  // request emptied
  EXPECT_EQ(at<uint8_t>(23852), 0u);
  EXPECT_EQ(at<uint32_t>(80 * 17), 0u);
  EXPECT_EQ(at<int32_t>(16640 + 8), 0);
  EXPECT_EQ(at<uint32_t>(79796), 5u);
  EXPECT_EQ(semctl(semget(QOS_SEM_KEY, 1, 0), 0, GETVAL), 1);

  qos_TaDb_AddNewTa(0, QOS_TA_DSA, 0, 0, nullptr, &row);
  ASSERT_EQ(qos_IntDb_Init(), 0);
  EXPECT_EQ(at<uint16_t>(79784 + 8), 0u);
  EXPECT_EQ(at<uint32_t>(79796), 0u);
  EXPECT_EQ(at<uint32_t>(76784), 0u);
  EXPECT_EQ(dbcTaDb, reinterpret_cast<QosDbcDb*>(region() + 79796));
}

}  // namespace
}  // namespace qostest
