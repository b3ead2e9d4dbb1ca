// The strict decoder and the UTF-16 encoder: results stay in range, the
// state never points outside the text, and both agree on the unit count.
#include <vector>

#include "zucs.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 65536) return 0;
    const auto len = static_cast<int32_t>(size);
    const auto *text = reinterpret_cast<const char *>(data);
    ST_UTF8_DECODE st;
    utf8_decode_init(&st, text, len);
    int32_t units = 0, c = 0;
    while ((c = utf8_decode_next(&st)) >= 0) {
        if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) __builtin_trap();
        if (utf8_decode_at_byte(&st) >= len || utf8_decode_at_character(&st) >= len) {
            __builtin_trap();
        }
        units += c > 0xFFFF ? 2 : 1;
    }
    if (c != UTF8_END && c != UTF8_ERROR) __builtin_trap();
    std::vector<uint16_t> out(size > 0 ? size : 1u);
    for (int32_t be = 0; be < 2; ++be) {
        const int32_t n = utf8_to_utf16(out.data(), text, len, be);
        if (n < 0 || n > len || (c == UTF8_END && n != units)) __builtin_trap();
    }
    return 0;
}
