// Configuration store: defaults, fallbacks and the setters with rules.
#include <string>

#include "zos_test.h"

namespace {

// Each test starts without a holder so the record is made with defaults.
class Cfg : public ::testing::Test {
  protected:
    void SetUp() override { Zos_OsenvDetach(); }
    void TearDown() override { Zos_OsenvDetach(); }
};

}  // namespace

TEST_F(Cfg, GettersBeforeStartCreateTheRecordWithDefaults) {
    ASSERT_EQ(Zos_OsenvLocate(), nullptr);
    EXPECT_EQ(Zos_CfgGetLogLevel(), 0xBu);
    EXPECT_NE(Zos_OsenvLocate(), nullptr);
#define CHECK_DEFAULT(name, type, def, fb) EXPECT_EQ(Zos_CfgGet##name(), (type)(def)) << #name;
    ZOS_CFG_FLAGS(CHECK_DEFAULT)
    ZOS_CFG_VALUES_A(CHECK_DEFAULT)
    ZOS_CFG_VALUES_B(CHECK_DEFAULT)
    ZOS_CFG_RULED_A(CHECK_DEFAULT)
    ZOS_CFG_VALUES_C(CHECK_DEFAULT)
    ZOS_CFG_RULED_B(CHECK_DEFAULT)
    ZOS_CFG_VALUES_D(CHECK_DEFAULT)
#undef CHECK_DEFAULT
    EXPECT_STREQ(Zos_CfgGetLogDir(), "");
    EXPECT_STREQ(Zos_CfgGetLogFile(), "zos.log");
    EXPECT_EQ(Zos_CfgGetOsTimerDrvMode(), 0u);

    const ST_ZOS_POOL_CFG *mem = Zos_CfgGetMemPool();
    EXPECT_STREQ(mem->pcName, "zos memory");
    EXPECT_EQ(mem->pstBktInfo, m_astZosCfgMemBktInfoGrp);
    EXPECT_EQ(mem->ucBktCnt, 13);
    EXPECT_EQ(mem->pfnAlloc, nullptr);
    EXPECT_EQ(Zos_CfgGetDbufPool()->ucBktCnt, 12);
    EXPECT_EQ(Zos_CfgGetDbufPool()->pstBktInfo[0].uiInitCnt, 10u);
    const ST_ZOS_POOL_CFG *pmem = Zos_CfgGetPMemPool();
    EXPECT_STREQ(pmem->pcName, "zos power memory");
    EXPECT_EQ(pmem->pfnAlloc, Zos_Malloc);
    EXPECT_EQ(pmem->ucLocked + pmem->ucShrink + pmem->ucLogErr, 3);
}

// The four bucket tables, row by row (size, initial count, growth count):
// they set how much memory the layer takes at start-up and as it grows.
TEST(CfgTables, BucketTablesHoldTheirPublishedRows) {
    const auto rows = [](const ST_ZOS_BKT_INFO *t, size_t n) {
        std::string out;
        for (size_t i = 0; i < n; ++i) {
            out += (i != 0 ? ", (" : "(") + std::to_string(t[i].uiSize) + ", " +
                   std::to_string(t[i].uiInitCnt) + ", " + std::to_string(t[i].uiIncCnt) + ")";
        }
        return out;
    };
    EXPECT_EQ(rows(m_astZosCfgMemBktInfoGrp, 13),
              "(32, 0, 64), (64, 0, 32), (128, 0, 16), (256, 0, 8), (512, 0, 4), (1024, 0, 4), "
              "(2048, 0, 4), (4096, 0, 2), (5120, 0, 2), (8192, 0, 1), (16384, 0, 1), "
              "(32768, 0, 1), (65536, 0, 1)");
    EXPECT_EQ(rows(m_astZosCfgDbufBktInfoGrp, 12),
              "(36, 10, 4), (128, 0, 2), (256, 0, 4), (512, 0, 4), (1024, 0, 4), (2048, 0, 2), "
              "(4096, 0, 2), (5120, 0, 2), (8192, 0, 1), (16384, 0, 1), (32768, 0, 1), "
              "(65536, 0, 1)");
    EXPECT_EQ(rows(m_astZosCfgPMemBktInfoGrp, 9),
              "(256, 0, 2), (512, 0, 4), (1024, 0, 4), (2048, 0, 2), (4096, 0, 2), (8192, 0, 1), "
              "(16384, 0, 1), (32768, 0, 1), (65536, 0, 1)");
    EXPECT_EQ(rows(m_astZosPrintBktInfoGrp, 7),
              "(32, 0, 2), (64, 0, 2), (128, 0, 2), (256, 0, 2), (1024, 0, 2), (4096, 0, 2), "
              "(8192, 0, 1)");
}

TEST_F(Cfg, SettersStoreAndStartUpBeginsFromDefaultsAgain) {
    EXPECT_EQ(Zos_CfgSetOsSemSupt(7), ZOK);
    EXPECT_EQ(Zos_CfgGetOsSemSupt(), 1);  // any non-zero is 1
    EXPECT_EQ(Zos_CfgSetOsSemSupt(0), ZOK);
    EXPECT_EQ(Zos_CfgGetOsSemSupt(), 0);
    EXPECT_EQ(Zos_CfgSetTimerTaskPriority(-3), ZOK);
    EXPECT_EQ(Zos_CfgGetTimerTaskPriority(), -3);
    int ctx = 0;
    EXPECT_EQ(Zos_CfgSetAppCtx(&ctx), ZOK);
    EXPECT_EQ(Zos_CfgGetAppCtx(), &ctx);

    ST_ZOS_POOL_CFG pool = *Zos_CfgGetMemPool();
    pool.ucShrink = 0;
    EXPECT_EQ(Zos_CfgSetMemPool(&pool), ZOK);
    EXPECT_EQ(Zos_CfgGetMemPool()->ucShrink, 0);
    EXPECT_EQ(Zos_CfgSetMemPool(nullptr), ZFAILED);

    // Values set before start-up are the ones start-up sees; shut-down
    // releases the record and the next one has the defaults.
    ASSERT_EQ(Zos_SysInit(), ZOK);
    EXPECT_EQ(Zos_CfgGetTimerTaskPriority(), -3);
    Zos_SysDestroy();
    EXPECT_EQ(Zos_CfgGetTimerTaskPriority(), 4);
    EXPECT_EQ(Zos_CfgGetOsSemSupt(), 1);
    // The defaults can be put back into a live record; a null one is refused.
    EXPECT_EQ(Zos_CfgSetTimerTaskPriority(-3), ZOK);
    EXPECT_EQ(Zos_CfgInit(Zos_CfgLocate()), ZOK);
    EXPECT_EQ(Zos_CfgGetTimerTaskPriority(), 4);
    EXPECT_EQ(Zos_CfgInit(nullptr), ZFAILED);
}

TEST_F(Cfg, RuledSetters) {
    EXPECT_EQ(Zos_CfgSetLogFileCount(1), ZFAILED);
    EXPECT_EQ(Zos_CfgGetLogFileCount(), 10u);
    EXPECT_EQ(Zos_CfgSetLogFileCount(2), ZOK);
    EXPECT_EQ(Zos_CfgGetLogFileCount(), 2u);

    EXPECT_EQ(Zos_CfgSetLogTaskCycleTimeLen(0), ZOK);
    EXPECT_EQ(Zos_CfgGetLogTaskCycleTimeLen(), 60000u);
    EXPECT_EQ(Zos_CfgSetLogTaskAlertTimeLen(0), ZOK);
    EXPECT_EQ(Zos_CfgGetLogTaskAlertTimeLen(), 500u);
    EXPECT_EQ(Zos_CfgSetLogTaskAlertTimeLen(20), ZOK);
    EXPECT_EQ(Zos_CfgGetLogTaskAlertTimeLen(), 20u);

    EXPECT_EQ(Zos_CfgSetLogLevel(0x1FF), ZOK);
    EXPECT_EQ(Zos_CfgGetLogLevel(), 0x1FFu);
}

TEST_F(Cfg, LogDirectoryRebuildsTheLogFile) {
    EXPECT_EQ(Zos_CfgSetLogDir("/data/logs"), ZOK);
    EXPECT_STREQ(Zos_CfgGetLogFile(), "/data/logs/zos.log");
    EXPECT_STREQ(Zos_CfgGetLogDir(), "/data/logs");
    EXPECT_EQ(Zos_CfgSetLogDir("/data/logs/"), ZOK);
    EXPECT_STREQ(Zos_CfgGetLogFile(), "/data/logs/zos.log");
    EXPECT_EQ(Zos_CfgSetLogDir(""), ZOK);
    EXPECT_STREQ(Zos_CfgGetLogFile(), "zos.log");

    // An empty base name becomes "zos.log".
    EXPECT_EQ(Zos_CfgSetLogFile("/tmp/"), ZOK);
    EXPECT_EQ(Zos_CfgSetLogDir("/x"), ZOK);
    EXPECT_STREQ(Zos_CfgGetLogFile(), "/x/zos.log");

    // Too long together: refused, both texts unchanged.
    EXPECT_EQ(Zos_CfgSetLogFile("/a/b/app.log"), ZOK);
    const std::string tooLong(510 - 7 + 1, 'd');  // + "app.log" = 511
    EXPECT_EQ(Zos_CfgSetLogDir(tooLong.c_str()), ZFAILED);
    EXPECT_STREQ(Zos_CfgGetLogFile(), "/a/b/app.log");
    EXPECT_STREQ(Zos_CfgGetLogDir(), "/x");
    const std::string fits(510 - 7, 'd');
    EXPECT_EQ(Zos_CfgSetLogDir(fits.c_str()), ZOK);
    EXPECT_EQ(std::string(Zos_CfgGetLogFile()), fits + "/app.log");

    // The file path is cut at 511 characters.
    const std::string huge(700, 'f');
    EXPECT_EQ(Zos_CfgSetLogFile(huge.c_str()), ZOK);
    EXPECT_EQ(std::string(Zos_CfgGetLogFile()), huge.substr(0, 511));
}
