/*
 * Basic types, the export macro and the result convention shared by every
 * public header of kestro_lite.
 *
 * Results: most functions return an unsigned 32-bit status, ZOK (0) for
 * success and ZFAILED (1) for failure. Getters return the value or a
 * documented fallback, predicates return 1 or 0.
 */
#ifndef ZOS_TYPE_H
#define ZOS_TYPE_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__) || defined(__clang__)
#define KESTRO_API __attribute__((visibility("default")))
#else
#define KESTRO_API
#endif

#ifdef __cplusplus
#define ZOS_BEGIN_DECLS extern "C" {
#define ZOS_END_DECLS }
#else
#define ZOS_BEGIN_DECLS
#define ZOS_END_DECLS
#endif

#define ZOK 0u
#define ZFAILED 1u

/* Task id meaning "no task". */
#define ZOS_INVALID_ID 0xFFFFFFFFu

/* Counted string: the text need not be NUL-terminated; {NULL, 0} is empty. */
typedef struct tagZOS_SSTR {
    char *pcStr;
    uint32_t uiLen;
} ST_ZOS_SSTR;

/* Lock handles: opaque words owned by the caller and filled by create. */
typedef uintptr_t ZMUTEX;
typedef uintptr_t ZSHAREX;
typedef uintptr_t ZSEM;

/* Opaque handles of objects owned by the layer. */
typedef void *ZPOOL;  /* bucket pool */
typedef void *ZDBUF;  /* data buffer */
typedef void *ZCBUF;  /* chained buffer (arena) */
typedef void *ZUBUF;  /* any buffer kind, told apart by its magic word */
typedef void *ZLOGID; /* log handle */

/* Generic function pointer type of a platform table slot. */
typedef void (*ZOS_OSDEP_FUNC)(void);

#endif /* ZOS_TYPE_H */
