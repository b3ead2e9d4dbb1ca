/*
 * Base64 of RFC 4648 with the standard ("+/") and the URL-safe ("-_")
 * alphabet, into and out of caller buffers.
 *
 * Results: 0 on success, 1 on failure (null data, zero length, null size,
 * a capacity below the needed length, a length of the wrong multiple or an
 * invalid character). *puiSize carries the capacity in and the length
 * written out; a null output only reports the length.
 */
#ifndef ZBASE64_H
#define ZBASE64_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

/* Text of 4 x ceil(len / 3) characters, "=" padded, no terminator. A
 * non-zero bUrlSafe selects the URL-safe alphabet. */
KESTRO_API uint32_t Zbase64_Encode(const uint8_t *pucData, uint32_t uiLen, uint32_t bUrlSafe,
                                   char *pcOut, uint32_t *puiSize);

/* The length must be a non-zero multiple of 4. Both alphabets are
 * accepted, but not mixed: once a quad holding "+" or "/" was seen, a later
 * quad holding "-" or "_" fails, and the other way round. "=" decodes as a
 * zero sextet; only the last one or two characters shorten the output. A
 * null output reports len / 4 x 3. */
KESTRO_API uint32_t Zbase64_Decode(const char *pcText, uint32_t uiLen, uint8_t *pucOut,
                                   uint32_t *puiSize);

/*
 * Allocating forms. The result is cleared first; on success it holds the
 * text (or data) in length + 1 cleared bytes taken from zBuf (any buffer
 * kind of zos_ubuf.h), or, with a null zBuf, a system string to be freed
 * with Zos_SysStrFree. On failure nothing stays allocated and one line is
 * logged: "<name> get length." for empty input or a bad length, "<name>
 * allocate buffer." when no memory is left, "<name> encode data." or
 * "<name> decode data." when the codec refuses the input.
 */
KESTRO_API uint32_t Zbase64_EncodeX(ZUBUF zBuf, const ST_ZOS_SSTR *pstData, uint32_t bUrlSafe,
                                    ST_ZOS_SSTR *pstResult);
/* Failures of this one are logged as warnings. */
KESTRO_API uint32_t Zbase64_DecodeX(ZUBUF zBuf, const ST_ZOS_SSTR *pstText, ST_ZOS_SSTR *pstResult);
/* As Zbase64_DecodeX from a pointer and length, logged as errors. */
KESTRO_API uint32_t Zbase64_DecodeXX(ZUBUF zBuf, const char *pcText, uint32_t uiLen,
                                     char **ppcResult, uint32_t *puiResultLen);

ZOS_END_DECLS

#endif /* ZBASE64_H */
