// First-in-first-out queue of pointer-sized values on a doubly linked list,
// its nodes drawn from a node bucket. Lock order: queue lock, then the
// list's mutex, then the bucket's (created unlocked here). A locked queue's
// lock already serialises every use of its list and bucket, so it does not
// take their mutexes as well; an unlocked queue leaves them to guard the
// links.
#include "zos_dbkt.h"
#include "zos_dbkt_core.h"
#include "zos_dlist.h"
#include "zos_dlist_link.h"
#include "zos_mem.h"
#include "zos_queue.h"
#include "zos_queue_gate.h"
#include "zos_live.h"
#include "zos_util.h"

namespace {

constexpr uint32_t kQueueMagic = 0xFF8800FFu;
constexpr uint16_t kGrowBy = 8;

struct QNode {
    ST_ZOS_DLIST_NODE stLink;
    uintptr_t zValue;
};

struct Queue {
    uint32_t uiMagic;
    ST_ZOS_DLIST stItems;
    zos::QueueGate stGate;
    ZDBKT zBkt;
};

Queue *Valid(ZQUEUE zQueue) {
    return zos::LiveRecord<Queue>(zQueue, kQueueMagic);
}

// Takes the lock once the queue holds a value and returns true holding it;
// false (unlocked) when empty and not told to wait. A blocking queue sleeps
// on its semaphore between tries; a non-blocking one tries again at once.
bool LockNonEmpty(Queue *q, uint32_t bWait) {
    zos::GateLock(&q->stGate);
    while (q->stItems.pstHead == nullptr) {
        if (!zos::GateAwait(&q->stGate, bWait, ZOS_WAIT_FOREVER)) return false;
    }
    return true;
}

// Undoes a create from the last step made back to the record.
void Destroy(Queue *q) {
    zos::GateDelete(&q->stGate);
    if (q->zBkt != nullptr) Zos_DbktDelete(q->zBkt);
    Zos_DlistDelete(&q->stItems);
    zos::LiveRemove(q);
    q->uiMagic = 0;
    zos::FreeLine(q);
}

}  // namespace

namespace zos {

bool GateCreate(QueueGate *gate, bool locked, bool blocking) {
    gate->ucLocked = locked;
    if (locked && !LiteLockCreate(&gate->stLock)) {
        ZOS_LOG_ERR("QueueCreate create mutex.");
        return false;
    }
    if (blocking) {
        if (Zos_SemCreateOne(&gate->zSem) != ZOK) {
            ZOS_LOG_ERR("QueueCreate create semaphore.");
            return false;
        }
        // Semaphores switched off: nothing was made, and a waiting poll
        // looks again at once.
        if (SemsOn()) {
            gate->ucSem = 1;
            gate->pfnWait = Osdep<kSlotSemWait>();
            gate->pfnPost = Osdep<kSlotSemPost>();
        }
    }
    return true;
}

void GateDelete(QueueGate *gate) {
    if (gate->ucSem) {
        auto del = Osdep<kSlotSemDelete>();
        if (del != nullptr) del(&gate->zSem);
    }
    LiteLockDelete(&gate->stLock);
    *gate = QueueGate{};
}

}  // namespace zos

extern "C" {

KESTRO_API uint32_t Zos_QueueCreate(uint32_t bLocked, uint32_t bBlocking, uint32_t uiInitCount,
                                    uint32_t uiMaxCount, ZQUEUE *pzQueue) {
    if (pzQueue == nullptr) return ZFAILED;
    *pzQueue = nullptr;
    if (uiInitCount == 0 && uiMaxCount == 0) {
        ZOS_LOG_ERR("QueueCreate queue size is 0.");
        return ZFAILED;
    }
    auto *q = static_cast<Queue *>(zos::MallocLine(sizeof(Queue)));
    if (q == nullptr) {
        ZOS_LOG_ERR("QueueCreate alloc queue.");
        return ZFAILED;
    }
    const uint32_t most = uiInitCount > uiMaxCount ? uiInitCount : uiMaxCount;
    q->zBkt = Zos_DbktCreate(0, 1, sizeof(QNode), static_cast<uint16_t>(uiInitCount & 0xFFFFu),
                             static_cast<uint16_t>(most & 0xFFFFu), kGrowBy);
    if (q->zBkt == nullptr) {
        ZOS_LOG_ERR("QueueCreate create bucket mem.");
        Destroy(q);
        return ZFAILED;
    }
    if (!zos::GateCreate(&q->stGate, bLocked != 0, bBlocking != 0)) {
        Destroy(q);
        return ZFAILED;
    }
    if (Zos_DlistCreate(&q->stItems, ZOS_LIST_NO_LIMIT) != ZOK) {
        Destroy(q);
        return ZFAILED;
    }
    if (!zos::LiveAdd(q)) {
        ZOS_LOG_ERR("QueueCreate alloc queue.");
        Destroy(q);
        return ZFAILED;
    }
    q->uiMagic = kQueueMagic;
    *pzQueue = q;
    return ZOK;
}

KESTRO_API uint32_t Zos_QueueDelete(ZQUEUE zQueue) {
    if (zQueue == nullptr) return ZFAILED;
    Queue *q = Valid(zQueue);
    if (q == nullptr) {
        ZOS_LOG_ERR("QueueDelete invalid id.");
        return ZFAILED;
    }
    Destroy(q);
    return ZOK;
}

KESTRO_API uint32_t Zos_QueueAdd(ZQUEUE zQueue, uintptr_t zValue) {
    if (zQueue == nullptr || zValue == 0) {
        ZOS_LOG_ERR("QueueAdd null parameter(s).");
        return ZFAILED;
    }
    Queue *q = Valid(zQueue);
    if (q == nullptr) {
        ZOS_LOG_ERR("QueueAdd invalid id.");
        return ZFAILED;
    }
    const bool covered = q->stGate.ucLocked != 0;
    bool post = false;
    {
        zos::LiteGuard lock(&q->stGate.stLock);
        auto *node = static_cast<QNode *>(zos::DbktGet(q->zBkt, covered));
        if (node == nullptr) return ZFAILED;  // the bucket has logged
        node->zValue = zValue;
        const bool wasEmpty = q->stItems.pstHead == nullptr;
        if (zos::DlistAppend(&q->stItems, &node->stLink, covered) != ZOK) {
            zos::DbktPut(q->zBkt, node, covered);
            return ZFAILED;
        }
        // Only the empty-to-non-empty step wakes a poller; a woken poller
        // looks again under the lock and sleeps again if another one won.
        post = wasEmpty && zos::GateMustPost(&q->stGate);
    }
    if (post) zos::GatePost(&q->stGate);
    return ZOK;
}

KESTRO_API uint32_t Zos_QueuePoll(ZQUEUE zQueue, uint32_t bWait, uintptr_t *pzValue) {
    if (pzValue != nullptr) *pzValue = 0;
    Queue *q = Valid(zQueue);
    if (q == nullptr) {
        ZOS_LOG_ERR("QueuePoll invalid id.");
        return ZFAILED;
    }
    if (!LockNonEmpty(q, bWait)) return ZFAILED;
    const bool covered = q->stGate.ucLocked != 0;
    auto *node = reinterpret_cast<QNode *>(zos::DlistTakeHead(&q->stItems, covered));
    // Only an unlocked queue can be emptied by another poller meanwhile.
    if (node == nullptr) return ZFAILED;
    if (pzValue != nullptr) *pzValue = node->zValue;
    zos::DbktPut(q->zBkt, node, covered);
    zos::GateUnlock(&q->stGate);
    return ZOK;
}

KESTRO_API uint32_t Zos_QueuePeek(ZQUEUE zQueue, uint32_t bWait, uintptr_t *pzValue) {
    if (pzValue != nullptr) *pzValue = 0;
    Queue *q = Valid(zQueue);
    if (q == nullptr) {
        ZOS_LOG_ERR("QueuePeek invalid id.");
        return ZFAILED;
    }
    if (!LockNonEmpty(q, bWait)) return ZFAILED;
    if (pzValue != nullptr) *pzValue = reinterpret_cast<QNode *>(q->stItems.pstHead)->zValue;
    zos::GateUnlock(&q->stGate);
    return ZOK;
}

KESTRO_API uint32_t Zos_QueueGetCount(ZQUEUE zQueue, uint32_t *puiFree, uint32_t *puiUsed,
                                      uint32_t *puiGets, uint32_t *puiPuts, uint32_t *puiPeak) {
    uint32_t *outs[] = {puiFree, puiUsed, puiGets, puiPuts, puiPeak};
    for (uint32_t *out : outs) {
        if (out != nullptr) *out = 0;
    }
    Queue *q = Valid(zQueue);
    if (q == nullptr) {
        ZOS_LOG_ERR("QueueGetCount invalid id.");
        return ZFAILED;
    }
    zos::LiteGuard lock(&q->stGate.stLock);
    return Zos_DbktGetCount(q->zBkt, puiFree, puiUsed, puiGets, puiPuts, puiPeak);
}

KESTRO_API uint32_t Zos_QueueGetBusyCount(ZQUEUE zQueue) {
    Queue *q = Valid(zQueue);
    if (q == nullptr) {
        ZOS_LOG_ERR("QueueGetBusyCount invalid id.");
        return 0;
    }
    zos::LiteGuard lock(&q->stGate.stLock);
    return q->stItems.uiCount;
}

}  // extern "C"
