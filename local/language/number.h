// Numbers of the language: integers of 64 bits and double-precision floats.
#pragma once

#include "language/kernel.h"

#include <compare>
#include <optional>
#include <string>
#include <string_view>

namespace local {

struct Number {
    bool isFloat = false;
    int64_t integer = 0;
    double real = 0;

    static Number of(int64_t value) { return {false, value, 0}; }
    static Number ofReal(double value) { return {true, 0, value}; }
    double asReal() const { return isFloat ? real : static_cast<double>(integer); }
};

// The number an object stands for, or none.
std::optional<Number> numberOf(const View& view, Oop oop);
std::optional<int64_t> integerOf(const View& view, Oop oop);

// By their values: an integer is not rounded to compare it with a float.
std::partial_ordering compare(const Number& left, const Number& right);

// A small integer where it fits, else a LargeInteger: a byte object of eight bytes in the machine's order.
Oop newInteger(const View& view, int64_t value);
// A byte object of eight bytes: a double in the machine's format.
Oop newFloat(const View& view, double value);
Oop newNumber(const View& view, const Number& value);

// The shortest text that reads back as the same number.
std::string printNumber(const Number& value);
// Digits with an optional sign, radix prefix (16r1F), fraction and exponent; none when text is anything else.
std::optional<Number> readNumber(std::string_view text);

} // namespace local
