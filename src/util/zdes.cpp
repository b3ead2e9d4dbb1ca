// Single DES (FIPS 46-3) and the padded ECB data format.
//
// The round function works on halves rotated left by one bit, which puts
// every 6-bit group of the expansion E at a byte boundary of either the
// half or the half rotated right by four. A round key is therefore stored
// as two words of four 6-bit groups each (groups 0, 2, 4, 6 and 1, 3, 5,
// 7), and the S-boxes are merged with the permutation P into eight tables
// of 64 words (built at compile time) whose outputs are ORed.
#include <array>
#include <cstring>

#include "zdes.h"
#include "zutil_bytes.h"
#include "zos_mem.h"

namespace {

using zutil::LoadBe32;
using zutil::Rotl;
using zutil::Rotr;
using zutil::StoreBe32;

constexpr uint8_t kSbox[8][64] = {
    {14, 4,  13, 1, 2,  15, 11, 8, 3, 10, 6, 12, 5,  9,  0,  7,  0,  15, 7,  4,  14, 2,
     13, 1,  10, 6, 12, 11, 9,  5, 3, 8,  4, 1,  14, 8,  13, 6,  2,  11, 15, 12, 9,  7,
     3,  10, 5,  0, 15, 12, 8,  2, 4, 9,  1, 7,  5,  11, 3,  14, 10, 0,  6,  13},
    {15, 1,  8,  14, 6,  11, 3,  4, 9,  7,  2, 13, 12, 0,  5,  10, 3,  13, 4,  7, 15, 2,
     8,  14, 12, 0,  1,  10, 6,  9, 11, 5,  0, 14, 7,  11, 10, 4,  13, 1,  5,  8, 12, 6,
     9,  3,  2,  15, 13, 8,  10, 1, 3,  15, 4, 2,  11, 6,  7,  12, 0,  5,  14, 9},
    {10, 0,  9,  14, 6, 3,  15, 5,  1,  13, 12, 7, 11, 4,  2,  8,  13, 7, 0,  9, 3, 4,
     6,  10, 2,  8,  5, 14, 12, 11, 15, 1,  13, 6, 4,  9,  8,  15, 3,  0, 11, 1, 2, 12,
     5,  10, 14, 7,  1, 10, 13, 0,  6,  9,  8,  7, 4,  15, 14, 3,  11, 5, 2,  12},
    {7, 13, 14, 3, 0, 6,  9, 10, 1,  2, 8,  5, 11, 12, 4,  15, 13, 8,  11, 5, 6, 15,
     0, 3,  4,  7, 2, 12, 1, 10, 14, 9, 10, 6, 9,  0,  12, 11, 7,  13, 15, 1, 3, 14,
     5, 2,  8,  4, 3, 15, 0, 6,  10, 1, 13, 8, 9,  4,  5,  11, 12, 7,  2,  14},
    {2,  12, 4, 1,  7,  10, 11, 6, 8, 5,  3, 15, 13, 0,  14, 9,  14, 11, 2,  12, 4,  7,
     13, 1,  5, 0,  15, 10, 3,  9, 8, 6,  4, 2,  1,  11, 10, 13, 7,  8,  15, 9,  12, 5,
     6,  3,  0, 14, 11, 8,  12, 7, 1, 14, 2, 13, 6,  15, 0,  9,  10, 4,  5,  3},
    {12, 1,  10, 15, 9,  2,  6, 8,  0, 13, 3,  4,  14, 7,  5, 11, 10, 15, 4, 2, 7, 12,
     9,  5,  6,  1,  13, 14, 0, 11, 3, 8,  9,  14, 15, 5,  2, 8,  12, 3,  7, 0, 4, 10,
     1,  13, 11, 6,  4,  3,  2, 12, 9, 5,  15, 10, 11, 14, 1, 7,  6,  0,  8, 13},
    {4, 11, 2,  14, 15, 0,  8,  13, 3, 12, 9,  7, 5,  10, 6,  1,  13, 0,  11, 7,  4, 9,
     1, 10, 14, 3,  5,  12, 2,  15, 8, 6,  1,  4, 11, 13, 12, 3,  7,  14, 10, 15, 6, 8,
     0, 5,  9,  2,  6,  11, 13, 8,  1, 4,  10, 7, 9,  5,  0,  15, 14, 2,  3,  12},
    {13, 2, 8,  4, 6, 15, 11, 1,  10, 9,  3, 14, 5,  0,  12, 7,  1,  15, 13, 8, 10, 3,
     7,  4, 12, 5, 6, 11, 0,  14, 9,  2,  7, 11, 4,  1,  9,  12, 14, 2,  0,  6, 10, 13,
     15, 3, 5,  8, 2, 1,  14, 7,  4,  10, 8, 13, 15, 12, 9,  0,  3,  5,  6,  11},
};

// The permutation P: output bit i (1-based, from the left) is input bit
// kPerm[i].
constexpr uint8_t kPerm[32] = {16, 7, 20, 21, 29, 12, 28, 17, 1,  15, 23, 26, 5,  18, 31, 10,
                               2,  8, 24, 14, 32, 27, 3,  9,  19, 13, 30, 6,  22, 11, 4,  25};

constexpr uint8_t kPc1[56] = {57, 49, 41, 33, 25, 17, 9,  1,  58, 50, 42, 34, 26, 18,
                              10, 2,  59, 51, 43, 35, 27, 19, 11, 3,  60, 52, 44, 36,
                              63, 55, 47, 39, 31, 23, 15, 7,  62, 54, 46, 38, 30, 22,
                              14, 6,  61, 53, 45, 37, 29, 21, 13, 5,  28, 20, 12, 4};

constexpr uint8_t kPc2[48] = {14, 17, 11, 24, 1,  5,  3,  28, 15, 6,  21, 10, 23, 19, 12, 4,
                              26, 8,  16, 7,  27, 20, 13, 2,  41, 52, 31, 37, 47, 55, 30, 40,
                              51, 45, 33, 48, 44, 49, 39, 56, 34, 53, 46, 42, 50, 36, 29, 32};

constexpr uint8_t kShifts[16] = {1, 1, 2, 2, 2, 2, 2, 2, 1, 2, 2, 2, 2, 2, 2, 1};

using SpTable = std::array<std::array<uint32_t, 64>, 8>;

// kSp[j][x]: S-box j of the 6-bit input x, put in place and through P,
// then rotated left by one like the halves.
constexpr SpTable MakeSp() {
    SpTable t{};
    for (int j = 0; j < 8; ++j) {
        for (uint32_t x = 0; x < 64; ++x) {
            const uint32_t row = ((x >> 4) & 2) | (x & 1);
            const uint32_t col = (x >> 1) & 15;
            const uint32_t s = static_cast<uint32_t>(kSbox[j][row * 16 + col]) << (28 - 4 * j);
            uint32_t p = 0;
            for (int i = 0; i < 32; ++i) p |= ((s >> (32 - kPerm[i])) & 1u) << (31 - i);
            t[j][x] = Rotl(p, 1);
        }
    }
    return t;
}

constexpr SpTable kSp = MakeSp();

// Exchanges the bits of a selected by mask << shift with those of b
// selected by mask.
inline void SwapMove(uint32_t &a, uint32_t &b, int shift, uint32_t mask) {
    const uint32_t t = ((a >> shift) ^ b) & mask;
    b ^= t;
    a ^= t << shift;
}

inline uint32_t F(uint32_t r, const uint32_t *k) {
    const uint32_t t = Rotr(r, 4) ^ k[0];
    const uint32_t u = r ^ k[1];
    return kSp[0][(t >> 24) & 63] | kSp[2][(t >> 16) & 63] | kSp[4][(t >> 8) & 63] |
           kSp[6][t & 63] | kSp[1][(u >> 24) & 63] | kSp[3][(u >> 16) & 63] |
           kSp[5][(u >> 8) & 63] | kSp[7][u & 63];
}

void RunBlock(const uint32_t (*ks)[2], const uint8_t *in, uint8_t *out) {
    uint32_t l = LoadBe32(in);
    uint32_t r = LoadBe32(in + 4);
    // Initial permutation, leaving both halves rotated left by one.
    SwapMove(l, r, 4, 0x0F0F0F0Fu);
    SwapMove(l, r, 16, 0x0000FFFFu);
    SwapMove(r, l, 2, 0x33333333u);
    SwapMove(r, l, 8, 0x00FF00FFu);
    r = Rotl(r, 1);
    uint32_t t = (l ^ r) & 0xAAAAAAAAu;
    l ^= t;
    r ^= t;
    l = Rotl(l, 1);

    for (int i = 0; i < 16; i += 2) {
        l ^= F(r, ks[i]);
        r ^= F(l, ks[i + 1]);
    }

    // Final permutation of (R16, L16).
    r = Rotr(r, 1);
    t = (l ^ r) & 0xAAAAAAAAu;
    l ^= t;
    r ^= t;
    l = Rotr(l, 1);
    SwapMove(l, r, 8, 0x00FF00FFu);
    SwapMove(l, r, 2, 0x33333333u);
    SwapMove(r, l, 16, 0x0000FFFFu);
    SwapMove(r, l, 4, 0x0F0F0F0Fu);
    StoreBe32(out, r);
    StoreBe32(out + 4, l);
}

constexpr uint8_t kPadding[7] = {0x3E, 0x2E, 0x1E, 0x0E, 0x5A, 0x5A, 0x5A};

// Clears and frees a work buffer that held key-dependent data.
void FreeWork(uint8_t *p, uint32_t len) {
    volatile uint8_t *v = p;
    for (uint32_t i = 0; i < len; ++i) v[i] = 0;
    Zos_Free(p);
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zdes_GetBit(const uint8_t *pucData, uint32_t uiPos) {
    if (pucData == nullptr) return 0;
    return (pucData[uiPos >> 3] >> (7 - (uiPos & 7))) & 1u;
}

KESTRO_API void Zdes_SetBit(uint8_t *pucData, uint32_t uiPos, uint32_t uiVal) {
    if (pucData == nullptr) return;
    const auto mask = static_cast<uint8_t>(0x80u >> (uiPos & 7));
    if (uiVal != 0) {
        pucData[uiPos >> 3] |= mask;
    } else {
        pucData[uiPos >> 3] &= static_cast<uint8_t>(~mask);
    }
}

KESTRO_API uint32_t Zdes_LShift28(uint32_t uiHalf, uint32_t uiCount) {
    const uint32_t n = uiCount % 28;
    const uint32_t v = uiHalf & 0x0FFFFFFFu;
    if (n == 0) return v;
    return ((v << n) | (v >> (28 - n))) & 0x0FFFFFFFu;
}

KESTRO_API void Zdes_MakeEncKey(ZDES_KS aauiKs, const uint8_t *pucKey) {
    if (aauiKs == nullptr || pucKey == nullptr) return;
    uint32_t c = 0;
    uint32_t d = 0;
    for (int i = 0; i < 28; ++i) {
        c = (c << 1) | Zdes_GetBit(pucKey, kPc1[i] - 1u);
        d = (d << 1) | Zdes_GetBit(pucKey, kPc1[28 + i] - 1u);
    }
    for (int round = 0; round < 16; ++round) {
        c = Zdes_LShift28(c, kShifts[round]);
        d = Zdes_LShift28(d, kShifts[round]);
        // C and D side by side, 56 bits from the high bit of byte 0.
        const uint64_t both = (uint64_t{c} << 28) | d;
        uint8_t cd[7];
        for (int i = 0; i < 7; ++i) cd[i] = static_cast<uint8_t>(both >> (48 - 8 * i));
        // Six-bit groups of the 48-bit round key.
        uint32_t group[8] = {};
        for (int i = 0; i < 48; ++i) {
            group[i / 6] = (group[i / 6] << 1) | Zdes_GetBit(cd, kPc2[i] - 1u);
        }
        aauiKs[round][0] = (group[0] << 24) | (group[2] << 16) | (group[4] << 8) | group[6];
        aauiKs[round][1] = (group[1] << 24) | (group[3] << 16) | (group[5] << 8) | group[7];
    }
}

KESTRO_API void Zdes_MakeDecKey(ZDES_KS aauiEncKs, ZDES_KS aauiDecKs) {
    if (aauiEncKs == nullptr || aauiDecKs == nullptr) return;
    uint32_t tmp[16][2];
    std::memcpy(tmp, aauiEncKs, sizeof(tmp));
    for (int i = 0; i < 16; ++i) {
        aauiDecKs[i][0] = tmp[15 - i][0];
        aauiDecKs[i][1] = tmp[15 - i][1];
    }
}

KESTRO_API void Zdes_Run(ZDES_KS aauiKs, const uint8_t *pucIn, uint8_t *pucOut) {
    if (aauiKs == nullptr || pucIn == nullptr || pucOut == nullptr) return;
    RunBlock(aauiKs, pucIn, pucOut);
}

KESTRO_API uint32_t Zdes_Enc64Bits(ZDES_KS aauiKs, const uint8_t *pucIn, uint8_t *pucOut) {
    Zdes_Run(aauiKs, pucIn, pucOut);
    return ZOK;
}

KESTRO_API uint32_t Zdes_Dec64Bits(ZDES_KS aauiKs, const uint8_t *pucIn, uint8_t *pucOut) {
    Zdes_Run(aauiKs, pucIn, pucOut);
    return ZOK;
}

KESTRO_API uint32_t Zdes_EncData(const uint8_t *pucKey, const uint8_t *pucData, uint32_t uiLen,
                                 uint8_t *pucOut, uint32_t *puiOutSize) {
    if (pucKey == nullptr || pucData == nullptr || uiLen == 0 || pucOut == nullptr ||
        puiOutSize == nullptr || *puiOutSize == 0 || uiLen > 0xFFFFFFF0u) {
        return ZFAILED;
    }
    const uint32_t padded = (uiLen + 1 + 7) / 8 * 8;
    if (*puiOutSize < padded) return ZFAILED;
    auto *work = static_cast<uint8_t *>(Zos_Malloc(padded));
    if (work == nullptr) return ZFAILED;
    work[0] = static_cast<uint8_t>(uiLen);
    std::memcpy(work + 1, pucData, uiLen);
    std::memcpy(work + 1 + uiLen, kPadding, padded - 1 - uiLen);

    uint32_t ks[16][2];
    Zdes_MakeEncKey(ks, pucKey);
    for (uint32_t i = 0; i < padded; i += 8) RunBlock(ks, work + i, work + i);
    std::memcpy(pucOut, work, padded);
    *puiOutSize = padded;
    FreeWork(work, padded);
    std::memset(ks, 0, sizeof(ks));
    return ZOK;
}

KESTRO_API uint32_t Zdes_DecData(const uint8_t *pucKey, const uint8_t *pucData, uint32_t uiLen,
                                 uint8_t *pucOut, uint32_t *puiOutSize) {
    if (pucKey == nullptr || pucData == nullptr || uiLen == 0 || (uiLen & 7) != 0 ||
        puiOutSize == nullptr) {
        return ZFAILED;
    }
    auto *work = static_cast<uint8_t *>(Zos_Malloc(uiLen));
    if (work == nullptr) return ZFAILED;
    uint32_t enc[16][2];
    uint32_t dec[16][2];
    Zdes_MakeEncKey(enc, pucKey);
    Zdes_MakeDecKey(enc, dec);
    for (uint32_t i = 0; i < uiLen; i += 8) RunBlock(dec, pucData + i, work + i);
    std::memset(enc, 0, sizeof(enc));
    std::memset(dec, 0, sizeof(dec));

    const uint32_t n = work[0];
    uint32_t rc = ZFAILED;
    if (n < uiLen && *puiOutSize >= n && (pucOut != nullptr || n == 0)) {
        if (n != 0) std::memcpy(pucOut, work + 1, n);
        *puiOutSize = n;
        rc = ZOK;
    }
    FreeWork(work, uiLen);
    return rc;
}

}  // extern "C"
