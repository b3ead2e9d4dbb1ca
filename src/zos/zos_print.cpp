// Print service: lines to the platform console or the print hook.
#include "zos_cfg_rec.h"
#include "zos_env.h"
#include "zos_fmt.h"
#include "zos_mem.h"
#include "zos_osdep.h"
#include "zos_print.h"

namespace {

constexpr uint32_t kLineBuf = 4096;

uint32_t PlatformPrint(const char *text) {
    auto print = zos::Osdep<zos::kSlotPrint>();
    return print != nullptr ? print(text) : ZOK;
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zos_PrintStrByOs(const char *pcText) {
    return PlatformPrint(pcText);
}

KESTRO_API uint32_t Zos_PrintNull(const char *pcFormat, va_list ap) {
    auto *buf = static_cast<char *>(Zos_HeapAlloc(kLineBuf));
    if (buf == nullptr) {
        PlatformPrint("Zos_PrintNull alloc buffer failed.\r\n");
        return ZFAILED;
    }
    Zos_VSNPrintf(buf, static_cast<int32_t>(kLineBuf), pcFormat, ap);
    const ST_ZOS_CFG *cfg = Zos_CfgLocate();
    if (cfg != nullptr && cfg->PrintDisp != nullptr) {
        cfg->PrintDisp(buf);
    } else {
        PlatformPrint(buf);
    }
    Zos_HeapFree(buf);
    return ZOK;
}

KESTRO_API uint32_t Zos_Printf(const char *pcFormat, ...) {
    ZosEnv *env = zos::Env();
    if (env == nullptr) return ZFAILED;
    va_list ap;
    va_start(ap, pcFormat);
    const uint32_t rc = Zos_PrintNull(pcFormat, ap);
    va_end(ap);
    return rc;
}

}  // extern "C"
