#include "support/scripted_client.h"

#include "support/unexpected_calls.h"

#include <algorithm>
#include <atomic>
#include <cfenv>
#include <csignal>
#include <cstring>
#include <mutex>
#include <sstream>
#include <unistd.h>

namespace scripted {
namespace {

Client theClient;

std::string show(const char* text) {
    return text ? "'" + std::string(text) + "'" : "NULL";
}
template <typename Number>
std::string show(Number value) {
    std::ostringstream out;
    out << value;
    return out.str();
}
std::string show(const std::vector<OopType>& oops) {
    std::string text = "[";
    for (OopType oop : oops)
        text += (text.size() > 1 ? " " : "") + std::to_string(oop);
    return text + "]";
}
// Bodies are shown as text; what is not printable stands as its code.
std::string show(const std::vector<ByteType>& bytes) {
    std::string text = "'";
    for (ByteType byte : bytes)
        text += byte >= ' ' && byte < 127 ? std::string(1, char(byte)) : "\\" + std::to_string(byte);
    return text + "'";
}

std::string show(KciErrSType* error) {
    return error ? "error" : "NULL";
}

template <typename... Arguments>
void record(const char* function, const Arguments&... arguments) {
    std::string text;
    ((text += (text.empty() ? "" : ", ") + show(arguments)), ...);
    theClient.record(function, text);
}

std::vector<OopType> list(const OopType* oops, ArraySizeType count) {
    return {oops, oops + (oops ? count : 0)};
}

template <typename Element>
KciLong fetch(const std::vector<Element>& body, KciLong start, Element* dest, ArraySizeType count) {
    const auto begin = std::min(static_cast<std::size_t>(start - 1), body.size());
    const auto fetched = std::min<std::size_t>(count, body.size() - begin);
    std::copy_n(body.begin() + static_cast<std::ptrdiff_t>(begin), fetched, dest);
    return static_cast<KciLong>(fetched);
}

// What an entry answers that works by itself: a fetch, how many it has fetched.
KciLong claimed(const char* function, KciLong answer) {
    if (const auto claim = theClient.claims.extract(function))
        return claim.mapped();
    return theClient.results[function].empty() ? answer : KciLong(theClient.result(function));
}

template <std::size_t size>
struct FixedName {
    char text[size];
    constexpr FixedName(const char (&given)[size]) { std::copy_n(given, size, text); }
};

// An entry that records its arguments, and answers by script.
template <FixedName name, typename Result, typename... Arguments>
void script(Result (*&entry)(Arguments...)) {
    entry = [](Arguments... arguments) -> Result {
        record(name.text, arguments...);
        if constexpr (!std::is_void_v<Result>)
            return static_cast<Result>(theClient.result(name.text));
    };
}
template <FixedName name>
void scriptFetch(KciLong (*&entry)(OopType, KciLong, OopType*, ArraySizeType)) {
    entry = [](OopType object, KciLong start, OopType* dest, ArraySizeType count) {
        record(name.text, object, start, count);
        return claimed(name.text, fetch(theClient.oops, start, dest, count));
    };
}
template <FixedName name>
void scriptStore(void (*&entry)(OopType, KciLong, const OopType*, ArraySizeType)) {
    entry = [](OopType object, KciLong start, const OopType* oops, ArraySizeType count) {
        record(name.text, object, start, list(oops, count), count);
    };
}

// The error of an entry that a text breaks.
KciErrSType toldError(int number = 4000, OopType context = KCI_OOP_NIL, int fatal = FALSE) {
    KciErrSType error = clientError(number, "as told");
    error.context = context;
    error.fatal = fatal;
    return error;
}

// What happens to the library when it is opened, outlives it in the environment.
void note(const std::string& event) {
    if (const char* log = getenv("CLIENT_LIBRARY_LOG"))
        setenv("CLIENT_LIBRARY_LOG", (log + event + " ").c_str(), 1);
}
std::atomic<bool> broken;
bool stuck;

void getIntoTrouble(const std::string& word) {
    if (word == "crash") {
        std::fputs("about to crash\n", stderr);
        volatile int* nowhere = nullptr;
        *nowhere = 1;
    } else if (word == "kill") {
        raise(SIGKILL);
    } else if (word == "exit") {
        std::puts("leaving");
        std::exit(7);
    } else if (word == "wait" || word == "stick") {
        stuck = word == "stick";
        broken = false;
        while (!broken)
            usleep(1000);
    }
}

[[gnu::constructor]] void opened() {
    note("opened");
    if (const char* trouble = getenv("CLIENT_LIBRARY_TROUBLE"))
        getIntoTrouble(trouble);
    if (getenv("CLIENT_LIBRARY_SPOILS")) {
        fesetround(FE_UPWARD);
        feenableexcept(FE_DIVBYZERO | FE_INVALID);
        feraiseexcept(FE_INEXACT);
    }
}
[[gnu::destructor]] void closed() {
    note("closed");
}

KciRtlJumpSType makeTable() {
    KciRtlJumpSType table{};
    std::fill_n(reinterpret_cast<AnyFunction*>(&table.KciAbort), KCI_ENTRY_COUNT, unexpectedCall);
    table.kciFeatureLevel = KCI_ENTRY_COUNT;
    if (const char* levels = getenv("CLIENT_LIBRARY_LEVELS"))
        sscanf(levels, "%d %d", &table.kciFeatureLevel, &table.kciCompatiblityLevel);

#define SCRIPTED(function) script<#function>(table.function)
    SCRIPTED(KciInit), SCRIPTED(KciInitAppName), SCRIPTED(KciProduct), SCRIPTED(KciShutdown), SCRIPTED(KciUnload);
    SCRIPTED(KciLogout), SCRIPTED(KciGetSessionId), SCRIPTED(KciSetSessionId);
    SCRIPTED(KciDirtyObjsInit), SCRIPTED(KciPollForSignal), SCRIPTED(KciNbExecute), SCRIPTED(KciIsKindOf);
    SCRIPTED(KciFetchNamedOop), SCRIPTED(KciOopToLong), SCRIPTED(KciFltToOop);
    SCRIPTED(KciHardBreak), SCRIPTED(KciBegin), SCRIPTED(KciCommit), SCRIPTED(KciAbort);
#undef SCRIPTED
    scriptFetch<"KciFetchVaryingOops">(table.KciFetchVaryingOops);
    scriptFetch<"KciFetchNamedOops">(table.KciFetchNamedOops);
    scriptStore<"KciStoreIdxOops">(table.KciStoreIdxOops);
    scriptStore<"KciStoreNamedOops">(table.KciStoreNamedOops);

    table.KciSetNet = [](const char* server, const char* user, const char* password, const char* service) {
        theClient.fail(server, toldError());
        record("KciSetNet", server, user, password, service);
    };
    table.KciLogin = [](const char* user, const char* password) {
        record("KciLogin", user, password);
        getIntoTrouble(user);
        return BoolType(theClient.result("KciLogin"));
    };
    table.KciSoftBreak = [] {
        record("KciSoftBreak");
        broken = !stuck;
        while (stuck)
            usleep(1000);
    };
    table.KciNbExecuteStr = [](const char* source, OopType symbolList) {
        record("KciNbExecuteStr", source, symbolList);
        theClient.obey(source, KCI_OOP_NIL);
    };
    table.KciContinueWith = [](OopType process, OopType value, KciLong flags, KciErrSType* error) {
        record("KciContinueWith", process, value, flags, error);
        return OopType(claimed("KciContinueWith", KciLong(value)));
    };
    table.KciNbContinueWith = [](OopType process, OopType value, KciLong flags) {
        record("KciNbContinueWith", process, value, flags);
        theClient.obey("", value);
    };
    table.KciNewOop = [](OopType cls) {
        record("KciNewOop", cls);
        return theClient.pending.empty() ? OopType(claimed("KciNewOop", KciLong(theClient.nextOop += 4)))
                                         : KCI_OOP_ILLEGAL;
    };
    table.KciVersion = [] { return record("KciVersion"), theClient.version; };
    table.KciErr = [](KciErrSType* error) {
        record("KciErr");
        if (theClient.pending.empty())
            return FALSE;
        *error = theClient.pending.front();
        theClient.pending.pop_front();
        return BoolType(claimed("KciErr", TRUE));
    };
    table.KciNbEnd = [](void** result) {
        static OopType oop;
        record("KciNbEnd");
        const auto end = theClient.isLate() ? KCI_RESULT_NOT_READY : KciNbProgressEType(theClient.result("KciNbEnd"));
        oop = end == KCI_RESULT_READY ? OopType(theClient.result("KciNbEnd result")) : 0;
        *result = end == KCI_RESULT_READY ? &oop : nullptr;
        if (end == KCI_RESULT_READY)
            theClient.callEnded();
        return end;
    };
    table.KciNbPerform = [](OopType receiver, const char* selector, const OopType* args, ArraySizeType count) {
        record("KciNbPerform", receiver, selector, list(args, count), count);
        theClient.obey(selector, receiver);
    };
    table.KciFetchBytes = [](OopType object, KciLong start, ByteType* dest, ArraySizeType count) {
        record("KciFetchBytes", object, start, count);
        return claimed("KciFetchBytes", fetch(theClient.bytes, start, dest, count));
    };
    table.KciStoreBytesInstanceOf = [](OopType cls, OopType object, KciLong start, const ByteType* bytes,
                                       ArraySizeType count) {
        record("KciStoreBytesInstanceOf", cls, object, start, std::vector<ByteType>(bytes, bytes + count), count);
    };
    table.KciReleaseOops = [](const OopType* oops, ArraySizeType count) {
        record("KciReleaseOops", list(oops, count), count);
        for (OopType oop : list(oops, count))
            ++theClient.releases[oop];
    };
    table.KciSaveObjs = [](const OopType* oops, ArraySizeType count) { record("KciSaveObjs", list(oops, count)); };
    table.KciDirtySaveObjs = [](OopType* dest, ArraySizeType* count) {
        record("KciDirtySaveObjs", *count);
        auto& changed = theClient.changed;
        const KciLong fetched = fetch(changed, 1, dest, *count);
        changed.erase(changed.begin(), changed.begin() + fetched);
        *count = ArraySizeType(claimed("KciDirtySaveObjs", fetched));
        return BoolType(!changed.empty());
    };
    table.KciFetchObjInfo = [](OopType object, KciLong start, ArraySizeType room, KciObjInfoSType* info, ByteType* dest,
                               ArraySizeType* fetched) {
        record("KciFetchObjInfo", object, start, room);
        *info = theClient.info;
        if (theClient.bytesByIdentifier)
            info->objImpl = object % 8 == 0 ? KCI_IMPL_BYTE : KCI_IMPL_POINTER;
        const auto oopBytes = reinterpret_cast<const ByteType*>(theClient.oops.data());
        const auto& body = info->objImpl == KCI_IMPL_BYTE
                               ? theClient.bytes
                               : std::vector<ByteType>(oopBytes, oopBytes + theClient.oops.size() * sizeof(OopType));
        const KciLong bytes = fetch(body, start, dest, room);
        *fetched = static_cast<ArraySizeType>(info->objImpl == KCI_IMPL_BYTE ? bytes : bytes / sizeof(OopType));
        return BoolType(theClient.pending.empty() ? theClient.result("KciFetchObjInfo") : FALSE);
    };
    table.KciOopToBool = [](OopType oop) {
        record("KciOopToBool", oop);
        return BoolType(claimed("KciOopToBool", oop == KCI_OOP_TRUE));
    };
    table.KciOopToChr = [](OopType oop) { return record("KciOopToChr", oop), static_cast<char>(oop >> 5); };
    table.KciOopToFlt = [](OopType oop) { return record("KciOopToFlt", oop), theClient.floatResult; };
    table.KciLongToOop = [](KciLong value) { return record("KciLongToOop", value), OopType(value) << 2 | 3; };
    table.KciNewDateTime = [](OopType cls, const KciDateTimeSType* value) {
        record("KciNewDateTime", cls, value->year, value->dayOfYear, value->milliseconds, value->timeZone);
        return OopType(theClient.result("KciNewDateTime"));
    };
    if (getenv("CLIENT_LIBRARY_LACKS") != nullptr)
        table.KciHardBreak = nullptr;
    return table;
}

} // namespace

void Client::record(const std::string& function, const std::string& arguments) {
    static std::mutex breaks; // come in a thread of their own
    const std::lock_guard lock(breaks);
    calls += (calls.empty() ? "" : " ") + function;
    if (function != "KciErr")
        calls += "(" + arguments + ")";
    callCount++;
    note(function);
    for (Failure& failure : failures) {
        if (failure.function == function && failure.callsLeft > 0 && --failure.callsLeft == 0)
            pending.push_back(failure.error);
    }
}

std::int64_t Client::result(const std::string& function) {
    auto& answers = results[function];
    if (answers.empty())
        return 0;
    const auto answer = answers.front();
    if (answers.size() > 1)
        answers.pop_front();
    return answer;
}

void Client::obey(const char* text, OopType receiver) {
    const auto smallInteger = [](int value) { return std::int64_t(value) << 2 | 3; };
    char entry[64];
    unsigned oop = 0, context = 0;
    int milliseconds = 0, number = 0;
    std::int64_t answer = receiver;
    started++;
    getIntoTrouble(text);
    if (sscanf(text, "answer %u after %d", &oop, &milliseconds) == 2) {
        answer = oop;
    } else if (sscanf(text, "fail %d context %u after %d", &number, &context, &milliseconds) == 3) {
        errorOfCall = toldError(number, context);
    } else if (sscanf(text, "break %63s fatal %d", entry, &number) == 2) {
        failuresOfLaterCalls.push_back({entry, 1, toldError(4000, KCI_OOP_NIL, number)});
    } else if (sscanf(text, "claim %63s %d", entry, &number) == 2) {
        claims[entry] = number;
    } else if (sscanf(text, "released %u", &oop) == 1) {
        answer = smallInteger(releases[oop]);
    } else if (text == std::string("started")) {
        answer = smallInteger(started);
    } else if (text == std::string("objects")) {
        bytesByIdentifier = true;
        info.objClass = 1000;
        info.objSize = 10000;
        bytes.assign(10000, 7);
        for (oop = 4004; oops.size() < 10000; oop += 4)
            oops.push_back(oop);
        changed.assign(oops.begin(), oops.begin() + 2500);
    } else if (receiver == KCI_OOP_NIL) {
        return;
    }
    results["KciNbEnd result"] = {answer};
    end = Clock::now() + std::chrono::milliseconds(milliseconds);
}

void Client::callEnded() {
    failures.insert(failures.end(), failuresOfLaterCalls.begin(), failuresOfLaterCalls.end());
    failuresOfLaterCalls.clear();
    if (errorOfCall)
        pending.push_back(*errorOfCall);
    errorOfCall.reset();
}

void Client::fail(const std::string& function, const KciErrSType& error, unsigned nth) {
    failures.push_back({function, nth, error});
}

KciErrSType clientError(std::int32_t number, const std::string& message, const std::vector<OopType>& args) {
    KciErrSType error{};
    error.category = KCI_CATEGORY_SYSTEM;
    error.number = number;
    error.context = KCI_OOP_NIL;
    message.copy(error.message, sizeof error.message - 1);
    std::copy_n(args.begin(), std::min<std::size_t>(args.size(), KCI_ERR_MAX_ARGS), error.args);
    error.argCount = static_cast<std::int32_t>(args.size());
    return error;
}

} // namespace scripted

const KciRtlJumpSType* KciGetRtlTable() {
    static const KciRtlJumpSType table = scripted::makeTable();
    const char* const levels = getenv("CLIENT_LIBRARY_LEVELS");
    return levels != nullptr && levels == std::string("none") ? nullptr : &table;
}

scripted::Client* scriptedClient() {
    return &scripted::theClient;
}
