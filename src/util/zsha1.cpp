// SHA-1 (FIPS 180-1) behind the RFC 3174 style context.
//
// Whole blocks go straight from the caller's data to the block function;
// only partial blocks pass through the context's message block. On x86-64
// the block function uses the SHA extensions where the processor has them,
// else (with SSSE3 and BMI) makes the message schedule four words at a time
// in vector registers alongside the scalar steps; elsewhere it is plain C.
#include <cstring>
#include <utility>

#include "zpand.h"
#include "zsha1.h"
#include "zutil_bytes.h"

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>
#define ZSHA1_SHANI 1
#endif

namespace {

using zutil::LoadBe32;
using zutil::Rotl;
using zutil::StoreBe32;

// The 80 steps over n blocks, with a 16-word rolling message schedule.
#define ZSHA1_W(i) \
    (w[(i)&15] = Rotl(w[((i) + 13) & 15] ^ w[((i) + 8) & 15] ^ w[((i) + 2) & 15] ^ w[(i)&15], 1))
#define ZSHA1_R0(a, b, c, d, e, i)                              \
    e += (d ^ (b & (c ^ d))) + w[i] + 0x5A827999u + Rotl(a, 5); \
    b = Rotl(b, 30);
#define ZSHA1_R1(a, b, c, d, e, i)                                    \
    e += (d ^ (b & (c ^ d))) + ZSHA1_W(i) + 0x5A827999u + Rotl(a, 5); \
    b = Rotl(b, 30);
#define ZSHA1_R2(a, b, c, d, e, i)                            \
    e += (b ^ c ^ d) + ZSHA1_W(i) + 0x6ED9EBA1u + Rotl(a, 5); \
    b = Rotl(b, 30);
#define ZSHA1_R3(a, b, c, d, e, i)                                          \
    e += (((b | c) & d) | (b & c)) + ZSHA1_W(i) + 0x8F1BBCDCu + Rotl(a, 5); \
    b = Rotl(b, 30);
#define ZSHA1_R4(a, b, c, d, e, i)                            \
    e += (b ^ c ^ d) + ZSHA1_W(i) + 0xCA62C1D6u + Rotl(a, 5); \
    b = Rotl(b, 30);
#define ZSHA1_FIVE(R, i)      \
    R(a, b, c, d, e, (i) + 0) \
    R(e, a, b, c, d, (i) + 1) \
    R(d, e, a, b, c, (i) + 2) \
    R(c, d, e, a, b, (i) + 3) \
    R(b, c, d, e, a, (i) + 4)

void BlocksPortable(uint32_t *h, const uint8_t *p, size_t n) {
    for (; n != 0; --n, p += 64) {
        uint32_t w[16];
        for (int i = 0; i < 16; ++i) w[i] = LoadBe32(p + 4 * i);
        uint32_t a = h[0], b = h[1], c = h[2], d = h[3], e = h[4];
        ZSHA1_FIVE(ZSHA1_R0, 0)
        ZSHA1_FIVE(ZSHA1_R0, 5)
        ZSHA1_FIVE(ZSHA1_R0, 10)
        ZSHA1_R0(a, b, c, d, e, 15)
        ZSHA1_R1(e, a, b, c, d, 16)
        ZSHA1_R1(d, e, a, b, c, 17)
        ZSHA1_R1(c, d, e, a, b, 18)
        ZSHA1_R1(b, c, d, e, a, 19)
        ZSHA1_FIVE(ZSHA1_R2, 20)
        ZSHA1_FIVE(ZSHA1_R2, 25)
        ZSHA1_FIVE(ZSHA1_R2, 30)
        ZSHA1_FIVE(ZSHA1_R2, 35)
        ZSHA1_FIVE(ZSHA1_R3, 40)
        ZSHA1_FIVE(ZSHA1_R3, 45)
        ZSHA1_FIVE(ZSHA1_R3, 50)
        ZSHA1_FIVE(ZSHA1_R3, 55)
        ZSHA1_FIVE(ZSHA1_R4, 60)
        ZSHA1_FIVE(ZSHA1_R4, 65)
        ZSHA1_FIVE(ZSHA1_R4, 70)
        ZSHA1_FIVE(ZSHA1_R4, 75)
        h[0] += a;
        h[1] += b;
        h[2] += c;
        h[3] += d;
        h[4] += e;
    }
}

#undef ZSHA1_FIVE
#undef ZSHA1_R4
#undef ZSHA1_R3
#undef ZSHA1_R2
#undef ZSHA1_R1
#undef ZSHA1_R0
#undef ZSHA1_W

#ifdef ZSHA1_SHANI

#define ZSHA1_SSSE3 __attribute__((target("ssse3,bmi,bmi2")))

ZSHA1_SSSE3 inline __m128i Rol(__m128i v, int n) {
    return _mm_or_si128(_mm_slli_epi32(v, n), _mm_srli_epi32(v, 32 - n));
}

constexpr uint32_t kK[4] = {0x5A827999u, 0x6ED9EBA1u, 0x8F1BBCDCu, 0xCA62C1D6u};

template <int f>
inline uint32_t RoundF(uint32_t b, uint32_t c, uint32_t d) {
    if constexpr (f == 0) return (b & c) + (~b & d);
    if constexpr (f == 2) return (b & c) + (d & (b ^ c));
    return b ^ c ^ d;
}

// The working words and the last eight message vectors live in plain
// variables (not arrays) so every compiler keeps them in registers; the
// step and group templates pick them by compile-time index.
struct Words {
    uint32_t s0, s1, s2, s3, s4;
    template <int n>
    uint32_t &At() {
        if constexpr (n == 0) return s0;
        if constexpr (n == 1) return s1;
        if constexpr (n == 2) return s2;
        if constexpr (n == 3) return s3;
        if constexpr (n == 4) return s4;
    }
};

struct Vectors {
    __m128i v0, v1, v2, v3, v4, v5, v6, v7;
    template <int n>
    __m128i &At() {
        if constexpr ((n & 7) == 0) return v0;
        if constexpr ((n & 7) == 1) return v1;
        if constexpr ((n & 7) == 2) return v2;
        if constexpr ((n & 7) == 3) return v3;
        if constexpr ((n & 7) == 4) return v4;
        if constexpr ((n & 7) == 5) return v5;
        if constexpr ((n & 7) == 6) return v6;
        if constexpr ((n & 7) == 7) return v7;
    }
};

// Step t. The five words rotate roles each step; the roles are picked at
// compile time.
template <int t>
inline void Step(Words &w, const uint32_t *ring) {
    constexpr int a = (5 - t % 5) % 5;
    uint32_t &b = w.At<(a + 1) % 5>();
    w.At<(a + 4) % 5>() += RoundF<t / 20>(b, w.At<(a + 2) % 5>(), w.At<(a + 3) % 5>()) +
                           ring[t & 15] + Rotl(w.At<a>(), 5);
    b = Rotl(b, 30);
}

// Group g: steps 4g..4g+3, then the message words of group g + 4 (four
// at a time) into the ring slot just read, W + K ready for its steps. For
// t < 32 the fourth word of a group needs the first (W[t+3] uses W[t]),
// so it is patched after the rotation; from t = 32 on the equivalent form
// W[t] = rol2(W[t-6] ^ W[t-16] ^ W[t-28] ^ W[t-32]) has no such link. The
// vector work does not depend on the steps, so the processor overlaps them.
template <int g>
ZSHA1_SSSE3 inline void GroupSsse3(Words &w, uint32_t *ring, Vectors &v) {
    Step<4 * g>(w, ring);
    Step<4 * g + 1>(w, ring);
    Step<4 * g + 2>(w, ring);
    Step<4 * g + 3>(w, ring);
    constexpr int G = g + 4;
    if constexpr (G < 20) {
        __m128i x;
        if constexpr (G < 8) {
            __m128i t = _mm_xor_si128(_mm_srli_si128(v.At<G - 1>(), 4), v.At<G - 2>());
            t = _mm_xor_si128(t, _mm_alignr_epi8(v.At<G - 3>(), v.At<G - 4>(), 8));
            const __m128i r = Rol(_mm_xor_si128(t, v.At<G - 4>()), 1);
            x = _mm_xor_si128(r, Rol(_mm_slli_si128(r, 12), 1));
        } else {
            __m128i t =
                _mm_xor_si128(_mm_alignr_epi8(v.At<G - 1>(), v.At<G - 2>(), 8), v.At<G - 4>());
            t = _mm_xor_si128(t, _mm_xor_si128(v.At<G - 7>(), v.At<G - 8>()));
            x = Rol(t, 2);
        }
        v.At<G>() = x;
        const __m128i k = _mm_set1_epi32(static_cast<int>(kK[G / 5]));
        _mm_store_si128(reinterpret_cast<__m128i *>(ring + (4 * G & 15)), _mm_add_epi32(x, k));
        // Keep W + K in memory: the steps add it straight from there, which
        // costs fewer instructions than moving it out of a vector register.
        __asm__ volatile("" : "+m"(*reinterpret_cast<uint32_t(*)[16]>(ring)));
    }
}

template <int... G>
ZSHA1_SSSE3 inline void AllGroupsSsse3(Words &w, uint32_t *ring, Vectors &v,
                                       std::integer_sequence<int, G...>) {
    (GroupSsse3<G>(w, ring, v), ...);
}

ZSHA1_SSSE3 void BlocksSsse3(uint32_t *h, const uint8_t *p, size_t n) {
    const __m128i swap = _mm_set_epi8(12, 13, 14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3);
    const __m128i k0 = _mm_set1_epi32(static_cast<int>(kK[0]));
    alignas(16) uint32_t ring[16];
    for (; n != 0; --n, p += 64) {
        const auto *in = reinterpret_cast<const __m128i *>(p);
        Vectors v;
        v.v0 = _mm_shuffle_epi8(_mm_loadu_si128(in), swap);
        v.v1 = _mm_shuffle_epi8(_mm_loadu_si128(in + 1), swap);
        v.v2 = _mm_shuffle_epi8(_mm_loadu_si128(in + 2), swap);
        v.v3 = _mm_shuffle_epi8(_mm_loadu_si128(in + 3), swap);
        auto *r = reinterpret_cast<__m128i *>(ring);
        _mm_store_si128(r, _mm_add_epi32(v.v0, k0));
        _mm_store_si128(r + 1, _mm_add_epi32(v.v1, k0));
        _mm_store_si128(r + 2, _mm_add_epi32(v.v2, k0));
        _mm_store_si128(r + 3, _mm_add_epi32(v.v3, k0));
        __asm__ volatile("" : "+m"(*reinterpret_cast<uint32_t(*)[16]>(ring)));
        Words w{h[0], h[1], h[2], h[3], h[4]};
        AllGroupsSsse3(w, ring, v, std::make_integer_sequence<int, 20>{});
        h[0] += w.s0;
        h[1] += w.s1;
        h[2] += w.s2;
        h[3] += w.s3;
        h[4] += w.s4;
    }
}

#undef ZSHA1_SSSE3

#define ZSHA1_NI __attribute__((target("sha,sse4.1,ssse3")))

// One group of four steps (g = 0..19) with the SHA instructions: the
// message words of group g are in m[g % 4]; the later groups' words are
// prepared along the way (msg1 three groups ahead, the XOR two ahead,
// msg2 one ahead).
template <int g>
ZSHA1_NI inline void Group(__m128i &abcd, __m128i &e0, __m128i &e1, __m128i *m) {
    __m128i &cur = (g % 2 == 0) ? e0 : e1;
    __m128i &next = (g % 2 == 0) ? e1 : e0;
    if constexpr (g == 0) {
        cur = _mm_add_epi32(cur, m[0]);
    } else {
        cur = _mm_sha1nexte_epu32(cur, m[g % 4]);
    }
    next = abcd;
    if constexpr (g >= 3 && g <= 18) m[(g + 1) % 4] = _mm_sha1msg2_epu32(m[(g + 1) % 4], m[g % 4]);
    abcd = _mm_sha1rnds4_epu32(abcd, cur, g / 5);
    if constexpr (g >= 1 && g <= 16) m[(g + 3) % 4] = _mm_sha1msg1_epu32(m[(g + 3) % 4], m[g % 4]);
    if constexpr (g >= 2 && g <= 17) m[(g + 2) % 4] = _mm_xor_si128(m[(g + 2) % 4], m[g % 4]);
}

template <int... G>
ZSHA1_NI inline void AllGroups(__m128i &abcd, __m128i &e0, __m128i &e1, __m128i *m,
                               std::integer_sequence<int, G...>) {
    (Group<G>(abcd, e0, e1, m), ...);
}

ZSHA1_NI void BlocksShaNi(uint32_t *h, const uint8_t *p, size_t n) {
    const __m128i swap = _mm_set_epi64x(0x0001020304050607ll, 0x08090a0b0c0d0e0fll);
    __m128i abcd = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(h)), 0x1B);
    __m128i e0 = _mm_set_epi32(static_cast<int>(h[4]), 0, 0, 0);
    for (; n != 0; --n, p += 64) {
        const __m128i abcdSave = abcd;
        const __m128i eSave = e0;
        __m128i e1;
        __m128i m[4];
        for (int i = 0; i < 4; ++i) {
            m[i] =
                _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p) + i), swap);
        }
        AllGroups(abcd, e0, e1, m, std::make_integer_sequence<int, 20>{});
        // Group 19 left the state before its steps in e0.
        e0 = _mm_sha1nexte_epu32(e0, eSave);
        abcd = _mm_add_epi32(abcd, abcdSave);
    }
    _mm_storeu_si128(reinterpret_cast<__m128i *>(h), _mm_shuffle_epi32(abcd, 0x1B));
    h[4] = static_cast<uint32_t>(_mm_extract_epi32(e0, 3));
}

#undef ZSHA1_NI

#endif  // ZSHA1_SHANI

#ifdef ZSHA1_SHANI
// Read once when the library is loaded.
const bool g_bShaNi = (Zpand_CpuFeatures() & ZPAND_CPU_SHA1) != 0;
const bool g_bSsse3 = (Zpand_CpuFeatures() & (ZPAND_CPU_SSSE3 | ZPAND_CPU_BMI2)) ==
                      (ZPAND_CPU_SSSE3 | ZPAND_CPU_BMI2);
#endif

void Blocks(uint32_t *h, const uint8_t *p, size_t n) {
#ifdef ZSHA1_SHANI
    if (g_bShaNi) {
        BlocksShaNi(h, p, n);
        return;
    }
    if (g_bSsse3) {
        BlocksSsse3(h, p, n);
        return;
    }
#endif
    BlocksPortable(h, p, n);
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zsha1_Reset(Zsha1Ctx *pstCtx) {
    if (pstCtx == nullptr) return ZSHA1_NULL;
    pstCtx->uiLenLow = 0;
    pstCtx->uiLenHigh = 0;
    pstCtx->sBlockIndex = 0;
    pstCtx->auiHash[0] = 0x67452301u;
    pstCtx->auiHash[1] = 0xEFCDAB89u;
    pstCtx->auiHash[2] = 0x98BADCFEu;
    pstCtx->auiHash[3] = 0x10325476u;
    pstCtx->auiHash[4] = 0xC3D2E1F0u;
    pstCtx->iComputed = 0;
    pstCtx->iCorrupted = 0;
    return ZSHA1_SUCCESS;
}

KESTRO_API uint32_t Zsha1_Input(Zsha1Ctx *pstCtx, const uint8_t *pucData, uint32_t uiLen) {
    if (uiLen == 0) return ZSHA1_SUCCESS;
    if (pstCtx == nullptr || pucData == nullptr) return ZSHA1_NULL;
    if (pstCtx->iComputed != 0) {
        pstCtx->iCorrupted = static_cast<int32_t>(ZSHA1_STATE_ERR);
        return ZSHA1_STATE_ERR;
    }
    if (pstCtx->iCorrupted != 0) return static_cast<uint32_t>(pstCtx->iCorrupted);
    if (pstCtx->sBlockIndex < 0 || pstCtx->sBlockIndex > 63) pstCtx->sBlockIndex = 0;

    // The bit length is 64 bits wide; the byte that makes it wrap is the
    // last one taken, and the context is then marked corrupted.
    const uint64_t bits = (uint64_t{pstCtx->uiLenHigh} << 32) | pstCtx->uiLenLow;
    uint32_t len = uiLen;
    bool wraps = false;
    uint64_t total = bits + uint64_t{len} * 8;
    if (total < bits) {
        // Bytes until the length wraps: the last of them is still taken.
        const uint64_t room = (0 - bits + 7) / 8;
        len = static_cast<uint32_t>(room);
        wraps = true;
        total = bits + uint64_t{len} * 8;
    }
    pstCtx->uiLenLow = static_cast<uint32_t>(total);
    pstCtx->uiLenHigh = static_cast<uint32_t>(total >> 32);

    const uint8_t *p = pucData;
    uint32_t index = static_cast<uint32_t>(pstCtx->sBlockIndex);
    if (index != 0) {
        const uint32_t take = len < 64 - index ? len : 64 - index;
        std::memcpy(&pstCtx->aucBlock[index], p, take);
        index += take;
        p += take;
        len -= take;
        if (index == 64) {
            Blocks(pstCtx->auiHash, pstCtx->aucBlock, 1);
            index = 0;
        }
    }
    if (len >= 64) {
        const uint32_t n = len / 64;
        Blocks(pstCtx->auiHash, p, n);
        p += n * 64;
        len -= n * 64;
    }
    if (len != 0) {
        std::memcpy(&pstCtx->aucBlock[index], p, len);
        index += len;
    }
    pstCtx->sBlockIndex = static_cast<int16_t>(index);
    if (wraps) pstCtx->iCorrupted = static_cast<int32_t>(ZSHA1_NULL);
    return ZSHA1_SUCCESS;
}

KESTRO_API uint32_t Zsha1_Result(Zsha1Ctx *pstCtx, uint8_t *pucDigest) {
    if (pstCtx == nullptr || pucDigest == nullptr) return ZSHA1_NULL;
    if (pstCtx->iCorrupted != 0) return static_cast<uint32_t>(pstCtx->iCorrupted);
    if (pstCtx->iComputed == 0) {
        Zsha1_PadMsg(pstCtx);
        std::memset(pstCtx->aucBlock, 0, sizeof(pstCtx->aucBlock));
        pstCtx->uiLenLow = 0;
        pstCtx->uiLenHigh = 0;
        pstCtx->iComputed = 1;
    }
    for (uint32_t i = 0; i < 5; ++i) StoreBe32(pucDigest + 4 * i, pstCtx->auiHash[i]);
    return ZSHA1_SUCCESS;
}

KESTRO_API void Zsha1_PadMsg(Zsha1Ctx *pstCtx) {
    if (pstCtx == nullptr) return;
    int32_t index = pstCtx->sBlockIndex;
    if (index < 0 || index > 63) index = 0;
    pstCtx->aucBlock[index++] = 0x80;
    if (index > 56) {
        std::memset(&pstCtx->aucBlock[index], 0, static_cast<size_t>(64 - index));
        pstCtx->sBlockIndex = 64;
        Zsha1_ProcMsgBlock(pstCtx);
        index = 0;
    }
    std::memset(&pstCtx->aucBlock[index], 0, static_cast<size_t>(56 - index));
    StoreBe32(&pstCtx->aucBlock[56], pstCtx->uiLenHigh);
    StoreBe32(&pstCtx->aucBlock[60], pstCtx->uiLenLow);
    pstCtx->sBlockIndex = 64;
    Zsha1_ProcMsgBlock(pstCtx);
}

KESTRO_API void Zsha1_ProcMsgBlock(Zsha1Ctx *pstCtx) {
    if (pstCtx == nullptr) return;
    Blocks(pstCtx->auiHash, pstCtx->aucBlock, 1);
    pstCtx->sBlockIndex = 0;
}

}  // extern "C"
