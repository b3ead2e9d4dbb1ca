/*
 * Named logs with level masks, a time-stamped prefix, console echo, an
 * in-memory cache and rotating files. The layer's own failures go to the
 * system log "ZOS" (Zos_LogGetZosId).
 *
 * A line reads "<date> <time>.<ms> <name>: <LEVEL>: <message>\n" as far as
 * the configuration's date, time and millisecond switches allow. A log
 * with a file keeps lines in its cache, used as a ring, and writes them
 * to the file when the ring fills, on Zos_LogFlush, on rotation and on
 * deletion; files are named prefix + YYYYMMDD_hhmmss_mmm + extension from
 * the given path, begin with "#ZOSLOG#\r\n", and rotate by the configured
 * size, keeping the configured count (oldest removed).
 */
#ifndef ZOS_LOG_H
#define ZOS_LOG_H

#include "zos_time.h"
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

/* Creation flags. */
#define ZOS_LOG_FLAG_MUTEX 0x1u /* the log takes its own mutex */
#define ZOS_LOG_FLAG_PRINT 0x2u /* lines are echoed to the console */

/* Longest line: prefix, message and "\n" (a NUL follows). */
#define ZOS_LOG_LINE_MAX 4093u
/* Longest log name kept. */
#define ZOS_LOG_NAME_MAX 8u

/* Watcher: called with every written message, without prefix and "\n". */
typedef void (*ZOS_LOG_WATCHER)(void *pUser, uint32_t uiLevel, const char *pcMsg);

/* Manager: started by Zos_SysInit (it creates the system log "ZOS" from
 * the configuration), stopped by Zos_SysDestroy. */
KESTRO_API uint32_t Zos_LogInit(void);
KESTRO_API void Zos_LogDestroy(void);

/* Creates a log: name (cut to 8 characters), file path or null for none,
 * flags, level mask and cache size in bytes (0 none; 1 to 1023 become
 * 1024). Null for a null or empty name or before Zos_LogInit. */
KESTRO_API ZLOGID Zos_LogCreateX(const char *pcName, const char *pcFile, uint32_t uiFlags,
                                 uint32_t uiLevel, uint32_t uiCacheSize);
/* A log with its own mutex, the configured level mask and cache size and
 * no file. */
KESTRO_API ZLOGID Zos_LogCreate(const char *pcName);
/* Flushes the cache to the file, closes it and frees the log. */
KESTRO_API uint32_t Zos_LogDelete(ZLOGID zLogId);

/* The system log's handle; null before the log is initialised. */
KESTRO_API ZLOGID Zos_LogGetZosId(void);
/* Finds a log by name (case-insensitive): 0 and the handle, or 1 and null. */
KESTRO_API uint32_t Zos_LogGetId(const char *pcName, ZLOGID *pzLogId);

/* Set or clear level bits; 1 for a null handle, a zero mask or an
 * invalid log. The X forms find the log by name and return 0 also when
 * no log has that name. */
KESTRO_API uint32_t Zos_LogOpen(ZLOGID zLogId, uint32_t uiLevel);
KESTRO_API uint32_t Zos_LogClose(ZLOGID zLogId, uint32_t uiLevel);
KESTRO_API uint32_t Zos_LogOpenX(const char *pcName, uint32_t uiLevel);
KESTRO_API uint32_t Zos_LogCloseX(const char *pcName, uint32_t uiLevel);
/* The level mask; 0 for an invalid log. */
KESTRO_API uint32_t Zos_LogGetLevel(ZLOGID zLogId);
/* Console echo: a switch of 1 turns it on, anything else off. */
KESTRO_API uint32_t Zos_LogSetPrint(ZLOGID zLogId, uint32_t uiSwitch);
/* 1 while the echo is on, else 0. */
KESTRO_API uint32_t Zos_LogGetPrint(ZLOGID zLogId);
/* The watcher (null to remove) and its user data. */
KESTRO_API uint32_t Zos_LogSetWatcher(ZLOGID zLogId, ZOS_LOG_WATCHER pfnWatcher, void *pUser);
KESTRO_API uint32_t Zos_LogGetWatcher(ZLOGID zLogId, ZOS_LOG_WATCHER *ppfnWatcher, void **ppUser);
/* Lines of zLogId are displayed by zTarget (cache, file, echo) from now
 * on; a null target ends the redirection. A log cannot redirect to
 * itself. */
KESTRO_API uint32_t Zos_LogRedirect(ZLOGID zLogId, ZLOGID zTarget);

/* Writing: 0 when written or the level is disabled, 1 for an invalid log
 * or when no line buffer could be had. */
KESTRO_API uint32_t Zos_LogFatal(ZLOGID zLogId, const char *pcFormat, ...);
KESTRO_API uint32_t Zos_LogError(ZLOGID zLogId, const char *pcFormat, ...);
KESTRO_API uint32_t Zos_LogWarn(ZLOGID zLogId, const char *pcFormat, ...);
KESTRO_API uint32_t Zos_LogInfo(ZLOGID zLogId, const char *pcFormat, ...);
KESTRO_API uint32_t Zos_LogDbg(ZLOGID zLogId, const char *pcFormat, ...);
KESTRO_API uint32_t Zos_LogFunc(ZLOGID zLogId, const char *pcFormat, ...);
/* Given level; a non-empty prefix text follows the line prefix as "%s ". */
KESTRO_API uint32_t Zos_LogFStr(ZLOGID zLogId, uint32_t uiLevel, const char *pcPrefix,
                                const char *pcFormat, ...);
KESTRO_API uint32_t Zos_LogVFStr(ZLOGID zLogId, uint32_t uiLevel, const char *pcPrefix,
                                 const char *pcFormat, va_list ap);
/* As above with a name that replaces the log's own in the prefix (an
 * empty or null name keeps the log's). */
KESTRO_API uint32_t Zos_LogNameFStr(ZLOGID zLogId, const char *pcName, uint32_t uiLevel,
                                    const char *pcFormat, ...);
KESTRO_API uint32_t Zos_LogNameFStrX(ZLOGID zLogId, const char *pcName, uint32_t uiLevel,
                                     const char *pcPrefix, const char *pcFormat, ...);
KESTRO_API uint32_t Zos_LogNameVFStr(ZLOGID zLogId, const char *pcName, uint32_t uiLevel,
                                     const char *pcPrefix, const char *pcFormat, va_list ap);
/* A plain text at the given level, written as it is (no formatting). */
KESTRO_API uint32_t Zos_LogStr(ZLOGID zLogId, uint32_t uiLevel, const char *pcStr);
KESTRO_API uint32_t Zos_LogNStr(ZLOGID zLogId, uint32_t uiLevel, const char *pcStr, uint32_t uiLen);
KESTRO_API uint32_t Zos_LogSStr(ZLOGID zLogId, uint32_t uiLevel, const ST_ZOS_SSTR *pstStr);
/* Hex dump of a byte buffer as Zos_PrintBuf shows it; a long dump is
 * written as several lines. */
KESTRO_API uint32_t Zos_LogBuf(ZLOGID zLogId, uint32_t uiLevel, const void *pData, uint32_t uiLen);
KESTRO_API uint32_t Zos_LogNameBuf(ZLOGID zLogId, const char *pcName, uint32_t uiLevel,
                                   const void *pData, uint32_t uiLen);

/* Writes the cached lines to the log's file and puts the file on disk. */
KESTRO_API uint32_t Zos_LogFlush(ZLOGID zLogId);

/* The steps of writing a line and of keeping a log's files, for modules
 * that drive a log directly. Each refuses an invalid log (0 or ZFAILED).
 * Zos_LogAddPrefix: the line prefix ("<date> <time> <name>: <LEVEL>: "
 * as the configuration's switches allow, then pcPrefix and a space when
 * given) into pcBuf; the result is its length. pcName replaces the log's
 * name when not empty.
 * Zos_LogPrint: formats and displays one line whatever the level mask
 * (the writing functions check the mask first), and calls the watcher.
 * Zos_LogDisp: displays a finished text: file or cache, console echo,
 * rotation by size, display hook. Zos_LogDispBuff / Zos_LogDispFile: only
 * the cache of a log without a file (it keeps the latest text, wrapping
 * at its end) / only the file's ring of a log with a file.
 * Zos_LogAdjFile: rotation: the ring goes to the file, which is closed,
 * and a new file named by the current time starts ("#ZOSLOG#\r\n").
 * Zos_LogAppendFile: records a file with its creation time in the log's
 * list, oldest first; a full list removes its oldest file from disk
 * ("LogAppendFile remove oldest %s.\n"), and a file older than all of a
 * full list is removed itself ("LogAppendFile remove %s.\n").
 * Zos_LogGetFileList: adds to the list the files of the path's name
 * pattern found in its directory (files listed already are kept once).
 * Zos_LogGetFileName: the file-name template of a path (prefix, the time
 * as "%d%02d%02d_%02d%02d%02d_%03d", then "." and the extension, every
 * '%' of the path doubled); free it with Zos_PrintFree. */
KESTRO_API uint32_t Zos_LogAddPrefix(ZLOGID zLogId, const char *pcName, uint32_t uiLevel,
                                     const char *pcPrefix, char *pcBuf, uint32_t uiSize);
KESTRO_API uint32_t Zos_LogPrint(ZLOGID zLogId, const char *pcName, uint32_t uiLevel,
                                 const char *pcPrefix, const char *pcFormat, va_list ap);
KESTRO_API uint32_t Zos_LogDisp(ZLOGID zLogId, const char *pcText, uint32_t uiLen);
KESTRO_API uint32_t Zos_LogDispBuff(ZLOGID zLogId, const char *pcText, uint32_t uiLen);
KESTRO_API uint32_t Zos_LogDispFile(ZLOGID zLogId, const char *pcText, uint32_t uiLen);
KESTRO_API uint32_t Zos_LogAdjFile(ZLOGID zLogId);
KESTRO_API uint32_t Zos_LogAppendFile(ZLOGID zLogId, const char *pcFile,
                                      const ST_ZOS_SYS_TIME *pstTime);
KESTRO_API uint32_t Zos_LogGetFileList(ZLOGID zLogId, const char *pcFile);
KESTRO_API char *Zos_LogGetFileName(const char *pcFile);

/* Debug commands. Zos_LogDbgSetLevel takes exactly four arguments:
 * command word, log name, level name (ERROR, INFO, WARN, DEBUG, FATAL,
 * FUNC or ALL, any case) and "on" or anything else for off. */
KESTRO_API uint32_t Zos_LogDbgSetLevel(uint32_t uiArgc, const char *const *ppcArgv);
/* The cache state of every log. */
KESTRO_API uint32_t Zos_LogDbgShow(void);
/* The on/off state of every level of every log. */
KESTRO_API uint32_t Zos_LogDbgShowMonitor(void);

ZOS_END_DECLS

#endif /* ZOS_LOG_H */
