// The local store's language: seconds of processor time and the longest poll of programs, on a client library's path.
// bench/local_store/run makes a table of several runs.
#include "kcitable.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace {

double seconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

constexpr const char* programs[][2] = {
    {"while", "| n | n := 0. [n < 10000000] whileTrue: [n := n + 1]. n"},
    {nullptr,
     "Object subclass: #A variables: #(#a #b). A method: 'foo: x ^x'. A method: 'a: x b: y a := x. b := y'. 0"},
    {"sends", "| n a | a := A new. n := 0. [n < 5000000] whileTrue: [a foo: n. n := n + 1]. n"},
    {"objects", "| n | n := 0. [n < 2000000] whileTrue: [A new a: n b: 1. n := n + 1]. n"},
    {"blocks",
     "| sum f n | sum := 0. f := [:i | sum := sum + i]. n := 1. [n <= 5000000] whileTrue: [f value: 1. n := n + 1]"},
    {"strings", "all := List new. 1 to: 1000000 do: [:i | all add: i printString]. all size"},
    {"joinedBy:", "(all joinedBy: ',') size"},
    {", in a loop", "| t | t := ''. all do: [:e | t := t , e]. t size"},
    {"dictionary", "d := Dictionary new. 1 to: 1000000 do: [:i | d at: i put: i]. d size"},
    {"collect garbage", "d := nil. System collectGarbage"},
    {"set", "| s | s := Set new. 1 to: 1000000 do: [:i | s add: i]. s size"},
    {"String new:", "(String new: 1000000) size"},
    {"removeFirst", "| l | l := all copy. [l isEmpty] whileFalse: [l removeFirst]. l size"},
    {"commit of all", "Shared at: #all put: all. System commit"},
    {"commit of one", "Shared at: #x put: 1. System commit"},
};

} // namespace

int main(int count, char** arguments) {
    void* library = count == 2 ? dlopen(arguments[1], RTLD_NOW) : nullptr;
    if (library == nullptr) {
        std::fprintf(stderr, "usage: local_store_speed libkcilnk67.so (%s)\n", count == 2 ? dlerror() : "no library");
        return 2;
    }
    const KciRtlJumpSType& kci = *reinterpret_cast<KciGetRtlTableFuncPtr>(dlsym(library, "KciGetRtlTable"))();
    if (kci.KciInit() == FALSE || kci.KciLogin("guest", "guest") == FALSE) {
        return 1;
    }
    for (const auto& [name, source] : programs) {
        double start = seconds();
        double longest = 0;
        kci.KciNbExecuteStr(source, KCI_OOP_NIL);
        for (KciNbProgressEType progress = KCI_RESULT_PROGRESSED; progress != KCI_RESULT_READY;) {
            double before = seconds();
            progress = kci.KciNbEnd(nullptr);
            longest = std::max(longest, seconds() - before);
        }
        KciErrSType error{};
        if (kci.KciErr(&error) != FALSE) {
            std::fprintf(stderr, "%s: %s\n", source, error.message);
            return 1;
        }
        if (name != nullptr) {
            std::printf("%s, s\t%g\n%s, longest poll, ms\t%g\n", name, seconds() - start, name, longest * 1e3);
        }
    }
}
