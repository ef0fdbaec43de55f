// SPDX-License-Identifier: MIT
// active/internal.h - what other subsystems may ask of the active upstream
// flow table and the active PHS tables (only active/ writes their rows).
#pragma once

#include <cstdint>

namespace qos {
namespace active {

// Every active flow entry that carries oldSfId, and every rule entry of
// the active PHS table of `direction` that does, takes newSfId.
void renameSfId(uint32_t oldSfId, uint32_t newSfId, uint8_t direction);

// Empties every active flow row (each remembering release order 1), both
// active PHS tables and the active flow counts of the statistics block.
void resetRows();

}  // namespace active
}  // namespace qos
