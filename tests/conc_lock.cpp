// Several threads on one recursive mutex and one semaphore.
#include <atomic>
#include <thread>
#include <vector>

#include "zos_test.h"

TEST_F(ZosTest, MutexSerialisesIncrementsAcrossThreads) {
    ZMUTEX m = 0;
    ASSERT_EQ(Zos_MutexCreate(&m), ZOK);
    long counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                Zos_MutexLock(&m);
                Zos_MutexLock(&m);  // recursive
                ++counter;
                Zos_MutexUnlock(&m);
                Zos_MutexUnlock(&m);
            }
        });
    }
    for (auto &t : threads) t.join();
    EXPECT_EQ(counter, 80000);
    Zos_MutexDelete(&m);
}

TEST_F(ZosTest, SemaphoreHandsEveryPostToExactlyOneWaiter) {
    ZSEM sem = 0;
    ASSERT_EQ(Zos_SemCreateOne(&sem), ZOK);
    std::atomic<int> taken{0};
    std::vector<std::thread> waiters;
    for (int t = 0; t < 3; ++t) {
        waiters.emplace_back([&] {
            while (Zos_SemWait(&sem, 2000) == ZOK) ++taken;
        });
    }
    for (int i = 0; i < 3000; ++i) Zos_SemPost(&sem);
    for (auto &t : waiters) t.join();
    EXPECT_EQ(taken, 3000);
    EXPECT_EQ(Zos_SemWait(&sem, 0), ZFAILED);
    Zos_SemDelete(&sem);
}
