// Runs code on an explicit stack, a slice at a time.
#pragma once

#include "language/failure.h"
#include "language/filling.h"
#include "language/runtime.h"

#include <algorithm>
#include <array>
#include <optional>
#include <span>

namespace local {

// A frame's part of the stack begins with its arguments; the receiver of the message, or the block, lies below.
struct Frame {
    CodeId codeId;
    const Code* code;
    uint32_t next; // instruction
    uint32_t base;
    Oop self;
    Oop scope;
    Oop home; // scope of the method in which the block was made; nil in a method
};

// Operands, arguments and temporaries of all frames. Room for what a frame needs is made when it begins.
class OopStack {
public:
    size_t size() const { return static_cast<size_t>(top - cells.data()); }
    bool empty() const { return size() == 0; }
    Oop* at(size_t index) { return cells.data() + index; }
    const Oop* begin() const { return cells.data(); }
    const Oop* end() const { return top; }
    Oop back() const { return top[-1]; }
    void push(Oop value) {
        makeRoom(1);
        *top++ = value;
    }
    // Only to fewer.
    void cut(size_t size) { top = cells.data() + size; }
    void makeRoom(size_t count) {
        size_t used = size();
        if (used + count > cells.size()) {
            cells.resize(std::max(used + count, 2 * cells.size()));
            top = cells.data() + used;
        }
    }
    size_t memory() const { return cells.capacity() * sizeof(Oop); }

    Oop* top = nullptr;

private:
    std::vector<Oop> cells;
};

// A computation: running, waiting, or suspended by an error until it is continued.
struct Process {
    explicit Process(Store& owner) : store(owner) {}
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process() { store.discharge(charged); }
    // Counts what the stack has come to towards the store's limit.
    void charge();

    Store& store;
    size_t charged = 0;
    Oop oop = KCI_OOP_NONE; // of the object that stands for it, once it is suspended
    OopStack stack;
    std::vector<Frame> frames;
    int64_t wakeAt = 0;             // milliseconds of the monotonic clock; 0 when it does not wait
    std::vector<Filling> fillings;  // to be done before the next instruction
    std::optional<Failure> failure; // why it is suspended
    bool failureTakesResult = true; // continuing supplies the failing expression's value

    void addRoots(CodeTable& codes, const std::function<void(Oop)>& mark) const;
};

enum class Outcome : uint8_t { Finished, Suspended, Progressed, Waiting };

// What a primitive needs to know of the session.
struct SessionFacts {
    std::string user;
    SessionId id = 0;
    uint32_t sliceSteps = 0;
};

class Interpreter {
public:
    static constexpr size_t maxFrames = 10000;
    static constexpr int maxPerforms = 100;

    Interpreter(Runtime& sharedRuntime, SessionFacts& sessionFacts, Store::Session& session)
        : runtime(sharedRuntime), facts(sessionFacts), view(sharedRuntime.store, session) {}

    void startExpression(Process& process, CodeId code);
    void startSend(Process& process, Oop receiver, Oop selector, std::span<const Oop> arguments);
    // Runs at most so many instructions and takes them off. Stops early, with Progressed, when the store has something
    // to do, or a primitive has more to do.
    Outcome run(Process& process, uint32_t& steps);
    // The value of a finished process.
    static Oop resultOf(const Process& process) { return process.stack.back(); }
    // Makes a suspended process ready to run; KCI_OOP_ILLEGAL stands for no value.
    void resume(Process& process, Oop value);
    static void suspend(Process& process, Failure failure, bool takesResult);

    void addRoots(const std::function<void(Oop)>& mark) const;
    void setGlobal(Oop name, Oop value) {
        runtime.store.shade(name);
        runtime.store.shade(value);
        globals[name] = value;
    }

    // For primitives. Those that begin a call answer KCI_OOP_NONE as the primitive's result.
    Oop callBlock(Oop block, uint32_t argumentCount);
    Oop callSelector(Oop selector, std::span<const Oop> arguments);
    // The message at work is to be sent again: it is not done. False where that cannot be, and it must be done at once.
    bool repeat();
    // Puts a text into another; of a large one the rest is put before the next instruction, a piece at a time.
    void fill(Filling filling);
    static int64_t monotonicMilliseconds();
    void wait(int64_t milliseconds);
    std::optional<int32_t> lookup(Oop receiver, Oop startClass, Oop selector, bool classSide);
    bool respondsTo(Oop receiver, Oop selector);

    Runtime& runtime;
    SessionFacts& facts;
    View view;
    std::unordered_map<Oop, Oop> globals; // of the session, by name

private:
    struct CachedMethod {
        Oop key = KCI_OOP_NONE;
        Oop selector = KCI_OOP_NONE;
        int32_t code = 0;
    };

    // FALSE when there is more to put.
    bool fillMore(Process& process);
    void interpret(Process& process);
    void send(Oop selector, uint32_t argumentCount, const Code* superOf);
    void sendOnce(Oop selector, uint32_t argumentCount, const Code* superOf);
    void callCode(CodeId codeId, uint32_t argumentCount, Oop self, Oop outerScope, Oop home);
    void returnFromFrame(size_t frameIndex, Oop value);
    void returnHome(Oop value);
    Oop readGlobal(Oop name);
    Oop scopeAt(const Frame& frame, uint32_t distance) const;
    Oop copyLiteral(Oop literal);
    std::optional<int32_t> find(Oop receiver, const Code* superOf, Oop selector);

    Process* current = nullptr;
    uint32_t stepsLeft = 0;
    Oop performed = KCI_OOP_NONE; // the selector that takes the place of the message at work
    bool isPerformed = false;     // such a selector is at work
    size_t failureDepth = 0;      // what stays on the stack when the instruction at work fails
    size_t instructionDepth = 0;  // what was on the stack when it began
    uint32_t cacheEpoch = 0;
    std::array<CachedMethod, 1024> cache{};
};

} // namespace local
