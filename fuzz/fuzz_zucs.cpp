// UTF-8 to BMP and back: the output size comes from the input, and what
// converts must come back as the same bytes. Pinyin of the units too.
#include <cstring>
#include <vector>

#include "zucs.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1 || size > 65536) return 0;
    const uint32_t room = 1u + data[0];
    const auto *text = reinterpret_cast<const char *>(data + 1);
    const auto len = static_cast<uint32_t>(size - 1);
    std::vector<uint16_t> bmp(room);
    const uint32_t n = Zucs_Utf8ToBmp(bmp.data(), room, text, len);
    const uint32_t chars = Zucs_Utf8StrLen(text, len);
    if (n >= room || bmp[n] != 0 || n > chars || Zucs_BmpStrLen(bmp.data()) != n) {
        __builtin_trap();
    }
    const uint32_t need = Zucs_Utf8Size(bmp.data(), n);
    std::vector<char> back(need + 1u);
    if (Zucs_BmpToUtf8(back.data(), need + 1u, bmp.data(), n) != need ||
        Zucs_BmpToUtf8(nullptr, 0, bmp.data(), n) != need || need > len ||
        std::memcmp(back.data(), text, need) != 0) {
        __builtin_trap();
    }
    std::vector<char> spelled(room);
    if (Zucs_BmpToPinyin(bmp.data(), n, spelled.data(), room, ",") != ZOK) __builtin_trap();
    return 0;
}
