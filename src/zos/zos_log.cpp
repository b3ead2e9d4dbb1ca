// Log entry points. No log can be created in this build yet: the system
// log handle is null and every write to a missing log is refused with 1,
// exactly as writes to an invalid log are.
#include "zos_env.h"
#include "zos_log.h"

extern "C" {

KESTRO_API ZLOGID Zos_LogGetZosId(void) {
    auto *mgr = static_cast<ZosLogMgr *>(Zos_EnvLocateLogMgr());
    return mgr != nullptr ? mgr->zZosLogId : nullptr;
}

#define ZOS_LOG_WRITER(name)                                                               \
    KESTRO_API uint32_t Zos_Log##name(ZLOGID /*zLogId*/, const char * /*pcFormat*/, ...) { \
        return ZFAILED;                                                                    \
    }
ZOS_LOG_WRITER(Fatal)
ZOS_LOG_WRITER(Error)
ZOS_LOG_WRITER(Warn)
ZOS_LOG_WRITER(Info)
ZOS_LOG_WRITER(Dbg)
#undef ZOS_LOG_WRITER

KESTRO_API uint32_t Zos_LogStr(ZLOGID /*zLogId*/, uint32_t /*uiLevel*/, const char * /*pcStr*/) {
    return ZFAILED;
}

KESTRO_API uint32_t Zos_LogOpen(ZLOGID /*zLogId*/, uint32_t /*uiLevel*/) {
    return ZFAILED;
}

KESTRO_API uint32_t Zos_LogClose(ZLOGID /*zLogId*/, uint32_t /*uiLevel*/) {
    return ZFAILED;
}

}  // extern "C"
