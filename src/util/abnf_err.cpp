// ABNF error record: the first error's position, a dump of at most five
// frames logged by the codecs on their way out, and the readable report
// with a caret under the byte where decoding stopped.
#include <cstring>

#include "abnf_int.h"
#include "zos_dbuf.h"
#include "zos_print.h"

namespace {

constexpr uint16_t kMaxFrames = 5;
constexpr uint32_t kCtxBefore = 10;
constexpr uint32_t kCtxMax = 62;

const char *ProtoName(uint32_t proto) {
    switch (proto) {
        case 1:
            return "SDP";
        case 2:
            return "MGCP";
        case 3:
            return "MEGACO/H.248";
        case 5:
            return "SIP";
        case 6:
            return "RTSP";
        case 8:
            return "HTTP";
        case 10:
            return "MSRP";
        default:
            return "UNKNOWN";
    }
}

// Appends a counted text in pieces the accumulator takes whole.
void PutText(ZDBUF out, char *buf, uint32_t *len, const char *text, uint32_t n) {
    constexpr uint32_t kPiece = 256;
    while (n > 0) {
        const uint32_t k = n < kPiece ? n : kPiece;
        Zos_PrintOutPutNStr(out, buf, len, text, k);
        text += k;
        n -= k;
    }
}

// The decoding part of the report: the code and, when the position lies
// in the text, up to 62 bytes of context from at most 10 bytes before it
// with a caret under the error byte.
void PutDecodeInfo(const ST_ABNF_MSG *msg, ZDBUF out, char *buf, uint32_t *len) {
    const ST_ABNF_ERR *err = msg->pstErr;
    if (err == nullptr) {
        Zos_PrintOutPutFmt(out, buf, len, "  ABNF Error Without Info.");
        return;
    }
    const ST_ABNF_BUF_STATE &s = msg->stState;
    const uintptr_t base = abnf::A(s.pcBase);
    const uintptr_t end = base + s.uiTotalLen;
    const uintptr_t pos = abnf::A(err->pcErrPos);
    if (s.pcBase == nullptr || err->pcErrPos == nullptr || pos < base || pos >= end) {
        Zos_PrintOutPutFmt(out, buf, len, "  ABNF Error Code %d\r\n",
                           static_cast<int>(err->usErrCode));
        return;
    }
    const uintptr_t from = pos - base > kCtxBefore ? pos - kCtxBefore : base;
    const uint32_t n = static_cast<uint32_t>(end - from < kCtxMax ? end - from : kCtxMax);
    char ctx[kCtxMax + 1];
    const auto *src = reinterpret_cast<const uint8_t *>(from);
    for (uint32_t i = 0; i < n; i++) ctx[i] = abnf::IsPrint(src[i]) ? char(src[i]) : '.';
    ctx[n] = '\0';
    char caret[kCtxBefore + 8];
    const uint32_t pad = static_cast<uint32_t>(pos - from);
    std::memset(caret, ' ', pad);
    caret[pad] = '\0';
    Zos_PrintOutPutFmt(out, buf, len, "  ABNF Error Code %d, String:\r\n",
                       static_cast<int>(err->usErrCode));
    Zos_PrintOutPutFmt(out, buf, len, "    \"%s\"\r\n", ctx);
    Zos_PrintOutPutFmt(out, buf, len, "     %s^\r\n", caret);
}

void PutEncodeInfo(const ST_ABNF_MSG *msg, ZDBUF out, char *buf, uint32_t *len) {
    const uint32_t total = Zos_DbufLen(msg->zBuf);
    if (total == 0) {
        Zos_PrintOutPutFmt(out, buf, len, "*****encoded nothing in buffer.\r\n");
        return;
    }
    Zos_PrintOutPutFmt(out, buf, len, "*****encoded data in buffer:\r\n");
    const uint32_t blocks = Zos_DbufBlkSize(msg->zBuf);
    for (uint32_t i = 0; i < blocks; i++) {
        const uint8_t *data = Zos_DbufBlkData(msg->zBuf, i);
        const uint32_t n = Zos_DbufBlkLen(msg->zBuf, i);
        if (data != nullptr) PutText(out, buf, len, reinterpret_cast<const char *>(data), n);
    }
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Abnf_ErrInit(ST_ABNF_ERR *pstErr) {
    if (pstErr == nullptr) return ZFAILED;
    std::memset(pstErr, 0, sizeof(*pstErr));
    pstErr->zDump = Zos_DumpCreate("abnf", 6);
    return ZOK;
}

KESTRO_API uint32_t Abnf_ErrDestroy(ST_ABNF_ERR *pstErr) {
    if (pstErr == nullptr) return ZFAILED;
    if (pstErr->zDump != nullptr) Zos_DumpDelete(pstErr->zDump);
    pstErr->zDump = nullptr;
    return ZOK;
}

KESTRO_API uint32_t Abnf_ErrLog(ST_ABNF_MSG *pstMsg, uint32_t uiA, uint32_t uiB, const char *pcText,
                                uint32_t uiLine) {
    (void)uiA;
    (void)uiB;
    if (pstMsg == nullptr || pstMsg->pstErr == nullptr) return ZFAILED;
    ST_ABNF_ERR *err = pstMsg->pstErr;
    if (err->usFrameCount >= kMaxFrames) return ZFAILED;
    if (err->usFrameCount == 0) err->pcErrPos = pstMsg->stState.pcTknStart;
    if (err->zDump != nullptr) Zos_DumpStack(err->zDump, nullptr, uiLine, pcText, uiLine);
    err->usFrameCount++;
    return ZOK;
}

KESTRO_API uint32_t Abnf_ErrClear(ST_ABNF_MSG *pstMsg) {
    if (pstMsg == nullptr || pstMsg->pstErr == nullptr) return ZFAILED;
    ST_ABNF_ERR *err = pstMsg->pstErr;
    err->usFrameCount = 0;
    err->pcErrPos = nullptr;
    if (err->zDump != nullptr) Zos_DumpClear(err->zDump);
    return ZOK;
}

KESTRO_API uint32_t Abnf_ErrLogPrint(ST_ABNF_MSG *pstMsg, const char *pcLogName) {
    if (pstMsg == nullptr) return ZFAILED;
    ZDBUF out = nullptr;
    if (pcLogName != nullptr) {
        out = Zos_DbufCreate(nullptr, 1, 256);
        if (out == nullptr) return ZFAILED;
    }
    const bool encode = pstMsg->zBuf != nullptr && Zos_DbufType(pstMsg->zBuf) == 1;
    char buf[ZOS_PRINT_OUT_SIZE];
    char *acc = nullptr;
    uint32_t len = 0;
    Zos_PrintOutStart(buf, &acc, &len);
    Zos_PrintOutPutFmt(out, buf, &len, "\r\n---------------------------------------------\r\n");
    Zos_PrintOutPutFmt(out, buf, &len, "%s %s Error, More Detail See Below:\r\n",
                       ProtoName(pstMsg->uiProtocol), encode ? "Encode" : "Decode");
    if (encode) {
        PutEncodeInfo(pstMsg, out, buf, &len);
    } else {
        PutDecodeInfo(pstMsg, out, buf, &len);
    }
    const ST_ABNF_ERR *err = pstMsg->pstErr;
    if (err != nullptr && err->zDump != nullptr && err->usFrameCount != 0) {
        Zos_PrintOutEnd(out, buf, &len);
        Zos_DumpPrintBuf(err->zDump, out);
    }
    Zos_PrintOutPutFmt(out, buf, &len, "---------------------------------------------\r\n\r\n");
    Zos_PrintOutEnd(out, buf, &len);
    if (out == nullptr) return ZOK;
    uint32_t rc = ZFAILED;
    const uint32_t n = Zos_DbufLen(out);
    auto *text = static_cast<char *>(Zos_Malloc(n + 1));
    if (text != nullptr && Zos_DbufCopyD(out, 0, n, text) == ZOK) {
        text[n] = '\0';
        rc = Zos_LogNameFStr(Zos_LogGetZosId(), pcLogName, 2, "%s", text);
    }
    Zos_Free(text);
    Zos_DbufDelete(out);
    return rc;
}

}  // extern "C"
