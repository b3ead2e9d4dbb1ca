// GSM 7-bit default alphabet: the two mapping tables, septet packing in
// both bit orders, plain 7-bit ASCII packing, UCS-2 to UTF-8 and hexadecimal
// text.
//
// Packing and unpacking stream one septet at a time, so no work copy is
// needed and every access stays inside the sizes the caller states.
#include <cstring>

#include "sms_gsm7.h"
#include "sms_pdu.h"

namespace {

constexpr int32_t kEsc = 27;
constexpr int32_t kNone = '?';

// Extension table of the default alphabet (after the escape code), as
// pairs of code and 8-bit character. The euro sign (code 101) has no 8-bit
// form here and reads as "?".
constexpr struct {
    uint8_t code;
    char ch;
} kExtension[] = {
    {10, '\f'}, {20, '^'}, {40, '{'}, {41, '}'}, {47, '\\'},
    {60, '['},  {61, '~'}, {62, ']'}, {64, '|'},
};

char ExtensionChar(uint32_t code) {
    for (const auto &e : kExtension) {
        if (e.code == code) return e.ch;
    }
    return '?';
}

// Converts count codes delivered by get(i) into out (room checked by the
// caller: at most one character a code, plus the NUL).
template <typename Get>
uint32_t ConvertCodes(Get get, uint32_t count, char *out) {
    uint32_t len = 0;
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t c = get(i) & 0x7Fu;
        if (c == static_cast<uint32_t>(kEsc)) {
            out[len++] = i + 1 < count ? ExtensionChar(get(i + 1) & 0x7Fu) : '?';
            ++i;
        } else {
            out[len++] = static_cast<char>(lookup_ascii7to8[c]);
        }
    }
    out[len] = '\0';
    return len;
}

// Septet i of an LSB-first packed stream.
uint32_t SeptetLsb(const uint8_t *p, uint32_t i) {
    const uint32_t pos = i * 7u, byte = pos / 8u, off = pos % 8u;
    uint32_t v = static_cast<uint32_t>(p[byte]) >> off;
    if (off > 1u) v |= static_cast<uint32_t>(p[byte + 1]) << (8u - off);
    return v & 0x7Fu;
}

// Septet i of an MSB-first packed stream.
uint32_t SeptetMsb(const uint8_t *p, uint32_t i) {
    const uint32_t pos = i * 7u, byte = pos / 8u, off = pos % 8u;
    uint32_t w = static_cast<uint32_t>(p[byte]) << 8;
    if (off > 1u) w |= p[byte + 1];
    return (w >> (9u - off)) & 0x7Fu;
}

void PutLsb(uint8_t *p, uint32_t i, uint32_t v) {
    v &= 0x7Fu;
    const uint32_t pos = i * 7u, byte = pos / 8u, off = pos % 8u;
    p[byte] = static_cast<uint8_t>(p[byte] | (v << off));
    if (off > 1u) p[byte + 1] = static_cast<uint8_t>(p[byte + 1] | (v >> (8u - off)));
}

void PutMsb(uint8_t *p, uint32_t i, uint32_t v) {
    v &= 0x7Fu;
    const uint32_t pos = i * 7u, byte = pos / 8u, off = pos % 8u;
    const uint32_t w = v << (9u - off);
    p[byte] = static_cast<uint8_t>(p[byte] | (w >> 8));
    if (off > 1u) p[byte + 1] = static_cast<uint8_t>(p[byte + 1] | (w & 0xFFu));
}

uint32_t PackedBytes(uint32_t septets) {
    return static_cast<uint32_t>((static_cast<uint64_t>(septets) * 7u + 7u) / 8u);
}

// Maps text through lookup_ascii8to7 and packs the codes with put. Shared
// by both bit orders.
int32_t PackText(const char *text, uint8_t *out, uint32_t out_size, int32_t *unrep,
                 void (*put)(uint8_t *, uint32_t, uint32_t)) {
    if (unrep != nullptr) *unrep = 0;
    if (text == nullptr || out == nullptr) return 0;
    const uint32_t codes = sms::ScanText(text, unrep);
    if (codes == 0 || codes > out_size) return 0;
    const uint32_t bytes = PackedBytes(codes);
    std::memset(out, 0, bytes);
    uint32_t i = 0;
    for (const auto *p = reinterpret_cast<const uint8_t *>(text); *p != 0; ++p) {
        const int32_t e = lookup_ascii8to7[*p];
        if (e >= 256) {
            put(out, i++, static_cast<uint32_t>(kEsc));
            put(out, i++, static_cast<uint32_t>(e - 256));
        } else {
            put(out, i++, static_cast<uint32_t>(e) & 0xFFu);  // the entry's low eight bits
        }
    }
    return static_cast<int32_t>(bytes);
}

bool RoomForCodes(uint32_t count, uint32_t out_size) {
    return static_cast<uint64_t>(out_size) >= 2ull * count + 1u;
}

constexpr char kHexDigits[] = "0123456789ABCDEF";

}  // namespace

uint32_t sms::ScanText(const char *text, int32_t *unrep) {
    uint32_t codes = 0;
    for (const auto *p = reinterpret_cast<const uint8_t *>(text); *p != 0; ++p) {
        const int32_t e = lookup_ascii8to7[*p];
        codes += e >= 256 ? 2u : 1u;
        if (e == kNone && *p != '?' && unrep != nullptr) *unrep = 1;
    }
    return codes;
}

uint32_t sms::UnpackLsb(const uint8_t *packed, uint32_t septets, char *out) {
    return ConvertCodes([packed](uint32_t i) { return SeptetLsb(packed, i); }, septets, out);
}

uint32_t sms::HexToBytes(const char *hex, uint32_t digits, uint8_t *out) {
    const uint32_t n = digits / 2u;
    for (uint32_t i = 0; i < n; ++i) {
        out[i] = static_cast<uint8_t>((_PDU_pduHexCharToInt(hex[2 * i]) << 4) |
                                      _PDU_pduHexCharToInt(hex[2 * i + 1]));
    }
    return n;
}

extern "C" {

// clang-format off
// Exported through their declarations in sms_pdu.h.
const int32_t lookup_ascii7to8[128] = {
    '@',  0xA3, '$',  0xA5, 0xE8, 0xE9, 0xF9, 0xEC, 0xF2, 0xC7, '\n', 0xD8, 0xF8, '\r', 0xC5, 0xE5,
    '?',  '_',  '?',  '?',  '?',  '?',  '?',  '?',  '?',  '?',  '?',  27,   0xC6, 0xE6, 0xDF, 0xC9,
    ' ',  '!',  '"',  '#',  0xA4, '%',  '&',  '\'', '(',  ')',  '*',  '+',  ',',  '-',  '.',  '/',
    '0',  '1',  '2',  '3',  '4',  '5',  '6',  '7',  '8',  '9',  ':',  ';',  '<',  '=',  '>',  '?',
    0xA1, 'A',  'B',  'C',  'D',  'E',  'F',  'G',  'H',  'I',  'J',  'K',  'L',  'M',  'N',  'O',
    'P',  'Q',  'R',  'S',  'T',  'U',  'V',  'W',  'X',  'Y',  'Z',  0xC4, 0xD6, 0xD1, 0xDC, 0xA7,
    0xBF, 'a',  'b',  'c',  'd',  'e',  'f',  'g',  'h',  'i',  'j',  'k',  'l',  'm',  'n',  'o',
    'p',  'q',  'r',  's',  't',  'u',  'v',  'w',  'x',  'y',  'z',  0xE4, 0xF6, 0xF1, 0xFC, 0xE0,
};

// Rows of sixteen 8-bit characters. X = not representable (63), E(n) =
// escape then n.
#define X 63
#define E(n) (256 + (n))
const int32_t lookup_ascii8to7[256] = {
    /* 0x00 */ X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  10, X,  E(10), 13, X,  X,
    /* 0x10 */ X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,
    /* 0x20 */ 32, 33, 34, 35, 2,  37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47,
    /* 0x30 */ 48, 49, 50, 51, 52, 53, 54, 55, 56, 57, 58, 59, 60, 61, 62, 63,
    /* 0x40 */ 0,  65, 66, 67, 68, 69, 70, 71, 72, 73, 74, 75, 76, 77, 78, 79,
    /* 0x50 */ 80, 81, 82, 83, 84, 85, 86, 87, 88, 89, 90, E(60), E(47), E(62), E(20), 17,
    /* 0x60 */ -39, 97, 98, 99, 100, 101, 102, 103, 104, 105, 106, 107, 108, 109, 110, 111,
    /* 0x70 */ 112, 113, 114, 115, 116, 117, 118, 119, 120, 121, 122, E(40), E(64), E(41), E(61), X,
    /* 0x80 */ X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,
    /* 0x90 */ X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,
    /* 0xA0 */ X,  64, X,  1,  36, 3,  X,  95, X,  X,  X,  X,  X,  X,  X,  X,
    /* 0xB0 */ X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  96,
    /* 0xC0 */ X,  X,  X,  X,  91, 14, 28, 9,  X,  31, X,  X,  X,  X,  X,  X,
    /* 0xD0 */ X,  93, X,  X,  X,  X,  92, X,  11, X,  X,  X,  94, X,  X,  30,
    /* 0xE0 */ 127, X, X,  X,  123, 15, 29, X,  4,  5,  X,  X,  7,  X,  X,  X,
    /* 0xF0 */ X,  125, 8, X,  X,  X,  124, X, 12, 6,  X,  X,  126, X,  X,  X,
};
#undef X
#undef E
// clang-format on

KESTRO_API int32_t count_septets(const char *text) {
    return text != nullptr ? static_cast<int32_t>(sms::ScanText(text, nullptr)) : 0;
}

KESTRO_API int32_t ascii_to_pdu(const char *text, uint8_t *out, uint32_t out_size, int32_t *unrep) {
    return PackText(text, out, out_size, unrep, PutLsb);
}

KESTRO_API int32_t ascii_to_7bitAsciiPdu(const char *text, uint8_t *out, uint32_t out_size,
                                         int32_t *unrep) {
    return PackText(text, out, out_size, unrep, PutMsb);
}

KESTRO_API int32_t convert_7bit_to_ascii(const uint8_t *codes, uint32_t count, char *out,
                                         uint32_t out_size) {
    if (codes == nullptr || out == nullptr || !RoomForCodes(count, out_size)) return 0;
    return static_cast<int32_t>(ConvertCodes([codes](uint32_t i) { return codes[i]; }, count, out));
}

KESTRO_API int32_t pdu_to_ascii(const uint8_t *packed, uint32_t septets, char *out,
                                uint32_t out_size) {
    if (packed == nullptr || out == nullptr || !RoomForCodes(septets, out_size)) return 0;
    return static_cast<int32_t>(sms::UnpackLsb(packed, septets, out));
}

KESTRO_API int32_t pdu7BitAscii_to_ascii(const uint8_t *packed, uint32_t count, char *out,
                                         uint32_t out_size) {
    if (packed == nullptr || out == nullptr || !RoomForCodes(count, out_size)) return 0;
    return static_cast<int32_t>(
        ConvertCodes([packed](uint32_t i) { return SeptetMsb(packed, i); }, count, out));
}

KESTRO_API int32_t ascii_to_7bitAsciiAnsi(const char *text, uint8_t *out, uint32_t size,
                                          int32_t *failed) {
    if (failed != nullptr) *failed = 0;
    if (text == nullptr || out == nullptr) return 0;
    const auto *p = reinterpret_cast<const uint8_t *>(text);
    uint32_t n = 0;
    for (; p[n] != 0; ++n) {
        if (p[n] >= 0x80u) {
            if (failed != nullptr) *failed = 1;
            return 0;
        }
    }
    const uint32_t bytes = PackedBytes(n);
    if (n == 0 || bytes > size) return 0;
    std::memset(out, 0, bytes);
    for (uint32_t i = 0; i < n; ++i) PutMsb(out, i, p[i]);
    return static_cast<int32_t>(bytes);
}

KESTRO_API int32_t ansi7bitAscii_to_ascii(const uint8_t *packed, uint32_t count, char *out) {
    if (packed == nullptr || out == nullptr) return 0;
    for (uint32_t i = 0; i < count; ++i) out[i] = static_cast<char>(SeptetMsb(packed, i));
    out[count] = '\0';
    return static_cast<int32_t>(count);
}

KESTRO_API int32_t pdu_utf16_to_utf8(const uint8_t *ucs2, uint32_t bytes, char *out,
                                     uint32_t out_size) {
    if (ucs2 == nullptr || out == nullptr || bytes < 2 || out_size < 4) return 0;
    auto *o = reinterpret_cast<uint8_t *>(out);
    uint32_t len = 0;
    o[0] = 0;
    for (uint32_t i = 0; i + 1 < bytes; i += 2) {
        if (len > out_size - 4u) break;
        const uint32_t u = (static_cast<uint32_t>(ucs2[i]) << 8) | ucs2[i + 1];
        if (u == 0xFFFFu) return -1;
        if (u < 0x80u) {
            o[len++] = static_cast<uint8_t>(u);
        } else if (u < 0x800u) {
            o[len++] = static_cast<uint8_t>(0xC0u | (u >> 6));
            o[len++] = static_cast<uint8_t>(0x80u | (u & 0x3Fu));
        } else {
            o[len++] = static_cast<uint8_t>(0xE0u | (u >> 12));
            o[len++] = static_cast<uint8_t>(0x80u | ((u >> 6) & 0x3Fu));
            o[len++] = static_cast<uint8_t>(0x80u | (u & 0x3Fu));
        }
        o[len] = 0;
    }
    return static_cast<int32_t>(len);
}

KESTRO_API int32_t PDU_pduBytesToHexString(const uint8_t *bytes, uint32_t count, char *out) {
    if (out == nullptr) return -1;
    if (bytes == nullptr) count = 0;
    for (uint32_t i = 0; i < count; ++i) {
        out[2 * i] = kHexDigits[bytes[i] >> 4];
        out[2 * i + 1] = kHexDigits[bytes[i] & 0x0Fu];
    }
    out[2 * count] = '\0';
    return static_cast<int32_t>(2 * count);
}

KESTRO_API int32_t _PDU_pduHexCharToInt(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return 0;
}

KESTRO_API int32_t PDU_pduHexStringToBytes(const char *hex, uint8_t *out) {
    if (hex == nullptr || out == nullptr) return -1;
    return static_cast<int32_t>(sms::HexToBytes(hex, static_cast<uint32_t>(std::strlen(hex)), out));
}

}  // extern "C"
