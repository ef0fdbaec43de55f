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

namespace qosbench {
namespace {

const char* const kSchema = R"sql(
CREATE TABLE ta(idx INTEGER PRIMARY KEY, rowStatus INT, taId INT, type INT, initiator INT,
                smState INT, retryCounter INT, authLen INT, authBlock BLOB, subtype INT);
CREATE INDEX ta_status ON ta(rowStatus);
CREATE TABLE ta_control(id INTEGER PRIMARY KEY, retryLimit INT, taRowsUsed INT, lastCmTaId INT);
CREATE TABLE msg(idx INTEGER PRIMARY KEY, req BLOB, rsp BLOB, ack BLOB, confCode INT, errorCode INT,
                 errorType INT, errorSubType INT, errorSubType2 INT, erroredSfId INT);
CREATE TABLE sf(idx INTEGER PRIMARY KEY, state INT, sfId INT, ref INT, direction INT, committed INT,
                sid INT, paramSetType INT, taIndex INT, heldTaIndex INT, pairSfIndex INT,
                qosDbIndex INT, sidClusterCounter INT, clsfCounter INT, phsCounter INT);
CREATE INDEX sf_sfId ON sf(sfId);
CREATE INDEX sf_ref_ta ON sf(ref, taIndex);
CREATE INDEX sf_ta ON sf(taIndex);
CREATE INDEX sf_held ON sf(heldTaIndex);
CREATE TABLE clsf(idx INTEGER PRIMARY KEY, status INT, ref INT, clsfId INT, sfRef INT, sfId INT, taIndex INT);
CREATE INDEX clsf_ref_ta ON clsf(ref, taIndex);
CREATE INDEX clsf_id_sf ON clsf(clsfId, sfId);
CREATE INDEX clsf_ta ON clsf(taIndex);
CREATE TABLE cluster(idx INTEGER PRIMARY KEY, sfId INT, clusterId INT, ucid1 INT, sid1 INT, ucid2 INT,
                     sid2 INT, ucid3 INT, sid3 INT, ucid4 INT, sid4 INT);
CREATE INDEX cluster_sf ON cluster(sfId, clusterId);
)sql";

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
    exec(kSchema);
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
  void load() {
    const qos::QosIntDbRegion& r = region();
    exec("BEGIN");
    Stmt ta(db_, "INSERT INTO ta VALUES(?,?,?,?,?,?,?,?,zeroblob(255),?)");
    for (int64_t i = 0; i < QOS_TA_ROWS; ++i) {
      const qos::TaRow& t = r.ta[i];
      ta.bind(i, int64_t{t.rowStatus}, int64_t{t.taId}, int64_t{t.type}, int64_t{t.initiator},
              int64_t{t.smState}, int64_t{t.retryCounter}, int64_t{t.authLen}, int64_t{t.subtype})
          .run();
    }
    Stmt control(db_, "INSERT INTO ta_control VALUES(0,3,?,?)");
    control.bind(int64_t{r.taControl.taRowsUsed}, int64_t{r.taControl.lastCmTaId}).run();
    exec("WITH RECURSIVE n(v) AS (SELECT 0 UNION ALL SELECT v + 1 FROM n WHERE v < 10) "
         "INSERT INTO msg SELECT v, x'', x'', x'', 0, 253, 0, 0, 0, 0 FROM n");
    Stmt sf(db_, "INSERT INTO sf VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)");
    for (int64_t i = 0; i < QOS_SF_ROWS; ++i) {
      const qos::SfRow& f = r.sf[i];
      if (!f.used()) continue;
      sf.bind(i, int64_t{f.state}, int64_t{f.sfId}, int64_t{f.ref}, int64_t{f.direction}, int64_t{f.committed},
              int64_t{f.sid}, int64_t{f.paramSetType}, int64_t{f.taIndex}, int64_t{f.heldTaIndex},
              int64_t{f.pairSfIndex}, int64_t{f.qosDbIndex}, int64_t{f.sidClusterCounter},
              int64_t{f.clsfCounter}, int64_t{f.phsCounter})
          .run();
    }
    Stmt clsf(db_, "INSERT INTO clsf VALUES(?,?,?,?,?,?,?)");
    for (int64_t j = 0; j < QOS_CLSF_ROWS; ++j) {
      const qos::ClsfRow& c = r.clsf[j];
      if (!c.used()) continue;
      clsf.bind(j, int64_t{c.status}, int64_t{c.ref}, int64_t{c.clsfId}, int64_t{c.sfRef}, int64_t{c.sfId},
                int64_t{c.taIndex})
          .run();
    }
    Stmt cluster(db_, "INSERT INTO cluster VALUES(?,?,?,?,?,?,?,?,?,?,?)");
    for (int64_t k = 0; k < QOS_SID_CLUSTER_ROWS; ++k) {
      const qos::SidClusterRow& c = r.sidClusters[k];
      if (!c.used()) continue;
      const SidChannelMapping* m = c.channels;
      cluster.bind(k, int64_t{c.sfId}, int64_t{c.clusterId}, int64_t{m[0].ucid}, int64_t{m[0].sid},
                   int64_t{m[1].ucid}, int64_t{m[1].sid}, int64_t{m[2].ucid}, int64_t{m[2].sid},
                   int64_t{m[3].ucid}, int64_t{m[3].sid})
          .run();
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
     "SELECT ucid1, sid1, ucid2, sid2, ucid3, sid3, ucid4, sid4 FROM cluster "
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
            "UPDATE ta_control SET lastCmTaId=(lastCmTaId+1)&32767, taRowsUsed=max(taRowsUsed, ?1+1) "
            "WHERE id=0 RETURNING lastCmTaId")),
        claimTa(p.prepare(
            "UPDATE ta SET rowStatus=1, taId=?2, type=?3, initiator=?4, smState=0, retryCounter=0, "
            "authLen=0, authBlock=zeroblob(255), subtype=0 WHERE idx=?1")),
        taType(p.prepare("SELECT type FROM ta WHERE idx=?1 AND rowStatus<>0")),
        freeRow(p.prepare(
            "UPDATE ta SET rowStatus=0, taId=0, type=2, initiator=0, smState=0, retryCounter=0, authLen=0, "
            "authBlock=zeroblob(255), subtype=0 WHERE idx=?1")),
        emptyMsg(p.prepare(
            "UPDATE msg SET req=x'', rsp=x'', ack=x'', confCode=0, errorCode=253, errorType=0, "
            "errorSubType=0, errorSubType2=0, erroredSfId=0 WHERE idx=?1")),
        storeReq(p.prepare(
            "UPDATE msg SET req=?2, rsp=x'', ack=x'', confCode=0, errorCode=253, errorType=0, "
            "errorSubType=0, errorSubType2=0, erroredSfId=0 WHERE idx=?1")),
        sfByRefTa(p.prepare("SELECT min(idx) FROM sf WHERE ref=?1 AND taIndex=?2")),
        sfByRef(p.prepare("SELECT min(idx) FROM sf WHERE ref=?1")),
        insertSf(p.prepare(
            "INSERT INTO sf(state, sfId, ref, direction, committed, sid, paramSetType, taIndex, heldTaIndex, "
            "pairSfIndex, qosDbIndex, sidClusterCounter, clsfCounter, phsCounter) "
            "VALUES(2, 0, ?1, ?2, 0, 0, 0, ?3, -1, 0, -1, 0, 0, 0)")),
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

  Stmt &begin, &commit, &freeTa, &nextTaId, &claimTa, &taType, &freeRow, &emptyMsg, &storeReq, &sfByRefTa,
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
  q.commit.run();

  q.begin.run();
  q.storeReq.bind(ta, &request).run();
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
  q.commit.run();
  return rows;
}

// The same rows as the library's lifecycle leaves (see lifecycle.cpp).
bool peerLeftItsRows(Peer& peer, const PeerRows& rows) {
  Stmt flow(peer.db(),
            "SELECT count(*) FROM sf WHERE idx=?1 AND state=1 AND sfId=?2 AND clsfCounter=2 AND phsCounter=1 "
            "AND taIndex=-1 AND heldTaIndex=-1");
  Stmt clsfs(peer.db(), "SELECT count(*) FROM clsf WHERE idx IN (?1, ?2) AND status=1 AND sfId=?3");
  Stmt busy(peer.db(), "SELECT count(*) FROM ta WHERE taId=(SELECT lastCmTaId FROM ta_control) AND rowStatus<>0");
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
