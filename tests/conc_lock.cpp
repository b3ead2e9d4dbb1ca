// Several threads on one recursive mutex and one semaphore, and a mutex
// deleted while in use.
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "zos_test.h"

namespace {

// Whether the kernel has thread `tid` of this process asleep (state S in
// its stat line, after the name in brackets).
bool Sleeping(long tid) {
    const std::string line = ktest::ReadFile("/proc/self/task/" + std::to_string(tid) + "/stat");
    const size_t name = line.rfind(')');
    return name != std::string::npos && name + 2 < line.size() && line[name + 2] == 'S';
}

}  // namespace

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
    std::atomic<bool> done{false};
    std::vector<std::thread> waiters;
    // The waiters keep waiting, in short timed waits, until told to leave:
    // a poster held up on a busy machine must not send them away early.
    for (int t = 0; t < 3; ++t) {
        waiters.emplace_back([&] {
            while (!done) {
                if (Zos_SemWait(&sem, 50) == ZOK) ++taken;
            }
        });
    }
    for (int i = 0; i < 3000; ++i) Zos_SemPost(&sem);
    EXPECT_TRUE(ktest::Eventually([&] { return taken == 3000; }, std::chrono::seconds(30)));
    // A little longer, so that a post handed out twice would show.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    done = true;
    for (auto &t : waiters) t.join();
    EXPECT_EQ(taken, 3000);
    EXPECT_EQ(Zos_SemWait(&sem, 0), ZFAILED);
    Zos_SemDelete(&sem);
}

// A mutex deleted while this thread holds it (twice, recursively) and
// another waits for it: both go on with their own copies of the handle,
// and the last to let go destroys it. Any use of freed memory, a destroy
// of a held mutex or a leak shows under the sanitizers.
TEST_F(ZosTest, MutexDeletedWhileHeldLastsUntilItsLastUserLetsGo) {
    ZMUTEX m = 0;
    ASSERT_EQ(Zos_MutexCreate(&m), ZOK);
    ZMUTEX mine = m;
    ASSERT_EQ(Zos_MutexLock(&mine), ZOK);
    ASSERT_EQ(Zos_MutexLock(&mine), ZOK);
    // Static, so that a waiter left behind by a failure outlives the test.
    static std::atomic<bool> got;
    static std::atomic<long> tid;
    got = false;
    tid = 0;
    std::thread waiter([copy = m] {
        ZMUTEX h = copy;
        tid = syscall(SYS_gettid);
        EXPECT_EQ(Zos_MutexLock(&h), ZOK);
        got = true;
        EXPECT_EQ(Zos_MutexUnlock(&h), ZOK);
    });
    // The delete must come while the waiter is asleep in the lock, holding
    // its use of the mutex; nothing else puts it to sleep on the way there.
    EXPECT_TRUE(ktest::Eventually([] { return tid != 0 && Sleeping(tid); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(Zos_MutexDelete(&m), ZOK);
    EXPECT_EQ(m, 0u);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(got) << "the delete let the waiter in";
    EXPECT_EQ(Zos_MutexUnlock(&mine), ZOK);
    EXPECT_EQ(Zos_MutexUnlock(&mine), ZOK);
    // Bounded, so that a waiter left on a destroyed mutex fails the test
    // instead of hanging it.
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!got && std::chrono::steady_clock::now() < until) std::this_thread::yield();
    if (!got) {
        waiter.detach();
        FAIL() << "the waiter never got the deleted mutex";
    }
    waiter.join();
}
