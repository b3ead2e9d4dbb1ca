/*
 * Brick pool: small blocks ("bricks") of up to 4096 bytes cut from pages of
 * a fixed page size taken from the memory entry points. It backs the
 * chained buffers (zos_cbuf.h): many small allocations of one lifetime that
 * go all at once with Zos_BpoolClean or Zos_BpoolDelete.
 *
 * Each brick carries one header word (its rounded size and a mark telling
 * whether it is in use); a freed brick is kept on a free list and reused by
 * a later request that fits it. Bricks are aligned to the pool's alignment
 * and never less than a pointer.
 */
#ifndef ZOS_BPOOL_H
#define ZOS_BPOOL_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

typedef void *ZBPOOL; /* brick pool */

/* Largest brick. */
#define ZOS_BPOOL_BRICK_MAX 4096u

/* Type 0 is the only type (plain bricks). The page size is raised to 32
 * and limited to 4096, the alignment (0, 4 or 8; 0 gives 4) to a pointer
 * at least. Null for another type or alignment, or no memory. */
KESTRO_API ZBPOOL Zos_BpoolCreate(uint32_t uiType, uint32_t uiPageSize, uint32_t uiAlign);
/* Frees every page and the pool. */
KESTRO_API void Zos_BpoolDelete(ZBPOOL zPool);
/* A brick of at least uiSize bytes (1 to 4096); null otherwise. */
KESTRO_API void *Zos_BpoolAlloc(ZBPOOL zPool, uint32_t uiSize);
/* Returns a brick; 1 for a pointer that is no brick in use of the pool. */
KESTRO_API uint32_t Zos_BpoolFree(ZBPOOL zPool, void *pMem);
/* 1 when the pointer lies in one of the pool's pages, else 0. */
KESTRO_API uint32_t Zos_BpoolHoldD(ZBPOOL zPool, const void *pMem);
/* Drops every brick: all pages but the first are released. */
KESTRO_API uint32_t Zos_BpoolClean(ZBPOOL zPool);
/* Bytes of the bricks in use (at their rounded sizes); 0 for an invalid
 * pool. */
KESTRO_API uint32_t Zos_BpoolSize(ZBPOOL zPool);
/* The page size in use (after raising and limiting); 0 for an invalid
 * pool. */
KESTRO_API uint32_t Zos_BpoolPageSize(ZBPOOL zPool);

ZOS_END_DECLS

#endif /* ZOS_BPOOL_H */
