// SPDX-License-Identifier: MIT
// peer.h - the same work done in SQLite, the embedded store a developer
// would otherwise reach for.
//
// An in-memory database holds the same rows as tables (one SQL row per used
// region row, its row index as INTEGER PRIMARY KEY) with an index for every
// lookup the work makes; every statement is prepared once and re-bound. The
// first matching row is asked for as min(idx), which the index answers
// without a sort. A lock hold of the library is one SQL transaction here.
#pragma once

#include <cstdint>
#include <string>

namespace qosbench {

// Registers peer/<lookup>/full for the lookups SQLite is compared on.
void registerPeerLookups();

// Registers peer/DsaLifecycle/{empty,full}.
void registerPeerLifecycle();

// Registers <prefix>/DsaLifecycle/{empty,full} on the database `file`, set
// up by the statements `setup` (nullptr: none) before the schema.
void registerSqlLifecycle(const std::string& prefix, const std::string& file, const char* setup);

}  // namespace qosbench
