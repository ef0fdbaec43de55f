// SPDX-License-Identifier: MIT
// msg_errors.cpp - the error record beside each row of the message store.
//
// While the client's DSX state machine checks a message it notes here the
// confirmation code its answer will carry, the error set that explains a
// rejection (code, type and subtypes of the errored parameter) and the SFID
// of the flow in error; it reads them back to build the answer. A reset
// record reads confirmation code 0 and error code 253. Record 10 belongs to
// no transaction and carries confirmation code 10 from attachment on; the
// buffer resets never touch it. Getters leave a defined value in their
// outputs when they fail.
#include "frame/log.h"
#include "qosintdb.h"

using qos::local;

namespace {

constexpr uint32_t kResetErrorCode = 253;
constexpr uint32_t kFailedErrorType = 10;

qos::MsgErrorRecord& record(uint32_t index) { return local.msgErrors[index]; }

}  // namespace

extern "C" {

// Points this process's views at the message store; attaching writes one
// record of the region: record 10 answers transactions nobody knows
// (reject-unknown-transaction-id).
int32_t qos_intDb_MsgDb_init(void* base) {
  if (base == nullptr) return -1;
  auto* region = static_cast<qos::QosIntDbRegion*>(base);
  local.msgDbReady = 1;
  local.msgs = decltype(local.msgs)(region->msgs);
  local.msgErrors = decltype(local.msgErrors)(region->msgErrors);
  qos_intDb_MsgSetConfCode(10, 10);
  return 0;
}

int32_t qos_intDb_MsgSetConfCode(uint32_t taIndex, uint32_t confCode) {
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  record(taIndex).confCode = confCode;
  return 0;
}

int32_t qos_intDb_MsgGetConfCode(uint32_t taIndex, uint32_t* confCode) {
  if (confCode == nullptr) return -1;
  *confCode = 0;
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  *confCode = record(taIndex).confCode;
  return 0;
}

int32_t qos_intDb_MsgUpdateError(uint32_t taIndex, uint32_t confCode) {
  qos_intDb_MsgSetConfCode(taIndex, confCode);
  return 0;
}

int32_t qos_intDb_MsgSetErrorSet(uint32_t taIndex, uint32_t errorCode, uint32_t errorType,
                                 uint32_t errorSubType, uint32_t errorSubType2) {
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  qos::MsgErrorRecord& rec = record(taIndex);
  rec.errorCode = errorCode;
  rec.errorType = errorType;
  rec.errorSubType = errorSubType;
  rec.errorSubType2 = errorSubType2;
  return 0;
}

int32_t qos_intDb_MsgGetErrorCode(uint32_t taIndex, uint32_t* errorCode) {
  if (errorCode == nullptr) return -1;
  *errorCode = 0;
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  *errorCode = record(taIndex).errorCode;
  return 0;
}

int32_t qos_intDb_MsgGetErrorType(uint32_t taIndex, uint32_t* errorType) {
  if (errorType == nullptr) return -1;
  *errorType = kFailedErrorType;
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  *errorType = record(taIndex).errorType;
  return 0;
}

int32_t qos_intDb_MsgGetErrorSubType(uint32_t taIndex, uint32_t* errorSubType,
                                     uint32_t* errorSubType2) {
  if (errorSubType == nullptr || errorSubType2 == nullptr) return -1;
  *errorSubType = 0;
  *errorSubType2 = 0;
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  *errorSubType = record(taIndex).errorSubType;
  *errorSubType2 = record(taIndex).errorSubType2;
  return 0;
}

int32_t qos_intDb_MsgSetErroredSfId(uint32_t taIndex, uint32_t sfId) {
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  record(taIndex).erroredSfId = sfId;
  return 0;
}

int32_t qos_intDb_MsgGetErroredSfId(uint32_t taIndex, uint32_t* sfId) {
  if (sfId == nullptr) return -1;
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  *sfId = record(taIndex).erroredSfId;
  return 0;
}

int32_t qos_intDb_MsgResetError(uint32_t taIndex) {
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  qos::MsgErrorRecord& rec = record(taIndex);
  rec = qos::MsgErrorRecord{};
  rec.errorCode = kResetErrorCode;
  return 0;
}

}  // extern "C"
