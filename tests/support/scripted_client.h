// A client library that records every call with its arguments and answers by script. Linked into a test its table is
// given to the bridge directly; built as a shared library it hands the table out through KciGetRtlTable.
#pragma once

#include "kcitable.h"

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

namespace scripted {

struct Client {
    // The calls so far, each as "KciName(arguments)", a blank between two. KciErr stands without arguments.
    std::string calls;
    unsigned callCount = 0;

    // Integer results by function name, taken in order; the last one stays. A function without an entry answers 0, or
    // what it should: a fetch, how many it fetched.
    std::map<std::string, std::deque<std::int64_t>> results{{"KciInit", {1}},
                                                            {"KciProduct", {1}},
                                                            {"KciLogin", {1}},
                                                            {"KciFetchObjInfo", {1}},
                                                            {"KciNbEnd", {KCI_RESULT_READY}}};
    double floatResult = 0;
    const char* version = "6.7";

    // The body and the description that fetches hand out, and the identifiers reported as changed.
    KciObjInfoSType info{};
    std::vector<ByteType> bytes;
    std::vector<OopType> oops;
    std::vector<OopType> changed;

    // The error that the session holds for the next KciErr.
    std::deque<KciErrSType> pending;

    // The nth call from now of a function (1 is the next) leaves this error pending.
    void fail(const std::string& function, const KciErrSType& error, unsigned nth = 1);

    // Forgets calls, results and errors: every call succeeds from here on.
    void reset() { *this = Client(); }

    // Used by the table's functions.
    void record(const std::string& function, const std::string& arguments);
    std::int64_t result(const std::string& function);

private:
    struct Failure {
        std::string function;
        unsigned callsLeft;
        KciErrSType error;
    };
    std::vector<Failure> failures;
};

KciErrSType clientError(std::int32_t number, const std::string& message, const std::vector<OopType>& args = {});

} // namespace scripted

extern "C" {
__attribute__((visibility("default"))) const KciRtlJumpSType* KciGetRtlTable(void);
__attribute__((visibility("default"))) scripted::Client* scriptedClient(void);
}
