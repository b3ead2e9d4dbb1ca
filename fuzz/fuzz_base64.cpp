// Base64: any text decodes or fails cleanly, and any data comes back from
// its encoding in either alphabet.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "zbase64.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0 || size > 1u << 20) return 0;
    const auto len = static_cast<uint32_t>(size);

    // As text: a decoded result must survive encode and decode again.
    std::vector<uint8_t> bin(len);
    uint32_t binLen = len;
    if (Zbase64_Decode(reinterpret_cast<const char *>(data), len, bin.data(), &binLen) == 0 &&
        binLen != 0) {
        std::vector<char> text(binLen / 3 * 4 + 4);
        uint32_t textLen = static_cast<uint32_t>(text.size());
        if (Zbase64_Encode(bin.data(), binLen, 0, text.data(), &textLen) != 0) std::abort();
        std::vector<uint8_t> again(binLen);
        uint32_t againLen = binLen;
        if (Zbase64_Decode(text.data(), textLen, again.data(), &againLen) != 0) std::abort();
        if (againLen != binLen || std::memcmp(again.data(), bin.data(), binLen) != 0) std::abort();
    }

    // As data: the round trip is exact in both alphabets.
    for (uint32_t url = 0; url < 2; ++url) {
        uint32_t textLen = 0;
        if (Zbase64_Encode(data, len, url, nullptr, &textLen) != 0) std::abort();
        std::vector<char> text(textLen);
        if (Zbase64_Encode(data, len, url, text.data(), &textLen) != 0) std::abort();
        std::vector<uint8_t> back(len);
        uint32_t backLen = len;
        if (Zbase64_Decode(text.data(), textLen, back.data(), &backLen) != 0) std::abort();
        if (backLen != len || std::memcmp(back.data(), data, len) != 0) std::abort();
    }
    return 0;
}
