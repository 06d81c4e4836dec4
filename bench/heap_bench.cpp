// The checking heap beside the C library's plain heap and its checking library, in pairs of one release and one
// allocation of mixed sizes at a constant number of live blocks.
#include <chrono>
#include <cstdlib>
#include <dlfcn.h>
#include <mcheck.h>
#include <random>
#include <type_traits>
#include <vector>

#include "ratio.h"
#include "utlheap.h"

namespace {
constexpr unsigned checkInterval = 300;
std::vector<void*> live;

struct Plain {
    static void* take(unsigned size) { return malloc(size); }
    static void give(void* block) { free(block); }
};

struct Ours {
    static void* take(unsigned size) { return UtlMalloc(size, "heap_bench"); }
    static void give(void* block) { UtlFree(block); }
};

// glibc's checking library, opened beside the plain one: its names are bound by version only. Its own check of all
// blocks would make every later call check all blocks, so that each live block is probed here.
struct Checking {
    static inline void* (*libMalloc)(size_t);
    static inline void (*libFree)(void*);
    static inline mcheck_status (*probe)(void*);
    static inline unsigned mallocs = 0;
    static inline unsigned frees = 0;

    static bool open() {
        void* library = dlopen("libc_malloc_debug.so.0", RTLD_NOW | RTLD_LOCAL);
        if (!library)
            return false;
        const auto find = [&](auto& function, const char* name, const char* version) {
            function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(dlvsym(library, name, version));
            return function != nullptr;
        };
        int (*start)(void (*)(mcheck_status));
        return find(libMalloc, "malloc", "GLIBC_2.0") && find(libFree, "free", "GLIBC_2.0") &&
               find(probe, "mprobe", "GLIBC_2.0") && find(start, "mcheck", "GLIBC_2.0") &&
               start([](mcheck_status) { abort(); }) == 0;
    }
    static void checkAll() {
        for (void* block : live) {
            if (block && probe(block) != MCHECK_OK)
                abort();
        }
    }
    static void* take(unsigned size) {
        if (++mallocs % checkInterval == 0)
            checkAll();
        return libMalloc(size);
    }
    static void give(void*& block) {
        if (++frees % checkInterval == 0)
            checkAll();
        libFree(block);
        block = nullptr;
    }
};

template <typename Heap, size_t liveCount>
void pairs(benchmark::State& state) {
    std::mt19937 random(1);
    std::vector<unsigned> sizes(4096);
    for (unsigned& size : sizes)
        size = random() % 8 == 0 ? 1 + random() % 1024 : 1 + random() % 128;
    std::vector<unsigned> places(8192);
    for (unsigned& place : places)
        place = random() % liveCount;
    live.assign(liveCount, nullptr);
    size_t next = 0;
    for (void*& block : live)
        block = Heap::take(sizes[next++ % sizes.size()]);
    size_t turn = 0;
    for (auto _ : state) {
        void*& block = live[places[turn++ % places.size()]];
        Heap::give(block);
        block = Heap::take(sizes[next++ % sizes.size()]);
    }
    for (void*& block : live)
        Heap::give(block);
}

BENCHMARK(pairs<Ours, 1000>)->Name("heap, 1000 live/ours");
BENCHMARK(pairs<Plain, 1000>)->Name("heap, 1000 live/malloc");
BENCHMARK(pairs<Ours, 10000>)->Name("heap, 10000 live/ours");
BENCHMARK(pairs<Plain, 10000>)->Name("heap, 10000 live/malloc");
BENCHMARK(pairs<Ours, 10000>)->Name("heap, 10000 live, checked/ours");
BENCHMARK(pairs<Checking, 10000>)->Name("heap, 10000 live, checked/mcheck");
} // namespace

int main(int argc, char** argv) {
    const auto start = std::chrono::steady_clock::now();
    void* first = UtlMalloc(100, "heap_bench");
    const std::chrono::duration<double, std::micro> elapsed = std::chrono::steady_clock::now() - start;
    UtlFree(first);
    std::printf("first allocation of the process, one run: %.1f us (limit 20)\n", elapsed.count());
    if (!Checking::open()) {
        std::fprintf(stderr, "libc_malloc_debug.so.0 cannot be used\n");
        return 1;
    }
    return runRatios(argc, argv,
                     {{"heap, 1000 live", "malloc", 6.0},
                      {"heap, 10000 live", "malloc", 18.0},
                      {"heap, 10000 live, checked", "mcheck", 0.7}});
}
