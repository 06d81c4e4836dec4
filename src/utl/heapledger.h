// The heap's ledger: all live blocks in the order of their allocation, kept outside the blocks, where no overrun of a
// caller reaches it. The list through the blocks is checked against the ledger, so that a check or a release follows no
// pointer that may be damaged; and a check knows the next blocks early enough to have their memory fetched meanwhile.
//
// Released blocks leave gaps. A run of gaps has its length in its first and its last entry, so that it is skipped in
// one step from either side. The newest entry is never a gap.
//
// Nothing here locks: the heap's mutex is held.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>

#include "utl/heapchunk.h"

#pragma GCC visibility push(hidden)

class HeapLedger {
public:
    struct Entry {
        HeapChunk* chunk; // null: a gap
        size_t size;      // the block's userSize; of a gap, at both ends of a run: the run's length
        unsigned sequence;
        int32_t record; // the index of the block's record, -1 when it has none
    };
    static constexpr int32_t none = -1;

    // Makes room for one more entry; false without memory. Entries may move.
    bool reserve() { return count < capacity || makeRoom(); }
    // The same for what is kept about a block's place.
    static bool reserveFor(const HeapChunk* chunk) {
        return allCountsAreThere || countFor(chunk) != nullptr || makeCounts(chunk);
    }
    // Enters a block as the newest; both reserves have made room.
    void append(const Entry& entry);
    // The entry of a live block, or none. A foreign pointer is followed nowhere but into pages that hold live blocks.
    int32_t find(const HeapChunk* chunk) const;
    // The entry of the live block that holds an address, or none. Slow: for reports.
    int32_t findAround(const void* address) const;
    void remove(int32_t index);
    // Closes the gaps when they have become many. Entries move.
    void compactIfSparse() {
        if (gaps > (count - gaps) / 8) {
            compact();
        }
    }

    // A cursor over the live entries, newest first: for (i = newest(); i != none; i = older(i))
    int32_t newest() const { return count - 1; }
    int32_t newer(int32_t index) const {
        if (++index == count) {
            return none;
        }
        return entries[index].chunk != nullptr ? index : index + static_cast<int32_t>(entries[index].size);
    }
    int32_t older(int32_t index) const {
        if (--index >= 0 && entries[index].chunk == nullptr) [[unlikely]] {
            index -= static_cast<int32_t>(entries[index].size);
        }
        return index;
    }
    // All entries, oldest first, gaps among them.
    std::span<const Entry> all() const { return {entries, static_cast<size_t>(count)}; }
    const Entry& operator[](int32_t index) const { return entries[index]; }
    HeapChunk* chunkAt(int32_t index) const { return index == none ? nullptr : entries[index].chunk; }

private:
    // What the header in front of a caller's pointer says, whatever memory that is. Its page must be readable.
    [[gnu::no_sanitize("address", "thread")]] static uintptr_t claimedRef(const HeapChunk* chunk) {
        return reinterpret_cast<uintptr_t>(chunk->ref);
    }
    [[gnu::no_sanitize("address", "thread")]] static unsigned claimedSequence(const HeapChunk* chunk) {
        return chunk->num_mallocs;
    }

    // For each page the number of live blocks whose `ref` stands in it: what tells without a look at it that a page can
    // be read. At 64 bits the counts of a region are made with its first block and kept.
    static constexpr bool allCountsAreThere = sizeof(void*) == 4;
    static constexpr unsigned addressBits = allCountsAreThere ? 32 : 47;
    static constexpr unsigned regionBits = 30;
    static constexpr unsigned pageBits = 12;
    static constexpr size_t pagesPerRegion = size_t{1} << (regionBits - pageBits);
    static_assert((1 << pageBits) / heapOverhead < UINT8_MAX);
    static uint8_t allCounts[allCountsAreThere ? size_t{1} << (addressBits - pageBits) : 1];
    static uint8_t* countsOfRegion[allCountsAreThere ? 1 : size_t{1} << (addressBits - regionBits)];

    static uintptr_t countedPlace(const HeapChunk* chunk) {
        return reinterpret_cast<uintptr_t>(chunk) + offsetof(HeapChunk, ref);
    }
    // Null when the region has no counts.
    static uint8_t* countFor(const HeapChunk* chunk) {
        const uintptr_t place = countedPlace(chunk);
        if constexpr (allCountsAreThere) {
            return &allCounts[place >> pageBits];
        } else {
            uint8_t* const counts = countsOfRegion[place >> regionBits];
            return counts != nullptr ? &counts[(place >> pageBits) % pagesPerRegion] : nullptr;
        }
    }
    static bool makeCounts(const HeapChunk* chunk);
    static bool isReadable(const HeapChunk* chunk) {
        const uint8_t* const count = countFor(chunk);
        return (allCountsAreThere || count != nullptr) && *count != 0;
    }

    bool makeRoom();
    bool grow();
    void compact();
    int32_t search(const HeapChunk* chunk) const;

    // The entry of a record's block, for record -1 a place that nobody reads. Of records that are not in use: any.
    static int32_t& entryOfRecord(int32_t record) { return recordEntries[record + 1]; }
    static int32_t recordEntries[REF_ARRAY_SIZE + 1];
    // Enough for small programs and for a quick start.
    static Entry firstEntries[64];

    Entry* entries = firstEntries;
    int32_t count = 0; // live entries and gaps
    int32_t gaps = 0;
    int32_t capacity = std::size(firstEntries);
    // No chunk ever lay outside these bounds.
    uintptr_t lowestChunk = UINTPTR_MAX;
    uintptr_t highestChunk = 0;
};

// The heap's one ledger.
extern constinit HeapLedger heapLedger;

inline void HeapLedger::append(const Entry& entry) {
    const auto address = reinterpret_cast<uintptr_t>(entry.chunk);
    ++*countFor(entry.chunk);
    lowestChunk = std::min(lowestChunk, address);
    highestChunk = std::max(highestChunk, address);
    entryOfRecord(entry.record) = count;
    entries[count++] = entry;
}

inline int32_t HeapLedger::find(const HeapChunk* chunk) const {
    const auto address = reinterpret_cast<uintptr_t>(chunk);
    if (address < lowestChunk || address > highestChunk || address % alignof(HeapChunk) != 0 || !isReadable(chunk))
        [[unlikely]] {
        return none;
    }
    const uintptr_t offset = claimedRef(chunk) - reinterpret_cast<uintptr_t>(chunkRefs);
    if (offset < sizeof chunkRefs && offset % sizeof(HeapChunkRef) == 0) [[likely]] {
        const int32_t index = entryOfRecord(static_cast<int32_t>(offset / sizeof(HeapChunkRef)));
        if (index < count && entries[index].chunk == chunk) [[likely]] {
            return index;
        }
    }
    return search(chunk);
}

inline void HeapLedger::remove(int32_t index) {
    --*countFor(entries[index].chunk);
    int32_t first = index;
    int32_t last = index;
    if (first > 0 && entries[first - 1].chunk == nullptr) {
        first -= static_cast<int32_t>(entries[first - 1].size);
    }
    if (last + 1 < count && entries[last + 1].chunk == nullptr) {
        last += static_cast<int32_t>(entries[last + 1].size);
    }
    entries[index].chunk = nullptr;
    if (last + 1 == count) {
        count = first;
        gaps -= last - first;
    } else {
        ++gaps;
        entries[first].size = entries[last].size = last - first + 1;
    }
}

#pragma GCC visibility pop
