// Sets, bags and dictionaries: unordered bodies, whose elements are found by hash values.
#pragma once

#include "language/kernel.h"

#include <optional>

namespace local {

// Numbers, texts and date-times are equal by value (texts also across their classes, symbols only to themselves);
// other objects only to themselves.
bool equal(const View& view, Oop a, Oop b);
uint32_t hashOf(const View& view, Oop oop);

// An unordered collection's element that equals the given one, as its position; none when there is none.
std::optional<uint32_t> findElement(const View& view, Oop collection, Oop element);
void insertElement(const View& view, Oop collection, Oop element);

// A dictionary's elements are its Associations.
std::optional<uint32_t> findKey(const View& view, Oop dictionary, Oop key);
Oop associationAt(const View& view, Oop dictionary, uint32_t position);
std::optional<Oop> dictionaryAt(const View& view, Oop dictionary, Oop key);
Oop newAssociation(const View& view, Oop key, Oop value);
void dictionaryAtPut(const View& view, Oop dictionary, Oop key, Oop value);

} // namespace local
