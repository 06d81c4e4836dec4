#include "ksdstring.h"

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "utlheap.h"

static_assert(sizeof(void*) != 4 || (offsetof(KsDString, staticSpace) == 12 && sizeof(KsDString) == 212));

namespace {
struct Words {
    uint32_t first, second;
};

template <typename Unit>
void copyEnds(char* to, const char* from, size_t count) {
    Unit head, tail;
    memcpy(&head, from, sizeof head);
    memcpy(&tail, from + count - sizeof tail, sizeof tail);
    memcpy(to, &head, sizeof head);
    memcpy(to + count - sizeof tail, &tail, sizeof tail);
}

// memmove. Texts grow by short pieces, for which the call would cost more than the copy: those go as their first and
// last bytes, which may overlap.
void copyPiece(char* to, const char* from, size_t count) {
    if (count > 2 * sizeof(Words))
        memmove(to, from, count);
    else if (count >= sizeof(Words))
        copyEnds<Words>(to, from, count);
    else if (count >= sizeof(uint32_t))
        copyEnds<uint32_t>(to, from, count);
    else if (count >= sizeof(uint16_t))
        copyEnds<uint16_t>(to, from, count);
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
        memcpy(larger, ds.string, ds.length);
    return larger;
}

void replaceSpace(KsDString& ds, char* larger, unsigned long space) {
    if (ds.string != ds.staticSpace)
        UtlFree(ds.string);
    ds.string = larger;
    ds.spaceAvl = static_cast<long>(space);
}
} // namespace

void KsDStringInit(KsDString* dsPtr) {
    reset(*dsPtr);
}

char* KsDStringAppend(KsDString* dsPtr, const char* string, long length) {
    const size_t added = length < 0 ? strlen(string) : length;
    const unsigned long newLength = dsPtr->length + added;
    if (newLength < static_cast<unsigned long>(dsPtr->spaceAvl)) [[likely]] {
        copyPiece(dsPtr->string + dsPtr->length, string, added);
    } else {
        // Both terms are below half the address space: only the doubling can wrap around.
        const unsigned long space = newLength <= ULONG_MAX / 2 ? 2 * newLength : ULONG_MAX;
        char* larger = copyToLarger(*dsPtr, space);
        if (!larger)
            return nullptr;
        // The addition may be a part of the old text, so it is copied before the old space goes.
        memcpy(larger + dsPtr->length, string, added);
        replaceSpace(*dsPtr, larger, space);
    }
    dsPtr->length = static_cast<long>(newLength);
    dsPtr->string[newLength] = '\0';
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
