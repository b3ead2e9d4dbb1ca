/*
 * String utilities and number conversions.
 *
 * Null pointers are accepted everywhere: they fail or give a neutral result.
 * Lengths are unsigned 32-bit. Functions that can fail return ZOK (0) or
 * ZFAILED (1). Three string forms: C strings (NUL-terminated), counted
 * strings (pointer + length, "X"/"N" in the names, not terminated) and
 * bounded destinations (buffer + capacity, always terminated within it).
 */
#ifndef ZOS_STR_H
#define ZOS_STR_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

/* ---- copies into a bounded destination ---------------------------------
 * Each copies at most capacity - 1 bytes and always stores a NUL; fails for
 * a null destination or a capacity of 0. */
KESTRO_API uint32_t Zos_NStrCpy(char *pcDst, uint32_t uiSize, const char *pcSrc);
KESTRO_API uint32_t Zos_NStrNCpy(char *pcDst, uint32_t uiSize, const char *pcSrc, uint32_t uiLen);
/* A null counted string or data pointer copies "". */
KESTRO_API uint32_t Zos_NStrXCpy(char *pcDst, uint32_t uiSize, const ST_ZOS_SSTR *pstSrc);
/* As Zos_NStrXCpy, but an empty source succeeds even without a destination. */
KESTRO_API uint32_t Zos_NStrUXCpy(char *pcDst, uint32_t uiSize, const ST_ZOS_SSTR *pstSrc);
/* The start of a data buffer's content (a null buffer copies ""); on a
 * failed copy the destination holds "". */
KESTRO_API uint32_t Zos_NStrDCpy(char *pcDst, uint32_t uiSize, ZDBUF zDbuf);
/* A copy of a counted string, NUL-terminated, in a buffer of any kind
 * (zos_ubuf.h): as Zos_UbufCpyXSStr. */
KESTRO_API uint32_t Zos_SStrXCpy(ZUBUF zBuf, ST_ZOS_SSTR *pstDst, const ST_ZOS_SSTR *pstSrc);
/* Appends a C string at a moving cursor with a remaining count: the cursor
 * is left on the stored NUL (the next copy appends) and the count reduced by
 * the characters copied. Fails, writing nothing, when the text and its NUL
 * do not fit the count. */
KESTRO_API uint32_t Zos_StrFCpy(char **ppcCursor, uint16_t *pusRemain, const char *pcSrc);

/* ---- null-safe C-string and memory operations --------------------------
 * A null string reads as "" for lengths and comparisons; searches in or
 * for a null string find nothing; copies with a null destination do
 * nothing and return null. */
KESTRO_API uint32_t Zos_StrLen(const char *pcStr);
KESTRO_API char *Zos_StrCpy(char *pcDst, const char *pcSrc);
/* Copies at most uiLen bytes and pads with NULs to uiLen; a source of
 * uiLen or more characters leaves the destination unterminated. */
KESTRO_API char *Zos_StrNCpy(char *pcDst, const char *pcSrc, uint32_t uiLen);
KESTRO_API char *Zos_StrCat(char *pcDst, const char *pcSrc);
KESTRO_API char *Zos_StrChr(const char *pcStr, char cChr);
KESTRO_API char *Zos_StrRChr(const char *pcStr, char cChr);
KESTRO_API char *Zos_StrStr(const char *pcStr, const char *pcSub);
KESTRO_API int32_t Zos_StrCmp(const char *pcStr1, const char *pcStr2);
KESTRO_API int32_t Zos_StrNCmp(const char *pcStr1, const char *pcStr2, uint32_t uiLen);
KESTRO_API int32_t Zos_StrICmp(const char *pcStr1, const char *pcStr2);
KESTRO_API int32_t Zos_StrNICmp(const char *pcStr1, const char *pcStr2, uint32_t uiLen);
KESTRO_API char *Zos_StrIStr(const char *pcStr, const char *pcSub);
/* Reentrant tokenizer: pcStr starts a scan (null continues from
 * *ppcSave); returns the next token or null. */
KESTRO_API char *Zos_StrTok(char *pcStr, const char *pcDelim, char **ppcSave);
KESTRO_API void *Zos_MemSet(void *pDst, int32_t iChr, uint32_t uiLen);
KESTRO_API void *Zos_MemCpy(void *pDst, const void *pSrc, uint32_t uiLen);
KESTRO_API void *Zos_MemMove(void *pDst, const void *pSrc, uint32_t uiLen);
KESTRO_API int32_t Zos_MemCmp(const void *pMem1, const void *pMem2, uint32_t uiLen);
KESTRO_API void Zos_ZeroMem(void *pDst, uint32_t uiLen);
/* Searches within exactly uiLen bytes (NULs included). */
KESTRO_API char *Zos_StrChrN(const char *pcStr, uint32_t uiLen, char cChr);
KESTRO_API char *Zos_StrRChrN(const char *pcStr, uint32_t uiLen, char cChr);
KESTRO_API char *Zos_StrStrN(const char *pcStr, uint32_t uiLen, const char *pcSub);
/* Searches the bytes from pcStr up to pcEnd (excluded). */
KESTRO_API char *Zos_StrChrB(const char *pcStr, const char *pcEnd, char cChr);
KESTRO_API char *Zos_StrStrB(const char *pcStr, const char *pcEnd, const char *pcSub);

/* ---- equality tests: 0 equal, 1 different ------------------------------
 * Lengths must be equal and non-zero: null or empty on either side is
 * "different", so two empty strings are never equal. */
KESTRO_API uint32_t Zos_StrCmpL(const char *pcStr1, const char *pcStr2);
KESTRO_API uint32_t Zos_StrICmpL(const char *pcStr1, const char *pcStr2);
KESTRO_API uint32_t Zos_StrCmpN(const char *pcStr, const char *pcData, uint32_t uiLen);
KESTRO_API uint32_t Zos_StrICmpN(const char *pcStr, const char *pcData, uint32_t uiLen);
KESTRO_API uint32_t Zos_StrCmpX(const char *pcStr, const ST_ZOS_SSTR *pstStr);
KESTRO_API uint32_t Zos_StrICmpX(const char *pcStr, const ST_ZOS_SSTR *pstStr);
KESTRO_API uint32_t Zos_NStrCmp(const char *pcData1, uint32_t uiLen1, const char *pcData2,
                                uint32_t uiLen2);
KESTRO_API uint32_t Zos_NStrICmp(const char *pcData1, uint32_t uiLen1, const char *pcData2,
                                 uint32_t uiLen2);
/* 0 when pcPart is a prefix (bHead != 0) or a suffix (bHead == 0) of
 * pcStr; an empty text or part, or a part longer than the text, is 1. */
KESTRO_API uint32_t Zos_StrHTCmp(const char *pcStr, const char *pcPart, uint32_t bHead);
KESTRO_API uint32_t Zos_StrHTICmp(const char *pcStr, const char *pcPart, uint32_t bHead);
KESTRO_API uint32_t Zos_NStrHTCmp(const char *pcData, uint32_t uiLen, const char *pcPart,
                                  uint32_t uiPartLen, uint32_t bHead);
KESTRO_API uint32_t Zos_NStrHTICmp(const char *pcData, uint32_t uiLen, const char *pcPart,
                                   uint32_t uiPartLen, uint32_t bHead);

/* ---- trimming, in place --------------------------------------------------
 * Whitespace is TAB and space, with bExt != 0 also LF and CR. With a length
 * pointer the text is counted: *ppcStr advances and *puiLen shrinks, and
 * nothing is written (except by the TrimAll forms, which compact the text).
 * Without it the text is a C string: *ppcStr advances and a NUL is stored
 * after the last kept character. Fails for a null ppcStr or *ppcStr. The X
 * forms are the same functions under their other names. */
KESTRO_API uint32_t Zos_Trim(char **ppcStr, uint32_t *puiLen, uint32_t bExt);
KESTRO_API uint32_t Zos_TrimLeft(char **ppcStr, uint32_t *puiLen, uint32_t bExt);
KESTRO_API uint32_t Zos_TrimRight(char **ppcStr, uint32_t *puiLen, uint32_t bExt);
KESTRO_API uint32_t Zos_TrimX(char **ppcStr, uint32_t *puiLen, uint32_t bExt);
KESTRO_API uint32_t Zos_TrimLeftX(char **ppcStr, uint32_t *puiLen, uint32_t bExt);
KESTRO_API uint32_t Zos_TrimRightX(char **ppcStr, uint32_t *puiLen, uint32_t bExt);
/* Trims both ends, then reduces every inner run of whitespace to its first
 * character ("a \t b" becomes "a b"). */
KESTRO_API uint32_t Zos_TrimAll(char **ppcStr, uint32_t *puiLen, uint32_t bExt);
KESTRO_API uint32_t Zos_TrimAllX(char **ppcStr, uint32_t *puiLen, uint32_t bExt);

/* ---- case, in place (ASCII letters) -------------------------------------- */
KESTRO_API uint32_t Zos_Str2Lower(char *pcStr);
KESTRO_API uint32_t Zos_Str2Upper(char *pcStr);
KESTRO_API uint32_t Zos_NStr2Lower(char *pcStr, uint32_t uiLen);
KESTRO_API uint32_t Zos_NStr2Upper(char *pcStr, uint32_t uiLen);

/* A copy safe to use as a format: '%' doubled, every character neither
 * printable nor TAB, LF, CR or space replaced by '.'. The copy is a system
 * string (free it with Zos_SysStrFree); a null or empty source gives a
 * shared empty string that must not be freed. Fails for a null ppcDst or
 * when allocation fails. */
KESTRO_API uint32_t Zos_Str2NPS(const char *pcSrc, char **ppcDst);

/* ---- number to text --------------------------------------------------------
 * Stores at most capacity - 1 characters and a NUL; fails for a null
 * destination or a capacity of 0. */
KESTRO_API uint32_t Zos_BoolToStr(uint32_t bVal, char *pcDst, uint32_t uiSize);
KESTRO_API uint32_t Zos_UintToStr(uint32_t uiVal, char *pcDst, uint32_t uiSize);
KESTRO_API uint32_t Zos_UlToStr(unsigned long ulVal, char *pcDst, uint32_t uiSize);
KESTRO_API uint32_t Zos_LongToStr(long lVal, char *pcDst, uint32_t uiSize);
KESTRO_API uint32_t Zos_IntToStr(int32_t iVal, char *pcDst, uint32_t uiSize);
KESTRO_API uint32_t Zos_UsToStr(uint16_t usVal, char *pcDst, uint32_t uiSize);
/* Printed as "%u": a negative value prints as its unsigned 32-bit value. */
KESTRO_API uint32_t Zos_ShortToStr(int16_t sVal, char *pcDst, uint32_t uiSize);
KESTRO_API uint32_t Zos_UcToStr(uint8_t ucVal, char *pcDst, uint32_t uiSize);
KESTRO_API uint32_t Zos_CharToStr(char cVal, char *pcDst, uint32_t uiSize);
/* Upper-case hexadecimal, no prefix. */
KESTRO_API uint32_t Zos_UintToXStr(uint32_t uiVal, char *pcDst, uint32_t uiSize);
/* Fixed point with 6 truncated fraction digits. */
KESTRO_API uint32_t Zos_FloatToStr(float fVal, char *pcDst, uint32_t uiSize);
KESTRO_API uint32_t Zos_DoubleToStr(double dVal, char *pcDst, uint32_t uiSize);

/* ---- text to number --------------------------------------------------------
 * uiLen 0 means the C-string length. The result is set to 0 first. Fails
 * for a null text or result, a bad length, any character outside the form
 * or a value out of range; ranges are checked on the digits, so nothing
 * ever overflows. */
KESTRO_API uint32_t Zos_StrToUint(const char *pcStr, uint32_t uiLen, uint32_t *puiVal);
KESTRO_API uint32_t Zos_StrToUl(const char *pcStr, uint32_t uiLen, unsigned long *pulVal);
/* Optional '-' or '+', then 1 to 10 digits, -2147483648..2147483647. */
KESTRO_API uint32_t Zos_StrToInt(const char *pcStr, uint32_t uiLen, int32_t *piVal);
KESTRO_API uint32_t Zos_StrToLong(const char *pcStr, uint32_t uiLen, long *plVal);
KESTRO_API uint32_t Zos_StrToUs(const char *pcStr, uint32_t uiLen, uint16_t *pusVal);
KESTRO_API uint32_t Zos_StrToShort(const char *pcStr, uint32_t uiLen, int16_t *psVal);
KESTRO_API uint32_t Zos_StrToUc(const char *pcStr, uint32_t uiLen, uint8_t *pucVal);
/* -128..127. */
KESTRO_API uint32_t Zos_StrToChar(const char *pcStr, uint32_t uiLen, char *pcVal);
/* 1 for any non-zero unsigned value. */
KESTRO_API uint32_t Zos_StrToBool(const char *pcStr, uint32_t uiLen, uint32_t *pbVal);
/* 1 to 8 hexadecimal digits, no "0x". */
KESTRO_API uint32_t Zos_XStrToUint(const char *pcStr, uint32_t uiLen, uint32_t *puiVal);
/* Digits, optionally followed by '.' and at least one digit; no sign, no
 * exponent. A value beyond the type's range (overflow or underflow)
 * fails. */
KESTRO_API uint32_t Zos_StrToFloat(const char *pcStr, uint32_t uiLen, float *pfVal);
KESTRO_API uint32_t Zos_StrToDouble(const char *pcStr, uint32_t uiLen, double *pdVal);

/* ---- predicates: 1 when all uiLen characters are decimal (hexadecimal)
 * digits; 0 otherwise, also for a null text or a length of 0. */
KESTRO_API uint32_t Zos_IsDStr(const char *pcStr, uint32_t uiLen);
KESTRO_API uint32_t Zos_IsXStr(const char *pcStr, uint32_t uiLen);

ZOS_END_DECLS

#endif /* ZOS_STR_H */
