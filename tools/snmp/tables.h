// SPDX-License-Identifier: MIT
// tables.h - the store's tables as SNMP columns: object identifiers in,
// values out, every row read through the library's get and get-next
// operations. The caller holds the stack's lock around each call.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace qossnmp {

using Oid = std::vector<unsigned long>;

// The SNMP type of a value, as net-snmp numbers them.
enum class Type : unsigned char { Integer = 0x02, Bits = 0x04, Unsigned = 0x42 };

struct Value {
  Type type = Type::Unsigned;
  uint32_t number = 0;
  std::string bytes;  // BITS
  bool operator==(const Value& o) const { return type == o.type && number == o.number && bytes == o.bytes; }
};

// Outcome of a get: the value, or why there is none.
enum class Miss { None, NoSuchObject, NoSuchInstance };

// One conceptual table: its entry, the columns served, and its rows in
// index order. `nextRow` gives the first row after a well-formed index (the
// first row of all when `after` is null); `wellFormed` says whether an index
// has the table's length and every component in range; `value` reads one
// cell, false when the row does not exist.
struct Table {
  std::string name;
  Oid entry;
  std::vector<unsigned long> columns;
  std::function<bool(const Oid* after, Oid& next)> nextRow;
  std::function<bool(const Oid& index)> wellFormed;
  std::function<bool(const Oid& index, unsigned long column, Value& value)> value;

  Miss get(const Oid& name, Value& value) const;
  // The first served instance strictly after `name`; false past the table.
  bool getNext(const Oid& name, Oid& next, Value& value) const;
};

struct Options {
  uint32_t cableIfIndex = 2;                 // ifIndex of the cable MAC interface
  uint32_t usIfIndex[4] = {4, 80, 81, 82};   // interfaces of upstream ports 1..4
  Oid arc = {1, 3, 6, 1, 4, 1, 8072, 9999, 9999};
};

// The tables: the SID cluster table and the columns of the service flow
// table that the store holds (DOCSIS QoS MIB), and the CM service table
// under `arc` (QOSDB-CM-SERVICE-MIB). Each is registered at `root`.
struct Served {
  Oid root;
  Table table;
};
std::vector<Served> servedTables(const Options& options);

Oid parseOid(const std::string& text);  // "1.3.6..." (a leading dot allowed); empty when malformed

}  // namespace qossnmp
