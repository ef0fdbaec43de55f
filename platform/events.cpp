// SPDX-License-Identifier: MIT
// events.cpp - host event service: a datagram per event between processes.
//
// Each destination component listens on a Unix datagram socket
// "<ipc>-<dest>" in the event directory of its user, "<base>/qosintdb-ev-<uid>"
// (<base>: QOSDB_EVENT_DIR, else /tmp), where <ipc> identifies the IPC
// namespace: events stay with the store of the stack that sends them, so
// stacks in private IPC namespaces (tests, the demo) never hear each other.
//
// Nobody else takes part:
//   - the directory is the user's own, mode 0700, and every use checks that
//     it still is (not a link, owned by this user, nothing for group or
//     others): another user can neither bind a name in it, nor send to a
//     socket there, nor fill one. A directory that fails the check is not
//     used at all;
//   - the listener asks the kernel for each sender's credentials and ignores
//     datagrams from any other user (a process that entered the directory
//     with borrowed rights, such as a set-user-ID program);
//   - the sender never waits: the lock holder sends events, and a listener
//     that is absent, full or slow must not stall the stack. An event that
//     cannot be handed over at once is dropped and counted.
// A listener that ended without closing leaves its socket file behind; the
// next listener of that name finds nobody answering there and replaces it.
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
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
std::atomic<uint32_t> dropped{0};
std::atomic<uint32_t> ignored{0};

constexpr uint32_t kMaxPayload = 256;
constexpr mode_t kDirMode = 0700;
constexpr mode_t kSocketMode = 0600;

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

// The event directory of this user, into dir; false when the name does not fit.
bool directoryName(char (&dir)[sizeof(sockaddr_un::sun_path)]) {
  const char* base = std::getenv("QOSDB_EVENT_DIR");
  if (base == nullptr || *base == '\0') base = "/tmp";
  int n = std::snprintf(dir, sizeof dir, "%s/qosintdb-ev-%u", base, static_cast<unsigned>(geteuid()));
  return n > 0 && static_cast<std::size_t>(n) < sizeof dir;
}

// True when dir is a real directory of this user that nobody else may enter;
// otherwise errno is EPERM (or what lstat said).
bool privateDirectory(const char* dir) {
  struct stat st;
  if (lstat(dir, &st) != 0) return false;
  if (!S_ISDIR(st.st_mode) || st.st_uid != geteuid() || (st.st_mode & 077) != 0) {
    errno = EPERM;
    return false;
  }
  return true;
}

// The socket address of dest; with `create`, the directory is made when
// missing. 0 when the directory is not this user's private one.
socklen_t addressOf(uint32_t dest, sockaddr_un& addr, bool create) {
  std::memset(&addr, 0, sizeof addr);
  addr.sun_family = AF_UNIX;
  char dir[sizeof addr.sun_path];
  if (!directoryName(dir)) {
    errno = ENAMETOOLONG;
    return 0;
  }
  if (create && mkdir(dir, kDirMode) != 0 && errno != EEXIST) return 0;
  if (!privateDirectory(dir)) return 0;
  int n = std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s/%lu-%u", dir, ipcNamespace(), dest);
  if (n <= 0 || static_cast<std::size_t>(n) >= sizeof addr.sun_path) {
    errno = ENAMETOOLONG;
    return 0;
  }
  return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + static_cast<std::size_t>(n) + 1);
}

// True when a process listens at addr (a datagram to it would be queued).
bool answered(const sockaddr_un& addr, socklen_t len) {
  int probe = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (probe < 0) return true;  // cannot tell: leave the name alone
  bool live = connect(probe, reinterpret_cast<const sockaddr*>(&addr), len) == 0 || errno != ECONNREFUSED;
  close(probe);
  return live;
}

bool tracing() {
  const char* env = std::getenv("QOSDB_TRACE_EVENTS");
  return env != nullptr && *env != '\0' && *env != '0';
}

int drop() {
  dropped.fetch_add(1, std::memory_order_relaxed);
  return -1;
}

long long nowMs() {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<long long>(t.tv_sec) * 1000 + t.tv_nsec / 1000000;
}

// Reads one datagram; 1 from this user, 0 from another (discarded), -1 on error.
int readOne(int fd, Datagram& d, ssize_t& n) {
  iovec io{&d, sizeof d};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))];
  msghdr msg{};
  msg.msg_iov = &io;
  msg.msg_iovlen = 1;
  msg.msg_control = control;
  msg.msg_controllen = sizeof control;
  do {
    n = recvmsg(fd, &msg, MSG_DONTWAIT);
  } while (n < 0 && errno == EINTR);
  if (n < 0) return errno == EAGAIN ? 0 : -1;
  for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c != nullptr; c = CMSG_NXTHDR(&msg, c)) {
    if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_CREDENTIALS) continue;
    ucred who;
    std::memcpy(&who, CMSG_DATA(c), sizeof who);
    if (who.uid == geteuid()) return 1;
  }
  ignored.fetch_add(1, std::memory_order_relaxed);
  return 0;
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
  if (length > kMaxPayload || (payload == nullptr && length != 0)) return drop();
  if (sendFd < 0) {
    sendFd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (sendFd < 0) return drop();
  }
  sockaddr_un addr;
  socklen_t len = addressOf(dest, addr, false);
  if (len == 0) return drop();
  Datagram d{};
  d.event = event;
  d.length = length;
  if (length != 0) std::memcpy(d.payload, payload, length);
  ssize_t sent;
  do {
    sent = sendto(sendFd, &d, offsetof(Datagram, payload) + length, MSG_DONTWAIT | MSG_NOSIGNAL,
                  reinterpret_cast<sockaddr*>(&addr), len);
  } while (sent < 0 && errno == EINTR);
  return sent < 0 ? drop() : 0;
}

uint32_t qos_host_events_dropped(void) { return dropped.load(std::memory_order_relaxed); }
uint32_t qos_host_events_ignored(void) { return ignored.load(std::memory_order_relaxed); }

int qos_host_event_listen(uint32_t dest) {
  sockaddr_un addr;
  socklen_t len = addressOf(dest, addr, true);
  if (len == 0) return -1;
  int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  int on = 1;
  int rc = setsockopt(fd, SOL_SOCKET, SO_PASSCRED, &on, sizeof on);
  if (rc == 0) rc = bind(fd, reinterpret_cast<sockaddr*>(&addr), len);
  if (rc != 0 && errno == EADDRINUSE && !answered(addr, len)) {
    unlink(addr.sun_path);  // left by a listener that is gone
    rc = bind(fd, reinterpret_cast<sockaddr*>(&addr), len);
  }
  if (rc == 0) rc = chmod(addr.sun_path, kSocketMode);
  if (rc != 0) {
    int why = errno;  // EADDRINUSE: another process serves dest
    close(fd);
    errno = why;
    return -1;
  }
  return fd;
}

int qos_host_event_close(int fd) {
  sockaddr_un addr{};
  socklen_t len = sizeof addr;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) == 0 && addr.sun_family == AF_UNIX &&
      len > offsetof(sockaddr_un, sun_path) && addr.sun_path[0] == '/') {
    unlink(addr.sun_path);
  }
  return close(fd);
}

int qos_host_event_receive(int fd, int timeoutMs, uint32_t* event, void* payload, uint32_t* length) {
  const long long deadline = timeoutMs < 0 ? -1 : nowMs() + timeoutMs;
  for (;;) {
    int waitMs = -1;
    if (deadline >= 0) {
      long long left = deadline - nowMs();
      waitMs = left > 0 ? static_cast<int>(left) : 0;
    }
    pollfd p{fd, POLLIN, 0};
    int ready = poll(&p, 1, waitMs);
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) return -1;
    if (ready == 0) return 0;
    Datagram d{};
    ssize_t n = 0;
    int got = readOne(fd, d, n);
    if (got < 0) return -1;
    if (got == 0) continue;
    if (n < static_cast<ssize_t>(offsetof(Datagram, payload))) return -1;
    uint32_t size = static_cast<uint32_t>(n) - static_cast<uint32_t>(offsetof(Datagram, payload));
    if (event != nullptr) *event = d.event;
    if (length != nullptr) {
      uint32_t room = *length;
      if (payload != nullptr) std::memcpy(payload, d.payload, size < room ? size : room);
      *length = size;
    }
    return 1;
  }
}

}  // extern "C"
