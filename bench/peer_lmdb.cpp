// SPDX-License-Identifier: MIT
// peer_lmdb.cpp - LMDB doing the DSA lifecycle.
//
// The environment lives in a temporary directory on tmpfs (/dev/shm), opened
// with MDB_NOSYNC | MDB_WRITEMAP. Every row of the region's transaction,
// message, flow and classifier tables is one fixed-size value (the row's own
// struct) keyed by table and row index (big-endian, so a cursor walks a
// table in index order). One locked stretch of the library's lifecycle is
// one write transaction here; a first-match search is a cursor walk, as the
// library's scans are.
#include <lmdb.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "lifecycle.h"
#include "store.h"
#include "timing.h"

namespace qosbench {
namespace {

enum Table : uint32_t { kTa = 1, kControl = 2, kMsg = 3, kSf = 4, kClsf = 5 };

void check(int rc, const char* what) {
  if (rc != MDB_SUCCESS) {
    std::fprintf(stderr, "qosdb_bench: lmdb %s: %s\n", what, mdb_strerror(rc));
    std::exit(1);
  }
}

class Lmdb {
 public:
  Lmdb() {
    char dir[] = "/dev/shm/qosdb_lmdb_XXXXXX";
    if (mkdtemp(dir) == nullptr) std::exit(1);
    dir_ = dir;
    check(mdb_env_create(&env_), "create");
    check(mdb_env_set_mapsize(env_, 64u << 20), "mapsize");
    check(mdb_env_open(env_, dir, MDB_NOSYNC | MDB_WRITEMAP, 0600), "open");
    begin();
    check(mdb_dbi_open(txn_, nullptr, 0, &dbi_), "dbi");
    const qos::QosIntDbRegion& r = region();
    for (uint32_t i = 0; i < qos::kTaRows; ++i) put(kTa, i, r.ta[i]), put(kMsg, i, r.msgs[i]);
    put(kControl, 0, r.taControl);
    for (uint32_t i = 0; i < qos::kSfRows; ++i) put(kSf, i, r.sf[i]);
    for (uint32_t i = 0; i < qos::kClsfRows; ++i) put(kClsf, i, r.clsf[i]);
    commit();
  }
  ~Lmdb() {
    mdb_env_close(env_);
    for (const char* f : {"/data.mdb", "/lock.mdb"}) unlink((dir_ + f).c_str());
    rmdir(dir_.c_str());
  }
  void begin() { check(mdb_txn_begin(env_, nullptr, 0, &txn_), "begin"); }
  void commit() { check(mdb_txn_commit(txn_), "commit"); }

  template <typename Row>
  void put(Table t, uint32_t i, const Row& row) {
    uint32_t k = key(t, i);
    MDB_val kv{sizeof k, &k}, v{sizeof row, const_cast<Row*>(&row)};
    check(mdb_put(txn_, dbi_, &kv, &v, 0), "put");
  }
  template <typename Row>
  Row get(Table t, uint32_t i) {
    uint32_t k = key(t, i);
    MDB_val kv{sizeof k, &k}, v;
    check(mdb_get(txn_, dbi_, &kv, &v), "get");
    Row row;
    std::memcpy(&row, v.mv_data, sizeof row);
    return row;
  }
  // The first row of table t (in index order) for which match(row) holds; -1 when none.
  template <typename Row, typename Match>
  int32_t first(Table t, Match match) {
    MDB_cursor* c;
    check(mdb_cursor_open(txn_, dbi_, &c), "cursor");
    uint32_t k = key(t, 0);
    MDB_val kv{sizeof k, &k}, v;
    int32_t found = -1;
    for (int rc = mdb_cursor_get(c, &kv, &v, MDB_SET_RANGE); rc == MDB_SUCCESS;
         rc = mdb_cursor_get(c, &kv, &v, MDB_NEXT)) {
      uint32_t at = __builtin_bswap32(*static_cast<const uint32_t*>(kv.mv_data));
      if (at >> 24 != t) break;
      if (match(*static_cast<const Row*>(v.mv_data))) {
        found = static_cast<int32_t>(at & 0xffffff);
        break;
      }
    }
    mdb_cursor_close(c);
    return found;
  }
  // Rewrites every row of table t for which match(row) holds (one walk, then the puts).
  template <typename Row, typename Match, typename Change>
  void each(Table t, Match match, Change change) {
    uint32_t hits[qos::kClsfRows];
    uint32_t n = 0;
    first<Row>(t, [&, i = 0u](const Row& r) mutable {
      if (match(r)) hits[n++] = i;
      ++i;
      return false;
    });
    for (uint32_t h = 0; h < n; ++h) {
      Row row = get<Row>(t, hits[h]);
      change(row);
      put(t, hits[h], row);
    }
  }

 private:
  static uint32_t key(Table t, uint32_t i) { return __builtin_bswap32((t << 24) | i); }
  MDB_env* env_ = nullptr;
  MDB_txn* txn_ = nullptr;
  MDB_dbi dbi_ = 0;
  std::string dir_;
};

struct Rows {
  int32_t flow = -1, clsf[2] = {-1, -1};
};

// The same state changes as runDsaLifecycle, in five write transactions.
Rows lmdbLifecycle(Lmdb& db) {
  Rows rows;
  const uint16_t flowRef = kLifecycleFlowRef;
  db.begin();
  const uint32_t ta = static_cast<uint32_t>(db.first<qos::TaRow>(kTa, [](const qos::TaRow& r) { return !r.used(); }));
  auto control = db.get<qos::TaDbControl>(kControl, 0);
  control.lastCmTaId = static_cast<uint16_t>((control.lastCmTaId + 1) & 32767);
  control.taRowsUsed = std::max(control.taRowsUsed, ta + 1);
  db.put(kControl, 0, control);
  qos::TaRow t{};
  t.rowStatus = 1, t.taId = control.lastCmTaId, t.type = QOS_TA_DSA, t.initiator = QOS_TA_BY_MODEM;
  db.put(kTa, ta, t);
  static const qos::MsgRow empty{};
  db.put(kMsg, ta, empty);
  db.commit();

  db.begin();
  qos::MsgRow msg{};
  std::memcpy(msg.req.data, lifecycleRequest(), kLifecycleRequestLength);
  msg.req.length = kLifecycleRequestLength;
  db.put(kMsg, ta, msg);
  const int32_t taIndex = static_cast<int32_t>(ta);
  auto ofTa = [&](uint16_t ref) { return [=](const qos::SfRow& r) { return r.used() && r.ref == ref && r.taIndex == taIndex; }; };
  rows.flow = db.first<qos::SfRow>(kSf, [](const qos::SfRow& r) { return !r.used(); });
  qos::SfRow sf{};
  sf.state = 2, sf.ref = flowRef, sf.direction = QOS_DIR_UPSTREAM, sf.taIndex = taIndex, sf.heldTaIndex = -1,
  sf.qosDbIndex = -1;
  for (int i = 0; i < 2; ++i) {
    rows.clsf[i] = db.first<qos::ClsfRow>(kClsf, [](const qos::ClsfRow& r) { return !r.used(); });
    qos::ClsfRow c{};
    c.status = 2, c.ref = static_cast<uint8_t>(kLifecycleClsfRefs[i]), c.sfRef = flowRef, c.taIndex = taIndex;
    db.put(kClsf, static_cast<uint32_t>(rows.clsf[i]), c);
    ++sf.clsfCounter;
  }
  ++sf.phsCounter;
  db.put(kSf, static_cast<uint32_t>(rows.flow), sf);
  db.commit();

  db.begin();
  const uint32_t flow = static_cast<uint32_t>(db.first<qos::SfRow>(kSf, ofTa(flowRef)));
  sf = db.get<qos::SfRow>(kSf, flow);
  sf.sfId = kLifecycleSfId;
  db.put(kSf, flow, sf);
  for (uint32_t ref : kLifecycleClsfRefs) {
    int32_t at = db.first<qos::ClsfRow>(kClsf, [&](const qos::ClsfRow& r) {
      return r.used() && r.ref == ref && r.taIndex == taIndex;
    });
    auto c = db.get<qos::ClsfRow>(kClsf, static_cast<uint32_t>(at));
    c.clsfId = static_cast<uint16_t>(ref), c.sfId = kLifecycleSfId;
    db.put(kClsf, static_cast<uint32_t>(at), c);
  }
  db.each<qos::SfRow>(kSf, [&](const qos::SfRow& r) { return r.used() && r.taIndex == taIndex; },
                      [&](qos::SfRow& r) {
                        r.ref = 0, r.state = 1, r.taIndex = -1, r.heldTaIndex = taIndex, r.committed = 1,
                        r.pairSfIndex = -1;
                      });
  db.each<qos::ClsfRow>(kClsf, [&](const qos::ClsfRow& r) { return r.used() && r.taIndex == taIndex; },
                        [](qos::ClsfRow& r) { r.status = 1, r.sfRef = 0, r.taIndex = -1, r.ref = 0; });
  db.commit();

  db.begin();
  db.each<qos::SfRow>(kSf, [&](const qos::SfRow& r) { return r.used() && r.heldTaIndex == taIndex; },
                      [](qos::SfRow& r) { r.heldTaIndex = -1; });
  db.commit();

  db.begin();
  db.put(kTa, ta, qos::TaRow{});
  db.put(kMsg, ta, empty);
  db.commit();
  return rows;
}

}  // namespace

void registerLmdbLifecycle() {
  reg("lmdb/DsaLifecycle/full", [](benchmark::State& s) {
    useTables(Tables::kFullRoom);
    Lmdb db;
    Rows rows = lmdbLifecycle(db);
    timedEach(
        s,
        [&] {
          db.begin();
          db.put(kSf, static_cast<uint32_t>(rows.flow), qos::SfRow{});
          for (int32_t c : rows.clsf) db.put(kClsf, static_cast<uint32_t>(c), qos::ClsfRow{});
          db.commit();
        },
        [&] { rows = lmdbLifecycle(db); });
  })->UseManualTime();
}

}  // namespace qosbench
