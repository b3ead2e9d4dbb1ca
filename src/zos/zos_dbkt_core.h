// The node bucket's layout and its node hand-out, inline so that the
// containers that draw their nodes from a bucket (the queues) take and
// give back a node without a call.
//
// Block layout: a header (marker "ZZZZ", free count, node count, link in
// the bucket's block list), then the nodes. Each node is a tag word, the
// node's distance from its block, and the caller's area; while the node is
// free its area holds the links of the bucket's free list.
#pragma once

#include "zos_dbkt.h"
#include "zos_dlist_link.h"
#include "zos_lite_lock.h"
#include "zos_live.h"

namespace zos::dbkt {

using Link = ST_ZOS_DLIST_NODE;

constexpr uint32_t kBucketMagic = 0x0E1E2E3Eu;
constexpr uint32_t kUsedTag = 0xAC1D2D3Du;

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

// What every hand-out touches comes first, within 64 bytes.
struct Bucket {
    uint32_t uiMagic;
    uint8_t ucLocked;
    uint8_t ucCheck;
    uint16_t usInit;
    uint16_t usMax;
    uint16_t usGrow;
    uint16_t usTotal;
    uint16_t usFree;
    uint32_t uiGets;
    uint32_t uiPuts;
    uint32_t uiPeak;
    uintptr_t zTaker;  // owned: the thread that took the last node
    ST_ZOS_DLIST stFree;
    uint32_t uiNodeSize;  // caller's area plus the tag
    uint32_t uiStride;    // bytes per node inside a block
    ZMUTEX zMutex;
    ST_ZOS_DLIST stBlocks;
};

static_assert(sizeof(Block) % sizeof(void *) == 0 && sizeof(NodeHead) % 4 == 0);

inline Bucket *Valid(ZDBKT zBkt) {
    return zos::LiveRecord<Bucket>(zBkt, kBucketMagic);
}

inline NodeHead *HeadOf(void *area) {
    return reinterpret_cast<NodeHead *>(static_cast<char *>(area) - sizeof(NodeHead));
}

inline Block *BlockOf(NodeHead *head) {
    return reinterpret_cast<Block *>(reinterpret_cast<char *>(head) - head->uiOffset);
}

// One more block of `count` nodes, all put on the free list; false when it
// cannot be made. `covered`: a lock held by the caller serialises the
// bucket's lists.
bool DblkCreate(Bucket *b, uint32_t count, bool covered);

// Writes a failure line, out of the way of the hand-out's own code.
__attribute__((cold, noinline)) void Fault(const char *text);

// Node hand-out. `covered`: a lock held by the caller (the bucket's own,
// or the owner's) serialises the bucket's lists, so their mutexes are not
// taken. `owned`: the bucket belongs to one container that keeps its nodes
// to itself, under its own lock (the queues). Which node serves is then
// not seen outside, so such a bucket picks the end of the free list a node
// goes back to by cache: the head when the thread that gives it back took
// the last node (one thread adding and polling reuses the node it just
// freed, still in its cache), else the tail, as any bucket does (a
// producer then does not take, one by one, the nodes its consumer has just
// written). Its blocks do not keep their own free counts either: nothing
// reads them, and the block header shared by many nodes would move between
// a producer's and a consumer's cores on every node. The bucket's own
// counters are kept the same either way.

// Takes the free-list head, first growing the bucket when the list is
// empty; null (logged) when no node can be had.
__attribute__((always_inline)) inline void *DblkGetNode(Bucket *b, bool covered, bool owned) {
    if (b->stFree.pstHead == nullptr) {
        const uint32_t room = static_cast<uint32_t>(b->usMax) - b->usTotal;
        const uint32_t count = room < b->usGrow ? room : b->usGrow;
        if (!DblkCreate(b, count, covered)) {
            Fault("DblkGetNode create new block.");
            return nullptr;
        }
    }
    // A public bucket hands its nodes out with their links cleared, as the
    // list's own dequeue does, under its own mutex as under the list's.
    Link *link =
        owned || !covered ? DlistTakeHead(&b->stFree, covered) : DlistUnlinkHead(&b->stFree);
    if (link == nullptr) return nullptr;
    NodeHead *head = HeadOf(link);
    if (head->uiTag != kFreeTag) {
        Fault("DblkGetNode invalid node address.");
        return nullptr;
    }
    Block *blk = BlockOf(head);
    if (b->ucCheck && blk->uiMark != kBlockMark) {
        Fault("DblkGetNode invalid block address.");
        return nullptr;
    }
    head->uiTag = kUsedTag;
    if (owned) {
        b->zTaker = ThreadTag();
    } else {
        blk->uiFree--;
    }
    b->usFree--;
    b->uiGets++;
    const uint32_t used = static_cast<uint32_t>(b->usTotal) - b->usFree;
    if (used > b->uiPeak) b->uiPeak = used;
    return link;
}

// Puts a node in use back on the free list; 1 (logged) for a node that is
// not one in use.
__attribute__((always_inline)) inline uint32_t DblkPutNode(Bucket *b, void *pNode, bool covered,
                                                           bool owned) {
    NodeHead *head = HeadOf(pNode);
    if (head->uiTag != kUsedTag || (b->ucCheck && BlockOf(head)->uiMark != kBlockMark)) {
        Fault("DbktPutBkt invalid node.");
        return ZFAILED;
    }
    head->uiTag = kFreeTag;
    if (owned && b->zTaker == ThreadTag()) {
        DlistLinkHead(&b->stFree, static_cast<Link *>(pNode));
    } else if (DlistAppend(&b->stFree, static_cast<Link *>(pNode), covered) != ZOK) {
        head->uiTag = kUsedTag;
        return ZFAILED;
    }
    if (!owned) BlockOf(head)->uiFree++;
    b->usFree++;
    b->uiPuts++;
    return ZOK;
}

}  // namespace zos::dbkt

namespace zos {

// As Zos_DbktGetBkt and Zos_DbktPutBkt for a container's own bucket
// (created unlocked, made with the container and deleted only with it).
// With `covered` the container's lock serialises every use of the bucket:
// the bucket is then used as owned, and neither its mutex nor its lists'
// mutexes are taken; and since the container's handle passed its check,
// the bucket is alive and is not asked for in the handle registry again.
__attribute__((always_inline)) inline void *DbktGet(ZDBKT zBkt, bool covered) {
    if (!covered) return Zos_DbktGetBkt(zBkt);
    return dbkt::DblkGetNode(static_cast<dbkt::Bucket *>(zBkt), true, true);
}

__attribute__((always_inline)) inline uint32_t DbktPut(ZDBKT zBkt, void *pNode, bool covered) {
    if (!covered || pNode == nullptr) return Zos_DbktPutBkt(zBkt, pNode);
    return dbkt::DblkPutNode(static_cast<dbkt::Bucket *>(zBkt), pNode, true, true);
}

}  // namespace zos
