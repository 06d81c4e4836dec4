#include "ksdstring.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>

#include "utlheap.h"

static_assert(sizeof(void*) != 4 || (offsetof(KsDString, staticSpace) == 12 && sizeof(KsDString) == 212));

namespace {
// Texts grow by short pieces, for which a call of memmove would cost more than the copy.
constexpr size_t shortPiece = 32;

template <typename Unit>
void copyUnit(char* to, const char* from) {
    Unit unit;
    memcpy(&unit, from, sizeof unit);
    memcpy(to, &unit, sizeof unit);
}

// Copies a short piece as units from its front and from its end, which may overlap.
inline void copyShort(char* to, const char* from, size_t count) {
    if (count >= 8) {
        if (count > 16) {
            copyUnit<uint32_t>(to, from);
            copyUnit<uint32_t>(to + 4, from + 4);
            copyUnit<uint32_t>(to + 8, from + 8);
            copyUnit<uint32_t>(to + 12, from + 12);
            copyUnit<uint32_t>(to + count - 16, from + count - 16);
            copyUnit<uint32_t>(to + count - 12, from + count - 12);
        } else {
            copyUnit<uint32_t>(to, from);
            copyUnit<uint32_t>(to + 4, from + 4);
        }
        copyUnit<uint32_t>(to + count - 8, from + count - 8);
        copyUnit<uint32_t>(to + count - 4, from + count - 4);
    } else if (count >= 4) {
        copyUnit<uint32_t>(to, from);
        copyUnit<uint32_t>(to + count - 4, from + count - 4);
    } else if (count >= 2) {
        copyUnit<uint16_t>(to, from);
        copyUnit<uint16_t>(to + count - 2, from + count - 2);
    } else if (count == 1) {
        *to = *from;
    }
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
    if (larger != nullptr) {
        std::copy_n(ds.string, ds.length, larger);
    }
    return larger;
}

void replaceSpace(KsDString& ds, char* larger, unsigned long space) {
    if (ds.string != ds.staticSpace) {
        UtlFree(ds.string);
    }
    ds.string = larger;
    ds.spaceAvl = static_cast<long>(space);
}

// Everything but a short piece that fits.
[[gnu::noinline, gnu::force_align_arg_pointer]] char* appendAny(KsDString& ds, const char* string, long length) {
    const size_t added = length < 0 ? strlen(string) : length;
    const unsigned long newLength = ds.length + added;
    if (newLength < static_cast<unsigned long>(ds.spaceAvl)) {
        memmove(ds.string + ds.length, string, added);
    } else {
        // Both terms are below half the address space: only the doubling can wrap around.
        const unsigned long space = newLength <= ULONG_MAX / 2 ? 2 * newLength : ULONG_MAX;
        char* larger = copyToLarger(ds, space);
        if (larger == nullptr) {
            return nullptr;
        }
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
    if (static_cast<unsigned long>(length) > shortPiece || length >= dsPtr->spaceAvl - dsPtr->length) {
        return appendAny(*dsPtr, string, length);
    }
    char* const end = dsPtr->string + dsPtr->length;
    dsPtr->length += length;
    copyShort(end, string, length);
    end[length] = '\0';
    return dsPtr->string;
}

void KsDStringSetLength(KsDString* dsPtr, long length) {
    if (length < 0) {
        length = 0;
    }
    if (length >= dsPtr->spaceAvl) {
        const unsigned long space = static_cast<unsigned long>(length) + 1;
        char* larger = copyToLarger(*dsPtr, space);
        if (larger == nullptr) {
            return;
        }
        replaceSpace(*dsPtr, larger, space);
    }
    dsPtr->length = length;
    dsPtr->string[length] = '\0';
}

void KsDStringFree(KsDString* dsPtr) {
    if (dsPtr->string != dsPtr->staticSpace) {
        UtlFree(dsPtr->string);
    }
    reset(*dsPtr);
}
