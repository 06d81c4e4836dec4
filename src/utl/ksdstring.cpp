#include "ksdstring.h"

#include <climits>
#include <cstddef>
#include <cstring>

#include "utlheap.h"

static_assert(sizeof(void*) != 4 || (offsetof(KsDString, staticSpace) == 12 && sizeof(KsDString) == 212));

namespace {
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
    dsPtr->string = dsPtr->staticSpace;
    dsPtr->length = 0;
    dsPtr->spaceAvl = KSDSTRING_STATIC_SIZE;
    dsPtr->staticSpace[0] = '\0';
}

char* KsDStringAppend(KsDString* dsPtr, const char* string, long length) {
    const size_t added = length < 0 ? strlen(string) : length;
    const unsigned long newLength = dsPtr->length + added;
    if (newLength < static_cast<unsigned long>(dsPtr->spaceAvl)) [[likely]] {
        memmove(dsPtr->string + dsPtr->length, string, added);
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
    KsDStringInit(dsPtr);
}
