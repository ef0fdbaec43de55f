// SPDX-License-Identifier: MIT
// fixture.h - what the tests share: a fresh store, captured log records,
// captured standard output, raw region bytes, events and peer processes.
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "frame/region.h"
#include "qosintdb.h"
#include "qosplatform_host.h"

namespace qostest {

struct LogRecord {
  int level;
  int module;
  std::string function;
  int line;
  std::string text;
};

// Collects every log record while it lives.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  const std::vector<LogRecord>& records() const { return records_; }
  std::vector<std::string> texts() const;
  void clear() { records_.clear(); }

 private:
  static void hook(const LogSite* site, const char* text, void* self);
  std::vector<LogRecord> records_;
};

struct Event {
  uint32_t dest;
  uint32_t event;
  uint32_t payload;
  bool operator==(const Event& o) const {
    return dest == o.dest && event == o.event && payload == o.payload;
  }
};

// Collects every event sent while it lives.
class EventCapture {
 public:
  EventCapture();
  ~EventCapture();
  const std::vector<Event>& events() const { return events_; }
  void clear() { events_.clear(); }

 private:
  static void hook(uint32_t dest, uint32_t event, const void* payload, uint32_t length, void* self);
  std::vector<Event> events_;
};

// The region as this process maps it (NULL before qos_IntDb_Init).
uint8_t* region();

// The region as the layout's rows (after qos_IntDb_Init).
inline qos::QosIntDbRegion& store() { return *reinterpret_cast<qos::QosIntDbRegion*>(region()); }

// A copy of all 85032 bytes, to compare before and after.
std::vector<uint8_t> snapshot();
// Byte offsets where two snapshots differ.
std::vector<std::size_t> changedOffsets(const std::vector<uint8_t>& before,
                                        const std::vector<uint8_t>& after);

// What fn prints on standard output.
std::string captureStdout(const std::function<void()>& fn);

// Runs a program of this build (under the build's emulator when it is a
// cross build) and collects its exit status and standard output; with
// `withStderr` standard error is collected too.
struct PeerResult {
  int status;
  std::string out;
};
// The words that start a program of this build (emulator first in a cross build).
std::vector<std::string> commandWords(const std::string& path, const std::vector<std::string>& args);

PeerResult runProgram(const std::string& path, const std::vector<std::string>& args,
                      bool withStderr = false);

// What a shell command prints on standard output (`2>&1` in it for standard error).
std::string sh(const std::string& command);

// Runs the peer program (a second process of the stack) with the given arguments.
PeerResult runPeer(const std::vector<std::string>& args);

// A store created and reset by this process, with log records captured.
class StoreTest : public ::testing::Test {
 protected:
  void SetUp() override;
  LogCapture logs;
};

}  // namespace qostest
