// Many threads on one locked pool, and on the memory entry points in pool
// mode: no node is handed out twice and the counters add up afterwards.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "zos_test.h"

namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 4000;
constexpr uint32_t kSizes[] = {8, 32, 60, 200, 1000, 3000};  // 3000 is large

// Allocates a window of blocks stamped with the thread's byte, checks the
// stamp of the oldest before freeing it, and passes every 8th block to the
// shared bin, from which any thread frees it.
struct Shared {
    explicit Shared(ZPOOL p) : pool(p) {}
    ZPOOL pool;  // null: the memory entry points
    std::mutex binMutex;
    std::vector<void *> bin;
    std::atomic<int> bad{0};
    void *Alloc(uint32_t size) {
        return pool != nullptr ? Zos_PoolAlloc(pool, size) : Zos_Malloc(size);
    }
    void Free(void *p) { pool != nullptr ? Zos_PoolFree(pool, p) : Zos_Free(p); }
};

void Churn(Shared *sh, int id) {
    std::vector<std::pair<uint8_t *, uint32_t>> live;
    for (int i = 0; i < kRounds; ++i) {
        const uint32_t size = kSizes[(i + id) % 6];
        auto *p = static_cast<uint8_t *>(sh->Alloc(size));
        if (p == nullptr) {
            ++sh->bad;
            continue;
        }
        std::memset(p, id + 1, size);
        live.emplace_back(p, size);
        void *shared = nullptr;
        {
            std::lock_guard<std::mutex> lock(sh->binMutex);
            if (i % 8 == 0) sh->bin.push_back(p);
            if (i % 8 == 0) live.pop_back();
            if (i % 5 == 0 && !sh->bin.empty()) shared = sh->bin.back();
            if (shared != nullptr) sh->bin.pop_back();
        }
        sh->Free(shared);
        if (live.size() > 16) {
            auto [old, oldSize] = live.front();
            live.erase(live.begin());
            if (old[0] != id + 1 || old[oldSize - 1] != id + 1) ++sh->bad;
            sh->Free(old);
        }
    }
    for (auto [p, size] : live) sh->Free(p);
}

void RunThreads(Shared *sh) {
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) threads.emplace_back(Churn, sh, t);
    for (auto &t : threads) t.join();
    for (void *p : sh->bin) sh->Free(p);
}

}  // namespace

TEST_F(ZosTest, LockedPoolServesManyThreadsAndBalancesItsCounters) {
    const ST_ZOS_BKT_INFO rows[] = {{16, 4, 8}, {64, 0, 8}, {256, 2, 4}, {1024, 0, 2}};
    for (uint8_t shrink : {0, 1}) {
        ST_ZOS_POOL_CFG cfg{"conc", rows, nullptr, nullptr, 1, shrink, 1, 4};
        ZPOOL pool = Zos_PoolCreate(&cfg);
        ASSERT_NE(pool, nullptr);
        Shared sh(pool);
        RunThreads(&sh);
        EXPECT_EQ(sh.bad, 0);
        uint64_t allocs = 0;
        for (uint32_t b = 0; b < 4; ++b) {
            ST_ZOS_POOL_BKT_STAT s{};
            ASSERT_EQ(Zos_PoolGetBktStat(pool, b, &s), ZOK);
            EXPECT_EQ(s.uiFree, s.uiTotal) << b;
            EXPECT_EQ(s.uiAllocs, s.uiFrees) << b;
            if (shrink == 0) {
                EXPECT_LE(s.uiPeak, s.uiTotal) << b;
            } else {
                EXPECT_EQ(s.uiTotal, rows[b].uiInitCnt) << b;  // shrunk back
            }
            allocs += s.uiAllocs;
        }
        // Every size but the large one came from a bucket.
        uint64_t small = 0;
        for (int t = 0; t < kThreads; ++t) {
            for (int i = 0; i < kRounds; ++i) small += kSizes[(i + t) % 6] <= 1024 ? 1 : 0;
        }
        EXPECT_EQ(allocs, small);
        EXPECT_EQ(Zos_PoolGetHeapSize(pool), 0u);
        EXPECT_EQ(Zos_PoolChkPool(pool), 1u);
        Zos_PoolDelete(pool);
    }
}

TEST(ConcPoolMode, EntryPointsInPoolModeFromManyThreads) {
    Zos_CfgSetPrintDisp(ktest::PrintHook);
    ASSERT_EQ(Zos_CfgSetUseOsMalloc(0), ZOK);
    ASSERT_EQ(Zos_SysInit(), ZOK);
    Shared sh(nullptr);
    RunThreads(&sh);
    EXPECT_EQ(sh.bad, 0);
    EXPECT_EQ(Zos_MemChkPool(), ZOK);
    Zos_SysDestroy();
}

namespace {

// A backing heap whose allocations can be held back: while `hold` is set,
// an allocation (a bucket growing, under the pool's lock) waits until it
// is cleared, so the pool's lock stays taken meanwhile.
std::mutex g_heldLock;
std::condition_variable g_heldCv;
bool g_hold = false;
bool g_holding = false;
void *HeldAlloc(uint32_t size) {
    std::unique_lock<std::mutex> lock(g_heldLock);
    g_holding = g_hold;
    g_heldCv.notify_all();
    g_heldCv.wait(lock, [] { return !g_hold; });
    g_holding = false;
    return std::malloc(size);
}
void HeldFree(void *p) {
    std::free(p);
}

// Sleeps on a light lock's semaphore, counted for the threads that ask;
// the semaphore is kept so that a lost wake can be made up at the end.
thread_local bool t_counted = false;
std::atomic<int> g_sleeps{0};
std::atomic<ZSEM *> g_sleptOn{nullptr};
uint32_t CountingSemWait(ZSEM *sem, uint32_t ms) {
    if (t_counted) {
        g_sleptOn = sem;
        ++g_sleeps;
    }
    return Zpand_SemWait(sem, ms);
}

}  // namespace

// Two threads asleep on a locked pool's lock while a third holds it (its
// bucket growing): the holder's release wakes one, and that one's release
// the other. A waiter that left the lock word as plainly held, rather than
// held with sleepers, would never wake the second.
TEST_F(ZosQuietTest, ReleaseWakesEverySleeperOfALockedPoolInTurn) {
    const ZOS_OSDEP_FUNC savedWait = ktest::Slot(45);
    ktest::Slot(45) = reinterpret_cast<ZOS_OSDEP_FUNC>(CountingSemWait);
    const ST_ZOS_BKT_INFO rows[] = {{32, 0, 8}, {256, 1, 1}};
    ST_ZOS_POOL_CFG cfg{"wake", rows, HeldAlloc, HeldFree, 1, 0, 1, 2};
    ZPOOL pool = Zos_PoolCreate(&cfg);
    ASSERT_NE(pool, nullptr);
    g_sleeps = 0;
    {
        std::lock_guard<std::mutex> lock(g_heldLock);
        g_hold = true;
    }
    void *held = nullptr;
    std::thread holder([&] { held = Zos_PoolAlloc(pool, 32); });
    {
        std::unique_lock<std::mutex> lock(g_heldLock);
        g_heldCv.wait(lock, [] { return g_holding; });
    }
    std::atomic<int> done{0};
    void *got[2] = {};
    std::vector<std::thread> sleepers;
    for (int i = 0; i < 2; ++i) {
        sleepers.emplace_back([&, i] {
            t_counted = true;
            got[i] = Zos_PoolAlloc(pool, 200);  // another bucket, the same lock
            ++done;
        });
    }
    EXPECT_TRUE(ktest::Eventually([] { return g_sleeps == 2; }, std::chrono::seconds(10)))
        << "both threads should be asleep on the lock";
    {
        std::lock_guard<std::mutex> lock(g_heldLock);
        g_hold = false;
    }
    g_heldCv.notify_all();
    holder.join();
    EXPECT_TRUE(ktest::Eventually([&] { return done == 2; }, std::chrono::seconds(10)))
        << "a sleeper was never woken";
    // Wake whoever was left asleep, so that the threads can be joined.
    for (int i = done; i < 2; ++i) Zpand_SemPost(g_sleptOn);
    for (auto &t : sleepers) t.join();
    ktest::Slot(45) = savedWait;
    EXPECT_NE(held, nullptr);
    EXPECT_NE(got[0], nullptr);
    EXPECT_NE(got[1], nullptr);
    EXPECT_NE(got[0], got[1]);
    Zos_PoolFree(pool, held);
    Zos_PoolFree(pool, got[0]);
    Zos_PoolFree(pool, got[1]);
    EXPECT_EQ(Zos_PoolChkPool(pool), 1u);
    Zos_PoolDelete(pool);
}
