// SPDX-License-Identifier: MIT
// demo.cpp - qosdb demo: a small modem stack around one store.
//
// In a private store (a new IPC namespace) the demo starts the stack's
// processes as real processes, each one this same program with another
// command: an event listener for component 32, the control process that
// creates the store and plays the shipped scenarios, and the SNMP agent
// that walks the management tables. It prints what each of them says, line
// by line as it arrives, and finally the tables and their check.
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <fstream>
#include <iostream>

#include "commands.h"
#include "store.h"

namespace qosdb {
namespace {

constexpr const char* kScenarios[] = {"registration.qos", "dsa.qos", "dsc.qos", "dsd.qos"};
constexpr int kListenerReadyMs = 10000;

struct Child {
  std::string label;
  pid_t pid = -1;
  int fd = -1;
  std::string partial;
};

std::string selfPath() {
  char path[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
  if (n <= 0) throw Failure("cannot find this program's own path");
  return std::string(path, static_cast<std::size_t>(n));
}

Child spawn(const std::string& label, const std::string& self, const std::vector<std::string>& args) {
  int pipefd[2];
  if (pipe2(pipefd, O_CLOEXEC) != 0) throw Failure("cannot start the " + label + " process");
  std::cout.flush();
  pid_t pid = fork();
  if (pid < 0) throw Failure("cannot start the " + label + " process");
  if (pid == 0) {
    dup2(pipefd[1], STDOUT_FILENO);
    dup2(pipefd[1], STDERR_FILENO);
    std::vector<char*> argv{const_cast<char*>(self.c_str())};
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(self.c_str(), argv.data());
    _exit(127);
  }
  close(pipefd[1]);
  return {label, pid, pipefd[0], ""};
}

void printLine(const Child& c, const std::string& line) {
  std::string label = c.label;
  label.resize(7, ' ');
  std::cout << "   " << label << " |" << (line.empty() ? "" : " ") << line << "\n";
}

// Reads what is there; prints complete lines. False at the end of output.
bool drain(Child& c) {
  char buf[4096];
  ssize_t n = read(c.fd, buf, sizeof buf);
  if (n <= 0) {
    if (!c.partial.empty()) printLine(c, c.partial);
    c.partial.clear();
    close(c.fd);
    c.fd = -1;
    return false;
  }
  c.partial.append(buf, static_cast<std::size_t>(n));
  for (std::size_t nl; (nl = c.partial.find('\n')) != std::string::npos;) {
    printLine(c, c.partial.substr(0, nl));
    c.partial.erase(0, nl + 1);
  }
  std::cout.flush();
  return true;
}

// Prints the children's lines as they come until every one has ended its
// output, or, with `untilLine`, until the first child has printed a line.
void pump(std::vector<Child*> children, bool untilLine = false, int timeoutMs = -1) {
  for (;;) {
    std::vector<pollfd> fds;
    std::vector<Child*> open;
    for (Child* c : children) {
      if (c->fd >= 0) {
        fds.push_back({c->fd, POLLIN, 0});
        open.push_back(c);
      }
    }
    if (fds.empty()) return;
    int ready = poll(fds.data(), fds.size(), timeoutMs);
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) throw Failure("the " + open.front()->label + " process says nothing");
    for (std::size_t i = 0; i < fds.size(); ++i) {
      if (fds[i].revents == 0) continue;
      bool more = drain(*open[i]);
      if (untilLine && (!more || open[i]->partial.empty())) return;
    }
  }
}

int wait(const Child& c) {
  int status = 0;
  waitpid(c.pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void writeFile(const char* path, const std::string& text) {
  std::ofstream out(path);
  out << text;
}

// A private IPC namespace: as root directly, otherwise inside a user
// namespace of our own, which needs no privilege where the system allows it.
bool enterPrivateStore() {
  if (unshare(CLONE_NEWIPC) == 0) return true;
  uid_t uid = geteuid();
  gid_t gid = getegid();
  if (unshare(CLONE_NEWUSER | CLONE_NEWIPC) != 0) return false;
  writeFile("/proc/self/setgroups", "deny");
  writeFile("/proc/self/uid_map", std::to_string(uid) + " " + std::to_string(uid) + " 1");
  writeFile("/proc/self/gid_map", std::to_string(gid) + " " + std::to_string(gid) + " 1");
  return true;
}

void expectSuccess(const Child& c, int status) {
  if (status != 0) throw Failure("demo: the " + c.label + " process failed (exit status " + std::to_string(status) + ")");
}

}  // namespace

std::string scenarioDirectory(const std::string& given) {
  auto holdsScenarios = [](const std::string& dir) {
    struct stat st;
    return !dir.empty() && stat((dir + "/registration.qos").c_str(), &st) == 0;
  };
  if (!given.empty()) {
    if (!holdsScenarios(given)) throw Failure("no scenarios in " + given + " (registration.qos is missing)", 2);
    return given;
  }
  for (const char* dir : {QOSDB_SOURCE_SCENARIOS, QOSDB_INSTALLED_SCENARIOS}) {
    if (holdsScenarios(dir)) return dir;
  }
  throw Failure("cannot find the shipped scenarios; say where they are with --scenarios DIR", 2);
}

int demoCommand(const std::string& scenarioDir) {
  const std::string dir = scenarioDirectory(scenarioDir);
  const std::string self = selfPath();
  bool isolated = enterPrivateStore();

  std::cout << "qosdb demo: one QoS store shared by the processes of a modem stack\n\n"
               "The store is one shared-memory region of 85032 bytes that holds every QoS table of the\n"
               "modem: service flows, classifiers, PHS rules, SID clusters, the DSX transactions with their\n"
               "messages, the active tables. Every process of the stack attaches to it and takes one\n"
               "semaphore around its operations, so all of them see the same rows at every moment.\n";
  if (isolated) {
    std::cout << "This demo runs in a private store (an IPC namespace of its own): no store of this machine\n"
                 "is touched.\n\n";
  } else {
    std::cout << "note: no private IPC namespace can be had here; the demo uses this machine's default store\n"
                 "and creates it anew.\n\n";
  }

  Child events = spawn("events", self, {"events", "--count", "2", "--timeout", "60"});
  std::cout << "1. The event listener starts (pid " << events.pid << "). It serves component 32, to which the\n"
               "   store reports a transaction that changes or deletes a flow another transaction still holds.\n";
  pump({&events}, true, kListenerReadyMs);

  std::vector<std::string> run{"run", "--brief"};
  for (const char* s : kScenarios) run.push_back(dir + "/" + s);
  Child control = spawn("control", self, run);
  std::cout << "\n2. The control process starts (pid " << control.pid << "). It creates the store and plays the\n"
               "   shipped scenarios, one operation of the client API per line: the registration, a DSA\n"
               "   from the modem, a DSC from the CMTS on the new flow while the DSA still holds it, a DSD.\n";
  pump({&control, &events});
  expectSuccess(control, wait(control));
  expectSuccess(events, wait(events));

  Child snmp = spawn("snmp", self, {"walk", "--multiple-upstreams"});
  std::cout << "\n3. The SNMP agent attaches (pid " << snmp.pid << ") and walks the CM service table and the\n"
               "   service flow SID cluster table, as it does for an SNMP manager.\n";
  pump({&snmp});
  expectSuccess(snmp, wait(snmp));

  Child show = spawn("show", self, {"show", "all"});
  std::cout << "\n4. What the store holds now (qosdb show all, pid " << show.pid << "):\n";
  pump({&show});
  expectSuccess(show, wait(show));

  Child check = spawn("check", self, {"check"});
  std::cout << "\n5. The registration check and the store's invariants (qosdb check, pid " << check.pid << "):\n";
  pump({&check});
  expectSuccess(check, wait(check));

  std::cout << (isolated ? "\nThe demo's store goes away with its namespace." : "\nThe store stays; qosdb destroy removes it.")
            << " On a stack of your own: qosdb show, events,\ncheck, lock-status, run (qosdb --help lists every command).\n";
  return 0;
}

}  // namespace qosdb
