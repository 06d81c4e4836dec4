// Hash functions of strings. The message file stores their values: they never change.
#include <cctype>
#include <cstring>

#include "hash.h"
#include "utl/pearson.h"

namespace {
// The table's address is hidden from the compiler, which would otherwise fold an offset into each load and make it a
// cycle slower.
inline const uint8_t* tableAddress() {
    const uint8_t* address = pearsonPermutation;
    asm("" : "+r"(address));
    return address;
}

// Three Pearson hashes side by side: the three chains of dependent loads overlap. Bytes and states are kept in whole
// registers, so that each step costs one exclusive or and one load and nothing to cut a state to its byte.
class Mixer {
public:
    explicit Mixer(unsigned first) : h0(table[first]), h1(table[(first + 1) & 0xFF]), h2(table[(first + 2) & 0xFF]) {}
    void add(unsigned byte) {
        h0 = table[byte ^ h0];
        h1 = table[byte ^ h1];
        h2 = table[byte ^ h2];
    }
    int value() const { return static_cast<int>(h2 << 16 | h1 << 8 | h0); }

private:
    const uint8_t* table = tableAddress();
    unsigned h0;
    unsigned h1;
    unsigned h2;
};

// Apart from the exported functions: toupper is called here, so the stack is realigned, at the cost of a register.
template <typename ByteAt>
[[gnu::noinline, gnu::force_align_arg_pointer]] int mixUpper(size_t count, ByteAt byteAt) {
    Mixer mixer(byteAt(0));
    for (size_t i = 1; i < count; ++i) {
        mixer.add(byteAt(i));
    }
    return mixer.value();
}

inline int mixBytes(const ByteType* bytes, const ByteType* end) {
    Mixer mixer(*bytes);
    while (++bytes != end) {
        mixer.add(*bytes);
    }
    return mixer.value();
}

unsigned upperByte(ByteType byte) {
    return static_cast<ByteType>(toupper(byte));
}
} // namespace

int HashStrHash(const ByteType* bytes, unsigned count, BoolType caseSensitive) {
    if (count == 0) {
        return 0;
    }
    if (caseSensitive) {
        return mixBytes(bytes, bytes + count);
    }
    return mixUpper(count, [=](size_t i) { return upperByte(bytes[i]); });
}

int HashDbStrHash(const ByteType* bytes, size_t sizeBytes, BoolType caseSensitive) {
    if (sizeBytes == 0) {
        return 0;
    }
    if (caseSensitive) {
        return mixBytes(bytes, bytes + sizeBytes);
    }
    constexpr size_t low = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? 0 : 1;
    return mixUpper(sizeBytes, [=](size_t i) -> unsigned {
        const size_t partner = i ^ 1;
        const bool isLowByteBelow256 = i % 2 == low && (partner >= sizeBytes || bytes[partner] == 0);
        return isLowByteBelow256 ? upperByte(bytes[i]) : bytes[i];
    });
}

int HashCStrHash(const char* str) {
    // HashStrHash of all characters; the terminator is found on the way.
    const auto* bytes = reinterpret_cast<const ByteType*>(str);
    if (!*bytes) {
        return 0;
    }
    Mixer mixer(*bytes);
    while (const unsigned byte = *++bytes) {
        mixer.add(byte);
    }
    return mixer.value();
}

BoolType HashCStrCompare(const char* a, const char* b) {
    // Terminated strings are equal for HostStrCompare when they are for strcmp, which needs no lengths.
    return static_cast<BoolType>(strcmp(a, b) == 0);
}
