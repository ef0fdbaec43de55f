// SPDX-License-Identifier: MIT
// integrity.cpp - invariants of the region, table by table.
//
// Why each invariant holds, in short:
// - maximum indexes only grow through the free-row rule (which stops at the
//   last row) and only fall to the highest used row;
// - rows are freed by zeroing them and writing their reset values, and no
//   operation writes a field of a free row except the index-based setters
//   that work on free rows too (those make a finding suspect, not corrupt);
// - reserved words and padding are written by resets only, always with their
//   reset value;
// - counts move with the rows they count: the active upstream flow count
//   starts at 0, a fill sets it to the rows written, adds and deletes move
//   it with one row; its "extra" twin moves with it and is one lower after a
//   fill, equal before one, so it is always one of those two;
// - an SID cluster or switchover row is found by its SFID over every row
//   before a new one is taken, so a non-zero SFID is never stored twice and
//   never above the high-water index (SFID 0 matches free rows, hence
//   suspect);
// - the bonding change store refuses appends to full lists and to a
//   modification with more than four adds or deletes; everything else in it
//   is the clients' to write;
// - transaction rows are handed out first free, and the count of rows in use
//   grows by one only when the row taken is at or above it: every row in
//   use lies below that count until the table reset sets it to 0.
// Each finding names the field: a row broken in several fields gets one
// finding per field, so that a stray fill (0xFF over a row) shows where it
// reached. Fields that hold the clients' values (message bytes, error
// records, switchover limits) have no invariant and are not read.
#include "tools/inspect/integrity.h"

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <set>
#include <utility>

namespace qos::inspect {
namespace {

constexpr int32_t kNoTa = -1;
constexpr int32_t kMaxTaLink = 10;  // the message store's extra record counts as a transaction index
constexpr uint32_t kSfStateMax = QOS_SF_REFERENCED;
constexpr uint32_t kClsfStatusMax = QOS_CLSF_PHS_PLACEHOLDER;
constexpr uint32_t kHeldStateMax = 3;
constexpr uint32_t kClusterMaxNumCap = QOS_SID_CLUSTER_ROWS;
constexpr uint32_t kDsidMarker = 0xFFFFFFFF;
constexpr uint8_t kDsidPhsi = 255;
constexpr uint16_t kTaIdMask = 0x7FFF;
constexpr uint32_t kTaRetryLimit = 3;
constexpr uint8_t kParamSetBits = QOS_PARAMSET_PROVISIONED | QOS_PARAMSET_ADMITTED | QOS_PARAMSET_ACTIVE;

std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char* fmt, ...) {
  char text[256];
  va_list args;
  va_start(args, fmt);
  std::vsnprintf(text, sizeof text, fmt, args);
  va_end(args);
  return text;
}

bool zero(const void* bytes, std::size_t size) {
  const auto* p = static_cast<const uint8_t*>(bytes);
  for (std::size_t i = 0; i < size; ++i) {
    if (p[i] != 0) return false;
  }
  return true;
}

template <typename T>
bool zeroField(const T& field) {
  return zero(&field, sizeof field);
}

bool taLink(int32_t v) { return v >= kNoTa && v <= kMaxTaLink; }

// A field of a row type, by name, for the checks that look at every field.
struct Field {
  const char* name;
  std::size_t offset;
  std::size_t size;
};
#define QOS_FIELD(Row, f) Field{#f, offsetof(Row, f), sizeof(Row::f)}

constexpr Field kSfFields[] = {
    QOS_FIELD(SfRow, sfId), QOS_FIELD(SfRow, ref), QOS_FIELD(SfRow, direction), QOS_FIELD(SfRow, committed),
    QOS_FIELD(SfRow, sid), QOS_FIELD(SfRow, paramSetType), QOS_FIELD(SfRow, sidClusterCounter),
    QOS_FIELD(SfRow, clsfCounter), QOS_FIELD(SfRow, phsCounter), QOS_FIELD(SfRow, appendedClsfCounter),
    QOS_FIELD(SfRow, deletedClsfCounter)};
constexpr Field kClsfFields[] = {QOS_FIELD(ClsfRow, ref), QOS_FIELD(ClsfRow, clsfId), QOS_FIELD(ClsfRow, sfRef),
                                 QOS_FIELD(ClsfRow, sfId)};
constexpr Field kClusterFields[] = {QOS_FIELD(SidClusterRow, sfId), QOS_FIELD(SidClusterRow, clusterId),
                                    QOS_FIELD(SidClusterRow, reserved9), QOS_FIELD(SidClusterRow, channels)};
constexpr Field kSwitchoverFields[] = {
    QOS_FIELD(SwitchoverRow, sfId), QOS_FIELD(SwitchoverRow, maxOutstandingBytes),
    QOS_FIELD(SwitchoverRow, maxTotalBytesRequested), QOS_FIELD(SwitchoverRow, maxTimeInCluster),
    QOS_FIELD(SwitchoverRow, maxRequests), QOS_FIELD(SwitchoverRow, reserved19)};
constexpr Field kPhsFields[] = {QOS_FIELD(ActivePhsRow, status), QOS_FIELD(ActivePhsRow, sfId),
                                QOS_FIELD(ActivePhsRow, clsfId), QOS_FIELD(ActivePhsRow, phsi),
                                QOS_FIELD(ActivePhsRow, reserved13), QOS_FIELD(ActivePhsRow, dsid)};
constexpr Field kModFields[] = {
    QOS_FIELD(QosDbcModEntry, activeIndex), QOS_FIELD(QosDbcModEntry, sfId),     QOS_FIELD(QosDbcModEntry, clusterId),
    QOS_FIELD(QosDbcModEntry, addCount),    QOS_FIELD(QosDbcModEntry, reserved), QOS_FIELD(QosDbcModEntry, addMaps),
    QOS_FIELD(QosDbcModEntry, deleteCount), QOS_FIELD(QosDbcModEntry, reserved2), QOS_FIELD(QosDbcModEntry, deleteMaps)};
constexpr Field kActiveDbFields[] = {
    QOS_FIELD(QosDbcActiveEntry, activeSfIndex), QOS_FIELD(QosDbcActiveEntry, modIndex),
    QOS_FIELD(QosDbcActiveEntry, sfId),          QOS_FIELD(QosDbcActiveEntry, clusterId),
    QOS_FIELD(QosDbcActiveEntry, reserved),      QOS_FIELD(QosDbcActiveEntry, sid),
    QOS_FIELD(QosDbcActiveEntry, reserved2),     QOS_FIELD(QosDbcActiveEntry, portState),
    QOS_FIELD(QosDbcActiveEntry, clusterAction)};
constexpr Field kBitmapFields[] = {QOS_FIELD(QosDbcSfBitmap, sfId), QOS_FIELD(QosDbcSfBitmap, channelBitmap),
                                   QOS_FIELD(QosDbcSfBitmap, reserved)};
#undef QOS_FIELD

class Checker {
 public:
  explicit Checker(const QosIntDbRegion& r) : r_(r) {}

  std::vector<Finding> run() {
    stats();
    flows();
    classifiers();
    clusters();
    switchover();
    activeFlows();
    activePhs("phsUs", r_.phsUs, false);
    activePhs("phsDs", r_.phsDs, true);
    messages();
    transactions();
    bondingChange();
    return std::move(out_);
  }

 private:
  void add(FindingClass cls, std::string where, std::string what) {
    out_.push_back({cls, std::move(where), std::move(what)});
  }
  void corrupt(std::string where, std::string what) { add(FindingClass::Corrupt, std::move(where), std::move(what)); }
  void suspect(std::string where, std::string what) { add(FindingClass::Suspect, std::move(where), std::move(what)); }
  static std::string field(const char* table, std::size_t i, const char* name) {
    return format("%s[%zu].%s", table, i, name);
  }
  void reserved(bool isZero, const std::string& where) {
    if (!isZero) corrupt(where, "is a reserved or padding field off its reset value; only resets write it");
  }
  // One finding per field of `fields` that is not zero in `row`.
  template <typename Row, std::size_t N>
  void nonZero(FindingClass cls, const char* table, std::size_t i, const Row& row, const Field (&fields)[N],
               const char* what) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&row);
    for (const Field& f : fields) {
      if (!zero(bytes + f.offset, f.size)) add(cls, field(table, i, f.name), what);
    }
  }
  // A maximum index that lies inside its table, or -1 when it does not.
  int32_t maxIndex(const char* name, int32_t value, int32_t rows) {
    if (value >= 0 && value < rows) return value;
    corrupt(format("stats.%s", name), format("is %d, outside the table's rows 0..%d", value, rows - 1));
    return -1;
  }

  void stats() {
    const QosIntDbStats& s = r_.stats;
    sfMax_ = maxIndex("sfDbMaxIndex", s.sfDbMaxIndex, QOS_SF_ROWS);
    clsfMax_ = maxIndex("clsfDbMaxIndex", s.clsfDbMaxIndex, QOS_CLSF_ROWS);
    clusterMax_ = maxIndex("clusterDbMaxIndex", s.clusterDbMaxIndex, QOS_SID_CLUSTER_ROWS);
    if (s.clusterMaxNum > kClusterMaxNumCap) {
      corrupt("stats.clusterMaxNum", format("is %u; its setter stores at most %u", s.clusterMaxNum, kClusterMaxNumCap));
    }
    if (s.sfNumber > QOS_SF_ROWS) {
      corrupt("stats.sfNumber", format("is %u, more free rows than the table's %d", s.sfNumber, QOS_SF_ROWS));
    }
    if (s.clsfNumber != 0) corrupt("stats.clsfNumber", format("is %u; no operation writes it", s.clsfNumber));
    if (s.clusterNumber != 0) corrupt("stats.clusterNumber", format("is %u; no operation writes it", s.clusterNumber));
    reserved(s.reserved0 == 0, "stats.reserved0");
    reserved(s.reserved36 == 0, "stats.reserved36");
    reserved(s.reserved50 == 0, "stats.reserved50");
    reserved(s.reserved52 == 0, "stats.reserved52");
    reserved(s.reserved58 == 0, "stats.reserved58");
    reserved(s.reserved60 == 0, "stats.reserved60");
  }

  void flows() {
    for (std::size_t i = 0; i < kSfRows; ++i) {
      const SfRow& f = r_.sf[i];
      reserved(f.pad11 == 0, field("sf", i, "pad11"));
      reserved(f.pad18 == 0, field("sf", i, "pad18"));
      reserved(zeroField(f.pad25), field("sf", i, "pad25"));
      reserved(f.reserved36 == 0, field("sf", i, "reserved36"));
      reserved(zeroField(f.pad49), field("sf", i, "pad49"));
      reserved(f.reserved64 == 0, field("sf", i, "reserved64"));
      reserved(zeroField(f.reserved72), field("sf", i, "reserved72"));
      if (f.committed > 1) corrupt(field("sf", i, "committed"), format("is %u; only 0 and 1 are ever stored", f.committed));
      if (f.pairSfIndex != 0 && f.pairSfIndex != -1) {
        corrupt(field("sf", i, "pairSfIndex"), format("is %d; only 0 and -1 are ever stored", f.pairSfIndex));
      }
      if (f.sidClusterIndex != 0) {
        corrupt(field("sf", i, "sidClusterIndex"), format("is %u; no operation writes it", f.sidClusterIndex));
      }
      if (f.used()) {
        usedFlow(i, f);
      } else {
        freeFlow(i, f);
      }
    }
  }

  void usedFlow(std::size_t i, const SfRow& f) {
    if (f.state > kSfStateMax) {
      suspect(field("sf", i, "state"), format("is %u, no flow state; only qos_intDb_SetSFState stores such values", f.state));
    }
    if (sfMax_ >= 0 && static_cast<int32_t>(i) > sfMax_) {
      suspect(field("sf", i, "state"), format("is %u (in use) above sfDbMaxIndex %d: scans never see the row", f.state, sfMax_));
    }
    if (!taLink(f.taIndex)) suspect(field("sf", i, "taIndex"), format("is %d, no transaction index (-1..10)", f.taIndex));
    if (!taLink(f.heldTaIndex)) {
      suspect(field("sf", i, "heldTaIndex"), format("is %d, no transaction index (-1..10)", f.heldTaIndex));
    }
    if (f.paramSetType > kParamSetBits) {
      suspect(field("sf", i, "paramSetType"),
              format("is %u; the parameter-set bits are 1, 2 and 4 (an unchecked setter argument)", f.paramSetType));
    }
    bool added = f.state >= QOS_SF_OPERATIONAL && f.state < QOS_SF_REFERENCED;
    if (added && f.direction != QOS_DIR_DOWNSTREAM && f.direction != QOS_DIR_UPSTREAM) {
      suspect(field("sf", i, "direction"), format("is %u in a flow in state %u; directions are 1 and 2", f.direction, f.state));
    }
  }

  void freeFlow(std::size_t i, const SfRow& f) {
    static const char* const kWhat = "is set in a free row (a setter or a lookup wrote a free row)";
    nonZero(FindingClass::Suspect, "sf", i, f, kSfFields, kWhat);
    if (f.taIndex != kNoTa) suspect(field("sf", i, "taIndex"), kWhat);
    if (f.heldTaIndex != kNoTa) suspect(field("sf", i, "heldTaIndex"), kWhat);
    if (f.pairSfIndex != 0) suspect(field("sf", i, "pairSfIndex"), kWhat);
    if (f.qosDbIndex != 0 && f.qosDbIndex != -1) suspect(field("sf", i, "qosDbIndex"), kWhat);
  }

  void classifiers() {
    for (std::size_t i = 0; i < kClsfRows; ++i) {
      const ClsfRow& c = r_.clsf[i];
      reserved(c.reserved5 == 0, field("clsf", i, "reserved5"));
      reserved(c.reserved10 == 0, field("clsf", i, "reserved10"));
      if (c.status > kClsfStatusMax) {
        corrupt(field("clsf", i, "status"), format("is %u; classifier statuses are 0..5", c.status));
      }
      if (c.used()) {
        if (clsfMax_ >= 0 && static_cast<int32_t>(i) > clsfMax_) {
          suspect(field("clsf", i, "status"),
                  format("is %u (in use) above clsfDbMaxIndex %d: scans never see the row", c.status, clsfMax_));
        }
        if (!taLink(c.taIndex)) suspect(field("clsf", i, "taIndex"), format("is %d, no transaction index (-1..10)", c.taIndex));
        continue;
      }
      static const char* const kWhat = "is set in a free row (a setter or a lookup wrote a free row)";
      nonZero(FindingClass::Suspect, "clsf", i, c, kClsfFields, kWhat);
      if (c.taIndex != kNoTa) suspect(field("clsf", i, "taIndex"), kWhat);
    }
  }

  // A row that is free (status 0, zeroed whole) or in use (1); true when in use.
  template <typename Row, std::size_t N>
  bool inUse(const char* table, std::size_t i, const Row& r, const Field (&fields)[N]) {
    if (r.status > 1) corrupt(field(table, i, "status"), format("is %u; rows are 0 (free) or 1", r.status));
    if (r.status != 0) return true;
    nonZero(FindingClass::Corrupt, table, i, r, fields, "is set in a free row; deletes zero the whole row");
    return false;
  }

  void clusters() {
    std::set<std::pair<uint32_t, uint8_t>> seen;
    for (std::size_t i = 0; i < kSidClusterRows; ++i) {
      const SidClusterRow& c = r_.sidClusters[i];
      if (!inUse("sidClusters", i, c, kClusterFields)) continue;
      reserved(zeroField(c.reserved9), field("sidClusters", i, "reserved9"));
      for (std::size_t p = 0; p < QOS_CHANNELS_PER_CLUSTER; ++p) {
        // Stores copy the channel and SID of each port; action words stay 0.
        reserved(c.channels[p].action == 0, format("sidClusters[%zu].channels[%zu].action", i, p));
        reserved(c.channels[p].reserved == 0, format("sidClusters[%zu].channels[%zu].reserved", i, p));
      }
      // SFID 0 matches free rows in the pair search, so it can land anywhere.
      FindingClass cls = c.sfId != 0 ? FindingClass::Corrupt : FindingClass::Suspect;
      if (clusterMax_ >= 0 && static_cast<int32_t>(i) > clusterMax_) {
        add(cls, field("sidClusters", i, "status"), format("is 1 (in use) above clusterDbMaxIndex %d%s", clusterMax_,
                                                            c.sfId != 0 ? "" : " (SFID 0)"));
      }
      if (!seen.insert({c.sfId, c.clusterId}).second) {
        add(cls, field("sidClusters", i, "sfId"), format("stores SFID 0x%x cluster %u a second time", c.sfId, c.clusterId));
      }
    }
  }

  void switchover() {
    std::set<uint32_t> seen;
    for (std::size_t i = 0; i < kSwitchoverRows; ++i) {
      const SwitchoverRow& s = r_.switchover[i];
      if (!inUse("switchover", i, s, kSwitchoverFields)) continue;
      reserved(s.reserved19 == 0, field("switchover", i, "reserved19"));
      if (!seen.insert(s.sfId).second) {
        add(s.sfId != 0 ? FindingClass::Corrupt : FindingClass::Suspect, field("switchover", i, "sfId"),
            format("stores the criteria of SFID 0x%x a second time", s.sfId));
      }
    }
  }

  void activeFlows() {
    uint32_t inUse = 0;
    for (std::size_t i = 0; i < kActiveSfReserved; ++i) {
      const ActiveSfRow& a = r_.activeSf[i];
      if (a.status > 1) corrupt(field("activeSf", i, "status"), format("is %u; rows are 0 (free) or 1", a.status));
      if (i >= QOS_ACTIVE_SF_ROWS) {
        static const char* const kWhat = "is off its reset value; rows 32..63 are never used";
        if (a.status == 1) corrupt(field("activeSf", i, "status"), kWhat);
        if (a.sfId != 0) corrupt(field("activeSf", i, "sfId"), kWhat);
        if (a.releaseOrder != 1) corrupt(field("activeSf", i, "releaseOrder"), kWhat);
        continue;
      }
      if (a.used()) {
        ++inUse;
        if (a.releaseOrder != 0) {
          corrupt(field("activeSf", i, "releaseOrder"), format("is %d in a row in use; adds and fills write 0", a.releaseOrder));
        }
      } else {
        if (a.sfId != 0) corrupt(field("activeSf", i, "sfId"), format("is 0x%x in a free row; releases write 0", a.sfId));
        if (a.releaseOrder < 1) {
          corrupt(field("activeSf", i, "releaseOrder"), format("is %d in a free row; it is at least 1", a.releaseOrder));
        }
      }
    }
    const QosIntDbStats& s = r_.stats;
    if (s.activeSfNumber > QOS_ACTIVE_SF_ROWS) {
      corrupt("stats.activeSfNumber", format("is %u, above the table's %d rows", s.activeSfNumber, QOS_ACTIVE_SF_ROWS));
    } else if (s.activeSfNumber > inUse) {
      corrupt("stats.activeSfNumber", format("is %u but only %u rows are in use", s.activeSfNumber, inUse));
    }
    if (s.activeSfExtraNumber != s.activeSfNumber && s.activeSfExtraNumber != s.activeSfNumber - 1) {
      corrupt("stats.activeSfExtraNumber",
              format("is %u with activeSfNumber %u; it is that number or one less", s.activeSfExtraNumber, s.activeSfNumber));
    }
  }

  void activePhs(const char* table, const ActivePhsRow (&rows)[kActivePhsReserved], bool downstream) {
    for (std::size_t i = 0; i < kActivePhsReserved; ++i) {
      const ActivePhsRow& p = rows[i];
      if (i >= QOS_ACTIVE_PHS_ROWS) {
        nonZero(FindingClass::Corrupt, table, i, p, kPhsFields, "is not zero; rows 32 and 33 are never used");
        continue;
      }
      if (p.status > 1) corrupt(field(table, i, "status"), format("is %u; rows are 0 (free) or 1", p.status));
      reserved(zeroField(p.reserved13), field(table, i, "reserved13"));
      if (!p.used()) {
        static const char* const kWhat = "is set in a free row; deletes zero the whole row";
        if (p.clsfId != 0) corrupt(field(table, i, "clsfId"), kWhat);
        if (p.phsi != 0) corrupt(field(table, i, "phsi"), kWhat);
        if (p.dsid != 0) corrupt(field(table, i, "dsid"), kWhat);
        if (p.sfId != 0) suspect(field(table, i, "sfId"), format("is 0x%x in a free row (qos_intDb_SetActivePhsSfid)", p.sfId));
        continue;
      }
      if (p.dsid != 0) {
        if (!downstream) corrupt(field(table, i, "dsid"), format("is 0x%x; DSID entries live downstream only", p.dsid));
        static const char* const kMarks = "is not the mark of a DSID entry (classifier ID 0xffffffff, PHSI 255)";
        if (p.clsfId != kDsidMarker) corrupt(field(table, i, "clsfId"), kMarks);
        if (p.phsi != kDsidPhsi) corrupt(field(table, i, "phsi"), kMarks);
      } else {
        static const char* const kZero = "is 0 in a rule entry; adds refuse it";
        if (p.clsfId == 0) corrupt(field(table, i, "clsfId"), kZero);
        if (p.phsi == 0) corrupt(field(table, i, "phsi"), kZero);
      }
    }
  }

  void messages() {
    static const char* const kBuffers[] = {"req", "rsp", "ack"};
    for (std::size_t i = 0; i < kMsgRows; ++i) {
      const MsgBuffer* buffers[] = {&r_.msgs[i].req, &r_.msgs[i].rsp, &r_.msgs[i].ack};
      for (std::size_t b = 0; b < 3; ++b) {
        if (buffers[b]->length >= kMsgBufferSize) {
          corrupt(format("msgs[%zu].%s.length", i, kBuffers[b]),
                  format("is %u; a buffer holds at most %u bytes", buffers[b]->length, kMsgBufferSize - 1));
        }
      }
    }
  }

  void transactions() {
    const TaDbControl& c = r_.taControl;
    bool rowAboveCount = false;
    for (std::size_t i = 0; i < kTaRows; ++i) {
      const TaRow& t = r_.ta[i];
      if (t.rowStatus > 1) corrupt(field("ta", i, "rowStatus"), format("is %u; rows are 0 (free) or 1", t.rowStatus));
      if (t.smState > kHeldStateMax) corrupt(field("ta", i, "smState"), format("is %u; its setter refuses states above 3", t.smState));
      if (t.authLen > kAuthBlockSize) {
        corrupt(field("ta", i, "authLen"), format("is %u; the block holds at most %u bytes", t.authLen, kAuthBlockSize));
      }
      reserved(t.pad6 == 0, field("ta", i, "pad6"));
      reserved(t.reserved16 == 0, field("ta", i, "reserved16"));
      reserved(t.reserved28 == -1, field("ta", i, "reserved28"));
      reserved(t.reserved32 == -1, field("ta", i, "reserved32"));
      reserved(t.pad295 == 0, field("ta", i, "pad295"));
      if (t.used()) {
        if (t.type > QOS_TA_DSD) suspect(field("ta", i, "type"), format("is %u, no DSA, DSC or DSD", t.type));
        if (i >= c.taRowsUsed && !rowAboveCount) {
          rowAboveCount = true;
          corrupt("taControl.taRowsUsed",
                  format("is %u but ta[%zu] is in use; rows are handed out below this count", c.taRowsUsed, i));
        }
        continue;
      }
      static const char* const kReset = "is off its reset value in a free row; only the row reset frees a row";
      if (t.taId != 0) corrupt(field("ta", i, "taId"), kReset);
      if (t.type != QOS_TA_DSD) corrupt(field("ta", i, "type"), kReset);
      if (t.initiator != 0) corrupt(field("ta", i, "initiator"), kReset);
      if (t.retryCounter != 0) corrupt(field("ta", i, "retryCounter"), kReset);
      static const char* const kSet = "is set in a free row (a setter on a free row)";
      if (t.smState != 0) suspect(field("ta", i, "smState"), kSet);
      if (t.subtype != 0) suspect(field("ta", i, "subtype"), kSet);
      if (t.authLen != 0) suspect(field("ta", i, "authLen"), kSet);
      if (!zeroField(t.authBlock)) suspect(field("ta", i, "authBlock"), kSet);
    }
    if (c.retryLimit != kTaRetryLimit) corrupt("taControl.retryLimit", format("is %u; resets write 3", c.retryLimit));
    if (c.taRowsUsed > QOS_TA_ROWS) {
      corrupt("taControl.taRowsUsed", format("is %u, above the table's %d rows", c.taRowsUsed, QOS_TA_ROWS));
    }
    if (c.lastCmTaId > kTaIdMask) {
      corrupt("taControl.lastCmTaId", format("is 0x%x; generated IDs have 15 bits", c.lastCmTaId));
    }
    reserved(c.pad10 == 0, "taControl.pad10");
  }

  void bondingChange() {
    const QosDbcDb& d = r_.dbc;
    uint32_t mods = count("dbc.modCount", d.modCount, QOS_DBC_MOD_ENTRIES);
    uint32_t actives = count("dbc.activeCount", d.activeCount, QOS_DBC_ACTIVE_ENTRIES);
    uint32_t bitmaps = count("dbc.bitmapCount", d.bitmapCount, QOS_DBC_BITMAP_ENTRIES);
    for (uint32_t k = 0; k < QOS_DBC_MOD_ENTRIES; ++k) {
      const QosDbcModEntry& m = d.modDb[k];
      if (k >= mods) {
        nonZero(FindingClass::Suspect, "dbc.modDb", k, m, kModFields, "holds data beyond modCount (a direct write)");
        continue;
      }
      if (m.addCount > QOS_DBC_MAPS_PER_MOD) {
        suspect(field("dbc.modDb", k, "addCount"), format("is %u; an entry holds at most 4 adds (a direct write)", m.addCount));
      }
      if (m.deleteCount > QOS_DBC_MAPS_PER_MOD) {
        suspect(field("dbc.modDb", k, "deleteCount"),
                format("is %u; an entry holds at most 4 deletes (a direct write)", m.deleteCount));
      }
      if (m.activeIndex < -1 || m.activeIndex >= QOS_DBC_ACTIVE_ENTRIES) {
        suspect(field("dbc.modDb", k, "activeIndex"), format("is %d, no ActiveDb entry", m.activeIndex));
      }
    }
    for (uint32_t j = 0; j < QOS_DBC_ACTIVE_ENTRIES; ++j) {
      const QosDbcActiveEntry& a = d.activeDb[j];
      if (j >= actives) {
        nonZero(FindingClass::Suspect, "dbc.activeDb", j, a, kActiveDbFields, "holds data beyond activeCount (a direct write)");
        continue;
      }
      if (a.clusterAction < QOS_DBC_FROM_CLUSTER || a.clusterAction > QOS_DBC_CLIENT_DELETE) {
        suspect(field("dbc.activeDb", j, "clusterAction"), format("is %u, no cluster action (2..5)", a.clusterAction));
      }
      for (uint32_t p = 0; p < QOS_CHANNELS_PER_CLUSTER; ++p) {
        if (a.portState[p] != 0 && a.portState[p] != 2) {
          suspect(format("dbc.activeDb[%u].portState[%u]", j, p), format("is %u; ports are 0 or 2 (assigned)", a.portState[p]));
        }
      }
    }
    for (uint32_t b = bitmaps; b < QOS_DBC_BITMAP_ENTRIES; ++b) {
      nonZero(FindingClass::Suspect, "dbc.sfBitmaps", b, d.sfBitmaps[b], kBitmapFields,
              "holds data beyond bitmapCount (a direct write)");
    }
  }

  // The entries of a list that can be read: the count, or the capacity when
  // the count is beyond it. The library never writes such a count, but
  // clients write the store directly, and the library reads it as the
  // capacity: suspect, not corrupt.
  uint32_t count(const char* where, uint32_t value, uint32_t capacity) {
    if (value <= capacity) return value;
    suspect(where, format("is %u, above the list's %u entries (a direct write)", value, capacity));
    return capacity;
  }

  const QosIntDbRegion& r_;
  std::vector<Finding> out_;
  int32_t sfMax_ = -1;
  int32_t clsfMax_ = -1;
  int32_t clusterMax_ = -1;
};

}  // namespace

std::vector<Finding> checkIntegrity(const QosIntDbRegion& region) { return Checker(region).run(); }

const char* className(FindingClass cls) { return cls == FindingClass::Corrupt ? "corrupt" : "suspect"; }

std::string describe(const Finding& finding) {
  return std::string(className(finding.cls)) + ": " + finding.where + " " + finding.what;
}

bool anyOf(const std::vector<Finding>& findings, FindingClass cls) {
  for (const auto& f : findings) {
    if (f.cls == cls) return true;
  }
  return false;
}

}  // namespace qos::inspect
