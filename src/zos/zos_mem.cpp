// Memory entry points and system strings.
#include <atomic>
#include <cstring>

#include "zos_cfg_rec.h"
#include "zos_dbuf.h"
#include "zos_env.h"
#include "zos_fmt.h"
#include "zos_mem.h"
#include "zos_osdep.h"
#include "zos_pool_int.h"
#include "zos_print.h"
#include "zos_live.h"
#include "zos_util.h"

namespace {

constexpr uint32_t kSysStrMagic = 0x0123DEEAu;
constexpr uint32_t kSysStrHeader = 8;  // magic, length

struct SysStrHeader {
    uint32_t uiMagic;
    uint32_t len;
};

// Platform heap sizes are rounded up to a multiple of 4; 0 for a size the
// heap does not serve.
uint32_t HeapSize(uint32_t size) {
    const uint64_t rounded = (static_cast<uint64_t>(size) + 3u) & ~3ull;
    return rounded == 0 || rounded >= 0x7FFFFFFFu ? 0 : static_cast<uint32_t>(rounded);
}

SysStrHeader *HeaderOf(const char *text) {
    return reinterpret_cast<SysStrHeader *>(const_cast<char *>(text) - kSysStrHeader);
}

// The memory pool while the layer runs in pool mode, else null.
ZPOOL MemPool(ZosEnv *env) {
    return std::atomic_ref<ZPOOL>(env->zMemPool).load(std::memory_order_acquire);
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zos_MemInit(void) {
    ZosEnv *env = zos::Env();
    ST_ZOS_CFG *cfg = Zos_CfgLocate();
    if (env == nullptr || cfg == nullptr) return ZFAILED;
    if (env->ucMemInit != 0) return ZOK;
    if (cfg->UseOsMalloc == 0) {
        ZPOOL pool = Zos_PoolCreate(&cfg->MemPool);
        if (pool == nullptr) return ZFAILED;
        std::atomic_ref<ZPOOL>(env->zMemPool).store(pool, std::memory_order_release);
    }
    env->ucMemInit = 1;
    return ZOK;
}

KESTRO_API void Zos_MemDestroy(void) {
    ZosEnv *env = zos::EnvIfAny();
    if (env == nullptr) return;
    if (env->ucMemInit == 0) return;
    ZPOOL pool = MemPool(env);
    if (pool != nullptr) {
        std::atomic_ref<ZPOOL>(env->zMemPool).store(nullptr, std::memory_order_release);
        Zos_PoolDelete(pool);
    }
    env->ucMemInit = 0;
}

KESTRO_API void *Zos_HeapAlloc(uint32_t uiSize) {
    const uint32_t size = HeapSize(uiSize);
    auto alloc = zos::Osdep<zos::kSlotMalloc>();
    return size != 0 && alloc != nullptr ? alloc(size) : nullptr;
}

KESTRO_API void *Zos_HeapRealloc(void *pMem, uint32_t uiSize) {
    const uint32_t size = HeapSize(uiSize);
    auto realloc = zos::Osdep<zos::kSlotRealloc>();
    return size != 0 && realloc != nullptr ? realloc(pMem, size) : nullptr;
}

KESTRO_API void Zos_HeapFree(void *pMem) {
    if (pMem == nullptr) return;
    auto free = zos::Osdep<zos::kSlotFree>();
    if (free != nullptr) free(pMem);
}

KESTRO_API void *Zos_Malloc(uint32_t uiSize) {
    if (uiSize == 0 || uiSize > 0x7FFFFFFEu) return nullptr;
    ZosEnv *env = zos::Env();
    if (env == nullptr) return nullptr;
    ZPOOL pool = MemPool(env);
    return pool != nullptr ? Zos_PoolAlloc(pool, uiSize) : Zos_HeapAlloc(uiSize);
}

KESTRO_API void *Zos_MallocClrd(int32_t iSize) {
    if (iSize < 1 || iSize == 0x7FFFFFFF) return nullptr;
    void *p = Zos_Malloc(static_cast<uint32_t>(iSize));
    if (p != nullptr) std::memset(p, 0, static_cast<size_t>(iSize));
    return p;
}

KESTRO_API void *Zos_Calloc(uint32_t uiCount, uint32_t uiSize) {
    const uint64_t total = static_cast<uint64_t>(uiCount) * uiSize;
    if (total == 0 || total >= 0x7FFFFFFFu) return nullptr;
    void *p = Zos_Malloc(static_cast<uint32_t>(total));
    if (p != nullptr) std::memset(p, 0, static_cast<size_t>(total));
    return p;
}

KESTRO_API void *Zos_Realloc(void *pMem, uint32_t uiSize) {
    ZosEnv *env = zos::Env();
    if (env == nullptr) return nullptr;
    ZPOOL pool = MemPool(env);
    if (pool == nullptr) return Zos_HeapRealloc(pMem, uiSize);

    // Pool mode: blocks never shrink, and a bad size (0 included) neither
    // frees nor moves the block.
    if (uiSize == 0 || uiSize >= 0x7FFFFFFFu) {
        if (pMem != nullptr) {
            ZOS_LOG_ERR("Realloc alloc size(%zu) invalid.", static_cast<size_t>(uiSize));
        }
        return nullptr;
    }
    if (pMem == nullptr) return Zos_PoolAlloc(pool, uiSize);
    uint32_t oldSize = 0;
    if (Zos_PoolGetSize(pool, pMem, &oldSize) != ZOK) {
        ZOS_LOG_ERR("Realloc get memory size.");
        return nullptr;
    }
    if (oldSize >= uiSize) return pMem;
    void *grown = Zos_PoolAlloc(pool, uiSize);
    if (grown == nullptr) {
        ZOS_LOG_ERR("Realloc pool alloc.");
        return nullptr;
    }
    std::memcpy(grown, pMem, oldSize);
    Zos_PoolFree(pool, pMem);
    return grown;
}

KESTRO_API void Zos_Free(void *pMem) {
    if (pMem == nullptr) return;
    ZosEnv *env = zos::Env();
    if (env == nullptr) return;
    ZPOOL pool = MemPool(env);
    if (pool != nullptr) {
        Zos_PoolFree(pool, pMem);
    } else {
        Zos_HeapFree(pMem);
    }
}

KESTRO_API uint32_t Zos_MemChkMem(void *pMem) {
    ZosEnv *env = zos::Env();
    if (env == nullptr) return ZFAILED;
    ZPOOL pool = MemPool(env);
    // The platform heap keeps no block headers of the layer's to check.
    if (pool == nullptr) return ZOK;
    if (Zos_PoolChkMem(pool, pMem) != 1) {
        ZOS_LOG_ERR("MemChkMem pool check.");
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API uint32_t Zos_MemChkPool(void) {
    ZosEnv *env = zos::Env();
    if (env == nullptr) return ZFAILED;
    ZPOOL pool = MemPool(env);
    Zos_Printf("pstEnv->zMemPoolId=%x \r\n",
               static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pool)));
    if (pool == nullptr) return ZOK;
    return Zos_PoolChkPool(pool) == 0 ? ZFAILED : ZOK;
}

KESTRO_API uint32_t Zos_MemDbgShow(void) {
    ZosEnv *env = zos::Env();
    if (env == nullptr) return ZFAILED;
    ZPOOL pool = MemPool(env);
    if (pool == nullptr) return ZFAILED;
    return zos::PoolPrintStats(pool);
}

// ---------------------------------------------------------------------
// System strings

KESTRO_API char *Zos_SysStrAllocN(uint32_t uiLen) {
    if (uiLen == 0 || uiLen > 0x7FFFFFF5u) return nullptr;
    auto *h = static_cast<SysStrHeader *>(Zos_Malloc(uiLen + kSysStrHeader + 1));
    if (h == nullptr) return nullptr;
    if (!zos::LiveAdd(h)) {
        Zos_Free(h);
        return nullptr;
    }
    h->uiMagic = kSysStrMagic;
    h->len = uiLen;
    char *text = reinterpret_cast<char *>(h) + kSysStrHeader;
    text[uiLen] = '\0';
    return text;
}

KESTRO_API char *Zos_SysStrNAlloc(const char *pcData, uint32_t uiLen) {
    if (pcData == nullptr || uiLen == 0) return nullptr;
    char *text = Zos_SysStrAllocN(uiLen);
    if (text != nullptr) std::memcpy(text, pcData, uiLen);
    return text;
}

KESTRO_API char *Zos_SysStrAlloc(const char *pcText) {
    if (pcText == nullptr || pcText[0] == '\0') return nullptr;
    const size_t len = std::strlen(pcText);
    if (len > 0x7FFFFFF5u) return nullptr;
    return Zos_SysStrNAlloc(pcText, static_cast<uint32_t>(len));
}

KESTRO_API char *Zos_SysStrXAlloc(const ST_ZOS_SSTR *pstStr) {
    if (pstStr == nullptr) return nullptr;
    return Zos_SysStrNAlloc(pstStr->pcStr, pstStr->uiLen);
}

KESTRO_API char *Zos_SysStrFAlloc(const char *pcFormat, ...) {
    va_list ap;
    va_start(ap, pcFormat);
    const uint32_t len = Zos_Kvprintf(pcFormat, Zos_SPrintfNull, 0, 10, ap);
    va_end(ap);
    char *text = Zos_SysStrAllocN(len);
    if (text == nullptr) {
        ZOS_LOG_ERR("SysStrFAlloc alloc mem.");
        return nullptr;
    }
    // Written bounded by what was measured: the measuring count is 32-bit
    // and a width near 2^32 wraps it; the text is then cut, never overrun.
    va_start(ap, pcFormat);
    Zos_VSNPrintf(text, static_cast<int32_t>(len + 1), pcFormat, ap);
    va_end(ap);
    return text;
}

KESTRO_API char *Zos_SysStrDAlloc(ZDBUF zDbuf) {
    const uint32_t len = Zos_DbufLen(zDbuf);
    if (len == 0) return nullptr;
    char *text = Zos_SysStrAllocN(len);
    if (text == nullptr) return nullptr;
    if (Zos_DbufCopyD(zDbuf, 0, len, text) != ZOK) {
        Zos_SysStrFree(text);
        return nullptr;
    }
    return text;
}

KESTRO_API void Zos_SysStrFree(char *pcText) {
    if (pcText == nullptr) return;
    // Only a registered header is read: a string freed before, or text
    // that never was a system string, is refused without touching it.
    SysStrHeader *h = zos::LiveRecord<SysStrHeader>(HeaderOf(pcText), kSysStrMagic);
    if (h == nullptr) {
        ZOS_LOG_ERR("SysStrFree invalid magic.");
        return;
    }
    zos::LiveRemove(h);
    h->uiMagic = 0;
    Zos_Free(h);
}

KESTRO_API uint32_t Zos_SysStrLen(const char *pcText) {
    if (pcText == nullptr) return 0;
    const SysStrHeader *h = zos::LiveRecord<SysStrHeader>(HeaderOf(pcText), kSysStrMagic);
    if (h == nullptr) {
        ZOS_LOG_ERR("SysStrLen invalid magic id.");
        return 0;
    }
    return h->len;
}

}  // extern "C"
