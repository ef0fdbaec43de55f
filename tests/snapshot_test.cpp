// SPDX-License-Identifier: MIT
// snapshot_test.cpp - qosdb dump, load, diff and --from: snapshot files
// round-trip, damaged ones are refused with the store left as it was, and
// a snapshot of the other byte order reads as its writer shows it.
#include <sys/resource.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/fixture.h"
#include "tools/schema/schema.h"

namespace {

using Out = std::pair<int, std::string>;
using Args = std::vector<std::string>;
constexpr std::size_t kHeader = 128;  // the file's header, before the region's bytes

Out qosdb(const Args& args, bool err = true) {
  qostest::PeerResult r = qostest::runProgram(QOSDB_BIN, args, err);
  return {r.status, r.out};
}
std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}
void spill(const std::string& path, const std::string& bytes) { std::ofstream(path, std::ios::binary) << bytes; }
void putBig(std::string& s, std::size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i) s[at + i] = static_cast<char>(v >> (24 - 8 * i));
}
std::string crcText(const std::string& bytes, std::size_t from) {
  uint32_t crc = 0xffffffffu;
  for (std::size_t i = from; i < bytes.size(); ++i) {
    crc ^= static_cast<uint8_t>(bytes[i]);
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1u)));
  }
  char text[16];
  std::snprintf(text, sizeof text, "0x%08x", ~crc);
  return text;
}

class Snapshot : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(dir_);
    ASSERT_EQ(qosdb({"init"}).first, 0);
    for (const char* s : {"registration.qos", "dsa.qos"}) ASSERT_EQ(qosdb({"run", QOSDB_SCENARIOS "/" + std::string(s)}).first, 0);
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }
  std::string at(const std::string& name) const { return dir_ + "/" + name; }
  std::string region() {  // the live region's bytes, through a dump
    EXPECT_EQ(qosdb({"dump", at("now")}).first, 0);
    return slurp(at("now")).substr(kHeader);
  }
  const std::string dir_ = "/tmp/snapshot_test_" + std::to_string(getpid());
};

TEST_F(Snapshot, RoundTripsAndRefusesDamagedFilesLeavingTheStoreAsItWas) {
  const std::string a = at("a");
  const std::string bytes = (qosdb({"dump", a}), slurp(a));
  ASSERT_EQ(bytes.size(), kHeader + sizeof(qos::QosIntDbRegion));
  EXPECT_EQ(qosdb({"dump", at("b")}).second,
            "dumped the region (85032 bytes, CRC-32 " + crcText(bytes, kHeader) + ", under the lock) to " + at("b") + "\n");
  EXPECT_EQ(bytes.substr(0, 8), std::string("QOSSNAP\0", 8));
  const uint16_t one = 1;  // byte order, word size, taken under the lock:
  EXPECT_EQ(bytes.substr(12, 3), std::string({*reinterpret_cast<const char*>(&one) == 1 ? 'L' : 'B', sizeof(void*), 0}));
  EXPECT_EQ(qosdb({"dump", "--no-lock", at("n")}).first, 0);
  EXPECT_EQ(slurp(at("n"))[14], 1);
  ASSERT_EQ(qosdb({"reset"}).first, 0);
  const std::string reset = region();
  const Out diff = qosdb({"diff", a, "live"});  // its first lines
  const std::string first = "sf[0].state: operational -> empty\nsf[0].sfId: 0x1001 -> 0x0\nsf[0].direction: up -> 0\n";
  EXPECT_EQ(Out(diff.first, diff.second.substr(0, first.size())), Out(1, first));

  std::string flipped = bytes;
  flipped[kHeader + offsetof(qos::QosIntDbRegion, sf) + offsetof(qos::SfRow, state)] ^= 1;
  std::string version = bytes, size = bytes, magic = bytes;
  version[11] = 2, magic[1] = 'X', putBig(size, 16, 85036);
  const std::pair<std::string, std::string> bad[] = {
      {magic, "not a store snapshot (no QOSSNAP header)"},
      {version, "snapshot format 2; this qosdb reads format 1"},
      {size, "a region of 85036 bytes; this store's region is 85032"},
      {bytes.substr(0, bytes.size() - 1000), "holds 84032 bytes after its header, not 85032 (truncated or extended)"},
      {flipped, "CRC-32 " + crcText(flipped, kHeader) + " of the region, header says " + crcText(bytes, kHeader) + ": damaged"},
  };
  for (const auto& [damaged, why] : bad) {
    spill(at("bad"), damaged);
    const Out refused{1, "qosdb: " + at("bad") + ": " + why + "\n"};
    EXPECT_EQ(qosdb({"load", "--force", at("bad")}), refused);
    EXPECT_EQ(qosdb({"show", "--from", at("bad")}), refused);
    EXPECT_EQ(region(), reset) << refused.second;
  }

  const Out loaded = qosdb({"load", a});
  EXPECT_EQ(Out(loaded.first, loaded.second.substr(loaded.second.size() - 33)), Out(0, "integrity: every invariant holds\n"));
  EXPECT_EQ(region(), bytes.substr(kHeader));
  EXPECT_EQ(qosdb({"diff", a, "live"}), (Out{0, "no differences\n"}));

  ASSERT_EQ(qos_IntDb_RetrieveAccess(), 0);  // this process is now another user of the store
  EXPECT_EQ(qosdb({"load", at("now")}), (Out{1, "qosdb: 1 other process is attached to the store; qosdb load --force "
                                                 "overwrites the region under them\n"}));
  EXPECT_EQ(qosdb({"load", "--force", at("now")}).first, 0);
}

TEST_F(Snapshot, KilledMidWriteLeavesNoFileUnderItsName) {
  // The dump dies of SIGXFSZ after 4096 bytes. Only the soft limit drops: a
  // hard limit could not be raised again inside the test's user namespace.
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  rlimit small{4096, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  const Out killed = qosdb({"dump", at("half")});
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ(killed.first, -1);  // killed by the signal
  EXPECT_FALSE(std::filesystem::exists(at("half")));
}

TEST_F(Snapshot, TheOtherByteOrderReadsAsItsWriterShowsIt) {
  std::string bytes = (qosdb({"dump", at("a")}), slurp(at("a")));
  const std::string native = bytes.substr(kHeader);
  qosschema::swapByteOrder(reinterpret_cast<uint8_t*>(&bytes[kHeader]));
  EXPECT_NE(bytes.substr(kHeader), native);
  bytes[12] = bytes[12] == 'B' ? 'L' : 'B';
  putBig(bytes, 20, static_cast<uint32_t>(std::stoul(crcText(bytes, kHeader), nullptr, 16)));
  spill(at("swapped"), bytes);
  for (const Args& command : {Args{"show", "--json"}, Args{"show"}, Args{"check"}, Args{"walk"}}) {
    Args from = command;
    from.insert(from.end(), {"--from", at("swapped")});
    EXPECT_EQ(qosdb(from), qosdb(command)) << command[0];
  }
  EXPECT_EQ(qosdb({"diff", "--json", "live", at("swapped")}).first, 0);
}

}  // namespace
