#include "zos_test.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>

namespace ktest {
namespace {

std::mutex g_printMutex;
std::string g_printed;

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

ZOS_OSDEP_FUNC &Slot(uint32_t n) {
    ST_ZOS_OSENV *holder = Zos_OsenvLocateNew();
    return holder->pfnOsdep[n];
}

std::string TempDir() {
    const char *base = std::getenv("KESTRO_TEST_TMP");
    std::string dir = base != nullptr ? base : "/tmp/kestro-test";
    ::mkdir(dir.c_str(), 0755);
    dir += "/" + std::to_string(::getpid());
    ::mkdir(dir.c_str(), 0755);
    return dir;
}

}  // namespace ktest

void ZosTest::SetUp() {
    ktest::ClearPrinted();
    ASSERT_EQ(Zos_CfgSetPrintDisp(ktest::PrintHook), ZOK);
    ASSERT_EQ(Zos_SysInit(), ZOK);
}

void ZosTest::TearDown() {
    Zos_SysDestroy();
    EXPECT_EQ(Zos_OsenvLocate(), nullptr) << "shut-down must release the platform holder";
}
