// detached_outcome_test.cpp - the outcome operations in a process that never
// attached to the store (no test here calls qos_IntDb_Init).
#include "support/fixture.h"

namespace qostest {
namespace {

TEST(DetachedOutcome, EveryOperationRefusesWithItsOwnName) {
  struct Case {
    const char* name;
    int32_t (*op)();
  };
  const Case cases[] = {
      {"qos_intDb_UpdateSfOnTaSucceeded", [] { return qos_intDb_UpdateSfOnTaSucceeded(1); }},
      {"qos_intDb_UpdateSfOnTaFailure", [] { return qos_intDb_UpdateSfOnTaFailure(1); }},
      {"qos_intDb_UpdateSfOnTaError", [] { return qos_intDb_UpdateSfOnTaError(1); }},
      {"qos_intDb_UpdateSfOnTaForcedEnd", [] { return qos_intDb_UpdateSfOnTaForcedEnd(1); }},
      {"qos_intDb_UpdateSfOnTaEnd", [] { return qos_intDb_UpdateSfOnTaEnd(1); }},
      {"qos_intDb_UpdateSfAddAbort", [] { return qos_intDb_UpdateSfAddAbort(1); }},
      {"qos_intDb_UpdateSfOnTaAckLost", [] { return qos_intDb_UpdateSfOnTaAckLost(1); }},
      {"qos_intDb_UpdateOnRegFinish", [] { return qos_intDb_UpdateOnRegFinish(); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    LogCapture logs;
    EventCapture events;
    EXPECT_EQ(c.op(), -1);
    ASSERT_EQ(logs.records().size(), 1u);
    const LogRecord& r = logs.records()[0];
    EXPECT_EQ(r.text, std::string("func ") + c.name + ": ---> Internal DB  is not initialized");
    EXPECT_EQ(r.function, c.name);
    EXPECT_EQ(r.level, QOS_LOG_ERROR);
    EXPECT_EQ(r.module, QOS_MODULE_TABLES);
    EXPECT_TRUE(events.events().empty());
  }
}

}  // namespace
}  // namespace qostest
