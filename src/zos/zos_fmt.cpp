// The layer's formatter.
//
// One engine, instantiated for four kinds of output: an unbounded caller
// buffer, a bounded buffer (the Zos_SnprintfFunc record), a discarding
// counter (Zos_SPrintfNull) and a caller's output function. The three
// built-in sinks write directly; only a caller's own function is called
// once per character. Every sink sees exactly the same characters, so the
// counts and texts agree whichever road a call takes.
#include <cmath>
#include <cstring>

#include "zos_fmt.h"
#include "zos_str.h"
#include "zos_sys.h"

namespace {

constexpr char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
constexpr char kNullFormat[] = "(pcFmt null)\n";
constexpr char kNullString[] = "(null)";
constexpr uint8_t kCtypeLower = 0x02;

// Pairs "00".."99" for two decimal digits per division.
constexpr char kPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// Characters the digit generators may use before the text becomes "nan";
// the scratch holds a leading NUL sentinel and 128 characters.
constexpr int32_t kMaxChars = 126;
constexpr int32_t kDefaultPrecision = 6;
constexpr int32_t kMaxPrecision = 125;

// ---------------------------------------------------------------- sinks

// Unbounded caller buffer; the caller sized it.
class BufSink {
  public:
    explicit BufSink(char *buf) : pos_(buf), start_(buf) {}
    void Put(char c) { *pos_++ = c; }
    void Write(const char *s, size_t n) {
        std::memcpy(pos_, s, n);
        pos_ += n;
    }
    void Fill(char c, size_t n) {
        std::memset(pos_, c, n);
        pos_ += n;
    }
    uint32_t Count() const { return static_cast<uint32_t>(pos_ - start_); }
    char *Pos() const { return pos_; }

  private:
    char *pos_;
    char *start_;
};

// Bounded buffer: stores while pos < end and counts everything. `end` is
// one before the caller's last byte, which stays free for the NUL.
class BoundSink {
  public:
    BoundSink(char *pos, char *end) : pos_(pos), end_(end) {}
    void Put(char c) {
        if (pos_ < end_) *pos_++ = c;
        ++count_;
    }
    void Write(const char *s, size_t n) {
        const size_t k = Room(n);
        std::memcpy(pos_, s, k);
        pos_ += k;
        count_ += static_cast<uint32_t>(n);
    }
    void Fill(char c, size_t n) {
        const size_t k = Room(n);
        std::memset(pos_, c, k);
        pos_ += k;
        count_ += static_cast<uint32_t>(n);
    }
    uint32_t Count() const { return count_; }
    char *Pos() const { return pos_; }

  private:
    size_t Room(size_t n) const {
        const size_t room = static_cast<size_t>(end_ - pos_);
        return n < room ? n : room;
    }
    char *pos_;
    char *end_;
    uint32_t count_ = 0;
};

// Counts only (measuring pass).
class CountSink {
  public:
    void Put(char) { ++count_; }
    void Write(const char *, size_t n) { count_ += static_cast<uint32_t>(n); }
    void Fill(char, size_t n) { count_ += static_cast<uint32_t>(n); }
    uint32_t Count() const { return count_; }

  private:
    uint32_t count_ = 0;
};

// A caller's output function, one call per character.
class FuncSink {
  public:
    FuncSink(PFN_ZOS_KPRINT fn, uintptr_t arg) : fn_(fn), arg_(arg) {}
    void Put(char c) {
        fn_(static_cast<uint8_t>(c), arg_);
        ++count_;
    }
    void Write(const char *s, size_t n) {
        for (size_t i = 0; i < n; ++i) Put(s[i]);
    }
    void Fill(char c, size_t n) {
        for (size_t i = 0; i < n; ++i) Put(c);
    }
    uint32_t Count() const { return count_; }

  private:
    PFN_ZOS_KPRINT fn_;
    uintptr_t arg_;
    uint32_t count_ = 0;
};

// The argument list in a struct, so the engine can take it by reference on
// every ABI (va_list is an array on some and a struct on others).
struct Args {
    va_list ap;
};

// ------------------------------------------------------------ integers

// Writes the nine decimal digits of v (with leading zeros) ending at end.
inline char *Nine(char *end, uint32_t v) {
    for (int i = 0; i < 4; ++i) {
        const uint32_t q = v / 100;
        end -= 2;
        std::memcpy(end, kPairs + 2 * (v - q * 100), 2);
        v = q;
    }
    *--end = static_cast<char>('0' + v);
    return end;
}

// Writes the digits of v in base (2..36) backwards so that they end at
// `end`; at least one digit. Returns the most significant digit.
char *DigitsBack(char *end, uint64_t v, uint32_t base) {
    char *p = end;
    switch (base) {
        case 10: {
            // 64-bit division only for the part above 32 bits, nine digits
            // at a time; the rest in 32-bit arithmetic (cheap on 32-bit ARM).
            while (v > 0xFFFFFFFFull) {
                const uint64_t q = v / 1000000000u;
                p = Nine(p, static_cast<uint32_t>(v - q * 1000000000u));
                v = q;
            }
            uint32_t w = static_cast<uint32_t>(v);
            while (w >= 100) {
                const uint32_t q = w / 100;
                p -= 2;
                std::memcpy(p, kPairs + 2 * (w - q * 100), 2);
                w = q;
            }
            if (w >= 10) {
                p -= 2;
                std::memcpy(p, kPairs + 2 * w, 2);
            } else {
                *--p = static_cast<char>('0' + w);
            }
            break;
        }
        case 16:
            do {
                *--p = kDigits[v & 15u];
                v >>= 4;
            } while (v != 0);
            break;
        case 8:
            do {
                *--p = kDigits[v & 7u];
                v >>= 3;
            } while (v != 0);
            break;
        default:
            do {
                *--p = kDigits[v % base];
                v /= base;
            } while (v != 0);
            break;
    }
    return p;
}

struct IntConv {
    uint32_t base;
    uint32_t width;
    char padc;
    bool left;
    bool alt;
    bool upper;
};

// Pads, '-', prefix, digits, trailing pads. Padding comes before the sign
// and the prefix even when the pad character is '0' ("%05d" of -42 is
// "000-42"), and trailing pads use the pad character too.
template <class Sink>
void EmitInt(Sink &out, uint64_t mag, bool neg, const IntConv &conv) {
    char buf[72];
    char *const end = buf + sizeof buf;
    char *p = DigitsBack(end, mag, conv.base);
    if (conv.upper) {
        for (char *q = p; q < end; ++q) {
            if ((g_aucZosCtype[static_cast<uint8_t>(*q) + 1] & kCtypeLower) != 0) *q -= 32;
        }
    }
    if (conv.alt && mag != 0) {
        if (conv.base == 16) {
            *--p = 'x';
            *--p = '0';
        } else if (conv.base == 8) {
            *--p = '0';
        }
    }
    if (neg) *--p = '-';
    const uint32_t len = static_cast<uint32_t>(end - p);
    // Zeros padded in front do not count the sign: "%05d" of -42 is
    // "000-42": the zeros fill the width as if the sign were not there.
    const uint32_t counted = neg && conv.padc == '0' && !conv.left ? len - 1 : len;
    const uint32_t pad = conv.width > counted ? conv.width - counted : 0;
    if (pad != 0 && !conv.left) out.Fill(conv.padc, pad);
    out.Write(p, len);
    if (pad != 0 && conv.left) out.Fill(conv.padc, pad);
}

// -------------------------------------------------------------- doubles

// trunc(fmod(x, 10)) for x >= 0. fmod is exact, so below 2^64 this is the
// units digit of the integer part; NaN and infinity give 0.
inline char DigitOf(double x) {
    if (x < 18446744073709551616.0) return static_cast<char>('0' + static_cast<uint64_t>(x) % 10u);
    const double r = std::fmod(x, 10.0);
    return static_cast<char>('0' + (r >= 0.0 && r < 10.0 ? static_cast<int>(r) : 0));
}

// Appends the fixed-point text of |v| to s[t+1..] least significant first
// (fraction digits, '.', integer digits). Returns the new character count,
// or -1 when the text would not fit the scratch.
int32_t AppendFixed(char *s, int32_t t, double v, int32_t prec) {
    if (v < 0) v = -v;
    if (prec > 0) {
        if (t + prec + 1 > kMaxChars) return -1;
        // The k-th fraction digit is trunc(fmod(v * 10^k, 10)), the product
        // made by repeated multiplication; there is no rounding.
        double x = v;
        for (int32_t k = 1; k <= prec; ++k) {
            x *= 10.0;
            s[t + 1 + prec - k] = DigitOf(x);
        }
        t += prec + 1;
        s[t] = '.';
    }
    // Integer digits, the units digit always.
    double x = v;
    do {
        if (++t > kMaxChars) return -1;
        s[t] = DigitOf(x);
        x /= 10.0;
    } while (x >= 1.0);
    return t;
}

char *NanText(char *s, int32_t *len) {
    s[1] = 'n';
    s[2] = 'a';
    s[3] = 'n';
    if (len != nullptr) *len = 3;
    return s + 3;
}

inline int32_t FixPrecision(int32_t prec) {
    return prec < 0 || prec > kMaxPrecision ? kDefaultPrecision : prec;
}

char *FixedText(char *s, double v, int32_t prec, int32_t *len) {
    s[0] = '\0';
    if (std::isnan(v)) return NanText(s, len);
    const int32_t t = AppendFixed(s, 0, v, FixPrecision(prec));
    if (t < 0) return NanText(s, len);
    if (len != nullptr) *len = t;
    return s + t;
}

char *ExpText(char *s, double v, int32_t prec, int32_t *len) {
    s[0] = '\0';
    if (v < 0) v = -v;
    // Infinity would scale for ever and NaN has no digits: both print "nan".
    if (std::isnan(v) || std::isinf(v)) return NanText(s, len);
    int32_t exp = 0;
    // Zero would multiply for ever; it prints a zero mantissa and exponent.
    if (v != 0.0) {
        while (v >= 10.0) {
            v /= 10.0;
            ++exp;
        }
        while (v < 1.0) {
            v *= 10.0;
            --exp;
        }
    }
    const bool negExp = exp < 0;
    const uint32_t mag = negExp ? static_cast<uint32_t>(-exp) : static_cast<uint32_t>(exp);
    char buf[16];
    char *const end = buf + sizeof buf;
    char *p = DigitsBack(end, mag, 10);
    if (mag < 10) *--p = '0';
    int32_t t = 0;
    for (char *q = end; q > p;) s[++t] = *--q;
    if (negExp) s[++t] = '-';
    s[++t] = 'e';
    t = AppendFixed(s, t, v, FixPrecision(prec));
    if (t < 0) return NanText(s, len);
    if (len != nullptr) *len = t;
    return s + t;
}

// Emits a scratch text from its top back to the sentinel.
template <class Sink>
void EmitBackwards(Sink &out, const char *top) {
    char buf[kMaxChars + 2];
    char *q = buf;
    while (*top != '\0') *q++ = *top--;
    out.Write(buf, static_cast<size_t>(q - buf));
}

// --------------------------------------------------------------- engine

template <class Sink>
uint32_t Format(Sink &out, const char *fmt, uint32_t radix, Args &args) {
    if (fmt == nullptr) fmt = kNullFormat;
    if (radix < 2 || radix > 36) radix = 10;
    const char *p = fmt;
    for (;;) {
        const char *run = p;
        while (*p != '%' && *p != '\0') ++p;
        if (p != run) out.Write(run, static_cast<size_t>(p - run));
        if (*p == '\0') return out.Count();

        const char *const start = p++;
        IntConv conv{10, 0, ' ', false, false, false};
        bool sign = false;
        bool dot = false;
        bool isSigned = false;
        int32_t prec = 0;
        uint32_t lcount = 0;
        for (;;) {
            const char ch = *p++;
            switch (ch) {
                case '\0':
                    // A format ending inside a conversion: echo what was
                    // read of it and stop at the terminator.
                    out.Write(start, static_cast<size_t>(p - 1 - start));
                    return out.Count();
                case '#':
                    conv.alt = true;
                    continue;
                case '+':
                    sign = true;
                    continue;
                case '-':
                    conv.left = true;
                    continue;
                case '.':
                    dot = true;
                    continue;
                case '0':
                    if (!dot) {
                        conv.padc = '0';
                        continue;
                    }
                    [[fallthrough]];
                case '1':
                case '2':
                case '3':
                case '4':
                case '5':
                case '6':
                case '7':
                case '8':
                case '9': {
                    uint32_t n = static_cast<uint32_t>(ch - '0');
                    while (*p >= '0' && *p <= '9') n = n * 10u + static_cast<uint32_t>(*p++ - '0');
                    if (dot) {
                        prec = static_cast<int32_t>(n);
                    } else {
                        conv.width = n;
                    }
                    continue;
                }
                case 'l':
                    ++lcount;
                    continue;
                case 'z':
                    lcount = 0;
                    continue;
                case '%':
                    out.Put('%');
                    break;
                case 'c':
                    out.Put(static_cast<char>(va_arg(args.ap, int)));
                    break;
                case 's': {
                    const char *s = va_arg(args.ap, const char *);
                    if (s == nullptr) s = kNullString;
                    uint32_t n;
                    if (dot) {
                        n = prec > 0 ? static_cast<uint32_t>(strnlen(s, static_cast<size_t>(prec)))
                                     : 0;
                    } else {
                        n = Zos_StrLen(s);
                    }
                    const uint32_t pad = conv.width > n ? conv.width - n : 0;
                    if (pad != 0 && !conv.left) out.Fill(conv.padc, pad);
                    out.Write(s, n);
                    if (pad != 0 && conv.left) out.Fill(conv.padc, pad);
                    break;
                }
                case 'd':
                case 'i':
                    isSigned = true;
                    goto number;
                case 'u':
                    goto number;
                case 'o':
                    conv.base = 8;
                    goto number;
                case 'x':
                    conv.base = 16;
                    goto number;
                case 'X':
                    conv.base = 16;
                    conv.upper = true;
                    goto number;
                case 'r':
                    conv.base = radix;
                    isSigned = sign;
                    goto number;
                case 'p': {
                    // A pointer: hexadecimal, with "0x" exactly when no
                    // width was given. The 'l' count does not apply.
                    conv.base = 16;
                    conv.alt = conv.width == 0;
                    const uintptr_t v = reinterpret_cast<uintptr_t>(va_arg(args.ap, void *));
                    EmitInt(out, v, false, conv);
                    break;
                }
                case 'f':
                case 'e': {
                    double v = va_arg(args.ap, double);
                    if (v < 0) {
                        out.Put('-');
                        v = -v;
                    }
                    const int32_t pr = dot ? prec : kDefaultPrecision;
                    char scratch[kMaxChars + 3];
                    EmitBackwards(out, ch == 'f' ? FixedText(scratch, v, pr, nullptr)
                                                 : ExpText(scratch, v, pr, nullptr));
                    break;
                }
                default:
                    // Unsupported conversion: echoed verbatim, no argument.
                    out.Write(start, static_cast<size_t>(p - start));
                    break;
            }
            break;

        number:
            if (lcount > 2) break;  // too many 'l': dropped, nothing read
            if (isSigned) {
                int64_t v;
                if (lcount == 0) {
                    v = va_arg(args.ap, int);
                } else if (lcount == 1) {
                    v = va_arg(args.ap, long);
                } else {
                    v = va_arg(args.ap, long long);
                }
                const bool neg = v < 0;
                const uint64_t mag = neg ? 0u - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
                EmitInt(out, mag, neg, conv);
            } else {
                uint64_t v;
                if (lcount == 0) {
                    v = va_arg(args.ap, unsigned int);
                } else if (lcount == 1) {
                    v = va_arg(args.ap, unsigned long);
                } else {
                    v = va_arg(args.ap, unsigned long long);
                }
                EmitInt(out, v, false, conv);
            }
            break;
        }
    }
}

template <class Sink>
uint32_t FormatList(Sink &out, const char *fmt, uint32_t radix, va_list ap) {
    Args args;
    va_copy(args.ap, ap);
    const uint32_t n = Format(out, fmt, radix, args);
    va_end(args.ap);
    return n;
}

// Bounded formatting into buf[0..size-1] with the terminator; size >= 1.
uint32_t FormatBounded(char *buf, int32_t size, const char *fmt, va_list ap) {
    BoundSink out(buf, buf + size - 1);
    const uint32_t n = FormatList(out, fmt, 10, ap);
    *out.Pos() = '\0';
    return n < static_cast<uint32_t>(size) ? n : static_cast<uint32_t>(size);
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zos_Kvprintf(const char *pcFormat, PFN_ZOS_KPRINT pfnOut, uintptr_t zArg,
                                 uint32_t uiRadix, va_list ap) {
    if (pfnOut == nullptr) {
        // No function and no buffer: nothing to write to, so only count.
        if (zArg == 0) {
            CountSink out;
            return FormatList(out, pcFormat, uiRadix, ap);
        }
        BufSink out(reinterpret_cast<char *>(zArg));
        return FormatList(out, pcFormat, uiRadix, ap);
    }
    // The layer's own sinks are served directly; the effect on the record
    // is the same as one Zos_SnprintfFunc call per character.
    if (pfnOut == Zos_SPrintfNull) {
        CountSink out;
        return FormatList(out, pcFormat, uiRadix, ap);
    }
    if (pfnOut == Zos_SnprintfFunc) {
        auto *rec = reinterpret_cast<ST_ZOS_SNPRINTF_SINK *>(zArg);
        if (rec == nullptr || rec->iRemain < 2) {
            CountSink out;
            return FormatList(out, pcFormat, uiRadix, ap);
        }
        BoundSink out(rec->pcPos, rec->pcPos + (rec->iRemain - 1));
        const uint32_t n = FormatList(out, pcFormat, uiRadix, ap);
        rec->iRemain -= static_cast<int32_t>(out.Pos() - rec->pcPos);
        rec->pcPos = out.Pos();
        return n;
    }
    FuncSink out(pfnOut, zArg);
    return FormatList(out, pcFormat, uiRadix, ap);
}

KESTRO_API uint32_t Zos_VSPrintf(char *pcBuf, const char *pcFormat, va_list ap) {
    if (pcBuf == nullptr) return 0;
    BufSink out(pcBuf);
    const uint32_t n = FormatList(out, pcFormat, 10, ap);
    *out.Pos() = '\0';
    return n;
}

KESTRO_API uint32_t Zos_SPrintf(char *pcBuf, const char *pcFormat, ...) {
    va_list ap;
    va_start(ap, pcFormat);
    const uint32_t n = Zos_VSPrintf(pcBuf, pcFormat, ap);
    va_end(ap);
    return n;
}

KESTRO_API uint32_t Zos_VSNPrintf(char *pcBuf, int32_t iSize, const char *pcFormat, va_list ap) {
    // Size 0 writes nothing, not even a NUL; so do a negative size and a
    // null buffer.
    if (pcBuf == nullptr || iSize <= 0) return 0;
    return FormatBounded(pcBuf, iSize, pcFormat, ap);
}

KESTRO_API uint32_t Zos_SNPrintf(char *pcBuf, int32_t iSize, const char *pcFormat, ...) {
    if (pcBuf == nullptr || iSize <= 0) return 0;
    va_list ap;
    va_start(ap, pcFormat);
    const uint32_t n = FormatBounded(pcBuf, iSize, pcFormat, ap);
    va_end(ap);
    return n;
}

KESTRO_API uint32_t Zos_SnprintfFunc(uint32_t uiChr, uintptr_t zSink) {
    auto *rec = reinterpret_cast<ST_ZOS_SNPRINTF_SINK *>(zSink);
    if (rec != nullptr && rec->iRemain >= 2) {
        *rec->pcPos++ = static_cast<char>(uiChr);
        --rec->iRemain;
    }
    return 0;
}

KESTRO_API uint32_t Zos_SPrintfNull(uint32_t uiChr, uintptr_t zArg) {
    (void)zArg;
    return uiChr;
}

KESTRO_API char *Zos_Ksprintn(char *pcScratch, uint64_t ullValue, int32_t iBase, int32_t *piLen) {
    if (pcScratch == nullptr) {
        if (piLen != nullptr) *piLen = 0;
        return nullptr;
    }
    const uint32_t base = iBase >= 2 && iBase <= 36 ? static_cast<uint32_t>(iBase) : 10u;
    char buf[72];
    char *const end = buf + sizeof buf;
    const char *p = DigitsBack(end, ullValue, base);
    // Least significant digit first after the NUL sentinel.
    int32_t t = 0;
    pcScratch[0] = '\0';
    for (const char *q = end; q > p;) pcScratch[++t] = *--q;
    if (piLen != nullptr) *piLen = t;
    return pcScratch + t;
}

KESTRO_API char *Zos_Ksprintd(char *pcScratch, double dValue, int32_t iPrecision, int32_t *piLen) {
    if (pcScratch == nullptr) {
        if (piLen != nullptr) *piLen = 0;
        return nullptr;
    }
    return FixedText(pcScratch, dValue, iPrecision, piLen);
}

KESTRO_API char *Zos_Ksprinte(char *pcScratch, double dValue, int32_t iPrecision, int32_t *piLen) {
    if (pcScratch == nullptr) {
        if (piLen != nullptr) *piLen = 0;
        return nullptr;
    }
    return ExpText(pcScratch, dValue, iPrecision, piLen);
}

}  // extern "C"
