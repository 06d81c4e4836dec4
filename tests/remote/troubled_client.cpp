// A client library that gets its process into trouble on request: by the source of KciNbExecuteStr, the user of
// KciLogin, or the environment variable TROUBLED_START when it is opened.
#include "kcitable.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace {

std::atomic<bool> broken;
bool stuck;

void get(const char* trouble) {
    const auto is = [&](const char* word) { return std::strcmp(trouble, word) == 0; };
    if (is("crash")) {
        std::fputs("about to crash\n", stderr);
        volatile int* nowhere = nullptr;
        *nowhere = 1;
    } else if (is("kill")) {
        raise(SIGKILL);
    } else if (is("exit")) {
        std::puts("leaving");
        std::exit(7);
    } else if (is("wait") || is("stick")) {
        stuck = is("stick");
        broken = false;
        while (!broken) {
            usleep(1000);
        }
    }
}

KciRtlJumpSType makeTable() {
    KciRtlJumpSType table{};
    table.kciFeatureLevel = KCI_ENTRY_COUNT;
    table.KciInit = []() -> BoolType { return TRUE; };
    table.KciInitAppName = [](const char*, BoolType) {};
    table.KciProduct = []() -> unsigned char { return 1; };
    table.KciErr = [](KciErrSType*) -> BoolType { return FALSE; };
    table.KciSetNet = [](const char*, const char*, const char*, const char*) {};
    table.KciLogin = [](const char* user, const char*) -> BoolType { return get(user), TRUE; };
    table.KciGetSessionId = []() -> KciSessionIdType { return 7; };
    table.KciSetSessionId = [](KciSessionIdType) {};
    table.KciNbExecuteStr = [](const char* source, OopType) { get(source); };
    table.KciLongToOop = [](KciLong value) -> OopType { return OopType(value) << 2 | 3; };
    table.KciSoftBreak = [] {
        broken = !stuck;
        while (stuck) {
            usleep(1000);
        }
    };
    table.KciShutdown = [] {};
    table.KciUnload = [] {};
    return table;
}

[[gnu::constructor]] void start() {
    if (const char* trouble = std::getenv("TROUBLED_START"); trouble != nullptr && getppid() != 1) {
        get(trouble);
    }
}

} // namespace

extern "C" __attribute__((visibility("default"))) const KciRtlJumpSType* KciGetRtlTable() {
    static const KciRtlJumpSType table = makeTable();
    return &table;
}
