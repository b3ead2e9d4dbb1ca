// The target of the watchdog check (tests/watchdog_check.sh): a test that
// hangs on purpose, waiting for a process it started. Disabled, so it runs
// only when asked for by name.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

TEST(Watchdog, DISABLED_HangsWaitingForAChild) {
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // Reads a pipe nobody writes: it ends when this program ends and
        // the pipe's write end closes with it. Only calls that are safe
        // after a fork in a program with threads (no stdio) until the exec.
        const int null = ::open("/dev/null", O_WRONLY);
        ::dup2(fds[0], STDIN_FILENO);
        ::dup2(null, STDOUT_FILENO);
        ::dup2(null, STDERR_FILENO);
        ::close(null);
        ::close(fds[0]);
        ::close(fds[1]);
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
