// Timers: the queue timer (fixed node arrays, busy expiry list sorted by
// tick), the running-count bookkeeping that wakes the timer task or arms
// the platform timer, and the self and OS managers with their timers.
#include "zos_timer.h"

#include <cstring>

#include "zos_env.h"
#include "zos_gate.h"
#include "zos_live.h"
#include "zos_osdep.h"
#include "zos_time.h"
#include "zos_timer_int.h"
#include "zos_util.h"

namespace {

constexpr uint32_t kQTimerMagic = 0x51544D52u;
// Ticks up to which the platform timer runs for the soonest expiry itself.
constexpr int64_t kDrvMaxTicks = 36000;

struct ExpNode;

// One timer; its id is its index in the queue's array.
struct TmrNode {
    uint8_t ucState;
    uint8_t ucFlags;
    uint16_t wSpare;
    uint32_t uiTaskId;
    uint32_t uiType;
    uint32_t uiLen;  // ticks
    uintptr_t zParm;
    uint64_t ullStart;  // tick
    PFN_ZOS_TIMER_CB pfnCb;
    ExpNode *pstExp;  // the expiry node it waits in, while running
    TmrNode *pstNext;
    TmrNode *pstPrev;
    uint32_t uiId;
    // Bumped at every create, so work noted before a callback can tell
    // whether the id still names the same timer afterwards.
    uint32_t uiGen;
    // Processing pass that re-inserted the timer (0: none), so one pass
    // fires a periodic timer at most once.
    uint32_t uiPass;
};

// Intrusive doubly linked list of nodes with pstNext/pstPrev.
template <typename N>
struct List {
    N *pstHead;
    N *pstTail;
    uint32_t uiCount;

    void PushBack(N *n) {
        n->pstNext = nullptr;
        n->pstPrev = pstTail;
        if (pstTail != nullptr) {
            pstTail->pstNext = n;
        } else {
            pstHead = n;
        }
        pstTail = n;
        ++uiCount;
    }
    void InsertBefore(N *at, N *n) {
        n->pstNext = at;
        n->pstPrev = at->pstPrev;
        if (at->pstPrev != nullptr) {
            at->pstPrev->pstNext = n;
        } else {
            pstHead = n;
        }
        at->pstPrev = n;
        ++uiCount;
    }
    void Remove(N *n) {
        if (n->pstPrev != nullptr) {
            n->pstPrev->pstNext = n->pstNext;
        } else {
            pstHead = n->pstNext;
        }
        if (n->pstNext != nullptr) {
            n->pstNext->pstPrev = n->pstPrev;
        } else {
            pstTail = n->pstPrev;
        }
        n->pstNext = n->pstPrev = nullptr;
        --uiCount;
    }
    N *PopFront() {
        N *n = pstHead;
        if (n != nullptr) Remove(n);
        return n;
    }
};

// All timers due at one tick, in start order.
struct ExpNode {
    uint64_t ullTick;
    List<TmrNode> stTmrs;
    ExpNode *pstNext;
    ExpNode *pstPrev;
};

struct QTimer {
    uint32_t uiBusyExp;  // expiry nodes in the busy list
    ZMUTEX zMutex;
    uint32_t uiTmrCnt;
    uint32_t uiExpCnt;
    uint32_t uiExpPeak;
    TmrNode *pstTmrs;
    ExpNode *pstExps;
    List<ExpNode> stFreeExp;
    List<ExpNode> stBusyExp;  // ascending tick
    List<TmrNode> stFreeTmr;
    uint32_t uiRunning;
    uint32_t uiMagic;
    ZosTmrMgr *pstMgr;  // owner, null for a queue on its own
    uint32_t uiPass;
};

QTimer *Q(ZQTIMER h) {
    return zos::LiveRecord<QTimer>(h, kQTimerMagic);
}

uint64_t NowTick() {
    return Zos_GetHrTime() / ZOS_TIMER_TICK_NS;
}

// Takes the queue lock for a scope.
struct QLock : zos::MutexGuard {
    explicit QLock(QTimer *q) : zos::MutexGuard(&q->zMutex) {}
};

void ReleaseExp(QTimer *q, ExpNode *e) {
    q->stBusyExp.Remove(e);
    --q->uiBusyExp;
    e->ullTick = 0;
    q->stFreeExp.PushBack(e);
}

// Puts a timer into the busy list at ullStart + uiLen; true when it went
// into the head node (it is then the soonest to fire).
bool Insert(QTimer *q, TmrNode *t) {
    const uint64_t expiry = t->ullStart + t->uiLen;
    ExpNode *at = q->stBusyExp.pstHead;
    while (at != nullptr && at->ullTick < expiry) at = at->pstNext;
    ExpNode *e = at;
    if (e == nullptr || e->ullTick != expiry) {
        // There is always a free node: one more than timers exist.
        e = q->stFreeExp.PopFront();
        e->ullTick = expiry;
        e->stTmrs = {};
        if (at != nullptr) {
            q->stBusyExp.InsertBefore(at, e);
        } else {
            q->stBusyExp.PushBack(e);
        }
        if (++q->uiBusyExp > q->uiExpPeak) q->uiExpPeak = q->uiBusyExp;
    }
    e->stTmrs.PushBack(t);
    t->pstExp = e;
    t->ucState = ZOS_TIMER_STATE_RUN;
    return e == q->stBusyExp.pstHead;
}

// Takes a running timer out of its expiry node; an emptied node goes back
// to the free list.
void Unlink(QTimer *q, TmrNode *t) {
    ExpNode *e = t->pstExp;
    e->stTmrs.Remove(t);
    t->pstExp = nullptr;
    if (e->stTmrs.uiCount == 0) ReleaseExp(q, e);
    t->ucState = ZOS_TIMER_STATE_IDLE;
    --q->uiRunning;
}

// Frees a timer node under the lock; the owner task for the statistics.
void FreeNode(QTimer *q, TmrNode *t) {
    t->ucState = ZOS_TIMER_STATE_FREE;
    t->pfnCb = nullptr;
    t->zParm = 0;
    q->stFreeTmr.PushBack(t);
}

uint32_t CreateNode(QTimer *q, uint32_t task, uint32_t flags, uint32_t type, uintptr_t parm,
                    PFN_ZOS_TIMER_CB cb, uint32_t *id) {
    TmrNode *t = nullptr;
    {
        QLock lock(q);
        t = q->stFreeTmr.PopFront();
        if (t != nullptr) {
            t->ucState = ZOS_TIMER_STATE_IDLE;
            t->ucFlags = static_cast<uint8_t>(flags);
            t->uiTaskId = task;
            t->uiType = type;
            t->zParm = parm;
            t->pfnCb = cb;
            t->uiLen = 0;
            t->ullStart = 0;
            t->uiPass = 0;
            ++t->uiGen;
        }
    }
    if (t == nullptr) {
        ZOS_LOG_ERR("QTimerTmrCreate no free node(total:%u).", q->uiTmrCnt);
        return ZFAILED;
    }
    *id = t->uiId;
    zos::TimerTaskCountInc(task);
    return ZOK;
}

// Deletes a timer; `gen` other than 0 deletes it only while the id still
// names that generation (a purge after firing).
uint32_t DeleteNode(QTimer *q, uint32_t id, uint32_t gen) {
    bool wasRunning = false;
    uint32_t owner = ZOS_INVALID_ID;
    {
        QLock lock(q);
        if (id >= q->uiTmrCnt) {
            ZOS_LOG_ERR("QTimerTmrDelete invalid id[%u].", id);
            return ZFAILED;
        }
        TmrNode *t = &q->pstTmrs[id];
        if (gen != 0 && t->uiGen != gen) return ZFAILED;
        if (t->ucState == ZOS_TIMER_STATE_FREE) {
            ZOS_LOG_ERR("QTimerTmrDelete invalid state.");
            return ZFAILED;
        }
        if (t->ucState == ZOS_TIMER_STATE_RUN) {
            Unlink(q, t);
            wasRunning = true;
        }
        owner = t->uiTaskId;
        FreeNode(q, t);
    }
    if (wasRunning && q->pstMgr != nullptr) Zos_TimerRealNumDec(q->pstMgr, 1);
    zos::TimerTaskCountDec(owner);
    Zos_LogDbg(Zos_LogGetZosId(), "qtimer delete timer<%d> ok.", static_cast<int>(id));
    return ZOK;
}

// Starts an idle timer; `full` also stores type, parameter and callback.
uint32_t StartNode(QTimer *q, uint32_t id, bool full, uint32_t type, uint32_t ticks, uintptr_t parm,
                   PFN_ZOS_TIMER_CB cb) {
    bool head = false;
    {
        QLock lock(q);
        if (id >= q->uiTmrCnt) {
            ZOS_LOG_ERR("QTimerTmrStart invalid id[%u].", id);
            return ZFAILED;
        }
        TmrNode *t = &q->pstTmrs[id];
        if (t->ucState != ZOS_TIMER_STATE_IDLE) {
            ZOS_LOG_ERR("QTimerTmrStart timer not idle.");
            return ZFAILED;
        }
        if (full) {
            t->uiType = type;
            t->zParm = parm;
            t->pfnCb = cb;
        }
        t->uiLen = ticks;
        t->ullStart = NowTick();
        t->uiPass = 0;
        head = Insert(q, t);
        ++q->uiRunning;
    }
    if (q->pstMgr != nullptr) zos::TimerStarted(q->pstMgr, head);
    return ZOK;
}

uint32_t StopNode(QTimer *q, uint32_t id) {
    {
        QLock lock(q);
        if (id >= q->uiTmrCnt) {
            ZOS_LOG_ERR("QTimerTmrStop invalid id[%u].", id);
            return ZFAILED;
        }
        TmrNode *t = &q->pstTmrs[id];
        if (t->ucState == ZOS_TIMER_STATE_FREE) {
            ZOS_LOG_ERR("QTimerTmrStop invalid state.");
            return ZFAILED;
        }
        if (t->ucState != ZOS_TIMER_STATE_RUN) return ZOK;
        Unlink(q, t);
    }
    if (q->pstMgr != nullptr) Zos_TimerRealNumDec(q->pstMgr, 1);
    return ZOK;
}

// What a firing needs once the lock is released.
struct Firing {
    uint32_t id;
    uint32_t type;
    uintptr_t parm;
    PFN_ZOS_TIMER_CB cb;
    uint32_t task;
    uint32_t gen;
    bool purge;
};

void Fire(QTimer *q, const Firing &f) {
    if (f.cb != nullptr) {
        {
            zos::GateScope user(false);
            f.cb(f.id, f.type, f.parm);
        }
        if (zos::GateAbandoned()) return;
    } else {
        const uint32_t from = q->pstMgr != nullptr ? q->pstMgr->uiTaskId : ZOS_INVALID_ID;
        if (zos::TimerSendTimeout(from, f.task, f.id, f.type, f.parm) != ZOK) {
            ZOS_LOG_ERR("qtimer send timeout message to task <0x%X>.", f.task);
        }
    }
    if (f.purge && DeleteNode(q, f.id, f.gen) == ZOK) {
        Zos_LogDbg(Zos_LogGetZosId(), "qtimer purge timer<%d> ok.", static_cast<int>(f.id));
    }
}

// One processing pass over a queue; the number of timers that finished.
uint32_t ProcessQueue(QTimer *q) {
    uint32_t finished = 0;
    QLock lock(q);
    if (q->stBusyExp.pstHead == nullptr) return 0;
    const uint64_t now = NowTick();
    if (++q->uiPass == 0) q->uiPass = 1;
    const uint32_t pass = q->uiPass;
    for (;;) {
        ExpNode *e = q->stBusyExp.pstHead;
        if (e == nullptr || e->ullTick > now) break;
        TmrNode *t = e->stTmrs.pstHead;
        // A periodic timer of 0 ticks re-inserted by this pass waits for
        // the next one instead of firing again and again.
        if (t->uiPass == pass) break;
        e->stTmrs.Remove(t);
        t->pstExp = nullptr;
        if (e->stTmrs.uiCount == 0) ReleaseExp(q, e);
        t->ucState = ZOS_TIMER_STATE_IDLE;
        const bool purge = (t->ucFlags & ZOS_TIMER_FLAG_DELETE) != 0;
        if ((t->ucFlags & ZOS_TIMER_FLAG_PERIOD) != 0 && !purge) {
            // Re-started from now: a periodic timer drifts by the delay of
            // its processing.
            t->ullStart = now;
            t->uiPass = pass;
            Insert(q, t);
        } else {
            --q->uiRunning;
            ++finished;
        }
        const Firing f{t->uiId, t->uiType, t->zParm, t->pfnCb, t->uiTaskId, t->uiGen, purge};
        Zos_MutexUnlock(&q->zMutex);
        Fire(q, f);
        if (zos::GateAbandoned()) {
            // Turned away after the callback: the queue may be gone.
            lock.Forget();
            return finished;
        }
        Zos_MutexLock(&q->zMutex);
    }
    return finished;
}

}  // namespace

namespace zos {

uint64_t TimerSoonestTick(ZQTIMER zQueue, bool *any) {
    QTimer *q = Q(zQueue);
    *any = false;
    if (q == nullptr) return 0;
    QLock lock(q);
    ExpNode *e = q->stBusyExp.pstHead;
    if (e == nullptr) return 0;
    *any = true;
    return e->ullTick;
}

uint32_t TimerQueueTaskId(ZQTIMER zQueue, uint32_t id) {
    QTimer *q = Q(zQueue);
    if (q == nullptr) return ZOS_INVALID_ID;
    QLock lock(q);
    if (id >= q->uiTmrCnt || q->pstTmrs[id].ucState == ZOS_TIMER_STATE_FREE) {
        return ZOS_INVALID_ID;
    }
    return q->pstTmrs[id].uiTaskId;
}

void TimerQueueSetMgr(ZQTIMER zQueue, ZosTmrMgr *mgr) {
    QTimer *q = Q(zQueue);
    if (q != nullptr) q->pstMgr = mgr;
}

}  // namespace zos

extern "C" {

// ---------------------------------------------------------------------
// Queue timer

KESTRO_API uint32_t Zos_QTimerCreate(ZQTIMER *pzQueue, int32_t iCapacity) {
    if (pzQueue != nullptr) *pzQueue = nullptr;
    if (pzQueue == nullptr || iCapacity < 0) {
        ZOS_LOG_ERR("QTimerCreate inputs invalid.");
        return ZFAILED;
    }
    const auto cap = static_cast<uint32_t>(iCapacity);
    auto *q = static_cast<QTimer *>(Zos_MallocClrd(sizeof(QTimer)));
    if (q == nullptr) return ZFAILED;
    q->uiTmrCnt = cap;
    q->uiExpCnt = cap + 1;
    if (static_cast<uint64_t>(cap) * sizeof(TmrNode) >= 0x7FFFFFFFu ||
        static_cast<uint64_t>(cap + 1) * sizeof(ExpNode) >= 0x7FFFFFFFu) {
        ZOS_LOG_ERR("QTimerCreate alloc tnode.");
        Zos_Free(q);
        return ZFAILED;
    }
    if (cap != 0) {
        q->pstTmrs =
            static_cast<TmrNode *>(Zos_MallocClrd(static_cast<int32_t>(cap * sizeof(TmrNode))));
        if (q->pstTmrs == nullptr) {
            ZOS_LOG_ERR("QTimerCreate alloc tnode.");
            Zos_Free(q);
            return ZFAILED;
        }
    }
    for (uint32_t i = 0; i < cap; ++i) {
        q->pstTmrs[i].uiId = i;
        q->stFreeTmr.PushBack(&q->pstTmrs[i]);
    }
    q->pstExps =
        static_cast<ExpNode *>(Zos_MallocClrd(static_cast<int32_t>((cap + 1) * sizeof(ExpNode))));
    if (q->pstExps == nullptr) {
        ZOS_LOG_ERR("QTimerCreate task alloc qnode.");
        Zos_Free(q->pstTmrs);
        Zos_Free(q);
        return ZFAILED;
    }
    for (uint32_t i = 0; i < cap + 1; ++i) q->stFreeExp.PushBack(&q->pstExps[i]);
    if (Zos_MutexCreate(&q->zMutex) != ZOK) {
        ZOS_LOG_ERR("QTimerCreate create mutex.");
        Zos_Free(q->pstExps);
        Zos_Free(q->pstTmrs);
        Zos_Free(q);
        return ZFAILED;
    }
    q->uiMagic = kQTimerMagic;
    if (!zos::LiveAdd(q)) {
        Zos_MutexDelete(&q->zMutex);
        Zos_Free(q->pstExps);
        Zos_Free(q->pstTmrs);
        Zos_Free(q);
        return ZFAILED;
    }
    Zos_LogInfo(Zos_LogGetZosId(), "qtimer create ok.");
    *pzQueue = q;
    return ZOK;
}

KESTRO_API uint32_t Zos_QTimerDelete(ZQTIMER zQueue) {
    QTimer *q = Q(zQueue);
    if (q == nullptr) return ZFAILED;
    zos::LiveRemove(q);
    q->uiMagic = 0;
    Zos_MutexDelete(&q->zMutex);
    Zos_Free(q->pstExps);
    Zos_Free(q->pstTmrs);
    Zos_Free(q);
    return ZOK;
}

KESTRO_API uint32_t Zos_QTimerProcess(void *pMgr) {
    // A manager of the environment (used while it runs), or a queue on its
    // own.
    ZosTmrMgr *named = zos::TimerMgrOf(pMgr);
    zos::TimerMgrUse use(named);
    QTimer *q = nullptr;
    if (named != nullptr) {
        if (use.get() != nullptr) q = Q(use.get()->pQTimer);
    } else {
        q = Q(pMgr);
    }
    if (q == nullptr) return ZFAILED;
    const uint32_t finished = ProcessQueue(q);
    if (zos::GateAbandoned()) {
        use.Dismiss();
        return ZOK;
    }
    if (q->pstMgr != nullptr) {
        if (finished != 0) Zos_TimerRealNumDec(q->pstMgr, finished);
        Zos_TimerRealNumChk(q->pstMgr);
    }
    return ZOK;
}

KESTRO_API uint32_t Zos_QTimerTmrCreate(ZQTIMER zQueue, uint32_t uiTaskId, uint32_t uiFlags,
                                        uint32_t *puiId) {
    return Zos_QTimerTmrCreateX(zQueue, uiTaskId, uiFlags, 0, 0, nullptr, puiId);
}

KESTRO_API uint32_t Zos_QTimerTmrCreateX(ZQTIMER zQueue, uint32_t uiTaskId, uint32_t uiFlags,
                                         uint32_t uiType, uintptr_t zParm, PFN_ZOS_TIMER_CB pfnCb,
                                         uint32_t *puiId) {
    if (puiId != nullptr) *puiId = ZOS_INVALID_ID;
    QTimer *q = Q(zQueue);
    if (q == nullptr || puiId == nullptr) return ZFAILED;
    return CreateNode(q, uiTaskId, uiFlags, uiType, zParm, pfnCb, puiId);
}

KESTRO_API uint32_t Zos_QTimerTmrDelete(ZQTIMER zQueue, uint32_t uiId) {
    QTimer *q = Q(zQueue);
    return q != nullptr ? DeleteNode(q, uiId, 0) : ZFAILED;
}

KESTRO_API uint32_t Zos_QTimerTmrInsert(ZQTIMER zQueue, uint32_t uiId) {
    QTimer *q = Q(zQueue);
    if (q == nullptr) return ZFAILED;
    bool head = false;
    {
        QLock lock(q);
        if (uiId >= q->uiTmrCnt || q->pstTmrs[uiId].ucState != ZOS_TIMER_STATE_IDLE) {
            return ZFAILED;
        }
        head = Insert(q, &q->pstTmrs[uiId]);
        ++q->uiRunning;
    }
    if (q->pstMgr != nullptr) zos::TimerStarted(q->pstMgr, head);
    return ZOK;
}

KESTRO_API uint32_t Zos_QTimerTmrStart(ZQTIMER zQueue, uint32_t uiId, uint32_t uiType,
                                       uint32_t uiTicks, uintptr_t zParm, PFN_ZOS_TIMER_CB pfnCb) {
    QTimer *q = Q(zQueue);
    return q != nullptr ? StartNode(q, uiId, true, uiType, uiTicks, zParm, pfnCb) : ZFAILED;
}

KESTRO_API uint32_t Zos_QTimerTmrStartX(ZQTIMER zQueue, uint32_t uiId, uint32_t uiTicks) {
    QTimer *q = Q(zQueue);
    return q != nullptr ? StartNode(q, uiId, false, 0, uiTicks, 0, nullptr) : ZFAILED;
}

KESTRO_API uint32_t Zos_QTimerOsTmrStartX(ZQTIMER zQueue, uint32_t uiId, uint32_t uiTicks) {
    // The running-count step of the start re-arms the platform timer of
    // the OS manager that owns the queue.
    return Zos_QTimerTmrStartX(zQueue, uiId, uiTicks);
}

KESTRO_API uint32_t Zos_QTimerTmrStop(ZQTIMER zQueue, uint32_t uiId) {
    QTimer *q = Q(zQueue);
    return q != nullptr ? StopNode(q, uiId) : ZFAILED;
}

KESTRO_API uint32_t Zos_QTimerTmrGetState(ZQTIMER zQueue, uint32_t uiId) {
    QTimer *q = Q(zQueue);
    if (q == nullptr) return ZOS_TIMER_STATE_FREE;
    QLock lock(q);
    return uiId < q->uiTmrCnt ? q->pstTmrs[uiId].ucState : ZOS_TIMER_STATE_FREE;
}

KESTRO_API uint32_t Zos_QTimerTmrGetStatus(ZQTIMER zQueue, uint32_t uiId, uint32_t *puiRemainMs,
                                           uint32_t *puiLenMs) {
    if (puiRemainMs != nullptr) *puiRemainMs = 0;
    if (puiLenMs != nullptr) *puiLenMs = 0;
    QTimer *q = Q(zQueue);
    if (q == nullptr) return ZFAILED;
    QLock lock(q);
    if (uiId >= q->uiTmrCnt || q->pstTmrs[uiId].ucState == ZOS_TIMER_STATE_FREE) return ZFAILED;
    const TmrNode &t = q->pstTmrs[uiId];
    if (puiLenMs != nullptr) *puiLenMs = t.uiLen * ZOS_TIMER_TICK_MS;
    if (puiRemainMs != nullptr && t.ucState == ZOS_TIMER_STATE_RUN) {
        const uint64_t now = NowTick();
        const uint64_t expiry = t.ullStart + t.uiLen;
        const uint64_t left = expiry > now ? expiry - now : 0;
        *puiRemainMs = left > 0xFFFFFFFFu / ZOS_TIMER_TICK_MS
                           ? 0xFFFFFFFFu
                           : static_cast<uint32_t>(left) * ZOS_TIMER_TICK_MS;
    }
    return ZOK;
}

KESTRO_API uint32_t Zos_QTimerTmrGetCount(ZQTIMER zQueue, uint32_t *puiRunning,
                                          uint32_t *puiBusyExp, uint32_t *puiPeakExp) {
    QTimer *q = Q(zQueue);
    if (q == nullptr) return ZFAILED;
    QLock lock(q);
    if (puiRunning != nullptr) *puiRunning = q->uiRunning;
    if (puiBusyExp != nullptr) *puiBusyExp = q->uiBusyExp;
    if (puiPeakExp != nullptr) *puiPeakExp = q->uiExpPeak;
    return ZOK;
}

KESTRO_API uint32_t Zos_QTimerTmrGetDrvLen(ZQTIMER zQueue) {
    bool any = false;
    const uint64_t head = zos::TimerSoonestTick(zQueue, &any);
    if (!any) return ZOS_TIMER_DRV_MAX_MS;
    const int64_t d = static_cast<int64_t>(head) - static_cast<int64_t>(NowTick());
    if (d < 2) return ZOS_TIMER_DRV_MIN_MS;
    if (d <= kDrvMaxTicks) return static_cast<uint32_t>(d) * ZOS_TIMER_TICK_MS;
    return ZOS_TIMER_DRV_MAX_MS;
}

}  // extern "C"
