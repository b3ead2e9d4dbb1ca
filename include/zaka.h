/*
 * 3GPP Milenage authentication functions f1, f1*, f2, f3, f4, f5 and f5*
 * over the Rijndael (AES-128) block cipher.
 *
 * Byte strings in network order: K, RAND, OP, OPc 16 bytes; SQN and AK 6;
 * AMF 2; MAC-A, MAC-S and RES 8; CK and IK 16.
 *
 * Every f-function schedules K, derives OPc from m_aucZakaOp and keeps its
 * round keys for the duration of the call, so concurrent callers with
 * different keys get correct results. The last schedule made on a thread
 * stays available to Zaka_RjdlEncrypt and Zaka_ComputeOpC on that thread,
 * and is also copied to m_aaaucZakaRK.
 */
#ifndef ZAKA_H
#define ZAKA_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

/* Operator variant OP: zero until the embedding code stores its value. */
KESTRO_API extern uint8_t m_aucZakaOp[16];
/* Rijndael S-box and multiplication by x in GF(2^8). */
KESTRO_API extern const uint8_t m_aucZakaS[256];
KESTRO_API extern const uint8_t m_aucZakaXtime[256];
/* The last key schedule: 11 round keys as [round][row][column]. */
KESTRO_API extern uint8_t m_aaaucZakaRK[11][4][4];

/* f1 (MAC-A) and f1* (MAC-S). */
KESTRO_API void Zaka_F1(const uint8_t *pucK, const uint8_t *pucRand, const uint8_t *pucSqn,
                        const uint8_t *pucAmf, uint8_t *pucMacA);
KESTRO_API void Zaka_F1star(const uint8_t *pucK, const uint8_t *pucRand, const uint8_t *pucSqn,
                            const uint8_t *pucAmf, uint8_t *pucMacS);
/* f2 (RES), f3 (CK), f4 (IK) and f5 (AK). */
KESTRO_API void Zaka_F2345(const uint8_t *pucK, const uint8_t *pucRand, uint8_t *pucRes,
                           uint8_t *pucCk, uint8_t *pucIk, uint8_t *pucAk);
/* f5* (AK for resynchronisation). */
KESTRO_API void Zaka_F5star(const uint8_t *pucK, const uint8_t *pucRand, uint8_t *pucAk);

/* OPc = E_K(OP) XOR OP with the keys of the last schedule on this thread;
 * returns the last byte written. */
KESTRO_API uint8_t Zaka_ComputeOpC(uint8_t *pucOpc);

/* Schedules a 16-byte key for this thread (and m_aaaucZakaRK). */
KESTRO_API void Zaka_RjdlKeySchedule(const uint8_t *pucKey);
/* One AES-128 encryption with the keys scheduled last on this thread. */
KESTRO_API void Zaka_RjdlEncrypt(const uint8_t *pucIn, uint8_t *pucOut);

/* The round steps on a 4 x 4 state [row][column]. */
KESTRO_API void Zaka_KeyAdd(uint8_t aaucState[4][4], uint8_t aaaucRK[11][4][4], int32_t iRound);
KESTRO_API void Zaka_ByteSub(uint8_t aaucState[4][4]);
KESTRO_API void Zaka_ShiftRow(uint8_t aaucState[4][4]);
KESTRO_API void Zaka_MixColumn(uint8_t aaucState[4][4]);

ZOS_END_DECLS

#endif /* ZAKA_H */
