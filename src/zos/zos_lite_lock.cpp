// The light lock's creation and its contended path.
#include "zos_lite_lock.h"

#include "zos_cfg_rec.h"

namespace zos {

bool MutexesOn() {
    const ST_ZOS_CFG *cfg = Zos_CfgLocate();
    return cfg == nullptr || cfg->OsMutexSupt != 0;
}

bool SemsOn() {
    const ST_ZOS_CFG *cfg = Zos_CfgLocate();
    return cfg == nullptr || cfg->OsSemSupt != 0;
}

bool LiteLockCreate(LiteLock *lock) {
    *lock = LiteLock{};
    if (!MutexesOn()) return true;
    auto create = Osdep<kSlotSemCreate>();
    SemWaitFn wait = Osdep<kSlotSemWait>();
    SemPostFn post = Osdep<kSlotSemPost>();
    if (create == nullptr || wait == nullptr || post == nullptr || create(&lock->zSem, 0) != ZOK) {
        return false;
    }
    lock->pfnWait = wait;
    lock->pfnPost = post;
    return true;
}

void LiteLockDelete(LiteLock *lock) {
    if (!LiteLockOn(lock)) return;
    auto del = Osdep<kSlotSemDelete>();
    if (del != nullptr) del(&lock->zSem);
    *lock = LiteLock{};
}

// No spin before sleeping: with the hold this short a waiter that spins
// mostly keeps the holder's cache lines moving between the two cores, and
// on a loaded machine burns the time slice the holder needs. A waiter
// that sleeps lets the holder run on alone and take a batch of turns.
__attribute__((noinline)) void LiteLockWait(LiteLock *lock) {
    std::atomic_ref<uint32_t> word(lock->uiWord);
    while (word.exchange(2, std::memory_order_acquire) != 0) {
        lock->pfnWait(&lock->zSem, ZOS_WAIT_FOREVER);
    }
}

}  // namespace zos
