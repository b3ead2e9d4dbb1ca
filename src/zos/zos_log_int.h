// Log services shared with other families of the layer.
#pragma once

#include "zos_time.h"

namespace zos {

// The wall-clock time stamped on log lines: with the milliseconds of the
// epoch clock when `inMs`, else the system time as it comes.
inline void LogStampTime(bool inMs, ST_ZOS_SYS_TIME *t) {
    if (inMs) {
        ST_ZOS_EPOCH_TIME now{};
        Zos_GetEpochTime(&now);
        Zos_Time2SysTime(now.llSec, t);
        t->uiMillisecond = now.uiNsec / 1000000u;
    } else {
        Zos_SysTime(t);
    }
}

}  // namespace zos
