// Platform holder and platform table fill.
//
// On a host without the Android entry the environment manager is a
// process-wide static record; attaching marks it in use and clears it.
#include <cstring>

#include "pand_main.h"
#include "zpand.h"
#include "zpand_timer.h"

namespace {

// The 64-byte environment manager the portable layer keeps its holder in.
struct OsenvMgr {
    bool used;
    alignas(16) unsigned char data[64];
};
OsenvMgr g_osenvMgr;

template <typename F>
ZOS_OSDEP_FUNC Slot(F fn) {
    return reinterpret_cast<ZOS_OSDEP_FUNC>(fn);
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zpand_OsenvAttach(uint32_t /*uiSize*/, void **ppMgr) {
    if (ppMgr == nullptr) return ZFAILED;
    zpand::UiEvntInit();
    if (!g_osenvMgr.used) {
        std::memset(g_osenvMgr.data, 0, sizeof(g_osenvMgr.data));
        g_osenvMgr.used = true;
    }
    *ppMgr = g_osenvMgr.data;
    return ZOK;
}

KESTRO_API void Zpand_OsenvDetach(void) {
    std::memset(g_osenvMgr.data, 0, sizeof(g_osenvMgr.data));
    g_osenvMgr.used = false;
}

KESTRO_API void *Zpand_OsenvLocate(void) {
    return g_osenvMgr.used ? g_osenvMgr.data : nullptr;
}

KESTRO_API void *Zpand_OsenvGetMgr(void) {
    return Zpand_OsenvLocate();
}

KESTRO_API uint32_t Zpand_OsdepAttach(ZOS_OSDEP_FUNC *t) {
    if (t == nullptr) return ZFAILED;
    const ZOS_OSDEP_FUNC fill[ZPAND_OSDEP_SLOTS] = {
        // 0-3 memory, print
        Slot(Zpand_Malloc), Slot(Zpand_Realloc), Slot(Zpand_Free), Slot(Zpand_Print),
        // 4-12 time
        Slot(Zpand_TimeInit), Slot(Zpand_TimeDestroy), Slot(Zpand_GetEpochTime),
        Slot(Zpand_GetHiresTime), Slot(Zpand_GetHrTime), Slot(Zpand_Time), Slot(Zpand_LocalTime),
        Slot(Zpand_MkTime), Slot(Zpand_TimeZone),
        // 13-26 files
        Slot(Zpand_FileOpen), Slot(Zpand_FileClose), Slot(Zpand_FileRemove),
        Slot(Zpand_FileRemoveX), Slot(Zpand_FileRename), Slot(Zpand_FileEof), Slot(Zpand_FileRead),
        Slot(Zpand_FileWrite), Slot(Zpand_FileFlush), Slot(Zpand_FileGets), Slot(Zpand_FileSeek),
        Slot(Zpand_FileTell), Slot(Zpand_FileSize), Slot(Zpand_FileStat),
        // 27-31 directories
        Slot(Zpand_DirOpen), Slot(Zpand_DirClose), Slot(Zpand_DirRead), Slot(Zpand_DirMake),
        Slot(Zpand_DirRemove),
        // 32-46 locks
        Slot(Zpand_MutexCreate), Slot(Zpand_MutexDelete), Slot(Zpand_MutexLock),
        Slot(Zpand_MutexUnlock), Slot(Zpand_SharexCreate), Slot(Zpand_SharexDelete),
        Slot(Zpand_SharexLock), Slot(Zpand_SharexUnlock), Slot(Zpand_SharexLockEx),
        Slot(Zpand_SharexUnlockEx), Slot(Zpand_SemCreate), Slot(Zpand_SemCreateOne),
        Slot(Zpand_SemDelete), Slot(Zpand_SemWait), Slot(Zpand_SemPost),
        // 47-58 byte order and descriptor sets (58 unused)
        Slot(Zpand_InetNtohl), Slot(Zpand_InetHtonl), Slot(Zpand_InetNtohs), Slot(Zpand_InetHtons),
        Slot(Zpand_InetFdCreate), Slot(Zpand_InetFdDelete), Slot(Zpand_InetFdCopy),
        Slot(Zpand_InetFdZero), Slot(Zpand_InetFdSet), Slot(Zpand_InetFdIsset),
        Slot(Zpand_InetFdClr), nullptr,
        // 59-67 drive and tasks; the thread-enter hook is empty on this
        // platform.
        Slot(Zpand_ModPostDrv), Slot(Zpand_TaskSpawn), Slot(Zpand_TaskDelete),
        Slot(Zpand_TaskDelay), nullptr, Slot(Zpand_TaskExit), Slot(Zpand_TaskIsCurrent),
        Slot(Zpand_TaskIsMainThread), Slot(Zpand_UiProcEvnt),
        // 68-71 OS timer
        Slot(Zpand_TimerInit), Slot(Zpand_TimerDestroy), Slot(Zpand_TimerStart),
        Slot(Zpand_TimerStop)};
    std::memcpy(t, fill, sizeof(fill));
    return ZOK;
}

}  // extern "C"
