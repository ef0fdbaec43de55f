// SPDX-License-Identifier: MIT
// substitute.cpp - giving a known service flow another SFID.
//
// The SFID names a flow in several tables at once: its own flow row, the
// rows of its classifiers, its entry in the active upstream flow table and
// its entries in the active PHS table of its direction. When the CMTS
// renames the flow, all of them follow in one call, under the caller's
// lock; each table renames its own rows. Outside the flow row the walks
// match on the SFID alone, so any row that carries the old SFID is renamed.
#include "active/internal.h"
#include "classifiers/internal.h"
#include "frame/log.h"
#include "qosintdb.h"
#include "serviceflows/internal.h"

using qos::local;

extern "C" {

int32_t qos_intDb_SubstituteSfId(uint32_t oldSfId, uint32_t newSfId) {
  QOS_REQUIRE_SF_DB(-1);
  if (oldSfId == 0 || newSfId == 0) {
    QOS_LOG(QOS_LOG_ERROR, "Incorrect parameter for SFID substitution, old SFID=0x%x, new SFID=0x%x ", oldSfId,
            newSfId);
    return -1;
  }
  int32_t flow = local.sf.find([oldSfId](const qos::SfRow& r) { return r.used() && r.sfId == oldSfId; });
  if (flow < 0) {
    QOS_LOG(QOS_LOG_ERROR, "No SF with SFID=0x%x was found; SFID cannot be substituted ", oldSfId);
    return -1;
  }
  qos::flows::rename(static_cast<uint32_t>(flow), newSfId);
  qos::classifiers::renameSfId(oldSfId, newSfId);
  qos::active::renameSfId(oldSfId, newSfId, local.sf[flow].direction);
  return 0;
}

}  // extern "C"
