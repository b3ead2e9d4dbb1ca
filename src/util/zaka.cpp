// Milenage (f1, f1*, f2-f5, f5*) over AES-128.
//
// The S-box is computed, not looked up: the 16 state bytes are transposed
// into eight bit planes, inverted in GF(2^8) as x^254 with bitwise
// multiplications, and put through the affine map, so neither the key nor
// the data ever selects a memory address. Multiplication by x uses
// arithmetic for the same reason. The exported tables hold the same values
// for callers that want them.
//
// Each f-function works on round keys of its own. The last schedule made
// on a thread is kept for that thread (so Zaka_RjdlEncrypt and
// Zaka_ComputeOpC use it) and copied to the exported table with relaxed
// atomic stores, so concurrent callers never race on plain memory.
#include <cstring>

#include "zaka.h"

extern "C" {

uint8_t m_aucZakaOp[16] = {};

const uint8_t m_aucZakaS[256] = {
    0x63, 0x7c, 0x77, 0x7b, 0xf2, 0x6b, 0x6f, 0xc5, 0x30, 0x01, 0x67, 0x2b, 0xfe, 0xd7, 0xab, 0x76,
    0xca, 0x82, 0xc9, 0x7d, 0xfa, 0x59, 0x47, 0xf0, 0xad, 0xd4, 0xa2, 0xaf, 0x9c, 0xa4, 0x72, 0xc0,
    0xb7, 0xfd, 0x93, 0x26, 0x36, 0x3f, 0xf7, 0xcc, 0x34, 0xa5, 0xe5, 0xf1, 0x71, 0xd8, 0x31, 0x15,
    0x04, 0xc7, 0x23, 0xc3, 0x18, 0x96, 0x05, 0x9a, 0x07, 0x12, 0x80, 0xe2, 0xeb, 0x27, 0xb2, 0x75,
    0x09, 0x83, 0x2c, 0x1a, 0x1b, 0x6e, 0x5a, 0xa0, 0x52, 0x3b, 0xd6, 0xb3, 0x29, 0xe3, 0x2f, 0x84,
    0x53, 0xd1, 0x00, 0xed, 0x20, 0xfc, 0xb1, 0x5b, 0x6a, 0xcb, 0xbe, 0x39, 0x4a, 0x4c, 0x58, 0xcf,
    0xd0, 0xef, 0xaa, 0xfb, 0x43, 0x4d, 0x33, 0x85, 0x45, 0xf9, 0x02, 0x7f, 0x50, 0x3c, 0x9f, 0xa8,
    0x51, 0xa3, 0x40, 0x8f, 0x92, 0x9d, 0x38, 0xf5, 0xbc, 0xb6, 0xda, 0x21, 0x10, 0xff, 0xf3, 0xd2,
    0xcd, 0x0c, 0x13, 0xec, 0x5f, 0x97, 0x44, 0x17, 0xc4, 0xa7, 0x7e, 0x3d, 0x64, 0x5d, 0x19, 0x73,
    0x60, 0x81, 0x4f, 0xdc, 0x22, 0x2a, 0x90, 0x88, 0x46, 0xee, 0xb8, 0x14, 0xde, 0x5e, 0x0b, 0xdb,
    0xe0, 0x32, 0x3a, 0x0a, 0x49, 0x06, 0x24, 0x5c, 0xc2, 0xd3, 0xac, 0x62, 0x91, 0x95, 0xe4, 0x79,
    0xe7, 0xc8, 0x37, 0x6d, 0x8d, 0xd5, 0x4e, 0xa9, 0x6c, 0x56, 0xf4, 0xea, 0x65, 0x7a, 0xae, 0x08,
    0xba, 0x78, 0x25, 0x2e, 0x1c, 0xa6, 0xb4, 0xc6, 0xe8, 0xdd, 0x74, 0x1f, 0x4b, 0xbd, 0x8b, 0x8a,
    0x70, 0x3e, 0xb5, 0x66, 0x48, 0x03, 0xf6, 0x0e, 0x61, 0x35, 0x57, 0xb9, 0x86, 0xc1, 0x1d, 0x9e,
    0xe1, 0xf8, 0x98, 0x11, 0x69, 0xd9, 0x8e, 0x94, 0x9b, 0x1e, 0x87, 0xe9, 0xce, 0x55, 0x28, 0xdf,
    0x8c, 0xa1, 0x89, 0x0d, 0xbf, 0xe6, 0x42, 0x68, 0x41, 0x99, 0x2d, 0x0f, 0xb0, 0x54, 0xbb, 0x16,
};

const uint8_t m_aucZakaXtime[256] = {
    0x00, 0x02, 0x04, 0x06, 0x08, 0x0a, 0x0c, 0x0e, 0x10, 0x12, 0x14, 0x16, 0x18, 0x1a, 0x1c, 0x1e,
    0x20, 0x22, 0x24, 0x26, 0x28, 0x2a, 0x2c, 0x2e, 0x30, 0x32, 0x34, 0x36, 0x38, 0x3a, 0x3c, 0x3e,
    0x40, 0x42, 0x44, 0x46, 0x48, 0x4a, 0x4c, 0x4e, 0x50, 0x52, 0x54, 0x56, 0x58, 0x5a, 0x5c, 0x5e,
    0x60, 0x62, 0x64, 0x66, 0x68, 0x6a, 0x6c, 0x6e, 0x70, 0x72, 0x74, 0x76, 0x78, 0x7a, 0x7c, 0x7e,
    0x80, 0x82, 0x84, 0x86, 0x88, 0x8a, 0x8c, 0x8e, 0x90, 0x92, 0x94, 0x96, 0x98, 0x9a, 0x9c, 0x9e,
    0xa0, 0xa2, 0xa4, 0xa6, 0xa8, 0xaa, 0xac, 0xae, 0xb0, 0xb2, 0xb4, 0xb6, 0xb8, 0xba, 0xbc, 0xbe,
    0xc0, 0xc2, 0xc4, 0xc6, 0xc8, 0xca, 0xcc, 0xce, 0xd0, 0xd2, 0xd4, 0xd6, 0xd8, 0xda, 0xdc, 0xde,
    0xe0, 0xe2, 0xe4, 0xe6, 0xe8, 0xea, 0xec, 0xee, 0xf0, 0xf2, 0xf4, 0xf6, 0xf8, 0xfa, 0xfc, 0xfe,
    0x1b, 0x19, 0x1f, 0x1d, 0x13, 0x11, 0x17, 0x15, 0x0b, 0x09, 0x0f, 0x0d, 0x03, 0x01, 0x07, 0x05,
    0x3b, 0x39, 0x3f, 0x3d, 0x33, 0x31, 0x37, 0x35, 0x2b, 0x29, 0x2f, 0x2d, 0x23, 0x21, 0x27, 0x25,
    0x5b, 0x59, 0x5f, 0x5d, 0x53, 0x51, 0x57, 0x55, 0x4b, 0x49, 0x4f, 0x4d, 0x43, 0x41, 0x47, 0x45,
    0x7b, 0x79, 0x7f, 0x7d, 0x73, 0x71, 0x77, 0x75, 0x6b, 0x69, 0x6f, 0x6d, 0x63, 0x61, 0x67, 0x65,
    0x9b, 0x99, 0x9f, 0x9d, 0x93, 0x91, 0x97, 0x95, 0x8b, 0x89, 0x8f, 0x8d, 0x83, 0x81, 0x87, 0x85,
    0xbb, 0xb9, 0xbf, 0xbd, 0xb3, 0xb1, 0xb7, 0xb5, 0xab, 0xa9, 0xaf, 0xad, 0xa3, 0xa1, 0xa7, 0xa5,
    0xdb, 0xd9, 0xdf, 0xdd, 0xd3, 0xd1, 0xd7, 0xd5, 0xcb, 0xc9, 0xcf, 0xcd, 0xc3, 0xc1, 0xc7, 0xc5,
    0xfb, 0xf9, 0xff, 0xfd, 0xf3, 0xf1, 0xf7, 0xf5, 0xeb, 0xe9, 0xef, 0xed, 0xe3, 0xe1, 0xe7, 0xe5,
};

uint8_t m_aaaucZakaRK[11][4][4] = {};

}  // extern "C"

namespace {

using RoundKeys = uint8_t[11][4][4];

// Bit planes of up to 32 bytes: bit j of plane i is bit i of byte j.
struct Planes {
    uint32_t b[8];
};

Planes Mul(const Planes &x, const Planes &y) {
    uint32_t t[15] = {};
    for (int i = 0; i < 8; ++i) {
        for (int j = 0; j < 8; ++j) t[i + j] ^= x.b[i] & y.b[j];
    }
    // x^8 = x^4 + x^3 + x + 1.
    for (int k = 14; k >= 8; --k) {
        t[k - 4] ^= t[k];
        t[k - 5] ^= t[k];
        t[k - 7] ^= t[k];
        t[k - 8] ^= t[k];
    }
    Planes r;
    for (int i = 0; i < 8; ++i) r.b[i] = t[i];
    return r;
}

// S-box of n (at most 32) bytes in place.
void SubBytes(uint8_t *bytes, int n) {
    Planes x{};
    for (int j = 0; j < n; ++j) {
        for (int i = 0; i < 8; ++i) x.b[i] |= static_cast<uint32_t>((bytes[j] >> i) & 1) << j;
    }
    // x^254 is the inverse (0 stays 0).
    const Planes x2 = Mul(x, x);
    const Planes x3 = Mul(x2, x);
    const Planes x6 = Mul(x3, x3);
    const Planes x12 = Mul(x6, x6);
    const Planes x15 = Mul(x12, x3);
    const Planes x14 = Mul(x12, x2);
    Planes p = Mul(x15, x15);  // x^30
    p = Mul(p, p);             // x^60
    p = Mul(p, p);             // x^120
    p = Mul(p, p);             // x^240
    const Planes inv = Mul(p, x14);
    // Affine map: bit i ^= bits i+4 .. i+7 (mod 8), then XOR 0x63.
    Planes s;
    for (int i = 0; i < 8; ++i) {
        s.b[i] = inv.b[i] ^ inv.b[(i + 4) & 7] ^ inv.b[(i + 5) & 7] ^ inv.b[(i + 6) & 7] ^
                 inv.b[(i + 7) & 7];
        if (((0x63 >> i) & 1) != 0) s.b[i] = ~s.b[i];
    }
    for (int j = 0; j < n; ++j) {
        uint32_t v = 0;
        for (int i = 0; i < 8; ++i) v |= ((s.b[i] >> j) & 1u) << i;
        bytes[j] = static_cast<uint8_t>(v);
    }
}

inline uint8_t Xtime(uint8_t v) {
    return static_cast<uint8_t>((v << 1) ^ (0x1B & (0u - (v >> 7))));
}

void KeyAdd(uint8_t state[4][4], const RoundKeys rk, int round) {
    for (int r = 0; r < 4; ++r) {
        for (int c = 0; c < 4; ++c) state[r][c] ^= rk[round][r][c];
    }
}

void ShiftRow(uint8_t state[4][4]) {
    uint8_t t[4];
    for (int r = 1; r < 4; ++r) {
        for (int c = 0; c < 4; ++c) t[c] = state[r][(c + r) & 3];
        for (int c = 0; c < 4; ++c) state[r][c] = t[c];
    }
}

void MixColumn(uint8_t state[4][4]) {
    for (int c = 0; c < 4; ++c) {
        const uint8_t a0 = state[0][c], a1 = state[1][c], a2 = state[2][c], a3 = state[3][c];
        const uint8_t all = a0 ^ a1 ^ a2 ^ a3;
        state[0][c] = static_cast<uint8_t>(a0 ^ all ^ Xtime(a0 ^ a1));
        state[1][c] = static_cast<uint8_t>(a1 ^ all ^ Xtime(a1 ^ a2));
        state[2][c] = static_cast<uint8_t>(a2 ^ all ^ Xtime(a2 ^ a3));
        state[3][c] = static_cast<uint8_t>(a3 ^ all ^ Xtime(a3 ^ a0));
    }
}

void ByteSub(uint8_t state[4][4]) {
    SubBytes(&state[0][0], 16);
}

void KeySchedule(const uint8_t *key, RoundKeys rk) {
    for (int i = 0; i < 16; ++i) rk[0][i & 3][i >> 2] = key[i];
    uint8_t rcon = 1;
    for (int i = 1; i < 11; ++i) {
        // The last column rotated up by one and substituted.
        uint8_t w[4] = {rk[i - 1][1][3], rk[i - 1][2][3], rk[i - 1][3][3], rk[i - 1][0][3]};
        SubBytes(w, 4);
        w[0] ^= rcon;
        for (int r = 0; r < 4; ++r) {
            rk[i][r][0] = w[r] ^ rk[i - 1][r][0];
            rk[i][r][1] = rk[i - 1][r][1] ^ rk[i][r][0];
            rk[i][r][2] = rk[i - 1][r][2] ^ rk[i][r][1];
            rk[i][r][3] = rk[i - 1][r][3] ^ rk[i][r][2];
        }
        rcon = Xtime(rcon);
    }
}

void Encrypt(const RoundKeys rk, const uint8_t *in, uint8_t *out) {
    uint8_t state[4][4];
    for (int i = 0; i < 16; ++i) state[i & 3][i >> 2] = in[i];
    KeyAdd(state, rk, 0);
    for (int round = 1; round < 10; ++round) {
        ByteSub(state);
        ShiftRow(state);
        MixColumn(state);
        KeyAdd(state, rk, round);
    }
    ByteSub(state);
    ShiftRow(state);
    KeyAdd(state, rk, 10);
    for (int i = 0; i < 16; ++i) out[i] = state[i & 3][i >> 2];
}

void Wipe(void *p, size_t n) {
    volatile auto *v = static_cast<volatile uint8_t *>(p);
    for (size_t i = 0; i < n; ++i) v[i] = 0;
}

// The last schedule of this thread; until the thread makes one, the
// exported table (the last schedule of any thread) stands in.
thread_local RoundKeys t_aaaucRK;
thread_local bool t_bHaveRK = false;

void Publish(const RoundKeys rk) {
    std::memcpy(t_aaaucRK, rk, sizeof(RoundKeys));
    t_bHaveRK = true;
    uint8_t *shared = &m_aaaucZakaRK[0][0][0];
    const uint8_t *src = &rk[0][0][0];
    for (size_t i = 0; i < sizeof(RoundKeys); ++i) {
        __atomic_store_n(&shared[i], src[i], __ATOMIC_RELAXED);
    }
}

const uint8_t (*ThreadKeys())[4][4] {
    if (!t_bHaveRK) {
        uint8_t *shared = &m_aaaucZakaRK[0][0][0];
        uint8_t *dst = &t_aaaucRK[0][0][0];
        for (size_t i = 0; i < sizeof(RoundKeys); ++i) {
            dst[i] = __atomic_load_n(&shared[i], __ATOMIC_RELAXED);
        }
    }
    return t_aaaucRK;
}

// One call's working set: its key schedule, OPc and TEMP.
struct Session {
    RoundKeys rk;
    uint8_t opc[16];
    uint8_t temp[16];

    Session(const uint8_t *k, const uint8_t *rand) {
        KeySchedule(k, rk);
        Publish(rk);
        uint8_t op[16];
        std::memcpy(op, m_aucZakaOp, sizeof(op));
        Encrypt(rk, op, opc);
        for (int i = 0; i < 16; ++i) opc[i] ^= op[i];
        uint8_t in[16];
        for (int i = 0; i < 16; ++i) in[i] = rand[i] ^ opc[i];
        Encrypt(rk, in, temp);
    }
    ~Session() { Wipe(this, sizeof(*this)); }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // OUT = E_K(rot(x XOR OPc, r) XOR c) XOR OPc, where the rotation left
    // by r bits moves byte i to (i + 16 - r / 8) mod 16 = (i + shift) mod 16
    // and c is 0 but for its last byte.
    void Out(const uint8_t *x, int shift, uint8_t cLast, uint8_t *out) const {
        uint8_t in[16];
        for (int i = 0; i < 16; ++i) in[(i + shift) & 15] = x[i] ^ opc[i];
        in[15] ^= cLast;
        Encrypt(rk, in, out);
        for (int i = 0; i < 16; ++i) out[i] ^= opc[i];
    }

    // OUT1, from TEMP and IN1 = SQN || AMF || SQN || AMF.
    void Out1(const uint8_t *sqn, const uint8_t *amf, uint8_t *out) const {
        uint8_t in1[16];
        for (int i = 0; i < 6; ++i) in1[i] = in1[i + 8] = sqn[i];
        for (int i = 0; i < 2; ++i) in1[i + 6] = in1[i + 14] = amf[i];
        uint8_t in[16];
        for (int i = 0; i < 16; ++i) in[(i + 8) & 15] = in1[i] ^ opc[i];
        for (int i = 0; i < 16; ++i) in[i] ^= temp[i];
        Encrypt(rk, in, out);
        for (int i = 0; i < 16; ++i) out[i] ^= opc[i];
    }
};

}  // namespace

extern "C" {

KESTRO_API void Zaka_F1(const uint8_t *pucK, const uint8_t *pucRand, const uint8_t *pucSqn,
                        const uint8_t *pucAmf, uint8_t *pucMacA) {
    if (pucK == nullptr || pucRand == nullptr || pucSqn == nullptr || pucAmf == nullptr ||
        pucMacA == nullptr) {
        return;
    }
    const Session s(pucK, pucRand);
    uint8_t out[16];
    s.Out1(pucSqn, pucAmf, out);
    std::memcpy(pucMacA, out, 8);
}

KESTRO_API void Zaka_F1star(const uint8_t *pucK, const uint8_t *pucRand, const uint8_t *pucSqn,
                            const uint8_t *pucAmf, uint8_t *pucMacS) {
    if (pucK == nullptr || pucRand == nullptr || pucSqn == nullptr || pucAmf == nullptr ||
        pucMacS == nullptr) {
        return;
    }
    const Session s(pucK, pucRand);
    uint8_t out[16];
    s.Out1(pucSqn, pucAmf, out);
    std::memcpy(pucMacS, out + 8, 8);
}

KESTRO_API void Zaka_F2345(const uint8_t *pucK, const uint8_t *pucRand, uint8_t *pucRes,
                           uint8_t *pucCk, uint8_t *pucIk, uint8_t *pucAk) {
    if (pucK == nullptr || pucRand == nullptr || pucRes == nullptr || pucCk == nullptr ||
        pucIk == nullptr || pucAk == nullptr) {
        return;
    }
    const Session s(pucK, pucRand);
    uint8_t out[16];
    s.Out(s.temp, 0, 1, out);  // r2 = 0, c2 = 1
    std::memcpy(pucRes, out + 8, 8);
    std::memcpy(pucAk, out, 6);
    s.Out(s.temp, 12, 2, pucCk);  // r3 = 32 bits, c3 = 2
    s.Out(s.temp, 8, 4, pucIk);   // r4 = 64 bits, c4 = 4
}

KESTRO_API void Zaka_F5star(const uint8_t *pucK, const uint8_t *pucRand, uint8_t *pucAk) {
    if (pucK == nullptr || pucRand == nullptr || pucAk == nullptr) return;
    const Session s(pucK, pucRand);
    uint8_t out[16];
    s.Out(s.temp, 4, 8, out);  // r5 = 96 bits, c5 = 8
    std::memcpy(pucAk, out, 6);
}

KESTRO_API uint8_t Zaka_ComputeOpC(uint8_t *pucOpc) {
    if (pucOpc == nullptr) return 0;
    uint8_t op[16];
    std::memcpy(op, m_aucZakaOp, sizeof(op));
    Encrypt(ThreadKeys(), op, pucOpc);
    for (int i = 0; i < 16; ++i) pucOpc[i] ^= op[i];
    return pucOpc[15];
}

KESTRO_API void Zaka_RjdlKeySchedule(const uint8_t *pucKey) {
    if (pucKey == nullptr) return;
    RoundKeys rk;
    KeySchedule(pucKey, rk);
    Publish(rk);
    Wipe(rk, sizeof(rk));
}

KESTRO_API void Zaka_RjdlEncrypt(const uint8_t *pucIn, uint8_t *pucOut) {
    if (pucIn == nullptr || pucOut == nullptr) return;
    Encrypt(ThreadKeys(), pucIn, pucOut);
}

KESTRO_API void Zaka_KeyAdd(uint8_t aaucState[4][4], uint8_t aaaucRK[11][4][4], int32_t iRound) {
    if (aaucState == nullptr || aaaucRK == nullptr || iRound < 0 || iRound > 10) return;
    KeyAdd(aaucState, aaaucRK, iRound);
}

KESTRO_API void Zaka_ByteSub(uint8_t aaucState[4][4]) {
    if (aaucState != nullptr) ByteSub(aaucState);
}

KESTRO_API void Zaka_ShiftRow(uint8_t aaucState[4][4]) {
    if (aaucState != nullptr) ShiftRow(aaucState);
}

KESTRO_API void Zaka_MixColumn(uint8_t aaucState[4][4]) {
    if (aaucState != nullptr) MixColumn(aaucState);
}

}  // extern "C"
