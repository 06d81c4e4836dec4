// The hash table beside std::unordered_set over the same keys with the same hash function, and the string hash beside
// the loop that its definition suggests.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <random>
#include <unordered_set>
#include <vector>

#include "hash.h"
#include "ratio.h"
#include "utl/pearson.h"
#include "utlheap.h"

namespace {
constexpr size_t keyCount = 60000;

using Key = std::array<char, 32>;

std::vector<Key> makeKeys(char prefix) {
    std::vector<Key> keys(keyCount);
    std::mt19937 random(5);
    unsigned number = 0;
    for (Key& key : keys)
        snprintf(key.data(), key.size(), "%c%lu.%u", prefix, static_cast<unsigned long>(random()), number++);
    return keys;
}
const std::vector<Key>& storedKeys() {
    static const std::vector<Key> keys = makeKeys('k');
    return keys;
}
// What is looked up comes from elsewhere: equal texts, in another order.
const std::vector<Key>& presentKeys() {
    static const std::vector<Key> keys = [] {
        std::vector<Key> copies = storedKeys();
        std::shuffle(copies.begin(), copies.end(), std::mt19937(6));
        return copies;
    }();
    return keys;
}
const std::vector<Key>& absentKeys() {
    static const std::vector<Key> keys = makeKeys('a');
    return keys;
}

struct Table : HashTableSType {
    Table() {
        HashTableInit(this, FALSE, 0, reinterpret_cast<HashFType>(HashCStrHash),
                      reinterpret_cast<HashCompareFType>(HashCStrCompare));
    }
    ~Table() {
        HashTableClear(this);
        UtlFree(table);
    }
    void insert(const char* key) {
        VoidPtrType* slot = HashTableLookup(this, key);
        if (!*slot)
            HashTableInsert(this, slot, key);
    }
    bool has(const char* key) { return *HashTableLookup(this, key) != nullptr; }
    size_t visitAll() {
        size_t sum = 0;
        VoidPtrType* cursor = nullptr;
        while (HashTableEnumerate(this, &cursor), cursor)
            sum += reinterpret_cast<size_t>(*cursor);
        return sum;
    }
};

struct HashString {
    size_t operator()(const char* text) const { return static_cast<size_t>(HashCStrHash(text)); }
};
struct EqualStrings {
    bool operator()(const char* a, const char* b) const { return strcmp(a, b) == 0; }
};
struct Set {
    std::unordered_set<const char*, HashString, EqualStrings> set;
    void insert(const char* key) { set.insert(key); }
    bool has(const char* key) { return set.contains(key); }
    size_t visitAll() {
        size_t sum = 0;
        for (const char* key : set)
            sum += reinterpret_cast<size_t>(key);
        return sum;
    }
};

// Open addressing as one would write it down: the same sizes, a byte of each key's hash beside the slots.
struct HashBytes {
    std::vector<const char*> slots = std::vector<const char*>(37);
    std::vector<uint8_t> bytes = std::vector<uint8_t>(37);
    size_t used = 0;

    static uint8_t byteOf(unsigned hash) { return static_cast<uint8_t>(std::max(hash >> 16, 1U)); }
    size_t find(const char* key, unsigned hash) const {
        size_t at = hash % slots.size();
        while (bytes[at] != 0 && (bytes[at] != byteOf(hash) || strcmp(slots[at], key) != 0)) {
            at = at + 1 < slots.size() ? at + 1 : 0;
        }
        return at;
    }
    void grow() {
        constexpr size_t sizes[] = {67, 131, 257, 521, 1031, 2053, 4099, 8209, 16411, 32771, 65537};
        HashBytes larger;
        const size_t size = *std::upper_bound(std::begin(sizes), std::end(sizes), slots.size());
        larger.slots.assign(size, nullptr);
        larger.bytes.assign(size, 0);
        for (const char* key : slots)
            if (key != nullptr)
                larger.place(key, HashCStrHash(key));
        *this = std::move(larger);
    }
    // A key that is not there yet.
    void place(const char* key, unsigned hash) {
        size_t at = hash % slots.size();
        while (bytes[at] != 0)
            at = at + 1 < slots.size() ? at + 1 : 0;
        put(at, key, hash);
    }
    void put(size_t at, const char* key, unsigned hash) {
        slots[at] = key;
        bytes[at] = byteOf(hash);
        ++used;
    }
    void insert(const char* key) {
        const unsigned hash = HashCStrHash(key);
        const size_t at = find(key, hash);
        if (bytes[at] != 0)
            return;
        if (used >= slots.size() / 2 && slots.size() < 65537) {
            grow();
            place(key, hash);
        } else {
            put(at, key, hash);
        }
    }
};

template <typename Container>
void fill(Container& container) {
    for (const Key& key : storedKeys())
        container.insert(key.data());
}

template <typename Container>
void insertAll(benchmark::State& state) {
    storedKeys();
    for (auto _ : state) {
        Container container;
        fill(container);
        benchmark::DoNotOptimize(container);
    }
}

template <typename Container, const std::vector<Key>& (*keys)()>
void lookUpAll(benchmark::State& state) {
    Container container;
    fill(container);
    for (auto _ : state) {
        size_t found = 0;
        for (const Key& key : keys())
            found += container.has(key.data());
        benchmark::DoNotOptimize(found);
    }
}

template <typename Container>
void enumerateAll(benchmark::State& state) {
    Container container;
    fill(container);
    for (auto _ : state)
        benchmark::DoNotOptimize(container.visitAll());
}

// Exported like the library's.
[[gnu::noinline]] TMQKCI_LEAF_API int plainHash(const ByteType* bytes, unsigned count, BoolType) {
    const ByteType* table = pearsonPermutation;
    ByteType h0 = table[bytes[0]];
    ByteType h1 = table[static_cast<ByteType>(bytes[0] + 1)];
    ByteType h2 = table[static_cast<ByteType>(bytes[0] + 2)];
    for (unsigned i = 1; i < count; ++i) {
        h0 = table[bytes[i] ^ h0];
        h1 = table[bytes[i] ^ h1];
        h2 = table[bytes[i] ^ h2];
    }
    return h2 << 16 | h1 << 8 | h0;
}

template <int (*hash)(const ByteType*, unsigned, BoolType), unsigned length>
void hashBytes(benchmark::State& state) {
    std::vector<ByteType> bytes(4096 + length);
    std::mt19937 random(9);
    for (ByteType& byte : bytes)
        byte = static_cast<ByteType>(random());
    unsigned start = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(hash(&bytes[start++ % 4096], length, TRUE));
}

BENCHMARK(insertAll<Table>)->Name("60000 keys, insert/ours");
BENCHMARK(insertAll<Set>)->Name("60000 keys, insert/unordered_set");
BENCHMARK(insertAll<HashBytes>)->Name("60000 keys, insert/hash bytes beside slots");
BENCHMARK(lookUpAll<Table, presentKeys>)->Name("60000 keys, look up present/ours");
BENCHMARK(lookUpAll<Set, presentKeys>)->Name("60000 keys, look up present/unordered_set");
BENCHMARK(lookUpAll<Table, absentKeys>)->Name("60000 keys, look up absent/ours");
BENCHMARK(lookUpAll<Set, absentKeys>)->Name("60000 keys, look up absent/unordered_set");
BENCHMARK(enumerateAll<Table>)->Name("60000 keys, enumerate/ours");
BENCHMARK(enumerateAll<Set>)->Name("60000 keys, enumerate/unordered_set");
BENCHMARK(hashBytes<HashStrHash, 16>)->Name("HashStrHash, 16 bytes/ours");
BENCHMARK(hashBytes<plainHash, 16>)->Name("HashStrHash, 16 bytes/plain loop");
BENCHMARK(hashBytes<HashStrHash, 1000>)->Name("HashStrHash, 1000 bytes/ours");
BENCHMARK(hashBytes<plainHash, 1000>)->Name("HashStrHash, 1000 bytes/plain loop");
} // namespace

RATIO_MAIN({"60000 keys, insert", "unordered_set", 0.55}, {"60000 keys, insert", "hash bytes beside slots", 1.15},
           {"60000 keys, look up present", "unordered_set", 0.65}, {"60000 keys, look up absent", "unordered_set", 1.0},
           {"60000 keys, enumerate", "unordered_set", 0.65}, {"HashStrHash, 16 bytes", "plain loop", 0.9},
           {"HashStrHash, 1000 bytes", "plain loop", 0.9})
