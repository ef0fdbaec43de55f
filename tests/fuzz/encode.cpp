// SPDX-License-Identifier: MIT
// encode.cpp - scenario files (the qosdb tool's format, read by
// tools/api/scenario.h) as fuzz inputs.
#include "tests/fuzz/encode.h"

#include <stdexcept>

#include "tests/fuzz/operations.h"
#include "tools/api/scenario.h"

namespace fuzz {
namespace {

void mapping(std::string& out, const SidChannelMapping& m) {
  encodeNumber(out, m.action);
  encodeNumber(out, m.ucid);
  encodeNumber(out, m.sid);
}

// One line: the operation's index, the flags, the inputs.
std::string encodeLine(const qosapi::ScenarioLine& line) {
  const std::vector<Operation>& ops = operations();
  const Operation* op = findOperation(line.op->name);
  std::string args;
  uint8_t nullMask = 0;
  int pointer = 0;
  std::size_t next = 0;
  for (char kind : op->kinds) {
    if (kind == 'O') {
      ++pointer;
      continue;
    }
    const qosapi::Argument& a = line.inputs.at(next++);
    if (kind != 'n' && a.null) nullMask |= static_cast<uint8_t>(1u << pointer);
    if (kind != 'n') ++pointer;
    std::vector<SidChannelMapping> maps = a.mappings;
    switch (kind) {
      case 'n':
      case 'c':
        encodeNumber(args, static_cast<uint32_t>(a.number));
        break;
      case 'b':
        encodeNumber(args, static_cast<uint32_t>(a.bytes.size()) * a.repeat);
        encodeNumber(args, static_cast<uint32_t>(a.bytes.size()));
        args.append(a.bytes.begin(), a.bytes.end());
        break;
      case 'f':
        for (uint32_t v : a.four) encodeNumber(args, v);
        break;
      case 'm':
        maps.resize(QOS_CHANNELS_PER_CLUSTER, SidChannelMapping{});
        for (const auto& m : maps) mapping(args, m);
        break;
      case 'l':
        encodeNumber(args, static_cast<uint32_t>(maps.size()));
        for (const auto& m : maps) mapping(args, m);
        break;
      default:  // 'r': the flags alone
        break;
    }
  }
  std::string out;
  out += static_cast<char>(op - ops.data());
  out += static_cast<char>(nullMask != 0 ? 0x80 | nullMask : 0);
  return out + args;
}

}  // namespace

std::string encodeScenario(std::istream& in, const std::string& file) {
  std::string out;
  try {
    for (const auto& line : qosapi::readScenario(in, file)) {
      if (line.op != nullptr) out += encodeLine(line);
    }
  } catch (const qosapi::ScenarioError& e) {
    throw std::runtime_error(e.what());
  }
  return out;
}

}  // namespace fuzz
