// SPDX-License-Identifier: MIT
// docsis.cpp - host DOCSIS configuration database: values the host sets.
#include <cstdio>
#include <cstdlib>

#include "qosplatform_host.h"

namespace {

constexpr int kPorts = 4;

struct DocsisConfig {
  uint32_t multipleUpstreams = 0;
  int tccReceived = 0;
  uint8_t portUcid[kPorts] = {1, 2, 3, 4};

  DocsisConfig() {
    if (const char* env = std::getenv("QOSDB_MULTIPLE_US")) multipleUpstreams = std::atoi(env) != 0;
    if (const char* env = std::getenv("QOSDB_TCC")) tccReceived = std::atoi(env) != 0;
    if (const char* env = std::getenv("QOSDB_UCIDS")) {
      unsigned u[kPorts] = {0, 0, 0, 0};
      if (std::sscanf(env, "%u,%u,%u,%u", &u[0], &u[1], &u[2], &u[3]) == kPorts) {
        for (int i = 0; i < kPorts; ++i) portUcid[i] = static_cast<uint8_t>(u[i]);
      }
    }
  }
};

DocsisConfig& config() {
  static DocsisConfig c;
  return c;
}

}  // namespace

extern "C" {

void qos_host_docsis_set_upstream_mode(uint32_t multipleUpstreams, int tccReceived) {
  config().multipleUpstreams = multipleUpstreams;
  config().tccReceived = tccReceived;
}

int qos_host_docsis_set_port_ucid(uint8_t port, uint8_t ucid) {
  if (port < 1 || port > kPorts) return -1;
  config().portUcid[port - 1] = ucid;
  return 0;
}

int DocsisDb_GetMultipleUpstreams(uint32_t* multipleUpstreams) {
  if (multipleUpstreams == nullptr) return -1;
  *multipleUpstreams = config().multipleUpstreams;
  return 0;
}

int DocsisDb_IsTccReceivedInRegRsp(void) { return config().tccReceived; }

// The port of a channel; a channel on no port gives port 0 and -1.
int DocsisDb_GetPortFromUcid(uint8_t ucid, uint8_t* port) {
  if (port == nullptr) return -1;
  for (int i = 0; i < kPorts; ++i) {
    if (ucid != 0 && config().portUcid[i] == ucid) {
      *port = static_cast<uint8_t>(i + 1);
      return 0;
    }
  }
  *port = 0;
  return -1;
}

int DocsisDb_GetPortUcid(uint8_t port, uint8_t* ucid) {
  if (ucid == nullptr) return -1;
  if (port < 1 || port > kPorts) {
    *ucid = 0;
    return -1;
  }
  *ucid = config().portUcid[port - 1];
  return 0;
}

}  // extern "C"
