// SPDX-License-Identifier: MIT
// lifecycle.cpp - the DSA lifecycle, alone and in 1, 2 and 4 processes.
#include "lifecycle.h"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <string>
#include <vector>

#include "peer.h"
#include "qosintdb.h"
#include "semcount.h"
#include "store.h"
#include "timing.h"

namespace qosbench {

const uint8_t* lifecycleRequest() {
  static const auto bytes = [] {
    std::array<uint8_t, kLifecycleRequestLength> b{};
    for (uint32_t i = 0; i < b.size(); ++i) b[i] = static_cast<uint8_t>(i * 7 + 3);
    return b;
  }();
  return bytes.data();
}

int32_t runDsaLifecycle(uint32_t flowRef, uint32_t sfId) {
  uint32_t ta = 0;
  if (qos_TaDb_AddNewTa(0, QOS_TA_DSA, QOS_TA_BY_MODEM, 0, nullptr, &ta) != 0) return -1;
  const auto t = static_cast<int32_t>(ta);

  qos_taDb_Lock();
  qos_intDb_MsgUpdateReqBuffer(ta, lifecycleRequest(), kLifecycleRequestLength);
  qos_intDb_AddSfReference(flowRef, QOS_DIR_UPSTREAM, t);
  for (uint32_t ref : kLifecycleClsfRefs) qos_intDb_AddClsfRef(flowRef, ref, t);
  qos_intDb_AddPhsRef(flowRef, kLifecycleClsfRefs[0], t);
  qos_taDb_Unlock();

  qos_taDb_Lock();
  uint32_t sf = 0;
  const bool found = qos_intDb_FindSfByTaAndRef(flowRef, t, &sf) == 0;
  if (found) qos_intDb_SetSfId(sf, sfId);
  for (uint32_t ref : kLifecycleClsfRefs) {
    uint32_t c = 0;
    if (qos_intDb_FindClsfByTaAndRef(ref, ta, &c) != 0) continue;
    qos_intDb_SetClsfId(c, ref);
    qos_intDb_SetClsfSfid(c, sfId);
  }
  qos_intDb_UpdateSfOnTaSucceeded(ta);
  qos_taDb_Unlock();

  qos_taDb_Lock();
  qos_intDb_UpdateSfOnTaEnd(ta);
  qos_taDb_Unlock();

  qos_intDb_ResetTaDbRow(t);
  return found ? static_cast<int32_t>(sf) : -1;
}

namespace {

// What a completed lifecycle leaves: the flow in force under its SFID with
// two classifiers and one PHS rule, both classifiers in force, the
// transaction row free again.
bool lifecycleLeftItsRows(uint32_t sf) {
  const qos::QosIntDbRegion& r = region();
  const qos::SfRow& flow = r.sf[sf];
  bool ok = flow.state == QOS_SF_OPERATIONAL && flow.sfId == kLifecycleSfId && flow.clsfCounter == 2 &&
            flow.phsCounter == 1 && flow.taIndex == -1 && flow.heldTaIndex == -1;
  for (uint32_t ref : kLifecycleClsfRefs) {
    uint32_t c = 0;
    ok = ok && qos_intDb_FindClsfById(ref, kLifecycleSfId, &c) == 0 && r.clsf[c].status == QOS_CLSF_OPERATIONAL;
  }
  uint32_t ta = 0;
  return ok && qos_TaDb_FindTaIndexByTaId(r.taControl.lastCmTaId, &ta) != 0;
}

// Takes the lifecycle's flow and classifiers out again (under the caller's
// lock), so that the next lifecycle finds the tables as before.
void removeFlow(uint32_t sf, uint32_t sfId) {
  qos::QosIntDbRegion& r = region();
  uint16_t id = 0;
  uint32_t c = 0;
  while (qos_intDb_GetNextClsfOfSf(sfId, -1, &id, &c) == 0) {
    r.clsf[c] = {};
    r.clsf[c].taIndex = -1;
  }
  qos_intDb_SfDb_RowReset(sf);
}

// Runs lifecycles in `procs` forked processes for `seconds` each, started
// together; the lifecycles all of them completed.
uint64_t lifecyclesInProcesses(int procs, double seconds) {
  int go[2], results[2];
  if (pipe(go) != 0 || pipe(results) != 0) return 0;
  std::vector<pid_t> children;
  for (int p = 0; p < procs; ++p) {
    pid_t pid = fork();
    if (pid == 0) {
      close(go[1]);
      char start;
      (void)!read(go[0], &start, 1);
      const uint32_t ref = kLifecycleFlowRef + static_cast<uint32_t>(p);
      const uint32_t sfId = kLifecycleSfId + static_cast<uint32_t>(p);
      uint64_t done = 0;
      const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
      while (std::chrono::steady_clock::now() < end) {
        int32_t sf = runDsaLifecycle(ref, sfId);
        if (sf < 0) break;
        qos_taDb_Lock();
        removeFlow(static_cast<uint32_t>(sf), sfId);
        qos_taDb_Unlock();
        ++done;
      }
      (void)!write(results[1], &done, sizeof done);
      _exit(0);
    }
    if (pid > 0) children.push_back(pid);
  }
  close(go[0]);
  close(results[1]);
  for (std::size_t i = 0; i < children.size(); ++i) (void)!write(go[1], "g", 1);
  close(go[1]);
  uint64_t total = 0, n = 0;
  while (read(results[0], &n, sizeof n) == static_cast<ssize_t>(sizeof n)) total += n;
  close(results[0]);
  for (pid_t pid : children) waitpid(pid, nullptr, 0);
  return total;
}

}  // namespace

void registerLifecycles() {
  for (Tables t : {Tables::kEmpty, Tables::kFullRoom}) {
    reg(std::string("lib/DsaLifecycle/") + tablesName(t), [t](benchmark::State& s) {
      useTables(t);
      Saved rows;
      rows.flowFamily().take();
      const SemCount before = semCount();
      const int32_t sf = runDsaLifecycle(kLifecycleFlowRef, kLifecycleSfId);
      const SemCount one = semCount() - before;
      if (sf < 0 || !lifecycleLeftItsRows(static_cast<uint32_t>(sf))) {
        s.SkipWithError("the lifecycle did not leave its flow and classifiers in force");
        return;
      }
      timedEach(s, [&] { rows.restore(); }, [] { runDsaLifecycle(kLifecycleFlowRef, kLifecycleSfId); });
      s.counters["semop_calls"] = static_cast<double>(one.calls);
      s.counters["sem_takes"] = static_cast<double>(one.takes);
    })->UseManualTime();
  }
  registerPeerLifecycle();
  registerLmdbLifecycle();
  registerWalLifecycle();

  for (int procs : {1, 2, 4}) {
    reg("mp/DsaLifecycle/procs:" + std::to_string(procs), [procs](benchmark::State& s) {
      useTables(Tables::kEmpty);
      const double seconds = settings().mpSeconds;
      for (auto _ : s) {
        uint64_t total = lifecyclesInProcesses(procs, seconds);
        s.SetIterationTime(seconds);
        s.counters["lifecycles_per_s"] = static_cast<double>(total) / seconds;
      }
    })->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
  }
}

}  // namespace qosbench
