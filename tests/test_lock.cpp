// Locks and semaphores: switches, empty slots, recursion and time-outs.
#include <atomic>
#include <chrono>
#include <thread>

#include "zos_test.h"

using Clock = std::chrono::steady_clock;

namespace {

long long MsSince(Clock::time_point t0) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - t0).count();
}

}  // namespace

TEST_F(ZosTest, MutexIsRecursiveAndRejectsNullHandles) {
    ZMUTEX m = 0;
    ASSERT_EQ(Zos_MutexCreate(&m), ZOK);
    EXPECT_NE(m, 0u);
    EXPECT_EQ(Zos_MutexLock(&m), ZOK);
    EXPECT_EQ(Zos_MutexLock(&m), ZOK);  // the owner locks again
    EXPECT_EQ(Zos_MutexUnlock(&m), ZOK);
    EXPECT_EQ(Zos_MutexUnlock(&m), ZOK);
    EXPECT_EQ(Zos_MutexDelete(&m), ZOK);
    EXPECT_EQ(Zos_MutexLock(nullptr) + Zos_MutexCreate(nullptr) + Zos_SemPost(nullptr) +
                  Zos_SharexLock(nullptr),
              4 * ZFAILED);
}

TEST_F(ZosQuietTest, SwitchedOffKindsSucceedWithoutDoingAnything) {
    Zos_CfgSetOsMutexSupt(0);
    Zos_CfgSetOsSharexSupt(0);
    Zos_CfgSetOsSemSupt(0);
    ZMUTEX m = 0x55;
    EXPECT_EQ(Zos_MutexCreate(&m), ZOK);
    EXPECT_EQ(m, 0x55u);  // untouched
    EXPECT_EQ(Zos_MutexLock(&m), ZOK);
    EXPECT_EQ(Zos_MutexUnlock(&m), ZOK);
    EXPECT_EQ(Zos_MutexLock(nullptr), ZOK);
    ZSHAREX x = 0x66;
    EXPECT_EQ(Zos_SharexCreate(&x), ZOK);
    EXPECT_EQ(x, 0x66u);
    ZSEM s = 0x77;
    EXPECT_EQ(Zos_SemCreateOne(&s), ZOK);
    EXPECT_EQ(Zos_SemWait(&s, 0), ZOK);  // nothing waits when switched off
    EXPECT_EQ(s, 0x77u);
    // Switched on again, so shut-down deletes the locks start-up made.
    Zos_CfgSetOsMutexSupt(1);
    Zos_CfgSetOsSharexSupt(1);
    Zos_CfgSetOsSemSupt(1);
}

TEST_F(ZosQuietTest, EmptySlotFails) {
    ZOS_OSDEP_FUNC saved = ktest::Slot(34);
    ktest::Slot(34) = nullptr;
    ZMUTEX m = 0;
    ASSERT_EQ(Zos_MutexCreate(&m), ZOK);
    EXPECT_EQ(Zos_MutexLock(&m), ZFAILED);
    ktest::Slot(34) = saved;
    EXPECT_EQ(Zos_MutexDelete(&m), ZOK);
}

TEST_F(ZosTest, SemaphoreCountsAndTimesOut) {
    ZSEM one = 0;
    ASSERT_EQ(Zos_SemCreateOne(&one), ZOK);
    EXPECT_EQ(Zos_SemWait(&one, 0), ZFAILED);  // starts empty despite its name
    EXPECT_EQ(Zos_SemPost(&one), ZOK);
    EXPECT_EQ(Zos_SemWait(&one, 0), ZOK);
    EXPECT_EQ(Zos_SemWait(&one, 0), ZFAILED);

    const auto t0 = Clock::now();
    EXPECT_EQ(Zos_SemWait(&one, 60), ZFAILED);
    EXPECT_GE(MsSince(t0), 55);
    EXPECT_EQ(Zos_SemDelete(&one), ZOK);

    ZSEM three = 0;
    ASSERT_EQ(Zos_SemCreate(&three, 3), ZOK);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(Zos_SemWait(&three, 0), ZOK);
    EXPECT_EQ(Zos_SemWait(&three, 0), ZFAILED);
    EXPECT_EQ(Zos_SemDelete(&three), ZOK);
}

TEST_F(ZosTest, WaitsEndedByAnotherThread) {
    // An unlimited wait ends with a post from another thread.
    ZSEM sem = 0;
    ASSERT_EQ(Zos_SemCreateOne(&sem), ZOK);
    const auto t0 = Clock::now();
    std::thread poster([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        Zos_SemPost(&sem);
    });
    EXPECT_EQ(Zos_SemWait(&sem, ZOS_WAIT_FOREVER), ZOK);
    EXPECT_GE(MsSince(t0), 20);
    poster.join();

    // A bounded wait ends early with a post.
    std::thread late([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        Zos_SemPost(&sem);
    });
    EXPECT_EQ(Zos_SemWait(&sem, 10000), ZOK);
    late.join();
    EXPECT_EQ(Zos_SemDelete(&sem), ZOK);

    // A held mutex blocks another thread until released; a writer waits for
    // readers.
    ZMUTEX m = 0;
    ASSERT_EQ(Zos_MutexCreate(&m), ZOK);
    ASSERT_EQ(Zos_MutexLock(&m), ZOK);
    std::atomic<bool> got{false};
    std::thread other([&] {
        Zos_MutexLock(&m);
        got = true;
        Zos_MutexUnlock(&m);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_FALSE(got);
    Zos_MutexUnlock(&m);
    other.join();
    EXPECT_TRUE(got);
    Zos_MutexDelete(&m);

    ZSHAREX rw = 0;
    ASSERT_EQ(Zos_SharexCreate(&rw), ZOK);
    ASSERT_EQ(Zos_SharexLock(&rw), ZOK);
    ASSERT_EQ(Zos_SharexLock(&rw), ZOK);  // readers share
    std::atomic<bool> wrote{false};
    std::thread writer([&] {
        Zos_SharexLockEx(&rw);
        wrote = true;
        Zos_SharexUnlockEx(&rw);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_FALSE(wrote);
    Zos_SharexUnlock(&rw);
    Zos_SharexUnlock(&rw);
    writer.join();
    EXPECT_TRUE(wrote);
    // The writer asking again, for either side, is refused rather than
    // left waiting on itself.
    ASSERT_EQ(Zos_SharexLockEx(&rw), ZOK);
    EXPECT_EQ(Zos_SharexLockEx(&rw), ZFAILED);
    EXPECT_EQ(Zos_SharexLock(&rw), ZFAILED);
    EXPECT_EQ(Zos_SharexUnlockEx(&rw), ZOK);
    EXPECT_EQ(Zos_SharexDelete(&rw), ZOK);
}
