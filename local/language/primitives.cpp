#include "language/primitives.h"

#include "language/lexer.h"
#include "language/number.h"
#include "language/text.h"

#include <algorithm>

namespace local {

namespace {
constexpr size_t maxSymbolSize = 65535;
}

std::span<const Primitive> primitives() {
    // Never destroyed, as the client is not: nothing static with a destructor may be in a call's way at the end.
    static const std::vector<Primitive>& all = []() -> auto& {
        auto& rows = *new std::vector<Primitive>;
        for (std::span<const Primitive> table :
             {objectPrimitives(), classPrimitives(), numberPrimitives(), textPrimitives(), collectionPrimitives(),
              dateTimePrimitives(), systemPrimitives()}) {
            rows.insert(rows.end(), table.begin(), table.end());
        }
        return rows;
    }
    ();
    return all;
}

Failure caughtFailure() {
    try {
        throw;
    } catch (Failure& failure) {
        return std::move(failure);
    } catch (const NoSuchObject& missing) {
        return {ErrorNumber::BadArgument, "no object has the identifier " + std::to_string(missing.oop)};
    } catch (const StoreFull& full) {
        return failureOf(full);
    }
}

Failure failureOf(const StoreFull& full) {
    return {ErrorNumber::OutOfMemory,
            full.storeLimit != 0
                ? "the local store would hold more than " + std::to_string(full.storeLimit >> 20) + " MiB"
                : "an object would have more than " + std::to_string(Store::maxBytes >> 20) + " MiB of bytes or " +
                      std::to_string(Store::maxElements) + " references"};
}

int64_t needInteger(const View& view, Oop oop) {
    std::optional<int64_t> value = integerOf(view, oop);
    if (!value) {
        throw Failure(ErrorNumber::BadArgument, brief(view, oop) + " is not an integer", {oop});
    }
    return *value;
}

int32_t needIntegerIn(const View& view, Oop oop, int64_t low, int64_t high) {
    int64_t value = needInteger(view, oop);
    if (value < low || value > high) {
        throw Failure(ErrorNumber::BadArgument,
                      std::to_string(value) + " is not in the range " + std::to_string(low) + " to " +
                          std::to_string(high),
                      {oop});
    }
    return static_cast<int32_t>(value);
}

std::u16string needText(const View& view, Oop oop) {
    if (!isText(view, oop)) {
        throw Failure(ErrorNumber::BadArgument, brief(view, oop) + " is not a string", {oop});
    }
    return textOf(view, oop);
}

Oop needClass(const View& view, Oop oop) {
    if (!kernel::isClass(view, oop)) {
        throw Failure(ErrorNumber::BadArgument, brief(view, oop) + " is not a class", {oop});
    }
    return oop;
}

char16_t needCharacter(const View& view, Oop oop) {
    if (!isCharacter(oop)) {
        throw Failure(ErrorNumber::NotCharacter, brief(view, oop) + " is not a character", {oop});
    }
    return characterValue(oop);
}

Oop needBoolean(const View& view, Oop oop) {
    if (!isBoolean(oop)) {
        throw Failure(ErrorNumber::NotBoolean, brief(view, oop) + " is not a Boolean", {oop});
    }
    return oop;
}

Oop needSymbol(Runtime& runtime, std::u16string_view name, std::initializer_list<Oop> culprit) {
    if (name.size() > maxSymbolSize) {
        throw Failure(ErrorNumber::BadArgument, "a symbol has at most " + std::to_string(maxSymbolSize) + " characters",
                      culprit);
    }
    if (std::any_of(name.begin(), name.end(), [](char16_t c) { return c > 0xFF; })) {
        throw Failure(ErrorNumber::BadArgument, "a symbol holds single-byte characters only", culprit);
    }
    return runtime.symbol(std::string(name.begin(), name.end()));
}

Oop needSelector(Runtime& runtime, const View& view, std::u16string_view name, size_t argumentCount) {
    Oop selector = needSymbol(runtime, name);
    bool isOperator = !name.empty() && isOperatorCharacter(name[0]);
    auto expected = isOperator ? 1 : static_cast<size_t>(std::count(name.begin(), name.end(), u':'));
    if (argumentCount != expected) {
        throw Failure(ErrorNumber::BadMessageParts,
                      "the message " + brief(view, selector) + " takes " + std::to_string(expected) +
                          " arguments, not " + std::to_string(argumentCount),
                      {selector});
    }
    return selector;
}

void failSubscript(const View& view, Oop collection, Oop index) {
    throw Failure(ErrorNumber::BadSubscript,
                  "the index " + brief(view, index) + " is outside " + brief(view, collection), {collection, index});
}

} // namespace local
