// Intrusive lists: capacity, head and tail upkeep, removal rules, lookups.
#include "zos_test.h"

namespace {

using DNode = ST_ZOS_DLIST_NODE;
using SNode = ST_ZOS_SLIST_NODE;

uint32_t FailMutex(ZMUTEX *) {
    return ZFAILED;
}

}  // namespace

TEST_F(ZosTest, DlistInsertKeepsHeadTailAndCapacity) {
    ST_ZOS_DLIST list;
    DNode a{}, b{}, c{}, d{};
    ASSERT_EQ(Zos_DlistCreate(&list, 3), ZOK);
    ASSERT_EQ(Zos_DlistInsert(&list, nullptr, &a), ZOK);  // empty: sets both ends
    EXPECT_TRUE(list.pstHead == &a && list.pstTail == &a);
    ASSERT_EQ(Zos_DlistInsert(&list, nullptr, &b), ZOK);  // head: tail stays
    EXPECT_TRUE(list.pstHead == &b && list.pstTail == &a && a.pstPrev == &b);
    ASSERT_EQ(Zos_DlistInsert(&list, &b, &c), ZOK);  // b, c, a
    EXPECT_TRUE(c.pstPrev == &b && c.pstNext == &a && a.pstPrev == &c);
    EXPECT_EQ(Zos_DlistInsert(&list, &a, &d), ZFAILED);  // full: nothing changes
    EXPECT_TRUE(ktest::LoggedContains("DlistInsert list max(3) is full."));
    EXPECT_TRUE(list.uiCount == 3 && list.pstTail == &a && a.pstNext == nullptr);

    EXPECT_EQ(Zos_DlistFindByIndex(&list, 0), &b);
    EXPECT_EQ(Zos_DlistFindByIndex(&list, 2), &a);
    EXPECT_EQ(Zos_DlistFindByIndex(&list, 3), nullptr);  // index == count
    EXPECT_EQ(Zos_DlistFindByIndex(nullptr, 0), nullptr);
    EXPECT_EQ(Zos_DlistInsert(nullptr, nullptr, &d) + Zos_DlistInsert(&list, nullptr, nullptr),
              2 * ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DlistInsert null parameter(s)."));
    Zos_DlistDelete(&list);
    EXPECT_TRUE(list.uiMax == 0 && list.pstHead == nullptr);
    EXPECT_EQ(Zos_DlistInsert(&list, nullptr, &d), ZFAILED);  // zero size
    EXPECT_TRUE(ktest::LoggedContains("DlistInsert zero size."));
}

TEST_F(ZosTest, DlistRemoveDequeueAndCreate) {
    ST_ZOS_DLIST list;
    DNode a{}, b{}, c{}, stray{};
    ASSERT_EQ(Zos_CfgSetLogLevel(ZOS_LOG_LEVEL_ALL), ZOK);  // the dequeue lines are warnings
    ASSERT_EQ(Zos_DlistCreate(&list, ZOS_LIST_NO_LIMIT), ZOK);
    EXPECT_EQ(Zos_DlistRemove(&list, &a), ZFAILED);  // empty
    EXPECT_TRUE(ktest::LoggedContains("DlistRemove list max(4294967295) is empty."));
    EXPECT_EQ(Zos_DlistDequeue(&list), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("DlistDequeue empty list."));
    EXPECT_EQ(Zos_DlistDequeue(nullptr), nullptr);
    // The lone head has both links null and still counts as linked.
    ASSERT_EQ(Zos_DlistInsert(&list, nullptr, &a), ZOK);
    EXPECT_EQ(Zos_DlistRemove(&list, &a), ZOK);
    EXPECT_TRUE(list.pstHead == nullptr && list.pstTail == nullptr && list.uiCount == 0);

    for (DNode *n : {&a, &b, &c}) ASSERT_EQ(Zos_DlistInsert(&list, list.pstTail, n), ZOK);
    EXPECT_EQ(Zos_DlistRemove(&list, &stray) + Zos_DlistRemove(&list, nullptr), 2 * ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DlistRemove node not in list."));
    EXPECT_EQ(Zos_DlistRemove(&list, &c), ZOK);  // the tail
    EXPECT_TRUE(list.pstTail == &b && b.pstNext == nullptr && c.pstPrev == nullptr);
    EXPECT_EQ(Zos_DlistDequeue(&list), &a);
    EXPECT_TRUE(b.pstPrev == nullptr && a.pstNext == nullptr);
    EXPECT_EQ(Zos_DlistDequeue(&list), &b);
    EXPECT_TRUE(list.pstTail == nullptr && list.uiCount == 0);
    Zos_DlistDelete(&list);

    EXPECT_EQ(Zos_DlistCreate(nullptr, 1), ZFAILED);
    // Zero capacity fails but leaves the fields and the mutex made.
    EXPECT_EQ(Zos_DlistCreate(&list, 0), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DlistCreate zero node."));
    EXPECT_TRUE(ktest::LoggedContains("DlistRemove null parameter(s)."));
    EXPECT_NE(list.zMutex, 0u);
    Zos_DlistDelete(&list);
    ktest::Slot(32) = reinterpret_cast<ZOS_OSDEP_FUNC>(FailMutex);
    EXPECT_EQ(Zos_DlistCreate(&list, 4), ZFAILED);
}

TEST_F(ZosTest, SlistInsertDequeueRemoveAndFind) {
    ASSERT_EQ(Zos_CfgSetLogLevel(ZOS_LOG_LEVEL_ALL), ZOK);  // the dequeue lines are warnings
    ST_ZOS_SLIST list;
    SNode a{}, b{}, c{};
    EXPECT_EQ(Zos_SlistCreate(nullptr, 1), ZFAILED);
    EXPECT_EQ(Zos_SlistCreate(&list, 0), ZFAILED);
    EXPECT_EQ(Zos_SlistInsert(&list, nullptr, &a), ZFAILED);  // zero size
    ASSERT_EQ(Zos_SlistCreate(&list, 2), ZOK);
    ASSERT_EQ(Zos_SlistInsert(&list, nullptr, &a), ZOK);
    ASSERT_EQ(Zos_SlistInsert(&list, nullptr, &b), ZOK);  // head: b, a
    EXPECT_TRUE(list.pstHead == &b && list.pstTail == &a);
    EXPECT_EQ(Zos_SlistInsert(&list, &a, &c), ZFAILED);  // full
    EXPECT_EQ(list.pstTail, &a);
    EXPECT_EQ(Zos_SlistFindByIndex(&list, 1), &a);
    EXPECT_EQ(Zos_SlistFindByIndex(&list, 2), nullptr);

    EXPECT_EQ(Zos_SlistDequeue(&list), &b);
    EXPECT_EQ(b.pstNext, nullptr);  // dequeue clears the link
    EXPECT_EQ(list.uiCount, 1u);
    EXPECT_EQ(Zos_SlistDequeue(&list), &a);
    EXPECT_EQ(list.pstTail, nullptr);
    EXPECT_EQ(list.uiCount, 0u);
    EXPECT_TRUE(Zos_SlistDequeue(&list) == nullptr && Zos_SlistDequeue(nullptr) == nullptr);
    EXPECT_EQ(Zos_SlistInsert(nullptr, nullptr, &a) + Zos_SlistInsert(&list, nullptr, nullptr),
              2 * ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("SlistDequeue list is empty."));
    EXPECT_TRUE(ktest::LoggedContains("SlistInsert null parameter(s)."));

    // Remove leaves the removed node's own link as it was.
    SNode r[4] = {};
    ASSERT_EQ(Zos_SlistCreate(&list, ZOS_LIST_NO_LIMIT), ZOK);
    EXPECT_EQ(Zos_SlistRemove(&list, &r[0]), ZFAILED);  // empty
    EXPECT_TRUE(ktest::LoggedContains("SlistRemove list max(4294967295) is empty."));
    EXPECT_EQ(Zos_SlistRemoveAfter(&list, nullptr, &r[0]), ZFAILED);
    for (SNode &n : r) ASSERT_EQ(Zos_SlistInsert(&list, list.pstTail, &n), ZOK);

    // Middle node: unlinked, its own next still points at its successor.
    EXPECT_EQ(Zos_SlistRemove(&list, &r[1]), ZOK);
    EXPECT_TRUE(r[1].pstNext == &r[2] && r[0].pstNext == &r[2] && list.pstTail == &r[3]);
    EXPECT_EQ(Zos_SlistRemove(&list, &r[1]), ZFAILED);  // no longer there
    EXPECT_EQ(Zos_SlistRemove(&list, &r[3]), ZOK);      // tail: predecessor takes over
    EXPECT_TRUE(list.pstTail == &r[2] && list.uiCount == 2);

    EXPECT_EQ(Zos_SlistRemoveAfter(&list, &r[2], &r[0]), ZFAILED);  // wrong predecessor
    EXPECT_EQ(Zos_SlistRemoveAfter(nullptr, nullptr, &r[0]), ZFAILED);
    EXPECT_EQ(Zos_SlistRemoveAfter(&list, &r[0], &r[2]), ZOK);
    EXPECT_EQ(list.pstTail, &r[0]);
    EXPECT_EQ(Zos_SlistRemoveAfter(&list, nullptr, &r[0]), ZOK);  // falls back to Remove
    EXPECT_TRUE(list.pstHead == nullptr && list.pstTail == nullptr && list.uiCount == 0);
    EXPECT_EQ(Zos_SlistRemove(nullptr, &r[0]), ZFAILED);
    Zos_SlistDelete(&list);
    EXPECT_TRUE(list.uiMax == 0 && list.pstHead == nullptr);
    EXPECT_EQ(
        ktest::NotLogged("Slist",
                         {"Create zero node", "Insert zero node", "Insert list max(2) is full",
                          "Dequeue null list", "Remove null parameter(s)",
                          "Remove node is not in list", "RemoveAfter null parameter(s)",
                          "RemoveAfter list is empty", "RemoveAfter node is not in list"},
                         "."),
        "");
}
