// MD5: the RFC 1321 suite, streaming, the text forms and their size rule.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "codec_test.h"
#include "kestro_lite.h"

namespace {

std::string Md5(const std::string &s) {
    uint8_t d[16];
    Zmd5_Str(reinterpret_cast<const uint8_t *>(s.data()), static_cast<uint32_t>(s.size()), d);
    return ctest::ToHex(d, 16);
}

TEST(Zmd5, Rfc1321Suite) {
    EXPECT_EQ(Md5(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(Md5("a"), "0cc175b9c0f1b6a831c399e269772661");
    EXPECT_EQ(Md5("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(Md5("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(Md5("abcdefghijklmnopqrstuvwxyz"), "c3fcd3d76192e4007dfb496cca67e13b");
    EXPECT_EQ(Md5("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
              "d174ab98d277d9f5a5611c2c9f419d9f");
    std::string eighty;
    for (int i = 0; i < 8; ++i) eighty += "1234567890";
    EXPECT_EQ(Md5(eighty), "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(Zmd5, StreamingMatchesOneCallAndFinalClears) {
    std::string data(1000, '\0');
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 7 + 3);
    const auto *p = reinterpret_cast<const uint8_t *>(data.data());
    for (uint32_t chunk : {1u, 3u, 63u, 64u, 65u, 200u}) {
        Zmd5Ctx ctx;
        Zmd5_Init(&ctx);
        for (uint32_t i = 0; i < data.size(); i += chunk) {
            Zmd5_Update(&ctx, p + i, std::min<uint32_t>(chunk, data.size() - i));
        }
        uint8_t d[16];
        Zmd5_Final(d, &ctx);
        EXPECT_EQ(ctest::ToHex(d, 16), Md5(data)) << chunk;
        const Zmd5Ctx zero{};
        EXPECT_EQ(std::memcmp(&ctx, &zero, sizeof(ctx)), 0) << "context not cleared";
    }
    // Two buffers are one message; a null part leaves the digest alone.
    uint8_t d[16];
    Zmd5_Str2(p, 10, p + 10, 990, d);
    EXPECT_EQ(ctest::ToHex(d, 16), Md5(data));
    std::memset(d, 0x5A, sizeof(d));
    Zmd5_Str2(nullptr, 0, p, 3, d);
    Zmd5_Str2(p, 3, nullptr, 0, d);
    EXPECT_EQ(ctest::ToHex(d, 16), "5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a");
}

TEST(Zmd5, BlockFunctionAndWordConversion) {
    // The empty message is one padding block through the transform.
    uint8_t block[64] = {0x80};
    uint32_t state[4] = {0x67452301u, 0xefcdab89u, 0x98badcfeu, 0x10325476u};
    Zmd5_Transform(state, block);
    uint8_t d[16];
    Zmd5_Encode(d, state, 16);
    EXPECT_EQ(ctest::ToHex(d, 16), "d41d8cd98f00b204e9800998ecf8427e");
    uint32_t words[4];
    Zmd5_Decode(words, d, 16);
    EXPECT_EQ(std::memcmp(words, state, sizeof(words)), 0);
    EXPECT_EQ(words[0], 0xd98c1dd4u);
    // A missing state, block or buffer is refused, and nothing is written.
    Zmd5_Transform(nullptr, block);
    Zmd5_Transform(state, nullptr);
    Zmd5_Encode(nullptr, state, 16);
    Zmd5_Encode(d, nullptr, 16);
    Zmd5_Decode(nullptr, d, 16);
    Zmd5_Decode(words, nullptr, 16);
    Zmd5_Encode(d, state, 16);
    EXPECT_EQ(ctest::ToHex(d, 16), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(std::memcmp(words, state, sizeof(words)), 0);
}

TEST(Zmd5, TextFormsAndSizeRule) {
    const auto *abc = reinterpret_cast<const uint8_t *>("abc");
    char out[128];
    ASSERT_EQ(Zmd5_StrXr(abc, 3, 1, ":", out, sizeof(out)), out);
    EXPECT_EQ(std::string(out).substr(0, 14), "0x90:0x01:0x50");
    EXPECT_EQ(std::strlen(out), 16 * 4 + 15u);
    EXPECT_STREQ(out + std::strlen(out) - 4, "0x72");
    ASSERT_EQ(Zmd5_StrXr(abc, 3, 0, "", out, 33), out);
    EXPECT_STREQ(out, "900150983CD24FB0D6963F7D28E17F72");
    // 15 x separator + 64 (prefix) or + 32 must stay below the size.
    std::memset(out, '#', sizeof(out));
    EXPECT_EQ(Zmd5_StrXr(abc, 3, 1, ":", out, 64), nullptr);
    EXPECT_EQ(Zmd5_StrXr(abc, 3, 1, ":", out, 79), nullptr);
    EXPECT_EQ(Zmd5_StrXr(abc, 3, 0, "", out, 32), nullptr);
    EXPECT_EQ(Zmd5_StrXr(abc, 3, 0, "--", out, 62), nullptr);
    EXPECT_EQ(out[0], '#') << "a refused call wrote";
    EXPECT_EQ(Zmd5_StrXr(abc, 3, 1, ":", out, 80), out);
    EXPECT_EQ(Zmd5_StrXr(abc, 3, 1, ":", nullptr, 128), nullptr);
    // The shared-buffer form gives the same text.
    const char *shared = Zmd5_StrX(abc, 3, 1, ":");
    ASSERT_NE(shared, nullptr);
    EXPECT_STREQ(shared, out);
    EXPECT_EQ(Zmd5_StrX(abc, 3, 1, "123456789"), nullptr);  // 15 x 9 + 64 >= 128
}

TEST(Zmd5Padding, IsOneBitThenZeros) {
    EXPECT_EQ(aucZmd5Padding[0], 0x80);
    for (uint32_t i = 1; i < 64; ++i) EXPECT_EQ(aucZmd5Padding[i], 0) << i;
    // 55 bytes take one padding byte, 56 the whole table in a further block.
    EXPECT_EQ(Md5(std::string(55, 'a')), "ef1772b6dff9a122358552954ad0df65");
    EXPECT_EQ(Md5(std::string(56, 'a')), "3b0c8ac703f828b04c6c197006d17218");
}

}  // namespace
