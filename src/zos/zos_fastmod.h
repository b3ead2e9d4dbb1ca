// Remainder of a 32-bit value by a divisor fixed in advance, without a
// division: the divisor's 64-bit reciprocal M = floor((2^64 - 1) / d) + 1
// is made once, and a mod d is then the high word of the 64 x 32-bit
// product (M * a mod 2^64) * d. The result equals a % d for every 32-bit
// a and every divisor from 1 up (d = 1 gives M = 0 and so 0).
//
// Two multiplications where a 64-bit host has a 128-bit product; the
// portable form splits the final product into two 32 x 32-bit ones, which
// 32-bit ARM does in single instructions (its divide is a library call
// there when the processor has no divide instruction).
#pragma once

#include <cstdint>

namespace zos {

constexpr uint64_t FastModMul(uint32_t d) {
    return UINT64_MAX / d + 1;
}

// The final product's high word through 32 x 32-bit products only.
constexpr uint32_t FastModSplit(uint32_t a, uint64_t m, uint32_t d) {
    const uint64_t low = m * a;
    const uint64_t top = (low >> 32) * d;
    const uint64_t bottom = ((low & 0xFFFFFFFFu) * d) >> 32;
    return static_cast<uint32_t>((top + bottom) >> 32);
}

constexpr uint32_t FastMod(uint32_t a, uint64_t m, uint32_t d) {
#if defined(__SIZEOF_INT128__)
    return static_cast<uint32_t>((static_cast<unsigned __int128>(m * a) * d) >> 64);
#else
    return FastModSplit(a, m, d);
#endif
}

}  // namespace zos
