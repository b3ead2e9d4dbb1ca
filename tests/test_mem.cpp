// Memory entry points in heap and pool mode, and the system strings.
#include <atomic>
#include <cstring>
#include <regex>
#include <string>

#include "zos_test.h"

namespace {

using ktest::g_lastSize;
using ktest::g_live;

// A realloc that counts like the test heap's malloc and free.
void *CountingRealloc(void *p, uint32_t size) {
    g_lastSize = size;
    if (p == nullptr) ++g_live;
    return ktest::HeapRealloc(p, size);
}

// Wraps the heap slots of the current holder with counting ones.
void CountHeap() {
    g_live = 0;
    ktest::g_failAt = 0;
    ktest::Slot(0) = reinterpret_cast<ZOS_OSDEP_FUNC>(ktest::FailingMalloc);
    ktest::Slot(1) = reinterpret_cast<ZOS_OSDEP_FUNC>(CountingRealloc);
    ktest::Slot(2) = reinterpret_cast<ZOS_OSDEP_FUNC>(ktest::CountingFree);
}

// The layer started in heap mode (parameter 1) or pool mode (0).
class MemModeTest : public ZosTest, public ::testing::WithParamInterface<uint32_t> {
  protected:
    void SetUp() override {
        ASSERT_EQ(Zos_CfgSetUseOsMalloc(GetParam()), ZOK);
        ZosTest::SetUp();
    }
};

class PoolModeTest : public ZosTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(Zos_CfgSetUseOsMalloc(0), ZOK);
        ZosTest::SetUp();
    }
};

// Numbers of the memory report: the row of one bucket size (total, free,
// peak, requests, releases), or with size 0 the totals (total, used, free,
// heap).
std::vector<uint32_t> Report(uint32_t size) {
    ktest::ClearPrinted();
    EXPECT_EQ(Zos_MemDbgShow(), ZOK);
    const std::string text = ktest::Printed();
    const std::string n = " +(\\d+)";
    const std::regex re(size != 0 ? "\r\n +" + std::to_string(size) + n + n + n + n + n + "\r\n"
                                  : "\r\nMem:   " + n + n + n + " \r\nHeap:  " + n + "\r\n\r\n$");
    std::smatch m;
    std::vector<uint32_t> out;
    if (!std::regex_search(text, m, re)) return out;
    for (size_t i = 1; i < m.size(); ++i) out.push_back(static_cast<uint32_t>(std::stoul(m[i])));
    return out;
}

}  // namespace

TEST_F(ZosTest, HeapModeRoundsSizesAndChecksNothing) {
    CountHeap();
    void *p = Zos_Malloc(1);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(g_lastSize, 4u);  // rounded up to a multiple of 4
    Zos_Free(p);
    p = Zos_Malloc(13);
    EXPECT_EQ(g_lastSize, 16u);
    p = Zos_Realloc(p, 17);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(g_lastSize, 20u);
    Zos_Free(p);
    EXPECT_EQ(Zos_HeapAlloc(0x7FFFFFFD), nullptr);  // rounds to 0x80000000
    EXPECT_EQ(Zos_HeapAlloc(0), nullptr);
    EXPECT_EQ(g_live, 0);
    char *s = Zos_SysStrAlloc("hello");
    EXPECT_EQ(g_lastSize, 16u);  // 5 + 9 rounded up
    Zos_SysStrFree(s);
    EXPECT_EQ(Zos_MemChkMem(nullptr), ZOK);  // heap mode checks nothing
    EXPECT_EQ(Zos_MemDbgShow(), ZFAILED);    // no pool in heap mode
    ktest::ClearPrinted();
    EXPECT_EQ(Zos_MemChkPool(), ZOK);
    EXPECT_EQ(ktest::Printed(), "pstEnv->zMemPoolId=0 \r\n");
}

TEST_F(ZosTest, EmptyHeapSlotGivesNull) {
    ktest::Slot(0) = nullptr;
    EXPECT_EQ(Zos_Malloc(8), nullptr);
    ktest::Slot(0) = reinterpret_cast<ZOS_OSDEP_FUNC>(ktest::HeapMalloc);
}

TEST_P(MemModeTest, SizeBoundsOfTheEntryPoints) {
    EXPECT_EQ(Zos_Malloc(0), nullptr);
    EXPECT_EQ(Zos_Malloc(0x7FFFFFFF), nullptr);
    Zos_Free(nullptr);

    EXPECT_EQ(Zos_MallocClrd(0), nullptr);
    EXPECT_EQ(Zos_MallocClrd(-1), nullptr);
    EXPECT_EQ(Zos_MallocClrd(0x7FFFFFFF), nullptr);
    auto *z = static_cast<unsigned char *>(Zos_MallocClrd(33));
    ASSERT_NE(z, nullptr);
    for (int i = 0; i < 33; ++i) EXPECT_EQ(z[i], 0);
    Zos_Free(z);
    // One byte is the smallest block each entry point gives.
    for (void *one : {Zos_Malloc(1), Zos_MallocClrd(1), Zos_Calloc(1, 1)}) {
        EXPECT_NE(one, nullptr);
        Zos_Free(one);
    }

    EXPECT_EQ(Zos_Calloc(0x10000, 0x10000), nullptr);  // overflows 32 bits
    EXPECT_EQ(Zos_Calloc(0, 5), nullptr);
    EXPECT_EQ(Zos_Calloc(0x7FFFFFFF, 1), nullptr);
    auto *c = static_cast<uint32_t *>(Zos_Calloc(10, 4));
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c[9], 0u);
    Zos_Free(c);

    // Grown blocks keep their content, small and large alike.
    auto *g = static_cast<char *>(Zos_Realloc(nullptr, 10));
    std::memcpy(g, "0123456789", 10);
    g = static_cast<char *>(Zos_Realloc(Zos_Realloc(g, 300), 200000));
    ASSERT_NE(g, nullptr);
    EXPECT_EQ(std::memcmp(g, "0123456789", 10), 0);
    Zos_Free(g);
}

// A second start of the memory layer keeps the heap or pool it has: a
// block taken before goes back without complaint. The same for the power
// memory pool.
TEST_P(MemModeTest, SecondStartKeepsWhatItHas) {
    void *before = Zos_Malloc(40);
    ASSERT_NE(before, nullptr);
    ktest::ClearLogged();
    EXPECT_EQ(Zos_MemInit(), ZOK);
    Zos_Free(before);
    EXPECT_EQ(Zos_PMemInit(), ZOK);
    EXPECT_EQ(Zos_PMemInit(), ZOK);
    EXPECT_TRUE(ktest::Logged().empty());
}

TEST_P(MemModeTest, SystemStrings) {
    EXPECT_EQ(Zos_SysStrAlloc(""), nullptr);
    EXPECT_EQ(Zos_SysStrAlloc(nullptr), nullptr);
    EXPECT_EQ(Zos_SysStrAllocN(0), nullptr);
    EXPECT_EQ(Zos_SysStrAllocN(0x7FFFFFF6), nullptr);
    EXPECT_EQ(Zos_SysStrNAlloc(nullptr, 3), nullptr);
    EXPECT_EQ(Zos_SysStrNAlloc("abc", 0), nullptr);
    EXPECT_EQ(Zos_SysStrXAlloc(nullptr), nullptr);
    ST_ZOS_SSTR empty{nullptr, 0};
    EXPECT_EQ(Zos_SysStrXAlloc(&empty), nullptr);

    char *s = Zos_SysStrAlloc("hello");
    ASSERT_NE(s, nullptr);
    EXPECT_STREQ(s, "hello");
    EXPECT_EQ(Zos_SysStrLen(s), 5u);
    uint32_t magic = 0;
    std::memcpy(&magic, s - 8, 4);
    EXPECT_EQ(magic, 0x0123DEEAu);

    ST_ZOS_SSTR part{const_cast<char *>("abcdef"), 3};
    char *x = Zos_SysStrXAlloc(&part);
    EXPECT_STREQ(x, "abc");
    char *f = Zos_SysStrFAlloc("%s-%d", "n", 42);
    EXPECT_STREQ(f, "n-42");
    EXPECT_EQ(Zos_SysStrLen(f), 4u);
    char *n = Zos_SysStrAllocN(3);
    EXPECT_EQ(n[3], '\0');

    // A second free of the same string is refused and frees nothing; its
    // length reads 0 once freed. Both refusals are logged.
    Zos_SysStrFree(s);
    EXPECT_FALSE(ktest::LoggedContains("SysStrFree invalid magic."));
    Zos_SysStrFree(s);
    EXPECT_TRUE(ktest::LoggedContains("SysStrFree invalid magic."));
    EXPECT_FALSE(ktest::LoggedContains("SysStrLen invalid magic id."));
    EXPECT_EQ(Zos_SysStrLen(s), 0u);
    EXPECT_TRUE(ktest::LoggedContains("SysStrLen invalid magic id."));
    Zos_SysStrFree(x);
    Zos_SysStrFree(f);
    Zos_SysStrFree(n);
    Zos_SysStrFree(nullptr);
    EXPECT_EQ(Zos_SysStrLen(nullptr), 0u);

    // A text that is no system string is refused and left as it is.
    char fake[16] = "0123456789abcde";
    ktest::ClearLogged();
    EXPECT_EQ(Zos_SysStrLen(fake + 8), 0u);
    Zos_SysStrFree(fake + 8);
    EXPECT_TRUE(ktest::LoggedContains("SysStrFree invalid magic."));
    EXPECT_STREQ(fake, "0123456789abcde");
}

INSTANTIATE_TEST_SUITE_P(HeapAndPool, MemModeTest, ::testing::Values(1u, 0u));

TEST_F(PoolModeTest, ReallocNeverShrinksAndKeepsTheBlockOnBadSizes) {
    const std::vector<uint32_t> base = Report(128);
    ASSERT_EQ(base.size(), 5u);
    auto *p = static_cast<char *>(Zos_Malloc(100));  // a 128-byte node
    ASSERT_NE(p, nullptr);
    std::memcpy(p, "kept", 5);
    EXPECT_EQ(Zos_Realloc(p, 10), p);
    EXPECT_EQ(Zos_Realloc(p, 128), p);
    EXPECT_EQ(Zos_Realloc(p, 0), nullptr);  // does not free
    EXPECT_EQ(Zos_Realloc(p, 0x7FFFFFFF), nullptr);
    EXPECT_EQ(Zos_Realloc(nullptr, 0), nullptr);
    EXPECT_EQ(Zos_MemChkMem(p), ZOK);
    const std::vector<uint32_t> before = Report(128);
    EXPECT_EQ(before[0] - before[1], base[0] - base[1] + 1);  // still in use

    char *q = static_cast<char *>(Zos_Realloc(p, 129));  // moves to 256
    ASSERT_NE(q, nullptr);
    EXPECT_NE(q, p);
    EXPECT_STREQ(q, "kept");
    EXPECT_EQ(Report(128)[4], before[4] + 1);  // the old node was released
    char local[16];
    EXPECT_EQ(Zos_Realloc(local + 8, 64), nullptr);  // not the pool's
    Zos_Free(q);
}

TEST_F(PoolModeTest, ChecksCatchOverrunsAndForeignPointers) {
    auto *p = static_cast<uint8_t *>(Zos_Malloc(32));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(Zos_MemChkMem(p), ZOK);
    char local[16];
    EXPECT_EQ(Zos_MemChkMem(local + 8), ZFAILED);
    EXPECT_EQ(Zos_MemChkMem(nullptr), ZFAILED);
    ktest::ClearPrinted();
    EXPECT_EQ(Zos_MemChkPool(), ZOK);
    EXPECT_TRUE(
        std::regex_match(ktest::Printed(), std::regex("pstEnv->zMemPoolId=[1-9a-f][0-9a-f]* \r\n")))
        << ktest::Printed();

    p[32] = 0;  // one byte past the node's data
    EXPECT_EQ(Zos_MemChkMem(p), ZFAILED);
    EXPECT_EQ(Zos_MemChkPool(), ZFAILED);
    const std::vector<uint32_t> before = Report(32);
    Zos_Free(p);  // reported, and freed all the same
    EXPECT_EQ(Report(32)[4], before[4] + 1);
    EXPECT_EQ(Zos_MemChkPool(), ZOK);
    Zos_Free(p);  // twice: nothing changes
    Zos_Free(local + 8);
    EXPECT_EQ(Report(32)[4], before[4] + 1);
}

TEST_F(PoolModeTest, ReportShowsBucketsBytesAndHeap) {
    ktest::ClearPrinted();
    ASSERT_EQ(Zos_MemDbgShow(), ZOK);
    EXPECT_EQ(ktest::Printed().rfind(
                  "\r\n    BUCKET      TOTAL       FREE  PEEK ALLOC    REQUEST    RELEASE\r\n"
                  "    ------      -----       ----  ----------    -------    -------\r\n",
                  0),
              0u)
        << ktest::Printed();
    for (uint32_t size : {32u, 64u, 5120u, 65536u}) EXPECT_EQ(Report(size).size(), 5u) << size;
    const std::vector<uint32_t> was = Report(32), wasTotals = Report(0);
    ASSERT_EQ(wasTotals.size(), 4u);
    void *a[3];
    for (void *&x : a) x = Zos_Malloc(20);
    void *big = Zos_Malloc(70001);
    const std::vector<uint32_t> now = Report(32), totals = Report(0);
    EXPECT_EQ(now[0] - now[1], was[0] - was[1] + 3);  // in use
    EXPECT_EQ(now[3], was[3] + 3);                    // requests
    EXPECT_GE(now[2], now[0] - now[1]);               // peak
    EXPECT_EQ(totals[0] - totals[2], totals[1]);
    EXPECT_GT(totals[2], 0u);  // the buckets' nodes made at start-up and not in use
    EXPECT_EQ(totals[3], wasTotals[3] + 70004 + 12);  // rounded size and header
    Zos_Free(big);
    EXPECT_EQ(Report(0)[3], wasTotals[3]);
    for (void *x : a) Zos_Free(x);
}

TEST(Mem, RepeatedStartAndStopLeaveNothingAllocated) {
    for (int round = 0; round < 26; ++round) {
        ASSERT_NE(Zos_OsenvLocateNew(), nullptr);
        Zos_CfgSetPrintDisp(ktest::PrintHook);
        Zos_CfgSetUseOsMalloc(round % 2);  // pool blocks go back too
        CountHeap();
        ASSERT_EQ(Zos_SysInit(), ZOK);
        char *s = Zos_SysStrAlloc("kept until shut-down");
        Zos_SysStrFree(s);
        void *p = Zos_Malloc(100);
        Zos_Free(p);
        Zos_SysDestroy();
        ASSERT_EQ(Zos_OsenvLocate(), nullptr);
        ASSERT_EQ(g_live, 0) << "round " << round;
    }
}
