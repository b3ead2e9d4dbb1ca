// UTF-8 <-> BMP conversions and pinyin spelling.
//
// The converters accept 1- to 3-byte sequences only; a four-byte sequence
// (outside the BMP) ends the text like an invalid one. Overlong forms are
// refused so that no hidden NUL can slip into a BMP string; surrogate units
// are carried through in both directions so that every BMP string survives
// a round trip.
#include <cstring>

#include "zos_mem.h"
#include "zucs.h"

namespace {

// Decodes the sequence at p (n > 0 bytes available). Returns its length
// (1-3) and the unit, or 0 when it is invalid, truncated or four bytes long.
uint32_t DecodeBmp(const uint8_t *p, uint32_t n, uint16_t *unit) {
    const uint32_t c = p[0];
    if (c < 0x80u) {
        *unit = static_cast<uint16_t>(c);
        return 1;
    }
    if ((c & 0xE0u) == 0xC0u) {
        if (n < 2 || (p[1] & 0xC0u) != 0x80u) return 0;
        const uint32_t v = ((c & 0x1Fu) << 6) | (p[1] & 0x3Fu);
        if (v < 0x80u) return 0;
        *unit = static_cast<uint16_t>(v);
        return 2;
    }
    if ((c & 0xF0u) == 0xE0u) {
        if (n < 3 || (p[1] & 0xC0u) != 0x80u || (p[2] & 0xC0u) != 0x80u) return 0;
        const uint32_t v = ((c & 0x0Fu) << 12) | ((p[1] & 0x3Fu) << 6) | (p[2] & 0x3Fu);
        if (v < 0x800u) return 0;
        *unit = static_cast<uint16_t>(v);
        return 3;
    }
    return 0;
}

uint32_t Utf8Width(uint16_t unit) {
    if (unit < 0x80u) return 1;
    return unit < 0x800u ? 2 : 3;
}

// Writes the UTF-8 form of unit at out (room checked by the caller).
uint32_t EncodeUnit(uint16_t unit, char *out) {
    auto *o = reinterpret_cast<uint8_t *>(out);
    if (unit < 0x80u) {
        o[0] = static_cast<uint8_t>(unit);
        return 1;
    }
    if (unit < 0x800u) {
        o[0] = static_cast<uint8_t>(0xC0u | (unit >> 6));
        o[1] = static_cast<uint8_t>(0x80u | (unit & 0x3Fu));
        return 2;
    }
    o[0] = static_cast<uint8_t>(0xE0u | (unit >> 12));
    o[1] = static_cast<uint8_t>(0x80u | ((unit >> 6) & 0x3Fu));
    o[2] = static_cast<uint8_t>(0x80u | (unit & 0x3Fu));
    return 3;
}

// The first reading of a CJK character, or null when it has none.
const char *FirstReading(uint16_t unit) {
    const uint32_t i = unit - ZUCS_PINYIN_FIRST;
    if (m_acpinyin_count[i] == 0) return nullptr;
    const uint8_t *idx = ppinyin_index[i];
    const uint32_t n = static_cast<uint32_t>(idx[0]) + idx[1];
    return n < ZUCS_PINYIN_READINGS ? ppinyin_all_pinyin[n] : nullptr;
}

// The allocating forms: a heap result of `units` elements (terminator
// included) filled by `fill`, which returns the count it wrote.
template <typename T, typename Fill>
uint32_t AllocResult(T **ppResult, uint32_t *puiCount, uint64_t units, Fill fill) {
    if (ppResult == nullptr) return ZFAILED;
    *ppResult = nullptr;
    if (puiCount != nullptr) *puiCount = 0;
    const uint64_t bytes = units * sizeof(T);
    if (bytes > 0x7FFFFFFEu) return ZFAILED;
    auto *out = static_cast<T *>(Zos_Malloc(static_cast<uint32_t>(bytes)));
    if (out == nullptr) return ZFAILED;
    const uint32_t n = fill(out, static_cast<uint32_t>(units));
    *ppResult = out;
    if (puiCount != nullptr) *puiCount = n;
    return ZOK;
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zucs_Utf8StrLen(const char *pcText, uint32_t uiLen) {
    if (pcText == nullptr) return 0;
    const auto *p = reinterpret_cast<const uint8_t *>(pcText);
    uint32_t i = 0, count = 0;
    uint16_t unit = 0;
    while (i < uiLen && p[i] != 0) {
        const uint32_t step = DecodeBmp(p + i, uiLen - i, &unit);
        if (step == 0) break;
        i += step;
        ++count;
    }
    return count;
}

KESTRO_API uint32_t Zucs_Utf8Size(const uint16_t *pwStr, uint32_t uiCount) {
    if (pwStr == nullptr) return 0;
    uint32_t size = 0;
    for (uint32_t i = 0; i < uiCount && pwStr[i] != 0; ++i) size += Utf8Width(pwStr[i]);
    return size;
}

KESTRO_API uint32_t Zucs_BmpStrLen(const uint16_t *pwStr) {
    if (pwStr == nullptr) return 0;
    uint32_t n = 0;
    while (pwStr[n] != 0) ++n;
    return n;
}

KESTRO_API uint32_t Zucs_Utf8ToBmp(uint16_t *pwOut, uint32_t uiOutCount, const char *pcText,
                                   uint32_t uiLen) {
    if (pwOut == nullptr || uiOutCount == 0) return 0;
    uint32_t n = 0;
    if (pcText != nullptr) {
        const auto *p = reinterpret_cast<const uint8_t *>(pcText);
        uint32_t i = 0;
        while (n + 1 < uiOutCount && i < uiLen && p[i] != 0) {
            const uint32_t step = DecodeBmp(p + i, uiLen - i, &pwOut[n]);
            if (step == 0) break;
            i += step;
            ++n;
        }
    }
    pwOut[n] = 0;
    return n;
}

KESTRO_API uint32_t Zucs_BmpToUtf8(char *pcOut, uint32_t uiOutSize, const uint16_t *pwStr,
                                   uint32_t uiCount) {
    if (pcOut == nullptr) return Zucs_Utf8Size(pwStr, uiCount);
    if (uiOutSize == 0) return 0;
    uint32_t len = 0;
    if (pwStr != nullptr) {
        for (uint32_t i = 0; i < uiCount && pwStr[i] != 0; ++i) {
            if (len + Utf8Width(pwStr[i]) >= uiOutSize) break;  // keep a byte for the NUL
            len += EncodeUnit(pwStr[i], pcOut + len);
        }
    }
    pcOut[len] = '\0';
    return len;
}

KESTRO_API uint32_t Zucs_Utf8ToBmpX(uint16_t **ppwResult, uint32_t *puiCount, const char *pcText,
                                    uint32_t uiLen) {
    // Checked first: the input is not read for a call without a result.
    if (ppwResult == nullptr) return ZFAILED;
    const uint64_t units = uint64_t{Zucs_Utf8StrLen(pcText, uiLen)} + 1;
    return AllocResult(ppwResult, puiCount, units, [&](uint16_t *out, uint32_t n) {
        return Zucs_Utf8ToBmp(out, n, pcText, uiLen);
    });
}

KESTRO_API uint32_t Zucs_BmpToUtf8X(char **ppcResult, uint32_t *puiSize, const uint16_t *pwStr,
                                    uint32_t uiCount) {
    // Checked first: the input is not read for a call without a result.
    if (ppcResult == nullptr) return ZFAILED;
    const uint64_t units = uint64_t{Zucs_Utf8Size(pwStr, uiCount)} + 1;
    return AllocResult(ppcResult, puiSize, units, [&](char *out, uint32_t n) {
        return Zucs_BmpToUtf8(out, n, pwStr, uiCount);
    });
}

KESTRO_API uint32_t Zucs_BmpToCpStr(char *pcOut, uint32_t uiOutSize, const uint16_t * /*pwStr*/,
                                    uint32_t /*uiCount*/) {
    if (pcOut != nullptr && uiOutSize != 0) std::memset(pcOut, 0, uiOutSize);
    return ZFAILED;
}

KESTRO_API uint32_t Zucs_CpStrToBmp(uint16_t *pwOut, uint32_t uiOutCount, const char * /*pcText*/,
                                    uint32_t /*uiLen*/) {
    if (pwOut != nullptr && uiOutCount != 0) std::memset(pwOut, 0, uiOutCount * sizeof(uint16_t));
    return ZFAILED;
}

KESTRO_API uint32_t Zucs_BmpToPinyin(const uint16_t *pwStr, uint32_t uiCount, char *pcOut,
                                     uint32_t uiOutSize, const char *pcSep) {
    if (pwStr == nullptr || pcOut == nullptr || uiOutSize == 0) return ZFAILED;
    const char sep = pcSep != nullptr ? pcSep[0] : '\0';
    uint32_t len = 0;
    for (uint32_t i = 0; i < uiCount && pwStr[i] != 0; ++i) {
        const uint16_t unit = pwStr[i];
        char item[2];
        const char *text = item;
        uint32_t n = 0;
        if (unit >= ZUCS_PINYIN_FIRST && unit <= ZUCS_PINYIN_LAST) {
            text = FirstReading(unit);
            if (text == nullptr) continue;  // no reading: nothing, not even a separator
            n = static_cast<uint32_t>(std::strlen(text));
        } else if ((unit & 0xFFu) < 0x80u) {
            char c = static_cast<char>(unit & 0xFFu);
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
            item[0] = c;
            n = 1;
        } else {
            std::memcpy(item, &unit, 2);  // the unit's two bytes as they lie in memory
            n = 2;
        }
        if (len + n >= uiOutSize) break;
        std::memcpy(pcOut + len, text, n);
        len += n;
        if (sep != '\0') {
            if (len + 1 >= uiOutSize) break;
            pcOut[len++] = sep;
        }
    }
    pcOut[len] = '\0';
    return ZOK;
}

}  // extern "C"
