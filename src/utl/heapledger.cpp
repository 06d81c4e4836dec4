#include "utl/heapledger.h"

#include <cstring>
#include <sys/mman.h>

constinit HeapLedger heapLedger;
int32_t HeapLedger::recordEntries[REF_ARRAY_SIZE + 1];
HeapLedger::Entry HeapLedger::firstEntries[64];
uint8_t HeapLedger::allCounts[];
uint8_t* HeapLedger::countsOfRegion[];

bool HeapLedger::makeRoom() {
    if (gaps <= count / 2) {
        return grow();
    }
    compact();
    return true;
}

bool HeapLedger::makeCounts(const HeapChunk* chunk) {
    const uintptr_t region = countedPlace(chunk) >> regionBits;
    void* const memory = mmap(nullptr, pagesPerRegion, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        return false;
    }
    countsOfRegion[region] = static_cast<uint8_t*>(memory);
    return true;
}

// The system's pages are asked directly, so that the ledger is not seen in the system heap that it describes.
bool HeapLedger::grow() {
    const bool first = entries == firstEntries;
    const size_t oldBytes = capacity * sizeof(Entry);
    const size_t newBytes = first ? 4 * sizeof firstEntries : 2 * oldBytes;
    void* memory = first ? mmap(nullptr, newBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)
                         : mremap(entries, oldBytes, newBytes, MREMAP_MAYMOVE);
    if (memory == MAP_FAILED) {
        return false;
    }
    if (first) {
        memcpy(memory, firstEntries, sizeof firstEntries);
    }
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
        kept += static_cast<int>(entry.chunk != nullptr);
    }
    count = kept;
    gaps = 0;
}

int32_t HeapLedger::findAround(const void* address) const {
    for (int32_t i = newest(); i != none; i = older(i)) {
        const uintptr_t offset = reinterpret_cast<uintptr_t>(address) - reinterpret_cast<uintptr_t>(entries[i].chunk);
        if (offset < HeapChunk::roundedSize(entries[i].size) + heapOverhead) {
            return i;
        }
    }
    return none;
}

// For a block that has no record or whose header is damaged, and for what is no live block at all. Sequence numbers
// ascend, gaps keep theirs: usually the entry is where they say.
int32_t HeapLedger::search(const HeapChunk* chunk) const {
    // The sequence number stands before the place that was found readable: seldom in another page.
    const uintptr_t sequencePlace = reinterpret_cast<uintptr_t>(chunk) + offsetof(HeapChunk, num_mallocs);
    const bool isReadable = sequencePlace >> pageBits == countedPlace(chunk) >> pageBits;
    const unsigned sequence = isReadable ? claimedSequence(chunk) : 0;
    const auto age = [this](unsigned number) { return number - entries[0].sequence; };
    const Entry* found = std::lower_bound(entries, entries + count, age(sequence),
                                          [&](const Entry& entry, unsigned key) { return age(entry.sequence) < key; });
    if (found != entries + count && found->chunk == chunk) {
        return static_cast<int32_t>(found - entries);
    }
    for (int32_t i = newest(); i != none; i = older(i)) {
        if (entries[i].chunk == chunk) {
            return i;
        }
    }
    return none;
}
