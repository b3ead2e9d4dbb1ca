/*
 * First-in-first-out queue of pointer-sized values with optional locking
 * and optional blocking poll. Nodes come from the queue's own node bucket.
 * The value 0 cannot be queued.
 */
#ifndef ZOS_QUEUE_H
#define ZOS_QUEUE_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

typedef void *ZQUEUE;

/* bLocked: every operation takes the queue's mutex. bBlocking: a waiting
 * poll sleeps on a semaphore that an add posts when the queue goes from
 * empty to non-empty. The bucket holds the initial count at first and grows
 * by 8 nodes up to the greater count (both taken modulo 0x10000). */
KESTRO_API uint32_t Zos_QueueCreate(uint32_t bLocked, uint32_t bBlocking, uint32_t uiInitCount,
                                    uint32_t uiMaxCount, ZQUEUE *pzQueue);
/* Queued values are not released. */
KESTRO_API uint32_t Zos_QueueDelete(ZQUEUE zQueue);
KESTRO_API uint32_t Zos_QueueAdd(ZQUEUE zQueue, uintptr_t zValue);
/* Removes (Poll) or reads (Peek) the oldest value. *pzValue is 0 first.
 * Empty queue: 1 without bWait; with bWait a blocking queue sleeps until an
 * add, a non-blocking one polls again at once. */
KESTRO_API uint32_t Zos_QueuePoll(ZQUEUE zQueue, uint32_t bWait, uintptr_t *pzValue);
KESTRO_API uint32_t Zos_QueuePeek(ZQUEUE zQueue, uint32_t bWait, uintptr_t *pzValue);
/* The node bucket's counters: free, used, gets, puts, peak used. */
KESTRO_API uint32_t Zos_QueueGetCount(ZQUEUE zQueue, uint32_t *puiFree, uint32_t *puiUsed,
                                      uint32_t *puiGets, uint32_t *puiPuts, uint32_t *puiPeak);
/* Number of queued values; 0 for an invalid handle. */
KESTRO_API uint32_t Zos_QueueGetBusyCount(ZQUEUE zQueue);

ZOS_END_DECLS

#endif /* ZOS_QUEUE_H */
