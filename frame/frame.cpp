// SPDX-License-Identifier: MIT
// frame.cpp - the shared store frame: this process's view of the region.
//
// One segment of 85032 bytes holds every table. A process reaches it through
// the base address the platform gave it; the init functions below point each
// table family at its area and raise that family's ready flag. They compute
// addresses only and never zero or reset anything: creating and resetting
// the region is the entry points' job (entry.cpp), and the message store
// points its own views (it presets one record as it does). Nothing in this
// file calls into a subsystem.
#include "frame/log.h"
#include "qosintdb.h"

namespace qos {
ProcessState local;
}  // namespace qos

using qos::local;

extern "C" {

QosDbcDb* dbcTaDb = nullptr;

int32_t qos_intDb_SfDb_init(void* base) {
  if (base == nullptr) return -1;
  auto* region = static_cast<qos::QosIntDbRegion*>(base);
  local.sf = decltype(local.sf)(region->sf);
  local.clsf = decltype(local.clsf)(region->clsf);
  local.stats = &region->stats;
  local.sidClusters = decltype(local.sidClusters)(region->sidClusters);
  local.switchover = decltype(local.switchover)(region->switchover);
  local.activeSf = decltype(local.activeSf)(region->activeSf);
  local.phsUs = decltype(local.phsUs)(region->phsUs);
  local.phsDs = decltype(local.phsDs)(region->phsDs);
  local.sfDbReady = 1;
  return 0;
}

int32_t qos_intDb_TaDb_init(void* base) {
  if (base == nullptr) return -1;
  auto* region = static_cast<qos::QosIntDbRegion*>(base);
  local.ta = decltype(local.ta)(region->ta);
  local.taControl = &region->taControl;
  local.taDbReady = 1;
  return 0;
}

int32_t qos_dbc_DbInit(void* base) {
  if (base == nullptr) return -1;
  dbcTaDb = &static_cast<qos::QosIntDbRegion*>(base)->dbc;
  return 0;
}

}  // extern "C"
