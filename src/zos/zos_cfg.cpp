// Configuration store: the record, its defaults and its getters and
// setters, generated from the setting lists of zos_cfg.h.
#include <cstring>

#include "zos_cfg_rec.h"
#include "zos_log.h"
#include "zos_mem.h"
#include "zos_sys.h"

extern "C" {

const ST_ZOS_BKT_INFO m_astZosCfgMemBktInfoGrp[13] = {
    {32, 0, 64},   {64, 0, 32},   {128, 0, 16}, {256, 0, 8},  {512, 0, 4},
    {1024, 0, 4},  {2048, 0, 4},  {4096, 0, 2}, {5120, 0, 2}, {8192, 0, 1},
    {16384, 0, 1}, {32768, 0, 1}, {65536, 0, 1}};

const ST_ZOS_BKT_INFO m_astZosCfgDbufBktInfoGrp[12] = {
    {36, 10, 4},  {128, 0, 2},  {256, 0, 4},  {512, 0, 4},   {1024, 0, 4},  {2048, 0, 2},
    {4096, 0, 2}, {5120, 0, 2}, {8192, 0, 1}, {16384, 0, 1}, {32768, 0, 1}, {65536, 0, 1}};

const ST_ZOS_BKT_INFO m_astZosCfgPMemBktInfoGrp[9] = {{256, 0, 2},   {512, 0, 4},   {1024, 0, 4},
                                                      {2048, 0, 2},  {4096, 0, 2},  {8192, 0, 1},
                                                      {16384, 0, 1}, {32768, 0, 1}, {65536, 0, 1}};

const ST_ZOS_BKT_INFO m_astZosPrintBktInfoGrp[7] = {
    {32, 0, 2}, {64, 0, 2}, {128, 0, 2}, {256, 0, 2}, {1024, 0, 2}, {4096, 0, 2}, {8192, 0, 1}};

}  // extern "C"

namespace {

ST_ZOS_CFG *Cfg() {
    return Zos_CfgLocate();
}

// Length of the base name of a path: the part after its last '/'.
const char *BaseName(const char *path) {
    const char *slash = std::strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

void CopyText(char *dst, const char *src) {
    const size_t len = src != nullptr ? strnlen(src, ZOS_CFG_TEXT_SIZE - 1) : 0;
    if (len != 0) std::memmove(dst, src, len);
    dst[len] = '\0';
}

}  // namespace

extern "C" {

KESTRO_API ST_ZOS_CFG *Zos_CfgLocate(void) {
    void *cfg = nullptr;
    if (Zos_SysCfgLocate(ZOS_COMP_ZOS, &cfg) == ZOK) return static_cast<ST_ZOS_CFG *>(cfg);
    if (Zos_SysCfgAttach(ZOS_COMP_ZOS, sizeof(ST_ZOS_CFG), Zos_CfgInit, nullptr, &cfg) != ZOK) {
        return nullptr;
    }
    return static_cast<ST_ZOS_CFG *>(cfg);
}

KESTRO_API uint32_t Zos_CfgInit(void *pCfg) {
    if (pCfg == nullptr) return ZFAILED;
    auto *cfg = static_cast<ST_ZOS_CFG *>(pCfg);
#define ZOS_CFG_DEFAULT(name, type, def, fb) cfg->name = static_cast<type>(def);
    ZOS_CFG_FLAGS(ZOS_CFG_DEFAULT)
    ZOS_CFG_VALUES_A(ZOS_CFG_DEFAULT)
    ZOS_CFG_VALUES_B(ZOS_CFG_DEFAULT)
    ZOS_CFG_RULED_A(ZOS_CFG_DEFAULT)
    ZOS_CFG_VALUES_C(ZOS_CFG_DEFAULT)
    ZOS_CFG_RULED_B(ZOS_CFG_DEFAULT)
    ZOS_CFG_VALUES_D(ZOS_CFG_DEFAULT)
#undef ZOS_CFG_DEFAULT
    cfg->MemPool = {"zos memory", m_astZosCfgMemBktInfoGrp, nullptr, nullptr, 1, 1, 1, 13};
    cfg->DbufPool = {"zos dbuf", m_astZosCfgDbufBktInfoGrp, nullptr, nullptr, 1, 1, 1, 12};
    cfg->PMemPool = {
        "zos power memory", m_astZosCfgPMemBktInfoGrp, Zos_Malloc, Zos_Free, 1, 1, 1, 9};
    cfg->LogDir[0] = '\0';
    CopyText(cfg->LogFile, "zos.log");
    return ZOK;
}

// Getters of every plain setting, and setters of those without rules.
#define ZOS_CFG_GETTER(name, type, def, fb)                        \
    KESTRO_API type Zos_CfgGet##name(void) {                       \
        const ST_ZOS_CFG *cfg = Cfg();                             \
        return cfg != nullptr ? cfg->name : static_cast<type>(fb); \
    }
#define ZOS_CFG_SETTER(name, type, def, fb)            \
    KESTRO_API uint32_t Zos_CfgSet##name(type value) { \
        ST_ZOS_CFG *cfg = Cfg();                       \
        if (cfg == nullptr) return ZFAILED;            \
        cfg->name = value;                             \
        return ZOK;                                    \
    }
#define ZOS_CFG_FLAG_SETTER(name, type, def, fb)           \
    KESTRO_API uint32_t Zos_CfgSet##name(uint32_t value) { \
        ST_ZOS_CFG *cfg = Cfg();                           \
        if (cfg == nullptr) return ZFAILED;                \
        cfg->name = value != 0 ? 1 : 0;                    \
        return ZOK;                                        \
    }
#define ZOS_CFG_POOL_ACCESS(name)                                         \
    KESTRO_API ST_ZOS_POOL_CFG *Zos_CfgGet##name(void) {                  \
        ST_ZOS_CFG *cfg = Cfg();                                          \
        return cfg != nullptr ? &cfg->name : nullptr;                     \
    }                                                                     \
    KESTRO_API uint32_t Zos_CfgSet##name(const ST_ZOS_POOL_CFG *pstCfg) { \
        ST_ZOS_CFG *cfg = Cfg();                                          \
        if (cfg == nullptr || pstCfg == nullptr) return ZFAILED;          \
        cfg->name = *pstCfg;                                              \
        return ZOK;                                                       \
    }

ZOS_CFG_FLAGS(ZOS_CFG_GETTER)
ZOS_CFG_FLAGS(ZOS_CFG_FLAG_SETTER)
ZOS_CFG_VALUES_A(ZOS_CFG_GETTER)
ZOS_CFG_VALUES_A(ZOS_CFG_SETTER)
ZOS_CFG_POOLS(ZOS_CFG_POOL_ACCESS)
ZOS_CFG_VALUES_B(ZOS_CFG_GETTER)
ZOS_CFG_VALUES_B(ZOS_CFG_SETTER)
ZOS_CFG_RULED_A(ZOS_CFG_GETTER)
ZOS_CFG_VALUES_C(ZOS_CFG_GETTER)
ZOS_CFG_VALUES_C(ZOS_CFG_SETTER)
ZOS_CFG_RULED_B(ZOS_CFG_GETTER)
ZOS_CFG_VALUES_D(ZOS_CFG_GETTER)
ZOS_CFG_VALUES_D(ZOS_CFG_SETTER)

#undef ZOS_CFG_GETTER
#undef ZOS_CFG_SETTER
#undef ZOS_CFG_FLAG_SETTER
#undef ZOS_CFG_POOL_ACCESS

// Setters with rules of their own.

KESTRO_API uint32_t Zos_CfgSetLogTaskCycleTimeLen(uint32_t value) {
    ST_ZOS_CFG *cfg = Cfg();
    if (cfg == nullptr) return ZFAILED;
    if (value != 0) cfg->LogTaskCycleTimeLen = value;  // 0 is ignored
    return ZOK;
}

KESTRO_API uint32_t Zos_CfgSetLogTaskAlertTimeLen(uint32_t value) {
    ST_ZOS_CFG *cfg = Cfg();
    if (cfg == nullptr) return ZFAILED;
    if (value != 0) cfg->LogTaskAlertTimeLen = value;  // 0 is ignored
    return ZOK;
}

// The new mask takes effect on the system log at once.
KESTRO_API uint32_t Zos_CfgSetLogLevel(uint32_t value) {
    ST_ZOS_CFG *cfg = Cfg();
    if (cfg == nullptr) return ZFAILED;
    cfg->LogLevel = value;
    ZLOGID log = Zos_LogGetZosId();
    if (log != nullptr) {
        Zos_LogClose(log, ZOS_LOG_LEVEL_ALL);
        Zos_LogOpen(log, value);
    }
    return ZOK;
}

KESTRO_API uint32_t Zos_CfgSetLogFileCount(uint32_t value) {
    ST_ZOS_CFG *cfg = Cfg();
    if (cfg == nullptr || value < 2) return ZFAILED;
    cfg->LogFileCount = value;
    return ZOK;
}

KESTRO_API const char *Zos_CfgGetLogDir(void) {
    const ST_ZOS_CFG *cfg = Cfg();
    return cfg != nullptr ? cfg->LogDir : "";
}

KESTRO_API const char *Zos_CfgGetLogFile(void) {
    const ST_ZOS_CFG *cfg = Cfg();
    return cfg != nullptr ? cfg->LogFile : nullptr;
}

KESTRO_API uint32_t Zos_CfgSetLogFile(const char *pcFile) {
    ST_ZOS_CFG *cfg = Cfg();
    if (cfg == nullptr) return ZFAILED;
    CopyText(cfg->LogFile, pcFile);
    return ZOK;
}

KESTRO_API uint32_t Zos_CfgSetLogDir(const char *pcDir) {
    ST_ZOS_CFG *cfg = Cfg();
    if (cfg == nullptr) return ZFAILED;
    const char *dir = pcDir != nullptr ? pcDir : "";
    const size_t dirLen = std::strlen(dir);
    // The base name is copied out first: LogFile is rewritten below.
    char base[ZOS_CFG_TEXT_SIZE];
    CopyText(base, BaseName(cfg->LogFile));
    const size_t baseLen = std::strlen(base);
    if (dirLen + baseLen > 510) return ZFAILED;

    CopyText(cfg->LogDir, dir);
    if (baseLen == 0) CopyText(base, "zos.log");
    char file[ZOS_CFG_TEXT_SIZE + 8];
    size_t n = 0;
    std::memcpy(file, dir, dirLen);
    n = dirLen;
    if (dirLen != 0 && dir[dirLen - 1] != '/') file[n++] = '/';
    std::strcpy(file + n, base);
    CopyText(cfg->LogFile, file);
    return ZOK;
}

}  // extern "C"
