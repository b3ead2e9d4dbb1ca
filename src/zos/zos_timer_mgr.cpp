// Timer managers: the self manager, whose task "TIMER" sleeps until the
// soonest expiry, and the OS manager, stepped by the platform's one-shot
// timer through the host loop and its module task "TIMEROS"; the
// running-count bookkeeping that wakes the one and arms the other; the
// timers of both, and the timeout event.
#include <atomic>
#include <cstddef>
#include <cstring>

#include "zos_cfg.h"
#include "zos_env.h"
#include "zos_gate.h"
#include "zos_evnt.h"
#include "zos_mod.h"
#include "zos_msg.h"
#include "zos_osdep.h"
#include "zos_task.h"
#include "zos_time.h"
#include "zos_timer.h"
#include "zos_timer_int.h"
#include "zos_util.h"

namespace {

// The two manager records, running or not; each call takes a use of one.
ZosTmrMgr *SelfMgr() {
    ZosEnv *env = zos::EnvIfAny();
    return env != nullptr ? &env->stTmrMgr : nullptr;
}

ZosTmrMgr *OsMgr() {
    ZosEnv *env = zos::EnvIfAny();
    return env != nullptr ? &env->stOsTmrMgr : nullptr;
}

std::atomic_ref<uint32_t> Users(ZosTmrMgr *mgr) {
    return std::atomic_ref<uint32_t>(mgr->uiUsers);
}

std::atomic_ref<uint8_t> Flag(uint8_t &flag) {
    return std::atomic_ref<uint8_t>(flag);
}

// Uses this thread holds, by manager (there are two managers).
struct HeldUses {
    ZosTmrMgr *mgr;
    uint32_t count;
};
thread_local HeldUses t_held[2];

HeldUses *HeldOf(ZosTmrMgr *mgr) {
    for (HeldUses &h : t_held) {
        if (h.count != 0 && h.mgr == mgr) return &h;
    }
    return nullptr;
}

// Closes a manager to new uses and waits until the uses of other threads
// have ended. The increment of a use comes before its look at the flag,
// and the flag is set before the count is read, both sequentially
// consistent: either the use sees the close, or the close sees the use.
// A use held by this very thread (a timer callback stopping the timer
// task) cannot be waited for. The timer task's loop, which holds a use for
// its whole run, ends when it sees the close: it is woken for that, since a
// task delete that gave up waiting leaves the loop running.
void CloseAndDrain(ZosTmrMgr *mgr) {
    Flag(mgr->ucClosing).store(1);
    if (mgr->ucSemMade != 0) Zos_SemPost(&mgr->zSem);
    const HeldUses *own = HeldOf(mgr);
    const uint32_t mine = own != nullptr ? own->count : 0;
    while (Users(mgr).load() > mine) Zos_TaskDelay(1);
}

// Clears a manager's fields, not its gate.
void ClearMgr(ZosTmrMgr *mgr) {
    std::memset(mgr, 0, offsetof(ZosTmrMgr, ucClosing));
}

// Arms, re-arms or stops the platform timer for the soonest expiry; under
// the manager's mutex.
void Arm(ZosTmrMgr *mgr) {
    if (mgr->uiRealNum == 0) {
        if (mgr->uiArmedLen != 0) {
            if (auto stop = zos::Osdep<zos::kSlotTimerStop>()) stop();
            mgr->uiArmedLen = 0;
        }
        return;
    }
    const uint32_t len = Zos_QTimerTmrGetDrvLen(mgr->pQTimer);
    const uint32_t armed = mgr->uiArmedLen;
    if (armed != 0 && len < armed) {
        if (auto stop = zos::Osdep<zos::kSlotTimerStop>()) stop();
    }
    if (armed == 0 || len < armed) {
        auto start = zos::Osdep<zos::kSlotTimerStart>();
        if (start != nullptr && start(len, Zos_TimerModDriven) == ZOK) {
            mgr->uiArmedLen = len;
        } else {
            mgr->uiArmedLen = 0;
        }
    }
}

// How long the timer task may sleep: until the soonest expiry, but at
// least until the next tick when it is already due (a timer of 0 ticks
// fires at the next processing, as it would with a tick-by-tick poll).
uint32_t SleepMs(ZosTmrMgr *mgr) {
    bool any = false;
    const uint64_t head = zos::TimerSoonestTick(mgr->pQTimer, &any);
    if (!any) return ZOS_TIMER_TICK_MS;
    const uint64_t nowNs = Zos_GetHrTime();
    const uint64_t nowTick = nowNs / ZOS_TIMER_TICK_NS;
    const uint64_t target = head > nowTick ? head : nowTick + 1;
    const uint64_t ns = target * ZOS_TIMER_TICK_NS - nowNs;
    const uint64_t ms = (ns + 999999u) / 1000000u;
    return ms >= ZOS_WAIT_FOREVER ? ZOS_WAIT_FOREVER - 1 : static_cast<uint32_t>(ms);
}

// Stops the timer task: asks it to stop, wakes it, and waits for it.
void StopSelfTask(ZosTmrMgr *mgr) {
    if (mgr->uiTaskId == ZOS_INVALID_ID) return;
    const uint32_t id = mgr->uiTaskId;
    Zos_TaskCease(id);
    if (mgr->ucSemMade != 0) Zos_SemPost(&mgr->zSem);
    Zos_TaskDelete(id);
    mgr->uiTaskId = ZOS_INVALID_ID;
}

void ReleaseParts(ZosTmrMgr *mgr) {
    if (mgr->pQTimer != nullptr) Zos_QTimerDelete(mgr->pQTimer);
    mgr->pQTimer = nullptr;
    if (mgr->ucSemMade != 0) Zos_SemDelete(&mgr->zSem);
    mgr->ucSemMade = 0;
}

uint32_t InitMgr(ZosTmrMgr *mgr, bool os) {
    ClearMgr(mgr);
    mgr->ucSelfDrv = os ? 0 : 1;
    mgr->ucOsDrv = os ? 1 : 0;
    mgr->ucIsOs = os ? 1 : 0;
    mgr->uiTaskId = ZOS_INVALID_ID;
    if (os) {
        Zos_LogInfo(Zos_LogGetZosId(), "TimerInit OsTaskDrv = %d.", mgr->ucOsDrv);
    } else {
        Zos_LogInfo(Zos_LogGetZosId(), "TimerInit SelfTaskDrv = %d.", mgr->ucSelfDrv);
    }
    if (Zos_MutexCreate(&mgr->zMutex) != ZOK) {
        ZOS_LOG_ERR(os ? "Os TimerInit create mutex." : "TimerInit create mutex.");
        return ZFAILED;
    }
    mgr->ucMutexMade = 1;
    Flag(mgr->ucInit).store(1);
    if (Zos_TimerTaskStart(mgr) != ZOK) {
        ZOS_LOG_ERR(os ? "Os TimerInit start task." : "TimerInit start task.");
        Flag(mgr->ucInit).store(0);
        Zos_MutexDelete(&mgr->zMutex);
        ClearMgr(mgr);
        return ZFAILED;
    }
    Zos_LogInfo(Zos_LogGetZosId(),
                os ? "TimerInit init Os timer ok." : "TimerInit init self timer ok.");
    return ZOK;
}

void DestroyMgr(ZosTmrMgr *mgr) {
    if (Flag(mgr->ucInit).load() == 0) return;
    // Leaves the manager closed and drained.
    Zos_TimerTaskStop(mgr);
    // Nothing finds the manager from here on.
    Flag(mgr->ucInit).store(0);
    if (mgr->ucMutexMade != 0) Zos_MutexDelete(&mgr->zMutex);
    ClearMgr(mgr);
}

// ---------------------------------------------------------------------
// Timers of one manager; `x` names the texts of the X forms.

uint32_t Create(ZosTmrMgr *mgr, uint32_t task, uint32_t flags, uint32_t type, uintptr_t parm,
                PFN_ZOS_TIMER_CB cb, uint32_t *id) {
    if (id != nullptr) *id = ZOS_INVALID_ID;
    if (mgr == nullptr || id == nullptr) return ZFAILED;
    if (Zos_QTimerTmrCreateX(mgr->pQTimer, task, flags, type, parm, cb, id) != ZOK) {
        ZOS_LOG_ERR("TimerCreate create timer node.");
        *id = ZOS_INVALID_ID;
        return ZFAILED;
    }
    Zos_LogDbg(Zos_LogGetZosId(), "TimerCreate create timer: %p.",
               reinterpret_cast<void *>(static_cast<uintptr_t>(*id)));
    return ZOK;
}

uint32_t Start(ZosTmrMgr *mgr, uint32_t id, uint32_t type, uint32_t ms, uintptr_t parm,
               PFN_ZOS_TIMER_CB cb) {
    if (ms == 0) {
        ZOS_LOG_ERR("TimerStart timer length is 0.");
        return ZFAILED;
    }
    if (ms < ZOS_TIMER_TICK_MS) {
        ZOS_LOG_WARN("TimerStart time len(%ums) too short.", ms);
        ms = ZOS_TIMER_TICK_MS;
    }
    if (mgr == nullptr ||
        Zos_QTimerTmrStart(mgr->pQTimer, id, type, ms / ZOS_TIMER_TICK_MS, parm, cb) != ZOK) {
        ZOS_LOG_ERR("TimerStart start timer.");
        return ZFAILED;
    }
    return ZOK;
}

// Deliberately unlike Start: 1..9 ms stay 0 ticks.
uint32_t StartX(ZosTmrMgr *mgr, uint32_t id, uint32_t ms) {
    if (ms == 0) {
        ZOS_LOG_ERR("TimerStartX timer length is 0.");
        return ZFAILED;
    }
    if (ms < ZOS_TIMER_TICK_MS) ZOS_LOG_WARN("TimerStartX time len(%ums) too short.", ms);
    const uint32_t ticks = ms / ZOS_TIMER_TICK_MS;
    const uint32_t rc = mgr == nullptr     ? ZFAILED
                        : mgr->ucIsOs != 0 ? Zos_QTimerOsTmrStartX(mgr->pQTimer, id, ticks)
                                           : Zos_QTimerTmrStartX(mgr->pQTimer, id, ticks);
    if (rc != ZOK) {
        ZOS_LOG_ERR("TimerStartX start timer.");
        return ZFAILED;
    }
    return ZOK;
}

uint32_t Stop(ZosTmrMgr *mgr, uint32_t id) {
    if (mgr == nullptr || Zos_QTimerTmrGetState(mgr->pQTimer, id) != ZOS_TIMER_STATE_RUN) {
        return ZOK;
    }
    if (Zos_QTimerTmrStop(mgr->pQTimer, id) != ZOK) {
        ZOS_LOG_ERR("TimerStop stop qtimer.");
        return ZFAILED;
    }
    return ZOK;
}

uint32_t TaskIdOf(ZosTmrMgr *mgr, uint32_t id);

}  // namespace

namespace zos {

ZosTmrMgr *TimerMgrOf(void *p) {
    ZosEnv *env = EnvIfAny();
    if (p == nullptr || env == nullptr) return nullptr;
    if (p == &env->stTmrMgr || p == &env->stOsTmrMgr) return static_cast<ZosTmrMgr *>(p);
    return nullptr;
}

TimerMgrUse::TimerMgrUse(ZosTmrMgr *mgr) {
    if (mgr == nullptr) return;
    HeldUses *held = HeldOf(mgr);
    Users(mgr).fetch_add(1);
    if (held == nullptr) {
        for (HeldUses &h : t_held) {
            if (h.count == 0) {
                held = &h;
                break;
            }
        }
        // No slot left only when a thread still inside the managers of a
        // layer that was shut down and started again reaches the new ones:
        // refused like a closed manager.
        if (held == nullptr || Flag(mgr->ucClosing).load() != 0 || Flag(mgr->ucInit).load() == 0) {
            Users(mgr).fetch_sub(1);
            return;
        }
        held->mgr = mgr;
    }
    held->count++;
    mgr_ = mgr;
}

TimerMgrUse::~TimerMgrUse() {
    if (mgr_ == nullptr) return;
    HeldOf(mgr_)->count--;
    Users(mgr_).fetch_sub(1);
}

void TimerMgrUse::Dismiss() {
    if (mgr_ == nullptr) return;
    HeldOf(mgr_)->count--;
    mgr_ = nullptr;
}

void TimerStarted(ZosTmrMgr *mgr, bool head) {
    MutexGuard lock(&mgr->zMutex);
    const uint32_t n = ++mgr->uiRealNum;
    // The task sleeps without limit while nothing runs, and otherwise
    // until the soonest expiry it knew of: a new soonest timer wakes it.
    if (mgr->ucSelfDrv != 0 && mgr->ucSemMade != 0 && (n == 1 || head)) Zos_SemPost(&mgr->zSem);
    if (mgr->ucOsDrv != 0) Arm(mgr);
}

void TimerTaskCountInc(uint32_t task) {
    if (task != ZOS_INVALID_ID) Zos_TaskTimerCountInc(task);
}

void TimerTaskCountDec(uint32_t task) {
    if (task != ZOS_INVALID_ID) Zos_TaskTimerCountDec(task);
}

uint32_t TimerSendTimeout(uint32_t from, uint32_t to, uint32_t id, uint32_t type, uintptr_t parm) {
    ZEVNT ev = Zos_EvntCreate();
    if (ev == nullptr) return ZFAILED;
    if (Zos_TimerEvntSetId(ev, id) != ZOK || Zos_TimerEvntSetType(ev, type) != ZOK ||
        Zos_TimerEvntSetParm(ev, parm) != ZOK) {
        Zos_EvntDelete(ev);
        return ZFAILED;
    }
    // The message takes the event over: a failed post deletes both.
    ZMSG msg = Zos_MsgCreateE(ev, from, to, ZOS_TIMER_MSG_TYPE);
    if (msg == nullptr) {
        Zos_EvntDelete(ev);
        return ZFAILED;
    }
    return Zos_MsgSend(msg);
}

}  // namespace zos

extern "C" {

// ---------------------------------------------------------------------
// Managers

KESTRO_API uint32_t Zos_TimerInit(void) {
    ZosEnv *env = zos::Env();
    if (env == nullptr) return ZFAILED;
    if (env->stTmrMgr.ucInit != 0 || env->stOsTmrMgr.ucInit != 0) return ZOK;
    if (InitMgr(&env->stTmrMgr, false) != ZOK) return ZFAILED;
    if (InitMgr(&env->stOsTmrMgr, true) != ZOK) return ZFAILED;
    return ZOK;
}

KESTRO_API void Zos_TimerDestroy(void) {
    ZosEnv *env = zos::EnvIfAny();
    if (env == nullptr) return;
    DestroyMgr(&env->stOsTmrMgr);
    DestroyMgr(&env->stTmrMgr);
}

KESTRO_API uint32_t Zos_TimerTaskStart(void *pMgr) {
    auto *mgr = zos::TimerMgrOf(pMgr);
    if (mgr == nullptr || Flag(mgr->ucInit).load() == 0) return ZFAILED;
    // Open again after a stop.
    Flag(mgr->ucClosing).store(0);
    const int32_t prio = Zos_CfgGetTimerTaskPriority();
    const uint32_t priority = prio < 0 ? 4u : static_cast<uint32_t>(prio);
    if (mgr->ucSelfDrv != 0) {
        if (Zos_SemCreate(&mgr->zSem, 0) != ZOK) {
            ZOS_LOG_ERR("TimerTaskStart create semaphore.");
            return ZFAILED;
        }
        mgr->ucSemMade = 1;
        if (Zos_QTimerCreate(&mgr->pQTimer, static_cast<int32_t>(Zos_CfgGetTimerCount())) != ZOK) {
            ZOS_LOG_ERR("TimerTaskStart create queue timer.");
            ReleaseParts(mgr);
            return ZFAILED;
        }
        zos::TimerQueueSetMgr(mgr->pQTimer, mgr);
        uint32_t id = ZOS_INVALID_ID;
        if (Zos_TaskSpawn("TIMER", priority, 0, Zos_TimerTaskEntry, 0, &id) != ZOK) {
            ZOS_LOG_ERR("TimerTaskStart spawn task.");
            ReleaseParts(mgr);
            return ZFAILED;
        }
        mgr->uiTaskId = id;
        Zos_LogInfo(Zos_LogGetZosId(), "timer task active run.");
        return ZOK;
    }
    if (mgr->ucOsDrv != 0) {
        auto init = zos::Osdep<zos::kSlotTimerInit>();
        if (init != nullptr && init() != ZOK) {
            ZOS_LOG_ERR("TimerTaskStart init os timer.");
            return ZFAILED;
        }
        if (Zos_QTimerCreate(&mgr->pQTimer, static_cast<int32_t>(Zos_CfgGetTimerCount())) != ZOK) {
            ZOS_LOG_ERR("TimerTaskStart create queue timer.");
            if (auto destroy = zos::Osdep<zos::kSlotTimerDestroy>()) destroy();
            return ZFAILED;
        }
        zos::TimerQueueSetMgr(mgr->pQTimer, mgr);
        uint32_t id = ZOS_INVALID_ID;
        if (Zos_ModTaskStart("TIMEROS", priority, 0, 0, 1, Zos_TimerModInit, nullptr,
                             Zos_TimerModEntry, &id) != ZOK) {
            if (auto destroy = zos::Osdep<zos::kSlotTimerDestroy>()) destroy();
            ReleaseParts(mgr);
            return ZFAILED;
        }
        mgr->uiTaskId = id;
        Zos_LogInfo(Zos_LogGetZosId(), "timer task passive run.");
        return ZOK;
    }
    return ZFAILED;
}

KESTRO_API void Zos_TimerTaskStop(void *pMgr) {
    auto *mgr = zos::TimerMgrOf(pMgr);
    if (mgr == nullptr || Flag(mgr->ucInit).load() == 0) return;
    if (mgr->ucSelfDrv != 0) {
        StopSelfTask(mgr);
    } else if (mgr->ucOsDrv != 0) {
        if (mgr->uiTaskId != ZOS_INVALID_ID) Zos_ModTaskStop(mgr->uiTaskId);
        mgr->uiTaskId = ZOS_INVALID_ID;
        {
            zos::MutexGuard lock(&mgr->zMutex);
            if (mgr->uiArmedLen != 0) {
                if (auto stop = zos::Osdep<zos::kSlotTimerStop>()) stop();
                mgr->uiArmedLen = 0;
            }
        }
        if (auto destroy = zos::Osdep<zos::kSlotTimerDestroy>()) destroy();
    }
    // Calls of other threads may still be using the queue timer (a module
    // task starting a timer, an expiry running on the host's looper).
    CloseAndDrain(mgr);
    ReleaseParts(mgr);
}

KESTRO_API uint32_t Zos_TimerTaskEntry(ST_ZOS_TASK_START *pstStart) {
    // The loop is the layer's own code; the timer callbacks are not.
    zos::GateScope lib(true);
    if (zos::GateAbandoned()) return ZFAILED;
    // The task's loop uses the manager's semaphore and queue until it ends.
    zos::TimerMgrUse use(SelfMgr());
    ZosTmrMgr *mgr = use.get();
    if (mgr == nullptr || pstStart == nullptr) return ZFAILED;
    auto ending = [pstStart, mgr] {
        return std::atomic_ref<uint32_t>(pstStart->uiState).load(std::memory_order_acquire) ==
                   ZOS_TASK_WAIT_DELETE ||
               Flag(mgr->ucClosing).load() != 0;
    };
    while (!ending()) {
        uint32_t running = 0;
        {
            zos::MutexGuard lock(&mgr->zMutex);
            running = mgr->uiRealNum;
        }
        Zos_SemWait(&mgr->zSem, running == 0 ? ZOS_WAIT_FOREVER : SleepMs(mgr));
        std::atomic_ref<uint32_t>(mgr->uiWakeups).fetch_add(1, std::memory_order_relaxed);
        if (ending()) break;
        const uint32_t processed = Zos_QTimerProcess(mgr);
        if (zos::GateAbandoned()) {
            use.Dismiss();
            return ZOK;
        }
        if (processed != ZOK) ZOS_LOG_ERR("TimerTaskProc process.");
    }
    return ZOK;
}

KESTRO_API uint32_t Zos_TimerModInit(const char * /*pcName*/, uint32_t uiTaskId) {
    zos::TimerMgrUse use(OsMgr());
    ZosTmrMgr *mgr = use.get();
    if (mgr == nullptr) return ZFAILED;
    mgr->uiTaskId = uiTaskId;
    return ZOK;
}

KESTRO_API int32_t Zos_TimerModEntry(void *zMsg) {
    zos::TimerMgrUse use(OsMgr());
    ZosTmrMgr *mgr = use.get();
    if (mgr == nullptr || Zos_MsgGetType(zMsg) != ZOS_TIMER_DRIVE_MSG_TYPE) return 0;
    {
        zos::MutexGuard lock(&mgr->zMutex);
        mgr->ucDrvPosted = 0;
        mgr->uiArmedLen = 0;
    }
    Zos_QTimerProcess(mgr);
    return 0;
}

KESTRO_API void Zos_TimerModDriven(uint32_t uiFlag) {
    zos::TimerMgrUse use(OsMgr());
    ZosTmrMgr *mgr = use.get();
    if (mgr == nullptr) return;
    Zos_ModSilence();
    if (uiFlag != 0) {
        bool post = false;
        {
            zos::MutexGuard lock(&mgr->zMutex);
            post = mgr->ucDrvPosted == 0;
            mgr->ucDrvPosted = 1;
        }
        if (post && Zos_MsgSendX(mgr->uiTaskId, mgr->uiTaskId, ZOS_TIMER_DRIVE_MSG_TYPE, 0, nullptr,
                                 0) != ZOK) {
            zos::MutexGuard lock(&mgr->zMutex);
            mgr->ucDrvPosted = 0;
        }
    } else {
        {
            // The one-shot platform timer has fired: nothing is armed now.
            zos::MutexGuard lock(&mgr->zMutex);
            mgr->uiArmedLen = 0;
        }
        Zos_QTimerProcess(mgr);
    }
    Zos_ModDriveMsg();
}

// ---------------------------------------------------------------------
// Running count

KESTRO_API uint32_t Zos_TimerRealNumInc(void *pMgr) {
    zos::TimerMgrUse use(zos::TimerMgrOf(pMgr));
    ZosTmrMgr *mgr = use.get();
    if (mgr == nullptr) return ZFAILED;
    zos::TimerStarted(mgr, false);
    return ZOK;
}

KESTRO_API uint32_t Zos_TimerRealNumDec(void *pMgr, uint32_t uiCount) {
    zos::TimerMgrUse use(zos::TimerMgrOf(pMgr));
    ZosTmrMgr *mgr = use.get();
    if (mgr == nullptr) return ZFAILED;
    zos::MutexGuard lock(&mgr->zMutex);
    mgr->uiRealNum -= uiCount < mgr->uiRealNum ? uiCount : mgr->uiRealNum;
    if (mgr->ucOsDrv != 0 && mgr->uiRealNum != 0) Arm(mgr);
    return ZOK;
}

KESTRO_API uint32_t Zos_TimerRealNumChk(void *pMgr) {
    zos::TimerMgrUse use(zos::TimerMgrOf(pMgr));
    ZosTmrMgr *mgr = use.get();
    if (mgr == nullptr) return ZFAILED;
    if (mgr->ucOsDrv == 0) return ZOK;
    zos::MutexGuard lock(&mgr->zMutex);
    Arm(mgr);
    return ZOK;
}

KESTRO_API uint32_t Zos_TimerRealNumClr(void *pMgr) {
    zos::TimerMgrUse use(zos::TimerMgrOf(pMgr));
    ZosTmrMgr *mgr = use.get();
    if (mgr == nullptr) return ZFAILED;
    zos::MutexGuard lock(&mgr->zMutex);
    mgr->uiRealNum = 0;
    return ZOK;
}

// ---------------------------------------------------------------------
// Timers of the two managers

// Each call holds a use of its manager while it reaches the queue timer.
#define ZOS_TIMER_FAMILY(Prefix, MGR)                                                             \
    KESTRO_API uint32_t Prefix##Create(uint32_t uiTaskId, uint32_t uiFlags, uint32_t *puiId) {    \
        zos::TimerMgrUse use(MGR());                                                              \
        return Create(use.get(), uiTaskId, uiFlags, 0, 0, nullptr, puiId);                        \
    }                                                                                             \
    KESTRO_API uint32_t Prefix##CreateX(uint32_t uiTaskId, uint32_t uiFlags, uint32_t uiType,     \
                                        uintptr_t zParm, PFN_ZOS_TIMER_CB pfnCb,                  \
                                        uint32_t *puiId) {                                        \
        zos::TimerMgrUse use(MGR());                                                              \
        return Create(use.get(), uiTaskId, uiFlags, uiType, zParm, pfnCb, puiId);                 \
    }                                                                                             \
    KESTRO_API uint32_t Prefix##Delete(uint32_t uiId) {                                           \
        zos::TimerMgrUse use(MGR());                                                              \
        ZosTmrMgr *mgr = use.get();                                                               \
        return mgr != nullptr ? Zos_QTimerTmrDelete(mgr->pQTimer, uiId) : ZFAILED;                \
    }                                                                                             \
    KESTRO_API uint32_t Prefix##Start(uint32_t uiId, uint32_t uiType, uint32_t uiLenMs,           \
                                      uintptr_t zParm, PFN_ZOS_TIMER_CB pfnCb) {                  \
        zos::TimerMgrUse use(MGR());                                                              \
        return Start(use.get(), uiId, uiType, uiLenMs, zParm, pfnCb);                             \
    }                                                                                             \
    KESTRO_API uint32_t Prefix##StartX(uint32_t uiId, uint32_t uiLenMs) {                         \
        zos::TimerMgrUse use(MGR());                                                              \
        return StartX(use.get(), uiId, uiLenMs);                                                  \
    }                                                                                             \
    KESTRO_API uint32_t Prefix##Stop(uint32_t uiId) {                                             \
        zos::TimerMgrUse use(MGR());                                                              \
        return Stop(use.get(), uiId);                                                             \
    }                                                                                             \
    KESTRO_API uint32_t Prefix##IsRun(uint32_t uiId) {                                            \
        zos::TimerMgrUse use(MGR());                                                              \
        ZosTmrMgr *mgr = use.get();                                                               \
        return mgr != nullptr && Zos_QTimerTmrGetState(mgr->pQTimer, uiId) == ZOS_TIMER_STATE_RUN \
                   ? 1u                                                                           \
                   : 0u;                                                                          \
    }                                                                                             \
    KESTRO_API uint32_t Prefix##GetState(uint32_t uiId) {                                         \
        zos::TimerMgrUse use(MGR());                                                              \
        ZosTmrMgr *mgr = use.get();                                                               \
        return mgr != nullptr ? Zos_QTimerTmrGetState(mgr->pQTimer, uiId) : ZOS_TIMER_STATE_FREE; \
    }                                                                                             \
    KESTRO_API uint32_t Prefix##GetStatus(uint32_t uiId, uint32_t *puiRemainMs,                   \
                                          uint32_t *puiLenMs) {                                   \
        zos::TimerMgrUse use(MGR());                                                              \
        ZosTmrMgr *mgr = use.get();                                                               \
        return Zos_QTimerTmrGetStatus(mgr != nullptr ? mgr->pQTimer : nullptr, uiId, puiRemainMs, \
                                      puiLenMs);                                                  \
    }                                                                                             \
    KESTRO_API uint32_t Prefix##GetTaskId(uint32_t uiId) {                                        \
        zos::TimerMgrUse use(MGR());                                                              \
        return TaskIdOf(use.get(), uiId);                                                         \
    }

ZOS_TIMER_FAMILY(Zos_Timer, SelfMgr)
ZOS_TIMER_FAMILY(Zos_TimerOs, OsMgr)

#undef ZOS_TIMER_FAMILY

// ---------------------------------------------------------------------
// Timeout event: the timer id, type and parameter of a type-256 message.

KESTRO_API uint32_t Zos_TimerEvntSetId(void *zEvnt, uint32_t uiId) {
    return Zos_EParmSetElemId(zEvnt, uiId);
}
KESTRO_API uint32_t Zos_TimerEvntGetId(void *zEvnt) {
    return Zos_EParmGetElemId(zEvnt);
}
KESTRO_API uint32_t Zos_TimerEvntSetType(void *zEvnt, uint32_t uiType) {
    return Zos_EParmSetMinorType(zEvnt, uiType);
}
KESTRO_API uint32_t Zos_TimerEvntGetType(void *zEvnt) {
    return Zos_EParmGetMinorType(zEvnt);
}
KESTRO_API uint32_t Zos_TimerEvntSetParm(void *zEvnt, uintptr_t zParm) {
    return Zos_EParmSetElemCookie(zEvnt, zParm);
}
KESTRO_API uintptr_t Zos_TimerEvntGetParm(void *zEvnt) {
    return Zos_EParmGetElemCookie(zEvnt);
}

}  // extern "C"

namespace {

uint32_t TaskIdOf(ZosTmrMgr *mgr, uint32_t id) {
    return mgr != nullptr ? zos::TimerQueueTaskId(mgr->pQTimer, id) : ZOS_INVALID_ID;
}

}  // namespace
