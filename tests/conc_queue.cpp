// Queues under several producers and several blocking consumers: nothing
// lost, nothing duplicated, each producer's order kept, sleepers woken.
#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

#include "zos_test.h"

namespace {

constexpr int kProducers = 3;
constexpr int kConsumers = 3;
constexpr uintptr_t kPerProducer = 10000;
constexpr uintptr_t kStop = ~static_cast<uintptr_t>(0);

uintptr_t Item(int producer, uintptr_t seq) {
    return (static_cast<uintptr_t>(producer) << 20) | (seq + 1);
}

// Runs the producers and consumers over one queue through `add` and `poll`
// (poll waits; false ends nothing, it is retried), then stops the
// consumers one at a time: the semaphore is posted only when the queue
// stops being empty, so each stop marker goes into an empty queue.
void Exercise(const std::function<bool(int, uintptr_t)> &add,
              const std::function<bool(uintptr_t *)> &poll, const std::function<uint32_t()> &busy) {
    std::vector<std::vector<uintptr_t>> got(kConsumers);
    std::atomic<uint32_t> taken{0};
    std::vector<std::thread> threads;
    for (int c = 0; c < kConsumers; ++c) {
        threads.emplace_back([&, c] {
            for (uintptr_t v = 0;;) {
                if (!poll(&v)) continue;
                if (v == kStop) return;
                got[c].push_back(v);
                ++taken;
            }
        });
    }
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p) {
        producers.emplace_back([&, p] {
            for (uintptr_t i = 0; i < kPerProducer; ++i) {
                while (!add(p, Item(p, i))) std::this_thread::yield();  // bucket full
            }
        });
    }
    for (auto &t : producers) t.join();
    while (taken < kProducers * kPerProducer)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    for (int c = 0; c < kConsumers; ++c) {
        ASSERT_TRUE(add(0, kStop));
        while (busy() != 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    for (auto &t : threads) t.join();

    std::vector<uint8_t> seen(kProducers * kPerProducer, 0);
    for (const auto &list : got) {
        std::vector<uintptr_t> last(kProducers, 0);
        for (uintptr_t v : list) {
            const int p = static_cast<int>(v >> 20);
            const uintptr_t seq = v & 0xFFFFF;
            ASSERT_LT(p, kProducers);
            ASSERT_GT(seq, last[p]) << "a consumer saw one producer's items out of order";
            last[p] = seq;
            ++seen[p * kPerProducer + seq - 1];
        }
    }
    for (size_t i = 0; i < seen.size(); ++i) ASSERT_EQ(seen[i], 1) << "item " << i;
}

}  // namespace

TEST_F(ZosTest, QueueMovesEveryItemOnce) {
    ZQUEUE q = nullptr;
    ASSERT_EQ(Zos_QueueCreate(1, 1, 64, 1024, &q), ZOK);
    Exercise([&](int, uintptr_t v) { return Zos_QueueAdd(q, v) == ZOK; },
             [&](uintptr_t *v) { return Zos_QueuePoll(q, 1, v) == ZOK; },
             [&] { return Zos_QueueGetBusyCount(q); });
    uint32_t used = 1, gets = 0, puts = 0;
    ASSERT_EQ(Zos_QueueGetCount(q, nullptr, &used, &gets, &puts, nullptr), ZOK);
    EXPECT_EQ(used, 0u);
    EXPECT_EQ(gets, puts);
    EXPECT_EQ(Zos_QueueDelete(q), ZOK);
}

TEST_F(ZosTest, PQueueMovesEveryItemOnce) {
    ZPQUEUE q = nullptr;
    ASSERT_EQ(Zos_PQueueCreate(1, 1, 64, 1024, 7, &q), ZOK);
    // Each producer keeps to one level, so its order survives priorities.
    Exercise([&](int p, uintptr_t v) { return Zos_PQueueAdd(q, v == kStop ? 7 : p, v) == ZOK; },
             [&](uintptr_t *v) { return Zos_PQueuePoll(q, 1, nullptr, v) == ZOK; },
             [&] { return Zos_PQueueGetBusyCount(q); });
    EXPECT_EQ(Zos_PQueueDelete(q), ZOK);
}

TEST_F(ZosTest, WaitingPollersWakeWhenAnItemArrives) {
    ZQUEUE q = nullptr;
    ZQUEUE spin = nullptr;
    ZPQUEUE pq = nullptr;
    ASSERT_EQ(Zos_QueueCreate(1, 1, 4, 4, &q), ZOK);
    ASSERT_EQ(Zos_QueueCreate(1, 0, 4, 4, &spin), ZOK);  // waits by polling again
    ASSERT_EQ(Zos_PQueueCreate(1, 1, 4, 4, 3, &pq), ZOK);
    std::atomic<int> woken{0};
    std::vector<std::thread> waiters;
    waiters.emplace_back([&] {
        uintptr_t v = 0;
        if (Zos_QueuePoll(q, 1, &v) == ZOK && v == 0x11) ++woken;
    });
    waiters.emplace_back([&] {
        uintptr_t v = 0;
        if (Zos_QueuePeek(spin, 1, &v) == ZOK && v == 0x22) ++woken;
    });
    waiters.emplace_back([&] {
        uint32_t level = 2;
        uintptr_t v = 0;
        if (Zos_PQueuePoll(pq, 1, &level, &v) == ZOK && v == 0x33 && level == 2) ++woken;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(woken, 0);
    ASSERT_EQ(Zos_QueueAdd(q, 0x11), ZOK);
    ASSERT_EQ(Zos_QueueAdd(spin, 0x22), ZOK);
    ASSERT_EQ(Zos_PQueueAdd(pq, 2, 0x33), ZOK);
    for (auto &t : waiters) t.join();
    EXPECT_EQ(woken, 3);
    EXPECT_EQ(Zos_QueueGetBusyCount(spin), 1u);  // peek left it queued
    EXPECT_EQ(Zos_QueueDelete(q), ZOK);
    EXPECT_EQ(Zos_QueueDelete(spin), ZOK);
    EXPECT_EQ(Zos_PQueueDelete(pq), ZOK);
}
