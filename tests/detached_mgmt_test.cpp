// detached_mgmt_test.cpp - the walks and the bonding change store in a
// process that never attached. No test here may attach.
#include "support/fixture.h"

namespace qostest {
namespace {

TEST(DetachedMgmt, EveryWalkAndStoreOperationAnswersMinusOne) {
  LogCapture logs;
  const uint32_t four[4] = {1, 2, 3, 4};
  const SidChannelMapping add = {QOS_MAP_ADD, 1, 0, 1};
  uint32_t out[3] = {7, 7, 7};
  for (int multiple : {0, 1}) {
    qos_host_docsis_set_upstream_mode(multiple, multiple);
    EXPECT_EQ(qos_intDb_GetNextCmServiceTableIndex(0, 0, four, &out[0], &out[1]), -1);
    EXPECT_EQ(qos_intDb_GetCmServiceTableAttr(1, 1, &out[0], &out[1], &out[2]), -1);
    EXPECT_EQ(qos_intDb_GetNextSfSidClusterTableIndex(0, 0, 0, &out[0], &out[1], &out[2]), -1);
  }
  for (int32_t result : {qos_dbc_AddSfSidClusterMod(1, 1, 1, &add), qos_dbc_VerifyAllSidClusterMaps(four),
                         qos_dbc_SetActions(), qos_dbc_ActiveDbAddSid(1, 1, 1, 1), qos_dbc_RefreshBitmaps(),
                         qos_dbc_UpdateSfSidClusterDb(), qos_dbc_SetSfChannelActive(1, 0, 1),
                         qos_dbc_GetSfChannelBitmap(1, &out[0]), qos_dbc_ResetSfBitmaps(),
                         qos_intDb_GetSnmpNextSid(0, &out[0]), qos_dbc_DbReset()}) {
    EXPECT_EQ(result, -1);
  }
  EXPECT_EQ(std::vector<uint32_t>(out, out + 3), std::vector<uint32_t>(3, 7));
  ASSERT_EQ(logs.records().size(), 2u);
  EXPECT_EQ(logs.texts(), (std::vector<std::string>{"func qos_intDb_GetSnmpNextSid: ---> Internal DB  is not initialized",
                                                    "Cannot reset QosDBC DB, shared mem not connected"}));
  EXPECT_EQ(std::vector<int>({logs.records()[0].module, logs.records()[1].module, logs.records()[1].level}),
            std::vector<int>({QOS_MODULE_TABLES, QOS_MODULE_DBC, QOS_LOG_ERROR}));
  EXPECT_EQ(dbcTaDb, nullptr);
}

}  // namespace
}  // namespace qostest
