// SPDX-License-Identifier: MIT
// fixture.cpp - shared test support.
#include "support/fixture.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include <gtest/gtest.h>

namespace qostest {

LogCapture::LogCapture() { qos_host_set_log_hook(&LogCapture::hook, this); }
LogCapture::~LogCapture() { qos_host_set_log_hook(nullptr, nullptr); }

void LogCapture::hook(const LogSite* site, const char* text, void* self) {
  static_cast<LogCapture*>(self)->records_.push_back(
      {site->level, site->module, site->function ? site->function : "", site->line, text});
}

std::vector<std::string> LogCapture::texts() const {
  std::vector<std::string> out;
  for (const auto& r : records_) out.push_back(r.text);
  return out;
}

EventCapture::EventCapture() { qos_host_set_event_hook(&EventCapture::hook, this); }
EventCapture::~EventCapture() { qos_host_set_event_hook(nullptr, nullptr); }

void EventCapture::hook(uint32_t dest, uint32_t event, const void* payload, uint32_t length,
                        void* self) {
  uint32_t value = 0xDEADBEEF;
  if (length == sizeof value) std::memcpy(&value, payload, sizeof value);
  static_cast<EventCapture*>(self)->events_.push_back({dest, event, value});
}

uint8_t* region() { return static_cast<uint8_t*>(shm_get(1, QOS_REGION_SEGMENT_ID)); }

std::vector<uint8_t> snapshot() {
  uint8_t* base = region();
  return std::vector<uint8_t>(base, base + QOS_REGION_SIZE);
}

std::vector<std::size_t> changedOffsets(const std::vector<uint8_t>& before,
                                        const std::vector<uint8_t>& after) {
  std::vector<std::size_t> out;
  for (std::size_t i = 0; i < before.size() && i < after.size(); ++i) {
    if (before[i] != after[i]) out.push_back(i);
  }
  return out;
}

std::string captureStdout(const std::function<void()>& fn) {
  std::fflush(stdout);
  ::testing::internal::CaptureStdout();
  fn();
  std::fflush(stdout);
  return ::testing::internal::GetCapturedStdout();
}

std::vector<std::string> commandWords(const std::string& path, const std::vector<std::string>& args) {
  std::vector<std::string> words;
  std::string prefix = QOS_TEST_EXEC_PREFIX;
  for (std::size_t pos = 0; pos < prefix.size();) {
    std::size_t end = prefix.find(' ', pos);
    if (end == std::string::npos) end = prefix.size();
    if (end > pos) words.push_back(prefix.substr(pos, end - pos));
    pos = end + 1;
  }
  words.push_back(path);
  words.insert(words.end(), args.begin(), args.end());
  return words;
}

PeerResult runProgram(const std::string& path, const std::vector<std::string>& args,
                      bool withStderr) {
  std::vector<std::string> words = commandWords(path, args);

  int pipefd[2];
  if (pipe(pipefd) != 0) return {-1, ""};
  std::fflush(stdout);
  pid_t pid = fork();
  if (pid == 0) {
    dup2(pipefd[1], STDOUT_FILENO);
    if (withStderr) dup2(pipefd[1], STDERR_FILENO);
    close(pipefd[0]);
    close(pipefd[1]);
    std::vector<char*> argv;
    for (auto& w : words) argv.push_back(const_cast<char*>(w.c_str()));
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    _exit(127);
  }
  close(pipefd[1]);
  std::string out;
  char buf[4096];
  ssize_t n;
  while ((n = read(pipefd[0], buf, sizeof buf)) > 0) out.append(buf, static_cast<std::size_t>(n));
  close(pipefd[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
}

std::string sh(const std::string& command) {
  std::string out;
  FILE* p = popen(command.c_str(), "r");
  char buf[4096];
  for (std::size_t n; p != nullptr && (n = std::fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
  if (p != nullptr) pclose(p);
  return out;
}

PeerResult runPeer(const std::vector<std::string>& args) { return runProgram(QOS_TEST_PEER, args); }

void StoreTest::SetUp() {
  ASSERT_EQ(qos_IntDb_Init(), 0);
  logs.clear();
}

}  // namespace qostest
