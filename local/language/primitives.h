// Methods of the kernel classes that are written in C++.
#pragma once

#include "language/interpreter.h"

namespace local {

using PrimitiveFunction = Oop (*)(Interpreter& interpreter, Oop self, std::span<const Oop> arguments);

struct Primitive {
    Oop cls;
    bool classSide;
    const char* selector;
    PrimitiveFunction function;
};

// All of them, one table; a method refers to its primitive by index.
std::span<const Primitive> primitives();

// The tables it is made of, a file each.
std::span<const Primitive> objectPrimitives();
std::span<const Primitive> classPrimitives();
std::span<const Primitive> numberPrimitives();
std::span<const Primitive> textPrimitives();
std::span<const Primitive> collectionPrimitives();
std::span<const Primitive> dateTimePrimitives();
std::span<const Primitive> systemPrimitives();

// In a catch block: what is being handled, as a Failure. What is neither a Failure nor the store's goes on.
Failure caughtFailure();
Failure failureOf(const StoreFull& full);

// A new object with the same contents; what cannot be changed is its own copy.
Oop copyOf(const View& view, Oop oop);

// Checks of arguments; each throws a Failure that names the argument.
int64_t needInteger(const View& view, Oop oop);
// A whole number from low to high, both included; also used for sizes.
int32_t needIntegerIn(const View& view, Oop oop, int64_t low, int64_t high);
std::u16string needText(const View& view, Oop oop);
Oop needClass(const View& view, Oop oop);
char16_t needCharacter(const View& view, Oop oop);
Oop needBoolean(const View& view, Oop oop);
// The symbol of these characters, of a byte each; culprit is the error's argument.
Oop needSymbol(Runtime& runtime, std::u16string_view name, std::initializer_list<Oop> culprit = {});
// The symbol of a message that takes so many arguments.
Oop needSelector(Runtime& runtime, const View& view, std::u16string_view name, size_t argumentCount);
[[noreturn]] void failSubscript(const View& view, Oop collection, Oop index);

} // namespace local
