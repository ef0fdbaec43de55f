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

}  // namespace qos
