/*
 * Timers on 10 ms ticks. A timer tells its owner task, once or
 * periodically, that a time has passed: by a callback run where the timers
 * are processed, or by a message of type ZOS_TIMER_MSG_TYPE posted to the
 * owner.
 *
 * Two managers share one structure: the self manager (Zos_Timer*), driven
 * by its own task "TIMER", and the OS manager (Zos_TimerOs*), driven by
 * the platform's one-shot timer (platform slots 103-106) through the host
 * loop and its module task "TIMEROS". Both keep their timers in a queue
 * timer (Zos_QTimer*): a fixed array of timer nodes and of expiry nodes,
 * made at creation, and a list of busy expiry nodes sorted by tick; all
 * timers due at one tick share one expiry node and fire in start order.
 *
 * The current tick is Zos_GetHrTime() / 10,000,000. A timer id is the
 * index of its node (0 .. capacity - 1); ZOS_INVALID_ID means none.
 */
#ifndef ZOS_TIMER_H
#define ZOS_TIMER_H

#include "zos_task.h"
#include "zos_type.h"

ZOS_BEGIN_DECLS

/* Timer flags. */
#define ZOS_TIMER_FLAG_PERIOD 0x1u /* re-started after each firing */
#define ZOS_TIMER_FLAG_DELETE 0x4u /* deleted after firing (wins over PERIOD) */

/* Timer node states. */
#define ZOS_TIMER_STATE_FREE 0u
#define ZOS_TIMER_STATE_IDLE 1u
#define ZOS_TIMER_STATE_RUN 2u

/* Message types: a timeout to the owner task, and the OS manager's drive
 * message from and to its own task. */
#define ZOS_TIMER_MSG_TYPE 256u
#define ZOS_TIMER_DRIVE_MSG_TYPE 240u

/* Length of one tick. */
#define ZOS_TIMER_TICK_MS 10u
#define ZOS_TIMER_TICK_NS 10000000ull

/* Drive lengths of the platform timer (ms): the shortest, and the longest
 * (also used when nothing is queued). */
#define ZOS_TIMER_DRV_MIN_MS 10u
#define ZOS_TIMER_DRV_MAX_MS 3600000u

/* Timer callback: timer id, type, parameter. */
typedef void (*PFN_ZOS_TIMER_CB)(uint32_t uiId, uint32_t uiType, uintptr_t zParm);

/* Queue timer handle. */
typedef void *ZQTIMER;

/* ------------------------------------------------------------------ */
/* Managers. Zos_TimerInit starts both (nothing when either is already
 * started); Zos_TimerDestroy stops both and may be called any number of
 * times. The manager argument of the task functions is the record that
 * Zos_EnvLocateTmrMgr or Zos_EnvLocateOsTmrMgr returns. */
KESTRO_API uint32_t Zos_TimerInit(void);
KESTRO_API void Zos_TimerDestroy(void);
KESTRO_API uint32_t Zos_TimerTaskStart(void *pMgr);
KESTRO_API void Zos_TimerTaskStop(void *pMgr);
/* The self manager's task: sleeps until the soonest expiry (or without
 * limit while no timer runs; a start that becomes the soonest wakes it)
 * and processes the timers due. */
KESTRO_API uint32_t Zos_TimerTaskEntry(ST_ZOS_TASK_START *pstStart);
/* Init and entry of the OS manager's module task "TIMEROS": the entry
 * processes the timers on a drive message (ZOS_TIMER_DRIVE_MSG_TYPE). */
KESTRO_API uint32_t Zos_TimerModInit(const char *pcName, uint32_t uiTaskId);
KESTRO_API int32_t Zos_TimerModEntry(void *zMsg);
/* Called by the platform timer when it fires (see Zpand_TimerStart): a
 * set flag only posts a drive message to "TIMEROS"; a clear flag processes
 * the OS manager's timers at once. Then one module message is driven. */
KESTRO_API void Zos_TimerModDriven(uint32_t uiFlag);

/* ------------------------------------------------------------------ */
/* Timers of the self manager. Create reports ZOS_INVALID_ID on failure.
 * Start takes the length in ms: 0 fails, 1..9 are raised to 10 (with a
 * warning), the rest is cut down to whole ticks. StartX restarts with the
 * type, parameter and callback stored before and, unlike Start, keeps a
 * length of 1..9 ms as 0 ticks: the timer fires at the next processing. */
KESTRO_API uint32_t Zos_TimerCreate(uint32_t uiTaskId, uint32_t uiFlags, uint32_t *puiId);
KESTRO_API uint32_t Zos_TimerCreateX(uint32_t uiTaskId, uint32_t uiFlags, uint32_t uiType,
                                     uintptr_t zParm, PFN_ZOS_TIMER_CB pfnCb, uint32_t *puiId);
/* Delete and Stop do not wait for a callback of the timer that is already
 * running on the timer thread: it finishes after they return. */
KESTRO_API uint32_t Zos_TimerDelete(uint32_t uiId);
KESTRO_API uint32_t Zos_TimerStart(uint32_t uiId, uint32_t uiType, uint32_t uiLenMs,
                                   uintptr_t zParm, PFN_ZOS_TIMER_CB pfnCb);
KESTRO_API uint32_t Zos_TimerStartX(uint32_t uiId, uint32_t uiLenMs);
/* Does nothing (0) unless the timer is running. */
KESTRO_API uint32_t Zos_TimerStop(uint32_t uiId);
/* 1 while running, else 0. */
KESTRO_API uint32_t Zos_TimerIsRun(uint32_t uiId);
/* ZOS_TIMER_STATE_*; ZOS_TIMER_STATE_FREE for an unknown id. */
KESTRO_API uint32_t Zos_TimerGetState(uint32_t uiId);
/* The time left until the timer fires and its length, both in ms (the
 * time left is 0 for a timer that is not running, and for one already
 * due). 1 for an unknown or free timer. */
KESTRO_API uint32_t Zos_TimerGetStatus(uint32_t uiId, uint32_t *puiRemainMs, uint32_t *puiLenMs);
/* The owner task; ZOS_INVALID_ID for an unknown or free timer. */
KESTRO_API uint32_t Zos_TimerGetTaskId(uint32_t uiId);

/* The same for the OS manager. */
KESTRO_API uint32_t Zos_TimerOsCreate(uint32_t uiTaskId, uint32_t uiFlags, uint32_t *puiId);
KESTRO_API uint32_t Zos_TimerOsCreateX(uint32_t uiTaskId, uint32_t uiFlags, uint32_t uiType,
                                       uintptr_t zParm, PFN_ZOS_TIMER_CB pfnCb, uint32_t *puiId);
KESTRO_API uint32_t Zos_TimerOsDelete(uint32_t uiId);
KESTRO_API uint32_t Zos_TimerOsStart(uint32_t uiId, uint32_t uiType, uint32_t uiLenMs,
                                     uintptr_t zParm, PFN_ZOS_TIMER_CB pfnCb);
KESTRO_API uint32_t Zos_TimerOsStartX(uint32_t uiId, uint32_t uiLenMs);
KESTRO_API uint32_t Zos_TimerOsStop(uint32_t uiId);
KESTRO_API uint32_t Zos_TimerOsIsRun(uint32_t uiId);
KESTRO_API uint32_t Zos_TimerOsGetState(uint32_t uiId);
KESTRO_API uint32_t Zos_TimerOsGetStatus(uint32_t uiId, uint32_t *puiRemainMs, uint32_t *puiLenMs);
KESTRO_API uint32_t Zos_TimerOsGetTaskId(uint32_t uiId);

/* The timeout message's event (zos_evnt.h) carries the timer id, type
 * and parameter; getters give 0 when absent (the type 0xFFFFFFFF). */
KESTRO_API uint32_t Zos_TimerEvntSetId(void *zEvnt, uint32_t uiId);
KESTRO_API uint32_t Zos_TimerEvntGetId(void *zEvnt);
KESTRO_API uint32_t Zos_TimerEvntSetType(void *zEvnt, uint32_t uiType);
KESTRO_API uint32_t Zos_TimerEvntGetType(void *zEvnt);
KESTRO_API uint32_t Zos_TimerEvntSetParm(void *zEvnt, uintptr_t zParm);
KESTRO_API uintptr_t Zos_TimerEvntGetParm(void *zEvnt);

/* ------------------------------------------------------------------ */
/* Queue timer. Create takes the number of timers (not negative) and makes
 * that many timer nodes and one more expiry node; nothing is allocated
 * afterwards. Lengths here are in ticks. Process fires every timer due at
 * the current tick, in tick order and, within a tick, in start order; its
 * argument is a manager record (Zos_EnvLocateTmrMgr, Zos_EnvLocateOsTmrMgr)
 * or a queue of its own (whose timers without a callback send their
 * timeouts from no task). */
KESTRO_API uint32_t Zos_QTimerCreate(ZQTIMER *pzQueue, int32_t iCapacity);
KESTRO_API uint32_t Zos_QTimerDelete(ZQTIMER zQueue);
KESTRO_API uint32_t Zos_QTimerProcess(void *pMgr);
KESTRO_API uint32_t Zos_QTimerTmrCreate(ZQTIMER zQueue, uint32_t uiTaskId, uint32_t uiFlags,
                                        uint32_t *puiId);
KESTRO_API uint32_t Zos_QTimerTmrCreateX(ZQTIMER zQueue, uint32_t uiTaskId, uint32_t uiFlags,
                                         uint32_t uiType, uintptr_t zParm, PFN_ZOS_TIMER_CB pfnCb,
                                         uint32_t *puiId);
KESTRO_API uint32_t Zos_QTimerTmrDelete(ZQTIMER zQueue, uint32_t uiId);
/* Puts an idle timer into the busy list at its start tick + length. */
KESTRO_API uint32_t Zos_QTimerTmrInsert(ZQTIMER zQueue, uint32_t uiId);
KESTRO_API uint32_t Zos_QTimerTmrStart(ZQTIMER zQueue, uint32_t uiId, uint32_t uiType,
                                       uint32_t uiTicks, uintptr_t zParm, PFN_ZOS_TIMER_CB pfnCb);
KESTRO_API uint32_t Zos_QTimerTmrStartX(ZQTIMER zQueue, uint32_t uiId, uint32_t uiTicks);
/* StartX for a queue of the OS manager: the same start, then the platform
 * timer is re-armed when the new expiry is the soonest. */
KESTRO_API uint32_t Zos_QTimerOsTmrStartX(ZQTIMER zQueue, uint32_t uiId, uint32_t uiTicks);
KESTRO_API uint32_t Zos_QTimerTmrStop(ZQTIMER zQueue, uint32_t uiId);
KESTRO_API uint32_t Zos_QTimerTmrGetState(ZQTIMER zQueue, uint32_t uiId);
KESTRO_API uint32_t Zos_QTimerTmrGetStatus(ZQTIMER zQueue, uint32_t uiId, uint32_t *puiRemainMs,
                                           uint32_t *puiLenMs);
/* Running timers, and busy expiry nodes now and at their peak. */
KESTRO_API uint32_t Zos_QTimerTmrGetCount(ZQTIMER zQueue, uint32_t *puiRunning,
                                          uint32_t *puiBusyExp, uint32_t *puiPeakExp);
/* How long the platform timer should run for the soonest expiry, in ms:
 * 10 when it is less than 2 ticks away or overdue, the distance when it
 * is at most 36000 ticks away, else (or with nothing queued) one hour. */
KESTRO_API uint32_t Zos_QTimerTmrGetDrvLen(ZQTIMER zQueue);

/* Running-count bookkeeping of a manager (under its mutex). Going from 0
 * to 1 wakes the self manager's task; for the OS manager every change that
 * leaves timers running re-arms the platform timer (Zos_TimerRealNumChk).
 * Chk arms the platform timer for the soonest expiry, stops it when no
 * timer runs, and never re-arms for a later expiry than the armed one. */
KESTRO_API uint32_t Zos_TimerRealNumInc(void *pMgr);
KESTRO_API uint32_t Zos_TimerRealNumDec(void *pMgr, uint32_t uiCount);
KESTRO_API uint32_t Zos_TimerRealNumChk(void *pMgr);
KESTRO_API uint32_t Zos_TimerRealNumClr(void *pMgr);

ZOS_END_DECLS

#endif /* ZOS_TIMER_H */
