// Allocation failures on the create and grow paths of logs, buffers and
// containers. Each case runs with the layer in heap mode (the fixture's
// default: Zos_Malloc goes straight to the platform heap), so every block
// these objects take reaches the failing heap; where a path serves from a
// pool instead, the case says so. Allocation n of the armed call fails for
// n = 1, 2, ... until the call makes fewer than n allocations; a failed
// call must report it, change nothing and leave nothing allocated.
#include <cstring>
#include <string>

#include "kestro_lite.h"
#include "zos_test.h"

namespace {

using ktest::FailArm;
using ktest::FailDisarm;
using ktest::FailEach;
using ktest::g_calls;
using ktest::g_failAt;

using AllocFailObjs = ZosTest;

std::string g_seen;
void Watch(void *, uint32_t, const char *msg) {
    g_seen = msg;
}

// A cache above the print pool's largest bucket makes the log's record a
// heap block of its own; the rest of a log (name, line buffer) comes from
// the print pool, which a first log warms up so the loop sees only the
// heap. A line written afterwards needs no heap at all.
TEST_F(AllocFailObjs, LogCreateAndWrite) {
    ZLOGID warm = Zos_LogCreateX("AFWARM", nullptr, 0, ZOS_LOG_LEVEL_ALL, 0);
    ASSERT_NE(warm, nullptr);
    EXPECT_EQ(Zos_LogInfo(warm, "warm %d", 1), ZOK);
    EXPECT_EQ(Zos_LogDelete(warm), ZOK);
    const int failed = FailEach("log", [](int n) {
        FailArm(n);
        ZLOGID log = Zos_LogCreateX("AFLOG", nullptr, 0, ZOS_LOG_LEVEL_ALL, 64 * 1024);
        FailDisarm();
        ZLOGID found = nullptr;
        if (log == nullptr) {
            EXPECT_EQ(Zos_LogGetId("AFLOG", &found), ZFAILED) << n;  // not half-registered
            return false;
        }
        EXPECT_EQ(Zos_LogGetId("AFLOG", &found), ZOK);
        EXPECT_EQ(found, log);
        EXPECT_EQ(Zos_LogSetWatcher(log, Watch, nullptr), ZOK);
        g_seen.clear();
        FailArm(1);
        EXPECT_EQ(Zos_LogInfo(log, "line %d", n), ZOK);
        EXPECT_EQ(g_calls, 0);  // the write took no heap block
        g_failAt = 0;
        EXPECT_EQ(g_seen, "line " + std::to_string(n));
        EXPECT_EQ(Zos_LogDelete(log), ZOK);
        return true;
    });
    EXPECT_GE(failed, 1);
}

// Data buffers from a private pool on the platform heap with no initial
// nodes and shrinking on: the header and every block grow the pool, and
// deleting the pool gives all of it back. Creation, then appends and
// prepends that need new and oversized blocks, each fail in turn. Some
// failures are survived (a bucket that cannot grow is served from a larger
// one); the buffer's content must then be whole.
TEST_F(AllocFailObjs, DbufCreateAndGrow) {
    static const ST_ZOS_BKT_INFO rows[2] = {{64, 0, 1}, {160, 0, 1}};
    const std::string big(300, 'b'), tail(100, 't');
    const int failed = FailEach("dbuf", [&](int n) {
        ST_ZOS_POOL_CFG cfg{"af dbuf", rows, nullptr, nullptr, 0, 1, 0, 2};
        ZPOOL pool = Zos_PoolCreate(&cfg);
        EXPECT_NE(pool, nullptr);
        FailArm(n);  // one window over the creation and all three additions
        ZDBUF b = Zos_DbufCreate(pool, ZOS_DBUF_TYPE_MSG, 128);
        bool ok = b != nullptr;
        for (int step = 0; ok && step < 3; ++step) {
            const uint32_t before = Zos_DbufLen(b);
            uint32_t ret = ZFAILED;
            if (step == 0) ret = Zos_DbufPstAddMultD(b, tail.data(), 100);
            if (step == 1) ret = Zos_DbufPreAddMultD(b, big.data(), 300);
            if (step == 2) ret = Zos_DbufPstAddFmtD(b, "%s", big.c_str());
            ok = ret == ZOK;
            EXPECT_EQ(Zos_DbufLen(b), before + (ok ? (step == 0 ? 100u : 300u) : 0u)) << n;
        }
        FailDisarm();
        if (ok) {
            std::string all(Zos_DbufLen(b), '\0');
            EXPECT_EQ(Zos_DbufCopyD(b, 0, 700, all.data()), ZOK);
            EXPECT_EQ(all, big + tail + big);
        }
        if (b != nullptr) {
            EXPECT_EQ(Zos_DbufDelete(b), ZOK);
        }
        Zos_PoolDelete(pool);
        return ok;
    });
    EXPECT_GE(failed, 2);
}

// A segment buffer, the universal wrapper over it, and text copied into
// it (a copy larger than a segment takes a segment of its own).
TEST_F(AllocFailObjs, SbufUbufCreateAndCopy) {
    const std::string text(200, 'x');
    const int failed = FailEach("ubuf", [&](int n) {
        FailArm(n);
        ZSBUF s = Zos_SbufCreate(64);
        ZUBUF u = s != nullptr ? Zos_UbufCreate(s) : nullptr;
        char *small = nullptr, *large = nullptr;
        ST_ZOS_SSTR counted{};
        uint32_t r1 = ZFAILED, r2 = ZFAILED, r3 = ZFAILED;
        if (u != nullptr) r1 = Zos_UbufCpyStr(u, "short", &small);
        if (r1 == ZOK) r2 = Zos_UbufCpyStr(u, text.c_str(), &large);
        if (r2 == ZOK) r3 = Zos_UbufCpySStr(u, text.c_str(), &counted);
        FailDisarm();
        if (u != nullptr) {
            EXPECT_EQ(r1 == ZOK, small != nullptr) << n;  // a failed copy clears its output
            EXPECT_EQ(r2 == ZOK, large != nullptr) << n;
        }
        if (r3 == ZOK) {
            EXPECT_STREQ(small, "short");
            EXPECT_EQ(std::string(large), text);
            EXPECT_EQ(std::string(counted.pcStr, counted.uiLen), text);
            EXPECT_EQ(Zos_SbufHoldD(s, large), 1u);
        }
        if (u != nullptr) {
            EXPECT_EQ(Zos_UbufDelete(u), ZOK);
        }
        Zos_SbufDelete(s);
        return r3 == ZOK;
    });
    EXPECT_GE(failed, 4);  // the buffer, the wrapper and two segments
}

uint32_t SameItem(uintptr_t item, uintptr_t key, uintptr_t, uintptr_t) {
    return item == key ? 0 : 1;
}

// Hash tables (arena and arrays; inserts then use the fixed nodes), trees
// (arena, then one node per key) and object maps (record, tree, nodes).
TEST_F(AllocFailObjs, ContainersCreateAndAdd) {
    int failed = FailEach("hash", [](int n) {
        ST_ZOS_HASH *h = nullptr;
        FailArm(n);
        const uint32_t ret = Zos_HashCreateA(nullptr, 1024, Zos_HashKeyFromUint32, SameItem, &h);
        FailDisarm();
        if (ret != ZOK) {
            EXPECT_EQ(h, nullptr) << n;
            return false;
        }
        for (uintptr_t k = 1; k <= 50; ++k) EXPECT_EQ(Zos_HashInsert(h, k, k, k, 0), ZOK);
        uintptr_t item = 0;
        EXPECT_EQ(Zos_HashFind(h, 33, 33, 0, &item), 1u);
        EXPECT_EQ(item, 33u);
        EXPECT_EQ(Zos_HashDelete(h), 0u);
        return true;
    });
    EXPECT_GE(failed, 1);

    failed = FailEach("rbt", [](int n) {
        FailArm(n);
        ZRBT t = Zos_RbtCreate(nullptr);
        uint32_t added = 0;
        while (t != nullptr && added < 200 && Zos_RbtAdd(t, added * 7, added) == ZOK) ++added;
        FailDisarm();
        if (t != nullptr) {  // a failed add leaves the tree whole
            EXPECT_EQ(Zos_RbtSize(t), added) << n;
            EXPECT_EQ(Zos_RbtChk(t), ZOK) << n;
            EXPECT_EQ(Zos_RbtFind(t, added * 7), nullptr) << n;
            if (added > 0) {
                EXPECT_EQ(Zos_RbtGetValue(Zos_RbtFind(t, (added - 1) * 7)), added - 1);
            }
        }
        Zos_RbtDelete(t);
        return added == 200;
    });
    EXPECT_GE(failed, 2);

    int obj[100] = {};
    failed = FailEach("omap", [&](int n) {
        FailArm(n);
        ZOMAP m = Zos_OmapCreate(10, 1000);
        uint32_t added = 0, id = 0;
        while (m != nullptr && added < 100 && Zos_OmapAdd(m, &obj[added], &id) == ZOK) ++added;
        FailDisarm();
        if (m != nullptr) {  // a failed add takes no id
            EXPECT_EQ(Zos_OmapCount(m), added) << n;
            EXPECT_EQ(Zos_OmapFind(m, 10 + added), nullptr) << n;
            if (added > 0) {
                EXPECT_EQ(Zos_OmapFind(m, 10 + added - 1), &obj[added - 1]) << n;
            }
            EXPECT_EQ(Zos_OmapAdd(m, &obj[0], &id), ZOK);  // the next id works
            EXPECT_EQ(id, 10 + added);
        }
        Zos_OmapDelete(m);
        return added == 100;
    });
    EXPECT_GE(failed, 3);
}

}  // namespace
