// SPDX-License-Identifier: MIT
// integrity.h - the invariants of a region image, checked without the library.
//
// checkIntegrity reads a copy of the 85032-byte region through the row
// types of frame/region.h and reports every field that breaks an invariant
// of the store: indexes and counts outside their tables, counts that
// disagree with the rows they count, values outside their enumerations,
// reserved and padding fields off their reset values. It attaches to
// nothing and calls no operation, so a tool, a fuzzer or a stress test can
// run it on any image: a snapshot taken under the lock, a file, a region
// that a test damaged on purpose.
//
// Each finding has a class:
//   corrupt  a state that no sequence of the library's operations produces,
//            whatever the arguments: a stray write or a broken operation;
//   suspect  a state that the operations produce only when a caller misuses
//            them: raw index-based setters on rows the table did not hand
//            out, arguments stored unchecked (a transaction index of 57, a
//            direction of 3), SFID 0, or direct writes into the bonding
//            change store and the buffers handed out.
#pragma once

#include <string>
#include <vector>

#include "frame/region.h"

namespace qos::inspect {

enum class FindingClass { Corrupt, Suspect };

struct Finding {
  FindingClass cls;
  std::string where;  // table, row and field, by the names of frame/region.h: "sf[3].committed"
  std::string what;   // what is wrong with it
};

std::vector<Finding> checkIntegrity(const QosIntDbRegion& region);

// "corrupt" or "suspect".
const char* className(FindingClass cls);
// One line: "corrupt: sf[3].committed is 7; only 0 and 1 are ever stored".
std::string describe(const Finding& finding);
bool anyOf(const std::vector<Finding>& findings, FindingClass cls);

}  // namespace qos::inspect
