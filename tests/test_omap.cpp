// Object map: range limits, sequential ids with wrapping, reservation and
// mapping, enumeration while removing, and random use against a model.
#include <map>
#include <random>

#include "zos_test.h"

namespace {

void *Obj(uintptr_t n) {
    return reinterpret_cast<void *>(n * 16);
}

}  // namespace

TEST_F(ZosTest, OmapRangesAndBadHandles) {
    EXPECT_EQ(Zos_OmapCreate(1, 0), nullptr);
    EXPECT_EQ(Zos_OmapCreate(0xFFFFFFFF, 1), nullptr);  // the "none" id
    EXPECT_EQ(Zos_OmapCreate(0xFFFFFFF0, 0x10), nullptr);
    EXPECT_EQ(Zos_OmapCreate(2, 0xFFFFFFFE), nullptr);
    ZOMAP top = Zos_OmapCreate(0xFFFFFFF0, 0xF);  // ends at 0xFFFFFFFE
    ASSERT_NE(top, nullptr);
    uint32_t id = 0;
    for (uint32_t want = 0xFFFFFFF0; want <= 0xFFFFFFFE; ++want) {
        ASSERT_EQ(Zos_OmapAllocId(top, &id), ZOK);
        ASSERT_EQ(id, want);
    }
    EXPECT_EQ(Zos_OmapAllocId(top, &id), ZFAILED);
    EXPECT_EQ(id, ZOS_INVALID_ID);
    EXPECT_EQ(Zos_OmapNext(top, 0xFFFFFFFE, &id, nullptr), ZFAILED);  // end of range
    Zos_OmapDelete(top);
    ZOMAP whole = Zos_OmapCreate(0, 0xFFFFFFFF);
    ASSERT_NE(whole, nullptr);
    EXPECT_TRUE(Zos_OmapAllocId(whole, &id) == ZOK && id == 0);
    Zos_OmapDelete(whole);

    uint32_t fake[8] = {};
    for (ZOMAP bad : {static_cast<ZOMAP>(nullptr), static_cast<ZOMAP>(fake)}) {
        EXPECT_EQ(Zos_OmapAllocId(bad, &id) & Zos_OmapFreeId(bad, 1), ZFAILED);
        EXPECT_EQ(Zos_OmapMap(bad, 1, Obj(1)) & Zos_OmapAdd(bad, Obj(1), &id), ZFAILED);
        EXPECT_TRUE(!Zos_OmapFind(bad, 1) && !Zos_OmapRemove(bad, 1));
        EXPECT_EQ(Zos_OmapFirst(bad, &id, nullptr) & Zos_OmapNext(bad, 0, &id, nullptr), ZFAILED);
        EXPECT_EQ(Zos_OmapCount(bad), 0u);
        Zos_OmapDelete(bad);
    }
}

TEST_F(ZosTest, OmapSequentialIdsWrapAndSkipIdsInUse) {
    ZOMAP map = Zos_OmapCreate(10, 5);  // ids 10..14
    ASSERT_NE(map, nullptr);
    uint32_t id = 0;
    for (uint32_t want = 10; want <= 14; ++want) {
        ASSERT_EQ(Zos_OmapAdd(map, Obj(want), &id), ZOK);
        EXPECT_EQ(id, want);
    }
    EXPECT_EQ(Zos_OmapAdd(map, Obj(99), &id), ZFAILED);  // full
    EXPECT_EQ(Zos_OmapCount(map), 5u);
    EXPECT_EQ(Zos_OmapRemove(map, 13), Obj(13));
    EXPECT_EQ(Zos_OmapFreeId(map, 11), ZOK);
    EXPECT_EQ(Zos_OmapFreeId(map, 11), ZFAILED);  // not in use any more
    EXPECT_EQ(Zos_OmapRemove(map, 11), nullptr);
    // After 14 the search wraps to 10, which is taken: 11, then 13.
    EXPECT_TRUE(Zos_OmapAllocId(map, &id) == ZOK && id == 11);
    EXPECT_TRUE(Zos_OmapAllocId(map, &id) == ZOK && id == 13);
    EXPECT_EQ(Zos_OmapAllocId(map, &id), ZFAILED);
    // A freed id comes back only after the rest of the range.
    EXPECT_EQ(Zos_OmapFreeId(map, 12) + Zos_OmapFreeId(map, 14), ZOK);
    EXPECT_TRUE(Zos_OmapAllocId(map, &id) == ZOK && id == 14);
    EXPECT_TRUE(Zos_OmapAllocId(map, &id) == ZOK && id == 12);
    Zos_OmapDelete(map);

    ZOMAP one = Zos_OmapCreate(1, 1);
    EXPECT_TRUE(Zos_OmapAllocId(one, &id) == ZOK && id == 1);
    EXPECT_EQ(Zos_OmapAllocId(one, &id), ZFAILED);
    EXPECT_EQ(Zos_OmapFreeId(one, 1), ZOK);
    EXPECT_TRUE(Zos_OmapAllocId(one, &id) == ZOK && id == 1);
    Zos_OmapDelete(one);
}

TEST_F(ZosTest, OmapReserveMapFindRemoveEnumerate) {
    ZOMAP map = Zos_OmapCreate(1, 0x7FFFFFFF);
    uint32_t a = 0, b = 0, c = 0;
    ASSERT_EQ(Zos_OmapAllocId(map, &a), ZOK);  // reserved only
    EXPECT_EQ(a, 1u);
    EXPECT_EQ(Zos_OmapFind(map, a), nullptr);
    EXPECT_EQ(Zos_OmapRemove(map, a), nullptr);  // no object: the id stays
    EXPECT_EQ(Zos_OmapCount(map), 1u);
    EXPECT_EQ(Zos_OmapMap(map, a, nullptr), ZFAILED);
    EXPECT_EQ(Zos_OmapMap(map, 5, Obj(5)), ZFAILED);  // not in use
    EXPECT_EQ(Zos_OmapMap(map, a, Obj(1)), ZOK);
    EXPECT_EQ(Zos_OmapMap(map, a, Obj(2)), ZOK);  // replaces
    EXPECT_EQ(Zos_OmapFind(map, a), Obj(2));
    EXPECT_EQ(Zos_OmapAdd(map, nullptr, &b), ZFAILED);
    EXPECT_EQ(b, ZOS_INVALID_ID);
    ASSERT_EQ(Zos_OmapAdd(map, Obj(3), &b) + Zos_OmapAllocId(map, &c), ZOK);
    EXPECT_TRUE(b == 2 && c == 3);

    uint32_t id = 0;
    void *obj = nullptr;
    ASSERT_EQ(Zos_OmapFirst(map, &id, &obj), ZOK);
    EXPECT_TRUE(id == 1 && obj == Obj(2));
    ASSERT_EQ(Zos_OmapNext(map, 1, &id, &obj), ZOK);
    EXPECT_TRUE(id == 2 && obj == Obj(3));
    ASSERT_EQ(Zos_OmapNext(map, 2, &id, &obj), ZOK);
    EXPECT_TRUE(id == 3 && obj == nullptr);  // reserved ids are listed too
    EXPECT_EQ(Zos_OmapNext(map, 3, &id, &obj), ZFAILED);
    // The entry just handed out may go before asking for the next one.
    EXPECT_EQ(Zos_OmapRemove(map, 2), Obj(3));
    EXPECT_TRUE(Zos_OmapNext(map, 2, &id, nullptr) == ZOK && id == 3);
    // Drain from the start, as a shut-down does.
    int rounds = 0;
    while (Zos_OmapCount(map) != 0 && Zos_OmapFirst(map, &id, nullptr) == ZOK && rounds++ < 5) {
        EXPECT_EQ(Zos_OmapFreeId(map, id), ZOK);
    }
    EXPECT_EQ(rounds, 2);
    EXPECT_EQ(Zos_OmapFirst(map, &id, &obj), ZFAILED);
    EXPECT_TRUE(Zos_OmapAllocId(map, &id) == ZOK && id == 4);  // the cursor moved on
    Zos_OmapDelete(map);
}

TEST_F(ZosTest, OmapRandomUseMatchesModel) {
    for (uint32_t seed : {5u, 6u}) {
        constexpr uint32_t kFirst = 100, kRange = 64;
        ZOMAP map = Zos_OmapCreate(kFirst, kRange);
        std::map<uint32_t, void *> model;  // id -> object (null: reserved)
        uint32_t cursor = kFirst;
        std::mt19937 rng(seed);
        for (int op = 0; op < 4000; ++op) {
            uint32_t id = 0;
            const uint32_t pick = kFirst + rng() % kRange;
            switch (rng() % 4) {
                case 0:
                case 1: {  // allocate: first free id from the cursor on, wrapping
                    uint32_t want = ZOS_INVALID_ID;
                    for (uint32_t i = 0; i < kRange && want == ZOS_INVALID_ID; ++i) {
                        const uint32_t cand = kFirst + (cursor - kFirst + i) % kRange;
                        if (model.count(cand) == 0) want = cand;
                    }
                    void *obj = rng() % 2 ? Obj(op + 1) : nullptr;
                    const uint32_t rc =
                        obj ? Zos_OmapAdd(map, obj, &id) : Zos_OmapAllocId(map, &id);
                    ASSERT_EQ(rc, want == ZOS_INVALID_ID ? ZFAILED : ZOK);
                    ASSERT_EQ(id, want);
                    if (want != ZOS_INVALID_ID) {
                        model[want] = obj;
                        cursor = want + 1 == kFirst + kRange ? kFirst : want + 1;
                    }
                    break;
                }
                case 2: {
                    auto it = model.find(pick);
                    const bool mapped = it != model.end() && it->second != nullptr;
                    ASSERT_EQ(Zos_OmapRemove(map, pick), mapped ? it->second : nullptr);
                    if (mapped) model.erase(it);
                    break;
                }
                default:
                    ASSERT_EQ(Zos_OmapFreeId(map, pick), model.erase(pick) ? ZOK : ZFAILED);
            }
            ASSERT_EQ(Zos_OmapCount(map), model.size());
        }
        // Enumeration lists exactly the model, in order.
        uint32_t id = 0;
        void *obj = nullptr;
        auto it = model.begin();
        for (uint32_t rc = Zos_OmapFirst(map, &id, &obj); rc == ZOK;
             rc = Zos_OmapNext(map, id, &id, &obj), ++it) {
            ASSERT_TRUE(it != model.end() && it->first == id && it->second == obj);
            EXPECT_EQ(Zos_OmapFind(map, id), obj);
        }
        EXPECT_TRUE(it == model.end());
        Zos_OmapDelete(map);
    }
}
