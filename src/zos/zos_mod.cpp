// Module manager: the task table, module tasks with their loops, posting,
// dispatch, the manager task "MOD_MGR", the host drive, deferred calls and
// shut-down. Performs and the event hub are in zos_mod_evnt.cpp.
#include <cstring>
#include <new>

#include "zos_cfg.h"
#include "zos_fmt.h"
#include "zos_lite_lock.h"
#include "zos_mod_int.h"
#include "zos_msg.h"
#include "zos_omap.h"
#include "zos_osdep.h"
#include "zos_pqueue.h"
#include "zos_str.h"
#include "zos_util.h"

namespace {

using zos::ModDefer;
using zos::ModDeferList;
using zos::ModTable;
using zos::ModTask;

constexpr uint32_t kFirstTaskId = 16;  // 15 names the host's UI thread
constexpr uint32_t kLevels = 8;        // queue levels 0 (control) .. 8
constexpr uint32_t kPollMs = 30;
constexpr uint32_t kStopWaitMs = 6000;  // shut-down's wait for a task loop

ModTable *Table(ZosModMgr *mgr) {
    return static_cast<ModTable *>(mgr->pTasks);
}

uint32_t Clamp(uint32_t pri) {
    return pri < 1 ? 1 : pri > 8 ? 8 : pri;
}

void Delay(uint32_t ms) {
    if (auto sleep = zos::Osdep<zos::kSlotTaskDelay>()) sleep(ms);
}

using Lock = zos::ModLock;

// The calling task thread's gate, whether it runs the layer's own code,
// and whether it found the gate closed. Other threads have no gate.
struct GateThread {
    zos::ModGate *gate;
    uint32_t task;
    bool inside;
    bool abandoned;
};
thread_local GateThread t_gate{};

void GateSet(bool inside) {
    GateThread &g = t_gate;
    if (g.gate == nullptr || g.abandoned || g.inside == inside) return;
    std::atomic<uint32_t> &word = g.gate->uiInside;
    if (!inside) {
        word.fetch_sub(1, std::memory_order_acq_rel);
    } else if ((word.fetch_add(1, std::memory_order_acq_rel) & zos::ModGate::kClosed) != 0) {
        word.fetch_sub(1, std::memory_order_acq_rel);
        g.abandoned = true;
        return;
    }
    g.inside = inside;
}

// Appends a deferred call to a list.
void DeferPush(ModDeferList *list, ModDefer *d) {
    d->pstNext = nullptr;
    if (list->pstTail != nullptr) {
        list->pstTail->pstNext = d;
    } else {
        list->pstHead = d;
    }
    list->pstTail = d;
}

ModDeferList *MgrDefer(ZosModMgr *mgr) {
    static_assert(sizeof(ModDeferList) == 2 * sizeof(void *));
    return reinterpret_cast<ModDeferList *>(&mgr->pDeferHead);
}

// A message that will not be handled: a synchronous perform's poster
// waits on the semaphore its event carries, and is let go here instead of
// waiting for a run that will not come (it returns as for a perform that
// was posted).
void ReleasePoster(ZMSG msg) {
    if (Zos_MsgGetType(msg) != ZOS_MSG_TYPE_PERFORMX) return;
    ZSEM sem = Zos_ModEvntGetSem(Zos_MsgGetEvntId(msg));
    if (sem != 0) (void)Zos_SemPost(&sem);
}

// Deletes a queued message left unhandled (a control block is not owned
// by the queue and is left alone).
void DropQueued(uintptr_t item) {
    if (zos::CtrlOf(item) != nullptr) return;
    ReleasePoster(reinterpret_cast<ZMSG>(item));
    Zos_MsgDelete(reinterpret_cast<ZMSG>(item));
}

// Releases a record found under the lock (the caller holds it); the exit
// callback is called with the lock released, once the record can no
// longer be found.
void Release(ZosModMgr *mgr, ModTask *t) {
    const uint32_t id = t->stStart.uiTaskId;
    Zos_DlistRemove(&mgr->stTaskList, &t->stLink);
    Zos_OmapRemove(static_cast<ZOMAP>(mgr->zMap), id);
    char name[ZOS_TASK_NAME_MAX + 1];
    std::memcpy(name, t->acName, sizeof(name));
    PFN_ZOS_TASK_EXIT onExit = t->pfnExit;
    t->pfnExit = nullptr;
    if (onExit != nullptr) {
        Zos_MutexUnlock(&mgr->zMutex);
        onExit(name, id);
        Zos_MutexLock(&mgr->zMutex);
    }
    zos::DeferFree(&t->stDefer);
    if (t->ucTaskLock != 0) Zos_MutexDelete(&t->zMutex);
    if (t->zQueue != nullptr) {
        // Control blocks are not owned by the queue; messages left in it are.
        uintptr_t item = 0;
        while (Zos_PQueuePoll(t->zQueue, 0, nullptr, &item) == ZOK) DropQueued(item);
        Zos_PQueueDelete(t->zQueue);
    }
    Zos_LogInfo(Zos_LogGetZosId(), "task<%s:%u> free ok.", name, id);
    // Index and gate stay: they belong to the slot.
    const uint32_t index = t->uiIndex;
    zos::ModGate *gate = t->pGate;
    zos::TaskSetState(t, ZOS_TASK_FREE);
    __atomic_store_n(&t->stStart.uiTaskId, ZOS_INVALID_ID, __ATOMIC_RELAXED);
    std::memset(static_cast<void *>(t), 0, offsetof(ModTask, stStart));
    std::memset(reinterpret_cast<char *>(t) + offsetof(ModTask, zArg), 0,
                sizeof(ModTask) - offsetof(ModTask, zArg));
    t->uiIndex = index;
    t->pGate = gate;
}

// Puts a control block into a queue at level 0, retrying while it is full;
// a block already queued is not queued twice.
uint32_t PostCtrl(ZosModMgr *mgr, uint32_t id, uint32_t code) {
    for (;;) {
        {
            Lock lock(mgr);
            ModTask *t = zos::TaskFind(mgr, id);
            if (t == nullptr) return ZFAILED;
            // One block per code, kept in the record: a control message
            // needs no allocation, and each code is queued at most once.
            uint32_t *block = t->aauiCtrl[code - ZOS_MOD_CTRL_STOP];
            // The loop reads the words after taking the block from its
            // queue; they are written before the block is queued.
            __atomic_store_n(&block[0], ZOS_MOD_CTRL_MARK, __ATOMIC_RELAXED);
            __atomic_store_n(&block[1], id, __ATOMIC_RELAXED);
            __atomic_store_n(&block[2], code, __ATOMIC_RELEASE);
            void *q = t->zQueue != nullptr ? t->zQueue : mgr->zQueue;
            if (code != ZOS_MOD_CTRL_STOP) {
                // Pause and resume: the latest request wins. Both blocks
                // leave the queue and this one goes to its end; otherwise
                // a resume still queued ahead of a later pause would swallow
                // the next resume, leaving the task paused.
                for (uint32_t c : {ZOS_MOD_CTRL_RESUME, ZOS_MOD_CTRL_PAUSE}) {
                    Zos_PQueueRmv(q, 0, zos::CtrlTag(t->aauiCtrl[c - ZOS_MOD_CTRL_STOP]));
                }
            } else if (Zos_PQueueFind(q, 0, zos::CtrlTag(block)) != 0) {
                return ZOK;
            }
            if (Zos_PQueueAdd(q, 0, zos::CtrlTag(block)) == ZOK) return ZOK;
        }
        Delay(kPollMs);
    }
}

// A stop block taken from the shared queue for a module task: its exit
// callback once, and the state "deleted".
void EndSharedTask(ZosModMgr *mgr, uint32_t id) {
    PFN_ZOS_TASK_EXIT onExit = nullptr;
    char name[ZOS_TASK_NAME_MAX + 1] = {};
    {
        Lock lock(mgr);
        ModTask *t = zos::TaskFind(mgr, id);
        if (t == nullptr || t->zModule == 0) return;
        onExit = t->pfnExit;
        t->pfnExit = nullptr;
        std::memcpy(name, t->acName, sizeof(name));
        zos::TaskSetState(t, ZOS_TASK_DELETED);
    }
    if (onExit != nullptr) onExit(name, id);
}

// The queue statistics of a record found under the lock (counted only
// for tasks without a thread of their own).
void CountQueued(ModTask *t, bool up) {
    if (t->zThread != 0) return;
    if (up) {
        if (++t->uiQueueSize > t->uiQueuePeak) t->uiQueuePeak = t->uiQueueSize;
    } else if (t->uiQueueSize != 0) {
        t->uiQueueSize--;
    }
}

// Runs the handler of one message: the entry, or the carried event's
// perform under the task lock. A task asked to stop handles nothing more.
int32_t Handle(ModTask *t, ZMSG msg, uint32_t state, PFN_ZOS_MOD_ENTRY entry, uint32_t recv) {
    if (state <= ZOS_TASK_WAIT_DELETE) {
        ReleasePoster(msg);
        return 0;
    }
    const uint32_t type = Zos_MsgGetType(msg);
    if (type == ZOS_MSG_TYPE_PERFORM || type == ZOS_MSG_TYPE_PERFORMX) {
        // The perform runs under the task's mutex, held through a copy of
        // its handle: a stop or shut-down that gives up on this thread and
        // deletes the task's record leaves the mutex to its holder, whose
        // unlock (through the copy) destroys it.
        ZMUTEX held = 0;
        bool locked = false;
        if (t != nullptr) {
            held = t->zMutex;
            locked = t->ucTaskLock != 0;
        } else {
            locked = zos::TaskMutexOf(recv, &held);
        }
        if (locked) locked = Zos_MutexLock(&held) == ZOK;
        // A thread turned away by shut-down cannot ask the layer: it gives
        // the mutex back through the platform's own unlock, read now. A
        // handle is only made with mutexes switched on.
        const auto unlock = locked && held != 0 ? zos::Osdep<zos::kSlotMutexUnlock>() : nullptr;
        Zos_ModEvntProc(Zos_MsgGetEvntId(msg));
        if (zos::GateAbandoned()) {
            if (unlock != nullptr) unlock(&held);
            return 0;
        }
        if (locked) Zos_MutexUnlock(&held);
        return 0;
    }
    if (entry == nullptr) return 0;
    zos::GateScope user(false);
    return entry(msg);
}

// Marks a record running; its state afterwards.
uint32_t MarkRunning(ModTask *t) {
    if (!zos::TaskMoveState(t, ZOS_TASK_READY, ZOS_TASK_RUNNING)) {
        zos::TaskMoveState(t, ZOS_TASK_PENDING, ZOS_TASK_RUNNING);
    }
    return zos::TaskState(t);
}

// Handles one message of the loop of a task with its own thread. The loop
// owns its record until it ends (the record is released only after), so
// the record is used without the module lock; the lock is taken only when
// deferred calls are waiting.
int32_t DispatchOwn(ZosModMgr *mgr, ModTask *self, ZMSG msg) {
    const uint32_t recv = __atomic_load_n(&self->stStart.uiTaskId, __ATOMIC_RELAXED);
    const uint32_t state = MarkRunning(self);
    const int32_t result =
        Handle(self, msg, state, reinterpret_cast<PFN_ZOS_MOD_ENTRY>(self->zModule), recv);
    if (zos::GateAbandoned()) return result;
    zos::TaskMoveState(self, ZOS_TASK_RUNNING, ZOS_TASK_READY);
    ModDeferList own{};
    if (__atomic_load_n(&self->uiDeferPending, __ATOMIC_ACQUIRE) != 0) {
        Lock lock(mgr);
        own = self->stDefer;
        self->stDefer = ModDeferList{};
        __atomic_store_n(&self->uiDeferPending, 0, __ATOMIC_RELEASE);
    }
    Zos_MsgDelete(msg);
    zos::DeferRun(&own, nullptr);
    return result;
}

// Handles one message of the shared queue for its receiver: counts,
// state, handler, delete, then the receiver's own deferred calls.
int32_t Dispatch(ZosModMgr *mgr, ZMSG msg) {
    const uint32_t recv = Zos_MsgGetRecvTaskId(msg);
    PFN_ZOS_MOD_ENTRY entry = nullptr;
    uint32_t state = ZOS_TASK_FREE;
    // The running handler is noted for stops (WaitSharedHandler). A handler
    // that drives the queue itself runs others inside it on its thread, and
    // is noted again after them. When hosts drive the queue from two
    // threads at once, the later handler takes the note over and the
    // earlier leaves it alone: a note is never left behind stale.
    const uintptr_t me = zos::ThreadTag();
    uint32_t outerRecv = 0;
    uintptr_t outerThread = 0;
    {
        Lock lock(mgr);
        if (mgr->zSharedThread == me) {
            outerRecv = mgr->uiSharedRecv;
            outerThread = me;
        }
        if (ModTask *t = zos::TaskFind(mgr, recv)) {
            CountQueued(t, false);
            entry = reinterpret_cast<PFN_ZOS_MOD_ENTRY>(t->zModule);
            state = MarkRunning(t);
            mgr->uiSharedRecv = recv;
            mgr->zSharedThread = me;
        }
    }
    const int32_t result = Handle(nullptr, msg, state, entry, recv);
    if (zos::GateAbandoned()) return result;
    ModDeferList own{};
    {
        Lock lock(mgr);
        if (mgr->zSharedThread == me && mgr->uiSharedRecv == recv) {
            mgr->uiSharedRecv = outerRecv;
            mgr->zSharedThread = outerThread;
        }
        if (ModTask *t = zos::TaskFind(mgr, recv)) {
            zos::TaskMoveState(t, ZOS_TASK_RUNNING, ZOS_TASK_READY);
            own = t->stDefer;
            t->stDefer = ModDeferList{};
            __atomic_store_n(&t->uiDeferPending, 0, __ATOMIC_RELEASE);
        }
    }
    Zos_MsgDelete(msg);
    zos::DeferRun(&own, nullptr);
    return result;
}

// Marks a record found under the lock as stopping: it handles no further
// message.
void MarkStopping(ModTask *t) {
    if (zos::TaskState(t) > ZOS_TASK_WAIT_DELETE) zos::TaskSetState(t, ZOS_TASK_WAIT_DELETE);
}

// Checks `done` every `step` ms for at most `ms` (0xFFFFFFFF: no limit);
// its last value.
template <class Done>
bool WaitUpTo(uint32_t ms, uint32_t step, Done done) {
    for (uint32_t waited = 0; !done(); waited += step) {
        if (ms != 0xFFFFFFFFu && waited >= ms) return done();
        Delay(step);
    }
    return true;
}

// Looks at the record of `id` under the lock every 30 ms, for at most `ms`
// (0xFFFFFFFF: no limit), until done(record) holds or the record is gone;
// false when the wait gave up.
template <class Done>
bool PollTask(ZosModMgr *mgr, uint32_t id, uint32_t ms, Done done) {
    return WaitUpTo(ms, kPollMs, [mgr, id, &done] {
        Lock lock(mgr);
        ModTask *t = zos::TaskFind(mgr, id);
        return t == nullptr || done(t);
    });
}

// Stops the loop of a task with its own thread and waits at most `ms` for
// it to end: true when it has ended (or the record is gone).
bool StopLoop(ZosModMgr *mgr, uint32_t id, uint32_t ms, bool log) {
    PostCtrl(mgr, id, ZOS_MOD_CTRL_STOP);
    {
        Lock lock(mgr);
        ModTask *t = zos::TaskFind(mgr, id);
        if (t == nullptr) return true;
        MarkStopping(t);
        if (log) {
            Zos_LogInfo(Zos_LogGetZosId(), "task<%s:%u> module state is %d.", t->acName, id,
                        static_cast<int>(zos::TaskState(t)));
        }
    }
    // Called from the loop's own thread (a handler): it cannot end first.
    if (zos::GateTask() == id) return false;
    return PollTask(mgr, id, ms, [](ModTask *t) { return zos::TaskState(t) == ZOS_TASK_DELETED; });
}

// Waits at most `ms` until the shared queue's handler is not running for
// task `id` on another thread, so that the task's exit callback, which
// usually frees what the handler uses, runs after the handler; the task
// is marked stopping first. A task stopped from inside its own handler has
// nothing to wait for.
void WaitSharedHandler(ZosModMgr *mgr, uint32_t id, uint32_t ms) {
    const uintptr_t me = zos::ThreadTag();
    PollTask(mgr, id, ms, [mgr, id, me](ModTask *t) {
        MarkStopping(t);
        return mgr->zSharedThread == 0 || mgr->zSharedThread == me || mgr->uiSharedRecv != id;
    });
}

// Releases the records that shut-down's stops left to threads it has since
// turned away, without their exit callbacks.
void ReleaseLeft(ZosModMgr *mgr) {
    Lock lock(mgr);
    ModTable *table = Table(mgr);
    for (uint32_t i = 0; i < mgr->uiCapacity; ++i) {
        ModTask *t = &table->astTasks[i];
        if (zos::TaskState(t) == ZOS_TASK_FREE) continue;
        t->pfnExit = nullptr;
        Release(mgr, t);
    }
}

// Module task stop, bounded or not.
uint32_t ModStop(uint32_t id, uint32_t ms) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr) return ZFAILED;
    bool threaded = false;
    bool plain = false;
    char name[ZOS_TASK_NAME_MAX + 1];
    {
        Lock lock(mgr);
        ModTask *t = zos::TaskFind(mgr, id);
        if (t == nullptr) return ZFAILED;
        plain = t->zModule == 0;
        threaded = t->zQueue != nullptr && t->ucHasThread != 0;
        std::memcpy(name, t->acName, sizeof(name));
    }
    // A task without a module is deleted as a plain task, without the lock:
    // its thread takes the lock to mark itself ended, which the delete
    // waits for.
    if (plain) return ms == 0xFFFFFFFFu ? Zos_TaskDelete(id) : Zos_TaskWaitDelete(id, ms / 1000u);
    // A shared-queue task whose handler does not return in time is stopped
    // all the same, as before the wait.
    if (!threaded) WaitSharedHandler(mgr, id, ms);
    if (threaded && !StopLoop(mgr, id, ms, true)) {
        // The loop still runs and polls its queue: the record is left for
        // the task's thread to release when the loop ends.
        Zos_LogInfo(Zos_LogGetZosId(), "task<%s:%u> force delete.", name, id);
        return ZFAILED;
    }
    Zos_LogInfo(Zos_LogGetZosId(), "task<%s:%u> module stop ok.", name, id);
    Zos_ModPutTask(id);
    return ZOK;
}

// Shared part of the two posts.
uint32_t Post(ZMSG msg, bool withPri, uint32_t pri, const char *fullText, const char *recvText) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr) {
        ZOS_LOG_ERR("ModPostMsg no env.");
        return ZFAILED;
    }
    const uint32_t recv = Zos_MsgGetRecvTaskId(msg);
    void *queue = nullptr;
    bool ownThread = false;
    bool threaded = false;
    uint32_t level = 0;
    // A refusal is logged after the module lock is released: posters that
    // retry against a full queue must not hold every other post up behind
    // their log writes.
    char full[ZOS_TASK_NAME_MAX + 1] = {};
    bool found = false;
    {
        Lock lock(mgr);
        ModTask *t = zos::TaskFind(mgr, recv);
        if ((found = t != nullptr)) {
            ownThread = t->zQueue != nullptr;
            // Read before the message is queued, as all the manager's
            // fields this post reads are: once it is queued, its handler
            // may even shut the layer down.
            threaded = mgr->bThreaded != 0;
            queue = ownThread ? t->zQueue : mgr->zQueue;
            level = withPri ? (pri > kLevels ? kLevels : pri) : t->ucPriority;
            CountQueued(t, true);
            if (Zos_PQueueAdd(queue, level, reinterpret_cast<uintptr_t>(msg)) != ZOK) {
                std::memcpy(full, t->acName, sizeof(full));
                CountQueued(t, false);
                queue = nullptr;
            }
        }
    }
    if (queue == nullptr) {
        if (!found) {
            ZOS_LOG_ERR("%s", recvText);
        } else {
            const uint32_t send = Zos_MsgGetSendTaskId(msg);
            ZOS_LOG_ERR(fullText, Zos_TaskGetName(send), send, full, recv);
        }
        return ZFAILED;
    }
    // The manager task drains the shared queue in threaded mode, so only
    // host-driven posts ask for a drive.
    if (ownThread || threaded || __atomic_load_n(&mgr->uiBusy, __ATOMIC_SEQ_CST) != 0 ||
        __atomic_load_n(&mgr->uiSilence, __ATOMIC_SEQ_CST) != 0) {
        return ZOK;
    }
    auto drive = zos::Osdep<zos::kSlotModPostDrv>();
    if (drive != nullptr && drive() == ZOK) return ZOK;
    // No drive could be requested: the post fails, so the message must
    // not stay queued (its sender deletes it). If a drive took it already
    // it is being handled, and the post stands.
    if (Zos_PQueueRmv(queue, level, reinterpret_cast<uintptr_t>(msg)) != ZOK) return ZOK;
    Zos_TaskQueueSizeDec(recv);
    return ZFAILED;
}

uint32_t RequestDrive() {
    auto drive = zos::Osdep<zos::kSlotModPostDrv>();
    return drive != nullptr ? drive() : ZFAILED;
}

// Takes or gives the task's own mutex (the task must have one); the
// manager's lock covers only finding the task and copying its handle.
uint32_t OnTaskMutex(uint32_t id, uint32_t (*op)(ZMUTEX *)) {
    ZMUTEX m = 0;
    if (!zos::TaskMutexOf(id, &m)) return ZFAILED;
    return op(&m);
}

}  // namespace

namespace zos {

bool TaskMutexOf(uint32_t id, ZMUTEX *out) {
    ZosModMgr *mgr = ModMgr();
    if (mgr == nullptr) return false;
    Lock lock(mgr);
    ModTask *t = TaskFind(mgr, id);
    if (t == nullptr || t->ucTaskLock == 0) return false;
    *out = t->zMutex;
    return true;
}

ModTask *TaskFind(ZosModMgr *mgr, uint32_t id) {
    if (mgr == nullptr || mgr->zMap == nullptr || id == ZOS_INVALID_ID) return nullptr;
    auto *t = static_cast<ModTask *>(Zos_OmapFind(static_cast<ZOMAP>(mgr->zMap), id));
    if (t == nullptr || TaskState(t) == ZOS_TASK_FREE || t->stStart.uiTaskId != id) return nullptr;
    return t;
}

void DeferRun(ModDeferList *list, ZMUTEX *lock) {
    ModDefer *d = nullptr;
    if (lock != nullptr) Zos_MutexLock(lock);
    d = list->pstHead;
    *list = ModDeferList{};
    if (lock != nullptr) Zos_MutexUnlock(lock);
    while (d != nullptr) {
        ModDefer *next = d->pstNext;
        if (d->pfnFunc != nullptr) {
            GateScope user(false);
            d->pfnFunc(d->zArg, d + 1, d->uiLen);
        }
        // The calls left are dropped with the layer's memory.
        if (GateAbandoned()) return;
        Zos_Free(d);
        d = next;
    }
}

void DeferFree(ModDeferList *list) {
    for (ModDefer *d = list->pstHead; d != nullptr;) {
        ModDefer *next = d->pstNext;
        Zos_Free(d);
        d = next;
    }
    *list = ModDeferList{};
}

ModGate *GateNew() {
    auto *gate = static_cast<ModGate *>(Zos_OsdepAlloc(sizeof(ModGate)));
    if (gate == nullptr) return nullptr;
    new (&gate->uiRefs) std::atomic<uint32_t>(1);
    new (&gate->uiInside) std::atomic<uint32_t>(0);
    return gate;
}

void GateRelease(ModGate *gate) {
    if (gate != nullptr && gate->uiRefs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        Zos_OsdepFree(gate);
    }
}

void GateAttach(ModGate *gate, uint32_t task) {
    t_gate = GateThread{gate, task, true, false};
}

void GateDetach() {
    GateThread &g = t_gate;
    if (g.gate == nullptr) return;
    if (g.inside) g.gate->uiInside.fetch_sub(1, std::memory_order_acq_rel);
    GateRelease(g.gate);
    g = GateThread{};
}

bool GateAbandoned() {
    return t_gate.abandoned;
}

uint32_t GateTask() {
    const GateThread &g = t_gate;
    return g.gate != nullptr && !g.abandoned ? g.task : ZOS_INVALID_ID;
}

uint32_t GateHeldHere(const ModGate *gate) {
    const GateThread &g = t_gate;
    return gate != nullptr && g.gate == gate && !g.abandoned ? 1u : 0u;
}

GateScope::GateScope(bool inside) : prev_(t_gate.inside) {
    GateSet(inside);
}

GateScope::~GateScope() {
    GateSet(prev_);
}

}  // namespace zos

extern "C" {

KESTRO_API uint32_t Zos_ModInit(void) {
    ZosEnv *env = zos::Env();
    if (env == nullptr) return ZFAILED;
    ZosModMgr *mgr = &env->stModMgr;
    if (mgr->ucInit != 0) return ZOK;
    *mgr = ZosModMgr{};
    mgr->bThreaded = Zos_CfgGetOsThreadSupt() != 0 && Zos_CfgGetModDrvMode() != 0 ? 1u : 0u;
    mgr->uiCapacity = Zos_CfgGetTaskCount() < 5 ? 5u : Zos_CfgGetTaskCount();
    mgr->uiMgrTaskId = ZOS_INVALID_ID;
    if (Zos_MutexCreate(&mgr->zMutex) != ZOK) return ZFAILED;
    const uint64_t bytes =
        sizeof(ModTable) + static_cast<uint64_t>(mgr->uiCapacity - 1) * sizeof(ModTask);
    void *mem = bytes < 0x7FFFFFFFu ? Zos_MallocClrd(static_cast<int32_t>(bytes)) : nullptr;
    zos::ModGate *gate = mem != nullptr ? zos::GateNew() : nullptr;
    if (gate == nullptr) {
        ZOS_LOG_ERR("ModInit alloc memory.");
        Zos_Free(mem);
        Zos_MutexDelete(&mgr->zMutex);
        return ZFAILED;
    }
    auto *table = static_cast<ModTable *>(mem);
    table->pGate = gate;
    for (uint32_t i = 0; i < mgr->uiCapacity; ++i) {
        ModTask &t = table->astTasks[i];
        t.uiIndex = i;
        t.pGate = gate;
        t.stStart.uiTaskId = ZOS_INVALID_ID;
    }
    mgr->pTasks = table;
    mgr->zMap = Zos_OmapCreate(kFirstTaskId, 0xFFFFFFFEu - kFirstTaskId + 1);
    if (mgr->zMap == nullptr) {
        ZOS_LOG_ERR("ModInit create map.");
        zos::GateRelease(gate);
        Zos_Free(mem);
        Zos_MutexDelete(&mgr->zMutex);
        *mgr = ZosModMgr{};
        return ZFAILED;
    }
    Zos_DlistCreate(&mgr->stTaskList, ZOS_LIST_NO_LIMIT);
    mgr->ucInit = 1;
    // The hub names its own failure; the manager's start names its own and
    // then this step's.
    const bool hub = Zos_ModEhInit() == ZOK;
    if (!hub || Zos_ModMgrStart() != ZOK) {
        if (hub) ZOS_LOG_ERR("ModInit create priority queue.");
        Zos_ModDestroy();
        return ZFAILED;
    }
    Zos_LogInfo(Zos_LogGetZosId(), "module init ok.");
    return ZOK;
}

KESTRO_API void Zos_ModDestroy(void) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr) return;
    Zos_ModMgrStop();
    Zos_ModEhDestroy();
    // Threads of tasks still finishing their last steps hold the gate, and
    // so does the calling thread when it is one of them (shut-down called
    // from a handler or a timer callback).
    ModTable *table = Table(mgr);
    zos::ModGate *gate = table != nullptr ? table->pGate : nullptr;
    const uint32_t here = zos::GateHeldHere(gate);
    bool idle = gate == nullptr || WaitUpTo(2000, 10, [gate, here] {
                    return gate->uiRefs.load(std::memory_order_acquire) == 1 + here;
                });
    if (!idle || here != 0) {
        // Threads still run a callback of the application that the stops
        // gave up waiting for (or could not wait for: the caller's). Closed,
        // the gate turns each away when its callback returns; only threads
        // in the layer's own steps, which end soon, are waited for. Their
        // tasks are then released without their exit callbacks. Should one
        // of those steps not end, the table, map, list and lock are kept
        // for it.
        gate->uiInside.fetch_or(zos::ModGate::kClosed, std::memory_order_acq_rel);
        idle = WaitUpTo(2000, 10, [gate] {
            return (gate->uiInside.load(std::memory_order_acquire) & ~zos::ModGate::kClosed) == 0;
        });
        if (idle) ReleaseLeft(mgr);
    }
    mgr->ucInit = 0;
    if (idle) {
        Zos_Free(table);
        Zos_OmapDelete(static_cast<ZOMAP>(mgr->zMap));
        Zos_DlistDelete(&mgr->stTaskList);
        Zos_MutexDelete(&mgr->zMutex);
    }
    zos::GateRelease(gate);
    *mgr = ZosModMgr{};
}

KESTRO_API uint32_t Zos_ModMgrStart(void) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr) return ZFAILED;
    const uint32_t size = Zos_CfgGetQueueSize() == 0 ? 100u : Zos_CfgGetQueueSize();
    ZPQUEUE q = nullptr;
    if (Zos_PQueueCreate(1, 1, size, size, kLevels, &q) != ZOK) {
        ZOS_LOG_ERR("ModMgrStart create priority queue.");
        return ZFAILED;
    }
    mgr->zQueue = q;
    if (mgr->bThreaded == 0) {
        Zos_LogInfo(Zos_LogGetZosId(), "module manager passive run.");
        return ZOK;
    }
    uint32_t id = ZOS_INVALID_ID;
    if (Zos_TaskSpawn("MOD_MGR", 4, 0, Zos_ModMgrEntry, 0, &id) != ZOK) {
        ZOS_LOG_ERR("ModMgrStart spawn manager task.");
        mgr->zQueue = nullptr;
        Zos_PQueueDelete(q);
        return ZFAILED;
    }
    mgr->uiMgrTaskId = id;
    while (__atomic_load_n(&mgr->ucMgrRun, __ATOMIC_ACQUIRE) == 0) Delay(10);
    Zos_LogInfo(Zos_LogGetZosId(), "module manager active run.");
    return ZOK;
}

KESTRO_API void Zos_ModMgrStop(void) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr) return;
    ModTable *table = Table(mgr);
    for (uint32_t i = mgr->uiCapacity; table != nullptr && i-- > 0;) {
        uint32_t id = ZOS_INVALID_ID;
        bool module = false, threaded = false;
        {
            Lock lock(mgr);
            ModTask &t = table->astTasks[i];
            if (zos::TaskState(&t) == ZOS_TASK_FREE) continue;
            id = t.stStart.uiTaskId;
            module = t.zModule != 0;
            threaded = t.zQueue != nullptr && t.ucHasThread != 0;
        }
        if (!module) {
            if (id == mgr->uiMgrTaskId) PostCtrl(mgr, id, ZOS_MOD_CTRL_STOP);
            Zos_TaskDelete(id);
            continue;
        }
        // A module task is released; one whose loop runs on its own thread
        // is stopped first, since releasing deletes the queue it polls. One
        // of the shared queue waits for its running handler, as a stop
        // does, so that its exit callback runs after it.
        if (threaded && !StopLoop(mgr, id, kStopWaitMs, false)) continue;
        if (!threaded) WaitSharedHandler(mgr, id, kStopWaitMs);
        Zos_ModPutTask(id);
    }
    Zos_LogInfo(Zos_LogGetZosId(), "module all tasks were destroied.");
    {
        Lock lock(mgr);
        zos::DeferFree(MgrDefer(mgr));
    }
    if (mgr->zQueue != nullptr) {
        uintptr_t item = 0;
        while (Zos_PQueuePoll(mgr->zQueue, 0, nullptr, &item) == ZOK) DropQueued(item);
        Zos_PQueueDelete(mgr->zQueue);
        mgr->zQueue = nullptr;
    }
    mgr->uiMgrTaskId = ZOS_INVALID_ID;
}

KESTRO_API uint32_t Zos_ModMgrEntry(ST_ZOS_TASK_START *pstStart) {
    // The loop is the layer's own code; the handlers it calls are not.
    zos::GateScope lib(true);
    if (zos::GateAbandoned()) return ZFAILED;
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr || pstStart == nullptr) return ZFAILED;
    __atomic_store_n(&mgr->ucMgrRun, 1, __ATOMIC_RELEASE);
    void *q = mgr->zQueue;
    const uint32_t self = pstStart->uiTaskId;
    // Ends on a stop request, and also once the record is released: a
    // delete that gave up waiting releases it, and then the shared queue
    // goes too.
    for (;;) {
        const uint32_t state = __atomic_load_n(&pstStart->uiState, __ATOMIC_ACQUIRE);
        if (state == ZOS_TASK_WAIT_DELETE || state == ZOS_TASK_FREE) break;
        uint32_t level = kLevels;
        uintptr_t item = 0;
        if (Zos_PQueuePoll(q, 1, &level, &item) != ZOK) continue;
        if (const uint32_t *ctrl = zos::CtrlOf(item)) {
            const uint32_t code = __atomic_load_n(&ctrl[2], __ATOMIC_ACQUIRE);
            const uint32_t id = __atomic_load_n(&ctrl[1], __ATOMIC_RELAXED);
            if (code == ZOS_MOD_CTRL_STOP && id == self) break;
            if (code == ZOS_MOD_CTRL_STOP) EndSharedTask(mgr, id);
            continue;
        }
        Dispatch(mgr, reinterpret_cast<ZMSG>(item));
        if (zos::GateAbandoned()) return ZOK;
        Zos_ModDriveEvnt();
        if (zos::GateAbandoned()) return ZOK;
    }
    __atomic_store_n(&mgr->ucMgrRun, 0, __ATOMIC_RELEASE);
    return ZOK;
}

KESTRO_API uint32_t Zos_ModGetTask(const char *pcName, uint32_t uiPriority) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr) return ZOS_INVALID_ID;
    Lock lock(mgr);
    const bool named = pcName != nullptr && pcName[0] != '\0';
    if (named) {
        if (auto *other = static_cast<ModTask *>(Zos_ModFindTaskX(pcName))) {
            ZOS_LOG_ERR("task<%s:%u> already exist.", pcName, other->stStart.uiTaskId);
            return ZOS_INVALID_ID;
        }
    }
    ModTable *table = Table(mgr);
    ModTask *t = nullptr;
    for (uint32_t i = 0; i < mgr->uiCapacity; ++i) {
        if (zos::TaskState(&table->astTasks[i]) == ZOS_TASK_FREE) {
            t = &table->astTasks[i];
            break;
        }
    }
    if (t == nullptr) {
        ZOS_LOG_ERR("module no free task memory.");
        return ZOS_INVALID_ID;
    }
    const uint32_t pri = Clamp(uiPriority);
    // Before the first task of a greater priority number: equal
    // priorities keep their order of arrival.
    ST_ZOS_DLIST_NODE *after = mgr->stTaskList.pstTail;
    for (ST_ZOS_DLIST_NODE *n = mgr->stTaskList.pstHead; n != nullptr; n = n->pstNext) {
        if (reinterpret_cast<ModTask *>(n)->ucPriority > pri) {
            after = n->pstPrev;
            break;
        }
    }
    if (Zos_DlistInsert(&mgr->stTaskList, after, &t->stLink) != ZOK) {
        ZOS_LOG_ERR("task<%s> insert.", named ? pcName : "");
        return ZOS_INVALID_ID;
    }
    uint32_t id = ZOS_INVALID_ID;
    if (Zos_OmapAdd(static_cast<ZOMAP>(mgr->zMap), t, &id) != ZOK) {
        Zos_DlistRemove(&mgr->stTaskList, &t->stLink);
        ZOS_LOG_ERR("module no free task memory.");
        return ZOS_INVALID_ID;
    }
    t->ucPriority = static_cast<uint8_t>(pri);
    t->uiQueueSize = t->uiQueuePeak = t->uiTimerCount = t->uiTimerPeak = 0;
    t->stDefer = ModDeferList{};
    if (named) {
        Zos_NStrCpy(t->acName, sizeof(t->acName), pcName);
    } else {
        Zos_SNPrintf(t->acName, static_cast<int32_t>(sizeof(t->acName)), "TASK%02d",
                     static_cast<int>(t->uiIndex));
    }
    __atomic_store_n(&t->stStart.uiTaskId, id, __ATOMIC_RELAXED);
    zos::TaskSetState(t, ZOS_TASK_READY);
    Zos_LogInfo(Zos_LogGetZosId(), "task<%s:%u> alloc ok.", t->acName, id);
    return id;
}

KESTRO_API uint32_t Zos_ModPutTask(uint32_t uiTaskId) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr) return ZFAILED;
    Lock lock(mgr);
    ModTask *t = zos::TaskFind(mgr, uiTaskId);
    if (t == nullptr) return ZFAILED;
    Release(mgr, t);
    return ZOK;
}

KESTRO_API void *Zos_ModFindTask(uint32_t uiTaskId) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr) return nullptr;
    Lock lock(mgr);
    return zos::TaskFind(mgr, uiTaskId);
}

KESTRO_API void *Zos_ModFindTaskX(const char *pcName) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr || pcName == nullptr) return nullptr;
    Lock lock(mgr);
    for (ST_ZOS_DLIST_NODE *n = mgr->stTaskList.pstHead; n != nullptr; n = n->pstNext) {
        auto *t = reinterpret_cast<ModTask *>(n);
        if (zos::TaskState(t) != ZOS_TASK_FREE && std::strcmp(t->acName, pcName) == 0) return t;
    }
    return nullptr;
}

KESTRO_API uint32_t Zos_ModLocateTask(uint32_t uiTaskId, void **ppTask) {
    if (ppTask == nullptr) return ZFAILED;
    *ppTask = Zos_ModFindTask(uiTaskId);
    return *ppTask != nullptr ? ZOK : ZFAILED;
}

KESTRO_API uint32_t Zos_ModLock(void) {
    ZosModMgr *mgr = zos::ModMgr();
    return mgr != nullptr ? Zos_MutexLock(&mgr->zMutex) : ZFAILED;
}

KESTRO_API uint32_t Zos_ModUnlock(void) {
    ZosModMgr *mgr = zos::ModMgr();
    return mgr != nullptr ? Zos_MutexUnlock(&mgr->zMutex) : ZFAILED;
}

KESTRO_API uint32_t Zos_ModTaskStart(const char *pcName, uint32_t uiPriority, uint32_t uiQueueSize,
                                     uint32_t uiStackSize, uint32_t bMainThread,
                                     PFN_ZOS_MOD_INIT pfnInit, PFN_ZOS_TASK_EXIT pfnExit,
                                     PFN_ZOS_MOD_ENTRY pfnEntry, uint32_t *puiTaskId) {
    if (puiTaskId != nullptr) *puiTaskId = ZOS_INVALID_ID;
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr || pfnEntry == nullptr) return ZFAILED;
    const char *shown = pcName != nullptr ? pcName : "";
    const uint32_t pri = Clamp(uiPriority);
    const bool threads = Zos_CfgGetOsThreadSupt() != 0;
    const bool ownThread = bMainThread == 0 && threads;
    if (bMainThread != 0 && !threads) {
        ZOS_LOG_WARN("task<%s> driven by main thread.", shown);
    }
    if (bMainThread == 0 && !threads && zos::Osdep<zos::kSlotModPostDrv>() == nullptr) {
        ZOS_LOG_WARN("Please set ModPostDrv when no thread supporting.");
        return ZFAILED;
    }
    const uint32_t id = Zos_ModGetTask(pcName, pri);
    if (id == ZOS_INVALID_ID) return ZFAILED;
    char name[ZOS_TASK_NAME_MAX + 1];
    {
        Lock lock(mgr);
        ModTask *t = zos::TaskFind(mgr, id);
        std::memcpy(name, t->acName, sizeof(name));
        if (ownThread) {
            const uint32_t size = uiQueueSize == 0 ? 10u : uiQueueSize;
            ZPQUEUE q = nullptr;
            if (Zos_PQueueCreate(1, 1, size, size, kLevels, &q) != ZOK) {
                ZOS_LOG_ERR("module create priority queue.");
                Release(mgr, t);
                return ZFAILED;
            }
            t->zQueue = q;
        }
        if (Zos_MutexCreate(&t->zMutex) == ZOK) t->ucTaskLock = 1;
    }
    if (puiTaskId != nullptr) *puiTaskId = id;
    if (pfnInit != nullptr && pfnInit(name, id) != ZOK) {
        ZOS_LOG_ERR("module task<%s> init failed.", name);
        Zos_ModPutTask(id);
        if (puiTaskId != nullptr) *puiTaskId = ZOS_INVALID_ID;
        return ZFAILED;
    }
    ModTask *t = nullptr;
    {
        Lock lock(mgr);
        t = zos::TaskFind(mgr, id);
        if (t == nullptr) return ZFAILED;
        zos::TaskSetState(t, ZOS_TASK_PENDING);
        t->zModule = reinterpret_cast<uintptr_t>(pfnEntry);
        t->pfnExit = pfnExit;
    }
    if (ownThread && Zos_TaskSpawnX(t, uiStackSize, Zos_ModTaskEntry) != ZOK) {
        ZOS_LOG_ERR("module spawn task failed.");
        {
            Lock lock(mgr);
            if (ModTask *again = zos::TaskFind(mgr, id)) again->pfnExit = nullptr;
        }
        Zos_ModPutTask(id);
        if (puiTaskId != nullptr) *puiTaskId = ZOS_INVALID_ID;
        return ZFAILED;
    }
    Zos_LogInfo(Zos_LogGetZosId(), "task<%s:%u> module start ok.", name, id);
    return ZOK;
}

KESTRO_API uint32_t Zos_ModTaskStop(uint32_t uiTaskId) {
    return ModStop(uiTaskId, 0xFFFFFFFFu);
}

KESTRO_API uint32_t Zos_ModTaskWaitStop(uint32_t uiTaskId, uint32_t uiSeconds) {
    const uint64_t ms = static_cast<uint64_t>(uiSeconds) * 1000u;
    return ModStop(uiTaskId, ms >= 0xFFFFFFFFu ? 0xFFFFFFFEu : static_cast<uint32_t>(ms));
}

KESTRO_API uint32_t Zos_ModTaskCease(uint32_t uiTaskId) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr) return ZFAILED;
    bool threaded = false;
    {
        Lock lock(mgr);
        ModTask *t = zos::TaskFind(mgr, uiTaskId);
        if (t == nullptr) return ZFAILED;
        if (t->zModule == 0) return Zos_TaskCease(uiTaskId);
        threaded = t->zQueue != nullptr && t->ucHasThread != 0;
        Zos_LogInfo(Zos_LogGetZosId(), "task<%s:%u> module cease ok.", t->acName, uiTaskId);
    }
    if (!threaded) return Zos_ModPutTask(uiTaskId);
    // The loop is told to stop and not waited for; its thread releases the
    // record when the loop has ended (releasing it here would delete the
    // queue the loop polls).
    PostCtrl(mgr, uiTaskId, ZOS_MOD_CTRL_STOP);
    Lock lock(mgr);
    if (ModTask *t = zos::TaskFind(mgr, uiTaskId)) MarkStopping(t);
    return ZOK;
}

KESTRO_API uint32_t Zos_ModTaskPause(uint32_t uiTaskId, uint32_t bResume) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr) return ZFAILED;
    {
        Lock lock(mgr);
        ModTask *t = zos::TaskFind(mgr, uiTaskId);
        if (t == nullptr) return ZFAILED;
        if (t->zQueue == nullptr) return ZOK;
    }
    return PostCtrl(mgr, uiTaskId, bResume != 0 ? ZOS_MOD_CTRL_RESUME : ZOS_MOD_CTRL_PAUSE);
}

KESTRO_API uint32_t Zos_ModTaskIsRun(uint32_t uiTaskId) {
    const uint32_t st = Zos_TaskGetState(uiTaskId);
    return st >= ZOS_TASK_READY && st <= ZOS_TASK_RUNNING ? 1u : 0u;
}

KESTRO_API uint32_t Zos_ModTaskEntry(ST_ZOS_TASK_START *pstStart) {
    // The loop is the layer's own code; the handlers it calls are not.
    zos::GateScope lib(true);
    if (zos::GateAbandoned()) return ZFAILED;
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr || pstStart == nullptr) return ZFAILED;
    const uint32_t id = pstStart->uiTaskId;
    void *q = nullptr;
    ModTask *self = nullptr;
    char name[ZOS_TASK_NAME_MAX + 1] = {};
    {
        Lock lock(mgr);
        ModTask *t = zos::TaskFind(mgr, id);
        if (t == nullptr || t->zQueue == nullptr) {
            ZOS_LOG_ERR("ModTaskEntry invalid task<%d>.", static_cast<int>(id));
            return ZFAILED;
        }
        self = t;
        q = t->zQueue;
        std::memcpy(name, t->acName, sizeof(name));
    }
    // The queue stays until the record is released, which waits for this
    // loop to end.
    uint32_t pollLevel = kLevels;
    for (;;) {
        if (__atomic_load_n(&pstStart->uiState, __ATOMIC_ACQUIRE) == ZOS_TASK_WAIT_DELETE) {
            Zos_LogInfo(Zos_LogGetZosId(), "ModTaskEntry wait deleted task %s.", name);
            break;
        }
        uint32_t level = pollLevel;
        uintptr_t item = 0;
        if (Zos_PQueuePoll(q, 1, &level, &item) != ZOK) continue;
        if (const uint32_t *ctrl = zos::CtrlOf(item)) {
            const uint32_t code = __atomic_load_n(&ctrl[2], __ATOMIC_ACQUIRE);
            if (code == ZOS_MOD_CTRL_STOP) break;
            if (code == ZOS_MOD_CTRL_RESUME) pollLevel = kLevels;
            if (code == ZOS_MOD_CTRL_PAUSE) pollLevel = 0;
            continue;
        }
        if (DispatchOwn(mgr, self, reinterpret_cast<ZMSG>(item)) < 0) pollLevel = kLevels;
        if (zos::GateAbandoned()) return ZOK;
    }
    PFN_ZOS_TASK_EXIT onExit = nullptr;
    {
        Lock lock(mgr);
        if (ModTask *t = zos::TaskFind(mgr, id)) {
            if (t->zModule != 0) {
                onExit = t->pfnExit;
                t->pfnExit = nullptr;
            }
        }
    }
    if (onExit != nullptr) {
        zos::GateScope user(false);
        onExit(name, id);
    }
    if (zos::GateAbandoned()) return ZOK;
    {
        Lock lock(mgr);
        if (ModTask *t = zos::TaskFind(mgr, id)) zos::TaskSetState(t, ZOS_TASK_DELETED);
    }
    Zos_LogInfo(Zos_LogGetZosId(), "ModTaskEntry set task %s delete.", name);
    return ZOK;
}

KESTRO_API uint32_t Zos_ModTaskLock(uint32_t uiTaskId) {
    return OnTaskMutex(uiTaskId, Zos_MutexLock);
}

KESTRO_API uint32_t Zos_ModTaskUnlock(uint32_t uiTaskId) {
    return OnTaskMutex(uiTaskId, Zos_MutexUnlock);
}

#define ZOS_MOD_STATE_SETTER(name, state)          \
    KESTRO_API uint32_t name(uint32_t uiTaskId) {  \
        ZosModMgr *mgr = zos::ModMgr();            \
        if (mgr == nullptr) return ZFAILED;        \
        Lock lock(mgr);                            \
        ModTask *t = zos::TaskFind(mgr, uiTaskId); \
        if (t == nullptr) return ZFAILED;          \
        zos::TaskSetState(t, state);               \
        return ZOK;                                \
    }
ZOS_MOD_STATE_SETTER(Zos_ModTaskSetReady, ZOS_TASK_READY)
ZOS_MOD_STATE_SETTER(Zos_ModTaskSetRuning, ZOS_TASK_RUNNING)
ZOS_MOD_STATE_SETTER(Zos_ModTaskSetWaitDelete, ZOS_TASK_WAIT_DELETE)
ZOS_MOD_STATE_SETTER(Zos_ModTaskSetDelete, ZOS_TASK_DELETED)
#undef ZOS_MOD_STATE_SETTER

KESTRO_API PFN_ZOS_MOD_ENTRY Zos_ModTaskGetEntry(uint32_t uiTaskId) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr) return nullptr;
    Lock lock(mgr);
    ModTask *t = zos::TaskFind(mgr, uiTaskId);
    return t != nullptr ? reinterpret_cast<PFN_ZOS_MOD_ENTRY>(t->zModule) : nullptr;
}

KESTRO_API uint32_t Zos_ModTaskNtfyDelete(uint32_t uiTaskId) {
    ZosModMgr *mgr = zos::ModMgr();
    return mgr != nullptr ? PostCtrl(mgr, uiTaskId, ZOS_MOD_CTRL_STOP) : ZFAILED;
}

KESTRO_API uint32_t Zos_ModPostMsg(void *zMsg) {
    return Post(zMsg, false, 0, "ModPostMsg task<%s> <0x%x> ---> task<%s> <0x%x>.",
                "ModPostMsg invalid recv task.");
}

KESTRO_API uint32_t Zos_ModPostMsgX(void *zMsg, uint32_t uiPriority) {
    return Post(zMsg, true, uiPriority, "ModPostMsgX task<%s> <0x%x> ---> task<%s> <0x%x>.",
                "ModPostMsgX invalid recv task.");
}

KESTRO_API uint32_t Zos_ModDriveMsg(void) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr || mgr->bThreaded != 0 || mgr->zQueue == nullptr) return ZFAILED;
    __atomic_store_n(&mgr->uiSilence, 0, __ATOMIC_SEQ_CST);
    uintptr_t item = 0;
    if (Zos_PQueuePoll(mgr->zQueue, 0, nullptr, &item) == ZOK) {
        if (const uint32_t *ctrl = zos::CtrlOf(item)) {
            if (__atomic_load_n(&ctrl[2], __ATOMIC_ACQUIRE) == ZOS_MOD_CTRL_STOP) {
                EndSharedTask(mgr, __atomic_load_n(&ctrl[1], __ATOMIC_RELAXED));
            }
        } else {
            auto msg = reinterpret_cast<ZMSG>(item);
            const uint32_t recv = Zos_MsgGetRecvTaskId(msg);
            PFN_ZOS_MOD_ENTRY entry = nullptr;
            Zos_ModDriveStart(recv, &entry);
            Dispatch(mgr, msg);
            Zos_ModDriveStop(recv);
        }
    }
    Zos_ModDriveEvnt();
    if (Zos_PQueueGetBusyCount(mgr->zQueue) != 0) RequestDrive();
    return ZOK;
}

KESTRO_API uint32_t Zos_ModDriveStart(uint32_t uiTaskId, PFN_ZOS_MOD_ENTRY *ppfnEntry) {
    if (ppfnEntry != nullptr) *ppfnEntry = nullptr;
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr) return ZFAILED;
    Lock lock(mgr);
    ModTask *t = zos::TaskFind(mgr, uiTaskId);
    if (t == nullptr) return ZFAILED;
    if (!zos::TaskMoveState(t, ZOS_TASK_READY, ZOS_TASK_RUNNING) &&
        !zos::TaskMoveState(t, ZOS_TASK_PENDING, ZOS_TASK_RUNNING)) {
        zos::TaskMoveState(t, ZOS_TASK_WAIT_DELETE, ZOS_TASK_DELETED);
    }
    if (ppfnEntry != nullptr) *ppfnEntry = reinterpret_cast<PFN_ZOS_MOD_ENTRY>(t->zModule);
    return ZOK;
}

KESTRO_API uint32_t Zos_ModDriveStop(uint32_t uiTaskId) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr) return ZFAILED;
    Lock lock(mgr);
    ModTask *t = zos::TaskFind(mgr, uiTaskId);
    if (t == nullptr) return ZFAILED;
    zos::TaskMoveState(t, ZOS_TASK_RUNNING, ZOS_TASK_READY);
    return ZOK;
}

KESTRO_API uint32_t Zos_ModDriveEvnt(void) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr) return ZFAILED;
    zos::DeferRun(MgrDefer(mgr), &mgr->zMutex);
    return ZOK;
}

KESTRO_API uint32_t Zos_ModLeaveEvnt(uint32_t uiTaskId, PFN_ZOS_MOD_LEAVE pfnFunc, uintptr_t zArg,
                                     const void *pData, uint32_t uiLen) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr || pfnFunc == nullptr || (pData == nullptr && uiLen != 0) ||
        uiLen > 0x7FFFFFFFu - sizeof(ModDefer)) {
        return ZFAILED;
    }
    auto *d = static_cast<ModDefer *>(Zos_Malloc(static_cast<uint32_t>(sizeof(ModDefer) + uiLen)));
    if (d == nullptr) return ZFAILED;
    d->pfnFunc = pfnFunc;
    d->zArg = zArg;
    d->uiLen = uiLen;
    if (uiLen != 0) std::memcpy(d + 1, pData, uiLen);
    // Every deferred list is kept under the module lock: taking a task's
    // lock inside it would invert the order in which a perform, holding
    // the task lock, posts under the module lock.
    Lock lock(mgr);
    ModTask *t = zos::TaskFind(mgr, uiTaskId);
    if (t != nullptr && t->zQueue != nullptr) {
        DeferPush(&t->stDefer, d);
        __atomic_store_n(&t->uiDeferPending, 1, __ATOMIC_RELEASE);
    } else {
        DeferPush(MgrDefer(mgr), d);
    }
    return ZOK;
}

KESTRO_API uint32_t Zos_ModSilence(void) {
    ZosModMgr *mgr = zos::ModMgr();
    if (mgr == nullptr) return ZFAILED;
    if (mgr->bThreaded == 0 && __atomic_load_n(&mgr->uiBusy, __ATOMIC_SEQ_CST) == 0) {
        __atomic_store_n(&mgr->uiSilence, 1, __ATOMIC_SEQ_CST);
    }
    return ZOK;
}

}  // extern "C"
