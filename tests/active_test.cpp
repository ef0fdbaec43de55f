// active_test.cpp - the active upstream flow table (fill, release order,
// adds and deletes) and the active PHS tables of both directions.
#include "support/fixture.h"

namespace qostest {
namespace {

constexpr std::size_t kStats = 16640, kActive = 21460, kPhsUs = 22228, kPhsDs = 22908;
constexpr uint8_t kUs = QOS_DIR_UPSTREAM, kDs = QOS_DIR_DOWNSTREAM, kAct = QOS_PARAMSET_ACTIVE;

// A flow row written in place; the scanned range grows to cover it.
void putFlow(int row, uint32_t state, uint32_t sfId, uint16_t ref, uint8_t direction = kUs, uint8_t paramSet = kAct) {
  std::size_t o = 80u * row;
  put<uint32_t>(o, state), put<uint32_t>(o + 4, sfId), put<uint16_t>(o + 8, ref);
  put<uint8_t>(o + 10, direction), put<uint8_t>(o + 24, paramSet);
  if (row > at<int32_t>(kStats + 8)) put<int32_t>(kStats + 8, row);
}
// One active row as {status, sfId, releaseOrder}.
std::vector<int64_t> active(int i) {
  return {at<uint32_t>(kActive + 12 * i), at<uint32_t>(kActive + 12 * i + 4), at<int32_t>(kActive + 12 * i + 8)};
}
std::vector<int64_t> counts() { return {at<uint32_t>(kStats + 44), at<uint32_t>(kStats + 40), at<uint16_t>(kStats + 48)}; }
// One PHS row as {status, sfId, clsfId, phsi, dsid}.
std::vector<uint32_t> phs(std::size_t table, int i) {
  std::size_t o = table + 20 * i;
  return {at<uint32_t>(o), at<uint32_t>(o + 4), at<uint32_t>(o + 8), at<uint8_t>(o + 12), at<uint32_t>(o + 16)};
}

void expectLog(LogCapture& logs, int level, const std::string& text) {
  ASSERT_EQ(logs.texts(), std::vector<std::string>{text});
  EXPECT_EQ(logs.records()[0].level, level);
  logs.clear();
}

using ActiveSf = StoreTest;

TEST_F(ActiveSf, FillChoosesThePrimaryFlow) {
  struct Case {
    uint16_t primaryBefore;
    std::vector<std::vector<uint32_t>> flows;  // state, sfId, ref, direction, paramSet
    std::vector<uint32_t> rows;
    uint16_t primaryAfter;
  } cases[] = {
      {0, {{1, 0xA, 5, kUs, kAct}, {1, 0xB, 3, kUs, kAct}, {1, 0xC, 3, kUs, kAct}}, {0xB, 0xA, 0xC}, 3},
      {5, {{1, 0xA, 2, kUs, kAct}, {1, 0xB, 5, kUs, kAct}, {1, 0xC, 9, kUs, kAct}}, {0xB, 0xA, 0xC}, 5},
      {4, {{1, 0xA, 4, kDs, kAct}, {1, 0xB, 6, kUs, kAct}, {1, 0xC, 8, kUs, kAct}}, {0xB, 0xC}, 6},
      {0, {{1, 0xA, 0xFFFF, kUs, kAct}, {1, 0xB, 0xFFFE, kUs, kAct}}, {0xB, 0xA}, 0xFFFE},
      {0, {{2, 0xA, 1, kUs, kAct}, {7, 0xB, 1, kUs, kAct}, {1, 0xC, 1, kUs, 2}, {1, 0xE, 9, kUs, 5}, {1, 0xF, 8, kUs, kAct}},
       {0xF, 0xE}, 8},
  };
  for (const auto& c : cases) {
    ASSERT_EQ(qos_IntDb_Reset(), 0);
    put<uint16_t>(kStats + 48, c.primaryBefore);
    for (std::size_t i = 0; i < c.flows.size(); ++i) {
      const auto& f = c.flows[i];
      putFlow(static_cast<int>(i), f[0], f[1], static_cast<uint16_t>(f[2]), static_cast<uint8_t>(f[3]),
              static_cast<uint8_t>(f[4]));
    }
    ASSERT_EQ(qos_intDb_FillActiveUsSfTable(), 0);
    int n = static_cast<int>(c.rows.size());
    for (int i = 0; i < n; ++i) EXPECT_EQ(active(i), (std::vector<int64_t>{1, c.rows[i], 0})) << c.primaryBefore;
    EXPECT_EQ(active(n), (std::vector<int64_t>{0, 0, 1}));
    EXPECT_EQ(counts(), (std::vector<int64_t>{n, n - 1, c.primaryAfter}));
  }
  EXPECT_TRUE(logs.records().empty());
}

TEST_F(ActiveSf, FillRefusesNoFlowAndStopsAtThirtyTwo) {
  putFlow(0, 1, 0xA, 1, kDs);
  putFlow(1, 1, 0xB, 0xFFFF);
  putFlow(2, 1, 0xC, 1);
  put<int32_t>(kStats + 8, 1);  // row 2 lies beyond the scanned range
  auto before = snapshot();
  EXPECT_EQ(qos_intDb_FillActiveUsSfTable(), -1);
  expectLog(logs, 1, "QOS: No active US Service Flow (cannot find Ref Id of primary SF)");
  EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});

  for (int i = 0; i < 34; ++i) putFlow(i, 1, 0x100 + i, static_cast<uint16_t>(40 - i));
  ASSERT_EQ(qos_intDb_FillActiveUsSfTable(), 0);
  EXPECT_EQ(active(0)[1], 0x121);  // ref 7, the smallest
  for (int i = 1; i < 32; ++i) EXPECT_EQ(active(i)[1], 0x100 + i - 1);
  EXPECT_EQ(active(32), (std::vector<int64_t>{0, 0, 1}));
  EXPECT_EQ(counts(), (std::vector<int64_t>{32, 31, 7}));
  expectLog(logs, 1,
            "qos_intDb_FillActiveUsSfTable: Active SF DB is full. Only 32 of 34 active US Service Flows are entered");
}

TEST_F(ActiveSf, AddsTakeTheRowReleasedLongestAgo) {
  for (int i = 0; i < 32; ++i) putFlow(i, 1, 0x100 + i, static_cast<uint16_t>(i + 1));
  for (int i = 0; i < 6; ++i) putFlow(100 + i, QOS_SF_ADDING + i, 0xA0 + i, 0);  // any used state
  ASSERT_EQ(qos_intDb_FillActiveUsSfTable(), 0);
  put<int32_t>(kActive + 12 * 9 + 8, 50);  // rows in use do not count, whatever they hold
  // Step: SFID to delete (or add, with the active row it must take); the
  // release orders of rows 1, 3 and 20 afterwards.
  struct Step {
    bool add;
    uint32_t sfId;
    int row;
    std::vector<int64_t> orders;
  } steps[] = {
      {false, 0x103, 3, {0, 1, 0}},  {false, 0x101, 1, {2, 1, 0}},  {false, 0x114, 20, {2, 1, 3}},
      {true, 0xA0, 3, {2, 0, 3}},    {true, 0xA1, 1, {0, 0, 3}},    {false, 0xA0, 3, {0, 4, 3}},
      {false, 0x100, 0, {0, 4, 3}},  {true, 0xA2, 20, {0, 4, 0}},   {true, 0xA3, 3, {0, 0, 0}},
      {true, 0xA4, 0, {0, 0, 0}},
  };
  for (const auto& s : steps) {
    SCOPED_TRACE(s.sfId);
    ASSERT_EQ(s.add ? qos_intDb_AddActiveUsSfEntry(s.sfId) : qos_intDb_DeleteActiveUsSfEntry(s.sfId), 0);
    EXPECT_EQ(active(s.row)[1], s.add ? s.sfId : 0);
    EXPECT_EQ((std::vector<int64_t>{active(1)[2], active(3)[2], active(20)[2]}), s.orders);
  }
  EXPECT_EQ(active(0)[2], 0);
  EXPECT_EQ(counts(), (std::vector<int64_t>{32, 31, 1}));  // deleting the primary keeps its ref
  auto before = snapshot();
  EXPECT_EQ(qos_intDb_AddActiveUsSfEntry(0xA5), -1);
  expectLog(logs, 1, "qos_intDb_AddActiveUsSfEntry: Active SF DB is full. SFID=0xa5 cannot be added");
  EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});
}

TEST_F(ActiveSf, RefusalsAndLookups) {
  putFlow(0, 1, 0xD0, 1, kDs), putFlow(1, 1, 0xD1, 1, kUs, 3), putFlow(2, 0, 0xD2, 1);
  putFlow(3, 1, 0xD3, 1), putFlow(5, 1, 0xD5, 1);
  put<int32_t>(kStats + 8, 4);  // row 5 lies beyond the scanned range
  ASSERT_EQ(qos_intDb_AddActiveUsSfEntry(0xD3), 0);
  put<uint32_t>(kActive + 12 * 32, 1), put<uint32_t>(kActive + 12 * 32 + 4, 0x999);  // a wild reserved row
  auto before = snapshot();
  uint32_t v = 7;
  for (uint32_t sfId : {0u, 0xD0u, 0xD1u, 0xD2u, 0xD5u}) EXPECT_EQ(qos_intDb_AddActiveUsSfEntry(sfId), -1);
  EXPECT_EQ(qos_intDb_AddActiveUsSfEntry(0xD3), 0);
  EXPECT_EQ(qos_intDb_GetActiveSfIndexBySfid(0x999, &v), -1);
  EXPECT_EQ(qos_intDb_GetActiveSfIndexBySfid(0xD3, nullptr) + qos_intDb_GetActiveSfId(0, nullptr), -2);
  for (uint32_t i : {1u, 32u, 33u, 34u, ~0u}) EXPECT_EQ(qos_intDb_GetActiveSfId(i, &v) + qos_intDb_SetActiveSfId(i, 5), -2);
  EXPECT_TRUE(logs.records().empty());
  EXPECT_EQ(qos_intDb_DeleteActiveUsSfEntry(0x999), -1);
  expectLog(logs, 1, "qos_intDb_DeleteActiveUsSfEntry: SFID=0x999 is not found into active SF DB");
  EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});
  EXPECT_EQ(qos_intDb_SetActiveSfId(0, 0x1234), 0);
  EXPECT_EQ(qos_intDb_GetActiveSfIndexBySfid(0x1234, &v), 0);
  EXPECT_EQ(qos_intDb_GetActiveSfId(v, &v), 0);
  EXPECT_EQ(v, 0x1234u);
}

TEST_F(ActiveSf, Print) {
  putFlow(0, 1, 0xA, 2);
  putFlow(1, 1, 0x1234ABCD, 1);
  ASSERT_EQ(qos_intDb_FillActiveUsSfTable(), 0);
  ASSERT_EQ(qos_intDb_DeleteActiveUsSfEntry(0x1234ABCD), 0);
  EXPECT_EQ(captureStdout([] { EXPECT_EQ(qos_intDb_PrintActiveSfDB(), 0); }),
            "\n   Active upstream Service Flow internal data base \n\n"
            "DB Idx=1    SFID=0xa         Row status=1 \n");
}

using ActivePhs = StoreTest;

TEST_F(ActivePhs, EntriesPerDirection) {
  for (uint8_t dir : {kUs, kUs, kDs}) ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 0x12345, 3, dir), 0);
  for (uint8_t p = 4; p <= 34; ++p) ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 0x12345, p, kUs), 0);
  EXPECT_EQ(phs(kPhsUs, 0), (std::vector<uint32_t>{1, 0x10, 0x12345, 3, 0}));
  EXPECT_EQ(phs(kPhsDs, 0), (std::vector<uint32_t>{1, 0x10, 0x12345, 3, 0}));
  EXPECT_EQ(phs(kPhsUs, 31)[3], 34);
  EXPECT_EQ(phs(kPhsDs, 1)[0], 0u);
  auto before = snapshot();
  EXPECT_EQ(qos_intDb_AddActivePhsEntry(0x10, 0x12345, 35, kUs), -1);
  expectLog(logs, 1, "qos_intDb_AddActivePhsEntry(): PHS active DB is full. Cannot add new entry (PHSI=0x23)");
  EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});

  uint32_t index = 0, sfId = 0;
  uint16_t clsfId = 0;
  uint8_t p = 0;
  EXPECT_EQ(qos_intDb_GetActivePhsInfo(1, kUs, &sfId, &clsfId, &p), 0);
  EXPECT_EQ((std::vector<uint32_t>{sfId, clsfId, p}), (std::vector<uint32_t>{0x10, 0x2345, 4}));
  EXPECT_EQ(qos_intDb_GetActivePhsIndexByClsf(0x10, 0x2345, kUs, &index), -1);
  EXPECT_EQ(index, 0xFFFFFFFFu);
  ASSERT_EQ(qos_intDb_DeleteActivePhsEntry(0x10, 0x12345, 3, kUs), 0);
  ASSERT_EQ(qos_intDb_DeleteActivePhsEntryByIndex(2, kUs), 0);
  EXPECT_EQ(phs(kPhsUs, 2), (std::vector<uint32_t>{0, 0, 0, 0, 0}));
  EXPECT_EQ(qos_intDb_GetActivePhsIndex(0x10, kUs, &index), 0);
  EXPECT_EQ(index, 1u);
  EXPECT_EQ(qos_intDb_GetActivePhsIndexByClsf(0x10, 0x12345, kDs, &index), 0);
  EXPECT_EQ(index, 0u);
  for (uint32_t sf : {0x20u, 0x21u}) ASSERT_EQ(qos_intDb_AddActivePhsEntry(sf, 1, 1, kUs), 0);
  EXPECT_EQ(phs(kPhsUs, 0)[1], 0x20u);
  EXPECT_EQ(phs(kPhsUs, 2)[1], 0x21u);
  EXPECT_TRUE(logs.records().empty());
}

TEST_F(ActivePhs, DsidEntries) {
  ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 2, 255, kDs), 0);
  for (uint32_t dsid = 0xABCDE; dsid < 0xABCDE + 31; ++dsid) ASSERT_EQ(qos_intDb_AddActivePhsEntryByDsid(dsid), 0);
  ASSERT_EQ(qos_intDb_AddActivePhsEntryByDsid(0xABCDE), 0);
  EXPECT_EQ(phs(kPhsDs, 1), (std::vector<uint32_t>{1, 0xFFFFFFFF, 0xFFFFFFFF, 255, 0xABCDE}));
  EXPECT_EQ(phs(kPhsUs, 0)[0], 0u);
  auto before = snapshot();
  EXPECT_EQ(qos_intDb_AddActivePhsEntryByDsid(0x40), -1);
  expectLog(logs, 1, "qos_intDb_AddActivePhsEntryByDsid: PHS active DB is full. Cannot add new entry (DSID = 0x40)");
  EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});

  uint32_t index = 0, sfId = 9;
  uint16_t clsfId = 9;
  uint8_t p = 9;
  EXPECT_EQ(qos_intDb_GetActivePhsIndexByDsid(0xABCDF, &index), 0);
  EXPECT_EQ(index, 2u);
  EXPECT_EQ(qos_intDb_GetActivePhsInfo(1, kDs, &sfId, &clsfId, &p), -1);
  EXPECT_EQ((std::vector<uint32_t>{sfId, clsfId, p}), (std::vector<uint32_t>{9, 9, 9}));
  // Only all three keys together make a DSID entry.
  ASSERT_EQ(qos_intDb_SetActivePhsSfid(0, kDs, 0xFFFFFFFF), 0);
  EXPECT_EQ(qos_intDb_GetActivePhsInfo(0, kDs, &sfId, &clsfId, &p), 0);
  EXPECT_EQ((std::vector<uint32_t>{sfId, clsfId, p}), (std::vector<uint32_t>{0xFFFFFFFF, 2, 255}));
  // Retargeting a free row writes it and leaves it free.
  ASSERT_EQ(qos_intDb_SetActivePhsSfid(31, kUs, 0x31), 0);
  EXPECT_EQ(phs(kPhsUs, 31), (std::vector<uint32_t>{0, 0x31, 0, 0, 0}));
  EXPECT_EQ(qos_intDb_GetActivePhsInfo(31, kUs, &sfId, &clsfId, &p), -1);
  EXPECT_TRUE(logs.records().empty());
}

TEST_F(ActivePhs, BadArgumentsWriteNothing) {
  ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 2, 3, kUs), 0);
  auto before = snapshot();
  uint32_t v = 9;
  uint16_t clsfId = 9;
  uint8_t p = 9;
  struct Case {
    int32_t result, expected;
    int level;
    std::string text;  // empty: no message
  } cases[] = {
      {qos_intDb_AddActivePhsEntry(0, 2, 3, 2), -1, 1,
       "qos_intDb_AddActivePhsEntry(): Incorrect input parameters SFID=0x0, ClsfId=2, PHSI=0x3"},
      {qos_intDb_AddActivePhsEntry(0x10, 2, 0, 7), -1, 1,
       "qos_intDb_AddActivePhsEntry(): Incorrect input parameters SFID=0x10, ClsfId=2, PHSI=0x0"},
      {qos_intDb_AddActivePhsEntry(0x10, 2, 3, 0), -1, 1, "qos_intDb_AddActivePhsEntry(): Incorrect direction value 0"},
      {qos_intDb_DeleteActivePhsEntry(0x10, 0, 3, 2), -1, 1,
       "qos_intDb_DeleteActivePhsEntry: Incorrect input parameters SFID=0x10, ClsfId=0, PHSI=0x3"},
      {qos_intDb_DeleteActivePhsEntry(0x10, 2, 3, 3), -1, 1, "qos_intDb_DeleteActivePhsEntry: Incorrect direction value 3"},
      {qos_intDb_DeleteActivePhsEntry(0x10, 2, 3, 1), 0, 2,
       "qos_intDb_DeleteActivePhsEntry: PHS is not in active PHS DB (PHSI=0x3"},
      {qos_intDb_AddActivePhsEntryByDsid(0), -1, 1, "qos_intDb_AddActivePhsEntryByDsid: Incorrect input parameter DSID = 0x0"},
      {qos_intDb_DeleteActivePhsEntryByIndex(-1, 2), -1, 1,
       "qos_intDb_DeleteActivePhsEntryByIndex: ---> PHS active DB index -1 is out of range"},
      {qos_intDb_DeleteActivePhsEntryByIndex(34, 2), -1, 1,
       "qos_intDb_DeleteActivePhsEntryByIndex: ---> PHS active DB index 34 is out of range"},
      {qos_intDb_DeleteActivePhsEntryByIndex(33, 2), -1, 1,
       "qos_intDb_DeleteActivePhsEntryByIndex(): Incorrect DB index value 33 for delete operation; the entry is not valid"},
      {qos_intDb_DeleteActivePhsEntryByIndex(32, 2), -1, 1,
       "qos_intDb_DeleteActivePhsEntryByIndex(): Incorrect DB index value 32 for delete operation; the entry is not valid"},
      {qos_intDb_DeleteActivePhsEntryByIndex(0, 1), -1, 1,
       "qos_intDb_DeleteActivePhsEntryByIndex(): Incorrect DB index value 0 for delete operation; the entry is not valid"},
      {qos_intDb_DeleteActivePhsEntryByIndex(0, 4), -1, 1, "qos_intDb_DeleteActivePhsEntryByIndex(): Incorrect direction value 4"},
      {qos_intDb_GetActivePhsIndex(0x10, 3, &v), -1, 1, "qos_intDb_GetActivePhsIndex(): Incorrect direction value 3"},
      {qos_intDb_GetActivePhsIndexByClsf(0x10, 2, 0, &v), -1, 1, "qos_intDb_GetActivePhsIndexByClsf(): Incorrect direction value 0"},
      {qos_intDb_GetActivePhsIndex(0x10, 2, nullptr), -1, 1, ""},
      {qos_intDb_GetActivePhsIndexByClsf(0x10, 2, 2, nullptr), -1, 1, ""},
      {qos_intDb_GetActivePhsIndexByDsid(1, nullptr), -1, 1, ""},
      {qos_intDb_GetActivePhsInfo(0, 3, &v, &clsfId, &p), -1, 1, "Incorrect direction value 3"},
      {qos_intDb_SetActivePhsSfid(0, 0, 0x77), -1, 1, "Incorrect direction value 0"},
  };
  std::vector<std::pair<int, std::string>> expected, logged;
  for (const auto& c : cases) {
    EXPECT_EQ(c.result, c.expected) << c.text;
    if (!c.text.empty()) expected.emplace_back(c.level, c.text);
  }
  for (const auto& r : logs.records()) logged.emplace_back(r.level, r.text);
  EXPECT_EQ(logged, expected);
  logs.clear();
  for (int32_t i : {-1, 32, 33, 34}) {
    std::string text = "activePhsDbIndex = " + std::to_string(i) + " too large, max = 31";
    EXPECT_EQ(qos_intDb_GetActivePhsInfo(i, 2, &v, &clsfId, &p), -1);
    EXPECT_EQ(qos_intDb_SetActivePhsSfid(i, 1, 0x77), -1);
    EXPECT_EQ(logs.texts(), (std::vector<std::string>{text, text}));
    logs.clear();
  }
  EXPECT_EQ(qos_intDb_GetActivePhsInfo(0, 2, &v, nullptr, &p), -1);
  ASSERT_EQ(logs.records().size(), 1u);
  EXPECT_EQ(logs.records()[0].text.rfind("NULL outpt pointer : sfId == 0x", 0), 0u);
  EXPECT_NE(logs.records()[0].text.find(", clsfrId == (nil), phsId == 0x"), std::string::npos);
  EXPECT_EQ(v, 0xFFFFFFFFu);  // left by the failed index lookups only
  EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});
}

TEST_F(ActivePhs, Print) {
  ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 0x12345, 3, kUs), 0);
  ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x11, 2, 4, kUs), 0);
  ASSERT_EQ(qos_intDb_DeleteActivePhsEntryByIndex(0, kUs), 0);
  ASSERT_EQ(qos_intDb_AddActivePhsEntryByDsid(0x99), 0);
  EXPECT_EQ(captureStdout([] { EXPECT_EQ(qos_intDb_PrintActivePhsDB(), 0); }),
            "\n   Active upstream PHS internal data base \n\n"
            "DB Idx=1    SFID=0x11        ClsfID=0x2  PHSI=0x4 Row status=1 \n"
            "\n   Active downstream PHS internal data base \n\n"
            "DB Idx=0    SFID=0xffffffff  ClsfID=0xffffffff  PHSI=0xff Row status=1 \n");
}

}  // namespace
}  // namespace qostest
