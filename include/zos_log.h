/*
 * Named logs with level masks, a time-stamped prefix, console echo, an
 * in-memory cache and rotating files. The layer's own failures go to the
 * system log "ZOS" (Zos_LogGetZosId).
 */
#ifndef ZOS_LOG_H
#define ZOS_LOG_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

/* Level bits. */
#define ZOS_LOG_LEVEL_FATAL 0x1u
#define ZOS_LOG_LEVEL_ERROR 0x2u
#define ZOS_LOG_LEVEL_WARN 0x4u
#define ZOS_LOG_LEVEL_INFO 0x8u
#define ZOS_LOG_LEVEL_DEBUG 0x10u
#define ZOS_LOG_LEVEL_FUNC 0x100u
#define ZOS_LOG_LEVEL_ALL 0x1FFu

/* Watcher: called with every written message, without prefix and "\n". */
typedef void (*ZOS_LOG_WATCHER)(void *pUser, uint32_t uiLevel, const char *pcMsg);

/* The system log's handle; null before the log is initialised. */
KESTRO_API ZLOGID Zos_LogGetZosId(void);

/* Set or clear level bits; 1 for a null handle, a zero mask or an
 * invalid log. */
KESTRO_API uint32_t Zos_LogOpen(ZLOGID zLogId, uint32_t uiLevel);
KESTRO_API uint32_t Zos_LogClose(ZLOGID zLogId, uint32_t uiLevel);

/* Writing: 0 when written or the level is disabled, 1 for an invalid log. */
KESTRO_API uint32_t Zos_LogFatal(ZLOGID zLogId, const char *pcFormat, ...);
KESTRO_API uint32_t Zos_LogError(ZLOGID zLogId, const char *pcFormat, ...);
KESTRO_API uint32_t Zos_LogWarn(ZLOGID zLogId, const char *pcFormat, ...);
KESTRO_API uint32_t Zos_LogInfo(ZLOGID zLogId, const char *pcFormat, ...);
KESTRO_API uint32_t Zos_LogDbg(ZLOGID zLogId, const char *pcFormat, ...);
/* A plain text at the given level, written as it is (no formatting). */
KESTRO_API uint32_t Zos_LogStr(ZLOGID zLogId, uint32_t uiLevel, const char *pcStr);

ZOS_END_DECLS

#endif /* ZOS_LOG_H */
