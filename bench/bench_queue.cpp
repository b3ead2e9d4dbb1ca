// Queue and priority queue against a std::mutex + std::deque +
// std::condition_variable queue doing the same work: add then poll on one
// thread, and one producer feeding one blocking consumer. The priority
// queue is also set against the same baseline keeping each level in a
// std::list, the library's own shape (one linked node per item), which
// shows what the node layout costs when the two threads run on two cores.
#include <benchmark/benchmark.h>
#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

#include "bench_layer.h"
#include "kestro_lite.h"

namespace {

constexpr uint32_t kLevels = 4;
constexpr uintptr_t kBatch = 20000;  // items per producer/consumer round

class StdQueue {
  public:
    void Add(uintptr_t v) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            items_.push_back(v);
        }
        cv_.notify_one();
    }
    bool Poll(bool wait, uintptr_t *v) {
        std::unique_lock<std::mutex> lock(mutex_);
        if (wait) cv_.wait(lock, [this] { return !items_.empty(); });
        if (items_.empty()) return false;
        *v = items_.front();
        items_.pop_front();
        return true;
    }

  private:
    std::mutex mutex_;
    std::condition_variable cv_;
    std::deque<uintptr_t> items_;
};

template <typename Level>
class StdPQueue {
  public:
    void Add(uint32_t level, uintptr_t v) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            levels_[level].push_back(v);
            ++count_;
        }
        cv_.notify_one();
    }
    bool Poll(bool wait, uintptr_t *v) {
        std::unique_lock<std::mutex> lock(mutex_);
        if (wait) cv_.wait(lock, [this] { return count_ != 0; });
        if (count_ == 0) return false;
        for (auto &level : levels_) {
            if (level.empty()) continue;
            *v = level.front();
            level.pop_front();
            --count_;
            return true;
        }
        return false;
    }

  private:
    std::mutex mutex_;
    std::condition_variable cv_;
    Level levels_[kLevels];
    uint32_t count_ = 0;
};

// Adapters so one body drives every kind. The kestro queues are locked and
// blocking like the baseline; the non-blocking one shows the semaphore's
// share.
template <uint32_t kBlocking>
struct ZQueueOps {
    ZQUEUE q = nullptr;
    ZQueueOps() { Zos_QueueCreate(1, kBlocking, 256, 0xFFFF, &q); }
    bool Ok() const { return q != nullptr; }
    ~ZQueueOps() { Zos_QueueDelete(q); }
    bool Add(uintptr_t v) { return Zos_QueueAdd(q, v) == ZOK; }
    bool Poll(bool wait, uintptr_t *v) { return Zos_QueuePoll(q, wait, v) == ZOK; }
};

// The level of item v (1 .. kBatch in a round). Rotating over the levels
// makes the consumer take items out of their arrival order, as a priority
// queue is for; in arrival order the levels are filled one after the other
// (the first quarter of a round at level 0, and so on), so every level is
// used but items leave in the order they came.
template <bool kInOrder>
uint32_t LevelOf(uintptr_t v) {
    if (kInOrder) return static_cast<uint32_t>((v - 1) % kBatch * kLevels / kBatch);
    return static_cast<uint32_t>(v % kLevels);
}

template <bool kInOrder = false>
struct ZPQueueOps {
    ZPQUEUE q = nullptr;
    ZPQueueOps() { Zos_PQueueCreate(1, 1, 256, 0xFFFF, kLevels - 1, &q); }
    bool Ok() const { return q != nullptr; }
    ~ZPQueueOps() { Zos_PQueueDelete(q); }
    bool Add(uintptr_t v) { return Zos_PQueueAdd(q, LevelOf<kInOrder>(v), v) == ZOK; }
    bool Poll(bool wait, uintptr_t *v) { return Zos_PQueuePoll(q, wait, nullptr, v) == ZOK; }
};

struct StdQueueOps {
    StdQueue q;
    bool Add(uintptr_t v) {
        q.Add(v);
        return true;
    }
    bool Poll(bool wait, uintptr_t *v) { return q.Poll(wait, v); }
    bool Ok() const { return true; }
};

template <bool kInOrder = false, typename Level = std::deque<uintptr_t>>
struct StdPQueueOps {
    StdPQueue<Level> q;
    bool Add(uintptr_t v) {
        q.Add(LevelOf<kInOrder>(v), v);
        return true;
    }
    bool Poll(bool wait, uintptr_t *v) { return q.Poll(wait, v); }
    bool Ok() const { return true; }
};

template <typename Ops>
void SingleThread(benchmark::State &state) {
    Ops ops;
    KBENCH_REQUIRE(state, ops.Ok());
    uintptr_t v = 0;
    uintptr_t n = 1;
    for (auto _ : state) {
        const bool added = ops.Add(n);
        const bool polled = ops.Poll(false, &v);
        benchmark::DoNotOptimize(v);
        KBENCH_CHECK(state, added && polled && v == n);
        ++n;
    }
    state.SetItemsProcessed(state.iterations());
}

// Pins the calling thread to one CPU; false where that cannot be done.
bool PinTo(int cpu) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(cpu, &set);
    return pthread_setaffinity_np(pthread_self(), sizeof(set), &set) == 0;
}

// Each round a producer thread adds kBatch items while this thread polls
// them with wait. Unpinned, the scheduler decides whether the two share a
// core (the consumer then mostly wakes after the producer is done) or run
// side by side, and the figures of one process swing between the two.
// kPinned puts the producer and the consumer on two different cores, so
// every round measures the hand-off across cores.
template <typename Ops, bool kPinned = false>
void ProducerConsumer(benchmark::State &state) {
    Ops ops;
    KBENCH_REQUIRE(state, ops.Ok());
    cpu_set_t saved;
    if (kPinned) {
        KBENCH_REQUIRE(state, std::thread::hardware_concurrency() >= 2);
        KBENCH_REQUIRE(
            state, pthread_getaffinity_np(pthread_self(), sizeof(saved), &saved) == 0 && PinTo(0));
    }
    for (auto _ : state) {
        std::thread producer([&ops] {
            if (kPinned) PinTo(1);
            for (uintptr_t i = 1; i <= kBatch; ++i) {
                while (!ops.Add(i)) std::this_thread::yield();  // bucket full
            }
        });
        uintptr_t v = 0;
        uintptr_t sum = 0;
        bool ok = true;
        for (uintptr_t i = 0; i < kBatch; ++i) {
            ok &= ops.Poll(true, &v);
            sum += v;
        }
        producer.join();
        benchmark::DoNotOptimize(sum);
        KBENCH_CHECK(state, ok && sum == kBatch * (kBatch + 1) / 2);
    }
    if (kPinned) pthread_setaffinity_np(pthread_self(), sizeof(saved), &saved);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kBatch));
}

BENCHMARK_TEMPLATE(SingleThread, ZQueueOps<1>)
    ->Name("Queue/add_poll/kestro")
    ->Apply(kbench::Counted);
BENCHMARK_TEMPLATE(SingleThread, ZQueueOps<0>)
    ->Name("Queue/add_poll/kestro_nonblocking")
    ->Apply(kbench::Counted);
BENCHMARK_TEMPLATE(SingleThread, StdQueueOps)->Name("Queue/add_poll/std")->Apply(kbench::Counted);
BENCHMARK_TEMPLATE(ProducerConsumer, ZQueueOps<1>)
    ->Name("Queue/1p1c/kestro")
    ->UseRealTime()
    ->Apply(kbench::MinMedian);
BENCHMARK_TEMPLATE(ProducerConsumer, StdQueueOps)
    ->Name("Queue/1p1c/std")
    ->UseRealTime()
    ->Apply(kbench::MinMedian);
BENCHMARK_TEMPLATE(SingleThread, ZPQueueOps<>)
    ->Name("PQueue/add_poll/kestro")
    ->Apply(kbench::Counted);
BENCHMARK_TEMPLATE(SingleThread, StdPQueueOps<>)
    ->Name("PQueue/add_poll/std")
    ->Apply(kbench::Counted);
BENCHMARK_TEMPLATE(ProducerConsumer, ZPQueueOps<>)
    ->Name("PQueue/1p1c/kestro")
    ->UseRealTime()
    ->Apply(kbench::MinMedian);
BENCHMARK_TEMPLATE(ProducerConsumer, StdPQueueOps<>)
    ->Name("PQueue/1p1c/std")
    ->UseRealTime()
    ->Apply(kbench::MinMedian);
BENCHMARK_TEMPLATE(ProducerConsumer, ZQueueOps<1>, true)
    ->Name("Queue/1p1c_two_cores/kestro")
    ->UseRealTime()
    ->Apply(kbench::MinMedian);
BENCHMARK_TEMPLATE(ProducerConsumer, StdQueueOps, true)
    ->Name("Queue/1p1c_two_cores/std")
    ->UseRealTime()
    ->Apply(kbench::MinMedian);
BENCHMARK_TEMPLATE(ProducerConsumer, ZPQueueOps<>, true)
    ->Name("PQueue/1p1c_two_cores/kestro")
    ->UseRealTime()
    ->Apply(kbench::MinMedian);
BENCHMARK_TEMPLATE(ProducerConsumer, StdPQueueOps<>, true)
    ->Name("PQueue/1p1c_two_cores/std")
    ->UseRealTime()
    ->Apply(kbench::MinMedian);
BENCHMARK_TEMPLATE(ProducerConsumer, StdPQueueOps<false, std::list<uintptr_t>>, true)
    ->Name("PQueue/1p1c_two_cores/std_list")
    ->UseRealTime()
    ->Apply(kbench::MinMedian);
BENCHMARK_TEMPLATE(ProducerConsumer, ZPQueueOps<true>, true)
    ->Name("PQueue/1p1c_two_cores_in_order/kestro")
    ->UseRealTime()
    ->Apply(kbench::MinMedian);
BENCHMARK_TEMPLATE(ProducerConsumer, StdPQueueOps<true>, true)
    ->Name("PQueue/1p1c_two_cores_in_order/std")
    ->UseRealTime()
    ->Apply(kbench::MinMedian);
BENCHMARK_TEMPLATE(ProducerConsumer, StdPQueueOps<true, std::list<uintptr_t>>, true)
    ->Name("PQueue/1p1c_two_cores_in_order/std_list")
    ->UseRealTime()
    ->Apply(kbench::MinMedian);

}  // namespace
