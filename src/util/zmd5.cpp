// MD5 message digest (RFC 1321) and its hexadecimal text forms.
#include <cstring>

#include "zmd5.h"
#include "zos_fmt.h"
#include "zutil_bytes.h"

// The final padding: 0x80, then zeros. Exported: other modules pad with it.
extern "C" KESTRO_API const uint8_t aucZmd5Padding[64] = {0x80};

namespace {

using zutil::LoadLe32;
using zutil::Rotl;
using zutil::StoreLe32;

// The four round functions; G and I in forms that shorten the dependency
// chain (same values as the textbook definitions).
#define ZMD5_RF(x, y, z) ((z) ^ ((x) & ((y) ^ (z))))
#define ZMD5_RG(x, y, z) (((x) & (z)) + ((y) & ~(z)))
#define ZMD5_RH(x, y, z) ((x) ^ (y) ^ (z))
#define ZMD5_RI(x, y, z) ((y) ^ ((x) | ~(z)))

// a + X + K does not depend on the previous step, so it is summed first
// (the empty asm keeps the compiler from moving the constant back onto the
// dependency chain), leaving f, one add, the rotation and one add on it.
#if defined(__GNUC__) || defined(__clang__)
#define ZMD5_EARLY(v) __asm__("" : "+r"(v))
#else
#define ZMD5_EARLY(v) (void)(v)
#endif

#define ZMD5_STEP(f, a, b, c, d, x, s, ac)           \
    do {                                             \
        uint32_t t = (a) + (x) + (ac);               \
        ZMD5_EARLY(t);                               \
        (a) = Rotl(t + f((b), (c), (d)), (s)) + (b); \
    } while (0)

// Runs the block function over n consecutive 64-byte blocks.
void Blocks(uint32_t *state, const uint8_t *p, size_t n) {
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
    for (; n != 0; --n, p += 64) {
        // Message words are read where they are used, so they come
        // straight from memory instead of spilling from registers.
        const uint8_t *const x = p;
        const uint32_t aa = a, bb = b, cc = c, dd = d;

        ZMD5_STEP(ZMD5_RF, a, b, c, d, LoadLe32(x + 4 * 0), 7, 0xd76aa478);
        ZMD5_STEP(ZMD5_RF, d, a, b, c, LoadLe32(x + 4 * 1), 12, 0xe8c7b756);
        ZMD5_STEP(ZMD5_RF, c, d, a, b, LoadLe32(x + 4 * 2), 17, 0x242070db);
        ZMD5_STEP(ZMD5_RF, b, c, d, a, LoadLe32(x + 4 * 3), 22, 0xc1bdceee);
        ZMD5_STEP(ZMD5_RF, a, b, c, d, LoadLe32(x + 4 * 4), 7, 0xf57c0faf);
        ZMD5_STEP(ZMD5_RF, d, a, b, c, LoadLe32(x + 4 * 5), 12, 0x4787c62a);
        ZMD5_STEP(ZMD5_RF, c, d, a, b, LoadLe32(x + 4 * 6), 17, 0xa8304613);
        ZMD5_STEP(ZMD5_RF, b, c, d, a, LoadLe32(x + 4 * 7), 22, 0xfd469501);
        ZMD5_STEP(ZMD5_RF, a, b, c, d, LoadLe32(x + 4 * 8), 7, 0x698098d8);
        ZMD5_STEP(ZMD5_RF, d, a, b, c, LoadLe32(x + 4 * 9), 12, 0x8b44f7af);
        ZMD5_STEP(ZMD5_RF, c, d, a, b, LoadLe32(x + 4 * 10), 17, 0xffff5bb1);
        ZMD5_STEP(ZMD5_RF, b, c, d, a, LoadLe32(x + 4 * 11), 22, 0x895cd7be);
        ZMD5_STEP(ZMD5_RF, a, b, c, d, LoadLe32(x + 4 * 12), 7, 0x6b901122);
        ZMD5_STEP(ZMD5_RF, d, a, b, c, LoadLe32(x + 4 * 13), 12, 0xfd987193);
        ZMD5_STEP(ZMD5_RF, c, d, a, b, LoadLe32(x + 4 * 14), 17, 0xa679438e);
        ZMD5_STEP(ZMD5_RF, b, c, d, a, LoadLe32(x + 4 * 15), 22, 0x49b40821);

        ZMD5_STEP(ZMD5_RG, a, b, c, d, LoadLe32(x + 4 * 1), 5, 0xf61e2562);
        ZMD5_STEP(ZMD5_RG, d, a, b, c, LoadLe32(x + 4 * 6), 9, 0xc040b340);
        ZMD5_STEP(ZMD5_RG, c, d, a, b, LoadLe32(x + 4 * 11), 14, 0x265e5a51);
        ZMD5_STEP(ZMD5_RG, b, c, d, a, LoadLe32(x + 4 * 0), 20, 0xe9b6c7aa);
        ZMD5_STEP(ZMD5_RG, a, b, c, d, LoadLe32(x + 4 * 5), 5, 0xd62f105d);
        ZMD5_STEP(ZMD5_RG, d, a, b, c, LoadLe32(x + 4 * 10), 9, 0x02441453);
        ZMD5_STEP(ZMD5_RG, c, d, a, b, LoadLe32(x + 4 * 15), 14, 0xd8a1e681);
        ZMD5_STEP(ZMD5_RG, b, c, d, a, LoadLe32(x + 4 * 4), 20, 0xe7d3fbc8);
        ZMD5_STEP(ZMD5_RG, a, b, c, d, LoadLe32(x + 4 * 9), 5, 0x21e1cde6);
        ZMD5_STEP(ZMD5_RG, d, a, b, c, LoadLe32(x + 4 * 14), 9, 0xc33707d6);
        ZMD5_STEP(ZMD5_RG, c, d, a, b, LoadLe32(x + 4 * 3), 14, 0xf4d50d87);
        ZMD5_STEP(ZMD5_RG, b, c, d, a, LoadLe32(x + 4 * 8), 20, 0x455a14ed);
        ZMD5_STEP(ZMD5_RG, a, b, c, d, LoadLe32(x + 4 * 13), 5, 0xa9e3e905);
        ZMD5_STEP(ZMD5_RG, d, a, b, c, LoadLe32(x + 4 * 2), 9, 0xfcefa3f8);
        ZMD5_STEP(ZMD5_RG, c, d, a, b, LoadLe32(x + 4 * 7), 14, 0x676f02d9);
        ZMD5_STEP(ZMD5_RG, b, c, d, a, LoadLe32(x + 4 * 12), 20, 0x8d2a4c8a);

        ZMD5_STEP(ZMD5_RH, a, b, c, d, LoadLe32(x + 4 * 5), 4, 0xfffa3942);
        ZMD5_STEP(ZMD5_RH, d, a, b, c, LoadLe32(x + 4 * 8), 11, 0x8771f681);
        ZMD5_STEP(ZMD5_RH, c, d, a, b, LoadLe32(x + 4 * 11), 16, 0x6d9d6122);
        ZMD5_STEP(ZMD5_RH, b, c, d, a, LoadLe32(x + 4 * 14), 23, 0xfde5380c);
        ZMD5_STEP(ZMD5_RH, a, b, c, d, LoadLe32(x + 4 * 1), 4, 0xa4beea44);
        ZMD5_STEP(ZMD5_RH, d, a, b, c, LoadLe32(x + 4 * 4), 11, 0x4bdecfa9);
        ZMD5_STEP(ZMD5_RH, c, d, a, b, LoadLe32(x + 4 * 7), 16, 0xf6bb4b60);
        ZMD5_STEP(ZMD5_RH, b, c, d, a, LoadLe32(x + 4 * 10), 23, 0xbebfbc70);
        ZMD5_STEP(ZMD5_RH, a, b, c, d, LoadLe32(x + 4 * 13), 4, 0x289b7ec6);
        ZMD5_STEP(ZMD5_RH, d, a, b, c, LoadLe32(x + 4 * 0), 11, 0xeaa127fa);
        ZMD5_STEP(ZMD5_RH, c, d, a, b, LoadLe32(x + 4 * 3), 16, 0xd4ef3085);
        ZMD5_STEP(ZMD5_RH, b, c, d, a, LoadLe32(x + 4 * 6), 23, 0x04881d05);
        ZMD5_STEP(ZMD5_RH, a, b, c, d, LoadLe32(x + 4 * 9), 4, 0xd9d4d039);
        ZMD5_STEP(ZMD5_RH, d, a, b, c, LoadLe32(x + 4 * 12), 11, 0xe6db99e5);
        ZMD5_STEP(ZMD5_RH, c, d, a, b, LoadLe32(x + 4 * 15), 16, 0x1fa27cf8);
        ZMD5_STEP(ZMD5_RH, b, c, d, a, LoadLe32(x + 4 * 2), 23, 0xc4ac5665);

        ZMD5_STEP(ZMD5_RI, a, b, c, d, LoadLe32(x + 4 * 0), 6, 0xf4292244);
        ZMD5_STEP(ZMD5_RI, d, a, b, c, LoadLe32(x + 4 * 7), 10, 0x432aff97);
        ZMD5_STEP(ZMD5_RI, c, d, a, b, LoadLe32(x + 4 * 14), 15, 0xab9423a7);
        ZMD5_STEP(ZMD5_RI, b, c, d, a, LoadLe32(x + 4 * 5), 21, 0xfc93a039);
        ZMD5_STEP(ZMD5_RI, a, b, c, d, LoadLe32(x + 4 * 12), 6, 0x655b59c3);
        ZMD5_STEP(ZMD5_RI, d, a, b, c, LoadLe32(x + 4 * 3), 10, 0x8f0ccc92);
        ZMD5_STEP(ZMD5_RI, c, d, a, b, LoadLe32(x + 4 * 10), 15, 0xffeff47d);
        ZMD5_STEP(ZMD5_RI, b, c, d, a, LoadLe32(x + 4 * 1), 21, 0x85845dd1);
        ZMD5_STEP(ZMD5_RI, a, b, c, d, LoadLe32(x + 4 * 8), 6, 0x6fa87e4f);
        ZMD5_STEP(ZMD5_RI, d, a, b, c, LoadLe32(x + 4 * 15), 10, 0xfe2ce6e0);
        ZMD5_STEP(ZMD5_RI, c, d, a, b, LoadLe32(x + 4 * 6), 15, 0xa3014314);
        ZMD5_STEP(ZMD5_RI, b, c, d, a, LoadLe32(x + 4 * 13), 21, 0x4e0811a1);
        ZMD5_STEP(ZMD5_RI, a, b, c, d, LoadLe32(x + 4 * 4), 6, 0xf7537e82);
        ZMD5_STEP(ZMD5_RI, d, a, b, c, LoadLe32(x + 4 * 11), 10, 0xbd3af235);
        ZMD5_STEP(ZMD5_RI, c, d, a, b, LoadLe32(x + 4 * 2), 15, 0x2ad7d2bb);
        ZMD5_STEP(ZMD5_RI, b, c, d, a, LoadLe32(x + 4 * 9), 21, 0xeb86d391);

        a += aa;
        b += bb;
        c += cc;
        d += dd;
    }
    state[0] = a;
    state[1] = b;
    state[2] = c;
    state[3] = d;
}

#undef ZMD5_STEP
#undef ZMD5_EARLY
#undef ZMD5_RF
#undef ZMD5_RG
#undef ZMD5_RH
#undef ZMD5_RI

// The process-wide text buffer of Zmd5_StrX.
char g_acStrX[128];

}  // namespace

extern "C" {

KESTRO_API void Zmd5_Init(Zmd5Ctx *pstCtx) {
    if (pstCtx == nullptr) return;
    pstCtx->auiCount[0] = 0;
    pstCtx->auiCount[1] = 0;
    pstCtx->auiState[0] = 0x67452301u;
    pstCtx->auiState[1] = 0xefcdab89u;
    pstCtx->auiState[2] = 0x98badcfeu;
    pstCtx->auiState[3] = 0x10325476u;
}

KESTRO_API void Zmd5_Update(Zmd5Ctx *pstCtx, const uint8_t *pucData, uint32_t uiLen) {
    if (pstCtx == nullptr || pucData == nullptr || uiLen == 0) return;
    uint32_t index = (pstCtx->auiCount[0] >> 3) & 0x3F;
    const uint32_t bits = uiLen << 3;
    pstCtx->auiCount[0] += bits;
    if (pstCtx->auiCount[0] < bits) ++pstCtx->auiCount[1];
    pstCtx->auiCount[1] += uiLen >> 29;

    const uint32_t partLen = 64 - index;
    uint32_t i = 0;
    if (uiLen >= partLen) {
        if (index != 0) {
            std::memcpy(&pstCtx->aucBuf[index], pucData, partLen);
            Blocks(pstCtx->auiState, pstCtx->aucBuf, 1);
            i = partLen;
            index = 0;
        }
        const uint32_t n = (uiLen - i) / 64;
        Blocks(pstCtx->auiState, pucData + i, n);
        i += n * 64;
    }
    std::memcpy(&pstCtx->aucBuf[index], pucData + i, uiLen - i);
}

KESTRO_API void Zmd5_Final(uint8_t *pucDigest, Zmd5Ctx *pstCtx) {
    if (pucDigest == nullptr || pstCtx == nullptr) return;
    uint8_t bits[8];
    Zmd5_Encode(bits, pstCtx->auiCount, 8);
    const uint32_t index = (pstCtx->auiCount[0] >> 3) & 0x3F;
    const uint32_t padLen = index < 56 ? 56 - index : 120 - index;
    Zmd5_Update(pstCtx, aucZmd5Padding, padLen);
    Zmd5_Update(pstCtx, bits, 8);
    Zmd5_Encode(pucDigest, pstCtx->auiState, 16);
    std::memset(pstCtx, 0, sizeof(*pstCtx));
}

KESTRO_API void Zmd5_Str(const uint8_t *pucData, uint32_t uiLen, uint8_t *pucDigest) {
    if (pucDigest == nullptr) return;
    Zmd5Ctx ctx;
    Zmd5_Init(&ctx);
    Zmd5_Update(&ctx, pucData, uiLen);
    Zmd5_Final(pucDigest, &ctx);
}

KESTRO_API void Zmd5_Str2(const uint8_t *pucData1, uint32_t uiLen1, const uint8_t *pucData2,
                          uint32_t uiLen2, uint8_t *pucDigest) {
    if (pucData1 == nullptr || pucData2 == nullptr || pucDigest == nullptr) return;
    Zmd5Ctx ctx;
    Zmd5_Init(&ctx);
    Zmd5_Update(&ctx, pucData1, uiLen1);
    Zmd5_Update(&ctx, pucData2, uiLen2);
    Zmd5_Final(pucDigest, &ctx);
}

KESTRO_API char *Zmd5_StrXr(const uint8_t *pucData, uint32_t uiLen, uint32_t bPrefix,
                            const char *pcSep, char *pcOut, uint32_t uiOutSize) {
    if (pcOut == nullptr) return nullptr;
    const char *sep = pcSep != nullptr ? pcSep : "";
    const uint64_t need = 15ull * std::strlen(sep) + (bPrefix != 0 ? 64 : 32);
    if (need >= uiOutSize) return nullptr;

    uint8_t digest[ZMD5_DIGEST_LEN];
    Zmd5_Str(pucData, uiLen, digest);
    char *pos = pcOut;
    char *const end = pcOut + uiOutSize;
    const char *format = bPrefix != 0 ? "0x%02X%s" : "%02X%s";
    for (uint32_t i = 0; i < ZMD5_DIGEST_LEN; ++i) {
        const char *between = i + 1 < ZMD5_DIGEST_LEN ? sep : "";
        pos += Zos_SNPrintf(pos, static_cast<int32_t>(end - pos), format, digest[i], between);
    }
    *pos = '\0';
    return pcOut;
}

KESTRO_API char *Zmd5_StrX(const uint8_t *pucData, uint32_t uiLen, uint32_t bPrefix,
                           const char *pcSep) {
    return Zmd5_StrXr(pucData, uiLen, bPrefix, pcSep, g_acStrX, sizeof(g_acStrX));
}

KESTRO_API void Zmd5_Encode(uint8_t *pucOut, const uint32_t *puiIn, uint32_t uiLen) {
    if (pucOut == nullptr || puiIn == nullptr) return;
    for (uint32_t i = 0, j = 0; j + 4 <= uiLen; ++i, j += 4) StoreLe32(pucOut + j, puiIn[i]);
}

KESTRO_API void Zmd5_Decode(uint32_t *puiOut, const uint8_t *pucIn, uint32_t uiLen) {
    if (puiOut == nullptr || pucIn == nullptr) return;
    for (uint32_t i = 0, j = 0; j + 4 <= uiLen; ++i, j += 4) puiOut[i] = LoadLe32(pucIn + j);
}

KESTRO_API void Zmd5_Transform(uint32_t *puiState, const uint8_t *pucBlock) {
    if (puiState == nullptr || pucBlock == nullptr) return;
    Blocks(puiState, pucBlock, 1);
}

}  // extern "C"
