/*
 * Universal buffer: one front through which callers allocate from, free
 * into, measure and copy text into any kind of buffer without knowing
 * which kind it is. The kind is told by the record's magic word, tested
 * in this order:
 *
 *   wrapper (Zos_UbufCreate)  first word 0xB1B2D0D1  its own functions
 *   chained buffer (arena)    third word 0xEFAAEF1C  alloc free size hold
 *   data buffer               second word 0xAABBFFDD alloc size
 *   segment buffer            first word 0x8A9AAABA  alloc size hold
 *   page buffer               first word 0x7E8F9CA3  alloc free size
 *
 * ("Words" are the record's fields: on a 64-bit host the second and
 * third follow pointers and sit at 8 and 16 bytes.) A missing operation
 * gives the neutral result: null, 1 for a free, 0 for size and hold.
 * Memory of a data or segment buffer is only released with the buffer.
 */
#ifndef ZOS_UBUF_H
#define ZOS_UBUF_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

typedef void *(*PFN_ZOS_UBUF_ALLOC)(void *pBuf, uint32_t uiSize);
typedef uint32_t (*PFN_ZOS_UBUF_FREE)(void *pBuf, void *pMem);
typedef uint32_t (*PFN_ZOS_UBUF_SIZE)(void *pBuf);
typedef uint32_t (*PFN_ZOS_UBUF_HOLD)(void *pBuf, const void *pMem);

/* A wrapper around a buffer of a known kind (not another wrapper), with
 * that kind's functions; null for null, an unknown kind or no memory. */
KESTRO_API ZUBUF Zos_UbufCreate(void *pBuf);
/* A wrapper with functions of the caller's (any may be null). */
KESTRO_API ZUBUF Zos_UbufCreateX(void *pBuf, PFN_ZOS_UBUF_ALLOC pfnAlloc, PFN_ZOS_UBUF_FREE pfnFree,
                                 PFN_ZOS_UBUF_SIZE pfnSize, PFN_ZOS_UBUF_HOLD pfnHold);
/* Frees the wrapper, never its target. */
KESTRO_API uint32_t Zos_UbufDelete(ZUBUF zUbuf);

KESTRO_API void *Zos_UbufAlloc(ZUBUF zBuf, uint32_t uiSize);
KESTRO_API void *Zos_UbufAllocClrd(ZUBUF zBuf, uint32_t uiSize);
/* One cleared allocation laid out as a list node (next, data pointer; the
 * D form next, prev, data pointer) followed by uiSize bytes of data. The
 * node's data pointer and *ppData point at the data, or are null for a
 * size of 0. Null when the allocation fails. */
KESTRO_API void *Zos_UbufAllocSNode(ZUBUF zBuf, uint32_t uiSize, void **ppData);
KESTRO_API void *Zos_UbufAllocDNode(ZUBUF zBuf, uint32_t uiSize, void **ppData);

KESTRO_API uint32_t Zos_UbufFree(ZUBUF zBuf, void *pMem);
/* As Zos_UbufFree; on success the caller's pointer (and length) are
 * cleared. */
KESTRO_API uint32_t Zos_UbufFreeX(ZUBUF zBuf, void **ppMem);
KESTRO_API uint32_t Zos_UbufFreeSStr(ZUBUF zBuf, ST_ZOS_SSTR *pstStr);
KESTRO_API uint32_t Zos_UbufFreeUStr(ZUBUF zBuf, ST_ZOS_SSTR *pstStr);

KESTRO_API uint32_t Zos_UbufSize(ZUBUF zBuf);
KESTRO_API uint32_t Zos_UbufHoldD(ZUBUF zBuf, const void *pMem);

/*
 * Copies of text into a buffer, always followed by a zero byte the length
 * does not count. Each member: a null output gives 1; the output is
 * cleared; a null source or a length of 0 gives 0 with the cleared output
 * and no allocation; otherwise length + 1 bytes are allocated (1 when that
 * fails) and filled. The letters L and U name the same operation for the
 * other declarations of counted strings and behave identically.
 */
/* Text (zero-terminated or with a length) to a pointer. */
KESTRO_API uint32_t Zos_UbufCpyStr(ZUBUF zBuf, const char *pcSrc, char **ppcOut);
KESTRO_API uint32_t Zos_UbufCpyNStr(ZUBUF zBuf, const char *pcSrc, uint32_t uiLen, char **ppcOut);
KESTRO_API uint32_t Zos_UbufCpyNLStr(ZUBUF zBuf, const char *pcSrc, uint32_t uiLen, char **ppcOut);
KESTRO_API uint32_t Zos_UbufCpyNLUSStr(ZUBUF zBuf, const char *pcSrc, uint32_t uiLen,
                                       char **ppcOut);
/* Counted string (null counts as empty) to a pointer. */
KESTRO_API uint32_t Zos_UbufCpyXStr(ZUBUF zBuf, const ST_ZOS_SSTR *pstSrc, char **ppcOut);
KESTRO_API uint32_t Zos_UbufCpyUXStr(ZUBUF zBuf, const ST_ZOS_SSTR *pstSrc, char **ppcOut);
/* Whole content of a data buffer to a pointer; a null or invalid data
 * buffer gives 1. */
KESTRO_API uint32_t Zos_UbufCpyDStr(ZUBUF zBuf, ZDBUF zDbuf, char **ppcOut);

/* Text to a counted string. */
KESTRO_API uint32_t Zos_UbufCpySStr(ZUBUF zBuf, const char *pcSrc, ST_ZOS_SSTR *pstOut);
KESTRO_API uint32_t Zos_UbufCpyLSStr(ZUBUF zBuf, const char *pcSrc, ST_ZOS_SSTR *pstOut);
KESTRO_API uint32_t Zos_UbufCpyUSStr(ZUBUF zBuf, const char *pcSrc, ST_ZOS_SSTR *pstOut);
KESTRO_API uint32_t Zos_UbufCpyNSStr(ZUBUF zBuf, const char *pcSrc, uint32_t uiLen,
                                     ST_ZOS_SSTR *pstOut);
KESTRO_API uint32_t Zos_UbufCpyNLSStr(ZUBUF zBuf, const char *pcSrc, uint32_t uiLen,
                                      ST_ZOS_SSTR *pstOut);
KESTRO_API uint32_t Zos_UbufCpyNLUStr(ZUBUF zBuf, const char *pcSrc, uint32_t uiLen,
                                      ST_ZOS_SSTR *pstOut);
KESTRO_API uint32_t Zos_UbufCpyNUSStr(ZUBUF zBuf, const char *pcSrc, uint32_t uiLen,
                                      ST_ZOS_SSTR *pstOut);
/* Counted string to a counted string. */
KESTRO_API uint32_t Zos_UbufCpyXSStr(ZUBUF zBuf, const ST_ZOS_SSTR *pstSrc, ST_ZOS_SSTR *pstOut);
KESTRO_API uint32_t Zos_UbufCpyLXSStr(ZUBUF zBuf, const ST_ZOS_SSTR *pstSrc, ST_ZOS_SSTR *pstOut);
KESTRO_API uint32_t Zos_UbufCpyXLUStr(ZUBUF zBuf, const ST_ZOS_SSTR *pstSrc, ST_ZOS_SSTR *pstOut);
KESTRO_API uint32_t Zos_UbufCpyXLSStr(ZUBUF zBuf, const ST_ZOS_SSTR *pstSrc, ST_ZOS_SSTR *pstOut);
KESTRO_API uint32_t Zos_UbufCpyUXSStr(ZUBUF zBuf, const ST_ZOS_SSTR *pstSrc, ST_ZOS_SSTR *pstOut);
KESTRO_API uint32_t Zos_UbufCpyXUSStr(ZUBUF zBuf, const ST_ZOS_SSTR *pstSrc, ST_ZOS_SSTR *pstOut);
KESTRO_API uint32_t Zos_UbufCpyUXUSStr(ZUBUF zBuf, const ST_ZOS_SSTR *pstSrc, ST_ZOS_SSTR *pstOut);
/* Data buffer to a counted string (length = data length). */
KESTRO_API uint32_t Zos_UbufCpyDSStr(ZUBUF zBuf, ZDBUF zDbuf, ST_ZOS_SSTR *pstOut);
KESTRO_API uint32_t Zos_UbufCpyDLSStr(ZUBUF zBuf, ZDBUF zDbuf, ST_ZOS_SSTR *pstOut);
KESTRO_API uint32_t Zos_UbufCpyDUSStr(ZUBUF zBuf, ZDBUF zDbuf, ST_ZOS_SSTR *pstOut);
/* Formatted text to a pointer. */
KESTRO_API uint32_t Zos_UbufCpyFStr(ZUBUF zBuf, char **ppcOut, const char *pcFormat, ...);

ZOS_END_DECLS

#endif /* ZOS_UBUF_H */
