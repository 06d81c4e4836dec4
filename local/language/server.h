// What answers requests: the sessions, their running and suspended computations, and the requests on objects.
#pragma once

#include "engine.h"
#include "language/interpreter.h"

#include <atomic>
#include <deque>
#include <map>

namespace local {

struct ServerSession {
    ServerSession(Runtime& runtime, SessionFacts sessionFacts)
        : facts(std::move(sessionFacts)), interpreter(runtime, facts) {}

    SessionFacts facts;
    Interpreter interpreter;
    std::unique_ptr<Process> running;
    std::map<Oop, std::unique_ptr<Process>> suspended;
    std::deque<Oop> suspendedInOrder;
    Oop freshObject = KCI_OOP_NONE; // made by the client and not filled yet: filling it is no change
};

struct Engine::State : Store::Roots {
    Reply handle(const Request& request);

    void addRoots(const std::function<void(Oop)>& mark) override;
    void visit(Oop oop, Oop cls, Oop firstSlot, const std::function<void(Oop)>& mark) override;
    void swept(const std::function<bool(Oop)>& isLive) override;

    std::atomic<int> breakRequest{0}; // 0 or the error's number

private:
    void dispatch(const Request& request, Reply& reply);
    void login(const Request& request, Reply& reply);
    void logout(SessionId session);
    void dropCall(SessionId session);
    ServerSession& sessionOf(const Request& request);

    // Calls
    void start(ServerSession& session, const Request& request);
    void poll(ServerSession& session, Reply& reply);
    void continueProcess(ServerSession& session, const Request& request, Reply& reply);
    Outcome runSlice(ServerSession& session);
    void finish(ServerSession& session, Outcome outcome, Reply& reply);
    Oop keepSuspended(ServerSession& session);
    void forgetProcess(ServerSession& session, Oop process);

    Runtime runtime;
    std::map<SessionId, std::unique_ptr<ServerSession>> sessions;
    SessionId lastSession = 0;
};

// Requests on objects that need no more than the session.
void handleObjectRequest(ServerSession& session, const Request& request, Reply& reply);

// Makes the reply a failed one; the message is cut to what the record holds.
void fail(Reply& reply, ErrorNumber number, std::string_view message, std::span<const Oop> arguments, Oop context);

} // namespace local
