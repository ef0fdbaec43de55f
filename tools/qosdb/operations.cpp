// SPDX-License-Identifier: MIT
// operations.cpp - the dispatch table of the client API for scenarios.
//
// One entry per line of tools/api/operations.def: its name, its arguments
// and the function itself. The kinds of the arguments come from the C
// types: inputs come from the scenario line, output pointers point
// at storage of the tool's own (filled with a marker first, so that only
// what the operation wrote is printed). Where the C signature passes a
// (length, pointer) pair, an in/out cursor or an address out, a small
// adapter with the scenario's argument types stands in for the function.
#include "operations.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <tuple>
#include <type_traits>
#include <utility>

#include "names.h"
#include "tools/api/api.h"
#include "qosintdb.h"
#include "qosintdb_platform.h"

namespace qosdb {
namespace {

constexpr uint8_t kUnwritten = 0xA5;  // outputs are filled with it before the call

template <typename T>
void markUnwritten(T& value) {
  std::memset(static_cast<void*>(&value), kUnwritten, sizeof value);
}

template <typename T>
bool written(const T& value) {
  T marker;
  markUnwritten(marker);
  return std::memcmp(&value, &marker, sizeof value) != 0;
}

bool hexName(const std::string& name) {
  auto ends = [&name](const char* tail) {
    std::size_t n = std::strlen(tail);
    return name.size() >= n && name.compare(name.size() - n, n, tail) == 0;
  };
  return ends("Id") || ends("Sid") || name == "sid" || name == "bitmap";
}

// ---- Argument slots: how one C argument is taken, passed and printed ----------
//
// An input slot takes its argument as the scenario reader checked it
// (tools/api/scenario.h); kind() is the kind operations.def must give it.

using qosapi::Argument;

// An input passed as the reader checked it: numbers, four numbers, the region.
template <typename T>
struct In {
  static constexpr bool kInput = true;
  static const char* kind();
  Argument a;
  void take(const Argument& given) { a = given; }
  T pass() const { return static_cast<T>(static_cast<uint32_t>(a.number)); }
  void show(const std::string&, std::vector<std::string>&) const {}
};
template <> const char* In<uint8_t>::kind() { return "u8"; }
template <> const char* In<uint16_t>::kind() { return "u16"; }
template <> const char* In<uint32_t>::kind() { return "u32"; }
template <> const char* In<int32_t>::kind() { return "i32"; }
template <> const char* In<const uint32_t*>::kind() { return "u32x4"; }
template <> const char* In<void*>::kind() { return "region"; }
template <> const uint32_t* In<const uint32_t*>::pass() const { return a.null ? nullptr : a.four; }
template <> void* In<void*>::pass() const { return a.null ? nullptr : shm_get(1, QOS_REGION_SEGMENT_ID); }

template <typename T>
std::string valueText(const std::string& name, T value) {
  if (std::is_signed<T>::value) return std::to_string(static_cast<int64_t>(value));
  return hexName(name) ? hex(static_cast<uint32_t>(value)) : std::to_string(static_cast<uint64_t>(value));
}

template <typename T>
struct Out {
  static constexpr bool kInput = false;
  static const char* kind() { return "out"; }
  T value{};
  T* pass() {
    markUnwritten(value);
    return &value;
  }
  void show(const std::string& name, std::vector<std::string>& outs) const {
    if (written(value)) outs.push_back(name + "=" + valueText(name, value));
  }
};

// An in/out index: given on the line, printed after the call.
struct Cursor {
  static constexpr bool kInput = true;
  static const char* kind() { return "i32"; }
  int32_t value = 0;
  void take(const Argument& a) { value = static_cast<int32_t>(static_cast<uint32_t>(a.number)); }
  Cursor& pass() { return *this; }
  void show(const std::string& name, std::vector<std::string>& outs) const {
    outs.push_back(name + "=" + std::to_string(value));
  }
};

// A byte string; its length is the length argument of the C call.
struct Bytes {
  static constexpr bool kInput = true;
  static const char* kind() { return "bytes"; }
  std::vector<uint8_t> buffer = std::vector<uint8_t>(1);
  uint32_t size = 0;
  bool null = false;

  void take(const Argument& a) {
    null = a.null;
    buffer = a.expanded();
    size = static_cast<uint32_t>(buffer.size());
    if (buffer.empty()) buffer.push_back(0);
  }
  const uint8_t* data() const { return null ? nullptr : buffer.data(); }
  uint32_t length() const { return size; }
  const Bytes& pass() const { return *this; }
  void show(const std::string&, std::vector<std::string>&) const {}
};

std::string mappingText(const SidChannelMapping& m) { return std::to_string(m.ucid) + "/" + hex(m.sid); }

// SID channel mappings: entries "[action:]ucid/sid", at least four passed.
struct Mappings {
  static constexpr bool kInput = true;
  static const char* kind() { return "mappings"; }
  std::vector<SidChannelMapping> entries;
  uint32_t given = 0;
  bool null = false;

  void take(const Argument& a) {
    null = a.null;
    entries = a.mappings;
    given = static_cast<uint32_t>(entries.size());
    if (entries.size() < QOS_CHANNELS_PER_CLUSTER) entries.resize(QOS_CHANNELS_PER_CLUSTER, SidChannelMapping{});
  }
  const SidChannelMapping* data() const { return null ? nullptr : entries.data(); }
  uint32_t count() const { return given; }
  // Passed to an operation that takes the mappings, or to an adapter.
  const Mappings& pass() const { return *this; }
  operator const SidChannelMapping*() const { return data(); }
  void show(const std::string&, std::vector<std::string>&) const {}
};

// Four mappings written by the operation.
struct MappingsOut {
  static constexpr bool kInput = false;
  static const char* kind() { return "out"; }
  SidChannelMapping entries[QOS_CHANNELS_PER_CLUSTER];
  SidChannelMapping* pass() {
    markUnwritten(entries);
    return entries;
  }
  void show(const std::string& name, std::vector<std::string>& outs) const {
    if (!written(entries)) return;
    std::string text;
    for (const auto& m : entries) text += (text.empty() ? "" : ",") + mappingText(m);
    outs.push_back(name + "=" + text);
  }
};

// An address and a length written by the operation; the bytes there are
// printed while the call still holds the lock.
struct BufferOut {
  static constexpr bool kInput = false;
  static const char* kind() { return "out"; }
  uint8_t* data = nullptr;
  uint32_t length = 0;
  uint32_t capacity = QOS_MSG_BUFFER_SIZE;
  const char* lengthName = "length";
  BufferOut& pass() {
    markUnwritten(data);
    markUnwritten(length);
    return *this;
  }
  void show(const std::string& name, std::vector<std::string>& outs) const {
    if (written(length)) outs.push_back(std::string(lengthName) + "=" + std::to_string(length));
    if (written(data) && data != nullptr) {
      uint32_t n = written(length) ? std::min(length, capacity) : 0;
      outs.push_back(name + "=" + (n == 0 ? "-" : hexBytes(data, n)));
    }
  }
};

struct AuthOut : BufferOut {
  AuthOut() {
    capacity = QOS_AUTH_BLOCK_SIZE;
    lengthName = "authLen";
  }
  AuthOut& pass() {
    BufferOut::pass();
    return *this;
  }
};

template <typename P>
struct SlotOf {  // numbers, or the adapters' own argument types
  using type = std::conditional_t<std::is_integral_v<P>, In<P>, std::decay_t<P>>;
};
template <> struct SlotOf<uint8_t*> { using type = Out<uint8_t>; };
template <> struct SlotOf<uint16_t*> { using type = Out<uint16_t>; };
template <> struct SlotOf<uint32_t*> { using type = Out<uint32_t>; };
template <> struct SlotOf<int32_t*> { using type = Out<int32_t>; };
template <> struct SlotOf<const SidChannelMapping*> { using type = Mappings; };
template <> struct SlotOf<SidChannelMapping*> { using type = MappingsOut; };
template <> struct SlotOf<const uint32_t*> { using type = In<const uint32_t*>; };
template <> struct SlotOf<void*> { using type = In<void*>; };

// ---- One entry of the table ------------------------------------------------------

template <typename Slots, std::size_t... I>
void takeInputs(Slots& slots, const std::vector<Argument>& inputs, std::index_sequence<I...>) {
  std::size_t next = 0;
  auto one = [&](auto& slot) {
    if constexpr (std::decay_t<decltype(slot)>::kInput) slot.take(inputs.at(next++));
  };
  (one(std::get<I>(slots)), ...);
  (void)one;
}

template <typename Slots, std::size_t... I>
void showOutputs(const Slots& slots, const std::vector<std::string>& names, std::vector<std::string>& outs,
                 std::index_sequence<I...>) {
  (std::get<I>(slots).show(names[I], outs), ...);
}

// How the tool passes the arguments that C splits in two (tools/api/api.h).
struct Kit {
  using Bytes = const qosdb::Bytes&;
  using Mappings = const qosdb::Mappings&;
  using Cursor = qosdb::Cursor&;
  static uint32_t length(Bytes b) { return b.length(); }
  static const uint8_t* data(Bytes b) { return b.data(); }
  static uint32_t count(Mappings m) { return m.count(); }
  static const SidChannelMapping* entries(Mappings m) { return m.data(); }
  static int32_t* cursor(Cursor c) { return &c.value; }
};
template <auto F>
struct Adapt : qosapi::Adapt<Kit, F> {};

}  // namespace
}  // namespace qosdb

// The buffers the library hands out are printed while the call holds the lock.
namespace qosapi {
template <auto F>
struct Adapt<qosdb::Kit, F, int32_t (*)(uint32_t, uint32_t*, uint8_t**)> {
  static int32_t call(uint32_t taIndex, qosdb::AuthOut& a) { return F(taIndex, &a.length, &a.data); }
};
template <auto F>
struct Adapt<qosdb::Kit, F, int32_t (*)(uint32_t, uint8_t**, uint32_t*)> {
  static int32_t call(uint32_t taIndex, qosdb::BufferOut& b) { return F(taIndex, &b.data, &b.length); }
};
}  // namespace qosapi

namespace qosdb {
namespace {

template <typename R, typename... P>
Operation op(const qosapi::OperationInfo& info, R (*fn)(P...)) {
  using Slots = std::tuple<typename SlotOf<P>::type...>;
  using Indexes = std::index_sequence_for<P...>;
  std::vector<std::string> names;
  std::vector<std::string> kinds{SlotOf<P>::type::kind()...};
  std::istringstream in(info.arguments);
  Operation o;
  o.name = info.name;
  for (std::string word; in >> word;) {
    std::size_t i = names.size();
    names.push_back(word.substr(0, word.find(':')));
    if (i >= kinds.size() || word.substr(word.find(':') + 1) != kinds[i]) {
      std::fprintf(stderr, "qosdb: %s: argument %s does not match the C declaration\n", info.name, word.c_str());
      std::abort();
    }
    if (kinds[i] != "out") o.inputs.push_back(word);
  }
  if (names.size() != sizeof...(P)) {
    std::fprintf(stderr, "qosdb: %s: %zu arguments listed for %zu\n", info.name, names.size(), sizeof...(P));
    std::abort();
  }
  o.locking = info.locking;
  o.attaches = info.attaching == qosapi::Attaching::Attaches;
  o.needsStore = info.attaching != qosapi::Attaching::Free;
  o.prepare = [fn, names](const std::vector<Argument>& inputs) -> std::function<CallResult()> {
    auto slots = std::make_shared<Slots>();
    takeInputs(*slots, inputs, Indexes{});
    return [fn, names, slots]() {
      CallResult r;
      auto call = [fn](auto&... s) { return fn(s.pass()...); };
      if constexpr (std::is_void_v<R>) {
        std::apply(call, *slots);
        r.hasResult = false;
      } else if constexpr (std::is_pointer_v<R>) {
        const char* text = std::apply(call, *slots);
        r.hasResult = false;
        r.text = text != nullptr ? "\"" + std::string(text) + "\"" : "NULL";
      } else {
        r.result = std::apply(call, *slots);
      }
      showOutputs(*slots, names, r.outputs, Indexes{});
      return r;
    };
  };
  return o;
}

std::vector<Operation> table() {
  return {
#define QOS_OP(family, fn, locking, attaching, arguments) \
  op(QOSAPI_INFO(family, fn, locking, attaching, arguments), Adapt<&fn>::call),
#include "tools/api/operations.def"
#undef QOS_OP
  };
}

}  // namespace

const std::vector<Operation>& operations() {
  static const std::vector<Operation> kTable = table();
  return kTable;
}

const Operation* findOperation(const std::string& name) {
  for (const auto& o : operations()) {
    if (o.name == name) return &o;
  }
  return nullptr;
}

}  // namespace qosdb
