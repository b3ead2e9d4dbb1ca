/*
 * Clocks and calendar: epoch and high-resolution times through the
 * platform table, the system time record, conversions, the
 * "YYYY-MM-DDThh:mm:ssTZD" text form, weekdays and zone abbreviations.
 */
#ifndef ZOS_TIME_H
#define ZOS_TIME_H

#include "zos_type.h"
#include "zpand.h"

ZOS_BEGIN_DECLS

/* System time record. The zone offset is in seconds, positive west of
 * Greenwich (the platform's convention). Local records made here carry the
 * platform's current offset (Zos_TzOffset), whatever season their date
 * lies in; universal records carry 0. */
typedef struct tagZOS_SYS_TIME {
    uint16_t wYear;
    uint8_t ucMonth;   /* 1..12 */
    uint8_t ucDay;     /* 1..31 */
    uint8_t ucWeekDay; /* 0 = Sunday */
    uint8_t ucHour;
    uint8_t ucMinute;
    uint8_t ucSecond;
    uint32_t uiMillisecond;
    int32_t iTzOffset;
} ST_ZOS_SYS_TIME;

KESTRO_API uint32_t Zos_TimeInit(void);
KESTRO_API void Zos_TimeDestroy(void);

KESTRO_API uint32_t Zos_GetEpochTime(ST_ZOS_EPOCH_TIME *pstTime);
KESTRO_API uint32_t Zos_GetHiresTime(void);
KESTRO_API uint64_t Zos_GetHrTime(void);
KESTRO_API uint32_t Zos_Time(int64_t *pllTime);
/* Only the millisecond part of the current second (0..999). */
KESTRO_API uint32_t Zos_Time_ms(void);
/* Seconds since Zos_TimeInit; 1 without clock or environment. */
KESTRO_API uint32_t Zos_GetSysRunTime(int64_t *pllSeconds);

/* Now, in local time and in universal time. The universal record is the
 * epoch time moved by the current offset and broken down as local time:
 * exact while that moment lies in the same daylight-saving season as now,
 * else off by the season step (usually an hour). */
KESTRO_API uint32_t Zos_SysTime(ST_ZOS_SYS_TIME *pstTime);
KESTRO_API uint32_t Zos_SysTimeU(ST_ZOS_SYS_TIME *pstTime);
KESTRO_API uint32_t Zos_LocalTime(const int64_t *pllTime, ST_ZOS_TM *pstTm);
KESTRO_API int64_t Zos_MkTime(ST_ZOS_TM *pstTm);
KESTRO_API int32_t Zos_TzOffset(void);

/* Epoch seconds of a record: the platform's make-time of its fields, plus
 * the record's offset, minus the current offset. Fails for years before
 * 1900 and dates the platform cannot represent. Records from
 * Zos_Time2SysTime and Zos_Time2SysTimeU convert back to their second,
 * except for fields inside the repeated autumn hour, which the make-time
 * cannot tell apart. */
KESTRO_API uint32_t Zos_SysTime2Time(const ST_ZOS_SYS_TIME *pstTime, int64_t *pllTime);
KESTRO_API uint32_t Zos_Time2SysTime(int64_t llTime, ST_ZOS_SYS_TIME *pstTime);
KESTRO_API uint32_t Zos_Time2SysTimeU(int64_t llTime, ST_ZOS_SYS_TIME *pstTime);
KESTRO_API uint32_t Zos_SysTime2MTime(const ST_ZOS_SYS_TIME *pstTime, ST_ZOS_TM *pstTm);
/* The broken-down time is taken as local time; the record gets the current
 * offset. */
KESTRO_API uint32_t Zos_MTime2SysTime(const ST_ZOS_TM *pstTm, ST_ZOS_SYS_TIME *pstTime);

/* Text in one static buffer shared by all threads and overwritten by the
 * next call; null on a format of 128 characters or more. A null or empty
 * format means "YYYY-MM-DDThh:mm:ssTZD", a null record means now. Fields:
 * YYYY, MM, DD, hh, mm, ss and TZD, the zone designator: "Z" for offset 0,
 * else "+hh:mm" or "-hh:mm" east of Greenwich (":ss" added when the offset
 * is not whole minutes). Other characters are copied. */
KESTRO_API const char *Zos_SysTime2Str(const char *pcFormat, const ST_ZOS_SYS_TIME *pstTime);
/* Parses "YYYY-MM-DDThh:mm:ss[.fff]TZD" with TZD as written above, setting
 * the record's zone offset from it; the record is untouched on failure. */
KESTRO_API uint32_t Zos_Str2SysTime(const char *pcText, ST_ZOS_SYS_TIME *pstTime);

/* 0 = Sunday .. 6; 0 for a month outside 1..12. */
KESTRO_API uint32_t Zos_GetWeekDay(uint32_t uiYear, uint32_t uiMonth, uint32_t uiDay);

/* Zone abbreviations: "" for an offset not in the table; a name is
 * compared over uiLen characters, 0 when unknown. */
KESTRO_API const char *Zos_TzOffset2Name(int32_t iOffset);
KESTRO_API int32_t Zos_TzName2Offset(const char *pcName, uint32_t uiLen);
KESTRO_API const char *Zos_TzName(void);
KESTRO_API int32_t Zos_TzOffset2Zone(void);
KESTRO_API int32_t Zos_TzZone2Offset(int32_t iZone);

ZOS_END_DECLS

#endif /* ZOS_TIME_H */
