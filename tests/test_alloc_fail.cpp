// Allocation failures on the create paths: start-up, timers, the event
// hub, the containers, buffers and pools, and the ABNF character sets and
// token managers. Every platform-heap allocation of a call fails in turn
// until the call succeeds without an injected failure; each failed call
// must fail as a whole, leave nothing allocated, and leave the layer
// usable for the next call.
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "mod_test.h"

namespace {

using ktest::g_calls;
using ktest::g_failAt;
using ktest::g_live;

// Rounds before giving up: far more than any of these calls allocates.
constexpr int kMaxRounds = 200;

// Arms the heap to fail its n-th allocation (0: none) from now on.
void FailAt(int n) {
    g_calls = 0;
    g_failAt = n;
}

// True when the armed failure was reached since FailAt: false means the
// call made fewer allocations, so the whole path has been covered.
bool Hit() {
    return g_failAt != 0 && g_calls >= g_failAt;
}

// Start-up in heap mode (1) and pool mode (0), with the layer's threads.
// The heap slots belong to the holder, which each shut-down throws away,
// so they are installed again on a new holder before each round. A failed
// allocation may also be survived (a progress line that cannot be printed
// is dropped, a pool that cannot grow a bucket serves from another); the
// start-up must then work in full. The window cannot be narrower than the
// whole call: the threads it starts could draw the armed failure too, and
// the checks hold either way.
TEST(AllocFail, StartUpFailsCleanlyAtEveryAllocation) {
    for (const uint32_t osMalloc : {1u, 0u}) {
        int failed = 0;
        bool done = false;
        for (int n = 1; n <= kMaxRounds && !done; ++n) {
            ASSERT_NE(Zos_OsenvLocateNew(), nullptr);
            ASSERT_EQ(Zos_CfgSetPrintDisp(ktest::PrintHook), ZOK);
            ASSERT_EQ(Zos_CfgSetUseOsMalloc(osMalloc), ZOK);
            ktest::UseTestLogDir();
            ktest::Slot(0) = reinterpret_cast<ZOS_OSDEP_FUNC>(ktest::FailingMalloc);
            ktest::Slot(2) = reinterpret_cast<ZOS_OSDEP_FUNC>(ktest::CountingFree);
            g_live = 0;
            FailAt(n);
            const uint32_t ret = Zos_SysInit();
            done = !Hit();
            g_failAt = 0;
            if (ret == ZOK) {
                ZEVNT e = Zos_EvntCreate();  // the started layer works
                EXPECT_NE(e, nullptr) << n;
                Zos_EvntDelete(e);
                EXPECT_NE(Zos_TaskGetTaskId("MOD_MGR"), ZOS_INVALID_ID) << n;
            } else {
                ++failed;
                EXPECT_FALSE(done) << "start-up failed with no failed allocation";
            }
            // A failed start-up has shut itself down already; this is a no-op.
            Zos_SysDestroy();
            EXPECT_EQ(Zos_OsenvLocate(), nullptr) << osMalloc << "/" << n;
            EXPECT_EQ(g_live, 0) << osMalloc << "/" << n;
        }
        EXPECT_TRUE(done) << osMalloc;
        EXPECT_GT(failed, 3) << osMalloc;  // several steps allocate
    }
    // A plain start-up and shut-down afterwards.
    ASSERT_EQ(Zos_CfgSetPrintDisp(ktest::PrintHook), ZOK);
    ktest::UseTestLogDir();
    ASSERT_EQ(Zos_SysInit(), ZOK);
    Zos_SysDestroy();
    EXPECT_EQ(Zos_OsenvLocate(), nullptr);
}

std::atomic<int> g_handled{0};
int32_t Count(void *) {
    ++g_handled;
    return 0;
}

std::atomic<bool> g_hold{false};
int32_t Held(void *) {
    while (g_hold) std::this_thread::yield();
    ++g_handled;
    return 0;
}

// The hub case below pauses and resumes its subscriber round after round.
// The last of several requests queued meanwhile must win: with resume,
// pause, resume queued behind a busy handler the task runs afterwards.
TEST_F(ZosTest, LastPauseOrResumeRequestWins) {
    uint32_t id = ZOS_INVALID_ID;
    ASSERT_EQ(Zos_ModTaskStart("AFPAUSE", 3, 0, 0, 0, nullptr, nullptr, Held, &id), ZOK);
    g_handled = 0;
    g_hold = true;
    ASSERT_EQ(Zos_MsgSendX(id, id, 1, 0, "x", 1), ZOK);
    for (const uint32_t resume : {1u, 0u, 1u, 0u, 0u, 1u})
        EXPECT_EQ(Zos_ModTaskPause(id, resume), ZOK);
    g_hold = false;
    ASSERT_EQ(Zos_MsgSendX(id, id, 2, 0, "y", 1), ZOK);
    EXPECT_TRUE(ktest::Eventually([] { return g_handled == 2; }, std::chrono::seconds(10)))
        << g_handled;
    EXPECT_EQ(Zos_ModTaskStop(id), ZOK);
}

void OnTimer(uint32_t, uint32_t, uintptr_t) {}

std::atomic<uint32_t> g_got{0};
void Hub(const char *, uintptr_t data, uint32_t value) {
    g_got = static_cast<uint32_t>(data) + value;
}

// Timer creation and start, then a subscription to the hub and a
// publication to it, each failing at every allocation in turn. Timers come
// from the table made at start-up, so their loop ends in its first round.
// The subscriber's task is paused while the failure is armed, so the
// perform it runs (which allocates too) happens afterwards on the plain
// heap. A first subscription to another name warms the hub's tree up.
TEST_F(ZosTest, TimerAndHubFailCleanlyAtEveryAllocation) {
    uint32_t task = ZOS_INVALID_ID;
    ASSERT_EQ(Zos_ModTaskStart("AFHUB", 3, 0, 0, 0, nullptr, nullptr, Count, &task), ZOK);
    const auto hub = reinterpret_cast<PFN_ZOS_MOD_FUNC>(Hub);
    ASSERT_EQ(Zos_ModSubEvnt("af.warm", task, hub, 1), ZOK);
    ASSERT_EQ(Zos_ModUnSubEvnt("af.warm", task, hub, 1), ZOK);
    bool timerDone = false, subDone = false, pubDone = false;
    int subFailed = 0, pubRound = 0, pubFailed = 0;
    for (int n = 1; n <= kMaxRounds && !pubDone; ++n) {
        const ktest::FailingHeap heap;
        g_live = 0;
        if (!timerDone) {
            FailAt(n);
            uint32_t tid = 7;
            uint32_t ret = Zos_TimerCreate(task, 0, &tid);
            if (ret != ZOK) {
                EXPECT_EQ(tid, ZOS_INVALID_ID) << n;
            }
            if (ret == ZOK) ret = Zos_TimerStart(tid, 0, 60000, 0, OnTimer);
            timerDone = !Hit();
            g_failAt = 0;
            EXPECT_EQ(Zos_TimerIsRun(tid), ret == ZOK ? 1u : 0u) << n;
            EXPECT_EQ(Zos_TimerDelete(tid), tid == ZOS_INVALID_ID ? ZFAILED : ZOK) << n;
            EXPECT_EQ(g_live, 0) << n;
        }
        if (!subDone) {
            FailAt(n);
            const uint32_t ret = Zos_ModSubEvnt("af.event", task, hub, 100);
            subDone = !Hit();
            g_failAt = 0;
            if (ret != ZOK) {
                ++subFailed;
                EXPECT_EQ(Zos_ModEhFindEntry("af.event"), nullptr) << n;  // no empty entry
                EXPECT_EQ(g_live, 0) << n;
            } else if (!subDone) {
                EXPECT_EQ(Zos_ModUnSubEvnt("af.event", task, hub, 100), ZOK);
            }
            continue;
        }
        ASSERT_EQ(Zos_ModTaskPause(task, 0), ZOK);
        g_got = 0;
        ktest::ClearLogged();
        FailAt(++pubRound);
        const uint32_t ret = Zos_ModPubEvnt("af.event", "%u", 5u);
        pubDone = !Hit();
        g_failAt = 0;
        // An event that could not be made is not handed to the task.
        if (ktest::LoggedContains("ModPubEvnt create event af.event.")) {
            EXPECT_FALSE(ktest::LoggedContains("ModPubEvnt perform event")) << pubRound;
        }
        ASSERT_EQ(Zos_ModTaskPause(task, 1), ZOK);
        if (ret == ZOK) {
            EXPECT_TRUE(ktest::Eventually([] { return g_got == 105; })) << pubRound;
        } else {
            ++pubFailed;
        }
        // Whatever the subscriber's queue took is gone once handled.
        EXPECT_TRUE(ktest::Eventually([] { return g_live == 0; })) << pubRound << ": " << g_live;
        EXPECT_EQ(g_got, ret == ZOK ? 105u : 0u) << pubRound;
    }
    EXPECT_TRUE(timerDone && subDone && pubDone);
    EXPECT_GT(subFailed, 2);  // the entry, its name and the subscriber array
    EXPECT_GE(pubFailed, 3);  // three on the 32-bit target, more on 64-bit hosts
    // The hub works afterwards: the subscriber leaves and a new one joins.
    EXPECT_EQ(Zos_ModUnSubEvnt("af.event", task, hub, 100), ZOK);
    EXPECT_EQ(Zos_ModPubEvnt("af.event", "%u", 1u), ZFAILED);  // no subscriber left
    EXPECT_EQ(Zos_ModSubEvnt("af.event", task, hub, 200), ZOK);
    EXPECT_EQ(Zos_ModPubEvnt("af.event", "%u", 1u), ZOK);
    EXPECT_TRUE(ktest::Eventually([] { return g_got == 201; }));
    EXPECT_EQ(Zos_ModTaskStop(task), ZOK);
}

// A module task started with each of its allocations failing in turn, on
// a thread of its own: it fails with no task left under its name, or runs
// and handles a message; either way every block it took comes back. A
// first task warms the task map up: the map's tree keeps the arena page
// its nodes come from.
TEST_F(ZosTest, ModuleTaskStartFailsCleanlyAtEveryAllocation) {
    uint32_t warm = ZOS_INVALID_ID;
    ASSERT_EQ(Zos_ModTaskStart("AFWARM", 3, 0, 0, 0, nullptr, nullptr, Count, &warm), ZOK);
    ASSERT_EQ(Zos_ModTaskStop(warm), ZOK);
    int failed = 0;
    bool done = false;
    for (int n = 1; n <= kMaxRounds && !done; ++n) {
        const ktest::CountThisThread only;
        const ktest::FailingHeap heap;
        g_live = 0;
        g_handled = 0;
        FailAt(n);
        uint32_t id = 7;
        const uint32_t ret = Zos_ModTaskStart("AFTASK", 3, 0, 0, 0, nullptr, nullptr, Count, &id);
        done = !Hit();
        g_failAt = 0;
        if (ret != ZOK) {
            ++failed;
            EXPECT_EQ(id, ZOS_INVALID_ID) << n;
            EXPECT_EQ(Zos_TaskGetTaskId("AFTASK"), ZOS_INVALID_ID) << n;
        } else {
            EXPECT_EQ(Zos_MsgSendX(id, id, 1, 0, "x", 1), ZOK) << n;
            EXPECT_TRUE(ktest::Eventually([] { return g_handled == 1; })) << n;
            EXPECT_EQ(Zos_ModTaskStop(id), ZOK) << n;
        }
        EXPECT_TRUE(ktest::Eventually([] { return g_live == 0; })) << n << ": " << g_live;
    }
    EXPECT_TRUE(done);
    EXPECT_GE(failed, 3);  // the task's queue, its node bucket and the bucket's first block
}

// The module manager made again, each of its allocations failing in turn:
// a failed start leaves no manager and no block, a start that answers
// success has its manager task and a working table. The timers and the
// log task go first, as at shut-down, so no thread of the first manager
// is left in it.
TEST_F(ZosTest, ModuleManagerStartFailsCleanlyAtEveryAllocation) {
    Zos_TimerDestroy();
    Zos_LogTaskStop();
    Zos_ModDestroy();
    int failed = 0, hubFailed = 0;
    bool done = false;
    for (int n = 1; n <= kMaxRounds && !done; ++n) {
        const ktest::CountThisThread only;
        const ktest::FailingHeap heap;
        g_live = 0;
        ktest::ClearLogged();
        FailAt(n);
        const uint32_t ret = Zos_ModInit();
        done = !Hit();
        g_failAt = 0;
        // A hub that cannot be made names itself only.
        if (ktest::LoggedContains("ModEhInit allocate memory buffer.")) {
            ++hubFailed;
            EXPECT_FALSE(ktest::LoggedContains("ModInit create priority queue.")) << n;
        }
        // A manager that answered success runs and hands out task records.
        const uint32_t id = Zos_ModGetTask("AFREC", 3);
        EXPECT_EQ(id != ZOS_INVALID_ID, ret == ZOK) << n;
        EXPECT_EQ(Zos_TaskGetTaskId("MOD_MGR") != ZOS_INVALID_ID, ret == ZOK) << n;
        if (ret == ZOK) {
            EXPECT_EQ(Zos_ModPutTask(id), ZOK);
            if (!done) Zos_ModDestroy();  // a failure it got past: on to the next
            continue;
        }
        ++failed;
        EXPECT_EQ(g_live, 0) << n;
    }
    EXPECT_TRUE(done);
    EXPECT_GE(failed, 3);  // the table, the task map and the manager's queue at least
    EXPECT_EQ(hubFailed, 1);
    // A manager task that cannot be spawned: its queue goes with the
    // failure, once, and the start names the spawn and then itself.
    Zos_ModDestroy();
    const ZOS_OSDEP_FUNC spawn = ktest::Slot(95);
    ktest::Slot(95) = reinterpret_cast<ZOS_OSDEP_FUNC>(
        +[](const char *, uint32_t, uint32_t, PFN_ZPAND_TASK_ENTRY, uintptr_t, uintptr_t *,
            uintptr_t *) -> uint32_t { return ZFAILED; });
    ktest::ClearLogged();
    EXPECT_EQ(Zos_ModInit(), ZFAILED);
    ktest::Slot(95) = spawn;
    EXPECT_TRUE(ktest::LoggedContains("ModMgrStart spawn manager task."));
    EXPECT_TRUE(ktest::LoggedContains("ModInit create priority queue."));
    EXPECT_FALSE(ktest::LoggedContains("PQueueDelete invalid id."));
    EXPECT_EQ(Zos_ModInit(), ZOK);
}

// A create with its first use and its delete: false when the create
// failed. A failed create that still handed out a handle deletes it and
// answers true, which the round's checks report.
struct Make {
    const char *name;
    std::function<bool()> run;
};

template <typename H, typename F>
bool Made(H handle, F del) {
    if (handle == nullptr) return false;
    del(handle);
    return true;
}

// A mutex, semaphore or one-count semaphore maker whose g_lockFailAt-th
// call fails; the others go to the platform's maker in g_lockMaker.
ZOS_OSDEP_FUNC g_lockMaker = nullptr;
int g_lockCalls = 0;
int g_lockFailAt = 0;
template <typename... Args>
uint32_t FailingLock(Args... args) {
    if (++g_lockCalls == g_lockFailAt) return ZFAILED;
    return reinterpret_cast<uint32_t (*)(Args...)>(g_lockMaker)(args...);
}

// Live mutexes and semaphores made through the platform table, counted by
// makers and deleters wrapped around the platform's own (kept in
// g_syncReal by slot), so a round can be held to give back every one.
int g_liveSync = 0;
ZOS_OSDEP_FUNC g_syncReal[64] = {};
template <uint32_t kSlot, typename H, typename... Args>
uint32_t CountingMake(H *handle, Args... args) {
    const uint32_t ret =
        reinterpret_cast<uint32_t (*)(H *, Args...)>(g_syncReal[kSlot])(handle, args...);
    if (ret == ZOK) ++g_liveSync;
    return ret;
}
template <uint32_t kSlot, typename H>
uint32_t CountingDelete(H *handle) {
    if (handle != nullptr && *handle != 0) --g_liveSync;
    return reinterpret_cast<uint32_t (*)(H *)>(g_syncReal[kSlot])(handle);
}

const std::pair<uint32_t, ZOS_OSDEP_FUNC> kWraps[] = {
    {32, reinterpret_cast<ZOS_OSDEP_FUNC>(CountingMake<32, ZMUTEX>)},
    {33, reinterpret_cast<ZOS_OSDEP_FUNC>(CountingDelete<33, ZMUTEX>)},
    {42, reinterpret_cast<ZOS_OSDEP_FUNC>(CountingMake<42, ZSEM, uint32_t>)},
    {43, reinterpret_cast<ZOS_OSDEP_FUNC>(CountingMake<43, ZSEM>)},
    {44, reinterpret_cast<ZOS_OSDEP_FUNC>(CountingDelete<44, ZSEM>)}};

// Puts the counting makers and deleters in the table for a test's life.
class SyncCount {
  public:
    SyncCount() {
        for (const auto &[slot, fn] : kWraps) {
            g_syncReal[slot] = ktest::Slot(slot);
            ktest::Slot(slot) = fn;
        }
    }
    ~SyncCount() {
        for (const auto &[slot, fn] : kWraps) ktest::Slot(slot) = g_syncReal[slot];
    }
    SyncCount(const SyncCount &) = delete;
    SyncCount &operator=(const SyncCount &) = delete;
};

uint32_t SameWord(uintptr_t item, uintptr_t key, uintptr_t, uintptr_t) {
    return item == key ? 0 : 1;
}

const ST_ZOS_BKT_INFO kRows[] = {{32, 2, 4}, {256, 0, 2}};
const ST_ZOS_POOL_CFG kPool{"af pool", kRows, nullptr, nullptr, 1, 1, 1, 2};

const Make kMakes[] = {
    {"queue",
     [] {
         ZQUEUE q = reinterpret_cast<ZQUEUE>(&q);  // not null: a failed create clears it
         if (Zos_QueueCreate(1, 1, 2, 8, &q) != ZOK) return Made(q, Zos_QueueDelete);
         uintptr_t v = 0;
         EXPECT_EQ(Zos_QueueAdd(q, 5) + Zos_QueuePoll(q, 0, &v), ZOK);
         EXPECT_EQ(v, 5u);
         return Made(q, Zos_QueueDelete);
     }},
    {"priority queue",
     [] {
         ZPQUEUE q = reinterpret_cast<ZPQUEUE>(&q);
         if (Zos_PQueueCreate(1, 1, 2, 8, 3, &q) != ZOK) return Made(q, Zos_PQueueDelete);
         EXPECT_EQ(Zos_PQueueAdd(q, 2, 7), ZOK);
         return Made(q, Zos_PQueueDelete);
     }},
    {"object map",
     [] {
         ZOMAP m = Zos_OmapCreate(1, 64);
         uint32_t id = 0;
         if (m != nullptr) {
             EXPECT_EQ(Zos_OmapAdd(m, &id, &id), ZOK);
         }
         return Made(m, Zos_OmapDelete);
     }},
    {"hash",
     [] {
         ST_ZOS_HASH h{};
         if (Zos_HashCreate(&h, 64, Zos_HashKeyFromUint32, SameWord) == ZOK) {
             return Zos_HashDelete(&h) == ZOK;
         }
         EXPECT_EQ(h.ppstBucket, nullptr);
         return false;
     }},
    {"allocated hash",
     [] {
         ST_ZOS_HASH *h = reinterpret_cast<ST_ZOS_HASH *>(&h);  // a failed create clears it
         if (Zos_HashCreateAX(nullptr, 64, 64, Zos_HashKeyFromUint32, SameWord, &h) != ZOK) {
             EXPECT_EQ(h, nullptr);
             return false;
         }
         return Zos_HashDelete(h) == ZOK;
     }},
    // A cache above the print pool's buckets: the record comes from the heap.
    {"log",
     [] {
         return Made(
             Zos_LogCreateX("AF LOG", nullptr, ZOS_LOG_FLAG_MUTEX, ZOS_LOG_LEVEL_ALL, 65536),
             Zos_LogDelete);
     }},
    {"node bucket", [] { return Made(Zos_DbktCreate(1, 1, 24, 2, 8, 2), Zos_DbktDelete); }},
    {"tree", [] { return Made(Zos_RbtCreate(nullptr), Zos_RbtDelete); }},
    {"arena", [] { return Made(Zos_CbufCreate(64), Zos_CbufDelete); }},
    {"segment buffer", [] { return Made(Zos_SbufCreate(0), Zos_SbufDelete); }},
    {"user buffer",
     [] {
         ZCBUF c = Zos_CbufCreate(64);
         const bool made = c != nullptr && Made(Zos_UbufCreate(c), Zos_UbufDelete);
         Zos_CbufDelete(c);
         return made;
     }},
    {"packet buffer", [] { return Made(Zos_PbufCreate(), Zos_PbufDelete); }},
    {"pool", [] { return Made(Zos_PoolCreate(&kPool), Zos_PoolDelete); }},
    {"brick pool", [] { return Made(Zos_BpoolCreate(0, 256, 4), Zos_BpoolDelete); }},
    {"dump", [] { return Made(Zos_DumpCreate("af dump", 4), Zos_DumpDelete); }},
    {"character set", [] { return Made(Abnf_ChrsetCreate(1), Abnf_ChrsetDelete); }},
    {"token manager",
     [] {
         ST_ABNF_TKN_MGR *m = Abnf_TknMgrCreate(1, 1, 4);
         if (m == nullptr) return false;
         const bool added = Abnf_TknAdd(m, 0, "INVITE", 6, 3) == ZOK;
         EXPECT_EQ(Abnf_TknFind(m, 0, "invite", 6), added ? 3u : ABNF_TKN_UNKNOWN);
         Abnf_TknMgrDelete(m);
         return added;
     }},
    {"timer queue",
     [] {
         ZQTIMER q = reinterpret_cast<ZQTIMER>(&q);
         const uint32_t ret = Zos_QTimerCreate(&q, 8);
         EXPECT_EQ(ret == ZOK, q != nullptr);
         return Made(q, Zos_QTimerDelete);
     }},
};

// The rounds that failed with neither a log line nor a platform trace.
std::vector<std::string> g_silent;

// Runs a create round after round, the n-th failure armed by arm(n),
// until a round reaches no armed failure. Each round that reached one must
// fail and keep no block, and one that wrote neither a log line nor a
// platform trace goes into g_silent; the last must make its object.
// Answers how many rounds failed.
int FailEachInTurn(const Make &make, void (*arm)(int), bool (*reached)(), const std::string &what) {
    for (int n = 1; n <= kMaxRounds; ++n) {
        const ktest::FailingHeap heap;
        g_live = 0;
        g_liveSync = 0;
        ktest::ClearLogged();
        testing::internal::CaptureStdout();  // the platform trace
        arm(n);
        const bool made = make.run();
        const bool hit = reached();
        arm(0);
        EXPECT_EQ(made, !hit) << what << " " << n;
        const std::string traced = testing::internal::GetCapturedStdout();
        if (hit && ktest::Logged().empty() && traced.empty()) {
            g_silent.push_back(what + " " + std::to_string(n));
        }
        EXPECT_EQ(g_live, 0) << what << " " << n;
        EXPECT_EQ(g_liveSync, 0) << what << " " << n << ": mutexes and semaphores kept";
        if (!hit) return n - 1;
    }
    ADD_FAILURE() << what << " still fails after " << kMaxRounds << " rounds";
    return kMaxRounds;
}

void ArmLock(int n) {
    g_lockCalls = 0;
    g_lockFailAt = n;
}
bool LockReached() {
    return g_lockFailAt != 0 && g_lockCalls >= g_lockFailAt;
}

}  // namespace

// Each create fails at every allocation it makes, in turn: it fails,
// says why, leaves its out handle empty and keeps nothing, no block and
// no mutex or semaphore; then one round with no failure reached makes a
// working object, which its delete gives back in full. Without the
// layer's threads nothing else draws from the heap or prints meanwhile.
TEST_F(ZosQuietTest, ContainerCreatesFailCleanlyAtEveryAllocation) {
    const SyncCount sync;
    g_silent.clear();
    for (const Make &make : kMakes) {
        EXPECT_GT(FailEachInTurn(make, FailAt, Hit, make.name), 0) << make.name;
    }
    // A mutex or semaphore the platform cannot make, at each making in
    // turn, fails the creates that need one the same way.
    const std::pair<uint32_t, ZOS_OSDEP_FUNC> makers[] = {
        {32, reinterpret_cast<ZOS_OSDEP_FUNC>(FailingLock<ZMUTEX *>)},
        {42, reinterpret_cast<ZOS_OSDEP_FUNC>(FailingLock<ZSEM *, uint32_t>)},
        {43, reinterpret_cast<ZOS_OSDEP_FUNC>(FailingLock<ZSEM *>)}};
    for (const auto &[slot, failing] : makers) {
        g_lockMaker = ktest::Slot(slot);
        ktest::Slot(slot) = failing;
        for (const Make &make : kMakes) {
            FailEachInTurn(make, ArmLock, LockReached,
                           std::string(make.name) + " slot " + std::to_string(slot));
        }
        ktest::Slot(slot) = g_lockMaker;
    }
    // Every failure says why in the log or the platform trace, but for
    // the record of a log and of a timer queue and the log's mutex, which
    // the callers learn of by the result alone.
    EXPECT_EQ(g_silent, (std::vector<std::string>{"log 1", "timer queue 1", "log slot 32 1"}));
}

// The log manager's start failing at each mutex it makes, in turn: it
// fails and keeps no mutex, and the next start makes the system log in
// full.
TEST_F(ZosQuietTest, LogManagerStartFailsAndStartsAgain) {
    const SyncCount sync;
    Zos_LogDestroy();
    g_lockMaker = ktest::Slot(32);
    ktest::Slot(32) = reinterpret_cast<ZOS_OSDEP_FUNC>(FailingLock<ZMUTEX *>);
    int failed = 0;
    for (int n = 1; n <= kMaxRounds; ++n) {
        g_liveSync = 0;
        ArmLock(n);
        const uint32_t ret = Zos_LogInit();
        const bool hit = LockReached();
        ArmLock(0);
        if (!hit) {
            EXPECT_EQ(ret, ZOK);
            break;
        }
        ++failed;
        EXPECT_EQ(ret, ZFAILED) << n;
        EXPECT_EQ(Zos_LogGetZosId(), nullptr) << n;
        EXPECT_EQ(g_liveSync, 0) << n;
        ASSERT_EQ(Zos_LogInit(), ZOK) << n;
        EXPECT_NE(Zos_LogGetZosId(), nullptr) << n;
        Zos_LogDestroy();
        EXPECT_EQ(g_liveSync, 0) << n;
    }
    EXPECT_EQ(failed, 3);  // the manager's, its list's and the system log's
    ktest::Slot(32) = g_lockMaker;
    ktest::WatchSystemLog();
}
