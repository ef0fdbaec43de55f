// SPDX-License-Identifier: MIT
// show.cpp - every table of the store, for people (text) and programs
// (JSON), both written from the row descriptions of tools/schema.
#include "show.h"

#include <algorithm>

#include "names.h"
#include "store.h"
#include "text_table.h"
#include "tools/schema/schema.h"

namespace qosdb {
namespace {

using json = nlohmann::ordered_json;
using qos::QosIntDbRegion;
using qosschema::Column;
using qosschema::Field;
using qosschema::Record;
using qosschema::Show;
using qosschema::Table;
using std::to_string;

constexpr std::size_t kTextBytes = 16;  // bytes of a byte string the text view shows

// ---- Values -----------------------------------------------------------------------

std::string scalarText(const Field& f, int64_t v) {
  if (f.enumeration != nullptr) {
    const char* name = f.enumeration->name(static_cast<uint32_t>(v));
    return name != nullptr ? name : to_string(v) + "?";
  }
  switch (f.show) {
    case Show::Hex: return hex(static_cast<uint32_t>(v));
    case Show::TaLink: return taLink(static_cast<int32_t>(v));
    case Show::ParamSet: return paramSetName(static_cast<uint32_t>(v));
    case Show::Held: return smStateName(static_cast<uint32_t>(v));
    default: return to_string(v);
  }
}

json scalarJson(const Field& f, int64_t v) {
  const char* name = f.enumeration != nullptr ? f.enumeration->name(static_cast<uint32_t>(v)) : nullptr;
  return name != nullptr ? json(name) : json(v);
}

// Element i of a field of the record at `holder`: a number, or a record's
// shown fields separated by '/' (a SID channel mapping reads "1/0x11").
std::string elementText(const Field& f, const uint8_t* holder, std::size_t i) {
  if (f.record == nullptr) return scalarText(f, qosschema::value(f, holder, i));
  std::string out;
  for (const Field& sub : f.record->fields) {
    if (sub.show == Show::Hidden) continue;
    out += (out.empty() ? "" : "/") + elementText(sub, holder + f.offset + i * f.width, 0);
  }
  return out;
}

std::string cellText(const Column& c, const uint8_t* row) {
  const Field& f = c.field;
  const std::size_t n = c.inUse(row);
  if (f.bytes) {
    const std::size_t shown = std::min(n, kTextBytes);
    return n == 0 ? "-" : hexBytes(row + f.offset, shown) + (n > shown ? "..." : "");
  }
  if (f.count == 1 && f.record == nullptr) return elementText(f, row, 0);
  std::string out;
  for (std::size_t i = 0; i < n; ++i) {
    Field element = f;
    element.offset -= c.base;
    out += (out.empty() ? "" : ",") + elementText(element, row + c.base, i);
  }
  return out.empty() ? "-" : out;
}

json recordJson(const Record& r, const uint8_t* row);

json fieldJson(const Record& holder, const Field& f, const uint8_t* row) {
  const std::size_t n = qosschema::elementsInUse(holder, f, row);
  if (f.bytes) return hexBytes(row + f.offset, n);
  if (f.count == 1) return f.record != nullptr ? recordJson(*f.record, row + f.offset) : scalarJson(f, qosschema::value(f, row));
  json out = json::array();
  for (std::size_t i = 0; i < n; ++i) {
    out.push_back(f.record != nullptr ? recordJson(*f.record, row + f.offset + i * f.width)
                                      : scalarJson(f, qosschema::value(f, row, i)));
  }
  return out;
}

json recordJson(const Record& r, const uint8_t* row) {
  json out = json::object();
  for (const Field& f : r.fields) {
    if (!f.reserved()) out[f.name] = fieldJson(r, f, row);
  }
  return out;
}

// ---- Which rows are worth showing ------------------------------------------------------

bool holdsMessages(const qos::MsgRow& m) { return m.req.length != 0 || m.rsp.length != 0 || m.ack.length != 0; }

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

bool shown(const QosIntDbRegion& r, const Table& t, std::size_t i) {
  const std::string name = t.name;
  if (name == "msgs") return holdsMessages(r.msgs[i]);
  if (name == "msgErrors") return showError(r, i);
  return qosschema::used(t, qosschema::rowAt(r, t, i));
}

// ---- Text -------------------------------------------------------------------------------

std::vector<Column> textColumns(const Record& r) {
  std::vector<Column> out;
  for (Column& c : qosschema::columns(r, ".", false)) {
    if (c.field.show != Show::Hidden) out.push_back(std::move(c));
  }
  return out;
}

// Rows of a table: "<title> (<name>): <n> in use<extra>", then the rows.
void rowsText(std::ostream& out, const QosIntDbRegion& r, const Table& t, const std::string& extra) {
  std::vector<Column> columns = textColumns(*t.row);
  std::vector<std::string> headers{"index"};
  for (const Column& c : columns) headers.push_back(c.name);
  TextTable text(headers);
  for (std::size_t i = 0; i < t.rows; ++i) {
    if (!shown(r, t, i)) continue;
    std::vector<std::string> cells{to_string(i)};
    for (const Column& c : columns) cells.push_back(cellText(c, qosschema::rowAt(r, t, i)));
    text.add(cells);
  }
  out << t.title << " (" << t.name << "): " << (text.empty() ? "none" : to_string(text.rows())) << " in use" << extra
      << "\n";
  if (!text.empty()) text.print(out);
}

// A single record: its fields one a line, then its arrays of records as tables.
void recordText(std::ostream& out, const QosIntDbRegion& r, const Table& t) {
  const uint8_t* row = qosschema::rowAt(r, t, 0);
  TextTable fields({"field", "value", "meaning"});
  std::vector<const Field*> arrays;
  for (const Column& c : textColumns(*t.row)) {
    if (c.field.record != nullptr) {
      arrays.push_back(t.row->field(c.name));
    } else {
      fields.add({c.name, cellText(c, row), c.field.note != nullptr ? c.field.note : ""});
    }
  }
  out << t.title << " (" << t.name << ")\n";
  fields.print(out);
  for (const Field* f : arrays) {
    std::vector<Column> columns = textColumns(*f->record);
    std::vector<std::string> headers{"index"};
    for (const Column& c : columns) headers.push_back(c.name);
    TextTable text(headers);
    for (std::size_t i = 0; i < qosschema::elementsInUse(*t.row, *f, row); ++i) {
      std::vector<std::string> cells{to_string(i)};
      for (const Column& c : columns) cells.push_back(cellText(c, row + f->offset + i * f->width));
      text.add(cells);
    }
    out << "  " << f->name << ": " << (text.empty() ? "none" : to_string(text.rows())) << " in use\n";
    if (!text.empty()) text.print(out, "    ");
  }
}

// ---- The views by name -------------------------------------------------------------------

struct View {
  const char* name;                  // on the command line
  std::vector<const char*> tables;   // as frame/region.h names them
  std::vector<const char*> extras;   // statistics named in the first table's title
};

const std::vector<View>& views() {
  static const std::vector<View> kViews = {
      {"flows", {"sf"}, {"sfDbMaxIndex"}},
      {"classifiers", {"clsf"}, {"clsfDbMaxIndex", "clsfMaxNum"}},
      {"clusters", {"sidClusters"}, {"clusterDbMaxIndex", "clusterMaxNum"}},
      {"switchover", {"switchover"}, {}},
      {"active", {"activeSf"}, {"activeSfNumber", "activeSfExtraNumber", "usPrimarySfRef"}},
      {"phs", {"phsUs", "phsDs"}, {}},
      {"transactions", {"ta", "taControl"}, {}},
      {"messages", {"msgs"}, {}},
      {"errors", {"msgErrors"}, {}},
      {"dbc", {"dbc"}, {}},
      {"stats", {"stats"}, {}},
  };
  return kViews;
}

const View& view(const std::string& name) {
  for (const auto& v : views()) {
    if (name == v.name) return v;
  }
  throw Failure("no table " + name);
}

std::string extrasText(const QosIntDbRegion& r, const View& v) {
  const Table& stats = qosschema::table("stats");
  std::string out;
  for (const char* name : v.extras) {
    const Field& f = *stats.row->field(name);
    out += std::string(", ") + name + " " + scalarText(f, qosschema::value(f, qosschema::rowAt(r, stats, 0)));
  }
  return out;
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
      bool named = name == "all" || name == v.name ||
                   std::any_of(v.tables.begin(), v.tables.end(), [&name](const char* t) { return name == t; });
      known = known || named;
      if (named && std::find(wanted.begin(), wanted.end(), v.name) == wanted.end()) wanted.push_back(v.name);
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
    const View& v = view(name);
    for (const char* tableName : v.tables) {
      if (!first) out << "\n";
      first = false;
      const Table& t = qosschema::table(tableName);
      if (t.rows == 1) {
        recordText(out, region, t);
      } else {
        rowsText(out, region, t, tableName == v.tables[0] ? extrasText(region, v) : "");
      }
    }
  }
}

json showJson(const QosIntDbRegion& region, const std::vector<std::string>& tables) {
  json out = json::object();
  out["format"] = kJsonFormat;
  for (const auto& name : tables) {
    for (const char* tableName : view(name).tables) {
      const Table& t = qosschema::table(tableName);
      if (t.rows == 1) {
        out[tableName] = recordJson(*t.row, qosschema::rowAt(region, t, 0));
        continue;
      }
      json rows = json::array();
      for (std::size_t i = 0; i < t.rows; ++i) {
        if (!shown(region, t, i)) continue;
        json row = {{"index", i}};
        row.update(recordJson(*t.row, qosschema::rowAt(region, t, i)));
        rows.push_back(row);
      }
      out[tableName] = rows;
    }
  }
  return out;
}

}  // namespace qosdb
