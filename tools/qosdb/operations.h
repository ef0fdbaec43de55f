// SPDX-License-Identifier: MIT
// operations.h - every operation of the client API, by name, for scenarios.
//
// A scenario line names an operation and gives its input arguments in the
// order of the C declaration; output pointers are left out (the tool
// allocates them and prints what the operation wrote). A (length, pointer)
// pair of the C declaration is one byte-string argument. Argument syntax:
//   numbers       42, 0x2a, -1 (unsigned 32-bit arguments take -1 as 0xffffffff)
//   byte strings  0a1b2c or 0a:1b:2c, a repetition 00*1600, - for none, NULL
//   mappings      ucid/sid entries separated by commas, each optionally
//                 prefixed by its action (add: del: or a number:), e.g.
//                 1/0x11,2/0x12,0/0,0/0 or add:3/0x21; - for none; NULL
//   four numbers  4,80,81,82 (UCIDs or interface indexes); NULL
//   region        the address of the attached region; NULL
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tools/api/scenario.h"

namespace qosdb {

struct CallResult {
  bool hasResult = true;  // false for operations without a result (void)
  int32_t result = 0;
  std::vector<std::string> outputs;  // "name=value" for every output the call wrote
  std::string text;                  // what an operation returning a string returned, quoted, or NULL
};

using Locking = qosapi::Locking;  // ByCaller: the tool holds the lock around the call

struct Operation {
  std::string name;
  std::vector<std::string> inputs;  // "name:kind" of each input argument
  Locking locking = Locking::ByCaller;
  bool attaches = false;            // creates or attaches to the store itself
  bool needsStore = true;           // false: works without a store
  // The call with these inputs (as readScenario checked them), ready to run.
  std::function<std::function<CallResult()>(const std::vector<qosapi::Argument>&)> prepare;
};

const std::vector<Operation>& operations();
const Operation* findOperation(const std::string& name);

}  // namespace qosdb
