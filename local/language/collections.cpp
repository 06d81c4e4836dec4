#include "language/collections.h"

#include "language/number.h"
#include "language/text.h"

#include <bit>
#include <cmath>

namespace local {

namespace {

uint32_t scramble(uint64_t value) {
    value *= 0x9E3779B97F4A7C15u;
    return static_cast<uint32_t>(value >> 32);
}

Oop keyAt(const View& view, Oop collection, uint32_t position, bool isDictionary) {
    Oop element = view.slot(collection, position);
    return isDictionary ? view.slot(element, kernel::association_slot::key) : element;
}

// The first position whose hash is not below the given one. Named variables of a subclass come before the elements.
uint32_t lowerBound(const View& view, Oop collection, uint32_t hash, bool isDictionary) {
    Description description = view.describe(collection);
    uint32_t low = description.shape.named;
    uint32_t high = low + description.size;
    while (low < high) {
        uint32_t middle = low + (high - low) / 2;
        if (hashOf(view, keyAt(view, collection, middle, isDictionary)) < hash) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    return low;
}

std::optional<uint32_t> findPosition(const View& view, Oop collection, Oop key, bool isDictionary) {
    Description description = view.describe(collection);
    uint32_t hash = hashOf(view, key);
    uint32_t end = description.shape.named + description.size;
    for (uint32_t i = lowerBound(view, collection, hash, isDictionary); i < end; ++i) {
        Oop candidate = keyAt(view, collection, i, isDictionary);
        if (equal(view, candidate, key)) {
            return i;
        }
        if (hashOf(view, candidate) != hash) {
            break;
        }
    }
    return std::nullopt;
}

} // namespace

uint32_t hashOf(const View& view, Oop oop) {
    if (std::optional<Number> number = numberOf(view, oop)) {
        // An integral float equals the integer, so it has its hash.
        double real = number->asReal();
        bool integral = std::trunc(real) == real && std::fabs(real) < 9e15;
        return scramble(number->isFloat && !integral ? std::bit_cast<uint64_t>(real)
                                                     : std::bit_cast<uint64_t>(real + 0.0));
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
    uint64_t hash = 0xCBF29CE484222325u;
    for (char16_t unit : textOf(view, oop)) {
        hash = (hash ^ unit) * 0x100000001B3u;
    }
    return scramble(hash);
}

bool equal(const View& view, Oop a, Oop b) {
    if (a == b) {
        return true;
    }
    std::optional<Number> left = numberOf(view, a);
    if (left) {
        std::optional<Number> right = numberOf(view, b);
        if (!right) {
            return false;
        }
        return left->isFloat || right->isFloat ? left->asReal() == right->asReal() : left->integer == right->integer;
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
    return textOf(view, a) == textOf(view, b);
}

std::optional<uint32_t> findElement(const View& view, Oop collection, Oop element) {
    return findPosition(view, collection, element, false);
}

void insertElement(const View& view, Oop collection, Oop element) {
    view.insertSlot(collection, lowerBound(view, collection, hashOf(view, element), false), element);
}

std::optional<uint32_t> findKey(const View& view, Oop dictionary, Oop key) {
    return findPosition(view, dictionary, key, true);
}

std::optional<Oop> dictionaryAt(const View& view, Oop dictionary, Oop key) {
    std::optional<uint32_t> position = findKey(view, dictionary, key);
    if (!position) {
        return std::nullopt;
    }
    return view.slot(view.slot(dictionary, *position), kernel::association_slot::value);
}

Oop newAssociation(const View& view, Oop key, Oop value) {
    Oop association = view.create({kernel::Association, Body::Pointer, false, 2}, 0);
    view.setSlot(association, kernel::association_slot::key, key);
    view.setSlot(association, kernel::association_slot::value, value);
    return association;
}

void dictionaryAtPut(const View& view, Oop dictionary, Oop key, Oop value) {
    if (std::optional<uint32_t> position = findKey(view, dictionary, key)) {
        view.setSlot(view.slot(dictionary, *position), kernel::association_slot::value, value);
        return;
    }
    view.insertSlot(dictionary, lowerBound(view, dictionary, hashOf(view, key), true),
                    newAssociation(view, key, value));
}

} // namespace local
