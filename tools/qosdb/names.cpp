// SPDX-License-Identifier: MIT
// names.cpp - words for the values of the region.
#include "names.h"

#include <cstdio>

#include "qosintdb.h"

namespace qosdb {

std::string paramSetName(uint32_t bits) {
  if (bits == 0) return "-";
  std::string out;
  auto add = [&out](const char* word) { out += out.empty() ? word : std::string("+") + word; };
  if (bits & QOS_PARAMSET_PROVISIONED) add("prov");
  if (bits & QOS_PARAMSET_ADMITTED) add("adm");
  if (bits & QOS_PARAMSET_ACTIVE) add("act");
  uint32_t other = bits & ~uint32_t{QOS_PARAMSET_PROVISIONED | QOS_PARAMSET_ADMITTED | QOS_PARAMSET_ACTIVE};
  if (other != 0) add(hex(other).c_str());
  return out;
}

std::string smStateName(uint32_t state) {
  return std::to_string(state) + (state == 2 || state == 3 ? " held" : "");
}

std::string taLink(int32_t index) { return index == -1 ? "-" : std::to_string(index); }

std::string eventName(uint32_t event) {
  switch (event) {
    case QOS_EV_HELD_SF_CHANGED: return "QOS_EV_HELD_SF_CHANGED";
    case QOS_EV_HOLDER_ACK_LOST: return "QOS_EV_HOLDER_ACK_LOST";
    case QOS_EV_HELD_SF_DELETED: return "QOS_EV_HELD_SF_DELETED";
    default: return "";
  }
}

std::string hex(uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%x", value);
  return text;
}

std::string hexBytes(const uint8_t* bytes, std::size_t n) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out;
  out.reserve(2 * n);
  for (std::size_t i = 0; i < n; ++i) {
    out += kDigits[bytes[i] >> 4];
    out += kDigits[bytes[i] & 0xF];
  }
  return out;
}

}  // namespace qosdb
