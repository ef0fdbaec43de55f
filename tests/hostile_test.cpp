// SPDX-License-Identifier: MIT
// hostile_test.cpp - exported operations with boundary and hostile
// arguments: indexes at and past each table's end, negative values passed
// as unsigned, lengths at the buffers' limits. Each case gives the defined
// result, and no byte of the region outside the rows the case names changes.
// Where a subsystem's test checks the same calls with their log texts (the
// flow attribute family, the buffer limits, the transaction index checks,
// the outcomes, the active PHS tables), they are not repeated here. NULL
// pointers in every argument are the fuzzer's (tests/fuzz).
#include <algorithm>
#include <cstddef>
#include <functional>
#include <vector>

#include "frame/region.h"
#include "support/fixture.h"

namespace {

using qos::QosIntDbRegion;
using qostest::snapshot;

struct Span {
  std::size_t offset, size;
};

// Row i of an area; whole areas; the bytes from one area up to another.
#define ROWS(name, area) \
  Span name(std::size_t i) { \
    constexpr std::size_t kRow = sizeof(QosIntDbRegion::area[0]); \
    return {offsetof(QosIntDbRegion, area) + i * kRow, kRow}; \
  }
ROWS(sf, sf) ROWS(clsf, clsf) ROWS(cluster, sidClusters) ROWS(switchover, switchover) ROWS(active, activeSf)
ROWS(phsUs, phsUs) ROWS(err, msgErrors) ROWS(msg, msgs) ROWS(ta, ta)
#define AREA(area) Span{offsetof(QosIntDbRegion, area), sizeof(QosIntDbRegion::area)}
#define FROM_TO(from, to) Span{offsetof(QosIntDbRegion, from), offsetof(QosIntDbRegion, to) - offsetof(QosIntDbRegion, from)}
const Span kStats = AREA(stats), kTaControl = AREA(taControl), kDbc = AREA(dbc), kActiveTable = AREA(activeSf);
const Span kFlowFamily = FROM_TO(sf, msgErrors), kMessages = FROM_TO(msgErrors, ta), kTransactions = FROM_TO(ta, dbc);
const Span kAllButDbc = FROM_TO(sf, dbc), kRegion{0, QOS_REGION_SIZE};

struct Case {
  const char* call;
  std::function<int32_t()> run;
  int32_t result;
  std::vector<Span> mayChange;
  std::function<void()> prepare = [] {};  // before the snapshot
};

#define C(call, result, ...) Case{#call, [&] { return static_cast<int32_t>(call); }, result, {__VA_ARGS__}}
#define V(call, ...) Case{#call, [&] { call; return 0; }, 0, {__VA_ARGS__}}
#define P(prepare, call, result, ...) \
  Case{#prepare "; " #call, [&] { return static_cast<int32_t>(call); }, result, {__VA_ARGS__}, [&] { prepare; }}

// A registered store with one transaction in progress: upstream flow 0x11
// (SF row 0, classifier 0x101 in row 0, a PHS rule, SID cluster 1 in row 0,
// switchover row 0, active row 0, active PHS rule in the upstream table),
// downstream flow 0x12 (row 1), a DSID entry, transaction row 0 (a CMTS DSC
// with a request of 10 bytes) and one bonding change modification.
void populate() {
  ASSERT_EQ(qos_IntDb_Init(), 0);
  const SidChannelMapping ports[4] = {{0, 5, 0, 0x21}, {}, {}, {}};
  const uint8_t bytes[10] = {1, 2, 3};
  uint32_t t = 0;
  const SidChannelMapping add = {QOS_MAP_ADD, 6, 0, 0x22};
  // A braced list runs its calls in order: the fill needs the flow before it.
  const int32_t results[] = {
      qos_intDb_AddSf(0x11, 1, QOS_DIR_UPSTREAM), qos_intDb_AddSf(0x12, 2, QOS_DIR_DOWNSTREAM),
      qos_intDb_SetServiceFlowParamSet(0, 7), qos_intDb_SetSfSid(0, 0x21),
      qos_intDb_SetSfPrimaryRef(QOS_DIR_UPSTREAM, 1), qos_intDb_AddClsf(0x11, 1, 1),
      qos_intDb_SetClsfId(0, 0x101), qos_intDb_SetClsfSfid(0, 0x11), qos_intDb_AddPhs(1, 1),
      qos_intDb_AddSfSidCluster(0x11, 1, ports), qos_intDb_SetSfSidClusterParams(0x11, 1, 2, 3, 4),
      qos_intDb_FillActiveUsSfTable(), qos_intDb_AddActivePhsEntry(0x11, 0x101, 1, QOS_DIR_UPSTREAM),
      qos_intDb_AddActivePhsEntryByDsid(0x55), qos_TaDb_AddNewTa(7, QOS_TA_DSC, QOS_TA_BY_CMTS, 3, bytes, &t),
      qos_intDb_MsgUpdateReqBuffer(0, bytes, sizeof bytes), qos_dbc_AddSfSidClusterMod(0x11, 1, 1, &add),
      qos_dbc_SetSfChannelActive(0x11, 0, 1)};
  for (int32_t rc : results) ASSERT_EQ(rc, 0);
}

class HostileTest : public qostest::StoreTest {};

TEST_F(HostileTest, EveryOperationKeepsToItsRowsWhateverTheArguments) {
  const uint32_t kNeg = 0xFFFFFFFF;  // -1 passed as unsigned
  std::vector<uint8_t> big(70000, 0xAB);
  const uint8_t* buf = big.data();
  uint32_t u = 0;
  int32_t cursor = 0;
  uint16_t u16 = 0;
  uint8_t u8 = 0, *p = nullptr;
  SidChannelMapping maps[5] = {{QOS_MAP_ADD, 7, 0, 0x23}, {QOS_MAP_ADD, 8, 0, 0x24}, {QOS_MAP_ADD, 9, 0, 0x25},
                               {QOS_MAP_ADD, 10, 0, 0x26}, {QOS_MAP_ADD, 11, 0, 0x27}};
  void* base = qostest::region();
  auto poke = [](uint32_t QosDbcDb::*count) { qostest::store().dbc.*count = 0xFFFFFFFF; };
  auto fillClsf = [](uint32_t lastRow) {  // classifier rows 1..lastRow
    for (uint32_t r = 1; r <= lastRow; ++r) qos_intDb_AddClsf(0x11, 1, r + 1);
  };

  const std::vector<Case> cases = {
      // Entry points and lock
      C(qos_IntDb_Init(), 0, kRegion), C(qos_IntDb_RetrieveAccess(), 0), C(qos_IntDb_Reset(), 0, kAllButDbc),
      P(qos_taDb_Lock(), qos_taDb_Unlock(), 0),
      C(qos_intDb_SfDb_init(base) | qos_intDb_TaDb_init(base) | qos_intDb_MsgDb_init(base) | qos_dbc_DbInit(base), 0),

      // Transaction table: rows 0..9
      C(qos_TaDb_AddNewTa(1, 0, 1, 256, buf, &u), -1), C(qos_TaDb_AddNewTa(1, 0, 1, kNeg, buf, &u), -1),
      C(qos_TaDb_AddNewTa(0x12345, kNeg, kNeg, 255, buf, &u), 0, ta(1), kTaControl),
      C(qos_TaDb_FindTaIndexByTaId(0, &u), -1), C(qos_TaDb_FindTaIndexByTaId(0x10007, &u), -1),
      C(qos_TaDb_GetTaId(10, &u16), -1), C(qos_TaDb_GetTaId(kNeg, &u16), -1), C(qos_TaDb_GetTaType(10, &u), -1),
      C(qos_TaDb_GetTaInitiator(kNeg, &u), -1), C(qos_TaDb_GetTaSubtype(10, &u), -1),
      C(qos_TaDb_SetTaSubtype(10, 5), -1), C(qos_TaDb_SetTaSubtype(9, kNeg), 0, ta(9)),
      C(qos_TaDb_SetTaDbState(0, 4), -1), C(qos_TaDb_SetTaDbState(10, 1), -1),
      C(qos_TaDb_SetTaDbState(9, 3), 0, ta(9)), C(qos_TaDb_GetTaDbState(kNeg, &u), -1),
      C(qos_TaDb_IsTaHeld(10, &u), -1), C(qos_TaDb_ResetRetCounter(10), -1), C(qos_TaDb_ResetRetCounter(9), -1),
      C(qos_TaDb_IncRetCounter(kNeg), -1), C(qos_TaDb_IncRetCounter(9), -1), C(qos_TaDb_IncRetCounter(0), 0, ta(0)),
      C(qos_TaDb_ResetRetCounter(0), 0), C(qos_TaDb_GetRetCounter(10, &u), -1),
      C(qos_TaDb_SetTaAuthBlock(0, 256, buf), -1), C(qos_TaDb_SetTaAuthBlock(0, kNeg, buf), -1),
      C(qos_TaDb_SetTaAuthBlock(10, 1, buf), -1), C(qos_TaDb_SetTaAuthBlock(9, 255, buf), 0, ta(9)),
      C(qos_TaDb_GetTaAuthBlock(10, &u, &p), -1), V(qos_intDb_ResetTaDbRow(-1)), V(qos_intDb_ResetTaDbRow(11)),
      V(qos_intDb_ResetTaDbRow(INT32_MIN)), V(qos_intDb_ResetTaDbRow(10), msg(10)),
      V(qos_intDb_ResetTaDbRow(0), ta(0), msg(0), err(0)), V(qos_intDb_TaDb_reset(), kMessages, kTransactions),
      C(qos_TaDb_printDb(), 0),

      // Service flow table: rows 0..127
      V(qos_intDb_SfDb_Reset(), kFlowFamily), V(qos_intDb_SfDb_RowReset(128)), V(qos_intDb_SfDb_RowReset(kNeg)),
      V(qos_intDb_SfDb_RowReset(127), sf(127)), C(qos_intDb_FindSfDbNextFreeIndex(&u), 0, kStats),
      C(qos_intDb_FindSfById(0, &u), -1), C(qos_intDb_UpdateSfNumber(&u), 0, kStats),
      C(qos_intDb_GetNextSFDbIndex(), -1), C(qos_intDb_DsdReqRecieved(), 0),
      C(qos_intDb_AddSf(kNeg, kNeg, kNeg), 0, sf(2), kStats),
      C(qos_intDb_AddSfReference(5, 2, INT32_MAX), 0, sf(2), kStats), C(qos_intDb_AddSfId(0x11, 2, 5), -1),
      C(qos_intDb_ChangeSF(128, 0), -1), C(qos_intDb_ChangeSF(kNeg, 0), -1),
      C(qos_intDb_ChangeSF(127, 0), 0, sf(127)), C(qos_intDb_StartDeleteSF(0, 11), -1),
      C(qos_intDb_StartDeleteSF(0, -1), -1), C(qos_intDb_StartDeleteSF(128, 0), -1),
      C(qos_intDb_StartDeleteSF(0, 10), 0, sf(0)), C(qos_intDb_FindSfByRef(0x10001, &u), -1),
      C(qos_intDb_FindSfByTaAndRef(1, -1, &u), -1), C(qos_intDb_FindSFIdValid(0), -1),

      // Service flow attributes outside the family (serviceflows_test)
      C(qos_intDb_CheckSFOperational(kNeg), -1), C(qos_intDb_SetServiceFlowParamSet(128, 1), -1),
      C(qos_intDb_SetServiceFlowParamSet(0, kNeg), 0, sf(0)), C(qos_intDb_GetSfPrimaryRef(3, &u16), -1),
      C(qos_intDb_GetSfPrimaryRef(0x102, &u16), 0), C(qos_intDb_SetSfPrimaryRef(0, 1), -1),
      C(qos_intDb_SetSfPrimaryRef(0x101, 0x10005), 0, kStats), C(qos_intDb_fullPrintSF(128), -1),
      C(qos_intDb_shortPrintSF(INT32_MAX), 0),
      C(qos_intDb_SubstituteSfId(0, 5), -1), C(qos_intDb_SubstituteSfId(0x99, 5), -1),
      C(qos_intDb_SubstituteSfId(0x11, kNeg), 0, sf(0), clsf(0), active(0), phsUs(0)),

      // Classifiers: rows 0..319
      C(qos_intDb_FindClsfByRef(0x101, &u), -1), C(qos_intDb_FindClsfById(0x10101, 0x11, &u), -1),
      C(qos_intDb_IsClsfInDeleting(319, &u), 0), C(qos_intDb_SetClsfId(320, 1), -1),
      C(qos_intDb_SetClsfId(319, kNeg), 0, clsf(319)),
      C(qos_intDb_GetClsfId(320, &u16), -1), C(qos_intDb_SetClsfSfid(320, 1), -1),
      C(qos_intDb_SetClsfSfid(319, 1), 0, clsf(319)), C(qos_intDb_GetClsfSfid(kNeg, &u), -1),
      C(qos_intDb_GetClsfSfid(0, &u), 0), C(qos_intDb_SetClsfMaxNum(kNeg), 0, kStats),
      C(qos_intDb_FindClsfDbNextFreeIndex(&u), 0, kStats), C(qos_intDb_PrintClsf(320), 0),
      C(qos_intDb_AddClsf(0x11, 1, 1), -1),
      C(qos_intDb_AddClsf(0x11, 1, 0x1FF), 0, clsf(1), sf(0), kStats),
      C(qos_intDb_AddClsfRef(1, 2, 11), 0, clsf(1), sf(2), kStats),
      C(qos_intDb_AddClsfId(0x11, 0x102, -5), 0, clsf(1), sf(0), kStats), C(qos_intDb_AppendClsfRef(128, 1, 0), -1),
      C(qos_intDb_AppendClsfRef(0, 1, 11), -1), C(qos_intDb_AppendClsfRef(0, 1, -1), -1),
      C(qos_intDb_AppendClsfRef(0, 2, 10), 0, sf(0), clsf(1), kStats), C(qos_intDb_AppendClsfId(kNeg, 1, 0), -1),
      C(qos_intDb_AppendClsfId(0, 1, INT32_MIN), -1),
      C(qos_intDb_AppendClsfId(0, 0x102, 0), 0, sf(0), clsf(1), kStats),
      C(qos_intDb_ChangeClassifier(0, 320, 0), -1), C(qos_intDb_ChangeClassifier(0, kNeg, 0), -1),
      C(qos_intDb_ChangeClassifier(128, 0, 0), -1), C(qos_intDb_ChangeClassifier(0, 0, 10), 0, sf(0), clsf(0)),
      C(qos_intDb_DeleteClassifier(0, 0, 11), -1), C(qos_intDb_DeleteClassifier(0, 320, 0), -1),
      C(qos_intDb_DeleteClassifier(0, 0, 10), 0, sf(0), clsf(0)),

      // PHS rules
      C(qos_intDb_AddPhs(1, 1), 0, sf(0)), C(qos_intDb_AddPhs(7, 0x109), 0, sf(2), clsf(1), kStats),
      C(qos_intDb_AddPhs(2, 1), -1), C(qos_intDb_AddPhsRef(1, 1, 11), 0, sf(0), clsf(1), kStats),
      C(qos_intDb_AddPhsId(0x11, 0x101, 5), 0, sf(0)), C(qos_intDb_AppendPhs_ClsfRef(0x99, 1, 0), -1),
      C(qos_intDb_AppendPhs_ClsfId(0x11, 0x101, 10), -1), C(qos_intDb_AppendPhs_ClsfId(0x11, 0x101, -1), -1),
      P(fillClsf(319), qos_intDb_AppendPhs_ClsfRef(0x11, 9, 0), -1),
      P(fillClsf(319), qos_intDb_AddClsfId(0x11, 9, 0), -1),
      P(fillClsf(318), qos_intDb_AppendPhs_ClsfRef(0x11, 9, 0), 0, clsf(319), sf(0), kStats),
      C(qos_intDb_ChangePhs(0x11, 0x999, 0), -1), C(qos_intDb_DeletePhs(0x99, 0, 1), -1),
      C(qos_intDb_DeletePhs(0x11, -1, 0), 0, sf(0)),

      // SID clusters and switchover criteria
      C(qos_intDb_AddSfSidCluster(0x11, 255, maps), 0, cluster(1), sf(0), kStats),
      C(qos_intDb_DelSfSidCluster(0x11, 9), -1), C(qos_intDb_DelSfSidCluster(0x11, 1), 0, cluster(0), sf(0)),
      C(qos_intDb_DeleteSidClustersOfSf(0x99), 0), C(qos_intDb_GetSfSidCluster(0x11, 2, maps), -1),
      C(qos_intDb_GetNextSfSidCluster(0x11, &cursor, nullptr, maps), -1),
      C((cursor = 78, qos_intDb_GetNextSfSidCluster(0x11, &cursor, &u8, maps)), -1),
      C((cursor = INT32_MIN, qos_intDb_GetNextSfSidCluster(0x11, &cursor, &u8, nullptr)), 0),
      C(qos_intDb_GetSidClusterTableRow(0x11, 1, 9, &u), -1), C(qos_intDb_PrintSidClusters(), 0),
      C(qos_intDb_SetSfSidClusterParams(0x11, kNeg, kNeg, 0xFFFF, 0xFF), 0, switchover(0)),
      C(qos_intDb_DeleteSfSidClusterParams(0x99), 0), C(qos_intDb_SetClusterMaxNum(kNeg), 0, kStats),

      // Message store: rows 0..10, buffers of at most 1599 bytes
      C(qos_intDb_MsgDb_reset(), 0, kMessages), C(qos_intDb_MsgInitBufferForTa(11, 0, 0), -1),
      C(qos_intDb_MsgInitBufferForTa(10, 2, 0), 0, msg(10)), C(qos_intDb_MsgResetTaBuffer(kNeg), -1),
      C(qos_intDb_MsgAddReqBufferTlv(11, 1, 1, buf), -1),
      C(qos_intDb_MsgAddReqBufferTlv(0, kNeg, 1587, buf), 0, msg(0)),
      C(qos_intDb_MsgAddRspBufferTlv(10, 1, 1597, buf), 0, msg(10)),
      C(qos_intDb_MsgAddAckBufferTlv(kNeg, 1, 1, buf), -1),
      C(qos_intDb_MsgAddReqBufferField(0, 1589, buf), 0, msg(0)),
      C(qos_intDb_MsgAddRspBufferField(1, 1599, buf), 0, msg(1)),
      C(qos_intDb_MsgUpdateReqBuffer(0, buf, 1599), 0, msg(0), err(0)),
      C(qos_intDb_MsgUpdateReqBuffer(11, buf, 1), -1), C(qos_intDb_MsgUpdateAckBuffer(10, buf, 1599), 0, msg(10)),
      C(qos_intDb_MsgGetReqBuffer(11, &p, &u), -1), C(qos_intDb_MsgGetAckBuffer(kNeg, &p, &u), -1),
      C(qos_intDb_MsgGetMsgSendBuff(11, &p, &u), -1), C(qos_intDb_MsgDbPrint(kNeg), -1), C(qos_intDb_MsgReqPrint(10, 0), -1), C(qos_intDb_MsgRspPrint(9, 3), -1),
      C(qos_intDb_MsgAckPrint(9, 2), 0), C(qos_intDb_MsgSetConfCode(11, 1), -1),
      C(qos_intDb_MsgSetConfCode(10, kNeg), 0, err(10)), C(qos_intDb_MsgGetConfCode(11, &u), -1),
      C(qos_intDb_MsgUpdateError(11, 1), 0), C(qos_intDb_MsgSetErrorSet(11, 1, 2, 3, 4), -1),
      C(qos_intDb_MsgGetErrorCode(kNeg, &u), -1), C(qos_intDb_MsgGetErrorType(10, &u), 0),
      C(qos_intDb_MsgGetErrorSubType(11, &u, &u), -1), C(qos_intDb_MsgSetErroredSfId(11, 1), -1),
      C(qos_intDb_MsgGetErroredSfId(10, &u), 0), C(qos_intDb_MsgResetError(11), -1),
      C(qos_intDb_MsgResetError(10), 0, err(10)),

      // Registration finish (the outcomes' indexes: outcome_test)
      C(qos_intDb_UpdateOnRegFinish(), 0, sf(0), sf(1), clsf(0)),

      // Active upstream flows (rows 0..31) and active PHS tables (rows 0..31)
      C(qos_intDb_FillActiveUsSfTable(), 0, kActiveTable, kStats), C(qos_intDb_AddActiveUsSfEntry(0), -1),
      C(qos_intDb_AddActiveUsSfEntry(0x12), -1), C(qos_intDb_DeleteActiveUsSfEntry(0x99), -1),
      C(qos_intDb_GetActiveSfId(1, &u), -1), C(qos_intDb_SetActiveSfId(kNeg, 1), -1),
      C(qos_intDb_SetActiveSfId(0, 0x99), 0, active(0)), C(qos_intDb_PrintActiveSfDB(), 0),
      C(qos_intDb_DeleteActivePhsEntry(0x99, 1, 1, 2), 0),
      C(qos_intDb_DeleteActivePhsEntryByIndex(0, 2), 0, phsUs(0)),
      C(qos_intDb_SetActivePhsSfid(0, 2, 0x99), 0, phsUs(0)), C(qos_intDb_PrintActivePhsDB(), 0),

      // Consistency check and SNMP walks
      C(qos_intDb_CheckCorrectness(), 0), C(qos_intDb_GetSnmpNextSid(kNeg, &u), -1),
      C(qos_intDb_GetNextSfSidClusterTableIndex(kNeg, kNeg, kNeg, &u, &u, &u), -1),

      // Bonding change store: 38 modifications, 38 active entries, 64 bitmaps, ports 1..4
      C(qos_dbc_DbReset(), 0, kDbc), C(qos_dbc_AddSfSidClusterMod(0x11, 1, 0, nullptr), 0, kDbc),
      C(qos_dbc_SetActions(), 0, kDbc), C(qos_dbc_RefreshBitmaps(), 0, kDbc),
      C(qos_dbc_UpdateSfSidClusterDb(), 0, kFlowFamily, kDbc), C(qos_dbc_SetSfChannelActive(0x11, 8, 1), 0),
      C(qos_dbc_SetSfChannelActive(0x11, 255, 0), 0), C(qos_dbc_GetSfChannelBitmap(0x99, &u), -1),
      C(qos_dbc_ResetSfBitmaps(), 0, kDbc),
      // Counts that clients wrote beyond the lists' capacity read as the capacity.
      P(poke(&QosDbcDb::modCount), qos_dbc_AddSfSidClusterMod(0x11, 1, 1, maps), -1),
      P(poke(&QosDbcDb::modCount), qos_dbc_SetActions(), 0, kDbc),
      P(poke(&QosDbcDb::activeCount), qos_dbc_ActiveDbAddSid(0x11, 9, 1, 5), -1),
      P(poke(&QosDbcDb::activeCount), qos_dbc_RefreshBitmaps(), 0, kDbc),
      P(poke(&QosDbcDb::bitmapCount), qos_dbc_SetSfChannelActive(0x99, 1, 1), -1),
      P(poke(&QosDbcDb::bitmapCount), qos_dbc_GetSfChannelBitmap(0x99, &u), -1),
  };

  for (const Case& c : cases) {
    populate();
    c.prepare();
    std::vector<uint8_t> before = snapshot();
    int32_t result = 0;
    qostest::captureStdout([&] { result = c.run(); });
    EXPECT_EQ(result, c.result) << c.call;
    for (std::size_t offset : qostest::changedOffsets(before, snapshot())) {
      auto inside = [&](const Span& s) { return offset - s.offset < s.size; };  // unsigned: below wraps
      if (std::none_of(c.mayChange.begin(), c.mayChange.end(), inside)) {
        ADD_FAILURE() << c.call << " changed byte " << offset << " outside its rows";
        break;
      }
    }
  }
}

}  // namespace
