// IPv6 text conversion used by the address rules: text to 16 bytes (the
// usual forms, "::" and a dotted IPv4 tail) and 16 bytes to the shortest
// text (longest zero run as "::", IPv4-compatible and -mapped tails dotted).
#pragma once

#include <cstdint>

namespace abnf {

// 0 and the address for a NUL-terminated text, 1 when it is no address.
uint32_t Pton6(const char *text, uint8_t addr[16]);
// 0 and the text (at most 46 bytes with its NUL) when it fits `size`.
uint32_t Ntop6(const uint8_t addr[16], char *out, uint32_t size);

}  // namespace abnf
