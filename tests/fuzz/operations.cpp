// SPDX-License-Identifier: MIT
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
#include "tools/api/api.h"

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
Operation op(const char* name, R (*fn)(P...), Locking locking = Locking::ByCaller) {
  Operation o;
  o.name = name;
  o.locking = locking;
  o.kinds = std::string{Arg<P>::kind...};
  o.run = [fn](Call& c) {
    gPointerOutputs.clear();
    std::tuple<P...> args{Arg<P>::get(c)...};
    gPagesUsed = c.pageIndex;
    if (!c.allowed) return;
    if constexpr (std::is_void_v<R>) {
      std::apply(fn, args);
      c.result = 0;
    } else if constexpr (std::is_pointer_v<R>) {  // a string: read it whole
      const char* text = std::apply(fn, args);
      c.result = text != nullptr ? static_cast<int32_t>(std::strlen(text)) : -1;
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

// How the fuzzer passes the arguments that C splits in two (tools/api/api.h).
struct Kit {
  using Bytes = fuzz::Bytes;
  using Mappings = MappingList;
  using Cursor = fuzz::Cursor;
  static uint32_t length(Bytes b) { return b.length; }
  static const uint8_t* data(Bytes b) { return b.data; }
  static uint32_t count(Mappings m) { return m.count; }
  static const SidChannelMapping* entries(Mappings m) { return m.data; }
  static int32_t* cursor(Cursor c) { return c.value; }
};

#define ADAPT(name, adapter) op(#name, +adapter)

std::vector<Operation> table() {
  std::vector<Operation> t = {
#define QOS_OP(family, fn, locking, attaching, arguments) \
  op(#fn, qosapi::Adapt<Kit, &fn>::call, ::qosapi::Locking::locking),
#include "tools/api/operations.def"
#undef QOS_OP

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
