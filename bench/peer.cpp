// SPDX-License-Identifier: MIT
// peer.cpp - SQLite in memory doing the lookups and the DSA lifecycle.
#include "peer.h"

#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "lifecycle.h"
#include "store.h"
#include "timing.h"
#include "tools/schema/schema.h"

namespace qosbench {
namespace {

// The region's tables the work touches, as tools/schema describes them (a
// column per field, nested records and arrays flattened: channels0_ucid;
// a new row holds zeros, as a free row of the region), and an index for
// every lookup.
const char* const kTables[] = {"ta", "taControl", "msgs", "msgErrors", "sf", "clsf", "sidClusters"};
const char* const kIndexes = R"sql(
CREATE INDEX ta_status ON ta(rowStatus);
CREATE INDEX sf_sfId ON sf(sfId);
CREATE INDEX sf_ref_ta ON sf(ref, taIndex);
CREATE INDEX sf_ta ON sf(taIndex);
CREATE INDEX sf_held ON sf(heldTaIndex);
CREATE INDEX clsf_ref_ta ON clsf(ref, taIndex);
CREATE INDEX clsf_id_sf ON clsf(clsfId, sfId);
CREATE INDEX clsf_ta ON clsf(taIndex);
CREATE INDEX cluster_sf ON sidClusters(sfId, clusterId);
)sql";

std::vector<qosschema::Column> sqlColumns(const qosschema::Table& t) { return qosschema::columns(*t.row, "_", true); }

std::string createTable(const qosschema::Table& t) {
  std::string sql = std::string("CREATE TABLE ") + t.name + "(idx INTEGER PRIMARY KEY";
  for (const auto& c : sqlColumns(t)) sql += ", " + c.name + (c.field.bytes ? " BLOB DEFAULT x''" : " INT DEFAULT 0");
  return sql + ");";
}

void fail(sqlite3* db, const char* what) {
  std::fprintf(stderr, "qosdb_bench: sqlite %s: %s\n", what, sqlite3_errmsg(db));
  std::exit(1);
}

// A prepared statement, re-bound for every use.
class Stmt {
 public:
  Stmt(sqlite3* db, const char* sql) : db_(db) {
    if (sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, &s_, nullptr) != SQLITE_OK) fail(db, sql);
  }
  ~Stmt() { sqlite3_finalize(s_); }
  Stmt(const Stmt&) = delete;
  Stmt& operator=(const Stmt&) = delete;

  template <typename... Args>
  Stmt& bind(Args... args) {
    sqlite3_reset(s_);
    [[maybe_unused]] int i = 0;
    (bindOne(++i, args), ...);
    return *this;
  }
  // Steps once: true when a row came back.
  bool row() {
    int rc = sqlite3_step(s_);
    if (rc != SQLITE_ROW && rc != SQLITE_DONE) fail(db_, sqlite3_sql(s_));
    return rc == SQLITE_ROW;
  }
  // Runs a statement that returns no row.
  void run() {
    row();
    sqlite3_reset(s_);
  }
  int64_t col(int i) const { return sqlite3_column_int64(s_, i); }
  void done() { sqlite3_reset(s_); }
  // A column of a region row, as the row description reads it.
  void bindColumn(int i, const qosschema::Column& c, const uint8_t* row) {
    if (c.field.bytes) {
      sqlite3_bind_blob(s_, i, row + c.field.offset, static_cast<int>(c.inUse(row)), SQLITE_STATIC);
    } else {
      bindOne(i, qosschema::value(c.field, row));
    }
  }
  // The first column of the first row, or -1 (also for NULL).
  int64_t one() {
    int64_t v = row() && sqlite3_column_type(s_, 0) != SQLITE_NULL ? col(0) : -1;
    sqlite3_reset(s_);
    return v;
  }

 private:
  void bindOne(int i, int64_t v) { sqlite3_bind_int64(s_, i, v); }
  void bindOne(int i, const std::vector<uint8_t>* blob) {
    sqlite3_bind_blob(s_, i, blob->data(), static_cast<int>(blob->size()), SQLITE_STATIC);
  }
  sqlite3* db_;
  sqlite3_stmt* s_ = nullptr;
};

// The database, filled from the region's used rows.
class Peer {
 public:
  // `file` other than ":memory:" is set up with `setup` (pragmas) first.
  explicit Peer(Tables t, const std::string& file = ":memory:", const char* setup = nullptr) : file_(file) {
    removeFile();
    // One connection on one thread: no mutexes.
    if (sqlite3_open_v2(file.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                        nullptr) != SQLITE_OK) {
      fail(db_, "open");
    }
    if (setup != nullptr) exec(setup);
    for (const char* name : kTables) exec(createTable(qosschema::table(name)).c_str());
    exec(kIndexes);
    useTables(t);
    load();
  }
  ~Peer() {
    stmts_.clear();
    sqlite3_close(db_);
    removeFile();
  }
  sqlite3* db() const { return db_; }
  void exec(const char* sql) {
    if (sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) fail(db_, sql);
  }
  Stmt& prepare(const char* sql) {
    stmts_.push_back(std::make_unique<Stmt>(db_, sql));
    return *stmts_.back();
  }

 private:
  void removeFile() {
    if (file_ == ":memory:") return;
    for (const char* suffix : {"", "-wal", "-shm"}) std::remove((file_ + suffix).c_str());
  }
  std::string file_;
  // Every row of the transaction, control and message tables, the rows in
  // use of the others.
  void load() {
    exec("BEGIN");
    for (const char* name : kTables) {
      const qosschema::Table& t = qosschema::table(name);
      const std::vector<qosschema::Column> columns = sqlColumns(t);
      std::string sql = std::string("INSERT INTO ") + name + " VALUES(?";
      for (std::size_t c = 0; c < columns.size(); ++c) sql += ",?";
      Stmt insert(db_, (sql + ")").c_str());
      const bool everyRow = t.usedField == nullptr || std::string(name) == "ta";
      for (std::size_t i = 0; i < t.rows; ++i) {
        const uint8_t* row = qosschema::rowAt(region(), t, i);
        if (!everyRow && !qosschema::used(t, row)) continue;
        insert.bind(static_cast<int64_t>(i));
        for (std::size_t c = 0; c < columns.size(); ++c) insert.bindColumn(static_cast<int>(c) + 2, columns[c], row);
        insert.run();
      }
    }
    exec("COMMIT");
    exec("ANALYZE");
  }

  sqlite3* db_ = nullptr;
  std::vector<std::unique_ptr<Stmt>> stmts_;
};

struct PeerLookup {
  const char* name;
  const char* sql;
  int64_t a;
  int64_t b;
};

// The statements that answer the library's lookups on the full layout (the
// key of each is the one lookups.cpp uses).
const PeerLookup kPeerLookups[] = {
    {"FindSfById", "SELECT min(idx) FROM sf WHERE sfId=?1 AND state NOT IN (0,7)",
     sfIdOf(kOutcomeDsFlow), 0},
    {"FindSfByRef", "SELECT min(idx) FROM sf WHERE ref=?1 AND state NOT IN (0,7)",
     refOf(kOutcomeDsFlow), 0},
    {"FindSfByTaAndRef", "SELECT min(idx) FROM sf WHERE ref=?1 AND taIndex=?2",
     refOf(kOutcomeDsFlow), kOutcomeTa},
    {"FindSFByTaIndex", "SELECT min(idx) FROM sf WHERE taIndex=?1 AND state<>0",
     kOutcomeTa, 0},
    {"FindClsfById", "SELECT min(idx) FROM clsf WHERE clsfId=?1 AND sfId=?2",
     clsfIdOf(kClassifiers - 1), sfIdOf(kOutcomeDsFlow)},
    {"FindClsfByTaAndRef", "SELECT min(idx) FROM clsf WHERE ref=?1 AND taIndex=?2",
     clsfRefOf(kClassifiers - 1), kOutcomeTa},
    {"GetSfSidCluster",
     "SELECT channels0_ucid, channels0_sid, channels1_ucid, channels1_sid, channels2_ucid, channels2_sid, "
     "channels3_ucid, channels3_sid FROM sidClusters "
     "WHERE sfId=?1 AND clusterId=?2 ORDER BY idx LIMIT 1",
     sfIdOf(flowOfCluster(QOS_SID_CLUSTER_ROWS - 1)), clusterIdOf(QOS_SID_CLUSTER_ROWS - 1)},
};

// The lifecycle's statements.
struct LifecycleSql {
  explicit LifecycleSql(Peer& p)
      : begin(p.prepare("BEGIN")),
        commit(p.prepare("COMMIT")),
        freeTa(p.prepare("SELECT min(idx) FROM ta WHERE rowStatus=0")),
        nextTaId(p.prepare(
            "UPDATE taControl SET lastCmTaId=(lastCmTaId+1)&32767, taRowsUsed=max(taRowsUsed, ?1+1) "
            "WHERE idx=0 RETURNING lastCmTaId")),
        claimTa(p.prepare(
            "UPDATE ta SET rowStatus=1, taId=?2, type=?3, initiator=?4, smState=0, retryCounter=0, "
            "authLen=0, authBlock=zeroblob(255), subtype=0 WHERE idx=?1")),
        taType(p.prepare("SELECT type FROM ta WHERE idx=?1 AND rowStatus<>0")),
        freeRow(p.prepare(
            "UPDATE ta SET rowStatus=0, taId=0, type=2, initiator=0, smState=0, retryCounter=0, authLen=0, "
            "authBlock=zeroblob(255), subtype=0 WHERE idx=?1")),
        emptyMsg(p.prepare(
            "UPDATE msgs SET req_data=x'', req_length=0, rsp_data=x'', rsp_length=0, ack_data=x'', ack_length=0 "
            "WHERE idx=?1")),
        storeReq(p.prepare(
            "UPDATE msgs SET req_data=?2, req_length=length(?2), rsp_data=x'', rsp_length=0, ack_data=x'', "
            "ack_length=0 WHERE idx=?1")),
        resetError(p.prepare(
            "UPDATE msgErrors SET confCode=0, errorCode=253, errorType=0, errorSubType=0, errorSubType2=0, "
            "erroredSfId=0 WHERE idx=?1")),
        sfByRefTa(p.prepare("SELECT min(idx) FROM sf WHERE ref=?1 AND taIndex=?2")),
        sfByRef(p.prepare("SELECT min(idx) FROM sf WHERE ref=?1")),
        insertSf(p.prepare(
            "INSERT INTO sf(state, ref, direction, taIndex, heldTaIndex, qosDbIndex) VALUES(2, ?1, ?2, ?3, -1, -1)")),
        clsfByRefTa(p.prepare("SELECT idx, status, sfRef FROM clsf WHERE ref=?1 AND taIndex=?2 ORDER BY idx LIMIT 1")),
        insertClsf(p.prepare("INSERT INTO clsf(status, ref, clsfId, sfRef, sfId, taIndex) VALUES(2, ?1, 0, ?2, 0, ?3)")),
        countClsf(p.prepare("UPDATE sf SET clsfCounter=clsfCounter+1 WHERE idx=?1")),
        countPhs(p.prepare("UPDATE sf SET phsCounter=phsCounter+1 WHERE idx=?1")),
        setSfId(p.prepare("UPDATE sf SET sfId=?2 WHERE idx=?1")),
        setClsfIds(p.prepare("UPDATE clsf SET clsfId=?2, sfId=?3 WHERE idx=?1")),
        flowsSucceeded(p.prepare(
            "UPDATE sf SET ref=0, state=1, taIndex=-1, heldTaIndex=?1, committed=1, pairSfIndex=-1 "
            "WHERE taIndex=?1 AND state<>0")),
        clsfsSucceeded(p.prepare("UPDATE clsf SET status=1, sfRef=0, taIndex=-1, ref=0 WHERE taIndex=?1 AND status<>0")),
        freeRejected(p.prepare("DELETE FROM sf WHERE heldTaIndex=?1 AND state=5")),
        release(p.prepare("UPDATE sf SET heldTaIndex=-1 WHERE heldTaIndex=?1 AND state<>0")),
        dropSf(p.prepare("DELETE FROM sf WHERE idx=?1")),
        dropClsf(p.prepare("DELETE FROM clsf WHERE idx=?1")) {}

  Stmt &begin, &commit, &freeTa, &nextTaId, &claimTa, &taType, &freeRow, &emptyMsg, &storeReq, &resetError, &sfByRefTa,
      &sfByRef, &insertSf, &clsfByRefTa, &insertClsf, &countClsf, &countPhs, &setSfId, &setClsfIds, &flowsSucceeded,
      &clsfsSucceeded, &freeRejected, &release, &dropSf, &dropClsf;
};

struct PeerRows {
  int64_t flow = -1;
  int64_t clsf[2] = {-1, -1};
};

// The same state changes as runDsaLifecycle, in five SQL transactions.
PeerRows peerLifecycle(sqlite3* db, LifecycleSql& q, const std::vector<uint8_t>& request) {
  PeerRows rows;
  const int64_t flowRef = kLifecycleFlowRef;

  q.begin.run();
  int64_t ta = q.freeTa.bind().one();
  int64_t taId = q.nextTaId.bind(ta).one();
  q.claimTa.bind(ta, taId, int64_t{QOS_TA_DSA}, int64_t{QOS_TA_BY_MODEM}).run();
  q.emptyMsg.bind(ta).run();
  q.resetError.bind(ta).run();
  q.commit.run();

  q.begin.run();
  q.storeReq.bind(ta, &request).run();
  q.resetError.bind(ta).run();
  if (q.sfByRefTa.bind(flowRef, ta).one() < 0) {
    q.insertSf.bind(flowRef, int64_t{QOS_DIR_UPSTREAM}, ta).run();
    rows.flow = sqlite3_last_insert_rowid(db);
  }
  for (int i = 0; i < 2; ++i) {
    const int64_t ref = kLifecycleClsfRefs[i];
    if (q.clsfByRefTa.bind(ref, ta).one() < 0) {
      q.insertClsf.bind(ref, flowRef, ta).run();
      rows.clsf[i] = sqlite3_last_insert_rowid(db);
    }
    q.countClsf.bind(q.sfByRefTa.bind(flowRef, ta).one()).run();
  }
  const bool clsfOfFlow = q.clsfByRefTa.bind(int64_t{kLifecycleClsfRefs[0]}, ta).row() && q.clsfByRefTa.col(2) == flowRef;
  q.clsfByRefTa.done();
  if (clsfOfFlow) q.countPhs.bind(q.sfByRef.bind(flowRef).one()).run();
  q.commit.run();

  q.begin.run();
  q.setSfId.bind(q.sfByRefTa.bind(flowRef, ta).one(), int64_t{kLifecycleSfId}).run();
  for (uint32_t ref : kLifecycleClsfRefs) {
    int64_t c = q.clsfByRefTa.bind(int64_t{ref}, ta).one();
    if (c >= 0) q.setClsfIds.bind(c, int64_t{ref}, int64_t{kLifecycleSfId}).run();
  }
  if (q.taType.bind(ta).one() == QOS_TA_DSA) {
    q.flowsSucceeded.bind(ta).run();
    q.clsfsSucceeded.bind(ta).run();
  }
  q.commit.run();

  q.begin.run();
  if (q.taType.bind(ta).one() == QOS_TA_DSA) q.freeRejected.bind(ta).run();
  q.release.bind(ta).run();
  q.commit.run();

  q.begin.run();
  q.freeRow.bind(ta).run();
  q.emptyMsg.bind(ta).run();
  q.resetError.bind(ta).run();
  q.commit.run();
  return rows;
}

// The same rows as the library's lifecycle leaves (see lifecycle.cpp).
bool peerLeftItsRows(Peer& peer, const PeerRows& rows) {
  Stmt flow(peer.db(),
            "SELECT count(*) FROM sf WHERE idx=?1 AND state=1 AND sfId=?2 AND clsfCounter=2 AND phsCounter=1 "
            "AND taIndex=-1 AND heldTaIndex=-1");
  Stmt clsfs(peer.db(), "SELECT count(*) FROM clsf WHERE idx IN (?1, ?2) AND status=1 AND sfId=?3");
  Stmt busy(peer.db(), "SELECT count(*) FROM ta WHERE taId=(SELECT lastCmTaId FROM taControl) AND rowStatus<>0");
  return flow.bind(rows.flow, int64_t{kLifecycleSfId}).one() == 1 &&
         clsfs.bind(rows.clsf[0], rows.clsf[1], int64_t{kLifecycleSfId}).one() == 2 && busy.bind().one() == 0;
}

}  // namespace

void registerPeerLookups() {
  for (const PeerLookup& l : kPeerLookups) {
    reg(std::string("peer/") + l.name + "/full", [l](benchmark::State& s) {
      Peer peer(Tables::kFull);
      Stmt& q = peer.prepare(l.sql);
      eachIteration(s, [&] { return q.bind(l.a, l.b).one(); });
    });
  }
}

void registerPeerLifecycle() { registerSqlLifecycle("peer", ":memory:", nullptr); }

void registerSqlLifecycle(const std::string& prefix, const std::string& file, const char* setup) {
  for (Tables t : {Tables::kEmpty, Tables::kFullRoom}) {
    reg(prefix + "/DsaLifecycle/" + tablesName(t), [t, file, setup](benchmark::State& s) {
      Peer peer(t, file, setup);
      LifecycleSql q(peer);
      std::vector<uint8_t> request(lifecycleRequest(), lifecycleRequest() + kLifecycleRequestLength);
      PeerRows rows = peerLifecycle(peer.db(), q, request);
      if (!peerLeftItsRows(peer, rows)) {
        s.SkipWithError("the lifecycle did not leave its flow and classifiers in force");
        return;
      }
      timedEach(
          s,
          [&] {
            if (rows.flow >= 0) q.dropSf.bind(rows.flow).run();
            for (int64_t c : rows.clsf) {
              if (c >= 0) q.dropClsf.bind(c).run();
            }
          },
          [&] { rows = peerLifecycle(peer.db(), q, request); });
    })->UseManualTime();
  }
}

}  // namespace qosbench
