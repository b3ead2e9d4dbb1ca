// String utilities and number conversions.
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "zos_dbuf.h"
#include "zos_fmt.h"
#include "zos_mem.h"
#include "zos_str.h"
#include "zos_sys.h"
#include "zos_ubuf.h"
#include "zos_util.h"

namespace {

constexpr uint8_t kUpper = 0x01, kLower = 0x02, kDigit = 0x04, kHex = 0x80, kPrintable = 0x57;

inline uint8_t ClassOf(char c) {
    return g_aucZosCtype[static_cast<uint8_t>(c) + 1];
}
inline bool IsDigit(char c) {
    return (ClassOf(c) & kDigit) != 0;
}
inline bool IsHex(char c) {
    return (ClassOf(c) & kHex) != 0;
}
inline char ToLower(char c) {
    return (ClassOf(c) & kUpper) != 0 ? static_cast<char>(c + 32) : c;
}
inline char ToUpper(char c) {
    return (ClassOf(c) & kLower) != 0 ? static_cast<char>(c - 32) : c;
}
inline bool IsTrimSpace(char c, bool ext) {
    return c == ' ' || c == '\t' || (ext && (c == '\n' || c == '\r'));
}

inline uint32_t Len(const char *s) {
    return s == nullptr ? 0 : static_cast<uint32_t>(std::strlen(s));
}

// ------------------------------------------------------------ copies

uint32_t CopyBounded(char *dst, uint32_t size, const char *src, uint32_t len) {
    if (dst == nullptr || size == 0) return ZFAILED;
    if (src == nullptr) len = 0;
    if (len > size - 1) len = size - 1;
    if (len != 0) std::memmove(dst, src, len);
    dst[len] = '\0';
    return ZOK;
}

// ------------------------------------------------------- comparisons

template <bool kFold>
inline bool SameChar(char a, char b) {
    return kFold ? ToLower(a) == ToLower(b) : a == b;
}

// Equal bytes, compared from the last one backwards.
template <bool kFold>
bool SameBytes(const char *a, const char *b, uint32_t len) {
    for (uint32_t i = len; i-- > 0;) {
        if (!SameChar<kFold>(a[i], b[i])) return false;
    }
    return true;
}

// 0 when both are non-empty, of equal length and equal; 1 otherwise.
template <bool kFold>
uint32_t Differs(const char *a, uint32_t lenA, const char *b, uint32_t lenB) {
    if (a == nullptr || b == nullptr || lenA == 0 || lenA != lenB) return 1;
    return SameBytes<kFold>(a, b, lenA) ? 0 : 1;
}

template <bool kFold>
uint32_t HeadTailDiffers(const char *s, uint32_t len, const char *part, uint32_t partLen,
                         uint32_t head) {
    if (s == nullptr || part == nullptr || len == 0 || partLen == 0 || partLen > len) return 1;
    return SameBytes<kFold>(head != 0 ? s : s + (len - partLen), part, partLen) ? 0 : 1;
}

template <bool kFold>
int32_t Compare(const char *a, const char *b, uint32_t limit) {
    if (a == nullptr) a = "";
    if (b == nullptr) b = "";
    for (uint32_t i = 0; i < limit; ++i) {
        const auto ca = static_cast<uint8_t>(kFold ? ToLower(a[i]) : a[i]);
        const auto cb = static_cast<uint8_t>(kFold ? ToLower(b[i]) : b[i]);
        if (ca != cb || ca == 0) return static_cast<int32_t>(ca) - static_cast<int32_t>(cb);
    }
    return 0;
}

template <bool kFold>
char *Find(const char *s, uint32_t len, const char *sub) {
    if (s == nullptr || sub == nullptr) return nullptr;
    const uint32_t subLen = Len(sub);
    if (subLen > len) return nullptr;
    for (uint32_t i = 0; i + subLen <= len; ++i) {
        uint32_t k = 0;
        while (k < subLen && SameChar<kFold>(s[i + k], sub[k])) ++k;
        if (k == subLen) return const_cast<char *>(s + i);
    }
    return nullptr;
}

// ---------------------------------------------------------- trimming

enum TrimSides : uint32_t { kLeft = 1, kRight = 2, kBoth = 3 };

uint32_t TrimText(char **pp, uint32_t *plen, uint32_t ext, uint32_t sides, bool collapse) {
    if (pp == nullptr || *pp == nullptr) return ZFAILED;
    const bool wide = ext != 0;
    char *s = *pp;
    uint32_t len = plen != nullptr ? *plen : Len(s);
    if ((sides & kLeft) != 0) {
        while (len != 0 && IsTrimSpace(*s, wide)) {
            ++s;
            --len;
        }
    }
    if ((sides & kRight) != 0) {
        while (len != 0 && IsTrimSpace(s[len - 1], wide)) --len;
    }
    if (collapse) {
        // Keep the first character of every inner run of whitespace.
        uint32_t w = 0;
        bool prevSpace = false;
        for (uint32_t r = 0; r < len; ++r) {
            const bool space = IsTrimSpace(s[r], wide);
            if (!(space && prevSpace)) s[w++] = s[r];
            prevSpace = space;
        }
        len = w;
    }
    *pp = s;
    if (plen != nullptr) {
        *plen = len;
    } else if (s[len] != '\0') {
        s[len] = '\0';
    }
    return ZOK;
}

// ------------------------------------------------------ case mapping

template <char (*kMap)(char)>
uint32_t MapCase(char *s, uint32_t len) {
    if (s == nullptr) return ZFAILED;
    for (uint32_t i = 0; i < len; ++i) s[i] = kMap(s[i]);
    return ZOK;
}

// -------------------------------------------------------- Str2NPS

// The shared empty result, laid out like a system string but with a zero
// magic word, so a mistaken Zos_SysStrFree of it is refused.
struct SharedEmpty {
    uint32_t uiMagic;
    uint32_t uiLen;
    char acText[4];
};
constexpr SharedEmpty kSharedEmpty = {0, 0, {0, 0, 0, 0}};

// ---------------------------------------------------- number to text

template <class T>
uint32_t NumToText(char *dst, uint32_t size, const char *fmt, T value) {
    if (dst == nullptr || size == 0) return ZFAILED;
    const int32_t bound = size > 0x7FFFFFFFu ? 0x7FFFFFFF : static_cast<int32_t>(size);
    Zos_SNPrintf(dst, bound, fmt, value);
    return ZOK;
}

// ---------------------------------------------------- text to number

// Decimal rule: an optional sign, then 1 to maxDigits digits; a text of
// maxDigits digits is compared digit by digit with the limit first, so
// the conversion never overflows.
struct DecRule {
    uint32_t maxDigits;
    bool sign;
    const char *maxPos;
    const char *maxNeg;
};
constexpr DecRule kUint = {10, false, "4294967295", nullptr};
constexpr DecRule kInt = {10, true, "2147483647", "2147483648"};
constexpr DecRule kUs = {5, false, "65535", nullptr};
constexpr DecRule kShort = {5, true, "32767", "32768"};
constexpr DecRule kUc = {3, false, "255", nullptr};
constexpr DecRule kChar = {3, true, "127", "128"};

bool ParseDec(const char *s, uint32_t len, const DecRule &rule, uint32_t *mag, bool *neg) {
    if (s == nullptr) return false;
    if (len == 0) len = Len(s);
    *neg = false;
    if (rule.sign && len != 0 && (s[0] == '-' || s[0] == '+')) {
        *neg = s[0] == '-';
        ++s;
        --len;
    }
    if (len == 0 || len > rule.maxDigits) return false;
    for (uint32_t i = 0; i < len; ++i) {
        if (!IsDigit(s[i])) return false;
    }
    if (len == rule.maxDigits) {
        const char *limit = *neg ? rule.maxNeg : rule.maxPos;
        for (uint32_t i = 0; i < len; ++i) {
            if (s[i] != limit[i]) {
                if (s[i] > limit[i]) return false;
                break;
            }
        }
    }
    uint32_t v = 0;
    for (uint32_t i = 0; i < len; ++i) v = v * 10u + static_cast<uint32_t>(s[i] - '0');
    *mag = v;
    return true;
}

template <class T>
uint32_t TextToNum(const char *s, uint32_t len, T *out, const DecRule &rule) {
    if (out == nullptr) return ZFAILED;
    *out = 0;
    uint32_t mag = 0;
    bool neg = false;
    if (!ParseDec(s, len, rule, &mag, &neg)) return ZFAILED;
    const int64_t v = neg ? -static_cast<int64_t>(mag) : static_cast<int64_t>(mag);
    *out = static_cast<T>(v);
    return ZOK;
}

// Digits, optionally '.' and at least one digit.
bool IsDecimalText(const char *s, uint32_t len) {
    uint32_t i = 0;
    while (i < len && IsDigit(s[i])) ++i;
    if (i == 0) return false;
    if (i == len) return true;
    if (s[i++] != '.') return false;
    const uint32_t fraction = i;
    while (i < len && IsDigit(s[i])) ++i;
    return i > fraction && i == len;
}

inline double ParseReal(const char *s, double *) {
    return std::strtod(s, nullptr);
}
inline float ParseReal(const char *s, float *) {
    return std::strtof(s, nullptr);
}

// The text is checked first, so the C library's conversion sees exactly
// the accepted form (and rounds correctly); it needs a terminated copy.
template <class T>
uint32_t TextToReal(const char *s, uint32_t len, T *out, const char *failText) {
    if (out == nullptr) return ZFAILED;
    *out = 0;
    if (s == nullptr) return ZFAILED;
    if (len == 0) len = Len(s);
    if (!IsDecimalText(s, len)) {
        ZOS_LOG_ERR(failText);
        return ZFAILED;
    }
    char local[64];
    char *copy = len < sizeof local ? local : static_cast<char *>(Zos_Malloc(len + 1));
    if (copy == nullptr) return ZFAILED;
    std::memcpy(copy, s, len);
    copy[len] = '\0';
    errno = 0;
    const T v = ParseReal(copy, out);
    const bool inRange = errno != ERANGE;
    if (copy != local) Zos_Free(copy);
    if (!inRange) return ZFAILED;
    *out = v;
    return ZOK;
}

template <bool (*kIs)(char)>
uint32_t AllOf(const char *s, uint32_t len) {
    if (s == nullptr || len == 0) return 0;
    for (uint32_t i = 0; i < len; ++i) {
        if (!kIs(s[i])) return 0;
    }
    return 1;
}

}  // namespace

extern "C" {

// ------------------------------------------------------------ copies

KESTRO_API uint32_t Zos_NStrCpy(char *pcDst, uint32_t uiSize, const char *pcSrc) {
    if (pcDst == nullptr || uiSize == 0) return ZFAILED;
    const uint32_t len = pcSrc == nullptr ? 0 : static_cast<uint32_t>(strnlen(pcSrc, uiSize - 1));
    return CopyBounded(pcDst, uiSize, pcSrc, len);
}

KESTRO_API uint32_t Zos_NStrNCpy(char *pcDst, uint32_t uiSize, const char *pcSrc, uint32_t uiLen) {
    return CopyBounded(pcDst, uiSize, pcSrc, uiLen);
}

KESTRO_API uint32_t Zos_NStrXCpy(char *pcDst, uint32_t uiSize, const ST_ZOS_SSTR *pstSrc) {
    if (pstSrc == nullptr) return CopyBounded(pcDst, uiSize, nullptr, 0);
    return CopyBounded(pcDst, uiSize, pstSrc->pcStr, pstSrc->uiLen);
}

KESTRO_API uint32_t Zos_NStrUXCpy(char *pcDst, uint32_t uiSize, const ST_ZOS_SSTR *pstSrc) {
    const bool empty = pstSrc == nullptr || pstSrc->pcStr == nullptr || pstSrc->uiLen == 0;
    if (empty && (pcDst == nullptr || uiSize == 0)) return ZOK;
    return Zos_NStrXCpy(pcDst, uiSize, pstSrc);
}

KESTRO_API uint32_t Zos_NStrDCpy(char *pcDst, uint32_t uiSize, ZDBUF zDbuf) {
    if (pcDst == nullptr || uiSize == 0) return ZFAILED;
    const uint32_t len = Zos_DbufLen(zDbuf);
    const uint32_t n = len < uiSize - 1 ? len : uiSize - 1;
    if (n != 0 && Zos_DbufCopyD(zDbuf, 0, n, pcDst) != ZOK) {
        pcDst[0] = '\0';
        ZOS_LOG_ERR("NStrDCpy copy the data.");
        return ZFAILED;
    }
    pcDst[n] = '\0';
    return ZOK;
}

KESTRO_API uint32_t Zos_SStrXCpy(ZUBUF zBuf, ST_ZOS_SSTR *pstDst, const ST_ZOS_SSTR *pstSrc) {
    return Zos_UbufCpyXSStr(zBuf, pstSrc, pstDst);
}

KESTRO_API uint32_t Zos_StrFCpy(char **ppcCursor, uint16_t *pusRemain, const char *pcSrc) {
    if (ppcCursor == nullptr || *ppcCursor == nullptr || pusRemain == nullptr) return ZFAILED;
    const uint32_t len = Len(pcSrc);
    if (len >= *pusRemain) return ZFAILED;  // no room for the text and its NUL
    std::memcpy(*ppcCursor, pcSrc == nullptr ? "" : pcSrc, len + 1);
    *ppcCursor += len;
    *pusRemain = static_cast<uint16_t>(*pusRemain - len);
    return ZOK;
}

// ------------------------------------------- C strings and memory

KESTRO_API uint32_t Zos_StrLen(const char *pcStr) {
    return Len(pcStr);
}

KESTRO_API char *Zos_StrCpy(char *pcDst, const char *pcSrc) {
    if (pcDst == nullptr) return nullptr;
    return std::strcpy(pcDst, pcSrc == nullptr ? "" : pcSrc);
}

KESTRO_API char *Zos_StrNCpy(char *pcDst, const char *pcSrc, uint32_t uiLen) {
    if (pcDst == nullptr) return nullptr;
    return std::strncpy(pcDst, pcSrc == nullptr ? "" : pcSrc, uiLen);
}

KESTRO_API char *Zos_StrCat(char *pcDst, const char *pcSrc) {
    if (pcDst == nullptr) return nullptr;
    return pcSrc == nullptr ? pcDst : std::strcat(pcDst, pcSrc);
}

KESTRO_API char *Zos_StrChr(const char *pcStr, char cChr) {
    return pcStr == nullptr ? nullptr : const_cast<char *>(std::strchr(pcStr, cChr));
}

KESTRO_API char *Zos_StrRChr(const char *pcStr, char cChr) {
    return pcStr == nullptr ? nullptr : const_cast<char *>(std::strrchr(pcStr, cChr));
}

KESTRO_API char *Zos_StrStr(const char *pcStr, const char *pcSub) {
    if (pcStr == nullptr || pcSub == nullptr) return nullptr;
    return const_cast<char *>(std::strstr(pcStr, pcSub));
}

KESTRO_API int32_t Zos_StrCmp(const char *pcStr1, const char *pcStr2) {
    return Compare<false>(pcStr1, pcStr2, 0xFFFFFFFFu);
}

KESTRO_API int32_t Zos_StrNCmp(const char *pcStr1, const char *pcStr2, uint32_t uiLen) {
    return Compare<false>(pcStr1, pcStr2, uiLen);
}

KESTRO_API int32_t Zos_StrICmp(const char *pcStr1, const char *pcStr2) {
    return Compare<true>(pcStr1, pcStr2, 0xFFFFFFFFu);
}

KESTRO_API int32_t Zos_StrNICmp(const char *pcStr1, const char *pcStr2, uint32_t uiLen) {
    return Compare<true>(pcStr1, pcStr2, uiLen);
}

KESTRO_API char *Zos_StrIStr(const char *pcStr, const char *pcSub) {
    return Find<true>(pcStr, Len(pcStr), pcSub);
}

KESTRO_API char *Zos_StrTok(char *pcStr, const char *pcDelim, char **ppcSave) {
    if (ppcSave == nullptr) return nullptr;
    char *s = pcStr != nullptr ? pcStr : *ppcSave;
    if (s == nullptr) return nullptr;
    const char *delim = pcDelim == nullptr ? "" : pcDelim;
    s += std::strspn(s, delim);
    if (*s == '\0') {
        *ppcSave = s;
        return nullptr;
    }
    char *end = s + std::strcspn(s, delim);
    if (*end != '\0') *end++ = '\0';
    *ppcSave = end;
    return s;
}

KESTRO_API void *Zos_MemSet(void *pDst, int32_t iChr, uint32_t uiLen) {
    return pDst == nullptr ? nullptr : std::memset(pDst, iChr, uiLen);
}

KESTRO_API void *Zos_MemCpy(void *pDst, const void *pSrc, uint32_t uiLen) {
    if (pDst == nullptr || pSrc == nullptr) return pDst;
    return std::memcpy(pDst, pSrc, uiLen);
}

KESTRO_API void *Zos_MemMove(void *pDst, const void *pSrc, uint32_t uiLen) {
    if (pDst == nullptr || pSrc == nullptr) return pDst;
    return std::memmove(pDst, pSrc, uiLen);
}

KESTRO_API int32_t Zos_MemCmp(const void *pMem1, const void *pMem2, uint32_t uiLen) {
    if (uiLen == 0 || pMem1 == pMem2) return 0;
    if (pMem1 == nullptr || pMem2 == nullptr) return pMem1 == nullptr ? -1 : 1;
    return std::memcmp(pMem1, pMem2, uiLen);
}

KESTRO_API void Zos_ZeroMem(void *pDst, uint32_t uiLen) {
    if (pDst != nullptr) std::memset(pDst, 0, uiLen);
}

KESTRO_API char *Zos_StrChrN(const char *pcStr, uint32_t uiLen, char cChr) {
    if (pcStr == nullptr) return nullptr;
    return static_cast<char *>(const_cast<void *>(std::memchr(pcStr, cChr, uiLen)));
}

KESTRO_API char *Zos_StrRChrN(const char *pcStr, uint32_t uiLen, char cChr) {
    if (pcStr == nullptr) return nullptr;
    for (uint32_t i = uiLen; i-- > 0;) {
        if (pcStr[i] == cChr) return const_cast<char *>(pcStr + i);
    }
    return nullptr;
}

KESTRO_API char *Zos_StrStrN(const char *pcStr, uint32_t uiLen, const char *pcSub) {
    return Find<false>(pcStr, uiLen, pcSub);
}

KESTRO_API char *Zos_StrChrB(const char *pcStr, const char *pcEnd, char cChr) {
    if (pcStr == nullptr || pcEnd == nullptr || pcEnd <= pcStr) return nullptr;
    return Zos_StrChrN(pcStr, static_cast<uint32_t>(pcEnd - pcStr), cChr);
}

KESTRO_API char *Zos_StrStrB(const char *pcStr, const char *pcEnd, const char *pcSub) {
    if (pcStr == nullptr || pcEnd == nullptr || pcEnd < pcStr) return nullptr;
    return Find<false>(pcStr, static_cast<uint32_t>(pcEnd - pcStr), pcSub);
}

// ------------------------------------------------- equality tests

KESTRO_API uint32_t Zos_StrCmpL(const char *pcStr1, const char *pcStr2) {
    return Differs<false>(pcStr1, Len(pcStr1), pcStr2, Len(pcStr2));
}

KESTRO_API uint32_t Zos_StrICmpL(const char *pcStr1, const char *pcStr2) {
    return Differs<true>(pcStr1, Len(pcStr1), pcStr2, Len(pcStr2));
}

KESTRO_API uint32_t Zos_StrCmpN(const char *pcStr, const char *pcData, uint32_t uiLen) {
    return Differs<false>(pcStr, Len(pcStr), pcData, uiLen);
}

KESTRO_API uint32_t Zos_StrICmpN(const char *pcStr, const char *pcData, uint32_t uiLen) {
    return Differs<true>(pcStr, Len(pcStr), pcData, uiLen);
}

KESTRO_API uint32_t Zos_StrCmpX(const char *pcStr, const ST_ZOS_SSTR *pstStr) {
    if (pstStr == nullptr) return 1;
    return Differs<false>(pcStr, Len(pcStr), pstStr->pcStr, pstStr->uiLen);
}

KESTRO_API uint32_t Zos_StrICmpX(const char *pcStr, const ST_ZOS_SSTR *pstStr) {
    if (pstStr == nullptr) return 1;
    return Differs<true>(pcStr, Len(pcStr), pstStr->pcStr, pstStr->uiLen);
}

KESTRO_API uint32_t Zos_NStrCmp(const char *pcData1, uint32_t uiLen1, const char *pcData2,
                                uint32_t uiLen2) {
    return Differs<false>(pcData1, uiLen1, pcData2, uiLen2);
}

KESTRO_API uint32_t Zos_NStrICmp(const char *pcData1, uint32_t uiLen1, const char *pcData2,
                                 uint32_t uiLen2) {
    return Differs<true>(pcData1, uiLen1, pcData2, uiLen2);
}

KESTRO_API uint32_t Zos_StrHTCmp(const char *pcStr, const char *pcPart, uint32_t bHead) {
    return HeadTailDiffers<false>(pcStr, Len(pcStr), pcPart, Len(pcPart), bHead);
}

KESTRO_API uint32_t Zos_StrHTICmp(const char *pcStr, const char *pcPart, uint32_t bHead) {
    return HeadTailDiffers<true>(pcStr, Len(pcStr), pcPart, Len(pcPart), bHead);
}

KESTRO_API uint32_t Zos_NStrHTCmp(const char *pcData, uint32_t uiLen, const char *pcPart,
                                  uint32_t uiPartLen, uint32_t bHead) {
    return HeadTailDiffers<false>(pcData, uiLen, pcPart, uiPartLen, bHead);
}

KESTRO_API uint32_t Zos_NStrHTICmp(const char *pcData, uint32_t uiLen, const char *pcPart,
                                   uint32_t uiPartLen, uint32_t bHead) {
    return HeadTailDiffers<true>(pcData, uiLen, pcPart, uiPartLen, bHead);
}

// ---------------------------------------------------------- trimming

KESTRO_API uint32_t Zos_Trim(char **ppcStr, uint32_t *puiLen, uint32_t bExt) {
    return TrimText(ppcStr, puiLen, bExt, kBoth, false);
}

KESTRO_API uint32_t Zos_TrimLeft(char **ppcStr, uint32_t *puiLen, uint32_t bExt) {
    return TrimText(ppcStr, puiLen, bExt, kLeft, false);
}

KESTRO_API uint32_t Zos_TrimRight(char **ppcStr, uint32_t *puiLen, uint32_t bExt) {
    return TrimText(ppcStr, puiLen, bExt, kRight, false);
}

KESTRO_API uint32_t Zos_TrimX(char **ppcStr, uint32_t *puiLen, uint32_t bExt) {
    return TrimText(ppcStr, puiLen, bExt, kBoth, false);
}

KESTRO_API uint32_t Zos_TrimLeftX(char **ppcStr, uint32_t *puiLen, uint32_t bExt) {
    return TrimText(ppcStr, puiLen, bExt, kLeft, false);
}

KESTRO_API uint32_t Zos_TrimRightX(char **ppcStr, uint32_t *puiLen, uint32_t bExt) {
    return TrimText(ppcStr, puiLen, bExt, kRight, false);
}

KESTRO_API uint32_t Zos_TrimAll(char **ppcStr, uint32_t *puiLen, uint32_t bExt) {
    return TrimText(ppcStr, puiLen, bExt, kBoth, true);
}

KESTRO_API uint32_t Zos_TrimAllX(char **ppcStr, uint32_t *puiLen, uint32_t bExt) {
    return TrimText(ppcStr, puiLen, bExt, kBoth, true);
}

// -------------------------------------------------------------- case

KESTRO_API uint32_t Zos_Str2Lower(char *pcStr) {
    return MapCase<ToLower>(pcStr, Len(pcStr));
}

KESTRO_API uint32_t Zos_Str2Upper(char *pcStr) {
    return MapCase<ToUpper>(pcStr, Len(pcStr));
}

KESTRO_API uint32_t Zos_NStr2Lower(char *pcStr, uint32_t uiLen) {
    return MapCase<ToLower>(pcStr, uiLen);
}

KESTRO_API uint32_t Zos_NStr2Upper(char *pcStr, uint32_t uiLen) {
    return MapCase<ToUpper>(pcStr, uiLen);
}

KESTRO_API uint32_t Zos_Str2NPS(const char *pcSrc, char **ppcDst) {
    if (ppcDst == nullptr) return ZFAILED;
    if (pcSrc == nullptr || pcSrc[0] == '\0') {
        *ppcDst = const_cast<char *>(kSharedEmpty.acText);
        return ZOK;
    }
    uint32_t len = 0, percents = 0;
    for (; pcSrc[len] != '\0'; ++len) percents += pcSrc[len] == '%';
    // One byte beyond the text is requested as well: the string's recorded
    // length is the text's plus one.
    char *out = Zos_SysStrAllocN(len + percents + 1);
    if (out == nullptr) {
        *ppcDst = nullptr;
        return ZFAILED;
    }
    char *w = out;
    for (uint32_t i = 0; i < len; ++i) {
        const char c = pcSrc[i];
        if (c == '%') {
            *w++ = '%';
            *w++ = '%';
        } else if ((ClassOf(c) & kPrintable) != 0 || c == '\t' || c == '\n' || c == '\r') {
            *w++ = c;
        } else {
            *w++ = '.';
        }
    }
    *w = '\0';
    *ppcDst = out;
    return ZOK;
}

// ---------------------------------------------------- number to text

KESTRO_API uint32_t Zos_BoolToStr(uint32_t bVal, char *pcDst, uint32_t uiSize) {
    return NumToText(pcDst, uiSize, "%u", bVal != 0 ? 1u : 0u);
}
KESTRO_API uint32_t Zos_UintToStr(uint32_t uiVal, char *pcDst, uint32_t uiSize) {
    return NumToText(pcDst, uiSize, "%u", uiVal);
}
KESTRO_API uint32_t Zos_UlToStr(unsigned long ulVal, char *pcDst, uint32_t uiSize) {
    return NumToText(pcDst, uiSize, "%lu", ulVal);
}
KESTRO_API uint32_t Zos_LongToStr(long lVal, char *pcDst, uint32_t uiSize) {
    return NumToText(pcDst, uiSize, "%ld", lVal);
}
KESTRO_API uint32_t Zos_IntToStr(int32_t iVal, char *pcDst, uint32_t uiSize) {
    return NumToText(pcDst, uiSize, "%d", iVal);
}
KESTRO_API uint32_t Zos_UsToStr(uint16_t usVal, char *pcDst, uint32_t uiSize) {
    return NumToText(pcDst, uiSize, "%u", static_cast<uint32_t>(usVal));
}
KESTRO_API uint32_t Zos_ShortToStr(int16_t sVal, char *pcDst, uint32_t uiSize) {
    return NumToText(pcDst, uiSize, "%u", static_cast<uint32_t>(static_cast<int32_t>(sVal)));
}
KESTRO_API uint32_t Zos_UcToStr(uint8_t ucVal, char *pcDst, uint32_t uiSize) {
    return NumToText(pcDst, uiSize, "%d", static_cast<int32_t>(ucVal));
}
KESTRO_API uint32_t Zos_CharToStr(char cVal, char *pcDst, uint32_t uiSize) {
    return NumToText(pcDst, uiSize, "%d", static_cast<int32_t>(cVal));
}
KESTRO_API uint32_t Zos_UintToXStr(uint32_t uiVal, char *pcDst, uint32_t uiSize) {
    return NumToText(pcDst, uiSize, "%X", uiVal);
}
KESTRO_API uint32_t Zos_FloatToStr(float fVal, char *pcDst, uint32_t uiSize) {
    return NumToText(pcDst, uiSize, "%f", static_cast<double>(fVal));
}
KESTRO_API uint32_t Zos_DoubleToStr(double dVal, char *pcDst, uint32_t uiSize) {
    return NumToText(pcDst, uiSize, "%f", dVal);
}

// ---------------------------------------------------- text to number

KESTRO_API uint32_t Zos_StrToUint(const char *pcStr, uint32_t uiLen, uint32_t *puiVal) {
    return TextToNum(pcStr, uiLen, puiVal, kUint);
}
KESTRO_API uint32_t Zos_StrToUl(const char *pcStr, uint32_t uiLen, unsigned long *pulVal) {
    return TextToNum(pcStr, uiLen, pulVal, kUint);
}
KESTRO_API uint32_t Zos_StrToInt(const char *pcStr, uint32_t uiLen, int32_t *piVal) {
    return TextToNum(pcStr, uiLen, piVal, kInt);
}
KESTRO_API uint32_t Zos_StrToLong(const char *pcStr, uint32_t uiLen, long *plVal) {
    return TextToNum(pcStr, uiLen, plVal, kInt);
}
KESTRO_API uint32_t Zos_StrToUs(const char *pcStr, uint32_t uiLen, uint16_t *pusVal) {
    return TextToNum(pcStr, uiLen, pusVal, kUs);
}
KESTRO_API uint32_t Zos_StrToShort(const char *pcStr, uint32_t uiLen, int16_t *psVal) {
    return TextToNum(pcStr, uiLen, psVal, kShort);
}
KESTRO_API uint32_t Zos_StrToUc(const char *pcStr, uint32_t uiLen, uint8_t *pucVal) {
    return TextToNum(pcStr, uiLen, pucVal, kUc);
}
KESTRO_API uint32_t Zos_StrToChar(const char *pcStr, uint32_t uiLen, char *pcVal) {
    return TextToNum(pcStr, uiLen, pcVal, kChar);
}

KESTRO_API uint32_t Zos_StrToBool(const char *pcStr, uint32_t uiLen, uint32_t *pbVal) {
    uint32_t v = 0;
    if (Zos_StrToUint(pcStr, uiLen, &v) != ZOK || pbVal == nullptr) {
        if (pbVal != nullptr) *pbVal = 0;
        ZOS_LOG_ERR("StrToBool get data.");
        return ZFAILED;
    }
    *pbVal = v != 0 ? 1 : 0;
    return ZOK;
}

KESTRO_API uint32_t Zos_XStrToUint(const char *pcStr, uint32_t uiLen, uint32_t *puiVal) {
    if (puiVal == nullptr) return ZFAILED;
    *puiVal = 0;
    if (pcStr == nullptr) return ZFAILED;
    if (uiLen == 0) uiLen = Len(pcStr);
    if (uiLen == 0 || uiLen > 8 || AllOf<IsHex>(pcStr, uiLen) == 0) return ZFAILED;
    uint32_t v = 0;
    for (uint32_t i = 0; i < uiLen; ++i) {
        const char c = ToLower(pcStr[i]);
        v = (v << 4) | static_cast<uint32_t>(IsDigit(c) ? c - '0' : c - 'a' + 10);
    }
    *puiVal = v;
    return ZOK;
}

KESTRO_API uint32_t Zos_StrToFloat(const char *pcStr, uint32_t uiLen, float *pfVal) {
    return TextToReal(pcStr, uiLen, pfVal, "StrToFloat invalid string.");
}

KESTRO_API uint32_t Zos_StrToDouble(const char *pcStr, uint32_t uiLen, double *pdVal) {
    return TextToReal(pcStr, uiLen, pdVal, "StrToDouble invalid string.");
}

// ---------------------------------------------------------- predicates

KESTRO_API uint32_t Zos_IsDStr(const char *pcStr, uint32_t uiLen) {
    return AllOf<IsDigit>(pcStr, uiLen);
}

KESTRO_API uint32_t Zos_IsXStr(const char *pcStr, uint32_t uiLen) {
    return AllOf<IsHex>(pcStr, uiLen);
}

}  // extern "C"
