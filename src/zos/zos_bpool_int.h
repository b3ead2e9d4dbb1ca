// Brick pools placed inside another record, so an arena and its brick pool
// (with the pool's first page) come from one allocation.
#pragma once

#include "zos_bpool.h"

namespace zos {

// Bytes a brick pool with this page size needs when placed in memory of
// the caller: the record and its first page. The size is raised and
// limited as Zos_BpoolCreate does.
uint32_t BpoolFootprint(uint32_t uiPageSize);

// Builds a brick pool in `mem` (BpoolFootprint bytes, pointer-aligned).
// Zos_BpoolDelete on it releases its other pages and clears it but leaves
// `mem` to its owner. Null for another type or alignment.
ZBPOOL BpoolPlace(void *mem, uint32_t uiType, uint32_t uiPageSize, uint32_t uiAlign);

}  // namespace zos
