// events.cpp - host event service: a datagram per event between processes.
//
// Each destination component listens on an abstract-namespace Unix datagram
// socket named "qosintdb-ev-<ipc>-<dest>" (no file to clean up), where <ipc>
// identifies the IPC namespace: events stay with the store of the stack
// that sends them, so stacks in private IPC namespaces (tests, the demo)
// never hear each other. A sender needs no listener to exist: EV_GenEvent
// reports non-zero when nobody listens, and the library ignores that. When
// the listener's queue is full, the sender waits for room, at most
// kSendWaitMs, rather than drop the event.
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "qosplatform_host.h"

namespace {

QosHostEventHook eventHook = nullptr;
void* eventContext = nullptr;
int sendFd = -1;

constexpr uint32_t kMaxPayload = 256;
constexpr int kSendWaitMs = 2000;

struct Datagram {
  uint32_t event;
  uint32_t length;
  unsigned char payload[kMaxPayload];
};

// The IPC namespace this process lives in (0 when /proc cannot say). Asked
// at every use: a process may move to a new namespace after its first event.
unsigned long ipcNamespace() {
  struct stat st;
  return stat("/proc/self/ns/ipc", &st) == 0 ? static_cast<unsigned long>(st.st_ino) : 0;
}

socklen_t addressOf(uint32_t dest, sockaddr_un& addr) {
  std::memset(&addr, 0, sizeof addr);
  addr.sun_family = AF_UNIX;
  // Abstract namespace: the name starts after a NUL byte.
  int n = std::snprintf(addr.sun_path + 1, sizeof addr.sun_path - 1, "qosintdb-ev-%lu-%u", ipcNamespace(), dest);
  return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + static_cast<std::size_t>(n));
}

int openSender() {
  int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  timeval wait{kSendWaitMs / 1000, (kSendWaitMs % 1000) * 1000};
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &wait, sizeof wait);
  return fd;
}

bool tracing() {
  static bool on = [] {
    const char* env = std::getenv("QOSDB_TRACE_EVENTS");
    return env != nullptr && *env != '\0' && *env != '0';
  }();
  return on;
}

}  // namespace

extern "C" {

void qos_host_set_event_hook(QosHostEventHook hook, void* context) {
  eventHook = hook;
  eventContext = context;
}

uint32_t ICC_dest_of(uint32_t component) { return component; }

int EV_GenEvent(uint32_t dest, uint32_t event, const void* payload, uint32_t length) {
  if (eventHook != nullptr) eventHook(dest, event, payload, length, eventContext);
  if (tracing()) std::fprintf(stderr, "qosintdb event %u -> component %u (%u bytes)\n", event, dest, length);
  if (length > kMaxPayload || (payload == nullptr && length != 0)) return -1;
  if (sendFd < 0) {
    sendFd = openSender();
    if (sendFd < 0) return -1;
  }
  Datagram d{};
  d.event = event;
  d.length = length;
  if (length != 0) std::memcpy(d.payload, payload, length);
  sockaddr_un addr;
  socklen_t len = addressOf(dest, addr);
  ssize_t sent;
  do {
    sent = sendto(sendFd, &d, offsetof(Datagram, payload) + length, 0, reinterpret_cast<sockaddr*>(&addr), len);
  } while (sent < 0 && errno == EINTR);
  return sent < 0 ? -1 : 0;
}

int qos_host_event_listen(uint32_t dest) {
  int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  sockaddr_un addr;
  socklen_t len = addressOf(dest, addr);
  if (bind(fd, reinterpret_cast<sockaddr*>(&addr), len) != 0) {
    int why = errno;  // EADDRINUSE: another process serves dest
    close(fd);
    errno = why;
    return -1;
  }
  return fd;
}

int qos_host_event_receive(int fd, int timeoutMs, uint32_t* event, void* payload, uint32_t* length) {
  pollfd p{fd, POLLIN, 0};
  int ready;
  do {
    ready = poll(&p, 1, timeoutMs);
  } while (ready < 0 && errno == EINTR);
  if (ready < 0) return -1;
  if (ready == 0) return 0;
  Datagram d{};
  ssize_t n = recv(fd, &d, sizeof d, 0);
  if (n < static_cast<ssize_t>(offsetof(Datagram, payload))) return -1;
  uint32_t got = static_cast<uint32_t>(n) - static_cast<uint32_t>(offsetof(Datagram, payload));
  if (event != nullptr) *event = d.event;
  if (length != nullptr) {
    uint32_t room = *length;
    if (payload != nullptr) std::memcpy(payload, d.payload, got < room ? got : room);
    *length = got;
  }
  return 1;
}

}  // extern "C"
