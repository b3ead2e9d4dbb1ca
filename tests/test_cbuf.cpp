// Arenas and their brick pools: the page-size rule, the brick/large-block
// boundary, frees, clones, children that outlive their parent, attach and
// detach, sizes and the recursive hold test.
#include <cstring>
#include <set>
#include <vector>

#include "zos_test.h"

TEST_F(ZosTest, BrickPoolPagesBricksAndReuse) {
    EXPECT_EQ(Zos_BpoolCreate(1, 64, 4), nullptr);
    EXPECT_EQ(Zos_BpoolCreate(0, 64, 3), nullptr);
    ZBPOOL pool = Zos_BpoolCreate(0, 10, 4);
    ASSERT_NE(pool, nullptr);
    EXPECT_EQ(Zos_BpoolPageSize(pool), 32u);
    EXPECT_EQ(Zos_BpoolAlloc(pool, 0), nullptr);
    EXPECT_EQ(Zos_BpoolAlloc(pool, 4097), nullptr);

    std::vector<uint8_t *> bricks;
    for (uint32_t i = 1; i <= 300; ++i) {
        auto *p = static_cast<uint8_t *>(Zos_BpoolAlloc(pool, i));
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % sizeof(void *), 0u);
        std::memset(p, static_cast<int>(i), i);
        bricks.push_back(p);
    }
    for (uint32_t i = 1; i <= 300; ++i) {
        ASSERT_EQ(bricks[i - 1][i - 1], static_cast<uint8_t>(i)) << "bricks overlap at " << i;
        ASSERT_EQ(Zos_BpoolHoldD(pool, bricks[i - 1]), 1u);
    }
    const uint32_t used = Zos_BpoolSize(pool);
    EXPECT_GE(used, 300u * 301u / 2u);
    ASSERT_EQ(Zos_BpoolFree(pool, bricks[99]), ZOK);      // a brick of 100 bytes
    EXPECT_EQ(Zos_BpoolFree(pool, bricks[99]), ZFAILED);  // not twice
    EXPECT_EQ(Zos_BpoolFree(pool, bricks[99] + 1), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("BpoolFree invalid memory."));
    EXPECT_LT(Zos_BpoolSize(pool), used);
    EXPECT_EQ(Zos_BpoolAlloc(pool, 60), bricks[99]);  // reused for a smaller request
    int local = 0;
    EXPECT_EQ(Zos_BpoolHoldD(pool, &local), 0u);
    EXPECT_EQ(Zos_BpoolFree(pool, &local), ZFAILED);

    ASSERT_EQ(Zos_BpoolClean(pool), ZOK);
    EXPECT_EQ(Zos_BpoolSize(pool), 0u);
    EXPECT_NE(Zos_BpoolAlloc(pool, 4096), nullptr);
    Zos_BpoolDelete(pool);
    EXPECT_EQ(Zos_BpoolAlloc(nullptr, 8), nullptr);
}

// A long-lived arena that keeps freeing and allocating records: bricks of
// the sizes it frees come back, whatever the size, so the arena stops
// taking pages. Sizes of one power-of-two class, mixed, too.
TEST_F(ZosTest, ArenaReusesFreedBricksOfTheSameSizes) {
    ZCBUF arena = Zos_CbufCreate(64);
    ASSERT_NE(arena, nullptr);
    for (uint32_t size : {24u, 40u, 100u, 1000u, 3000u, 4096u}) {
        void *first = Zos_CbufAlloc(arena, size);
        ASSERT_NE(first, nullptr);
        ASSERT_EQ(Zos_CbufFree(arena, first), ZOK);
        for (int i = 0; i < 200; ++i) {
            void *again = Zos_CbufAlloc(arena, size);
            ASSERT_EQ(again, first) << size << " bytes, round " << i;
            ASSERT_EQ(Zos_CbufFree(arena, again), ZOK);
        }
    }
    std::set<void *> seen;
    for (int i = 0; i < 500; ++i) {
        void *small = Zos_CbufAlloc(arena, 40);
        void *large = Zos_CbufAlloc(arena, 56);
        ASSERT_TRUE(small != nullptr && large != nullptr);
        seen.insert(small);
        seen.insert(large);
        ASSERT_EQ(Zos_CbufFree(arena, small), ZOK);
        ASSERT_EQ(Zos_CbufFree(arena, large), ZOK);
    }
    EXPECT_LE(seen.size(), 4u);
    EXPECT_EQ(Zos_CbufSize(arena), 0u);
    Zos_CbufDelete(arena);
}

TEST_F(ZosTest, ArenaBrickAndLargeBoundary) {
    Zos_LogOpen(Zos_LogGetZosId(), ZOS_LOG_LEVEL_WARN);
    ZCBUF c = Zos_CbufCreate(100);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(Zos_CbufAlloc(c, 0), nullptr);
    EXPECT_EQ(Zos_CbufSize(c), 0u);
    void *brick = Zos_CbufAlloc(c, 4096);
    ASSERT_NE(brick, nullptr);
    EXPECT_EQ(Zos_CbufSize(c), 4096u);
    auto *large = static_cast<uint8_t *>(Zos_CbufAllocClrd(c, 4097));
    ASSERT_NE(large, nullptr);
    EXPECT_EQ(Zos_CbufSize(c), 4096u + 4100u);  // a large block of 4100 data bytes
    uint32_t mark = 0;
    std::memcpy(&mark, large - 4, 4);
    EXPECT_EQ(mark, 0xBA3A2A1Au);
    EXPECT_EQ(large[4096], 0u);
    EXPECT_EQ(Zos_CbufHoldD(c, large + 4099), 1u);
    EXPECT_EQ(Zos_CbufHoldD(c, large + 4100) + Zos_CbufHoldD(c, large - 4), 0u);  // data only
    EXPECT_EQ(Zos_CbufAlloc(c, 0x7FFFFFEEu), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("CbufAlloc size too large."));

    EXPECT_EQ(Zos_CbufFree(c, large), ZOK);
    EXPECT_EQ(Zos_CbufFree(c, large), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("CbufFree invalid memory."));
    EXPECT_EQ(Zos_CbufFree(c, brick), ZOK);
    EXPECT_EQ(Zos_CbufSize(c), 0u);
    EXPECT_EQ(Zos_CbufFree(c, nullptr), ZFAILED);
    EXPECT_EQ(Zos_CbufFree(nullptr, brick), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("CbufFree null id."));
    uint32_t junk[16] = {};  // large enough to read a magic from
    EXPECT_EQ(Zos_CbufFree(junk, brick), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("CbufFree invalid id."));
    EXPECT_EQ(Zos_CbufAlloc(junk, 8), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("CbufAlloc invalid id."));
    EXPECT_EQ(Zos_CbufClean(junk), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("CbufClean invalid id."));

    // Clean frees everything and keeps the arena usable.
    for (int i = 0; i < 50; ++i) ASSERT_NE(Zos_CbufAlloc(c, i % 2 ? 5000 : 64), nullptr);
    ASSERT_EQ(Zos_CbufClean(c), ZOK);
    EXPECT_EQ(Zos_CbufSize(c), 0u);
    EXPECT_NE(Zos_CbufAlloc(c, 8), nullptr);
    Zos_CbufDelete(c);
}

TEST_F(ZosTest, ArenaCreateForms) {
    void *data = &data;
    EXPECT_EQ(Zos_CbufCreateD(0, 16, nullptr), nullptr);  // size without pointer
    EXPECT_EQ(Zos_CbufCreateD(0, 0, &data), nullptr);     // pointer without size
    EXPECT_EQ(data, nullptr);
    ZCBUF c = Zos_CbufCreateClrd(0, 40, &data);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(std::memcmp(data, std::vector<uint8_t>(40, 0).data(), 40), 0);
    EXPECT_EQ(Zos_CbufHoldD(c, data), 1u);
    ZCBUF plain = Zos_CbufCreateD(0, 0, nullptr);
    EXPECT_EQ(Zos_CbufSize(plain), 0u);
    ZCBUF child = Zos_CbufCreateXD(c, 0, 5000, &data);
    EXPECT_EQ(Zos_CbufGetParent(child), c);
    uint32_t junk[16] = {};
    EXPECT_EQ(Zos_CbufCreateX(junk, 0), nullptr);
    Zos_CbufDelete(plain);
    Zos_CbufDelete(c);  // takes the child along
}

TEST_F(ZosTest, ArenaClonesAndChildren) {
    ZCBUF c = Zos_CbufCreate(0);
    for (uint32_t i = 1; i < 65535; ++i) ASSERT_EQ(Zos_CbufClone(c), c);
    EXPECT_EQ(Zos_CbufRefCnt(c), 65535u);
    EXPECT_EQ(Zos_CbufClone(c), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("CbufClone too many reference."));
    EXPECT_EQ(Zos_CbufRefCnt(c), 65535u);
    for (uint32_t i = 1; i < 65535; ++i) Zos_CbufDelete(c);
    EXPECT_EQ(Zos_CbufRefCnt(c), 1u);

    // Memory of a child is held by the parent but not freed through it.
    ZCBUF child = Zos_CbufCreateX(c, 0);
    void *p = Zos_CbufAlloc(child, 32);
    ktest::ClearLogged();
    EXPECT_EQ(Zos_CbufFree(c, p), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("CbufFree invalid memory."));
    EXPECT_EQ(Zos_CbufHoldD(c, p), 1u);
    EXPECT_EQ(Zos_CbufSize(c), 0u);  // children are not counted

    ZCBUF other = Zos_CbufCreate(0);
    EXPECT_EQ(Zos_CbufAttach(c, child), ZOK);  // already there
    EXPECT_EQ(Zos_CbufAttach(other, child), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("CbufAttach exist parent."));
    EXPECT_EQ(Zos_CbufAttach(child, c), ZFAILED);  // would be its own ancestor
    EXPECT_EQ(Zos_CbufAttach(nullptr, child), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("CbufAttach invalid parent."));
    EXPECT_EQ(Zos_CbufAttach(c, nullptr), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("CbufAttach invalid source id."));
    EXPECT_EQ(Zos_CbufDetach(child), ZOK);
    EXPECT_EQ(Zos_CbufHoldD(c, p), 0u);
    EXPECT_EQ(Zos_CbufDetach(child), ZOK);  // no parent
    EXPECT_EQ(Zos_CbufAttach(other, child), ZOK);
    EXPECT_EQ(Zos_CbufHoldD(other, p), 1u);

    // Clean drops one reference of each child: a cloned child survives,
    // still attached.
    ASSERT_EQ(Zos_CbufClone(child), child);
    ASSERT_EQ(Zos_CbufClean(other), ZOK);
    EXPECT_EQ(Zos_CbufRefCnt(child), 1u);
    EXPECT_EQ(Zos_CbufGetParent(child), other);
    Zos_CbufDelete(other);  // the last reference of the child goes with it
    Zos_CbufDelete(c);
}

TEST_F(ZosTest, ChildOutlivesDeletedParent) {
    ZCBUF parent = Zos_CbufCreate(0);
    ZCBUF child = Zos_CbufCreateX(parent, 0);
    ZCBUF grandchild = Zos_CbufCreateX(child, 0);
    ASSERT_EQ(Zos_CbufClone(child), child);
    Zos_CbufDelete(parent);  // the child keeps its other reference
    EXPECT_EQ(Zos_CbufRefCnt(child), 1u);
    EXPECT_EQ(Zos_CbufGetParent(child), nullptr);
    EXPECT_EQ(Zos_CbufGetParent(grandchild), child);  // its own children stay
    ktest::ClearLogged();
    Zos_CbufDelete(child);
    EXPECT_TRUE(ktest::LoggedContains("CbufDetach invalid parent."));

    // Detached explicitly instead, the orphan can be attached again.
    parent = Zos_CbufCreate(0);
    child = Zos_CbufCreateX(parent, 0);
    ASSERT_EQ(Zos_CbufClone(child), child);
    Zos_CbufDelete(parent);
    ktest::ClearLogged();
    EXPECT_EQ(Zos_CbufDetach(child), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("CbufDetach invalid parent."));
    ZCBUF adopter = Zos_CbufCreate(0);
    EXPECT_EQ(Zos_CbufAttach(adopter, child), ZOK);
    ASSERT_EQ(Zos_CbufClone(child), child);
    Zos_CbufDelete(adopter);
    EXPECT_EQ(Zos_CbufRefCnt(child), 1u);
    Zos_CbufDelete(child);
}

TEST_F(ZosTest, ArenaPageSizeFollowsTheHint) {
    // The page chosen for a hint shows in how many small allocations share
    // one page: addresses of consecutive bricks stay within the page.
    const struct {
        uint32_t hint;
        uint32_t page;
    } cases[] = {{0, 32}, {1, 32}, {32, 32}, {33, 64}, {100, 128}, {2000, 1024}, {5000, 4096}};
    for (const auto &tc : cases) {
        // Each brick of 4 bytes takes 4 + its header word (a pointer); the
        // bricks of one page follow each other, the next page starts apart.
        const uint32_t stride = 4 < sizeof(void *) ? 2 * sizeof(void *) : 8;
        ZCBUF c = Zos_CbufCreate(tc.hint);
        auto *prev = static_cast<uint8_t *>(Zos_CbufAlloc(c, 4));
        uint32_t fitted = 1;
        for (;; ++fitted) {
            auto *p = static_cast<uint8_t *>(Zos_CbufAlloc(c, 4));
            if (p != prev + stride) break;
            prev = p;
        }
        EXPECT_EQ(fitted, tc.page / stride) << "hint " << tc.hint;
        Zos_CbufDelete(c);
    }
}

TEST_F(ZosTest, SegmentAndPageBuffers) {
    ZSBUF s = Zos_SbufCreate(64);
    auto *a = static_cast<uint8_t *>(Zos_SbufAlloc(s, 10));
    auto *b = static_cast<uint8_t *>(Zos_SbufAlloc(s, 100));  // a segment of its own
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(Zos_SbufHoldD(s, a + 9) + Zos_SbufHoldD(s, b + 99), 2u);
    // A segment's first byte is held; its header and its end are not.
    EXPECT_EQ(Zos_SbufHoldD(s, a) + Zos_SbufHoldD(s, b), 2u);
    EXPECT_EQ(Zos_SbufHoldD(s, a - 1) + Zos_SbufHoldD(s, a + 64), 0u);
    EXPECT_EQ(Zos_SbufHoldD(s, reinterpret_cast<void *>(UINTPTR_MAX)), 0u);  // above every segment
    EXPECT_EQ(Zos_SbufSize(s), sizeof(void *) > 4 ? 16u + 104u : 12u + 100u);  // rounded
    Zos_SbufDelete(s);

    ZPBUF p = Zos_PbufCreate();
    void *x = Zos_PbufAlloc(p, 10);
    void *y = Zos_PbufAlloc(p, 7);
    EXPECT_EQ(Zos_PbufSize(p), 12u + 8u);
    EXPECT_EQ(Zos_PbufFree(p, x), ZOK);
    EXPECT_EQ(Zos_PbufFree(p, x), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("PbufFree invalid memory."));
    EXPECT_EQ(Zos_PbufSize(p), 8u);
    (void)y;
    Zos_PbufDelete(p);  // y goes with it
}
