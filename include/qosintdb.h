/* SPDX-License-Identifier: MIT */
/*
 * qosintdb.h - the QoS internal database of a DOCSIS cable modem.
 *
 * Every quality-of-service object that the modem and its CMTS set up lives
 * in one shared-memory region of 85032 bytes: service flows, classifiers,
 * PHS rule bindings, SID clusters, the DSX transactions in progress with
 * their messages and error records, the active tables and the bonding
 * change store. One process of the modem stack calls qos_IntDb_Init; every
 * other process calls qos_IntDb_RetrieveAccess and sees the same rows.
 *
 * The operations below are grouped in the order a client meets them:
 * attachment, lock, transactions, service flows, classifiers, PHS rules,
 * SID clusters, messages and error records, transaction outcomes, active
 * tables, the registration check, SNMP walks and the bonding change store.
 *
 * Locking: callers hold qos_taDb_Lock()/qos_taDb_Unlock() around every
 * operation or group of operations; no operation takes the lock unless its
 * comment says "Locks itself". Those few must be called WITHOUT the lock
 * (it is not recursive): qos_IntDb_Init, qos_IntDb_Reset,
 * qos_TaDb_AddNewTa, qos_intDb_ResetTaDbRow and qos_intDb_TaDb_reset.
 *
 * Results: every operation returns 0 on success and -1 on failure unless
 * its comment says otherwise; lookups that find nothing return -1 silently.
 * Output pointers belong to the caller. A NULL output pointer that an
 * operation has no defined answer for is refused with -1, nothing written.
 *
 * Logging: messages go to the platform logger (logger_build_send_log_msg)
 * with the operation's own name, level 1 (errors) and module 24 (module 42
 * for the bonding change store) unless a comment names another level. An
 * operation logs nothing but its table's not-initialised check unless its
 * comment or its section says so: "func <name>: ---> Internal DB  is not
 * initialized" (flows and everything built on them), "<name>: ---> DSX TA
 * DB is not initialized", "<name>: ---> DSX MSG DB is not initialized".
 * Diagnostic prints write to standard output, never to the logger.
 *
 * Indexes: SF DB index 0..127, Clsf DB index 0..319, TA DB index 0..9 (the
 * message store and the outcome operations also take 10). Indexes passed
 * as unsigned values treat negative numbers as out of range.
 */
#ifndef QOSINTDB_H
#define QOSINTDB_H

#include <stdint.h>

/* The release this header belongs to. MAJOR changes only with an
 * incompatible ABI change (it is the shared library's SOVERSION), MINOR
 * with an addition, PATCH with a fix. qos_IntDb_Version gives the release
 * of the library actually loaded. */
#define QOSINTDB_VERSION_MAJOR 1
#define QOSINTDB_VERSION_MINOR 1
#define QOSINTDB_VERSION_PATCH 0
#define QOSINTDB_VERSION_STRING "1.1.0"

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define QOS_API __attribute__((visibility("default")))
#else
#define QOS_API
#endif

/* ------------------------------------------------------------------ */
/* Shared enumerations and sizes                                       */
/* ------------------------------------------------------------------ */

enum {
    QOS_REGION_SIZE = 85032,
    QOS_REGION_SEGMENT_ID = 14,
    QOS_SEM_KEY = 4656,
    QOS_SF_ROWS = 128,
    QOS_CLSF_ROWS = 320,
    QOS_TA_ROWS = 10,
    QOS_MSG_ROWS = 11,
    QOS_MSG_BUFFER_SIZE = 1600, /* a buffer holds at most 1599 bytes */
    QOS_AUTH_BLOCK_SIZE = 255,
    QOS_SID_CLUSTER_ROWS = 79,
    QOS_SWITCHOVER_ROWS = 64,
    QOS_ACTIVE_SF_ROWS = 32,  /* rows in use of the 64 reserved */
    QOS_ACTIVE_PHS_ROWS = 32, /* rows in use of the 34 reserved, per direction */
    QOS_CHANNELS_PER_CLUSTER = 4,
    QOS_DBC_MOD_ENTRIES = 38,
    QOS_DBC_ACTIVE_ENTRIES = 38,
    QOS_DBC_BITMAP_ENTRIES = 64,
    QOS_DBC_MAPS_PER_MOD = 4
};

/* Log modules and levels used in LogSite records. */
enum { QOS_MODULE_TABLES = 24, QOS_MODULE_DBC = 42 };
enum { QOS_LOG_SEMAPHORE = 0, QOS_LOG_ERROR = 1, QOS_LOG_NOTICE = 2 };

/* State of a service flow row. */
typedef enum SfState {
    QOS_SF_EMPTY = 0,        /* row free */
    QOS_SF_OPERATIONAL = 1,  /* flow in force */
    QOS_SF_ADDING = 2,       /* a DSA that has not ended is adding the flow */
    QOS_SF_CHANGING = 3,     /* a DSC is changing the flow */
    QOS_SF_DELETING = 4,     /* the flow is being deleted */
    QOS_SF_ADD_REJECTED = 5, /* freed when the holding transaction ends */
    QOS_SF_DELETED = 6,      /* freed when the holding transaction ends */
    QOS_SF_REFERENCED = 7    /* placeholder named by a classifier or PHS rule */
} SfState;

/* Status of a classifier row. */
typedef enum ClsfStatus {
    QOS_CLSF_EMPTY = 0,
    QOS_CLSF_OPERATIONAL = 1,
    QOS_CLSF_ADDING = 2,
    QOS_CLSF_CHANGING = 3,
    QOS_CLSF_DELETING = 4,
    QOS_CLSF_PHS_PLACEHOLDER = 5 /* named by a PHS rule, not added yet */
} ClsfStatus;

enum { QOS_DIR_DOWNSTREAM = 1, QOS_DIR_UPSTREAM = 2 };

/* Parameter-set type bits of a service flow. */
enum { QOS_PARAMSET_PROVISIONED = 1, QOS_PARAMSET_ADMITTED = 2, QOS_PARAMSET_ACTIVE = 4 };

/* DSX transaction type and initiator. */
enum { QOS_TA_DSA = 0, QOS_TA_DSC = 1, QOS_TA_DSD = 2 };
enum { QOS_TA_BY_MODEM = 0, QOS_TA_BY_CMTS = 1 };

/* Outcome events: 4-byte payload (a TA DB index) sent to component 32. */
enum {
    QOS_EV_COMPONENT = 32,
    QOS_EV_HELD_SF_CHANGED = 5515,
    QOS_EV_HOLDER_ACK_LOST = 5517,
    QOS_EV_HELD_SF_DELETED = 5522
};

/* SID cluster mapping actions (bonding change store). */
enum { QOS_MAP_ADD = 1, QOS_MAP_DELETE = 2 };

/* ActiveDb cluster actions (bonding change store). */
enum {
    QOS_DBC_FROM_CLUSTER = 2, /* taken from the flow's current cluster */
    QOS_DBC_CREATED = 3,      /* created by qos_dbc_ActiveDbAddSid */
    QOS_DBC_CLIENT_SET = 4,   /* set by the client, applied like 2 */
    QOS_DBC_CLIENT_DELETE = 5 /* set by the client, cluster to be deleted */
};

/* ------------------------------------------------------------------ */
/* Records that clients read and write directly                        */
/* ------------------------------------------------------------------ */

/* One upstream transmit port of a SID cluster (8 bytes). */
typedef struct SidChannelMapping {
    uint32_t action; /* QOS_MAP_ADD or QOS_MAP_DELETE; bonding change only */
    uint8_t ucid;    /* upstream channel ID, 0 = none */
    uint8_t reserved;
    uint16_t sid; /* SID on that channel, 0 = none */
} SidChannelMapping;

/* A SID-to-channel mapping of a bonding change modification (8 bytes). */
typedef struct ModMapping {
    uint8_t reserved[4];
    uint16_t sid;
    uint8_t ucid;
    uint8_t reserved2;
} ModMapping;

/* ModDb entry: one SID cluster modification (80 bytes). */
typedef struct QosDbcModEntry {
    int32_t activeIndex; /* ActiveDb entry built from it; -1 flow not active */
    uint32_t sfId;
    uint8_t clusterId;
    uint8_t addCount; /* 0..4 */
    uint8_t reserved[2];
    ModMapping addMaps[QOS_DBC_MAPS_PER_MOD];
    uint8_t deleteCount; /* 0..4 */
    uint8_t reserved2[3];
    ModMapping deleteMaps[QOS_DBC_MAPS_PER_MOD];
} QosDbcModEntry;

/* ActiveDb entry: the SIDs a (flow, cluster) will have, per port (44 bytes). */
typedef struct QosDbcActiveEntry {
    uint32_t activeSfIndex; /* Active SF DB index of the flow */
    uint32_t modIndex;      /* ModDb entry it was built from */
    uint32_t sfId;
    uint8_t clusterId;
    uint8_t reserved;
    uint16_t sid[QOS_CHANNELS_PER_CLUSTER]; /* element p-1 for port p */
    uint8_t reserved2[2];
    uint32_t portState[QOS_CHANNELS_PER_CLUSTER]; /* 2 = SID assigned */
    uint32_t clusterAction;                       /* QOS_DBC_* */
} QosDbcActiveEntry;

/* SF bitmap entry: the upstream ports a flow may use (8 bytes). */
typedef struct QosDbcSfBitmap {
    uint32_t sfId;
    uint8_t channelBitmap; /* bit c = port c+1 */
    uint8_t reserved[3];
} QosDbcSfBitmap;

/* The bonding change store (5236 bytes), reached through dbcTaDb. */
typedef struct QosDbcDb {
    uint32_t modCount;
    QosDbcModEntry modDb[QOS_DBC_MOD_ENTRIES];
    uint32_t activeCount;
    QosDbcActiveEntry activeDb[QOS_DBC_ACTIVE_ENTRIES];
    uint32_t bitmapCount;
    QosDbcSfBitmap sfBitmaps[QOS_DBC_BITMAP_ENTRIES];
} QosDbcDb;

/* The record sizes are part of the ABI: a compiler that lays them out
 * differently stops the build. Dialects without a static assertion get a
 * negative array size instead. */
#if defined(__cplusplus) && __cplusplus >= 201103L
#define QOS_LAYOUT_CHECK(cond, msg) static_assert(cond, msg)
#elif !defined(__cplusplus) && defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define QOS_LAYOUT_CHECK(cond, msg) _Static_assert(cond, msg)
#else
#define QOS_LAYOUT_CHECK(cond, msg) extern char qos_layout_check[(cond) ? 1 : -1]
#endif
QOS_LAYOUT_CHECK(sizeof(SidChannelMapping) == 8, "SidChannelMapping is 8 bytes");
QOS_LAYOUT_CHECK(sizeof(ModMapping) == 8, "ModMapping is 8 bytes");
QOS_LAYOUT_CHECK(sizeof(QosDbcModEntry) == 80, "ModDb entry is 80 bytes");
QOS_LAYOUT_CHECK(sizeof(QosDbcActiveEntry) == 44, "ActiveDb entry is 44 bytes");
QOS_LAYOUT_CHECK(sizeof(QosDbcSfBitmap) == 8, "SF bitmap entry is 8 bytes");
QOS_LAYOUT_CHECK(sizeof(QosDbcDb) == 5236, "bonding change store is 5236 bytes");

/* The bonding change store in this process's mapping; NULL until attached. */
extern QOS_API QosDbcDb *dbcTaDb;

/* ------------------------------------------------------------------ */
/* Entry points and lock                                               */
/* ------------------------------------------------------------------ */

/* Attachment. qos_IntDb_Init and qos_IntDb_RetrieveAccess are the first
 * calls of a process; nothing detaches. */

/* The release of the library loaded, "MAJOR.MINOR.PATCH" (a static string;
 * compare with QOSINTDB_VERSION_STRING). Needs no region, no lock, logs
 * nothing. */
QOS_API const char *qos_IntDb_Version(void);
/* Creates and zeroes the region, resets every table, creates the semaphore
 * with value 1. Exactly one process of the stack calls it, without the lock
 * (its transaction table reset locks itself). Logs "******* QOS internal DB
 * create failure *********" when the platform gives no region; "Failed to
 * create QOS TA semaphore" / "Failed to initialize QOS TA semaphore" at
 * level 0. */
QOS_API int32_t qos_IntDb_Init(void);
/* Attaches to the existing region and semaphore; changes no table. Call it
 * after qos_IntDb_Init has run somewhere: the semaphore gets its value there.
 * -1 silently without a region; "Failed to access QOS TA semaphore" (level
 * 0) and -1 without the semaphore (the tables stay attached). */
QOS_API int32_t qos_IntDb_RetrieveAccess(void);
/* Empties the flow family, message store and transaction tables; -1 when
 * this process has no region. Locks itself, once per transaction row: call
 * it without the lock. */
QOS_API int32_t qos_IntDb_Reset(void);

/* Lock. Take / give back the stack-wide semaphore (System V, key 4656; not
 * recursive). 0,
 * or on failure the logger's result after "Failed to lock the QOS TA
 * semaphore" / "Failed to Unlock the QOS TA semaphore" (level 0). */
QOS_API int32_t qos_taDb_Lock(void);
QOS_API int32_t qos_taDb_Unlock(void);

/* Point the tables at a region mapped at `base` (the entry points do it);
 * -1 for NULL, nothing logged. */
QOS_API int32_t qos_intDb_SfDb_init(void *base);
QOS_API int32_t qos_intDb_MsgDb_init(void *base);
QOS_API int32_t qos_intDb_TaDb_init(void *base);
QOS_API int32_t qos_dbc_DbInit(void *base);

/* ------------------------------------------------------------------ */
/* DSX transaction table                                               */
/* ------------------------------------------------------------------ */

/* Indexes 0..9. Operations taking an index log "<name>: ---> DSX TA DB
 * index <i> is out of range" for an index above 9 (the others: no log). */

/* Allocates the lowest free row, fills it, resets its message record and
 * writes its index. A modem-initiated transaction (initiator 0) gets a
 * generated 15-bit ID. -1 when authLen > 255 (no log) or the table is full
 * ("<name>: DSX TA DB is full. Cannot allocate new TA index for CM DSX
 * message"). Locks itself, once: call it without the lock. */
QOS_API int32_t qos_TaDb_AddNewTa(uint32_t taId, uint32_t type, uint32_t initiator,
                                  uint32_t authLen, const uint8_t *authData,
                                  uint32_t *taIndex);
/* Index of the used row with this transaction ID; ID 0 or a NULL output
 * logs "<name>: incorrect input parameters TA ID = ..." and fails. */
QOS_API int32_t qos_TaDb_FindTaIndexByTaId(uint32_t taId, uint32_t *taIndex);
/* Writes the row's ID; 0 if the row is used, -1 if free. */
QOS_API int32_t qos_TaDb_GetTaId(uint32_t taIndex, uint16_t *taId);
/* Type / initiator / subtype of a used row; -1 for a free row or NULL
 * output, nothing written. The setter stores whatever the row's state. */
QOS_API int32_t qos_TaDb_GetTaType(uint32_t taIndex, uint32_t *type);
QOS_API int32_t qos_TaDb_GetTaInitiator(uint32_t taIndex, uint32_t *initiator);
QOS_API int32_t qos_TaDb_GetTaSubtype(uint32_t taIndex, uint32_t *subtype);
QOS_API int32_t qos_TaDb_SetTaSubtype(uint32_t taIndex, uint32_t subtype);
/* State-machine state 0..3 (2 and 3: held); set refuses states above 3. */
QOS_API int32_t qos_TaDb_SetTaDbState(uint32_t taIndex, uint32_t state);
QOS_API int32_t qos_TaDb_GetTaDbState(uint32_t taIndex, uint32_t *state);
QOS_API int32_t qos_TaDb_IsTaHeld(uint32_t taIndex, uint32_t *held);
/* Retransmission counter of a used row; a free row reads 3 and -1. */
QOS_API int32_t qos_TaDb_ResetRetCounter(uint32_t taIndex);
QOS_API int32_t qos_TaDb_IncRetCounter(uint32_t taIndex);
QOS_API int32_t qos_TaDb_GetRetCounter(uint32_t taIndex, uint32_t *retries);
/* Authentication block; set refuses more than 255 bytes; get hands out the
 * row's own bytes, not a copy. */
QOS_API int32_t qos_TaDb_SetTaAuthBlock(uint32_t taIndex, uint32_t authLen, const uint8_t *authData);
QOS_API int32_t qos_TaDb_GetTaAuthBlock(uint32_t taIndex, uint32_t *authLen, uint8_t **authData);
/* Both validate two indexes only: 0 when both are 0..9, else the out-of-
 * range message with the first bad index. */
QOS_API int32_t qos_TaDb_CompareTaStates(uint32_t taIndexA, uint32_t taIndexB);
QOS_API int32_t qos_TaDb_CheckTaConflict(uint32_t taIndexA, uint32_t taIndexB);
/* Frees a row and resets its message record (0..10; 10 resets only message
 * record 10). Locks itself: call it without the lock. */
QOS_API void qos_intDb_ResetTaDbRow(int32_t taIndex);
/* Frees every row and its message record. Locks itself, once per row: call
 * it without the lock. */
QOS_API void qos_intDb_TaDb_reset(void);
/* Prints the used rows to standard output. */
QOS_API int32_t qos_TaDb_printDb(void);

/* ------------------------------------------------------------------ */
/* Service flows: table                                                */
/* ------------------------------------------------------------------ */

/* Operations of the flow family take an SF DB index 0..127; where an index
 * is refused with a message, it is "func <name>: ---> SF DB index <i> is
 * out of range". Adds that find the table full log "<name>: SF int DB is
 * full. ...". */

/* Resets flows, classifiers, SID clusters, switchover criteria, active and
 * PHS tables and the statistics block. Does nothing, silently, before
 * attachment. */
QOS_API void qos_intDb_SfDb_Reset(void);
/* Frees one row (index 0..127; others ignored). No check, no log. */
QOS_API void qos_intDb_SfDb_RowReset(uint32_t sfIndex);
/* The row the free-row rule chooses (may raise the maximum index). */
QOS_API int32_t qos_intDb_FindSfDbNextFreeIndex(uint32_t *sfIndex);
/* First used, non-placeholder row of the used range with this SFID. */
QOS_API int32_t qos_intDb_FindSfById(uint32_t sfId, uint32_t *sfIndex);
/* The highest row index that scans of the flow table visit. */
QOS_API int32_t qos_intDb_GetSfDbMaxIndex(uint32_t *maxIndex);
/* Counts the FREE rows of all 128, stores and writes the count. */
QOS_API int32_t qos_intDb_UpdateSfNumber(uint32_t *sfNumber);
/* The count the last qos_intDb_UpdateSfNumber stored. */
QOS_API int32_t qos_intDb_GetSfNumber(uint32_t *sfNumber);
/* Always -1; no check, no log. */
QOS_API int32_t qos_intDb_GetNextSFDbIndex(void);
/* Always 0; no check, no log. */
QOS_API int32_t qos_intDb_DsdReqRecieved(void);

/* ------------------------------------------------------------------ */
/* Service flows: creation, lookup, deletion                           */
/* ------------------------------------------------------------------ */

/* Registration: the flow is operational at once (a placeholder or earlier
 * row with the same reference is taken over); counts its SID clusters. */
QOS_API int32_t qos_intDb_AddSf(uint32_t sfId, uint32_t ref, uint32_t direction);
/* Modem-initiated DSA: flow by reference, state adding under taIndex. */
QOS_API int32_t qos_intDb_AddSfReference(uint32_t ref, uint32_t direction, int32_t taIndex);
/* CMTS-initiated DSA: flow by SFID; -1 if another transaction owns it
 * ("Add SF ID to int DB: SFID=0x%x already exists with TA index=%d"). */
QOS_API int32_t qos_intDb_AddSfId(uint32_t sfId, uint32_t direction, int32_t taIndex);
/* DSC: marks the flow changing under taIndex; -1 silently above 127. */
QOS_API int32_t qos_intDb_ChangeSF(uint32_t sfIndex, int32_t taIndex);
/* DSD: marks the flow deleting under taIndex (0..10), remembering a
 * running transaction as the holder; -1 silently outside. */
QOS_API int32_t qos_intDb_StartDeleteSF(uint32_t sfIndex, int32_t taIndex);
/* Lookups of the used range: first row by reference, by (reference,
 * transaction), by transaction, by (transaction, direction). */
QOS_API int32_t qos_intDb_FindSfByRef(uint32_t ref, uint32_t *sfIndex);
QOS_API int32_t qos_intDb_FindSfByTaAndRef(uint32_t ref, int32_t taIndex, uint32_t *sfIndex);
QOS_API int32_t qos_intDb_FindSFByTaIndex(int32_t taIndex, uint32_t *sfIndex);
QOS_API int32_t qos_intDb_FindSFByTaIndexAndDirection(int32_t taIndex, uint32_t direction,
                                                      uint32_t *sfIndex);
/* Next flow of a transaction after prevIndex (start with -1); writes -1
 * first. -1 silently for prevIndex above 127 or a negative taIndex. */
QOS_API int32_t qos_intDb_NextSFIndexOfTa(int32_t taIndex, int32_t prevIndex, uint32_t *sfIndex);
/* The flow's transaction and the other flow of that transaction (or -1);
 * -1 silently for a free row or NULL output, the range message above 127. */
QOS_API int32_t qos_intDb_GetSfTaIndexAndPairSf(uint32_t sfIndex, uint32_t *taIndex,
                                                uint32_t *pairSfIndex);
/* Next upstream flow with the active parameter set after prevIndex.
 * Logs "func: %s, no next US active SF has been found " when there is none
 * and "func: %s, no next US active SF (input SfDbIndex %d) " above 127. */
QOS_API int32_t qos_intDb_FindNextActiveSf(int32_t prevIndex, uint32_t *sfIndex);
/* Always -1; no check, no log. */
QOS_API int32_t qos_intDb_FindSFIdValid(uint32_t sfId);

/* ------------------------------------------------------------------ */
/* Service flows: attributes (by SF DB index)                          */
/* ------------------------------------------------------------------ */

/* Getters and setters of one field of the flow at sfIndex; a failing call
 * writes nothing. An index above 127 is refused with the range message,
 * silently by SetSfSid, SetSFState, CheckSFOperational, GetSfDirection,
 * GetSFTaIndex, SetSFTaIndex and GetSFHeldTaIndex. Only GetSfRef and
 * GetSfId refuse a free row (silently). Setters store any value whatever
 * the row's state and bypass the state transitions. */
QOS_API int32_t qos_intDb_GetSfRef(uint32_t sfIndex, uint32_t *ref);
QOS_API int32_t qos_intDb_GetSfId(uint32_t sfIndex, uint32_t *sfId);
QOS_API int32_t qos_intDb_SetSfId(uint32_t sfIndex, uint32_t sfId);
QOS_API int32_t qos_intDb_GetSfSid(uint32_t sfIndex, uint16_t *sid);
QOS_API int32_t qos_intDb_SetSfSid(uint32_t sfIndex, uint32_t sid);
QOS_API int32_t qos_intDb_GetSFState(uint32_t sfIndex, uint32_t *state);
QOS_API int32_t qos_intDb_SetSFState(uint32_t sfIndex, uint32_t state);
/* 0 if the flow is operational. */
QOS_API int32_t qos_intDb_CheckSFOperational(uint32_t sfIndex);
QOS_API int32_t qos_intDb_GetServiceFlowDirection(uint32_t sfIndex, uint8_t *direction);
QOS_API int32_t qos_intDb_GetSfDirection(uint32_t sfIndex, uint8_t *direction);
QOS_API int32_t qos_intDb_GetServiceFlowParamSet(uint32_t sfIndex, uint8_t *paramSetType);
/* 0 clears the bits; any other value is ORed in. */
QOS_API int32_t qos_intDb_SetServiceFlowParamSet(uint32_t sfIndex, uint32_t paramSetType);
QOS_API int32_t qos_intDb_GetSfQosDbIndex(uint32_t sfIndex, uint32_t *qosDbIndex);
QOS_API int32_t qos_intDb_SetSfQosDbIndex(uint32_t sfIndex, uint32_t qosDbIndex);
/* Write the link, then 0 if it is a transaction (>= 0), -1 if none. */
QOS_API int32_t qos_intDb_GetSFTaIndex(uint32_t sfIndex, int32_t *taIndex);
QOS_API int32_t qos_intDb_SetSFTaIndex(uint32_t sfIndex, uint32_t taIndex);
QOS_API int32_t qos_intDb_GetSFHeldTaIndex(uint32_t sfIndex, int32_t *heldTaIndex);
QOS_API int32_t qos_intDb_GetSfClusterCounter(uint32_t sfIndex, uint8_t *counter);
QOS_API int32_t qos_intDb_GetServiceFlowClassCounter(uint32_t sfIndex, uint32_t *counter);
QOS_API int32_t qos_intDb_GetServiceFlowPhsCounter(uint32_t sfIndex, uint32_t *counter);
/* Primary flow reference of a direction (1 downstream, 2 upstream; any
 * other direction: -1 silently). */
QOS_API int32_t qos_intDb_GetSfPrimaryRef(uint32_t direction, uint16_t *ref);
QOS_API int32_t qos_intDb_SetSfPrimaryRef(uint32_t direction, uint32_t ref);
/* Number of active upstream flows qos_intDb_FillActiveUsSfTable entered. */
QOS_API int32_t qos_intDb_GetActiveSfNumber(uint32_t *activeSfNumber);

/* Diagnostic dumps to standard output (index messages are printed, not
 * logged). The whole row: */
QOS_API int32_t qos_intDb_fullPrintSF(uint32_t sfIndex);
/* One row, or every used row for an index above 127. */
QOS_API int32_t qos_intDb_shortPrintSF(int32_t sfIndex);

/* Gives a flow a new SFID in every table that holds it: its flow row, every
 * classifier and active flow row with the old SFID, and the active PHS
 * table of the flow's direction. Logs "Incorrect parameter for SFID
 * substitution, ..." for an SFID 0 and "No SF with SFID=0x%x was found;
 * SFID cannot be substituted " for an unknown one. */
QOS_API int32_t qos_intDb_SubstituteSfId(uint32_t oldSfId, uint32_t newSfId);

/* ------------------------------------------------------------------ */
/* Classifiers                                                          */
/* ------------------------------------------------------------------ */

/* Classifier operations log the not-initialised check and, for an index
 * above 319, "func <name>: ---> Clsf DB index <i> is out of range".
 * Lookups scan rows 0..clsfDbMaxIndex, first match wins, -1 silently if
 * none. By reference: real classifiers only (placeholders are passed over). */
QOS_API int32_t qos_intDb_FindClsfByRef(uint32_t ref, uint32_t *clsfIndex);
/* By identifier and SFID, or by reference and transaction: placeholders too. */
QOS_API int32_t qos_intDb_FindClsfById(uint32_t clsfId, uint32_t sfId, uint32_t *clsfIndex);
QOS_API int32_t qos_intDb_FindClsfByTaAndRef(uint32_t ref, uint32_t taIndex, uint32_t *clsfIndex);
/* Next row (placeholders included) of a flow after prevIndex (start with -1). */
QOS_API int32_t qos_intDb_GetNextClsfOfSf(uint32_t sfId, int32_t prevIndex, uint16_t *clsfId,
                                          uint32_t *clsfIndex);
/* Flag 1 if the row is being deleted, else 0. */
QOS_API int32_t qos_intDb_IsClsfInDeleting(uint32_t clsfIndex, uint32_t *deleting);
/* The setters store whatever the row's status. */
QOS_API int32_t qos_intDb_SetClsfId(uint32_t clsfIndex, uint32_t clsfId);
/* -1 for a free row, a placeholder, or an identifier not known yet (0). */
QOS_API int32_t qos_intDb_GetClsfId(uint32_t clsfIndex, uint16_t *clsfId);
QOS_API int32_t qos_intDb_SetClsfSfid(uint32_t clsfIndex, uint32_t sfId);
/* -1 for a free row or a placeholder. */
QOS_API int32_t qos_intDb_GetClsfSfid(uint32_t clsfIndex, uint32_t *sfId);
QOS_API int32_t qos_intDb_GetClsfDbMaxIndex(uint32_t *maxIndex);
/* Upstream classifier limit of the consistency check (below 1: no limit). */
QOS_API int32_t qos_intDb_SetClsfMaxNum(uint32_t maxNum);
QOS_API int32_t qos_intDb_GetClsfMaxNum(uint32_t *maxNum);
/* Never maintained: reads 0. */
QOS_API int32_t qos_intDb_GetClsfNumber(uint32_t *clsfNumber);
/* The row the next add would take (not claimed; the range may grow); -1 full. */
QOS_API int32_t qos_intDb_FindClsfDbNextFreeIndex(uint32_t *clsfIndex);
/* One row, or every used row for an index above 319; -1 for a negative one. */
QOS_API int32_t qos_intDb_PrintClsf(int32_t clsfIndex);

/* Adding a classifier: an add that names a flow not there yet creates the
 * flow as a placeholder (state referenced); an add finding a PHS
 * placeholder of the same classifier takes that row over. A failed add
 * writes no row and logs why: "<name>: Classifier int DB is full. ...",
 * "<name>: SF int DB is full. Referenced SF cannot be added to DB for ...",
 * or "<name>: Clsf with Ref=... already exists ...".
 * Registration add (qos_intDb_AddClsf): the classifier is operational at
 * once. */
QOS_API int32_t qos_intDb_AddClsf(uint32_t sfId, uint32_t sfRef, uint32_t clsfRef);
/* DSA adds, by reference or identifier: adding under taIndex. */
QOS_API int32_t qos_intDb_AddClsfRef(uint32_t sfRef, uint32_t clsfRef, int32_t taIndex);
QOS_API int32_t qos_intDb_AddClsfId(uint32_t sfId, uint32_t clsfId, int32_t taIndex);
/* DSC operations on the flow at sfIndex (0..127), taIndex 0..10; -1
 * silently outside. The flow becomes changing under taIndex, and stays so
 * even when an append fails afterwards. Counters change at once. */
QOS_API int32_t qos_intDb_AppendClsfRef(uint32_t sfIndex, uint32_t clsfRef, int32_t taIndex);
QOS_API int32_t qos_intDb_AppendClsfId(uint32_t sfIndex, uint32_t clsfId, int32_t taIndex);
/* No test of the rows: callers check that they exist and belong together. */
QOS_API int32_t qos_intDb_ChangeClassifier(uint32_t sfIndex, uint32_t clsfIndex, int32_t taIndex);
QOS_API int32_t qos_intDb_DeleteClassifier(uint32_t sfIndex, uint32_t clsfIndex, int32_t taIndex);

/* ------------------------------------------------------------------ */
/* PHS rules                                                            */
/* ------------------------------------------------------------------ */

/* A rule is kept as its flow's phsCounter and the classifier it names.
 * Adds (registration, DSA by reference, DSA by identifier) create
 * placeholder rows for a classifier or flow not known yet; a failed add
 * writes no row. Every refusal with a reason is logged at level 1: a full
 * table ("<name>: SF int DB is full. ..." / "<name>: Clsf int DB is full.
 * ..."), a reference mismatch ("Cannot add PHS because of Clsf Ref and SF
 * Ref mismatch, ..."), an unknown flow ("Cannot find SFID=0x%x in QOS
 * internal DB for PHS adding" / "... deleting"), another transaction at
 * work ("Cannot append PHS, since other DSX TA runs on the SF or Clsf ..."
 * / "Cannot change PHS, ..."), an unknown classifier ("Cannot append PHS,
 * since its classifier is not found ..." / "Cannot change PHS, ..."). */
QOS_API int32_t qos_intDb_AddPhs(uint32_t sfRef, uint32_t clsfRef);
QOS_API int32_t qos_intDb_AddPhsRef(uint32_t sfRef, uint32_t clsfRef, int32_t taIndex);
QOS_API int32_t qos_intDb_AddPhsId(uint32_t sfId, uint32_t clsfId, int32_t taIndex);
/* DSC: the flow must exist and becomes changing under taIndex; -1 when
 * another transaction works on the flow or on an existing classifier. An
 * append gives an unknown classifier a placeholder (by identifier only when
 * the CMTS initiated the transaction); a change refuses it. */
QOS_API int32_t qos_intDb_AppendPhs_ClsfRef(uint32_t sfId, uint32_t clsfRef, int32_t taIndex);
QOS_API int32_t qos_intDb_AppendPhs_ClsfId(uint32_t sfId, uint32_t clsfId, int32_t taIndex);
QOS_API int32_t qos_intDb_ChangePhs(uint32_t sfId, uint32_t clsfId, int32_t taIndex);
/* One rule (deleteAll 0) or all rules of the flow. A single delete on a
 * flow whose PHS counter is already 0 leaves it at 0. */
QOS_API int32_t qos_intDb_DeletePhs(uint32_t sfId, int32_t taIndex, uint32_t deleteAll);

/* ------------------------------------------------------------------ */
/* SID clusters and switchover criteria                                */
/* ------------------------------------------------------------------ */

/* SID clusters (79 rows) of upstream flows, four ports each, and their
 * switchover criteria. A full table logs "<name>: SID Cluster int DB is
 * full. ...". */

/* Stores (or rewrites) the cluster of a flow; entry i is port i+1. */
QOS_API int32_t qos_intDb_AddSfSidCluster(uint32_t sfId, uint8_t clusterId,
                                          const SidChannelMapping channels[4]);
/* Frees one cluster of a flow / every cluster of a flow. */
QOS_API int32_t qos_intDb_DelSfSidCluster(uint32_t sfId, uint8_t clusterId);
QOS_API int32_t qos_intDb_DeleteSidClustersOfSf(uint32_t sfId);
/* Copies ucid and sid of the four ports; action words are left alone. */
QOS_API int32_t qos_intDb_GetSfSidCluster(uint32_t sfId, uint8_t clusterId, SidChannelMapping out[4]);
/* Next cluster row of a flow after *rowIndex (start with -1); out may be NULL. */
QOS_API int32_t qos_intDb_GetNextSfSidCluster(uint32_t sfId, int32_t *rowIndex, uint8_t *clusterId,
                                              SidChannelMapping *out);
/* The SID of one (flow, cluster, channel); -1 before attachment. */
QOS_API int32_t qos_intDb_GetSidClusterTableRow(uint32_t sfId, uint8_t clusterId, uint8_t ucid,
                                                uint32_t *sid);
/* Prints the clusters; -1 (nothing printed) before attachment. */
QOS_API int32_t qos_intDb_PrintSidClusters(void);
/* Switchover criteria of a flow's clusters (64 rows): set (rewrites the
 * flow's row or takes a free one; -1 silently when full), get, delete. */
QOS_API int32_t qos_intDb_SetSfSidClusterParams(uint32_t sfId, uint32_t maxOutstandingBytes,
                                                uint32_t maxTotalBytesRequested,
                                                uint16_t maxTimeInCluster, uint8_t maxRequests);
QOS_API int32_t qos_intDb_GetSfSidClusterParams(uint32_t sfId, uint32_t *maxOutstandingBytes,
                                                uint32_t *maxTotalBytesRequested,
                                                uint16_t *maxTimeInCluster, uint8_t *maxRequests);
QOS_API int32_t qos_intDb_DeleteSfSidClusterParams(uint32_t sfId);
/* The highest cluster row scans visit; the cluster limit of the
 * registration check. */
QOS_API int32_t qos_intDb_GetClusterDbMaxIndex(uint32_t *maxIndex);
QOS_API int32_t qos_intDb_GetClusterMaxNum(uint32_t *maxNum);
/* Stores at most 79. */
QOS_API int32_t qos_intDb_SetClusterMaxNum(uint32_t maxNum);
/* The stored cluster count (never maintained: reads 0); the row the next
 * store would take (the range may grow; -1 when full). */
QOS_API int32_t qos_intDb_GetClusterNumber(uint32_t *clusterNumber);
QOS_API int32_t qos_intDb_FindClusterDbNextFreeIndex(uint32_t *rowIndex);

/* ------------------------------------------------------------------ */
/* DSX message store (request, response, acknowledge, error record)    */
/* ------------------------------------------------------------------ */

/* One message record per TA DB index 0..10. Operations taking an index log
 * "<name>: ---> DSX MSG DB index <i> is out of range" for 11 or more. */

/* Empties every message record. */
QOS_API int32_t qos_intDb_MsgDb_reset(void);
/* Empties a row's buffers (reserving the headers unless noHeader) and
 * resets its error record (not for row 10). */
QOS_API int32_t qos_intDb_MsgInitBufferForTa(uint32_t taIndex, uint32_t type, uint32_t noHeader);
/* Empties a row's three buffers. */
QOS_API int32_t qos_intDb_MsgResetTaBuffer(uint32_t taIndex);
/* Append a TLV (type byte, length byte, value); -1 if it would reach 1600. */
QOS_API int32_t qos_intDb_MsgAddReqBufferTlv(uint32_t taIndex, uint32_t type, uint32_t length,
                                             const uint8_t *value);
QOS_API int32_t qos_intDb_MsgAddRspBufferTlv(uint32_t taIndex, uint32_t type, uint32_t length,
                                             const uint8_t *value);
QOS_API int32_t qos_intDb_MsgAddAckBufferTlv(uint32_t taIndex, uint32_t type, uint32_t length,
                                             const uint8_t *value);
/* Append raw bytes; -1 if the buffer would reach 1600. */
QOS_API int32_t qos_intDb_MsgAddReqBufferField(uint32_t taIndex, uint32_t length, const uint8_t *bytes);
QOS_API int32_t qos_intDb_MsgAddRspBufferField(uint32_t taIndex, uint32_t length, const uint8_t *bytes);
QOS_API int32_t qos_intDb_MsgAddAckBufferField(uint32_t taIndex, uint32_t length, const uint8_t *bytes);
/* Replace a whole message (a request also empties the row first); 1600
 * bytes or more log "<name>: Unsufficient memory for DSX-REQ message, TA DB
 * index = <i>" (DSX-RSP, DSX-ACK) and fail. */
QOS_API int32_t qos_intDb_MsgUpdateReqBuffer(uint32_t taIndex, const uint8_t *bytes, uint32_t length);
QOS_API int32_t qos_intDb_MsgUpdateRspBuffer(uint32_t taIndex, const uint8_t *bytes, uint32_t length);
QOS_API int32_t qos_intDb_MsgUpdateAckBuffer(uint32_t taIndex, const uint8_t *bytes, uint32_t length);
/* Address (in this process) and length of a buffer, for use under the lock. */
QOS_API int32_t qos_intDb_MsgGetReqBuffer(uint32_t taIndex, uint8_t **data, uint32_t *length);
QOS_API int32_t qos_intDb_MsgGetRspBuffer(uint32_t taIndex, uint8_t **data, uint32_t *length);
QOS_API int32_t qos_intDb_MsgGetAckBuffer(uint32_t taIndex, uint8_t **data, uint32_t *length);
/* Argument check only. */
QOS_API int32_t qos_intDb_MsgGetMsgSendBuff(uint32_t taIndex, uint8_t **data, uint32_t *length);
/* Hex dump of a row's three buffers to standard output (rows 0..9; others
 * print an out-of-range line and fail). */
QOS_API int32_t qos_intDb_MsgDbPrint(uint32_t taIndex);
/* Argument checks only: 0 for index <= 9 and type <= 2. */
QOS_API int32_t qos_intDb_MsgReqPrint(uint32_t taIndex, uint32_t type);
QOS_API int32_t qos_intDb_MsgRspPrint(uint32_t taIndex, uint32_t type);
QOS_API int32_t qos_intDb_MsgAckPrint(uint32_t taIndex, uint32_t type);

/* Error record of a transaction: confirmation code, error code, type and
 * subtypes, the SFID in error. */
QOS_API int32_t qos_intDb_MsgSetConfCode(uint32_t taIndex, uint32_t confCode);
QOS_API int32_t qos_intDb_MsgGetConfCode(uint32_t taIndex, uint32_t *confCode);
/* Sets the confirmation code; always returns 0. */
QOS_API int32_t qos_intDb_MsgUpdateError(uint32_t taIndex, uint32_t confCode);
QOS_API int32_t qos_intDb_MsgSetErrorSet(uint32_t taIndex, uint32_t errorCode, uint32_t errorType,
                                         uint32_t errorSubType, uint32_t errorSubType2);
QOS_API int32_t qos_intDb_MsgGetErrorCode(uint32_t taIndex, uint32_t *errorCode);
/* On failure the output reads 10. */
QOS_API int32_t qos_intDb_MsgGetErrorType(uint32_t taIndex, uint32_t *errorType);
QOS_API int32_t qos_intDb_MsgGetErrorSubType(uint32_t taIndex, uint32_t *errorSubType,
                                             uint32_t *errorSubType2);
QOS_API int32_t qos_intDb_MsgSetErroredSfId(uint32_t taIndex, uint32_t sfId);
QOS_API int32_t qos_intDb_MsgGetErroredSfId(uint32_t taIndex, uint32_t *sfId);
/* confCode 0, errorCode 253, the rest 0. */
QOS_API int32_t qos_intDb_MsgResetError(uint32_t taIndex);

/* ------------------------------------------------------------------ */
/* Transaction outcomes                                                */
/* ------------------------------------------------------------------ */

/* What the end of a DSX transaction t (taIndex) does to its flows and
 * classifiers. Each walks the flow rows 0..127 (and, where named, the
 * classifier rows) once, under the caller's lock, and returns 0; -1 with
 * nothing changed for an index above 10 (no log) or, for the first five,
 * a transaction whose type cannot be read (index 10 included). Rows "of t"
 * have taIndex t; "held by t" means heldTaIndex = t and taIndex -1. Freed
 * rows lower the maximum indexes. Events carry a 4-byte TA DB index to
 * component 32; failures of the events and of the deletions they trigger
 * are ignored. */

/* Success. DSA: flows become operational, held by t, references cleared;
 * its classifiers operational with references cleared. DSC: flows
 * operational, held by t, QOS_EV_HELD_SF_CHANGED to a former holder;
 * classifiers adding/changing become operational, deleting ones are freed,
 * any other status logs "Incorrect status %d of classifier ClsfID=0x%x on
 * DSC success processing" (level 2). DSD: flows deleted (state 6), held by
 * t, QOS_EV_HELD_SF_DELETED to a former holder; an upstream flow loses its
 * SID clusters, switchover criteria and active entry; the classifiers of
 * the transaction's flows are freed. */
QOS_API int32_t qos_intDb_UpdateSfOnTaSucceeded(uint32_t taIndex);
/* Failure. DSA: flows add-rejected (5), held by t; its classifiers freed.
 * DSC: flows operational, held by t; classifiers adding are freed,
 * changing/deleting become operational. DSD: nothing changes (the flows
 * stay under t). */
QOS_API int32_t qos_intDb_UpdateSfOnTaFailure(uint32_t taIndex);
/* Error ("QOS:  Cannot determine DSX TA type; TA index=%d" when the type
 * cannot be read). DSA: flows deleting (CMTS-initiated) or add-rejected
 * (modem-initiated), held by t; classifiers of t freed. DSC: flows
 * deleting, held by t; classifiers as on failure. DSD: as on success. */
QOS_API int32_t qos_intDb_UpdateSfOnTaError(uint32_t taIndex);
/* Forced end: flows of t become add-rejected (DSA), operational (DSC) or
 * deleting (DSD), released from t without becoming held; no event;
 * classifiers as on error. */
QOS_API int32_t qos_intDb_UpdateSfOnTaForcedEnd(uint32_t taIndex);
/* End of the hold: every flow held by t is released; a DSA frees those
 * add-rejected, a DSD those no other transaction works on. No classifier
 * walk. */
QOS_API int32_t qos_intDb_UpdateSfOnTaEnd(uint32_t taIndex);
/* Add abort: flows of t still adding become add-rejected, held by t; if
 * there were any, every classifier of t is freed. No type lookup. */
QOS_API int32_t qos_intDb_UpdateSfAddAbort(uint32_t taIndex);
/* Acknowledge lost: QOS_EV_HOLDER_ACK_LOST, with the working transaction's
 * index, for each flow held by t that another transaction works on (state
 * neither empty nor add-rejected). Changes no row. */
QOS_API int32_t qos_intDb_UpdateSfOnTaAckLost(uint32_t taIndex);
/* End of registration: operational flows and classifiers lose the
 * references that only the configuration used; other rows keep theirs. */
QOS_API int32_t qos_intDb_UpdateOnRegFinish(void);

/* ------------------------------------------------------------------ */
/* Active upstream flows and active PHS tables                          */
/* ------------------------------------------------------------------ */

/* Active upstream flows: rows 0..31, a flow's row is its active index.
 * A full table logs "<name>: Active SF DB is full. SFID=0x%x cannot be
 * added" (the fill: "... Only %d of %d active US Service Flows are
 * entered"), an unknown SFID "<name>: SFID=0x%x is not found into active SF
 * DB".
 * Fills from the operational active upstream flows, primary flow (the one
 * usPrimarySfRef names, else the smallest reference) in row 0; more than 32
 * flows: the first 32 are entered and the rest reported. -1 if none. */
QOS_API int32_t qos_intDb_FillActiveUsSfTable(void);
/* Takes the free row released longest ago; 0 if the SFID is already in. */
QOS_API int32_t qos_intDb_AddActiveUsSfEntry(uint32_t sfId);
QOS_API int32_t qos_intDb_DeleteActiveUsSfEntry(uint32_t sfId);
QOS_API int32_t qos_intDb_GetActiveSfIndexBySfid(uint32_t sfId, uint32_t *activeIndex);
/* -1 for an index above 31 or a free row. */
QOS_API int32_t qos_intDb_GetActiveSfId(uint32_t activeIndex, uint32_t *sfId);
QOS_API int32_t qos_intDb_SetActiveSfId(uint32_t activeIndex, uint32_t sfId);
/* Prints the used rows to standard output. */
QOS_API int32_t qos_intDb_PrintActiveSfDB(void);

/* Active PHS tables, one per direction (2 upstream, 1 downstream), rows
 * 0..31. Adds take the lowest free row and answer 0 for an entry already
 * there; DSID entries live in the downstream table. Refusals are logged:
 * bad arguments ("... Incorrect input parameters ...", "... Incorrect
 * direction value %d", "... Incorrect input parameter DSID = 0x%x"), a full
 * table ("... PHS active DB is full. Cannot add new entry ..."), a bad
 * index ("... PHS active DB index %d is out of range", "activePhsDbIndex =
 * %d too large, max = %d"). */
QOS_API int32_t qos_intDb_AddActivePhsEntry(uint32_t sfId, uint32_t clsfId, uint8_t phsi,
                                            uint8_t direction);
QOS_API int32_t qos_intDb_AddActivePhsEntryByDsid(uint32_t dsid);
/* 0 also when the entry is not there (logged as a notice). */
QOS_API int32_t qos_intDb_DeleteActivePhsEntry(uint32_t sfId, uint32_t clsfId, uint8_t phsi,
                                               uint8_t direction);
/* -1 for a free row. */
QOS_API int32_t qos_intDb_DeleteActivePhsEntryByIndex(int32_t activePhsIndex, uint8_t direction);
/* Once attached, a failed index lookup leaves 0xFFFFFFFF in *activePhsIndex. */
QOS_API int32_t qos_intDb_GetActivePhsIndex(uint32_t sfId, uint8_t direction, uint32_t *activePhsIndex);
QOS_API int32_t qos_intDb_GetActivePhsIndexByClsf(uint32_t sfId, uint32_t clsfId, uint8_t direction,
                                                  uint32_t *activePhsIndex);
QOS_API int32_t qos_intDb_GetActivePhsIndexByDsid(uint32_t dsid, uint32_t *activePhsIndex);
/* -1 for a free row or a DSID entry; the classifier ID's low 16 bits.
 * Before attachment these two refuse like the rest of the family. */
QOS_API int32_t qos_intDb_GetActivePhsInfo(int32_t activePhsIndex, uint8_t direction, uint32_t *sfId,
                                           uint16_t *clsfId, uint8_t *phsi);
/* Replaces the SFID whatever the row's status. */
QOS_API int32_t qos_intDb_SetActivePhsSfid(int32_t activePhsIndex, uint8_t direction, uint32_t sfId);
/* Prints the used rows of the upstream, then the downstream table to
 * standard output. */
QOS_API int32_t qos_intDb_PrintActivePhsDB(void);

/* ------------------------------------------------------------------ */
/* Registration consistency check                                      */
/* ------------------------------------------------------------------ */

/* 0 when the registered tables fit the modem's limits (64 operational
 * flows, classifier, PHS, active-flow and cluster limits, no placeholder
 * left); logs the first problem and returns -1 otherwise. More than 160
 * classifiers is logged without failing. Changes nothing. */
QOS_API int32_t qos_intDb_CheckCorrectness(void);

/* ------------------------------------------------------------------ */
/* SNMP table walks                                                     */
/* ------------------------------------------------------------------ */

/* Index orders compare component by component as unsigned numbers; a
 * get-next returns the smallest index strictly greater than the given one
 * and writes its outputs only on success. The upstream mode is asked of the
 * DOCSIS database at every call: multiple upstreams with a TCC in the
 * REG-RSP read the SID clusters, otherwise the operational flows' SIDs.
 * Before attachment every walk and the attribute read return -1 (only
 * qos_intDb_GetSnmpNextSid logs it). */

/* The next SID of an operational flow (either direction) after `sid`. */
QOS_API int32_t qos_intDb_GetSnmpNextSid(uint32_t sid, uint32_t *nextSid);
/* CM service table, indexed by (upstream interface index, SID); usIfIndex
 * gives the interface of ports 1..4, 0 = none (its SIDs are not listed).
 * Single-upstream mode lists every flow SID under usIfIndex[0] and ignores
 * the given ifIndex. */
QOS_API int32_t qos_intDb_GetNextCmServiceTableIndex(uint32_t ifIndex, uint32_t sid,
                                                     const uint32_t usIfIndex[4],
                                                     uint32_t *nextIfIndex, uint32_t *nextSid);
/* The row of (usPort 1..4, SID 1..16383): activeIndex = the Active SF DB
 * index of the flow holding the SID, value3 = the number of SIDs of its
 * cluster (1 in single-upstream mode). value2 is 0 in single-upstream mode;
 * in multiple-upstream mode it is the `ref` of the SF DB row whose index
 * equals activeIndex (not necessarily the flow's own row), and the call
 * fails, with activeIndex already written, when that row is free. */
QOS_API int32_t qos_intDb_GetCmServiceTableAttr(uint32_t usPort, uint32_t sid, uint32_t *activeIndex,
                                                uint32_t *value2, uint32_t *value3);
/* Service flow SID cluster table, indexed by (SFID, cluster ID, UCID) over
 * the channels of the clusters in use, whatever the upstream mode; the row
 * itself is read with qos_intDb_GetSidClusterTableRow. */
QOS_API int32_t qos_intDb_GetNextSfSidClusterTableIndex(uint32_t sfId, uint32_t clusterId,
                                                        uint32_t ucid, uint32_t *nextSfId,
                                                        uint32_t *nextClusterId, uint32_t *nextUcid);

/* ------------------------------------------------------------------ */
/* Bonding change store (module 42)                                    */
/* ------------------------------------------------------------------ */

/* Every operation returns -1 while dbcTaDb is NULL (only qos_dbc_DbReset
 * logs it). Counts above their list's capacity are read as the capacity;
 * an append to a full list (ModDb 38, ActiveDb 38, SF bitmaps 64) is
 * refused with -1 and a level-1 message. Ports are 1..4. */

/* Zeroes the whole store; "Cannot reset QosDBC DB, shared mem not
 * connected" without it. */
QOS_API int32_t qos_dbc_DbReset(void);
/* Appends one ModDb entry; action 1 mappings go to the adds, 2 to the
 * deletes, others are logged and skipped. More than 4 adds or 4 deletes in
 * the entry refuse it whole. */
QOS_API int32_t qos_dbc_AddSfSidClusterMod(uint32_t sfId, uint8_t clusterId, uint32_t count,
                                           const SidChannelMapping *mappings);
/* -1 when a modification deletes a channel its cluster lacks, adds one it
 * has, would give it a fifth channel or a channel not in channelUcids. */
QOS_API int32_t qos_dbc_VerifyAllSidClusterMaps(const uint32_t channelUcids[4]);
/* One ActiveDb entry (action 2) per modification of an active flow with a
 * stored cluster; a flow not active gets ModDb activeIndex -1. Channels on
 * no port 1..4 are skipped. */
QOS_API int32_t qos_dbc_SetActions(void);
/* Puts a SID on a port of the (flow, cluster) entry, creating it (action
 * 3; activeSfIndex 0xFFFFFFFF for a flow not in the Active SF DB) unless
 * the ModDb is empty. */
QOS_API int32_t qos_dbc_ActiveDbAddSid(uint32_t sfId, uint8_t clusterId, uint32_t port, uint16_t sid);
/* Rebuilds the SF bitmaps from the entries of action 2 and 4. */
QOS_API int32_t qos_dbc_RefreshBitmaps(void);
/* Deletes the clusters of action-5 entries, then writes those of action 2
 * and 4 (port p takes its UCID from the DOCSIS database). Returns 0. */
QOS_API int32_t qos_dbc_UpdateSfSidClusterDb(void);
/* Sets (active != 0) or clears bit `channel` (port - 1) of the flow's
 * bitmap, making its entry if needed; a channel of 8 or more changes no bit. */
QOS_API int32_t qos_dbc_SetSfChannelActive(uint32_t sfId, uint8_t channel, int32_t active);
/* The flow's channel bitmap; -1 if the flow has no entry. */
QOS_API int32_t qos_dbc_GetSfChannelBitmap(uint32_t sfId, uint32_t *bitmap);
/* Empties the SF bitmap list. */
QOS_API int32_t qos_dbc_ResetSfBitmaps(void);

#ifdef __cplusplus
}
#endif

#endif /* QOSINTDB_H */
