// Timers: starting and stopping one timer while N others run, on the
// queue timer (sorted expiry list, one node per tick) against a
// std::multimap timer set and an indexed binary heap doing the same work
// under a mutex; the firing lateness of the self manager's task while a
// module task keeps a processor busy; and the task's wake-ups per second
// with one periodic 1-second timer.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include <pthread.h>

#include "bench_layer.h"
#include "kestro_lite.h"

namespace {

void Nop(uint32_t, uint32_t, uintptr_t) {}

// Ticks of the N running timers: all different (1..N) or all the same;
// the measured timer goes after all of them, the far end of the list.
uint32_t TickOf(uint32_t i, bool spread) {
    return spread ? 1000 + i : 1000;
}
uint32_t MeasuredTick(uint32_t n, bool spread) {
    return spread ? 1000 + n : 1000;
}

void QTimerStartStop(benchmark::State &state) {
    const auto n = static_cast<uint32_t>(state.range(0));
    const bool spread = state.range(1) != 0;
    ZQTIMER q = nullptr;
    Zos_QTimerCreate(&q, static_cast<int32_t>(n + 1));
    for (uint32_t i = 0; i < n; ++i) {
        uint32_t id = 0;
        Zos_QTimerTmrCreate(q, ZOS_INVALID_ID, 0, &id);
        Zos_QTimerTmrStart(q, id, 0, TickOf(i, spread), 0, Nop);
    }
    uint32_t id = ZOS_INVALID_ID;
    Zos_QTimerTmrCreate(q, ZOS_INVALID_ID, 0, &id);
    const uint32_t ticks = MeasuredTick(n, spread);
    KBENCH_REQUIRE(state, q != nullptr && id != ZOS_INVALID_ID);
    for (auto _ : state) {
        const uint32_t started = Zos_QTimerTmrStart(q, id, 0, ticks, 0, Nop);
        const uint32_t stopped = Zos_QTimerTmrStop(q, id);
        KBENCH_CHECK(state, started == ZOK && stopped == ZOK);
    }
    Zos_QTimerDelete(q);
}

// A timer set keyed by expiry in a multimap; a stop erases by iterator.
void MultimapStartStop(benchmark::State &state) {
    const auto n = static_cast<uint32_t>(state.range(0));
    const bool spread = state.range(1) != 0;
    std::mutex mutex;
    std::multimap<uint64_t, uint32_t> set;
    for (uint32_t i = 0; i < n; ++i) set.emplace(TickOf(i, spread), i);
    const uint64_t ticks = MeasuredTick(n, spread);
    for (auto _ : state) {
        std::multimap<uint64_t, uint32_t>::iterator it;
        {
            std::lock_guard<std::mutex> lock(mutex);
            it = set.emplace(ticks, n);
        }
        std::lock_guard<std::mutex> lock(mutex);
        set.erase(it);
    }
}

// A binary min-heap of (expiry, sequence, id) with each id's position kept,
// so a stop removes from the middle in O(log N).
class IndexedHeap {
  public:
    explicit IndexedHeap(uint32_t cap) : pos_(cap, kNone) { heap_.reserve(cap); }
    void Push(uint64_t at, uint32_t id) {
        heap_.push_back({at, seq_++, id});
        pos_[id] = static_cast<uint32_t>(heap_.size() - 1);
        Up(pos_[id]);
    }
    void Remove(uint32_t id) {
        const uint32_t i = pos_[id];
        pos_[id] = kNone;
        const uint32_t last = static_cast<uint32_t>(heap_.size() - 1);
        if (i != last) {
            heap_[i] = heap_[last];
            pos_[heap_[i].id] = i;
        }
        heap_.pop_back();
        if (i < heap_.size()) {
            const uint32_t moved = heap_[i].id;
            Up(i);
            Down(pos_[moved]);
        }
    }

  private:
    static constexpr uint32_t kNone = 0xFFFFFFFFu;
    struct Entry {
        uint64_t at;
        uint64_t seq;
        uint32_t id;
    };
    static bool Less(const Entry &a, const Entry &b) {
        return a.at != b.at ? a.at < b.at : a.seq < b.seq;
    }
    void Swap(uint32_t a, uint32_t b) {
        std::swap(heap_[a], heap_[b]);
        pos_[heap_[a].id] = a;
        pos_[heap_[b].id] = b;
    }
    void Up(uint32_t i) {
        while (i > 0 && Less(heap_[i], heap_[(i - 1) / 2])) {
            Swap(i, (i - 1) / 2);
            i = (i - 1) / 2;
        }
    }
    void Down(uint32_t i) {
        for (;;) {
            uint32_t m = i;
            const uint32_t l = 2 * i + 1, r = 2 * i + 2;
            if (l < heap_.size() && Less(heap_[l], heap_[m])) m = l;
            if (r < heap_.size() && Less(heap_[r], heap_[m])) m = r;
            if (m == i) return;
            Swap(i, m);
            i = m;
        }
    }
    std::vector<Entry> heap_;
    std::vector<uint32_t> pos_;
    uint64_t seq_ = 0;
};

void HeapStartStop(benchmark::State &state) {
    const auto n = static_cast<uint32_t>(state.range(0));
    const bool spread = state.range(1) != 0;
    std::mutex mutex;
    IndexedHeap heap(n + 1);
    for (uint32_t i = 0; i < n; ++i) heap.Push(TickOf(i, spread), i);
    const uint64_t ticks = MeasuredTick(n, spread);
    for (auto _ : state) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            heap.Push(ticks, n);
        }
        std::lock_guard<std::mutex> lock(mutex);
        heap.Remove(n);
    }
}

void StartStopArgs(benchmark::internal::Benchmark *b) {
    for (int spread : {1, 0}) {
        for (int n : {10, 100, 2000}) b->Args({n, spread});
    }
    b->ArgNames({"n", "spread"});
}

BENCHMARK(QTimerStartStop)->Apply(StartStopArgs);
BENCHMARK(MultimapStartStop)->Apply(StartStopArgs);
BENCHMARK(HeapStartStop)->Apply(StartStopArgs);

// ---------------------------------------------------------------------
// Firing lateness of the self manager's timers while a module task with a
// thread of its own spins on every message a feeder posts.

using Clock = std::chrono::steady_clock;
std::atomic<bool> g_busy{false};
std::vector<double> g_lateMs;
std::mutex g_lateLock;
Clock::time_point g_due[16];

int32_t SpinEntry(void *) {
    const auto end = Clock::now() + std::chrono::microseconds(500);
    while (Clock::now() < end) {
    }
    return 0;
}

void OnDue(uint32_t, uint32_t slot, uintptr_t) {
    const double late =
        std::chrono::duration<double, std::milli>(Clock::now() - g_due[slot]).count();
    std::lock_guard<std::mutex> lock(g_lateLock);
    g_lateMs.push_back(late);
}

void FiringLateness(benchmark::State &state) {
    uint32_t task = 0;
    Zos_ModTaskStart("BUSY", 4, 200, 0, 0, nullptr, nullptr, SpinEntry, &task);
    g_busy = true;
    std::thread feeder([task] {
        while (g_busy) {
            Zos_MsgSendX(task, task, 1, 0, nullptr, 0);
            std::this_thread::sleep_for(std::chrono::microseconds(600));
        }
    });
    constexpr uint32_t kTimers = 8;
    uint32_t ids[kTimers];
    for (uint32_t &id : ids) Zos_TimerCreate(ZOS_INVALID_ID, 0, &id);
    g_lateMs.clear();
    for (auto _ : state) {
        for (uint32_t round = 0; round < 25; ++round) {
            for (uint32_t i = 0; i < kTimers; ++i) {
                const uint32_t ms = 20 + 10 * i;
                // Due when the tick count reaches start tick + length: the
                // tick boundary after now + length.
                const uint64_t now = Zos_GetHrTime();
                const uint64_t dueNs = (now / ZOS_TIMER_TICK_NS + ms / 10) * ZOS_TIMER_TICK_NS;
                g_due[i] = Clock::now() + std::chrono::nanoseconds(dueNs - now);
                Zos_TimerStart(ids[i], i, ms, 0, OnDue);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20 + 10 * kTimers + 20));
        }
    }
    g_busy = false;
    feeder.join();
    for (uint32_t id : ids) Zos_TimerDelete(id);
    Zos_ModTaskStop(task);
    std::lock_guard<std::mutex> lock(g_lateLock);
    std::sort(g_lateMs.begin(), g_lateMs.end());
    if (!g_lateMs.empty()) {
        state.counters["late_p50_ms"] = g_lateMs[g_lateMs.size() / 2];
        state.counters["late_p99_ms"] = g_lateMs[g_lateMs.size() * 99 / 100];
        state.counters["samples"] = static_cast<double>(g_lateMs.size());
    }
}
BENCHMARK(FiringLateness)->Iterations(1)->Unit(benchmark::kMillisecond);

// ---------------------------------------------------------------------
// Wake-ups of the timer task per second with one periodic 1-second timer,
// counted in the semaphore wait slot on the thread the callback runs on.
// Polling every tick would wake 100 times a second.

std::atomic<pthread_t> g_timerThread{};
std::atomic<bool> g_known{false};
std::atomic<uint32_t> g_waits{0};
ZOS_OSDEP_FUNC g_realWait = nullptr;

uint32_t CountingWait(ZSEM *sem, uint32_t ms) {
    if (g_known && pthread_equal(pthread_self(), g_timerThread) != 0) ++g_waits;
    return reinterpret_cast<uint32_t (*)(ZSEM *, uint32_t)>(g_realWait)(sem, ms);
}
void NoteThread(uint32_t, uint32_t, uintptr_t) {
    g_timerThread = pthread_self();
    g_known = true;
}

void WakeupsPerSecond(benchmark::State &state) {
    ZOS_OSDEP_FUNC *slots = Zos_OsenvLocateNew()->pfnOsdep;
    uint32_t id = 0;
    Zos_TimerCreate(ZOS_INVALID_ID, ZOS_TIMER_FLAG_PERIOD, &id);
    Zos_TimerStart(id, 0, 1000, 0, NoteThread);
    while (!g_known) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    g_realWait = slots[45];
    slots[45] = reinterpret_cast<ZOS_OSDEP_FUNC>(CountingWait);
    g_waits = 0;
    const auto t0 = Clock::now();
    for (auto _ : state) std::this_thread::sleep_for(std::chrono::seconds(5));
    const double secs = std::chrono::duration<double>(Clock::now() - t0).count();
    state.counters["wakeups_per_s"] = g_waits / secs;
    slots[45] = g_realWait;
    Zos_TimerDelete(id);
}
BENCHMARK(WakeupsPerSecond)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
