// A client library that records every call with its arguments and answers by script. Linked into a test its table is
// given to the bridge directly; built as a shared library it hands the table out through KciGetRtlTable.
//
// Where a test has only the bridge, source texts and selectors are the script. Each starts a call; these say more:
//   answer OOP after TIME       the call's result, after so many milliseconds; else it is nil, or the receiver of a
//                               message, at once
//   fail NUMBER context OOP after TIME   the call's error
//   break ENTRY fatal FLAG      the next call of that entry after this one fails with error 4000, as does the entry
//                               that a login's server is called
//   claim ENTRY ANSWER          the next call of that entry answers this: of a fetch, or one that makes an object
//   released OOP                answers how often the object was given up
//   crash, kill, exit           ends the process, as does such a user of a login
//   wait, stick                 stays in the call until a soft break, or for good, as does the break then
//   started                     answers how many calls have been started
//   objects                     from here on every object has 10000 elements, bytes where its identifier is a multiple
//                               of 8; 2500 objects are changed
//
// For tests that open it: CLIENT_LIBRARY_LEVELS, when set, holds feature and compatibility level; CLIENT_LIBRARY_LOG
// receives the names of calls, and when the library is opened and closed; with CLIENT_LIBRARY_SPOILS its initializer
// spoils the floating-point environment, with CLIENT_LIBRARY_TROUBLE it does as that word says; with
// CLIENT_LIBRARY_LACKS its table has no KciHardBreak.
#pragma once

#include "kcitable.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace scripted {

struct Client {
    // The calls so far, each as "KciName(arguments)", a blank between two. KciErr stands without arguments.
    std::string calls;
    unsigned callCount = 0;

    // Integer results by function name, taken in order; the last one stays. A function without an entry answers 0, or
    // what it should: a fetch, how many it fetched.
    std::map<std::string, std::deque<std::int64_t>> results{{"KciInit", {1}},         {"KciProduct", {1}},
                                                            {"KciLogin", {1}},        {"KciGetSessionId", {7}},
                                                            {"KciFetchObjInfo", {1}}, {"KciNbEnd", {KCI_RESULT_READY}}};
    double floatResult = 0;
    const char* version = "6.7";

    // The body and the description that fetches hand out, and the identifiers reported as changed.
    KciObjInfoSType info{};
    std::vector<ByteType> bytes;
    std::vector<OopType> oops;
    std::vector<OopType> changed;   // until they are handed out
    bool bytesByIdentifier = false; // which objects have bytes, instead of info's kind

    // The error that the session holds for the next KciErr.
    std::deque<KciErrSType> pending;

    // The nth call from now of a function (1 is the next) leaves this error pending.
    void fail(const std::string& function, const KciErrSType& error, unsigned nth = 1);

    // Forgets calls, results and errors: every call succeeds from here on.
    void reset() { *this = Client(); }

    // Used by the table's functions.
    void record(const std::string& function, const std::string& arguments);
    std::int64_t result(const std::string& function);
    void obey(const char* text, OopType receiver);
    bool isLate() const { return Clock::now() < end; }
    void callEnded();
    std::map<OopType, int> releases;
    std::map<std::string, int> claims;
    OopType nextOop = 60000;

private:
    struct Failure {
        std::string function;
        unsigned callsLeft;
        KciErrSType error;
    };
    std::vector<Failure> failures, failuresOfLaterCalls;

    using Clock = std::chrono::steady_clock;
    Clock::time_point end{}; // of the call
    std::optional<KciErrSType> errorOfCall;
    int started = 0;
};

KciErrSType clientError(std::int32_t number, const std::string& message, const std::vector<OopType>& args = {});

} // namespace scripted

extern "C" {
__attribute__((visibility("default"))) const KciRtlJumpSType* KciGetRtlTable(void);
__attribute__((visibility("default"))) scripted::Client* scriptedClient(void);
}
