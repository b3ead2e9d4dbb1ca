// Shared fixture: starts the layer for each test, records what it prints
// (through the configuration's print hook) and every line of the system
// log (through a log watcher).
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <initializer_list>
#include <string>
#include <thread>
#include <vector>

#include "kestro_lite.h"

namespace ktest {

// Everything printed through the print hook since the last Clear.
std::string Printed();
void ClearPrinted();
// The hook itself, for tests that start the layer on their own.
void PrintHook(const char *text);

// One line of the system log: its level bit and its message (no prefix).
struct LogLine {
    uint32_t level;
    std::string msg;
};
// Lines the system log wrote since the last ClearLogged (thread-safe).
std::vector<LogLine> Logged();
void ClearLogged();
// True when a recorded message contains the text.
bool LoggedContains(const std::string &text);
// Of the lines prefix + name + suffix, one a name, those not recorded, one
// a line; empty when every one was.
std::string NotLogged(const std::string &prefix, std::initializer_list<const char *> names,
                      const std::string &suffix);
// Installs the recording watcher on the system log (the fixture does this
// after start-up; tests that start the layer on their own call it).
void WatchSystemLog();

// The platform table slot n of the current holder (created on demand), so a
// test can replace an operation and restore it. Reads and writes go through
// atomics, as the library's own reads do, since the layer's threads may
// call through a slot while a test replaces it.
class SlotRef {
  public:
    explicit SlotRef(ZOS_OSDEP_FUNC *slot) : slot_(slot) {}
    SlotRef(const SlotRef &) = default;
    operator ZOS_OSDEP_FUNC() const { return __atomic_load_n(slot_, __ATOMIC_RELAXED); }
    SlotRef &operator=(ZOS_OSDEP_FUNC fn) {
        __atomic_store_n(slot_, fn, __ATOMIC_RELAXED);
        return *this;
    }
    // Assigning one slot to another copies the function, as with references.
    SlotRef &operator=(const SlotRef &other) { return *this = static_cast<ZOS_OSDEP_FUNC>(other); }

  private:
    ZOS_OSDEP_FUNC *slot_;
};
SlotRef Slot(uint32_t n);

// A platform heap for allocation-failure tests (install FailingMalloc and
// CountingFree in the heap slots): the g_failAt-th call since g_calls was
// last zeroed fails (never with 0), g_live counts blocks handed out and not
// yet back, and g_lastSize is the size last asked for. Safe to use from the
// layer's own threads.
extern std::atomic<int> g_failAt;
extern std::atomic<int> g_calls;
extern std::atomic<int> g_live;
extern std::atomic<uint32_t> g_lastSize;
void *FailingMalloc(uint32_t size);
void CountingFree(void *p);
// The platform's heap, through the record of blocks that ZosTest keeps to
// tell what a test's shut-down leaves behind: ZosTest puts these in the
// heap slots, and the test heaps end in them.
void *HeapMalloc(uint32_t size);
void *HeapRealloc(void *p, uint32_t size);
void HeapFree(void *p);
// For a scope, FailingMalloc counts (and fails) the allocations of the
// thread that made it only, starting from zero, and passes other threads'
// through; g_live counts that thread's blocks not yet back, whichever
// thread gives them back. For tests that count their own blocks while the
// layer's threads allocate too.
class CountThisThread {
  public:
    CountThisThread();
    ~CountThisThread();
    CountThisThread(const CountThisThread &) = delete;
    CountThisThread &operator=(const CountThisThread &) = delete;
};
// Installs a heap's allocate and free in the platform's heap slots for a
// scope, and puts the previous pair back at its end.
class HeapSlots {
  public:
    HeapSlots(void *(*alloc)(uint32_t), void (*release)(void *));
    ~HeapSlots();
    HeapSlots(const HeapSlots &) = delete;
    HeapSlots &operator=(const HeapSlots &) = delete;

  private:
    ZOS_OSDEP_FUNC malloc_;
    ZOS_OSDEP_FUNC free_;
};
// Installs FailingMalloc and CountingFree in the heap slots for a scope.
class FailingHeap : public HeapSlots {
  public:
    FailingHeap() : HeapSlots(FailingMalloc, CountingFree) {}
};
// A heap that refuses every allocation for a scope (frees still work).
void *RefusingMalloc(uint32_t size);
class RefusingHeap : public HeapSlots {
  public:
    RefusingHeap() : HeapSlots(RefusingMalloc, HeapFree) {}
};

// True once pred holds, polling every millisecond for at most `limit`;
// at the limit, pred's last value.
template <typename P>
bool Eventually(P pred, std::chrono::milliseconds limit = std::chrono::milliseconds(5000)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!pred()) {
        if (std::chrono::steady_clock::now() > end) return pred();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Directory for files a test writes (under the build tree, or /tmp).
std::string TempDir();
// A fresh, empty directory under TempDir for one test.
std::string FreshDir(const std::string &name);
// The content of tests/golden/<name>, byte for byte ("" if missing).
std::string Golden(const std::string &name);
// Text with every match of the pattern replaced (for masking times and
// addresses before a golden comparison).
std::string Mask(const std::string &text, const std::string &pattern, const std::string &with);

// The whole content of a file ("" when missing), and the entries of a
// directory with their paths, sorted by name.
std::string ReadFile(const std::string &path);
std::vector<std::string> FilesIn(const std::string &dir);

// The whole content of a data buffer as one string (its copy must succeed).
std::string DbufText(ZDBUF buf);
// Takes every buffer header the default data-buffer pool still hands out
// (with a heap that refuses, that is every free one); the caller deletes
// them.
std::vector<ZDBUF> TakeFreeHeaders();

// Points the configuration's log directory at TempDir()/logs, so the
// system log's files stay out of the working directory. Call before
// Zos_SysInit.
void UseTestLogDir();

}  // namespace ktest

class ZosTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;
};

// The layer started without threads: its own tasks (the timer, the module
// manager, the log task) are registered but never run, so a test may
// replace platform slots or flip configuration switches that those tasks
// would otherwise use at the same time.
class ZosQuietTest : public ZosTest {
  protected:
    void SetUp() override;
    void TearDown() override;
};
