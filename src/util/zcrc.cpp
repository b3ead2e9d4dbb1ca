// FCS-16 of RFC 1662 and CRC-32 of IEEE 802.3.
//
// The CRC-32 is the plain reflected bit-by-bit CRC, computed with
// slicing-by-8 tables for short data, five braided lanes of words for
// longer data (all tables built at compile time) and, on x86-64 processors
// with carry-less multiplication, by folding 64-byte blocks: each 128-bit
// accumulator is multiplied by x^k mod P to move it forward over the data,
// which leaves a 16-byte remainder with the same CRC for the tables to
// finish.
#include <array>
#include <cstring>
#include <type_traits>

#include "zcrc.h"
#include "zpand.h"
#include "zutil_bytes.h"

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>
#define ZCRC_CLMUL 1
#endif

namespace {

using zutil::LoadLe32;

constexpr uint32_t kPoly32 = 0xEDB88320u;  // reflected 0x04C11DB7

using Crc32Tables = std::array<std::array<uint32_t, 256>, 8>;

constexpr Crc32Tables MakeCrc32Tables() {
    Crc32Tables t{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t v = i;
        for (int b = 0; b < 8; ++b) v = (v & 1) != 0 ? (v >> 1) ^ kPoly32 : v >> 1;
        t[0][i] = v;
    }
    // t[k][i]: the CRC of byte i followed by k zero bytes.
    for (uint32_t k = 1; k < 8; ++k) {
        for (uint32_t i = 0; i < 256; ++i) t[k][i] = (t[k - 1][i] >> 8) ^ t[0][t[k - 1][i] & 0xFF];
    }
    return t;
}

constexpr Crc32Tables kCrc32 = MakeCrc32Tables();

// Continues a reflected CRC register (no initial value, no complement).
uint32_t Crc32Tables8(uint32_t crc, const uint8_t *p, size_t len) {
    while (len != 0 && (reinterpret_cast<uintptr_t>(p) & 3) != 0) {
        crc = kCrc32[0][(crc ^ *p++) & 0xFF] ^ (crc >> 8);
        --len;
    }
    for (; len >= 8; p += 8, len -= 8) {
        const uint32_t lo = crc ^ LoadLe32(p);
        const uint32_t hi = LoadLe32(p + 4);
        crc = kCrc32[7][lo & 0xFF] ^ kCrc32[6][(lo >> 8) & 0xFF] ^ kCrc32[5][(lo >> 16) & 0xFF] ^
              kCrc32[4][lo >> 24] ^ kCrc32[3][hi & 0xFF] ^ kCrc32[2][(hi >> 8) & 0xFF] ^
              kCrc32[1][(hi >> 16) & 0xFF] ^ kCrc32[0][hi >> 24];
    }
    while (len-- != 0) crc = kCrc32[0][(crc ^ *p++) & 0xFF] ^ (crc >> 8);
    return crc;
}

// Braided CRC: five interleaved lanes of machine words, each lane keeping
// its own register so the table lookups of different lanes overlap. A
// lane's register meets its next word five words later, so its tables
// move each byte over the rest of its word and the four words between.
constexpr size_t kBraidLanes = 5;
using BraidWord = std::conditional_t<sizeof(void *) >= 8, uint64_t, uint32_t>;
constexpr size_t kBraidBytes = sizeof(BraidWord);

using BraidTables = std::array<std::array<uint32_t, 256>, kBraidBytes>;

constexpr BraidTables MakeBraidTables() {
    BraidTables t{};
    for (size_t b = 0; b < kBraidBytes; ++b) {
        for (uint32_t v = 0; v < 256; ++v) {
            uint32_t r = kCrc32[0][v];
            const size_t zeros = kBraidBytes - 1 - b + (kBraidLanes - 1) * kBraidBytes;
            for (size_t i = 0; i < zeros; ++i) r = (r >> 8) ^ kCrc32[0][r & 0xFF];
            t[b][v] = r;
        }
    }
    return t;
}

constexpr BraidTables kBraid = MakeBraidTables();

inline BraidWord LoadWord(const uint8_t *p) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    BraidWord v;
    std::memcpy(&v, p, sizeof(v));
    return v;
#else
    BraidWord v = 0;
    for (size_t i = kBraidBytes; i-- > 0;) v = (v << 8) | p[i];
    return v;
#endif
}

// The register after the bytes of one word (the register already XORed in).
inline uint32_t CrcWord(BraidWord v) {
    for (size_t i = 0; i < kBraidBytes; ++i) v = (v >> 8) ^ kCrc32[0][v & 0xFF];
    return static_cast<uint32_t>(v);
}

// One byte position of all five lanes (written out so every compiler keeps
// the lanes in registers).
#define ZCRC_BRAID_BYTE(b)                                \
    c0 ^= kBraid[b][static_cast<uint8_t>(w0 >> (8 * b))]; \
    c1 ^= kBraid[b][static_cast<uint8_t>(w1 >> (8 * b))]; \
    c2 ^= kBraid[b][static_cast<uint8_t>(w2 >> (8 * b))]; \
    c3 ^= kBraid[b][static_cast<uint8_t>(w3 >> (8 * b))]; \
    c4 ^= kBraid[b][static_cast<uint8_t>(w4 >> (8 * b))];

// len >= 2 blocks of kBraidLanes words.
uint32_t Crc32Braided(uint32_t crc, const uint8_t *p, size_t len) {
    static_assert(kBraidLanes == 5, "the step below is written for five lanes");
    constexpr size_t kW = kBraidBytes;
    constexpr size_t kBlock = kBraidLanes * kW;
    const size_t blocks = len / kBlock - 1;  // the last block joins the lanes
    uint32_t c0 = crc, c1 = 0, c2 = 0, c3 = 0, c4 = 0;
    for (size_t n = 0; n < blocks; ++n, p += kBlock) {
        const BraidWord w0 = c0 ^ LoadWord(p);
        const BraidWord w1 = c1 ^ LoadWord(p + kW);
        const BraidWord w2 = c2 ^ LoadWord(p + 2 * kW);
        const BraidWord w3 = c3 ^ LoadWord(p + 3 * kW);
        const BraidWord w4 = c4 ^ LoadWord(p + 4 * kW);
        c0 = kBraid[0][static_cast<uint8_t>(w0)];
        c1 = kBraid[0][static_cast<uint8_t>(w1)];
        c2 = kBraid[0][static_cast<uint8_t>(w2)];
        c3 = kBraid[0][static_cast<uint8_t>(w3)];
        c4 = kBraid[0][static_cast<uint8_t>(w4)];
        ZCRC_BRAID_BYTE(1)
        ZCRC_BRAID_BYTE(2)
        ZCRC_BRAID_BYTE(3)
        if constexpr (kW == 8) {
            ZCRC_BRAID_BYTE(4)
            ZCRC_BRAID_BYTE(5)
            ZCRC_BRAID_BYTE(6)
            ZCRC_BRAID_BYTE(7)
        }
    }
    uint32_t r = CrcWord(c0 ^ LoadWord(p));
    r = CrcWord(c1 ^ LoadWord(p + kW) ^ r);
    r = CrcWord(c2 ^ LoadWord(p + 2 * kW) ^ r);
    r = CrcWord(c3 ^ LoadWord(p + 3 * kW) ^ r);
    r = CrcWord(c4 ^ LoadWord(p + 4 * kW) ^ r);
    p += kBlock;
    return Crc32Tables8(r, p, len % kBlock);
}

#undef ZCRC_BRAID_BYTE

#ifdef ZCRC_CLMUL

// x^n mod P in the normal (unreflected) representation.
constexpr uint32_t XPowMod(uint32_t n) {
    uint64_t v = 1;
    for (uint32_t i = 0; i < n; ++i) {
        v <<= 1;
        if ((v & 0x100000000ull) != 0) v ^= 0x104C11DB7ull;
    }
    return static_cast<uint32_t>(v);
}

constexpr uint32_t Reflect32(uint32_t v) {
    uint32_t r = 0;
    for (int i = 0; i < 32; ++i) r |= ((v >> i) & 1u) << (31 - i);
    return r;
}

// Multiplier that moves a 64-bit lane forward by n bits. The lane holds
// coefficients x^63..x^0 from bit 0 up; the carry-less product of two such
// operands comes out one bit short of the 128-bit layout, hence n - 1.
constexpr uint64_t FoldConst(uint32_t n) {
    return static_cast<uint64_t>(Reflect32(XPowMod(n - 1))) << 32;
}

// A 128-bit lane is H * x^64 + L (H in the low half); folding it forward
// by d bits multiplies H by x^(64 + d) and L by x^d.
constexpr uint64_t kFold512Hi = FoldConst(64 + 512);
constexpr uint64_t kFold512Lo = FoldConst(512);
constexpr uint64_t kFold128Hi = FoldConst(64 + 128);
constexpr uint64_t kFold128Lo = FoldConst(128);

__attribute__((target("pclmul,sse2"))) inline __m128i Fold(__m128i acc, __m128i k, __m128i data) {
    const __m128i hi = _mm_clmulepi64_si128(acc, k, 0x00);
    const __m128i lo = _mm_clmulepi64_si128(acc, k, 0x11);
    return _mm_xor_si128(data, _mm_xor_si128(hi, lo));
}

// len >= 64.
__attribute__((target("pclmul,sse2"))) uint32_t Crc32Clmul(uint32_t crc, const uint8_t *p,
                                                           size_t len) {
    const auto *v = reinterpret_cast<const __m128i *>(p);
    __m128i x0 = _mm_xor_si128(_mm_loadu_si128(v), _mm_cvtsi32_si128(static_cast<int>(crc)));
    __m128i x1 = _mm_loadu_si128(v + 1);
    __m128i x2 = _mm_loadu_si128(v + 2);
    __m128i x3 = _mm_loadu_si128(v + 3);
    p += 64;
    len -= 64;
    const __m128i k512 =
        _mm_set_epi64x(static_cast<int64_t>(kFold512Lo), static_cast<int64_t>(kFold512Hi));
    for (; len >= 64; p += 64, len -= 64) {
        v = reinterpret_cast<const __m128i *>(p);
        x0 = Fold(x0, k512, _mm_loadu_si128(v));
        x1 = Fold(x1, k512, _mm_loadu_si128(v + 1));
        x2 = Fold(x2, k512, _mm_loadu_si128(v + 2));
        x3 = Fold(x3, k512, _mm_loadu_si128(v + 3));
    }
    const __m128i k128 =
        _mm_set_epi64x(static_cast<int64_t>(kFold128Lo), static_cast<int64_t>(kFold128Hi));
    x0 = Fold(x0, k128, x1);
    x0 = Fold(x0, k128, x2);
    x0 = Fold(x0, k128, x3);
    for (; len >= 16; p += 16, len -= 16) {
        x0 = Fold(x0, k128, _mm_loadu_si128(reinterpret_cast<const __m128i *>(p)));
    }
    alignas(16) uint8_t rest[16];
    _mm_store_si128(reinterpret_cast<__m128i *>(rest), x0);
    return Crc32Tables8(Crc32Tables8(0, rest, 16), p, len);
}

// Read once when the library is loaded.
const bool g_bClmul = (Zpand_CpuFeatures() & ZPAND_CPU_CLMUL) != 0;

#endif  // ZCRC_CLMUL

}  // namespace

extern "C" {

const uint16_t m_awFcsTbl[256] = {
    0x0000, 0x1189, 0x2312, 0x329b, 0x4624, 0x57ad, 0x6536, 0x74bf, 0x8c48, 0x9dc1, 0xaf5a, 0xbed3,
    0xca6c, 0xdbe5, 0xe97e, 0xf8f7, 0x1081, 0x0108, 0x3393, 0x221a, 0x56a5, 0x472c, 0x75b7, 0x643e,
    0x9cc9, 0x8d40, 0xbfdb, 0xae52, 0xdaed, 0xcb64, 0xf9ff, 0xe876, 0x2102, 0x308b, 0x0210, 0x1399,
    0x6726, 0x76af, 0x4434, 0x55bd, 0xad4a, 0xbcc3, 0x8e58, 0x9fd1, 0xeb6e, 0xfae7, 0xc87c, 0xd9f5,
    0x3183, 0x200a, 0x1291, 0x0318, 0x77a7, 0x662e, 0x54b5, 0x453c, 0xbdcb, 0xac42, 0x9ed9, 0x8f50,
    0xfbef, 0xea66, 0xd8fd, 0xc974, 0x4204, 0x538d, 0x6116, 0x709f, 0x0420, 0x15a9, 0x2732, 0x36bb,
    0xce4c, 0xdfc5, 0xed5e, 0xfcd7, 0x8868, 0x99e1, 0xab7a, 0xbaf3, 0x5285, 0x430c, 0x7197, 0x601e,
    0x14a1, 0x0528, 0x37b3, 0x263a, 0xdecd, 0xcf44, 0xfddf, 0xec56, 0x98e9, 0x8960, 0xbbfb, 0xaa72,
    0x6306, 0x728f, 0x4014, 0x519d, 0x2522, 0x34ab, 0x0630, 0x17b9, 0xef4e, 0xfec7, 0xcc5c, 0xddd5,
    0xa96a, 0xb8e3, 0x8a78, 0x9bf1, 0x7387, 0x620e, 0x5095, 0x411c, 0x35a3, 0x242a, 0x16b1, 0x0738,
    0xffcf, 0xee46, 0xdcdd, 0xcd54, 0xb9eb, 0xa862, 0x9af9, 0x8b70, 0x8408, 0x9581, 0xa71a, 0xb693,
    0xc22c, 0xd3a5, 0xe13e, 0xf0b7, 0x0840, 0x19c9, 0x2b52, 0x3adb, 0x4e64, 0x5fed, 0x6d76, 0x7cff,
    0x9489, 0x8500, 0xb79b, 0xa612, 0xd2ad, 0xc324, 0xf1bf, 0xe036, 0x18c1, 0x0948, 0x3bd3, 0x2a5a,
    0x5ee5, 0x4f6c, 0x7df7, 0x6c7e, 0xa50a, 0xb483, 0x8618, 0x9791, 0xe32e, 0xf2a7, 0xc03c, 0xd1b5,
    0x2942, 0x38cb, 0x0a50, 0x1bd9, 0x6f66, 0x7eef, 0x4c74, 0x5dfd, 0xb58b, 0xa402, 0x9699, 0x8710,
    0xf3af, 0xe226, 0xd0bd, 0xc134, 0x39c3, 0x284a, 0x1ad1, 0x0b58, 0x7fe7, 0x6e6e, 0x5cf5, 0x4d7c,
    0xc60c, 0xd785, 0xe51e, 0xf497, 0x8028, 0x91a1, 0xa33a, 0xb2b3, 0x4a44, 0x5bcd, 0x6956, 0x78df,
    0x0c60, 0x1de9, 0x2f72, 0x3efb, 0xd68d, 0xc704, 0xf59f, 0xe416, 0x90a9, 0x8120, 0xb3bb, 0xa232,
    0x5ac5, 0x4b4c, 0x79d7, 0x685e, 0x1ce1, 0x0d68, 0x3ff3, 0x2e7a, 0xe70e, 0xf687, 0xc41c, 0xd595,
    0xa12a, 0xb0a3, 0x8238, 0x93b1, 0x6b46, 0x7acf, 0x4854, 0x59dd, 0x2d62, 0x3ceb, 0x0e70, 0x1ff9,
    0xf78f, 0xe606, 0xd49d, 0xc514, 0xb1ab, 0xa022, 0x92b9, 0x8330, 0x7bc7, 0x6a4e, 0x58d5, 0x495c,
    0x3de3, 0x2c6a, 0x1ef1, 0x0f78,
};

KESTRO_API uint16_t Zcrc_Fcs16(uint16_t wFcs, const uint8_t *pucData, uint32_t uiLen) {
    if (pucData == nullptr) return wFcs;
    uint32_t fcs = wFcs;
    for (uint32_t i = 0; i < uiLen; ++i) fcs = (fcs >> 8) ^ m_awFcsTbl[(fcs ^ pucData[i]) & 0xFF];
    return static_cast<uint16_t>(fcs);
}

KESTRO_API uint32_t Zcrc_Calc32(const uint8_t *pucData, uint32_t uiLen) {
    if (pucData == nullptr || uiLen == 0) return 0;
#ifdef ZCRC_CLMUL
    if (uiLen >= 64 && g_bClmul) return ~Crc32Clmul(0xFFFFFFFFu, pucData, uiLen);
#endif
    if (uiLen >= 2 * kBraidLanes * kBraidBytes) return ~Crc32Braided(0xFFFFFFFFu, pucData, uiLen);
    return ~Crc32Tables8(0xFFFFFFFFu, pucData, uiLen);
}

}  // extern "C"
