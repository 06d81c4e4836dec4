#include "near/hostprocess.h"

#include "wire/ready.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace remote {

namespace {

constexpr int startLimit = 10'000; // milliseconds, as are the following
constexpr int endLimit = 1'000;
constexpr int killLimit = 5'000;
constexpr int outputLimit = 100;
constexpr size_t watcherStack = 128 * 1024;
// The spawned process's descriptors are set up from places above the ones that it gets.
constexpr int firstFree = 10;

long long milliseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

void closeAndForget(int& descriptor) {
    if (descriptor >= 0) {
        close(descriptor);
    }
    descriptor = -1;
}

// Above the standard descriptors, which an application may have closed.
bool moveUp(int& descriptor) {
    const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, firstFree);
    close(descriptor);
    descriptor = moved;
    return moved >= 0;
}

size_t cutBetweenCharacters(const char* text, size_t length) {
    while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80) {
        --length;
    }
    return length;
}

} // namespace

template <size_t size>
void FixedText<size>::set(const char* format, ...) {
    va_list args;
    va_start(args, format);
    if (vsnprintf(text, size, format, args) >= static_cast<int>(size)) {
        text[cutBetweenCharacters(text, size - 1)] = '\0';
    }
    va_end(args);
}

template <size_t size>
void FixedText<size>::append(const char* more) {
    const size_t used = std::strlen(text);
    const size_t length = std::strlen(more);
    const size_t taken = length < size - used ? length : cutBetweenCharacters(more, size - used - 1);
    std::memcpy(text + used, more, taken);
    text[used + taken] = '\0';
}

template struct FixedText<400>;
template struct FixedText<1024>;
template struct FixedText<256>;

bool ownPlace(FixedText<1024>& folder, FixedText<256>& name) {
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void*>(&ownPlace), &info) == 0 || info.dli_fname == nullptr) {
        return false;
    }
    const char* const slash = std::strrchr(info.dli_fname, '/');
    const size_t length = slash != nullptr ? static_cast<size_t>(slash + 1 - info.dli_fname) : 0;
    if (length >= sizeof folder.text || std::strlen(info.dli_fname + length) >= sizeof name.text) {
        return false;
    }
    folder.set("%.*s", static_cast<int>(length), info.dli_fname);
    name.set("%s", info.dli_fname + length);
    return true;
}

bool HostProcess::start(int wordSize, const char* file, Problem& problem) {
    end.set("%s", "");
    tailLength = 0;
    collected = false;
    impatient = false;
    const int noBlock = shared.create();
    if (noBlock != 0) {
        problem.set("no memory to share with a host process: %s", strerror(noBlock));
        return false;
    }
    if (!spawn(wordSize, file, problem)) {
        closeAll();
        return false;
    }
    if (!awaitReady(problem) || !watch()) {
        if (problem.text[0] == '\0') {
            problem.set("no thread to watch the host process: %s", strerror(errno));
        }
        collect(0);
        closeAll();
        return false;
    }
    return true;
}

namespace {

// Why a program that is there cannot be started, with the cure.
void describeSpawnFailure(int error, int wordSize, const char* program, Problem& problem) {
    const char* const package = wordSize == 32 ? "libc6:i386 on Debian, glibc.i686 on Fedora" : "libc6:amd64 on Debian";
    if (access(program, F_OK) != 0) {
        problem.set("the host program %s is missing; install tmqkci again", program);
    } else if (error == ENOENT) {
        problem.set("no %d-bit C library here for %s: install %s", wordSize, program, package);
    } else if (error == ENOEXEC) {
        problem.set("this system does not run %d-bit programs, as %s is one", wordSize, program);
    } else {
        problem.set("the host program %s does not start: %s", program, strerror(error));
    }
}

} // namespace

bool HostProcess::spawn(int wordSize, const char* file, Problem& problem) {
    FixedText<1024> program;
    FixedText<1024> folder;
    FixedText<256> name;
    if (!ownPlace(folder, name)) {
        problem.set("the path of the remote client library is longer than 1000 characters");
        return false;
    }
    program.set("%stmqkci-host%d", folder.text, wordSize);
    if (access(program.text, F_OK) != 0) {
        program.set("%s../bin/tmqkci-host%d", folder.text, wordSize);
    }

    int sockets[2];
    int pipes[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets) != 0) {
        problem.set("no socket pair for a host process: %s", strerror(errno));
        return false;
    }
    socket = sockets[0];
    int far = sockets[1];
    int farOutput = -1;
    int farBlock = -1;
    int error = moveUp(socket) && moveUp(far) ? 0 : errno;
    if (error == 0 && pipe2(pipes, O_CLOEXEC) == 0) {
        output = pipes[0];
        farOutput = pipes[1];
        farBlock = fcntl(shared.descriptor(), F_DUPFD_CLOEXEC, firstFree);
        error =
            moveUp(output) && moveUp(farOutput) && farBlock >= 0 && fcntl(output, F_SETFL, O_NONBLOCK) == 0 ? 0 : errno;
    } else if (error == 0) {
        error = errno;
    }
    if (error != 0) {
        problem.set("no descriptors for a host process: %s", strerror(error));
    } else {
        posix_spawn_file_actions_t actions;
        posix_spawnattr_t attributes;
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
        error = posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        const std::pair<int, int> handed[] = {
            {farOutput, STDOUT_FILENO}, {farOutput, STDERR_FILENO}, {far, hostSocket}, {farBlock, hostBlock}};
        for (const auto& [from, to] : handed) {
            error = error == 0 ? posix_spawn_file_actions_adddup2(&actions, from, to) : error;
        }
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes, &signals);
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&attributes, &signals);
        // Out of the terminal's reach: an interrupt from there is for the application to deal with.
        posix_spawnattr_setpgroup(&attributes, 0);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
        const char* const arguments[] = {program.text, file, nullptr};
        if (error == 0) {
            error =
                posix_spawn(&pid, program.text, &actions, &attributes, const_cast<char* const*>(arguments), environ);
        }
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
        if (error != 0) {
            pid = -1;
            describeSpawnFailure(error, wordSize, program.text, problem);
        } else {
            pidDescriptor = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
        }
    }
    closeAndForget(far);
    closeAndForget(farOutput);
    closeAndForget(farBlock);
    return error == 0;
}

bool HostProcess::awaitReady(Problem& problem) {
    const long long until = milliseconds() + startLimit;
    for (;;) {
        const long long left = until - milliseconds();
        pollfd channels[] = {{socket, POLLIN, 0}, {output, POLLIN, 0}};
        if (left <= 0) {
            problem.set("the host process did not open the client library within %d seconds", startLimit / 1000);
            appendOutput(problem);
            return false;
        }
        poll(channels, 2, static_cast<int>(left));
        if (channels[1].revents != 0) {
            readOutput();
        }
        if (channels[0].revents == 0) {
            continue;
        }
        Ready ready{};
        const ssize_t size = recv(socket, &ready, sizeof ready, MSG_DONTWAIT);
        if (size == sizeof ready && ready.magic == readyMagic) {
            if (ready.release != wireRelease) {
                problem.set("the host program is of another release than libkcirpc67.so; install tmqkci again");
                return false;
            }
            ready.text[sizeof ready.text - 1] = '\0';
            if (ready.serves == 0) {
                problem.set("%s", ready.text);
            }
            return ready.serves != 0;
        }
        collect(endLimit);
        problem.set("%s", end.text);
        return false;
    }
}

bool HostProcess::watch() {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_attr_t attributes;
    errno = pthread_attr_init(&attributes);
    if (errno != 0) {
        return false;
    }
    pthread_attr_setstacksize(&attributes, watcherStack);
    // No signal of the application is ever delivered to a thread that it does not know.
    pthread_sigmask(SIG_SETMASK, &all, &before);
    errno = pthread_create(&thread, &attributes, &HostProcess::watcher, this);
    const int error = errno;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    errno = error;
    watching = error == 0;
    return watching;
}

void* HostProcess::watcher(void* process) {
    static_cast<HostProcess*>(process)->watchUntilEnd();
    return nullptr;
}

void HostProcess::watchUntilEnd() {
    for (bool ended = false; !ended;) {
        pollfd channels[] = {{socket, POLLIN, 0}, {output, POLLIN, 0}};
        poll(channels, 2, -1);
        // Nothing comes over the socket but its end.
        ended = channels[0].revents != 0;
        if (channels[1].revents != 0) {
            readOutput();
        }
    }
    collect(endLimit);
    publishGone(shared.control().answer);
    publishGone(shared.control().aheadEnd);
    publishGone(shared.control().breakAnswer);
}

// Passes output on. An application's standard error that takes nothing more must not keep the watcher: what does not go
// out in time is dropped.
void HostProcess::readOutput() {
    char piece[512];
    const ssize_t size = read(output, piece, sizeof piece);
    if (size <= 0) {
        if (size == 0 || (errno != EAGAIN && errno != EINTR)) {
            closeAndForget(output);
        }
        return;
    }
    auto length = static_cast<size_t>(size);
    pollfd standardError = {STDERR_FILENO, POLLOUT, 0};
    if (poll(&standardError, 1, outputLimit) == 1 && (standardError.revents & POLLOUT) != 0) {
        [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, piece, length);
    }
    const char* from = piece;
    if (length > tailSize) {
        from += length - tailSize;
        length = tailSize;
    }
    const size_t kept = std::min(tailLength, tailSize - length);
    std::memmove(tail, tail + tailLength - kept, kept);
    std::memcpy(tail + kept, from, length);
    tailLength = kept + length;
}

// Waits for the end of the process, for so long by itself and then after a kill, and takes its status. Neither touches
// how the application treats SIGCHLD nor any other child of its.
void HostProcess::collect(int patienceMilliseconds) {
    if (collected) {
        return;
    }
    long long until = milliseconds() + (impatient ? 0 : patienceMilliseconds);
    bool killed = false;
    int status = 0;
    pid_t found = 0;
    while ((found = waitpid(pid, &status, WNOHANG)) == 0 || (found < 0 && errno == EINTR)) {
        if (milliseconds() >= until || (impatient && !killed)) {
            if (killed) {
                break;
            }
            killed = true;
            until = milliseconds() + killLimit;
            if (pidDescriptor >= 0) {
                syscall(SYS_pidfd_send_signal, pidDescriptor, SIGKILL, nullptr, 0);
            } else {
                kill(pid, SIGKILL);
            }
        }
        // A process that somebody else collects, or nobody needs to, ends all the same.
        pollfd channels[] = {{pidDescriptor, POLLIN, 0}, {output, POLLIN, 0}};
        poll(channels, 2, pidDescriptor >= 0 ? 20 : 1);
        if (channels[1].revents != 0) {
            readOutput();
        }
    }
    for (pollfd rest = {output, POLLIN, 0}; output >= 0 && poll(&rest, 1, 0) == 1;) {
        readOutput();
        rest.fd = output;
    }
    collected = true;
    describe(status, found == pid);
}

void HostProcess::describe(int status, bool known) {
    if (known && WIFSIGNALED(status)) {
        end.set("the client library's host process was ended by signal %d (%s)", WTERMSIG(status),
                strsignal(WTERMSIG(status)));
    } else if (known) {
        end.set("the client library's host process ended with status %d", WEXITSTATUS(status));
    } else {
        end.set(
            "the client library's host process ended; how is not known, because the application collects or ignores "
            "its children");
    }
    appendOutput(end);
}

// The last lines, as far as they are whole and text.
void HostProcess::appendOutput(Problem& text) const {
    char lines[tailSize + 1];
    size_t length = 0;
    const char* from = tail;
    const char* const to = tail + tailLength;
    if (tailLength == tailSize) {
        from = std::find(from, to, '\n');
    }
    for (; from != to; ++from) {
        const auto code = static_cast<unsigned char>(*from);
        // Java takes text apart that is not UTF-8, so nothing but ASCII goes into a report.
        lines[length++] = code == '\n' || (code >= ' ' && code < 0x7f) ? *from : '?';
    }
    while (length > 0 && lines[length - 1] == '\n') {
        --length;
    }
    lines[length] = '\0';
    const char* const first = lines + std::strspn(lines, "\n");
    if (*first != '\0') {
        text.append("; its last output: ");
        text.append(first);
    }
}

void HostProcess::hangUp(bool atOnce) {
    impatient = atOnce;
    shutdown(socket, SHUT_RDWR);
}

void HostProcess::join() {
    if (watching) {
        pthread_join(thread, nullptr);
        watching = false;
    }
}

void HostProcess::stop() {
    join();
    closeAll();
}

void HostProcess::closeDescriptors() {
    closeAndForget(socket);
    closeAndForget(output);
    closeAndForget(pidDescriptor);
    shared.closeDescriptor();
    pid = -1;
}

void HostProcess::closeAll() {
    closeDescriptors();
    shared.close();
}

void HostProcess::forgetInFork() {
    watching = false;
    closeAll();
}

} // namespace remote
