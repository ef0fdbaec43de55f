// SPDX-License-Identifier: MIT
// stress_test.cpp - several processes of the stack playing DSX transactions
// at once, each under the lock, each keeping its own account of what the
// tables must hold for it.
//
// Every process owns disjoint SFIDs. It runs up to three transactions at a
// time, each advanced one locked step at a time in random order with the
// other processes' steps in between: allocate the row (qos_TaDb_AddNewTa,
// from every process at once) and mark it with the process's own subtype;
// add a flow with classifiers (DSA) or delete one (DSD); end it with a random
// outcome; end the hold; release the row. Before every step it checks that
// the row still carries its mark, so two processes never hold the same row.
// At the end each process compares the tables with its account, and the
// test checks the region's invariants. The outcomes' rules: outcome_test.
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <random>

#include "support/fixture.h"
#include "tools/inspect/integrity.h"

namespace {

constexpr int kProcesses = 4;
constexpr uint32_t kSfIdSpan = 0x100000;  // process p owns SFIDs (p+1) * span + n
constexpr std::size_t kMaxFlows = 8, kMaxTransactions = 3;

struct Transaction {
  uint32_t row = 0, mark = 0, type = QOS_TA_DSA, sfId = 0, classifiers = 0;
  int step = 0;
  bool succeeded = true;
};

class Player {
 public:
  Player(int index, uint32_t seed) : index_(index), rng_(seed) {}

  // Plays until the deadline, finishes what is open, then compares.
  bool run(std::chrono::steady_clock::time_point deadline) {
    while (ok_ && std::chrono::steady_clock::now() < deadline) {
      if (open_.size() < kMaxTransactions && pick(3) == 0) start();
      else if (!open_.empty()) advance(pick(static_cast<uint32_t>(open_.size())));
    }
    while (ok_ && !open_.empty()) advance(0);
    if (ok_) verify();
    std::fprintf(stderr, "process %d: %u transactions, %zu flows left\n", index_, done_, flows_.size());
    return ok_;
  }

 private:
  uint32_t pick(uint32_t n) { return static_cast<uint32_t>(rng_() % n); }
  void expect(bool good, const std::string& what) {
    if (!good && ok_) std::fprintf(stderr, "process %d: %s\n", index_, what.c_str());
    ok_ = ok_ && good;
  }

  void start() {
    Transaction t;
    std::vector<uint32_t> idle;
    for (auto& [id, classifiers] : flows_) if (busy_.count(id) == 0) idle.push_back(id);
    t.type = flows_.size() < kMaxFlows && (idle.empty() || pick(2) == 0) ? QOS_TA_DSA : QOS_TA_DSD;
    if (t.type == QOS_TA_DSD && idle.empty()) return;
    if (qos_TaDb_AddNewTa(++taId_, t.type, QOS_TA_BY_CMTS, 0, nullptr, &t.row) != 0) return;  // table full
    t.mark = (static_cast<uint32_t>(index_) << 24) | ++marks_;
    qos_taDb_Lock(), qos_TaDb_SetTaSubtype(t.row, t.mark), qos_taDb_Unlock();
    t.sfId = t.type == QOS_TA_DSA ? (static_cast<uint32_t>(index_) + 1) * kSfIdSpan + ++serial_
                                  : idle[pick(static_cast<uint32_t>(idle.size()))];
    busy_[t.sfId] = true;
    open_.push_back(t);
  }

  void advance(std::size_t which) {
    Transaction& t = open_[which];
    if (t.step == 3) {
      qos_intDb_ResetTaDbRow(static_cast<int32_t>(t.row)), settle(t), ++done_;
      return void(open_.erase(open_.begin() + static_cast<long>(which)));
    }
    qos_taDb_Lock();
    uint32_t mark = 0;
    expect(qos_TaDb_GetTaSubtype(t.row, &mark) == 0 && mark == t.mark,
           "transaction row " + std::to_string(t.row) + " is no longer ours");
    const auto ta = static_cast<int32_t>(t.row);
    uint32_t sf = 0;
    if (t.step == 0 && t.type == QOS_TA_DSA) {
      t.classifiers = pick(4);
      expect(qos_intDb_AddSfId(t.sfId, pick(2) == 0 ? QOS_DIR_DOWNSTREAM : QOS_DIR_UPSTREAM, ta) == 0, "AddSfId");
      for (uint32_t c = 1; c <= t.classifiers; ++c) expect(qos_intDb_AddClsfId(t.sfId, c, ta) == 0, "AddClsfId");
    }
    if (t.step == 0 && t.type == QOS_TA_DSD) {
      expect(qos_intDb_FindSfById(t.sfId, &sf) == 0 && qos_intDb_StartDeleteSF(sf, ta) == 0, "StartDeleteSF");
    }
    if (t.step == 1) {
      t.succeeded = t.type == QOS_TA_DSD || pick(2) == 0;
      expect((t.succeeded ? qos_intDb_UpdateSfOnTaSucceeded : qos_intDb_UpdateSfOnTaFailure)(t.row) == 0, "outcome");
    }
    if (t.step == 2) expect(qos_TaDb_SetTaDbState(t.row, 2) == 0 && qos_intDb_UpdateSfOnTaEnd(t.row) == 0, "end of hold");
    ++t.step;
    qos_taDb_Unlock();
  }

  // The account after the transaction: a flow added with its classifiers, or gone.
  void settle(const Transaction& t) {
    busy_.erase(t.sfId);
    if (t.type == QOS_TA_DSA && t.succeeded) flows_[t.sfId] = t.classifiers;
    if (t.type == QOS_TA_DSD) flows_.erase(t.sfId);
  }

  bool mine(uint32_t sfId) const { return sfId / kSfIdSpan == static_cast<uint32_t>(index_) + 1; }

  // Every row of ours is in the account and every entry of the account has
  // its row, settled, nobody else's; counted under the lock.
  void verify() {
    std::map<uint32_t, uint32_t> seen;  // SFID -> classifiers
    qos_taDb_Lock();
    const qos::QosIntDbRegion& r = qostest::store();
    for (const qos::SfRow& row : r.sf) {
      if (!row.used() || !mine(row.sfId)) continue;
      expect(seen.count(row.sfId) == 0, "flow " + std::to_string(row.sfId) + " twice");
      expect(row.state == QOS_SF_OPERATIONAL && row.taIndex == -1 && row.heldTaIndex == -1, "flow not settled");
      seen[row.sfId] += 0;
    }
    for (const qos::ClsfRow& row : r.clsf) {
      if (!row.used() || !mine(row.sfId)) continue;
      expect(row.status == QOS_CLSF_OPERATIONAL && row.taIndex == -1, "classifier not settled");
      ++seen[row.sfId];
    }
    qos_taDb_Unlock();
    expect(seen == flows_, "rows differ from the account");
  }

  int index_;
  std::mt19937 rng_;
  bool ok_ = true;
  uint32_t taId_ = 0, marks_ = 0, serial_ = 0, done_ = 0;
  std::map<uint32_t, uint32_t> flows_;  // SFID -> classifiers
  std::map<uint32_t, bool> busy_;       // SFIDs a transaction of ours works on
  std::vector<Transaction> open_;
};

void quiet(const LogSite*, const char*, void*) {}

// Seconds of play: QOSDB_STRESS_SECONDS, else 3 (2 under an emulator).
double playSeconds() {
  if (const char* s = std::getenv("QOSDB_STRESS_SECONDS")) return std::atof(s);
  return std::string(QOS_TEST_EXEC_PREFIX).empty() ? 3.0 : 2.0;
}

TEST(StressTest, ProcessesPlayingTransactionsKeepEachOthersRows) {
  ASSERT_EQ(qos_IntDb_Init(), 0);
  const uint32_t seed = std::random_device{}();
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(static_cast<long>(playSeconds() * 1000));
  for (int p = 0; p < kProcesses; ++p) {
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      qos_host_set_log_hook(quiet, nullptr);  // deletions of flows that were never active log
      bool ok = qos_IntDb_RetrieveAccess() == 0 && Player(p, seed + static_cast<uint32_t>(p)).run(deadline);
      _exit(ok ? 0 : 1);
    }
  }
  for (int p = 0, status = 0; p < kProcesses; ++p) {
    ASSERT_GT(wait(&status), 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "seed " << seed << ", status " << status;
  }

  const qos::QosIntDbRegion& image = qostest::store();
  for (const auto& f : qos::inspect::checkIntegrity(image)) ADD_FAILURE() << qos::inspect::describe(f);
  for (const qos::SfRow& row : image.sf) {
    EXPECT_TRUE(!row.used() || (row.sfId / kSfIdSpan >= 1 && row.sfId / kSfIdSpan <= kProcesses))
        << "a flow nobody added: SFID " << row.sfId << ", state " << row.state;
  }
  for (const qos::TaRow& row : image.ta) EXPECT_FALSE(row.used()) << "a transaction row left in use";
}

}  // namespace
