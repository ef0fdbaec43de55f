// detached_active_test.cpp - the active tables, the consistency check and
// the SFID substitution in a process that never attached: each refuses
// with the not-initialised message, writes nothing and does not crash.
// No test in this file may attach.
#include "support/fixture.h"

namespace qostest {
namespace {

#define CALL(f, ...) {#f, f(__VA_ARGS__)}

TEST(DetachedActive, EveryOperationRefuses) {
  LogCapture logs;
  uint32_t v = 7;
  uint16_t clsfId = 7;
  uint8_t phsi = 7;
  std::string out;
  std::vector<std::pair<std::string, int32_t>> cases = {
      CALL(qos_intDb_FillActiveUsSfTable), CALL(qos_intDb_AddActiveUsSfEntry, 1),
      CALL(qos_intDb_DeleteActiveUsSfEntry, 1), CALL(qos_intDb_GetActiveSfIndexBySfid, 1, &v),
      CALL(qos_intDb_GetActiveSfId, 0, &v), CALL(qos_intDb_SetActiveSfId, 0, 1),
      CALL(qos_intDb_AddActivePhsEntry, 1, 1, 1, 2), CALL(qos_intDb_AddActivePhsEntryByDsid, 1),
      CALL(qos_intDb_DeleteActivePhsEntry, 1, 1, 1, 2), CALL(qos_intDb_DeleteActivePhsEntryByIndex, 0, 2),
      CALL(qos_intDb_GetActivePhsIndex, 1, 2, &v), CALL(qos_intDb_GetActivePhsIndexByClsf, 1, 1, 2, &v),
      CALL(qos_intDb_GetActivePhsIndexByDsid, 1, &v), CALL(qos_intDb_GetActivePhsInfo, 0, 2, &v, &clsfId, &phsi),
      CALL(qos_intDb_SetActivePhsSfid, 0, 1, 1), CALL(qos_intDb_CheckCorrectness),
      CALL(qos_intDb_SubstituteSfId, 1, 2),
  };
  out = captureStdout([&] {
    cases.push_back(CALL(qos_intDb_PrintActiveSfDB));
    cases.push_back(CALL(qos_intDb_PrintActivePhsDB));
  });
  std::vector<std::string> texts;
  for (const auto& c : cases) {
    EXPECT_EQ(c.second, -1) << c.first;
    texts.push_back("func " + c.first + ": ---> Internal DB  is not initialized");
  }
  EXPECT_EQ(logs.texts(), texts);
  for (const auto& r : logs.records()) EXPECT_EQ(r.level, 1);
  EXPECT_EQ(out, "");
  EXPECT_EQ((std::vector<uint32_t>{v, clsfId, phsi}), (std::vector<uint32_t>{7, 7, 7}));
}

}  // namespace
}  // namespace qostest
