// ABNF lists of decoded items and the one-call decode and encode drivers.
#include "abnf_int.h"
#include "zos_dbuf.h"
#include "zos_dlist_link.h"
#include "zos_ubuf.h"

namespace {

// Item node as the universal buffer lays it out: links, then the data
// pointer, then the data.
struct ItemNode {
    ST_ZOS_DLIST_NODE link;
    void *pData;
};

// Decoded lists live in decoded records that go with their buffer and are
// never deleted, so a list is set up without a mutex (one thread decodes).
void Ensure(ST_ZOS_DLIST *list) {
    if (list->uiMax != 0) return;
    list->uiMax = ZOS_LIST_NO_LIMIT;
    list->uiCount = 0;
    list->pstHead = nullptr;
    list->pstTail = nullptr;
    list->zMutex = 0;
}

// A cleared node with `size` bytes of data behind it. Memory buffers hand
// out blocks aligned to 4 bytes only, so the node is placed at the next
// pointer-aligned address inside a slightly larger block (on 32-bit targets
// that is the block itself).
ItemNode *NewNode(ZUBUF buf, uint32_t size, void **data) {
    *data = nullptr;
    constexpr uint32_t kSlack = alignof(ItemNode) > 4 ? alignof(ItemNode) - 4 : 0;
    if (size > 0x7FFFFFFFu - sizeof(ItemNode) - kSlack) return nullptr;
    void *raw = Zos_UbufAllocClrd(buf, uint32_t(sizeof(ItemNode)) + size + kSlack);
    if (raw == nullptr) return nullptr;
    const uintptr_t at = (reinterpret_cast<uintptr_t>(raw) + alignof(ItemNode) - 1) &
                         ~uintptr_t{alignof(ItemNode) - 1};
    auto *node = reinterpret_cast<ItemNode *>(at);
    node->pData = size != 0 ? static_cast<void *>(node + 1) : nullptr;
    *data = node->pData;
    return node;
}

ItemNode *FindNode(ST_ZOS_DLIST *list, const void *item) {
    for (ST_ZOS_DLIST_NODE *n = list->pstHead; n != nullptr; n = n->pstNext) {
        auto *node = reinterpret_cast<ItemNode *>(n);
        if (node->pData == item) return node;
    }
    return nullptr;
}

uint32_t Decode(uint32_t proto, PFN_ABNF_DECODE fn, const ST_ZOS_SSTR *str, ZUBUF buf, void *target,
                bool plain) {
    if (str == nullptr || str->pcStr == nullptr || str->uiLen == 0 || target == nullptr ||
        fn == nullptr) {
        return ZFAILED;
    }
    ST_ABNF_ERR err;
    ST_ABNF_MSG msg;
    Abnf_ErrInit(&err);
    uint32_t rc = plain ? Abnf_MsgInit(&msg, proto, str, buf, &err, 1)
                        : Abnf_MsgInitL(&msg, proto, str, buf, &err, 1);
    if (rc == ZOK) rc = fn(&msg, target);
    if (rc != ZOK) Abnf_ErrLogPrint(&msg, nullptr);
    Abnf_ErrDestroy(&err);
    return rc == ZOK ? ZOK : ZFAILED;
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Abnf_ListAllocData(ZUBUF zBuf, uint32_t uiSize, void **ppItem) {
    void *data = nullptr;
    NewNode(zBuf, uiSize, &data);
    if (ppItem != nullptr) *ppItem = data;
    return ZOK;
}

KESTRO_API uint32_t Abnf_ListAppendData(ZUBUF zBuf, ST_ZOS_DLIST *pstList, void *pData) {
    if (pstList == nullptr) return ZOK;
    Ensure(pstList);
    void *unused = nullptr;
    ItemNode *node = NewNode(zBuf, 0, &unused);
    if (node == nullptr) return ZOK;
    node->pData = pData;
    zos::DlistLinkTail(pstList, &node->link);
    return ZOK;
}

KESTRO_API uint32_t Abnf_AnyLstItemDecode(ST_ABNF_MSG *pstMsg, ST_ZOS_DLIST *pstList,
                                          uint32_t uiSize, PFN_ABNF_DECODE pfnDecode) {
    if (pstMsg == nullptr || pstList == nullptr || pfnDecode == nullptr) return ZFAILED;
    Ensure(pstList);
    void *data = nullptr;
    ItemNode *node = NewNode(pstMsg->zBuf, uiSize, &data);
    if (node == nullptr) return ZFAILED;
    if (pfnDecode(pstMsg, data) != ZOK) return ZFAILED;
    zos::DlistLinkTail(pstList, &node->link);
    return ZOK;
}

KESTRO_API uint32_t Abnf_AnyLstAddParm(ZUBUF zBuf, ST_ZOS_DLIST *pstList, uint32_t uiSize,
                                       void **ppItem) {
    if (ppItem != nullptr) *ppItem = nullptr;
    if (pstList == nullptr) return ZFAILED;
    Ensure(pstList);
    void *data = nullptr;
    ItemNode *node = NewNode(zBuf, uiSize, &data);
    if (node == nullptr) return ZFAILED;
    zos::DlistLinkTail(pstList, &node->link);
    if (ppItem != nullptr) *ppItem = data;
    return ZOK;
}

KESTRO_API uint32_t Abnf_AnyLstRmvParm(ST_ZOS_DLIST *pstList, void *pItem) {
    if (pstList == nullptr || pstList->uiMax == 0) return ZFAILED;
    ItemNode *node = FindNode(pstList, pItem);
    if (node == nullptr) return ZFAILED;
    zos::DlistUnlink(pstList, &node->link);
    return ZOK;
}

KESTRO_API uint32_t Abnf_AnyLstCpyParm(ZUBUF zBuf, ST_ZOS_DLIST *pstList, const void *pSrc,
                                       PFN_ABNF_COPY pfnCopy, uint32_t uiSize, void **ppItem) {
    if (ppItem != nullptr) *ppItem = nullptr;
    if (pfnCopy == nullptr) return ZFAILED;
    void *data = nullptr;
    if (Abnf_AnyLstAddParm(zBuf, pstList, uiSize, &data) != ZOK) return ZFAILED;
    if (pfnCopy(zBuf, data, pSrc) != ZOK) {
        Abnf_AnyLstRmvParm(pstList, data);
        return ZFAILED;
    }
    if (ppItem != nullptr) *ppItem = data;
    return ZOK;
}

KESTRO_API uint32_t Abnf_AnyLstEncode(ST_ABNF_MSG *pstMsg, ST_ZOS_DLIST *pstList, uint32_t bLeading,
                                      uint32_t bTrailing, uint8_t ucSepa,
                                      PFN_ABNF_ENCODE pfnEncode) {
    if (pstMsg == nullptr || pfnEncode == nullptr) return ZFAILED;
    if (pstList == nullptr || pstList->uiMax == 0 || pstList->pstHead == nullptr) return ZOK;
    if (bLeading != 0 && Abnf_AddPstChr(pstMsg, ucSepa) != ZOK) return ZFAILED;
    for (ST_ZOS_DLIST_NODE *n = pstList->pstHead; n != nullptr; n = n->pstNext) {
        const uint32_t rc = pfnEncode(pstMsg, reinterpret_cast<ItemNode *>(n)->pData);
        if (rc == 1) return ZFAILED;
        if (rc == 2) continue;  // wrote nothing: no separator after it
        if ((n->pstNext != nullptr || bTrailing != 0) && Abnf_AddPstChr(pstMsg, ucSepa) != ZOK) {
            return ZFAILED;
        }
    }
    return ZOK;
}

KESTRO_API uint32_t Abnf_AnyLstEncodeX(ST_ABNF_MSG *pstMsg, ST_ZOS_DLIST *pstList,
                                       uint32_t bLeading, uint32_t bTrailing, const char *pcSepa,
                                       PFN_ABNF_ENCODE pfnEncode) {
    if (pstMsg == nullptr || pfnEncode == nullptr) return ZFAILED;
    if (pstList == nullptr || pstList->uiMax == 0 || pstList->pstHead == nullptr) return ZOK;
    if (bLeading != 0 && Abnf_AddPstStr(pstMsg, pcSepa) != ZOK) return ZFAILED;
    for (ST_ZOS_DLIST_NODE *n = pstList->pstHead; n != nullptr; n = n->pstNext) {
        if (pfnEncode(pstMsg, reinterpret_cast<ItemNode *>(n)->pData) != ZOK) return ZFAILED;
        if ((n->pstNext != nullptr || bTrailing != 0) && Abnf_AddPstStr(pstMsg, pcSepa) != ZOK) {
            return ZFAILED;
        }
    }
    return ZOK;
}

KESTRO_API uint32_t Abnf_AnyDecode(uint32_t uiProtocol, PFN_ABNF_DECODE pfnDecode,
                                   const ST_ZOS_SSTR *pstStr, ZUBUF zBuf, void *pTarget) {
    return Decode(uiProtocol, pfnDecode, pstStr, zBuf, pTarget, true);
}

KESTRO_API uint32_t Abnf_AnyDecodeL(uint32_t uiProtocol, PFN_ABNF_DECODE pfnDecode,
                                    const ST_ZOS_SSTR *pstStr, ZUBUF zBuf, void *pTarget) {
    return Decode(uiProtocol, pfnDecode, pstStr, zBuf, pTarget, false);
}

KESTRO_API uint32_t Abnf_AnyDecodeX(uint32_t uiProtocol, PFN_ABNF_DECODE pfnDecode,
                                    const ST_ZOS_SSTR *pstStr, ZDBUF *pzResult, void *pTarget) {
    if (pzResult != nullptr) *pzResult = nullptr;
    if (pstStr == nullptr || pstStr->pcStr == nullptr || pstStr->uiLen == 0 || pTarget == nullptr ||
        pfnDecode == nullptr || pzResult == nullptr) {
        return ZFAILED;
    }
    ZDBUF buf = Zos_DbufCreate(nullptr, 2, 128);
    if (buf == nullptr) return ZFAILED;
    if (Decode(uiProtocol, pfnDecode, pstStr, buf, pTarget, true) != ZOK) {
        Zos_DbufDelete(buf);
        return ZFAILED;
    }
    *pzResult = buf;
    return ZOK;
}

KESTRO_API uint32_t Abnf_AnyEncode(uint32_t uiProtocol, PFN_ABNF_ENCODE pfnEncode, ZDBUF zBuf,
                                   void *pSource) {
    if (pfnEncode == nullptr) return ZFAILED;
    ST_ABNF_ERR err;
    ST_ABNF_MSG msg;
    Abnf_ErrInit(&err);
    uint32_t rc = Abnf_MsgInit(&msg, uiProtocol, nullptr, zBuf, &err, 0);
    if (rc == ZOK) {
        rc = pfnEncode(&msg, pSource);
        if (rc != ZOK) Abnf_ErrLogPrint(&msg, nullptr);
    }
    Abnf_ErrDestroy(&err);
    return rc == ZOK ? ZOK : ZFAILED;
}

KESTRO_API uint32_t Abnf_AnyEncodeX(uint32_t uiProtocol, PFN_ABNF_ENCODE pfnEncode, void *pSource,
                                    uint32_t bFlat, ZDBUF *pzResult) {
    if (pzResult == nullptr) return ZFAILED;
    *pzResult = nullptr;
    ZDBUF buf = Zos_DbufCreate(nullptr, 1, 256);
    if (buf == nullptr) return ZFAILED;
    if (Abnf_AnyEncode(uiProtocol, pfnEncode, buf, pSource) != ZOK) {
        Zos_DbufDelete(buf);
        return ZFAILED;
    }
    if (bFlat != 0 && Zos_DbufBlkSize(buf) >= 2) {
        ZDBUF flat = Zos_DbufFlat(buf);
        if (flat == nullptr) {
            Zos_DbufDelete(buf);
            return ZFAILED;
        }
        Zos_DbufDelete(buf);
        buf = flat;
    }
    *pzResult = buf;
    return ZOK;
}

}  // extern "C"
