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

// Calls fn, under the log manager's mutex, for every open log that has a
// file and no redirect target, with the bytes its cache holds for the
// file. 1 without a log manager.
uint32_t LogForEachFileLog(void (*fn)(ZLOGID log, uint32_t pending, void *arg), void *arg);

}  // namespace zos
