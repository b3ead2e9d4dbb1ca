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

// Called by a poll holding the lock when it found nothing to take. Without
// bWait releases the lock and returns false; else waits (at most ms on the
// semaphore) and returns true holding the lock again, to look once more.
// A poll of a locked queue counts itself as a sleeper in the hold in which
// it found nothing (an add after that look sees the count and posts).
// It does not spin first: on two cores a spinning poller keeps the queue's
// lines moving between them and slows the adds it waits for.
inline bool GateAwait(QueueGate *gate, uint32_t bWait, uint32_t ms) {
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
    if (counted) gate->uiWaiters++;
    GateUnlock(gate);
    gate->pfnWait(&gate->zSem, ms);
    GateLock(gate);
    if (counted) gate->uiWaiters--;
    return true;
}

}  // namespace zos
