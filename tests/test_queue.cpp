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
std::atomic<uint32_t> g_lastWait{0};
std::atomic<int> g_waits{0};

void *FailingMalloc(uint32_t size) {
    if (g_mallocsLeft >= 0 && g_mallocsLeft-- == 0) return nullptr;
    return Zpand_Malloc(size);
}
uint32_t CountingPost(ZSEM *sem) {
    ++g_posts;
    return Zpand_SemPost(sem);
}
uint32_t RecordingWait(ZSEM *sem, uint32_t ms) {
    g_lastWait = ms;
    ++g_waits;
    return Zpand_SemWait(sem, ms);
}
uint32_t FailSem(ZSEM *) {
    return ZFAILED;
}

void Hook(uint32_t slot, auto fn) {
    ktest::Slot(slot) = reinterpret_cast<ZOS_OSDEP_FUNC>(fn);
}

struct Counts {
    uint32_t free, used, gets, puts, peak;
};

Counts BktCounts(ZDBKT b) {
    Counts c{};
    EXPECT_EQ(Zos_DbktGetCount(b, &c.free, &c.used, &c.gets, &c.puts, &c.peak), ZOK);
    return c;
}

// Until some thread has entered the semaphore wait n times in all.
void AwaitWaits(int n) {
    while (g_waits < n) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

uint32_t IsOdd(uintptr_t item, uintptr_t) {
    return item & 1;
}
uint32_t Equals(uintptr_t item, uintptr_t arg) {
    return item == arg;
}

}  // namespace

TEST_F(ZosTest, BucketGrowsToItsMaximumAndChecksTags) {
    EXPECT_EQ(Zos_DbktCreate(0, 1, 0, 1, 1, 1), nullptr);
    EXPECT_EQ(Zos_DbktCreate(0, 1, 8, 0, 0, 1), nullptr);
    ZDBKT b = Zos_DbktCreate(1, 1, 24, 2, 10, 4);
    ASSERT_NE(b, nullptr);
    std::vector<unsigned char *> nodes;
    for (int i = 0; i < 10; ++i) {
        auto *n = static_cast<unsigned char *>(Zos_DbktGetBkt(b));
        ASSERT_NE(n, nullptr) << i;
        std::memset(n, 0xA5, 24);  // the whole area is the caller's
        nodes.push_back(n);
        if (i == 2) {
            EXPECT_EQ(BktCounts(b).free, 3u);  // 2 + one block of 4
        }
    }
    EXPECT_EQ(Zos_DbktGetBkt(b), nullptr);  // 2 + 4 + 4: at the maximum
    for (int i = 0; i < 4; ++i) EXPECT_EQ(Zos_DbktPutBkt(b, nodes[i]), ZOK);
    EXPECT_EQ(Zos_DbktPutBkt(b, nodes[0]), ZFAILED);  // already free
    unsigned char junk[64] = {};
    EXPECT_EQ(Zos_DbktPutBkt(b, junk + 32), ZFAILED);
    EXPECT_EQ(Zos_DbktPutBkt(b, nullptr), ZFAILED);
    Counts c = BktCounts(b);
    EXPECT_EQ(c.free, 4u);
    EXPECT_EQ(c.used, 6u);
    EXPECT_EQ(c.gets, 10u);
    EXPECT_EQ(c.puts, 4u);
    EXPECT_EQ(c.peak, 10u);
    // Freed nodes come back whole and untouched by their neighbours' use.
    for (int i = 0; i < 4; ++i) EXPECT_NE(Zos_DbktGetBkt(b), nullptr);
    EXPECT_EQ(Zos_DbktDelete(b), ZOK);

    // A maximum of 0 becomes the initial count; growth 0 never adds a block.
    for (ZDBKT fixed : {Zos_DbktCreate(0, 0, 4, 3, 0, 8), Zos_DbktCreate(0, 0, 4, 3, 9, 0)}) {
        ASSERT_NE(fixed, nullptr);
        for (int i = 0; i < 3; ++i) EXPECT_NE(Zos_DbktGetBkt(fixed), nullptr);
        EXPECT_EQ(Zos_DbktGetBkt(fixed), nullptr);
        EXPECT_EQ(Zos_DbktDelete(fixed), ZOK);
    }

    uint32_t out = 7;
    uint64_t fake[8] = {};
    EXPECT_EQ(Zos_DbktGetCount(nullptr, &out, nullptr, nullptr, nullptr, nullptr), ZFAILED);
    EXPECT_EQ(out, 0u);
    EXPECT_EQ(Zos_DbktGetBkt(fake), nullptr);
    EXPECT_EQ(Zos_DbktPutBkt(fake, junk + 32), ZFAILED);
    EXPECT_EQ(Zos_DbktDelete(fake), ZFAILED);
}

TEST_F(ZosTest, CreateFailuresUndoEverything) {
    // Failing each allocation in turn: every failed create leaves nothing
    // behind (the leak checker sees the rest) and clears the out handle.
    Hook(0, FailingMalloc);
    for (int pq = 0; pq < 2; ++pq) {
        bool made = false;
        for (int k = 0; k < 8 && !made; ++k) {
            g_mallocsLeft = k;
            void *h = &made;
            const uint32_t rc =
                pq ? Zos_PQueueCreate(1, 1, 4, 8, 3, &h) : Zos_QueueCreate(1, 1, 4, 8, &h);
            made = rc == ZOK;
            if (made) {
                EXPECT_EQ(pq ? Zos_PQueueDelete(h) : Zos_QueueDelete(h), ZOK);
            } else {
                EXPECT_EQ(h, nullptr);
            }
        }
        EXPECT_TRUE(made);
    }
    g_mallocsLeft = -1;

    // A bucket that cannot grow fails the add but keeps the queue usable.
    ZQUEUE q = nullptr;
    ASSERT_EQ(Zos_QueueCreate(0, 0, 1, 100, &q), ZOK);
    EXPECT_EQ(Zos_QueueAdd(q, 1), ZOK);
    g_mallocsLeft = 0;
    EXPECT_EQ(Zos_QueueAdd(q, 2), ZFAILED);
    g_mallocsLeft = -1;
    EXPECT_EQ(Zos_QueueAdd(q, 3), ZOK);
    EXPECT_EQ(Zos_QueueGetBusyCount(q), 2u);
    EXPECT_EQ(Zos_QueueDelete(q), ZOK);

    Hook(43, FailSem);
    EXPECT_EQ(Zos_QueueCreate(1, 1, 4, 8, &q), ZFAILED);
    EXPECT_EQ(Zos_QueueCreate(1, 0, 4, 8, &q), ZOK);  // no semaphore wanted
    EXPECT_EQ(Zos_QueueDelete(q), ZOK);
    ZPQUEUE pq = nullptr;
    EXPECT_EQ(Zos_PQueueCreate(1, 1, 4, 8, 3, &pq), ZFAILED);
    EXPECT_EQ(pq, nullptr);
}

TEST_F(ZosTest, QueueOrderLimitsAndCounters) {
    ZQUEUE q = nullptr;
    EXPECT_EQ(Zos_QueueCreate(1, 1, 4, 8, nullptr), ZFAILED);
    EXPECT_EQ(Zos_QueueCreate(1, 1, 0, 0, &q), ZFAILED);
    EXPECT_EQ(Zos_QueueCreate(1, 1, 0x10000, 0, &q), ZFAILED);  // counts are 16-bit
    ASSERT_EQ(Zos_QueueCreate(1, 0, 0x10002, 10, &q), ZOK);     // 2 nodes at most
    EXPECT_EQ(Zos_QueueAdd(q, 1), ZOK);
    EXPECT_EQ(Zos_QueueAdd(q, 2), ZOK);
    EXPECT_EQ(Zos_QueueAdd(q, 3), ZFAILED);
    EXPECT_EQ(Zos_QueueDelete(q), ZOK);
    ASSERT_EQ(Zos_QueueCreate(1, 0, 2, 10, &q), ZOK);  // grows by 8 to 10

    uintptr_t v = 99;
    EXPECT_EQ(Zos_QueuePoll(q, 0, &v), ZFAILED);  // empty, no wait
    EXPECT_EQ(v, 0u);
    EXPECT_EQ(Zos_QueueAdd(q, 0), ZFAILED);  // 0 cannot be queued
    for (uintptr_t i = 1; i <= 10; ++i) ASSERT_EQ(Zos_QueueAdd(q, i * 16), ZOK);
    EXPECT_EQ(Zos_QueueAdd(q, 11 * 16), ZFAILED);  // bucket at its maximum
    EXPECT_EQ(Zos_QueueGetBusyCount(q), 10u);
    EXPECT_EQ(Zos_QueuePeek(q, 0, &v), ZOK);
    EXPECT_EQ(v, 16u);
    for (uintptr_t i = 1; i <= 10; ++i) {
        ASSERT_EQ(Zos_QueuePoll(q, 1, &v), ZOK);
        EXPECT_EQ(v, i * 16);
    }
    uint32_t c[5];
    ASSERT_EQ(Zos_QueueGetCount(q, &c[0], &c[1], &c[2], &c[3], &c[4]), ZOK);
    EXPECT_EQ(c[0], 10u);  // free
    EXPECT_EQ(c[1], 0u);   // used
    EXPECT_EQ(c[2], 10u);  // gets
    EXPECT_EQ(c[3], 10u);  // puts
    EXPECT_EQ(c[4], 10u);  // peak
    EXPECT_EQ(Zos_QueueDelete(q), ZOK);

    uint64_t fake[16] = {};
    for (ZQUEUE bad : {static_cast<ZQUEUE>(nullptr), static_cast<ZQUEUE>(fake)}) {
        v = 5;
        EXPECT_EQ(Zos_QueueAdd(bad, 1), ZFAILED);
        EXPECT_EQ(Zos_QueuePoll(bad, 1, &v), ZFAILED);
        EXPECT_EQ(v, 0u);
        EXPECT_EQ(Zos_QueuePeek(bad, 1, &v), ZFAILED);
        EXPECT_EQ(Zos_QueueGetBusyCount(bad), 0u);
        c[0] = 5;
        EXPECT_EQ(Zos_QueueGetCount(bad, &c[0], nullptr, nullptr, nullptr, nullptr), ZFAILED);
        EXPECT_EQ(c[0], 0u);
        EXPECT_EQ(Zos_QueueDelete(bad), ZFAILED);
    }
}

TEST_F(ZosTest, QueuePostsOnlyWhenItStopsBeingEmpty) {
    Hook(46, CountingPost);
    g_posts = 0;
    ZQUEUE q = nullptr;
    ASSERT_EQ(Zos_QueueCreate(1, 1, 8, 8, &q), ZOK);
    for (uintptr_t i = 1; i <= 3; ++i) ASSERT_EQ(Zos_QueueAdd(q, i), ZOK);
    EXPECT_EQ(g_posts, 1);
    uintptr_t v = 0;
    while (Zos_QueuePoll(q, 0, &v) == ZOK) {
    }
    ASSERT_EQ(Zos_QueueAdd(q, 4), ZOK);
    EXPECT_EQ(g_posts, 2);
    EXPECT_EQ(Zos_QueueDelete(q), ZOK);
}

TEST_F(ZosTest, PQueueServesLevelsInOrder) {
    ZPQUEUE q = nullptr;
    EXPECT_EQ(Zos_PQueueCreate(1, 1, 4, 8, 32, &q), ZFAILED);
    EXPECT_EQ(Zos_PQueueCreate(1, 1, 0, 8, 3, &q), ZFAILED);
    EXPECT_EQ(Zos_PQueueCreate(1, 1, 4, 0xFFFFFFFF, 3, &q), ZFAILED);
    ASSERT_EQ(Zos_PQueueCreate(1, 0, 4, 3, 31, &q), ZOK);  // 32 levels, maximum 4
    EXPECT_EQ(Zos_PQueueAdd(q, 32, 8), ZFAILED);
    EXPECT_EQ(Zos_PQueueAdd(q, 0, 0), ZFAILED);
    const struct {
        uint32_t level;
        uintptr_t item;
    } adds[] = {{31, 0x10}, {5, 0x20}, {5, 0x30}, {0, 0x40}};
    for (auto a : adds) ASSERT_EQ(Zos_PQueueAdd(q, a.level, a.item), ZOK);
    EXPECT_EQ(Zos_PQueueAdd(q, 1, 0x50), ZFAILED);  // no free node
    EXPECT_EQ(Zos_PQueueGetBusyCount(q), 4u);

    uint32_t level = 4;  // accepts 0..4
    uintptr_t item = 0;
    ASSERT_EQ(Zos_PQueuePoll(q, 0, &level, &item), ZOK);
    EXPECT_EQ(item, 0x40u);
    EXPECT_EQ(level, 0u);
    level = 4;
    EXPECT_EQ(Zos_PQueuePoll(q, 0, &level, &item), ZFAILED);  // only 5 and 31 left
    EXPECT_EQ(level, 0u);
    EXPECT_EQ(item, 0u);
    const uintptr_t order[] = {0x20, 0x30, 0x10};
    const uint32_t levels[] = {5, 5, 31};
    for (int i = 0; i < 3; ++i) {
        level = 31;
        ASSERT_EQ(Zos_PQueuePoll(q, 0, &level, &item), ZOK);
        EXPECT_EQ(item, order[i]);
        EXPECT_EQ(level, levels[i]);
    }
    EXPECT_EQ(Zos_PQueuePoll(q, 0, nullptr, &item), ZFAILED);
    EXPECT_EQ(Zos_PQueueDelete(q), ZOK);

    uint64_t fake[16] = {};
    for (ZPQUEUE bad : {static_cast<ZPQUEUE>(nullptr), static_cast<ZPQUEUE>(fake)}) {
        EXPECT_EQ(Zos_PQueueAdd(bad, 0, 8), ZFAILED);
        EXPECT_EQ(Zos_PQueuePoll(bad, 1, nullptr, &item), ZFAILED);
        EXPECT_EQ(Zos_PQueueRmv(bad, 0, 8), ZFAILED);
        EXPECT_EQ(Zos_PQueueFind(bad, 0, 8), 0u);
        EXPECT_EQ(Zos_PQueueFindIf(bad, IsOdd, 0, nullptr, nullptr), 0u);
        EXPECT_EQ(Zos_PQueueGetBusyCount(bad), 0u);
        EXPECT_EQ(Zos_PQueueGetCount(bad, nullptr, nullptr, nullptr, nullptr, nullptr), ZFAILED);
        EXPECT_EQ(Zos_PQueueDelete(bad), ZFAILED);
    }
}

TEST_F(ZosTest, PQueueRemoveRescanSkipsTheHighestLevel) {
    ZPQUEUE q = nullptr;
    ASSERT_EQ(Zos_PQueueCreate(0, 0, 8, 8, 3, &q), ZOK);  // unlocked: lists lock themselves
    ASSERT_EQ(Zos_PQueueAdd(q, 1, 0x100), ZOK);
    ASSERT_EQ(Zos_PQueueAdd(q, 3, 0x300), ZOK);
    EXPECT_EQ(Zos_PQueueFind(q, 1, 0x100), 1u);
    EXPECT_EQ(Zos_PQueueFind(q, 3, 0x100), 0u);
    EXPECT_EQ(Zos_PQueueFind(q, 4, 0x100), 0u);
    EXPECT_EQ(Zos_PQueueRmv(q, 3, 0x100), ZFAILED);  // not at that level
    EXPECT_EQ(Zos_PQueueRmv(q, 4, 0x100), ZFAILED);
    ASSERT_EQ(Zos_PQueueRmv(q, 1, 0x100), ZOK);
    // Level 3 still holds an item, but the rescan stopped at level 2.
    EXPECT_EQ(Zos_PQueueGetBusyCount(q), 1u);
    uintptr_t item = 0;
    EXPECT_EQ(Zos_PQueuePoll(q, 0, nullptr, &item), ZFAILED);
    // The next add lowers top again; the poll's own rescan reaches level 3.
    ASSERT_EQ(Zos_PQueueAdd(q, 2, 0x200), ZOK);
    ASSERT_EQ(Zos_PQueuePoll(q, 0, nullptr, &item), ZOK);
    EXPECT_EQ(item, 0x200u);
    ASSERT_EQ(Zos_PQueuePoll(q, 0, nullptr, &item), ZOK);
    EXPECT_EQ(item, 0x300u);
    uint32_t c[5];
    ASSERT_EQ(Zos_PQueueGetCount(q, &c[0], &c[1], &c[2], &c[3], &c[4]), ZOK);
    EXPECT_EQ(c[1], 0u);
    EXPECT_EQ(c[2], 3u);
    EXPECT_EQ(c[3], 3u);
    EXPECT_EQ(Zos_PQueueDelete(q), ZOK);
}

TEST_F(ZosTest, PQueueFindIfReportsTheLastVisitedLevel) {
    ZPQUEUE q = nullptr;
    ASSERT_EQ(Zos_PQueueCreate(0, 0, 8, 8, 0, &q), ZOK);
    ASSERT_EQ(Zos_PQueueAdd(q, 0, 3), ZOK);
    uint32_t level = 77;
    uintptr_t item = 77;
    EXPECT_EQ(Zos_PQueueFindIf(q, IsOdd, 0, &level, &item), 0u);  // no level visited
    EXPECT_EQ(level, 77u);
    EXPECT_EQ(item, 77u);
    EXPECT_EQ(Zos_PQueueDelete(q), ZOK);

    ASSERT_EQ(Zos_PQueueCreate(0, 0, 8, 8, 3, &q), ZOK);
    for (uintptr_t i : {2, 5, 7}) ASSERT_EQ(Zos_PQueueAdd(q, 0, i), ZOK);
    ASSERT_EQ(Zos_PQueueAdd(q, 3, 9), ZOK);
    // Level 0 matches (first match 5), level 2 does not: outs from level 0,
    // result 0; level 3 is never visited.
    EXPECT_EQ(Zos_PQueueFindIf(q, IsOdd, 0, &level, &item), 0u);
    EXPECT_EQ(level, 0u);
    EXPECT_EQ(item, 5u);
    ASSERT_EQ(Zos_PQueueAdd(q, 2, 11), ZOK);
    EXPECT_EQ(Zos_PQueueFindIf(q, IsOdd, 0, &level, &item), 1u);
    EXPECT_EQ(level, 2u);
    EXPECT_EQ(item, 11u);
    EXPECT_EQ(Zos_PQueueFindIf(q, Equals, 9, nullptr, &item), 0u);
    EXPECT_EQ(item, 11u);
    EXPECT_EQ(Zos_PQueueDelete(q), ZOK);
}

TEST_F(ZosTest, PQueueWaitsPerAcceptedLevel) {
    Hook(45, RecordingWait);
    g_waits = 0;
    ZPQUEUE q = nullptr;
    ASSERT_EQ(Zos_PQueueCreate(1, 1, 8, 8, 3, &q), ZOK);
    ASSERT_EQ(Zos_PQueueAdd(q, 2, 0x200), ZOK);
    // Accepting 0..1 while only level 2 is queued: adding at level 1 does
    // not post (the queue was not empty), so the poller sleeps on. Its first
    // wait takes the post of the first add, the second one blocks.
    std::atomic<uintptr_t> got{0};
    std::thread poller([&] {
        uint32_t level = 1;
        uintptr_t item = 0;
        if (Zos_PQueuePoll(q, 1, &level, &item) == ZOK) got = item;
    });
    AwaitWaits(2);
    ASSERT_EQ(Zos_PQueueAdd(q, 1, 0x100), ZOK);
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    EXPECT_EQ(got, 0u);
    EXPECT_EQ(g_lastWait, ZOS_WAIT_FOREVER);
    // Emptying and refilling posts; now the poller wakes.
    uintptr_t item = 0;
    while (Zos_PQueuePoll(q, 0, nullptr, &item) == ZOK) {
    }
    ASSERT_EQ(Zos_PQueueAdd(q, 0, 0x10), ZOK);
    poller.join();
    EXPECT_EQ(got, 0x10u);

    // Accepting only level 0 wakes every 100 ms, so an urgent item queued
    // behind others (no post) is still served.
    ASSERT_EQ(Zos_PQueueAdd(q, 3, 0x300), ZOK);
    const int before = g_waits;
    std::thread urgent([&] {
        uint32_t level = 0;
        uintptr_t it = 0;
        if (Zos_PQueuePoll(q, 1, &level, &it) == ZOK) got = it;
    });
    AwaitWaits(before + 2);
    ASSERT_EQ(Zos_PQueueAdd(q, 0, 0x20), ZOK);
    urgent.join();
    EXPECT_EQ(got, 0x20u);
    EXPECT_EQ(g_lastWait, 100u);
    EXPECT_EQ(Zos_PQueueDelete(q), ZOK);
}
