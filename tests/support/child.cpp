#include "support/child.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
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

struct Pipe {
    int readEnd = -1;
    int writeEnd = -1;
    Pipe() {
        std::array<int, 2> ends;
        if (pipe2(ends.data(), O_CLOEXEC) != 0)
            die("runInChild: pipe2");
        readEnd = ends[0];
        writeEnd = ends[1];
    }
};

// Failed expectations of the running test so far.
int failureCount() {
    const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
    return test != nullptr ? test->result()->total_part_count() : 0;
}

[[noreturn]] void runChild(const std::function<void()>& body, const Pipe& out, const Pipe& err) {
    // A group of its own: the time-out also reaches what the child started.
    setpgid(0, 0);
    if (dup2(out.writeEnd, STDOUT_FILENO) < 0 || dup2(err.writeEnd, STDERR_FILENO) < 0)
        die("runInChild: dup2");
    const int failuresBefore = failureCount();
    body();
    fflush(stdout);
    fflush(stderr);
    _exit(failureCount() != failuresBefore ? failedExpectation : 0);
}

// Reads what is there; closes the descriptor at its end.
void drain(pollfd& channel, std::string& text) {
    std::array<char, 65536> buffer;
    const ssize_t count = read(channel.fd, buffer.data(), buffer.size());
    if (count > 0) {
        text.append(buffer.data(), static_cast<size_t>(count));
    } else if (count == 0 || errno != EINTR) {
        close(channel.fd);
        channel.fd = -1;
    }
}
} // namespace

ChildResult runInChild(const std::function<void()>& body, const std::function<void(pid_t)>& whileItRuns,
                       std::chrono::milliseconds timeOut) {
    using Clock = std::chrono::steady_clock;
    fflush(stdout);
    fflush(stderr);
    const Pipe out;
    const Pipe err;
    const auto start = Clock::now();
    const pid_t pid = fork();
    if (pid < 0)
        die("runInChild: fork");
    if (pid == 0)
        runChild(body, out, err);
    setpgid(pid, pid);
    close(out.writeEnd);
    close(err.writeEnd);
    if (whileItRuns)
        whileItRuns(pid);

    ChildResult result;
    std::array<pollfd, 2> channels{{{out.readEnd, POLLIN, 0}, {err.readEnd, POLLIN, 0}}};
    bool reaped = false;
    int status = 0;
    // The child's end decides, not the pipes': a grandchild may keep those open. What the child wrote is in the pipes
    // by the time it has ended, so one more round after that reads it all.
    for (bool lastRound = false; !lastRound;) {
        lastRound = reaped;
        poll(channels.data(), channels.size(), reaped ? 0 : 10);
        for (size_t i = 0; i < channels.size(); ++i) {
            while (channels[i].fd >= 0 && poll(&channels[i], 1, 0) == 1)
                drain(channels[i], i == 0 ? result.out : result.err);
        }
        if (!reaped) {
            reaped = waitpid(pid, &status, WNOHANG) == pid;
            if (!reaped && !result.timedOut && Clock::now() - start > timeOut) {
                result.timedOut = true;
                kill(-pid, SIGKILL);
            }
        }
    }
    for (const pollfd& channel : channels) {
        if (channel.fd >= 0)
            close(channel.fd);
    }
    result.elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    if (WIFEXITED(status))
        result.exitStatus = WEXITSTATUS(status);
    else
        result.signal = WTERMSIG(status);
    return result;
}

ChildResult runInChild(const std::function<void()>& body, std::chrono::milliseconds timeOut) {
    return runInChild(body, nullptr, timeOut);
}
