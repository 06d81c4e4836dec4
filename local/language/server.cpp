#include "language/server.h"

#include "language/compiler.h"
#include "language/primitives.h"
#include "language/text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <ctime>
#include <new>

namespace local {

namespace {

constexpr size_t maxSessions = 100;
constexpr size_t maxSuspended = 100;
constexpr uint32_t defaultSliceSteps = 20000;
constexpr uint32_t maxSliceSteps = 1000000000;
constexpr uint32_t chunkSteps = 1000;          // at most without a look at the clock
constexpr int64_t maxSliceMicroseconds = 3000; // after which a poll ends at the next look

// Outside the engine, because whoever asks for a break cannot know whether there still is one.
std::array<BreakCell, maxSessions> breakCells;

// Names and passwords: KCILOCAL_USERS holds name:password pairs separated by semicolons.
bool isKnownUser(std::string_view user, std::string_view password) {
    const char* set = std::getenv("KCILOCAL_USERS");
    std::string_view rest = set != nullptr && *set != '\0' ? set : "guest:guest";
    if (rest.find(':') == std::string_view::npos) {
        throw Failure(ErrorNumber::LoginDenied,
                      "login to the local store denied: KCILOCAL_USERS holds no pair of the form name:password");
    }
    while (!rest.empty()) {
        std::string_view entry = rest.substr(0, rest.find(';'));
        rest.remove_prefix(std::min(entry.size() + 1, rest.size()));
        size_t colon = entry.find(':');
        if (colon != std::string_view::npos && entry.substr(0, colon) == user && entry.substr(colon + 1) == password) {
            return true;
        }
    }
    return false;
}

// A number that an environment variable may set.
uint32_t numberSetting(const char* name, uint32_t low, uint32_t high, uint32_t unset) {
    const char* set = std::getenv(name);
    if (set == nullptr || *set == '\0') {
        return unset;
    }
    std::string_view text = set;
    uint32_t number = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < low || number > high) {
        throw Failure(ErrorNumber::BadArgument, std::string(name) + " is '" + std::string(text) +
                                                    "', not a number from " + std::to_string(low) + " to " +
                                                    std::to_string(high));
    }
    return number;
}

int64_t monotonicMicroseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

void sleepOneMillisecond() {
    timespec pause{0, 1000000};
    nanosleep(&pause, nullptr);
}

} // namespace

void fail(Reply& reply, ErrorNumber number, std::string_view message, std::span<const Oop> arguments, Oop context) {
    reply.failed = true;
    reply.object = KCI_OOP_ILLEGAL;
    reply.error = {};
    reply.error.category = KCI_CATEGORY_SYSTEM;
    reply.error.number = static_cast<int32_t>(number);
    reply.error.context = context;
    message = truncated(message, sizeof reply.error.message - 1);
    std::copy(message.begin(), message.end(), reply.error.message);
    for (Oop argument : arguments) {
        if (reply.error.argCount < KCI_ERR_MAX_ARGS) {
            reply.error.args[reply.error.argCount++] = argument;
        }
    }
}

Engine::Engine() : state(std::make_unique<State>()) {}
Engine::~Engine() = default;

Reply Engine::handle(const Request& request) {
    return state->handle(request);
}

void Engine::requestBreak(SessionId session, bool hard) {
    for (BreakCell& cell : breakCells) {
        cell.request(session, hard);
    }
}

Reply Engine::State::handle(const Request& request) {
    Reply reply;
    try {
        if (runtime.store.stepDue()) {
            runtime.store.collectStep(*this);
        }
        dispatch(request, reply);
        return reply;
    } catch (...) {
        try {
            Failure failure = caughtFailure();
            fail(reply, failure.number, failure.message, failure.arguments, nil);
            return reply;
        } catch (const std::bad_alloc&) {
            fail(reply, ErrorNumber::OutOfMemory, "the local store has no memory left", {}, nil);
        } catch (...) {
            fail(reply, ErrorNumber::InternalFailure, "internal error of the local store", {}, nil);
        }
    }
    dropCall(request.session);
    return reply;
}

// A call that was interrupted somewhere inside cannot go on.
void Engine::State::dropCall(SessionId session) {
    if (auto found = sessions.find(session); found != sessions.end()) {
        found->second->running.reset();
    }
}

ServerSession& Engine::State::sessionOf(const Request& request) {
    auto found = sessions.find(request.session);
    if (found == sessions.end()) {
        throw Failure(ErrorNumber::BadSessionId, "the local store has no session " + std::to_string(request.session));
    }
    return *found->second;
}

void Engine::State::dispatch(const Request& request, Reply& reply) {
    if (request.kind == RequestKind::Login) {
        login(request, reply);
        return;
    }
    ServerSession& session = sessionOf(request);
    switch (request.kind) {
    case RequestKind::Logout:
        logout(request.session);
        break;
    case RequestKind::StartSource:
    case RequestKind::StartString:
    case RequestKind::StartSend:
    case RequestKind::StartContinue:
        start(session, request);
        break;
    case RequestKind::Poll:
        poll(session, reply);
        break;
    case RequestKind::Continue:
        start(session, request);
        runToEnd(session, reply);
        break;
    case RequestKind::Commit:
        reply.integer =
            runtime.commit(session.interpreter.view.session(), false, UINT32_MAX) == Store::Progress::Done ? 1 : 0;
        break;
    case RequestKind::Abort:
        runtime.abort(session.interpreter.view.session());
        break;
    default:
        handleObjectRequest(session, request, reply);
    }
}

void Engine::State::login(const Request& request, Reply& reply) {
    if (!isKnownUser(request.text, request.secondText)) {
        throw Failure(ErrorNumber::LoginDenied,
                      "login to the local store denied: the user name or the password is wrong");
    }
    if (sessions.size() >= maxSessions) {
        throw Failure(ErrorNumber::TooManySessions,
                      "the local store has at most " + std::to_string(maxSessions) + " sessions");
    }
    SessionFacts facts{std::string(request.text), lastSession + 1,
                       numberSetting("KCILOCAL_SLICE", 1, maxSliceSteps, defaultSliceSteps)};
    runtime.store.setMemoryLimit(size_t{numberSetting("KCILOCAL_MEMORY", 16, 2048, Store::defaultMemoryLimit >> 20)}
                                 << 20);
    SessionId id = ++lastSession;
    Store::Session& opened = runtime.store.openSession(id);
    auto& freeCell = *std::find_if(breakCells.begin(), breakCells.end(), [](auto& cell) { return cell.isFree(); });
    try {
        sessions[id] = std::make_unique<ServerSession>(runtime, std::move(facts), opened, freeCell);
    } catch (...) {
        runtime.store.closeSession(id);
        sessions.erase(id);
        throw;
    }
    reply.integer = id;
}

void Engine::State::logout(SessionId session) {
    sessions.erase(session);
    runtime.store.closeSession(session);
    ++runtime.methodEpoch;
}

// --- calls ---------------------------------------------------------------------------------------------------------

void Engine::State::start(ServerSession& session, const Request& request) {
    if (session.running) {
        throw Failure(ErrorNumber::OperationInProgress, "the session's call has not ended");
    }
    session.breakCell.take(); // it was meant for an earlier call
    // What is wrong with the source, the message or the process shows at the first poll, as other errors of a call do.
    try {
        session.running = begin(session, request);
    } catch (...) {
        // Nothing began that could be continued.
        session.running = std::make_unique<Process>(runtime.store);
        Interpreter::suspend(*session.running, caughtFailure(), false);
    }
}

std::unique_ptr<Process> Engine::State::begin(ServerSession& session, const Request& request) {
    Interpreter& interpreter = session.interpreter;
    const View& view = interpreter.view;
    if (request.text.size() > Store::maxBytes) {
        throw StoreFull{};
    }
    if (request.kind == RequestKind::StartContinue || request.kind == RequestKind::Continue) {
        return takeSuspended(session, request);
    }
    auto process = std::make_unique<Process>(runtime.store);
    needValues(view, {&request.object, 1});
    needValues(view, request.objects);
    if (request.kind == RequestKind::StartSend) {
        Oop selector = needSelector(runtime, view, decodeText(request.text), request.objects.size());
        interpreter.startSend(*process, request.object, selector, request.objects);
        return process;
    }
    std::u16string source;
    if (request.kind == RequestKind::StartSource) {
        source = decodeText(request.text);
    } else {
        needText(view, request.object);
        source = isDoubleByte(view, request.object) ? textOf(view, request.object)
                                                    : decodeText(bytesOf(view, request.object));
    }
    interpreter.startExpression(*process, compileExpression(runtime, view, source));
    return process;
}

Outcome Engine::State::runSlice(ServerSession& session) {
    Process& process = *session.running;
    bool canBreak = !process.failure && (process.wakeAt != 0 || !process.frames.empty());
    if (uint32_t asked = canBreak ? session.breakCell.take() : 0; asked != 0) {
        runtime.store.dropCommit(session.interpreter.view.session());
        Interpreter::suspend(process,
                             asked == 2 ? Failure(ErrorNumber::HardBreak, "hard break")
                                        : Failure(ErrorNumber::SoftBreak, "soft break"),
                             false);
    }
    uint32_t steps = session.facts.sliceSteps;
    const int64_t end = monotonicMicroseconds() + maxSliceMicroseconds;
    Store& store = runtime.store;
    for (;;) {
        Outcome outcome = Outcome::Progressed;
        if (!store.isCollectionWanted()) {
            uint32_t chunk = std::min(steps, chunkSteps);
            steps -= chunk;
            outcome = session.interpreter.run(process, chunk);
            steps += chunk;
            process.charge();
        }
        if (store.isFull() && !store.isCollectionWanted()) {
            if (store.isWorthCollecting()) {
                store.startCollection();
            } else if (outcome == Outcome::Progressed) {
                Interpreter::suspend(process, failureOf(StoreFull{.storeLimit = store.limit()}), false);
                return Outcome::Suspended;
            }
        }
        if (store.isCollectionWanted() || store.stepDue()) {
            store.collectStep(*this);
        }
        if (!store.isCollectionWanted() && outcome != Outcome::Progressed) {
            return outcome;
        }
        if (steps == 0 || monotonicMicroseconds() >= end) {
            return Outcome::Progressed;
        }
    }
}

void Engine::State::poll(ServerSession& session, Reply& reply) {
    if (!session.running) {
        throw Failure(ErrorNumber::OperationInProgress, "no call of the session is in progress");
    }
    Outcome outcome = runSlice(session);
    if (outcome == Outcome::Progressed || outcome == Outcome::Waiting) {
        reply.progress = outcome == Outcome::Waiting ? KCI_RESULT_NOT_READY : KCI_RESULT_PROGRESSED;
        return;
    }
    finish(session, outcome, reply);
}

std::unique_ptr<Process> Engine::State::takeSuspended(ServerSession& session, const Request& request) {
    Oop value = request.secondObject;
    if (value != KCI_OOP_ILLEGAL) {
        needValues(session.interpreter.view, {&value, 1});
    }
    auto found = session.suspended.find(request.object);
    if (found == session.suspended.end()) {
        throw Failure(ErrorNumber::BadArgument, "the object is no suspended process", {request.object});
    }
    std::unique_ptr<Process> process = std::move(found->second);
    forgetProcess(session, request.object);
    session.interpreter.resume(*process, value);
    return process;
}

void Engine::State::runToEnd(ServerSession& session, Reply& reply) {
    Outcome outcome = Outcome::Progressed;
    while (outcome == Outcome::Progressed || outcome == Outcome::Waiting) {
        outcome = runSlice(session);
        if (outcome == Outcome::Waiting) {
            sleepOneMillisecond();
        }
    }
    finish(session, outcome, reply);
}

// Ends the running call, whatever happens here: its result is exported, or its error reported and its process kept.
void Engine::State::finish(ServerSession& session, Outcome outcome, Reply& reply) {
    Store::Session& viewer = session.interpreter.view.session();
    std::unique_ptr<Process> process = std::move(session.running);
    if (outcome == Outcome::Finished) {
        reply.object = Interpreter::resultOf(*process);
        if (isReference(reply.object)) {
            runtime.store.exportObject(viewer, reply.object);
        }
        if (process->oop != KCI_OOP_NONE) {
            runtime.store.release(viewer, process->oop);
        }
        return;
    }
    Failure failure = *process->failure;
    // A call that never began cannot be continued.
    bool began = process->failureTakesResult || !process->stack.empty();
    Oop context = nil;
    if (began) {
        try {
            context = keepSuspended(session, std::move(process));
        } catch (const StoreFull&) {
            context = nil;
        }
    }
    fail(reply, failure.number, failure.message, failure.arguments, context);
}

Oop Engine::State::keepSuspended(ServerSession& session, std::unique_ptr<Process> process) {
    const View& view = session.interpreter.view;
    process->frames.shrink_to_fit();
    process->charge();
    // The next calls need room, too.
    while (runtime.store.isNearlyFull() && !session.suspended.empty()) {
        dropOldestProcess(session);
    }
    if (runtime.store.isFull()) {
        throw StoreFull{.storeLimit = runtime.store.limit()};
    }
    Store::ForError room(runtime.store);
    if (process->oop == KCI_OOP_NONE) {
        process->oop = kernel::newInstance(view, kernel::Process, 0);
    }
    const Failure& failure = *process->failure;
    Oop arguments =
        view.create({kernel::Array, Body::Pointer, true, 0}, static_cast<uint32_t>(failure.arguments.size()));
    for (uint32_t i = 0; i < failure.arguments.size(); ++i) {
        view.setSlot(arguments, i, failure.arguments[i]);
    }
    Oop oop = process->oop;
    view.setSlot(oop, 0, smallIntegerOop(static_cast<int32_t>(failure.number)));
    view.setSlot(oop, 1, newText(view, decodeText(failure.message)));
    view.setSlot(oop, 2, arguments);
    runtime.store.exportObject(view.session(), oop);
    view.session().changed.erase(oop);
    if (runtime.store.isMarking()) {
        process->addRoots(runtime.codes, [this](Oop each) { runtime.store.shade(each); });
    }
    session.suspended[oop] = std::move(process);
    session.suspendedInOrder.push_back(oop);
    if (session.suspendedInOrder.size() > maxSuspended) {
        dropOldestProcess(session);
    }
    return oop;
}

void Engine::State::dropOldestProcess(ServerSession& session) {
    Oop oldest = session.suspendedInOrder.front();
    forgetProcess(session, oldest);
    runtime.store.release(session.interpreter.view.session(), oldest);
}

void Engine::State::forgetProcess(ServerSession& session, Oop process) {
    session.suspended.erase(process);
    std::erase(session.suspendedInOrder, process);
}

// --- collection ----------------------------------------------------------------------------------------------------

void Engine::State::startMarking() {
    runtime.codes.startMarking();
    runtime.addRoots([this](Oop oop) { runtime.store.shade(oop); });
    for (const auto& [id, session] : sessions) {
        session->interpreter.addRoots([this](Oop oop) { runtime.store.shade(oop); });
    }
}

void Engine::State::addRoots(const Mark& mark) {
    for (const auto& [id, session] : sessions) {
        if (session->running) {
            session->running->addRoots(runtime.codes, mark);
        }
    }
}

void Engine::State::visit(Oop oop, Oop cls, Oop firstSlot, const Mark& mark) {
    if (cls == kernel::Process) {
        // A suspended process lives as long as the object that stands for it.
        for (const auto& [id, session] : sessions) {
            if (auto found = session->suspended.find(oop); found != session->suspended.end()) {
                found->second->addRoots(runtime.codes, mark);
            }
        }
    } else if (CodeId code = Runtime::codeOf(cls, firstSlot); code >= 0) {
        runtime.codes.mark(code, mark);
    }
}

void Engine::State::freeing(Oop oop, Oop cls, std::span<const ByteType> bytes) {
    switch (cls) {
    case kernel::Symbol:
        runtime.forgetSymbol(std::string(bytes.begin(), bytes.end()));
        [[fallthrough]];
    case kernel::Class:
        // The identifier may be given out again, and methods were looked up by it.
        ++runtime.methodEpoch;
        break;
    case kernel::Process:
        for (const auto& [id, session] : sessions) {
            if (session->suspended.contains(oop)) {
                forgetProcess(*session, oop);
            }
        }
        break;
    default:
        break;
    }
}

} // namespace local
