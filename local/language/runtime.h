// What all sessions share: the store, the symbols, the code and the kernel.
#pragma once

#include "language/code.h"
#include "language/kernel.h"

#include <string>
#include <string_view>
#include <unordered_map>

namespace local {

class Runtime {
public:
    Runtime(); // with a complete kernel

    Store store;
    CodeTable codes{store};
    // Grows when a method changes, or may have changed: what was looked up before is worth nothing then.
    uint32_t methodEpoch = 1;
    // Whether code has methods of its own for messages that small integers otherwise answer at once.
    bool arithmeticChanged = false;

    View systemView() { return {store, store.systemSession()}; }
    // The one symbol of these (single-byte) characters.
    Oop symbol(std::string_view name);
    // A kernel class or object by its global name; 0 when the kernel has none of this name.
    Oop kernelGlobal(Oop name) const;
    // Works at it for about so many steps. What the session's changes make known to all takes along the literals of the
    // code that it leads to.
    Store::Progress commit(Store::Session& session, bool checked, uint32_t steps);
    void abort(Store::Session& session);
    void addRoots(const Mark& mark) const;
    // The code that an object stands for, or a negative number.
    static CodeId codeOf(Oop cls, Oop firstSlot);
    void forgetSymbol(const std::string& name) { symbols.erase(name); }

    void noteMethod(Oop cls, Oop selector);

private:
    void makeClasses();
    void addPrimitives();
    void addPrelude();

    bool isComplete = false;
    std::unordered_map<std::string, Oop> symbols;
    std::unordered_map<Oop, Oop> kernelGlobals; // by name
};

// Adds a method to a class: code is a CodeId, or -1 less the index of a primitive.
void addMethod(Runtime& runtime, const View& view, Oop cls, bool classSide, Oop selector, int32_t code, Oop source);

} // namespace local
