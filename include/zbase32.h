/*
 * Base32 of RFC 4648 (alphabet "A".."Z", "2".."7", "=" padding), into and
 * out of caller buffers. Results and the size argument as in zbase64.h.
 */
#ifndef ZBASE32_H
#define ZBASE32_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

/* Text of 8 x ceil(len / 5) characters. A final group of three bytes is
 * written as four characters and three "=", and its eighth position is
 * left as it was: the last four bits of such data are not encoded. */
KESTRO_API uint32_t Zbase32_Encode(const uint8_t *pucData, uint32_t uiLen, char *pcOut,
                                   uint32_t *puiSize);

/* The length must be a non-zero multiple of 8; upper-case letters and
 * "2".."7" only, "=" decodes as 0. The output is always len / 8 x 5 bytes:
 * padding does not shorten it. */
KESTRO_API uint32_t Zbase32_Decode(const char *pcText, uint32_t uiLen, uint8_t *pucOut,
                                   uint32_t *puiSize);

/* Allocating forms, as in zbase64.h. */
KESTRO_API uint32_t Zbase32_EncodeX(ZUBUF zBuf, const ST_ZOS_SSTR *pstData, ST_ZOS_SSTR *pstResult);
KESTRO_API uint32_t Zbase32_DecodeX(ZUBUF zBuf, const ST_ZOS_SSTR *pstText, ST_ZOS_SSTR *pstResult);

ZOS_END_DECLS

#endif /* ZBASE32_H */
