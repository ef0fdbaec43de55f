// messages_test.cpp - the DSX message store: the 1599-byte limit of every
// buffer operation, resets, header reservation, row 10, the dump and the
// error records.
#include "support/fixture.h"

namespace qostest {
namespace {

constexpr std::size_t kMsgBase = 23852;
constexpr std::size_t kMsgRow = 4812;
constexpr std::size_t kErrBase = 23588;

enum Buffer { kReq, kRsp, kAck };
const char* const kNames[] = {"req", "rsp", "ack"};

std::size_t lengthOff(uint32_t row, Buffer b) { return kMsgBase + kMsgRow * row + 1604 * b + 1600; }
std::size_t dataOff(uint32_t row, Buffer b) { return kMsgBase + kMsgRow * row + 1604 * b; }

int32_t addTlv(Buffer b, uint32_t row, uint32_t type, uint32_t len, const uint8_t* v) {
  auto f = b == kReq ? qos_intDb_MsgAddReqBufferTlv
                     : b == kRsp ? qos_intDb_MsgAddRspBufferTlv : qos_intDb_MsgAddAckBufferTlv;
  return f(row, type, len, v);
}
int32_t addField(Buffer b, uint32_t row, uint32_t len, const uint8_t* v) {
  auto f = b == kReq ? qos_intDb_MsgAddReqBufferField
                     : b == kRsp ? qos_intDb_MsgAddRspBufferField : qos_intDb_MsgAddAckBufferField;
  return f(row, len, v);
}
int32_t update(Buffer b, uint32_t row, const uint8_t* v, uint32_t len) {
  auto f = b == kReq ? qos_intDb_MsgUpdateReqBuffer
                     : b == kRsp ? qos_intDb_MsgUpdateRspBuffer : qos_intDb_MsgUpdateAckBuffer;
  return f(row, v, len);
}
int32_t get(Buffer b, uint32_t row, uint8_t** data, uint32_t* len) {
  auto f = b == kReq ? qos_intDb_MsgGetReqBuffer
                     : b == kRsp ? qos_intDb_MsgGetRspBuffer : qos_intDb_MsgGetAckBuffer;
  return f(row, data, len);
}

using Messages = StoreTest;

// Every write stops below 1600 bytes and a refused write changes nothing.
TEST_F(Messages, EveryBufferOperationStopsBelow1600Bytes) {
  std::vector<uint8_t> bytes(2000, 0x33);
  for (Buffer b : {kReq, kRsp, kAck}) {
    for (uint32_t row : {0u, 10u}) {
      SCOPED_TRACE(std::string(kNames[b]) + " row " + std::to_string(row));
      struct Case {
        uint32_t start;  // buffer length before the call
        int op;          // 0 TLV, 1 field
        uint32_t len;
        int32_t result;
      } cases[] = {
          {1597, 0, 0, 0}, {1598, 0, 0, -1}, {1500, 0, 97, 0}, {1500, 0, 98, -1},
          {1598, 1, 1, 0}, {1599, 1, 1, -1}, {0, 1, 1599, 0},  {0, 1, 1600, -1},
          {10, 0, 0xFFFFFFFF, -1}, {10, 1, 0xFFFFFFFF, -1},
      };
      for (const auto& c : cases) {
        put<uint32_t>(lengthOff(row, b), c.start);
        auto before = snapshot();
        int32_t rc = c.op == 0 ? addTlv(b, row, 0x1FF, c.len, bytes.data())
                               : addField(b, row, c.len, bytes.data());
        EXPECT_EQ(rc, c.result) << c.start << "+" << c.len;
        uint32_t grown = c.op == 0 ? c.len + 2 : c.len;
        EXPECT_EQ(at<uint32_t>(lengthOff(row, b)), rc == 0 ? c.start + grown : c.start);
        if (rc != 0) {
          EXPECT_TRUE(changedOffsets(before, snapshot()).empty());
        }
      }
      logs.clear();
      EXPECT_EQ(update(b, row, bytes.data(), 1599), 0);
      EXPECT_EQ(at<uint32_t>(lengthOff(row, b)), 1599u);
      EXPECT_EQ(update(b, row, bytes.data(), 1600), -1);
      ASSERT_EQ(logs.records().size(), 1u);
      const char* kind = b == kReq ? "REQ" : b == kRsp ? "RSP" : "ACK";
      const char* op = b == kReq ? "Req" : b == kRsp ? "Rsp" : "Ack";
      EXPECT_EQ(logs.records()[0].text, "qos_intDb_MsgUpdate" + std::string(op) +
                                            "Buffer: Unsufficient memory for DSX-" + kind +
                                            " message, TA DB index = " + std::to_string(row));
      // A refused request still started the exchange over; the others keep theirs.
      EXPECT_EQ(at<uint32_t>(lengthOff(row, b)), b == kReq ? 0u : 1599u);
    }
  }
}

TEST_F(Messages, TlvLayoutAndInPlaceAccess) {
  const uint8_t value[3] = {7, 8, 9};
  ASSERT_EQ(qos_intDb_MsgAddAckBufferTlv(4, 0x118, 3, value), 0);
  ASSERT_EQ(qos_intDb_MsgAddAckBufferTlv(4, 5, 0, nullptr), 0);
  const uint8_t expected[7] = {0x18, 3, 7, 8, 9, 5, 0};
  EXPECT_EQ(std::memcmp(region() + dataOff(4, kAck), expected, sizeof expected), 0);
  uint8_t* data = nullptr;
  uint32_t len = 0;
  ASSERT_EQ(get(kAck, 4, &data, &len), 0);
  EXPECT_EQ(data, region() + dataOff(4, kAck));
  EXPECT_EQ(len, 7u);
  EXPECT_EQ(get(kAck, 4, nullptr, &len), -1);
  EXPECT_EQ(get(kAck, 4, &data, nullptr), -1);
  EXPECT_EQ(qos_intDb_MsgGetMsgSendBuff(4, &data, &len), 0);
  EXPECT_EQ(qos_intDb_MsgGetMsgSendBuff(4, nullptr, &len), -1);
}

TEST_F(Messages, RequestUpdateEmptiesTheRow) {
  const uint8_t bytes[4] = {1, 2, 3, 4};
  for (uint32_t row : {2u, 10u}) {
    update(kRsp, row, bytes, 4);
    update(kAck, row, bytes, 4);
    qos_intDb_MsgSetErrorSet(row, 1, 2, 3, 4);
    qos_intDb_MsgSetConfCode(row, 7);
    EXPECT_EQ(update(kReq, row, bytes, 2), 0);
    EXPECT_EQ(at<uint32_t>(lengthOff(row, kReq)), 2u);
    EXPECT_EQ(at<uint32_t>(lengthOff(row, kRsp)), 0u);
    EXPECT_EQ(at<uint32_t>(lengthOff(row, kAck)), 0u);
    uint32_t code = 0;
    qos_intDb_MsgGetErrorCode(row, &code);
    EXPECT_EQ(code, row == 10 ? 1u : 253u);  // record 10 is never reset
  }
}

TEST_F(Messages, HeaderReservation) {
  struct Case {
    uint32_t type, noHeader, req, rsp, ack;
  } cases[] = {
      {QOS_TA_DSD, 0, 8, 4, 0}, {QOS_TA_DSA, 0, 2, 3, 3}, {QOS_TA_DSC, 0, 2, 3, 3},
      {77, 0, 2, 3, 3},         {QOS_TA_DSD, 1, 0, 0, 0}, {QOS_TA_DSA, 5, 0, 0, 0},
  };
  const uint8_t bytes[9] = {};
  for (const auto& c : cases) {
    update(kReq, 3, bytes, 9);
    update(kAck, 3, bytes, 9);
    qos_intDb_MsgSetConfCode(3, 9);
    EXPECT_EQ(qos_intDb_MsgInitBufferForTa(3, c.type, c.noHeader), 0);
    EXPECT_EQ(at<uint32_t>(lengthOff(3, kReq)), c.req) << c.type;
    EXPECT_EQ(at<uint32_t>(lengthOff(3, kRsp)), c.rsp) << c.type;
    EXPECT_EQ(at<uint32_t>(lengthOff(3, kAck)), c.ack) << c.type;
    EXPECT_EQ(at<uint32_t>(kErrBase + 24 * 3), 0u);  // error record reset
  }
}

TEST_F(Messages, IndexAndArgumentChecks) {
  uint8_t* data = nullptr;
  uint32_t len = 0;
  EXPECT_EQ(qos_intDb_MsgResetTaBuffer(11), -1);
  EXPECT_EQ(qos_intDb_MsgGetReqBuffer(0xFFFFFFFF, &data, &len), -1);
  EXPECT_EQ(logs.texts(), (std::vector<std::string>{
                              "qos_intDb_MsgResetTaBuffer: ---> DSX MSG DB index 11 is out of range",
                              "qos_intDb_MsgGetReqBuffer: ---> DSX MSG DB index -1 is out of range"}));
  logs.clear();
  // The print operations check only: rows 0..9 and types 0..2.
  EXPECT_EQ(qos_intDb_MsgReqPrint(9, 2), 0);
  EXPECT_EQ(qos_intDb_MsgRspPrint(10, 0), -1);
  EXPECT_EQ(qos_intDb_MsgAckPrint(0, 3), -1);
  // Bytes without a pointer are refused.
  EXPECT_EQ(qos_intDb_MsgAddReqBufferField(0, 4, nullptr), -1);
  EXPECT_EQ(qos_intDb_MsgUpdateAckBuffer(0, nullptr, 4), -1);
  EXPECT_EQ(at<uint32_t>(lengthOff(0, kReq)), 0u);
  EXPECT_TRUE(logs.records().empty());
}

TEST_F(Messages, DumpIsByteExact) {
  std::vector<uint8_t> bytes(17);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 15);
  update(kReq, 1, bytes.data(), 17);
  update(kRsp, 1, bytes.data(), 2);
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
  ASSERT_EQ(qos_intDb_MsgSetErrorSet(6, 11, 12, 13, 14), 0);
  ASSERT_EQ(qos_intDb_MsgSetConfCode(6, 2), 0);
  ASSERT_EQ(qos_intDb_MsgSetErroredSfId(6, 0x99), 0);
  const uint32_t expected[6] = {2, 11, 12, 13, 14, 0x99};
  for (int f = 0; f < 6; ++f) EXPECT_EQ(at<uint32_t>(kErrBase + 24 * 6 + 4 * f), expected[f]);

  uint32_t a = 55, b = 55;
  EXPECT_EQ(qos_intDb_MsgGetErrorType(11, &a), -1);
  EXPECT_EQ(a, 10u);
  EXPECT_EQ(qos_intDb_MsgGetErrorCode(11, &a), -1);
  EXPECT_EQ(a, 0u);
  a = 55;
  EXPECT_EQ(qos_intDb_MsgGetConfCode(11, &a), -1);
  EXPECT_EQ(a, 0u);
  a = 55;
  EXPECT_EQ(qos_intDb_MsgGetErrorSubType(11, &a, &b), -1);
  EXPECT_EQ(a + b, 0u);
  a = 55;
  EXPECT_EQ(qos_intDb_MsgGetErroredSfId(11, &a), -1);
  EXPECT_EQ(a, 55u);
  logs.clear();
  EXPECT_EQ(qos_intDb_MsgUpdateError(11, 4), 0);  // the setter's failure is not reported
  ASSERT_EQ(logs.records().size(), 1u);
  EXPECT_EQ(logs.records()[0].function, "qos_intDb_MsgSetConfCode");

  EXPECT_EQ(qos_intDb_MsgResetError(6), 0);
  qos_intDb_MsgGetErrorCode(6, &a);
  EXPECT_EQ(a, 253u);
  qos_intDb_MsgGetErrorSubType(6, &a, &b);
  EXPECT_EQ(a + b, 0u);
  // Record 10 keeps its confirmation code through a whole-store reset.
  qos_intDb_MsgDb_reset();
  qos_intDb_MsgGetConfCode(10, &a);
  EXPECT_EQ(a, 10u);
}

}  // namespace
}  // namespace qostest
