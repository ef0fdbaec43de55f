// SPDX-License-Identifier: MIT
// scenario.h - reading scenario files: one operation of the client API per
// line, its input arguments after it (tools/qosdb/operations.h gives the
// syntax). The qosdb tool plays them; the fuzzer turns them into inputs.
//
// Every argument is checked against the kind that operations.def gives it;
// a line that does not read stops with "file:line:col: message", the
// column (from 1) being where the fault is.
#pragma once

#include <cstdint>
#include <istream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/api/api.h"

namespace qosapi {

// The longest scenario line read (a 1600-byte message as hex is 3200).
constexpr std::size_t kMaxLineLength = 65536;

// One input argument, as the line gives it and as its kind reads it.
struct Argument {
  std::string text;
  int column = 0;
  std::string kind;  // of operations.def: u8 u16 u32 i32 bytes mappings u32x4 region
  bool null = false;                      // NULL (bytes, mappings, u32x4, region)
  int64_t number = 0;                     // numbers; -1 may stand for 0xffffffff
  std::vector<uint8_t> bytes;             // bytes: the content once...
  uint32_t repeat = 1;                    // ...and how often it is repeated
  std::vector<SidChannelMapping> mappings;  // mappings, as many as given
  uint32_t four[4] = {};                  // u32x4

  std::vector<uint8_t> expanded() const;  // bytes: the content, repeated
};

struct ScenarioLine {
  int line = 0;
  std::string text;       // without its comment
  std::string narration;  // the text of a "##" line (op is then null)
  const OperationInfo* op = nullptr;
  int column = 0;         // of the operation's name
  std::vector<Argument> inputs;
};

class ScenarioError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The lines of a scenario that name an operation or narrate; throws a
// ScenarioError at the first line that does not read.
std::vector<ScenarioLine> readScenario(std::istream& in, const std::string& file);

// "file:line:col: message", for faults found after reading.
std::string located(const std::string& file, int line, int column, const std::string& message);

// "name:kind" of each input (not out) argument of an entry.
std::vector<std::string> inputsOf(const OperationInfo& op);

}  // namespace qosapi
