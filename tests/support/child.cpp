#include "support/child.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hostdebug.h"

// Programs without the library have none.
#pragma weak noHalt

namespace {
[[gnu::constructor]] void goOnAfterFatalErrors() {
    if (&noHalt != nullptr)
        noHalt = TRUE;
}

constexpr int failedExpectation = 99;

[[noreturn]] void die(const char* what) {
    perror(what);
    abort();
}

// Failed expectations of the running test so far.
int failureCount() {
    const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
    return test != nullptr ? test->result()->total_part_count() : 0;
}

// A file in memory for what the child and those that it starts write.
int outputFile() {
    const int file = memfd_create("output", MFD_CLOEXEC);
    if (file < 0)
        die("runInChild: memfd_create");
    return file;
}

std::string contents(int file) {
    std::string text(static_cast<size_t>(lseek(file, 0, SEEK_END)), '\0');
    text.resize(static_cast<size_t>(std::max<ssize_t>(pread(file, text.data(), text.size(), 0), 0)));
    close(file);
    return text;
}

[[noreturn]] void runChild(const std::function<void()>& body, int out, int err) {
    // A group of its own: the time-out also reaches what the child started.
    setpgid(0, 0);
    if (dup2(out, STDOUT_FILENO) < 0 || dup2(err, STDERR_FILENO) < 0)
        die("runInChild: dup2");
    const int failuresBefore = failureCount();
    body();
    fflush(stdout);
    fflush(stderr);
    _exit(failureCount() != failuresBefore ? failedExpectation : 0);
}
} // namespace

ChildResult runInChild(const std::function<void()>& body, const std::function<void(pid_t)>& whileItRuns,
                       std::chrono::milliseconds timeOut) {
    using Clock = std::chrono::steady_clock;
    fflush(stdout);
    fflush(stderr);
    const int out = outputFile();
    const int err = outputFile();
    const auto start = Clock::now();
    const pid_t pid = fork();
    if (pid < 0)
        die("runInChild: fork");
    if (pid == 0)
        runChild(body, out, err);
    setpgid(pid, pid);
    if (whileItRuns)
        whileItRuns(pid);

    ChildResult result;
    int status = 0;
    for (; waitpid(pid, &status, WNOHANG) != pid; usleep(2000)) {
        if (!result.timedOut && Clock::now() - start > timeOut) {
            result.timedOut = true;
            kill(-pid, SIGKILL);
        }
    }
    result.out = contents(out);
    result.err = contents(err);
    if (WIFEXITED(status))
        result.exitStatus = WEXITSTATUS(status);
    else
        result.signal = WTERMSIG(status);
    return result;
}

ChildResult runInChild(const std::function<void()>& body, std::chrono::milliseconds timeOut) {
    return runInChild(body, nullptr, timeOut);
}
