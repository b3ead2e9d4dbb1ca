// Allocating forms of the Base64, Base32 and Base16 codecs.
//
// Every member runs the same steps around its raw codec: clear the
// result, ask the codec for the output length (a null output only
// measures and checks the input length), take length + 1 cleared bytes
// from the caller's buffer or, without one, a system string, and run the
// codec into them. The members differ only in the codec and in the name
// and level of their log lines, so one template carries the steps.
#include <cstring>

#include "zbase16.h"
#include "zbase32.h"
#include "zbase64.h"
#include "zos_mem.h"
#include "zos_ubuf.h"
#include "zos_util.h"

namespace {

struct Member {
    const char *pcName;  // the function's name, first word of its log lines
    const char *pcCode;  // what the codec step is called: "encode data"
    bool bWarn;          // failures are warnings rather than errors
};

void LogFail(const Member &m, const char *pcWhat) {
    if (m.bWarn) {
        ZOS_LOG_WARN("%s %s.", m.pcName, pcWhat);
    } else {
        ZOS_LOG_ERR("%s %s.", m.pcName, pcWhat);
    }
}

// Raw is called as raw(input, input length, output, &size) with the raw
// codec's meaning of size: capacity in, length written out; a null output
// only reports the length.
template <typename Raw>
uint32_t AllocCode(const Member &m, ZUBUF zBuf, const char *pcIn, uint32_t uiInLen, char **ppcOut,
                   uint32_t *puiOutLen, Raw raw) {
    if (ppcOut == nullptr || puiOutLen == nullptr) return ZFAILED;
    *ppcOut = nullptr;
    *puiOutLen = 0;

    uint32_t need = 0;
    if (raw(pcIn, uiInLen, nullptr, &need) != ZOK) {
        LogFail(m, "get length");
        return ZFAILED;
    }
    // One byte more than the text, for a terminating zero.
    char *out = nullptr;
    if (need < 0xFFFFFFFFu) {
        out = zBuf != nullptr ? static_cast<char *>(Zos_UbufAlloc(zBuf, need + 1))
                              : Zos_SysStrAllocN(need);
    }
    if (out == nullptr) {
        LogFail(m, "allocate buffer");
        return ZFAILED;
    }
    std::memset(out, 0, static_cast<size_t>(need) + 1);

    uint32_t size = need;
    if (raw(pcIn, uiInLen, out, &size) != ZOK) {
        LogFail(m, m.pcCode);
        if (zBuf != nullptr) {
            Zos_UbufFree(zBuf, out);
        } else {
            Zos_SysStrFree(out);
        }
        return ZFAILED;
    }
    *ppcOut = out;
    *puiOutLen = size;
    return ZOK;
}

const char *Text(const ST_ZOS_SSTR *pstStr) {
    return pstStr != nullptr ? pstStr->pcStr : nullptr;
}
uint32_t Len(const ST_ZOS_SSTR *pstStr) {
    return pstStr != nullptr ? pstStr->uiLen : 0;
}
const uint8_t *Bytes(const char *pc) {
    return reinterpret_cast<const uint8_t *>(pc);
}
uint8_t *Bytes(char *pc) {
    return reinterpret_cast<uint8_t *>(pc);
}

uint32_t B64Decode(const char *in, uint32_t len, char *out, uint32_t *size) {
    return Zbase64_Decode(in, len, Bytes(out), size);
}
uint32_t B32Encode(const char *in, uint32_t len, char *out, uint32_t *size) {
    return Zbase32_Encode(Bytes(in), len, out, size);
}
uint32_t B32Decode(const char *in, uint32_t len, char *out, uint32_t *size) {
    return Zbase32_Decode(in, len, Bytes(out), size);
}
uint32_t B16Encode(const char *in, uint32_t len, char *out, uint32_t *size) {
    return Zbase16_Encode(Bytes(in), len, out, size);
}
uint32_t B16Decode(const char *in, uint32_t len, char *out, uint32_t *size) {
    return Zbase16_Decode(in, len, Bytes(out), size);
}

constexpr Member kB64Enc{"Zbase64_EncodeX", "encode data", false};
constexpr Member kB64Dec{"Zbase64_DecodeX", "decode data", true};
constexpr Member kB64DecXX{"Zbase64_DecodeXX", "decode data", false};
constexpr Member kB32Enc{"Zbase32_EncodeX", "encode data", false};
constexpr Member kB32Dec{"Zbase32_DecodeX", "decode data", false};
constexpr Member kB16Enc{"Zbase16_EncodeX", "encode data", false};
constexpr Member kB16Dec{"Zbase16_DecodeX", "decode data", false};

// The counted-string members: input and result are counted strings.
template <typename Raw>
uint32_t AllocCodeS(const Member &m, ZUBUF zBuf, const ST_ZOS_SSTR *pstIn, ST_ZOS_SSTR *pstResult,
                    Raw raw) {
    if (pstResult == nullptr) return ZFAILED;
    return AllocCode(m, zBuf, Text(pstIn), Len(pstIn), &pstResult->pcStr, &pstResult->uiLen, raw);
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zbase64_EncodeX(ZUBUF zBuf, const ST_ZOS_SSTR *pstData, uint32_t bUrlSafe,
                                    ST_ZOS_SSTR *pstResult) {
    return AllocCodeS(kB64Enc, zBuf, pstData, pstResult,
                      [bUrlSafe](const char *in, uint32_t len, char *out, uint32_t *size) {
                          return Zbase64_Encode(Bytes(in), len, bUrlSafe, out, size);
                      });
}

KESTRO_API uint32_t Zbase64_DecodeX(ZUBUF zBuf, const ST_ZOS_SSTR *pstText,
                                    ST_ZOS_SSTR *pstResult) {
    return AllocCodeS(kB64Dec, zBuf, pstText, pstResult, B64Decode);
}

KESTRO_API uint32_t Zbase64_DecodeXX(ZUBUF zBuf, const char *pcText, uint32_t uiLen,
                                     char **ppcResult, uint32_t *puiResultLen) {
    return AllocCode(kB64DecXX, zBuf, pcText, uiLen, ppcResult, puiResultLen, B64Decode);
}

KESTRO_API uint32_t Zbase32_EncodeX(ZUBUF zBuf, const ST_ZOS_SSTR *pstData,
                                    ST_ZOS_SSTR *pstResult) {
    return AllocCodeS(kB32Enc, zBuf, pstData, pstResult, B32Encode);
}

KESTRO_API uint32_t Zbase32_DecodeX(ZUBUF zBuf, const ST_ZOS_SSTR *pstText,
                                    ST_ZOS_SSTR *pstResult) {
    return AllocCodeS(kB32Dec, zBuf, pstText, pstResult, B32Decode);
}

KESTRO_API uint32_t Zbase16_EncodeX(ZUBUF zBuf, const ST_ZOS_SSTR *pstData,
                                    ST_ZOS_SSTR *pstResult) {
    return AllocCodeS(kB16Enc, zBuf, pstData, pstResult, B16Encode);
}

KESTRO_API uint32_t Zbase16_DecodeX(ZUBUF zBuf, const ST_ZOS_SSTR *pstText,
                                    ST_ZOS_SSTR *pstResult) {
    return AllocCodeS(kB16Dec, zBuf, pstText, pstResult, B16Decode);
}

}  // extern "C"
