// SPDX-License-Identifier: MIT
// active_test.cpp - the active upstream flow table (fill, release order,
// adds and deletes) and the active PHS tables of both directions.
#include <algorithm>

#include "support/fixture.h"

namespace qostest {
namespace {

constexpr uint8_t kUs = QOS_DIR_UPSTREAM, kDs = QOS_DIR_DOWNSTREAM, kAct = QOS_PARAMSET_ACTIVE;
using Row = std::vector<int64_t>;
using Rc = std::vector<int32_t>;  // results, in call order

// A flow row written in place; the scanned range grows to cover it.
void putFlow(int row, uint32_t state, uint32_t sfId, uint16_t ref, uint8_t direction = kUs, uint8_t paramSet = kAct) {
  qos::SfRow& r = store().sf[row];
  r.state = state, r.sfId = sfId, r.ref = ref, r.direction = direction, r.paramSetType = paramSet;
  store().stats.sfDbMaxIndex = std::max(store().stats.sfDbMaxIndex, row);
}
qos::QosIntDbStats& stats() { return store().stats; }
// An active row as {status, sfId, releaseOrder}; the counts as {number, extra number, primary ref}.
Row active(int i) {
  const qos::ActiveSfRow& r = store().activeSf[i];
  return {r.status, r.sfId, r.releaseOrder};
}
Row counts() { return {stats().activeSfNumber, stats().activeSfExtraNumber, stats().usPrimarySfRef}; }
// A PHS row as {status, sfId, clsfId, phsi, dsid}.
Row phs(uint8_t direction, int i) {
  const qos::ActivePhsRow& r = (direction == QOS_DIR_UPSTREAM ? store().phsUs : store().phsDs)[i];
  return {r.status, r.sfId, r.clsfId, r.phsi, r.dsid};
}

// The call answers -1, logs only `text` at level 1 and changes no byte.
void refused(LogCapture& logs, int32_t (*call)(uint32_t), uint32_t arg, const std::string& text) {
  logs.clear();
  auto before = snapshot();
  EXPECT_EQ(call(arg), -1) << text;
  EXPECT_EQ(logs.texts(), std::vector<std::string>{text});
  for (const auto& r : logs.records()) EXPECT_EQ(r.level, 1);
  EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});
  logs.clear();
}
// GetActivePhsInfo as {result, sfId, clsfId, phsi}, the outputs starting at 9; an index lookup as {result, index}.
Row info(int32_t i, uint8_t dir) {
  uint32_t sfId = 9;
  uint16_t clsfId = 9;
  uint8_t phsi = 9;
  int32_t rc = qos_intDb_GetActivePhsInfo(i, dir, &sfId, &clsfId, &phsi);
  return {rc, sfId, clsfId, phsi};
}
#define LOOKUP(call) ([&] { uint32_t index = 9; int32_t rc = call; return Row{rc, index}; }())
int32_t fill(uint32_t) { return qos_intDb_FillActiveUsSfTable(); }
int32_t addDsid(uint32_t dsid) { return qos_intDb_AddActivePhsEntryByDsid(dsid); }
int32_t addUsPhs(uint32_t phsi) { return qos_intDb_AddActivePhsEntry(0x10, 0x12345, static_cast<uint8_t>(phsi), kUs); }

using ActiveSf = StoreTest;

TEST_F(ActiveSf, FillPutsThePrimaryFirstAndStopsAtThirtyTwo) {
  struct Flow { uint32_t state, sfId; uint16_t ref; uint8_t dir = kUs, paramSet = kAct; };
  std::vector<Flow> many;  // 34 flows, the last with the smallest ref: it and the first 31 are entered
  std::vector<uint32_t> entered{0x121};
  for (uint32_t i = 0; i < 34; ++i) many.push_back({1, 0x100 + i, static_cast<uint16_t>(40 - i)});
  for (uint32_t i = 0; i < 31; ++i) entered.push_back(0x100 + i);
  const std::string full = "qos_intDb_FillActiveUsSfTable: Active SF DB is full. Only 32 of 34 active US Service "
                           "Flows are entered";
  struct Case {
    uint16_t primaryBefore;
    std::vector<Flow> flows;
    std::vector<uint32_t> rows;
    uint16_t primaryAfter;
    std::string log = "";
  };
  const Case cases[] = {
      {0, {{1, 0xA, 5}, {1, 0xB, 3}, {1, 0xC, 3}}, {0xB, 0xA, 0xC}, 3},
      {5, {{1, 0xA, 2}, {1, 0xB, 5}, {1, 0xC, 9}}, {0xB, 0xA, 0xC}, 5},
      {4, {{1, 0xA, 4, kDs}, {1, 0xB, 6}, {1, 0xC, 8}}, {0xB, 0xC}, 6},
      {0, {{1, 0xA, 0xFFFF}, {1, 0xB, 0xFFFE}}, {0xB, 0xA}, 0xFFFE},
      {0, {{2, 0xA, 1}, {7, 0xB, 1}, {1, 0xC, 1, kUs, 2}, {1, 0xE, 9, kUs, 5}, {1, 0xF, 8}}, {0xF, 0xE}, 8},
      {0, many, entered, 7, full},
  };
  for (const auto& c : cases) {
    ASSERT_EQ(qos_IntDb_Reset(), 0);
    stats().usPrimarySfRef = c.primaryBefore;
    for (std::size_t i = 0; i < c.flows.size(); ++i) {
      const Flow& f = c.flows[i];
      putFlow(static_cast<int>(i), f.state, f.sfId, f.ref, f.dir, f.paramSet);
    }
    ASSERT_EQ(qos_intDb_FillActiveUsSfTable(), 0);
    int n = static_cast<int>(c.rows.size());
    for (int i = 0; i < n; ++i) EXPECT_EQ(active(i), (Row{1, c.rows[i], 0})) << c.primaryBefore;
    EXPECT_EQ(active(n), (Row{0, 0, 1}));
    EXPECT_EQ(counts(), (Row{n, n - 1, c.primaryAfter}));
    EXPECT_EQ(logs.texts(), c.log.empty() ? std::vector<std::string>{} : std::vector<std::string>{c.log});
    for (const auto& r : logs.records()) EXPECT_EQ(r.level, 1);
    logs.clear();
  }

  ASSERT_EQ(qos_IntDb_Reset(), 0);
  putFlow(0, 1, 0xA, 1, kDs), putFlow(1, 1, 0xB, 0xFFFF), putFlow(2, 1, 0xC, 1);
  stats().sfDbMaxIndex = 1;  // row 2 lies beyond the scanned range
  refused(logs, fill, 0, "QOS: No active US Service Flow (cannot find Ref Id of primary SF)");
}

TEST_F(ActiveSf, AddsTakeTheRowReleasedLongestAgo) {
  for (int i = 0; i < 32; ++i) putFlow(i, 1, 0x100 + i, static_cast<uint16_t>(i + 1));
  for (int i = 0; i < 6; ++i) putFlow(100 + i, QOS_SF_ADDING + i, 0xA0 + i, 0);  // any used state
  ASSERT_EQ(qos_intDb_FillActiveUsSfTable(), 0);
  store().activeSf[9].releaseOrder = 50;  // rows in use do not count, whatever they hold
  // Step: SFID to delete (or add, with the active row it must take); the
  // release orders of rows 1, 3 and 20 afterwards.
  struct Step { bool add; uint32_t sfId; int row; Row orders; } steps[] = {
      {false, 0x103, 3, {0, 1, 0}},  {false, 0x101, 1, {2, 1, 0}},  {false, 0x114, 20, {2, 1, 3}},
      {true, 0xA0, 3, {2, 0, 3}},    {true, 0xA1, 1, {0, 0, 3}},    {false, 0xA0, 3, {0, 4, 3}},
      {false, 0x100, 0, {0, 4, 3}},  {true, 0xA2, 20, {0, 4, 0}},   {true, 0xA3, 3, {0, 0, 0}},
      {true, 0xA4, 0, {0, 0, 0}},
  };
  for (const auto& s : steps) {
    SCOPED_TRACE(s.sfId);
    ASSERT_EQ(s.add ? qos_intDb_AddActiveUsSfEntry(s.sfId) : qos_intDb_DeleteActiveUsSfEntry(s.sfId), 0);
    EXPECT_EQ(active(s.row)[1], s.add ? s.sfId : 0);
    EXPECT_EQ((Row{active(1)[2], active(3)[2], active(20)[2]}), s.orders);
  }
  EXPECT_EQ(active(0)[2], 0);
  EXPECT_EQ(counts(), (Row{32, 31, 1}));  // deleting the primary keeps its ref
  refused(logs, qos_intDb_AddActiveUsSfEntry, 0xA5,
          "qos_intDb_AddActiveUsSfEntry: Active SF DB is full. SFID=0xa5 cannot be added");
}

TEST_F(ActiveSf, RefusalsLookupsAndPrint) {
  putFlow(0, 1, 0xD0, 1, kDs), putFlow(1, 1, 0xD1, 1, kUs, 3), putFlow(2, 0, 0xD2, 1);
  putFlow(3, 1, 0xD3, 1), putFlow(5, 1, 0xD5, 1);
  stats().sfDbMaxIndex = 4;  // row 5 lies beyond the scanned range
  ASSERT_EQ(qos_intDb_AddActiveUsSfEntry(0xD3), 0);
  store().activeSf[32].status = 1, store().activeSf[32].sfId = 0x999;  // a wild reserved row
  auto before = snapshot();
  uint32_t v = 7;
  for (uint32_t sfId : {0u, 0xD0u, 0xD1u, 0xD2u, 0xD5u}) EXPECT_EQ(qos_intDb_AddActiveUsSfEntry(sfId), -1);
  EXPECT_EQ(qos_intDb_AddActiveUsSfEntry(0xD3), 0);
  EXPECT_EQ(qos_intDb_GetActiveSfIndexBySfid(0x999, &v), -1);
  for (uint32_t i : {1u, 32u}) EXPECT_EQ(qos_intDb_GetActiveSfId(i, &v) + qos_intDb_SetActiveSfId(i, 5), -2);
  EXPECT_EQ(v, 7u);
  EXPECT_EQ(changedOffsets(before, snapshot()), std::vector<std::size_t>{});
  EXPECT_TRUE(logs.records().empty());
  refused(logs, qos_intDb_DeleteActiveUsSfEntry, 0x999,
          "qos_intDb_DeleteActiveUsSfEntry: SFID=0x999 is not found into active SF DB");
  EXPECT_EQ(qos_intDb_SetActiveSfId(0, 0x1234ABCD), 0);
  EXPECT_EQ((Rc{qos_intDb_GetActiveSfIndexBySfid(0x1234ABCD, &v), qos_intDb_GetActiveSfId(v, &v)}), (Rc{0, 0}));
  EXPECT_EQ(v, 0x1234ABCDu);
  store().activeSf[32].status = 0;  // the wild row goes
  ASSERT_EQ((Rc{qos_intDb_AddActiveUsSfEntry(0xD3), qos_intDb_DeleteActiveUsSfEntry(0x1234ABCD)}), (Rc{0, 0}));
  EXPECT_EQ(captureStdout([] { EXPECT_EQ(qos_intDb_PrintActiveSfDB(), 0); }),
            "\n   Active upstream Service Flow internal data base \n\n"
            "DB Idx=1    SFID=0xd3        Row status=1 \n");
}

using ActivePhs = StoreTest;

TEST_F(ActivePhs, EntriesPerDirection) {
  for (uint8_t dir : {kUs, kUs, kDs}) ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 0x12345, 3, dir), 0);
  for (uint32_t p = 4; p <= 34; ++p) ASSERT_EQ(addUsPhs(p), 0);
  EXPECT_EQ(phs(kUs, 0), (Row{1, 0x10, 0x12345, 3, 0}));
  EXPECT_EQ(phs(kDs, 0), (Row{1, 0x10, 0x12345, 3, 0}));
  EXPECT_EQ(phs(kUs, 31)[3], 34);
  EXPECT_EQ(phs(kDs, 1)[0], 0);
  refused(logs, addUsPhs, 35, "qos_intDb_AddActivePhsEntry(): PHS active DB is full. Cannot add new entry (PHSI=0x23)");

  EXPECT_EQ(info(1, kUs), (Row{0, 0x10, 0x2345, 4}));
  EXPECT_EQ(LOOKUP(qos_intDb_GetActivePhsIndexByClsf(0x10, 0x2345, kUs, &index)), (Row{-1, 0xFFFFFFFF}));
  ASSERT_EQ(qos_intDb_DeleteActivePhsEntry(0x10, 0x12345, 3, kUs), 0);
  ASSERT_EQ(qos_intDb_DeleteActivePhsEntryByIndex(2, kUs), 0);
  EXPECT_EQ(phs(kUs, 2), (Row{0, 0, 0, 0, 0}));
  EXPECT_EQ(LOOKUP(qos_intDb_GetActivePhsIndex(0x10, kUs, &index)), (Row{0, 1}));
  EXPECT_EQ(LOOKUP(qos_intDb_GetActivePhsIndexByClsf(0x10, 0x12345, kDs, &index)), (Row{0, 0}));
  ASSERT_EQ((Rc{qos_intDb_AddActivePhsEntry(0x20, 1, 1, kUs), qos_intDb_AddActivePhsEntry(0x21, 1, 1, kUs)}), (Rc{0, 0}));
  EXPECT_EQ((Row{phs(kUs, 0)[1], phs(kUs, 2)[1]}), (Row{0x20, 0x21}));
  EXPECT_TRUE(logs.records().empty());
}

TEST_F(ActivePhs, DsidEntries) {
  ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 2, 255, kDs), 0);
  for (uint32_t dsid = 0xABCDE; dsid < 0xABCDE + 31; ++dsid) ASSERT_EQ(addDsid(dsid), 0);
  ASSERT_EQ(addDsid(0xABCDE), 0);
  EXPECT_EQ(phs(kDs, 1), (Row{1, 0xFFFFFFFF, 0xFFFFFFFF, 255, 0xABCDE}));
  EXPECT_EQ(phs(kUs, 0)[0], 0);
  refused(logs, addDsid, 0x40,
          "qos_intDb_AddActivePhsEntryByDsid: PHS active DB is full. Cannot add new entry (DSID = 0x40)");

  EXPECT_EQ(LOOKUP(qos_intDb_GetActivePhsIndexByDsid(0xABCDF, &index)), (Row{0, 2}));
  EXPECT_EQ(info(1, kDs), (Row{-1, 9, 9, 9}));
  // Only all three keys together make a DSID entry.
  ASSERT_EQ(qos_intDb_SetActivePhsSfid(0, kDs, 0xFFFFFFFF), 0);
  EXPECT_EQ(info(0, kDs), (Row{0, 0xFFFFFFFF, 2, 255}));
  // Retargeting a free row writes it and leaves it free.
  ASSERT_EQ(qos_intDb_SetActivePhsSfid(31, kUs, 0x31), 0);
  EXPECT_EQ(phs(kUs, 31), (Row{0, 0x31, 0, 0, 0}));
  EXPECT_EQ(info(31, kUs)[0], -1);
  EXPECT_TRUE(logs.records().empty());
}

TEST_F(ActivePhs, BadArgumentsAreLoggedAndWriteNothing) {
  ASSERT_EQ(qos_intDb_AddActivePhsEntry(0x10, 2, 3, kUs), 0);
  auto before = snapshot();
  uint32_t v = 9;
  uint16_t clsfId = 9;
  uint8_t p = 9;
  const std::string add = "qos_intDb_AddActivePhsEntry(): Incorrect ", del = "qos_intDb_DeleteActivePhsEntry: ",
                    byIndex = "qos_intDb_DeleteActivePhsEntryByIndex", dir = "Incorrect direction value ",
                    notValid = " for delete operation; the entry is not valid", max = " too large, max = 31";
  struct Case { int32_t result, expected, level; std::string text; } cases[] = {  // text "": no message
      {qos_intDb_AddActivePhsEntry(0, 2, 3, 2), -1, 1, add + "input parameters SFID=0x0, ClsfId=2, PHSI=0x3"},
      {qos_intDb_AddActivePhsEntry(0x10, 2, 0, 7), -1, 1, add + "input parameters SFID=0x10, ClsfId=2, PHSI=0x0"},
      {qos_intDb_AddActivePhsEntry(0x10, 2, 3, 0), -1, 1, add + "direction value 0"},
      {qos_intDb_DeleteActivePhsEntry(0x10, 0, 3, 2), -1, 1, del + "Incorrect input parameters SFID=0x10, ClsfId=0, "
                                                                     "PHSI=0x3"},
      {qos_intDb_DeleteActivePhsEntry(0x10, 2, 3, 3), -1, 1, del + dir + "3"},
      {qos_intDb_DeleteActivePhsEntry(0x10, 2, 3, 1), 0, 2, del + "PHS is not in active PHS DB (PHSI=0x3"},
      {addDsid(0), -1, 1, "qos_intDb_AddActivePhsEntryByDsid: Incorrect input parameter DSID = 0x0"},
      {qos_intDb_DeleteActivePhsEntryByIndex(-1, 2), -1, 1, byIndex + ": ---> PHS active DB index -1 is out of range"},
      {qos_intDb_DeleteActivePhsEntryByIndex(34, 2), -1, 1, byIndex + ": ---> PHS active DB index 34 is out of range"},
      {qos_intDb_DeleteActivePhsEntryByIndex(33, 2), -1, 1, byIndex + "(): Incorrect DB index value 33" + notValid},
      {qos_intDb_DeleteActivePhsEntryByIndex(0, 1), -1, 1, byIndex + "(): Incorrect DB index value 0" + notValid},
      {qos_intDb_DeleteActivePhsEntryByIndex(0, 4), -1, 1, byIndex + "(): " + dir + "4"},
      {qos_intDb_GetActivePhsIndex(0x10, 3, &v), -1, 1, "qos_intDb_GetActivePhsIndex(): " + dir + "3"},
      {qos_intDb_GetActivePhsIndexByClsf(0x10, 2, 0, &v), -1, 1, "qos_intDb_GetActivePhsIndexByClsf(): " + dir + "0"},
      {qos_intDb_GetActivePhsIndex(0x10, 2, nullptr), -1, 1, ""},
      {qos_intDb_GetActivePhsIndexByClsf(0x10, 2, 2, nullptr), -1, 1, ""},
      {qos_intDb_GetActivePhsIndexByDsid(1, nullptr), -1, 1, ""},
      {qos_intDb_GetActivePhsInfo(0, 3, &v, &clsfId, &p), -1, 1, dir + "3"},
      {qos_intDb_SetActivePhsSfid(0, 0, 0x77), -1, 1, dir + "0"},
      {qos_intDb_GetActivePhsInfo(-1, 2, &v, &clsfId, &p), -1, 1, "activePhsDbIndex = -1" + max},
      {qos_intDb_SetActivePhsSfid(-1, 1, 0x77), -1, 1, "activePhsDbIndex = -1" + max},
      {qos_intDb_GetActivePhsInfo(32, 2, &v, &clsfId, &p), -1, 1, "activePhsDbIndex = 32" + max},
      {qos_intDb_SetActivePhsSfid(32, 1, 0x77), -1, 1, "activePhsDbIndex = 32" + max},
  };
  std::vector<std::pair<int, std::string>> expected, logged;
  for (const auto& c : cases) {
    EXPECT_EQ(c.result, c.expected) << c.text;
    if (!c.text.empty()) expected.emplace_back(c.level, c.text);
  }
  for (const auto& r : logs.records()) logged.emplace_back(r.level, r.text);
  EXPECT_EQ(logged, expected);
  logs.clear();
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
  ASSERT_EQ((Rc{qos_intDb_DeleteActivePhsEntryByIndex(0, kUs), addDsid(0x99)}), (Rc{0, 0}));
  EXPECT_EQ(captureStdout([] { EXPECT_EQ(qos_intDb_PrintActivePhsDB(), 0); }),
            "\n   Active upstream PHS internal data base \n\n"
            "DB Idx=1    SFID=0x11        ClsfID=0x2  PHSI=0x4 Row status=1 \n"
            "\n   Active downstream PHS internal data base \n\n"
            "DB Idx=0    SFID=0xffffffff  ClsfID=0xffffffff  PHSI=0xff Row status=1 \n");
}

}  // namespace
}  // namespace qostest
