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
 * QOS_REGION_SIZE in qosintdb.h), since the library checks none of it:
 * - size: the segment holds at least the size asked at create; get hands
 *   out only a segment of exactly that size. NULL rather than a smaller one:
 *   the library writes every byte of it;
 * - alignment: the address is aligned to at least 8 bytes (the rows hold
 *   naturally aligned 32-bit words; 8 keeps them so on every target, and an
 *   unaligned word traps on ARM and MIPS);
 * - lifetime: create zeroes nothing on the library's behalf but returns the
 *   same segment to every process that gets it, at a fixed address within a
 *   process, until the platform removes it; it outlives the processes that
 *   use it, and nothing detaches it while a process of the stack runs;
 * - permissions: only the processes of the modem stack may read or write the
 *   segment (its owner, the stack's user or root; no access for other users).
 *   A segment that exists under the id but that the platform did not make
 *   for the stack (another size, another owner, open to others) is refused
 *   with NULL, never handed out: get then makes qos_IntDb_RetrieveAccess
 *   return -1 before any table is touched. */
int shm_init(int a, int b, int c);
void *shm_create(int pool, int id, uint32_t size);
void *shm_get(int pool, int id);

/* Inter-component events: the destination serving `component`, and one
 * event with its payload sent there (0 when it was handed over). */
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
