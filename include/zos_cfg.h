/*
 * Configuration store: every tunable of the layer in one record, created
 * with its defaults on first use, so a host may set values before
 * Zos_SysInit. Each setting X has Zos_CfgGetX() and Zos_CfgSetX(value).
 *
 * Getters return the value, or the fallback listed below when the record
 * cannot be created. Setters return 0, or 1 when the record cannot be
 * created. A flag setter stores 1 for any non-zero argument.
 */
#ifndef ZOS_CFG_H
#define ZOS_CFG_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

/* Print hook: receives every line that Zos_Printf prints. */
typedef void (*ZOS_PRINT_HOOK)(const char *pcText);
/* Log display hook: receives a displayed log line (with its "\n"). */
typedef void (*ZOS_LOGDISP_HOOK)(const char *pcText, uint32_t uiLen);
/* Event-trace callback, copied at trace init. */
typedef void (*ZOS_TRACE_EVNT)(uintptr_t zA, uintptr_t zB, uintptr_t zC, uintptr_t zD);

/* One row of a bucket table: block size, initial count, growth count. */
typedef struct tagZOS_BKT_INFO {
    uint32_t uiSize;
    uint32_t uiInitCnt;
    uint32_t uiIncCnt;
} ST_ZOS_BKT_INFO;

typedef void *(*PFN_ZOS_POOL_ALLOC)(uint32_t uiSize);
typedef void (*PFN_ZOS_POOL_FREE)(void *pMem);

/* Pool description: the argument of the pool constructor. */
typedef struct tagZOS_POOL_CFG {
    const char *pcName;
    const ST_ZOS_BKT_INFO *pstBktInfo;
    PFN_ZOS_POOL_ALLOC pfnAlloc; /* null: the platform heap */
    PFN_ZOS_POOL_FREE pfnFree;
    uint8_t ucLocked; /* the pool takes its mutex */
    uint8_t ucShrink; /* free blocks beyond the initial count are released */
    uint8_t ucLogErr; /* faults are logged */
    uint8_t ucBktCnt; /* rows of the bucket table */
} ST_ZOS_POOL_CFG;

#define ZOS_CFG_TEXT_SIZE 512u

/* Bucket tables of the configured pools. */
KESTRO_API extern const ST_ZOS_BKT_INFO m_astZosCfgMemBktInfoGrp[13];
KESTRO_API extern const ST_ZOS_BKT_INFO m_astZosCfgDbufBktInfoGrp[12];
KESTRO_API extern const ST_ZOS_BKT_INFO m_astZosCfgPMemBktInfoGrp[9];
KESTRO_API extern const ST_ZOS_BKT_INFO m_astZosPrintBktInfoGrp[7];

/* The configuration record (layout private to the layer). */
typedef struct tagZOS_CFG ST_ZOS_CFG;

/* The record, created with defaults on demand; null when it cannot be. */
KESTRO_API ST_ZOS_CFG *Zos_CfgLocate(void);
/* Fills the defaults into a zeroed record; returns 0. */
KESTRO_API uint32_t Zos_CfgInit(void *pCfg);

/*
 * The settings, in record order: (name, value type, default, fallback).
 * ZOS_CFG_FLAGS are 0/1 flags stored in one byte.
 */
#define ZOS_CFG_FLAGS(X)                \
    X(OsMutexSupt, uint8_t, 1, 0)       \
    X(OsSharexSupt, uint8_t, 1, 0)      \
    X(OsSemSupt, uint8_t, 1, 0)         \
    X(OsThreadSupt, uint8_t, 1, 0)      \
    X(OsSocketRO, uint8_t, 1, 0)        \
    X(OsSocketReusePort, uint8_t, 1, 0) \
    X(OsSocketLogInfo, uint8_t, 1, 0)   \
    X(UseOsMalloc, uint8_t, 1, 0)

/* Settings stored as given. */
#define ZOS_CFG_VALUES_A(X)                  \
    X(ImsbrdEnable, uint32_t, 1, 0)          \
    X(CPVoiceEnable, uint32_t, 0, 0)         \
    X(AppCtx, void *, NULL, NULL)            \
    X(PrintDisp, ZOS_PRINT_HOOK, NULL, NULL) \
    X(LogDisp, ZOS_LOGDISP_HOOK, NULL, NULL) \
    X(TraceEvnt, ZOS_TRACE_EVNT, NULL, NULL)

#define ZOS_CFG_VALUES_B(X)            \
    X(LogTaskSupt, uint32_t, 0, 0)     \
    X(LogDispDateSupt, uint32_t, 0, 0) \
    X(LogDispTimeSupt, uint32_t, 1, 0) \
    X(LogDispTimeInMs, uint32_t, 1, 0) \
    X(LogPrint, uint32_t, 1, 0)        \
    X(LogTaskPriority, uint32_t, 8, 0x7FFFFFFF)

/* Settings whose setters have rules of their own (see below). */
#define ZOS_CFG_RULED_A(X)                     \
    X(LogTaskCycleTimeLen, uint32_t, 60000, 0) \
    X(LogTaskAlertTimeLen, uint32_t, 500, 0)   \
    X(LogLevel, uint32_t, 0xB, 0)

#define ZOS_CFG_VALUES_C(X)            \
    X(LogBufSize, uint32_t, 4096, 0)   \
    X(LogAlertSize, uint32_t, 4096, 0) \
    X(LogFileSize, uint32_t, 100000, 0)

#define ZOS_CFG_RULED_B(X) X(LogFileCount, uint32_t, 10, 0)

#define ZOS_CFG_VALUES_D(X)           \
    X(ModDrvMode, uint32_t, 1, 1)     \
    X(TaskCount, uint32_t, 400, 0)    \
    X(QueueSize, uint32_t, 100, 0)    \
    X(TimerCount, uint32_t, 2000, 0)  \
    X(TimerDrvMode, uint32_t, 1, 1)   \
    X(OsTimerDrvMode, uint32_t, 0, 1) \
    X(TimerTaskPriority, int32_t, 4, -1)

/* The three pool descriptions: the getter returns the record's own
 * description (null without a record), the setter copies one in. */
#define ZOS_CFG_POOLS(X) \
    X(MemPool)           \
    X(DbufPool)          \
    X(PMemPool)

#define ZOS_CFG_DECLARE_VALUE(name, type, def, fb) \
    KESTRO_API type Zos_CfgGet##name(void);        \
    KESTRO_API uint32_t Zos_CfgSet##name(type value);
#define ZOS_CFG_DECLARE_POOL(name)                      \
    KESTRO_API ST_ZOS_POOL_CFG *Zos_CfgGet##name(void); \
    KESTRO_API uint32_t Zos_CfgSet##name(const ST_ZOS_POOL_CFG *pstCfg);

/* Flag setters take any value and store 0 or 1. */
#define ZOS_CFG_DECLARE_FLAG(name, type, def, fb) \
    KESTRO_API type Zos_CfgGet##name(void);       \
    KESTRO_API uint32_t Zos_CfgSet##name(uint32_t value);

ZOS_CFG_FLAGS(ZOS_CFG_DECLARE_FLAG)
ZOS_CFG_VALUES_A(ZOS_CFG_DECLARE_VALUE)
ZOS_CFG_POOLS(ZOS_CFG_DECLARE_POOL)
ZOS_CFG_VALUES_B(ZOS_CFG_DECLARE_VALUE)
/* Zos_CfgSetLogTaskCycleTimeLen / AlertTimeLen: 0 is ignored (result 0).
 * Zos_CfgSetLogLevel: applied to the system log at once when it exists. */
ZOS_CFG_RULED_A(ZOS_CFG_DECLARE_VALUE)
ZOS_CFG_VALUES_C(ZOS_CFG_DECLARE_VALUE)
/* Zos_CfgSetLogFileCount: a count below 2 is refused with 1. */
ZOS_CFG_RULED_B(ZOS_CFG_DECLARE_VALUE)
ZOS_CFG_VALUES_D(ZOS_CFG_DECLARE_VALUE)

/* Log directory and file path (512 bytes with terminator). The getters
 * return the record's text; without a record LogDir gives "" and LogFile
 * null. Zos_CfgSetLogFile truncates to 511 characters. Zos_CfgSetLogDir
 * rebuilds LogFile as dir + '/' + base name of the current LogFile
 * ("zos.log" when that base name is empty); it fails with 1 and changes
 * nothing when the two lengths together exceed 510. */
KESTRO_API const char *Zos_CfgGetLogDir(void);
KESTRO_API uint32_t Zos_CfgSetLogDir(const char *pcDir);
KESTRO_API const char *Zos_CfgGetLogFile(void);
KESTRO_API uint32_t Zos_CfgSetLogFile(const char *pcFile);

ZOS_END_DECLS

#endif /* ZOS_CFG_H */
