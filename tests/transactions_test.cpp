// transactions_test.cpp - the DSX transaction table: allocation, IDs,
// accessors, resets and the dump.
#include "support/fixture.h"

namespace qostest {
namespace {

constexpr std::size_t kTaBase = 76784;
constexpr std::size_t kTaRow = 300;
constexpr std::size_t kControl = 79784;

std::size_t taOff(uint32_t row, std::size_t field) { return kTaBase + kTaRow * row + field; }

uint32_t allocate(uint32_t taId, uint32_t type, uint32_t initiator) {
  uint32_t index = 99;
  EXPECT_EQ(qos_TaDb_AddNewTa(taId, type, initiator, 0, nullptr, &index), 0);
  return index;
}

using Transactions = StoreTest;

TEST_F(Transactions, AllocationFillsTheRowAtItsOffsets) {
  const uint8_t auth[5] = {1, 2, 3, 4, 5};
  uint32_t index = 99;
  ASSERT_EQ(qos_TaDb_AddNewTa(0x12345, QOS_TA_DSC, 1, sizeof auth, auth, &index), 0);
  EXPECT_EQ(index, 0u);
  EXPECT_EQ(at<uint32_t>(taOff(0, 0)), 1u);         // rowStatus
  EXPECT_EQ(at<uint16_t>(taOff(0, 4)), 0x2345u);    // low 16 bits of a CMTS ID
  EXPECT_EQ(at<uint32_t>(taOff(0, 8)), 1u);         // type
  EXPECT_EQ(at<uint32_t>(taOff(0, 12)), 1u);        // initiator
  EXPECT_EQ(at<int32_t>(taOff(0, 28)), -1);
  EXPECT_EQ(at<int32_t>(taOff(0, 32)), -1);
  EXPECT_EQ(at<uint32_t>(taOff(0, 36)), 5u);        // authLen
  EXPECT_EQ(std::memcmp(region() + taOff(0, 40), auth, 5), 0);
  EXPECT_EQ(at<uint32_t>(kControl + 4), 1u);        // taRowsUsed
  EXPECT_EQ(at<uint16_t>(kControl + 8), 0u);        // no ID generated
  // The row's message record was emptied and its error record reset.
  EXPECT_EQ(at<uint32_t>(23588 + 4), 253u);
}

TEST_F(Transactions, FullTableRefusesThenReusesTheLowestFreeRow) {
  for (uint32_t i = 0; i < 10; ++i) EXPECT_EQ(allocate(0, QOS_TA_DSA, 0), i);
  uint32_t index = 77;
  EXPECT_EQ(qos_TaDb_AddNewTa(0, QOS_TA_DSA, 0, 0, nullptr, &index), -1);
  EXPECT_EQ(index, 77u);
  ASSERT_EQ(logs.records().size(), 1u);
  EXPECT_EQ(logs.records()[0].text,
            "qos_TaDb_FindFreeTaIndex: DSX TA DB is full. Cannot allocate new TA index for CM DSX message");
  EXPECT_EQ(logs.records()[0].function, "qos_TaDb_FindFreeTaIndex");
  EXPECT_EQ(logs.records()[0].level, 1);
  qos_intDb_ResetTaDbRow(6);
  qos_intDb_ResetTaDbRow(3);
  EXPECT_EQ(allocate(0, QOS_TA_DSA, 0), 3u);
  EXPECT_EQ(allocate(0, QOS_TA_DSA, 0), 6u);
  EXPECT_EQ(at<uint32_t>(kControl + 4), 10u);  // high-water count stays
}

TEST_F(Transactions, GeneratedIdsAre15BitsAndSurviveTableResets) {
  uint16_t id = 0;
  qos_TaDb_GetTaId(allocate(999, QOS_TA_DSA, 0), &id);
  EXPECT_EQ(id, 1u);  // the caller's ID is ignored for the modem's own
  qos_intDb_TaDb_reset();
  qos_TaDb_GetTaId(allocate(0, QOS_TA_DSA, 0), &id);
  EXPECT_EQ(id, 2u);
  put<uint16_t>(kControl + 8, 0x7FFF);
  qos_TaDb_GetTaId(allocate(0, QOS_TA_DSA, 0), &id);
  EXPECT_EQ(id, 0u);
  qos_TaDb_GetTaId(allocate(0, QOS_TA_DSA, 0), &id);
  EXPECT_EQ(id, 1u);
}

TEST_F(Transactions, AuthenticationBlockLimits) {
  std::vector<uint8_t> block(300, 0xAB);
  uint32_t index = 0;
  EXPECT_EQ(qos_TaDb_AddNewTa(7, QOS_TA_DSA, 1, 256, block.data(), &index), -1);
  EXPECT_TRUE(logs.records().empty());
  EXPECT_EQ(at<uint32_t>(taOff(0, 0)), 0u);
  ASSERT_EQ(qos_TaDb_AddNewTa(7, QOS_TA_DSA, 1, 255, block.data(), &index), 0);
  EXPECT_EQ(at<uint8_t>(taOff(0, 40 + 254)), 0xAB);
  EXPECT_EQ(at<uint8_t>(taOff(0, 295)), 0);  // padding untouched

  // Setting a longer block is refused and changes nothing.
  EXPECT_EQ(qos_TaDb_SetTaAuthBlock(0, 256, block.data()), -1);
  EXPECT_EQ(at<uint32_t>(taOff(0, 36)), 255u);
  const uint8_t two[2] = {9, 8};
  EXPECT_EQ(qos_TaDb_SetTaAuthBlock(0, 2, two), 0);
  uint32_t len = 0;
  uint8_t* data = nullptr;
  ASSERT_EQ(qos_TaDb_GetTaAuthBlock(0, &len, &data), 0);
  EXPECT_EQ(len, 2u);
  EXPECT_EQ(data, region() + taOff(0, 40));  // in place, not a copy
}

TEST_F(Transactions, FindByTaId) {
  allocate(0x500, QOS_TA_DSA, 1);
  allocate(0x600, QOS_TA_DSD, 1);
  allocate(0x600, QOS_TA_DSC, 1);
  uint32_t index = 99;
  EXPECT_EQ(qos_TaDb_FindTaIndexByTaId(0x600, &index), 0);
  EXPECT_EQ(index, 1u);  // the lower of two rows
  EXPECT_EQ(qos_TaDb_FindTaIndexByTaId(0x10600, &index), -1);
  EXPECT_EQ(qos_TaDb_FindTaIndexByTaId(0x700, &index), -1);
  EXPECT_TRUE(logs.records().empty());
  EXPECT_EQ(qos_TaDb_FindTaIndexByTaId(0, &index), -1);
  ASSERT_EQ(logs.records().size(), 1u);
  EXPECT_EQ(logs.records()[0].text.rfind(
                "qos_TaDb_FindTaIndexByTaId: incorrect input parameters TA ID = 0 pTaIndex = 0x", 0),
            0u);
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
      {"type", qos_TaDb_GetTaType, QOS_TA_DSD, -1, 77},
      {"initiator", qos_TaDb_GetTaInitiator, 1, -1, 77},
      {"subtype", qos_TaDb_GetTaSubtype, 9, -1, 77},
      {"state", qos_TaDb_GetTaDbState, 3, -1, 0},
      {"retries", qos_TaDb_GetRetCounter, 2, -1, 3},
      {"held", qos_TaDb_IsTaHeld, 1, 0, 0},
  };
  for (const auto& c : cases) {
    uint32_t v = 77;
    EXPECT_EQ(c.get(row, &v), 0) << c.name;
    EXPECT_EQ(v, c.used) << c.name;
    v = 77;
    EXPECT_EQ(c.get(5, &v), c.freeResult) << c.name;
    EXPECT_EQ(v, c.freeValue) << c.name;
    EXPECT_EQ(c.get(row, nullptr), -1) << c.name;
  }
  EXPECT_TRUE(logs.records().empty());
}

TEST_F(Transactions, StateAndCounterRules) {
  uint32_t row = allocate(0x42, QOS_TA_DSA, 1);
  EXPECT_EQ(qos_TaDb_SetTaDbState(row, 2), 0);
  EXPECT_EQ(qos_TaDb_SetTaDbState(row, 4), -1);
  EXPECT_EQ(at<uint32_t>(taOff(row, 20)), 2u);
  for (uint32_t state = 0; state <= 3; ++state) {
    uint32_t held = 9;
    qos_TaDb_SetTaDbState(7, state);  // free rows take it too
    qos_TaDb_IsTaHeld(7, &held);
    EXPECT_EQ(held, state >= 2 ? 1u : 0u);
  }
  EXPECT_EQ(qos_TaDb_ResetRetCounter(7), -1);
  EXPECT_EQ(qos_TaDb_IncRetCounter(7), -1);
  put<uint32_t>(taOff(row, 24), 0xFFFFFFFF);
  EXPECT_EQ(qos_TaDb_IncRetCounter(row), 0);  // no upper bound: wraps
  EXPECT_EQ(at<uint32_t>(taOff(row, 24)), 0u);
  uint16_t id = 0;
  EXPECT_EQ(qos_TaDb_GetTaId(7, &id), -1);  // written, then -1 for a free row
}

TEST_F(Transactions, IndexChecksLogTheFirstBadIndex) {
  struct Case {
    uint32_t a, b;
    int32_t result;
    const char* text;
  } cases[] = {
      {3, 3, 0, nullptr},
      {0, 9, 0, nullptr},
      {3, 12, -1, "qos_TaDb_CheckTaConflict: ---> DSX TA DB index 12 is out of range"},
      {10, 11, -1, "qos_TaDb_CheckTaConflict: ---> DSX TA DB index 10 is out of range"},
      {0xFFFFFFFF, 1, -1, "qos_TaDb_CheckTaConflict: ---> DSX TA DB index -1 is out of range"},
  };
  for (const auto& c : cases) {
    logs.clear();
    EXPECT_EQ(qos_TaDb_CheckTaConflict(c.a, c.b), c.result);
    EXPECT_EQ(qos_TaDb_CompareTaStates(c.a, c.b), c.result);
    if (c.text == nullptr) {
      EXPECT_TRUE(logs.records().empty());
    } else {
      ASSERT_EQ(logs.records().size(), 2u);
      EXPECT_EQ(logs.records()[0].text, c.text);
      EXPECT_EQ(logs.records()[0].level, 1);
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
  put<uint8_t>(taOff(row, 6), 0xEE);  // padding: never written by a reset
  qos_intDb_MsgSetConfCode(row, 5);
  put<uint16_t>(kControl + 8, 1234);
  qos_intDb_TaDb_reset();
  for (uint32_t i = 0; i < 10; ++i) {
    EXPECT_EQ(at<uint32_t>(taOff(i, 0)), 0u);
    EXPECT_EQ(at<uint32_t>(taOff(i, 8)), 2u);
    EXPECT_EQ(at<uint32_t>(taOff(i, 16)), 0u);
    EXPECT_EQ(at<int32_t>(taOff(i, 28)), -1);
    EXPECT_EQ(at<int32_t>(taOff(i, 32)), -1);
    EXPECT_EQ(at<uint32_t>(taOff(i, 296)), 0u);
    EXPECT_EQ(at<uint8_t>(taOff(i, 40 + 100)), 0u);
  }
  EXPECT_EQ(at<uint8_t>(taOff(row, 6)), 0xEE);
  uint32_t conf = 9;
  qos_intDb_MsgGetConfCode(row, &conf);
  EXPECT_EQ(conf, 0u);
  EXPECT_EQ(at<uint32_t>(kControl), 3u);
  EXPECT_EQ(at<uint32_t>(kControl + 4), 0u);
  EXPECT_EQ(at<uint16_t>(kControl + 8), 1234u);
}

TEST_F(Transactions, ResetOfIndexTenTouchesOnlyMessageRecordTen) {
  const uint8_t bytes[4] = {1, 2, 3, 4};
  qos_intDb_MsgUpdateRspBuffer(10, bytes, sizeof bytes);
  qos_intDb_MsgSetErrorSet(10, 1, 2, 3, 4);
  auto before = snapshot();
  qos_intDb_ResetTaDbRow(10);
  const std::size_t rspLength = 23852 + 4812 * 10 + 1604 + 1600;
  for (std::size_t off : changedOffsets(before, snapshot())) {
    EXPECT_TRUE(off >= rspLength && off < rspLength + 4) << off;  // length 4 -> 0 only
  }
  EXPECT_EQ(at<uint32_t>(rspLength), 0u);
  // Out-of-range indexes do nothing at all.
  before = snapshot();
  qos_intDb_ResetTaDbRow(11);
  qos_intDb_ResetTaDbRow(-1);
  EXPECT_TRUE(changedOffsets(before, snapshot()).empty());
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
