// Calls on deleted handles: every family refuses them with its own line
// and without reading the freed record. The sanitizer build serves the heap
// from the C library, so a read of a freed record stops the test there.
#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "zos_test.h"

// The sanitizer runtimes' count of live heap bytes; null in a build
// without one.
extern "C" size_t __sanitizer_get_current_allocated_bytes() __attribute__((weak));

namespace {

// Runs a call on a dead handle and checks the line it logged.
template <class F>
void ExpectRefused(const char *line, F call) {
    ktest::ClearLogged();
    call();
    EXPECT_TRUE(ktest::LoggedContains(line)) << line;
}

}  // namespace

TEST_F(ZosTest, DeadHandleBuffers) {
    ZCBUF cbuf = Zos_CbufCreate(64);
    ASSERT_NE(cbuf, nullptr);
    Zos_CbufDelete(cbuf);
    ExpectRefused("CbufAlloc invalid id.", [&] { EXPECT_EQ(Zos_CbufAlloc(cbuf, 8), nullptr); });
    ExpectRefused("CbufDelete invalid id.", [&] { Zos_CbufDelete(cbuf); });
    ExpectRefused("CbufClone invalid id.", [&] { EXPECT_EQ(Zos_CbufClone(cbuf), nullptr); });
    char byte = 0;
    EXPECT_EQ(Zos_CbufClean(cbuf) + Zos_CbufDetach(cbuf), 2 * ZFAILED);
    EXPECT_EQ(Zos_CbufHoldD(cbuf, &byte) + Zos_CbufSize(cbuf), 0u);
    EXPECT_EQ(Zos_CbufCreateX(cbuf, 64), nullptr);
    EXPECT_EQ(ktest::NotLogged("Cbuf",
                               {"Clean invalid id", "Detach invalid id", "HoldD invalid id",
                                "Size invalid id", "CreateX invalid parent"},
                               "."),
              "");
    // A child whose parent died: ChildOutlivesDeletedParent (test_cbuf.cpp).

    ZBPOOL bpool = Zos_BpoolCreate(0, 256, 4);
    ASSERT_NE(bpool, nullptr);
    Zos_BpoolDelete(bpool);
    ExpectRefused("BpoolAlloc invalid id.", [&] { EXPECT_EQ(Zos_BpoolAlloc(bpool, 8), nullptr); });
    ExpectRefused("BpoolDelete invalid id.", [&] { Zos_BpoolDelete(bpool); });
    ExpectRefused("BpoolFree invalid id.",
                  [&] { EXPECT_EQ(Zos_BpoolFree(bpool, &byte), ZFAILED); });
    ExpectRefused("BpoolClean invalid id.", [&] { EXPECT_EQ(Zos_BpoolClean(bpool), ZFAILED); });
    ExpectRefused("BpoolCreate invalid type.",
                  [&] { EXPECT_EQ(Zos_BpoolCreate(9, 256, 4), nullptr); });

    ZSBUF sbuf = Zos_SbufCreate(0);
    ZPBUF pbuf = Zos_PbufCreate();
    ASSERT_NE(sbuf, nullptr);
    ASSERT_NE(pbuf, nullptr);
    Zos_SbufDelete(sbuf);
    Zos_PbufDelete(pbuf);
    ExpectRefused("SbufAlloc invalid id.", [&] { EXPECT_EQ(Zos_SbufAlloc(sbuf, 8), nullptr); });
    ExpectRefused("SbufDelete invalid id.", [&] { Zos_SbufDelete(sbuf); });
    ExpectRefused("PbufDelete invalid id.", [&] { Zos_PbufDelete(pbuf); });
    ExpectRefused("PbufAlloc invalid id.", [&] { EXPECT_EQ(Zos_PbufAlloc(pbuf, 8), nullptr); });
    ExpectRefused("PbufFree invalid id.", [&] { EXPECT_EQ(Zos_PbufFree(pbuf, &byte), ZFAILED); });

    ZDBUF dbuf = Zos_DbufCreate(nullptr, 1, 128);
    ASSERT_NE(dbuf, nullptr);
    Zos_DbufDelete(dbuf);
    ExpectRefused("DbufChkValid invalid magic.",
                  [&] { EXPECT_EQ(Zos_DbufChkValid(dbuf, 0, 0, 0), ZFAILED); });
    ExpectRefused("DbufPstAddD invalid id.",
                  [&] { EXPECT_EQ(Zos_DbufPstAddD(dbuf, 'x'), ZFAILED); });
    // Every other call that takes a buffer refuses the dead one by name.
    ktest::ClearLogged();
    EXPECT_EQ(Zos_DbufFree(dbuf) + Zos_DbufNewLen(dbuf, 0) + Zos_DbufSetNext(dbuf, nullptr) +
                  Zos_DbufPreAddMultD(dbuf, "x", 1) + Zos_DbufAdjD(dbuf, 1) +
                  Zos_DbufCopyD(dbuf, 0, 1, &byte) + Zos_DbufCat(dbuf, dbuf) +
                  Zos_DbufSaveFileX(dbuf, 1) + Zos_DbufDbgShow(dbuf) + Zos_DbufDumpPrint(dbuf) +
                  Zos_DbufDumpCreate(dbuf, "x", "x.c", 1),
              11 * ZFAILED);
    EXPECT_TRUE(Zos_DbufClone(dbuf) == nullptr && Zos_DbufO2D(dbuf, 0) == nullptr &&
                Zos_DbufCopy(dbuf) == nullptr && Zos_DbufCopyX(dbuf, 0, 1) == nullptr &&
                Zos_DbufSplit(dbuf, 0) == nullptr && Zos_DbufFlatX(dbuf, 0, 1) == nullptr);
    EXPECT_EQ(Zos_DbufD2O(dbuf, &byte), ZOS_INVALID_ID);
    EXPECT_EQ(ktest::NotLogged("Dbuf",
                               {"Free", "NewLen", "SetNext", "PreAddMultD", "AdjD", "CopyD", "Cat",
                                "SaveFileX", "DbgShow", "DumpPrint", "DumpCreate", "Clone", "O2D",
                                "Copy", "CopyX", "Split", "FlatX", "D2O"},
                               " invalid id."),
              "");

    // The universal buffer: a second delete of a wrapper, and dispatch on a
    // deleted buffer of each kind it knows.
    ZCBUF inner = Zos_CbufCreate(64);
    ZUBUF ubuf = Zos_UbufCreate(inner);
    ASSERT_NE(ubuf, nullptr);
    EXPECT_EQ(Zos_UbufDelete(ubuf), ZOK);
    ExpectRefused("UbufDelete invalid id.", [&] { EXPECT_EQ(Zos_UbufDelete(ubuf), ZFAILED); });
    ExpectRefused("UbufAlloc unknown buffer.", [&] { EXPECT_EQ(Zos_UbufAlloc(ubuf, 8), nullptr); });
    Zos_CbufDelete(inner);
    ExpectRefused("UbufAlloc unknown buffer.",
                  [&] { EXPECT_EQ(Zos_UbufAlloc(inner, 8), nullptr); });
    ExpectRefused("UbufAlloc unknown buffer.", [&] { EXPECT_EQ(Zos_UbufAlloc(sbuf, 8), nullptr); });
    ExpectRefused("UbufCreate unknown buffer.", [&] { EXPECT_EQ(Zos_UbufCreate(dbuf), nullptr); });
}

TEST_F(ZosTest, DeadHandleContainers) {
    ZQUEUE queue = nullptr;
    ASSERT_EQ(Zos_QueueCreate(1, 0, 4, 4, &queue), ZOK);
    EXPECT_EQ(Zos_QueueDelete(queue), ZOK);
    ExpectRefused("QueueAdd invalid id.", [&] { EXPECT_EQ(Zos_QueueAdd(queue, 1), ZFAILED); });
    ExpectRefused("QueueGetBusyCount invalid id.",
                  [&] { EXPECT_EQ(Zos_QueueGetBusyCount(queue), 0u); });
    uint32_t a = 7, b = 7, c = 7, d = 7, e = 7;
    ExpectRefused("QueueGetCount invalid id.",
                  [&] { EXPECT_EQ(Zos_QueueGetCount(queue, &a, &b, &c, &d, &e), ZFAILED); });
    ExpectRefused("QueueDelete invalid id.", [&] { EXPECT_EQ(Zos_QueueDelete(queue), ZFAILED); });

    ZPQUEUE pqueue = nullptr;
    ASSERT_EQ(Zos_PQueueCreate(1, 0, 4, 4, 3, &pqueue), ZOK);
    EXPECT_EQ(Zos_PQueueDelete(pqueue), ZOK);
    ExpectRefused("PQueueAdd invalid id.",
                  [&] { EXPECT_EQ(Zos_PQueueAdd(pqueue, 1, 5), ZFAILED); });

    ZRBT tree = Zos_RbtCreate(nullptr);
    ASSERT_NE(tree, nullptr);
    Zos_RbtDelete(tree);
    ExpectRefused("RbtInsert invalid id.", [&] { EXPECT_EQ(Zos_RbtAdd(tree, 1, 2), ZFAILED); });
    ExpectRefused("RbtDelete invalid id.", [&] { Zos_RbtDelete(tree); });
    // A tree whose parent arena was deleted went with it.
    ZCBUF parent = Zos_CbufCreate(64);
    ZRBT child = Zos_RbtCreate(parent);
    ASSERT_NE(child, nullptr);
    ASSERT_EQ(Zos_RbtAdd(child, 1, 2), ZOK);
    Zos_CbufDelete(parent);
    ExpectRefused("RbtInsert invalid id.", [&] { EXPECT_EQ(Zos_RbtAdd(child, 3, 4), ZFAILED); });

    ZOMAP map = Zos_OmapCreate(1, 10);
    ASSERT_NE(map, nullptr);
    Zos_OmapDelete(map);
    uint32_t id = 0;
    ExpectRefused("OmapAllocId invalid id.",
                  [&] { EXPECT_EQ(Zos_OmapAllocId(map, &id), ZFAILED); });

    ZDBKT bkt = Zos_DbktCreate(1, 1, 16, 2, 4, 0);
    ASSERT_NE(bkt, nullptr);
    EXPECT_EQ(Zos_DbktDelete(bkt), ZOK);
    ExpectRefused("DbktGetBkt invalid id.", [&] { EXPECT_EQ(Zos_DbktGetBkt(bkt), nullptr); });
    ExpectRefused("DbktDelete invalid id.", [&] { EXPECT_EQ(Zos_DbktDelete(bkt), ZFAILED); });

    ZDUMP dump = Zos_DumpCreate("dead", 2);
    ASSERT_NE(dump, nullptr);
    EXPECT_EQ(Zos_DumpDelete(dump), ZOK);
    ExpectRefused("DumpStack invalid id.",
                  [&] { EXPECT_EQ(Zos_DumpStack(dump, "f", 1, "t", 2), ZFAILED); });
    ExpectRefused("DumpDelete invalid id.", [&] { EXPECT_EQ(Zos_DumpDelete(dump), ZFAILED); });
}

TEST_F(ZosTest, DeadHandlePools) {
    ST_ZOS_BKT_INFO row{32, 2, 2};
    ST_ZOS_POOL_CFG cfg{"dead pool", &row, nullptr, nullptr, 1, 0, 1, 1};
    ZPOOL pool = Zos_PoolCreate(&cfg);
    ASSERT_NE(pool, nullptr);
    void *p = Zos_PoolAlloc(pool, 16);
    ASSERT_NE(p, nullptr);
    Zos_PoolDelete(pool);
    // The dead pool's own name went with it.
    ExpectRefused("PoolAlloc invalid pool.", [&] { EXPECT_EQ(Zos_PoolAlloc(pool, 8), nullptr); });
    ExpectRefused("PoolFree <unknown> invalid magic.", [&] { Zos_PoolFree(pool, p); });
    ExpectRefused("PoolChkPool <unknown> invalid magic.",
                  [&] { EXPECT_EQ(Zos_PoolChkPool(pool), 0u); });
    ExpectRefused("PoolFillPoison <unknown> invalid magic.",
                  [&] { EXPECT_EQ(Zos_PoolFillPoison(pool, p), ZFAILED); });
}

// Many handles alive, deleted in a scrambled order: every handle still
// alive passes its check throughout and every deleted one is refused,
// however the registry rearranges its entries as they go.
TEST_F(ZosTest, HandleChecksHoldAsManyHandlesGoInAnyOrder) {
    constexpr int kHandles = 3000;  // past the registry's first sizes
    std::vector<ZDBUF> bufs;
    for (int i = 0; i < kHandles; ++i) {
        bufs.push_back(Zos_DbufCreate(nullptr, 1, 128));
        ASSERT_NE(bufs.back(), nullptr);
    }
    std::vector<ZDBUF> order = bufs;
    std::shuffle(order.begin(), order.end(), std::mt19937(7));
    for (size_t i = 0; i < order.size(); ++i) {
        ASSERT_EQ(Zos_DbufDelete(order[i]), ZOK);
        if (i % 100 != 99) continue;
        int wrong = 0;
        for (size_t j = 0; j < order.size(); ++j) {
            // Of the deleted ones, those of the last hundred deletes: the
            // older ones were checked after their own round.
            const bool alive = j > i;
            if (!alive && j + 100 <= i) continue;
            const uint32_t rc = Zos_DbufChkValid(order[j], 255, 0, 0);
            if ((rc == ZOK) != alive) wrong++;
        }
        ASSERT_EQ(wrong, 0) << "after " << i + 1 << " deletes";
    }
}

// A process that once held many pool blocks and then makes and deletes
// one handle at a time: the pool hands the blocks out first in, first
// out, so each handle comes at another of thousands of addresses. The
// registry must grow with the handles alive at once, not with the
// addresses it has seen. (The registry is the process's: its size follows
// the most handles any test held at once, a few thousand, and the
// addresses here must outnumber its slots to tell.)
TEST_F(ZosQuietTest, HandleRegistryDoesNotGrowWithAddressesSeen) {
    if (__sanitizer_get_current_allocated_bytes == nullptr) {
        GTEST_SKIP() << "needs a sanitizer runtime's heap count";
    }
    constexpr int kNodes = 65000;
    ST_ZOS_BKT_INFO row{128, kNodes, 8};
    ST_ZOS_POOL_CFG cfg{"cycled", &row, nullptr, nullptr, 0, 0, 1, 1};
    ZPOOL pool = Zos_PoolCreate(&cfg);
    ASSERT_NE(pool, nullptr);
    int failed = 0;
    auto cycle = [&](int count) {
        for (int i = 0; i < count; ++i) {
            ZDBUF b = Zos_DbufCreate(pool, 1, 128);
            if (b == nullptr || Zos_DbufDelete(b) != ZOK) failed++;
        }
    };
    cycle(kNodes);  // every address seen once
    const size_t before = __sanitizer_get_current_allocated_bytes();
    cycle(2 * kNodes);
    const size_t after = __sanitizer_get_current_allocated_bytes();
    EXPECT_EQ(failed, 0);
    EXPECT_LT(static_cast<int64_t>(after) - static_cast<int64_t>(before), 4096);
    Zos_PoolDelete(pool);
}
