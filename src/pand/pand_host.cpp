// Host facts: the kernel's system information record, the host name and
// the processor features.
#include <sys/sysinfo.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <cpuid.h>
#endif

#include "zpand.h"

extern "C" {

KESTRO_API uint32_t Zpand_GetSysInfo(ST_ZPAND_SYS_INFO *pstInfo) {
    if (pstInfo == nullptr) return ZFAILED;
    std::memset(pstInfo, 0, sizeof(*pstInfo));
    struct sysinfo si {};
    if (sysinfo(&si) != 0) return ZFAILED;
    pstInfo->uiUptime = static_cast<uint32_t>(si.uptime);
    for (int i = 0; i < 3; ++i) pstInfo->auiLoads[i] = static_cast<uint32_t>(si.loads[i]);
    // A 64-bit kernel counts memory in bytes, so more than 4 GiB does not
    // fit a 32-bit count. Halve every count and double the unit until the
    // largest fits, keeping count times unit close to the bytes.
    unsigned long *const counts[] = {&si.totalram,  &si.freeram,  &si.sharedram, &si.bufferram,
                                     &si.totalswap, &si.freeswap, &si.totalhigh, &si.freehigh};
    uint64_t largest = 0;
    for (const unsigned long *c : counts) largest = *c > largest ? *c : largest;
    uint64_t unit = si.mem_unit != 0 ? si.mem_unit : 1;
    unsigned shift = 0;
    while ((largest >> shift) > UINT32_MAX && (unit << 1) <= UINT32_MAX) {
        ++shift;
        unit <<= 1;
    }
    for (unsigned long *c : counts) *c >>= shift;
    pstInfo->uiTotalRam = static_cast<uint32_t>(si.totalram);
    pstInfo->uiFreeRam = static_cast<uint32_t>(si.freeram);
    pstInfo->uiSharedRam = static_cast<uint32_t>(si.sharedram);
    pstInfo->uiBufferRam = static_cast<uint32_t>(si.bufferram);
    pstInfo->uiTotalSwap = static_cast<uint32_t>(si.totalswap);
    pstInfo->uiFreeSwap = static_cast<uint32_t>(si.freeswap);
    pstInfo->uiProcs = si.procs;
    pstInfo->uiTotalHigh = static_cast<uint32_t>(si.totalhigh);
    pstInfo->uiFreeHigh = static_cast<uint32_t>(si.freehigh);
    pstInfo->uiMemUnit = static_cast<uint32_t>(unit);
    return ZOK;
}

KESTRO_API uint32_t Zpand_GetHostName(char *pcName, uint32_t uiSize) {
    if (pcName == nullptr || uiSize == 0) return ZFAILED;
    // A name longer than the buffer is copied cut, unterminated: glibc then
    // answers ENAMETOOLONG, other C libraries success.
    if (gethostname(pcName, uiSize) != 0 && errno != ENAMETOOLONG) {
        pcName[0] = '\0';
        return ZFAILED;
    }
    pcName[uiSize - 1] = '\0';
    return ZOK;
}

KESTRO_API uint32_t Zpand_CpuFeatures(void) {
    static const uint32_t features = [] {
        uint32_t f = 0;
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
        unsigned a = 0, b = 0, c = 0, d = 0;
        if (__get_cpuid(1, &a, &b, &c, &d) != 0) {
            const bool sse41 = (c & bit_SSE4_1) != 0 && (c & bit_SSSE3) != 0;
            if ((c & bit_PCLMUL) != 0) f |= ZPAND_CPU_CLMUL;
            if ((c & bit_SSSE3) != 0) f |= ZPAND_CPU_SSSE3;
            if (__get_cpuid_count(7, 0, &a, &b, &c, &d) != 0) {
                if (sse41 && (b & bit_SHA) != 0) f |= ZPAND_CPU_SHA1;
                if ((b & bit_BMI) != 0 && (b & bit_BMI2) != 0) f |= ZPAND_CPU_BMI2;
            }
        }
#endif
        const char *mask = std::getenv("KESTRO_CPU_MASK");
        if (mask != nullptr && mask[0] != '\0') {
            f &= static_cast<uint32_t>(std::strtoul(mask, nullptr, 0));
        }
        return f;
    }();
    return features;
}

}  // extern "C"
