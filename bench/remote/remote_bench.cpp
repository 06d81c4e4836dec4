// What the native methods ask of a client library, call by call, timed: in process or through the remote client
// library.
//
//   remote_bench in <client library>
//   remote_bench remote <remote client library> <client library to serve>
//
// A line for each method: the median time of a call in microseconds and the exchanges with the host process that one
// call takes. The second kind of line is for a table that bench/remote/run makes.
#include "kciremote.h"
#include "kcitable.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <vector>

namespace {

constexpr ArraySizeType preload = 1024;
constexpr ArraySizeType elementCount = 1000;

const KciRtlJumpSType* kci;
uint64_t (*exchangeCount)() = [] { return uint64_t{0}; };

[[noreturn]] void give(const char* what, const char* why) {
    std::fprintf(stderr, "remote_bench: %s: %s\n", what, why);
    std::exit(1);
}

template <class Function>
Function symbol(void* library, const char* name) {
    void* const found = dlsym(library, name);
    if (found == nullptr) {
        give(name, dlerror());
    }
    return reinterpret_cast<Function>(found);
}

double now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

void check() {
    KciErrSType error;
    if (kci->KciErr(&error)) {
        give("client library", error.message);
    }
}

// --- the native methods' calls -------------------------------------------------------------------------------------

KciSessionIdType session;
std::vector<OopType> oops(elementCount);
std::vector<ByteType> bytes(64 * 1024);

void frame() {
    kci->KciSetSessionId(session);
    check();
}

void describe(OopType oop) {
    KciErrSType error;
    if (oop & 2) {
        return;
    }
    kci->KciSaveObjs(&oop, 1);
    check();
    KciObjInfoSType info{};
    ArraySizeType fetched = 0;
    kci->KciFetchObjInfo(oop, 1, preload, &info, bytes.data(), &fetched);
    kci->KciFetchNamedOop(info.objClass, 12);
    kci->KciErr(&error);
    if (info.objImpl == KCI_IMPL_BYTE) {
        if (info.objClass == KCI_CLASS_FLOAT) {
            kci->KciOopToFlt(oop);
        } else if (kci->KciIsKindOf(oop, KCI_CLASS_STRING_KIND)) {
            kci->KciIsKindOf(oop, KCI_CLASS_DB_STRING);
        }
    }
    check();
}

void start(const char* source) {
    frame();
    kci->KciNbExecuteStr(source, KCI_OOP_NIL);
}

// One poll; NONE while there is no result.
OopType poll(bool described) {
    frame();
    void* cell = nullptr;
    if (kci->KciNbEnd(&cell) != KCI_RESULT_READY) {
        return KCI_OOP_NONE;
    }
    check();
    const OopType result = *static_cast<OopType*>(cell);
    if (described) {
        describe(result);
    }
    return result;
}

OopType evaluate(const char* source) {
    start(source);
    for (;;) {
        if (const OopType result = poll(false)) {
            return result;
        }
    }
}

OopType string, array;

void setup() {
    frame();
    describe(string);
}
void isKindOf() {
    frame();
    kci->KciIsKindOf(string, KCI_CLASS_STRING_KIND);
    check();
}
void getBytes() {
    frame();
    kci->KciFetchBytes(string, 1, bytes.data(), 12);
    check();
}
void getObjs() {
    frame();
    const KciLong count = kci->KciFetchVaryingOops(array, 1, oops.data(), elementCount);
    check();
    for (KciLong i = 0; i < count; ++i) {
        if ((oops[i] & 2) == 0) {
            kci->KciSaveObjs(&oops[i], 1);
            check();
        }
    }
}
void perform() {
    frame();
    kci->KciNbPerform(string, "yourself", nullptr, 0);
}
void nbEnd() {
    while (poll(true) == KCI_OOP_NONE) {
    }
}

template <class Body, class Before>
void measure(const char* name, int rounds, Body body, Before before) {
    for (int i = 0; i < 20; ++i) {
        before();
        body();
    }
    std::vector<double> times;
    uint64_t exchanges = 0;
    for (int i = 0; i < rounds; ++i) {
        before();
        const uint64_t countBefore = exchangeCount();
        const double begin = now();
        body();
        times.push_back(now() - begin);
        exchanges += exchangeCount() - countBefore;
    }
    std::nth_element(times.begin(), times.begin() + rounds / 2, times.end());
    std::printf("%s\t%.4f\t%.3f\n", name, times[rounds / 2], static_cast<double>(exchanges) / rounds);
}

} // namespace

int main(int argc, char** argv) {
    const bool remote = argc == 4 && std::strcmp(argv[1], "remote") == 0;
    if (!remote && (argc != 3 || std::strcmp(argv[1], "in") != 0)) {
        std::fprintf(stderr, "usage: remote_bench in LIBRARY | remote_bench remote REMOTE-LIBRARY LIBRARY\n");
        return 2;
    }
    void* const library = dlopen(argv[2], RTLD_NOW | RTLD_GLOBAL);
    if (library == nullptr) {
        give(argv[2], dlerror());
    }
    if (remote) {
        char error[400];
        if (!symbol<KciRemoteServeFuncPtr>(library, "KciRemoteServe")(argv[3], error, sizeof error)) {
            give(argv[3], error);
        }
        exchangeCount = symbol<uint64_t (*)()>(library, "KciRemoteExchanges");
    }
    kci = symbol<KciGetRtlTableFuncPtr>(library, "KciGetRtlTable")();
    kci->KciInitAppName("remote_bench", TRUE);
    if (!kci->KciInit()) {
        check();
    }
    kci->KciSetNet("local", nullptr, nullptr, nullptr);
    check();
    kci->KciLogin("guest", "guest");
    check();
    session = kci->KciGetSessionId();
    string = evaluate("'twelve bytes' copy");
    array = evaluate("| a | a := Array new: 1000. 1 to: 1000 do: [:i | a at: i put: i printString]. a");

    const auto nothing = [] {};
    const auto drain = [] {
        while (poll(false) == KCI_OOP_NONE) {
        }
    };
    measure("_isKindOf", 20000, isKindOf, nothing);
    measure("_getBytes", 20000, getBytes, nothing);
    measure("_setup", 20000, setup, nothing);
    measure("_getObjs", 300, getObjs, nothing);
    bool running = false;
    measure(
        "_perform", 5000, [&] { perform(), running = true; },
        [&] {
            if (running) {
                drain();
            }
        });
    drain();
    measure("_nbEnd", 5000, nbEnd, perform);
    kci->KciLogout();
    kci->KciShutdown();
    kci->KciUnload();
    return 0;
}
