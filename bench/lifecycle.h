// SPDX-License-Identifier: MIT
// lifecycle.h - one complete modem-initiated DSA, as a client runs it.
//
//   1. allocate a transaction row (qos_TaDb_AddNewTa locks by itself);
//   2. under the lock: store the DSA-REQ, add the flow by reference, add two
//      classifiers and one PHS rule by reference;
//   3. under the lock, when the DSA-RSP names the identifiers: find the flow
//      and its classifiers, set their SFID and classifier IDs, record the
//      success;
//   4. under the lock, when the hold time is over: end the transaction;
//   5. free the transaction row (qos_intDb_ResetTaDbRow locks by itself).
//
// Five holds of the lock; the flow and its classifiers stay, in force.
#pragma once

#include <cstdint>

namespace qosbench {

constexpr uint32_t kLifecycleFlowRef = 200;  // no flow of the full layout has it
constexpr uint32_t kLifecycleClsfRefs[2] = {1, 2};
constexpr uint32_t kLifecycleSfId = 0x9000;
constexpr uint32_t kLifecycleRequestLength = 120;

// The DSA-REQ the lifecycle stores.
const uint8_t* lifecycleRequest();

// Registers lmdb/DsaLifecycle/full (peer_lmdb.cpp) and
// sqlite-wal/DsaLifecycle/{empty,full} (peer_wal.cpp).
void registerLmdbLifecycle();
void registerWalLifecycle();

// Runs the lifecycle for a flow reference; the flow's SF DB index, or -1.
int32_t runDsaLifecycle(uint32_t flowRef, uint32_t sfId);

}  // namespace qosbench
