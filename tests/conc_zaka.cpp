// Milenage from several threads with different keys: every call keeps its
// own round keys, and OPc follows the last key of the calling thread.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "kestro_lite.h"

namespace {

struct Result {
    uint8_t macA[8], res[8], ck[16], ik[16], ak[6], opc[16];
    bool operator==(const Result &o) const { return std::memcmp(this, &o, sizeof(*this)) == 0; }
};

Result Milenage(const uint8_t *k, const uint8_t *rand) {
    static const uint8_t sqn[6] = {1, 2, 3, 4, 5, 6}, amf[2] = {0x80, 0};
    Result r;
    Zaka_F1(k, rand, sqn, amf, r.macA);
    Zaka_F2345(k, rand, r.res, r.ck, r.ik, r.ak);
    Zaka_ComputeOpC(r.opc);
    return r;
}

TEST(ConcZaka, DifferentKeysOnDifferentThreads) {
    constexpr int kThreads = 4;
    for (int i = 0; i < 16; ++i) m_aucZakaOp[i] = static_cast<uint8_t>(0xC0 + i);
    uint8_t keys[kThreads][16], rands[kThreads][16];
    std::vector<Result> expect;
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < 16; ++i) {
            keys[t][i] = static_cast<uint8_t>(t * 31 + i * 7);
            rands[t][i] = static_cast<uint8_t>(t * 17 + i * 3 + 1);
        }
        expect.push_back(Milenage(keys[t], rands[t]));
    }
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int n = 0; n < 100; ++n) {
                if (!(Milenage(keys[t], rands[t]) == expect[t])) ++mismatches;
            }
        });
    }
    for (auto &th : threads) th.join();
    EXPECT_EQ(mismatches.load(), 0);
    // A thread that never scheduled a key uses the last schedule made.
    Zaka_RjdlKeySchedule(keys[2]);
    uint8_t opc[16] = {};
    std::thread([&opc] { Zaka_ComputeOpC(opc); }).join();
    EXPECT_EQ(std::memcmp(opc, expect[2].opc, 16), 0);
    std::memset(m_aucZakaOp, 0, 16);
}

}  // namespace
