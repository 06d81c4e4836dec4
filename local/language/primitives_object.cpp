// Object, Block, Boolean, Character, Association.
#include "language/collections.h"
#include "language/number.h"
#include "language/primitives.h"
#include "language/text.h"

namespace local {

namespace {

using Arguments = std::span<const Oop>;

Oop identical(Interpreter&, Oop self, Arguments arguments) {
    return booleanOop(self == arguments[0]);
}

Oop isEqual(Interpreter& interpreter, Oop self, Arguments arguments) {
    return booleanOop(equal(interpreter.view, self, arguments[0]));
}

Oop hash(Interpreter& interpreter, Oop self, Arguments) {
    return smallIntegerOop(static_cast<int32_t>(hashOf(interpreter.view, self) & smallIntegerMax));
}

Oop classOfObject(Interpreter& interpreter, Oop self, Arguments) {
    return kernel::classOf(interpreter.view, self);
}

Oop isKindOfClass(Interpreter& interpreter, Oop self, Arguments arguments) {
    return booleanOop(kernel::isKindOf(interpreter.view, self, needClass(interpreter.view, arguments[0])));
}

Oop respondsTo(Interpreter& interpreter, Oop self, Arguments arguments) {
    std::u16string name = needText(interpreter.view, arguments[0]);
    return booleanOop(interpreter.respondsTo(self, needSymbol(interpreter.runtime, name, {arguments[0]})));
}

Oop identifier(Interpreter& interpreter, Oop self, Arguments) {
    return newInteger(interpreter.view, self);
}

Oop printObject(Interpreter& interpreter, Oop self, Arguments) {
    return newText(interpreter.view, decodeText(brief(interpreter.view, self)));
}

Oop copyObject(Interpreter& interpreter, Oop self, Arguments) {
    return copyOf(interpreter.view, self);
}

Oop raiseError(Interpreter& interpreter, Oop self, Arguments arguments) {
    std::u16string text = needText(interpreter.view, arguments[0]);
    throw Failure(ErrorNumber::BadArgument, encodeText(text), {self, arguments[0]});
}

// perform: with the arguments that follow, or with those of an array.
Oop performSelector(Interpreter& interpreter, Oop, Arguments arguments) {
    std::u16string name = needText(interpreter.view, arguments[0]);
    Oop selector = needSelector(interpreter.runtime, interpreter.view, name, arguments.size() - 1);
    return interpreter.callSelector(selector, arguments.subspan(1));
}

Oop performWithAll(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    std::vector<Oop> all{arguments[0]};
    if (!kernel::isKindOf(view, arguments[1], kernel::Array)) {
        throw Failure(ErrorNumber::BadArgument, brief(view, arguments[1]) + " is not an array", {arguments[1]});
    }
    uint32_t count = view.size(arguments[1]);
    if (count > 200) {
        throw Failure(ErrorNumber::BadMessageParts, "a message has at most 200 arguments", {arguments[1]});
    }
    for (uint32_t i = 0; i < count; ++i) {
        all.push_back(view.slot(arguments[1], i));
    }
    return performSelector(interpreter, self, all);
}

Oop valueOfBlock(Interpreter& interpreter, Oop self, Arguments arguments) {
    return interpreter.callBlock(self, static_cast<uint32_t>(arguments.size()));
}

Oop blockArgumentCount(Interpreter& interpreter, Oop self, Arguments) {
    CodeId code = smallIntegerValue(interpreter.view.slot(self, kernel::block_slot::code));
    return smallIntegerOop(static_cast<int32_t>(interpreter.runtime.codes.at(code).argumentCount));
}

Oop negate(Interpreter&, Oop self, Arguments) {
    return booleanOop(self == KCI_OOP_FALSE);
}

Oop both(Interpreter& interpreter, Oop self, Arguments arguments) {
    return booleanOop(self == KCI_OOP_TRUE && needBoolean(interpreter.view, arguments[0]) == KCI_OOP_TRUE);
}

Oop either(Interpreter& interpreter, Oop self, Arguments arguments) {
    return booleanOop(self == KCI_OOP_TRUE || needBoolean(interpreter.view, arguments[0]) == KCI_OOP_TRUE);
}

Oop characterCode(Interpreter&, Oop self, Arguments) {
    return smallIntegerOop(characterValue(self));
}

Oop characterFromCode(Interpreter& interpreter, Oop, Arguments arguments) {
    return characterOop(static_cast<char16_t>(needIntegerIn(interpreter.view, arguments[0], 0, 0xFFFF)));
}

Oop characterAsString(Interpreter& interpreter, Oop self, Arguments) {
    return newText(interpreter.view, std::u16string(1, characterValue(self)));
}

Oop associate(Interpreter& interpreter, Oop self, Arguments arguments) {
    return newAssociation(interpreter.view, self, arguments[0]);
}

constexpr Primitive rows[] = {
    {kernel::Object, false, "==", identical},
    {kernel::Object, false, "=", isEqual},
    {kernel::Object, false, "hash", hash},
    {kernel::Object, false, "class", classOfObject},
    {kernel::Object, false, "isKindOf:", isKindOfClass},
    {kernel::Object, false, "respondsTo:", respondsTo},
    {kernel::Object, false, "identifier", identifier},
    {kernel::Object, false, "printString", printObject},
    {kernel::Object, false, "copy", copyObject},
    {kernel::Object, false, "error:", raiseError},
    {kernel::Object, false, "perform:", performSelector},
    {kernel::Object, false, "perform:with:", performSelector},
    {kernel::Object, false, "perform:with:with:", performSelector},
    {kernel::Object, false, "perform:withAll:", performWithAll},
    {kernel::Object, false, "->", associate},
    {kernel::Block, false, "value", valueOfBlock},
    {kernel::Block, false, "value:", valueOfBlock},
    {kernel::Block, false, "value:value:", valueOfBlock},
    {kernel::Block, false, "value:value:value:", valueOfBlock},
    {kernel::Block, false, "value:value:value:value:", valueOfBlock},
    {kernel::Block, false, "argumentCount", blockArgumentCount},
    {kernel::Boolean, false, "not", negate},
    {kernel::Boolean, false, "&", both},
    {kernel::Boolean, false, "|", either},
    {kernel::Character, false, "value", characterCode},
    {kernel::Character, false, "asInteger", characterCode},
    {kernel::Character, false, "asString", characterAsString},
    {kernel::Character, true, "value:", characterFromCode},
};

} // namespace

Oop copyOf(const View& view, Oop oop) {
    if (!isReference(oop)) {
        return oop;
    }
    Description description = view.describe(oop);
    switch (description.shape.cls) {
    case kernel::Symbol:
    case kernel::Block:
    case kernel::Class:
    case kernel::Method:
    case kernel::MethodDictionary:
    case kernel::Process:
        return oop;
    default:
        break;
    }
    Oop copy = view.clone(oop);
    if (kernel::inherits(view, description.shape.cls, kernel::Dictionary)) {
        // A dictionary's associations are its own.
        for (uint32_t i = description.shape.named; i < description.shape.named + description.size; ++i) {
            view.setSlot(copy, i, view.clone(view.slot(copy, i)));
        }
    }
    return copy;
}

std::span<const Primitive> objectPrimitives() {
    return rows;
}

} // namespace local
