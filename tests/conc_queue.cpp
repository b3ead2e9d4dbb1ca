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

void Nap() {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

// Producers add (producer << 20 | seq) through `add` (retried while the
// bucket is full), consumers take with a waiting `poll`. The consumers are
// then stopped one at a time, each stop marker going into an empty queue:
// the semaphore is posted only when the queue stops being empty.
void Exercise(const std::function<bool(int, uintptr_t)> &add,
              const std::function<bool(uintptr_t *)> &poll, const std::function<uint32_t()> &busy) {
    std::vector<std::vector<uintptr_t>> got(kConsumers);
    std::atomic<uint32_t> taken{0};
    std::vector<std::thread> consumers, producers;
    for (int c = 0; c < kConsumers; ++c) {
        consumers.emplace_back([&, c] {
            for (uintptr_t v = 0;;) {
                if (!poll(&v)) continue;
                if (v == kStop) return;
                got[c].push_back(v);
                ++taken;
            }
        });
    }
    for (int p = 0; p < kProducers; ++p) {
        producers.emplace_back([&, p] {
            for (uintptr_t i = 1; i <= kPerProducer; ++i) {
                while (!add(p, static_cast<uintptr_t>(p) << 20 | i)) std::this_thread::yield();
            }
        });
    }
    for (auto &t : producers) t.join();
    while (taken < kProducers * kPerProducer) Nap();
    for (int c = 0; c < kConsumers; ++c) {
        while (!add(0, kStop)) std::this_thread::yield();
        while (busy() != 0) Nap();
    }
    for (auto &t : consumers) t.join();

    std::vector<uint8_t> seen(kProducers * kPerProducer, 0);
    for (const auto &list : got) {
        uintptr_t last[kProducers] = {};
        for (uintptr_t v : list) {
            const uintptr_t p = v >> 20, seq = v & 0xFFFFF;
            ASSERT_LT(p, static_cast<uintptr_t>(kProducers));
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
    EXPECT_TRUE(used == 0 && gets == puts && gets > kProducers * kPerProducer);
    EXPECT_EQ(Zos_QueueDelete(q), ZOK);
}

TEST_F(ZosTest, PQueueMovesEveryItemOnce) {
    ZPQUEUE q = nullptr;
    ASSERT_EQ(Zos_PQueueCreate(1, 1, 64, 1024, 7, &q), ZOK);
    // Each producer keeps to one level, so its order survives priorities.
    Exercise([&](int p, uintptr_t v) { return Zos_PQueueAdd(q, v == kStop ? 7 : p, v) == ZOK; },
             [&](uintptr_t *v) { return Zos_PQueuePoll(q, 1, nullptr, v) == ZOK; },
             [&] { return Zos_PQueueGetBusyCount(q); });
    // Every item and stop marker took one node and gave it back.
    uint32_t used = 1, gets = 0, puts = 0;
    ASSERT_EQ(Zos_PQueueGetCount(q, nullptr, &used, &gets, &puts, nullptr), ZOK);
    EXPECT_EQ(used, 0u);
    EXPECT_EQ(gets, kProducers * kPerProducer + kConsumers);
    EXPECT_EQ(puts, gets);
    EXPECT_EQ(Zos_PQueueDelete(q), ZOK);
}

TEST_F(ZosTest, WaitingPollersWakeWhenAnItemArrives) {
    ZQUEUE q = nullptr, spin = nullptr;
    ZPQUEUE pq = nullptr;
    ASSERT_EQ(Zos_QueueCreate(1, 1, 4, 4, &q) + Zos_PQueueCreate(1, 1, 4, 4, 3, &pq) +
                  Zos_QueueCreate(1, 0, 4, 4, &spin),  // waits by polling again
              ZOK);
    std::atomic<int> woken{0};
    uintptr_t v[3] = {};
    uint32_t level = 2;
    std::thread a([&] { woken += Zos_QueuePoll(q, 1, &v[0]) == ZOK && v[0] == 0x11; });
    std::thread b([&] { woken += Zos_QueuePeek(spin, 1, &v[1]) == ZOK && v[1] == 0x22; });
    std::thread c([&] { woken += Zos_PQueuePoll(pq, 1, &level, &v[2]) == ZOK && v[2] == 0x33; });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(woken, 0);
    EXPECT_EQ(Zos_QueueAdd(q, 0x11) + Zos_QueueAdd(spin, 0x22) + Zos_PQueueAdd(pq, 2, 0x33), ZOK);
    for (std::thread *t : {&a, &b, &c}) t->join();
    EXPECT_TRUE(woken == 3 && level == 2);
    EXPECT_EQ(Zos_QueueGetBusyCount(spin), 1u);  // peek left it queued
    EXPECT_EQ(Zos_QueueDelete(q) + Zos_QueueDelete(spin) + Zos_PQueueDelete(pq), ZOK);
}

namespace {

constexpr uintptr_t kRelayRounds = 20000;
constexpr uintptr_t kRescue = ~static_cast<uintptr_t>(1);

// Two queues in a ring: A adds to queue 1 then waits on queue 0, B waits on
// queue 1 and hands the item back on queue 0. Every add thus meets a poller
// on its way to sleep on an empty queue, the race in which a wake-up could
// be lost. A lost one stalls the ring for good: the watchdog notices,
// empties both queues and adds rescue items (each add then finds its queue
// empty and posts) so the threads can be joined, and fails.
void Relay(const std::function<bool(int, uintptr_t)> &add,
           const std::function<bool(int, uint32_t, uintptr_t *)> &poll) {
    std::atomic<uintptr_t> turns{0};
    std::atomic<int> done{0};
    std::atomic<bool> wrong{false};
    std::thread a([&] {
        for (uintptr_t i = 1; i <= kRelayRounds; ++i) {
            uintptr_t v = 0;
            add(1, i);
            while (!poll(0, 1, &v)) {
            }
            if (v == kRescue) break;
            if (v != i) wrong = true;
            ++turns;
        }
        ++done;
    });
    std::thread b([&] {
        for (uintptr_t i = 1; i <= kRelayRounds; ++i) {
            uintptr_t v = 0;
            while (!poll(1, 1, &v)) {
            }
            if (v == kRescue) break;
            add(0, v);
        }
        ++done;
    });
    bool stalled = false;
    uintptr_t seen = 0;
    for (auto last = std::chrono::steady_clock::now(); done < 2; Nap()) {
        const auto now = std::chrono::steady_clock::now();
        if (turns != seen) {
            seen = turns;
            last = now;
        } else if (now - last > std::chrono::seconds(5)) {
            stalled = true;
            for (int i = 0; i < 2; ++i) {
                for (uintptr_t v = 0; poll(i, 0, &v);) {
                }
                add(i, kRescue);
            }
            last = now;
        }
    }
    a.join();
    b.join();
    EXPECT_FALSE(stalled) << "a waiting poller was not woken after " << seen << " turns";
    EXPECT_FALSE(wrong);
    EXPECT_EQ(turns, kRelayRounds);
}

}  // namespace

TEST_F(ZosTest, NoWakeUpIsLostWhenAnAddMeetsAPollerGoingToSleep) {
    ZQUEUE q[2] = {};
    ZPQUEUE pq[2] = {};
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(Zos_QueueCreate(1, 1, 4, 8, &q[i]) + Zos_PQueueCreate(1, 1, 4, 8, 7, &pq[i]),
                  ZOK);
    }
    Relay([&](int i, uintptr_t v) { return Zos_QueueAdd(q[i], v) == ZOK; },
          [&](int i, uint32_t wait, uintptr_t *v) { return Zos_QueuePoll(q[i], wait, v) == ZOK; });
    // Levels vary with the item; the poller accepts every level.
    Relay([&](int i, uintptr_t v) { return Zos_PQueueAdd(pq[i], v % 8, v) == ZOK; },
          [&](int i, uint32_t wait, uintptr_t *v) {
              return Zos_PQueuePoll(pq[i], wait, nullptr, v) == ZOK;
          });
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(Zos_QueueGetBusyCount(q[i]) + Zos_PQueueGetBusyCount(pq[i]), 0u);
        EXPECT_EQ(Zos_QueueDelete(q[i]) + Zos_PQueueDelete(pq[i]), ZOK);
    }
}

// A producer adds items over four levels, a consumer polls them and a
// third thread removes recent items while they may be any level's head or
// tail. Every item leaves exactly once, by the poll or by the remove, and
// every node goes back to the bucket. A broken list loses or strands items
// rather than crashing, so every wait gives up at a common deadline.
TEST_F(ZosTest, PQueueRemovesWhileItIsPolled) {
    constexpr uintptr_t kItems = 20000;
    ZPQUEUE q = nullptr;
    ASSERT_EQ(Zos_PQueueCreate(1, 1, 64, 1024, 3, &q), ZOK);
    std::vector<std::atomic<uint8_t>> polled(kItems + 1), removed(kItems + 1);
    std::atomic<uintptr_t> latest{0};
    std::atomic<bool> produced{false}, late{false};
    std::atomic<uintptr_t> gone{0};
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    auto add = [&](uint32_t level, uintptr_t v) {
        while (Zos_PQueueAdd(q, level, v) != ZOK) {
            if (std::chrono::steady_clock::now() > deadline) return !(late = true);
            std::this_thread::yield();
        }
        return true;
    };
    std::thread producer([&] {
        for (uintptr_t i = 1; i <= kItems && add(i % 4, i); ++i) latest = i;
        produced = true;
    });
    std::thread remover([&] {
        while (!produced) {
            const uintptr_t last = latest;
            for (uintptr_t j = last > 64 ? last - 64 : 1; j <= last; j += 5) {
                if (Zos_PQueueRmv(q, j % 4, j) == ZOK) ++removed[j], ++gone;
            }
        }
    });
    std::thread consumer([&] {
        for (uintptr_t v = 0, n = 0; !late;) {
            // A quarter of the way the consumer waits until the remover has
            // taken something out: the queue fills up meanwhile, so removals
            // find their items however the threads are scheduled.
            while (n == kItems / 4 && gone == 0 && !late) {
                if (std::chrono::steady_clock::now() > deadline) late = true;
                std::this_thread::yield();
            }
            if (Zos_PQueuePoll(q, 0, nullptr, &v) != ZOK) {
                if (std::chrono::steady_clock::now() > deadline) late = true;
                std::this_thread::yield();
            } else if (v == kStop) {
                return;
            } else if (v <= kItems) {
                ++polled[v];
                ++n;
            }
        }
    });
    producer.join();
    remover.join();
    add(3, kStop);  // last at the lowest level: served after everything else
    consumer.join();
    ASSERT_FALSE(late) << "items were lost or stranded";
    uintptr_t taken = 0;
    for (uintptr_t i = 1; i <= kItems; ++i) {
        ASSERT_EQ(polled[i] + removed[i], 1) << "item " << i;
        taken += removed[i];
    }
    EXPECT_GT(taken, 0u);
    uint32_t used = 1, gets = 0, puts = 0;
    ASSERT_EQ(Zos_PQueueGetCount(q, nullptr, &used, &gets, &puts, nullptr), ZOK);
    EXPECT_TRUE(used == 0 && gets == kItems + 1 && puts == gets) << used << " " << gets;
    EXPECT_EQ(Zos_PQueueDelete(q), ZOK);
}

// The node bucket the queues stand on, locked and shared by threads that
// take and give nodes in bursts: a node is held by one thread at a time,
// and the counts balance when they are done.
TEST_F(ZosTest, LockedNodeBucketHandsEachNodeToOneThreadAtATime) {
    constexpr int kThreads = 4;
    constexpr size_t kHold = 8;  // kThreads * kHold nodes fit below the maximum
    ZDBKT bkt = Zos_DbktCreate(1, 1, 2 * sizeof(uintptr_t), 4, 64, 4);
    ASSERT_NE(bkt, nullptr);
    std::atomic<int> clashes{0}, refused{0};
    std::vector<std::thread> threads;
    for (uintptr_t t = 1; t <= kThreads; ++t) {
        threads.emplace_back([&, t] {
            std::vector<uintptr_t *> held;
            for (uintptr_t i = 0; i < 20000; ++i) {
                if (held.size() < kHold) {
                    auto *node = static_cast<uintptr_t *>(Zos_DbktGetBkt(bkt));
                    if (node == nullptr) {
                        ++refused;
                        continue;
                    }
                    node[0] = t;
                    node[1] = i;
                    held.push_back(node);
                    continue;
                }
                for (uintptr_t *node : held) {
                    if (node[0] != t) ++clashes;
                    if (Zos_DbktPutBkt(bkt, node) != ZOK) ++refused;
                }
                held.clear();
            }
            for (uintptr_t *node : held) Zos_DbktPutBkt(bkt, node);
        });
    }
    for (auto &th : threads) th.join();
    uint32_t used = 1, gets = 0, puts = 0;
    ASSERT_EQ(Zos_DbktGetCount(bkt, nullptr, &used, &gets, &puts, nullptr), ZOK);
    EXPECT_EQ(clashes.load(), 0);
    EXPECT_EQ(refused.load(), 0);
    EXPECT_EQ(used, 0u);
    EXPECT_EQ(gets, puts);
    EXPECT_EQ(Zos_DbktDelete(bkt), ZOK);
}
