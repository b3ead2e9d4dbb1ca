// What the fuzz targets share: the layer started without output, input
// bytes read one at a time, and the bytes of a data buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "kestro_lite.h"

namespace kfuzz {

inline void Quiet(const char *) {}

// Starts the layer with nothing printed and the system log closed:
// refusals are part of the sequences, their log lines are not wanted.
inline void StartQuietLayer() {
    Zos_CfgSetPrintDisp(Quiet);
    if (Zos_SysInit() != ZOK) std::abort();
    Zos_LogClose(Zos_LogGetZosId(), ZOS_LOG_LEVEL_ALL);
}

// The input as a stream of bytes; zeros once it is used up.
struct Input {
    const uint8_t *p;
    size_t n;
    uint8_t Byte() {
        if (n == 0) return 0;
        --n;
        return *p++;
    }
};

// The bytes a data buffer holds.
inline std::string DbufText(ZDBUF b) {
    std::string s(Zos_DbufLen(b), '\0');
    if (!s.empty() && Zos_DbufCopyD(b, 0, static_cast<uint32_t>(s.size()), s.data()) != ZOK) {
        return "<copy failed>";
    }
    return s;
}

}  // namespace kfuzz
