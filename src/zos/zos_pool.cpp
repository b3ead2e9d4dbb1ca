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
//
// With shrinking on, a block that falls wholly free leaves its bucket's
// lists and counts as always, but a bucket keeps such blocks aside (marked
// in their own header, their index entries kept), the first one always and
// more while they come to at most kSpareBytes, and lays them out again at
// its next growths instead of going back to the backing allocator, so a
// bucket that empties and refills does not pay for releases and fetches
// every time. Nothing else sees them; they go back when the bucket does.
//
// Faults found while the pool's lock is held are collected and logged
// after it is released, so nothing done under the lock can come back into
// the same pool (the log may allocate through the memory entry points).
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>

#include "zos_dlist.h"
#include "zos_dlist_link.h"
#include "zos_fmt.h"
#include "zos_lite_lock.h"
#include "zos_mem.h"
#include "zos_osdep.h"
#include "zos_pool_int.h"
#include "zos_print.h"
#include "zos_live.h"
#include "zos_util.h"

namespace {

constexpr uint32_t kPoolMagic = 0x0E1E2E3Eu;
constexpr uint32_t kNodeMagic = 0xAC1D2D3Du;
constexpr uint32_t kLargeMagic = 0xACACACACu;
constexpr uint32_t kRedZone = 0x5A5A5A5Au;  // "ZZZZ"
// The free marker "}{Zn" as the word it is stored and compared as.
constexpr uint32_t kFreeMark = std::bit_cast<uint32_t>(std::array<char, 4>{'}', '{', 'Z', 'n'});

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
// What a bucket keeps aside in emptied blocks beyond the first one.
constexpr uint32_t kSpareBytes = 32 * 1024;
constexpr uint32_t kLargeRef = 0xFFFFFFFFu;

constexpr uint16_t kFlagLocked = 0x1;
constexpr uint16_t kFlagShrink = 0x2;
constexpr uint16_t kFlagLog = 0x4;

// Nodes sit on pointer-aligned addresses so the free-list links (and the
// callers' own pointers) are naturally aligned: 4 on 32-bit targets.
constexpr uint32_t kAlign = sizeof(void *) > 4 ? static_cast<uint32_t>(sizeof(void *)) : 4u;

using Link = ST_ZOS_DLIST_NODE;

// A block of nodes, as obtained from the backing allocator.
struct ZosBlk {
    Link stLink;
    uint8_t *pucFirst;  // first node
    uint8_t *pucEnd;    // just past the last node
    uint16_t wCount;
    uint16_t wFree;
    // Set while the block is its bucket's spare: its index entry stays, so
    // its reuse needs no index change, and look-ups treat its nodes as
    // foreign.
    uint16_t wSpare;
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

struct ZosBktFields {
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
    // Node-boundary test without a division: an offset x is a multiple of
    // the stride when rotr(x * uiDivInv, ucDivShift) <= uiDivLimit.
    uint32_t uiDivInv;
    uint32_t uiDivLimit;
    uint8_t ucDivShift;
    // Blocks the shrink step took off the bucket, kept (outside the lists
    // and the counts, as if released) for the bucket's next growths, so a
    // bucket that empties and refills again does not give its blocks back
    // and fetch them anew every time: a stack linked through the blocks'
    // list links, with its size. Released with the bucket.
    ZosBlk *pstSpare;
    uint32_t uiSpares;
};

// Tail padding of a bucket record (none: kPad 0).
template <size_t kPad>
struct BktPad {
    uint8_t aucPad[kPad];
};
template <>
struct BktPad<0> {};

// The bucket record, padded to a power-of-two size where that adds at most
// a quarter (so on 64-bit targets), making a bucket's address its index
// shifted, on every call that picks one.
constexpr size_t kBktFields = sizeof(ZosBktFields);
constexpr size_t kBktRound = std::bit_ceil(kBktFields);
struct ZosBkt : ZosBktFields,
                BktPad<kBktRound - kBktFields <= kBktFields / 4 ? kBktRound - kBktFields : 0> {};
static_assert(sizeof(void *) < 8 || std::has_single_bit(sizeof(ZosBkt)));

// One entry of the address index: a block's node range, or a large
// allocation (block null) from its header to its end.
struct AddrRef {
    uintptr_t uStart;
    uintptr_t uEnd;
    ZosBlk *pstBlk;
    uint32_t uiBkt;
};

constexpr size_t kCacheLine = 64;
constexpr uint32_t kRefCacheSlots = 16;
constexpr uint32_t kRefCacheShift = 10;

struct ZosPool {
    uint32_t uiMagic;
    uint8_t ucBktCnt;
    uint16_t wFlags;
    uint32_t uiMinSize;
    uint32_t uiMaxSize;
    const char *pcName;
    ZosBkt *pstBkts;
    PFN_ZOS_POOL_ALLOC pfnAlloc;
    PFN_ZOS_POOL_FREE pfnFree;
    uint32_t uiHeapSize;
    // The lock word is written by every locking call of every thread; the
    // padding keeps it off the cache lines of the fields read on every call
    // above, so those stay shared between the cores instead of moving with
    // the lock.
    char acLockPadBefore[kCacheLine];
    zos::LiteLock stLock;  // off for a pool made without the lock flag
    char acLockPadAfter[kCacheLine];
    // Address index, sorted by start address. Until its first entry it is
    // stNoRef, so the entry at the hint is always one that can be read.
    AddrRef *pstRefs;
    uint32_t uiRefCnt;
    uint32_t uiRefCap;
    // The entry last found, and the entries last found by address: slot
    // (node >> kRefCacheShift) % kRefCacheSlots holds an entry's position
    // + 1 (0: none). Reset whenever entries move.
    const AddrRef *pstRefHint;
    uint32_t auiRefCache[kRefCacheSlots];
    // Size-class start: for a request of n bytes with 2^(k-1) < n <= 2^k,
    // aucClassFrom[k] is the first bucket larger than 2^(k-1); the first
    // bucket that fits is found from there within the one octave.
    uint8_t aucClassFrom[33];
    // An entry that holds no address: the index before it has an array.
    AddrRef stNoRef;
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

// Inline, as it is a large part of an alloc's and a free's cost.
__attribute__((always_inline)) inline bool ValidPool(const ZosPool *pool) {
    return zos::LiveRecord<const ZosPool>(pool, kPoolMagic) != nullptr;
}

// The pool check of a call: the handle registry's, or for a caller that
// holds memory of the pool (a live data buffer's header or blocks), which
// keeps the pool alive, its magic alone.
template <bool kHeld>
__attribute__((always_inline)) inline bool PoolUsable(const ZosPool *pool) {
    if constexpr (kHeld) {
        return pool->uiMagic == kPoolMagic;
    } else {
        return ValidPool(pool);
    }
}

uint32_t BktIndex(uint32_t header) {
    return (header >> kBktShift) & kBktMask;
}

// ---------------------------------------------------------------------
// Fault texts, collected as bits while the lock is held

enum Fault : uint32_t {
    kBktInvalidSize,
    kBktInvalidId,
    kBktIncZero,
    kBktHeapAlloc,
    kAllocFatal,
    kAllocEmpty,
    kAllocBusy,
    kAllocBadId,
    kFreeTwice,
    kFreeBadId,
    kFreeRedZone,
    kHeapFreeMagic,
    kHeapFreeBadId,
    kHeapFreeRedZone,
    kChkBktNodeMagic,
    kChkBktRedZone,
    kChkBktFreeMagic,
    kChkBktFreeMask,
    kChkBktFreeCount,
    kFaultCount
};

struct FaultText {
    const char *text;
    bool plain;  // a plain log string, without the pool name
};

constexpr FaultText kFaultTexts[kFaultCount] = {
    {"BktCreate <%s> invalid size.", false},
    {"BktCreate <%s> invalid bucket id.", false},
    {"BktCreate <%s> increase zero size.", false},
    {"BktCreate <%s> heap alloc.", false},
    {"PoolAlloc <%s> fatal error, bad memory.", false},
    {"PoolAlloc <%s> bucket node is empty.", false},
    {"PoolAlloc <%s> alloc busy node.", false},
    {"PoolAlloc <%s> invalid id(ex.magic id).", false},
    {"PoolFree <%s> free twice.", false},
    {"PoolFree <%s> invalid id(ex.magic id).", false},
    {"PoolFree <%s> invalid redzone.", false},
    {"PoolHeapFree invalid magic value.", true},
    {"PoolHeapFree invalid bucket id.", true},
    {"PoolHeapFree invalid redzone.", true},
    {"PoolChkBkt <%s> bad node magic.", false},
    {"PoolChkBkt <%s> bad redzone.", false},
    {"PoolChkBkt <%s> bad free magic.", false},
    {"PoolChkBkt <%s> bad free mask.", false},
    {"PoolChkBkt <%s> free count error.", false},
};

bool LogOn(const ZosPool *pool) {
    return (pool->wFlags & kFlagLog) != 0;
}

// "<name>" messages go through the error log with the pool name.
void PoolLogErr(const ZosPool *pool, const char *format) {
    if (LogOn(pool)) Zos_LogError(Zos_LogGetZosId(), format, pool->pcName);
}

// Plain log strings at the error level.
void PoolLogStr(const ZosPool *pool, const char *text) {
    if (LogOn(pool)) Zos_LogStr(Zos_LogGetZosId(), ZOS_LOG_LEVEL_ERROR, text);
}

// The refusal of a handle that is not a live pool. A deleted pool's record
// is gone with its log switch and name, so its line is always written,
// naming it "unknown"; a registered record is still read for both.
void RefusedErr(const ZosPool *pool, const char *format) {
    if (zos::LiveHas(pool)) {
        PoolLogErr(pool, format);
    } else {
        Zos_LogError(Zos_LogGetZosId(), format, "unknown");
    }
}

void RefusedStr(const ZosPool *pool, const char *text) {
    if (!zos::LiveHas(pool) || LogOn(pool))
        Zos_LogStr(Zos_LogGetZosId(), ZOS_LOG_LEVEL_ERROR, text);
}

__attribute__((noinline, cold)) void Report(const ZosPool *pool, uint32_t faults) {
    if (faults == 0 || !LogOn(pool)) return;
    for (uint32_t i = 0; i < kFaultCount; ++i) {
        if ((faults & (1u << i)) == 0) continue;
        if (kFaultTexts[i].plain) {
            PoolLogStr(pool, kFaultTexts[i].text);
        } else {
            PoolLogErr(pool, kFaultTexts[i].text);
        }
    }
}

// The pool's lists are covered by the pool lock, so they are linked in
// place (zos_dlist_link.h) rather than through the list family's own
// per-list mutex.
void ListInit(ST_ZOS_DLIST *list, uint32_t max) {
    list->uiMax = max;
    list->uiCount = 0;
    list->pstHead = nullptr;
    list->pstTail = nullptr;
    list->zMutex = 0;
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

// Forgets the entries found before, when entries move. The hint goes back
// to the first entry, which is a live one, or when none is left, one that
// holds no address (RefRemove clears the slot it leaves).
void ForgetFound(ZosPool *pool) {
    pool->pstRefHint = pool->pstRefs;
    std::memset(pool->auiRefCache, 0, sizeof(pool->auiRefCache));
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
        if (pool->uiRefCap != 0) pool->pfnFree(pool->pstRefs);
        pool->pstRefs = refs;
        pool->uiRefCap = cap;
    }
    const uint32_t at = UpperBound(pool, ref.uStart);
    std::memmove(&pool->pstRefs[at + 1], &pool->pstRefs[at],
                 (pool->uiRefCnt - at) * sizeof(AddrRef));
    pool->pstRefs[at] = ref;
    pool->uiRefCnt++;
    ForgetFound(pool);
    return true;
}

void RefRemove(ZosPool *pool, uintptr_t start) {
    const uint32_t at = UpperBound(pool, start);
    if (at == 0 || pool->pstRefs[at - 1].uStart != start) return;
    std::memmove(&pool->pstRefs[at - 1], &pool->pstRefs[at],
                 (pool->uiRefCnt - at) * sizeof(AddrRef));
    pool->uiRefCnt--;
    pool->pstRefs[pool->uiRefCnt] = AddrRef{};
    ForgetFound(pool);
}

bool OnNodeBoundary(const ZosBkt *bkt, uint32_t offset) {
    const uint32_t x = offset * bkt->uiDivInv;
    const uint32_t k = bkt->ucDivShift;
    const uint32_t rotated = k == 0 ? x : (x >> k) | (x << (32 - k));
    return rotated <= bkt->uiDivLimit;
}

void SetDivisor(ZosBkt *bkt) {
    const uint32_t d = bkt->uiStride;
    const uint32_t k = static_cast<uint32_t>(__builtin_ctz(d));
    const uint32_t odd = d >> k;
    uint32_t inv = odd;  // Newton's iteration for the inverse modulo 2^32
    for (int i = 0; i < 5; ++i) inv *= 2u - odd * inv;
    bkt->uiDivInv = inv;
    bkt->ucDivShift = static_cast<uint8_t>(k);
    bkt->uiDivLimit = 0xFFFFFFFFu / d;
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

// The entry holding an address, from the entry last found or the cache
// alone (no search); null when neither holds it. The hint always points at
// an entry that can be read, and a node address worked out from a pointer
// below kNodeHead wraps to the last bytes of the address space, which no
// entry reaches: neither needs a test of its own.
inline __attribute__((always_inline)) const AddrRef *RefQuick(ZosPool *pool, uintptr_t node) {
    const AddrRef *ref = pool->pstRefHint;
    if (node >= ref->uStart && node < ref->uEnd) return ref;
    const uint32_t cached = pool->auiRefCache[(node >> kRefCacheShift) % kRefCacheSlots];
    if (cached == 0) return nullptr;
    ref = &pool->pstRefs[cached - 1];
    if (node < ref->uStart || node >= ref->uEnd) return nullptr;
    pool->pstRefHint = ref;
    return ref;
}

// Whether a node address lies on a node boundary of a block entry that
// is not kept aside (whose nodes are refused like freed ones).
inline __attribute__((always_inline)) bool InLiveBlock(const ZosPool *pool, const AddrRef *ref,
                                                       uintptr_t node) {
    return ref->pstBlk != nullptr && ref->pstBlk->wSpare == 0 &&
           OnNodeBoundary(&pool->pstBkts[ref->uiBkt], static_cast<uint32_t>(node - ref->uStart));
}

inline __attribute__((always_inline)) Where Locate(ZosPool *pool, const void *mem) {
    const uintptr_t addr = reinterpret_cast<uintptr_t>(mem);
    const Where foreign{Kind::kForeign, nullptr, nullptr};
    const uintptr_t node = addr - kNodeHead;
    const AddrRef *ref = RefQuick(pool, node);
    if (ref == nullptr) {
        const uint32_t at = UpperBound(pool, node);
        if (at == 0) return foreign;
        ref = &pool->pstRefs[at - 1];
        if (node >= ref->uEnd) return foreign;
        pool->auiRefCache[(node >> kRefCacheShift) % kRefCacheSlots] = at;
        pool->pstRefHint = ref;
    }
    if (ref->pstBlk == nullptr) {
        if (node != ref->uStart) return foreign;
        return {Kind::kLarge, reinterpret_cast<uint8_t *>(node), ref};
    }
    if (!InLiveBlock(pool, ref, node)) return foreign;
    return {Kind::kNode, reinterpret_cast<uint8_t *>(node), ref};
}

// ---------------------------------------------------------------------
// Buckets and blocks

// Counts one node more in use in a bucket whose free count has just
// dropped by it.
inline void CountTaken(ZosBkt *bkt) {
    bkt->uiAllocs++;
    const uint32_t used = static_cast<uint32_t>(bkt->wTotal - bkt->wFree);
    if (used > bkt->uiPeak) bkt->uiPeak = used;
}

// Counts one node more free in a bucket.
inline void CountFreed(ZosBkt *bkt) {
    bkt->wFree++;
    bkt->uiFrees++;
}

// Lays out a block's nodes as free nodes of bucket idx, numbered on from
// the bucket's total, and puts them at the tail of its free list in
// address order; the block goes to the tail of the block list. A block
// always has nodes: the block maker makes none of count 0.
//
// A block laid out for an allocation that found its bucket's free list
// empty (`take`) hands its first node out at once: written in use, never
// linked, and counted as taken. That is the node the allocation would take
// from the list, and the counts, numbers and list order come out as they
// would, without linking a node only to unlink it. Returns the first node.
uint8_t *LayOut(ZosBkt *bkt, uint32_t idx, ZosBlk *blk, bool take) {
    zos::DlistLinkTail(&bkt->stBlkList, &blk->stLink);
    const uint32_t count = blk->wCount;
    const uint32_t listed = take ? count - 1 : count;
    // The block's own free count is read and kept up only with shrink on.
    blk->wFree = static_cast<uint16_t>(listed);
    blk->wSpare = 0;
    const uint32_t stride = bkt->uiStride;
    const uint32_t redZone = kNodeHead + bkt->uiDataSize;
    const uint32_t header = idx << kBktShift | kFreeBit;
    uint32_t number = bkt->wTotal;
    uint8_t *const first = blk->pucFirst;
    uint8_t *node = first;
    // Header word (numbered on), magic, red zone and free marker.
    auto stamp = [&](uint32_t head) {
        Store32(node, head | (number++ & kNodeNumMask));
        Store32(node + 4, kNodeMagic);
        Store32(node + redZone, kRedZone);
        std::memcpy(RecOf(node)->acMark, &kFreeMark, 4);
    };
    if (take) {
        // In use, with the free marker the allocation's check of a node
        // taken from the list looks for.
        stamp(header & ~kFreeBit);
        node += stride;
    }
    if (listed != 0) {
        ST_ZOS_DLIST *list = &bkt->stFreeList;
        Link *prev = list->pstTail;
        (prev != nullptr ? prev->pstNext : list->pstHead) = &RecOf(node)->stLink;
        // Each node links forward to where the next node's record lies (an
        // address worked out as a number, never followed past the block);
        // the last link is cleared after the loop.
        for (uint8_t *const end = blk->pucEnd; node != end; node += stride) {
            stamp(header);
            FreeRec *rec = RecOf(node);
            rec->pstBlk = blk;
            rec->stLink.pstPrev = prev;
            rec->stLink.pstNext =
                reinterpret_cast<Link *>(reinterpret_cast<uintptr_t>(rec) + stride);
            prev = &rec->stLink;
        }
        prev->pstNext = nullptr;
        list->pstTail = prev;
        list->uiCount += listed;
    }
    bkt->wTotal = static_cast<uint16_t>(bkt->wTotal + count);
    bkt->wFree = static_cast<uint16_t>(bkt->wFree + listed);
    if (take) CountTaken(bkt);
    return first;
}

// Lays the bucket's last kept block out again when it has the size of a
// growth step: its node range and index entry stand, and it is laid out
// exactly as a new one. Null when there is none to take; else the first
// node, handed out with `take` as LayOut does.
inline __attribute__((always_inline)) uint8_t *ReuseSpare(ZosBkt *bkt, uint32_t idx, bool take) {
    ZosBlk *spare = bkt->pstSpare;
    if (spare == nullptr || spare->wCount != bkt->wIncCnt ||
        bkt->wTotal + spare->wCount > kMaxNodes) {
        return nullptr;
    }
    bkt->pstSpare = reinterpret_cast<ZosBlk *>(spare->stLink.pstNext);
    bkt->uiSpares--;
    return LayOut(bkt, idx, spare, take);
}

// Adds a new block to bucket idx: the first (initial count) or a later one
// (increment); a later one is taken from the kept blocks first, by
// ReuseSpare, where the caller can. Faults are added to *faults. With
// `taken`, an allocation waits for the block: its first node is handed out
// (LayOut's `take`) and stored there.
__attribute__((noinline)) uint32_t BktCreateIn(ZosPool *pool, uint32_t idx, bool first,
                                               uint32_t *faults, uint8_t **taken = nullptr) {
    ZosBkt *bkt = &pool->pstBkts[idx];
    if (bkt->uiDataSize == 0 || (bkt->wInitCnt == 0 && bkt->wIncCnt == 0)) {
        *faults |= 1u << kBktInvalidSize;
        return ZFAILED;
    }
    if (idx >= kMaxBktIdx) {
        *faults |= 1u << kBktInvalidId;
        return ZFAILED;
    }
    uint32_t count = 0;
    if (first) {
        bkt->uiStride = RoundUp(bkt->uiDataSize + kNodeExtra, kAlign);
        SetDivisor(bkt);
        count = bkt->wInitCnt;
        if (count == 0) return ZOK;
    } else {
        count = bkt->wIncCnt;
        if (count == 0) {
            *faults |= 1u << kBktIncZero;
            return ZFAILED;
        }
    }
    // The node counters are 16-bit: a bucket stops growing at 65535 nodes
    // and further requests move on to the next size class.
    const uint64_t bytes = kAlign + static_cast<uint64_t>(bkt->uiStride) * count + sizeof(ZosBlk);
    if (bkt->wTotal + count > kMaxNodes || bytes >= 0x7FFFFFFFu) {
        *faults |= 1u << kBktInvalidSize;
        return ZFAILED;
    }
    auto *mem = static_cast<uint8_t *>(pool->pfnAlloc(static_cast<uint32_t>(bytes)));
    if (mem == nullptr) {
        *faults |= 1u << kBktHeapAlloc;
        return ZFAILED;
    }
    auto *blk = reinterpret_cast<ZosBlk *>(mem);
    // Nodes start at the first aligned address behind the block header.
    const uintptr_t after = reinterpret_cast<uintptr_t>(mem) + sizeof(ZosBlk);
    const uintptr_t pad = (kAlign - after % kAlign) % kAlign;
    blk->pucFirst = mem + sizeof(ZosBlk) + pad;
    blk->pucEnd = blk->pucFirst + static_cast<size_t>(bkt->uiStride) * count;
    blk->wCount = static_cast<uint16_t>(count);
    const AddrRef ref{reinterpret_cast<uintptr_t>(blk->pucFirst),
                      reinterpret_cast<uintptr_t>(blk->pucEnd), blk, idx};
    if (!RefAdd(pool, ref)) {
        pool->pfnFree(mem);
        *faults |= 1u << kBktHeapAlloc;
        return ZFAILED;
    }
    uint8_t *node = LayOut(bkt, idx, blk, taken != nullptr);
    if (taken != nullptr) *taken = node;
    return ZOK;
}

// Unlinks a block's nodes one by one from a free list that holds others,
// all but `off`, a node not on the list (or null).
__attribute__((noinline)) void UnlinkNodes(ZosBkt *bkt, ZosBlk *blk, const uint8_t *off) {
    for (uint8_t *node = blk->pucFirst; node < blk->pucEnd; node += bkt->uiStride) {
        if (node != off) zos::DlistUnlink(&bkt->stFreeList, &RecOf(node)->stLink);
    }
}

// Takes a wholly free block off its bucket: its nodes leave the free list,
// the block leaves the block list, and the bucket's counts drop by them.
// `off` is a node of the block counted free but not linked (or null): the
// one whose free empties the block, which then never joins the list.
inline __attribute__((always_inline)) void BktDetach(ZosBkt *bkt, ZosBlk *blk,
                                                     const uint8_t *off = nullptr) {
    if (bkt->stFreeList.uiCount == blk->wCount - (off != nullptr ? 1u : 0u)) {
        // The bucket's only free nodes are this block's: the list empties.
        ListInit(&bkt->stFreeList, bkt->stFreeList.uiMax);
    } else {
        UnlinkNodes(bkt, blk, off);
    }
    bkt->wTotal = static_cast<uint16_t>(bkt->wTotal - blk->wCount);
    bkt->wFree = static_cast<uint16_t>(bkt->wFree - blk->wCount);
    zos::DlistUnlink(&bkt->stBlkList, &blk->stLink);
}

// Gives one wholly free block back: off its bucket, out of the index, to
// the free function. `off` as for BktDetach.
__attribute__((noinline)) void BktDeleteIn(ZosPool *pool, ZosBkt *bkt, ZosBlk *blk,
                                           const uint8_t *off = nullptr) {
    BktDetach(bkt, blk, off);
    RefRemove(pool, reinterpret_cast<uintptr_t>(blk->pucFirst));
    pool->pfnFree(blk);
}

// Whether a block a free has just left wholly free stays where it is: the
// bucket's first block made with its initial count (at the head of the
// block list), so that a bucket never shrinks below it.
inline bool EmptiedBlockStays(const ZosBkt *bkt, const ZosBlk *blk) {
    return bkt->wTotal == bkt->wInitCnt ||
           (bkt->wInitCnt != 0 && bkt->stBlkList.pstHead == &blk->stLink);
}

// With shrink on (block free counts are kept only then): whether freeing
// one more node of the block empties it and takes it off its bucket.
inline bool FreeTakesBlockOff(const ZosBkt *bkt, const ZosBlk *blk) {
    return blk->wFree + 1 == blk->wCount && !EmptiedBlockStays(bkt, blk);
}

// Shrink step for a block that a free is leaving wholly free and that does
// not stay: it goes back, or a block of a growth step's size is kept aside
// instead of going to the free function: always when the bucket keeps
// none, else while the kept blocks stay within kSpareBytes. `node` is the
// node freed, counted free but not linked (as BktDetach's `off`).
__attribute__((noinline)) void BktEmptied(ZosPool *pool, ZosBkt *bkt, ZosBlk *blk,
                                          const uint8_t *node) {
    if (blk->wCount != bkt->wIncCnt ||
        (bkt->uiSpares != 0 &&
         uint64_t{bkt->uiSpares + 1} * bkt->uiStride * blk->wCount > kSpareBytes)) {
        BktDeleteIn(pool, bkt, blk, node);
        return;
    }
    BktDetach(bkt, blk, node);
    blk->wSpare = 1;
    blk->stLink.pstNext = reinterpret_cast<Link *>(bkt->pstSpare);
    bkt->pstSpare = blk;
    bkt->uiSpares++;
}

uint32_t BktGrpCreateIn(ZosPool *pool) {
    uint32_t faults = 0;
    uint32_t rc = ZOK;
    for (uint32_t i = 0; i < pool->ucBktCnt && rc == ZOK; ++i) {
        if (pool->pstBkts[i].stBlkList.pstHead != nullptr) continue;  // has its first block
        rc = BktCreateIn(pool, i, true, &faults);
    }
    Report(pool, faults);
    if (rc != ZOK) PoolLogErr(pool, "BktGrpCreate <%s> create bucket.");
    return rc;
}

void BktGrpDeleteIn(ZosPool *pool) {
    if (pool->pstBkts == nullptr) return;
    for (uint32_t i = 0; i < pool->ucBktCnt; ++i) {
        ZosBkt *bkt = &pool->pstBkts[i];
        while (bkt->stBlkList.pstHead != nullptr) {
            auto *blk = reinterpret_cast<ZosBlk *>(bkt->stBlkList.pstHead);
            zos::DlistUnlink(&bkt->stBlkList, &blk->stLink);
            pool->pfnFree(blk);
        }
        while (bkt->pstSpare != nullptr) {
            ZosBlk *spare = bkt->pstSpare;
            bkt->pstSpare = reinterpret_cast<ZosBlk *>(spare->stLink.pstNext);
            RefRemove(pool, reinterpret_cast<uintptr_t>(spare->pucFirst));
            pool->pfnFree(spare);
        }
        bkt->uiSpares = 0;
        ListInit(&bkt->stBlkList, 0);
        ListInit(&bkt->stFreeList, 0);
        bkt->wTotal = 0;
        bkt->wFree = 0;
    }
}

// ---------------------------------------------------------------------
// Large allocations

void *PoolHeapAllocIn(ZosPool *pool, uint32_t size) {
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
        zos::LiteGuard lock(&pool->stLock);
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
__attribute__((noinline)) void PoolHeapFreeIn(ZosPool *pool, const Where &w, void **release,
                                              uint32_t *faults) {
    uint8_t *mem = w.node;
    const uint32_t total = static_cast<uint32_t>(w.ref->uEnd - w.ref->uStart);
    const uint32_t rounded = total - kNodeExtra;
    if (Load32(mem + 4) != kLargeMagic) {
        *faults |= 1u << kHeapFreeMagic;
        return;
    }
    // The size is taken from the index, never from the header alone, so a
    // damaged header cannot send the red-zone read elsewhere.
    if (Load32(mem) != (rounded | kLargeBit)) {
        *faults |= 1u << kHeapFreeBadId;
        return;
    }
    if (Load32(mem + kNodeHead + rounded) != kRedZone) *faults |= 1u << kHeapFreeRedZone;
    Store32(mem + 4, 0);
    RefRemove(pool, w.ref->uStart);
    pool->uiHeapSize -= total;
    *release = mem;
}

// ---------------------------------------------------------------------
// Allocation, free and checks under the lock

// k with 2^(k-1) < size <= 2^k, for a size of at least 1; 1 for a size of
// 1, which shares the start of size 2 (no bucket holds less than kMinData).
uint32_t Octave(uint32_t size) {
    return 32 - static_cast<uint32_t>(__builtin_clz((size - 1) | 1));
}

// Fills the size-class starts from the bucket sizes. The rows are in
// ascending order as configured, but the start is the first bucket of the
// table whose size exceeds the octave's floor, so an out-of-order table
// still gets the first row large enough, as a scan from the top would.
void SetClassFrom(ZosPool *pool) {
    for (uint32_t k = 0; k < sizeof(pool->aucClassFrom); ++k) {
        const uint64_t floor = k == 0 ? 0 : uint64_t{1} << (k - 1);
        uint32_t i = 0;
        while (i < pool->ucBktCnt && pool->pstBkts[i].uiDataSize <= floor) ++i;
        pool->aucClassFrom[k] = static_cast<uint8_t>(i);
    }
}

// Whether a node taken from (or at the head of) a free list still has its
// magic, free marker and red zone.
inline bool FreeNodeIntact(const ZosBkt *bkt, uint8_t *node) {
    return Load32(node + 4) == kNodeMagic && std::memcmp(RecOf(node)->acMark, &kFreeMark, 4) == 0 &&
           Load32(node + kNodeHead + bkt->uiDataSize) == kRedZone;
}

// Hands out the head of a bucket's free list, whose header word was read
// as `header`.
__attribute__((always_inline)) inline void TakeHead(ZosPool *pool, ZosBkt *bkt, uint32_t header) {
    Link *link = zos::DlistUnlinkHead(&bkt->stFreeList);
    bkt->wFree--;
    CountTaken(bkt);
    Store32(NodeOf(link), header & ~kFreeBit);
    if ((pool->wFlags & kFlagShrink) != 0) reinterpret_cast<FreeRec *>(link)->pstBlk->wFree--;
}

// Takes a node of the first bucket that fits and has (or can grow) a free
// node; null when none can.
__attribute__((always_inline)) inline uint8_t *TakeNode(ZosPool *pool, uint32_t size,
                                                        ZosBkt **found, uint32_t *faults) {
    zos::LiteGuard lock(&pool->stLock);
    for (uint32_t i = pool->aucClassFrom[Octave(size)]; i < pool->ucBktCnt; ++i) {
        ZosBkt *bkt = &pool->pstBkts[i];
        if (bkt->uiDataSize < size) continue;
        if (__builtin_expect(bkt->stFreeList.pstHead == nullptr, 0)) {
            // The new block's first node is the one handed out.
            uint8_t *node = ReuseSpare(bkt, i, true);
            if (node == nullptr && BktCreateIn(pool, i, false, faults, &node) != ZOK) continue;
            if (node == nullptr) {
                *faults |= 1u << kAllocFatal;
                return nullptr;
            }
            *found = bkt;
            return node;
        }
        uint8_t *node = NodeOf(bkt->stFreeList.pstHead);
        const uint32_t header = Load32(node);
        if ((header & kFreeBit) == 0) *faults |= 1u << kAllocBusy;
        TakeHead(pool, bkt, header);
        *found = bkt;
        return node;
    }
    *faults |= 1u << kAllocEmpty;
    return nullptr;
}

// Puts a busy node of a block of the bucket at the tail of its free list;
// `header` is the node's header word. The block's own count is the
// caller's.
__attribute__((always_inline)) inline void PutBack(ZosBkt *bkt, ZosBlk *blk, uint8_t *node,
                                                   uint32_t header) {
    FreeRec *rec = RecOf(node);
    std::memcpy(rec->acMark, &kFreeMark, 4);
    rec->pstBlk = blk;
    Store32(node, header | kFreeBit);
    zos::DlistLinkTail(&bkt->stFreeList, &rec->stLink);
    CountFreed(bkt);
}

// Returns one node to its bucket, the lock held; *release gets a large
// block to give back after the lock.
__attribute__((always_inline)) inline void PutNodeIn(ZosPool *pool, void *mem, void **release,
                                                     uint32_t *faults) {
    const Where w = Locate(pool, mem);
    if (__builtin_expect(w.kind != Kind::kNode, 0)) {
        if (w.kind == Kind::kLarge) {
            PoolHeapFreeIn(pool, w, release, faults);
        } else {
            *faults |= 1u << kFreeBadId;
        }
        return;
    }
    uint8_t *node = w.node;
    const uint32_t header = Load32(node);
    const uint32_t magic = Load32(node + 4);
    const uint32_t idx = BktIndex(header);
    if (magic == kLargeMagic) {
        *faults |= 1u << kHeapFreeBadId;  // a node dressed as a large allocation
        return;
    }
    if ((header & kFreeBit) != 0) {
        *faults |= 1u << kFreeTwice;
        return;
    }
    if (idx >= pool->ucBktCnt || magic != kNodeMagic || idx != w.ref->uiBkt) {
        *faults |= 1u << kFreeBadId;
        return;
    }
    ZosBkt *bkt = &pool->pstBkts[idx];
    if (Load32(node + kNodeHead + bkt->uiDataSize) != kRedZone) *faults |= 1u << kFreeRedZone;
    ZosBlk *blk = w.ref->pstBlk;
    // With shrink on (block free counts are kept only then), a free that
    // empties a block that does not stay takes the block off its bucket.
    // The node leaves with its block, so it is counted back but never
    // linked onto the free list it would leave at once.
    if ((pool->wFlags & kFlagShrink) != 0) {
        const bool off = FreeTakesBlockOff(bkt, blk);
        blk->wFree++;
        if (off) {
            CountFreed(bkt);
            BktEmptied(pool, bkt, blk, node);
            return;
        }
    }
    PutBack(bkt, blk, node, header);
}

__attribute__((always_inline)) inline void PutNode(ZosPool *pool, void *mem, void **release,
                                                   uint32_t *faults) {
    zos::LiteGuard lock(&pool->stLock);
    PutNodeIn(pool, mem, release, faults);
}

// Walks one bucket; the caller holds the lock.
bool CheckBucket(ZosPool *pool, uint32_t idx, uint32_t *faults) {
    ZosBkt *bkt = &pool->pstBkts[idx];
    const uint32_t before = *faults;
    uint32_t freeNodes = 0;
    for (Link *l = bkt->stBlkList.pstHead; l != nullptr; l = l->pstNext) {
        const auto *blk = reinterpret_cast<const ZosBlk *>(l);
        for (const uint8_t *node = blk->pucFirst; node < blk->pucEnd; node += bkt->uiStride) {
            const uint32_t header = Load32(node);
            if (Load32(node + 4) != kNodeMagic || BktIndex(header) != idx) {
                *faults |= 1u << kChkBktNodeMagic;
            } else if ((header & kFreeBit) != 0) {
                freeNodes++;
            } else if (Load32(node + kNodeHead + bkt->uiDataSize) != kRedZone) {
                *faults |= 1u << kChkBktRedZone;
            }
        }
    }
    uint32_t listed = 0;
    for (Link *l = bkt->stFreeList.pstHead; l != nullptr && listed <= bkt->wTotal;
         l = l->pstNext, ++listed) {
        if (std::memcmp(reinterpret_cast<const FreeRec *>(l)->acMark, &kFreeMark, 4) != 0) {
            *faults |= 1u << kChkBktFreeMagic;
        }
        if ((Load32(NodeOf(l)) & kFreeBit) == 0) *faults |= 1u << kChkBktFreeMask;
    }
    if (listed != bkt->wFree || freeNodes != bkt->wFree) *faults |= 1u << kChkBktFreeCount;
    return *faults == before;
}

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
    pool->pstRefs = &pool->stNoRef;
    pool->pstRefHint = pool->pstRefs;

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
        SetDivisor(bkt);
        bkt->wInitCnt = static_cast<uint16_t>(row.uiInitCnt);
        bkt->wIncCnt = static_cast<uint16_t>(row.uiIncCnt);
        ListInit(&bkt->stBlkList, bkt->wIncCnt != 0 ? kNoLimit : 1);
        ListInit(&bkt->stFreeList, bkt->wIncCnt != 0 ? kNoLimit : bkt->wInitCnt);
    }

    if (pstCfg->ucLocked != 0 && !zos::LiteLockCreate(&pool->stLock)) {
        Zos_OsdepTrace("PoolCreate create mutex.", "src/zos/zos_pool", 663);
        release(pool->pstBkts);
        release(pool);
        return nullptr;
    }

    pool->pcName = pstCfg->pcName != nullptr ? pstCfg->pcName : "unknown";
    pool->uiHeapSize = 0;
    pool->uiMinSize = 0xFFFFFFFFu;
    for (uint32_t i = 0; i < pool->ucBktCnt; ++i) {
        const uint32_t size = pool->pstBkts[i].uiDataSize;
        if (size < pool->uiMinSize) pool->uiMinSize = size;
        if (size > pool->uiMaxSize) pool->uiMaxSize = size;
    }
    SetClassFrom(pool);
    if (!zos::LiveAdd(pool)) {
        Zos_OsdepTrace("PoolCreate null config.", "src/zos/zos_pool", 583);
        zos::LiteLockDelete(&pool->stLock);
        release(pool->pstBkts);
        release(pool);
        return nullptr;
    }
    pool->uiMagic = kPoolMagic;
    if (BktGrpCreateIn(pool) != ZOK) {
        Zos_PoolDelete(pool);
        return nullptr;
    }
    return pool;
}

KESTRO_API void Zos_PoolDelete(ZPOOL zPool) {
    ZosPool *pool = PoolOf(zPool);
    if (pool == nullptr) return;
    if (!ValidPool(pool)) {
        Zos_OsdepTrace("PoolDelete invalid magic.", "src/zos/zos_pool", 729);
        return;
    }
    zos::LiveRemove(pool);
    pool->uiMagic = 0;
    BktGrpDeleteIn(pool);
    // Large allocations still alive go back too: the pool owns them.
    for (uint32_t i = 0; i < pool->uiRefCnt; ++i) {
        if (pool->pstRefs[i].pstBlk == nullptr) {
            pool->pfnFree(reinterpret_cast<void *>(pool->pstRefs[i].uStart));
        }
    }
    if (pool->uiRefCap != 0) pool->pfnFree(pool->pstRefs);
    zos::LiteLockDelete(&pool->stLock);
    PFN_ZOS_POOL_FREE release = pool->pfnFree;
    release(pool->pstBkts);
    release(pool);
}

}  // extern "C"

namespace {

// Zos_PoolAlloc; kHeld: the caller holds memory of the pool.
template <bool kHeld>
__attribute__((always_inline)) inline void *AllocIn(ZPOOL zPool, uint32_t uiSize) {
    ZosPool *pool = PoolOf(zPool);
    if (pool == nullptr) return nullptr;
    if (!PoolUsable<kHeld>(pool)) {
        RefusedStr(pool, "PoolAlloc invalid pool.");
        return nullptr;
    }
    if (uiSize == 0 || uiSize >= 0x7FFFFFFFu) {
        PoolLogStr(pool, "PoolAlloc size is 0 or too big.");
        return nullptr;
    }
    if (uiSize > pool->uiMaxSize) return PoolHeapAllocIn(pool, uiSize);

    uint32_t faults = 0;
    ZosBkt *bkt = nullptr;
    uint8_t *node = TakeNode(pool, uiSize, &bkt, &faults);
    // Diagnostic only: a damaged node is still handed out.
    if (node != nullptr && !FreeNodeIntact(bkt, node)) faults |= 1u << kAllocBadId;
    if (faults != 0) Report(pool, faults);
    return node != nullptr ? node + kNodeHead : nullptr;
}

// The everyday allocation and free, kept small enough that the common
// call saves no registers. A quick step takes the pool's lock only when it
// is free, checks everything before it changes anything, and otherwise
// leaves the call to the whole way (the slow step), which then gives it
// the same result, counts and faults as ever: a lock held elsewhere (or by
// this thread), an empty or damaged bucket, a size the buckets do not
// serve, a pointer the last look-up does not cover, a block the free
// would empty.

// The pool check of the quick steps: a pool the registry shows on its
// first look, with its magic. False leaves the call to the slow step's
// whole check.
__attribute__((always_inline)) inline bool SeenPool(const ZosPool *pool) {
    return zos::LiveSeen(pool) && pool->uiMagic == kPoolMagic;
}

// Takes the pool's lock if it is on (`on`, read once for the call) and
// free; false when anybody holds it.
__attribute__((always_inline)) inline bool QuickLock(zos::LiteLock *lock, bool on) {
    return !on || zos::LiteLockTry(lock);
}

// Gives back a lock QuickLock took; true when a waiter must be woken.
__attribute__((always_inline)) inline bool QuickUnlock(zos::LiteLock *lock, bool on) {
    return on && zos::LiteLockDrop(lock);
}

// The head of the first bucket that fits, taken, or null with nothing
// changed. The lock is held (or off).
__attribute__((always_inline)) inline void *AllocQuick(ZosPool *pool, uint32_t size) {
    // A size up to the largest bucket's has a start within the table.
    if (size - 1 >= pool->uiMaxSize) return nullptr;
    ZosBkt *bkt = &pool->pstBkts[pool->aucClassFrom[Octave(size)]];
    Link *link = bkt->stFreeList.pstHead;
    if (bkt->uiDataSize < size || link == nullptr) return nullptr;
    uint8_t *node = NodeOf(link);
    const uint32_t header = Load32(node);
    if ((header & kFreeBit) == 0 || !FreeNodeIntact(bkt, node)) return nullptr;
    TakeHead(pool, bkt, header);
    return node + kNodeHead;
}

// The whole allocation, out of line; kHeld here: the pool has just been
// found registered.
template <bool kHeld>
__attribute__((noinline)) void *AllocSlow(ZosPool *pool, uint32_t size) {
    return AllocIn<kHeld>(pool, size);
}

// After a quick step that had the lock: wakes the waiter, then finishes a
// request the quick step left.
__attribute__((noinline)) void *AllocAfterQuick(ZosPool *pool, uint32_t size, void *mem,
                                                bool wake) {
    if (wake) pool->stLock.pfnPost(&pool->stLock.zSem);
    return mem != nullptr ? mem : AllocIn<true>(pool, size);
}

}  // namespace

// The data buffers' pools shrink, so their allocations meet an empty bucket
// and their frees empty a block at every packet; the quick step would only
// add its checks there.
void *zos::PoolAllocHeld(ZPOOL zPool, uint32_t uiSize) {
    return AllocIn<true>(zPool, uiSize);
}

extern "C" {

KESTRO_API void *Zos_PoolAlloc(ZPOOL zPool, uint32_t uiSize) {
    ZosPool *pool = PoolOf(zPool);
    if (!SeenPool(pool)) return AllocSlow<false>(pool, uiSize);
    const bool on = zos::LiteLockOn(&pool->stLock);
    if (!QuickLock(&pool->stLock, on)) return AllocSlow<true>(pool, uiSize);
    void *mem = AllocQuick(pool, uiSize);
    const bool wake = QuickUnlock(&pool->stLock, on);
    if (__builtin_expect(wake || mem == nullptr, 0)) {
        return AllocAfterQuick(pool, uiSize, mem, wake);
    }
    return mem;
}

// ---------------------------------------------------------------------
// The bucket and large-allocation steps, exported one by one

namespace {

// Nodes of a block with their free bit set.
uint32_t FreeNodesOf(const ZosBkt *bkt, const ZosBlk *blk) {
    uint32_t n = 0;
    for (uint8_t *node = blk->pucFirst; node < blk->pucEnd; node += bkt->uiStride) {
        if ((Load32(node) & kFreeBit) != 0) n++;
    }
    return n;
}

// The block of the bucket holding the node, searched from the tail of the
// block list backwards; null when none does.
ZosBlk *FindBlk(ZosBkt *bkt, uintptr_t node) {
    for (Link *l = bkt->stBlkList.pstTail; l != nullptr; l = l->pstPrev) {
        auto *blk = reinterpret_cast<ZosBlk *>(l);
        if (node >= reinterpret_cast<uintptr_t>(blk->pucFirst) &&
            node < reinterpret_cast<uintptr_t>(blk->pucEnd)) {
            return blk;
        }
    }
    return nullptr;
}

bool InList(const ZosBkt *bkt, const void *blk) {
    for (Link *l = bkt->stBlkList.pstHead; l != nullptr; l = l->pstNext) {
        if (l == blk) return true;
    }
    return false;
}

}  // namespace

KESTRO_API uint32_t Zos_BktGrpCreate(ZPOOL zPool) {
    ZosPool *pool = PoolOf(zPool);
    if (!ValidPool(pool)) return ZFAILED;
    zos::LiteGuard lock(&pool->stLock);
    return BktGrpCreateIn(pool);
}

KESTRO_API void Zos_BktGrpDelete(ZPOOL zPool) {
    ZosPool *pool = PoolOf(zPool);
    if (!ValidPool(pool)) return;
    zos::LiteGuard lock(&pool->stLock);
    // The blocks leave the address index with their nodes.
    for (uint32_t i = 0; i < pool->ucBktCnt; ++i) {
        for (Link *l = pool->pstBkts[i].stBlkList.pstHead; l != nullptr; l = l->pstNext) {
            RefRemove(pool, reinterpret_cast<uintptr_t>(reinterpret_cast<ZosBlk *>(l)->pucFirst));
        }
    }
    BktGrpDeleteIn(pool);
}

KESTRO_API uint32_t Zos_BktCreate(ZPOOL zPool, uint32_t uiBktIdx, uint32_t bFirst) {
    ZosPool *pool = PoolOf(zPool);
    if (!ValidPool(pool)) return ZFAILED;
    uint32_t faults = 0;
    uint32_t rc = ZFAILED;
    if (uiBktIdx >= pool->ucBktCnt) {
        faults |= 1u << kBktInvalidId;
    } else {
        zos::LiteGuard lock(&pool->stLock);
        // A first block sets the bucket's stride: only an empty bucket gets one.
        ZosBkt *bkt = &pool->pstBkts[uiBktIdx];
        if (bFirst == 0 && ReuseSpare(bkt, uiBktIdx, false) != nullptr) {
            rc = ZOK;
        } else if (bFirst == 0 || bkt->stBlkList.pstHead == nullptr) {
            rc = BktCreateIn(pool, uiBktIdx, bFirst != 0, &faults);
        }
    }
    Report(pool, faults);
    return rc;
}

KESTRO_API uint32_t Zos_BktDelete(ZPOOL zPool, uint32_t uiBktIdx, void *pBlk) {
    ZosPool *pool = PoolOf(zPool);
    if (!ValidPool(pool) || uiBktIdx >= pool->ucBktCnt || pBlk == nullptr) return ZFAILED;
    zos::LiteGuard lock(&pool->stLock);
    ZosBkt *bkt = &pool->pstBkts[uiBktIdx];
    auto *blk = static_cast<ZosBlk *>(pBlk);
    // Only a listed block whose nodes are all free can go back.
    if (!InList(bkt, blk) || FreeNodesOf(bkt, blk) != blk->wCount) return ZFAILED;
    BktDeleteIn(pool, bkt, blk);
    return ZOK;
}

KESTRO_API void *Zos_BktFindBlk(ZPOOL zPool, uint32_t uiBktIdx, const void *pMem) {
    ZosPool *pool = PoolOf(zPool);
    if (!ValidPool(pool) || uiBktIdx >= pool->ucBktCnt || pMem == nullptr) return nullptr;
    zos::LiteGuard lock(&pool->stLock);
    return FindBlk(&pool->pstBkts[uiBktIdx], reinterpret_cast<uintptr_t>(pMem) - kNodeHead);
}

KESTRO_API uint32_t Zos_BktFree(ZPOOL zPool, void *pMem) {
    ZosPool *pool = PoolOf(zPool);
    if (!ValidPool(pool) || pMem == nullptr) return ZFAILED;
    zos::LiteGuard lock(&pool->stLock);
    const Where w = Locate(pool, pMem);
    if (w.kind != Kind::kNode || (Load32(w.node) & kFreeBit) == 0) return ZFAILED;
    ZosBkt *bkt = &pool->pstBkts[w.ref->uiBkt];
    ZosBlk *blk = FindBlk(bkt, reinterpret_cast<uintptr_t>(w.node));
    if (blk == nullptr) {
        if (LogOn(pool))
            Zos_LogStr(Zos_LogGetZosId(), ZOS_LOG_LEVEL_ERROR, "BktFree locate bucekt block.");
        return ZFAILED;
    }
    // The same rule as the shrink after a free, counting the free nodes
    // from their bits (the block counts are kept only with shrink on).
    const bool first = bkt->wInitCnt != 0 && bkt->stBlkList.pstHead == &blk->stLink;
    if (FreeNodesOf(bkt, blk) == blk->wCount && bkt->wTotal != bkt->wInitCnt && !first) {
        BktDeleteIn(pool, bkt, blk);
    }
    return ZOK;
}

KESTRO_API void *Zos_PoolHeapAlloc(ZPOOL zPool, uint32_t uiSize) {
    ZosPool *pool = PoolOf(zPool);
    if (!ValidPool(pool)) return nullptr;
    return PoolHeapAllocIn(pool, uiSize);
}

KESTRO_API void Zos_PoolHeapFree(ZPOOL zPool, void *pMem) {
    ZosPool *pool = PoolOf(zPool);
    if (!ValidPool(pool) || pMem == nullptr) return;
    uint32_t faults = 0;
    void *release = nullptr;
    {
        zos::LiteGuard lock(&pool->stLock);
        const Where w = Locate(pool, pMem);
        if (w.kind == Kind::kLarge) {
            PoolHeapFreeIn(pool, w, &release, &faults);
        } else {
            faults |= 1u << kHeapFreeMagic;
        }
    }
    if (release != nullptr) pool->pfnFree(release);
    Report(pool, faults);
}

KESTRO_API void *Zos_PoolAllocClrd(ZPOOL zPool, uint32_t uiSize) {
    void *p = Zos_PoolAlloc(zPool, uiSize);
    if (p != nullptr) std::memset(p, 0, uiSize);
    return p;
}

}  // extern "C"

namespace {

// Zos_PoolFree; kHeld as for AllocIn.
template <bool kHeld>
__attribute__((always_inline)) inline void FreeIn(ZPOOL zPool, void *pMem) {
    ZosPool *pool = PoolOf(zPool);
    if (pool == nullptr || pMem == nullptr) return;
    if (!PoolUsable<kHeld>(pool)) {
        RefusedErr(pool, "PoolFree <%s> invalid magic.");
        return;
    }
    uint32_t faults = 0;
    void *release = nullptr;
    PutNode(pool, pMem, &release, &faults);
    if (release != nullptr) pool->pfnFree(release);
    if (faults != 0) Report(pool, faults);
}

// A busy node of a block the last look-up found, put back, or false with
// nothing changed. The lock is held (or off).
__attribute__((always_inline)) inline bool FreeQuick(ZosPool *pool, void *mem) {
    const uintptr_t at = reinterpret_cast<uintptr_t>(mem) - kNodeHead;
    const AddrRef *ref = RefQuick(pool, at);
    if (ref == nullptr || !InLiveBlock(pool, ref, at)) return false;
    ZosBlk *blk = ref->pstBlk;
    ZosBkt *bkt = &pool->pstBkts[ref->uiBkt];
    // A free that empties a block that then goes (aside or back) is the
    // slow step's work.
    const bool shrink = (pool->wFlags & kFlagShrink) != 0;
    if (shrink && FreeTakesBlockOff(bkt, blk)) return false;
    uint8_t *node = reinterpret_cast<uint8_t *>(at);
    const uint32_t header = Load32(node);
    if ((header & kFreeBit) != 0 || Load32(node + 4) != kNodeMagic ||
        BktIndex(header) != ref->uiBkt || Load32(node + kNodeHead + bkt->uiDataSize) != kRedZone) {
        return false;
    }
    PutBack(bkt, blk, node, header);
    if (shrink) blk->wFree++;
    return true;
}

// The whole free, out of line; kHeld as for AllocSlow.
template <bool kHeld>
__attribute__((noinline)) void FreeSlow(ZosPool *pool, void *mem) {
    FreeIn<kHeld>(pool, mem);
}

// As AllocAfterQuick, for a free.
__attribute__((noinline)) void FreeAfterQuick(ZosPool *pool, void *mem, bool done, bool wake) {
    if (wake) pool->stLock.pfnPost(&pool->stLock.zSem);
    if (!done) FreeIn<true>(pool, mem);
}

}  // namespace

void zos::PoolFreeHeld(ZPOOL zPool, void *pMem) {
    FreeIn<true>(zPool, pMem);
}

extern "C" {

KESTRO_API void Zos_PoolFree(ZPOOL zPool, void *pMem) {
    ZosPool *pool = PoolOf(zPool);
    if (pMem == nullptr || !SeenPool(pool)) return FreeSlow<false>(pool, pMem);
    if (!QuickLock(&pool->stLock, zos::LiteLockOn(&pool->stLock))) {
        return FreeSlow<true>(pool, pMem);
    }
    const bool done = FreeQuick(pool, pMem);
    // The switch is read again: held in a register across the free, it
    // would cost one saved and restored.
    const bool wake = QuickUnlock(&pool->stLock, zos::LiteLockOn(&pool->stLock));
    if (__builtin_expect(wake || !done, 0)) FreeAfterQuick(pool, pMem, done, wake);
}

KESTRO_API uint32_t Zos_PoolGetSize(ZPOOL zPool, void *pMem, uint32_t *puiSize) {
    if (puiSize != nullptr) *puiSize = 0;
    ZosPool *pool = PoolOf(zPool);
    if (pool == nullptr || pMem == nullptr || puiSize == nullptr) return ZFAILED;
    if (!ValidPool(pool)) {
        RefusedErr(pool, "PoolGetSize <%s> invalid magic.");
        return ZFAILED;
    }
    uint32_t size = 0;
    {
        zos::LiteGuard lock(&pool->stLock);
        const Where w = Locate(pool, pMem);
        if (w.kind == Kind::kLarge) {
            size = Load32(w.node) & ~kLargeBit;
        } else if (w.kind == Kind::kNode && Load32(w.node + 4) == kNodeMagic &&
                   BktIndex(Load32(w.node)) == w.ref->uiBkt) {
            size = pool->pstBkts[w.ref->uiBkt].uiDataSize;
        }
    }
    if (size == 0) {
        PoolLogErr(pool, "PoolGetSize <%s> invalid id(ex.magic id).");
        return ZFAILED;
    }
    *puiSize = size;
    return ZOK;
}

KESTRO_API uint32_t Zos_PoolFillPoison(ZPOOL zPool, void *pMem) {
    ZosPool *pool = PoolOf(zPool);
    if (pool == nullptr || pMem == nullptr) return ZFAILED;
    if (!ValidPool(pool)) {
        RefusedErr(pool, "PoolFillPoison <%s> invalid magic.");
        return ZFAILED;
    }
    bool ok = false;
    {
        zos::LiteGuard lock(&pool->stLock);
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
        PoolLogErr(pool, "PoolFillPoison <%s> invalid id.");
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API uint32_t Zos_PoolIsValid(ZPOOL zPool, void *pMem) {
    ZosPool *pool = PoolOf(zPool);
    if (pool == nullptr || pMem == nullptr) return 0;
    if (!ValidPool(pool)) {
        RefusedErr(pool, "PoolIsValid <%s> invalid magic.");
        return 0;
    }
    Kind kind = Kind::kForeign;
    {
        zos::LiteGuard lock(&pool->stLock);
        kind = Locate(pool, pMem).kind;
    }
    if (kind == Kind::kForeign) {
        PoolLogErr(pool, "PoolIsValid <%s> invalid bucket id.");
        return 0;
    }
    return 1;
}

KESTRO_API uint32_t Zos_PoolChkMem(ZPOOL zPool, void *pMem) {
    ZosPool *pool = PoolOf(zPool);
    if (pool == nullptr || pMem == nullptr) return 0;
    if (!ValidPool(pool)) {
        RefusedErr(pool, "PoolChkMem <%s> invalid magic.");
        return 0;
    }
    enum { kSound, kBadId, kBadRedZone } result = kSound;
    bool countError = false;
    {
        zos::LiteGuard lock(&pool->stLock);
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
    if (countError) PoolLogErr(pool, "PoolChkMem <%s> free count error.");
    if (result == kBadId) {
        PoolLogErr(pool, "PoolChkMem <%s> invalid id(ex.magic id).");
        return 0;
    }
    if (result == kBadRedZone) {
        PoolLogErr(pool, "PoolChkMem <%s> invalid redzone.");
        return 0;
    }
    return 1;
}

KESTRO_API uint32_t Zos_PoolChkBkt(ZPOOL zPool, uint32_t uiBktIdx) {
    ZosPool *pool = PoolOf(zPool);
    if (!ValidPool(pool) || uiBktIdx >= pool->ucBktCnt) return 0;
    uint32_t faults = 0;
    bool sound = false;
    {
        zos::LiteGuard lock(&pool->stLock);
        sound = CheckBucket(pool, uiBktIdx, &faults);
    }
    Report(pool, faults);
    return sound ? 1 : 0;
}

KESTRO_API uint32_t Zos_PoolChkPool(ZPOOL zPool) {
    ZosPool *pool = PoolOf(zPool);
    if (pool == nullptr) return 0;
    if (!ValidPool(pool)) {
        RefusedErr(pool, "PoolChkPool <%s> invalid magic.");
        return 0;
    }
    uint32_t faults = 0;
    bool sound = true;
    {
        zos::LiteGuard lock(&pool->stLock);
        for (uint32_t i = 0; i < pool->ucBktCnt; ++i)
            sound = CheckBucket(pool, i, &faults) && sound;
    }
    Report(pool, faults);
    if (!sound) {
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
    zos::LiteGuard lock(&pool->stLock);
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
    zos::LiteGuard lock(&pool->stLock);
    return pool->uiHeapSize;
}

}  // extern "C"

void zos::PoolFreeChain(ZPOOL zPool, void *first, size_t linkOffset, void *last) {
    ZosPool *pool = PoolOf(zPool);
    auto next = [linkOffset](void *mem) {
        void *n;
        std::memcpy(&n, static_cast<char *>(mem) + linkOffset, sizeof(n));
        return n;
    };
    if (pool == nullptr || !PoolUsable<true>(pool)) {
        // One by one, so each free is refused with its own line.
        for (void *mem = first; mem != nullptr;) {
            void *following = next(mem);
            Zos_PoolFree(zPool, mem);
            mem = following;
        }
        if (last != nullptr) Zos_PoolFree(zPool, last);
        return;
    }
    void *mem = first != nullptr ? first : last;
    while (mem != nullptr) {
        // A batch ends after a node with a fault or a large block to give
        // back, so lines and releases come in the order of single frees.
        uint32_t faults = 0;
        void *release = nullptr;
        {
            zos::LiteGuard lock(&pool->stLock);
            while (mem != nullptr && faults == 0 && release == nullptr) {
                // The link is read before the free overwrites the data.
                void *following = mem != last ? next(mem) : nullptr;
                if (following == nullptr && mem != last) following = last;
                PutNodeIn(pool, mem, &release, &faults);
                mem = following;
            }
        }
        if (release != nullptr) pool->pfnFree(release);
        if (faults != 0) Report(pool, faults);
    }
}

bool zos::PoolEndSizes(ZPOOL zPool, uint32_t *first, uint32_t *last) {
    const ZosPool *pool = PoolOf(zPool);
    if (!ValidPool(pool) || pool->ucBktCnt == 0) return false;
    *first = pool->pstBkts[0].uiDataSize;
    *last = pool->pstBkts[pool->ucBktCnt - 1].uiDataSize;
    return true;
}

uint32_t zos::PoolPrintStats(ZPOOL zPool) {
    ZosPool *pool = PoolOf(zPool);
    if (!ValidPool(pool)) return ZFAILED;
    // The figures are taken together under the lock and printed after it.
    ST_ZOS_POOL_BKT_STAT rows[255];
    uint32_t count = 0;
    uint32_t heap = 0;
    {
        zos::LiteGuard lock(&pool->stLock);
        count = pool->ucBktCnt;
        heap = pool->uiHeapSize;
        for (uint32_t i = 0; i < count; ++i) {
            const ZosBkt *bkt = &pool->pstBkts[i];
            rows[i] = {bkt->uiDataSize, bkt->wTotal,  bkt->wFree, bkt->uiPeak,
                       bkt->uiAllocs,   bkt->uiFrees, 0};
        }
    }
    Zos_Printf("\r\n    BUCKET      TOTAL       FREE  PEEK ALLOC    REQUEST    RELEASE\r\n");
    Zos_Printf("    ------      -----       ----  ----------    -------    -------\r\n");
    uint32_t total = 0;
    uint32_t free = 0;
    for (uint32_t i = 0; i < count; ++i) {
        const ST_ZOS_POOL_BKT_STAT &r = rows[i];
        Zos_Printf("%10u %10d %10d %11u %10u %10u\r\n", r.uiSize, static_cast<int32_t>(r.uiTotal),
                   static_cast<int32_t>(r.uiFree), r.uiPeak, r.uiAllocs, r.uiFrees);
        total += r.uiSize * r.uiTotal;
        free += r.uiSize * r.uiFree;
    }
    Zos_Printf("\r\n             total       used       free  \r\n");
    Zos_Printf("Mem:    %10u %10u %10u \r\n", total, total - free, free);
    Zos_Printf("Heap:   %10u\r\n\r\n", heap);
    return ZOK;
}
