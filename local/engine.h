// Requests to the object store and its language, and their replies: plain records and nothing else, so that a database
// file or a process of its own can be put between the entry points and the store.
#pragma once

#include "kcirecords.h"

#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace local {

enum class RequestKind : uint8_t {
    Login, // text: user, secondText: password; reply.integer: the new session
    Logout,
    StartSource,   // text: source
    StartString,   // object: a string object that holds the source
    StartSend,     // object: receiver, text: selector, objects: arguments
    StartContinue, // object: process, secondObject: value
    Poll,          // reply.progress; reply.object: the result when ready
    Continue,      // StartContinue and polls to the end; reply.object: the result
    FetchInfo,     // object, start; reply.info, bytes of the body into room; reply.integer: how many
    FetchBytes,    // object, start, room; reply.integer: how many
    FetchNamed,    // object, start, objectRoom; reply.integer: how many
    FetchVariable, // object, start; reply.object
    FetchIndexed,
    StoreBytes, // object, secondObject: class or nil, start, bytes
    StoreNamed, // object, start, objects
    StoreIndexed,
    NewObject,     // object: class; reply.object
    NewDateTime,   // object: class, dateTime; reply.object
    FetchDateTime, // object; reply.dateTime
    FromInteger,   // integer; reply.object
    FromReal,      // real; reply.object
    ToInteger,     // object; reply.integer
    ToReal,        // object; reply.real
    ToBoolean,     // object; reply.integer: 1 or 0
    ToCharacter,   // object; reply.integer: its code
    IsKindOf,      // object, secondObject: class; reply.integer
    Save,          // objects
    Release,       // objects
    TrackChanges,
    TakeChanges, // objectRoom; reply.integer: how many, reply.more
    Commit,      // reply.integer: whether it succeeded
    Abort,
};

struct Request {
    RequestKind kind;
    KciSessionIdType session = 0;
    OopType object = KCI_OOP_NIL;
    OopType secondObject = KCI_OOP_NIL;
    KciLong start = 1; // from 1
    KciLong integer = 0;
    double real = 0;
    KciDateTimeSType dateTime{};
    std::string_view text{};
    std::string_view secondText{};
    std::span<const OopType> objects{};
    std::span<const ByteType> bytes{};
    std::span<ByteType> room{};
    std::span<OopType> objectRoom{};
};

struct Reply {
    bool failed = false;
    KciErrSType error{}; // set when failed
    OopType object = KCI_OOP_NIL;
    KciLong integer = 0;
    double real = 0;
    bool more = false;
    KciNbProgressEType progress = KCI_RESULT_READY;
    KciObjInfoSType info{};
    KciDateTimeSType dateTime{};
};

class Engine {
public:
    Engine();
    ~Engine();
    // Never throws. One thread at a time.
    Reply handle(const Request& request);
    // Makes the call that the session runs stop with a break error. Safe in any thread and in a signal handler, whether
    // the engine or the session still exists or not.
    static void requestBreak(KciSessionIdType session, bool hard);

private:
    struct State;
    std::unique_ptr<State> state;
};

} // namespace local
