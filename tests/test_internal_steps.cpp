// The steps the pool, data-buffer, log and MD5 families export for the
// engine's other modules: each called on its own, with its refusals.
#include <cstdarg>
#include <cstring>
#include <string>

#include "zos_test.h"

namespace {

ST_ZOS_POOL_BKT_STAT Stat(ZPOOL pool, uint32_t bkt) {
    ST_ZOS_POOL_BKT_STAT s{};
    EXPECT_EQ(Zos_PoolGetBktStat(pool, bkt, &s), ZOK);
    return s;
}

// A backing allocator that refuses requests of one size.
uint32_t g_refusedSize = 0;
void *RefusingAlloc(uint32_t size) {
    return size == g_refusedSize ? nullptr : Zos_HeapAlloc(size);
}

uint32_t PrintTo(ZLOGID log, uint32_t level, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    const uint32_t rc = Zos_LogPrint(log, "STEP", level, "pre", fmt, ap);
    va_end(ap);
    return rc;
}

}  // namespace

TEST_F(ZosTest, BucketStepsGrowShrinkAndRefuse) {
    ST_ZOS_BKT_INFO row{32, 2, 2};
    ST_ZOS_POOL_CFG cfg{"steps", &row, nullptr, nullptr, 1, 0, 1, 1};
    ZPOOL pool = Zos_PoolCreate(&cfg);
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
    EXPECT_TRUE(ktest::LoggedContains("BktCreate <steps> invalid bucket id."));
    EXPECT_EQ(Zos_BktCreate(pool, 0, 1), ZFAILED) << "the bucket has its first block";

    // Every block goes back; the group step makes the first blocks again.
    Zos_PoolFree(pool, b);
    Zos_BktGrpDelete(pool);
    EXPECT_EQ(Stat(pool, 0).uiTotal, 0u);
    EXPECT_EQ(Zos_BktFindBlk(pool, 0, b), nullptr);
    ASSERT_EQ(Zos_BktGrpCreate(pool), ZOK);
    EXPECT_EQ(Stat(pool, 0).uiTotal, 2u);
    EXPECT_EQ(Stat(pool, 0).uiFree, 2u);
    EXPECT_NE(Zos_PoolAlloc(pool, 8), nullptr);
    Zos_PoolDelete(pool);
    EXPECT_EQ(Zos_BktGrpCreate(pool), ZFAILED);
    EXPECT_EQ(Zos_BktCreate(nullptr, 0, 0), ZFAILED);
}

TEST_F(ZosTest, HeapStepsOfAPool) {
    ST_ZOS_BKT_INFO row{32, 2, 2};
    ST_ZOS_POOL_CFG cfg{"heap", &row, nullptr, nullptr, 1, 0, 1, 1};
    ZPOOL pool = Zos_PoolCreate(&cfg);
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
    Zos_PoolDelete(pool);
}

TEST_F(ZosTest, DbufAddDataBuildsNewBlocksOnly) {
    ZDBUF b = Zos_DbufCreate(nullptr, ZOS_DBUF_TYPE_MSG, 128);  // blocks of 104
    ASSERT_NE(b, nullptr);
    ASSERT_EQ(Zos_DbufPstAddD(b, 'M'), ZOK);
    std::string data(250, '\0');
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>('a' + i % 26);
    // Longer than a block: one block of exactly its length, after the last.
    ASSERT_EQ(Zos_DbufAddData(b, data.data(), 250, 0), ZOK);
    EXPECT_EQ(Zos_DbufLen(b), 251u);
    EXPECT_EQ(Zos_DbufBlkLen(b, 0), 1u) << "the end block's room stays unused";
    EXPECT_EQ(Zos_DbufBlkLen(b, 1), 250u);
    // Shorter: one standard block, before the first, filled at its end.
    ASSERT_EQ(Zos_DbufAddData(b, "xyz", 3, 1), ZOK);
    EXPECT_EQ(Zos_DbufBlkLen(b, 0), 3u);
    std::string all(254, '\0');
    ASSERT_EQ(Zos_DbufCopyD(b, 0, 254, all.data()), ZOK);
    EXPECT_EQ(all, "xyzM" + data);

    EXPECT_EQ(Zos_DbufAddData(b, nullptr, 3, 0), ZFAILED);
    EXPECT_EQ(Zos_DbufAddData(b, "x", 0, 0), ZFAILED);
    ZDBUF shared = Zos_DbufClone(b);
    EXPECT_EQ(Zos_DbufAddData(b, "x", 1, 0), ZFAILED) << "shared";
    Zos_DbufDelete(shared);
    Zos_DbufDelete(b);
}

TEST_F(ZosTest, DbufAddDataFallsBackToStandardBlocks) {
    ST_ZOS_BKT_INFO rows[] = {{128, 8, 8}, {256, 8, 8}};
    ST_ZOS_POOL_CFG cfg{"adddata", rows, RefusingAlloc, Zos_HeapFree, 1, 0, 1, 2};
    ZPOOL pool = Zos_PoolCreate(&cfg);
    ASSERT_NE(pool, nullptr);
    // The one block of 300 data bytes is a large request the backing
    // allocator refuses: 300 + header rounded to 4, + 12.
    const uint32_t hdr = sizeof(void *) == 4 ? 24 : 32;
    g_refusedSize = (300 + hdr + 3) / 4 * 4 + 12;
    std::string data(300, '\0');
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>('A' + i % 26);
    for (uint32_t prepend = 0; prepend < 2; ++prepend) {
        ZDBUF b = Zos_DbufCreate(pool, ZOS_DBUF_TYPE_MSG, 128);  // blocks of 104
        ASSERT_NE(b, nullptr);
        ASSERT_EQ(Zos_DbufAddData(b, data.data(), 300, prepend), ZOK);
        // 300 = 2 x 104 + 92: the part-filled block is outermost.
        const uint32_t want[2][3] = {{104, 104, 92}, {92, 104, 104}};
        for (uint32_t i = 0; i < 3; ++i) EXPECT_EQ(Zos_DbufBlkLen(b, i), want[prepend][i]);
        std::string back(300, '\0');
        ASSERT_EQ(Zos_DbufCopyD(b, 0, 300, back.data()), ZOK);
        EXPECT_EQ(back, data);
        Zos_DbufDelete(b);
    }
    g_refusedSize = 0;
    Zos_PoolDelete(pool);
}

TEST_F(ZosTest, LogStepsOneByOne) {
    char *tmpl = Zos_LogGetFileName("/var/x%y/app.log");
    ASSERT_NE(tmpl, nullptr);
    EXPECT_STREQ(tmpl, "/var/x%%y/app%d%02d%02d_%02d%02d%02d_%03d.log");
    Zos_PrintFree(tmpl);
    tmpl = Zos_LogGetFileName("plain");
    ASSERT_NE(tmpl, nullptr);
    EXPECT_STREQ(tmpl, "plain%d%02d%02d_%02d%02d%02d_%03d");
    Zos_PrintFree(tmpl);
    EXPECT_EQ(Zos_LogGetFileName(""), nullptr);

    // A log with a cache and no file.
    ZLOGID mem = Zos_LogCreateX("MEM", nullptr, ZOS_LOG_FLAG_MUTEX, ZOS_LOG_LEVEL_ERROR, 1024);
    ASSERT_NE(mem, nullptr);
    char prefix[128];
    const uint32_t n = Zos_LogAddPrefix(mem, "", ZOS_LOG_LEVEL_WARN, "tag", prefix, sizeof(prefix));
    EXPECT_EQ(n, std::strlen(prefix));
    EXPECT_NE(std::string(prefix).find("MEM: WARN: tag "), std::string::npos) << prefix;
    EXPECT_EQ(Zos_LogAddPrefix(mem, "", ZOS_LOG_LEVEL_WARN, nullptr, prefix, 5), 4u);
    EXPECT_EQ(Zos_LogAddPrefix(nullptr, "", 1, nullptr, prefix, sizeof(prefix)), 0u);
    EXPECT_EQ(Zos_LogDispBuff(mem, "cached\n", 7), ZOK);
    EXPECT_EQ(Zos_LogDispFile(mem, "x", 1), ZFAILED) << "no file";
    EXPECT_EQ(Zos_LogAdjFile(mem), ZFAILED) << "no file";
    // Zos_LogPrint writes whatever the level mask says.
    std::string seen;
    ASSERT_EQ(Zos_LogSetWatcher(
                  mem,
                  [](void *user, uint32_t level, const char *msg) {
                      *static_cast<std::string *>(user) += std::to_string(level) + " " + msg;
                  },
                  &seen),
              ZOK);
    EXPECT_EQ(PrintTo(mem, ZOS_LOG_LEVEL_DEBUG, "step %d", 7), ZOK);
    EXPECT_EQ(seen, "16 step 7");
    EXPECT_EQ(PrintTo(nullptr, ZOS_LOG_LEVEL_DEBUG, "step"), ZFAILED);
    Zos_LogDelete(mem);

    // A log with files: the file ring, rotation and the file list.
    const std::string dir = ktest::FreshDir("logsteps");
    const std::string path = dir + "/steps.log";
    ZLOGID log = Zos_LogCreateX("STEPS", path.c_str(), 0, ZOS_LOG_LEVEL_ALL, 1024);
    ASSERT_NE(log, nullptr);
    EXPECT_EQ(Zos_LogDispBuff(log, "x", 1), ZFAILED) << "the cache is the file's ring";
    ASSERT_EQ(Zos_LogDispFile(log, "through the ring\n", 17), ZOK);
    ASSERT_EQ(Zos_LogFlush(log), ZOK);
    ASSERT_EQ(ktest::FilesIn(dir).size(), 1u);
    const std::string firstFile = ktest::FilesIn(dir)[0];
    EXPECT_EQ(ktest::ReadFile(firstFile), "#ZOSLOG#\r\nthrough the ring\n");
    ASSERT_EQ(Zos_LogAdjFile(log), ZOK);
    EXPECT_EQ(ktest::FilesIn(dir).size(), 2u);
    // An older file of the pattern, listed from disk once however often
    // the directory is read.
    const std::string old = dir + "/steps20000101_000000_000.log";
    FILE *f = std::fopen(old.c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fclose(f);
    EXPECT_EQ(Zos_LogGetFileList(log, path.c_str()), ZOK);
    EXPECT_EQ(Zos_LogGetFileList(log, path.c_str()), ZOK);
    EXPECT_EQ(Zos_LogGetFileList(log, nullptr), ZFAILED);
    ST_ZOS_SYS_TIME t{};
    EXPECT_EQ(Zos_LogAppendFile(log, nullptr, &t), ZFAILED);
    EXPECT_EQ(Zos_LogAppendFile(log, old.c_str(), nullptr), ZFAILED);
    // With a list of two the oldest of three files goes, from disk too.
    Zos_LogDelete(log);
    ASSERT_EQ(Zos_CfgSetLogFileCount(2), ZOK);
    log = Zos_LogCreateX("STEPS", path.c_str(), 0, ZOS_LOG_LEVEL_ALL, 1024);
    ASSERT_NE(log, nullptr);
    // Listed in directory order: removed as the oldest or as older than all.
    EXPECT_EQ(ktest::FilesIn(dir).size(), 2u);
    EXPECT_NE(ktest::Printed().find(old + "."), std::string::npos);
    EXPECT_EQ(Zfile_IsExist(old.c_str()), 0u);
    // Recording a file older than the whole full list removes it.
    f = std::fopen(old.c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fclose(f);
    t.wYear = 2000;
    t.ucMonth = 1;
    t.ucDay = 1;
    ktest::ClearPrinted();
    ASSERT_EQ(Zos_LogAppendFile(log, old.c_str(), &t), ZOK);
    EXPECT_NE(ktest::Printed().find("LogAppendFile remove " + old + "."), std::string::npos);
    EXPECT_EQ(ktest::FilesIn(dir).size(), 2u);
    Zos_LogDelete(log);
}

TEST(Zmd5Padding, IsOneBitThenZeros) {
    EXPECT_EQ(aucZmd5Padding[0], 0x80);
    for (uint32_t i = 1; i < 64; ++i) EXPECT_EQ(aucZmd5Padding[i], 0) << i;
    // 55 bytes take one padding byte, 56 a whole further block: both agree
    // with RFC 1321's digests of runs of 'a'.
    const std::string a55(55, 'a'), a56(56, 'a');
    uint8_t d[16];
    Zmd5_Str(reinterpret_cast<const uint8_t *>(a55.data()), 55, d);
    EXPECT_EQ(d[0], 0xEF);
    Zmd5_Str(reinterpret_cast<const uint8_t *>(a56.data()), 56, d);
    EXPECT_EQ(d[0], 0x3B);
}
