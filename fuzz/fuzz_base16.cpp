// Base16: any text decodes or fails cleanly; a decoded text re-encodes to
// itself; data comes back from its encoding.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "zbase16.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0 || size > 1u << 20) return 0;
    const auto len = static_cast<uint32_t>(size);
    const char *text = reinterpret_cast<const char *>(data);

    std::vector<uint8_t> bin(len / 2 + 1);
    uint32_t binLen = static_cast<uint32_t>(bin.size());
    if (Zbase16_Decode(text, len, bin.data(), &binLen) == 0) {
        std::vector<char> again(len);
        uint32_t againLen = len;
        if (Zbase16_Encode(bin.data(), binLen, again.data(), &againLen) != 0) std::abort();
        if (againLen != len || std::memcmp(again.data(), text, len) != 0) std::abort();
    }

    std::vector<char> hex(2 * size);
    uint32_t hexLen = static_cast<uint32_t>(hex.size());
    if (Zbase16_Encode(data, len, hex.data(), &hexLen) != 0) std::abort();
    std::vector<uint8_t> back(len);
    uint32_t backLen = len;
    if (Zbase16_Decode(hex.data(), hexLen, back.data(), &backLen) != 0) std::abort();
    if (backLen != len || std::memcmp(back.data(), data, len) != 0) std::abort();
    return 0;
}
