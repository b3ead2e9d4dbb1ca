// The lock that guards the process-wide state of the utilities (the UUID
// generator, the random environment's first attach).
#pragma once

#include "zos_lock.h"

namespace zutil {

// A recursive layer mutex made on first use and kept for the life of the
// process; null when none could be made (the guard then does nothing).
inline ZMUTEX *ProcessLock() {
    static ZMUTEX s_zMutex = [] {
        ZMUTEX m = 0;
        return Zos_MutexCreate(&m) == ZOK ? m : ZMUTEX{0};
    }();
    return s_zMutex != 0 ? &s_zMutex : nullptr;
}

}  // namespace zutil
