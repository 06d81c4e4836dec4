#include "utl/heapledger.h"

#include <algorithm>
#include <sys/mman.h>

constinit HeapLedger heapLedger{};

namespace {
// The ledger's entry of each record's block.
int32_t entryOfRecord[REF_ARRAY_SIZE];

// What the header in front of a caller's pointer says, whatever memory that is.
struct Claim {
    uintptr_t ref;
    unsigned sequence;
};
[[gnu::no_sanitize("address", "thread")]] Claim readClaim(const HeapChunk* chunk) {
    return {reinterpret_cast<uintptr_t>(chunk->ref), chunk->num_mallocs};
}
} // namespace

// The system's pages are asked directly, so that the ledger is not seen in the system heap that it describes.
bool HeapLedger::grow() {
    constexpr size_t firstBytes = 4096;
    const size_t oldBytes = capacity * sizeof(Entry);
    const size_t newBytes = std::max(firstBytes, 2 * oldBytes);
    void* memory =
        capacity == 0
            ? mmap(nullptr, newBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)
            : mremap(entries, (oldBytes + firstBytes - 1) / firstBytes * firstBytes, newBytes, MREMAP_MAYMOVE);
    if (memory == MAP_FAILED)
        return false;
    entries = static_cast<Entry*>(memory);
    capacity = static_cast<int32_t>(newBytes / sizeof(Entry));
    return true;
}

bool HeapLedger::reserve() {
    if (count < capacity) [[likely]]
        return true;
    if (gaps > count / 2) {
        compact();
        return true;
    }
    return grow();
}

void HeapLedger::append(const Entry& entry) {
    const auto address = reinterpret_cast<uintptr_t>(entry.chunk);
    if (count == 0 && highestChunk == 0)
        lowestChunk = address;
    lowestChunk = std::min(lowestChunk, address);
    highestChunk = std::max(highestChunk, address);
    if (entry.record != none)
        entryOfRecord[entry.record] = count;
    entries[count++] = entry;
}

int32_t HeapLedger::find(const HeapChunk* chunk) const {
    const auto address = reinterpret_cast<uintptr_t>(chunk);
    if (count == 0 || address < lowestChunk || address > highestChunk || address % alignof(HeapChunk) != 0)
        return none;
    const Claim claim = readClaim(chunk);
    const uintptr_t offset = claim.ref - reinterpret_cast<uintptr_t>(chunkRefs);
    if (offset < sizeof chunkRefs && offset % sizeof(HeapChunkRef) == 0) [[likely]] {
        const int32_t index = entryOfRecord[offset / sizeof(HeapChunkRef)];
        if (index < count && entries[index].chunk == chunk) [[likely]]
            return index;
    }
    // The block has no record, or its header is damaged, or it is no live block at all.
    const int32_t index = findBySequence(claim.sequence);
    if (index != none && entries[index].chunk == chunk)
        return index;
    for (int32_t i = newest(); i != none; i = older(i)) {
        if (entries[i].chunk == chunk)
            return i;
    }
    return none;
}

// Sequence numbers ascend, up to their wrapping around; gaps keep theirs.
int32_t HeapLedger::findBySequence(unsigned sequence) const {
    const Entry* found =
        std::lower_bound(entries, entries + count, sequence - entries[0].sequence,
                         [this](const Entry& e, unsigned distance) { return e.sequence - entries[0].sequence < distance; });
    return found == entries + count ? none : static_cast<int32_t>(found - entries);
}

int32_t HeapLedger::newer(int32_t index) const {
    if (++index == count)
        return none;
    return entries[index].chunk ? index : index + static_cast<int32_t>(entries[index].size);
}

void HeapLedger::remove(int32_t index) {
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

void HeapLedger::compactIfSparse() {
    if (gaps > (count - gaps) / 8)
        compact();
}

void HeapLedger::compact() {
    int32_t kept = 0;
    for (int32_t i = 0; i < count; ++i) {
        if (!entries[i].chunk)
            continue;
        entries[kept] = entries[i];
        if (entries[i].record != none)
            entryOfRecord[entries[i].record] = kept;
        ++kept;
    }
    count = kept;
    gaps = 0;
}
