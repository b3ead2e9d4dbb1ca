// UUIDs from many threads at once are all distinct and well formed.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "kestro_lite.h"
#include "zos_test.h"

namespace {

using ConcUuid = ZosTest;

TEST_F(ConcUuid, DistinctAcrossThreads) {
    constexpr int kThreads = 8;
    constexpr int kPerThread = 2000;
    std::vector<std::vector<std::string>> made(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&made, t] {
            for (int i = 0; i < kPerThread; ++i) {
                const char *u = Zuuid_Uuid();
                made[t].push_back(u != nullptr ? u : "");
            }
        });
    }
    for (auto &th : threads) th.join();
    std::set<std::string> all;
    for (const auto &v : made) {
        for (const std::string &u : v) {
            ASSERT_EQ(u.size(), 36u);
            ASSERT_EQ(u[14], '1');
            all.insert(u);
        }
    }
    EXPECT_EQ(all.size(), static_cast<size_t>(kThreads * kPerThread));
}

}  // namespace
