// Data buffers: block layout of appends and prepends, reserve, removal,
// split and concatenation, clones, copies and offsets, files, the trace,
// and random operation sequences checked against a std::string.
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "zos_test.h"

namespace {

std::vector<uint32_t> Blocks(ZDBUF b) {
    std::vector<uint32_t> lens;
    for (uint32_t i = 0; i < Zos_DbufBlkSize(b); ++i) lens.push_back(Zos_DbufBlkLen(b, i));
    return lens;
}

std::string Bytes(uint32_t n, char first = 'a') {
    std::string s(n, '\0');
    for (uint32_t i = 0; i < n; ++i) s[i] = static_cast<char>(first + i % 26);
    return s;
}

// A pool whose backing allocator refuses blocks above a size limit and,
// when a budget is set, every allocation past it: the way to make single
// block builds and whole builds fail on purpose.
uint32_t g_limit = 0xFFFFFFFFu;
int g_budget = -1;
void *LimitedAlloc(uint32_t size) {
    if (size > g_limit || g_budget == 0) return nullptr;
    if (g_budget > 0) --g_budget;
    return Zos_Malloc(size);
}

class DbufTest : public ZosTest {
  protected:
    void SetUp() override {
        ZosTest::SetUp();
        Zos_LogOpen(Zos_LogGetZosId(), ZOS_LOG_LEVEL_WARN);  // the warning texts too
    }
    // Buckets 64 and 160 (one node per block): standard blocks of a
    // 128-byte buffer fit, a block of more than about 200 bytes needs a
    // large allocation.
    ZPOOL MakePool(uint32_t limit) {
        g_limit = limit;
        g_budget = -1;
        ST_ZOS_POOL_CFG cfg{"dbuf test", rows_, LimitedAlloc, Zos_Free, 0, 0, 1, 2};
        pool_ = Zos_PoolCreate(&cfg);
        return pool_;
    }
    // Every node of the pool is free again and nothing is held outside it.
    void ExpectPoolEmpty() {
        for (uint32_t i = 0; i < 2; ++i) {
            ST_ZOS_POOL_BKT_STAT s{};
            ASSERT_EQ(Zos_PoolGetBktStat(pool_, i, &s), ZOK);
            EXPECT_EQ(s.uiFree, s.uiTotal) << "bucket " << i;
        }
        EXPECT_EQ(Zos_PoolGetHeapSize(pool_), 0u);
    }
    void TearDown() override {
        Zos_PoolDelete(pool_);
        g_limit = 0xFFFFFFFFu;
        g_budget = -1;
        ZosTest::TearDown();
    }
    const ST_ZOS_BKT_INFO rows_[2] = {{64, 0, 1}, {160, 0, 1}};
    ZPOOL pool_ = nullptr;
};

}  // namespace

TEST_F(DbufTest, CreateRulesAndValidityTexts) {
    EXPECT_EQ(Zos_DbufCreate(nullptr, 3, 128), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("DbufCreate invalid type."));
    ZDBUF big = Zos_DbufCreate(nullptr, 1, 70000);  // above the largest bucket
    EXPECT_TRUE(ktest::LoggedContains("DbufCreate invalid size 70000, use 65536."));
    EXPECT_EQ(Zos_DbufDftBlkSize(big), 65536u - 24u);
    EXPECT_EQ(Zos_DbufDelete(big), ZOK);

    void *p = nullptr;
    EXPECT_EQ(Zos_DbufCreateD(nullptr, 1, 128, 10, nullptr), nullptr);
    EXPECT_EQ(Zos_DbufCreateD(nullptr, 1, 128, 0, &p), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("DbufCreateD invalid size or data."));
    // A create that fails leaves no stale data pointer behind.
    int stale = 0;
    p = &stale;
    EXPECT_EQ(Zos_DbufCreateD(nullptr, 3, 128, 10, &p), nullptr);
    EXPECT_EQ(p, nullptr);
    ZDBUF plain = Zos_DbufCreateD(nullptr, 1, 128, 0, nullptr);  // no data asked for
    ASSERT_NE(plain, nullptr);
    EXPECT_EQ(Zos_DbufLen(plain), 0u);
    EXPECT_EQ(Zos_DbufDelete(plain), ZOK);
    ZDBUF mem = Zos_DbufCreateClrd(nullptr, 2, 130, 7, &p);  // memory buffer: sizes round to 4
    ASSERT_NE(mem, nullptr);
    EXPECT_EQ(Zos_DbufDftBlkSize(mem), 132u - 24u);
    EXPECT_EQ(Zos_DbufLen(mem), 8u);
    EXPECT_EQ(std::string(static_cast<char *>(p), 7), std::string(7, '\0'));

    ktest::ClearLogged();
    EXPECT_EQ(Zos_DbufPstAddMultD(mem, "x", 1), ZFAILED);  // memory buffers take no appends
    EXPECT_TRUE(ktest::LoggedContains("DbufChkValid invalid type."));
    EXPECT_TRUE(ktest::LoggedContains("DbufPstAddMultD invalid id."));
    EXPECT_EQ(Zos_DbufChkValid(nullptr, 255, 0, 0), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DbufChkValid null buffer."));
    EXPECT_EQ(Zos_DbufChkValid(mem, 255, 0, 1), ZOK);
    uint32_t junk[16] = {};
    EXPECT_EQ(Zos_DbufChkValid(junk, 255, 0, 0), ZFAILED);  // not a buffer at all
    EXPECT_TRUE(ktest::LoggedContains("DbufChkValid invalid magic."));
    EXPECT_EQ(Zos_DbufDelete(mem), ZOK);

    ZDBUF msg = Zos_DbufCreateAddD(nullptr, 1, 256, "hello", 5);
    EXPECT_EQ(ktest::DbufText(msg), "hello");
    EXPECT_EQ(Zos_DbufChkValid(Zos_DbufCreate(nullptr, 1, 128), 255, 0, 1), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DbufChkValid no data."));
    EXPECT_EQ(Zos_DbufPstAddMultD(msg, "x", 0), ZFAILED);  // length 0: refused quietly
    EXPECT_EQ(Zos_DbufPreAddMultD(msg, "x", 0), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DbufPreAddMultD invalid length."));
    EXPECT_EQ(Zos_DbufDelete(msg), ZOK);
    EXPECT_EQ(Zos_DbufDelete(nullptr), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DbufDelete invalid id."));
}

TEST_F(DbufTest, AppendAndPrependBlockLayout) {
    ZDBUF b = Zos_DbufCreate(nullptr, 1, 128);
    ASSERT_EQ(Zos_DbufPstAddD(b, 'x'), ZOK);  // one block of capacity 104
    EXPECT_EQ(Blocks(b), std::vector<uint32_t>{1});
    EXPECT_EQ(Zos_DbufSize(b), 104u);
    EXPECT_EQ(Zos_DbufAdjD(b, 1), ZOK);
    EXPECT_EQ(Zos_DbufLen(b), 0u);  // emptied yet still valid
    EXPECT_EQ(Zos_DbufBlkSize(b), 0u);

    // 100 bytes prepended: one block holding them at its end, 4 bytes of
    // head room left. 10 more: the last 4 go there, the first 6 into a new
    // block before it.
    ASSERT_EQ(Zos_DbufPreAddMultD(b, Bytes(100).data(), 100), ZOK);
    ASSERT_EQ(Zos_DbufPreAddMultD(b, "0123456789", 10), ZOK);
    EXPECT_EQ(Blocks(b), (std::vector<uint32_t>{6, 104}));
    EXPECT_EQ(ktest::DbufText(b), "0123456789" + Bytes(100));
    EXPECT_EQ(Zos_DbufPreAddD(b, '#'), ZOK);  // head room of the new block
    EXPECT_EQ(Blocks(b), (std::vector<uint32_t>{7, 104}));

    // The last block's room takes the first bytes; more than a block goes
    // into one block of exactly the rest.
    ASSERT_EQ(Zos_DbufPstAddMultD(b, Bytes(300, 'A').data(), 300), ZOK);
    EXPECT_EQ(Blocks(b), (std::vector<uint32_t>{7, 104, 300}));
    EXPECT_EQ(ktest::DbufText(b), "#0123456789" + Bytes(100) + Bytes(300, 'A'));
    EXPECT_EQ(Zos_DbufPstAddStrD(b, "zz"), ZOK);
    EXPECT_EQ(Zos_DbufPreAddStrD(b, "yy"), ZOK);
    EXPECT_EQ(ktest::DbufText(b), "yy#0123456789" + Bytes(100) + Bytes(300, 'A') + "zz");
    EXPECT_EQ(Zos_DbufDelete(b), ZOK);
}

TEST_F(DbufTest, BuildFallsBackToStandardBlocksPartialOutermost) {
    ASSERT_NE(MakePool(0xFFFFFFFFu), nullptr);
    ZDBUF b = Zos_DbufCreate(pool_, 1, 128);
    g_limit = 250;  // from now on no block above ~200 bytes
    const std::string d = Bytes(250);
    ASSERT_EQ(Zos_DbufPstAddMultD(b, d.data(), 250), ZOK);
    EXPECT_EQ(Blocks(b), (std::vector<uint32_t>{104, 104, 42}));  // partial block last
    ASSERT_EQ(Zos_DbufPreAddMultD(b, d.data(), 250), ZOK);
    EXPECT_EQ(Blocks(b), (std::vector<uint32_t>{42, 104, 104, 104, 104, 42}));  // and first
    EXPECT_EQ(ktest::DbufText(b), d + d);

    // A build that runs out half-way releases what it made; the buffer is
    // untouched.
    g_budget = 1;
    ktest::ClearLogged();
    EXPECT_EQ(Zos_DbufPstAddMultD(b, Bytes(400).data(), 400), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DbufAddData alloc data."));
    EXPECT_TRUE(ktest::LoggedContains("DbufPstAddMultD add data."));
    EXPECT_EQ(ktest::DbufText(b), d + d);
    g_budget = -1;
    EXPECT_EQ(Zos_DbufDelete(b), ZOK);
    ExpectPoolEmpty();
}

// A delete gives every block back in one pass over the chain; a large
// block in the middle and a block with a damaged red zone (reported once,
// freed all the same) do not stop it.
TEST_F(DbufTest, DeleteReturnsEveryBlockPastLargeAndDamagedOnes) {
    ASSERT_NE(MakePool(0xFFFFFFFFu), nullptr);
    ZDBUF b = Zos_DbufCreate(pool_, 1, 128);
    for (uint32_t n : {104u, 300u, 104u, 10u}) {
        ASSERT_EQ(Zos_DbufPstAddMultD(b, Bytes(n).data(), n), ZOK);
    }
    ASSERT_EQ(Blocks(b), (std::vector<uint32_t>{104, 300, 104, 10}));
    EXPECT_GT(Zos_PoolGetHeapSize(pool_), 300u);  // the 300-byte block
    // The third block's node: its data area of 160 bytes starts at the
    // block header (two links and four counts), its red zone right after.
    const size_t header = 2 * sizeof(void *) + 16;
    std::memset(Zos_DbufBlkData(b, 2) - header + 160, 0, 4);
    ktest::ClearLogged();
    EXPECT_EQ(Zos_DbufDelete(b), ZOK);
    size_t damaged = 0;
    for (const auto &line : ktest::Logged()) {
        damaged += line.msg.find("PoolFree <dbuf test> invalid redzone.") != std::string::npos;
    }
    EXPECT_EQ(damaged, 1u);
    ExpectPoolEmpty();
}

TEST_F(DbufTest, ReserveAreas) {
    ZDBUF b = Zos_DbufCreate(nullptr, 2, 128);
    EXPECT_EQ(Zos_DbufAlloc(b, 0), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("DbufAlloc alloc 0 size."));
    auto *a = static_cast<uint8_t *>(Zos_DbufAlloc(b, 5));  // rounded to 8
    auto *c = static_cast<uint8_t *>(Zos_DbufAlloc(b, 8));
    EXPECT_EQ(c, a + 8);
    EXPECT_EQ(Zos_DbufLen(b), 16u);
    EXPECT_NE(Zos_DbufAlloc(b, 200), nullptr);  // a block of exactly 200
    EXPECT_EQ(Zos_DbufSize(b), 104u + 200u);
    EXPECT_EQ(Zos_DbufDelete(b), ZOK);

    // Head room serves when the tail has none; AllocX grows the tail and,
    // with head room too, moves the head back as well.
    b = Zos_DbufCreate(nullptr, 1, 128);
    ASSERT_EQ(Zos_DbufPreAddMultD(b, Bytes(90).data(), 90), ZOK);  // head room 14
    auto *h = static_cast<uint8_t *>(Zos_DbufAlloc(b, 10));
    EXPECT_EQ(h, Zos_DbufBlkData(b, 0));
    EXPECT_EQ(Zos_DbufBlkLen(b, 0), 100u);
    auto *last = static_cast<uint8_t *>(Zos_DbufAlloc(b, 4));  // exactly the head room left
    EXPECT_EQ(last, Zos_DbufBlkData(b, 0));
    EXPECT_EQ(Zos_DbufBlkLen(b, 0), 104u);
    EXPECT_EQ(Zos_DbufIsFlat(b), 1u);
    EXPECT_EQ(Zos_DbufDelete(b), ZOK);

    b = Zos_DbufCreateAddD(nullptr, 1, 128, "0123456789", 10);
    ASSERT_EQ(Zos_DbufAdjD(b, 5), ZOK);  // head 5, tail 10
    auto *x = static_cast<uint8_t *>(Zos_DbufAllocX(b, 4));
    EXPECT_EQ(x, Zos_DbufBlkData(b, 0));  // before the old head
    EXPECT_EQ(Zos_DbufBlkLen(b, 0), 9u);  // grown once
    EXPECT_EQ(Zos_DbufLen(b), 9u);
    EXPECT_EQ(std::memcmp(x + 4, "56789", 5), 0);
    EXPECT_EQ(Zos_DbufDelete(b), ZOK);
}

TEST_F(DbufTest, RemoveAdjustAndNewLength) {
    ZDBUF b = Zos_DbufCreate(nullptr, 1, 128);
    const std::string d = Bytes(300);
    ASSERT_EQ(Zos_DbufPstAddMultD(b, d.data(), 100), ZOK);
    ASSERT_EQ(Zos_DbufPstAddMultD(b, d.data() + 100, 200), ZOK);  // blocks 104, 196
    char out[300];
    EXPECT_EQ(Zos_DbufPreDelMultD(b, 301, out), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DbufPreDelMultD invalid length."));
    ASSERT_EQ(Zos_DbufPreDelMultD(b, 110, out), ZOK);  // a whole block and 6 bytes
    EXPECT_EQ(std::string(out, 110), d.substr(0, 110));
    EXPECT_EQ(Blocks(b), std::vector<uint32_t>{190});
    ASSERT_EQ(Zos_DbufPstDelMultD(b, 40, out), ZOK);
    EXPECT_EQ(std::string(out, 40), d.substr(260, 40));
    EXPECT_EQ(Zos_DbufPstDelMultD(b, 10, nullptr), ZOK);  // no output: an adjustment
    EXPECT_EQ(ktest::DbufText(b), d.substr(110, 140));

    EXPECT_EQ(Zos_DbufAdjD(b, 0), ZFAILED);
    EXPECT_EQ(Zos_DbufAdjD(b, -141), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DbufAdjD invalid length."));
    EXPECT_EQ(Zos_DbufAdjD(b, -40), ZOK);
    EXPECT_EQ(ktest::DbufText(b), d.substr(110, 100));
    EXPECT_EQ(Zos_DbufNewLen(b, 90), ZOK);
    EXPECT_EQ(ktest::DbufText(b), d.substr(110, 90));
    EXPECT_EQ(Zos_DbufNewLen(b, 100), ZOK);  // back into the tail room
    EXPECT_EQ(ktest::DbufText(b), d.substr(110, 100));
    EXPECT_EQ(Zos_DbufNewLen(b, 1000), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DbufNewLen invalid length."));
    // Growing by the block's whole capacity is past its room, as its data
    // already takes some of it.
    ASSERT_EQ(Blocks(b), std::vector<uint32_t>{100});
    EXPECT_EQ(Zos_DbufNewLen(b, 100 + Zos_DbufSize(b)), ZFAILED);
    EXPECT_EQ(Zos_DbufLen(b), 100u);
    EXPECT_EQ(Zos_DbufAdjD(b, -100), ZOK);  // the full length: empty, still valid
    EXPECT_EQ(Zos_DbufLen(b), 0u);
    EXPECT_EQ(Zos_DbufPstAddStrD(b, "again"), ZOK);
    EXPECT_EQ(Zos_DbufFree(b), ZOK);
    EXPECT_EQ(Zos_DbufLen(b), 0u);
    EXPECT_EQ(Zos_DbufDelete(b), ZOK);
}

TEST_F(DbufTest, SplitOnAndInsideBlocksAndCat) {
    ZDBUF b = Zos_DbufCreate(nullptr, 1, 128);
    const std::string d = Bytes(300);
    ASSERT_EQ(Zos_DbufPstAddMultD(b, d.data(), 100), ZOK);
    ASSERT_EQ(Zos_DbufPstAddMultD(b, d.data() + 100, 200), ZOK);  // blocks 104, 196
    EXPECT_EQ(Zos_DbufSplit(b, 0), nullptr);
    EXPECT_EQ(Zos_DbufSplit(b, 300), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("DbufSplit invalid offset."));

    uint8_t *second = Zos_DbufBlkData(b, 1);
    ZDBUF tail = Zos_DbufSplit(b, 104);  // on the boundary: relinked, not copied
    ASSERT_NE(tail, nullptr);
    EXPECT_EQ(Zos_DbufBlkData(tail, 0), second);
    EXPECT_EQ(ktest::DbufText(b), d.substr(0, 104));
    EXPECT_EQ(ktest::DbufText(tail), d.substr(104));

    ZDBUF rest = Zos_DbufSplit(tail, 50);  // inside: only the part after is copied
    ASSERT_NE(rest, nullptr);
    EXPECT_EQ(Zos_DbufSize(rest), 146u);
    EXPECT_EQ(Zos_DbufBlkData(tail, 0), second);
    EXPECT_EQ(ktest::DbufText(tail), d.substr(104, 50));
    EXPECT_EQ(ktest::DbufText(rest), d.substr(154));

    ZDBUF mem = Zos_DbufCreateD(nullptr, 2, 128, 4, reinterpret_cast<void **>(&second));
    EXPECT_EQ(Zos_DbufCat(b, mem), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DbufCat type not same."));
    EXPECT_EQ(Zos_DbufDelete(mem), ZOK);
    EXPECT_EQ(Zos_DbufCat(b, b), ZFAILED);
    ASSERT_EQ(Zos_DbufCat(b, tail), ZOK);
    ASSERT_EQ(Zos_DbufCat(b, rest), ZOK);
    EXPECT_EQ(ktest::DbufText(b), d);
    EXPECT_EQ(Zos_DbufDelete(b), ZOK);
}

// A cat from another pool takes copies of the blocks; when the copies
// cannot be had, it fails and leaves both buffers as they were.
TEST_F(DbufTest, CatFromAnotherPoolFailsWholeWithoutCopies) {
    ASSERT_NE(MakePool(0xFFFFFFFFu), nullptr);
    ZDBUF dst = Zos_DbufCreateAddD(pool_, ZOS_DBUF_TYPE_MSG, 128, "head", 4);
    ASSERT_NE(dst, nullptr);
    const std::string data = Bytes(300);
    ZDBUF src = Zos_DbufCreateAddD(nullptr, ZOS_DBUF_TYPE_MSG, 128, data.data(), 300);
    ASSERT_NE(src, nullptr);
    ktest::ClearLogged();
    g_budget = 0;
    EXPECT_EQ(Zos_DbufCat(dst, src), ZFAILED);
    g_budget = -1;
    EXPECT_TRUE(ktest::LoggedContains("DbufCat add data."));
    EXPECT_EQ(ktest::DbufText(dst), "head");
    EXPECT_EQ(ktest::DbufText(src), data);
    ASSERT_EQ(Zos_DbufCat(dst, src), ZOK);  // which takes the source
    EXPECT_EQ(ktest::DbufText(dst), "head" + data);
    EXPECT_EQ(Zos_DbufDelete(dst), ZOK);
    ExpectPoolEmpty();
}

// A copy of a range whose data cannot be had keeps no header, whichever
// of its allocations fails.
TEST_F(DbufTest, CopyOfARangeFailsWithoutKeepingItsHeader) {
    ASSERT_NE(MakePool(0xFFFFFFFFu), nullptr);
    const std::string data = Bytes(300);
    ZDBUF src = Zos_DbufCreateAddD(pool_, ZOS_DBUF_TYPE_MSG, 128, data.data(), 300);
    ASSERT_NE(src, nullptr);
    int failed = 0;
    for (int budget = 0; budget < 6; ++budget) {
        g_budget = budget;
        ZDBUF part = Zos_DbufCopyX(src, 10, 250);
        g_budget = -1;
        if (part == nullptr) {
            ++failed;
            continue;
        }
        EXPECT_EQ(ktest::DbufText(part), data.substr(10, 250));
        EXPECT_EQ(Zos_DbufDelete(part), ZOK);
    }
    EXPECT_GT(failed, 1);
    EXPECT_TRUE(ktest::LoggedContains("DbufCopyX alloc data."));
    EXPECT_EQ(Zos_DbufDelete(src), ZOK);
    ExpectPoolEmpty();
}

TEST_F(DbufTest, ClonesAndSharedBuffers) {
    ZDBUF b = Zos_DbufCreateAddD(nullptr, 1, 128, "abc", 3);
    for (int i = 0; i < 254; ++i) ASSERT_EQ(Zos_DbufClone(b), b) << i;
    EXPECT_EQ(Zos_DbufRefCnt(b), 255u);
    EXPECT_EQ(Zos_DbufClone(b), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("DbufClone clone too much times."));
    EXPECT_EQ(Zos_DbufRefCnt(b), 255u);
    EXPECT_EQ(Zos_DbufPstAddStrD(b, "d"), ZFAILED);  // a shared buffer is not changed
    EXPECT_TRUE(ktest::LoggedContains("DbufChkValid buffer reuse."));
    ktest::ClearLogged();
    EXPECT_EQ(Zos_DbufPstAddFmtD(b, "%d", 4), ZFAILED);  // nor through a format
    EXPECT_TRUE(ktest::LoggedContains("DbufPstAddFmtD invalid id."));
    EXPECT_EQ(Zos_DbufPreAddFmtD(b, "%d", 0), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DbufPreAddFmtD invalid id."));
    EXPECT_EQ(Zos_DbufSplit(b, 1), nullptr);
    // Every call that only reads works on a shared buffer.
    EXPECT_EQ(ktest::DbufText(b), "abc");
    const uint8_t *first = Zos_DbufO2D(b, 0);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(Zos_DbufD2O(b, first + 2), 2u);
    EXPECT_EQ(Zos_DbufBlkO2D(b, 0, 1), first + 1);
    EXPECT_EQ(Zos_DbufBlkO2D(b, 0, 3), first + 3);  // the block's end
    EXPECT_EQ(Zos_DbufBlkO2D(b, 0, 4), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("DbufBlkO2D invalid offset."));
    EXPECT_EQ(Zos_DbufBlkD2O(b, 0, first + 1), 1u);
    EXPECT_EQ(Zos_DbufBlkD2O(b, 0, first + 3), 3u);  // the block's end
    EXPECT_EQ(Zos_DbufBlkD2O(b, 0, first + 4), 0xFFFFFFFFu);
    EXPECT_TRUE(ktest::LoggedContains("DbufBlkD2O not in block."));
    char two[2] = {};
    EXPECT_EQ(Zos_DbufCopyD(b, 1, 2, two), ZOK);
    EXPECT_EQ(std::string(two, 2), "bc");
    for (ZDBUF part : {Zos_DbufCopyX(b, 1, 2), Zos_DbufFlatX(b, 1, 2)}) {
        EXPECT_EQ(ktest::DbufText(part), "bc");
        EXPECT_EQ(Zos_DbufDelete(part), ZOK);
    }
    EXPECT_TRUE(Zos_DbufCopyX(b, 1, 3) == nullptr && Zos_DbufCopyX(b, 3, 1) == nullptr);
    EXPECT_TRUE(ktest::LoggedContains("DbufCopyX invalid range."));
    const ZLOGID log = Zos_LogGetZosId();
    EXPECT_EQ(Zos_DbufLogTxt(log, ZOS_LOG_LEVEL_INFO, b) |
                  Zos_DbufLogHex(log, ZOS_LOG_LEVEL_INFO, b) |
                  Zos_DbufLogPrint(log, ZOS_LOG_LEVEL_INFO, b) | Zos_DbufDbgShow(b),
              ZOK);
    const std::string saved = ktest::FreshDir("dbuf_shared") + "/b.bin";
    EXPECT_EQ(Zos_DbufSaveFile(b, saved.c_str()), ZOK);
    EXPECT_EQ(ktest::ReadFile(saved), "abc");
    ZDBUF copy = Zos_DbufCopy(b);  // so is a deep copy
    EXPECT_EQ(Zos_DbufRefCnt(copy), 1u);
    EXPECT_EQ(Zos_DbufPstAddStrD(copy, "d"), ZOK);
    EXPECT_EQ(ktest::DbufText(copy), "abcd");
    EXPECT_EQ(Zos_DbufCat(copy, b), ZFAILED);
    for (int i = 0; i < 254; ++i) ASSERT_EQ(Zos_DbufDelete(b), ZOK);
    EXPECT_EQ(Zos_DbufPstAddStrD(b, "d"), ZOK);
    EXPECT_EQ(Zos_DbufDelete(b), ZOK);
    EXPECT_EQ(Zos_DbufDelete(copy), ZOK);
}

TEST_F(DbufTest, CopiesFlatteningOffsetsAndChains) {
    ZDBUF b = Zos_DbufCreate(nullptr, 1, 128);
    const std::string d = Bytes(150);
    ASSERT_EQ(Zos_DbufPstAddMultD(b, d.data(), 100), ZOK);
    ASSERT_EQ(Zos_DbufPstAddMultD(b, d.data() + 100, 50), ZOK);  // blocks 104, 46
    char out[16];
    EXPECT_EQ(Zos_DbufCopyD(b, 150, 1, out), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DbufCopyD invalid offset."));
    EXPECT_EQ(Zos_DbufCopyD(b, 140, 11, out), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DbufCopyD invalid length."));
    ASSERT_EQ(Zos_DbufCopyD(b, 100, 8, out), ZOK);  // across the boundary
    EXPECT_EQ(std::string(out, 8), d.substr(100, 8));
    ASSERT_EQ(Zos_DbufCopyD(b, 120, 8, out), ZOK);  // inside the second block
    EXPECT_EQ(std::string(out, 8), d.substr(120, 8));

    EXPECT_EQ(Zos_DbufIsFlat(b), 0u);
    ZDBUF flat = Zos_DbufFlat(b);
    EXPECT_EQ(Zos_DbufIsFlat(flat), 1u);
    EXPECT_EQ(Zos_DbufType(flat), 1u);
    EXPECT_EQ(ktest::DbufText(flat), d);
    ZDBUF part = Zos_DbufFlatX(b, 10, 20);
    EXPECT_EQ(ktest::DbufText(part), d.substr(10, 20));
    ZDBUF range = Zos_DbufCopyX(b, 100, 50);
    EXPECT_EQ(ktest::DbufText(range), d.substr(100));

    uint8_t *end0 = Zos_DbufO2D(b, 104);  // a block's length maps to its end
    EXPECT_EQ(end0, Zos_DbufBlkData(b, 0) + 104);
    EXPECT_EQ(Zos_DbufO2D(b, 105), Zos_DbufBlkData(b, 1) + 1);
    EXPECT_EQ(Zos_DbufO2D(b, 0xFFFFFFFFu), nullptr);
    EXPECT_EQ(Zos_DbufO2D(b, 151), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("DbufO2D invalid offset."));
    EXPECT_EQ(Zos_DbufD2O(b, Zos_DbufBlkData(b, 1) + 3), 107u);
    EXPECT_EQ(Zos_DbufD2O(b, out), 0xFFFFFFFFu);
    EXPECT_TRUE(ktest::LoggedContains("DbufD2O not in buffer."));

    EXPECT_EQ(Zos_DbufSetNext(b, flat), ZOK);
    EXPECT_EQ(Zos_DbufSetNext(b, part), ZOK);  // appended at the end of the chain
    EXPECT_EQ(Zos_DbufGetNext(flat), part);
    EXPECT_EQ(Zos_DbufSetNext(part, b), ZFAILED);  // no loops
    EXPECT_TRUE(ktest::LoggedContains("DbufSetNext invalid next id."));
    EXPECT_EQ(Zos_DbufIsFlat(flat), 0u);

    char small[8];
    EXPECT_EQ(Zos_NStrDCpy(small, sizeof(small), b), ZOK);
    EXPECT_EQ(std::string(small), d.substr(0, 7));
    char *text = Zos_SysStrDAlloc(range);
    EXPECT_EQ(std::string(text), d.substr(100));
    EXPECT_EQ(Zos_SysStrLen(text), 50u);
    Zos_SysStrFree(text);
    EXPECT_EQ(Zos_SysStrDAlloc(Zos_DbufCreate(nullptr, 1, 128)), nullptr);
    for (ZDBUF x : {b, flat, part, range}) EXPECT_EQ(Zos_DbufDelete(x), ZOK);

    // A flat range past the end makes no buffer and keeps none.
    ASSERT_NE(MakePool(0xFFFFFFFFu), nullptr);
    ZDBUF src = Zos_DbufCreate(pool_, 1, 128);
    ASSERT_EQ(Zos_DbufPstAddMultD(src, d.data(), 50), ZOK);
    EXPECT_EQ(Zos_DbufFlatX(src, 40, 11), nullptr);
    EXPECT_EQ(Zos_DbufDelete(src), ZOK);
    ExpectPoolEmpty();
}

TEST_F(DbufTest, FormattedTextShortAndLong) {
    ZDBUF b = Zos_DbufCreate(nullptr, 1, 128);
    ASSERT_EQ(Zos_DbufPstAddFmtD(b, "<%d:%s>", 42, "x"), ZOK);
    const std::string longText(300, 'q');
    ASSERT_EQ(Zos_DbufPreAddFmtD(b, "%s|", longText.c_str()), ZOK);
    EXPECT_EQ(ktest::DbufText(b), longText + "|<42:x>");
    EXPECT_EQ(Zos_DbufPstAddFmtD(nullptr, "%d", 1), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DbufPstAddFmtD invalid id."));
    ZDBUF other = Zos_DbufCreateAddD(nullptr, 1, 128, "[", 1);
    ASSERT_EQ(Zos_DbufPstAddBufD(other, b), ZOK);
    ASSERT_EQ(Zos_DbufPreAddBufD(b, other), ZOK);
    EXPECT_EQ(ktest::DbufText(b), "[" + longText + "|<42:x>" + longText + "|<42:x>");
    EXPECT_EQ(Zos_DbufDelete(b), ZOK);
    EXPECT_EQ(Zos_DbufDelete(other), ZOK);
}

TEST_F(DbufTest, SaveAndLoadFiles) {
    const std::string dir = ktest::FreshDir("dbuf");
    const std::string path = dir + "/data.bin";
    ZDBUF b = Zos_DbufCreate(nullptr, 1, 128);
    const std::string d = Bytes(5000);
    ASSERT_EQ(Zos_DbufPstAddMultD(b, d.data(), 100), ZOK);
    ASSERT_EQ(Zos_DbufPstAddMultD(b, d.data() + 100, 4900), ZOK);
    EXPECT_EQ(Zos_DbufSaveFile(b, nullptr), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DbufSaveFile no file name."));
    EXPECT_EQ(Zos_DbufSaveFile(b, (dir + "/no/such/dir/x").c_str()), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DbufSaveFile open file(" + dir + "/no/such/dir/x)."));
    ASSERT_EQ(Zos_DbufSaveFile(b, path.c_str()), ZOK);
    EXPECT_EQ(Zfile_IsExist((path + ".tmp").c_str()), 0u);  // the safe save left nothing

    ZDBUF loaded = nullptr;
    ASSERT_EQ(Zos_DbufLoadFile(path.c_str(), &loaded), ZOK);
    EXPECT_EQ(Zos_DbufIsFlat(loaded), 1u);
    EXPECT_EQ(ktest::DbufText(loaded), d);
    EXPECT_EQ(Zos_DbufLoadFile((dir + "/missing").c_str(), &loaded), ZFAILED);
    EXPECT_EQ(loaded, nullptr);
    EXPECT_TRUE(ktest::LoggedContains("DbufLoadFile open file(" + dir + "/missing) fail."));
    ZDBUF empty = Zos_DbufCreate(nullptr, 1, 128);
    ASSERT_EQ(Zos_DbufSaveFile(empty, path.c_str()), ZOK);
    EXPECT_EQ(Zos_DbufLoadFile(path.c_str(), &loaded), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DbufLoadFileX file size is 0."));
    EXPECT_EQ(Zos_DbufDelete(b), ZOK);
    EXPECT_EQ(Zos_DbufDelete(empty), ZOK);
}

TEST_F(DbufTest, AllocationTraceLabels) {
    ZDBUF b = Zos_DbufCreate(nullptr, 1, 128);
    ASSERT_EQ(Zos_DbufDumpCreate(b, "test msg", "here.c", 7), ZOK);
    ASSERT_EQ(Zos_DbufDumpStack(b, "clone.c", 11), ZOK);
    ASSERT_EQ(Zos_DbufClone(b), b);
    ASSERT_EQ(Zos_DbufDelete(b), ZOK);
    ktest::ClearPrinted();
    ASSERT_EQ(Zos_DbufDumpPrint(b), ZOK);
    const std::string out = ktest::Printed();
    EXPECT_NE(out.find("\"test msg\" 3/512"), std::string::npos) << out;
    EXPECT_NE(out.find("<0>      1  \"msgbuf create\""), std::string::npos) << out;
    EXPECT_NE(out.find("\"here.c\":    7"), std::string::npos) << out;
    EXPECT_NE(out.find("<1>      2  \"clone\""), std::string::npos) << out;
    EXPECT_NE(out.find("\"clone.c\":   11"), std::string::npos) << out;
    EXPECT_NE(out.find("<2>      1  \"delete\""), std::string::npos) << out;
    EXPECT_EQ(Zos_DbufDelete(b), ZOK);  // the last reference takes the trace along

    ZDBUF m = Zos_DbufCreate(nullptr, 2, 128);
    ASSERT_EQ(Zos_DbufDumpCreate(m, nullptr, nullptr, 0), ZOK);
    ktest::ClearPrinted();
    ASSERT_EQ(Zos_DbufDumpDbgShow(m), ZOK);
    EXPECT_NE(ktest::Printed().find("\"membuf create\""), std::string::npos);
    ASSERT_EQ(Zos_DbufDumpDelete(m, "x.c", 1), ZOK);
    EXPECT_EQ(Zos_DbufDumpPrint(m), ZFAILED);  // no trace any more
    // Nor anything to add to or take away.
    EXPECT_EQ(Zos_DbufDumpStack(m, "x.c", 2), ZFAILED);
    EXPECT_EQ(Zos_DbufDumpDelete(m, "x.c", 3), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DbufDumpStack invalid id."));
    EXPECT_TRUE(ktest::LoggedContains("DbufDumpDelete invalid id."));
    EXPECT_EQ(Zos_DbufDelete(m), ZOK);
    EXPECT_EQ(Zos_DbufChkPool(), ZOK);

    // A trace whose record or dump cannot be made is not kept.
    ZDBUF f = Zos_DbufCreate(nullptr, 1, 128);
    for (const int n : {1, 2}) {
        const ktest::CountThisThread only;
        const ktest::FailingHeap heap;
        ktest::g_failAt = n;
        EXPECT_EQ(Zos_DbufDumpCreate(f, "x", "x.c", 1), ZFAILED) << n;
        ktest::g_failAt = 0;
    }
    EXPECT_TRUE(ktest::LoggedContains("DbufDumpCreate alloc memory."));
    EXPECT_TRUE(ktest::LoggedContains("DbufDumpCreate create dump."));
    EXPECT_EQ(Zos_DbufDumpPrint(f), ZFAILED);
    EXPECT_EQ(Zos_DbufDelete(f), ZOK);
}

// Random append, prepend, removal, adjustment, split and cat, against a
// std::string; every node goes back to the pool at the end.
TEST_F(DbufTest, RandomSequencesMatchStringModel) {
    ASSERT_NE(MakePool(0xFFFFFFFFu), nullptr);
    for (uint32_t seed : {1u, 7u, 42u, 2024u, 99991u}) {
        std::mt19937 rng(seed);
        auto pick = [&](uint32_t n) { return static_cast<uint32_t>(rng() % n); };
        ZDBUF b = Zos_DbufCreate(pool_, 1, 128);
        std::string model;
        for (int step = 0; step < 400; ++step) {
            const uint32_t op = pick(7);
            const uint32_t len = static_cast<uint32_t>(model.size());
            std::string data =
                Bytes(1 + pick(pick(4) == 0 ? 400 : 40), static_cast<char>('a' + pick(20)));
            const uint32_t n = static_cast<uint32_t>(data.size());
            if (op == 0) {
                ASSERT_EQ(Zos_DbufPstAddMultD(b, data.data(), n), ZOK);
                model += data;
            } else if (op == 1) {
                ASSERT_EQ(Zos_DbufPreAddMultD(b, data.data(), n), ZOK);
                model.insert(0, data);
            } else if (op == 2 && len > 0) {
                const uint32_t k = pick(len + 1);
                std::string out(k, '\0');
                ASSERT_EQ(Zos_DbufPreDelMultD(b, k, out.data()), ZOK);
                ASSERT_EQ(out, model.substr(0, k));
                model.erase(0, k);
            } else if (op == 3 && len > 0) {
                const uint32_t k = 1 + pick(len);
                ASSERT_EQ(Zos_DbufAdjD(b, -static_cast<int32_t>(k)), ZOK);
                model.resize(len - k);
            } else if (op == 4 && len > 1) {
                const uint32_t off = 1 + pick(len - 1);
                ZDBUF tail = Zos_DbufSplit(b, off);
                ASSERT_NE(tail, nullptr);
                ASSERT_EQ(ktest::DbufText(b), model.substr(0, off));
                ASSERT_EQ(ktest::DbufText(tail), model.substr(off));
                ASSERT_EQ(Zos_DbufCat(b, tail), ZOK);
            } else if (op == 5) {
                ASSERT_EQ(Zos_DbufPstAddD(b, 'Z'), ZOK);
                model += 'Z';
            } else if (op == 6) {
                ASSERT_EQ(Zos_DbufPreAddD(b, 'Y'), ZOK);
                model.insert(0, 1, 'Y');
            }
            ASSERT_EQ(Zos_DbufLen(b), model.size()) << "seed " << seed << " step " << step;
            uint32_t sum = 0;
            for (uint32_t len0 : Blocks(b)) sum += len0;
            ASSERT_EQ(sum, model.size());
        }
        ASSERT_EQ(ktest::DbufText(b), model) << "seed " << seed;
        EXPECT_EQ(Zos_DbufDelete(b), ZOK);
        ExpectPoolEmpty();
    }
}

TEST(DbufStart, PoolThatCannotBeMadeStopsStartUpAtStepSeven) {
    ktest::ClearPrinted();
    ASSERT_EQ(Zos_CfgSetPrintDisp(ktest::PrintHook), ZOK);
    ktest::UseTestLogDir();
    ST_ZOS_POOL_CFG bad = *Zos_CfgGetDbufPool();
    bad.ucBktCnt = 0;
    ASSERT_EQ(Zos_CfgSetDbufPool(&bad), ZOK);
    EXPECT_EQ(Zos_SysInit(), ZFAILED);
    const std::string out = ktest::Printed();
    EXPECT_NE(out.find("trace init ok."), std::string::npos) << out;
    EXPECT_NE(out.find("init dbuf fail!\r\n"), std::string::npos) << out;
    EXPECT_EQ(out.find("dbuf init ok."), std::string::npos) << out;
    EXPECT_EQ(out.find("pmem init ok."), std::string::npos) << out;
    EXPECT_NE(out.find("dbuf destroy ok."), std::string::npos) << out;
    EXPECT_EQ(Zos_OsenvLocate(), nullptr);
    EXPECT_EQ(Zos_DbufCreate(nullptr, 1, 128), nullptr);  // nothing to draw from
}

// A block of capacity c is a pool request of c + 24 on the 32-bit product
// target: the blocks of a size-128 buffer fill 128-byte nodes exactly.
// A 64-bit host adds 32 and lands in the next bucket.
TEST_F(ZosTest, DbufBlockRequestFollowsTheWordSize) {
    ST_ZOS_BKT_INFO rows[] = {{128, 4, 4}, {256, 4, 4}};
    ST_ZOS_POOL_CFG cfg{"dbuf words", rows, nullptr, nullptr, 1, 0, 1, 2};
    ZPOOL pool = Zos_PoolCreate(&cfg);
    ASSERT_NE(pool, nullptr);
    ZDBUF b = Zos_DbufCreate(pool, ZOS_DBUF_TYPE_MSG, 128);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(Zos_DbufDftBlkSize(b), 104u);
    ST_ZOS_POOL_BKT_STAT small{}, large{};
    ASSERT_EQ(Zos_PoolGetBktStat(pool, 0, &small), ZOK);
    const uint32_t before = small.uiAllocs;  // the buffer's own record
    ASSERT_EQ(Zos_DbufPstAddD(b, 'x'), ZOK);
    ASSERT_EQ(Zos_PoolGetBktStat(pool, 0, &small), ZOK);
    ASSERT_EQ(Zos_PoolGetBktStat(pool, 1, &large), ZOK);
    if (sizeof(void *) == 4) {
        EXPECT_EQ(small.uiAllocs, before + 1);
        EXPECT_EQ(large.uiAllocs, 0u);
    } else {
        EXPECT_EQ(small.uiAllocs, before);
        EXPECT_EQ(large.uiAllocs, 1u);
    }
    Zos_DbufDelete(b);
    Zos_PoolDelete(pool);
}

// A buffer's own pool calls skip the pool's registry check, so the check
// at create must stand: a deleted pool, or memory that only looks like a
// pool, is refused there without reading freed memory. A buffer made on
// a live pool then gives every node back to it.
TEST_F(DbufTest, CreateRefusesDeadPoolsAndBuffersReturnAllNodes) {
    ZPOOL gone = MakePool(0xFFFFFFFFu);
    ASSERT_NE(gone, nullptr);
    Zos_PoolDelete(gone);
    pool_ = nullptr;
    ktest::ClearLogged();
    EXPECT_EQ(Zos_DbufCreate(gone, ZOS_DBUF_TYPE_MSG, 128), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("DbufCreate alloc memory."));
    uint32_t fake[64] = {0x0E1E2E3Eu};  // the pool magic, but never a pool
    ktest::ClearLogged();
    EXPECT_EQ(Zos_DbufCreate(fake, ZOS_DBUF_TYPE_MSG, 128), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("DbufCreate alloc memory."));

    ASSERT_NE(MakePool(0xFFFFFFFFu), nullptr);
    for (int round = 0; round < 3; ++round) {
        ZDBUF b = Zos_DbufCreate(pool_, ZOS_DBUF_TYPE_MSG, 128);
        ASSERT_NE(b, nullptr);
        ASSERT_EQ(Zos_DbufPstAddMultD(b, Bytes(300).data(), 300), ZOK);  // a large block
        ASSERT_EQ(Zos_DbufPstAddMultD(b, Bytes(104).data(), 104), ZOK);
        ASSERT_EQ(Zos_DbufPreAddMultD(b, "hdr", 3), ZOK);
        ZDBUF copy = Zos_DbufCopy(b);
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(Zos_DbufLen(copy), 407u);
        EXPECT_EQ(Zos_DbufDelete(copy), ZOK);
        EXPECT_EQ(Zos_DbufDelete(b), ZOK);
        ExpectPoolEmpty();
    }
}

TEST_F(ZosTest, DbufAddDataBuildsNewBlocksOnly) {
    ZDBUF b = Zos_DbufCreate(nullptr, ZOS_DBUF_TYPE_MSG, 128);  // blocks of 104
    ASSERT_NE(b, nullptr);
    ASSERT_EQ(Zos_DbufPstAddD(b, 'M'), ZOK);
    // Longer than a block: one block of exactly its length, after the last
    // (the end block's room stays unused). Shorter: one standard block,
    // before the first, filled at its end.
    ASSERT_EQ(Zos_DbufAddData(b, Bytes(250).data(), 250, 0), ZOK);
    EXPECT_EQ(Blocks(b), (std::vector<uint32_t>{1, 250}));
    ASSERT_EQ(Zos_DbufAddData(b, "xyz", 3, 1), ZOK);
    EXPECT_EQ(Blocks(b), (std::vector<uint32_t>{3, 1, 250}));
    EXPECT_EQ(ktest::DbufText(b), "xyzM" + Bytes(250));
    EXPECT_EQ(Zos_DbufAddData(b, nullptr, 3, 0) + Zos_DbufAddData(b, "x", 0, 0), 2 * ZFAILED);
    ZDBUF shared = Zos_DbufClone(b);
    EXPECT_EQ(Zos_DbufAddData(b, "x", 1, 0), ZFAILED) << "shared";
    Zos_DbufDelete(shared);
    Zos_DbufDelete(b);
}
