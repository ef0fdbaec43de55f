// detached_mgmt_test.cpp - the walks and the bonding change store in a
// process that never attached. No test here may attach.
#include "support/fixture.h"

namespace qostest {
namespace {

TEST(DetachedMgmt, WalksAndAttributesAnswerMinusOneInEitherMode) {
  LogCapture logs;
  const uint32_t ifs[4] = {1, 2, 3, 4};
  for (int multiple : {0, 1}) {
    qos_host_docsis_set_upstream_mode(multiple, multiple);
    uint32_t out[3] = {7, 7, 7};
    EXPECT_EQ(qos_intDb_GetNextCmServiceTableIndex(0, 0, ifs, &out[0], &out[1]), -1);
    EXPECT_EQ(qos_intDb_GetCmServiceTableAttr(1, 1, &out[0], &out[1], &out[2]), -1);
    EXPECT_EQ(qos_intDb_GetNextSfSidClusterTableIndex(0, 0, 0, &out[0], &out[1], &out[2]), -1);
    EXPECT_EQ(std::vector<uint32_t>(out, out + 3), std::vector<uint32_t>(3, 7));
  }
  EXPECT_TRUE(logs.records().empty());
  uint32_t next = 7;
  EXPECT_EQ(qos_intDb_GetSnmpNextSid(0, &next), -1);
  EXPECT_EQ(next, 7u);
  ASSERT_EQ(logs.records().size(), 1u);
  EXPECT_EQ(logs.texts()[0], "func qos_intDb_GetSnmpNextSid: ---> Internal DB  is not initialized");
  EXPECT_EQ(logs.records()[0].level, QOS_LOG_ERROR);
  EXPECT_EQ(logs.records()[0].module, QOS_MODULE_TABLES);
}

TEST(DetachedMgmt, BondingChangeStoreRefusesEverythingWithoutAStore) {
  LogCapture logs;
  ASSERT_EQ(dbcTaDb, nullptr);
  const SidChannelMapping add = {QOS_MAP_ADD, 1, 0, 1};
  const uint32_t channels[4] = {1, 2, 3, 4};
  uint32_t bitmap = 7;
  EXPECT_EQ(qos_dbc_AddSfSidClusterMod(1, 1, 1, &add), -1);
  EXPECT_EQ(qos_dbc_VerifyAllSidClusterMaps(channels), -1);
  EXPECT_EQ(qos_dbc_SetActions(), -1);
  EXPECT_EQ(qos_dbc_ActiveDbAddSid(1, 1, 1, 1), -1);
  EXPECT_EQ(qos_dbc_RefreshBitmaps(), -1);
  EXPECT_EQ(qos_dbc_UpdateSfSidClusterDb(), -1);
  EXPECT_EQ(qos_dbc_SetSfChannelActive(1, 0, 1), -1);
  EXPECT_EQ(qos_dbc_GetSfChannelBitmap(1, &bitmap), -1);
  EXPECT_EQ(qos_dbc_ResetSfBitmaps(), -1);
  EXPECT_EQ(bitmap, 7u);
  EXPECT_TRUE(logs.records().empty());
  EXPECT_EQ(qos_dbc_DbReset(), -1);
  ASSERT_EQ(logs.records().size(), 1u);
  EXPECT_EQ(logs.texts()[0], "Cannot reset QosDBC DB, shared mem not connected");
  EXPECT_EQ(logs.records()[0].level, QOS_LOG_ERROR);
  EXPECT_EQ(logs.records()[0].module, QOS_MODULE_DBC);
  EXPECT_EQ(logs.records()[0].function, "qos_dbc_DbReset");
}

}  // namespace
}  // namespace qostest
