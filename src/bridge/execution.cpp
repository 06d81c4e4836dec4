// Running code: starting calls, polling for their end, continuing suspended processes.

#include "bridge/TmqKciInterface.h"

#include <cstdio>

namespace {

constexpr jint maxArguments = 20;
constexpr OopType symbolList = KCI_OOP_NIL;
constexpr int32_t errorContinueNumber = 2372;
constexpr OopType errorContinueArgument = 2318;

// A new server string with the contents of a borrowed Java string. FALSE when the client library has an error.
bool newServerString(const NativeCall& call, jstring jstr, const char* text, OopType* oop) {
    const jsize length = ENV->GetStringUTFLength(jstr);
    *oop = rtlPrivKciRtlFuncs->KciNewOop(KCI_CLASS_STRING);
    if (call.clientError()) {
        return false;
    }
    rtlPrivKciRtlFuncs->KciStoreBytesInstanceOf(KCI_OOP_NIL, *oop, 1, reinterpret_cast<const ByteType*>(text),
                                                static_cast<ArraySizeType>(length));
    return !call.clientError();
}

Exit errorContinue(const NativeCall& call, jstring jErrMsg, jstring jErrStk, jobject jErrReport) {
    TRACE_DEBUG("Error continue\n");
    const char* errMsg = GetString(jErrMsg);
    if (errMsg == nullptr) {
        return call.notLent();
    }
    TRACE_DEBUG("Error message: %s\n", errMsg);
    OopType errMsgOop = KCI_OOP_NONE;
    if (!newServerString(call, jErrMsg, errMsg, &errMsgOop)) {
        return call.failed();
    }
    const char* errStk = GetString(jErrStk);
    if (errStk == nullptr) {
        return call.notLent();
    }
    TRACE_DEBUG("Error stack: \n%s\n", errStk);
    OopType errStkOop = KCI_OOP_NONE;
    if (!newServerString(call, jErrStk, errStk, &errStkOop)) {
        return call.failed();
    }
    setBridgeError(errorContinueNumber, errMsg, {errorContinueArgument, errMsgOop, errStkOop});
    setupError(jErrReport);
    return call.done(-1);
}

} // namespace

TMQKCI_NATIVE(executeStr)(JNIEnv* env, jclass, jint sessionId, jstring jExecStr, jthrowable jErrReport) {
    TRACE_DEBUG("ExecuteStr: %d\n", sessionId);
    return inSession(env, sessionId, jErrReport, [&](const NativeCall& call) {
        const char* execStr = GetString(jExecStr);
        if (execStr == nullptr) {
            return call.notLent();
        }
        TRACE_DEBUG("    Execute Str = '%s'\n", execStr);
        // Errors of the execution appear when _nbEnd polls.
        rtlPrivKciRtlFuncs->KciNbExecuteStr(execStr, symbolList);
        return call.done(0);
    });
}

TMQKCI_NATIVE(executeObj)(JNIEnv* env, jclass, jint sessionId, jobject jexeObj, jthrowable jErrReport) {
    TRACE_DEBUG("ExecuteObj: %d\n", sessionId);
    return inSession(env, sessionId, jErrReport, [&](const NativeCall& call) {
        OopType execStrOop = KCI_OOP_NONE;
        if (const jint status = getOop(sessionId, jexeObj, &execStrOop, jErrReport)) {
            return call.passedOn(status);
        }
        TRACE_DEBUG("     Execute str oop = %ld\n", shown(execStrOop));
        rtlPrivKciRtlFuncs->KciNbExecute(execStrOop, symbolList);
        return call.done(0);
    });
}

TMQKCI_NATIVE(perform)
(JNIEnv* env, jclass, jint sessionId, jobject jReceiver, jstring jSelector, jobjectArray jArgs, jint numArgs,
 jthrowable jErrReport) {
    TRACE_DEBUG("Perform: %d\n", sessionId);
    return inSession(env, sessionId, jErrReport, [&](const NativeCall& call) {
        if (numArgs > maxArguments) [[unlikely]] {
            return call.refused("perform(): numArgs exceeds 20");
        }
        if (numArgs < 0) [[unlikely]] {
            return call.refused("perform(): numArgs < 0");
        }
        if (numArgs > 0 && jArgs == nullptr) [[unlikely]] {
            return call.refused("perform(): NULL argument array");
        }
        if (numArgs > 0 && ENV->GetArrayLength(jArgs) < numArgs) [[unlikely]] {
            return call.refused("perform(): jArgs is shorter than numArgs");
        }
        OopType receiver = KCI_OOP_NONE;
        if (const jint status = getOop(sessionId, jReceiver, &receiver, jErrReport)) {
            return call.passedOn(status);
        }
        TRACE_DEBUG("    Receiver = %ld\n", shown(receiver));
        TRACE_DEBUG("    NumArgs = %d\n", numArgs);
        OopType args[maxArguments];
        for (jint i = 0; i < numArgs; ++i) {
            jobject jarg = ENV->GetObjectArrayElement(jArgs, i);
            if (jarg == nullptr) [[unlikely]] {
                ENV->ExceptionClear();
                return call.refused("Problem with GetObjectArrayElement in perform()");
            }
            TRACE_DEBUG("    jarg[%d] = %lld\n", i, referenceValue(jarg));
            args[i] = KCI_OOP_NONE;
            if (const jint status = getOop(sessionId, jarg, &args[i], jErrReport)) {
                return call.passedOn(status);
            }
            TRACE_DEBUG("    arg[%d] = %ld\n", i, shown(args[i]));
        }
        const char* selector = GetString(jSelector);
        if (selector == nullptr) {
            return call.notLent();
        }
        TRACE_DEBUG("    Selector = %s\n", selector);
        rtlPrivKciRtlFuncs->KciNbPerform(receiver, selector, args, static_cast<ArraySizeType>(numArgs));
        return call.done(0);
    });
}

TMQKCI_NATIVE(nbEnd)(JNIEnv* env, jclass, jint sessionId, jobject result, jthrowable jErrReport) {
    TRACE_DEBUG("NbEnd: %d ", sessionId);
    return inSession(env, sessionId, jErrReport, [&](const NativeCall& call) {
        if (result == nullptr) [[unlikely]] {
            return call.refused("nbEnd(): NULL result argument");
        }
        void* resultPtr = nullptr;
        // A client library may answer more than the enumeration names.
        const int32_t end = rtlPrivKciRtlFuncs->KciNbEnd(&resultPtr);
        if (end != KCI_RESULT_READY) {
            // These two complete the line begun above.
            if (Debug) [[unlikely]] {
                printf("/ not ready: %d.\n", end);
            }
            return call.notReady();
        }
        if (Debug) [[unlikely]] {
            printf("\n");
        }
        if (call.clientError()) {
            return call.failed();
        }
        if (resultPtr == nullptr) [[unlikely]] {
            return call.refused("Failure in KciNbEnd() call");
        }
        const OopType resultOop = *static_cast<const OopType*>(resultPtr);
        return call.done(setupReport(sessionId, resultOop, result, jErrReport, TRUE));
    });
}

TMQKCI_NATIVE(continue)
(JNIEnv* env, jclass, jint sessionId, jobject jProcess, jboolean errFlag, jobject jStResult, jobject jJvResult,
 jstring jErrMsg, jstring jErrStk, jthrowable jErrReport) {
    TRACE_DEBUG("Continue: %d\n", sessionId);
    return inSession(env, sessionId, jErrReport, [&](const NativeCall& call) {
        OopType process = KCI_OOP_NONE;
        if (const jint status = getOop(sessionId, jProcess, &process, jErrReport)) {
            return call.passedOn(status);
        }
        if (errFlag) {
            return errorContinue(call, jErrMsg, jErrStk, jErrReport);
        }
        TRACE_DEBUG("Normal continue\n");
        if (jJvResult == nullptr) [[unlikely]] {
            return call.refused("continue(): NULL result argument");
        }
        // The identifier 1 stands in for a value.
        OopType stResult = KCI_OOP_ILLEGAL;
        if (jStResult != nullptr) {
            stResult = KCI_OOP_NONE;
            if (const jint status = getOop(sessionId, jStResult, &stResult, jErrReport)) {
                return call.passedOn(status);
            }
        }
        const OopType result = rtlPrivKciRtlFuncs->KciContinueWith(process, stResult, 0, nullptr);
        if (call.clientError()) {
            return call.failed();
        }
        TRACE_DEBUG("Continue: oop result = %ld\n", shown(result));
        return call.done(setupReport(sessionId, result, jJvResult, jErrReport, TRUE));
    });
}

TMQKCI_NATIVE(isKindOf)(JNIEnv* env, jclass, jint sessionId, jobject jobj, jobject jcls, jthrowable jErrReport) {
    TRACE_DEBUG("isKindOf: %d\n", sessionId);
    return inSession(env, sessionId, jErrReport, [&](const NativeCall& call) {
        OopType obj = KCI_OOP_NONE;
        if (const jint status = getOop(sessionId, jobj, &obj, jErrReport)) {
            return call.passedOn(status);
        }
        OopType cls = KCI_OOP_NONE;
        if (const jint status = getOop(sessionId, jcls, &cls, jErrReport)) {
            return call.passedOn(status);
        }
        const BoolType isKind = rtlPrivKciRtlFuncs->KciIsKindOf(obj, cls);
        if (call.clientError()) {
            return call.failed();
        }
        TRACE_DEBUG("isKindOf completed.\n");
        return call.done(isKind);
    });
}
