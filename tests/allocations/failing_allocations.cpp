#include "failing_allocations.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <unistd.h>

__attribute__((visibility("default"))) Allocations allocations;

namespace {

const char* const note = getenv("FAILING_ALLOCATION_NOTE");

bool isTheirs(void* caller) {
    const char* const library = allocations.library.load(std::memory_order_relaxed);
    dl_find_object found{};
    if (library == nullptr || _dl_find_object(caller, &found) != 0) {
        return false;
    }
    const char* const name = found.dlfo_link_map->l_name;
    return *library == '\0' ? *name == '\0' : strstr(name, library) != nullptr;
}

// Whether this allocation is one that shall fail.
bool isRefused(void* caller) {
    if (!isTheirs(caller)) {
        return false;
    }
    const unsigned number = ++allocations.count;
    const unsigned first = allocations.failAt;
    if (first != 0 && number >= first && number - first < allocations.failures) {
        if (note != nullptr) {
            close(open(note, O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        }
        errno = ENOMEM;
        return true;
    }
    ++allocations.live;
    return false;
}

__attribute__((constructor)) void readEnvironment() {
    static char library[200];
    unsigned first = 0, failures = 1;
    const char* const set = getenv("FAILING_ALLOCATION");
    if (set != nullptr && sscanf(set, "%u:%u:%199s", &first, &failures, library) >= 1) {
        allocations.failAt = first;
        allocations.failures = failures;
        allocations.library = library;
    }
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
        --allocations.live; // it stays one block
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
        --allocations.live;
    }
    __libc_free(block);
}
}
