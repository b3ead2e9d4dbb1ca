// The road of a message, post to dispatch, against a std::mutex +
// std::condition_variable + std::deque worker and a libuv loop woken by
// uv_async_send: throughput with 1 and 4 producers, and latency (p50, p99)
// of one message at a time per producer. The module road is measured with
// a threaded module task and with a host-driven one (post, pipe, looper,
// drive).
#include <benchmark/benchmark.h>
#include <uv.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "bench_layer.h"
#include "kestro_lite.h"

namespace {

constexpr uint32_t kMaxProducers = 4;
constexpr uint32_t kBatch = 20000;  // messages per iteration, all producers together

// What every receiver counts: messages handled per producer.
struct Counts {
    std::atomic<uint64_t> per[kMaxProducers];
    void Note(uint32_t p) { per[p].fetch_add(1, std::memory_order_release); }
    uint64_t Total() const {
        uint64_t t = 0;
        for (const auto &c : per) t += c.load(std::memory_order_acquire);
        return t;
    }
};
Counts g_counts;

class Sink {
  public:
    virtual ~Sink() = default;
    virtual void Post(uint32_t producer) = 0;
    virtual bool Ok() const { return true; }
};

// ---- the module manager ---------------------------------------------------

int32_t ModEntry(void *msg) {
    g_counts.Note(Zos_MsgGetType(msg));
    return 0;
}

class ModSink : public Sink {
  public:
    // The threaded road runs on the layer as main started it; the
    // host-driven one restarts it in that mode for the run.
    explicit ModSink(bool host) : host_(host) {
        if (host) layer_ = std::make_unique<kbench::LayerInMode>(0);
        if (host) {
            // The host loop: a thread with the looper watching the pipe.
            Zpand_ModSetPostDrv(
                [] { return Zpand_UiProcEvnt(0, [](uintptr_t) { Zos_ModDriveMsg(); }); });
            loop_ = std::thread([this] {
                ALooper_prepare(0);
                Zpand_UiEvntInit();
                ready_ = true;
                while (!stop_) ALooper_pollOnce(50, nullptr, nullptr, nullptr);
            });
            while (!ready_) std::this_thread::yield();
        }
        ok_ = (layer_ == nullptr || layer_->Ok()) &&
              Zos_ModTaskStart("BENCH", 3, 8192, 0, host ? 1 : 0, nullptr, nullptr, ModEntry,
                               &task_) == ZOK;
    }
    bool Ok() const override { return ok_; }
    ~ModSink() override {
        Zos_ModTaskStop(task_);
        if (host_) {
            stop_ = true;
            ALooper_wake(static_cast<ALooper *>(Zpand_UiThreadId()));
            loop_.join();
            Zpand_ModSetPostDrv(nullptr);
        }
    }
    void Post(uint32_t p) override {
        while (Zos_MsgSendX(task_, task_, p, 0, nullptr, 0) != ZOK) std::this_thread::yield();
    }

  private:
    bool host_;
    bool ok_ = false;
    std::unique_ptr<kbench::LayerInMode> layer_;
    uint32_t task_ = 0;
    std::thread loop_;
    std::atomic<bool> ready_{false}, stop_{false};
};

// ---- std::mutex + std::condition_variable + std::deque ---------------------

class CvSink : public Sink {
  public:
    CvSink() {
        worker_ = std::thread([this] {
            std::unique_lock<std::mutex> lock(mutex_);
            for (;;) {
                cv_.wait(lock, [this] { return stop_ || !items_.empty(); });
                if (items_.empty()) return;
                const uint32_t p = items_.front();
                items_.pop_front();
                lock.unlock();
                g_counts.Note(p);
                lock.lock();
            }
        });
    }
    ~CvSink() override {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stop_ = true;
        }
        cv_.notify_one();
        worker_.join();
    }
    void Post(uint32_t p) override {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            items_.push_back(p);
        }
        cv_.notify_one();
    }

  private:
    std::mutex mutex_;
    std::condition_variable cv_;
    std::deque<uint32_t> items_;
    bool stop_ = false;
    std::thread worker_;
};

// ---- libuv: a deque under a mutex, the loop woken by uv_async_send ---------

class UvSink : public Sink {
  public:
    UvSink() {
        uv_loop_init(&loop_);
        async_.data = this;
        uv_async_init(&loop_, &async_, [](uv_async_t *a) {
            auto *self = static_cast<UvSink *>(a->data);
            std::deque<uint32_t> batch;
            {
                std::lock_guard<std::mutex> lock(self->mutex_);
                batch.swap(self->items_);
                if (self->stop_) uv_close(reinterpret_cast<uv_handle_t *>(a), nullptr);
            }
            for (uint32_t p : batch) g_counts.Note(p);
        });
        worker_ = std::thread([this] { uv_run(&loop_, UV_RUN_DEFAULT); });
    }
    ~UvSink() override {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stop_ = true;
        }
        uv_async_send(&async_);
        worker_.join();
        uv_loop_close(&loop_);
    }
    void Post(uint32_t p) override {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            items_.push_back(p);
        }
        uv_async_send(&async_);
    }

  private:
    uv_loop_t loop_;
    uv_async_t async_;
    std::mutex mutex_;
    std::deque<uint32_t> items_;
    bool stop_ = false;
    std::thread worker_;
};

enum Road { kMod, kModHost, kCv, kUv };

std::unique_ptr<Sink> Make(Road r) {
    switch (r) {
        case kMod:
            return std::make_unique<ModSink>(false);
        case kModHost:
            return std::make_unique<ModSink>(true);
        case kCv:
            return std::make_unique<CvSink>();
        default:
            return std::make_unique<UvSink>();
    }
}

void ResetCounts() {
    for (auto &c : g_counts.per) c.store(0);
}

// Throughput: the producers post kBatch messages together; an iteration
// ends when all have been handled.
void Throughput(benchmark::State &state, Road road) {
    const auto producers = static_cast<uint32_t>(state.range(0));
    ResetCounts();
    auto sink = Make(road);
    KBENCH_REQUIRE(state, sink->Ok());
    uint64_t expected = 0;
    for (auto _ : state) {
        expected += kBatch;
        std::vector<std::thread> threads;
        for (uint32_t p = 0; p < producers; ++p) {
            threads.emplace_back([&, p] {
                for (uint32_t i = 0; i < kBatch / producers; ++i) sink->Post(p);
            });
        }
        for (auto &t : threads) t.join();
        while (g_counts.Total() < expected) std::this_thread::yield();
    }
    sink.reset();
    state.SetItemsProcessed(static_cast<int64_t>(expected));
}

// Latency: each producer posts one message and waits until it has been
// handled before the next; p50 and p99 over every message.
void Latency(benchmark::State &state, Road road) {
    const auto producers = static_cast<uint32_t>(state.range(0));
    constexpr uint32_t kPerProducer = 2000;
    ResetCounts();
    auto sink = Make(road);
    KBENCH_REQUIRE(state, sink->Ok());
    std::vector<double> all;
    for (auto _ : state) {
        std::vector<std::vector<double>> samples(producers);
        std::vector<std::thread> threads;
        for (uint32_t p = 0; p < producers; ++p) {
            threads.emplace_back([&, p] {
                samples[p].reserve(kPerProducer);
                for (uint32_t i = 0; i < kPerProducer; ++i) {
                    const uint64_t before = g_counts.per[p].load(std::memory_order_acquire);
                    const auto t0 = std::chrono::steady_clock::now();
                    sink->Post(p);
                    while (g_counts.per[p].load(std::memory_order_acquire) == before) {
                    }
                    samples[p].push_back(std::chrono::duration<double, std::micro>(
                                             std::chrono::steady_clock::now() - t0)
                                             .count());
                }
            });
        }
        for (auto &t : threads) t.join();
        for (auto &s : samples) all.insert(all.end(), s.begin(), s.end());
    }
    sink.reset();
    std::sort(all.begin(), all.end());
    if (!all.empty()) {
        state.counters["p50_us"] = all[all.size() / 2];
        state.counters["p99_us"] = all[all.size() * 99 / 100];
    }
    state.SetItemsProcessed(static_cast<int64_t>(all.size()));
}

}  // namespace

BENCHMARK_CAPTURE(Throughput, mod_threaded, kMod)->Arg(1)->Arg(4)->UseRealTime();
BENCHMARK_CAPTURE(Throughput, cv_worker, kCv)->Arg(1)->Arg(4)->UseRealTime();
BENCHMARK_CAPTURE(Throughput, uv_async, kUv)->Arg(1)->Arg(4)->UseRealTime();
BENCHMARK_CAPTURE(Throughput, mod_host_looper, kModHost)->Arg(1)->Arg(4)->UseRealTime();
BENCHMARK_CAPTURE(Latency, mod_threaded, kMod)->Arg(1)->Arg(4)->UseRealTime()->Iterations(1);
BENCHMARK_CAPTURE(Latency, cv_worker, kCv)->Arg(1)->Arg(4)->UseRealTime()->Iterations(1);
BENCHMARK_CAPTURE(Latency, uv_async, kUv)->Arg(1)->Arg(4)->UseRealTime()->Iterations(1);
BENCHMARK_CAPTURE(Latency, mod_host_looper, kModHost)->Arg(1)->Arg(4)->UseRealTime()->Iterations(1);
