// Number and its kinds.
#include "language/number.h"
#include "language/primitives.h"
#include "language/text.h"

#include <cmath>

namespace local {

namespace {

using Arguments = std::span<const Oop>;

Number needNumber(const View& view, Oop oop) {
    if (std::optional<Number> number = numberOf(view, oop)) {
        return *number;
    }
    throw Failure(ErrorNumber::BadArgument, brief(view, oop) + " is not a number", {oop});
}

[[noreturn]] void failOverflow(Oop self, Oop argument) {
    throw Failure(ErrorNumber::NotLong, "the result does not fit an integer of 64 bits", {self, argument});
}

void checkDivisor(const View& view, Oop self, Oop divisor, const Number& value) {
    if (value.asReal() == 0) {
        throw Failure(ErrorNumber::BadArgument, brief(view, self) + " cannot be divided by zero", {self, divisor});
    }
}

// Both integers, or both as reals.
template <class IntegerOperation, class RealOperation>
Oop calculate(Interpreter& interpreter, Oop self, Oop argument, IntegerOperation onIntegers, RealOperation onReals) {
    const View& view = interpreter.view;
    Number left = needNumber(view, self);
    Number right = needNumber(view, argument);
    if (left.isFloat || right.isFloat) {
        return newFloat(view, onReals(left.asReal(), right.asReal()));
    }
    int64_t result = 0;
    if (onIntegers(left.integer, right.integer, &result)) {
        failOverflow(self, argument);
    }
    return newInteger(view, result);
}

Oop add(Interpreter& interpreter, Oop self, Arguments arguments) {
    return calculate(
        interpreter, self, arguments[0],
        [](int64_t a, int64_t b, int64_t* result) { return __builtin_add_overflow(a, b, result); },
        [](double a, double b) { return a + b; });
}

Oop subtract(Interpreter& interpreter, Oop self, Arguments arguments) {
    return calculate(
        interpreter, self, arguments[0],
        [](int64_t a, int64_t b, int64_t* result) { return __builtin_sub_overflow(a, b, result); },
        [](double a, double b) { return a - b; });
}

Oop multiply(Interpreter& interpreter, Oop self, Arguments arguments) {
    return calculate(
        interpreter, self, arguments[0],
        [](int64_t a, int64_t b, int64_t* result) { return __builtin_mul_overflow(a, b, result); },
        [](double a, double b) { return a * b; });
}

// An integer when the division of integers leaves nothing, else a float.
Oop divide(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    Number left = needNumber(view, self);
    Number right = needNumber(view, arguments[0]);
    checkDivisor(view, self, arguments[0], right);
    bool isMinimum = left.integer == INT64_MIN && right.integer == -1;
    if (!left.isFloat && !right.isFloat && !isMinimum && left.integer % right.integer == 0) {
        return newInteger(view, left.integer / right.integer);
    }
    return newFloat(view, left.asReal() / right.asReal());
}

// Rounds towards negative infinity, and so does the remainder's quotient.
Oop floorDivide(Interpreter& interpreter, Oop self, Arguments arguments) {
    checkDivisor(interpreter.view, self, arguments[0], needNumber(interpreter.view, arguments[0]));
    return calculate(
        interpreter, self, arguments[0],
        [](int64_t a, int64_t b, int64_t* result) {
            if (a == INT64_MIN && b == -1) {
                return true;
            }
            *result = a / b - (a % b != 0 && (a < 0) != (b < 0) ? 1 : 0);
            return false;
        },
        [](double a, double b) { return std::floor(a / b); });
}

Oop remainder(Interpreter& interpreter, Oop self, Arguments arguments) {
    checkDivisor(interpreter.view, self, arguments[0], needNumber(interpreter.view, arguments[0]));
    return calculate(
        interpreter, self, arguments[0],
        [](int64_t a, int64_t b, int64_t* result) {
            int64_t rest = b == -1 ? 0 : a % b;
            *result = rest != 0 && (rest < 0) != (b < 0) ? rest + b : rest;
            return false;
        },
        [](double a, double b) {
            double rest = std::fmod(a, b);
            if (rest == 0) {
                return 0.0; // of either sign
            }
            return (rest < 0) != (b < 0) ? rest + b : rest;
        });
}

std::partial_ordering compare(Interpreter& interpreter, Oop self, Oop argument) {
    return local::compare(needNumber(interpreter.view, self), needNumber(interpreter.view, argument));
}

Oop less(Interpreter& interpreter, Oop self, Arguments arguments) {
    return booleanOop(std::is_lt(compare(interpreter, self, arguments[0])));
}

Oop lessOrEqual(Interpreter& interpreter, Oop self, Arguments arguments) {
    return booleanOop(std::is_lteq(compare(interpreter, self, arguments[0])));
}

Oop greater(Interpreter& interpreter, Oop self, Arguments arguments) {
    return booleanOop(std::is_gt(compare(interpreter, self, arguments[0])));
}

Oop greaterOrEqual(Interpreter& interpreter, Oop self, Arguments arguments) {
    return booleanOop(std::is_gteq(compare(interpreter, self, arguments[0])));
}

template <double (*function)(double)>
Oop realFunction(Interpreter& interpreter, Oop self, Arguments) {
    return newFloat(interpreter.view, function(needNumber(interpreter.view, self).asReal()));
}

template <double (*rounding)(double)>
Oop toInteger(Interpreter& interpreter, Oop self, Arguments) {
    Number number = needNumber(interpreter.view, self);
    if (!number.isFloat) {
        return self;
    }
    double rounded = rounding(number.real);
    if (!(rounded >= -0x1p63 && rounded < 0x1p63)) {
        failOverflow(self, self);
    }
    return newInteger(interpreter.view, static_cast<int64_t>(rounded));
}

Oop asFloat(Interpreter& interpreter, Oop self, Arguments) {
    Number number = needNumber(interpreter.view, self);
    return number.isFloat ? self : newFloat(interpreter.view, number.asReal());
}

Oop power(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    Number base = needNumber(view, self);
    Number exponent = needNumber(view, arguments[0]);
    if (base.isFloat || exponent.isFloat || exponent.integer < 0) {
        return newFloat(view, std::pow(base.asReal(), exponent.asReal()));
    }
    int64_t result = 1;
    int64_t square = base.integer;
    for (int64_t rest = exponent.integer; rest > 0; rest >>= 1) {
        if ((rest & 1) != 0 && __builtin_mul_overflow(result, square, &result)) {
            failOverflow(self, arguments[0]);
        }
        // The last square is not needed and may well be too large.
        if (rest > 1 && __builtin_mul_overflow(square, square, &square)) {
            failOverflow(self, arguments[0]);
        }
    }
    return newInteger(view, result);
}

template <class Combine>
Oop combineBits(Interpreter& interpreter, Oop self, Arguments arguments, Combine combine) {
    const View& view = interpreter.view;
    return newInteger(view, combine(needInteger(view, self), needInteger(view, arguments[0])));
}

Oop bitAnd(Interpreter& interpreter, Oop self, Arguments arguments) {
    return combineBits(interpreter, self, arguments, [](int64_t a, int64_t b) { return a & b; });
}

Oop bitOr(Interpreter& interpreter, Oop self, Arguments arguments) {
    return combineBits(interpreter, self, arguments, [](int64_t a, int64_t b) { return a | b; });
}

Oop bitXor(Interpreter& interpreter, Oop self, Arguments arguments) {
    return combineBits(interpreter, self, arguments, [](int64_t a, int64_t b) { return a ^ b; });
}

Oop print(Interpreter& interpreter, Oop self, Arguments) {
    return newString(interpreter.view, printNumber(needNumber(interpreter.view, self)));
}

Oop printRadix(Interpreter& interpreter, Oop self, Arguments arguments) {
    int64_t value = needInteger(interpreter.view, self);
    auto radix = static_cast<uint64_t>(needIntegerIn(interpreter.view, arguments[0], 2, 36));
    uint64_t magnitude = value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    std::string digits;
    do {
        digits.insert(digits.begin(), "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ"[magnitude % radix]);
        magnitude /= radix;
    } while (magnitude != 0);
    return newString(interpreter.view, (value < 0 ? "-" : "") + digits);
}

constexpr Primitive rows[] = {
    {kernel::Number, false, "+", add},
    {kernel::Number, false, "-", subtract},
    {kernel::Number, false, "*", multiply},
    {kernel::Number, false, "/", divide},
    {kernel::Number, false, "//", floorDivide},
    {kernel::Number, false, "\\\\", remainder},
    {kernel::Number, false, "<", less},
    {kernel::Number, false, "<=", lessOrEqual},
    {kernel::Number, false, ">", greater},
    {kernel::Number, false, ">=", greaterOrEqual},
    {kernel::Number, false, "raisedTo:", power},
    {kernel::Number, false, "sqrt", realFunction<std::sqrt>},
    {kernel::Number, false, "ln", realFunction<std::log>},
    {kernel::Number, false, "exp", realFunction<std::exp>},
    {kernel::Number, false, "sin", realFunction<std::sin>},
    {kernel::Number, false, "cos", realFunction<std::cos>},
    {kernel::Number, false, "floor", toInteger<std::floor>},
    {kernel::Number, false, "ceiling", toInteger<std::ceil>},
    {kernel::Number, false, "rounded", toInteger<std::round>},
    {kernel::Number, false, "truncated", toInteger<std::trunc>},
    {kernel::Number, false, "asInteger", toInteger<std::trunc>},
    {kernel::Number, false, "asFloat", asFloat},
    {kernel::Number, false, "printString", print},
    {kernel::Integer, false, "printString:", printRadix},
    {kernel::Integer, false, "bitAnd:", bitAnd},
    {kernel::Integer, false, "bitOr:", bitOr},
    {kernel::Integer, false, "bitXor:", bitXor},
};

} // namespace

std::span<const Primitive> numberPrimitives() {
    return rows;
}

} // namespace local
