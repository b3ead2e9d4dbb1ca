// Clocks, the system time record, its text form, weekdays and zones.
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <regex>
#include <string>

#include "zos_test.h"

namespace {

// Zones without the time-zone database: UTC, India (half hour), central
// Europe and US east coast with daylight saving, Chatham (+12:45/+13:45).
constexpr const char *kZones[] = {"UTC0", "IST-5:30", "CET-1CEST,M3.5.0,M10.5.0/3",
                                  "EST5EDT,M3.2.0,M11.1.0",
                                  "<+1245>-12:45<+1345>,M9.5.0/2:45,M4.1.0/3:45"};

// Instants around the 2021 transitions of Europe (03-28 and 10-31, 01:00Z)
// and New York (03-14 07:00Z, 11-07 06:00Z), the epoch and the 32-bit ends.
constexpr int64_t kInstants[] = {0,
                                 1616893200 - 1,
                                 1616893200,
                                 1616893200 + 1800,
                                 1635642000 - 1800,
                                 1635642000,
                                 1635642000 + 1800,
                                 1615705200 - 1,
                                 1615705200,
                                 1636264800 - 1,
                                 1636264800,
                                 -2147483648 + 2 * 86400,
                                 2147483647 - 2 * 86400,
                                 951782400 /* 2000-02-29 */};

class TimeTest : public ZosTest {
  protected:
    void SetUp() override {
        const char *tz = std::getenv("TZ");
        savedTz_ = tz != nullptr ? tz : "";
        hadTz_ = tz != nullptr;
        ZosTest::SetUp();
    }
    void TearDown() override {
        if (hadTz_) {
            setenv("TZ", savedTz_.c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
        ZosTest::TearDown();
    }
    static void SetTz(const char *tz) {
        setenv("TZ", tz, 1);
        tzset();
    }
    static std::string Text(int64_t t) {
        ST_ZOS_SYS_TIME rec{};
        EXPECT_EQ(Zos_Time2SysTime(t, &rec), ZOK);
        const char *s = Zos_SysTime2Str(nullptr, &rec);
        return s != nullptr ? s : "(null)";
    }

  private:
    std::string savedTz_;
    bool hadTz_ = false;
};

void ExpectSameFields(const ST_ZOS_SYS_TIME &a, const ST_ZOS_SYS_TIME &b) {
    EXPECT_EQ(a.wYear, b.wYear);
    EXPECT_EQ(a.ucMonth, b.ucMonth);
    EXPECT_EQ(a.ucDay, b.ucDay);
    EXPECT_EQ(a.ucWeekDay, b.ucWeekDay);
    EXPECT_EQ(a.ucHour, b.ucHour);
    EXPECT_EQ(a.ucMinute, b.ucMinute);
    EXPECT_EQ(a.ucSecond, b.ucSecond);
    EXPECT_EQ(a.iTzOffset, b.iTzOffset);
}

}  // namespace

TEST(TimeCalendar, WeekdaysOfKnownDatesAndEveryDayInTwoCenturies) {
    EXPECT_EQ(Zos_GetWeekDay(1900, 1, 1), 1u);
    EXPECT_EQ(Zos_GetWeekDay(1970, 1, 1), 4u);
    EXPECT_EQ(Zos_GetWeekDay(2000, 1, 1), 6u);
    EXPECT_EQ(Zos_GetWeekDay(2000, 2, 29), 2u);
    EXPECT_EQ(Zos_GetWeekDay(2100, 2, 28), 0u);
    EXPECT_EQ(Zos_GetWeekDay(2100, 3, 1), 1u);  // 2100 has no leap day
    EXPECT_EQ(Zos_GetWeekDay(1, 1, 1), 1u);
    EXPECT_EQ(Zos_GetWeekDay(0, 1, 1), 6u);
    EXPECT_EQ(Zos_GetWeekDay(2016, 13, 1), 0u);

    // Day after day from 1899-12-31 (a Sunday) to 2101-01-01 the weekday
    // steps by one, across month, leap-day and century ends.
    const uint32_t days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    uint32_t expected = 0;
    ASSERT_EQ(Zos_GetWeekDay(1899, 12, 31), 0u);
    for (uint32_t y = 1900; y <= 2100; ++y) {
        const bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
        for (uint32_t m = 1; m <= 12; ++m) {
            const uint32_t n = days[m - 1] + (m == 2 && leap ? 1 : 0);
            for (uint32_t d = 1; d <= n; ++d) {
                expected = (expected + 1) % 7;
                ASSERT_EQ(Zos_GetWeekDay(y, m, d), expected) << y << "-" << m << "-" << d;
            }
        }
    }
}

TEST(TimeZones, TableLookupsBothWays) {
    EXPECT_STREQ(Zos_TzOffset2Name(-16200), "AFT");
    EXPECT_STREQ(Zos_TzOffset2Name(1800), "");
    EXPECT_STREQ(Zos_TzOffset2Name(0), "GMT");
    EXPECT_STREQ(Zos_TzOffset2Name(43200), "IDLW");
    EXPECT_EQ(Zos_TzName2Offset("IDLE", 4), -43200);
    EXPECT_EQ(Zos_TzName2Offset("XYZ", 3), 0);
    EXPECT_EQ(Zos_TzName2Offset(nullptr, 3), 0);
    EXPECT_EQ(Zos_TzName2Offset("CET", 4), -3600);      // terminator included
    EXPECT_EQ(Zos_TzName2Offset("JSTxyz", 3), -32400);  // counted, not terminated
    EXPECT_EQ(Zos_TzName2Offset("CETX", 4), 0);
    EXPECT_EQ(Zos_TzName2Offset("E", 1), 18000);  // west zones come first
    for (int32_t off = -43200; off <= 43200; off += 1800) {
        const char *name = Zos_TzOffset2Name(off);
        if (*name != '\0') {
            EXPECT_EQ(Zos_TzName2Offset(name, 8), off) << name;
        }
    }
    EXPECT_EQ(Zos_TzZone2Offset(-5), 18000);
    EXPECT_EQ(Zos_TzZone2Offset(9), -32400);
}

TEST_F(TimeTest, CurrentZoneThroughThePlatform) {
    SetTz("IST-5:30");
    EXPECT_EQ(Zos_TzOffset(), -19800);
    EXPECT_EQ(Zos_TzOffset2Zone(), 5);
    EXPECT_STREQ(Zos_TzName(), "");
    SetTz("<-0330>3:30");
    EXPECT_EQ(Zos_TzOffset2Zone(), -3);
    SetTz("JST-9");
    EXPECT_STREQ(Zos_TzName(), "JST");

    ZOS_OSDEP_FUNC saved = ktest::Slot(12);
    ktest::Slot(12) = nullptr;
    EXPECT_STREQ(Zos_TzName(), "GMT");
    EXPECT_EQ(Zos_TzOffset(), 0);
    EXPECT_EQ(Zos_TzOffset2Zone(), 0);
    ktest::Slot(12) = saved;
}

TEST_F(TimeTest, RoundTripsThroughSecondsAndTextInEveryZone) {
    for (const char *zone : kZones) {
        SetTz(zone);
        for (int64_t t : kInstants) {
            SCOPED_TRACE(std::string(zone) + " at " + std::to_string(t));
            for (auto toRec : {Zos_Time2SysTime, Zos_Time2SysTimeU}) {
                ST_ZOS_SYS_TIME rec{}, parsed{};
                ASSERT_EQ(toRec(t, &rec), ZOK);
                EXPECT_EQ(rec.ucWeekDay, Zos_GetWeekDay(rec.wYear, rec.ucMonth, rec.ucDay));
                int64_t back = 1;
                ASSERT_EQ(Zos_SysTime2Time(&rec, &back), ZOK);
                EXPECT_EQ(back, t);
                const std::string text = Zos_SysTime2Str(nullptr, &rec);
                ASSERT_EQ(Zos_Str2SysTime(text.c_str(), &parsed), ZOK) << text;
                ExpectSameFields(parsed, rec);
                EXPECT_EQ(Zos_SysTime2Time(&parsed, &back), ZOK);
                EXPECT_EQ(back, t);
            }
        }
    }
}

TEST_F(TimeTest, TextShowsTheOffsetInForceAtTheInstant) {
    SetTz("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(Text(1625140800), "2021-07-01T14:00:00+02:00");
    EXPECT_EQ(Text(1609459200), "2021-01-01T01:00:00+01:00");
    // The repeated hour of the autumn change stays two distinct instants.
    EXPECT_EQ(Text(1635642000 - 1800), "2021-10-31T02:30:00+02:00");
    EXPECT_EQ(Text(1635642000 + 1800), "2021-10-31T02:30:00+01:00");
    SetTz("EST5EDT,M3.2.0,M11.1.0");
    EXPECT_EQ(Text(1625140800), "2021-07-01T08:00:00-04:00");
    SetTz("IST-5:30");
    EXPECT_EQ(Text(0), "1970-01-01T05:30:00+05:30");
    SetTz("UTC0");
    EXPECT_EQ(Text(951782400), "2000-02-29T00:00:00Z");

    if (access("/usr/share/zoneinfo/Asia/Kolkata", R_OK) == 0) {
        SetTz("Asia/Kolkata");
        EXPECT_EQ(Text(1625140800), "2021-07-01T17:30:00+05:30");
    }
}

TEST_F(TimeTest, RecordToSecondsHonoursTheRecordZoneAndItsLimits) {
    SetTz("CET-1CEST,M3.5.0,M10.5.0/3");
    ST_ZOS_SYS_TIME rec{};
    int64_t t = 7;
    ASSERT_EQ(Zos_Str2SysTime("2016-01-01T00:00:00+01:00", &rec), ZOK);
    EXPECT_EQ(rec.iTzOffset, -3600);
    EXPECT_EQ(Zos_SysTime2Time(&rec, &t), ZOK);
    EXPECT_EQ(t, 1451602800);
    // A wall-clock time that local time skips is still exact in its zone.
    ASSERT_EQ(Zos_Str2SysTime("2021-03-28T02:30:00+01:00", &rec), ZOK);
    EXPECT_EQ(Zos_SysTime2Time(&rec, &t), ZOK);
    EXPECT_EQ(t, 1616893200 + 1800);

    rec.wYear = 1899;
    EXPECT_EQ(Zos_SysTime2Time(&rec, &t), ZFAILED);
    EXPECT_EQ(t, 0);
    EXPECT_TRUE(ktest::LoggedContains("SysTime2Time less than 1900."));
    EXPECT_EQ(Zos_SysTime2Time(nullptr, &t), ZFAILED);
    EXPECT_EQ(Zos_SysTime2Time(&rec, nullptr), ZFAILED);

    // 2100 is out of reach of a 32-bit platform clock.
    ASSERT_EQ(Zos_Str2SysTime("2100-01-01T00:00:00Z", &rec), ZOK);
    EXPECT_EQ(rec.ucWeekDay, 5u);
    ktest::ClearLogged();
    const uint32_t r = Zos_SysTime2Time(&rec, &t);
    EXPECT_EQ(r, sizeof(time_t) == 8 ? ZOK : ZFAILED);
    EXPECT_EQ(t, sizeof(time_t) == 8 ? 4102444800 : 0);
    EXPECT_EQ(ktest::LoggedContains("SysTime2Time mktime."), sizeof(time_t) != 8);

    ZOS_OSDEP_FUNC saved = ktest::Slot(11);
    ktest::Slot(11) = nullptr;
    EXPECT_EQ(Zos_SysTime2Time(&rec, &t), ZFAILED);
    ktest::Slot(11) = saved;
}

TEST_F(TimeTest, ParserRejectsBadTextAndKeepsTheRecord) {
    ST_ZOS_SYS_TIME rec{}, before{};
    rec.wYear = 1234;
    before = rec;
    for (const char *bad :
         {"", "2016-01-01", "2016-01-01T00:00", "2016-01-01T00:00:00", "2016-01-01T00:00:00+01",
          "2016-01-01T00:00:00+01:0", "2016-01-01T00:00:00.Z", "2016/01/01T00:00:00Z",
          "2016-01-01 00:00:00Z", "2016-01-01T00:00:00Zx", "2016-01-01T00:00:00+01:00 ",
          "2016-02-30T00:00:00Z", "2015-02-29T00:00:00Z", "2016-13-01T00:00:00Z",
          "2016-01-01T24:00:00Z", "2016-01-01T00:60:00Z", "2016-01-01T00:00:00+24:00"}) {
        EXPECT_EQ(Zos_Str2SysTime(bad, &rec), ZFAILED) << bad;
        ExpectSameFields(rec, before);
    }
    // Each refusal names its reason in the system log.
    EXPECT_TRUE(ktest::LoggedContains("Str2SysTime incompleted format."));
    EXPECT_TRUE(ktest::LoggedContains("Str2SysTime tail exist."));
    EXPECT_TRUE(ktest::LoggedContains("Str2SysTime invalid field."));
    EXPECT_FALSE(ktest::LoggedContains("Str2SysTime null parameter."));
    EXPECT_EQ(Zos_Str2SysTime(nullptr, &rec), ZFAILED);
    EXPECT_EQ(Zos_Str2SysTime("2016-01-01T00:00:00Z", nullptr), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("Str2SysTime null parameter."));

    ASSERT_EQ(Zos_Str2SysTime("2016-02-29T23:59:59.5-00:30", &rec), ZOK);
    EXPECT_EQ(rec.uiMillisecond, 500u);
    EXPECT_EQ(rec.iTzOffset, 1800);
    EXPECT_EQ(rec.ucWeekDay, 1u);
}

TEST_F(TimeTest, FormatterFieldsLimitsAndSharedBuffer) {
    ST_ZOS_SYS_TIME rec{2016, 2, 9, 2, 7, 5, 3, 0, -3601};
    const char *first = Zos_SysTime2Str("DD/MM/YYYY hh.mm.ss [TZD] Mmh", &rec);
    ASSERT_NE(first, nullptr);
    EXPECT_STREQ(first, "09/02/2016 07.05.03 [+01:00:01] Mmh");
    ST_ZOS_SYS_TIME parsed{};
    ASSERT_EQ(Zos_Str2SysTime(Zos_SysTime2Str("", &rec), &parsed), ZOK);
    ExpectSameFields(parsed, rec);

    // One buffer: the next call overwrites the previous text.
    rec.iTzOffset = 0;
    EXPECT_EQ(Zos_SysTime2Str(nullptr, &rec), first);
    EXPECT_STREQ(first, "2016-02-09T07:05:03Z");

    // Extreme offsets and a format full of zone fields stay in bounds.
    rec.iTzOffset = INT32_MIN;
    std::string zones, expected;
    for (int i = 0; i < 42; ++i) {
        zones += "TZD";
        expected += "+596523:14:08";
    }
    const char *wide = Zos_SysTime2Str((zones + "!").c_str(), &rec);
    ASSERT_NE(wide, nullptr);
    EXPECT_EQ(std::string(wide), expected + "!");
    EXPECT_EQ(Zos_Str2SysTime(Zos_SysTime2Str(nullptr, &rec), &parsed), ZFAILED);

    EXPECT_NE(Zos_SysTime2Str(std::string(127, 'x').c_str(), &rec), nullptr);
    EXPECT_FALSE(ktest::LoggedContains("SysTime2Str too large format."));
    EXPECT_EQ(Zos_SysTime2Str(std::string(128, 'x').c_str(), &rec), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("SysTime2Str too large format."));
    const char *now = Zos_SysTime2Str(nullptr, nullptr);
    ASSERT_NE(now, nullptr);
    EXPECT_TRUE(
        std::regex_match(now, std::regex(R"(20\d\d-\d\d-\d\dT\d\d:\d\d:\d\d(Z|[+-]\d\d:\d\d))")))
        << now;
}

TEST_F(TimeTest, ClocksAndMissingSlots) {
    ST_ZOS_EPOCH_TIME e{};
    int64_t t = 0, run = -1;
    ASSERT_EQ(Zos_GetEpochTime(&e), ZOK);
    ASSERT_EQ(Zos_Time(&t), ZOK);
    EXPECT_LE(t - e.llSec, 1);
    EXPECT_LT(Zos_Time_ms(), 1000u);
    EXPECT_EQ(Zos_GetEpochTime(nullptr), ZFAILED);
    EXPECT_EQ(Zos_Time(nullptr), ZFAILED);
    ASSERT_EQ(Zos_GetSysRunTime(&run), ZOK);
    EXPECT_GE(run, 0);
    EXPECT_LT(run, 60);
    EXPECT_GT(Zos_GetHrTime() / 1000000000ull, static_cast<uint64_t>(e.llSec) - 2);

    ST_ZOS_SYS_TIME local{}, utc{};
    SetTz("IST-5:30");
    ASSERT_EQ(Zos_SysTime(&local), ZOK);
    ASSERT_EQ(Zos_SysTimeU(&utc), ZOK);
    EXPECT_EQ(local.iTzOffset, -19800);
    EXPECT_EQ(utc.iTzOffset, 0);
    EXPECT_LT(local.uiMillisecond, 1000u);
    int64_t a = 0, b = 0;
    ASSERT_EQ(Zos_SysTime2Time(&local, &a), ZOK);
    ASSERT_EQ(Zos_SysTime2Time(&utc, &b), ZOK);
    EXPECT_LE(b - a, 1);
    EXPECT_GE(a, t);

    ZOS_OSDEP_FUNC epoch = ktest::Slot(6), init = ktest::Slot(4);
    ktest::Slot(6) = nullptr;
    EXPECT_EQ(Zos_Time_ms(), 0u);
    EXPECT_EQ(Zos_SysTime(&local), ZFAILED);
    EXPECT_EQ(Zos_SysTimeU(&utc), ZFAILED);
    EXPECT_EQ(Zos_SysTime2Str(nullptr, nullptr), nullptr);
    ktest::Slot(6) = epoch;
    ktest::Slot(4) = reinterpret_cast<ZOS_OSDEP_FUNC>(+[]() -> uint32_t { return ZFAILED; });
    EXPECT_EQ(Zos_TimeInit(), ZFAILED);
    ktest::Slot(4) = init;
}

TEST_F(TimeTest, BrokenDownTimeBothWays) {
    SetTz("EST5EDT,M3.2.0,M11.1.0");
    for (int64_t t : {int64_t{1625140800}, int64_t{1609459200}, int64_t{951782400}}) {
        ST_ZOS_TM tm{};
        ST_ZOS_SYS_TIME fromTm{}, direct{};
        ASSERT_EQ(Zos_LocalTime(&t, &tm), ZOK);
        ASSERT_EQ(Zos_MTime2SysTime(&tm, &fromTm), ZOK);
        ASSERT_EQ(Zos_Time2SysTime(t, &direct), ZOK);
        ExpectSameFields(fromTm, direct);
        ST_ZOS_TM back{};
        ASSERT_EQ(Zos_SysTime2MTime(&direct, &back), ZOK);
        EXPECT_EQ(back.iWday, tm.iWday);
        EXPECT_EQ(back.iYday, tm.iYday);
        EXPECT_EQ(Zos_MkTime(&back), t);
    }
    ST_ZOS_TM bad{};
    bad.iMon = 12;
    ST_ZOS_SYS_TIME rec{};
    EXPECT_EQ(Zos_MTime2SysTime(&bad, &rec), ZFAILED);
    EXPECT_EQ(Zos_MTime2SysTime(nullptr, &rec), ZFAILED);
    EXPECT_EQ(Zos_SysTime2MTime(&rec, nullptr), ZFAILED);
    EXPECT_EQ(Zos_LocalTime(nullptr, &bad), ZFAILED);
    EXPECT_EQ(Zos_MkTime(nullptr), -1);
}
