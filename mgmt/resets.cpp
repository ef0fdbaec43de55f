// SPDX-License-Identifier: MIT
// resets.cpp - emptying the flow family of tables.
//
// The flow family (flows, classifiers, SID clusters and switchover,
// active flows and active PHS rules, and the statistics block they share)
// is reset as one: at the store's creation and when the client empties the
// store. Each table empties its own rows and its own words of the
// statistics block; this file only asks them in turn and writes nothing
// itself.
#include "active/internal.h"
#include "classifiers/internal.h"
#include "frame/state.h"
#include "qosintdb.h"
#include "serviceflows/internal.h"
#include "sidclusters/internal.h"

extern "C" {

void qos_intDb_SfDb_Reset(void) {
  if (!qos::local.sfDbReady) return;
  qos::flows::resetRows();
  qos::classifiers::resetRows();
  qos::active::resetRows();
  qos::clusters::resetRows();
}

}  // extern "C"
