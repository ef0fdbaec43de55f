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
//   is the clients' to write.
#include "tools/inspect/integrity.h"

#include <cstdarg>
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
  void corrupt(std::string where, std::string what) {
    out_.push_back({FindingClass::Corrupt, std::move(where), std::move(what)});
  }
  void suspect(std::string where, std::string what) {
    out_.push_back({FindingClass::Suspect, std::move(where), std::move(what)});
  }
  static std::string row(const char* table, std::size_t i) { return format("%s[%zu]", table, i); }
  static std::string field(const char* table, std::size_t i, const char* name) {
    return format("%s[%zu].%s", table, i, name);
  }
  void reserved(bool isZero, const std::string& where) {
    if (!isZero) corrupt(where, "has reserved or padding bytes off their reset values; only resets write them");
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
    reserved(s.reserved0 == 0 && s.reserved36 == 0 && s.reserved50 == 0 && s.reserved52 == 0 &&
                 s.reserved58 == 0 && s.reserved60 == 0,
             "stats");
  }

  void flows() {
    for (std::size_t i = 0; i < kSfRows; ++i) {
      const SfRow& f = r_.sf[i];
      reserved(f.pad11 == 0 && f.pad18 == 0 && zeroField(f.pad25) && zeroField(f.pad49) && f.reserved36 == 0 &&
                   f.reserved64 == 0 && zeroField(f.reserved72),
               row("sf", i));
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
      suspect(row("sf", i), format("is in use above sfDbMaxIndex %d: scans never see it", sfMax_));
    }
    if (!taLink(f.taIndex)) suspect(field("sf", i, "taIndex"), format("is %d, no transaction index (-1..10)", f.taIndex));
    if (!taLink(f.heldTaIndex)) {
      suspect(field("sf", i, "heldTaIndex"), format("is %d, no transaction index (-1..10)", f.heldTaIndex));
    }
    bool added = f.state >= QOS_SF_OPERATIONAL && f.state < QOS_SF_REFERENCED;
    if (added && f.direction != QOS_DIR_DOWNSTREAM && f.direction != QOS_DIR_UPSTREAM) {
      suspect(field("sf", i, "direction"), format("is %u in a flow in state %u; directions are 1 and 2", f.direction, f.state));
    }
  }

  void freeFlow(std::size_t i, const SfRow& f) {
    std::string held;
    auto note = [&held](bool set, const char* name) {
      if (set) held += held.empty() ? name : std::string(", ") + name;
    };
    note(f.sfId != 0, "sfId");
    note(f.ref != 0, "ref");
    note(f.direction != 0, "direction");
    note(f.committed != 0, "committed");
    note(f.sid != 0, "sid");
    note(f.paramSetType != 0, "paramSetType");
    note(f.taIndex != kNoTa, "taIndex");
    note(f.heldTaIndex != kNoTa, "heldTaIndex");
    note(f.pairSfIndex != 0, "pairSfIndex");
    note(f.qosDbIndex != 0 && f.qosDbIndex != -1, "qosDbIndex");
    note(f.sidClusterCounter != 0, "sidClusterCounter");
    note(f.clsfCounter != 0, "clsfCounter");
    note(f.phsCounter != 0, "phsCounter");
    note(f.appendedClsfCounter != 0, "appendedClsfCounter");
    note(f.deletedClsfCounter != 0, "deletedClsfCounter");
    if (!held.empty()) suspect(row("sf", i), "is free but holds " + held + " (a setter or a lookup wrote a free row)");
  }

  void classifiers() {
    for (std::size_t i = 0; i < kClsfRows; ++i) {
      const ClsfRow& c = r_.clsf[i];
      reserved(c.reserved5 == 0 && c.reserved10 == 0, row("clsf", i));
      if (c.status > kClsfStatusMax) {
        corrupt(field("clsf", i, "status"), format("is %u; classifier statuses are 0..5", c.status));
      }
      if (c.used()) {
        if (clsfMax_ >= 0 && static_cast<int32_t>(i) > clsfMax_) {
          suspect(row("clsf", i), format("is in use above clsfDbMaxIndex %d: scans never see it", clsfMax_));
        }
        if (!taLink(c.taIndex)) suspect(field("clsf", i, "taIndex"), format("is %d, no transaction index (-1..10)", c.taIndex));
      } else if (c.ref != 0 || c.clsfId != 0 || c.sfRef != 0 || c.sfId != 0 || c.taIndex != kNoTa) {
        suspect(row("clsf", i), "is free but not in its reset state (a setter or a lookup wrote a free row)");
      }
    }
  }

  // A row that is free (status 0, zeroed whole) or in use (1); true when in use.
  template <typename Row>
  bool inUse(const char* table, std::size_t i, const Row& r) {
    if (r.status > 1) corrupt(field(table, i, "status"), format("is %u; rows are 0 (free) or 1", r.status));
    if (r.status != 0) return true;
    if (!zeroField(r)) corrupt(row(table, i), "is free but not zero; deletes zero the whole row");
    return false;
  }

  void clusters() {
    std::set<std::pair<uint32_t, uint8_t>> seen;
    for (std::size_t i = 0; i < kSidClusterRows; ++i) {
      const SidClusterRow& c = r_.sidClusters[i];
      if (!inUse("sidClusters", i, c)) continue;
      bool channelsClean = true;
      for (const SidChannelMapping& m : c.channels) channelsClean = channelsClean && m.action == 0 && m.reserved == 0;
      reserved(zeroField(c.reserved9) && channelsClean, row("sidClusters", i));
      // SFID 0 matches free rows in the pair search, so it can land anywhere.
      bool byRule = c.sfId != 0;
      if (clusterMax_ >= 0 && static_cast<int32_t>(i) > clusterMax_) {
        std::string what = format("is in use above clusterDbMaxIndex %d", clusterMax_);
        byRule ? corrupt(row("sidClusters", i), what) : suspect(row("sidClusters", i), what + " (SFID 0)");
      }
      if (!seen.insert({c.sfId, c.clusterId}).second) {
        std::string what = format("stores SFID 0x%x cluster %u a second time", c.sfId, c.clusterId);
        byRule ? corrupt(row("sidClusters", i), what) : suspect(row("sidClusters", i), what);
      }
    }
  }

  void switchover() {
    std::set<uint32_t> seen;
    for (std::size_t i = 0; i < kSwitchoverRows; ++i) {
      const SwitchoverRow& s = r_.switchover[i];
      if (!inUse("switchover", i, s)) continue;
      reserved(s.reserved19 == 0, row("switchover", i));
      if (!seen.insert(s.sfId).second) {
        std::string what = format("stores the criteria of SFID 0x%x a second time", s.sfId);
        s.sfId != 0 ? corrupt(row("switchover", i), what) : suspect(row("switchover", i), what);
      }
    }
  }

  void activeFlows() {
    uint32_t inUse = 0;
    for (std::size_t i = 0; i < kActiveSfReserved; ++i) {
      const ActiveSfRow& a = r_.activeSf[i];
      if (a.status > 1) corrupt(field("activeSf", i, "status"), format("is %u; rows are 0 (free) or 1", a.status));
      if (i >= QOS_ACTIVE_SF_ROWS) {
        if (a.status != 0 || a.sfId != 0 || a.releaseOrder != 1) {
          corrupt(row("activeSf", i), "is not in its reset state; rows 32..63 are never used");
        }
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
        if (!zeroField(p)) corrupt(row(table, i), "is not zero; rows 32 and 33 are never used");
        continue;
      }
      if (p.status > 1) corrupt(field(table, i, "status"), format("is %u; rows are 0 (free) or 1", p.status));
      reserved(zeroField(p.reserved13), row(table, i));
      if (!p.used()) {
        if (p.clsfId != 0 || p.phsi != 0 || p.dsid != 0) corrupt(row(table, i), "is free but not zero; deletes zero the whole row");
        if (p.sfId != 0) suspect(field(table, i, "sfId"), format("is 0x%x in a free row (qos_intDb_SetActivePhsSfid)", p.sfId));
        continue;
      }
      if (p.dsid != 0) {
        if (!downstream) corrupt(row(table, i), format("is a DSID entry (DSID 0x%x); those live downstream only", p.dsid));
        if (p.clsfId != kDsidMarker || p.phsi != kDsidPhsi) {
          corrupt(row(table, i), "is a DSID entry without its marks (classifier ID 0xffffffff, PHSI 255)");
        }
      } else if (p.clsfId == 0 || p.phsi == 0) {
        corrupt(row(table, i), "is a rule entry with classifier ID or PHSI 0; adds refuse both");
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
    for (std::size_t i = 0; i < kTaRows; ++i) {
      const TaRow& t = r_.ta[i];
      if (t.rowStatus > 1) corrupt(field("ta", i, "rowStatus"), format("is %u; rows are 0 (free) or 1", t.rowStatus));
      if (t.smState > kHeldStateMax) corrupt(field("ta", i, "smState"), format("is %u; its setter refuses states above 3", t.smState));
      if (t.authLen > kAuthBlockSize) {
        corrupt(field("ta", i, "authLen"), format("is %u; the block holds at most %u bytes", t.authLen, kAuthBlockSize));
      }
      reserved(t.pad6 == 0 && t.reserved16 == 0 && t.reserved28 == -1 && t.reserved32 == -1 && t.pad295 == 0, row("ta", i));
      if (t.used()) {
        if (t.type > QOS_TA_DSD) suspect(field("ta", i, "type"), format("is %u, no DSA, DSC or DSD", t.type));
        continue;
      }
      if (t.taId != 0 || t.type != QOS_TA_DSD || t.initiator != 0 || t.retryCounter != 0) {
        corrupt(row("ta", i), "is free but its ID, type, initiator or retries are not the reset values");
      }
      if (t.smState != 0 || t.subtype != 0 || t.authLen != 0 || !zeroField(t.authBlock)) {
        suspect(row("ta", i), "is free but holds a state, subtype or authentication block (setters on a free row)");
      }
    }
    const TaDbControl& c = r_.taControl;
    if (c.retryLimit != kTaRetryLimit) corrupt("taControl.retryLimit", format("is %u; resets write 3", c.retryLimit));
    if (c.taRowsUsed > QOS_TA_ROWS) {
      corrupt("taControl.taRowsUsed", format("is %u, above the table's %d rows", c.taRowsUsed, QOS_TA_ROWS));
    }
    if (c.lastCmTaId > kTaIdMask) {
      corrupt("taControl.lastCmTaId", format("is 0x%x; generated IDs have 15 bits", c.lastCmTaId));
    }
    reserved(c.pad10 == 0, "taControl");
  }

  void bondingChange() {
    const QosDbcDb& d = r_.dbc;
    uint32_t mods = count("dbc.modCount", d.modCount, QOS_DBC_MOD_ENTRIES);
    uint32_t actives = count("dbc.activeCount", d.activeCount, QOS_DBC_ACTIVE_ENTRIES);
    uint32_t bitmaps = count("dbc.bitmapCount", d.bitmapCount, QOS_DBC_BITMAP_ENTRIES);
    for (uint32_t k = 0; k < QOS_DBC_MOD_ENTRIES; ++k) {
      const QosDbcModEntry& m = d.modDb[k];
      if (k >= mods) {
        if (!zeroField(m)) suspect(row("dbc.modDb", k), "holds data beyond modCount (a direct write)");
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
        if (!zeroField(a)) suspect(row("dbc.activeDb", j), "holds data beyond activeCount (a direct write)");
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
      if (!zeroField(d.sfBitmaps[b])) suspect(row("dbc.sfBitmaps", b), "holds data beyond bitmapCount (a direct write)");
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
