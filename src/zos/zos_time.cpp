// Clocks and calendar: the platform's clocks (table slots 4-12), the system
// time record and its conversions, the "YYYY-MM-DDThh:mm:ssTZD" text form,
// weekdays and the zone abbreviation table.
//
// A record's zone offset is in seconds, positive west of Greenwich. Local
// records carry the platform's current offset (slot 12), whatever season
// their own date lies in; universal records carry 0. Converting a record to
// epoch seconds runs its fields through the platform's make-time and then
// moves the result by the record's offset minus the current one, so a
// record made here converts back to the second it came from, and a record
// written in another zone (parsed text) lands on its own instant.
#include "zos_time.h"

#include "zos_env.h"
#include "zos_fmt.h"
#include "zos_osdep.h"
#include "zos_util.h"

namespace {

constexpr uint32_t kNsecPerMsec = 1000000u;
constexpr uint64_t kNsecPerSec = 1000000000ull;

// Formats of 128 characters or more are refused. The widest field is
// "TZD" (3 characters): at most 13 characters ("+596523:14:08" for the
// most negative offset), so 5 characters per format character suffice.
constexpr uint32_t kMaxFormatLen = 128;
constexpr int32_t kTimeStrSize = kMaxFormatLen * 5;
constexpr const char *kDefaultFormat = "YYYY-MM-DDThh:mm:ssTZD";

// The result of Zos_SysTime2Str, shared by all callers and threads.
char g_acTimeStr[kTimeStrSize];

struct TzEntry {
    const char *pcName;
    int32_t iOffset;
};

// Abbreviations and offsets (positive west), west zones first. Lookups in
// both directions take the first match in this order.
constexpr TzEntry kTzTable[] = {
    {"GMT", 0},       {"WAT", 3600},   {"AT", 7200},    {"ADT", 10800},  {"AST", 14400},
    {"EST", 18000},   {"CST", 21600},  {"MST", 25200},  {"PST", 28800},  {"YST", 32400},
    {"HST", 36000},   {"NT", 39600},   {"IDLW", 43200}, {"CET", -3600},  {"EET", -7200},
    {"BT", -10800},   {"ZP4", -14400}, {"AFT", -16200}, {"ZP5", -18000}, {"ZP6", -21600},
    {"WAST", -25200}, {"CCT", -28800}, {"JST", -32400}, {"GST", -36000}, {"IDLE", -43200},
};

int64_t FloorDiv(int64_t a, int64_t b) {
    const int64_t q = a / b;
    return (a % b != 0 && ((a < 0) != (b < 0))) ? q - 1 : q;
}

bool IsLeapYear(int64_t y) {
    return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

uint32_t DaysInMonth(uint32_t year, uint32_t month) {
    static constexpr uint8_t kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month < 1 || month > 12) return 0;
    return month == 2 && IsLeapYear(year) ? 29u : kDays[month - 1];
}

// Days from 1970-01-01 to a proleptic Gregorian date; month is 1-based and
// may lie outside 1..12 (it carries into the year), day may be any value.
int64_t DaysFromCivil(int64_t y, int64_t m, int64_t d) {
    y += FloorDiv(m - 1, 12);
    m -= FloorDiv(m - 1, 12) * 12;
    if (m <= 2) --y;
    const int64_t era = FloorDiv(y, 400);
    const int64_t yoe = y - era * 400;
    const int64_t doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
    const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

// Fills a record from broken-down fields; fails when a field does not fit.
uint32_t FillRecord(const ST_ZOS_TM &tm, int32_t iTzOffset, uint32_t uiMs, ST_ZOS_SYS_TIME *rec) {
    const int64_t year = static_cast<int64_t>(tm.iYear) + 1900;
    if (year < 0 || year > 0xFFFF || tm.iMon < 0 || tm.iMon > 11 || tm.iMday < 1 || tm.iMday > 31 ||
        tm.iHour < 0 || tm.iHour > 23 || tm.iMin < 0 || tm.iMin > 59 || tm.iSec < 0 ||
        tm.iSec > 60) {
        return ZFAILED;
    }
    rec->wYear = static_cast<uint16_t>(year);
    rec->ucMonth = static_cast<uint8_t>(tm.iMon + 1);
    rec->ucDay = static_cast<uint8_t>(tm.iMday);
    rec->ucWeekDay = static_cast<uint8_t>(Zos_GetWeekDay(rec->wYear, rec->ucMonth, rec->ucDay));
    rec->ucHour = static_cast<uint8_t>(tm.iHour);
    rec->ucMinute = static_cast<uint8_t>(tm.iMin);
    // A leap second shown as :60 is kept inside the record's range.
    rec->ucSecond = static_cast<uint8_t>(tm.iSec > 59 ? 59 : tm.iSec);
    rec->uiMillisecond = uiMs;
    rec->iTzOffset = iTzOffset;
    return ZOK;
}

// Record of an epoch second through the platform's break-down (slot 10),
// carrying the given zone offset.
uint32_t BrokenDownRecord(int64_t t, int32_t iTzOffset, uint32_t uiMs, ST_ZOS_SYS_TIME *rec) {
    auto localTime = zos::Osdep<zos::kSlotLocalTime>();
    if (rec == nullptr || localTime == nullptr) return ZFAILED;
    ST_ZOS_TM tm{};
    if (localTime(&t, &tm) != ZOK) return ZFAILED;
    return FillRecord(tm, iTzOffset, uiMs, rec);
}

// Local record: the local fields of the second and the current offset.
uint32_t LocalRecord(int64_t t, uint32_t uiMs, ST_ZOS_SYS_TIME *rec) {
    return BrokenDownRecord(t, Zos_TzOffset(), uiMs, rec);
}

// Universal record: the second moved by the current offset, then broken
// down as local time; offset 0. The offset is the one in force now, not at
// the second, so the fields are exact universal time only while the moved
// second lies in the same daylight-saving season as now. Across a change
// (a summer second converted in winter, or the reverse, or a second just
// past a change) they differ from universal time by the season step,
// usually one hour. Zos_SysTime2Time undoes the same shift, so the
// record still converts back to the second it came from, except when the
// moved second falls in the repeated autumn hour.
uint32_t UniversalRecord(int64_t t, uint32_t uiMs, ST_ZOS_SYS_TIME *rec) {
    int64_t shifted = 0;
    if (__builtin_add_overflow(t, static_cast<int64_t>(Zos_TzOffset()), &shifted)) {
        return ZFAILED;
    }
    return BrokenDownRecord(shifted, 0, uiMs, rec);
}

// Appends formatted text at *pos, never past the end of the buffer.
template <typename... Args>
void Append(char **pos, const char *end, const char *fmt, Args... args) {
    const int32_t room = static_cast<int32_t>(end - *pos);
    if (room <= 1) return;
    uint32_t n = Zos_SNPrintf(*pos, room, fmt, args...);
    if (n >= static_cast<uint32_t>(room)) n = static_cast<uint32_t>(room - 1);
    *pos += n;
}

// The zone designator: "Z" for universal time, else the signed distance
// east of Greenwich as "+hh:mm" (":ss" added for a zone off whole minutes).
void AppendTzd(char **pos, const char *end, int32_t iTzOffset) {
    const int64_t east = -static_cast<int64_t>(iTzOffset);
    if (east == 0) {
        Append(pos, end, "Z");
        return;
    }
    const uint32_t abs = static_cast<uint32_t>(east < 0 ? -east : east);
    const char sign = east < 0 ? '-' : '+';
    Append(pos, end, "%c%02u:%02u", sign, abs / 3600u, abs % 3600u / 60u);
    if (abs % 60u != 0) Append(pos, end, ":%02u", abs % 60u);
}

bool StartsWith(const char *s, const char *prefix) {
    while (*prefix != '\0') {
        if (*s++ != *prefix++) return false;
    }
    return true;
}

// Reader over the text of Zos_Str2SysTime; every step fails on a
// character that does not fit the form, the end of the text included.
struct Reader {
    const char *pc;

    bool Char(char c) {
        if (*pc != c) return false;
        ++pc;
        return true;
    }
    bool Digits(uint32_t count, uint32_t *out) {
        uint32_t v = 0;
        for (uint32_t i = 0; i < count; ++i) {
            if (*pc < '0' || *pc > '9') return false;
            v = v * 10u + static_cast<uint32_t>(*pc++ - '0');
        }
        *out = v;
        return true;
    }
    // An optional fraction of a second; its first three digits are kept.
    bool Fraction(uint32_t *ms) {
        *ms = 0;
        if (!Char('.')) return true;
        uint32_t n = 0;
        for (; *pc >= '0' && *pc <= '9'; ++pc, ++n) {
            if (n < 3) *ms = *ms * 10u + static_cast<uint32_t>(*pc - '0');
        }
        for (uint32_t i = n; i < 3; ++i) *ms *= 10u;
        return n != 0;
    }
    // The zone designator as written by Zos_SysTime2Str: "Z" or a signed
    // "hh:mm" with optional ":ss", east of Greenwich.
    bool Tzd(int64_t *east, uint32_t *hh, uint32_t *mm, uint32_t *ss) {
        *hh = *mm = *ss = 0;
        *east = 0;
        if (Char('Z')) return true;
        int64_t sign = 1;
        if (!Char('+')) {
            if (!Char('-')) return false;
            sign = -1;
        }
        if (!Digits(2, hh) || !Char(':') || !Digits(2, mm)) return false;
        if (Char(':') && !Digits(2, ss)) return false;
        *east = sign * static_cast<int64_t>(*hh * 3600u + *mm * 60u + *ss);
        return true;
    }
};

}  // namespace

extern "C" {

// ---------------------------------------------------------------------
// Start-up and the clocks

KESTRO_API uint32_t Zos_TimeInit(void) {
    auto init = zos::Osdep<zos::kSlotTimeInit>();
    if (init != nullptr && init() != ZOK) return ZFAILED;
    ZosEnv *env = zos::Env();
    if (env == nullptr) return ZFAILED;
    auto hrTime = zos::Osdep<zos::kSlotGetHrTime>();
    env->ullStartHrTime = hrTime != nullptr ? hrTime() : 0;
    return ZOK;
}

KESTRO_API void Zos_TimeDestroy(void) {
    // Without a platform holder there is nothing to undo, and looking the
    // slot up would make one.
    if (Zos_OsenvLocate() == nullptr) return;
    auto destroy = zos::Osdep<zos::kSlotTimeDestroy>();
    if (destroy != nullptr) destroy();
}

KESTRO_API uint32_t Zos_GetEpochTime(ST_ZOS_EPOCH_TIME *pstTime) {
    auto epoch = zos::Osdep<zos::kSlotGetEpochTime>();
    if (pstTime == nullptr || epoch == nullptr) return ZFAILED;
    return epoch(pstTime) == ZOK ? ZOK : ZFAILED;
}

KESTRO_API uint32_t Zos_GetHiresTime(void) {
    auto hires = zos::Osdep<zos::kSlotGetHiresTime>();
    return hires != nullptr ? hires() : 0;
}

KESTRO_API uint64_t Zos_GetHrTime(void) {
    auto hrTime = zos::Osdep<zos::kSlotGetHrTime>();
    return hrTime != nullptr ? hrTime() : 0;
}

KESTRO_API uint32_t Zos_Time(int64_t *pllTime) {
    auto now = zos::Osdep<zos::kSlotTime>();
    if (pllTime == nullptr || now == nullptr) return ZFAILED;
    now(pllTime);
    return ZOK;
}

KESTRO_API uint32_t Zos_Time_ms(void) {
    ST_ZOS_EPOCH_TIME now{};
    if (Zos_GetEpochTime(&now) != ZOK) return 0;
    return (now.uiNsec / kNsecPerMsec) % 1000u;
}

KESTRO_API uint32_t Zos_GetSysRunTime(int64_t *pllSeconds) {
    ZosEnv *env = zos::EnvIfAny();
    int64_t now = 0;
    if (pllSeconds == nullptr || env == nullptr || Zos_Time(&now) != ZOK) return ZFAILED;
    *pllSeconds = now - static_cast<int64_t>(env->ullStartHrTime / kNsecPerSec);
    return ZOK;
}

// ---------------------------------------------------------------------
// The system time record

KESTRO_API uint32_t Zos_SysTime(ST_ZOS_SYS_TIME *pstTime) {
    ST_ZOS_EPOCH_TIME now{};
    if (pstTime == nullptr || Zos_GetEpochTime(&now) != ZOK) return ZFAILED;
    return LocalRecord(now.llSec, now.uiNsec / kNsecPerMsec % 1000u, pstTime);
}

KESTRO_API uint32_t Zos_SysTimeU(ST_ZOS_SYS_TIME *pstTime) {
    ST_ZOS_EPOCH_TIME now{};
    if (pstTime == nullptr || Zos_GetEpochTime(&now) != ZOK) return ZFAILED;
    return UniversalRecord(now.llSec, now.uiNsec / kNsecPerMsec % 1000u, pstTime);
}

KESTRO_API uint32_t Zos_LocalTime(const int64_t *pllTime, ST_ZOS_TM *pstTm) {
    auto localTime = zos::Osdep<zos::kSlotLocalTime>();
    if (pllTime == nullptr || pstTm == nullptr || localTime == nullptr) return ZFAILED;
    return localTime(pllTime, pstTm) == ZOK ? ZOK : ZFAILED;
}

KESTRO_API int64_t Zos_MkTime(ST_ZOS_TM *pstTm) {
    auto mkTime = zos::Osdep<zos::kSlotMkTime>();
    if (pstTm == nullptr || mkTime == nullptr) return -1;
    return mkTime(pstTm);
}

KESTRO_API int32_t Zos_TzOffset(void) {
    auto zone = zos::Osdep<zos::kSlotTimeZone>();
    return zone != nullptr ? zone() : 0;
}

// ---------------------------------------------------------------------
// Conversions

KESTRO_API uint32_t Zos_SysTime2Time(const ST_ZOS_SYS_TIME *pstTime, int64_t *pllTime) {
    if (pllTime != nullptr) *pllTime = 0;
    if (pstTime == nullptr || pllTime == nullptr) return ZFAILED;
    if (pstTime->wYear < 1900) {
        ZOS_LOG_ERR("SysTime2Time less than 1900.");
        return ZFAILED;
    }
    ST_ZOS_TM tm{};
    if (Zos_SysTime2MTime(pstTime, &tm) != ZOK) return ZFAILED;
    // The platform's make-time also decides whether it can represent the
    // date at all (a 32-bit clock ends in 2038).
    auto mkTime = zos::Osdep<zos::kSlotMkTime>();
    if (mkTime == nullptr) return ZFAILED;
    const int64_t made = mkTime(&tm);
    if (made == -1 || made == -2) {
        ZOS_LOG_ERR("SysTime2Time mktime.");
        return ZFAILED;
    }
    // The make-time reads the fields in the current zone; the difference
    // between the record's zone and the current one moves them into the
    // record's own zone.
    *pllTime = made + pstTime->iTzOffset - Zos_TzOffset();
    return ZOK;
}

KESTRO_API uint32_t Zos_Time2SysTime(int64_t llTime, ST_ZOS_SYS_TIME *pstTime) {
    return LocalRecord(llTime, 0, pstTime);
}

KESTRO_API uint32_t Zos_Time2SysTimeU(int64_t llTime, ST_ZOS_SYS_TIME *pstTime) {
    return UniversalRecord(llTime, 0, pstTime);
}

KESTRO_API uint32_t Zos_SysTime2MTime(const ST_ZOS_SYS_TIME *pstTime, ST_ZOS_TM *pstTm) {
    if (pstTime == nullptr || pstTm == nullptr) return ZFAILED;
    pstTm->iYear = static_cast<int32_t>(pstTime->wYear) - 1900;
    pstTm->iMon = static_cast<int32_t>(pstTime->ucMonth) - 1;
    pstTm->iMday = pstTime->ucDay;
    pstTm->iHour = pstTime->ucHour;
    pstTm->iMin = pstTime->ucMinute;
    pstTm->iSec = pstTime->ucSecond;
    pstTm->iWday =
        static_cast<int32_t>(Zos_GetWeekDay(pstTime->wYear, pstTime->ucMonth, pstTime->ucDay));
    pstTm->iYday =
        static_cast<int32_t>(DaysFromCivil(pstTime->wYear, pstTime->ucMonth, pstTime->ucDay) -
                             DaysFromCivil(pstTime->wYear, 1, 1));
    pstTm->iIsdst = -1;
    return ZOK;
}

KESTRO_API uint32_t Zos_MTime2SysTime(const ST_ZOS_TM *pstTm, ST_ZOS_SYS_TIME *pstTime) {
    if (pstTm == nullptr || pstTime == nullptr) return ZFAILED;
    // The fields are local time, so the record takes the current offset,
    // as every local record does.
    return FillRecord(*pstTm, Zos_TzOffset(), 0, pstTime);
}

// ---------------------------------------------------------------------
// Text form

KESTRO_API const char *Zos_SysTime2Str(const char *pcFormat, const ST_ZOS_SYS_TIME *pstTime) {
    uint32_t len = 0;
    if (pcFormat != nullptr) {
        while (len < kMaxFormatLen && pcFormat[len] != '\0') ++len;
    }
    if (len >= kMaxFormatLen) {
        ZOS_LOG_ERR("SysTime2Str too large format.");
        return nullptr;
    }
    if (len == 0) pcFormat = kDefaultFormat;
    ST_ZOS_SYS_TIME now{};
    if (pstTime == nullptr) {
        if (Zos_SysTime(&now) != ZOK) return nullptr;
        pstTime = &now;
    }

    char *pos = g_acTimeStr;
    const char *end = g_acTimeStr + kTimeStrSize;
    const char *f = pcFormat;
    while (*f != '\0') {
        if (StartsWith(f, "YYYY")) {
            Append(&pos, end, "%04u", static_cast<uint32_t>(pstTime->wYear));
            f += 4;
        } else if (StartsWith(f, "TZD")) {
            AppendTzd(&pos, end, pstTime->iTzOffset);
            f += 3;
        } else if (StartsWith(f, "MM") || StartsWith(f, "DD") || StartsWith(f, "hh") ||
                   StartsWith(f, "mm") || StartsWith(f, "ss")) {
            uint32_t v = 0;
            switch (*f) {
                case 'M':
                    v = pstTime->ucMonth;
                    break;
                case 'D':
                    v = pstTime->ucDay;
                    break;
                case 'h':
                    v = pstTime->ucHour;
                    break;
                case 'm':
                    v = pstTime->ucMinute;
                    break;
                default:
                    v = pstTime->ucSecond;
                    break;
            }
            Append(&pos, end, "%02u", v);
            f += 2;
        } else {
            if (end - pos > 1) *pos++ = *f;
            ++f;
        }
    }
    *pos = '\0';
    return g_acTimeStr;
}

// A text that stops early, breaks the form or holds a field out of range
// (2016-02-30, 24:00, +24:00) is an incomplete format; characters after the
// zone are a tail.
KESTRO_API uint32_t Zos_Str2SysTime(const char *pcText, ST_ZOS_SYS_TIME *pstTime) {
    if (pcText == nullptr || pstTime == nullptr) {
        ZOS_LOG_ERR("Str2SysTime null parameter.");
        return ZFAILED;
    }
    Reader r{pcText};
    uint32_t year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, ms = 0;
    uint32_t tzH = 0, tzM = 0, tzS = 0;
    int64_t east = 0;
    if (!(r.Digits(4, &year) && r.Char('-') && r.Digits(2, &month) && r.Char('-') &&
          r.Digits(2, &day) && r.Char('T') && r.Digits(2, &hour) && r.Char(':') &&
          r.Digits(2, &minute) && r.Char(':') && r.Digits(2, &second) && r.Fraction(&ms) &&
          r.Tzd(&east, &tzH, &tzM, &tzS))) {
        ZOS_LOG_ERR("Str2SysTime incompleted format.");
        return ZFAILED;
    }
    if (*r.pc != '\0') {
        ZOS_LOG_ERR("Str2SysTime tail exist.");
        return ZFAILED;
    }
    if (month < 1 || month > 12 || day < 1 || day > DaysInMonth(year, month) || hour > 23 ||
        minute > 59 || second > 59 || tzH > 23 || tzM > 59 || tzS > 59) {
        ZOS_LOG_ERR("Str2SysTime incompleted format.");
        return ZFAILED;
    }
    pstTime->wYear = static_cast<uint16_t>(year);
    pstTime->ucMonth = static_cast<uint8_t>(month);
    pstTime->ucDay = static_cast<uint8_t>(day);
    pstTime->ucWeekDay = static_cast<uint8_t>(Zos_GetWeekDay(year, month, day));
    pstTime->ucHour = static_cast<uint8_t>(hour);
    pstTime->ucMinute = static_cast<uint8_t>(minute);
    pstTime->ucSecond = static_cast<uint8_t>(second);
    pstTime->uiMillisecond = ms;
    pstTime->iTzOffset = static_cast<int32_t>(-east);
    return ZOK;
}

// ---------------------------------------------------------------------
// Calendar and zones

KESTRO_API uint32_t Zos_GetWeekDay(uint32_t uiYear, uint32_t uiMonth, uint32_t uiDay) {
    if (uiMonth < 1 || uiMonth > 12) return 0;
    // Zeller's congruence, Gauss's form: January and February are months
    // 13 and 14 of the year before. 400 years are added so the year before
    // year 0 stays positive; they are a whole number of weeks.
    uint64_t y = static_cast<uint64_t>(uiYear) + 400u;
    uint64_t m = uiMonth;
    if (m < 3) {
        m += 12;
        --y;
    }
    const uint64_t k = y % 100u;
    const uint64_t j = y / 100u;
    const uint64_t h = (uiDay + 13u * (m + 1u) / 5u + k + k / 4u + j / 4u + 5u * j) % 7u;
    // h counts from Saturday; the result counts from Sunday.
    return static_cast<uint32_t>((h + 6u) % 7u);
}

KESTRO_API const char *Zos_TzOffset2Name(int32_t iOffset) {
    for (const TzEntry &e : kTzTable) {
        if (e.iOffset == iOffset) return e.pcName;
    }
    return "";
}

KESTRO_API int32_t Zos_TzName2Offset(const char *pcName, uint32_t uiLen) {
    if (pcName == nullptr) return 0;
    for (const TzEntry &e : kTzTable) {
        uint32_t i = 0;
        while (i < uiLen && e.pcName[i] != '\0' && e.pcName[i] == pcName[i]) ++i;
        // Equal over the whole length, or both names end together.
        if (i == uiLen || (e.pcName[i] == '\0' && pcName[i] == '\0')) return e.iOffset;
    }
    return 0;
}

KESTRO_API const char *Zos_TzName(void) {
    auto zone = zos::Osdep<zos::kSlotTimeZone>();
    return Zos_TzOffset2Name(zone != nullptr ? zone() : 0);
}

KESTRO_API int32_t Zos_TzOffset2Zone(void) {
    return -(Zos_TzOffset() / 3600);
}

KESTRO_API int32_t Zos_TzZone2Offset(int32_t iZone) {
    return static_cast<int32_t>(static_cast<int64_t>(iZone) * -3600);
}

}  // extern "C"
