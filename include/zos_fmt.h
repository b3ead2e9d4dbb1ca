/*
 * The layer's own formatter. Every formatted text of the system goes
 * through Zos_Kvprintf; the C library's printf family is never used.
 *
 * Conversions: %c %s %d %i %u %o %x %X %p %r %f %e %%; flags '#', '+' (only
 * for 'r'), '-', '0'; width; '.' precision (strings and doubles); 'l'
 * counts (0: int, 1: long, 2: 64-bit, 3+: conversion dropped, nothing
 * read); 'z' resets the count. "%p" has "0x" exactly when no width is
 * given.
 * Anything else is echoed verbatim. Integer padding comes before the sign
 * and prefix ("%06d" of -42 is "000-42"). Doubles are truncated, not
 * rounded, and print "nan" when too long, infinite or not a number; "%e"
 * of zero is "0.000000e00". A format ending in a lone '%' (or inside a
 * conversion) echoes what it read and stops.
 */
#ifndef ZOS_FMT_H
#define ZOS_FMT_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

/* Output function: (character, argument); its result is ignored. */
typedef uint32_t (*PFN_ZOS_KPRINT)(uint32_t uiChr, uintptr_t zArg);

/* Bounded sink of Zos_SnprintfFunc: stores while at least 2 remain, so the
 * last byte is always free for the terminator. */
typedef struct tagZOS_SNPRINTF_SINK {
    char *pcPos;
    int32_t iRemain;
} ST_ZOS_SNPRINTF_SINK;

/* Formats with pfnOut (or into the buffer zArg when pfnOut is null; no
 * terminator written; a null buffer as well only counts); radix is used
 * by 'r' (2..36, else 10). Returns the number of characters produced,
 * counted modulo 2^32. */
KESTRO_API uint32_t Zos_Kvprintf(const char *pcFormat, PFN_ZOS_KPRINT pfnOut, uintptr_t zArg,
                                 uint32_t uiRadix, va_list ap);
/* Unbounded: returns the characters written, NUL stored after them; a null
 * buffer gives 0. */
KESTRO_API uint32_t Zos_SPrintf(char *pcBuf, const char *pcFormat, ...);
KESTRO_API uint32_t Zos_VSPrintf(char *pcBuf, const char *pcFormat, va_list ap);
/* Bounded: returns min(full length, size); on truncation that is the size
 * itself. A size of 0 writes nothing, not even a NUL; a negative size or a
 * null buffer writes nothing either and gives 0. */
KESTRO_API uint32_t Zos_SNPrintf(char *pcBuf, int32_t iSize, const char *pcFormat, ...);
KESTRO_API uint32_t Zos_VSNPrintf(char *pcBuf, int32_t iSize, const char *pcFormat, va_list ap);
KESTRO_API uint32_t Zos_SnprintfFunc(uint32_t uiChr, uintptr_t zSink);
/* Discarding sink used by measuring passes; returns its first argument. */
KESTRO_API uint32_t Zos_SPrintfNull(uint32_t uiChr, uintptr_t zArg);

/* Digit generators over a scratch of 129 bytes (a leading NUL sentinel
 * then 128 characters); the result points at the first character to emit
 * and the characters run backwards to the sentinel. */
KESTRO_API char *Zos_Ksprintn(char *pcScratch, uint64_t ullValue, int32_t iBase, int32_t *piLen);
KESTRO_API char *Zos_Ksprintd(char *pcScratch, double dValue, int32_t iPrecision, int32_t *piLen);
KESTRO_API char *Zos_Ksprinte(char *pcScratch, double dValue, int32_t iPrecision, int32_t *piLen);

ZOS_END_DECLS

#endif /* ZOS_FMT_H */
