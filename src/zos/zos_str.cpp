// String utilities and number conversions.
#include <cstring>

#include "zos_str.h"

extern "C" {

KESTRO_API uint32_t Zos_StrLen(const char *pcStr) {
    return pcStr == nullptr ? 0 : static_cast<uint32_t>(std::strlen(pcStr));
}

}  // extern "C"
