// SPDX-License-Identifier: MIT
// scenario.cpp - reading scenario files (scenario.h).
#include "tools/api/scenario.h"

#include <charconv>
#include <string_view>

namespace qosapi {
namespace {

constexpr uint32_t kMaxRepeat = 65536;

// A fault inside an argument: where in its text, and why.
struct Fault {
  std::size_t offset;
  std::string message;
};

std::string quoted(std::string_view s) { return "'" + std::string(s) + "'"; }

// Decimal, 0x-hex, optionally negative; at most 32 bits of magnitude.
bool parseInteger(std::string_view text, int64_t& out) {
  const bool negative = !text.empty() && text[0] == '-';
  if (negative) text.remove_prefix(1);
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    base = 16;
    text.remove_prefix(2);
  }
  uint64_t value = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size() || value > 0xFFFFFFFFull) return false;
  out = negative ? -static_cast<int64_t>(value) : static_cast<int64_t>(value);
  return true;
}

int64_t number(std::string_view token, std::size_t offset, int64_t low, int64_t high, const std::string& what) {
  int64_t v = 0;
  if (!parseInteger(token, v)) throw Fault{offset, quoted(token) + " is not a number (decimal, 0x-hex or negative)"};
  if (v < low || v > high) throw Fault{offset, quoted(token) + " does not fit a " + what};
  return v;
}

// The parts between separators, each with its offset; empty parts kept.
std::vector<std::pair<std::string_view, std::size_t>> split(std::string_view text, char sep) {
  std::vector<std::pair<std::string_view, std::size_t>> out;
  std::size_t at = 0;
  for (;;) {
    std::size_t end = text.find(sep, at);
    out.emplace_back(text.substr(at, end == std::string_view::npos ? std::string_view::npos : end - at), at);
    if (end == std::string_view::npos) return out;
    at = end + 1;
  }
}

void readBytes(Argument& a) {
  const std::string_view token = a.text;
  if (token == "NULL" || token == "-") {
    a.null = token == "NULL";
    a.repeat = 0;
    return;
  }
  const std::string bad =
      quoted(token) + " is no byte string (pairs of hex digits like 0a1b or 0a:1b, a repetition like 00*16, - or NULL)";
  auto parts = split(token, '*');
  if (parts.size() > 2) throw Fault{0, bad};
  if (parts.size() == 2) {
    a.repeat = static_cast<uint32_t>(number(parts[1].first, parts[1].second, 0, kMaxRepeat, "repetition (0..65536)"));
  }
  std::string digits;
  for (char c : parts[0].first) {
    if (c != ':' && c != '.') digits += c;
  }
  if (digits.empty() || digits.size() % 2 != 0) throw Fault{0, bad};
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    uint8_t byte = 0;
    auto [end, ec] = std::from_chars(digits.data() + i, digits.data() + i + 2, byte, 16);
    if (ec != std::errc() || end != digits.data() + i + 2) throw Fault{0, bad};
    a.bytes.push_back(byte);
  }
}

// "[add:|del:|n:]ucid/sid"
SidChannelMapping mapping(std::string_view entry, std::size_t offset) {
  SidChannelMapping m{};
  std::string_view rest = entry;
  std::size_t colon = rest.find(':');
  if (colon != std::string_view::npos) {
    std::string_view action = rest.substr(0, colon);
    m.action = action == "add"   ? uint32_t{QOS_MAP_ADD}
               : action == "del" ? uint32_t{QOS_MAP_DELETE}
                                 : static_cast<uint32_t>(number(action, offset, 0, UINT32_MAX,
                                                                "mapping action (add, del or a number)"));
    rest.remove_prefix(colon + 1);
    offset += colon + 1;
  }
  auto pair = split(rest, '/');
  if (pair.size() != 2) throw Fault{offset, quoted(entry) + " is no mapping (ucid/sid, optionally add: or del: first)"};
  m.ucid = static_cast<uint8_t>(number(pair[0].first, offset, 0, UINT8_MAX, "UCID (0..255)"));
  m.sid = static_cast<uint16_t>(number(pair[1].first, offset + pair[1].second, 0, UINT16_MAX, "SID (0..65535)"));
  return m;
}

void readArgument(Argument& a) {
  const std::string_view token = a.text;
  const std::string& kind = a.kind;
  if (kind == "u8") {
    a.number = number(token, 0, 0, UINT8_MAX, kind);
  } else if (kind == "u16") {
    a.number = number(token, 0, 0, UINT16_MAX, kind);
  } else if (kind == "u32" || kind == "i32") {
    a.number = number(token, 0, INT32_MIN, UINT32_MAX, kind);
  } else if (kind == "bytes") {
    readBytes(a);
  } else if (kind == "mappings") {
    a.null = token == "NULL";
    if (a.null || token == "-") return;
    for (auto [entry, offset] : split(token, ',')) a.mappings.push_back(mapping(entry, offset));
  } else if (kind == "u32x4") {
    a.null = token == "NULL";
    if (a.null) return;
    auto parts = split(token, ',');
    if (parts.size() != 4) throw Fault{0, quoted(token) + " is not four numbers separated by commas"};
    for (std::size_t i = 0; i < 4; ++i) a.four[i] = static_cast<uint32_t>(number(parts[i].first, parts[i].second, 0, UINT32_MAX, "u32"));
  } else if (kind == "region") {
    if (token != "region" && token != "NULL") throw Fault{0, quoted(token) + " is neither region nor NULL"};
    a.null = token == "NULL";
  }
}

std::string join(const std::vector<std::string>& parts) {
  std::string out;
  for (const auto& p : parts) out += (out.empty() ? "" : " ") + p;
  return out;
}

// The words of a line and their columns (from 1).
std::vector<std::pair<std::string, int>> words(const std::string& text) {
  std::vector<std::pair<std::string, int>> out;
  for (std::size_t at = 0;;) {
    at = text.find_first_not_of(" \t\r", at);
    if (at == std::string::npos) return out;
    std::size_t end = text.find_first_of(" \t\r", at);
    out.emplace_back(text.substr(at, end - at), static_cast<int>(at) + 1);
    at = end;
  }
}

}  // namespace

std::vector<uint8_t> Argument::expanded() const {
  std::vector<uint8_t> out;
  for (uint32_t r = 0; r < repeat; ++r) out.insert(out.end(), bytes.begin(), bytes.end());
  return out;
}

std::string located(const std::string& file, int line, int column, const std::string& message) {
  return file + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " + message;
}

std::vector<std::string> inputsOf(const OperationInfo& op) {
  std::vector<std::string> out;
  for (const auto& [word, column] : words(op.arguments)) {
    (void)column;
    if (word.compare(word.size() - 4, 4, ":out") != 0) out.push_back(word);
  }
  return out;
}

namespace {

// Reads one line of at most kMaxLineLength characters into `raw`; false at
// the end of the input. A longer line (a binary file, /dev/zero) is not read
// on: `tooLong` says so, and nothing more than the limit was kept in memory.
bool readLine(std::istream& in, std::string& raw, bool& tooLong) {
  raw.clear();
  tooLong = false;
  bool any = false;
  for (char c; in.get(c);) {
    any = true;
    if (c == '\n') return true;
    if (raw.size() == kMaxLineLength) {
      tooLong = true;
      return true;
    }
    raw.push_back(c);
  }
  return any;
}

}  // namespace

std::vector<ScenarioLine> readScenario(std::istream& in, const std::string& file) {
  std::vector<ScenarioLine> out;
  std::string raw;
  bool tooLong = false;
  for (int line = 1; readLine(in, raw, tooLong); ++line) {
    auto fail = [&](int column, const std::string& why) { throw ScenarioError(located(file, line, column, why)); };
    if (tooLong) fail(static_cast<int>(kMaxLineLength) + 1, "line longer than " + std::to_string(kMaxLineLength) + " characters");
    std::vector<std::pair<std::string, int>> w = words(raw.substr(0, raw.find('#')));
    std::size_t first = raw.find_first_not_of(" \t\r");
    if (first != std::string::npos && raw.compare(first, 2, "##") == 0) {
      ScenarioLine n;
      n.line = line;
      std::size_t b = raw.find_first_not_of(" \t\r", first + 2), e = raw.find_last_not_of(" \t\r");
      n.narration = b == std::string::npos ? "" : raw.substr(b, e - b + 1);
      out.push_back(std::move(n));
      continue;
    }
    if (w.empty()) continue;
    ScenarioLine s;
    s.line = line;
    s.column = w[0].second;
    const std::string& last = w.back().first;
    s.text = raw.substr(s.column - 1, w.back().second - s.column + last.size());
    s.op = findOperation(w[0].first);
    if (s.op == nullptr) fail(s.column, "unknown operation '" + w[0].first + "' (qosdb run --list shows them all)");
    const std::vector<std::string> inputs = inputsOf(*s.op);
    if (w.size() - 1 != inputs.size()) {
      int column = w.size() - 1 > inputs.size() ? w[inputs.size() + 1].second
                                                 : w.back().second + static_cast<int>(w.back().first.size());
      fail(column, w[0].first + " takes " + std::to_string(inputs.size()) + " argument" +
                       (inputs.size() == 1 ? "" : "s") + (inputs.empty() ? "" : " (" + join(inputs) + ")") + ", " +
                       std::to_string(w.size() - 1) + " given");
    }
    for (std::size_t i = 0; i < inputs.size(); ++i) {
      Argument a;
      a.text = w[i + 1].first;
      a.column = w[i + 1].second;
      a.kind = inputs[i].substr(inputs[i].find(':') + 1);
      try {
        readArgument(a);
      } catch (const Fault& f) {
        fail(a.column + static_cast<int>(f.offset),
             "argument " + std::to_string(i + 1) + " (" + inputs[i] + ") of " + w[0].first + ": " + f.message);
      }
      s.inputs.push_back(std::move(a));
    }
    out.push_back(std::move(s));
  }
  return out;
}

}  // namespace qosapi
