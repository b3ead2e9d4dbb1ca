// Locks and semaphores: each operation forwards to its platform slot
// unless its kind is switched off in the configuration.
#include "zos_cfg_rec.h"
#include "zos_lock.h"
#include "zos_osdep.h"

namespace {

enum class Kind { kMutex, kSharex, kSem };

bool Enabled(Kind kind) {
    const ST_ZOS_CFG *cfg = Zos_CfgLocate();
    if (cfg == nullptr) return true;
    switch (kind) {
        case Kind::kMutex:
            return cfg->OsMutexSupt != 0;
        case Kind::kSharex:
            return cfg->OsSharexSupt != 0;
        case Kind::kSem:
            return cfg->OsSemSupt != 0;
    }
    return true;
}

// Switch off: success without doing anything; empty slot or null handle
// address: failure; else the slot's own result.
template <uint32_t kSlot, Kind kKind, typename H, typename... Args>
uint32_t Forward(H *handle, Args... args) {
    if (!Enabled(kKind)) return ZOK;
    auto fn = zos::Osdep<kSlot>();
    if (fn == nullptr || handle == nullptr) return ZFAILED;
    return fn(handle, args...);
}

}  // namespace

extern "C" {

#define ZOS_LOCK_OP(name, slot, kind, H)          \
    KESTRO_API uint32_t Zos_##name(H *h) {        \
        return Forward<zos::slot, Kind::kind>(h); \
    }

ZOS_LOCK_OP(MutexCreate, kSlotMutexCreate, kMutex, ZMUTEX)
ZOS_LOCK_OP(MutexDelete, kSlotMutexDelete, kMutex, ZMUTEX)
ZOS_LOCK_OP(MutexLock, kSlotMutexLock, kMutex, ZMUTEX)
ZOS_LOCK_OP(MutexUnlock, kSlotMutexUnlock, kMutex, ZMUTEX)
ZOS_LOCK_OP(SharexCreate, kSlotSharexCreate, kSharex, ZSHAREX)
ZOS_LOCK_OP(SharexDelete, kSlotSharexDelete, kSharex, ZSHAREX)
ZOS_LOCK_OP(SharexLock, kSlotSharexLock, kSharex, ZSHAREX)
ZOS_LOCK_OP(SharexUnlock, kSlotSharexUnlock, kSharex, ZSHAREX)
ZOS_LOCK_OP(SharexLockEx, kSlotSharexLockEx, kSharex, ZSHAREX)
ZOS_LOCK_OP(SharexUnlockEx, kSlotSharexUnlockEx, kSharex, ZSHAREX)
ZOS_LOCK_OP(SemCreateOne, kSlotSemCreateOne, kSem, ZSEM)
ZOS_LOCK_OP(SemDelete, kSlotSemDelete, kSem, ZSEM)
ZOS_LOCK_OP(SemPost, kSlotSemPost, kSem, ZSEM)

#undef ZOS_LOCK_OP

KESTRO_API uint32_t Zos_SemCreate(ZSEM *pzSem, uint32_t uiCount) {
    return Forward<zos::kSlotSemCreate, Kind::kSem>(pzSem, uiCount);
}

KESTRO_API uint32_t Zos_SemWait(ZSEM *pzSem, uint32_t uiTimeout) {
    return Forward<zos::kSlotSemWait, Kind::kSem>(pzSem, uiTimeout);
}

}  // extern "C"
