// SHA-1: the FIPS 180 / RFC 3174 messages and the result codes.
#include <gtest/gtest.h>

#include <string>

#include "codec_test.h"
#include "kestro_lite.h"

namespace {

// Digest of `text` fed `repeat` times in pieces of `chunk` bytes.
std::string Sha1(const std::string &text, uint32_t repeat = 1, uint32_t chunk = 0) {
    Zsha1Ctx ctx;
    EXPECT_EQ(Zsha1_Reset(&ctx), ZSHA1_SUCCESS);
    std::string all;
    for (uint32_t i = 0; i < repeat; ++i) all += text;
    const auto *p = reinterpret_cast<const uint8_t *>(all.data());
    const uint32_t n = static_cast<uint32_t>(all.size());
    const uint32_t step = chunk == 0 ? n : chunk;
    for (uint32_t i = 0; i < n; i += step) {
        EXPECT_EQ(Zsha1_Input(&ctx, p + i, std::min(step, n - i)), ZSHA1_SUCCESS);
    }
    uint8_t d[20];
    EXPECT_EQ(Zsha1_Result(&ctx, d), ZSHA1_SUCCESS);
    return ctest::ToHex(d, 20);
}

TEST(Zsha1, Fips180Messages) {
    EXPECT_EQ(Sha1("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
    const std::string m448 = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
    EXPECT_EQ(Sha1(m448), "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
    EXPECT_EQ(Sha1(m448, 1, 1), "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
    EXPECT_EQ(Sha1(""), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
    const std::string m512 = "0123456701234567012345670123456701234567012345670123456701234567";
    EXPECT_EQ(Sha1(m512, 10), "dea356a2cddd90c7a7ecedc5ebb563934f460452");
    EXPECT_EQ(Sha1(m512, 10, 7), "dea356a2cddd90c7a7ecedc5ebb563934f460452");
    const char *million = "34aa973cd4c4daa4f61eeb2bdbad27316534016f";
    EXPECT_EQ(Sha1(std::string(1000000, 'a')), million);
    EXPECT_EQ(Sha1("a", 1000000, 1000), million);
    EXPECT_EQ(Sha1(std::string(1000, 'a'), 1000, 77), million);
}

TEST(Zsha1, ResultCodes) {
    Zsha1Ctx ctx;
    uint8_t d[20], again[20];
    const uint8_t abc[] = {'a', 'b', 'c'};
    EXPECT_EQ(Zsha1_Reset(nullptr), ZSHA1_NULL);
    ASSERT_EQ(Zsha1_Reset(&ctx), ZSHA1_SUCCESS);
    EXPECT_EQ(Zsha1_Input(nullptr, nullptr, 0), ZSHA1_SUCCESS);
    EXPECT_EQ(Zsha1_Input(nullptr, abc, 3), ZSHA1_NULL);
    EXPECT_EQ(Zsha1_Input(&ctx, nullptr, 3), ZSHA1_NULL);
    EXPECT_EQ(Zsha1_Result(&ctx, nullptr), ZSHA1_NULL);
    EXPECT_EQ(Zsha1_Input(&ctx, abc, 3), ZSHA1_SUCCESS);
    ASSERT_EQ(Zsha1_Result(&ctx, d), ZSHA1_SUCCESS);
    // A second result without new input repeats the digest.
    ASSERT_EQ(Zsha1_Result(&ctx, again), ZSHA1_SUCCESS);
    EXPECT_EQ(ctest::ToHex(again, 20), ctest::ToHex(d, 20));
    EXPECT_EQ(ctest::ToHex(d, 20), "a9993e364706816aba3e25717850c26c9cd0d89d");
    // Input after the result corrupts the context for good.
    EXPECT_EQ(Zsha1_Input(&ctx, abc, 3), ZSHA1_STATE_ERR);
    EXPECT_EQ(Zsha1_Result(&ctx, again), ZSHA1_STATE_ERR);
    EXPECT_EQ(Zsha1_Input(&ctx, abc, 3), ZSHA1_STATE_ERR);
    EXPECT_EQ(Zsha1_Result(&ctx, again), ZSHA1_STATE_ERR);
    // Reset makes it usable again.
    ASSERT_EQ(Zsha1_Reset(&ctx), ZSHA1_SUCCESS);
    EXPECT_EQ(ctx.iCorrupted, 0);
    EXPECT_EQ(ctx.iComputed, 0);
}

TEST(Zsha1, LengthOverflowCorrupts) {
    Zsha1Ctx ctx;
    ASSERT_EQ(Zsha1_Reset(&ctx), ZSHA1_SUCCESS);
    // Pretend 2^64 - 16 bits were already hashed: two more bytes wrap.
    ctx.uiLenHigh = 0xFFFFFFFFu;
    ctx.uiLenLow = 0xFFFFFFF0u;
    const uint8_t one = 'x';
    EXPECT_EQ(Zsha1_Input(&ctx, &one, 1), ZSHA1_SUCCESS);
    EXPECT_EQ(ctx.iCorrupted, 0);
    EXPECT_EQ(Zsha1_Input(&ctx, &one, 1), ZSHA1_SUCCESS);
    EXPECT_EQ(ctx.iCorrupted, static_cast<int32_t>(ZSHA1_NULL));
    EXPECT_EQ(Zsha1_Input(&ctx, &one, 1), ZSHA1_NULL);
    uint8_t d[20];
    EXPECT_EQ(Zsha1_Result(&ctx, d), ZSHA1_NULL);
}

}  // namespace
