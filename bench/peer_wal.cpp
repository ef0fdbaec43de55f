// SPDX-License-Identifier: MIT
// peer_wal.cpp - SQLite in WAL mode on a tmpfs file doing the DSA lifecycle.
//
// The same rows, indexes and statements as the in-memory peer (peer.cpp),
// in a database file on /dev/shm that several processes could share, in
// write-ahead-log mode with synchronous=NORMAL (no fsync at commit in WAL
// mode), one SQL transaction per hold of the lock.
#include <unistd.h>

#include <string>

#include "peer.h"

namespace qosbench {

void registerWalLifecycle() {
  static const std::string file = "/dev/shm/qosdb_bench_wal_" + std::to_string(getpid()) + ".db";
  registerSqlLifecycle("sqlite-wal", file, "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;");
}

}  // namespace qosbench
