// Fuzzes the formatter with arbitrary formats over a fixed argument list,
// and the text-to-number conversions and trims with arbitrary text.
//
// Input: byte 0 selects the part (even: formatter, odd: text), byte 1 the
// bounded size, the rest is the format or the text.
//
// The argument list: 8 doubles and kPtrArgs pointers to strings. Each
// conversion reads at most one argument and needs at least two format
// characters, so a format of kMaxFormat bytes reads at most kMaxFormat / 2
// arguments. On the x86-64 and AArch64 conventions the doubles sit in the
// vector register area and every stack slot holds one of the pointers, so
// whatever a conversion reads ('s' included) is a valid pointer, and
// integers and doubles read from pointer slots are merely odd values.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kestro_lite.h"

namespace {

constexpr size_t kMaxFormat = 120;
constexpr int32_t kBig = 8192;
const char kLong[] =
    "a fairly long argument string, long enough to be cut by every small size and to cross "
    "the scratch lengths of the engine";

#define S4 s0, s1, s2, s3
#define S16 S4, S4, S4, S4
#define D8 -1.5, 0.0, 3.25, 1e300, -2.5e-300, 12345.678, 1e118, 7.0

void Fail(const char *what) {
    std::fprintf(stderr, "fuzz_fmt: %s\n", what);
    std::abort();
}

void CheckFormat(const char *fmt, int32_t size, bool exact) {
    static thread_local char big[kBig + 16], small[80];
    const char *s0 = "", *s1 = "abc", *s2 = kLong, *s3 = "%s%d";
    std::memset(big, 0x5A, sizeof big);
    std::memset(small, 0x5A, sizeof small);
    // 8 doubles, 64 + 3 pointers: more than a 120-byte format can read.
    const uint32_t nBig = Zos_SNPrintf(big, kBig, fmt, D8, S16, S16, S16, S16, s0, s1, s2);
    const uint32_t nSmall = Zos_SNPrintf(small, size, fmt, D8, S16, S16, S16, S16, s0, s1, s2);
    if (small[size] != 0x5A || big[kBig] != 0x5A) Fail("wrote past the size");
    if (std::memchr(small, 0, size) == nullptr) Fail("not terminated within the size");
    if (!exact) return;
    // nBig is the full length unless that reached kBig; either way the
    // small run keeps min(length, size - 1) characters of the same text and
    // returns min(length, size). Inner NULs (from %c) are legal output.
    const uint32_t usize = static_cast<uint32_t>(size);
    const uint32_t kept = nBig < usize - 1 ? nBig : usize - 1;
    if (big[nBig < static_cast<uint32_t>(kBig) ? nBig : kBig - 1] != '\0') Fail("big unterminated");
    if (small[kept] != '\0') Fail("terminator misplaced");
    if (std::memcmp(small, big, kept) != 0) Fail("bounded texts differ");
    if (nSmall != (nBig < usize ? nBig : usize)) Fail("result is not min(length, size)");
}

// The count is an unsigned 32-bit number and wraps for texts of 4 GiB or
// more; widths of at most 8 digits keep a short format well below that.
bool CountIsExact(const char *fmt) {
    int run = 0;
    for (; *fmt != '\0'; ++fmt) {
        run = (*fmt >= '0' && *fmt <= '9') ? run + 1 : 0;
        if (run > 8) return false;
    }
    return true;
}

bool AllDigits(const std::string &t) {
    if (t.empty()) return false;
    for (char c : t) {
        if (c < '0' || c > '9') return false;
    }
    return true;
}

void CheckText(const uint8_t *data, size_t len) {
    const std::string text(reinterpret_cast<const char *>(data), len);
    const char *c = text.c_str();  // terminated copy; may hold inner NULs
    const uint32_t n = static_cast<uint32_t>(len);

    // Unsigned: success exactly for 1..10 digits up to 4294967295.
    uint32_t u = 7;
    const uint32_t rc = Zos_StrToUint(c, n, &u);
    const bool fits =
        n >= 1 && n <= 10 && AllDigits(text) && std::strtoull(c, nullptr, 10) <= 0xFFFFFFFFull;
    if ((rc == ZOK) != fits) Fail("StrToUint range");
    if (rc == ZOK && u != std::strtoull(c, nullptr, 10)) Fail("StrToUint value");
    if (rc != ZOK && u != 0) Fail("StrToUint result not cleared");

    int32_t i = 0;
    if (Zos_StrToInt(c, n, &i) == ZOK) {
        const long long want = std::strtoll(c, nullptr, 10);
        if (want != i) Fail("StrToInt value");
    }
    int16_t sh = 0;
    uint16_t us = 0;
    uint8_t uc = 0;
    char ch = 0;
    uint32_t x = 0, b = 0;
    float f = 0;
    double d = 0;
    (void)Zos_StrToShort(c, n, &sh);
    (void)Zos_StrToUs(c, n, &us);
    (void)Zos_StrToUc(c, n, &uc);
    (void)Zos_StrToChar(c, n, &ch);
    (void)Zos_StrToBool(c, 0, &b);
    if (Zos_XStrToUint(c, n, &x) == ZOK && x != std::strtoull(c, nullptr, 16)) Fail("XStrToUint");
    (void)Zos_StrToFloat(c, n, &f);
    if (Zos_StrToDouble(c, n, &d) == ZOK && d != std::strtod(c, nullptr)) Fail("StrToDouble");

    // Trims on counted and terminated copies stay inside the text.
    uint32_t (*trims[])(char **, uint32_t *, uint32_t) = {Zos_Trim, Zos_TrimLeft, Zos_TrimRight,
                                                          Zos_TrimAll};
    for (auto trim : trims) {
        for (uint32_t ext = 0; ext < 2; ++ext) {
            std::string copy = text;
            char *p = copy.data();
            uint32_t kept = n;
            if (trim(&p, &kept, ext) != ZOK) Fail("trim of a counted text");
            if (p < copy.data() || p + kept > copy.data() + n) Fail("trim left the text");
            copy = text;
            p = copy.data();
            if (trim(&p, nullptr, ext) != ZOK) Fail("trim of a C string");
            if (p < copy.data() || p > copy.data() + std::strlen(copy.data()))
                Fail("trim moved out");
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) return 0;
    if ((data[0] & 1) == 0) {
        const size_t len = size - 2 < kMaxFormat ? size - 2 : kMaxFormat;
        const std::string fmt(reinterpret_cast<const char *>(data + 2), len);
        CheckFormat(fmt.c_str(), 1 + data[1] % 64, CountIsExact(fmt.c_str()));
    } else {
        CheckText(data + 2, size - 2);
    }
    return 0;
}
