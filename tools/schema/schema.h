// SPDX-License-Identifier: MIT
// schema.h - every table of the region described once, field by field.
//
// A Record describes one row struct of frame/region.h (or a record of the
// public header nested in one): each field with its name, C type, offset
// (offsetof), element width and count, in order, reserved and padding
// bytes included, so that the fields cover every byte of the row. A Table
// places rows of a record in the region. From these come the tables of
// `qosdb show` (text and JSON) and the benchmark peer's SQL schema; they
// are enough to convert a region between byte orders field by field.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "frame/region.h"

namespace qosschema {

enum class Type { U8, U16, U32, I8, I32, Record };

// How the text view writes a number.
enum class Show { Dec, Hex, TaLink /* -1 as "-" */, ParamSet /* prov+adm+act */, Held /* smState 2, 3 */, Hidden };

// The names of an enumeration's values.
struct Enumeration {
  std::vector<std::pair<uint32_t, const char*>> values;
  const char* name(uint32_t value) const;  // nullptr for a value without a name
};

struct Record;

struct Field {
  const char* name;
  Type type;
  std::size_t offset;  // in the record
  std::size_t width;   // of one element
  std::size_t count;   // elements (1 for a scalar)
  bool bytes = false;  // an array of uint8_t holding bytes rather than numbers
  bool isReserved = false;  // reserved or padding: kept, never shown
  Show show = Show::Dec;
  const Enumeration* enumeration = nullptr;
  const Record* record = nullptr;      // Type::Record
  const char* lengthField = nullptr;   // the field of the same record that says how many elements count
  const char* note = nullptr;          // what the value means (single-row tables)

  Field as(Show s) const { Field f = *this; f.show = s; return f; }
  Field named(const Enumeration& e) const { Field f = *this; f.enumeration = &e; return f; }
  Field of(const Record& r) const { Field f = *this; f.record = &r; return f; }
  Field lengthIn(const char* field) const { Field f = *this; f.lengthField = field; return f; }
  Field noted(const char* text) const { Field f = *this; f.note = text; return f; }
  Field asBytes() const { Field f = *this; f.bytes = true; return f; }
  bool reserved() const { return isReserved; }
  std::size_t size() const { return width * count; }
};

struct Record {
  const char* name;
  std::size_t size;
  std::vector<Field> fields;
  const Field* field(const std::string& name) const;
};

struct Table {
  const char* name;        // as frame/region.h names the array
  const char* title;       // for people
  std::size_t offset;      // in the region
  std::size_t rows;
  const Record* row;
  const char* usedField;   // nonzero in a row in use; nullptr: every row counts
};

// The tables in region order; together they cover the region.
const std::vector<Table>& tables();
const Table& table(const std::string& name);

// A field's element `i` in a row, widened (signed types sign-extended).
int64_t value(const Field& f, const uint8_t* row, std::size_t i = 0);
// How many elements of an array field are in use (lengthField, capped at count).
std::size_t elementsInUse(const Record& r, const Field& f, const uint8_t* row);
bool used(const Table& t, const uint8_t* row);
inline const uint8_t* rowAt(const qos::QosIntDbRegion& region, const Table& t, std::size_t i) {
  return reinterpret_cast<const uint8_t*>(&region) + t.offset + i * t.row->size;
}

// Reverses the byte order of every multi-byte number of a region image in
// place, field by field as the descriptions give them (byte strings stay).
// Applied twice it gives the image back.
void swapByteOrder(uint8_t* region);

// A field as a column of a flat table: fields of nested records get the
// record's name as prefix ("req.length"); with flattenArrays, arrays of
// numbers and of records become a column per element ("channels0_ucid").
// Byte strings stay one column.
struct Column {
  std::string name;
  Field field;            // offset in the row
  std::size_t base = 0;   // offset in the row of the record holding the field
  const Record* holder;   // that record (its other fields give lengths)
  std::size_t inUse(const uint8_t* row) const;  // elements in use, by the holder's length field
};
std::vector<Column> columns(const Record& r, const char* separator, bool flattenArrays);

// ---- Building the descriptions -------------------------------------------------

template <typename T>
struct Element {
  using type = T;
  static constexpr std::size_t count = 1;
};
template <typename T, std::size_t N>
struct Element<T[N]> {
  using type = T;
  static constexpr std::size_t count = N;
};

template <typename M>
Field field(const char* name, std::size_t offset) {
  using E = typename Element<M>::type;
  Type t = std::is_same_v<E, uint8_t>    ? Type::U8
           : std::is_same_v<E, uint16_t> ? Type::U16
           : std::is_same_v<E, uint32_t> ? Type::U32
           : std::is_same_v<E, int8_t>   ? Type::I8
           : std::is_same_v<E, int32_t>  ? Type::I32
                                         : Type::Record;
  return Field{name, t, offset, sizeof(E), Element<M>::count};
}

template <typename M>
Field reserved(const char* name, std::size_t offset) {
  Field f = field<M>(name, offset);
  f.isReserved = true;
  f.show = Show::Hidden;
  return f;
}

// A field of a row struct, and reserved or padding bytes of one.
#define QOS_FIELD(Row, member) ::qosschema::field<decltype(Row::member)>(#member, offsetof(Row, member))
#define QOS_RESERVED(Row, member) ::qosschema::reserved<decltype(Row::member)>(#member, offsetof(Row, member))

}  // namespace qosschema
