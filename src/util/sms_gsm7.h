// Helpers shared by the SMS sources (not exported).
#pragma once

#include <cstdint>

namespace sms {

// Septets the NUL-terminated text needs; sets *unrep (when given) to 1 if a
// character is not representable. Never clears it.
uint32_t ScanText(const char *text, int32_t *unrep);

// Unpacks `septets` LSB-first septets and converts them to 8-bit text in
// out, which holds septets + 1 bytes. Returns the text length.
uint32_t UnpackLsb(const uint8_t *packed, uint32_t septets, char *out);

// Converts the first `digits` hexadecimal characters (two a byte; a lone
// last one is ignored) into out. Returns the byte count.
uint32_t HexToBytes(const char *hex, uint32_t digits, uint8_t *out);

}  // namespace sms
