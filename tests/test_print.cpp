// Print service: lines, limits, the open switch, pool strings, a print
// without a line buffer, the output accumulator, long texts, the hex dump
// and the pool statistics.
#include <algorithm>
#include <cstring>
#include <regex>
#include <string>
#include <vector>

#include "zos_test.h"

namespace {

std::vector<std::string> g_pieces;
std::string g_platform;

void PieceHook(const char *text) {
    g_pieces.emplace_back(text);
}

uint32_t PlatformCapture(const char *text) {
    g_platform += text;
    return ZOK;
}

void *FailingMalloc(uint32_t) {
    return nullptr;
}

}  // namespace

TEST_F(ZosTest, PrintLinesLimitsAndSwitch) {
    // An empty result prints nothing and fails; a 5000-character line is
    // delivered as its first 4095 characters.
    EXPECT_EQ(Zos_PrintIsOpen(), 1u);
    EXPECT_EQ(Zos_Printf("%s", ""), ZFAILED);
    EXPECT_EQ(ktest::Printed(), "");
    const std::string longLine(5000, 'q');
    EXPECT_EQ(Zos_Printf("%s", longLine.c_str()), ZOK);
    EXPECT_EQ(ktest::Printed(), longLine.substr(0, 4095));

    // Closed: nothing printed, success.
    ktest::ClearPrinted();
    Zos_PrintClose();
    EXPECT_EQ(Zos_PrintIsOpen(), 0u);
    EXPECT_EQ(Zos_Printf("hidden"), ZOK);
    Zos_PrintOpen();
    EXPECT_EQ(Zos_Printf("shown %d", 1), ZOK);
    EXPECT_EQ(ktest::Printed(), "shown 1");

    // Without a hook the platform print gets the line.
    ZOS_OSDEP_FUNC saved = ktest::Slot(3);
    ktest::Slot(3) = reinterpret_cast<ZOS_OSDEP_FUNC>(PlatformCapture);
    g_platform.clear();
    Zos_CfgSetPrintDisp(nullptr);
    EXPECT_EQ(Zos_Printf("to %s", "os"), ZOK);
    EXPECT_EQ(Zos_PrintStrByOs("direct"), ZOK);
    ktest::Slot(3) = saved;
    Zos_CfgSetPrintDisp(ktest::PrintHook);
    EXPECT_EQ(g_platform, "to osdirect");
}

TEST(Print, BeforeStartUpLinesGoThroughTheHeapPath) {
    ktest::ClearPrinted();
    ASSERT_EQ(Zos_CfgSetPrintDisp(ktest::PrintHook), ZOK);
    EXPECT_EQ(Zos_PrintAlloc(16), nullptr);  // no pool yet
    EXPECT_EQ(Zos_Printf("early %d", 1), ZOK);
    EXPECT_EQ(ktest::Printed(), "early 1");
    EXPECT_EQ(Zos_PrintDbgShow(), ZFAILED);
    Zos_OsenvDetach();
}

TEST_F(ZosTest, PrintPoolStrings) {
    EXPECT_TRUE(Zos_PrintAlloc(0) == nullptr && Zos_PrintAlloc(0x7FFFFFFF) == nullptr &&
                Zos_PrintAllocClrd(0) == nullptr);
    auto *z = static_cast<unsigned char *>(Zos_PrintAllocClrd(100));
    ASSERT_NE(z, nullptr);
    EXPECT_EQ(std::count(z, z + 100, 0), 100);
    Zos_PrintFree(z);
    EXPECT_TRUE(Zos_PrintStrAlloc(nullptr) == nullptr && Zos_PrintStrAlloc("") == nullptr);
    EXPECT_EQ(Zos_PrintStrFAlloc("%s", ""), nullptr);
    char *s = Zos_PrintStrAlloc("copy");
    char *f = Zos_PrintStrFAlloc("%d-%s-%x", -5, "mid", 255u);
    EXPECT_STREQ(s, "copy");
    EXPECT_STREQ(f, "-5-mid-ff");
    Zos_PrintFree(s);
    Zos_PrintFree(f);
    EXPECT_EQ(Zos_PrintSize("%d-%s", 1234, "ab"), 7u);
    EXPECT_EQ(Zos_PrintSize(nullptr), 0u);
    EXPECT_EQ(ktest::Printed(), "");

    // A text beyond the largest bucket needs the heap; when that fails the
    // fixed text goes to the platform print.
    const std::string big(9000, 'b');
    ZOS_OSDEP_FUNC savedPrint = ktest::Slot(3);
    ZOS_OSDEP_FUNC savedMalloc = ktest::Slot(0);
    g_platform.clear();
    ktest::Slot(3) = reinterpret_cast<ZOS_OSDEP_FUNC>(PlatformCapture);
    ktest::Slot(0) = reinterpret_cast<ZOS_OSDEP_FUNC>(FailingMalloc);
    EXPECT_EQ(Zos_PrintStrFAlloc("%s", big.c_str()), nullptr);
    ktest::Slot(0) = savedMalloc;
    ktest::Slot(3) = savedPrint;
    EXPECT_EQ(g_platform, "PrintStrFAlloc alloc mem.\r\n");
    char *fits = Zos_PrintStrFAlloc("%s", big.c_str());
    EXPECT_EQ(std::string(fits), big);
    Zos_PrintFree(fits);
}

// With every line buffer of the print pool held and the heap refusing to
// grow it, a line cannot be formatted: the print fails and the platform
// print says why. Nothing else prints meanwhile without the layer's threads.
TEST_F(ZosQuietTest, PrintWithoutALineBufferSaysSo) {
    ZOS_OSDEP_FUNC savedPrint = ktest::Slot(3);
    g_platform.clear();
    ktest::Slot(3) = reinterpret_cast<ZOS_OSDEP_FUNC>(PlatformCapture);
    std::vector<void *> held;
    {
        const ktest::RefusingHeap heap;
        for (void *p; held.size() < 256 && (p = Zos_PrintAlloc(4096)) != nullptr;)
            held.push_back(p);
        EXPECT_EQ(Zos_Printf("%s", "lost"), ZFAILED);
    }
    ktest::Slot(3) = savedPrint;
    EXPECT_LT(held.size(), 256u);
    for (void *p : held) Zos_PrintFree(p);
    EXPECT_EQ(g_platform, "zos print alloc buffer failed.\r\n");
    ktest::ClearPrinted();
    EXPECT_EQ(Zos_Printf("%s", "back"), ZOK);
    EXPECT_EQ(ktest::Printed(), "back");
}

TEST_F(ZosTest, AccumulatorFlushesBeforeItOverflows) {
    char buf[ZOS_PRINT_OUT_SIZE];
    char *out = nullptr;
    uint32_t len = 99;
    EXPECT_EQ(Zos_PrintOutStart(nullptr, &out, &len), ZFAILED);
    EXPECT_EQ(Zos_PrintOutStart(buf, nullptr, &len), ZFAILED);
    ASSERT_EQ(Zos_PrintOutStart(buf, &out, &len), ZOK);
    EXPECT_EQ(out, buf);
    EXPECT_EQ(len, 0u);

    // 300 then 300: the first 300 are printed before the second is stored.
    const std::string a(300, 'a'), b(300, 'b');
    EXPECT_EQ(Zos_PrintOutPutStr(nullptr, buf, &len, a.c_str()), ZOK);
    EXPECT_EQ(ktest::Printed(), "");
    EXPECT_EQ(Zos_PrintOutPutNStr(nullptr, buf, &len, b.c_str(), 300), ZOK);
    EXPECT_EQ(ktest::Printed(), a);
    EXPECT_EQ(len, 300u);
    EXPECT_EQ(std::string(buf), b);

    // A formatted piece is cut to 127 characters; a huge piece to 511.
    ktest::ClearPrinted();
    ASSERT_EQ(Zos_PrintOutStart(buf, &out, &len), ZOK);
    EXPECT_EQ(Zos_PrintOutPutFmt(nullptr, buf, &len, "%s", std::string(200, 'f').c_str()), ZOK);
    EXPECT_EQ(len, 127u);
    const std::string huge(700, 'h');
    EXPECT_EQ(Zos_PrintOutPutNStr(nullptr, buf, &len, huge.c_str(), 700), ZOK);
    EXPECT_EQ(ktest::Printed(), std::string(127, 'f'));
    EXPECT_EQ(len, 511u);
    ST_ZOS_SSTR sstr{const_cast<char *>("xyz"), 2};
    ktest::ClearPrinted();
    EXPECT_EQ(Zos_PrintOutPutSStr(nullptr, buf, &len, &sstr), ZOK);
    EXPECT_EQ(Zos_PrintOutPutChr(nullptr, buf, &len, '!'), ZOK);
    EXPECT_EQ(ktest::Printed(), std::string(511, 'h'));
    EXPECT_EQ(Zos_PrintOutEnd(nullptr, buf, &len), ZOK);
    EXPECT_EQ(ktest::Printed(), std::string(511, 'h') + "xy!");
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(Zos_PrintOutEnd(nullptr, buf, &len), ZFAILED);  // nothing to print
    // The end prints what the length holds, whatever follows it in the
    // buffer, and no more than the accumulator's size.
    std::memcpy(buf, "abcdef", 7);
    len = 3;
    ktest::ClearPrinted();
    EXPECT_EQ(Zos_PrintOutEnd(nullptr, buf, &len), ZOK);
    EXPECT_EQ(ktest::Printed(), "abc");
    std::memset(buf, 'w', sizeof(buf));
    len = 600;
    ktest::ClearPrinted();
    EXPECT_EQ(Zos_PrintOutEnd(nullptr, buf, &len), ZOK);
    EXPECT_EQ(ktest::Printed(), std::string(511, 'w'));

    // Empty pieces and missing arguments fail.
    EXPECT_EQ(Zos_PrintOutPutStr(nullptr, buf, &len, "kept"), ZOK);
    for (uint32_t rc :
         {Zos_PrintOutPutStr(nullptr, buf, &len, ""),
          Zos_PrintOutPutNStr(nullptr, buf, &len, "x", 0),
          Zos_PrintOutPutSStr(nullptr, buf, &len, nullptr),
          Zos_PrintOutPutChr(nullptr, nullptr, &len, 'x'),
          Zos_PrintOutPutStr(nullptr, buf, nullptr, "x"), Zos_PrintOutEnd(nullptr, nullptr, &len),
          Zos_PrintOutEnd(nullptr, buf, nullptr)}) {
        EXPECT_EQ(rc, ZFAILED);
    }
    EXPECT_EQ(len, 4u);
    EXPECT_STREQ(buf, "kept");

    // A data-buffer target receives every flush instead of the console.
    ZDBUF dbuf = Zos_DbufCreate(nullptr, 1, 128);
    ktest::ClearPrinted();
    EXPECT_EQ(Zos_PrintOutPutStr(dbuf, buf, &len, "more"), ZOK);
    EXPECT_EQ(Zos_PrintOutPutFmt(dbuf, buf, &len, "%0510d", 1), ZOK);  // cut to 127
    EXPECT_EQ(Zos_DbufLen(dbuf), 0u);
    EXPECT_EQ(Zos_PrintOutPutStr(dbuf, buf, &len, std::string(400, 'z').c_str()), ZOK);
    EXPECT_EQ(Zos_DbufLen(dbuf), 8u + 127u);  // flushed before the piece that overflows
    EXPECT_EQ(Zos_PrintOutEnd(dbuf, buf, &len), ZOK);
    EXPECT_EQ(len, 0u);
    EXPECT_STREQ(buf, "");  // the accumulator is left empty for the next round
    EXPECT_EQ(Zos_DbufLen(dbuf), 8u + 127u + 400u);
    char text[16] = {};
    EXPECT_EQ(Zos_DbufCopyD(dbuf, 0, 9, text), ZOK);
    EXPECT_STREQ(text, "keptmore0");
    EXPECT_EQ(ktest::Printed(), "");
    EXPECT_EQ(Zos_DbufDelete(dbuf), ZOK);

    // A length of -1 (a failed end - start) is a huge piece too: what is
    // held goes out first, then 511 characters are stored.
    ASSERT_EQ(Zos_PrintOutStart(buf, &out, &len), ZOK);
    EXPECT_EQ(Zos_PrintOutPutStr(nullptr, buf, &len, "held"), ZOK);
    ktest::ClearPrinted();
    const std::string big(600, 'q');
    EXPECT_EQ(Zos_PrintOutPutNStr(nullptr, buf, &len, big.c_str(), 0xFFFFFFFFu), ZOK);
    EXPECT_EQ(ktest::Printed(), "held");
    EXPECT_EQ(len, 511u);
    EXPECT_EQ(std::string(buf), std::string(511, 'q'));
}

// A width near 2^32 wraps the 32-bit measure of a formatted text; the
// allocating writers then cut the text to what they measured instead of
// writing gigabytes past it.
TEST_F(ZosTest, FormattedAllocationsStayInsideWhatTheyMeasured) {
    const char *wraps = "%4294967290d0123456789";  // 2^32 + 4 characters
    char *s = Zos_SysStrFAlloc(wraps, 7);
    ASSERT_NE(s, nullptr);
    EXPECT_LE(std::strlen(s), 4u);
    Zos_SysStrFree(s);
    ZDBUF dbuf = Zos_DbufCreate(nullptr, 1, 128);
    ASSERT_NE(dbuf, nullptr);
    EXPECT_EQ(Zos_DbufPstAddFmtD(dbuf, wraps, 7), ZOK);
    EXPECT_LE(Zos_DbufLen(dbuf), 4u);
    EXPECT_EQ(Zos_DbufDelete(dbuf), ZOK);
    ZCBUF arena = Zos_CbufCreate(0);
    char *out = nullptr;
    EXPECT_EQ(Zos_UbufCpyFStr(arena, &out, wraps, 7), ZOK);
    ASSERT_NE(out, nullptr);
    EXPECT_LE(std::strlen(out), 4u);

    // A text measured at 2^31 - 1 characters or more is refused before a
    // size is formed from it.
    const char *huge = "%2147483647d";
    ktest::ClearLogged();
    EXPECT_EQ(Zos_SysStrFAlloc(huge, 1), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("SysStrFAlloc alloc mem."));
    EXPECT_EQ(Zos_DbufPstAddFmtD(dbuf = Zos_DbufCreate(nullptr, 1, 128), huge, 1), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DbufPstAddFmtD alloc mem."));
    EXPECT_EQ(Zos_DbufLen(dbuf), 0u);
    EXPECT_EQ(Zos_DbufDelete(dbuf), ZOK);
    EXPECT_EQ(Zos_UbufCpyFStr(arena, &out, huge, 1), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("UbufCpyFStr alloc memory."));
    EXPECT_EQ(out, nullptr);
    Zos_CbufDelete(arena);
}

TEST_F(ZosTest, LongTextsGoOutIn511CharacterPieces) {
    Zos_CfgSetPrintDisp(PieceHook);
    g_pieces.clear();
    std::string text;
    for (int i = 0; i < 1100; ++i) text += static_cast<char>('a' + i % 26);
    EXPECT_EQ(Zos_PrintNStr(text.data(), 1100), ZOK);
    EXPECT_EQ(Zos_PrintNStr(nullptr, 5), ZFAILED);
    EXPECT_EQ(Zos_PrintNStr("x", 0), ZFAILED);
    Zos_CfgSetPrintDisp(ktest::PrintHook);
    ASSERT_EQ(g_pieces.size(), 3u);
    EXPECT_EQ(g_pieces[0], text.substr(0, 511));
    EXPECT_EQ(g_pieces[1], text.substr(511, 511));
    EXPECT_EQ(g_pieces[2], text.substr(1022));
}

TEST_F(ZosTest, HexDumpAndPoolStatisticsMatchTheirGoldenText) {
    const unsigned char three[] = {0x41, 0x25, 0x00};
    const char eighteen[] = "Hello, world!\n%\x7f\x80Z";
    EXPECT_EQ(Zos_PrintBuf(three, 3), ZOK);
    EXPECT_EQ(Zos_PrintBuf(eighteen, 18), ZOK);
    EXPECT_EQ(Zos_PrintBuf(nullptr, 3), ZFAILED);
    EXPECT_EQ(ktest::Printed(), ktest::Golden("print_buf.txt"));

    // A long dump is flushed in pieces but arrives complete: 100 bytes
    // give 6 full rows and a row of 4.
    ktest::ClearPrinted();
    std::vector<unsigned char> hundred(100);
    for (size_t i = 0; i < hundred.size(); ++i) hundred[i] = static_cast<unsigned char>(i * 7);
    EXPECT_EQ(Zos_PrintBuf(hundred.data(), 100), ZOK);
    const std::string dump = ktest::Printed();
    EXPECT_EQ(dump.rfind("\r\ndata length: 100\r\ndata content:\r\n     00 07 0e ", 0), 0u);
    EXPECT_NE(dump.find(" a0 a7 ae b5 " + std::string(12 * 3, ' ')), std::string::npos);
    EXPECT_EQ(std::count(dump.begin(), dump.end(), '\n'), 3 + 6 + 1);

    ktest::ClearPrinted();
    Zos_PrintFree(Zos_PrintAlloc(100));  // a bucket with free nodes
    EXPECT_EQ(Zos_PrintDbgShow(), ZOK);
    const std::string shown = ktest::Printed();
    const std::string masked =
        ktest::Mask(ktest::Mask(shown, R"(( *\d+)( +\d+){5}\r\n)", "$1 <N> <N> <N> <N> <N>\r\n"),
                    R"(Mem:( +\d+){3})", "Mem:    <N> <N> <N>");
    EXPECT_EQ(masked, ktest::Golden("print_dbgshow.txt")) << shown;
    // The byte totals agree with the bucket rows (size x total, size x free).
    uint64_t total = 0, free = 0;
    const std::regex row(R"(\s*(\d+)\s+(\d+)\s+(\d+)\s+\d+\s+\d+\s+\d+\r\n)");
    for (std::sregex_iterator it(shown.begin(), shown.end(), row), end; it != end; ++it) {
        total += std::stoull((*it)[1]) * std::stoull((*it)[2]);
        free += std::stoull((*it)[1]) * std::stoull((*it)[3]);
    }
    char mem[64];
    Zos_SNPrintf(mem, sizeof(mem), "Mem:    %10u %10u %10u\r\n", static_cast<uint32_t>(total),
                 static_cast<uint32_t>(total - free), static_cast<uint32_t>(free));
    EXPECT_NE(shown.find(mem), std::string::npos);
    EXPECT_GT(total, 0u);  // the system log lives in the print pool
    EXPECT_GT(free, 0u);
}
