// operations.cpp - the dispatch table of the fuzzer: one entry per exported
// operation, its arguments decoded from the input by their C types.
#include "tests/fuzz/operations.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <tuple>
#include <type_traits>

#include "frame/region.h"
#include "qosintdb.h"
#include "tests/fuzz/guarded.h"

namespace fuzz {
namespace {

// Boundaries of the tables, lengths and signed values, one byte each.
constexpr uint32_t kSpecials[32] = {
    0xFFFFFFFF, 0x80000000, 0x7FFFFFFF, 0xFFFF0000, 0xFFFE, 0xFFFF, 0x10000, 0x7FFF, 0x8000,
    9,          10,         11,         31,         32,     33,     34,      63,     64,
    78,         79,         126,        127,        128,    255,    256,     318,    319,
    320,        1598,       1599,       1600,       16384};

constexpr std::size_t kMaxMappings = 64;
constexpr std::size_t kPages = 8;

GuardedPage* pages() {
  static GuardedPage all[kPages];
  return all;
}

GuardedPage& page(Call& c) {
  if (c.pageIndex >= static_cast<int>(kPages)) std::abort();
  return pages()[c.pageIndex++];
}

int gPagesUsed = 0;

// A pointer that the library handed out: where it may be written, and how far.
struct HandedOut {
  uint8_t* data = nullptr;
  std::size_t capacity = 0;
};
HandedOut gHanded;

// Every address the library hands out is a message buffer or an
// authentication block of this process's region.
HandedOut validate(uint8_t* p) {
  auto* r = reinterpret_cast<qos::QosIntDbRegion*>(region());
  for (auto& m : r->msgs) {
    for (qos::MsgBuffer* b : {&m.req, &m.rsp, &m.ack}) {
      if (p == b->data) return {p, sizeof b->data};
    }
  }
  for (auto& t : r->ta) {
    if (p == t.authBlock) return {p, sizeof t.authBlock};
  }
  std::fprintf(stderr, "fuzz: the library handed out %p, which is no buffer of the region\n",
               static_cast<void*>(p));
  std::abort();
}

std::vector<uint8_t**> gPointerOutputs;

struct Bytes {
  const uint8_t* data;
  uint32_t length;
};
struct MappingList {
  const SidChannelMapping* data;
  uint32_t count;
};
struct Cursor {
  int32_t* value;
};

template <typename T>
T* placed(Call& c, std::size_t count = 1) {
  bool null = c.nextPointerNull();
  T* p = reinterpret_cast<T*>(page(c).place(sizeof(T) * count));
  return null ? nullptr : p;
}

SidChannelMapping mapping(Call& c) {
  SidChannelMapping m{};
  m.action = c.in.number();
  m.ucid = static_cast<uint8_t>(c.in.number());
  m.sid = static_cast<uint16_t>(c.in.number());
  return m;
}

// How an argument of C type T is read from the input.
template <typename T, typename = void>
struct Arg;

template <typename T>
struct Arg<T, std::enable_if_t<std::is_integral_v<T>>> {
  static constexpr char kind = 'n';
  static T get(Call& c) { return static_cast<T>(c.in.number()); }
};

template <>
struct Arg<void*> {
  static constexpr char kind = 'r';
  static void* get(Call& c) { return c.nextPointerNull() ? nullptr : region(); }
};

uint32_t number(Call& c) { return c.in.number(); }

// Four values (UCIDs, interface indexes, the mappings of a cluster's ports).
template <typename T, T (*read)(Call&)>
const T* four(Call& c) {
  T* p = placed<T>(c, 4);
  T v[4];
  for (auto& x : v) x = read(c);
  if (p != nullptr) std::memcpy(static_cast<void*>(p), v, sizeof v);
  return p;
}

template <>
struct Arg<const uint32_t*> {
  static constexpr char kind = 'f';
  static const uint32_t* get(Call& c) { return four<uint32_t, number>(c); }
};

template <>
struct Arg<const SidChannelMapping*> {
  static constexpr char kind = 'm';
  static const SidChannelMapping* get(Call& c) { return four<SidChannelMapping, mapping>(c); }
};

template <>
struct Arg<Bytes> {
  static constexpr char kind = 'b';
  static Bytes get(Call& c) {
    bool null = c.nextPointerNull();
    uint32_t length = c.in.number();
    std::size_t count = std::min<std::size_t>({c.in.number(), length, GuardedPage::kSize, c.in.left()});
    uint8_t content[GuardedPage::kSize];
    for (std::size_t i = 0; i < count; ++i) content[i] = c.in.byte();
    std::size_t size = std::min<std::size_t>(length, GuardedPage::kSize);
    uint8_t* p = page(c).place(size);
    for (std::size_t i = 0; i < size; ++i) p[i] = count != 0 ? content[i % count] : 0;
    return {null ? nullptr : p, length};
  }
};

template <>
struct Arg<MappingList> {
  static constexpr char kind = 'l';
  static MappingList get(Call& c) {
    bool null = c.nextPointerNull();
    uint32_t count = std::min<uint32_t>(c.in.number(), kMaxMappings);
    auto* p = reinterpret_cast<SidChannelMapping*>(page(c).place(sizeof(SidChannelMapping) * count));
    for (uint32_t i = 0; i < count; ++i) p[i] = mapping(c);
    return {null ? nullptr : p, count};
  }
};

template <>
struct Arg<Cursor> {
  static constexpr char kind = 'c';
  static Cursor get(Call& c) {
    int32_t* p = placed<int32_t>(c);
    auto v = static_cast<int32_t>(c.in.number());
    if (p != nullptr) *p = v;
    return {p};
  }
};

// Outputs: the last bytes of a guarded page, or NULL.
template <typename T>
struct Arg<T*, std::enable_if_t<!std::is_const_v<T> && !std::is_void_v<T>>> {
  static constexpr char kind = 'O';
  static T* get(Call& c) {
    T* p = placed<T>(c, std::is_same_v<T, SidChannelMapping> ? 4 : 1);
    if constexpr (std::is_same_v<T, uint8_t*>) {
      if (p != nullptr) gPointerOutputs.push_back(p);
    }
    return p;
  }
};

template <typename R, typename... P>
Operation op(const char* name, R (*fn)(P...)) {
  Operation o;
  o.name = name;
  o.kinds = std::string{Arg<P>::kind...};
  o.run = [fn](Call& c) {
    gPointerOutputs.clear();
    std::tuple<P...> args{Arg<P>::get(c)...};
    gPagesUsed = c.pageIndex;
    if (!c.allowed) return;
    if constexpr (std::is_void_v<R>) {
      std::apply(fn, args);
      c.result = 0;
    } else {
      c.result = std::apply(fn, args);
    }
    for (uint8_t** out : gPointerOutputs) {
      uint8_t* p;
      std::memcpy(&p, out, sizeof p);
      bool written = false;
      for (std::size_t i = 0; i < sizeof p; ++i) written |= reinterpret_cast<uint8_t*>(out)[i] != kCanary;
      if (written) gHanded = validate(p);
    }
  };
  return o;
}

// The message operations take their bytes as (length, pointer) or (pointer, length).
template <int32_t (*F)(uint32_t, uint32_t, uint32_t, const uint8_t*)>
int32_t tlv(uint32_t taIndex, uint32_t type, Bytes v) {
  return F(taIndex, type, v.length, v.data);
}
template <int32_t (*F)(uint32_t, uint32_t, const uint8_t*)>
int32_t field(uint32_t taIndex, Bytes b) {
  return F(taIndex, b.length, b.data);
}
template <int32_t (*F)(uint32_t, const uint8_t*, uint32_t)>
int32_t message(uint32_t taIndex, Bytes b) {
  return F(taIndex, b.data, b.length);
}

#define OP(fn) op(#fn, fn)
#define ADAPT(name, adapter) op(#name, +adapter)
#define TLV(fn) op(#fn, tlv<fn>)
#define FIELD(fn) op(#fn, field<fn>)
#define MESSAGE(fn) op(#fn, message<fn>)

// Operations that take the lock by themselves, and the lock itself.
constexpr const char* kLockingItself[] = {"qos_TaDb_AddNewTa", "qos_intDb_ResetTaDbRow", "qos_intDb_TaDb_reset",
                                          "qos_IntDb_Init", "qos_IntDb_Reset"};

Locking lockingOf(const std::string& name) {
  if (name == "qos_taDb_Lock") return Locking::Takes;
  if (name == "qos_taDb_Unlock") return Locking::Gives;
  auto itself = [&name](const char* n) { return name == n; };
  return std::any_of(std::begin(kLockingItself), std::end(kLockingItself), itself) ? Locking::Itself
                                                                                   : Locking::ByCaller;
}

std::vector<Operation> table() {
  std::vector<Operation> t = {
      OP(qos_IntDb_Init), OP(qos_IntDb_RetrieveAccess), OP(qos_IntDb_Reset), OP(qos_taDb_Lock),
      OP(qos_taDb_Unlock), OP(qos_intDb_SfDb_init), OP(qos_intDb_MsgDb_init), OP(qos_intDb_TaDb_init),
      OP(qos_dbc_DbInit),

      ADAPT(qos_TaDb_AddNewTa,
            [](uint32_t taId, uint32_t type, uint32_t initiator, Bytes auth, uint32_t* taIndex) {
              return qos_TaDb_AddNewTa(taId, type, initiator, auth.length, auth.data, taIndex);
            }),
      OP(qos_TaDb_FindTaIndexByTaId), OP(qos_TaDb_GetTaId), OP(qos_TaDb_GetTaType), OP(qos_TaDb_GetTaInitiator),
      OP(qos_TaDb_GetTaSubtype), OP(qos_TaDb_SetTaSubtype), OP(qos_TaDb_SetTaDbState), OP(qos_TaDb_GetTaDbState),
      OP(qos_TaDb_IsTaHeld), OP(qos_TaDb_ResetRetCounter), OP(qos_TaDb_IncRetCounter), OP(qos_TaDb_GetRetCounter),
      ADAPT(qos_TaDb_SetTaAuthBlock,
            [](uint32_t taIndex, Bytes auth) { return qos_TaDb_SetTaAuthBlock(taIndex, auth.length, auth.data); }),
      OP(qos_TaDb_GetTaAuthBlock), OP(qos_TaDb_CompareTaStates), OP(qos_TaDb_CheckTaConflict),
      OP(qos_intDb_ResetTaDbRow), OP(qos_intDb_TaDb_reset), OP(qos_TaDb_printDb),

      OP(qos_intDb_SfDb_Reset), OP(qos_intDb_SfDb_RowReset), OP(qos_intDb_FindSfDbNextFreeIndex),
      OP(qos_intDb_FindSfById), OP(qos_intDb_GetSfDbMaxIndex), OP(qos_intDb_UpdateSfNumber),
      OP(qos_intDb_GetSfNumber), OP(qos_intDb_GetNextSFDbIndex), OP(qos_intDb_DsdReqRecieved),
      OP(qos_intDb_AddSf), OP(qos_intDb_AddSfReference), OP(qos_intDb_AddSfId), OP(qos_intDb_ChangeSF),
      OP(qos_intDb_StartDeleteSF), OP(qos_intDb_FindSfByRef), OP(qos_intDb_FindSfByTaAndRef),
      OP(qos_intDb_FindSFByTaIndex), OP(qos_intDb_FindSFByTaIndexAndDirection), OP(qos_intDb_NextSFIndexOfTa),
      OP(qos_intDb_GetSfTaIndexAndPairSf), OP(qos_intDb_FindNextActiveSf), OP(qos_intDb_FindSFIdValid),

      OP(qos_intDb_GetSfRef), OP(qos_intDb_GetSfId), OP(qos_intDb_SetSfId), OP(qos_intDb_GetSfSid),
      OP(qos_intDb_SetSfSid), OP(qos_intDb_GetSFState), OP(qos_intDb_SetSFState), OP(qos_intDb_CheckSFOperational),
      OP(qos_intDb_GetServiceFlowDirection), OP(qos_intDb_GetSfDirection), OP(qos_intDb_GetServiceFlowParamSet),
      OP(qos_intDb_SetServiceFlowParamSet), OP(qos_intDb_GetSfQosDbIndex), OP(qos_intDb_SetSfQosDbIndex),
      OP(qos_intDb_GetSFTaIndex), OP(qos_intDb_SetSFTaIndex), OP(qos_intDb_GetSFHeldTaIndex),
      OP(qos_intDb_GetSfClusterCounter), OP(qos_intDb_GetServiceFlowClassCounter),
      OP(qos_intDb_GetServiceFlowPhsCounter), OP(qos_intDb_GetSfPrimaryRef), OP(qos_intDb_SetSfPrimaryRef),
      OP(qos_intDb_GetActiveSfNumber), OP(qos_intDb_fullPrintSF), OP(qos_intDb_shortPrintSF),
      OP(qos_intDb_SubstituteSfId),

      OP(qos_intDb_FindClsfByRef), OP(qos_intDb_FindClsfById), OP(qos_intDb_FindClsfByTaAndRef),
      OP(qos_intDb_GetNextClsfOfSf), OP(qos_intDb_IsClsfInDeleting), OP(qos_intDb_SetClsfId),
      OP(qos_intDb_GetClsfId), OP(qos_intDb_SetClsfSfid), OP(qos_intDb_GetClsfSfid), OP(qos_intDb_GetClsfDbMaxIndex),
      OP(qos_intDb_SetClsfMaxNum), OP(qos_intDb_GetClsfMaxNum), OP(qos_intDb_GetClsfNumber),
      OP(qos_intDb_FindClsfDbNextFreeIndex), OP(qos_intDb_PrintClsf), OP(qos_intDb_AddClsf),
      OP(qos_intDb_AddClsfRef), OP(qos_intDb_AddClsfId), OP(qos_intDb_AppendClsfRef), OP(qos_intDb_AppendClsfId),
      OP(qos_intDb_ChangeClassifier), OP(qos_intDb_DeleteClassifier),

      OP(qos_intDb_AddPhs), OP(qos_intDb_AddPhsRef), OP(qos_intDb_AddPhsId), OP(qos_intDb_AppendPhs_ClsfRef),
      OP(qos_intDb_AppendPhs_ClsfId), OP(qos_intDb_ChangePhs), OP(qos_intDb_DeletePhs),

      OP(qos_intDb_AddSfSidCluster), OP(qos_intDb_DelSfSidCluster), OP(qos_intDb_DeleteSidClustersOfSf),
      OP(qos_intDb_GetSfSidCluster),
      ADAPT(qos_intDb_GetNextSfSidCluster,
            [](uint32_t sfId, Cursor rowIndex, uint8_t* clusterId, SidChannelMapping* out) {
              return qos_intDb_GetNextSfSidCluster(sfId, rowIndex.value, clusterId, out);
            }),
      OP(qos_intDb_GetSidClusterTableRow), OP(qos_intDb_PrintSidClusters), OP(qos_intDb_SetSfSidClusterParams),
      OP(qos_intDb_GetSfSidClusterParams), OP(qos_intDb_DeleteSfSidClusterParams),
      OP(qos_intDb_GetClusterDbMaxIndex), OP(qos_intDb_GetClusterMaxNum), OP(qos_intDb_SetClusterMaxNum),
      OP(qos_intDb_GetClusterNumber), OP(qos_intDb_FindClusterDbNextFreeIndex),

      OP(qos_intDb_MsgDb_reset), OP(qos_intDb_MsgInitBufferForTa), OP(qos_intDb_MsgResetTaBuffer),
      TLV(qos_intDb_MsgAddReqBufferTlv), TLV(qos_intDb_MsgAddRspBufferTlv), TLV(qos_intDb_MsgAddAckBufferTlv),
      FIELD(qos_intDb_MsgAddReqBufferField), FIELD(qos_intDb_MsgAddRspBufferField),
      FIELD(qos_intDb_MsgAddAckBufferField), MESSAGE(qos_intDb_MsgUpdateReqBuffer),
      MESSAGE(qos_intDb_MsgUpdateRspBuffer), MESSAGE(qos_intDb_MsgUpdateAckBuffer),
      OP(qos_intDb_MsgGetReqBuffer), OP(qos_intDb_MsgGetRspBuffer), OP(qos_intDb_MsgGetAckBuffer),
      OP(qos_intDb_MsgGetMsgSendBuff), OP(qos_intDb_MsgDbPrint), OP(qos_intDb_MsgReqPrint),
      OP(qos_intDb_MsgRspPrint), OP(qos_intDb_MsgAckPrint), OP(qos_intDb_MsgSetConfCode),
      OP(qos_intDb_MsgGetConfCode), OP(qos_intDb_MsgUpdateError), OP(qos_intDb_MsgSetErrorSet),
      OP(qos_intDb_MsgGetErrorCode), OP(qos_intDb_MsgGetErrorType), OP(qos_intDb_MsgGetErrorSubType),
      OP(qos_intDb_MsgSetErroredSfId), OP(qos_intDb_MsgGetErroredSfId), OP(qos_intDb_MsgResetError),

      OP(qos_intDb_UpdateSfOnTaSucceeded), OP(qos_intDb_UpdateSfOnTaFailure), OP(qos_intDb_UpdateSfOnTaError),
      OP(qos_intDb_UpdateSfOnTaForcedEnd), OP(qos_intDb_UpdateSfOnTaEnd), OP(qos_intDb_UpdateSfAddAbort),
      OP(qos_intDb_UpdateSfOnTaAckLost), OP(qos_intDb_UpdateOnRegFinish),

      OP(qos_intDb_FillActiveUsSfTable), OP(qos_intDb_AddActiveUsSfEntry), OP(qos_intDb_DeleteActiveUsSfEntry),
      OP(qos_intDb_GetActiveSfIndexBySfid), OP(qos_intDb_GetActiveSfId), OP(qos_intDb_SetActiveSfId),
      OP(qos_intDb_PrintActiveSfDB), OP(qos_intDb_AddActivePhsEntry), OP(qos_intDb_AddActivePhsEntryByDsid),
      OP(qos_intDb_DeleteActivePhsEntry), OP(qos_intDb_DeleteActivePhsEntryByIndex),
      OP(qos_intDb_GetActivePhsIndex), OP(qos_intDb_GetActivePhsIndexByClsf),
      OP(qos_intDb_GetActivePhsIndexByDsid), OP(qos_intDb_GetActivePhsInfo), OP(qos_intDb_SetActivePhsSfid),
      OP(qos_intDb_PrintActivePhsDB),

      OP(qos_intDb_CheckCorrectness), OP(qos_intDb_GetSnmpNextSid), OP(qos_intDb_GetNextCmServiceTableIndex),
      OP(qos_intDb_GetCmServiceTableAttr), OP(qos_intDb_GetNextSfSidClusterTableIndex),

      OP(qos_dbc_DbReset),
      ADAPT(qos_dbc_AddSfSidClusterMod,
            [](uint32_t sfId, uint8_t clusterId, MappingList m) {
              return qos_dbc_AddSfSidClusterMod(sfId, clusterId, m.count, m.data);
            }),
      OP(qos_dbc_VerifyAllSidClusterMaps), OP(qos_dbc_SetActions), OP(qos_dbc_ActiveDbAddSid),
      OP(qos_dbc_RefreshBitmaps), OP(qos_dbc_UpdateSfSidClusterDb), OP(qos_dbc_SetSfChannelActive),
      OP(qos_dbc_GetSfChannelBitmap), OP(qos_dbc_ResetSfBitmaps),

      // Clients read and write the bonding change store directly: a byte,
      // or a word when the value does not fit a byte.
      ADAPT(fuzz_PokeDbc,
            [](uint32_t offset, uint32_t value) {
              if (dbcTaDb == nullptr) return -1;
              auto* store = reinterpret_cast<uint8_t*>(dbcTaDb);
              if (value <= 0xFF) {
                store[offset % sizeof(QosDbcDb)] = static_cast<uint8_t>(value);
              } else {
                std::memcpy(store + (offset % (sizeof(QosDbcDb) / 4)) * 4, &value, sizeof value);
              }
              return 0;
            }),
      // ...and the buffers handed out to them, within their capacity.
      ADAPT(fuzz_WriteHandedOut,
            [](Bytes b) {
              if (gHanded.data == nullptr || b.data == nullptr) return -1;
              std::memcpy(gHanded.data, b.data, std::min<std::size_t>({b.length, gHanded.capacity, GuardedPage::kSize}));
              return 0;
            }),
      ADAPT(fuzz_SetPlatform,
            [](uint32_t multipleUpstreams, uint32_t tcc, const uint32_t* portUcids, uint32_t unknownUcidPort,
               uint32_t eventResult) {
              PlatformAnswers& a = answers();
              a.multipleUpstreams = multipleUpstreams;
              a.tccInRegRsp = static_cast<int>(tcc);
              for (int p = 0; p < 4; ++p) a.portUcid[p] = portUcids ? static_cast<uint8_t>(portUcids[p]) : 0;
              a.unknownUcidPort = static_cast<uint8_t>(unknownUcidPort);
              a.eventResult = static_cast<int>(eventResult);
              return 0;
            }),
  };
  for (Operation& o : t) o.locking = lockingOf(o.name);
  return t;
}

}  // namespace

uint32_t Reader::number() {
  uint8_t b = byte();
  if (b < 0x80) return b;
  if (b < 0xC0) return (uint32_t{b & 0x3Fu} << 8) | byte();
  if (b < 0xE0) return kSpecials[b & 0x1F];
  if (b < 0xF0) {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v = (v << 8) | byte();
    return v;
  }
  return static_cast<uint32_t>(-1 - static_cast<int32_t>(b & 0x0F));
}

void encodeNumber(std::string& out, uint32_t value) {
  if (value < 0x80) {
    out += static_cast<char>(value);
  } else if (value < 0x4000) {
    out += static_cast<char>(0x80 | (value >> 8));
    out += static_cast<char>(value & 0xFF);
  } else if (value >= 0xFFFFFFF0u) {
    out += static_cast<char>(0xF0 | (0xFFFFFFFFu - value));
  } else {
    out += static_cast<char>(0xE0);
    for (int shift = 24; shift >= 0; shift -= 8) out += static_cast<char>((value >> shift) & 0xFF);
  }
}

const std::vector<Operation>& operations() {
  static const std::vector<Operation> kTable = table();
  return kTable;
}

const Operation* findOperation(const std::string& name) {
  const auto& ops = operations();
  auto it = std::find_if(ops.begin(), ops.end(), [&name](const Operation& o) { return o.name == name; });
  return it == ops.end() ? nullptr : &*it;
}

void resetHarnessState() {
  answers() = PlatformAnswers{};
  gHanded = {};
}

void checkPages() {
  for (int i = 0; i < gPagesUsed; ++i) pages()[i].check("argument");
}

}  // namespace fuzz
