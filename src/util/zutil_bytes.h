// Word rotations and 32-bit loads and stores in a fixed byte order, shared
// by the digests, the ciphers and the checksums.
#pragma once

#include <cstdint>
#include <cstring>

namespace zutil {

// n in 1..31.
constexpr uint32_t Rotl(uint32_t v, int n) {
    return (v << n) | (v >> (32 - n));
}

constexpr uint32_t Rotr(uint32_t v, int n) {
    return (v >> n) | (v << (32 - n));
}

inline uint32_t LoadLe32(const uint8_t *p) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
#else
    return uint32_t{p[0]} | (uint32_t{p[1]} << 8) | (uint32_t{p[2]} << 16) | (uint32_t{p[3]} << 24);
#endif
}

inline void StoreLe32(uint8_t *p, uint32_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
    p[2] = static_cast<uint8_t>(v >> 16);
    p[3] = static_cast<uint8_t>(v >> 24);
}

inline uint32_t LoadBe32(const uint8_t *p) {
    return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}

inline void StoreBe32(uint8_t *p, uint32_t v) {
    p[0] = static_cast<uint8_t>(v >> 24);
    p[1] = static_cast<uint8_t>(v >> 16);
    p[2] = static_cast<uint8_t>(v >> 8);
    p[3] = static_cast<uint8_t>(v);
}

}  // namespace zutil
