#include "failing_calls.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <iterator>
#include <link.h>
#include <unistd.h>

__attribute__((visibility("default"))) FailingCalls failingCalls;

// Whether this thread writes counters of coverage, as a part of the library.
extern "C" __attribute__((weak)) bool countersAreWritten();

namespace {

const char* const note = getenv("FAILING_CALLS_NOTE");

bool isTheirs(const void* caller) {
    const char* const library = failingCalls.library.load(std::memory_order_relaxed);
    dl_find_object found{};
    if (library == nullptr || (countersAreWritten != nullptr && countersAreWritten()) ||
        _dl_find_object(const_cast<void*>(caller), &found) != 0) {
        return false;
    }
    const char* const name = found.dlfo_link_map->l_name;
    return *library == '\0' ? *name == '\0' : strstr(name, library) != nullptr;
}

// Whether that place has called but a few times: what it does in a loop fails as often as that.
bool isNew(const void* caller) {
    static struct {
        std::atomic<const void*> caller;
        std::atomic<unsigned> times;
    } places[1009];
    size_t at = reinterpret_cast<uintptr_t>(caller) % std::size(places);
    for (const void* none = nullptr; !places[at].caller.compare_exchange_strong(none, caller) && none != caller;
         none = nullptr) {
        at = (at + 1) % std::size(places);
    }
    return ++places[at].times <= 2;
}

__attribute__((constructor)) void readEnvironment() {
    static char library[200];
    unsigned which = 0, first = 0, failures = 1;
    const char* const set = getenv("FAILING_CALLS");
    if (set != nullptr && sscanf(set, "%u:%u:%u:%199s", &which, &first, &failures, library) >= 3) {
        failingCalls.which = which;
        failingCalls.failAt = first;
        failingCalls.failures = failures;
        failingCalls.library = library;
    }
}

} // namespace

bool callFails(Failing which, const void* caller, int error) {
    if (which != failingCalls.which || !isTheirs(caller) || (which != allocations && !isNew(caller))) {
        return false;
    }
    const unsigned number = ++failingCalls.count;
    const unsigned first = failingCalls.failAt;
    if (first == 0 || number < first || number - first >= failingCalls.failures) {
        return false;
    }
    if (note != nullptr) {
        close(open(note, O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    }
    errno = error;
    return true;
}

namespace {

bool isRefused(const void* caller) {
    if (callFails(allocations, caller, ENOMEM)) {
        return true;
    }
    if (isTheirs(caller)) {
        ++failingCalls.live;
    }
    return false;
}

} // namespace

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void __libc_free(void* block);

#define SHOWN __attribute__((visibility("default")))
#define REFUSED isRefused(__builtin_return_address(0))
SHOWN void* malloc(size_t size) {
    return REFUSED ? nullptr : __libc_malloc(size);
}
SHOWN void* calloc(size_t count, size_t size) {
    return REFUSED ? nullptr : __libc_calloc(count, size);
}
SHOWN void* realloc(void* block, size_t size) {
    if (REFUSED) {
        return nullptr;
    }
    if (block != nullptr && isTheirs(__builtin_return_address(0))) {
        --failingCalls.live; // it stays one block
    }
    return __libc_realloc(block, size);
}
SHOWN char* strdup(const char* string) {
    const size_t size = strlen(string) + 1;
    char* const copy = REFUSED ? nullptr : static_cast<char*>(__libc_malloc(size));
    return copy != nullptr ? static_cast<char*>(memcpy(copy, string, size)) : nullptr;
}
SHOWN void free(void* block) {
    if (block != nullptr && isTheirs(__builtin_return_address(0))) {
        --failingCalls.live;
    }
    __libc_free(block);
}
}
