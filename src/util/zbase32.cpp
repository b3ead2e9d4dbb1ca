// Base32 of RFC 4648 ("A".."Z", "2".."7").
//
// A final group of three bytes is written as only four characters and
// three "=", and the eighth position of the group is left untouched, so
// the last four bits of such data are dropped. Existing peers produce and
// expect exactly that text, so the behaviour is kept.
#include <array>

#include "zbase32.h"

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";
constexpr uint8_t kBad = 0xFF;

constexpr std::array<uint8_t, 256> MakeDecode() {
    std::array<uint8_t, 256> t{};
    for (auto &e : t) e = kBad;
    for (uint8_t v = 0; v < 32; ++v) t[static_cast<uint8_t>(kAlphabet[v])] = v;
    t['='] = 0;
    return t;
}

constexpr std::array<uint8_t, 256> kDecode = MakeDecode();

// Characters written for a final group of 1..4 bytes (before the "=").
constexpr uint32_t kTailChars[5] = {0, 2, 4, 4, 7};
// "=" written after them; the three-byte group leaves its last position.
constexpr uint32_t kTailPads[5] = {0, 6, 4, 3, 1};

void EncodeGroup(const uint8_t *in, uint32_t nChars, char *out) {
    uint64_t bits = 0;
    for (uint32_t i = 0; i < 5; ++i) bits = (bits << 8) | in[i];
    for (uint32_t i = 0; i < nChars; ++i) out[i] = kAlphabet[(bits >> (35 - 5 * i)) & 31];
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zbase32_Encode(const uint8_t *pucData, uint32_t uiLen, char *pcOut,
                                   uint32_t *puiSize) {
    if (pucData == nullptr || uiLen == 0 || puiSize == nullptr) return ZFAILED;
    const uint64_t need = (static_cast<uint64_t>(uiLen) + 4) / 5 * 8;
    if (need > 0xFFFFFFFFu) return ZFAILED;
    if (pcOut == nullptr) {
        *puiSize = static_cast<uint32_t>(need);
        return ZOK;
    }
    if (*puiSize < need) return ZFAILED;

    const uint8_t *in = pucData;
    char *out = pcOut;
    uint32_t left = uiLen;
    for (; left >= 5; in += 5, out += 8, left -= 5) EncodeGroup(in, 8, out);
    if (left != 0) {
        uint8_t group[5] = {};
        for (uint32_t i = 0; i < left; ++i) group[i] = in[i];
        EncodeGroup(group, kTailChars[left], out);
        for (uint32_t i = 0; i < kTailPads[left]; ++i) out[kTailChars[left] + i] = '=';
    }
    *puiSize = static_cast<uint32_t>(need);
    return ZOK;
}

KESTRO_API uint32_t Zbase32_Decode(const char *pcText, uint32_t uiLen, uint8_t *pucOut,
                                   uint32_t *puiSize) {
    if (pcText == nullptr || uiLen == 0 || (uiLen & 7) != 0 || puiSize == nullptr) return ZFAILED;
    const uint32_t need = uiLen / 8 * 5;
    if (pucOut == nullptr) {
        *puiSize = need;
        return ZOK;
    }
    if (*puiSize < need) return ZFAILED;

    const auto *in = reinterpret_cast<const uint8_t *>(pcText);
    uint8_t *out = pucOut;
    for (uint32_t g = 0; g < uiLen / 8; ++g, in += 8, out += 5) {
        uint64_t bits = 0;
        uint8_t bad = 0;
        for (uint32_t i = 0; i < 8; ++i) {
            const uint8_t v = kDecode[in[i]];
            bad |= static_cast<uint8_t>(v & 0xE0);
            bits = (bits << 5) | (v & 31u);
        }
        if (bad != 0) return ZFAILED;
        for (uint32_t i = 0; i < 5; ++i) out[i] = static_cast<uint8_t>(bits >> (32 - 8 * i));
    }
    *puiSize = need;
    return ZOK;
}

}  // extern "C"
