// SPDX-License-Identifier: MIT
// capture.cpp - the DSX messages of the store as DOCSIS frames in a pcap
// file (link type 143), for Wireshark and tshark.
//
// Each transaction in use contributes its request, response and acknowledge,
// in that order, as they are stored. A frame is a DOCSIS MAC header (FC 0xC2:
// MAC-specific, management, no extended header; length; HCS), the MAC
// management header (destination, source, length, DSAP 0, SSAP 0, control 3,
// version 1, type, reserved byte), the stored bytes (transaction id, then
// the confirmation code or SFID where the type has them, then the TLVs) and
// the CRC-32 that closes every management message on the wire. Messages the
// modem sends go from the modem's address to the CMTS's, the others back.
//
// With --follow the command keeps polling the store and writes a frame each
// time a buffer's contents change, until it is stopped or its output closes.
#include <poll.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "commands.h"
#include "store.h"

namespace qosdb {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t kLinkTypeDocsis = 143;
constexpr uint8_t kModemMac[6] = {0x00, 0x00, 0x5e, 0x00, 0x53, 0x01};
constexpr uint8_t kCmtsMac[6] = {0x00, 0x00, 0x5e, 0x00, 0x53, 0xfe};

// CRC-16/X.25 of the MAC header (the HCS).
uint16_t crc16x25(const uint8_t* p, std::size_t n) {
  uint16_t crc = 0xffff;
  while (n-- > 0) {
    crc ^= *p++;
    for (int b = 0; b < 8; ++b) crc = (crc & 1) ? (crc >> 1) ^ 0x8408 : crc >> 1;
  }
  return static_cast<uint16_t>(~crc);
}

// CRC-32 as Ethernet computes it.
uint32_t crc32(const uint8_t* p, std::size_t n) {
  uint32_t crc = 0xffffffffu;
  while (n-- > 0) {
    crc ^= *p++;
    for (int b = 0; b < 8; ++b) crc = (crc & 1) ? (crc >> 1) ^ 0xedb88320u : crc >> 1;
  }
  return ~crc;
}

void be16(Bytes& out, std::size_t v) {
  out.push_back(static_cast<uint8_t>(v >> 8));
  out.push_back(static_cast<uint8_t>(v));
}

// kind 0 request, 1 response, 2 acknowledge; DSA-REQ is type 15, DSD-RSP 22.
Bytes frame(uint32_t taType, bool byModem, int kind, const uint8_t* data, uint32_t length) {
  bool fromModem = (kind == 1) != byModem;
  Bytes mgmt(kModemMac, kModemMac + 6);  // destination, then source
  if (fromModem) mgmt.assign(kCmtsMac, kCmtsMac + 6);
  mgmt.insert(mgmt.end(), fromModem ? kModemMac : kCmtsMac, (fromModem ? kModemMac : kCmtsMac) + 6);
  be16(mgmt, 6u + length);
  uint8_t type = static_cast<uint8_t>(15 + 3 * taType + static_cast<uint32_t>(kind));
  mgmt.insert(mgmt.end(), {0, 0, 3, 1, type, 0});
  mgmt.insert(mgmt.end(), data, data + length);
  uint32_t fcs = crc32(mgmt.data(), mgmt.size());
  for (int i = 0; i < 4; ++i) mgmt.push_back(static_cast<uint8_t>(fcs >> (8 * i)));

  Bytes out{0xc2, 0x00};
  be16(out, mgmt.size());
  uint16_t hcs = crc16x25(out.data(), out.size());
  out.push_back(static_cast<uint8_t>(hcs));
  out.push_back(static_cast<uint8_t>(hcs >> 8));
  out.insert(out.end(), mgmt.begin(), mgmt.end());
  return out;
}

struct WriteFailure : Failure {
  using Failure::Failure;
};

class PcapWriter {
 public:
  explicit PcapWriter(FILE* f) : f_(f) {
    // Magic, version 2.4, zone, accuracy, snapshot length, link type; host order.
    const uint32_t magic = 0xa1b2c3d4u, tail[4] = {0, 0, 65535, kLinkTypeDocsis};
    const uint16_t version[2] = {2, 4};
    write(&magic, 4), write(version, 4), write(tail, sizeof tail);
    flush();
  }
  void add(const Bytes& b) {
    timeval now{};
    gettimeofday(&now, nullptr);
    // Frames of one poll share a time; keep them in order all the same.
    uint64_t us = static_cast<uint64_t>(now.tv_sec) * 1000000u + static_cast<uint64_t>(now.tv_usec);
    if (us <= last_) us = last_ + 1;
    last_ = us;
    const uint32_t rec[4] = {static_cast<uint32_t>(us / 1000000u), static_cast<uint32_t>(us % 1000000u),
                             static_cast<uint32_t>(b.size()), static_cast<uint32_t>(b.size())};
    write(rec, sizeof rec), write(b.data(), b.size());
  }
  void flush() {
    if (std::fflush(f_) != 0) fail();
  }

 private:
  void write(const void* p, std::size_t n) {
    if (n != 0 && std::fwrite(p, n, 1, f_) != 1) fail();
  }
  static void fail() { throw WriteFailure(std::string("cannot write the capture: ") + std::strerror(errno)); }
  FILE* f_;
  uint64_t last_ = 0;
};

// Writes the frames of the messages that differ from `seen` (all of them
// when `seen` is empty) and remembers them.
void writeMessages(PcapWriter& out, const qos::QosIntDbRegion& r, std::map<int, Bytes>& seen) {
  for (std::size_t i = 0; i < qos::kTaRows && i < qos::kMsgRows; ++i) {
    const qos::TaRow& ta = r.ta[i];
    const qos::MsgBuffer* buffers[3] = {&r.msgs[i].req, &r.msgs[i].rsp, &r.msgs[i].ack};
    for (int kind = 0; kind < 3; ++kind) {
      int key = static_cast<int>(i) * 3 + kind;
      uint32_t n = buffers[kind]->length < qos::kMsgBufferSize ? buffers[kind]->length : 0;
      if (!ta.used() || ta.type > 2 || n == 0 || (ta.type == 2 && kind == 2)) {
        seen.erase(key);
        continue;
      }
      Bytes now(buffers[kind]->data, buffers[kind]->data + n);
      auto it = seen.find(key);
      if (it != seen.end() && it->second == now) continue;
      out.add(frame(ta.type, ta.initiator == 0, kind, now.data(), n));
      seen[key] = std::move(now);
    }
  }
  out.flush();
}

// Whether the reader of a pipe has gone: then following is over even when
// no message changes.
bool readerGone(FILE* f) {
  pollfd p{fileno(f), 0, 0};
  return poll(&p, 1, 0) == 1 && (p.revents & (POLLERR | POLLHUP)) != 0;
}

// SIGINT or SIGTERM ends a follow between two looks, never inside one: a
// look holds the stack's lock, and dying there would leave it taken.
volatile sig_atomic_t stopFollowing = 0;
void requestStop(int) { stopFollowing = 1; }

}  // namespace

int captureCommand(const std::string& file, bool follow, double intervalSeconds) {
  const qos::QosIntDbRegion& live = *attach();
  FILE* f = file == "-" ? stdout : std::fopen(file.c_str(), "wb");
  if (f == nullptr) throw Failure("cannot open " + file + ": " + std::strerror(errno));
  if (follow) {
    signal(SIGPIPE, SIG_IGN);
    struct sigaction sa {};
    sa.sa_handler = requestStop;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
  }
  try {
    PcapWriter out(f);
    std::map<int, Bytes> seen;
    do {
      writeMessages(out, *snapshot(live, true), seen);
      if (follow && !stopFollowing) usleep(static_cast<useconds_t>(intervalSeconds * 1e6));
    } while (follow && !stopFollowing && !readerGone(f));
  } catch (const WriteFailure&) {
    if (f != stdout) std::fclose(f);
    if (!follow) throw;
    return 0;  // the reader went away: the follow is over
  } catch (...) {
    if (f != stdout) std::fclose(f);
    throw;
  }
  if (f != stdout) std::fclose(f);
  return 0;
}

}  // namespace qosdb
