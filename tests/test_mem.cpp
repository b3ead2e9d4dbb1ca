// Memory entry points in heap mode and the system strings.
#include <atomic>
#include <cstring>

#include "zos_test.h"

namespace {

std::atomic<uint32_t> g_lastSize{0};
std::atomic<int> g_live{0};

void *CountingMalloc(uint32_t size) {
    g_lastSize = size;
    void *p = Zpand_Malloc(size);
    if (p != nullptr) ++g_live;
    return p;
}
void CountingFree(void *p) {
    if (p != nullptr) --g_live;
    Zpand_Free(p);
}
void *CountingRealloc(void *p, uint32_t size) {
    g_lastSize = size;
    if (p == nullptr) ++g_live;
    return Zpand_Realloc(p, size);
}

// Wraps the heap slots of the current holder with counting ones.
void CountHeap() {
    g_live = 0;
    ktest::Slot(0) = reinterpret_cast<ZOS_OSDEP_FUNC>(CountingMalloc);
    ktest::Slot(1) = reinterpret_cast<ZOS_OSDEP_FUNC>(CountingRealloc);
    ktest::Slot(2) = reinterpret_cast<ZOS_OSDEP_FUNC>(CountingFree);
}

}  // namespace

TEST_F(ZosTest, SizeBoundsOfTheEntryPoints) {
    CountHeap();
    EXPECT_EQ(Zos_Malloc(0), nullptr);
    EXPECT_EQ(Zos_Malloc(0x7FFFFFFF), nullptr);
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
    Zos_Free(nullptr);

    EXPECT_EQ(Zos_MallocClrd(0), nullptr);
    EXPECT_EQ(Zos_MallocClrd(-1), nullptr);
    EXPECT_EQ(Zos_MallocClrd(0x7FFFFFFF), nullptr);
    auto *z = static_cast<unsigned char *>(Zos_MallocClrd(33));
    ASSERT_NE(z, nullptr);
    for (int i = 0; i < 33; ++i) EXPECT_EQ(z[i], 0);
    Zos_Free(z);

    EXPECT_EQ(Zos_Calloc(0x10000, 0x10000), nullptr);  // overflows 32 bits
    EXPECT_EQ(Zos_Calloc(0, 5), nullptr);
    EXPECT_EQ(Zos_Calloc(0x7FFFFFFF, 1), nullptr);
    auto *c = static_cast<uint32_t *>(Zos_Calloc(10, 4));
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c[9], 0u);
    Zos_Free(c);

    EXPECT_EQ(Zos_HeapAlloc(0x7FFFFFFD), nullptr);  // rounds to 0x80000000
    EXPECT_EQ(Zos_HeapAlloc(0), nullptr);
    EXPECT_EQ(g_live, 0);
    EXPECT_EQ(Zos_MemChkMem(nullptr), ZOK);  // heap mode checks nothing
    EXPECT_EQ(Zos_MemDbgShow(), ZFAILED);    // no pool in heap mode
    ktest::ClearPrinted();
    EXPECT_EQ(Zos_MemChkPool(), ZOK);
    EXPECT_EQ(ktest::Printed(), "pstEnv->zMemPoolId=0 \r\n");
}

TEST_F(ZosTest, EmptyHeapSlotGivesNull) {
    ktest::Slot(0) = nullptr;
    EXPECT_EQ(Zos_Malloc(8), nullptr);
    ktest::Slot(0) = reinterpret_cast<ZOS_OSDEP_FUNC>(Zpand_Malloc);
}

TEST_F(ZosTest, SystemStrings) {
    CountHeap();
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
    EXPECT_EQ(g_lastSize, 16u);  // 5 + 9 rounded up
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
    // length reads 0 once freed.
    Zos_SysStrFree(s);
    Zos_SysStrFree(s);
    EXPECT_EQ(Zos_SysStrLen(s), 0u);
    Zos_SysStrFree(x);
    Zos_SysStrFree(f);
    Zos_SysStrFree(n);
    Zos_SysStrFree(nullptr);
    EXPECT_EQ(Zos_SysStrLen(nullptr), 0u);

    // A text that is no system string is refused.
    char fake[16] = {};
    EXPECT_EQ(Zos_SysStrLen(fake + 8), 0u);
    Zos_SysStrFree(fake + 8);
}

TEST(Mem, RepeatedStartAndStopLeaveNothingAllocated) {
    for (int round = 0; round < 25; ++round) {
        ASSERT_NE(Zos_OsenvLocateNew(), nullptr);
        Zos_CfgSetPrintDisp(ktest::PrintHook);
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
