#include "nativecall.h"

#include <algorithm>
#include <string.h>

KciErrSType KciError;

namespace {

constexpr int32_t genericErrorNumber = 2318;

// Errors can happen before _initialize has come to the error report's fields, or because one of them is missing: what
// is there is resolved here.
void resolveErrorFields(jobject jErrRpt) {
    if (argsFid != nullptr) {
        return;
    }
    jclass errorClass = ENV->GetObjectClass(jErrRpt);
    for (const JavaField& field : exceptionFields) {
        if (*field.fid == nullptr) {
            *field.fid = ENV->GetFieldID(errorClass, field.name, field.signature);
            if (*field.fid == nullptr) {
                ENV->ExceptionClear();
            }
        }
    }
    ENV->DeleteLocalRef(errorClass);
}

void traceError() {
    TRACE_DEBUG("    KCI ERROR: \n");
    TRACE_DEBUG("    Error:        %ld\n", static_cast<long>(KciError.number));
    TRACE_DEBUG("    Message:      %s\n", KciError.message);
    TRACE_DEBUG("    Category Oop: %ld\n", shown(KciError.category));
    TRACE_DEBUG("    Context Oop:  %ld\n", shown(KciError.context));
    TRACE_DEBUG("    FatalFlag:    %d\n", KciError.fatal);
    TRACE_DEBUG("    Number Args:  %ld\n", static_cast<long>(KciError.argCount));
    for (int i = 0; i < KciError.argCount; ++i) {
        TRACE_DEBUG("        ArgOop[%d]:  %ld\n", i, shown(KciError.args[i]));
    }
}

jint errorNotAllocated() {
    TRACE_DEBUG("    Allocation Error return\n");
    TRACE_DEBUG("    Returning: %d\n", -2);
    ReleaseStrings();
    return -2;
}

} // namespace

jint setupError(jobject jErrRpt) {
    // The client library guarantees both; a record that breaks them must not be read beyond its end.
    KciError.argCount = std::clamp(KciError.argCount, 0, KCI_ERR_MAX_ARGS);
    KciError.message[KCI_ERR_MESSAGE_SIZE - 1] = '\0';
    if (Debug) [[unlikely]] {
        traceError();
    }
    if (jErrRpt == nullptr) {
        return 0;
    }
    resolveErrorFields(jErrRpt);
    const auto set = [&](jfieldID fid, auto setter, auto value) {
        if (fid != nullptr) {
            (ENV->*setter)(jErrRpt, fid, value);
        }
    };
    set(numberFid, &JNIEnv::SetIntField, KciError.number);
    set(categoryFid, &JNIEnv::SetLongField, static_cast<jlong>(KciError.category));
    set(contextFid, &JNIEnv::SetLongField, static_cast<jlong>(KciError.context));
    set(fatalFid, &JNIEnv::SetBooleanField, static_cast<jboolean>(KciError.fatal));
    set(argCountFid, &JNIEnv::SetIntField, KciError.argCount);

    jstring message = ENV->NewStringUTF(KciError.message);
    if (message == nullptr) {
        return errorNotAllocated();
    }
    set(messageFid, &JNIEnv::SetObjectField, message);

    jlongArray args = ENV->NewLongArray(KciError.argCount);
    if (args == nullptr) {
        return errorNotAllocated();
    }
    // Not staged in jlongBuf, which may not exist yet or be smaller than this.
    jlong staged[KCI_ERR_MAX_ARGS];
    std::copy_n(KciError.args, KciError.argCount, staged);
    ENV->SetLongArrayRegion(args, 0, KciError.argCount, staged);
    set(argsFid, &JNIEnv::SetObjectField, args);
    return 0;
}

jint genericError(jobject errRpt, const char* message) {
    TRACE_DEBUG("    GENERIC ERROR: %s\n", message);
    KciError.number = genericErrorNumber;
    const size_t length = strnlen(message, KCI_ERR_MESSAGE_SIZE - 1);
    memcpy(KciError.message, message, length);
    KciError.message[length] = '\0';
    KciError.category = KCI_OOP_NIL;
    KciError.context = KCI_OOP_NIL;
    KciError.fatal = FALSE;
    KciError.argCount = 0;
    return setupError(errRpt);
}

jint clientErrorFound(jobject errRpt) {
    setupError(errRpt);
    return 1;
}

TMQKCI_NATIVE(checkErrors)(JNIEnv* env, jclass, jint sessionId, jthrowable jErrReport) {
    TRACE_DEBUG("CheckErrors: %d\n", sessionId);
    return inSession(env, sessionId, jErrReport, [](const NativeCall& call) {
        rtlPrivKciRtlFuncs->KciPollForSignal();
        if (call.clientError()) {
            return call.failed();
        }
        TRACE_DEBUG("checkErrors completed.\n");
        return call.done(0);
    });
}
