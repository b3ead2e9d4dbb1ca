// Whole SMS messages: SMS-SUBMIT and SMS-DELIVER encoding, the relay-layer
// messages (RP-DATA, RP-ACK, RP-ERROR, RP-SMMA) and the two decoders.
//
// Some field choices below look odd against the standards and are kept on
// purpose because peers depend on them: the RP-Cause written as 0x42 0x01
// cause, the time stamp's year octet (always 0) and month (one too high),
// and the SMS-DELIVER coding scheme that stays as chosen by the indication
// when the text goes out as UCS-2.
#include <cstring>

#include "sms_gsm7.h"
#include "sms_pdu.h"
#include "zos_log.h"
#include "zos_util.h"
#include "zucs.h"

#define SMS_LOG_INFO(...) ((void)Zos_LogInfo(Zos_LogGetZosId(), __VA_ARGS__))
#define SMS_LOG_DBG(...) ((void)Zos_LogDbg(Zos_LogGetZosId(), __VA_ARGS__))

namespace {

constexpr uint8_t kTypeInternational = 0x91;
constexpr uint8_t kTypeUnknown = 0x81;
constexpr uint8_t kRpUserDataIei = 0x41;
constexpr uint8_t kValidityFourDays = 0xAA;

// True while every step succeeded; the encoders chain their writes on it.
struct Writer {
    PduBuf buf;
    bool ok = true;

    Writer() { _PDU_pduInitEncode(&buf); }
    void Byte(uint32_t b) { ok = ok && _PDU_pduWriteByte(&buf, static_cast<uint8_t>(b)) > 0; }
    void Bytes(const uint8_t *p, uint32_t n) { ok = ok && _PDU_pduWriteBytes(&buf, p, n) >= 0; }
    void Bcd(const char *digits, uint32_t n) {
        ok = ok && _PDU_pduWriteStringToBCD(&buf, digits, n) >= 0;
    }
    uint32_t Length() const { return static_cast<uint32_t>(_PDU_pduGetLength(&buf)); }
};

// Raw result: out_size must be at least twice the length.
int32_t EmitRaw(const Writer &w, void *out, uint32_t out_size) {
    const uint32_t len = w.Length();
    if (!w.ok || out == nullptr || out_size < 2u * len) return -1;
    std::memcpy(out, w.buf.pucStart, len);
    return static_cast<int32_t>(len);
}

int32_t EmitHex(const Writer &w, char *out, uint32_t out_size) {
    const uint32_t len = w.Length();
    if (!w.ok || out == nullptr || out_size < 2u * len + 1u) return -1;
    return PDU_pduBytesToHexString(w.buf.pucStart, len, out);
}

// TP-UDL and TP-UD of a text: packed septets when every character is in
// the default alphabet, else big-endian UCS-2 from UTF-8. The coding scheme
// byte is written by the caller; `dcsForUcs2` is what it becomes when UCS-2
// is chosen (null: keep it). The validity period, when given, follows the
// coding scheme.
void PutText(Writer *w, const char *text, uint8_t dcs, const uint8_t *dcsForUcs2, bool validity) {
    int32_t unrep = 0;
    const uint32_t septets = sms::ScanText(text, &unrep);
    if (unrep != 0) {
        // Each input byte gives at most one unit, so twice the byte length
        // bounds the UCS-2 size.
        const size_t textLen = std::strlen(text);
        if (textLen > PDU_BUF_SIZE / 2u ||
            _PDU_pduCheckLength(&w->buf, 2u * static_cast<uint32_t>(textLen)) < 0) {
            w->ok = false;
            return;
        }
        uint16_t units[PDU_BUF_SIZE / 2];
        const int32_t n = utf8_to_utf16(units, text, static_cast<int32_t>(textLen), 1);
        const uint32_t bytes = 2u * static_cast<uint32_t>(n);
        if (bytes > 0xFFu) {
            w->ok = false;
            return;
        }
        w->Byte(dcsForUcs2 != nullptr ? *dcsForUcs2 : dcs);
        if (validity) w->Byte(kValidityFourDays);
        w->Byte(bytes);
        w->Bytes(reinterpret_cast<const uint8_t *>(units), bytes);
        return;
    }
    uint8_t packed[PDU_BUF_SIZE];
    if (septets > 0xFFu) {
        w->ok = false;
        return;
    }
    const int32_t n = ascii_to_pdu(text, packed, sizeof(packed), nullptr);
    w->Byte(dcs);
    if (validity) w->Byte(kValidityFourDays);
    w->Byte(septets);
    w->Bytes(packed, static_cast<uint32_t>(n));
}

// Classifies a TPDU first octet by TP-MTI; false for the reserved value.
bool ClassifyTpdu(uint8_t first, int32_t *tp_type) {
    switch (first & 0x03u) {
        case 0:
            SMS_LOG_INFO("RPDU Decode Deliver");
            *tp_type = PDU_TP_DELIVER;
            return true;
        case 1:
            SMS_LOG_INFO("RPDU Decode 1 Status Report");
            *tp_type = PDU_TP_REPORT;
            return true;
        case 2:
            SMS_LOG_INFO("RPDU Decode 2 Status Report");
            *tp_type = PDU_TP_STATUS_REPORT;
            return true;
        default:
            return false;
    }
}

int32_t DecodeRpData(PduBuf *buf, char *tpdu_hex, uint32_t tpdu_hex_size, char *originator,
                     int32_t *tp_type) {
    if (tpdu_hex != nullptr) {
        if (tpdu_hex_size < 3) return -1;
        std::memcpy(tpdu_hex, "00", 3);  // empty service centre field
    }
    // RP-OA (the service centre), decoded as the originator.
    uint8_t oaLen = 0, oaType = 0;
    if (_PDU_pduReadByte(buf, &oaLen) < 0) return -1;
    if (oaLen != 0) {
        if (_PDU_pduReadByte(buf, &oaType) < 0) return -1;
        const uint32_t digits = 2u * oaLen - 2u;
        if (_PDU_pduDecodeOriginatingAddress(buf, digits, oaType, originator) < 0) {
            ZOS_LOG_WARN("RPDU Decode OriginatingAddress Error");
            originator[0] = '\0';
            if (_PDU_pduAdvance(buf, oaLen - 1u) < 0) return -1;
        }
    }
    // RP-DA is skipped.
    uint8_t daLen = 0, udLen = 0, first = 0;
    if (_PDU_pduReadByte(buf, &daLen) < 0 || _PDU_pduAdvance(buf, daLen) < 0) return -1;
    if (_PDU_pduReadByte(buf, &udLen) < 0) return -1;
    const uint8_t *tpdu = buf->pucCursor;
    if (_PDU_pduReadByte(buf, &first) < 0 || !ClassifyTpdu(first, tp_type)) return -1;
    if (tpdu_hex == nullptr) return 0;
    const auto available = static_cast<uint32_t>(buf->pucStart + buf->uiLength - tpdu);
    if (udLen > available || 2u * udLen + 3u > tpdu_hex_size) return -1;
    PDU_pduBytesToHexString(tpdu, udLen, tpdu_hex + 2);
    return 0;
}

int32_t DecodeRpAck(PduBuf *buf, int32_t *tp_type) {
    uint8_t iei = 0, len = 0, first = 0;
    if (_PDU_pduReadByte(buf, &iei) < 0) return 0;
    if (iei == 0x00) {
        SMS_LOG_INFO("End of sms Rp-ACK body.");
        return 0;
    }
    if (iei != kRpUserDataIei) return -1;
    if (_PDU_pduReadByte(buf, &len) < 0 || _PDU_pduReadByte(buf, &first) < 0) return -1;
    return ClassifyTpdu(first, tp_type) ? 0 : -1;
}

// Value of a swapped-nibble BCD octet (tens in the low nibble).
int32_t BcdValue(uint8_t b) {
    return (b & 0x0F) * 10 + (b >> 4);
}

}  // namespace

extern "C" {

KESTRO_API int32_t isValidSmscRPDAddress(const char *text, int32_t *has_plus) {
    if (text == nullptr || text[0] == '\0') return 0;
    const char *p = text;
    if (*p == '+') {
        ++p;
        if (*p == '\0') return 0;
    }
    for (const char *q = p; *q != '\0'; ++q) {
        if (*q < '0' || *q > '9') return 0;
    }
    if (p != text && has_plus != nullptr) *has_plus = 1;
    return 1;
}

KESTRO_API int32_t PDU_3gppEncodeSubmit(const uint8_t *tpdu, uint32_t tpdu_len, const char *smsc,
                                        uint8_t mr, uint8_t *out, uint32_t out_size) {
    if ((tpdu == nullptr && tpdu_len != 0) || tpdu_len > 0xFFu) return -1;
    Writer w;
    w.Byte(0x00);  // RP-MTI: RP-DATA from the mobile
    w.Byte(mr);
    w.Byte(0x00);  // RP-OA: none
    int32_t plus = 0;
    SMS_LOG_DBG("no smsc");
    if (isValidSmscRPDAddress(smsc, &plus) != 0) {
        const char *digits = smsc + (plus != 0 ? 1 : 0);
        const auto n = static_cast<uint32_t>(std::strlen(digits));
        if (n > 2u * (0xFFu - 1u)) return -1;
        w.Byte(1u + (n + 1u) / 2u);
        w.Byte(plus != 0 ? kTypeInternational : kTypeUnknown);
        w.Bcd(digits, n);
    } else {
        w.Byte(0x00);
    }
    w.Byte(tpdu_len);
    w.Bytes(tpdu, tpdu_len);
    return EmitRaw(w, out, out_size);
}

KESTRO_API int32_t PDU_3gppEncodeSmma(uint8_t mr, uint32_t /*unused*/, uint8_t *out,
                                      uint32_t out_size) {
    Writer w;
    w.Byte(0x06);  // RP-SMMA
    w.Byte(mr);
    return EmitRaw(w, out, out_size);
}

KESTRO_API int32_t PDU_3gppEncodeDeliverReport(uint32_t /*unused*/, uint8_t mr, uint8_t cause,
                                               uint8_t *out, uint32_t out_size) {
    static const uint8_t kReport[2] = {0x00, 0x00};  // SMS-DELIVER-REPORT, no parameters
    Writer w;
    if (cause == 0) {
        w.Byte(0x02);  // RP-ACK: its user data carries an element identifier
        w.Byte(mr);
        w.Byte(kRpUserDataIei);
    } else {
        w.Byte(0x04);  // RP-ERROR: the cause element, then the length alone
        w.Byte(mr);
        w.Byte(0x42);
        w.Byte(0x01);
        w.Byte(cause);
    }
    w.Byte(sizeof(kReport));
    w.Bytes(kReport, sizeof(kReport));
    return EmitRaw(w, out, out_size);
}

KESTRO_API int32_t PDU_3gppEncodeSubmitTPDU(uint8_t mr, const char *destination, const char *text,
                                            int32_t raw, void *out, uint32_t out_size,
                                            int32_t report) {
    if (destination == nullptr || text == nullptr || out == nullptr) return -1;
    Writer w;
    w.Byte(report != 0 ? 0x31 : 0x11);
    w.Byte(mr);
    const char *plus = std::strchr(destination, '+');
    const char *digits = plus != nullptr ? plus + 1 : destination;
    const auto n = static_cast<uint32_t>(std::strlen(digits));
    if (n > 0xFFu) return -1;
    w.Byte(n);
    w.Byte(plus != nullptr ? kTypeInternational : kTypeUnknown);
    w.Bcd(digits, n);
    w.Byte(0x00);  // TP-PID
    static const uint8_t kUcs2 = 0x08;
    PutText(&w, text, 0x00, &kUcs2, true);
    if (raw != 0) return EmitRaw(w, out, out_size);
    return EmitHex(w, static_cast<char *>(out), out_size);
}

KESTRO_API int32_t PDU_3gppEncodeDeliverySms(const char *originator, const char *text, char *out,
                                             uint32_t out_size, int32_t indication) {
    if (originator == nullptr || text == nullptr || out == nullptr) return -1;
    Writer w;
    static const uint8_t kScField[7] = {0x06, kTypeUnknown, 0, 0, 0, 0, 0};  // "0000000000"
    w.Bytes(kScField, sizeof(kScField));
    w.Byte(0x04);  // SMS-DELIVER, no more messages
    const bool plus = originator[0] == '+';
    const char *digits = originator + (plus ? 1 : 0);
    const auto n = static_cast<uint32_t>(std::strlen(digits));
    if (n > 0xFFu) return -1;
    w.Byte(n);
    w.Byte(plus ? kTypeInternational : kTypeUnknown);
    w.Bcd(digits, n);
    w.Byte(0x00);  // TP-PID
    const uint8_t dcs = indication == 1 ? 0xC8 : indication == 2 ? 0xC0 : 0x00;

    // TP-SCTS is written after TP-DCS, which PutText writes, so the text
    // is put into a second writer and spliced in behind the stamp.
    Writer ud;
    PutText(&ud, text, dcs, nullptr, false);
    if (!ud.ok) return -1;
    w.Bytes(ud.buf.pucStart, 1);  // TP-DCS
    ST_ZOS_SYS_TIME now{};
    if (Zos_SysTime(&now) == ZOK) {
        w.Byte(_PDU_pduHexByteToBcd(static_cast<uint32_t>(now.wYear) - 100u));
        w.Byte(_PDU_pduHexByteToBcd(now.ucMonth + 1u));
        w.Byte(_PDU_pduHexByteToBcd(now.ucDay));
        w.Byte(_PDU_pduHexByteToBcd(now.ucHour));
        w.Byte(_PDU_pduHexByteToBcd(now.ucMinute));
        w.Byte(_PDU_pduHexByteToBcd(now.ucSecond));
        w.Byte(0x0A);
    } else {
        static const uint8_t kNoTime[7] = {};
        w.Bytes(kNoTime, sizeof(kNoTime));
    }
    w.Bytes(ud.buf.pucStart + 1, ud.Length() - 1u);
    if (w.ok) {
        for (uint32_t i = 0; i < w.Length(); ++i) SMS_LOG_DBG("%02X ", w.buf.pucStart[i]);
    }
    return EmitHex(w, out, out_size);
}

KESTRO_API int32_t PDU_3gppDecodeSms(const void *rpdu, uint32_t length, char *tpdu_hex,
                                     uint32_t tpdu_hex_size, char *originator, uint32_t /*unused*/,
                                     int32_t *tp_type, int32_t *rp_mti, int32_t *mr,
                                     int32_t *extra) {
    if (rpdu == nullptr || originator == nullptr || tp_type == nullptr || mr == nullptr) return -1;
    originator[0] = '\0';
    PduBuf buf;
    uint8_t mti = 0, ref = 0;
    if (_PDU_pduInitDecode(&buf, rpdu, length) < 0 || _PDU_pduReadByte(&buf, &mti) < 0) return -1;
    if (rp_mti != nullptr) *rp_mti = mti;
    SMS_LOG_INFO("RPDU RP-MTI = %d", mti);
    switch (mti) {
        case 0:
        case 1:
            SMS_LOG_INFO("RPDU Receive An RP-Data");
            if (_PDU_pduReadByte(&buf, &ref) < 0) return -1;
            *mr = ref;
            return DecodeRpData(&buf, tpdu_hex, tpdu_hex_size, originator, tp_type);
        case 2:
        case 3:
            SMS_LOG_INFO("RPDU Receive An RP-ACK");
            if (_PDU_pduReadByte(&buf, &ref) < 0) return -1;
            *mr = ref;
            return DecodeRpAck(&buf, tp_type);
        case 4:
        case 5: {
            SMS_LOG_INFO("RPDU Receive An RP-ERROR");
            uint8_t causeLen = 0, cause = 0;
            if (_PDU_pduReadByte(&buf, &ref) < 0) return -1;
            *mr = ref;
            if (_PDU_pduReadByte(&buf, &causeLen) < 0 || _PDU_pduReadByte(&buf, &cause) < 0) {
                return -1;
            }
            if (extra != nullptr) *extra = cause;
            *tp_type = PDU_TP_REPORT;
            return 0;
        }
        default:
            SMS_LOG_INFO("RPDU Receive An RP-Other");
            return 0;
    }
}

KESTRO_API int32_t PDU_3gppGetSubmitPduMessageAndAddress(const char *hex, char *originator,
                                                         char *text, uint32_t text_size,
                                                         ST_ZOS_SYS_TIME *time) {
    if (hex == nullptr || originator == nullptr || text == nullptr || text_size == 0) return -1;
    originator[0] = '\0';
    text[0] = '\0';
    PduBuf buf;
    uint8_t scLen = 0, first = 0, oaLen = 0, oaType = 0, pid = 0, dcs = 0, vp = 0;
    if (_PDU_pduInitDecode(&buf, hex, 0) < 0 || _PDU_pduReadByte(&buf, &scLen) < 0 ||
        _PDU_pduAdvance(&buf, scLen) < 0 || _PDU_pduReadByte(&buf, &first) < 0 ||
        _PDU_pduReadByte(&buf, &oaLen) < 0 || _PDU_pduReadByte(&buf, &oaType) < 0) {
        return -1;
    }
    if (_PDU_pduDecodeOriginatingAddress(&buf, oaLen, oaType, originator) < 0) {
        ZOS_LOG_ERR("error\n");
        return -1;
    }
    if (_PDU_pduReadByte(&buf, &pid) < 0 || _PDU_pduReadByte(&buf, &dcs) < 0) return -1;
    const int32_t validity = (first & 0x0Cu) == 0x0Cu ? 1 : 0;
    const int32_t udhi = (first & 0x40u) != 0 ? 1 : 0;
    if (validity != 0 && _PDU_pduReadByte(&buf, &vp) < 0) return -1;
    SMS_LOG_INFO("RPDU ValidtyPeriod= %d And UserDataHeader = %d", validity, udhi);

    uint8_t scts[7];
    for (uint8_t &b : scts) {
        if (_PDU_pduReadByte(&buf, &b) < 0) return -1;
    }
    ST_ZOS_SYS_TIME stamp{};
    stamp.wYear = static_cast<uint16_t>(BcdValue(scts[0]) + 2000);
    stamp.ucMonth = static_cast<uint8_t>(BcdValue(scts[1]));
    stamp.ucDay = static_cast<uint8_t>(BcdValue(scts[2]));
    stamp.ucHour = static_cast<uint8_t>(BcdValue(scts[3]));
    stamp.ucMinute = static_cast<uint8_t>(BcdValue(scts[4]));
    stamp.ucSecond = static_cast<uint8_t>(BcdValue(scts[5]));
    stamp.iTzOffset = BcdValue(scts[6]) * 900;  // the sign bit is not looked at
    SMS_LOG_INFO("EastZone");
    SMS_LOG_INFO("%d-%d-%d, %d-%d-%d, %d", stamp.wYear, stamp.ucMonth, stamp.ucDay, stamp.ucHour,
                 stamp.ucMinute, stamp.ucSecond, stamp.iTzOffset);
    if (time != nullptr) {
        time->wYear = stamp.wYear;
        time->ucMonth = stamp.ucMonth;
        time->ucDay = stamp.ucDay;
        time->ucHour = stamp.ucHour;
        time->ucMinute = stamp.ucMinute;
        time->ucSecond = stamp.ucSecond;
        time->iTzOffset = stamp.iTzOffset;
    }
    return _PDU_pduDecodeUserData(&buf, udhi, dcs, text, text_size) < 0 ? -1 : 0;
}

}  // extern "C"
