// SPDX-License-Identifier: MIT
// snapshot.h - the store's region as a file that any host can read.
//
// A snapshot file is a header of 128 bytes, then the 85032 bytes of the
// region exactly as they lay in the writer's memory (the writer's byte
// order). The header's integers are big-endian whatever the writer, so any
// reader can tell how to read the rest:
//    0  magic "QOSSNAP\0"           32  library version (text, NUL-padded, 32)
//    8  u32 format (1)              64  host name (text, NUL-padded, 64)
//   12  u8 byte order 'B' or 'L'
//   13  u8 word size in bytes
//   14  u8 flags (1: taken without the lock)
//   16  u32 region size
//   20  u32 CRC-32 of the region bytes
//   24  u64 creation time, seconds since 1970
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "frame/region.h"

namespace qosdb {

constexpr std::size_t kSnapshotHeaderSize = 128;
constexpr uint32_t kSnapshotFormat = 1;
constexpr uint8_t kSnapshotNoLock = 1;

struct SnapshotHeader {
  uint32_t format = kSnapshotFormat;
  char byteOrder = 'L';  // 'B' big-endian, 'L' little-endian
  uint8_t wordSize = 0;
  uint8_t flags = 0;
  uint32_t regionSize = 0;
  uint32_t crc = 0;
  uint64_t created = 0;
  std::string library;
  std::string host;
};

struct Snapshot {
  SnapshotHeader header;
  std::unique_ptr<qos::QosIntDbRegion> region;  // in this host's byte order
};

// The IEEE CRC-32 (as zlib and Ethernet compute it).
uint32_t crc32(const uint8_t* bytes, std::size_t n);

// The file's bytes for a region copy of this host.
std::string encodeSnapshot(const qos::QosIntDbRegion& region, bool withoutLock);
// Checks and reads a snapshot's bytes; `name` names it in the Failure thrown
// for a wrong magic, format, size or CRC.
Snapshot decodeSnapshot(const std::string& bytes, const std::string& name);
// A snapshot file ("-": standard input), checked.
Snapshot readSnapshot(const std::string& path);

// Moves this process into a private IPC namespace, creates a store there
// and fills it with the snapshot: the library's own operations (the
// registration check, the SNMP walks) then run on it as on a live store,
// and no store of the machine is touched.
void openPrivateStore(const std::string& path);

}  // namespace qosdb
