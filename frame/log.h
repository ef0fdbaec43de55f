// SPDX-License-Identifier: MIT
// log.h - the one way the library logs, and the checks that open operations.
//
// Every message goes to the platform logger with a static call-site record
// (level, flag 1, module, operation name, source line). The macros below
// build that record where they are expanded, so the record names the
// operation that logs. The REQUIRE macros are the validity preambles of the
// table families, written here once: the family is attached (_DB), the
// index names one of its rows (_INDEX), or both (_ROW). A failed check logs
// the family's message with the operation's name and returns the given
// value from the operation. They stay macros because the call-site record
// must be made in the operation itself; they declare nothing in it.
#pragma once

#include "frame/state.h"
#include "qosintdb_platform.h"

// Logs through a call-site record naming `name`.
#define QOS_LOG_AS(name, module, level, ...)                                           \
  do {                                                                                 \
    static const LogSite qosLogSite_ = {(level), 1, (module), (name), __LINE__};        \
    (void)logger_build_send_log_msg(&qosLogSite_, 0, __VA_ARGS__);                     \
  } while (0)

// Logs from the current operation, in the tables' module (24).
#define QOS_LOG(level, ...) QOS_LOG_AS(__func__, QOS_MODULE_TABLES, level, __VA_ARGS__)

// Logs from the current operation, in the bonding change store's module (42).
#define QOS_LOG_DBC(level, ...) QOS_LOG_AS(__func__, QOS_MODULE_DBC, level, __VA_ARGS__)

#define QOS_REQUIRE_(cond, ret, ...) \
  do {                               \
    if (!(cond)) {                   \
      QOS_LOG(QOS_LOG_ERROR, __VA_ARGS__); \
      return ret;                    \
    }                                \
  } while (0)

// Flow family (flows, classifiers, statistics, clusters, active and PHS tables).
#define QOS_REQUIRE_SF_DB(ret) \
  QOS_REQUIRE_(::qos::local.sfDbReady, ret, "func %s: ---> Internal DB  is not initialized", __func__)
#define QOS_REQUIRE_SF_INDEX(index, ret)                                                \
  QOS_REQUIRE_(static_cast<uint32_t>(index) < ::qos::kSfRows, ret,                      \
               "func %s: ---> SF DB index %d is out of range", __func__, static_cast<int>(index))
#define QOS_REQUIRE_CLSF_INDEX(index, ret)                                              \
  QOS_REQUIRE_(static_cast<uint32_t>(index) < ::qos::kClsfRows, ret,                    \
               "func %s: ---> Clsf DB index %d is out of range", __func__, static_cast<int>(index))
#define QOS_REQUIRE_SF_ROW(index, ret) \
  do {                                 \
    QOS_REQUIRE_SF_DB(ret);            \
    QOS_REQUIRE_SF_INDEX(index, ret);  \
  } while (0)
#define QOS_REQUIRE_CLSF_ROW(index, ret) \
  do {                                   \
    QOS_REQUIRE_SF_DB(ret);              \
    QOS_REQUIRE_CLSF_INDEX(index, ret);  \
  } while (0)

// Transaction table.
#define QOS_REQUIRE_TA_DB(ret) \
  QOS_REQUIRE_(::qos::local.taDbReady, ret, "%s: ---> DSX TA DB is not initialized", __func__)
#define QOS_REQUIRE_TA_INDEX(index, ret)                                                \
  QOS_REQUIRE_(static_cast<uint32_t>(index) < ::qos::kTaRows, ret,                      \
               "%s: ---> DSX TA DB index %d is out of range", __func__, static_cast<int>(index))
#define QOS_REQUIRE_TA_ROW(index, ret) \
  do {                                 \
    QOS_REQUIRE_TA_DB(ret);            \
    QOS_REQUIRE_TA_INDEX(index, ret);  \
  } while (0)

// Message store (buffers and error records).
#define QOS_REQUIRE_MSG_DB(ret) \
  QOS_REQUIRE_(::qos::local.msgDbReady, ret, "%s: ---> DSX MSG DB is not initialized", __func__)
#define QOS_REQUIRE_MSG_INDEX(index, ret)                                               \
  QOS_REQUIRE_(static_cast<uint32_t>(index) < ::qos::kMsgRows, ret,                     \
               "%s: ---> DSX MSG DB index %d is out of range", __func__, static_cast<int>(index))
#define QOS_REQUIRE_MSG_ROW(index, ret) \
  do {                                  \
    QOS_REQUIRE_MSG_DB(ret);            \
    QOS_REQUIRE_MSG_INDEX(index, ret);  \
  } while (0)
