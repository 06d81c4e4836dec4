#include "utlheap.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <regex>
#include <sys/mman.h>
#include <thread>
#include <vector>

#include "failing_malloc.h"
#include "support/child.h"
#include "utl/heapchunk.h"

namespace {
char* take(unsigned size, const char* reason = "test") {
    return static_cast<char*>(UtlMalloc(size, reason));
}

HeapChunk& headerOf(void* block) {
    return static_cast<HeapChunk*>(block)[-1];
}

// The last byte of the front guards: the one just before the block, but for padding at 64 bits.
char& lastGuardByte(void* block) {
    return reinterpret_cast<char*>(headerOf(block).guard)[sizeof headerOf(block).guard - 1];
}

// The number of guarantee failures that the heap reported; anything else on standard output counts as -1.
int violationsIn(const ChildResult& child) {
    static const std::regex line("UTL_GUARANTEE failure in file utlheap at line [1-9][0-9]*\n");
    const std::string rest = std::regex_replace(child.out, line, "#");
    return std::all_of(rest.begin(), rest.end(), [](char c) { return c == '#'; }) ? static_cast<int>(rest.size()) : -1;
}

TEST(UtlHeap, BlockLayout) {
    char* block = take(10, "/a/b/src/utl/a_very_long_name.c");
    const HeapChunk& header = headerOf(block);
    EXPECT_EQ(mallocControl.lastSize, 12 + heapOverhead);
    if (sizeof(void*) == 4) {
        EXPECT_EQ(mallocControl.lastSize, 80U);
        EXPECT_EQ(block - reinterpret_cast<const char*>(&header), 56);
    }
    EXPECT_STREQ(header.fName, "utl/a_very_long");
    EXPECT_EQ(memcmp(header.guard, "\xE\3\2\1\xE\3\2\1\xE\3\2\1", 12), 0);
    EXPECT_EQ(memcmp(block + 12, "\xE\3\2\1\xE\3\2\1\xE\3\2\1", 12), 0);
    ASSERT_NE(header.ref, nullptr);
    EXPECT_EQ(header.ref->c, &header);

    void* named = UtlMallocF(1, 77, "plain_name_of_more_than_15");
    EXPECT_STREQ(headerOf(named).fName, "plain_name_of_m");
    EXPECT_EQ(headerOf(named).lineNum, 77);
    EXPECT_EQ(headerOf(named).num_mallocs, header.num_mallocs + 1);
    // The last record given back is the next one taken.
    HeapChunkRef* ref = headerOf(named).ref;
    UtlFree(named);
    named = UtlMalloc_(1, 1);
    EXPECT_EQ(headerOf(named).ref, ref);
}

const struct {
    const char* name;
    std::function<void(char*)> apply; // to a block of 10 bytes that has neighbours on both sides
    int violations;                   // when the block is released
} damages[] = {
    {"none", [](char*) {}, 0},
    {"within the rounded size", [](char* b) { b[11] = 1; }, 0},
    {"one byte behind", [](char* b) { b[12] = 1; }, 1},
    // Damaged front guards are reported twice: by the scan of the records and for the block.
    {"one byte before", [](char* b) { lastGuardByte(b) = 0; }, 2},
    {"both sides", [](char* b) { b[-12] = b[12] = 0; }, 4},
    {"link to the newer block", [](char* b) { headerOf(b).prev = reinterpret_cast<HeapChunk*>(8); }, 1},
    {"link to the older block", [](char* b) { headerOf(b).next = reinterpret_cast<HeapChunk*>(0xDEADBEE0); }, 1},
    {"whole header", [](char* b) { memset(&headerOf(b), 0x5A, sizeof(HeapChunk)); }, 5},
};

// By the check of the 300th allocation, on request and on release; then all is whole again.
TEST(UtlHeap, DamageIsReportedWhereverItIs) {
    const std::string report = "(UTL_GUARANTEE failure in file utlheap at line [1-9][0-9]*\n)";
    for (const auto& [name, apply, violations] : damages) {
        for (const size_t place : {0U, 20U, 98U}) { // the oldest, an inner and a new block
            const ChildResult child = runInChild([&] {
                std::vector<char*> blocks;
                for (int i = 0; i < 150; ++i) {
                    char* block = take(10);
                    if (i % 3 != 0)
                        blocks.push_back(block);
                    else
                        UtlFree(block); // a gap
                }
                apply(blocks[place]);
                for (int i = 151; i < 300; ++i)
                    UtlFree(take(8));
                puts("allocation");
                char* const another = take(8);
                puts("request");
                UtlHeapCheck();
                puts("release");
                UtlFree(blocks[place]);
                puts("whole");
                UtlHeapCheck();
                UtlFree(another);
            });
            const std::string some = violations == 0 ? "" : report + "+";
            const std::regex expected((violations == 0 ? "" : report + "*") + "allocation\n" + some + "request\n" +
                                      some + "release\n" + report + "{" + std::to_string(violations) + "}whole\n");
            EXPECT_TRUE(std::regex_match(child.out, expected)) << name << " at " << place << "\n" << child.out;
            EXPECT_EQ(child.exitStatus, 0);
        }
    }
    heapCheckDebug = TRUE;
    const ChildResult child = runInChild([] {
        char* block = take(8);
        lastGuardByte(block) = 0;
        UtlFree(block);
    });
    EXPECT_EQ(violationsIn(child), 1);
}

TEST(UtlHeap, PointersThatAreNoLiveBlocksAreReportedAndLeftAlone) {
    static std::array<char, 1024> foreign;
    const ChildResult child = runInChild([] {
        char* block = take(100);
        char* other = take(100);
        UtlFree(block);
        UtlFree(block); // released twice
        UtlFree(foreign.data() + 512);
        UtlFree(other + 16); // within a block
        UtlFree(reinterpret_cast<void*>(4096));
        UtlFree(other);
        UtlHeapCheck();
    });
    EXPECT_EQ(violationsIn(child), 4) << child.out;
    EXPECT_EQ(child.exitStatus, 0);
    EXPECT_NE(child.err.find(" is no live block; it is byte 16 of one of 100 bytes, test line "), std::string::npos);
    EXPECT_NE(child.err.find("UtlFree: 0x1000 is no live block: released before"), std::string::npos);
    // Memory that the system has back: of a large block, of the blocks at the heap's end, of somebody else.
    const ChildResult unmapped = runInChild([] {
        char* const large = take(1 << 20);
        const std::array ends{take(100000), take(100000), take(100000)};
        char* const other = static_cast<char*>(mmap(nullptr, 8192, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        char* const high = take(1 << 20);
        UtlFree(large);
        std::for_each(ends.rbegin(), ends.rend(), UtlFree);
        for (char* const gone : {large, ends[2], other + 4096})
            UtlFree(gone);
        UtlFree(high);
    });
    EXPECT_EQ(violationsIn(unmapped), 3) << unmapped.out;
    EXPECT_EQ(unmapped.exitStatus, 0) << "signal " << unmapped.signal;
    EXPECT_EQ(runInChild([] { UtlFree(nullptr); }).out.find("Freeing a NULL pointer\nUTL_GUARANTEE failure"), 0U);
}

TEST(UtlHeap, Summary) {
    testing::internal::CaptureStdout();
    take(5, "first");
    UtlFree(UtlMalloc_(7, 1));
    UtlMallocF(2000, 12, "src/x.c");
    UtlHeapPrint();
    EXPECT_EQ(UtlHeapSizeKB(), 1U);
    take(43);
    EXPECT_EQ(UtlHeapSizeKB(), 2U);
    const std::regex summary("--- C Heap summary \n   numMallocs 3 numFrees 1 totalSize 2005 \n"
                             " 2000 bytes  name x.c line 12 mallocSeq 3 \n"
                             " 5 bytes  name first line [1-9][0-9]* mallocSeq 1 \n--- End C Heap summary \n");
    const std::string text = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(std::regex_match(text, summary)) << text;
}

TEST(UtlHeap, FailuresOfAllocation) {
    const ChildResult child = runInChild([] {
        mallocControl = {.failAt = 1, .failFromThere = true};
        EXPECT_EQ(UtlMalloc(10, "me"), nullptr);
        EXPECT_EQ(UtlMallocExe(12, 4, "g.c"), nullptr);
        mallocControl = {};
        if (sizeof(void*) == 4) {
            for (unsigned size : {UINT_MAX, UINT_MAX - 3, UINT_MAX - 67, UINT_MAX - 70, UINT_MAX - 71})
                EXPECT_EQ(UtlMalloc(size, nullptr), nullptr);
            EXPECT_EQ(mallocControl.calls, 1U); // one size alone does not wrap around
        }
        EXPECT_EQ(UtlHeapSizeKB(), 0U);
        UtlFree(take(1));
    });
    EXPECT_EQ(child.err,
              "malloc failure allocating 10 bytes: me\nmalloc failure allocating 12 bytes from g.c line 4\n");
    EXPECT_EQ(violationsIn(runInChild([] { EXPECT_NE(UtlMalloc(0, "empty"), nullptr); })), 1);
}

TEST(UtlHeap, PlainMode) {
    testing::internal::CaptureStdout();
    debugCHeap = FALSE;
    char* block = take(10);
    EXPECT_EQ(mallocControl.lastSize, 10U);
    UtlFree(block);
    UtlHeapCheck();
    UtlHeapPrint();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "--- C Heap summary not available\n");
}

TEST(UtlHeap, ExecutableMemory) {
    auto* code = static_cast<unsigned char*>(UtlMallocExe(8192, 1, "exe"));
    for (const int offset : {0, 8191}) { // the last byte stands on a third page
        code[offset] = 0xC3;             // ret, on both x86 processors
        reinterpret_cast<void (*)()>(code + offset)();
    }
    UtlFree(code);
}

TEST(UtlHeap, MoreBlocksThanRecords) {
    std::vector<void*> blocks;
    for (int i = 0; i < REF_ARRAY_SIZE + 1000; ++i)
        blocks.push_back(UtlMalloc_(4, 1));
    EXPECT_NE(headerOf(blocks[REF_ARRAY_SIZE - 1]).ref, nullptr);
    EXPECT_EQ(headerOf(blocks[REF_ARRAY_SIZE]).ref, nullptr);
    const ChildResult child = runInChild([&] {
        static_cast<char*>(blocks.back())[4] = 0;
        UtlFree(blocks.back());
    });
    EXPECT_EQ(violationsIn(child), 1) << child.out;
    std::shuffle(blocks.begin(), blocks.end(), std::mt19937(1));
    for (; blocks.size() > REF_ARRAY_SIZE - 5000; blocks.pop_back())
        UtlFree(blocks.back());
    EXPECT_EQ(UtlHeapSizeKB(), 4 * blocks.size() / 1024);
    EXPECT_NE(headerOf(UtlMalloc_(1, 1)).ref, nullptr);
}

// Random allocations and releases with the blocks' contents as the model, over every kind of gap.
TEST(UtlHeap, RandomUse) {
    std::mt19937 random(7);
    std::vector<std::pair<char*, unsigned>> live;
    testing::internal::CaptureStdout();
    for (int i = 0; i < 100000; ++i) {
        const size_t target = i / 10000 % 2 == 0 ? 3000 : 10;
        if (live.size() < target && random() % 3 != 0) {
            const unsigned size = 1 + random() % 100;
            live.emplace_back(take(size), size);
            memset(live.back().first, static_cast<int>(size), size);
        } else if (!live.empty()) {
            // Sometimes the ends, sometimes neighbours in a row.
            const size_t place = std::array<size_t, 3>{0, live.size() - 1, random() % live.size()}[random() % 3];
            const auto [block, size] = live[place];
            ASSERT_EQ(std::string(block, size), std::string(size, static_cast<char>(size)));
            UtlFree(block);
            live.erase(live.begin() + static_cast<long>(place));
        }
    }
    UtlHeapCheck();
    for (size_t i = 1; i < live.size(); ++i)
        ASSERT_EQ(headerOf(live[i].first).next, &headerOf(live[i - 1].first));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(UtlHeap, ThreadsShareIt) {
    const auto work = [] {
        std::array<void*, 50> blocks{};
        for (unsigned i = 0; i < 20000; ++i) {
            void*& block = blocks[i * 7 % blocks.size()];
            if (block)
                UtlFree(block);
            block = UtlMalloc(1 + i % 60, "thread");
        }
        std::for_each(blocks.begin(), blocks.end(), UtlFree);
    };
    std::thread other(work);
    work();
    other.join();
    EXPECT_EQ(UtlHeapSizeKB(), 0U);
}
} // namespace
