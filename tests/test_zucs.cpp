// UTF-8 <-> BMP conversions, the strict decoder, UTF-16 output and pinyin.
#include <cstring>
#include <string>
#include <vector>

#include "zos_test.h"

namespace {

using Units = std::vector<uint16_t>;

Units ToBmp(const std::string &s, uint32_t room = 64) {
    Units out(room, 0xEEEE);
    const uint32_t n = Zucs_Utf8ToBmp(out.data(), room, s.data(), static_cast<uint32_t>(s.size()));
    EXPECT_EQ(out[n], 0) << "always NUL-terminated";
    out.resize(n);
    return out;
}

std::vector<int32_t> Decode(const std::string &s) {
    ST_UTF8_DECODE st;
    utf8_decode_init(&st, s.data(), static_cast<int32_t>(s.size()));
    std::vector<int32_t> out;
    for (int32_t c = utf8_decode_next(&st); c != UTF8_END; c = utf8_decode_next(&st)) {
        out.push_back(c);
        if (c == UTF8_ERROR) break;
    }
    return out;
}

std::string Pinyin(const Units &u, uint32_t size = 64, const char *sep = ",") {
    std::string out(size, '\x7F');
    Units z = u;
    z.push_back(0);
    EXPECT_EQ(Zucs_BmpToPinyin(z.data(), 0xFFFFFFFFu, out.data(), size, sep), ZOK);
    return out.substr(0, std::strlen(out.c_str()));
}

}  // namespace

class ZucsTest : public ZosTest {};

TEST_F(ZucsTest, Rfc3629ExamplesRoundTrip) {
    const struct {
        const char *utf8;
        Units units;
    } cases[] = {
        {"\x41\xE2\x89\xA2\xCE\x91\x2E", {0x0041, 0x2262, 0x0391, 0x002E}},
        {"\xED\x95\x9C\xEA\xB5\xAD\xEC\x96\xB4", {0xD55C, 0xAD6D, 0xC5B4}},
        {"\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E", {0x65E5, 0x672C, 0x8A9E}},
        {"\x4D\xD0\xB0\xE4\xBA\x8C", {0x004D, 0x0430, 0x4E8C}},
    };
    for (const auto &c : cases) {
        const std::string s = c.utf8;
        EXPECT_EQ(ToBmp(s), c.units) << s;
        EXPECT_EQ(Zucs_Utf8StrLen(s.data(), static_cast<uint32_t>(s.size())), c.units.size());
        Units z = c.units;
        z.push_back(0);
        EXPECT_EQ(Zucs_BmpStrLen(z.data()), c.units.size());
        EXPECT_EQ(Zucs_Utf8Size(z.data(), 100), s.size());
        char out[32];
        EXPECT_EQ(Zucs_BmpToUtf8(out, sizeof(out), z.data(), 100), s.size());
        EXPECT_EQ(std::string(out), s);
        EXPECT_EQ(Zucs_BmpToUtf8(nullptr, 0, z.data(), 100), s.size()) << "null out only counts";
    }
}

TEST_F(ZucsTest, ConversionsStopAtLimits) {
    // A four-byte sequence ends the text like an invalid one (BOM, U+233B4).
    const std::string bom = "\xEF\xBB\xBF\xF0\xA3\x8E\xB4Z";
    EXPECT_EQ(Zucs_Utf8StrLen(bom.data(), static_cast<uint32_t>(bom.size())), 1u);
    EXPECT_EQ(ToBmp(bom), Units({0xFEFF}));
    // NUL, the length, truncated, stray continuation, overlong forms.
    EXPECT_EQ(Zucs_Utf8StrLen("ab\0cd", 5), 2u);
    EXPECT_EQ(Zucs_Utf8StrLen("abcd", 3), 3u);
    EXPECT_EQ(Zucs_Utf8StrLen("a\xE4\xB8", 3), 1u);
    EXPECT_EQ(Zucs_Utf8StrLen("a\x80", 2), 1u);
    EXPECT_EQ(ToBmp(std::string("a\xC0\x80z", 4)), Units({'a'}));
    EXPECT_EQ(ToBmp("a\xE0\x80\xAFz"), Units({'a'}));
    EXPECT_EQ(Zucs_Utf8StrLen(nullptr, 5), 0u);
    // A full output keeps its last slot for the NUL.
    EXPECT_EQ(ToBmp("abcdef", 4), Units({'a', 'b', 'c'}));
    EXPECT_EQ(ToBmp("abc", 1), Units{});
    uint16_t never = 0x1234;
    EXPECT_EQ(Zucs_Utf8ToBmp(&never, 0, "abc", 3), 0u);
    EXPECT_EQ(never, 0x1234);

    // U+4E00 takes three bytes: with room 3 only the NUL fits.
    const uint16_t yi[] = {0x4E00, 'a', 0};
    char out[8];
    std::memset(out, 'x', sizeof(out));
    EXPECT_EQ(Zucs_BmpToUtf8(out, 3, yi, 2), 0u);
    EXPECT_EQ(out[0], '\0');
    EXPECT_EQ(Zucs_BmpToUtf8(out, 4, yi, 2), 3u);
    EXPECT_EQ(Zucs_BmpToUtf8(out, 5, yi, 2), 4u);
    EXPECT_EQ(Zucs_BmpToUtf8(out, 8, yi, 1), 3u) << "the count limits too";
    EXPECT_EQ(Zucs_Utf8Size(yi, 1), 3u);
    EXPECT_EQ(Zucs_BmpStrLen(nullptr), 0u);

    // Lone surrogates survive a round trip through three-byte forms.
    const uint16_t sur[] = {0xD800, 0xDFFF, 0};
    EXPECT_EQ(Zucs_BmpToUtf8(out, sizeof(out), sur, 2), 6u);
    EXPECT_EQ(ToBmp(std::string(out, 6)), Units({0xD800, 0xDFFF}));
}

TEST_F(ZucsTest, AllocatingFormsAndCodePageStubs) {
    uint16_t *bmp = nullptr;
    uint32_t count = 99;
    const char *text = "A\xE4\xB8\x80";
    ASSERT_EQ(Zucs_Utf8ToBmpX(&bmp, &count, text, 4), ZOK);
    ASSERT_NE(bmp, nullptr);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(Units(bmp, bmp + 3), Units({'A', 0x4E00, 0}));
    char *utf8 = nullptr;
    uint32_t size = 0;
    ASSERT_EQ(Zucs_BmpToUtf8X(&utf8, &size, bmp, count), ZOK);
    EXPECT_EQ(size, 4u);
    EXPECT_STREQ(utf8, text);
    Zos_Free(utf8);
    Zos_Free(bmp);
    EXPECT_EQ(Zucs_Utf8ToBmpX(nullptr, &count, text, 4), ZFAILED);
    EXPECT_EQ(Zucs_BmpToUtf8X(nullptr, &size, bmp, 1), ZFAILED);

    char cp[4] = {'x', 'x', 'x', 'x'};
    uint16_t units[2] = {7, 7};
    EXPECT_EQ(Zucs_BmpToCpStr(cp, sizeof(cp), units, 2), ZFAILED);
    EXPECT_EQ(cp[0], 0);
    EXPECT_EQ(cp[3], 0);
    EXPECT_EQ(Zucs_CpStrToBmp(units, 2, "ab", 2), ZFAILED);
    EXPECT_EQ(units[1], 0);
}

TEST_F(ZucsTest, StrictDecoderRefusesWhatUtf8Forbids) {
    EXPECT_EQ(Decode("\x4D\xD0\xB0\xE4\xBA\x8C\xF0\x90\x8C\x82"),
              (std::vector<int32_t>{0x4D, 0x430, 0x4E8C, 0x10302}));
    EXPECT_EQ(Decode("\xF4\x8F\xBF\xBF"), std::vector<int32_t>{0x10FFFF});  // the last one
    EXPECT_EQ(Decode("\xF2\x80\x80\x80"), std::vector<int32_t>{0x80000});
    // The first and last of each length, and around the surrogates;
    // continuation bytes of 0x80 carry no bits.
    EXPECT_EQ(Decode("\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF"
                     "\xF0\x90\x80\x80"),
              (std::vector<int32_t>{0x80, 0x7FF, 0x800, 0xD7FF, 0xE000, 0xFFFF, 0x10000}));
    const char *bad[] = {
        "\xC0\x80",          // overlong NUL
        "\xC1\xBF",          // overlong 0x7F
        "\xE0\x9F\xBF",      // overlong 0x7FF
        "\xF0\x8F\xBF\xBF",  // overlong 0xFFFF
        "\xED\xA0\x80",      // surrogate D800
        "\xED\xBF\xBF",      // surrogate DFFF
        "\xF4\x90\x80\x80",  // above U+10FFFF
        "\xF1\x80\x80\x80",  // odd four-byte leads are refused
        "\xF3\x80\x80\x80",
        "\xF5\x80\x80\x80",
        "\x80",
        "\xBF",
        "\xFF",
        "\xFE",
        "\xC3",      // truncated
        "\xE4\xB8",  // truncated
        "\xC3\x41",  // wrong continuation
    };
    for (const char *b : bad) {
        EXPECT_EQ(Decode(b), std::vector<int32_t>{UTF8_ERROR}) << std::hex << (b[0] & 0xFF);
    }

    ST_UTF8_DECODE st;
    utf8_decode_init(&st, "a\xE4\xB8\x80z", 5);
    EXPECT_EQ(utf8_decode_next(&st), 'a');
    EXPECT_EQ(utf8_decode_next(&st), 0x4E00);
    EXPECT_EQ(utf8_decode_at_byte(&st), 1);
    EXPECT_EQ(utf8_decode_at_character(&st), 1);
    EXPECT_EQ(utf8_decode_next(&st), 'z');
    EXPECT_EQ(utf8_decode_at_byte(&st), 4);
    EXPECT_EQ(utf8_decode_next(&st), UTF8_END);
    EXPECT_EQ(utf8_decode_next(&st), UTF8_END);
    EXPECT_EQ(utf8_decode_next(nullptr), UTF8_ERROR);
    utf8_decode_init(&st, nullptr, 10);
    EXPECT_EQ(utf8_decode_next(&st), UTF8_END);
}

TEST_F(ZucsTest, Utf16KeepsOnlyPlaneOneRight) {
    uint16_t w[8] = {};
    EXPECT_EQ(utf8_to_utf16(w, "\xF0\x9F\x98\x80", 4, 0), 2);
    EXPECT_EQ(Units(w, w + 2), Units({0xD83D, 0xDE00}));
    EXPECT_EQ(utf8_to_utf16(w, "\xF0\x90\x8C\x82", 4, 0), 2);
    EXPECT_EQ(Units(w, w + 2), Units({0xD800, 0xDF02}));
    // U+20000: the standard pair is D840 DC00; the plane bits are dropped.
    EXPECT_EQ(utf8_to_utf16(w, "\xF0\xA0\x80\x80", 4, 0), 2);
    EXPECT_EQ(Units(w, w + 2), Units({0xD800, 0xDC00}));

    // Big-endian storage, and a stop at the first invalid character.
    EXPECT_EQ(utf8_to_utf16(w, "A\xE4\xB8\x80\xC0\x80Z", 8, 1), 2);
    const uint8_t be[] = {0x00, 0x41, 0x4E, 0x00};
    EXPECT_EQ(std::memcmp(w, be, sizeof(be)), 0);
    EXPECT_EQ(utf8_to_utf16(w, "\xC0\x80", 2, 0), 0);
    EXPECT_EQ(utf8_to_utf16(w, "", 0, 0), 0);
}

TEST_F(ZucsTest, PinyinTablesHaveTheStatedLayout) {
    EXPECT_STREQ(ppinyin_all_pinyin[0], "None");
    EXPECT_STREQ(ppinyin_all_pinyin[1], "yi");
    EXPECT_EQ(m_acpinyin_count[ZUCS_PINYIN_ENTRIES - 1], 0) << "the spare entry";
    bool above255 = false;
    uint32_t none = 0;
    for (uint32_t i = 0; i < ZUCS_PINYIN_ENTRIES; ++i) {
        const uint32_t n = m_acpinyin_count[i];
        ASSERT_LE(n, ZUCS_PINYIN_MAX_READINGS);
        none += n == 0 ? 1 : 0;
        for (uint32_t r = 0; r < n; ++r) {
            const uint8_t *p = ppinyin_index[i] + 2 * r;
            ASSERT_TRUE(p[0] == 255 || p[1] == 0) << i;
            const uint32_t num = p[0] + p[1];
            ASSERT_GE(num, 1u);
            ASSERT_LT(num, ZUCS_PINYIN_READINGS);
            above255 = above255 || num > 255;
            ASSERT_GE(ppinyin_tones[i][r], 1);
            ASSERT_LE(ppinyin_tones[i][r], 5);
        }
        ASSERT_EQ(ppinyin_index[i][2 * n], 0) << i;
        ASSERT_EQ(ppinyin_tones[i][n], 0) << i;
    }
    EXPECT_TRUE(above255);
    EXPECT_GT(none, 1u);
    EXPECT_LT(none, 100u);
}

TEST_F(ZucsTest, PinyinSpellsAndCuts) {
    EXPECT_EQ(Pinyin({0x4E00, 0x4E01}), "yi,ding,");
    // "Zhongwen Pinyin" in characters, with ASCII around them.
    EXPECT_EQ(Pinyin({'A', 0x4E2D, 0x6587, 0x62FC, 0x97F3, '!'}, 64, " "),
              "a zhong wen pin yin ! ");
    EXPECT_EQ(Pinyin({0x4E2D, 0x6587}, 64, nullptr), "zhongwen");
    // Outside ASCII: the low byte when below 0x80, else the raw bytes.
    EXPECT_EQ(Pinyin({0x0141}, 64, nullptr), "a");
    const uint16_t ext = 0x4181;  // CJK extension A: not in the table
    EXPECT_EQ(Pinyin({ext}, 64, nullptr), std::string(reinterpret_cast<const char *>(&ext), 2));

    // A character without readings writes nothing, not even a separator.
    uint16_t bare = 0;
    for (uint32_t i = 0; i + 1 < ZUCS_PINYIN_ENTRIES && bare == 0; ++i) {
        if (m_acpinyin_count[i] == 0) bare = static_cast<uint16_t>(ZUCS_PINYIN_FIRST + i);
    }
    ASSERT_NE(bare, 0);
    EXPECT_EQ(Pinyin({'x', bare, 'y'}), "x,y,");

    // Cut where the next item does not fit beside the NUL.
    EXPECT_EQ(Pinyin({0x4E00, 0x4E01}, 3), "yi");
    EXPECT_EQ(Pinyin({0x4E00, 0x4E01}, 4), "yi,");
    EXPECT_EQ(Pinyin({0x4E00, 0x4E01}, 7), "yi,");
    EXPECT_EQ(Pinyin({0x4E00}, 1), "");
    const uint16_t two[] = {0x4E00, 0x4E01, 0};
    char out[32];
    ASSERT_EQ(Zucs_BmpToPinyin(two, 1, out, sizeof(out), "-"), ZOK);
    EXPECT_STREQ(out, "yi-");
    EXPECT_EQ(Zucs_BmpToPinyin(nullptr, 1, out, sizeof(out), ","), ZFAILED);
    EXPECT_EQ(Zucs_BmpToPinyin(two, 1, nullptr, sizeof(out), ","), ZFAILED);
    EXPECT_EQ(Zucs_BmpToPinyin(two, 1, out, 0, ","), ZFAILED);
}
