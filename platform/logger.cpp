// SPDX-License-Identifier: MIT
// logger.cpp - host logger: standard error, or a hook for tests and tools.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "qosplatform_host.h"

namespace {

QosHostLogHook logHook = nullptr;
void* logContext = nullptr;

// Highest level printed: QOSDB_LOG=none|0|1|2 (default 1).
int threshold() {
  static int value = [] {
    const char* env = std::getenv("QOSDB_LOG");
    if (env == nullptr || *env == '\0') return 1;
    if (std::strcmp(env, "none") == 0) return -1;
    return std::atoi(env);
  }();
  return value;
}

}  // namespace

extern "C" {

void qos_host_set_log_hook(QosHostLogHook hook, void* context) {
  logHook = hook;
  logContext = context;
}

int logger_build_send_log_msg(const LogSite* site, int, const char* format, ...) {
  char text[512];
  va_list args;
  va_start(args, format);
  int n = std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  if (n < 0) return -1;
  if (logHook != nullptr) {
    logHook(site, text, logContext);
  } else if (site != nullptr && site->level <= threshold()) {
    std::fprintf(stderr, "qosintdb[L%d M%d] %s: %s\n", site->level, site->module,
                 site->function != nullptr ? site->function : "?", text);
  }
  // Non-zero, so that a failed lock never reads as success.
  return n > 0 ? n : 1;
}

}  // extern "C"
