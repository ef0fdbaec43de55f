/* SPDX-License-Identifier: MIT */
/*
 * dsa_example.c - a modem-initiated DSA through the transaction table and
 * the message store, as the modem's QoS control software does it in C.
 *
 * Run it in a private IPC namespace (unshare -i) to keep it away from a
 * store that may already run on this machine.
 */
#include <stdio.h>

#include "qosintdb.h"

static int step(const char *what, int32_t rc) {
    printf("%-58s -> %d\n", what, (int)rc);
    return rc == 0;
}

int main(void) {
    uint32_t ta = 0;
    uint16_t taId = 0;
    uint8_t *rsp = NULL;
    uint32_t rspLen = 0;
    uint32_t confCode = 0;

    /* The stack's first process creates and resets the store. */
    if (!step("qos_IntDb_Init: create the shared region", qos_IntDb_Init())) return 1;

    /* Allocate a transaction the modem starts: the library makes the ID. */
    if (!step("qos_TaDb_AddNewTa: DSA initiated by the modem",
              qos_TaDb_AddNewTa(0, QOS_TA_DSA, QOS_TA_BY_MODEM, 0, NULL, &ta)))
        return 1;
    qos_TaDb_GetTaId(ta, &taId);
    printf("   transaction row %u, generated TA ID 0x%04x\n", ta, taId);

    /* Build the DSA-REQ: header, then an upstream flow TLV (24) holding a
     * reference (1) and a QoS parameter set type (6). */
    qos_taDb_Lock();
    {
        const uint8_t header[2] = {(uint8_t)(taId >> 8), (uint8_t)taId};
        const uint8_t flow[] = {1, 2, 0, 5, 6, 1, 7};
        step("qos_intDb_MsgInitBufferForTa: reserve no header",
             qos_intDb_MsgInitBufferForTa(ta, QOS_TA_DSA, 1));
        step("qos_intDb_MsgAddReqBufferField: transaction ID",
             qos_intDb_MsgAddReqBufferField(ta, sizeof header, header));
        step("qos_intDb_MsgAddReqBufferTlv: upstream service flow (24)",
             qos_intDb_MsgAddReqBufferTlv(ta, 24, sizeof flow, flow));
        step("qos_TaDb_SetTaDbState: request sent (1)", qos_TaDb_SetTaDbState(ta, 1));
    }
    qos_taDb_Unlock();

    /* The CMTS answers with a DSA-RSP: transaction ID and confirmation 0. */
    qos_taDb_Lock();
    {
        const uint8_t answer[3] = {(uint8_t)(taId >> 8), (uint8_t)taId, 0};
        step("qos_intDb_MsgUpdateRspBuffer: DSA-RSP received",
             qos_intDb_MsgUpdateRspBuffer(ta, answer, sizeof answer));
        qos_intDb_MsgGetRspBuffer(ta, &rsp, &rspLen);
        step("qos_intDb_MsgSetConfCode: accept (0)", qos_intDb_MsgSetConfCode(ta, rsp[2]));
        qos_intDb_MsgGetConfCode(ta, &confCode);
        step("qos_TaDb_SetTaDbState: holding (2)", qos_TaDb_SetTaDbState(ta, 2));
        printf("\n");
        qos_TaDb_printDb();
        qos_intDb_MsgDbPrint(ta);
        printf("   confirmation code stored: %u\n\n", confCode);
    }
    qos_taDb_Unlock();

    /* Hold time over: free the row (this takes the lock by itself). */
    qos_intDb_ResetTaDbRow((int32_t)ta);
    qos_taDb_Lock();
    printf("after qos_intDb_ResetTaDbRow(%u):\n", ta);
    qos_TaDb_printDb();
    qos_taDb_Unlock();
    return 0;
}
