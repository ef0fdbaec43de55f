// SPDX-License-Identifier: MIT
// peer.cpp - a second process of the modem stack, for multi-process tests.
//
//   qos_test_peer show             attach; print the used transaction rows
//   qos_test_peer increment N T    attach; N times: lock, read the subtype
//                                  of transaction row T, yield, write it
//                                  back plus one, unlock
#include <sched.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "qosintdb.h"

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  if (qos_IntDb_RetrieveAccess() != 0) {
    std::printf("attach failed\n");
    return 3;
  }
  if (std::strcmp(argv[1], "show") == 0) {
    qos_taDb_Lock();
    for (uint32_t i = 0; i < QOS_TA_ROWS; ++i) {
      uint16_t id = 0;
      uint32_t type = 0;
      if (qos_TaDb_GetTaId(i, &id) == 0 && qos_TaDb_GetTaType(i, &type) == 0) {
        std::printf("row %u id %u type %u\n", i, id, type);
      }
    }
    qos_taDb_Unlock();
    return 0;
  }
  if (std::strcmp(argv[1], "increment") == 0 && argc == 4) {
    long n = std::atol(argv[2]);
    uint32_t row = static_cast<uint32_t>(std::atol(argv[3]));
    for (long i = 0; i < n; ++i) {
      qos_taDb_Lock();
      uint32_t value = 0;
      qos_TaDb_GetTaSubtype(row, &value);
      sched_yield();  // invite the other process in: only the lock keeps it out
      qos_TaDb_SetTaSubtype(row, value + 1);
      qos_taDb_Unlock();
    }
    return 0;
  }
  return 2;
}
