// The failure lines of the containers and pools, as the system log records
// them: each case provokes one failure and names the line it must write.
#include <functional>
#include <string>
#include <vector>

#include "zos_test.h"

namespace {

struct FailCase {
    const char *line;
    std::function<void()> provoke;
};

void ExpectLines(const std::vector<FailCase> &cases) {
    for (const FailCase &c : cases) {
        ktest::ClearLogged();
        c.provoke();
        EXPECT_TRUE(ktest::LoggedContains(c.line)) << "expected the line: " << c.line;
    }
}

}  // namespace

TEST_F(ZosTest, ListAndQueueFailuresWriteTheirLines) {
    // Warnings are closed by default (level mask 0xB); the dequeue lines are
    // warnings, so open every level first.
    ASSERT_EQ(Zos_CfgSetLogLevel(ZOS_LOG_LEVEL_ALL), ZOK);
    ST_ZOS_DLIST full{};
    ASSERT_EQ(Zos_DlistCreate(&full, 1), ZOK);
    ST_ZOS_DLIST_NODE a{}, b{}, loose{};
    ASSERT_EQ(Zos_DlistInsert(&full, nullptr, &a), ZOK);
    ST_ZOS_DLIST empty{};
    ASSERT_EQ(Zos_DlistCreate(&empty, 4), ZOK);
    ST_ZOS_SLIST slist{};
    ASSERT_EQ(Zos_SlistCreate(&slist, 4), ZOK);
    ZQUEUE q = nullptr;
    ZPQUEUE pq = nullptr;
    ASSERT_EQ(Zos_QueueCreate(1, 0, 4, 4, &q), ZOK);
    ASSERT_EQ(Zos_PQueueCreate(1, 0, 4, 4, 3, &pq), ZOK);
    uint32_t bogus[16] = {};  // no magic: refused as an invalid id
    uintptr_t value = 0;
    uint32_t level = 0;

    ExpectLines({
        {"DlistInsert null parameter(s).", [&] { Zos_DlistInsert(nullptr, nullptr, &b); }},
        {"DlistInsert list max(1) is full.", [&] { Zos_DlistInsert(&full, nullptr, &b); }},
        {"DlistDequeue empty list.", [&] { Zos_DlistDequeue(&empty); }},
        {"DlistRemove list max(4) is empty.", [&] { Zos_DlistRemove(&empty, &b); }},
        {"DlistRemove node not in list.", [&] { Zos_DlistRemove(&full, &loose); }},
        {"SlistDequeue list is empty.", [&] { Zos_SlistDequeue(&slist); }},
        {"SlistInsert null parameter(s).", [&] { Zos_SlistInsert(&slist, nullptr, nullptr); }},
        {"QueueCreate queue size is 0.",
         [&] {
             ZQUEUE none = nullptr;
             Zos_QueueCreate(0, 0, 0, 0, &none);
         }},
        {"QueueAdd null parameter(s).", [&] { Zos_QueueAdd(q, 0); }},
        {"QueueAdd invalid id.", [&] { Zos_QueueAdd(bogus, 1); }},
        {"QueuePoll invalid id.", [&] { Zos_QueuePoll(bogus, 0, &value); }},
        {"QueueGetBusyCount invalid id.", [&] { Zos_QueueGetBusyCount(bogus); }},
        {"PQueueCreate size is 0 or too big.",
         [&] {
             ZPQUEUE none = nullptr;
             Zos_PQueueCreate(0, 0, 0, 4, 3, &none);
         }},
        {"PQueueCreate priority size too big.",
         [&] {
             ZPQUEUE none = nullptr;
             Zos_PQueueCreate(0, 0, 4, 4, 32, &none);
         }},
        {"PQueueAdd invalid element.", [&] { Zos_PQueueAdd(pq, 4, 1); }},
        {"PQueueAdd invalid id.", [&] { Zos_PQueueAdd(bogus, 0, 1); }},
        {"PQueuePoll invalid id.", [&] { Zos_PQueuePoll(bogus, 0, &level, &value); }},
        {"PQueueRmv invalid element.", [&] { Zos_PQueueRmv(pq, 0, 0); }},
        {"PQueueFind invalid id.", [&] { Zos_PQueueFind(bogus, 0, 1); }},
        {"PQueueDelete invalid id.", [&] { Zos_PQueueDelete(bogus); }},
    });
    Zos_QueueDelete(q);
    Zos_PQueueDelete(pq);
    Zos_DlistDelete(&full);
    Zos_DlistDelete(&empty);
    Zos_SlistDelete(&slist);
}

TEST_F(ZosTest, PoolFaultsWriteTheirLines) {
    static const ST_ZOS_BKT_INFO rows[] = {{32, 4, 4}, {64, 2, 2}};
    const ST_ZOS_POOL_CFG cfg{"probe", rows, nullptr, nullptr, 1, 0, 1, 2};
    ZPOOL pool = Zos_PoolCreate(&cfg);
    ASSERT_NE(pool, nullptr);
    auto *node = static_cast<unsigned char *>(Zos_PoolAlloc(pool, 32));
    ASSERT_NE(node, nullptr);
    auto *twice = Zos_PoolAlloc(pool, 16);
    ASSERT_NE(twice, nullptr);
    Zos_PoolFree(pool, twice);

    ExpectLines({
        {"PoolFree <probe> free twice.", [&] { Zos_PoolFree(pool, twice); }},
        {"PoolFree <probe> invalid redzone.",
         [&] {
             node[32] ^= 0xFF;  // one byte past the bucket's data size
             Zos_PoolFree(pool, node);
         }},
        {"PoolAlloc size is 0 or too big.", [&] { Zos_PoolAlloc(pool, 0); }},
    });
    Zos_PoolDelete(pool);
}
