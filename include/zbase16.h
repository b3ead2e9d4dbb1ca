/*
 * Base16 (upper-case hexadecimal) into and out of caller buffers. Results
 * and the size argument as in zbase64.h.
 */
#ifndef ZBASE16_H
#define ZBASE16_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

/* Text of 2 x len characters "0".."9", "A".."F". */
KESTRO_API uint32_t Zbase16_Encode(const uint8_t *pucData, uint32_t uiLen, char *pcOut,
                                   uint32_t *puiSize);

/* The length must be even and non-zero; lower-case digits are rejected.
 * The output is len / 2 bytes. */
KESTRO_API uint32_t Zbase16_Decode(const char *pcText, uint32_t uiLen, uint8_t *pucOut,
                                   uint32_t *puiSize);

/* Allocating forms, as in zbase64.h. */
KESTRO_API uint32_t Zbase16_EncodeX(ZUBUF zBuf, const ST_ZOS_SSTR *pstData, ST_ZOS_SSTR *pstResult);
KESTRO_API uint32_t Zbase16_DecodeX(ZUBUF zBuf, const ST_ZOS_SSTR *pstText, ST_ZOS_SSTR *pstResult);

ZOS_END_DECLS

#endif /* ZBASE16_H */
