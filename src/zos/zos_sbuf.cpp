// Segment buffers (bump allocation over fixed-size segments) and page
// buffers (one heap page per area, given back one by one).
//
// Both records begin with their magic word; the universal buffer tells
// them apart by it.
#include <cstring>

#include "zos_dlist.h"
#include "zos_dlist_link.h"
#include "zos_mem.h"
#include "zos_sbuf.h"
#include "zos_live.h"
#include "zos_util.h"

namespace {

using Link = ST_ZOS_DLIST_NODE;

constexpr uint32_t kSbufMagic = 0x8A9AAABAu;
constexpr uint32_t kPbufMagic = 0x7E8F9CA3u;
constexpr uint32_t kPageMark = 0x7E8F0A0Au;
constexpr uint32_t kDefaultSeg = 1024;
constexpr uint32_t kAlign = sizeof(void *) > 4 ? 8u : 4u;
constexpr uint32_t kLargest = 0x7FFF0000u;

struct Segment {
    Segment *pstNext;
    uint8_t *pucEnd;
};

constexpr uint32_t kSegHdr = (sizeof(Segment) + 7) & ~static_cast<size_t>(7);

struct ZosSbuf {
    uint32_t uiMagic;
    uint32_t uiSegSize;
    uint32_t uiUsed;
    uint32_t uiRsv;
    Segment *pstSegs;
    uint8_t *pucCur;
    uint8_t *pucLimit;
};

struct PageHdr {
    Link stLink;
    uint32_t uiSize;
    uint32_t uiMark;
};

struct ZosPbuf {
    uint32_t uiMagic;
    uint32_t uiUsed;
    ST_ZOS_DLIST stPages;
};

ZosSbuf *ValidS(ZSBUF z) {
    return zos::LiveRecord<ZosSbuf>(z, kSbufMagic);
}

ZosPbuf *ValidP(ZPBUF z) {
    return zos::LiveRecord<ZosPbuf>(z, kPbufMagic);
}

uint8_t *SegData(Segment *s) {
    return reinterpret_cast<uint8_t *>(s) + kSegHdr;
}

}  // namespace

extern "C" {

KESTRO_API ZSBUF Zos_SbufCreate(uint32_t uiSegSize) {
    auto *s = static_cast<ZosSbuf *>(Zos_MallocClrd(sizeof(ZosSbuf)));
    if (s == nullptr) {
        ZOS_LOG_ERR("SbufCreate alloc memory.");
        return nullptr;
    }
    s->uiSegSize = uiSegSize == 0 ? kDefaultSeg : uiSegSize > kLargest ? kLargest : uiSegSize;
    if (!zos::LiveAdd(s)) {
        ZOS_LOG_ERR("SbufCreate alloc memory.");
        Zos_Free(s);
        return nullptr;
    }
    s->uiMagic = kSbufMagic;
    return s;
}

KESTRO_API void Zos_SbufDelete(ZSBUF zSbuf) {
    ZosSbuf *s = ValidS(zSbuf);
    if (s == nullptr) {
        if (zSbuf != nullptr) ZOS_LOG_ERR("SbufDelete invalid id.");
        return;
    }
    while (Segment *seg = s->pstSegs) {
        s->pstSegs = seg->pstNext;
        Zos_Free(seg);
    }
    zos::LiveRemove(s);
    s->uiMagic = 0;
    Zos_Free(s);
}

KESTRO_API void *Zos_SbufAlloc(ZSBUF zSbuf, uint32_t uiSize) {
    ZosSbuf *s = ValidS(zSbuf);
    if (s == nullptr) {
        ZOS_LOG_ERR("SbufAlloc invalid id.");
        return nullptr;
    }
    if (uiSize == 0 || uiSize > kLargest) return nullptr;
    const uint32_t size = (uiSize + kAlign - 1) & ~(kAlign - 1);
    if (s->pucCur == nullptr || static_cast<uint32_t>(s->pucLimit - s->pucCur) < size) {
        const uint32_t cap = size > s->uiSegSize ? size : s->uiSegSize;
        auto *seg = static_cast<Segment *>(Zos_Malloc(kSegHdr + cap));
        if (seg == nullptr) {
            ZOS_LOG_ERR("SbufAlloc alloc memory.");
            return nullptr;
        }
        seg->pucEnd = SegData(seg) + cap;
        seg->pstNext = s->pstSegs;
        s->pstSegs = seg;
        s->pucCur = SegData(seg);
        s->pucLimit = seg->pucEnd;
    }
    uint8_t *p = s->pucCur;
    s->pucCur += size;
    s->uiUsed += size;
    return p;
}

KESTRO_API uint32_t Zos_SbufSize(ZSBUF zSbuf) {
    const ZosSbuf *s = ValidS(zSbuf);
    return s != nullptr ? s->uiUsed : 0;
}

KESTRO_API uint32_t Zos_SbufHoldD(ZSBUF zSbuf, const void *pMem) {
    const ZosSbuf *s = ValidS(zSbuf);
    if (s == nullptr || pMem == nullptr) return 0;
    const auto *p = static_cast<const uint8_t *>(pMem);
    for (Segment *seg = s->pstSegs; seg != nullptr; seg = seg->pstNext) {
        if (p >= SegData(seg) && p < seg->pucEnd) return 1;
    }
    return 0;
}

KESTRO_API ZPBUF Zos_PbufCreate(void) {
    auto *p = static_cast<ZosPbuf *>(Zos_MallocClrd(sizeof(ZosPbuf)));
    if (p == nullptr) {
        ZOS_LOG_ERR("PbufCreate alloc memory.");
        return nullptr;
    }
    p->stPages.uiMax = ZOS_LIST_NO_LIMIT;
    if (!zos::LiveAdd(p)) {
        ZOS_LOG_ERR("PbufCreate alloc memory.");
        Zos_Free(p);
        return nullptr;
    }
    p->uiMagic = kPbufMagic;
    return p;
}

KESTRO_API void Zos_PbufDelete(ZPBUF zPbuf) {
    ZosPbuf *p = ValidP(zPbuf);
    if (p == nullptr) {
        if (zPbuf != nullptr) ZOS_LOG_ERR("PbufDelete invalid id.");
        return;
    }
    while (Link *l = zos::DlistUnlinkHead(&p->stPages)) {
        reinterpret_cast<PageHdr *>(l)->uiMark = 0;
        Zos_Free(l);
    }
    zos::LiveRemove(p);
    p->uiMagic = 0;
    Zos_Free(p);
}

KESTRO_API void *Zos_PbufAlloc(ZPBUF zPbuf, uint32_t uiSize) {
    ZosPbuf *p = ValidP(zPbuf);
    if (p == nullptr) {
        ZOS_LOG_ERR("PbufAlloc invalid id.");
        return nullptr;
    }
    if (uiSize == 0 || uiSize > kLargest) return nullptr;
    const uint32_t size = (uiSize + 3) & ~3u;
    auto *page = static_cast<PageHdr *>(Zos_Malloc(size + static_cast<uint32_t>(sizeof(PageHdr))));
    if (page == nullptr) {
        ZOS_LOG_ERR("PbufAlloc alloc memory.");
        return nullptr;
    }
    page->uiSize = size;
    page->uiMark = kPageMark;
    zos::DlistLink(&p->stPages, p->stPages.pstTail, &page->stLink);
    p->uiUsed += size;
    return page + 1;
}

KESTRO_API uint32_t Zos_PbufFree(ZPBUF zPbuf, void *pMem) {
    ZosPbuf *p = ValidP(zPbuf);
    if (p == nullptr) {
        ZOS_LOG_ERR("PbufFree invalid id.");
        return ZFAILED;
    }
    if (pMem == nullptr) return ZFAILED;
    for (Link *l = p->stPages.pstHead; l != nullptr; l = l->pstNext) {
        auto *page = reinterpret_cast<PageHdr *>(l);
        if (static_cast<void *>(page + 1) != pMem || page->uiMark != kPageMark) continue;
        p->uiUsed -= page->uiSize;
        page->uiMark = 0;
        zos::DlistUnlink(&p->stPages, l);
        Zos_Free(page);
        return ZOK;
    }
    ZOS_LOG_ERR("PbufFree invalid memory.");
    return ZFAILED;
}

KESTRO_API uint32_t Zos_PbufSize(ZPBUF zPbuf) {
    const ZosPbuf *p = ValidP(zPbuf);
    return p != nullptr ? p->uiUsed : 0;
}

}  // extern "C"
