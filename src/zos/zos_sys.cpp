// System frame: the platform holder, the platform and component tables,
// the environment record, and the start-up and shut-down sequences.
#include <atomic>
#include <cstring>

#include "zos_cfg_rec.h"
#include "zos_dbuf.h"
#include "zos_dump.h"
#include "zos_env.h"
#include "zos_fmt.h"
#include "zos_http.h"
#include "zos_log_int.h"
#include "zos_logtask.h"
#include "zos_mem.h"
#include "zos_mod.h"
#include "zos_osdep.h"
#include "zos_pmem.h"
#include "zos_print.h"
#include "zos_time.h"
#include "zos_timer.h"
#include "zos_trace.h"
#include "zos_util.h"

namespace {

// First slots copied from the platform's record into the table: record
// slots 0-46 to table slots 0-46 and record slots 59-71 to table slots
// 94-106. Record slots 47-58 (byte order and descriptor sets) stay out.
constexpr uint32_t kCopyLowCount = 47;
constexpr uint32_t kCopyHighFrom = 59;
constexpr uint32_t kCopyHighTo = 94;
constexpr uint32_t kCopyHighCount = ZPAND_OSDEP_SLOTS - kCopyHighFrom;

// The holder as the platform keeps it; non-null only once fully built.
ST_ZOS_OSENV *RawHolder() {
    return static_cast<ST_ZOS_OSENV *>(Zpand_OsenvLocate());
}

ST_ZOS_COMP_ENTRY *Comp(uint32_t index) {
    if (index >= ZOS_COMP_COUNT) return nullptr;
    ST_ZOS_OSENV *holder = Zos_OsenvLocate();
    return holder != nullptr ? &holder->pstComps[index] : nullptr;
}

ST_ZOS_COMP_ENTRY *CompNew(uint32_t index) {
    if (index >= ZOS_COMP_COUNT) return nullptr;
    ST_ZOS_OSENV *holder = Zos_OsenvLocateNew();
    return holder != nullptr ? &holder->pstComps[index] : nullptr;
}

// One start-up step: the subsystem's init and the lines it prints.
struct InitStep {
    uint32_t (*init)();
    const char *okText;
    const char *failText;
};

// clang-format off: one step per line keeps the order easy to read and edit.
constexpr InitStep kInitSteps[] = {
    {Zos_TimeInit, "time init ok.", "init time fail!\r\n"},
    {Zos_PrintInit, "print init ok.", "init print fail!\r\n"},
    {Zos_LogInit, "log init ok.", "init log fail!\r\n"},
    {Zos_MemInit, "memory init ok.", "init memory fail!\r\n"},
    {Zos_DumpInit, "dump init ok.", "init dump fail!\r\n"},
    {Zos_TraceInit, "trace init ok.", "init trace fail!\r\n"},
    {Zos_DbufInit, "dbuf init ok.", "init dbuf fail!\r\n"},
    {Zos_PMemInit, "pmem init ok.", "init pmem fail!\r\n"},
    {Zos_ModInit, "module init ok.", "init module fail!\r\n"},
    {Zos_TimerInit, "timer init ok.", "init timer fail!\r\n"},
    // The log task's failure prints the log's text on purpose.
    {Zos_LogTaskStart, "log start ok.", "init log fail!\r\n"},
    {Zos_HttpInit, "http start ok.", "init http fail!\r\n"},
};
// clang-format on

// One shut-down step; a null destroy only prints its line.
struct DestroyStep {
    void (*destroy)();
    const char *okText;
};

// clang-format off
constexpr DestroyStep kDestroySteps[] = {
    {Zos_TimerDestroy, "timer destroy ok."},
    {Zos_LogTaskStop, "log task stop ok."},
    {Zos_ModDestroy, "module destroy ok."},
    {Zos_HttpDestroy, "http destory ok."},
    // Timers again on purpose: the steps in between may have made some.
    {Zos_TimerDestroy, "timer destroy ok."},
    {Zos_TimeDestroy, "time destroy ok."},
    {Zos_PMemDestroy, "pmem destroy ok."},
    {Zos_DbufDestroy, "dbuf destroy ok."},
    {Zos_TraceDestroy, "trace destroy ok."},
    {Zos_DumpDestroy, "dump destroy ok."},
    {Zos_LogDestroy, "log destroy ok."},
    {Zos_PrintDestroy, "print destroy ok."},
    {Zos_MemDestroy, "memory destroy ok."},
    {nullptr, "system destroy ok."},
};
// clang-format on

// Month number of a three-letter English month name, 0 if none.
uint32_t MonthOf(const char *s) {
    static constexpr const char kMonths[12][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                  "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    if (s[0] < 'A' || s[0] > 'S') return 0;
    for (uint32_t i = 0; i < 12; ++i) {
        if (s[0] == kMonths[i][0] && s[1] == kMonths[i][1] && s[2] == kMonths[i][2]) return i + 1;
    }
    return 0;
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Two digits at s; false unless both are digits.
bool TwoDigits(const char *s, uint32_t *out) {
    if (!IsDigit(s[0]) || !IsDigit(s[1])) return false;
    *out = static_cast<uint32_t>(s[0] - '0') * 10u + static_cast<uint32_t>(s[1] - '0');
    return true;
}

}  // namespace

extern "C" {

// ---------------------------------------------------------------------
// Platform holder and table

KESTRO_API ST_ZOS_OSENV *Zos_OsenvLocate(void) {
    ST_ZOS_OSENV *holder = RawHolder();
    if (holder == nullptr || holder->pfnOsdep == nullptr || holder->pstComps == nullptr) {
        return nullptr;
    }
    return holder;
}

KESTRO_API ST_ZOS_OSENV *Zos_OsenvLocateNew(void) {
    ST_ZOS_OSENV *holder = Zos_OsenvLocate();
    if (holder != nullptr) return holder;
    return Zos_OsenvAttach() == ZOK ? Zos_OsenvLocate() : nullptr;
}

KESTRO_API uint32_t Zos_OsenvAttach(void) {
    void *mgr = nullptr;
    if (Zpand_OsenvAttach(sizeof(ST_ZOS_OSENV), &mgr) != ZOK || mgr == nullptr) return ZFAILED;
    auto *holder = static_cast<ST_ZOS_OSENV *>(mgr);
    std::memset(holder, 0, sizeof(*holder));
    holder->pstComps = static_cast<ST_ZOS_COMP_ENTRY *>(
        Zos_OsdepAlloc(ZOS_COMP_COUNT * sizeof(ST_ZOS_COMP_ENTRY)));
    holder->pfnOsdep = static_cast<ZOS_OSDEP_FUNC *>(
        Zos_OsdepAlloc(ZOS_OSDEP_SLOT_COUNT * sizeof(ZOS_OSDEP_FUNC)));
    if (holder->pstComps == nullptr || holder->pfnOsdep == nullptr || Zos_OsdepAttach() != ZOK ||
        Zos_EnvInit() != ZOK) {
        Zos_OsenvDetach();
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API void Zos_OsenvDetach(void) {
    ST_ZOS_OSENV *holder = RawHolder();
    if (holder == nullptr) return;
    if (holder->pstComps != nullptr) {
        // The configuration release functions are not called here: the
        // records go with the holder as plain memory.
        for (uint32_t i = 0; i < ZOS_COMP_COUNT; ++i) {
            ST_ZOS_COMP_ENTRY &e = holder->pstComps[i];
            Zos_OsdepFree(e.pEnv);
            Zos_OsdepFree(e.pCfg);
            Zos_OsdepFree(e.pEvntTbl);
        }
        Zos_OsdepFree(holder->pstComps);
    }
    Zos_OsdepFree(reinterpret_cast<void *>(holder->pfnOsdep));
    std::memset(holder, 0, sizeof(*holder));
    Zpand_OsenvDetach();
}

KESTRO_API uint32_t Zos_OsdepAttach(void) {
    ST_ZOS_OSENV *holder = RawHolder();
    if (holder == nullptr || holder->pfnOsdep == nullptr) return ZFAILED;
    ZOS_OSDEP_FUNC record[ZPAND_OSDEP_SLOTS] = {};
    if (Zpand_OsdepAttach(record) != ZOK) return ZFAILED;
    ZOS_OSDEP_FUNC *table = holder->pfnOsdep;
    for (uint32_t i = 0; i < kCopyLowCount; ++i) table[i] = record[i];
    for (uint32_t i = 0; i < kCopyHighCount; ++i) {
        table[kCopyHighTo + i] = record[kCopyHighFrom + i];
    }
    return ZOK;
}

KESTRO_API ZOS_OSDEP_FUNC Zos_OsdepFind(uint32_t uiSlot) {
    if (uiSlot >= ZOS_OSDEP_SLOT_COUNT) return nullptr;
    ST_ZOS_OSENV *holder = Zos_OsenvLocateNew();
    return holder != nullptr ? zos::SlotIn(holder, uiSlot) : nullptr;
}

// The bootstrap allocator: the holder's own tables are made before any
// slot exists, so these go to the platform heap directly.
KESTRO_API void *Zos_OsdepAlloc(uint32_t uiSize) {
    if (uiSize == 0) return nullptr;
    void *p = Zpand_Malloc(uiSize);
    if (p != nullptr) std::memset(p, 0, uiSize);
    return p;
}

KESTRO_API void Zos_OsdepFree(void *pMem) {
    if (pMem != nullptr) Zpand_Free(pMem);
}

KESTRO_API uint32_t Zos_OsdepTrace(const char *pcModule, const char *pcFile, uint32_t uiLine) {
    Zpand_Trace(pcModule, pcFile, uiLine);
    return ZOK;
}

// ---------------------------------------------------------------------
// Component table

KESTRO_API uint32_t Zos_SysEnvAttach(uint32_t uiIndex, uint32_t uiSize, void **ppEnv) {
    if (ppEnv != nullptr) *ppEnv = nullptr;
    ST_ZOS_COMP_ENTRY *e = Comp(uiIndex);
    if (e == nullptr || e->pEnv != nullptr) return ZFAILED;
    e->pEnv = Zos_OsdepAlloc(uiSize);
    if (e->pEnv == nullptr) return ZFAILED;
    if (ppEnv != nullptr) *ppEnv = e->pEnv;
    return ZOK;
}

KESTRO_API uint32_t Zos_SysEnvDetach(uint32_t uiIndex) {
    ST_ZOS_COMP_ENTRY *e = Comp(uiIndex);
    if (e == nullptr) return ZFAILED;
    Zos_OsdepFree(e->pEnv);
    e->pEnv = nullptr;
    return ZOK;
}

KESTRO_API uint32_t Zos_SysEnvLocate(uint32_t uiIndex, void **ppEnv) {
    if (ppEnv != nullptr) *ppEnv = nullptr;
    ST_ZOS_COMP_ENTRY *e = Comp(uiIndex);
    if (e == nullptr || e->pEnv == nullptr) return ZFAILED;
    if (ppEnv != nullptr) *ppEnv = e->pEnv;
    return ZOK;
}

KESTRO_API uint32_t Zos_SysEnvLocateNew(uint32_t uiIndex, void **ppEnv) {
    if (ppEnv != nullptr) *ppEnv = nullptr;
    ST_ZOS_COMP_ENTRY *e = CompNew(uiIndex);
    if (e == nullptr || e->pEnv == nullptr) return ZFAILED;
    if (ppEnv != nullptr) *ppEnv = e->pEnv;
    return ZOK;
}

KESTRO_API uint32_t Zos_SysCfgAttach(uint32_t uiIndex, uint32_t uiSize, PFN_ZOS_CFG_INIT pfnInit,
                                     PFN_ZOS_CFG_RELEASE pfnRelease, void **ppCfg) {
    if (ppCfg != nullptr) *ppCfg = nullptr;
    ST_ZOS_COMP_ENTRY *e = Comp(uiIndex);
    if (e == nullptr || e->pCfg != nullptr) return ZFAILED;
    e->pCfg = Zos_OsdepAlloc(uiSize);
    if (e->pCfg == nullptr) return ZFAILED;
    if (pfnInit != nullptr && pfnInit(e->pCfg) != ZOK) {
        ZOS_LOG_ERR("SysCfgAttach init config.");
        Zos_OsdepFree(e->pCfg);
        e->pCfg = nullptr;
        return ZFAILED;
    }
    e->pfnCfgRelease = pfnRelease;
    if (ppCfg != nullptr) *ppCfg = e->pCfg;
    return ZOK;
}

KESTRO_API uint32_t Zos_SysCfgDetach(uint32_t uiIndex) {
    ST_ZOS_COMP_ENTRY *e = Comp(uiIndex);
    if (e == nullptr) return ZFAILED;
    if (e->pfnCfgRelease != nullptr && e->pCfg != nullptr) e->pfnCfgRelease(e->pCfg);
    Zos_OsdepFree(e->pCfg);
    e->pCfg = nullptr;
    e->pfnCfgRelease = nullptr;
    return ZOK;
}

KESTRO_API uint32_t Zos_SysCfgLocate(uint32_t uiIndex, void **ppCfg) {
    if (ppCfg != nullptr) *ppCfg = nullptr;
    ST_ZOS_COMP_ENTRY *e = CompNew(uiIndex);
    if (e == nullptr || e->pCfg == nullptr) return ZFAILED;
    if (ppCfg != nullptr) *ppCfg = e->pCfg;
    return ZOK;
}

// ---------------------------------------------------------------------
// Environment record

KESTRO_API uint32_t Zos_EnvInit(void) {
    void *env = nullptr;
    return Zos_SysEnvAttach(ZOS_COMP_ZOS, sizeof(ZosEnv), &env);
}

KESTRO_API void Zos_EnvDestroy(void) {
    Zos_SysEnvDetach(ZOS_COMP_ZOS);
}

KESTRO_API void *Zos_EnvLocate(void) {
    void *env = nullptr;
    return Zos_SysEnvLocateNew(ZOS_COMP_ZOS, &env) == ZOK ? env : nullptr;
}

KESTRO_API void *Zos_EnvLocateLogMgr(void) {
    ZosEnv *env = zos::EnvIfAny();
    return env != nullptr && env->stLogMgr.ucInit != 0 ? &env->stLogMgr : nullptr;
}

KESTRO_API void *Zos_EnvLocateModMgr(void) {
    ZosEnv *env = zos::EnvIfAny();
    return env != nullptr && env->stModMgr.ucInit != 0 ? &env->stModMgr : nullptr;
}

KESTRO_API void *Zos_EnvLocateTmrMgr(void) {
    ZosEnv *env = zos::EnvIfAny();
    return env != nullptr && std::atomic_ref<uint8_t>(env->stTmrMgr.ucInit).load() != 0
               ? &env->stTmrMgr
               : nullptr;
}

KESTRO_API void *Zos_EnvLocateOsTmrMgr(void) {
    ZosEnv *env = zos::EnvIfAny();
    return env != nullptr && std::atomic_ref<uint8_t>(env->stOsTmrMgr.ucInit).load() != 0
               ? &env->stOsTmrMgr
               : nullptr;
}

// ---------------------------------------------------------------------
// Start-up and shut-down

KESTRO_API void Zos_SysInitPrint(const char *pcText) {
    void *p = nullptr;
    if (Zos_SysCfgLocate(ZOS_COMP_ZOS, &p) != ZOK) return;
    const ST_ZOS_CFG *cfg = static_cast<const ST_ZOS_CFG *>(p);
    if (cfg->LogPrint == 0 || (cfg->LogLevel & ZOS_LOG_LEVEL_INFO) == 0) return;

    ST_ZOS_SYS_TIME t{};
    zos::LogStampTime(cfg->LogDispTimeInMs != 0, &t);
    const int yy = t.wYear % 2000;
    const long ms = static_cast<long>(t.uiMillisecond);
    const bool date = cfg->LogDispDateSupt != 0;
    const bool time = cfg->LogDispTimeSupt != 0;
    const bool inMs = cfg->LogDispTimeInMs != 0;
    if (!date && !time) {
        Zos_Printf("ZOS: INFO: %s\n", pcText);
    } else if (!date && inMs) {
        Zos_Printf("%02d:%02d:%02d.%03ld ZOS: INFO: %s\n", t.ucHour, t.ucMinute, t.ucSecond, ms,
                   pcText);
    } else if (!date) {
        Zos_Printf("%02d:%02d:%02d ZOS: INFO: %s\n", t.ucHour, t.ucMinute, t.ucSecond, pcText);
    } else if (!time) {
        Zos_Printf("%02d-%02d-%02d ZOS: INFO: %s\n", yy, t.ucMonth, t.ucDay, pcText);
    } else if (inMs) {
        Zos_Printf("%02d-%02d-%02d %02d:%02d:%02d.%03ld ZOS: INFO: %s\n", yy, t.ucMonth, t.ucDay,
                   t.ucHour, t.ucMinute, t.ucSecond, ms, pcText);
    } else {
        Zos_Printf("%02d-%02d-%02d %02d:%02d:%02d ZOS: INFO: %s\n", yy, t.ucMonth, t.ucDay,
                   t.ucHour, t.ucMinute, t.ucSecond, pcText);
    }
}

KESTRO_API uint32_t Zos_SysInit(void) {
    ZosEnv *env = zos::Env();
    if (env == nullptr) return ZFAILED;
    if (env->ucSysInit != 0) return ZOK;
    if (Zos_CfgLocate() == nullptr) return ZFAILED;
    env->ucSysInit++;

    for (const InitStep &step : kInitSteps) {
        if (step.init() != ZOK) {
            Zos_Printf("%s", step.failText);
            Zos_SysDestroy();
            return ZFAILED;
        }
        Zos_SysInitPrint(step.okText);
    }
    Zos_LogInfo(Zos_LogGetZosId(), "kestro_lite system %s init ok.",
                Zos_SysTime2Str(nullptr, nullptr));
    return ZOK;
}

KESTRO_API void Zos_SysDestroy(void) {
    ZosEnv *env = zos::EnvIfAny();
    if (env == nullptr || env->ucSysInit == 0) return;
    for (const DestroyStep &step : kDestroySteps) {
        if (step.destroy != nullptr) step.destroy();
        Zos_SysInitPrint(step.okText);
    }
    env->ucSysInit = 0;
    Zos_OsenvDetach();
}

// ---------------------------------------------------------------------
// Build time and version

KESTRO_API int64_t Zos_BuildTime(const char *pcDate, const char *pcTime) {
    if (pcDate == nullptr || pcTime == nullptr) return 0;
    if (std::strlen(pcDate) < 3) return 0;
    ST_ZOS_SYS_TIME t{};
    const uint32_t month = MonthOf(pcDate);
    if (month == 0) return 0;

    // Day at position 4, or 5 when position 4 is a blank; one or two digits.
    const size_t dateLen = std::strlen(pcDate);
    size_t pos = 4;
    if (dateLen > pos && pcDate[pos] == ' ') ++pos;
    if (dateLen <= pos || !IsDigit(pcDate[pos])) return 0;
    uint32_t day = static_cast<uint32_t>(pcDate[pos++] - '0');
    if (pos < dateLen && IsDigit(pcDate[pos])) {
        day = day * 10u + static_cast<uint32_t>(pcDate[pos++] - '0');
    }
    if (day < 1 || day > 31) return 0;

    // Year: four digits after one separator.
    ++pos;
    if (dateLen < pos + 4) return 0;
    uint32_t year = 0;
    for (size_t i = 0; i < 4; ++i) {
        if (!IsDigit(pcDate[pos + i])) return 0;
        year = year * 10u + static_cast<uint32_t>(pcDate[pos + i] - '0');
    }
    if (year < 1970) return 0;

    uint32_t hour = 0, minute = 0, second = 0;
    if (std::strlen(pcTime) < 8 || !TwoDigits(pcTime, &hour) || pcTime[2] != ':' ||
        !TwoDigits(pcTime + 3, &minute) || pcTime[5] != ':' || !TwoDigits(pcTime + 6, &second)) {
        return 0;
    }
    if (hour > 23 || minute > 59 || second > 59) return 0;

    t.wYear = static_cast<uint16_t>(year);
    t.ucMonth = static_cast<uint8_t>(month);
    t.ucDay = static_cast<uint8_t>(day);
    t.ucHour = static_cast<uint8_t>(hour);
    t.ucMinute = static_cast<uint8_t>(minute);
    t.ucSecond = static_cast<uint8_t>(second);
    auto tz = zos::Osdep<zos::kSlotTimeZone>();
    t.iTzOffset = tz != nullptr ? tz() : 0;
    int64_t seconds = 0;
    if (Zos_SysTime2Time(&t, &seconds) != ZOK) return 0;
    return seconds;
}

KESTRO_API const char *Kestro_GetVersion(void) {
    return "9bf537e(160718)";
}

}  // extern "C"
