// DES: the FIPS 81 ECB example, the key schedules, and the padded data
// format with its length byte and size rules.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "codec_test.h"
#include "kestro_lite.h"
#include "zos_test.h"

namespace {

const std::vector<uint8_t> kKey = ctest::Hex("0123456789ABCDEF");
const uint8_t kPad[7] = {0x3E, 0x2E, 0x1E, 0x0E, 0x5A, 0x5A, 0x5A};

TEST(Zdes, Fips81EcbExample) {
    ZDES_KS enc, dec;
    Zdes_MakeEncKey(enc, kKey.data());
    Zdes_MakeDecKey(enc, dec);
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(dec[i][0], enc[15 - i][0]);
        EXPECT_EQ(dec[i][1], enc[15 - i][1]);
    }
    const char *plain[] = {"Now is t", "he time ", "for all "};
    const char *cipher[] = {"3fa40e8a984d4815", "6a271787ab8883f9", "893d51ec4b563b53"};
    for (int i = 0; i < 3; ++i) {
        uint8_t out[8], back[8];
        EXPECT_EQ(Zdes_Enc64Bits(enc, reinterpret_cast<const uint8_t *>(plain[i]), out), ZOK);
        EXPECT_EQ(ctest::ToHex(out, 8), cipher[i]);
        EXPECT_EQ(Zdes_Dec64Bits(dec, out, back), ZOK);
        EXPECT_EQ(std::memcmp(back, plain[i], 8), 0);
    }
    // Parity bits do not matter.
    ZDES_KS other;
    const std::vector<uint8_t> flipped = ctest::Hex("0022446688AACCEE");
    Zdes_MakeEncKey(other, flipped.data());
    EXPECT_EQ(std::memcmp(other, enc, sizeof(enc)), 0);
}

// Rivest's DES test (1985): sixteen steps from 9474B8E8C73BCA7D, each
// enciphering (even steps) or deciphering (odd steps) the last result under
// itself as the key, end at 1B1A2DDB4C642438. The chain reaches far more
// S-box entries and key schedules than the three blocks above.
TEST(Zdes, RivestChain) {
    std::vector<uint8_t> x = ctest::Hex("9474B8E8C73BCA7D");
    for (int i = 0; i < 16; ++i) {
        ZDES_KS enc, dec;
        uint8_t out[8];
        Zdes_MakeEncKey(enc, x.data());
        Zdes_MakeDecKey(enc, dec);
        ASSERT_EQ(
            i % 2 == 0 ? Zdes_Enc64Bits(enc, x.data(), out) : Zdes_Dec64Bits(dec, x.data(), out),
            ZOK);
        x.assign(out, out + 8);
    }
    EXPECT_EQ(ctest::ToHex(x.data(), 8), "1b1a2ddb4c642438");
}

TEST(Zdes, BitHelpers) {
    uint8_t bytes[2] = {0x80, 0x01};
    EXPECT_EQ(Zdes_GetBit(bytes, 0), 1u);
    EXPECT_EQ(Zdes_GetBit(bytes, 1), 0u);
    EXPECT_EQ(Zdes_GetBit(bytes, 15), 1u);
    Zdes_SetBit(bytes, 0, 0);
    Zdes_SetBit(bytes, 9, 1);
    EXPECT_EQ(bytes[0], 0x00);
    EXPECT_EQ(bytes[1], 0x41);
    EXPECT_EQ(Zdes_LShift28(0x8000001u, 1), 0x0000003u);
    EXPECT_EQ(Zdes_LShift28(0xC000000u, 2), 0x0000003u);
    EXPECT_EQ(Zdes_LShift28(0x1234567u, 28), 0x1234567u);
}

class ZdesData : public ZosTest {
  protected:
    // Decrypts block by block to see the plain layout.
    std::vector<uint8_t> RawDecrypt(const std::vector<uint8_t> &c) {
        ZDES_KS enc, dec;
        Zdes_MakeEncKey(enc, kKey.data());
        Zdes_MakeDecKey(enc, dec);
        std::vector<uint8_t> p(c.size());
        for (size_t i = 0; i < c.size(); i += 8) Zdes_Dec64Bits(dec, &c[i], &p[i]);
        return p;
    }
    std::vector<uint8_t> Encrypt(const std::vector<uint8_t> &data) {
        std::vector<uint8_t> out(data.size() + 16);
        uint32_t size = static_cast<uint32_t>(out.size());
        EXPECT_EQ(Zdes_EncData(kKey.data(), data.data(), static_cast<uint32_t>(data.size()),
                               out.data(), &size),
                  ZOK);
        out.resize(size);
        return out;
    }
};

TEST_F(ZdesData, LengthBytePaddingAndRoundTrip) {
    for (uint32_t n = 1; n <= 17; ++n) {
        std::vector<uint8_t> data(n);
        for (uint32_t i = 0; i < n; ++i) data[i] = static_cast<uint8_t>(0xA0 + i);
        const auto c = Encrypt(data);
        ASSERT_EQ(c.size(), (n + 1 + 7) / 8 * 8) << n;
        const auto p = RawDecrypt(c);
        EXPECT_EQ(p[0], n);
        EXPECT_EQ(std::memcmp(&p[1], data.data(), n), 0);
        EXPECT_EQ(std::memcmp(&p[1 + n], kPad, p.size() - 1 - n), 0) << n;
        std::vector<uint8_t> back(n);
        uint32_t size = n;
        ASSERT_EQ(Zdes_DecData(kKey.data(), c.data(), static_cast<uint32_t>(c.size()), back.data(),
                               &size),
                  ZOK);
        EXPECT_EQ(size, n);
        EXPECT_EQ(back, data);
    }
    // Eight bytes need a second block that ends with the whole pattern.
    const auto p8 = RawDecrypt(Encrypt(std::vector<uint8_t>(8, 0x11)));
    ASSERT_EQ(p8.size(), 16u);
    EXPECT_EQ(std::memcmp(&p8[9], kPad, 7), 0);
}

TEST_F(ZdesData, LongDataKeepsOnlyTheLowLengthByte) {
    std::vector<uint8_t> data(300);
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i);
    const auto c = Encrypt(data);
    ASSERT_EQ(c.size(), 304u);
    EXPECT_EQ(RawDecrypt(c)[0], 44);
    std::vector<uint8_t> back(300);
    uint32_t size = 300;
    ASSERT_EQ(Zdes_DecData(kKey.data(), c.data(), 304, back.data(), &size), ZOK);
    EXPECT_EQ(size, 44u);
    EXPECT_EQ(std::memcmp(back.data(), data.data(), 44), 0);
}

TEST_F(ZdesData, RejectedArgumentsAndSizes) {
    const uint8_t data[16] = {1, 2, 3};
    uint8_t out[32];
    uint32_t size = sizeof(out);
    EXPECT_EQ(Zdes_EncData(nullptr, data, 3, out, &size), ZFAILED);
    EXPECT_EQ(Zdes_EncData(kKey.data(), nullptr, 3, out, &size), ZFAILED);
    EXPECT_EQ(Zdes_EncData(kKey.data(), data, 0, out, &size), ZFAILED);
    EXPECT_EQ(Zdes_EncData(kKey.data(), data, 3, nullptr, &size), ZFAILED);
    EXPECT_EQ(Zdes_EncData(kKey.data(), data, 3, out, nullptr), ZFAILED);
    size = 0;
    EXPECT_EQ(Zdes_EncData(kKey.data(), data, 3, out, &size), ZFAILED);
    size = 15;  // 8 data bytes pad to 16
    EXPECT_EQ(Zdes_EncData(kKey.data(), data, 8, out, &size), ZFAILED);
    EXPECT_EQ(size, 15u);

    size = sizeof(out);
    EXPECT_EQ(Zdes_DecData(kKey.data(), data, 12, out, &size), ZFAILED);
    EXPECT_EQ(Zdes_DecData(kKey.data(), data, 0, out, &size), ZFAILED);
    EXPECT_EQ(Zdes_DecData(kKey.data(), data, 8, out, nullptr), ZFAILED);
    // A length byte not below the input length, or above the capacity.
    ZDES_KS enc;
    Zdes_MakeEncKey(enc, kKey.data());
    uint8_t plain[8] = {8, 1, 2, 3, 4, 5, 6, 7}, cipher[8];
    Zdes_Enc64Bits(enc, plain, cipher);
    EXPECT_EQ(Zdes_DecData(kKey.data(), cipher, 8, out, &size), ZFAILED);
    plain[0] = 7;
    Zdes_Enc64Bits(enc, plain, cipher);
    size = 6;
    EXPECT_EQ(Zdes_DecData(kKey.data(), cipher, 8, out, &size), ZFAILED);
    size = 7;
    EXPECT_EQ(Zdes_DecData(kKey.data(), cipher, 8, out, &size), ZOK);
    EXPECT_EQ(std::memcmp(out, plain + 1, 7), 0);
}

TEST_F(ZdesData, WorkBuffersGoBack) {
    const uint8_t data[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    uint8_t out[16], back[16];
    uint32_t size = sizeof(out), len = sizeof(back);
    {
        // Only this thread's blocks count: the layer's threads may
        // allocate meanwhile.
        const ktest::CountThisThread only;
        const ktest::FailingHeap heap;
        ASSERT_EQ(Zdes_EncData(kKey.data(), data, sizeof(data), out, &size), ZOK);
        ASSERT_EQ(Zdes_DecData(kKey.data(), out, size, back, &len), ZOK);
        EXPECT_EQ(ktest::g_calls, 2);
        EXPECT_EQ(ktest::g_live, 0) << "blocks kept";
    }
    EXPECT_EQ(std::memcmp(back, data, sizeof(data)), 0);
}

TEST_F(ZdesData, WorkBufferAllocationFailure) {
    uint8_t out[16];
    uint32_t size = sizeof(out);
    const uint8_t data[8] = {};
    uint32_t enc, dec;
    {
        const ktest::RefusingHeap heap;
        enc = Zdes_EncData(kKey.data(), data, 3, out, &size);
        dec = Zdes_DecData(kKey.data(), data, 8, out, &size);
    }
    EXPECT_EQ(enc, ZFAILED);
    EXPECT_EQ(dec, ZFAILED);
    EXPECT_EQ(size, sizeof(out));
}

}  // namespace
