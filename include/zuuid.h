/*
 * Version-1 UUIDs in the layout of RFC 4122. The timestamp counts
 * 100-nanosecond units since 1970-01-01 (no Gregorian offset); the node is
 * a digest of host information with the multicast bit set; the clock
 * sequence comes from the C library's random generator.
 */
#ifndef ZUUID_H
#define ZUUID_H

#include "zos_type.h"

ZOS_BEGIN_DECLS

#define ZUUID_TEXT_LEN 36u

/* UUID fields in RFC 4122 order. */
typedef struct tagZUUID {
    uint32_t uiTimeLow;
    uint16_t wTimeMid;
    uint16_t wTimeHiAndVersion;
    uint8_t ucClockSeqHiAndReserved;
    uint8_t ucClockSeqLow;
    uint8_t aucNode[6];
} ST_ZUUID;

/* A new UUID as lower-case text "xxxxxxxx-xxxx-1xxx-yxxx-xxxxxxxxxxxx" in
 * a buffer of the calling thread that its next call overwrites; null when
 * the clock cannot be read. Calls from several threads are serialised. */
KESTRO_API const char *Zuuid_Uuid(void);

/* The next unique timestamp: the clock, or the last timestamp plus a
 * counter (up to 1023) when the clock has not moved. 1 when the clock
 * cannot be read. */
KESTRO_API uint32_t Zuuid_GetCurTime(uint64_t *pullTime);
/* seconds x 10 000 000 + nanoseconds / 100 of the epoch clock. */
KESTRO_API uint32_t Zuuid_GetSysTime(uint64_t *pullTime);
/* 6-byte node: digest of the host information, multicast bit set. */
KESTRO_API uint32_t Zuuid_GetIeeeNodeIdentifier(uint8_t *pucNode);
/* MD5 of the host information block (system information, time of day,
 * host name). */
KESTRO_API uint32_t Zuuid_GetRandomInfo(uint8_t *pucDigest);
/* Fills the version-1 fields from a clock-sequence value, the two halves
 * of a timestamp and a node. */
KESTRO_API void Zuuid_FormatV1(ST_ZUUID *pstUuid, uint16_t wClockSeq, uint32_t uiTimeLow,
                               uint32_t uiTimeHigh, const uint8_t *pucNode);

ZOS_END_DECLS

#endif /* ZUUID_H */
