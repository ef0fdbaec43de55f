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

namespace qosbench {

// Registers peer/<lookup>/full for the lookups SQLite is compared on.
void registerPeerLookups();

// Registers peer/DsaLifecycle/{empty,full}.
void registerPeerLifecycle();

}  // namespace qosbench
