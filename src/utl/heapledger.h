// The heap's ledger: all live blocks in the order of their allocation, kept outside the blocks, where no overrun of a
// caller reaches it. The list through the blocks is checked against the ledger, so that a check or a release follows no
// pointer that may be damaged; and a check knows the next blocks early enough to have their memory fetched meanwhile.
//
// Released blocks leave gaps. A run of gaps has its length in its first and its last entry, so that it is skipped in
// one step from either side. The newest entry is never a gap.
//
// Nothing here locks: the heap's mutex is held.
#pragma once

#include <cstddef>
#include <cstdint>

#include "utl/heapchunk.h"

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
    bool reserve();
    // Enters a block as the newest; reserve has made room.
    void append(const Entry& entry);
    // The entry of a live block, or none. Apart from the header in front of it, a foreign pointer is not followed.
    int32_t find(const HeapChunk* chunk) const;
    void remove(int32_t index);
    // Closes the gaps when they have become many. Entries move.
    void compactIfSparse();

    // A cursor over the live entries, newest first: for (i = newest(); i != none; i = older(i))
    int32_t newest() const { return count - 1; }
    int32_t newer(int32_t index) const;
    int32_t older(int32_t index) const {
        if (--index >= 0 && !entries[index].chunk) [[unlikely]]
            index -= static_cast<int32_t>(entries[index].size);
        return index;
    }
    const Entry& operator[](int32_t index) const { return entries[index]; }
    HeapChunk* chunkAt(int32_t index) const { return index == none ? nullptr : entries[index].chunk; }

private:
    bool grow();
    void compact();
    int32_t findBySequence(unsigned sequence) const;

    Entry* entries;
    int32_t count; // live entries and gaps
    int32_t gaps;
    int32_t capacity;
    // No chunk ever lay outside these bounds.
    uintptr_t lowestChunk;
    uintptr_t highestChunk;
};

// The heap's one ledger, empty at first.
extern constinit HeapLedger heapLedger;
