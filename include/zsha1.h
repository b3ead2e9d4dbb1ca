/*
 * SHA-1 (FIPS 180-1) with the context and result codes of the RFC 3174
 * reference interface.
 */
#ifndef ZSHA1_H
#define ZSHA1_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

#define ZSHA1_DIGEST_LEN 20u

/* Result codes. */
#define ZSHA1_SUCCESS 0u
#define ZSHA1_NULL 1u      /* null argument; also stored when the bit length wraps */
#define ZSHA1_STATE_ERR 3u /* input after the result was computed */

/* Running state, owned by the caller. */
typedef struct tagZsha1Ctx {
    uint32_t auiHash[5];
    uint32_t uiLenLow; /* message length in bits */
    uint32_t uiLenHigh;
    int16_t sBlockIndex;
    uint8_t aucBlock[64];
    int32_t iComputed;
    int32_t iCorrupted;
} Zsha1Ctx;

KESTRO_API uint32_t Zsha1_Reset(Zsha1Ctx *pstCtx);
/* A zero length succeeds at once, even with null pointers. */
KESTRO_API uint32_t Zsha1_Input(Zsha1Ctx *pstCtx, const uint8_t *pucData, uint32_t uiLen);
/* Pads on the first call; every call writes the same 20-byte digest. */
KESTRO_API uint32_t Zsha1_Result(Zsha1Ctx *pstCtx, uint8_t *pucDigest);
/* Padding of the pending block and the 80-step function over it. */
KESTRO_API void Zsha1_PadMsg(Zsha1Ctx *pstCtx);
KESTRO_API void Zsha1_ProcMsgBlock(Zsha1Ctx *pstCtx);

ZOS_END_DECLS

#endif /* ZSHA1_H */
