// SPDX-License-Identifier: MIT
// snmp_test.cpp - qosdb-snmp behind a real snmpd: the test starts snmpd on
// a loopback port and a Unix AgentX socket in a directory of its own, then
// the subagent, and reads the tables with net-snmp's own managers.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

#include <nlohmann/json.hpp>

#include "support/fixture.h"

namespace {

using nlohmann::json;
using Rows = std::map<std::string, std::string>;  // numeric OID -> "TYPE: value"

const std::string kClusters = ".1.3.6.1.4.1.4491.2.1.21.1.12", kFlows = ".1.3.6.1.4.1.4491.2.1.21.1.3",
                  kService = ".1.3.6.1.4.1.8072.9999.9999.1";
const uint32_t kCableIf = 2, kUsIf[4] = {4, 80, 81, 0};

std::string sh(const std::string& command) { return qostest::sh(command + " 2>&1"); }
std::string program(const char* name) {
  for (const char* dir : {"/usr/sbin/", "/usr/bin/", "/usr/local/sbin/", "/usr/local/bin/"})
    if (access((std::string(dir) + name).c_str(), X_OK) == 0) return std::string(dir) + name;
  return "";
}
Rows parse(const std::string& lines) {
  Rows rows;
  std::istringstream in(lines);
  for (std::string line; std::getline(in, line);) {
    auto eq = line.find(" = ");
    if (eq != std::string::npos) rows[line.substr(0, eq)] = line.substr(eq + 3);
  }
  return rows;
}
// An enumeration's position in `names`; a value without a name comes as its number.
long en(const json& v, const std::vector<std::string>& names) {
  return v.is_number() ? v.get<long>() : std::find(names.begin(), names.end(), v.get<std::string>()) - names.begin();
}
bool inUse(const json& row) { return row["status"] != 0; }
std::string gauge(long v) { return "Gauge32: " + std::to_string(v); }
std::string integer(long v) { return "INTEGER: " + std::to_string(v); }

// What the tables must hold, from `qosdb show --json`.
Rows expected(const json& s, bool multiple) {
  Rows rows;
  std::map<long, long> activeIndex;  // SFID -> row of the active table
  for (const auto& a : s["activeSf"])
    if (inUse(a)) activeIndex[a["sfId"]] = a["index"];
  std::map<long, long> refOfRow;
  for (const auto& f : s["sf"]) refOfRow[f["index"]] = f["ref"];
  for (const auto& c : s["sidClusters"]) {
    if (!inUse(c)) continue;
    long sids = 0;
    for (const auto& ch : c["channels"]) sids += ch["sid"] != 0;
    for (std::size_t p = 0; p < 4; ++p) {
      const auto& ch = c["channels"][p];
      std::string tail = std::to_string(long(c["sfId"])) + "." + std::to_string(long(c["clusterId"])) + "." +
                         std::to_string(long(ch["ucid"]));
      if (ch["ucid"] != 0) rows[kClusters + ".1.3.2." + tail] = gauge(ch["sid"]);
      auto a = activeIndex.find(c["sfId"]);
      if (!multiple || kUsIf[p] == 0 || ch["sid"] == 0 || a == activeIndex.end() || !refOfRow.count(a->second)) continue;
      std::string index = "." + std::to_string(kUsIf[p]) + "." + std::to_string(long(ch["sid"]));
      for (auto [col, v] : {std::pair<int, long>{3, long(p) + 1}, {4, a->second}, {5, refOfRow[a->second]}, {6, sids}})
        rows[kService + ".1.1.1." + std::to_string(col) + index] = gauge(v);
    }
  }
  for (const auto& f : s["sf"]) {
    long state = en(f["state"], {"empty", "operational", "adding", "changing", "deleting"}), sfId = f["sfId"];
    long dir = en(f["direction"], {"none", "down", "up"}), sets = f["paramSetType"];
    if (state < 1 || state > 4 || sfId == 0) continue;
    long ref = f["ref"], primaryRef = s["stats"][dir == 2 ? "usPrimarySfRef" : "dsPrimarySfRef"];
    bool primary = (ref != 0 && ref == primaryRef) || (dir == 2 && activeIndex.count(sfId) && activeIndex[sfId] == 0);
    char bits[16];
    std::snprintf(bits, sizeof bits, "%02X ", ((sets & 4) ? 0x80 : 0) | ((sets & 2) ? 0x40 : 0) | ((sets & 1) ? 0x20 : 0));
    std::string index = "." + std::to_string(kCableIf) + "." + std::to_string(sfId);
    rows[kFlows + ".1.6" + index] = gauge(f["sid"]);
    rows[kFlows + ".1.7" + index] = integer(dir);
    rows[kFlows + ".1.8" + index] = integer(primary ? 1 : 2);
    rows[kFlows + ".1.9" + index] = std::string("Hex-STRING: ") + bits;
    if (!multiple && state == 1 && f["sid"] != 0 && activeIndex.count(sfId)) {
      std::string service = "." + std::to_string(kUsIf[0]) + "." + std::to_string(long(f["sid"]));
      for (auto [col, v] : {std::pair<int, long>{3, 1}, {4, activeIndex[sfId]}, {5, 0}, {6, 1}})
        rows[kService + ".1.1.1." + std::to_string(col) + service] = gauge(v);
    }
  }
  return rows;
}

class Snmp : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    snmpd_ = program("snmpd");
    if (snmpd_.empty() || program("snmpbulkwalk").empty()) GTEST_SKIP() << "snmpd or the snmp tools are not installed";
    char dir[] = "/tmp/snmp_test.XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    dir_ = dir;
    int s = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    ASSERT_EQ(bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
    getsockname(s, reinterpret_cast<sockaddr*>(&a), &len);
    close(s);
    agent_ = "127.0.0.1:" + std::to_string(ntohs(a.sin_port));
    std::ofstream(dir_ + "/snmpd.conf") << "agentaddress udp:" << agent_ << "\nmaster agentx\nagentXSocket unix:" << dir_
                                        << "/agentx\nrocommunity public 127.0.0.1\n";
    for (const char* v : {"MIBS", "MIBDIRS"}) setenv(v, "", 1);
    mkdir((dir_ + "/state").c_str(), 0700);
    setenv("SNMP_PERSISTENT_DIR", (dir_ + "/state").c_str(), 1);
    setenv("SNMPCONFPATH", dir_.c_str(), 1);
    // The subagent starts first, before the store and before snmpd: it waits for both.
    std::vector<std::string> sub{QOSDB_SNMP_BIN, "-x", dir_ + "/agentx", "--if-index", "2", "--us-if-index", "4,80,81,0",
                                 "--lock-wait-ms", "300"};
    if (GetParam()) sub.push_back("--multiple-upstreams");
    pids_.push_back(start(sub, dir_ + "/sub.log"));
    for (int i = 0; i < 100 && log("sub.log").find("no store yet") == std::string::npos; ++i) sleep_ms(50);
    pids_.push_back(start({snmpd_, "-f", "-Lf", dir_ + "/snmpd.log", "-C", "-c", dir_ + "/snmpd.conf", "-p", dir_ + "/pid"}));
  }
  void TearDown() override {
    for (pid_t p : pids_) kill(p, SIGTERM), waitpid(p, nullptr, 0);
    if (!dir_.empty()) sh("rm -rf " + dir_);
  }
  static void sleep_ms(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }
  pid_t start(const std::vector<std::string>& argv, const std::string& log = "/dev/null") {
    pid_t pid = fork();
    if (pid == 0) {
      FILE* f = std::freopen(log.c_str(), "w", stderr);
      std::vector<char*> args;
      for (const auto& s : argv) args.push_back(const_cast<char*>(s.c_str()));
      args.push_back(nullptr);
      execv(args[0], args.data());
      _exit(f == nullptr ? 126 : 127);
    }
    return pid;
  }
  std::string log(const std::string& name) {
    std::ifstream in(dir_ + "/" + name);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  }
  std::string qosdb(const std::string& args) { return sh(std::string(QOSDB_BIN) + " " + args); }
  // Plays the scenarios; the first ones create the store, so that the subagent attaches and
  // connects (`connections` times in all).
  void play(const std::string& scenarios, int connections = 1) {
    if (!scenarios.empty()) {
      ASSERT_EQ(qosdb("run --brief " + scenarios + " >/dev/null; echo $?"), "0\n");
    }
    auto connected = [&] {
      std::string l = log("sub.log");
      int n = 0;
      for (auto at = l.find("subagent connected"); at != std::string::npos; at = l.find("subagent connected", at + 1)) ++n;
      return n;
    };
    for (int i = 0; i < 100 && connected() < connections; ++i) sleep_ms(50);
    ASSERT_EQ(connected(), connections) << log("sub.log");
  }
  std::string snmp(const std::string& tool, const std::string& args) {
    return sh(tool + " -v2c -c public -On -Ox -t 2 -r 0 " + agent_ + " " + args);
  }
  Rows walkAll(const std::string& tool) {
    Rows all;
    for (const auto& root : {kClusters, kFlows, kService}) {
      Rows r = parse(snmp(tool, root));
      r.erase(root);  // "No Such Object" of an empty tree
      all.insert(r.begin(), r.end());
    }
    return all;
  }
  std::string snmpd_, dir_, agent_;
  std::vector<pid_t> pids_;
};

std::string scenario(const char* name) { return std::string(QOSDB_SCENARIOS) + "/" + name; }

TEST_P(Snmp, WalksBulkWalksAndGetsAgreeWithTheStore) {
  const struct {
    const char* scenarios;  // none: the tables are emptied
    bool anew;              // the store is removed and created anew first
  } steps[] = {{"registration.qos dsa.qos", false}, {"dsc.qos", false}, {"dsd.qos", false}, {"", false},
               {"registration.qos", true}};
  for (const auto& step : steps) {
    if (step.anew) qosdb("destroy --despite-attached");  // the subagent stays attached
    if (!*step.scenarios) qosdb("reset");
    std::string files;
    for (std::istringstream in(step.scenarios); in >> files;) play(scenario(files.c_str()));
    if (step.anew) {  // the first request finds the new store: genErr, and the subagent starts again
      EXPECT_NE(snmp("snmpget", kClusters + ".1.3.2.4097.1.1").find("(genError)"), std::string::npos);
      play("", 2);
    }
    Rows want = expected(json::parse(qosdb("show --json flows clusters active stats")), GetParam());
    EXPECT_EQ(walkAll("snmpwalk"), want) << step.scenarios;
    EXPECT_EQ(walkAll("snmpbulkwalk"), want) << step.scenarios;
    std::string oids;
    for (const auto& [oid, value] : want) oids += " " + oid;
    if (!want.empty()) {
      EXPECT_EQ(parse(snmp("snmpget", oids)), want) << step.scenarios;
    }
    EXPECT_EQ(want.empty(), !*step.scenarios) << step.scenarios;
  }
  for (const char* line : {"qosdb-snmp: no store yet (segment 14, semaphore 4656); retrying every 1 s",
                           "qosdb-snmp: the store was removed or created anew; attaching again"})
    EXPECT_NE(log("sub.log").find(line), std::string::npos) << line;
}

TEST_P(Snmp, BadIndexesGetNoSuchInstanceAndWalksEndCleanly) {
  play(scenario("registration.qos"));
  // Flow 0x1002 provisioned only (a 0 clears the bits, a 1 sets the first).
  sh("printf 'qos_intDb_SetServiceFlowParamSet 1 0\\nqos_intDb_SetServiceFlowParamSet 1 1\\n' | " +
     std::string(QOSDB_BIN) + " run -");
  const std::string c = kClusters + ".1.3", f = kFlows + ".1";
  const struct {
    std::string tool, oid, answer;
  } cases[] = {
      {"snmpget", c + ".2.4097.1.1", c + ".2.4097.1.1 = Gauge32: 17"},
      {"snmpget", c + ".2.4097.1", c + ".2.4097.1 = No Such Instance currently exists at this OID"},
      {"snmpget", c + ".2.4097.1.1.0", c + ".2.4097.1.1.0 = No Such Instance currently exists at this OID"},
      {"snmpget", c + ".2.4097.1.256", c + ".2.4097.1.256 = No Such Instance currently exists at this OID"},
      {"snmpget", c + ".3.4097.1.1", c + ".3.4097.1.1 = No Such Instance currently exists at this OID"},
      {"snmpget", c + ".2.4097.256.1", c + ".2.4097.256.1 = No Such Instance currently exists at this OID"},
      {"snmpget", kClusters + ".1.2.2.4097.1.1", kClusters + ".1.2.2.4097.1.1 = No Such Object available on this agent at this OID"},
      {"snmpget", f + ".5.2.4097", f + ".5.2.4097 = No Such Object available on this agent at this OID"},
      {"snmpget", f + ".6.2.9999", f + ".6.2.9999 = No Such Instance currently exists at this OID"},
      {"snmpget", f + ".9.2.4098", f + ".9.2.4098 = Hex-STRING: 20 "},  // BITS provisioned(2)
      {"snmpget", f + ".9.2.4099", f + ".9.2.4099 = Hex-STRING: E0 "},
      {"snmpgetnext", c + ".2.4097.1.300", c + ".2.4099.1.1 = Gauge32: 19"},
      {"snmpgetnext", c + ".2", c + ".2.4097.1.1 = Gauge32: 17"},
      {"snmpgetnext", c + ".1.99", c + ".2.4097.1.1 = Gauge32: 17"},
      {"snmpgetnext", f + ".6.2.4096", f + ".6.2.4097 = Gauge32: 17"},
      {"snmpgetnext", f + ".6.2.4099", f + ".7.2.4097 = INTEGER: 2"},
      {"snmpgetnext", f + ".9.2.4099", c + ".2.4097.1.1 = Gauge32: 17"},  // the flow table comes first
      {"snmpgetnext", kService, kService + ".1.1.1.3.4.17 = Gauge32: 1"},
  };
  for (const auto& k : cases) {
    EXPECT_EQ(snmp(k.tool, k.oid), k.answer + "\n") << k.tool << " " << k.oid;
  }
  // Past the last table the walk goes on into the next tree: never noSuchInstance, never a loop.
  std::string next = snmp("snmpgetnext", kService + ".1.1.1.7");
  EXPECT_EQ(next.find(kService), std::string::npos) << next;
  EXPECT_EQ(next.find("No Such"), std::string::npos) << next;
  EXPECT_NE(sh("snmpget -v1 -c public -On -t 2 -r 0 " + agent_ + " " + c + ".2.4097.1.256").find("(noSuchName)"),
            std::string::npos);
}

TEST_P(Snmp, DeadLockHolderGetsGenErrWhileSnmpdAnswersTheRest) {
  play(scenario("registration.qos"));
  ASSERT_EQ(qos_IntDb_RetrieveAccess(), 0);
  pid_t holder = fork();
  if (holder == 0) _exit(qos_taDb_Lock() == 0 ? 0 : 1);  // dies holding the lock
  int status = 0;
  waitpid(holder, &status, 0);
  ASSERT_EQ(status, 0);
#ifdef QOSDB_ROBUST_LOCK
  // The robust mutex hands a dead owner's lock to the next taker: the subagent recovers it and answers.
  EXPECT_EQ(snmp("snmpget", kClusters + ".1.3.2.4097.1.1"), kClusters + ".1.3.2.4097.1.1 = Gauge32: 17\n");
  EXPECT_NE(log("sub.log").find("qosdb-snmp: the lock's owner died holding it; the lock is recovered"), std::string::npos);
  return;
#endif
  // One request over the three tables, answered within snmpd's 1 s and the manager's 2 s.
  std::string got = snmp("snmpget", kClusters + ".1.3.2.4097.1.1 " + kFlows + ".1.6.2.4097 " + kService + ".1.1.1.3.4.17");
  EXPECT_NE(got.find("Reason: (genError)"), std::string::npos) << got;
  EXPECT_NE(snmp("snmpget", ".1.3.6.1.2.1.1.3.0").find(" = Timeticks: "), std::string::npos);
  EXPECT_NE(log("sub.log").find("the store's lock stayed taken for 300 ms; answering genErr"), std::string::npos);
  semctl(semget(QOS_SEM_KEY, 1, 0), 0, SETVAL, 1);
  EXPECT_EQ(snmp("snmpget", kClusters + ".1.3.2.4097.1.1"), kClusters + ".1.3.2.4097.1.1 = Gauge32: 17\n");
}

INSTANTIATE_TEST_SUITE_P(Upstreams, Snmp, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "Multiple" : "Single"; });

TEST(SnmpMib, ModuleLintsCleanAtLevelFour) {
  if (program("smilint").empty()) GTEST_SKIP() << "smilint is not installed";
  std::string mibs = std::string(QOSDB_MIBS);
  EXPECT_EQ(sh("SMIPATH=/usr/share/snmp/mibs/ietf:/usr/share/snmp/mibs:" + mibs + "/lint smilint -l 4 -s " + mibs +
               "/QOSDB-CM-SERVICE-MIB.txt"),
            "");
}

}  // namespace
