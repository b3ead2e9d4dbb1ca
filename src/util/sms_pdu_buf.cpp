// The PDU buffer and its primitives: byte access, semi-octet (BCD) digits,
// addresses and user data.
//
// Every read and write checks the room left (start + length - cursor)
// first; length octets from the input only ever choose how far to go, and
// are refused when they point past the bytes loaded.
#include <cstring>

#include "sms_gsm7.h"
#include "sms_pdu.h"
#include "zos_log.h"

namespace {

constexpr uint32_t kMaxAddrDigits = 40;  // fits PDU_ADDR_SIZE with "+" and NUL
constexpr uint32_t kMaxSeptets = PDU_BUF_SIZE * 8u / 7u;

uint32_t Room(const PduBuf *buf) {
    const uint8_t *end = buf->pucStart + buf->uiLength;
    return buf->pucCursor < end ? static_cast<uint32_t>(end - buf->pucCursor) : 0u;
}

// BCD octets to text, low nibble first. A filler (15) in the high nibble
// of the last octet ends the number, any other unknown nibble ends it
// early. Returns the octets converted fully; out holds 2 * octets + 1.
uint32_t BcdToString(const uint8_t *p, uint32_t octets, char *out) {
    uint32_t len = 0, full = 0;
    for (uint32_t i = 0; i < octets; ++i) {
        const int32_t lo = _PDU_pduBcdToChar(p[i] & 0x0Fu);
        if (lo < 0) break;
        out[len++] = static_cast<char>(lo);
        const uint8_t hiNibble = p[i] >> 4;
        if (hiNibble == 0x0Fu && i + 1 == octets) {
            full = octets;
            break;
        }
        const int32_t hi = _PDU_pduBcdToChar(hiNibble);
        if (hi < 0) break;
        out[len++] = static_cast<char>(hi);
        full = i + 1;
    }
    out[len] = '\0';
    return full;
}

// Encoding code of a data coding scheme.
int32_t EncodingOf(uint8_t dcs) {
    if ((dcs & 0x80u) != 0) {
        switch (dcs & 0xF0u) {
            case 0xC0u:
            case 0xD0u:
                return PDU_ENC_7BIT;
            case 0xE0u:
                return PDU_ENC_UCS2;
            case 0xF0u:
                return (dcs & 0x04u) != 0 ? PDU_ENC_8BIT : PDU_ENC_7BIT;
            default:
                return PDU_ENC_UNKNOWN;
        }
    }
    if ((dcs & 0x20u) != 0) return PDU_ENC_UNKNOWN;  // compressed
    switch ((dcs >> 2) & 0x03u) {
        case 0:
            return PDU_ENC_7BIT;
        case 2:
            return PDU_ENC_UCS2;
        default:
            return PDU_ENC_8BIT;
    }
}

// Reads TP-UDL and, with udhi, the header length and header. Fills the
// header length (0 without) and the septets the header occupies. -1 when
// a field is missing or the header runs past the end.
int32_t ReadUdlAndHeader(PduBuf *buf, int32_t udhi, uint8_t *udl, uint32_t *udhl,
                         uint32_t *headerSeptets) {
    *udhl = 0;
    *headerSeptets = 0;
    if (_PDU_pduReadByte(buf, udl) < 0) return -1;
    if (udhi == 0) return 0;
    uint8_t len = 0;
    if (_PDU_pduReadByte(buf, &len) < 0 || _PDU_pduAdvance(buf, len) < 0) return -1;
    *udhl = len;
    *headerSeptets = ((len + 1u) * 8u + 6u) / 7u;
    return 0;
}

}  // namespace

extern "C" {

KESTRO_API int32_t _PDU_pduInitEncode(PduBuf *buf) {
    if (buf == nullptr) return -1;
    buf->pucStart = buf->aucData;
    buf->pucCursor = buf->aucData;
    buf->uiLength = PDU_BUF_SIZE;
    return 0;
}

KESTRO_API int32_t _PDU_pduInitDecode(PduBuf *buf, const void *bytes, uint32_t length) {
    if (buf == nullptr) return -1;
    buf->pucStart = buf->aucData;
    buf->pucCursor = buf->aucData;
    buf->uiLength = 0;
    if (bytes == nullptr) return -1;
    if (length != 0) {
        if (length > PDU_BUF_SIZE) return -1;
        std::memcpy(buf->aucData, bytes, length);
        buf->uiLength = length;
        return 0;
    }
    // Hexadecimal text: refused when it would not fit the buffer (the scan
    // stops one past the limit, so an unterminated giant is never walked).
    const auto *hex = static_cast<const char *>(bytes);
    const size_t digits = strnlen(hex, 2 * PDU_BUF_SIZE + 1);
    if (digits > 2 * PDU_BUF_SIZE) return -1;
    buf->uiLength = sms::HexToBytes(hex, static_cast<uint32_t>(digits), buf->aucData);
    return 0;
}

KESTRO_API int32_t _PDU_pduReadByte(PduBuf *buf, uint8_t *value) {
    if (buf == nullptr || value == nullptr || Room(buf) < 1) return -1;
    *value = *buf->pucCursor++;
    return 1;
}

KESTRO_API int32_t _PDU_pduWriteByte(PduBuf *buf, uint8_t value) {
    if (buf == nullptr || Room(buf) < 1) return -1;
    *buf->pucCursor++ = value;
    return 1;
}

KESTRO_API int32_t _PDU_pduWriteBytes(PduBuf *buf, const uint8_t *bytes, uint32_t n) {
    if (buf == nullptr || (bytes == nullptr && n != 0) || Room(buf) < n) return -1;
    if (n != 0) std::memcpy(buf->pucCursor, bytes, n);
    buf->pucCursor += n;
    return static_cast<int32_t>(n);
}

KESTRO_API int32_t _PDU_pduAdvance(PduBuf *buf, uint32_t n) {
    if (buf == nullptr || Room(buf) < n) return -1;
    buf->pucCursor += n;
    return static_cast<int32_t>(n);
}

KESTRO_API int32_t _PDU_pduRemaining(const PduBuf *buf) {
    if (buf == nullptr) return -1;
    const uint32_t room = Room(buf);
    return room > 0 ? static_cast<int32_t>(room) : -1;
}

KESTRO_API int32_t _PDU_pduGetLength(const PduBuf *buf) {
    return buf != nullptr ? static_cast<int32_t>(buf->pucCursor - buf->pucStart) : -1;
}

KESTRO_API int32_t _PDU_pduCheckLength(const PduBuf *buf, uint32_t n) {
    return buf != nullptr && Room(buf) >= n ? 0 : -1;
}

KESTRO_API uint8_t _PDU_pduHexByteToBcd(uint32_t value) {
    if (value > 99u) return 0;
    return static_cast<uint8_t>(((value % 10u) << 4) | (value / 10u));
}

KESTRO_API int32_t _PDU_pduBcdToChar(uint8_t nibble) {
    static constexpr char kChars[] = "0123456789*#,N";
    return nibble < 14u ? kChars[nibble] : -1;
}

KESTRO_API int32_t _PDU_pduCharToBCD(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    switch (c) {
        case '*':
            return 10;
        case '#':
            return 11;
        case ',':
            return 12;
        case 'N':
            return 13;
        default:
            return -1;
    }
}

KESTRO_API int32_t _PDU_pduReadBCDToString(PduBuf *buf, uint32_t octets, char *out) {
    if (buf == nullptr || out == nullptr || Room(buf) < octets) return -1;
    const uint32_t full = BcdToString(buf->pucCursor, octets, out);
    buf->pucCursor += octets;
    return static_cast<int32_t>(full);
}

KESTRO_API int32_t _PDU_pduWriteStringToBCD(PduBuf *buf, const char *digits, uint32_t n) {
    if (buf == nullptr || (digits == nullptr && n != 0) || Room(buf) <= n / 2u) return -1;
    // An unknown character becomes the nibble 0xFF and spoils its byte.
    auto nibble = [](char c) {
        const int32_t v = _PDU_pduCharToBCD(c);
        return v < 0 ? 0xFFu : static_cast<uint32_t>(v);
    };
    for (uint32_t i = 0; i + 1 < n; i += 2) {
        const uint32_t b = nibble(digits[i]) | (nibble(digits[i + 1]) << 4);
        if (_PDU_pduWriteByte(buf, static_cast<uint8_t>(b)) < 0) return -1;
    }
    if ((n & 1u) != 0) {
        const uint32_t b = nibble(digits[n - 1]) | 0xF0u;
        if (_PDU_pduWriteByte(buf, static_cast<uint8_t>(b)) < 0) return -1;
    }
    return static_cast<int32_t>(n);
}

KESTRO_API int32_t _PDU_pduDecodeAddress(PduBuf *buf, uint32_t octets, uint8_t type, char *out) {
    if (out == nullptr) return -1;
    const uint32_t plus = type == 0x91u ? 1u : 0u;
    if (_PDU_pduReadBCDToString(buf, octets, out + plus) < 0) {
        out[0] = '\0';
        return -1;
    }
    if (plus != 0) out[0] = '+';
    return static_cast<int32_t>(octets);
}

KESTRO_API int32_t _PDU_pduDecodeOriginatingAddress(PduBuf *buf, uint32_t digits, uint8_t type,
                                                    char *out) {
    if (buf == nullptr || out == nullptr) return -1;
    out[0] = '\0';
    if ((type & 0x80u) == 0 || digits > kMaxAddrDigits) return -1;
    const uint32_t octets = (digits + 1u) / 2u;
    if (Room(buf) < octets) return -1;
    if (((type >> 4) & 0x07u) == 0x05u) {
        // Alphanumeric: default-alphabet septets in the semi-octets.
        sms::UnpackLsb(buf->pucCursor, digits * 4u / 7u, out);
        buf->pucCursor += octets;
        Zos_LogInfo(Zos_LogGetZosId(), "RPDU HELP Phone = %s, TON_ALPHANUMERIC", out);
        return static_cast<int32_t>(octets);
    }
    uint8_t octet[kMaxAddrDigits / 2];
    std::memcpy(octet, buf->pucCursor, octets);
    if ((digits & 1u) != 0) octet[octets - 1] |= 0xF0u;  // the filler ends an odd count
    const bool plus = type == 0x91u;
    if (plus) out[0] = '+';
    BcdToString(octet, octets, out + (plus ? 1 : 0));
    buf->pucCursor += octets;
    Zos_LogInfo(Zos_LogGetZosId(), "RPDU HELP Phone = %s, %c", out, plus ? '+' : ' ');
    return static_cast<int32_t>(octets);
}

KESTRO_API void _PDU_pduInitUserData(PduUserData *ud) {
    if (ud != nullptr) std::memset(ud, 0, sizeof(*ud));
}

KESTRO_API int32_t _PDU_pduDecodeUserDataAndHeader(PduBuf *buf, int32_t udhi, int32_t septets,
                                                   PduUserData *ud) {
    if (buf == nullptr || ud == nullptr) return -1;
    _PDU_pduInitUserData(ud);
    uint8_t udl = 0;
    uint32_t udhl = 0, headerSeptets = 0;
    if (ReadUdlAndHeader(buf, udhi, &udl, &udhl, &headerSeptets) < 0) return -1;
    const uint32_t room = Room(buf);
    ud->pucData = buf->pucCursor;
    ud->uiRemaining = room != 0 ? room : 0xFFFFFFFFu;
    if (septets != 0) {
        ud->uiDataLen = udl > headerSeptets ? udl - headerSeptets : 0u;
    } else {
        ud->uiDataLen = room;
    }
    return static_cast<int32_t>(room + (udhi != 0 ? udhl + 2u : 1u));
}

KESTRO_API int32_t _PDU_pduDecodeUserData(PduBuf *buf, int32_t udhi, uint8_t dcs, char *out,
                                          uint32_t out_size) {
    if (buf == nullptr || out == nullptr || out_size == 0) return -1;
    out[0] = '\0';
    const int32_t enc = EncodingOf(dcs);
    uint8_t udl = 0;
    uint32_t udhl = 0, headerSeptets = 0;
    if (ReadUdlAndHeader(buf, udhi, &udl, &udhl, &headerSeptets) < 0) return -1;
    const uint32_t room = Room(buf);
    if (room == 0) return -1;
    if (enc == PDU_ENC_UCS2) {
        // All bytes left, whatever TP-UDL says; a 0xFFFF unit ends the text.
        (void)pdu_utf16_to_utf8(buf->pucCursor, room, out, out_size);
    } else if (enc == PDU_ENC_7BIT) {
        // Septets counted from the first byte after the header (no fill
        // bits skipped), never more than the bytes left can hold.
        uint32_t septets = udl > headerSeptets ? udl - headerSeptets : 0u;
        const uint32_t fit = room * 8u / 7u;
        if (septets > fit) septets = fit;
        if (septets > kMaxSeptets) septets = kMaxSeptets;
        char text[kMaxSeptets + 1];
        uint32_t len = sms::UnpackLsb(buf->pucCursor, septets, text);
        if (len > out_size - 1u) len = out_size - 1u;
        std::memcpy(out, text, len);
        out[len] = '\0';
    } else {
        return -1;
    }
    buf->pucCursor += room;
    return static_cast<int32_t>(room + (udhi != 0 ? udhl + 2u : 1u));
}

}  // extern "C"
