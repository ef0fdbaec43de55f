/* SPDX-License-Identifier: MIT */
/*
 * qosintdb_platform.h - what the QoS internal database needs from its host.
 *
 * The core library calls these functions and never defines them: on the
 * modem the vendor's platform supplies them, on a development host the
 * `qosplatform` library does, and tests may link doubles of their own.
 * The declarations are fixed; every platform links against the same ones.
 */
#ifndef QOSINTDB_PLATFORM_H
#define QOSINTDB_PLATFORM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define QOS_PRINTF_LIKE(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define QOS_PRINTF_LIKE(fmt, args)
#endif

/* The static record that every log call site carries. */
typedef struct LogSite {
    int level;            /* 0 semaphore failures, 1 errors, 2 notices */
    int flag;             /* always 1 */
    int module;           /* 24 for the tables, 42 for the bonding change store */
    const char *function; /* the operation's name */
    int line;             /* the source line */
} LogSite;

/* Logger: one message, printf-style, from the given call site. */
int logger_build_send_log_msg(const LogSite *site, int zero, const char *format, ...)
    QOS_PRINTF_LIKE(3, 4);

/* Shared memory: init (called with 1, 0, 0), create a segment of `size`
 * bytes under `id`, or get the existing segment `id`; NULL on failure.
 *
 * What every platform must guarantee for the region (id 14, 85032 bytes,
 * QOS_REGION_SIZE in qosintdb.h); the library relies on all of it:
 * - size: create and get hand out a segment of exactly the size asked at
 *   create (85032 for the region), NULL rather than any other: the library
 *   reads and writes every byte of it and checks no size;
 * - alignment: the address is aligned to at least 8 bytes (the rows hold
 *   naturally aligned 32-bit words; 8 keeps them so on every target, and an
 *   unaligned word traps on ARM and MIPS);
 * - lifetime: get returns the segment that create made, to every process
 *   of the stack, at one fixed address within a process; the segment
 *   outlives the processes that use it (the library zeroes it itself at
 *   qos_IntDb_Init) and stays mapped while any process of the stack runs;
 * - permissions: only the processes of the modem stack may read or write the
 *   segment (its owner, the stack's user or root; no access for other users).
 *   A segment that exists under the id but that the platform did not make
 *   for the stack (another size, another owner, open to others) is refused
 *   with NULL, never handed out: get then makes qos_IntDb_RetrieveAccess
 *   return -1 before any table is touched. Create either makes a new
 *   segment or hands out an existing one only when it meets all of the
 *   above (a second qos_IntDb_Init, a stack started again after a crash). */
int shm_init(int a, int b, int c);
void *shm_create(int pool, int id, uint32_t size);
void *shm_get(int pool, int id);

/* Inter-component events: the destination serving `component`, and one
 * event with its payload sent there (0 when it was handed over).
 * EV_GenEvent runs while its caller holds the store's lock: it must return
 * at once, never wait for a receiver (drop the event rather than block),
 * and deliver only to components of the same stack. */
uint32_t ICC_dest_of(uint32_t component);
int EV_GenEvent(uint32_t dest, uint32_t event, const void *payload, uint32_t length);

/* DOCSIS configuration database. */
int DocsisDb_GetMultipleUpstreams(uint32_t *multipleUpstreams);
int DocsisDb_IsTccReceivedInRegRsp(void);
int DocsisDb_GetPortFromUcid(uint8_t ucid, uint8_t *port);
int DocsisDb_GetPortUcid(uint8_t port, uint8_t *ucid);

#ifdef __cplusplus
}
#endif

#endif /* QOSINTDB_PLATFORM_H */
