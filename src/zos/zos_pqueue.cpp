// Priority queue: one doubly linked list per level, nodes from a node
// bucket, and the index of the most urgent non-empty level kept in `top` so
// a poll scans levels only after a level empties. Lock order: queue lock,
// then a level list's mutex, then the bucket's (created unlocked here). A
// locked queue's lock already serialises every use of its lists and
// bucket, so it does not take their mutexes as well.
#include "zos_dbkt.h"
#include "zos_dbkt_core.h"
#include "zos_dlist.h"
#include "zos_dlist_link.h"
#include "zos_mem.h"
#include "zos_pqueue.h"
#include "zos_queue_gate.h"
#include "zos_live.h"
#include "zos_util.h"

namespace {

constexpr uint32_t kPQueueMagic = 0xCCDD00FFu;
constexpr uint32_t kNoLevel = 0xFFFFFFFFu;
constexpr uint16_t kGrowBy = 8;
// A poll that accepts only level 0 wakes this often (ms) to look again:
// level-0 items added behind other items do not post the semaphore.
constexpr uint32_t kLevel0Wait = 100;

struct PNode {
    ST_ZOS_DLIST_NODE stLink;
    uintptr_t zItem;
};

// Allocated as one block on a cache line: this header, then uiHighest + 1
// level lists, which start on a line of their own so that adds and polls
// changing them do not move the header's read-mostly half between cores.
struct PQueue {
    uint32_t uiMagic;
    uint32_t uiHighest;
    uint32_t uiTop;
    uint32_t uiItemCount;
    uint32_t uiBusy;  // locked queues: bit n set while level n holds items
    zos::QueueGate stGate;
    ZDBKT zBkt;
    ST_ZOS_DLIST *pstLevels;
    uint32_t uiInitCount;
    uint32_t uiMaxCount;
};

// Where the level lists start: the header rounded up to whole lines.
constexpr uint32_t kHeadBytes =
    (sizeof(PQueue) + zos::kCacheLine - 1) / zos::kCacheLine * zos::kCacheLine;
static_assert(kHeadBytes % alignof(ST_ZOS_DLIST) == 0);

PQueue *Valid(ZPQUEUE zQueue) {
    auto *q = static_cast<PQueue *>(zQueue);
    return zos::LiveRecord<PQueue>(q, kPQueueMagic);
}

// First node of a level holding the item, or null.
PNode *FindAt(const ST_ZOS_DLIST *level, uintptr_t zItem) {
    for (ST_ZOS_DLIST_NODE *n = level->pstHead; n != nullptr; n = n->pstNext) {
        auto *node = reinterpret_cast<PNode *>(n);
        if (node->zItem == zItem) return node;
    }
    return nullptr;
}

// Keeps the busy bit of a level of a locked queue after a change to it.
void NoteLevel(PQueue *q, uint32_t level) {
    if (!q->stGate.ucLocked) return;
    if (q->pstLevels[level].pstHead != nullptr) {
        q->uiBusy |= 1u << level;
    } else {
        q->uiBusy &= ~(1u << level);
    }
}

// First non-empty level in [from, to), or kNoLevel. A locked queue reads
// its busy bits rather than the level lists, whose cache lines the adding
// threads keep changing.
uint32_t FirstBusy(const PQueue *q, uint32_t from, uint32_t to) {
    if (q->stGate.ucLocked) {
        const uint32_t below = to >= 32 ? ~0u : (1u << to) - 1;
        const uint32_t busy = q->uiBusy & below & ~((1u << from) - 1);
        return busy != 0 ? static_cast<uint32_t>(__builtin_ctz(busy)) : kNoLevel;
    }
    for (uint32_t i = from; i < to; ++i) {
        if (q->pstLevels[i].pstHead != nullptr) return i;
    }
    return kNoLevel;
}

void Destroy(PQueue *q, uint32_t levelsMade) {
    zos::GateDelete(&q->stGate);
    for (uint32_t i = 0; i < levelsMade; ++i) Zos_DlistDelete(&q->pstLevels[i]);
    if (q->zBkt != nullptr) Zos_DbktDelete(q->zBkt);
    zos::LiveRemove(q);
    q->uiMagic = 0;
    zos::FreeLine(q);
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zos_PQueueCreate(uint32_t bLocked, uint32_t bBlocking, uint32_t uiInitCount,
                                     uint32_t uiMaxCount, uint32_t uiHighest, ZPQUEUE *pzQueue) {
    if (pzQueue == nullptr) return ZFAILED;
    *pzQueue = nullptr;
    if (uiInitCount == 0 || uiInitCount == 0xFFFFFFFFu || uiMaxCount == 0 ||
        uiMaxCount == 0xFFFFFFFFu) {
        ZOS_LOG_ERR("PQueueCreate size is 0 or too big.");
        return ZFAILED;
    }
    if (uiHighest >= ZOS_PQUEUE_LEVELS) {
        ZOS_LOG_ERR("PQueueCreate priority size too big.");
        return ZFAILED;
    }
    const uint32_t levels = uiHighest + 1;
    auto *q = static_cast<PQueue *>(
        zos::MallocLine(static_cast<uint32_t>(kHeadBytes + levels * sizeof(ST_ZOS_DLIST))));
    if (q == nullptr) {
        ZOS_LOG_ERR("PQueueCreate alloc queue.");
        return ZFAILED;
    }
    const uint32_t most = uiInitCount > uiMaxCount ? uiInitCount : uiMaxCount;
    q->zBkt = Zos_DbktCreate(0, 1, sizeof(PNode), static_cast<uint16_t>(uiInitCount & 0xFFFFu),
                             static_cast<uint16_t>(most & 0xFFFFu), kGrowBy);
    if (q->zBkt == nullptr) {
        ZOS_LOG_ERR("PQueueCreate create bucket mem.");
        Destroy(q, 0);
        return ZFAILED;
    }
    q->uiTop = kNoLevel;
    q->pstLevels = reinterpret_cast<ST_ZOS_DLIST *>(reinterpret_cast<char *>(q) + kHeadBytes);
    for (uint32_t i = 0; i < levels; ++i) {
        if (Zos_DlistCreate(&q->pstLevels[i], ZOS_LIST_NO_LIMIT) != ZOK) {
            Destroy(q, i + 1);
            return ZFAILED;
        }
    }
    // Logs the queue's own failure texts: the two share them.
    if (!zos::GateCreate(&q->stGate, bLocked != 0, bBlocking != 0)) {
        Destroy(q, levels);
        return ZFAILED;
    }
    q->uiInitCount = uiInitCount;
    q->uiMaxCount = most;
    q->uiHighest = uiHighest;
    if (!zos::LiveAdd(q)) {
        ZOS_LOG_ERR("PQueueCreate alloc queue.");
        Destroy(q, levels);
        return ZFAILED;
    }
    q->uiMagic = kPQueueMagic;
    *pzQueue = q;
    return ZOK;
}

KESTRO_API uint32_t Zos_PQueueDelete(ZPQUEUE zQueue) {
    if (zQueue == nullptr) return ZFAILED;
    PQueue *q = Valid(zQueue);
    if (q == nullptr) {
        ZOS_LOG_ERR("PQueueDelete invalid id.");
        return ZFAILED;
    }
    Destroy(q, q->uiHighest + 1);
    return ZOK;
}

KESTRO_API uint32_t Zos_PQueueAdd(ZPQUEUE zQueue, uint32_t uiLevel, uintptr_t zItem) {
    PQueue *q = Valid(zQueue);
    if (q == nullptr) {
        ZOS_LOG_ERR("PQueueAdd invalid id.");
        return ZFAILED;
    }
    if (zItem == 0 || uiLevel > q->uiHighest) {
        ZOS_LOG_ERR("PQueueAdd invalid element.");
        return ZFAILED;
    }
    const bool covered = q->stGate.ucLocked != 0;
    bool post = false;
    {
        zos::LiteGuard lock(&q->stGate.stLock);
        auto *node = static_cast<PNode *>(zos::DbktGet(q->zBkt, covered));
        if (node == nullptr) {
            ZOS_LOG_ERR("PQueueAdd no free elem.");
            return ZFAILED;
        }
        node->zItem = zItem;
        if (zos::DlistAppend(&q->pstLevels[uiLevel], &node->stLink, covered) != ZOK) {
            zos::DbktPut(q->zBkt, node, covered);
            return ZFAILED;
        }
        if (covered) q->uiBusy |= 1u << uiLevel;
        if (uiLevel < q->uiTop) q->uiTop = uiLevel;
        // Only the empty-to-non-empty step wakes a poller.
        post = q->uiItemCount++ == 0 && zos::GateMustPost(&q->stGate);
    }
    if (post) zos::GatePost(&q->stGate);
    return ZOK;
}

KESTRO_API uint32_t Zos_PQueuePoll(ZPQUEUE zQueue, uint32_t bWait, uint32_t *puiLevel,
                                   uintptr_t *pzItem) {
    const uint32_t accept = puiLevel != nullptr ? *puiLevel : ZOS_PQUEUE_LEVELS;
    if (puiLevel != nullptr) *puiLevel = 0;
    if (pzItem != nullptr) *pzItem = 0;
    PQueue *q = Valid(zQueue);
    if (q == nullptr) {
        ZOS_LOG_ERR("PQueuePoll invalid id.");
        return ZFAILED;
    }
    const uint32_t waitMs = !bWait ? 0 : accept == 0 ? kLevel0Wait : ZOS_WAIT_FOREVER;
    zos::GateLock(&q->stGate);
    while (q->uiItemCount == 0 || q->uiTop > accept) {
        if (!zos::GateAwait(&q->stGate, bWait, waitMs)) return ZFAILED;
    }
    const bool covered = q->stGate.ucLocked != 0;
    const uint32_t top = q->uiTop;
    ST_ZOS_DLIST *level = &q->pstLevels[top];
    auto *node = reinterpret_cast<PNode *>(zos::DlistTakeHead(level, covered));
    // Only an unlocked queue can be emptied by another poller meanwhile.
    if (node == nullptr) return ZFAILED;
    if (puiLevel != nullptr) *puiLevel = top;
    if (pzItem != nullptr) *pzItem = node->zItem;
    zos::DbktPut(q->zBkt, node, covered);
    q->uiItemCount--;
    if (level->pstHead == nullptr) {
        NoteLevel(q, top);
        // Scans up to the highest level inclusive (unlike Rmv's rescan).
        q->uiTop = q->uiItemCount == 0 ? kNoLevel : FirstBusy(q, top, q->uiHighest + 1);
    }
    zos::GateUnlock(&q->stGate);
    return ZOK;
}

KESTRO_API uint32_t Zos_PQueueRmv(ZPQUEUE zQueue, uint32_t uiLevel, uintptr_t zItem) {
    PQueue *q = Valid(zQueue);
    if (q == nullptr) {
        ZOS_LOG_ERR("PQueueRmv invalid id.");
        return ZFAILED;
    }
    if (zItem == 0 || uiLevel > q->uiHighest) {
        ZOS_LOG_ERR("PQueueRmv invalid element.");
        return ZFAILED;
    }
    const bool covered = q->stGate.ucLocked != 0;
    zos::LiteGuard lock(&q->stGate.stLock);
    ST_ZOS_DLIST *level = &q->pstLevels[uiLevel];
    PNode *node = FindAt(level, zItem);
    if (node == nullptr) return ZFAILED;
    if (covered) {
        zos::DlistUnlink(level, &node->stLink);
    } else {
        Zos_DlistRemove(level, &node->stLink);
    }
    zos::DbktPut(q->zBkt, node, covered);
    q->uiItemCount--;
    NoteLevel(q, uiLevel);
    if (level->pstHead == nullptr && q->uiTop == uiLevel) {
        // This rescan stops short of the highest level: items left only
        // there wait for the next add to lower top again. Callers rely on
        // the queue behaving exactly so.
        q->uiTop = FirstBusy(q, 0, q->uiHighest);
    }
    return ZOK;
}

KESTRO_API uint32_t Zos_PQueueFind(ZPQUEUE zQueue, uint32_t uiLevel, uintptr_t zItem) {
    PQueue *q = Valid(zQueue);
    if (q == nullptr) {
        ZOS_LOG_ERR("PQueueFind invalid id.");
        return 0;
    }
    if (zItem == 0 || uiLevel > q->uiHighest) {
        ZOS_LOG_ERR("PQueueFind invalid element.");
        return 0;
    }
    zos::LiteGuard lock(&q->stGate.stLock);
    return FindAt(&q->pstLevels[uiLevel], zItem) != nullptr ? 1 : 0;
}

KESTRO_API uint32_t Zos_PQueueFindIf(ZPQUEUE zQueue, PFN_ZOS_PQUEUE_MATCH pfnMatch, uintptr_t zArg,
                                     uint32_t *puiLevel, uintptr_t *pzItem) {
    PQueue *q = Valid(zQueue);
    if (q == nullptr) {
        ZOS_LOG_ERR("PQueueFindIf invalid id.");
        return 0;
    }
    if (pfnMatch == nullptr) return 0;
    zos::LiteGuard lock(&q->stGate.stLock);
    // Levels 0 .. highest - 1; each level's first match overwrites the outs
    // and the result tells only whether the last visited level matched.
    uint32_t found = 0;
    for (uint32_t i = 0; i < q->uiHighest; ++i) {
        found = 0;
        for (ST_ZOS_DLIST_NODE *n = q->pstLevels[i].pstHead; n != nullptr; n = n->pstNext) {
            auto *node = reinterpret_cast<PNode *>(n);
            if (pfnMatch(node->zItem, zArg) != 0) {
                if (puiLevel != nullptr) *puiLevel = i;
                if (pzItem != nullptr) *pzItem = node->zItem;
                found = 1;
                break;
            }
        }
    }
    return found;
}

KESTRO_API uint32_t Zos_PQueueGetBusyCount(ZPQUEUE zQueue) {
    PQueue *q = Valid(zQueue);
    if (q == nullptr) {
        ZOS_LOG_ERR("PQueueGetBusyCount invalid id.");
        return 0;
    }
    zos::LiteGuard lock(&q->stGate.stLock);
    return q->uiItemCount;
}

KESTRO_API uint32_t Zos_PQueueGetCount(ZPQUEUE zQueue, uint32_t *puiFree, uint32_t *puiUsed,
                                       uint32_t *puiGets, uint32_t *puiPuts, uint32_t *puiPeak) {
    uint32_t *outs[] = {puiFree, puiUsed, puiGets, puiPuts, puiPeak};
    for (uint32_t *out : outs) {
        if (out != nullptr) *out = 0;
    }
    if (zQueue == nullptr) return ZFAILED;
    PQueue *q = Valid(zQueue);
    if (q == nullptr) {
        ZOS_LOG_ERR("PQueueGetCount invalid id.");
        return ZFAILED;
    }
    zos::LiteGuard lock(&q->stGate.stLock);
    return Zos_DbktGetCount(q->zBkt, puiFree, puiUsed, puiGets, puiPuts, puiPeak);
}

}  // extern "C"
