// Start-up, shut-down, the platform holder and the component table.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <regex>
#include <string>
#include <vector>

#include "zos_test.h"

namespace {

// Lines printed by the start-up and shut-down sequences, in order.
std::vector<std::string> Lines(const std::string &text) {
    std::vector<std::string> out;
    size_t pos = 0;
    while (pos < text.size()) {
        const size_t end = text.find('\n', pos);
        out.push_back(text.substr(pos, end == std::string::npos ? end : end - pos));
        if (end == std::string::npos) break;
        pos = end + 1;
    }
    return out;
}

// The message part of each progress line, after "ZOS: INFO: " (the
// subsystems' own log lines that reach the console are left out).
std::vector<std::string> Messages(const std::string &text) {
    static const std::regex progress(R"((init|start|stop|destroy|destory) ok\.$)");
    std::vector<std::string> out;
    for (const std::string &line : Lines(text)) {
        const size_t at = line.find("ZOS: INFO: ");
        if (at == std::string::npos) continue;
        std::string msg = line.substr(at + 11);
        // A subsystem that logs its own "... init ok." line echoes it just
        // before the progress line of the same text.
        if (!out.empty() && out.back() == msg) continue;
        if (std::regex_search(msg, progress)) out.push_back(std::move(msg));
    }
    return out;
}

uint32_t FailingInit() {
    return ZFAILED;
}

const std::vector<std::string> kDestroyed = {
    "timer destroy ok.",  "log task stop ok.", "module destroy ok.", "http destory ok.",
    "timer destroy ok.",  "time destroy ok.",  "pmem destroy ok.",   "dbuf destroy ok.",
    "trace destroy ok.",  "dump destroy ok.",  "log destroy ok.",    "print destroy ok.",
    "memory destroy ok.", "system destroy ok."};

// The shut-down progress lines among everything printed (the runtime's
// own information lines are echoed to the console too).
std::vector<std::string> DestroyLines(const std::vector<std::string> &messages) {
    std::vector<std::string> out;
    for (const std::string &m : messages) {
        if (std::find(kDestroyed.begin(), kDestroyed.end(), m) != kDestroyed.end()) {
            out.push_back(m);
        }
    }
    return out;
}

// True when `want` appears in `got` in order, other lines between.
bool InOrder(const std::vector<std::string> &got, const std::vector<std::string> &want) {
    size_t at = 0;
    for (const std::string &m : got) {
        if (at < want.size() && m == want[at]) ++at;
    }
    return at == want.size();
}

}  // namespace

TEST(SysFrame, StartAndStopPrintTheirProgressInOrder) {
    ktest::ClearPrinted();
    ASSERT_EQ(Zos_CfgSetPrintDisp(ktest::PrintHook), ZOK);
    ktest::UseTestLogDir();
    ASSERT_EQ(Zos_SysInit(), ZOK);
    const std::string started = ktest::Printed();
    // Default switches: time with milliseconds, no date.
    EXPECT_TRUE(std::regex_search(
        started, std::regex(R"(^\d\d:\d\d:\d\d\.\d\d\d ZOS: INFO: time init ok\.\n)")))
        << started;
    std::vector<std::string> messages = Messages(started);
    ASSERT_FALSE(messages.empty());
    // The last line comes from the system log, echoed to the console.
    EXPECT_TRUE(std::regex_match(messages.back(),
                                 std::regex(R"(kestro_lite system \d{4}-\d\d-\d\dT\S+ init ok\.)")))
        << messages.back();
    EXPECT_TRUE(
        InOrder(messages, {"time init ok.", "print init ok.", "log init ok.", "memory init ok.",
                           "dump init ok.", "trace init ok.", "dbuf init ok.", "pmem init ok.",
                           "module init ok.", "timer init ok.", "log start ok.", "http start ok."}))
        << started;

    // A second start is a no-op and prints nothing.
    ktest::ClearPrinted();
    EXPECT_EQ(Zos_SysInit(), ZOK);
    EXPECT_EQ(ktest::Printed(), "");

    Zos_SysDestroy();
    EXPECT_EQ(DestroyLines(Messages(ktest::Printed())), kDestroyed);
    EXPECT_EQ(Zos_OsenvLocate(), nullptr);

    // Shut-down without start-up does nothing at all, nor does any of its
    // steps called on its own: none makes the platform table.
    ktest::ClearPrinted();
    Zos_SysDestroy();
    for (void (*step)() : {Zos_LogTaskStop, Zos_ModDestroy, Zos_HttpDestroy, Zos_TimerDestroy,
                           Zos_TimeDestroy, Zos_PMemDestroy, Zos_DbufDestroy, Zos_TraceDestroy,
                           Zos_DumpDestroy, Zos_LogDestroy, Zos_PrintDestroy, Zos_MemDestroy}) {
        step();
    }
    EXPECT_EQ(Zos_OsenvLocate(), nullptr);
    EXPECT_EQ(ktest::Printed(), "");
}

TEST(SysFrame, FailedStepPrintsItsTextAndUndoesEverything) {
    ktest::ClearPrinted();
    ASSERT_EQ(Zos_CfgSetPrintDisp(ktest::PrintHook), ZOK);
    ktest::Slot(4) = reinterpret_cast<ZOS_OSDEP_FUNC>(FailingInit);  // clock init
    EXPECT_EQ(Zos_SysInit(), ZFAILED);
    const std::string out = ktest::Printed();
    EXPECT_NE(out.find("init time fail!\r\n"), std::string::npos) << out;
    EXPECT_EQ(out.find("time init ok."), std::string::npos);
    // The whole shut-down runs, then the holder is gone.
    EXPECT_EQ(DestroyLines(Messages(out)), kDestroyed);
    EXPECT_EQ(Zos_OsenvLocate(), nullptr);

    // A log that cannot be made (its cache would not fit any pool) stops
    // start-up at step 3, after print and before memory.
    ktest::ClearPrinted();
    ASSERT_EQ(Zos_CfgSetPrintDisp(ktest::PrintHook), ZOK);
    ASSERT_EQ(Zos_CfgSetLogBufSize(0x7FFFFFF0u), ZOK);
    EXPECT_EQ(Zos_SysInit(), ZFAILED);
    const std::string logFail = ktest::Printed();
    EXPECT_NE(logFail.find("init log fail!\r\n"), std::string::npos) << logFail;
    const std::vector<std::string> msgs = Messages(logFail);
    ASSERT_GE(msgs.size(), 2u);
    EXPECT_EQ(msgs[0], "time init ok.");
    EXPECT_EQ(msgs[1], "print init ok.");
    EXPECT_EQ(DestroyLines(std::vector<std::string>(msgs.begin() + 2, msgs.end())), kDestroyed);
    EXPECT_EQ(Zos_OsenvLocate(), nullptr);

    // The next start-up begins from a fresh table and succeeds.
    ktest::UseTestLogDir();
    EXPECT_EQ(Zos_SysInit(), ZOK);
    Zos_SysDestroy();
}

// A failing configuration init is logged and leaves the slot empty.
TEST_F(ZosTest, FailingConfigurationInitIsLogged) {
    void *cfg = reinterpret_cast<void *>(1);
    EXPECT_EQ(Zos_SysCfgAttach(
                  9, 8, [](void *) -> uint32_t { return 1; }, nullptr, &cfg),
              ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("SysCfgAttach init config."));
    ASSERT_EQ(ktest::Logged().size(), 1u);
    EXPECT_EQ(ktest::Logged()[0].level, ZOS_LOG_LEVEL_ERROR);
    EXPECT_EQ(cfg, nullptr);
    EXPECT_EQ(Zos_SysCfgLocate(9, &cfg), ZFAILED);
}

TEST(SysFrame, ProgressLineShapesFollowTheSwitches) {
    struct Case {
        uint32_t date, time, ms;
        const char *pattern;
    };
    const Case cases[] = {
        {0, 0, 1, R"(^ZOS: INFO: x\n$)"},
        {0, 1, 1, R"(^\d\d:\d\d:\d\d\.\d\d\d ZOS: INFO: x\n$)"},
        {0, 1, 0, R"(^\d\d:\d\d:\d\d ZOS: INFO: x\n$)"},
        {1, 1, 1, R"(^\d\d-\d\d-\d\d \d\d:\d\d:\d\d\.\d\d\d ZOS: INFO: x\n$)"},
        {1, 1, 0, R"(^\d\d-\d\d-\d\d \d\d:\d\d:\d\d ZOS: INFO: x\n$)"},
        {1, 0, 0, R"(^\d\d-\d\d-\d\d ZOS: INFO: x\n$)"},
    };
    ASSERT_EQ(Zos_CfgSetPrintDisp(ktest::PrintHook), ZOK);
    for (const Case &c : cases) {
        Zos_CfgSetLogDispDateSupt(c.date);
        Zos_CfgSetLogDispTimeSupt(c.time);
        Zos_CfgSetLogDispTimeInMs(c.ms);
        ktest::ClearPrinted();
        Zos_SysInitPrint("x");
        EXPECT_TRUE(std::regex_match(ktest::Printed(), std::regex(c.pattern)))
            << c.pattern << " got [" << ktest::Printed() << "]";
    }
    // Silent when printing is off or the information level is closed.
    ktest::ClearPrinted();
    Zos_CfgSetLogPrint(0);
    Zos_SysInitPrint("x");
    Zos_CfgSetLogPrint(1);
    Zos_CfgSetLogLevel(ZOS_LOG_LEVEL_ERROR);
    Zos_SysInitPrint("x");
    EXPECT_EQ(ktest::Printed(), "");
    // The year prints modulo 2000 with the date on.
    Zos_CfgSetLogLevel(0xB);
    Zos_CfgSetLogDispDateSupt(1);
    ktest::ClearPrinted();
    Zos_SysInitPrint("x");
    ST_ZOS_SYS_TIME now{};
    ASSERT_EQ(Zos_SysTime(&now), ZOK);
    char yy[16];
    std::snprintf(yy, sizeof(yy), "%02d", now.wYear % 2000);
    EXPECT_EQ(ktest::Printed().substr(0, 2), yy);
    Zos_OsenvDetach();
}

TEST(SysFrame, PlatformTableSlots) {
    EXPECT_EQ(Zos_OsdepFind(116), nullptr);
    EXPECT_EQ(Zos_OsdepFind(50), nullptr);  // byte order stays out of the table
    EXPECT_EQ(Zos_OsdepFind(94), reinterpret_cast<ZOS_OSDEP_FUNC>(Zpand_ModPostDrv));
    EXPECT_EQ(Zos_OsdepFind(102), reinterpret_cast<ZOS_OSDEP_FUNC>(Zpand_UiProcEvnt));
    EXPECT_EQ(Zos_OsdepFind(98), nullptr);  // thread-enter hook is empty
    EXPECT_EQ(Zos_OsdepFind(0), reinterpret_cast<ZOS_OSDEP_FUNC>(Zpand_Malloc));
    EXPECT_EQ(Zos_OsdepFind(46), reinterpret_cast<ZOS_OSDEP_FUNC>(Zpand_SemPost));
    EXPECT_EQ(Zos_OsdepFind(95), reinterpret_cast<ZOS_OSDEP_FUNC>(Zpand_TaskSpawn));
    EXPECT_EQ(Zos_OsdepFind(101), reinterpret_cast<ZOS_OSDEP_FUNC>(Zpand_TaskIsMainThread));
    for (uint32_t slot = 47; slot < 94; ++slot) EXPECT_EQ(Zos_OsdepFind(slot), nullptr) << slot;
    for (uint32_t slot = 107; slot < 116; ++slot) EXPECT_EQ(Zos_OsdepFind(slot), nullptr) << slot;

    // The platform fills its 72-slot record, byte order at 47-50.
    ZOS_OSDEP_FUNC record[ZPAND_OSDEP_SLOTS] = {};
    EXPECT_EQ(Zpand_OsdepAttach(nullptr), ZFAILED);
    ASSERT_EQ(Zpand_OsdepAttach(record), ZOK);
    EXPECT_EQ(record[47], reinterpret_cast<ZOS_OSDEP_FUNC>(Zpand_InetNtohl));
    EXPECT_EQ(record[60], reinterpret_cast<ZOS_OSDEP_FUNC>(Zpand_TaskSpawn));
    Zos_OsenvDetach();
}

TEST(SysFrame, ComponentTableRules) {
    void *rec = reinterpret_cast<void *>(1);
    EXPECT_EQ(Zos_SysEnvAttach(252, 16, &rec), ZFAILED);
    EXPECT_EQ(rec, nullptr);
    // A failed look-up clears what the caller passed; a missing place for
    // the answer is no fault.
    rec = reinterpret_cast<void *>(1);
    EXPECT_EQ(Zos_SysEnvLocateNew(9, &rec), ZFAILED);  // empty slot
    EXPECT_EQ(rec, nullptr);
    EXPECT_EQ(Zos_SysEnvLocateNew(9, nullptr) | Zos_SysEnvLocate(9, nullptr), ZFAILED);

    ASSERT_EQ(Zos_SysEnvAttach(9, 16, &rec), ZOK);
    ASSERT_NE(rec, nullptr);
    EXPECT_EQ(static_cast<uint8_t *>(rec)[15], 0);  // zeroed
    void *second = nullptr;
    EXPECT_EQ(Zos_SysEnvAttach(9, 16, &second), ZFAILED);  // occupied: kept
    void *found = nullptr;
    EXPECT_EQ(Zos_SysEnvLocate(9, &found), ZOK);
    EXPECT_EQ(found, rec);
    EXPECT_EQ(Zos_SysEnvDetach(9), ZOK);
    EXPECT_EQ(Zos_SysEnvLocate(9, &found), ZFAILED);
    EXPECT_EQ(found, nullptr);

    // A release function runs on detach.
    void *cfg = nullptr;
    static int released = 0;
    released = 0;
    ASSERT_EQ(Zos_SysCfgAttach(
                  9, 8, [](void *p) -> uint32_t { return *static_cast<uint8_t *>(p); },
                  [](void *) { ++released; }, &cfg),
              ZOK);
    EXPECT_EQ(Zos_SysCfgDetach(9), ZOK);
    EXPECT_EQ(released, 1);
    EXPECT_EQ(Zos_SysCfgDetach(252), ZFAILED);
    Zos_OsenvDetach();
    EXPECT_EQ(Zos_EnvLocateLogMgr(), nullptr);
    EXPECT_EQ(Zos_EnvLocateModMgr(), nullptr);
}

TEST(SysFrame, BuildTime) {
    ST_ZOS_SYS_TIME t{};
    t.wYear = 2016;
    t.ucMonth = 1;
    t.ucDay = 5;
    t.ucHour = 10;
    t.ucMinute = 20;
    t.ucSecond = 30;
    t.iTzOffset = Zos_TzOffset();
    int64_t expect = 0;
    ASSERT_EQ(Zos_SysTime2Time(&t, &expect), ZOK);
    EXPECT_EQ(Zos_BuildTime("Jan  5 2016", "10:20:30"), expect);
    EXPECT_EQ(Zos_BuildTime("Jan 05 2016", "10:20:30"), expect);
    EXPECT_EQ(Zos_BuildTime("Dec 31 2030", "23:59:59") - Zos_BuildTime("Dec 31 2030", "23:59:58"),
              1);

    // A year before 1970, bad fields, a lower-case month, short texts.
    for (const char *date :
         {"Feb 30 1969", "jan  5 2016", "Txx  5 2016", "Jan 32 2016", "Jan  0 2016", "Jan  5 20",
          "Ja", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(Zos_BuildTime(date, "10:20:30"), 0) << (date != nullptr ? date : "null");
    }
    for (const char *time : {"24:00:00", "10:60:00", "10:20", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(Zos_BuildTime("Jan  5 2016", time), 0) << (time != nullptr ? time : "null");
    }
    EXPECT_GT(Zos_BuildTime(__DATE__, __TIME__), 1700000000);
    Zos_OsenvDetach();
}

TEST(SysFrame, VersionAndCharacterClasses) {
    EXPECT_STREQ(Kestro_GetVersion(), "9bf537e(160718)");
    const uint8_t *ct = Zos_GetZosCType();
    ASSERT_EQ(ct, g_aucZosCtype);
    EXPECT_EQ(ct[0], 0);  // end of input
    for (int c = 0; c < 256; ++c) {
        const uint8_t v = ct[c + 1];
        EXPECT_EQ((v & 0x04) != 0, c >= '0' && c <= '9') << c;
        EXPECT_EQ((v & 0x01) != 0, c >= 'A' && c <= 'Z') << c;
        EXPECT_EQ((v & 0x02) != 0, c >= 'a' && c <= 'z') << c;
        EXPECT_EQ((v & 0x80) != 0, std::isxdigit(c) != 0) << c;
        EXPECT_EQ((v & 0x57) != 0, c >= 0x20 && c < 0x7F) << c;  // printable
    }
}
