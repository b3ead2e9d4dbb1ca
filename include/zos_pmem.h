/*
 * Power memory: the layer's "zos power memory" bucket pool, built at
 * start-up from the configuration's power-memory description (backed by
 * Zos_Malloc and Zos_Free) and released at shut-down.
 */
#ifndef ZOS_PMEM_H
#define ZOS_PMEM_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

/* 0 when the pool exists (or already existed), 1 on failure. */
KESTRO_API uint32_t Zos_PMemInit(void);
/* Deletes the pool; nothing when it was never made. */
KESTRO_API void Zos_PMemDestroy(void);

ZOS_END_DECLS

#endif /* ZOS_PMEM_H */
