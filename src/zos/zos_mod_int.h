// Private records of the module manager and the tasks: the task record,
// deferred calls, and the helpers the module sources share.
#pragma once

#include <atomic>

#include "zos_dlist.h"
#include "zos_env.h"
#include "zos_gate.h"
#include "zos_lock.h"
#include "zos_mod.h"
#include "zos_task.h"

namespace zos {

// One deferred call; the copy of its data follows the record.
struct ModDefer {
    ModDefer *pstNext;
    PFN_ZOS_MOD_LEAVE pfnFunc;
    uintptr_t zArg;
    uint32_t uiLen;
};

struct ModDeferList {
    ModDefer *pstHead;
    ModDefer *pstTail;
};

// A task record of the task table. Fields after the list links keep the
// order of the task's description; the module part follows.
struct ModTask {
    ST_ZOS_DLIST_NODE stLink;  // the task list by priority
    char acName[ZOS_TASK_NAME_MAX + 1];
    uint8_t ucPriority;
    uint8_t ucHasThread;
    uintptr_t zThread;    // platform thread handle; 0 without a thread
    uintptr_t zThreadId;  // platform thread identity
    uintptr_t zModule;    // non-zero (the module entry) for a module task
    PFN_ZOS_TASK_EXIT pfnExit;
    PFN_ZOS_TASK_ENTRY pfnEntry;
    ST_ZOS_TASK_START stStart;  // task id and state, handed to the entry
    uintptr_t zArg;
    uint32_t uiTimerCount;
    uint32_t uiTimerPeak;
    uint32_t uiQueueSize;
    uint32_t uiQueuePeak;
    // Module part.
    uint8_t ucTaskLock;  // the task mutex was made
    ZMUTEX zMutex;
    void *zQueue;  // own priority queue; null when driven by the shared one
    ModDeferList stDefer;
    uint32_t uiDeferPending;  // stDefer holds calls (read without the lock)
    uint32_t aauiCtrl[3][3];  // control blocks (65535, id, code) of codes 16, 17, 18
    uint32_t uiIndex;         // place in the task array
    ModGate *pGate;
};

// The task array and its gate.
struct ModTable {
    ModGate *pGate;
    ModTask astTasks[1];  // uiCapacity records
};

// The manager when initialised, else null.
inline ZosModMgr *ModMgr() {
    return static_cast<ZosModMgr *>(Zos_EnvLocateModMgr());
}

// State word of a record, read and written atomically: the entry watches
// it from its own thread.
inline uint32_t TaskState(const ModTask *t) {
    return __atomic_load_n(&t->stStart.uiState, __ATOMIC_ACQUIRE);
}
inline void TaskSetState(ModTask *t, uint32_t state) {
    __atomic_store_n(&t->stStart.uiState, state, __ATOMIC_RELEASE);
}
// Moves the state from one of the given values to `to`; false when it
// held another (a stop request that arrived meanwhile wins).
inline bool TaskMoveState(ModTask *t, uint32_t from, uint32_t to) {
    uint32_t expected = from;
    return __atomic_compare_exchange_n(&t->stStart.uiState, &expected, to, false, __ATOMIC_ACQ_REL,
                                       __ATOMIC_ACQUIRE);
}

// Holds the module manager's lock for a scope.
class ModLock {
  public:
    explicit ModLock(ZosModMgr *mgr) : mgr_(mgr) { Zos_MutexLock(&mgr_->zMutex); }
    ~ModLock() { Zos_MutexUnlock(&mgr_->zMutex); }
    ModLock(const ModLock &) = delete;
    ModLock &operator=(const ModLock &) = delete;

  private:
    ZosModMgr *mgr_;
};

// The live record of an id; the caller holds the module lock.
ModTask *TaskFind(ZosModMgr *mgr, uint32_t id);
// A copy of the handle of the mutex of task `id`, taken under the module
// lock; false when the task does not exist or has no mutex.
bool TaskMutexOf(uint32_t id, ZMUTEX *out);
// Runs and frees the deferred calls of a list, taken whole under `lock`
// and called with it released.
void DeferRun(ModDeferList *list, ZMUTEX *lock);
void DeferFree(ModDeferList *list);
// Control blocks travel through the queues tagged in their lowest bit, so
// a poller tells them from message handles.
inline uintptr_t CtrlTag(uint32_t *block) {
    return reinterpret_cast<uintptr_t>(block) | 1u;
}
inline uint32_t *CtrlOf(uintptr_t item) {
    return (item & 1u) != 0 ? reinterpret_cast<uint32_t *>(item & ~uintptr_t{1}) : nullptr;
}

}  // namespace zos
