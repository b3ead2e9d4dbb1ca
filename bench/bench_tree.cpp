// The red-black tree against std::map (insert, find, remove of 1,000 and
// 100,000 keys in random order) and the hash table against
// std::unordered_map (find among 1,000 entries), plain and in the shape of
// the table's interface (an out-of-line find, a compare function by pointer).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <map>
#include <random>
#include <unordered_map>
#include <vector>

#include "bench_layer.h"
#include "chain/chain_walk.h"
#include "kestro_lite.h"

namespace {

// Distinct keys in random order, the same for every run of one size.
const std::vector<uintptr_t> &Keys(size_t n) {
    static std::map<size_t, std::vector<uintptr_t>> cache;
    auto &keys = cache[n];
    if (keys.empty()) {
        for (size_t i = 0; i < n; ++i) keys.push_back(i * 2654435761u % 0xFFFFFFFBu);
        std::shuffle(keys.begin(), keys.end(), std::mt19937(42));
    }
    return keys;
}

ZRBT BuildTree(const std::vector<uintptr_t> &keys) {
    ZRBT tree = Zos_RbtCreate(nullptr);
    for (uintptr_t k : keys) Zos_RbtAdd(tree, k, k);
    return tree;
}

std::map<uintptr_t, uintptr_t> BuildMap(const std::vector<uintptr_t> &keys) {
    std::map<uintptr_t, uintptr_t> map;
    for (uintptr_t k : keys) map.emplace(k, k);
    return map;
}

void TreeInsert_Rbt(benchmark::State &state) {
    const auto &keys = Keys(state.range(0));
    for (auto _ : state) {
        ZRBT tree = BuildTree(keys);
        benchmark::DoNotOptimize(tree);
        Zos_RbtDelete(tree);
    }
    state.SetItemsProcessed(state.iterations() * keys.size());
}

void TreeInsert_StdMap(benchmark::State &state) {
    const auto &keys = Keys(state.range(0));
    for (auto _ : state) {
        auto map = BuildMap(keys);
        benchmark::DoNotOptimize(map);
    }
    state.SetItemsProcessed(state.iterations() * keys.size());
}

void TreeFind_Rbt(benchmark::State &state) {
    const auto &keys = Keys(state.range(0));
    ZRBT tree = BuildTree(keys);
    KBENCH_REQUIRE(state, tree != nullptr);
    for (auto _ : state) {
        size_t found = 0;
        for (uintptr_t k : keys) {
            ZRBTNODE node = Zos_RbtFind(tree, k);
            benchmark::DoNotOptimize(node);
            found += node != nullptr;
        }
        KBENCH_CHECK(state, found == keys.size());
    }
    Zos_RbtDelete(tree);
    state.SetItemsProcessed(state.iterations() * keys.size());
}

void TreeFind_StdMap(benchmark::State &state) {
    const auto &keys = Keys(state.range(0));
    auto map = BuildMap(keys);
    for (auto _ : state) {
        for (uintptr_t k : keys) benchmark::DoNotOptimize(map.find(k));
    }
    state.SetItemsProcessed(state.iterations() * keys.size());
}

// Removal of every key (in another random order); the tree is rebuilt
// outside the timed part.
void TreeRemove_Rbt(benchmark::State &state) {
    const auto &keys = Keys(state.range(0));
    std::vector<uintptr_t> order(keys);
    std::shuffle(order.begin(), order.end(), std::mt19937(7));
    for (auto _ : state) {
        state.PauseTiming();
        ZRBT tree = BuildTree(keys);
        state.ResumeTiming();
        uint32_t rc = ZOK;
        for (uintptr_t k : order) rc |= Zos_RbtRmv(tree, k);
        state.PauseTiming();
        KBENCH_CHECK(state, rc == ZOK);
        Zos_RbtDelete(tree);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * keys.size());
}

void TreeRemove_StdMap(benchmark::State &state) {
    const auto &keys = Keys(state.range(0));
    std::vector<uintptr_t> order(keys);
    std::shuffle(order.begin(), order.end(), std::mt19937(7));
    for (auto _ : state) {
        state.PauseTiming();
        auto map = BuildMap(keys);
        state.ResumeTiming();
        for (uintptr_t k : order) map.erase(k);
        benchmark::DoNotOptimize(map);
    }
    state.SetItemsProcessed(state.iterations() * keys.size());
}

// With Zos_HashKeyFromUint32 the key data is the seed (0 here) and the
// value comes as argument 1.
uint32_t WordCmp(uintptr_t zItem, uintptr_t, uintptr_t zValue, uintptr_t) {
    return zItem == zValue ? 0 : 1;
}

// The sum of the 1,000 keys: what a round of finds must add up to.
uintptr_t KeySum() {
    static const uintptr_t sum = [] {
        uintptr_t s = 0;
        for (uintptr_t k : Keys(1000)) s += k;
        return s;
    }();
    return sum;
}

// Rounds of finds of every key in a table of the given bucket count, made
// with the value key function; kFind has Zos_HashFind's shape.
template <auto kFind>
void RunFinds(benchmark::State &state, uint32_t buckets) {
    const auto &keys = Keys(1000);
    ST_ZOS_HASH hash;
    KBENCH_REQUIRE(state, Zos_HashCreate(&hash, buckets, Zos_HashKeyFromUint32, WordCmp) == ZOK);
    for (uintptr_t k : keys) Zos_HashInsert(&hash, k, 0, k, 0);
    uintptr_t item = 0;
    for (auto _ : state) {
        size_t found = 0;
        uintptr_t sum = 0;
        for (uintptr_t k : keys) {
            found += kFind(&hash, 0, k, 0, &item);
            sum += item;
        }
        benchmark::DoNotOptimize(sum);
        KBENCH_CHECK(state, found == keys.size() && sum == KeySum());
    }
    Zos_HashDelete(&hash);
    state.SetItemsProcessed(state.iterations() * keys.size());
}

void HashFind_Zos(benchmark::State &state) {
    RunFinds<Zos_HashFind>(state, static_cast<uint32_t>(state.range(0)));
}

void HashFind_StdUnorderedMap(benchmark::State &state) {
    const auto &keys = Keys(1000);
    std::unordered_map<uintptr_t, uintptr_t> map;
    for (uintptr_t k : keys) map.emplace(k, k);
    for (auto _ : state) {
        uintptr_t sum = 0;
        for (uintptr_t k : keys) {
            auto it = map.find(k);
            sum += it == map.end() ? 0 : it->second;
        }
        benchmark::DoNotOptimize(sum);
        KBENCH_CHECK(state, sum == KeySum());
    }
    state.SetItemsProcessed(state.iterations() * keys.size());
}

// The shape the table's interface asks for, with std::unordered_map
// underneath: the find is a call that is not inlined into the loop, and the
// chain's key comparison goes through the caller's compare function by
// pointer. The difference to the plain std row is what that shape costs.
struct CallbackEq {
    PFN_ZOS_HASHCMP pfnCmp;
    bool operator()(uintptr_t a, uintptr_t b) const { return pfnCmp(a, 0, b, 0) == 0; }
};
using CallbackMap = std::unordered_map<uintptr_t, uintptr_t, std::hash<uintptr_t>, CallbackEq>;

__attribute__((noinline)) uint32_t CallbackFind(const CallbackMap &map, uintptr_t k,
                                                uintptr_t *item) {
    auto it = map.find(k);
    if (it == map.end()) return 0;
    *item = it->second;
    return 1;
}

void HashFind_StdUnorderedMapCallback(benchmark::State &state) {
    const auto &keys = Keys(1000);
    PFN_ZOS_HASHCMP cmp = WordCmp;
    benchmark::DoNotOptimize(cmp);  // known only at run time, as the table's is
    CallbackMap map(0, std::hash<uintptr_t>{}, CallbackEq{cmp});
    for (uintptr_t k : keys) map.emplace(k, k);
    uintptr_t item = 0;
    for (auto _ : state) {
        size_t found = 0;
        uintptr_t sum = 0;
        for (uintptr_t k : keys) {
            found += CallbackFind(map, k, &item);
            sum += item;
        }
        benchmark::DoNotOptimize(sum);
        KBENCH_CHECK(state, found == keys.size() && sum == KeySum());
    }
    state.SetItemsProcessed(state.iterations() * keys.size());
}

// The table's own find written again (chain/chain_walk.h) and run over the
// same table: compiled into this program, and called in a shared library
// of its own as Zos_HashFind is. The two differ only in the calls across
// shared objects (into the library, and back out to the compare function).
__attribute__((noinline)) uint32_t ChainWalkHere(const ST_ZOS_HASH *h, uintptr_t zKeyData,
                                                 uintptr_t zArg1, uintptr_t zArg2,
                                                 uintptr_t *pzItem) {
    return KbenchChainWalk(h, zKeyData, zArg1, zArg2, pzItem);
}

template <uint32_t (*kWalk)(const ST_ZOS_HASH *, uintptr_t, uintptr_t, uintptr_t, uintptr_t *)>
void HashFind_SameWalk(benchmark::State &state) {
    RunFinds<kWalk>(state, 1024);
}

}  // namespace

BENCHMARK(TreeInsert_Rbt)->Arg(1000)->Arg(100000);
BENCHMARK(TreeInsert_StdMap)->Arg(1000)->Arg(100000);
BENCHMARK(TreeFind_Rbt)->Arg(1000)->Arg(100000);
BENCHMARK(TreeFind_StdMap)->Arg(1000)->Arg(100000);
BENCHMARK(TreeRemove_Rbt)->Arg(1000)->Arg(100000);
BENCHMARK(TreeRemove_StdMap)->Arg(1000)->Arg(100000);
// 1024 buckets, and 1109: the count std::unordered_map picks for the same
// keys, so both spread them over the same number of chains.
BENCHMARK(HashFind_Zos)->Arg(1024)->Arg(1109)->Apply(kbench::Counted);
BENCHMARK(HashFind_StdUnorderedMap)->Apply(kbench::Counted);
BENCHMARK(HashFind_StdUnorderedMapCallback)->Apply(kbench::Counted);
BENCHMARK_TEMPLATE(HashFind_SameWalk, ChainWalkHere)
    ->Name("HashFind_SameWalk/in_program")
    ->Apply(kbench::Counted);
BENCHMARK_TEMPLATE(HashFind_SameWalk, KbenchChainWalkShared)
    ->Name("HashFind_SameWalk/shared_library")
    ->Apply(kbench::Counted);
