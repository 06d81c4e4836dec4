#include "language/interpreter.h"

#include "language/collections.h"
#include "language/primitives.h"
#include "language/text.h"

#include <ctime>
#include <utility>

namespace local {

namespace {

constexpr Shape scopeShape{kernel::Scope, Body::Pointer, true, 1};
constexpr Shape blockShape{kernel::Block, Body::Pointer, false, 4};

} // namespace

int64_t Interpreter::monotonicMilliseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

void Process::charge() {
    size_t bytes = sizeof(Process) + stack.memory() + frames.capacity() * sizeof(Frame);
    if (bytes > charged) {
        store.charge(bytes - charged);
    } else {
        store.discharge(charged - bytes);
    }
    charged = bytes;
}

void Process::addRoots(CodeTable& codes, const std::function<void(Oop)>& mark) const {
    mark(oop);
    for (Oop value : stack) {
        mark(value);
    }
    for (const Frame& frame : frames) {
        codes.mark(frame.codeId, mark);
        mark(frame.self);
        mark(frame.scope);
        mark(frame.home);
    }
    for (const Filling& filling : fillings) {
        mark(filling.to);
        mark(filling.from);
    }
    if (failure) {
        for (Oop argument : failure->arguments) {
            mark(argument);
        }
    }
}

void Interpreter::addRoots(const std::function<void(Oop)>& mark) const {
    for (const auto& [name, value] : globals) {
        mark(name);
        mark(value);
    }
}

void Interpreter::startExpression(Process& process, CodeId code) {
    current = &process;
    process.stack.push(nil);
    callCode(code, 0, nil, nil, nil);
}

// As an expression that sends the message to what is on its stack already.
void Interpreter::startSend(Process& process, Oop receiver, Oop selector, std::span<const Oop> arguments) {
    auto count = static_cast<uint8_t>(arguments.size());
    auto code = std::make_unique<Code>();
    code->instructions = {{Operation::Send, count, 0}, {Operation::Return, 0, 0}};
    code->literals = {selector};
    code->stackNeed = count + 2;
    startExpression(process, runtime.codes.add(std::move(code)));
    process.stack.push(receiver);
    for (Oop argument : arguments) {
        process.stack.push(argument);
    }
}

void Interpreter::suspend(Process& process, Failure failure, bool takesResult) {
    process.failure = std::move(failure);
    process.failureTakesResult = takesResult;
}

void Interpreter::resume(Process& process, Oop value) {
    process.failure.reset();
    if (process.failureTakesResult) {
        process.stack.push(value == KCI_OOP_ILLEGAL ? nil : value);
    }
}

Outcome Interpreter::run(Process& process, uint32_t& steps) {
    if (process.failure) {
        return Outcome::Suspended;
    }
    if (process.wakeAt != 0) {
        if (monotonicMilliseconds() < process.wakeAt) {
            return Outcome::Waiting;
        }
        process.wakeAt = 0;
    }
    try {
        if (!fillMore(process)) {
            steps = 0;
            return Outcome::Progressed;
        }
    } catch (...) {
        suspend(process, caughtFailure(), false); // continued, it tries again
        return Outcome::Suspended;
    }
    current = &process;
    stepsLeft = steps;
    try {
        if (!process.frames.empty()) {
            interpret(process);
        }
        steps = stepsLeft;
    } catch (...) {
        steps = stepsLeft;
        try {
            throw;
        } catch (const StoreFull& full) {
            // Begun again after a collection, when that can help and the message is still on the stack.
            if (full.storeLimit != 0 && runtime.store.isWorthCollecting() && !isPerformed &&
                performed == KCI_OOP_NONE) {
                --process.frames.back().next;
                process.stack.cut(instructionDepth);
                runtime.store.startCollection();
                return Outcome::Progressed;
            }
        } catch (...) {
        }
        suspend(process, caughtFailure(), true);
        process.stack.cut(std::min(failureDepth, process.stack.size()));
        return Outcome::Suspended;
    }
    if (process.wakeAt != 0) {
        return Outcome::Waiting;
    }
    return process.frames.empty() && process.fillings.empty() ? Outcome::Finished : Outcome::Progressed;
}

bool Interpreter::fillMore(Process& process) {
    if (!process.fillings.empty() && process.fillings.front().step(view)) {
        process.fillings.erase(process.fillings.begin());
    }
    return process.fillings.empty();
}

namespace {

// Of two small integers; none when the result is not a small one or the message fails.
std::optional<Oop> calculate(Arithmetic operation, Oop left, Oop right) {
    auto a = static_cast<int32_t>(left);
    auto b = static_cast<int32_t>(right);
    int32_t result = 0;
    switch (operation) {
    case Arithmetic::Add:
        return __builtin_add_overflow(a, b - 3, &result) ? std::nullopt : std::optional(static_cast<Oop>(result));
    case Arithmetic::Subtract:
        return __builtin_sub_overflow(a, b - 3, &result) ? std::nullopt : std::optional(static_cast<Oop>(result));
    case Arithmetic::Multiply: {
        int64_t product = int64_t{a >> 2} * (b >> 2);
        return fitsSmallInteger(product) ? std::optional(smallIntegerOop(static_cast<int32_t>(product))) : std::nullopt;
    }
    case Arithmetic::Less:
        return booleanOop(a < b);
    case Arithmetic::LessOrEqual:
        return booleanOop(a <= b);
    case Arithmetic::Greater:
        return booleanOop(a > b);
    case Arithmetic::GreaterOrEqual:
        return booleanOop(a >= b);
    case Arithmetic::Equal:
    case Arithmetic::Identical:
        return booleanOop(a == b);
    case Arithmetic::FloorDivide:
    case Arithmetic::Remainder:
        a >>= 2;
        b >>= 2;
        if (b <= 0) {
            return std::nullopt;
        }
        result = a % b + (a % b < 0 ? b : 0);
        return smallIntegerOop(operation == Arithmetic::Remainder ? result : (a - result) / b);
    }
    return std::nullopt;
}

} // namespace

// The top frame's code, instruction and operands are at hand in variables; whatever may fail, call or return finds them
// in the process.
void Interpreter::interpret(Process& process) {
    Frame* frame = nullptr;
    const Instruction* next = nullptr;
    Oop* top = nullptr;
    Oop* base = nullptr;
    auto load = [&] {
        frame = &process.frames.back();
        next = frame->code->instructions.data() + frame->next;
        top = process.stack.top;
        base = process.stack.at(frame->base);
    };
    auto save = [&] {
        frame->next = static_cast<uint32_t>(next - frame->code->instructions.data());
        process.stack.top = top;
    };
    // Before what may fail; so many operands go when it does.
    auto saveFor = [&](size_t operands) {
        save();
        instructionDepth = process.stack.size();
        failureDepth = instructionDepth - operands;
    };
    load();
    while (stepsLeft > 0) {
        --stepsLeft;
        const Instruction& instruction = *next++;
        auto index = static_cast<uint32_t>(instruction.operand);
        switch (instruction.operation) {
        case Operation::PushOop:
            *top++ = index;
            continue;
        case Operation::PushLiteral:
            *top++ = frame->code->literals[index];
            continue;
        case Operation::PushCopy:
            saveFor(0);
            *top++ = copyLiteral(frame->code->literals[index]);
            break;
        case Operation::PushSelf:
            *top++ = frame->self;
            continue;
        case Operation::PushTemporary:
            *top++ = base[index];
            continue;
        case Operation::StoreTemporary:
            base[index] = top[-1];
            continue;
        case Operation::PushScoped:
            *top++ = view.slot(scopeAt(*frame, instruction.a), index);
            continue;
        case Operation::StoreScoped:
            saveFor(1);
            view.setSlot(scopeAt(*frame, instruction.a), index, top[-1]);
            continue;
        case Operation::PushVariable:
            *top++ = view.slot(frame->self, index);
            continue;
        case Operation::StoreVariable:
            saveFor(1);
            view.setSlot(frame->self, index, top[-1]);
            continue;
        case Operation::PushGlobal:
            saveFor(0);
            *top++ = readGlobal(frame->code->literals[index]);
            continue;
        case Operation::StoreGlobal:
            saveFor(1);
            setGlobal(frame->code->literals[index], top[-1]);
            continue;
        case Operation::Pop:
            --top;
            continue;
        case Operation::Duplicate:
            *top = top[-1];
            ++top;
            continue;
        case Operation::SendArithmetic:
            if (isSmallInteger(top[-1]) && isSmallInteger(top[-2]) && !runtime.arithmeticChanged) {
                if (auto result = calculate(static_cast<Arithmetic>(instruction.a), top[-2], top[-1])) {
                    --top;
                    top[-1] = *result;
                    continue;
                }
            }
            saveFor(2);
            send(frame->code->literals[index], 1, nullptr);
            break;
        case Operation::Send:
            saveFor(instruction.a + 1);
            send(frame->code->literals[index], instruction.a, nullptr);
            break;
        case Operation::SendSuper:
            saveFor(instruction.a + 1);
            send(frame->code->literals[index], instruction.a, frame->code);
            break;
        case Operation::Jump:
            next = frame->code->instructions.data() + index;
            continue;
        case Operation::JumpTrue:
        case Operation::JumpFalse: {
            // What is no boolean suspends before the jump: the value that continues it is tested again.
            Oop condition = top[-1];
            if (!isBoolean(condition)) {
                --next;
                saveFor(1);
                needBoolean(view, condition);
            }
            --top;
            if (condition == booleanOop(instruction.operation == Operation::JumpTrue)) {
                next = frame->code->instructions.data() + index;
            }
            continue;
        }
        case Operation::MakeBlock: {
            saveFor(0);
            Oop block = view.create(blockShape, 0);
            runtime.codes.keep(instruction.operand);
            view.setSlot(block, kernel::block_slot::code, smallIntegerOop(instruction.operand));
            view.setSlot(block, kernel::block_slot::scope, frame->scope);
            view.setSlot(block, kernel::block_slot::receiver, frame->self);
            view.setSlot(block, kernel::block_slot::home, frame->code->isBlock ? frame->home : frame->scope);
            *top++ = block;
            break;
        }
        case Operation::MakeArray: {
            saveFor(index);
            Oop array = view.create(kernel::arrayShape, index);
            top -= index;
            for (uint32_t i = 0; i < index; ++i) {
                view.setSlot(array, i, top[i]);
            }
            *top++ = array;
            break;
        }
        case Operation::Return:
            save();
            returnFromFrame(process.frames.size() - 1, top[-1]);
            if (process.frames.empty()) {
                return;
            }
            load();
            continue;
        case Operation::ReturnHome:
            saveFor(1);
            returnHome(top[-1]);
            if (process.frames.empty()) {
                return;
            }
            load();
            continue;
        }
        // What may have made objects, called or changed the stack comes here.
        if (instruction.operation < Operation::Send || instruction.operation > Operation::SendArithmetic) {
            process.stack.top = top;
        } else {
            load();
        }
        if (runtime.store.stepDue() || runtime.store.isCollectionWanted()) {
            break;
        }
    }
    save();
}

Oop Interpreter::scopeAt(const Frame& frame, uint32_t distance) const {
    Oop scope = frame.scope;
    for (; distance > 0; --distance) {
        scope = view.slot(scope, 0);
    }
    return scope;
}

bool Interpreter::repeat() {
    if (performed != KCI_OOP_NONE || isPerformed) {
        return false;
    }
    --current->frames.back().next;
    stepsLeft = 0;
    return true;
}

void Interpreter::fill(Filling filling) {
    if (!current->fillings.empty() || !filling.step(view)) {
        current->fillings.push_back(filling);
        stepsLeft = 0;
    }
}

Oop Interpreter::readGlobal(Oop name) {
    if (auto found = globals.find(name); found != globals.end()) {
        return found->second;
    }
    if (Oop known = runtime.kernelGlobal(name)) {
        return known;
    }
    if (std::optional<Oop> shared = dictionaryAt(view, kernel::sharedDictionary, name)) {
        return *shared;
    }
    throw Failure(ErrorNumber::UnknownName, "the name " + bytesOf(view, name) + " is not known", {name});
}

Oop Interpreter::copyLiteral(Oop literal) {
    Description description = view.describe(literal);
    if (description.shape.cls == kernel::Symbol || description.shape.cls == kernel::Float ||
        description.shape.cls == kernel::LargeInteger) {
        return literal;
    }
    Oop copy = view.clone(literal);
    for (uint32_t i = 0; description.shape.body == Body::Pointer && i < description.size; ++i) {
        if (Oop element = view.slot(copy, i); isReference(element)) {
            view.setSlot(copy, i, copyLiteral(element));
        }
    }
    return copy;
}

// --- calls ---------------------------------------------------------------------------------------------------------

std::optional<int32_t> Interpreter::lookup(Oop receiver, Oop startClass, Oop selector, bool classSide) {
    auto search = [&](Oop cls, uint32_t methodsSlot) -> std::optional<int32_t> {
        for (; cls != nil; cls = view.slot(cls, kernel::class_slot::superclass)) {
            std::optional<Oop> method = dictionaryAt(view, view.slot(cls, methodsSlot), selector);
            if (method && view.classOf(*method) == kernel::Method) {
                return smallIntegerValue(view.slot(*method, kernel::method_slot::code));
            }
        }
        return std::nullopt;
    };
    if (classSide) {
        if (auto code = search(startClass, kernel::class_slot::classMethods)) {
            return code;
        }
        startClass = kernel::classOf(view, receiver);
    }
    return search(startClass, kernel::class_slot::methods);
}

std::optional<int32_t> Interpreter::find(Oop receiver, const Code* superOf, Oop selector) {
    Oop cls = kernel::classOf(view, receiver);
    bool classSide = cls == kernel::Class;
    if (superOf != nullptr) {
        Oop start = view.slot(superOf->owner, kernel::class_slot::superclass);
        return lookup(receiver, start, selector, superOf->isClassMethod);
    }
    Oop start = classSide ? receiver : cls;
    if (cacheEpoch != runtime.methodEpoch) {
        cache.fill({});
        cacheEpoch = runtime.methodEpoch;
    }
    // Bit 1 is clear in every class's identifier.
    Oop key = classSide ? start | 2 : start;
    CachedMethod& cached = cache[(key ^ selector >> 2 ^ selector >> 7) % cache.size()];
    if (cached.key == key && cached.selector == selector) {
        return cached.code;
    }
    std::optional<int32_t> code = lookup(receiver, start, selector, classSide);
    if (code) {
        cached = {key, selector, *code};
    }
    return code;
}

bool Interpreter::respondsTo(Oop receiver, Oop selector) {
    return find(receiver, nullptr, selector).has_value();
}

void Interpreter::send(Oop selector, uint32_t argumentCount, const Code* superOf) {
    performed = KCI_OOP_NONE;
    isPerformed = false;
    sendOnce(selector, argumentCount, superOf);
    for (int performs = 1; performed != KCI_OOP_NONE; ++performs) {
        if (performs > maxPerforms) {
            throw Failure(ErrorNumber::MaxRecursion,
                          std::to_string(maxPerforms) + " times over, a perform led to another", {performed});
        }
        Oop next = std::exchange(performed, KCI_OOP_NONE);
        isPerformed = true;
        sendOnce(next, static_cast<uint32_t>(current->stack.size() - failureDepth - 1), nullptr);
    }
    isPerformed = false;
}

// A primitive that asks for another message leaves it in performed.
void Interpreter::sendOnce(Oop selector, uint32_t argumentCount, const Code* superOf) {
    OopStack& stack = current->stack;
    size_t receiverIndex = stack.size() - argumentCount - 1;
    failureDepth = receiverIndex;
    Oop receiver = *stack.at(receiverIndex);
    std::optional<int32_t> code = find(receiver, superOf, selector);
    if (!code) {
        Oop arguments = view.create(kernel::arrayShape, argumentCount);
        for (uint32_t i = 0; i < argumentCount; ++i) {
            view.setSlot(arguments, i, *stack.at(receiverIndex + 1 + i));
        }
        throw Failure(ErrorNumber::DoesNotUnderstand,
                      brief(view, receiver) + " does not understand " + brief(view, selector),
                      {receiver, selector, arguments});
    }
    if (*code >= 0) {
        callCode(*code, argumentCount, receiver, nil, nil);
        return;
    }
    const Primitive& primitive = primitives()[static_cast<size_t>(-1 - *code)];
    Oop result = primitive.function(*this, receiver, {stack.at(receiverIndex + 1), argumentCount});
    if (result != KCI_OOP_NONE) {
        stack.cut(receiverIndex);
        stack.push(result);
    }
}

void Interpreter::callCode(CodeId codeId, uint32_t argumentCount, Oop self, Oop outerScope, Oop home) {
    const Code& code = runtime.codes.at(codeId);
    OopStack& stack = current->stack;
    if (current->frames.size() >= maxFrames) {
        throw Failure(ErrorNumber::MaxRecursion, "the stack of " + std::to_string(maxFrames) + " calls is used up", {});
    }
    Oop scope = outerScope;
    if (code.needsScope) {
        scope = view.create(scopeShape, code.scopedCount);
        view.setSlot(scope, 0, outerScope);
    }
    stack.makeRoom(code.stackNeed);
    current->frames.push_back(
        {codeId, &code, 0, static_cast<uint32_t>(stack.size() - argumentCount), self, scope, home});
    stack.top = std::fill_n(stack.top, code.temporaryCount, nil);
}

Oop Interpreter::callBlock(Oop block, uint32_t argumentCount) {
    std::array<Oop, 4> slots{};
    view.store().readSlots(view.session(), block, 0, slots);
    CodeId codeId = smallIntegerValue(slots[kernel::block_slot::code]);
    uint32_t expected = runtime.codes.at(codeId).argumentCount;
    if (expected != argumentCount) {
        throw Failure(ErrorNumber::BadMessageParts,
                      "a block of " + std::to_string(expected) + " arguments was given " +
                          std::to_string(argumentCount),
                      {block, smallIntegerOop(static_cast<int32_t>(expected)),
                       smallIntegerOop(static_cast<int32_t>(argumentCount))});
    }
    callCode(codeId, argumentCount, slots[kernel::block_slot::receiver], slots[kernel::block_slot::scope],
             slots[kernel::block_slot::home]);
    return KCI_OOP_NONE;
}

// Takes the place of the message at work: the receiver stays, its arguments are replaced.
Oop Interpreter::callSelector(Oop selector, std::span<const Oop> arguments) {
    std::vector<Oop> copies(arguments.begin(), arguments.end());
    OopStack& stack = current->stack;
    stack.cut(failureDepth + 1);
    for (Oop argument : copies) {
        stack.push(argument);
    }
    performed = selector;
    return KCI_OOP_NONE;
}

void Interpreter::returnFromFrame(size_t frameIndex, Oop value) {
    current->stack.cut(current->frames[frameIndex].base - 1); // the receiver goes, too
    current->frames.erase(current->frames.begin() + static_cast<ptrdiff_t>(frameIndex), current->frames.end());
    current->stack.push(value);
}

void Interpreter::returnHome(Oop value) {
    Oop home = current->frames.back().home;
    for (size_t i = current->frames.size(); i-- > 0;) {
        const Frame& frame = current->frames[i];
        if (!frame.code->isBlock && frame.scope == home) {
            returnFromFrame(i, value);
            return;
        }
    }
    throw Failure(ErrorNumber::BadArgument, "a block cannot return from a method that has ended", {value});
}

void Interpreter::wait(int64_t milliseconds) {
    current->wakeAt = monotonicMilliseconds() + milliseconds;
    stepsLeft = 0;
}

} // namespace local
