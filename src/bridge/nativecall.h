// The frame that native methods share: environment, initialization, session, trace of the result, release of strings.
//
// A method hands its own work to inSession (or inBridge) as a function that ends in one of NativeCall's exits.
// An Exit cannot be had elsewhere, so no path can forget a step of the frame.
#pragma once

#include "bridge/errors.h"
#include "bridge/state.h"

class NativeCall;

class Exit {
    friend class NativeCall;
    explicit Exit(jint result) : status(result) {}

public:
    const jint status;
};

class NativeCall {
public:
    NativeCall(jint session, jobject errorReport) : sessionId(session), jErrReport(errorReport) {}

    // Whether the client call just made left an error; the report is filled then, and failed() is the way out.
    [[nodiscard]] bool clientError() const { return kciError(jErrReport) != 0; }

    // The result of a method that came to its end.
    [[nodiscard]] Exit done(jint result) const { return Exit(leave(result)); }

    // After clientError().
    [[nodiscard]] Exit failed() const { return failed(sessionId); }
    [[nodiscard, gnu::noinline, gnu::cold]] Exit failed(jint session) const { return done(clientFailure(session)); }

    // A failure that the bridge itself found.
    [[nodiscard, gnu::noinline, gnu::cold]] Exit refused(const char* message) const {
        return done(genericFailure(jErrReport, message));
    }

    // The Java environment did not lend a string or an array.
    [[nodiscard, gnu::noinline, gnu::cold]] Exit notLent() const { return done(allocationFailure()); }

    // The failure of getOop, which has traced its exit and released the strings.
    [[nodiscard]] Exit passedOn(jint status) const { return Exit(status); }

    // _nbEnd's "poll again": the call is not over, and strings stay as they are.
    [[nodiscard]] Exit notReady() const { return Exit(1); }

private:
    const jint sessionId;
    const jobject jErrReport;
};

// Why a request over an array is refused.
struct ArrayTexts {
    const char* countAboveLimit;
    const char* negativeCount;
    const char* arrayTooShort;
};

// NULL, or the reason to refuse `count` elements of an array. Without elements an array may be missing, unless the
// method hands it to Java all the same.
enum class EmptyRequest : bool { leavesArray, usesArray };
inline const char* arrayProblem(const ArrayTexts& texts, jint count, jint limit, jarray array, EmptyRequest empty) {
    if (count > limit) [[unlikely]] {
        return texts.countAboveLimit;
    }
    if (count < 0) [[unlikely]] {
        return texts.negativeCount;
    }
    if (count == 0 && empty == EmptyRequest::leavesArray) {
        return nullptr;
    }
    return array == nullptr || ENV->GetArrayLength(array) < count ? texts.arrayTooShort : nullptr;
}

// An embedding program may have unloaded the client library behind an initialized bridge.
[[nodiscard]] inline bool bridgeIsUp() {
    return TmqKciInitialized != 0 && rtlPrivKciRtlFuncs != nullptr;
}

// Runs a method's own work once the bridge is known to be up.
template <class Body>
jint inBridge(JNIEnv* env, jint sessionId, jobject jErrReport, Body body) {
    ENV = env;
    if (!bridgeIsUp()) [[unlikely]] {
        // Neither traced nor released: there is nothing to release yet.
        genericError(jErrReport, "KCI: Not initialized");
        return -1;
    }
    return body(NativeCall(sessionId, jErrReport)).status;
}

// The same, with the session made the client library's current one first.
template <class Body>
jint inSession(JNIEnv* env, jint sessionId, jobject jErrReport, Body body) {
    return inBridge(env, sessionId, jErrReport, [&](const NativeCall& call) {
        rtlPrivKciRtlFuncs->KciSetSessionId(sessionId);
        if (call.clientError()) [[unlikely]] {
            return call.failed();
        }
        return body(call);
    });
}
