/* SPDX-License-Identifier: MIT */
/* The public headers alone, compiled in every dialect a client may use. */
#include "qosintdb.h"
#include "qosintdb_platform.h"

#if QOSINTDB_VERSION_MAJOR < 1 || QOSINTDB_VERSION_MINOR < 0 || QOSINTDB_VERSION_PATCH < 0
#error "QOSINTDB_VERSION_* must be plain numbers for #if"
#endif

int main(void) {
    const char *(*version)(void) = qos_IntDb_Version;
    return version == 0;
}
