// Base16: upper-case hexadecimal; decoding accepts upper case only.
#include <array>
#include <cstring>

#include "zbase16.h"

namespace {

constexpr char kDigits[] = "0123456789ABCDEF";
constexpr uint8_t kBad = 0xFF;

// Both characters of every byte value, in memory order.
constexpr std::array<std::array<char, 2>, 256> MakePairs() {
    std::array<std::array<char, 2>, 256> t{};
    for (uint32_t v = 0; v < 256; ++v) t[v] = {kDigits[v >> 4], kDigits[v & 15]};
    return t;
}

constexpr std::array<uint8_t, 256> MakeDecode() {
    std::array<uint8_t, 256> t{};
    for (auto &e : t) e = kBad;
    for (uint8_t v = 0; v < 16; ++v) t[static_cast<uint8_t>(kDigits[v])] = v;
    return t;
}

constexpr auto kPairs = MakePairs();
constexpr auto kDecode = MakeDecode();

}  // namespace

extern "C" {

KESTRO_API uint32_t Zbase16_Encode(const uint8_t *pucData, uint32_t uiLen, char *pcOut,
                                   uint32_t *puiSize) {
    if (pucData == nullptr || uiLen == 0 || uiLen > 0x7FFFFFFFu || puiSize == nullptr) {
        return ZFAILED;
    }
    const uint32_t need = uiLen * 2;
    if (pcOut == nullptr) {
        *puiSize = need;
        return ZOK;
    }
    if (*puiSize < need) return ZFAILED;
    for (uint32_t i = 0; i < uiLen; ++i) std::memcpy(pcOut + 2 * i, kPairs[pucData[i]].data(), 2);
    *puiSize = need;
    return ZOK;
}

KESTRO_API uint32_t Zbase16_Decode(const char *pcText, uint32_t uiLen, uint8_t *pucOut,
                                   uint32_t *puiSize) {
    if (pcText == nullptr || uiLen == 0 || (uiLen & 1) != 0 || puiSize == nullptr) return ZFAILED;
    const uint32_t need = uiLen / 2;
    if (pucOut == nullptr) {
        *puiSize = need;
        return ZOK;
    }
    if (*puiSize < need) return ZFAILED;
    const auto *in = reinterpret_cast<const uint8_t *>(pcText);
    for (uint32_t i = 0; i < need; ++i) {
        const uint8_t hi = kDecode[in[2 * i]];
        const uint8_t lo = kDecode[in[2 * i + 1]];
        if (((hi | lo) & 0xF0) != 0) return ZFAILED;
        pucOut[i] = static_cast<uint8_t>((hi << 4) | lo);
    }
    *puiSize = need;
    return ZOK;
}

}  // extern "C"
