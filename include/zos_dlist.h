/*
 * Intrusive lists. A record kept in a doubly linked list begins with its
 * links (next, prev); one kept in a singly linked list begins with next.
 * The lists never allocate or free nodes.
 */
#ifndef ZOS_DLIST_H
#define ZOS_DLIST_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

#define ZOS_LIST_NO_LIMIT 0xFFFFFFFFu

typedef struct tagZOS_DLIST_NODE {
    struct tagZOS_DLIST_NODE *pstNext;
    struct tagZOS_DLIST_NODE *pstPrev;
} ST_ZOS_DLIST_NODE;

/* Doubly linked list header, caller-owned. */
typedef struct tagZOS_DLIST {
    uint32_t uiMax;   /* capacity; ZOS_LIST_NO_LIMIT for none */
    uint32_t uiCount; /* nodes linked */
    ST_ZOS_DLIST_NODE *pstHead;
    ST_ZOS_DLIST_NODE *pstTail;
    ZMUTEX zMutex;
} ST_ZOS_DLIST;

typedef struct tagZOS_SLIST_NODE {
    struct tagZOS_SLIST_NODE *pstNext;
} ST_ZOS_SLIST_NODE;

/* Singly linked list header, caller-owned, no mutex. */
typedef struct tagZOS_SLIST {
    uint32_t uiMax;
    uint32_t uiCount;
    ST_ZOS_SLIST_NODE *pstHead;
    ST_ZOS_SLIST_NODE *pstTail;
} ST_ZOS_SLIST;

/* Doubly linked list. Create sets the capacity and makes the list's mutex;
 * insert links node after `after` (null: at the head); dequeue unlinks the
 * head; find by index walks from the head without a lock. */
KESTRO_API uint32_t Zos_DlistCreate(ST_ZOS_DLIST *pstList, uint32_t uiMax);
KESTRO_API void Zos_DlistDelete(ST_ZOS_DLIST *pstList);
KESTRO_API uint32_t Zos_DlistInsert(ST_ZOS_DLIST *pstList, ST_ZOS_DLIST_NODE *pstAfter,
                                    ST_ZOS_DLIST_NODE *pstNode);
KESTRO_API ST_ZOS_DLIST_NODE *Zos_DlistDequeue(ST_ZOS_DLIST *pstList);
KESTRO_API uint32_t Zos_DlistRemove(ST_ZOS_DLIST *pstList, ST_ZOS_DLIST_NODE *pstNode);
KESTRO_API ST_ZOS_DLIST_NODE *Zos_DlistFindByIndex(ST_ZOS_DLIST *pstList, uint32_t uiIndex);

/* Singly linked list, not thread-safe: its users lock around it. Same
 * meanings as the doubly linked list. Remove finds the predecessor by a
 * walk and, unlike dequeue, leaves the removed node's next link as it was;
 * RemoveAfter takes the predecessor (null: the node is the head) and unlinks
 * in constant time. */
KESTRO_API uint32_t Zos_SlistCreate(ST_ZOS_SLIST *pstList, uint32_t uiMax);
KESTRO_API void Zos_SlistDelete(ST_ZOS_SLIST *pstList);
KESTRO_API uint32_t Zos_SlistInsert(ST_ZOS_SLIST *pstList, ST_ZOS_SLIST_NODE *pstAfter,
                                    ST_ZOS_SLIST_NODE *pstNode);
KESTRO_API ST_ZOS_SLIST_NODE *Zos_SlistDequeue(ST_ZOS_SLIST *pstList);
KESTRO_API uint32_t Zos_SlistRemove(ST_ZOS_SLIST *pstList, ST_ZOS_SLIST_NODE *pstNode);
KESTRO_API uint32_t Zos_SlistRemoveAfter(ST_ZOS_SLIST *pstList, ST_ZOS_SLIST_NODE *pstPrev,
                                         ST_ZOS_SLIST_NODE *pstNode);
KESTRO_API ST_ZOS_SLIST_NODE *Zos_SlistFindByIndex(ST_ZOS_SLIST *pstList, uint32_t uiIndex);

ZOS_END_DECLS

#endif /* ZOS_DLIST_H */
