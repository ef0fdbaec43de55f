// SPDX-License-Identifier: MIT
// main.cpp - qosdb-snmp: an AgentX subagent that serves the QoS internal
// database to the modem's snmpd.
//
// It attaches to the store like any process of the stack (waiting, and
// saying so, while there is none), registers its tables with the master
// agent and answers each request under the stack's lock. The lock is waited
// for a bounded time only: when its holder hangs, the request gets genErr
// and snmpd goes on answering the rest of its trees.
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>

#include <CLI/CLI.hpp>

// net-snmp's headers must come in this order.
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>

#include "qosintdb.h"
#ifdef QOSDB_ROBUST_LOCK
#include <pthread.h>

#include "frame/holder.h"
#endif
#include "qosplatform_host.h"
#include "tables.h"

namespace {

using qossnmp::Oid;

volatile sig_atomic_t stopping = 0;
bool restarting = false;
int attachedSegment = -1;
void stop(int) { stopping = 1; }

int lockWaitMs = 500;  // below snmpd's own AgentX timeout (1 s)

// Takes the stack's lock as qos_taDb_Lock does, but waits at most
// lockWaitMs; giveBack() returns it. After a wait that ran out, the next
// tries within the same bound do not wait, so that a request that spans
// several tables still gets its answer in time.
struct timespec lastTimeout = {0, 0};

int boundedWaitMs() {
  struct timespec now {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  long sinceMs = (now.tv_sec - lastTimeout.tv_sec) * 1000 + (now.tv_nsec - lastTimeout.tv_nsec) / 1000000;
  return lastTimeout.tv_sec != 0 && sinceMs < lockWaitMs ? 0 : lockWaitMs;
}
void noteTimeout() {
  clock_gettime(CLOCK_MONOTONIC, &lastTimeout);
}

#ifdef QOSDB_ROBUST_LOCK
// A library built with the robust lock keeps it in the lock's companion
// segment: the subagent maps the companion for the length of one request
// and waits on the mutex with a deadline; a dead owner's mutex is made
// consistent, as the library does.
qos::Companion* companion = nullptr;

bool lockWithinBound() {
  int id = shmget(qos::kCompanionKey, 0, 0);
  void* at = id == -1 ? reinterpret_cast<void*>(-1) : shmat(id, nullptr, 0);
  if (at == reinterpret_cast<void*>(-1)) return false;
  companion = static_cast<qos::Companion*>(at);
  int waitMs = boundedWaitMs();
  struct timespec deadline {};
  clock_gettime(CLOCK_REALTIME, &deadline);
  deadline.tv_sec += waitMs / 1000;
  deadline.tv_nsec += (waitMs % 1000) * 1000000L;
  if (deadline.tv_nsec >= 1000000000L) {
    deadline.tv_sec += 1;
    deadline.tv_nsec -= 1000000000L;
  }
  auto* m = reinterpret_cast<pthread_mutex_t*>(companion->mutex);
  int rc = pthread_mutex_timedlock(m, &deadline);
  if (rc == EOWNERDEAD) {
    std::fprintf(stderr, "qosdb-snmp: the lock's owner died holding it; the lock is recovered\n");
    rc = pthread_mutex_consistent(m);
  }
  if (rc == 0) return true;
  if (rc == ETIMEDOUT && waitMs != 0) noteTimeout();
  shmdt(companion);
  companion = nullptr;
  return false;
}

void giveBack() {
  if (companion == nullptr) return;
  pthread_mutex_unlock(reinterpret_cast<pthread_mutex_t*>(companion->mutex));
  shmdt(companion);
  companion = nullptr;
}
#else
bool lockWithinBound() {
  int waitMs = boundedWaitMs();
  int id = semget(QOS_SEM_KEY, 1, 0);
  if (id == -1) return false;
  struct sembuf op = {0, -1, 0};
  struct timespec bound = {waitMs / 1000, (waitMs % 1000) * 1000000L};
  int rc;
  do {
    rc = semtimedop(id, &op, 1, &bound);
  } while (rc == -1 && errno == EINTR);
  if (rc != 0 && errno == EAGAIN && waitMs != 0) noteTimeout();
  return rc == 0;
}

// A lock taken without a holder record is given back through the library.
void giveBack() { qos_taDb_Unlock(); }
#endif

bool storePresent() {
  int shmid = shmget(QOS_REGION_SEGMENT_ID, 0, 0);
  struct shmid_ds ds {};
  return shmid != -1 && shmctl(shmid, IPC_STAT, &ds) == 0 && ds.shm_segsz >= QOS_REGION_SIZE &&
         semget(QOS_SEM_KEY, 1, 0) != -1;
}

// Attaches, retrying every `retrySeconds` until a store exists; it says so
// once, then every minute.
bool attachWhenPresent(int retrySeconds) {
  for (int waited = 0; !stopping; waited += retrySeconds) {
    if (storePresent() && qos_IntDb_RetrieveAccess() == 0) {
      attachedSegment = shmget(QOS_REGION_SEGMENT_ID, 0, 0);
      if (waited > 0) snmp_log(LOG_NOTICE, "qosdb-snmp: attached to the store after %d s\n", waited);
      return true;
    }
    if (waited % 60 < retrySeconds) {
      snmp_log(LOG_WARNING, "qosdb-snmp: no store yet (segment 14, semaphore 4656); retrying every %d s\n",
               retrySeconds);
    }
    sleep(static_cast<unsigned>(retrySeconds));
  }
  return false;
}

void setValue(netsnmp_variable_list* vb, const qossnmp::Value& v) {
  if (v.type == qossnmp::Type::Bits) {
    snmp_set_var_typed_value(vb, ASN_OCTET_STR, v.bytes.data(), v.bytes.size());
  } else {
    long integer = static_cast<long>(v.number);
    u_long number = v.number;
    if (v.type == qossnmp::Type::Integer) {
      snmp_set_var_typed_value(vb, ASN_INTEGER, &integer, sizeof integer);
    } else {
      snmp_set_var_typed_value(vb, ASN_UNSIGNED, &number, sizeof number);
    }
  }
}

int handle(netsnmp_mib_handler* handler, netsnmp_handler_registration*, netsnmp_agent_request_info* info,
           netsnmp_request_info* requests) {
  const auto* table = static_cast<const qossnmp::Table*>(handler->myvoid);
  if (info->mode != MODE_GET && info->mode != MODE_GETNEXT) return SNMP_ERR_NOERROR;
  // A store removed or created anew is not the one this process maps: start again.
  bool replaced = shmget(QOS_REGION_SEGMENT_ID, 0, 0) != attachedSegment;
  if (replaced && !restarting) {
    snmp_log(LOG_WARNING, "qosdb-snmp: the store was removed or created anew; attaching again\n");
    restarting = true;
  }
  if (replaced || !lockWithinBound()) {
    if (!replaced) {
      snmp_log(LOG_ERR, "qosdb-snmp: %s: the store's lock stayed taken for %d ms; answering genErr\n",
               table->name.c_str(), lockWaitMs);
    }
    for (netsnmp_request_info* r = requests; r != nullptr; r = r->next) {
      netsnmp_set_request_error(info, r, SNMP_ERR_GENERR);
    }
    return SNMP_ERR_NOERROR;
  }
  for (netsnmp_request_info* r = requests; r != nullptr; r = r->next) {
    if (r->processed) continue;
    Oid name(r->requestvb->name, r->requestvb->name + r->requestvb->name_length);
    qossnmp::Value value;
    if (info->mode == MODE_GET) {
      qossnmp::Miss miss = table->get(name, value);
      if (miss == qossnmp::Miss::None) {
        setValue(r->requestvb, value);
      } else {
        netsnmp_set_request_error(info, r, miss == qossnmp::Miss::NoSuchObject ? SNMP_NOSUCHOBJECT : SNMP_NOSUCHINSTANCE);
      }
    } else {
      Oid next;
      // Past the table the varbind stays as it is: the agent goes on to the next tree.
      if (table->getNext(name, next, value)) {
        snmp_set_var_objid(r->requestvb, next.data(), next.size());
        setValue(r->requestvb, value);
      }
    }
  }
  giveBack();
  return SNMP_ERR_NOERROR;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"qosdb-snmp - AgentX subagent serving the QoS internal database's tables to snmpd"};
  std::string socket, arc = "1.3.6.1.4.1.8072.9999.9999";
  std::vector<uint32_t> usIfIndex{4, 80, 81, 82};
  qossnmp::Options options;
  bool multiple = false, foreground = true;
  int retrySeconds = 1;
  app.add_option("-x,--agentx-socket", socket, "the master agent's AgentX socket (default: net-snmp's)");
  app.add_option("--if-index", options.cableIfIndex, "ifIndex of the cable MAC interface (first index of the flow tables)");
  app.add_option("--us-if-index", usIfIndex, "ifIndex of upstream ports 1..4 (CM service table)")->delimiter(',')->expected(4);
  app.add_option("--arc", arc, "where the QOSDB-CM-SERVICE-MIB module sits");
  app.add_flag("--multiple-upstreams", multiple, "the modem works on multiple upstreams with a TCC");
  app.add_option("--lock-wait-ms", lockWaitMs, "longest wait for the store's lock before genErr")->check(CLI::Range(1, 60000));
  app.add_option("--retry", retrySeconds, "seconds between two attempts to attach to the store")->check(CLI::Range(1, 3600));
  app.add_flag("!--background", foreground, "detach from the terminal");
  CLI11_PARSE(app, argc, argv);
  options.arc = qossnmp::parseOid(arc);
  if (options.arc.empty()) {
    std::fprintf(stderr, "qosdb-snmp: --arc: not an object identifier: %s\n", arc.c_str());
    return 2;
  }
  for (int p = 0; p < 4; ++p) options.usIfIndex[p] = usIfIndex[static_cast<std::size_t>(p)];
  if (multiple) qos_host_docsis_set_upstream_mode(1, 1);

  snmp_enable_stderrlog();
  netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, 1);
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
  if (!socket.empty()) netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, socket.c_str());
  if (!foreground && netsnmp_daemonize(1, 1) != 0) return 1;
  signal(SIGTERM, stop);
  signal(SIGINT, stop);

  if (!attachWhenPresent(retrySeconds)) return 0;
  init_agent("qosdb-snmp");
  // After init_agent, which presets its own: a lost or late master is tried again every second.
  netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL, 1);
  std::vector<qossnmp::Served> served = qossnmp::servedTables(options);
  for (auto& s : served) {
    netsnmp_mib_handler* handler = netsnmp_create_handler(s.table.name.c_str(), handle);
    handler->myvoid = &s.table;
    netsnmp_handler_registration* reg =
        netsnmp_handler_registration_create(s.table.name.c_str(), handler, s.root.data(), s.root.size(), HANDLER_CAN_RONLY);
    if (netsnmp_register_handler(reg) != MIB_REGISTERED_OK) {
      snmp_log(LOG_ERR, "qosdb-snmp: cannot register %s\n", s.table.name.c_str());
      return 1;
    }
  }
  init_snmp("qosdb-snmp");
  snmp_log(LOG_NOTICE, "qosdb-snmp: serving the store's tables\n");
  while (!stopping && !restarting) agent_check_and_process(1);
  snmp_shutdown("qosdb-snmp");
  if (restarting) {
    execv("/proc/self/exe", argv);
    snmp_log(LOG_ERR, "qosdb-snmp: cannot start again: %s\n", std::strerror(errno));
    return 1;
  }
  return 0;
}
