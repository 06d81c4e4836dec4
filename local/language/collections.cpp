#include "language/collections.h"

#include "language/number.h"
#include "language/text.h"

#include <algorithm>
#include <bit>

namespace local {

namespace {

uint32_t scramble(uint64_t value) {
    value *= 0x9E3779B97F4A7C15u;
    return static_cast<uint32_t>(value >> 32);
}

// The units of a text from a place on; long texts are told apart by their ends and their size.
uint64_t hashUnits(const Units& text, uint32_t from, uint32_t to, uint64_t hash) {
    for (uint32_t i = from; i < to; ++i) {
        hash = (hash ^ text[i]) * 0x100000001B3u;
    }
    return hash;
}

} // namespace

uint32_t hashOf(const View& view, Oop oop) {
    if (std::optional<Number> number = numberOf(view, oop)) {
        // An integral float equals the integer, so it has its hash; and -0.0 has that of 0.
        return scramble(std::bit_cast<uint64_t>(number->asReal() + 0.0));
    }
    if (isReference(oop) && view.classOf(oop) == kernel::DateTime) {
        uint64_t hash = 0;
        for (uint32_t i = 0; i < 3; ++i) {
            hash = hash * 31 + view.slot(oop, i);
        }
        return scramble(hash);
    }
    if (!isReference(oop) || view.classOf(oop) == kernel::Symbol || !isText(view, oop)) {
        return scramble(oop);
    }
    constexpr uint32_t end = 200;
    Units text(view, oop);
    uint32_t size = text.size();
    uint64_t hash = hashUnits(text, 0, std::min(size, end), 0xCBF29CE484222325u ^ size);
    return scramble(size > end ? hashUnits(text, std::max(end, size - end), size, hash) : hash);
}

bool equal(const View& view, Oop a, Oop b) {
    if (a == b) {
        return true;
    }
    std::optional<Number> left = numberOf(view, a);
    if (left) {
        std::optional<Number> right = numberOf(view, b);
        return right && std::is_eq(compare(*left, *right));
    }
    if (!isReference(a) || !isReference(b)) {
        return false;
    }
    if (view.classOf(a) == kernel::DateTime && view.classOf(b) == kernel::DateTime) {
        return view.slot(a, 0) == view.slot(b, 0) && view.slot(a, 1) == view.slot(b, 1) &&
               view.slot(a, 2) == view.slot(b, 2);
    }
    if (!isText(view, a) || !isText(view, b)) {
        return false;
    }
    if (view.classOf(a) == kernel::Symbol || view.classOf(b) == kernel::Symbol) {
        return false;
    }
    return Units(view, a).compare(Units(view, b)) == 0;
}

std::optional<uint32_t> findElement(const View& view, Oop collection, Oop element) {
    return view.findElement(collection, hashOf(view, element), [&](Oop each) { return equal(view, each, element); });
}

void insertElement(const View& view, Oop collection, Oop element) {
    view.addElement(collection, element, hashOf(view, element));
}

namespace {

std::optional<uint32_t> findKey(const View& view, Oop dictionary, Oop key, uint32_t hash) {
    return view.findElement(dictionary, hash, [&](Oop association) {
        return equal(view, view.slot(association, kernel::association_slot::key), key);
    });
}

} // namespace

std::optional<uint32_t> findKey(const View& view, Oop dictionary, Oop key) {
    return findKey(view, dictionary, key, hashOf(view, key));
}

// A position found by key: no read of the whole.
Oop associationAt(const View& view, Oop dictionary, uint32_t position) {
    return view.store().elementAt(view.session(), dictionary, position);
}

std::optional<Oop> dictionaryAt(const View& view, Oop dictionary, Oop key) {
    std::optional<uint32_t> position = findKey(view, dictionary, key);
    if (!position) {
        return std::nullopt;
    }
    return view.slot(associationAt(view, dictionary, *position), kernel::association_slot::value);
}

Oop newAssociation(const View& view, Oop key, Oop value) {
    Oop association = view.create({kernel::Association, Body::Pointer, false, 2}, 0);
    view.setSlot(association, kernel::association_slot::key, key);
    view.setSlot(association, kernel::association_slot::value, value);
    return association;
}

void dictionaryAtPut(const View& view, Oop dictionary, Oop key, Oop value) {
    uint32_t hash = hashOf(view, key);
    if (std::optional<uint32_t> position = findKey(view, dictionary, key, hash)) {
        view.setSlot(associationAt(view, dictionary, *position), kernel::association_slot::value, value);
        return;
    }
    view.addElement(dictionary, newAssociation(view, key, value), hash);
}

} // namespace local
