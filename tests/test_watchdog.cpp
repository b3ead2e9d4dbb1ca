// The target of the watchdog check (tests/watchdog_check.sh): a test that
// hangs on purpose, waiting for a process it started. Disabled, so it runs
// only when asked for by name.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

namespace {

TEST(Watchdog, DISABLED_HangsWaitingForAChild) {
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // Reads a pipe nobody writes: it ends when this program ends and
        // the pipe's write end closes with it.
        ::dup2(fds[0], STDIN_FILENO);
        ::close(fds[0]);
        ::close(fds[1]);
        std::freopen("/dev/null", "w", stdout);
        std::freopen("/dev/null", "w", stderr);
        ::execl("/bin/sh", "sh", "-c", "read line", static_cast<char *>(nullptr));
        ::_exit(127);
    }
    ::close(fds[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    ::close(fds[1]);
    ADD_FAILURE() << "the child ended, status " << status;
}

}  // namespace
