// frame.cpp - the shared store frame: this process's view of the region.
//
// One segment of 85032 bytes holds every table. A process reaches it through
// the base address the platform gave it; the init functions below point each
// table family at its area and raise that family's ready flag. They compute
// addresses only (apart from the one confirmation code the message store
// presets) and never zero or reset anything: creating and resetting the
// region is the entry points' job (entry.cpp).
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

int32_t qos_intDb_MsgDb_init(void* base) {
  if (base == nullptr) return -1;
  auto* region = static_cast<qos::QosIntDbRegion*>(base);
  local.msgDbReady = 1;
  local.msgs = decltype(local.msgs)(region->msgs);
  local.msgErrors = decltype(local.msgErrors)(region->msgErrors);
  // Record 10 answers transactions nobody knows: reject-unknown-transaction-id.
  qos_intDb_MsgSetConfCode(10, 10);
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
