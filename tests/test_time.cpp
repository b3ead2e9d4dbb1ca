// Clocks, the system time record, its text form, weekdays and zones.
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <tuple>

#include "zos_test.h"

namespace {

class TimeTest : public ZosTest {
  protected:
    void TearDown() override {
        hadTz_ ? setenv("TZ", savedTz_.c_str(), 1) : unsetenv("TZ");
        tzset();
        ZosTest::TearDown();
    }
    static void SetTz(const char *tz) { setenv("TZ", tz, 1), tzset(); }
    static std::string Text(int64_t t, bool universal = false) {
        ST_ZOS_SYS_TIME rec{};
        const uint32_t rc = universal ? Zos_Time2SysTimeU(t, &rec) : Zos_Time2SysTime(t, &rec);
        const char *s = rc == ZOK ? Zos_SysTime2Str(nullptr, &rec) : "";
        return s != nullptr ? s : "(null)";
    }
    // Seconds of a parsed text; kFailed when the conversion fails (leaving 0).
    static constexpr int64_t kFailed = INT64_MIN;
    static int64_t Secs(const char *text) {
        ST_ZOS_SYS_TIME rec{};
        int64_t t = 7;
        if (Zos_Str2SysTime(text, &rec) != ZOK) return 1;
        return Zos_SysTime2Time(&rec, &t) == ZOK ? t : t == 0 ? kFailed : 2;
    }
    // The C library as reference: west offset, wall clock (as universal
    // seconds), and a wall clock that recurs an hour away (the repeated hour).
    static int32_t LibWest(int64_t t) {
        const time_t tt = static_cast<time_t>(t);
        std::tm tm{};
        return localtime_r(&tt, &tm) != nullptr ? static_cast<int32_t>(-tm.tm_gmtoff) : 1;
    }
    static int64_t Wall(int64_t t) { return t - LibWest(t); }
    static bool Repeated(int64_t t) {
        return Wall(t - 3600) == Wall(t) || Wall(t + 3600) == Wall(t);
    }
    bool hadTz_ = std::getenv("TZ") != nullptr;
    std::string savedTz_ = hadTz_ ? std::getenv("TZ") : "";
};

// A record's fields but the milliseconds, and the same fields for the
// universal date of a second with a given offset, as the C library has them.
std::string Fields(const ST_ZOS_SYS_TIME &r) {
    char buf[64];
    snprintf(buf, sizeof buf, "%d-%d-%d w%d %d:%d:%d %d", r.wYear, r.ucMonth, r.ucDay, r.ucWeekDay,
             r.ucHour, r.ucMinute, r.ucSecond, r.iTzOffset);
    return buf;
}
std::string Fields(int64_t wall, int32_t offset) {
    const time_t tt = static_cast<time_t>(wall);
    std::tm tm{};
    char buf[64];
    // Broken down before the call: the order in which arguments are
    // evaluated is unspecified (GCC reads the later fields first).
    gmtime_r(&tt, &tm);
    snprintf(buf, sizeof buf, "%d-%d-%d w%d %d:%d:%d %d", tm.tm_year + 1900, tm.tm_mon + 1,
             tm.tm_mday, tm.tm_wday, tm.tm_hour, tm.tm_min, tm.tm_sec, offset);
    return buf;
}

// Around the 2021 changes: Europe (03-28, 10-31 at 01:00Z), the US (03-14
// 07:00Z, 11-07 06:00Z), Chatham (04-03, 09-25 at 14:00Z); then the epoch,
// 2000-02-29 and two days inside the 32-bit ends.
constexpr int64_t kEuAutumn = 1635642000;
constexpr int64_t kInstants[] = {1616893199, 1616893200,  1635640200, 1635642000, 1635643800,
                                 1615705199, 1615705200,  1636263000, 1636264800, 1617458399,
                                 1617458400, 1617456600,  1632578399, 1632578400, 0,
                                 951782400,  -2147310848, 2147310847};
constexpr const char *kZones[] = {"UTC0", "IST-5:30", "CET-1CEST,M3.5.0,M10.5.0/3",
                                  "EST5EDT,M3.2.0,M11.1.0",
                                  "<+1245>-12:45<+1345>,M9.5.0/2:45,M4.1.0/3:45"};

}  // namespace

TEST(TimeCalendar, WeekdaysOfEveryDayAndTheZoneTable) {
    EXPECT_EQ(Zos_GetWeekDay(0, 1, 1), 6u);  // January of year 0 counts in year -1
    EXPECT_EQ(Zos_GetWeekDay(2016, 13, 1), 0u);
    EXPECT_TRUE(Zos_GetWeekDay(1900, 3, 1) == 4 && Zos_GetWeekDay(2100, 3, 1) == 1);  // not leap
    for (int64_t day = -24800; day <= 24800; ++day) {  // 1902..2037, against the C library
        const time_t tt = static_cast<time_t>(day * 86400);
        std::tm tm{};
        gmtime_r(&tt, &tm);
        ASSERT_EQ(Zos_GetWeekDay(tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday), tm.tm_wday) << day;
        // The day of the year of a record's broken-down form as well.
        ST_ZOS_SYS_TIME rec{};
        rec.wYear = static_cast<uint16_t>(tm.tm_year + 1900);
        rec.ucMonth = static_cast<uint8_t>(tm.tm_mon + 1);
        rec.ucDay = static_cast<uint8_t>(tm.tm_mday);
        ST_ZOS_TM mt{};
        ASSERT_EQ(Zos_SysTime2MTime(&rec, &mt), ZOK);
        ASSERT_EQ(mt.iYday, tm.tm_yday) << day;
    }
    // Year 0 is a leap year, and its January and February count in the
    // 400-year cycle before it.
    for (const auto &[month, day, yday] : {std::tuple{3, 1, 60}, {12, 31, 365}, {2, 29, 59}}) {
        ST_ZOS_SYS_TIME rec{};
        rec.ucMonth = static_cast<uint8_t>(month);
        rec.ucDay = static_cast<uint8_t>(day);
        ST_ZOS_TM mt{};
        ASSERT_EQ(Zos_SysTime2MTime(&rec, &mt), ZOK);
        EXPECT_EQ(mt.iYday, yday) << month << "-" << day;
    }
    // The zone table, both ways.
    EXPECT_STREQ(Zos_TzOffset2Name(-16200), "AFT");
    EXPECT_STREQ(Zos_TzOffset2Name(1800), "");
    EXPECT_EQ(Zos_TzName2Offset("IDLE", 4), -43200);
    EXPECT_EQ(Zos_TzName2Offset("XYZ", 3) | Zos_TzName2Offset(nullptr, 3), 0);
    EXPECT_EQ(Zos_TzName2Offset("CET", 4), -3600);      // terminator included
    EXPECT_EQ(Zos_TzName2Offset("JSTxyz", 3), -32400);  // counted, not terminated
    EXPECT_EQ(Zos_TzName2Offset("E", 1), 18000);        // west zones come first
    int found = 0;
    for (int32_t off = -43200; off <= 43200; off += 1800) {
        const char *name = Zos_TzOffset2Name(off);
        found += *name != '\0' && Zos_TzName2Offset(name, 8) == off;
    }
    EXPECT_EQ(found, 25);
    EXPECT_EQ(Zos_TzZone2Offset(-5), 18000);
}

TEST_F(TimeTest, RoundTripsThroughSecondsTextAndBrokenDownTime) {
    for (const char *zone : kZones) {
        SetTz(zone);
        const int32_t cur = Zos_TzOffset();
        ASSERT_EQ(cur, LibWest(time(nullptr))) << zone;
        for (int64_t t : kInstants) {
            for (bool universal : {false, true}) {
                // Universal: the local break-down of the second moved by the current offset.
                const int64_t shift = universal ? cur : 0;
                SCOPED_TRACE(std::string(zone) + " " + std::to_string(t) + (universal ? "U" : ""));
                ST_ZOS_SYS_TIME rec{}, parsed{}, viaTm{};
                int64_t back = 1, back2 = 2;
                ASSERT_EQ(universal ? Zos_Time2SysTimeU(t, &rec) : Zos_Time2SysTime(t, &rec), ZOK);
                EXPECT_EQ(Fields(rec), Fields(Wall(t + shift), static_cast<int32_t>(cur - shift)));
                const std::string text = Zos_SysTime2Str(nullptr, &rec);
                ASSERT_EQ(Zos_Str2SysTime(text.c_str(), &parsed), ZOK) << text;
                EXPECT_EQ(Fields(parsed), Fields(rec)) << text;
                ASSERT_EQ(Zos_SysTime2Time(&rec, &back) | Zos_SysTime2Time(&parsed, &back2), ZOK);
                // Exact, but a repeated wall clock may come back as its other occurrence.
                EXPECT_TRUE(back == back2 && Wall(back + shift) == Wall(t + shift)) << back;
                EXPECT_TRUE(back == t || Repeated(t + shift)) << text << " gave " << back;
                // Broken-down time carries no zone; the record takes the current one.
                ST_ZOS_TM tm{};
                if (universal || Repeated(t)) continue;
                ASSERT_EQ(Zos_LocalTime(&t, &tm) | Zos_MTime2SysTime(&tm, &viaTm), ZOK);
                EXPECT_EQ(Fields(viaTm), Fields(rec));
                ASSERT_EQ(Zos_SysTime2MTime(&rec, &tm), ZOK);
                EXPECT_EQ(Zos_MkTime(&tm), t);
            }
        }
    }
}

TEST_F(TimeTest, TextCarriesTheCurrentOffsetAndUniversalTimeFollowsTheSeason) {
    SetTz("IST-5:30");
    EXPECT_EQ(Text(0), "1970-01-01T05:30:00+05:30");
    EXPECT_EQ(Text(951782400, true), "2000-02-29T00:00:00Z");
    SetTz("EST5EDT,M3.2.0,M11.1.0");
    EXPECT_EQ(Text(1625140800),
              "2021-07-01T08:00:00" + std::string(Zos_TzOffset() == 14400 ? "-04:00" : "-05:00"));
    SetTz("CET-1CEST,M3.5.0,M10.5.0/3");
    const bool summer = Zos_TzOffset() == -7200;
    ASSERT_TRUE(summer || Zos_TzOffset() == -3600);
    const std::string tzd = summer ? "+02:00" : "+01:00";
    EXPECT_EQ(Text(1625140800), "2021-07-01T14:00:00" + tzd);  // 12:00Z
    EXPECT_EQ(Text(1609459200), "2021-01-01T01:00:00" + tzd);  // 00:00Z
    // Moved by the current offset, the other season's seconds are an hour off.
    EXPECT_EQ(Text(1625140800, true), summer ? "2021-07-01T12:00:00Z" : "2021-07-01T13:00:00Z");
    EXPECT_EQ(Text(1609459200, true), summer ? "2020-12-31T23:00:00Z" : "2021-01-01T00:00:00Z");
    EXPECT_EQ(Text(kEuAutumn - 1800), "2021-10-31T02:30:00" + tzd);  // the repeated
    EXPECT_EQ(Text(kEuAutumn + 1800), "2021-10-31T02:30:00" + tzd);  // hour, twice
}

TEST_F(TimeTest, RecordToSecondsMovesByRecordZoneLessCurrentZone) {
    SetTz("IST-5:30");  // without seasons every written zone is honoured exactly
    for (const char *text : {"2021-01-15T11:00:00Z", "2021-01-15T12:00:00+01:00",
                             "2021-01-15T10:30:00-00:30", "2021-01-15T16:30:00+05:30"}) {
        EXPECT_EQ(Secs(text), 1610708400) << text;
    }
    SetTz("CET-1CEST,M3.5.0,M10.5.0/3");  // a date in the other season lands an hour away
    const bool summer = Zos_TzOffset() == -7200;
    EXPECT_EQ(Secs("2021-07-01T14:00:00+02:00"), summer ? 1625140800 : 1625137200);
    EXPECT_EQ(Secs("2021-01-15T11:00:00Z"), summer ? 1610712000 : 1610708400);
    // Before 1900, make-time results -1 and -2, and past 2038 on a 32-bit clock.
    SetTz("UTC0");
    const bool wide = sizeof(time_t) == 8;
    for (const char *bad : {"1899-12-31T23:59:59Z", "1969-12-31T23:59:59Z", "1969-12-31T23:59:58Z"})
        EXPECT_EQ(Secs(bad), kFailed) << bad;
    EXPECT_TRUE(ktest::LoggedContains("SysTime2Time less than 1900."));
    EXPECT_TRUE(ktest::LoggedContains("SysTime2Time mktime."));
    EXPECT_EQ(Secs("1969-12-31T23:59:57Z"), -3);
    EXPECT_EQ(Secs("2038-01-19T03:14:07Z"), 2147483647);
    EXPECT_EQ(Secs("2038-01-19T03:14:08Z"), wide ? 2147483648 : kFailed);
    EXPECT_EQ(Secs("2100-01-01T00:00:00Z"), wide ? 4102444800 : kFailed);
    ST_ZOS_SYS_TIME rec{};
    int64_t t = 7;
    EXPECT_EQ(Zos_Time2SysTime(int64_t{1} << 32, &rec), wide ? ZOK : ZFAILED);
    EXPECT_TRUE(Zos_SysTime2Time(nullptr, &t) == ZFAILED && t == 0);
    EXPECT_EQ(Zos_SysTime2Time(&rec, nullptr), ZFAILED);
    ST_ZOS_TM tm{};
    EXPECT_EQ(Zos_SysTime2MTime(nullptr, &tm) + Zos_SysTime2MTime(&rec, nullptr) +
                  Zos_MTime2SysTime(nullptr, &rec) + Zos_MTime2SysTime(&tm, nullptr),
              4 * ZFAILED);
    SetTz("IST-5:30");  // the move by the offset must not overflow
    EXPECT_EQ(Zos_Time2SysTimeU(INT64_MIN, &rec), ZFAILED);
    ZOS_OSDEP_FUNC saved = ktest::Slot(11);
    ktest::Slot(11) = nullptr;
    EXPECT_EQ(Secs("2021-01-15T11:00:00Z"), kFailed);
    ktest::Slot(11) = saved;
}

TEST_F(TimeTest, TextFormParserAndFormatter) {
    ST_ZOS_SYS_TIME rec{1234, 5, 6, 0, 7, 8, 9, 0, 10}, before = rec;
    for (const char *bad :
         {"", "2016-01-01T00:00", "2016-01-01T00:00:00", "2016-01-01T00:00:00+01:0",
          "2016-01-01T00:00:00.Z", "2016-01-01 00:00:00Z", "2016-01-01T00:00:00Zx",
          "2016-02-30T00:00:00Z", "2015-02-29T00:00:00Z", "2016-01-01T24:00:00Z",
          "2016-01-01T00:00:00+24:00"}) {
        EXPECT_EQ(Zos_Str2SysTime(bad, &rec), ZFAILED) << bad;
        EXPECT_EQ(Fields(rec), Fields(before)) << bad;
    }
    // Each refusal names its reason in the system log.
    EXPECT_TRUE(ktest::LoggedContains("Str2SysTime incompleted format."));
    EXPECT_TRUE(ktest::LoggedContains("Str2SysTime tail exist."));
    EXPECT_FALSE(ktest::LoggedContains("Str2SysTime null parameter."));
    EXPECT_EQ(Zos_Str2SysTime(nullptr, &rec), ZFAILED);
    EXPECT_EQ(Zos_Str2SysTime("2016-01-01T00:00:00Z", nullptr), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("Str2SysTime null parameter."));
    ASSERT_EQ(Zos_Str2SysTime("2016-02-29T23:59:59.5-00:30", &rec), ZOK);
    EXPECT_TRUE(rec.uiMillisecond == 500 && rec.iTzOffset == 1800 && rec.ucWeekDay == 1);

    ST_ZOS_SYS_TIME parsed{};
    rec = {2016, 2, 9, 2, 7, 5, 3, 0, -3601};
    const char *first = Zos_SysTime2Str("DD/MM/YYYY hh.mm.ss [TZD] Mmh", &rec);
    EXPECT_STREQ(first, "09/02/2016 07.05.03 [+01:00:01] Mmh");
    ASSERT_EQ(Zos_Str2SysTime(Zos_SysTime2Str("", &rec), &parsed), ZOK);
    EXPECT_EQ(Fields(parsed), Fields(rec));
    rec.iTzOffset = 0;
    EXPECT_EQ(Zos_SysTime2Str(nullptr, &rec), first);  // one buffer, overwritten
    EXPECT_STREQ(first, "2016-02-09T07:05:03Z");
    // The widest text: 42 zone fields of the most negative offset.
    rec.iTzOffset = INT32_MIN;
    std::string format, expected;
    for (int i = 0; i < 42; ++i) format += "TZD", expected += "+596523:14:08";
    EXPECT_EQ(std::string(Zos_SysTime2Str((format + "!").c_str(), &rec)), expected + "!");
    EXPECT_FALSE(ktest::LoggedContains("SysTime2Str too large format."));
    EXPECT_EQ(Zos_SysTime2Str(std::string(128, 'x').c_str(), &rec), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("SysTime2Str too large format."));
}

TEST_F(TimeTest, ClocksCurrentZoneAndMissingSlots) {
    SetTz("JST-9");
    EXPECT_STREQ(Zos_TzName(), "JST");
    SetTz("<-0330>3:30");
    EXPECT_EQ(Zos_TzOffset2Zone(), -3);
    SetTz("IST-5:30");
    EXPECT_TRUE(Zos_TzOffset() == -19800 && Zos_TzOffset2Zone() == 5 && *Zos_TzName() == '\0');
    ST_ZOS_EPOCH_TIME e{};
    ST_ZOS_SYS_TIME local{}, utc{};
    int64_t t = 0, run = -1, a = 0, b = 0;
    ASSERT_EQ(Zos_GetEpochTime(&e) | Zos_Time(&t) | Zos_GetSysRunTime(&run), ZOK);
    EXPECT_TRUE(t - e.llSec <= 1 && Zos_Time_ms() < 1000u && run >= 0 && run < 60) << run;
    EXPECT_EQ(Zos_Time(nullptr) & Zos_GetEpochTime(nullptr), ZFAILED);
    ASSERT_EQ(Zos_SysTime(&local) | Zos_SysTimeU(&utc), ZOK);
    ASSERT_EQ(Zos_SysTime2Time(&local, &a) | Zos_SysTime2Time(&utc, &b), ZOK);
    EXPECT_TRUE(a >= t && b - a <= 1) << a << " " << b;
    EXPECT_EQ(Fields(local), Fields(a + 19800, -19800));
    EXPECT_EQ(Fields(utc), Fields(b, 0));
    ZOS_OSDEP_FUNC epoch = ktest::Slot(6), brk = ktest::Slot(10), zone = ktest::Slot(12);
    ktest::Slot(6) = ktest::Slot(12) = nullptr;
    // Without the current offset both records hold the plain local fields.
    EXPECT_TRUE(Text(0) == "1970-01-01T05:30:00Z" && Text(0, true) == Text(0)) << Text(0);
    EXPECT_TRUE(Zos_TzOffset2Zone() == 0 && Zos_Time_ms() == 0 &&
                std::string(Zos_TzName()) == "GMT");
    EXPECT_EQ(Zos_SysTime(&local) & Zos_SysTimeU(&utc), ZFAILED);
    EXPECT_EQ(Zos_SysTime2Str(nullptr, nullptr), nullptr);
    ktest::Slot(10) = nullptr;
    EXPECT_EQ(Zos_Time2SysTime(0, &local) & Zos_Time2SysTimeU(0, &local), ZFAILED);
    ktest::Slot(6) = epoch, ktest::Slot(10) = brk, ktest::Slot(12) = zone;
    ZOS_OSDEP_FUNC init = ktest::Slot(4);
    ktest::Slot(4) = reinterpret_cast<ZOS_OSDEP_FUNC>(+[]() -> uint32_t { return ZFAILED; });
    EXPECT_EQ(Zos_TimeInit(), ZFAILED);
    ktest::Slot(4) = init;
    // Shut-down gives the platform's clock back once, through its slot.
    static int destroyed = 0;
    ktest::Slot(5) = reinterpret_cast<ZOS_OSDEP_FUNC>(+[]() -> uint32_t {
        ++destroyed;
        return ZOK;
    });
    Zos_SysDestroy();
    EXPECT_EQ(destroyed, 1);
}
