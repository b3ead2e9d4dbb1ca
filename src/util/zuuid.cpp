// Version-1 UUIDs.
//
// The timestamp counts 100-nanosecond units since 1970 (the Gregorian
// offset of RFC 4122 is deliberately not added; stored identifiers depend
// on it). Within one clock tick a counter is added, up to 1024 times, after
// which the generator waits for the clock to move. The node is a digest of
// host facts with the multicast bit set, the clock sequence comes from the
// C library's generator, seeded once per process from the first timestamp.
//
// The generator state is process-wide and guarded by a layer mutex; the
// text of the result lives in a buffer of the calling thread, so callers
// on different threads never see each other's text.
#include <cstdlib>
#include <cstring>

#include "../zos/zos_util.h"
#include "zmd5.h"
#include "zos_fmt.h"
#include "zos_time.h"
#include "zpand.h"
#include "zutil_lock.h"
#include "zuuid.h"

namespace {

constexpr uint16_t kCounterMax = 1023;

struct UuidState {
    uint16_t wInit;
    uint16_t wCounter;
    uint64_t ullLast;
    uint8_t ucSeeded;
};

UuidState g_stUuid;
thread_local char t_acText[ZUUID_TEXT_LEN + 1];

// The host information block that the node is a digest of.
struct HostInfo {
    ST_ZPAND_SYS_INFO stSys;
    uint32_t uiSec;  // time of day
    uint32_t uiUsec;
    char acHostName[256];
    uint8_t aucSpare[4];
};
static_assert(sizeof(HostInfo) == 332, "host information block");

// Caller holds the lock.
uint32_t NextTime(uint64_t *pullTime) {
    uint64_t now = 0;
    if (g_stUuid.wInit == 0) {
        if (Zuuid_GetSysTime(&now) != ZOK) return ZFAILED;
        g_stUuid.ullLast = now;
        g_stUuid.wCounter = kCounterMax + 1;
        g_stUuid.wInit = 1;
    }
    for (;;) {
        if (Zuuid_GetSysTime(&now) != ZOK) return ZFAILED;
        if (now != g_stUuid.ullLast) {
            g_stUuid.ullLast = now;
            g_stUuid.wCounter = 0;
            *pullTime = now;
            return ZOK;
        }
        if (g_stUuid.wCounter <= kCounterMax) {
            ++g_stUuid.wCounter;
            *pullTime = now + g_stUuid.wCounter;
            return ZOK;
        }
    }
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zuuid_GetSysTime(uint64_t *pullTime) {
    ST_ZOS_EPOCH_TIME now{};
    if (pullTime == nullptr || Zos_GetEpochTime(&now) != ZOK) return ZFAILED;
    *pullTime = static_cast<uint64_t>(now.llSec) * 10000000ull + now.uiNsec / 100u;
    return ZOK;
}

KESTRO_API uint32_t Zuuid_GetCurTime(uint64_t *pullTime) {
    if (pullTime == nullptr) return ZFAILED;
    zos::MutexGuard guard(zutil::ProcessLock());
    return NextTime(pullTime);
}

KESTRO_API uint32_t Zuuid_GetRandomInfo(uint8_t *pucDigest) {
    if (pucDigest == nullptr) return ZFAILED;
    HostInfo info;
    std::memset(&info, 0, sizeof(info));
    // Whatever cannot be read stays zero; the rest still varies.
    (void)Zpand_GetSysInfo(&info.stSys);
    ST_ZOS_EPOCH_TIME now{};
    if (Zos_GetEpochTime(&now) == ZOK) {
        info.uiSec = static_cast<uint32_t>(now.llSec);
        info.uiUsec = now.uiNsec / 1000u;
    }
    (void)Zpand_GetHostName(info.acHostName, sizeof(info.acHostName));
    Zmd5_Str(reinterpret_cast<const uint8_t *>(&info), sizeof(info), pucDigest);
    return ZOK;
}

KESTRO_API uint32_t Zuuid_GetIeeeNodeIdentifier(uint8_t *pucNode) {
    if (pucNode == nullptr) return ZFAILED;
    uint8_t digest[ZMD5_DIGEST_LEN];
    if (Zuuid_GetRandomInfo(digest) != ZOK) return ZFAILED;
    std::memcpy(pucNode, digest, 6);
    pucNode[0] |= 0x01;  // multicast bit: not a real IEEE address
    return ZOK;
}

KESTRO_API void Zuuid_FormatV1(ST_ZUUID *pstUuid, uint16_t wClockSeq, uint32_t uiTimeLow,
                               uint32_t uiTimeHigh, const uint8_t *pucNode) {
    if (pstUuid == nullptr) return;
    pstUuid->uiTimeLow = uiTimeLow;
    pstUuid->wTimeMid = static_cast<uint16_t>(uiTimeHigh & 0xFFFFu);
    pstUuid->wTimeHiAndVersion = static_cast<uint16_t>(((uiTimeHigh >> 16) & 0x0FFFu) | 0x1000u);
    pstUuid->ucClockSeqLow = static_cast<uint8_t>(wClockSeq & 0xFFu);
    pstUuid->ucClockSeqHiAndReserved = static_cast<uint8_t>(((wClockSeq >> 8) & 0x3Fu) | 0x80u);
    if (pucNode != nullptr) {
        std::memcpy(pstUuid->aucNode, pucNode, 6);
    } else {
        std::memset(pstUuid->aucNode, 0, 6);
    }
}

KESTRO_API const char *Zuuid_Uuid(void) {
    ST_ZUUID uuid;
    {
        zos::MutexGuard guard(zutil::ProcessLock());
        uint64_t now = 0;
        if (NextTime(&now) != ZOK) return nullptr;
        const auto lo = static_cast<uint32_t>(now);
        const auto hi = static_cast<uint32_t>(now >> 32);
        if (g_stUuid.ucSeeded == 0) {
            std::srand(((lo >> 10) | (hi << 22)) ^ (hi >> 10));
            g_stUuid.ucSeeded = 1;
        }
        const auto clockSeq = static_cast<uint16_t>(std::rand());
        uint8_t node[6] = {0x01};
        (void)Zuuid_GetIeeeNodeIdentifier(node);
        Zuuid_FormatV1(&uuid, clockSeq, lo, hi, node);
    }
    const uint8_t *n = uuid.aucNode;
    Zos_SNPrintf(t_acText, static_cast<int32_t>(sizeof(t_acText)),
                 "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x", uuid.uiTimeLow, uuid.wTimeMid,
                 uuid.wTimeHiAndVersion, uuid.ucClockSeqHiAndReserved, uuid.ucClockSeqLow, n[0],
                 n[1], n[2], n[3], n[4], n[5]);
    return t_acText;
}

}  // extern "C"
