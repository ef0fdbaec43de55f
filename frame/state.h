// SPDX-License-Identifier: MIT
// state.h - what one process knows about the shared region.
//
// Each process that links the library has its own copy of this state: the
// address at which it mapped the region, one view per table, the flags that
// say which table families are ready, the semaphore it locks with and its slot in
// the lock's companion.
// The flags are set once by the init functions and never cleared; nothing
// detaches. No field of this struct is shared between processes.
#pragma once

#include <sys/sem.h>

#include "frame/holder.h"
#include "frame/region.h"
#include "frame/table.h"

namespace qos {

struct ProcessState {
  QosIntDbRegion* regionBase = nullptr;

  uint32_t sfDbReady = 0;   // flows, classifiers, statistics, clusters, active, PHS
  uint32_t msgDbReady = 0;  // message buffers and error records
  uint32_t taDbReady = 0;   // transaction table and its control words

  TableView<SfRow, kSfRows> sf;
  TableView<ClsfRow, kClsfRows> clsf;
  QosIntDbStats* stats = nullptr;
  TableView<SidClusterRow, kSidClusterRows> sidClusters;
  TableView<SwitchoverRow, kSwitchoverRows> switchover;
  TableView<ActiveSfRow, kActiveSfReserved> activeSf;
  TableView<ActivePhsRow, kActivePhsReserved> phsUs;
  TableView<ActivePhsRow, kActivePhsReserved> phsDs;

  TableView<MsgErrorRecord, kMsgRows> msgErrors;
  TableView<MsgRow, kMsgRows> msgs;

  TableView<TaRow, kTaRows> ta;
  TaDbControl* taControl = nullptr;

  int semId = -1;
  struct sembuf lockOp = {};
  struct sembuf unlockOp = {};
  bool severalProcessors = false;  // set at init/attach; the lock's waits depend on it

  // The companion (frame/holder.h): the record of who holds the lock.
  Companion* companion = nullptr;  // nullptr: no record is kept
  int companionId = -1;            // its segment, and the slot semaphores
  int slotSemId = -1;
  ProcessSlot* slot = nullptr;     // this process's slot; nullptr: none
  int slotPid = 0;                 // the process that claimed `slot`
  bool slotClaimed = false;        // whether this process tried to claim one
  HolderWord holder = kNoHolder;   // what this process writes as holder
};

// This process's state.
extern ProcessState local;

// The three tables bounded by a maximum index (valid once sfDbReady is set).
inline MaxIndexedTable<SfRow, kSfRows> sfTable() {
  return {local.sf, local.stats->sfDbMaxIndex};
}
inline MaxIndexedTable<ClsfRow, kClsfRows> clsfTable() {
  return {local.clsf, local.stats->clsfDbMaxIndex};
}
inline MaxIndexedTable<SidClusterRow, kSidClusterRows> clusterTable() {
  return {local.sidClusters, local.stats->clusterDbMaxIndex};
}

}  // namespace qos
