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
    EXPECT_EQ(Zos_OmapCreate(2, 0xFFFFFFFE), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("OmapCreate invalid range."));
    ZOMAP top = Zos_OmapCreate(0xFFFFFFF0, 0xF);  // ends at 0xFFFFFFFE
    uint32_t id = 0;
    for (uint32_t want = 0xFFFFFFF0; want <= 0xFFFFFFFE; ++want) {
        ASSERT_TRUE(Zos_OmapAllocId(top, &id) == ZOK && id == want);
    }
    EXPECT_EQ(Zos_OmapAllocId(top, &id), ZFAILED);
    EXPECT_EQ(id, ZOS_INVALID_ID);
    EXPECT_EQ(Zos_OmapNext(top, 0xFFFFFFFE, &id, nullptr), ZFAILED);  // end of range
    Zos_OmapDelete(top);
    ZOMAP whole = Zos_OmapCreate(0, 0xFFFFFFFF);
    EXPECT_TRUE(Zos_OmapAllocId(whole, &id) == ZOK && id == 0);
    Zos_OmapDelete(whole);

    uint32_t fake[8] = {};
    ktest::ClearLogged();
    for (ZOMAP bad : {static_cast<ZOMAP>(nullptr), static_cast<ZOMAP>(fake)}) {
        EXPECT_EQ(Zos_OmapAllocId(bad, &id) & Zos_OmapFreeId(bad, 1), ZFAILED);
        EXPECT_EQ(Zos_OmapMap(bad, 1, Obj(1)) & Zos_OmapAdd(bad, Obj(1), &id), ZFAILED);
        EXPECT_TRUE(!Zos_OmapFind(bad, 1) && !Zos_OmapRemove(bad, 1));
        EXPECT_EQ(Zos_OmapFirst(bad, &id, nullptr) & Zos_OmapNext(bad, 0, &id, nullptr), ZFAILED);
        EXPECT_EQ(Zos_OmapCount(bad), 0u);
        Zos_OmapDelete(bad);
    }
    EXPECT_EQ(ktest::NotLogged("Omap",
                               {"AllocId", "FreeId", "Map", "Add", "Find", "Remove", "First",
                                "Next", "Count", "Delete"},
                               " invalid id."),
              "");
}

TEST_F(ZosTest, OmapIdsWrapSkipIdsInUseAndEnumerate) {
    ZOMAP map = Zos_OmapCreate(10, 5);  // ids 10..14
    uint32_t id = 0;
    for (uint32_t want = 10; want <= 14; ++want) {
        ASSERT_TRUE(Zos_OmapAdd(map, Obj(want), &id) == ZOK && id == want);
    }
    EXPECT_EQ(Zos_OmapAdd(map, Obj(99), &id), ZFAILED);      // full
    EXPECT_EQ(Zos_OmapAdd(map, Obj(99), nullptr), ZFAILED);  // nowhere to put the id
    EXPECT_EQ(Zos_OmapRemove(map, 13), Obj(13));
    EXPECT_EQ(Zos_OmapFreeId(map, 11), ZOK);
    EXPECT_EQ(Zos_OmapFreeId(map, 11), ZFAILED);  // not in use any more
    // After 14 the search wraps to 10, which is taken: 11, then 13.
    EXPECT_TRUE(Zos_OmapAllocId(map, &id) == ZOK && id == 11);
    EXPECT_TRUE(Zos_OmapAllocId(map, &id) == ZOK && id == 13);
    EXPECT_EQ(Zos_OmapAllocId(map, &id), ZFAILED);
    // A reserved id has no object: it cannot be removed, only freed.
    EXPECT_EQ(Zos_OmapFind(map, 13), nullptr);
    EXPECT_EQ(Zos_OmapRemove(map, 13), nullptr);
    EXPECT_EQ(Zos_OmapMap(map, 13, nullptr), ZFAILED);
    EXPECT_EQ(Zos_OmapMap(map, 15, Obj(15)), ZFAILED);  // not in use
    EXPECT_EQ(Zos_OmapMap(map, 12, Obj(2)), ZOK);       // replaces
    EXPECT_EQ(Zos_OmapFind(map, 12), Obj(2));
    // Enumeration lists reserved ids too, and survives removing the
    // entry it just handed out.
    void *obj = nullptr;
    ASSERT_TRUE(Zos_OmapFirst(map, &id, &obj) == ZOK && id == 10 && obj == Obj(10));
    ASSERT_TRUE(Zos_OmapNext(map, 10, &id, &obj) == ZOK && id == 11 && obj == nullptr);
    EXPECT_EQ(Zos_OmapFreeId(map, 11), ZOK);
    ASSERT_TRUE(Zos_OmapNext(map, 11, &id, &obj) == ZOK && id == 12 && obj == Obj(2));
    int rounds = 0;  // drain from the start, as a shut-down does
    while (Zos_OmapCount(map) != 0 && Zos_OmapFirst(map, &id, nullptr) == ZOK && rounds++ < 9) {
        EXPECT_EQ(Zos_OmapFreeId(map, id), ZOK);
    }
    EXPECT_EQ(rounds, 4);
    EXPECT_EQ(Zos_OmapFirst(map, &id, &obj), ZFAILED);
    // The cursor stands after 13: a freed id comes back only after the rest.
    EXPECT_TRUE(Zos_OmapAllocId(map, &id) == ZOK && id == 14);
    EXPECT_TRUE(Zos_OmapAllocId(map, &id) == ZOK && id == 10);
    EXPECT_EQ(Zos_OmapAdd(map, nullptr, &id), ZFAILED);
    EXPECT_EQ(ktest::NotLogged("Omap",
                               {"AllocId no free id", "FreeId id 11 not in use", "Map null object",
                                "Map id 15 not in use", "Add null object", "Remove no object 13"},
                               "."),
              "");
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
            const uint32_t what = rng() % 4;
            if (what < 2) {  // allocate: first free id from the cursor on, wrapping
                uint32_t want = ZOS_INVALID_ID;
                for (uint32_t i = 0; i < kRange && want == ZOS_INVALID_ID; ++i) {
                    const uint32_t cand = kFirst + (cursor - kFirst + i) % kRange;
                    if (model.count(cand) == 0) want = cand;
                }
                void *obj = what == 0 ? Obj(op + 1) : nullptr;
                ASSERT_EQ(obj ? Zos_OmapAdd(map, obj, &id) : Zos_OmapAllocId(map, &id),
                          want == ZOS_INVALID_ID ? ZFAILED : ZOK);
                ASSERT_EQ(id, want);
                if (want != ZOS_INVALID_ID) {
                    model[want] = obj;
                    cursor = want + 1 == kFirst + kRange ? kFirst : want + 1;
                }
            } else if (what == 2) {
                auto it = model.find(pick);
                void *obj = it != model.end() ? it->second : nullptr;
                ASSERT_EQ(Zos_OmapRemove(map, pick), obj);
                if (obj != nullptr) model.erase(it);
            } else {
                ASSERT_EQ(Zos_OmapFreeId(map, pick), model.erase(pick) ? ZOK : ZFAILED);
            }
            ASSERT_EQ(Zos_OmapCount(map), model.size());
        }
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
