// SPDX-License-Identifier: MIT
// tables.cpp - the served tables: index orders, the library's walks and reads.
#include "tables.h"

#include <algorithm>
#include <limits>

#include "qosintdb.h"
#include "qosintdb_platform.h"

namespace qossnmp {
namespace {

constexpr unsigned long kU32 = std::numeric_limits<uint32_t>::max();
// A walk visits each row once, in increasing order; this only guards a broken store.
constexpr int kMaxRows = 100000;

Oid join(Oid a, const Oid& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}
bool startsWith(const Oid& name, const Oid& prefix) {
  return name.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), name.begin());
}
Value unsignedValue(uint32_t v) { return {Type::Unsigned, v, {}}; }
Value integerValue(uint32_t v) { return {Type::Integer, v, {}}; }

bool multipleUpstreams() {
  uint32_t multiple = 0;
  DocsisDb_GetMultipleUpstreams(&multiple);
  return multiple != 0 && DocsisDb_IsTccReceivedInRegRsp() != 0;
}

// ---- docsQosServiceFlowSidClusterTable: { ifIndex, SFID, cluster ID, UCID } -> SID --------

Table sidClusterTable(const Options& o) {
  Table t;
  t.name = "docsQosServiceFlowSidClusterTable";
  t.entry = {1, 3, 6, 1, 4, 1, 4491, 2, 1, 21, 1, 12, 1};
  t.columns = {3};
  const unsigned long ifIndex = o.cableIfIndex;
  t.wellFormed = [ifIndex](const Oid& i) {
    return i.size() == 4 && i[0] == ifIndex && i[1] <= kU32 && i[2] <= 255 && i[3] <= 255;
  };
  t.nextRow = [ifIndex](const Oid* after, Oid& next) {
    uint32_t n[3];
    uint32_t from[3] = {0, 0, 0};
    if (after != nullptr) {
      for (int k = 0; k < 3; ++k) from[k] = static_cast<uint32_t>((*after)[k + 1]);
    }
    if (qos_intDb_GetNextSfSidClusterTableIndex(from[0], from[1], from[2], &n[0], &n[1], &n[2]) != 0) return false;
    next = {ifIndex, n[0], n[1], n[2]};
    return true;
  };
  t.value = [](const Oid& i, unsigned long, Value& v) {
    uint32_t sid = 0;
    if (qos_intDb_GetSidClusterTableRow(static_cast<uint32_t>(i[1]), static_cast<uint8_t>(i[2]),
                                        static_cast<uint8_t>(i[3]), &sid) != 0) {
      return false;
    }
    v = unsignedValue(sid);
    return true;
  };
  return t;
}

// ---- docsQosServiceFlowTable: { ifIndex, SFID } -> SID, direction, primary, parameter sets --

// A flow the table lists: one with an SFID that is in force or under a
// transaction (operational, adding, changing, deleting).
bool listedFlow(uint32_t row, uint32_t& sfId) {
  uint32_t state = 0;
  return qos_intDb_GetSFState(row, &state) == 0 && state >= QOS_SF_OPERATIONAL && state <= QOS_SF_DELETING &&
         qos_intDb_GetSfId(row, &sfId) == 0 && sfId != 0;
}

uint32_t flowRows() {
  uint32_t max = 0;
  return qos_intDb_GetSfDbMaxIndex(&max) == 0 ? std::min<uint32_t>(max, QOS_SF_ROWS - 1) + 1 : 0;
}

bool findFlow(uint32_t sfId, uint32_t& row) {
  for (uint32_t r = 0, n = flowRows(); r < n; ++r) {
    uint32_t id = 0;
    if (listedFlow(r, id) && id == sfId) return row = r, true;
  }
  return false;
}

// Primary: the flow whose reference is its direction's primary reference
// (while references are known), or the upstream flow in row 0 of the
// active table, where the fill puts the primary one.
bool primaryFlow(uint32_t row, uint32_t sfId, uint8_t direction) {
  uint32_t ref = 0;
  uint16_t primaryRef = 0;
  if (qos_intDb_GetSfRef(row, &ref) == 0 && ref != 0 && qos_intDb_GetSfPrimaryRef(direction, &primaryRef) == 0 &&
      ref == primaryRef) {
    return true;
  }
  uint32_t active = 0;
  return direction == QOS_DIR_UPSTREAM && qos_intDb_GetActiveSfIndexBySfid(sfId, &active) == 0 && active == 0;
}

Table serviceFlowTable(const Options& o) {
  Table t;
  t.name = "docsQosServiceFlowTable";
  t.entry = {1, 3, 6, 1, 4, 1, 4491, 2, 1, 21, 1, 3, 1};
  t.columns = {6, 7, 8, 9};
  const unsigned long ifIndex = o.cableIfIndex;
  t.wellFormed = [ifIndex](const Oid& i) { return i.size() == 2 && i[0] == ifIndex && i[1] <= kU32; };
  t.nextRow = [ifIndex](const Oid* after, Oid& next) {
    uint64_t from = after != nullptr ? (*after)[1] : 0, best = uint64_t{kU32} + 1;
    for (uint32_t r = 0, n = flowRows(); r < n; ++r) {
      uint32_t id = 0;
      if (listedFlow(r, id) && id > from && id < best) best = id;
    }
    if (best > kU32) return false;
    next = {ifIndex, static_cast<unsigned long>(best)};
    return true;
  };
  t.value = [](const Oid& i, unsigned long column, Value& v) {
    uint32_t sfId = static_cast<uint32_t>(i[1]), row = 0;
    uint8_t direction = 0, sets = 0;
    uint16_t sid = 0;
    if (!findFlow(sfId, row) || qos_intDb_GetSfDirection(row, &direction) != 0) return false;
    switch (column) {
      case 6:
        if (qos_intDb_GetSfSid(row, &sid) != 0) return false;
        v = unsignedValue(sid);
        return true;
      case 7:
        v = integerValue(direction);
        return true;
      case 8:
        v = integerValue(primaryFlow(row, sfId, direction) ? 1 : 2);  // TruthValue
        return true;
      default: {
        if (qos_intDb_GetServiceFlowParamSet(row, &sets) != 0) return false;
        // BITS active(0) admitted(1) provisioned(2): bit 0 is the first octet's high bit.
        char bits = static_cast<char>(((sets & QOS_PARAMSET_ACTIVE) ? 0x80 : 0) |
                                      ((sets & QOS_PARAMSET_ADMITTED) ? 0x40 : 0) |
                                      ((sets & QOS_PARAMSET_PROVISIONED) ? 0x20 : 0));
        v = {Type::Bits, 0, std::string(1, bits)};
        return true;
      }
    }
  };
  return t;
}

// ---- qosdbCmServiceTable: { upstream ifIndex, SID } -> port, active index, reference, SIDs --

Table cmServiceTable(const Options& o) {
  Table t;
  t.name = "qosdbCmServiceTable";
  t.entry = join(o.arc, {1, 1, 1, 1});
  t.columns = {3, 4, 5, 6};
  std::vector<uint32_t> us(o.usIfIndex, o.usIfIndex + 4);
  t.wellFormed = [](const Oid& i) { return i.size() == 2 && i[0] <= kU32 && i[1] <= kU32; };
  t.nextRow = [us](const Oid* after, Oid& next) {
    uint32_t ifIndex = after != nullptr ? static_cast<uint32_t>((*after)[0]) : 0;
    uint32_t sid = after != nullptr ? static_cast<uint32_t>((*after)[1]) : 0;
    // With one upstream the library lists the SIDs of the first upstream
    // interface whatever interface it is given: the order is kept here.
    if (!multipleUpstreams()) {
      if (ifIndex > us[0]) return false;
      if (ifIndex < us[0]) ifIndex = us[0], sid = 0;
    }
    uint32_t nextIf = 0, nextSid = 0;
    if (qos_intDb_GetNextCmServiceTableIndex(ifIndex, sid, us.data(), &nextIf, &nextSid) != 0) return false;
    if (nextIf < ifIndex || (nextIf == ifIndex && nextSid <= sid)) return false;
    next = {nextIf, nextSid};
    return true;
  };
  t.value = [us](const Oid& i, unsigned long column, Value& v) {
    uint32_t port = 0;
    for (uint32_t p = 0; p < (multipleUpstreams() ? 4u : 1u) && port == 0; ++p) {
      if (us[p] != 0 && us[p] == i[0]) port = p + 1;
    }
    uint32_t out[3] = {0, 0, 0};
    if (port == 0 || qos_intDb_GetCmServiceTableAttr(port, static_cast<uint32_t>(i[1]), &out[0], &out[1], &out[2]) != 0) {
      return false;
    }
    v = unsignedValue(column == 3 ? port : out[column - 4]);
    return true;
  };
  return t;
}

}  // namespace

Miss Table::get(const Oid& name, Value& v) const {
  for (unsigned long column : columns) {
    Oid prefix = join(entry, {column});
    if (!startsWith(name, prefix)) continue;
    Oid index(name.begin() + static_cast<long>(prefix.size()), name.end());
    return wellFormed(index) && value(index, column, v) ? Miss::None : Miss::NoSuchInstance;
  }
  return Miss::NoSuchObject;
}

bool Table::getNext(const Oid& name, Oid& next, Value& v) const {
  for (unsigned long column : columns) {
    Oid prefix = join(entry, {column});
    Oid row;
    bool found;
    if (startsWith(name, prefix)) {
      Oid after(name.begin() + static_cast<long>(prefix.size()), name.end());
      if (wellFormed(after)) {
        found = nextRow(&after, row);
      } else {  // a partial or out-of-range index: the first row above it
        found = nextRow(nullptr, row);
        for (int n = 0; found && !std::lexicographical_compare(after.begin(), after.end(), row.begin(), row.end()) &&
                        n < kMaxRows;
             ++n) {
          Oid at = row;
          found = nextRow(&at, row);
        }
      }
    } else if (std::lexicographical_compare(name.begin(), name.end(), prefix.begin(), prefix.end())) {
      found = nextRow(nullptr, row);
    } else {
      continue;
    }
    // Rows that cannot be read are not listed, so that get and get-next agree.
    for (int n = 0; found && n < kMaxRows; ++n) {
      if (value(row, column, v)) {
        next = join(prefix, row);
        return true;
      }
      Oid at = row;
      found = nextRow(&at, row);
    }
  }
  return false;
}

std::vector<Served> servedTables(const Options& o) {
  Table clusters = sidClusterTable(o), flows = serviceFlowTable(o), service = cmServiceTable(o);
  Oid clustersRoot(clusters.entry.begin(), clusters.entry.end() - 1);
  Oid flowsRoot(flows.entry.begin(), flows.entry.end() - 1);
  return {{clustersRoot, clusters}, {flowsRoot, flows}, {join(o.arc, {1}), service}};
}

Oid parseOid(const std::string& text) {
  Oid out;
  std::size_t at = !text.empty() && text[0] == '.' ? 1 : 0;
  while (at < text.size()) {
    std::size_t end = text.find('.', at);
    if (end == std::string::npos) end = text.size();
    if (end == at || end - at > 10 || text.find_first_not_of("0123456789", at) < end) return {};
    unsigned long long v = std::stoull(text.substr(at, end - at));
    if (v > kU32) return {};
    out.push_back(static_cast<unsigned long>(v));
    at = end + 1;
    if (end + 1 == text.size()) return {};
  }
  return out.size() >= 2 ? out : Oid{};
}

}  // namespace qossnmp
