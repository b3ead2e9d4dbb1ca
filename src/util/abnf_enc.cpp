// ABNF encoders (text appended to the message's output data buffer) and
// percent-encoding both ways.
#include <cstring>

#include "abnf_int.h"
#include "zos_dbuf.h"
#include "zos_fmt.h"
#include "zos_inet.h"

using namespace abnf;

namespace {

uint32_t Fail(ST_ABNF_MSG *msg, uint32_t code, const char *text) {
    ZOS_LOG_ERR("%s", text);
    SetErr(msg, code);
    return ZFAILED;
}

// Appends bytes; false when the buffer refuses them.
bool Append(ST_ABNF_MSG *msg, const void *data, uint32_t len) {
    return msg != nullptr && Zos_DbufPstAddMultD(msg->zBuf, data, len) == ZOK;
}

uint32_t AddSStr(ST_ABNF_MSG *msg, const ST_ZOS_SSTR *str, const char *fail) {
    if (msg == nullptr) return ZFAILED;
    if (str == nullptr || str->pcStr == nullptr || str->uiLen == 0) {
        return Fail(msg, ABNF_ERR_NULL_STR, fail);
    }
    if (!Append(msg, str->pcStr, str->uiLen)) return Fail(msg, ABNF_ERR_ADD, fail);
    return ZOK;
}

// A number written through Abnf_AddPstStrN, whose message comes first.
uint32_t AddNumber(ST_ABNF_MSG *msg, const char *fmt, uint32_t value, const char *fail) {
    char text[16];
    const uint32_t n = Zos_SNPrintf(text, sizeof(text), fmt, value);
    if (Abnf_AddPstStrN(msg, text, n) != ZOK) return Fail(msg, ABNF_ERR_ADD, fail);
    return ZOK;
}

bool InSet(const ST_ABNF_CHRSET *set, uint32_t mask, uint8_t c) {
    return set != nullptr && (set->auiClass[c] & mask) != 0;
}

// Percent-decoding shared by the size and the decode: stops when the
// input ends or (out given) the capacity is reached.
uint32_t P2N(const char *text, uint32_t len, char *out, uint32_t cap) {
    const uint8_t *p = U(text);
    uint32_t i = 0, n = 0;
    while (i < len && (out == nullptr || n < cap)) {
        uint8_t hi = 0, lo = 0;
        uint8_t c = p[i];
        if (c == '%' && len - i >= 3 && IsXDigit(p[i + 1]) && IsXDigit(p[i + 2])) {
            Abnf_XChr2Digit(p[i + 1], &hi);
            Abnf_XChr2Digit(p[i + 2], &lo);
            c = static_cast<uint8_t>(hi << 4 | lo);
            i += 3;
        } else {
            i++;
        }
        if (out != nullptr) out[n] = static_cast<char>(c);
        n++;
    }
    return n;
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Abnf_XChr2Digit(uint8_t ucChr, uint8_t *pucValue) {
    uint8_t v;
    if (ucChr >= '0' && ucChr <= '9') {
        v = static_cast<uint8_t>(ucChr - '0');
    } else if (ucChr >= 'a' && ucChr <= 'f') {
        v = static_cast<uint8_t>(ucChr - 'a' + 10);
    } else if (ucChr >= 'A' && ucChr <= 'F') {
        v = static_cast<uint8_t>(ucChr - 'A' + 10);
    } else {
        ZOS_LOG_ERR("AbnfXChr2Digit invalid char.");
        return ZFAILED;
    }
    if (pucValue != nullptr) *pucValue = v;
    return ZOK;
}

KESTRO_API uint32_t Abnf_StrP2N(const char *pcText, uint32_t uiLen, char *pcOut,
                                uint32_t *puiSize) {
    if (puiSize == nullptr || *puiSize == 0 || pcOut == nullptr) {
        ZOS_LOG_ERR("AbnfStrP2N invalid size.");
        return ZFAILED;
    }
    *puiSize = pcText != nullptr ? P2N(pcText, uiLen, pcOut, *puiSize) : 0;
    return ZOK;
}

KESTRO_API uint32_t Abnf_SizeP2N(const char *pcText, uint32_t uiLen, uint32_t *puiSize) {
    if (puiSize == nullptr) return ZFAILED;
    *puiSize = pcText != nullptr ? P2N(pcText, uiLen, nullptr, 0) : 0;
    return ZOK;
}

KESTRO_API uint32_t Abnf_StrN2P(const char *pcText, uint32_t uiLen, const ST_ABNF_CHRSET *pstSet,
                                uint32_t uiMask, char *pcOut, uint32_t *puiSize) {
    if (puiSize == nullptr || *puiSize == 0 || pcOut == nullptr) {
        ZOS_LOG_ERR("AbnfStrN2P invalid size.");
        return ZFAILED;
    }
    static const char kHex[] = "0123456789abcdef";
    const ST_ABNF_CHRSET *set = LiveChrset(pstSet);
    const uint32_t cap = *puiSize;
    uint32_t n = 0;
    const uint8_t *p = U(pcText);
    for (uint32_t i = 0; pcText != nullptr && i < uiLen; i++) {
        if (InSet(set, uiMask, p[i])) {
            // Plain bytes end the encoding too when the output is full,
            // rather than being written past the caller's capacity.
            if (n >= cap) break;
            pcOut[n++] = static_cast<char>(p[i]);
            continue;
        }
        if (cap - n < 3) break;
        pcOut[n++] = '%';
        pcOut[n++] = kHex[p[i] >> 4];
        pcOut[n++] = kHex[p[i] & 15];
    }
    *puiSize = n;
    return ZOK;
}

KESTRO_API uint32_t Abnf_SizeN2P(const char *pcText, uint32_t uiLen, const ST_ABNF_CHRSET *pstSet,
                                 uint32_t uiMask, uint32_t *puiSize) {
    if (puiSize == nullptr) return ZFAILED;
    const ST_ABNF_CHRSET *set = LiveChrset(pstSet);
    uint32_t n = 0;
    for (uint32_t i = 0; pcText != nullptr && i < uiLen; i++) {
        n += InSet(set, uiMask, U(pcText)[i]) ? 1 : 3;
    }
    *puiSize = n;
    return ZOK;
}

KESTRO_API uint32_t Abnf_AddPstChr(ST_ABNF_MSG *pstMsg, uint8_t ucChr) {
    if (pstMsg == nullptr) return ZFAILED;
    if (Zos_DbufPstAddD(pstMsg->zBuf, ucChr) != ZOK) {
        return Fail(pstMsg, ABNF_ERR_ADD, "AbnfAddPstChr format data.");
    }
    return ZOK;
}

KESTRO_API uint32_t Abnf_AddPstStr(ST_ABNF_MSG *pstMsg, const char *pcText) {
    if (pstMsg == nullptr) return ZFAILED;
    const uint32_t n = pcText != nullptr ? static_cast<uint32_t>(std::strlen(pcText)) : 0;
    if (n == 0) return Fail(pstMsg, ABNF_ERR_NULL_STR, "AbnfAddPstStr format data.");
    if (!Append(pstMsg, pcText, n)) return Fail(pstMsg, ABNF_ERR_ADD, "AbnfAddPstStr format data.");
    return ZOK;
}

KESTRO_API uint32_t Abnf_AddPstStrN(ST_ABNF_MSG *pstMsg, const char *pcText, uint32_t uiLen) {
    if (pstMsg == nullptr) return ZFAILED;
    if (pcText == nullptr || uiLen == 0) {
        return Fail(pstMsg, ABNF_ERR_NULL_STR, "AbnfAddPstStrN null string.");
    }
    if (!Append(pstMsg, pcText, uiLen)) {
        return Fail(pstMsg, ABNF_ERR_ADD, "AbnfAddPstStrN format data.");
    }
    return ZOK;
}

KESTRO_API uint32_t Abnf_AddPstSStr(ST_ABNF_MSG *pstMsg, const ST_ZOS_SSTR *pstStr) {
    return AddSStr(pstMsg, pstStr, "AbnfAddPstSStr format data.");
}

KESTRO_API uint32_t Abnf_AddPstLSStr(ST_ABNF_MSG *pstMsg, const ST_ZOS_SSTR *pstStr) {
    return AddSStr(pstMsg, pstStr, "AbnfAddPstLSStr format data.");
}

KESTRO_API uint32_t Abnf_AddPairSStr(ST_ABNF_MSG *pstMsg, uint8_t ucChr,
                                     const ST_ZOS_SSTR *pstStr) {
    if (pstMsg == nullptr) return ZFAILED;
    if (pstStr == nullptr || pstStr->pcStr == nullptr || pstStr->uiLen == 0) {
        return Fail(pstMsg, ABNF_ERR_NULL_STR, "AbnfAddPairSStr null string.");
    }
    if (Zos_DbufPstAddD(pstMsg->zBuf, ucChr) != ZOK) {
        return Fail(pstMsg, ABNF_ERR_ADD, "AbnfAddPairSStr format 1char.");
    }
    if (!Append(pstMsg, pstStr->pcStr, pstStr->uiLen)) {
        return Fail(pstMsg, ABNF_ERR_ADD, "AbnfAddPairSStr format data.");
    }
    if (Zos_DbufPstAddD(pstMsg->zBuf, ucChr) != ZOK) {
        return Fail(pstMsg, ABNF_ERR_ADD, "AbnfAddPairSStr format 2char.");
    }
    return ZOK;
}

KESTRO_API uint32_t Abnf_AddUiDigit(ST_ABNF_MSG *pstMsg, uint32_t uiValue) {
    return AddNumber(pstMsg, "%u", uiValue, "AddUiDigit format data.");
}

KESTRO_API uint32_t Abnf_AddUsDigit(ST_ABNF_MSG *pstMsg, uint16_t usValue) {
    return AddNumber(pstMsg, "%u", usValue, "AbnfAddUsDigit format data.");
}

KESTRO_API uint32_t Abnf_AddUcDigit(ST_ABNF_MSG *pstMsg, uint8_t ucValue) {
    return AddNumber(pstMsg, "%u", ucValue, "AbnfAddUcDigit format data.");
}

KESTRO_API uint32_t Abnf_AddXUiDigit(ST_ABNF_MSG *pstMsg, uint32_t uiValue) {
    return AddNumber(pstMsg, "%X", uiValue, "AbnfAddXUlDigit format data.");
}

KESTRO_API uint32_t Abnf_AddQval(ST_ABNF_MSG *pstMsg, uint16_t usValue) {
    // The shortest digits that read back to the value: 500 -> 5, 50 -> 05,
    // 5 -> 005, 1000 -> 10.
    if (usValue % 100 == 0)
        return AddNumber(pstMsg, "%u", usValue / 100u, "AbnfAddQval format data.");
    if (usValue % 10 == 0)
        return AddNumber(pstMsg, "%02u", usValue / 10u, "AbnfAddQval format data.");
    return AddNumber(pstMsg, "%03u", usValue, "AbnfAddQval format data.");
}

KESTRO_API uint32_t Abnf_AddIpV4(ST_ABNF_MSG *pstMsg, uint32_t uiAddr) {
    char text[16];
    const uint32_t n = Zos_SNPrintf(text, sizeof(text), "%u.%u.%u.%u", uiAddr >> 24,
                                    (uiAddr >> 16) & 0xFFu, (uiAddr >> 8) & 0xFFu, uiAddr & 0xFFu);
    return Abnf_AddPstStrN(pstMsg, text, n);
}

KESTRO_API uint32_t Abnf_AddIpV6(ST_ABNF_MSG *pstMsg, const uint8_t *pucAddr) {
    if (pstMsg == nullptr) return ZFAILED;
    char text[48];
    if (pucAddr == nullptr || Zos_InetNtop(ZOS_INET_IPV6, pucAddr, text, 44) != ZOK) {
        return Fail(pstMsg, ABNF_ERR_ADD, "AbnfGetIpV6 invalid address.");
    }
    if (Abnf_AddPstStr(pstMsg, text) != ZOK) {
        return Fail(pstMsg, ABNF_ERR_ADD, "AbnfAddIpV6 add string.");
    }
    return ZOK;
}

KESTRO_API uint32_t Abnf_AddTkn(ST_ABNF_MSG *pstMsg, const ST_ABNF_TKN_TBL *pstTable,
                                uint32_t uiCount, uint32_t uiId) {
    if (pstMsg == nullptr || pstTable == nullptr) return ZFAILED;
    for (uint32_t i = 0; i < uiCount; i++) {
        if (pstTable[i].usTknId == uiId) {
            return Abnf_AddPstStrN(pstMsg, pstTable[i].pcText, pstTable[i].usLen);
        }
    }
    return ZFAILED;
}

}  // extern "C"
