// Compiled code: instructions for the stack machine of the interpreter.
#pragma once

#include "store/store.h"

#include <memory>
#include <string_view>
#include <vector>

namespace local {

// a and operand are the instruction's fields.
enum class Operation : uint8_t {
    PushOop,     // operand: the identifier
    PushLiteral, // operand: index of a literal
    PushCopy,    // operand: index of a literal that is copied, nested ones too
    PushSelf,
    PushTemporary, // operand: index in the frame, arguments first
    StoreTemporary,
    PushScoped, // a: how many scopes outwards; operand: slot of the scope
    StoreScoped,
    PushVariable, // operand: slot of the receiver
    StoreVariable,
    PushGlobal, // operand: literal index of the name
    StoreGlobal,
    Pop,
    Duplicate,
    Send,           // a: argument count; operand: literal index of the selector
    SendSuper,      // as Send, from the superclass of the method's class
    SendArithmetic, // as Send of one argument; a: which Arithmetic, done at once on small integers
    Jump,           // operand: where to
    JumpTrue,       // pops
    JumpFalse,
    MakeBlock,  // operand: its code
    MakeArray,  // operand: element count
    Return,     // from this frame
    ReturnHome, // from the method in which the block was made
};

enum class Arithmetic : uint8_t {
    Add,
    Subtract,
    Multiply,
    Less,
    LessOrEqual,
    Greater,
    GreaterOrEqual,
    Equal,
    Identical,
    FloorDivide,
    Remainder,
};
constexpr std::string_view arithmeticSelectors[] = {"+", "-", "*", "<", "<=", ">", ">=", "=", "==", "//", "\\\\"};

struct Instruction {
    Operation operation;
    uint8_t a;
    int32_t operand;
};

using CodeId = int32_t;

struct Code {
    std::vector<Instruction> instructions;
    std::vector<Oop> literals;
    std::vector<CodeId> blocks; // made by this code
    uint32_t argumentCount = 0;
    uint32_t temporaryCount = 0; // without the arguments
    uint32_t scopedCount = 0;    // variables that blocks share with this code
    uint32_t stackNeed = 0;      // beyond the arguments, at most
    bool needsScope = false;
    bool isBlock = false;
    bool isClassMethod = false;
    Oop owner = nil; // the method's class; nil for an expression

    size_t memory() const {
        return sizeof(Code) + instructions.capacity() * sizeof(Instruction) + literals.capacity() * sizeof(Oop) +
               blocks.capacity() * sizeof(CodeId);
    }
};

// All code there is. Code lives as long as a block, a method or a frame refers to it.
class CodeTable {
public:
    // Its memory counts towards the store's limit.
    explicit CodeTable(Store& owner) : store(owner) {}

    CodeId add(std::unique_ptr<Code> code);
    // Before marks are set by the collector: those of earlier rounds mean nothing from now on.
    void startMarking() { ++marking; }
    const Code& at(CodeId id) const { return *entries[static_cast<size_t>(id)].code; }
    // Marks code and what it refers to, for the collector.
    void mark(CodeId id, const Mark& markOop);
    // Code that a scanned object or nothing at all refers to so far is not to be swept.
    void keep(CodeId id) {
        if (store.isMarking()) {
            mark(id, [this](Oop oop) { store.shade(oop); });
        }
    }
    // What code refers to, the code of its blocks included.
    void visit(CodeId id, const Mark& markOop) const;
    void sweep();

private:
    struct Entry {
        std::unique_ptr<Code> code;
        uint32_t marked = 0; // in this round of marking last
    };
    Store& store;
    std::vector<Entry> entries;
    uint32_t marking = 0;
    std::vector<CodeId> freeIds;
};

inline CodeId CodeTable::add(std::unique_ptr<Code> code) {
    if (freeIds.empty()) {
        freeIds.push_back(static_cast<CodeId>(entries.size()));
        entries.emplace_back();
    }
    CodeId id = freeIds.back();
    freeIds.pop_back();
    store.charge(code->memory());
    entries[static_cast<size_t>(id)].code = std::move(code);
    keep(id);
    return id;
}

inline void CodeTable::mark(CodeId id, const Mark& markOop) {
    Entry& entry = entries[static_cast<size_t>(id)];
    if (entry.marked == marking || !entry.code) {
        return;
    }
    entry.marked = marking;
    markOop(entry.code->owner);
    for (Oop literal : entry.code->literals) {
        markOop(literal);
    }
    for (CodeId block : entry.code->blocks) {
        mark(block, markOop);
    }
}

inline void CodeTable::visit(CodeId id, const Mark& markOop) const {
    const Code& code = at(id);
    markOop(code.owner);
    for (Oop literal : code.literals) {
        markOop(literal);
    }
    for (CodeId block : code.blocks) {
        visit(block, markOop);
    }
}

inline void CodeTable::sweep() {
    for (size_t i = 0; i < entries.size(); ++i) {
        if (entries[i].code && entries[i].marked != marking) {
            freeIds.push_back(static_cast<CodeId>(i));
            store.discharge(entries[i].code->memory());
            entries[i].code.reset();
        }
    }
}

} // namespace local
