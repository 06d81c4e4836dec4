#include "hash.h"

#include <array>
#include <deque>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "failing_malloc.h"
#include "support/child.h"
#include "utl.h"
#include "utl/pearson.h"
#include "utlheap.h"

namespace {
unsigned hashCalls;
uint32_t hashNumber(const void* key) {
    ++hashCalls;
    return *static_cast<const uint32_t*>(key);
}
BoolType equalNumbers(const void* a, const void* b) {
    return *static_cast<const uint32_t*>(a) == *static_cast<const uint32_t*>(b);
}

struct Numbers : HashTableSType {
    explicit Numbers(BoolType copies = TRUE) {
        HashTableInit(this, copies, sizeof(uint32_t), hashNumber, equalNumbers);
    }
    bool add(const uint32_t& number) { return HashTableInsert(this, HashTableLookup(this, &number), &number); }
    bool has(uint32_t number) { return *HashTableLookup(this, &number) != nullptr; }
    std::multiset<uint32_t> contents() {
        std::multiset<uint32_t> found;
        VoidPtrType* cursor = nullptr;
        while (HashTableEnumerate(this, &cursor), cursor)
            found.insert(*static_cast<uint32_t*>(*cursor));
        return found;
    }
};

TEST(HashTable, GrowsThroughThePrimes) {
    Numbers table;
    EXPECT_EQ(table.indexOfPrime, 5);
    int32_t size = 37;
    std::vector<int32_t> sizes{size};
    for (uint32_t i = 0; i < 60000; ++i) {
        const bool grows = table.numEntries >= table.tableSize / 2 && size != 65537;
        hashCalls = 0;
        ASSERT_TRUE(table.add(i * 2654435761U));
        // One to look up; to grow: one for each old key and one to look up again.
        ASSERT_EQ(hashCalls, grows ? i + 2 : 1);
        ASSERT_EQ(grows, table.tableSize != size);
        if (table.tableSize != size)
            sizes.push_back(size = table.tableSize);
    }
    EXPECT_EQ(table.halfTableSize, size / 2);
    EXPECT_EQ(table.quarterTableSize, size / 4);
    EXPECT_EQ(table.endPtr - table.table, size);
    EXPECT_EQ(sizes, (std::vector<int32_t>{37, 67, 131, 257, 521, 1031, 2053, 4099, 8209, 16411, 32771, 65537}));
    for (uint32_t i = 0; i < 60000; ++i)
        ASSERT_TRUE(table.has(i * 2654435761U));
    HashTableClear(&table);
    EXPECT_EQ(table.tableSize, 37);
    EXPECT_EQ(table.numEntries, 0);
}

// Lookups between a lookup and its insertion, of other keys and of the same buffer with other contents.
TEST(HashTable, InsertionAfterOtherLookups) {
    Numbers table;
    uint32_t buffer = 5;
    VoidPtrType* posn = HashTableLookup(&table, &buffer);
    const uint32_t other = 5 + 37;
    EXPECT_EQ(HashTableLookup(&table, &other), posn);
    buffer = 5 + 74;
    EXPECT_EQ(HashTableLookup(&table, &buffer), posn);
    buffer = 5;
    EXPECT_TRUE(HashTableInsert(&table, posn, &buffer));
    EXPECT_TRUE(table.has(5));
    EXPECT_FALSE(table.has(other));
    EXPECT_FALSE(table.has(5 + 74));
}

TEST(HashTable, FailedAllocations) {
    Numbers table;
    const auto failNext = [](unsigned nth) { mallocControl = {.failAt = nth}; };
    failNext(1);
    EXPECT_FALSE(table.add(3)); // the copy: counted all the same
    EXPECT_EQ(table.numEntries, 1);
    EXPECT_FALSE(table.has(3));
    for (uint32_t i = 100; table.numEntries < 18; ++i)
        EXPECT_TRUE(table.add(i));
    failNext(1);
    EXPECT_FALSE(table.add(4)); // the larger table: nothing has changed
    EXPECT_EQ(table.numEntries, 18);
    EXPECT_EQ(table.tableSize, 37);
    EXPECT_TRUE(table.add(4));
    EXPECT_EQ(table.tableSize, 67);
}

TEST(HashTable, ClearReportsSurplusSlots) {
    const ChildResult child = runInChild([] {
        Numbers table;
        for (uint32_t i = 0; i < 10; ++i)
            table.add(i);
        table.numEntries = 7;
        HashTableClear(&table);
        EXPECT_EQ(UtlHeapSizeKB(), 0U); // the keys' copies are gone
    });
    EXPECT_EQ(child.out, "corrupt hash table\ncorrupt hash table\ncorrupt hash table\n");
    EXPECT_EQ(child.exitStatus, 0);
}

// Against a model that places keys by the same rules without any shortcut. Removal leaves holes behind which keys are
// not found until the table grows.
TEST(HashTable, RandomUseAgainstAModel) {
    std::mt19937 random(3);
    for (const BoolType copies : {FALSE, TRUE}) {
        Numbers table(copies);
        std::vector<const uint32_t*> model(37, nullptr);
        std::deque<uint32_t> keys;
        // The slot of a key; of the next empty one when no key is equal.
        const auto probe = [&](uint32_t key, bool compare) {
            size_t index = key % model.size();
            while (model[index] && !(compare && *model[index] == key))
                index = (index + 1) % model.size();
            return index;
        };
        for (int i = 0; i < 50000; ++i) {
            const uint32_t key = random() % 4000 * (1 + (random() % 8 == 0)) * 65599;
            VoidPtrType* posn = HashTableLookup(&table, &key);
            const size_t index = probe(key, true);
            ASSERT_EQ(posn - table.table, static_cast<long>(index));
            ASSERT_EQ(*posn != nullptr, model[index] != nullptr);
            if (!*posn) {
                keys.push_back(key);
                ASSERT_FALSE(HashTableRemove(&table, posn));
                ASSERT_TRUE(HashTableInsert(&table, posn, &keys.back()));
                if (table.tableSize != static_cast<long>(model.size())) {
                    std::vector<const uint32_t*> old(table.tableSize, nullptr);
                    old.swap(model);
                    for (const uint32_t* moved : old) {
                        if (moved) // not compared: equal keys behind a hole stay apart
                            model[probe(*moved, false)] = moved;
                    }
                }
                model[probe(key, true)] = &keys.back();
            } else if (random() % 4 != 0) {
                ASSERT_TRUE(HashTableRemove(&table, posn));
                model[index] = nullptr;
            }
        }
        std::multiset<uint32_t> expected;
        for (const uint32_t* key : model) {
            if (key)
                expected.insert(*key);
        }
        ASSERT_EQ(table.contents(), expected);
        ASSERT_EQ(table.numEntries, static_cast<long>(expected.size()));
        HashTableClear(&table);
        UtlFree(table.table);
    }
    UtlHeapCheck();
    EXPECT_EQ(UtlHeapSizeKB(), 0U);
}

TEST(HashStrings, Values) {
    const auto hash = [](std::string_view text, BoolType caseSensitive) {
        return HashStrHash(reinterpret_cast<const ByteType*>(text.data()), static_cast<unsigned>(text.size()),
                           caseSensitive);
    };
    EXPECT_EQ(hash("", TRUE), 0);
    EXPECT_EQ(hash("errmsg.Line4\x80\xFF", TRUE), 0x61478C);
    EXPECT_EQ(HashCStrHash("errmsg.Line4\x80\xFF"), 0x61478C);
    EXPECT_NE(hash("errmsg.Line4\x80\xFF", FALSE), 0x61478C);
    EXPECT_EQ(hash("eRRmsg", FALSE), 0xEA004C);
    EXPECT_EQ(std::set<int>(std::begin(pearsonPermutation), std::end(pearsonPermutation)).size(), 256U);

    const auto wide = [](std::u16string_view text, BoolType caseSensitive) {
        return HashDbStrHash(reinterpret_cast<const ByteType*>(text.data()), text.size() * 2, caseSensitive);
    };
    EXPECT_NE(wide(u"\x6141", TRUE), wide(u"\x4141", TRUE));
    EXPECT_EQ(wide(u"Ab", FALSE), wide(u"aB", FALSE));
    EXPECT_NE(wide(u"\x0161", FALSE), wide(u"\x0141", FALSE)); // no letters of one byte

    EXPECT_TRUE(HashCStrCompare("same", "same"));
    EXPECT_FALSE(HashCStrCompare("same", "sam"));
}

TEST(Utl, MemcmpAndSwizzleTransforms) {
    EXPECT_EQ(UtlMemcmp(nullptr, nullptr, 0), 0);
    EXPECT_GT(UtlMemcmp("a\xFF", "a\x01", 2), 0);
    using Bytes = std::array<ByteType, 6>; // the transform, then the one of two bytes
    const std::pair<Bytes, bool> cases[] = {
        {{3, 2, 1, 0, 1, 0}, true},
        {{0, 1, 2, 2, 0, 1}, false},
        {{0, 1, 2, 35, 0, 1}, false},
        {{0, 1, 2, 3, 1, 1}, false},
    };
    for (const auto& [transforms, valid] : cases)
        EXPECT_EQ(UtlValidateSwizzleTransforms(transforms.data(), transforms.data() + 4), valid);
}
} // namespace
