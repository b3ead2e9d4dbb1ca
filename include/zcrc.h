/*
 * Checksums: the 16-bit frame check sequence of RFC 1662 and the CRC-32 of
 * IEEE 802.3.
 */
#ifndef ZCRC_H
#define ZCRC_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

/* The RFC 1662 table (reflected polynomial 0x8408). */
KESTRO_API extern const uint16_t m_awFcsTbl[256];

/* Updates a running FCS-16 over the data: for each byte
 * fcs = (fcs >> 8) ^ table[(fcs ^ byte) & 0xFF]. The caller starts from
 * 0xFFFF and complements the final value. Null data or a zero length
 * returns fcs unchanged. */
KESTRO_API uint16_t Zcrc_Fcs16(uint16_t wFcs, const uint8_t *pucData, uint32_t uiLen);

/* CRC-32 of one buffer (reflected polynomial 0xEDB88320, initial value
 * 0xFFFFFFFF, final complement); 0 for a zero length or null data. */
KESTRO_API uint32_t Zcrc_Calc32(const uint8_t *pucData, uint32_t uiLen);

ZOS_END_DECLS

#endif /* ZCRC_H */
