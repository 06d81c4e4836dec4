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

// Appends a character or a text.
Oop add(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    checkChangeable(view, self);
    std::u16string units =
        isCharacter(arguments[0]) ? std::u16string(1, characterValue(arguments[0])) : needText(view, arguments[0]);
    bool fits =
        unitSize(view, self) == 2 || std::all_of(units.begin(), units.end(), [](char16_t c) { return c <= 0xFF; });
    if (!fits) {
        throw Failure(ErrorNumber::BadArgument, "a String holds characters up to code 255", {self, arguments[0]});
    }
    uint32_t end = view.size(self);
    if (unitSize(view, self) == 2) {
        view.writeBytes(self, end, {reinterpret_cast<const ByteType*>(units.data()), units.size() * 2});
    } else {
        std::string bytes(units.begin(), units.end());
        view.writeBytes(self, end, {reinterpret_cast<const ByteType*>(bytes.data()), bytes.size()});
    }
    return arguments[0];
}

// A double-byte string stays one; others become one when a character asks for it.
Oop newLike(const View& view, Oop model, std::u16string_view units) {
    return isDoubleByte(view, model) ? newDoubleByteString(view, units) : newText(view, units);
}

Oop concatenate(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    std::u16string right = needText(view, arguments[0]);
    return newLike(view, isDoubleByte(view, arguments[0]) ? arguments[0] : self, textOf(view, self) + right);
}

Oop copyRange(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    int64_t first = needInteger(view, arguments[0]);
    int64_t last = needInteger(view, arguments[1]);
    uint32_t count = unitCount(view, self);
    if (first < 1 || last > count) {
        failSubscript(view, self, first < 1 ? arguments[0] : arguments[1]);
    }
    uint32_t length = first > last ? 0 : static_cast<uint32_t>(last - first + 1);
    return newLike(view, self, textOf(view, self, static_cast<uint32_t>(first - 1), length));
}

// The first position at or after a given one at which a text occurs; 0 for none.
Oop indexOfText(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    std::u16string wanted = needText(view, arguments[0]);
    auto wantedSize = static_cast<uint32_t>(wanted.size());
    auto first = static_cast<uint32_t>(needIntegerIn(view, arguments[1], 1, Store::maxBytes + 1) - 1);
    uint32_t end = unitCount(view, self);
    // Read in pieces that grow: what is near is found without a copy of the whole text.
    for (uint32_t length = 256 + wantedSize; first + wantedSize <= end; length *= 2) {
        std::u16string piece = textOf(view, self, first, std::min(length, end - first));
        if (size_t found = piece.find(wanted); found != std::u16string::npos) {
            return smallIntegerOop(static_cast<int32_t>(first + found + 1));
        }
        first += static_cast<uint32_t>(piece.size()) - wantedSize + 1;
    }
    return smallIntegerOop(0);
}

Oop less(Interpreter& interpreter, Oop self, Arguments arguments) {
    return booleanOop(textOf(interpreter.view, self) < needText(interpreter.view, arguments[0]));
}

// Letters of the Latin-1 range; others stay as they are.
template <bool upper>
Oop changeCase(Interpreter& interpreter, Oop self, Arguments) {
    std::u16string units = textOf(interpreter.view, self);
    for (char16_t& unit : units) {
        bool lowerCase = (unit >= u'a' && unit <= u'z') || (unit >= 0xE0 && unit <= 0xFE && unit != 0xF7);
        bool upperCase = (unit >= u'A' && unit <= u'Z') || (unit >= 0xC0 && unit <= 0xDE && unit != 0xD7);
        if (upper ? lowerCase : upperCase) {
            unit ^= 0x20;
        }
    }
    return newLike(interpreter.view, self, units);
}

Oop asSymbol(Interpreter& interpreter, Oop self, Arguments) {
    return needSymbol(interpreter.runtime, textOf(interpreter.view, self), {self});
}

Oop asString(Interpreter& interpreter, Oop self, Arguments) {
    return newText(interpreter.view, textOf(interpreter.view, self));
}

Oop asDoubleByteString(Interpreter& interpreter, Oop self, Arguments) {
    return newDoubleByteString(interpreter.view, textOf(interpreter.view, self));
}

Oop asNumber(Interpreter& interpreter, Oop self, Arguments) {
    std::optional<Number> number = readNumber(encodeText(textOf(interpreter.view, self)));
    return number ? newNumber(interpreter.view, *number) : nil;
}

// As the text would be written in source.
Oop print(Interpreter& interpreter, Oop self, Arguments) {
    const View& view = interpreter.view;
    std::u16string text = textOf(view, self);
    bool isSymbol = view.classOf(self) == kernel::Symbol;
    if (isSymbol && isSymbolWord(text)) {
        return newText(view, u"#" + text);
    }
    std::u16string quoted = isSymbol ? u"#'" : isDoubleByte(view, self) ? u"w'" : u"'";
    for (char16_t unit : text) {
        quoted.append(unit == u'\'' ? 2 : 1, unit);
    }
    return newText(view, quoted + u"'");
}

constexpr Primitive rows[] = {
    {kernel::Text, false, "size", size},
    {kernel::Text, false, "at:", at},
    {kernel::Text, false, "at:put:", atPut},
    {kernel::Text, false, "add:", add},
    {kernel::Text, false, ",", concatenate},
    {kernel::Text, false, "copyFrom:to:", copyRange},
    {kernel::Text, false, "indexOfText:from:", indexOfText},
    {kernel::Text, false, "<", less},
    {kernel::Text, false, "asUppercase", changeCase<true>},
    {kernel::Text, false, "asLowercase", changeCase<false>},
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
