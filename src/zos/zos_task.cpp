// Tasks: spawning a thread that runs a user entry, the thread function
// with its hooks, stopping and deleting, getters and the debug listing.
// The records live in the module manager's task table (zos_mod.cpp).
#include <cstring>

#include "zos_cfg.h"
#include "zos_mod_int.h"
#include "zos_osdep.h"
#include "zos_print.h"
#include "zos_util.h"

namespace {

using zos::ModTask;

constexpr uint32_t kDeletePolls = 200;
constexpr uint32_t kPollMs = 30;

uint32_t ClampPriority(uint32_t pri) {
    return pri < ZOS_TASK_PRI_HIGHEST  ? ZOS_TASK_PRI_HIGHEST
           : pri > ZOS_TASK_PRI_LOWEST ? ZOS_TASK_PRI_LOWEST
                                       : pri;
}

// Holds the module lock for a scope, if the manager exists.
class ModGuard {
  public:
    ModGuard() : mgr_(zos::ModMgr()) {
        if (mgr_ != nullptr) Zos_MutexLock(&mgr_->zMutex);
    }
    ~ModGuard() {
        if (mgr_ != nullptr) Zos_MutexUnlock(&mgr_->zMutex);
    }
    ModGuard(const ModGuard &) = delete;
    ModGuard &operator=(const ModGuard &) = delete;
    ModTask *Find(uint32_t id) const { return mgr_ != nullptr ? zos::TaskFind(mgr_, id) : nullptr; }
    ZosModMgr *Mgr() const { return mgr_; }

  private:
    ZosModMgr *mgr_;
};

// The platform's thread function: the start block comes as the word.
// Letting go of the gate is the thread's last touch of the layer.
void TaskThread(uintptr_t arg) {
    auto *start = reinterpret_cast<ST_ZOS_TASK_START *>(arg);
    ModTask *rec =
        reinterpret_cast<ModTask *>(reinterpret_cast<char *>(start) - offsetof(ModTask, stStart));
    zos::GateAttach(rec->pGate, start->uiTaskId);
    Zos_TaskEntry(start);
    zos::GateDetach();
}

void Delay(uint32_t ms) {
    if (auto sleep = zos::Osdep<zos::kSlotTaskDelay>()) sleep(ms);
}

bool GoneOrEnded(uint32_t id) {
    ModGuard g;
    ModTask *rec = g.Find(id);
    return rec == nullptr || zos::TaskState(rec) < ZOS_TASK_WAIT_DELETE;
}

// Delete and wait-delete: ask for the stop, poll, force, release.
uint32_t DeleteTask(uint32_t id, uint32_t polls, bool forceAtOnce, const char *text) {
    char name[ZOS_TASK_NAME_MAX + 1];
    uintptr_t handle = 0;
    bool hadThread = false;
    {
        ModGuard g;
        ModTask *rec = g.Find(id);
        if (rec == nullptr) return ZFAILED;
        std::memcpy(name, rec->acName, sizeof(name));
        const uint32_t st = zos::TaskState(rec);
        if (st >= ZOS_TASK_READY && st <= ZOS_TASK_RUNNING) {
            zos::TaskSetState(rec, ZOS_TASK_WAIT_DELETE);
        }
        handle = rec->zThread;
        hadThread = rec->ucHasThread != 0;
    }
    bool ended = false;
    // A task deleting itself cannot end first.
    if (!forceAtOnce && zos::GateTask() != id) {
        for (uint32_t i = 0; i < polls; ++i) {
            if ((ended = GoneOrEnded(id))) break;
            Delay(kPollMs);
        }
        if (!ended) ended = GoneOrEnded(id);
    }
    if (hadThread) {
        {
            ModGuard g;
            if (ModTask *rec = g.Find(id)) rec->zThread = 0;
        }
        if (auto del = zos::Osdep<zos::kSlotTaskDelete>()) del(handle, ended ? 0u : 1u);
    }
    Zos_LogInfo(Zos_LogGetZosId(), text, name, id);
    Zos_ModPutTask(id);
    return ZOK;
}

// The statistics of tasks without a thread of their own.
uint32_t Count(uint32_t id, uint32_t ModTask::*count, uint32_t ModTask::*peak, bool up) {
    ModGuard g;
    ModTask *rec = g.Find(id);
    if (rec == nullptr || rec->zThread != 0) return ZOK;
    if (up) {
        if (++(rec->*count) > rec->*peak) rec->*peak = rec->*count;
    } else if (rec->*count != 0) {
        --(rec->*count);
    }
    return ZOK;
}

}  // namespace

namespace zos {

// Spawns the thread of a record under the module lock, so the thread,
// which looks its record up under the same lock, finds the handle and
// identity already in place.
uint32_t TaskSpawnThread(ModTask *rec, uint32_t stackSize) {
    auto spawn = Osdep<kSlotTaskSpawn>();
    if (spawn == nullptr) return ZFAILED;
    ModGuard g;
    // The thread holds the gate and starts in the layer's own code.
    ModGate *gate = rec->pGate;
    gate->uiRefs.fetch_add(1, std::memory_order_acq_rel);
    gate->uiInside.fetch_add(1, std::memory_order_acq_rel);
    uintptr_t identity = 0, handle = 0;
    if (spawn(rec->acName, rec->ucPriority, stackSize, TaskThread,
              reinterpret_cast<uintptr_t>(&rec->stStart), &identity, &handle) != ZOK) {
        gate->uiInside.fetch_sub(1, std::memory_order_acq_rel);
        gate->uiRefs.fetch_sub(1, std::memory_order_acq_rel);
        return ZFAILED;
    }
    rec->zThreadId = identity;
    rec->zThread = handle;
    rec->ucHasThread = 1;
    return ZOK;
}

}  // namespace zos

extern "C" {

KESTRO_API uint32_t Zos_TaskSpawn(const char *pcName, uint32_t uiPriority, uint32_t uiStackSize,
                                  PFN_ZOS_TASK_ENTRY pfnEntry, uintptr_t zArg,
                                  uint32_t *puiTaskId) {
    if (puiTaskId != nullptr) *puiTaskId = ZOS_INVALID_ID;
    if (pfnEntry == nullptr) return ZFAILED;
    const uint32_t pri = ClampPriority(uiPriority);
    const bool threads = Zos_CfgGetOsThreadSupt() != 0;
    if (threads && zos::Osdep<zos::kSlotTaskSpawn>() == nullptr) return ZFAILED;
    const uint32_t id = Zos_ModGetTask(pcName, pri);
    if (id == ZOS_INVALID_ID) return ZFAILED;
    ModGuard g;
    ModTask *rec = g.Find(id);
    if (rec == nullptr) return ZFAILED;
    if (puiTaskId != nullptr) *puiTaskId = id;
    rec->pfnEntry = pfnEntry;
    rec->zArg = zArg;
    if (threads && zos::TaskSpawnThread(rec, uiStackSize) != ZOK) {
        ZOS_LOG_ERR("task<%s> spawn failed.", rec->acName);
        Zos_ModPutTask(id);
        if (puiTaskId != nullptr) *puiTaskId = ZOS_INVALID_ID;
        return ZFAILED;
    }
    Zos_LogInfo(Zos_LogGetZosId(), "task<%s:%u> spawn ok.", rec->acName, id);
    return ZOK;
}

KESTRO_API uint32_t Zos_TaskSpawnX(void *pTask, uint32_t uiStackSize, PFN_ZOS_TASK_ENTRY pfnEntry) {
    auto *rec = static_cast<ModTask *>(pTask);
    if (rec == nullptr || pfnEntry == nullptr) return ZFAILED;
    {
        ModGuard g;
        // Only a live record of this table is accepted.
        if (g.Find(rec->stStart.uiTaskId) != rec) return ZFAILED;
        rec->pfnEntry = pfnEntry;
    }
    return zos::TaskSpawnThread(rec, uiStackSize);
}

KESTRO_API uint32_t Zos_TaskEntry(ST_ZOS_TASK_START *pstStart) {
    if (pstStart == nullptr) return ZFAILED;
    uint32_t id = ZOS_INVALID_ID;
    PFN_ZOS_TASK_ENTRY entry = nullptr;
    uintptr_t handle = 0;
    {
        ModGuard g;
        id = pstStart->uiTaskId;
        ModTask *rec = g.Find(id);
        if (rec == nullptr || &rec->stStart != pstStart) return ZFAILED;
        entry = rec->pfnEntry;
        handle = rec->zThread;
    }
    uintptr_t word = 0;
    if (auto enter = zos::Osdep<zos::kSlotTaskEnter>()) enter(handle, &word);
    // Noted now: a thread turned away at the end no longer reads the
    // platform table, which may be gone.
    const auto leave = zos::Osdep<zos::kSlotTaskExit>();
    {
        ModGuard g;
        if (ModTask *rec = g.Find(id)) {
            if (!zos::TaskMoveState(rec, ZOS_TASK_READY, ZOS_TASK_RUNNING)) {
                zos::TaskMoveState(rec, ZOS_TASK_PENDING, ZOS_TASK_RUNNING);
            }
        }
    }
    uint32_t result = ZFAILED;
    if (entry != nullptr) {
        zos::GateScope user(false);
        result = entry(pstStart);
    }
    if (zos::GateAbandoned()) {
        if (leave != nullptr) leave(handle, word);
        return result;
    }

    // The record is looked up again by the id noted at the start: a task
    // that was forced meanwhile has been released and is not touched.
    char name[ZOS_TASK_NAME_MAX + 1] = "UNKNOWN_TASK";
    PFN_ZOS_TASK_EXIT onExit = nullptr;
    {
        ModGuard g;
        if (ModTask *rec = g.Find(id)) {
            std::memcpy(name, rec->acName, sizeof(name));
            onExit = rec->pfnExit;
            rec->pfnExit = nullptr;
        }
    }
    Zos_LogInfo(Zos_LogGetZosId(), "task<%s:%u> mission complete.", name, id);
    if (onExit != nullptr) {
        zos::GateScope user(false);
        onExit(name, id);
    }
    if (!zos::GateAbandoned()) {
        ModGuard g;
        if (ModTask *rec = g.Find(id)) {
            zos::TaskSetState(rec, ZOS_TASK_DELETED);
            Zos_ModPutTask(id);
        }
    }
    if (leave != nullptr) leave(handle, word);
    return result;
}

KESTRO_API uint32_t Zos_TaskCease(uint32_t uiTaskId) {
    {
        ModGuard g;
        ModTask *rec = g.Find(uiTaskId);
        if (rec == nullptr) return ZFAILED;
        if (rec->zModule == 0) {
            const uint32_t st = zos::TaskState(rec);
            if (st >= ZOS_TASK_READY && st <= ZOS_TASK_RUNNING) {
                zos::TaskSetState(rec, ZOS_TASK_WAIT_DELETE);
            }
            Zos_LogInfo(Zos_LogGetZosId(), "task<%s:%u> cease ok.", rec->acName, uiTaskId);
            return ZOK;
        }
    }
    return Zos_ModTaskCease(uiTaskId);
}

KESTRO_API uint32_t Zos_TaskDelete(uint32_t uiTaskId) {
    bool module = false;
    {
        ModGuard g;
        ModTask *rec = g.Find(uiTaskId);
        if (rec == nullptr) return ZFAILED;
        module = rec->zModule != 0;
    }
    if (module) return Zos_ModTaskStop(uiTaskId);
    return DeleteTask(uiTaskId, kDeletePolls, false, "task<%s:%u> delete ok.");
}

KESTRO_API uint32_t Zos_TaskWaitDelete(uint32_t uiTaskId, uint32_t uiSeconds) {
    bool module = false;
    {
        ModGuard g;
        ModTask *rec = g.Find(uiTaskId);
        if (rec == nullptr) return ZFAILED;
        module = rec->zModule != 0;
    }
    if (module) return Zos_ModTaskWaitStop(uiTaskId, uiSeconds);
    const uint64_t polls = static_cast<uint64_t>(uiSeconds) * 1000u / kPollMs;
    return DeleteTask(uiTaskId, static_cast<uint32_t>(polls > 0xFFFFFFFFu ? 0xFFFFFFFFu : polls),
                      polls < 1, "task<%s:%u> force delete.");
}

KESTRO_API uint32_t Zos_TaskIsSpawn(uint32_t uiTaskId) {
    ModGuard g;
    ModTask *rec = g.Find(uiTaskId);
    return rec == nullptr || rec->zModule == 0 ? 1u : 0u;
}

KESTRO_API uint32_t Zos_TaskGetState(uint32_t uiTaskId) {
    ModGuard g;
    ModTask *rec = g.Find(uiTaskId);
    return rec != nullptr ? zos::TaskState(rec) : 0u;
}

KESTRO_API const char *Zos_TaskGetName(uint32_t uiTaskId) {
    ModGuard g;
    ModTask *rec = g.Find(uiTaskId);
    return rec != nullptr ? rec->acName : "UNKNOWN_TASK";
}

KESTRO_API uint32_t Zos_TaskGetTaskId(const char *pcName) {
    ModGuard g;
    auto *rec = static_cast<ModTask *>(Zos_ModFindTaskX(pcName));
    return rec != nullptr ? rec->stStart.uiTaskId : ZOS_INVALID_ID;
}

KESTRO_API uint32_t Zos_TaskGetPriority(uint32_t uiTaskId) {
    ModGuard g;
    ModTask *rec = g.Find(uiTaskId);
    return rec != nullptr ? rec->ucPriority : ZOS_TASK_UNKNOWN_PRI;
}

KESTRO_API uint32_t Zos_TaskIsCurrent(uint32_t uiTaskId) {
    uintptr_t identity = 0;
    {
        ModGuard g;
        ModTask *rec = g.Find(uiTaskId);
        if (rec == nullptr || rec->ucHasThread == 0) return 0;
        identity = rec->zThreadId;
    }
    auto current = zos::Osdep<zos::kSlotTaskIsCurrent>();
    return current != nullptr ? current(identity) : 0u;
}

KESTRO_API uint32_t Zos_TaskIsMainThread(void) {
    auto isMain = zos::Osdep<zos::kSlotTaskIsMainThread>();
    return isMain != nullptr ? isMain() : 0u;
}

KESTRO_API uint32_t Zos_TaskDelay(uint32_t uiMs) {
    Delay(uiMs);
    return ZOK;
}

KESTRO_API uint32_t Zos_TaskQueueSizeInc(uint32_t uiTaskId) {
    return Count(uiTaskId, &ModTask::uiQueueSize, &ModTask::uiQueuePeak, true);
}

KESTRO_API uint32_t Zos_TaskQueueSizeDec(uint32_t uiTaskId) {
    return Count(uiTaskId, &ModTask::uiQueueSize, &ModTask::uiQueuePeak, false);
}

KESTRO_API uint32_t Zos_TaskTimerCountInc(uint32_t uiTaskId) {
    return Count(uiTaskId, &ModTask::uiTimerCount, &ModTask::uiTimerPeak, true);
}

KESTRO_API uint32_t Zos_TaskTimerCountDec(uint32_t uiTaskId) {
    return Count(uiTaskId, &ModTask::uiTimerCount, &ModTask::uiTimerPeak, false);
}

KESTRO_API const char *Zos_TaskDbgGetState(const void *pTask) {
    if (pTask == nullptr) return "unknown";
    switch (zos::TaskState(static_cast<const ModTask *>(pTask))) {
        case ZOS_TASK_DELETED:
            return "deleted";
        case ZOS_TASK_WAIT_DELETE:
            return "wait delete";
        case ZOS_TASK_READY:
            return "ready";
        case ZOS_TASK_PENDING:
            return "pending";
        case ZOS_TASK_RUNNING:
            return "runing";  // spelt so in the listing
        default:
            return "unknown";
    }
}

KESTRO_API void Zos_TaskDbgShow(void) {
    ZosEnv *env = zos::EnvIfAny();
    auto hr = zos::Osdep<zos::kSlotGetHrTime>();
    const uint64_t now = hr != nullptr ? hr() : 0;
    const uint64_t start = env != nullptr ? env->ullStartHrTime : 0;
    Zos_Printf("\r\nRUNNING: %lldus", static_cast<long long>((now - start) / 1000u));
    Zos_Printf(
        "\r\nNAME     ID         TYPE   ENTRY    STATE   PRI Q_BUSY Q_PEEK T_BUSY T_PEEK\r\n");
    Zos_Printf("----     --         ----   -----    -----   --- ------ ------ ------ ------\r\n");
    ModGuard g;
    if (ZosModMgr *mgr = g.Mgr()) {
        for (ST_ZOS_DLIST_NODE *n = mgr->stTaskList.pstHead; n != nullptr; n = n->pstNext) {
            auto *t = reinterpret_cast<ModTask *>(n);
            const uintptr_t entry =
                t->zModule != 0 ? t->zModule : reinterpret_cast<uintptr_t>(t->pfnEntry);
            Zos_Printf("%-8s 0x%08X %-6s 0x%zu %-7s %-3d %-6d %-6d %-6d %-6d\r\n", t->acName,
                       t->stStart.uiTaskId, t->zModule != 0 ? "MODULE" : "TASK",
                       static_cast<size_t>(entry), Zos_TaskDbgGetState(t),
                       static_cast<int>(t->ucPriority), static_cast<int>(t->uiQueueSize),
                       static_cast<int>(t->uiQueuePeak), static_cast<int>(t->uiTimerCount),
                       static_cast<int>(t->uiTimerPeak));
        }
    }
    Zos_Printf("\r\n");
}

}  // extern "C"
