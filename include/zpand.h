/*
 * Platform adaptation: the functions that fill the platform table.
 *
 * The portable layer never calls these directly; it reaches them through
 * the slots of the platform table (Zos_OsdepFind). They are exported so a
 * host can inspect or reuse them, and so tests can wrap a slot and hand the
 * call on to the original.
 */
#ifndef ZPAND_H
#define ZPAND_H

#include "zos_inet.h"
#include "zos_type.h"

ZOS_BEGIN_DECLS

/* Number of slots of the record that Zpand_OsdepAttach fills. */
#define ZPAND_OSDEP_SLOTS 72

/* Seconds and nanoseconds since the epoch. */
typedef struct tagZOS_EPOCH_TIME {
    int64_t llSec;
    uint32_t uiNsec;
} ST_ZOS_EPOCH_TIME;

/* The platform's broken-down time (the fields of the C library's tm). */
typedef struct tagZOS_TM {
    int32_t iSec;
    int32_t iMin;
    int32_t iHour;
    int32_t iMday;
    int32_t iMon;  /* 0..11 */
    int32_t iYear; /* years since 1900 */
    int32_t iWday; /* 0 = Sunday */
    int32_t iYday;
    int32_t iIsdst;
} ST_ZOS_TM;

/* What Zpand_FileStat reports about a path. */
typedef struct tagZOS_FILE_STAT {
    uint64_t ullSize;
    int64_t llMtime;
    uint8_t ucIsDir;
    uint8_t aucSpare[7];
} ST_ZOS_FILE_STAT;

/* Seek origins of Zpand_FileSeek. */
#define ZPAND_SEEK_SET 0u
#define ZPAND_SEEK_CUR 1u
#define ZPAND_SEEK_END 2u

/* Entry function of a spawned thread. */
typedef void (*PFN_ZPAND_TASK_ENTRY)(uintptr_t zArg);

/* Platform holder and table. */
KESTRO_API uint32_t Zpand_OsenvAttach(uint32_t uiSize, void **ppMgr);
KESTRO_API void Zpand_OsenvDetach(void);
KESTRO_API void *Zpand_OsenvLocate(void);
KESTRO_API void *Zpand_OsenvGetMgr(void);
/* Fills a record of ZPAND_OSDEP_SLOTS slots; 1 for a null record. */
KESTRO_API uint32_t Zpand_OsdepAttach(ZOS_OSDEP_FUNC *pfnTable);

/* Memory (jemalloc) and console. */
KESTRO_API void *Zpand_Malloc(uint32_t uiSize);
KESTRO_API void *Zpand_Realloc(void *pMem, uint32_t uiSize);
KESTRO_API void Zpand_Free(void *pMem);
KESTRO_API uint32_t Zpand_Print(const char *pcText);
KESTRO_API void Zpand_Trace(const char *pcModule, const char *pcFile, uint32_t uiLine);

/* Clocks and calendar. */
KESTRO_API uint32_t Zpand_TimeInit(void);
KESTRO_API uint32_t Zpand_TimeDestroy(void);
KESTRO_API uint32_t Zpand_GetEpochTime(ST_ZOS_EPOCH_TIME *pstTime);
/* Monotonic milliseconds, wrapping at 32 bits. */
KESTRO_API uint32_t Zpand_GetHiresTime(void);
/* Real-time clock in nanoseconds. */
KESTRO_API uint64_t Zpand_GetHrTime(void);
KESTRO_API int64_t Zpand_Time(int64_t *pllTime);
KESTRO_API uint32_t Zpand_LocalTime(const int64_t *pllTime, ST_ZOS_TM *pstTm);
/* -1 when the time cannot be represented. */
KESTRO_API int64_t Zpand_MkTime(ST_ZOS_TM *pstTm);
/* Seconds west of Greenwich of the current local time. */
KESTRO_API int32_t Zpand_TimeZone(void);

/* Files: handles are opaque words. Results are ZOK/ZFAILED unless stated. */
KESTRO_API uint32_t Zpand_FileOpen(const char *pcPath, const char *pcMode, uintptr_t *pzFile);
KESTRO_API uint32_t Zpand_FileClose(uintptr_t zFile);
KESTRO_API uint32_t Zpand_FileRemove(const char *pcPath);
/* Removes a file or an empty directory. */
KESTRO_API uint32_t Zpand_FileRemoveX(const char *pcPath);
KESTRO_API uint32_t Zpand_FileRename(const char *pcFrom, const char *pcTo);
/* 1 at end of file, else 0. */
KESTRO_API uint32_t Zpand_FileEof(uintptr_t zFile);
KESTRO_API uint32_t Zpand_FileRead(uintptr_t zFile, void *pBuf, uint32_t uiSize, uint32_t *puiRead);
KESTRO_API uint32_t Zpand_FileWrite(uintptr_t zFile, const void *pBuf, uint32_t uiSize,
                                    uint32_t *puiWritten);
/* Flushes the stream and asks the system to put the data on disk. */
KESTRO_API uint32_t Zpand_FileFlush(uintptr_t zFile);
/* Reads one line with its line end, NUL-terminated; ZFAILED at end of file. */
KESTRO_API uint32_t Zpand_FileGets(uintptr_t zFile, char *pcBuf, uint32_t uiSize);
KESTRO_API uint32_t Zpand_FileSeek(uintptr_t zFile, int64_t llOffset, uint32_t uiWhence);
KESTRO_API uint32_t Zpand_FileTell(uintptr_t zFile, int64_t *pllPos);
KESTRO_API uint32_t Zpand_FileSize(const char *pcPath, uint64_t *pullSize);
KESTRO_API uint32_t Zpand_FileStat(const char *pcPath, ST_ZOS_FILE_STAT *pstStat);
KESTRO_API uint32_t Zpand_DirOpen(const char *pcPath, uintptr_t *pzDir);
KESTRO_API uint32_t Zpand_DirClose(uintptr_t zDir);
/* Next entry name ("." and ".." skipped); ZFAILED when there is none. */
KESTRO_API uint32_t Zpand_DirRead(uintptr_t zDir, char *pcName, uint32_t uiSize);
KESTRO_API uint32_t Zpand_DirMake(const char *pcPath);
KESTRO_API uint32_t Zpand_DirRemove(const char *pcPath);

/* Recursive mutexes, reader-writer locks, counting semaphores. */
KESTRO_API uint32_t Zpand_MutexCreate(ZMUTEX *pzMutex);
KESTRO_API uint32_t Zpand_MutexDelete(ZMUTEX *pzMutex);
KESTRO_API uint32_t Zpand_MutexLock(ZMUTEX *pzMutex);
KESTRO_API uint32_t Zpand_MutexUnlock(ZMUTEX *pzMutex);
KESTRO_API uint32_t Zpand_SharexCreate(ZSHAREX *pzSharex);
KESTRO_API uint32_t Zpand_SharexDelete(ZSHAREX *pzSharex);
KESTRO_API uint32_t Zpand_SharexLock(ZSHAREX *pzSharex);
KESTRO_API uint32_t Zpand_SharexUnlock(ZSHAREX *pzSharex);
KESTRO_API uint32_t Zpand_SharexLockEx(ZSHAREX *pzSharex);
KESTRO_API uint32_t Zpand_SharexUnlockEx(ZSHAREX *pzSharex);
KESTRO_API uint32_t Zpand_SemCreate(ZSEM *pzSem, uint32_t uiCount);
KESTRO_API uint32_t Zpand_SemCreateOne(ZSEM *pzSem);
KESTRO_API uint32_t Zpand_SemDelete(ZSEM *pzSem);
/* Timeout in ms: 0xFFFFFFFF forever, 0 only tries; ZFAILED on time-out. */
KESTRO_API uint32_t Zpand_SemWait(ZSEM *pzSem, uint32_t uiTimeout);
KESTRO_API uint32_t Zpand_SemPost(ZSEM *pzSem);

/* Byte order and descriptor sets. */
KESTRO_API uint32_t Zpand_InetNtohl(uint32_t uiVal);
KESTRO_API uint32_t Zpand_InetHtonl(uint32_t uiVal);
KESTRO_API uint16_t Zpand_InetNtohs(uint16_t wVal);
KESTRO_API uint16_t Zpand_InetHtons(uint16_t wVal);
KESTRO_API uint32_t Zpand_InetFdCreate(uintptr_t *pzSet);
KESTRO_API uint32_t Zpand_InetFdDelete(uintptr_t zSet);
KESTRO_API uint32_t Zpand_InetFdCopy(uintptr_t zDst, uintptr_t zSrc);
KESTRO_API uint32_t Zpand_InetFdZero(uintptr_t zSet);
KESTRO_API uint32_t Zpand_InetFdSet(int32_t iFd, uintptr_t zSet);
/* 1 when the descriptor is in the set. */
KESTRO_API uint32_t Zpand_InetFdIsset(int32_t iFd, uintptr_t zSet);
KESTRO_API uint32_t Zpand_InetFdClr(int32_t iFd, uintptr_t zSet);
/* Dotted IPv4 text to a value in network order: 0 / 1. */
KESTRO_API uint32_t Zpand_InetPton4(const char *pcText, uint32_t *puiAddr);
/* The local address as text: the installed source, else the Java side's
 * "getLocalIP" once bound, else the address of the first interface that
 * is up and not loopback (IPv4 before IPv6). 0 / 1. */
KESTRO_API uint32_t Zpand_InetGetLocalIp(char *pcBuf, uint32_t uiSize);
/* Installs the source of the local address (null: interfaces only). The
 * function fills the buffer with a NUL-terminated text and returns 0. */
typedef uint32_t (*PFN_ZPAND_LOCAL_IP)(char *pcBuf, uint32_t uiSize);
KESTRO_API void Zpand_InetSetLocalIpSource(PFN_ZPAND_LOCAL_IP pfnSource);
/* Resolves a host name with getaddrinfo into the result record: 0 / 1. */
KESTRO_API uint32_t Zpand_OsInetGetHostByName(const char *pcName, ST_ZOS_INET_ADDRS *pstAddrs);
/* Puts the byte-order, descriptor-set, IPv4 text and local-address
 * operations into the platform table slots 49-61, which the standard fill
 * leaves empty, for a build that wants them: 0 / 1 (no table). */
KESTRO_API uint32_t Zpand_InetOsdepInstall(void);

/* Threads. Priorities are the layer's levels (1 highest, 4 middle, 8
 * low). The thread is detached; both outputs receive its identity. */
KESTRO_API uint32_t Zpand_TaskSpawn(const char *pcName, uint32_t uiPriority, uint32_t uiStackSize,
                                    PFN_ZPAND_TASK_ENTRY pfnEntry, uintptr_t zArg,
                                    uintptr_t *pzThread, uintptr_t *pzHandle);
/* With the forced flag clear it does nothing; a thread cannot be killed
 * from outside on this platform, so a forced delete fails. */
KESTRO_API uint32_t Zpand_TaskDelete(uintptr_t zHandle, uint32_t uiForced);
/* Sleeps ms, but 15 ms less for 16 ms or more (scheduling allowance). */
KESTRO_API uint32_t Zpand_TaskDelay(uint32_t uiMs);
/* Thread-exit hook: releases what the platform attached to the thread. */
KESTRO_API void Zpand_TaskExit(uintptr_t zHandle, uintptr_t zWord);
/* 1 when the caller is that thread. */
KESTRO_API uint32_t Zpand_TaskIsCurrent(uintptr_t zThread);
/* 1 when the caller is the host's main thread (the one that attached the
 * environment on a host without a looper). */
KESTRO_API uint32_t Zpand_TaskIsMainThread(void);
/* The scheduling priority a layer level maps to, given the policy's
 * minimum and maximum (exported for tests). */
KESTRO_API int32_t Zpand_TaskMapPriority(uint32_t uiPriority, int32_t iMin, int32_t iMax);

/* Host facts, read straight from the system (no table slot): they seed
 * the node of the UUIDs. Every field is 32 bits wide whatever the
 * platform's word size. The memory counts are in units of uiMemUnit bytes:
 * where one would not fit, all of them are halved and the unit doubled
 * until they do, as a 32-bit kernel does. Other values that do not fit
 * are truncated. */
typedef struct tagZPAND_SYS_INFO {
    uint32_t uiUptime; /* seconds since boot */
    uint32_t auiLoads[3];
    uint32_t uiTotalRam; /* in units of uiMemUnit bytes */
    uint32_t uiFreeRam;
    uint32_t uiSharedRam;
    uint32_t uiBufferRam;
    uint32_t uiTotalSwap;
    uint32_t uiFreeSwap;
    uint32_t uiProcs;
    uint32_t uiTotalHigh;
    uint32_t uiFreeHigh;
    uint32_t uiMemUnit;
    uint32_t auiSpare[2];
} ST_ZPAND_SYS_INFO;

KESTRO_API uint32_t Zpand_GetSysInfo(ST_ZPAND_SYS_INFO *pstInfo);
/* The host name, NUL-terminated and cut to fit uiSize. */
KESTRO_API uint32_t Zpand_GetHostName(char *pcName, uint32_t uiSize);

/* Processor features the codecs may use, as a mask of ZPAND_CPU_* bits:
 * detected once, then ANDed with the KESTRO_CPU_MASK environment variable
 * when it is set (0 turns every accelerated path off). */
#define ZPAND_CPU_CLMUL 0x1u /* carry-less multiplication (x86 PCLMULQDQ) */
#define ZPAND_CPU_SHA1 0x2u  /* SHA-1 instructions (x86 SHA extensions) */
#define ZPAND_CPU_SSSE3 0x4u /* x86 SSSE3 vector instructions */
#define ZPAND_CPU_BMI2 0x8u  /* x86 bit manipulation (BMI1 and BMI2) */
KESTRO_API uint32_t Zpand_CpuFeatures(void);

/* Message drive of the host's loop. The pipe is watched by the looper of
 * the thread that calls Zpand_UiEvntInit (Zpand_SetupPipe is the same
 * call): 0, or 1 when the pipe, the looper or the registration failed.
 * A pipe record is two words, the argument and then the function; any
 * thread may post one, and the functions run on the looper's thread one
 * after another in the order written. */
typedef void (*PFN_ZPAND_UI_FUNC)(uintptr_t zArg);
KESTRO_API uint32_t Zpand_UiEvntInit(void);
KESTRO_API uint32_t Zpand_SetupPipe(void);
/* Writes one record: always 0 (a short write is logged). */
KESTRO_API uint32_t Zpand_UiProcEvnt(uintptr_t zArg, PFN_ZPAND_UI_FUNC pfnFunc);
KESTRO_API uint32_t Zpand_PostMessage(uintptr_t zArg, PFN_ZPAND_UI_FUNC pfnFunc);
/* The looper callback: runs every whole record waiting; always 1. */
KESTRO_API int Zpand_MsgPipeCb(int iFd, int iEvents, void *pData);
/* The looper of the thread that set up the pipe (null before). */
KESTRO_API void *Zpand_UiThreadId(void);
/* Asks the host loop for one call of Zos_ModDriveMsg: through the
 * installed function when there is one, else through the Java side;
 * 1 when neither can be had. */
KESTRO_API uint32_t Zpand_ModPostDrv(void);

/* HTTP bridge on the Java class ZpandHttp, one object per connection (a
 * global reference; null when the machine or the class is missing).
 * Texts are UTF-8. Get body returns a block from the C library's malloc,
 * released with free. Without a Java environment the operations fail:
 * 1, or null for open and get body. */
KESTRO_API void *Zpand_HttpOpen(int32_t iId, const char *pcUrl, const void *pOption1,
                                const void *pOption2);
KESTRO_API void Zpand_HttpClose(void *pObj);
KESTRO_API uint32_t Zpand_HttpConn(void *pObj);
KESTRO_API uint32_t Zpand_HttpDisconn(void *pObj);
KESTRO_API uint32_t Zpand_HttpSetProp(void *pObj, const char *pcName, const char *pcValue);
KESTRO_API uint32_t Zpand_HttpSetCfg(void *pObj, const char *pcName, const char *pcValue);
KESTRO_API uint32_t Zpand_HttpSetBody(void *pObj, const char *pcText1, const char *pcText2);
KESTRO_API uint32_t Zpand_HttpSetFile(void *pObj, const char *pcText1, const char *pcText2);
KESTRO_API char *Zpand_HttpGetBody(void *pObj);
/* Puts the nine functions above into the platform table slots 107-115,
 * which the standard fill leaves empty: 0 / 1 (no table). */
KESTRO_API uint32_t Zpand_HttpOsdepInstall(void);
KESTRO_API void Zpand_ModSetPostDrv(uint32_t (*pfnPostDrv)(void));
KESTRO_API uint32_t (*Zpand_ModGetPostDrv(void))(void);

/* The Android log (tag "ZOS"); priorities as Android's: 3 debug, 6 error.
 * Off Android the lines go to a ring of the last 4 KiB that
 * Zpand_AndroidLogRecent copies out ("D/ZOS: text\n" per line, NUL
 * ended, cut to fit); it returns the length copied. */
KESTRO_API void Zpand_AndroidLog(uint32_t uiPriority, const char *pcText);
KESTRO_API uint32_t Zpand_AndroidLogRecent(char *pcBuf, uint32_t uiSize);

ZOS_END_DECLS

#endif /* ZPAND_H */
