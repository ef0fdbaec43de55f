// SPDX-License-Identifier: MIT
// transactions_test.cpp - the DSX transaction table: allocation, IDs,
// accessors, resets and the dump. Bad indexes and pointers: hostile_test.
#include <tuple>

#include "support/fixture.h"

namespace qostest {
namespace {

uint32_t allocate(uint32_t taId, uint32_t type, uint32_t initiator) {
  uint32_t index = 99;
  EXPECT_EQ(qos_TaDb_AddNewTa(taId, type, initiator, 0, nullptr, &index), 0);
  return index;
}

using Transactions = StoreTest;

TEST_F(Transactions, AllocationFillsTheRowAndEmptiesItsMessages) {
  std::vector<uint8_t> auth(256, 0xAB);
  uint32_t index = 99;
  EXPECT_EQ(qos_TaDb_AddNewTa(7, QOS_TA_DSA, 1, 256, auth.data(), &index), -1);
  qos_intDb_MsgUpdateRspBuffer(0, auth.data(), 4);
  qos_intDb_MsgSetErrorSet(0, 1, 2, 3, 4);
  ASSERT_EQ(qos_TaDb_AddNewTa(0x12345, QOS_TA_DSC, 1, 255, auth.data(), &index), 0);
  const qos::TaRow& row = store().ta[0];
  EXPECT_EQ(index, 0u);
  // The low 16 bits of a CMTS ID; the padding byte after the block untouched.
  EXPECT_EQ(std::make_tuple(row.rowStatus, row.taId, row.type, row.initiator, row.reserved28, row.reserved32, row.authLen,
                            row.pad295),
            std::make_tuple(1u, uint16_t{0x2345}, 1u, 1u, -1, -1, 255u, uint8_t{0}));
  EXPECT_EQ(std::memcmp(row.authBlock, auth.data(), 255), 0);
  EXPECT_EQ(std::make_pair(store().taControl.taRowsUsed, store().taControl.lastCmTaId), std::make_pair(1u, uint16_t{0}));
  EXPECT_EQ(std::make_pair(store().msgErrors[0].errorCode, store().msgs[0].rsp.length), std::make_pair(253u, 0u));
  // The block is handed out in place, not copied.
  const uint8_t two[2] = {9, 8};
  uint32_t len = 0;
  uint8_t* data = nullptr;
  EXPECT_EQ(qos_TaDb_SetTaAuthBlock(0, 2, two), 0);
  ASSERT_EQ(qos_TaDb_GetTaAuthBlock(0, &len, &data), 0);
  EXPECT_EQ(std::make_pair(len, data), std::make_pair(2u, &store().ta[0].authBlock[0]));
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
  EXPECT_EQ(store().taControl.taRowsUsed, 10u);  // high-water count stays
}

TEST_F(Transactions, GeneratedIdsAre15BitsAndSurviveTableResets) {
  auto idOf = [](uint32_t row) { return store().ta[row].taId; };
  EXPECT_EQ(idOf(allocate(999, QOS_TA_DSA, 0)), 1u);  // the caller's ID is ignored for the modem's own
  qos_intDb_TaDb_reset();
  EXPECT_EQ(idOf(allocate(0, QOS_TA_DSA, 0)), 2u);
  store().taControl.lastCmTaId = 0x7FFF;
  EXPECT_EQ(idOf(allocate(0, QOS_TA_DSA, 0)), 0u);
  EXPECT_EQ(idOf(allocate(0, QOS_TA_DSA, 0)), 1u);
}

TEST_F(Transactions, FindByTaId) {
  allocate(0x500, QOS_TA_DSA, 1);
  allocate(0x600, QOS_TA_DSD, 1);
  allocate(0x600, QOS_TA_DSC, 1);
  store().ta[5].taId = 0x700;  // a free row's ID does not count
  uint32_t index = 99, other = 99;
  EXPECT_EQ(qos_TaDb_FindTaIndexByTaId(0x600, &index), 0);
  EXPECT_EQ(index, 1u);  // the lower of two rows
  EXPECT_EQ(qos_TaDb_FindTaIndexByTaId(0x700, &other), -1);
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
  store().ta[5].taId = 0x55;
  EXPECT_EQ(qos_TaDb_GetTaId(5, &id), -1);  // written, yet -1
  EXPECT_EQ(id, 0x55u);
  for (uint32_t state = 0; state <= 3; ++state) {
    uint32_t held = 9;
    EXPECT_EQ(qos_TaDb_SetTaDbState(7, state), 0);  // free rows take it too
    qos_TaDb_IsTaHeld(7, &held);
    EXPECT_EQ(held, state >= 2 ? 1u : 0u);
  }
  store().ta[row].retryCounter = 0xFFFFFFFF;
  EXPECT_EQ(qos_TaDb_IncRetCounter(row), 0);  // no upper bound: wraps
  EXPECT_EQ(store().ta[row].retryCounter, 0u);
  EXPECT_TRUE(logs.records().empty());
}

// Both index checks log the first bad index and nothing for two good ones.
TEST_F(Transactions, IndexChecksLogTheFirstBadIndex) {
  const struct {
    uint32_t a, b;
    const char* bad;
  } cases[] = {{3, 3, nullptr}, {0, 9, nullptr}, {3, 12, "12"}, {0xFFFFFFFF, 1, "-1"}};
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
  store().ta[row].reserved16 = 0x11;
  store().ta[row].pad6 = store().ta[row].pad295 = 0xEE;
  qos_intDb_MsgSetConfCode(row, 5);
  store().taControl.lastCmTaId = 1234;
  qos_intDb_TaDb_reset();
  qos::TaRow fresh;  // a reset row: type DSD, the reserved words at 28 and 32 -1
  std::memset(&fresh, 0, sizeof fresh);
  fresh.type = QOS_TA_DSD, fresh.reserved28 = fresh.reserved32 = -1;
  for (uint32_t i = 0; i < 10; ++i) {
    fresh.pad295 = static_cast<uint8_t>(i == row ? 0xEE : 0);  // padding: never written by a reset
    fresh.pad6 = fresh.pad295;
    EXPECT_EQ(std::memcmp(&store().ta[i], &fresh, sizeof fresh), 0) << i;
  }
  const qos::TaDbControl& control = store().taControl;
  EXPECT_EQ(std::make_tuple(store().msgErrors[row].confCode, control.retryLimit, control.taRowsUsed, control.lastCmTaId),
            std::make_tuple(0u, 3u, 0u, uint16_t{1234}));
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
