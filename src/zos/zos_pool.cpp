// Bucket pools: per-size free lists of pre-carved nodes with headers, red
// zones and statistics, and large allocations straight from the backing
// allocator.
//
// Node:  [header word][magic 0xAC1D2D3D][data ...][red zone "ZZZZ"]
//        header = bucket index << 16 | node number, bit 30 while free.
// Free:  data holds {next, prev, owning block, "}{Zn"}.
// Large: [size | bit 31][magic 0xACACACAC][data ...]["ZZZZ"].
//
// Every pointer handed in is first looked up in the pool's address index
// (a sorted array of its blocks and large allocations) before any header
// in front of it is read, so a foreign or wild pointer is refused without
// touching memory the pool does not own.
#include <cstddef>
#include <cstring>

#include "zos_dlist.h"
#include "zos_fmt.h"
#include "zos_mem.h"
#include "zos_osdep.h"
#include "zos_pool_int.h"
#include "zos_print.h"
#include "zos_util.h"

namespace {

constexpr uint32_t kPoolMagic = 0x0E1E2E3Eu;
constexpr uint32_t kNodeMagic = 0xAC1D2D3Du;
constexpr uint32_t kLargeMagic = 0xACACACACu;
constexpr uint32_t kRedZone = 0x5A5A5A5Au;  // "ZZZZ"
constexpr char kFreeMark[4] = {'}', '{', 'Z', 'n'};

constexpr uint32_t kFreeBit = 0x40000000u;
constexpr uint32_t kLargeBit = 0x80000000u;
constexpr uint32_t kBktShift = 16;
constexpr uint32_t kBktMask = 0x3FFFu;
constexpr uint32_t kNodeNumMask = 0xFFFFu;
constexpr uint32_t kMaxBktIdx = 4096;

constexpr uint32_t kNodeHead = 8;    // header word, magic word
constexpr uint32_t kNodeExtra = 12;  // the same plus the red zone
constexpr uint32_t kMaxNodes = 0xFFFFu;
constexpr uint32_t kNoLimit = 0xFFFFFFFFu;
constexpr uint32_t kLargeRef = 0xFFFFFFFFu;

constexpr uint16_t kFlagLocked = 0x1;
constexpr uint16_t kFlagShrink = 0x2;
constexpr uint16_t kFlagLog = 0x4;

// Nodes sit on pointer-aligned addresses so the free-list links (and the
// callers' own pointers) are naturally aligned: 4 on 32-bit targets.
constexpr uint32_t kAlign = sizeof(void *) > 4 ? static_cast<uint32_t>(sizeof(void *)) : 4u;

using Link = ST_ZOS_DLIST_NODE;
using LockFn = uint32_t (*)(ZMUTEX *);

// A block of nodes, as obtained from the backing allocator.
struct ZosBlk {
    Link stLink;
    uint8_t *pucFirst;  // first node
    uint8_t *pucEnd;    // just past the last node
    uint16_t wCount;
    uint16_t wFree;
};

// What a free node's data holds.
struct FreeRec {
    Link stLink;
    ZosBlk *pstBlk;
    char acMark[4];
};

constexpr uint32_t RoundUp(uint32_t v, uint32_t a) {
    return (v + a - 1) / a * a;
}

// The smallest data size: 16, or the free record where that is larger
// (64-bit links), so a free node never spills into its red zone.
constexpr uint32_t kFreeRecSize = static_cast<uint32_t>(offsetof(FreeRec, acMark)) + 4;
constexpr uint32_t kMinData = RoundUp(kFreeRecSize > 16 ? kFreeRecSize : 16, 4);

struct ZosBkt {
    uint32_t uiDataSize;
    uint32_t uiStride;
    uint16_t wInitCnt;
    uint16_t wIncCnt;
    uint16_t wTotal;
    uint16_t wFree;
    ST_ZOS_DLIST stBlkList;
    ST_ZOS_DLIST stFreeList;
    uint32_t uiPeak;
    uint32_t uiAllocs;
    uint32_t uiFrees;
};

// One entry of the address index: a block's node range, or a large
// allocation (block null) from its header to its end.
struct AddrRef {
    uintptr_t uStart;
    uintptr_t uEnd;
    ZosBlk *pstBlk;
    uint32_t uiBkt;
};

struct ZosPool {
    uint32_t uiMagic;
    uint8_t ucBktCnt;
    uint8_t ucAlign;
    uint16_t wFlags;
    ZMUTEX zMutex;
    uint32_t uiMinSize;
    uint32_t uiMaxSize;
    const char *pcName;
    ZosBkt *pstBkts;
    PFN_ZOS_POOL_ALLOC pfnAlloc;
    PFN_ZOS_POOL_FREE pfnFree;
    uint32_t uiHeapSize;
    // The platform's lock functions, taken once when the mutex is made
    // (null when the pool is unlocked or mutexes are switched off).
    LockFn pfnLock;
    LockFn pfnUnlock;
    // Address index, sorted by start address.
    AddrRef *pstRefs;
    uint32_t uiRefCnt;
    uint32_t uiRefCap;
};

// ---------------------------------------------------------------------
// Small helpers

uint32_t Load32(const uint8_t *p) {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

void Store32(uint8_t *p, uint32_t v) {
    std::memcpy(p, &v, 4);
}

FreeRec *RecOf(uint8_t *node) {
    return reinterpret_cast<FreeRec *>(node + kNodeHead);
}

uint8_t *NodeOf(Link *link) {
    return reinterpret_cast<uint8_t *>(link) - kNodeHead;
}

ZosPool *PoolOf(ZPOOL zPool) {
    return static_cast<ZosPool *>(zPool);
}

bool LogOn(const ZosPool *pool) {
    return (pool->wFlags & kFlagLog) != 0;
}

// "<name>" messages go through the error log with the pool name.
#define POOL_ERR(pool, text) \
    (LogOn(pool) ? (void)Zos_LogError(Zos_LogGetZosId(), text, (pool)->pcName) : (void)0)

// Plain log strings at the error level.
void PoolLogStr(const ZosPool *pool, const char *text) {
    if (LogOn(pool)) Zos_LogStr(Zos_LogGetZosId(), ZOS_LOG_LEVEL_ERROR, text);
}

class PoolLock {
  public:
    explicit PoolLock(ZosPool *pool) : pool_(pool->pfnLock != nullptr ? pool : nullptr) {
        if (pool_ != nullptr) pool_->pfnLock(&pool_->zMutex);
    }
    ~PoolLock() {
        if (pool_ != nullptr) pool_->pfnUnlock(&pool_->zMutex);
    }
    PoolLock(const PoolLock &) = delete;
    PoolLock &operator=(const PoolLock &) = delete;

  private:
    ZosPool *pool_;
};

// The pool's lists are covered by the pool lock, so they are linked in
// place here rather than through the list family's own per-list mutex.
void ListInit(ST_ZOS_DLIST *list, uint32_t max) {
    list->uiMax = max;
    list->uiCount = 0;
    list->pstHead = nullptr;
    list->pstTail = nullptr;
    list->zMutex = 0;
}

void ListAppend(ST_ZOS_DLIST *list, Link *node) {
    node->pstNext = nullptr;
    node->pstPrev = list->pstTail;
    if (list->pstTail != nullptr) {
        list->pstTail->pstNext = node;
    } else {
        list->pstHead = node;
    }
    list->pstTail = node;
    list->uiCount++;
}

void ListUnlink(ST_ZOS_DLIST *list, Link *node) {
    if (node->pstPrev != nullptr) {
        node->pstPrev->pstNext = node->pstNext;
    } else {
        list->pstHead = node->pstNext;
    }
    if (node->pstNext != nullptr) {
        node->pstNext->pstPrev = node->pstPrev;
    } else {
        list->pstTail = node->pstPrev;
    }
    node->pstNext = nullptr;
    node->pstPrev = nullptr;
    list->uiCount--;
}

// ---------------------------------------------------------------------
// Address index

// Position of the first entry starting above addr.
uint32_t UpperBound(const ZosPool *pool, uintptr_t addr) {
    uint32_t lo = 0;
    uint32_t hi = pool->uiRefCnt;
    while (lo < hi) {
        const uint32_t mid = lo + (hi - lo) / 2;
        if (pool->pstRefs[mid].uStart <= addr) {
            lo = mid + 1;
        } else {
            hi = mid;
        }
    }
    return lo;
}

bool RefAdd(ZosPool *pool, const AddrRef &ref) {
    if (pool->uiRefCnt == pool->uiRefCap) {
        const uint32_t cap = pool->uiRefCap == 0 ? 16 : pool->uiRefCap * 2;
        const uint64_t bytes = static_cast<uint64_t>(cap) * sizeof(AddrRef);
        if (bytes >= 0x7FFFFFFFu) return false;
        auto *refs = static_cast<AddrRef *>(pool->pfnAlloc(static_cast<uint32_t>(bytes)));
        if (refs == nullptr) return false;
        if (pool->uiRefCnt != 0) {
            std::memcpy(refs, pool->pstRefs, pool->uiRefCnt * sizeof(AddrRef));
        }
        if (pool->pstRefs != nullptr) pool->pfnFree(pool->pstRefs);
        pool->pstRefs = refs;
        pool->uiRefCap = cap;
    }
    const uint32_t at = UpperBound(pool, ref.uStart);
    std::memmove(&pool->pstRefs[at + 1], &pool->pstRefs[at],
                 (pool->uiRefCnt - at) * sizeof(AddrRef));
    pool->pstRefs[at] = ref;
    pool->uiRefCnt++;
    return true;
}

void RefRemove(ZosPool *pool, uintptr_t start) {
    const uint32_t at = UpperBound(pool, start);
    if (at == 0 || pool->pstRefs[at - 1].uStart != start) return;
    std::memmove(&pool->pstRefs[at - 1], &pool->pstRefs[at],
                 (pool->uiRefCnt - at) * sizeof(AddrRef));
    pool->uiRefCnt--;
}

// Where a pointer handed in lies. A node is found only at a node's data
// address inside one of the pool's blocks, a large allocation only at the
// data address of one the pool made; everything else is foreign.
enum class Kind { kForeign, kNode, kLarge };

struct Where {
    Kind kind;
    uint8_t *node;  // node or large header
    const AddrRef *ref;
};

Where Locate(const ZosPool *pool, const void *mem) {
    const uintptr_t addr = reinterpret_cast<uintptr_t>(mem);
    if (addr < kNodeHead) return {Kind::kForeign, nullptr, nullptr};
    const uintptr_t node = addr - kNodeHead;
    const uint32_t at = UpperBound(pool, node);
    if (at == 0) return {Kind::kForeign, nullptr, nullptr};
    const AddrRef *ref = &pool->pstRefs[at - 1];
    if (node >= ref->uEnd) return {Kind::kForeign, nullptr, nullptr};
    if (ref->pstBlk == nullptr) {
        if (node != ref->uStart) return {Kind::kForeign, nullptr, nullptr};
        return {Kind::kLarge, reinterpret_cast<uint8_t *>(node), ref};
    }
    const uint32_t offset = static_cast<uint32_t>(node - ref->uStart);
    if (offset % pool->pstBkts[ref->uiBkt].uiStride != 0) return {Kind::kForeign, nullptr, nullptr};
    return {Kind::kNode, reinterpret_cast<uint8_t *>(node), ref};
}

// ---------------------------------------------------------------------
// Buckets and blocks

uint32_t BktIndex(uint32_t header) {
    return (header >> kBktShift) & kBktMask;
}

uint32_t Zos_BktCreate(ZosPool *pool, uint32_t idx, bool first) {
    ZosBkt *bkt = &pool->pstBkts[idx];
    if (bkt->uiDataSize == 0 || (bkt->wInitCnt == 0 && bkt->wIncCnt == 0)) {
        POOL_ERR(pool, "BktCreate <%s> invalid size.");
        return ZFAILED;
    }
    if (idx >= kMaxBktIdx) {
        POOL_ERR(pool, "BktCreate <%s> invalid bucket id.");
        return ZFAILED;
    }
    uint32_t count = 0;
    if (first) {
        bkt->uiStride = RoundUp(bkt->uiDataSize + kNodeExtra, pool->ucAlign);
        count = bkt->wInitCnt;
        if (count == 0) return ZOK;
    } else {
        count = bkt->wIncCnt;
        if (count == 0) {
            POOL_ERR(pool, "BktCreate <%s> increase zero size.");
            return ZFAILED;
        }
    }
    // The node counters are 16-bit: a bucket stops growing at 65535 nodes
    // and further requests move on to the next size class.
    const uint64_t bytes =
        pool->ucAlign + static_cast<uint64_t>(bkt->uiStride) * count + sizeof(ZosBlk);
    if (bkt->wTotal + count > kMaxNodes || bytes >= 0x7FFFFFFFu) {
        POOL_ERR(pool, "BktCreate <%s> invalid size.");
        return ZFAILED;
    }
    auto *mem = static_cast<uint8_t *>(pool->pfnAlloc(static_cast<uint32_t>(bytes)));
    if (mem == nullptr) {
        POOL_ERR(pool, "BktCreate <%s> heap alloc.");
        return ZFAILED;
    }
    auto *blk = reinterpret_cast<ZosBlk *>(mem);
    // Nodes start at the first aligned address behind the block header.
    const uintptr_t after = reinterpret_cast<uintptr_t>(mem) + sizeof(ZosBlk);
    const uintptr_t pad = (pool->ucAlign - after % pool->ucAlign) % pool->ucAlign;
    blk->pucFirst = mem + sizeof(ZosBlk) + pad;
    blk->pucEnd = blk->pucFirst + static_cast<size_t>(bkt->uiStride) * count;
    blk->wCount = static_cast<uint16_t>(count);
    blk->wFree = static_cast<uint16_t>(count);
    const AddrRef ref{reinterpret_cast<uintptr_t>(blk->pucFirst),
                      reinterpret_cast<uintptr_t>(blk->pucEnd), blk, idx};
    if (!RefAdd(pool, ref)) {
        pool->pfnFree(mem);
        POOL_ERR(pool, "BktCreate <%s> heap alloc.");
        return ZFAILED;
    }
    ListAppend(&bkt->stBlkList, &blk->stLink);
    uint8_t *node = blk->pucFirst;
    for (uint32_t i = 0; i < count; ++i, node += bkt->uiStride) {
        const uint32_t number = (bkt->wTotal + i) & kNodeNumMask;
        Store32(node, idx << kBktShift | number | kFreeBit);
        Store32(node + 4, kNodeMagic);
        Store32(node + kNodeHead + bkt->uiDataSize, kRedZone);
        FreeRec *rec = RecOf(node);
        rec->pstBlk = blk;
        std::memcpy(rec->acMark, kFreeMark, 4);
        ListAppend(&bkt->stFreeList, &rec->stLink);
    }
    bkt->wTotal = static_cast<uint16_t>(bkt->wTotal + count);
    bkt->wFree = static_cast<uint16_t>(bkt->wFree + count);
    return ZOK;
}

// Gives one block back: its nodes leave the free list, its entry the index.
void Zos_BktDelete(ZosPool *pool, ZosBkt *bkt, ZosBlk *blk) {
    for (uint8_t *node = blk->pucFirst; node < blk->pucEnd; node += bkt->uiStride) {
        if ((Load32(node) & kFreeBit) != 0) ListUnlink(&bkt->stFreeList, &RecOf(node)->stLink);
    }
    bkt->wTotal = static_cast<uint16_t>(bkt->wTotal - blk->wCount);
    bkt->wFree = static_cast<uint16_t>(bkt->wFree - blk->wFree);
    ListUnlink(&bkt->stBlkList, &blk->stLink);
    RefRemove(pool, reinterpret_cast<uintptr_t>(blk->pucFirst));
    pool->pfnFree(blk);
}

// Shrink step after a free: a block that is now wholly free goes back,
// except the bucket's first block made with its initial count (it stays
// at the head of the block list), so a bucket never shrinks below it.
void Zos_BktFree(ZosPool *pool, ZosBkt *bkt, ZosBlk *blk) {
    if (blk->wFree != blk->wCount) return;
    if (bkt->wTotal == bkt->wInitCnt) return;
    if (bkt->wInitCnt != 0 && bkt->stBlkList.pstHead == &blk->stLink) return;
    Zos_BktDelete(pool, bkt, blk);
}

uint32_t Zos_BktGrpCreate(ZosPool *pool) {
    for (uint32_t i = 0; i < pool->ucBktCnt; ++i) {
        if (Zos_BktCreate(pool, i, true) != ZOK) {
            POOL_ERR(pool, "BktGrpCreate <%s> create bucket.");
            return ZFAILED;
        }
    }
    return ZOK;
}

void Zos_BktGrpDelete(ZosPool *pool) {
    if (pool->pstBkts == nullptr) return;
    for (uint32_t i = 0; i < pool->ucBktCnt; ++i) {
        ZosBkt *bkt = &pool->pstBkts[i];
        while (bkt->stBlkList.pstHead != nullptr) {
            auto *blk = reinterpret_cast<ZosBlk *>(bkt->stBlkList.pstHead);
            ListUnlink(&bkt->stBlkList, &blk->stLink);
            pool->pfnFree(blk);
        }
        ListInit(&bkt->stBlkList, 0);
        ListInit(&bkt->stFreeList, 0);
        bkt->wTotal = 0;
        bkt->wFree = 0;
    }
}

// ---------------------------------------------------------------------
// Large allocations

void *Zos_PoolHeapAlloc(ZosPool *pool, uint32_t size) {
    if (static_cast<int32_t>(size) < 0) {
        PoolLogStr(pool, "PoolHeapAlloc size too big.");
        return nullptr;
    }
    const uint32_t rounded = RoundUp(size, 4);
    const uint32_t total = rounded + kNodeExtra;
    auto *mem = static_cast<uint8_t *>(pool->pfnAlloc(total));
    bool indexed = false;
    if (mem != nullptr) {
        Store32(mem, rounded | kLargeBit);
        Store32(mem + 4, kLargeMagic);
        Store32(mem + kNodeHead + rounded, kRedZone);
        PoolLock lock(pool);
        const uintptr_t start = reinterpret_cast<uintptr_t>(mem);
        indexed = RefAdd(pool, AddrRef{start, start + total, nullptr, kLargeRef});
        if (indexed) pool->uiHeapSize += total;
    }
    if (!indexed) {
        if (mem != nullptr) pool->pfnFree(mem);
        if (LogOn(pool)) {
            char text[160];
            Zos_SNPrintf(text, static_cast<int32_t>(sizeof(text)),
                         "PoolHeapAlloc <%s> heap alloc %d bytes.", pool->pcName,
                         static_cast<int32_t>(total));
            PoolLogStr(pool, text);
        }
        return nullptr;
    }
    return mem + kNodeHead;
}

// Called with the lock held for a pointer the index knows as large; the
// block is returned through *release for freeing after the lock.
void Zos_PoolHeapFree(ZosPool *pool, const Where &w, void **release) {
    uint8_t *mem = w.node;
    const uint32_t total = static_cast<uint32_t>(w.ref->uEnd - w.ref->uStart);
    const uint32_t rounded = total - kNodeExtra;
    if (Load32(mem + 4) != kLargeMagic) {
        PoolLogStr(pool, "PoolHeapFree invalid magic value.");
        return;
    }
    // The size is taken from the index, never from the header alone, so
    // a damaged header cannot send the red-zone read elsewhere.
    if (Load32(mem) != (rounded | kLargeBit)) {
        PoolLogStr(pool, "PoolHeapFree invalid bucket id.");
        return;
    }
    if (Load32(mem + kNodeHead + rounded) != kRedZone) {
        PoolLogStr(pool, "PoolHeapFree invalid redzone.");
    }
    Store32(mem + 4, 0);
    RefRemove(pool, w.ref->uStart);
    pool->uiHeapSize -= total;
    *release = mem;
}

// ---------------------------------------------------------------------
// Allocation and free

bool ValidPool(const ZosPool *pool) {
    return pool != nullptr && pool->uiMagic == kPoolMagic;
}

// Takes a node of the first bucket that fits and has (or can grow) a free
// node; null when none can.
uint8_t *TakeNode(ZosPool *pool, uint32_t size, bool *busy) {
    PoolLock lock(pool);
    for (uint32_t i = 0; i < pool->ucBktCnt; ++i) {
        ZosBkt *bkt = &pool->pstBkts[i];
        if (bkt->uiDataSize < size) continue;
        if (bkt->stFreeList.pstHead == nullptr && Zos_BktCreate(pool, i, false) != ZOK) continue;
        Link *link = bkt->stFreeList.pstHead;
        if (link == nullptr) {
            POOL_ERR(pool, "PoolAlloc <%s> fatal error, bad memory.");
            return nullptr;
        }
        ListUnlink(&bkt->stFreeList, link);
        bkt->uiAllocs++;
        bkt->wFree--;
        const uint32_t used = static_cast<uint32_t>(bkt->wTotal - bkt->wFree);
        if (used > bkt->uiPeak) bkt->uiPeak = used;
        uint8_t *node = NodeOf(link);
        const uint32_t header = Load32(node);
        *busy = (header & kFreeBit) == 0;
        Store32(node, header & ~kFreeBit);
        reinterpret_cast<FreeRec *>(link)->pstBlk->wFree--;
        return node;
    }
    POOL_ERR(pool, "PoolAlloc <%s> bucket node is empty.");
    return nullptr;
}

enum class FreeFault { kNone, kTwice, kBadId, kHeapBadId };

}  // namespace

extern "C" {

KESTRO_API ZPOOL Zos_PoolCreate(const ST_ZOS_POOL_CFG *pstCfg) {
    if (pstCfg == nullptr || pstCfg->pstBktInfo == nullptr || pstCfg->ucBktCnt == 0 ||
        (pstCfg->pfnAlloc != nullptr && pstCfg->pfnFree == nullptr)) {
        Zos_OsdepTrace("PoolCreate null config.", "src/zos/zos_pool", 583);
        return nullptr;
    }
    PFN_ZOS_POOL_ALLOC alloc = pstCfg->pfnAlloc != nullptr ? pstCfg->pfnAlloc : Zos_HeapAlloc;
    PFN_ZOS_POOL_FREE release = pstCfg->pfnAlloc != nullptr ? pstCfg->pfnFree : Zos_HeapFree;
    auto *pool = static_cast<ZosPool *>(alloc(sizeof(ZosPool)));
    if (pool == nullptr) {
        Zos_OsdepTrace("PoolCreate null config.", "src/zos/zos_pool", 583);
        return nullptr;
    }
    std::memset(pool, 0, sizeof(*pool));
    pool->ucBktCnt = pstCfg->ucBktCnt;
    pool->wFlags = static_cast<uint16_t>((pstCfg->ucLocked != 0 ? kFlagLocked : 0) |
                                         (pstCfg->ucShrink != 0 ? kFlagShrink : 0) |
                                         (pstCfg->ucLogErr != 0 ? kFlagLog : 0));
    pool->pfnAlloc = alloc;
    pool->pfnFree = release;

    pool->pstBkts = static_cast<ZosBkt *>(alloc(sizeof(ZosBkt) * pstCfg->ucBktCnt));
    if (pool->pstBkts == nullptr) {
        Zos_OsdepTrace("PoolCreate allc bkt group.", "src/zos/zos_pool", 621);
        release(pool);
        return nullptr;
    }
    std::memset(pool->pstBkts, 0, sizeof(ZosBkt) * pstCfg->ucBktCnt);
    for (uint32_t i = 0; i < pstCfg->ucBktCnt; ++i) {
        const ST_ZOS_BKT_INFO &row = pstCfg->pstBktInfo[i];
        ZosBkt *bkt = &pool->pstBkts[i];
        // A size or count the bucket record cannot hold leaves the data size
        // 0, which the block maker refuses.
        if (row.uiSize <= 0x7FFF0000u && row.uiInitCnt <= kMaxNodes && row.uiIncCnt <= kMaxNodes) {
            bkt->uiDataSize = RoundUp(row.uiSize < kMinData ? kMinData : row.uiSize, 4);
        }
        bkt->uiStride = RoundUp(bkt->uiDataSize + kNodeExtra, kAlign);
        bkt->wInitCnt = static_cast<uint16_t>(row.uiInitCnt);
        bkt->wIncCnt = static_cast<uint16_t>(row.uiIncCnt);
        ListInit(&bkt->stBlkList, bkt->wIncCnt != 0 ? kNoLimit : 1);
        ListInit(&bkt->stFreeList, bkt->wIncCnt != 0 ? kNoLimit : bkt->wInitCnt);
    }

    if (pstCfg->ucLocked != 0) {
        if (Zos_MutexCreate(&pool->zMutex) != ZOK) {
            Zos_OsdepTrace("PoolCreate create mutex.", "src/zos/zos_pool", 663);
            release(pool->pstBkts);
            release(pool);
            return nullptr;
        }
        // With mutexes switched off the create does nothing and the pool
        // runs without a lock.
        if (pool->zMutex != 0) {
            pool->pfnLock = zos::Osdep<zos::kSlotMutexLock>();
            pool->pfnUnlock = zos::Osdep<zos::kSlotMutexUnlock>();
            if (pool->pfnLock == nullptr || pool->pfnUnlock == nullptr) {
                pool->pfnLock = nullptr;
                pool->pfnUnlock = nullptr;
            }
        }
    }

    pool->ucAlign = static_cast<uint8_t>(kAlign);
    pool->pcName = pstCfg->pcName != nullptr ? pstCfg->pcName : "unknown";
    pool->uiHeapSize = 0;
    pool->uiMinSize = 0xFFFFFFFFu;
    for (uint32_t i = 0; i < pool->ucBktCnt; ++i) {
        const uint32_t size = pool->pstBkts[i].uiDataSize;
        if (size < pool->uiMinSize) pool->uiMinSize = size;
        if (size > pool->uiMaxSize) pool->uiMaxSize = size;
    }
    if (Zos_BktGrpCreate(pool) != ZOK) {
        pool->uiMagic = kPoolMagic;
        Zos_PoolDelete(pool);
        return nullptr;
    }
    pool->uiMagic = kPoolMagic;
    return pool;
}

KESTRO_API void Zos_PoolDelete(ZPOOL zPool) {
    ZosPool *pool = PoolOf(zPool);
    if (pool == nullptr) return;
    if (pool->uiMagic != kPoolMagic) {
        Zos_OsdepTrace("PoolDelete invalid magic.", "src/zos/zos_pool", 729);
        return;
    }
    pool->uiMagic = 0;
    Zos_BktGrpDelete(pool);
    // Large allocations still alive go back too: the pool owns them.
    for (uint32_t i = 0; i < pool->uiRefCnt; ++i) {
        if (pool->pstRefs[i].pstBlk == nullptr) {
            pool->pfnFree(reinterpret_cast<void *>(pool->pstRefs[i].uStart));
        }
    }
    if (pool->pstRefs != nullptr) pool->pfnFree(pool->pstRefs);
    if (pool->zMutex != 0) {
        auto del = zos::Osdep<zos::kSlotMutexDelete>();
        if (del != nullptr) del(&pool->zMutex);
    }
    PFN_ZOS_POOL_FREE release = pool->pfnFree;
    release(pool->pstBkts);
    release(pool);
}

KESTRO_API void *Zos_PoolAlloc(ZPOOL zPool, uint32_t uiSize) {
    ZosPool *pool = PoolOf(zPool);
    if (pool == nullptr) return nullptr;
    if (pool->uiMagic != kPoolMagic) {
        PoolLogStr(pool, "PoolAlloc invalid pool.");
        return nullptr;
    }
    if (uiSize == 0 || uiSize >= 0x7FFFFFFFu) {
        PoolLogStr(pool, "PoolAlloc size is 0 or too big.");
        return nullptr;
    }
    if (uiSize > pool->uiMaxSize) return Zos_PoolHeapAlloc(pool, uiSize);

    bool busy = false;
    uint8_t *node = TakeNode(pool, uiSize, &busy);
    if (node == nullptr) return nullptr;
    if (busy) POOL_ERR(pool, "PoolAlloc <%s> alloc busy node.");
    // Diagnostic only: a damaged node is still handed out.
    const uint32_t dataSize = pool->pstBkts[BktIndex(Load32(node))].uiDataSize;
    if (Load32(node + 4) != kNodeMagic ||
        std::memcmp(RecOf(node)->acMark, kFreeMark, sizeof(kFreeMark)) != 0 ||
        Load32(node + kNodeHead + dataSize) != kRedZone) {
        POOL_ERR(pool, "PoolAlloc <%s> invalid id(ex.magic id).");
    }
    return node + kNodeHead;
}

KESTRO_API void *Zos_PoolAllocClrd(ZPOOL zPool, uint32_t uiSize) {
    void *p = Zos_PoolAlloc(zPool, uiSize);
    if (p != nullptr) std::memset(p, 0, uiSize);
    return p;
}

KESTRO_API void Zos_PoolFree(ZPOOL zPool, void *pMem) {
    ZosPool *pool = PoolOf(zPool);
    if (pool == nullptr || pMem == nullptr) return;
    if (pool->uiMagic != kPoolMagic) {
        POOL_ERR(pool, "PoolFree <%s> invalid magic.");
        return;
    }
    FreeFault fault = FreeFault::kNone;
    bool badRedZone = false;
    void *release = nullptr;
    {
        PoolLock lock(pool);
        const Where w = Locate(pool, pMem);
        if (w.kind == Kind::kLarge) {
            Zos_PoolHeapFree(pool, w, &release);
        } else if (w.kind == Kind::kForeign) {
            fault = FreeFault::kBadId;
        } else {
            uint8_t *node = w.node;
            const uint32_t header = Load32(node);
            const uint32_t magic = Load32(node + 4);
            const uint32_t idx = BktIndex(header);
            if (magic == kLargeMagic) {
                fault = FreeFault::kHeapBadId;  // a node dressed as large
            } else if ((header & kFreeBit) != 0) {
                fault = FreeFault::kTwice;
            } else if (idx >= pool->ucBktCnt || magic != kNodeMagic || idx != w.ref->uiBkt) {
                fault = FreeFault::kBadId;
            } else {
                ZosBkt *bkt = &pool->pstBkts[idx];
                ZosBlk *blk = w.ref->pstBlk;
                badRedZone = Load32(node + kNodeHead + bkt->uiDataSize) != kRedZone;
                FreeRec *rec = RecOf(node);
                std::memcpy(rec->acMark, kFreeMark, 4);
                rec->pstBlk = blk;
                Store32(node, header | kFreeBit);
                ListAppend(&bkt->stFreeList, &rec->stLink);
                bkt->wFree++;
                bkt->uiFrees++;
                blk->wFree++;
                if ((pool->wFlags & kFlagShrink) != 0) Zos_BktFree(pool, bkt, blk);
            }
        }
    }
    if (release != nullptr) pool->pfnFree(release);
    switch (fault) {
        case FreeFault::kTwice:
            POOL_ERR(pool, "PoolFree <%s> free twice.");
            break;
        case FreeFault::kBadId:
            POOL_ERR(pool, "PoolFree <%s> invalid id(ex.magic id).");
            break;
        case FreeFault::kHeapBadId:
            PoolLogStr(pool, "PoolHeapFree invalid bucket id.");
            break;
        case FreeFault::kNone:
            break;
    }
    if (badRedZone) POOL_ERR(pool, "PoolFree <%s> invalid redzone.");
}

KESTRO_API uint32_t Zos_PoolGetSize(ZPOOL zPool, void *pMem, uint32_t *puiSize) {
    if (puiSize != nullptr) *puiSize = 0;
    ZosPool *pool = PoolOf(zPool);
    if (pool == nullptr || pMem == nullptr || puiSize == nullptr) return ZFAILED;
    if (pool->uiMagic != kPoolMagic) {
        POOL_ERR(pool, "PoolGetSize <%s> invalid magic.");
        return ZFAILED;
    }
    uint32_t size = 0;
    {
        PoolLock lock(pool);
        const Where w = Locate(pool, pMem);
        if (w.kind == Kind::kLarge) {
            size = Load32(w.node) & ~kLargeBit;
        } else if (w.kind == Kind::kNode && Load32(w.node + 4) == kNodeMagic &&
                   BktIndex(Load32(w.node)) == w.ref->uiBkt) {
            size = pool->pstBkts[w.ref->uiBkt].uiDataSize;
        }
    }
    if (size == 0) {
        POOL_ERR(pool, "PoolGetSize <%s> invalid id(ex.magic id).");
        return ZFAILED;
    }
    *puiSize = size;
    return ZOK;
}

KESTRO_API uint32_t Zos_PoolFillPoison(ZPOOL zPool, void *pMem) {
    ZosPool *pool = PoolOf(zPool);
    if (pool == nullptr || pMem == nullptr) return ZFAILED;
    if (pool->uiMagic != kPoolMagic) {
        POOL_ERR(pool, "PoolFillPoison <%s> invalid magic.");
        return ZFAILED;
    }
    bool ok = false;
    {
        PoolLock lock(pool);
        const Where w = Locate(pool, pMem);
        if (w.kind == Kind::kLarge) {
            ok = true;
        } else if (w.kind == Kind::kNode) {
            const uint32_t header = Load32(w.node);
            // A free node is refused: its data holds the free-list links.
            if (Load32(w.node + 4) == kNodeMagic && BktIndex(header) == w.ref->uiBkt &&
                (header & kFreeBit) == 0) {
                std::memset(pMem, 0xCC, pool->pstBkts[w.ref->uiBkt].uiDataSize);
                ok = true;
            }
        }
    }
    if (!ok) {
        POOL_ERR(pool, "PoolFillPoison <%s> invalid id.");
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API uint32_t Zos_PoolIsValid(ZPOOL zPool, void *pMem) {
    ZosPool *pool = PoolOf(zPool);
    if (pool == nullptr || pMem == nullptr) return 0;
    if (pool->uiMagic != kPoolMagic) {
        POOL_ERR(pool, "PoolIsValid <%s> invalid magic.");
        return 0;
    }
    Kind kind = Kind::kForeign;
    {
        PoolLock lock(pool);
        kind = Locate(pool, pMem).kind;
    }
    if (kind == Kind::kForeign) {
        POOL_ERR(pool, "PoolIsValid <%s> invalid bucket id.");
        return 0;
    }
    return 1;
}

KESTRO_API uint32_t Zos_PoolChkMem(ZPOOL zPool, void *pMem) {
    ZosPool *pool = PoolOf(zPool);
    if (pool == nullptr || pMem == nullptr) return 0;
    if (pool->uiMagic != kPoolMagic) {
        POOL_ERR(pool, "PoolChkMem <%s> invalid magic.");
        return 0;
    }
    enum { kSound, kBadId, kBadRedZone } result = kSound;
    bool countError = false;
    {
        PoolLock lock(pool);
        const Where w = Locate(pool, pMem);
        if (w.kind == Kind::kForeign) {
            result = kBadId;
        } else if (w.kind == Kind::kNode) {
            const ZosBkt *bkt = &pool->pstBkts[w.ref->uiBkt];
            countError = bkt->stFreeList.uiCount != bkt->wFree;
            if (Load32(w.node + 4) != kNodeMagic || BktIndex(Load32(w.node)) != w.ref->uiBkt) {
                result = kBadId;
            } else if (Load32(w.node + kNodeHead + bkt->uiDataSize) != kRedZone) {
                result = kBadRedZone;
            }
        }
    }
    if (countError) POOL_ERR(pool, "PoolChkMem <%s> free count error.");
    if (result == kBadId) {
        POOL_ERR(pool, "PoolChkMem <%s> invalid id(ex.magic id).");
        return 0;
    }
    if (result == kBadRedZone) {
        POOL_ERR(pool, "PoolChkMem <%s> invalid redzone.");
        return 0;
    }
    return 1;
}

KESTRO_API uint32_t Zos_PoolChkBkt(ZPOOL zPool, uint32_t uiBktIdx) {
    ZosPool *pool = PoolOf(zPool);
    if (!ValidPool(pool) || uiBktIdx >= pool->ucBktCnt) return 0;
    PoolLock lock(pool);
    ZosBkt *bkt = &pool->pstBkts[uiBktIdx];
    uint32_t sound = 1;
    uint32_t freeNodes = 0;
    for (Link *l = bkt->stBlkList.pstHead; l != nullptr; l = l->pstNext) {
        const auto *blk = reinterpret_cast<const ZosBlk *>(l);
        for (const uint8_t *node = blk->pucFirst; node < blk->pucEnd; node += bkt->uiStride) {
            const uint32_t header = Load32(node);
            if (Load32(node + 4) != kNodeMagic || BktIndex(header) != uiBktIdx) {
                POOL_ERR(pool, "PoolChkBkt <%s> bad node magic.");
                sound = 0;
            } else if ((header & kFreeBit) != 0) {
                freeNodes++;
            } else if (Load32(node + kNodeHead + bkt->uiDataSize) != kRedZone) {
                POOL_ERR(pool, "PoolChkBkt <%s> bad redzone.");
                sound = 0;
            }
        }
    }
    uint32_t listed = 0;
    for (Link *l = bkt->stFreeList.pstHead; l != nullptr && listed <= bkt->wTotal;
         l = l->pstNext, ++listed) {
        const uint8_t *node = NodeOf(l);
        if (std::memcmp(reinterpret_cast<const FreeRec *>(l)->acMark, kFreeMark, 4) != 0) {
            POOL_ERR(pool, "PoolChkBkt <%s> bad free magic.");
            sound = 0;
        }
        if ((Load32(node) & kFreeBit) == 0) {
            POOL_ERR(pool, "PoolChkBkt <%s> bad free mask.");
            sound = 0;
        }
    }
    if (listed != bkt->wFree || freeNodes != bkt->wFree) {
        POOL_ERR(pool, "PoolChkBkt <%s> free count error.");
        sound = 0;
    }
    return sound;
}

KESTRO_API uint32_t Zos_PoolChkPool(ZPOOL zPool) {
    ZosPool *pool = PoolOf(zPool);
    if (pool == nullptr) return 0;
    if (pool->uiMagic != kPoolMagic) {
        POOL_ERR(pool, "PoolChkPool <%s> invalid magic.");
        return 0;
    }
    uint32_t sound = 1;
    {
        PoolLock lock(pool);
        for (uint32_t i = 0; i < pool->ucBktCnt; ++i) {
            if (Zos_PoolChkBkt(pool, i) != 1) sound = 0;
        }
    }
    if (sound == 0) {
        if (LogOn(pool)) {
            Zos_LogStr(Zos_LogGetZosId(), ZOS_LOG_LEVEL_INFO, "~~~~~~~Bad Memory Pool ---");
        }
        return 0;
    }
    return 1;
}

KESTRO_API uint32_t Zos_PoolGetBktCount(ZPOOL zPool) {
    ZosPool *pool = PoolOf(zPool);
    return ValidPool(pool) ? pool->ucBktCnt : 0;
}

KESTRO_API uint32_t Zos_PoolGetBktStat(ZPOOL zPool, uint32_t uiBktIdx,
                                       ST_ZOS_POOL_BKT_STAT *pstStat) {
    ZosPool *pool = PoolOf(zPool);
    if (!ValidPool(pool) || uiBktIdx >= pool->ucBktCnt || pstStat == nullptr) return ZFAILED;
    PoolLock lock(pool);
    const ZosBkt *bkt = &pool->pstBkts[uiBktIdx];
    pstStat->uiSize = bkt->uiDataSize;
    pstStat->uiTotal = bkt->wTotal;
    pstStat->uiFree = bkt->wFree;
    pstStat->uiPeak = bkt->uiPeak;
    pstStat->uiAllocs = bkt->uiAllocs;
    pstStat->uiFrees = bkt->uiFrees;
    pstStat->uiBlocks = bkt->stBlkList.uiCount;
    return ZOK;
}

KESTRO_API uint32_t Zos_PoolGetHeapSize(ZPOOL zPool) {
    ZosPool *pool = PoolOf(zPool);
    if (!ValidPool(pool)) return 0;
    PoolLock lock(pool);
    return pool->uiHeapSize;
}

}  // extern "C"

uint32_t zos::PoolPrintStats(ZPOOL zPool) {
    ZosPool *pool = PoolOf(zPool);
    if (!ValidPool(pool)) return ZFAILED;
    PoolLock lock(pool);
    Zos_Printf("\r\n    BUCKET      TOTAL       FREE  PEEK ALLOC    REQUEST    RELEASE\r\n");
    Zos_Printf("    ------      -----       ----  ----------    -------    -------\r\n");
    uint32_t total = 0;
    uint32_t free = 0;
    for (uint32_t i = 0; i < pool->ucBktCnt; ++i) {
        const ZosBkt *bkt = &pool->pstBkts[i];
        Zos_Printf("%10u %10d %10d %11u %10u %10u\r\n", bkt->uiDataSize,
                   static_cast<int32_t>(bkt->wTotal), static_cast<int32_t>(bkt->wFree), bkt->uiPeak,
                   bkt->uiAllocs, bkt->uiFrees);
        total += bkt->uiDataSize * bkt->wTotal;
        free += bkt->uiDataSize * bkt->wFree;
    }
    Zos_Printf("\r\n             total       used       free  \r\n");
    Zos_Printf("Mem:    %10u %10u %10u \r\n", total, total - free, free);
    Zos_Printf("Heap:   %10u\r\n\r\n", pool->uiHeapSize);
    return ZOK;
}
