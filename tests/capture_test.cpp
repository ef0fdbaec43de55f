// SPDX-License-Identifier: MIT
// capture_test.cpp - qosdb capture read back by tshark: every stored DSX
// message dissects as the DOCSIS message it is, with nothing malformed.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>

#include "support/fixture.h"

namespace {

using qostest::sh;
// The tool, under the build's emulator in a cross build.
const std::string kQosdb = std::string(QOS_TEST_EXEC_PREFIX) + " " + QOSDB_BIN;
std::string qosdb(const std::string& args) { return sh(kQosdb + " " + args + " 2>&1"); }
std::string scenario(const char* name) { return std::string(QOSDB_SCENARIOS) + "/" + name; }

// One line per frame: type sender tranid confcode sfRefs sfIds sids dsdSfid hcs,
// then whatever tshark found malformed or worth an expert note.
// `producer` is a shell command that writes the pcap file.
std::string dissect(const std::string& producer) {
  std::string confs;
  for (const char* m : {"dsarsp", "dsaack", "dscrsp", "dscack", "dsdrsp"}) confs += std::string(" -e docsis_") + m + ".confcode";
  std::string lines = sh(producer + " | tshark -r - -T fields -E separator=/s -E occurrence=a -E aggregator=, " +
                         "-e docsis_mgmt.type -e docsis_mgmt.src -e docsis_mgmt.tranid" + confs +
                         " -e docsis_tlv.sflow.ref -e docsis_tlv.sflow.id -e docsis_tlv.sflow.sid"
                         " -e docsis_dsdreq.sfid -e docsis.hcs.status -e _ws.malformed -e _ws.expert 2>/dev/null");
  std::string out;  // the five confirmation code columns as one, "-" for an empty one
  std::istringstream in(lines);
  for (std::string line; std::getline(in, line);) {
    std::vector<std::string> f;
    std::string field;
    std::istringstream ls(line);
    while (std::getline(ls, field, ' ')) f.push_back(field);
    f.resize(15);
    f[1] = f[1] == "00:00:5e:00:53:01" ? "cm" : f[1] == "00:00:5e:00:53:fe" ? "cmts" : f[1];
    for (int i = 4; i < 8; ++i) f[3] += f[i];
    f.erase(f.begin() + 4, f.begin() + 8);
    for (auto& v : f) out += (v.empty() ? "-" : v) + (&v == &f.back() ? "\n" : " ");
  }
  return out;
}

// The frames of each shipped scenario's transactions, played in order:
// type sender tranid confcode sfRef sfId sid dsdSfid hcs malformed expert.
const struct {
  const char* scenario;
  std::string frames;
} kSteps[] = {
    {"registration.qos", ""},
    {"dsa.qos",
     "15 cm 1 - 7 - - - 1 - -\n"
     "16 cmts 1 0 7 4100 20 - 1 - -\n"
     "17 cm 1 0 - - - - 1 - -\n"},
    {"dsc.qos",
     "18 cmts 32769 - - 4100 - - 1 - -\n"
     "19 cm 32769 0 - - - - 1 - -\n"
     "20 cmts 32769 0 - - - - 1 - -\n"},
    {"dsd.qos",
     "21 cm 2 - - - - 4100 1 - -\n"
     "22 cmts 2 0 - - - - 1 - -\n"},
};

class Capture : public ::testing::Test {
 protected:
  void SetUp() override {
    if (sh("command -v tshark").empty()) GTEST_SKIP() << "tshark is not installed";
    file_ = "/tmp/capture_test_" + std::to_string(getpid()) + ".pcap";
  }
  void TearDown() override { std::remove(file_.c_str()); }
  std::string file_;
};

TEST_F(Capture, EveryStoredMessageDissectsCleanlyAndNamesItsTransaction) {
  for (const auto& step : kSteps) {
    ASSERT_EQ(qosdb("run --brief " + scenario(step.scenario) + " >/dev/null; echo $?"), "0\n") << step.scenario;
    ASSERT_EQ(qosdb("capture " + file_), "") << step.scenario;
    EXPECT_EQ(dissect("cat " + file_), step.frames) << step.scenario;
    EXPECT_EQ(dissect(kQosdb + " capture -"), step.frames) << step.scenario;
  }
}

TEST_F(Capture, EmptyStoreGivesAFileWithoutFramesAndNoStoreFails) {
  EXPECT_EQ(qosdb("capture " + file_).rfind("qosdb: no store here: ", 0), 0u);
  ASSERT_EQ(qosdb("init >/dev/null; " + kQosdb + " capture " + file_), "");
  std::ifstream in(file_, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_EQ(bytes.size(), 24u);
  EXPECT_EQ(sh("capinfos -T -E " + file_ + " 2>/dev/null | tail -1 | cut -f2"), "docsis\n");
  EXPECT_EQ(dissect("cat " + file_), "");
}

TEST_F(Capture, FollowWritesEachNewMessageOnce) {
  ASSERT_EQ(qosdb("run --brief " + scenario("registration.qos") + " " + scenario("dsa.qos") + " >/dev/null; echo $?"), "0\n");
  pid_t pid = fork();
  if (pid == 0) {
    std::string command = "exec " + kQosdb + " capture - --follow --interval 0.02 > " + file_;
    execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  auto frames = [&] { return dissect("cat " + file_); };
  auto waitFor = [&](long lines) {
    for (int i = 0; i < 500; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(20))) {
      std::string f = frames();
      if (std::count(f.begin(), f.end(), '\n') >= lines) return;
    }
  };
  waitFor(3);
  ASSERT_EQ(qosdb("run --brief " + scenario("dsc.qos") + " >/dev/null; echo $?"), "0\n");
  waitFor(6);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // nothing more may come
  kill(pid, SIGTERM);
  waitpid(pid, nullptr, 0);
  EXPECT_EQ(frames(), kSteps[1].frames + kSteps[2].frames);
  // A reader that goes away ends the follow, though no message changes (status 0, not timeout's 124).
  EXPECT_EQ(sh("(timeout 20 " + kQosdb + " capture - --follow; echo $? >" + file_ + ") | head -c 24 >/dev/null; cat " + file_),
            "0\n");
}

}  // namespace
