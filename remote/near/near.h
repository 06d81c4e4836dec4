// The near side: what stands behind the table of stubs.
//
// It keeps what needs no exchange: the error of each session, so that KciErr is answered here, and which session is
// current. After an exchange it holds the answers that the host sent ahead, and gets more while the host makes them;
// the next call gets the first of them when it is the very call with the very arguments, else all of them are dropped.
// Selecting a session drops them as well.
//
// Session numbers are the host's as long as there was one host process. When it ends, its sessions answer that they
// ended with it; the next login starts another host, whose numbers are passed on unless a session of an earlier host
// had them.
//
// Calls come from one thread at a time, breaks from any thread.
#pragma once

#include "near/hostprocess.h"
#include "wire/encoding.h"

namespace remote {

// Numbers that errors of this side's own have.
enum class ErrorNumber : int32_t {
    badArgument = 2094,
    outOfMemory = 2208,
    cannotStart = 4042,
    sessionEnded = 4059,
    badSession = 4100,
    notServed = 4101,
    hostEnded = 4137,
};

struct PendingError {
    bool pending = false;
    KciErrSType record{};
};

struct Session {
    Session* next;
    KciSessionIdType number;     // as the caller knows it
    KciSessionIdType hostNumber; // as its host does
    uint32_t host;               // the host process, counted from 1
    OopType result;              // KciNbEnd's pointer leads here
    PendingError error;
};

class Near {
public:
    // Starts a host for a client library, as KciRemoteServe says.
    bool serve(const char* file, Problem& problem);
    // Serves what stands beside this library, if nothing is served yet. A failure is every later call's error.
    void serveDefault();
    // Ends the host process.
    void stop();
    // The same when this library is closed or the process ends, perhaps with another thread in a call.
    void leave();
    void forgetInFork();

    // Which of the optional entries the client library lacks.
    [[nodiscard]] uint32_t lacking() const { return lackingEntries; }
    [[nodiscard]] uint64_t exchangeCount() const { return exchanges; }

    // One entry's call.
    template <EntryId id>
    typename RowOf<id>::Result call(const typename RowOf<id>::Arguments& arguments) {
        return callShape<RowOf<id>, isAskedAhead(id)>(id, arguments);
    }
    // Those that are more than an exchange.
    BoolType takeError(KciErrSType* error);
    void select(KciSessionIdType session);
    KciSessionIdType currentSession();
    BoolType logIn(const char* user, const char* password);
    void logOut();
    BoolType initialize();
    void initializeName(const char* name, BoolType flag);
    void setNet(const char* server, const char* hostUser, const char* hostPassword, const char* netService);
    void shutDown();
    void unload();
    const char* version();
    void saveObjects(const OopType* oops, ArraySizeType count);
    void requestBreak(EntryId kind);

    void fail(ErrorNumber number, bool fatal, const char* format, ...) __attribute__((format(printf, 4, 5)));

private:
    // An entry of that shape; what else an entry is, its number says.
    template <class Row, bool mayBeAhead>
    [[gnu::noinline]] typename Row::Result callShape(EntryId id, const typename Row::Arguments& arguments);
    template <class Row, class Result>
    bool answerFrom(Reader& from, const typename Row::Arguments& arguments, Result& result);

    // Whether a request can be sent now; else the reason is the call's error.
    bool ready();
    // The place of a request, in a block with room for it and its answer; NULL with an error.
    ByteType* prepare(uint64_t size, uint64_t answerRoom);
    // Sends it; answer and ahead are set, or the host is lost.
    bool exchange(EntryId id, size_t size);
    void lose(const char* why);
    // Waits until the host is done with the body, and forgets what it made ahead.
    void dropAhead();
    void forgetAhead();
    // Takes what the host says about its answers ahead, from `begin` on. FALSE when that cannot be.
    bool takeAhead(size_t begin, uint32_t aheadEnd);
    // Whether there is an answer ahead; waits while the host makes more.
    bool awaitAhead();
    [[nodiscard]] bool mayHaveAhead() const { return !ahead.atEnd() || (aheadEnd & moreComing) != 0; }
    // Whether the host has already saved this object, the next one of a fetched array.
    bool savedAhead(OopType oop);
    void record(const KciErrSType& error);

    bool startHost(Problem& problem);
    // For a login after the host ended: starts another one and brings it to where the first one was.
    bool restart();
    void endSessions();
    KciSessionIdType currentIs(KciSessionIdType hostNumber);
    Session* sessionOf(KciSessionIdType number);
    void forgetCurrentSession();

    enum class State : uint8_t { nothingServed, serving, ended, unloaded, forked };
    State state = State::nothingServed;
    std::atomic<bool> leaving = false;
    uint32_t sequence = 0;
    Reader answer;
    Reader ahead;
    uint32_t aheadEnd = 0;
    bool hasAhead = false;
    uint32_t usedAhead = 0;
    // The elements of the array that was fetched last, and how many of the next are saved.
    Reader elements;
    uint32_t savedElements = 0;
    bool newFrame = false;
    uint64_t exchanges = 0;
    Spinning spinning;

    Session* sessions = nullptr;
    Session* current = nullptr; // NULL: none, or not known which
    PendingError loose;         // of calls that concern no known session
    OopType looseResult = KCI_OOP_NIL;

    HostProcess host;
    uint32_t hostsStarted = 0;
    uint32_t lackingEntries = 0;
    int wordSize = 0;
    char* file = nullptr;
    char* appName = nullptr;
    BoolType appFlag = FALSE;
    bool initialized = false;
    char versionText[256] = ""; // what KciVersion leads to
    Problem startProblem;

    pthread_mutex_t breakLock = PTHREAD_MUTEX_INITIALIZER;
    Spinning breakSpinning;
    uint32_t breakSequence = 0;
};

Near& near();

template <class Row, class Result>
bool Near::answerFrom(Reader& from, const typename Row::Arguments& arguments, Result& result) {
    KciErrSType error;
    bool hasError = false;
    OopType* const cell = current != nullptr ? &current->result : &looseResult;
    if (!readAnswer<Row>(from, arguments, result, cell, &error, &hasError)) {
        return false;
    }
    if (hasError) {
        error.message[KCI_ERR_MESSAGE_SIZE - 1] = '\0';
        error.argCount = std::clamp(error.argCount, 0, KCI_ERR_MAX_ARGS);
        record(error);
    }
    return true;
}

template <class Row, bool mayBeAhead>
typename Row::Result Near::callShape(EntryId id, const typename Row::Arguments& arguments) {
    // A call without a result carries a number that nobody looks at.
    using Result = std::conditional_t<std::is_void_v<typename Row::Result>, int, typename Row::Result>;
    Result result = failedResult<Result>();
    const auto finish = [&]() -> typename Row::Result {
        if constexpr (!std::is_void_v<typename Row::Result>) {
            return result;
        }
    };
    if constexpr (mayBeAhead) {
        if (hasAhead && savedElements == 0 && awaitAhead()) {
            Reader next = ahead;
            if (next.get<uint32_t>() == static_cast<uint32_t>(id) && matchesRequest<Row>(next, arguments) &&
                answerFrom<Row>(next, arguments, result)) [[likely]] {
                ahead = next;
                hasAhead = mayHaveAhead();
                ++usedAhead;
                return finish();
            }
        }
    }
    dropAhead();
    const uint64_t arraySize = ArrayOf<Row>::count(arguments) * ArrayOf<Row>::elementSize;
    if (arraySize > INT32_MAX) {
        fail(ErrorNumber::badArgument, false, "an array cannot have %u elements",
             static_cast<unsigned>(ArrayOf<Row>::count(arguments)));
        return finish();
    }
    const uint64_t size = requestSize<Row>(arguments);
    // Identifiers that are fetched are likely to be saved one by one: room for as many answers ahead.
    const uint64_t arrayRoom = Row::has(Role::arrayOut) ? padded(arraySize) : 0;
    const uint64_t room = fixedAnswerSize<Row> + arrayRoom * (ArrayOf<Row>::elementSize == 4 ? 6 : 1);
    ByteType* const place = prepare(size, room);
    if (place == nullptr) {
        return finish();
    }
    Writer request(place, size);
    writeRequest<Row>(request, arguments);
    Reader from;
    if (exchange(id, size) && (from = answer, !answerFrom<Row>(from, arguments, result))) {
        result = failedResult<Result>();
        lose("it gave an answer that is none");
    }
    if (id == EntryId::KciFetchVaryingOops || id == EntryId::KciFetchNamedOops) {
        elements = answer;
        elements.take(fixedAnswerSize<Row>);
    }
    if (isSecret[static_cast<uint32_t>(id)] && state == State::serving) {
        explicit_bzero(host.block().body(), size);
    }
    return finish();
}

} // namespace remote
