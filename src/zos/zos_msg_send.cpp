// Sending messages: create (or take) a message and post it through the
// module manager. After a failed post the sending function deletes the
// message, so its caller never has to.
#include "zos_mod.h"
#include "zos_msg.h"
#include "zos_util.h"

namespace {

// Posts a message that the caller hands over; deletes it when the post
// fails.
uint32_t PostOwned(ZMSG msg, bool withPri, uint32_t pri) {
    const uint32_t rc = withPri ? Zos_ModPostMsgX(msg, pri) : Zos_ModPostMsg(msg);
    if (rc != ZOK) Zos_MsgDelete(msg);
    return rc;
}

uint32_t SendX(uint32_t send, uint32_t recv, uint32_t type, uintptr_t obj, const void *data,
               uint32_t len, bool withPri, uint32_t pri) {
    ZMSG msg = Zos_MsgCreateX(send, recv, type, obj, data, len);
    if (msg == nullptr) {
        ZOS_LOG_ERR("MsgSendX create message.");
        return ZFAILED;
    }
    return PostOwned(msg, withPri, pri);
}

uint32_t SendE(ZEVNT ev, uint32_t send, uint32_t recv, uint32_t type, bool withPri, uint32_t pri) {
    ZMSG msg = Zos_MsgCreateE(ev, send, recv, type);
    if (msg == nullptr) {
        ZOS_LOG_ERR("MsgSendE create message.");
        return ZFAILED;
    }
    return PostOwned(msg, withPri, pri);
}

uint32_t SendED(ZEVNT ev, uint32_t send, uint32_t recv, uint32_t type, uintptr_t obj,
                const void *data, uint32_t len, bool withPri, uint32_t pri) {
    ZMSG msg = Zos_MsgCreateED(ev, send, recv, type, obj, data, len);
    if (msg == nullptr) return ZFAILED;  // the constructor has logged
    return PostOwned(msg, withPri, pri);
}

// A message handle the send functions accept: one whose type can be read.
// The message functions refuse a dead handle without reading it.
bool Valid(ZMSG msg) {
    return msg != nullptr && Zos_MsgGetMemBuf(msg) != nullptr;
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zos_MsgSend(ZMSG zMsg) {
    if (!Valid(zMsg)) {
        ZOS_LOG_ERR("MsgSend invalid magic.");
        return ZFAILED;
    }
    return PostOwned(zMsg, false, 0);
}

KESTRO_API uint32_t Zos_MsgSendP(ZMSG zMsg, uint32_t uiPriority) {
    if (!Valid(zMsg)) {
        ZOS_LOG_ERR("MsgSend invalid magic.");
        return ZFAILED;
    }
    return PostOwned(zMsg, true, uiPriority);
}

KESTRO_API uint32_t Zos_MsgSendX(uint32_t uiSendTaskId, uint32_t uiRecvTaskId, uint32_t uiType,
                                 uintptr_t zObject, const void *pData, uint32_t uiLen) {
    return SendX(uiSendTaskId, uiRecvTaskId, uiType, zObject, pData, uiLen, false, 0);
}

KESTRO_API uint32_t Zos_MsgSendXP(uint32_t uiSendTaskId, uint32_t uiRecvTaskId, uint32_t uiType,
                                  uintptr_t zObject, const void *pData, uint32_t uiLen,
                                  uint32_t uiPriority) {
    return SendX(uiSendTaskId, uiRecvTaskId, uiType, zObject, pData, uiLen, true, uiPriority);
}

KESTRO_API uint32_t Zos_MsgSendE(ZEVNT zEvnt, uint32_t uiSendTaskId, uint32_t uiRecvTaskId,
                                 uint32_t uiType) {
    return SendE(zEvnt, uiSendTaskId, uiRecvTaskId, uiType, false, 0);
}

KESTRO_API uint32_t Zos_MsgSendEP(ZEVNT zEvnt, uint32_t uiSendTaskId, uint32_t uiRecvTaskId,
                                  uint32_t uiType, uint32_t uiPriority) {
    return SendE(zEvnt, uiSendTaskId, uiRecvTaskId, uiType, true, uiPriority);
}

KESTRO_API uint32_t Zos_MsgSendED(ZEVNT zEvnt, uint32_t uiSendTaskId, uint32_t uiRecvTaskId,
                                  uint32_t uiType, uintptr_t zObject, const void *pData,
                                  uint32_t uiLen) {
    return SendED(zEvnt, uiSendTaskId, uiRecvTaskId, uiType, zObject, pData, uiLen, false, 0);
}

KESTRO_API uint32_t Zos_MsgSendEDP(ZEVNT zEvnt, uint32_t uiSendTaskId, uint32_t uiRecvTaskId,
                                   uint32_t uiType, uintptr_t zObject, const void *pData,
                                   uint32_t uiLen, uint32_t uiPriority) {
    return SendED(zEvnt, uiSendTaskId, uiRecvTaskId, uiType, zObject, pData, uiLen, true,
                  uiPriority);
}

}  // extern "C"
