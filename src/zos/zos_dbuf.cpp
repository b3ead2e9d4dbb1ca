// Data buffers: a header and a doubly linked chain of blocks drawn from a
// bucket pool, reference counted, with room kept at both ends.
//
// Header: [next buffer][magic][length][block size][type][references]
//         [pool][trace][first block][last block]
// Block:  [next][prev][capacity][length][head][tail][data ...]
//         The data are the bytes [head, head + length) of the data area;
//         appends go at the tail, prepends before the head.
//
// Building new data (append and prepend) makes the whole new chain before
// the buffer is touched, so a failed allocation leaves the buffer as it
// was.
#include <cstddef>
#include <cstring>

#include "zos_cfg.h"
#include "zos_dbuf.h"
#include "zos_dump.h"
#include "zos_env.h"
#include "zos_fmt.h"
#include "zos_live.h"
#include "zos_mem.h"
#include "zos_pool.h"
#include "zos_pool_int.h"
#include "zos_print.h"
#include "zos_str.h"
#include "zos_util.h"

namespace {

constexpr uint32_t kDbufMagic = 0xAABBFFDDu;
constexpr uint32_t kNoOffset = 0xFFFFFFFFu;
constexpr uint32_t kFmtLocal = 128;
constexpr uint32_t kFlatSize = 128;
constexpr uint32_t kLoadSize = 2048;
constexpr uint16_t kTraceDepth = 512;
// The largest length the buffer keeps: lengths stay clear of the sign bit.
constexpr uint32_t kMaxLen = 0x7FFFFFFEu;

struct Blk {
    Blk *pstNext;
    Blk *pstPrev;
    uint32_t uiCap;
    uint32_t uiLen;
    uint32_t uiHead;
    uint32_t uiTail;

    uint8_t *Area() { return reinterpret_cast<uint8_t *>(this + 1); }
    uint8_t *Data() { return Area() + uiHead; }
};

// The allocation trace: a dump and the caller position noted for the next
// record.
struct DbufTrace {
    ZDUMP zDump;
    const char *pcFile;
    uint32_t uiLine;
    char acName[16];
};

struct ZosDbuf {
    ZosDbuf *pstNext;
    uint32_t uiMagic;
    uint32_t uiLen;
    uint32_t uiBlkSize;
    uint8_t ucType;
    uint8_t ucRefs;
    ZPOOL zPool;
    DbufTrace *pstTrace;
    Blk *pstFirst;
    Blk *pstLast;
};

static_assert(offsetof(ZosDbuf, uiMagic) == sizeof(void *),
              "the magic is the second word, after the next-buffer link");

// A chain of blocks not yet linked into a buffer.
struct Chain {
    Blk *first = nullptr;
    Blk *last = nullptr;
};

ZosDbuf *Quiet(ZDBUF zDbuf) {
    ZosDbuf *b = zos::LiveRecord<ZosDbuf>(zDbuf, kDbufMagic);
    return b != nullptr && b->ucRefs != 0 ? b : nullptr;
}

constexpr char kNullBuffer[] = "DbufChkValid null buffer.";

// Why a buffer fails the validity test, checked in the test's order; null
// when it passes. Inline: almost every call on a buffer starts with it.
__attribute__((always_inline)) inline const char *Refusal(const ZosDbuf *b, uint32_t refusedType,
                                                          bool refuseShared, bool needData) {
    if (b == nullptr) return kNullBuffer;
    if (zos::LiveRecord<const ZosDbuf>(b, kDbufMagic) == nullptr) {
        return "DbufChkValid invalid magic.";
    }
    if (b->ucRefs == 0) return "DbufChkValid not in use.";
    if (b->ucType == refusedType) return "DbufChkValid invalid type.";
    if (refuseShared && b->ucRefs >= 2) return "DbufChkValid buffer reuse.";
    if (needData && b->uiLen == 0) return "DbufChkValid no data.";
    return nullptr;
}

// Logs a refusal: a null buffer is a warning, the rest errors.
__attribute__((noinline)) void LogRefusal(const char *why) {
    if (why == kNullBuffer) {
        ZOS_LOG_WARN("%s", why);
    } else {
        ZOS_LOG_ERR("%s", why);
    }
}

// The validity test with its lines; null when the buffer is refused.
__attribute__((always_inline)) inline ZosDbuf *Check(ZDBUF zDbuf, uint32_t refusedType,
                                                     bool refuseShared, bool needData) {
    auto *b = static_cast<ZosDbuf *>(zDbuf);
    const char *why = Refusal(b, refusedType, refuseShared, needData);
    if (why == nullptr) return b;
    LogRefusal(why);
    return nullptr;
}

constexpr uint32_t kAnyType = 255;

// ---------------------------------------------------------------------
// Blocks and chains. Their pool is a live buffer's: the buffer's own
// memory keeps it alive, so the pool calls skip its registry check.

Blk *NewBlk(ZPOOL pool, uint32_t cap) {
    if (cap > kMaxLen - sizeof(Blk)) return nullptr;
    auto *k =
        static_cast<Blk *>(zos::PoolAllocHeld(pool, cap + static_cast<uint32_t>(sizeof(Blk))));
    if (k == nullptr) return nullptr;
    k->pstNext = nullptr;
    k->pstPrev = nullptr;
    k->uiCap = cap;
    k->uiLen = 0;
    k->uiHead = 0;
    k->uiTail = 0;
    return k;
}

void ChainAdd(Chain *c, Blk *k) {
    k->pstPrev = c->last;
    k->pstNext = nullptr;
    if (c->last != nullptr) {
        c->last->pstNext = k;
    } else {
        c->first = k;
    }
    c->last = k;
}

// Frees a chain of blocks, then the header `last` when given, under one
// hold of the pool's lock.
void ChainFree(ZPOOL pool, Blk *k, void *last = nullptr) {
    zos::PoolFreeChain(pool, k, offsetof(Blk, pstNext), last);
}

void LinkAfter(ZosDbuf *b, const Chain &c) {
    c.first->pstPrev = b->pstLast;
    if (b->pstLast != nullptr) {
        b->pstLast->pstNext = c.first;
    } else {
        b->pstFirst = c.first;
    }
    b->pstLast = c.last;
}

void LinkBefore(ZosDbuf *b, const Chain &c) {
    c.last->pstNext = b->pstFirst;
    if (b->pstFirst != nullptr) {
        b->pstFirst->pstPrev = c.last;
    } else {
        b->pstLast = c.last;
    }
    b->pstFirst = c.first;
}

void UnlinkBlk(ZosDbuf *b, Blk *k) {
    if (k->pstPrev != nullptr) {
        k->pstPrev->pstNext = k->pstNext;
    } else {
        b->pstFirst = k->pstNext;
    }
    if (k->pstNext != nullptr) {
        k->pstNext->pstPrev = k->pstPrev;
    } else {
        b->pstLast = k->pstPrev;
    }
    zos::PoolFreeHeld(b->zPool, k);
}

void ReleaseAll(ZosDbuf *b) {
    ChainFree(b->zPool, b->pstFirst);
    b->pstFirst = nullptr;
    b->pstLast = nullptr;
    b->uiLen = 0;
}

// Builds the blocks for n bytes (Zos_DbufAddData): one block of exactly n
// when n exceeds the standard size, else (or when that fails) the
// remainder in one standard block placed outermost and the rest in full
// standard blocks.
bool AddData(ZosDbuf *b, const uint8_t *data, uint32_t n, bool prepend, Chain *out) {
    const uint32_t bs = b->uiBlkSize;
    if (n > bs) {
        if (Blk *k = NewBlk(b->zPool, n)) {
            std::memcpy(k->Area(), data, n);
            k->uiLen = n;
            k->uiTail = n;
            ChainAdd(out, k);
            return true;
        }
    }
    const uint32_t r = n % bs;
    const uint32_t full = n / bs;
    Chain c;
    auto add = [&](const uint8_t *src, uint32_t len, uint32_t head) {
        Blk *k = NewBlk(b->zPool, bs);
        if (k == nullptr) return false;
        std::memcpy(k->Area() + head, src, len);
        k->uiHead = head;
        k->uiTail = head + len;
        k->uiLen = len;
        ChainAdd(&c, k);
        return true;
    };
    bool ok = true;
    if (prepend) {
        if (r != 0) ok = add(data, r, bs - r);
        for (uint32_t i = 0; ok && i < full; ++i) ok = add(data + r + i * bs, bs, 0);
    } else {
        for (uint32_t i = 0; ok && i < full; ++i) ok = add(data + i * bs, bs, 0);
        if (ok && r != 0) ok = add(data + full * bs, r, 0);
    }
    if (!ok) {
        ChainFree(b->zPool, c.first);
        ZOS_LOG_ERR("DbufAddData alloc data.");
        return false;
    }
    *out = c;
    return true;
}

// Copies of blocks with the same capacity, head, tail and data.
bool CloneBlocks(ZPOOL pool, Blk *src, Chain *out) {
    Chain c;
    for (; src != nullptr; src = src->pstNext) {
        Blk *k = NewBlk(pool, src->uiCap);
        if (k == nullptr) {
            ChainFree(pool, c.first);
            return false;
        }
        std::memcpy(k->Area() + src->uiHead, src->Data(), src->uiLen);
        k->uiLen = src->uiLen;
        k->uiHead = src->uiHead;
        k->uiTail = src->uiTail;
        ChainAdd(&c, k);
    }
    *out = c;
    return true;
}

// Drops n bytes (0 < n <= length) at the front or the back.
void Drop(ZosDbuf *b, uint32_t n, bool front, uint8_t *out) {
    b->uiLen -= n;
    while (n > 0) {
        Blk *k = front ? b->pstFirst : b->pstLast;
        if (n >= k->uiLen) {
            if (out != nullptr) {
                std::memcpy(front ? out : out + n - k->uiLen, k->Data(), k->uiLen);
                if (front) out += k->uiLen;
            }
            n -= k->uiLen;
            UnlinkBlk(b, k);
            continue;
        }
        if (front) {
            if (out != nullptr) std::memcpy(out, k->Data(), n);
            k->uiHead += n;
        } else {
            if (out != nullptr) std::memcpy(out, k->Data() + k->uiLen - n, n);
            k->uiTail -= n;
        }
        k->uiLen -= n;
        n = 0;
    }
}

// Shared by Zos_DbufAdjD and the removals without an output.
uint32_t Adjust(ZosDbuf *b, uint32_t n, bool front) {
    if (n == 0) return ZFAILED;
    if (n > b->uiLen) {
        ZOS_LOG_ERR("DbufAdjD invalid length.");
        return ZFAILED;
    }
    if (n == b->uiLen) {
        ReleaseAll(b);
        return ZOK;
    }
    Drop(b, n, front, nullptr);
    return ZOK;
}

// ---------------------------------------------------------------------
// Headers

bool BktBounds(ZPOOL pool, uint32_t *min, uint32_t *max) {
    return zos::PoolEndSizes(pool, min, max);
}

ZPOOL PoolOrDefault(ZPOOL pool) {
    if (pool != nullptr) return pool;
    ZosEnv *env = zos::EnvIfAny();
    return env != nullptr ? env->zDbufPool : nullptr;
}

// `pool` has passed its check in this call (create), or is a live
// buffer's (a sibling).
ZosDbuf *NewHeader(ZPOOL pool, uint32_t type, uint32_t blkSize) {
    auto *b = static_cast<ZosDbuf *>(zos::PoolAllocHeld(pool, sizeof(ZosDbuf)));
    if (b == nullptr) return nullptr;
    std::memset(b, 0, sizeof(ZosDbuf));
    b->uiBlkSize = blkSize;
    b->ucType = static_cast<uint8_t>(type);
    b->ucRefs = 1;
    b->zPool = pool;
    if (!zos::LiveAdd(b)) {
        zos::PoolFreeHeld(pool, b);
        return nullptr;
    }
    b->uiMagic = kDbufMagic;
    return b;
}

// A header like `b` (pool, type, block size) with no data.
ZosDbuf *Sibling(const ZosDbuf *b) {
    return NewHeader(b->zPool, b->ucType, b->uiBlkSize);
}

// Takes the header out of use; the caller gives its memory back.
void RetireHeader(ZosDbuf *b) {
    b->ucType = 0;
    b->ucRefs = 0;
    zos::LiveRemove(b);
    b->uiMagic = 0;
}

void FreeHeader(ZosDbuf *b) {
    RetireHeader(b);
    zos::PoolFreeHeld(b->zPool, b);
}

// ---------------------------------------------------------------------
// Trace

void TraceRecord(ZosDbuf *b, const char *label, uint32_t refs) {
    DbufTrace *t = b->pstTrace;
    if (t == nullptr) return;
    Zos_DumpStack(t->zDump, t->pcFile, t->uiLine, label, refs);
    t->pcFile = nullptr;
    t->uiLine = 0;
}

void TraceDrop(ZosDbuf *b) {
    DbufTrace *t = b->pstTrace;
    if (t == nullptr) return;
    b->pstTrace = nullptr;
    Zos_DumpDelete(t->zDump);
    Zos_Free(t);
}

// ---------------------------------------------------------------------
// Append and prepend

// The Mult forms: the room left in the end block takes what fits (at the
// back the first bytes, at the front the last ones), new blocks the rest.
// A zero length or no data fails, with `lenFail` when it is given.
__attribute__((always_inline)) inline uint32_t AddMult(ZosDbuf *b, const uint8_t *data, uint32_t n,
                                                       bool prepend, const char *lenFail,
                                                       const char *addFail) {
    if (n == 0 || data == nullptr) {
        if (lenFail != nullptr) ZOS_LOG_ERR("%s", lenFail);
        return ZFAILED;
    }
    if (n > kMaxLen - b->uiLen) {
        ZOS_LOG_ERR("%s", addFail);
        return ZFAILED;
    }
    Blk *end = prepend ? b->pstFirst : b->pstLast;
    uint32_t room = 0;
    if (end != nullptr) room = prepend ? end->uiHead : end->uiCap - end->uiTail;
    const uint32_t fit = room < n ? room : n;
    Chain c;
    if (fit < n && !AddData(b, prepend ? data : data + fit, n - fit, prepend, &c)) {
        ZOS_LOG_ERR("%s", addFail);
        return ZFAILED;
    }
    if (fit != 0) {
        if (prepend) {
            end->uiHead -= fit;
            std::memcpy(end->Data(), data + n - fit, fit);
        } else {
            std::memcpy(end->Area() + end->uiTail, data, fit);
            end->uiTail += fit;
        }
        end->uiLen += fit;
    }
    if (c.first != nullptr) {
        if (prepend) {
            LinkBefore(b, c);
        } else {
            LinkAfter(b, c);
        }
    }
    b->uiLen += n;
    return ZOK;
}

// The one-byte forms: a new standard block when the end block is full.
uint32_t AddByte(ZDBUF zDbuf, uint8_t ucData, bool prepend, const char *idFail,
                 const char *memFail) {
    ZosDbuf *b = Check(zDbuf, ZOS_DBUF_TYPE_MEM, true, false);
    if (b == nullptr) {
        ZOS_LOG_ERR("%s", idFail);
        return ZFAILED;
    }
    if (b->uiLen >= kMaxLen) return ZFAILED;
    Blk *k = prepend ? b->pstFirst : b->pstLast;
    if (k == nullptr || (prepend ? k->uiHead == 0 : k->uiTail == k->uiCap)) {
        k = NewBlk(b->zPool, b->uiBlkSize);
        if (k == nullptr) {
            ZOS_LOG_ERR("%s", memFail);
            return ZFAILED;
        }
        if (prepend) {
            k->uiHead = k->uiCap;
            k->uiTail = k->uiCap;
            LinkBefore(b, Chain{k, k});
        } else {
            LinkAfter(b, Chain{k, k});
        }
    }
    if (prepend) {
        k->Area()[--k->uiHead] = ucData;
    } else {
        k->Area()[k->uiTail++] = ucData;
    }
    k->uiLen++;
    b->uiLen++;
    return ZOK;
}

// The log texts of one reserving form.
struct AllocTexts {
    const char *idFail;
    const char *zeroFail;
    const char *dataFail;
};

// The checks the reserving forms share: the buffer, and the size (rounded
// up to a word for memory buffers), which must fit the length left.
ZosDbuf *AllocCheck(ZDBUF zDbuf, uint32_t *size, const AllocTexts &t) {
    ZosDbuf *b = Check(zDbuf, kAnyType, true, false);
    if (b == nullptr) {
        ZOS_LOG_ERR("%s", t.idFail);
        return nullptr;
    }
    if (*size == 0) {
        ZOS_LOG_ERR("%s", t.zeroFail);
        return nullptr;
    }
    if (b->ucType == ZOS_DBUF_TYPE_MEM) *size = (*size + 3) & ~3u;
    if (*size == 0 || *size > kMaxLen - b->uiLen) {
        ZOS_LOG_ERR("%s", t.dataFail);
        return nullptr;
    }
    return b;
}

// A reserved area at the start of a new block linked at the back.
uint8_t *AllocInNewBlk(ZosDbuf *b, uint32_t size, const AllocTexts &t) {
    Blk *k = NewBlk(b->zPool, size > b->uiBlkSize ? size : b->uiBlkSize);
    if (k == nullptr) {
        ZOS_LOG_ERR("%s", t.dataFail);
        return nullptr;
    }
    k->uiTail = size;
    k->uiLen = size;
    LinkAfter(b, Chain{k, k});
    return k->Area();
}

void CopyOut(ZosDbuf *b, uint32_t off, uint32_t len, uint8_t *dst) {
    for (Blk *k = b->pstFirst; k != nullptr && len > 0; k = k->pstNext) {
        if (off >= k->uiLen) {
            off -= k->uiLen;
            continue;
        }
        const uint32_t n = k->uiLen - off < len ? k->uiLen - off : len;
        std::memcpy(dst, k->Data() + off, n);
        dst += n;
        len -= n;
        off = 0;
    }
}

// The Buf forms: the source's bytes added in one step, so a failure adds
// nothing. A single block is added straight from the source.
uint32_t AddBuf(ZDBUF zDbuf, ZDBUF zSrc, bool prepend, const char *idFail, const char *memFail) {
    ZosDbuf *b = Check(zDbuf, ZOS_DBUF_TYPE_MEM, true, false);
    ZosDbuf *src = b != nullptr ? Check(zSrc, kAnyType, false, false) : nullptr;
    if (src == nullptr) {
        ZOS_LOG_ERR("%s", idFail);
        return ZFAILED;
    }
    if (src->uiLen == 0) return ZOK;
    if (src->pstFirst == src->pstLast) {
        return prepend ? Zos_DbufPreAddMultD(b, src->pstFirst->Data(), src->uiLen)
                       : Zos_DbufPstAddMultD(b, src->pstFirst->Data(), src->uiLen);
    }
    auto *tmp = static_cast<uint8_t *>(Zos_Malloc(src->uiLen));
    if (tmp == nullptr) {
        ZOS_LOG_ERR("%s", memFail);
        return ZFAILED;
    }
    const uint32_t len = src->uiLen;
    CopyOut(src, 0, len, tmp);
    const uint32_t rc =
        prepend ? Zos_DbufPreAddMultD(b, tmp, len) : Zos_DbufPstAddMultD(b, tmp, len);
    Zos_Free(tmp);
    return rc;
}

// The Fmt forms: formatted into a local area, or a heap string when the
// text needs 128 bytes or more.
uint32_t AddFmt(ZDBUF zDbuf, bool prepend, const char *idFail, const char *memFail,
                const char *pcFormat, va_list ap) {
    ZosDbuf *b = Check(zDbuf, ZOS_DBUF_TYPE_MEM, true, false);
    if (b == nullptr || pcFormat == nullptr) {
        ZOS_LOG_ERR("%s", idFail);
        return ZFAILED;
    }
    char local[kFmtLocal];
    va_list measure;
    va_copy(measure, ap);
    const uint32_t len = Zos_Kvprintf(pcFormat, Zos_SPrintfNull, 0, 10, measure);
    va_end(measure);
    char *text = local;
    if (len >= kFmtLocal) {
        text = len < 0x7FFFFFFFu ? static_cast<char *>(Zos_Malloc(len + 1)) : nullptr;
        if (text == nullptr) {
            ZOS_LOG_ERR("%s", memFail);
            return ZFAILED;
        }
    }
    // Bounded by what was measured (a wrapped count cuts, never overruns).
    Zos_VSNPrintf(text, static_cast<int32_t>(len + 1), pcFormat, ap);
    const uint32_t rc =
        prepend ? Zos_DbufPreAddMultD(b, text, len) : Zos_DbufPstAddMultD(b, text, len);
    if (text != local) Zos_Free(text);
    return rc;
}

// Removal from either end with an optional copy of the bytes.
uint32_t DelMult(ZDBUF zDbuf, uint32_t n, void *out, bool front, const char *idFail,
                 const char *lenFail) {
    ZosDbuf *b = Check(zDbuf, kAnyType, true, false);
    if (b == nullptr) {
        ZOS_LOG_ERR("%s", idFail);
        return ZFAILED;
    }
    if (n > b->uiLen) {
        ZOS_LOG_ERR("%s", lenFail);
        return ZFAILED;
    }
    if (out == nullptr) return Adjust(b, n, front);
    if (n == 0) return ZOK;
    Drop(b, n, front, static_cast<uint8_t *>(out));
    return ZOK;
}

Blk *BlkAt(ZosDbuf *b, uint32_t index) {
    Blk *k = b->pstFirst;
    for (uint32_t i = 0; k != nullptr && i < index; ++i) k = k->pstNext;
    return k;
}

// A copy of the whole content in a heap area (null when empty or short of
// memory).
uint8_t *Contents(ZosDbuf *b) {
    if (b->uiLen == 0) return nullptr;
    auto *tmp = static_cast<uint8_t *>(Zos_Malloc(b->uiLen));
    if (tmp != nullptr) CopyOut(b, 0, b->uiLen, tmp);
    return tmp;
}

// The layout lines of DbgShow and LogPrint.
template <typename Emit>
void Layout(ZosDbuf *b, Emit emit) {
    uint32_t count = 0;
    for (Blk *k = b->pstFirst; k != nullptr; k = k->pstNext) ++count;
    emit("dbuf<%p> type:%u ref:%u len:%u blocks:%u blksize:%u next:%p", static_cast<void *>(b),
         b->ucType, b->ucRefs, b->uiLen, count, b->uiBlkSize, static_cast<void *>(b->pstNext));
    uint32_t i = 0;
    for (Blk *k = b->pstFirst; k != nullptr; k = k->pstNext, ++i) {
        emit("  block[%u] cap:%u len:%u head:%u tail:%u", i, k->uiCap, k->uiLen, k->uiHead,
             k->uiTail);
    }
}

ZDBUF CreateReserved(ZPOOL zPool, uint32_t uiType, uint32_t uiSize, uint32_t uiDataSize,
                     void **ppData, bool clear) {
    if ((uiDataSize == 0) != (ppData == nullptr)) {
        ZOS_LOG_ERR("DbufCreateD invalid size or data.");
        return nullptr;
    }
    if (ppData != nullptr) *ppData = nullptr;
    ZDBUF b = Zos_DbufCreate(zPool, uiType, uiSize);
    if (b == nullptr || uiDataSize == 0) return b;
    void *p = clear ? Zos_DbufAllocClrd(b, uiDataSize) : Zos_DbufAlloc(b, uiDataSize);
    if (p == nullptr) {
        Zos_DbufDelete(b);
        return nullptr;
    }
    *ppData = p;
    return b;
}

}  // namespace

extern "C" {

// ---------------------------------------------------------------------
// Life cycle

KESTRO_API uint32_t Zos_DbufInit(void) {
    ZosEnv *env = zos::Env();
    if (env == nullptr) return ZFAILED;
    if (env->ucDbufInit != 0) return ZOK;
    if (Zos_MutexCreate(&env->zDbufMutex) != ZOK) {
        ZOS_LOG_ERR("DbufInit create mutex.");
        return ZFAILED;
    }
    env->zDbufPool = Zos_PoolCreate(Zos_CfgGetDbufPool());
    if (env->zDbufPool == nullptr) {
        ZOS_LOG_ERR("DbufInit create pool.");
        Zos_MutexDelete(&env->zDbufMutex);
        env->zDbufMutex = 0;
        return ZFAILED;
    }
    env->ucDbufInit = 1;
    return ZOK;
}

KESTRO_API void Zos_DbufDestroy(void) {
    ZosEnv *env = zos::EnvIfAny();
    if (env == nullptr || env->ucDbufInit == 0) return;
    Zos_PoolDelete(env->zDbufPool);
    env->zDbufPool = nullptr;
    Zos_MutexDelete(&env->zDbufMutex);
    env->zDbufMutex = 0;
    env->ucDbufInit = 0;
}

KESTRO_API uint32_t Zos_DbufChkValid(ZDBUF zDbuf, uint32_t uiRefusedType, uint32_t bRefuseShared,
                                     uint32_t bNeedData) {
    return Check(zDbuf, uiRefusedType, bRefuseShared != 0, bNeedData != 0) != nullptr ? ZOK
                                                                                      : ZFAILED;
}

KESTRO_API ZDBUF Zos_DbufCreate(ZPOOL zPool, uint32_t uiType, uint32_t uiSize) {
    if (uiType != ZOS_DBUF_TYPE_MSG && uiType != ZOS_DBUF_TYPE_MEM) {
        ZOS_LOG_ERR("DbufCreate invalid type.");
        return nullptr;
    }
    ZPOOL pool = PoolOrDefault(zPool);
    uint32_t minSize = 0, maxSize = 0;
    if (!BktBounds(pool, &minSize, &maxSize)) {
        ZOS_LOG_ERR("DbufCreate alloc memory.");
        return nullptr;
    }
    if (uiSize > maxSize) {
        ZOS_LOG_WARN("DbufCreate invalid size %d, use %zu.", static_cast<int32_t>(uiSize),
                     static_cast<size_t>(maxSize));
        uiSize = maxSize;
    }
    if (uiType == ZOS_DBUF_TYPE_MEM) uiSize = (uiSize + 3) & ~3u;
    // Sizes at or below the block header are not meaningful; they get the
    // smallest bucket's block.
    const uint32_t blkSize = uiSize + ZOS_DBUF_BLK_HDR >= minSize && uiSize > ZOS_DBUF_BLK_HDR
                                 ? uiSize - ZOS_DBUF_BLK_HDR
                                 : (minSize > ZOS_DBUF_BLK_HDR ? minSize - ZOS_DBUF_BLK_HDR : 4);
    ZosDbuf *b = NewHeader(pool, uiType, blkSize);
    if (b == nullptr) ZOS_LOG_ERR("DbufCreate alloc memory.");
    return b;
}

KESTRO_API ZDBUF Zos_DbufCreateD(ZPOOL zPool, uint32_t uiType, uint32_t uiSize, uint32_t uiDataSize,
                                 void **ppData) {
    return CreateReserved(zPool, uiType, uiSize, uiDataSize, ppData, false);
}

KESTRO_API ZDBUF Zos_DbufCreateClrd(ZPOOL zPool, uint32_t uiType, uint32_t uiSize,
                                    uint32_t uiDataSize, void **ppData) {
    return CreateReserved(zPool, uiType, uiSize, uiDataSize, ppData, true);
}

KESTRO_API ZDBUF Zos_DbufCreateAddD(ZPOOL zPool, uint32_t uiType, uint32_t uiSize,
                                    const void *pData, uint32_t uiLen) {
    ZDBUF b = Zos_DbufCreate(zPool, uiType, uiSize);
    if (b == nullptr || uiLen == 0) return b;
    if (Zos_DbufPstAddMultD(b, pData, uiLen) != ZOK) {
        ZOS_LOG_ERR("DbufCreateAddD add data.");
        Zos_DbufDelete(b);
        return nullptr;
    }
    return b;
}

KESTRO_API uint32_t Zos_DbufDelete(ZDBUF zDbuf) {
    ZosDbuf *b = Check(zDbuf, kAnyType, false, false);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbufDelete invalid id.");
        return ZFAILED;
    }
    if (b->ucRefs == 1) TraceDrop(b);
    b->ucRefs--;
    if (b->ucRefs > 0) {
        TraceRecord(b, "delete", b->ucRefs);
        return ZOK;
    }
    // The header leaves the registry before any of its memory goes back;
    // blocks and header then return in one go.
    Blk *first = b->pstFirst;
    RetireHeader(b);
    ChainFree(b->zPool, first, b);
    return ZOK;
}

KESTRO_API uint32_t Zos_DbufFree(ZDBUF zDbuf) {
    ZosDbuf *b = Check(zDbuf, kAnyType, true, false);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbufFree invalid id.");
        return ZFAILED;
    }
    ReleaseAll(b);
    return ZOK;
}

KESTRO_API ZDBUF Zos_DbufClone(ZDBUF zDbuf) {
    ZosDbuf *b = Check(zDbuf, kAnyType, false, false);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbufClone invalid id.");
        return nullptr;
    }
    if (b->ucRefs >= ZOS_DBUF_REF_MAX) {
        ZOS_LOG_ERR("DbufClone clone too much times.");
        return nullptr;
    }
    b->ucRefs++;
    TraceRecord(b, "clone", b->ucRefs);
    return b;
}

KESTRO_API uint32_t Zos_DbufRefCnt(ZDBUF zDbuf) {
    const ZosDbuf *b = Quiet(zDbuf);
    return b != nullptr ? b->ucRefs : 0;
}

// ---------------------------------------------------------------------
// Reserving areas

KESTRO_API void *Zos_DbufAlloc(ZDBUF zDbuf, uint32_t uiSize) {
    static constexpr AllocTexts kTexts{"DbufAlloc invalid id.", "DbufAlloc alloc 0 size.",
                                       "DbufAlloc alloc data."};
    ZosDbuf *b = AllocCheck(zDbuf, &uiSize, kTexts);
    if (b == nullptr) return nullptr;
    uint8_t *p = nullptr;
    for (Blk *k = b->pstFirst; k != nullptr && p == nullptr; k = k->pstNext) {
        if (k->uiCap - k->uiTail >= uiSize) {
            p = k->Area() + k->uiTail;
            k->uiTail += uiSize;
            k->uiLen += uiSize;
        } else if (k->uiHead >= uiSize) {
            k->uiHead -= uiSize;
            k->uiLen += uiSize;
            p = k->Data();
        }
    }
    if (p == nullptr) {
        p = AllocInNewBlk(b, uiSize, kTexts);
        if (p == nullptr) return nullptr;
    }
    b->uiLen += uiSize;
    return p;
}

KESTRO_API void *Zos_DbufAllocX(ZDBUF zDbuf, uint32_t uiSize) {
    static constexpr AllocTexts kTexts{"DbufAllocX invalid id.", "DbufAllocX alloc 0 size.",
                                       "DbufAllocX alloc data."};
    ZosDbuf *b = AllocCheck(zDbuf, &uiSize, kTexts);
    if (b == nullptr) return nullptr;
    Blk *k = b->pstLast;
    uint8_t *p = nullptr;
    if (k != nullptr && k->uiCap - k->uiTail >= uiSize) {
        p = k->Area() + k->uiTail;
        k->uiTail += uiSize;
        if (k->uiHead >= uiSize) {
            k->uiHead -= uiSize;
            p = k->Data();
        }
        k->uiLen += uiSize;
    } else {
        p = AllocInNewBlk(b, uiSize, kTexts);
        if (p == nullptr) return nullptr;
    }
    b->uiLen += uiSize;
    return p;
}

KESTRO_API void *Zos_DbufAllocClrd(ZDBUF zDbuf, uint32_t uiSize) {
    void *p = Zos_DbufAlloc(zDbuf, uiSize);
    if (p != nullptr) std::memset(p, 0, uiSize);
    return p;
}

// ---------------------------------------------------------------------
// Queries

KESTRO_API uint32_t Zos_DbufType(ZDBUF zDbuf) {
    const ZosDbuf *b = Quiet(zDbuf);
    return b != nullptr ? b->ucType : 0;
}

KESTRO_API uint32_t Zos_DbufLen(ZDBUF zDbuf) {
    const ZosDbuf *b = Quiet(zDbuf);
    return b != nullptr ? b->uiLen : 0;
}

KESTRO_API uint32_t Zos_DbufSize(ZDBUF zDbuf) {
    const ZosDbuf *b = Quiet(zDbuf);
    if (b == nullptr) return 0;
    uint32_t size = 0;
    for (const Blk *k = b->pstFirst; k != nullptr; k = k->pstNext) size += k->uiCap;
    return size;
}

KESTRO_API uint32_t Zos_DbufNewLen(ZDBUF zDbuf, uint32_t uiLen) {
    ZosDbuf *b = Check(zDbuf, kAnyType, true, false);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbufNewLen invalid id.");
        return ZFAILED;
    }
    if (uiLen == b->uiLen) return ZOK;
    if (uiLen < b->uiLen) return Adjust(b, b->uiLen - uiLen, false);
    Blk *k = b->pstLast;
    const uint32_t more = uiLen - b->uiLen;
    if (k == nullptr || k->uiCap - k->uiTail < more) {
        ZOS_LOG_ERR("DbufNewLen invalid length.");
        return ZFAILED;
    }
    k->uiTail += more;
    k->uiLen += more;
    b->uiLen = uiLen;
    return ZOK;
}

KESTRO_API uint32_t Zos_DbufDftBlkSize(ZDBUF zDbuf) {
    const ZosDbuf *b = Quiet(zDbuf);
    return b != nullptr ? b->uiBlkSize : 0;
}

KESTRO_API uint32_t Zos_DbufBlkSize(ZDBUF zDbuf) {
    const ZosDbuf *b = Quiet(zDbuf);
    uint32_t count = 0;
    if (b != nullptr) {
        for (const Blk *k = b->pstFirst; k != nullptr; k = k->pstNext) ++count;
    }
    return count;
}

KESTRO_API uint32_t Zos_DbufBlkLen(ZDBUF zDbuf, uint32_t uiIndex) {
    ZosDbuf *b = Quiet(zDbuf);
    const Blk *k = b != nullptr ? BlkAt(b, uiIndex) : nullptr;
    return k != nullptr ? k->uiLen : 0;
}

KESTRO_API uint8_t *Zos_DbufBlkData(ZDBUF zDbuf, uint32_t uiIndex) {
    ZosDbuf *b = Quiet(zDbuf);
    Blk *k = b != nullptr ? BlkAt(b, uiIndex) : nullptr;
    return k != nullptr ? k->Data() : nullptr;
}

KESTRO_API ZDBUF Zos_DbufGetNext(ZDBUF zDbuf) {
    const ZosDbuf *b = Quiet(zDbuf);
    return b != nullptr ? b->pstNext : nullptr;
}

KESTRO_API uint32_t Zos_DbufSetNext(ZDBUF zDbuf, ZDBUF zNext) {
    ZosDbuf *b = Check(zDbuf, kAnyType, false, false);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbufSetNext invalid id.");
        return ZFAILED;
    }
    ZosDbuf *next = Check(zNext, kAnyType, false, false);
    bool loop = false;
    for (ZosDbuf *n = next; n != nullptr && !loop; n = n->pstNext) loop = n == b;
    ZosDbuf *tail = b;
    for (; !loop && tail->pstNext != nullptr; tail = tail->pstNext) loop = tail->pstNext == next;
    if (next == nullptr || loop) {
        ZOS_LOG_ERR("DbufSetNext invalid next id.");
        return ZFAILED;
    }
    tail->pstNext = next;
    return ZOK;
}

// ---------------------------------------------------------------------
// Offsets

KESTRO_API uint32_t Zos_DbufD2O(ZDBUF zDbuf, const void *pData) {
    ZosDbuf *b = Check(zDbuf, kAnyType, false, false);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbufD2O invalid id.");
        return kNoOffset;
    }
    const auto *p = static_cast<const uint8_t *>(pData);
    uint32_t before = 0;
    for (Blk *k = b->pstFirst; k != nullptr && p != nullptr; k = k->pstNext) {
        const uint8_t *start = k->Data();
        if (p >= start && p <= start + k->uiLen) return before + static_cast<uint32_t>(p - start);
        before += k->uiLen;
    }
    ZOS_LOG_ERR("DbufD2O not in buffer.");
    return kNoOffset;
}

KESTRO_API uint8_t *Zos_DbufO2D(ZDBUF zDbuf, uint32_t uiOffset) {
    ZosDbuf *b = Check(zDbuf, kAnyType, false, false);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbufO2D invalid id.");
        return nullptr;
    }
    Blk *k = uiOffset != kNoOffset ? b->pstFirst : nullptr;
    while (k != nullptr && uiOffset > k->uiLen) {
        uiOffset -= k->uiLen;
        k = k->pstNext;
    }
    if (k == nullptr) {
        ZOS_LOG_ERR("DbufO2D invalid offset.");
        return nullptr;
    }
    return k->Data() + uiOffset;
}

KESTRO_API uint32_t Zos_DbufBlkD2O(ZDBUF zDbuf, uint32_t uiIndex, const void *pData) {
    ZosDbuf *b = Check(zDbuf, kAnyType, false, false);
    Blk *k = b != nullptr ? BlkAt(b, uiIndex) : nullptr;
    const auto *p = static_cast<const uint8_t *>(pData);
    if (k == nullptr || p == nullptr || p < k->Data() || p > k->Data() + k->uiLen) {
        ZOS_LOG_ERR("DbufBlkD2O not in block.");
        return kNoOffset;
    }
    return static_cast<uint32_t>(p - k->Data());
}

KESTRO_API uint8_t *Zos_DbufBlkO2D(ZDBUF zDbuf, uint32_t uiIndex, uint32_t uiOffset) {
    ZosDbuf *b = Check(zDbuf, kAnyType, false, false);
    Blk *k = b != nullptr ? BlkAt(b, uiIndex) : nullptr;
    if (k == nullptr || uiOffset > k->uiLen) {
        ZOS_LOG_ERR("DbufBlkO2D invalid offset.");
        return nullptr;
    }
    return k->Data() + uiOffset;
}

// ---------------------------------------------------------------------
// Append and prepend

KESTRO_API uint32_t Zos_DbufPstAddD(ZDBUF zDbuf, uint8_t ucData) {
    return AddByte(zDbuf, ucData, false, "DbufPstAddD invalid id.", "DbufPstAddD alloc data.");
}

KESTRO_API uint32_t Zos_DbufAddData(ZDBUF zDbuf, const void *pData, uint32_t uiLen,
                                    uint32_t bPrepend) {
    ZosDbuf *b = Check(zDbuf, ZOS_DBUF_TYPE_MEM, true, false);
    if (b == nullptr || pData == nullptr || uiLen == 0 || uiLen > kMaxLen - b->uiLen) {
        return ZFAILED;
    }
    Chain c;
    if (!AddData(b, static_cast<const uint8_t *>(pData), uiLen, bPrepend != 0, &c)) return ZFAILED;
    if (bPrepend != 0) {
        LinkBefore(b, c);
    } else {
        LinkAfter(b, c);
    }
    b->uiLen += uiLen;
    return ZOK;
}

KESTRO_API uint32_t Zos_DbufPstAddMultD(ZDBUF zDbuf, const void *pData, uint32_t uiLen) {
    ZosDbuf *b = Check(zDbuf, ZOS_DBUF_TYPE_MEM, true, false);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbufPstAddMultD invalid id.");
        return ZFAILED;
    }
    return AddMult(b, static_cast<const uint8_t *>(pData), uiLen, false, nullptr,
                   "DbufPstAddMultD add data.");
}

KESTRO_API uint32_t Zos_DbufPstAddStrD(ZDBUF zDbuf, const char *pcStr) {
    return Zos_DbufPstAddMultD(zDbuf, pcStr, Zos_StrLen(pcStr));
}

KESTRO_API uint32_t Zos_DbufPstAddBufD(ZDBUF zDbuf, ZDBUF zSrc) {
    return AddBuf(zDbuf, zSrc, false, "DbufPstAddBufD invalid id.", "DbufPstAddBufD alloc mem.");
}

KESTRO_API uint32_t Zos_DbufPstAddFmtD(ZDBUF zDbuf, const char *pcFormat, ...) {
    va_list ap;
    va_start(ap, pcFormat);
    const uint32_t rc = AddFmt(zDbuf, false, "DbufPstAddFmtD invalid id.",
                               "DbufPstAddFmtD alloc mem.", pcFormat, ap);
    va_end(ap);
    return rc;
}

KESTRO_API uint32_t Zos_DbufPreAddD(ZDBUF zDbuf, uint8_t ucData) {
    return AddByte(zDbuf, ucData, true, "DbufPreAddD invalid id.", "DbufPreAddD alloc data.");
}

KESTRO_API uint32_t Zos_DbufPreAddMultD(ZDBUF zDbuf, const void *pData, uint32_t uiLen) {
    ZosDbuf *b = Check(zDbuf, ZOS_DBUF_TYPE_MEM, true, false);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbufPreAddMultD invalid id.");
        return ZFAILED;
    }
    return AddMult(b, static_cast<const uint8_t *>(pData), uiLen, true,
                   "DbufPreAddMultD invalid length.", "DbufPreAddMultD add data.");
}

KESTRO_API uint32_t Zos_DbufPreAddStrD(ZDBUF zDbuf, const char *pcStr) {
    return Zos_DbufPreAddMultD(zDbuf, pcStr, Zos_StrLen(pcStr));
}

KESTRO_API uint32_t Zos_DbufPreAddBufD(ZDBUF zDbuf, ZDBUF zSrc) {
    return AddBuf(zDbuf, zSrc, true, "DbufPreAddBufD invalid id.", "DbufPreAddBufD alloc mem.");
}

KESTRO_API uint32_t Zos_DbufPreAddFmtD(ZDBUF zDbuf, const char *pcFormat, ...) {
    va_list ap;
    va_start(ap, pcFormat);
    const uint32_t rc = AddFmt(zDbuf, true, "DbufPreAddFmtD invalid id.",
                               "DbufPreAddFmtD alloc mem.", pcFormat, ap);
    va_end(ap);
    return rc;
}

// ---------------------------------------------------------------------
// Removal

KESTRO_API uint32_t Zos_DbufPreDelMultD(ZDBUF zDbuf, uint32_t uiLen, void *pData) {
    return DelMult(zDbuf, uiLen, pData, true, "DbufPreDelMultD invalid id.",
                   "DbufPreDelMultD invalid length.");
}

KESTRO_API uint32_t Zos_DbufPstDelMultD(ZDBUF zDbuf, uint32_t uiLen, void *pData) {
    return DelMult(zDbuf, uiLen, pData, false, "DbufPstDelMultD invalid id.",
                   "DbufPstDelMultD invalid length.");
}

KESTRO_API uint32_t Zos_DbufAdjD(ZDBUF zDbuf, int32_t iCount) {
    ZosDbuf *b = Check(zDbuf, kAnyType, true, false);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbufAdjD invalid id.");
        return ZFAILED;
    }
    const int64_t k = iCount;
    return Adjust(b, static_cast<uint32_t>(k < 0 ? -k : k), k > 0);
}

// ---------------------------------------------------------------------
// Copies, split and concatenation

KESTRO_API ZDBUF Zos_DbufCopy(ZDBUF zDbuf) {
    ZosDbuf *b = Check(zDbuf, kAnyType, false, false);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbufCopy invalid id.");
        return nullptr;
    }
    ZosDbuf *nb = Sibling(b);
    Chain c;
    if (nb == nullptr || !CloneBlocks(b->zPool, b->pstFirst, &c)) {
        if (nb != nullptr) FreeHeader(nb);
        ZOS_LOG_ERR("DbufCopy alloc data.");
        return nullptr;
    }
    if (c.first != nullptr) LinkAfter(nb, c);
    nb->uiLen = b->uiLen;
    return nb;
}

KESTRO_API uint32_t Zos_DbufCopyD(ZDBUF zDbuf, uint32_t uiOffset, uint32_t uiLen, void *pDst) {
    ZosDbuf *b = Check(zDbuf, kAnyType, false, false);
    if (b == nullptr || pDst == nullptr) {
        ZOS_LOG_ERR("DbufCopyD invalid id.");
        return ZFAILED;
    }
    if (uiOffset >= b->uiLen) {
        ZOS_LOG_ERR("DbufCopyD invalid offset.");
        return ZFAILED;
    }
    if (uiLen > b->uiLen - uiOffset) {
        ZOS_LOG_ERR("DbufCopyD invalid length.");
        return ZFAILED;
    }
    CopyOut(b, uiOffset, uiLen, static_cast<uint8_t *>(pDst));
    return ZOK;
}

KESTRO_API ZDBUF Zos_DbufCopyX(ZDBUF zDbuf, uint32_t uiOffset, uint32_t uiLen) {
    ZosDbuf *b = Check(zDbuf, kAnyType, false, false);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbufCopyX invalid id.");
        return nullptr;
    }
    if (uiOffset >= b->uiLen || uiLen == 0 || uiLen > b->uiLen - uiOffset) {
        ZOS_LOG_ERR("DbufCopyX invalid range.");
        return nullptr;
    }
    auto *tmp = static_cast<uint8_t *>(Zos_Malloc(uiLen));
    ZosDbuf *nb = tmp != nullptr ? Sibling(b) : nullptr;
    Chain c;
    bool ok = nb != nullptr;
    if (ok) {
        CopyOut(b, uiOffset, uiLen, tmp);
        ok = AddData(nb, tmp, uiLen, false, &c);
    }
    Zos_Free(tmp);
    if (!ok) {
        if (nb != nullptr) FreeHeader(nb);
        ZOS_LOG_ERR("DbufCopyX alloc data.");
        return nullptr;
    }
    LinkAfter(nb, c);
    nb->uiLen = uiLen;
    return nb;
}

KESTRO_API ZDBUF Zos_DbufSplit(ZDBUF zDbuf, uint32_t uiOffset) {
    ZosDbuf *b = Check(zDbuf, kAnyType, true, true);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbufSplit invalid id.");
        return nullptr;
    }
    if (uiOffset == 0 || uiOffset >= b->uiLen) {
        ZOS_LOG_ERR("DbufSplit invalid offset.");
        return nullptr;
    }
    ZosDbuf *nb = Sibling(b);
    if (nb == nullptr) {
        ZOS_LOG_ERR("DbufSplit alloc data.");
        return nullptr;
    }
    // The block holding the offset: the first one that ends after it.
    Blk *k = b->pstFirst;
    uint32_t before = 0;
    while (before + k->uiLen <= uiOffset) {
        before += k->uiLen;
        k = k->pstNext;
    }
    if (before == uiOffset) {
        // On a boundary: the blocks from k on change hands.
        nb->pstFirst = k;
        nb->pstLast = b->pstLast;
        b->pstLast = k->pstPrev;
        b->pstLast->pstNext = nullptr;
        k->pstPrev = nullptr;
    } else {
        const uint32_t keep = uiOffset - before;
        const uint32_t rest = k->uiLen - keep;
        Blk *nk = NewBlk(b->zPool, rest);
        if (nk == nullptr) {
            FreeHeader(nb);
            ZOS_LOG_ERR("DbufSplit alloc data.");
            return nullptr;
        }
        std::memcpy(nk->Area(), k->Data() + keep, rest);
        nk->uiLen = rest;
        nk->uiTail = rest;
        nk->pstNext = k->pstNext;
        if (nk->pstNext != nullptr) nk->pstNext->pstPrev = nk;
        nb->pstFirst = nk;
        nb->pstLast = b->pstLast == k ? nk : b->pstLast;
        k->pstNext = nullptr;
        k->uiLen = keep;
        k->uiTail = k->uiHead + keep;
        b->pstLast = k;
    }
    nb->uiLen = b->uiLen - uiOffset;
    b->uiLen = uiOffset;
    return nb;
}

KESTRO_API uint32_t Zos_DbufCat(ZDBUF zDst, ZDBUF zSrc) {
    ZosDbuf *src = Check(zSrc, kAnyType, true, true);
    ZosDbuf *dst = src != nullptr ? Check(zDst, kAnyType, true, false) : nullptr;
    if (dst == nullptr || dst == src) {
        ZOS_LOG_ERR("DbufCat invalid id.");
        return ZFAILED;
    }
    if (dst->ucType != src->ucType) {
        ZOS_LOG_ERR("DbufCat type not same.");
        return ZFAILED;
    }
    if (src->uiLen > kMaxLen - dst->uiLen) {
        ZOS_LOG_ERR("DbufCat add data.");
        return ZFAILED;
    }
    Chain c{src->pstFirst, src->pstLast};
    if (dst->zPool != src->zPool) {
        // Blocks go back to the pool they came from: from another pool
        // the destination takes copies.
        if (!CloneBlocks(dst->zPool, src->pstFirst, &c)) {
            ZOS_LOG_ERR("DbufCat add data.");
            return ZFAILED;
        }
        ChainFree(src->zPool, src->pstFirst);
    }
    if (c.first != nullptr) LinkAfter(dst, c);
    dst->uiLen += src->uiLen;
    src->pstFirst = nullptr;
    src->pstLast = nullptr;
    src->uiLen = 0;
    Zos_DbufDelete(src);
    return ZOK;
}

KESTRO_API uint32_t Zos_DbufIsFlat(ZDBUF zDbuf) {
    const ZosDbuf *b = Quiet(zDbuf);
    return b != nullptr && b->pstNext == nullptr && b->pstFirst == b->pstLast ? 1 : 0;
}

KESTRO_API ZDBUF Zos_DbufFlatX(ZDBUF zDbuf, uint32_t uiOffset, uint32_t uiLen) {
    ZosDbuf *b = Check(zDbuf, kAnyType, false, false);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbufFlatX invalid id.");
        return nullptr;
    }
    ZDBUF nb = Zos_DbufCreate(b->zPool, ZOS_DBUF_TYPE_MSG, kFlatSize);
    void *p = nb != nullptr ? Zos_DbufAlloc(nb, uiLen) : nullptr;
    if (p == nullptr || Zos_DbufCopyD(b, uiOffset, uiLen, p) != ZOK) {
        if (nb != nullptr) Zos_DbufDelete(nb);
        return nullptr;
    }
    return nb;
}

KESTRO_API ZDBUF Zos_DbufFlat(ZDBUF zDbuf) {
    return Zos_DbufFlatX(zDbuf, 0, Zos_DbufLen(zDbuf));
}

// ---------------------------------------------------------------------
// Files

KESTRO_API uint32_t Zos_DbufLoadFile(const char *pcPath, ZDBUF *pzDbuf) {
    if (pzDbuf != nullptr) *pzDbuf = nullptr;
    ZFILE f = 0;
    if (Zfile_Open(pcPath, "rb", &f) != ZOK) {
        ZOS_LOG_ERR("DbufLoadFile open file(%s) fail.", pcPath != nullptr ? pcPath : "");
        return ZFAILED;
    }
    const uint32_t rc = Zos_DbufLoadFileX(f, pzDbuf);
    Zfile_Close(f);
    return rc;
}

KESTRO_API uint32_t Zos_DbufLoadFileX(ZFILE zFile, ZDBUF *pzDbuf) {
    if (pzDbuf == nullptr) return ZFAILED;
    *pzDbuf = nullptr;
    int64_t size = 0;
    if (zFile == 0 || Zfile_Seek(zFile, 0, ZFILE_SEEK_END) != ZOK ||
        Zfile_Tell(zFile, &size) != ZOK || Zfile_Seek(zFile, 0, ZFILE_SEEK_SET) != ZOK) {
        ZOS_LOG_ERR("DbufLoadFileX read file.");
        return ZFAILED;
    }
    if (size == 0) {
        ZOS_LOG_WARN("DbufLoadFileX file size is 0.");
        return ZFAILED;
    }
    if (size < 0 || size > kMaxLen) {
        ZOS_LOG_ERR("DbufLoadFileX read file.");
        return ZFAILED;
    }
    const auto len = static_cast<uint32_t>(size);
    void *p = nullptr;
    ZDBUF b = Zos_DbufCreateD(nullptr, ZOS_DBUF_TYPE_MSG, kLoadSize, len, &p);
    uint32_t got = 0;
    if (b == nullptr || Zfile_Read(zFile, p, len, &got) != ZOK || got != len) {
        ZOS_LOG_ERR("DbufLoadFileX read file.");
        if (b != nullptr) Zos_DbufDelete(b);
        return ZFAILED;
    }
    *pzDbuf = b;
    return ZOK;
}

KESTRO_API uint32_t Zos_DbufSaveFile(ZDBUF zDbuf, const char *pcPath) {
    if (pcPath == nullptr || pcPath[0] == '\0') {
        ZOS_LOG_ERR("DbufSaveFile no file name.");
        return ZFAILED;
    }
    if (Check(zDbuf, kAnyType, false, false) == nullptr) {
        ZOS_LOG_ERR("DbufSaveFileX invalid id.");
        return ZFAILED;
    }
    ZFILE f = 0;
    if (Zfile_SaveBegin(pcPath, &f) != ZOK) {
        ZOS_LOG_ERR("DbufSaveFile open file(%s).", pcPath);
        return ZFAILED;
    }
    if (Zos_DbufSaveFileX(zDbuf, f) != ZOK) {
        Zfile_SaveAbort(pcPath, f);
        return ZFAILED;
    }
    return Zfile_SaveCommit(pcPath, f);
}

KESTRO_API uint32_t Zos_DbufSaveFileX(ZDBUF zDbuf, ZFILE zFile) {
    ZosDbuf *b = Check(zDbuf, kAnyType, false, false);
    if (b == nullptr || zFile == 0) {
        ZOS_LOG_ERR("DbufSaveFileX invalid id.");
        return ZFAILED;
    }
    for (Blk *k = b->pstFirst; k != nullptr; k = k->pstNext) {
        if (k->uiLen != 0 && Zfile_Write(zFile, k->Data(), k->uiLen) != ZOK) {
            ZOS_LOG_ERR("DbufSaveFileX write file.");
            return ZFAILED;
        }
    }
    return ZOK;
}

// ---------------------------------------------------------------------
// Diagnostics

KESTRO_API uint32_t Zos_DbufLogTxt(ZLOGID zLogId, uint32_t uiLevel, ZDBUF zDbuf) {
    ZosDbuf *b = Check(zDbuf, kAnyType, false, false);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbufLogTxt invalid id.");
        return ZFAILED;
    }
    if (b->uiLen == 0) return Zos_LogStr(zLogId, uiLevel, "");
    uint8_t *tmp = Contents(b);
    if (tmp == nullptr) return ZFAILED;
    const uint32_t rc = Zos_LogNStr(zLogId, uiLevel, reinterpret_cast<char *>(tmp), b->uiLen);
    Zos_Free(tmp);
    return rc;
}

KESTRO_API uint32_t Zos_DbufLogHex(ZLOGID zLogId, uint32_t uiLevel, ZDBUF zDbuf) {
    ZosDbuf *b = Check(zDbuf, kAnyType, false, false);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbufLogHex invalid id.");
        return ZFAILED;
    }
    uint8_t *tmp = Contents(b);
    if (tmp == nullptr && b->uiLen != 0) return ZFAILED;
    const uint32_t rc = Zos_LogBuf(
        zLogId, uiLevel, tmp != nullptr ? tmp : reinterpret_cast<const uint8_t *>(""), b->uiLen);
    Zos_Free(tmp);
    return rc;
}

KESTRO_API uint32_t Zos_DbufLogPrint(ZLOGID zLogId, uint32_t uiLevel, ZDBUF zDbuf) {
    ZosDbuf *b = Check(zDbuf, kAnyType, false, false);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbufLogPrint invalid id.");
        return ZFAILED;
    }
    uint32_t rc = ZOK;
    Layout(b, [&](const char *fmt, auto... args) {
        rc |= Zos_LogFStr(zLogId, uiLevel, nullptr, fmt, args...);
    });
    return rc;
}

KESTRO_API uint32_t Zos_DbufDbgShow(ZDBUF zDbuf) {
    ZosDbuf *b = Check(zDbuf, kAnyType, false, false);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbufDbgShow invalid id.");
        return ZFAILED;
    }
    Layout(b, [](const char *fmt, auto... args) {
        char line[160];
        Zos_SNPrintf(line, sizeof(line), fmt, args...);
        Zos_Printf("%s\r\n", line);
    });
    return ZOK;
}

KESTRO_API uint32_t Zos_DbufDumpPrint(ZDBUF zDbuf) {
    ZosDbuf *b = Check(zDbuf, kAnyType, false, false);
    if (b == nullptr || b->pstTrace == nullptr) {
        ZOS_LOG_ERR("DbufDumpPrint invalid id.");
        return ZFAILED;
    }
    return Zos_DumpPrint(b->pstTrace->zDump);
}

KESTRO_API uint32_t Zos_DbufDumpDbgShow(ZDBUF zDbuf) {
    if (Zos_DbufDbgShow(zDbuf) != ZOK) return ZFAILED;
    const ZosDbuf *b = Quiet(zDbuf);
    return b->pstTrace != nullptr ? Zos_DumpPrint(b->pstTrace->zDump) : ZOK;
}

KESTRO_API uint32_t Zos_DbufChkPool(void) {
    ZosEnv *env = zos::EnvIfAny();
    if (env == nullptr || env->zDbufPool == nullptr) return ZFAILED;
    return Zos_PoolChkPool(env->zDbufPool) == 1 ? ZOK : ZFAILED;
}

// ---------------------------------------------------------------------
// Allocation trace

KESTRO_API uint32_t Zos_DbufDumpCreate(ZDBUF zDbuf, const char *pcName, const char *pcFile,
                                       uint32_t uiLine) {
    ZosDbuf *b = Check(zDbuf, kAnyType, false, false);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbufDumpCreate invalid id.");
        return ZFAILED;
    }
    if (b->pstTrace == nullptr) {
        auto *t = static_cast<DbufTrace *>(Zos_MallocClrd(sizeof(DbufTrace)));
        if (t == nullptr) {
            ZOS_LOG_ERR("DbufDumpCreate alloc memory.");
            return ZFAILED;
        }
        Zos_NStrCpy(t->acName, sizeof(t->acName), pcName != nullptr ? pcName : "dbuf");
        t->zDump = Zos_DumpCreate(t->acName, kTraceDepth);
        if (t->zDump == nullptr) {
            Zos_Free(t);
            ZOS_LOG_ERR("DbufDumpCreate create dump.");
            return ZFAILED;
        }
        b->pstTrace = t;
    }
    b->pstTrace->pcFile = pcFile;
    b->pstTrace->uiLine = uiLine;
    TraceRecord(b, b->ucType == ZOS_DBUF_TYPE_MEM ? "membuf create" : "msgbuf create", b->ucRefs);
    return ZOK;
}

KESTRO_API uint32_t Zos_DbufDumpStack(ZDBUF zDbuf, const char *pcFile, uint32_t uiLine) {
    ZosDbuf *b = Check(zDbuf, kAnyType, false, false);
    if (b == nullptr || b->pstTrace == nullptr) {
        ZOS_LOG_ERR("DbufDumpStack invalid id.");
        return ZFAILED;
    }
    b->pstTrace->pcFile = pcFile;
    b->pstTrace->uiLine = uiLine;
    return ZOK;
}

KESTRO_API uint32_t Zos_DbufDumpDelete(ZDBUF zDbuf, const char *pcFile, uint32_t uiLine) {
    ZosDbuf *b = Check(zDbuf, kAnyType, false, false);
    if (b == nullptr || b->pstTrace == nullptr) {
        ZOS_LOG_ERR("DbufDumpDelete invalid id.");
        return ZFAILED;
    }
    b->pstTrace->pcFile = pcFile;
    b->pstTrace->uiLine = uiLine;
    TraceRecord(b, "delete", b->ucRefs);
    TraceDrop(b);
    return ZOK;
}

}  // extern "C"
