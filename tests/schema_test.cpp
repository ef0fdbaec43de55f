// schema_test.cpp - the row descriptions of tools/schema cover every byte
// of every row, and the tables every byte of the region, in order.
#include <gtest/gtest.h>

#include <set>

#include "tools/schema/schema.h"

namespace {

using qosschema::Record;

// The fields of a record and of the records nested in it follow one another
// without gap or overlap up to the record's size.
void expectCovered(const Record& r, std::set<const Record*>& seen) {
  if (!seen.insert(&r).second) return;
  std::size_t at = 0;
  for (const auto& f : r.fields) {
    EXPECT_EQ(f.offset, at) << r.name << "." << f.name;
    at = f.offset + f.size();
    if (f.record != nullptr) {
      EXPECT_EQ(f.width, f.record->size) << r.name << "." << f.name;
      expectCovered(*f.record, seen);
    }
    EXPECT_TRUE(f.lengthField == nullptr || r.field(f.lengthField) != nullptr) << r.name << "." << f.name;
  }
  EXPECT_EQ(at, r.size) << r.name;
}

TEST(Schema, TheDescriptionsCoverEveryByteOfTheRegion) {
  std::set<const Record*> seen;
  std::size_t at = 0;
  for (const auto& t : qosschema::tables()) {
    EXPECT_EQ(t.offset, at) << t.name;
    at = t.offset + t.rows * t.row->size;
    EXPECT_TRUE(t.usedField == nullptr || t.row->field(t.usedField) != nullptr) << t.name;
    expectCovered(*t.row, seen);
  }
  EXPECT_EQ(at, sizeof(qos::QosIntDbRegion));
  EXPECT_EQ(seen.size(), 18u);
}

TEST(Schema, ValuesAndColumnsReadTheRowsAsTheirStructsDo) {
  qos::TaRow ta{};
  ta.smState = 3, ta.authLen = 2, ta.reserved28 = -5;
  qos::SidClusterRow cluster{};
  cluster.channels[1].sid = 0x21;
  const auto& taRow = *qosschema::table("ta").row;
  const auto* bytes = reinterpret_cast<const uint8_t*>(&ta);
  EXPECT_EQ(qosschema::value(*taRow.field("smState"), bytes), 3);
  EXPECT_EQ(qosschema::value(*taRow.field("reserved28"), bytes), -5);
  EXPECT_EQ(qosschema::elementsInUse(taRow, *taRow.field("authBlock"), bytes), 2u);
  const auto columns = qosschema::columns(*qosschema::table("sidClusters").row, "_", true);
  ASSERT_EQ(columns.size(), 3u + 4 * 3);
  EXPECT_EQ(columns[8].name, "channels1_sid");
  EXPECT_EQ(qosschema::value(columns[8].field, reinterpret_cast<const uint8_t*>(&cluster)), 0x21);
}

}  // namespace
