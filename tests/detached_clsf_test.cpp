// detached_clsf_test.cpp - classifier and PHS operations in a process that
// never attached: each refuses with the flow family's message under its own
// name. No test in this file may attach.
#include <set>

#include "support/fixture.h"

namespace qostest {
namespace {

TEST(DetachedClassifiers, EveryOperationRefusesUnderItsOwnName) {
  LogCapture logs;
  uint32_t v = 0;
  uint16_t id = 0;
  const int32_t results[] = {
      qos_intDb_FindClsfByRef(1, &v), qos_intDb_FindClsfById(1, 1, &v), qos_intDb_FindClsfByTaAndRef(1, 0, &v),
      qos_intDb_GetNextClsfOfSf(1, -1, &id, &v), qos_intDb_IsClsfInDeleting(0, &v), qos_intDb_SetClsfId(0, 1),
      qos_intDb_GetClsfId(0, &id), qos_intDb_SetClsfSfid(0, 1), qos_intDb_GetClsfSfid(0, &v),
      qos_intDb_GetClsfDbMaxIndex(&v), qos_intDb_SetClsfMaxNum(1), qos_intDb_GetClsfMaxNum(&v),
      qos_intDb_GetClsfNumber(&v), qos_intDb_FindClsfDbNextFreeIndex(&v), qos_intDb_PrintClsf(1000),
      qos_intDb_AddClsf(1, 1, 1), qos_intDb_AddClsfRef(1, 1, 0), qos_intDb_AddClsfId(1, 1, 0),
      qos_intDb_AppendClsfRef(0, 1, 0), qos_intDb_AppendClsfId(0, 1, 0), qos_intDb_ChangeClassifier(0, 0, 0),
      qos_intDb_DeleteClassifier(0, 0, 0), qos_intDb_AddPhs(1, 1), qos_intDb_AddPhsRef(1, 1, 0),
      qos_intDb_AddPhsId(1, 1, 0), qos_intDb_AppendPhs_ClsfRef(1, 1, 0), qos_intDb_AppendPhs_ClsfId(1, 1, 0),
      qos_intDb_ChangePhs(1, 1, 0), qos_intDb_DeletePhs(1, 0, 0)};
  std::set<std::string> names;
  for (const auto& r : logs.records()) {
    EXPECT_EQ(r.text, "func " + r.function + ": ---> Internal DB  is not initialized");
    EXPECT_EQ(r.level, QOS_LOG_ERROR);
    names.insert(r.function);
  }
  const std::size_t n = sizeof results / sizeof results[0];
  EXPECT_EQ(names.size(), n);
  EXPECT_EQ(std::vector<int32_t>(results, results + n), std::vector<int32_t>(n, -1));
}

}  // namespace
}  // namespace qostest
