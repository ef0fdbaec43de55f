// SPDX-License-Identifier: MIT
// names.h - what the values of the region mean, as words for people (the
// names of enumerations are in tools/schema).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace qosdb {

std::string paramSetName(uint32_t bits);        // "prov+adm+act", "-" for none
std::string smStateName(uint32_t state);        // "2 held"
std::string taLink(int32_t index);              // "-" for -1, else the number
std::string eventName(uint32_t event);          // "QOS_EV_HELD_SF_CHANGED", or "" when unknown
std::string hex(uint32_t value);                // "0x1001"
std::string hexBytes(const uint8_t* bytes, std::size_t n);  // "0a1bff"

}  // namespace qosdb
