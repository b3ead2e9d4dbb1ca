// Small helpers shared by the layer's own sources.
#pragma once

#include "zos_lock.h"
#include "zos_log.h"

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

  private:
    ZMUTEX *mutex_;
};

}  // namespace zos
