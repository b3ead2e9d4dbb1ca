// IPv6 text conversion for the address rules.
#include "abnf_inet.h"

#include <cstring>

#include "zos_fmt.h"

namespace abnf {

namespace {

int Hex(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// A dotted IPv4 text into 4 bytes: four decimal parts up to 255, no
// leading zeros beyond a single 0.
bool Dotted(const char *p, uint8_t out[4]) {
    for (int i = 0; i < 4; i++) {
        if (i > 0 && *p++ != '.') return false;
        if (*p < '0' || *p > '9') return false;
        uint32_t v = 0;
        int n = 0;
        while (*p >= '0' && *p <= '9') {
            if (n > 0 && v == 0) return false;
            v = v * 10 + uint32_t(*p++ - '0');
            if (++n > 3 || v > 255) return false;
        }
        out[i] = uint8_t(v);
    }
    return *p == '\0';
}

}  // namespace

uint32_t Pton6(const char *text, uint8_t addr[16]) {
    if (text == nullptr) return 1;
    uint8_t out[16] = {};
    int groups = 0;  // 16-bit groups written
    int gap = -1;    // group index of "::"
    const char *p = text;
    if (p[0] == ':') {
        if (p[1] != ':') return 1;
        gap = 0;
        p += 2;
        if (*p == '\0') {
            std::memcpy(addr, out, 16);
            return 0;
        }
    }
    for (;;) {
        // A dotted tail takes the last two groups.
        const char *q = p;
        while (Hex(*q) >= 0) q++;
        if (*q == '.') {
            if (groups > 6 || !Dotted(p, out + groups * 2)) return 1;
            groups += 2;
            break;
        }
        uint32_t v = 0;
        int n = 0;
        while (Hex(*p) >= 0) {
            v = v * 16 + uint32_t(Hex(*p++));
            if (++n > 4) return 1;
        }
        if (n == 0 || groups >= 8) return 1;
        out[groups * 2] = uint8_t(v >> 8);
        out[groups * 2 + 1] = uint8_t(v);
        groups++;
        if (*p == '\0') break;
        if (*p++ != ':') return 1;
        if (*p == ':') {
            if (gap >= 0) return 1;
            gap = groups;
            p++;
            if (*p == '\0') break;
        } else if (*p == '\0') {
            return 1;
        }
    }
    if (gap >= 0) {
        if (groups > 7) return 1;
        const int tail = groups - gap;
        std::memmove(out + 16 - tail * 2, out + gap * 2, size_t(tail) * 2);
        std::memset(out + gap * 2, 0, size_t(16 - groups * 2));
    } else if (groups != 8) {
        return 1;
    }
    std::memcpy(addr, out, 16);
    return 0;
}

uint32_t Ntop6(const uint8_t addr[16], char *out, uint32_t size) {
    uint16_t g[8];
    for (int i = 0; i < 8; i++) g[i] = uint16_t(addr[i * 2] << 8 | addr[i * 2 + 1]);
    int best = -1, bestLen = 0;
    for (int i = 0; i < 8;) {
        if (g[i] != 0) {
            i++;
            continue;
        }
        int j = i;
        while (j < 8 && g[j] == 0) j++;
        if (j - i > bestLen) {
            best = i;
            bestLen = j - i;
        }
        i = j;
    }
    char text[64];
    int n = 0;
    if (best == 0 && (bestLen == 6 || (bestLen == 5 && g[5] == 0xFFFF))) {
        n = Zos_SNPrintf(text, sizeof(text), "%s%u.%u.%u.%u",
                         bestLen == 6 ? "::" : "::ffff:", addr[12], addr[13], addr[14], addr[15]);
    } else {
        if (bestLen < 2) best = -1;  // a single zero group is written as 0
        for (int i = 0; i < 8; i++) {
            if (i == best) {
                n += Zos_SNPrintf(text + n, int32_t(sizeof(text) - n), "::");
                i += bestLen - 1;
                continue;
            }
            const bool sep = i > 0 && !(best >= 0 && i == best + bestLen);
            n += Zos_SNPrintf(text + n, int32_t(sizeof(text) - n), sep ? ":%x" : "%x", g[i]);
        }
    }
    if (n < 0 || uint32_t(n) + 1 > size) return 1;
    std::memcpy(out, text, size_t(n) + 1);
    return 0;
}

}  // namespace abnf
