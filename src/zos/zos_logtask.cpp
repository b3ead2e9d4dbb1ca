// The log task "LOG": its timer writes the caches of the logs with files.
#include "zos_logtask.h"

#include "zos_cfg.h"
#include "zos_env.h"
#include "zos_evnt.h"
#include "zos_log.h"
#include "zos_log_int.h"
#include "zos_mod.h"
#include "zos_msg.h"
#include "zos_timer.h"
#include "zos_util.h"

namespace {

ZosLogMgr *Mgr() {
    return static_cast<ZosLogMgr *>(Zos_EnvLocateLogMgr());
}

void FlushOne(ZLOGID log, uint32_t pending, void *arg) {
    if (pending != 0) *static_cast<bool *>(arg) = true;
    Zos_LogTaskFlushLog(log);
}

// One pass over the logs; true when some cache held lines.
bool FlushAll() {
    bool busy = false;
    zos::LogForEachFileLog(FlushOne, &busy);
    return busy;
}

// Runs the task's timer for `ms`, unless it already runs and is due
// within that time.
void Arm(ZosLogMgr *mgr, uint32_t ms, bool alert) {
    const uint32_t id = mgr->uiTimerId;
    uint32_t remain = 0;
    uint32_t len = 0;
    if (Zos_TimerIsRun(id) != 0 && Zos_TimerGetStatus(id, &remain, &len) == ZOK && remain <= ms) {
        return;
    }
    Zos_TimerStop(id);
    if (Zos_TimerStart(id, 0, ms, 0, nullptr) == ZOK) {
        mgr->ucAlertArmed = alert ? 1 : 0;
        mgr->ucTimerArmed = alert ? 0 : 1;
    } else {
        mgr->ucAlertArmed = mgr->ucTimerArmed = 0;
    }
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zos_LogTaskStart(void) {
    if (Zos_CfgGetLogTaskSupt() == 0) return ZOK;
    ZosLogMgr *mgr = Mgr();
    if (mgr == nullptr) return ZFAILED;
    if (mgr->ucTaskOn != 0) return ZOK;
    mgr->uiTaskId = ZOS_INVALID_ID;
    mgr->uiTimerId = ZOS_INVALID_ID;
    uint32_t id = ZOS_INVALID_ID;
    if (Zos_ModTaskStart("LOG", Zos_CfgGetLogTaskPriority(), 0, 0, 0, Zos_LogTaskInit,
                         Zos_LogTaskDestroy, Zos_LogTaskProc, &id) != ZOK) {
        return ZFAILED;
    }
    mgr->uiTaskId = id;
    mgr->ucTaskOn = 1;
    return ZOK;
}

KESTRO_API void Zos_LogTaskStop(void) {
    ZosLogMgr *mgr = Mgr();
    if (mgr == nullptr || mgr->ucTaskOn == 0) return;
    // Nothing written before the stop stays in a cache.
    FlushAll();
    const uint32_t id = mgr->uiTaskId;
    Zos_ModTaskStop(id);
    mgr->ucTaskOn = 0;
    mgr->uiTaskId = ZOS_INVALID_ID;
}

KESTRO_API uint32_t Zos_LogTaskInit(const char * /*pcName*/, uint32_t uiTaskId) {
    ZosLogMgr *mgr = Mgr();
    if (mgr == nullptr) return ZFAILED;
    mgr->uiTaskId = uiTaskId;
    if (Zos_TimerCreate(uiTaskId, 0, &mgr->uiTimerId) != ZOK) return ZFAILED;
    Arm(mgr, Zos_CfgGetLogTaskAlertTimeLen(), true);
    return ZOK;
}

KESTRO_API int32_t Zos_LogTaskProc(void *zMsg) {
    ZosLogMgr *mgr = Mgr();
    if (mgr == nullptr || Zos_MsgGetType(zMsg) != ZOS_TIMER_MSG_TYPE) return 0;
    if (Zos_TimerEvntGetId(Zos_MsgGetEvntId(zMsg)) != mgr->uiTimerId) return 0;
    mgr->ucAlertArmed = mgr->ucTimerArmed = 0;
    if (FlushAll()) {
        Arm(mgr, Zos_CfgGetLogTaskAlertTimeLen(), true);
    } else {
        Arm(mgr, Zos_CfgGetLogTaskCycleTimeLen(), false);
    }
    return 0;
}

KESTRO_API void Zos_LogTaskDestroy(const char * /*pcName*/, uint32_t /*uiTaskId*/) {
    ZosLogMgr *mgr = Mgr();
    if (mgr == nullptr || mgr->uiTimerId == ZOS_INVALID_ID) return;
    // The timer manager may be gone already (shut-down stops it first).
    if (Zos_EnvLocateTmrMgr() != nullptr) Zos_TimerDelete(mgr->uiTimerId);
    mgr->uiTimerId = ZOS_INVALID_ID;
    mgr->ucAlertArmed = mgr->ucTimerArmed = 0;
}

KESTRO_API uint32_t Zos_LogTaskFlushLog(ZLOGID zLogId) {
    return Zos_LogFlush(zLogId);
}

}  // extern "C"
