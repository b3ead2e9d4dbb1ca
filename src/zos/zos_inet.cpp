// Network address helpers: the text work done here, byte order,
// descriptor sets and the local address forwarded to the platform table.
#include "zos_inet.h"

#include <cstring>

#include "zos_env.h"
#include "zos_fmt.h"
#include "zos_osdep.h"
#include "zos_str.h"
#include "zos_util.h"

namespace {

constexpr uint32_t kV6Groups = 8;

uint32_t GroupAt(const uint8_t *a, uint32_t i) {
    return (uint32_t{a[2 * i]} << 8) | a[2 * i + 1];
}

// The text copied with its NUL only when it fits the caller's size.
uint32_t CopyIfFits(const char *text, uint32_t len, char *buf, uint32_t size) {
    if (len >= size) return ZFAILED;
    std::memcpy(buf, text, len + 1);
    return ZOK;
}

// "%u.%u.%u.%u" of four bytes in memory order; returns the length.
uint32_t Dotted(const uint8_t *b, char *out, int32_t size) {
    return Zos_SNPrintf(out, size, "%u.%u.%u.%u", static_cast<unsigned>(b[0]),
                        static_cast<unsigned>(b[1]), static_cast<unsigned>(b[2]),
                        static_cast<unsigned>(b[3]));
}

// Dotted IPv4 text up to the end of the string: four decimal octets of at
// most 255, none with a leading zero.
bool ParseDotted(const char *s, uint8_t out[4]) {
    uint8_t tmp[4] = {};
    uint32_t octets = 0;
    uint32_t cur = 0;
    bool sawDigit = false;
    for (; *s != '\0'; ++s) {
        const char ch = *s;
        if (ch >= '0' && ch <= '9') {
            if (sawDigit && cur == 0) return false;  // leading zero
            cur = cur * 10 + static_cast<uint32_t>(ch - '0');
            if (cur > 255) return false;
            if (!sawDigit) {
                if (++octets > 4) return false;
                sawDigit = true;
            }
        } else if (ch == '.' && sawDigit) {
            if (octets == 4) return false;
            tmp[octets - 1] = static_cast<uint8_t>(cur);
            cur = 0;
            sawDigit = false;
        } else {
            return false;
        }
    }
    if (octets < 4 || !sawDigit) return false;
    tmp[3] = static_cast<uint8_t>(cur);
    std::memcpy(out, tmp, 4);
    return true;
}

int32_t HexValue(char ch) {
    if (ch >= '0' && ch <= '9') return ch - '0';
    if (ch >= 'a' && ch <= 'f') return ch - 'a' + 10;
    if (ch >= 'A' && ch <= 'F') return ch - 'A' + 10;
    return -1;
}

bool ParseV6(const char *s, uint8_t out[16]) {
    uint8_t tmp[16] = {};
    uint32_t tp = 0;
    int32_t gap = -1;  // byte position of "::", if any
    if (*s == ':' && *++s != ':') return false;
    const char *token = s;
    bool sawHex = false;
    uint32_t digits = 0;
    uint32_t val = 0;
    char ch;
    while ((ch = *s++) != '\0') {
        const int32_t h = HexValue(ch);
        if (h >= 0) {
            if (++digits > 4) return false;
            val = (val << 4) | static_cast<uint32_t>(h);
            sawHex = true;
            continue;
        }
        if (ch == ':') {
            token = s;
            if (!sawHex) {
                if (gap >= 0) return false;
                gap = static_cast<int32_t>(tp);
                continue;
            }
            if (*s == '\0' || tp + 2 > 16) return false;
            tmp[tp++] = static_cast<uint8_t>(val >> 8);
            tmp[tp++] = static_cast<uint8_t>(val);
            sawHex = false;
            digits = 0;
            val = 0;
            continue;
        }
        if (ch == '.' && tp + 4 <= 16 && ParseDotted(token, tmp + tp)) {
            tp += 4;
            sawHex = false;
            break;
        }
        return false;
    }
    if (sawHex) {
        if (tp + 2 > 16) return false;
        tmp[tp++] = static_cast<uint8_t>(val >> 8);
        tmp[tp++] = static_cast<uint8_t>(val);
    }
    if (gap >= 0) {
        if (tp == 16) return false;  // "::" must stand for at least one group
        const uint32_t tail = tp - static_cast<uint32_t>(gap);
        std::memmove(tmp + 16 - tail, tmp + gap, tail);
        std::memset(tmp + gap, 0, 16 - tail - static_cast<uint32_t>(gap));
        tp = 16;
    }
    if (tp != 16) return false;
    std::memcpy(out, tmp, 16);
    return true;
}

// Decimal digits of one byte, written forward; returns the new end.
char *PutDecimal(char *p, uint32_t v) {
    if (v >= 100) *p++ = static_cast<char>('0' + v / 100);
    if (v >= 10) *p++ = static_cast<char>('0' + (v / 10) % 10);
    *p++ = static_cast<char>('0' + v % 10);
    return p;
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zos_InetNtohl(uint32_t uiVal) {
    auto fn = zos::Osdep<zos::kSlotInetNtohl>();
    return fn != nullptr ? fn(uiVal) : uiVal;
}

KESTRO_API uint32_t Zos_InetHtonl(uint32_t uiVal) {
    auto fn = zos::Osdep<zos::kSlotInetHtonl>();
    return fn != nullptr ? fn(uiVal) : uiVal;
}

KESTRO_API uint16_t Zos_InetNtohs(uint16_t wVal) {
    auto fn = zos::Osdep<zos::kSlotInetNtohs>();
    return fn != nullptr ? fn(wVal) : wVal;
}

KESTRO_API uint16_t Zos_InetHtons(uint16_t wVal) {
    auto fn = zos::Osdep<zos::kSlotInetHtons>();
    return fn != nullptr ? fn(wVal) : wVal;
}

KESTRO_API uint32_t Zos_InetAddr(const char *pcText, uint32_t *puiAddr) {
    if (pcText == nullptr || puiAddr == nullptr) return ZFAILED;
    auto fn = zos::Osdep<zos::kSlotInetPton4>();
    if (fn == nullptr) return ZFAILED;
    return fn(pcText, puiAddr);
}

KESTRO_API uint32_t Zos_InetPton4(const char *pcText, uint32_t *puiAddr) {
    return Zos_InetAddr(pcText, puiAddr);
}

KESTRO_API uint32_t Zos_InetNtoa(uint32_t uiAddr, char **ppcText) {
    if (ppcText == nullptr) return ZFAILED;
    *ppcText = const_cast<char *>("");
    ZosEnv *env = zos::Env();
    if (env == nullptr) return ZFAILED;
    const uint32_t host = Zos_InetNtohl(uiAddr);
    char *p = env->acInetNtoa;
    for (int shift = 24; shift >= 0; shift -= 8) {
        p = PutDecimal(p, (host >> shift) & 0xFFu);
        if (shift != 0) *p++ = '.';
    }
    *p = '\0';
    *ppcText = env->acInetNtoa;
    return ZOK;
}

KESTRO_API const char *Zos_InetNtoaX(uint32_t uiAddr) {
    char *text = nullptr;
    if (Zos_InetNtoa(uiAddr, &text) != ZOK) return "0.0.0.0";
    return text;
}

KESTRO_API uint32_t Zos_InetNtop6(const uint8_t *pucAddr, char *pcBuf, uint32_t uiSize) {
    if (pucAddr == nullptr || pcBuf == nullptr) return ZFAILED;
    // The longest run of zero groups; the first wins among equal runs.
    uint32_t best = 0;
    uint32_t bestLen = 0;
    for (uint32_t i = 0; i < kV6Groups;) {
        if (GroupAt(pucAddr, i) != 0) {
            ++i;
            continue;
        }
        uint32_t j = i;
        while (j < kV6Groups && GroupAt(pucAddr, j) == 0) ++j;
        if (j - i > bestLen) {
            best = i;
            bestLen = j - i;
        }
        i = j;
    }
    char text[ZOS_INET_IPV6_STR_SIZE];
    uint32_t len = 0;
    if (best == 0 && bestLen == 6) {
        std::memcpy(text, "::", 2);
        len = 2 + Dotted(pucAddr + 12, text + 2, static_cast<int32_t>(sizeof(text) - 2));
    } else if (best == 0 && bestLen == 5 && GroupAt(pucAddr, 5) == 0xFFFFu) {
        std::memcpy(text, "::ffff:", 7);
        len = 7 + Dotted(pucAddr + 12, text + 7, static_cast<int32_t>(sizeof(text) - 7));
    } else {
        for (uint32_t i = 0; i < kV6Groups; ++i) {
            if (bestLen != 0 && i == best) {
                text[len++] = ':';
                text[len++] = ':';
                i += bestLen - 1;
                continue;
            }
            if (len != 0 && text[len - 1] != ':') text[len++] = ':';
            len += Zos_SNPrintf(text + len, static_cast<int32_t>(sizeof(text) - len), "%x",
                                static_cast<unsigned>(GroupAt(pucAddr, i)));
        }
        text[len] = '\0';
    }
    return CopyIfFits(text, len, pcBuf, uiSize);
}

KESTRO_API uint32_t Zos_InetNtop(uint32_t uiType, const void *pAddr, char *pcBuf, uint32_t uiSize) {
    if (uiType == ZOS_INET_IPV4) {
        if (pAddr == nullptr || pcBuf == nullptr) return ZFAILED;
        char text[ZOS_INET_IPV4_STR_SIZE];
        const uint32_t len =
            Dotted(static_cast<const uint8_t *>(pAddr), text, static_cast<int32_t>(sizeof(text)));
        return CopyIfFits(text, len, pcBuf, uiSize);
    }
    if (uiType == ZOS_INET_IPV6) {
        return Zos_InetNtop6(static_cast<const uint8_t *>(pAddr), pcBuf, uiSize);
    }
    ZOS_LOG_ERR("InetNtop unsupported inet type.");
    return ZFAILED;
}

KESTRO_API uint32_t Zos_InetPton6(const char *pcText, uint8_t *pucAddr) {
    if (pcText == nullptr || pucAddr == nullptr) return ZFAILED;
    return ParseV6(pcText, pucAddr) ? ZOK : ZFAILED;
}

KESTRO_API uint32_t Zos_InetPton(uint32_t uiType, const char *pcText, void *pAddr) {
    if (uiType == ZOS_INET_IPV4) {
        // Through a local word: the caller's four bytes need no alignment.
        uint32_t v = 0;
        if (pAddr == nullptr || Zos_InetAddr(pcText, &v) != ZOK) return ZFAILED;
        std::memcpy(pAddr, &v, sizeof(v));
        return ZOK;
    }
    if (uiType == ZOS_INET_IPV6) return Zos_InetPton6(pcText, static_cast<uint8_t *>(pAddr));
    ZOS_LOG_ERR("InetPton unsupported inet type.");
    return ZFAILED;
}

KESTRO_API uint32_t Zos_InetIpToStr(const ST_ZOS_INET_ADDR *pstAddr, char *pcBuf,
                                    uint32_t *puiSize) {
    if (pstAddr == nullptr || puiSize == nullptr) return ZFAILED;
    uint32_t need;
    if (pstAddr->wType == ZOS_INET_IPV4) {
        need = ZOS_INET_IPV4_STR_SIZE;
    } else if (pstAddr->wType == ZOS_INET_IPV6) {
        need = ZOS_INET_IPV6_STR_SIZE;
    } else {
        ZOS_LOG_ERR("InetIpToStr unsupported inet type.");
        return ZFAILED;
    }
    if (pcBuf == nullptr || *puiSize < need) {
        *puiSize = need;
        return ZOK;
    }
    if (Zos_InetNtop(pstAddr->wType, &pstAddr->u, pcBuf, *puiSize) != ZOK) {
        ZOS_LOG_ERR("InetIpToStr convert failed.");
        return ZFAILED;
    }
    *puiSize = Zos_StrLen(pcBuf);
    return ZOK;
}

KESTRO_API uint32_t Zos_InetMactoa(const uint8_t *pucMac, char **ppcText) {
    if (pucMac == nullptr || ppcText == nullptr) return ZFAILED;
    ZosEnv *env = zos::Env();
    if (env == nullptr) return ZFAILED;
    Zos_SNPrintf(env->acInetMactoa, static_cast<int32_t>(sizeof(env->acInetMactoa)),
                 "%02X:%02X:%02X:%02X:%02X:%02X", static_cast<unsigned>(pucMac[0]),
                 static_cast<unsigned>(pucMac[1]), static_cast<unsigned>(pucMac[2]),
                 static_cast<unsigned>(pucMac[3]), static_cast<unsigned>(pucMac[4]),
                 static_cast<unsigned>(pucMac[5]));
    *ppcText = env->acInetMactoa;
    return ZOK;
}

KESTRO_API uint32_t Zos_InetCmpAddr(const ST_ZOS_INET_ADDR *pstAddr1,
                                    const ST_ZOS_INET_ADDR *pstAddr2) {
    if (pstAddr1 == nullptr || pstAddr2 == nullptr) return ZFAILED;
    if (pstAddr1->wType != pstAddr2->wType || pstAddr1->wPort != pstAddr2->wPort ||
        pstAddr1->u.uiIpv4 != pstAddr2->u.uiIpv4) {
        return ZFAILED;
    }
    if (pstAddr1->wType != ZOS_INET_IPV6) return ZOK;
    // The IPv6 bytes compare as text up to the first zero byte of the
    // second address, so bytes after a zero byte are not looked at. The
    // length is bounded by the 16 address bytes instead of running on past
    // the record when no zero byte is among them.
    const auto *b1 = reinterpret_cast<const char *>(pstAddr1->u.aucIpv6);
    const auto *b2 = reinterpret_cast<const char *>(pstAddr2->u.aucIpv6);
    const auto *nul = static_cast<const char *>(std::memchr(b2, 0, 16));
    const auto len = static_cast<uint32_t>(nul != nullptr ? nul - b2 : 16);
    return Zos_NStrCmp(b1, len, b2, len) == 0 ? ZOK : ZFAILED;
}

KESTRO_API uint32_t Zos_InetFdZero(ZFDSET zSet) {
    auto fn = zos::Osdep<zos::kSlotInetFdZero>();
    return fn != nullptr ? fn(zSet) : ZFAILED;
}

KESTRO_API uint32_t Zos_InetFdCreate(ZFDSET *pzSet) {
    if (pzSet == nullptr) return ZFAILED;
    *pzSet = 0;
    auto fn = zos::Osdep<zos::kSlotInetFdCreate>();
    if (fn == nullptr) return ZFAILED;
    if (fn(pzSet) != ZOK || *pzSet == 0) {
        ZOS_LOG_ERR("InetFdCreate create failed.");
        return ZFAILED;
    }
    Zos_InetFdZero(*pzSet);
    return ZOK;
}

KESTRO_API uint32_t Zos_InetFdDelete(ZFDSET zSet) {
    auto fn = zos::Osdep<zos::kSlotInetFdDelete>();
    return fn != nullptr ? fn(zSet) : ZFAILED;
}

KESTRO_API uint32_t Zos_InetFdCopy(ZFDSET zDst, ZFDSET zSrc) {
    auto fn = zos::Osdep<zos::kSlotInetFdCopy>();
    return fn != nullptr ? fn(zDst, zSrc) : ZFAILED;
}

KESTRO_API uint32_t Zos_InetFdSet(int32_t iFd, ZFDSET zSet) {
    if (iFd < 0) {
        ZOS_LOG_ERR("InetFdSet invalid fd.");
        return ZFAILED;
    }
    auto fn = zos::Osdep<zos::kSlotInetFdSet>();
    return fn != nullptr ? fn(iFd, zSet) : ZFAILED;
}

KESTRO_API uint32_t Zos_InetFdIsset(int32_t iFd, ZFDSET zSet) {
    if (iFd < 0) {
        ZOS_LOG_ERR("InetFdIsset invalid fd.");
        return 0;
    }
    auto fn = zos::Osdep<zos::kSlotInetFdIsset>();
    return fn != nullptr ? fn(iFd, zSet) : 0;
}

KESTRO_API uint32_t Zos_InetFdClr(int32_t iFd, ZFDSET zSet) {
    if (iFd < 0) {
        ZOS_LOG_ERR("InetFdClr invalid fd.");
        return ZFAILED;
    }
    auto fn = zos::Osdep<zos::kSlotInetFdClr>();
    return fn != nullptr ? fn(iFd, zSet) : ZFAILED;
}

KESTRO_API uint32_t Zos_InetGetLocalIp(char *pcBuf, uint32_t uiSize) {
    if (pcBuf == nullptr || uiSize == 0) return ZFAILED;
    pcBuf[0] = '\0';
    auto fn = zos::Osdep<zos::kSlotInetLocalIp>();
    if (fn == nullptr) {
        ZOS_LOG_ERR("InetGetLocalIp no function.");
        return ZFAILED;
    }
    if (fn(pcBuf, uiSize) != ZOK) {
        pcBuf[0] = '\0';
        ZOS_LOG_ERR("InetGetLocalIp get failed.");
        return ZFAILED;
    }
    return ZOK;
}

}  // extern "C"
