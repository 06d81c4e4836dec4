// String, Symbol and DoubleByteString: elements are characters, whatever their width.
#include "language/lexer.h"
#include "language/number.h"
#include "language/primitives.h"
#include "language/text.h"

#include <algorithm>

namespace local {

namespace {

using Arguments = std::span<const Oop>;

uint32_t unitSize(const View& view, Oop self) {
    return isDoubleByte(view, self) ? 2 : 1;
}

uint32_t unitCount(const View& view, Oop self) {
    return view.size(self) / unitSize(view, self);
}

// The position of an element, from 0.
uint32_t needIndex(const View& view, Oop self, Oop index, uint32_t size) {
    std::optional<int64_t> value = integerOf(view, index);
    if (!value || *value < 1 || *value > size) {
        failSubscript(view, self, index);
    }
    return static_cast<uint32_t>(*value - 1);
}

void checkChangeable(const View& view, Oop self) {
    if (view.classOf(self) == kernel::Symbol) {
        throw Failure(ErrorNumber::BadArgument, brief(view, self) + " cannot be changed", {self});
    }
}

Oop size(Interpreter& interpreter, Oop self, Arguments) {
    return smallIntegerOop(static_cast<int32_t>(unitCount(interpreter.view, self)));
}

Oop at(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    uint32_t index = needIndex(view, self, arguments[0], unitCount(view, self));
    char16_t unit = 0;
    uint32_t width = unitSize(view, self);
    view.readBytes(self, index * width, {reinterpret_cast<ByteType*>(&unit), width});
    return characterOop(unit);
}

// The unit in the form of the text's elements.
void writeUnit(const View& view, Oop self, uint32_t index, char16_t unit) {
    uint32_t width = unitSize(view, self);
    if (width == 1 && unit > 0xFF) {
        throw Failure(ErrorNumber::BadArgument, "a String holds characters up to code 255", {self, characterOop(unit)});
    }
    view.writeBytes(self, index * width, {reinterpret_cast<const ByteType*>(&unit), width});
}

Oop atPut(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    checkChangeable(view, self);
    uint32_t index = needIndex(view, self, arguments[0], unitCount(view, self));
    writeUnit(view, self, index, needCharacter(view, arguments[1]));
    return arguments[1];
}

bool fitsBytes(const Units& units) {
    for (uint32_t i = 0; units.isWide && i < units.size(); ++i) {
        if (units[i] > 0xFF) {
            return false;
        }
    }
    return true;
}

// Puts a text, which fits, into another one from a character on; that one may become longer, and may be the same.
void putUnits(Interpreter& interpreter, Oop self, uint32_t at, Oop other) {
    const View& view = interpreter.view;
    Units units(view, other);
    uint32_t width = unitSize(view, self);
    uint32_t count = units.size();
    uint64_t end = (uint64_t{at} + count) * width;
    if (end > Store::maxBytes) {
        throw StoreFull{};
    }
    if (end > view.size(self)) {
        view.resize(self, static_cast<uint32_t>(end));
    }
    if (width == (units.isWide ? 2 : 1) && count <= Filling::piece) {
        view.copyElements(self, at * width, other, 0, count * width);
        return;
    }
    interpreter.fill({self, at, other, 0, count});
}

Oop newUnits(const View& view, bool isWide, uint64_t count) {
    const uint64_t size = isWide ? 2 * count : count;
    if (size > Store::maxBytes) {
        throw StoreFull{};
    }
    return view.create({isWide ? kernel::DoubleByteString : kernel::String, Body::Byte, true, 0},
                       static_cast<uint32_t>(size));
}

// A new text of a part of another, changed.
Oop newFrom(Interpreter& interpreter, Oop from, uint32_t first, uint32_t count, bool isWide,
            Filling::Change change = Filling::Change::None) {
    Oop text = newUnits(interpreter.view, isWide, count);
    interpreter.fill({text, 0, from, first, first + count, change});
    return text;
}

void checkText(const View& view, Oop oop) {
    if (!isText(view, oop)) {
        needText(view, oop);
    }
}

// Appends a character or a text.
Oop add(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    checkChangeable(view, self);
    Oop added = arguments[0];
    if (!isCharacter(added)) {
        checkText(view, added);
    }
    bool fits = unitSize(view, self) == 2 ||
                (isCharacter(added) ? characterValue(added) <= 0xFF : fitsBytes(Units(view, added)));
    if (!fits) {
        throw Failure(ErrorNumber::BadArgument, "a String holds characters up to code 255", {self, added});
    }
    if (isCharacter(added)) {
        writeUnit(view, self, unitCount(view, self), characterValue(added));
    } else {
        putUnits(interpreter, self, unitCount(view, self), added);
    }
    return added;
}

// A double-byte string as soon as one of both is.
Oop concatenate(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    checkText(view, arguments[0]);
    bool isWide = isDoubleByte(view, self) || isDoubleByte(view, arguments[0]);
    if (!isWide && view.classOf(self) == kernel::String) {
        return view.store().join(view.session(), self, arguments[0]);
    }
    uint32_t leftCount = unitCount(view, self);
    Oop both = newUnits(view, isWide, uint64_t{leftCount} + unitCount(view, arguments[0]));
    putUnits(interpreter, both, 0, self);
    putUnits(interpreter, both, leftCount, arguments[0]);
    return both;
}

// For texts that are built in a loop: adds at the end in place, and answers the receiver, or a double-byte string with
// all of it when a character asks for one.
Oop append(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    checkText(view, arguments[0]);
    if (!isDoubleByte(view, self) && isDoubleByte(view, arguments[0])) {
        return concatenate(interpreter, self, arguments);
    }
    add(interpreter, self, arguments);
    return self;
}

Oop newBlank(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    auto size = static_cast<uint32_t>(needIntegerIn(view, arguments[0], 0, Store::maxBytes));
    Oop text = kernel::newInstance(view, self, size);
    interpreter.fill({text, 0, text, 0, size, Filling::Change::Blank});
    return text;
}

Oop copyRange(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    int64_t first = needInteger(view, arguments[0]);
    int64_t last = needInteger(view, arguments[1]);
    uint32_t count = unitCount(view, self);
    if (first < 1 || last > count) {
        failSubscript(view, self, first < 1 ? arguments[0] : arguments[1]);
    }
    if (first > last) {
        return newUnits(view, isDoubleByte(view, self), 0);
    }
    return newFrom(interpreter, self, static_cast<uint32_t>(first - 1), static_cast<uint32_t>(last - first + 1),
                   isDoubleByte(view, self));
}

// The first position at or after a given one at which a text occurs; 0 for none. After some work it answers from where
// to look on, negated.
Oop findText(Interpreter& interpreter, Oop self, Arguments arguments) {
    constexpr uint32_t maxCompared = 1u << 20;
    const View& view = interpreter.view;
    checkText(view, arguments[0]);
    Units wanted(view, arguments[0]);
    uint32_t start = static_cast<uint32_t>(needIntegerIn(view, arguments[1], 1, Store::maxBytes + 1)) - 1;
    Units text(view, self);
    uint32_t compared = 0;
    for (uint32_t at = start; uint64_t{at} + wanted.size() <= text.size(); ++at) {
        uint32_t same = 0;
        while (same < wanted.size() && text[at + same] == wanted[same]) {
            ++same;
        }
        if (same == wanted.size()) {
            return smallIntegerOop(static_cast<int32_t>(at + 1));
        }
        compared += same + 1;
        if (compared >= maxCompared) {
            view.store().worked(compared);
            return smallIntegerOop(-static_cast<int32_t>(at + 2));
        }
    }
    view.store().worked(compared);
    return smallIntegerOop(0);
}

Oop less(Interpreter& interpreter, Oop self, Arguments arguments) {
    checkText(interpreter.view, arguments[0]);
    return booleanOop(Units(interpreter.view, self).compare(Units(interpreter.view, arguments[0])) < 0);
}

template <Filling::Change change>
Oop changeCase(Interpreter& interpreter, Oop self, Arguments) {
    const View& view = interpreter.view;
    return newFrom(interpreter, self, 0, unitCount(view, self), isDoubleByte(view, self), change);
}

Oop asSymbol(Interpreter& interpreter, Oop self, Arguments) {
    return needSymbol(interpreter.runtime, textOf(interpreter.view, self), {self});
}

Oop asString(Interpreter& interpreter, Oop self, Arguments) {
    const View& view = interpreter.view;
    return newFrom(interpreter, self, 0, unitCount(view, self), !fitsBytes(Units(view, self)));
}

Oop asDoubleByteString(Interpreter& interpreter, Oop self, Arguments) {
    return newFrom(interpreter, self, 0, unitCount(interpreter.view, self), true);
}

Oop asNumber(Interpreter& interpreter, Oop self, Arguments) {
    constexpr uint32_t longestNumber = 1u << 20;
    if (unitCount(interpreter.view, self) > longestNumber) {
        return nil;
    }
    std::optional<Number> number = readNumber(encodeText(textOf(interpreter.view, self)));
    return number ? newNumber(interpreter.view, *number) : nil;
}

// As the text would be written in source.
Oop print(Interpreter& interpreter, Oop self, Arguments) {
    const View& view = interpreter.view;
    const bool isSymbol = view.classOf(self) == kernel::Symbol;
    if (isSymbol && isSymbolWord(textOf(view, self))) {
        return newString(view, "#" + bytesOf(view, self));
    }
    const Units units(view, self);
    const uint32_t count = units.size();
    uint32_t quotes = 0;
    for (uint32_t i = 0; i < count; ++i) {
        quotes += units[i] == u'\'' ? 1 : 0;
    }
    const std::u16string_view begin = units.isWide ? u"w'" : isSymbol ? u"#'" : u"'";
    const bool isWide = !fitsBytes(units);
    const auto beginCount = static_cast<uint32_t>(begin.size());
    Oop text = newUnits(view, isWide, uint64_t{beginCount} + count + quotes + 1);
    for (uint32_t i = 0; i < beginCount; ++i) {
        writeUnit(view, text, i, begin[i]);
    }
    writeUnit(view, text, beginCount + count + quotes, u'\'');
    interpreter.fill({text, beginCount, self, 0, count, Filling::Change::Quote});
    return text;
}

constexpr Primitive rows[] = {
    {kernel::Text, false, "size", size},
    {kernel::Text, false, "at:", at},
    {kernel::Text, false, "at:put:", atPut},
    {kernel::Text, false, "add:", add},
    {kernel::Text, false, ",", concatenate},
    {kernel::Text, false, "copyFrom:to:", copyRange},
    {kernel::Text, false, "append:", append},
    {kernel::Text, false, "findText:from:", findText},
    {kernel::String, true, "new:", newBlank},
    {kernel::Text, false, "<", less},
    {kernel::Text, false, "asUppercase", changeCase<Filling::Change::Upper>},
    {kernel::Text, false, "asLowercase", changeCase<Filling::Change::Lower>},
    {kernel::Text, false, "asSymbol", asSymbol},
    {kernel::Text, false, "asString", asString},
    {kernel::Text, false, "asDoubleByteString", asDoubleByteString},
    {kernel::Text, false, "asNumber", asNumber},
    {kernel::Text, false, "printString", print},
};

} // namespace

std::span<const Primitive> textPrimitives() {
    return rows;
}

} // namespace local
