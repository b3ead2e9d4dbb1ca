// String utilities and number conversions: limits, null handling and the
// rules of the equality and trimming families.
#include <climits>
#include <cstring>
#include <string>

#include "zos_test.h"

namespace {

template <class T, class F>
std::pair<uint32_t, T> Conv(F fn, const char *text, uint32_t len = 0) {
    T v = static_cast<T>(99);
    const uint32_t rc = fn(text, len, &v);
    return {rc, v};
}

template <class T, class F>
void ExpectOk(F fn, const char *text, T want, uint32_t len = 0) {
    EXPECT_EQ(Conv<T>(fn, text, len), std::make_pair(ZOK, want)) << text;
}

template <class T, class F>
void ExpectFail(F fn, const char *text, uint32_t len = 0) {
    EXPECT_EQ(Conv<T>(fn, text, len), std::make_pair(ZFAILED, T{})) << text;  // result zeroed
}

// Runs a trim on a copy of the text, counted or terminated; returns the
// kept text.
std::string Trimmed(uint32_t (*fn)(char **, uint32_t *, uint32_t), const char *text, bool counted,
                    uint32_t ext) {
    char buf[64];
    std::strcpy(buf, text);
    char *p = buf;
    uint32_t len = static_cast<uint32_t>(std::strlen(buf));
    EXPECT_EQ(fn(&p, counted ? &len : nullptr, ext), ZOK);
    return counted ? std::string(p, len) : std::string(p);
}

}  // namespace

TEST(Str, UnsignedConversionLimits) {
    ExpectOk<uint32_t>(Zos_StrToUint, "4294967295", 4294967295u);
    ExpectOk<uint32_t>(Zos_StrToUint, "0000000001", 1u);
    ExpectOk<uint32_t>(Zos_StrToUint, "1234567", 123u, 3);
    for (const char *bad : {"4294967296", "5000000000", "00000000000", "", "+1", "12a", " 1", "-0"})
        ExpectFail<uint32_t>(Zos_StrToUint, bad);
    ExpectFail<uint32_t>(Zos_StrToUint, nullptr);
    EXPECT_EQ(Zos_StrToUint("1", 0, nullptr), ZFAILED);
    ExpectOk<unsigned long>(Zos_StrToUl, "4294967295", 4294967295ul);
    ExpectFail<unsigned long>(Zos_StrToUl, "4294967296");
    ExpectOk<uint16_t>(Zos_StrToUs, "65535", 65535);
    for (const char *bad : {"65536", "99999", "000001"}) ExpectFail<uint16_t>(Zos_StrToUs, bad);
    ExpectOk<uint8_t>(Zos_StrToUc, "255", 255);
    for (const char *bad : {"256", "0255", "-1"}) ExpectFail<uint8_t>(Zos_StrToUc, bad);
    ExpectOk<uint32_t>(Zos_XStrToUint, "ffffFFFF", 0xFFFFFFFFu);
    ExpectOk<uint32_t>(Zos_XStrToUint, "0a1B", 0xa1Bu);
    for (const char *bad : {"123456789", "0x12", "", "g", "1 "})
        ExpectFail<uint32_t>(Zos_XStrToUint, bad);
    ExpectOk<uint32_t>(Zos_StrToBool, "7", 1u);
    ExpectOk<uint32_t>(Zos_StrToBool, "0", 0u);
    ExpectFail<uint32_t>(Zos_StrToBool, "yes");
}

TEST(Str, SignedConversionLimits) {
    ExpectOk<int32_t>(Zos_StrToInt, "-2147483648", INT32_MIN);
    ExpectOk<int32_t>(Zos_StrToInt, "2147483647", INT32_MAX);
    ExpectOk<int32_t>(Zos_StrToInt, "+5", 5);
    ExpectOk<int32_t>(Zos_StrToInt, "-0000000001", -1);
    for (const char *bad : {"-2147483649", "2147483648", "-", "+", "--1", "+-1", "1-", ""})
        ExpectFail<int32_t>(Zos_StrToInt, bad);
    ExpectOk<long>(Zos_StrToLong, "-2147483648", -2147483648L);
    ExpectFail<long>(Zos_StrToLong, "2147483648");  // same range with a 64-bit long
    ExpectOk<int16_t>(Zos_StrToShort, "-32768", INT16_MIN);
    ExpectOk<int16_t>(Zos_StrToShort, "+32767", INT16_MAX);
    for (const char *bad : {"32768", "-32769", "100000", "-"})
        ExpectFail<int16_t>(Zos_StrToShort, bad);
    ExpectOk<char>(Zos_StrToChar, "127", static_cast<char>(127));
    ExpectOk<char>(Zos_StrToChar, "-128", static_cast<char>(-128));  // 128 where char is unsigned
    for (const char *bad : {"128", "-129", "1000"}) ExpectFail<char>(Zos_StrToChar, bad);
}

TEST(Str, RealConversionForms) {
    ExpectOk<double>(Zos_StrToDouble, "3.5", 3.5);
    ExpectOk<double>(Zos_StrToDouble, "10", 10.0);
    ExpectOk<double>(Zos_StrToDouble, "2.75xyz", 2.75, 4);
    ExpectOk<double>(Zos_StrToDouble, "123", 12.0, 2);  // digits past the count are not read
    ExpectOk<float>(Zos_StrToFloat, "0.25", 0.25f);
    for (const char *bad : {"1.", ".5", "-1.0", "1e5", "1.2.3", "", " 1", "1,5",
                            static_cast<const char *>(nullptr)}) {
        ExpectFail<double>(Zos_StrToDouble, bad);
        ExpectFail<float>(Zos_StrToFloat, bad);
    }
    const std::string huge = "1" + std::string(39, '0');  // beyond float, fine for double
    ExpectFail<float>(Zos_StrToFloat, huge.c_str());
    ExpectOk<double>(Zos_StrToDouble, huge.c_str(), 1e39);
    ExpectFail<double>(Zos_StrToDouble, ("1" + std::string(400, '0')).c_str());
}

TEST(Str, NumberToText) {
    char b[40];
    auto text = [&](uint32_t rc) { return rc == ZOK ? std::string(b) : std::string("<fail>"); };
    EXPECT_EQ(text(Zos_UintToStr(4294967295u, b, sizeof b)), "4294967295");
    EXPECT_EQ(text(Zos_UintToStr(4294967295u, b, 5)), "4294");
    EXPECT_EQ(text(Zos_IntToStr(INT32_MIN, b, sizeof b)), "-2147483648");
    EXPECT_EQ(text(Zos_LongToStr(LONG_MIN, b, sizeof b)), std::to_string(LONG_MIN));
    EXPECT_EQ(text(Zos_UlToStr(ULONG_MAX, b, sizeof b)), std::to_string(ULONG_MAX));
    EXPECT_EQ(text(Zos_ShortToStr(-1, b, sizeof b)), "4294967295");
    EXPECT_EQ(text(Zos_UsToStr(65535, b, sizeof b)), "65535");
    EXPECT_EQ(text(Zos_UcToStr(255, b, sizeof b)), "255");
    EXPECT_EQ(text(Zos_CharToStr(static_cast<char>(-1), b, sizeof b)), CHAR_MIN < 0 ? "-1" : "255");
    EXPECT_EQ(text(Zos_UintToXStr(0xabc0u, b, sizeof b)), "ABC0");
    EXPECT_EQ(text(Zos_BoolToStr(7, b, sizeof b)), "1");
    EXPECT_EQ(text(Zos_FloatToStr(0.5f, b, sizeof b)), "0.500000");
    EXPECT_EQ(text(Zos_DoubleToStr(1e30, b, 8)), "1000000");  // bounded, no overflow
    EXPECT_EQ(text(Zos_IntToStr(5, b, 1)), "");
    EXPECT_EQ(Zos_IntToStr(5, b, 0), ZFAILED);
    EXPECT_EQ(Zos_IntToStr(5, nullptr, 8), ZFAILED);
}

TEST(Str, EqualityTests) {
    const ST_ZOS_SSTR abc = {const_cast<char *>("abc"), 3}, none = {nullptr, 0};
    EXPECT_EQ(Zos_StrCmpL("", ""), 1u);  // two empty strings are never equal
    EXPECT_EQ(Zos_StrCmpL(nullptr, nullptr), 1u);
    EXPECT_EQ(Zos_StrCmpL("abc", "abc"), 0u);
    EXPECT_EQ(Zos_StrCmpL("abc", "abd"), 1u);
    EXPECT_EQ(Zos_StrCmpL("abc", "abcd"), 1u);
    EXPECT_EQ(Zos_StrCmpL("ABC", "abc"), 1u);
    EXPECT_EQ(Zos_StrICmpL("ABC", "abc"), 0u);
    EXPECT_EQ(Zos_StrICmpL("AB[", "ab{"), 1u);  // only letters fold
    EXPECT_EQ(Zos_StrCmpN("abc", "abcdef", 3), 0u);
    EXPECT_EQ(Zos_StrICmpN("aBc", "AbCdef", 3), 0u);
    EXPECT_EQ(Zos_StrCmpN("abc", "abcdef", 4), 1u);
    EXPECT_EQ(Zos_StrCmpX("abc", &abc), 0u);
    EXPECT_EQ(Zos_StrICmpX("ABC", &abc), 0u);
    EXPECT_EQ(Zos_StrCmpX("", &none), 1u);
    EXPECT_EQ(Zos_StrCmpX("abc", nullptr), 1u);
    EXPECT_EQ(Zos_NStrCmp("xy", 0, "xy", 0), 1u);
    EXPECT_EQ(Zos_NStrICmp("xY", 2, "Xy", 2), 0u);
    EXPECT_EQ(Zos_StrHTCmp("abcdef", "def", 0), 0u);
    EXPECT_EQ(Zos_StrHTCmp("abcdef", "def", 1), 1u);
    EXPECT_EQ(Zos_StrHTCmp("abcdef", "abc", 1), 0u);
    EXPECT_EQ(Zos_StrHTCmp("abc", "abcd", 1), 1u);
    EXPECT_EQ(Zos_StrHTCmp("abc", "abc", 1), 0u);  // a part as long as the text
    EXPECT_EQ(Zos_NStrHTICmp("ABC", 3, "abc", 3, 0), 0u);
    EXPECT_EQ(Zos_StrHTCmp("abc", "", 1), 1u);
    EXPECT_EQ(Zos_StrHTICmp("ABCdef", "abc", 1), 0u);
    EXPECT_EQ(Zos_NStrHTCmp("abcdef", 4, "cd", 2, 0), 0u);
    EXPECT_EQ(Zos_NStrHTICmp("abCD", 4, "cd", 2, 0), 0u);
}

TEST(Str, TrimCountedAndTerminated) {
    const char *text = "  \tab  c\r\n ";
    EXPECT_EQ(Trimmed(Zos_Trim, text, true, 0), "ab  c\r\n");
    EXPECT_EQ(Trimmed(Zos_Trim, text, true, 1), "ab  c");
    EXPECT_EQ(Trimmed(Zos_TrimX, text, false, 1), "ab  c");
    EXPECT_EQ(Trimmed(Zos_TrimLeft, text, false, 0), "ab  c\r\n ");
    EXPECT_EQ(Trimmed(Zos_TrimRightX, text, false, 0), "  \tab  c\r\n");
    EXPECT_EQ(Trimmed(Zos_TrimAll, "  a \t b  ", false, 0), "a b");
    EXPECT_EQ(Trimmed(Zos_TrimAllX, "a\t  b", true, 0), "a\tb");
    EXPECT_EQ(Trimmed(Zos_TrimAll, "a\r\n b\n", false, 1), "a\rb");
    EXPECT_EQ(Trimmed(Zos_TrimAll, " \t ", true, 0), "");
    char counted[] = " ab ";  // the counted form writes nothing
    char *p = counted;
    uint32_t len = 4;
    EXPECT_EQ(Zos_Trim(&p, &len, 0), ZOK);
    EXPECT_EQ(std::string(counted, 4), " ab ");
    EXPECT_EQ(p - counted, 1);
    p = nullptr;
    EXPECT_EQ(Zos_Trim(&p, &len, 0), ZFAILED);
    EXPECT_EQ(Zos_TrimAll(nullptr, nullptr, 0), ZFAILED);
}

TEST(Str, CopiesCaseAndPredicates) {
    char b[8] = "xxxxxxx";
    EXPECT_EQ(Zos_NStrCpy(b, 1, "abc"), ZOK);
    EXPECT_EQ(std::string(b, 2), std::string("\0x", 2));
    EXPECT_EQ(Zos_NStrCpy(b, 4, "abcdef"), ZOK);
    EXPECT_STREQ(b, "abc");
    EXPECT_EQ(Zos_NStrCpy(b, 0, "a"), ZFAILED);
    EXPECT_EQ(Zos_NStrNCpy(b, sizeof b, "abcdef", 2), ZOK);
    EXPECT_STREQ(b, "ab");
    const ST_ZOS_SSTR empty = {nullptr, 5}, xy = {const_cast<char *>("xyz"), 2};
    // No room, or no target, is refused before anything is written.
    EXPECT_EQ(Zos_NStrNCpy(b, 0, "abcdef", 2) + Zos_NStrNCpy(nullptr, 8, "abcdef", 2) +
                  Zos_NStrXCpy(b, 0, &xy) + Zos_NStrXCpy(nullptr, 8, &xy),
              4 * ZFAILED);
    EXPECT_STREQ(b, "ab");
    EXPECT_EQ(Zos_NStrXCpy(b, sizeof b, &empty), ZOK);
    EXPECT_STREQ(b, "");
    EXPECT_EQ(Zos_NStrUXCpy(nullptr, 0, &empty), ZOK);
    EXPECT_EQ(Zos_NStrUXCpy(nullptr, 0, &xy), ZFAILED);
    EXPECT_EQ(Zos_NStrUXCpy(b, sizeof b, &xy), ZOK);
    EXPECT_STREQ(b, "xy");
    // Nothing to copy: nowhere to copy it is fine, and a target is emptied.
    EXPECT_EQ(Zos_NStrUXCpy(nullptr, 8, &empty), ZOK);
    EXPECT_EQ(Zos_NStrUXCpy(b, sizeof b, &empty), ZOK);
    EXPECT_STREQ(b, "");
    EXPECT_EQ(Zos_NStrUXCpy(b, sizeof b, &xy), ZOK);
    char *cur = b;
    uint16_t left = sizeof b;
    EXPECT_EQ(Zos_StrFCpy(&cur, &left, "abc"), ZOK);
    EXPECT_EQ(Zos_StrFCpy(&cur, &left, "defg"), ZOK);
    EXPECT_EQ(Zos_StrFCpy(&cur, &left, "h"), ZFAILED);  // no room for its NUL
    EXPECT_STREQ(b, "abcdefg");
    EXPECT_EQ(left, 1);
    char mixed[] = "Ab1[Z]";
    EXPECT_EQ(Zos_Str2Lower(mixed), ZOK);
    EXPECT_STREQ(mixed, "ab1[z]");
    EXPECT_EQ(Zos_NStr2Upper(mixed, 2), ZOK);
    EXPECT_STREQ(mixed, "AB1[z]");
    EXPECT_EQ(Zos_Str2Upper(nullptr), ZFAILED);
    EXPECT_EQ(Zos_IsDStr("0129", 4), 1u);
    EXPECT_EQ(Zos_IsDStr("012a", 4), 0u);
    EXPECT_EQ(Zos_IsXStr("012aF", 5), 1u);
    EXPECT_EQ(Zos_IsXStr("12g", 3), 0u);
    EXPECT_EQ(Zos_IsDStr("1", 0) + Zos_IsXStr(nullptr, 1), 0u);
}

TEST(Str, SearchesAndComparisons) {
    EXPECT_EQ(Zos_StrLen(nullptr), 0u);
    EXPECT_EQ(Zos_StrCmp(nullptr, ""), 0);
    EXPECT_LT(Zos_StrICmp("ABC", "abd"), 0);
    EXPECT_EQ(Zos_StrNICmp("HELLO", "help", 3), 0);
    const char *hw = "Hello World";
    EXPECT_EQ(Zos_StrIStr(hw, "WORLD"), hw + 6);
    EXPECT_EQ(Zos_StrStr(hw, "World"), hw + 6);
    EXPECT_EQ(Zos_StrStr(hw, nullptr), nullptr);  // either text missing
    EXPECT_EQ(Zos_StrStr(nullptr, "W"), nullptr);
    const char data[] = {'a', '\0', 'b', 'c', 'b', 'x'};
    EXPECT_EQ(Zos_StrChrN(data, 5, 'b'), data + 2);  // past an embedded NUL
    EXPECT_EQ(Zos_StrRChrN(data, 5, 'b'), data + 4);
    EXPECT_EQ(Zos_StrStrN(data, 5, "bx"), nullptr);  // needs byte 6
    EXPECT_EQ(Zos_StrStrB(data, data + 6, "bx"), data + 4);
    EXPECT_EQ(Zos_StrChrB(data, data + 2, 'b'), nullptr);
    char s1[] = "a,b;;c", s2[] = "x y";
    char *save1 = nullptr, *save2 = nullptr;
    std::string got = Zos_StrTok(s1, ",;", &save1);
    got += Zos_StrTok(s2, " ", &save2);  // interleaved scans do not disturb each other
    got += Zos_StrTok(nullptr, ",;", &save1);
    got += Zos_StrTok(nullptr, ",;", &save1);
    got += Zos_StrTok(nullptr, " ", &save2);
    EXPECT_EQ(got, "axbcy");
    EXPECT_EQ(Zos_StrTok(nullptr, ",;", &save1), nullptr);
    // A null side sorts first, but nothing to compare, or the same memory
    // (null included), compares equal.
    EXPECT_EQ(Zos_MemCmp(nullptr, "a", 1), -1);
    EXPECT_EQ(Zos_MemCmp("a", nullptr, 1), 1);
    EXPECT_EQ(Zos_MemCmp(nullptr, "a", 0), 0);
    EXPECT_EQ(Zos_MemCmp(nullptr, nullptr, 4), 0);
}

TEST_F(ZosTest, Str2NpsMakesFormatSafeCopies) {
    char *out = nullptr;
    ASSERT_EQ(Zos_Str2NPS("50%\x01", &out), ZOK);
    EXPECT_STREQ(out, "50%%.");
    char buf[16];
    EXPECT_EQ(Zos_SNPrintf(buf, sizeof buf, out), 4u);  // printed as the text itself
    EXPECT_STREQ(buf, "50%.");
    Zos_SysStrFree(out);
    ASSERT_EQ(Zos_Str2NPS("a\tb\r\n\x7f\xff%s", &out), ZOK);
    EXPECT_STREQ(out, "a\tb\r\n..%%s");
    Zos_SysStrFree(out);
    char *e1 = nullptr, *e2 = nullptr;
    ASSERT_EQ(Zos_Str2NPS("", &e1), ZOK);
    ASSERT_EQ(Zos_Str2NPS(nullptr, &e2), ZOK);
    EXPECT_EQ(e1, e2);  // one shared empty string
    EXPECT_STREQ(e1, "");
    Zos_SysStrFree(e1);  // a mistaken free is refused, the string stays usable
    EXPECT_STREQ(e2, "");
    EXPECT_EQ(Zos_Str2NPS("x", nullptr), ZFAILED);
}
