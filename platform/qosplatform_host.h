/* SPDX-License-Identifier: MIT */
/*
 * qosplatform_host.h - controls of the host platform (libqosplatform).
 *
 * The host platform implements qosintdb_platform.h on a development Linux
 * machine: System V shared memory keyed by the segment id, a logger on
 * standard error, events as datagrams between local processes, and a DOCSIS
 * configuration database whose values tests and tools set. These extra
 * functions let tests and the qosdb tool watch and steer it.
 */
#ifndef QOSPLATFORM_HOST_H
#define QOSPLATFORM_HOST_H

#include <stdint.h>

#include "qosintdb_platform.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Logger ----
 * Without a hook every message with a level at or below the threshold goes
 * to standard error as one line: "qosintdb[L<level> M<module>] <function>:
 * <text>". The threshold comes from the environment variable QOSDB_LOG
 * ("none", or 0, 1, 2; default 1). With a hook installed, the hook receives
 * every message instead, whatever its level. */
typedef void (*QosHostLogHook)(const LogSite *site, const char *text, void *context);
void qos_host_set_log_hook(QosHostLogHook hook, void *context);

/* ---- Events ----
 * EV_GenEvent sends one datagram to the socket of the destination
 * (ICC_dest_of returns the component number itself) and returns 0 when it
 * was handed over, non-zero otherwise. Sockets live in the caller's event
 * directory "<base>/qosintdb-ev-<euid>" (<base>: QOSDB_EVENT_DIR, else /tmp),
 * mode 0700, which must belong to the caller and be closed to everyone else:
 * a directory that is not is never used. A socket belongs to the caller's
 * IPC namespace, like the store: a listener hears the stack of its own store
 * only. The sender never waits: when nobody listens, the listener's queue is
 * full or the directory cannot be used, the event is dropped and counted.
 * A datagram holds the event number, the payload length (both u32, host
 * order) and the payload.
 * QOSDB_TRACE_EVENTS=1 also prints a trace line per event on stderr. */
typedef void (*QosHostEventHook)(uint32_t dest, uint32_t event, const void *payload,
                                 uint32_t length, void *context);
void qos_host_set_event_hook(QosHostEventHook hook, void *context);

/* Events this process could not hand over since it started (EV_GenEvent
 * returned non-zero). */
uint32_t qos_host_events_dropped(void);
/* Datagrams this process's listeners discarded because another user sent them. */
uint32_t qos_host_events_ignored(void);

/* Opens the socket of `dest` for receiving, creating the event directory when
 * missing; the descriptor, or -1 with errno (EADDRINUSE when another process
 * listens there already, EPERM when the directory is not the caller's own). */
int qos_host_event_listen(uint32_t dest);
/* Waits up to timeoutMs (-1: forever) for one event from a process of the
 * listener's user; events of other users are discarded. 1 with the event,
 * 0 on timeout, -1 on error. At most *length payload bytes are copied;
 * *length becomes the payload's length. */
int qos_host_event_receive(int fd, int timeoutMs, uint32_t *event, void *payload, uint32_t *length);
/* Removes the socket of a listening descriptor and closes it; close's result. */
int qos_host_event_close(int fd);

/* ---- DOCSIS configuration database ----
 * Defaults come from the environment when set: QOSDB_MULTIPLE_US (0/1),
 * QOSDB_TCC (0/1), QOSDB_UCIDS ("u1,u2,u3,u4": the UCID of ports 1 to 4).
 * Without them: single upstream, no TCC, port p carries UCID p. */
void qos_host_docsis_set_upstream_mode(uint32_t multipleUpstreams, int tccReceived);
/* Port 1..4 carries `ucid` (0: the port has no channel). */
int qos_host_docsis_set_port_ucid(uint8_t port, uint8_t ucid);

/* ---- Shared memory ----
 * Removes the segment `id` (it disappears once every process detached). */
int qos_host_shm_remove(int id);

#ifdef __cplusplus
}
#endif

#endif /* QOSPLATFORM_HOST_H */
