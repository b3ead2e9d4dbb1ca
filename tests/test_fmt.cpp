// The layer's formatter: its quirks, its sinks, and agreement with the C
// library's snprintf where both are meant to print the same.
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "zos_test.h"

namespace {

uint32_t Collect(uint32_t c, uintptr_t arg) {
    reinterpret_cast<std::string *>(arg)->push_back(static_cast<char>(c));
    return 0;
}

// Formats through every road (unbounded buffer, bounded buffer, measuring
// pass, caller function) and checks that texts and counts agree.
std::string Fmt(const char *fmt, ...) {
    static thread_local char buf[4096], bounded[4096];
    std::string viaFn;
    va_list ap, a;
    va_start(ap, fmt);
    va_copy(a, ap);
    const uint32_t n = Zos_VSPrintf(buf, fmt, a);
    va_end(a);
    va_copy(a, ap);
    EXPECT_EQ(Zos_VSNPrintf(bounded, sizeof bounded, fmt, a), n) << fmt;
    va_end(a);
    va_copy(a, ap);
    EXPECT_EQ(Zos_Kvprintf(fmt, Zos_SPrintfNull, 0, 10, a), n) << fmt;
    va_end(a);
    EXPECT_EQ(Zos_Kvprintf(fmt, Collect, reinterpret_cast<uintptr_t>(&viaFn), 10, ap), n) << fmt;
    va_end(ap);
    EXPECT_EQ(std::strlen(buf), n) << fmt;
    EXPECT_STREQ(bounded, buf) << fmt;
    EXPECT_EQ(viaFn, buf) << fmt;
    return buf;
}

std::string Radix(uint32_t radix, const char *fmt, ...) {
    char buf[128];
    va_list ap;
    va_start(ap, fmt);
    buf[Zos_Kvprintf(fmt, nullptr, reinterpret_cast<uintptr_t>(buf), radix, ap)] = '\0';
    va_end(ap);
    return buf;
}

}  // namespace

TEST(Fmt, IntegerPaddingSignPrefixAndCase) {
    // The '-' counts in the length: width 5 gives two pads, width 6 three.
    EXPECT_EQ(Fmt("%05d|%06d|%-05d", -42, -42, -42), "000-42|0000-42|-4200");
    EXPECT_EQ(Fmt("%-05d|", 42), "42000|");
    EXPECT_EQ(Fmt("%5d|%-5d|", -42, -42), "  -42|-42  |");
    EXPECT_EQ(Fmt("%#06x", 0x1f), "000x1f");
    EXPECT_EQ(Fmt("%#x %#o %#o %#X", 0, 8, 0, 255), "0 010 0 0xFF");
    EXPECT_EQ(Fmt("%X %x", 0xabcdefu, 0xABCDEFu), "ABCDEF abcdef");
    EXPECT_EQ(Fmt("%.3d|%10d", 7, INT_MIN), "7|-2147483648");  // precision ignored
    EXPECT_EQ(Fmt("%c%c%5c|%%%5%", 'a', 0x142, 'z'), "aBz|%%");
}

TEST(Fmt, LengthCountsPointerAndRadix) {
    EXPECT_EQ(Fmt("%lld %llu %llx", -1LL, ULLONG_MAX, 0x123456789abcdefULL),
              "-1 18446744073709551615 123456789abcdef");
    EXPECT_EQ(Fmt("%ld %lu", LONG_MIN, ULONG_MAX),
              std::to_string(LONG_MIN) + " " + std::to_string(ULONG_MAX));
    EXPECT_EQ(Fmt("[%llld%lllx]%d", 5), "[]5");  // dropped, nothing read
    EXPECT_EQ(Fmt("%zd %lzu %zi", -3, 4u, 5), "-3 4 5");
    EXPECT_EQ(Fmt("%p", reinterpret_cast<void *>(0x1234)), "0x1234");
    EXPECT_EQ(Fmt("%8p|%#8p|%-8p|", reinterpret_cast<void *>(0xbeef), reinterpret_cast<void *>(1),
                  reinterpret_cast<void *>(0xa)),
              "    beef|       1|a       |");
    EXPECT_EQ(Fmt("%p", nullptr), "0");
    EXPECT_EQ(Radix(2, "%r %+r", 5u, -5), "101 -101");
    EXPECT_EQ(Radix(36, "%r %#r", 35u, 35u), "z z");
    EXPECT_EQ(Radix(16, "%#r", 255u), "0xff");
    EXPECT_EQ(Radix(1, "%r", 42u), "42");
    EXPECT_EQ(Radix(37, "%r", 4294967295u), "4294967295");
}

TEST(Fmt, UnsupportedAndBrokenConversionsAreEchoed) {
    EXPECT_EQ(Fmt("%y|%5y|%*d|%hd|% d|%g|%E|%n", 1), "%y|%5y|%*d|%hd|% d|%g|%E|%n");
    EXPECT_EQ(Fmt("%y%d", 9), "%y9");  // no argument consumed
    EXPECT_EQ(Fmt("abc%"), "abc%");
    EXPECT_EQ(Fmt("x%-08.3l"), "x%-08.3l");
    EXPECT_EQ(Fmt(nullptr), "(pcFmt null)\n");
}

TEST(Fmt, Strings) {
    EXPECT_EQ(Fmt("%.3s|%.0s|%.s|%s", "abcdef", "abc", "abc", nullptr), "abc|||(null)");
    EXPECT_EQ(Fmt("%6s|%-6s|%06s|%-06s", "ab", "ab", "ab", "ab"), "    ab|ab    |0000ab|ab0000");
    const char unterminated[3] = {'x', 'y', 'z'};  // precision bounds the read
    EXPECT_EQ(Fmt("%.3s", unterminated), "xyz");
}

TEST(Fmt, DoublesTruncateAndOverflowToNan) {
    EXPECT_EQ(Fmt("%f %.2f %.0f %.200f", -1.5, 1.999, 7.9, 0.5), "-1.500000 1.99 7 0.500000");
    EXPECT_EQ(Fmt("%f|%10f|%-f|%lf", 2.9999999, 1.0, 0.25, 3.0),
              "2.999999|1.000000|0.250000|3.000000");
    EXPECT_EQ(Fmt("%e %e %e %e", 1.0, 12345.678, 0.00123, -2.5),
              "1.000000e00 1.234567e04 1.230000e-03 -2.500000e00");
    EXPECT_EQ(Fmt("%.3e|%e", 1e100, 0.0), "1.000e100|0.000000e00");
    EXPECT_EQ(Fmt("%f %f %e", INFINITY, -INFINITY, INFINITY), "nan -nan nan");
    EXPECT_EQ(Fmt("%f", NAN), "nan");
    // 119 integer digits still fit with 6 fraction digits, 120 do not.
    EXPECT_EQ(Fmt("%f", 1e118).size(), 119u + 7u);
    EXPECT_EQ(Fmt("%f|%.0f", 1e119, 1e119), "nan|" + Fmt("%.0f", 1e119));
    EXPECT_EQ(Fmt("%.124f", 1.5).size(), 126u);
    EXPECT_EQ(Fmt("%.125f|%.126f", 1.5, 1.5), "nan|1.500000");
}

TEST(Fmt, BoundedSinkKeepsLastByteAndReturnsSize) {
    // Literal text goes in runs, conversions character by character.
    for (int32_t size = 0; size <= 9; ++size) {
        for (const bool perChar : {false, true}) {
            char buf[12];
            std::memset(buf, '#', sizeof buf);
            const uint32_t n =
                perChar ? Zos_SNPrintf(buf, size, "%c%c%c%c%c%c", 'a', 'b', 'c', 'd', 'e', 'f')
                        : Zos_SNPrintf(buf, size, "abcdef");
            EXPECT_EQ(n, static_cast<uint32_t>(std::min(size, 6)));
            const int32_t kept = std::max(0, std::min(size - 1, 6));
            EXPECT_EQ(std::string(buf, kept), std::string("abcdef").substr(0, kept));
            EXPECT_EQ(buf[kept], size == 0 ? '#' : '\0') << size << perChar;
            EXPECT_EQ(buf[kept + 1], '#') << "wrote past the terminator";
        }
    }
    char buf[4] = {'#', '#', '#', '#'};
    EXPECT_EQ(Zos_SNPrintf(buf, -1, "abc"), 0u);
    EXPECT_EQ(Zos_SNPrintf(nullptr, 4, "abc"), 0u);
    EXPECT_EQ(buf[0], '#');
    EXPECT_EQ(Zos_SNPrintf(buf, 4, "%0999999999d", 1), 4u);  // huge pad, bounded work
    EXPECT_STREQ(buf, "000");
}

TEST(Fmt, SnprintfRecordSameByFastRoadAndPerCharacter) {
    EXPECT_EQ(Zos_SPrintfNull('q', 7), static_cast<uint32_t>('q'));
    char a[8] = {}, b[8] = {};
    ST_ZOS_SNPRINTF_SINK ra = {a, 5}, rb = {b, 5};
    // A forwarding function takes the per-character road.
    auto forward = [](uint32_t c, uintptr_t rec) { return Zos_SnprintfFunc(c, rec); };
    auto kv = [](PFN_ZOS_KPRINT fn, ST_ZOS_SNPRINTF_SINK *rec, const char *fmt, ...) {
        va_list ap;
        va_start(ap, fmt);
        const uint32_t n = Zos_Kvprintf(fmt, fn, reinterpret_cast<uintptr_t>(rec), 10, ap);
        va_end(ap);
        return n;
    };
    for (const char *part : {"ab", "%d", "xyz"}) {
        EXPECT_EQ(kv(Zos_SnprintfFunc, &ra, part, 9), kv(forward, &rb, part, 9));
        EXPECT_EQ(ra.iRemain, rb.iRemain);
        EXPECT_EQ(ra.pcPos - a, rb.pcPos - b);
    }
    EXPECT_EQ(ra.iRemain, 1);
    EXPECT_STREQ(a, "ab9x");
    EXPECT_STREQ(b, "ab9x");
}

TEST(Fmt, DigitScratchLayout) {
    char s[129];
    int32_t len = -1;
    char *top = Zos_Ksprintn(s, 0x1f, 16, &len);
    EXPECT_EQ(len, 2);
    EXPECT_EQ(top, s + 2);
    EXPECT_EQ(std::string(s, 3), std::string("\0f1", 3));
    EXPECT_EQ(*Zos_Ksprintn(s, 0, 99, &len), '0');  // bad base: 10
    top = Zos_Ksprintd(s, 12.5, 1, &len);
    EXPECT_EQ(std::string(s + 1, len), "5.21");
    top = Zos_Ksprinte(s, 0.05, 0, &len);
    EXPECT_EQ(std::string(s + 1, len), "20-e5");
    EXPECT_EQ(Zos_Ksprintn(nullptr, 1, 10, &len), nullptr);
}

TEST(Fmt, SameAsSnprintfForOrdinaryCases) {
    const char *intFmts[] = {"%d",     "%i",  "%u",  "%x",    "%X",      "%o",      "%12d",
                             "%-12d|", "%#x", "%#o", "%#12x", "%-#12o|", "a%db%uc", "%%%d"};
    const int ints[] = {0, 1, -1, 42, -42, 255, INT_MAX, INT_MIN, 0x7654321};
    char want[128];
    for (const char *f : intFmts) {
        for (int v : ints) {
            const int n = std::snprintf(want, sizeof want, f, v, v);
            EXPECT_EQ(Fmt(f, v, v), want) << f << " " << v;
            EXPECT_EQ(Zos_SNPrintf(want, 4, f, v, v), static_cast<uint32_t>(std::min(n, 4)));
        }
    }
    for (const char *f : {"%05d", "%010u", "%08x"}) {
        for (int v : {0, 7, 123456, INT_MAX}) {
            std::snprintf(want, sizeof want, f, v);
            EXPECT_EQ(Fmt(f, v), want) << f << " " << v;
        }
    }
    for (const char *f : {"%s", "%8s", "%-8s|", "%.2s", "%8.2s", "%-8.2s|", "<%s>"}) {
        for (const char *s : {"", "a", "abcdefghijk"}) {
            std::snprintf(want, sizeof want, f, s);
            EXPECT_EQ(Fmt(f, s), want) << f << " " << s;
        }
    }
    for (const char *f : {"%f", "%.1f", "%.2f", "%.5f"}) {
        for (double d : {0.0, 0.5, -2.5, 100.0, 123456.5, -98765.5, 1e15}) {
            std::snprintf(want, sizeof want, f, d);
            EXPECT_EQ(Fmt(f, d), want) << f << " " << d;
        }
    }
    for (long long v : {0LL, -1LL, LLONG_MIN, LLONG_MAX, 1LL << 40}) {
        std::snprintf(want, sizeof want, "%lld %llu %llx %ld %lu %lx", v, v, v,
                      static_cast<long>(v), static_cast<unsigned long>(v),
                      static_cast<unsigned long>(v));
        EXPECT_EQ(Fmt("%lld %llu %llx %ld %lu %lx", v, v, v, static_cast<long>(v),
                      static_cast<unsigned long>(v), static_cast<unsigned long>(v)),
                  want);
    }
}
