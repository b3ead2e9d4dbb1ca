// Pool services used by other families of the layer.
#pragma once

#include <cstddef>

#include "zos_pool.h"

namespace zos {

// Prints the bucket table and the byte totals of a pool with Zos_Printf,
// holding the pool's lock so the figures belong together; 1 for an
// invalid pool.
uint32_t PoolPrintStats(ZPOOL zPool);

// The data sizes of a pool's first and last bucket (what the bucket
// statistics report for rows 0 and count - 1), read in one step: they
// never change after the pool is made. False for an invalid pool.
bool PoolEndSizes(ZPOOL zPool, uint32_t *first, uint32_t *last);

// Frees a chain of nodes of one pool, as Zos_PoolFree would one by one
// (same checks, lines and statistics) but under one hold of the pool's
// lock: every node from first on, each followed by the pointer stored
// linkOffset bytes into its data, until null; then last, when given.
// The pool is one the caller holds memory of (see below).
void PoolFreeChain(ZPOOL zPool, void *first, size_t linkOffset, void *last);

// Zos_PoolAlloc and Zos_PoolFree for a caller that holds memory of the
// pool, as a live data buffer holds its header and blocks: the pool is
// then alive, so its magic is checked but the handle registry is not
// asked again. Refusals and their lines are those of the exported calls.
void *PoolAllocHeld(ZPOOL zPool, uint32_t uiSize);
void PoolFreeHeld(ZPOOL zPool, void *pMem);

}  // namespace zos
