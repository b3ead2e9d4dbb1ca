// Hash tables: key functions, creation limits, node pool accounting, chain
// order, and random use against a standard container.
#include <cstring>
#include <random>
#include <unordered_map>
#include <vector>

#include "zos_test.h"

namespace {

uint32_t Key(uint32_t (*fn)(uintptr_t, uintptr_t, uintptr_t, uint32_t *), uintptr_t seed,
             const char *text, uintptr_t len) {
    uint32_t key = 0xDEADBEEF;
    EXPECT_EQ(fn(seed, reinterpret_cast<uintptr_t>(text), len, &key), ZOK);
    return key;
}

// Items are values; sixteen neighbouring values share one key, so chains
// hold several entries that only the compare function tells apart.
uint32_t ValueKey(uintptr_t zValue, uintptr_t, uintptr_t, uint32_t *puiKey) {
    *puiKey = static_cast<uint32_t>(zValue >> 4);
    return 0;
}
uint32_t ValueCmp(uintptr_t zItem, uintptr_t zValue, uintptr_t, uintptr_t) {
    return zItem == zValue ? 0 : 1;
}

// Fails the key making on the call numbered g_failAt (1-based).
int g_keyCalls = 0;
int g_failAt = 0;
uint32_t FlakyKey(uintptr_t zValue, uintptr_t a, uintptr_t b, uint32_t *puiKey) {
    return ++g_keyCalls == g_failAt ? 1 : ValueKey(zValue, a, b, puiKey);
}

}  // namespace

TEST_F(ZosTest, HashKeyFunctions) {
    auto str = Zos_HashKeyFromStr;
    auto nocase = Zos_HashKeyFromStrNoCase;
    EXPECT_EQ(Key(str, 0, "a", 1), 177670u);  // 5381 * 33 + 97
    EXPECT_EQ(Key(str, 0, "abc", 0), 5381u);
    EXPECT_EQ(Key(str, 0, "a\0b", 3), 177670u);  // stops at the NUL
    EXPECT_EQ(Key(str, 0, "ab", 1), 177670u);    // at most the length
    EXPECT_EQ(Key(str, 0, nullptr, 4), 5381u);
    EXPECT_TRUE(Key(nocase, 0, "ABC", 3) == Key(str, 0, "abc", 3) &&
                Key(nocase, 0, "aBc", 3) == Key(str, 0, "abc", 3));
    EXPECT_NE(Key(str, 0, "ABC", 3), Key(str, 0, "abc", 3));
    // Only ASCII capitals fold: neighbours of 'A'..'Z' and high bytes stay.
    EXPECT_EQ(Key(nocase, 0, "@[\xC1", 3), Key(str, 0, "@[\xC1", 3));
    // Seed mix: h + (s << 7) + (h << 5), wrapping in 32 bits.
    const uint32_t h = 177670, s = 0x02000003;
    EXPECT_EQ(Key(str, s, "a", 1), h + (s << 7) + (h << 5));
    EXPECT_EQ(Key(nocase, 7, "A", 1), h * 33 + 7 * 128);
    EXPECT_EQ(Key(Zos_HashKeyFromUint32, 0, reinterpret_cast<const char *>(0xFFFFFFFF), 0),
              0xFFFFFFFFu);
    EXPECT_EQ(Key(Zos_HashKeyFromUint32, 1, reinterpret_cast<const char *>(0x08000000), 0),
              0x08000000u + 128);  // 0x08000000 << 5 wraps to 0
    EXPECT_EQ(Zos_HashKeyFromStr(0, 0, 0, nullptr), ZOK);
}

TEST_F(ZosTest, HashCreateRefusals) {
    ST_ZOS_HASH hash;
    EXPECT_EQ(Zos_HashCreate(nullptr, 8, ValueKey, ValueCmp) |
                  Zos_HashCreate(&hash, 0, ValueKey, ValueCmp) |
                  Zos_HashCreateX(&hash, 8, 0, ValueKey, ValueCmp) |
                  Zos_HashCreate(&hash, 8, nullptr, ValueCmp) |
                  Zos_HashCreate(&hash, 8, ValueKey, nullptr),
              ZFAILED);
    EXPECT_EQ(Zos_HashCreateX(&hash, 0x3FFFFFFF, 1, ValueKey, ValueCmp), ZFAILED);
    EXPECT_EQ(Zos_HashCreateX(&hash, 1, 0x1FFFFFFF, ValueKey, ValueCmp), ZFAILED);
    // Within the bounds but more than one arena request can carry.
    EXPECT_EQ(Zos_HashCreateX(&hash, 0x3FFFFFFE, 1, ValueKey, ValueCmp), ZFAILED);
    ST_ZOS_HASH *made = reinterpret_cast<ST_ZOS_HASH *>(1);
    EXPECT_EQ(Zos_HashCreateAX(nullptr, 0x3FFFFFFF, 1, ValueKey, ValueCmp, &made), ZFAILED);
    EXPECT_EQ(made, nullptr);
    EXPECT_EQ(Zos_HashCreateA(nullptr, 8, ValueKey, ValueCmp, nullptr), ZFAILED);
    // A null table is refused or not found, never dereferenced.
    uintptr_t item = 0;
    EXPECT_EQ(Zos_HashDelete(nullptr) & Zos_HashInsert(nullptr, 1, 1, 0, 0) &
                  Zos_HashRemove(nullptr, 1, 0, 0),
              ZFAILED);
    EXPECT_EQ(Zos_HashFind(nullptr, 1, 0, 0, &item) + Zos_HashFindByKey(nullptr, 0, 1, 0, 0, &item),
              0u);
}

TEST_F(ZosTest, HashNodePoolChainsAndReuse) {
    ST_ZOS_HASH hash;
    ASSERT_EQ(Zos_HashCreateX(&hash, 4, 1, ValueKey, ValueCmp), ZOK);
    ASSERT_EQ(Zos_HashInsert(&hash, 0x10, 0x10, 0, 0), ZOK);
    EXPECT_EQ(Zos_HashInsert(&hash, 0x20, 0x20, 0, 0), ZFAILED);  // no node is free
    EXPECT_EQ(Zos_HashInsert(&hash, 0x10, 0x10, 0, 0), ZFAILED);  // item exists
    EXPECT_EQ(Zos_HashRemove(&hash, 0x20, 0, 0), ZFAILED);
    EXPECT_EQ(Zos_HashRemove(&hash, 0x10, 0, 0), ZOK);
    EXPECT_EQ(Zos_HashRemove(&hash, 0x10, 0, 0), ZFAILED);
    EXPECT_EQ(Zos_HashInsert(&hash, 0x20, 0x20, 0, 0), ZOK);  // room again
    EXPECT_EQ(Zos_HashDelete(&hash), ZOK);
    EXPECT_TRUE(hash.zCbuf == nullptr && hash.ppstBucket == nullptr && hash.uiSize == 0);
    EXPECT_EQ(Zos_HashInsert(&hash, 1, 1, 0, 0), ZFAILED);  // deleted record

    // A child of a parent arena: the record lives there and goes with it.
    ZCBUF parent = Zos_CbufCreate(64);
    ST_ZOS_HASH *table = nullptr;
    ASSERT_EQ(Zos_HashCreateAX(parent, 3, 4, ValueKey, ValueCmp, &table), ZOK);
    EXPECT_EQ(Zos_CbufHoldD(parent, table), 1u);
    // 0x31, 0x32 and 0x33 share key 3 (bucket 0): newest first in the chain.
    for (uintptr_t v : {0x31, 0x32, 0x33, 0x10}) ASSERT_EQ(Zos_HashInsert(table, v, v, 0, 0), ZOK);
    const ST_ZOS_HASH_NODE *n = table->ppstBucket[0];
    ASSERT_TRUE(n != nullptr && n->pstNext != nullptr && n->pstNext->pstNext != nullptr);
    EXPECT_EQ(n->zItem, 0x33u);
    EXPECT_EQ(n->pstNext->zItem, 0x32u);
    EXPECT_EQ(n->pstNext->pstNext->zItem, 0x31u);
    EXPECT_EQ(table->pstFree, nullptr);
    // Freed nodes are reused last freed first.
    const ST_ZOS_HASH_NODE *mid = n->pstNext;
    ASSERT_EQ(Zos_HashRemove(table, 0x33, 0, 0), ZOK);
    ASSERT_EQ(Zos_HashRemove(table, 0x32, 0, 0), ZOK);
    EXPECT_EQ(table->pstFree, mid);
    uintptr_t item = 0;
    EXPECT_EQ(Zos_HashFindByKey(table, 3, 0x31, 0, 0, &item), 1u);
    EXPECT_EQ(item, 0x31u);
    EXPECT_EQ(Zos_HashFindByKey(table, 4, 0x31, 0, 0, &item), 0u);  // key 4 is bucket 1
    Zos_CbufDelete(parent);
}

TEST_F(ZosTest, HashKeyMakingFailures) {
    ST_ZOS_HASH hash;
    ASSERT_EQ(Zos_HashCreateX(&hash, 2, 2, FlakyKey, ValueCmp), ZOK);
    auto failAt = [](int n) { g_keyCalls = 0, g_failAt = n; };
    failAt(1);  // the first making fails: nothing is taken from the pool
    EXPECT_EQ(Zos_HashInsert(&hash, 5, 5, 0, 0), ZFAILED);
    failAt(2);  // the second fails: the node already taken is lost for good
    EXPECT_EQ(Zos_HashInsert(&hash, 5, 5, 0, 0), ZFAILED);
    failAt(0);
    EXPECT_EQ(Zos_HashFind(&hash, 5, 0, 0, nullptr), 0u);
    EXPECT_EQ(Zos_HashInsert(&hash, 5, 5, 0, 0), ZOK);
    EXPECT_EQ(Zos_HashInsert(&hash, 6, 6, 0, 0), ZFAILED);  // no second node
    failAt(1);
    EXPECT_EQ(Zos_HashFind(&hash, 5, 0, 0, nullptr), 0u);  // no key, no match
    failAt(1);
    EXPECT_EQ(Zos_HashRemove(&hash, 5, 0, 0), ZFAILED);
    failAt(0);
    EXPECT_EQ(Zos_HashRemove(&hash, 5, 0, 0), ZOK);
    Zos_HashDelete(&hash);
}

TEST_F(ZosTest, HashRandomUseMatchesModel) {
    for (uint32_t seed : {1u, 2u, 3u}) {
        constexpr uint32_t kBuckets = 13, kNodes = 300;
        ST_ZOS_HASH hash;
        ASSERT_EQ(Zos_HashCreateX(&hash, kBuckets, kNodes, ValueKey, ValueCmp), ZOK);
        std::unordered_multimap<uint32_t, uintptr_t> model;  // key -> values
        std::mt19937 rng(seed);
        auto has = [&](uintptr_t v) {
            auto range = model.equal_range(static_cast<uint32_t>(v >> 4));
            for (auto it = range.first; it != range.second; ++it) {
                if (it->second == v) return it;
            }
            return model.end();
        };
        for (int op = 0; op < 10000; ++op) {
            const uintptr_t v = 1 + rng() % 600;
            const auto it = has(v);
            const uint32_t what = rng() % 3;
            uintptr_t item = 0;
            if (what == 0) {
                const bool ok = it == model.end() && model.size() < kNodes;
                ASSERT_EQ(Zos_HashInsert(&hash, v, v, 0, 0), ok ? ZOK : ZFAILED);
                if (ok) model.emplace(static_cast<uint32_t>(v >> 4), v);
            } else if (what == 1) {
                ASSERT_EQ(Zos_HashFind(&hash, v, 0, 0, &item), it != model.end() ? 1u : 0u);
                ASSERT_EQ(item, it != model.end() ? v : 0);
            } else {
                ASSERT_EQ(Zos_HashRemove(&hash, v, 0, 0), it != model.end() ? ZOK : ZFAILED);
                if (it != model.end()) model.erase(it);
            }
        }
        // Every chain holds exactly the model's entries of its bucket, and
        // the free list the rest of the nodes.
        size_t chained = 0, free = 0;
        for (uint32_t b = 0; b < kBuckets; ++b) {
            for (auto *n = hash.ppstBucket[b]; n != nullptr; n = n->pstNext, ++chained) {
                ASSERT_EQ((n->zItem >> 4) % kBuckets, b);
                ASSERT_NE(has(n->zItem), model.end());
            }
        }
        for (auto *n = hash.pstFree; n != nullptr; n = n->pstNext) ++free;
        EXPECT_EQ(chained, model.size());
        EXPECT_EQ(chained + free, kNodes);
        Zos_HashDelete(&hash);
    }
}
