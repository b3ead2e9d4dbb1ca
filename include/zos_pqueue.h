/*
 * Priority queue of non-null pointer-sized items on up to 32 levels, one
 * doubly linked list per level. Level 0 is the most urgent: a poll serves
 * the lowest non-empty level first and, within a level, the oldest item.
 */
#ifndef ZOS_PQUEUE_H
#define ZOS_PQUEUE_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

typedef void *ZPQUEUE;

#define ZOS_PQUEUE_LEVELS 32u

/* Match test of Zos_PQueueFindIf: nonzero for a match. */
typedef uint32_t (*PFN_ZOS_PQUEUE_MATCH)(uintptr_t zItem, uintptr_t zArg);

/* Levels are 0 .. uiHighest (at most 31). Counts may be neither 0 nor
 * 0xFFFFFFFF; the node bucket holds the initial count at first and grows
 * by 8 up to the greater count (both taken modulo 0x10000). */
KESTRO_API uint32_t Zos_PQueueCreate(uint32_t bLocked, uint32_t bBlocking, uint32_t uiInitCount,
                                     uint32_t uiMaxCount, uint32_t uiHighest, ZPQUEUE *pzQueue);
KESTRO_API uint32_t Zos_PQueueDelete(ZPQUEUE zQueue);
KESTRO_API uint32_t Zos_PQueueAdd(ZPQUEUE zQueue, uint32_t uiLevel, uintptr_t zItem);
/* *puiLevel gives the largest level accepted (null: every level) and
 * receives the level served; both outs are 0 first. With bWait a blocking
 * queue sleeps between tries: 100 ms when only level 0 is accepted, else
 * until an add finds the queue empty. */
KESTRO_API uint32_t Zos_PQueuePoll(ZPQUEUE zQueue, uint32_t bWait, uint32_t *puiLevel,
                                   uintptr_t *pzItem);
/* Removes the first occurrence of the item at the level; 1 without a
 * message when it is not there. */
KESTRO_API uint32_t Zos_PQueueRmv(ZPQUEUE zQueue, uint32_t uiLevel, uintptr_t zItem);
/* 1 when the item is queued at the level, else 0. */
KESTRO_API uint32_t Zos_PQueueFind(ZPQUEUE zQueue, uint32_t uiLevel, uintptr_t zItem);
/* Visits the levels 0 .. highest - 1 and, in each, stops at its first
 * match, writing the outs; a later level's match overwrites an earlier one.
 * The result is 1 only when the last visited level matched. */
KESTRO_API uint32_t Zos_PQueueFindIf(ZPQUEUE zQueue, PFN_ZOS_PQUEUE_MATCH pfnMatch, uintptr_t zArg,
                                     uint32_t *puiLevel, uintptr_t *pzItem);
KESTRO_API uint32_t Zos_PQueueGetBusyCount(ZPQUEUE zQueue);
KESTRO_API uint32_t Zos_PQueueGetCount(ZPQUEUE zQueue, uint32_t *puiFree, uint32_t *puiUsed,
                                       uint32_t *puiGets, uint32_t *puiPuts, uint32_t *puiPeak);

ZOS_END_DECLS

#endif /* ZOS_PQUEUE_H */
