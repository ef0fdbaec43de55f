// SPDX-License-Identifier: MIT
// version.cpp - the release this library was built from.
#include "qosintdb.h"

extern "C" const char* qos_IntDb_Version(void) { return QOSINTDB_VERSION_STRING; }
