#include "kci/client.h"

#include <cstdio>
#include <new>

namespace local {

namespace {

std::string_view textOrEmpty(const char* text) {
    return text != nullptr ? text : "";
}

KciErrSType makeError(ErrorNumber number, const char* message, std::initializer_list<OopType> arguments) {
    KciErrSType error{};
    error.category = KCI_CATEGORY_SYSTEM;
    error.number = static_cast<int32_t>(number);
    error.context = KCI_OOP_NIL;
    std::snprintf(error.message, sizeof error.message, "%s", message);
    for (OopType argument : arguments) {
        error.args[error.argCount++] = argument;
    }
    return error;
}

void put(ClientSession& holder, const KciErrSType& error) {
    holder.error = error;
    holder.errorPending = true;
}

} // namespace

Client& client() {
    // Never destroyed: the process may end while one of its threads is in a call. Needs no memory, which may be out.
    alignas(Client) static std::byte place[sizeof(Client)];
    static Client& theClient = *new (place) Client;
    return theClient;
}

bool Client::initialize() {
    if (engine) {
        return true;
    }
    try {
        engine = std::make_unique<Engine>();
    } catch (...) {
        recordError(ErrorNumber::OutOfMemory, "the local store cannot be set up: no memory");
    }
    return engine != nullptr;
}

void Client::shutDown() {
    engine.reset();
    sessions.clear();
    current = 0;
    outside = {};
}

bool Client::login(const char* user, const char* password) {
    if (!engine) {
        recordError(ErrorNumber::NoSession, "KciInit has not been called");
        return false;
    }
    Request request{.kind = RequestKind::Login};
    request.text = textOrEmpty(user);
    request.secondText = textOrEmpty(password);
    Reply reply = engine->handle(request);
    if (reply.failed) {
        put(outside, reply.error);
        return false;
    }
    try {
        sessions[reply.integer];
    } catch (const std::bad_alloc&) {
        engine->handle({.kind = RequestKind::Logout, .session = reply.integer});
        recordError(ErrorNumber::OutOfMemory, "the local store has no memory for the session");
        return false;
    }
    current = reply.integer;
    outside.errorPending = false;
    return true;
}

void Client::logout() {
    if (session() == nullptr) {
        return;
    }
    engine->handle({.kind = RequestKind::Logout, .session = current});
    sessions.erase(current);
    current = 0;
}

// A wrong number leaves the current session as it is.
void Client::select(KciSessionIdType session) {
    if (sessions.contains(session)) {
        current = session;
        outside.errorPending = false;
        return;
    }
    char text[80];
    std::snprintf(text, sizeof text, "%d is not the number of a session of the local store", session);
    put(outside, makeError(ErrorNumber::BadSessionId, text, {}));
}

// The current session; NULL, with an error, when there is none. An error that concerned no session and was left untaken
// is none of its calls'.
ClientSession* Client::session() {
    if (auto found = sessions.find(current); found != sessions.end()) {
        outside.errorPending = false;
        return &found->second;
    }
    recordError(ErrorNumber::NoSession, "no session of the local store is logged in and selected");
    return nullptr;
}

Reply Client::call(Request request) {
    Reply refused;
    refused.failed = true;
    refused.object = KCI_OOP_ILLEGAL;
    ClientSession* caller = session();
    if (caller == nullptr) {
        return refused;
    }
    if (caller->callInProgress && request.kind != RequestKind::Poll) {
        recordError(ErrorNumber::OperationInProgress, "the session's call has not ended");
        return refused;
    }
    request.session = current;
    Reply reply = engine->handle(request);
    if (reply.failed) {
        record(reply.error);
    }
    return reply;
}

void Client::start(const Request& request) {
    if (!call(request).failed) {
        sessions.at(current).callInProgress = true;
    }
}

KciNbProgressEType Client::poll() {
    Reply reply = call({.kind = RequestKind::Poll});
    auto found = sessions.find(current);
    if (found != sessions.end() && reply.progress == KCI_RESULT_READY) {
        found->second.callInProgress = false;
        found->second.result = reply.object;
    }
    return reply.progress;
}

// Of the current session; of no session's when there is none.
void* Client::resultCell() {
    auto found = sessions.find(current);
    return found != sessions.end() ? &found->second.result : &outside.result;
}

void Client::record(const KciErrSType& error) {
    auto found = sessions.find(current);
    put(found != sessions.end() ? found->second : outside, error);
}

void Client::recordError(ErrorNumber number, const char* message, std::initializer_list<OopType> arguments) {
    record(makeError(number, message, arguments));
}

// An error that concerns no session comes first: the call that caused it was the latest, or nothing else can tell it.
bool Client::takeError(KciErrSType* error) {
    auto found = sessions.find(current);
    ClientSession* holder = outside.errorPending ? &outside : found != sessions.end() ? &found->second : nullptr;
    if (holder == nullptr || !holder->errorPending) {
        return false;
    }
    if (error != nullptr) {
        *error = holder->error;
    }
    holder->errorPending = false;
    return true;
}

} // namespace local
