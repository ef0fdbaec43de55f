// transactions_test.cpp - the DSX transaction table: allocation, IDs,
// accessors, resets and the dump. Bad indexes and pointers: hostile_test.
#include <tuple>

#include "support/fixture.h"

namespace qostest {
namespace {

constexpr std::size_t kControl = 79784;
std::size_t taOff(uint32_t row, std::size_t field) { return 76784 + 300 * row + field; }

uint32_t allocate(uint32_t taId, uint32_t type, uint32_t initiator) {
  uint32_t index = 99;
  EXPECT_EQ(qos_TaDb_AddNewTa(taId, type, initiator, 0, nullptr, &index), 0);
  return index;
}

using Transactions = StoreTest;

TEST_F(Transactions, AllocationFillsTheRowAtItsOffsetsAndEmptiesItsMessages) {
  std::vector<uint8_t> auth(300, 0xAB);
  uint32_t index = 99;
  EXPECT_EQ(qos_TaDb_AddNewTa(7, QOS_TA_DSA, 1, 256, auth.data(), &index), -1);
  qos_intDb_MsgUpdateRspBuffer(0, auth.data(), 4);
  qos_intDb_MsgSetErrorSet(0, 1, 2, 3, 4);
  ASSERT_EQ(qos_TaDb_AddNewTa(0x12345, QOS_TA_DSC, 1, 255, auth.data(), &index), 0);
  EXPECT_EQ(index, 0u);
  EXPECT_EQ(at<uint32_t>(taOff(0, 0)), 1u);       // rowStatus
  EXPECT_EQ(at<uint16_t>(taOff(0, 4)), 0x2345u);  // low 16 bits of a CMTS ID
  EXPECT_EQ(at<uint32_t>(taOff(0, 8)), 1u);       // type
  EXPECT_EQ(at<uint32_t>(taOff(0, 12)), 1u);      // initiator
  EXPECT_EQ(at<int32_t>(taOff(0, 28)), -1);
  EXPECT_EQ(at<int32_t>(taOff(0, 32)), -1);
  EXPECT_EQ(at<uint32_t>(taOff(0, 36)), 255u);  // authLen
  EXPECT_EQ(std::memcmp(region() + taOff(0, 40), auth.data(), 255), 0);
  EXPECT_EQ(at<uint8_t>(taOff(0, 295)), 0);      // padding untouched
  EXPECT_EQ(at<uint32_t>(kControl + 4), 1u);     // taRowsUsed
  EXPECT_EQ(at<uint16_t>(kControl + 8), 0u);     // no ID generated
  EXPECT_EQ(at<uint32_t>(23588 + 4), 253u);      // error record reset
  EXPECT_EQ(at<uint32_t>(23852 + 3204), 0u);     // response emptied
  // The block is handed out in place, not copied.
  const uint8_t two[2] = {9, 8};
  EXPECT_EQ(qos_TaDb_SetTaAuthBlock(0, 2, two), 0);
  uint32_t len = 0;
  uint8_t* data = nullptr;
  ASSERT_EQ(qos_TaDb_GetTaAuthBlock(0, &len, &data), 0);
  EXPECT_EQ(len, 2u);
  EXPECT_EQ(data, region() + taOff(0, 40));
  EXPECT_TRUE(logs.records().empty());
}

TEST_F(Transactions, FullTableRefusesThenReusesTheLowestFreeRow) {
  for (uint32_t i = 0; i < 10; ++i) EXPECT_EQ(allocate(0, QOS_TA_DSA, 0), i);
  uint32_t index = 77;
  EXPECT_EQ(qos_TaDb_AddNewTa(0, QOS_TA_DSA, 0, 0, nullptr, &index), -1);
  EXPECT_EQ(index, 77u);
  ASSERT_EQ(logs.records().size(), 1u);
  const LogRecord& r = logs.records()[0];
  EXPECT_EQ(std::tie(r.text, r.function, r.level),
            std::make_tuple("qos_TaDb_FindFreeTaIndex: DSX TA DB is full. Cannot allocate new TA index for CM DSX message",
                            "qos_TaDb_FindFreeTaIndex", QOS_LOG_ERROR));
  qos_intDb_ResetTaDbRow(6);
  qos_intDb_ResetTaDbRow(3);
  EXPECT_EQ(allocate(0, QOS_TA_DSA, 0), 3u);
  EXPECT_EQ(allocate(0, QOS_TA_DSA, 0), 6u);
  EXPECT_EQ(at<uint32_t>(kControl + 4), 10u);  // high-water count stays
}

TEST_F(Transactions, GeneratedIdsAre15BitsAndSurviveTableResets) {
  auto idOf = [](uint32_t row) {
    uint16_t id = 0;
    qos_TaDb_GetTaId(row, &id);
    return id;
  };
  EXPECT_EQ(idOf(allocate(999, QOS_TA_DSA, 0)), 1u);  // the caller's ID is ignored for the modem's own
  qos_intDb_TaDb_reset();
  EXPECT_EQ(idOf(allocate(0, QOS_TA_DSA, 0)), 2u);
  put<uint16_t>(kControl + 8, 0x7FFF);
  EXPECT_EQ(idOf(allocate(0, QOS_TA_DSA, 0)), 0u);
  EXPECT_EQ(idOf(allocate(0, QOS_TA_DSA, 0)), 1u);
}

TEST_F(Transactions, FindByTaId) {
  allocate(0x500, QOS_TA_DSA, 1);
  allocate(0x600, QOS_TA_DSD, 1);
  allocate(0x600, QOS_TA_DSC, 1);
  uint32_t index = 99;
  EXPECT_EQ(qos_TaDb_FindTaIndexByTaId(0x600, &index), 0);
  EXPECT_EQ(index, 1u);  // the lower of two rows
  put<uint16_t>(taOff(5, 4), 0x700);  // a free row's ID does not count
  EXPECT_EQ(qos_TaDb_FindTaIndexByTaId(0x700, &index), -1);
  EXPECT_TRUE(logs.records().empty());
  EXPECT_EQ(qos_TaDb_FindTaIndexByTaId(0, &index), -1);
  ASSERT_EQ(logs.records().size(), 1u);
  const std::string prefix = "qos_TaDb_FindTaIndexByTaId: incorrect input parameters TA ID = 0 pTaIndex = 0x";
  EXPECT_EQ(logs.records()[0].text.substr(0, prefix.size()), prefix);
}

TEST_F(Transactions, AccessorsOnUsedAndFreeRows) {
  uint32_t row = allocate(0x42, QOS_TA_DSD, 1);
  qos_TaDb_SetTaSubtype(row, 9);
  qos_TaDb_SetTaDbState(row, 3);
  qos_TaDb_IncRetCounter(row);
  qos_TaDb_IncRetCounter(row);
  struct Case {
    const char* name;
    int32_t (*get)(uint32_t, uint32_t*);
    uint32_t used;
    int32_t freeResult;
    uint32_t freeValue;  // what a free row leaves in the output (77: untouched)
  } cases[] = {
      {"type", qos_TaDb_GetTaType, QOS_TA_DSD, -1, 77},   {"initiator", qos_TaDb_GetTaInitiator, 1, -1, 77},
      {"subtype", qos_TaDb_GetTaSubtype, 9, -1, 77},      {"state", qos_TaDb_GetTaDbState, 3, -1, 0},
      {"retries", qos_TaDb_GetRetCounter, 2, -1, 3},      {"held", qos_TaDb_IsTaHeld, 1, 0, 0},
  };
  for (const auto& c : cases) {
    uint32_t used = 77, unused = 77;
    const int32_t onUsed = c.get(row, &used), onFree = c.get(5, &unused);
    EXPECT_EQ(std::make_tuple(onUsed, used, onFree, unused), std::make_tuple(0, c.used, c.freeResult, c.freeValue))
        << c.name;
  }
  uint16_t id = 0;
  put<uint16_t>(taOff(5, 4), 0x55);
  EXPECT_EQ(qos_TaDb_GetTaId(5, &id), -1);  // written, then -1 for a free row
  EXPECT_EQ(id, 0x55u);
  for (uint32_t state = 0; state <= 3; ++state) {
    uint32_t held = 9;
    EXPECT_EQ(qos_TaDb_SetTaDbState(7, state), 0);  // free rows take it too
    qos_TaDb_IsTaHeld(7, &held);
    EXPECT_EQ(held, state >= 2 ? 1u : 0u);
  }
  put<uint32_t>(taOff(row, 24), 0xFFFFFFFF);
  EXPECT_EQ(qos_TaDb_IncRetCounter(row), 0);  // no upper bound: wraps
  EXPECT_EQ(at<uint32_t>(taOff(row, 24)), 0u);
  EXPECT_TRUE(logs.records().empty());
}

// Both index checks log the first bad index and nothing for two good ones.
TEST_F(Transactions, IndexChecksLogTheFirstBadIndex) {
  const struct {
    uint32_t a, b;
    const char* bad;
  } cases[] = {{3, 3, nullptr}, {0, 9, nullptr}, {3, 12, "12"}, {10, 11, "10"}, {0xFFFFFFFF, 1, "-1"}};
  for (const auto& c : cases) {
    logs.clear();
    const int32_t result = c.bad ? -1 : 0;
    EXPECT_EQ(qos_TaDb_CheckTaConflict(c.a, c.b), result);
    EXPECT_EQ(qos_TaDb_CompareTaStates(c.a, c.b), result);
    ASSERT_EQ(logs.records().size(), c.bad ? 2u : 0u);
    for (const auto& r : logs.records()) {
      EXPECT_EQ(r.text, r.function + ": ---> DSX TA DB index " + c.bad + " is out of range");
      EXPECT_EQ(r.level, QOS_LOG_ERROR);
    }
  }
}

TEST_F(Transactions, RowResetValuesAndTableReset) {
  std::vector<uint8_t> block(255, 0x5A);
  uint32_t row = 0;
  qos_TaDb_AddNewTa(0x77, QOS_TA_DSA, 1, 255, block.data(), &row);
  qos_TaDb_SetTaSubtype(row, 4);
  qos_TaDb_SetTaDbState(row, 3);
  put<uint32_t>(taOff(row, 16), 0x11);
  put<uint8_t>(taOff(row, 6), 0xEE);
  put<uint8_t>(taOff(row, 295), 0xEE);
  qos_intDb_MsgSetConfCode(row, 5);
  put<uint16_t>(kControl + 8, 1234);
  qos_intDb_TaDb_reset();
  std::vector<uint8_t> fresh(300, 0);  // a reset row: type 2, the reserved words at 28 and 32 -1
  const int32_t resetWords[3][2] = {{8, 2}, {28, -1}, {32, -1}};
  for (const auto& w : resetWords) std::memcpy(&fresh[w[0]], &w[1], 4);
  for (uint32_t i = 0; i < 10; ++i) {
    fresh[6] = fresh[295] = i == row ? 0xEE : 0;  // padding: never written by a reset
    EXPECT_EQ(std::vector<uint8_t>(region() + taOff(i, 0), region() + taOff(i, 300)), fresh) << i;
  }
  EXPECT_EQ(at<uint32_t>(23588 + 24 * row), 0u);  // confirmation code reset
  EXPECT_EQ(at<uint32_t>(kControl), 3u);
  EXPECT_EQ(at<uint32_t>(kControl + 4), 0u);
  EXPECT_EQ(at<uint16_t>(kControl + 8), 1234u);

  // Index 10 has no transaction row: only message record 10's lengths go to 0.
  const uint8_t bytes[4] = {1, 2, 3, 4};
  qos_intDb_MsgUpdateRspBuffer(10, bytes, sizeof bytes);
  qos_intDb_MsgSetErrorSet(10, 1, 2, 3, 4);
  auto before = snapshot();
  qos_intDb_ResetTaDbRow(10);
  const std::size_t rspLength = 23852 + 4812 * 10 + 3204;
  EXPECT_EQ(at<uint32_t>(rspLength), 0u);
  EXPECT_EQ(changedOffsets(before, snapshot()).size(), 1u);  // one byte of that length: 4 -> 0
  EXPECT_TRUE(logs.records().empty());
}

TEST_F(Transactions, PrintShowsUsedRowsOnly) {
  uint32_t a = allocate(0, QOS_TA_DSA, 0);
  allocate(0xBEEF, QOS_TA_DSD, 1);
  qos_intDb_ResetTaDbRow(static_cast<int32_t>(a));
  qos_TaDb_SetTaSubtype(1, 2);
  qos_TaDb_IncRetCounter(1);
  std::string out = captureStdout([] { EXPECT_EQ(qos_TaDb_printDb(), 0); });
  EXPECT_EQ(out,
            "  DSX transaction data base: \n\n"
            "TA DB idx = 1   Row status = 1 TA ID = 0xbeef      Type = 2 SubType = 2  Initiated by 1"
            "  SM State = 0  Retry = 1\n");
}

}  // namespace
}  // namespace qostest
