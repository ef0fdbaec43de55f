// encode.cpp - scenario files (the qosdb tool's format) as fuzz inputs.
//
// A scenario names one operation per line with its input arguments;
// outputs are left out. Numbers are decimal, 0x-hex or negative; byte
// strings are hex pairs (optionally separated by ':'), a repetition such
// as 00*1600, - (none) or NULL; mappings are [add:|del:|n:]ucid/sid entries
// separated by commas, - or NULL; four numbers are separated by commas;
// the region base is `region` or NULL. '#' starts a comment.
#include "tests/fuzz/encode.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "qosintdb.h"
#include "tests/fuzz/operations.h"

namespace fuzz {
namespace {

// The parts of a token between separators, empty parts kept.
std::vector<std::string> split(const std::string& text, char sep) {
  std::vector<std::string> out(1);
  for (char c : text) {
    if (c == sep) {
      out.emplace_back();
    } else {
      out.back() += c;
    }
  }
  return out;
}

uint32_t integer(const std::string& token) {
  if (token.empty()) throw std::runtime_error("empty number");
  char* end = nullptr;
  bool negative = token[0] == '-';
  unsigned long long v = std::strtoull(token.c_str() + (negative ? 1 : 0), &end, 0);
  if (*end != '\0') throw std::runtime_error("'" + token + "' is not a number");
  return static_cast<uint32_t>(negative ? 0 - v : v);
}

void bytes(std::string& out, const std::string& token) {
  std::string content;
  uint32_t repeat = 1;
  if (token != "-" && token != "NULL") {
    std::vector<std::string> parts = split(token, '*');
    if (parts.size() == 2) repeat = integer(parts[1]);
    for (std::size_t i = 0; i < parts[0].size();) {
      if (parts[0][i] == ':' || parts[0][i] == '.') {
        ++i;
        continue;
      }
      content += static_cast<char>(std::stoul(parts[0].substr(i, 2), nullptr, 16));
      i += 2;
    }
  }
  encodeNumber(out, static_cast<uint32_t>(content.size()) * repeat);
  encodeNumber(out, static_cast<uint32_t>(content.size()));
  out += content;
}

void mapping(std::string& out, const std::string& entry) {
  uint32_t action = 0;
  std::string rest = entry;
  std::size_t colon = rest.find(':');
  if (colon != std::string::npos) {
    std::string a = rest.substr(0, colon);
    action = a == "add" ? QOS_MAP_ADD : a == "del" ? QOS_MAP_DELETE : integer(a);
    rest = rest.substr(colon + 1);
  }
  std::vector<std::string> pair = split(rest, '/');
  if (pair.size() != 2) throw std::runtime_error("'" + entry + "' is no mapping");
  encodeNumber(out, action);
  encodeNumber(out, integer(pair[0]));
  encodeNumber(out, integer(pair[1]));
}

std::vector<std::string> entries(const std::string& token) {
  return token == "-" || token == "NULL" ? std::vector<std::string>{} : split(token, ',');
}

// One line: the operation's index, the flags, the inputs.
std::string encodeLine(const std::vector<std::string>& words) {
  const std::vector<Operation>& ops = operations();
  const Operation* op = findOperation(words[0]);
  if (op == nullptr) throw std::runtime_error("unknown operation " + words[0]);
  std::string args;
  uint8_t nullMask = 0;
  int pointer = 0;
  std::size_t next = 1;
  for (char kind : op->kinds) {
    if (kind == 'O') {
      ++pointer;
      continue;
    }
    if (next >= words.size()) throw std::runtime_error(words[0] + ": too few arguments");
    const std::string& token = words[next++];
    if (kind != 'n' && token == "NULL") nullMask |= static_cast<uint8_t>(1u << pointer);
    switch (kind) {
      case 'n':
        encodeNumber(args, integer(token));
        break;
      case 'c':
        encodeNumber(args, integer(token));
        break;
      case 'r':
        break;
      case 'b':
        bytes(args, token);
        break;
      case 'f': {
        std::vector<std::string> four = entries(token);
        for (std::size_t i = 0; i < 4; ++i) encodeNumber(args, i < four.size() ? integer(four[i]) : 0);
        break;
      }
      case 'm': {
        std::vector<std::string> m = entries(token);
        m.resize(4, "0/0");
        for (const auto& e : m) mapping(args, e);
        break;
      }
      case 'l': {
        std::vector<std::string> m = entries(token);
        encodeNumber(args, static_cast<uint32_t>(m.size()));
        for (const auto& e : m) mapping(args, e);
        break;
      }
      default:
        throw std::runtime_error("unknown argument kind");
    }
    if (kind != 'n') ++pointer;
  }
  std::string out;
  out += static_cast<char>(op - ops.data());
  out += static_cast<char>(nullMask != 0 ? 0x80 | nullMask : 0);
  return out + args;
}

}  // namespace

std::string encodeScenario(std::istream& in, const std::string& file) {
  std::string out;
  std::string raw;
  int line = 0;
  while (std::getline(in, raw)) {
    ++line;
    std::string text = raw.substr(0, raw.find('#'));
    std::istringstream words(text);
    std::vector<std::string> w;
    for (std::string t; words >> t;) w.push_back(t);
    if (w.empty()) continue;
    try {
      out += encodeLine(w);
    } catch (const std::exception& e) {
      throw std::runtime_error(file + ":" + std::to_string(line) + ": " + e.what());
    }
  }
  return out;
}

}  // namespace fuzz
