// SPDX-License-Identifier: MIT
// operations.cpp - adds, attributes, outcomes, the registration check, SFID
// substitution, the active table fill, the SNMP walks and the message store.
#include <array>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "qosintdb.h"
#include "qosplatform_host.h"
#include "store.h"
#include "timing.h"

namespace qosbench {
namespace {

using qos::ClsfRow;
using qos::SfRow;

constexpr Tables kBoth[] = {Tables::kEmpty, Tables::kFull};
constexpr uint32_t kNewSfId = 0x8000;
constexpr uint32_t kNewRef = 300;
constexpr uint32_t kNewClsfRef = 250;
constexpr uint32_t kNewClsfId = 0x700;

std::string named(const char* op, Tables t) { return std::string("lib/") + op + "/" + tablesName(t); }

// An active upstream flow in row 0 of an otherwise empty flow table: what
// the fill and the active table add need to find.
void oneActiveFlow() {
  SfRow& f = region().sf[0];
  f.state = QOS_SF_OPERATIONAL;
  f.sfId = kNewSfId;
  f.ref = 1;
  f.direction = QOS_DIR_UPSTREAM;
  f.paramSetType = QOS_PARAMSET_ACTIVE;
}

// ---- Adds --------------------------------------------------------------------
// Each add names a flow and classifier the tables do not hold yet, so it
// scans every used row and then takes new ones (in the full layout: the
// rows transaction 9 left free at the end of each table).

struct Add {
  const char* name;
  std::function<int32_t()> op;
  std::function<void(Tables)> prepare;  // beyond the layout, may be empty
};

std::vector<Add> adds() {
  static const SidChannelMapping channels[4] = {{0, 1, 0, 11}, {0, 2, 0, 12}, {0, 3, 0, 13}, {0, 4, 0, 14}};
  return {
      {"AddSf", [] { return qos_intDb_AddSf(kNewSfId, kNewRef, QOS_DIR_UPSTREAM); }, {}},
      {"AddSfReference", [] { return qos_intDb_AddSfReference(kNewRef, QOS_DIR_UPSTREAM, kOutcomeTa); }, {}},
      {"AddSfId", [] { return qos_intDb_AddSfId(kNewSfId, QOS_DIR_UPSTREAM, kOutcomeTa); }, {}},
      {"AddClsf", [] { return qos_intDb_AddClsf(kNewSfId, kNewRef, kNewClsfRef); }, {}},
      {"AddClsfRef", [] { return qos_intDb_AddClsfRef(kNewRef, kNewClsfRef, kOutcomeTa); }, {}},
      {"AddClsfId", [] { return qos_intDb_AddClsfId(kNewSfId, kNewClsfId, kOutcomeTa); }, {}},
      {"AddPhs", [] { return qos_intDb_AddPhs(kNewRef, kNewClsfRef); }, {}},
      {"AddPhsRef", [] { return qos_intDb_AddPhsRef(kNewRef, kNewClsfRef, kOutcomeTa); }, {}},
      {"AddPhsId", [] { return qos_intDb_AddPhsId(kNewSfId, kNewClsfId, kOutcomeTa); }, {}},
      {"AddSfSidCluster", [] { return qos_intDb_AddSfSidCluster(kNewSfId, 1, channels); }, {}},
      {"AddActiveUsSfEntry",
       [] {
         // Empty layout: the flow of row 0; full: the flow whose entry was freed.
         const SfRow& f = region().sf[region().stats.sfDbMaxIndex == 0 ? 0 : 2 * (QOS_ACTIVE_SF_ROWS - 1)];
         return qos_intDb_AddActiveUsSfEntry(f.sfId);
       },
       [](Tables t) {
         if (t == Tables::kEmpty) oneActiveFlow();
       }},
      {"AddActivePhsEntry", [] { return qos_intDb_AddActivePhsEntry(kNewSfId, kNewClsfId, 7, QOS_DIR_UPSTREAM); }, {}},
  };
}

void registerAdds() {
  for (const Add& a : adds()) {
    for (Tables t : {Tables::kEmpty, Tables::kFullRoom}) {
      reg(named(a.name, t), [t, a](benchmark::State& s) {
        useTables(t);
        if (a.prepare) a.prepare(t);
        Saved rows = rowsAnAddTouches();
        if (a.op() != 0) {
          s.SkipWithError("the add failed");
          return;
        }
        rows.restore();
        timedEach(s, [&] { rows.restore(); }, [&] { benchmark::DoNotOptimize(a.op()); });
      })->UseManualTime();
    }
  }
}

// ---- Attribute getters and setters ------------------------------------------
// On the last flow, classifier and transaction row; a setter stores the
// value the field already holds, so the layout never changes.

struct Attribute {
  const char* name;
  std::function<int32_t()> op;
};

std::vector<Attribute> attributes() {
  constexpr uint32_t sf = kFlows - 1;
  constexpr uint32_t clsf = kClassifiers - 1;
  const SfRow& f = region().sf[sf];
  const ClsfRow& c = region().clsf[clsf];
  return {
      {"GetSfRef", [] { uint32_t v; return qos_intDb_GetSfRef(sf, &v); }},
      {"GetSfId", [] { uint32_t v; return qos_intDb_GetSfId(sf, &v); }},
      {"SetSfId", [&f] { return qos_intDb_SetSfId(sf, f.sfId); }},
      {"GetSFState", [] { uint32_t v; return qos_intDb_GetSFState(sf, &v); }},
      {"SetSFState", [&f] { return qos_intDb_SetSFState(sf, f.state); }},
      {"GetServiceFlowParamSet", [] { uint8_t v; return qos_intDb_GetServiceFlowParamSet(sf, &v); }},
      {"SetServiceFlowParamSet", [&f] { return qos_intDb_SetServiceFlowParamSet(sf, f.paramSetType | 1u); }},
      {"GetSFTaIndex", [] { int32_t v; return qos_intDb_GetSFTaIndex(sf, &v); }},
      {"SetSFTaIndex", [&f] { return qos_intDb_SetSFTaIndex(sf, static_cast<uint32_t>(f.taIndex)); }},
      {"GetSfQosDbIndex", [] { uint32_t v; return qos_intDb_GetSfQosDbIndex(sf, &v); }},
      {"GetClsfId", [] { uint16_t v; return qos_intDb_GetClsfId(clsf, &v); }},
      {"SetClsfId", [&c] { return qos_intDb_SetClsfId(clsf, c.clsfId); }},
      {"GetClsfSfid", [] { uint32_t v; return qos_intDb_GetClsfSfid(clsf, &v); }},
      {"GetTaType", [] { uint32_t v; return qos_TaDb_GetTaType(kOutcomeTa, &v); }},
      {"SetTaDbState", [] { return qos_TaDb_SetTaDbState(kOutcomeTa, 0); }},
      {"GetActiveSfNumber", [] { uint32_t v; return qos_intDb_GetActiveSfNumber(&v); }},
  };
}

void registerAttributes() {
  for (const Attribute& a : attributes()) {
    for (Tables t : kBoth) {
      reg(named(a.name, t), [t, op = a.op](benchmark::State& s) {
        useTables(t);
        eachIteration(s, op);
      });
    }
  }
}

// ---- Outcomes ------------------------------------------------------------------
// Transaction 9 of the full layout owns flows 126 (upstream) and 127
// (downstream) and classifiers 315..319; each case first puts them in the
// states the outcome meets in practice. Nobody else holds them, so no event
// is sent (an event costs whatever the platform's event service costs).

void taType(uint32_t type) { region().ta[kOutcomeTa].type = type; }

template <typename Fn>
void outcomeFlows(Fn fn) {
  fn(region().sf[kOutcomeUsFlow]);
  fn(region().sf[kOutcomeDsFlow]);
}

void clsfStates(std::initializer_list<uint32_t> statuses) {
  uint32_t j = kOutcomeFirstClsf;
  for (uint32_t st : statuses) region().clsf[j++].status = st;
}

// A DSD of an upstream flow that is active, has a SID cluster and switchover
// criteria: the success takes all three away too.
void deletingActiveUpstream() {
  qos::QosIntDbRegion& r = region();
  taType(QOS_TA_DSD);
  outcomeFlows([](SfRow& f) { f.state = QOS_SF_DELETING; });
  for (uint32_t j = kOutcomeFirstClsf; j < kClassifiers; ++j) {
    r.clsf[j].status = QOS_CLSF_OPERATIONAL;
    r.clsf[j].taIndex = -1;
  }
  const uint32_t us = sfIdOf(kOutcomeUsFlow);
  r.sf[kOutcomeUsFlow].paramSetType = 7;
  r.activeSf[QOS_ACTIVE_SF_ROWS - 1].sfId = us;
  r.sidClusters[QOS_SID_CLUSTER_ROWS - 1].sfId = us;
}

// After an outcome that left the flows held by transaction 9 in `state`.
void heldIn(uint32_t type, uint32_t state) {
  taType(type);
  outcomeFlows([state](SfRow& f) {
    f.state = state;
    f.heldTaIndex = kOutcomeTa;
    f.taIndex = -1;
  });
}

struct Outcome {
  const char* name;
  std::function<void()> setup;
  std::function<int32_t()> op;
};

std::vector<Outcome> outcomes() {
  const auto succeeded = [] { return qos_intDb_UpdateSfOnTaSucceeded(kOutcomeTa); };
  const auto failure = [] { return qos_intDb_UpdateSfOnTaFailure(kOutcomeTa); };
  const auto error = [] { return qos_intDb_UpdateSfOnTaError(kOutcomeTa); };
  const auto dsc = [] {
    taType(QOS_TA_DSC);
    outcomeFlows([](SfRow& f) { f.state = QOS_SF_CHANGING; });
    clsfStates({QOS_CLSF_CHANGING, QOS_CLSF_DELETING, QOS_CLSF_ADDING, QOS_CLSF_CHANGING, QOS_CLSF_ADDING});
  };
  return {
      {"UpdateSfOnTaSucceeded.DSA", [] {}, succeeded},
      {"UpdateSfOnTaSucceeded.DSC", dsc, succeeded},
      {"UpdateSfOnTaSucceeded.DSD", deletingActiveUpstream, succeeded},
      {"UpdateSfOnTaFailure.DSA", [] {}, failure},
      {"UpdateSfOnTaFailure.DSC", dsc, failure},
      {"UpdateSfOnTaError.DSA", [] {}, error},
      {"UpdateSfOnTaError.DSD", deletingActiveUpstream, error},
      {"UpdateSfOnTaForcedEnd.DSA", [] {}, [] { return qos_intDb_UpdateSfOnTaForcedEnd(kOutcomeTa); }},
      {"UpdateSfOnTaEnd.DSA-rejected", [] { heldIn(QOS_TA_DSA, QOS_SF_ADD_REJECTED); },
       [] { return qos_intDb_UpdateSfOnTaEnd(kOutcomeTa); }},
      {"UpdateSfOnTaEnd.DSD-deleted", [] { heldIn(QOS_TA_DSD, QOS_SF_DELETED); },
       [] { return qos_intDb_UpdateSfOnTaEnd(kOutcomeTa); }},
      {"UpdateSfAddAbort", [] {}, [] { return qos_intDb_UpdateSfAddAbort(kOutcomeTa); }},
      {"UpdateSfOnTaAckLost", [] { heldIn(QOS_TA_DSA, QOS_SF_OPERATIONAL); },
       [] { return qos_intDb_UpdateSfOnTaAckLost(kOutcomeTa); }},
      {"UpdateOnRegFinish", [] {}, [] { return qos_intDb_UpdateOnRegFinish(); }},
      // The bound: one transaction owning every flow and every classifier.
      {"UpdateSfOnTaSucceeded.DSA.allRows",
       [] {
         for (SfRow& f : region().sf) {
           f.state = QOS_SF_ADDING;
           f.taIndex = kOutcomeTa;
         }
         for (ClsfRow& c : region().clsf) {
           c.status = QOS_CLSF_ADDING;
           c.taIndex = kOutcomeTa;
         }
       },
       succeeded},
  };
}

void registerOutcomes() {
  for (const Outcome& o : outcomes()) {
    reg(named(o.name, Tables::kFull), [o](benchmark::State& s) {
      useTables(Tables::kFull);
      o.setup();
      Saved rows;
      rows.flowFamily().take();
      const uint64_t logs = logCount();
      timedEach(s, [&] { rows.restore(); }, [&] { benchmark::DoNotOptimize(o.op()); });
      countLogs(s, logs);
    })->UseManualTime();
  }
}

// ---- Whole-table operations ---------------------------------------------------

void registerWholeTable() {
  for (Tables t : kBoth) {
    reg(named("CheckCorrectness", t), [t](benchmark::State& s) {
      useTables(t);
      const uint64_t logs = logCount();
      eachIteration(s, [] { return qos_intDb_CheckCorrectness(); });
      countLogs(s, logs);
    });
    // The last flow's SFID, and back again on the next run.
    reg(named("SubstituteSfId", t), [t](benchmark::State& s) {
      useTables(t);
      if (t == Tables::kEmpty) oneActiveFlow();
      const uint32_t row = t == Tables::kEmpty ? 0 : kFlows - 1;
      uint32_t ids[2] = {region().sf[row].sfId, 0x7777};
      unsigned n = 0;
      const uint64_t logs = logCount();
      eachIteration(s, [&] {
        ++n;
        return qos_intDb_SubstituteSfId(ids[n & 1 ? 0 : 1], ids[n & 1 ? 1 : 0]);
      });
      countLogs(s, logs);
    });
    reg(named("FillActiveUsSfTable", t), [t](benchmark::State& s) {
      useTables(t);
      if (t == Tables::kEmpty) oneActiveFlow();
      eachIteration(s, [] { return qos_intDb_FillActiveUsSfTable(); });
    });
  }
}

// ---- SNMP walks -----------------------------------------------------------------
// A complete walk: get-next from the first index until there is none. The
// floors walk the same candidates with the same "smallest greater" rule.

const uint32_t kIfIndex[4] = {11, 12, 13, 14};

template <std::size_t N, typename Candidates>
bool nextOf(const std::array<uint32_t, N>& after, Candidates candidates, std::array<uint32_t, N>& next) {
  bool found = false;
  candidates([&](const std::array<uint32_t, N>& c) {
    if (after < c && (!found || c < next)) {
      next = c;
      found = true;
    }
  });
  return found;
}

// Walks every index of a table from the all-zero one; the rows visited.
template <std::size_t N, typename Candidates>
int32_t walkAll(Candidates candidates) {
  std::array<uint32_t, N> at{}, next{};
  int32_t rows = 0;
  while (nextOf(at, candidates, next)) {
    at = next;
    ++rows;
  }
  return rows;
}

int32_t floorCmWalkSingle() {
  const qos::QosIntDbRegion& r = region();
  return walkAll<1>([&r](auto emit) {
    for (int32_t i = 0; i <= r.stats.sfDbMaxIndex && i < static_cast<int32_t>(kFlows); ++i) {
      if (r.sf[i].state == QOS_SF_OPERATIONAL) emit(std::array<uint32_t, 1>{r.sf[i].sid});
    }
  });
}

int32_t floorCmWalkMulti() {
  const qos::QosIntDbRegion& r = region();
  return walkAll<2>([&r](auto emit) {
    for (const qos::SidClusterRow& c : r.sidClusters) {
      if (c.status != 1) continue;
      for (uint32_t p = 0; p < 4; ++p) {
        if (kIfIndex[p] != 0 && c.channels[p].sid != 0) emit(std::array<uint32_t, 2>{kIfIndex[p], c.channels[p].sid});
      }
    }
  });
}

int32_t floorClusterWalk() {
  const qos::QosIntDbRegion& r = region();
  return walkAll<3>([&r](auto emit) {
    for (const qos::SidClusterRow& c : r.sidClusters) {
      if (c.status != 1) continue;
      for (const SidChannelMapping& m : c.channels) {
        if (m.ucid != 0) emit(std::array<uint32_t, 3>{c.sfId, c.clusterId, m.ucid});
      }
    }
  });
}

int32_t libCmWalk() {
  uint32_t ifIndex = 0, sid = 0;
  int32_t rows = 0;
  while (qos_intDb_GetNextCmServiceTableIndex(ifIndex, sid, kIfIndex, &ifIndex, &sid) == 0) ++rows;
  return rows;
}

int32_t libClusterWalk() {
  uint32_t sf = 0, cluster = 0, ucid = 0;
  int32_t rows = 0;
  while (qos_intDb_GetNextSfSidClusterTableIndex(sf, cluster, ucid, &sf, &cluster, &ucid) == 0) ++rows;
  return rows;
}

struct Walk {
  const char* name;
  bool multipleUpstreams;
  int32_t (*lib)();
  int32_t (*floor)();
};

const Walk kWalks[] = {
    {"CmServiceTable.walk.singleUs", false, libCmWalk, floorCmWalkSingle},
    {"CmServiceTable.walk.multiUs", true, libCmWalk, floorCmWalkMulti},
    {"SfSidClusterTable.walk", false, libClusterWalk, floorClusterWalk},
};

void registerWalks() {
  for (const Walk& w : kWalks) {
    for (Tables t : kBoth) {
      for (const char* kind : {"lib/", "floor/"}) {
        const bool lib = kind[0] == 'l';
        reg(std::string(kind) + w.name + "/" + tablesName(t), [t, w, lib](benchmark::State& s) {
          useTables(t);
          qos_host_docsis_set_upstream_mode(w.multipleUpstreams ? 1 : 0, w.multipleUpstreams ? 1 : 0);
          const int32_t rows = lib ? w.lib() : w.floor();
          eachIteration(s, lib ? w.lib : w.floor);
          s.counters["rows"] = rows;
          qos_host_docsis_set_upstream_mode(0, 0);
        });
      }
    }
  }
}

// ---- Message store ----------------------------------------------------------------
// Transaction row 0's buffers. The floors write the same bytes into the
// same buffer without the checks.

constexpr uint32_t kMsgRow = 0;
constexpr uint32_t kRequestLength = 120;
constexpr uint32_t kTlvLength = 8;

const uint8_t* messageBytes() {
  static const auto bytes = [] {
    std::array<uint8_t, kRequestLength> b{};
    for (uint32_t i = 0; i < b.size(); ++i) b[i] = static_cast<uint8_t>(i);
    return b;
  }();
  return bytes.data();
}

// Empties the request once it is nearly full, so that an append never fails.
void roomForAppend() {
  if (region().msgs[kMsgRow].req.length > QOS_MSG_BUFFER_SIZE - 64) region().msgs[kMsgRow].req.length = 0;
}

void registerMessages() {
  reg("lib/MsgUpdateReqBuffer", [](benchmark::State& s) {
    useTables(Tables::kEmpty);
    eachIteration(s, [] { return qos_intDb_MsgUpdateReqBuffer(kMsgRow, messageBytes(), kRequestLength); });
  });
  reg("floor/MsgUpdateReqBuffer", [](benchmark::State& s) {
    useTables(Tables::kEmpty);
    eachIteration(s, [] {
      qos::MsgRow& m = region().msgs[kMsgRow];
      m.rsp.length = 0;
      m.ack.length = 0;
      region().msgErrors[kMsgRow] = {0, 253, 0, 0, 0, 0};
      std::memmove(m.req.data, messageBytes(), kRequestLength);
      m.req.length = kRequestLength;
      return 0;
    });
  });
  // An append runs with the check that empties the buffer now and then.
  reg("lib/MsgAddReqBufferTlv", [](benchmark::State& s) {
    useTables(Tables::kEmpty);
    eachIteration(s, [] {
      roomForAppend();
      return qos_intDb_MsgAddReqBufferTlv(kMsgRow, 24, kTlvLength, messageBytes());
    });
  });
  reg("floor/MsgAddReqBufferTlv", [](benchmark::State& s) {
    useTables(Tables::kEmpty);
    eachIteration(s, [] {
      roomForAppend();
      uint32_t length = kTlvLength;  // a caller's length, not known in advance
      benchmark::DoNotOptimize(length);
      qos::MsgBuffer& b = region().msgs[kMsgRow].req;
      b.data[b.length] = 24;
      b.data[b.length + 1] = static_cast<uint8_t>(length);
      std::memcpy(&b.data[b.length + 2], messageBytes(), length);
      b.length += 2 + length;
      return 0;
    });
  });
  reg("lib/MsgAddReqBufferField", [](benchmark::State& s) {
    useTables(Tables::kEmpty);
    eachIteration(s, [] {
      roomForAppend();
      return qos_intDb_MsgAddReqBufferField(kMsgRow, 16, messageBytes());
    });
  });
  reg("lib/MsgGetReqBuffer", [](benchmark::State& s) {
    useTables(Tables::kEmpty);
    eachIteration(s, [] {
      uint8_t* data;
      uint32_t length;
      return qos_intDb_MsgGetReqBuffer(kMsgRow, &data, &length);
    });
  });
  reg("lib/MsgInitBufferForTa", [](benchmark::State& s) {
    useTables(Tables::kEmpty);
    eachIteration(s, [] { return qos_intDb_MsgInitBufferForTa(kMsgRow, QOS_TA_DSA, 0); });
  });
  reg("lib/MsgSetErrorSet", [](benchmark::State& s) {
    useTables(Tables::kEmpty);
    eachIteration(s, [] { return qos_intDb_MsgSetErrorSet(kMsgRow, 4, 24, 1, 2); });
  });
  reg("lib/MsgGetErrorCode", [](benchmark::State& s) {
    useTables(Tables::kEmpty);
    eachIteration(s, [] {
      uint32_t code;
      return qos_intDb_MsgGetErrorCode(kMsgRow, &code);
    });
  });
}

}  // namespace

void registerOperations() {
  registerAdds();
  registerAttributes();
  registerOutcomes();
  registerWholeTable();
  registerWalks();
  registerMessages();
}

}  // namespace qosbench
