// Dump and trace registries: depth limits, clearing, printouts, invalid
// handles, trace lines, events and tracked blocks.
#include <string>
#include <vector>

#include "zos_test.h"

namespace {

// Dump times and addresses vary from run to run.
std::string MaskDump(const std::string &text) {
    return ktest::Mask(ktest::Mask(text, R"(time:[^\r]*)", "time:<TIME>"), R"(Dump [0-9a-f]+  )",
                       "Dump <ADDR>  ");
}

std::vector<uintptr_t> g_events;
void EventHook(uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d) {
    g_events.insert(g_events.end(), {a, b, c, d});
}

}  // namespace

TEST_F(ZosTest, DumpDepthLimitAndClear) {
    ZDUMP d = Zos_DumpCreate("two", 2);
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(Zos_DumpCreate("none", 0), nullptr);
    EXPECT_EQ(Zos_DumpStack(d, "f.c", 1, "a", 1) + Zos_DumpStack(d, nullptr, 2, nullptr, 2), ZOK);
    EXPECT_TRUE(ktest::Logged().empty());
    // The third push fails with both lines and changes nothing.
    EXPECT_EQ(Zos_DumpStack(d, "f.c", 3, "c", 3), ZFAILED);
    const std::vector<ktest::LogLine> lines = ktest::Logged();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].msg, "DumpStack deap <2> beyond specify <2>.");
    EXPECT_EQ(lines[1].msg, "DumpStack stack full, pstDump->wStackNum=2 pstDump->wDeepSize=2");
    EXPECT_EQ(lines[1].level, ZOS_LOG_LEVEL_ERROR);
    ktest::ClearPrinted();
    EXPECT_EQ(Zos_DumpPrint(d), ZOK);
    std::string out = ktest::Printed();
    EXPECT_NE(out.find("\"two\" 2/2 (Stack Count"), std::string::npos);
    EXPECT_TRUE(out.find("    <1>") != std::string::npos && out.find("    <2>") == out.npos);

    // After a clear the next push is index 0 again.
    EXPECT_EQ(Zos_DumpClear(d), ZOK);
    EXPECT_EQ(Zos_DumpStack(d, nullptr, 0, "again", 5), ZOK);
    ktest::ClearPrinted();
    EXPECT_EQ(Zos_DumpPrint(d), ZOK);
    out = ktest::Printed();
    EXPECT_TRUE(out.find("1/2") != out.npos && out.find("<1>") == out.npos);
    EXPECT_NE(out.find("    <0>      5  \"again\"  time:"), std::string::npos) << out;
    EXPECT_EQ(Zos_DumpDelete(d), ZOK);

    // Null and foreign handles, and a data-buffer target.
    ktest::ClearLogged();
    uint32_t foreign[8] = {0x12345678u};
    ZDUMP e = Zos_DumpCreate("e", 1);
    for (uint32_t rc : {Zos_DumpStack(nullptr, nullptr, 0, nullptr, 0),
                        Zos_DumpStack(foreign, nullptr, 0, nullptr, 0), Zos_DumpClear(foreign),
                        Zos_DumpDelete(foreign), Zos_DumpPrint(nullptr)}) {
        EXPECT_EQ(rc, ZFAILED);
    }
    for (const char *text :
         {"DumpStack invalid id.", "DumpClear invalid id.", "DumpDelete invalid id."}) {
        EXPECT_TRUE(ktest::LoggedContains(text)) << text;
    }
    ZDBUF dbuf = Zos_DbufCreate(nullptr, 1, 128);
    EXPECT_EQ(Zos_DumpPrintBuf(e, dbuf), ZOK);
    char text[64] = {};
    EXPECT_EQ(Zos_DbufCopyD(dbuf, 0, Zos_DbufLen(dbuf), text), ZOK);
    EXPECT_STREQ(text, "Dump <e> stack is empty.\r\n");
    EXPECT_EQ(Zos_DbufDelete(dbuf), ZOK);
    // A dump left registered is freed by shut-down (the leak checker
    // watches this one).
    EXPECT_EQ(Zos_DumpStack(e, nullptr, 0, "left", 0), ZOK);
}

TEST_F(ZosTest, DumpPrintoutsMatchTheirGoldenText) {
    ZDUMP empty = Zos_DumpCreate("empty", 4);
    ZDUMP calls = Zos_DumpCreate("calls", 3);
    ASSERT_NE(calls, nullptr);
    Zos_DumpStack(calls, "proto.c", 42, "enter", 17);
    Zos_DumpStack(calls, nullptr, 0, nullptr, 0xFFFFFFFFu);
    EXPECT_EQ(Zos_DumpPrint(empty), ZOK);
    EXPECT_EQ(Zos_DumpPrint(calls), ZOK);
    EXPECT_EQ(Zos_DumpDbgShow(), ZOK);  // only the non-empty dump
    EXPECT_EQ(MaskDump(ktest::Printed()), ktest::Golden("dump_print.txt")) << ktest::Printed();
    // The address printed is the dump's own.
    char addr[32];
    Zos_SNPrintf(addr, sizeof(addr), "Dump %x  ",
                 static_cast<uint32_t>(reinterpret_cast<uintptr_t>(calls)));
    EXPECT_NE(ktest::Printed().find(addr), std::string::npos);

    // Without the registry nothing can be made or pushed.
    Zos_DumpDelete(empty);
    Zos_DumpDestroy();
    EXPECT_EQ(Zos_DumpCreate("late", 1), nullptr);
    EXPECT_EQ(Zos_DumpDbgShow(), ZFAILED);
    EXPECT_EQ(Zos_DumpInit(), ZOK);
}

TEST_F(ZosTest, TraceLinesEventsAndTrackedBlocks) {
    EXPECT_EQ(Zos_TraceLog("about", "file.c", 12) + Zos_TraceLog("about", nullptr, 12) +
                  Zos_TraceLog(nullptr, "file.c", 7),
              ZOK);
    const std::vector<ktest::LogLine> lines = ktest::Logged();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].msg + "|" + lines[1].msg + "|" + lines[2].msg,
              "trace(about) at<file.c:12>.|trace(about).|trace at<file.c:7>.");
    EXPECT_EQ(lines[0].level, ZOS_LOG_LEVEL_ERROR);

    // No hook configured: nothing happens. The hook is taken at init.
    EXPECT_EQ(Zos_TraceEvnt(1, 2, 3), ZOK);
    Zos_TraceDestroy();
    EXPECT_EQ(Zos_TraceEvnt(1, 2, 3) & Zos_TraceMemRmv(nullptr) &
                  Zos_TraceMemAdd(nullptr, "x", "y", 1) & Zos_TraceDbgShow(),
              ZFAILED);
    Zos_CfgSetTraceEvnt(EventHook);
    ASSERT_EQ(Zos_TraceInit(), ZOK);
    g_events.clear();
    EXPECT_EQ(Zos_TraceEvnt(1, 2, 3) + Zos_TraceEvntX(4, 5, 6, 7), ZOK);
    EXPECT_EQ(g_events, (std::vector<uintptr_t>{1, 2, 3, 0, 4, 5, 6, 7}));

    // Tracked blocks: texts are cut, the first record of a block is
    // removed and unlinked, an unknown block changes nothing.
    int a = 0, b = 0, c = 0;
    EXPECT_EQ(Zos_TraceMemAdd(&a, "first block text", "a.c", 1) +
                  Zos_TraceMemAdd(&b, "second", "b.c", 2) +
                  Zos_TraceMemAdd(&c, "third", nullptr, 3),
              ZOK);
    EXPECT_EQ(Zos_TraceMemRmv(&b) + Zos_TraceMemRmv(&b) + Zos_TraceMemRmv(nullptr), ZOK);
    ktest::ClearPrinted();
    EXPECT_EQ(Zos_TraceDbgShow(), ZOK);
    const std::string shown = ktest::Printed();
    EXPECT_EQ(ktest::Mask(shown, R"(0x0x[0-9a-f]+)", "0x<ADDR>"), ktest::Golden("trace_show.txt"))
        << shown;
    char addr[40];
    Zos_SNPrintf(addr, sizeof(addr), "mem<0x%p>", static_cast<void *>(&a));
    EXPECT_NE(shown.find(addr), std::string::npos);
    // Removing the remaining records walks past the removed one.
    EXPECT_EQ(Zos_TraceMemRmv(&c) + Zos_TraceMemRmv(&a), ZOK);
    ktest::ClearPrinted();
    EXPECT_EQ(Zos_TraceDbgShow(), ZOK);
    EXPECT_EQ(ktest::Printed(), "");
    // Clearing drops every record; one added after it is freed by shut-down.
    EXPECT_EQ(Zos_TraceMemAdd(&a, "cleared", "a.c", 1), ZOK);
    EXPECT_EQ(Zos_TraceMemClr(), ZOK);
    ktest::ClearPrinted();
    EXPECT_EQ(Zos_TraceDbgShow(), ZOK);
    EXPECT_EQ(ktest::Printed(), "");
    EXPECT_EQ(Zos_TraceMemAdd(&b, "kept", "b.c", 2), ZOK);
}
