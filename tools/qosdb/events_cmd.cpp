// SPDX-License-Identifier: MIT
// events_cmd.cpp - listen for the events that the store sends to component 32.
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <iostream>

#include "commands.h"
#include "names.h"
#include "qosintdb.h"
#include "qosplatform_host.h"
#include "store.h"

namespace qosdb {
namespace {

std::string describeEvent(uint32_t event, const uint8_t* payload, uint32_t length) {
  std::string name = eventName(event);
  std::string out = "event " + std::to_string(event) + (name.empty() ? "" : " " + name);
  if (length == sizeof(uint32_t)) {
    uint32_t taIndex;
    std::memcpy(&taIndex, payload, sizeof taIndex);
    return out + ": transaction " + std::to_string(taIndex);
  }
  return out + ": payload " + std::to_string(length) + " bytes " + hexBytes(payload, length);
}

}  // namespace

int eventsCommand(int count, double timeoutSeconds) {
  uint32_t dest = ICC_dest_of(QOS_EV_COMPONENT);
  int fd = qos_host_event_listen(dest);
  if (fd < 0) {
    if (errno == EADDRINUSE) throw Failure("another process listens for component 32 already");
    if (errno == EPERM) throw Failure("cannot listen for component 32: the event directory is not private to this user");
    throw Failure(std::string("cannot listen for component 32: ") + std::strerror(errno));
  }
  std::cout << "listening for events to component " << QOS_EV_COMPONENT << std::endl;

  using Clock = std::chrono::steady_clock;
  const bool bounded = timeoutSeconds > 0;
  const Clock::time_point deadline =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(timeoutSeconds));
  int received = 0;
  while (count <= 0 || received < count) {
    int waitMs = -1;
    if (bounded) {
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
      if (left <= 0) break;
      waitMs = static_cast<int>(left);
    }
    uint32_t event = 0;
    uint8_t payload[256];
    uint32_t length = sizeof payload;
    int rc = qos_host_event_receive(fd, waitMs, &event, payload, &length);
    if (rc < 0) {
      qos_host_event_close(fd);
      throw Failure(std::string("cannot receive events: ") + std::strerror(errno));
    }
    if (rc == 0) break;
    ++received;
    std::cout << describeEvent(event, payload, length < sizeof payload ? length : sizeof payload) << std::endl;
  }
  qos_host_event_close(fd);
  if (count > 0 && received < count) {
    throw Failure("timed out after " + std::to_string(received) + " of " + std::to_string(count) + " events");
  }
  return 0;
}

}  // namespace qosdb
