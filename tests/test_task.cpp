// Tasks: spawning with clamped priorities, getters and their fallbacks,
// cooperative and forced deletion (the platform's delay and delete slots
// recorded), failures of the spawn slot, statistics and the debug listing.
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "mod_test.h"

namespace {

using ktest::Eventually;

// While set, a stopped cooperative task waits before it returns, so the
// state between the stop and the return can be seen.
std::atomic<bool> g_holdExit{false};
// An entry that returns once it is asked to stop (and not held).
uint32_t Cooperative(ST_ZOS_TASK_START *start) {
    while (__atomic_load_n(&start->uiState, __ATOMIC_ACQUIRE) != ZOS_TASK_WAIT_DELETE ||
           g_holdExit) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return 7;
}

// An entry that ignores the stop request until the test lets it go.
std::atomic<bool> g_release{false};
std::atomic<bool> g_stubbornDone{false};
uint32_t Stubborn(ST_ZOS_TASK_START *) {
    while (!g_release) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    g_stubbornDone = true;
    return 0;
}

// Recorders for the platform's delay and delete slots.
std::atomic<uint32_t> g_delays{0};
uint32_t FastDelay(uint32_t) {
    g_delays++;
    return ZOK;
}
std::vector<uint32_t> g_deletes;  // the forced flags seen
uint32_t RecordDelete(uintptr_t, uint32_t forced) {
    g_deletes.push_back(forced);
    return forced != 0 ? ZFAILED : ZOK;
}
uint32_t FailSpawn(const char *, uint32_t, uint32_t, PFN_ZPAND_TASK_ENTRY, uintptr_t, uintptr_t *,
                   uintptr_t *) {
    return ZFAILED;
}

}  // namespace

// A module stop of a plain task waits for the task to end on its own: the
// task's thread finishes while the record is still there (so it logs its
// own name), not after a forced release.
TEST_F(ZosTest, ModuleStopOfAPlainTaskLetsItEnd) {
    uint32_t id = 0;
    ASSERT_EQ(Zos_TaskSpawn("PLAIN_STOP", 4, 0, Cooperative, 0, &id), ZOK);
    ktest::ClearLogged();
    EXPECT_EQ(Zos_ModTaskStop(id), ZOK);
    const std::string ended = "task<PLAIN_STOP:" + std::to_string(id) + "> mission complete.";
    const std::string forced = "task<UNKNOWN_TASK:" + std::to_string(id) + "> mission complete.";
    ASSERT_TRUE(
        Eventually([&] { return ktest::LoggedContains(ended) || ktest::LoggedContains(forced); }));
    EXPECT_TRUE(ktest::LoggedContains(ended));
}

TEST_F(ZosTest, TaskSpawnClampsPriorityAndGettersFallBack) {
    uint32_t low = 0, high = 0;
    ASSERT_EQ(Zos_TaskSpawn("T_LOW", 0, 0, Cooperative, 0, &low), ZOK);
    // A name of the 18 characters kept, whole in every line.
    ASSERT_EQ(Zos_TaskSpawn("T_HIGH_EIGHTEEN_XY", 12, 64 * 1024, Cooperative, 0, &high), ZOK);
    EXPECT_EQ(Zos_TaskGetPriority(low), 1u);
    EXPECT_EQ(Zos_TaskGetPriority(high), 8u);
    EXPECT_STREQ(Zos_TaskGetName(low), "T_LOW");
    EXPECT_EQ(Zos_TaskGetTaskId("T_HIGH_EIGHTEEN_XY"), high);
    EXPECT_EQ(Zos_TaskIsSpawn(low), 1u);
    EXPECT_TRUE(Eventually([&] { return Zos_TaskGetState(low) == ZOS_TASK_RUNNING; }));
    EXPECT_TRUE(ktest::LoggedContains("task<T_LOW:" + std::to_string(low) + "> spawn ok."));
    // The thread function runs a task only from the task's own start block.
    // (A copy asks to stop at once, so an entry wrongly run on it returns.)
    ST_ZOS_TASK_START unknown{ZOS_INVALID_ID, 0}, copy{low, ZOS_TASK_WAIT_DELETE};
    EXPECT_EQ(Zos_TaskEntry(nullptr), ZFAILED);
    EXPECT_EQ(Zos_TaskEntry(&unknown), ZFAILED);
    EXPECT_EQ(Zos_TaskEntry(&copy), ZFAILED);
    EXPECT_EQ(Zos_TaskIsCurrent(low), 0u);  // not from the test's thread

    // A spawned task has a thread of its own: its statistics stay 0.
    Zos_TaskQueueSizeInc(low);
    Zos_TaskTimerCountInc(low);
    Zos_ModLock();
    Zos_TaskDbgShow();
    Zos_ModUnlock();
    EXPECT_NE(ktest::Printed().find("T_LOW    0x"), std::string::npos);

    // Unknown ids: every getter's fallback.
    const uint32_t none = 0x7FFFFF00;
    EXPECT_STREQ(Zos_TaskGetName(none), "UNKNOWN_TASK");
    EXPECT_EQ(Zos_TaskGetPriority(none), 0x7FFFFFFFu);
    EXPECT_EQ(Zos_TaskGetState(none), 0u);
    EXPECT_EQ(Zos_TaskGetTaskId("NOBODY"), ZOS_INVALID_ID);
    EXPECT_EQ(Zos_TaskIsSpawn(none), 1u);
    EXPECT_EQ(Zos_TaskIsCurrent(none), 0u);
    EXPECT_EQ(Zos_TaskCease(none), ZFAILED);
    EXPECT_EQ(Zos_TaskDelete(none), ZFAILED);

    // A duplicate name and a null entry are refused; the id out is -1.
    uint32_t dup = 0;
    EXPECT_EQ(Zos_TaskSpawn("T_LOW", 3, 0, Cooperative, 0, &dup), ZFAILED);
    EXPECT_EQ(dup, ZOS_INVALID_ID);
    EXPECT_TRUE(ktest::LoggedContains("task<T_LOW:" + std::to_string(low) + "> already exist."));
    EXPECT_EQ(Zos_TaskSpawn("T_NULL", 3, 0, nullptr, 0, &dup), ZFAILED);

    g_holdExit = true;
    EXPECT_EQ(Zos_TaskCease(low), ZOK);
    EXPECT_EQ(Zos_TaskGetState(low), ZOS_TASK_WAIT_DELETE);
    g_holdExit = false;
    EXPECT_TRUE(Eventually([&] { return Zos_TaskGetState(low) == 0; }));  // returned and released
    EXPECT_TRUE(ktest::LoggedContains("task<T_LOW:" + std::to_string(low) + "> mission complete."));
    EXPECT_EQ(Zos_TaskDelete(high), ZOK);
    EXPECT_TRUE(
        ktest::LoggedContains("task<T_HIGH_EIGHTEEN_XY:" + std::to_string(high) + "> delete ok."));
    EXPECT_STREQ(Zos_TaskGetName(high), "UNKNOWN_TASK");
}

TEST_F(ZosTest, TaskIgnoringStopIsForcedAfter200Polls) {
    g_release = false;
    g_stubbornDone = false;
    g_delays = 0;
    g_deletes.clear();
    uint32_t id = 0;
    ASSERT_EQ(Zos_TaskSpawn("STUBBORN", 5, 0, Stubborn, 0, &id), ZOK);
    ASSERT_TRUE(Eventually([&] { return Zos_TaskGetState(id) == ZOS_TASK_RUNNING; }));
    ZOS_OSDEP_FUNC delay = ktest::Slot(97), del = ktest::Slot(96);
    ktest::Slot(97) = reinterpret_cast<ZOS_OSDEP_FUNC>(FastDelay);
    ktest::Slot(96) = reinterpret_cast<ZOS_OSDEP_FUNC>(RecordDelete);
    EXPECT_EQ(Zos_TaskDelete(id), ZOK);
    const uint32_t polls = g_delays;
    ktest::Slot(97) = delay;
    ktest::Slot(96) = del;
    EXPECT_EQ(polls, 200u);
    ASSERT_EQ(g_deletes.size(), 1u);
    EXPECT_EQ(g_deletes[0], 1u);  // forced: the entry had not returned
    EXPECT_EQ(Zos_TaskGetState(id), 0u);
    // The thread still runs; when its entry returns it finds its record
    // gone and touches nothing.
    g_release = true;
    EXPECT_TRUE(Eventually([] { return g_stubbornDone.load(); }));
    EXPECT_TRUE(Eventually([&] {
        return ktest::LoggedContains("task<UNKNOWN_TASK:" + std::to_string(id) +
                                     "> mission complete.");
    }));
}

TEST_F(ZosTest, TaskWaitDeleteLimitsAndSpawnFailure) {
    g_release = false;
    g_delays = 0;
    g_deletes.clear();
    uint32_t id = 0;
    ASSERT_EQ(Zos_TaskSpawn("WAITER", 5, 0, Stubborn, 0, &id), ZOK);
    ASSERT_TRUE(Eventually([&] { return Zos_TaskGetState(id) == ZOS_TASK_RUNNING; }));
    ZOS_OSDEP_FUNC delay = ktest::Slot(97), del = ktest::Slot(96);
    ktest::Slot(97) = reinterpret_cast<ZOS_OSDEP_FUNC>(FastDelay);
    ktest::Slot(96) = reinterpret_cast<ZOS_OSDEP_FUNC>(RecordDelete);
    EXPECT_EQ(Zos_TaskWaitDelete(id, 0), ZOK);  // fewer than one poll: forced at once
    EXPECT_EQ(g_delays, 0u);
    ktest::Slot(97) = delay;
    ktest::Slot(96) = del;
    ASSERT_EQ(g_deletes.size(), 1u);
    EXPECT_EQ(g_deletes[0], 1u);
    EXPECT_TRUE(ktest::LoggedContains("task<WAITER:" + std::to_string(id) + "> force delete."));
    g_release = true;

    // A cooperative task ends within a one-second wait.
    ASSERT_EQ(Zos_TaskSpawn("QUICK", 5, 0, Cooperative, 0, &id), ZOK);
    EXPECT_EQ(Zos_TaskWaitDelete(id, 1), ZOK);

    // The platform refuses the thread: logged, record released.
    ZOS_OSDEP_FUNC spawn = ktest::Slot(95);
    ktest::Slot(95) = reinterpret_cast<ZOS_OSDEP_FUNC>(FailSpawn);
    EXPECT_EQ(Zos_TaskSpawn("NOTHREAD", 2, 0, Cooperative, 0, &id), ZFAILED);
    ktest::Slot(95) = spawn;
    EXPECT_EQ(id, ZOS_INVALID_ID);
    EXPECT_TRUE(ktest::LoggedContains("task<NOTHREAD> spawn failed."));
    EXPECT_EQ(Zos_TaskGetTaskId("NOTHREAD"), ZOS_INVALID_ID);
    // With no spawn slot at all, nothing is made: no task, no module task,
    // no thread for a record that exists.
    ktest::Slot(95) = nullptr;
    EXPECT_EQ(Zos_TaskSpawn("NOSLOT", 2, 0, Cooperative, 0, &id), ZFAILED);
    const auto entry = [](void *) -> int32_t { return 0; };
    EXPECT_EQ(Zos_ModTaskStart("NOSLOT_MOD", 3, 0, 0, 0, nullptr, nullptr, entry, &id), ZFAILED);
    EXPECT_EQ(id, ZOS_INVALID_ID);
    EXPECT_TRUE(ktest::LoggedContains("module spawn task failed."));
    EXPECT_EQ(Zos_TaskGetTaskId("NOSLOT_MOD"), ZOS_INVALID_ID);
    const uint32_t bare = Zos_ModGetTask("NOSLOT_REC", 3);
    EXPECT_EQ(Zos_TaskSpawnX(Zos_ModFindTask(bare), 0, Cooperative), ZFAILED);
    EXPECT_EQ(Zos_ModPutTask(bare), ZOK);
    ktest::Slot(95) = spawn;
    EXPECT_TRUE(Eventually([] { return g_stubbornDone.load(); }));
}

TEST_F(ZosTest, TaskTableNamesAndStatisticsOfThreadlessRecords) {
    // Records without a thread (as the host loop's module tasks are) count
    // their queue and timers; unnamed records are called TASKnn.
    const uint32_t a = Zos_ModGetTask("ALPHA", 2);
    const uint32_t anon = Zos_ModGetTask(nullptr, 2);
    const uint32_t b = Zos_ModGetTask("BETA_WITH_A_VERY_LONG_NAME", 6);
    ASSERT_NE(a, ZOS_INVALID_ID);
    ASSERT_NE(b, ZOS_INVALID_ID);
    EXPECT_STREQ(Zos_TaskGetName(b), "BETA_WITH_A_VERY_L");  // 18 characters kept
    EXPECT_EQ(std::string(Zos_TaskGetName(anon)).rfind("TASK", 0), 0u);
    EXPECT_EQ(Zos_ModGetTask("ALPHA", 1), ZOS_INVALID_ID);
    for (int i = 0; i < 3; ++i) Zos_TaskQueueSizeInc(a);
    Zos_TaskQueueSizeDec(a);
    Zos_TaskTimerCountInc(a);
    Zos_TaskTimerCountDec(a);
    Zos_TaskTimerCountDec(a);  // not below 0
    // An id that is no task counts nothing, and that is no failure.
    EXPECT_EQ(Zos_TaskQueueSizeInc(0x7FFF0000) + Zos_TaskQueueSizeDec(0x7FFF0000) +
                  Zos_TaskTimerCountInc(ZOS_INVALID_ID) + Zos_TaskTimerCountDec(ZOS_INVALID_ID),
              ZOK);
    EXPECT_NE(Zos_ModFindTask(a), nullptr);
    EXPECT_EQ(Zos_ModFindTaskX("ALPHA"), Zos_ModFindTask(a));
    EXPECT_STREQ(Zos_TaskDbgGetState(Zos_ModFindTask(a)), "ready");
    EXPECT_STREQ(Zos_TaskDbgGetState(nullptr), "unknown");

    // The timer task of start-up is listed as running once its thread runs.
    const uint32_t timer = Zos_TaskGetTaskId("TIMER");
    ktest::Eventually([timer] { return Zos_TaskGetState(timer) == ZOS_TASK_RUNNING; });
    ktest::ClearPrinted();
    Zos_TaskDbgShow();
    std::string shown = ktest::Mask(ktest::Printed(), "RUNNING: [0-9]+us", "RUNNING: <T>us");
    // The entry (a decimal address) first: it may have eight digits too.
    shown = ktest::Mask(shown, "(TASK  |MODULE) 0x[0-9]+ ", "$1 0x<ENTRY> ");
    shown = ktest::Mask(shown, "0x[0-9A-F]{8} ", "0x<ID> ");
    shown = ktest::Mask(shown, "0x[0-9]+ ", "0x<ENTRY> ");
    shown = ktest::Mask(shown, "TASK[0-9]{2} ", "TASKnn ");
    EXPECT_EQ(shown, ktest::Golden("task_dbgshow.txt"));
    void *rec = nullptr;
    EXPECT_EQ(Zos_ModLocateTask(a, &rec), ZOK);
    EXPECT_EQ(Zos_ModPutTask(a), ZOK);
    EXPECT_EQ(Zos_ModPutTask(a), ZFAILED);
    EXPECT_EQ(Zos_ModLocateTask(a, &rec), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("task<ALPHA:" + std::to_string(a) + "> free ok."));
    EXPECT_EQ(Zos_ModPutTask(anon) | Zos_ModPutTask(b), ZOK);
}

TEST_F(ZosTest, PutTaskRecordServesTheNextGet) {
    // A get takes the first free record, so a record put back is the next
    // one handed out (an unnamed record is named after its place), and far
    // more gets than the table's 400 records succeed while each is put back.
    const uint32_t first = Zos_ModGetTask(nullptr, 2);
    ASSERT_NE(first, ZOS_INVALID_ID);
    const std::string name = Zos_TaskGetName(first);
    ASSERT_EQ(Zos_ModPutTask(first), ZOK);
    for (int i = 0; i < 1000; ++i) {
        const uint32_t id = Zos_ModGetTask(nullptr, 2);
        ASSERT_NE(id, ZOS_INVALID_ID) << "get " << i;
        EXPECT_EQ(Zos_TaskGetName(id), name) << "get " << i;
        ASSERT_EQ(Zos_ModPutTask(id), ZOK);
        ASSERT_EQ(Zos_ModFindTask(id), nullptr);
    }
}
