// Shared steps of the ABNF toolkit's sources: protocol groups, the commit
// step every primitive starts with, and the bounds every scan keeps.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "abnf.h"
#include "zos_sys.h"
#include "zos_util.h"

namespace abnf {

constexpr uint32_t Bits(std::initializer_list<uint32_t> ids) {
    uint32_t m = 0;
    for (uint32_t id : ids) m |= 1u << id;
    return m;
}

// Protocol groups as bit sets of protocol ids (all ids used are below 32).
constexpr uint32_t kFolding = Bits({5, 6, 8});
constexpr uint32_t kStrictCrlf = Bits({1, 10});
constexpr uint32_t kStringEol = Bits({1, 2, 5, 6, 8, 10, 11});
constexpr uint32_t kTokenEol = Bits({1, 2, 5, 6, 8, 10});
constexpr uint32_t kFoldedWs = Bits({5, 6, 8, 10});
constexpr uint32_t kLws = Bits({5, 6, 8, 10, 11});
constexpr uint32_t kEscape = Bits({5, 6, 8, 10, 11});

inline bool In(uint32_t group, uint32_t proto) {
    return proto < 32 && ((group >> proto) & 1u) != 0;
}

constexpr uint8_t kCR = '\r';
constexpr uint8_t kLF = '\n';
constexpr uint8_t kSP = ' ';
constexpr uint8_t kHT = '\t';

inline bool IsWs(uint8_t c) {
    return c == kSP || c == kHT;
}

// Character classes of the layer's table (index = byte + 1).
inline uint8_t CType(uint8_t c) {
    return g_aucZosCtype[c + 1];
}
inline bool IsDigit(uint8_t c) {
    return (CType(c) & 0x04) != 0;
}
inline bool IsXDigit(uint8_t c) {
    return (CType(c) & 0x80) != 0;
}
inline bool IsUpper(uint8_t c) {
    return (CType(c) & 0x01) != 0;
}
inline bool IsPrint(uint8_t c) {
    return (CType(c) & 0x57) != 0;
}
inline uint8_t Lower(uint8_t c) {
    return static_cast<uint8_t>(c + ((CType(c) & 0x01) << 5));
}

inline const uint8_t *U(const char *p) {
    return reinterpret_cast<const uint8_t *>(p);
}
inline uintptr_t A(const void *p) {
    return reinterpret_cast<uintptr_t>(p);
}

inline void SetErr(ST_ABNF_MSG *msg, uint32_t code) {
    if (msg != nullptr && msg->pstErr != nullptr) {
        msg->pstErr->usErrCode = static_cast<uint16_t>(code);
    }
}

// End of the text: base + total length.
inline uintptr_t TextEnd(const ST_ABNF_MSG *msg) {
    return A(msg->stState.pcBase) + msg->stState.uiTotalLen;
}

// The remaining length as far as the text really goes: a record whose
// remaining length points past the end of the text (a positive move grows
// it, or a caller filled the record) is read only up to the end.
inline uint32_t Remain(const ST_ABNF_MSG *msg) {
    const ST_ABNF_BUF_STATE &s = msg->stState;
    const uintptr_t start = A(s.pcTknStart);
    const uintptr_t end = TextEnd(msg);
    if (start < A(s.pcBase) || start > end) return 0;
    const uintptr_t room = end - start;
    return s.uiRemainLen < room ? s.uiRemainLen : static_cast<uint32_t>(room);
}

// Bytes from the cursor to the end of the readable part (0 when the cursor
// is outside it).
inline uint32_t Ahead(const ST_ABNF_MSG *msg) {
    const ST_ABNF_BUF_STATE &s = msg->stState;
    const uintptr_t start = A(s.pcTknStart);
    const uintptr_t cur = A(s.pcCur);
    const uintptr_t lim = start + Remain(msg);
    if (cur < start || cur >= lim) return 0;
    return static_cast<uint32_t>(lim - cur);
}

inline bool HasText(const ST_ABNF_MSG *msg) {
    return msg != nullptr && msg->stState.pcBase != nullptr && msg->stState.pcTknStart != nullptr &&
           msg->stState.pcCur != nullptr;
}

// The commit step: takes the scanned token (or a pending line ending) off
// the front of the remaining text. Fails with the caller's warning for a
// record without text or whose token start lies outside the text.
bool Commit(ST_ABNF_MSG *msg, const char *warn);

// Moves the cursor (and the scanned length) by n bytes of the token.
inline void Take(ST_ABNF_MSG *msg, uint32_t n) {
    msg->stState.pcCur += n;
    msg->stState.uiScannedLen += n;
}

// Skips n bytes before any token: token start, cursor and remaining follow.
inline void Skip(ST_ABNF_MSG *msg, uint32_t n) {
    msg->stState.pcTknStart += n;
    msg->stState.pcCur = msg->stState.pcTknStart;
    msg->stState.uiRemainLen -= n < msg->stState.uiRemainLen ? n : msg->stState.uiRemainLen;
}

// The next byte after the cursor, 0 at the end.
inline uint8_t Peek(const ST_ABNF_MSG *msg) {
    return Ahead(msg) > 0 ? static_cast<uint8_t>(*msg->stState.pcCur) : 0;
}

// The line-ending step without the warnings of the exported form.
uint32_t ProcEol(ST_ABNF_MSG *msg, uint32_t *is_eol);

// Clears the scan parameters after a rule (stop character and pending
// count stay: they are results of the scan).
inline void ClearParams(ST_ABNF_MSG *msg) {
    msg->ucFoldAllowed = 0;
    msg->ucWsAllowed = 0;
    msg->ucEscapeChr = 0;
    msg->uiEscapeMask = 0;
    msg->pstChrset = nullptr;
    msg->uiChrsetMask = 0;
    msg->uiMinLen = 0;
    msg->uiMaxLen = 0;
    msg->uiTknPrefix = 0;
    msg->pstTknMgr = nullptr;
    msg->ucSepaOn = 0;
    for (uint8_t &c : msg->aucSepa) c = 0;
}

// A live character set, or null.
const ST_ABNF_CHRSET *LiveChrset(const ST_ABNF_CHRSET *set);
// A live token manager, or null.
ST_ABNF_TKN_MGR *LiveTknMgr(ST_ABNF_TKN_MGR *mgr);

// djb2 step with the manager's case folding.
inline uint32_t HashStep(uint32_t h, uint8_t c, bool nocase) {
    return h * 33u + (nocase ? Lower(c) : c);
}

}  // namespace abnf
