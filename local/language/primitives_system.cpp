// System: transactions, the session, errors on demand.
#include "language/collections.h"
#include "language/number.h"
#include "language/primitives.h"
#include "language/text.h"

#include <algorithm>

namespace local {

namespace {

using Arguments = std::span<const Oop>;

template <bool checked>
Oop commit(Interpreter& interpreter, Oop, Arguments) {
    for (;;) {
        Store::Progress progress = interpreter.runtime.commit(interpreter.view.session(), checked, 10000);
        if (progress != Store::Progress::Working) {
            return booleanOop(progress == Store::Progress::Done);
        }
        if (interpreter.repeat()) {
            return KCI_OOP_NONE;
        }
    }
}

Oop abortTransaction(Interpreter& interpreter, Oop self, Arguments) {
    interpreter.runtime.abort(interpreter.view.session());
    return self;
}

Oop hasChanges(Interpreter& interpreter, Oop, Arguments) {
    return booleanOop(!interpreter.view.session().changes.empty());
}

Oop user(Interpreter& interpreter, Oop, Arguments) {
    return newText(interpreter.view, decodeText(interpreter.facts.user));
}

Oop session(Interpreter& interpreter, Oop, Arguments) {
    return smallIntegerOop(interpreter.facts.id);
}

Oop sliceSize(Interpreter& interpreter, Oop, Arguments) {
    return newInteger(interpreter.view, interpreter.facts.sliceSteps);
}

Oop setSliceSize(Interpreter& interpreter, Oop self, Arguments arguments) {
    interpreter.facts.sliceSteps = static_cast<uint32_t>(needIntegerIn(interpreter.view, arguments[0], 1, 1000000000));
    return self;
}

Oop waitMilliseconds(Interpreter& interpreter, Oop self, Arguments arguments) {
    interpreter.wait(needIntegerIn(interpreter.view, arguments[0], 0, INT32_MAX));
    return self;
}

Oop halt(Interpreter&, Oop, Arguments) {
    throw Failure(ErrorNumber::SoftBreak, "halt");
}

Oop signalError(Interpreter& interpreter, Oop, Arguments arguments) {
    const View& view = interpreter.view;
    constexpr ErrorNumber numbers[] = {
        ErrorNumber::BadSubscript,      ErrorNumber::BadMessageParts,
        ErrorNumber::DoesNotUnderstand, ErrorNumber::NotInCollection,
        ErrorNumber::BadArgument,       ErrorNumber::BadOffset,
        ErrorNumber::NotFloat,          ErrorNumber::MaxRecursion,
        ErrorNumber::NoSession,         ErrorNumber::DateTimeOutOfRange,
        ErrorNumber::NotLong,           ErrorNumber::NotCharacter,
        ErrorNumber::UnknownName,       ErrorNumber::OperationInProgress,
        ErrorNumber::OutOfMemory,       ErrorNumber::NotBoolean,
        ErrorNumber::CorruptObject,     ErrorNumber::NotSupported,
        ErrorNumber::SoftBreak,         ErrorNumber::HardBreak,
    };
    auto number = static_cast<ErrorNumber>(needIntegerIn(view, arguments[0], 0, 9999));
    if (std::find(std::begin(numbers), std::end(numbers), number) == std::end(numbers)) {
        throw Failure(ErrorNumber::BadArgument,
                      brief(view, arguments[0]) + " is not a number of the local store's errors", {arguments[0]});
    }
    const std::string text = encodeText(needText(view, arguments[1]));
    if (!kernel::isKindOf(view, arguments[2], kernel::Array) || view.size(arguments[2]) > KCI_ERR_MAX_ARGS) {
        throw Failure(ErrorNumber::BadArgument, "an error's arguments are an array of at most ten", {arguments[2]});
    }
    std::vector<Oop> values;
    for (uint32_t i = 0; i < view.size(arguments[2]); ++i) {
        values.push_back(view.slot(arguments[2], i));
    }
    throw Failure(number, text, values);
}

Oop milliseconds(Interpreter& interpreter, Oop, Arguments) {
    return newInteger(interpreter.view, Interpreter::monotonicMilliseconds());
}

Oop collectGarbage(Interpreter& interpreter, Oop self, Arguments) {
    interpreter.runtime.store.startCollection();
    return self;
}

Oop objectCount(Interpreter& interpreter, Oop, Arguments) {
    return newInteger(interpreter.view, interpreter.runtime.store.objectCount());
}

Oop memoryUsed(Interpreter& interpreter, Oop, Arguments) {
    return newInteger(interpreter.view, static_cast<int64_t>(interpreter.runtime.store.memory()));
}

Oop globalNames(Interpreter& interpreter, Oop, Arguments) {
    Oop names = kernel::newInstance(interpreter.view, kernel::Set, 0);
    for (const auto& [name, value] : interpreter.globals) {
        insertElement(interpreter.view, names, name);
    }
    return names;
}

Oop forget(Interpreter& interpreter, Oop self, Arguments arguments) {
    if (interpreter.globals.erase(arguments[0]) == 0) {
        throw Failure(ErrorNumber::NotInCollection,
                      brief(interpreter.view, arguments[0]) + " is not a global of this session", {self, arguments[0]});
    }
    return self;
}

constexpr Primitive rows[] = {
    {kernel::System, false, "commit", commit<false>},
    {kernel::System, false, "checkedCommit", commit<true>},
    {kernel::System, false, "abort", abortTransaction},
    {kernel::System, false, "hasChanges", hasChanges},
    {kernel::System, false, "user", user},
    {kernel::System, false, "session", session},
    {kernel::System, false, "sliceSize", sliceSize},
    {kernel::System, false, "sliceSize:", setSliceSize},
    {kernel::System, false, "waitMilliseconds:", waitMilliseconds},
    {kernel::System, false, "halt", halt},
    {kernel::System, false, "signal:text:arguments:", signalError},
    {kernel::System, false, "milliseconds", milliseconds},
    {kernel::System, false, "collectGarbage", collectGarbage},
    {kernel::System, false, "objectCount", objectCount},
    {kernel::System, false, "memoryUsed", memoryUsed},
    {kernel::System, false, "globalNames", globalNames},
    {kernel::System, false, "forget:", forget},
};

} // namespace

std::span<const Primitive> systemPrimitives() {
    return rows;
}

} // namespace local
