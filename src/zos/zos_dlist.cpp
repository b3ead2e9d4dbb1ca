// Intrusive doubly linked list with a capacity and its own mutex.
#include "zos_dlist.h"
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

KESTRO_API uint32_t Zos_DlistInsert(ST_ZOS_DLIST *pstList, Node *pstAfter, Node *pstNode) {
    if (pstList == nullptr || pstNode == nullptr) {
        ZOS_LOG_ERR("DlistInsert null parameter(s).");
        return ZFAILED;
    }
    if (pstList->uiMax == 0) {
        ZOS_LOG_ERR("DlistInsert zero size.");
        return ZFAILED;
    }
    if (pstList->uiCount >= pstList->uiMax) {
        ZOS_LOG_ERR("DlistInsert list max(%u) is full.", pstList->uiMax);
        return ZFAILED;
    }
    zos::MutexGuard lock(&pstList->zMutex);
    Node *&link = pstAfter != nullptr ? pstAfter->pstNext : pstList->pstHead;
    pstNode->pstNext = link;
    pstNode->pstPrev = pstAfter;
    link = pstNode;
    if (pstNode->pstNext != nullptr) pstNode->pstNext->pstPrev = pstNode;
    if (pstList->pstTail == pstAfter) pstList->pstTail = pstNode;
    pstList->uiCount++;
    return ZOK;
}

KESTRO_API Node *Zos_DlistDequeue(ST_ZOS_DLIST *pstList) {
    if (pstList == nullptr) return nullptr;
    if (pstList->pstHead == nullptr) {
        ZOS_LOG_WARN("DlistDequeue empty list.");
        return nullptr;
    }
    zos::MutexGuard lock(&pstList->zMutex);
    Node *node = pstList->pstHead;
    if (node == nullptr) return nullptr;  // emptied by another thread meanwhile
    pstList->pstHead = node->pstNext;
    if (pstList->pstHead != nullptr) pstList->pstHead->pstPrev = nullptr;
    if (pstList->pstTail == node) pstList->pstTail = nullptr;
    node->pstNext = nullptr;
    node->pstPrev = nullptr;
    pstList->uiCount--;
    return node;
}

KESTRO_API uint32_t Zos_DlistRemove(ST_ZOS_DLIST *pstList, Node *pstNode) {
    if (pstList == nullptr || pstNode == nullptr) {
        ZOS_LOG_ERR("DlistRemove null parameter(s).");
        return ZFAILED;
    }
    if (pstList->uiCount == 0) {
        ZOS_LOG_ERR("DlistRemove list max(%u) is empty.", pstList->uiMax);
        return ZFAILED;
    }
    if (pstNode->pstNext == nullptr && pstNode->pstPrev == nullptr && pstList->pstHead != pstNode) {
        ZOS_LOG_ERR("DlistRemove node not in list.");
        return ZFAILED;
    }
    zos::MutexGuard lock(&pstList->zMutex);
    if (pstNode->pstNext != nullptr) pstNode->pstNext->pstPrev = pstNode->pstPrev;
    if (pstNode->pstPrev != nullptr) pstNode->pstPrev->pstNext = pstNode->pstNext;
    if (pstList->pstHead == pstNode) pstList->pstHead = pstNode->pstNext;
    if (pstList->pstTail == pstNode) pstList->pstTail = pstNode->pstPrev;
    pstList->uiCount--;
    pstNode->pstNext = nullptr;
    pstNode->pstPrev = nullptr;
    return ZOK;
}

KESTRO_API Node *Zos_DlistFindByIndex(ST_ZOS_DLIST *pstList, uint32_t uiIndex) {
    if (pstList == nullptr || pstList->uiCount == 0 || uiIndex >= pstList->uiCount) return nullptr;
    Node *node = pstList->pstHead;
    for (uint32_t i = 0; i < uiIndex && node != nullptr; ++i) node = node->pstNext;
    return node;
}

}  // extern "C"
