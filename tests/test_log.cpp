// Logs: prefix shapes, levels, limits, invalid handles, cache, watcher,
// redirection, debug commands, files and their rotation.
#include <time.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "zos_test.h"

namespace {

// 2024-03-05 14:02:11.042 on a clock in universal time.
constexpr int64_t kFixedSec = 1709647331;

uint32_t FixedEpoch(ST_ZOS_EPOCH_TIME *t) {
    t->llSec = kFixedSec;
    t->uiNsec = 42000000;
    return ZOK;
}

uint32_t UtcLocalTime(const int64_t *t, ST_ZOS_TM *tm) {
    const time_t tt = static_cast<time_t>(*t);
    struct tm g {};
    gmtime_r(&tt, &g);
    *tm = ST_ZOS_TM{g.tm_sec,  g.tm_min,  g.tm_hour, g.tm_mday, g.tm_mon,
                    g.tm_year, g.tm_wday, g.tm_yday, 0};
    return ZOK;
}

int32_t NoZone() {
    return 0;
}

// Replaces the clock slots so every prefix carries the fixed time.
void FixClock() {
    ktest::Slot(6) = reinterpret_cast<ZOS_OSDEP_FUNC>(FixedEpoch);
    ktest::Slot(10) = reinterpret_cast<ZOS_OSDEP_FUNC>(UtcLocalTime);
    ktest::Slot(12) = reinterpret_cast<ZOS_OSDEP_FUNC>(NoZone);
}

// Bytes in use in the print pool, read from the "Mem:" row of its listing.
uint64_t PrintPoolInUse() {
    ktest::ClearPrinted();
    EXPECT_EQ(Zos_PrintDbgShow(), ZOK);
    const std::string shown = ktest::Printed();
    const size_t at = shown.find("Mem:");
    if (at == std::string::npos) return 0;
    std::istringstream row(shown.substr(at + 4));
    uint64_t total = 0, used = 0;
    row >> total >> used;
    return used;
}

struct Seen {
    uint32_t level = 0;
    std::string msg;
    int calls = 0;
};

void Watch(void *user, uint32_t level, const char *msg) {
    auto *s = static_cast<Seen *>(user);
    s->level = level;
    s->msg = msg;
    s->calls++;
}

std::string g_disp;
void DispHook(const char *text, uint32_t len) {
    g_disp.append(text, len);
}

uint32_t PrintTo(ZLOGID log, uint32_t level, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    const uint32_t rc = Zos_LogPrint(log, "STEP", level, "pre", fmt, ap);
    va_end(ap);
    return rc;
}

uint32_t FailingWrite(uintptr_t, const void *, uint32_t, uint32_t *done) {
    if (done != nullptr) *done = 0;
    return ZFAILED;
}

}  // namespace

TEST_F(ZosTest, LinePrefixInEveryShape) {
    FixClock();
    ZLOGID log = Zos_LogCreateX("TST", nullptr, ZOS_LOG_FLAG_PRINT, ZOS_LOG_LEVEL_ALL, 0);
    ASSERT_NE(log, nullptr);
    struct Case {
        uint32_t date, time, ms;
        const char *line;
    };
    const Case cases[] = {
        {1, 1, 1, "24-03-05 14:02:11.042 TST: INFO: m 1\n"},
        {1, 1, 0, "24-03-05 14:02:11 TST: INFO: m 1\n"},
        {1, 0, 1, "24-03-05 TST: INFO: m 1\n"},
        {0, 1, 1, "14:02:11.042 TST: INFO: m 1\n"},
        {0, 1, 0, "14:02:11 TST: INFO: m 1\n"},
        {0, 0, 1, "TST: INFO: m 1\n"},
    };
    for (const Case &c : cases) {
        Zos_CfgSetLogDispDateSupt(c.date);
        Zos_CfgSetLogDispTimeSupt(c.time);
        Zos_CfgSetLogDispTimeInMs(c.ms);
        ktest::ClearPrinted();
        EXPECT_EQ(Zos_LogInfo(log, "m %d", 1), ZOK);
        EXPECT_EQ(ktest::Printed(), c.line);
    }
    // Level words, a replacing name, a prefix text, plain texts.
    Zos_CfgSetLogDispTimeSupt(0);
    ktest::ClearPrinted();
    Zos_LogFatal(log, "a");
    Zos_LogError(log, "b");
    Zos_LogWarn(log, "c");
    Zos_LogDbg(log, "d");
    Zos_LogFunc(log, "e");
    Zos_LogFStr(log, 0x3, "[pre]", "f%s", "g");
    Zos_LogNameFStr(log, "OTHERNAMELONG", ZOS_LOG_LEVEL_INFO, "h");
    Zos_LogNameFStrX(log, "", ZOS_LOG_LEVEL_INFO, "", "i");
    Zos_LogStr(log, ZOS_LOG_LEVEL_INFO, "100%s");
    Zos_LogNStr(log, ZOS_LOG_LEVEL_INFO, "jklm", 2);
    ST_ZOS_SSTR s{const_cast<char *>("nopq"), 3};
    Zos_LogSStr(log, ZOS_LOG_LEVEL_INFO, &s);
    EXPECT_EQ(ktest::Printed(),
              "TST: FATAL: a\nTST: ERROR: b\nTST: WARN: c\nTST: DEBUG: d\nTST: FUNC: e\n"
              "TST: UNKNOWN: [pre] fg\nOTHERNAMELONG: INFO: h\nTST: INFO: i\nTST: INFO: 100%s\n"
              "TST: INFO: jk\nTST: INFO: nop\n");

    // The watcher gets level and message without prefix; echo off prints
    // nothing; a log name is cut to 8 characters.
    Seen seen;
    EXPECT_EQ(Zos_LogSetWatcher(log, Watch, &seen), ZOK);
    ZOS_LOG_WATCHER got = nullptr;
    void *user = nullptr;
    EXPECT_EQ(Zos_LogGetWatcher(log, &got, &user), ZOK);
    EXPECT_TRUE(got == Watch && user == &seen);
    EXPECT_EQ(Zos_LogSetPrint(log, 0), ZOK);
    EXPECT_EQ(Zos_LogGetPrint(log), 0u);
    ktest::ClearPrinted();
    Zos_LogFStr(log, ZOS_LOG_LEVEL_WARN, "pre", "w%d", 9);
    EXPECT_EQ(ktest::Printed(), "");
    EXPECT_TRUE(seen.calls == 1 && seen.level == ZOS_LOG_LEVEL_WARN && seen.msg == "w9");
    // Echo on again prints again.
    EXPECT_EQ(Zos_LogSetPrint(log, 1), ZOK);
    EXPECT_EQ(Zos_LogGetPrint(log), 1u);
    Zos_LogFStr(log, ZOS_LOG_LEVEL_WARN, "pre", "x");
    EXPECT_EQ(ktest::Printed(), "TST: WARN: pre x\n");
    ZLOGID longName = Zos_LogCreateX("ABCDEFGHIJ", nullptr, 0, ZOS_LOG_LEVEL_ALL, 0);
    ZLOGID found = nullptr;
    EXPECT_TRUE(Zos_LogGetId("abcdefgh", &found) == ZOK && found == longName);
    EXPECT_TRUE(Zos_LogGetId("ABCDEFGHIJ", &found) == ZFAILED && found == nullptr);
    EXPECT_EQ(Zos_LogDelete(longName), ZOK);
    EXPECT_EQ(Zos_LogDelete(log), ZOK);
}

TEST_F(ZosTest, LevelsInvalidHandlesAndTheLineLimit) {
    ZLOGID sys = Zos_LogGetZosId();
    ASSERT_NE(sys, nullptr);
    EXPECT_EQ(Zos_LogGetLevel(sys), 0xBu);  // the configured default

    // The configuration switches the system log's levels at once.
    ASSERT_EQ(Zos_CfgSetLogLevel(ZOS_LOG_LEVEL_ERROR), ZOK);
    EXPECT_EQ(Zos_LogInfo(sys, "quiet"), ZOK);
    EXPECT_EQ(Zos_LogError(sys, "loud"), ZOK);
    ASSERT_EQ(ktest::Logged().size(), 1u);
    EXPECT_EQ(ktest::Logged()[0].msg, "loud");
    const char *all[] = {"log", "ZOS", "All", "on"};
    EXPECT_EQ(Zos_LogDbgSetLevel(4, all), ZOK);
    EXPECT_EQ(Zos_LogGetLevel(sys), 0x1FFu);
    EXPECT_EQ(Zos_LogDbgSetLevel(3, all), ZFAILED);
    EXPECT_EQ(Zos_LogCloseX("zOs", ZOS_LOG_LEVEL_DEBUG), ZOK);
    EXPECT_EQ(Zos_LogGetLevel(sys), 0x1EFu);
    EXPECT_EQ(Zos_LogOpenX("nosuchlog", ZOS_LOG_LEVEL_DEBUG), ZOK);
    EXPECT_EQ(Zos_LogCloseX("nosuchlog", ZOS_LOG_LEVEL_DEBUG), ZOK);
    EXPECT_EQ(Zos_LogOpenX(nullptr, ZOS_LOG_LEVEL_DEBUG), ZFAILED);

    // Invalid handles: null, words without the mark (at every offset of
    // an aligned buffer, so one of them sits where a record would), a
    // zero mask.
    alignas(16) uint64_t fake[16] = {};
    for (size_t off = 4; off < 64; off += 4) {
        ZLOGID h = reinterpret_cast<char *>(fake) + off;
        EXPECT_EQ(Zos_LogError(h, "x"), ZFAILED) << off;
        EXPECT_EQ(Zos_LogOpen(h, 1), ZFAILED) << off;
    }
    ZLOGID bad = reinterpret_cast<char *>(fake) + 32;
    // Without a format a line is no line: that is success on a usable log.
    EXPECT_EQ(Zos_LogInfo(sys, nullptr), ZOK);
    for (uint32_t rc :
         {Zos_LogInfo(nullptr, "x"), Zos_LogInfo(bad, nullptr),
          Zos_LogStr(bad, ZOS_LOG_LEVEL_ERROR, "x"), Zos_LogBuf(bad, ZOS_LOG_LEVEL_ERROR, "x", 1),
          Zos_LogOpen(nullptr, 1), Zos_LogClose(sys, 0), Zos_LogFlush(bad), Zos_LogDelete(bad),
          Zos_LogSetPrint(bad, 1), Zos_LogRedirect(sys, sys)}) {
        EXPECT_EQ(rc, ZFAILED);
    }
    EXPECT_EQ(Zos_LogGetLevel(bad), 0u);
    EXPECT_EQ(Zos_LogCreateX("", nullptr, 0, 1, 0), nullptr);
    EXPECT_EQ(Zos_LogCreateX(nullptr, nullptr, 0, 1, 0), nullptr);

    // A 5000-character message: prefix, text and "\n" make 4093 bytes.
    ZLOGID log = Zos_LogCreateX("CUT", nullptr, ZOS_LOG_FLAG_PRINT, ZOS_LOG_LEVEL_ALL, 0);
    Seen seen;
    Zos_LogSetWatcher(log, Watch, &seen);
    ktest::ClearPrinted();
    const std::string big(5000, 'x');
    EXPECT_EQ(Zos_LogInfo(log, "%s", big.c_str()), ZOK);
    const std::string line = ktest::Printed();
    EXPECT_EQ(line.size(), 4093u);
    EXPECT_EQ(line.back(), '\n');
    const size_t prefix = line.find("CUT: INFO: ") + 11;
    EXPECT_EQ(seen.msg, std::string(4093 - prefix - 1, 'x'));
    Zos_LogDelete(log);
}

TEST_F(ZosTest, DebugCommandsMatchTheirGoldenText) {
    ZLOGID dbg = Zos_LogCreateX("DBG", nullptr, ZOS_LOG_FLAG_MUTEX, 0, 0);
    ZLOGID mem = Zos_LogCreateX("MEM", nullptr, 0, ZOS_LOG_LEVEL_ALL, 1);
    // A cache that was never written to shows as empty.
    ZLOGID idle = Zos_LogCreateX("IDLE", nullptr, 0, ZOS_LOG_LEVEL_ERROR, 1);
    ASSERT_NE(dbg, nullptr);
    ASSERT_NE(mem, nullptr);
    ASSERT_NE(idle, nullptr);
    Zos_LogInfo(mem, "kept in memory");
    ktest::ClearPrinted();
    const struct {
        const char *argv[4];
        uint32_t rc, level;
    } cmds[] = {{{"log", "dbg", "info", "on"}, ZOK, ZOS_LOG_LEVEL_INFO},
                {{"log", "DBG", "ALL", "off"}, ZOK, 0},
                {{"log", "nolog", "INFO", "on"}, ZFAILED, 0},
                {{"log", "DBG", "VERBOSE", "on"}, ZFAILED, 0},
                {{"log", "DBG", "error", "on"}, ZOK, ZOS_LOG_LEVEL_ERROR}};
    for (const auto &c : cmds) {
        EXPECT_EQ(Zos_LogDbgSetLevel(4, c.argv), c.rc) << c.argv[2];
        EXPECT_EQ(Zos_LogGetLevel(dbg), c.level) << c.argv[2];
    }
    EXPECT_EQ(Zos_LogDbgShowMonitor(), ZOK);
    EXPECT_EQ(Zos_LogDbgShow(), ZOK);
    // Whether the system log still caches its start-up lines depends on
    // whether the log task has written them out yet.
    auto cached = [](const std::string &text) {
        return ktest::Mask(text, "<ZOS> cache is (empty\\.\r\n|in zos cache\\.\r\n\r\n)",
                           "<ZOS> cache is as the log task left it.\r\n");
    };
    EXPECT_EQ(cached(ktest::Printed()), cached(ktest::Golden("log_dbg.txt")));
    Zos_LogDelete(dbg);
    Zos_LogDelete(mem);
    Zos_LogDelete(idle);
}

TEST_F(ZosTest, CacheSizeRedirectionAndDisplayHook) {
    // A requested cache of 10 bytes is raised to 1024: a 1500-byte line
    // fits once wrapped, a line longer than the whole cache is reported.
    ZLOGID c10 = Zos_LogCreateX("C10", nullptr, 0, ZOS_LOG_LEVEL_ALL, 10);
    EXPECT_EQ(Zos_LogInfo(c10, "%s", std::string(1500, 'a').c_str()), ZOK);
    EXPECT_EQ(ktest::Printed(), "");
    EXPECT_EQ(Zos_LogInfo(c10, "%s", std::string(2100, 'b').c_str()), ZOK);
    EXPECT_EQ(ktest::Printed(), "zos log line too big!\r\n");
    Zos_LogDelete(c10);

    ZLOGID target = Zos_LogCreateX("TGT", nullptr, ZOS_LOG_FLAG_PRINT, ZOS_LOG_LEVEL_ALL, 0);
    ZLOGID source = Zos_LogCreateX("SRC", nullptr, 0, ZOS_LOG_LEVEL_INFO, 0);
    Seen seen;
    Zos_LogSetWatcher(source, Watch, &seen);
    EXPECT_EQ(Zos_LogRedirect(source, target), ZOK);
    ktest::ClearPrinted();
    Zos_LogInfo(source, "via target");
    Zos_LogDbg(source, "below the source's level");
    // The line keeps its own name and goes out through the target's echo;
    // the watcher of the source sees it.
    EXPECT_TRUE(ktest::Printed().find("SRC: INFO: via target\n") != std::string::npos &&
                ktest::Printed().find("below") == std::string::npos);
    EXPECT_EQ(seen.msg, "via target");

    // With a display hook configured the echo goes to the hook instead.
    Zos_CfgSetLogDisp(DispHook);
    g_disp.clear();
    ktest::ClearPrinted();
    Zos_LogInfo(target, "hooked");
    Zos_CfgSetLogDisp(nullptr);
    EXPECT_EQ(ktest::Printed(), "");
    EXPECT_NE(g_disp.find("TGT: INFO: hooked\n"), std::string::npos);
    EXPECT_EQ(Zos_LogRedirect(source, nullptr), ZOK);
    Zos_LogInfo(source, "own");  // no echo of its own
    EXPECT_EQ(ktest::Printed(), "");
    Zos_LogDelete(source);
    Zos_LogDelete(target);

    // A redirect to a log deleted since: lines go out through the source's
    // own echo, and the deleted target's record (taken from the heap for
    // its large cache, so its memory is really gone) is never read.
    target = Zos_LogCreateX("GONE", nullptr, ZOS_LOG_FLAG_PRINT, ZOS_LOG_LEVEL_ALL, 200000);
    source = Zos_LogCreateX("SRC2", nullptr, ZOS_LOG_FLAG_PRINT, ZOS_LOG_LEVEL_ALL, 0);
    ASSERT_TRUE(target != nullptr && source != nullptr);
    ASSERT_EQ(Zos_LogRedirect(source, target), ZOK);
    ASSERT_EQ(Zos_LogDelete(target), ZOK);
    EXPECT_EQ(Zos_LogInfo(target, "x"), ZFAILED);
    ktest::ClearPrinted();
    EXPECT_EQ(Zos_LogInfo(source, "after the target went"), ZOK);
    EXPECT_NE(ktest::Printed().find("SRC2: INFO: after the target went\n"), std::string::npos);
    Zos_LogDelete(source);
}

TEST_F(ZosTest, HexDumpLines) {
    ZLOGID log = Zos_LogCreateX("HEX", nullptr, ZOS_LOG_FLAG_PRINT, ZOS_LOG_LEVEL_ALL, 0);
    Seen seen;
    Zos_LogSetWatcher(log, Watch, &seen);
    const unsigned char three[] = {0x41, 0x25, 0x00};
    EXPECT_EQ(Zos_LogNameBuf(log, "PKT", ZOS_LOG_LEVEL_INFO, three, 3), ZOK);
    EXPECT_EQ(seen.msg, "\r\ndata length: 3\r\ndata content:\r\n     41 25 00 " +
                            std::string(39, ' ') + "A%%.");
    EXPECT_NE(ktest::Printed().find("PKT: INFO: \r\ndata length: 3"), std::string::npos);
    EXPECT_EQ(Zos_LogBuf(log, ZOS_LOG_LEVEL_INFO, nullptr, 3), ZFAILED);
    // A long dump comes as several lines, each starting on a row.
    std::vector<unsigned char> data(1000, 0x5A);
    seen.calls = 0;
    EXPECT_EQ(Zos_LogBuf(log, ZOS_LOG_LEVEL_INFO, data.data(), 1000), ZOK);
    EXPECT_GT(seen.calls, 1);
    EXPECT_EQ(seen.msg.rfind("     5a 5a", 0), 0u) << seen.msg.substr(0, 20);
    // Each dump gives its line buffer back to the print pool.
    const uint64_t inUse = PrintPoolInUse();
    EXPECT_GT(inUse, 0u);
    for (int i = 0; i < 20; ++i) Zos_LogBuf(log, ZOS_LOG_LEVEL_INFO, three, 3);
    EXPECT_LE(PrintPoolInUse(), inUse);
    Zos_LogDelete(log);
}

// A data buffer's three log calls against their plain forms: its text as
// one string, the same hex dump as Zos_LogBuf on the same bytes, and the
// layout lines that Zos_DbufDbgShow prints; empty buffers included.
void Collect(void *user, uint32_t, const char *msg) {
    static_cast<std::vector<std::string> *>(user)->push_back(msg);
}

TEST_F(ZosTest, DataBufferLogCallsMatchTheirPlainForms) {
    ZLOGID log = Zos_LogCreateX("DBL", nullptr, 0, ZOS_LOG_LEVEL_ALL, 0);
    std::vector<std::string> lines;
    Zos_LogSetWatcher(log, Collect, &lines);
    const auto logged = [&lines](uint32_t rc) {
        std::string all = rc == ZOK ? "" : "failed: ";
        for (const auto &l : lines) all += l + "\r\n";
        lines.clear();
        return all;
    };
    constexpr uint32_t kInfo = ZOS_LOG_LEVEL_INFO;
    ZDBUF b = Zos_DbufCreate(nullptr, 1, 64);  // small blocks: the text spans several
    ASSERT_NE(b, nullptr);
    for (const std::string &text : {std::string(), std::string(300, 'k') + "%d end"}) {
        if (!text.empty()) {
            ASSERT_EQ(Zos_DbufPstAddMultD(b, text.data(), static_cast<uint32_t>(text.size())), ZOK);
        }
        const std::string hex = logged(Zos_DbufLogHex(log, kInfo, b));
        EXPECT_EQ(hex, logged(Zos_LogBuf(log, kInfo, text.empty() ? "" : text.data(),
                                         static_cast<uint32_t>(text.size()))));
        EXPECT_EQ(logged(Zos_DbufLogTxt(log, kInfo, b)), text + "\r\n");
        const std::string layout = logged(Zos_DbufLogPrint(log, kInfo, b));
        ktest::ClearPrinted();
        EXPECT_EQ(Zos_DbufDbgShow(b), ZOK);
        EXPECT_EQ(layout, ktest::Printed());
        EXPECT_FALSE(layout.empty());
    }
    EXPECT_EQ(Zos_DbufDelete(b), ZOK);
    EXPECT_EQ(Zos_DbufLogHex(log, kInfo, b), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DbufLogHex invalid id."));
    EXPECT_EQ(Zos_DbufLogTxt(log, kInfo, b), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DbufLogTxt invalid id."));
    EXPECT_EQ(Zos_DbufLogPrint(log, kInfo, b), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DbufLogPrint invalid id."));
    Zos_LogDelete(log);
}

TEST_F(ZosTest, FilesRotateKeepTheirCountAndLoseNoLine) {
    const std::string dir = ktest::FreshDir("rotate");
    ASSERT_EQ(Zos_CfgSetLogFileSize(2000), ZOK);
    ASSERT_EQ(Zos_CfgSetLogFileCount(3), ZOK);
    ZLOGID log = Zos_LogCreateX("ROT", (dir + "/rot.log").c_str(), 0, ZOS_LOG_LEVEL_ALL, 1024);
    ASSERT_NE(log, nullptr);
    const int kLines = 400;
    for (int i = 0; i < kLines; ++i) {
        ASSERT_EQ(Zos_LogInfo(log, "line %05d %s", i, "payload-payload-payload"), ZOK);
    }
    ASSERT_EQ(Zos_LogFlush(log), ZOK);

    const std::vector<std::string> files = ktest::FilesIn(dir);
    ASSERT_EQ(files.size(), 3u);
    EXPECT_NE(ktest::Printed().find("LogAppendFile remove oldest " + dir + "/rot"),
              std::string::npos);
    const std::regex name(R"(.*/rot\d{8}_\d{6}_\d{3}\.log)");
    const std::regex line(
        R"(\d\d:\d\d:\d\d\.\d\d\d ROT: INFO: line (\d{5}) payload-payload-payload)");
    int expected = -1;
    for (size_t f = 0; f < files.size(); ++f) {
        EXPECT_TRUE(std::regex_match(files[f], name)) << files[f];
        const std::string text = ktest::ReadFile(files[f]);
        ASSERT_EQ(text.rfind("#ZOSLOG#\r\n", 0), 0u) << files[f];
        if (f + 1 < files.size()) {
            EXPECT_GT(text.size(), 2000u);
            EXPECT_LT(text.size(), 2000u + 80u);  // rotated after the line that crossed
        }
        std::istringstream in(text.substr(10));
        std::string l;
        while (std::getline(in, l)) {
            std::smatch m;
            ASSERT_TRUE(std::regex_match(l, m, line)) << l;
            const int n = std::stoi(m[1]);
            EXPECT_TRUE(expected < 0 || n == expected) << files[f] << ": " << l;
            expected = n + 1;
        }
    }
    EXPECT_EQ(expected, kLines);  // the newest file ends with the last line
    Zos_LogDelete(log);

    // A new log over the same path appends to the newest file while it
    // is below the rotation size.
    log = Zos_LogCreateX("ROT", (dir + "/rot.log").c_str(), 0, ZOS_LOG_LEVEL_ALL, 1024);
    Zos_LogInfo(log, "line %05d %s", kLines, "payload-payload-payload");
    Zos_LogDelete(log);
    EXPECT_EQ(ktest::FilesIn(dir), files);
    const std::string newest = ktest::ReadFile(files.back());
    EXPECT_EQ(newest.find("#ZOSLOG#", 1), std::string::npos);
    EXPECT_NE(newest.find("line 00400 payload"), std::string::npos);
}

TEST_F(ZosTest, LongLinesWriteThroughAndWriteFailuresDropTheFile) {
    const std::string dir = ktest::FreshDir("through");
    ZLOGID log = Zos_LogCreateX("WT", (dir + "/wt").c_str(), 0, ZOS_LOG_LEVEL_ALL, 1024);
    ASSERT_NE(log, nullptr);
    Zos_LogInfo(log, "short");
    Zos_LogInfo(log, "%s", std::string(3000, 'L').c_str());  // longer than the ring
    Zos_LogInfo(log, "after");
    ASSERT_EQ(Zos_LogFlush(log), ZOK);
    std::vector<std::string> files = ktest::FilesIn(dir);
    ASSERT_EQ(files.size(), 1u);
    EXPECT_TRUE(std::regex_match(files[0], std::regex(R"(.*/wt\d{8}_\d{6}_\d{3})")));
    const std::string text = ktest::ReadFile(files[0]);
    const size_t s = text.find("WT: INFO: short\n"), a = text.find("WT: INFO: after\n");
    const size_t l = text.find("WT: INFO: " + std::string(3000, 'L') + "\n");
    EXPECT_TRUE(a != std::string::npos && s < l && l < a) << text.substr(0, 200);

    // A failing write reports once and the log goes on without its file.
    ZOS_OSDEP_FUNC saved = ktest::Slot(20);
    ktest::Slot(20) = reinterpret_cast<ZOS_OSDEP_FUNC>(FailingWrite);
    ktest::ClearPrinted();
    Zos_LogInfo(log, "lost with the file");
    EXPECT_EQ(Zos_LogFlush(log), ZOK);
    ktest::Slot(20) = saved;
    const std::string out = ktest::Printed();
    const size_t at = out.find("log <WT> file write failed.\r\n");
    EXPECT_NE(at, std::string::npos) << out;
    EXPECT_EQ(out.find("file write failed", at + 20), std::string::npos);  // reported once
    EXPECT_TRUE(ktest::LoggedContains("FileWrite write 0 of"));
    EXPECT_EQ(Zos_LogInfo(log, "memory only"), ZOK);
    EXPECT_EQ(Zos_LogFlush(log), ZOK);  // nothing to write to is not a failure
    EXPECT_EQ(Zos_LogDelete(log), ZOK);
    EXPECT_EQ(ktest::ReadFile(files[0]), text);
}

TEST_F(ZosTest, LogStepsOneByOne) {
    char *tmpl = Zos_LogGetFileName("/var/x%y/app.log");
    ASSERT_NE(tmpl, nullptr);
    EXPECT_STREQ(tmpl, "/var/x%%y/app%d%02d%02d_%02d%02d%02d_%03d.log");
    Zos_PrintFree(tmpl);
    tmpl = Zos_LogGetFileName("plain");
    ASSERT_NE(tmpl, nullptr);
    EXPECT_STREQ(tmpl, "plain%d%02d%02d_%02d%02d%02d_%03d");
    Zos_PrintFree(tmpl);
    EXPECT_EQ(Zos_LogGetFileName(""), nullptr);

    // A log with a cache and no file.
    ZLOGID mem = Zos_LogCreateX("MEM", nullptr, ZOS_LOG_FLAG_MUTEX, ZOS_LOG_LEVEL_ERROR, 1024);
    ASSERT_NE(mem, nullptr);
    char prefix[128];
    const uint32_t n = Zos_LogAddPrefix(mem, "", ZOS_LOG_LEVEL_WARN, "tag", prefix, sizeof(prefix));
    EXPECT_EQ(n, std::strlen(prefix));
    EXPECT_NE(std::string(prefix).find("MEM: WARN: tag "), std::string::npos) << prefix;
    EXPECT_EQ(Zos_LogAddPrefix(mem, "", ZOS_LOG_LEVEL_WARN, nullptr, prefix, 5), 4u);
    EXPECT_EQ(Zos_LogAddPrefix(nullptr, "", 1, nullptr, prefix, sizeof(prefix)), 0u);
    EXPECT_EQ(Zos_LogDispBuff(mem, "cached\n", 7), ZOK);
    EXPECT_EQ(Zos_LogDisp(mem, "shown\n", 6), ZOK);
    EXPECT_EQ(Zos_LogDisp(mem, nullptr, 6) + Zos_LogDisp(nullptr, "x", 1), 2 * ZFAILED);
    EXPECT_EQ(Zos_LogDispFile(mem, "x", 1), ZFAILED) << "no file";
    EXPECT_EQ(Zos_LogAdjFile(mem), ZFAILED) << "no file";
    // Zos_LogPrint writes whatever the level mask says.
    std::string seen;
    ASSERT_EQ(Zos_LogSetWatcher(
                  mem,
                  [](void *user, uint32_t level, const char *msg) {
                      *static_cast<std::string *>(user) += std::to_string(level) + " " + msg;
                  },
                  &seen),
              ZOK);
    EXPECT_EQ(PrintTo(mem, ZOS_LOG_LEVEL_DEBUG, "step %d", 7), ZOK);
    EXPECT_EQ(seen, "16 step 7");
    EXPECT_EQ(PrintTo(nullptr, ZOS_LOG_LEVEL_DEBUG, "step"), ZFAILED);
    Zos_LogDelete(mem);

    // A log with files: the file ring, rotation and the file list.
    const std::string dir = ktest::FreshDir("logsteps");
    const std::string path = dir + "/steps.log";
    ZLOGID log = Zos_LogCreateX("STEPS", path.c_str(), 0, ZOS_LOG_LEVEL_ALL, 1024);
    ASSERT_NE(log, nullptr);
    EXPECT_EQ(Zos_LogDispBuff(log, "x", 1), ZFAILED) << "the cache is the file's ring";
    ASSERT_EQ(Zos_LogDispFile(log, "through the ring\n", 17), ZOK);
    ASSERT_EQ(Zos_LogFlush(log), ZOK);
    ASSERT_EQ(ktest::FilesIn(dir).size(), 1u);
    const std::string firstFile = ktest::FilesIn(dir)[0];
    EXPECT_EQ(ktest::ReadFile(firstFile), "#ZOSLOG#\r\nthrough the ring\n");
    ASSERT_EQ(Zos_LogAdjFile(log), ZOK);
    EXPECT_EQ(ktest::FilesIn(dir).size(), 2u);
    // An older file of the pattern, listed from disk once however often
    // the directory is read; its name holds the earliest time a name can.
    const std::string old = dir + "/steps00000000_000000_000.log";
    FILE *f = std::fopen(old.c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fclose(f);
    EXPECT_EQ(Zos_LogGetFileList(log, path.c_str()), ZOK);
    EXPECT_EQ(Zos_LogGetFileList(log, path.c_str()), ZOK);
    EXPECT_EQ(Zos_LogGetFileList(log, nullptr), ZFAILED);
    ST_ZOS_SYS_TIME t{};
    EXPECT_EQ(Zos_LogAppendFile(log, nullptr, &t), ZFAILED);
    EXPECT_EQ(Zos_LogAppendFile(log, old.c_str(), nullptr), ZFAILED);
    // With a list of two the oldest of three files goes, from disk too.
    Zos_LogDelete(log);
    ASSERT_EQ(Zos_CfgSetLogFileCount(2), ZOK);
    log = Zos_LogCreateX("STEPS", path.c_str(), 0, ZOS_LOG_LEVEL_ALL, 1024);
    ASSERT_NE(log, nullptr);
    // Listed in directory order: removed as the oldest or as older than all.
    EXPECT_EQ(ktest::FilesIn(dir).size(), 2u);
    EXPECT_NE(ktest::Printed().find(old + "."), std::string::npos);
    EXPECT_EQ(Zfile_IsExist(old.c_str()), 0u);
    // Recording a file older than the whole full list removes it.
    f = std::fopen(old.c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fclose(f);
    t.wYear = 2000;
    t.ucMonth = 1;
    t.ucDay = 1;
    ktest::ClearPrinted();
    ASSERT_EQ(Zos_LogAppendFile(log, old.c_str(), &t), ZOK);
    EXPECT_NE(ktest::Printed().find("LogAppendFile remove " + old + "."), std::string::npos);
    EXPECT_EQ(ktest::FilesIn(dir).size(), 2u);
    Zos_LogDelete(log);
}
