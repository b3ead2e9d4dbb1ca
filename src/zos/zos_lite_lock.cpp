// The light lock's creation and its contended path.
#include "zos_lite_lock.h"

#include "zos_cfg_rec.h"
#include "zos_cpu.h"

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

// A waiter first spins a short while: the holds are a few dozen
// nanoseconds, so on another core the word is usually free again well
// before a sleep and a wake-up (two system calls) could be paid for. The
// spin only reads the word, so the holder keeps its cache line until it
// lets go, and it is bounded, so on a loaded machine (holder not running)
// the waiter soon sleeps on the semaphore and leaves the core to it.
// A waiter that wins during the spin leaves the word at 1: threads that
// sleep already have set 2, and they set it again when they wake.
__attribute__((noinline)) void LiteLockWait(LiteLock *lock) {
    std::atomic_ref<uint32_t> word(lock->uiWord);
    for (uint32_t i = 0; i < kLiteSpins; ++i) {
        uint32_t seen = word.load(std::memory_order_relaxed);
        if (seen == 0 && word.compare_exchange_weak(seen, 1, std::memory_order_acquire,
                                                    std::memory_order_relaxed)) {
            return;
        }
        CpuRelax();
    }
    while (word.exchange(2, std::memory_order_acquire) != 0) {
        lock->pfnWait(&lock->zSem, ZOS_WAIT_FOREVER);
    }
}

}  // namespace zos
