// SPDX-License-Identifier: MIT
// detached_test.cpp - a process that never attached: every operation refuses
// with its family's message under its own name (or silently where it has no
// check), prints nothing, writes nothing through its outputs, sends no event
// and does not crash. No test in this file may attach.
#include <tuple>

#include "support/fixture.h"

namespace qostest {
namespace {

struct Case {
  std::string name;
  std::function<int32_t()> call;
  std::string text;  // the one log record expected; empty: none
  int32_t result;
  int level = QOS_LOG_ERROR, module = QOS_MODULE_TABLES;
  std::string logger = "";  // the function named in the record, when not the operation itself
};

#define CALL(f, ...) #f, [&] { return static_cast<int32_t>(f(__VA_ARGS__)); }
#define TA(f, ...) Case{CALL(f, __VA_ARGS__), #f ": ---> DSX TA DB is not initialized", -1}
#define MSG(f, ...) Case{CALL(f, __VA_ARGS__), #f ": ---> DSX MSG DB is not initialized", -1}
#define SF(f, ...) Case{CALL(f, __VA_ARGS__), "func " #f ": ---> Internal DB  is not initialized", -1}
#define SILENT(result, f, ...) Case{CALL(f, __VA_ARGS__), "", result}
#define VOID(f, ...) Case{#f, [&] { f(__VA_ARGS__); return 0; }, "", 0}

TEST(Detached, EveryOperationRefusesUnderItsOwnName) {
  LogCapture logs;
  EventCapture events;
  uint32_t v = 7;
  uint16_t id = 7;
  uint8_t b = 7, *data = nullptr;
  const uint32_t four[4] = {1, 2, 3, 4};
  const SidChannelMapping add = {QOS_MAP_ADD, 1, 0, 1};
  SidChannelMapping m[4] = {};
  // The host logger answers with the text's length; lock and unlock pass it on.
  const std::string lockText = "Failed to lock the QOS TA semaphore", unlockText = "Failed to Unlock the QOS TA semaphore";
  const std::vector<Case> cases = {
      // Entry points without a region, first: they must leave the process detached.
      SILENT(-1, qos_IntDb_Reset), SILENT(-1, qos_IntDb_RetrieveAccess), SILENT(-1, qos_intDb_SfDb_init, nullptr),
      SILENT(-1, qos_intDb_MsgDb_init, nullptr), SILENT(-1, qos_intDb_TaDb_init, nullptr),
      SILENT(-1, qos_dbc_DbInit, nullptr),
      {CALL(qos_taDb_Lock), lockText, int32_t(lockText.size()), QOS_LOG_SEMAPHORE},
      {CALL(qos_taDb_Unlock), unlockText, int32_t(unlockText.size()), QOS_LOG_SEMAPHORE},
      // Transactions and messages
      TA(qos_TaDb_AddNewTa, 0, 0, 0, 0, nullptr, &v), TA(qos_TaDb_GetTaId, 0, &id), TA(qos_TaDb_printDb),
      TA(qos_TaDb_FindTaIndexByTaId, 1, &v), TA(qos_TaDb_GetTaType, 0, &v), TA(qos_TaDb_SetTaDbState, 0, 1),
      TA(qos_TaDb_CheckTaConflict, 0, 1), VOID(qos_intDb_ResetTaDbRow, 0), VOID(qos_intDb_TaDb_reset),
      MSG(qos_intDb_MsgGetReqBuffer, 0, &data, &v), MSG(qos_intDb_MsgDb_reset), MSG(qos_intDb_MsgSetConfCode, 0, 1),
      MSG(qos_intDb_MsgAddReqBufferTlv, 0, 1, 0, nullptr), MSG(qos_intDb_MsgDbPrint, 0),
      {CALL(qos_intDb_MsgUpdateError, 0, 1), "qos_intDb_MsgSetConfCode: ---> DSX MSG DB is not initialized", 0,
       QOS_LOG_ERROR, QOS_MODULE_TABLES, "qos_intDb_MsgSetConfCode"},
      // Service flows and SID clusters
      SF(qos_intDb_GetSfDbMaxIndex, &v), SF(qos_intDb_FindSfDbNextFreeIndex, &v), SF(qos_intDb_UpdateSfNumber, &v),
      SF(qos_intDb_AddSf, 1, 1, 1), SF(qos_intDb_StartDeleteSF, 0, 0), SF(qos_intDb_GetSfTaIndexAndPairSf, 0, &v, &v),
      SF(qos_intDb_GetSfRef, 0, &v), SF(qos_intDb_SetSfSid, 0, 1), SF(qos_intDb_SetServiceFlowParamSet, 0, 1),
      SF(qos_intDb_fullPrintSF, 0), SF(qos_intDb_shortPrintSF, 200), SF(qos_intDb_AddSfSidCluster, 1, 1, m),
      SF(qos_intDb_SetSfSidClusterParams, 1, 1, 1, 1, 1), VOID(qos_intDb_SfDb_Reset), VOID(qos_intDb_SfDb_RowReset, 0),
      SILENT(-1, qos_intDb_GetNextSFDbIndex), SILENT(0, qos_intDb_DsdReqRecieved), SILENT(-1, qos_intDb_FindSFIdValid, 1),
      SILENT(-1, qos_intDb_GetSidClusterTableRow, 0, 0, 0, &v), SILENT(-1, qos_intDb_PrintSidClusters),
      // Classifiers and PHS rules
      SF(qos_intDb_FindClsfByRef, 1, &v), SF(qos_intDb_FindClsfById, 1, 1, &v), SF(qos_intDb_FindClsfByTaAndRef, 1, 0, &v),
      SF(qos_intDb_GetNextClsfOfSf, 1, -1, &id, &v), SF(qos_intDb_IsClsfInDeleting, 0, &v), SF(qos_intDb_SetClsfId, 0, 1),
      SF(qos_intDb_GetClsfId, 0, &id), SF(qos_intDb_SetClsfSfid, 0, 1), SF(qos_intDb_GetClsfSfid, 0, &v),
      SF(qos_intDb_GetClsfDbMaxIndex, &v), SF(qos_intDb_SetClsfMaxNum, 1), SF(qos_intDb_GetClsfMaxNum, &v),
      SF(qos_intDb_GetClsfNumber, &v), SF(qos_intDb_FindClsfDbNextFreeIndex, &v), SF(qos_intDb_PrintClsf, 1000),
      SF(qos_intDb_AddClsf, 1, 1, 1), SF(qos_intDb_AddClsfRef, 1, 1, 0), SF(qos_intDb_AddClsfId, 1, 1, 0),
      SF(qos_intDb_AppendClsfRef, 0, 1, 0), SF(qos_intDb_AppendClsfId, 0, 1, 0), SF(qos_intDb_ChangeClassifier, 0, 0, 0),
      SF(qos_intDb_DeleteClassifier, 0, 0, 0), SF(qos_intDb_AddPhs, 1, 1), SF(qos_intDb_AddPhsRef, 1, 1, 0),
      SF(qos_intDb_AddPhsId, 1, 1, 0), SF(qos_intDb_AppendPhs_ClsfRef, 1, 1, 0), SF(qos_intDb_AppendPhs_ClsfId, 1, 1, 0),
      SF(qos_intDb_ChangePhs, 1, 1, 0), SF(qos_intDb_DeletePhs, 1, 0, 0),
      // Outcomes
      SF(qos_intDb_UpdateSfOnTaSucceeded, 1), SF(qos_intDb_UpdateSfOnTaFailure, 1), SF(qos_intDb_UpdateSfOnTaError, 1),
      SF(qos_intDb_UpdateSfOnTaForcedEnd, 1), SF(qos_intDb_UpdateSfOnTaEnd, 1), SF(qos_intDb_UpdateSfAddAbort, 1),
      SF(qos_intDb_UpdateSfOnTaAckLost, 1), SF(qos_intDb_UpdateOnRegFinish),
      // Active tables, consistency check, substitution
      SF(qos_intDb_FillActiveUsSfTable), SF(qos_intDb_AddActiveUsSfEntry, 1), SF(qos_intDb_DeleteActiveUsSfEntry, 1),
      SF(qos_intDb_GetActiveSfIndexBySfid, 1, &v), SF(qos_intDb_GetActiveSfId, 0, &v), SF(qos_intDb_SetActiveSfId, 0, 1),
      SF(qos_intDb_PrintActiveSfDB), SF(qos_intDb_AddActivePhsEntry, 1, 1, 1, 2), SF(qos_intDb_AddActivePhsEntryByDsid, 1),
      SF(qos_intDb_DeleteActivePhsEntry, 1, 1, 1, 2), SF(qos_intDb_DeleteActivePhsEntryByIndex, 0, 2),
      SF(qos_intDb_GetActivePhsIndex, 1, 2, &v), SF(qos_intDb_GetActivePhsIndexByClsf, 1, 1, 2, &v),
      SF(qos_intDb_GetActivePhsIndexByDsid, 1, &v), SF(qos_intDb_GetActivePhsInfo, 0, 2, &v, &id, &b),
      SF(qos_intDb_SetActivePhsSfid, 0, 1, 1), SF(qos_intDb_PrintActivePhsDB), SF(qos_intDb_CheckCorrectness),
      SF(qos_intDb_SubstituteSfId, 1, 2),
      // SNMP walks and the bonding change store
      SF(qos_intDb_GetSnmpNextSid, 0, &v), SILENT(-1, qos_intDb_GetNextCmServiceTableIndex, 0, 0, four, &v, &v),
      SILENT(-1, qos_intDb_GetCmServiceTableAttr, 1, 1, &v, &v, &v),
      SILENT(-1, qos_intDb_GetNextSfSidClusterTableIndex, 0, 0, 0, &v, &v, &v),
      SILENT(-1, qos_dbc_AddSfSidClusterMod, 1, 1, 1, &add), SILENT(-1, qos_dbc_VerifyAllSidClusterMaps, four),
      SILENT(-1, qos_dbc_SetActions), SILENT(-1, qos_dbc_ActiveDbAddSid, 1, 1, 1, 1), SILENT(-1, qos_dbc_RefreshBitmaps),
      SILENT(-1, qos_dbc_UpdateSfSidClusterDb), SILENT(-1, qos_dbc_SetSfChannelActive, 1, 0, 1),
      SILENT(-1, qos_dbc_GetSfChannelBitmap, 1, &v), SILENT(-1, qos_dbc_ResetSfBitmaps),
      {CALL(qos_dbc_DbReset), "Cannot reset QosDBC DB, shared mem not connected", -1, QOS_LOG_ERROR, QOS_MODULE_DBC},
  };
  for (int multiple : {0, 1}) {  // the walks read the DOCSIS db's upstream mode
    qos_host_docsis_set_upstream_mode(multiple, multiple);
    for (const Case& c : cases) {
      SCOPED_TRACE(c.name);
      logs.clear();
      int32_t result = 0;
      EXPECT_EQ(captureStdout([&] { result = c.call(); }), "");
      EXPECT_EQ(result, c.result);
      ASSERT_EQ(logs.records().size(), c.text.empty() ? 0u : 1u);
      if (c.text.empty()) continue;
      const LogRecord& r = logs.records()[0];
      EXPECT_EQ(std::tie(r.text, r.function, r.level, r.module),
                std::tie(c.text, c.logger.empty() ? c.name : c.logger, c.level, c.module));
    }
  }
  EXPECT_EQ((std::vector<uint32_t>{v, id, b}), (std::vector<uint32_t>{7, 7, 7}));
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(dbcTaDb, nullptr);
  EXPECT_TRUE(events.events().empty());
}

}  // namespace
}  // namespace qostest
