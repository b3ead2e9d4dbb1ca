// Allocation plus free of one block from a bucket pool (unlocked and
// locked) and from jemalloc (mallocx/dallocx, and malloc/free, which in a
// process linking jemalloc are jemalloc's too), on one and two threads.
// The C library's own malloc is measured by kestro_bench_malloc, a program
// of its own that links neither the library nor jemalloc. A mutex around a
// bare first-in-first-out free list shows what one shared lock costs by
// itself.
#include <benchmark/benchmark.h>
#include <jemalloc/jemalloc.h>

#include <cstddef>
#include <cstdlib>
#include <mutex>

#include "bench_layer.h"
#include "kestro_lite.h"

namespace {

// The memory pool's size classes, with one initial block per bucket and
// without shrinking, so the steady state is a free-list dequeue.
const ST_ZOS_BKT_INFO kRows[] = {{32, 64, 64}, {64, 32, 32}, {128, 16, 16}, {256, 8, 8},
                                 {512, 4, 4},  {1024, 4, 4}, {2048, 4, 4},  {4096, 2, 2},
                                 {5120, 2, 2}, {8192, 1, 1}, {16384, 1, 1}, {32768, 1, 1},
                                 {65536, 1, 1}};

ZPOOL MakePool(uint8_t locked) {
    const ST_ZOS_POOL_CFG cfg{"bench", kRows, nullptr, nullptr, locked, 0, 1, 13};
    return Zos_PoolCreate(&cfg);
}

// The one locked pool both threads share, made on first use (the pool
// needs only the platform table, which comes with it).
ZPOOL LockedPool() {
    static const ZPOOL pool = MakePool(1);
    return pool;
}

void PoolUnlocked(benchmark::State &state) {
    // One unlocked pool per thread: an unlocked pool is never shared.
    ZPOOL pool = MakePool(0);
    KBENCH_REQUIRE(state, pool != nullptr);
    const auto size = static_cast<uint32_t>(state.range(0));
    for (auto _ : state) {
        void *p = Zos_PoolAlloc(pool, size);
        benchmark::DoNotOptimize(p);
        Zos_PoolFree(pool, p);
        KBENCH_CHECK(state, p != nullptr);
    }
    Zos_PoolDelete(pool);
}

void PoolLocked(benchmark::State &state) {
    ZPOOL pool = LockedPool();
    KBENCH_REQUIRE(state, pool != nullptr);
    const auto size = static_cast<uint32_t>(state.range(0));
    for (auto _ : state) {
        void *p = Zos_PoolAlloc(pool, size);
        benchmark::DoNotOptimize(p);
        Zos_PoolFree(pool, p);
        KBENCH_CHECK(state, p != nullptr);
    }
}

void Jemalloc(benchmark::State &state) {
    const auto size = static_cast<size_t>(state.range(0));
    for (auto _ : state) {
        void *p = mallocx(size, 0);
        benchmark::DoNotOptimize(p);
        dallocx(p, 0);
        KBENCH_CHECK(state, p != nullptr);
    }
}

// malloc/free here resolve to jemalloc's, which replaces them in every
// process that links it.
void JemallocMallocFree(benchmark::State &state) {
    const auto size = static_cast<size_t>(state.range(0));
    for (auto _ : state) {
        void *p = std::malloc(size);
        benchmark::DoNotOptimize(p);
        std::free(p);
        KBENCH_CHECK(state, p != nullptr);
    }
}

// The least a pool with one lock and first-in-first-out reuse does: a
// std::mutex around a doubly linked free list of ready nodes, the head
// taken and the node put back at the tail. Shared by both threads like the
// locked pool; no checks, no counts, no size classes.
class MutexFifo {
  public:
    MutexFifo() {
        for (Node &n : nodes_) PutBack(&n);
    }
    void *Take() {
        std::lock_guard<std::mutex> hold(mutex_);
        Node *n = head_;
        if (n == nullptr) return nullptr;
        head_ = n->next;
        (head_ != nullptr ? head_->prev : tail_) = nullptr;
        return n->data;
    }
    void Give(void *p) {
        std::lock_guard<std::mutex> hold(mutex_);
        PutBack(reinterpret_cast<Node *>(static_cast<char *>(p) - offsetof(Node, data)));
    }

  private:
    struct Node {
        Node *next;
        Node *prev;
        char data[4096];
    };
    void PutBack(Node *n) {
        n->next = nullptr;
        n->prev = tail_;
        (tail_ != nullptr ? tail_->next : head_) = n;
        tail_ = n;
    }
    std::mutex mutex_;
    Node *head_ = nullptr;
    Node *tail_ = nullptr;
    Node nodes_[8];
};

void MutexFifoFloor(benchmark::State &state) {
    static MutexFifo fifo;
    for (auto _ : state) {
        void *p = fifo.Take();
        benchmark::DoNotOptimize(p);
        if (p != nullptr) fifo.Give(p);
        KBENCH_CHECK(state, p != nullptr);
    }
}

// Two-thread rows are repeated and reported as minimum and median.
#define KESTRO_POOL_BENCH(fn)                                                      \
    BENCHMARK(fn)->Arg(32)->Arg(256)->Arg(4096)->Threads(1)->UseRealTime()->Apply( \
        kbench::Counted);                                                          \
    BENCHMARK(fn)->Arg(32)->Arg(256)->Arg(4096)->Threads(2)->UseRealTime()->Apply(kbench::MinMedian)

KESTRO_POOL_BENCH(PoolUnlocked);
KESTRO_POOL_BENCH(PoolLocked);
KESTRO_POOL_BENCH(Jemalloc);
KESTRO_POOL_BENCH(JemallocMallocFree);
BENCHMARK(MutexFifoFloor)->Threads(1)->UseRealTime()->Apply(kbench::Counted);
BENCHMARK(MutexFifoFloor)->Threads(2)->UseRealTime()->Apply(kbench::MinMedian);

}  // namespace
