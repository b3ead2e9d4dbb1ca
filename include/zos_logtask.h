/*
 * The log task "LOG": a module task with a thread of its own whose timer
 * writes the cached lines of every log that has a file (and no redirect
 * target) to that file. Lines written while it runs reach their file at
 * the timer's next expiry, in pieces of at most the configured alert size.
 * After a pass in which some cache held lines the timer runs for the
 * alert interval (more lines are likely to follow), otherwise for the
 * cycle interval; a running timer already due within the chosen interval
 * is left as it is. Stopping the task writes out what is cached.
 *
 * Started by Zos_SysInit when the configuration enables it
 * (Zos_CfgSetLogTaskSupt), stopped by Zos_SysDestroy.
 */
#ifndef ZOS_LOGTASK_H
#define ZOS_LOGTASK_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

/* 0 also when the configuration leaves the task off. */
KESTRO_API uint32_t Zos_LogTaskStart(void);
KESTRO_API void Zos_LogTaskStop(void);
/* The task's init (creates and starts its timer), entry (acts on its own
 * timer's timeout message only) and exit callback (deletes the timer). */
KESTRO_API uint32_t Zos_LogTaskInit(const char *pcName, uint32_t uiTaskId);
KESTRO_API int32_t Zos_LogTaskProc(void *zMsg);
KESTRO_API void Zos_LogTaskDestroy(const char *pcName, uint32_t uiTaskId);
/* Writes one log's cached lines to its file and puts the file on disk. */
KESTRO_API uint32_t Zos_LogTaskFlushLog(ZLOGID zLogId);

ZOS_END_DECLS

#endif /* ZOS_LOGTASK_H */
