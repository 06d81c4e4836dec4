// Natives of com.kestrune.tmqkci.KciMessages: the message catalogue for Java.
#include "bridge/fields.h"
#include "errmsg.h"
#include "javasupport/faultreports.h"
#include "javasupport/utf16text.h"

#include <jni.h>
#include <pthread.h>

#include <algorithm>
#include <cstdio>

namespace {

// What this library's natives read and call. It holds no reference to a class: one would keep the class loader, and
// with it this library, for ever. The identifiers stay good nonetheless, for as long as the library is loaded its class
// loader is there, and so are the classes that this one finds.
struct JavaIds {
    jfieldID error[argsField + 1]; // by ExceptionField
    jmethodID print;
};

JavaIds ids;
pthread_mutex_t idsMutex = PTHREAD_MUTEX_INITIALIZER;
bool idsResolved;

bool lookUpIds(JNIEnv* env, JavaIds& found) {
    const jclass exceptionClass = env->FindClass(exceptionClassName);
    if (exceptionClass == nullptr) {
        return false;
    }
    for (size_t i = 0; i < exceptionFields.size(); ++i) {
        found.error[i] = env->GetFieldID(exceptionClass, exceptionFields[i].name, exceptionFields[i].signature);
        if (found.error[i] == nullptr) {
            return false;
        }
    }
    const jclass printerClass = env->FindClass("com/kestrune/tmqkci/KciMessages$ObjectPrinter");
    if (printerClass == nullptr) {
        return false;
    }
    found.print = env->GetMethodID(printerClass, "print", "(J)Ljava/lang/String;");
    return found.print != nullptr;
}

// FALSE with the virtual machine's own error pending, which names the class or member that is missing.
bool resolveIds(JNIEnv* env) {
    pthread_mutex_lock(&idsMutex);
    if (!idsResolved) {
        idsResolved = lookUpIds(env, ids);
    }
    const bool resolved = idsResolved;
    pthread_mutex_unlock(&idsMutex);
    return resolved;
}

// Opens the catalogue for a process that has not done so. A damaged one must not end or stall a virtual machine: its
// fatal reports return at once.
void prepareCatalogue() {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, [] {
        if (!ErrUtlIsUp()) {
            ErrMsgInit();
        }
    });
    keepVirtualMachineAlive();
}

// NULL with an OutOfMemoryError pending.
jstring toJava(JNIEnv* env, Utf16Text& text) {
    text.finish();
    if (text.failed()) {
        const jclass error = env->FindClass("java/lang/OutOfMemoryError");
        if (error != nullptr) {
            env->ThrowNew(error, "no memory for a message");
            env->DeleteLocalRef(error);
        }
        return nullptr;
    }
    constexpr jchar nothing = 0;
    return env->NewString(text.size() > 0 ? text.data() : &nothing, static_cast<jsize>(text.size()));
}

// The report under way on this thread: the catalogue's callbacks carry no argument of ours.
struct Report {
    JNIEnv* env;
    jobject printer;
    Utf16Text text;
};
thread_local Report* report;

void collect(const char* text) {
    report->text.appendUtf8(text);
}

void printIdentifier(ErrMsgPrinterFuncType* printer, OopType object) {
    char text[16];
    snprintf(text, sizeof text, "%lu", static_cast<unsigned long>(object));
    printer(text);
}

void printObject(ErrMsgPrinterFuncType* printer, OopType object) {
    JNIEnv* const env = report->env;
    // After a failure of the Java printer the rest is only gone through.
    if (report->printer == nullptr || env->ExceptionCheck()) {
        printIdentifier(printer, object);
        return;
    }
    // The Java printer may ask for a report of its own.
    Report* const outer = report;
    auto* const shown =
        static_cast<jstring>(env->CallObjectMethod(outer->printer, ids.print, static_cast<jlong>(object)));
    report = outer;
    if (env->ExceptionCheck()) {
        return;
    }
    if (shown == nullptr) {
        printIdentifier(printer, object);
        return;
    }
    const jsize length = env->GetStringLength(shown);
    jchar* const place = report->text.extend(static_cast<size_t>(length));
    if (place != nullptr) {
        env->GetStringRegion(shown, 0, length, place);
    }
    env->DeleteLocalRef(shown);
}

void readMessage(JNIEnv* env, jobject error, KciErrSType& record) {
    auto* const message = static_cast<jstring>(env->GetObjectField(error, ids.error[messageField]));
    if (message == nullptr) {
        return;
    }
    jchar units[KCI_ERR_MESSAGE_SIZE];
    const jsize count = std::min(env->GetStringLength(message), static_cast<jsize>(KCI_ERR_MESSAGE_SIZE));
    env->GetStringRegion(message, 0, count, units);
    utf16ToUtf8(units, static_cast<size_t>(count), record.message, sizeof record.message);
    env->DeleteLocalRef(message);
}

void readArguments(JNIEnv* env, jobject error, KciErrSType& record) {
    record.argCount = 0;
    auto* const args = static_cast<jlongArray>(env->GetObjectField(error, ids.error[argsField]));
    if (args == nullptr) {
        return;
    }
    jlong values[KCI_ERR_MAX_ARGS];
    const jsize count =
        std::clamp<jsize>(std::min<jsize>(env->GetIntField(error, ids.error[argCountField]), env->GetArrayLength(args)),
                          0, KCI_ERR_MAX_ARGS);
    env->GetLongArrayRegion(args, 0, count, values);
    env->DeleteLocalRef(args);
    for (jsize i = 0; i < count; ++i) {
        record.args[i] = static_cast<OopType>(values[i]);
    }
    record.argCount = count;
}

KciErrSType readError(JNIEnv* env, jobject error) {
    KciErrSType record{};
    record.category = static_cast<OopType>(env->GetLongField(error, ids.error[categoryField]));
    record.number = env->GetIntField(error, ids.error[numberField]);
    record.context = static_cast<OopType>(env->GetLongField(error, ids.error[contextField]));
    record.fatal = env->GetBooleanField(error, ids.error[fatalField]) ? TRUE : FALSE;
    readMessage(env, error, record);
    readArguments(env, error, record);
    return record;
}

} // namespace

TMQKCI_C_BEGIN

TMQKCI_API jstring Java_com_kestrune_tmqkci_KciMessages_text(JNIEnv* env, jclass, jlong category, jint number) {
    prepareCatalogue();
    ErrMsgStrType message;
    ErrMsgToTxt(static_cast<OopType>(category), number, message, sizeof message);
    Utf16Text text;
    text.appendUtf8(message);
    return toJava(env, text);
}

TMQKCI_API jstring Java_com_kestrune_tmqkci_KciMessages_render(JNIEnv* env, jclass, jobject error, jint errorNumber,
                                                               jboolean displayOops, jint errorsInProgress,
                                                               jobject printer) {
    if (!resolveIds(env)) {
        return nullptr;
    }
    prepareCatalogue();
    const KciErrSType record = readError(env, error);
    Report here{env, printer, {}};
    Report* const outer = report;
    report = &here;
    ErrMsgWriteError(collect, printObject, &record, errorNumber, displayOops ? TRUE : FALSE, errorsInProgress);
    report = outer;
    return env->ExceptionCheck() ? nullptr : toJava(env, here.text);
}

TMQKCI_C_END
