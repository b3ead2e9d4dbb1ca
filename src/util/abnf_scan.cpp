// ABNF scanner: message record and buffer state, the scanning primitives
// (strings, lines, tokens, single characters), line endings, folding,
// escapes and white space per protocol.
//
// Every primitive reads only inside (base, total length): the readable
// part of the text is the remaining length cut at the text's end, and each
// loop tests the cursor against it, whatever the record's fields say.
#include <cstring>

#include "abnf_int.h"

namespace abnf {

bool Commit(ST_ABNF_MSG *msg, const char *warn) {
    if (!HasText(msg)) {
        ZOS_LOG_WARN("%s", warn);
        return false;
    }
    ST_ABNF_BUF_STATE &s = msg->stState;
    if (s.uiScannedLen != 0) {
        s.pcTknStart = s.pcCur;
        s.uiRemainLen -= s.uiScannedLen < s.uiRemainLen ? s.uiScannedLen : s.uiRemainLen;
        s.uiScannedLen = 0;
    } else {
        s.pcTknStart += msg->ucPendEol;
    }
    s.uiRemainLen -= msg->ucPendEol < s.uiRemainLen ? msg->ucPendEol : s.uiRemainLen;
    msg->ucPendEol = 0;
    msg->ucStopChr = 0;
    s.pcCur = s.pcTknStart;
    const uintptr_t start = A(s.pcTknStart);
    if (start < A(s.pcBase) || start > TextEnd(msg)) {
        ZOS_LOG_WARN("%s", warn);
        return false;
    }
    return true;
}

uint32_t ProcEol(ST_ABNF_MSG *msg, uint32_t *is_eol) {
    *is_eol = 1;
    const uint32_t ahead = Ahead(msg);
    if (ahead == 0) {
        SetErr(msg, ABNF_ERR_EXPECT);
        return ZFAILED;
    }
    ST_ABNF_BUF_STATE &s = msg->stState;
    const uint8_t *p = U(s.pcCur);
    const uint32_t behind = ahead - 1;
    const uint32_t proto = msg->uiProtocol;
    const bool crlf = p[0] == kCR && behind >= 1 && p[1] == kLF;
    if (In(kFolding, proto)) {
        if (crlf) {
            if (behind >= 2 && IsWs(p[2])) {
                *is_eol = 0;
                Take(msg, 3);
            } else {
                s.pcCur += 2;
                msg->ucPendEol = 2;
            }
            return ZOK;
        }
    } else if (In(kStrictCrlf, proto)) {
        if (crlf) {
            s.pcCur += 2;
            msg->ucPendEol = 2;
            return ZOK;
        }
    } else if (p[0] == kLF) {
        s.pcCur += 1;
        msg->ucPendEol = static_cast<uint8_t>(msg->ucPendEol + 1);
        return ZOK;
    } else if (crlf) {
        s.pcCur += 2;
        msg->ucPendEol = static_cast<uint8_t>(msg->ucPendEol + 2);
        return ZOK;
    }
    SetErr(msg, ABNF_ERR_EXPECT);
    return ZFAILED;
}

namespace {

// The escape step. Protocols 0 to 3 move only the cursor; the escape
// protocols move the scanned length with it. The readable part bounds the
// look-ahead.
uint32_t ProcEscape(ST_ABNF_MSG *msg, uint8_t chr) {
    const uint32_t ahead = Ahead(msg);
    if (ahead == 0) return ZFAILED;
    const uint8_t *p = U(msg->stState.pcCur);
    const uint32_t proto = msg->uiProtocol;
    const ST_ABNF_CHRSET *set = msg->pstChrset;
    auto inEsc = [&](uint8_t c) {
        return set != nullptr && (set->auiClass[c] & msg->uiEscapeMask) != 0;
    };
    switch (proto) {
        case 0:
        case 1:
            msg->stState.pcCur += 1;
            return ZOK;
        case 2:
            if (chr == '"' && ahead >= 2 && p[1] == '"') {
                msg->stState.pcCur += 2;
                return ZOK;
            }
            return ZFAILED;
        case 3:
            if (chr == '\\' && ahead >= 2 && p[1] == '}') {
                msg->stState.pcCur += 2;
                return ZOK;
            }
            return ZFAILED;
        default:
            break;
    }
    if (!In(kEscape, proto)) return ZFAILED;
    if (chr == '\\' && ahead >= 2 && inEsc(p[1])) {
        Take(msg, 2);
        return ZOK;
    }
    if (chr == '%' && ahead >= 3 && inEsc(p[1]) && inEsc(p[2])) {
        Take(msg, 3);
        return ZOK;
    }
    if (proto == 11) {
        Take(msg, 1);
        return ZOK;
    }
    return ZFAILED;
}

bool IsSepa(const ST_ABNF_MSG *msg, uint8_t c) {
    return c == msg->aucSepa[0] || c == msg->aucSepa[1] || c == msg->aucSepa[2] ||
           c == msg->aucSepa[3];
}

uint32_t CheckLen(ST_ABNF_MSG *msg) {
    const uint32_t n = msg->stState.uiScannedLen;
    if (msg->uiMinLen != 0 && n < msg->uiMinLen) {
        SetErr(msg, ABNF_ERR_TOO_SHORT);
        return ZFAILED;
    }
    if (msg->uiMaxLen != 0 && n > msg->uiMaxLen) {
        SetErr(msg, ABNF_ERR_TOO_LONG);
        return ZFAILED;
    }
    return ZOK;
}

void ScannedOut(const ST_ABNF_MSG *msg, ST_ZOS_SSTR *out) {
    if (out == nullptr) return;
    const uint32_t n = msg->stState.uiScannedLen;
    out->pcStr = n != 0 ? msg->stState.pcTknStart : nullptr;
    out->uiLen = n;
}

// One step of the separator form of the string and token scans (case 2):
// 0 byte taken, 1 stop, 2 went on over a fold (bytes already taken).
enum class Step { kTake, kStop, kFold };

Step SepaStep(ST_ABNF_MSG *msg, uint8_t c, uint32_t eolGroup) {
    if (IsSepa(msg, c)) {
        msg->ucStopChr = c;
        return Step::kStop;
    }
    if ((c == kCR || c == kLF) && In(eolGroup, msg->uiProtocol)) {
        uint32_t eol = 1;
        if (ProcEol(msg, &eol) != ZOK) return Step::kTake;
        if (eol == 0) return Step::kFold;
        msg->ucStopChr = c;
        return Step::kStop;
    }
    if (c == 0) return Step::kStop;
    return Step::kTake;
}

// The character-set form (case 1) of the string scan.
Step ChrsetStep(ST_ABNF_MSG *msg, const ST_ABNF_CHRSET *set, uint8_t c) {
    if ((set->auiClass[c] & msg->uiChrsetMask) != 0) return Step::kTake;
    if (msg->ucEscapeChr != 0 && c == msg->ucEscapeChr) {
        if (ProcEscape(msg, c) != ZOK) {
            msg->ucStopChr = c;
            return Step::kStop;
        }
        return Step::kFold;
    }
    if (IsWs(c)) {
        if (msg->ucFoldAllowed != 0 || msg->ucWsAllowed != 0) return Step::kTake;
        msg->ucStopChr = c;
        return Step::kStop;
    }
    if (c == kCR && msg->ucFoldAllowed != 0 && In(kFoldedWs, msg->uiProtocol)) {
        const uint32_t ahead = Ahead(msg);
        const uint8_t *p = U(msg->stState.pcCur);
        if (ahead >= 3 && p[1] == kLF && IsWs(p[2])) {
            Take(msg, 3);
            return Step::kFold;
        }
    }
    msg->ucStopChr = c;
    return Step::kStop;
}

bool ExpectChr(ST_ABNF_MSG *msg, uint8_t chr, uint32_t exact, bool take_always, const char *warn) {
    if (!Commit(msg, warn)) return false;
    if (Ahead(msg) > 0) {
        const uint8_t c = static_cast<uint8_t>(*msg->stState.pcCur);
        const bool match = exact == 1 ? c == chr : Lower(c) == Lower(chr);
        if (match || take_always) Take(msg, 1);
        if (match) {
            msg->ucStopChr = Peek(msg);
            return true;
        }
    } else if (chr == 0) {
        return true;
    }
    SetErr(msg, ABNF_ERR_EXPECT);
    return false;
}

// Restores positions saved before a tentative step (the Try forms): the
// stop character and pending count are cleared, logged frames stay.
void Rewind(ST_ABNF_MSG *msg, const ST_ABNF_BUF_STATE &save) {
    msg->stState.pcTknStart = save.pcTknStart;
    msg->stState.pcCur = save.pcCur;
    msg->stState.uiRemainLen = save.uiRemainLen;
    msg->stState.uiScannedLen = save.uiScannedLen;
    msg->ucStopChr = 0;
    msg->ucPendEol = 0;
}

// Runs a rule; when it fails, the position and the pending line end are
// put back as they were (the error frames it logged stay).
uint32_t TryRule(ST_ABNF_MSG *msg, uint32_t (*rule)(ST_ABNF_MSG *)) {
    if (msg == nullptr) return ZFAILED;
    const ST_ABNF_BUF_STATE save = msg->stState;
    const uint8_t pend = msg->ucPendEol;
    if (rule(msg) == ZOK) return ZOK;
    Rewind(msg, save);
    msg->ucPendEol = pend;
    return ZFAILED;
}

uint32_t SkipWs(ST_ABNF_MSG *msg) {
    uint32_t n = 0;
    const uint32_t ahead = Ahead(msg);
    const uint8_t *p = U(msg->stState.pcCur);
    while (n < ahead && IsWs(p[n])) n++;
    Skip(msg, n);
    return n;
}

bool IsFold(const ST_ABNF_MSG *msg) {
    const uint32_t ahead = Ahead(msg);
    const uint8_t *p = U(msg->stState.pcCur);
    return ahead >= 3 && p[0] == kCR && p[1] == kLF && IsWs(p[2]);
}

// MEGACO white space and ";" comments up to the end of a comment's line.
// False (error 8) when a comment meets a NUL or the end of the text.
bool SkipMegaco(ST_ABNF_MSG *msg) {
    for (;;) {
        const uint32_t ahead = Ahead(msg);
        const uint8_t *p = U(msg->stState.pcCur);
        uint32_t n = 0;
        while (n < ahead && (IsWs(p[n]) || p[n] == kCR || p[n] == kLF)) n++;
        if (n < ahead && p[n] == ';') {
            n++;
            while (n < ahead && p[n] != kCR && p[n] != kLF && p[n] != 0) n++;
            if (n >= ahead || p[n] == 0) {
                Skip(msg, n);
                SetErr(msg, ABNF_ERR_COMMENT);
                return false;
            }
            Skip(msg, n);
            continue;
        }
        Skip(msg, n);
        return true;
    }
}

}  // namespace

}  // namespace abnf

using namespace abnf;

extern "C" {

KESTRO_API uint32_t Abnf_MsgInitL(ST_ABNF_MSG *pstMsg, uint32_t uiProtocol,
                                  const ST_ZOS_SSTR *pstStr, ZUBUF zBuf, ST_ABNF_ERR *pstErr,
                                  uint32_t bDecode) {
    if (pstMsg == nullptr) return ZFAILED;
    std::memset(pstMsg, 0, sizeof(*pstMsg));
    pstMsg->uiProtocol = uiProtocol;
    pstMsg->zBuf = zBuf;
    pstMsg->pstErr = pstErr;
    pstMsg->uiMinVal = ABNF_NO_BOUND;
    pstMsg->uiMaxVal = ABNF_NO_BOUND;
    if (bDecode != 0) {
        if (pstStr == nullptr || pstStr->pcStr == nullptr || pstStr->uiLen == 0) {
            ZOS_LOG_WARN("AbnfMsgInitL decode invalid string.");
            return ZFAILED;
        }
        ST_ABNF_BUF_STATE &s = pstMsg->stState;
        s.pcBase = s.pcTknStart = s.pcCur = pstStr->pcStr;
        s.uiTotalLen = s.uiRemainLen = pstStr->uiLen;
        pstMsg->stSaved = s;
        return ZOK;
    }
    if (zBuf == nullptr) {
        ZOS_LOG_ERR("AbnfMsgInitL encode null memory buffer.");
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API uint32_t Abnf_MsgInit(ST_ABNF_MSG *pstMsg, uint32_t uiProtocol,
                                 const ST_ZOS_SSTR *pstStr, ZUBUF zBuf, ST_ABNF_ERR *pstErr,
                                 uint32_t bDecode) {
    ST_ZOS_SSTR copy{nullptr, 0};
    if (pstStr != nullptr) copy = *pstStr;
    return Abnf_MsgInitL(pstMsg, uiProtocol, pstStr != nullptr ? &copy : nullptr, zBuf, pstErr,
                         bDecode);
}

KESTRO_API uint32_t Abnf_MsgInitX(ST_ABNF_MSG *pstMsg, uint32_t uiProtocol, const char *pcText,
                                  ZUBUF zBuf, uint32_t bDecode) {
    ST_ZOS_SSTR str{const_cast<char *>(pcText),
                    pcText != nullptr ? static_cast<uint32_t>(std::strlen(pcText)) : 0};
    return Abnf_MsgInitL(pstMsg, uiProtocol, &str, zBuf, nullptr, bDecode);
}

KESTRO_API uint32_t Abnf_SaveBufState(ST_ABNF_MSG *pstMsg, ST_ABNF_BUF_STATE *pstSave) {
    if (pstMsg == nullptr) return ZFAILED;
    ST_ABNF_BUF_STATE *to = pstSave != nullptr ? pstSave : &pstMsg->stSaved;
    const ST_ABNF_BUF_STATE &s = pstMsg->stState;
    to->pcTknStart = s.pcTknStart;
    to->pcCur = s.pcCur;
    to->uiRemainLen = s.uiRemainLen;
    to->uiScannedLen = s.uiScannedLen;
    return ZOK;
}

KESTRO_API uint32_t Abnf_RestoreBufState(ST_ABNF_MSG *pstMsg, const ST_ABNF_BUF_STATE *pstSave) {
    if (pstMsg == nullptr) return ZFAILED;
    Rewind(pstMsg, pstSave != nullptr ? *pstSave : pstMsg->stSaved);
    ST_ABNF_ERR *err = pstMsg->pstErr;
    if (err != nullptr && err->usFrameCount != 0) {
        // Frames of the abandoned attempt go from the dump too, so the
        // report and the frame limit see only the attempt that counts.
        err->usFrameCount = 0;
        if (err->zDump != nullptr) Zos_DumpClear(err->zDump);
    }
    return ZOK;
}

KESTRO_API uint32_t Abnf_MoveBufState(ST_ABNF_MSG *pstMsg, int32_t iDelta) {
    if (!Commit(pstMsg, "AbnfMoveBufState invalid message.")) return ZFAILED;
    ST_ABNF_BUF_STATE &s = pstMsg->stState;
    const uint32_t mag = iDelta < 0 ? 0u - static_cast<uint32_t>(iDelta) : uint32_t(iDelta);
    if (mag > s.uiRemainLen || s.uiRemainLen > s.uiTotalLen || mag > s.uiTotalLen - s.uiRemainLen) {
        return ZFAILED;
    }
    // The new token start must stay inside the text even when an earlier
    // positive move left the remaining length larger than the text.
    const uintptr_t start = A(s.pcTknStart) + static_cast<intptr_t>(iDelta);
    if (start < A(s.pcBase) || start > TextEnd(pstMsg)) return ZFAILED;
    s.pcTknStart += iDelta;
    s.pcCur = s.pcTknStart;
    s.uiRemainLen += static_cast<uint32_t>(iDelta);
    return ZOK;
}

KESTRO_API uint32_t Abnf_ResetBufState(ST_ABNF_MSG *pstMsg) {
    if (pstMsg == nullptr) return ZFAILED;
    pstMsg->stState.pcCur = pstMsg->stState.pcTknStart;
    pstMsg->stState.uiScannedLen = 0;
    pstMsg->ucStopChr = 0;
    return ZOK;
}

KESTRO_API uint32_t Abnf_GetScannedStrL(ST_ABNF_MSG *pstMsg, ST_ZOS_SSTR *pstOut) {
    if (pstOut != nullptr) *pstOut = ST_ZOS_SSTR{nullptr, 0};
    if (!HasText(pstMsg)) {
        ZOS_LOG_WARN("AbnfGetScannedStrL invalid message.");
        return ZFAILED;
    }
    if (pstOut == nullptr) return ZOK;
    const uint32_t n = pstMsg->stState.uiScannedLen;
    const uint32_t lim = Remain(pstMsg);
    pstOut->uiLen = n < lim ? n : lim;
    pstOut->pcStr = pstOut->uiLen != 0 ? pstMsg->stState.pcTknStart : nullptr;
    return ZOK;
}

KESTRO_API uint32_t Abnf_GetScannedStr(ST_ABNF_MSG *pstMsg, ST_ZOS_SSTR *pstOut) {
    if (pstOut == nullptr) return ZFAILED;
    return Abnf_GetScannedStrL(pstMsg, pstOut);
}

KESTRO_API uint32_t Abnf_GetScanningStrL(ST_ABNF_MSG *pstMsg, ST_ZOS_SSTR *pstOut) {
    if (pstOut != nullptr) *pstOut = ST_ZOS_SSTR{nullptr, 0};
    if (!HasText(pstMsg)) {
        ZOS_LOG_WARN("AbnfGetScanningStrL invalid message.");
        return ZFAILED;
    }
    if (pstOut == nullptr) return ZOK;
    const ST_ABNF_BUF_STATE &s = pstMsg->stState;
    const uint64_t used = uint64_t{s.uiScannedLen} + pstMsg->ucPendEol;
    uint32_t n = s.uiRemainLen > used ? static_cast<uint32_t>(s.uiRemainLen - used) : 0;
    const uint32_t ahead = Ahead(pstMsg);
    if (n > ahead) n = ahead;
    pstOut->uiLen = n;
    pstOut->pcStr = n != 0 ? s.pcCur : nullptr;
    return ZOK;
}

KESTRO_API uint32_t Abnf_GetScanningStr(ST_ABNF_MSG *pstMsg, ST_ZOS_SSTR *pstOut) {
    if (pstOut == nullptr) return ZFAILED;
    return Abnf_GetScanningStrL(pstMsg, pstOut);
}

KESTRO_API uint32_t Abnf_ProcEol(ST_ABNF_MSG *pstMsg, uint32_t *puiIsEol) {
    uint32_t eol = 1;
    if (!HasText(pstMsg)) return ZFAILED;
    const uint32_t rc = abnf::ProcEol(pstMsg, &eol);
    if (puiIsEol != nullptr) *puiIsEol = eol;
    return rc;
}

KESTRO_API uint32_t Abnf_ProcEscapeChr(ST_ABNF_MSG *pstMsg, uint8_t ucChr) {
    if (!HasText(pstMsg)) return ZFAILED;
    const ST_ABNF_CHRSET *keep = pstMsg->pstChrset;
    pstMsg->pstChrset = LiveChrset(keep);
    const uint32_t rc = ProcEscape(pstMsg, ucChr);
    pstMsg->pstChrset = keep;
    return rc;
}

KESTRO_API uint32_t Abnf_GetStr(ST_ABNF_MSG *pstMsg, ST_ZOS_SSTR *pstOut) {
    if (pstOut != nullptr) *pstOut = ST_ZOS_SSTR{nullptr, 0};
    if (!Commit(pstMsg, "AbnfGetStr invalid message.")) return ZFAILED;
    const uint32_t lim = Remain(pstMsg);
    if (lim == 0) return ZFAILED;
    const ST_ABNF_CHRSET *set = nullptr;
    if (pstMsg->pstChrset != nullptr) {
        set = LiveChrset(pstMsg->pstChrset);
        if (set == nullptr) {
            SetErr(pstMsg, ABNF_ERR_FORM);
            return ZFAILED;
        }
    }
    const bool free_form =
        pstMsg->ucEscapeChr != 0 || pstMsg->ucFoldAllowed != 0 || pstMsg->ucWsAllowed != 0;
    if (free_form && set == nullptr) {
        SetErr(pstMsg, ABNF_ERR_FORM);
        return ZFAILED;
    }
    ST_ABNF_BUF_STATE &s = pstMsg->stState;
    if (set != nullptr) {
        const ST_ABNF_CHRSET *keep = pstMsg->pstChrset;
        pstMsg->pstChrset = set;
        while (s.uiScannedLen < lim && Ahead(pstMsg) > 0) {
            const Step st = ChrsetStep(pstMsg, set, static_cast<uint8_t>(*s.pcCur));
            if (st == Step::kStop) break;
            if (st == Step::kTake) Take(pstMsg, 1);
        }
        pstMsg->pstChrset = keep;
    } else if (pstMsg->ucSepaOn != 0) {
        while (s.uiScannedLen < lim && Ahead(pstMsg) > 0) {
            const Step st = SepaStep(pstMsg, static_cast<uint8_t>(*s.pcCur), kStringEol);
            if (st == Step::kStop) break;
            if (st == Step::kTake) Take(pstMsg, 1);
        }
    } else {
        Take(pstMsg, lim);
    }
    ScannedOut(pstMsg, pstOut);
    return CheckLen(pstMsg);
}

KESTRO_API uint32_t Abnf_GetLine(ST_ABNF_MSG *pstMsg, ST_ZOS_SSTR *pstOut) {
    if (pstOut != nullptr) *pstOut = ST_ZOS_SSTR{nullptr, 0};
    if (!Commit(pstMsg, "AbnfGetLine invalid message.")) return ZFAILED;
    const uint32_t lim = Remain(pstMsg);
    ST_ABNF_BUF_STATE &s = pstMsg->stState;
    if (lim == 0 || *s.pcCur == 0) return ZFAILED;
    while (s.uiScannedLen < lim && Ahead(pstMsg) > 0) {
        const uint8_t c = static_cast<uint8_t>(*s.pcCur);
        if (c == kCR || c == kLF) {
            uint32_t eol = 1;
            if (abnf::ProcEol(pstMsg, &eol) != ZOK) return ZFAILED;
            if (eol != 0) break;
            continue;
        }
        if (c == 0) break;
        Take(pstMsg, 1);
    }
    ScannedOut(pstMsg, pstOut);
    return CheckLen(pstMsg);
}

KESTRO_API uint32_t Abnf_GetTkn(ST_ABNF_MSG *pstMsg, uint32_t *puiId) {
    if (puiId != nullptr) *puiId = ABNF_TKN_INVALID;
    if (!Commit(pstMsg, "AbnfGetTkn invalid message.")) return ZFAILED;
    const uint32_t lim = Remain(pstMsg);
    if (lim == 0) {
        SetErr(pstMsg, ABNF_ERR_NO_TEXT);
        return ZFAILED;
    }
    const ST_ABNF_CHRSET *set = nullptr;
    if (pstMsg->pstChrset != nullptr) {
        set = LiveChrset(pstMsg->pstChrset);
        if (set == nullptr) {
            SetErr(pstMsg, ABNF_ERR_FORM);
            return ZFAILED;
        }
    }
    if ((set == nullptr && pstMsg->ucSepaOn == 0) || pstMsg->ucEscapeChr != 0 ||
        pstMsg->ucFoldAllowed != 0 || pstMsg->ucWsAllowed != 0) {
        SetErr(pstMsg, ABNF_ERR_FORM);
        return ZFAILED;
    }
    if (pstMsg->pstTknMgr == nullptr) {
        SetErr(pstMsg, ABNF_ERR_NO_TKN_MGR);
        return ZFAILED;
    }
    ST_ABNF_TKN_MGR *mgr = LiveTknMgr(pstMsg->pstTknMgr);
    const bool nocase = mgr != nullptr && mgr->usNoCase != 0;
    ST_ABNF_BUF_STATE &s = pstMsg->stState;
    uint32_t h = 5381;
    while (s.uiScannedLen < lim && Ahead(pstMsg) > 0) {
        const uint8_t c = static_cast<uint8_t>(*s.pcCur);
        if (set != nullptr) {
            if ((set->auiClass[c] & pstMsg->uiChrsetMask) == 0) {
                pstMsg->ucStopChr = c;
                break;
            }
            h = HashStep(h, c, nocase);
            Take(pstMsg, 1);
            continue;
        }
        const char *before = s.pcCur;
        const Step st = SepaStep(pstMsg, c, kTokenEol);
        if (st == Step::kStop) break;
        if (st == Step::kTake) {
            h = HashStep(h, c, nocase);
            Take(pstMsg, 1);
        } else {
            // A fold taken by the line-ending step enters the key as well,
            // so the key stays that of the scanned text.
            for (const char *p = before; p < s.pcCur; p++) h = HashStep(h, U(p)[0], nocase);
        }
    }
    const uint32_t prefix = pstMsg->uiTknPrefix;
    const uint32_t key = prefix != 0 ? h * 33u + prefix * 128u : h;
    const uint32_t id =
        Abnf_TknFindByKey(mgr, static_cast<uint16_t>(prefix), key,
                          s.uiScannedLen != 0 ? s.pcTknStart : nullptr, s.uiScannedLen);
    if (id == ABNF_TKN_INVALID) {
        SetErr(pstMsg, ABNF_ERR_EXPECT);
        return ZFAILED;
    }
    if (puiId != nullptr) *puiId = id;
    return ZOK;
}

KESTRO_API uint32_t Abnf_GetChr(ST_ABNF_MSG *pstMsg, uint8_t *pucChr) {
    if (!Commit(pstMsg, "AbnfGetChr invalid message.")) return ZFAILED;
    if (Ahead(pstMsg) == 0) {
        SetErr(pstMsg, ABNF_ERR_NO_TEXT);
        return ZFAILED;
    }
    const uint8_t c = static_cast<uint8_t>(*pstMsg->stState.pcCur);
    if (pucChr != nullptr) *pucChr = c;
    Take(pstMsg, 1);
    pstMsg->ucStopChr = Peek(pstMsg);
    return ZOK;
}

KESTRO_API uint32_t Abnf_ExpectChr(ST_ABNF_MSG *pstMsg, uint8_t ucChr, uint32_t bExact) {
    return ExpectChr(pstMsg, ucChr, bExact, true, "AbnfExpectChr invalid message.") ? ZOK : ZFAILED;
}

KESTRO_API uint32_t Abnf_TryExpectChr(ST_ABNF_MSG *pstMsg, uint8_t ucChr, uint32_t bExact) {
    return ExpectChr(pstMsg, ucChr, bExact, false, "AbnfTryExpectChr invalid message.") ? ZOK
                                                                                        : ZFAILED;
}

KESTRO_API uint32_t Abnf_ExpectEol(ST_ABNF_MSG *pstMsg) {
    const uint8_t pend = pstMsg != nullptr ? pstMsg->ucPendEol : 0;
    if (!Commit(pstMsg, "AbnfExpectEol invalid message.")) return ZFAILED;
    if (pend != 0) return ZOK;
    if (Ahead(pstMsg) > 0) {
        const uint8_t c = static_cast<uint8_t>(*pstMsg->stState.pcCur);
        uint32_t eol = 0;
        if ((c == kCR || c == kLF) && abnf::ProcEol(pstMsg, &eol) == ZOK && eol != 0) {
            ST_ABNF_BUF_STATE &s = pstMsg->stState;
            const uint32_t n = pstMsg->ucPendEol;
            s.pcTknStart = s.pcCur;
            s.uiRemainLen -= n < s.uiRemainLen ? n : s.uiRemainLen;
            pstMsg->ucPendEol = 0;
            pstMsg->ucStopChr = Peek(pstMsg);
            return ZOK;
        }
    }
    SetErr(pstMsg, ABNF_ERR_EXPECT);
    return ZFAILED;
}

KESTRO_API uint32_t Abnf_TryExpectEol(ST_ABNF_MSG *pstMsg) {
    return TryRule(pstMsg, Abnf_ExpectEol);
}

KESTRO_API uint32_t Abnf_ExpectCRLF(ST_ABNF_MSG *pstMsg) {
    const uint8_t pend = pstMsg != nullptr ? pstMsg->ucPendEol : 0;
    if (!Commit(pstMsg, "AbnfExpectCRLF invalid message.")) return ZFAILED;
    if (pend == 2) {
        const char *p = pstMsg->stState.pcTknStart;
        if (A(p) >= A(pstMsg->stState.pcBase) + 2 && p[-2] == '\r' && p[-1] == '\n') return ZOK;
    }
    if (Abnf_ExpectChr(pstMsg, kCR, 1) != ZOK) return ZFAILED;
    return Abnf_ExpectChr(pstMsg, kLF, 1);
}

KESTRO_API uint32_t Abnf_TryExpectCRLF(ST_ABNF_MSG *pstMsg) {
    return TryRule(pstMsg, Abnf_ExpectCRLF);
}

KESTRO_API uint32_t Abnf_IgnWS(ST_ABNF_MSG *pstMsg) {
    if (!Commit(pstMsg, "IgnWS invalid message.")) return ZFAILED;
    SkipWs(pstMsg);
    return ZOK;
}

KESTRO_API uint32_t Abnf_IgnLWS(ST_ABNF_MSG *pstMsg) {
    if (!Commit(pstMsg, "IgnLWS invalid message.")) return ZFAILED;
    const uint8_t c = Peek(pstMsg);
    if (Ahead(pstMsg) == 0 || !(IsWs(c) || c == kCR || c == kLF || c == ';')) return ZOK;
    const uint32_t proto = pstMsg->uiProtocol;
    if (In(kLws, proto)) {
        SkipWs(pstMsg);
        if (IsFold(pstMsg)) {
            Skip(pstMsg, 3);
            SkipWs(pstMsg);
        }
        return ZOK;
    }
    if (proto == ABNF_PROTO_MEGACO) return SkipMegaco(pstMsg) ? ZOK : ZFAILED;
    SkipWs(pstMsg);
    return ZOK;
}

KESTRO_API uint32_t Abnf_ExpectLWS(ST_ABNF_MSG *pstMsg) {
    if (!Commit(pstMsg, "AbnfExpectLWS invalid message.")) return ZFAILED;
    if (Ahead(pstMsg) == 0) {
        SetErr(pstMsg, ABNF_ERR_EXPECT);
        return ZFAILED;
    }
    const uint32_t proto = pstMsg->uiProtocol;
    const uint8_t c = Peek(pstMsg);
    if (In(kLws, proto) && proto != ABNF_PROTO_OTHER) {
        if (!(IsWs(c) || c == kCR)) {
            SetErr(pstMsg, ABNF_ERR_EXPECT);
            return ZFAILED;
        }
        SkipWs(pstMsg);
        if (Peek(pstMsg) == kCR && Ahead(pstMsg) > 0) {
            if (!IsFold(pstMsg)) {
                SetErr(pstMsg, ABNF_ERR_EXPECT);
                return ZFAILED;
            }
            Skip(pstMsg, 3);
            SkipWs(pstMsg);
        }
        return ZOK;
    }
    if (proto == ABNF_PROTO_MEGACO) {
        if (!(IsWs(c) || c == kCR || c == kLF || c == ';')) {
            SetErr(pstMsg, ABNF_ERR_EXPECT);
            return ZFAILED;
        }
        return SkipMegaco(pstMsg) ? ZOK : ZFAILED;
    }
    if (SkipWs(pstMsg) == 0) {
        SetErr(pstMsg, ABNF_ERR_EXPECT);
        return ZFAILED;
    }
    return ZOK;
}

KESTRO_API uint32_t Abnf_TryExpectLWS(ST_ABNF_MSG *pstMsg) {
    return TryRule(pstMsg, Abnf_ExpectLWS);
}

}  // extern "C"
