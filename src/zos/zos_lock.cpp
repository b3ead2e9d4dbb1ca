// Locks and semaphores: each operation forwards to its platform slot
// unless its kind is switched off in the configuration.
#include "zos_cfg_rec.h"
#include "zos_lock.h"
#include "zos_osdep.h"

namespace {

enum class Kind { kMutex, kSharex, kSem };

bool Flag(const ST_ZOS_CFG *cfg, Kind kind) {
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

bool Enabled(Kind kind) {
    const ST_ZOS_CFG *cfg = Zos_CfgLocate();
    return cfg == nullptr || Flag(cfg, kind);
}

// Switch off: success without doing anything; empty slot or null handle
// address: failure; else the slot's own result. Locks sit on the hot path
// of every locked container, so once the holder and the configuration
// exist one holder lookup serves both the switch and the slot; before
// that the general lookups create them on demand.
template <uint32_t kSlot, Kind kKind, typename H, typename... Args>
uint32_t Forward(H *handle, Args... args) {
    using Fn = typename zos::SlotType<kSlot>::type;
    Fn fn = nullptr;
    const ST_ZOS_OSENV *holder = Zos_OsenvLocate();
    const void *cfg = holder != nullptr ? holder->pstComps[ZOS_COMP_ZOS].pCfg : nullptr;
    if (cfg != nullptr) {
        if (!Flag(static_cast<const ST_ZOS_CFG *>(cfg), kKind)) return ZOK;
        fn = reinterpret_cast<Fn>(zos::SlotIn(holder, kSlot));
    } else {
        if (!Enabled(kKind)) return ZOK;
        fn = zos::Osdep<kSlot>();
    }
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
