// sf_substitute.cpp - giving a known service flow another SFID.
//
// The SFID names a flow in several tables at once: its own flow row, the
// rows of its classifiers, its entry in the active upstream flow table and
// its entries in the active PHS table of its direction. When the CMTS
// renames the flow, all of them follow in one call, under the caller's
// lock. Outside the flow row the walks match on the SFID alone, so any row
// that carries the old SFID is renamed.
#include "frame/log.h"
#include "qosintdb.h"

using qos::local;

namespace {

template <typename Table>
void rename(const Table& table, int32_t last, uint32_t oldSfId, uint32_t newSfId) {
  for (int32_t i = 0; i <= last; ++i) {
    if (table[i].used() && table[i].sfId == oldSfId) table[i].sfId = newSfId;
  }
}

}  // namespace

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
  local.sf[flow].sfId = newSfId;
  rename(local.clsf, local.clsf.kRows - 1, oldSfId, newSfId);
  rename(local.activeSf, local.activeSf.kRows - 1, oldSfId, newSfId);
  const auto& phs = local.sf[flow].direction == QOS_DIR_UPSTREAM ? local.phsUs : local.phsDs;
  rename(phs, QOS_ACTIVE_PHS_ROWS - 1, oldSfId, newSfId);
  return 0;
}

}  // extern "C"
