#include "utlheap.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>

#include "host/base/forklocks.h"
#include "host/base/guarantee.h"
#include "host/base/mutexowner.h"
#include "host/base/upwardcalls.h"
#include "utl/heapcheck.h"
#include "utl/heapchunk.h"
#include "utl/heapledger.h"
#include "utl/heapstate.h"
#include "utl/mutexaccessor.h"
#include "utlpagesize.h"

volatile BoolType debugCHeap = TRUE;
volatile BoolType heapCheckDebug = FALSE;

HeapChunkRef chunkRefs[REF_ARRAY_SIZE];
HeapChunk* heapStart;
int usedRefs;

namespace {
constexpr char utlModule[] = "utlheap";

std::atomic<BoolType> initDone{FALSE};
pthread_once_t initOnce = PTHREAD_ONCE_INIT;
HostMutexSType heapMutex = PTHREAD_MUTEX_INITIALIZER;

// Guarded by heapMutex, as everything in heapstate.h.
unsigned numMallocs;
unsigned numFrees;
constexpr unsigned checkInterval = 300;
// Written under heapMutex, read without it.
std::atomic<size_t> totalUserSize{0};

constexpr int endOfFreeRefs = -1;
constexpr int refsNotInitialized = -2;
int firstFreeRefIdx = refsNotInitialized;

void addToTotal(size_t change) {
    totalUserSize.store(totalUserSize.load(std::memory_order_relaxed) + change, std::memory_order_relaxed);
}

// The chain of free records runs through the whole table in its order. To spare the first allocation writing 5 MB, a
// record's link is only written with its first use: up to then its successor is the next record.
void initRefs() {
    if (firstFreeRefIdx == refsNotInitialized) {
        firstFreeRefIdx = 0;
    }
}

int nextFreeRef(int index) {
    if (index < usedRefs) {
        return static_cast<int>(chunkRefs[index].lineNum);
    }
    usedRefs = index + 1;
    return usedRefs < REF_ARRAY_SIZE ? usedRefs : endOfFreeRefs;
}

// The index of a record for the block, or HeapLedger::none.
int32_t takeRef(HeapChunk* chunk, HeapViolations& violations) {
    initRefs();
    const int index = firstFreeRefIdx;
    if (index == endOfFreeRefs) {
        return HeapLedger::none;
    }
    HeapChunkRef& ref = chunkRefs[index];
    firstFreeRefIdx = nextFreeRef(index);
    if (ref.c != nullptr) {
        violations.add(__LINE__);
    }
    ref.c = chunk;
    ref.userSize = chunk->userSize;
    ref.lineNum = chunk->lineNum;
    memcpy(ref.fName, chunk->fName, sizeof ref.fName);
    return index;
}

// The block's own idea of its record may be damaged: the ledger's counts.
void returnRef(const HeapChunk* chunk, int32_t index, HeapViolations& violations) {
    if (index == HeapLedger::none) {
        return;
    }
    HeapChunkRef& ref = chunkRefs[index];
    if (chunk->ref != &ref || ref.c != chunk) {
        violations.add(__LINE__);
    }
    ref.c = nullptr;
    ref.lineNum = firstFreeRefIdx;
    firstFreeRefIdx = index;
}

// The name from behind its first "src/".
[[gnu::noinline]] const char* belowSources(const char* name) {
    const char* sources = strstr(name, "src/");
    return sources != nullptr ? sources + 4 : name;
}

void setOrigin(char (&fName)[heapNameSize], const char* name) {
    memset(fName, 0, sizeof fName);
    if (name == nullptr) {
        return;
    }
    for (size_t i = 0; name[i]; ++i) {
        if (i == heapNameSize - 1 || name[i] == '/') {
            // Not simply a short word.
            strncpy(fName, belowSources(name), heapNameSize - 1);
            fName[heapNameSize - 1] = '\0';
            return;
        }
        fName[i] = name[i];
    }
}

void link(HeapChunk* chunk) {
    chunk->prev = nullptr;
    chunk->next = heapStart;
    if (heapStart != nullptr) {
        heapStart->prev = chunk;
    }
    heapStart = chunk;
}

// The neighbours are the ledger's, so that a damaged link is reported and not followed.
void unlink(HeapChunk* chunk, int32_t index, HeapViolations& violations) {
    HeapChunk* newer = heapLedger.chunkAt(heapLedger.newer(index));
    HeapChunk* older = heapLedger.chunkAt(heapLedger.older(index));
    if (chunk->prev != newer) {
        violations.add(__LINE__);
    }
    if (chunk->next != older) {
        violations.add(__LINE__);
    }
    if (older != nullptr) {
        older->prev = newer;
    }
    if (newer != nullptr) {
        newer->next = older;
    } else {
        heapStart = older;
    }
}

void reportUnlocked(HostMutexAccessor& mutex, HeapViolations& violations) {
    if (violations.any()) [[unlikely]] {
        mutex.withoutLock([&] { violations.report(); });
    }
}

// What is known of a pointer that is not a live block's: whether it leads into one.
struct ForeignText {
    explicit ForeignText(const void* ptr) {
        const int32_t index = heapLedger.findAround(ptr);
        if (index == HeapLedger::none) {
            snprintf(text, sizeof text,
                     "UtlFree: %p is no live block: released before, or never taken from this heap\n", ptr);
        } else {
            HeapChunk* const chunk = heapLedger[index].chunk;
            snprintf(text, sizeof text,
                     "UtlFree: %p is no live block; it is byte %td of one of %zu bytes, %.*s line %d\n", ptr,
                     static_cast<const char*>(ptr) - chunk->userBytes(), heapLedger[index].size,
                     static_cast<int>(heapNameSize), chunk->fName, static_cast<int>(chunk->lineNum));
        }
    }
    char text[160];
};

void initHeap() {
    HostMutexInit(&heapMutex);
    hostForkRegister(ForkSlot::heapMutex, {[] { HostMutexAcquire(&heapMutex); }, [] { HostMutexRelease(&heapMutex); },
                                           [] { return hostHoldsMutex(heapMutex); }});
    if (debugCHeap) {
        initRefs();
    }
    initDone.store(TRUE, std::memory_order_release);
}

void ensureInit() {
    if (!initDone.load(std::memory_order_acquire)) [[unlikely]] {
        UtlHeapInit();
    }
}

void* allocate(size_t length, intptr_t line, const char* name) {
    ensureInit();
    return debugCHeap ? HeapChunk::malloc(length, line, name) : malloc(length);
}

void printHeap() {
    puts("--- C Heap summary ");
    printf("   numMallocs %u numFrees %u totalSize %d \n", numMallocs, numFrees,
           static_cast<int>(totalUserSize.load()));
    for (int32_t i = heapLedger.newest(); i != HeapLedger::none; i = heapLedger.older(i)) {
        const HeapChunk* chunk = heapLedger[i].chunk;
        printf(" %d bytes  name %.*s line %d mallocSeq %u \n", static_cast<int>(chunk->userSize),
               static_cast<int>(heapNameSize), chunk->fName, static_cast<int>(chunk->lineNum), chunk->num_mallocs);
    }
    puts("--- End C Heap summary ");
}
} // namespace

void* HeapChunk::malloc(size_t size, intptr_t line, const char* name) {
    HeapViolations violations;
    HostMutexAccessor mutex(heapMutex);
    const unsigned sequence = ++numMallocs;
    if (sequence % checkInterval == 0) {
        checkLiveList(violations);
        reportUnlocked(mutex, violations);
    }
    if (size > SIZE_MAX - heapOverhead - 3 || !heapLedger.reserve()) {
        return nullptr;
    }
    auto* chunk = static_cast<HeapChunk*>(::malloc(roundedSize(size) + heapOverhead));
    if (chunk == nullptr) {
        return nullptr;
    }
    if (!heapLedger.reserveFor(chunk)) {
        ::free(chunk);
        return nullptr;
    }
    chunk->userSize = size;
    chunk->lineNum = line;
    chunk->num_mallocs = sequence;
    chunk->num_frees = numFrees;
    setOrigin(chunk->fName, name);
    std::fill_n(chunk->guard, heapGuardWords, heapGuard);
    std::fill_n(chunk->endGuards(size), heapGuardWords, heapGuard);
    link(chunk);
    const int32_t record = takeRef(chunk, violations);
    chunk->ref = record == HeapLedger::none ? nullptr : &chunkRefs[record];
    heapLedger.append({chunk, size, sequence, record});
    addToTotal(size);
    reportUnlocked(mutex, violations);
    return chunk->userBytes();
}

void HeapChunk::free(void* ptr) {
    auto* chunk = reinterpret_cast<HeapChunk*>(reinterpret_cast<uintptr_t>(ptr) - sizeof(HeapChunk));
    HeapViolations violations;
    HostMutexAccessor mutex(heapMutex);
    int32_t index = heapLedger.find(chunk);
    if (index == HeapLedger::none) {
        // Released before, or never ours. There is no block that could be released.
        checkHeapRefs(violations);
        violations.add(__LINE__);
        const ForeignText text(ptr);
        return mutex.withoutLock([&] {
            fputs(text.text, stderr);
            violations.report();
        });
    }
    if (!isIntact(chunk, heapLedger[index].size)) [[unlikely]] {
        addDamage(chunk, heapLedger[index].size, violations);
    }
    const bool checkAll = ++numFrees % checkInterval == 0;
    if (checkAll) {
        checkLiveList(violations);
    }
    if (checkAll || violations.any()) {
        // The block stays as it was found until the report is made. Meanwhile the ledger may change.
        reportUnlocked(mutex, violations);
        index = heapLedger.find(chunk);
        if (index == HeapLedger::none) {
            return;
        }
    }
    returnRef(chunk, heapLedger[index].record, violations);
    unlink(chunk, index, violations);
    addToTotal(-heapLedger[index].size);
    heapLedger.remove(index);
    // Volatile: the compiler would drop a store into memory that is released next.
    static_cast<volatile uint32_t&>(chunk->guard[0]) = heapReleasedGuard;
    ::free(chunk);
    reportUnlocked(mutex, violations);
}

void UtlHeapInit() {
    pthread_once(&initOnce, initHeap);
}

void* UtlMalloc(unsigned length, const char* reason) {
    UTL_GUARANTEE(length != 0);
    void* block = allocate(length, __LINE__, reason);
    if (block == nullptr && reason != nullptr) {
        fprintf(stderr, "malloc failure allocating %u bytes: %s\n", length, reason);
        HostCallDebuggerMsg("");
    }
    return block;
}

void* UtlMallocF(unsigned length, int lineNum, const char* fileName) {
    UTL_GUARANTEE(length != 0);
    UTL_GUARANTEE(lineNum != 0);
    void* block = allocate(length, lineNum, fileName);
    if (block == nullptr) {
        fprintf(stderr, "malloc failure allocating %d bytes from %s line %d\n", static_cast<int>(length),
                fileName != nullptr ? fileName : "", lineNum);
        HostCallDebuggerMsg("");
    }
    return block;
}

void* UtlMalloc_(unsigned length, int line) {
    UTL_GUARANTEE(line != 0);
    return allocate(length, line, nullptr);
}

void* UtlMallocExe(unsigned length, int lineNum, const char* fileName) {
    static std::atomic<unsigned> keptPageSize{0};
    void* block = UtlMallocF(length, lineNum, fileName);
    if (block == nullptr) {
        return nullptr;
    }
    unsigned pageSize = keptPageSize.load(std::memory_order_relaxed);
    if (pageSize == 0) {
        pageSize = UtlGetPageSize();
        keptPageSize.store(pageSize, std::memory_order_relaxed);
    }
    const uintptr_t mask = pageSize - uintptr_t{1};
    const auto address = reinterpret_cast<uintptr_t>(block);
    const uintptr_t lead = address & mask;
    const uintptr_t bytes = (lead + length + mask) & ~mask;
    UTL_GUARANTEE(mprotect(static_cast<char*>(block) - lead, bytes, PROT_READ | PROT_WRITE | PROT_EXEC) == 0);
    return block;
}

void UtlFree(void* ptr) {
    if (ptr == nullptr) {
        puts("Freeing a NULL pointer");
        UTL_GUARANTEE(false);
        return;
    }
    if (debugCHeap) {
        HeapChunk::free(ptr);
    } else {
        free(ptr);
    }
}

namespace {
void checkHeap(bool andPrint) {
    ensureInit();
    HeapViolations violations;
    HostMutexAccessor mutex(heapMutex);
    checkLiveList(violations);
    reportUnlocked(mutex, violations);
    if (andPrint) {
        printHeap();
    }
}
} // namespace

void UtlHeapCheck() {
    if (debugCHeap) {
        checkHeap(false);
    }
}

void UtlHeapPrint() {
    if (debugCHeap) {
        checkHeap(true);
    } else {
        puts("--- C Heap summary not available");
    }
}

unsigned UtlHeapSizeKB() {
    return static_cast<unsigned>(totalUserSize.load(std::memory_order_relaxed) / 1024);
}
