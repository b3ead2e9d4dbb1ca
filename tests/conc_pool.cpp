// Many threads on one locked pool, and on the memory entry points in pool
// mode: no node is handed out twice and the counters add up afterwards.
#include <atomic>
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
