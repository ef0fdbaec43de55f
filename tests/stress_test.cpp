// stress_test.cpp - several processes of the stack playing DSX transactions
// at once, each under the lock, each keeping its own account of what the
// tables must hold for it.
//
// Every process owns disjoint SFIDs and references. It runs up to three
// transactions at a time, each advanced one locked step at a time in random
// order with the other processes' steps in between: allocate the row
// (qos_TaDb_AddNewTa, from every process at once) and mark it with the
// process's own subtype; add or mark flows, classifiers and PHS rules;
// end it with a random outcome; end the hold; release the row. Before every
// step it checks that the row still carries its mark, so two processes
// never hold the same row. At the end each process compares the tables
// with its account, and the test checks the region's invariants.
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <random>

#include "frame/region.h"
#include "support/fixture.h"
#include "tools/inspect/integrity.h"

namespace {

constexpr int kProcesses = 4;
constexpr uint32_t kSfIdSpan = 0x100000;  // process p owns SFIDs (p+1) * span + n
constexpr uint32_t kRefSpan = 1000;       // and flow references (p+1) * span + n
constexpr std::size_t kMaxFlows = 8, kMaxTransactions = 3;

enum Outcome { kSucceeded, kFailure, kError, kForcedEnd, kAddAbort };

const qos::QosIntDbRegion& image() { return *reinterpret_cast<const qos::QosIntDbRegion*>(qostest::region()); }

// What one process expects of one of its flows once no transaction of its
// own works on it.
struct Flow {
  uint32_t state = QOS_SF_OPERATIONAL, phsRules = 0;  // PHS rules counted as added or deleted, whatever the outcome
  std::map<uint16_t, uint32_t> classifiers;           // identifier -> status
  uint16_t nextClsfId = 1;
  bool busy = false;
};

struct Transaction {
  uint32_t row = 0, mark = 0, type = QOS_TA_DSA, initiator = QOS_TA_BY_CMTS, sfId = 0;
  int step = 0;
  Outcome outcome = kSucceeded;
  std::map<uint16_t, uint32_t> marked;  // classifier -> status this transaction gave it
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
  uint32_t sfIndex(uint32_t sfId, uint32_t i = 0) { return expect(qos_intDb_FindSfById(sfId, &i) == 0, "flow lost"), i; }
  uint32_t clsfIndex(uint32_t sfId, uint16_t id, uint32_t i = 0) {
    return expect(qos_intDb_FindClsfById(id, sfId, &i) == 0, "classifier lost"), i;
  }

  void start() {
    Transaction t;
    std::vector<uint32_t> idle;
    for (auto& [id, f] : flows_) if (!f.busy) idle.push_back(id);
    bool add = flows_.size() < kMaxFlows && (idle.empty() || pick(2) == 0);
    t.type = add ? QOS_TA_DSA : pick(2) == 0 ? QOS_TA_DSC : QOS_TA_DSD;
    if (!add) {
      if (idle.empty()) return;
      t.sfId = idle[pick(static_cast<uint32_t>(idle.size()))];
      if (t.type == QOS_TA_DSC && flows_[t.sfId].state != QOS_SF_OPERATIONAL) t.type = QOS_TA_DSD;
    }
    t.initiator = add && pick(2) == 0 ? QOS_TA_BY_MODEM : QOS_TA_BY_CMTS;
    if (qos_TaDb_AddNewTa(++taId_, t.type, t.initiator, 0, nullptr, &t.row) != 0) return;  // table full
    t.mark = (static_cast<uint32_t>(index_) << 24) | ++marks_;
    qos_taDb_Lock(), qos_TaDb_SetTaSubtype(t.row, t.mark), qos_taDb_Unlock();
    if (add) {
      t.sfId = (static_cast<uint32_t>(index_) + 1) * kSfIdSpan + ++serial_;
      flows_[t.sfId].state = QOS_SF_EMPTY;
    }
    flows_[t.sfId].busy = true;
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
    if (t.step == 0) work(t);
    if (t.step == 1) end(t);
    if (t.step == 2) expect(qos_TaDb_SetTaDbState(t.row, 2) == 0 && qos_intDb_UpdateSfOnTaEnd(t.row) == 0, "end of hold");
    ++t.step;
    qos_taDb_Unlock();
  }

  void work(Transaction& t) {
    const auto ta = static_cast<int32_t>(t.row);
    Flow& f = flows_[t.sfId];
    if (t.type == QOS_TA_DSA) {
      uint8_t direction = pick(2) == 0 ? QOS_DIR_DOWNSTREAM : QOS_DIR_UPSTREAM;
      uint32_t count = pick(4);
      if (t.initiator == QOS_TA_BY_CMTS) {
        expect(qos_intDb_AddSfId(t.sfId, direction, ta) == 0, "AddSfId");
        for (uint32_t c = 0; c < count; ++c) expect(qos_intDb_AddClsfId(t.sfId, f.nextClsfId + c, ta) == 0, "AddClsfId");
        if (count > 0) expect(qos_intDb_AddPhsId(t.sfId, f.nextClsfId, ta) == 0, "AddPhsId");
        f.phsRules = count > 0 ? 1 : 0;
      } else {
        // Modem-initiated: by reference; the SFID and identifiers arrive with the response.
        uint32_t ref = (static_cast<uint32_t>(index_) + 1) * kRefSpan + (serial_ % kRefSpan), i = 0, ci = 0;
        expect(qos_intDb_AddSfReference(ref, direction, ta) == 0, "AddSfReference");
        expect(qos_intDb_FindSfByTaAndRef(ref, ta, &i) == 0 && qos_intDb_SetSfId(i, t.sfId) == 0, "SetSfId");
        for (uint32_t c = 0; c < count; ++c) {
          expect(qos_intDb_AddClsfRef(ref, c + 1, ta) == 0 && qos_intDb_FindClsfByTaAndRef(c + 1, t.row, &ci) == 0,
                 "AddClsfRef");
          qos_intDb_SetClsfSfid(ci, t.sfId), qos_intDb_SetClsfId(ci, f.nextClsfId + c);
        }
      }
      for (uint32_t c = 0; c < count; ++c) t.marked[f.nextClsfId++] = QOS_CLSF_ADDING;
      return;
    }
    uint32_t sf = sfIndex(t.sfId);
    if (t.type == QOS_TA_DSD) return expect(qos_intDb_StartDeleteSF(sf, ta) == 0, "StartDeleteSF");
    expect(qos_intDb_ChangeSF(sf, ta) == 0, "ChangeSF");
    for (auto& [id, status] : f.classifiers) {
      uint32_t what = pick(3);
      if (what == 1) expect(qos_intDb_ChangeClassifier(sf, clsfIndex(t.sfId, id), ta) == 0, "ChangeClassifier");
      if (what == 2) expect(qos_intDb_DeleteClassifier(sf, clsfIndex(t.sfId, id), ta) == 0, "DeleteClassifier");
      if (what != 0) t.marked[id] = what == 1 ? QOS_CLSF_CHANGING : QOS_CLSF_DELETING;
    }
    if (!f.classifiers.empty()) {
      const uint16_t id = f.classifiers.begin()->first;
      uint32_t what = pick(4);
      if (what == 1) expect(qos_intDb_ChangePhs(t.sfId, id, ta) == 0, "ChangePhs");
      if (what == 2) expect(qos_intDb_AppendPhs_ClsfId(t.sfId, id, ta) == 0, "AppendPhs_ClsfId"), ++f.phsRules;
      if (what == 3 && f.phsRules > 0) expect(qos_intDb_DeletePhs(t.sfId, ta, 0) == 0, "DeletePhs"), --f.phsRules;
    }
    if (pick(2) == 0) {
      expect(qos_intDb_AppendClsfId(sf, f.nextClsfId, ta) == 0, "AppendClsfId");
      t.marked[f.nextClsfId++] = QOS_CLSF_ADDING;
    }
  }

  void end(Transaction& t) {
    static const Outcome kByType[3][4] = {{kSucceeded, kFailure, kError, kForcedEnd},
                                          {kSucceeded, kFailure, kError, kForcedEnd},
                                          {kSucceeded, kError, kForcedEnd, kSucceeded}};
    t.outcome = t.type == QOS_TA_DSA && pick(5) == 0 ? kAddAbort : kByType[t.type][pick(4)];
    static int32_t (*const kEnd[])(uint32_t) = {qos_intDb_UpdateSfOnTaSucceeded, qos_intDb_UpdateSfOnTaFailure,
                                                 qos_intDb_UpdateSfOnTaError, qos_intDb_UpdateSfOnTaForcedEnd,
                                                 qos_intDb_UpdateSfAddAbort};
    expect(kEnd[t.outcome](t.row) == 0, "outcome");
  }

  // The account after the transaction: what its outcome left of its rows.
  void settle(const Transaction& t) {
    Flow& f = flows_[t.sfId];
    f.busy = false;
    const bool success = t.outcome == kSucceeded;
    if (t.type == QOS_TA_DSA) {
      if (success) f.state = QOS_SF_OPERATIONAL;
      if (t.outcome == kError) f.state = t.initiator == QOS_TA_BY_CMTS ? QOS_SF_DELETING : QOS_SF_EMPTY;
      if (t.outcome == kForcedEnd) f.state = QOS_SF_ADD_REJECTED;  // not held, so the end of hold keeps it
      for (auto& [id, status] : t.marked) if (success) f.classifiers[id] = QOS_CLSF_OPERATIONAL;
    } else if (t.type == QOS_TA_DSD) {
      f.classifiers.clear();
      f.state = t.outcome == kForcedEnd ? QOS_SF_DELETING : QOS_SF_EMPTY;
    } else {
      if (t.outcome == kError) f.state = QOS_SF_DELETING;
      for (auto& [id, status] : t.marked) {
        if (success ? status == QOS_CLSF_DELETING : status == QOS_CLSF_ADDING) f.classifiers.erase(id);
        else f.classifiers[id] = QOS_CLSF_OPERATIONAL;
      }
    }
    if (f.state == QOS_SF_EMPTY) flows_.erase(t.sfId);
  }

  bool mine(uint32_t sfId) const { return sfId / kSfIdSpan == static_cast<uint32_t>(index_) + 1; }

  // Every row of ours is in the account and every entry of the account has
  // its row, settled, nobody else's; counted under the lock.
  void verify() {
    qos_taDb_Lock();
    const qos::QosIntDbRegion& r = image();
    std::map<uint32_t, std::pair<uint32_t, uint32_t>> seenFlows, wantFlows;  // SFID -> state, PHS rules
    std::map<uint32_t, std::map<uint16_t, uint32_t>> seenClsf, wantClsf;
    for (const qos::SfRow& row : r.sf) {
      if (!row.used() || !mine(row.sfId)) continue;
      expect(seenFlows.count(row.sfId) == 0, "flow " + std::to_string(row.sfId) + " twice");
      expect(row.taIndex == -1 && row.heldTaIndex == -1, "flow still bound to a transaction");
      seenFlows[row.sfId] = {row.state, row.phsCounter};
    }
    for (const qos::ClsfRow& row : r.clsf) {
      if (!row.used() || !mine(row.sfId)) continue;
      expect(row.taIndex == -1, "classifier still bound to a transaction");
      seenClsf[row.sfId][row.clsfId] = row.status;
    }
    qos_taDb_Unlock();
    for (auto& [id, f] : flows_) {
      wantFlows[id] = {f.state, f.phsRules};
      if (!f.classifiers.empty()) wantClsf[id] = f.classifiers;
    }
    expect(seenFlows == wantFlows, "flow rows differ from the account");
    expect(seenClsf == wantClsf, "classifier rows differ from the account");
  }

  int index_;
  std::mt19937 rng_;
  bool ok_ = true;
  uint32_t taId_ = 0, marks_ = 0, serial_ = 0, done_ = 0;
  std::map<uint32_t, Flow> flows_;
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

  for (const auto& f : qos::inspect::checkIntegrity(image())) ADD_FAILURE() << qos::inspect::describe(f);
  for (const qos::SfRow& row : image().sf) {
    EXPECT_TRUE(!row.used() || (row.sfId / kSfIdSpan >= 1 && row.sfId / kSfIdSpan <= kProcesses))
        << "a flow nobody added: SFID " << row.sfId << ", state " << row.state;
  }
  for (const qos::TaRow& row : image().ta) EXPECT_FALSE(row.used()) << "a transaction row left in use";
}

}  // namespace
