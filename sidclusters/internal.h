// SPDX-License-Identifier: MIT
// sidclusters/internal.h - what other subsystems may ask of the SID cluster
// and switchover tables (only sidclusters/ writes their rows).
#pragma once

namespace qos {
namespace clusters {

// Empties every cluster and switchover row and the cluster words of the
// statistics block (the cluster limit becomes 38).
void resetRows();

}  // namespace clusters
}  // namespace qos
