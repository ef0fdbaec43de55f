// SPDX-License-Identifier: MIT
// snapshot.cpp - snapshot files (snapshot.h) and the commands around them:
// dump, load, diff.
#include "snapshot.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "names.h"
#include "qosintdb.h"
#include "store.h"
#include "tools/schema/schema.h"

namespace qosdb {
namespace {

constexpr char kMagic[8] = {'Q', 'O', 'S', 'S', 'N', 'A', 'P', '\0'};
constexpr std::size_t kRegion = sizeof(qos::QosIntDbRegion);

char hostByteOrder() {
  const uint16_t one = 1;
  uint8_t first;
  std::memcpy(&first, &one, 1);
  return first == 1 ? 'L' : 'B';
}

void putBig(std::string& out, std::size_t at, uint64_t v, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) out[at + i] = static_cast<char>(v >> (8 * (n - 1 - i)));
}
uint64_t getBig(const std::string& in, std::size_t at, std::size_t n) {
  uint64_t v = 0;
  for (std::size_t i = 0; i < n; ++i) v = (v << 8) | static_cast<uint8_t>(in[at + i]);
  return v;
}
void putText(std::string& out, std::size_t at, const std::string& text, std::size_t n) {
  out.replace(at, std::min(text.size(), n - 1), text.substr(0, n - 1));
}
std::string getText(const std::string& in, std::size_t at, std::size_t n) {
  std::string s = in.substr(at, n);
  return s.substr(0, s.find('\0'));
}

std::string systemError(const std::string& what) { return what + ": " + std::strerror(errno); }

// Writes next to `path` and renames: a writer killed half-way leaves no
// file under the name.
void writeFile(const std::string& path, const std::string& bytes) {
  if (path == "-") {
    std::cout.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    std::cout.flush();
    if (!std::cout) throw Failure("cannot write the snapshot to standard output");
    return;
  }
  const std::string temp = path + ".tmp" + std::to_string(getpid());
  int fd = open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644);
  if (fd == -1) throw Failure(systemError("cannot create " + temp));
  std::size_t done = 0;
  while (done < bytes.size()) {
    ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
    if (n <= 0 && errno != EINTR) {
      const std::string error = systemError("cannot write " + temp);
      close(fd);
      unlink(temp.c_str());
      throw Failure(error);
    }
    done += n > 0 ? static_cast<std::size_t>(n) : 0;
  }
  if (fsync(fd) != 0 || close(fd) != 0 || rename(temp.c_str(), path.c_str()) != 0) {
    const std::string error = systemError("cannot write " + path);
    unlink(temp.c_str());
    throw Failure(error);
  }
}

std::string hexWord(uint32_t v) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08x", v);
  return text;
}

// The region named on a command line: "live" (copied under the lock) or a snapshot file.
std::unique_ptr<qos::QosIntDbRegion> regionOf(const std::string& source) {
  if (source == "live") return snapshot(*attach(), true);
  return readSnapshot(source).region;
}

nlohmann::ordered_json valueJson(const qosschema::Field& f, const uint8_t* row, std::size_t n) {
  if (f.bytes) return hexBytes(row + f.offset, n);
  const int64_t v = qosschema::value(f, row);
  const char* name = f.enumeration != nullptr ? f.enumeration->name(static_cast<uint32_t>(v)) : nullptr;
  return name != nullptr ? nlohmann::ordered_json(name) : nlohmann::ordered_json(v);
}

// As the text view writes it: names of enumerations, identifiers in hex.
std::string valueText(const qosschema::Field& f, const uint8_t* row, std::size_t n) {
  const nlohmann::ordered_json v = valueJson(f, row, n);
  if (f.show == qosschema::Show::Hex && v.is_number()) return hex(static_cast<uint32_t>(qosschema::value(f, row)));
  return v.is_string() && !f.bytes ? v.get<std::string>() : v.dump();
}

}  // namespace

uint32_t crc32(const uint8_t* bytes, std::size_t n) {
  uint32_t crc = 0xffffffffu;
  for (std::size_t i = 0; i < n; ++i) {
    crc ^= bytes[i];
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

std::string encodeSnapshot(const qos::QosIntDbRegion& region, bool withoutLock) {
  std::string out(kSnapshotHeaderSize, '\0');
  out.replace(0, sizeof kMagic, kMagic, sizeof kMagic);
  putBig(out, 8, kSnapshotFormat, 4);
  out[12] = hostByteOrder();
  out[13] = static_cast<char>(sizeof(void*));
  out[14] = static_cast<char>(withoutLock ? kSnapshotNoLock : 0);
  putBig(out, 16, kRegion, 4);
  const auto* bytes = reinterpret_cast<const uint8_t*>(&region);
  putBig(out, 20, crc32(bytes, kRegion), 4);
  putBig(out, 24, static_cast<uint64_t>(std::time(nullptr)), 8);
  putText(out, 32, QOSINTDB_VERSION_STRING, 32);
  char host[64] = {};
  gethostname(host, sizeof host - 1);
  putText(out, 64, host, 64);
  out.append(reinterpret_cast<const char*>(bytes), kRegion);
  return out;
}

Snapshot decodeSnapshot(const std::string& bytes, const std::string& name) {
  auto refuse = [&name](const std::string& why) { return Failure(name + ": " + why); };
  if (bytes.size() < kSnapshotHeaderSize || bytes.compare(0, sizeof kMagic, kMagic, sizeof kMagic) != 0) {
    throw refuse("not a store snapshot (no QOSSNAP header)");
  }
  Snapshot s;
  SnapshotHeader& h = s.header;
  h.format = static_cast<uint32_t>(getBig(bytes, 8, 4));
  h.byteOrder = bytes[12];
  h.wordSize = static_cast<uint8_t>(bytes[13]);
  h.flags = static_cast<uint8_t>(bytes[14]);
  h.regionSize = static_cast<uint32_t>(getBig(bytes, 16, 4));
  h.crc = static_cast<uint32_t>(getBig(bytes, 20, 4));
  h.created = getBig(bytes, 24, 8);
  h.library = getText(bytes, 32, 32);
  h.host = getText(bytes, 64, 64);
  if (h.format != kSnapshotFormat) {
    throw refuse("snapshot format " + std::to_string(h.format) + "; this qosdb reads format " +
                 std::to_string(kSnapshotFormat));
  }
  if (h.byteOrder != 'B' && h.byteOrder != 'L') throw refuse("unknown byte order in the header");
  if (h.regionSize != kRegion) {
    throw refuse("a region of " + std::to_string(h.regionSize) + " bytes; this store's region is " +
                 std::to_string(kRegion));
  }
  if (bytes.size() != kSnapshotHeaderSize + kRegion) {
    throw refuse("holds " + std::to_string(bytes.size() - kSnapshotHeaderSize) + " bytes after its header, not " +
                 std::to_string(kRegion) + " (truncated or extended)");
  }
  const auto* payload = reinterpret_cast<const uint8_t*>(bytes.data() + kSnapshotHeaderSize);
  const uint32_t crc = crc32(payload, kRegion);
  if (crc != h.crc) throw refuse("CRC-32 " + hexWord(crc) + " of the region, header says " + hexWord(h.crc) + ": damaged");
  s.region = std::make_unique<qos::QosIntDbRegion>();
  std::memcpy(s.region.get(), payload, kRegion);
  if (h.byteOrder != hostByteOrder()) qosschema::swapByteOrder(reinterpret_cast<uint8_t*>(s.region.get()));
  return s;
}

Snapshot readSnapshot(const std::string& path) {
  std::string bytes;
  if (path == "-") {
    bytes.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
  } else {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw Failure("cannot read " + path);
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  return decodeSnapshot(bytes, path);
}

void openPrivateStore(const std::string& path) {
  Snapshot s = readSnapshot(path);
  // Without the right to a new IPC namespace, a new user namespace may still bring one.
  if (unshare(CLONE_NEWIPC) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWIPC) != 0) {
    throw Failure(systemError("cannot open a private store for " + path));
  }
  if (qos_IntDb_Init() != 0) throw Failure("cannot create a private store for " + path);
  qos::QosIntDbRegion* region = attach();
  Locked lock;
  std::memcpy(region, s.region.get(), kRegion);
}

int dumpCommand(const std::string& file, bool useLock) {
  std::unique_ptr<qos::QosIntDbRegion> copy = snapshot(*attach(), useLock);
  const std::string bytes = encodeSnapshot(*copy, !useLock);
  writeFile(file, bytes);
  if (file != "-") {
    std::cout << "dumped the region (" << kRegion << " bytes, CRC-32 " << hexWord(crc32(
                     reinterpret_cast<const uint8_t*>(copy.get()), kRegion))
              << (useLock ? ", under the lock" : ", without the lock") << ") to " << file << "\n";
  }
  return 0;
}

int loadCommand(const std::string& file, bool force) {
  Snapshot s = readSnapshot(file);  // refuses a bad file before the store is touched
  qos::QosIntDbRegion* live = attach();
  shmid_ds ds{};
  const int shmid = shmget(QOS_REGION_SEGMENT_ID, 0, 0);
  if (shmid == -1 || shmctl(shmid, IPC_STAT, &ds) != 0) throw Failure(systemError("cannot read segment 14's state"));
  const auto others = static_cast<long>(ds.shm_nattch) - 1;
  if (others > 0 && !force) {
    throw Failure(std::to_string(others) + " other process" + (others == 1 ? " is" : "es are") +
                  " attached to the store; qosdb load --force overwrites the region under them");
  }
  ensureLockHolderAlive();
  {
    Locked lock;
    std::memcpy(live, s.region.get(), kRegion);
  }
  std::cout << "loaded " << file << " (taken on " << (s.header.host.empty() ? "?" : s.header.host) << ", "
            << (s.header.byteOrder == 'B' ? "big" : "little") << "-endian, " << int{s.header.wordSize} * 8
            << "-bit, library " << s.header.library << ((s.header.flags & kSnapshotNoLock) ? ", without the lock" : "")
            << ")\n";
  return checkCommand(true, "");
}

int diffCommand(const std::string& a, const std::string& b, bool json) {
  std::unique_ptr<qos::QosIntDbRegion> left = regionOf(a);
  std::unique_ptr<qos::QosIntDbRegion> right = regionOf(b);
  nlohmann::ordered_json out = nlohmann::ordered_json::array();
  std::ostringstream text;
  for (const qosschema::Table& t : qosschema::tables()) {
    const std::vector<qosschema::Column> columns = qosschema::columns(*t.row, ".", true);
    for (std::size_t i = 0; i < t.rows; ++i) {
      const uint8_t* l = qosschema::rowAt(*left, t, i);
      const uint8_t* r = qosschema::rowAt(*right, t, i);
      if (std::memcmp(l, r, t.row->size) == 0) continue;
      for (const qosschema::Column& c : columns) {
        const qosschema::Field& f = c.field;
        if (std::memcmp(l + f.offset, r + f.offset, f.size()) == 0) continue;
        const std::string where = std::string(t.name) + (t.rows > 1 ? "[" + std::to_string(i) + "]" : "") + "." + c.name;
        nlohmann::ordered_json d = {{"table", t.name}, {"row", i}, {"field", c.name},
                                    {"a", valueJson(f, l, c.inUse(l))}, {"b", valueJson(f, r, c.inUse(r))}};
        text << where << ": " << valueText(f, l, c.inUse(l)) << " -> " << valueText(f, r, c.inUse(r)) << "\n";
        out.push_back(std::move(d));
      }
    }
  }
  if (json) {
    std::cout << nlohmann::ordered_json{{"a", a}, {"b", b}, {"differences", out}}.dump(2) << "\n";
  } else {
    std::cout << (out.empty() ? "no differences\n" : text.str());
  }
  return out.empty() ? 0 : 1;
}

}  // namespace qosdb
