// Platform table slots and their typed access.
//
// Every operating-system service the layer uses sits behind one slot of the
// 116-slot platform table. Family code calls Osdep<kSlot>() and gets either
// the typed function or null, in which case it takes its fallback.
#pragma once

#include "zos_sys.h"
#include "zpand.h"
#include "zpand_timer.h"

namespace zos {

enum OsdepSlot : uint32_t {
    kSlotMalloc = 0,
    kSlotRealloc = 1,
    kSlotFree = 2,
    kSlotPrint = 3,
    kSlotTimeInit = 4,
    kSlotTimeDestroy = 5,
    kSlotGetEpochTime = 6,
    kSlotGetHiresTime = 7,
    kSlotGetHrTime = 8,
    kSlotTime = 9,
    kSlotLocalTime = 10,
    kSlotMkTime = 11,
    kSlotTimeZone = 12,
    kSlotFileOpen = 13,
    kSlotFileClose = 14,
    kSlotFileRemove = 15,
    kSlotFileRemoveX = 16,
    kSlotFileRename = 17,
    kSlotFileEof = 18,
    kSlotFileRead = 19,
    kSlotFileWrite = 20,
    kSlotFileFlush = 21,
    kSlotFileGets = 22,
    kSlotFileSeek = 23,
    kSlotFileTell = 24,
    kSlotFileSize = 25,
    kSlotFileStat = 26,
    kSlotDirOpen = 27,
    kSlotDirClose = 28,
    kSlotDirRead = 29,
    kSlotDirMake = 30,
    kSlotDirRemove = 31,
    kSlotMutexCreate = 32,
    kSlotMutexDelete = 33,
    kSlotMutexLock = 34,
    kSlotMutexUnlock = 35,
    kSlotSharexCreate = 36,
    kSlotSharexDelete = 37,
    kSlotSharexLock = 38,
    kSlotSharexUnlock = 39,
    kSlotSharexLockEx = 40,
    kSlotSharexUnlockEx = 41,
    kSlotSemCreate = 42,
    kSlotSemCreateOne = 43,
    kSlotSemDelete = 44,
    kSlotSemWait = 45,
    kSlotSemPost = 46,
    kSlotInetNtohl = 49,
    kSlotInetHtonl = 50,
    kSlotInetNtohs = 51,
    kSlotInetHtons = 52,
    kSlotInetFdCreate = 53,
    kSlotInetFdDelete = 54,
    kSlotInetFdCopy = 55,
    kSlotInetFdZero = 56,
    kSlotInetFdSet = 57,
    kSlotInetFdIsset = 58,
    kSlotInetFdClr = 59,
    kSlotInetPton4 = 60,
    kSlotInetLocalIp = 61,
    kSlotModPostDrv = 94,
    kSlotTaskSpawn = 95,
    kSlotTaskDelete = 96,
    kSlotTaskDelay = 97,
    kSlotTaskEnter = 98,
    kSlotTaskExit = 99,
    kSlotTaskIsCurrent = 100,
    kSlotTaskIsMainThread = 101,
    kSlotUiProcEvnt = 102,
    kSlotTimerInit = 103,
    kSlotTimerDestroy = 104,
    kSlotTimerStart = 105,
    kSlotTimerStop = 106,
    kSlotHttpOpen = 107,
    kSlotHttpClose = 108,
    kSlotHttpConn = 109,
    kSlotHttpDisconn = 110,
    kSlotHttpSetProp = 111,
    kSlotHttpSetCfg = 112,
    kSlotHttpSetBody = 113,
    kSlotHttpSetFile = 114,
    kSlotHttpGetBody = 115,
    kSlotCount = 116,
};

// Typed signature of each slot, taken from the platform function that
// fills it, so a slot and its filler can never disagree.
template <uint32_t kSlot>
struct SlotType;

#define ZOS_SLOT_TYPE(slot, fn)     \
    template <>                     \
    struct SlotType<slot> {         \
        using type = decltype(&fn); \
    };

ZOS_SLOT_TYPE(kSlotMalloc, Zpand_Malloc)
ZOS_SLOT_TYPE(kSlotRealloc, Zpand_Realloc)
ZOS_SLOT_TYPE(kSlotFree, Zpand_Free)
ZOS_SLOT_TYPE(kSlotPrint, Zpand_Print)
ZOS_SLOT_TYPE(kSlotTimeInit, Zpand_TimeInit)
ZOS_SLOT_TYPE(kSlotTimeDestroy, Zpand_TimeDestroy)
ZOS_SLOT_TYPE(kSlotGetEpochTime, Zpand_GetEpochTime)
ZOS_SLOT_TYPE(kSlotGetHiresTime, Zpand_GetHiresTime)
ZOS_SLOT_TYPE(kSlotGetHrTime, Zpand_GetHrTime)
ZOS_SLOT_TYPE(kSlotTime, Zpand_Time)
ZOS_SLOT_TYPE(kSlotLocalTime, Zpand_LocalTime)
ZOS_SLOT_TYPE(kSlotMkTime, Zpand_MkTime)
ZOS_SLOT_TYPE(kSlotTimeZone, Zpand_TimeZone)
ZOS_SLOT_TYPE(kSlotFileOpen, Zpand_FileOpen)
ZOS_SLOT_TYPE(kSlotFileClose, Zpand_FileClose)
ZOS_SLOT_TYPE(kSlotFileRemove, Zpand_FileRemove)
ZOS_SLOT_TYPE(kSlotFileRemoveX, Zpand_FileRemoveX)
ZOS_SLOT_TYPE(kSlotFileRename, Zpand_FileRename)
ZOS_SLOT_TYPE(kSlotFileEof, Zpand_FileEof)
ZOS_SLOT_TYPE(kSlotFileRead, Zpand_FileRead)
ZOS_SLOT_TYPE(kSlotFileWrite, Zpand_FileWrite)
ZOS_SLOT_TYPE(kSlotFileFlush, Zpand_FileFlush)
ZOS_SLOT_TYPE(kSlotFileGets, Zpand_FileGets)
ZOS_SLOT_TYPE(kSlotFileSeek, Zpand_FileSeek)
ZOS_SLOT_TYPE(kSlotFileTell, Zpand_FileTell)
ZOS_SLOT_TYPE(kSlotFileSize, Zpand_FileSize)
ZOS_SLOT_TYPE(kSlotFileStat, Zpand_FileStat)
ZOS_SLOT_TYPE(kSlotDirOpen, Zpand_DirOpen)
ZOS_SLOT_TYPE(kSlotDirClose, Zpand_DirClose)
ZOS_SLOT_TYPE(kSlotDirRead, Zpand_DirRead)
ZOS_SLOT_TYPE(kSlotDirMake, Zpand_DirMake)
ZOS_SLOT_TYPE(kSlotDirRemove, Zpand_DirRemove)
ZOS_SLOT_TYPE(kSlotMutexCreate, Zpand_MutexCreate)
ZOS_SLOT_TYPE(kSlotMutexDelete, Zpand_MutexDelete)
ZOS_SLOT_TYPE(kSlotMutexLock, Zpand_MutexLock)
ZOS_SLOT_TYPE(kSlotMutexUnlock, Zpand_MutexUnlock)
ZOS_SLOT_TYPE(kSlotSharexCreate, Zpand_SharexCreate)
ZOS_SLOT_TYPE(kSlotSharexDelete, Zpand_SharexDelete)
ZOS_SLOT_TYPE(kSlotSharexLock, Zpand_SharexLock)
ZOS_SLOT_TYPE(kSlotSharexUnlock, Zpand_SharexUnlock)
ZOS_SLOT_TYPE(kSlotSharexLockEx, Zpand_SharexLockEx)
ZOS_SLOT_TYPE(kSlotSharexUnlockEx, Zpand_SharexUnlockEx)
ZOS_SLOT_TYPE(kSlotSemCreate, Zpand_SemCreate)
ZOS_SLOT_TYPE(kSlotSemCreateOne, Zpand_SemCreateOne)
ZOS_SLOT_TYPE(kSlotSemDelete, Zpand_SemDelete)
ZOS_SLOT_TYPE(kSlotSemWait, Zpand_SemWait)
ZOS_SLOT_TYPE(kSlotSemPost, Zpand_SemPost)
ZOS_SLOT_TYPE(kSlotInetNtohl, Zpand_InetNtohl)
ZOS_SLOT_TYPE(kSlotInetHtonl, Zpand_InetHtonl)
ZOS_SLOT_TYPE(kSlotInetNtohs, Zpand_InetNtohs)
ZOS_SLOT_TYPE(kSlotInetHtons, Zpand_InetHtons)
ZOS_SLOT_TYPE(kSlotInetFdCreate, Zpand_InetFdCreate)
ZOS_SLOT_TYPE(kSlotInetFdDelete, Zpand_InetFdDelete)
ZOS_SLOT_TYPE(kSlotInetFdCopy, Zpand_InetFdCopy)
ZOS_SLOT_TYPE(kSlotInetFdZero, Zpand_InetFdZero)
ZOS_SLOT_TYPE(kSlotInetFdSet, Zpand_InetFdSet)
ZOS_SLOT_TYPE(kSlotInetFdIsset, Zpand_InetFdIsset)
ZOS_SLOT_TYPE(kSlotInetFdClr, Zpand_InetFdClr)
ZOS_SLOT_TYPE(kSlotInetPton4, Zpand_InetPton4)
ZOS_SLOT_TYPE(kSlotInetLocalIp, Zpand_InetGetLocalIp)
ZOS_SLOT_TYPE(kSlotModPostDrv, Zpand_ModPostDrv)
ZOS_SLOT_TYPE(kSlotTimerInit, Zpand_TimerInit)
ZOS_SLOT_TYPE(kSlotTimerDestroy, Zpand_TimerDestroy)
ZOS_SLOT_TYPE(kSlotTimerStart, Zpand_TimerStart)
ZOS_SLOT_TYPE(kSlotTimerStop, Zpand_TimerStop)
ZOS_SLOT_TYPE(kSlotTaskSpawn, Zpand_TaskSpawn)
ZOS_SLOT_TYPE(kSlotTaskDelete, Zpand_TaskDelete)
ZOS_SLOT_TYPE(kSlotTaskDelay, Zpand_TaskDelay)
ZOS_SLOT_TYPE(kSlotTaskExit, Zpand_TaskExit)
ZOS_SLOT_TYPE(kSlotTaskIsCurrent, Zpand_TaskIsCurrent)
ZOS_SLOT_TYPE(kSlotTaskIsMainThread, Zpand_TaskIsMainThread)
ZOS_SLOT_TYPE(kSlotUiProcEvnt, Zpand_UiProcEvnt)

// The optional thread-enter hook has no filler on this platform: (thread
// handle, place for the word the exit hook receives).
template <>
struct SlotType<kSlotTaskEnter> {
    using type = uint32_t (*)(uintptr_t zHandle, uintptr_t *pzWord);
};
ZOS_SLOT_TYPE(kSlotHttpOpen, Zpand_HttpOpen)
ZOS_SLOT_TYPE(kSlotHttpClose, Zpand_HttpClose)
ZOS_SLOT_TYPE(kSlotHttpConn, Zpand_HttpConn)
ZOS_SLOT_TYPE(kSlotHttpDisconn, Zpand_HttpDisconn)
ZOS_SLOT_TYPE(kSlotHttpSetProp, Zpand_HttpSetProp)
ZOS_SLOT_TYPE(kSlotHttpSetCfg, Zpand_HttpSetCfg)
ZOS_SLOT_TYPE(kSlotHttpSetBody, Zpand_HttpSetBody)
ZOS_SLOT_TYPE(kSlotHttpSetFile, Zpand_HttpSetFile)
ZOS_SLOT_TYPE(kSlotHttpGetBody, Zpand_HttpGetBody)

#undef ZOS_SLOT_TYPE

// Slot n of a holder's table. Read atomically (a plain load on every
// target): a host may replace a slot while the layer's threads call
// through it.
inline ZOS_OSDEP_FUNC SlotIn(const ST_ZOS_OSENV *holder, uint32_t n) {
    return __atomic_load_n(&holder->pfnOsdep[n], __ATOMIC_RELAXED);
}

// The typed function in a slot, or null when the slot is empty.
template <uint32_t kSlot>
inline typename SlotType<kSlot>::type Osdep() {
    return reinterpret_cast<typename SlotType<kSlot>::type>(Zos_OsdepFind(kSlot));
}

}  // namespace zos
