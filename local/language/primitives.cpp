#include "language/primitives.h"

#include "language/number.h"
#include "language/text.h"

namespace local {

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
    } catch (const StoreFull&) {
        return {ErrorNumber::OutOfMemory, "an object, or the local store, would become too large"};
    }
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

void failSubscript(const View& view, Oop collection, Oop index) {
    throw Failure(ErrorNumber::BadSubscript,
                  "the index " + brief(view, index) + " is outside " + brief(view, collection), {collection, index});
}

} // namespace local
