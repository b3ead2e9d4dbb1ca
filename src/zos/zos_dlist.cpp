// Intrusive doubly linked list with a capacity and its own mutex.
#include "zos_dlist.h"
#include "zos_dlist_link.h"
#include "zos_sys.h"
#include "zos_util.h"

namespace {

using Node = ST_ZOS_DLIST_NODE;

}  // namespace

extern "C" {

KESTRO_API uint32_t Zos_DlistCreate(ST_ZOS_DLIST *pstList, uint32_t uiMax) {
    if (pstList == nullptr) return ZFAILED;
    pstList->uiMax = uiMax;
    pstList->uiCount = 0;
    pstList->pstHead = nullptr;
    pstList->pstTail = nullptr;
    if (Zos_MutexCreate(&pstList->zMutex) != ZOK) {
        Zos_OsdepTrace("Zos_DlistCreate create mutex.", "src/zos/zos_dlist", 74);
        return ZFAILED;
    }
    if (uiMax == 0) {
        ZOS_LOG_ERR("DlistCreate zero node.");
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API void Zos_DlistDelete(ST_ZOS_DLIST *pstList) {
    if (pstList == nullptr) return;
    pstList->uiMax = 0;
    pstList->uiCount = 0;
    pstList->pstHead = nullptr;
    pstList->pstTail = nullptr;
    Zos_MutexDelete(&pstList->zMutex);
}

// The capacity and emptiness tests are made under the mutex: tested before
// it, two threads could both pass the capacity test of a list with one free
// place, and the unlocked reads would race with the writers. Failure lines
// are written after the mutex is released, so logging never nests inside a
// list lock.
KESTRO_API uint32_t Zos_DlistInsert(ST_ZOS_DLIST *pstList, Node *pstAfter, Node *pstNode) {
    if (pstList == nullptr || pstNode == nullptr) {
        ZOS_LOG_ERR("DlistInsert null parameter(s).");
        return ZFAILED;
    }
    if (pstList->uiMax == 0) {
        ZOS_LOG_ERR("DlistInsert zero size.");
        return ZFAILED;
    }
    {
        zos::MutexGuard lock(&pstList->zMutex);
        if (pstList->uiCount < pstList->uiMax) {
            zos::DlistLink(pstList, pstAfter, pstNode);
            return ZOK;
        }
    }
    ZOS_LOG_ERR("DlistInsert list max(%u) is full.", pstList->uiMax);
    return ZFAILED;
}

KESTRO_API Node *Zos_DlistDequeue(ST_ZOS_DLIST *pstList) {
    if (pstList == nullptr) return nullptr;
    Node *node = nullptr;
    {
        zos::MutexGuard lock(&pstList->zMutex);
        node = zos::DlistUnlinkHead(pstList);
    }
    if (node == nullptr) ZOS_LOG_WARN("DlistDequeue empty list.");
    return node;
}

KESTRO_API uint32_t Zos_DlistRemove(ST_ZOS_DLIST *pstList, Node *pstNode) {
    if (pstList == nullptr || pstNode == nullptr) {
        ZOS_LOG_ERR("DlistRemove null parameter(s).");
        return ZFAILED;
    }
    bool empty = false;
    {
        zos::MutexGuard lock(&pstList->zMutex);
        if (pstList->uiCount == 0) {
            empty = true;
        } else if (pstNode->pstNext == nullptr && pstNode->pstPrev == nullptr &&
                   pstList->pstHead != pstNode) {
            // Both links null and not the head: not linked anywhere. No
            // deeper membership test is made.
        } else {
            zos::DlistUnlink(pstList, pstNode);
            return ZOK;
        }
    }
    if (empty) {
        ZOS_LOG_ERR("DlistRemove list max(%u) is empty.", pstList->uiMax);
    } else {
        ZOS_LOG_ERR("DlistRemove node not in list.");
    }
    return ZFAILED;
}

KESTRO_API Node *Zos_DlistFindByIndex(ST_ZOS_DLIST *pstList, uint32_t uiIndex) {
    if (pstList == nullptr || pstList->uiCount == 0 || uiIndex >= pstList->uiCount) return nullptr;
    Node *node = pstList->pstHead;
    for (uint32_t i = 0; i < uiIndex && node != nullptr; ++i) node = node->pstNext;
    return node;
}

}  // extern "C"
