#include "hash.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <emmintrin.h>
#include <sys/auxv.h>

#include "hostdebug.h"
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
// the cache each time, so every slot has a byte of its key's hash, its tag, and a search reads tags by the group. The
// tags lie behind the slots in the same block, and behind them this record:
struct SearchState {
    // What insertion needs to know of the lookups since the last change: how many found an empty slot, and the last
    // such slot with its key's tag. A slot that one lookup alone has found can only be inserted with that lookup's key.
    unsigned emptyAnswers;
    int32_t emptyIndex;
    uint8_t tag;
};

constexpr uint8_t emptyTag = 0;
// A search reads whole groups, also at the last tag. The tags added behind it are empty and end the search there.
constexpr int32_t groupSize = 16;

struct TableBlock {
    VoidPtrType* slots;
    uint8_t* tags;
    SearchState* state;

    static size_t tagBytes(int32_t slotCount) {
        return (slotCount + groupSize + alignof(SearchState) - 1) / alignof(SearchState) * alignof(SearchState);
    }
    static size_t bytes(int32_t slotCount) {
        return slotCount * sizeof(VoidPtrType) + tagBytes(slotCount) + sizeof(SearchState);
    }
    TableBlock(VoidPtrType* table, int32_t slotCount)
        : slots(table), tags(reinterpret_cast<uint8_t*>(table + slotCount)),
          state(reinterpret_cast<SearchState*>(tags + tagBytes(slotCount))) {}
    explicit TableBlock(const HashTableSType& ht) : TableBlock(ht.table, ht.tableSize) {}
};

// Multiplied, so that the tag depends on all bits of the hash; those of strings have only 24.
uint8_t tagOf(uint32_t hash) {
    const auto tag = static_cast<uint8_t>(hash * 0x9E3779B1U >> 24);
    return tag != emptyTag ? tag : 1;
}

// The first index from start whose tag is the given one or empty.
[[gnu::target("sse2")]] int32_t findTagBySse2(const uint8_t* tags, int32_t start, uint8_t tag) {
    const __m128i wanted = _mm_set1_epi8(static_cast<char>(tag));
    const __m128i empty = _mm_set1_epi8(static_cast<char>(emptyTag));
    for (const uint8_t* at = tags + start;; at += groupSize) {
        const __m128i group = _mm_loadu_si128(reinterpret_cast<const __m128i_u*>(at));
        const __m128i either = _mm_or_si128(_mm_cmpeq_epi8(group, wanted), _mm_cmpeq_epi8(group, empty));
        if (const int found = _mm_movemask_epi8(either))
            return static_cast<int32_t>(at - tags) + __builtin_ctz(found);
    }
}

// Not every i386 processor has SSE2. The kernel tells: asking the processor is slow where it is a virtual one. A table
// that is used before this is known is searched the slow way.
const bool hasSse2 = (getauxval(AT_HWCAP) & 1UL << 26) != 0;

int32_t findTag(const uint8_t* tags, int32_t start, uint8_t tag) {
    if (hasSse2) [[likely]]
        return findTagBySse2(tags, start, tag);
    while (tags[start] != tag && tags[start] != emptyTag)
        ++start;
    return start;
}

// The first empty slot from where a hash belongs.
int32_t findEmpty(const HashTableSType& ht, const TableBlock& block, uint32_t hash) {
    int32_t index = static_cast<int32_t>(hash % ht.tableSize);
    while (block.slots[index]) {
        if (++index == ht.tableSize)
            index = 0;
    }
    return index;
}

// Gives the table the size of its index, with all keys placed anew. FALSE without memory; the old slots stay then.
BoolType rehash(HashTableSType& ht) {
    if (ht.indexOfPrime > largestIndex)
        return FALSE;
    if (ht.indexOfPrime < smallestIndex)
        ht.indexOfPrime = smallestIndex;
    const int32_t newSize = powerOfTwoPrime[ht.indexOfPrime];
    const auto bytes = static_cast<unsigned>(TableBlock::bytes(newSize));
    auto* table = static_cast<VoidPtrType*>(UtlMalloc_(bytes, __LINE__));
    if (!table)
        return FALSE;
    memset(table, 0, bytes);

    VoidPtrType* const oldTable = ht.table;
    VoidPtrType* const oldEnd = ht.endPtr;
    ht.table = table;
    ht.tableSize = newSize;
    ht.endPtr = table + newSize;
    ht.halfTableSize = newSize / 2;
    ht.quarterTableSize = newSize / 4;
    if (oldTable) {
        const TableBlock block(ht);
        for (const VoidPtrType* slot = oldTable; slot != oldEnd; ++slot) {
            if (!*slot)
                continue;
            const uint32_t hash = ht.hashFunc(*slot);
            const int32_t index = findEmpty(ht, block, hash);
            block.slots[index] = *slot;
            block.tags[index] = tagOf(hash);
        }
        UtlFree(oldTable);
    }
    return TRUE;
}

// The tag for a key that goes to the given slot: from the lookup that found the slot, where no doubt is possible.
uint8_t tagForInsertion(const HashTableSType& ht, const SearchState& state, int32_t index, const void* key) {
    const bool known = state.emptyAnswers == 1 && state.emptyIndex == index;
    return known ? state.tag : tagOf(ht.hashFunc(key));
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
    const uint32_t hash = hashTable->hashFunc(key);
    if (!hashTable->table)
        return nullptr;
    const TableBlock block(*hashTable);
    const uint8_t tag = tagOf(hash);
    int32_t index = static_cast<int32_t>(hash % hashTable->tableSize);
    prefetch(&block.slots[index]); // comes while tags are read
    for (;;) {
        index = findTag(block.tags, index, tag);
        if (index >= hashTable->tableSize) {
            index = 0;
            continue;
        }
        const void* candidate = block.slots[index];
        if (!candidate)
            break;
        if (hashTable->compareFunc(key, candidate))
            return &block.slots[index];
        if (++index == hashTable->tableSize)
            index = 0;
    }
    ++block.state->emptyAnswers;
    block.state->emptyIndex = index;
    block.state->tag = tag;
    return &block.slots[index];
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
        if (!stored)
            return FALSE;
        memcpy(stored, key, hashTable->keySize);
    }
    const TableBlock block(*hashTable);
    const auto index = static_cast<int32_t>(posn - block.slots);
    block.tags[index] = tagForInsertion(*hashTable, *block.state, index, key);
    block.state->emptyAnswers = 0;
    *posn = stored;
    return TRUE;
}

BoolType HashTableRemove(HashTableSType* hashTable, VoidPtrType* posn) {
    if (!*posn)
        return FALSE;
    if (hashTable->copyKeys)
        UtlFree(*posn);
    const TableBlock block(*hashTable);
    block.tags[posn - block.slots] = emptyTag;
    block.state->emptyAnswers = 0;
    *posn = nullptr;
    --hashTable->numEntries;
    return TRUE;
}

void HashTableEnumerate(HashTableSType* hashTable, VoidPtrType** elementPtr) {
    VoidPtrType* const end = hashTable->endPtr;
    VoidPtrType* slot = *elementPtr ? *elementPtr + 1 : hashTable->table;
    while (slot != end && !*slot)
        ++slot;
    *elementPtr = slot != end ? slot : nullptr;
}

void HashTableClear(HashTableSType* hashTable) {
    for (VoidPtrType* slot = hashTable->table; slot != hashTable->endPtr; ++slot) {
        if (!*slot)
            continue;
        if (hashTable->numEntries < 1)
            HostCallDebuggerMsg("corrupt hash table");
        if (hashTable->copyKeys)
            UtlFree(*slot);
        *slot = nullptr;
        --hashTable->numEntries;
    }
    if (hashTable->table)
        UtlFree(hashTable->table);
    resetSizes(*hashTable);
    rehash(*hashTable);
}
