// Dynamic node bucket: fixed-size nodes carved from blocks, handed out from
// a free list and grown block by block up to a maximum. The layout and the
// node hand-out are in zos_dbkt_core.h.
#include <cstddef>

#include "zos_dbkt.h"
#include "zos_dbkt_core.h"
#include "zos_dlist.h"
#include "zos_dlist_link.h"
#include "zos_mem.h"
#include "zos_util.h"

namespace zos::dbkt {

void Fault(const char *text) {
    ZOS_LOG_ERR("%s", text);
}

bool DblkCreate(Bucket *b, uint32_t count, bool covered) {
    const uint64_t bytes = sizeof(Block) + static_cast<uint64_t>(count) * b->uiStride;
    if (count == 0 || bytes > 0x7FFFFFFEu) return false;
    auto *blk = static_cast<Block *>(Zos_Malloc(static_cast<uint32_t>(bytes)));
    if (blk == nullptr) return false;
    blk->uiMark = kBlockMark;
    blk->uiFree = count;
    blk->uiNodes = count;
    blk->uiRsv = 0;
    blk->stLink.pstNext = nullptr;
    blk->stLink.pstPrev = nullptr;
    if (Zos_DlistInsert(&b->stBlocks, b->stBlocks.pstTail, &blk->stLink) != ZOK) {
        Zos_Free(blk);
        return false;
    }
    char *at = reinterpret_cast<char *>(blk) + sizeof(Block);
    for (uint32_t i = 0; i < count; ++i, at += b->uiStride) {
        auto *head = reinterpret_cast<NodeHead *>(at);
        head->uiTag = kFreeTag;
        head->uiOffset = static_cast<uint32_t>(at - reinterpret_cast<char *>(blk));
        zos::DlistAppend(&b->stFree, reinterpret_cast<Link *>(at + sizeof(NodeHead)), covered);
    }
    b->usTotal = static_cast<uint16_t>(b->usTotal + count);
    b->usFree = static_cast<uint16_t>(b->usFree + count);
    return true;
}

}  // namespace zos::dbkt

namespace {

using namespace zos::dbkt;

// Nodes are small records; the cap keeps the size arithmetic in range.
constexpr uint32_t kLargestNode = 0xFFFFFFu;

Block *BlockOfLink(Link *link) {
    return reinterpret_cast<Block *>(reinterpret_cast<char *>(link) - offsetof(Block, stLink));
}

void ReleaseAll(Bucket *b) {
    while (b->stBlocks.pstHead != nullptr) {
        Link *link = Zos_DlistDequeue(&b->stBlocks);
        Block *blk = BlockOfLink(link);
        blk->uiMark = 0;
        Zos_Free(blk);
    }
    Zos_DlistDelete(&b->stFree);
    Zos_DlistDelete(&b->stBlocks);
    if (b->ucLocked) Zos_MutexDelete(&b->zMutex);
    zos::LiveRemove(b);
    b->uiMagic = 0;
    zos::FreeLine(b);
}

}  // namespace

extern "C" {

KESTRO_API ZDBKT Zos_DbktCreate(uint32_t bLocked, uint32_t bCheck, uint32_t uiNodeSize,
                                uint16_t usInitCount, uint16_t usMaxCount, uint16_t usGrowCount) {
    if (usMaxCount == 0) usMaxCount = usInitCount;
    if (uiNodeSize == 0 || usMaxCount == 0 || uiNodeSize > kLargestNode) {
        ZOS_LOG_ERR("DbktCreate invalid size.");
        return nullptr;
    }
    if (usInitCount > usMaxCount) usInitCount = usMaxCount;
    // The caller's area: at least 12 bytes, whole words, and room for the
    // two free-list links.
    uint32_t area = uiNodeSize < 12 ? 12 : (uiNodeSize + 3) & ~3u;
    if (area < 2 * sizeof(void *)) area = 2 * sizeof(void *);
    area = (area + sizeof(void *) - 1) & ~static_cast<uint32_t>(sizeof(void *) - 1);

    auto *b = static_cast<Bucket *>(zos::MallocLine(sizeof(Bucket)));
    if (b == nullptr) {
        ZOS_LOG_ERR("DbktCreate alloc bucket.");
        return nullptr;
    }
    b->ucLocked = bLocked != 0;
    b->ucCheck = bCheck != 0;
    b->usInit = usInitCount;
    b->usMax = usMaxCount;
    b->usGrow = usGrowCount;
    b->uiNodeSize = area + sizeof(uint32_t);
    b->uiStride = area + sizeof(NodeHead);
    if (b->ucLocked && Zos_MutexCreate(&b->zMutex) != ZOK) {
        ZOS_LOG_ERR("DbktCreate create mutex.");
        zos::FreeLine(b);
        return nullptr;
    }
    // Without growth the bucket is its first block and nothing more.
    const bool grows = usGrowCount != 0;
    if (Zos_DlistCreate(&b->stBlocks, grows ? ZOS_LIST_NO_LIMIT : 1) != ZOK ||
        Zos_DlistCreate(&b->stFree, grows ? ZOS_LIST_NO_LIMIT : usMaxCount) != ZOK) {
        ReleaseAll(b);
        return nullptr;
    }
    if (usInitCount != 0 && !DblkCreate(b, usInitCount, false)) {
        ZOS_LOG_ERR("BktCreate create the first block.");
        ReleaseAll(b);
        return nullptr;
    }
    if (!zos::LiveAdd(b)) {
        ZOS_LOG_ERR("DbktCreate alloc bucket.");
        ReleaseAll(b);
        return nullptr;
    }
    b->uiMagic = kBucketMagic;
    return b;
}

KESTRO_API uint32_t Zos_DbktDelete(ZDBKT zBkt) {
    Bucket *b = Valid(zBkt);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbktDelete invalid id.");
        return ZFAILED;
    }
    ReleaseAll(b);
    return ZOK;
}

KESTRO_API void *Zos_DbktGetBkt(ZDBKT zBkt) {
    Bucket *b = Valid(zBkt);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbktGetBkt invalid id.");
        return nullptr;
    }
    zos::MutexGuard lock(&b->zMutex, b->ucLocked);
    return DblkGetNode(b, b->ucLocked, false);
}

KESTRO_API uint32_t Zos_DbktPutBkt(ZDBKT zBkt, void *pNode) {
    Bucket *b = Valid(zBkt);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbktPutBkt invalid id.");
        return ZFAILED;
    }
    if (pNode == nullptr) {
        ZOS_LOG_ERR("DbktPutBkt invalid node.");
        return ZFAILED;
    }
    zos::MutexGuard lock(&b->zMutex, b->ucLocked);
    return DblkPutNode(b, pNode, b->ucLocked, false);
}

KESTRO_API uint32_t Zos_DbktGetCount(ZDBKT zBkt, uint32_t *puiFree, uint32_t *puiUsed,
                                     uint32_t *puiGets, uint32_t *puiPuts, uint32_t *puiPeak) {
    uint32_t *outs[] = {puiFree, puiUsed, puiGets, puiPuts, puiPeak};
    for (uint32_t *out : outs) {
        if (out != nullptr) *out = 0;
    }
    Bucket *b = Valid(zBkt);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbktGetFreeCount invalid id.");
        return ZFAILED;
    }
    zos::MutexGuard lock(&b->zMutex, b->ucLocked);
    if (puiFree != nullptr) *puiFree = b->usFree;
    if (puiUsed != nullptr) *puiUsed = static_cast<uint32_t>(b->usTotal) - b->usFree;
    if (puiGets != nullptr) *puiGets = b->uiGets;
    if (puiPuts != nullptr) *puiPuts = b->uiPuts;
    if (puiPeak != nullptr) *puiPeak = b->uiPeak;
    return ZOK;
}

}  // extern "C"
