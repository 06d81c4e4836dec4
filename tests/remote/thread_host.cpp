// A host in a thread instead of a process: the near side's view of one, over the scripted client library of this
// program, so that a test sees both sides.
#include "host/server.h"
#include "near/hostprocess.h"
#include "support/scripted_client.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <thread>

namespace {

remote::Server* server;
// Not destroyed with the program, which may end before its host.
std::thread& serving = *new std::thread;
std::thread& breaking = *new std::thread;

} // namespace

namespace remote {

template <size_t size>
void FixedText<size>::set(const char* format, ...) {
    va_list args;
    va_start(args, format);
    vsnprintf(text, size, format, args);
    va_end(args);
}
template struct FixedText<400>;
template struct FixedText<1024>;
template struct FixedText<256>;

bool ownPlace(FixedText<1024>& folder, FixedText<256>& name) {
    folder.set("/test/");
    name.set("libkcirpc67.so");
    return true;
}

bool HostProcess::start(int, const char*, Problem& problem) {
    if (shared.create() != 0) {
        problem.set("no block");
        return false;
    }
    server = new Server(*KciGetRtlTable(), shared);
    serving = std::thread([this] {
        if (!server->serve()) {
            end.set("ended by a request that is none");
            publishGone(shared.control().answer);
            publishGone(shared.control().aheadEnd);
        }
    });
    breaking = std::thread([] { server->serveBreaks(); });
    watching = true;
    return true;
}

void HostProcess::hangUp(bool) {
    publishGone(shared.control().request);
    publishGone(shared.control().breakRequest);
}

void HostProcess::join() {
    if (watching) {
        serving.join();
        breaking.join();
        watching = false;
    }
}

void HostProcess::stop() {
    join();
    delete server;
    server = nullptr;
    shared.close();
}

void HostProcess::closeDescriptors() {}

void HostProcess::forgetInFork() {}

} // namespace remote
