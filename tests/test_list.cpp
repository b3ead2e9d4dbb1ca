// Intrusive lists: capacity, head and tail upkeep, removal rules, lookups.
#include "zos_test.h"

namespace {

struct DRec {
    ST_ZOS_DLIST_NODE stLink;
    int iVal;
};

struct SRec {
    ST_ZOS_SLIST_NODE stLink;
    int iVal;
};

uint32_t FailMutex(ZMUTEX *) {
    return ZFAILED;
}

}  // namespace

TEST_F(ZosTest, DlistInsertKeepsHeadTailAndCapacity) {
    ST_ZOS_DLIST list;
    DRec a{}, b{}, c{}, d{};
    ASSERT_EQ(Zos_DlistCreate(&list, 3), ZOK);
    // Head insert into an empty list sets both ends.
    ASSERT_EQ(Zos_DlistInsert(&list, nullptr, &a.stLink), ZOK);
    EXPECT_EQ(list.pstHead, &a.stLink);
    EXPECT_EQ(list.pstTail, &a.stLink);
    // Head insert into a non-empty list leaves the tail alone.
    ASSERT_EQ(Zos_DlistInsert(&list, nullptr, &b.stLink), ZOK);
    EXPECT_EQ(list.pstHead, &b.stLink);
    EXPECT_EQ(list.pstTail, &a.stLink);
    EXPECT_EQ(a.stLink.pstPrev, &b.stLink);
    // Insert in the middle: b, c, a.
    ASSERT_EQ(Zos_DlistInsert(&list, &b.stLink, &c.stLink), ZOK);
    EXPECT_EQ(c.stLink.pstPrev, &b.stLink);
    EXPECT_EQ(c.stLink.pstNext, &a.stLink);
    EXPECT_EQ(a.stLink.pstPrev, &c.stLink);
    // Full: refused, nothing changes.
    EXPECT_EQ(Zos_DlistInsert(&list, list.pstTail, &d.stLink), ZFAILED);
    EXPECT_EQ(list.uiCount, 3u);
    EXPECT_EQ(list.pstTail, &a.stLink);
    EXPECT_EQ(a.stLink.pstNext, nullptr);

    EXPECT_EQ(Zos_DlistFindByIndex(&list, 0), &b.stLink);
    EXPECT_EQ(Zos_DlistFindByIndex(&list, 2), &a.stLink);
    EXPECT_EQ(Zos_DlistFindByIndex(&list, 3), nullptr);  // index == count
    EXPECT_EQ(Zos_DlistFindByIndex(nullptr, 0), nullptr);

    EXPECT_EQ(Zos_DlistInsert(nullptr, nullptr, &d.stLink), ZFAILED);
    EXPECT_EQ(Zos_DlistInsert(&list, nullptr, nullptr), ZFAILED);
    Zos_DlistDelete(&list);
    EXPECT_EQ(list.uiMax, 0u);
    EXPECT_EQ(list.pstHead, nullptr);
    EXPECT_EQ(Zos_DlistInsert(&list, nullptr, &d.stLink), ZFAILED);  // zero size
}

TEST_F(ZosTest, DlistRemoveAndDequeue) {
    ST_ZOS_DLIST list;
    DRec a{}, b{}, c{}, stray{};
    ASSERT_EQ(Zos_DlistCreate(&list, ZOS_LIST_NO_LIMIT), ZOK);
    EXPECT_EQ(Zos_DlistRemove(&list, &a.stLink), ZFAILED);  // empty
    EXPECT_EQ(Zos_DlistDequeue(&list), nullptr);
    EXPECT_EQ(Zos_DlistDequeue(nullptr), nullptr);

    // The lone head has both links null and still counts as linked.
    ASSERT_EQ(Zos_DlistInsert(&list, nullptr, &a.stLink), ZOK);
    EXPECT_EQ(Zos_DlistRemove(&list, &a.stLink), ZOK);
    EXPECT_EQ(list.pstHead, nullptr);
    EXPECT_EQ(list.pstTail, nullptr);
    EXPECT_EQ(list.uiCount, 0u);

    for (DRec *r : {&a, &b, &c}) ASSERT_EQ(Zos_DlistInsert(&list, list.pstTail, &r->stLink), ZOK);
    EXPECT_EQ(Zos_DlistRemove(&list, &stray.stLink), ZFAILED);  // never linked
    EXPECT_EQ(Zos_DlistRemove(&list, nullptr), ZFAILED);
    EXPECT_EQ(Zos_DlistRemove(&list, &c.stLink), ZOK);  // the tail
    EXPECT_EQ(list.pstTail, &b.stLink);
    EXPECT_EQ(b.stLink.pstNext, nullptr);
    EXPECT_EQ(c.stLink.pstPrev, nullptr);
    EXPECT_EQ(Zos_DlistDequeue(&list), &a.stLink);
    EXPECT_EQ(b.stLink.pstPrev, nullptr);
    EXPECT_EQ(a.stLink.pstNext, nullptr);
    EXPECT_EQ(Zos_DlistDequeue(&list), &b.stLink);
    EXPECT_EQ(list.pstTail, nullptr);
    EXPECT_EQ(list.uiCount, 0u);
    Zos_DlistDelete(&list);
}

TEST_F(ZosTest, DlistCreateFailures) {
    ST_ZOS_DLIST list;
    EXPECT_EQ(Zos_DlistCreate(nullptr, 1), ZFAILED);
    // Zero capacity fails but leaves the fields and the mutex made.
    EXPECT_EQ(Zos_DlistCreate(&list, 0), ZFAILED);
    EXPECT_NE(list.zMutex, 0u);
    Zos_DlistDelete(&list);
    ktest::Slot(32) = reinterpret_cast<ZOS_OSDEP_FUNC>(FailMutex);
    EXPECT_EQ(Zos_DlistCreate(&list, 4), ZFAILED);
    ktest::Slot(32) = reinterpret_cast<ZOS_OSDEP_FUNC>(Zpand_MutexCreate);
}

TEST_F(ZosTest, SlistInsertDequeueAndFind) {
    ST_ZOS_SLIST list;
    SRec a{}, b{}, c{};
    EXPECT_EQ(Zos_SlistCreate(nullptr, 1), ZFAILED);
    EXPECT_EQ(Zos_SlistCreate(&list, 0), ZFAILED);
    EXPECT_EQ(Zos_SlistInsert(&list, nullptr, &a.stLink), ZFAILED);  // zero size
    ASSERT_EQ(Zos_SlistCreate(&list, 2), ZOK);
    ASSERT_EQ(Zos_SlistInsert(&list, nullptr, &a.stLink), ZOK);
    EXPECT_EQ(list.pstTail, &a.stLink);
    ASSERT_EQ(Zos_SlistInsert(&list, nullptr, &b.stLink), ZOK);  // head: b, a
    EXPECT_EQ(list.pstHead, &b.stLink);
    EXPECT_EQ(list.pstTail, &a.stLink);
    EXPECT_EQ(Zos_SlistInsert(&list, &a.stLink, &c.stLink), ZFAILED);  // full
    EXPECT_EQ(list.pstTail, &a.stLink);
    EXPECT_EQ(Zos_SlistFindByIndex(&list, 1), &a.stLink);
    EXPECT_EQ(Zos_SlistFindByIndex(&list, 2), nullptr);

    EXPECT_EQ(Zos_SlistDequeue(&list), &b.stLink);
    EXPECT_EQ(b.stLink.pstNext, nullptr);  // dequeue clears the link
    EXPECT_EQ(Zos_SlistDequeue(&list), &a.stLink);
    EXPECT_EQ(list.pstTail, nullptr);
    EXPECT_EQ(Zos_SlistDequeue(&list), nullptr);
    EXPECT_EQ(Zos_SlistDequeue(nullptr), nullptr);
    EXPECT_EQ(Zos_SlistInsert(nullptr, nullptr, &a.stLink), ZFAILED);
    Zos_SlistDelete(&list);
    EXPECT_EQ(list.uiMax, 0u);
}

TEST_F(ZosTest, SlistRemoveKeepsTheRemovedLink) {
    ST_ZOS_SLIST list;
    SRec r[4] = {};
    ASSERT_EQ(Zos_SlistCreate(&list, ZOS_LIST_NO_LIMIT), ZOK);
    EXPECT_EQ(Zos_SlistRemove(&list, &r[0].stLink), ZFAILED);  // empty
    EXPECT_EQ(Zos_SlistRemoveAfter(&list, nullptr, &r[0].stLink), ZFAILED);
    for (SRec &x : r) ASSERT_EQ(Zos_SlistInsert(&list, list.pstTail, &x.stLink), ZOK);

    // Middle node: unlinked, its own next still points at its successor.
    EXPECT_EQ(Zos_SlistRemove(&list, &r[1].stLink), ZOK);
    EXPECT_EQ(r[1].stLink.pstNext, &r[2].stLink);
    EXPECT_EQ(r[0].stLink.pstNext, &r[2].stLink);
    EXPECT_EQ(Zos_SlistRemove(&list, &r[1].stLink), ZFAILED);  // no longer there
    // Tail: the predecessor becomes the tail.
    EXPECT_EQ(Zos_SlistRemove(&list, &r[3].stLink), ZOK);
    EXPECT_EQ(list.pstTail, &r[2].stLink);
    EXPECT_EQ(list.uiCount, 2u);

    // RemoveAfter: a wrong predecessor is refused; the right one unlinks.
    EXPECT_EQ(Zos_SlistRemoveAfter(&list, &r[2].stLink, &r[0].stLink), ZFAILED);
    EXPECT_EQ(Zos_SlistRemoveAfter(nullptr, nullptr, &r[0].stLink), ZFAILED);
    EXPECT_EQ(Zos_SlistRemoveAfter(&list, &r[0].stLink, &r[2].stLink), ZOK);
    EXPECT_EQ(list.pstTail, &r[0].stLink);
    // No predecessor: removes the head through Remove.
    EXPECT_EQ(Zos_SlistRemoveAfter(&list, nullptr, &r[0].stLink), ZOK);
    EXPECT_EQ(list.pstHead, nullptr);
    EXPECT_EQ(list.pstTail, nullptr);
    EXPECT_EQ(list.uiCount, 0u);
    EXPECT_EQ(Zos_SlistRemove(nullptr, &r[0].stLink), ZFAILED);
}
