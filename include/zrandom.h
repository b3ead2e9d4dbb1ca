/*
 * Cheap unpredictable numbers: the MD5 of the high-resolution clock folded
 * to 16, 32 or 64 bits.
 */
#ifndef ZRANDOM_H
#define ZRANDOM_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

/* Size of the random environment block (component 7). */
#define ZRANDOM_ENV_SIZE 32u

KESTRO_API uint16_t Zrandom_N16(void);
KESTRO_API uint32_t Zrandom_N32(void);
KESTRO_API uint64_t Zrandom_N64(void);

/* The random environment block, attached on first use (its first words
 * 0x010203E7 and 0x8AC4E301); null when it cannot be attached. */
KESTRO_API void *Zrandom_EnvLocate(void);

ZOS_END_DECLS

#endif /* ZRANDOM_H */
