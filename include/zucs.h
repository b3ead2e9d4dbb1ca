/*
 * UTF-8 and UCS-2 conversion, a strict UTF-8 decoder with a UTF-16 encoder,
 * and pinyin spelling of Chinese characters from built-in tables.
 *
 * BMP strings are NUL-terminated arrays of 16-bit units in host order that
 * hold code points up to U+FFFF only.
 */
#ifndef ZUCS_H
#define ZUCS_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

/* ---- UTF-8 <-> BMP ------------------------------------------------------ */

/* Characters in the first uiLen bytes, up to a NUL or the first invalid or
 * four-byte sequence. */
KESTRO_API uint32_t Zucs_Utf8StrLen(const char *pcText, uint32_t uiLen);
/* UTF-8 bytes (1, 2 or 3 a unit) needed for up to uiCount units, stopping
 * at NUL. */
KESTRO_API uint32_t Zucs_Utf8Size(const uint16_t *pwStr, uint32_t uiCount);
/* Units before the NUL; 0 for null. */
KESTRO_API uint32_t Zucs_BmpStrLen(const uint16_t *pwStr);

/* Converts 1- to 3-byte sequences, stopping at NUL, at an invalid or
 * four-byte sequence or when pwOut is full; always NUL-terminates pwOut
 * (in its last slot when full). Returns the units written before the NUL;
 * 0 without room. */
KESTRO_API uint32_t Zucs_Utf8ToBmp(uint16_t *pwOut, uint32_t uiOutCount, const char *pcText,
                                   uint32_t uiLen);
/* Converts units to 1-3 bytes, stopping at NUL or when the next character
 * does not fit with the NUL; always NUL-terminates. Returns the byte length.
 * With a null pcOut it only counts (uiOutSize is not looked at). */
KESTRO_API uint32_t Zucs_BmpToUtf8(char *pcOut, uint32_t uiOutSize, const uint16_t *pwStr,
                                   uint32_t uiCount);
/* Allocating forms (release the result with Zos_Free); ZFAILED on a null
 * argument or when the allocation fails. */
KESTRO_API uint32_t Zucs_Utf8ToBmpX(uint16_t **ppwResult, uint32_t *puiCount, const char *pcText,
                                    uint32_t uiLen);
KESTRO_API uint32_t Zucs_BmpToUtf8X(char **ppcResult, uint32_t *puiSize, const uint16_t *pwStr,
                                    uint32_t uiCount);

/* Local code-page conversions are not provided: both clear their outputs
 * and return ZFAILED. */
KESTRO_API uint32_t Zucs_BmpToCpStr(char *pcOut, uint32_t uiOutSize, const uint16_t *pwStr,
                                    uint32_t uiCount);
KESTRO_API uint32_t Zucs_CpStrToBmp(uint16_t *pwOut, uint32_t uiOutCount, const char *pcText,
                                    uint32_t uiLen);

/* Spells up to uiCount units (stopping at NUL) in pinyin: a character of the
 * CJK table as its first reading (skipped when it has none), a unit whose
 * low byte is below 0x80 as that byte with ASCII capitals folded, anything
 * else as its two raw bytes. The first character of pcSep (optional)
 * follows every written item. The output is cut where the next item does
 * not fit and is always NUL-terminated. ZFAILED for a null string or output
 * or a zero size. */
KESTRO_API uint32_t Zucs_BmpToPinyin(const uint16_t *pwStr, uint32_t uiCount, char *pcOut,
                                     uint32_t uiOutSize, const char *pcSep);

/* ---- strict UTF-8 decoder ---------------------------------------------- */

#define UTF8_END (-1)   /* no more input */
#define UTF8_ERROR (-2) /* invalid sequence */

typedef struct tagUTF8_DECODE {
    int32_t iIndex;     /* next byte */
    const char *pcText; /* the text */
    int32_t iLength;    /* its length in bytes */
    int32_t iChar;      /* characters decoded so far */
    int32_t iByte;      /* where the last character started */
} ST_UTF8_DECODE;

KESTRO_API void utf8_decode_init(ST_UTF8_DECODE *pstState, const char *pcText, int32_t iLength);
/* The next code point, UTF8_END at the end, UTF8_ERROR for an invalid
 * sequence (overlong forms, surrogates, code points above U+10FFFF and the
 * four-byte lead bytes whose bits 0x01 are set are all invalid). */
KESTRO_API int32_t utf8_decode_next(ST_UTF8_DECODE *pstState);
KESTRO_API int32_t utf8_decode_at_byte(const ST_UTF8_DECODE *pstState);
KESTRO_API int32_t utf8_decode_at_character(const ST_UTF8_DECODE *pstState);

/* UTF-16 units written to pwOut (a pair counts 2; pwOut needs room for
 * iLength units). Stops at the first invalid character; 0 when the first
 * one is invalid. Code points above U+FFFF keep only their low 16 bits in
 * the pair, so only plane 1 comes out right. With iBigEndian set every unit
 * is stored big-endian in memory. */
KESTRO_API int32_t utf8_to_utf16(uint16_t *pwOut, const char *pcText, int32_t iLength,
                                 int32_t iBigEndian);

/* ---- pinyin tables ------------------------------------------------------ */

#define ZUCS_PINYIN_FIRST 0x4E00u
#define ZUCS_PINYIN_LAST 0x9FA5u
#define ZUCS_PINYIN_ENTRIES 20903u
#define ZUCS_PINYIN_READINGS 420u
#define ZUCS_PINYIN_MAX_READINGS 6u

/* Per character (code point - 0x4E00): the number of readings, 0 to 6. */
KESTRO_API extern const uint8_t m_acpinyin_count[ZUCS_PINYIN_ENTRIES];
/* Per character: two bytes a reading whose sum is the reading's number,
 * then a zero byte. */
KESTRO_API extern const uint8_t *const ppinyin_index[ZUCS_PINYIN_ENTRIES];
/* Reading texts by number, lower case without tones; 0 is "None". */
KESTRO_API extern const char *const ppinyin_all_pinyin[ZUCS_PINYIN_READINGS];
/* Per character: the tone (1-4, 5 neutral) of each reading, then a zero. */
KESTRO_API extern const uint8_t *const ppinyin_tones[ZUCS_PINYIN_ENTRIES];

ZOS_END_DECLS

#endif /* ZUCS_H */
