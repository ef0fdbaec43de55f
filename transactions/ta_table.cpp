// SPDX-License-Identifier: MIT
// ta_table.cpp - the DSX transaction table (DSX TA DB).
//
// One 300-byte row per dynamic service transaction in progress between the
// modem and the CMTS (DSA, DSC, DSD): its DOCSIS transaction ID, type,
// initiator, the caller's state-machine state, retransmission counter,
// subtype and authentication block. The row index, the TA DB index (0..9),
// is how flows and classifiers name the transaction and which message
// store row holds its messages. The table only keeps what callers put in
// it; the state machines run in the caller. Next to it, TaDbControl
// generates the 15-bit IDs of modem-initiated transactions, a sequence that
// runs on across table resets.
//
// Only this file writes transaction rows and TaDbControl; a row's message
// buffers are the message store's, which it asks to empty them. It reads
// no flow or classifier row. qos_TaDb_AddNewTa and qos_intDb_ResetTaDbRow
// take the lock themselves; every other operation runs under the caller's
// lock.
#include <cstdio>
#include <cstring>

#include "frame/log.h"
#include "frame/out.h"
#include "qosintdb.h"

using qos::local;
using qos::TaRow;

namespace {

constexpr uint32_t kFreeRowRetries = 3;
constexpr uint32_t kHighestState = 3;
constexpr uint16_t kTaIdMask = 0x7FFF;
constexpr int32_t kMessageOnlyRecord = 10;

// The values a row holds between transactions; padding is never written.
void resetTaRow(TaRow& row) {
  row.rowStatus = 0;
  row.taId = 0;
  row.type = QOS_TA_DSD;
  row.initiator = 0;
  row.reserved16 = 0;
  row.smState = 0;
  row.retryCounter = 0;
  row.reserved28 = -1;
  row.reserved32 = -1;
  row.authLen = 0;
  std::memset(row.authBlock, 0, sizeof row.authBlock);
  row.subtype = 0;
}

// Copies a used row's field; a free row or a NULL output gives -1.
int32_t readUsedField(uint32_t index, uint32_t* out, uint32_t TaRow::*field) {
  const TaRow& row = local.ta[index];
  if (out == nullptr || !row.used()) return -1;
  *out = row.*field;
  return 0;
}

}  // namespace

extern "C" {

int32_t qos_TaDb_AddNewTa(uint32_t taId, uint32_t type, uint32_t initiator, uint32_t authLen,
                          const uint8_t* authData, uint32_t* taIndex) {
  QOS_REQUIRE_TA_DB(-1);
  if (authLen > qos::kAuthBlockSize) return -1;
  if (taIndex == nullptr || (authLen != 0 && authData == nullptr)) return -1;

  // Search, reset and claim within one hold of the lock, so that two
  // processes never get the same row.
  qos_taDb_Lock();
  int32_t i = local.ta.find([](const TaRow& r) { return !r.used(); });
  if (i < 0) {
    qos_taDb_Unlock();
    QOS_LOG_AS("qos_TaDb_FindFreeTaIndex", QOS_MODULE_TABLES, QOS_LOG_ERROR,
               "%s: DSX TA DB is full. Cannot allocate new TA index for CM DSX message",
               "qos_TaDb_FindFreeTaIndex");
    return -1;
  }
  TaRow& row = local.ta[i];
  resetTaRow(row);
  qos_intDb_MsgResetTaBuffer(static_cast<uint32_t>(i));
  row.rowStatus = 1;
  qos::TaDbControl& control = *local.taControl;
  if (static_cast<uint32_t>(i) >= control.taRowsUsed) control.taRowsUsed++;
  if (initiator == QOS_TA_BY_MODEM) {
    control.lastCmTaId = static_cast<uint16_t>((control.lastCmTaId + 1) & kTaIdMask);
    row.taId = control.lastCmTaId;
  } else {
    row.taId = static_cast<uint16_t>(taId);
  }
  row.type = type;
  row.initiator = initiator;
  row.authLen = authLen;
  if (authLen != 0) std::memcpy(row.authBlock, authData, authLen);
  qos_intDb_MsgResetTaBuffer(static_cast<uint32_t>(i));
  qos_taDb_Unlock();

  *taIndex = static_cast<uint32_t>(i);
  return 0;
}

int32_t qos_TaDb_FindTaIndexByTaId(uint32_t taId, uint32_t* taIndex) {
  QOS_REQUIRE_TA_DB(-1);
  if (taId == 0 || taIndex == nullptr) {
    QOS_LOG(QOS_LOG_ERROR, "%s: incorrect input parameters TA ID = %d pTaIndex = 0x%x", __func__,
            static_cast<int>(taId), static_cast<unsigned>(reinterpret_cast<uintptr_t>(taIndex)));
    return -1;
  }
  return qos::writeRow(local.ta.find([taId](const TaRow& r) { return r.used() && r.taId == taId; }), taIndex);
}

int32_t qos_TaDb_GetTaId(uint32_t taIndex, uint16_t* taId) {
  QOS_REQUIRE_TA_ROW(taIndex, -1);
  if (taId == nullptr) return -1;
  *taId = local.ta[taIndex].taId;
  return local.ta[taIndex].used() ? 0 : -1;
}

int32_t qos_TaDb_GetTaType(uint32_t taIndex, uint32_t* type) {
  QOS_REQUIRE_TA_ROW(taIndex, -1);
  return readUsedField(taIndex, type, &TaRow::type);
}

int32_t qos_TaDb_GetTaInitiator(uint32_t taIndex, uint32_t* initiator) {
  QOS_REQUIRE_TA_ROW(taIndex, -1);
  return readUsedField(taIndex, initiator, &TaRow::initiator);
}

int32_t qos_TaDb_GetTaSubtype(uint32_t taIndex, uint32_t* subtype) {
  QOS_REQUIRE_TA_ROW(taIndex, -1);
  return readUsedField(taIndex, subtype, &TaRow::subtype);
}

int32_t qos_TaDb_SetTaSubtype(uint32_t taIndex, uint32_t subtype) {
  QOS_REQUIRE_TA_ROW(taIndex, -1);
  local.ta[taIndex].subtype = subtype;
  return 0;
}

int32_t qos_TaDb_SetTaDbState(uint32_t taIndex, uint32_t state) {
  QOS_REQUIRE_TA_ROW(taIndex, -1);
  if (state > kHighestState) return -1;
  local.ta[taIndex].smState = state;
  return 0;
}

int32_t qos_TaDb_GetTaDbState(uint32_t taIndex, uint32_t* state) {
  QOS_REQUIRE_TA_ROW(taIndex, -1);
  if (state == nullptr) return -1;
  *state = local.ta[taIndex].smState;
  return local.ta[taIndex].used() ? 0 : -1;
}

int32_t qos_TaDb_IsTaHeld(uint32_t taIndex, uint32_t* held) {
  QOS_REQUIRE_TA_ROW(taIndex, -1);
  if (held == nullptr) return -1;
  uint32_t state = local.ta[taIndex].smState;
  *held = (state == 2 || state == 3) ? 1 : 0;
  return 0;
}

int32_t qos_TaDb_ResetRetCounter(uint32_t taIndex) {
  QOS_REQUIRE_TA_ROW(taIndex, -1);
  if (!local.ta[taIndex].used()) return -1;
  local.ta[taIndex].retryCounter = 0;
  return 0;
}

int32_t qos_TaDb_IncRetCounter(uint32_t taIndex) {
  QOS_REQUIRE_TA_ROW(taIndex, -1);
  if (!local.ta[taIndex].used()) return -1;
  local.ta[taIndex].retryCounter++;
  return 0;
}

int32_t qos_TaDb_GetRetCounter(uint32_t taIndex, uint32_t* retries) {
  QOS_REQUIRE_TA_ROW(taIndex, -1);
  if (retries == nullptr) return -1;
  if (!local.ta[taIndex].used()) {
    *retries = kFreeRowRetries;
    return -1;
  }
  *retries = local.ta[taIndex].retryCounter;
  return 0;
}

// A block longer than the row's 255 bytes is refused, as the allocation does.
int32_t qos_TaDb_SetTaAuthBlock(uint32_t taIndex, uint32_t authLen, const uint8_t* authData) {
  QOS_REQUIRE_TA_ROW(taIndex, -1);
  if (authLen > qos::kAuthBlockSize) return -1;
  if (authLen != 0 && authData == nullptr) return -1;
  TaRow& row = local.ta[taIndex];
  row.authLen = authLen;
  if (authLen != 0) std::memmove(row.authBlock, authData, authLen);
  return 0;
}

int32_t qos_TaDb_GetTaAuthBlock(uint32_t taIndex, uint32_t* authLen, uint8_t** authData) {
  QOS_REQUIRE_TA_ROW(taIndex, -1);
  if (authLen == nullptr || authData == nullptr) return -1;
  *authLen = local.ta[taIndex].authLen;
  *authData = local.ta[taIndex].authBlock;
  return 0;
}

int32_t qos_TaDb_CompareTaStates(uint32_t taIndexA, uint32_t taIndexB) {
  QOS_REQUIRE_TA_DB(-1);
  QOS_REQUIRE_TA_INDEX(taIndexA, -1);
  QOS_REQUIRE_TA_INDEX(taIndexB, -1);
  return 0;
}

int32_t qos_TaDb_CheckTaConflict(uint32_t taIndexA, uint32_t taIndexB) {
  QOS_REQUIRE_TA_DB(-1);
  QOS_REQUIRE_TA_INDEX(taIndexA, -1);
  QOS_REQUIRE_TA_INDEX(taIndexB, -1);
  return 0;
}

// Index 10 has a message record but no transaction row: only the record
// is reset then.
void qos_intDb_ResetTaDbRow(int32_t taIndex) {
  if (!local.taDbReady || taIndex < 0 || taIndex > kMessageOnlyRecord) return;
  qos_taDb_Lock();
  if (taIndex < kMessageOnlyRecord) resetTaRow(local.ta[taIndex]);
  qos_intDb_MsgResetTaBuffer(static_cast<uint32_t>(taIndex));
  qos_taDb_Unlock();
}

void qos_intDb_TaDb_reset(void) {
  if (!local.taDbReady) return;
  for (int32_t i = 0; i < static_cast<int32_t>(qos::kTaRows); ++i) qos_intDb_ResetTaDbRow(i);
  local.taControl->retryLimit = 3;
  local.taControl->taRowsUsed = 0;
}

int32_t qos_TaDb_printDb(void) {
  QOS_REQUIRE_TA_DB(-1);
  std::puts("  DSX transaction data base: \n");
  for (uint32_t i = 0; i < qos::kTaRows; ++i) {
    const TaRow& row = local.ta[i];
    if (!row.used()) continue;
    std::printf(
        "TA DB idx = %-2d  Row status = %d TA ID = 0x%-8x  Type = %d SubType = %d  Initiated by %d"
        "  SM State = %d  Retry = %d\n",
        static_cast<int>(i), static_cast<int>(row.rowStatus), static_cast<unsigned>(row.taId),
        static_cast<int>(row.type), static_cast<int>(row.subtype), static_cast<int>(row.initiator),
        static_cast<int>(row.smState), static_cast<int>(row.retryCounter));
  }
  return 0;
}

}  // extern "C"
