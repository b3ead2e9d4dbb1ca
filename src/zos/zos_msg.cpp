// Messages: sender, receiver, type and a carried event, all in one arena.
//
// Record: [sender][receiver][type][magic][arena][event]
// The event is made on first need with Zos_EvntCreateX on the message's
// arena, so it lives there too and holds one more reference to it; its
// message id points back at the message. The object is the event's
// element slot 9 (flag 1, word), the data slot 10 (length, pointer).
//
// The posting functions (Zos_MsgSend*) live with the module manager,
// which owns the queues they post into.
#include <cstring>

#include "zos_cbuf.h"
#include "zos_cbuf_int.h"
#include "zos_evnt_int.h"
#include "zos_live.h"
#include "zos_msg.h"
#include "zos_msg_int.h"
#include "zos_util.h"

namespace {

constexpr uint32_t kMsgMagic = 0xCDAC8F9Eu;

struct ZosMsg {
    uint32_t uiSend;
    uint32_t uiRecv;
    uint32_t uiType;
    uint32_t uiMagic;
    ZCBUF zBuf;
    ZEVNT zEvnt;
};

ZosMsg *Live(ZMSG zMsg) {
    return zos::LiveRecord<ZosMsg>(zMsg, kMsgMagic);
}

// A live message, or null after "<name> invalid magic.".
ZosMsg *Checked(ZMSG zMsg, const char *name) {
    ZosMsg *m = Live(zMsg);
    if (m == nullptr) ZOS_LOG_ERR("%s invalid magic.", name);
    return m;
}

// The record in `buf` (which the message then owns one reference of),
// registered as a live handle; null when either fails, the record's memory
// given back and the arena left to the caller.
ZosMsg *Place(ZCBUF buf, uint32_t send, uint32_t recv, uint32_t type) {
    auto *m = static_cast<ZosMsg *>(Zos_CbufAllocClrd(buf, sizeof(ZosMsg)));
    if (m == nullptr) return nullptr;
    if (!zos::LiveAdd(m)) {
        (void)Zos_CbufFree(buf, m);
        return nullptr;
    }
    m->uiSend = send;
    m->uiRecv = recv;
    m->uiType = type;
    m->zBuf = buf;
    m->uiMagic = kMsgMagic;
    return m;
}

// A message in a new arena of the given block size; null on failure with
// nothing left behind.
ZosMsg *Make(uint32_t block, uint32_t send, uint32_t recv, uint32_t type) {
    ZCBUF buf = Zos_CbufCreate(block);
    if (buf == nullptr) return nullptr;
    ZosMsg *m = Place(buf, send, recv, type);
    if (m == nullptr) Zos_CbufDelete(buf);
    return m;
}

// Frees everything the message holds: its event reference and its arena
// reference. The record itself lives in the arena; when others still hold
// the arena after the message and its event (a message made on an event
// that its creator keeps), the record is given back to the arena, or an
// arena that carries many messages would keep every record until it goes.
void Destroy(ZosMsg *m) {
    ZEVNT evt = m->zEvnt;
    ZCBUF buf = m->zBuf;
    m->uiMagic = 0;
    zos::LiveRemove(m);
    if (evt != nullptr) zos::EvntDeleteBefore(evt, buf);
    if (zos::CbufRefsHeld(buf) > 1) (void)Zos_CbufFree(buf, m);
    Zos_CbufDelete(buf);
}

// The carried event, made on first need inside the message's arena.
ZEVNT EventOf(ZosMsg *m) {
    if (m->zEvnt != nullptr) return m->zEvnt;
    ZEVNT evt = Zos_EvntCreateX(m->zBuf);
    if (evt == nullptr) return nullptr;
    (void)Zos_EvntSetMsgId(evt, m);
    m->zEvnt = evt;
    return evt;
}

// Slot 9 or 10 of the carried event, null when there is no event yet (or
// it was deleted behind the message's back).
ST_ZOS_EVNT_ELEM *SlotOf(const ZosMsg *m, uint32_t index) {
    if (m->zEvnt == nullptr || zos::EvntBuf(m->zEvnt) == nullptr) return nullptr;
    return Zos_EParmFindZ(m->zEvnt, index);
}

uint32_t SetObjectIn(ZosMsg *m, uintptr_t object) {
    ZEVNT evt = EventOf(m);
    ST_ZOS_EVNT_ELEM *slot = evt != nullptr ? Zos_EParmFindZ(evt, ZOS_MSG_ELEM_OBJECT) : nullptr;
    if (slot == nullptr) return ZFAILED;
    slot->uiFlag = 1;
    slot->zValue = object;
    return ZOK;
}

uint32_t SetDataIn(ZosMsg *m, const void *data, uint32_t len) {
    ZEVNT evt = EventOf(m);
    ST_ZOS_EVNT_ELEM *slot = evt != nullptr ? Zos_EParmFindZ(evt, ZOS_MSG_ELEM_DATA) : nullptr;
    if (slot == nullptr) return ZFAILED;
    const void *stored = data;
    if (data != nullptr && len != 0) {
        void *copy = Zos_CbufAlloc(m->zBuf, len);
        if (copy == nullptr) {
            ZOS_LOG_ERR("MsgCreateX copy data.");
            return ZFAILED;
        }
        std::memcpy(copy, data, len);
        stored = copy;
    }
    // Without a copy the pointer is kept as given, with the given length.
    slot->uiFlag = len;
    slot->zValue = reinterpret_cast<uintptr_t>(stored);
    return ZOK;
}

// A message placed in a live event's arena, carrying that event; null on
// failure with the event as it was.
ZosMsg *PlaceInEvent(ZEVNT evt, uint32_t send, uint32_t recv, uint32_t type) {
    ZCBUF buf = zos::EvntBuf(evt);
    ZCBUF ref = buf != nullptr ? Zos_CbufClone(buf) : nullptr;
    if (ref == nullptr) return nullptr;
    ZosMsg *m = Place(ref, send, recv, type);
    if (m == nullptr) {
        Zos_CbufDelete(ref);
        return nullptr;
    }
    m->zEvnt = evt;
    (void)Zos_EvntSetMsgId(evt, m);
    return m;
}

}  // namespace

bool zos::MsgTaskIds(ZMSG zMsg, uint32_t *puiSend, uint32_t *puiRecv) {
    const ZosMsg *m = Live(zMsg);
    if (m == nullptr) return false;
    *puiSend = m->uiSend;
    *puiRecv = m->uiRecv;
    return true;
}

extern "C" {

KESTRO_API ZMSG Zos_MsgCreate(uint32_t uiSendTaskId, uint32_t uiRecvTaskId, uint32_t uiType) {
    ZosMsg *m = Make(ZOS_MSG_BLOCK_SIZE, uiSendTaskId, uiRecvTaskId, uiType);
    if (m == nullptr) ZOS_LOG_ERR("MsgCreate alloc mem.");
    return m;
}

KESTRO_API ZMSG Zos_MsgCreateX(uint32_t uiSendTaskId, uint32_t uiRecvTaskId, uint32_t uiType,
                               uintptr_t zObject, const void *pData, uint32_t uiLen) {
    ZosMsg *m = Make(ZOS_MSG_BLOCK_SIZE, uiSendTaskId, uiRecvTaskId, uiType);
    if (m == nullptr) {
        ZOS_LOG_ERR("MsgCreateX alloc mem.");
        return nullptr;
    }
    if (zObject != 0 && SetObjectIn(m, zObject) != ZOK) {
        ZOS_LOG_ERR("MsgCreateX set object.");
        Destroy(m);
        return nullptr;
    }
    if ((pData != nullptr || uiLen != 0) && SetDataIn(m, pData, uiLen) != ZOK) {
        ZOS_LOG_ERR("MsgCreateX set data.");
        Destroy(m);
        return nullptr;
    }
    return m;
}

KESTRO_API ZMSG Zos_MsgCreateXD(uint32_t uiSendTaskId, uint32_t uiRecvTaskId, uint32_t uiType,
                                uintptr_t zObject, uint32_t uiLen, void **ppData) {
    if (ppData != nullptr) *ppData = nullptr;
    ZosMsg *m = Make(ZOS_MSG_BLOCK_SIZE_XD, uiSendTaskId, uiRecvTaskId, uiType);
    if (m == nullptr) {
        ZOS_LOG_ERR("MsgCreateXD alloc mem.");
        return nullptr;
    }
    if (EventOf(m) == nullptr) {
        ZOS_LOG_ERR("MsgCreateXD create event.");
        Destroy(m);
        return nullptr;
    }
    if (zObject != 0) (void)SetObjectIn(m, zObject);  // the event exists: cannot fail
    if (uiLen != 0) {
        void *data = Zos_CbufAllocClrd(m->zBuf, uiLen);
        if (data == nullptr) {
            ZOS_LOG_ERR("MsgCreateXD alloc data.");
            Destroy(m);
            return nullptr;
        }
        ST_ZOS_EVNT_ELEM *slot = Zos_EParmFindZ(m->zEvnt, ZOS_MSG_ELEM_DATA);
        slot->uiFlag = uiLen;
        slot->zValue = reinterpret_cast<uintptr_t>(data);
        if (ppData != nullptr) *ppData = data;
    }
    return m;
}

KESTRO_API ZMSG Zos_MsgCreateE(ZEVNT zEvnt, uint32_t uiSendTaskId, uint32_t uiRecvTaskId,
                               uint32_t uiType) {
    ZosMsg *m = PlaceInEvent(zEvnt, uiSendTaskId, uiRecvTaskId, uiType);
    if (m == nullptr) ZOS_LOG_ERR("MsgCreateE alloc mem.");
    return m;
}

KESTRO_API ZMSG Zos_MsgCreateED(ZEVNT zEvnt, uint32_t uiSendTaskId, uint32_t uiRecvTaskId,
                                uint32_t uiType, uintptr_t zObject, const void *pData,
                                uint32_t uiLen) {
    // What a failure must put back: the event's own message id and slots.
    ZCBUF buf = zos::EvntBuf(zEvnt);
    const ZMSG oldMsg = buf != nullptr ? Zos_EvntGetMsgId(zEvnt) : nullptr;
    ST_ZOS_EVNT_ELEM saved[2] = {};
    if (buf != nullptr) {
        saved[0] = *Zos_EParmFindZ(zEvnt, ZOS_MSG_ELEM_OBJECT);
        saved[1] = *Zos_EParmFindZ(zEvnt, ZOS_MSG_ELEM_DATA);
    }
    ZosMsg *m = PlaceInEvent(zEvnt, uiSendTaskId, uiRecvTaskId, uiType);
    if (m == nullptr) {
        ZOS_LOG_ERR("MsgCreateED alloc mem.");
        return nullptr;
    }
    const char *fail = nullptr;
    if (zObject != 0 && SetObjectIn(m, zObject) != ZOK) {
        fail = "MsgCreateED set object.";
    } else if ((pData != nullptr || uiLen != 0) && SetDataIn(m, pData, uiLen) != ZOK) {
        fail = "MsgCreateED set data.";
    }
    if (fail == nullptr) return m;
    ZOS_LOG_ERR("%s", fail);
    // Undo only what this call made: the event stays the caller's.
    *Zos_EParmFindZ(zEvnt, ZOS_MSG_ELEM_OBJECT) = saved[0];
    *Zos_EParmFindZ(zEvnt, ZOS_MSG_ELEM_DATA) = saved[1];
    (void)Zos_EvntSetMsgId(zEvnt, oldMsg);
    m->zEvnt = nullptr;
    Destroy(m);
    return nullptr;
}

KESTRO_API uint32_t Zos_MsgSetObject(ZMSG zMsg, uintptr_t zObject) {
    ZosMsg *m = Checked(zMsg, "MsgSetObject");
    return m != nullptr ? SetObjectIn(m, zObject) : ZFAILED;
}

KESTRO_API uint32_t Zos_MsgSetData(ZMSG zMsg, const void *pData, uint32_t uiLen) {
    ZosMsg *m = Checked(zMsg, "MsgSetData");
    return m != nullptr ? SetDataIn(m, pData, uiLen) : ZFAILED;
}

KESTRO_API void Zos_MsgDelete(ZMSG zMsg) {
    if (zMsg == nullptr) return;
    ZosMsg *m = Checked(zMsg, "MsgDelete");
    if (m != nullptr) Destroy(m);
}

KESTRO_API uint32_t Zos_MsgGetSendTaskId(ZMSG zMsg) {
    const ZosMsg *m = Checked(zMsg, "MsgGetSendTaskId");
    return m != nullptr ? m->uiSend : ZOS_INVALID_ID;
}

KESTRO_API uint32_t Zos_MsgGetRecvTaskId(ZMSG zMsg) {
    const ZosMsg *m = Checked(zMsg, "MsgGetRecvTaskId");
    return m != nullptr ? m->uiRecv : ZOS_INVALID_ID;
}

KESTRO_API uint32_t Zos_MsgGetType(ZMSG zMsg) {
    const ZosMsg *m = Checked(zMsg, "MsgGetType");
    return m != nullptr ? m->uiType : 0;
}

KESTRO_API uintptr_t Zos_MsgGetObject(ZMSG zMsg) {
    const ZosMsg *m = Checked(zMsg, "MsgGetObject");
    const ST_ZOS_EVNT_ELEM *slot = m != nullptr ? SlotOf(m, ZOS_MSG_ELEM_OBJECT) : nullptr;
    return slot != nullptr && slot->uiFlag != 0 ? slot->zValue : 0;
}

KESTRO_API void *Zos_MsgGetData(ZMSG zMsg) {
    const ZosMsg *m = Checked(zMsg, "MsgGetData");
    const ST_ZOS_EVNT_ELEM *slot = m != nullptr ? SlotOf(m, ZOS_MSG_ELEM_DATA) : nullptr;
    return slot != nullptr ? reinterpret_cast<void *>(slot->zValue) : nullptr;
}

KESTRO_API uint32_t Zos_MsgGetDataLen(ZMSG zMsg) {
    const ZosMsg *m = Checked(zMsg, "MsgGetDataLen");
    const ST_ZOS_EVNT_ELEM *slot = m != nullptr ? SlotOf(m, ZOS_MSG_ELEM_DATA) : nullptr;
    return slot != nullptr ? slot->uiFlag : 0;
}

KESTRO_API ZEVNT Zos_MsgGetEvntId(ZMSG zMsg) {
    ZosMsg *m = Checked(zMsg, "MsgGetEvntId");
    return m != nullptr ? EventOf(m) : nullptr;
}

KESTRO_API ZCBUF Zos_MsgGetMemBuf(ZMSG zMsg) {
    const ZosMsg *m = Checked(zMsg, "MsgGetMemBuf");
    return m != nullptr ? m->zBuf : nullptr;
}

}  // extern "C"
