// Timers: the queue timer on a fake clock (ticks, order, periodic drift,
// delete after firing, stop and delete while running, limits and texts),
// the self manager's task, the OS manager's arming of the platform timer,
// the host timer on the looper, and the log task.
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "zos_test.h"
#include "zpand_looper.h"

namespace {

using namespace std::chrono_literals;

std::atomic<uint64_t> g_nowNs{0};
uint64_t FakeHrTime() {
    return g_nowNs.load();
}

// Freezes the high-resolution clock at a tick.
void SetTick(uint64_t tick) {
    g_nowNs = tick * ZOS_TIMER_TICK_NS;
}
void UseFakeClock(uint64_t tick) {
    SetTick(tick);
    ktest::Slot(8) = reinterpret_cast<ZOS_OSDEP_FUNC>(FakeHrTime);
}

// What callbacks saw: (timer id, tick of the clock at firing).
std::mutex g_firedLock;
std::vector<std::pair<uint32_t, uint64_t>> g_fired;
void Record(uint32_t id, uint32_t /*type*/, uintptr_t /*parm*/) {
    std::lock_guard<std::mutex> lock(g_firedLock);
    g_fired.emplace_back(id, Zos_GetHrTime() / ZOS_TIMER_TICK_NS);
}
std::vector<std::pair<uint32_t, uint64_t>> Fired() {
    std::lock_guard<std::mutex> lock(g_firedLock);
    return g_fired;
}
size_t FiredCount() {
    std::lock_guard<std::mutex> lock(g_firedLock);
    return g_fired.size();
}

using ktest::Eventually;

class QTimerTest : public ZosTest {
  protected:
    void SetUp() override {
        ZosTest::SetUp();
        g_fired.clear();
        UseFakeClock(1000);
        ASSERT_EQ(Zos_QTimerCreate(&q_, 8), ZOK);
    }
    void TearDown() override {
        Zos_QTimerDelete(q_);
        ZosTest::TearDown();
    }
    uint32_t Make(uint32_t flags = 0) {
        uint32_t id = ZOS_INVALID_ID;
        Zos_QTimerTmrCreate(q_, ZOS_INVALID_ID, flags, &id);
        return id;
    }
    void Process(uint64_t tick) {
        SetTick(tick);
        ASSERT_EQ(Zos_QTimerProcess(q_), ZOK);
    }
    uint32_t Start(uint32_t id, uint32_t ticks, PFN_ZOS_TIMER_CB cb = Record) {
        return Zos_QTimerTmrStart(q_, id, 0, ticks, 0, cb);
    }
    // Running timers, busy expiry nodes and the peak of the latter.
    std::vector<uint32_t> Counts() {
        uint32_t c[3] = {9, 9, 9};
        Zos_QTimerTmrGetCount(q_, &c[0], &c[1], &c[2]);
        return {c[0], c[1], c[2]};
    }
    ZQTIMER q_ = nullptr;
};

TEST_F(QTimerTest, CreateLimitsAndIdsInOrder) {
    ZQTIMER bad = nullptr;
    EXPECT_EQ(Zos_QTimerCreate(&bad, -1), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("QTimerCreate inputs invalid."));
    EXPECT_EQ(Zos_QTimerCreate(&bad, 0x7FFFFFFF), ZFAILED);  // tables past 2 GB
    EXPECT_TRUE(ktest::LoggedContains("QTimerCreate alloc tnode."));
    for (uint32_t i = 0; i < 8; ++i) EXPECT_EQ(Make(), i);
    uint32_t id = 0;
    EXPECT_EQ(Zos_QTimerTmrCreate(q_, 1, 0, &id), ZFAILED);
    EXPECT_EQ(id, ZOS_INVALID_ID);
    EXPECT_TRUE(ktest::LoggedContains("QTimerTmrCreate no free node(total:8)."));
    EXPECT_EQ(Zos_QTimerTmrDelete(q_, 3), ZOK);
    EXPECT_EQ(Make(), 3u);
    // The first id past the table, or none, is no timer to insert.
    EXPECT_EQ(Zos_QTimerTmrInsert(q_, 8) + Zos_QTimerTmrInsert(q_, ZOS_INVALID_ID), 2 * ZFAILED);
    EXPECT_EQ(Counts()[0], 0u);
}

TEST_F(QTimerTest, FiresAtExactTickInTickThenStartOrder) {
    const uint32_t late = Make(), a = Make(), b = Make(), early = Make();
    for (auto [id, ticks] : {std::pair{late, 9u}, {a, 5u}, {b, 5u}, {early, 2u}})
        ASSERT_EQ(Start(id, ticks), ZOK);
    EXPECT_EQ(Counts(), (std::vector<uint32_t>{4, 3, 3})) << "a and b share one expiry node";
    for (uint64_t t = 1000; t <= 1010; ++t) Process(t);
    const std::vector<std::pair<uint32_t, uint64_t>> want{
        {early, 1002}, {a, 1005}, {b, 1005}, {late, 1009}};
    EXPECT_EQ(Fired(), want);
    EXPECT_EQ(Counts(), (std::vector<uint32_t>{0, 0, 3}));
    EXPECT_EQ(Zos_QTimerTmrGetState(q_, a), ZOS_TIMER_STATE_IDLE);
}

TEST_F(QTimerTest, PeriodicDriftsByProcessingDelayAndZeroTicksFiresOncePerPass) {
    const uint32_t p = Make(ZOS_TIMER_FLAG_PERIOD), z = Make(ZOS_TIMER_FLAG_PERIOD);
    ASSERT_EQ(Start(p, 10), ZOK);
    Process(1013);  // three ticks late: the next run counts from 1013
    Process(1022);
    Process(1023);
    const std::vector<std::pair<uint32_t, uint64_t>> want{{p, 1013}, {p, 1023}};
    EXPECT_EQ(Fired(), want);
    g_fired.clear();
    ASSERT_EQ(Start(z, 0), ZOK);
    Process(1024);
    Process(1024);
    EXPECT_EQ(FiredCount(), 2u) << "a 0-tick periodic timer fires once per processing";
    EXPECT_EQ(Zos_QTimerTmrGetState(q_, z), ZOS_TIMER_STATE_RUN);
}

TEST_F(QTimerTest, DeleteAfterFiringWinsOverPeriodic) {
    const uint32_t d = Make(ZOS_TIMER_FLAG_DELETE | ZOS_TIMER_FLAG_PERIOD);
    ASSERT_EQ(Start(d, 1), ZOK);
    Process(1001);
    EXPECT_EQ(FiredCount(), 1u);
    EXPECT_EQ(Zos_QTimerTmrGetState(q_, d), ZOS_TIMER_STATE_FREE);
    Process(1002);
    EXPECT_EQ(FiredCount(), 1u);
}

TEST_F(QTimerTest, StartStopDeleteTexts) {
    const uint32_t t = Make();
    EXPECT_EQ(Start(8, 1), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("QTimerTmrStart invalid id[8]."));
    EXPECT_EQ(Start(5, 1), ZFAILED);  // a free node
    EXPECT_TRUE(ktest::LoggedContains("QTimerTmrStart timer not idle."));
    ASSERT_EQ(Start(t, 4), ZOK);
    ktest::ClearLogged();
    EXPECT_EQ(Zos_QTimerTmrStart(q_, t, 0, 4, 0, Record), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("QTimerTmrStart timer not idle."));
    EXPECT_EQ(Zos_QTimerTmrStop(q_, 9), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("QTimerTmrStop invalid id[9]."));
    EXPECT_EQ(Zos_QTimerTmrStop(q_, 6), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("QTimerTmrStop invalid state."));
    EXPECT_EQ(Zos_QTimerTmrDelete(q_, 100), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("QTimerTmrDelete invalid id[100]."));
    EXPECT_EQ(Zos_QTimerTmrDelete(q_, 6), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("QTimerTmrDelete invalid state."));

    uint32_t remain = 0, len = 0;
    SetTick(1001);
    ASSERT_EQ(Zos_QTimerTmrGetStatus(q_, t, &remain, &len), ZOK);
    EXPECT_EQ(remain, 30u);
    EXPECT_EQ(len, 40u);
    EXPECT_EQ(Zos_QTimerTmrStop(q_, t), ZOK);
    EXPECT_EQ(Zos_QTimerTmrStop(q_, t), ZOK) << "stopping an idle timer does nothing";
    uint32_t running = 1, busy = 1;
    Zos_QTimerTmrGetCount(q_, &running, &busy, nullptr);
    EXPECT_EQ(running, 0u);
    EXPECT_EQ(busy, 0u) << "the emptied expiry node went back";
    ASSERT_EQ(Start(t, 4), ZOK);
    EXPECT_EQ(Zos_QTimerTmrDelete(q_, t), ZOK);  // running: taken out first
    Process(1010);
    EXPECT_EQ(FiredCount(), 0u);
    Zos_QTimerTmrGetCount(q_, &running, &busy, nullptr);
    EXPECT_EQ(running + busy, 0u);
}

TEST_F(QTimerTest, DriveLengths) {
    EXPECT_EQ(Zos_QTimerTmrGetDrvLen(q_), ZOS_TIMER_DRV_MAX_MS);
    const uint32_t t = Make();
    const struct {
        uint32_t ticks;
        uint64_t at;
        uint32_t ms;
    } cases[] = {{1, 1000, 10},
                 {2, 1000, 20},
                 {5, 1010, 10} /* overdue */,
                 {36000, 1000, 360000},
                 {36001, 1000, ZOS_TIMER_DRV_MAX_MS}};
    for (const auto &c : cases) {
        SetTick(1000);
        ASSERT_EQ(Start(t, c.ticks), ZOK);
        SetTick(c.at);
        EXPECT_EQ(Zos_QTimerTmrGetDrvLen(q_), c.ms) << c.ticks;
        Zos_QTimerTmrStop(q_, t);
    }
}

// Callbacks that change the queue while it is being processed.
ZQTIMER g_q = nullptr;
uint32_t g_victim = 0;
void StopsVictim(uint32_t id, uint32_t type, uintptr_t parm) {
    Record(id, type, parm);
    Zos_QTimerTmrStop(g_q, g_victim);
}
void DeletesAndRecreates(uint32_t id, uint32_t type, uintptr_t parm) {
    Record(id, type, parm);
    Zos_QTimerTmrDelete(g_q, id);
    uint32_t again = ZOS_INVALID_ID;
    Zos_QTimerTmrCreate(g_q, ZOS_INVALID_ID, 0, &again);
}

TEST_F(QTimerTest, CallbacksMayStopAndDeleteDuringProcessing) {
    g_q = q_;
    const uint32_t stopper = Make();
    g_victim = Make();
    ASSERT_EQ(Start(stopper, 1, StopsVictim), ZOK);
    ASSERT_EQ(Start(g_victim, 1), ZOK);
    Process(1001);
    ASSERT_EQ(FiredCount(), 1u) << "the stopped timer of the same tick did not fire";

    // A delete-after-firing timer deleted by its own callback, its id
    // handed out again at once: the purge leaves the new timer alone.
    const uint32_t self = Make(ZOS_TIMER_FLAG_DELETE);
    while (Make() != ZOS_INVALID_ID) {
    }
    ASSERT_EQ(Start(self, 1, DeletesAndRecreates), ZOK);
    Process(1002);
    EXPECT_EQ(Zos_QTimerTmrGetState(q_, self), ZOS_TIMER_STATE_IDLE);
}

TEST_F(QTimerTest, DeadQueueIsRefused) {
    ZQTIMER dead = nullptr;
    ASSERT_EQ(Zos_QTimerCreate(&dead, 2), ZOK);
    ASSERT_EQ(Zos_QTimerDelete(dead), ZOK);
    uint32_t id = 0;
    EXPECT_EQ(Zos_QTimerTmrCreate(dead, 0, 0, &id) + Zos_QTimerTmrStart(dead, 0, 0, 1, 0, Record) +
                  Zos_QTimerProcess(dead) + Zos_QTimerDelete(dead),
              4 * ZFAILED);
    // Every timer call on a deleted queue, or on none, is refused.
    for (ZQTIMER q : {dead, static_cast<ZQTIMER>(nullptr)}) {
        uint32_t remain = 1, len = 1, running = 1;
        EXPECT_EQ(Zos_QTimerTmrCreateX(q, 0, 0, 0, 0, Record, &id) + Zos_QTimerTmrDelete(q, 0) +
                      Zos_QTimerTmrInsert(q, 0) + Zos_QTimerTmrStartX(q, 0, 1) +
                      Zos_QTimerOsTmrStartX(q, 0, 1) + Zos_QTimerTmrStop(q, 0) +
                      Zos_QTimerTmrGetStatus(q, 0, &remain, &len) +
                      Zos_QTimerTmrGetCount(q, &running, nullptr, nullptr),
                  8 * ZFAILED);
        EXPECT_EQ(remain + len, 0u);
        EXPECT_EQ(Zos_QTimerTmrGetState(q, 0), ZOS_TIMER_STATE_FREE);
        EXPECT_EQ(Zos_QTimerTmrGetDrvLen(q), ZOS_TIMER_DRV_MAX_MS);
    }
}

// ---------------------------------------------------------------------
// The self manager and its task

class TimerTest : public ZosTest {
  protected:
    void SetUp() override {
        ZosTest::SetUp();
        g_fired.clear();
    }
};

TEST_F(TimerTest, LengthRulesOfStartAndStartX) {
    UseFakeClock(5000);
    uint32_t a = 0, b = 0;
    ASSERT_EQ(Zos_TimerCreate(ZOS_INVALID_ID, 0, &a), ZOK);
    ASSERT_EQ(Zos_TimerCreateX(ZOS_INVALID_ID, 0, 7, 0, Record, &b), ZOK);
    EXPECT_EQ(Zos_TimerStart(a, 0, 0, 0, Record), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("TimerStart timer length is 0."));
    EXPECT_EQ(Zos_TimerStartX(b, 0), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("TimerStartX timer length is 0."));

    Zos_LogOpen(Zos_LogGetZosId(), ZOS_LOG_LEVEL_WARN);
    ASSERT_EQ(Zos_TimerStart(a, 0, 5, 0, Record), ZOK);
    EXPECT_TRUE(ktest::LoggedContains("TimerStart time len(5ms) too short."));
    uint32_t remain = 0, len = 0;
    ASSERT_EQ(Zos_TimerGetStatus(a, &remain, &len), ZOK);
    EXPECT_EQ(len, 10u) << "raised to one tick";
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(FiredCount(), 0u) << "the clock has not moved";
    SetTick(5001);
    ASSERT_TRUE(Eventually([] { return FiredCount() == 1; }));

    // StartX keeps 5 ms as 0 ticks: due at once, without the clock moving.
    ASSERT_EQ(Zos_TimerStartX(b, 5), ZOK);
    EXPECT_TRUE(ktest::LoggedContains("TimerStartX time len(5ms) too short."));
    ASSERT_TRUE(Eventually([] { return FiredCount() == 2; }));
    const std::vector<std::pair<uint32_t, uint64_t>> want{{a, 5001}, {b, 5001}};
    EXPECT_EQ(Fired(), want);

    // One tick exactly is long enough for both.
    ktest::ClearLogged();
    ASSERT_EQ(Zos_TimerStart(a, 0, ZOS_TIMER_TICK_MS, 0, Record), ZOK);
    ASSERT_EQ(Zos_TimerStartX(b, ZOS_TIMER_TICK_MS), ZOK);
    EXPECT_FALSE(ktest::LoggedContains("too short."));
}

TEST_F(TimerTest, StartingRunningTimerAndCapacity) {
    uint32_t id = 0;
    ASSERT_EQ(Zos_TimerCreate(ZOS_INVALID_ID, 0, &id), ZOK);
    ASSERT_EQ(Zos_TimerStart(id, 0, 60000, 0, Record), ZOK);
    EXPECT_EQ(Zos_TimerIsRun(id), 1u);
    EXPECT_EQ(Zos_TimerStart(id, 0, 60000, 0, Record), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("QTimerTmrStart timer not idle."));
    EXPECT_TRUE(ktest::LoggedContains("TimerStart start timer."));
    EXPECT_EQ(Zos_TimerDelete(id), ZOK);  // deleting a running timer
    EXPECT_EQ(Zos_TimerGetState(id), ZOS_TIMER_STATE_FREE);
    EXPECT_EQ(Zos_TimerStop(id), ZOK) << "a timer that does not run: nothing to stop";

    std::vector<uint32_t> ids;
    for (uint32_t i = 0; i < Zos_CfgGetTimerCount(); ++i) {
        ASSERT_EQ(Zos_TimerCreate(ZOS_INVALID_ID, 0, &id), ZOK) << i;
        ids.push_back(id);
    }
    EXPECT_EQ(Zos_TimerCreate(ZOS_INVALID_ID, 0, &id), ZFAILED);
    EXPECT_EQ(id, ZOS_INVALID_ID);
    EXPECT_TRUE(ktest::LoggedContains("QTimerTmrCreate no free node(total:2000)."));
    EXPECT_TRUE(ktest::LoggedContains("TimerCreate create timer node."));
    for (uint32_t t : ids) Zos_TimerDelete(t);
}

// The task sleeps until the soonest expiry, yet fires on the same ticks
// and in the same order as processing at every tick would: the clock is
// stepped through every tick, and a 0-tick timer (due at once, so it
// wakes the task) marks the end of each tick's processing.
std::atomic<uint32_t> g_marks{0};
void Mark(uint32_t, uint32_t, uintptr_t) {
    ++g_marks;
}

TEST_F(TimerTest, SleepingTaskKeepsTicksAndOrder) {
    UseFakeClock(100);
    uint32_t mark = 0, p = 0, one = 0, two = 0, three = 0;
    ASSERT_EQ(Zos_TimerCreateX(ZOS_INVALID_ID, 0, 0, 0, Mark, &mark), ZOK);
    ASSERT_EQ(Zos_TimerCreate(ZOS_INVALID_ID, ZOS_TIMER_FLAG_PERIOD, &p), ZOK);
    ASSERT_EQ(Zos_TimerCreate(ZOS_INVALID_ID, 0, &one), ZOK);
    ASSERT_EQ(Zos_TimerCreate(ZOS_INVALID_ID, 0, &two), ZOK);
    ASSERT_EQ(Zos_TimerCreate(ZOS_INVALID_ID, 0, &three), ZOK);
    ASSERT_EQ(Zos_TimerStart(p, 0, 70, 0, Record), ZOK);
    ASSERT_EQ(Zos_TimerStart(two, 0, 120, 0, Record), ZOK);
    ASSERT_EQ(Zos_TimerStart(one, 0, 120, 0, Record), ZOK);
    ASSERT_EQ(Zos_TimerStart(three, 0, 30, 0, Record), ZOK);
    for (uint64_t tick = 101; tick <= 122; ++tick) {
        SetTick(tick);
        const uint32_t before = g_marks;
        ASSERT_EQ(Zos_TimerStartX(mark, 1), ZOK);
        ASSERT_TRUE(Eventually([before] { return g_marks == before + 1; })) << tick;
    }
    const std::vector<std::pair<uint32_t, uint64_t>> want{{three, 103}, {p, 107}, {two, 112},
                                                          {one, 112},   {p, 114}, {p, 121}};
    EXPECT_EQ(Fired(), want);
}

// Wake-ups of the timer task, counted in the semaphore wait slot on the
// thread the callbacks run on.
std::atomic<pthread_t> g_timerThread{};
std::atomic<bool> g_timerThreadKnown{false};
std::atomic<uint32_t> g_timerWaits{0};
uint32_t CountingWait(ZSEM *sem, uint32_t ms) {
    if (g_timerThreadKnown && pthread_equal(pthread_self(), g_timerThread) != 0) ++g_timerWaits;
    return Zpand_SemWait(sem, ms);
}
void NoteThread(uint32_t id, uint32_t type, uintptr_t parm) {
    g_timerThread = pthread_self();
    g_timerThreadKnown = true;
    Record(id, type, parm);
}

TEST_F(TimerTest, TaskSleepsUntilTheSoonestExpiry) {
    g_timerThreadKnown = false;
    uint32_t p = 0;
    ASSERT_EQ(Zos_TimerCreate(ZOS_INVALID_ID, ZOS_TIMER_FLAG_PERIOD, &p), ZOK);
    ASSERT_EQ(Zos_TimerStart(p, 0, 300, 0, NoteThread), ZOK);
    ASSERT_TRUE(Eventually([] { return FiredCount() == 1; }));
    ktest::Slot(45) = reinterpret_cast<ZOS_OSDEP_FUNC>(CountingWait);
    g_timerWaits = 0;
    ASSERT_TRUE(Eventually([] { return FiredCount() == 5; }));
    // Read from the ticks the callbacks noted, not from when this thread saw
    // them, which a busy machine can delay.
    const auto fired = Fired();
    EXPECT_GE(fired[4].second - fired[0].second, 110u) << "four periods of 300 ms, in 10 ms ticks";
    // Polling every tick would wake about 120 times here.
    EXPECT_LE(g_timerWaits.load(), 8u);
    Zos_TimerStop(p);
}

// A manager's task start that must fail and give back every block it
// took, then fail again with its line. The first start runs with the
// layer's log closed, since a line is kept in a block that the log task
// frees on its own time.
void StartFailsKeepingNothing(void *mgr, const char *line) {
    const ZLOGID log = Zos_LogGetZosId();
    const uint32_t level = Zos_LogGetLevel(log);
    Zos_LogClose(log, level);
    {
        // The layer's other threads allocate meanwhile too.
        const ktest::CountThisThread only;
        {
            const ktest::FailingHeap heap;
            EXPECT_EQ(Zos_TimerTaskStart(mgr), ZFAILED) << line;
        }
        EXPECT_EQ(ktest::g_live, 0) << line;
    }
    Zos_LogOpen(log, level);
    EXPECT_EQ(Zos_TimerTaskStart(mgr), ZFAILED) << line;
    EXPECT_TRUE(ktest::LoggedContains(line)) << line;
}

// The same with one platform slot replaced for the start.
void StartFailsWithSlot(void *mgr, uint32_t slot, ZOS_OSDEP_FUNC replacement, const char *line) {
    const ZOS_OSDEP_FUNC saved = ktest::Slot(slot);
    ktest::Slot(slot) = replacement;
    StartFailsKeepingNothing(mgr, line);
    ktest::Slot(slot) = saved;
}

// The same with more timers configured than one block of nodes holds.
void StartFailsOnItsQueueTimer(void *mgr) {
    const uint32_t count = Zos_CfgGetTimerCount();
    ASSERT_EQ(Zos_CfgSetTimerCount(0x10000000), ZOK);
    StartFailsKeepingNothing(mgr, "TimerTaskStart create queue timer.");
    ASSERT_EQ(Zos_CfgSetTimerCount(count), ZOK);
}

// The self manager's task stopped and started again: a start that cannot
// make its semaphore, its queue timer or its task fails with its line and
// keeps none of them, and the next start runs timers again.
TEST_F(TimerTest, TaskStartFailsAtEachPartThenStartsAgain) {
    void *mgr = Zos_EnvLocateTmrMgr();
    ASSERT_NE(mgr, nullptr);
    Zos_TimerTaskStop(mgr);
    ASSERT_EQ(Zos_TaskGetTaskId("TIMER"), ZOS_INVALID_ID);
    const auto noSem = +[](ZSEM *, uint32_t) -> uint32_t { return ZFAILED; };
    StartFailsWithSlot(mgr, 42, reinterpret_cast<ZOS_OSDEP_FUNC>(noSem),
                       "TimerTaskStart create semaphore.");
    StartFailsOnItsQueueTimer(mgr);
    StartFailsWithSlot(mgr, 95, nullptr, "TimerTaskStart spawn task.");
    EXPECT_EQ(Zos_TaskGetTaskId("TIMER"), ZOS_INVALID_ID);

    ASSERT_EQ(Zos_TimerTaskStart(mgr), ZOK);
    uint32_t id = 0;
    ASSERT_EQ(Zos_TimerCreate(ZOS_INVALID_ID, 0, &id), ZOK);
    ASSERT_EQ(Zos_TimerStart(id, 0, 20, 0, Record), ZOK);
    EXPECT_TRUE(Eventually([] { return FiredCount() == 1; }));
}

// The OS manager's task the same way: a platform timer that will not
// start, a queue timer too large, and a task name already taken (its
// queue timer, made first, goes back).
TEST_F(TimerTest, OsTaskStartFailsAtEachPartThenStartsAgain) {
    void *os = Zos_EnvLocateOsTmrMgr();
    ASSERT_NE(os, nullptr);
    Zos_TimerTaskStop(os);
    ASSERT_EQ(Zos_TaskGetTaskId("TIMEROS"), ZOS_INVALID_ID);
    StartFailsWithSlot(os, 103,
                       reinterpret_cast<ZOS_OSDEP_FUNC>(+[]() -> uint32_t { return ZFAILED; }),
                       "TimerTaskStart init os timer.");
    StartFailsOnItsQueueTimer(os);
    uint32_t squatter = ZOS_INVALID_ID;
    const PFN_ZOS_MOD_ENTRY idle = [](void *) -> int32_t { return 0; };
    ASSERT_EQ(Zos_ModTaskStart("TIMEROS", 3, 0, 0, 0, nullptr, nullptr, idle, &squatter), ZOK);
    StartFailsKeepingNothing(os, "already exist.");
    ASSERT_EQ(Zos_ModTaskStop(squatter), ZOK);

    ASSERT_EQ(Zos_TimerTaskStart(os), ZOK);
    EXPECT_NE(Zos_TaskGetTaskId("TIMEROS"), ZOS_INVALID_ID);
}

TEST_F(TimerTest, DestroyTwiceAndUseAfterDestroy) {
    uint32_t id = 0;
    ASSERT_EQ(Zos_TimerCreate(ZOS_INVALID_ID, 0, &id), ZOK);
    ASSERT_EQ(Zos_TimerStart(id, 0, 1000, 0, Record), ZOK);
    void *self = Zos_EnvLocateTmrMgr();
    void *os = Zos_EnvLocateOsTmrMgr();
    ASSERT_NE(self, nullptr);
    ASSERT_NE(os, nullptr);
    Zos_TimerDestroy();
    Zos_TimerDestroy();
    // A stopped manager's task, or that of a record that is no manager,
    // is not started again.
    for (void *mgr : {self, os, static_cast<void *>(&id), static_cast<void *>(nullptr)}) {
        EXPECT_EQ(Zos_TimerTaskStart(mgr), ZFAILED);
        Zos_TimerTaskStop(mgr);
    }
    EXPECT_EQ(Zos_TaskGetTaskId("TIMER"), ZOS_INVALID_ID);
    EXPECT_EQ(Zos_EnvLocateTmrMgr(), nullptr);
    EXPECT_EQ(Zos_EnvLocateOsTmrMgr(), nullptr);
    EXPECT_EQ(Zos_TimerStart(id, 0, 1000, 0, Record), ZFAILED);
    EXPECT_EQ(Zos_TimerIsRun(id), 0u);
    EXPECT_EQ(Zos_TimerCreate(ZOS_INVALID_ID, 0, &id), ZFAILED);
    EXPECT_EQ(id, ZOS_INVALID_ID);

    // Started again, each manager says how it is driven and that it runs.
    ktest::ClearLogged();
    ASSERT_EQ(Zos_TimerInit(), ZOK);
    std::vector<std::string> lines;
    for (const ktest::LogLine &l : ktest::Logged()) {
        if (l.msg.find("imer") != std::string::npos) lines.push_back(l.msg);
    }
    EXPECT_EQ(lines,
              (std::vector<std::string>{"TimerInit SelfTaskDrv = 1.", "qtimer create ok.",
                                        "timer task active run.", "TimerInit init self timer ok.",
                                        "TimerInit OsTaskDrv = 1.", "qtimer create ok.",
                                        "timer task passive run.", "TimerInit init Os timer ok."}));
    // Once more while they run: nothing to do, and no manager made again.
    ktest::ClearLogged();
    EXPECT_EQ(Zos_TimerInit(), ZOK);
    EXPECT_FALSE(ktest::LoggedContains("TimerInit"));
    EXPECT_FALSE(ktest::LoggedContains("qtimer create ok."));
    ASSERT_EQ(Zos_TimerCreate(ZOS_INVALID_ID, 0, &id), ZOK);
    ASSERT_EQ(Zos_TimerStart(id, 0, 20, 0, Record), ZOK);
    EXPECT_TRUE(Eventually([] { return FiredCount() == 1; }));
}

// ---------------------------------------------------------------------
// The OS manager: what the platform timer is asked to do

std::mutex g_armLock;
std::vector<std::string> g_arms;
std::atomic<bool> g_startFails{false};
uint32_t RecStart(uint32_t ms, PFN_ZPAND_TIMER_CB) {
    std::lock_guard<std::mutex> lock(g_armLock);
    g_arms.push_back("start " + std::to_string(ms));
    return g_startFails ? ZFAILED : ZOK;
}
uint32_t RecStop() {
    std::lock_guard<std::mutex> lock(g_armLock);
    g_arms.push_back("stop");
    return ZOK;
}
std::vector<std::string> TakeArms() {
    std::lock_guard<std::mutex> lock(g_armLock);
    return std::exchange(g_arms, {});
}

TEST_F(TimerTest, OsManagerArmsForTheSoonestExpiryOnly) {
    UseFakeClock(10000);
    Zpand_TimerSetStart(RecStart);
    Zpand_TimerSetStop(RecStop);
    TakeArms();
    uint32_t a = 0, b = 0, c = 0;
    ASSERT_EQ(Zos_TimerOsCreate(ZOS_INVALID_ID, 0, &a), ZOK);
    ASSERT_EQ(Zos_TimerOsCreate(ZOS_INVALID_ID, 0, &b), ZOK);
    ASSERT_EQ(Zos_TimerOsCreate(ZOS_INVALID_ID, 0, &c), ZOK);
    ASSERT_EQ(Zos_TimerOsStart(a, 0, 1000, 0, Record), ZOK);
    EXPECT_EQ(TakeArms(), (std::vector<std::string>{"start 1000"}));
    ASSERT_EQ(Zos_TimerOsStart(b, 0, 2000, 0, Record), ZOK);
    EXPECT_TRUE(TakeArms().empty()) << "a later expiry never re-arms";
    ASSERT_EQ(Zos_TimerOsStart(c, 0, 400000, 0, Record), ZOK);
    EXPECT_TRUE(TakeArms().empty());
    ASSERT_EQ(Zos_TimerOsStop(a), ZOK);
    EXPECT_TRUE(TakeArms().empty()) << "b is later than what is armed";

    // The platform timer fires late: b is overdue and fires; c remains.
    SetTick(10250);
    Zos_TimerModDriven(0);
    EXPECT_EQ(Fired(), (std::vector<std::pair<uint32_t, uint64_t>>{{b, 10250}}));
    EXPECT_EQ(TakeArms(), (std::vector<std::string>{"start 3600000"}));
    // A sooner timer whose arming fails leaves nothing armed, so the next
    // change arms again for what is soonest then.
    g_startFails = true;
    ASSERT_EQ(Zos_TimerOsStart(b, 0, 1000, 0, Record), ZOK);
    g_startFails = false;
    EXPECT_EQ(TakeArms(), (std::vector<std::string>{"stop", "start 1000"}));
    ASSERT_EQ(Zos_TimerOsStop(b), ZOK);
    EXPECT_EQ(TakeArms(), (std::vector<std::string>{"start 3600000"}));
    ASSERT_EQ(Zos_TimerOsStart(a, 0, 5, 0, Record), ZOK);
    EXPECT_EQ(TakeArms(), (std::vector<std::string>{"stop", "start 10"}));
    ASSERT_EQ(Zos_TimerOsStop(a), ZOK);
    ASSERT_EQ(Zos_TimerOsStop(c), ZOK);
    SetTick(10260);
    Zos_TimerModDriven(0);
    EXPECT_TRUE(TakeArms().empty()) << "nothing runs and nothing is armed any more";
    // The running count's own calls: raised from nothing it arms for an hour
    // (nothing is queued); a check once it is back at nothing, or cleared,
    // stops the platform timer.
    void *os = Zos_EnvLocateOsTmrMgr();
    ASSERT_EQ(Zos_TimerRealNumInc(os), ZOK);
    EXPECT_EQ(TakeArms(), (std::vector<std::string>{"start 3600000"}));
    ASSERT_EQ(Zos_TimerRealNumDec(os, 5), ZOK);  // stops at nothing
    ASSERT_EQ(Zos_TimerRealNumChk(os), ZOK);
    EXPECT_EQ(TakeArms(), (std::vector<std::string>{"stop"}));
    ASSERT_EQ(Zos_TimerRealNumInc(os) + Zos_TimerRealNumInc(os) + Zos_TimerRealNumClr(os), ZOK);
    ASSERT_EQ(Zos_TimerRealNumChk(os), ZOK);
    EXPECT_EQ(TakeArms(), (std::vector<std::string>{"start 3600000", "stop"}));
    EXPECT_EQ(Zos_TimerRealNumInc(nullptr) + Zos_TimerRealNumDec(nullptr, 1) +
                  Zos_TimerRealNumChk(nullptr) + Zos_TimerRealNumClr(nullptr),
              4 * ZFAILED);
    Zpand_TimerSetStart(nullptr);
    Zpand_TimerSetStop(nullptr);
}

// Runs this thread's looper until done() holds or the limit passes; done()'s
// last value.
template <typename P>
bool PollUntil(P done, std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!done() && std::chrono::steady_clock::now() < end) {
        ALooper_pollOnce(5, nullptr, nullptr, nullptr);
    }
    return done();
}
constexpr auto kNever = [] { return false; };
std::atomic<int> g_hostRuns{0};
void CountHostRun(uint32_t) {
    ++g_hostRuns;
}

// The host timer's own calls, on this thread's looper (the layer's
// user-interface looper, when a start-up on this thread has named it): a
// zero length still runs once, a run is one-shot, and a stop drops a
// pending run.
TEST(TimerBridge, HostTimerRunsOnceAndNotAfterAStop) {
    g_hostRuns = 0;
    EXPECT_EQ(Zpand_HostTimerDestroy(), ZOK);  // nothing to take down
    EXPECT_EQ(Zpand_HostTimerStart(0, CountHostRun) + Zpand_HostTimerStop(), 2 * ZFAILED);
    ASSERT_NE(ALooper_prepare(0), nullptr);
    ASSERT_EQ(Zpand_HostTimerInit(), ZOK);
    EXPECT_EQ(Zpand_HostTimerInit(), ZOK);
    ASSERT_EQ(Zpand_HostTimerStart(0, CountHostRun), ZOK);
    PollUntil([] { return g_hostRuns != 0; }, 1s);
    EXPECT_EQ(g_hostRuns, 1) << "a zero length runs at once";
    PollUntil(kNever, 50ms);
    EXPECT_EQ(g_hostRuns, 1) << "one run per start";
    ASSERT_EQ(Zpand_HostTimerStart(20, CountHostRun), ZOK);
    std::this_thread::sleep_for(40ms);  // expired, not yet polled
    ASSERT_EQ(Zpand_HostTimerStop(), ZOK);
    PollUntil(kNever, 50ms);
    EXPECT_EQ(g_hostRuns, 1) << "a stopped timer does not call back";
    const auto t0 = std::chrono::steady_clock::now();
    ASSERT_EQ(Zpand_HostTimerStart(30, CountHostRun), ZOK);
    PollUntil([] { return g_hostRuns != 1; }, 2s);
    EXPECT_EQ(g_hostRuns, 2);
    EXPECT_GE(std::chrono::steady_clock::now() - t0, 30ms);
    EXPECT_EQ(Zpand_HostTimerDestroy(), ZOK);
    EXPECT_EQ(Zpand_HostTimerStart(0, CountHostRun), ZFAILED);
}

// The host timer: a timerfd on this thread's looper. (The slots without a
// hook and without a Java machine: test_pand.cpp.)
TEST(TimerBridge, HostTimerOnLooper) {
    ASSERT_NE(ALooper_prepare(0), nullptr);
    ASSERT_EQ(Zos_CfgSetPrintDisp(ktest::PrintHook), ZOK);
    ktest::UseTestLogDir();
    Zpand_HostTimerInstall();
    EXPECT_EQ(Zpand_TimerGetStart(), Zpand_HostTimerStart);
    ASSERT_EQ(Zos_SysInit(), ZOK);
    g_fired.clear();
    uint32_t a = 0, b = 0;
    ASSERT_EQ(Zos_TimerOsCreate(ZOS_INVALID_ID, ZOS_TIMER_FLAG_PERIOD, &a), ZOK);
    ASSERT_EQ(Zos_TimerOsCreate(ZOS_INVALID_ID, 0, &b), ZOK);
    const auto t0 = std::chrono::steady_clock::now();
    ASSERT_EQ(Zos_TimerOsStart(a, 0, 30, 0, Record), ZOK);
    ASSERT_EQ(Zos_TimerOsStart(b, 0, 200, 0, Record), ZOK);
    PollUntil([] { return FiredCount() >= 4; }, 3s);
    const auto fired = Fired();
    ASSERT_GE(fired.size(), 4u);
    EXPECT_EQ(fired[0].first, a);
    EXPECT_GE(std::chrono::steady_clock::now() - t0, 90ms) << "three periods of 30 ms";
    Zos_SysDestroy();
    Zpand_TimerSetInit(nullptr);
    Zpand_TimerSetDestroy(nullptr);
    Zpand_TimerSetStart(nullptr);
    Zpand_TimerSetStop(nullptr);
}

}  // namespace

namespace {

// ---------------------------------------------------------------------
// Timeouts as messages to the owner task

struct Got {
    uint32_t msgType, id, type;
    uintptr_t parm;
    bool onLoopThread;
};
std::mutex g_gotLock;
std::vector<Got> g_got;
pthread_t g_loopThread;

int32_t OwnerEntry(void *msg) {
    void *ev = Zos_MsgGetEvntId(msg);
    std::lock_guard<std::mutex> lock(g_gotLock);
    g_got.push_back(Got{Zos_MsgGetType(msg), Zos_TimerEvntGetId(ev), Zos_TimerEvntGetType(ev),
                        Zos_TimerEvntGetParm(ev),
                        pthread_equal(pthread_self(), g_loopThread) != 0});
    return 0;
}
std::vector<Got> TakeGot() {
    std::lock_guard<std::mutex> lock(g_gotLock);
    return std::exchange(g_got, {});
}

TEST_F(TimerTest, TimeoutReachesThreadedOwnerAsMessage) {
    g_loopThread = pthread_self();
    TakeGot();
    uint32_t task = 0, t = 0;
    ASSERT_EQ(Zos_ModTaskStart("TMROWN", 4, 0, 0, 0, nullptr, nullptr, OwnerEntry, &task), ZOK);
    ASSERT_EQ(Zos_TimerCreate(task, 0, &t), ZOK);
    EXPECT_EQ(Zos_TimerGetTaskId(t), task);
    ASSERT_EQ(Zos_TimerStart(t, 9, 20, 77, nullptr), ZOK);
    std::vector<Got> got;
    ASSERT_TRUE(Eventually([&got] {
        for (const Got &g : TakeGot()) got.push_back(g);
        return !got.empty();
    }));
    EXPECT_EQ(got[0].msgType, ZOS_TIMER_MSG_TYPE);
    EXPECT_EQ(got[0].id, t);
    EXPECT_EQ(got[0].type, 9u);
    EXPECT_EQ(got[0].parm, 77u);
    EXPECT_FALSE(got[0].onLoopThread) << "handled on the task's own thread";

    // A timeout to a task that is gone: the send fails and is logged.
    ASSERT_EQ(Zos_ModTaskStop(task), ZOK);
    ktest::ClearLogged();
    ASSERT_EQ(Zos_TimerStart(t, 9, 10, 77, nullptr), ZOK);
    const std::string text = "qtimer send timeout message to task <0x" + [task] {
        char hex[16];
        std::snprintf(hex, sizeof(hex), "%X", task);
        return std::string(hex);
    }() + ">.";
    EXPECT_TRUE(Eventually([&text] { return ktest::LoggedContains(text); })) << text;
}

uint32_t PostDriveThroughPipe() {
    return Zpand_UiProcEvnt(0, [](uintptr_t) { Zos_ModDriveMsg(); });
}

// The OS manager on the host loop: the host timer fires on this thread's
// looper, and the timeout reaches a task driven by the same loop.
TEST(TimerHostLoop, OsTimeoutReachesHostDrivenTask) {
    ASSERT_NE(ALooper_prepare(0), nullptr);
    g_loopThread = pthread_self();
    TakeGot();
    ASSERT_EQ(Zos_CfgSetPrintDisp(ktest::PrintHook), ZOK);
    ktest::UseTestLogDir();
    ASSERT_EQ(Zos_CfgSetModDrvMode(0), ZOK);
    Zpand_ModSetPostDrv(PostDriveThroughPipe);
    Zpand_HostTimerInstall();
    ASSERT_EQ(Zos_SysInit(), ZOK);
    EXPECT_EQ(Zos_OsdepFind(105), reinterpret_cast<ZOS_OSDEP_FUNC>(Zpand_TimerStart));
    uint32_t task = 0, t = 0;
    ASSERT_EQ(Zos_ModTaskStart("HOSTOWN", 4, 0, 0, 1, nullptr, nullptr, OwnerEntry, &task), ZOK);
    ASSERT_EQ(Zos_TimerOsCreate(task, ZOS_TIMER_FLAG_PERIOD, &t), ZOK);
    ASSERT_EQ(Zos_TimerOsStart(t, 3, 30, 5, nullptr), ZOK);
    std::vector<Got> got;
    PollUntil(
        [&] {
            for (const Got &g : TakeGot()) got.push_back(g);
            return got.size() >= 3;
        },
        3s);
    ASSERT_GE(got.size(), 3u);
    for (const Got &g : got) {
        EXPECT_EQ(g.msgType, ZOS_TIMER_MSG_TYPE);
        EXPECT_EQ(g.id, t);
        EXPECT_EQ(g.parm, 5u);
        EXPECT_TRUE(g.onLoopThread);
    }
    Zos_SysDestroy();
    Zpand_ModSetPostDrv(nullptr);
    Zpand_TimerSetInit(nullptr);
    Zpand_TimerSetDestroy(nullptr);
    Zpand_TimerSetStart(nullptr);
    Zpand_TimerSetStop(nullptr);
}

// ---------------------------------------------------------------------
// The log task, on the fake clock: its timer fires only when the clock
// reaches it.

class LogTaskTest : public ZosTest {
  protected:
    void SetUp() override {
        Zos_CfgSetLogTaskSupt(1);
        Zos_CfgSetLogTaskAlertTimeLen(100);
        Zos_CfgSetLogTaskCycleTimeLen(300);
        UseFakeClock(1000);
        ZosTest::SetUp();
        dir_ = ktest::FreshDir("logtask");
        log_ = Zos_LogCreateX("T", (dir_ + "/t.log").c_str(), ZOS_LOG_FLAG_MUTEX, ZOS_LOG_LEVEL_ALL,
                              4096);
        ASSERT_NE(log_, nullptr);
        timer_ = 0;  // the first timer of the self manager
        ASSERT_EQ(Zos_TimerGetTaskId(timer_), Zos_TaskGetTaskId("LOG"));
    }
    std::string Content() {
        std::string all;
        for (const std::string &f : ktest::FilesIn(dir_)) all += ktest::ReadFile(f);
        return all;
    }
    uint32_t TimerLen() {
        uint32_t remain = 0, len = 0;
        Zos_TimerGetStatus(timer_, &remain, &len);
        return len;
    }
    std::string dir_;
    ZLOGID log_ = nullptr;
    uint32_t timer_ = 0;
};

TEST_F(LogTaskTest, LinesReachTheFileAtExpiryThenAlertThenCycle) {
    EXPECT_EQ(TimerLen(), 100u) << "started with the alert interval";
    ASSERT_EQ(Zos_LogInfo(log_, "first line"), ZOK);
    std::this_thread::sleep_for(150ms);
    EXPECT_EQ(Content().find("first line"), std::string::npos) << "no expiry yet";
    SetTick(1010);
    ASSERT_TRUE(Eventually([this] { return Content().find("first line") != std::string::npos; }));
    ASSERT_TRUE(Eventually([this] { return Zos_TimerIsRun(timer_) != 0; }));
    EXPECT_EQ(TimerLen(), 100u) << "a cache held lines: the alert interval again";
    SetTick(1020);
    EXPECT_TRUE(Eventually([this] { return TimerLen() == 300u; }))
        << "nothing cached: the cycle interval";
}

TEST_F(LogTaskTest, RotationUnderTheTaskAndNothingLostAtShutDown) {
    Zos_CfgSetLogFileSize(300);
    for (int i = 0; i < 12; ++i) Zos_LogInfo(log_, "line %02d of the rotation test", i);
    SetTick(1010);
    ASSERT_TRUE(Eventually([this] { return Content().find("line 11") != std::string::npos; }));
    ASSERT_TRUE(Eventually([this] { return Zos_TimerIsRun(timer_) != 0; }));
    EXPECT_GE(ktest::FilesIn(dir_).size(), 3u);
    for (int i = 12; i < 15; ++i) Zos_LogInfo(log_, "line %02d after the last expiry", i);
    Zos_SysDestroy();
    const std::string all = Content();
    size_t at = 0;
    for (int i = 0; i < 15; ++i) {
        char want[16];
        std::snprintf(want, sizeof(want), "line %02d", i);
        const size_t pos = all.find(want, at);
        ASSERT_NE(pos, std::string::npos) << want;
        at = pos;
    }
}

// The log task stopped while the timer manager runs takes its timer along.
TEST_F(LogTaskTest, StoppedTaskDeletesItsTimer) {
    ASSERT_EQ(Zos_TimerGetState(timer_), ZOS_TIMER_STATE_RUN);
    ASSERT_EQ(Zos_ModTaskStop(Zos_TaskGetTaskId("LOG")), ZOK);
    EXPECT_TRUE(Eventually([this] { return Zos_TimerGetState(timer_) == ZOS_TIMER_STATE_FREE; }));
}

TEST(LogTaskStart, FailureAtStepElevenPrintsTheLogText) {
    ktest::ClearPrinted();
    ASSERT_EQ(Zos_CfgSetPrintDisp(ktest::PrintHook), ZOK);
    ktest::UseTestLogDir();
    Zos_CfgSetLogTaskSupt(1);
    Zos_CfgSetTimerCount(0);  // the task's timer cannot be made
    EXPECT_EQ(Zos_SysInit(), ZFAILED);
    const std::string out = ktest::Printed();
    EXPECT_NE(out.find("timer init ok."), std::string::npos) << out;
    EXPECT_NE(out.find("init log fail!\r\n"), std::string::npos) << out;
    EXPECT_EQ(out.find("log start ok."), std::string::npos);
    EXPECT_EQ(Zos_OsenvLocate(), nullptr);
}

}  // namespace
