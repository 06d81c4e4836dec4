// tmqkci-host32 and tmqkci-host64: a process that has opened a client library and serves it to its parent. Started by
// libkcirpc67.so with the library's file as its argument; it ends when its parent does.
#include "host/server.h"
#include "kcirtl.h"
#include "kcirtl/loadfile.h"
#include "wire/ready.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <new>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// A call that does not come to its end is not waited for longer than this when the parent is gone.
constexpr unsigned farewell = 500'000; // microseconds
constexpr size_t threadStack = 256 * 1024;

// Neither is ever destroyed: the process ends while its other threads look at them.
alignas(remote::Block) char blockPlace[sizeof(remote::Block)];
remote::Block& block = *new (blockPlace) remote::Block;
alignas(remote::Server) char serverPlace[sizeof(remote::Server)];

// Only what is meant for this process stays open, and none of it is handed on.
void closeInherited() {
    if (syscall(SYS_close_range, remote::hostBlock + 1, ~0U, 0) != 0) {
        DIR* const all = opendir("/proc/self/fd");
        for (const dirent* each = nullptr; all != nullptr && (each = readdir(all)) != nullptr;) {
            const int descriptor = atoi(each->d_name);
            if (descriptor > remote::hostBlock && descriptor != dirfd(all)) {
                close(descriptor);
            }
        }
        if (all != nullptr) {
            closedir(all);
        }
    }
    fcntl(remote::hostSocket, F_SETFD, FD_CLOEXEC);
    fcntl(remote::hostBlock, F_SETFD, FD_CLOEXEC);
}

void report(bool serves, const char* text) {
    remote::Ready ready{};
    ready.magic = remote::readyMagic;
    ready.release = remote::wireRelease;
    ready.serves = serves ? 1 : 0;
    snprintf(ready.text, sizeof ready.text, "%s", text);
    send(remote::hostSocket, &ready, sizeof ready, MSG_NOSIGNAL);
}

void* watchParent(void*) {
    pollfd socket = {remote::hostSocket, POLLIN, 0};
    while (poll(&socket, 1, -1) < 0) {
        usleep(1000); // a signal, or no memory for the moment
    }
    remote::publishGone(block.control().request);
    remote::publishGone(block.control().breakRequest);
    usleep(farewell);
    _exit(0);
}

void* serveBreaks(void* server) {
    static_cast<remote::Server*>(server)->serveBreaks();
    return nullptr;
}

bool startThread(void* (*body)(void*), void* argument) {
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) {
        return false;
    }
    pthread_attr_setstacksize(&attributes, threadStack);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread;
    const int error = pthread_create(&thread, &attributes, body, argument);
    pthread_attr_destroy(&attributes);
    return error == 0;
}

} // namespace

int main(int argc, char** argv) {
    const int problem = argc == 2 && fcntl(remote::hostSocket, F_GETFD) >= 0 ? block.open(remote::hostBlock) : EINVAL;
    if (problem == ENOMEM) {
        report(false, "the host process has no memory to share");
        return 1;
    }
    if (problem != 0) {
        fprintf(stderr, "%s serves a client library to the process that starts it; it is no command\n", argv[0]);
        return 2;
    }
    closeInherited();
    // What the client library prints comes to the parent's standard error as it is printed.
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    char reason[sizeof(remote::Ready::text)] = "";
    if (!kciRtlLoadFile(argv[1], reason, sizeof reason)) {
        report(false, reason);
        return 1;
    }
    auto& server = *new (serverPlace) remote::Server(*rtlPrivKciRtlFuncs, block);
    if (!startThread(watchParent, nullptr) || !startThread(serveBreaks, &server)) {
        report(false, "the host process has no memory for its threads");
        return 1;
    }
    report(true, "");
    if (!server.serve()) {
        fprintf(stderr, "tmqkci-host: a request that is none\n");
        return 3;
    }
    if (server.inUse()) {
        rtlPrivKciRtlFuncs->KciShutdown();
    }
    return 0;
}
