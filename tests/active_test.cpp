// active_test.cpp - the active upstream flow table (fill, release order,
// adds and deletes) and the active PHS tables of both directions.
#include "support/fixture.h"

namespace qostest {
namespace {

constexpr std::size_t kStats = 16640;
constexpr std::size_t kActive = 21460;
constexpr std::size_t kPhsUs = 22228;
constexpr std::size_t kPhsDs = 22908;

// A flow row written in place; the scanned range grows to cover it.
void putFlow(int row, uint32_t state, uint32_t sfId, uint16_t ref, uint8_t direction, uint8_t paramSet) {
  std::size_t o = 80u * row;
  put<uint32_t>(o, state);
  put<uint32_t>(o + 4, sfId);
  put<uint16_t>(o + 8, ref);
  put<uint8_t>(o + 10, direction);
  put<uint8_t>(o + 24, paramSet);
  if (row > at<int32_t>(kStats + 8)) put<int32_t>(kStats + 8, row);
}
void putActiveUs(int row, uint32_t sfId, uint16_t ref) {
  putFlow(row, QOS_SF_OPERATIONAL, sfId, ref, QOS_DIR_UPSTREAM, QOS_PARAMSET_ACTIVE | QOS_PARAMSET_ADMITTED);
}

struct ActiveRow {
  uint32_t status, sfId;
  int32_t releaseOrder;
  bool operator==(const ActiveRow& o) const {
    return status == o.status && sfId == o.sfId && releaseOrder == o.releaseOrder;
  }
};
ActiveRow activeRow(int i) {
  return {at<uint32_t>(kActive + 12 * i), at<uint32_t>(kActive + 12 * i + 4), at<int32_t>(kActive + 12 * i + 8)};
}
std::vector<uint32_t> activeSfIds(int rows) {
  std::vector<uint32_t> out;
  for (int i = 0; i < rows; ++i) out.push_back(activeRow(i).sfId);
  return out;
}
uint32_t activeNumber() { return at<uint32_t>(kStats + 44); }
uint32_t activeExtra() { return at<uint32_t>(kStats + 40); }
uint16_t usPrimaryRef() { return at<uint16_t>(kStats + 48); }

std::vector<uint8_t> phsRow(std::size_t table, int i) {
  uint8_t* p = region() + table + 20 * i;
  return std::vector<uint8_t>(p, p + 20);
}
std::vector<uint8_t> phsBytes(uint32_t status, uint32_t sfId, uint32_t clsfId, uint8_t phsi, uint32_t dsid) {
  std::vector<uint8_t> b(20, 0);
  std::memcpy(&b[0], &status, 4);
  std::memcpy(&b[4], &sfId, 4);
  std::memcpy(&b[8], &clsfId, 4);
  b[12] = phsi;
  std::memcpy(&b[16], &dsid, 4);
  return b;
}

void expectOneLog(const LogCapture& logs, int level, const std::string& function, const std::string& text) {
  ASSERT_EQ(logs.records().size(), 1u) << text;
  EXPECT_EQ(logs.records()[0].level, level);
  EXPECT_EQ(logs.records()[0].module, 24);
  EXPECT_EQ(logs.records()[0].function, function);
  EXPECT_EQ(logs.records()[0].text, text);
}

// ---- Active upstream flow table: fill ----------------------------------

using ActiveSf = StoreTest;

TEST_F(ActiveSf, FillPutsThePrimaryFlowFirst) {
  struct Flow {
    int row;
    uint32_t state, sfId;
    uint16_t ref;
    uint8_t direction, paramSet;
  };
  const uint8_t act = QOS_PARAMSET_ACTIVE, us = QOS_DIR_UPSTREAM;
  struct Case {
    const char* name;
    uint16_t primaryBefore;
    std::vector<Flow> flows;
    std::vector<uint32_t> expected;
    uint16_t primaryAfter;
  } cases[] = {
      {"smallest ref, lowest row of equals", 0, {{0, 1, 0xA, 5, us, act}, {1, 1, 0xB, 3, us, act}, {2, 1, 0xC, 3, us, act}},
       {0xB, 0xA, 0xC}, 3},
      {"named primary wins over smaller ref", 5, {{0, 1, 0xA, 2, us, act}, {1, 1, 0xB, 5, us, act}, {2, 1, 0xC, 9, us, act}},
       {0xB, 0xA, 0xC}, 5},
      {"named primary absent: smallest ref", 7, {{0, 1, 0xA, 4, us, act}, {1, 1, 0xB, 2, us, act}}, {0xB, 0xA}, 2},
      {"named primary not qualifying", 4,
       {{0, 1, 0xA, 4, QOS_DIR_DOWNSTREAM, act}, {1, 1, 0xB, 6, us, act}, {2, 1, 0xC, 8, us, act}}, {0xB, 0xC}, 6},
      {"ref 65535 is never primary", 0, {{0, 1, 0xA, 0xFFFF, us, act}, {1, 1, 0xB, 0xFFFE, us, act}}, {0xB, 0xA}, 0xFFFE},
      {"only operational active upstream flows",
       0,
       {{0, 2, 0xA, 1, us, act},
        {1, 7, 0xB, 1, us, act},
        {2, 1, 0xC, 1, us, QOS_PARAMSET_ADMITTED},
        {3, 1, 0xD, 1, QOS_DIR_DOWNSTREAM, act},
        {4, 1, 0xE, 9, us, act | QOS_PARAMSET_PROVISIONED},
        {5, 1, 0xF, 8, us, act}},
       {0xF, 0xE},
       8},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_EQ(qos_IntDb_Reset(), 0);
    put<uint16_t>(kStats + 48, c.primaryBefore);
    for (const auto& f : c.flows) putFlow(f.row, f.state, f.sfId, f.ref, f.direction, f.paramSet);
    logs.clear();
    ASSERT_EQ(qos_intDb_FillActiveUsSfTable(), 0);
    int n = static_cast<int>(c.expected.size());
    EXPECT_EQ(activeSfIds(n), c.expected);
    for (int i = 0; i < n; ++i) EXPECT_EQ(activeRow(i), (ActiveRow{1, c.expected[i], 0}));
    EXPECT_EQ(activeRow(n), (ActiveRow{0, 0, 1}));
    EXPECT_EQ(usPrimaryRef(), c.primaryAfter);
    EXPECT_EQ(activeNumber(), static_cast<uint32_t>(n));
    EXPECT_EQ(activeExtra(), static_cast<uint32_t>(n - 1));
    EXPECT_TRUE(logs.records().empty());
  }
}

TEST_F(ActiveSf, FillWithoutActiveUpstreamFlowChangesNothing) {
  putFlow(0, QOS_SF_OPERATIONAL, 0xA, 1, QOS_DIR_DOWNSTREAM, QOS_PARAMSET_ACTIVE);
  putFlow(1, QOS_SF_OPERATIONAL, 0xB, 0xFFFF, QOS_DIR_UPSTREAM, QOS_PARAMSET_ACTIVE);
  putActiveUs(2, 0xC, 1);
  put<int32_t>(kStats + 8, 1);  // row 2 lies beyond the scanned range
  put<uint16_t>(kStats + 48, 9);
  auto before = snapshot();
  EXPECT_EQ(qos_intDb_FillActiveUsSfTable(), -1);
  expectOneLog(logs, 1, "qos_intDb_FillActiveUsSfTable",
               "QOS: No active US Service Flow (cannot find Ref Id of primary SF)");
  EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});
}

TEST_F(ActiveSf, FillStopsAtThirtyTwoRows) {
  for (int i = 0; i < 34; ++i) putActiveUs(i, 0x100 + i, static_cast<uint16_t>(40 - i));
  ASSERT_EQ(qos_intDb_FillActiveUsSfTable(), 0);
  std::vector<uint32_t> expected{0x121};  // ref 7, the smallest
  for (int i = 0; i < 31; ++i) expected.push_back(0x100 + i);
  EXPECT_EQ(activeSfIds(32), expected);
  EXPECT_EQ(activeRow(32), (ActiveRow{0, 0, 1}));
  EXPECT_EQ(activeNumber(), 32u);
  EXPECT_EQ(activeExtra(), 31u);
  expectOneLog(logs, 1, "qos_intDb_FillActiveUsSfTable",
               "qos_intDb_FillActiveUsSfTable: Active SF DB is full. Only 32 of 34 active US Service Flows are entered");
}

TEST_F(ActiveSf, FillLeavesRowsAfterTheLastOneAlone) {
  put<uint32_t>(kActive + 12 * 3, 1);
  put<uint32_t>(kActive + 12 * 3 + 4, 0x77);
  putActiveUs(0, 0xA, 1);
  putActiveUs(1, 0xB, 2);
  ASSERT_EQ(qos_intDb_FillActiveUsSfTable(), 0);
  EXPECT_EQ(activeRow(2), (ActiveRow{0, 0, 1}));
  EXPECT_EQ(activeRow(3), (ActiveRow{1, 0x77, 1}));
  EXPECT_EQ(activeNumber(), 2u);
}

// ---- Active upstream flow table: release order -------------------------

// Adds of the flows in SF rows 100.. (any non-empty state counts).
void addFlows(std::initializer_list<uint32_t> sfIds) {
  for (uint32_t sfId : sfIds) ASSERT_EQ(qos_intDb_AddActiveUsSfEntry(sfId), 0) << std::hex << sfId;
}

TEST_F(ActiveSf, AddsTakeTheRowReleasedLongestAgo) {
  for (int i = 0; i < 32; ++i) putActiveUs(i, 0x100 + i, static_cast<uint16_t>(i + 1));
  for (int i = 0; i < 6; ++i) putFlow(100 + i, QOS_SF_ADDING + i, 0xA0 + i, 0, QOS_DIR_UPSTREAM, QOS_PARAMSET_ACTIVE);
  ASSERT_EQ(qos_intDb_FillActiveUsSfTable(), 0);

  for (uint32_t sfId : {0x103u, 0x101u, 0x114u}) ASSERT_EQ(qos_intDb_DeleteActiveUsSfEntry(sfId), 0);
  EXPECT_EQ(activeRow(3), (ActiveRow{0, 0, 1}));
  EXPECT_EQ(activeRow(1), (ActiveRow{0, 0, 2}));
  EXPECT_EQ(activeRow(20), (ActiveRow{0, 0, 3}));
  EXPECT_EQ(activeNumber(), 29u);
  EXPECT_EQ(activeExtra(), 28u);

  addFlows({0xA0, 0xA1});  // rows 3 then 1
  EXPECT_EQ(activeRow(3), (ActiveRow{1, 0xA0, 0}));
  EXPECT_EQ(activeRow(1), (ActiveRow{1, 0xA1, 0}));
  ASSERT_EQ(qos_intDb_DeleteActiveUsSfEntry(0xA0), 0);  // row 3, after row 20
  EXPECT_EQ(activeRow(3), (ActiveRow{0, 0, 4}));
  ASSERT_EQ(qos_intDb_DeleteActiveUsSfEntry(0x100), 0);  // the primary frees row 0 like any other
  EXPECT_EQ(activeRow(0), (ActiveRow{0, 0, 5}));
  EXPECT_EQ(usPrimaryRef(), 1);

  addFlows({0xA2, 0xA3, 0xA4});
  EXPECT_EQ(activeSfIds(32)[20], 0xA2u);
  EXPECT_EQ(activeSfIds(32)[3], 0xA3u);
  EXPECT_EQ(activeSfIds(32)[0], 0xA4u);
  EXPECT_EQ(activeNumber(), 32u);
  EXPECT_EQ(activeExtra(), 31u);

  logs.clear();
  auto before = snapshot();
  EXPECT_EQ(qos_intDb_AddActiveUsSfEntry(0xA5), -1);
  expectOneLog(logs, 1, "qos_intDb_AddActiveUsSfEntry",
               "qos_intDb_AddActiveUsSfEntry: Active SF DB is full. SFID=0xa5 cannot be added");
  EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});
}

TEST_F(ActiveSf, AfterResetAddsGoInRowOrderThenByRelease) {
  for (int i = 0; i < 5; ++i) putActiveUs(i, 0x10 + i, 0);
  addFlows({0x10, 0x11, 0x12});
  EXPECT_EQ(activeSfIds(3), (std::vector<uint32_t>{0x10, 0x11, 0x12}));
  ASSERT_EQ(qos_intDb_DeleteActiveUsSfEntry(0x11), 0);
  EXPECT_EQ(activeRow(1), (ActiveRow{0, 0, 2}));  // one more than the free rows' 1
  addFlows({0x13, 0x14});  // rows 3 and 4 were released before row 1
  EXPECT_EQ(activeSfIds(5), (std::vector<uint32_t>{0x10, 0, 0x12, 0x13, 0x14}));
  EXPECT_EQ(activeNumber(), 4u);
  EXPECT_EQ(activeExtra(), 4u);  // adds and deletes move both counts alike
  // A negative release order (written by another process) is taken first.
  put<int32_t>(kActive + 12 * 30 + 8, -5);
  addFlows({0x11});
  EXPECT_EQ(activeRow(30), (ActiveRow{1, 0x11, 0}));
}

TEST_F(ActiveSf, RefusedAddsAndDeletesWriteNothing) {
  putFlow(0, QOS_SF_OPERATIONAL, 0xD0, 1, QOS_DIR_DOWNSTREAM, QOS_PARAMSET_ACTIVE);
  putFlow(1, QOS_SF_OPERATIONAL, 0xD1, 1, QOS_DIR_UPSTREAM, QOS_PARAMSET_ADMITTED | QOS_PARAMSET_PROVISIONED);
  putFlow(2, QOS_SF_EMPTY, 0xD2, 1, QOS_DIR_UPSTREAM, QOS_PARAMSET_ACTIVE);
  putActiveUs(3, 0xD3, 1);
  putActiveUs(5, 0xD5, 1);
  put<int32_t>(kStats + 8, 4);  // row 5 lies beyond the scanned range
  addFlows({0xD3});
  logs.clear();
  auto before = snapshot();
  for (uint32_t sfId : {0u, 0xD0u, 0xD1u, 0xD2u, 0xD5u, 0xEEu}) {
    EXPECT_EQ(qos_intDb_AddActiveUsSfEntry(sfId), -1) << sfId;
  }
  EXPECT_EQ(qos_intDb_AddActiveUsSfEntry(0xD3), 0);  // already there
  EXPECT_TRUE(logs.records().empty());
  EXPECT_EQ(qos_intDb_DeleteActiveUsSfEntry(0xD0), -1);
  expectOneLog(logs, 1, "qos_intDb_DeleteActiveUsSfEntry",
               "qos_intDb_DeleteActiveUsSfEntry: SFID=0xd0 is not found into active SF DB");
  EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});
}

TEST_F(ActiveSf, IndexLookupsAndReplace) {
  for (int i = 0; i < 32; ++i) putActiveUs(i, 0x100 + i, static_cast<uint16_t>(i + 1));
  ASSERT_EQ(qos_intDb_FillActiveUsSfTable(), 0);
  ASSERT_EQ(qos_intDb_DeleteActiveUsSfEntry(0x105), 0);
  put<uint32_t>(kActive + 12 * 32, 1);  // a wild row above the entries
  put<uint32_t>(kActive + 12 * 32 + 4, 0x999);
  logs.clear();
  auto before = snapshot();

  uint32_t v = 7;
  EXPECT_EQ(qos_intDb_GetActiveSfIndexBySfid(0x11F, &v), 0);
  EXPECT_EQ(v, 31u);
  EXPECT_EQ(qos_intDb_GetActiveSfId(31, &v), 0);
  EXPECT_EQ(v, 0x11Fu);
  v = 7;
  struct Miss {
    const char* name;
    int32_t result;
  } misses[] = {
      {"by SFID, deleted", qos_intDb_GetActiveSfIndexBySfid(0x105, &v)},
      {"by SFID, beyond row 31", qos_intDb_GetActiveSfIndexBySfid(0x999, &v)},
      {"by SFID, NULL", qos_intDb_GetActiveSfIndexBySfid(0x100, nullptr)},
      {"free row", qos_intDb_GetActiveSfId(5, &v)},
      {"NULL", qos_intDb_GetActiveSfId(0, nullptr)},
      {"set free row", qos_intDb_SetActiveSfId(5, 0x55)},
  };
  for (const auto& m : misses) EXPECT_EQ(m.result, -1) << m.name;
  for (uint32_t index : {32u, 33u, 34u, 40u, 0xFFFFFFFFu}) {
    EXPECT_EQ(qos_intDb_GetActiveSfId(index, &v), -1) << index;
    EXPECT_EQ(qos_intDb_SetActiveSfId(index, 0x55), -1) << index;
  }
  EXPECT_EQ(v, 7u);
  EXPECT_TRUE(logs.records().empty());
  EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});

  EXPECT_EQ(qos_intDb_SetActiveSfId(31, 0x12345678), 0);
  EXPECT_EQ(activeRow(31), (ActiveRow{1, 0x12345678, 0}));
  EXPECT_EQ(qos_intDb_GetActiveSfIndexBySfid(0x12345678, &v), 0);
  EXPECT_EQ(v, 31u);
}

TEST_F(ActiveSf, PrintListsRowsInUse) {
  putActiveUs(0, 0xA, 2);
  putActiveUs(1, 0x1234ABCD, 1);
  ASSERT_EQ(qos_intDb_FillActiveUsSfTable(), 0);
  ASSERT_EQ(qos_intDb_DeleteActiveUsSfEntry(0x1234ABCD), 0);
  putActiveUs(2, 0x1234ABCE, 3);
  addFlows({0x1234ABCE});
  int32_t result = 0;
  std::string out = captureStdout([&] { result = qos_intDb_PrintActiveSfDB(); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(out,
            "\n   Active upstream Service Flow internal data base \n\n"
            "DB Idx=1    SFID=0xa         Row status=1 \n"
            "DB Idx=2    SFID=0x1234abce  Row status=1 \n");
  EXPECT_TRUE(logs.records().empty());
}

// ---- Active PHS tables ---------------------------------------------------

using ActivePhs = StoreTest;

TEST_F(ActivePhs, RuleEntriesPerDirection) {
  ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 0x12345, 3, QOS_DIR_UPSTREAM), 0);
  ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 0x12345, 3, QOS_DIR_UPSTREAM), 0);
  ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 0x12345, 3, QOS_DIR_DOWNSTREAM), 0);
  ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 0x12345, 4, QOS_DIR_UPSTREAM), 0);
  EXPECT_EQ(phsRow(kPhsUs, 0), phsBytes(1, 0x10, 0x12345, 3, 0));
  EXPECT_EQ(phsRow(kPhsUs, 1), phsBytes(1, 0x10, 0x12345, 4, 0));
  EXPECT_EQ(phsRow(kPhsUs, 2), phsBytes(0, 0, 0, 0, 0));
  EXPECT_EQ(phsRow(kPhsDs, 0), phsBytes(1, 0x10, 0x12345, 3, 0));
  EXPECT_EQ(phsRow(kPhsDs, 1), phsBytes(0, 0, 0, 0, 0));

  uint32_t sfId = 0;
  uint16_t clsfId = 0;
  uint8_t phsi = 0;
  EXPECT_EQ(qos_intDb_GetActivePhsInfo(1, QOS_DIR_UPSTREAM, &sfId, &clsfId, &phsi), 0);
  EXPECT_EQ(sfId, 0x10u);
  EXPECT_EQ(clsfId, 0x2345);
  EXPECT_EQ(phsi, 4);

  uint32_t index = 7;
  EXPECT_EQ(qos_intDb_GetActivePhsIndex(0x10, QOS_DIR_DOWNSTREAM, &index), 0);
  EXPECT_EQ(index, 0u);
  EXPECT_EQ(qos_intDb_GetActivePhsIndexByClsf(0x10, 0x12345, QOS_DIR_UPSTREAM, &index), 0);
  EXPECT_EQ(index, 0u);
  EXPECT_EQ(qos_intDb_GetActivePhsIndexByClsf(0x10, 0x2345, QOS_DIR_UPSTREAM, &index), -1);
  EXPECT_EQ(index, 0xFFFFFFFFu);

  // Deleting frees the row for the next add; the other direction keeps its entry.
  ASSERT_EQ(qos_intDb_DeleteActivePhsEntry(0x10, 0x12345, 3, QOS_DIR_UPSTREAM), 0);
  EXPECT_EQ(phsRow(kPhsUs, 0), phsBytes(0, 0, 0, 0, 0));
  EXPECT_EQ(qos_intDb_GetActivePhsIndex(0x10, QOS_DIR_UPSTREAM, &index), 0);
  EXPECT_EQ(index, 1u);
  ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x20, 1, 1, QOS_DIR_UPSTREAM), 0);
  EXPECT_EQ(phsRow(kPhsUs, 0), phsBytes(1, 0x20, 1, 1, 0));
  ASSERT_EQ(qos_intDb_DeleteActivePhsEntryByIndex(1, QOS_DIR_UPSTREAM), 0);
  EXPECT_EQ(phsRow(kPhsUs, 1), phsBytes(0, 0, 0, 0, 0));
  EXPECT_EQ(phsRow(kPhsDs, 0), phsBytes(1, 0x10, 0x12345, 3, 0));
  EXPECT_TRUE(logs.records().empty());
}

TEST_F(ActivePhs, EachDirectionHoldsThirtyTwoEntries) {
  for (uint8_t phsi = 1; phsi <= 32; ++phsi) ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 1, phsi, QOS_DIR_UPSTREAM), 0);
  for (uint32_t dsid = 1; dsid <= 31; ++dsid) ASSERT_EQ(qos_intDb_AddActivePhsEntryByDsid(dsid), 0);
  auto before = snapshot();
  EXPECT_EQ(qos_intDb_AddActivePhsEntry(0x10, 1, 33, QOS_DIR_UPSTREAM), -1);
  expectOneLog(logs, 1, "qos_intDb_AddActivePhsEntry",
               "qos_intDb_AddActivePhsEntry(): PHS active DB is full. Cannot add new entry (PHSI=0x21)");
  EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});
  EXPECT_EQ(qos_intDb_AddActivePhsEntry(0x10, 1, 1, QOS_DIR_UPSTREAM), 0);  // present: no new row needed

  ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 1, 1, QOS_DIR_DOWNSTREAM), 0);  // row 31 of downstream
  EXPECT_EQ(phsRow(kPhsDs, 31), phsBytes(1, 0x10, 1, 1, 0));
  logs.clear();
  before = snapshot();
  EXPECT_EQ(qos_intDb_AddActivePhsEntryByDsid(0x40), -1);
  expectOneLog(logs, 1, "qos_intDb_AddActivePhsEntryByDsid",
               "qos_intDb_AddActivePhsEntryByDsid: PHS active DB is full. Cannot add new entry (DSID = 0x40)");
  EXPECT_EQ(qos_intDb_AddActivePhsEntryByDsid(31), 0);
  EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});
  EXPECT_EQ(phsRow(kPhsUs, 32), phsBytes(0, 0, 0, 0, 0));
  EXPECT_EQ(phsRow(kPhsDs, 33), phsBytes(0, 0, 0, 0, 0));
}

TEST_F(ActivePhs, DsidEntries) {
  ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 2, 3, QOS_DIR_DOWNSTREAM), 0);
  ASSERT_EQ(qos_intDb_AddActivePhsEntryByDsid(0xABCDE), 0);
  ASSERT_EQ(qos_intDb_AddActivePhsEntryByDsid(0xABCDE), 0);
  EXPECT_EQ(phsRow(kPhsDs, 1), phsBytes(1, 0xFFFFFFFF, 0xFFFFFFFF, 255, 0xABCDE));
  EXPECT_EQ(phsRow(kPhsDs, 2), phsBytes(0, 0, 0, 0, 0));
  EXPECT_EQ(phsRow(kPhsUs, 0), phsBytes(0, 0, 0, 0, 0));

  uint32_t index = 0;
  EXPECT_EQ(qos_intDb_GetActivePhsIndexByDsid(0xABCDE, &index), 0);
  EXPECT_EQ(index, 1u);
  EXPECT_EQ(qos_intDb_GetActivePhsIndexByDsid(0x5, &index), -1);
  EXPECT_EQ(index, 0xFFFFFFFFu);

  uint32_t sfId = 9;
  uint16_t clsfId = 9;
  uint8_t phsi = 9;
  EXPECT_EQ(qos_intDb_GetActivePhsInfo(1, QOS_DIR_DOWNSTREAM, &sfId, &clsfId, &phsi), -1);
  EXPECT_EQ(qos_intDb_GetActivePhsInfo(2, QOS_DIR_DOWNSTREAM, &sfId, &clsfId, &phsi), -1);  // free
  EXPECT_EQ(sfId, 9u);
  EXPECT_EQ(clsfId, 9);
  EXPECT_EQ(phsi, 9);
  EXPECT_TRUE(logs.records().empty());
  ASSERT_EQ(qos_intDb_DeleteActivePhsEntryByIndex(1, QOS_DIR_DOWNSTREAM), 0);
  EXPECT_EQ(phsRow(kPhsDs, 1), phsBytes(0, 0, 0, 0, 0));
}

TEST_F(ActivePhs, BadArgumentsWriteNothing) {
  ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 2, 3, QOS_DIR_UPSTREAM), 0);
  logs.clear();
  auto before = snapshot();
  uint32_t sfId = 9, index = 9;
  uint16_t clsfId = 9;
  uint8_t phsi = 9;
  struct Case {
    const char* name;
    std::function<int32_t()> call;
    int32_t result;
    int level;
    std::string text;  // empty: no message
  } cases[] = {
      {"add SFID 0", [] { return qos_intDb_AddActivePhsEntry(0, 2, 3, 2); }, -1, 1,
       "qos_intDb_AddActivePhsEntry(): Incorrect input parameters SFID=0x0, ClsfId=2, PHSI=0x3"},
      {"add PHSI 0 before direction", [] { return qos_intDb_AddActivePhsEntry(0x10, 2, 0, 7); }, -1, 1,
       "qos_intDb_AddActivePhsEntry(): Incorrect input parameters SFID=0x10, ClsfId=2, PHSI=0x0"},
      {"add direction 0", [] { return qos_intDb_AddActivePhsEntry(0x10, 2, 3, 0); }, -1, 1,
       "qos_intDb_AddActivePhsEntry(): Incorrect direction value 0"},
      {"delete classifier 0", [] { return qos_intDb_DeleteActivePhsEntry(0x10, 0, 3, 2); }, -1, 1,
       "qos_intDb_DeleteActivePhsEntry: Incorrect input parameters SFID=0x10, ClsfId=0, PHSI=0x3"},
      {"delete direction 3", [] { return qos_intDb_DeleteActivePhsEntry(0x10, 2, 3, 3); }, -1, 1,
       "qos_intDb_DeleteActivePhsEntry: Incorrect direction value 3"},
      {"delete absent", [] { return qos_intDb_DeleteActivePhsEntry(0x10, 2, 3, 1); }, 0, 2,
       "qos_intDb_DeleteActivePhsEntry: PHS is not in active PHS DB (PHSI=0x3"},
      {"dsid 0", [] { return qos_intDb_AddActivePhsEntryByDsid(0); }, -1, 1,
       "qos_intDb_AddActivePhsEntryByDsid: Incorrect input parameter DSID = 0x0"},
      {"delete index -1", [] { return qos_intDb_DeleteActivePhsEntryByIndex(-1, 2); }, -1, 1,
       "qos_intDb_DeleteActivePhsEntryByIndex: ---> PHS active DB index -1 is out of range"},
      {"delete index 34", [] { return qos_intDb_DeleteActivePhsEntryByIndex(34, 2); }, -1, 1,
       "qos_intDb_DeleteActivePhsEntryByIndex: ---> PHS active DB index 34 is out of range"},
      {"delete index 33", [] { return qos_intDb_DeleteActivePhsEntryByIndex(33, 2); }, -1, 1,
       "qos_intDb_DeleteActivePhsEntryByIndex(): Incorrect DB index value 33 for delete operation; the entry is not valid"},
      {"delete index 32", [] { return qos_intDb_DeleteActivePhsEntryByIndex(32, 1); }, -1, 1,
       "qos_intDb_DeleteActivePhsEntryByIndex(): Incorrect DB index value 32 for delete operation; the entry is not valid"},
      {"delete free row", [] { return qos_intDb_DeleteActivePhsEntryByIndex(0, 1); }, -1, 1,
       "qos_intDb_DeleteActivePhsEntryByIndex(): Incorrect DB index value 0 for delete operation; the entry is not valid"},
      {"delete by index direction 4", [] { return qos_intDb_DeleteActivePhsEntryByIndex(0, 4); }, -1, 1,
       "qos_intDb_DeleteActivePhsEntryByIndex(): Incorrect direction value 4"},
      {"index direction 3", [&] { return qos_intDb_GetActivePhsIndex(0x10, 3, &index); }, -1, 1,
       "qos_intDb_GetActivePhsIndex(): Incorrect direction value 3"},
      {"index by classifier direction 0", [&] { return qos_intDb_GetActivePhsIndexByClsf(0x10, 2, 0, &index); }, -1, 1,
       "qos_intDb_GetActivePhsIndexByClsf(): Incorrect direction value 0"},
      {"index NULL", [] { return qos_intDb_GetActivePhsIndex(0x10, 2, nullptr); }, -1, 1, ""},
      {"index by classifier NULL", [] { return qos_intDb_GetActivePhsIndexByClsf(0x10, 2, 2, nullptr); }, -1, 1, ""},
      {"index by DSID NULL", [] { return qos_intDb_GetActivePhsIndexByDsid(1, nullptr); }, -1, 1, ""},
      {"info direction 3", [&] { return qos_intDb_GetActivePhsInfo(0, 3, &sfId, &clsfId, &phsi); }, -1, 1,
       "Incorrect direction value 3"},
      {"set direction 0", [] { return qos_intDb_SetActivePhsSfid(0, 0, 0x77); }, -1, 1, "Incorrect direction value 0"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    logs.clear();
    EXPECT_EQ(c.call(), c.result);
    if (c.text.empty()) {
      EXPECT_TRUE(logs.records().empty());
    } else {
      ASSERT_EQ(logs.records().size(), 1u);
      EXPECT_EQ(logs.records()[0].text, c.text);
      EXPECT_EQ(logs.records()[0].level, c.level);
    }
    EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});
  }
  for (int32_t i : {-1, 32, 33, 34}) {
    SCOPED_TRACE(i);
    std::string text = "activePhsDbIndex = " + std::to_string(i) + " too large, max = 31";
    logs.clear();
    EXPECT_EQ(qos_intDb_GetActivePhsInfo(i, 2, &sfId, &clsfId, &phsi), -1);
    EXPECT_EQ(qos_intDb_SetActivePhsSfid(i, 1, 0x77), -1);
    EXPECT_EQ(logs.texts(), (std::vector<std::string>{text, text}));
  }
  logs.clear();
  EXPECT_EQ(qos_intDb_GetActivePhsInfo(0, 2, &sfId, nullptr, &phsi), -1);
  ASSERT_EQ(logs.records().size(), 1u);
  EXPECT_EQ(logs.records()[0].text.rfind("NULL outpt pointer : sfId == ", 0), 0u);
  EXPECT_NE(logs.records()[0].text.find(", clsfrId == (nil), phsId == "), std::string::npos);
  EXPECT_EQ(sfId, 9u);
  EXPECT_EQ(index, 0xFFFFFFFFu);
  EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});
}

TEST_F(ActivePhs, RetargetWritesAnyRowOfTheEntries) {
  ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 2, 3, QOS_DIR_DOWNSTREAM), 0);
  EXPECT_EQ(qos_intDb_SetActivePhsSfid(0, QOS_DIR_DOWNSTREAM, 0x30), 0);
  EXPECT_EQ(qos_intDb_SetActivePhsSfid(31, QOS_DIR_UPSTREAM, 0x31), 0);
  EXPECT_EQ(phsRow(kPhsDs, 0), phsBytes(1, 0x30, 2, 3, 0));
  EXPECT_EQ(phsRow(kPhsUs, 31), phsBytes(0, 0x31, 0, 0, 0));  // stays free
  uint32_t index = 0;
  EXPECT_EQ(qos_intDb_GetActivePhsIndex(0x31, QOS_DIR_UPSTREAM, &index), -1);
  ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x40, 1, 1, QOS_DIR_UPSTREAM), 0);
  EXPECT_EQ(phsRow(kPhsUs, 0), phsBytes(1, 0x40, 1, 1, 0));
  EXPECT_TRUE(logs.records().empty());
}

TEST_F(ActivePhs, PrintListsBothTables) {
  ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 0x12345, 3, QOS_DIR_UPSTREAM), 0);
  ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x11, 2, 4, QOS_DIR_UPSTREAM), 0);
  ASSERT_EQ(qos_intDb_DeleteActivePhsEntryByIndex(0, QOS_DIR_UPSTREAM), 0);
  ASSERT_EQ(qos_intDb_AddActivePhsEntryByDsid(0x99), 0);
  int32_t result = 0;
  std::string out = captureStdout([&] { result = qos_intDb_PrintActivePhsDB(); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(out,
            "\n   Active upstream PHS internal data base \n\n"
            "DB Idx=1    SFID=0x11        ClsfID=0x2  PHSI=0x4 Row status=1 \n"
            "\n   Active downstream PHS internal data base \n\n"
            "DB Idx=0    SFID=0xffffffff  ClsfID=0xffffffff  PHSI=0xff Row status=1 \n");
}

}  // namespace
}  // namespace qostest
