// Strings, the hash table and the heap beside models of them: the input chooses operations.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>

#include "hash.h"
#include "ksdstring.h"
#include "quiet.h"
#include "utlheap.h"

static void require(bool condition) {
    if (!condition)
        abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = (beQuiet(), true);
    (void)quiet;
    FuzzedDataProvider input(data, size);
    KsDString string;
    KsDStringInit(&string);
    std::string text;
    // Without removals, which leave holes that a key behind them is not found over.
    HashTableSType table;
    HashTableInit(
        &table, TRUE, 4, [](const void* key) { return *static_cast<const uint32_t*>(key) % 61; },
        [](const void* a, const void* b) -> BoolType { return memcmp(a, b, 4) == 0; });
    std::set<uint32_t> keys;
    std::map<void*, std::string> blocks;
    while (input.remaining_bytes() > 0) {
        switch (input.ConsumeIntegralInRange(0, 5)) {
        case 0: {
            const std::string piece = input.ConsumeRandomLengthString(300);
            const std::string added = input.ConsumeBool() ? piece : piece.c_str();
            require(KsDStringAppend(&string, piece.c_str(), added.size() == piece.size() ? long(piece.size()) : -1));
            text += added;
            break;
        }
        case 1: { // a part of itself
            const auto from = input.ConsumeIntegralInRange<size_t>(0, text.size());
            if (text.size() < 100000)
                require(KsDStringAppend(&string, string.string + from, long(text.size() - from)));
            text += text.size() < 100000 ? text.substr(from) : "";
            break;
        }
        case 2: {
            const long length = input.ConsumeIntegralInRange(-1L, 1000L);
            const size_t before = text.size();
            KsDStringSetLength(&string, length);
            text.resize(length < 0 ? 0 : length);
            for (size_t i = before; i < text.size(); ++i)
                string.string[i] = '\0';
            break;
        }
        case 3: {
            const auto key = input.ConsumeIntegral<uint16_t>() * uint32_t{65599};
            VoidPtrType* const slot = HashTableLookup(&table, &key);
            require((*slot != nullptr) == keys.contains(key));
            if (*slot == nullptr)
                require(HashTableInsert(&table, slot, &key));
            keys.insert(key);
            require(table.numEntries == long(keys.size()) &&
                    *static_cast<uint32_t*>(*HashTableLookup(&table, &key)) == key);
            break;
        }
        case 4: {
            std::string content = input.ConsumeRandomLengthString(400);
            void* const block = UtlMalloc_(unsigned(content.size()), 1);
            memcpy(block, content.data(), content.size());
            require(blocks.emplace(block, content).second);
            break;
        }
        default:
            if (!blocks.empty()) {
                auto block = blocks.begin();
                std::advance(block, input.ConsumeIntegralInRange<size_t>(0, blocks.size() - 1));
                require(memcmp(block->first, block->second.data(), block->second.size()) == 0);
                UtlFree(block->first);
                blocks.erase(block);
            }
        }
        require(string.length == long(text.size()) && string.spaceAvl > string.length);
        require(memcmp(string.string, text.c_str(), text.size() + 1) == 0);
    }
    size_t found = 0;
    for (VoidPtrType* at = nullptr; HashTableEnumerate(&table, &at), at != nullptr; ++found)
        require(keys.contains(*static_cast<uint32_t*>(*at)));
    require(found == keys.size());
    for (const auto& block : blocks)
        UtlFree(block.first);
    KsDStringFree(&string);
    HashTableClear(&table);
    UtlFree(table.table);
    UtlHeapCheck();
    require(UtlHeapSizeKB() == 0);
    return 0;
}
