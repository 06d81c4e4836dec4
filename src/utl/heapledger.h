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
    // Enters a block as the newest; reserve has made room.
    void append(const Entry& entry);
    // The entry of a live block, or none. Apart from the header in front of it, a foreign pointer is not followed.
    int32_t find(const HeapChunk* chunk) const;
    void remove(int32_t index);
    // Closes the gaps when they have become many. Entries move.
    void compactIfSparse() {
        if (gaps > (count - gaps) / 8)
            compact();
    }

    // A cursor over the live entries, newest first: for (i = newest(); i != none; i = older(i))
    int32_t newest() const { return count - 1; }
    int32_t newer(int32_t index) const {
        if (++index == count)
            return none;
        return entries[index].chunk ? index : index + static_cast<int32_t>(entries[index].size);
    }
    int32_t older(int32_t index) const {
        if (--index >= 0 && !entries[index].chunk) [[unlikely]]
            index -= static_cast<int32_t>(entries[index].size);
        return index;
    }
    // All entries, oldest first, gaps among them.
    std::span<const Entry> all() const { return {entries, static_cast<size_t>(count)}; }
    const Entry& operator[](int32_t index) const { return entries[index]; }
    HeapChunk* chunkAt(int32_t index) const { return index == none ? nullptr : entries[index].chunk; }

private:
    // What the header in front of a caller's pointer says, whatever memory that is.
    struct Claim {
        uintptr_t ref;
        unsigned sequence;
    };
    [[gnu::no_sanitize("address", "thread")]] static Claim readClaim(const HeapChunk* chunk) {
        return {reinterpret_cast<uintptr_t>(chunk->ref), chunk->num_mallocs};
    }

    bool makeRoom();
    bool grow();
    void compact();
    int32_t search(const HeapChunk* chunk, unsigned sequence) const;

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
    lowestChunk = std::min(lowestChunk, address);
    highestChunk = std::max(highestChunk, address);
    entryOfRecord(entry.record) = count;
    entries[count++] = entry;
}

inline int32_t HeapLedger::find(const HeapChunk* chunk) const {
    const auto address = reinterpret_cast<uintptr_t>(chunk);
    if (address < lowestChunk || address > highestChunk || address % alignof(HeapChunk) != 0) [[unlikely]]
        return none;
    const Claim claim = readClaim(chunk);
    const uintptr_t offset = claim.ref - reinterpret_cast<uintptr_t>(chunkRefs);
    if (offset < sizeof chunkRefs && offset % sizeof(HeapChunkRef) == 0) [[likely]] {
        const int32_t index = entryOfRecord(static_cast<int32_t>(offset / sizeof(HeapChunkRef)));
        if (index < count && entries[index].chunk == chunk) [[likely]]
            return index;
    }
    return search(chunk, claim.sequence);
}

inline void HeapLedger::remove(int32_t index) {
    int32_t first = index;
    int32_t last = index;
    if (first > 0 && !entries[first - 1].chunk)
        first -= static_cast<int32_t>(entries[first - 1].size);
    if (last + 1 < count && !entries[last + 1].chunk)
        last += static_cast<int32_t>(entries[last + 1].size);
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
