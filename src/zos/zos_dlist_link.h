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

// Unlinks a linked node and clears its links. The head's own prev link is
// not read, so this serves the lists that a covered DlistTakeHead leaves
// with a stale one too.
inline void DlistUnlink(ST_ZOS_DLIST *list, ST_ZOS_DLIST_NODE *node) {
    ST_ZOS_DLIST_NODE *next = node->pstNext;
    ST_ZOS_DLIST_NODE *prev = list->pstHead == node ? nullptr : node->pstPrev;
    if (next != nullptr) next->pstPrev = prev;
    (prev != nullptr ? prev->pstNext : list->pstHead) = next;
    if (list->pstTail == node) list->pstTail = prev;
    list->uiCount--;
    node->pstNext = nullptr;
    node->pstPrev = nullptr;
}

// DlistLink at the tail and at the head, the two ends the containers use.
inline void DlistLinkTail(ST_ZOS_DLIST *list, ST_ZOS_DLIST_NODE *node) {
    ST_ZOS_DLIST_NODE *tail = list->pstTail;
    node->pstNext = nullptr;
    node->pstPrev = tail;
    (tail != nullptr ? tail->pstNext : list->pstHead) = node;
    list->pstTail = node;
    list->uiCount++;
}

inline void DlistLinkHead(ST_ZOS_DLIST *list, ST_ZOS_DLIST_NODE *node) {
    ST_ZOS_DLIST_NODE *head = list->pstHead;
    node->pstNext = head;
    node->pstPrev = nullptr;
    (head != nullptr ? head->pstPrev : list->pstTail) = node;
    list->pstHead = node;
    list->uiCount++;
}

// Unlinks and returns the head (its links cleared), or null for an empty
// list.
inline ST_ZOS_DLIST_NODE *DlistUnlinkHead(ST_ZOS_DLIST *list) {
    ST_ZOS_DLIST_NODE *node = list->pstHead;
    if (node == nullptr) return nullptr;
    ST_ZOS_DLIST_NODE *next = node->pstNext;
    list->pstHead = next;
    (next != nullptr ? next->pstPrev : list->pstTail) = nullptr;
    list->uiCount--;
    node->pstNext = nullptr;
    node->pstPrev = nullptr;
    return node;
}

// Append and dequeue for a container that holds a lock of its own: when
// `covered` that lock already serialises the list and the list's mutex is
// not taken; otherwise the list functions take it. The covered append
// skips the capacity test: callers use it on lists that cannot fill.
inline uint32_t DlistAppend(ST_ZOS_DLIST *list, ST_ZOS_DLIST_NODE *node, bool covered) {
    if (!covered) return Zos_DlistInsert(list, list->pstTail, node);
    DlistLinkTail(list, node);
    return ZOK;
}

// Dequeue for a container that holds a lock of its own, for lists whose
// nodes go straight to another list of the same owner (the queues' items
// and their node buckets' free lists). When `covered` it only moves the
// head: the taken node's links, and the new head's prev link, stay as
// they were, and such lists are unlinked only with DlistUnlink, which does
// not read a head's prev link. Under a lock, a store to a line that
// another core has just written holds the release back until that line
// arrives, and the next node was usually written by the thread on the
// other side of the list, so this take writes neither node. The new head
// is fetched for the next take, as a list walk cannot be foreseen by the
// hardware. Otherwise the list's own dequeue takes its mutex.
inline ST_ZOS_DLIST_NODE *DlistTakeHead(ST_ZOS_DLIST *list, bool covered) {
    if (!covered) return Zos_DlistDequeue(list);
    ST_ZOS_DLIST_NODE *node = list->pstHead;
    if (node == nullptr) return nullptr;
    ST_ZOS_DLIST_NODE *next = node->pstNext;
    list->pstHead = next;
    if (next == nullptr) list->pstTail = nullptr;
    list->uiCount--;
    __builtin_prefetch(next, 1);
    return node;
}

}  // namespace zos
