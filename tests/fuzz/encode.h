// SPDX-License-Identifier: MIT
// encode.h - a scenario file of the qosdb tool as one fuzz input.
#pragma once

#include <istream>
#include <string>

namespace fuzz {

// The input that makes the harness play the scenario's calls in order;
// throws std::runtime_error naming file and line for a line it cannot read.
std::string encodeScenario(std::istream& in, const std::string& file);

}  // namespace fuzz
