// The light lock of the layer's own containers (pools, queues): a lock word
// taken and released with one atomic operation each when nobody competes,
// recursive for the thread that holds it, and a platform semaphore that
// competing threads sleep on. It replaces the recursive platform mutex on
// the hot paths; mutexes switched off in the configuration leave it off.
//
// Lock word: 0 free, 1 held, 2 held while a waiter may sleep. A waiter
// always leaves the word at 2, so the holder's release posts the semaphore
// and wakes the next sleeper; the semaphore counts, so a post that comes
// before the waiter sleeps is not lost.
#pragma once

#include <atomic>

#include "zos_lock.h"
#include "zos_osdep.h"

namespace zos {

using SemWaitFn = SlotType<kSlotSemWait>::type;
using SemPostFn = SlotType<kSlotSemPost>::type;

struct LiteLock {
    uint32_t uiWord;
    uint32_t uiDepth;  // extra holds taken by the holder again
    uintptr_t zOwner;  // the holder's thread tag, 0 while free
    ZSEM zSem;
    SemWaitFn pfnWait;  // null: the lock is off
    SemPostFn pfnPost;
};

// The configuration switches, read when an object is created; true when
// no configuration exists yet (the layer's own default).
bool MutexesOn();
bool SemsOn();

// Readies the lock. Mutexes switched off: the lock stays off (true). False
// when its semaphore cannot be made; the lock is then off.
bool LiteLockCreate(LiteLock *lock);
// Releases the semaphore of a lock that is on; the lock is off afterwards.
void LiteLockDelete(LiteLock *lock);

inline bool LiteLockOn(const LiteLock *lock) {
    return lock->pfnWait != nullptr;
}

// A word that differs between threads alive at the same time: the thread
// pointer where the compiler gives it, else a thread-local address.
inline uintptr_t ThreadTag() {
#if defined(__x86_64__) || defined(__aarch64__) || defined(__arm__)
    return reinterpret_cast<uintptr_t>(__builtin_thread_pointer());
#else
    static thread_local char tag;
    return reinterpret_cast<uintptr_t>(&tag);
#endif
}

// Sleeps on the semaphore until the word is won.
void LiteLockWait(LiteLock *lock);

// Takes a lock that is on when nobody holds it, this thread included;
// false, with nothing changed, when somebody does.
inline bool LiteLockTry(LiteLock *lock) {
    uint32_t expected = 0;
    if (!std::atomic_ref<uint32_t>(lock->uiWord)
             .compare_exchange_strong(expected, 1, std::memory_order_acquire,
                                      std::memory_order_relaxed)) {
        return false;
    }
    std::atomic_ref<uintptr_t>(lock->zOwner).store(ThreadTag(), std::memory_order_relaxed);
    return true;
}

// Takes a lock that is on.
inline void LiteLockTake(LiteLock *lock) {
    if (LiteLockTry(lock)) return;
    const uintptr_t me = ThreadTag();
    std::atomic_ref<uintptr_t> owner(lock->zOwner);
    // Only this thread can have stored its own tag there.
    if (owner.load(std::memory_order_relaxed) == me) {
        lock->uiDepth++;
        return;
    }
    LiteLockWait(lock);
    owner.store(me, std::memory_order_relaxed);
}

// Frees the word of a lock that is on and held once; true when a waiter
// may sleep, whom the caller then wakes with a post.
inline bool LiteLockDrop(LiteLock *lock) {
    std::atomic_ref<uintptr_t>(lock->zOwner).store(0, std::memory_order_relaxed);
    return std::atomic_ref<uint32_t>(lock->uiWord).exchange(0, std::memory_order_release) == 2;
}

// Gives back one hold of a lock that is on.
inline void LiteLockGive(LiteLock *lock) {
    if (lock->uiDepth != 0) {
        lock->uiDepth--;
        return;
    }
    if (LiteLockDrop(lock)) lock->pfnPost(&lock->zSem);
}

// Holds a light lock for a scope; does nothing when the lock is off.
class LiteGuard {
  public:
    explicit LiteGuard(LiteLock *lock) : lock_(LiteLockOn(lock) ? lock : nullptr) {
        if (lock_ != nullptr) LiteLockTake(lock_);
    }
    ~LiteGuard() {
        if (lock_ != nullptr) LiteLockGive(lock_);
    }
    LiteGuard(const LiteGuard &) = delete;
    LiteGuard &operator=(const LiteGuard &) = delete;

  private:
    LiteLock *lock_;
};

}  // namespace zos
