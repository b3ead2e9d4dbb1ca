// Pool services used by other families of the layer.
#pragma once

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

}  // namespace zos
