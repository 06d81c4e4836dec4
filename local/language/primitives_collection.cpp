// Indexed objects, lists, sets, bags and dictionaries.
#include "language/collections.h"
#include "language/number.h"
#include "language/primitives.h"
#include "language/text.h"

namespace local {

namespace {

using Arguments = std::span<const Oop>;

// The slot of an element (byte, or pointer after the named variables).
uint32_t needSlot(const View& view, Oop self, const Description& description, Oop index, uint32_t more = 0) {
    std::optional<int64_t> value = integerOf(view, index);
    if (!value || *value < 1 || *value > int64_t{description.size} + more) {
        failSubscript(view, self, index);
    }
    return description.shape.named + static_cast<uint32_t>(*value - 1);
}

Description describeIndexed(const View& view, Oop self) {
    if (isReference(self)) {
        Description description = view.describe(self);
        if (description.shape.indexable) {
            return description;
        }
    }
    throw Failure(ErrorNumber::BadSubscript, brief(view, self) + " has no elements", {self});
}

Oop size(Interpreter& interpreter, Oop self, Arguments) {
    return smallIntegerOop(isReference(self) ? static_cast<int32_t>(interpreter.view.size(self)) : 0);
}

Oop at(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    Description description = describeIndexed(view, self);
    uint32_t slot = needSlot(view, self, description, arguments[0]);
    if (description.shape.body != Body::Byte) {
        return view.slot(self, slot);
    }
    ByteType byte = 0;
    view.readBytes(self, slot, {&byte, 1});
    return smallIntegerOop(byte);
}

Oop atPut(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    Description description = describeIndexed(view, self);
    uint32_t slot = needSlot(view, self, description, arguments[0]);
    if (kernel::isSystemMade(description.shape.cls)) {
        throw Failure(ErrorNumber::BadArgument, brief(view, self) + " cannot be changed", {self});
    }
    if (description.shape.body != Body::Byte) {
        view.setSlot(self, slot, arguments[1]);
    } else {
        auto byte = static_cast<ByteType>(needIntegerIn(view, arguments[1], 0, 255));
        view.writeBytes(self, slot, {&byte, 1});
    }
    return arguments[1];
}

Oop listAdd(Interpreter& interpreter, Oop self, Arguments arguments) {
    Description description = interpreter.view.describe(self);
    interpreter.view.insertSlot(self, description.shape.named + description.size, arguments[0]);
    return arguments[0];
}

Oop listInsert(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    view.insertSlot(self, needSlot(view, self, view.describe(self), arguments[1], 1), arguments[0]);
    return arguments[0];
}

Oop listRemoveAt(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    uint32_t slot = needSlot(view, self, view.describe(self), arguments[0]);
    Oop removed = view.slot(self, slot);
    view.removeSlot(self, slot);
    return removed;
}

Oop removeAll(Interpreter& interpreter, Oop self, Arguments) {
    const View& view = interpreter.view;
    view.resize(self, 0);
    return self;
}

// Sequences answer their elements in an array; unordered collections, too.
Oop asArray(Interpreter& interpreter, Oop self, Arguments) {
    const View& view = interpreter.view;
    Description description = view.describe(self);
    Oop array = view.create(kernel::arrayShape, description.size);
    view.copyElements(array, 0, self, description.shape.named, description.size);
    return array;
}

[[noreturn]] void failAbsent(const View& view, Oop collection, Oop element) {
    throw Failure(ErrorNumber::NotInCollection, brief(view, element) + " is not in " + brief(view, collection),
                  {collection, element});
}

Oop bagAdd(Interpreter& interpreter, Oop self, Arguments arguments) {
    insertElement(interpreter.view, self, arguments[0]);
    return arguments[0];
}

Oop setAdd(Interpreter& interpreter, Oop self, Arguments arguments) {
    if (!findElement(interpreter.view, self, arguments[0])) {
        insertElement(interpreter.view, self, arguments[0]);
    }
    return arguments[0];
}

Oop bagIncludes(Interpreter& interpreter, Oop self, Arguments arguments) {
    return booleanOop(findElement(interpreter.view, self, arguments[0]).has_value());
}

Oop bagRemove(Interpreter& interpreter, Oop self, Arguments arguments) {
    std::optional<uint32_t> position = findElement(interpreter.view, self, arguments[0]);
    if (!position) {
        failAbsent(interpreter.view, self, arguments[0]);
    }
    interpreter.view.removeElement(self, *position);
    return arguments[0];
}

Oop dictionaryGet(Interpreter& interpreter, Oop self, Arguments arguments) {
    std::optional<Oop> value = dictionaryAt(interpreter.view, self, arguments[0]);
    if (!value) {
        failAbsent(interpreter.view, self, arguments[0]);
    }
    return *value;
}

Oop dictionaryPut(Interpreter& interpreter, Oop self, Arguments arguments) {
    dictionaryAtPut(interpreter.view, self, arguments[0], arguments[1]);
    return arguments[1];
}

Oop dictionaryIncludesKey(Interpreter& interpreter, Oop self, Arguments arguments) {
    return booleanOop(findKey(interpreter.view, self, arguments[0]).has_value());
}

Oop dictionaryRemoveKey(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    std::optional<uint32_t> position = findKey(view, self, arguments[0]);
    if (!position) {
        failAbsent(view, self, arguments[0]);
    }
    Oop value = view.slot(associationAt(view, self, *position), kernel::association_slot::value);
    view.removeElement(self, *position);
    return value;
}

template <uint32_t index>
Oop getSlot(Interpreter& interpreter, Oop self, Arguments) {
    return interpreter.view.slot(self, index);
}

Oop setAssociationValue(Interpreter& interpreter, Oop self, Arguments arguments) {
    interpreter.view.setSlot(self, kernel::association_slot::value, arguments[0]);
    return arguments[0];
}

constexpr Primitive rows[] = {
    {kernel::Object, false, "size", size},
    {kernel::Object, false, "at:", at},
    {kernel::Object, false, "at:put:", atPut},
    {kernel::List, false, "add:", listAdd},
    {kernel::List, false, "insert:at:", listInsert},
    {kernel::List, false, "removeAt:", listRemoveAt},
    {kernel::List, false, "removeAll", removeAll},
    {kernel::Array, false, "asArray", asArray},
    {kernel::List, false, "asArray", asArray},
    {kernel::Bag, false, "asArray", asArray},
    {kernel::Bag, false, "add:", bagAdd},
    {kernel::Bag, false, "includes:", bagIncludes},
    {kernel::Bag, false, "remove:", bagRemove},
    {kernel::Bag, false, "removeAll", removeAll},
    {kernel::Set, false, "add:", setAdd},
    {kernel::Dictionary, false, "at:", dictionaryGet},
    {kernel::Dictionary, false, "at:put:", dictionaryPut},
    {kernel::Dictionary, false, "includesKey:", dictionaryIncludesKey},
    {kernel::Dictionary, false, "removeKey:", dictionaryRemoveKey},
    {kernel::Dictionary, false, "removeAll", removeAll},
    {kernel::Dictionary, false, "associations", asArray},
    {kernel::Association, false, "key", getSlot<kernel::association_slot::key>},
    {kernel::Association, false, "value", getSlot<kernel::association_slot::value>},
    {kernel::Association, false, "value:", setAssociationValue},
};

} // namespace

std::span<const Primitive> collectionPrimitives() {
    return rows;
}

} // namespace local
