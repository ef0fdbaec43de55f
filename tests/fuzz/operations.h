// SPDX-License-Identifier: MIT
// operations.h - every operation of the client API, driven by fuzz input.
//
// Input format: a sequence of calls until the input ends (missing bytes
// read as 0). A call is one byte naming the operation (its index in
// operations(), modulo their number), one flags byte (with bit 7 set, bit i
// makes the i-th pointer argument NULL, counting inputs and outputs in
// declaration order), then the operation's inputs in declaration order:
//   n  number: byte b < 0x80 is b; 0x80..0xBF takes one more byte (14 bits);
//      0xC0..0xDF names one of kSpecials; 0xE0..0xEF takes four more bytes
//      (big-endian); 0xF0..0xFF is -1..-16
//   b  byte string (the C length and pointer): length n, count k, k bytes,
//      repeated to fill the length
//   m  four SID channel mappings: action, UCID, SID (numbers) four times
//   l  a list of mappings: count, then action, UCID, SID per entry
//   f  four numbers (UCIDs, interface indexes)
//   c  an in/out cursor: its starting value
//   r  the region's base address (NULL through the flags)
// Outputs (kind O) take no input bytes: they point into guarded pages.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tools/api/api.h"

namespace fuzz {

class Reader {
 public:
  Reader(const uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  bool done() const { return pos_ >= size_; }
  std::size_t left() const { return done() ? 0 : size_ - pos_; }
  uint8_t byte() { return done() ? 0 : data_[pos_++]; }
  uint32_t number();

 private:
  const uint8_t* data_;
  std::size_t size_;
  std::size_t pos_ = 0;
};

// The encoding of a number as Reader::number reads it (shortest form).
void encodeNumber(std::string& out, uint32_t value);

using Locking = qosapi::Locking;

struct Call;

struct Operation {
  std::string name;
  std::string kinds;  // one letter per C argument (header comment), O for outputs
  Locking locking = Locking::ByCaller;
  std::function<void(Call&)> run;  // decodes the inputs, then calls if allowed
};

// The client API in the order of tools/api/operations.def, then the harness's own steps (poke the
// bonding change store, write through a buffer the library handed out,
// change the platform's answers).
const std::vector<Operation>& operations();
const Operation* findOperation(const std::string& name);

// Decoding state of one call.
struct Call {
  Reader& in;
  uint8_t nullMask = 0;
  bool allowed = true;  // false: decode the inputs only
  int pointerIndex = 0;
  int pageIndex = 0;
  int32_t result = 0;
  bool nextPointerNull() { return (nullMask >> pointerIndex++) & 1u; }
};

// Starts an input: platform answers back to their defaults, nothing handed out.
void resetHarnessState();
// After a call: no guarded page lost its canary.
void checkPages();

}  // namespace fuzz
