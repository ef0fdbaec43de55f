// SPDX-License-Identifier: MIT
// api.h - the client API as one table (operations.def), for the tools,
// the fuzzer and the tests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "qosintdb.h"

namespace qosapi {

enum class Locking { ByCaller, Itself, Takes, Gives, None };
enum class Attaching { Uses, Attaches, Free };
enum class Family { Entry, Transaction, Flow, FlowAttribute, Classifier, Phs, Cluster, Message, Outcome, Active, Check, Dbc };

struct OperationInfo {
  const char* name;
  const char* arguments;  // "name:kind name:kind ..."
  Locking locking;
  Attaching attaching;
  Family family;
};

// Expands one line of operations.def to its OperationInfo.
#define QOSAPI_INFO(family, fn, locking, attaching, arguments) \
  ::qosapi::OperationInfo {                                     \
    #fn, arguments, ::qosapi::Locking::locking, ::qosapi::Attaching::attaching, ::qosapi::Family::family \
  }

inline constexpr OperationInfo kOperations[] = {
#define QOS_OP(family, fn, locking, attaching, arguments) QOSAPI_INFO(family, fn, locking, attaching, arguments),
#include "tools/api/operations.def"
#undef QOS_OP
};

inline const OperationInfo* findOperation(std::string_view name) {
  for (const OperationInfo& o : kOperations) {
    if (name == o.name) return &o;
  }
  return nullptr;
}

// ---- How a client passes the arguments that C splits in two --------------
//
// Adapt<Kit, F>::call is F itself, or, where F's C signature takes a
// (length, pointer) byte pair, a (count, mappings) pair or an in/out index,
// a function that takes the Kit's one argument for the pair instead:
//   Kit::Bytes     bytes:    Kit::length(b), Kit::data(b)
//   Kit::Mappings  mappings: Kit::count(m), Kit::entries(m)
//   Kit::Cursor    i32 in/out: Kit::cursor(c) is the int32_t* passed
// A consumer adds specialisations of its own for the outputs it wraps.

template <typename Kit, auto F, typename = decltype(F)>
struct Adapt {
  static constexpr auto call = F;
};

using Tlv = int32_t (*)(uint32_t, uint32_t, uint32_t, const uint8_t*);
using Field = int32_t (*)(uint32_t, uint32_t, const uint8_t*);
using Message = int32_t (*)(uint32_t, const uint8_t*, uint32_t);
using NewTa = int32_t (*)(uint32_t, uint32_t, uint32_t, uint32_t, const uint8_t*, uint32_t*);
using NextCluster = int32_t (*)(uint32_t, int32_t*, uint8_t*, SidChannelMapping*);
using ClusterMod = int32_t (*)(uint32_t, uint8_t, uint32_t, const SidChannelMapping*);

template <typename Kit, auto F>
struct Adapt<Kit, F, Tlv> {
  static int32_t call(uint32_t taIndex, uint32_t type, typename Kit::Bytes b) {
    return F(taIndex, type, Kit::length(b), Kit::data(b));
  }
};
template <typename Kit, auto F>
struct Adapt<Kit, F, Field> {
  static int32_t call(uint32_t taIndex, typename Kit::Bytes b) { return F(taIndex, Kit::length(b), Kit::data(b)); }
};
template <typename Kit, auto F>
struct Adapt<Kit, F, Message> {
  static int32_t call(uint32_t taIndex, typename Kit::Bytes b) { return F(taIndex, Kit::data(b), Kit::length(b)); }
};
template <typename Kit, auto F>
struct Adapt<Kit, F, NewTa> {
  static int32_t call(uint32_t taId, uint32_t type, uint32_t initiator, typename Kit::Bytes b, uint32_t* taIndex) {
    return F(taId, type, initiator, Kit::length(b), Kit::data(b), taIndex);
  }
};
template <typename Kit, auto F>
struct Adapt<Kit, F, NextCluster> {
  static int32_t call(uint32_t sfId, typename Kit::Cursor c, uint8_t* clusterId, SidChannelMapping* out) {
    return F(sfId, Kit::cursor(c), clusterId, out);
  }
};
template <typename Kit, auto F>
struct Adapt<Kit, F, ClusterMod> {
  static int32_t call(uint32_t sfId, uint8_t clusterId, typename Kit::Mappings m) {
    return F(sfId, clusterId, Kit::count(m), Kit::entries(m));
  }
};

}  // namespace qosapi
