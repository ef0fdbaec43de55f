// detached_clsf_test.cpp - classifier and PHS operations in a process that
// never attached: each refuses with the flow family's message under its own
// name. No test in this file may attach.
#include "support/fixture.h"

namespace qostest {
namespace {

TEST(DetachedClassifiers, EveryOperationRefusesUnderItsOwnName) {
  LogCapture logs;
  uint32_t v = 0;
  uint16_t id = 0;
  struct Case {
    int32_t result;
    const char* name;
  } cases[] = {
      {qos_intDb_FindClsfByRef(1, &v), "qos_intDb_FindClsfByRef"},
      {qos_intDb_FindClsfById(1, 1, &v), "qos_intDb_FindClsfById"},
      {qos_intDb_FindClsfByTaAndRef(1, 0, &v), "qos_intDb_FindClsfByTaAndRef"},
      {qos_intDb_GetNextClsfOfSf(1, -1, &id, &v), "qos_intDb_GetNextClsfOfSf"},
      {qos_intDb_IsClsfInDeleting(0, &v), "qos_intDb_IsClsfInDeleting"},
      {qos_intDb_SetClsfId(0, 1), "qos_intDb_SetClsfId"},
      {qos_intDb_GetClsfId(0, &id), "qos_intDb_GetClsfId"},
      {qos_intDb_SetClsfSfid(0, 1), "qos_intDb_SetClsfSfid"},
      {qos_intDb_GetClsfSfid(0, &v), "qos_intDb_GetClsfSfid"},
      {qos_intDb_GetClsfDbMaxIndex(&v), "qos_intDb_GetClsfDbMaxIndex"},
      {qos_intDb_SetClsfMaxNum(1), "qos_intDb_SetClsfMaxNum"},
      {qos_intDb_GetClsfMaxNum(&v), "qos_intDb_GetClsfMaxNum"},
      {qos_intDb_GetClsfNumber(&v), "qos_intDb_GetClsfNumber"},
      {qos_intDb_FindClsfDbNextFreeIndex(&v), "qos_intDb_FindClsfDbNextFreeIndex"},
      {qos_intDb_PrintClsf(1000), "qos_intDb_PrintClsf"},
      {qos_intDb_AddClsf(1, 1, 1), "qos_intDb_AddClsf"},
      {qos_intDb_AddClsfRef(1, 1, 0), "qos_intDb_AddClsfRef"},
      {qos_intDb_AddClsfId(1, 1, 0), "qos_intDb_AddClsfId"},
      {qos_intDb_AppendClsfRef(0, 1, 0), "qos_intDb_AppendClsfRef"},
      {qos_intDb_AppendClsfId(0, 1, 0), "qos_intDb_AppendClsfId"},
      {qos_intDb_ChangeClassifier(0, 0, 0), "qos_intDb_ChangeClassifier"},
      {qos_intDb_DeleteClassifier(0, 0, 0), "qos_intDb_DeleteClassifier"},
      {qos_intDb_AddPhs(1, 1), "qos_intDb_AddPhs"},
      {qos_intDb_AddPhsRef(1, 1, 0), "qos_intDb_AddPhsRef"},
      {qos_intDb_AddPhsId(1, 1, 0), "qos_intDb_AddPhsId"},
      {qos_intDb_AppendPhs_ClsfRef(1, 1, 0), "qos_intDb_AppendPhs_ClsfRef"},
      {qos_intDb_AppendPhs_ClsfId(1, 1, 0), "qos_intDb_AppendPhs_ClsfId"},
      {qos_intDb_ChangePhs(1, 1, 0), "qos_intDb_ChangePhs"},
      {qos_intDb_DeletePhs(1, 0, 0), "qos_intDb_DeletePhs"},
  };
  ASSERT_EQ(logs.records().size(), sizeof cases / sizeof cases[0]);
  for (std::size_t i = 0; i < logs.records().size(); ++i) {
    EXPECT_EQ(cases[i].result, -1);
    EXPECT_EQ(logs.records()[i].text,
              std::string("func ") + cases[i].name + ": ---> Internal DB  is not initialized");
    EXPECT_EQ(logs.records()[i].function, cases[i].name);
    EXPECT_EQ(logs.records()[i].level, QOS_LOG_ERROR);
  }
}

}  // namespace
}  // namespace qostest
