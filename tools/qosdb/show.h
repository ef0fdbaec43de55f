// SPDX-License-Identifier: MIT
// show.h - the tables of a region copy, as aligned text or as JSON.
//
// Both views skip free rows and name every field as frame/region.h does;
// the text view also says what the values mean (states, directions,
// parameter-set bits, transaction types).
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "frame/region.h"

namespace qosdb {

// Command-line table names ("flows", "transactions", ... or the names of
// frame/region.h, "all" for every table), in the order to show them.
// Throws a Failure for a name it does not know.
std::vector<std::string> resolveTables(const std::vector<std::string>& names);
std::string tableNames();  // for help texts

void showText(std::ostream& out, const qos::QosIntDbRegion& region, const std::vector<std::string>& tables);
// The version of the JSON document's shape ("format"); raised when it changes.
constexpr int kJsonFormat = 1;

nlohmann::ordered_json showJson(const qos::QosIntDbRegion& region, const std::vector<std::string>& tables);

}  // namespace qosdb
