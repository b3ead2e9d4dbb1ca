// First-in-first-out queue of pointer-sized values on a doubly linked list,
// its nodes drawn from a node bucket. Lock order: queue mutex, then the
// list's, then the bucket's (created unlocked here). A locked queue's mutex
// already serialises every use of its list and bucket, so it does not take
// their mutexes as well; an unlocked queue leaves them to guard the links.
#include "zos_dbkt.h"
#include "zos_dbkt_core.h"
#include "zos_dlist.h"
#include "zos_dlist_link.h"
#include "zos_mem.h"
#include "zos_queue.h"
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
    uint8_t ucLocked;
    uint8_t ucBlocking;
    ZMUTEX zMutex;
    ZSEM zSem;
    ZDBKT zBkt;
    ST_ZOS_DLIST stItems;
};

Queue *Valid(ZQUEUE zQueue) {
    auto *q = static_cast<Queue *>(zQueue);
    return q != nullptr && q->uiMagic == kQueueMagic ? q : nullptr;
}

void Lock(Queue *q) {
    if (q->ucLocked) Zos_MutexLock(&q->zMutex);
}

void Unlock(Queue *q) {
    if (q->ucLocked) Zos_MutexUnlock(&q->zMutex);
}

// Takes the lock once the queue holds a value and returns true holding it;
// false (unlocked) when empty and not told to wait. A blocking queue sleeps
// on its semaphore between tries; a non-blocking one tries again at once.
bool LockNonEmpty(Queue *q, uint32_t bWait) {
    for (;;) {
        Lock(q);
        if (q->stItems.pstHead != nullptr) return true;
        Unlock(q);
        if (!bWait) return false;
        if (q->ucBlocking) Zos_SemWait(&q->zSem, ZOS_WAIT_FOREVER);
    }
}

// Undoes a create from the last step made back to the record.
void Destroy(Queue *q) {
    if (q->ucBlocking && q->zSem != 0) Zos_SemDelete(&q->zSem);
    if (q->ucLocked && q->zMutex != 0) Zos_MutexDelete(&q->zMutex);
    if (q->zBkt != nullptr) Zos_DbktDelete(q->zBkt);
    Zos_DlistDelete(&q->stItems);
    q->uiMagic = 0;
    Zos_Free(q);
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zos_QueueCreate(uint32_t bLocked, uint32_t bBlocking, uint32_t uiInitCount,
                                    uint32_t uiMaxCount, ZQUEUE *pzQueue) {
    if (pzQueue == nullptr) return ZFAILED;
    *pzQueue = nullptr;
    if (uiInitCount == 0 && uiMaxCount == 0) {
        ZOS_LOG_ERR("QueueCreate queue size is 0.");
        return ZFAILED;
    }
    auto *q = static_cast<Queue *>(Zos_MallocClrd(sizeof(Queue)));
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
    q->ucLocked = bLocked != 0;
    if (q->ucLocked && Zos_MutexCreate(&q->zMutex) != ZOK) {
        ZOS_LOG_ERR("QueueCreate create mutex.");
        Destroy(q);
        return ZFAILED;
    }
    q->ucBlocking = bBlocking != 0;
    if (q->ucBlocking && Zos_SemCreateOne(&q->zSem) != ZOK) {
        ZOS_LOG_ERR("QueueCreate create semaphore.");
        Destroy(q);
        return ZFAILED;
    }
    if (Zos_DlistCreate(&q->stItems, ZOS_LIST_NO_LIMIT) != ZOK) {
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
    const bool covered = q->ucLocked != 0;
    bool wasEmpty = false;
    {
        zos::MutexGuard lock(&q->zMutex, covered);
        auto *node = static_cast<QNode *>(zos::DbktGet(q->zBkt, covered));
        if (node == nullptr) return ZFAILED;  // the bucket has logged
        node->zValue = zValue;
        wasEmpty = q->stItems.pstHead == nullptr;
        if (zos::DlistAppend(&q->stItems, &node->stLink, covered) != ZOK) {
            zos::DbktPut(q->zBkt, node, covered);
            return ZFAILED;
        }
    }
    // Only the empty-to-non-empty step wakes a poller; a woken poller
    // re-checks under the mutex and sleeps again if another one won. The
    // post follows the unlock so the woken poller does not block on it.
    if (wasEmpty && q->ucBlocking) Zos_SemPost(&q->zSem);
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
    const bool covered = q->ucLocked != 0;
    auto *node = reinterpret_cast<QNode *>(zos::DlistTakeHead(&q->stItems, covered));
    // Only an unlocked queue can be emptied by another poller meanwhile.
    if (node == nullptr) return ZFAILED;
    if (pzValue != nullptr) *pzValue = node->zValue;
    zos::DbktPut(q->zBkt, node, covered);
    Unlock(q);
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
    Unlock(q);
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
    zos::MutexGuard lock(&q->zMutex, q->ucLocked);
    return Zos_DbktGetCount(q->zBkt, puiFree, puiUsed, puiGets, puiPuts, puiPeak);
}

KESTRO_API uint32_t Zos_QueueGetBusyCount(ZQUEUE zQueue) {
    Queue *q = Valid(zQueue);
    if (q == nullptr) {
        ZOS_LOG_ERR("QueueGetBusyCount invalid id.");
        return 0;
    }
    zos::MutexGuard lock(&q->zMutex, q->ucLocked);
    return q->stItems.uiCount;
}

}  // extern "C"
