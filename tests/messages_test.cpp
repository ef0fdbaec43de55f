// SPDX-License-Identifier: MIT
// messages_test.cpp - the DSX message store: the 1599-byte limit of every
// buffer operation, resets, header reservation, row 10, the dump and the
// error records. Bad indexes and pointers: hostile_test.
#include <functional>

#include "support/fixture.h"

namespace qostest {
namespace {

enum Buffer { kReq, kRsp, kAck };
int32_t (*const kTlv[])(uint32_t, uint32_t, uint32_t, const uint8_t*) = {
    qos_intDb_MsgAddReqBufferTlv, qos_intDb_MsgAddRspBufferTlv, qos_intDb_MsgAddAckBufferTlv};
int32_t (*const kField[])(uint32_t, uint32_t, const uint8_t*) = {
    qos_intDb_MsgAddReqBufferField, qos_intDb_MsgAddRspBufferField, qos_intDb_MsgAddAckBufferField};
int32_t (*const kUpdate[])(uint32_t, const uint8_t*, uint32_t) = {
    qos_intDb_MsgUpdateReqBuffer, qos_intDb_MsgUpdateRspBuffer, qos_intDb_MsgUpdateAckBuffer};

qos::MsgBuffer& buffer(uint32_t row, Buffer b) {
  qos::MsgRow& r = store().msgs[row];
  return b == kReq ? r.req : b == kRsp ? r.rsp : r.ack;
}
const std::vector<uint32_t> kResetRecord = {0, 253, 0, 0, 0, 0};
std::vector<uint32_t> record(uint32_t i) {
  const qos::MsgErrorRecord& r = store().msgErrors[i];
  return {r.confCode, r.errorCode, r.errorType, r.errorSubType, r.errorSubType2, r.erroredSfId};
}

using Messages = StoreTest;

// Every write stops below 1600 bytes and a refused write changes nothing.
TEST_F(Messages, EveryBufferOperationStopsBelow1600Bytes) {
  std::vector<uint8_t> bytes(2000, 0x33);
  const char* const kOp[] = {"Req", "Rsp", "Ack"};
  const char* const kKind[] = {"REQ", "RSP", "ACK"};
  for (Buffer b : {kReq, kRsp, kAck}) {
    for (uint32_t row : {0u, 10u}) {
      SCOPED_TRACE(std::string(kOp[b]) + " row " + std::to_string(row));
      struct Case {
        uint32_t start;  // buffer length before the call
        bool tlv;        // a TLV, else a field
        uint32_t len;
        int32_t result;
      } cases[] = {
          {1597, true, 0, 0},     {1598, true, 0, -1},     {1500, true, 97, 0},    {1500, true, 98, -1},
          {1598, false, 1, 0},    {1599, false, 1, -1},    {0, false, 1599, 0},    {0, false, 1600, -1},
          {10, true, 0xFFFFFFFF, -1}, {10, false, 0xFFFFFFFF, -1},
      };
      for (const auto& c : cases) {
        buffer(row, b).length = c.start;
        auto before = snapshot();
        int32_t rc = c.tlv ? kTlv[b](row, 0x1FF, c.len, bytes.data()) : kField[b](row, c.len, bytes.data());
        EXPECT_EQ(rc, c.result) << c.start << "+" << c.len;
        uint32_t grown = c.tlv ? c.len + 2 : c.len;
        EXPECT_EQ(buffer(row, b).length, rc == 0 ? c.start + grown : c.start);
        EXPECT_TRUE(rc == 0 || changedOffsets(before, snapshot()).empty());
      }
      logs.clear();
      EXPECT_EQ(kUpdate[b](row, bytes.data(), 1599), 0);
      EXPECT_EQ(buffer(row, b).length, 1599u);
      EXPECT_EQ(kUpdate[b](row, bytes.data(), 1600), -1);
      ASSERT_EQ(logs.records().size(), 1u);
      EXPECT_EQ(logs.records()[0].text, std::string("qos_intDb_MsgUpdate") + kOp[b] + "Buffer: Unsufficient memory for DSX-" +
                                            kKind[b] + " message, TA DB index = " + std::to_string(row));
      // A refused request still started the exchange over; the others keep theirs.
      EXPECT_EQ(buffer(row, b).length, b == kReq ? 0u : 1599u);
    }
  }
}

TEST_F(Messages, TlvLayoutAndInPlaceAccess) {
  const uint8_t value[3] = {7, 8, 9};
  kUpdate[kReq](4, value, 2);  // a new request starts the exchange over: first
  ASSERT_EQ(qos_intDb_MsgAddAckBufferTlv(4, 0x118, 3, value), 0);
  ASSERT_EQ(qos_intDb_MsgAddAckBufferTlv(4, 5, 0, nullptr), 0);
  const uint8_t expected[7] = {0x18, 3, 7, 8, 9, 5, 0};
  EXPECT_EQ(std::memcmp(buffer(4, kAck).data, expected, sizeof expected), 0);
  uint8_t* data = nullptr;
  uint32_t len = 0;
  int32_t (*const get[])(uint32_t, uint8_t**, uint32_t*) = {qos_intDb_MsgGetReqBuffer, qos_intDb_MsgGetRspBuffer,
                                                            qos_intDb_MsgGetAckBuffer};
  for (Buffer b : {kReq, kRsp, kAck}) {  // each buffer in place, with its length
    EXPECT_EQ(get[b](4, &data, &len), 0);
    EXPECT_EQ(std::make_pair(data, len), std::make_pair(&buffer(4, b).data[0], b == kReq ? 2u : b == kRsp ? 0u : 7u));
  }
  EXPECT_EQ(qos_intDb_MsgGetAckBuffer(4, nullptr, &len) | qos_intDb_MsgGetAckBuffer(4, &data, nullptr), -1);
  EXPECT_EQ(qos_intDb_MsgGetMsgSendBuff(4, &data, &len), 0);
}

// What each row reset leaves in the three lengths; every one but row 10's
// also resets the error record.
TEST_F(Messages, RowResetsAndHeaderReservation) {
  std::vector<uint8_t> bytes(1600, 0);
  auto init = [](uint32_t type, uint32_t noHeader) {
    return [=](uint32_t row) { return qos_intDb_MsgInitBufferForTa(row, type, noHeader); };
  };
  const struct {
    std::function<int32_t(uint32_t)> op;
    int32_t result;
    uint32_t req, rsp, ack;
  } cases[] = {
      {[&](uint32_t row) { return kUpdate[kReq](row, bytes.data(), 2); }, 0, 2, 0, 0},
      {[&](uint32_t row) { return kUpdate[kReq](row, bytes.data(), 1600); }, -1, 0, 0, 0},  // refused, still started over
      {qos_intDb_MsgResetTaBuffer, 0, 0, 0, 0},
      {init(QOS_TA_DSD, 0), 0, 8, 4, 0}, {init(QOS_TA_DSA, 0), 0, 2, 3, 3}, {init(QOS_TA_DSC, 0), 0, 2, 3, 3},
      {init(77, 0), 0, 2, 3, 3},         {init(QOS_TA_DSD, 1), 0, 0, 0, 0}, {init(QOS_TA_DSA, 5), 0, 0, 0, 0},
  };
  for (uint32_t row : {3u, 10u}) {
    for (const auto& c : cases) {
      SCOPED_TRACE("row " + std::to_string(row) + " case " + std::to_string(&c - cases));
      for (Buffer b : {kReq, kRsp, kAck}) kUpdate[b](row, bytes.data(), 9);
      qos_intDb_MsgSetErrorSet(row, 1, 2, 3, 4);
      qos_intDb_MsgSetConfCode(row, 9);
      EXPECT_EQ(c.op(row), c.result);
      const uint32_t lengths[3] = {c.req, c.rsp, c.ack};
      for (Buffer b : {kReq, kRsp, kAck}) EXPECT_EQ(buffer(row, b).length, lengths[b]) << b;
      EXPECT_EQ(record(row), (row == 10 ? std::vector<uint32_t>{9, 1, 2, 3, 4, 0} : kResetRecord));
    }
  }
}

TEST_F(Messages, IndexMessagesAndTheDump) {
  uint8_t* data = nullptr;
  uint32_t len = 0;
  EXPECT_EQ(qos_intDb_MsgResetTaBuffer(11), -1);
  EXPECT_EQ(qos_intDb_MsgGetReqBuffer(0xFFFFFFFF, &data, &len), -1);
  EXPECT_EQ(logs.texts(), (std::vector<std::string>{"qos_intDb_MsgResetTaBuffer: ---> DSX MSG DB index 11 is out of range",
                                                    "qos_intDb_MsgGetReqBuffer: ---> DSX MSG DB index -1 is out of range"}));
  logs.clear();
  std::vector<uint8_t> bytes(17);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 15);
  kUpdate[kReq](1, bytes.data(), 17);
  kUpdate[kRsp](1, bytes.data(), 2);
  std::string out = captureStdout([] { EXPECT_EQ(qos_intDb_MsgDbPrint(1), 0); });
  EXPECT_EQ(out,
            " DSX transaction DB index = 1 \n\n"
            " DSX request buffer length = 17\n  Request buffer:"
            "\n\t00 0f 1e 2d 3c 4b 5a 69 78 87 96 a5 b4 c3 d2 e1 \n\tf0 "
            "\n\n DSX response buffer length = 2\n  Response buffer:\n\t00 0f "
            "\n\n DSX acknowledge buffer length = 0\n  Acknowledge buffer:\n");
  out = captureStdout([] { EXPECT_EQ(qos_intDb_MsgDbPrint(10), -1); });
  EXPECT_EQ(out, " Transaction message DB index 10 is out of range");
  EXPECT_TRUE(logs.records().empty());
}

TEST_F(Messages, ErrorRecordValuesAndFailureOutputs) {
  ASSERT_EQ(qos_intDb_MsgSetErrorSet(6, 11, 12, 13, 14) | qos_intDb_MsgSetConfCode(6, 2) |
                qos_intDb_MsgSetErroredSfId(6, 0x99),
            0);
  EXPECT_EQ(record(6), (std::vector<uint32_t>{2, 11, 12, 13, 14, 0x99}));
  std::vector<uint32_t> got(6, 55);  // the getters read the same words
  EXPECT_EQ(qos_intDb_MsgGetConfCode(6, &got[0]) | qos_intDb_MsgGetErrorCode(6, &got[1]) |
                qos_intDb_MsgGetErrorType(6, &got[2]) | qos_intDb_MsgGetErrorSubType(6, &got[3], &got[4]) |
                qos_intDb_MsgGetErroredSfId(6, &got[5]),
            0);
  EXPECT_EQ(got, record(6));

  // What a refused getter leaves in its outputs (55: untouched).
  uint32_t out[5] = {55, 55, 55, 55, 55};
  EXPECT_EQ(qos_intDb_MsgGetErrorType(11, &out[0]) & qos_intDb_MsgGetErrorCode(11, &out[1]) &
                qos_intDb_MsgGetConfCode(11, &out[2]) & qos_intDb_MsgGetErrorSubType(11, &out[3], &out[4]),
            -1);
  EXPECT_EQ(std::vector<uint32_t>(out, out + 5), (std::vector<uint32_t>{10, 0, 0, 0, 0}));
  EXPECT_EQ(qos_intDb_MsgGetErroredSfId(11, &out[0]), -1);
  EXPECT_EQ(out[0], 10u);
  logs.clear();
  EXPECT_EQ(qos_intDb_MsgUpdateError(11, 4), 0);  // the setter's failure is not reported
  ASSERT_EQ(logs.records().size(), 1u);
  EXPECT_EQ(logs.records()[0].function, "qos_intDb_MsgSetConfCode");

  EXPECT_EQ(qos_intDb_MsgResetError(6), 0);
  EXPECT_EQ(record(6), kResetRecord);
  // Record 10 keeps its confirmation code through a whole-store reset.
  qos_intDb_MsgDb_reset();
  EXPECT_EQ(record(10)[0], 10u);
}

}  // namespace
}  // namespace qostest
