#include "ksdstring.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstring>

#include "utlheap.h"

static_assert(sizeof(void*) != 4 || (offsetof(KsDString, staticSpace) == 12 && sizeof(KsDString) == 212));

namespace {
// Texts grow by short pieces, for which a call of memmove would cost more than the copy.
constexpr size_t shortPiece = 32;

template <size_t unit>
void copyEnds(char* to, const char* from, size_t count) {
    std::array<char, unit> head;
    std::array<char, unit> tail;
    memcpy(head.data(), from, unit);
    memcpy(tail.data(), from + count - unit, unit);
    memcpy(to, head.data(), unit);
    memcpy(to + count - unit, tail.data(), unit);
}

// Copies a short piece as its first and its last bytes, which may overlap; so may source and destination.
inline void copyShort(char* to, const char* from, size_t count) {
    if (count > 16)
        copyEnds<16>(to, from, count);
    else if (count >= 8)
        copyEnds<8>(to, from, count);
    else if (count >= 4)
        copyEnds<4>(to, from, count);
    else if (count >= 2)
        copyEnds<2>(to, from, count);
    else if (count == 1)
        *to = *from;
}

void reset(KsDString& ds) {
    ds.string = ds.staticSpace;
    ds.length = 0;
    ds.spaceAvl = KSDSTRING_STATIC_SIZE;
    ds.staticSpace[0] = '\0';
}

// A heap block of the given size with the old text in it; the old space is still the string's. NULL without memory.
char* copyToLarger(const KsDString& ds, unsigned long space) {
    const auto size = static_cast<unsigned>(space < UINT_MAX ? space : UINT_MAX);
    char* larger = static_cast<char*>(UtlMalloc(size, "ksdstring"));
    if (larger)
        std::copy_n(ds.string, ds.length, larger);
    return larger;
}

void replaceSpace(KsDString& ds, char* larger, unsigned long space) {
    if (ds.string != ds.staticSpace)
        UtlFree(ds.string);
    ds.string = larger;
    ds.spaceAvl = static_cast<long>(space);
}

// Everything but a short piece that fits.
[[gnu::noinline]] char* appendAny(KsDString& ds, const char* string, long length) {
    const size_t added = length < 0 ? strlen(string) : length;
    const unsigned long newLength = ds.length + added;
    if (newLength < static_cast<unsigned long>(ds.spaceAvl)) {
        memmove(ds.string + ds.length, string, added);
    } else {
        // Both terms are below half the address space: only the doubling can wrap around.
        const unsigned long space = newLength <= ULONG_MAX / 2 ? 2 * newLength : ULONG_MAX;
        char* larger = copyToLarger(ds, space);
        if (!larger)
            return nullptr;
        // The addition may be a part of the old text, so it is copied before the old space goes.
        std::copy_n(string, added, larger + ds.length);
        replaceSpace(ds, larger, space);
    }
    ds.length = static_cast<long>(newLength);
    ds.string[newLength] = '\0';
    return ds.string;
}
} // namespace

void KsDStringInit(KsDString* dsPtr) {
    reset(*dsPtr);
}

char* KsDStringAppend(KsDString* dsPtr, const char* string, long length) {
    const long space = dsPtr->spaceAvl - dsPtr->length;
    if (static_cast<unsigned long>(length) > shortPiece || length >= space)
        return appendAny(*dsPtr, string, length);
    copyShort(dsPtr->string + dsPtr->length, string, length);
    dsPtr->length += length;
    dsPtr->string[dsPtr->length] = '\0';
    return dsPtr->string;
}

void KsDStringSetLength(KsDString* dsPtr, long length) {
    if (length < 0)
        length = 0;
    if (length >= dsPtr->spaceAvl) {
        const unsigned long space = static_cast<unsigned long>(length) + 1;
        char* larger = copyToLarger(*dsPtr, space);
        if (!larger)
            return;
        replaceSpace(*dsPtr, larger, space);
    }
    dsPtr->length = length;
    dsPtr->string[length] = '\0';
}

void KsDStringFree(KsDString* dsPtr) {
    if (dsPtr->string != dsPtr->staticSpace)
        UtlFree(dsPtr->string);
    reset(*dsPtr);
}
