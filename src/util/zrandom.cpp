// Cheap unpredictable numbers: the MD5 of the high-resolution clock, folded.
#include <cstring>

#include "../zos/zos_util.h"
#include "zmd5.h"
#include "zos_sys.h"
#include "zos_time.h"
#include "zrandom.h"
#include "zutil_lock.h"

namespace {

constexpr uint32_t kEnvWord0 = 0x010203E7u;
constexpr uint32_t kEnvWord1 = 0x8AC4E301u;

// The digest of the clock's 8 bytes as four words in host order.
void ClockDigest(uint32_t *words) {
    const uint64_t now = Zos_GetHrTime();
    uint8_t bytes[8];
    std::memcpy(bytes, &now, sizeof(bytes));
    uint8_t digest[ZMD5_DIGEST_LEN];
    Zmd5_Str(bytes, sizeof(bytes), digest);
    std::memcpy(words, digest, sizeof(digest));
}

}  // namespace

extern "C" {

KESTRO_API uint16_t Zrandom_N16(void) {
    uint32_t w[4];
    ClockDigest(w);
    uint32_t v = w[0] ^ w[1] ^ w[2] ^ w[3];
    return static_cast<uint16_t>(v ^ (v >> 16));
}

KESTRO_API uint32_t Zrandom_N32(void) {
    uint32_t w[4];
    ClockDigest(w);
    return w[0] ^ w[1] ^ w[2] ^ w[3];
}

KESTRO_API uint64_t Zrandom_N64(void) {
    uint32_t w[4];
    ClockDigest(w);
    return (uint64_t{w[3] ^ w[1]} << 32) | (w[2] ^ w[0]);
}

KESTRO_API void *Zrandom_EnvLocate(void) {
    // Under the lock, so no caller sees a block attached but not yet filled.
    zos::MutexGuard guard(zutil::ProcessLock());
    void *env = nullptr;
    if (Zos_SysEnvLocate(ZOS_COMP_RANDOM, &env) == ZOK) return env;
    if (Zos_SysEnvAttach(ZOS_COMP_RANDOM, ZRANDOM_ENV_SIZE, &env) != ZOK || env == nullptr) {
        ZOS_LOG_ERR("random attach enviroment.");
        return nullptr;
    }
    auto *words = static_cast<uint32_t *>(env);
    words[0] = kEnvWord0;
    words[1] = kEnvWord1;
    return env;
}

}  // extern "C"
