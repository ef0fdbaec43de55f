// SPDX-License-Identifier: MIT
// region.h - the shared region of the QoS internal database, byte for byte.
//
// Every process of the modem stack maps the same 85032 bytes and reads the
// rows in place, so this layout is an interface between processes: one
// struct per row, fields in order, each offset and size checked at compile
// time. Operations reach rows through the typed views of frame/table.h and
// never compute an offset by hand. Multi-byte fields are in the host's byte
// order at natural alignment (big-endian on the modem).
#pragma once

#include <cstddef>
#include <cstdint>

#include "qosintdb.h"

namespace qos {

// ---- Service flow row (SF int DB), 128 x 80 bytes at offset 0 ----------
struct SfRow {
  uint32_t state;         // SfState
  uint32_t sfId;          // 0 until known
  uint16_t ref;           // service flow reference
  uint8_t direction;      // 1 downstream, 2 upstream
  uint8_t pad11;
  uint32_t committed;     // 1 after DSA/DSC success, 0 after DSD end
  uint16_t sid;           // upstream Service ID
  uint16_t pad18;
  uint32_t sidClusterIndex;
  uint8_t paramSetType;   // QOS_PARAMSET_* bits
  uint8_t pad25[3];
  int32_t taIndex;        // transaction working on the flow, -1 none
  int32_t heldTaIndex;    // transaction holding the flow, -1 none
  uint32_t reserved36;
  int32_t pairSfIndex;
  int32_t qosDbIndex;     // index in the caller's main QoS database
  int8_t sidClusterCounter;
  uint8_t pad49[3];
  uint32_t clsfCounter;
  uint32_t phsCounter;
  uint32_t appendedClsfCounter;
  uint32_t reserved64;
  uint32_t deletedClsfCounter;
  uint8_t reserved72[8];

  bool used() const { return state != QOS_SF_EMPTY; }
};
static_assert(offsetof(SfRow, state) == 0, "SfRow.state");
static_assert(offsetof(SfRow, sfId) == 4, "SfRow.sfId");
static_assert(offsetof(SfRow, ref) == 8, "SfRow.ref");
static_assert(offsetof(SfRow, direction) == 10, "SfRow.direction");
static_assert(offsetof(SfRow, committed) == 12, "SfRow.committed");
static_assert(offsetof(SfRow, sid) == 16, "SfRow.sid");
static_assert(offsetof(SfRow, sidClusterIndex) == 20, "SfRow.sidClusterIndex");
static_assert(offsetof(SfRow, paramSetType) == 24, "SfRow.paramSetType");
static_assert(offsetof(SfRow, taIndex) == 28, "SfRow.taIndex");
static_assert(offsetof(SfRow, heldTaIndex) == 32, "SfRow.heldTaIndex");
static_assert(offsetof(SfRow, reserved36) == 36, "SfRow.reserved36");
static_assert(offsetof(SfRow, pairSfIndex) == 40, "SfRow.pairSfIndex");
static_assert(offsetof(SfRow, qosDbIndex) == 44, "SfRow.qosDbIndex");
static_assert(offsetof(SfRow, sidClusterCounter) == 48, "SfRow.sidClusterCounter");
static_assert(offsetof(SfRow, clsfCounter) == 52, "SfRow.clsfCounter");
static_assert(offsetof(SfRow, phsCounter) == 56, "SfRow.phsCounter");
static_assert(offsetof(SfRow, appendedClsfCounter) == 60, "SfRow.appendedClsfCounter");
static_assert(offsetof(SfRow, reserved64) == 64, "SfRow.reserved64");
static_assert(offsetof(SfRow, deletedClsfCounter) == 68, "SfRow.deletedClsfCounter");
static_assert(offsetof(SfRow, reserved72) == 72, "SfRow.reserved72");
static_assert(sizeof(SfRow) == 80, "SfRow is 80 bytes");

// ---- Classifier row (Clsf int DB), 320 x 20 bytes at offset 10240 ------
struct ClsfRow {
  uint32_t status;   // ClsfStatus
  uint8_t ref;       // classifier reference
  uint8_t reserved5;
  uint16_t clsfId;   // classifier identifier, 0 = not known yet
  uint16_t sfRef;    // reference of the owning flow
  uint16_t reserved10;
  uint32_t sfId;     // SFID of the owning flow, 0 = not known yet
  int32_t taIndex;   // transaction working on the row, -1 none

  bool used() const { return status != QOS_CLSF_EMPTY; }
};
static_assert(offsetof(ClsfRow, status) == 0, "ClsfRow.status");
static_assert(offsetof(ClsfRow, ref) == 4, "ClsfRow.ref");
static_assert(offsetof(ClsfRow, reserved5) == 5, "ClsfRow.reserved5");
static_assert(offsetof(ClsfRow, clsfId) == 6, "ClsfRow.clsfId");
static_assert(offsetof(ClsfRow, sfRef) == 8, "ClsfRow.sfRef");
static_assert(offsetof(ClsfRow, reserved10) == 10, "ClsfRow.reserved10");
static_assert(offsetof(ClsfRow, sfId) == 12, "ClsfRow.sfId");
static_assert(offsetof(ClsfRow, taIndex) == 16, "ClsfRow.taIndex");
static_assert(sizeof(ClsfRow) == 20, "ClsfRow is 20 bytes");

// ---- Statistics block, 64 bytes at offset 16640 -------------------------
struct QosIntDbStats {
  uint32_t reserved0;
  uint32_t sfNumber;           // free SF rows, as last counted
  int32_t sfDbMaxIndex;        // highest SF row that scans cover
  uint32_t clsfNumber;         // never maintained: reads 0
  int32_t clsfDbMaxIndex;      // highest classifier row that scans cover
  int32_t clsfMaxNum;          // upstream classifier limit, < 1 switches it off
  uint32_t clusterNumber;      // never maintained: reads 0
  uint32_t clusterMaxNum;      // SID cluster limit, at most 79
  int32_t clusterDbMaxIndex;   // high-water SID cluster row
  uint32_t reserved36;
  uint32_t activeSfExtraNumber;  // activeSfNumber - 1
  uint32_t activeSfNumber;       // active upstream flows
  uint16_t usPrimarySfRef;
  uint16_t reserved50;
  uint32_t reserved52;
  uint16_t dsPrimarySfRef;
  uint16_t reserved58;
  uint32_t reserved60;
};
static_assert(offsetof(QosIntDbStats, sfNumber) == 4, "stats.sfNumber");
static_assert(offsetof(QosIntDbStats, sfDbMaxIndex) == 8, "stats.sfDbMaxIndex");
static_assert(offsetof(QosIntDbStats, clsfNumber) == 12, "stats.clsfNumber");
static_assert(offsetof(QosIntDbStats, clsfDbMaxIndex) == 16, "stats.clsfDbMaxIndex");
static_assert(offsetof(QosIntDbStats, clsfMaxNum) == 20, "stats.clsfMaxNum");
static_assert(offsetof(QosIntDbStats, clusterNumber) == 24, "stats.clusterNumber");
static_assert(offsetof(QosIntDbStats, clusterMaxNum) == 28, "stats.clusterMaxNum");
static_assert(offsetof(QosIntDbStats, clusterDbMaxIndex) == 32, "stats.clusterDbMaxIndex");
static_assert(offsetof(QosIntDbStats, reserved36) == 36, "stats.reserved36");
static_assert(offsetof(QosIntDbStats, activeSfExtraNumber) == 40, "stats.activeSfExtraNumber");
static_assert(offsetof(QosIntDbStats, activeSfNumber) == 44, "stats.activeSfNumber");
static_assert(offsetof(QosIntDbStats, usPrimarySfRef) == 48, "stats.usPrimarySfRef");
static_assert(offsetof(QosIntDbStats, reserved52) == 52, "stats.reserved52");
static_assert(offsetof(QosIntDbStats, dsPrimarySfRef) == 56, "stats.dsPrimarySfRef");
static_assert(offsetof(QosIntDbStats, reserved60) == 60, "stats.reserved60");
static_assert(sizeof(QosIntDbStats) == 64, "QosIntDbStats is 64 bytes");

// ---- SID cluster row, 79 x 44 bytes at offset 16704 ---------------------
struct SidClusterRow {
  uint32_t status;  // 0 free, 1 in use
  uint32_t sfId;
  uint8_t clusterId;
  uint8_t reserved9[3];
  SidChannelMapping channels[QOS_CHANNELS_PER_CLUSTER];  // entry i = port i+1

  bool used() const { return status != 0; }
};
static_assert(offsetof(SidChannelMapping, action) == 0, "SidChannelMapping.action");
static_assert(offsetof(SidChannelMapping, ucid) == 4, "SidChannelMapping.ucid");
static_assert(offsetof(SidChannelMapping, sid) == 6, "SidChannelMapping.sid");
static_assert(offsetof(SidClusterRow, sfId) == 4, "SidClusterRow.sfId");
static_assert(offsetof(SidClusterRow, clusterId) == 8, "SidClusterRow.clusterId");
static_assert(offsetof(SidClusterRow, channels) == 12, "SidClusterRow.channels");
static_assert(sizeof(SidClusterRow) == 44, "SidClusterRow is 44 bytes");

// ---- SID cluster switchover row, 64 x 20 bytes at offset 20180 ----------
struct SwitchoverRow {
  uint32_t status;  // 0 free, 1 in use
  uint32_t sfId;
  uint32_t maxOutstandingBytes;
  uint32_t maxTotalBytesRequested;
  uint16_t maxTimeInCluster;
  uint8_t maxRequests;
  uint8_t reserved19;

  bool used() const { return status != 0; }
};
static_assert(offsetof(SwitchoverRow, sfId) == 4, "SwitchoverRow.sfId");
static_assert(offsetof(SwitchoverRow, maxOutstandingBytes) == 8, "SwitchoverRow.maxOutstandingBytes");
static_assert(offsetof(SwitchoverRow, maxTotalBytesRequested) == 12, "SwitchoverRow.maxTotalBytesRequested");
static_assert(offsetof(SwitchoverRow, maxTimeInCluster) == 16, "SwitchoverRow.maxTimeInCluster");
static_assert(offsetof(SwitchoverRow, maxRequests) == 18, "SwitchoverRow.maxRequests");
static_assert(sizeof(SwitchoverRow) == 20, "SwitchoverRow is 20 bytes");

// ---- Active upstream flow row, 64 x 12 bytes at offset 21460 -------------
struct ActiveSfRow {
  uint32_t status;       // 0 free, 1 in use
  uint32_t sfId;
  int32_t releaseOrder;  // reuse order of a free row; 0 while in use

  bool used() const { return status != 0; }
};
static_assert(offsetof(ActiveSfRow, sfId) == 4, "ActiveSfRow.sfId");
static_assert(offsetof(ActiveSfRow, releaseOrder) == 8, "ActiveSfRow.releaseOrder");
static_assert(sizeof(ActiveSfRow) == 12, "ActiveSfRow is 12 bytes");

// ---- Active PHS row, 34 x 20 bytes per direction at 22228 / 22908 --------
struct ActivePhsRow {
  uint32_t status;  // 0 free, 1 in use
  uint32_t sfId;    // 0xFFFFFFFF in a DSID entry
  uint32_t clsfId;  // 0xFFFFFFFF in a DSID entry
  uint8_t phsi;     // 255 in a DSID entry
  uint8_t reserved13[3];
  uint32_t dsid;    // 0 in a rule entry

  bool used() const { return status != 0; }
};
static_assert(offsetof(ActivePhsRow, sfId) == 4, "ActivePhsRow.sfId");
static_assert(offsetof(ActivePhsRow, clsfId) == 8, "ActivePhsRow.clsfId");
static_assert(offsetof(ActivePhsRow, phsi) == 12, "ActivePhsRow.phsi");
static_assert(offsetof(ActivePhsRow, dsid) == 16, "ActivePhsRow.dsid");
static_assert(sizeof(ActivePhsRow) == 20, "ActivePhsRow is 20 bytes");

// ---- DSX error record, 11 x 24 bytes at offset 23588 ---------------------
struct MsgErrorRecord {
  uint32_t confCode;
  uint32_t errorCode;
  uint32_t errorType;
  uint32_t errorSubType;
  uint32_t errorSubType2;
  uint32_t erroredSfId;
};
static_assert(offsetof(MsgErrorRecord, errorCode) == 4, "MsgErrorRecord.errorCode");
static_assert(offsetof(MsgErrorRecord, errorType) == 8, "MsgErrorRecord.errorType");
static_assert(offsetof(MsgErrorRecord, errorSubType) == 12, "MsgErrorRecord.errorSubType");
static_assert(offsetof(MsgErrorRecord, errorSubType2) == 16, "MsgErrorRecord.errorSubType2");
static_assert(offsetof(MsgErrorRecord, erroredSfId) == 20, "MsgErrorRecord.erroredSfId");
static_assert(sizeof(MsgErrorRecord) == 24, "MsgErrorRecord is 24 bytes");

// ---- DSX message row, 11 x 4812 bytes at offset 23852 -------------------
struct MsgBuffer {
  uint8_t data[QOS_MSG_BUFFER_SIZE];
  uint32_t length;  // valid bytes, at most 1599
};
static_assert(offsetof(MsgBuffer, length) == 1600, "MsgBuffer.length");
static_assert(sizeof(MsgBuffer) == 1604, "MsgBuffer is 1604 bytes");

struct MsgRow {
  MsgBuffer req;
  MsgBuffer rsp;
  MsgBuffer ack;
};
static_assert(offsetof(MsgRow, req) == 0, "MsgRow.req");
static_assert(offsetof(MsgRow, rsp) == 1604, "MsgRow.rsp");
static_assert(offsetof(MsgRow, ack) == 3208, "MsgRow.ack");
static_assert(offsetof(MsgRow, ack) + offsetof(MsgBuffer, length) == 4808, "MsgRow.ack.length");
static_assert(sizeof(MsgRow) == 4812, "MsgRow is 4812 bytes");

// ---- DSX transaction row, 10 x 300 bytes at offset 76784 ----------------
struct TaRow {
  uint32_t rowStatus;  // 0 free, 1 in use
  uint16_t taId;
  uint16_t pad6;
  uint32_t type;       // QOS_TA_DSA / DSC / DSD
  uint32_t initiator;  // 0 the modem, else the CMTS
  uint32_t reserved16;
  uint32_t smState;    // caller's state machine; 2 and 3 mean held
  uint32_t retryCounter;
  int32_t reserved28;
  int32_t reserved32;
  uint32_t authLen;
  uint8_t authBlock[QOS_AUTH_BLOCK_SIZE];
  uint8_t pad295;
  uint32_t subtype;

  bool used() const { return rowStatus != 0; }
};
static_assert(offsetof(TaRow, taId) == 4, "TaRow.taId");
static_assert(offsetof(TaRow, type) == 8, "TaRow.type");
static_assert(offsetof(TaRow, initiator) == 12, "TaRow.initiator");
static_assert(offsetof(TaRow, reserved16) == 16, "TaRow.reserved16");
static_assert(offsetof(TaRow, smState) == 20, "TaRow.smState");
static_assert(offsetof(TaRow, retryCounter) == 24, "TaRow.retryCounter");
static_assert(offsetof(TaRow, reserved28) == 28, "TaRow.reserved28");
static_assert(offsetof(TaRow, reserved32) == 32, "TaRow.reserved32");
static_assert(offsetof(TaRow, authLen) == 36, "TaRow.authLen");
static_assert(offsetof(TaRow, authBlock) == 40, "TaRow.authBlock");
static_assert(offsetof(TaRow, pad295) == 295, "TaRow.pad295");
static_assert(offsetof(TaRow, subtype) == 296, "TaRow.subtype");
static_assert(sizeof(TaRow) == 300, "TaRow is 300 bytes");

// ---- Transaction table control words, 12 bytes at offset 79784 ----------
struct TaDbControl {
  uint32_t retryLimit;  // 3 after a table reset; read by nothing
  uint32_t taRowsUsed;  // high-water count since the last table reset
  uint16_t lastCmTaId;  // last generated modem transaction ID (15 bits)
  uint16_t pad10;
};
static_assert(offsetof(TaDbControl, taRowsUsed) == 4, "TaDbControl.taRowsUsed");
static_assert(offsetof(TaDbControl, lastCmTaId) == 8, "TaDbControl.lastCmTaId");
static_assert(sizeof(TaDbControl) == 12, "TaDbControl is 12 bytes");

// ---- Bonding change store, 5236 bytes at offset 79796 (public records) --
static_assert(offsetof(ModMapping, sid) == 4, "ModMapping.sid");
static_assert(offsetof(ModMapping, ucid) == 6, "ModMapping.ucid");
static_assert(offsetof(QosDbcModEntry, sfId) == 4, "ModDb.sfId");
static_assert(offsetof(QosDbcModEntry, clusterId) == 8, "ModDb.clusterId");
static_assert(offsetof(QosDbcModEntry, addCount) == 9, "ModDb.addCount");
static_assert(offsetof(QosDbcModEntry, addMaps) == 12, "ModDb.addMaps");
static_assert(offsetof(QosDbcModEntry, deleteCount) == 44, "ModDb.deleteCount");
static_assert(offsetof(QosDbcModEntry, deleteMaps) == 48, "ModDb.deleteMaps");
static_assert(offsetof(QosDbcActiveEntry, modIndex) == 4, "ActiveDb.modIndex");
static_assert(offsetof(QosDbcActiveEntry, sfId) == 8, "ActiveDb.sfId");
static_assert(offsetof(QosDbcActiveEntry, clusterId) == 12, "ActiveDb.clusterId");
static_assert(offsetof(QosDbcActiveEntry, sid) == 14, "ActiveDb.sid");
static_assert(offsetof(QosDbcActiveEntry, portState) == 24, "ActiveDb.portState");
static_assert(offsetof(QosDbcActiveEntry, clusterAction) == 40, "ActiveDb.clusterAction");
static_assert(offsetof(QosDbcSfBitmap, channelBitmap) == 4, "SfBitmap.channelBitmap");
static_assert(offsetof(QosDbcDb, modDb) == 4, "QosDbcDb.modDb");
static_assert(offsetof(QosDbcDb, activeCount) == 3044, "QosDbcDb.activeCount");
static_assert(offsetof(QosDbcDb, activeDb) == 3048, "QosDbcDb.activeDb");
static_assert(offsetof(QosDbcDb, bitmapCount) == 4720, "QosDbcDb.bitmapCount");
static_assert(offsetof(QosDbcDb, sfBitmaps) == 4724, "QosDbcDb.sfBitmaps");

// ---- Table sizes as the region reserves them ------------------------------
inline constexpr std::size_t kSfRows = QOS_SF_ROWS;
inline constexpr std::size_t kClsfRows = QOS_CLSF_ROWS;
inline constexpr std::size_t kSidClusterRows = QOS_SID_CLUSTER_ROWS;
inline constexpr std::size_t kSwitchoverRows = QOS_SWITCHOVER_ROWS;
inline constexpr std::size_t kActiveSfReserved = 64;   // rows 0..31 are used
inline constexpr std::size_t kActivePhsReserved = 34;  // rows 0..31 are used
inline constexpr std::size_t kMsgRows = QOS_MSG_ROWS;
inline constexpr std::size_t kTaRows = QOS_TA_ROWS;
inline constexpr uint32_t kMsgBufferSize = QOS_MSG_BUFFER_SIZE;  // holds at most 1599 bytes
inline constexpr uint32_t kAuthBlockSize = QOS_AUTH_BLOCK_SIZE;

// ---- The whole region ----------------------------------------------------
struct QosIntDbRegion {
  SfRow sf[kSfRows];
  ClsfRow clsf[kClsfRows];
  QosIntDbStats stats;
  SidClusterRow sidClusters[kSidClusterRows];
  SwitchoverRow switchover[kSwitchoverRows];
  ActiveSfRow activeSf[kActiveSfReserved];
  ActivePhsRow phsUs[kActivePhsReserved];
  ActivePhsRow phsDs[kActivePhsReserved];
  MsgErrorRecord msgErrors[kMsgRows];
  MsgRow msgs[kMsgRows];
  TaRow ta[kTaRows];
  TaDbControl taControl;
  QosDbcDb dbc;
};
static_assert(offsetof(QosIntDbRegion, sf) == 0, "region: SF int DB");
static_assert(offsetof(QosIntDbRegion, clsf) == 10240, "region: Clsf int DB");
static_assert(offsetof(QosIntDbRegion, stats) == 16640, "region: statistics");
static_assert(offsetof(QosIntDbRegion, sidClusters) == 16704, "region: SID clusters");
static_assert(offsetof(QosIntDbRegion, switchover) == 20180, "region: switchover");
static_assert(offsetof(QosIntDbRegion, activeSf) == 21460, "region: active SF DB");
static_assert(offsetof(QosIntDbRegion, phsUs) == 22228, "region: active US PHS");
static_assert(offsetof(QosIntDbRegion, phsDs) == 22908, "region: active DS PHS");
static_assert(offsetof(QosIntDbRegion, msgErrors) == 23588, "region: error records");
static_assert(offsetof(QosIntDbRegion, msgs) == 23852, "region: message buffers");
static_assert(offsetof(QosIntDbRegion, ta) == 76784, "region: DSX TA DB");
static_assert(offsetof(QosIntDbRegion, taControl) == 79784, "region: TaDbControl");
static_assert(offsetof(QosIntDbRegion, dbc) == 79796, "region: QosDBC DB");
static_assert(sizeof(QosIntDbRegion) == QOS_REGION_SIZE, "region is 85032 bytes");

}  // namespace qos
