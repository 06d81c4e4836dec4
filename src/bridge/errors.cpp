#include "bridge/errors.h"

#include "bridge/fields.h"
#include "bridge/state.h"

#include <algorithm>
#include <cstring>

KciErrSType KciError;

namespace {

constexpr int32_t genericErrorNumber = 2318;

// The fields of one error report. Errors can happen before _initialize has come to them, or because one of them is
// missing: what is there is resolved here. That is done on the class itself, for a subclass may hide a field; where
// Java cannot find that, on the report's own, for this report only.
class ErrorFields {
public:
    explicit ErrorFields(jobject report) {
        if (argsFid != nullptr) [[likely]] {
            return;
        }
        jclass errorClass = ENV->FindClass(exceptionClassName);
        if (errorClass == nullptr) {
            ENV->ExceptionClear();
            errorClass = ENV->GetObjectClass(report);
            forgets = true;
        }
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
    ~ErrorFields() {
        for (const JavaField& field : exceptionFields) {
            if (forgets) {
                *field.fid = nullptr;
            }
        }
    }
    ErrorFields(const ErrorFields&) = delete;
    ErrorFields& operator=(const ErrorFields&) = delete;

private:
    bool forgets = false;
};

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

} // namespace

jint setupError(jobject jErrRpt) {
    // The client library guarantees both; a record that breaks them must not be read beyond its end.
    KciError.argCount = std::clamp(KciError.argCount, 0, KCI_ERR_MAX_ARGS);
    KciError.message[KCI_ERR_MESSAGE_SIZE - 1] = '\0';
    traceError();
    if (jErrRpt == nullptr) {
        return 0;
    }
    const ErrorFields fields(jErrRpt);
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
        return leave(allocationFailure());
    }
    set(messageFid, &JNIEnv::SetObjectField, message);

    jlongArray args = ENV->NewLongArray(KciError.argCount);
    if (args == nullptr) {
        return leave(allocationFailure());
    }
    // Not staged in jlongBuf, which may not exist yet or be smaller than this.
    jlong staged[KCI_ERR_MAX_ARGS];
    std::copy_n(KciError.args, KciError.argCount, staged);
    ENV->SetLongArrayRegion(args, 0, KciError.argCount, staged);
    set(argsFid, &JNIEnv::SetObjectField, args);
    return 0;
}

void setBridgeError(int32_t number, const char* message, std::initializer_list<OopType> args) {
    KciError.category = KCI_OOP_NIL;
    KciError.number = number;
    KciError.context = KCI_OOP_NIL;
    size_t length = strlen(message);
    if (length >= KCI_ERR_MESSAGE_SIZE) {
        length = KCI_ERR_MESSAGE_SIZE - 1;
        while (length > 0 && (static_cast<ByteType>(message[length]) & 0xC0) == 0x80) {
            --length;
        }
    }
    memcpy(KciError.message, message, length);
    KciError.message[length] = '\0';
    std::copy(args.begin(), args.end(), KciError.args);
    KciError.argCount = static_cast<int32_t>(args.size());
    KciError.fatal = FALSE;
}

jint genericError(jobject errRpt, const char* message) {
    TRACE_DEBUG("    GENERIC ERROR: %s\n", message);
    setBridgeError(genericErrorNumber, message);
    return setupError(errRpt);
}

jint clientFailure(KciSessionIdType sessionId) {
    TRACE_DEBUG("    Session: %d\n", sessionId);
    return -1;
}

jint genericFailure(jobject errRpt, const char* message) {
    genericError(errRpt, message);
    TRACE_DEBUG("    Generic Error return: %s\n", message);
    return -1;
}

jint allocationFailure() {
    TRACE_DEBUG("    Allocation Error return\n");
    return -2;
}

jint clientErrorFound(jobject errRpt) {
    setupError(errRpt);
    return 1;
}
