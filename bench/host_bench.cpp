// The lock primitives and the expansion of file names.
#include "ratio.h"

#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <string>

#include <absl/base/internal/spinlock.h>

#include "hostatomic.h"
#include "hostenv.h"
#include "hostfile.h"

namespace {
namespace fs = std::filesystem;

// Peers of the primitives: functions that are called as ours are, with the arguments on the stack, and do the one
// thing.
[[gnu::noipa]] int exchange(int* word, int value) {
    return __atomic_exchange_n(word, value, __ATOMIC_SEQ_CST);
}
[[gnu::noipa]] int fetchAndAdd(int* word, int delta) {
    return __atomic_fetch_add(word, delta, __ATOMIC_SEQ_CST);
}

alignas(64) int word;

void tryLockUnlock(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(HostAsmTryLock(&word, 1));
        benchmark::DoNotOptimize(HostAsmUnlock(&word));
    }
}
void exchangeTwice(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(exchange(&word, 1));
        benchmark::DoNotOptimize(exchange(&word, 0));
    }
}
BENCHMARK(tryLockUnlock)->Name("TryLock+Unlock/ours");
BENCHMARK(exchangeTwice)->Name("TryLock+Unlock/two exchanges");

// Two threads that take turns: each holds the lock for `inside` steps of work and stays away for `outside`. As callers
// of the primitive do, one that meets the other waits a few rounds and then lets it run; the peer does as much by
// itself.
absl::base_internal::SpinLock spinLock(absl::kConstInit, absl::base_internal::SCHEDULE_KERNEL_ONLY);
alignas(64) int contendedWord;
alignas(64) long guarded;

void work(int steps) {
    for (int i = 0; i < steps; ++i)
        benchmark::DoNotOptimize(i);
}
constexpr unsigned spinRounds = 4;
void contendedTryLock(benchmark::State& state, int inside, int outside) {
    for (auto _ : state) {
        while (HostAsmTryLock(&contendedWord, spinRounds) == 0)
            sched_yield();
        benchmark::DoNotOptimize(++guarded);
        work(inside);
        HostAsmUnlock(&contendedWord);
        work(outside);
    }
}
void contendedSpinLock(benchmark::State& state, int inside, int outside) {
    for (auto _ : state) {
        spinLock.Lock();
        benchmark::DoNotOptimize(++guarded);
        work(inside);
        spinLock.Unlock();
        work(outside);
    }
}
BENCHMARK_CAPTURE(contendedTryLock, empty, 0, 0)->Name("two threads, nothing done/ours")->Threads(2)->UseRealTime();
BENCHMARK_CAPTURE(contendedSpinLock, empty, 0, 0)
    ->Name("two threads, nothing done/absl SpinLock")
    ->Threads(2)
    ->UseRealTime();
BENCHMARK_CAPTURE(contendedTryLock, work, 100, 100)->Name("two threads, some work/ours")->Threads(2)->UseRealTime();
BENCHMARK_CAPTURE(contendedSpinLock, work, 100, 100)
    ->Name("two threads, some work/absl SpinLock")
    ->Threads(2)
    ->UseRealTime();

void counterAdd(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(HostAsmSyncCtrAdd(&word, 1));
}
void counterFetchAndAdd(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(fetchAndAdd(&word, 1));
}
BENCHMARK(counterAdd)->Name("SyncCtrAdd/ours");
BENCHMARK(counterFetchAndAdd)->Name("SyncCtrAdd/fetch-and-add");

// A path of six components, for good: the links in between are what is looked for, and there are none.
struct Tree {
    Tree() {
        std::string pattern = fs::canonical(fs::temp_directory_path()) / "bench.XXXXXX";
        root = mkdtemp(pattern.data());
        folder = root + "/three/four/five";
        fs::create_directories(folder);
        file = folder + "/six";
        std::ofstream(file).close();
        walked = root + "//../three/four/five/";
    }
    ~Tree() { fs::remove_all(root); }
    std::string root, folder, file;
    std::string walked; // the folder by a name about which the kernel is not asked as a whole
};
const Tree tree;

void expandName(benchmark::State& state, const std::string& name) {
    HostFnameStrType result;
    for (auto _ : state) {
        HostExpandFileName(name.c_str(), result, sizeof result);
        benchmark::DoNotOptimize(result);
    }
}
void resolve(benchmark::State& state, const std::string& name) {
    std::array<char, PATH_MAX> result;
    for (auto _ : state)
        benchmark::DoNotOptimize(realpath(name.c_str(), result.data()));
}
BENCHMARK_CAPTURE(expandName, walk, tree.walked + "six")->Name("expand a file by the walk/ours");
BENCHMARK_CAPTURE(resolve, walk, tree.file)->Name("expand a file by the walk/realpath");
BENCHMARK_CAPTURE(expandName, kernel, tree.file)->Name("expand a file by one call/ours");
BENCHMARK_CAPTURE(resolve, kernel, tree.file)->Name("expand a file by one call/realpath");
BENCHMARK_CAPTURE(expandName, walkFolder, tree.walked + ".")->Name("expand a folder by the walk/ours");
BENCHMARK_CAPTURE(resolve, walkFolder, tree.folder + "/../five/.")->Name("expand a folder by the walk/realpath");
BENCHMARK_CAPTURE(expandName, kernelFolder, tree.folder)->Name("expand a folder by one call/ours");
BENCHMARK_CAPTURE(resolve, kernelFolder, tree.folder)->Name("expand a folder by one call/realpath");
} // namespace

RATIO_MAIN({"TryLock+Unlock", "two exchanges", 1.05}, {"two threads, some work", "absl SpinLock", 1.0},
           {"two threads, nothing done", "absl SpinLock", 1.0}, {"SyncCtrAdd", "fetch-and-add", 1.05},
           {"expand a file by the walk", "realpath", 1.3}, {"expand a folder by the walk", "realpath", 1.3},
           {"expand a file by one call", "realpath", 0.7}, {"expand a folder by one call", "realpath", 0.7})
