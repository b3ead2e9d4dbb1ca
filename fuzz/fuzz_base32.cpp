// Base32: any text decodes or fails cleanly; data comes back from its
// encoding, whole groups padded with zeros, except that a final group of
// three bytes keeps only the high four bits of its last byte.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "zbase32.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0 || size > 1u << 20) return 0;
    const auto len = static_cast<uint32_t>(size);

    std::vector<uint8_t> bin(len / 8 * 5 + 5);
    uint32_t binLen = static_cast<uint32_t>(bin.size());
    const uint32_t rc =
        Zbase32_Decode(reinterpret_cast<const char *>(data), len, bin.data(), &binLen);
    if (rc == 0 && binLen != len / 8 * 5) std::abort();

    uint32_t textLen = 0;
    if (Zbase32_Encode(data, len, nullptr, &textLen) != 0) std::abort();
    std::vector<char> text(textLen, 'A');  // the unwritten tail position reads as zero
    if (Zbase32_Encode(data, len, text.data(), &textLen) != 0) std::abort();
    std::vector<uint8_t> back(textLen / 8 * 5);
    uint32_t backLen = static_cast<uint32_t>(back.size());
    if (Zbase32_Decode(text.data(), textLen, back.data(), &backLen) != 0) std::abort();
    const bool lossy = len % 5 == 3;
    const uint32_t exact = lossy ? len - 1 : len;
    if (std::memcmp(back.data(), data, exact) != 0) std::abort();
    if (lossy && (back[len - 1] & 0xF0) != (data[len - 1] & 0xF0)) std::abort();
    for (uint32_t i = len; i < backLen; ++i) {
        if (back[i] != 0) std::abort();
    }
    return 0;
}
