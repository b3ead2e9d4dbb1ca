// Pool services used by other families of the layer.
#pragma once

#include "zos_pool.h"

namespace zos {

// Prints the bucket table and the byte totals of a pool with Zos_Printf,
// holding the pool's lock so the figures belong together; 1 for an
// invalid pool.
uint32_t PoolPrintStats(ZPOOL zPool);

}  // namespace zos
