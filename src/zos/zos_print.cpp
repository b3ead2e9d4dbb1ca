// Print service: lines to the platform console or the print hook, the
// print pool, the output accumulator and the hex dump.
#include <atomic>
#include <cstring>

#include "zos_cfg_rec.h"
#include "zos_env.h"
#include "zos_fmt.h"
#include "zos_mem.h"
#include "zos_osdep.h"
#include "zos_pool.h"
#include "zos_dbuf.h"
#include "zos_print.h"
#include "zos_print_int.h"
#include "zos_util.h"

namespace {

constexpr uint32_t kLineBuf = 4096;
constexpr uint32_t kAllocMax = 0x7FFFFFFEu;
constexpr uint32_t kOutMax = ZOS_PRINT_OUT_SIZE - 1;

// Pool description of the print buffers: locked, no shrinking, faults not
// logged (the log itself allocates from this pool).
const ST_ZOS_POOL_CFG kPrintPoolCfg = {
    "zos print",
    m_astZosPrintBktInfoGrp,
    nullptr,
    nullptr,
    1,
    0,
    0,
    static_cast<uint8_t>(sizeof(m_astZosPrintBktInfoGrp) / sizeof(m_astZosPrintBktInfoGrp[0]))};

uint32_t PlatformPrint(const char *text) {
    auto print = zos::Osdep<zos::kSlotPrint>();
    return print != nullptr ? print(text) : ZOK;
}

// The print pool while the service runs, else null.
ZPOOL PrintPool() {
    ZosEnv *env = zos::EnvIfAny();
    return env != nullptr && env->ucPrintInit != 0 ? env->zPrintPool : nullptr;
}

uint8_t LoadFlag(uint8_t &flag) {
    return std::atomic_ref<uint8_t>(flag).load(std::memory_order_relaxed);
}

void StoreFlag(uint8_t &flag, uint8_t value) {
    std::atomic_ref<uint8_t>(flag).store(value, std::memory_order_relaxed);
}

// Empties the accumulator into its target: the data buffer when one is
// given, else the console.
uint32_t OutFlush(ZDBUF dbuf, char *buf, uint32_t *len) {
    uint32_t rc = ZOK;
    if (*len != 0)
        rc = dbuf != nullptr ? Zos_DbufPstAddMultD(dbuf, buf, *len) : Zos_Printf("%s", buf);
    buf[0] = '\0';
    *len = 0;
    return rc;
}

// Appends n characters with the flushing rule of the accumulator.
uint32_t OutAppend(ZDBUF dbuf, char *buf, uint32_t *len, const char *piece, uint32_t n) {
    if (buf == nullptr || len == nullptr || piece == nullptr || n == 0) return ZFAILED;
    if (*len > kOutMax) *len = kOutMax;  // a corrupted length never writes past the buffer
    // Compared without adding: a length near 2^32 (a failed end - start)
    // must flush too, not wrap to a small sum.
    if (n >= ZOS_PRINT_OUT_SIZE - *len) OutFlush(dbuf, buf, len);
    const uint32_t take = n < kOutMax ? n : kOutMax;
    std::memcpy(buf + *len, piece, take);
    *len += take;
    buf[*len] = '\0';
    return ZOK;
}

bool IsPrintable(uint8_t c) {
    return (g_aucZosCtype[c + 1u] & 0x57u) != 0;
}

}  // namespace

// The hex dump shared by Zos_PrintBuf and the log's buffer writers.
void zos::HexDump(const uint8_t *data, uint32_t len, HexSink sink, void *arg) {
    char piece[64];
    // The bounded formatter never writes past the piece; the length handed
    // on is kept within it as well.
    auto emit = [&](uint32_t n) { sink(arg, piece, n < sizeof(piece) ? n : sizeof(piece) - 1); };
    emit(Zos_SNPrintf(piece, sizeof(piece), "\r\ndata length: %d\r\ndata content:\r\n",
                      static_cast<int>(len)));
    sink(arg, "     ", 5);
    char chars[16 * 2];
    uint32_t charLen = 0;
    for (uint32_t i = 0; i < len; ++i) {
        const uint8_t c = data[i];
        emit(Zos_SNPrintf(piece, sizeof(piece), "%02x ", static_cast<unsigned>(c)));
        // '%' is doubled: the dump is printed through a format later.
        if (c == '%') {
            chars[charLen++] = '%';
            chars[charLen++] = '%';
        } else {
            chars[charLen++] = IsPrintable(c) ? static_cast<char>(c) : '.';
        }
        if (i % 16 == 15) {
            sink(arg, chars, charLen);
            sink(arg, "\n     ", 6);
            charLen = 0;
        }
    }
    if (len % 16 != 0) {
        for (uint32_t i = len % 16; i < 16; ++i) sink(arg, "   ", 3);
        sink(arg, chars, charLen);
    }
    sink(arg, "\n", 1);
}

extern "C" {

KESTRO_API uint32_t Zos_PrintInit(void) {
    ZosEnv *env = zos::Env();
    if (env == nullptr) return ZFAILED;
    if (env->ucPrintInit != 0) return ZOK;
    ZPOOL pool = Zos_PoolCreate(&kPrintPoolCfg);
    if (pool == nullptr) return ZFAILED;
    if (Zos_MutexCreate(&env->zPrintMutex) != ZOK) {
        Zos_PoolDelete(pool);
        return ZFAILED;
    }
    env->zPrintPool = pool;
    StoreFlag(env->ucPrintOpen, 1);
    env->ucPrintInit++;
    return ZOK;
}

KESTRO_API void Zos_PrintDestroy(void) {
    ZosEnv *env = zos::EnvIfAny();
    if (env == nullptr || env->ucPrintInit == 0) return;
    Zos_MutexDelete(&env->zPrintMutex);
    StoreFlag(env->ucPrintOpen, 0);
    Zos_PoolDelete(env->zPrintPool);
    env->zPrintPool = nullptr;
    env->ucPrintInit = 0;
}

KESTRO_API void Zos_PrintOpen(void) {
    ZosEnv *env = zos::Env();
    if (env != nullptr) StoreFlag(env->ucPrintOpen, 1);
}

KESTRO_API void Zos_PrintClose(void) {
    ZosEnv *env = zos::Env();
    if (env != nullptr) StoreFlag(env->ucPrintOpen, 0);
}

KESTRO_API uint32_t Zos_PrintIsOpen(void) {
    ZosEnv *env = zos::Env();
    return env != nullptr && LoadFlag(env->ucPrintOpen) != 0 ? 1u : 0u;
}

KESTRO_API uint32_t Zos_PrintStrByOs(const char *pcText) {
    return PlatformPrint(pcText);
}

KESTRO_API uint32_t Zos_PrintNull(const char *pcFormat, va_list ap) {
    auto *buf = static_cast<char *>(Zos_HeapAlloc(kLineBuf));
    if (buf == nullptr) {
        PlatformPrint("Zos_PrintNull alloc buffer failed.\r\n");
        return ZFAILED;
    }
    Zos_VSNPrintf(buf, static_cast<int32_t>(kLineBuf), pcFormat, ap);
    const ST_ZOS_CFG *cfg = Zos_CfgLocate();
    if (cfg != nullptr && cfg->PrintDisp != nullptr) {
        cfg->PrintDisp(buf);
    } else {
        PlatformPrint(buf);
    }
    Zos_HeapFree(buf);
    return ZOK;
}

KESTRO_API uint32_t Zos_Printf(const char *pcFormat, ...) {
    ZosEnv *env = zos::Env();
    if (env == nullptr) return ZFAILED;
    va_list ap;
    va_start(ap, pcFormat);
    if (env->ucPrintInit == 0) {
        const uint32_t rc = Zos_PrintNull(pcFormat, ap);
        va_end(ap);
        return rc;
    }
    if (LoadFlag(env->ucPrintOpen) == 0) {
        va_end(ap);
        return ZOK;
    }
    auto *buf = static_cast<char *>(Zos_PoolAlloc(env->zPrintPool, kLineBuf));
    if (buf == nullptr) {
        va_end(ap);
        PlatformPrint("zos print alloc buffer failed.\r\n");
        return ZFAILED;
    }
    const uint32_t n = Zos_VSNPrintf(buf, static_cast<int32_t>(kLineBuf), pcFormat, ap);
    va_end(ap);
    if (n == 0) {
        Zos_PoolFree(env->zPrintPool, buf);
        return ZFAILED;
    }
    const ZOS_PRINT_HOOK hook = Zos_CfgGetPrintDisp();
    if (hook == nullptr) {
        zos::MutexGuard lock(&env->zPrintMutex);
        PlatformPrint(buf);
    } else {
        // The hook runs outside the print mutex and must be safe for
        // concurrent calls.
        hook(buf);
    }
    Zos_PoolFree(env->zPrintPool, buf);
    return ZOK;
}

KESTRO_API void *Zos_PrintAlloc(uint32_t uiSize) {
    if (uiSize == 0 || uiSize > kAllocMax) return nullptr;
    return Zos_PoolAlloc(PrintPool(), uiSize);
}

KESTRO_API void *Zos_PrintAllocClrd(uint32_t uiSize) {
    if (uiSize == 0 || uiSize > kAllocMax) return nullptr;
    return Zos_PoolAllocClrd(PrintPool(), uiSize);
}

KESTRO_API char *Zos_PrintStrAlloc(const char *pcText) {
    if (pcText == nullptr || pcText[0] == '\0') return nullptr;
    const size_t len = strnlen(pcText, kAllocMax);
    if (len >= kAllocMax) return nullptr;
    auto *copy = static_cast<char *>(Zos_PrintAlloc(static_cast<uint32_t>(len) + 1));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy, pcText, len + 1);
    return copy;
}

KESTRO_API char *Zos_PrintStrFAlloc(const char *pcFormat, ...) {
    va_list ap;
    va_start(ap, pcFormat);
    const uint32_t len = Zos_PrintVSize(pcFormat, ap);
    va_end(ap);
    if (len == 0) return nullptr;
    char *text = len < kAllocMax ? static_cast<char *>(Zos_PrintAlloc(len + 1)) : nullptr;
    if (text == nullptr) {
        PlatformPrint("PrintStrFAlloc alloc mem.\r\n");
        return nullptr;
    }
    va_start(ap, pcFormat);
    Zos_VSNPrintf(text, static_cast<int32_t>(len + 1), pcFormat, ap);
    va_end(ap);
    return text;
}

KESTRO_API void Zos_PrintFree(void *pMem) {
    if (pMem != nullptr) Zos_PoolFree(PrintPool(), pMem);
}

KESTRO_API uint32_t Zos_PrintVSize(const char *pcFormat, va_list ap) {
    if (pcFormat == nullptr) return 0;
    va_list copy;
    va_copy(copy, ap);
    const uint32_t n = Zos_Kvprintf(pcFormat, Zos_SPrintfNull, 0, 10, copy);
    va_end(copy);
    return n;
}

KESTRO_API uint32_t Zos_PrintSize(const char *pcFormat, ...) {
    va_list ap;
    va_start(ap, pcFormat);
    const uint32_t n = Zos_PrintVSize(pcFormat, ap);
    va_end(ap);
    return n;
}

// ---------------------------------------------------------------------
// Output accumulator

KESTRO_API uint32_t Zos_PrintOutStart(char *pcBuf, char **ppcOut, uint32_t *puiLen) {
    if (pcBuf == nullptr || ppcOut == nullptr || puiLen == nullptr) return ZFAILED;
    pcBuf[0] = '\0';
    *ppcOut = pcBuf;
    *puiLen = 0;
    return ZOK;
}

KESTRO_API uint32_t Zos_PrintOutPutFmt(ZDBUF zDbuf, char *pcBuf, uint32_t *puiLen,
                                       const char *pcFormat, ...) {
    if (pcBuf == nullptr || puiLen == nullptr || pcFormat == nullptr) return ZFAILED;
    char piece[ZOS_PRINT_OUT_FMT_MAX + 1];
    va_list ap;
    va_start(ap, pcFormat);
    uint32_t n = Zos_VSNPrintf(piece, sizeof(piece), pcFormat, ap);
    va_end(ap);
    if (n > ZOS_PRINT_OUT_FMT_MAX) n = ZOS_PRINT_OUT_FMT_MAX;
    return OutAppend(zDbuf, pcBuf, puiLen, piece, n);
}

KESTRO_API uint32_t Zos_PrintOutPutStr(ZDBUF zDbuf, char *pcBuf, uint32_t *puiLen,
                                       const char *pcStr) {
    const uint32_t n = pcStr != nullptr ? static_cast<uint32_t>(strnlen(pcStr, kAllocMax)) : 0;
    return OutAppend(zDbuf, pcBuf, puiLen, pcStr, n);
}

KESTRO_API uint32_t Zos_PrintOutPutChr(ZDBUF zDbuf, char *pcBuf, uint32_t *puiLen, char cChr) {
    return OutAppend(zDbuf, pcBuf, puiLen, &cChr, 1);
}

KESTRO_API uint32_t Zos_PrintOutPutNStr(ZDBUF zDbuf, char *pcBuf, uint32_t *puiLen,
                                        const char *pcStr, uint32_t uiLen) {
    return OutAppend(zDbuf, pcBuf, puiLen, pcStr, uiLen);
}

KESTRO_API uint32_t Zos_PrintOutPutSStr(ZDBUF zDbuf, char *pcBuf, uint32_t *puiLen,
                                        const ST_ZOS_SSTR *pstStr) {
    if (pstStr == nullptr) return ZFAILED;
    return OutAppend(zDbuf, pcBuf, puiLen, pstStr->pcStr, pstStr->uiLen);
}

KESTRO_API uint32_t Zos_PrintOutEnd(ZDBUF zDbuf, char *pcBuf, uint32_t *puiLen) {
    if (pcBuf == nullptr || puiLen == nullptr) return ZFAILED;
    if (*puiLen > kOutMax) *puiLen = kOutMax;
    pcBuf[*puiLen] = '\0';
    if (zDbuf == nullptr) {
        const uint32_t rc = Zos_Printf("%s", pcBuf);
        pcBuf[0] = '\0';
        *puiLen = 0;
        return rc;
    }
    return OutFlush(zDbuf, pcBuf, puiLen);
}

// ---------------------------------------------------------------------
// Long texts, hex dump and statistics

KESTRO_API uint32_t Zos_PrintNStr(const char *pcText, uint32_t uiLen) {
    if (pcText == nullptr || uiLen == 0) return ZFAILED;
    auto *piece = static_cast<char *>(Zos_PrintAlloc(ZOS_PRINT_OUT_SIZE));
    if (piece == nullptr) return ZFAILED;
    uint32_t rc = ZOK;
    for (uint32_t off = 0; off < uiLen; off += kOutMax) {
        const uint32_t n = uiLen - off < kOutMax ? uiLen - off : kOutMax;
        std::memcpy(piece, pcText + off, n);
        piece[n] = '\0';
        if (Zos_Printf("%s", piece) != ZOK) rc = ZFAILED;
    }
    Zos_PrintFree(piece);
    return rc;
}

KESTRO_API uint32_t Zos_PrintBuf(const void *pData, uint32_t uiLen) {
    if (pData == nullptr) return ZFAILED;
    auto *buf = static_cast<char *>(Zos_PrintAlloc(ZOS_PRINT_OUT_SIZE));
    if (buf == nullptr) return ZFAILED;
    char *out = nullptr;
    uint32_t len = 0;
    Zos_PrintOutStart(buf, &out, &len);
    struct Acc {
        char *buf;
        uint32_t *len;
    } acc{buf, &len};
    zos::HexDump(
        static_cast<const uint8_t *>(pData), uiLen,
        [](void *arg, const char *piece, uint32_t n) {
            auto *a = static_cast<Acc *>(arg);
            OutAppend(nullptr, a->buf, a->len, piece, n);
        },
        &acc);
    const uint32_t rc = Zos_PrintOutEnd(nullptr, buf, &len);
    Zos_PrintFree(buf);
    return rc;
}

KESTRO_API uint32_t Zos_PrintDbgShow(void) {
    ZPOOL pool = PrintPool();
    if (pool == nullptr) return ZFAILED;
    Zos_Printf("\r\n    BUCKET      TOTAL       FREE  PEEK ALLOC    REQUEST    RELEASE\r\n");
    Zos_Printf("    ------      -----       ----  ----------    -------    -------\r\n");
    uint32_t total = 0;
    uint32_t free = 0;
    const uint32_t count = Zos_PoolGetBktCount(pool);
    for (uint32_t i = 0; i < count; ++i) {
        ST_ZOS_POOL_BKT_STAT st{};
        if (Zos_PoolGetBktStat(pool, i, &st) != ZOK) continue;
        Zos_Printf("%10u %10d %10d %11u %10u %10u\r\n", st.uiSize, static_cast<int>(st.uiTotal),
                   static_cast<int>(st.uiFree), st.uiPeak, st.uiAllocs, st.uiFrees);
        total += st.uiSize * st.uiTotal;
        free += st.uiSize * st.uiFree;
    }
    Zos_Printf("\r\n             total       used       free\r\n");
    Zos_Printf("Mem:    %10u %10u %10u\r\n", total, total - free, free);
    Zos_Printf("\r\n");
    return ZOK;
}

}  // extern "C"
