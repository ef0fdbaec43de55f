// SPDX-License-Identifier: MIT
// qosdb_test.cpp - the qosdb tool, run as its own process against this
// test's store (the test process sits in a private IPC namespace, and the
// tool, its child, shares it).
#include <signal.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include <nlohmann/json.hpp>

#include "support/fixture.h"
#include "tools/inspect/integrity.h"

namespace {

using nlohmann::json;
using Out = std::pair<int, std::string>;  // exit status, output

// qosdb's exit status and output: standard output, and standard error with `err`.
Out qosdb(const std::vector<std::string>& args, bool err = true) {
  qostest::PeerResult r = qostest::runProgram(QOSDB_BIN, args, err);
  return {r.status, r.out};
}
std::string qosdbOut(const std::vector<std::string>& args) { return qosdb(args, false).second; }
std::string scenario(const char* name) { return std::string(QOSDB_SCENARIOS) + "/" + name; }
std::string writeScenario(const std::string& text) {
  std::string path = "/tmp/qosdb_test_" + std::to_string(getpid()) + ".qos";
  std::ofstream(path) << text;
  return path;
}
int semaphoreValue() { return semctl(semget(QOS_SEM_KEY, 1, 0), 0, GETVAL); }

// ---- administration (first in this file: they need a namespace without a store) ------------

TEST(QosdbWithoutStore, EveryCommandSaysThereIsNoStoreThenInitResetDestroy) {
  for (const char* command : {"show", "check", "reset", "lock-status"}) {
    Out r = qosdb({command});
    EXPECT_EQ(r.first, 1) << command;
    EXPECT_EQ(r.second.rfind("qosdb: no store here: ", 0), 0u) << r.second;
    EXPECT_EQ(std::count(r.second.begin(), r.second.end(), '\n'), 1) << r.second;
  }
  EXPECT_EQ(qosdb({"destroy"}).second, "qosdb: no store here: neither segment 14 nor semaphore 4656 exists\n");

  EXPECT_EQ(qosdb({"init"}, false),
            (Out{0, "store created: region of 85032 bytes (segment 14), every table reset, semaphore 4656 free\n"}));
  EXPECT_EQ(semaphoreValue(), 1);
  ASSERT_EQ(qosdb({"run", scenario("registration.qos")}).first, 0);
  EXPECT_EQ(json::parse(qosdbOut({"show", "--json", "flows"}))["sf"].size(), 3u);
  EXPECT_EQ(qosdbOut({"reset"}), "store reset: flows, classifiers, SID clusters, active tables, messages and transactions "
                                 "are empty; the bonding change store is kept\n");
  EXPECT_EQ(qosdbOut({"show", "--json", "flows"}), "{\n  \"format\": 1,\n  \"sf\": []\n}\n");
  EXPECT_EQ(qosdbOut({"destroy"}), "removed segment 14 and semaphore 4656\n");
  EXPECT_EQ(qosdb({"show"}).first, 1);
}

// ---- show ------------------------------------------------------------------------

class QosdbShow : public qostest::StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    const uint8_t auth[3] = {0xa1, 0xb2, 0xc3}, req[3] = {0x80, 0x01, 0x18};
    ASSERT_EQ(qos_TaDb_AddNewTa(0x8001, QOS_TA_DSC, QOS_TA_BY_CMTS, 3, auth, &ta_), 0);
    qos_taDb_Lock();
    qos_intDb_AddSf(0x1001, 1, QOS_DIR_UPSTREAM), qos_intDb_AddSf(0x1002, 2, QOS_DIR_DOWNSTREAM);
    qos_intDb_SetSfSid(0, 0x11), qos_intDb_SetServiceFlowParamSet(0, 5);
    qos_intDb_ChangeSF(1, static_cast<int32_t>(ta_)), qos_intDb_MsgUpdateReqBuffer(ta_, req, sizeof req);
    qos_taDb_Unlock();
  }
  uint32_t ta_ = 0;
};

TEST_F(QosdbShow, JsonNamesTablesFieldsAndEnumerationsAsTheTextDoes) {
  auto before = qostest::snapshot();
  Out r = qosdb({"show", "--json"}, false);
  ASSERT_EQ(r.first, 0) << r.second;
  const json doc = json::parse(r.second);
  const json want = json::parse(R"({"format": 1, "stats": {"sfDbMaxIndex": 1, "clsfMaxNum": 160},
      "sf": [{"index": 0, "state": "operational", "sfId": 4097, "ref": 1, "direction": "up", "sid": 17,
              "paramSetType": 5, "taIndex": -1, "heldTaIndex": -1},
             {"index": 1, "state": "changing", "sfId": 4098, "ref": 2, "direction": "down", "taIndex": 0}],
      "ta": [{"index": 0, "rowStatus": 1, "taId": 32769, "type": "DSC", "initiator": "CMTS", "authLen": 3,
              "authBlock": "a1b2c3"}],
      "taControl": {"retryLimit": 3, "taRowsUsed": 1, "lastCmTaId": 0},
      "msgs": [{"index": 0, "req": {"data": "800118", "length": 3}, "rsp": {"data": "", "length": 0}}],
      "dbc": {"modCount": 0, "activeCount": 0, "bitmapCount": 0}})");
  const json flat = doc.flatten(), wanted = want.flatten();  // each value of `want` at its place in `doc`
  for (const auto& [key, value] : wanted.items()) EXPECT_EQ(flat.value(key, json()), value) << key;
  EXPECT_EQ((json{doc["sf"].size(), doc["ta"].size(), doc["msgs"].size(), doc["clsf"].size(), doc["dbc"]["modDb"].size()}),
            (json{2, 1, 1, 0, 0}));
  EXPECT_FALSE(doc["sf"][0].contains("pad11"));
  EXPECT_EQ(qostest::changedOffsets(before, qostest::snapshot()), std::vector<std::size_t>{});
}

TEST_F(QosdbShow, TextNamesTheValuesMeanings) {
  EXPECT_EQ(qosdb({"show", "flows", "transactions"}, false),
            (Out{0,
                 "Service flows (sf): 2 in use, sfDbMaxIndex 1\n"
                 "  index  state        sfId    ref  direction  committed  sid   sidClusterIndex  paramSetType  taIndex  "
                 "heldTaIndex  pairSfIndex  qosDbIndex  sidClusterCounter  clsfCounter  phsCounter  appendedClsfCounter  "
                 "deletedClsfCounter\n"
                 "  0      operational  0x1001  1    up         0          0x11  0                prov+act      -        "
                 "-            0            0           0                  0            0           0                    0\n"
                 "  1      changing     0x1002  2    down       0          0x0   0                -             0        "
                 "-            0            0           0                  0            0           0                    0\n"
                 "\n"
                 "DSX transactions (ta): 1 in use\n"
                 "  index  rowStatus  taId    type  initiator  smState  retryCounter  authLen  authBlock  subtype\n"
                 "  0      1          0x8001  DSC   CMTS       0        0             3        a1b2c3     0\n"
                 "\n"
                 "DSX transaction control (taControl)\n"
                 "  field       value  meaning\n"
                 "  retryLimit  3      retries allowed; read by nothing\n"
                 "  taRowsUsed  1      transaction rows used since the last table reset\n"
                 "  lastCmTaId  0x0    last transaction ID of the modem\n"}));
}

TEST_F(QosdbShow, CheckPassesOnAStoreTheOperationsBuiltAndSaysHowOneWasDamaged) {
  EXPECT_EQ(qosdb({"check"}, false), (Out{0, "registration check: passed\nintegrity: every invariant holds\n"}));
  qostest::store().ta[3].rowStatus = 7;
  qos_intDb_SetSFState(5, QOS_SF_REFERENCED);  // a placeholder on a row the table never handed out
  EXPECT_EQ(qosdb({"check"}, false), (Out{1, "registration check: passed\n"
                                             "suspect: sf[5].state is 7 (in use) above sfDbMaxIndex 1: scans never see the row\n"
                                             "corrupt: ta[3].rowStatus is 7; rows are 0 (free) or 1\n"
                                             "corrupt: taControl.taRowsUsed is 1 but ta[3] is in use; rows are handed out below this count\n"
                                             "integrity: 2 corrupt, 1 suspect\n"}));
  qos_intDb_SetSFState(5, QOS_SF_EMPTY), qostest::store().ta[3].rowStatus = 0, qos_intDb_SetSFState(1, QOS_SF_REFERENCED);
  EXPECT_EQ(qosdb({"check"}, false),
            (Out{1, "registration check: failed: Classifier or PHS refer to unknown Service Flow: Ref=2, SF DB index=1\n"
                    "integrity: every invariant holds\n"}));
}

TEST_F(QosdbShow, EventsPrintsTheEventsOfADscOnAHeldFlow) {
  std::string command;  // a listener that runs alongside the test
  for (const auto& w : qostest::commandWords(QOSDB_BIN, {"events", "--count", "2", "--timeout", "60"})) {
    command += "'" + w + "' ";
  }
  FILE* events = popen((command + "2>&1").c_str(), "r");
  char line[128] = "";
  ASSERT_TRUE(std::fgets(line, sizeof line, events));
  ASSERT_STREQ(line, "listening for events to component 32\n");
  EXPECT_EQ(qosdb({"events", "--count", "1"}).second, "qosdb: another process listens for component 32 already\n");
  // The DSC of row ta_ ends and holds flow 1; a second DSC changes the held flow.
  uint32_t dsc = 0, payload = 7;
  qos_taDb_Lock();
  qos_intDb_UpdateSfOnTaSucceeded(ta_);
  qos_taDb_Unlock();
  ASSERT_EQ(qos_TaDb_AddNewTa(0x8002, QOS_TA_DSC, QOS_TA_BY_CMTS, 0, nullptr, &dsc), 0);
  qos_taDb_Lock();
  qos_intDb_ChangeSF(1, static_cast<int32_t>(dsc)), qos_intDb_UpdateSfOnTaSucceeded(dsc);
  EXPECT_EQ(EV_GenEvent(ICC_dest_of(QOS_EV_COMPONENT), QOS_EV_HOLDER_ACK_LOST, &payload, 4), 0);
  qos_taDb_Unlock();
  std::string rest;
  for (int c; (c = std::fgetc(events)) != EOF;) rest += static_cast<char>(c);
  EXPECT_EQ(pclose(events), 0);
  EXPECT_EQ(rest, "event 5515 QOS_EV_HELD_SF_CHANGED: transaction " + std::to_string(ta_) + "\n"
                  "event 5517 QOS_EV_HOLDER_ACK_LOST: transaction 7\n");
  EXPECT_NE(EV_GenEvent(ICC_dest_of(QOS_EV_COMPONENT), QOS_EV_HOLDER_ACK_LOST, &payload, 4), 0);
}

// ---- run -----------------------------------------------------------------------------------------

TEST(QosdbRun, TheShippedScenariosPlayARegistrationAndThreeTransactions) {
  // Given in a shell glob's order: each file's "#after" line puts registration.qos first.
  Out r = qosdb({"run", scenario("dsa.qos"), scenario("dsc.qos"), scenario("dsd.qos"), scenario("registration.qos")}, false);
  ASSERT_EQ(r.first, 0) << r.second;
  EXPECT_LT(r.second.find("== registration.qos"), r.second.find("== dsa.qos"));
  for (const char* summary : {"registration.qos: 25 operations, all returned 0\n", "dsa.qos: 21 operations, all returned 0\n",
                              "dsc.qos: 11 operations, all returned 0\n", "dsd.qos: 9 operations, all returned 0\n",
                              "18: qos_intDb_FindSfByTaAndRef 7 0 -> 0  sfIndex=3\n"}) {
    EXPECT_NE(r.second.find(summary), std::string::npos) << summary;
  }
  ASSERT_EQ(qos_IntDb_RetrieveAccess(), 0);
  uint32_t sf = 0, state = 0, taIndex = 0, type = 0;
  int32_t held = 0;
  ASSERT_EQ(qos_intDb_FindSfById(0x1004, &sf), 0);
  ASSERT_EQ(qos_TaDb_FindTaIndexByTaId(2, &taIndex), 0);
  qos_intDb_GetSFState(sf, &state), qos_intDb_GetSFHeldTaIndex(sf, &held), qos_TaDb_GetTaType(taIndex, &type);
  EXPECT_EQ((std::vector<int64_t>{state, held, type}), (std::vector<int64_t>{QOS_SF_DELETED, 0, QOS_TA_DSD}));
  EXPECT_TRUE(qos::inspect::checkIntegrity(*reinterpret_cast<const qos::QosIntDbRegion*>(qostest::region())).empty());
  EXPECT_EQ(semaphoreValue(), 1);
}

TEST_F(QosdbShow, RunPrintsResultsOutputsAndLogLines) {
  std::string path = writeScenario(
      "## a narration\n"
      "qos_TaDb_GetTaAuthBlock 0        # outputs the tool allocated\n"
      "qos_TaDb_CheckTaConflict 3 12\n"
      "qos_taDb_Lock\n"
      "qos_intDb_AddSfSidCluster 0x1001 2 1/0x11,2/0x12,0/0,0/0\n"
      "qos_intDb_GetNextSfSidCluster 0x1001 -1\n"
      "qos_taDb_Unlock\n"
      "qos_intDb_ResetTaDbRow 0\n");
  Out r = qosdb({"run", path}, false);
  EXPECT_EQ(r.first, 1);  // calls that did not return 0
  EXPECT_EQ(r.second.substr(r.second.find('\n') + 1),
            "## a narration\n"
            "2: qos_TaDb_GetTaAuthBlock 0 -> 0  authLen=3  authBlock=a1b2c3\n"
            "3: qos_TaDb_CheckTaConflict 3 12 -> -1\n"
            "    log L1 M24 qos_TaDb_CheckTaConflict: qos_TaDb_CheckTaConflict: ---> DSX TA DB index 12 is out of range\n"
            "4: qos_taDb_Lock -> 0\n"
            "5: qos_intDb_AddSfSidCluster 0x1001 2 1/0x11,2/0x12,0/0,0/0 -> 0\n"
            "6: qos_intDb_GetNextSfSidCluster 0x1001 -1 -> 0  rowIndex=0  clusterId=0x2  channels=1/0x11,2/0x12,0/0x0,0/0x0\n"
            "7: qos_taDb_Unlock -> 0\n"
            "8: qos_intDb_ResetTaDbRow 0 -> done\n" +
                path.substr(path.rfind('/') + 1) + ": 7 operations, non-zero results on lines 3\n");
  EXPECT_EQ(semaphoreValue(), 1);
  unlink(path.c_str());
}

TEST_F(QosdbShow, BadCommandsAndMalformedScenariosChangeNothing) {
  const std::pair<std::vector<std::string>, Out> commands[] = {
      {{"show", "flows", "bogus"},
       {2, "qosdb: unknown table 'bogus' (tables: flows, classifiers, clusters, switchover, active, phs, transactions, "
           "messages, errors, dbc, stats, all)\n"}},
      {{"init"}, {1, "qosdb: a store exists already; qosdb reset empties it, qosdb init --force creates it anew\n"}},
      {{"unlock"}, {2, "qosdb: unlock frees a lock whose holder died; say unlock --force\n"}},
      {{"unlock", "--force"}, {1, "qosdb: the lock is not taken (value 1); nothing to free\n"}},
      {{"run", "/nonexistent.qos"}, {2, "qosdb: cannot read scenario /nonexistent.qos\n"}},
      {{"run", "/tmp"}, {2, "qosdb: scenario /tmp is a directory (name its .qos files)\n"}},
      {{"run", "/dev/zero"}, {2, "qosdb: /dev/zero:1:65537: line longer than 65536 characters\n"}},
      {{"show", "--nope"}, {2, "qosdb: The following argument was not expected: --nope\n"}},
      {{"--version"}, {0, "qosdb " QOSINTDB_VERSION_STRING " (library " QOSINTDB_VERSION_STRING
                          "; JSON format 1, snapshot format 1)\n"}},
  };
  const std::pair<std::string, std::string> scenarios[] = {  // the bad line, "col: error"; stops at its line
      {"qos_intDb_Frobnicate 1", "1: unknown operation 'qos_intDb_Frobnicate' (qosdb run --list shows them all)"},
      {"qos_intDb_AddSf 1 2", "20: qos_intDb_AddSf takes 3 arguments (sfId:u32 ref:u32 direction:u32), 2 given"},
      {"  qos_intDb_GetSfNumber 1 2", "25: qos_intDb_GetSfNumber takes 0 arguments, 2 given"},
      {"qos_intDb_AddSf 1 x2 2",
       "19: argument 2 (ref:u32) of qos_intDb_AddSf: 'x2' is not a number (decimal, 0x-hex or negative)"},
      {"qos_intDb_AddSf 0x100000000 1 2",
       "17: argument 1 (sfId:u32) of qos_intDb_AddSf: '0x100000000' is not a number (decimal, 0x-hex or negative)"},
      {"qos_intDb_DelSfSidCluster 1 256", "29: argument 2 (clusterId:u8) of qos_intDb_DelSfSidCluster: '256' does not fit a u8"},
      {"qos_intDb_MsgUpdateReqBuffer 0 abc",
       "32: argument 2 (message:bytes) of qos_intDb_MsgUpdateReqBuffer: 'abc' is no byte string (pairs of hex digits "
       "like 0a1b or 0a:1b, a repetition like 00*16, - or NULL)"},
      {"qos_intDb_MsgUpdateReqBuffer 0 00*70000",
       "35: argument 2 (message:bytes) of qos_intDb_MsgUpdateReqBuffer: '70000' does not fit a repetition (0..65536)"},
      {"qos_intDb_AddSfSidCluster 1 1 1/2,1-2", "35: argument 3 (channels:mappings) of qos_intDb_AddSfSidCluster: '1-2' "
                                                "is no mapping (ucid/sid, optionally add: or del: first)"},
      {"qos_intDb_AddSfSidCluster 1 1 add:1/0x10000", "37: argument 3 (channels:mappings) of qos_intDb_AddSfSidCluster: "
                                                      "'0x10000' does not fit a SID (0..65535)"},
      {"qos_intDb_GetNextCmServiceTableIndex 4 0 1,2,3",
       "42: argument 3 (usIfIndex:u32x4) of qos_intDb_GetNextCmServiceTableIndex: '1,2,3' is not four numbers "
       "separated by commas"},
      {"qos_taDb_Lock\nqos_intDb_ResetTaDbRow 0",
       "1: qos_intDb_ResetTaDbRow would wait for the lock that this scenario holds (take it with qos_taDb_Lock, give "
       "it back with qos_taDb_Unlock first)"},
  };
  auto before = qostest::snapshot();
  for (const auto& [args, expected] : commands) EXPECT_EQ(qosdb(args), expected);
  for (const auto& [line, error] : scenarios) {
    std::string path = writeScenario("qos_intDb_AddSf 0x99 9 2\n" + line + "\n");
    int at = 2 + static_cast<int>(std::count(line.begin(), line.end(), '\n'));
    EXPECT_EQ(qosdb({"run", path}), (Out{2, "qosdb: " + path + ":" + std::to_string(at) + ":" + error + "\n"}));
    unlink(path.c_str());
  }
  EXPECT_EQ(qostest::changedOffsets(before, qostest::snapshot()), std::vector<std::size_t>{});
}

TEST(QosdbDemo, TellsTheStoryOfAStackAndEndsConsistent) {
  if (!std::string(QOS_TEST_EXEC_PREFIX).empty()) GTEST_SKIP() << "the demo execs itself: needs binfmt under an emulator";
  Out r = qosdb({"demo"});
  ASSERT_EQ(r.first, 0) << r.second;
  for (const char* line : {"   events  | event 5515 QOS_EV_HELD_SF_CHANGED: transaction 0\n",
                           "   events  | event 5522 QOS_EV_HELD_SF_DELETED: transaction 1\n",
                           "   control | dsd.qos: 9 operations, all returned 0\n",
                           "   snmp    |   80       0x23  2     1            0       2\n",
                           "   snmp    |   0x1003  1          2     0x23\n",
                           "   check   | integrity: every invariant holds\n"}) {
    EXPECT_NE(r.second.find(line), std::string::npos) << line;
  }
}

}  // namespace
