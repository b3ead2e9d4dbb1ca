// Strict UTF-8 decoding with a caller-held state, and UTF-16 output.
//
// The state is a plain record so several decodes can run side by side.
// Every read goes through NextCont, which checks the index against the
// length, so no input can make the decoder read past its text.
#include <cstring>

#include "zucs.h"

namespace {

// The next continuation byte's six bits, or -1 at the end or for any other
// byte (the byte is consumed either way when present).
int32_t NextCont(ST_UTF8_DECODE *s) {
    if (s->iIndex >= s->iLength) return -1;
    const uint32_t c = static_cast<uint8_t>(s->pcText[s->iIndex]);
    s->iIndex += 1;
    return (c & 0xC0u) == 0x80u ? static_cast<int32_t>(c & 0x3Fu) : -1;
}

void StoreUnit(uint16_t *out, uint32_t unit, bool bigEndian) {
    if (bigEndian) {
        const uint8_t bytes[2] = {static_cast<uint8_t>(unit >> 8), static_cast<uint8_t>(unit)};
        std::memcpy(out, bytes, 2);
    } else {
        *out = static_cast<uint16_t>(unit);
    }
}

}  // namespace

extern "C" {

KESTRO_API void utf8_decode_init(ST_UTF8_DECODE *pstState, const char *pcText, int32_t iLength) {
    if (pstState == nullptr) return;
    pstState->iIndex = 0;
    pstState->pcText = pcText;
    pstState->iLength = pcText != nullptr && iLength > 0 ? iLength : 0;
    pstState->iChar = 0;
    pstState->iByte = 0;
}

KESTRO_API int32_t utf8_decode_next(ST_UTF8_DECODE *pstState) {
    if (pstState == nullptr) return UTF8_ERROR;
    ST_UTF8_DECODE *s = pstState;
    if (s->iIndex >= s->iLength) return s->iIndex == s->iLength ? UTF8_END : UTF8_ERROR;
    s->iByte = s->iIndex;
    s->iChar += 1;
    const int32_t c = static_cast<uint8_t>(s->pcText[s->iIndex]);
    s->iIndex += 1;

    if ((c & 0x80) == 0) return c;
    if ((c & 0xE0) == 0xC0) {
        const int32_t c1 = NextCont(s);
        if (c1 < 0) return UTF8_ERROR;
        const int32_t r = ((c & 0x1F) << 6) | c1;
        return r >= 0x80 ? r : UTF8_ERROR;
    }
    if ((c & 0xF0) == 0xE0) {
        const int32_t c1 = NextCont(s);
        const int32_t c2 = c1 < 0 ? -1 : NextCont(s);
        if (c2 < 0) return UTF8_ERROR;
        const int32_t r = ((c & 0x0F) << 12) | (c1 << 6) | c2;
        if (r < 0x800 || (r >= 0xD800 && r <= 0xDFFF)) return UTF8_ERROR;
        return r;
    }
    // Four-byte leads are recognised by the mask 0xF1: the odd leads 0xF1
    // and 0xF3 are refused along with everything else that fails it.
    if ((c & 0xF1) == 0xF0) {
        const int32_t c1 = NextCont(s);
        const int32_t c2 = c1 < 0 ? -1 : NextCont(s);
        const int32_t c3 = c2 < 0 ? -1 : NextCont(s);
        if (c3 < 0) return UTF8_ERROR;
        const int32_t r = ((c & 0x07) << 18) | (c1 << 12) | (c2 << 6) | c3;
        return r >= 0x10000 && r <= 0x10FFFF ? r : UTF8_ERROR;
    }
    return UTF8_ERROR;
}

KESTRO_API int32_t utf8_decode_at_byte(const ST_UTF8_DECODE *pstState) {
    return pstState != nullptr ? pstState->iByte : 0;
}

KESTRO_API int32_t utf8_decode_at_character(const ST_UTF8_DECODE *pstState) {
    if (pstState == nullptr) return 0;
    return pstState->iChar > 0 ? pstState->iChar - 1 : 0;
}

KESTRO_API int32_t utf8_to_utf16(uint16_t *pwOut, const char *pcText, int32_t iLength,
                                 int32_t iBigEndian) {
    if (pwOut == nullptr) return 0;
    ST_UTF8_DECODE state;
    utf8_decode_init(&state, pcText, iLength);
    const bool be = iBigEndian != 0;
    int32_t n = 0;
    for (;;) {
        int32_t c = utf8_decode_next(&state);
        if (c < 0) return n;
        if (c < 0x10000) {
            StoreUnit(&pwOut[n], static_cast<uint32_t>(c), be);
            n += 1;
        } else {
            // Only the low 16 bits go into the pair: plane 1 comes out
            // right, the higher planes fold onto it.
            c &= 0xFFFF;
            StoreUnit(&pwOut[n], 0xD800u | (static_cast<uint32_t>(c) >> 10), be);
            StoreUnit(&pwOut[n + 1], 0xDC00u | (static_cast<uint32_t>(c) & 0x3FFu), be);
            n += 2;
        }
    }
}

}  // extern "C"
