// Chained buffers (arenas): a brick pool for requests up to 4096 bytes,
// heap blocks for larger ones, a reference count and child arenas.
//
// Record: [next, prev][magic][references][parent][brick pool]
//         [large-block list][child list], then the brick pool's record and
//         first page, all from one allocation.
// Large block: [next, prev][data size][mark 0xBA3A2A1A][data ...].
//
// When an arena dies while a child still holds references elsewhere, the
// child's parent link is pointed at a record whose magic is 0 rather than
// left dangling: the child then finds its parent invalid (and says so)
// without reading the freed record.
#include <cstddef>
#include <cstring>

#include "zos_bpool_int.h"
#include "zos_cbuf.h"
#include "zos_cbuf_int.h"
#include "zos_dlist.h"
#include "zos_dlist_link.h"
#include "zos_mem.h"
#include "zos_live.h"
#include "zos_util.h"

namespace {

using Link = ST_ZOS_DLIST_NODE;

constexpr uint32_t kCbufMagic = 0xEFAAEF1Cu;
constexpr uint32_t kLargeMark = 0xBA3A2A1Au;
constexpr uint32_t kLargeLimit = 0x7FFFFFEFu;

struct ZosCbuf {
    Link stLink;  // in the parent's child list
    uint32_t uiMagic;
    uint32_t uiRefs;
    ZosCbuf *pstParent;
    ZBPOOL zBpool;
    ST_ZOS_DLIST stLarge;
    ST_ZOS_DLIST stChildren;
    // The record a "D" create placed first in the arena. A handle made
    // there (a tree, a hash table) dies with the arena, also when a parent
    // deletes it: its registration goes at the same time.
    void *pFirst;
};

struct LargeHdr {
    Link stLink;
    uint32_t uiSize;
    uint32_t uiMark;
};

static_assert(offsetof(ZosCbuf, uiMagic) == 2 * sizeof(void *),
              "the magic is the third word, after the two links");
static_assert(offsetof(LargeHdr, uiMark) + 4 == sizeof(LargeHdr),
              "the mark is the word just before the data");

constexpr uint32_t kRecSize = (sizeof(ZosCbuf) + 7) & ~static_cast<size_t>(7);

// The parent of every child whose parent died first. Never valid.
ZosCbuf g_deadParent{};

ZosCbuf *Valid(ZCBUF zCbuf) {
    return zos::LiveRecord<ZosCbuf>(zCbuf, kCbufMagic);
}

ZosCbuf *FromLink(Link *link) {
    return reinterpret_cast<ZosCbuf *>(link);
}

uint32_t PageOf(uint32_t hint) {
    if (hint == 0) return 32;
    const uint64_t q = (static_cast<uint64_t>(hint) + 31) / 32 * 16;
    uint32_t log = 0;
    while ((q >> (log + 1)) != 0) ++log;
    if (log + 1 >= 12) return 4096;
    const uint32_t page = 1u << (log + 1);
    return page < 32 ? 32 : page;
}

void ListInit(ST_ZOS_DLIST *list) {
    list->uiMax = ZOS_LIST_NO_LIMIT;
    list->uiCount = 0;
    list->pstHead = nullptr;
    list->pstTail = nullptr;
    list->zMutex = 0;
}

ZosCbuf *Create(uint32_t hint) {
    const uint32_t page = PageOf(hint);
    auto *c = static_cast<ZosCbuf *>(Zos_Malloc(kRecSize + zos::BpoolFootprint(page)));
    if (c == nullptr) {
        ZOS_LOG_ERR("CbufCreate alloc memory.");
        return nullptr;
    }
    c->stLink.pstNext = nullptr;
    c->stLink.pstPrev = nullptr;
    c->uiRefs = 1;
    c->pstParent = nullptr;
    c->pFirst = nullptr;
    c->zBpool = zos::BpoolPlace(reinterpret_cast<uint8_t *>(c) + kRecSize, 0, page, 4);
    ListInit(&c->stLarge);
    ListInit(&c->stChildren);
    if (c->zBpool == nullptr || !zos::LiveAdd(c)) {
        ZOS_LOG_ERR("CbufCreate alloc memory.");
        Zos_BpoolDelete(c->zBpool);
        Zos_Free(c);
        return nullptr;
    }
    c->uiMagic = kCbufMagic;
    return c;
}

void LinkChild(ZosCbuf *parent, ZosCbuf *child) {
    zos::DlistLink(&parent->stChildren, parent->stChildren.pstTail, &child->stLink);
    child->pstParent = parent;
}

void *AllocIn(ZosCbuf *c, uint32_t size) {
    if (size <= ZOS_CBUF_BRICK_MAX) {
        void *p = Zos_BpoolAlloc(c->zBpool, size);
        if (p == nullptr) ZOS_LOG_ERR("CbufAlloc alloc memory.");
        return p;
    }
    const uint64_t rounded = (static_cast<uint64_t>(size) + 3) & ~3ull;
    if (rounded >= kLargeLimit) {
        ZOS_LOG_ERR("CbufAlloc size too large.");
        return nullptr;
    }
    auto *hdr = static_cast<LargeHdr *>(
        Zos_Malloc(static_cast<uint32_t>(rounded) + static_cast<uint32_t>(sizeof(LargeHdr))));
    if (hdr == nullptr) {
        ZOS_LOG_ERR("CbufAlloc alloc memory.");
        return nullptr;
    }
    hdr->uiSize = static_cast<uint32_t>(rounded);
    hdr->uiMark = kLargeMark;
    zos::DlistLink(&c->stLarge, c->stLarge.pstTail, &hdr->stLink);
    return hdr + 1;
}

// CreateD and friends: `data` and `size` must agree.
ZCBUF CreateWith(ZCBUF parent, uint32_t pageHint, uint32_t size, void **ppData, bool clear) {
    if (ppData != nullptr) *ppData = nullptr;
    if ((size == 0) != (ppData == nullptr)) return nullptr;
    ZCBUF c = Zos_CbufCreateX(parent, pageHint != 0 ? pageHint : size);
    if (c == nullptr || size == 0) return c;
    void *p = clear ? Zos_CbufAllocClrd(c, size) : Zos_CbufAlloc(c, size);
    if (p == nullptr) {
        Zos_CbufDelete(c);
        return nullptr;
    }
    static_cast<ZosCbuf *>(c)->pFirst = p;
    *ppData = p;
    return c;
}

bool HoldIn(const ZosCbuf *c, const uint8_t *p) {
    for (Link *l = c->stLarge.pstHead; l != nullptr; l = l->pstNext) {
        const auto *hdr = reinterpret_cast<const LargeHdr *>(l);
        const auto *data = reinterpret_cast<const uint8_t *>(hdr + 1);
        if (p >= data && p < data + hdr->uiSize) return true;
    }
    if (Zos_BpoolHoldD(c->zBpool, p) != 0) return true;
    for (Link *l = c->stChildren.pstHead; l != nullptr; l = l->pstNext) {
        const ZosCbuf *child = FromLink(l);
        if (Valid(const_cast<ZosCbuf *>(child)) != nullptr && HoldIn(child, p)) return true;
    }
    return false;
}

void CleanIn(ZosCbuf *c) {
    Zos_BpoolClean(c->zBpool);
    while (Link *l = zos::DlistUnlinkHead(&c->stLarge)) {
        auto *hdr = reinterpret_cast<LargeHdr *>(l);
        if (hdr->uiMark != kLargeMark) ZOS_LOG_ERR("CbufClean invalid memory.");
        hdr->uiMark = 0;
        hdr->uiSize = 0;
        Zos_Free(hdr);
    }
    // A child deleted here unlinks itself; one that survives stays linked.
    Link *l = c->stChildren.pstHead;
    while (l != nullptr) {
        Link *next = l->pstNext;
        Zos_CbufDelete(FromLink(l));
        l = next;
    }
}

}  // namespace

extern "C" {

KESTRO_API ZCBUF Zos_CbufCreate(uint32_t uiSizeHint) {
    return Create(uiSizeHint);
}

KESTRO_API ZCBUF Zos_CbufCreateD(uint32_t uiPageHint, uint32_t uiSize, void **ppData) {
    return CreateWith(nullptr, uiPageHint, uiSize, ppData, false);
}

KESTRO_API ZCBUF Zos_CbufCreateClrd(uint32_t uiPageHint, uint32_t uiSize, void **ppData) {
    return CreateWith(nullptr, uiPageHint, uiSize, ppData, true);
}

KESTRO_API ZCBUF Zos_CbufCreateX(ZCBUF zParent, uint32_t uiSizeHint) {
    ZosCbuf *parent = nullptr;
    if (zParent != nullptr) {
        parent = Valid(zParent);
        if (parent == nullptr) {
            ZOS_LOG_ERR("CbufCreateX invalid parent.");
            return nullptr;
        }
    }
    ZosCbuf *c = Create(uiSizeHint);
    if (c != nullptr && parent != nullptr) LinkChild(parent, c);
    return c;
}

KESTRO_API ZCBUF Zos_CbufCreateXD(ZCBUF zParent, uint32_t uiPageHint, uint32_t uiSize,
                                  void **ppData) {
    return CreateWith(zParent, uiPageHint, uiSize, ppData, false);
}

KESTRO_API ZCBUF Zos_CbufCreateXClrd(ZCBUF zParent, uint32_t uiPageHint, uint32_t uiSize,
                                     void **ppData) {
    return CreateWith(zParent, uiPageHint, uiSize, ppData, true);
}

KESTRO_API void *Zos_CbufAlloc(ZCBUF zCbuf, uint32_t uiSize) {
    ZosCbuf *c = Valid(zCbuf);
    if (c == nullptr) {
        ZOS_LOG_ERR("CbufAlloc invalid id.");
        return nullptr;
    }
    if (uiSize == 0) return nullptr;
    return AllocIn(c, uiSize);
}

KESTRO_API void *Zos_CbufAllocClrd(ZCBUF zCbuf, uint32_t uiSize) {
    void *p = Zos_CbufAlloc(zCbuf, uiSize);
    if (p != nullptr) std::memset(p, 0, uiSize);
    return p;
}

KESTRO_API uint32_t Zos_CbufFree(ZCBUF zCbuf, void *pMem) {
    if (pMem == nullptr) return ZFAILED;
    if (zCbuf == nullptr) {
        ZOS_LOG_WARN("CbufFree null id.");
        return ZFAILED;
    }
    ZosCbuf *c = Valid(zCbuf);
    if (c == nullptr) {
        ZOS_LOG_ERR("CbufFree invalid id.");
        return ZFAILED;
    }
    if (Zos_BpoolHoldD(c->zBpool, pMem) != 0) return Zos_BpoolFree(c->zBpool, pMem);
    // A large block is looked up in the arena's own list before its header
    // is read, so a foreign pointer is refused without touching memory in
    // front of it.
    for (Link *l = c->stLarge.pstHead; l != nullptr; l = l->pstNext) {
        auto *hdr = reinterpret_cast<LargeHdr *>(l);
        if (static_cast<void *>(hdr + 1) != pMem) continue;
        if (hdr->uiMark != kLargeMark) break;
        hdr->uiSize = 0;
        hdr->uiMark = 0;
        zos::DlistUnlink(&c->stLarge, l);
        Zos_Free(hdr);
        return ZOK;
    }
    ZOS_LOG_ERR("CbufFree invalid memory.");
    return ZFAILED;
}

KESTRO_API ZCBUF Zos_CbufClone(ZCBUF zCbuf) {
    if (zCbuf == nullptr) return nullptr;
    ZosCbuf *c = Valid(zCbuf);
    if (c == nullptr) {
        ZOS_LOG_ERR("CbufClone invalid id.");
        return nullptr;
    }
    if (c->uiRefs >= ZOS_CBUF_REF_MAX) {
        ZOS_LOG_ERR("CbufClone too many reference.");
        return nullptr;
    }
    c->uiRefs++;
    return c;
}

KESTRO_API void Zos_CbufDelete(ZCBUF zCbuf) {
    if (zCbuf == nullptr) return;
    ZosCbuf *c = Valid(zCbuf);
    if (c == nullptr) {
        ZOS_LOG_ERR("CbufDelete invalid id.");
        return;
    }
    if (--c->uiRefs > 0) return;
    CleanIn(c);
    if (c->pstParent != nullptr) Zos_CbufDetach(c);
    // Children that survived the clean lose their parent.
    while (Link *l = zos::DlistUnlinkHead(&c->stChildren)) FromLink(l)->pstParent = &g_deadParent;
    Zos_BpoolDelete(c->zBpool);
    if (c->pFirst != nullptr) zos::LiveRemove(c->pFirst);
    zos::LiveRemove(c);
    c->uiMagic = 0;
    ListInit(&c->stLarge);
    Zos_Free(c);
}

KESTRO_API uint32_t Zos_CbufClean(ZCBUF zCbuf) {
    ZosCbuf *c = Valid(zCbuf);
    if (c == nullptr) {
        ZOS_LOG_ERR("CbufClean invalid id.");
        return ZFAILED;
    }
    CleanIn(c);
    return ZOK;
}

KESTRO_API uint32_t Zos_CbufAttach(ZCBUF zParent, ZCBUF zChild) {
    ZosCbuf *child = Valid(zChild);
    if (child == nullptr) {
        ZOS_LOG_ERR("CbufAttach invalid source id.");
        return ZFAILED;
    }
    ZosCbuf *parent = Valid(zParent);
    bool loop = false;
    for (ZosCbuf *a = parent; a != nullptr && !loop; a = Valid(a->pstParent)) loop = a == child;
    if (parent == nullptr || loop) {
        ZOS_LOG_ERR("CbufAttach invalid parent.");
        return ZFAILED;
    }
    if (child->pstParent == parent) return ZOK;
    if (child->pstParent != nullptr) {
        ZOS_LOG_ERR("CbufAttach exist parent.");
        return ZFAILED;
    }
    LinkChild(parent, child);
    return ZOK;
}

KESTRO_API uint32_t Zos_CbufDetach(ZCBUF zChild) {
    ZosCbuf *child = Valid(zChild);
    if (child == nullptr) {
        ZOS_LOG_ERR("CbufDetach invalid id.");
        return ZFAILED;
    }
    ZosCbuf *parent = child->pstParent;
    if (parent == nullptr) return ZOK;
    if (Valid(parent) == nullptr) {
        ZOS_LOG_ERR("CbufDetach invalid parent.");
        // Only a dead parent gets here; its link carries nothing to undo.
        if (parent == &g_deadParent) child->pstParent = nullptr;
        return ZFAILED;
    }
    zos::DlistUnlink(&parent->stChildren, &child->stLink);
    child->pstParent = nullptr;
    return ZOK;
}

KESTRO_API uint32_t Zos_CbufSize(ZCBUF zCbuf) {
    const ZosCbuf *c = Valid(zCbuf);
    if (c == nullptr) {
        ZOS_LOG_ERR("CbufSize invalid id.");
        return 0;
    }
    uint32_t size = Zos_BpoolSize(c->zBpool);
    for (Link *l = c->stLarge.pstHead; l != nullptr; l = l->pstNext) {
        size += reinterpret_cast<const LargeHdr *>(l)->uiSize;
    }
    return size;
}

KESTRO_API uint32_t Zos_CbufHoldD(ZCBUF zCbuf, const void *pMem) {
    if (zCbuf == nullptr || pMem == nullptr) return 0;
    const ZosCbuf *c = Valid(zCbuf);
    if (c == nullptr) {
        ZOS_LOG_ERR("CbufHoldD invalid id.");
        return 0;
    }
    return HoldIn(c, static_cast<const uint8_t *>(pMem)) ? 1 : 0;
}

}  // extern "C"

uint32_t zos::CbufRefsHeld(ZCBUF zCbuf) {
    return static_cast<const ZosCbuf *>(zCbuf)->uiRefs;
}

extern "C" {

KESTRO_API uint32_t Zos_CbufRefCnt(ZCBUF zCbuf) {
    const ZosCbuf *c = Valid(zCbuf);
    return c != nullptr ? c->uiRefs : 0;
}

KESTRO_API ZCBUF Zos_CbufGetParent(ZCBUF zCbuf) {
    const ZosCbuf *c = Valid(zCbuf);
    return c != nullptr ? Valid(c->pstParent) : nullptr;
}

}  // extern "C"
