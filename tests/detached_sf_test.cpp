// detached_sf_test.cpp - flow and SID cluster operations in a process that
// never attached. No test in this file may attach.
#include <functional>

#include "support/fixture.h"

namespace qostest {
namespace {

TEST(DetachedSf, EveryOperationRefusesWithItsOwnName) {
  LogCapture logs;
  uint32_t u32 = 0;
  SidChannelMapping m[4] = {};
  struct Case {
    const char* name;
    std::function<int32_t()> call;
  } cases[] = {
      {"qos_intDb_AddSf", [] { return qos_intDb_AddSf(1, 1, 1); }},
      {"qos_intDb_StartDeleteSF", [] { return qos_intDb_StartDeleteSF(0, 0); }},
      {"qos_intDb_GetSfTaIndexAndPairSf", [&] { return qos_intDb_GetSfTaIndexAndPairSf(0, &u32, &u32); }},
      {"qos_intDb_GetSfRef", [&] { return qos_intDb_GetSfRef(0, &u32); }},
      {"qos_intDb_SetSfSid", [] { return qos_intDb_SetSfSid(0, 1); }},
      {"qos_intDb_SetServiceFlowParamSet", [] { return qos_intDb_SetServiceFlowParamSet(0, 1); }},
      {"qos_intDb_fullPrintSF", [] { return qos_intDb_fullPrintSF(0); }},
      {"qos_intDb_shortPrintSF", [] { return qos_intDb_shortPrintSF(200); }},
      {"qos_intDb_AddSfSidCluster", [&] { return qos_intDb_AddSfSidCluster(1, 1, m); }},
      {"qos_intDb_SetSfSidClusterParams", [] { return qos_intDb_SetSfSidClusterParams(1, 1, 1, 1, 1); }},
  };
  for (const auto& c : cases) {
    logs.clear();
    std::string out = captureStdout([&] { EXPECT_EQ(c.call(), -1) << c.name; });
    EXPECT_EQ(out, "") << c.name;
    ASSERT_EQ(logs.records().size(), 1u) << c.name;
    EXPECT_EQ(logs.records()[0].text, std::string("func ") + c.name + ": ---> Internal DB  is not initialized");
    EXPECT_EQ(logs.records()[0].function, c.name);
    EXPECT_EQ(logs.records()[0].level, 1);
    EXPECT_EQ(logs.records()[0].module, 24);
  }
}

// The two SNMP/diagnostic readers without the initialised check have no
// table to read: -1, silently, nothing printed, the output untouched.
TEST(DetachedSf, UncheckedReadersAnswerMinusOneSilently) {
  LogCapture logs;
  uint32_t sid = 42;
  EXPECT_EQ(qos_intDb_GetSidClusterTableRow(0, 0, 0, &sid), -1);
  EXPECT_EQ(sid, 42u);
  EXPECT_EQ(captureStdout([] { EXPECT_EQ(qos_intDb_PrintSidClusters(), -1); }), "");
  EXPECT_EQ(qos_intDb_FindSFIdValid(1), -1);
  EXPECT_TRUE(logs.records().empty());
}

}  // namespace
}  // namespace qostest
