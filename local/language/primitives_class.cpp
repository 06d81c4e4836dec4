// Class: instances, subclasses, methods.
#include "language/collections.h"
#include "language/compiler.h"
#include "language/lexer.h"
#include "language/primitives.h"
#include "language/text.h"

#include <algorithm>

namespace local {

namespace {

using Arguments = std::span<const Oop>;

void checkInstantiable(const View& view, Oop cls) {
    if (kernel::isSystemMade(cls)) {
        throw Failure(ErrorNumber::BadArgument, "objects of class " + className(view, cls) + " cannot be made so",
                      {cls});
    }
}

Oop newObject(Interpreter& interpreter, Oop self, Arguments) {
    checkInstantiable(interpreter.view, self);
    return kernel::newInstance(interpreter.view, self, 0);
}

Oop newSized(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    checkInstantiable(view, self);
    Shape shape = kernel::shapeOf(view, self);
    if (!shape.indexable) {
        throw Failure(ErrorNumber::BadArgument, "objects of class " + className(view, self) + " have no elements",
                      {self, arguments[0]});
    }
    bool doubleByte = kernel::inherits(view, self, kernel::DoubleByteString);
    int64_t limit = shape.body == Body::Byte ? Store::maxBytes : Store::maxElements;
    auto size = static_cast<uint32_t>(needIntegerIn(view, arguments[0], 0, doubleByte ? limit / 2 : limit));
    return view.create(shape, doubleByte ? size * 2 : size);
}

std::string needName(const View& view, Oop oop) {
    std::u16string text = needText(view, oop);
    std::string name(text.begin(), text.end());
    bool valid =
        !text.empty() && !(text[0] >= u'0' && text[0] <= u'9') && std::all_of(text.begin(), text.end(), [](char16_t c) {
            return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') || c == u'_';
        });
    if (!valid || isReservedWord(name)) {
        throw Failure(ErrorNumber::BadArgument, brief(view, oop) + " is not a name", {oop});
    }
    return name;
}

// The body: of its superclass, or indexed as the second argument says.
Oop makeSubclass(Interpreter& interpreter, Oop self, Arguments arguments, bool indexable) {
    const View& view = interpreter.view;
    Runtime& runtime = interpreter.runtime;
    using namespace kernel;
    bool fixed = isSystemMade(self) || self == Float || self == Integer || self == kernel::Number;
    Shape shape = shapeOf(view, self);
    if (fixed || (indexable && shape.body != Body::Pointer)) {
        throw Failure(ErrorNumber::BadArgument, "class " + className(view, self) + " cannot have such a subclass",
                      {self});
    }
    Oop name = runtime.symbol(needName(view, arguments[0]));
    if (runtime.kernelGlobal(name) != KCI_OOP_NONE) {
        throw Failure(ErrorNumber::BadArgument, brief(view, name) + " is the name of a kernel object", {name});
    }
    if (!kernel::isKindOf(view, arguments[1], Array)) {
        throw Failure(ErrorNumber::BadArgument, "variable names are given as an array", {arguments[1]});
    }
    uint32_t count = view.size(arguments[1]);
    std::vector<std::string> known = allVariableNames(view, self);
    Oop variables = view.create(arrayShape, count);
    for (uint32_t i = 0; i < count; ++i) {
        std::string variable = needName(view, view.slot(arguments[1], i));
        if (std::find(known.begin(), known.end(), variable) != known.end()) {
            throw Failure(ErrorNumber::BadArgument, "the variable " + variable + " exists already", {arguments[1]});
        }
        known.push_back(variable);
        view.setSlot(variables, i, runtime.symbol(variable));
    }
    if (known.size() > 1000 || (shape.body == Body::Byte && !known.empty())) {
        throw Failure(ErrorNumber::BadArgument, "a byte object has no variables, others have at most 1000",
                      {arguments[1]});
    }
    Oop cls = view.create({Class, Body::Pointer, false, class_slot::count}, 0);
    Oop previous = KCI_OOP_NONE;
    if (auto found = interpreter.globals.find(name);
        found != interpreter.globals.end() && isClass(view, found->second)) {
        previous = found->second;
    }
    // The history is shared by all versions of a class; it ends with the newest.
    Oop history = previous != KCI_OOP_NONE ? view.slot(previous, class_slot::history) : view.create(arrayShape, 0);
    view.setSlot(cls, class_slot::name, name);
    view.setSlot(cls, class_slot::superclass, self);
    view.setSlot(cls, class_slot::body, smallIntegerOop(static_cast<int32_t>(shape.body)));
    view.setSlot(cls, class_slot::variables, variables);
    view.setSlot(cls, class_slot::methods, view.create(methodDictionaryShape, 0));
    view.setSlot(cls, class_slot::classMethods, view.create(methodDictionaryShape, 0));
    view.setSlot(cls, class_slot::indexable, booleanOop(indexable || shape.indexable));
    view.setSlot(cls, class_slot::namedSize, smallIntegerOop(static_cast<int32_t>(known.size())));
    view.setSlot(cls, class_slot::history, history);
    view.insertSlot(history, view.size(history), cls); // last: who finds it there finds it whole
    interpreter.setGlobal(name, cls);
    return cls;
}

Oop subclass(Interpreter& interpreter, Oop self, Arguments arguments) {
    return makeSubclass(interpreter, self, arguments, false);
}

Oop indexedSubclass(Interpreter& interpreter, Oop self, Arguments arguments) {
    return makeSubclass(interpreter, self, arguments, true);
}

Oop defineMethod(Interpreter& interpreter, Oop self, Arguments arguments, bool classSide) {
    const View& view = interpreter.view;
    std::u16string source = needText(view, arguments[0]);
    CompiledMethod compiled;
    try {
        compiled = compileMethod(interpreter.runtime, view, self, classSide, source);
    } catch (Failure& failure) {
        failure.message += " (in a method of class " + className(view, self) + ")";
        throw;
    }
    Oop selector = interpreter.runtime.symbol(compiled.selector);
    addMethod(interpreter.runtime, view, self, classSide, selector, compiled.code, newText(view, source));
    return selector;
}

Oop method(Interpreter& interpreter, Oop self, Arguments arguments) {
    return defineMethod(interpreter, self, arguments, false);
}

Oop classMethod(Interpreter& interpreter, Oop self, Arguments arguments) {
    return defineMethod(interpreter, self, arguments, true);
}

Oop removeMethod(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    Oop selector = needSymbol(interpreter.runtime, needText(view, arguments[0]), {arguments[0]});
    Oop methods = view.slot(self, kernel::class_slot::methods);
    std::optional<uint32_t> position = findKey(view, methods, selector);
    if (!position) {
        throw Failure(ErrorNumber::NotInCollection, className(view, self) + " has no method " + brief(view, selector),
                      {self, selector});
    }
    view.removeElement(methods, *position);
    ++interpreter.runtime.methodEpoch;
    return selector;
}

template <uint32_t index>
Oop classSlot(Interpreter& interpreter, Oop self, Arguments) {
    return interpreter.view.slot(self, index);
}

// Code that changes the answer does not change the class.
template <uint32_t index>
Oop copyOfClassSlot(Interpreter& interpreter, Oop self, Arguments) {
    return copyOf(interpreter.view, interpreter.view.slot(self, index));
}

Oop inheritsFrom(Interpreter& interpreter, Oop self, Arguments arguments) {
    return booleanOop(kernel::inherits(interpreter.view, self, needClass(interpreter.view, arguments[0])));
}

// The source of a method; nil for one that is built in.
Oop sourceOf(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    std::optional<Oop> method = dictionaryAt(view, view.slot(self, kernel::class_slot::methods), arguments[0]);
    return method ? view.slot(*method, kernel::method_slot::source) : nil;
}

Oop selectors(Interpreter& interpreter, Oop self, Arguments) {
    const View& view = interpreter.view;
    Oop methods = view.slot(self, kernel::class_slot::methods);
    Oop set = kernel::newInstance(view, kernel::Set, 0);
    for (uint32_t i = 0; i < view.size(methods); ++i) {
        insertElement(view, set, view.slot(view.slot(methods, i), kernel::association_slot::key));
    }
    return set;
}

constexpr Primitive rows[] = {
    {kernel::Class, false, "new", newObject},
    {kernel::Class, false, "new:", newSized},
    {kernel::Class, false, "subclass:variables:", subclass},
    {kernel::Class, false, "indexedSubclass:variables:", indexedSubclass},
    {kernel::Class, false, "method:", method},
    {kernel::Class, false, "classMethod:", classMethod},
    {kernel::Class, false, "removeMethod:", removeMethod},
    {kernel::Class, false, "name", classSlot<kernel::class_slot::name>},
    {kernel::Class, false, "superclass", classSlot<kernel::class_slot::superclass>},
    {kernel::Class, false, "variableNames", copyOfClassSlot<kernel::class_slot::variables>},
    {kernel::Class, false, "history", copyOfClassSlot<kernel::class_slot::history>},
    {kernel::Class, false, "inheritsFrom:", inheritsFrom},
    {kernel::Class, false, "selectors", selectors},
    {kernel::Class, false, "sourceOf:", sourceOf},
};

} // namespace

std::span<const Primitive> classPrimitives() {
    return rows;
}

} // namespace local
