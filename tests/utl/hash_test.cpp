#include "hash.h"

#include <array>
#include <deque>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "failing_malloc.h"
#include "utl.h"
#include "utlheap.h"

namespace {
uint32_t hashNumber(const void* key) {
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
    std::vector<int32_t> sizes;
    // Scattered, so that in the fullest table many stand far from where they belong.
    const auto key = [](uint32_t i) { return i * 2654435761U ^ i * 2654435761U >> 15; };
    for (uint32_t i = 0; i < 60000; ++i) {
        const bool grows = table.numEntries >= table.tableSize / 2 && table.tableSize != 65537;
        if (sizes.empty() || sizes.back() != table.tableSize)
            sizes.push_back(table.tableSize);
        ASSERT_TRUE(table.add(key(i)));
        ASSERT_EQ(grows, table.tableSize != sizes.back());
    }
    EXPECT_EQ(table.halfTableSize, table.tableSize / 2);
    EXPECT_EQ(table.quarterTableSize, table.tableSize / 4);
    EXPECT_EQ(table.endPtr - table.table, table.tableSize);
    EXPECT_EQ(sizes, (std::vector<int32_t>{37, 67, 131, 257, 521, 1031, 2053, 4099, 8209, 16411, 32771, 65537}));
    for (uint32_t i = 0; i < 60000; ++i)
        ASSERT_TRUE(table.has(key(i)));
    HashTableClear(&table);
    EXPECT_EQ(table.tableSize, 37);
    EXPECT_EQ(table.numEntries, 0);
}

TEST(HashTable, FailedAllocations) {
    Numbers table;
    mallocControl = {.failAt = 1};
    EXPECT_FALSE(table.add(3)); // the copy: counted all the same
    EXPECT_EQ(table.numEntries, 1);
    EXPECT_FALSE(table.has(3));
    for (uint32_t i = 100; table.numEntries < 18; ++i)
        EXPECT_TRUE(table.add(i));
    mallocControl = {.failAt = 1};
    EXPECT_FALSE(table.add(4)); // the larger table: nothing has changed
    EXPECT_EQ(table.numEntries, 18);
    EXPECT_TRUE(table.add(4));
    EXPECT_EQ(table.tableSize, 67);
}

TEST(HashTable, ClearReportsSurplusSlots) {
    Numbers table;
    for (uint32_t i = 0; i < 10; ++i)
        table.add(i);
    table.numEntries = 7;
    testing::internal::CaptureStdout();
    HashTableClear(&table);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "corrupt hash table\ncorrupt hash table\ncorrupt hash table\n");
    EXPECT_EQ(UtlHeapSizeKB(), 0U); // the keys' copies are gone
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
                if (i % 2 == 0) { // another key that is looked for before the insertion, often at the same place
                    const uint32_t other = key + static_cast<uint32_t>(table.tableSize);
                    HashTableLookup(&table, &other);
                }
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
    EXPECT_EQ(hash("eRRmsg", FALSE), 0xEA004C);

    const auto wide = [](std::u16string_view text, BoolType caseSensitive) {
        return HashDbStrHash(reinterpret_cast<const ByteType*>(text.data()), text.size() * 2, caseSensitive);
    };
    EXPECT_NE(wide(u"\x6141", TRUE), wide(u"\x4141", TRUE));
    EXPECT_EQ(wide(u"Ab", FALSE), wide(u"aB", FALSE));
    EXPECT_NE(wide(u"\x0161", FALSE), wide(u"\x0141", FALSE)); // no letters of one byte
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
