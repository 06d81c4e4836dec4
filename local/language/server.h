// What answers requests: the sessions, their running and suspended computations, and the requests on objects.
#pragma once

#include "engine.h"
#include "language/interpreter.h"

#include <atomic>
#include <deque>
#include <map>
#include <unordered_set>

namespace local {

// Where breaks are asked for. Number and request share a word: one that comes late cannot reach a later session.
class BreakCell {
public:
    bool isFree() const { return word == 0; }
    void open(SessionId session) { word = wordOf(session); }
    void close() { word = 0; }
    void request(SessionId session, bool hard) {
        uint32_t seen = word;
        while (session != 0 && (seen & ~3u) == wordOf(session) &&
               !word.compare_exchange_weak(seen, wordOf(session) | (hard ? 2u : 1u))) {
        }
    }
    // What was asked for since; 0 when nothing was.
    uint32_t take() { return word.fetch_and(~3u) & 3; }

private:
    static uint32_t wordOf(SessionId session) { return static_cast<uint32_t>(session) << 2; }

    std::atomic<uint32_t> word{0};
};

struct ServerSession {
    ServerSession(Runtime& runtime, SessionFacts sessionFacts, Store::Session& session, BreakCell& freeCell)
        : facts(std::move(sessionFacts)), interpreter(runtime, facts, session), breakCell(freeCell) {
        breakCell.open(facts.id);
    }
    ~ServerSession() { breakCell.close(); }

    SessionFacts facts;
    Interpreter interpreter;
    BreakCell& breakCell;
    std::unique_ptr<Process> running;
    std::map<Oop, std::unique_ptr<Process>> suspended;
    std::deque<Oop> suspendedInOrder;
    std::unordered_set<Oop> freshObjects; // made by the client and not filled yet: filling one is no change
};

struct Engine::State : Store::Roots {
    Reply handle(const Request& request);

    void addRoots(const Mark& mark) override;
    void startMarking() override;
    void visit(Oop oop, Oop cls, Oop firstSlot, const Mark& mark) override;
    void marked() override { runtime.codes.sweep(); }
    void freeing(Oop oop, Oop cls, std::span<const ByteType> bytes) override;

private:
    void dispatch(const Request& request, Reply& reply);
    void login(const Request& request, Reply& reply);
    void logout(SessionId session);
    void dropCall(SessionId session);
    ServerSession& sessionOf(const Request& request);

    // Calls
    void start(ServerSession& session, const Request& request);
    std::unique_ptr<Process> begin(ServerSession& session, const Request& request);
    void poll(ServerSession& session, Reply& reply);
    std::unique_ptr<Process> takeSuspended(ServerSession& session, const Request& request);
    void runToEnd(ServerSession& session, Reply& reply);
    Outcome runSlice(ServerSession& session);
    void finish(ServerSession& session, Outcome outcome, Reply& reply);
    Oop keepSuspended(ServerSession& session, std::unique_ptr<Process> process);
    void dropOldestProcess(ServerSession& session);
    void forgetProcess(ServerSession& session, Oop process);

    Runtime runtime;
    std::map<SessionId, std::unique_ptr<ServerSession>> sessions;
    SessionId lastSession = 0;
};

// Requests on objects that need no more than the session.
void handleObjectRequest(ServerSession& session, const Request& request, Reply& reply);

// Every identifier is a value's or that of an object that the session sees.
void needValues(const View& view, std::span<const Oop> values);

// Makes the reply a failed one; the message is cut to what the record holds.
void fail(Reply& reply, ErrorNumber number, std::string_view message, std::span<const Oop> arguments, Oop context);

} // namespace local
