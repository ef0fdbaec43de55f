/* SPDX-License-Identifier: MIT */
/*
 * c_client.c - the core library linked into a C program by a C compiler
 * alone, with a minimal platform written in C: proves that the core needs
 * nothing but libc. It creates a store in static memory, opens a
 * transaction and prints the library's release.
 * Run it in a private IPC namespace (unshare -i): it creates the semaphore.
 */
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "qosintdb.h"
#include "qosintdb_platform.h"

static uint64_t region[(QOS_REGION_SIZE + 7) / 8];

int logger_build_send_log_msg(const LogSite *site, int zero, const char *format, ...) {
    va_list args;
    (void)zero;
    fprintf(stderr, "L%d %s: ", site->level, site->function);
    va_start(args, format);
    vfprintf(stderr, format, args);
    va_end(args);
    fputc('\n', stderr);
    return 0;
}
int shm_init(int a, int b, int c) { return a + b + c > 0 ? 0 : -1; }
void *shm_create(int pool, int id, uint32_t size) {
    (void)pool;
    return id == QOS_REGION_SEGMENT_ID && size <= sizeof region ? (void *)region : NULL;
}
void *shm_get(int pool, int id) { return shm_create(pool, id, 0); }
uint32_t ICC_dest_of(uint32_t component) { return component; }
int EV_GenEvent(uint32_t dest, uint32_t event, const void *payload, uint32_t length) {
    (void)dest, (void)event, (void)payload, (void)length;
    return 0;
}
int DocsisDb_GetMultipleUpstreams(uint32_t *multipleUpstreams) { *multipleUpstreams = 0; return 0; }
int DocsisDb_IsTccReceivedInRegRsp(void) { return 0; }
int DocsisDb_GetPortFromUcid(uint8_t ucid, uint8_t *port) { *port = ucid; return 0; }
int DocsisDb_GetPortUcid(uint8_t port, uint8_t *ucid) { *ucid = port; return 0; }

int main(void) {
    uint32_t ta = 99;
    if (strcmp(qos_IntDb_Version(), QOSINTDB_VERSION_STRING) != 0) {
        fprintf(stderr, "library %s, header %s\n", qos_IntDb_Version(), QOSINTDB_VERSION_STRING);
        return 1;
    }
    if (qos_IntDb_Init() != 0 || qos_TaDb_AddNewTa(7, QOS_TA_DSA, QOS_TA_BY_CMTS, 0, NULL, &ta) != 0 ||
        ta != 0 || dbcTaDb == NULL)
        return 1;
    printf("libqosintdb %s: store created, transaction row %u\n", qos_IntDb_Version(), (unsigned)ta);
    return 0;
}
