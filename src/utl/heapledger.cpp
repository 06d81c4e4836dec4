#include "utl/heapledger.h"

#include <cstring>
#include <sys/mman.h>

constinit HeapLedger heapLedger;
int32_t HeapLedger::recordEntries[REF_ARRAY_SIZE + 1];
HeapLedger::Entry HeapLedger::firstEntries[64];

bool HeapLedger::makeRoom() {
    if (gaps <= count / 2)
        return grow();
    compact();
    return true;
}

// The system's pages are asked directly, so that the ledger is not seen in the system heap that it describes.
bool HeapLedger::grow() {
    const bool first = entries == firstEntries;
    const size_t oldBytes = capacity * sizeof(Entry);
    const size_t newBytes = first ? 4 * sizeof firstEntries : 2 * oldBytes;
    void* memory = first ? mmap(nullptr, newBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)
                         : mremap(entries, oldBytes, newBytes, MREMAP_MAYMOVE);
    if (memory == MAP_FAILED)
        return false;
    if (first)
        memcpy(memory, firstEntries, sizeof firstEntries);
    entries = static_cast<Entry*>(memory);
    capacity = static_cast<int32_t>(newBytes / sizeof(Entry));
    return true;
}

// Without a branch for gaps, which lie where no processor can foresee them: what a gap writes is overwritten or unused.
void HeapLedger::compact() {
    int32_t kept = 0;
    for (int32_t i = 0; i < count; ++i) {
        const Entry entry = entries[i];
        entries[kept] = entry;
        entryOfRecord(entry.record) = kept;
        kept += entry.chunk != nullptr;
    }
    count = kept;
    gaps = 0;
}

// For a block that has no record or whose header is damaged, and for what is no live block at all. Sequence numbers
// ascend, gaps keep theirs: usually the entry is where they say.
int32_t HeapLedger::search(const HeapChunk* chunk, unsigned sequence) const {
    const auto age = [this](unsigned number) { return number - entries[0].sequence; };
    const Entry* found = std::lower_bound(entries, entries + count, age(sequence),
                                          [&](const Entry& entry, unsigned key) { return age(entry.sequence) < key; });
    if (found != entries + count && found->chunk == chunk)
        return static_cast<int32_t>(found - entries);
    for (int32_t i = newest(); i != none; i = older(i)) {
        if (entries[i].chunk == chunk)
            return i;
    }
    return none;
}
