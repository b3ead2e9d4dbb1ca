// Clocks and calendar over the C library.
#include <ctime>

#include "zpand.h"

namespace {

void ToZosTm(const std::tm &in, ST_ZOS_TM *out) {
    out->iSec = in.tm_sec;
    out->iMin = in.tm_min;
    out->iHour = in.tm_hour;
    out->iMday = in.tm_mday;
    out->iMon = in.tm_mon;
    out->iYear = in.tm_year;
    out->iWday = in.tm_wday;
    out->iYday = in.tm_yday;
    out->iIsdst = in.tm_isdst;
}

}  // namespace

extern "C" {

KESTRO_API uint32_t Zpand_TimeInit(void) {
    return ZOK;
}

KESTRO_API uint32_t Zpand_TimeDestroy(void) {
    return ZOK;
}

KESTRO_API uint32_t Zpand_GetEpochTime(ST_ZOS_EPOCH_TIME *pstTime) {
    timespec ts{};
    if (pstTime == nullptr || clock_gettime(CLOCK_REALTIME, &ts) != 0) return ZFAILED;
    pstTime->llSec = ts.tv_sec;
    pstTime->uiNsec = static_cast<uint32_t>(ts.tv_nsec);
    return ZOK;
}

KESTRO_API uint32_t Zpand_GetHiresTime(void) {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint32_t>(static_cast<uint64_t>(ts.tv_sec) * 1000u +
                                 static_cast<uint64_t>(ts.tv_nsec) / 1000000u);
}

KESTRO_API uint64_t Zpand_GetHrTime(void) {
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000000000ull + static_cast<uint64_t>(ts.tv_nsec);
}

KESTRO_API int64_t Zpand_Time(int64_t *pllTime) {
    const int64_t now = static_cast<int64_t>(std::time(nullptr));
    if (pllTime != nullptr) *pllTime = now;
    return now;
}

KESTRO_API uint32_t Zpand_LocalTime(const int64_t *pllTime, ST_ZOS_TM *pstTm) {
    if (pllTime == nullptr || pstTm == nullptr) return ZFAILED;
    const std::time_t t = static_cast<std::time_t>(*pllTime);
    if (static_cast<int64_t>(t) != *pllTime) return ZFAILED;
    std::tm tm{};
    if (localtime_r(&t, &tm) == nullptr) return ZFAILED;
    ToZosTm(tm, pstTm);
    return ZOK;
}

KESTRO_API int64_t Zpand_MkTime(ST_ZOS_TM *pstTm) {
    if (pstTm == nullptr) return -1;
    std::tm tm{};
    tm.tm_sec = pstTm->iSec;
    tm.tm_min = pstTm->iMin;
    tm.tm_hour = pstTm->iHour;
    tm.tm_mday = pstTm->iMday;
    tm.tm_mon = pstTm->iMon;
    tm.tm_year = pstTm->iYear;
    tm.tm_isdst = -1;  // let the C library decide daylight saving
    const std::time_t t = std::mktime(&tm);
    if (t == static_cast<std::time_t>(-1)) return -1;
    ToZosTm(tm, pstTm);
    return static_cast<int64_t>(t);
}

KESTRO_API int32_t Zpand_TimeZone(void) {
    const std::time_t now = std::time(nullptr);
    std::tm tm{};
    if (localtime_r(&now, &tm) == nullptr) return 0;
    return static_cast<int32_t>(-tm.tm_gmtoff);
}

}  // extern "C"
