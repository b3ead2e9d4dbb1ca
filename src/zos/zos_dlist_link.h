// The link steps of the doubly linked list without its checks and mutex,
// for the list functions themselves and for containers whose own lock
// already covers the lists they keep.
#pragma once

#include "zos_dlist.h"

namespace zos {

// Links node directly after `after`; a null `after` links it at the head.
inline void DlistLink(ST_ZOS_DLIST *list, ST_ZOS_DLIST_NODE *after, ST_ZOS_DLIST_NODE *node) {
    ST_ZOS_DLIST_NODE *&link = after != nullptr ? after->pstNext : list->pstHead;
    node->pstNext = link;
    node->pstPrev = after;
    link = node;
    if (node->pstNext != nullptr) node->pstNext->pstPrev = node;
    if (list->pstTail == after) list->pstTail = node;
    list->uiCount++;
}

// Unlinks a linked node and clears its links.
inline void DlistUnlink(ST_ZOS_DLIST *list, ST_ZOS_DLIST_NODE *node) {
    if (node->pstNext != nullptr) node->pstNext->pstPrev = node->pstPrev;
    if (node->pstPrev != nullptr) node->pstPrev->pstNext = node->pstNext;
    if (list->pstHead == node) list->pstHead = node->pstNext;
    if (list->pstTail == node) list->pstTail = node->pstPrev;
    list->uiCount--;
    node->pstNext = nullptr;
    node->pstPrev = nullptr;
}

// Unlinks and returns the head, or null for an empty list.
inline ST_ZOS_DLIST_NODE *DlistUnlinkHead(ST_ZOS_DLIST *list) {
    ST_ZOS_DLIST_NODE *node = list->pstHead;
    if (node != nullptr) DlistUnlink(list, node);
    return node;
}

// Append and dequeue for a container that holds a lock of its own: when
// `covered` that lock already serialises the list and the list's mutex is
// not taken; otherwise the list functions take it. The covered append
// skips the capacity test: callers use it on lists that cannot fill.
inline uint32_t DlistAppend(ST_ZOS_DLIST *list, ST_ZOS_DLIST_NODE *node, bool covered) {
    if (!covered) return Zos_DlistInsert(list, list->pstTail, node);
    DlistLink(list, list->pstTail, node);
    return ZOK;
}

inline ST_ZOS_DLIST_NODE *DlistTakeHead(ST_ZOS_DLIST *list, bool covered) {
    return covered ? DlistUnlinkHead(list) : Zos_DlistDequeue(list);
}

}  // namespace zos
