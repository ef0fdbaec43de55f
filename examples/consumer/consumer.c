/* SPDX-License-Identifier: MIT */
/*
 * consumer.c - a C client built outside the library's tree against an
 * installed libqosintdb, with the host platform:
 *   cmake -S examples/consumer -B build-consumer && cmake --build build-consumer
 *   cc consumer.c $(pkg-config --cflags --libs qosplatform) -o consumer
 * It creates the store, adds a flow at registration and reads it back.
 * Run it in a private IPC namespace (unshare -i).
 */
#include <stdio.h>
#include <string.h>

#include "qosintdb.h"

int main(void) {
    uint32_t sfIndex = 0, sfId = 0;
    int32_t rc;

    if (strcmp(qos_IntDb_Version(), QOSINTDB_VERSION_STRING) != 0) {
        fprintf(stderr, "header %s, library %s\n", QOSINTDB_VERSION_STRING, qos_IntDb_Version());
        return 1;
    }
    if (qos_IntDb_Init() != 0) return 1;
    qos_taDb_Lock();
    rc = qos_intDb_AddSf(0x1001, 1, QOS_DIR_UPSTREAM);
    if (rc == 0) rc = qos_intDb_FindSfByRef(1, &sfIndex);
    if (rc == 0) rc = qos_intDb_GetSfId(sfIndex, &sfId);
    qos_taDb_Unlock();
    printf("libqosintdb %s: flow 0x%x in row %u\n", qos_IntDb_Version(), (unsigned)sfId, (unsigned)sfIndex);
    return rc == 0 && sfId == 0x1001 ? 0 : 1;
}
