// Hash functions of strings. The message file stores their values: they never change.
#include <cctype>
#include <cstring>

#include "hash.h"
#include "hostunix.h"
#include "utl/pearson.h"

namespace {
// Three Pearson hashes side by side: the three chains of dependent loads overlap. Bytes and states are kept in whole
// registers, so that each step costs one exclusive or and one load and nothing to cut a state to its byte.
template <typename ByteAt>
int mix(size_t count, ByteAt byteAt) {
    const auto& table = pearsonPermutation;
    const unsigned first = byteAt(0);
    unsigned h0 = table[first];
    unsigned h1 = table[(first + 1) & 0xFF];
    unsigned h2 = table[(first + 2) & 0xFF];
    for (size_t i = 1; i < count; ++i) {
        const unsigned byte = byteAt(i);
        h0 = table[byte ^ h0];
        h1 = table[byte ^ h1];
        h2 = table[byte ^ h2];
    }
    return static_cast<int>(h2 << 16 | h1 << 8 | h0);
}

unsigned upperByte(ByteType byte) {
    return static_cast<ByteType>(toupper(byte));
}
} // namespace

int HashStrHash(const ByteType* bytes, unsigned count, BoolType caseSensitive) {
    if (count == 0)
        return 0;
    if (caseSensitive)
        return mix(count, [=](size_t i) -> unsigned { return bytes[i]; });
    return mix(count, [=](size_t i) { return upperByte(bytes[i]); });
}

int HashDbStrHash(const ByteType* bytes, size_t sizeBytes, BoolType caseSensitive) {
    if (sizeBytes == 0)
        return 0;
    if (caseSensitive)
        return mix(sizeBytes, [=](size_t i) -> unsigned { return bytes[i]; });
    constexpr size_t low = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? 0 : 1;
    return mix(sizeBytes, [=](size_t i) -> unsigned {
        const size_t partner = i ^ 1;
        const bool isLowByteBelow256 = i % 2 == low && (partner >= sizeBytes || bytes[partner] == 0);
        return isLowByteBelow256 ? upperByte(bytes[i]) : bytes[i];
    });
}

int HashCStrHash(const char* str) {
    return HashStrHash(reinterpret_cast<const ByteType*>(str), static_cast<unsigned>(strlen(str)), TRUE);
}

BoolType HashCStrCompare(const char* a, const char* b) {
    return HostStrCompare(a, b, strlen(a), strlen(b)) == 0;
}
