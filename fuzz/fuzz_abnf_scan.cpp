// Runs a random sequence of ABNF scanning primitives and rules over the
// input under a random protocol id, and checks after every step that the
// record and every result stay inside the text.
//
// Input: byte 0 picks the protocol (0 to 12), byte 1 the number of steps
// (at most 48), then one byte per step; the rest is the text, copied into
// a heap block of exactly its size.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "fuzz_layer.h"
#include "kestro_lite.h"

namespace {

ST_ABNF_CHRSET *g_set = nullptr;
ST_ABNF_TKN_MGR *g_mgr = nullptr;

void Fail(const char *what, uint32_t step) {
    std::fprintf(stderr, "fuzz_abnf_scan: %s at step %u\n", what, step);
    std::abort();
}

struct Check {
    const char *base;
    uint32_t len;
    uint32_t step;
    void In(const ST_ZOS_SSTR &s, const char *what) const {
        if (s.uiLen == 0) return;
        if (s.pcStr < base || s.pcStr + s.uiLen > base + len) Fail(what, step);
    }
};

uint32_t Step(ST_ABNF_MSG *m, uint8_t op, Check &chk) {
    ST_ZOS_SSTR out{};
    uint32_t id = 0, v = 0, eol = 0;
    uint16_t us = 0;
    uint8_t uc = 0, ip6[16];
    const uint32_t mask = 1u << (op & 3);
    uint32_t rc = 0;
    switch (op >> 3) {
        case 0:
            rc = Abnf_GetSStrChrset(m, g_set, mask, &out);
            break;
        case 1:
            rc = Abnf_GetSStrEscape(m, g_set, mask, (op & 4) ? '%' : '\\', 8, &out);
            break;
        case 2:
            rc = Abnf_GetSStrSepas(m, ';', ',', ' ', op & 4 ? ':' : '=', &out);
            break;
        case 3:
            rc = Abnf_GetNSStrChrset(m, g_set, mask, op & 4 ? 2 : 0, 5, &out);
            break;
        case 4:
            rc = Abnf_GetLine(m, &out);
            break;
        case 5:
            rc = Abnf_GetTknChrset(m, g_mgr, op & 4, g_set, 1, &id);
            break;
        case 6:
            rc = Abnf_GetTknSepas(m, g_mgr, 0, ' ', ':', ';', 0, &id);
            break;
        case 7:
            rc = Abnf_GetChr(m, &uc);
            break;
        case 8:
            rc = Abnf_ExpectChr(m, op & 4 ? ':' : ' ', op & 1);
            break;
        case 9:
            rc = Abnf_TryExpectChr(m, op & 4 ? 0 : '\r', op & 1);
            break;
        case 10:
            rc = op & 4 ? Abnf_ExpectEol(m) : Abnf_TryExpectEol(m);
            break;
        case 11:
            rc = op & 4 ? Abnf_ExpectCRLF(m) : Abnf_TryExpectCRLF(m);
            break;
        case 12:
            rc = op & 4 ? Abnf_ExpectLWS(m) : Abnf_TryExpectLWS(m);
            break;
        case 13:
            rc = op & 4 ? Abnf_IgnWS(m) : Abnf_IgnLWS(m);
            break;
        case 14:
            rc = Abnf_ProcEol(m, &eol);
            break;
        case 15:
            rc = Abnf_ProcEscapeChr(m, op & 4 ? '%' : '\\');
            break;
        case 16:
            rc = Abnf_GetUiDigit(m, &v);
            break;
        case 17:
            rc = op & 4 ? Abnf_GetUsDigit(m, &us) : Abnf_GetUcDigit(m, &uc);
            break;
        case 18:
            rc = Abnf_GetXUiDigit(m, &v);
            break;
        case 19:
            rc = Abnf_GetQval(m, &us);
            break;
        case 20:
            rc = Abnf_GetIpV4(m, &v);
            break;
        case 21:
            rc = Abnf_GetIpV6(m, ip6);
            break;
        case 22:
            rc = Abnf_SaveBufState(m, nullptr);
            break;
        case 23:
            rc = Abnf_RestoreBufState(m, nullptr);
            break;
        case 24:
            rc = Abnf_MoveBufState(m, int32_t(op & 7) - 4);
            break;
        case 25:
            rc = Abnf_ResetBufState(m);
            break;
        case 26:
            rc = Abnf_ErrLog(m, 0, 0, "step", op);
            break;
        case 27: {
            // A raw scan with caller-set parameters, as codecs set them.
            m->pstChrset = (op & 4) ? g_set : nullptr;
            m->uiChrsetMask = mask;
            m->ucFoldAllowed = op & 1;
            m->ucWsAllowed = op & 2;
            rc = Abnf_GetStr(m, &out);
            m->pstChrset = nullptr;
            m->ucFoldAllowed = m->ucWsAllowed = 0;
            break;
        }
        default:
            rc = Abnf_GetScannedStrL(m, &out);
            break;
    }
    chk.In(out, "result outside the text");
    ST_ZOS_SSTR s{};
    Abnf_GetScannedStrL(m, &s);
    chk.In(s, "scanned part outside the text");
    Abnf_GetScanningStrL(m, &s);
    chk.In(s, "scanning part outside the text");
    return rc;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    kfuzz::StartQuietLayer();
    g_set = Abnf_ChrsetCreate(1);
    Abnf_ChrsetSetStr(g_set, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-_.!~*'", 1);
    Abnf_ChrsetSetStr(g_set, "0123456789", 2 | 8);
    Abnf_ChrsetSetStr(g_set, "abcdefABCDEF", 8);
    Abnf_ChrsetSetStr(g_set, " \t;=,:/@<>\"", 4);
    g_mgr = Abnf_TknMgrCreate(1, 1, 16);
    for (const char *t : {"INVITE", "Via", "v", "To", "Call-ID", "m", "a", "c", "SIP"}) {
        Abnf_TknAdd(g_mgr, 0, t, uint32_t(std::strlen(t)), uint16_t(t[0]));
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 3 || size > 1u << 16) return 0;
    const uint32_t proto = data[0] % 13;
    const uint32_t steps = data[1] % 49;
    if (size < 2 + steps + 1) return 0;
    const uint8_t *ops = data + 2;
    const uint32_t len = uint32_t(size - 2 - steps);
    std::unique_ptr<char[]> text(new char[len]);
    std::memcpy(text.get(), data + 2 + steps, len);
    ST_ABNF_ERR err;
    ST_ABNF_MSG msg;
    Abnf_ErrInit(&err);
    ST_ZOS_SSTR s{text.get(), len};
    if (Abnf_MsgInit(&msg, proto, &s, nullptr, &err, 1) != ZOK) std::abort();
    Check chk{text.get(), len, 0};
    for (uint32_t i = 0; i < steps; i++) {
        chk.step = i;
        Step(&msg, ops[i], chk);
    }
    Abnf_ErrLogPrint(&msg, nullptr);
    Abnf_ErrDestroy(&err);
    return 0;
}
