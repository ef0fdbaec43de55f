// SPDX-License-Identifier: MIT
// out.h - writing to the caller's output arguments.
#pragma once

#include <cstdint>

namespace qos {

// Writes value at the width of the caller's output; -1 (nothing written)
// for a NULL output.
template <typename Out, typename Value>
int32_t writeOut(Out* out, Value value) {
  if (out == nullptr) return -1;
  *out = static_cast<Out>(value);
  return 0;
}

// A lookup's answer: the row found written to `out`, 0; -1 (nothing
// written) when no row was found. `out` has been checked by the caller.
inline int32_t writeRow(int32_t row, uint32_t* out) {
  if (row < 0) return -1;
  *out = static_cast<uint32_t>(row);
  return 0;
}

}  // namespace qos
