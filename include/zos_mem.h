/*
 * Memory entry points and system strings.
 *
 * All dynamic memory of the layer goes through these. The back end is
 * chosen at start-up by the UseOsMalloc setting: the platform heap (sizes
 * rounded up to 4) or the layer's "zos memory" bucket pool.
 */
#ifndef ZOS_MEM_H
#define ZOS_MEM_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

KESTRO_API uint32_t Zos_MemInit(void);
KESTRO_API void Zos_MemDestroy(void);

/* Null for size 0 or above 0x7FFFFFFE. */
KESTRO_API void *Zos_Malloc(uint32_t uiSize);
/* Zeroed; null for size below 1 or equal to 0x7FFFFFFF. */
KESTRO_API void *Zos_MallocClrd(int32_t iSize);
/* Zeroed; null when count x size overflows, is 0 or is at least 0x7FFFFFFF. */
KESTRO_API void *Zos_Calloc(uint32_t uiCount, uint32_t uiSize);
/* Heap mode: the platform's realloc. Pool mode: blocks never shrink, and a
 * size of 0 neither frees nor succeeds (the block stays allocated). */
KESTRO_API void *Zos_Realloc(void *pMem, uint32_t uiSize);
KESTRO_API void Zos_Free(void *pMem);

/* Straight to the platform heap (slots 0-2), sizes rounded up to 4. */
KESTRO_API void *Zos_HeapAlloc(uint32_t uiSize);
KESTRO_API void *Zos_HeapRealloc(void *pMem, uint32_t uiSize);
KESTRO_API void Zos_HeapFree(void *pMem);

/* Block check: 0 sound, 1 bad (always 0 in heap mode). */
KESTRO_API uint32_t Zos_MemChkMem(void *pMem);
KESTRO_API uint32_t Zos_MemChkPool(void);
/* Prints the memory pool's statistics; 1 without a pool. */
KESTRO_API uint32_t Zos_MemDbgShow(void);

/* System strings: a header {magic 0x0123DEEA, length} in front of the
 * characters and a NUL; the pointer handed out is the first character. */
KESTRO_API char *Zos_SysStrAllocN(uint32_t uiLen);
KESTRO_API char *Zos_SysStrAlloc(const char *pcText);
KESTRO_API char *Zos_SysStrNAlloc(const char *pcData, uint32_t uiLen);
KESTRO_API char *Zos_SysStrXAlloc(const ST_ZOS_SSTR *pstStr);
KESTRO_API char *Zos_SysStrFAlloc(const char *pcFormat, ...);
/* A copy of a data buffer's whole content; null for an empty buffer. */
KESTRO_API char *Zos_SysStrDAlloc(ZDBUF zDbuf);
KESTRO_API void Zos_SysStrFree(char *pcText);
KESTRO_API uint32_t Zos_SysStrLen(const char *pcText);

ZOS_END_DECLS

#endif /* ZOS_MEM_H */
