/*
 * Trace: a registry of tracked memory blocks (address, what it is about,
 * where it was added), trace events forwarded to the configured hook
 * (TraceEvnt), and one-line trace messages to the system log. The
 * registry starts with Zos_SysInit.
 */
#ifndef ZOS_TRACE_H
#define ZOS_TRACE_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

/* Longest texts kept in a tracked record. */
#define ZOS_TRACE_ABOUT_MAX 15u
#define ZOS_TRACE_FILE_MAX 63u

/* Creates the registry and takes the trace-event hook from the
 * configuration. */
KESTRO_API uint32_t Zos_TraceInit(void);
/* Frees every tracked record. */
KESTRO_API void Zos_TraceDestroy(void);

/* An error line to the system log: "trace(about) at<file:line>.", or
 * without a file "trace(about).", or without the about text
 * "trace at<file:line>.". */
KESTRO_API uint32_t Zos_TraceLog(const char *pcAbout, const char *pcFile, uint32_t uiLine);
/* Calls the trace-event hook (never twice at once); the short form passes
 * 0 as the fourth argument. Nothing when no hook is configured; 1 before
 * Zos_TraceInit. */
KESTRO_API uint32_t Zos_TraceEvnt(uintptr_t zA, uintptr_t zB, uintptr_t zC);
KESTRO_API uint32_t Zos_TraceEvntX(uintptr_t zA, uintptr_t zB, uintptr_t zC, uintptr_t zD);

/* Tracks a block; the texts are copied (cut to 15 and 63 characters). */
KESTRO_API uint32_t Zos_TraceMemAdd(const void *pMem, const char *pcAbout, const char *pcFile,
                                    uint32_t uiLine);
/* Stops tracking the first record of the block; 0 also when none
 * matches, 1 before Zos_TraceInit. */
KESTRO_API uint32_t Zos_TraceMemRmv(const void *pMem);
/* Stops tracking every block. */
KESTRO_API uint32_t Zos_TraceMemClr(void);
/* Prints every tracked record. */
KESTRO_API uint32_t Zos_TraceDbgShow(void);

ZOS_END_DECLS

#endif /* ZOS_TRACE_H */
