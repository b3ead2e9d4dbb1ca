// Milenage: the 3GPP TS 35.208 test sets, and the AES-128 core against
// FIPS-197 (whole cipher, round keys and the single round steps).
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "codec_test.h"
#include "kestro_lite.h"

namespace {

using ctest::Hex;
using ctest::ToHex;

struct TestSet {
    const char *k, *rand, *sqn, *amf, *op, *opc, *f1, *f1s, *f2, *f3, *f4, *f5, *f5s;
};

const TestSet kSets[] = {
    {"465b5ce8b199b49faa5f0a2ee238a6bc", "23553cbe9637a89d218ae64dae47bf35", "ff9bb4d0b607", "b9b9",
     "cdc202d5123e20f62b6d676ac72cb318", "cd63cb71954a9f4e48a5994e37a02baf", "4a9ffac354dfafb3",
     "01cfaf9ec4e871e9", "a54211d5e3ba50bf", "b40ba9a3c58b2a05bbf0d987b21bf8cb",
     "f769bcd751044604127672711c6d3441", "aa689c648370", "451e8beca43b"},
    {"fec86ba6eb707ed08905757b1bb44b8f", "9f7c8d021accf4db213ccff0c7f71a6a", "9d0277595ffc", "725c",
     "dbc59adcb6f9a0ef735477b7fadf8374", "1006020f0a478bf6b699f15c062e42b3", "9cabc3e99baf7281",
     "95814ba2b3044324", "8011c48c0c214ed2", "5dbdbb2954e8f3cde665b046179a5098",
     "59a92d3b476a0443487055cf88b2307b", "33484dc2136b", "deacdd848cc6"},
    {"9e5944aea94b81165c82fbf9f32db751", "ce83dbc54ac0274a157c17f80d017bd6", "0b604a81eca8", "9e09",
     "223014c5806694c007ca1eeef57f004f", "a64a507ae1a2a98bb88eb4210135dc87", "74a58220cba84c49",
     "ac2cc74a96871837", "f365cd683cd92e96", "e203edb3971574f5a94b0d61b816345d",
     "0c4524adeac041c4dd830d20854fc46b", "f0b9c08ad02e", "6085a86c6f63"},
};

// Sets OP for the scope of a test and clears it again.
struct OpScope {
    explicit OpScope(const std::vector<uint8_t> &op) { std::memcpy(m_aucZakaOp, op.data(), 16); }
    ~OpScope() { std::memset(m_aucZakaOp, 0, 16); }
};

TEST(Zaka, Ts35208TestSets) {
    for (const TestSet &t : kSets) {
        const auto k = Hex(t.k), rand = Hex(t.rand), sqn = Hex(t.sqn), amf = Hex(t.amf);
        OpScope op(Hex(t.op));
        uint8_t macA[8], macS[8], res[8], ck[16], ik[16], ak[6], akS[6], opc[16];
        Zaka_F1(k.data(), rand.data(), sqn.data(), amf.data(), macA);
        // OPc follows the key the last call scheduled.
        EXPECT_EQ(Zaka_ComputeOpC(opc), opc[15]);
        EXPECT_EQ(ToHex(opc, 16), t.opc);
        Zaka_F1star(k.data(), rand.data(), sqn.data(), amf.data(), macS);
        Zaka_F2345(k.data(), rand.data(), res, ck, ik, ak);
        Zaka_F5star(k.data(), rand.data(), akS);
        // f1, f1*, f2, f3, f4, f5, f5*
        EXPECT_EQ(ToHex(macA, 8) + " " + ToHex(macS, 8) + " " + ToHex(res, 8) + " " +
                      ToHex(ck, 16) + " " + ToHex(ik, 16) + " " + ToHex(ak, 6) + " " +
                      ToHex(akS, 6),
                  std::string(t.f1) + " " + t.f1s + " " + t.f2 + " " + t.f3 + " " + t.f4 + " " +
                      t.f5 + " " + t.f5s);
    }
}

TEST(Zaka, UnsetOpIsZeroAndOpcIsEncryptedZero) {
    const uint8_t zero[16] = {};
    EXPECT_EQ(std::memcmp(m_aucZakaOp, zero, 16), 0);
    const auto k = Hex(kSets[0].k), rand = Hex(kSets[0].rand);
    uint8_t ak[6], opc[16], e0[16];
    Zaka_F5star(k.data(), rand.data(), ak);
    Zaka_ComputeOpC(opc);
    Zaka_RjdlEncrypt(zero, e0);
    EXPECT_EQ(ToHex(opc, 16), ToHex(e0, 16));
    // Guard against a degenerate cipher: E_K(0) is neither 0 nor K.
    EXPECT_NE(ToHex(e0, 16), ToHex(zero, 16));
    EXPECT_NE(ToHex(e0, 16), kSets[0].k);
}

TEST(Zaka, Fips197Cipher) {
    struct {
        const char *key, *in, *out;
    } const cases[] = {
        {"000102030405060708090a0b0c0d0e0f", "00112233445566778899aabbccddeeff",
         "69c4e0d86a7b0430d8cdb78070b4c55a"},
        {"2b7e151628aed2a6abf7158809cf4f3c", "3243f6a8885a308d313198a2e0370734",
         "3925841d02dc09fbdc118597196a0b32"},
    };
    for (const auto &c : cases) {
        Zaka_RjdlKeySchedule(Hex(c.key).data());
        uint8_t out[16];
        Zaka_RjdlEncrypt(Hex(c.in).data(), out);
        EXPECT_EQ(ToHex(out, 16), c.out);
    }
    // Round keys of C.1 as the exported table holds them (column-wise).
    Zaka_RjdlKeySchedule(Hex("000102030405060708090a0b0c0d0e0f").data());
    const char *ksch[] = {"d6aa74fdd2af72fadaa678f1d6ab76fe", "549932d1f08557681093ed9cbe2c974e",
                          "13111d7fe3944a17f307a78b4d2b30c5"};
    const int rounds[] = {1, 9, 10};
    for (int i = 0; i < 3; ++i) {
        uint8_t col[16];
        for (int b = 0; b < 16; ++b) col[b] = m_aaaucZakaRK[rounds[i]][b & 3][b >> 2];
        EXPECT_EQ(ToHex(col, 16), ksch[i]) << "round " << rounds[i];
    }
}

// Each entry given a null pointer in any one place does nothing: the other
// outputs keep their bytes and the scheduled key stays the one before.
TEST(Zaka, ANullInAnyPlaceDoesNothing) {
    const TestSet &t = kSets[1];
    const auto k = Hex(t.k), rand = Hex(t.rand), sqn = Hex(t.sqn), amf = Hex(t.amf);
    Zaka_RjdlKeySchedule(Hex(kSets[0].k).data());
    uint8_t before[16], after[16];
    Zaka_ComputeOpC(before);
    uint8_t out[4][16];
    const auto untouched = [&out] {
        for (const auto &o : out) {
            for (uint8_t b : o) {
                if (b != 0xA5) return false;
            }
        }
        return true;
    };
    std::memset(out, 0xA5, sizeof(out));
    for (int hole = 0; hole < 5; ++hole) {
        const uint8_t *a[4] = {k.data(), rand.data(), sqn.data(), amf.data()};
        uint8_t *mac = out[0];
        if (hole < 4) {
            a[hole] = nullptr;
        } else {
            mac = nullptr;
        }
        Zaka_F1(a[0], a[1], a[2], a[3], mac);
        Zaka_F1star(a[0], a[1], a[2], a[3], mac);
        EXPECT_TRUE(untouched()) << "f1, hole " << hole;
    }
    for (int hole = 0; hole < 6; ++hole) {
        const uint8_t *a[2] = {k.data(), rand.data()};
        uint8_t *o[4] = {out[0], out[1], out[2], out[3]};
        if (hole < 2) {
            a[hole] = nullptr;
        } else {
            o[hole - 2] = nullptr;
        }
        Zaka_F2345(a[0], a[1], o[0], o[1], o[2], o[3]);
        EXPECT_TRUE(untouched()) << "f2345, hole " << hole;
        if (hole < 3) {
            Zaka_F5star(hole == 0 ? nullptr : k.data(), hole == 1 ? nullptr : rand.data(),
                        hole == 2 ? nullptr : out[0]);
            EXPECT_TRUE(untouched()) << "f5*, hole " << hole;
        }
    }
    uint8_t state[4][4] = {};
    Zaka_RjdlKeySchedule(nullptr);
    Zaka_RjdlEncrypt(nullptr, out[0]);
    Zaka_RjdlEncrypt(k.data(), nullptr);
    Zaka_KeyAdd(nullptr, m_aaaucZakaRK, 1);
    Zaka_KeyAdd(state, nullptr, 1);
    Zaka_KeyAdd(state, m_aaaucZakaRK, -1);
    Zaka_ByteSub(nullptr);
    Zaka_ShiftRow(nullptr);
    Zaka_MixColumn(nullptr);
    EXPECT_EQ(Zaka_ComputeOpC(nullptr), 0u);
    EXPECT_TRUE(untouched());
    EXPECT_EQ(ToHex(&state[0][0], 16), std::string(32, '0'));
    Zaka_ComputeOpC(after);
    EXPECT_EQ(ToHex(after, 16), ToHex(before, 16)) << "a refused call scheduled a key";
}

// Column-wise bytes <-> state [row][column].
void Load(const std::string &hex, uint8_t s[4][4]) {
    const auto b = Hex(hex);
    for (int i = 0; i < 16; ++i) s[i & 3][i >> 2] = b[i];
}
std::string Store(uint8_t s[4][4]) {
    uint8_t b[16];
    for (int i = 0; i < 16; ++i) b[i] = s[i & 3][i >> 2];
    return ToHex(b, 16);
}

TEST(Zaka, Fips197RoundSteps) {
    uint8_t s[4][4];
    Zaka_RjdlKeySchedule(Hex("000102030405060708090a0b0c0d0e0f").data());
    // Round 0 adds the cipher key itself; round 10 the last round key.
    Load("00000000000000000000000000000000", s);
    Zaka_KeyAdd(s, m_aaaucZakaRK, 10);
    EXPECT_EQ(Store(s), "13111d7fe3944a17f307a78b4d2b30c5");
    Load("00112233445566778899aabbccddeeff", s);
    Zaka_KeyAdd(s, m_aaaucZakaRK, 0);
    EXPECT_EQ(Store(s), "00102030405060708090a0b0c0d0e0f0");
    Zaka_ByteSub(s);
    EXPECT_EQ(Store(s), "63cab7040953d051cd60e0e7ba70e18c");
    Zaka_ShiftRow(s);
    EXPECT_EQ(Store(s), "6353e08c0960e104cd70b751bacad0e7");
    Zaka_MixColumn(s);
    EXPECT_EQ(Store(s), "5f72641557f5bc92f7be3b291db9f91a");
    Zaka_KeyAdd(s, m_aaaucZakaRK, 1);
    EXPECT_EQ(Store(s), "89d810e8855ace682d1843d8cb128fe4");
    Zaka_KeyAdd(s, m_aaaucZakaRK, 11);  // out of range: ignored
    EXPECT_EQ(Store(s), "89d810e8855ace682d1843d8cb128fe4");
}

TEST(Zaka, ComputedSboxMatchesTables) {
    EXPECT_EQ(m_aucZakaS[0x00], 0x63);
    EXPECT_EQ(m_aucZakaS[0x53], 0xED);
    EXPECT_EQ(m_aucZakaXtime[0x57], 0xAE);
    EXPECT_EQ(m_aucZakaXtime[0xAE], 0x47);
    EXPECT_EQ(m_aucZakaXtime[0x8E], 0x07);
    // The computed S-box agrees with the table for every byte value.
    for (int base = 0; base < 256; base += 16) {
        uint8_t s[4][4];
        for (int i = 0; i < 16; ++i) s[i & 3][i >> 2] = static_cast<uint8_t>(base + i);
        Zaka_ByteSub(s);
        for (int i = 0; i < 16; ++i) ASSERT_EQ(s[i & 3][i >> 2], m_aucZakaS[base + i]) << base + i;
    }
}

}  // namespace
