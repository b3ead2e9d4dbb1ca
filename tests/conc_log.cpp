// Several threads log to one log with a rotating file while others print
// and write to the system log: every line arrives whole, once, in each
// thread's order; shut-down waits for a line still being written.
#include <atomic>
#include <cstdio>
#include <cstring>
#include <chrono>
#include <map>
#include <sstream>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "zos_test.h"

namespace {

std::atomic<int> g_watched{0};

void CountLine(void *, uint32_t, const char *) {
    g_watched.fetch_add(1, std::memory_order_relaxed);
}

// A platform print that is not safe for concurrent calls.
std::vector<std::string> g_platformLines;
uint32_t KeepPlatformLine(const char *text) {
    g_platformLines.emplace_back(text);
    return ZOK;
}

}  // namespace

// Without a print hook, lines printed from several threads reach the
// platform's print one at a time, each whole.
TEST_F(ZosTest, PlatformPrintGetsOneLineAtATime) {
    g_platformLines.clear();
    ASSERT_EQ(Zos_CfgSetPrintDisp(nullptr), ZOK);
    const ZOS_OSDEP_FUNC platform = ktest::Slot(3);
    ktest::Slot(3) = reinterpret_cast<ZOS_OSDEP_FUNC>(KeepPlatformLine);
    constexpr int kThreads = 4;
    constexpr int kLines = 250;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < kLines; ++i) Zos_Printf("t%d line %03d\n", t, i);
        });
    }
    for (std::thread &th : threads) th.join();
    ktest::Slot(3) = platform;
    ASSERT_EQ(Zos_CfgSetPrintDisp(ktest::PrintHook), ZOK);
    // The layer's own threads may print meanwhile; their lines are skipped.
    int next[kThreads] = {};
    for (const std::string &line : g_platformLines) {
        int t = -1, i = -1;
        if (std::sscanf(line.c_str(), "t%d line %d", &t, &i) != 2) continue;
        ASSERT_TRUE(t >= 0 && t < kThreads) << line;
        EXPECT_EQ(i, next[t]++) << line;  // each thread's lines whole, in its order
    }
    for (const int n : next) EXPECT_EQ(n, kLines);
}

TEST_F(ZosTest, ThreadsShareOneLogWithARotatingFile) {
    const std::string dir = ktest::FreshDir("conc");
    ASSERT_EQ(Zos_CfgSetLogFileSize(20000), ZOK);
    ASSERT_EQ(Zos_CfgSetLogFileCount(200), ZOK);
    ZLOGID log = Zos_LogCreateX("CONC", (dir + "/conc.log").c_str(), ZOS_LOG_FLAG_MUTEX,
                                ZOS_LOG_LEVEL_ALL, 4096);
    ASSERT_NE(log, nullptr);
    g_watched = 0;
    Zos_LogSetWatcher(log, CountLine, nullptr);

    constexpr int kThreads = 4;
    constexpr int kLines = 1500;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, log] {
            for (int i = 0; i < kLines; ++i) {
                const std::string pad(static_cast<size_t>(i % 50), 'x');
                Zos_LogInfo(log, "t%d n%05d %s", t, i, pad.c_str());
            }
        });
    }
    // Meanwhile: the files on disk listed again until the writers are done
    // (a file already listed is not added twice) ...
    std::atomic<bool> written{false};
    std::thread lister([log, dir, &written] {
        const std::string path = dir + "/conc.log";
        while (!written) EXPECT_EQ(Zos_LogGetFileList(log, path.c_str()), ZOK);
    });
    // ... and console lines and system-log lines from another thread.
    threads.emplace_back([] {
        for (int i = 0; i < 300; ++i) {
            Zos_Printf("print %d\n", i);
            Zos_LogInfo(Zos_LogGetZosId(), "system %d", i);
        }
    });
    for (std::thread &th : threads) th.join();
    written = true;
    lister.join();
    ASSERT_EQ(Zos_LogFlush(log), ZOK);
    EXPECT_EQ(Zos_LogDelete(log), ZOK);
    EXPECT_EQ(g_watched.load(), kThreads * kLines);
    EXPECT_EQ(ktest::Logged().size(), 300u);

    const std::vector<std::string> files = ktest::FilesIn(dir);  // oldest first
    EXPECT_GT(files.size(), 5u);  // it rotated while the threads wrote

    const std::regex shape(R"(\d\d:\d\d:\d\d\.\d{3} CONC: INFO: t(\d) n(\d{5}) (x*))");
    std::map<int, int> next;
    int total = 0;
    for (const std::string &f : files) {
        std::istringstream in(ktest::ReadFile(f));
        std::string line;
        ASSERT_TRUE(std::getline(in, line));
        EXPECT_EQ(line, "#ZOSLOG#\r");
        while (std::getline(in, line)) {
            std::smatch m;
            ASSERT_TRUE(std::regex_match(line, m, shape)) << f << ": " << line;
            const int t = std::stoi(m[1]);
            const int n = std::stoi(m[2]);
            EXPECT_EQ(m[3].length(), n % 50) << line;
            EXPECT_EQ(n, next[t]) << "thread " << t << " in " << f;
            next[t] = n + 1;
            ++total;
        }
    }
    EXPECT_EQ(total, kThreads * kLines);
    for (int t = 0; t < kThreads; ++t) EXPECT_EQ(next[t], kLines) << t;
}

// A log's file list added to by one thread while another lists the files
// on disk again: both change the list, each under the log's mutex. The
// added names are of files that do not exist, so dropping the oldest of
// them removes nothing.
TEST_F(ZosTest, FileListAddedToWhileListedAgain) {
    const std::string dir = ktest::FreshDir("concfiles");
    ASSERT_EQ(Zos_CfgSetLogFileCount(16), ZOK);
    ZLOGID log =
        Zos_LogCreateX("FILES", (dir + "/f.log").c_str(), ZOS_LOG_FLAG_MUTEX, ZOS_LOG_LEVEL_ALL, 0);
    ASSERT_NE(log, nullptr);
    std::thread adder([log, dir] {
        for (uint32_t i = 0; i < 300; ++i) {
            const ST_ZOS_SYS_TIME t{2026, 1, 1, 4, 0, 0, static_cast<uint8_t>(i % 60), i, 0};
            const std::string name = dir + "/gone" + std::to_string(i) + ".log";
            EXPECT_EQ(Zos_LogAppendFile(log, name.c_str(), &t), ZOK);
        }
    });
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(Zos_LogGetFileList(log, (dir + "/f.log").c_str()), ZOK);
    }
    adder.join();
    EXPECT_EQ(Zos_LogDelete(log), ZOK);
    EXPECT_EQ(ktest::FilesIn(dir).size(), 1u);  // the log's own file only
}

namespace {
// Two watchers, each given its own user word: a watcher called with the
// other's word saw a torn pair.
std::atomic<int> g_pairCalls{0};
std::atomic<int> g_tornPairs{0};
int g_userA = 0, g_userB = 0;
template <int *Mine>
void Watch(void *user, uint32_t, const char *) {
    g_pairCalls.fetch_add(1, std::memory_order_relaxed);
    if (user != Mine) g_tornPairs.fetch_add(1, std::memory_order_relaxed);
}
}  // namespace

// A redirected log's lines are shown by the target, but still reach the
// redirected log's own watcher, which another thread keeps replacing: the
// watcher and its word are read together, under the log's lock.
TEST_F(ZosTest, RedirectedLogReadsItsWatcherUnderItsLock) {
    ZLOGID src = Zos_LogCreateX("SRC", nullptr, ZOS_LOG_FLAG_MUTEX, ZOS_LOG_LEVEL_ALL, 4096);
    ZLOGID dst = Zos_LogCreateX("DST", nullptr, ZOS_LOG_FLAG_MUTEX, ZOS_LOG_LEVEL_ALL, 4096);
    ASSERT_NE(src, nullptr);
    ASSERT_NE(dst, nullptr);
    ASSERT_EQ(Zos_LogRedirect(src, dst), ZOK);
    ASSERT_EQ(Zos_LogSetWatcher(src, Watch<&g_userA>, &g_userA), ZOK);
    g_pairCalls = 0;
    g_tornPairs = 0;
    constexpr int kWriters = 2, kLines = 2000;
    std::atomic<int> writing{kWriters};
    std::vector<std::thread> threads;
    for (int t = 0; t < kWriters; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < kLines; ++i) Zos_LogInfo(src, "line %d", i);
            writing.fetch_sub(1);
        });
    }
    threads.emplace_back([&] {
        for (int i = 0; writing.load() != 0; ++i) {
            if (i % 2 == 0) {
                Zos_LogSetWatcher(src, Watch<&g_userB>, &g_userB);
            } else {
                Zos_LogSetWatcher(src, Watch<&g_userA>, &g_userA);
            }
        }
    });
    for (std::thread &th : threads) th.join();
    EXPECT_EQ(g_pairCalls.load(), kWriters * kLines);
    EXPECT_EQ(g_tornPairs.load(), 0);
    EXPECT_EQ(Zos_LogDelete(src), ZOK);
    EXPECT_EQ(Zos_LogDelete(dst), ZOK);
}

namespace {
std::atomic<bool> g_inWatcher{false};
std::atomic<bool> g_lineDone{false};
// Holds the test's line up long enough for shut-down to reach the logs and
// the print pool, whose buffer the line still has to give back; other
// lines pass.
void SlowWatcher(void *, uint32_t, const char *msg) {
    if (std::strstr(msg, "outlasts") == nullptr) return;
    g_inWatcher = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
}
}  // namespace

// A thread's line is still being written when another thread shuts the
// layer down: shut-down waits for it before it takes the logs and the print
// pool apart, and a line begun afterwards is refused.
TEST(LogConcShutDown, WaitsForALineBeingWritten) {
    g_inWatcher = g_lineDone = false;
    ASSERT_EQ(Zos_CfgSetPrintDisp(ktest::PrintHook), ZOK);
    ktest::UseTestLogDir();
    ASSERT_EQ(Zos_SysInit(), ZOK);
    ZLOGID log = Zos_LogGetZosId();
    ASSERT_EQ(Zos_LogSetWatcher(log, SlowWatcher, nullptr), ZOK);
    std::thread writer([log] {
        Zos_LogError(log, "a line that outlasts the start of shut-down");
        g_lineDone = true;
    });
    while (!g_inWatcher) std::this_thread::yield();
    Zos_SysDestroy();
    EXPECT_TRUE(g_lineDone.load()) << "shut-down returned while a line was still being written";
    writer.join();
}
