/*
 * Segment and page buffers: two small allocators that the universal buffer
 * (zos_ubuf.h) can serve from.
 *
 * A segment buffer hands out areas cut one after the other from segments
 * of a fixed size; its areas are never given back one by one, only with
 * the whole buffer. A page buffer takes every area from the heap as a page
 * of its own, so single areas can be given back.
 */
#ifndef ZOS_SBUF_H
#define ZOS_SBUF_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

typedef void *ZSBUF; /* segment buffer */
typedef void *ZPBUF; /* page buffer */

/* Segments of uiSegSize bytes (0 gives 1024; a larger area gets a segment
 * of its own size). Null without memory. */
KESTRO_API ZSBUF Zos_SbufCreate(uint32_t uiSegSize);
KESTRO_API void Zos_SbufDelete(ZSBUF zSbuf);
/* A pointer-aligned area; null for size 0, an invalid buffer or no memory. */
KESTRO_API void *Zos_SbufAlloc(ZSBUF zSbuf, uint32_t uiSize);
/* Bytes handed out (rounded to the alignment). */
KESTRO_API uint32_t Zos_SbufSize(ZSBUF zSbuf);
/* 1 when the pointer lies in one of the buffer's segments. */
KESTRO_API uint32_t Zos_SbufHoldD(ZSBUF zSbuf, const void *pMem);

KESTRO_API ZPBUF Zos_PbufCreate(void);
/* Frees every page and the buffer. */
KESTRO_API void Zos_PbufDelete(ZPBUF zPbuf);
KESTRO_API void *Zos_PbufAlloc(ZPBUF zPbuf, uint32_t uiSize);
/* 1 for a pointer that is no page of this buffer. */
KESTRO_API uint32_t Zos_PbufFree(ZPBUF zPbuf, void *pMem);
/* Bytes of the pages in use (sizes rounded up to 4). */
KESTRO_API uint32_t Zos_PbufSize(ZPBUF zPbuf);

ZOS_END_DECLS

#endif /* ZOS_SBUF_H */
