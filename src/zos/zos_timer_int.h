// Timer services shared between the queue timer and its managers.
#pragma once

#include "zos_env.h"
#include "zos_timer.h"

namespace zos {

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
