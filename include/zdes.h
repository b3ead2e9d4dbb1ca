/*
 * Single DES (FIPS 46-3) block operations and ECB encryption of data with
 * a length byte in front and a fixed padding pattern behind.
 */
#ifndef ZDES_H
#define ZDES_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

/* Key schedule: 16 round keys of two words each. */
typedef uint32_t ZDES_KS[16][2];

/* Encryption schedule of an 8-byte key (parity bits ignored). */
KESTRO_API void Zdes_MakeEncKey(ZDES_KS aauiKs, const uint8_t *pucKey);
/* Decryption schedule: the encryption schedule in reverse round order. */
KESTRO_API void Zdes_MakeDecKey(ZDES_KS aauiEncKs, ZDES_KS aauiDecKs);
/* One block of 8 bytes through the 16 rounds of the given schedule. */
KESTRO_API void Zdes_Run(ZDES_KS aauiKs, const uint8_t *pucIn, uint8_t *pucOut);
/* Zdes_Run with an encryption or a decryption schedule; return 0. */
KESTRO_API uint32_t Zdes_Enc64Bits(ZDES_KS aauiKs, const uint8_t *pucIn, uint8_t *pucOut);
KESTRO_API uint32_t Zdes_Dec64Bits(ZDES_KS aauiKs, const uint8_t *pucIn, uint8_t *pucOut);

/* ECB encryption of [len % 256][data][padding] where the padding (bytes
 * 0x3E, 0x2E, 0x1E, 0x0E, 0x5A, 0x5A, 0x5A in that order) fills up to
 * 8 x ceil((len + 1) / 8) bytes. *puiOutSize: capacity in, length out.
 * 1 for a null or zero argument or a capacity below the padded length. */
KESTRO_API uint32_t Zdes_EncData(const uint8_t *pucKey, const uint8_t *pucData, uint32_t uiLen,
                                 uint8_t *pucOut, uint32_t *puiOutSize);
/* The reverse: the length must be a non-zero multiple of 8; the first
 * plain byte n must be below the length and within the capacity; the n
 * bytes after it are the result. */
KESTRO_API uint32_t Zdes_DecData(const uint8_t *pucKey, const uint8_t *pucData, uint32_t uiLen,
                                 uint8_t *pucOut, uint32_t *puiOutSize);

/* Bit access in a byte string, bit 0 being the high bit of byte 0, and the
 * left rotation of a 28-bit key half. */
KESTRO_API uint32_t Zdes_GetBit(const uint8_t *pucData, uint32_t uiPos);
KESTRO_API void Zdes_SetBit(uint8_t *pucData, uint32_t uiPos, uint32_t uiVal);
KESTRO_API uint32_t Zdes_LShift28(uint32_t uiHalf, uint32_t uiCount);

ZOS_END_DECLS

#endif /* ZDES_H */
