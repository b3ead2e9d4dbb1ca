// The environment record of component 0: every subsystem's init counter
// and manager state. Found through the platform holder, never a global.
#pragma once

#include "zos_cfg.h"
#include "zos_dlist.h"
#include "zos_sys.h"

// Log manager; starts with its init counter.
struct ZosLogMgr {
    uint8_t ucInit;
    uint8_t ucTimerArmed;
    uint8_t ucAlertArmed;
    uint8_t ucTaskOn;  // the "LOG" task runs
    ZMUTEX zMutex;
    ST_ZOS_DLIST stLogList;
    ZLOGID zZosLogId;
    uint32_t uiTaskId;
    uint32_t uiTimerId;
    // Writes under way, and the flag that turns new ones away while the
    // logs are taken apart (atomics, left out of the manager's resets).
    uint32_t uiWriters;
    uint32_t uiClosing;
};

// Module manager (zos_mod.cpp); the task records and the hub's types are
// private to the module sources (zos_mod_int.h).
struct ZosModMgr {
    uint8_t ucInit;
    uint8_t ucMgrRun;      // set by MOD_MGR when its loop starts (atomic)
    uint32_t uiBusy;       // while non-zero posts leave the drive alone
    uint32_t uiSilence;    // a drive is about to run: posts request none (atomic)
    uint32_t bThreaded;    // drive mode fixed at init
    ZMUTEX zMutex;         // the module lock (recursive)
    uint32_t uiMgrTaskId;  // MOD_MGR's id in threaded mode
    uint32_t uiCapacity;   // records in the task array
    void *zQueue;          // shared priority queue
    void *zMap;            // object map: task id to record
    void *zHubBuf;         // the hub's arena
    void *zHub;            // red-black tree of hub entries by name
    void *pTasks;          // the task array (with its thread counter)
    ST_ZOS_DLIST stTaskList;
    void *pDeferHead;  // deferred calls of the shared queue
    void *pDeferTail;
    // The shared queue's handler running now: its task and the thread
    // running it (0: none). Under the module lock.
    uint32_t uiSharedRecv;
    uintptr_t zSharedThread;
};
// A timer manager (the self and the OS manager share the structure).
struct ZosTmrMgr {
    uint8_t ucInit;
    uint8_t ucSelfDrv;    // processed by its own task "TIMER"
    uint8_t ucOsDrv;      // processed when the platform timer fires
    ZMUTEX zMutex;        // running count and platform timer arming
    ZSEM zSem;            // wakes the timer task
    uint32_t uiTaskId;    // the driving task
    void *pQTimer;        // the queue timer
    uint32_t uiRealNum;   // timers running
    uint32_t uiArmedLen;  // length the platform timer runs for (ms), 0 = not armed
    uint32_t uiWakeups;   // times the timer task woke up
    uint8_t ucMutexMade;
    uint8_t ucSemMade;
    uint8_t ucIsOs;
    uint8_t ucDrvPosted;  // a drive message to "TIMEROS" is on its way
    // The gate (zos::TimerMgrUse); never cleared with the fields above,
    // so a late caller's count survives a shut-down and a new start.
    uint8_t ucClosing;  // set from a stop until the next start (atomic)
    uint32_t uiUsers;   // calls using the manager now (atomic)
};
struct ZosOsTmrMgr : ZosTmrMgr {};

struct ZosEnv {
    uint8_t ucSysInit;
    uint8_t ucDbufInit;
    uint8_t ucDumpInit;
    uint8_t ucReserved1;
    uint8_t ucMemInit;
    uint8_t ucPMemInit;
    uint8_t ucReserved2;
    uint8_t ucPrintInit;
    uint8_t ucPrintOpen;
    uint8_t ucTraceInit;
    uint8_t ucHttpInit;
    ZMUTEX zDbufMutex;
    ZMUTEX zDumpMutex;
    ZMUTEX zTraceMutex;
    uint64_t ullStartHrTime;
    ZMUTEX zPrintMutex;
    ZPOOL zDbufPool;
    ZPOOL zMemPool;
    ZPOOL zPMemPool;
    ZPOOL zPrintPool;
    ZosLogMgr stLogMgr;
    ZosModMgr stModMgr;
    ZosTmrMgr stTmrMgr;
    ZosOsTmrMgr stOsTmrMgr;
    ST_ZOS_DLIST stDumpList;
    ST_ZOS_DLIST stTraceList;
    ZOS_TRACE_EVNT pfnTraceEvnt;
    ZMUTEX zHttpMutex;
    void *pHttpMap;
    // Scratch texts of Zos_InetNtoa and Zos_InetMactoa, overwritten by
    // each call.
    char acInetNtoa[16];
    char acInetMactoa[18];
};

namespace zos {

// The record, created with the platform holder on first use.
inline ZosEnv *Env() {
    return static_cast<ZosEnv *>(Zos_EnvLocate());
}

// The record only if it already exists.
inline ZosEnv *EnvIfAny() {
    void *p = nullptr;
    return Zos_SysEnvLocate(ZOS_COMP_ZOS, &p) == ZOK ? static_cast<ZosEnv *>(p) : nullptr;
}

}  // namespace zos
