// The caller's side of the entry points: sessions with their pending errors, running calls and result cells.
#pragma once

#include "engine.h"
#include "error_numbers.h"

#include <atomic>
#include <map>

namespace local {

struct ClientSession {
    KciErrSType error{};
    bool errorPending = false;
    bool callInProgress = false;
    OopType result = KCI_OOP_NIL; // KciNbEnd's pointer leads here; valid until the session's next call
};

class Client {
public:
    Client() noexcept = default;
    bool initialize();
    void shutDown();

    bool login(const char* user, const char* password);
    void logout();
    void select(KciSessionIdType session);
    KciSessionIdType currentSession() const { return current; }
    ClientSession* session();

    // Sends a request of the current session; an error is recorded in it. While a call is in progress only the requests
    // that concern the call are let through.
    Reply call(Request request);
    // Begins a call that poll ends.
    void start(const Request& request);
    KciNbProgressEType poll();

    void recordError(ErrorNumber number, const char* message, std::initializer_list<OopType> arguments = {});
    void* resultCell();
    bool takeError(KciErrSType* error);
    // For the session that is current; safe as the engine's.
    void requestBreak(bool hard) const { Engine::requestBreak(current, hard); }

private:
    void record(const KciErrSType& error);

    std::unique_ptr<Engine> engine;
    std::map<KciSessionIdType, ClientSession> sessions;
    std::atomic<KciSessionIdType> current = 0; // 0: none
    ClientSession outside;                     // for the error of a call that concerns no session
};

Client& client();

} // namespace local
