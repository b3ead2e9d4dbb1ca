// Intrusive singly linked list with a capacity and no lock.
#include "zos_dlist.h"
#include "zos_util.h"

namespace {

using Node = ST_ZOS_SLIST_NODE;

}  // namespace

extern "C" {

KESTRO_API uint32_t Zos_SlistCreate(ST_ZOS_SLIST *pstList, uint32_t uiMax) {
    if (pstList == nullptr) return ZFAILED;
    pstList->uiMax = uiMax;
    pstList->uiCount = 0;
    pstList->pstHead = nullptr;
    pstList->pstTail = nullptr;
    if (uiMax == 0) {
        ZOS_LOG_ERR("SlistCreate zero node.");
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API void Zos_SlistDelete(ST_ZOS_SLIST *pstList) {
    if (pstList == nullptr) return;
    pstList->uiMax = 0;
    pstList->uiCount = 0;
    pstList->pstHead = nullptr;
    pstList->pstTail = nullptr;
}

KESTRO_API uint32_t Zos_SlistInsert(ST_ZOS_SLIST *pstList, Node *pstAfter, Node *pstNode) {
    if (pstList == nullptr || pstNode == nullptr) {
        ZOS_LOG_ERR("SlistInsert null parameter(s).");
        return ZFAILED;
    }
    if (pstList->uiMax == 0) {
        ZOS_LOG_ERR("SlistInsert zero node.");
        return ZFAILED;
    }
    if (pstList->uiCount >= pstList->uiMax) {
        ZOS_LOG_ERR("SlistInsert list max(%u) is full.", pstList->uiMax);
        return ZFAILED;
    }
    Node *&link = pstAfter != nullptr ? pstAfter->pstNext : pstList->pstHead;
    pstNode->pstNext = link;
    link = pstNode;
    if (pstList->pstTail == pstAfter) pstList->pstTail = pstNode;
    pstList->uiCount++;
    return ZOK;
}

KESTRO_API Node *Zos_SlistDequeue(ST_ZOS_SLIST *pstList) {
    if (pstList == nullptr) {
        ZOS_LOG_ERR("SlistDequeue null list.");
        return nullptr;
    }
    Node *node = pstList->pstHead;
    if (node == nullptr) {
        ZOS_LOG_WARN("SlistDequeue list is empty.");
        return nullptr;
    }
    pstList->pstHead = node->pstNext;
    if (pstList->pstTail == node) pstList->pstTail = nullptr;
    node->pstNext = nullptr;
    pstList->uiCount--;
    return node;
}

// The removed node keeps its next link (dequeue clears it); callers that
// walk on from a removed node rely on that.
KESTRO_API uint32_t Zos_SlistRemove(ST_ZOS_SLIST *pstList, Node *pstNode) {
    if (pstList == nullptr || pstNode == nullptr) {
        ZOS_LOG_ERR("SlistRemove null parameter(s).");
        return ZFAILED;
    }
    if (pstList->uiCount == 0) {
        ZOS_LOG_ERR("SlistRemove list max(%u) is empty.", pstList->uiMax);
        return ZFAILED;
    }
    if (pstList->pstHead == pstNode) {
        pstList->pstHead = pstNode->pstNext;
        if (pstList->pstTail == pstNode) pstList->pstTail = nullptr;
    } else {
        // The predecessor is one of the first count - 1 nodes.
        Node *prev = pstList->pstHead;
        for (uint32_t i = 1; prev != nullptr && i < pstList->uiCount && prev->pstNext != pstNode;
             ++i) {
            prev = prev->pstNext;
        }
        if (prev == nullptr || prev->pstNext != pstNode) {
            ZOS_LOG_ERR("SlistRemove node is not in list.");
            return ZFAILED;
        }
        prev->pstNext = pstNode->pstNext;
        if (pstList->pstTail == pstNode) pstList->pstTail = prev;
    }
    pstList->uiCount--;
    return ZOK;
}

KESTRO_API uint32_t Zos_SlistRemoveAfter(ST_ZOS_SLIST *pstList, Node *pstPrev, Node *pstNode) {
    if (pstList == nullptr || pstNode == nullptr) {
        ZOS_LOG_ERR("SlistRemoveAfter null parameter(s).");
        return ZFAILED;
    }
    if (pstList->uiCount == 0) {
        ZOS_LOG_ERR("SlistRemoveAfter list is empty.");
        return ZFAILED;
    }
    if (pstPrev == nullptr) return Zos_SlistRemove(pstList, pstNode);
    if (pstPrev->pstNext != pstNode) {
        ZOS_LOG_ERR("SlistRemoveAfter node is not in list.");
        return ZFAILED;
    }
    pstPrev->pstNext = pstNode->pstNext;
    if (pstList->pstTail == pstNode) pstList->pstTail = pstPrev;
    pstList->uiCount--;
    return ZOK;
}

KESTRO_API Node *Zos_SlistFindByIndex(ST_ZOS_SLIST *pstList, uint32_t uiIndex) {
    if (pstList == nullptr || pstList->uiCount == 0 || uiIndex >= pstList->uiCount) return nullptr;
    Node *node = pstList->pstHead;
    for (uint32_t i = 0; i < uiIndex && node != nullptr; ++i) node = node->pstNext;
    return node;
}

}  // extern "C"
