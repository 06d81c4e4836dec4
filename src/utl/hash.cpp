#include "hash.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cpuid.h>
#include <cstddef>
#include <cstring>
#include <emmintrin.h>

#include "host/base/upwardcalls.h"
#include "utl/prefetch.h"
#include "utlheap.h"

static_assert(sizeof(void*) != 4 || (offsetof(HashTableSType, hashFunc) == 28 &&
                                     offsetof(HashTableSType, table) == 36 && sizeof(HashTableSType) == 44));

namespace {
// clang-format off
constexpr std::array<int32_t, 20> powerOfTwoPrime{
    1,
    2,
    5,
    11,
    17,
    37,
    67,
    131,
    257,
    521,
    1031,
    2053,
    4099,
    8209,
    16411,
    32771,
    65537,
    0,
    0,
    0,
};
// clang-format on
constexpr int32_t smallestIndex = 5;
constexpr int32_t largestIndex = 16;

// The largest table runs up to 92 % full, with probe runs of dozens of slots. Looking into each key there would miss
// the cache each time, so every slot has two bytes of its own, in the same block:
// - the tag, a byte of the hash of the slot's key; a search reads the tags of a group of slots at once;
// - the filter, a bit each for the hashes of the keys that belong here and had to be put far away. Where the bit of an
//   absent key is missing, only the next empty slot is left to find. A bit says "perhaps": it stays on removal.
constexpr uint8_t emptyTag = 0;
constexpr int32_t groupSize = 32;

// Where a hash belongs in a table, and what the table notes of it.
struct Place {
    int32_t home;
    uint32_t mixed; // multiplied, so that its upper bits depend on all bits of the hash; those of strings have only 24

    Place(uint32_t hash, int32_t tableSize) : home(homeOf(hash, tableSize)), mixed(hash * 0x9E3779B1U) {}
    uint8_t tag() const {
        const auto tag = static_cast<uint8_t>(mixed >> 24);
        return tag != emptyTag ? tag : 1;
    }
    uint8_t filterBit() const { return static_cast<uint8_t>(1U << (mixed >> 21 & 7)); }

private:
    static int32_t homeOf(uint32_t hash, int32_t tableSize) {
        if (tableSize != powerOfTwoPrime[largestIndex]) {
            return static_cast<int32_t>(hash % tableSize);
        }
        // 2^16 is -1 modulo the largest size, 2^16 + 1: the remainder needs no division.
        const auto difference = static_cast<int32_t>((hash & 0xFFFF) - (hash >> 16));
        return difference + (difference >> 31 & powerOfTwoPrime[largestIndex]);
    }
};

// What insertion needs to know of the lookups since the last change: how many found an empty slot, and the last such
// slot with its key's place. Into a slot that one lookup alone has found goes that lookup's key.
struct SearchState {
    unsigned emptyAnswers;
    int32_t emptyIndex;
    Place place;
};

// The parts of a table's one allocation, in this order: slots, state, tags and filters.
struct TableBlock {
    // A search for an empty slot reads two groups at once. The tags added behind the last slot's are empty and end it.
    static constexpr int32_t stride = 2 * groupSize;

    VoidPtrType* slots;
    SearchState* state;
    uint8_t* tags;
    uint8_t* filters;

    static size_t bytes(int32_t slotCount) {
        return slotCount * (sizeof(VoidPtrType) + 2) + sizeof(SearchState) + stride;
    }
    TableBlock(VoidPtrType* table, int32_t slotCount)
        : slots(table), state(reinterpret_cast<SearchState*>(table + slotCount)),
          tags(reinterpret_cast<uint8_t*>(state + 1)), filters(tags + slotCount + stride) {}
    explicit TableBlock(const HashTableSType& ht) : TableBlock(ht.table, ht.tableSize) {}

    void occupy(int32_t index, void* key, const Place& place) const {
        slots[index] = key;
        tags[index] = place.tag();
        // Far is what a search's first group does not show: also what went round to the first slots.
        if (static_cast<uint32_t>(index - place.home) >= groupSize) {
            filters[place.home] |= place.filterBit();
        }
    }
};

// Searches tags by 16-byte vectors. The finders answer with the first index from start on.
struct VectorSearch {
    [[gnu::target("sse2")]] static bool isNear(const uint8_t* tags, const Place& place) {
        return equals(tags + place.home, place.tag()) != 0;
    }
    [[gnu::target("sse2")]] static int32_t findTagOrEmpty(const uint8_t* tags, int32_t start, uint8_t tag) {
        for (const uint8_t* at = tags + start;; at += 16) {
            if (const uint32_t found = equals16(at, tag) | equals16(at, emptyTag)) {
                return static_cast<int32_t>(at - tags) + __builtin_ctz(found);
            }
        }
    }
    [[gnu::target("sse2")]] static int32_t findEmpty(const uint8_t* tags, int32_t start) {
        for (const uint8_t* at = tags + start;; at += TableBlock::stride) {
            const uint32_t first = equals(at, emptyTag);
            const uint32_t second = equals(at + groupSize, emptyTag);
            if (first | second) { // which of the two is as good as random, so no branch asks
                return static_cast<int32_t>(at - tags) +
                       (first ? __builtin_ctz(first) : groupSize + __builtin_ctz(second));
            }
        }
    }

private:
    // A bit for each tag of a group.
    [[gnu::target("sse2")]] static uint32_t equals(const uint8_t* at, uint8_t tag) {
        return equals16(at + 16, tag) << 16 | equals16(at, tag);
    }
    [[gnu::target("sse2")]] static uint32_t equals16(const uint8_t* at, uint8_t tag) {
        const __m128i tags = _mm_loadu_si128(reinterpret_cast<const __m128i_u*>(at));
        return _mm_movemask_epi8(_mm_cmpeq_epi8(tags, _mm_set1_epi8(static_cast<char>(tag))));
    }
};

struct ByteSearch {
    static bool isNear(const uint8_t* tags, const Place& place) {
        return memchr(tags + place.home, place.tag(), groupSize) != nullptr;
    }
    static int32_t findTagOrEmpty(const uint8_t* tags, int32_t start, uint8_t tag) {
        while (tags[start] != tag && tags[start] != emptyTag) {
            ++start;
        }
        return start;
    }
    static int32_t findEmpty(const uint8_t* tags, int32_t start) { return findTagOrEmpty(tags, start, emptyTag); }
};

template <typename Search>
[[gnu::always_inline]] inline VoidPtrType* lookUp(const HashTableSType& ht, const void* key) {
    const uint32_t hash = ht.hashFunc(key);
    if (!ht.table) {
        return nullptr;
    }
    const TableBlock block(ht);
    const Place place(hash, ht.tableSize);
    int32_t index = place.home;
    // Where half of the slots are empty, one is near, and the search for the key ends at it: no need to ask before.
    const bool roomy = ht.numEntries <= ht.halfTableSize;
    if (roomy || Search::isNear(block.tags, place) || (block.filters[place.home] & place.filterBit())) {
        prefetch(block.slots[index]); // the key's text comes while tags are read: half of the keys are at home
        for (;;) {
            index = Search::findTagOrEmpty(block.tags, index, place.tag());
            if (index >= ht.tableSize) {
                index = 0;
                continue;
            }
            const void* candidate = block.slots[index];
            if (!candidate) {
                break;
            }
            if (ht.compareFunc(key, candidate)) {
                return &block.slots[index];
            }
            ++index; // behind the last slot the search ends at once and goes on at the first
        }
    } else {
        index = Search::findEmpty(block.tags, index);
        while (index >= ht.tableSize) {
            index = Search::findEmpty(block.tags, 0);
        }
    }
    ++block.state->emptyAnswers;
    block.state->emptyIndex = index;
    block.state->place = place;
    return &block.slots[index];
}

// These realign the stack in place of HashTableLookup, which only jumps to one of them.
[[gnu::target("sse2"), gnu::force_align_arg_pointer]] VoidPtrType* lookUpBySse2(HashTableSType* ht, const void* key) {
    return lookUp<VectorSearch>(*ht, key);
}

[[gnu::force_align_arg_pointer]] VoidPtrType* lookUpByBytes(HashTableSType* ht, const void* key) {
    return lookUp<ByteSearch>(*ht, key);
}

using LookUp = VoidPtrType* (*)(HashTableSType*, const void*);
VoidPtrType* chooseLookUp(HashTableSType* ht, const void* key);
std::atomic<LookUp> bestLookUp{chooseLookUp};

// Not every i386 processor has SSE2. Asked at the first look-up: a virtual processor takes its time to answer.
[[gnu::cold, gnu::noinline, gnu::force_align_arg_pointer]] VoidPtrType* chooseLookUp(HashTableSType* ht,
                                                                                     const void* key) {
    [[maybe_unused]] unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
#ifdef TMQKCI_WITHOUT_SSE2 // in a test
    const bool hasSse2 = false;
#else
    const bool hasSse2 = __get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0 && (edx & bit_SSE2) != 0;
#endif
    const LookUp best = hasSse2 ? lookUpBySse2 : lookUpByBytes;
    bestLookUp.store(best, std::memory_order_relaxed);
    return best(ht, key);
}

// Places the keys of old slots in their order. Some at a time: while their hashes are computed in a row, none waits for
// the search of another's slot.
void placeAll(const HashTableSType& ht, const VoidPtrType* old, const VoidPtrType* oldEnd) {
    constexpr int batchSize = 32;
    const TableBlock block(ht);
    std::array<void*, batchSize> keys;
    std::array<uint32_t, batchSize> hashes;
    while (old != oldEnd) {
        int count = 0;
        for (const VoidPtrType* const end = old + std::min<ptrdiff_t>(batchSize, oldEnd - old); old != end; ++old) {
            keys[count] = *old;
            count += static_cast<int>(*old != nullptr); // no branch: occupied slots come at random
        }
        for (int i = 0; i < count; ++i) {
            hashes[i] = ht.hashFunc(keys[i]);
        }
        for (int i = 0; i < count; ++i) {
            const Place place(hashes[i], ht.tableSize);
            int32_t index = place.home;
            while (block.slots[index] != nullptr) {
                if (++index == ht.tableSize) {
                    index = 0;
                }
            }
            block.occupy(index, keys[i], place);
        }
    }
}

// Gives the table the size of its index, with all keys placed anew. FALSE without memory; the old slots stay then.
BoolType rehash(HashTableSType& ht) {
    if (ht.indexOfPrime > largestIndex) {
        return FALSE;
    }
    if (ht.indexOfPrime < smallestIndex) {
        ht.indexOfPrime = smallestIndex;
    }
    const int32_t newSize = powerOfTwoPrime[ht.indexOfPrime];
    const auto bytes = static_cast<unsigned>(TableBlock::bytes(newSize));
    auto* table = static_cast<VoidPtrType*>(UtlMalloc_(bytes, __LINE__));
    if (table == nullptr) {
        return FALSE;
    }
    memset(table, 0, bytes);

    VoidPtrType* const oldTable = ht.table;
    VoidPtrType* const oldEnd = ht.endPtr;
    ht.table = table;
    ht.tableSize = newSize;
    ht.endPtr = table + newSize;
    ht.halfTableSize = newSize / 2;
    ht.quarterTableSize = newSize / 4;
    if (oldTable != nullptr) {
        placeAll(ht, oldTable, oldEnd);
        UtlFree(oldTable);
    }
    return TRUE;
}

// The place of a key that goes to the given slot: from the lookup that found the slot, where no doubt is possible.
Place placeForInsertion(const HashTableSType& ht, const SearchState& state, int32_t index, const void* key) {
    const bool known = state.emptyAnswers == 1 && state.emptyIndex == index;
    return known ? state.place : Place(ht.hashFunc(key), ht.tableSize);
}

void resetSizes(HashTableSType& ht) {
    ht.table = nullptr;
    ht.endPtr = nullptr;
    ht.indexOfPrime = smallestIndex - 1;
    ht.tableSize = 0;
    ht.halfTableSize = 0;
    ht.quarterTableSize = 0;
    ht.numEntries = 0;
}
} // namespace

void HashTableInit(HashTableSType* hashTable, BoolType copyKeys, unsigned keySize, HashFType hashFunc,
                   HashCompareFType compareFunc) {
    hashTable->copyKeys = copyKeys;
    hashTable->keySize = static_cast<int32_t>(keySize);
    hashTable->hashFunc = hashFunc;
    hashTable->compareFunc = compareFunc;
    resetSizes(*hashTable);
    rehash(*hashTable);
}

VoidPtrType* HashTableLookup(HashTableSType* hashTable, const void* key) {
    return bestLookUp.load(std::memory_order_relaxed)(hashTable, key);
}

BoolType HashTableInsert(HashTableSType* hashTable, VoidPtrType* posn, const void* key) {
    if (hashTable->numEntries >= hashTable->halfTableSize && hashTable->indexOfPrime < largestIndex) {
        ++hashTable->indexOfPrime;
        if (!rehash(*hashTable)) {
            --hashTable->indexOfPrime;
            return FALSE;
        }
        posn = HashTableLookup(hashTable, key);
    }
    ++hashTable->numEntries;
    void* stored = const_cast<void*>(key);
    if (hashTable->copyKeys) {
        stored = UtlMalloc_(static_cast<unsigned>(hashTable->keySize), __LINE__);
        if (stored == nullptr) {
            return FALSE;
        }
        memcpy(stored, key, hashTable->keySize);
    }
    const TableBlock block(*hashTable);
    const auto index = static_cast<int32_t>(posn - block.slots);
    block.occupy(index, stored, placeForInsertion(*hashTable, *block.state, index, key));
    block.state->emptyAnswers = 0;
    return TRUE;
}

BoolType HashTableRemove(HashTableSType* hashTable, VoidPtrType* posn) {
    if (*posn == nullptr) {
        return FALSE;
    }
    if (hashTable->copyKeys) {
        UtlFree(*posn);
    }
    const TableBlock block(*hashTable);
    block.tags[posn - block.slots] = emptyTag;
    block.state->emptyAnswers = 0;
    *posn = nullptr;
    --hashTable->numEntries;
    return TRUE;
}

void HashTableEnumerate(HashTableSType* hashTable, VoidPtrType** elementPtr) {
    VoidPtrType* const end = hashTable->endPtr;
    VoidPtrType* slot = *elementPtr != nullptr ? *elementPtr + 1 : hashTable->table;
    while (slot != end && *slot == nullptr) {
        ++slot;
    }
    *elementPtr = slot != end ? slot : nullptr;
}

void HashTableClear(HashTableSType* hashTable) {
    for (VoidPtrType* slot = hashTable->table; slot != hashTable->endPtr; ++slot) {
        if (*slot == nullptr) {
            continue;
        }
        if (hashTable->numEntries < 1) {
            HostCallDebuggerMsg("corrupt hash table");
        }
        if (hashTable->copyKeys) {
            UtlFree(*slot);
        }
        *slot = nullptr;
        --hashTable->numEntries;
    }
    if (hashTable->table != nullptr) {
        UtlFree(hashTable->table);
    }
    resetSizes(*hashTable);
    rehash(*hashTable);
}
