// Brick pool: bricks of up to 4096 bytes bump-allocated from pages, with
// free lists per power-of-two class for bricks given back.
//
// Page:  [next page][end][bricks ...]
// Brick: [header word, padded to the alignment][data ...]
//        header = tag << 16 | rounded size; the tag tells in use from free.
// A free brick's data holds the link of its class's free list. A brick of
// size s sits on list floor(log2 s). A request of r first looks at the
// head of its own list floor(log2 r) for a brick of at least r bytes (so
// an arena that frees and allocates records of one size keeps reusing the
// same bricks), then takes the first brick of the lists from ceil(log2 r)
// up, where any brick is large enough.
#include <bit>
#include <cstring>

#include "zos_bpool_int.h"
#include "zos_mem.h"
#include "zos_live.h"
#include "zos_util.h"

namespace {

constexpr uint32_t kBpoolMagic = 0xB0B1B2B3u;
constexpr uint32_t kUsedTag = 0xB71Cu;
constexpr uint32_t kFreeTag = 0xB71Fu;
constexpr uint32_t kMinPage = 32;
constexpr uint32_t kMaxPage = 4096;
constexpr uint32_t kClasses = 13;  // floor(log2 s) for s in 1..4096
constexpr uint32_t kPtr = static_cast<uint32_t>(sizeof(void *));
constexpr uint32_t kFitTries = 4;  // bricks of its own list a request looks at

struct Page {
    Page *pstNext;
    uint8_t *pucEnd;
};

struct ZosBpool {
    uint32_t uiMagic;
    uint8_t ucType;
    uint8_t ucAlign;
    uint8_t ucPlaced;  // record owned by the caller
    uint8_t ucRsv;
    uint32_t uiPageSize;
    uint32_t uiNextPage;  // capacity of the next page taken
    uint32_t uiUsed;      // bytes of bricks in use
    uint32_t uiFreeMask;  // bit c set while free list c is not empty
    uint8_t *pucCur;      // bump position in the newest page
    uint8_t *pucLimit;
    Page *pstPages;  // newest first; the first page is last
    Page *pstFirst;  // kept across a clean
    void *apFree[kClasses];
};

constexpr uint32_t RoundUp(uint32_t v, uint32_t a) {
    return (v + a - 1) & ~(a - 1);
}

constexpr uint32_t kRecSize = RoundUp(static_cast<uint32_t>(sizeof(ZosBpool)), 8);
constexpr uint32_t kPageHdr = RoundUp(static_cast<uint32_t>(sizeof(Page)), 8);

uint32_t ClampPage(uint32_t page) {
    return page < kMinPage ? kMinPage : page > kMaxPage ? kMaxPage : page;
}

ZosBpool *Valid(ZBPOOL zPool) {
    return zos::LiveRecord<ZosBpool>(zPool, kBpoolMagic);
}

uint8_t *PageData(Page *page) {
    return reinterpret_cast<uint8_t *>(page) + kPageHdr;
}

uint32_t LoadWord(const uint8_t *p) {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

void StoreWord(uint8_t *p, uint32_t v) {
    std::memcpy(p, &v, 4);
}

uint8_t *LoadPtr(const uint8_t *p) {
    uint8_t *v;
    std::memcpy(&v, p, sizeof(v));
    return v;
}

void StorePtr(uint8_t *p, const void *v) {
    std::memcpy(p, &v, sizeof(v));
}

bool Holds(const ZosBpool *pool, const uint8_t *p) {
    for (Page *page = pool->pstPages; page != nullptr; page = page->pstNext) {
        if (p >= PageData(page) && p < page->pucEnd) return true;
    }
    return false;
}

// Unlinks and returns the first of the first kFitTries bricks of free list
// c that holds at least `size` bytes; null when none does.
uint8_t *TakeFitting(ZosBpool *pool, uint32_t c, uint32_t size) {
    // `link` holds the pointer to the brick looked at: the list head, then
    // the data of the brick before.
    auto *link = reinterpret_cast<uint8_t *>(&pool->apFree[c]);
    for (uint32_t n = 0; n < kFitTries; ++n) {
        uint8_t *data = LoadPtr(link);
        if (data == nullptr) break;
        if ((LoadWord(data - pool->ucAlign) & 0xFFFFu) >= size) {
            StorePtr(link, LoadPtr(data));
            if (pool->apFree[c] == nullptr) pool->uiFreeMask &= ~(1u << c);
            return data;
        }
        link = data;
    }
    return nullptr;
}

// Takes a new page able to hold `need` bytes and makes it the bump page.
bool NewPage(ZosBpool *pool, uint32_t need) {
    const uint32_t cap = need > pool->uiNextPage ? need : pool->uiNextPage;
    auto *page = static_cast<Page *>(Zos_Malloc(kPageHdr + cap));
    if (page == nullptr) return false;
    page->pucEnd = PageData(page) + cap;
    page->pstNext = pool->pstPages;
    pool->pstPages = page;
    pool->pucCur = PageData(page);
    pool->pucLimit = page->pucEnd;
    // Pages grow while a pool keeps filling, up to the largest page.
    if (pool->uiNextPage < kMaxPage) pool->uiNextPage *= 2;
    return true;
}

void ReleasePages(ZosBpool *pool) {
    Page *page = pool->pstPages;
    while (page != nullptr) {
        Page *next = page->pstNext;
        if (page != pool->pstFirst) Zos_Free(page);
        page = next;
    }
    pool->pstPages = pool->pstFirst;
    if (pool->pstFirst != nullptr) pool->pstFirst->pstNext = nullptr;
}

void Reset(ZosBpool *pool) {
    pool->uiUsed = 0;
    pool->uiFreeMask = 0;
    std::memset(pool->apFree, 0, sizeof(pool->apFree));
    pool->uiNextPage = pool->uiPageSize;
    pool->pucCur = PageData(pool->pstFirst);
    pool->pucLimit = pool->pstFirst->pucEnd;
}

ZosBpool *Build(void *mem, uint32_t type, uint32_t page, uint32_t align, bool placed) {
    auto *pool = static_cast<ZosBpool *>(mem);
    std::memset(pool, 0, sizeof(*pool));
    pool->ucType = static_cast<uint8_t>(type);
    pool->ucAlign = static_cast<uint8_t>(align);
    pool->ucPlaced = placed ? 1 : 0;
    pool->uiPageSize = page;
    pool->pstFirst = reinterpret_cast<Page *>(static_cast<uint8_t *>(mem) + kRecSize);
    pool->pstFirst->pstNext = nullptr;
    pool->pstFirst->pucEnd = PageData(pool->pstFirst) + page;
    pool->pstPages = pool->pstFirst;
    Reset(pool);
    if (!zos::LiveAdd(pool)) return nullptr;
    pool->uiMagic = kBpoolMagic;
    return pool;
}

// The alignment a pool really uses, 0 when the request is refused.
uint32_t AlignOf(uint32_t type, uint32_t align) {
    if (type != 0) return 0;
    if (align == 0) align = 4;
    if (align != 4 && align != 8) return 0;
    return align < kPtr ? kPtr : align;
}

}  // namespace

uint32_t zos::BpoolFootprint(uint32_t uiPageSize) {
    return kRecSize + kPageHdr + ClampPage(uiPageSize);
}

ZBPOOL zos::BpoolPlace(void *mem, uint32_t uiType, uint32_t uiPageSize, uint32_t uiAlign) {
    const uint32_t align = AlignOf(uiType, uiAlign);
    if (mem == nullptr || align == 0) return nullptr;
    return Build(mem, uiType, ClampPage(uiPageSize), align, true);
}

extern "C" {

KESTRO_API ZBPOOL Zos_BpoolCreate(uint32_t uiType, uint32_t uiPageSize, uint32_t uiAlign) {
    const uint32_t align = AlignOf(uiType, uiAlign);
    if (align == 0) {
        ZOS_LOG_ERR("BpoolCreate invalid type.");
        return nullptr;
    }
    const uint32_t page = ClampPage(uiPageSize);
    void *mem = Zos_Malloc(zos::BpoolFootprint(page));
    if (mem == nullptr) {
        ZOS_LOG_ERR("BpoolCreate alloc memory.");
        return nullptr;
    }
    ZosBpool *pool = Build(mem, uiType, page, align, false);
    if (pool == nullptr) {
        ZOS_LOG_ERR("BpoolCreate alloc memory.");
        Zos_Free(mem);
    }
    return pool;
}

KESTRO_API void Zos_BpoolDelete(ZBPOOL zPool) {
    ZosBpool *pool = Valid(zPool);
    if (pool == nullptr) {
        if (zPool != nullptr) ZOS_LOG_ERR("BpoolDelete invalid id.");
        return;
    }
    ReleasePages(pool);
    zos::LiveRemove(pool);
    pool->uiMagic = 0;
    if (pool->ucPlaced == 0) Zos_Free(pool);
}

KESTRO_API void *Zos_BpoolAlloc(ZBPOOL zPool, uint32_t uiSize) {
    ZosBpool *pool = Valid(zPool);
    if (pool == nullptr) {
        ZOS_LOG_ERR("BpoolAlloc invalid id.");
        return nullptr;
    }
    if (uiSize == 0 || uiSize > ZOS_BPOOL_BRICK_MAX) return nullptr;
    const uint32_t align = pool->ucAlign;
    const uint32_t size = RoundUp(uiSize, align);
    const uint32_t own = static_cast<uint32_t>(std::bit_width(size)) - 1;
    const uint32_t cls = static_cast<uint32_t>(std::bit_width(size - 1));  // surely fits
    uint8_t *data = nullptr;
    if ((pool->uiFreeMask >> own & 1u) != 0) data = TakeFitting(pool, own, size);
    const uint32_t mask = pool->uiFreeMask >> cls << cls;
    if (data == nullptr && mask != 0) {
        data = TakeFitting(pool, static_cast<uint32_t>(std::countr_zero(mask)), size);
    }
    if (data != nullptr) {
        uint8_t *head = data - align;
        const uint32_t brick = LoadWord(head) & 0xFFFFu;
        StoreWord(head, kUsedTag << 16 | brick);
        pool->uiUsed += brick;
        return data;
    }
    const uint32_t need = align + size;
    if (static_cast<uint32_t>(pool->pucLimit - pool->pucCur) < need && !NewPage(pool, need)) {
        return nullptr;
    }
    uint8_t *head = pool->pucCur;
    pool->pucCur += need;
    StoreWord(head, kUsedTag << 16 | size);
    pool->uiUsed += size;
    return head + align;
}

KESTRO_API uint32_t Zos_BpoolFree(ZBPOOL zPool, void *pMem) {
    ZosBpool *pool = Valid(zPool);
    if (pool == nullptr) {
        ZOS_LOG_ERR("BpoolFree invalid id.");
        return ZFAILED;
    }
    if (pMem == nullptr) return ZFAILED;
    auto *data = static_cast<uint8_t *>(pMem);
    const uint32_t align = pool->ucAlign;
    // The header must lie in a page too, and the brick must be one in use.
    if (reinterpret_cast<uintptr_t>(data) % align != 0 || !Holds(pool, data) ||
        !Holds(pool, data - align)) {
        ZOS_LOG_ERR("BpoolFree invalid memory.");
        return ZFAILED;
    }
    uint8_t *head = data - align;
    const uint32_t word = LoadWord(head);
    const uint32_t size = word & 0xFFFFu;
    if (word >> 16 != kUsedTag || size == 0 || size > ZOS_BPOOL_BRICK_MAX) {
        ZOS_LOG_ERR("BpoolFree invalid memory.");
        return ZFAILED;
    }
    StoreWord(head, kFreeTag << 16 | size);
    const uint32_t c = static_cast<uint32_t>(std::bit_width(size)) - 1;
    StorePtr(data, pool->apFree[c]);
    pool->apFree[c] = data;
    pool->uiFreeMask |= 1u << c;
    pool->uiUsed -= size;
    return ZOK;
}

KESTRO_API uint32_t Zos_BpoolHoldD(ZBPOOL zPool, const void *pMem) {
    const ZosBpool *pool = Valid(zPool);
    if (pool == nullptr || pMem == nullptr) return 0;
    return Holds(pool, static_cast<const uint8_t *>(pMem)) ? 1 : 0;
}

KESTRO_API uint32_t Zos_BpoolClean(ZBPOOL zPool) {
    ZosBpool *pool = Valid(zPool);
    if (pool == nullptr) {
        ZOS_LOG_ERR("BpoolClean invalid id.");
        return ZFAILED;
    }
    ReleasePages(pool);
    Reset(pool);
    return ZOK;
}

KESTRO_API uint32_t Zos_BpoolSize(ZBPOOL zPool) {
    const ZosBpool *pool = Valid(zPool);
    return pool != nullptr ? pool->uiUsed : 0;
}

KESTRO_API uint32_t Zos_BpoolPageSize(ZBPOOL zPool) {
    const ZosBpool *pool = Valid(zPool);
    return pool != nullptr ? pool->uiPageSize : 0;
}

}  // extern "C"
