// SPDX-License-Identifier: MIT
// walk.cpp - the store as the modem's SNMP agent sees it: the CM service
// table (docsIfCmServiceTable, by upstream interface and SID) and the
// service flow SID cluster table (by SFID, cluster ID and UCID), each walked
// with its get-next operation and read with its get operation, under the
// lock for each call, as the agent does.
#include <iostream>

#include "commands.h"
#include "names.h"
#include "qosintdb.h"
#include "qosplatform_host.h"
#include "snapshot.h"
#include "store.h"
#include "text_table.h"

namespace qosdb {
namespace {

// A walk visits each index once and every index is strictly greater than the
// one before, so it ends; the bound only guards against a broken store.
constexpr int kMaxRows = 100000;

std::string orDash(bool ok, uint32_t value) { return ok ? std::to_string(value) : "-"; }

void cmServiceTable(const uint32_t usIfIndex[4]) {
  TextTable t({"ifIndex", "sid", "port", "activeIndex", "value2", "value3"});
  uint32_t ifIndex = 0;
  uint32_t sid = 0;
  for (int n = 0; n < kMaxRows; ++n) {
    uint32_t nextIf = 0;
    uint32_t nextSid = 0;
    uint32_t port = 0;
    uint32_t activeIndex = 0;
    uint32_t value2 = 0;
    uint32_t value3 = 0;
    int32_t attr;
    {
      Locked lock;
      if (qos_intDb_GetNextCmServiceTableIndex(ifIndex, sid, usIfIndex, &nextIf, &nextSid) != 0) break;
      for (uint32_t p = 0; p < 4 && port == 0; ++p) port = usIfIndex[p] == nextIf ? p + 1 : 0;
      attr = qos_intDb_GetCmServiceTableAttr(port, nextSid, &activeIndex, &value2, &value3);
    }
    t.add({std::to_string(nextIf), hex(nextSid), std::to_string(port), orDash(attr == 0, activeIndex),
           orDash(attr == 0, value2), orDash(attr == 0, value3)});
    ifIndex = nextIf;
    sid = nextSid;
  }
  std::cout << "CM service table (qos_intDb_GetNextCmServiceTableIndex, qos_intDb_GetCmServiceTableAttr):"
            << (t.empty() ? " no rows" : "") << "\n";
  if (!t.empty()) t.print(std::cout);
}

void sidClusterTable() {
  TextTable t({"sfId", "clusterId", "ucid", "sid"});
  uint32_t sfId = 0;
  uint32_t clusterId = 0;
  uint32_t ucid = 0;
  for (int n = 0; n < kMaxRows; ++n) {
    uint32_t next[3] = {};
    uint32_t sid = 0;
    int32_t got;
    {
      Locked lock;
      if (qos_intDb_GetNextSfSidClusterTableIndex(sfId, clusterId, ucid, &next[0], &next[1], &next[2]) != 0) break;
      got = qos_intDb_GetSidClusterTableRow(next[0], static_cast<uint8_t>(next[1]), static_cast<uint8_t>(next[2]), &sid);
    }
    t.add({hex(next[0]), std::to_string(next[1]), std::to_string(next[2]), got == 0 ? hex(sid) : "-"});
    sfId = next[0];
    clusterId = next[1];
    ucid = next[2];
  }
  std::cout << "SID cluster table (qos_intDb_GetNextSfSidClusterTableIndex, qos_intDb_GetSidClusterTableRow):"
            << (t.empty() ? " no rows" : "") << "\n";
  if (!t.empty()) t.print(std::cout);
}

}  // namespace

int walkCommand(const std::vector<uint32_t>& usIfIndex, bool multipleUpstreams, const std::string& from) {
  if (usIfIndex.size() != 4) throw Failure("--if-index takes the interface index of the four upstream ports", 2);
  if (!from.empty()) openPrivateStore(from);
  attach();
  ensureLockHolderAlive();
  if (multipleUpstreams) qos_host_docsis_set_upstream_mode(1, 1);
  uint32_t multiple = 0;
  DocsisDb_GetMultipleUpstreams(&multiple);
  bool clusters = multiple != 0 && DocsisDb_IsTccReceivedInRegRsp() != 0;
  std::cout << "upstream mode: " << (clusters ? "multiple upstreams (SIDs from the SID clusters)"
                                              : "single upstream (SIDs from the service flows)")
            << "; upstream ports 1..4 are interfaces " << usIfIndex[0] << ", " << usIfIndex[1] << ", "
            << usIfIndex[2] << ", " << usIfIndex[3] << "\n";
  uint32_t ports[4] = {usIfIndex[0], usIfIndex[1], usIfIndex[2], usIfIndex[3]};
  cmServiceTable(ports);
  sidClusterTable();
  return 0;
}

}  // namespace qosdb
