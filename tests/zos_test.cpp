#include "zos_test.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <regex>
#include <sstream>

namespace ktest {
namespace {

std::mutex g_printMutex;
std::string g_printed;

std::mutex g_logMutex;
std::vector<LogLine> g_logged;

void RecordLine(void * /*user*/, uint32_t level, const char *msg) {
    std::lock_guard<std::mutex> lock(g_logMutex);
    g_logged.push_back(LogLine{level, msg != nullptr ? msg : ""});
}

}  // namespace

void PrintHook(const char *text) {
    std::lock_guard<std::mutex> lock(g_printMutex);
    g_printed += text;
}

std::string Printed() {
    std::lock_guard<std::mutex> lock(g_printMutex);
    return g_printed;
}

void ClearPrinted() {
    std::lock_guard<std::mutex> lock(g_printMutex);
    g_printed.clear();
}

std::vector<LogLine> Logged() {
    std::lock_guard<std::mutex> lock(g_logMutex);
    return g_logged;
}

void ClearLogged() {
    std::lock_guard<std::mutex> lock(g_logMutex);
    g_logged.clear();
}

bool LoggedContains(const std::string &text) {
    std::lock_guard<std::mutex> lock(g_logMutex);
    for (const LogLine &l : g_logged) {
        if (l.msg.find(text) != std::string::npos) return true;
    }
    return false;
}

void WatchSystemLog() {
    Zos_LogSetWatcher(Zos_LogGetZosId(), RecordLine, nullptr);
}

SlotRef Slot(uint32_t n) {
    ST_ZOS_OSENV *holder = Zos_OsenvLocateNew();
    return SlotRef(&holder->pfnOsdep[n]);
}

std::atomic<int> g_failAt{0};
std::atomic<int> g_calls{0};
std::atomic<int> g_live{0};
std::atomic<uint32_t> g_lastSize{0};

void *FailingMalloc(uint32_t size) {
    g_lastSize = size;
    if (++g_calls == g_failAt) return nullptr;
    void *p = Zpand_Malloc(size);
    if (p != nullptr) ++g_live;
    return p;
}

void CountingFree(void *p) {
    if (p != nullptr) --g_live;
    Zpand_Free(p);
}

FailingHeap::FailingHeap() : malloc_(Slot(0)), free_(Slot(2)) {
    Slot(0) = reinterpret_cast<ZOS_OSDEP_FUNC>(FailingMalloc);
    Slot(2) = reinterpret_cast<ZOS_OSDEP_FUNC>(CountingFree);
}

FailingHeap::~FailingHeap() {
    Slot(0) = malloc_;
    Slot(2) = free_;
}

std::string TempDir() {
    const char *base = std::getenv("KESTRO_TEST_TMP");
    std::string dir = base != nullptr ? base : "/tmp/kestro-test";
    ::mkdir(dir.c_str(), 0755);
    // Appended piece by piece: GCC 12 misreads "/" + std::string at -O3
    // as an overlapping copy (-Wrestrict).
    dir += '/';
    dir += std::to_string(::getpid());
    ::mkdir(dir.c_str(), 0755);
    return dir;
}

std::string FreshDir(const std::string &name) {
    const std::string dir = TempDir() + "/" + name;
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
    std::filesystem::create_directories(dir, ec);
    return dir;
}

std::string Golden(const std::string &name) {
    std::ifstream in(std::filesystem::path(KESTRO_GOLDEN_DIR) / name, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

std::string Mask(const std::string &text, const std::string &pattern, const std::string &with) {
    return std::regex_replace(text, std::regex(pattern), with);
}

std::string ReadFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

std::vector<std::string> FilesIn(const std::string &dir) {
    std::vector<std::string> out;
    for (const auto &e : std::filesystem::directory_iterator(dir)) out.push_back(e.path());
    std::sort(out.begin(), out.end());
    return out;
}

void UseTestLogDir() {
    const std::string dir = TempDir() + "/logs";
    ::mkdir(dir.c_str(), 0755);
    Zos_CfgSetLogDir(dir.c_str());
}

}  // namespace ktest

void ZosTest::SetUp() {
    ktest::ClearPrinted();
    ktest::ClearLogged();
    ASSERT_EQ(Zos_CfgSetPrintDisp(ktest::PrintHook), ZOK);
    ktest::UseTestLogDir();
    ASSERT_EQ(Zos_SysInit(), ZOK);
    ktest::WatchSystemLog();
    ktest::ClearPrinted();  // the start-up lines
}

void ZosQuietTest::SetUp() {
    ASSERT_EQ(Zos_CfgSetOsThreadSupt(0), ZOK);
    ZosTest::SetUp();
}

namespace {
uint32_t NoDelay(uint32_t) {
    return ZOK;
}
}  // namespace

void ZosQuietTest::TearDown() {
    // Shut-down polls the timer task, which nothing runs, 200 times before
    // it gives up on it: without threads nothing can change meanwhile, so
    // the polls need not sleep.
    ktest::Slot(97) = reinterpret_cast<ZOS_OSDEP_FUNC>(NoDelay);
    ZosTest::TearDown();
}

void ZosTest::TearDown() {
    Zos_SysDestroy();
    EXPECT_EQ(Zos_OsenvLocate(), nullptr) << "shut-down must release the platform holder";
}
