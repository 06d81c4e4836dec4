// A set of identifiers: open addressing with linear probing, at most half full.
#pragma once

#include "kcitypes.h"

#include <cstddef>

namespace remote {

class OopSet {
public:
    OopSet() = default;
    ~OopSet();
    OopSet(const OopSet&) = delete;
    OopSet& operator=(const OopSet&) = delete;

    // FALSE when there is no memory for it. KCI_OOP_NONE is in no set.
    bool insert(OopType oop);
    void remove(OopType oop);
    [[nodiscard]] bool contains(OopType oop) const;
    void clear();

private:
    [[nodiscard]] size_t home(OopType oop) const { return (oop * 2654435769U) >> shift; }
    [[nodiscard]] size_t placeOf(OopType oop) const;
    bool grow();

    OopType* slots = nullptr;
    size_t mask = 0; // number of slots less one
    unsigned shift = 32;
    size_t used = 0;
};

} // namespace remote
