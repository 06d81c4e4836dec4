#include "host/oopset.h"

#include <cstdlib>

namespace remote {

namespace {
constexpr size_t firstSize = 256;
constexpr unsigned firstShift = 32 - 8;
} // namespace

OopSet::~OopSet() {
    free(slots);
}

void OopSet::clear() {
    free(slots);
    slots = nullptr;
    mask = 0;
    shift = 32;
    used = 0;
}

// Where it is, or the free place where it would be.
size_t OopSet::placeOf(OopType oop) const {
    size_t at = home(oop);
    while (slots[at] != oop && slots[at] != KCI_OOP_NONE) {
        at = (at + 1) & mask;
    }
    return at;
}

bool OopSet::contains(OopType oop) const {
    return slots != nullptr && oop != KCI_OOP_NONE && slots[placeOf(oop)] == oop;
}

bool OopSet::grow() {
    const size_t size = slots != nullptr ? (mask + 1) * 2 : firstSize;
    auto* const larger = static_cast<OopType*>(calloc(size, sizeof(OopType)));
    if (larger == nullptr) {
        return false;
    }
    OopType* const before = slots;
    const size_t beforeSize = before != nullptr ? mask + 1 : 0;
    slots = larger;
    mask = size - 1;
    shift = before != nullptr ? shift - 1 : firstShift;
    for (size_t i = 0; i < beforeSize; ++i) {
        if (before[i] != KCI_OOP_NONE) {
            slots[placeOf(before[i])] = before[i];
        }
    }
    free(before);
    return true;
}

bool OopSet::insert(OopType oop) {
    if (oop == KCI_OOP_NONE) {
        return true;
    }
    if ((slots == nullptr || used * 2 > mask) && !grow()) {
        return false;
    }
    OopType& slot = slots[placeOf(oop)];
    used += slot == KCI_OOP_NONE ? 1 : 0;
    slot = oop;
    return true;
}

void OopSet::remove(OopType oop) {
    if (!contains(oop)) {
        return;
    }
    size_t gap = placeOf(oop);
    --used;
    // What stands behind moves up, as far as its own place allows.
    for (size_t at = (gap + 1) & mask; slots[at] != KCI_OOP_NONE; at = (at + 1) & mask) {
        if (((at - home(slots[at])) & mask) >= ((at - gap) & mask)) {
            slots[gap] = slots[at];
            gap = at;
        }
    }
    slots[gap] = KCI_OOP_NONE;
}

} // namespace remote
