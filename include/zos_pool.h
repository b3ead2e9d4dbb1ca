/*
 * Bucket pools: size classes carved from blocks of a backing allocator.
 *
 * A pool is built from a pool description (ST_ZOS_POOL_CFG, zos_cfg.h):
 * one bucket per row of its table, each handing out nodes of one data size
 * (the row's size raised to the smallest node and rounded up to 4). Every
 * node carries a header word and a magic word in front of the caller's
 * bytes and a red zone behind them, so wrong frees, double frees and
 * overruns are caught. Requests above the largest bucket go to the backing
 * allocator with a header of their own and are counted in the pool's heap
 * bytes. Faults are logged only when the description's log flag is set.
 *
 * Word size: the smallest data size is 16 on the 32-bit product target.
 * A free node keeps its free-list links and block pointer in its data, so
 * on a 64-bit host (three 8-byte pointers and a 4-byte mark) the smallest
 * data size is 28: a row of size 10 gives 16 on 32-bit ARM, 28 on x86-64.
 */
#ifndef ZOS_POOL_H
#define ZOS_POOL_H

#include "zos_cfg.h"

ZOS_BEGIN_DECLS

/* The pool, or null for a missing or empty description or no memory. */
KESTRO_API ZPOOL Zos_PoolCreate(const ST_ZOS_POOL_CFG *pstCfg);
/* Releases every block and the pool itself. */
KESTRO_API void Zos_PoolDelete(ZPOOL zPool);

/* Null for a null or invalid pool, a size of 0 or at least 0x7FFFFFFF,
 * or no memory. A request may be served by a larger size class. */
KESTRO_API void *Zos_PoolAlloc(ZPOOL zPool, uint32_t uiSize);
KESTRO_API void *Zos_PoolAllocClrd(ZPOOL zPool, uint32_t uiSize);
/* A pointer the pool did not hand out, or one already freed, is refused
 * and nothing changes. */
KESTRO_API void Zos_PoolFree(ZPOOL zPool, void *pMem);

/* Usable size of an allocation (the bucket's data size, or the rounded
 * size of a large allocation): 0 and the size, or 1. */
KESTRO_API uint32_t Zos_PoolGetSize(ZPOOL zPool, void *pMem, uint32_t *puiSize);
/* Fills a node's data with 0xCC (a large allocation is left as it is):
 * 0, or 1 for a pointer that is no allocated node of the pool. */
KESTRO_API uint32_t Zos_PoolFillPoison(ZPOOL zPool, void *pMem);
/* 1 when the pointer is a node of the pool or one of its large
 * allocations, else 0. */
KESTRO_API uint32_t Zos_PoolIsValid(ZPOOL zPool, void *pMem);
/* 1 when the node is sound (known to the pool, red zone intact), else 0. */
KESTRO_API uint32_t Zos_PoolChkMem(ZPOOL zPool, void *pMem);
/* Walks every node of one bucket (by index): 1 when all headers, red
 * zones of nodes in use and free-list entries are intact, else 0. */
KESTRO_API uint32_t Zos_PoolChkBkt(ZPOOL zPool, uint32_t uiBktIdx);
/* Checks every bucket: 1 when all are sound, else 0. */
KESTRO_API uint32_t Zos_PoolChkPool(ZPOOL zPool);

/* The pool's own steps, exported for the engine's modules; each refuses an
 * invalid pool (ZFAILED or null) and takes the pool's lock.
 * Zos_BktGrpCreate: every bucket that has no block gets its first block
 * of its initial count ("BktGrpCreate <%s> create bucket." on failure).
 * Zos_BktGrpDelete: every block of every bucket goes back to the backing
 * allocator; nodes handed out from them become invalid, large
 * allocations stay.
 * Zos_BktCreate: adds a block to bucket uiBktIdx: with bFirst the first
 * block of its initial count (only for a bucket without blocks), else one
 * of its increment ("BktCreate <%s> invalid size.", "... invalid bucket
 * id.", "... increase zero size.", "... heap alloc.").
 * Zos_BktDelete: gives back a block of the bucket whose nodes are all
 * free; ZFAILED for any other block.
 * Zos_BktFindBlk: the block of bucket uiBktIdx holding the node of a data
 * pointer (the block list searched from its tail), or null.
 * Zos_BktFree: the shrink step for a free node: its block goes back when
 * all its nodes are free, unless the bucket is at its initial count or
 * the block is the bucket's first ("BktFree locate bucekt block." when
 * no block holds it). ZFAILED when pMem is not a free node of the pool.
 * Zos_PoolHeapAlloc / Zos_PoolHeapFree: a large allocation outside the
 * buckets, as Zos_PoolAlloc makes above the largest bucket, and its free
 * ("PoolHeapFree invalid magic value." for anything else). */
KESTRO_API uint32_t Zos_BktGrpCreate(ZPOOL zPool);
KESTRO_API void Zos_BktGrpDelete(ZPOOL zPool);
KESTRO_API uint32_t Zos_BktCreate(ZPOOL zPool, uint32_t uiBktIdx, uint32_t bFirst);
KESTRO_API uint32_t Zos_BktDelete(ZPOOL zPool, uint32_t uiBktIdx, void *pBlk);
KESTRO_API void *Zos_BktFindBlk(ZPOOL zPool, uint32_t uiBktIdx, const void *pMem);
KESTRO_API uint32_t Zos_BktFree(ZPOOL zPool, void *pMem);
KESTRO_API void *Zos_PoolHeapAlloc(ZPOOL zPool, uint32_t uiSize);
KESTRO_API void Zos_PoolHeapFree(ZPOOL zPool, void *pMem);

/* Statistics of one bucket, in the order the memory report prints them. */
typedef struct tagZOS_POOL_BKT_STAT {
    uint32_t uiSize;   /* data size of the nodes */
    uint32_t uiTotal;  /* nodes in all blocks */
    uint32_t uiFree;   /* nodes on the free list */
    uint32_t uiPeak;   /* most nodes in use at once */
    uint32_t uiAllocs; /* allocations served */
    uint32_t uiFrees;  /* frees accepted */
    uint32_t uiBlocks; /* blocks held */
} ST_ZOS_POOL_BKT_STAT;

/* Number of buckets (0 for an invalid pool). */
KESTRO_API uint32_t Zos_PoolGetBktCount(ZPOOL zPool);
/* One bucket's statistics: 0, or 1 for an invalid pool or index. */
KESTRO_API uint32_t Zos_PoolGetBktStat(ZPOOL zPool, uint32_t uiBktIdx,
                                       ST_ZOS_POOL_BKT_STAT *pstStat);
/* Bytes held by large allocations (size + 12 each). */
KESTRO_API uint32_t Zos_PoolGetHeapSize(ZPOOL zPool);

ZOS_END_DECLS

#endif /* ZOS_POOL_H */
