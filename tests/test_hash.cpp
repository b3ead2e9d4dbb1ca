// Hash tables: key functions, creation limits, node pool accounting, chain
// order, random use against a standard container, and the built-in key
// kinds and bucket choice against the general road.
#include <strings.h>

#include <cstring>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "../src/zos/zos_fastmod.h"
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

// Each allocation of both create forms fails in turn, and the failed
// create names the step that failed (that nothing stays allocated is the
// allocation-failure test's). Without the layer's threads no other
// allocation meets the failing heap.
TEST_F(ZosQuietTest, HashCreateNamesTheFailedStep) {
    for (const bool ax : {false, true}) {
        const std::string form = ax ? "HashCreateAX" : "HashCreateX";
        std::vector<std::string> steps;
        const ktest::FailingHeap heap;
        for (int n = 1; n < 16; ++n) {
            ktest::g_failAt = n;
            ktest::g_calls = 0;
            ktest::ClearLogged();
            ST_ZOS_HASH hash{};
            ST_ZOS_HASH *made = nullptr;
            // Large enough that the buckets and nodes need blocks of their own.
            const uint32_t rc =
                ax ? Zos_HashCreateAX(nullptr, 4096, 4096, ValueKey, ValueCmp, &made)
                   : Zos_HashCreate(&hash, 4096, ValueKey, ValueCmp);
            if (rc == ZOK) {
                EXPECT_EQ(ax ? Zos_HashDelete(made) : Zos_HashDelete(&hash), ZOK);
                break;
            }
            EXPECT_EQ(made, nullptr);
            for (const char *step : {" create memory buffer.", " alloc mem."}) {
                if (ktest::LoggedContains(form + step)) steps.push_back(step);
            }
        }
        // The arena, then the buckets, then the nodes.
        const std::vector<std::string> want{" create memory buffer.", " alloc mem.", " alloc mem."};
        EXPECT_EQ(steps, want) << form;
    }
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
    // A bucket array whose size cut to 32 bits would be a few bytes.
    const uint32_t wraps = sizeof(void *) == 8 ? 0x20000002 : 0x3FFFFFFE;
    EXPECT_EQ(Zos_HashCreateX(&hash, wraps, 1, ValueKey, ValueCmp), ZFAILED);
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
    ktest::ClearLogged();
    EXPECT_EQ(Zos_HashInsert(&hash, 0x20, 0x20, 0, 0), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("HashInsert no node is free."));
    EXPECT_EQ(Zos_HashInsert(&hash, 0x10, 0x10, 0, 0), ZFAILED);  // item exists
    EXPECT_EQ(Zos_HashRemove(&hash, 0x20, 0, 0), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("HashInsert item exist."));
    EXPECT_TRUE(ktest::LoggedContains("HashRemove node item is not existed."));
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

// The bucket choice without a division: the fast remainder against % for
// divisors of every kind (1, powers of two and their neighbours, primes,
// the largest 32-bit values) and values at the edges of the range.

TEST(HashFastMod, MatchesRemainder) {
    std::vector<uint32_t> divisors = {1,          2,          3,          5,          7,
                                      13,         31,         1000,       1023,       1024,
                                      1025,       1031,       65535,      65536,      65537,
                                      0x3FFFFFFD, 0x3FFFFFFE, 0x7FFFFFFF, 0x80000000, 0x80000001,
                                      0xFFFFFFFB, 0xFFFFFFFE, 0xFFFFFFFF};
    std::mt19937 rng(21);
    for (int i = 0; i < 200; ++i) divisors.push_back(1 + rng() % 0xFFFFFFFEu);
    for (uint32_t d : divisors) {
        const uint64_t m = zos::FastModMul(d);
        std::vector<uint32_t> values = {0,
                                        1,
                                        d - 1,
                                        d,
                                        d + 1,
                                        2 * d,
                                        0x7FFFFFFF,
                                        0x80000000,
                                        0xFFFFFFFE,
                                        0xFFFFFFFF,
                                        0xFFFFFFFF / d * d,
                                        0xFFFFFFFF / d * d - 1};
        for (int j = 0; j < 300; ++j) values.push_back(static_cast<uint32_t>(rng()));
        for (uint32_t a : values) {
            ASSERT_EQ(zos::FastMod(a, m, d), a % d) << a << " mod " << d;
            ASSERT_EQ(zos::FastModSplit(a, m, d), a % d) << a << " mod " << d;
        }
    }
}

namespace {

// Keys given straight by the value: the bucket of an item is then known.
uint32_t SelfKey(uintptr_t zValue, uintptr_t, uintptr_t, uint32_t *puiKey) {
    *puiKey = static_cast<uint32_t>(zValue);
    return 0;
}

// The built-in key functions behind a call of the caller's own, so a table
// made with them takes the road of any other key function.
uint32_t WrapStr(uintptr_t s, uintptr_t d, uintptr_t n, uint32_t *k) {
    return Zos_HashKeyFromStr(s, d, n, k);
}
uint32_t WrapNoCase(uintptr_t s, uintptr_t d, uintptr_t n, uint32_t *k) {
    return Zos_HashKeyFromStrNoCase(s, d, n, k);
}
uint32_t WrapUint32(uintptr_t s, uintptr_t d, uintptr_t n, uint32_t *k) {
    return Zos_HashKeyFromUint32(s, d, n, k);
}

// Items are pointers to NUL-terminated texts (string kinds, compared
// without case for the NoCase kind) or values (Uint32 kind).
uint32_t TextCmp(uintptr_t zItem, uintptr_t, uintptr_t zText, uintptr_t zLen) {
    return strncmp(reinterpret_cast<const char *>(zItem), reinterpret_cast<const char *>(zText),
                   zLen) == 0 &&
                   reinterpret_cast<const char *>(zItem)[zLen] == 0
               ? 0
               : 1;
}
uint32_t TextCaseCmp(uintptr_t zItem, uintptr_t, uintptr_t zText, uintptr_t zLen) {
    return strncasecmp(reinterpret_cast<const char *>(zItem), reinterpret_cast<const char *>(zText),
                       zLen) == 0 &&
                   reinterpret_cast<const char *>(zItem)[zLen] == 0
               ? 0
               : 1;
}
uint32_t WordEq(uintptr_t zItem, uintptr_t, uintptr_t zValue, uintptr_t) {
    return zItem == zValue ? 0 : 1;
}

std::vector<std::vector<uintptr_t>> Chains(const ST_ZOS_HASH &hash) {
    std::vector<std::vector<uintptr_t>> chains(hash.uiSize);
    for (uint32_t b = 0; b < hash.uiSize; ++b) {
        for (auto *n = hash.ppstBucket[b]; n != nullptr; n = n->pstNext)
            chains[b].push_back(n->zItem);
    }
    return chains;
}

}  // namespace

TEST_F(ZosTest, HashBucketIsKeyModSize) {
    const uint32_t keys[] = {0,          1,          2,          12,        13,
                             1023,       1024,       1031,       65537,     0x7FFFFFFF,
                             0x80000000, 0xFFFFFFFB, 0xFFFFFFFE, 0xFFFFFFFF};
    for (uint32_t size : {1u, 2u, 3u, 7u, 13u, 16u, 1000u, 1024u, 1031u}) {
        ST_ZOS_HASH hash;
        ASSERT_EQ(Zos_HashCreateX(&hash, size, 32, SelfKey, WordEq), ZOK);
        for (uint32_t k : keys) ASSERT_EQ(Zos_HashInsert(&hash, k, k, k, 0), ZOK);
        for (uint32_t k : keys) {
            bool there = false;
            for (auto *n = hash.ppstBucket[k % size]; n != nullptr; n = n->pstNext) {
                there = there || n->zItem == k;
            }
            EXPECT_TRUE(there) << k << " in " << size;
            uintptr_t item = 1;
            EXPECT_EQ(Zos_HashFindByKey(&hash, k, k, k, 0, &item), 1u);
            EXPECT_EQ(item, k);
            EXPECT_EQ(Zos_HashFind(&hash, k, k, 0, &item), 1u);
        }
        for (uint32_t k : keys) ASSERT_EQ(Zos_HashRemove(&hash, k, k, 0), ZOK);
        EXPECT_EQ(Zos_HashFind(&hash, 13, 13, 0, nullptr), 0u);
        Zos_HashDelete(&hash);
    }
}

// A table made with a built-in key function keeps exactly the chains, the
// free list and the answers of one whose key function is the caller's own
// call of the same function: every kind, seeded and not, sizes with and
// without a power of two.
TEST_F(ZosTest, HashBuiltInKeysMatchCallerKeys) {
    struct Kind {
        PFN_ZOS_HASHKEY pfnBuiltIn, pfnWrapped;
        PFN_ZOS_HASHCMP pfnCmp;
        bool bText;
    };
    const Kind kinds[] = {{Zos_HashKeyFromStr, WrapStr, TextCmp, true},
                          {Zos_HashKeyFromStrNoCase, WrapNoCase, TextCaseCmp, true},
                          {Zos_HashKeyFromUint32, WrapUint32, WordEq, false}};
    std::vector<std::string> texts;
    for (int i = 0; i < 120; ++i)
        texts.push_back((i % 2 ? "Via-" : "via-") + std::to_string(i * 7919));
    for (const Kind &kind : kinds) {
        for (uint32_t size : {16u, 13u, 1u}) {
            for (uintptr_t seed : {uintptr_t{0}, uintptr_t{0x9E3779B9}}) {
                ST_ZOS_HASH a, b;
                ASSERT_EQ(Zos_HashCreateX(&a, size, 100, kind.pfnBuiltIn, kind.pfnCmp), ZOK);
                ASSERT_EQ(Zos_HashCreateX(&b, size, 100, kind.pfnWrapped, kind.pfnCmp), ZOK);
                std::mt19937 rng(size + static_cast<uint32_t>(seed));
                for (int op = 0; op < 2000; ++op) {
                    const size_t i = rng() % texts.size();
                    const uintptr_t item = kind.bText
                                               ? reinterpret_cast<uintptr_t>(texts[i].c_str())
                                               : uintptr_t{0xFFFFFF00u} + i * 0x01000193u;
                    const uintptr_t arg1 = item;
                    const uintptr_t arg2 = kind.bText ? texts[i].size() : 0;
                    uintptr_t got[2] = {0, 0};
                    switch (rng() % 3) {
                        case 0:
                            ASSERT_EQ(Zos_HashInsert(&a, item, seed, arg1, arg2),
                                      Zos_HashInsert(&b, item, seed, arg1, arg2));
                            break;
                        case 1:
                            ASSERT_EQ(Zos_HashFind(&a, seed, arg1, arg2, &got[0]),
                                      Zos_HashFind(&b, seed, arg1, arg2, &got[1]));
                            ASSERT_EQ(got[0], got[1]);
                            break;
                        default:
                            ASSERT_EQ(Zos_HashRemove(&a, seed, arg1, arg2),
                                      Zos_HashRemove(&b, seed, arg1, arg2));
                    }
                }
                EXPECT_EQ(Chains(a), Chains(b));
                size_t freeA = 0, freeB = 0;
                for (auto *n = a.pstFree; n != nullptr; n = n->pstNext) ++freeA;
                for (auto *n = b.pstFree; n != nullptr; n = n->pstNext) ++freeB;
                EXPECT_EQ(freeA, freeB);
                Zos_HashDelete(&a);
                Zos_HashDelete(&b);
            }
        }
    }
}
