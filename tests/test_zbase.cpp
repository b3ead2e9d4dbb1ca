// Base64, Base32 and Base16: the RFC 4648 vectors and the library's own
// rules (mixed alphabets, the Base32 three-byte tail, upper-case hex).
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "codec_test.h"
#include "kestro_lite.h"

namespace {

using Encoder = uint32_t (*)(const uint8_t *, uint32_t, char *, uint32_t *);
using Decoder = uint32_t (*)(const char *, uint32_t, uint8_t *, uint32_t *);

uint32_t B64Std(const uint8_t *d, uint32_t n, char *o, uint32_t *s) {
    return Zbase64_Encode(d, n, 0, o, s);
}
uint32_t B64Url(const uint8_t *d, uint32_t n, char *o, uint32_t *s) {
    return Zbase64_Encode(d, n, 1, o, s);
}

// Encodes into a buffer with a guard byte behind the reported length.
std::string Enc(Encoder enc, const std::vector<uint8_t> &in) {
    uint32_t need = 0;
    if (enc(in.data(), static_cast<uint32_t>(in.size()), nullptr, &need) != ZOK) return "<fail>";
    std::string out(need + 1, '#');
    uint32_t size = need;
    if (enc(in.data(), static_cast<uint32_t>(in.size()), out.data(), &size) != ZOK) return "<fail>";
    EXPECT_EQ(size, need);
    EXPECT_EQ(out[need], '#') << "wrote past the text";
    out.resize(need);
    return out;
}

// Decodes with exactly the capacity the text needs; "<fail>" on failure.
std::string Dec(Decoder dec, const std::string &text, uint32_t capacity = 4096) {
    std::vector<uint8_t> out(capacity + 1, 0xA5);
    uint32_t size = capacity;
    if (dec(text.data(), static_cast<uint32_t>(text.size()), out.data(), &size) != ZOK) {
        return "<fail>";
    }
    EXPECT_EQ(out[size], 0xA5) << "wrote past the output";
    return std::string(out.begin(), out.begin() + size);
}

struct Rfc4648 {
    const char *in, *b64, *b32, *b16;
};

const Rfc4648 kRfc[] = {
    {"f", "Zg==", "MY======", "66"},
    {"fo", "Zm8=", "MZXQ====", "666F"},
    {"foob", "Zm9vYg==", "MZXW6YQ=", "666F6F62"},
    {"fooba", "Zm9vYmE=", "MZXW6YTB", "666F6F6261"},
    {"foobar", "Zm9vYmFy", "MZXW6YTBOI======", "666F6F626172"},
};

TEST(Zbase, Rfc4648VectorsBothWays) {
    for (const Rfc4648 &v : kRfc) {
        const auto in = ctest::Bytes(v.in);
        EXPECT_EQ(Enc(B64Std, in), v.b64) << v.in;
        EXPECT_EQ(Enc(Zbase32_Encode, in), v.b32) << v.in;
        EXPECT_EQ(Enc(Zbase16_Encode, in), v.b16) << v.in;
        EXPECT_EQ(Dec(Zbase64_Decode, v.b64), v.in);
        EXPECT_EQ(Dec(Zbase16_Decode, v.b16), v.in);
        // Base32 output is always len / 8 x 5 bytes, padding included.
        EXPECT_EQ(Dec(Zbase32_Decode, v.b32).substr(0, in.size()), v.in);
    }
    EXPECT_EQ(Enc(B64Std, ctest::Hex("14fb9c03d97e")), "FPucA9l+");
    EXPECT_EQ(Enc(B64Std, ctest::Hex("14fb9c03d9")), "FPucA9k=");
    EXPECT_EQ(Enc(B64Std, ctest::Hex("14fb9c03")), "FPucAw==");
    EXPECT_EQ(Enc(B64Url, ctest::Hex("03ecffe0c1")), "A-z_4ME=");
    EXPECT_EQ(Enc(B64Std, ctest::Hex("03ecffe0c1")), "A+z/4ME=");
}

TEST(Zbase, Base64AlphabetsAndPadding) {
    EXPECT_EQ(Enc(B64Std, {0xFB, 0xFF}), "+/8=");
    EXPECT_EQ(Enc(B64Url, {0xFB, 0xFF}), "-_8=");
    EXPECT_EQ(Dec(Zbase64_Decode, "-_8="), "\xFB\xFF");
    // Quads of one alphabet then the other fail, in either order; one quad
    // holding both passes, and a plain quad in between changes nothing.
    EXPECT_EQ(Dec(Zbase64_Decode, "-AAA+AAA"), "<fail>");
    EXPECT_EQ(Dec(Zbase64_Decode, "/AAAAAAA_AAA"), "<fail>");
    EXPECT_EQ(Dec(Zbase64_Decode, "+-AA").size(), 3u);
    EXPECT_EQ(Dec(Zbase64_Decode, "++AA//AA").size(), 6u);
    // The same rules deep inside a long text.
    std::string text(96, 'A');
    text[41] = '+';
    EXPECT_EQ(Dec(Zbase64_Decode, text).size(), 72u);
    text[77] = '-';
    EXPECT_EQ(Dec(Zbase64_Decode, text), "<fail>");
    text[77] = 'A';
    text[50] = '*';
    EXPECT_EQ(Dec(Zbase64_Decode, text), "<fail>");
    // "=" inside the text is a zero sextet; only the end shortens.
    EXPECT_EQ(Dec(Zbase64_Decode, "Zg==Zg=="), std::string("f\0\0f", 4));
    EXPECT_EQ(Dec(Zbase64_Decode, "===="), std::string(1, '\0'));
    // A null output reports the undiminished length.
    uint32_t size = 0;
    EXPECT_EQ(Zbase64_Decode("Zg==", 4, nullptr, &size), ZOK);
    EXPECT_EQ(size, 3u);
    // Every length from 1 to 64 survives a round trip in both alphabets.
    std::vector<uint8_t> data;
    for (uint32_t n = 1; n <= 64; ++n) {
        data.push_back(static_cast<uint8_t>(n * 37 + 11));
        const std::string back(data.begin(), data.end());
        EXPECT_EQ(Dec(Zbase64_Decode, Enc(B64Std, data)), back);
        EXPECT_EQ(Dec(Zbase64_Decode, Enc(B64Url, data)), back);
    }
}

TEST(Zbase, Base32TailAndAlphabet) {
    // Three remaining bytes: four characters, three "=", eighth left alone.
    char out[9] = "########";
    uint32_t size = 8;
    ASSERT_EQ(Zbase32_Encode(reinterpret_cast<const uint8_t *>("foo"), 3, out, &size), ZOK);
    EXPECT_EQ(size, 8u);
    EXPECT_STREQ(out, "MZXW===#");
    EXPECT_EQ(Enc(Zbase32_Encode, ctest::Bytes("foobarba")).substr(8), "OJRG===#");
    // Padding does not shorten the output.
    EXPECT_EQ(Dec(Zbase32_Decode, "MY======"), std::string("f\0\0\0\0", 5));
    EXPECT_EQ(Dec(Zbase32_Decode, "MZXW6==="), std::string("foo\0\0", 5));
    for (const char *bad : {"mzxw6===", "MZXW1===", "MZXW8===", "MZXW6== ", "MZXW6==", ""}) {
        EXPECT_EQ(Dec(Zbase32_Decode, bad), "<fail>") << bad;
    }
}

TEST(Zbase, Base16UpperCaseOnly) {
    EXPECT_EQ(Dec(Zbase16_Decode, "0A"), "\x0A");
    EXPECT_EQ(Enc(Zbase16_Encode, {0xAB, 0xCD, 0xEF, 0x00}), "ABCDEF00");
    for (const char *bad : {"0a", "0G", "ABC", "", "0:", "G0"}) {
        EXPECT_EQ(Dec(Zbase16_Decode, bad), "<fail>") << bad;
    }
}

TEST(Zbase, ArgumentAndCapacityErrors) {
    const uint8_t data[5] = {1, 2, 3, 4, 5};
    char text[16];
    uint8_t bin[16];
    uint32_t size = sizeof(text);
    const Encoder encoders[] = {B64Std, Zbase32_Encode, Zbase16_Encode};
    const uint32_t needs[] = {8, 8, 10};
    for (int i = 0; i < 3; ++i) {
        size = 16;
        EXPECT_EQ(encoders[i](nullptr, 5, text, &size), ZFAILED);
        EXPECT_EQ(encoders[i](data, 0, text, &size), ZFAILED);
        EXPECT_EQ(encoders[i](data, 5, text, nullptr), ZFAILED);
        size = needs[i] - 1;
        EXPECT_EQ(encoders[i](data, 5, text, &size), ZFAILED);
        size = needs[i];
        EXPECT_EQ(encoders[i](data, 5, text, &size), ZOK);
    }
    // Base64: bad length, bad characters, capacity one short of the data.
    for (const char *bad : {"Zg=", "Zg==Z", "Zg*=", "Z g=", "Zm9\x80"}) {
        size = 16;
        EXPECT_EQ(Zbase64_Decode(bad, static_cast<uint32_t>(strlen(bad)), bin, &size), ZFAILED);
    }
    EXPECT_EQ(Dec(Zbase64_Decode, std::string("Zm\0v", 4)), "<fail>");
    EXPECT_EQ(Dec(Zbase64_Decode, "Zm9vYg==", 3), "<fail>");
    EXPECT_EQ(Dec(Zbase64_Decode, "Zm9vYg==", 4), "foob");
    EXPECT_EQ(Dec(Zbase32_Decode, "MZXW6===", 4), "<fail>");
    EXPECT_EQ(Dec(Zbase16_Decode, "666F", 1), "<fail>");
    EXPECT_EQ(Zbase64_Decode(nullptr, 4, bin, &size), ZFAILED);
    EXPECT_EQ(Zbase32_Decode("MZXW6===", 8, bin, nullptr), ZFAILED);
}

}  // namespace
