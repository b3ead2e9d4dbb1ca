// Node bucket, FIFO queue and priority queue: limits, counters, ordering,
// the wake-up rules and bad handles.
#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "zos_test.h"

namespace {

std::atomic<int> g_mallocsLeft{-1};  // < 0: no failure injected
std::atomic<int> g_posts{0};
std::atomic<int> g_waits{0};
std::atomic<int> g_timedWaits{0};  // a queue lock's own waits are untimed
std::atomic<uint32_t> g_timedMs{0};

void *FailingMalloc(uint32_t size) {
    if (g_mallocsLeft >= 0 && g_mallocsLeft-- == 0) return nullptr;
    return ktest::HeapMalloc(size);
}
uint32_t CountingPost(ZSEM *sem) {
    ++g_posts;
    return Zpand_SemPost(sem);
}
// The layer's own tasks (the timer task, the module manager) may enter
// their first wait after a test has hooked the slot: not counted.
bool OnLayerTask() {
    for (const char *name : {"TIMER", "MOD_MGR"}) {
        const uint32_t id = Zos_TaskGetTaskId(name);
        if (id != ZOS_INVALID_ID && Zos_TaskIsCurrent(id) != 0) return true;
    }
    return false;
}
uint32_t RecordingWait(ZSEM *sem, uint32_t ms) {
    if (OnLayerTask()) return Zpand_SemWait(sem, ms);
    ++g_waits;
    if (ms != ZOS_WAIT_FOREVER) {
        g_timedMs = ms;
        ++g_timedWaits;
    }
    return Zpand_SemWait(sem, ms);
}
uint32_t FailSem(ZSEM *) {
    return ZFAILED;
}
uint32_t FailSemCreate(ZSEM *, uint32_t) {
    return ZFAILED;
}

void Hook(uint32_t slot, auto fn) {
    ktest::Slot(slot) = reinterpret_cast<ZOS_OSDEP_FUNC>(fn);
}

// Until threads have entered the semaphore wait n times in all.
void AwaitWaits(int n) {
    while (g_waits < n) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

uint32_t IsOdd(uintptr_t item, uintptr_t) {
    return item & 1;
}

// Uses the queue it is asked about from inside the search, which holds
// the queue's lock: the lock lets its holder take it again.
uint32_t ReentersQueue(uintptr_t item, uintptr_t queue) {
    auto q = reinterpret_cast<ZPQUEUE>(queue);
    return Zos_PQueueFind(q, 1, item) && Zos_PQueueGetBusyCount(q) == 2 &&
           Zos_PQueueAdd(q, 3, item + 1) == ZOK;
}

}  // namespace

TEST_F(ZosTest, BucketGrowsToItsMaximumAndChecksTags) {
    EXPECT_EQ(Zos_DbktCreate(0, 1, 0, 1, 1, 1), nullptr);
    EXPECT_EQ(Zos_DbktCreate(0, 1, 8, 0, 0, 1), nullptr);
    ZDBKT b = Zos_DbktCreate(1, 1, 24, 2, 10, 4);
    ASSERT_NE(b, nullptr);
    uint32_t c[5];  // free, used, gets, puts, peak
    std::vector<void *> nodes;
    for (int i = 0; i < 10; ++i) {
        nodes.push_back(Zos_DbktGetBkt(b));
        ASSERT_NE(nodes.back(), nullptr) << i;
        std::memset(nodes.back(), 0xA5, 24);  // the whole area is the caller's
        ASSERT_EQ(Zos_DbktGetCount(b, &c[0], nullptr, nullptr, nullptr, nullptr), ZOK);
        EXPECT_EQ(c[0], i < 2 ? 1u - i : i < 6 ? 5u - i : 9u - i);  // 2, then blocks of 4
    }
    EXPECT_EQ(Zos_DbktGetBkt(b), nullptr);  // at the maximum
    for (int i = 0; i < 4; ++i) EXPECT_EQ(Zos_DbktPutBkt(b, nodes[i]), ZOK);
    EXPECT_EQ(Zos_DbktPutBkt(b, nodes[0]), ZFAILED);  // already free
    unsigned char junk[64] = {};
    EXPECT_EQ(Zos_DbktPutBkt(b, junk + 32), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DbktCreate invalid size."));
    ktest::ClearLogged();
    EXPECT_EQ(Zos_DbktPutBkt(b, nullptr), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DbktPutBkt invalid node."));
    ASSERT_EQ(Zos_DbktGetCount(b, &c[0], &c[1], &c[2], &c[3], &c[4]), ZOK);
    EXPECT_EQ(std::vector<uint32_t>(c, c + 5), (std::vector<uint32_t>{4, 6, 10, 4, 10}));
    // Nodes written in full did not damage their neighbours' tags.
    for (int i = 0; i < 4; ++i) EXPECT_NE(Zos_DbktGetBkt(b), nullptr);
    EXPECT_EQ(Zos_DbktDelete(b), ZOK);

    // A maximum of 0 becomes the initial count; growth 0 never adds a block.
    for (ZDBKT fixed : {Zos_DbktCreate(0, 0, 4, 3, 0, 8), Zos_DbktCreate(0, 0, 4, 3, 9, 0)}) {
        ASSERT_NE(fixed, nullptr);
        for (int i = 0; i < 3; ++i) EXPECT_NE(Zos_DbktGetBkt(fixed), nullptr);
        EXPECT_EQ(Zos_DbktGetBkt(fixed), nullptr);
        EXPECT_EQ(Zos_DbktDelete(fixed), ZOK);
    }
    // A node put back joins the tail of the free list, locked bucket or not.
    for (uint32_t locked : {0u, 1u}) {
        ZDBKT two = Zos_DbktCreate(locked, 1, 8, 2, 2, 0);
        void *x = Zos_DbktGetBkt(two), *y = Zos_DbktGetBkt(two);
        EXPECT_EQ(Zos_DbktPutBkt(two, x) + Zos_DbktPutBkt(two, y), ZOK);
        EXPECT_EQ(Zos_DbktGetBkt(two), x);
        EXPECT_EQ(Zos_DbktDelete(two), ZOK);
    }
    uint64_t fake[8] = {};
    c[0] = 7;
    EXPECT_EQ(Zos_DbktGetCount(nullptr, &c[0], nullptr, nullptr, nullptr, nullptr) +
                  Zos_DbktPutBkt(fake, junk + 32) + Zos_DbktDelete(fake),
              3 * ZFAILED);
    EXPECT_TRUE(c[0] == 0 && Zos_DbktGetBkt(fake) == nullptr);
    EXPECT_EQ(
        ktest::NotLogged("Dbkt", {"GetFreeCount", "PutBkt", "Delete", "GetBkt"}, " invalid id."),
        "");
}

TEST_F(ZosTest, CreateFailuresUndoEverything) {
    // Failing each allocation in turn: every failed create clears the out
    // handle and leaves nothing behind (the leak checker sees the rest).
    Hook(0, FailingMalloc);
    for (int pq = 0; pq < 2; ++pq) {
        uint32_t rc = ZFAILED;
        for (int k = 0; k < 8 && rc != ZOK; ++k) {
            g_mallocsLeft = k;
            void *h = &rc;
            rc = pq ? Zos_PQueueCreate(1, 1, 4, 8, 3, &h) : Zos_QueueCreate(1, 1, 4, 8, &h);
            if (rc == ZOK) {
                EXPECT_EQ(pq ? Zos_PQueueDelete(h) : Zos_QueueDelete(h), ZOK);
            } else {
                EXPECT_EQ(h, nullptr);
            }
        }
        EXPECT_EQ(rc, ZOK);
    }
    g_mallocsLeft = -1;
    // A bucket that cannot grow fails the add but keeps the queue usable.
    ZQUEUE q = nullptr;
    ASSERT_EQ(Zos_QueueCreate(0, 0, 1, 100, &q), ZOK);
    EXPECT_EQ(Zos_QueueAdd(q, 1), ZOK);
    g_mallocsLeft = 0;
    EXPECT_EQ(Zos_QueueAdd(q, 2), ZFAILED);
    EXPECT_TRUE(Zos_QueueAdd(q, 3) == ZOK && Zos_QueueGetBusyCount(q) == 2);
    EXPECT_EQ(Zos_QueueDelete(q), ZOK);

    Hook(43, FailSem);
    EXPECT_EQ(Zos_QueueCreate(1, 1, 4, 8, &q), ZFAILED);
    ZPQUEUE pq = &q;
    EXPECT_EQ(Zos_PQueueCreate(1, 1, 4, 8, 3, &pq), ZFAILED);
    EXPECT_EQ(pq, nullptr);
}

TEST_F(ZosQuietTest, QueueOrderLimitsAndCounters) {
    ZQUEUE q = nullptr;
    EXPECT_EQ(Zos_QueueCreate(1, 1, 4, 8, nullptr) + Zos_QueueCreate(1, 1, 0, 0, &q) +
                  Zos_QueueCreate(1, 1, 0x10000, 0, &q),  // counts are 16-bit
              3 * ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("QueueCreate queue size is 0."));
    ASSERT_EQ(Zos_QueueCreate(1, 0, 0x10002, 10, &q), ZOK);  // 2 nodes at most
    EXPECT_TRUE(Zos_QueueAdd(q, 1) == ZOK && Zos_QueueAdd(q, 2) == ZOK);
    EXPECT_EQ(Zos_QueueAdd(q, 3), ZFAILED);
    EXPECT_EQ(Zos_QueueDelete(q), ZOK);

    // Blocking: with no poller asleep nothing is posted. (A queue takes the
    // semaphore slots when it is made.)
    Hook(45, RecordingWait);
    Hook(46, CountingPost);
    g_posts = g_waits = 0;
    ASSERT_EQ(Zos_QueueCreate(1, 1, 2, 10, &q), ZOK);  // grows by 8 to 10
    uintptr_t v = 99;
    EXPECT_TRUE(Zos_QueuePoll(q, 0, &v) == ZFAILED && v == 0);  // empty, no wait
    EXPECT_EQ(Zos_QueueAdd(q, 0), ZFAILED);                     // 0 cannot be queued
    EXPECT_TRUE(ktest::LoggedContains("QueueAdd null parameter(s)."));
    for (uintptr_t i = 1; i <= 10; ++i) ASSERT_EQ(Zos_QueueAdd(q, i * 16), ZOK);
    EXPECT_EQ(Zos_QueueAdd(q, 11 * 16), ZFAILED);  // bucket at its maximum
    EXPECT_TRUE(Zos_QueueGetBusyCount(q) == 10 && g_posts == 0);
    EXPECT_TRUE(Zos_QueuePeek(q, 0, &v) == ZOK && v == 16);
    for (uintptr_t i = 1; i <= 10; ++i) {
        ASSERT_EQ(Zos_QueuePoll(q, 1, &v), ZOK);
        EXPECT_EQ(v, i * 16);
    }
    uint32_t c[5];
    ASSERT_EQ(Zos_QueueGetCount(q, &c[0], &c[1], &c[2], &c[3], &c[4]), ZOK);
    EXPECT_EQ(std::vector<uint32_t>(c, c + 5), (std::vector<uint32_t>{10, 0, 10, 10, 10}));
    // A poller asleep: the add that ends the emptiness posts once; with the
    // poller gone the next one does not. (The main thread stays idle while
    // the poller runs, so the queue's lock posts nothing of its own.)
    std::thread poller([q] {
        uintptr_t got = 0;
        EXPECT_TRUE(Zos_QueuePoll(q, 1, &got) == ZOK && got == 0x30);
    });
    AwaitWaits(1);
    EXPECT_EQ(Zos_QueueAdd(q, 0x30), ZOK);
    poller.join();
    EXPECT_TRUE(g_posts == 1 && Zos_QueueAdd(q, 0x40) == ZOK && g_posts == 1);
    EXPECT_EQ(Zos_QueueDelete(q), ZOK);

    uint64_t fake[16] = {};
    for (ZQUEUE bad : {static_cast<ZQUEUE>(nullptr), static_cast<ZQUEUE>(fake)}) {
        v = c[0] = 5;
        EXPECT_EQ(Zos_QueueAdd(bad, 1) + Zos_QueuePoll(bad, 1, &v) + Zos_QueuePeek(bad, 1, &v) +
                      Zos_QueueGetCount(bad, &c[0], nullptr, nullptr, nullptr, nullptr) +
                      Zos_QueueDelete(bad),
                  5 * ZFAILED);
        EXPECT_TRUE(v == 0 && c[0] == 0 && Zos_QueueGetBusyCount(bad) == 0);
    }
    EXPECT_EQ(
        ktest::NotLogged("Queue", {"Add", "Poll", "Peek", "GetCount", "Delete", "GetBusyCount"},
                         " invalid id."),
        "");
}

TEST_F(ZosTest, PQueueServesLevelsInOrder) {
    ZPQUEUE q = nullptr;
    EXPECT_EQ(Zos_PQueueCreate(1, 1, 4, 8, 32, &q) + Zos_PQueueCreate(1, 1, 0, 8, 3, &q) +
                  Zos_PQueueCreate(1, 1, 4, 0xFFFFFFFF, 3, &q),
              3 * ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("PQueueCreate size is 0 or too big."));
    EXPECT_TRUE(ktest::LoggedContains("PQueueCreate priority size too big."));
    ASSERT_EQ(Zos_PQueueCreate(1, 0, 4, 3, 31, &q), ZOK);  // 32 levels, maximum 4
    EXPECT_EQ(Zos_PQueueAdd(q, 32, 8) + Zos_PQueueAdd(q, 0, 0), 2 * ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("PQueueAdd invalid element."));
    for (auto [level, item] : {std::pair{31u, 0x10}, {5u, 0x20}, {5u, 0x30}, {0u, 0x40}}) {
        ASSERT_EQ(Zos_PQueueAdd(q, level, item), ZOK);
    }
    EXPECT_EQ(Zos_PQueueAdd(q, 1, 0x50), ZFAILED);  // no free node
    EXPECT_TRUE(ktest::LoggedContains("PQueueAdd no free elem."));
    EXPECT_EQ(Zos_PQueueGetBusyCount(q), 4u);
    uint32_t level = 4;  // accepts 0..4
    uintptr_t item = 0;
    ASSERT_EQ(Zos_PQueuePoll(q, 0, &level, &item), ZOK);
    EXPECT_TRUE(item == 0x40 && level == 0);
    level = 4;
    EXPECT_EQ(Zos_PQueuePoll(q, 0, &level, &item), ZFAILED);  // only 5 and 31 left
    EXPECT_TRUE(item == 0 && level == 0);
    for (auto [wantLevel, want] : {std::pair{5u, 0x20}, {5u, 0x30}, {31u, 0x10}}) {
        level = 31;
        ASSERT_EQ(Zos_PQueuePoll(q, 0, &level, &item), ZOK);
        EXPECT_TRUE(item == static_cast<uintptr_t>(want) && level == wantLevel) << item;
    }
    EXPECT_EQ(Zos_PQueuePoll(q, 0, nullptr, &item), ZFAILED);
    EXPECT_EQ(Zos_PQueueDelete(q), ZOK);

    uint64_t fake[16] = {};
    for (ZPQUEUE bad : {static_cast<ZPQUEUE>(nullptr), static_cast<ZPQUEUE>(fake)}) {
        EXPECT_EQ(Zos_PQueueAdd(bad, 0, 8) + Zos_PQueuePoll(bad, 1, nullptr, &item) +
                      Zos_PQueueRmv(bad, 0, 8) + Zos_PQueueDelete(bad) +
                      Zos_PQueueGetCount(bad, nullptr, nullptr, nullptr, nullptr, nullptr),
                  5 * ZFAILED);
        EXPECT_EQ(Zos_PQueueFind(bad, 0, 8) + Zos_PQueueGetBusyCount(bad) +
                      Zos_PQueueFindIf(bad, IsOdd, 0, nullptr, nullptr),
                  0u);
    }
    EXPECT_EQ(ktest::NotLogged(
                  "PQueue",
                  {"Add", "Poll", "Rmv", "Delete", "GetCount", "Find", "GetBusyCount", "FindIf"},
                  " invalid id."),
              "");
    // Deleting no queue at all is refused without a line.
    ktest::ClearLogged();
    EXPECT_EQ(Zos_PQueueDelete(nullptr) + Zos_QueueDelete(nullptr), 2 * ZFAILED);
    EXPECT_TRUE(ktest::Logged().empty());
}

TEST_F(ZosTest, PQueueRemoveRescanSkipsTheHighestLevel) {
    // Unlocked (the lists lock themselves) and locked (the queue's lock
    // covers them and the busy levels are tracked apart).
    for (uint32_t locked : {0u, 1u}) {
        ZPQUEUE q = nullptr;
        ASSERT_EQ(Zos_PQueueCreate(locked, 0, 8, 8, 3, &q), ZOK);
        ASSERT_EQ(Zos_PQueueAdd(q, 1, 0x100), ZOK);
        ASSERT_EQ(Zos_PQueueAdd(q, 3, 0x300), ZOK);
        EXPECT_EQ(
            Zos_PQueueFind(q, 1, 0x100) + Zos_PQueueFind(q, 3, 0x100) + Zos_PQueueFind(q, 4, 0x100),
            1u);
        EXPECT_TRUE(ktest::LoggedContains("PQueueFind invalid element."));
        // Not at that level, or no such level.
        EXPECT_EQ(Zos_PQueueRmv(q, 3, 0x100) + Zos_PQueueRmv(q, 4, 0x100) + Zos_PQueueRmv(q, 1, 0),
                  3 * ZFAILED);
        EXPECT_TRUE(ktest::LoggedContains("PQueueRmv invalid element."));
        ASSERT_EQ(Zos_PQueueRmv(q, 1, 0x100), ZOK);
        // Level 3 still holds an item, but the rescan stopped at level 2.
        EXPECT_EQ(Zos_PQueueGetBusyCount(q), 1u);
        uintptr_t item = 0;
        EXPECT_EQ(Zos_PQueuePoll(q, 0, nullptr, &item), ZFAILED);
        // The next adds lower top again; a level emptied by a remove below
        // the top is skipped by the poll's own rescan, which reaches 3.
        ASSERT_EQ(Zos_PQueueAdd(q, 0, 0x10) + Zos_PQueueAdd(q, 2, 0x200) +
                      Zos_PQueueAdd(q, 1, 0x110) + Zos_PQueueRmv(q, 1, 0x110),
                  ZOK);
        for (uintptr_t want : {0x10, 0x200, 0x300}) {
            ASSERT_EQ(Zos_PQueuePoll(q, 0, nullptr, &item), ZOK);
            EXPECT_EQ(item, want) << locked;
        }
        // Removing the top level's last item below the highest finds the
        // next busy level at once.
        ASSERT_EQ(
            Zos_PQueueAdd(q, 1, 0x120) + Zos_PQueueAdd(q, 2, 0x220) + Zos_PQueueRmv(q, 1, 0x120),
            ZOK);
        ASSERT_EQ(Zos_PQueuePoll(q, 0, nullptr, &item), ZOK);
        EXPECT_EQ(item, 0x220u) << locked;
        uint32_t c[5];
        ASSERT_EQ(Zos_PQueueGetCount(q, &c[0], &c[1], &c[2], &c[3], &c[4]), ZOK);
        EXPECT_TRUE(c[1] == 0 && c[2] == 7 && c[3] == 7);
        EXPECT_EQ(Zos_PQueueDelete(q), ZOK);
    }
}

// A poll leaves the next node as the level's head; removing that head, or
// the tail, must leave the level and the node bucket whole, so the nodes
// that the next adds reuse are free ones and nothing queued is handed out.
TEST_F(ZosTest, PQueueRemovesHeadAndTailAfterPolls) {
    for (uint32_t locked : {0u, 1u}) {
        ZPQUEUE q = nullptr;
        ASSERT_EQ(Zos_PQueueCreate(locked, 0, 8, 8, 0, &q), ZOK);
        for (uintptr_t i = 1; i <= 5; ++i) ASSERT_EQ(Zos_PQueueAdd(q, 0, i << 4), ZOK);
        uintptr_t item = 0;
        ASSERT_EQ(Zos_PQueuePoll(q, 0, nullptr, &item), ZOK);
        EXPECT_EQ(item, 0x10u);
        EXPECT_EQ(Zos_PQueueRmv(q, 0, 0x20) + Zos_PQueueRmv(q, 0, 0x50), ZOK);
        for (uintptr_t i = 6; i <= 8; ++i) ASSERT_EQ(Zos_PQueueAdd(q, 0, i << 4), ZOK);
        EXPECT_EQ(Zos_PQueueFind(q, 0, 0x20) + Zos_PQueueFind(q, 0, 0x50), 0u);
        for (uintptr_t want : {0x30, 0x40, 0x60, 0x70, 0x80}) {
            ASSERT_EQ(Zos_PQueuePoll(q, 0, nullptr, &item), ZOK);
            EXPECT_EQ(item, want) << locked;
        }
        uint32_t c[5];
        ASSERT_EQ(Zos_PQueueGetCount(q, &c[0], &c[1], &c[2], &c[3], &c[4]), ZOK);
        EXPECT_TRUE(c[1] == 0 && c[2] == 8 && c[3] == 8 && c[4] == 5) << c[4];
        EXPECT_EQ(Zos_PQueueDelete(q), ZOK);
    }
}

TEST_F(ZosTest, PQueueFindIfReportsTheLastVisitedLevel) {
    ZPQUEUE q = nullptr;
    ASSERT_EQ(Zos_PQueueCreate(0, 0, 8, 8, 0, &q), ZOK);
    ASSERT_EQ(Zos_PQueueAdd(q, 0, 3), ZOK);
    uint32_t level = 77;
    uintptr_t item = 77;
    EXPECT_EQ(Zos_PQueueFindIf(q, IsOdd, 0, &level, &item), 0u);  // no level visited
    EXPECT_TRUE(level == 77 && item == 77);
    EXPECT_EQ(Zos_PQueueDelete(q), ZOK);

    ASSERT_EQ(Zos_PQueueCreate(0, 0, 8, 8, 3, &q), ZOK);
    for (uintptr_t i : {2, 5, 7}) ASSERT_EQ(Zos_PQueueAdd(q, 0, i), ZOK);
    ASSERT_EQ(Zos_PQueueAdd(q, 3, 9), ZOK);
    // Level 0 matches first at 5, level 2 does not: outs from level 0,
    // result 0; level 3 is never visited.
    EXPECT_EQ(Zos_PQueueFindIf(q, IsOdd, 0, &level, &item), 0u);
    EXPECT_TRUE(level == 0 && item == 5);
    ASSERT_EQ(Zos_PQueueAdd(q, 2, 11), ZOK);
    EXPECT_EQ(Zos_PQueueFindIf(q, IsOdd, 0, &level, &item), 1u);
    EXPECT_TRUE(level == 2 && item == 11);
    EXPECT_EQ(Zos_PQueueDelete(q), ZOK);
}

TEST_F(ZosTest, PQueueWaitsPerAcceptedLevel) {
    Hook(45, RecordingWait);
    g_waits = g_timedWaits = 0;
    ZPQUEUE q = nullptr;
    ASSERT_EQ(Zos_PQueueCreate(1, 1, 8, 8, 3, &q), ZOK);
    ASSERT_EQ(Zos_PQueueAdd(q, 2, 0x200), ZOK);
    // Accepting 0..1 while only level 2 is queued: adding at level 1 does
    // not post (the queue was not empty), so the poller sleeps on.
    std::atomic<uintptr_t> got{0};
    auto poll = [&](uint32_t level) {
        uintptr_t item = 0;
        if (Zos_PQueuePoll(q, 1, &level, &item) == ZOK) got = item;
    };
    std::thread poller(poll, 1);
    AwaitWaits(1);
    EXPECT_EQ(Zos_PQueueAdd(q, 1, 0x100), ZOK);
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    EXPECT_TRUE(got == 0 && g_timedWaits == 0);  // sleeps without limit
    // Emptying and refilling posts; now the poller wakes.
    uintptr_t item = 0;
    while (Zos_PQueuePoll(q, 0, nullptr, &item) == ZOK) {
    }
    EXPECT_EQ(Zos_PQueueAdd(q, 0, 0x10), ZOK);
    poller.join();
    EXPECT_EQ(got, 0x10u);

    // Accepting only level 0 wakes every 100 ms, so an urgent item queued
    // behind others (no post) is still served.
    ASSERT_EQ(Zos_PQueueAdd(q, 3, 0x300), ZOK);
    const int before = g_waits;
    std::thread urgent(poll, 0);
    AwaitWaits(before + 2);
    EXPECT_EQ(Zos_PQueueAdd(q, 0, 0x20), ZOK);
    urgent.join();
    EXPECT_TRUE(got == 0x20 && g_timedWaits >= 1 && g_timedMs == 100);
    EXPECT_EQ(Zos_PQueueDelete(q), ZOK);
}

TEST_F(ZosQuietTest, QueueLockAndSemaphoreFollowTheirSwitches) {
    // The lock sleeps its waiters on a semaphore of its own: when that
    // cannot be made the locked queues fail as for their mutex.
    Hook(42, FailSemCreate);
    ZQUEUE q = &q;
    ZPQUEUE pq = &pq;
    EXPECT_EQ(Zos_QueueCreate(1, 0, 4, 8, &q) + Zos_PQueueCreate(1, 0, 4, 8, 3, &pq), 2 * ZFAILED);
    EXPECT_TRUE(q == nullptr && pq == nullptr);
    ASSERT_EQ(Zos_QueueCreate(0, 1, 4, 8, &q), ZOK);  // no lock wanted
    EXPECT_EQ(Zos_QueueDelete(q), ZOK);

    // Mutexes switched off: no lock is made and the queue still serves.
    Zos_CfgSetOsMutexSupt(0);
    ASSERT_EQ(Zos_PQueueCreate(1, 1, 4, 8, 3, &pq), ZOK);
    uintptr_t item = 0;
    EXPECT_EQ(Zos_PQueueAdd(pq, 2, 0x20) + Zos_PQueuePoll(pq, 1, nullptr, &item), ZOK);
    EXPECT_EQ(item, 0x20u);
    EXPECT_EQ(Zos_PQueueDelete(pq), ZOK);
    Zos_CfgSetOsMutexSupt(1);
    Hook(42, Zpand_SemCreate);

    // Semaphores switched off when the queue is made: a poll waiting for
    // level 0 looks again at once instead of sleeping its 100 ms turns on
    // the semaphore, and an add still reaches it.
    Hook(45, RecordingWait);
    g_timedWaits = 0;
    Zos_CfgSetOsSemSupt(0);
    ASSERT_EQ(Zos_PQueueCreate(1, 1, 4, 8, 3, &pq), ZOK);
    Zos_CfgSetOsSemSupt(1);
    std::atomic<uintptr_t> got{0};
    std::thread poller([&] {
        uint32_t accept = 0;
        uintptr_t v = 0;
        if (Zos_PQueuePoll(pq, 1, &accept, &v) == ZOK) got = v;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(Zos_PQueueAdd(pq, 0, 0x30), ZOK);
    poller.join();
    EXPECT_TRUE(got == 0x30 && g_timedWaits == 0);
    EXPECT_EQ(Zos_PQueueDelete(pq), ZOK);
}

TEST_F(ZosTest, PQueueSearchMayUseTheQueueItSearches) {
    ZPQUEUE q = nullptr;
    ASSERT_EQ(Zos_PQueueCreate(1, 0, 8, 8, 3, &q), ZOK);
    ASSERT_EQ(Zos_PQueueAdd(q, 1, 0x10) + Zos_PQueueAdd(q, 2, 0x20), ZOK);
    uint32_t level = 0;
    uintptr_t item = 0;
    // Matches at level 1 (adding 0x11 at level 3); level 2 holds no level-1
    // item, so the result is 0 with the outs from level 1.
    EXPECT_EQ(Zos_PQueueFindIf(q, ReentersQueue, reinterpret_cast<uintptr_t>(q), &level, &item),
              0u);
    EXPECT_TRUE(level == 1 && item == 0x10);
    EXPECT_EQ(Zos_PQueueGetBusyCount(q), 3u);
    EXPECT_EQ(Zos_PQueueFind(q, 3, 0x11), 1u);
    EXPECT_EQ(Zos_PQueueDelete(q), ZOK);
}
