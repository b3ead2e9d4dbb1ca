/*
 * Chained buffers (arenas): many small allocations that share one lifetime
 * and all go at once when the arena is deleted or cleaned.
 *
 * Requests of up to 4096 bytes come from the arena's brick pool
 * (zos_bpool.h), larger ones are heap blocks kept on the arena's list. An
 * arena is reference counted (at most 65535 references) and can own child
 * arenas, which are deleted with it. No lock is taken: an arena is used by
 * one thread at a time.
 *
 * Page size of the brick pool from a size hint s: q = ceil(s / 32) x 16,
 * page = 2^(floor(log2 q) + 1), at least 32 and at most 4096; a hint of 0
 * gives 32.
 */
#ifndef ZOS_CBUF_H
#define ZOS_CBUF_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

/* Requests above this size become heap blocks. */
#define ZOS_CBUF_BRICK_MAX 4096u
/* Most references an arena can hold. */
#define ZOS_CBUF_REF_MAX 65535u

/* A new arena with one reference, no parent, no allocations. */
KESTRO_API ZCBUF Zos_CbufCreate(uint32_t uiSizeHint);
/* Creates with the page hint when it is non-zero, else with uiSize, and
 * allocates uiSize bytes into *ppData (cleared first). uiSize must be 0
 * exactly when ppData is null; with 0 no allocation is made. Null when
 * the arguments disagree or the allocation fails (the arena is deleted). */
KESTRO_API ZCBUF Zos_CbufCreateD(uint32_t uiPageHint, uint32_t uiSize, void **ppData);
/* As Zos_CbufCreateD with the data zeroed. */
KESTRO_API ZCBUF Zos_CbufCreateClrd(uint32_t uiPageHint, uint32_t uiSize, void **ppData);
/* With a parent: the new arena is appended to the parent's children. */
KESTRO_API ZCBUF Zos_CbufCreateX(ZCBUF zParent, uint32_t uiSizeHint);
KESTRO_API ZCBUF Zos_CbufCreateXD(ZCBUF zParent, uint32_t uiPageHint, uint32_t uiSize,
                                  void **ppData);
KESTRO_API ZCBUF Zos_CbufCreateXClrd(ZCBUF zParent, uint32_t uiPageHint, uint32_t uiSize,
                                     void **ppData);

/* Null for an invalid arena or size 0; requests above 4096 bytes are
 * rounded up to 4 and refused from 0x7FFFFFEF on. */
KESTRO_API void *Zos_CbufAlloc(ZCBUF zCbuf, uint32_t uiSize);
KESTRO_API void *Zos_CbufAllocClrd(ZCBUF zCbuf, uint32_t uiSize);
/* Gives one allocation back early; 1 for a null pointer, an invalid arena
 * or memory the arena itself did not hand out (a child's included). */
KESTRO_API uint32_t Zos_CbufFree(ZCBUF zCbuf, void *pMem);

/* One more reference; null for an invalid arena or 65535 references. */
KESTRO_API ZCBUF Zos_CbufClone(ZCBUF zCbuf);
/* Drops a reference; the last one frees everything, deletes the children
 * (children referenced elsewhere survive, detached) and the arena. */
KESTRO_API void Zos_CbufDelete(ZCBUF zCbuf);
/* Frees every allocation and drops a reference of every child (a child
 * referenced elsewhere stays attached); the arena stays usable. */
KESTRO_API uint32_t Zos_CbufClean(ZCBUF zCbuf);

/* Attach: 0 also when the child is already under this parent; 1 when it
 * has another parent or would become its own ancestor. Detach: 0 also for
 * an arena without parent; 1 when the parent has been deleted (the child
 * is free to be attached again afterwards). */
KESTRO_API uint32_t Zos_CbufAttach(ZCBUF zParent, ZCBUF zChild);
KESTRO_API uint32_t Zos_CbufDetach(ZCBUF zChild);

/* Bytes held by this arena's allocations (children not counted). */
KESTRO_API uint32_t Zos_CbufSize(ZCBUF zCbuf);
/* 1 when the pointer lies in memory of the arena or of a descendant. */
KESTRO_API uint32_t Zos_CbufHoldD(ZCBUF zCbuf, const void *pMem);
/* References held; 0 for an invalid arena. */
KESTRO_API uint32_t Zos_CbufRefCnt(ZCBUF zCbuf);
/* The parent, or null. */
KESTRO_API ZCBUF Zos_CbufGetParent(ZCBUF zCbuf);

ZOS_END_DECLS

#endif /* ZOS_CBUF_H */
