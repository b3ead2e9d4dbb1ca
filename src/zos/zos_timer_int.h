// Timer services shared between the queue timer and its managers.
#pragma once

#include "zos_env.h"
#include "zos_timer.h"

namespace zos {

// The manager record `p` names (the self or the OS manager of the
// environment, whether it runs or not), else null.
ZosTmrMgr *TimerMgrOf(void *p);

// One call's use of a manager. A use is refused (null) while the manager is
// not running or is closing; the manager's queue timer, semaphore and mutex
// stay whole until every use taken has ended, so a call racing a shut-down
// fails instead of reaching freed memory. A thread already holding a use of
// the manager is always let in again (a timer callback starting a timer,
// the queue timer counting its running timers): the close waits for its
// outer use anyway.
class TimerMgrUse {
  public:
    explicit TimerMgrUse(ZosTmrMgr *mgr);
    ~TimerMgrUse();
    TimerMgrUse(const TimerMgrUse &) = delete;
    TimerMgrUse &operator=(const TimerMgrUse &) = delete;
    ZosTmrMgr *get() const { return mgr_; }
    // Ends the use without touching the manager, which is gone when a
    // callback's thread has been turned away by a shut-down.
    void Dismiss();

  private:
    ZosTmrMgr *mgr_ = nullptr;
};

// After a timer start: counts the running timer and wakes the timer task
// when the new timer is the soonest to fire (`head`).
void TimerStarted(ZosTmrMgr *mgr, bool head);

// The soonest expiry tick of a queue; `any` false when nothing is queued.
uint64_t TimerSoonestTick(ZQTIMER zQueue, bool *any);

// The owner task of a live timer, else ZOS_INVALID_ID.
uint32_t TimerQueueTaskId(ZQTIMER zQueue, uint32_t id);

// Ties a queue to the manager whose running count it keeps.
void TimerQueueSetMgr(ZQTIMER zQueue, ZosTmrMgr *mgr);

// Owner task statistics of a created or deleted timer.
void TimerTaskCountInc(uint32_t task);
void TimerTaskCountDec(uint32_t task);

// Sends a timeout (type 256) from the driving task to the owner task.
uint32_t TimerSendTimeout(uint32_t from, uint32_t to, uint32_t id, uint32_t type, uintptr_t parm);

}  // namespace zos
