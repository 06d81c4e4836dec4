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
    store.discharge(charged);
    charged = sizeof(Process) + stack.capacity() * sizeof(Oop) + frames.capacity() * sizeof(Frame);
    store.charge(charged);
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
    push(nil);
    callCode(code, 0, nil, nil, nil);
}

void Interpreter::startSend(Process& process, Oop receiver, Oop selector, std::span<const Oop> arguments) {
    current = &process;
    push(receiver);
    process.stack.insert(process.stack.end(), arguments.begin(), arguments.end());
    try {
        failureDepth = 0;
        send(selector, static_cast<uint32_t>(arguments.size()), nullptr);
    } catch (...) {
        suspend(process, caughtFailure(), true);
        process.stack.clear();
    }
}

void Interpreter::suspend(Process& process, Failure failure, bool takesResult) {
    process.failure = std::move(failure);
    process.failureTakesResult = takesResult;
}

void Interpreter::resume(Process& process, Oop value) {
    process.failure.reset();
    if (process.failureTakesResult) {
        process.stack.push_back(value == KCI_OOP_ILLEGAL ? nil : value);
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
    current = &process;
    stepsLeft = std::exchange(steps, 0);
    try {
        while (stepsLeft > 0 && !process.frames.empty()) {
            --stepsLeft;
            Frame& frame = process.frames.back();
            execute(frame, frame.code->instructions[frame.next++]);
            if (runtime.store.stepDue() || runtime.store.isCollectionWanted()) {
                steps = stepsLeft;
                break;
            }
        }
    } catch (...) {
        suspend(process, caughtFailure(), true);
        process.stack.resize(failureDepth);
        return Outcome::Suspended;
    }
    if (process.wakeAt != 0) {
        return Outcome::Waiting;
    }
    return process.frames.empty() ? Outcome::Finished : Outcome::Progressed;
}

void Interpreter::execute(Frame& frame, const Instruction& instruction) {
    auto index = static_cast<uint32_t>(instruction.operand);
    failureDepth = current->stack.size();
    switch (instruction.operation) {
    case Operation::PushOop:
        push(index);
        break;
    case Operation::PushLiteral:
        push(frame.code->literals[index]);
        break;
    case Operation::PushCopy:
        push(copyLiteral(frame.code->literals[index]));
        break;
    case Operation::PushSelf:
        push(frame.self);
        break;
    case Operation::PushTemporary:
        push(current->stack[frame.base + index]);
        break;
    case Operation::StoreTemporary:
        current->stack[frame.base + index] = current->stack.back();
        break;
    case Operation::PushScoped:
        push(view.slot(scopeAt(frame, instruction.a), index));
        break;
    case Operation::StoreScoped:
        --failureDepth;
        view.setSlot(scopeAt(frame, instruction.a), index, current->stack.back());
        break;
    case Operation::PushVariable:
        push(view.slot(frame.self, index));
        break;
    case Operation::StoreVariable:
        --failureDepth;
        view.setSlot(frame.self, index, current->stack.back());
        break;
    case Operation::PushGlobal:
        push(readGlobal(frame.code->literals[index]));
        break;
    case Operation::StoreGlobal:
        setGlobal(frame.code->literals[index], current->stack.back());
        break;
    case Operation::Pop:
        current->stack.pop_back();
        break;
    case Operation::Duplicate:
        push(current->stack.back());
        break;
    case Operation::Send:
        send(frame.code->literals[index], instruction.a, nullptr);
        break;
    case Operation::SendSuper:
        send(frame.code->literals[index], instruction.a, frame.code);
        break;
    case Operation::Jump:
        frame.next = index;
        break;
    case Operation::JumpTrue:
        jumpIf(frame, instruction, KCI_OOP_TRUE);
        break;
    case Operation::JumpFalse:
        jumpIf(frame, instruction, KCI_OOP_FALSE);
        break;
    case Operation::MakeBlock: {
        Oop block = view.create(blockShape, 0);
        runtime.codes.keep(instruction.operand);
        view.setSlot(block, kernel::block_slot::code, smallIntegerOop(instruction.operand));
        view.setSlot(block, kernel::block_slot::scope, frame.scope);
        view.setSlot(block, kernel::block_slot::receiver, frame.self);
        view.setSlot(block, kernel::block_slot::home, frame.code->isBlock ? frame.home : frame.scope);
        push(block);
        break;
    }
    case Operation::MakeArray:
        makeArray(index);
        break;
    case Operation::Return:
        returnFromFrame(current->frames.size() - 1, pop());
        break;
    case Operation::ReturnHome:
        --failureDepth;
        returnHome(pop());
        break;
    }
}

// A condition that is no boolean suspends before the jump: the value that continues it is tested again.
void Interpreter::jumpIf(Frame& frame, const Instruction& instruction, Oop wanted) {
    Oop condition = current->stack.back();
    if (!isBoolean(condition)) {
        --frame.next;
        --failureDepth;
    }
    needBoolean(view, condition);
    current->stack.pop_back();
    if (condition == wanted) {
        frame.next = static_cast<uint32_t>(instruction.operand);
    }
}

Oop Interpreter::scopeAt(const Frame& frame, uint32_t distance) const {
    Oop scope = frame.scope;
    for (; distance > 0; --distance) {
        scope = view.slot(scope, 0);
    }
    return scope;
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

void Interpreter::makeArray(uint32_t count) {
    failureDepth -= count;
    Oop array = view.create(kernel::arrayShape, count);
    for (uint32_t i = 0; i < count; ++i) {
        view.setSlot(array, i, current->stack[failureDepth + i]);
    }
    current->stack.resize(failureDepth);
    push(array);
}

// --- calls ---------------------------------------------------------------------------------------------------------

std::optional<int32_t> Interpreter::lookup(Oop receiver, Oop startClass, Oop selector, bool classSide) {
    auto search = [&](Oop cls, uint32_t methodsSlot) -> std::optional<int32_t> {
        for (; cls != nil; cls = view.slot(cls, kernel::class_slot::superclass)) {
            Oop methods = view.slot(cls, methodsSlot);
            if (methods == nil) {
                continue;
            }
            std::optional<Oop> method = dictionaryAt(view, methods, selector);
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
    bool classSide = kernel::isClass(view, receiver);
    if (superOf != nullptr) {
        Oop start = view.slot(superOf->owner, kernel::class_slot::superclass);
        return lookup(receiver, start, selector, superOf->isClassMethod);
    }
    Oop start = classSide ? receiver : kernel::classOf(view, receiver);
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
    sendOnce(selector, argumentCount, superOf);
    for (int performs = 1; performed != KCI_OOP_NONE; ++performs) {
        if (performs > maxPerforms) {
            throw Failure(ErrorNumber::MaxRecursion,
                          std::to_string(maxPerforms) + " times over, a perform led to another", {performed});
        }
        Oop next = std::exchange(performed, KCI_OOP_NONE);
        sendOnce(next, static_cast<uint32_t>(current->stack.size() - failureDepth - 1), nullptr);
    }
}

// A primitive that asks for another message leaves it in performed.
void Interpreter::sendOnce(Oop selector, uint32_t argumentCount, const Code* superOf) {
    std::vector<Oop>& stack = current->stack;
    size_t receiverIndex = stack.size() - argumentCount - 1;
    failureDepth = receiverIndex;
    Oop receiver = stack[receiverIndex];
    std::optional<int32_t> code = find(receiver, superOf, selector);
    if (!code) {
        Oop arguments = view.create(kernel::arrayShape, argumentCount);
        for (uint32_t i = 0; i < argumentCount; ++i) {
            view.setSlot(arguments, i, stack[receiverIndex + 1 + i]);
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
    Oop result = primitive.function(*this, receiver, {stack.data() + receiverIndex + 1, argumentCount});
    if (result != KCI_OOP_NONE) {
        stack.resize(receiverIndex);
        stack.push_back(result);
    }
}

void Interpreter::callCode(CodeId codeId, uint32_t argumentCount, Oop self, Oop outerScope, Oop home) {
    const Code& code = runtime.codes.at(codeId);
    std::vector<Oop>& stack = current->stack;
    if (current->frames.size() >= maxFrames) {
        throw Failure(ErrorNumber::MaxRecursion, "the stack of " + std::to_string(maxFrames) + " calls is used up", {});
    }
    Oop scope = outerScope;
    if (code.needsScope) {
        scope = view.create(scopeShape, code.scopedCount);
        view.setSlot(scope, 0, outerScope);
    }
    current->frames.push_back(
        {codeId, &code, 0, static_cast<uint32_t>(stack.size() - argumentCount), self, scope, home});
    stack.resize(stack.size() + code.temporaryCount, nil);
}

Oop Interpreter::callBlock(Oop block, uint32_t argumentCount) {
    CodeId codeId = smallIntegerValue(view.slot(block, kernel::block_slot::code));
    uint32_t expected = runtime.codes.at(codeId).argumentCount;
    if (expected != argumentCount) {
        throw Failure(ErrorNumber::BadMessageParts,
                      "a block of " + std::to_string(expected) + " arguments was given " +
                          std::to_string(argumentCount),
                      {block, smallIntegerOop(static_cast<int32_t>(expected)),
                       smallIntegerOop(static_cast<int32_t>(argumentCount))});
    }
    callCode(codeId, argumentCount, view.slot(block, kernel::block_slot::receiver),
             view.slot(block, kernel::block_slot::scope), view.slot(block, kernel::block_slot::home));
    return KCI_OOP_NONE;
}

// Takes the place of the message at work: the receiver stays, its arguments are replaced.
Oop Interpreter::callSelector(Oop selector, std::span<const Oop> arguments) {
    std::vector<Oop> copies(arguments.begin(), arguments.end());
    std::vector<Oop>& stack = current->stack;
    stack.resize(failureDepth + 1);
    stack.insert(stack.end(), copies.begin(), copies.end());
    performed = selector;
    return KCI_OOP_NONE;
}

void Interpreter::returnFromFrame(size_t frameIndex, Oop value) {
    current->stack.resize(current->frames[frameIndex].base - 1); // the receiver goes, too
    current->frames.resize(frameIndex);
    push(value);
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
