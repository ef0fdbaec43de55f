// frame_test.cpp - the region after creation, attachment from other
// processes, and the lock between processes.
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

}  // namespace
}  // namespace qostest
