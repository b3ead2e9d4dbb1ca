// Random numbers and version-1 UUIDs: derivation from the clock, the
// random environment, the UUID fields and the unique-timestamp counter.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kestro_lite.h"
#include "zos_test.h"

namespace {

// A controllable epoch clock: fixed at g_fakeNs (nanoseconds since 1970)
// but moving on by one 100 ns tick after 100000 reads of the same value,
// so a generator waiting for the clock cannot hang.
std::atomic<uint64_t> g_fakeNs{0};
std::atomic<uint32_t> g_sameReads{0};

uint32_t FakeEpoch(ST_ZOS_EPOCH_TIME *t) {
    if (++g_sameReads > 100000) {
        g_fakeNs += 100;
        g_sameReads = 0;
    }
    const uint64_t ns = g_fakeNs;
    t->llSec = static_cast<int64_t>(ns / 1000000000u);
    t->uiNsec = static_cast<uint32_t>(ns % 1000000000u);
    return ZOK;
}

uint32_t BrokenEpoch(ST_ZOS_EPOCH_TIME *) {
    return ZFAILED;
}

uint64_t FixedHrTime() {
    return 0x0123456789ABCDEFull;
}

class Zuuid : public ZosTest {
  protected:
    void Replace(uint32_t slot, ZOS_OSDEP_FUNC fn) {
        saved_ = ktest::Slot(slot);
        slotNo_ = slot;
        ktest::Slot(slot) = fn;
    }
    void TearDown() override {
        if (slotNo_ != 0) ktest::Slot(slotNo_) = saved_;
        ZosTest::TearDown();
    }
    void SetFake(uint64_t ns) {
        g_fakeNs = ns;
        g_sameReads = 0;
    }
    uint32_t slotNo_ = 0;
    ZOS_OSDEP_FUNC saved_ = nullptr;
};

uint64_t TimeOf(const std::string &u) {
    const uint64_t low = std::stoull(u.substr(0, 8), nullptr, 16);
    const uint64_t mid = std::stoull(u.substr(9, 4), nullptr, 16);
    const uint64_t hi = std::stoull(u.substr(14, 4), nullptr, 16) & 0x0FFF;
    return (hi << 48) | (mid << 32) | low;
}

TEST_F(Zuuid, TextLayoutVersionVariantAndNode) {
    for (int i = 0; i < 50; ++i) {
        const char *text = Zuuid_Uuid();
        ASSERT_NE(text, nullptr);
        const std::string u = text;
        ASSERT_EQ(u.size(), 36u);
        for (size_t p = 0; p < u.size(); ++p) {
            if (p == 8 || p == 13 || p == 18 || p == 23) {
                ASSERT_EQ(u[p], '-') << u;
            } else {
                ASSERT_TRUE(std::strchr("0123456789abcdef", u[p]) != nullptr) << u;
            }
        }
        EXPECT_EQ(u[14], '1') << u;
        EXPECT_TRUE(std::strchr("89ab", u[19]) != nullptr) << u;
        EXPECT_EQ(std::stoi(u.substr(24, 2), nullptr, 16) & 1, 1) << "multicast bit: " << u;
    }
    // The clock sequence is the C library generator's next value; only the
    // first UUID of the process seeds it, so a seed set since then holds.
    std::srand(7);
    const int r = std::rand();
    std::srand(7);
    const char *seeded = Zuuid_Uuid();
    ASSERT_NE(seeded, nullptr);
    const std::string seq = std::string(seeded).substr(19, 4);
    EXPECT_EQ(std::stoi(seq, nullptr, 16), ((r >> 8 & 0x3F) | 0x80) << 8 | (r & 0xFF)) << seq;
    // The time base is 1970 in 100 ns units: now, not now + 1582 offset.
    ST_ZOS_EPOCH_TIME now{};
    ASSERT_EQ(Zos_GetEpochTime(&now), ZOK);
    const uint64_t expect = static_cast<uint64_t>(now.llSec) * 10000000ull;
    const uint64_t got = TimeOf(Zuuid_Uuid());
    EXPECT_LT(got > expect ? got - expect : expect - got, 600000000ull);  // a minute
}

TEST_F(Zuuid, CounterWithinOneTickThenWaitForTheClock) {
    uint64_t t = 0;
    ASSERT_EQ(Zuuid_GetCurTime(&t), ZOK);  // the generator is initialised
    Replace(6, reinterpret_cast<ZOS_OSDEP_FUNC>(FakeEpoch));
    SetFake(1700000000ull * 1000000000ull);
    const uint64_t base = 1700000000ull * 10000000ull;
    ASSERT_EQ(Zuuid_GetCurTime(&t), ZOK);
    EXPECT_EQ(t, base);
    // Same tick: the counter is added, up to 1024.
    for (uint64_t i = 1; i <= 1024; ++i) {
        ASSERT_EQ(Zuuid_GetCurTime(&t), ZOK);
        ASSERT_EQ(t, base + i);
    }
    // Exhausted: waits until the clock moves on (the fake moves one tick).
    ASSERT_EQ(Zuuid_GetCurTime(&t), ZOK);
    EXPECT_EQ(t, base + 1);
    // Two UUIDs in one tick differ in their time fields.
    SetFake(1800000000ull * 1000000000ull);
    const std::string a = Zuuid_Uuid();
    const std::string b = Zuuid_Uuid();
    EXPECT_EQ(TimeOf(a), 1800000000ull * 10000000ull);
    EXPECT_EQ(TimeOf(b), TimeOf(a) + 1);
    EXPECT_EQ(Zuuid_GetSysTime(&t), ZOK);
    EXPECT_EQ(t, 1800000000ull * 10000000ull);
}

TEST_F(Zuuid, ClockFailure) {
    Replace(6, reinterpret_cast<ZOS_OSDEP_FUNC>(BrokenEpoch));
    uint64_t t = 7;
    EXPECT_EQ(Zuuid_GetSysTime(&t), ZFAILED);
    EXPECT_EQ(Zuuid_GetCurTime(&t), ZFAILED);
    EXPECT_EQ(Zuuid_Uuid(), nullptr);
    EXPECT_EQ(Zuuid_GetCurTime(nullptr), ZFAILED);
    // The node does not need the clock.
    // Every byte is the digest's, whatever the buffer held before (a node
    // equal to the old content but for the multicast bit is 1 in 2^47).
    for (const uint8_t fill : {0x00, 0xFE}) {
        uint8_t node[6];
        std::memset(node, fill, sizeof node);
        EXPECT_EQ(Zuuid_GetIeeeNodeIdentifier(node), ZOK);
        EXPECT_EQ(node[0] & 1, 1);
        uint8_t old[6];
        std::memset(old, fill, sizeof old);
        old[0] |= 1;
        EXPECT_NE(std::memcmp(node, old, sizeof node), 0);
    }
}

TEST_F(Zuuid, FormatV1Fields) {
    const uint8_t node[6] = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66};
    ST_ZUUID u;
    Zuuid_FormatV1(&u, 0xFFFF, 0x89ABCDEFu, 0xF1234567u, node);
    EXPECT_EQ(u.uiTimeLow, 0x89ABCDEFu);
    EXPECT_EQ(u.wTimeMid, 0x4567);
    EXPECT_EQ(u.wTimeHiAndVersion, 0x1123);
    EXPECT_EQ(u.ucClockSeqHiAndReserved, 0xBF);
    EXPECT_EQ(u.ucClockSeqLow, 0xFF);
    EXPECT_EQ(std::memcmp(u.aucNode, node, 6), 0);
    Zuuid_FormatV1(&u, 0x0000, 0, 0, node);
    EXPECT_EQ(u.ucClockSeqHiAndReserved, 0x80);
    EXPECT_EQ(u.wTimeHiAndVersion, 0x1000);
}

TEST_F(Zuuid, RandomFoldsTheClockDigest) {
    Replace(8, reinterpret_cast<ZOS_OSDEP_FUNC>(FixedHrTime));
    const uint64_t clock = FixedHrTime();
    uint8_t d[16];
    Zmd5_Str(reinterpret_cast<const uint8_t *>(&clock), 8, d);
    uint32_t w[4];
    std::memcpy(w, d, 16);
    EXPECT_EQ(Zrandom_N32(), w[0] ^ w[1] ^ w[2] ^ w[3]);
    EXPECT_EQ(Zrandom_N64(), (uint64_t{w[3] ^ w[1]} << 32) | (w[2] ^ w[0]));
    uint16_t h[8];
    std::memcpy(h, d, 16);
    uint16_t x = 0;
    for (uint16_t part : h) x ^= part;
    EXPECT_EQ(Zrandom_N16(), x);
}

TEST_F(Zuuid, RandomEnvironmentBlock) {
    void *env = Zrandom_EnvLocate();
    ASSERT_NE(env, nullptr);
    uint32_t words[8];
    std::memcpy(words, env, sizeof(words));
    EXPECT_EQ(words[0], 0x010203E7u);
    EXPECT_EQ(words[1], 0x8AC4E301u);
    for (int i = 2; i < 8; ++i) EXPECT_EQ(words[i], 0u);
    EXPECT_EQ(Zrandom_EnvLocate(), env);
    void *located = nullptr;
    EXPECT_EQ(Zos_SysEnvLocate(ZOS_COMP_RANDOM, &located), ZOK);
    EXPECT_EQ(located, env);
}

}  // namespace
