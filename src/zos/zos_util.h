// Small helpers shared by the layer's own sources.
#pragma once

#include "zos_lock.h"
#include "zos_log.h"
#include "zos_mem.h"

// The one road for the layer's failure and warning lines: the system log.
#define ZOS_LOG_ERR(...) ((void)Zos_LogError(Zos_LogGetZosId(), __VA_ARGS__))
#define ZOS_LOG_WARN(...) ((void)Zos_LogWarn(Zos_LogGetZosId(), __VA_ARGS__))

namespace zos {

// Holds a recursive mutex of the layer for a scope; does nothing when
// `on` is false (an object created without its lock flag).
class MutexGuard {
  public:
    explicit MutexGuard(ZMUTEX *mutex, bool on = true) : mutex_(on ? mutex : nullptr) {
        if (mutex_ != nullptr) Zos_MutexLock(mutex_);
    }
    ~MutexGuard() {
        if (mutex_ != nullptr) Zos_MutexUnlock(mutex_);
    }
    MutexGuard(const MutexGuard &) = delete;
    MutexGuard &operator=(const MutexGuard &) = delete;
    // Leaves the mutex as it is at the end of the scope.
    void Forget() { mutex_ = nullptr; }

  private:
    ZMUTEX *mutex_;
};

// Zeroed memory from Zos_MallocClrd that starts on a cache line, for a
// record whose hot fields threads on different cores take turns to change:
// laid out within one line they then move between the cores as one. The
// distance back to the block itself sits in the byte before the start.
constexpr uint32_t kCacheLine = 64;

inline void *MallocLine(uint32_t size) {
    if (size > 0x7FFFFFFFu - kCacheLine) return nullptr;
    auto *raw =
        static_cast<unsigned char *>(Zos_MallocClrd(static_cast<int32_t>(size + kCacheLine)));
    if (raw == nullptr) return nullptr;
    const uintptr_t start =
        (reinterpret_cast<uintptr_t>(raw) + kCacheLine) & ~uintptr_t{kCacheLine - 1};
    auto *p = reinterpret_cast<unsigned char *>(start);
    p[-1] = static_cast<unsigned char>(p - raw);
    return p;
}

inline void FreeLine(void *p) {
    if (p == nullptr) return;
    auto *start = static_cast<unsigned char *>(p);
    Zos_Free(start - start[-1]);
}

}  // namespace zos
