// ABNF rules: parameterised string and token scans, decimal, hexadecimal
// and q-value numbers with bounds, IPv4 and IPv6 addresses, and the
// whole-string converters built on them.
#include <array>
#include <cstring>

#include "abnf_int.h"
#include "zos_inet.h"

using namespace abnf;

namespace {

// Sets the scan parameters through `set`, runs the scan and clears them.
template <typename Set, typename Scan>
uint32_t WithParams(ST_ABNF_MSG *msg, Set set, Scan scan) {
    if (msg == nullptr) return ZFAILED;
    set(msg);
    const uint32_t rc = scan(msg);
    ClearParams(msg);
    return rc;
}

// Decimal digits: v := v * 10 + digit in 32 bits (wrapping), then bounds.
uint32_t Decimal(ST_ABNF_MSG *msg, uint32_t *value, const char *warn) {
    if (!Commit(msg, warn)) return ZFAILED;
    const uint32_t ahead = Ahead(msg);
    if (ahead == 0) {
        SetErr(msg, ABNF_ERR_NO_TEXT);
        return ZFAILED;
    }
    const uint8_t *p = U(msg->stState.pcCur);
    uint32_t v = 0;
    uint32_t n = 0;
    while (n < ahead && IsDigit(p[n])) v = v * 10u + (p[n++] - '0');
    if (n == 0) {
        SetErr(msg, ABNF_ERR_FORM);
        return ZFAILED;
    }
    Take(msg, n);
    *value = v;
    return ZOK;
}

uint32_t Bounds(ST_ABNF_MSG *msg, uint32_t v) {
    if (msg->uiMinVal != ABNF_NO_BOUND && v < msg->uiMinVal) {
        SetErr(msg, ABNF_ERR_BELOW_MIN);
        return ZFAILED;
    }
    if (msg->uiMaxVal != ABNF_NO_BOUND && v > msg->uiMaxVal) {
        SetErr(msg, ABNF_ERR_ABOVE_MAX);
        return ZFAILED;
    }
    msg->ucStopChr = Peek(msg);
    return ZOK;
}

// A temporary decoding message over (text, length) for the converters.
bool TempMsg(ST_ABNF_MSG *msg, const char *text, uint32_t len) {
    if (text == nullptr || len == 0) return false;
    ST_ZOS_SSTR s{const_cast<char *>(text), len};
    return Abnf_MsgInitL(msg, 0, &s, nullptr, nullptr, 1) == ZOK;
}

// True when the last rule consumed the whole string.
bool AllTaken(const ST_ABNF_MSG *msg) {
    const ST_ABNF_BUF_STATE &s = msg->stState;
    return s.uiScannedLen + msg->ucPendEol == s.uiRemainLen;
}

// Reads the whole of a text with one getter: ZOK only when the getter
// succeeds and takes every byte; the value goes out only then.
template <typename T, typename Get>
uint32_t WholeText(const char *text, uint32_t len, T *out, Get get) {
    ST_ABNF_MSG m;
    T v{};
    if (!TempMsg(&m, text, len) || get(&m, &v) != ZOK || !AllTaken(&m)) return ZFAILED;
    if (out != nullptr) *out = v;
    return ZOK;
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Abnf_GetSStrChrset(ST_ABNF_MSG *pstMsg, const ST_ABNF_CHRSET *pstSet,
                                       uint32_t uiMask, ST_ZOS_SSTR *pstOut) {
    return WithParams(
        pstMsg,
        [&](ST_ABNF_MSG *m) {
            m->pstChrset = pstSet;
            m->uiChrsetMask = uiMask;
        },
        [&](ST_ABNF_MSG *m) { return Abnf_GetStr(m, pstOut); });
}

KESTRO_API uint32_t Abnf_GetSStrEscape(ST_ABNF_MSG *pstMsg, const ST_ABNF_CHRSET *pstSet,
                                       uint32_t uiMask, uint8_t ucEscape, uint32_t uiEscMask,
                                       ST_ZOS_SSTR *pstOut) {
    return Abnf_GetNSStrEscape(pstMsg, pstSet, uiMask, ucEscape, uiEscMask, 0, 0, pstOut);
}

KESTRO_API uint32_t Abnf_GetSStrSepas(ST_ABNF_MSG *pstMsg, uint8_t ucSepa1, uint8_t ucSepa2,
                                      uint8_t ucSepa3, uint8_t ucSepa4, ST_ZOS_SSTR *pstOut) {
    return WithParams(
        pstMsg,
        [&](ST_ABNF_MSG *m) {
            m->ucSepaOn = 1;
            m->aucSepa[0] = ucSepa1;
            m->aucSepa[1] = ucSepa2;
            m->aucSepa[2] = ucSepa3;
            m->aucSepa[3] = ucSepa4;
        },
        [&](ST_ABNF_MSG *m) { return Abnf_GetStr(m, pstOut); });
}

KESTRO_API uint32_t Abnf_GetNSStrChrset(ST_ABNF_MSG *pstMsg, const ST_ABNF_CHRSET *pstSet,
                                        uint32_t uiMask, uint32_t uiMinLen, uint32_t uiMaxLen,
                                        ST_ZOS_SSTR *pstOut) {
    return WithParams(
        pstMsg,
        [&](ST_ABNF_MSG *m) {
            m->pstChrset = pstSet;
            m->uiChrsetMask = uiMask;
            m->uiMinLen = uiMinLen;
            m->uiMaxLen = uiMaxLen;
        },
        [&](ST_ABNF_MSG *m) { return Abnf_GetStr(m, pstOut); });
}

KESTRO_API uint32_t Abnf_GetNSStrEscape(ST_ABNF_MSG *pstMsg, const ST_ABNF_CHRSET *pstSet,
                                        uint32_t uiMask, uint8_t ucEscape, uint32_t uiEscMask,
                                        uint32_t uiMinLen, uint32_t uiMaxLen, ST_ZOS_SSTR *pstOut) {
    return WithParams(
        pstMsg,
        [&](ST_ABNF_MSG *m) {
            m->pstChrset = pstSet;
            m->uiChrsetMask = uiMask;
            m->ucEscapeChr = ucEscape;
            m->uiEscapeMask = uiEscMask;
            m->uiMinLen = uiMinLen;
            m->uiMaxLen = uiMaxLen;
        },
        [&](ST_ABNF_MSG *m) { return Abnf_GetStr(m, pstOut); });
}

KESTRO_API uint32_t Abnf_GetTknChrset(ST_ABNF_MSG *pstMsg, ST_ABNF_TKN_MGR *pstMgr,
                                      uint32_t uiPrefix, const ST_ABNF_CHRSET *pstSet,
                                      uint32_t uiMask, uint32_t *puiId) {
    return WithParams(
        pstMsg,
        [&](ST_ABNF_MSG *m) {
            m->pstTknMgr = pstMgr;
            m->uiTknPrefix = uiPrefix;
            m->pstChrset = pstSet;
            m->uiChrsetMask = uiMask;
        },
        [&](ST_ABNF_MSG *m) { return Abnf_GetTkn(m, puiId); });
}

KESTRO_API uint32_t Abnf_GetTknSepas(ST_ABNF_MSG *pstMsg, ST_ABNF_TKN_MGR *pstMgr,
                                     uint32_t uiPrefix, uint8_t ucSepa1, uint8_t ucSepa2,
                                     uint8_t ucSepa3, uint8_t ucSepa4, uint32_t *puiId) {
    return WithParams(
        pstMsg,
        [&](ST_ABNF_MSG *m) {
            m->pstTknMgr = pstMgr;
            m->uiTknPrefix = uiPrefix;
            m->ucSepaOn = 1;
            m->aucSepa[0] = ucSepa1;
            m->aucSepa[1] = ucSepa2;
            m->aucSepa[2] = ucSepa3;
            m->aucSepa[3] = ucSepa4;
        },
        [&](ST_ABNF_MSG *m) { return Abnf_GetTkn(m, puiId); });
}

KESTRO_API uint32_t Abnf_GetTknChrsetX(ST_ABNF_MSG *pstMsg, const ST_ABNF_CHRSET *pstSet,
                                       uint32_t uiMask, const ST_ABNF_TKN_TBL *pstTable,
                                       uint32_t uiCount, uint32_t *puiId) {
    ST_ZOS_SSTR str{nullptr, 0};
    if (Abnf_GetSStrChrset(pstMsg, pstSet, uiMask, &str) != ZOK) return ZFAILED;
    if (pstTable == nullptr) return ZFAILED;
    for (uint32_t i = 0; i < uiCount; i++) {
        const ST_ABNF_TKN_TBL &e = pstTable[i];
        if (e.usLen != str.uiLen || e.pcText == nullptr) continue;
        uint32_t k = 0;
        while (k < str.uiLen && Lower(U(e.pcText)[k]) == Lower(U(str.pcStr)[k])) k++;
        if (k == str.uiLen) {
            // The first entry's id, whichever entry matched: kept as it is.
            if (puiId != nullptr) *puiId = pstTable[0].usTknId;
            return ZOK;
        }
    }
    return ZFAILED;
}

KESTRO_API uint32_t Abnf_GetUiDigit(ST_ABNF_MSG *pstMsg, uint32_t *puiValue) {
    uint32_t v = 0;
    if (Decimal(pstMsg, &v, "AbnfGetUiDigit invalid message.") != ZOK) return ZFAILED;
    if (Bounds(pstMsg, v) != ZOK) return ZFAILED;
    if (puiValue != nullptr) *puiValue = v;
    return ZOK;
}

KESTRO_API uint32_t Abnf_GetUsDigit(ST_ABNF_MSG *pstMsg, uint16_t *pusValue) {
    uint32_t v = 0;
    if (Decimal(pstMsg, &v, "AbnfGetUsDigit invalid message.") != ZOK) return ZFAILED;
    v &= 0xFFFFu;
    if (Bounds(pstMsg, v) != ZOK) return ZFAILED;
    if (pusValue != nullptr) *pusValue = static_cast<uint16_t>(v);
    return ZOK;
}

KESTRO_API uint32_t Abnf_GetUcDigit(ST_ABNF_MSG *pstMsg, uint8_t *pucValue) {
    uint32_t v = 0;
    if (Decimal(pstMsg, &v, "AbnfGetUcDigit invalid message.") != ZOK) return ZFAILED;
    v &= 0xFFu;
    if (Bounds(pstMsg, v) != ZOK) return ZFAILED;
    if (pucValue != nullptr) *pucValue = static_cast<uint8_t>(v);
    return ZOK;
}

KESTRO_API uint32_t Abnf_GetXUiDigit(ST_ABNF_MSG *pstMsg, uint32_t *puiValue) {
    if (!Commit(pstMsg, "AbnfGetXUiDigit invalid message.")) return ZFAILED;
    const uint32_t ahead = Ahead(pstMsg);
    if (ahead == 0) {
        SetErr(pstMsg, ABNF_ERR_NO_TEXT);
        return ZFAILED;
    }
    const uint8_t *p = U(pstMsg->stState.pcCur);
    uint32_t v = 0;
    uint32_t n = 0;
    while (n < ahead && IsXDigit(p[n])) {
        if (n == 8) {
            SetErr(pstMsg, ABNF_ERR_FORM);
            return ZFAILED;
        }
        uint8_t d = 0;
        Abnf_XChr2Digit(p[n++], &d);
        v = v * 16u + d;
    }
    if (n == 0) {
        SetErr(pstMsg, ABNF_ERR_FORM);
        return ZFAILED;
    }
    Take(pstMsg, n);
    if (Bounds(pstMsg, v) != ZOK) return ZFAILED;
    if (puiValue != nullptr) *puiValue = v;
    return ZOK;
}

KESTRO_API uint32_t Abnf_GetQval(ST_ABNF_MSG *pstMsg, uint16_t *pusValue) {
    if (!Commit(pstMsg, "AbnfGetQval invalid message.")) return ZFAILED;
    const uint32_t ahead = Ahead(pstMsg);
    if (ahead == 0) {
        SetErr(pstMsg, ABNF_ERR_NO_TEXT);
        return ZFAILED;
    }
    const uint8_t *p = U(pstMsg->stState.pcCur);
    uint32_t v = 0;
    uint32_t n = 0;
    while (n < ahead && IsDigit(p[n])) {
        if (n == 3) {
            SetErr(pstMsg, ABNF_ERR_FORM);
            return ZFAILED;
        }
        v = v * 10u + (p[n++] - '0');
    }
    if (n == 0) {
        SetErr(pstMsg, ABNF_ERR_FORM);
        return ZFAILED;
    }
    Take(pstMsg, n);
    v *= n == 1 ? 100u : n == 2 ? 10u : 1u;
    if (Bounds(pstMsg, v) != ZOK) return ZFAILED;
    if (pusValue != nullptr) *pusValue = static_cast<uint16_t>(v);
    return ZOK;
}

KESTRO_API uint32_t Abnf_GetIpV4(ST_ABNF_MSG *pstMsg, uint32_t *puiAddr) {
    if (!Commit(pstMsg, "AbnfGetIpV4 invalid message.")) return ZFAILED;
    const uint32_t ahead = Ahead(pstMsg);
    if (ahead < 7) {
        SetErr(pstMsg, ABNF_ERR_FORM);
        return ZFAILED;
    }
    const uint8_t *p = U(pstMsg->stState.pcCur);
    uint8_t parts[4];
    uint32_t n = 0;
    for (int i = 0; i < 4; i++) {
        if (i > 0) {
            if (n >= ahead || p[n] != '.') {
                SetErr(pstMsg, ABNF_ERR_FORM);
                return ZFAILED;
            }
            n++;
        }
        uint32_t v = 0;
        uint32_t k = 0;
        while (k < 3 && n < ahead && IsDigit(p[n])) {
            v = v * 10u + (p[n++] - '0');
            k++;
        }
        if (k == 0 || v > 255) {
            SetErr(pstMsg, ABNF_ERR_FORM);
            return ZFAILED;
        }
        parts[i] = static_cast<uint8_t>(v);
    }
    Take(pstMsg, n);
    pstMsg->ucStopChr = Peek(pstMsg);
    if (puiAddr != nullptr) std::memcpy(puiAddr, parts, 4);
    return ZOK;
}

KESTRO_API uint32_t Abnf_GetIpV6(ST_ABNF_MSG *pstMsg, uint8_t *pucAddr) {
    if (!Commit(pstMsg, "AbnfGetIpV6 invalid message.")) return ZFAILED;
    const uint32_t ahead = Ahead(pstMsg);
    const uint8_t *p = U(pstMsg->stState.pcCur);
    uint32_t n = 0;
    bool colon = false;
    while (n < ahead && n < 43 && (IsXDigit(p[n]) || p[n] == '.' || p[n] == ':')) {
        colon = colon || p[n] == ':';
        n++;
    }
    char text[44];
    std::memcpy(text, p, n);
    text[n] = '\0';
    uint8_t addr[16];
    if (!colon || Zos_InetPton6(text, addr) != ZOK) {
        SetErr(pstMsg, ABNF_ERR_IPV6);
        return ZFAILED;
    }
    Take(pstMsg, n);
    pstMsg->ucStopChr = Peek(pstMsg);
    if (pucAddr != nullptr) std::memcpy(pucAddr, addr, 16);
    return ZOK;
}

KESTRO_API uint32_t Abnf_NStr2UiDigit(const char *pcStr, uint32_t uiLen, uint32_t *puiValue) {
    return WholeText(pcStr, uiLen, puiValue, Abnf_GetUiDigit);
}

KESTRO_API uint32_t Abnf_NStr2UsDigit(const char *pcStr, uint32_t uiLen, uint16_t *pusValue) {
    return WholeText(pcStr, uiLen, pusValue, Abnf_GetUsDigit);
}

KESTRO_API uint32_t Abnf_NStr2UcDigit(const char *pcStr, uint32_t uiLen, uint8_t *pucValue) {
    return WholeText(pcStr, uiLen, pucValue, Abnf_GetUcDigit);
}

KESTRO_API uint32_t Abnf_NStr2XUiDigit(const char *pcStr, uint32_t uiLen, uint32_t *puiValue) {
    return WholeText(pcStr, uiLen, puiValue, Abnf_GetXUiDigit);
}

KESTRO_API uint32_t Abnf_NStr2Ipv4(const char *pcStr, uint32_t uiLen, uint32_t *puiAddr) {
    return WholeText(pcStr, uiLen, puiAddr, Abnf_GetIpV4);
}

KESTRO_API uint32_t Abnf_NStr2Ipv6(const char *pcStr, uint32_t uiLen, uint8_t *pucAddr) {
    using Addr = std::array<uint8_t, 16>;
    Addr v{};
    const uint32_t rc = WholeText(
        pcStr, uiLen, &v, [](ST_ABNF_MSG *m, Addr *a) { return Abnf_GetIpV6(m, a->data()); });
    if (rc == ZOK && pucAddr != nullptr) std::memcpy(pucAddr, v.data(), v.size());
    return rc;
}

KESTRO_API uint32_t Abnf_NStrIsIpv4(const char *pcStr, uint32_t uiLen) {
    return Abnf_NStr2Ipv4(pcStr, uiLen, nullptr) == ZOK ? 1 : 0;
}

KESTRO_API uint32_t Abnf_NStrIsIpv6(const char *pcStr, uint32_t uiLen) {
    return Abnf_NStr2Ipv6(pcStr, uiLen, nullptr) == ZOK ? 1 : 0;
}

}  // extern "C"
