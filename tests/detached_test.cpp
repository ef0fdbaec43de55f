// detached_test.cpp - a process that never attached: every operation
// refuses with its family's message, and nothing crashes. No test in this
// file may attach.
#include <sys/ipc.h>
#include <sys/shm.h>

#include "support/fixture.h"

namespace qostest {
namespace {

TEST(Detached, LockAndUnlockFailWithTheirMessages) {
  LogCapture logs;
  EXPECT_NE(qos_taDb_Lock(), 0);
  EXPECT_NE(qos_taDb_Unlock(), 0);
  ASSERT_EQ(logs.records().size(), 2u);
  EXPECT_EQ(logs.records()[0].text, "Failed to lock the QOS TA semaphore");
  EXPECT_EQ(logs.records()[0].function, "qos_taDb_Lock");
  EXPECT_EQ(logs.records()[1].text, "Failed to Unlock the QOS TA semaphore");
  for (const auto& r : logs.records()) {
    EXPECT_EQ(r.level, 0);
    EXPECT_EQ(r.module, 24);
  }
}

TEST(Detached, EntryPointsWithoutARegion) {
  LogCapture logs;
  EXPECT_EQ(qos_IntDb_Reset(), -1);
  EXPECT_EQ(qos_IntDb_RetrieveAccess(), -1);  // no segment exists yet
  EXPECT_EQ(qos_intDb_SfDb_init(nullptr), -1);
  EXPECT_EQ(qos_intDb_MsgDb_init(nullptr), -1);
  EXPECT_EQ(qos_intDb_TaDb_init(nullptr), -1);
  EXPECT_EQ(qos_dbc_DbInit(nullptr), -1);
  EXPECT_EQ(dbcTaDb, nullptr);
  EXPECT_TRUE(logs.records().empty());
  // Still not initialised afterwards.
  uint32_t v = 0;
  EXPECT_EQ(qos_intDb_GetSfDbMaxIndex(&v), -1);
  EXPECT_EQ(logs.records().size(), 1u);
}

TEST(Detached, EveryFamilyRefusesWithItsMessage) {
  LogCapture logs;
  uint32_t v = 0;
  uint16_t id = 0;
  uint8_t* data = nullptr;
  struct Case {
    int32_t result;
    const char* text;
  } cases[] = {
      {qos_TaDb_AddNewTa(0, 0, 0, 0, nullptr, &v), "qos_TaDb_AddNewTa: ---> DSX TA DB is not initialized"},
      {qos_TaDb_GetTaId(0, &id), "qos_TaDb_GetTaId: ---> DSX TA DB is not initialized"},
      {qos_TaDb_printDb(), "qos_TaDb_printDb: ---> DSX TA DB is not initialized"},
      {qos_intDb_MsgGetReqBuffer(0, &data, &v), "qos_intDb_MsgGetReqBuffer: ---> DSX MSG DB is not initialized"},
      {qos_intDb_MsgDb_reset(), "qos_intDb_MsgDb_reset: ---> DSX MSG DB is not initialized"},
      {qos_intDb_MsgSetConfCode(0, 1), "qos_intDb_MsgSetConfCode: ---> DSX MSG DB is not initialized"},
      {qos_intDb_FindSfDbNextFreeIndex(&v), "func qos_intDb_FindSfDbNextFreeIndex: ---> Internal DB  is not initialized"},
      {qos_intDb_UpdateSfNumber(&v), "func qos_intDb_UpdateSfNumber: ---> Internal DB  is not initialized"},
  };
  ASSERT_EQ(logs.records().size(), sizeof cases / sizeof cases[0]);
  for (std::size_t i = 0; i < logs.records().size(); ++i) {
    EXPECT_EQ(cases[i].result, -1);
    EXPECT_EQ(logs.records()[i].text, cases[i].text);
    EXPECT_EQ(logs.records()[i].level, 1);
  }
  // The silent ones stay silent and harmless.
  logs.clear();
  qos_intDb_ResetTaDbRow(0);
  qos_intDb_TaDb_reset();
  qos_intDb_SfDb_Reset();
  qos_intDb_SfDb_RowReset(0);
  EXPECT_EQ(qos_intDb_GetNextSFDbIndex(), -1);
  EXPECT_EQ(qos_intDb_DsdReqRecieved(), 0);
  EXPECT_EQ(qos_intDb_MsgUpdateError(0, 1), 0);
  EXPECT_EQ(logs.records().size(), 1u);  // only the setter behind MsgUpdateError
}

// A segment 14 of another size (left by a foreign program) cannot become the
// region: the create fails, nothing is attached.
TEST(Detached, InitRefusesASegmentItCannotCreate) {
  LogCapture logs;
  int foreign = shmget(QOS_REGION_SEGMENT_ID, 100, IPC_CREAT | 0660);
  ASSERT_NE(foreign, -1);
  EXPECT_EQ(qos_IntDb_Init(), -1);
  ASSERT_EQ(logs.records().size(), 1u);
  EXPECT_EQ(logs.records()[0].text, "******* QOS internal DB create failure *********");
  EXPECT_EQ(logs.records()[0].function, "qos_IntDb_Init");
  EXPECT_EQ(logs.records()[0].level, 1);
  EXPECT_EQ(dbcTaDb, nullptr);
  EXPECT_EQ(qos_IntDb_Reset(), -1);  // still no region
  shmctl(foreign, IPC_RMID, nullptr);
}

}  // namespace
}  // namespace qostest
