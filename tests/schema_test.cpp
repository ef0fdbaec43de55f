// SPDX-License-Identifier: MIT
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

}  // namespace
