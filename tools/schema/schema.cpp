// SPDX-License-Identifier: MIT
// schema.cpp - the descriptions of the region's rows (schema.h).
#include "tools/schema/schema.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace qosschema {
namespace {

using namespace qos;

const Enumeration kSfState{{{QOS_SF_EMPTY, "empty"},
                            {QOS_SF_OPERATIONAL, "operational"},
                            {QOS_SF_ADDING, "adding"},
                            {QOS_SF_CHANGING, "changing"},
                            {QOS_SF_DELETING, "deleting"},
                            {QOS_SF_ADD_REJECTED, "addRejected"},
                            {QOS_SF_DELETED, "deleted"},
                            {QOS_SF_REFERENCED, "referenced"}}};
const Enumeration kClsfStatus{{{QOS_CLSF_EMPTY, "empty"},
                               {QOS_CLSF_OPERATIONAL, "operational"},
                               {QOS_CLSF_ADDING, "adding"},
                               {QOS_CLSF_CHANGING, "changing"},
                               {QOS_CLSF_DELETING, "deleting"},
                               {QOS_CLSF_PHS_PLACEHOLDER, "phsPlaceholder"}}};
const Enumeration kDirection{{{QOS_DIR_DOWNSTREAM, "down"}, {QOS_DIR_UPSTREAM, "up"}}};
const Enumeration kTaType{{{QOS_TA_DSA, "DSA"}, {QOS_TA_DSC, "DSC"}, {QOS_TA_DSD, "DSD"}}};
const Enumeration kInitiator{{{QOS_TA_BY_MODEM, "modem"}, {QOS_TA_BY_CMTS, "CMTS"}}};
const Enumeration kMapAction{{{0, "none"}, {QOS_MAP_ADD, "add"}, {QOS_MAP_DELETE, "del"}}};
const Enumeration kDbcAction{{{QOS_DBC_FROM_CLUSTER, "fromCluster"},
                              {QOS_DBC_CREATED, "created"},
                              {QOS_DBC_CLIENT_SET, "clientSet"},
                              {QOS_DBC_CLIENT_DELETE, "clientDelete"}}};

const Record kSf{"SfRow",
                 sizeof(SfRow),
                 {QOS_FIELD(SfRow, state).named(kSfState), QOS_FIELD(SfRow, sfId).as(Show::Hex), QOS_FIELD(SfRow, ref),
                  QOS_FIELD(SfRow, direction).named(kDirection), QOS_RESERVED(SfRow, pad11),
                  QOS_FIELD(SfRow, committed), QOS_FIELD(SfRow, sid).as(Show::Hex), QOS_RESERVED(SfRow, pad18),
                  QOS_FIELD(SfRow, sidClusterIndex), QOS_FIELD(SfRow, paramSetType).as(Show::ParamSet),
                  QOS_RESERVED(SfRow, pad25), QOS_FIELD(SfRow, taIndex).as(Show::TaLink),
                  QOS_FIELD(SfRow, heldTaIndex).as(Show::TaLink), QOS_RESERVED(SfRow, reserved36),
                  QOS_FIELD(SfRow, pairSfIndex), QOS_FIELD(SfRow, qosDbIndex), QOS_FIELD(SfRow, sidClusterCounter),
                  QOS_RESERVED(SfRow, pad49), QOS_FIELD(SfRow, clsfCounter), QOS_FIELD(SfRow, phsCounter),
                  QOS_FIELD(SfRow, appendedClsfCounter), QOS_RESERVED(SfRow, reserved64),
                  QOS_FIELD(SfRow, deletedClsfCounter), QOS_RESERVED(SfRow, reserved72)}};

const Record kClsf{"ClsfRow",
                   sizeof(ClsfRow),
                   {QOS_FIELD(ClsfRow, status).named(kClsfStatus), QOS_FIELD(ClsfRow, ref),
                    QOS_RESERVED(ClsfRow, reserved5), QOS_FIELD(ClsfRow, clsfId).as(Show::Hex),
                    QOS_FIELD(ClsfRow, sfRef), QOS_RESERVED(ClsfRow, reserved10), QOS_FIELD(ClsfRow, sfId).as(Show::Hex),
                    QOS_FIELD(ClsfRow, taIndex).as(Show::TaLink)}};

using Stats = QosIntDbStats;
const Record kStats{
    "QosIntDbStats",
    sizeof(Stats),
    {QOS_RESERVED(Stats, reserved0),
     QOS_FIELD(Stats, sfNumber).noted("free flow rows, as last counted"),
     QOS_FIELD(Stats, sfDbMaxIndex).noted("highest flow row that scans cover"),
     QOS_FIELD(Stats, clsfNumber).noted("not maintained (reads 0)"),
     QOS_FIELD(Stats, clsfDbMaxIndex).noted("highest classifier row that scans cover"),
     QOS_FIELD(Stats, clsfMaxNum).noted("upstream classifier limit of the registration check (< 1: off)"),
     QOS_FIELD(Stats, clusterNumber).noted("not maintained (reads 0)"),
     QOS_FIELD(Stats, clusterMaxNum).noted("SID cluster limit of the registration check"),
     QOS_FIELD(Stats, clusterDbMaxIndex).noted("highest SID cluster row ever taken"),
     QOS_RESERVED(Stats, reserved36),
     QOS_FIELD(Stats, activeSfExtraNumber).noted("active upstream flows besides the primary one"),
     QOS_FIELD(Stats, activeSfNumber).noted("active upstream flows"),
     QOS_FIELD(Stats, usPrimarySfRef).noted("reference of the primary upstream flow"),
     QOS_RESERVED(Stats, reserved50),
     QOS_RESERVED(Stats, reserved52),
     QOS_FIELD(Stats, dsPrimarySfRef).noted("reference of the primary downstream flow"),
     QOS_RESERVED(Stats, reserved58),
     QOS_RESERVED(Stats, reserved60)}};

const Record kMapping{"SidChannelMapping",
                      sizeof(SidChannelMapping),
                      {QOS_FIELD(SidChannelMapping, action).named(kMapAction).as(Show::Hidden),
                       QOS_FIELD(SidChannelMapping, ucid), QOS_RESERVED(SidChannelMapping, reserved),
                       QOS_FIELD(SidChannelMapping, sid).as(Show::Hex)}};

const Record kSidCluster{"SidClusterRow",
                         sizeof(SidClusterRow),
                         {QOS_FIELD(SidClusterRow, status), QOS_FIELD(SidClusterRow, sfId).as(Show::Hex),
                          QOS_FIELD(SidClusterRow, clusterId), QOS_RESERVED(SidClusterRow, reserved9),
                          QOS_FIELD(SidClusterRow, channels).of(kMapping)}};

const Record kSwitchover{"SwitchoverRow",
                         sizeof(SwitchoverRow),
                         {QOS_FIELD(SwitchoverRow, status), QOS_FIELD(SwitchoverRow, sfId).as(Show::Hex),
                          QOS_FIELD(SwitchoverRow, maxOutstandingBytes), QOS_FIELD(SwitchoverRow, maxTotalBytesRequested),
                          QOS_FIELD(SwitchoverRow, maxTimeInCluster), QOS_FIELD(SwitchoverRow, maxRequests),
                          QOS_RESERVED(SwitchoverRow, reserved19)}};

const Record kActiveSf{"ActiveSfRow",
                       sizeof(ActiveSfRow),
                       {QOS_FIELD(ActiveSfRow, status), QOS_FIELD(ActiveSfRow, sfId).as(Show::Hex),
                        QOS_FIELD(ActiveSfRow, releaseOrder)}};

const Record kActivePhs{"ActivePhsRow",
                        sizeof(ActivePhsRow),
                        {QOS_FIELD(ActivePhsRow, status), QOS_FIELD(ActivePhsRow, sfId).as(Show::Hex),
                         QOS_FIELD(ActivePhsRow, clsfId).as(Show::Hex), QOS_FIELD(ActivePhsRow, phsi).as(Show::Hex),
                         QOS_RESERVED(ActivePhsRow, reserved13), QOS_FIELD(ActivePhsRow, dsid).as(Show::Hex)}};

const Record kMsgError{"MsgErrorRecord",
                       sizeof(MsgErrorRecord),
                       {QOS_FIELD(MsgErrorRecord, confCode), QOS_FIELD(MsgErrorRecord, errorCode),
                        QOS_FIELD(MsgErrorRecord, errorType), QOS_FIELD(MsgErrorRecord, errorSubType),
                        QOS_FIELD(MsgErrorRecord, errorSubType2), QOS_FIELD(MsgErrorRecord, erroredSfId).as(Show::Hex)}};

const Record kMsgBuffer{"MsgBuffer",
                        sizeof(MsgBuffer),
                        {QOS_FIELD(MsgBuffer, data).asBytes().lengthIn("length"), QOS_FIELD(MsgBuffer, length)}};

const Record kMsg{"MsgRow",
                  sizeof(MsgRow),
                  {QOS_FIELD(MsgRow, req).of(kMsgBuffer), QOS_FIELD(MsgRow, rsp).of(kMsgBuffer),
                   QOS_FIELD(MsgRow, ack).of(kMsgBuffer)}};

const Record kTa{"TaRow",
                 sizeof(TaRow),
                 {QOS_FIELD(TaRow, rowStatus), QOS_FIELD(TaRow, taId).as(Show::Hex), QOS_RESERVED(TaRow, pad6),
                  QOS_FIELD(TaRow, type).named(kTaType), QOS_FIELD(TaRow, initiator).named(kInitiator),
                  QOS_RESERVED(TaRow, reserved16), QOS_FIELD(TaRow, smState).as(Show::Held),
                  QOS_FIELD(TaRow, retryCounter), QOS_RESERVED(TaRow, reserved28), QOS_RESERVED(TaRow, reserved32),
                  QOS_FIELD(TaRow, authLen), QOS_FIELD(TaRow, authBlock).asBytes().lengthIn("authLen"),
                  QOS_RESERVED(TaRow, pad295), QOS_FIELD(TaRow, subtype)}};

const Record kTaControl{"TaDbControl",
                        sizeof(TaDbControl),
                        {QOS_FIELD(TaDbControl, retryLimit).noted("retries allowed; read by nothing"),
                         QOS_FIELD(TaDbControl, taRowsUsed).noted("transaction rows used since the last table reset"),
                         QOS_FIELD(TaDbControl, lastCmTaId).as(Show::Hex).noted("last transaction ID of the modem"),
                         QOS_RESERVED(TaDbControl, pad10)}};

const Record kModMapping{"ModMapping",
                         sizeof(ModMapping),
                         {QOS_RESERVED(ModMapping, reserved), QOS_FIELD(ModMapping, sid).as(Show::Hex),
                          QOS_FIELD(ModMapping, ucid), QOS_RESERVED(ModMapping, reserved2)}};

const Record kModEntry{"QosDbcModEntry",
                       sizeof(QosDbcModEntry),
                       {QOS_FIELD(QosDbcModEntry, activeIndex), QOS_FIELD(QosDbcModEntry, sfId).as(Show::Hex),
                        QOS_FIELD(QosDbcModEntry, clusterId), QOS_FIELD(QosDbcModEntry, addCount),
                        QOS_RESERVED(QosDbcModEntry, reserved),
                        QOS_FIELD(QosDbcModEntry, addMaps).of(kModMapping).lengthIn("addCount"),
                        QOS_FIELD(QosDbcModEntry, deleteCount), QOS_RESERVED(QosDbcModEntry, reserved2),
                        QOS_FIELD(QosDbcModEntry, deleteMaps).of(kModMapping).lengthIn("deleteCount")}};

const Record kActiveEntry{"QosDbcActiveEntry",
                          sizeof(QosDbcActiveEntry),
                          {QOS_FIELD(QosDbcActiveEntry, activeSfIndex), QOS_FIELD(QosDbcActiveEntry, modIndex),
                           QOS_FIELD(QosDbcActiveEntry, sfId).as(Show::Hex), QOS_FIELD(QosDbcActiveEntry, clusterId),
                           QOS_RESERVED(QosDbcActiveEntry, reserved), QOS_FIELD(QosDbcActiveEntry, sid).as(Show::Hex),
                           QOS_RESERVED(QosDbcActiveEntry, reserved2), QOS_FIELD(QosDbcActiveEntry, portState),
                           QOS_FIELD(QosDbcActiveEntry, clusterAction).named(kDbcAction)}};

const Record kSfBitmap{"QosDbcSfBitmap",
                       sizeof(QosDbcSfBitmap),
                       {QOS_FIELD(QosDbcSfBitmap, sfId).as(Show::Hex),
                        QOS_FIELD(QosDbcSfBitmap, channelBitmap).as(Show::Hex), QOS_RESERVED(QosDbcSfBitmap, reserved)}};

const Record kDbc{"QosDbcDb",
                  sizeof(QosDbcDb),
                  {QOS_FIELD(QosDbcDb, modCount), QOS_FIELD(QosDbcDb, modDb).of(kModEntry).lengthIn("modCount"),
                   QOS_FIELD(QosDbcDb, activeCount),
                   QOS_FIELD(QosDbcDb, activeDb).of(kActiveEntry).lengthIn("activeCount"),
                   QOS_FIELD(QosDbcDb, bitmapCount),
                   QOS_FIELD(QosDbcDb, sfBitmaps).of(kSfBitmap).lengthIn("bitmapCount")}};

}  // namespace

const char* Enumeration::name(uint32_t value) const {
  for (const auto& [v, n] : values) {
    if (v == value) return n;
  }
  return nullptr;
}

const Field* Record::field(const std::string& wanted) const {
  for (const Field& f : fields) {
    if (wanted == f.name) return &f;
  }
  return nullptr;
}

const std::vector<Table>& tables() {
  using R = QosIntDbRegion;
  static const std::vector<Table> kTables = {
      {"sf", "Service flows", offsetof(R, sf), kSfRows, &kSf, "state"},
      {"clsf", "Classifiers", offsetof(R, clsf), kClsfRows, &kClsf, "status"},
      {"stats", "Statistics block", offsetof(R, stats), 1, &kStats, nullptr},
      {"sidClusters", "SID clusters", offsetof(R, sidClusters), kSidClusterRows, &kSidCluster, "status"},
      {"switchover", "SID cluster switchover criteria", offsetof(R, switchover), kSwitchoverRows, &kSwitchover,
       "status"},
      {"activeSf", "Active upstream flows", offsetof(R, activeSf), kActiveSfReserved, &kActiveSf, "status"},
      {"phsUs", "Active upstream PHS entries", offsetof(R, phsUs), kActivePhsReserved, &kActivePhs, "status"},
      {"phsDs", "Active downstream PHS entries", offsetof(R, phsDs), kActivePhsReserved, &kActivePhs, "status"},
      {"msgErrors", "DSX error records", offsetof(R, msgErrors), kMsgRows, &kMsgError, nullptr},
      {"msgs", "DSX messages", offsetof(R, msgs), kMsgRows, &kMsg, nullptr},
      {"ta", "DSX transactions", offsetof(R, ta), kTaRows, &kTa, "rowStatus"},
      {"taControl", "DSX transaction control", offsetof(R, taControl), 1, &kTaControl, nullptr},
      {"dbc", "Bonding change store", offsetof(R, dbc), 1, &kDbc, nullptr},
  };
  return kTables;
}

const Table& table(const std::string& name) {
  for (const Table& t : tables()) {
    if (name == t.name) return t;
  }
  throw std::out_of_range("no table " + name);
}

int64_t value(const Field& f, const uint8_t* row, std::size_t i) {
  const uint8_t* at = row + f.offset + i * f.width;
  auto read = [at](auto v) {
    std::memcpy(&v, at, sizeof v);
    return static_cast<int64_t>(v);
  };
  switch (f.type) {
    case Type::U8: return read(uint8_t{});
    case Type::U16: return read(uint16_t{});
    case Type::U32: return read(uint32_t{});
    case Type::I8: return read(int8_t{});
    case Type::I32: return read(int32_t{});
    default: return 0;
  }
}

std::size_t elementsInUse(const Record& r, const Field& f, const uint8_t* row) {
  if (f.lengthField == nullptr) return f.count;
  const int64_t n = value(*r.field(f.lengthField), row);  // row: where r starts
  return n < 0 ? 0 : std::min<std::size_t>(static_cast<std::size_t>(n), f.count);
}

bool used(const Table& t, const uint8_t* row) {
  return t.usedField == nullptr || value(*t.row->field(t.usedField), row) != 0;
}

namespace {

void swapRecord(const Record& r, uint8_t* at) {
  for (const Field& f : r.fields) {
    for (std::size_t i = 0; i < f.count; ++i) {
      uint8_t* element = at + f.offset + i * f.width;
      if (f.record != nullptr) {
        swapRecord(*f.record, element);
      } else if (f.type != Type::Record) {
        std::reverse(element, element + f.width);
      }
    }
  }
}

}  // namespace

void swapByteOrder(uint8_t* region) {
  for (const Table& t : tables()) {
    for (std::size_t i = 0; i < t.rows; ++i) swapRecord(*t.row, region + t.offset + i * t.row->size);
  }
}

namespace {

void addColumns(std::vector<Column>& out, const Record& r, std::size_t base, const std::string& prefix,
                const char* separator, bool flattenArrays) {
  for (const Field& f : r.fields) {
    if (f.reserved()) continue;
    Field at = f;
    at.offset += base;
    const std::string name = prefix + f.name;
    if (f.record != nullptr && f.count == 1) {
      addColumns(out, *f.record, at.offset, name + separator, separator, flattenArrays);
    } else if (flattenArrays && f.count > 1 && !f.bytes) {
      for (std::size_t i = 0; i < f.count; ++i) {
        Field one = at;
        one.offset += i * f.width;
        one.count = 1;
        one.lengthField = nullptr;
        if (f.record != nullptr) {
          addColumns(out, *f.record, one.offset, name + std::to_string(i) + separator, separator, flattenArrays);
        } else {
          out.push_back({name + std::to_string(i), one, base, &r});
        }
      }
    } else {
      out.push_back({name, at, base, &r});
    }
  }
}

}  // namespace

std::size_t Column::inUse(const uint8_t* row) const {
  if (field.lengthField == nullptr) return field.count;
  const int64_t n = value(*holder->field(field.lengthField), row + base);
  return n < 0 ? 0 : std::min<std::size_t>(static_cast<std::size_t>(n), field.count);
}

std::vector<Column> columns(const Record& r, const char* separator, bool flattenArrays) {
  std::vector<Column> out;
  addColumns(out, r, 0, "", separator, flattenArrays);
  return out;
}

}  // namespace qosschema
