// Byte-string helpers shared by the codec tests.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ctest {

// Bytes of a hexadecimal text (either case, no separators).
inline std::vector<uint8_t> Hex(const std::string &hex) {
    std::vector<uint8_t> out;
    auto nibble = [](char c) { return c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10; };
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        out.push_back(static_cast<uint8_t>(nibble(hex[i]) << 4 | nibble(hex[i + 1])));
    }
    return out;
}

inline std::string ToHex(const uint8_t *p, size_t n) {
    static const char kDigits[] = "0123456789abcdef";
    std::string s;
    for (size_t i = 0; i < n; ++i) {
        s += kDigits[p[i] >> 4];
        s += kDigits[p[i] & 15];
    }
    return s;
}

inline std::vector<uint8_t> Bytes(const std::string &s) {
    return std::vector<uint8_t>(s.begin(), s.end());
}

}  // namespace ctest
