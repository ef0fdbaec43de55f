// show.cpp - every table of the store, for people (text) and programs (JSON).
#include "show.h"

#include <algorithm>
#include <cstdio>

#include "names.h"
#include "store.h"
#include "text_table.h"

namespace qosdb {
namespace {

using json = nlohmann::ordered_json;
using qos::QosIntDbRegion;
using std::to_string;

std::string num(int64_t v) { return to_string(v); }
std::string counted(std::size_t n, const char* one, const char* many) {
  return to_string(n) + " " + (n == 1 ? one : many);
}

// "<title>: <n> in use<extra>", then the rows.
void titled(std::ostream& out, const char* title, const TextTable& t, const std::string& extra = "") {
  out << title << ": " << (t.empty() ? "none" : to_string(t.rows())) << " in use" << extra << "\n";
  if (!t.empty()) t.print(out);
}

// ---- Service flows ---------------------------------------------------------

void flowsText(std::ostream& out, const QosIntDbRegion& r) {
  TextTable t({"idx", "state", "sfId", "ref", "dir", "sid", "paramSet", "taIndex", "held", "committed", "clusters",
               "clsf", "phs", "appended", "deleted", "qosDbIndex", "pair", "clusterIdx"});
  for (std::size_t i = 0; i < qos::kSfRows; ++i) {
    const qos::SfRow& f = r.sf[i];
    if (!f.used()) continue;
    t.add({num(i), sfStateName(f.state), hex(f.sfId), num(f.ref), directionName(f.direction), hex(f.sid),
           paramSetName(f.paramSetType), taLink(f.taIndex), taLink(f.heldTaIndex), num(f.committed),
           num(f.sidClusterCounter), num(f.clsfCounter), num(f.phsCounter), num(f.appendedClsfCounter),
           num(f.deletedClsfCounter), num(f.qosDbIndex), num(f.pairSfIndex), num(f.sidClusterIndex)});
  }
  titled(out, "Service flows (sf)", t, ", sfDbMaxIndex " + num(r.stats.sfDbMaxIndex));
}

json flowsJson(const QosIntDbRegion& r) {
  json rows = json::array();
  for (std::size_t i = 0; i < qos::kSfRows; ++i) {
    const qos::SfRow& f = r.sf[i];
    if (!f.used()) continue;
    rows.push_back({{"index", i}, {"state", f.state}, {"sfId", f.sfId}, {"ref", f.ref}, {"direction", f.direction},
                    {"committed", f.committed}, {"sid", f.sid}, {"sidClusterIndex", f.sidClusterIndex},
                    {"paramSetType", f.paramSetType}, {"taIndex", f.taIndex}, {"heldTaIndex", f.heldTaIndex},
                    {"pairSfIndex", f.pairSfIndex}, {"qosDbIndex", f.qosDbIndex},
                    {"sidClusterCounter", f.sidClusterCounter}, {"clsfCounter", f.clsfCounter},
                    {"phsCounter", f.phsCounter}, {"appendedClsfCounter", f.appendedClsfCounter},
                    {"deletedClsfCounter", f.deletedClsfCounter}});
  }
  return rows;
}

// ---- Classifiers -----------------------------------------------------------

void classifiersText(std::ostream& out, const QosIntDbRegion& r) {
  TextTable t({"idx", "status", "clsfId", "ref", "sfRef", "sfId", "taIndex"});
  for (std::size_t i = 0; i < qos::kClsfRows; ++i) {
    const qos::ClsfRow& c = r.clsf[i];
    if (!c.used()) continue;
    t.add({num(i), clsfStatusName(c.status), hex(c.clsfId), num(c.ref), num(c.sfRef), hex(c.sfId), taLink(c.taIndex)});
  }
  titled(out, "Classifiers (clsf)", t,
         ", clsfDbMaxIndex " + num(r.stats.clsfDbMaxIndex) + ", clsfMaxNum " + num(r.stats.clsfMaxNum));
}

json classifiersJson(const QosIntDbRegion& r) {
  json rows = json::array();
  for (std::size_t i = 0; i < qos::kClsfRows; ++i) {
    const qos::ClsfRow& c = r.clsf[i];
    if (!c.used()) continue;
    rows.push_back({{"index", i}, {"status", c.status}, {"ref", c.ref}, {"clsfId", c.clsfId}, {"sfRef", c.sfRef},
                    {"sfId", c.sfId}, {"taIndex", c.taIndex}});
  }
  return rows;
}

// ---- SID clusters and switchover criteria -----------------------------------

std::string portCell(const SidChannelMapping& m) {
  if (m.ucid == 0 && m.sid == 0) return "-";
  return "ucid " + num(m.ucid) + " sid " + hex(m.sid);
}

void clustersText(std::ostream& out, const QosIntDbRegion& r) {
  TextTable t({"idx", "sfId", "clusterId", "port 1", "port 2", "port 3", "port 4"});
  for (std::size_t i = 0; i < qos::kSidClusterRows; ++i) {
    const qos::SidClusterRow& c = r.sidClusters[i];
    if (!c.used()) continue;
    t.add({num(i), hex(c.sfId), num(c.clusterId), portCell(c.channels[0]), portCell(c.channels[1]),
           portCell(c.channels[2]), portCell(c.channels[3])});
  }
  titled(out, "SID clusters (sidClusters)", t,
         ", clusterDbMaxIndex " + num(r.stats.clusterDbMaxIndex) + ", clusterMaxNum " + num(r.stats.clusterMaxNum));
}

json channelsJson(const SidChannelMapping (&channels)[QOS_CHANNELS_PER_CLUSTER]) {
  json out = json::array();
  for (const auto& m : channels) out.push_back({{"action", m.action}, {"ucid", m.ucid}, {"sid", m.sid}});
  return out;
}

json clustersJson(const QosIntDbRegion& r) {
  json rows = json::array();
  for (std::size_t i = 0; i < qos::kSidClusterRows; ++i) {
    const qos::SidClusterRow& c = r.sidClusters[i];
    if (!c.used()) continue;
    rows.push_back({{"index", i}, {"status", c.status}, {"sfId", c.sfId}, {"clusterId", c.clusterId},
                    {"channels", channelsJson(c.channels)}});
  }
  return rows;
}

void switchoverText(std::ostream& out, const QosIntDbRegion& r) {
  TextTable t({"idx", "sfId", "maxOutstandingBytes", "maxTotalBytesRequested", "maxTimeInCluster", "maxRequests"});
  for (std::size_t i = 0; i < qos::kSwitchoverRows; ++i) {
    const qos::SwitchoverRow& s = r.switchover[i];
    if (!s.used()) continue;
    t.add({num(i), hex(s.sfId), num(s.maxOutstandingBytes), num(s.maxTotalBytesRequested), num(s.maxTimeInCluster),
           num(s.maxRequests)});
  }
  titled(out, "SID cluster switchover criteria (switchover)", t);
}

json switchoverJson(const QosIntDbRegion& r) {
  json rows = json::array();
  for (std::size_t i = 0; i < qos::kSwitchoverRows; ++i) {
    const qos::SwitchoverRow& s = r.switchover[i];
    if (!s.used()) continue;
    rows.push_back({{"index", i}, {"status", s.status}, {"sfId", s.sfId}, {"maxOutstandingBytes", s.maxOutstandingBytes},
                    {"maxTotalBytesRequested", s.maxTotalBytesRequested}, {"maxTimeInCluster", s.maxTimeInCluster},
                    {"maxRequests", s.maxRequests}});
  }
  return rows;
}

// ---- Active upstream flows and active PHS entries -----------------------------

void activeText(std::ostream& out, const QosIntDbRegion& r) {
  TextTable t({"idx", "sfId", "flow"});
  for (std::size_t i = 0; i < QOS_ACTIVE_SF_ROWS; ++i) {
    const qos::ActiveSfRow& a = r.activeSf[i];
    if (!a.used()) continue;
    std::string flow = "-";
    for (std::size_t f = 0; f < qos::kSfRows; ++f) {
      if (r.sf[f].used() && r.sf[f].sfId == a.sfId) {
        flow = "sf " + num(f);
        break;
      }
    }
    t.add({num(i), hex(a.sfId), flow});
  }
  titled(out, "Active upstream flows (activeSf)", t,
         ", activeSfNumber " + num(r.stats.activeSfNumber) + ", activeSfExtraNumber " +
             num(r.stats.activeSfExtraNumber) + ", usPrimarySfRef " + num(r.stats.usPrimarySfRef));
}

json activeJson(const QosIntDbRegion& r) {
  json rows = json::array();
  for (std::size_t i = 0; i < qos::kActiveSfReserved; ++i) {
    const qos::ActiveSfRow& a = r.activeSf[i];
    if (!a.used()) continue;
    rows.push_back({{"index", i}, {"status", a.status}, {"sfId", a.sfId}, {"releaseOrder", a.releaseOrder}});
  }
  return rows;
}

bool dsidEntry(const qos::ActivePhsRow& p) { return p.dsid != 0; }

void phsText(std::ostream& out, const QosIntDbRegion& r) {
  TextTable t({"dir", "idx", "entry", "sfId", "clsfId", "phsi", "dsid"});
  auto add = [&t](const char* dir, const qos::ActivePhsRow (&rows)[qos::kActivePhsReserved]) {
    for (std::size_t i = 0; i < qos::kActivePhsReserved; ++i) {
      const qos::ActivePhsRow& p = rows[i];
      if (!p.used()) continue;
      if (dsidEntry(p)) {
        t.add({dir, num(i), "DSID", "-", "-", "-", hex(p.dsid)});
      } else {
        t.add({dir, num(i), "rule", hex(p.sfId), hex(p.clsfId), hex(p.phsi), "-"});
      }
    }
  };
  add("up", r.phsUs);
  add("down", r.phsDs);
  titled(out, "Active PHS entries (phsUs, phsDs)", t);
}

json phsJson(const qos::ActivePhsRow (&rows)[qos::kActivePhsReserved]) {
  json out = json::array();
  for (std::size_t i = 0; i < qos::kActivePhsReserved; ++i) {
    const qos::ActivePhsRow& p = rows[i];
    if (!p.used()) continue;
    out.push_back({{"index", i}, {"status", p.status}, {"sfId", p.sfId}, {"clsfId", p.clsfId}, {"phsi", p.phsi},
                   {"dsid", p.dsid}});
  }
  return out;
}

// ---- Statistics block ----------------------------------------------------------

struct StatField {
  const char* name;
  int64_t value;
  const char* meaning;
};

std::vector<StatField> statFields(const qos::QosIntDbStats& s) {
  return {{"sfNumber", s.sfNumber, "free flow rows, as last counted"},
          {"sfDbMaxIndex", s.sfDbMaxIndex, "highest flow row that scans cover"},
          {"clsfNumber", s.clsfNumber, "not maintained (reads 0)"},
          {"clsfDbMaxIndex", s.clsfDbMaxIndex, "highest classifier row that scans cover"},
          {"clsfMaxNum", s.clsfMaxNum, "upstream classifier limit of the registration check (< 1: off)"},
          {"clusterNumber", s.clusterNumber, "not maintained (reads 0)"},
          {"clusterMaxNum", s.clusterMaxNum, "SID cluster limit of the registration check"},
          {"clusterDbMaxIndex", s.clusterDbMaxIndex, "highest SID cluster row ever taken"},
          {"activeSfExtraNumber", s.activeSfExtraNumber, "active upstream flows besides the primary one"},
          {"activeSfNumber", s.activeSfNumber, "active upstream flows"},
          {"usPrimarySfRef", s.usPrimarySfRef, "reference of the primary upstream flow"},
          {"dsPrimarySfRef", s.dsPrimarySfRef, "reference of the primary downstream flow"}};
}

void statsText(std::ostream& out, const QosIntDbRegion& r) {
  TextTable t({"field", "value", "meaning"});
  for (const auto& f : statFields(r.stats)) t.add({f.name, num(f.value), f.meaning});
  out << "Statistics block (stats)\n";
  t.print(out);
}

json statsJson(const QosIntDbRegion& r) {
  json out = json::object();
  for (const auto& f : statFields(r.stats)) out[f.name] = f.value;
  return out;
}

// ---- Transactions, messages, error records --------------------------------------

void transactionsText(std::ostream& out, const QosIntDbRegion& r) {
  TextTable t({"idx", "taId", "type", "initiator", "smState", "retries", "subtype", "authLen", "authBlock"});
  for (std::size_t i = 0; i < qos::kTaRows; ++i) {
    const qos::TaRow& ta = r.ta[i];
    if (!ta.used()) continue;
    uint32_t shown = std::min<uint32_t>(ta.authLen, 8);
    std::string auth = ta.authLen == 0 ? "-" : hexBytes(ta.authBlock, shown) + (ta.authLen > shown ? "..." : "");
    t.add({num(i), hex(ta.taId), taTypeName(ta.type), initiatorName(ta.initiator), smStateName(ta.smState),
           num(ta.retryCounter), num(ta.subtype), num(ta.authLen), auth});
  }
  const qos::TaDbControl& c = r.taControl;
  titled(out, "DSX transactions (ta)", t,
         ", lastCmTaId " + hex(c.lastCmTaId) + ", taRowsUsed " + num(c.taRowsUsed) + ", retryLimit " +
             num(c.retryLimit));
}

json transactionsJson(const QosIntDbRegion& r) {
  json rows = json::array();
  for (std::size_t i = 0; i < qos::kTaRows; ++i) {
    const qos::TaRow& ta = r.ta[i];
    if (!ta.used()) continue;
    uint32_t authLen = std::min<uint32_t>(ta.authLen, qos::kAuthBlockSize);
    rows.push_back({{"index", i}, {"rowStatus", ta.rowStatus}, {"taId", ta.taId}, {"type", ta.type},
                    {"initiator", ta.initiator}, {"smState", ta.smState}, {"retryCounter", ta.retryCounter},
                    {"authLen", ta.authLen}, {"authBlock", hexBytes(ta.authBlock, authLen)}, {"subtype", ta.subtype}});
  }
  return rows;
}

json taControlJson(const QosIntDbRegion& r) {
  const qos::TaDbControl& c = r.taControl;
  return {{"retryLimit", c.retryLimit}, {"taRowsUsed", c.taRowsUsed}, {"lastCmTaId", c.lastCmTaId}};
}

bool holdsMessages(const qos::MsgRow& m) { return m.req.length != 0 || m.rsp.length != 0 || m.ack.length != 0; }

void hexDump(std::ostream& out, const qos::MsgBuffer& b) {
  uint32_t n = std::min<uint32_t>(b.length, qos::kMsgBufferSize);
  for (uint32_t at = 0; at < n; at += 16) {
    char offset[16];
    std::snprintf(offset, sizeof offset, "    %04x ", at);
    out << offset;
    for (uint32_t i = at; i < n && i < at + 16; ++i) {
      char byte[4];
      std::snprintf(byte, sizeof byte, " %02x", b.data[i]);
      out << byte;
    }
    out << '\n';
  }
}

void messagesText(std::ostream& out, const QosIntDbRegion& r) {
  std::size_t rows = 0;
  for (const auto& m : r.msgs) rows += holdsMessages(m) ? 1 : 0;
  out << "DSX messages (msgs): " << (rows == 0 ? "all buffers empty" : counted(rows, "row holds messages", "rows hold messages"))
      << "\n";
  static const char* const kNames[] = {"request", "response", "acknowledge"};
  for (std::size_t i = 0; i < qos::kMsgRows; ++i) {
    const qos::MsgRow& m = r.msgs[i];
    if (!holdsMessages(m)) continue;
    const qos::MsgBuffer* buffers[] = {&m.req, &m.rsp, &m.ack};
    for (std::size_t b = 0; b < 3; ++b) {
      if (buffers[b]->length == 0) continue;
      out << "  TA " << i << " " << kNames[b] << ", " << counted(buffers[b]->length, "byte", "bytes") << "\n";
      hexDump(out, *buffers[b]);
    }
  }
}

json bufferJson(const qos::MsgBuffer& b) {
  uint32_t n = std::min<uint32_t>(b.length, qos::kMsgBufferSize);
  return {{"length", b.length}, {"data", hexBytes(b.data, n)}};
}

json messagesJson(const QosIntDbRegion& r) {
  json rows = json::array();
  for (std::size_t i = 0; i < qos::kMsgRows; ++i) {
    const qos::MsgRow& m = r.msgs[i];
    if (!holdsMessages(m)) continue;
    rows.push_back({{"index", i}, {"req", bufferJson(m.req)}, {"rsp", bufferJson(m.rsp)}, {"ack", bufferJson(m.ack)}});
  }
  return rows;
}

// A record is worth showing when its transaction row is in use or when it
// differs from what a reset (or, for record 10, initialisation) leaves.
bool showError(const QosIntDbRegion& r, std::size_t i) {
  const qos::MsgErrorRecord& e = r.msgErrors[i];
  if (i < qos::kTaRows && r.ta[i].used()) return true;
  bool rest = e.errorType == 0 && e.errorSubType == 0 && e.errorSubType2 == 0 && e.erroredSfId == 0;
  bool reset = e.confCode == 0 && e.errorCode == 253 && rest;
  bool initial = i == qos::kMsgRows - 1 && e.confCode == 10 && e.errorCode == 0 && rest;
  return !reset && !initial;
}

void errorsText(std::ostream& out, const QosIntDbRegion& r) {
  TextTable t({"idx", "confCode", "errorCode", "errorType", "errorSubType", "errorSubType2", "erroredSfId"});
  for (std::size_t i = 0; i < qos::kMsgRows; ++i) {
    if (!showError(r, i)) continue;
    const qos::MsgErrorRecord& e = r.msgErrors[i];
    t.add({num(i), num(e.confCode), num(e.errorCode), num(e.errorType), num(e.errorSubType), num(e.errorSubType2),
           hex(e.erroredSfId)});
  }
  out << "DSX error records (msgErrors): "
      << (t.empty() ? "all in their reset state" : counted(t.rows(), "record", "records") + " of transactions in use or set")
      << "\n";
  if (!t.empty()) t.print(out);
}

json errorsJson(const QosIntDbRegion& r) {
  json rows = json::array();
  for (std::size_t i = 0; i < qos::kMsgRows; ++i) {
    if (!showError(r, i)) continue;
    const qos::MsgErrorRecord& e = r.msgErrors[i];
    rows.push_back({{"index", i}, {"confCode", e.confCode}, {"errorCode", e.errorCode}, {"errorType", e.errorType},
                    {"errorSubType", e.errorSubType}, {"errorSubType2", e.errorSubType2}, {"erroredSfId", e.erroredSfId}});
  }
  return rows;
}

// ---- Bonding change store ---------------------------------------------------------

uint32_t inUse(uint32_t count, uint32_t capacity) { return std::min(count, capacity); }

std::string modMaps(const ModMapping* maps, uint32_t count) {
  std::string out;
  for (uint32_t i = 0; i < inUse(count, QOS_DBC_MAPS_PER_MOD); ++i) {
    out += (out.empty() ? "" : ", ") + ("ucid " + num(maps[i].ucid) + " sid " + hex(maps[i].sid));
  }
  return out.empty() ? "-" : out;
}

void dbcText(std::ostream& out, const QosIntDbRegion& r) {
  const QosDbcDb& d = r.dbc;
  out << "Bonding change store (dbc): " << counted(d.modCount, "modification", "modifications") << ", "
      << counted(d.activeCount, "resulting cluster", "resulting clusters") << ", "
      << counted(d.bitmapCount, "flow bitmap", "flow bitmaps") << "\n";
  if (d.modCount != 0) {
    TextTable t({"mod", "sfId", "clusterId", "activeIndex", "add", "delete"});
    for (uint32_t k = 0; k < inUse(d.modCount, QOS_DBC_MOD_ENTRIES); ++k) {
      const QosDbcModEntry& m = d.modDb[k];
      t.add({num(k), hex(m.sfId), num(m.clusterId), num(m.activeIndex), modMaps(m.addMaps, m.addCount),
             modMaps(m.deleteMaps, m.deleteCount)});
    }
    t.print(out);
  }
  if (d.activeCount != 0) {
    TextTable t({"active", "sfId", "clusterId", "activeSfIndex", "modIndex", "port 1", "port 2", "port 3", "port 4",
                 "action"});
    for (uint32_t j = 0; j < inUse(d.activeCount, QOS_DBC_ACTIVE_ENTRIES); ++j) {
      const QosDbcActiveEntry& a = d.activeDb[j];
      std::vector<std::string> row{num(j), hex(a.sfId), num(a.clusterId), num(static_cast<int32_t>(a.activeSfIndex)),
                                   num(a.modIndex)};
      for (uint32_t p = 0; p < QOS_CHANNELS_PER_CLUSTER; ++p) {
        row.push_back(a.portState[p] == 2 ? "sid " + hex(a.sid[p]) : "-");
      }
      row.push_back(dbcActionName(a.clusterAction));
      t.add(row);
    }
    t.print(out);
  }
  if (d.bitmapCount != 0) {
    TextTable t({"bitmap", "sfId", "ports"});
    for (uint32_t m = 0; m < inUse(d.bitmapCount, QOS_DBC_BITMAP_ENTRIES); ++m) {
      const QosDbcSfBitmap& b = d.sfBitmaps[m];
      std::string ports;
      for (uint32_t bit = 0; bit < 8; ++bit) {
        if (b.channelBitmap & (1u << bit)) ports += (ports.empty() ? "" : ",") + num(bit + 1);
      }
      t.add({num(m), hex(b.sfId), ports.empty() ? "-" : ports});
    }
    t.print(out);
  }
}

json modMapsJson(const ModMapping* maps, uint32_t count) {
  json out = json::array();
  for (uint32_t i = 0; i < inUse(count, QOS_DBC_MAPS_PER_MOD); ++i) {
    out.push_back({{"sid", maps[i].sid}, {"ucid", maps[i].ucid}});
  }
  return out;
}

json dbcJson(const QosIntDbRegion& r) {
  const QosDbcDb& d = r.dbc;
  json mods = json::array();
  for (uint32_t k = 0; k < inUse(d.modCount, QOS_DBC_MOD_ENTRIES); ++k) {
    const QosDbcModEntry& m = d.modDb[k];
    mods.push_back({{"index", k}, {"activeIndex", m.activeIndex}, {"sfId", m.sfId}, {"clusterId", m.clusterId},
                    {"addCount", m.addCount}, {"addMaps", modMapsJson(m.addMaps, m.addCount)},
                    {"deleteCount", m.deleteCount}, {"deleteMaps", modMapsJson(m.deleteMaps, m.deleteCount)}});
  }
  json actives = json::array();
  for (uint32_t j = 0; j < inUse(d.activeCount, QOS_DBC_ACTIVE_ENTRIES); ++j) {
    const QosDbcActiveEntry& a = d.activeDb[j];
    actives.push_back({{"index", j}, {"activeSfIndex", a.activeSfIndex}, {"modIndex", a.modIndex}, {"sfId", a.sfId},
                       {"clusterId", a.clusterId}, {"sid", a.sid}, {"portState", a.portState},
                       {"clusterAction", a.clusterAction}});
  }
  json bitmaps = json::array();
  for (uint32_t m = 0; m < inUse(d.bitmapCount, QOS_DBC_BITMAP_ENTRIES); ++m) {
    bitmaps.push_back({{"index", m}, {"sfId", d.sfBitmaps[m].sfId}, {"channelBitmap", d.sfBitmaps[m].channelBitmap}});
  }
  return {{"modCount", d.modCount}, {"modDb", mods}, {"activeCount", d.activeCount}, {"activeDb", actives},
          {"bitmapCount", d.bitmapCount}, {"sfBitmaps", bitmaps}};
}

// ---- The tables by name -------------------------------------------------------

struct TableView {
  const char* name;   // on the command line
  const char* alias;  // as frame/region.h names it
  void (*text)(std::ostream&, const QosIntDbRegion&);
  void (*json)(json&, const QosIntDbRegion&);
};

const std::vector<TableView>& views() {
  static const std::vector<TableView> kViews = {
      {"flows", "sf", flowsText, [](json& j, const QosIntDbRegion& r) { j["sf"] = flowsJson(r); }},
      {"classifiers", "clsf", classifiersText, [](json& j, const QosIntDbRegion& r) { j["clsf"] = classifiersJson(r); }},
      {"clusters", "sidClusters", clustersText,
       [](json& j, const QosIntDbRegion& r) { j["sidClusters"] = clustersJson(r); }},
      {"switchover", "switchover", switchoverText,
       [](json& j, const QosIntDbRegion& r) { j["switchover"] = switchoverJson(r); }},
      {"active", "activeSf", activeText, [](json& j, const QosIntDbRegion& r) { j["activeSf"] = activeJson(r); }},
      {"phs", "phs", phsText,
       [](json& j, const QosIntDbRegion& r) {
         j["phsUs"] = phsJson(r.phsUs);
         j["phsDs"] = phsJson(r.phsDs);
       }},
      {"transactions", "ta", transactionsText,
       [](json& j, const QosIntDbRegion& r) {
         j["ta"] = transactionsJson(r);
         j["taControl"] = taControlJson(r);
       }},
      {"messages", "msgs", messagesText, [](json& j, const QosIntDbRegion& r) { j["msgs"] = messagesJson(r); }},
      {"errors", "msgErrors", errorsText, [](json& j, const QosIntDbRegion& r) { j["msgErrors"] = errorsJson(r); }},
      {"dbc", "dbc", dbcText, [](json& j, const QosIntDbRegion& r) { j["dbc"] = dbcJson(r); }},
      {"stats", "stats", statsText, [](json& j, const QosIntDbRegion& r) { j["stats"] = statsJson(r); }},
  };
  return kViews;
}

const TableView& view(const std::string& name) {
  for (const auto& v : views()) {
    if (name == v.name) return v;
  }
  throw Failure("no table " + name);
}

}  // namespace

std::string tableNames() {
  std::string out;
  for (const auto& v : views()) out += std::string(out.empty() ? "" : ", ") + v.name;
  return out + ", all";
}

std::vector<std::string> resolveTables(const std::vector<std::string>& names) {
  std::vector<std::string> wanted;
  for (const auto& name : names.empty() ? std::vector<std::string>{"all"} : names) {
    bool known = false;
    for (const auto& v : views()) {
      if (name == "all" || name == v.name || name == v.alias || (std::string(v.alias) == "phs" &&
                                                                  (name == "phsUs" || name == "phsDs")) ||
          (std::string(v.alias) == "ta" && name == "taControl")) {
        known = true;
        if (std::find(wanted.begin(), wanted.end(), v.name) == wanted.end()) wanted.push_back(v.name);
      }
    }
    if (!known) throw Failure("unknown table '" + name + "' (tables: " + tableNames() + ")", 2);
  }
  std::vector<std::string> ordered;
  for (const auto& v : views()) {
    if (std::find(wanted.begin(), wanted.end(), v.name) != wanted.end()) ordered.push_back(v.name);
  }
  return ordered;
}

void showText(std::ostream& out, const QosIntDbRegion& region, const std::vector<std::string>& tables) {
  bool first = true;
  for (const auto& name : tables) {
    if (!first) out << "\n";
    first = false;
    view(name).text(out, region);
  }
}

json showJson(const QosIntDbRegion& region, const std::vector<std::string>& tables) {
  json out = json::object();
  for (const auto& name : tables) view(name).json(out, region);
  return out;
}

}  // namespace qosdb
