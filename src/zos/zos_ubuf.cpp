// Universal buffer: dispatch by magic word to the buffer kinds, the
// wrapper record, and the text copy family.
//
// The kind of a record is read from its fields: the wrapper, segment and
// page buffers lead with their magic; a data buffer's magic follows its
// next-buffer link and an arena's follows its two list links, so those
// offsets follow the pointer size.
#include <cstring>

#include "zos_cbuf.h"
#include "zos_dbuf.h"
#include "zos_mem.h"
#include "zos_print.h"
#include "zos_fmt.h"
#include "zos_sbuf.h"
#include "zos_str.h"
#include "zos_ubuf.h"
#include "zos_live.h"
#include "zos_util.h"

namespace {

constexpr uint32_t kWrapMagic = 0xB1B2D0D1u;
constexpr uint32_t kCbufMagic = 0xEFAAEF1Cu;
constexpr uint32_t kDbufMagic = 0xAABBFFDDu;
constexpr uint32_t kSbufMagic = 0x8A9AAABAu;
constexpr uint32_t kPbufMagic = 0x7E8F9CA3u;
constexpr size_t kPtr = sizeof(void *);

struct ZosUbuf {
    uint32_t uiMagic;
    void *pTarget;
    PFN_ZOS_UBUF_ALLOC pfnAlloc;
    PFN_ZOS_UBUF_FREE pfnFree;
    PFN_ZOS_UBUF_SIZE pfnSize;
    PFN_ZOS_UBUF_HOLD pfnHold;
};

// What one kind offers; `known` is false for an unknown record.
struct Ops {
    bool known;
    void *target;
    PFN_ZOS_UBUF_ALLOC alloc;
    PFN_ZOS_UBUF_FREE free;
    PFN_ZOS_UBUF_SIZE size;
    PFN_ZOS_UBUF_HOLD hold;
};

bool WordIs(const void *buf, size_t offset, uint32_t magic) {
    uint32_t w;
    std::memcpy(&w, static_cast<const uint8_t *>(buf) + offset, sizeof(w));
    return w == magic;
}

// The kinds other than the wrapper, in their testing order. Only a live
// handle's words are read: a deleted or foreign one is an unknown buffer.
Ops KindOps(void *buf) {
    if (!zos::LiveHas(buf)) return {false, nullptr, nullptr, nullptr, nullptr, nullptr};
    if (WordIs(buf, 2 * kPtr, kCbufMagic)) {
        return {true, buf, Zos_CbufAlloc, Zos_CbufFree, Zos_CbufSize, Zos_CbufHoldD};
    }
    if (WordIs(buf, kPtr, kDbufMagic)) {
        return {true, buf, Zos_DbufAlloc, nullptr, Zos_DbufSize, nullptr};
    }
    if (WordIs(buf, 0, kSbufMagic)) {
        return {true, buf, Zos_SbufAlloc, nullptr, Zos_SbufSize, Zos_SbufHoldD};
    }
    if (WordIs(buf, 0, kPbufMagic)) {
        return {true, buf, Zos_PbufAlloc, Zos_PbufFree, Zos_PbufSize, nullptr};
    }
    return {false, nullptr, nullptr, nullptr, nullptr, nullptr};
}

Ops OpsOf(void *buf) {
    if (!zos::LiveHas(buf)) return {false, nullptr, nullptr, nullptr, nullptr, nullptr};
    if (WordIs(buf, 0, kWrapMagic)) {
        const auto *w = static_cast<const ZosUbuf *>(buf);
        return {true, w->pTarget, w->pfnAlloc, w->pfnFree, w->pfnSize, w->pfnHold};
    }
    return KindOps(buf);
}

// Makes a filled wrapper a live handle; frees it when it cannot be.
ZosUbuf *Register(ZosUbuf *w) {
    if (!zos::LiveAdd(w)) {
        ZOS_LOG_ERR("UbufCreate alloc memory.");
        Zos_Free(w);
        return nullptr;
    }
    w->uiMagic = kWrapMagic;
    return w;
}

// ---------------------------------------------------------------------
// Copy family: two cores, one per output form.

uint32_t CopyN(ZUBUF buf, const char *src, uint32_t len, char **out, const char *allocFail) {
    if (out == nullptr) return ZFAILED;
    *out = nullptr;
    if (src == nullptr || len == 0) return ZOK;
    char *p = len < 0xFFFFFFFFu ? static_cast<char *>(Zos_UbufAlloc(buf, len + 1)) : nullptr;
    if (p == nullptr) {
        ZOS_LOG_ERR("%s", allocFail);
        return ZFAILED;
    }
    std::memcpy(p, src, len);
    p[len] = '\0';
    *out = p;
    return ZOK;
}

uint32_t CopySN(ZUBUF buf, const char *src, uint32_t len, ST_ZOS_SSTR *out, const char *copyFail) {
    if (out == nullptr) return ZFAILED;
    out->pcStr = nullptr;
    out->uiLen = 0;
    char *p = nullptr;
    if (CopyN(buf, src, len, &p, "UbufCpyNStr alloc memory.") != ZOK) {
        ZOS_LOG_ERR("%s", copyFail);
        return ZFAILED;
    }
    out->pcStr = p;
    out->uiLen = p != nullptr ? len : 0;
    return ZOK;
}

uint32_t CopyD(ZUBUF buf, ZDBUF dbuf, char **out, uint32_t *outLen) {
    if (out == nullptr) return ZFAILED;
    *out = nullptr;
    if (dbuf == nullptr || Zos_DbufType(dbuf) == 0) return ZFAILED;
    const uint32_t len = Zos_DbufLen(dbuf);
    if (len == 0) return ZOK;
    auto *p = static_cast<char *>(Zos_UbufAlloc(buf, len + 1));
    if (p == nullptr) {
        ZOS_LOG_ERR("UbufCpyDStr alloc memory.");
        return ZFAILED;
    }
    if (Zos_DbufCopyD(dbuf, 0, len, p) != ZOK) {
        Zos_UbufFree(buf, p);
        return ZFAILED;
    }
    p[len] = '\0';
    *out = p;
    if (outLen != nullptr) *outLen = len;
    return ZOK;
}

uint32_t CopyDS(ZUBUF buf, ZDBUF dbuf, ST_ZOS_SSTR *out, const char *copyFail) {
    if (out == nullptr) return ZFAILED;
    out->pcStr = nullptr;
    out->uiLen = 0;
    uint32_t len = 0;
    if (CopyD(buf, dbuf, &out->pcStr, &len) != ZOK) {
        ZOS_LOG_ERR("%s", copyFail);
        return ZFAILED;
    }
    out->uiLen = len;
    return ZOK;
}

const char *TextOf(const ST_ZOS_SSTR *s) {
    return s != nullptr ? s->pcStr : nullptr;
}

uint32_t LenOf(const ST_ZOS_SSTR *s) {
    return s != nullptr ? s->uiLen : 0;
}

void *AllocNode(ZUBUF buf, uint32_t size, void **ppData, uint32_t links) {
    if (ppData != nullptr) *ppData = nullptr;
    const uint64_t total = static_cast<uint64_t>(size) + (links + 1) * kPtr;
    if (total > 0x7FFFFFFEu) return nullptr;
    auto *node = static_cast<uint8_t *>(Zos_UbufAllocClrd(buf, static_cast<uint32_t>(total)));
    if (node == nullptr) return nullptr;
    void *data = size != 0 ? node + (links + 1) * kPtr : nullptr;
    std::memcpy(node + links * kPtr, &data, kPtr);
    if (ppData != nullptr) *ppData = data;
    return node;
}

}  // namespace

extern "C" {

KESTRO_API ZUBUF Zos_UbufCreate(void *pBuf) {
    if (pBuf == nullptr) return nullptr;
    auto *w = static_cast<ZosUbuf *>(Zos_MallocClrd(sizeof(ZosUbuf)));
    if (w == nullptr) {
        ZOS_LOG_ERR("UbufCreate alloc memory.");
        return nullptr;
    }
    const Ops ops = KindOps(pBuf);
    if (!ops.known) {
        ZOS_LOG_ERR("UbufCreate unknown buffer.");
        Zos_Free(w);
        return nullptr;
    }
    w->pTarget = pBuf;
    w->pfnAlloc = ops.alloc;
    w->pfnFree = ops.free;
    w->pfnSize = ops.size;
    w->pfnHold = ops.hold;
    return Register(w);
}

KESTRO_API ZUBUF Zos_UbufCreateX(void *pBuf, PFN_ZOS_UBUF_ALLOC pfnAlloc, PFN_ZOS_UBUF_FREE pfnFree,
                                 PFN_ZOS_UBUF_SIZE pfnSize, PFN_ZOS_UBUF_HOLD pfnHold) {
    auto *w = static_cast<ZosUbuf *>(Zos_MallocClrd(sizeof(ZosUbuf)));
    if (w == nullptr) {
        ZOS_LOG_ERR("UbufCreate alloc memory.");
        return nullptr;
    }
    w->pTarget = pBuf;
    w->pfnAlloc = pfnAlloc;
    w->pfnFree = pfnFree;
    w->pfnSize = pfnSize;
    w->pfnHold = pfnHold;
    return Register(w);
}

KESTRO_API uint32_t Zos_UbufDelete(ZUBUF zUbuf) {
    if (zUbuf == nullptr) return ZFAILED;
    auto *w = zos::LiveRecord<ZosUbuf>(zUbuf, kWrapMagic);
    if (w == nullptr) {
        ZOS_LOG_ERR("UbufDelete invalid id.");
        return ZFAILED;
    }
    zos::LiveRemove(w);
    w->uiMagic = 0;
    Zos_Free(w);
    return ZOK;
}

KESTRO_API void *Zos_UbufAlloc(ZUBUF zBuf, uint32_t uiSize) {
    if (zBuf == nullptr) return nullptr;
    const Ops ops = OpsOf(zBuf);
    if (!ops.known) {
        ZOS_LOG_ERR("UbufAlloc unknown buffer.");
        return nullptr;
    }
    return ops.alloc != nullptr ? ops.alloc(ops.target, uiSize) : nullptr;
}

KESTRO_API void *Zos_UbufAllocClrd(ZUBUF zBuf, uint32_t uiSize) {
    void *p = Zos_UbufAlloc(zBuf, uiSize);
    if (p != nullptr) std::memset(p, 0, uiSize);
    return p;
}

KESTRO_API void *Zos_UbufAllocSNode(ZUBUF zBuf, uint32_t uiSize, void **ppData) {
    return AllocNode(zBuf, uiSize, ppData, 1);
}

KESTRO_API void *Zos_UbufAllocDNode(ZUBUF zBuf, uint32_t uiSize, void **ppData) {
    return AllocNode(zBuf, uiSize, ppData, 2);
}

KESTRO_API uint32_t Zos_UbufFree(ZUBUF zBuf, void *pMem) {
    if (zBuf == nullptr) return ZFAILED;
    const Ops ops = OpsOf(zBuf);
    return ops.known && ops.free != nullptr ? ops.free(ops.target, pMem) : ZFAILED;
}

KESTRO_API uint32_t Zos_UbufFreeX(ZUBUF zBuf, void **ppMem) {
    if (ppMem == nullptr || Zos_UbufFree(zBuf, *ppMem) != ZOK) return ZFAILED;
    *ppMem = nullptr;
    return ZOK;
}

KESTRO_API uint32_t Zos_UbufFreeSStr(ZUBUF zBuf, ST_ZOS_SSTR *pstStr) {
    if (pstStr == nullptr || Zos_UbufFree(zBuf, pstStr->pcStr) != ZOK) return ZFAILED;
    pstStr->pcStr = nullptr;
    pstStr->uiLen = 0;
    return ZOK;
}

KESTRO_API uint32_t Zos_UbufFreeUStr(ZUBUF zBuf, ST_ZOS_SSTR *pstStr) {
    return Zos_UbufFreeSStr(zBuf, pstStr);
}

KESTRO_API uint32_t Zos_UbufSize(ZUBUF zBuf) {
    if (zBuf == nullptr) return 0;
    const Ops ops = OpsOf(zBuf);
    if (!ops.known) {
        ZOS_LOG_ERR("UbufSize unknown buffer.");
        return 0;
    }
    return ops.size != nullptr ? ops.size(ops.target) : 0;
}

KESTRO_API uint32_t Zos_UbufHoldD(ZUBUF zBuf, const void *pMem) {
    if (zBuf == nullptr) return 0;
    const Ops ops = OpsOf(zBuf);
    return ops.known && ops.hold != nullptr ? ops.hold(ops.target, pMem) : 0;
}

// ---------------------------------------------------------------------
// Copy family

// Text with a length, to a pointer.
#define ZOS_UBUF_CPY_N(name, fail)                                                       \
    KESTRO_API uint32_t Zos_UbufCpy##name(ZUBUF zBuf, const char *pcSrc, uint32_t uiLen, \
                                          char **ppcOut) {                               \
        return CopyN(zBuf, pcSrc, uiLen, ppcOut, fail);                                  \
    }
// Counted string, to a pointer.
#define ZOS_UBUF_CPY_X(name, fail)                                                                \
    KESTRO_API uint32_t Zos_UbufCpy##name(ZUBUF zBuf, const ST_ZOS_SSTR *pstSrc, char **ppcOut) { \
        return CopyN(zBuf, TextOf(pstSrc), LenOf(pstSrc), ppcOut, fail);                          \
    }
// Zero-terminated text, to a counted string.
#define ZOS_UBUF_CPY_ZS(name, fail)                                                             \
    KESTRO_API uint32_t Zos_UbufCpy##name(ZUBUF zBuf, const char *pcSrc, ST_ZOS_SSTR *pstOut) { \
        return CopySN(zBuf, pcSrc, Zos_StrLen(pcSrc), pstOut, fail);                            \
    }
// Text with a length, to a counted string.
#define ZOS_UBUF_CPY_NS(name, fail)                                                      \
    KESTRO_API uint32_t Zos_UbufCpy##name(ZUBUF zBuf, const char *pcSrc, uint32_t uiLen, \
                                          ST_ZOS_SSTR *pstOut) {                         \
        return CopySN(zBuf, pcSrc, uiLen, pstOut, fail);                                 \
    }
// Counted string, to a counted string.
#define ZOS_UBUF_CPY_XS(name, fail)                                              \
    KESTRO_API uint32_t Zos_UbufCpy##name(ZUBUF zBuf, const ST_ZOS_SSTR *pstSrc, \
                                          ST_ZOS_SSTR *pstOut) {                 \
        return CopySN(zBuf, TextOf(pstSrc), LenOf(pstSrc), pstOut, fail);        \
    }
// Data buffer, to a counted string.
#define ZOS_UBUF_CPY_DS(name, fail)                                                       \
    KESTRO_API uint32_t Zos_UbufCpy##name(ZUBUF zBuf, ZDBUF zDbuf, ST_ZOS_SSTR *pstOut) { \
        return CopyDS(zBuf, zDbuf, pstOut, fail);                                         \
    }

ZOS_UBUF_CPY_N(NStr, "UbufCpyNStr alloc memory.")
ZOS_UBUF_CPY_N(NLStr, "UbufCpyNLStr alloc memory.")
ZOS_UBUF_CPY_N(NLUSStr, "UbufCpyNLUSStr alloc memory.")
ZOS_UBUF_CPY_X(XStr, "UbufCpyNStr alloc memory.")
ZOS_UBUF_CPY_X(UXStr, "UbufCpyNStr alloc memory.")

ZOS_UBUF_CPY_ZS(SStr, "UbufCpyNSStr copy the string.")
ZOS_UBUF_CPY_ZS(LSStr, "UbufCpyLSStr copy the string.")
ZOS_UBUF_CPY_ZS(USStr, "UbufCpyNUSStr copy the string.")
ZOS_UBUF_CPY_NS(NSStr, "UbufCpyNSStr copy the string.")
ZOS_UBUF_CPY_NS(NLSStr, "UbufCpyNLSStr copy the string.")
ZOS_UBUF_CPY_NS(NLUStr, "UbufCpyNLUStr copy the string.")
ZOS_UBUF_CPY_NS(NUSStr, "UbufCpyNUSStr copy the string.")

ZOS_UBUF_CPY_XS(XSStr, "UbufCpyNSStr copy the string.")
ZOS_UBUF_CPY_XS(LXSStr, "UbufCpyNLSStr copy the string.")
ZOS_UBUF_CPY_XS(XLUStr, "UbufCpyNLUStr copy the string.")
ZOS_UBUF_CPY_XS(XLSStr, "UbufCpyNLSStr copy the string.")
ZOS_UBUF_CPY_XS(UXSStr, "UbufCpyNSStr copy the string.")
ZOS_UBUF_CPY_XS(XUSStr, "UbufCpyNUSStr copy the string.")
ZOS_UBUF_CPY_XS(UXUSStr, "UbufCpyNUSStr copy the string.")

ZOS_UBUF_CPY_DS(DSStr, "UbufCpyDSStr copy the data.")
ZOS_UBUF_CPY_DS(DLSStr, "UbufCpyDSStr copy the data.")
ZOS_UBUF_CPY_DS(DUSStr, "UbufCpyDUSStr copy the data.")

#undef ZOS_UBUF_CPY_N
#undef ZOS_UBUF_CPY_X
#undef ZOS_UBUF_CPY_ZS
#undef ZOS_UBUF_CPY_NS
#undef ZOS_UBUF_CPY_XS
#undef ZOS_UBUF_CPY_DS

KESTRO_API uint32_t Zos_UbufCpyStr(ZUBUF zBuf, const char *pcSrc, char **ppcOut) {
    return CopyN(zBuf, pcSrc, Zos_StrLen(pcSrc), ppcOut, "UbufCpyNStr alloc memory.");
}

KESTRO_API uint32_t Zos_UbufCpyDStr(ZUBUF zBuf, ZDBUF zDbuf, char **ppcOut) {
    return CopyD(zBuf, zDbuf, ppcOut, nullptr);
}

KESTRO_API uint32_t Zos_UbufCpyFStr(ZUBUF zBuf, char **ppcOut, const char *pcFormat, ...) {
    if (ppcOut == nullptr) return ZFAILED;
    *ppcOut = nullptr;
    if (pcFormat == nullptr) return ZOK;
    va_list ap;
    va_start(ap, pcFormat);
    const uint32_t len = Zos_PrintVSize(pcFormat, ap);
    va_end(ap);
    if (len == 0) return ZOK;
    auto *p = len < 0x7FFFFFFFu ? static_cast<char *>(Zos_UbufAlloc(zBuf, len + 1)) : nullptr;
    if (p == nullptr) {
        ZOS_LOG_ERR("UbufCpyFStr alloc memory.");
        return ZFAILED;
    }
    // Bounded by what was measured (a wrapped count cuts, never overruns).
    va_start(ap, pcFormat);
    Zos_VSNPrintf(p, static_cast<int32_t>(len + 1), pcFormat, ap);
    va_end(ap);
    *ppcOut = p;
    return ZOK;
}

}  // extern "C"
