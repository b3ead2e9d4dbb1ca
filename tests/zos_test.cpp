#include "zos_test.h"

#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <regex>
#include <sstream>
#include <thread>
#include <utility>

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

std::string NotLogged(const std::string &prefix, std::initializer_list<const char *> names,
                      const std::string &suffix) {
    std::string missing;
    for (const char *name : names) {
        const std::string line = prefix + name + suffix;
        if (!LoggedContains(line)) missing += line + "\n";
    }
    return missing;
}

void WatchSystemLog() {
    Zos_LogSetWatcher(Zos_LogGetZosId(), RecordLine, nullptr);
}

SlotRef Slot(uint32_t n) {
    ST_ZOS_OSENV *holder = Zos_OsenvLocateNew();
    return SlotRef(&holder->pfnOsdep[n]);
}

// The heap that ZosTest puts in the layer's slots for each test: blocks
// are kept by address from allocation to free, so that those a test's
// layer still holds after its shut-down can be told. A block that
// FailingMalloc counted for a CountThisThread scope carries that scope's
// number, so that its free counts from whichever thread makes it.
struct Block {
    uint32_t size;
    uint32_t scope;  // 0: counted by no scope
};
std::mutex g_netLock;
std::map<void *, Block> g_netBlocks;

void Record(void *p, uint32_t size, uint32_t scope) {
    const std::lock_guard<std::mutex> lock(g_netLock);
    g_netBlocks[p] = Block{size, scope};
}

// Drops a block from the record; the scope that counted it, or 0.
uint32_t Forget(void *p) {
    const std::lock_guard<std::mutex> lock(g_netLock);
    const auto it = g_netBlocks.find(p);
    if (it == g_netBlocks.end()) return 0;
    const uint32_t scope = it->second.scope;
    g_netBlocks.erase(it);
    return scope;
}

void *HeapMalloc(uint32_t size) {
    void *p = Zpand_Malloc(size);
    if (p != nullptr) Record(p, size, 0);
    return p;
}

void *HeapRealloc(void *old, uint32_t size) {
    void *p = Zpand_Realloc(old, size);
    if (p != nullptr) Record(p, size, old != nullptr ? Forget(old) : 0);
    return p;
}

void HeapFree(void *p) {
    if (p == nullptr) return;
    Forget(p);
    Zpand_Free(p);
}

std::atomic<int> g_failAt{0};
std::atomic<int> g_calls{0};
std::atomic<int> g_live{0};
std::atomic<uint32_t> g_lastSize{0};
// The thread whose allocations are counted, and the number of its
// CountThisThread scope; no thread's id means every thread.
std::atomic<std::thread::id> g_countOnly{};
std::atomic<uint32_t> g_scope{0};

void *FailingMalloc(uint32_t size) {
    const std::thread::id only = g_countOnly;
    const bool filtered = only != std::thread::id();
    if (filtered && only != std::this_thread::get_id()) return HeapMalloc(size);
    g_lastSize = size;
    if (++g_calls == g_failAt) return nullptr;
    void *p = Zpand_Malloc(size);
    if (p == nullptr) return nullptr;
    ++g_live;
    Record(p, size, filtered ? g_scope.load() : 0);
    return p;
}

void CountingFree(void *p) {
    if (p == nullptr) return;
    const uint32_t scope = Forget(p);
    if (g_countOnly.load() == std::thread::id() || (scope != 0 && scope == g_scope)) --g_live;
    Zpand_Free(p);
}

CountThisThread::CountThisThread() {
    g_calls = 0;
    g_failAt = 0;
    g_live = 0;
    ++g_scope;
    g_countOnly = std::this_thread::get_id();
}

CountThisThread::~CountThisThread() {
    g_countOnly = std::thread::id();
}

HeapSlots::HeapSlots(void *(*alloc)(uint32_t), void (*release)(void *))
    : malloc_(Slot(0)), free_(Slot(2)) {
    Slot(0) = reinterpret_cast<ZOS_OSDEP_FUNC>(alloc);
    Slot(2) = reinterpret_cast<ZOS_OSDEP_FUNC>(release);
}

HeapSlots::~HeapSlots() {
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

std::string DbufText(ZDBUF buf) {
    std::string s(Zos_DbufLen(buf), '\0');
    if (!s.empty()) {
        EXPECT_EQ(Zos_DbufCopyD(buf, 0, static_cast<uint32_t>(s.size()), s.data()), ZOK);
    }
    return s;
}

void *RefusingMalloc(uint32_t) {
    return nullptr;
}

std::vector<ZDBUF> TakeFreeHeaders() {
    std::vector<ZDBUF> held;
    for (ZDBUF b;
         held.size() < 1000000 && (b = Zos_DbufCreate(nullptr, ZOS_DBUF_TYPE_MSG, 64)) != nullptr;)
        held.push_back(b);
    return held;
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

namespace {

// A test that runs for minutes has hung. The watchdog then prints the
// test's name and every thread's stack (through gdb, where the host has
// it) and ends the program, so a hang fails its run at once and shows
// where it stands. KESTRO_TEST_WATCHDOG sets the limit in seconds (0: no
// watchdog).
class Watchdog : public ::testing::EmptyTestEventListener {
  public:
    static void Install() {
        const char *env = std::getenv("KESTRO_TEST_WATCHDOG");
        const long limit = env != nullptr ? std::strtol(env, nullptr, 10) : 300;
        if (limit <= 0) return;
        // The state is never freed: the watching thread may still look at
        // it while the program's statics (Google Test's listener list,
        // which owns the listener) are destroyed.
        auto *state = new State(std::chrono::seconds(limit));
        ::testing::UnitTest::GetInstance()->listeners().Append(new Watchdog(state));
        std::thread(Watch, state).detach();
    }

    void OnTestStart(const ::testing::TestInfo &info) override {
        Start(std::string(info.test_suite_name()) + "." + info.name());
    }
    void OnTestEnd(const ::testing::TestInfo &) override {
        std::lock_guard<std::mutex> hold(state_->mutex);
        state_->running = false;
    }
    // The program's end (the layer's statics, threads still running) is
    // watched as one more test.
    void OnTestProgramEnd(const ::testing::UnitTest &) override {
        Start("the program's end, after its last test");
    }

  private:
    struct State {
        explicit State(std::chrono::seconds l) : limit(l) {}
        const std::chrono::seconds limit;
        std::mutex mutex;
        std::string name;
        std::chrono::steady_clock::time_point started;
        bool running = false;
    };

    explicit Watchdog(State *state) : state_(state) {}

    void Start(std::string name) {
        std::lock_guard<std::mutex> hold(state_->mutex);
        state_->name = std::move(name);
        state_->started = std::chrono::steady_clock::now();
        state_->running = true;
    }

    static void Watch(State *s) {
        std::string name;
        for (;;) {
            std::this_thread::sleep_for(std::chrono::seconds(1));
            {
                std::lock_guard<std::mutex> hold(s->mutex);
                if (!s->running || std::chrono::steady_clock::now() - s->started < s->limit) {
                    continue;
                }
                name = s->name;
            }
            std::fprintf(stderr, "\nwatchdog: %s has run for %lld s; every thread's stack:\n",
                         name.c_str(), static_cast<long long>(s->limit.count()));
            std::fflush(stdout);
            std::fflush(stderr);
            DumpStacks();
            std::_Exit(124);
        }
    }

    // The program's stacks, then those of the processes it started (a
    // hung test may be waiting for one of them), found through the
    // kernel's lists of each thread's children.
    static void DumpStacks() {
        // Lets a child attach where the kernel only allows attaching to
        // descendants.
        ::prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY, 0, 0, 0);
        // At most kMost processes are dumped, the program first; a test
        // that started more gets the rest counted, not dumped.
        constexpr size_t kMost = 16;
        std::vector<std::string> pids{std::to_string(::getpid())};
        size_t unlisted = 0;
        for (size_t i = 0; i < pids.size(); ++i) {
            std::error_code ec;
            for (const auto &task :
                 std::filesystem::directory_iterator("/proc/" + pids[i] + "/task", ec)) {
                std::ifstream in(task.path() / "children");
                for (std::string child; in >> child;) {
                    if (pids.size() < kMost) {
                        pids.push_back(child);
                    } else {
                        ++unlisted;
                    }
                }
            }
        }
        if (unlisted != 0) {
            std::fprintf(stderr, "\nwatchdog: %zu more processes not dumped\n", unlisted);
        }
        for (const std::string &pid : pids) {
            std::fprintf(stderr, "\nwatchdog: process %s\n", pid.c_str());
            std::fflush(stderr);
            const pid_t gdb = ::fork();
            if (gdb == 0) {
                ::dup2(STDERR_FILENO, STDOUT_FILENO);
                ::execlp("gdb", "gdb", "-q", "-batch", "-p", pid.c_str(), "-ex",
                         "thread apply all bt", static_cast<char *>(nullptr));
                // No stdio after a fork in a program with threads.
                static constexpr char kNoGdb[] = "watchdog: no gdb to print the stacks\n";
                [[maybe_unused]] const ssize_t n =
                    ::write(STDERR_FILENO, kNoGdb, sizeof(kNoGdb) - 1);
                std::_Exit(127);
            }
            if (gdb < 0) {
                std::fprintf(stderr, "watchdog: cannot start gdb for process %s\n", pid.c_str());
                continue;
            }
            while (::waitpid(gdb, nullptr, 0) < 0 && errno == EINTR) {
            }
        }
    }

    State *state_;
};

// Every test program links this file, so each gets the watchdog.
const bool g_watchdog = (Watchdog::Install(), true);

}  // namespace

}  // namespace ktest

void ZosTest::SetUp() {
    {
        const std::lock_guard<std::mutex> lock(ktest::g_netLock);
        ktest::g_netBlocks.clear();
    }
    ktest::Slot(0) = reinterpret_cast<ZOS_OSDEP_FUNC>(ktest::HeapMalloc);
    ktest::Slot(1) = reinterpret_cast<ZOS_OSDEP_FUNC>(ktest::HeapRealloc);
    ktest::Slot(2) = reinterpret_cast<ZOS_OSDEP_FUNC>(ktest::HeapFree);
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
    const std::lock_guard<std::mutex> lock(ktest::g_netLock);
    EXPECT_TRUE(ktest::g_netBlocks.empty())
        << ktest::g_netBlocks.size() << " blocks kept after shut-down, the first of "
        << ktest::g_netBlocks.begin()->second.size << " bytes";
}
