// Recursive mutexes, reader-writer locks and counting semaphores over
// POSIX threads. Each handle word holds a pointer to a heap object.
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <new>

#include "pand_heap.h"
#include "zpand.h"

namespace {

// Recursive mutex that its last user destroys. Each lock counts as a use
// from before it waits until after its unlock, and the handle counts as
// one until the delete. A delete of a mutex that another thread holds or
// waits for (a thread left running past its owner's clean-up) so never
// destroys a held mutex nor frees memory that thread goes on to use: the
// holder's last unlock destroys it.
struct Mutex {
    pthread_mutex_t m;
    std::atomic<uint32_t> users;
};

void Drop(Mutex *m) {
    if (m->users.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    pthread_mutex_destroy(&m->m);
    zpand::heap::Free(m);
}

// Counting semaphore on a monotonic clock, so time-outs do not move with
// wall-clock changes.
struct Sem {
    pthread_mutex_t mutex;
    pthread_cond_t cond;
    uint32_t count;
};

template <typename T>
T *Make() {
    void *p = zpand::heap::Alloc(sizeof(T));
    return p != nullptr ? new (p) T{} : nullptr;
}

template <typename T>
T *From(const uintptr_t *h) {
    return h != nullptr ? reinterpret_cast<T *>(*h) : nullptr;
}

timespec Deadline(uint32_t ms) {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    ts.tv_sec += static_cast<time_t>(ms / 1000u);
    ts.tv_nsec += static_cast<long>(ms % 1000u) * 1000000L;
    if (ts.tv_nsec >= 1000000000L) {
        ts.tv_sec += 1;
        ts.tv_nsec -= 1000000000L;
    }
    return ts;
}

uint32_t Ok(int rc) {
    return rc == 0 ? ZOK : ZFAILED;
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zpand_MutexCreate(ZMUTEX *pzMutex) {
    if (pzMutex == nullptr) return ZFAILED;
    auto *m = Make<Mutex>();
    if (m == nullptr) return ZFAILED;
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    const int rc = pthread_mutex_init(&m->m, &attr);
    pthread_mutexattr_destroy(&attr);
    if (rc != 0) {
        zpand::heap::Free(m);
        return ZFAILED;
    }
    m->users.store(1, std::memory_order_relaxed);
    *pzMutex = reinterpret_cast<uintptr_t>(m);
    return ZOK;
}

KESTRO_API uint32_t Zpand_MutexDelete(ZMUTEX *pzMutex) {
    auto *m = From<Mutex>(pzMutex);
    if (m == nullptr) return ZFAILED;
    *pzMutex = 0;
    Drop(m);
    return ZOK;
}

KESTRO_API uint32_t Zpand_MutexLock(ZMUTEX *pzMutex) {
    auto *m = From<Mutex>(pzMutex);
    if (m == nullptr) return ZFAILED;
    m->users.fetch_add(1, std::memory_order_relaxed);
    if (pthread_mutex_lock(&m->m) == 0) return ZOK;
    Drop(m);
    return ZFAILED;
}

KESTRO_API uint32_t Zpand_MutexUnlock(ZMUTEX *pzMutex) {
    auto *m = From<Mutex>(pzMutex);
    if (m == nullptr) return ZFAILED;
    // Not held by this thread: nothing to give back.
    if (pthread_mutex_unlock(&m->m) != 0) return ZFAILED;
    Drop(m);
    return ZOK;
}

KESTRO_API uint32_t Zpand_SharexCreate(ZSHAREX *pzSharex) {
    if (pzSharex == nullptr) return ZFAILED;
    auto *l = Make<pthread_rwlock_t>();
    if (l == nullptr) return ZFAILED;
    if (pthread_rwlock_init(l, nullptr) != 0) {
        zpand::heap::Free(l);
        return ZFAILED;
    }
    *pzSharex = reinterpret_cast<uintptr_t>(l);
    return ZOK;
}

KESTRO_API uint32_t Zpand_SharexDelete(ZSHAREX *pzSharex) {
    auto *l = From<pthread_rwlock_t>(pzSharex);
    if (l == nullptr) return ZFAILED;
    pthread_rwlock_destroy(l);
    zpand::heap::Free(l);
    *pzSharex = 0;
    return ZOK;
}

KESTRO_API uint32_t Zpand_SharexLock(ZSHAREX *pzSharex) {
    auto *l = From<pthread_rwlock_t>(pzSharex);
    return l != nullptr ? Ok(pthread_rwlock_rdlock(l)) : ZFAILED;
}

KESTRO_API uint32_t Zpand_SharexUnlock(ZSHAREX *pzSharex) {
    auto *l = From<pthread_rwlock_t>(pzSharex);
    return l != nullptr ? Ok(pthread_rwlock_unlock(l)) : ZFAILED;
}

KESTRO_API uint32_t Zpand_SharexLockEx(ZSHAREX *pzSharex) {
    auto *l = From<pthread_rwlock_t>(pzSharex);
    return l != nullptr ? Ok(pthread_rwlock_wrlock(l)) : ZFAILED;
}

KESTRO_API uint32_t Zpand_SharexUnlockEx(ZSHAREX *pzSharex) {
    return Zpand_SharexUnlock(pzSharex);
}

KESTRO_API uint32_t Zpand_SemCreate(ZSEM *pzSem, uint32_t uiCount) {
    if (pzSem == nullptr) return ZFAILED;
    auto *s = Make<Sem>();
    if (s == nullptr) return ZFAILED;
    pthread_condattr_t attr;
    pthread_condattr_init(&attr);
    pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
    const int rc1 = pthread_mutex_init(&s->mutex, nullptr);
    const int rc2 = pthread_cond_init(&s->cond, &attr);
    pthread_condattr_destroy(&attr);
    if (rc1 != 0 || rc2 != 0) {
        if (rc1 == 0) pthread_mutex_destroy(&s->mutex);
        if (rc2 == 0) pthread_cond_destroy(&s->cond);
        zpand::heap::Free(s);
        return ZFAILED;
    }
    s->count = uiCount;
    *pzSem = reinterpret_cast<uintptr_t>(s);
    return ZOK;
}

// The semaphore starts empty on purpose: the first wait blocks until a post.
KESTRO_API uint32_t Zpand_SemCreateOne(ZSEM *pzSem) {
    return Zpand_SemCreate(pzSem, 0);
}

KESTRO_API uint32_t Zpand_SemDelete(ZSEM *pzSem) {
    auto *s = From<Sem>(pzSem);
    if (s == nullptr) return ZFAILED;
    pthread_cond_destroy(&s->cond);
    pthread_mutex_destroy(&s->mutex);
    zpand::heap::Free(s);
    *pzSem = 0;
    return ZOK;
}

KESTRO_API uint32_t Zpand_SemWait(ZSEM *pzSem, uint32_t uiTimeout) {
    auto *s = From<Sem>(pzSem);
    if (s == nullptr) return ZFAILED;
    // Only a bounded wait needs the clock.
    const bool bounded = uiTimeout != 0xFFFFFFFFu && uiTimeout != 0;
    const timespec deadline = bounded ? Deadline(uiTimeout) : timespec{};
    pthread_mutex_lock(&s->mutex);
    int rc = 0;
    while (s->count == 0 && rc == 0) {
        if (uiTimeout == 0xFFFFFFFFu) {
            rc = pthread_cond_wait(&s->cond, &s->mutex);
        } else if (uiTimeout == 0) {
            rc = ETIMEDOUT;
        } else {
            rc = pthread_cond_timedwait(&s->cond, &s->mutex, &deadline);
        }
    }
    const bool got = s->count > 0;
    if (got) --s->count;
    pthread_mutex_unlock(&s->mutex);
    return got ? ZOK : ZFAILED;
}

KESTRO_API uint32_t Zpand_SemPost(ZSEM *pzSem) {
    auto *s = From<Sem>(pzSem);
    if (s == nullptr) return ZFAILED;
    pthread_mutex_lock(&s->mutex);
    ++s->count;
    pthread_cond_signal(&s->cond);
    pthread_mutex_unlock(&s->mutex);
    return ZOK;
}

}  // extern "C"
