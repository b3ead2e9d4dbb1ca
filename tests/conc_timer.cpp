// Timers under threads: starts, stops and deletes from several threads
// racing the timer task's firing; each start fires at most once, and
// deleted timers stay silent.
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>
#include <vector>

#include "zos_test.h"
#include "zpand_looper.h"

namespace {

using namespace std::chrono_literals;

constexpr uint32_t kThreads = 3;
constexpr uint32_t kPerThread = 24;

// Per timer slot: the generation its owner thread last started and the
// last generation that fired. Each start fires at most once and never
// before a later start's firing, so fired generations rise strictly.
struct Slot {
    std::atomic<uint32_t> started{0};
    std::atomic<uint32_t> lastFired{0};
    std::atomic<uint32_t> badFirings{0};
    std::atomic<uint32_t> firings{0};
};
Slot g_slots[kThreads * kPerThread];

void OnFire(uint32_t /*id*/, uint32_t gen, uintptr_t slot) {
    Slot &s = g_slots[slot];
    s.firings.fetch_add(1);
    if (gen > s.started.load() || gen <= s.lastFired.exchange(gen)) s.badFirings.fetch_add(1);
}

uint32_t TotalFirings() {
    uint32_t n = 0;
    for (const Slot &s : g_slots) n += s.firings.load();
    return n;
}

class TimerConc : public ZosTest {};

TEST_F(TimerConc, StopAndDeleteRaceFiring) {
    std::vector<std::thread> threads;
    std::atomic<uint32_t> failures{0};
    for (uint32_t t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &failures] {
            std::mt19937 rng(t + 1);
            uint32_t ids[kPerThread];
            for (uint32_t i = 0; i < kPerThread; ++i) {
                if (Zos_TimerCreate(ZOS_INVALID_ID, 0, &ids[i]) != ZOK) failures++;
            }
            const auto end = std::chrono::steady_clock::now() + 1500ms;
            while (std::chrono::steady_clock::now() < end) {
                const uint32_t i = rng() % kPerThread;
                Slot &s = g_slots[t * kPerThread + i];
                switch (rng() % 4) {
                    case 0:
                    case 1: {
                        if (Zos_TimerIsRun(ids[i]) != 0) break;
                        const uint32_t gen = s.started.fetch_add(1) + 1;
                        Zos_TimerStart(ids[i], gen, 10 + rng() % 30, t * kPerThread + i, OnFire);
                        break;
                    }
                    case 2:
                        if (Zos_TimerStop(ids[i]) != ZOK) failures++;
                        break;
                    default:
                        if (Zos_TimerDelete(ids[i]) != ZOK) failures++;
                        if (Zos_TimerCreate(ZOS_INVALID_ID, 0, &ids[i]) != ZOK) failures++;
                        break;
                }
                if (rng() % 8 == 0) std::this_thread::sleep_for(1ms);
            }
            for (uint32_t i = 0; i < kPerThread; ++i) Zos_TimerDelete(ids[i]);
        });
    }
    for (auto &th : threads) th.join();
    EXPECT_EQ(failures.load(), 0u);
    // Every timer is deleted: at most a firing already under way finishes.
    // The timer task runs its callbacks one after another, so once a timer
    // started now has fired, any such firing has ended.
    static std::atomic<bool> marked;
    marked = false;
    uint32_t mark = 0;
    ASSERT_EQ(Zos_TimerCreate(ZOS_INVALID_ID, 0, &mark), ZOK);
    ASSERT_EQ(Zos_TimerStart(mark, 0, 10, 0, [](uint32_t, uint32_t, uintptr_t) { marked = true; }),
              ZOK);
    ASSERT_TRUE(ktest::Eventually([] { return marked.load(); }));
    Zos_TimerDelete(mark);
    const uint32_t settled = TotalFirings();
    std::this_thread::sleep_for(150ms);
    EXPECT_EQ(TotalFirings(), settled) << "a deleted timer fired";
    uint32_t bad = 0;
    for (const Slot &s : g_slots) bad += s.badFirings.load();
    EXPECT_GT(settled, 0u);
    EXPECT_EQ(bad, 0u) << "a start fired twice or out of order";
}

}  // namespace

namespace {

// The OS manager under threads: two threads start and stop timers while
// the host timer fires on this thread's looper, which runs the callbacks.
std::atomic<uint32_t> g_osFired{0};
std::atomic<bool> g_offLoop{false};
pthread_t g_loop;
void OnOsFire(uint32_t, uint32_t, uintptr_t) {
    ++g_osFired;
    if (pthread_equal(pthread_self(), g_loop) == 0) g_offLoop = true;
}

void UninstallTimerHooks() {
    Zpand_TimerSetInit(nullptr);
    Zpand_TimerSetDestroy(nullptr);
    Zpand_TimerSetStart(nullptr);
    Zpand_TimerSetStop(nullptr);
}

void StartLayer() {
    ASSERT_EQ(Zos_CfgSetPrintDisp(ktest::PrintHook), ZOK);
    ktest::UseTestLogDir();
    ASSERT_EQ(Zos_SysInit(), ZOK);
}

TEST(TimerConcOs, StartStopRaceTheHostTimer) {
    ASSERT_NE(ALooper_prepare(0), nullptr);
    g_loop = pthread_self();
    Zpand_HostTimerInstall();
    StartLayer();
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (uint32_t t = 0; t < 2; ++t) {
        threads.emplace_back([t, &stop] {
            std::mt19937 rng(t + 7);
            uint32_t ids[8];
            for (uint32_t &id : ids) Zos_TimerOsCreate(ZOS_INVALID_ID, 0, &id);
            while (!stop) {
                const uint32_t id = ids[rng() % 8];
                if (rng() % 3 == 0) {
                    Zos_TimerOsStop(id);
                } else if (Zos_TimerOsIsRun(id) == 0) {
                    Zos_TimerOsStart(id, 0, 10 + rng() % 40, 0, OnOsFire);
                }
                std::this_thread::sleep_for(std::chrono::microseconds(300));
            }
            for (uint32_t id : ids) Zos_TimerOsDelete(id);
        });
    }
    const auto end = std::chrono::steady_clock::now() + 1s;
    while (std::chrono::steady_clock::now() < end) ALooper_pollOnce(20, nullptr, nullptr, nullptr);
    stop = true;
    for (auto &th : threads) th.join();
    EXPECT_GT(g_osFired.load(), 0u);
    EXPECT_FALSE(g_offLoop.load()) << "OS timer callbacks run on the loop thread";
    Zos_SysDestroy();
    UninstallTimerHooks();
}

// A platform timer that fires off the loop asks for processing with a drive
// request, which the manager turns into one message to its task at a time.
// Here a thread of the host makes those requests without pause while the
// task handles them; the task clears the posted mark under the manager's
// lock, and each started timer fires through this road alone (the platform
// timer itself never fires).
std::atomic<uint32_t> g_drivenFired{0};
void CountDriven(uint32_t, uint32_t, uintptr_t) {
    ++g_drivenFired;
}
uint32_t ArmNothing(uint32_t, PFN_ZPAND_TIMER_CB) {
    return ZOK;
}
uint32_t StopNothing() {
    return ZOK;
}
TEST(TimerConcOs, DriveRequestsFromAThreadOfTheHost) {
    g_drivenFired = 0;
    Zpand_TimerSetStart(ArmNothing);
    Zpand_TimerSetStop(StopNothing);
    StartLayer();
    uint32_t id = ZOS_INVALID_ID;
    ASSERT_EQ(Zos_TimerOsCreate(ZOS_INVALID_ID, 0, &id), ZOK);
    std::atomic<bool> stop{false};
    std::thread driver([&stop] {
        while (!stop) {
            Zos_TimerModDriven(1);
            std::this_thread::yield();
        }
    });
    for (uint32_t round = 1; round <= 20; ++round) {
        ASSERT_EQ(Zos_TimerOsStart(id, 0, 10, 0, CountDriven), ZOK);
        EXPECT_TRUE(ktest::Eventually([round] { return g_drivenFired.load() == round; }, 5s))
            << "round " << round << " fired " << g_drivenFired.load() << " times";
    }
    stop = true;
    driver.join();
    EXPECT_EQ(Zos_TimerOsIsRun(id), 0u);
    Zos_TimerOsDelete(id);
    Zos_SysDestroy();
    UninstallTimerHooks();
}

// A timer callback that takes `ms` to run; its parameter is its record.
struct Slow {
    uint32_t ms;
    std::atomic<bool> in{false};
    std::atomic<bool> done{false};
};
void SlowCallback(uint32_t, uint32_t, uintptr_t parm) {
    auto *slow = reinterpret_cast<Slow *>(parm);
    slow->in = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(slow->ms));
    slow->done = true;
}

// Shut-down with an OS timer expiry running on this thread's looper: the
// layer is shut down from another thread while the expiry's callback
// runs, and must wait for it before it frees the timers.
TEST(TimerConcOs, ShutDownWaitsForARunningExpiry) {
    ASSERT_NE(ALooper_prepare(0), nullptr);
    Zpand_HostTimerInstall();
    StartLayer();
    Slow slow{200};
    uint32_t id = ZOS_INVALID_ID;
    ASSERT_EQ(Zos_TimerOsCreate(ZOS_INVALID_ID, 0, &id), ZOK);
    ASSERT_EQ(Zos_TimerOsStart(id, 0, 20, reinterpret_cast<uintptr_t>(&slow), SlowCallback), ZOK);
    std::atomic<bool> destroyed{false};
    bool doneAtReturn = false;
    std::thread destroyer([&] {
        while (!slow.in) std::this_thread::sleep_for(1ms);
        Zos_SysDestroy();
        doneAtReturn = slow.done.load();
        destroyed = true;
    });
    while (!destroyed) ALooper_pollOnce(10, nullptr, nullptr, nullptr);
    destroyer.join();
    EXPECT_TRUE(doneAtReturn) << "shut-down returned while a timer callback still ran";
    UninstallTimerHooks();
}

// Shut-down while the timer task is inside a callback longer than the task
// delete's bounded wait: the delete gives up and releases the task, but the
// queue timer stays until the callback has returned and the task's loop
// has ended.
TEST(TimerConcShutDown, WaitsForACallbackThatOutlastsTheTaskDelete) {
    StartLayer();
    Slow slow{3500};
    uint32_t id = ZOS_INVALID_ID;
    ASSERT_EQ(Zos_TimerCreate(ZOS_INVALID_ID, 0, &id), ZOK);
    ASSERT_EQ(Zos_TimerStart(id, 0, 10, reinterpret_cast<uintptr_t>(&slow), SlowCallback), ZOK);
    while (!slow.in) std::this_thread::sleep_for(1ms);
    Zos_SysDestroy();
    EXPECT_TRUE(slow.done.load()) << "shut-down returned while a timer callback still ran";
}

// A timer callback on the timer task shuts the layer down. Shut-down cannot
// wait for the thread it runs on; when the callback returns, the task must
// end without touching the timers shut-down freed.
std::atomic<bool> g_downReturned{false};
void ShutsDown(uint32_t, uint32_t, uintptr_t) {
    Zos_SysDestroy();
    g_downReturned = true;
}
TEST(TimerConcShutDown, FromATimerCallback) {
    g_downReturned = false;
    StartLayer();
    uint32_t id = ZOS_INVALID_ID;
    ASSERT_EQ(Zos_TimerCreate(ZOS_INVALID_ID, 0, &id), ZOK);
    ASSERT_EQ(Zos_TimerStart(id, 0, 10, 0, ShutsDown), ZOK);
    ASSERT_TRUE(ktest::Eventually([] { return g_downReturned.load(); }, 20s));
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(Zos_OsenvLocate(), nullptr);
}

// Shut-down against timer users: threads restart their timers without
// pause while the layer shuts down. Once the timers are gone their calls
// are refused; none may reach the freed queue timer (AddressSanitizer and
// ThreadSanitizer watch this test).
TEST(TimerConcShutDown, CallsRacingShutDownAreRefused) {
    constexpr uint32_t kUsers = 3;
    for (int round = 0; round < 3; ++round) {
        StartLayer();
        std::atomic<uint32_t> starts{0};
        std::atomic<uint32_t> refused{0};
        std::vector<std::thread> users;
        for (uint32_t t = 0; t < kUsers; ++t) {
            users.emplace_back([&] {
                uint32_t id = ZOS_INVALID_ID;
                if (Zos_TimerCreate(ZOS_INVALID_ID, 0, &id) != ZOK) return;
                // The first refused start ends the thread: the layer is
                // going and nothing may be called after it has gone.
                while (Zos_TimerStop(id) == ZOK && Zos_TimerStart(id, 0, 5000, 0, nullptr) == ZOK) {
                    starts++;
                }
                refused++;
            });
        }
        while (starts < 2000 && refused == 0) std::this_thread::yield();
        EXPECT_EQ(refused.load(), 0u) << "a start failed before the shut-down";
        Zos_SysDestroy();
        for (auto &th : users) th.join();
        EXPECT_EQ(refused.load(), kUsers);
    }
}

}  // namespace
