// Dynamic node bucket: fixed-size nodes carved from blocks, handed out from
// a free list and grown block by block up to a maximum.
//
// Block layout: a header (marker "ZZZZ", free count, node count, link in
// the bucket's block list), then the nodes. Each node is a tag word, the
// node's distance from its block, and the caller's area; while the node is
// free its area holds the links of the bucket's free list.
#include <cstddef>

#include "zos_dbkt.h"
#include "zos_dbkt_core.h"
#include "zos_dlist.h"
#include "zos_dlist_link.h"
#include "zos_mem.h"
#include "zos_util.h"

namespace {

using Link = ST_ZOS_DLIST_NODE;

constexpr uint32_t kBucketMagic = 0x0E1E2E3Eu;
constexpr uint32_t kUsedTag = 0xAC1D2D3Du;
// Nodes are small records; the cap keeps the size arithmetic in range.
constexpr uint32_t kLargestNode = 0xFFFFFFu;

// Four characters as a word that reads as those characters in memory on a
// little-endian machine.
constexpr uint32_t Chars(const char (&s)[5]) {
    return static_cast<uint32_t>(static_cast<unsigned char>(s[0])) |
           static_cast<uint32_t>(static_cast<unsigned char>(s[1])) << 8 |
           static_cast<uint32_t>(static_cast<unsigned char>(s[2])) << 16 |
           static_cast<uint32_t>(static_cast<unsigned char>(s[3])) << 24;
}

constexpr uint32_t kBlockMark = Chars("ZZZZ");
constexpr uint32_t kFreeTag = Chars("}{Zn");

struct Block {
    uint32_t uiMark;  // "ZZZZ"
    uint32_t uiFree;  // free nodes of this block
    uint32_t uiNodes;
    uint32_t uiRsv;
    Link stLink;  // in the bucket's block list
};

struct NodeHead {
    uint32_t uiTag;
    uint32_t uiOffset;  // bytes from the block's start to this head
};

struct Bucket {
    uint32_t uiMagic;
    uint8_t ucLocked;
    uint8_t ucCheck;
    uint16_t usInit;
    uint16_t usMax;
    uint16_t usGrow;
    uint16_t usTotal;
    uint16_t usFree;
    uint32_t uiNodeSize;  // caller's area plus the tag
    uint32_t uiStride;    // bytes per node inside a block
    uint32_t uiGets;
    uint32_t uiPuts;
    uint32_t uiPeak;
    ZMUTEX zMutex;
    ST_ZOS_DLIST stBlocks;
    ST_ZOS_DLIST stFree;
};

static_assert(sizeof(Block) % sizeof(void *) == 0 && sizeof(NodeHead) % 4 == 0);

Bucket *Valid(ZDBKT zBkt) {
    auto *b = static_cast<Bucket *>(zBkt);
    return b != nullptr && b->uiMagic == kBucketMagic ? b : nullptr;
}

NodeHead *HeadOf(void *area) {
    return reinterpret_cast<NodeHead *>(static_cast<char *>(area) - sizeof(NodeHead));
}

Block *BlockOf(NodeHead *head) {
    return reinterpret_cast<Block *>(reinterpret_cast<char *>(head) - head->uiOffset);
}

Block *BlockOfLink(Link *link) {
    return reinterpret_cast<Block *>(reinterpret_cast<char *>(link) - offsetof(Block, stLink));
}

// One more block of `count` nodes, all put on the free list. `covered`:
// a lock held by the caller serialises the bucket's lists.
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

void *DblkGetNode(Bucket *b, bool covered) {
    if (b->stFree.pstHead == nullptr) {
        const uint32_t room = static_cast<uint32_t>(b->usMax) - b->usTotal;
        const uint32_t count = room < b->usGrow ? room : b->usGrow;
        if (!DblkCreate(b, count, covered)) {
            ZOS_LOG_ERR("DblkGetNode create new block.");
            return nullptr;
        }
    }
    Link *link = zos::DlistTakeHead(&b->stFree, covered);
    if (link == nullptr) return nullptr;
    NodeHead *head = HeadOf(link);
    if (head->uiTag != kFreeTag) {
        ZOS_LOG_ERR("DblkGetNode invalid node address.");
        return nullptr;
    }
    Block *blk = BlockOf(head);
    if (b->ucCheck && blk->uiMark != kBlockMark) {
        ZOS_LOG_ERR("DblkGetNode invalid block address.");
        return nullptr;
    }
    head->uiTag = kUsedTag;
    blk->uiFree--;
    b->usFree--;
    b->uiGets++;
    const uint32_t used = static_cast<uint32_t>(b->usTotal) - b->usFree;
    if (used > b->uiPeak) b->uiPeak = used;
    return link;
}

uint32_t DblkPutNode(Bucket *b, void *pNode, bool covered) {
    NodeHead *head = HeadOf(pNode);
    if (head->uiTag != kUsedTag || (b->ucCheck && BlockOf(head)->uiMark != kBlockMark)) {
        ZOS_LOG_ERR("DbktPutBkt invalid node.");
        return ZFAILED;
    }
    head->uiTag = kFreeTag;
    if (zos::DlistAppend(&b->stFree, static_cast<Link *>(pNode), covered) != ZOK) {
        head->uiTag = kUsedTag;
        return ZFAILED;
    }
    BlockOf(head)->uiFree++;
    b->usFree++;
    b->uiPuts++;
    return ZOK;
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
    b->uiMagic = 0;
    Zos_Free(b);
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

    auto *b = static_cast<Bucket *>(Zos_MallocClrd(sizeof(Bucket)));
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
        Zos_Free(b);
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
    return DblkGetNode(b, b->ucLocked);
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
    return DblkPutNode(b, pNode, b->ucLocked);
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

namespace zos {

void *DbktGet(ZDBKT zBkt, bool covered) {
    if (!covered) return Zos_DbktGetBkt(zBkt);
    Bucket *b = Valid(zBkt);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbktGetBkt invalid id.");
        return nullptr;
    }
    return DblkGetNode(b, true);
}

uint32_t DbktPut(ZDBKT zBkt, void *pNode, bool covered) {
    if (!covered || pNode == nullptr) return Zos_DbktPutBkt(zBkt, pNode);
    Bucket *b = Valid(zBkt);
    if (b == nullptr) {
        ZOS_LOG_ERR("DbktPutBkt invalid id.");
        return ZFAILED;
    }
    return DblkPutNode(b, pNode, true);
}

}  // namespace zos
