// The lock and the wake-up of the queue and the priority queue.
//
// A queue made with the lock flag holds a light lock; one made with the
// blocking flag holds a semaphore that waiting pollers sleep on, posted
// once when an add finds the queue empty. Where the lock is on, the
// pollers asleep are counted under it and that post is made only while one
// of them sleeps: a poller counts itself in the same hold in which it
// found nothing to take, so every add after that look sees the count and
// posts. Without the lock the post is made on every such add.
#pragma once

#include <atomic>

#include "zos_lite_lock.h"

namespace zos {

// The lock's word and holder come first: a queue places what it changes
// on every add and poll just before the gate, to share their cache line.
struct QueueGate {
    LiteLock stLock;
    uint8_t ucLocked;    // made with the lock flag
    uint8_t ucSem;       // the semaphore was made
    uint32_t uiWaiters;  // pollers asleep, counted under the lock
    ZSEM zSem;
    SemWaitFn pfnWait;  // null: a waiting poll tries again at once
    SemPostFn pfnPost;
};

// Makes the lock and the semaphore as asked, logging the queues' shared
// failure texts; false on failure (the caller undoes with GateDelete).
bool GateCreate(QueueGate *gate, bool locked, bool blocking);
void GateDelete(QueueGate *gate);

inline void GateLock(QueueGate *gate) {
    if (LiteLockOn(&gate->stLock)) LiteLockTake(&gate->stLock);
}

inline void GateUnlock(QueueGate *gate) {
    if (LiteLockOn(&gate->stLock)) LiteLockGive(&gate->stLock);
}

// Decided under the lock by an add that found the queue empty; the post
// itself follows the unlock, so the woken poller does not meet the lock
// still held.
inline bool GateMustPost(const QueueGate *gate) {
    return gate->pfnPost != nullptr && (gate->uiWaiters != 0 || !LiteLockOn(&gate->stLock));
}

inline void GatePost(QueueGate *gate) {
    gate->pfnPost(&gate->zSem);
}

// How many times a poll of a locked queue looks at the queue's watched
// word before it sleeps: a producer on another core usually adds within
// that time, and the poll then takes the item without the semaphore's
// sleep and wake-up (two system calls, several microseconds).
constexpr uint32_t kGateSpins = 256;

inline void GateRelax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__) || defined(__arm__)
    __asm__ __volatile__("yield");
#endif
}

// A word the queue changes under its lock (its item count), read without
// the lock by a poll that spins. The queue writes it through Publish.
inline uint32_t Watch(const uint32_t *word) {
    return std::atomic_ref<uint32_t>(*const_cast<uint32_t *>(word)).load(std::memory_order_relaxed);
}

inline void Publish(uint32_t *word, uint32_t value) {
    std::atomic_ref<uint32_t>(*word).store(value, std::memory_order_relaxed);
}

// Called by a poll holding the lock when it found nothing to take. Without
// bWait releases the lock and returns false; else waits (at most ms on the
// semaphore) and returns true holding the lock again, to look once more.
// With a watched word (`watch`, a locked queue's item count) that is 0,
// the poll first spins unlocked until the word changes: the add that ends
// the spin is one that would have posted to it asleep, so it looks again
// exactly when it would have been woken. It counts itself as a sleeper and
// sleeps when the word stayed 0 through the spin and the relock (an add
// after that look sees the count and posts), and at once when the queue
// holds items it does not accept (adds then do not post: it sleeps on).
inline bool GateAwait(QueueGate *gate, uint32_t bWait, uint32_t ms,
                      const uint32_t *watch = nullptr) {
    if (!bWait) {
        GateUnlock(gate);
        return false;
    }
    if (gate->pfnWait == nullptr) {
        GateUnlock(gate);
        GateLock(gate);
        return true;
    }
    const bool counted = LiteLockOn(&gate->stLock);
    if (counted && watch != nullptr && *watch == 0) {
        GateUnlock(gate);
        for (uint32_t i = 0; i < kGateSpins && Watch(watch) == 0; ++i) GateRelax();
        GateLock(gate);
        if (*watch != 0) return true;
    }
    if (counted) gate->uiWaiters++;
    GateUnlock(gate);
    gate->pfnWait(&gate->zSem, ms);
    GateLock(gate);
    if (counted) gate->uiWaiters--;
    return true;
}

}  // namespace zos
