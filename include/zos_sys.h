/*
 * System frame: start-up and shut-down of the layer, the platform holder,
 * the platform table, the component table and the environment record.
 */
#ifndef ZOS_SYS_H
#define ZOS_SYS_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

#define ZOS_OSDEP_SLOT_COUNT 116u /* slots of the platform table */
#define ZOS_COMP_COUNT 252u       /* entries of the component table */
#define ZOS_COMP_ZOS 0u           /* the layer itself */
#define ZOS_COMP_RANDOM 7u        /* random-number generator state */

/* Release function of a component's configuration record. */
typedef void (*PFN_ZOS_CFG_RELEASE)(void *pCfg);
/* Initialiser of a configuration record; non-zero means failure. */
typedef uint32_t (*PFN_ZOS_CFG_INIT)(void *pCfg);

/* One entry of the component table. */
typedef struct tagZOS_COMP_ENTRY {
    void *pEnv;
    void *pCfg;
    void *pEvntTbl;
    PFN_ZOS_CFG_RELEASE pfnCfgRelease;
} ST_ZOS_COMP_ENTRY;

/* The platform holder: the platform table and the component table. */
typedef struct tagZOS_OSENV {
    ZOS_OSDEP_FUNC *pfnOsdep;    /* ZOS_OSDEP_SLOT_COUNT slots */
    ST_ZOS_COMP_ENTRY *pstComps; /* ZOS_COMP_COUNT entries */
} ST_ZOS_OSENV;

/* Start-up: 0 on success, 1 on failure (everything started is undone). */
KESTRO_API uint32_t Zos_SysInit(void);
/* Shut-down; does nothing unless the layer was started. It waits for
 * timer calls and timer callbacks still running on other threads; timer
 * calls made after it has begun are refused. Its waits for task threads
 * are bounded: a handler, exit callback, timer callback or task entry
 * still running when they end is left to finish, and so is the one it is
 * called from, which it does not wait for. When such a callback returns,
 * its thread ends without touching the layer again: its task's exit
 * callback is not called and the message it was handling is not deleted.
 * The callback itself must not use the layer by then. */
KESTRO_API void Zos_SysDestroy(void);
/* Prints one start-up progress line with the configured time prefix. */
KESTRO_API void Zos_SysInitPrint(const char *pcText);

/* Environment record of component 0. */
KESTRO_API uint32_t Zos_EnvInit(void);
KESTRO_API void Zos_EnvDestroy(void);
/* The record, created with the platform holder on first use; null if none. */
KESTRO_API void *Zos_EnvLocate(void);
/* Manager records, non-null only while their manager is initialised. */
KESTRO_API void *Zos_EnvLocateLogMgr(void);
KESTRO_API void *Zos_EnvLocateModMgr(void);
KESTRO_API void *Zos_EnvLocateTmrMgr(void);
KESTRO_API void *Zos_EnvLocateOsTmrMgr(void);

/* Component table; an index above 251 fails with 1. */
KESTRO_API uint32_t Zos_SysEnvAttach(uint32_t uiIndex, uint32_t uiSize, void **ppEnv);
KESTRO_API uint32_t Zos_SysEnvDetach(uint32_t uiIndex);
KESTRO_API uint32_t Zos_SysEnvLocate(uint32_t uiIndex, void **ppEnv);
KESTRO_API uint32_t Zos_SysEnvLocateNew(uint32_t uiIndex, void **ppEnv);
KESTRO_API uint32_t Zos_SysCfgAttach(uint32_t uiIndex, uint32_t uiSize, PFN_ZOS_CFG_INIT pfnInit,
                                     PFN_ZOS_CFG_RELEASE pfnRelease, void **ppCfg);
KESTRO_API uint32_t Zos_SysCfgDetach(uint32_t uiIndex);
KESTRO_API uint32_t Zos_SysCfgLocate(uint32_t uiIndex, void **ppCfg);

/* Platform holder and table. */
KESTRO_API uint32_t Zos_OsenvAttach(void);
KESTRO_API void Zos_OsenvDetach(void);
/* The holder, or null when it does not exist (no creation). */
KESTRO_API ST_ZOS_OSENV *Zos_OsenvLocate(void);
/* The holder, created on first use; null when it cannot be had. */
KESTRO_API ST_ZOS_OSENV *Zos_OsenvLocateNew(void);
/* Lets the platform fill the table of the existing holder. */
KESTRO_API uint32_t Zos_OsdepAttach(void);
/* The function in a slot; null for an empty slot, a slot above 115 or no holder. */
KESTRO_API ZOS_OSDEP_FUNC Zos_OsdepFind(uint32_t uiSlot);
/* Zero-filled platform allocation; null on failure. */
KESTRO_API void *Zos_OsdepAlloc(uint32_t uiSize);
KESTRO_API void Zos_OsdepFree(void *pMem);
KESTRO_API uint32_t Zos_OsdepTrace(const char *pcModule, const char *pcFile, uint32_t uiLine);

/* Character classes: 257 entries indexed by character + 1. Bits: 0x01 upper,
 * 0x02 lower, 0x04 digit, 0x08 space, 0x10 punctuation, 0x20 control,
 * 0x40 blank, 0x80 hexadecimal digit; mask 0x57 is printable. */
KESTRO_API extern const uint8_t g_aucZosCtype[257];
KESTRO_API const uint8_t *Zos_GetZosCType(void);

/* Seconds since the epoch of a build date "Mmm dd yyyy" and time
 * "hh:mm:ss" in local time; 0 on any failure. */
KESTRO_API int64_t Zos_BuildTime(const char *pcDate, const char *pcTime);

/* The library's version text. */
KESTRO_API const char *Kestro_GetVersion(void);

ZOS_END_DECLS

#endif /* ZOS_SYS_H */
