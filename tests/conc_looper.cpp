// The host looper under threads: descriptors added and removed on one
// thread while another thread polls.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "zos_test.h"
#include "zpand_looper.h"

namespace {

constexpr int kRounds = 300;
constexpr int kPipes = 4;

// What each registration hands its callback: the descriptor it was added
// for. One record per registration, never reused, so a late callback of
// a removed descriptor still reads its own.
int g_fdOf[kRounds][kPipes];
std::atomic<int> g_calls{0};
std::atomic<int> g_mismatches{0};

// The pipe stays readable, so the poll calls back until the callback
// asks for its removal (by answering 0) or the adding thread removes it.
int OnReady(int fd, int, void *data) {
    if (*static_cast<const int *>(data) != fd) ++g_mismatches;
    ++g_calls;
    return 0;
}

}  // namespace

// Each callback gets the descriptor and data of one registration, whole;
// ThreadSanitizer checks that the poll reads the registrations under the
// same lock the adds and removes write them under.
TEST(ConcLooper, DescriptorsComeAndGoWhileAnotherThreadPolls) {
    g_calls = 0;
    g_mismatches = 0;
    std::atomic<ALooper *> shared{nullptr};
    std::atomic<bool> stop{false};
    std::thread poller([&] {
        ALooper *l = ALooper_prepare(0);
        ALooper_acquire(l);
        shared = l;
        while (!stop) ALooper_pollOnce(5, nullptr, nullptr, nullptr);
        ALooper_release(l);
    });
    while (shared == nullptr) std::this_thread::yield();
    ALooper *looper = shared;
    ALooper_acquire(looper);
    for (int round = 0; round < kRounds; ++round) {
        int fds[kPipes][2];
        for (int p = 0; p < kPipes; ++p) {
            // No early return below: the polling thread must be joined. A
            // pipe that cannot be made is -1, which the looper refuses.
            if (pipe2(fds[p], O_NONBLOCK | O_CLOEXEC) != 0) {
                ADD_FAILURE() << "no pipe";
                fds[p][0] = fds[p][1] = -1;
                continue;
            }
            EXPECT_EQ(write(fds[p][1], "x", 1), 1);
            g_fdOf[round][p] = fds[p][0];
            EXPECT_EQ(ALooper_addFd(looper, fds[p][0], 0, ALOOPER_EVENT_INPUT, OnReady,
                                    &g_fdOf[round][p]),
                      1);
        }
        // The first round waits for its callbacks; the later ones race
        // them. A remove answers 1 while the descriptor is still
        // registered, 0 once its callback has removed it.
        if (round == 0) {
            EXPECT_TRUE(ktest::Eventually([] { return g_calls == kPipes; }));
        }
        for (auto &pair : fds) EXPECT_GE(ALooper_removeFd(looper, pair[0]), 0);
        for (auto &pair : fds) {
            if (pair[0] < 0) continue;
            close(pair[0]);
            close(pair[1]);
        }
    }
    stop = true;
    ALooper_wake(looper);
    poller.join();
    ALooper_release(looper);
    EXPECT_EQ(g_mismatches.load(), 0);
}
