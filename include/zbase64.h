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

ZOS_END_DECLS

#endif /* ZBASE64_H */
