// Identifiers that carry their value in themselves: how they are told apart, read and made.
#pragma once

#include "kcitypes.h"

namespace local {

using Oop = OopType;

constexpr Oop nil = KCI_OOP_NIL;
constexpr int32_t smallIntegerMin = -(1 << 29);
constexpr int32_t smallIntegerMax = (1 << 29) - 1;

// An ordinary object; whether it exists is the store's knowledge.
constexpr bool isReference(Oop oop) {
    return oop > KCI_OOP_ILLEGAL && (oop & 2) == 0;
}

constexpr bool isSmallInteger(Oop oop) {
    return (oop & 3) == 3;
}

constexpr bool isCharacter(Oop oop) {
    return (oop & 31) == 14;
}

constexpr bool isBoolean(Oop oop) {
    return oop == KCI_OOP_TRUE || oop == KCI_OOP_FALSE;
}

// A value that the encoding knows; other identifiers with bit 1 set mean nothing.
constexpr bool isImmediate(Oop oop) {
    return isSmallInteger(oop) || isCharacter(oop) || isBoolean(oop) || oop == nil;
}

constexpr int32_t smallIntegerValue(Oop oop) {
    return static_cast<int32_t>(oop) >> 2;
}

constexpr bool fitsSmallInteger(int64_t value) {
    return value >= smallIntegerMin && value <= smallIntegerMax;
}

constexpr Oop smallIntegerOop(int32_t value) {
    return static_cast<Oop>(value) << 2 | 3;
}

constexpr char16_t characterValue(Oop oop) {
    return static_cast<char16_t>(oop >> 5);
}

constexpr Oop characterOop(char16_t value) {
    return static_cast<Oop>(value) << 5 | 14;
}

constexpr Oop booleanOop(bool value) {
    return value ? KCI_OOP_TRUE : KCI_OOP_FALSE;
}

} // namespace local
