// Base64 with the standard and the URL-safe alphabet.
//
// Encoding turns each 3-byte group into two 12-bit halves and looks both
// up in a table of character pairs. Decoding ORs four per-position table
// entries that carry each sextet already shifted into place together with
// flag bits for invalid characters and for the two alphabet-specific pairs
// ("+/" and "-_"), so one test per quad checks everything.
#include <array>
#include <cstring>

#include "zbase64.h"

namespace {

constexpr char kStd[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kUrl[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

// Two output characters for every 12-bit value, in memory order.
using PairTable = std::array<std::array<char, 2>, 4096>;

constexpr PairTable MakePairs(const char *alphabet) {
    PairTable t{};
    for (uint32_t v = 0; v < 4096; ++v) t[v] = {alphabet[v >> 6], alphabet[v & 63]};
    return t;
}

constexpr PairTable kStdPairs = MakePairs(kStd);
constexpr PairTable kUrlPairs = MakePairs(kUrl);

// Decode entries: bits 0-23 the sextet in its place within the 24-bit
// group, then the flags.
constexpr uint32_t kBad = 1u << 24;
constexpr uint32_t kStdOnly = 1u << 25;  // "+" or "/"
constexpr uint32_t kUrlOnly = 1u << 26;  // "-" or "_"

using DecodeTable = std::array<std::array<uint32_t, 256>, 4>;

constexpr DecodeTable MakeDecode() {
    DecodeTable t{};
    for (uint32_t pos = 0; pos < 4; ++pos) {
        const uint32_t shift = 18 - 6 * pos;
        for (uint32_t c = 0; c < 256; ++c) t[pos][c] = kBad;
        for (uint32_t v = 0; v < 64; ++v) {
            t[pos][static_cast<uint8_t>(kStd[v])] = v << shift;
            t[pos][static_cast<uint8_t>(kUrl[v])] = v << shift;
        }
        t[pos]['+'] |= kStdOnly;
        t[pos]['/'] |= kStdOnly;
        t[pos]['-'] |= kUrlOnly;
        t[pos]['_'] |= kUrlOnly;
        t[pos]['='] = 0;
    }
    return t;
}

constexpr DecodeTable kDecode = MakeDecode();

inline uint32_t Quad(const uint8_t *p) {
    return kDecode[0][p[0]] | kDecode[1][p[1]] | kDecode[2][p[2]] | kDecode[3][p[3]];
}

// True when the text breaks the one-alphabet rule: a quad holding "+" or
// "/" after one holding "-" or "_", or the other way round. A single quad
// holding both passes.
bool MixedAlphabets(const uint8_t *in, uint32_t quads) {
    uint32_t seen = 0;
    for (uint32_t q = 0; q < quads; ++q, in += 4) {
        const uint32_t kinds = Quad(in) & (kStdOnly | kUrlOnly);
        const uint32_t swapped = ((seen & kStdOnly) << 1) | ((seen & kUrlOnly) >> 1);
        if ((kinds & swapped) != 0) return true;
        seen |= kinds;
    }
    return false;
}

// Writes the 24-bit groups of two quads as six bytes with one 8-byte
// store; the two bytes after them are scratch that the next step or the
// tail overwrites.
inline void Store6(uint8_t *out, uint32_t a, uint32_t b) {
    uint64_t w = (uint64_t{a & 0xFFFFFFu} << 40) | (uint64_t{b & 0xFFFFFFu} << 16);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    w = __builtin_bswap64(w);
#endif
    std::memcpy(out, &w, 8);
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zbase64_Encode(const uint8_t *pucData, uint32_t uiLen, uint32_t bUrlSafe,
                                   char *pcOut, uint32_t *puiSize) {
    if (pucData == nullptr || uiLen == 0 || puiSize == nullptr) return ZFAILED;
    const uint64_t need = (static_cast<uint64_t>(uiLen) + 2) / 3 * 4;
    if (need > 0xFFFFFFFFu) return ZFAILED;
    if (pcOut == nullptr) {
        *puiSize = static_cast<uint32_t>(need);
        return ZOK;
    }
    if (*puiSize < need) return ZFAILED;

    const PairTable &pairs = bUrlSafe != 0 ? kUrlPairs : kStdPairs;
    const char *alphabet = bUrlSafe != 0 ? kUrl : kStd;
    const uint8_t *in = pucData;
    char *out = pcOut;
    uint32_t left = uiLen;
    // Six bytes (eight characters) per step while they last.
    while (left >= 6) {
        const uint32_t a = (uint32_t{in[0]} << 16) | (uint32_t{in[1]} << 8) | in[2];
        const uint32_t b = (uint32_t{in[3]} << 16) | (uint32_t{in[4]} << 8) | in[5];
        std::memcpy(out, pairs[a >> 12].data(), 2);
        std::memcpy(out + 2, pairs[a & 0xFFF].data(), 2);
        std::memcpy(out + 4, pairs[b >> 12].data(), 2);
        std::memcpy(out + 6, pairs[b & 0xFFF].data(), 2);
        in += 6;
        out += 8;
        left -= 6;
    }
    if (left >= 3) {
        const uint32_t a = (uint32_t{in[0]} << 16) | (uint32_t{in[1]} << 8) | in[2];
        std::memcpy(out, pairs[a >> 12].data(), 2);
        std::memcpy(out + 2, pairs[a & 0xFFF].data(), 2);
        in += 3;
        out += 4;
        left -= 3;
    }
    if (left == 1) {
        out[0] = alphabet[in[0] >> 2];
        out[1] = alphabet[(in[0] & 0x03) << 4];
        out[2] = '=';
        out[3] = '=';
    } else if (left == 2) {
        out[0] = alphabet[in[0] >> 2];
        out[1] = alphabet[((in[0] & 0x03) << 4) | (in[1] >> 4)];
        out[2] = alphabet[(in[1] & 0x0F) << 2];
        out[3] = '=';
    }
    *puiSize = static_cast<uint32_t>(need);
    return ZOK;
}

KESTRO_API uint32_t Zbase64_Decode(const char *pcText, uint32_t uiLen, uint8_t *pucOut,
                                   uint32_t *puiSize) {
    if (pcText == nullptr || uiLen == 0 || (uiLen & 3) != 0 || puiSize == nullptr) return ZFAILED;
    const uint32_t full = uiLen / 4 * 3;
    if (pucOut == nullptr) {
        *puiSize = full;
        return ZOK;
    }
    uint32_t need = full;
    if (pcText[uiLen - 1] == '=') --need;
    if (pcText[uiLen - 2] == '=') --need;
    if (*puiSize < need) return ZFAILED;

    // The flags of all quads are gathered and judged at the end: an
    // invalid character anywhere fails the text, and only a text that
    // holds characters of both alphabets needs the quad-by-quad check.
    const auto *in = reinterpret_cast<const uint8_t *>(pcText);
    const uint32_t quads = uiLen / 4;
    uint8_t *out = pucOut;
    uint32_t flags = 0;
    uint32_t q = 0;
    for (; q + 2 < quads && q * 3 + 8 <= need; q += 2, in += 8, out += 6) {
        const uint32_t a = Quad(in);
        const uint32_t b = Quad(in + 4);
        flags |= a | b;
        Store6(out, a, b);
    }
    for (; q + 1 < quads; ++q, in += 4, out += 3) {
        const uint32_t v = Quad(in);
        flags |= v;
        out[0] = static_cast<uint8_t>(v >> 16);
        out[1] = static_cast<uint8_t>(v >> 8);
        out[2] = static_cast<uint8_t>(v);
    }
    // The last quad writes only what the padding leaves.
    const uint32_t v = Quad(in);
    flags |= v;
    const uint8_t tail[3] = {static_cast<uint8_t>(v >> 16), static_cast<uint8_t>(v >> 8),
                             static_cast<uint8_t>(v)};
    std::memcpy(out, tail, need - (full - 3));
    if ((flags & kBad) != 0) return ZFAILED;
    if ((flags & (kStdOnly | kUrlOnly)) == (kStdOnly | kUrlOnly) &&
        MixedAlphabets(reinterpret_cast<const uint8_t *>(pcText), quads)) {
        return ZFAILED;
    }
    *puiSize = need;
    return ZOK;
}

}  // extern "C"
