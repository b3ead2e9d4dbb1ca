// Bucket pools: layout of nodes, growth, reuse, shrink, large allocations
// and the refusal of bad pointers without damage to the pool.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "zos_test.h"

namespace {

uint32_t Word(const void *p, int offset) {
    uint32_t v = 0;
    std::memcpy(&v, static_cast<const uint8_t *>(p) + offset, 4);
    return v;
}

ST_ZOS_POOL_BKT_STAT Stat(ZPOOL pool, uint32_t bkt) {
    ST_ZOS_POOL_BKT_STAT s{};
    EXPECT_EQ(Zos_PoolGetBktStat(pool, bkt, &s), ZOK);
    return s;
}

// total, free, peak, allocations, frees, blocks
std::vector<uint32_t> Counts(ZPOOL pool, uint32_t bkt) {
    const ST_ZOS_POOL_BKT_STAT s = Stat(pool, bkt);
    return {s.uiTotal, s.uiFree, s.uiPeak, s.uiAllocs, s.uiFrees, s.uiBlocks};
}
using V = std::vector<uint32_t>;

// A pool over the given rows, logging on, lock and shrink as asked; on the
// layer started with its threads (PoolTest) or without (PoolQuietTest).
template <class Layer>
class PoolOn : public Layer {
  protected:
    ZPOOL Make(std::vector<ST_ZOS_BKT_INFO> rows, uint8_t shrink = 0, uint8_t locked = 1) {
        rows_ = std::move(rows);
        ST_ZOS_POOL_CFG cfg{"test pool", rows_.data(), nullptr, nullptr,
                            locked,      shrink,       1,       static_cast<uint8_t>(rows_.size())};
        pool_ = Zos_PoolCreate(&cfg);
        return pool_;
    }
    void TearDown() override {
        Zos_PoolDelete(pool_);
        Layer::TearDown();
    }
    std::vector<ST_ZOS_BKT_INFO> rows_;
    ZPOOL pool_ = nullptr;
};
class PoolTest : public PoolOn<ZosTest> {};
class PoolQuietTest : public PoolOn<ZosQuietTest> {};

}  // namespace

TEST_F(PoolTest, CreateRefusesIncompleteDescriptions) {
    const ST_ZOS_BKT_INFO row{32, 1, 1};
    ST_ZOS_POOL_CFG cfg{"x", &row, nullptr, nullptr, 1, 0, 1, 0};
    testing::internal::CaptureStdout();
    EXPECT_EQ(Zos_PoolCreate(nullptr), nullptr);  // a platform trace, not a log line
    EXPECT_NE(testing::internal::GetCapturedStdout().find(
                  "quelmar source(PoolCreate null config.) <src/zos/zos_pool:583>\r\n"),
              std::string::npos);
    EXPECT_EQ(Zos_PoolCreate(&cfg), nullptr);  // no rows
    cfg.ucBktCnt = 1;
    cfg.pstBktInfo = nullptr;
    EXPECT_EQ(Zos_PoolCreate(&cfg), nullptr);
    cfg.pstBktInfo = &row;
    cfg.pfnAlloc = Zos_Malloc;  // an allocator without its release
    EXPECT_EQ(Zos_PoolCreate(&cfg), nullptr);
    EXPECT_EQ(Make({{32, 0, 0}}), nullptr);  // a bucket that can never hold a node
    EXPECT_EQ(Make({{32, 70000, 1}}), nullptr);

    // A null pool: the calls refuse it, and the checks find nothing to check.
    ktest::ClearLogged();
    EXPECT_EQ(Zos_PoolAlloc(nullptr, 8), nullptr);
    Zos_PoolFree(nullptr, &cfg);
    Zos_PoolDelete(nullptr);
    EXPECT_EQ(Zos_PoolChkPool(nullptr) + Zos_PoolChkBkt(nullptr, 0), 0u);
    EXPECT_TRUE(ktest::Logged().empty());
}

TEST_F(PoolTest, NodesCarryHeaderMagicRedZoneAndFreeMarker) {
    ASSERT_NE(Make({{1, 1, 1}, {17, 1, 1}, {100, 1, 1}}), nullptr);
    // Sizes are raised to the smallest node (16, or the free record with
    // 64-bit links) and rounded up to 4.
    const uint32_t smallest = sizeof(void *) == 4 ? 16 : 28;
    EXPECT_EQ(Stat(pool_, 0).uiSize, smallest);
    EXPECT_EQ(Stat(pool_, 1).uiSize, smallest > 20 ? smallest : 20);
    EXPECT_EQ(Stat(pool_, 2).uiSize, 100u);

    auto *p = static_cast<uint8_t *>(Zos_PoolAlloc(pool_, 100));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % sizeof(void *), 0u);
    EXPECT_EQ(Word(p, -8) >> 16, 2u);               // bucket index
    EXPECT_EQ(Word(p, -8) & 0x40000000u, 0u);       // in use
    EXPECT_EQ(Word(p, -4), 0xAC1D2D3Du);            // node magic
    EXPECT_EQ(std::memcmp(p + 100, "ZZZZ", 4), 0);  // red zone
    uint32_t size = 0;
    EXPECT_EQ(Zos_PoolGetSize(pool_, p, &size), ZOK);
    EXPECT_EQ(size, 100u);
    EXPECT_EQ(Zos_PoolFillPoison(pool_, p), ZOK);
    EXPECT_EQ(p[0], 0xCC);
    EXPECT_EQ(p[99], 0xCC);
    EXPECT_EQ(Zos_PoolChkMem(pool_, p), 1u);
    Zos_PoolFree(pool_, p);
    EXPECT_NE(Word(p, -8) & 0x40000000u, 0u);  // free bit
    EXPECT_EQ(std::memcmp(p + 3 * sizeof(void *), "}{Zn", 4), 0);
    EXPECT_EQ(Zos_PoolFillPoison(pool_, p), ZFAILED);  // a free node keeps its links
    EXPECT_EQ(Zos_PoolChkPool(pool_), 1u);

    EXPECT_EQ(Zos_PoolAlloc(pool_, 0), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("PoolAlloc size is 0 or too big."));
    EXPECT_EQ(Zos_PoolAlloc(pool_, 0x7FFFFFFF), nullptr);
}

TEST_F(PoolTest, GrowsByIncrementAndReusesFirstInFirstOut) {
    ASSERT_NE(Make({{32, 2, 3}}), nullptr);
    EXPECT_EQ(Stat(pool_, 0).uiTotal, 2u);
    void *a = Zos_PoolAlloc(pool_, 32);
    void *b = Zos_PoolAlloc(pool_, 32);
    void *c = Zos_PoolAlloc(pool_, 32);  // grows by 3
    EXPECT_EQ(Counts(pool_, 0), (V{5, 2, 3, 3, 0, 2}));
    // A freed node goes to the tail: the two never-used nodes come first.
    Zos_PoolFree(pool_, a);
    void *d = Zos_PoolAlloc(pool_, 8);
    void *e = Zos_PoolAlloc(pool_, 8);
    void *f = Zos_PoolAlloc(pool_, 8);
    EXPECT_NE(d, a);
    EXPECT_NE(e, a);
    EXPECT_EQ(f, a);
    EXPECT_EQ(Counts(pool_, 0), (V{5, 0, 5, 6, 1, 2}));
    for (void *p : {b, c, d, e, f}) Zos_PoolFree(pool_, p);
    EXPECT_EQ(Counts(pool_, 0), (V{5, 5, 5, 6, 6, 2}));
}

TEST_F(PoolTest, FullBucketFallsBackToLargerSizeClassThenToNothing) {
    ASSERT_NE(Make({{32, 1, 0}, {64, 1, 0}}), nullptr);
    void *a = Zos_PoolAlloc(pool_, 20);
    void *b = Zos_PoolAlloc(pool_, 20);  // the 32-byte bucket cannot grow
    uint32_t size = 0;
    EXPECT_EQ(Zos_PoolGetSize(pool_, b, &size), ZOK);
    EXPECT_EQ(size, 64u);
    EXPECT_EQ(Zos_PoolAlloc(pool_, 20), nullptr);
    Zos_PoolFree(pool_, a);
    Zos_PoolFree(pool_, b);
}

// Every request size from 1 to one past the largest bucket is served by
// the first bucket (in table order) whose data size holds it, and the
// next size up by a large allocation: the configured tables, and tables
// with rows below the smallest data size, sizes that are not multiples of
// 4, octave edges and rows out of order.
TEST_F(PoolTest, EverySizeGoesToTheFirstBucketLargeEnough) {
    std::vector<std::vector<ST_ZOS_BKT_INFO>> tables;
    auto add = [&tables](const ST_ZOS_BKT_INFO *rows, size_t n) {
        tables.emplace_back(rows, rows + n);
    };
    add(m_astZosCfgMemBktInfoGrp, 13);
    add(m_astZosCfgDbufBktInfoGrp, 12);
    add(m_astZosCfgPMemBktInfoGrp, 9);
    add(m_astZosPrintBktInfoGrp, 7);
    tables.push_back({{1, 0, 1},
                      {5, 0, 1},
                      {17, 0, 1},
                      {33, 0, 1},
                      {63, 0, 1},
                      {65, 0, 1},
                      {129, 0, 1},
                      {130, 0, 1},
                      {1023, 0, 1},
                      {1025, 0, 1}});
    tables.push_back({{300, 0, 1}, {40, 0, 1}, {64, 0, 1}, {2000, 0, 1}, {100, 0, 1}});
    for (size_t t = 0; t < tables.size(); ++t) {
        Zos_PoolDelete(pool_);
        ASSERT_NE(Make(tables[t], 0, 0), nullptr) << t;
        const uint32_t n = Zos_PoolGetBktCount(pool_);
        std::vector<uint32_t> sizes;
        uint32_t largest = 0;
        for (uint32_t b = 0; b < n; ++b) {
            sizes.push_back(Stat(pool_, b).uiSize);
            largest = std::max(largest, sizes.back());
        }
        for (uint32_t size = 1; size <= largest + 1; ++size) {
            uint32_t want = 0;  // 0: a large allocation of the rounded size
            for (uint32_t b = 0; b < n && want == 0; ++b) {
                if (sizes[b] >= size) want = sizes[b];
            }
            if (want == 0) want = (size + 3) / 4 * 4;
            void *p = Zos_PoolAlloc(pool_, size);
            ASSERT_NE(p, nullptr) << t << " " << size;
            uint32_t got = 0;
            EXPECT_EQ(Zos_PoolGetSize(pool_, p, &got), ZOK);
            Zos_PoolFree(pool_, p);
            ASSERT_EQ(got, want) << "table " << t << " size " << size;
        }
    }
}

TEST_F(PoolTest, ShrinkReleasesOnlyBlocksBeyondTheInitialCount) {
    ASSERT_NE(Make({{32, 2, 2}, {64, 0, 1}}, 1), nullptr);
    void *p[4];
    for (void *&x : p) x = Zos_PoolAlloc(pool_, 32);
    Zos_PoolFree(pool_, p[2]);
    EXPECT_EQ(Counts(pool_, 0), (V{4, 1, 4, 4, 1, 2}));  // its block is still half in use
    Zos_PoolFree(pool_, p[3]);
    EXPECT_EQ(Counts(pool_, 0), (V{2, 0, 4, 4, 2, 1}));
    Zos_PoolFree(pool_, p[0]);
    Zos_PoolFree(pool_, p[1]);
    EXPECT_EQ(Counts(pool_, 0), (V{2, 2, 4, 4, 4, 1}));  // the initial block stays
    // A block that empties while nodes of another block are free leaves
    // those listed, in their order.
    for (void *&x : p) x = Zos_PoolAlloc(pool_, 32);
    for (int i : {0, 2, 3}) Zos_PoolFree(pool_, p[i]);
    EXPECT_EQ(Counts(pool_, 0), (V{2, 1, 4, 8, 7, 1}));
    EXPECT_EQ(Zos_PoolChkBkt(pool_, 0), 1u);
    EXPECT_EQ(Zos_PoolAlloc(pool_, 32), p[0]);
    Zos_PoolFree(pool_, p[0]);
    Zos_PoolFree(pool_, p[1]);
    // A bucket without initial nodes gives its only block back.
    Zos_PoolFree(pool_, Zos_PoolAlloc(pool_, 64));
    EXPECT_EQ(Counts(pool_, 1), (V{0, 0, 1, 1, 1, 0}));
    EXPECT_EQ(Zos_PoolChkPool(pool_), 1u);
}

// A block grown for an allocation hands out its first node at once, in
// use, with the rest listed behind it; a free that empties a block takes
// the block's other nodes out of the list wherever they lie among another
// block's; and the block kept aside, grown into again, serves as a new one.
TEST_F(PoolTest, GrowthHandsOutTheFirstNodeAndAnEmptiedBlockLeavesTheList) {
    ASSERT_NE(Make({{32, 0, 3}}, 1), nullptr);
    uint8_t *a[6];
    a[0] = static_cast<uint8_t *>(Zos_PoolAlloc(pool_, 32));
    ASSERT_NE(a[0], nullptr);
    EXPECT_EQ(Counts(pool_, 0), (V{3, 2, 1, 1, 0, 1}));
    EXPECT_EQ(Word(a[0], -8), 0u);  // bucket 0, node 0, not free
    EXPECT_EQ(Zos_PoolChkBkt(pool_, 0), 1u);
    for (int i = 1; i < 6; ++i) a[i] = static_cast<uint8_t *>(Zos_PoolAlloc(pool_, 32));
    EXPECT_EQ(a[1] - a[0], a[2] - a[1]);
    EXPECT_EQ(Word(a[3], -8), 3u);  // numbered on in the second block
    EXPECT_EQ(Counts(pool_, 0), (V{6, 0, 6, 6, 0, 2}));
    Zos_PoolFree(pool_, a[0]);
    Zos_PoolFree(pool_, a[0]);
    EXPECT_TRUE(ktest::LoggedContains("PoolFree <test pool> free twice."));
    // The free list is now a0 a3 a4 a1; freeing a5 empties the second block,
    // and that free still reports a5's broken red zone.
    for (int i : {3, 4, 1}) Zos_PoolFree(pool_, a[i]);
    a[5][32] = 'x';
    ktest::ClearLogged();
    Zos_PoolFree(pool_, a[5]);
    EXPECT_TRUE(ktest::LoggedContains("PoolFree <test pool> invalid redzone."));
    EXPECT_EQ(Counts(pool_, 0), (V{3, 2, 6, 6, 5, 1}));
    EXPECT_EQ(Zos_PoolChkBkt(pool_, 0), 1u);
    EXPECT_EQ(Zos_PoolIsValid(pool_, a[4]), 0u);
    for (int i : {0, 1, 3, 4, 5}) EXPECT_EQ(Zos_PoolAlloc(pool_, 32), a[i]) << i;
    EXPECT_EQ(Counts(pool_, 0), (V{6, 0, 6, 11, 5, 2}));
    EXPECT_EQ(Word(a[3], -8), 3u);
    // The kept block was laid out anew: a5's red zone is whole again.
    EXPECT_EQ(Zos_PoolChkMem(pool_, a[5]), 1u);
    EXPECT_EQ(Zos_PoolChkPool(pool_), 1u);
}

namespace {

// A backing allocator that counts what it hands out and takes back, and
// fails once it has handed out g_backBudget more (-1: never).
int g_backAllocs = 0;
int g_backFrees = 0;
int g_backBudget = -1;
void *CountedAlloc(uint32_t size) {
    if (g_backBudget == 0) return nullptr;
    if (g_backBudget > 0) --g_backBudget;
    ++g_backAllocs;
    return std::malloc(size);
}
void CountedFree(void *p) {
    ++g_backFrees;
    std::free(p);
}

// An unlocked, shrinking pool named "spare" on the counting allocator,
// with the counts reset.
template <size_t N>
ZPOOL CountedPool(const ST_ZOS_BKT_INFO (&rows)[N]) {
    g_backAllocs = g_backFrees = 0;
    ST_ZOS_POOL_CFG cfg{"spare", rows, CountedAlloc, CountedFree, 0, 1, 1, static_cast<uint8_t>(N)};
    return Zos_PoolCreate(&cfg);
}

}  // namespace

// A block the shrink step takes off keeps out of every count, list and
// check, as if released, and is laid out again at the next growth of its
// bucket without a call to the backing allocator; the pool's deletion
// gives it back (the leak checker would see it otherwise).
TEST_F(PoolTest, ShrunkBlockIsKeptOutOfSightAndReusedForTheNextGrowth) {
    const ST_ZOS_BKT_INFO rows[] = {{32, 1, 2}, {128, 0, 2}};
    ZPOOL pool = CountedPool(rows);
    ASSERT_NE(pool, nullptr);
    const int made = g_backAllocs;
    // Bucket 1 grows by one block of two nodes, empties, shrinks.
    void *a = Zos_PoolAlloc(pool, 100);
    void *b = Zos_PoolAlloc(pool, 100);
    EXPECT_EQ(g_backAllocs, made + 1);  // the block
    Zos_PoolFree(pool, a);
    Zos_PoolFree(pool, b);
    EXPECT_EQ(Counts(pool, 1), (V{0, 0, 2, 2, 2, 0}));
    EXPECT_EQ(Zos_PoolIsValid(pool, a), 0u);  // no longer one of the pool's nodes
    EXPECT_EQ(Zos_PoolChkBkt(pool, 1), 1u);
    // Nodes of the kept block are refused as foreign: a, and b, whose free
    // emptied the block and which never went back on the free list.
    for (void *p : {a, b}) {
        ktest::ClearLogged();
        Zos_PoolFree(pool, p);
        EXPECT_TRUE(ktest::LoggedContains("PoolFree <spare> invalid id(ex.magic id)."));
    }
    EXPECT_EQ(Counts(pool, 1), (V{0, 0, 2, 2, 2, 0}));
    // Regrowth: the same memory, fresh nodes, counts as for a new block.
    void *c = Zos_PoolAlloc(pool, 100);
    void *d = Zos_PoolAlloc(pool, 100);
    EXPECT_EQ(c, a);
    EXPECT_EQ(d, b);
    EXPECT_EQ(Word(c, -4), 0xAC1D2D3Du);
    EXPECT_EQ(Word(c, 128), 0x5A5A5A5Au);
    EXPECT_EQ(Counts(pool, 1), (V{2, 0, 2, 4, 2, 1}));
    EXPECT_EQ(Zos_PoolIsValid(pool, c), 1u);
    // A second block while the first is in use comes from the allocator;
    // with both empty both are kept (small blocks), and both serve the
    // next growths without the allocator.
    void *e = Zos_PoolAlloc(pool, 100);
    EXPECT_EQ(g_backAllocs, made + 2);
    for (void *p : {c, d, e}) Zos_PoolFree(pool, p);
    EXPECT_EQ(Counts(pool, 1), (V{0, 0, 3, 5, 5, 0}));
    EXPECT_EQ(g_backFrees, 0);
    EXPECT_EQ(Zos_PoolChkPool(pool), 1u);
    void *f[3];
    for (void *&p : f) p = Zos_PoolAlloc(pool, 100);
    EXPECT_EQ(g_backAllocs, made + 2);
    EXPECT_EQ(Counts(pool, 1), (V{4, 1, 3, 8, 5, 2}));
    for (void *p : f) Zos_PoolFree(pool, p);
    // The explicit growth step takes a kept block as well.
    const int before = g_backAllocs;
    ASSERT_EQ(Zos_BktCreate(pool, 1, 0), ZOK);
    EXPECT_EQ(g_backAllocs, before);
    const V grown = Counts(pool, 1);
    EXPECT_EQ(grown[0], 2u);  // total
    EXPECT_EQ(grown[1], 2u);  // free
    EXPECT_EQ(grown[5], 1u);  // blocks
    EXPECT_EQ(Zos_PoolChkBkt(pool, 1), 1u);
    Zos_PoolDelete(pool);
    EXPECT_EQ(g_backFrees, g_backAllocs);
}

// Beyond the first, a bucket keeps emptied blocks only while they come to
// at most 32 KiB: of three 16 KiB blocks one is kept, two go back.
TEST_F(PoolTest, KeptBlocksAreBoundedInBytes) {
    const ST_ZOS_BKT_INFO rows[] = {{16384, 0, 1}};
    ZPOOL pool = CountedPool(rows);
    ASSERT_NE(pool, nullptr);
    void *p[3];
    for (void *&x : p) x = Zos_PoolAlloc(pool, 16000);
    const int grown = g_backAllocs;  // three blocks and the address index
    for (void *x : p) Zos_PoolFree(pool, x);
    EXPECT_EQ(g_backFrees, 2);
    EXPECT_EQ(Counts(pool, 0), (V{0, 0, 3, 3, 3, 0}));
    for (void *&x : p) x = Zos_PoolAlloc(pool, 16000);
    EXPECT_EQ(g_backAllocs, grown + 2);  // the kept block, then two new ones
    EXPECT_EQ(Zos_PoolChkPool(pool), 1u);
    for (void *x : p) Zos_PoolFree(pool, x);
    Zos_PoolDelete(pool);
    EXPECT_EQ(g_backFrees, g_backAllocs);
}

// A failing backing allocator still fails a growth that has no kept block,
// and the failure leaves the kept block in place for the next one.
TEST_F(PoolTest, GrowthBeyondTheKeptBlockStillFailsWithItsAllocator) {
    const ST_ZOS_BKT_INFO rows[] = {{64, 0, 1}};
    ZPOOL pool = CountedPool(rows);
    ASSERT_NE(pool, nullptr);
    void *a = Zos_PoolAlloc(pool, 64);
    ASSERT_NE(a, nullptr);
    Zos_PoolFree(pool, a);  // kept
    g_backBudget = 0;
    void *b = Zos_PoolAlloc(pool, 64);  // the kept block: no allocator call
    EXPECT_EQ(b, a);
    EXPECT_EQ(Zos_PoolAlloc(pool, 64), nullptr);  // a new block: refused
    EXPECT_TRUE(ktest::LoggedContains("BktCreate <spare> heap alloc."));
    EXPECT_EQ(Counts(pool, 0), (V{1, 0, 1, 2, 1, 1}));
    g_backBudget = -1;
    Zos_PoolFree(pool, b);
    Zos_PoolDelete(pool);
    EXPECT_EQ(g_backFrees, g_backAllocs);
}

// The pool's address index grows by doubling from 16 entries. When that
// growth fails, the block or large allocation it was to index goes back to
// the allocator at once, the call fails with the lines of a failed heap
// allocation and no count moves; with the allocator well again the same
// calls succeed.
TEST_F(PoolTest, AFailedIndexGrowthGivesTheNewMemoryBack) {
    const ST_ZOS_BKT_INFO rows[] = {{64, 0, 1}};
    ZPOOL pool = CountedPool(rows);
    ASSERT_NE(pool, nullptr);
    std::vector<void *> held;
    for (int i = 0; i < 16; ++i) held.push_back(Zos_PoolAlloc(pool, 64));
    ASSERT_EQ(std::count(held.begin(), held.end(), nullptr), 0);
    const V before = Counts(pool, 0);
    for (const uint32_t size : {64u, 65u}) {
        const int allocs = g_backAllocs;
        g_backBudget = 1;  // the block or large allocation, not the index
        ktest::ClearLogged();
        EXPECT_EQ(Zos_PoolAlloc(pool, size), nullptr) << size;
        EXPECT_EQ(g_backAllocs, allocs + 1) << size;
        EXPECT_EQ(g_backFrees, 1 + (size == 65u ? 1 : 0)) << size;
        EXPECT_EQ(Counts(pool, 0), before) << size;
        std::string lines;
        for (const ktest::LogLine &l : ktest::Logged()) lines += l.msg + "|";
        EXPECT_EQ(lines, size == 64u ? "BktCreate <spare> heap alloc.|"
                                       "PoolAlloc <spare> bucket node is empty.|"
                                     : "PoolHeapAlloc <spare> heap alloc 80 bytes.|");
    }
    EXPECT_EQ(Zos_PoolGetHeapSize(pool), 0u);
    g_backBudget = -1;
    held.push_back(Zos_PoolAlloc(pool, 64));
    held.push_back(Zos_PoolAlloc(pool, 65));
    EXPECT_NE(held[16], nullptr);
    EXPECT_NE(held[17], nullptr);
    EXPECT_EQ(Zos_PoolChkPool(pool), 1u);
    for (void *p : held) Zos_PoolFree(pool, p);
    Zos_PoolDelete(pool);
    EXPECT_EQ(g_backFrees, g_backAllocs);
}

TEST_F(PoolTest, LargeAllocationsCountInTheHeapBytes) {
    ASSERT_NE(Make({{64, 0, 1}}), nullptr);
    auto *p = static_cast<uint8_t *>(Zos_PoolAlloc(pool_, 65));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(Word(p, -8), 68u | 0x80000000u);
    EXPECT_EQ(Word(p, -4), 0xACACACACu);
    EXPECT_EQ(std::memcmp(p + 68, "ZZZZ", 4), 0);
    EXPECT_EQ(Zos_PoolGetHeapSize(pool_), 80u);
    uint32_t size = 0;
    EXPECT_EQ(Zos_PoolGetSize(pool_, p, &size), ZOK);
    EXPECT_EQ(size, 68u);
    EXPECT_EQ(Zos_PoolIsValid(pool_, p), 1u);
    EXPECT_EQ(Zos_PoolChkMem(pool_, p), 1u);
    p[0] = 'k';
    EXPECT_EQ(Zos_PoolFillPoison(pool_, p), ZOK);  // left as it is
    EXPECT_EQ(p[0], 'k');
    void *kept = Zos_PoolAlloc(pool_, 1000);  // released with the pool
    ASSERT_NE(kept, nullptr);
    Zos_PoolFree(pool_, p);
    EXPECT_EQ(Zos_PoolGetHeapSize(pool_), 1012u);
    Zos_PoolFree(pool_, p);  // second free: unknown now, refused
    EXPECT_EQ(Zos_PoolGetHeapSize(pool_), 1012u);
}

// Frees spread over many blocks in no particular order each find their own
// block: every emptied block goes back, the counts add up, and a pointer
// inside a node is refused whichever block was found last.
TEST_F(PoolTest, FreesAcrossManyBlocksFindTheirBlocks) {
    ASSERT_NE(Make({{64, 1, 1}}, 1), nullptr);
    constexpr int kNodes = 40;
    std::vector<uint8_t *> p(kNodes);
    for (auto &x : p) x = static_cast<uint8_t *>(Zos_PoolAlloc(pool_, 64));
    EXPECT_EQ(Counts(pool_, 0), (V{40, 0, 40, 40, 0, 40}));
    for (int k = 0; k < kNodes; ++k) {
        const int i = k * 7 % kNodes;  // 7 and 40 are coprime: every node once
        Zos_PoolFree(pool_, p[i]);
        // Its block went back, except the initial one (the first node's).
        EXPECT_EQ(Zos_PoolIsValid(pool_, p[i]), i == 0 ? 1u : 0u);
        if (k + 1 < kNodes) {
            uint8_t *live = p[(k + 1) * 7 % kNodes];
            EXPECT_EQ(Zos_PoolIsValid(pool_, live), 1u);
            EXPECT_EQ(Zos_PoolIsValid(pool_, live + 4), 0u);
        }
    }
    EXPECT_EQ(Counts(pool_, 0), (V{1, 1, 40, 40, 40, 1}));
    EXPECT_EQ(Zos_PoolChkPool(pool_), 1u);
}

TEST_F(PoolTest, BadPointersAreRefusedAndChangeNothing) {
    ASSERT_NE(Make({{32, 4, 4}, {128, 1, 1}}), nullptr);
    auto *a = static_cast<uint8_t *>(Zos_PoolAlloc(pool_, 32));
    auto *b = static_cast<uint8_t *>(Zos_PoolAlloc(pool_, 32));
    void *big = Zos_PoolAlloc(pool_, 4000);
    // Double free: the second changes nothing.
    Zos_PoolFree(pool_, b);
    const V before = Counts(pool_, 0);
    auto same = [&] {
        return Counts(pool_, 0) == before && Zos_PoolGetHeapSize(pool_) == 4012u &&
               Zos_PoolChkPool(pool_) == 1u;
    };
    Zos_PoolFree(pool_, b);
    EXPECT_TRUE(ktest::LoggedContains("PoolFree <test pool> free twice."));
    ASSERT_TRUE(same());
    EXPECT_EQ(before, (V{4, 3, 2, 2, 1, 1}));

    // Wild pointers, even ones dressed as nodes or large allocations,
    // addresses below a node header (their node address wraps round), and
    // a fifth node place of the four-node block that holds a and b, just
    // past its end.
    alignas(8) uint8_t fake[64] = {};
    const uint32_t nodeHeader[2] = {0, 0xAC1D2D3Du};
    std::memcpy(fake, nodeHeader, 8);
    std::memcpy(fake + 40, "ZZZZ", 4);
    const uint32_t largeHeader[2] = {8u | 0x80000000u, 0xACACACACu};
    std::memcpy(fake + 16, largeHeader, 8);
    for (void *wild :
         {static_cast<void *>(fake + 8), static_cast<void *>(fake + 24), static_cast<void *>(a + 4),
          static_cast<void *>(a - 8), static_cast<void *>(a + 4 * (b - a)),
          reinterpret_cast<void *>(uintptr_t{8}), reinterpret_cast<void *>(uintptr_t{1})}) {
        Zos_PoolFree(pool_, wild);
        uint32_t size = 7;
        EXPECT_EQ(Zos_PoolGetSize(pool_, wild, &size), ZFAILED);
        EXPECT_EQ(size, 0u);
        EXPECT_EQ(Zos_PoolIsValid(pool_, wild), 0u);
        EXPECT_EQ(Zos_PoolChkMem(pool_, wild), 0u);
        EXPECT_EQ(Zos_PoolFillPoison(pool_, wild), ZFAILED);
        EXPECT_TRUE(same());
    }

    // A node of another pool is refused by this one and stays live there.
    const ST_ZOS_BKT_INFO row{32, 1, 1};
    ST_ZOS_POOL_CFG cfg{"other", &row, nullptr, nullptr, 0, 0, 1, 1};
    ZPOOL other = Zos_PoolCreate(&cfg);
    ASSERT_NE(other, nullptr);
    void *foreign = Zos_PoolAlloc(other, 32);
    Zos_PoolFree(pool_, foreign);
    EXPECT_TRUE(same());
    EXPECT_EQ(Stat(other, 0).uiFree, 0u);
    // So it is by a pool whose one row starts empty, before its first entry.
    const ST_ZOS_BKT_INFO none{32, 0, 1};
    ST_ZOS_POOL_CFG emptyCfg{"empty", &none, nullptr, nullptr, 0, 0, 1, 1};
    ZPOOL empty = Zos_PoolCreate(&emptyCfg);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(Zos_PoolIsValid(empty, foreign), 0u);
    Zos_PoolFree(empty, foreign);
    Zos_PoolDelete(empty);
    Zos_PoolFree(other, foreign);
    EXPECT_EQ(Stat(other, 0).uiFree, 1u);
    Zos_PoolDelete(other);

    // One byte past the data: caught by the checks, the free still happens.
    a[32] = 'x';
    EXPECT_EQ(Zos_PoolChkMem(pool_, a), 0u);
    EXPECT_EQ(Zos_PoolChkBkt(pool_, 0), 0u);
    EXPECT_EQ(Zos_PoolChkPool(pool_), 0u);
    Zos_PoolFree(pool_, a);
    EXPECT_TRUE(ktest::LoggedContains("PoolFree <test pool> invalid redzone."));
    EXPECT_EQ(Stat(pool_, 0).uiFrees, 2u);
    EXPECT_EQ(Zos_PoolChkPool(pool_), 1u);  // red zones of free nodes are not judged
    Zos_PoolFree(pool_, big);
    EXPECT_EQ(Zos_PoolChkBkt(pool_, 2), 0u);  // no such bucket
}

// Damage is reported, never mended: a damaged node is still taken back
// and still handed out, with its fault line, locked pool or not.
TEST_F(PoolTest, DamagedNodesStillServeWithTheirFaultLines) {
    for (const uint8_t locked : {0, 1}) {
        SCOPED_TRACE(locked);
        ASSERT_NE(Make({{32, 3, 3}}, 0, locked), nullptr);
        auto *a = static_cast<uint8_t *>(Zos_PoolAlloc(pool_, 32));
        auto *b = static_cast<uint8_t *>(Zos_PoolAlloc(pool_, 32));
        auto *c = static_cast<uint8_t *>(Zos_PoolAlloc(pool_, 32));
        ktest::ClearLogged();
        c[32] = 'x';
        Zos_PoolFree(pool_, c);
        EXPECT_TRUE(ktest::LoggedContains("PoolFree <test pool> invalid redzone."));
        Zos_PoolFree(pool_, a);
        Zos_PoolFree(pool_, b);
        EXPECT_EQ(Counts(pool_, 0), (V{3, 3, 3, 3, 3, 1}));

        // Free list c, a, b: c keeps its broken red zone, a loses its free
        // marker, b its free bit.
        a[3 * sizeof(void *)] ^= 1;
        const uint32_t busy = Word(b, -8) & ~0x40000000u;
        std::memcpy(b - 8, &busy, 4);
        for (uint8_t *next : {c, a, b}) {
            ktest::ClearLogged();
            EXPECT_EQ(Zos_PoolAlloc(pool_, 32), next);
            EXPECT_TRUE(ktest::LoggedContains(
                next == b ? "PoolAlloc <test pool> alloc busy node."
                          : "PoolAlloc <test pool> invalid id(ex.magic id)."));
        }
        EXPECT_EQ(Counts(pool_, 0), (V{3, 0, 3, 6, 3, 1}));
        Zos_PoolDelete(pool_);
        pool_ = nullptr;
    }
}

// Without the layer's threads: a task that took the module lock while
// mutexes were on and gave it back while they were off would leave it
// held, and shut-down would wait for it for ever.
TEST_F(PoolQuietTest, SwitchedOffMutexesLeaveAWorkingUnlockedPool) {
    Zos_CfgSetOsMutexSupt(0);
    ASSERT_NE(Make({{32, 1, 1}}), nullptr);
    void *p = Zos_PoolAlloc(pool_, 10);
    Zos_PoolFree(pool_, p);
    EXPECT_EQ(Stat(pool_, 0).uiFrees, 1u);
    Zos_CfgSetOsMutexSupt(1);  // so shut-down deletes the locks start-up made
}

// Block memory with every byte set, as a heap may hand it out: the spare
// bytes behind a block's last node must not be read as a node.
void *SetBytesAlloc(uint32_t size) {
    void *p = std::malloc(size);
    if (p != nullptr) std::memset(p, 0xFF, size);
    return p;
}
void SetBytesFree(void *p) {
    std::free(p);
}

TEST_F(PoolTest, SpareBytesBehindTheLastNodeAreNoNode) {
    const ST_ZOS_BKT_INFO rows[] = {{32, 3, 1}};
    const ST_ZOS_POOL_CFG cfg{"spare bytes", rows, SetBytesAlloc, SetBytesFree, 1, 0, 1, 1};
    ZPOOL pool = Zos_PoolCreate(&cfg);
    ASSERT_NE(pool, nullptr);
    void *node = Zos_PoolAlloc(pool, 8);
    void *blk = Zos_BktFindBlk(pool, 0, node);
    ASSERT_NE(blk, nullptr);
    Zos_PoolFree(pool, node);
    EXPECT_EQ(Zos_BktDelete(pool, 0, blk), ZOK);  // every node is free
    Zos_PoolDelete(pool);
}

// A pool whose magic word was damaged is still registered: its calls are
// refused, and the line names the pool (a deleted one is "unknown").
TEST_F(PoolTest, DamagedMagicIsRefusedByName) {
    ZPOOL pool = Make({{32, 2, 2}});
    ASSERT_NE(pool, nullptr);
    void *node = Zos_PoolAlloc(pool, 8);
    auto *magic = static_cast<uint32_t *>(pool);  // the record's first word
    ASSERT_EQ(*magic, 0x0E1E2E3Eu);
    *magic = 0;
    ktest::ClearLogged();
    uint32_t size = 7;
    EXPECT_EQ(Zos_PoolGetSize(pool, node, &size), ZFAILED);
    *magic = 0x0E1E2E3Eu;
    EXPECT_TRUE(ktest::LoggedContains("PoolGetSize <test pool> invalid magic."));
    Zos_PoolFree(pool, node);
}

// The bucket and heap steps the pool exports for the engine's other
// modules, each called on its own.
TEST_F(PoolTest, BucketStepsGrowShrinkAndRefuse) {
    ZPOOL pool = Make({{32, 2, 2}});
    ASSERT_NE(pool, nullptr);
    void *a = Zos_PoolAlloc(pool, 8);
    void *b = Zos_PoolAlloc(pool, 8);
    void *first = Zos_BktFindBlk(pool, 0, a);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(Zos_BktFindBlk(pool, 0, b), first);
    int local = 0;
    EXPECT_EQ(Zos_BktFindBlk(pool, 0, &local), nullptr);
    EXPECT_EQ(Zos_BktFindBlk(pool, 1, a), nullptr);
    EXPECT_EQ(Zos_BktDelete(pool, 0, first), ZFAILED) << "nodes in use";
    EXPECT_EQ(Zos_BktDelete(pool, 0, nullptr) | Zos_BktDelete(pool, 1, first) |
                  Zos_BktDelete(nullptr, 0, first),
              ZFAILED);

    // A later block of the increment, found for its own nodes.
    ASSERT_EQ(Zos_BktCreate(pool, 0, 0), ZOK);
    EXPECT_EQ(Stat(pool, 0).uiTotal, 4u);
    void *c = Zos_PoolAlloc(pool, 8);
    void *second = Zos_BktFindBlk(pool, 0, c);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(second, first);
    EXPECT_EQ(Zos_BktFree(pool, c), ZFAILED) << "a node in use does not shrink";
    Zos_PoolFree(pool, c);
    // The pool does not shrink by itself (shrink off); the step does.
    EXPECT_EQ(Stat(pool, 0).uiTotal, 4u);
    EXPECT_EQ(Zos_BktFree(pool, c), ZOK);
    EXPECT_EQ(Stat(pool, 0).uiTotal, 2u);
    Zos_PoolFree(pool, a);
    EXPECT_EQ(Zos_BktFree(pool, a), ZOK);
    EXPECT_EQ(Stat(pool, 0).uiTotal, 2u) << "the first block stays";

    ktest::ClearLogged();
    EXPECT_EQ(Zos_BktCreate(pool, 3, 0), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("BktCreate <test pool> invalid bucket id."));
    // The index one past the last bucket is refused by every step.
    ST_ZOS_POOL_BKT_STAT past{};
    EXPECT_EQ(Zos_BktCreate(pool, 1, 0), ZFAILED);
    EXPECT_EQ(Zos_PoolChkBkt(pool, 1), 0u);
    EXPECT_EQ(Zos_PoolGetBktStat(pool, 1, &past), 1u);
    EXPECT_EQ(Zos_BktCreate(pool, 0, 1), ZFAILED) << "the bucket has its first block";

    // Every block goes back; the group step makes the first blocks again.
    Zos_PoolFree(pool, b);
    Zos_BktGrpDelete(pool);
    EXPECT_EQ(Stat(pool, 0).uiTotal, 0u);
    EXPECT_EQ(Zos_BktFindBlk(pool, 0, b), nullptr);
    // A node whose block went back is foreign now, and is not read.
    ktest::ClearLogged();
    const V gone = Counts(pool, 0);
    Zos_PoolFree(pool, b);
    EXPECT_TRUE(ktest::LoggedContains("PoolFree <test pool> invalid id(ex.magic id)."));
    EXPECT_EQ(Counts(pool, 0), gone);
    ASSERT_EQ(Zos_BktGrpCreate(pool), ZOK);
    EXPECT_EQ(Stat(pool, 0).uiTotal, 2u);
    EXPECT_EQ(Stat(pool, 0).uiFree, 2u);
    EXPECT_NE(Zos_PoolAlloc(pool, 8), nullptr);
    Zos_PoolDelete(pool);
    pool_ = nullptr;
    EXPECT_EQ(Zos_BktGrpCreate(pool), ZFAILED);
    EXPECT_EQ(Zos_BktCreate(nullptr, 0, 0), ZFAILED);
}

TEST_F(PoolTest, HeapStepsOfAPool) {
    ZPOOL pool = Make({{32, 2, 2}});
    ASSERT_NE(pool, nullptr);
    // Even a size a bucket could serve goes to the backing allocator.
    auto *p = static_cast<uint8_t *>(Zos_PoolHeapAlloc(pool, 10));
    ASSERT_NE(p, nullptr);
    std::memset(p, 0x11, 10);
    uint32_t size = 0;
    EXPECT_EQ(Zos_PoolGetSize(pool, p, &size), ZOK);
    EXPECT_EQ(size, 12u);
    EXPECT_EQ(Stat(pool, 0).uiAllocs, 0u);
    Zos_PoolHeapFree(pool, p);
    ktest::ClearLogged();
    void *node = Zos_PoolAlloc(pool, 8);
    Zos_PoolHeapFree(pool, node);  // a bucket node is not a large allocation
    EXPECT_TRUE(ktest::LoggedContains("PoolHeapFree invalid magic value."));
    EXPECT_EQ(Zos_PoolIsValid(pool, node), 1u);
    ktest::ClearLogged();
    EXPECT_EQ(Zos_PoolHeapAlloc(pool, 0x80000000u), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("PoolHeapAlloc size too big."));
}
