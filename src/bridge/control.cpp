// The natives of TmqKciControl: breaks, transactions, and continuing without waiting. A client library may lack their
// entries.

#include "bridge/TmqKciInterface.h"

#include <type_traits>

#define TMQKCI_CONTROL(name) extern "C" TMQKCI_API jint JNICALL Java_com_kestrune_tmqkci_TmqKciControl__1##name

namespace {

template <class Result>
jint callEntry(JNIEnv* env, jint sessionId, jthrowable jErrReport, Result (*KciRtlJumpSType::*entry)(),
               const char* missing) {
    return inSession(env, sessionId, jErrReport, [&](const NativeCall& call) {
        // Not null once the bridge is up. NOLINTNEXTLINE(clang-analyzer-core.NullDereference)
        const auto function = rtlPrivKciRtlFuncs->*entry;
        if (function == nullptr) [[unlikely]] {
            return call.refused(missing);
        }
        jint result = 0;
        if constexpr (std::is_void_v<Result>) {
            function();
        } else {
            result = function() != FALSE ? 1 : 0;
        }
        return call.clientError() ? call.failed() : call.done(result);
    });
}

} // namespace

TMQKCI_CONTROL(softBreak)(JNIEnv* env, jclass, jint sessionId, jthrowable jErrReport) {
    TRACE_DEBUG("SoftBreak: %d\n", sessionId);
    return callEntry(env, sessionId, jErrReport, &KciRtlJumpSType::KciSoftBreak,
                     "softBreak(): the client library has no entry KciSoftBreak");
}

TMQKCI_CONTROL(hardBreak)(JNIEnv* env, jclass, jint sessionId, jthrowable jErrReport) {
    TRACE_DEBUG("HardBreak: %d\n", sessionId);
    return callEntry(env, sessionId, jErrReport, &KciRtlJumpSType::KciHardBreak,
                     "hardBreak(): the client library has no entry KciHardBreak");
}

TMQKCI_CONTROL(begin)(JNIEnv* env, jclass, jint sessionId, jthrowable jErrReport) {
    TRACE_DEBUG("Begin: %d\n", sessionId);
    return callEntry(env, sessionId, jErrReport, &KciRtlJumpSType::KciBegin,
                     "begin(): the client library has no entry KciBegin");
}

TMQKCI_CONTROL(commit)(JNIEnv* env, jclass, jint sessionId, jthrowable jErrReport) {
    TRACE_DEBUG("Commit: %d\n", sessionId);
    return callEntry(env, sessionId, jErrReport, &KciRtlJumpSType::KciCommit,
                     "commit(): the client library has no entry KciCommit");
}

TMQKCI_CONTROL(abort)(JNIEnv* env, jclass, jint sessionId, jthrowable jErrReport) {
    TRACE_DEBUG("Abort: %d\n", sessionId);
    return callEntry(env, sessionId, jErrReport, &KciRtlJumpSType::KciAbort,
                     "abort(): the client library has no entry KciAbort");
}

TMQKCI_CONTROL(nbContinue)
(JNIEnv* env, jclass, jint sessionId, jobject jProcess, jobject jValue, jthrowable jErrReport) {
    TRACE_DEBUG("NbContinue: %d\n", sessionId);
    return inSession(env, sessionId, jErrReport, [&](const NativeCall& call) {
        if (rtlPrivKciRtlFuncs->KciNbContinueWith == nullptr) [[unlikely]] {
            return call.done(1);
        }
        OopType process = KCI_OOP_NONE;
        if (const jint status = getOop(sessionId, jProcess, &process, jErrReport)) {
            return call.passedOn(status);
        }
        // The identifier 1 stands in for a value.
        OopType value = KCI_OOP_ILLEGAL;
        if (jValue != nullptr) {
            value = KCI_OOP_NONE;
            if (const jint status = getOop(sessionId, jValue, &value, jErrReport)) {
                return call.passedOn(status);
            }
        }
        // Errors of what is continued appear when _nbEnd polls.
        rtlPrivKciRtlFuncs->KciNbContinueWith(process, value, 0);
        return call.done(0);
    });
}
