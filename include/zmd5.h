/*
 * MD5 message digest (RFC 1321) with one-call helpers that return the
 * digest or its hexadecimal text.
 */
#ifndef ZMD5_H
#define ZMD5_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

#define ZMD5_DIGEST_LEN 16u

/* Running state: chaining words, bit count (low word first), pending
 * input. Owned by the caller. */
typedef struct tagZmd5Ctx {
    uint32_t auiState[4];
    uint32_t auiCount[2];
    uint8_t aucBuf[64];
} Zmd5Ctx;

/* The final padding block: 0x80 followed by 63 zero bytes. */
KESTRO_API extern const uint8_t aucZmd5Padding[64];

KESTRO_API void Zmd5_Init(Zmd5Ctx *pstCtx);
KESTRO_API void Zmd5_Update(Zmd5Ctx *pstCtx, const uint8_t *pucData, uint32_t uiLen);
/* Pads, writes the 16-byte digest and clears the whole context. */
KESTRO_API void Zmd5_Final(uint8_t *pucDigest, Zmd5Ctx *pstCtx);

/* Digest of one buffer. */
KESTRO_API void Zmd5_Str(const uint8_t *pucData, uint32_t uiLen, uint8_t *pucDigest);
/* Digest of two buffers one after the other; when either data pointer is
 * null the digest is left untouched. */
KESTRO_API void Zmd5_Str2(const uint8_t *pucData1, uint32_t uiLen1, const uint8_t *pucData2,
                          uint32_t uiLen2, uint8_t *pucDigest);

/* The digest as text: each byte "%02X", or "0x%02X" with a non-zero
 * bPrefix, the NUL-terminated separator between consecutive bytes. Returns
 * pcOut, or null (nothing written) when 15 x separator length + 64 (with
 * prefix) or + 32 (without) is not less than uiOutSize. */
KESTRO_API char *Zmd5_StrXr(const uint8_t *pucData, uint32_t uiLen, uint32_t bPrefix,
                            const char *pcSep, char *pcOut, uint32_t uiOutSize);
/* As Zmd5_StrXr into one process-wide buffer of 128 bytes, which the next
 * call overwrites: not re-entrant. */
KESTRO_API char *Zmd5_StrX(const uint8_t *pucData, uint32_t uiLen, uint32_t bPrefix,
                           const char *pcSep);

/* Little-endian word/byte conversion (len in bytes, a multiple of 4) and
 * the block function over one 64-byte block. */
KESTRO_API void Zmd5_Encode(uint8_t *pucOut, const uint32_t *puiIn, uint32_t uiLen);
KESTRO_API void Zmd5_Decode(uint32_t *puiOut, const uint8_t *pucIn, uint32_t uiLen);
KESTRO_API void Zmd5_Transform(uint32_t *puiState, const uint8_t *pucBlock);

ZOS_END_DECLS

#endif /* ZMD5_H */
