// SPDX-License-Identifier: MIT
// msg_buffers.cpp - the DSX message store: request, response, acknowledge.
//
// Every transaction row (TA DB index 0..9) has three 1600-byte buffers in
// the region for the DOCSIS messages of its exchange, plus a row 10 that
// belongs to no transaction. The client's DSX state machine builds a
// message here piece by piece (fields, TLVs), replaces it whole, or reads
// and writes it in place through the address the get operations hand out.
// A buffer never holds 1600 bytes or more: every write that would reach
// that is refused and changes nothing. The library never interprets the
// bytes. Only messages/ writes the buffers and error records; it calls no
// other subsystem.
#include <cstdio>
#include <cstring>

#include "frame/log.h"
#include "qosintdb.h"

using qos::local;
using qos::MsgBuffer;

namespace {

constexpr uint32_t kDsdRequestHeader = 8;   // transaction ID, 2 reserved, SFID
constexpr uint32_t kDsdResponseHeader = 4;  // transaction ID, confirmation code, reserved
constexpr uint32_t kRequestHeader = 2;      // transaction ID
constexpr uint32_t kAnswerHeader = 3;       // transaction ID, confirmation code
constexpr uint32_t kRecordWithoutTransaction = 10;

// True when a buffer of `used` bytes can take `more` bytes and stay below 1600.
bool fits(uint32_t used, uint64_t more) { return uint64_t{used} + more < qos::kMsgBufferSize; }

int32_t addTlv(MsgBuffer& buf, uint32_t type, uint32_t length, const uint8_t* value) {
  if (!fits(buf.length, uint64_t{2} + length)) return -1;
  if (value == nullptr && length != 0) return -1;
  buf.data[buf.length] = static_cast<uint8_t>(type);
  buf.data[buf.length + 1] = static_cast<uint8_t>(length);
  buf.length += 2;
  if (length != 0) std::memcpy(&buf.data[buf.length], value, length);
  buf.length += length;
  return 0;
}

int32_t addField(MsgBuffer& buf, uint32_t length, const uint8_t* bytes) {
  if (!fits(buf.length, length)) return -1;
  if (bytes == nullptr && length != 0) return -1;
  if (length != 0) std::memcpy(&buf.data[buf.length], bytes, length);
  buf.length += length;
  return 0;
}

int32_t replace(MsgBuffer& buf, const uint8_t* bytes, uint32_t length) {
  if (bytes == nullptr && length != 0) return -1;
  if (length != 0) std::memmove(buf.data, bytes, length);
  buf.length = length;
  return 0;
}

int32_t handOut(MsgBuffer& buf, uint8_t** data, uint32_t* length) {
  if (data == nullptr || length == nullptr) return -1;
  *data = buf.data;
  *length = buf.length;
  return 0;
}

void clearBuffer(MsgBuffer& buf) {
  buf.length = 0;
  std::memset(buf.data, 0, sizeof buf.data);
}

void emptyRow(uint32_t index) {
  qos::MsgRow& row = local.msgs[index];
  row.req.length = 0;
  row.rsp.length = 0;
  row.ack.length = 0;
  if (index != kRecordWithoutTransaction) qos_intDb_MsgResetError(index);
}

void dumpBuffer(const char* label, const MsgBuffer& buf) {
  std::printf(label, static_cast<int>(buf.length));
  uint32_t shown = buf.length < qos::kMsgBufferSize ? buf.length : qos::kMsgBufferSize;
  for (uint32_t i = 0; i < shown; ++i) {
    if (i % 16 == 0) std::printf("\n\t");
    std::printf("%02x ", buf.data[i]);
  }
}

}  // namespace

extern "C" {

int32_t qos_intDb_MsgDb_reset(void) {
  QOS_REQUIRE_MSG_DB(-1);
  for (uint32_t i = 0; i < qos::kMsgRows; ++i) {
    clearBuffer(local.msgs[i].req);
    clearBuffer(local.msgs[i].rsp);
    clearBuffer(local.msgs[i].ack);
    if (i != kRecordWithoutTransaction) qos_intDb_MsgResetError(i);
  }
  return 0;
}

int32_t qos_intDb_MsgResetTaBuffer(uint32_t taIndex) {
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  emptyRow(taIndex);
  return 0;
}

int32_t qos_intDb_MsgInitBufferForTa(uint32_t taIndex, uint32_t type, uint32_t noHeader) {
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  qos::MsgRow& row = local.msgs[taIndex];
  row.req.length = row.rsp.length = row.ack.length = 0;
  if (noHeader == 0) {
    // Reserve the fixed part that precedes the TLVs of each message.
    bool dsd = type == QOS_TA_DSD;
    row.req.length = dsd ? kDsdRequestHeader : kRequestHeader;
    row.rsp.length = dsd ? kDsdResponseHeader : kAnswerHeader;
    row.ack.length = dsd ? 0 : kAnswerHeader;
  }
  if (taIndex != kRecordWithoutTransaction) qos_intDb_MsgResetError(taIndex);
  return 0;
}

int32_t qos_intDb_MsgAddReqBufferTlv(uint32_t taIndex, uint32_t type, uint32_t length,
                                     const uint8_t* value) {
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  return addTlv(local.msgs[taIndex].req, type, length, value);
}

int32_t qos_intDb_MsgAddRspBufferTlv(uint32_t taIndex, uint32_t type, uint32_t length,
                                     const uint8_t* value) {
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  return addTlv(local.msgs[taIndex].rsp, type, length, value);
}

int32_t qos_intDb_MsgAddAckBufferTlv(uint32_t taIndex, uint32_t type, uint32_t length,
                                     const uint8_t* value) {
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  return addTlv(local.msgs[taIndex].ack, type, length, value);
}

int32_t qos_intDb_MsgAddReqBufferField(uint32_t taIndex, uint32_t length, const uint8_t* bytes) {
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  return addField(local.msgs[taIndex].req, length, bytes);
}

int32_t qos_intDb_MsgAddRspBufferField(uint32_t taIndex, uint32_t length, const uint8_t* bytes) {
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  return addField(local.msgs[taIndex].rsp, length, bytes);
}

int32_t qos_intDb_MsgAddAckBufferField(uint32_t taIndex, uint32_t length, const uint8_t* bytes) {
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  return addField(local.msgs[taIndex].ack, length, bytes);
}

int32_t qos_intDb_MsgUpdateReqBuffer(uint32_t taIndex, const uint8_t* bytes, uint32_t length) {
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  // A new request starts the exchange over, even if it does not fit.
  emptyRow(taIndex);
  if (!fits(0, length)) {
    QOS_LOG(QOS_LOG_ERROR, "%s: Unsufficient memory for DSX-REQ message, TA DB index = %d", __func__,
            static_cast<int>(taIndex));
    return -1;
  }
  return replace(local.msgs[taIndex].req, bytes, length);
}

int32_t qos_intDb_MsgUpdateRspBuffer(uint32_t taIndex, const uint8_t* bytes, uint32_t length) {
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  if (!fits(0, length)) {
    QOS_LOG(QOS_LOG_ERROR, "%s: Unsufficient memory for DSX-RSP message, TA DB index = %d", __func__,
            static_cast<int>(taIndex));
    return -1;
  }
  return replace(local.msgs[taIndex].rsp, bytes, length);
}

int32_t qos_intDb_MsgUpdateAckBuffer(uint32_t taIndex, const uint8_t* bytes, uint32_t length) {
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  if (!fits(0, length)) {
    QOS_LOG(QOS_LOG_ERROR, "%s: Unsufficient memory for DSX-ACK message, TA DB index = %d", __func__,
            static_cast<int>(taIndex));
    return -1;
  }
  return replace(local.msgs[taIndex].ack, bytes, length);
}

int32_t qos_intDb_MsgGetReqBuffer(uint32_t taIndex, uint8_t** data, uint32_t* length) {
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  return handOut(local.msgs[taIndex].req, data, length);
}

int32_t qos_intDb_MsgGetRspBuffer(uint32_t taIndex, uint8_t** data, uint32_t* length) {
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  return handOut(local.msgs[taIndex].rsp, data, length);
}

int32_t qos_intDb_MsgGetAckBuffer(uint32_t taIndex, uint8_t** data, uint32_t* length) {
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  return handOut(local.msgs[taIndex].ack, data, length);
}

int32_t qos_intDb_MsgGetMsgSendBuff(uint32_t taIndex, uint8_t** data, uint32_t* length) {
  QOS_REQUIRE_MSG_ROW(taIndex, -1);
  return data != nullptr && length != nullptr ? 0 : -1;
}

int32_t qos_intDb_MsgDbPrint(uint32_t taIndex) {
  QOS_REQUIRE_MSG_DB(-1);
  if (taIndex >= qos::kTaRows) {
    std::printf(" Transaction message DB index %d is out of range", static_cast<int>(taIndex));
    return -1;
  }
  const qos::MsgRow& row = local.msgs[taIndex];
  std::printf(" DSX transaction DB index = %d \n\n", static_cast<int>(taIndex));
  dumpBuffer(" DSX request buffer length = %d\n  Request buffer:", row.req);
  dumpBuffer("\n\n DSX response buffer length = %d\n  Response buffer:", row.rsp);
  dumpBuffer("\n\n DSX acknowledge buffer length = %d\n  Acknowledge buffer:", row.ack);
  std::printf("\n");
  return 0;
}

// The three message print operations only validate their arguments.
int32_t qos_intDb_MsgReqPrint(uint32_t taIndex, uint32_t type) {
  QOS_REQUIRE_MSG_DB(-1);
  return taIndex < qos::kTaRows && type <= QOS_TA_DSD ? 0 : -1;
}

int32_t qos_intDb_MsgRspPrint(uint32_t taIndex, uint32_t type) {
  QOS_REQUIRE_MSG_DB(-1);
  return taIndex < qos::kTaRows && type <= QOS_TA_DSD ? 0 : -1;
}

int32_t qos_intDb_MsgAckPrint(uint32_t taIndex, uint32_t type) {
  QOS_REQUIRE_MSG_DB(-1);
  return taIndex < qos::kTaRows && type <= QOS_TA_DSD ? 0 : -1;
}

}  // extern "C"
