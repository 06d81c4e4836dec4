// What each measured native method has to do at the least: the JNI calls and client calls that its contract asks for,
// one after the other, without tracing, limits or helpers.

#include "kcitable.h"

#include <dlfcn.h>
#include <jni.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#define STRAIGHT(name) extern "C" TMQKCI_API jint JNICALL Java_com_kestrune_tmqkci_TmqKciInterface__1##name

namespace {

struct Field {
    const char* name;
    const char* signature;
};
enum ReportField {
    oop,
    classOop,
    classHistoryOop,
    objType,
    namedSize,
    indexedSize,
    isCollection,
    isString,
    isDBString,
    valueType,
    valueInt1,
    valueInt2,
    valueLong,
    valueDouble,
    valueBytes,
    valueLongs,
    valueString,
    reportFieldCount
};
constexpr Field reportFields[] = {{"oop", "J"},
                                  {"classOop", "J"},
                                  {"classHistoryOop", "J"},
                                  {"objType", "B"},
                                  {"namedSize", "I"},
                                  {"indexedSize", "J"},
                                  {"isCollection", "Z"},
                                  {"isString", "Z"},
                                  {"isDBString", "Z"},
                                  {"valueType", "B"},
                                  {"valueInt1", "I"},
                                  {"valueInt2", "I"},
                                  {"valueLong", "J"},
                                  {"valueDouble", "D"},
                                  {"valueBytes", "[B"},
                                  {"valueLongs", "[J"},
                                  {"valueString", "Ljava/lang/String;"}};
constexpr Field exceptionFields[] = {{"number", "I"},   {"message", "Ljava/lang/String;"},
                                     {"category", "J"}, {"context", "J"},
                                     {"fatal", "Z"},    {"argCount", "I"},
                                     {"args", "[J"}};
constexpr Field statsFields[] = {
    {"type", "I"}, {"name", "Ljava/lang/String;"}, {"pid", "J"}, {"sid", "J"}, {"stats32", "[I"}, {"stats64", "[J"}};
constexpr jlong kernelTable[] = {10, 1189, 3613, 3,    7,    -536870912, 536870911, 38,
                                 6,  1733, 1045, 1049, 1197, 1209,       1213,      0};

const KciRtlJumpSType* kci;
KciErrSType error;
jfieldID fid[reportFieldCount];
jfieldID exceptionFid[7], statsFid[6];
jclass statsClass;
int preloadBytes, preloadOops;
ByteType* byteBuf;
OopType* oopBuf;
jlong* jlongBuf;

bool failed() {
    return kci->KciErr(&error);
}

OopType oopOf(JNIEnv* env, jobject report) {
    env->GetByteField(report, fid[objType]);
    return static_cast<OopType>(env->GetLongField(report, fid[oop]));
}

jint describe(JNIEnv* env, OopType object, jobject report) {
    env->GetByteField(report, fid[valueType]);
    env->SetLongField(report, fid[oop], object);
    kci->KciSaveObjs(&object, 1);
    return failed() ? -1 : 0;
}

jint describeFully(JNIEnv* env, OopType object, jobject report) {
    if (describe(env, object, report) != 0) {
        return -1;
    }
    KciObjInfoSType info = {};
    ArraySizeType fetched = 0;
    if (!kci->KciFetchObjInfo(object, 1, static_cast<ArraySizeType>(preloadBytes), &info, byteBuf, &fetched)) {
        return -1;
    }
    env->SetLongField(report, fid[classOop], info.objClass);
    const OopType history = kci->KciFetchNamedOop(info.objClass, 12);
    kci->KciErr(&error);
    env->SetLongField(report, fid[classHistoryOop], history);
    env->SetIntField(report, fid[namedSize], info.namedSize);
    env->SetLongField(report, fid[indexedSize], info.objSize - info.namedSize);
    env->SetByteField(report, fid[objType], static_cast<jbyte>(info.objImpl));
    env->SetBooleanField(report, fid[isCollection], static_cast<jboolean>(info.isIndexable));
    jbyte code = 0;
    if (info.objImpl == KCI_IMPL_BYTE) {
        const jint count = std::min(info.objSize - info.namedSize, preloadBytes);
        jbyteArray bytes = env->NewByteArray(count);
        env->SetByteArrayRegion(bytes, 0, count, reinterpret_cast<const jbyte*>(byteBuf));
        env->SetObjectField(report, fid[valueBytes], bytes);
        code = 5;
        if (kci->KciIsKindOf(object, KCI_CLASS_STRING_KIND)) {
            code = 7;
            env->SetBooleanField(report, fid[isString], JNI_TRUE);
            if (kci->KciIsKindOf(object, KCI_CLASS_DB_STRING)) {
                code = 8;
            }
        }
    } else {
        const jint count = std::min(info.objSize, preloadOops);
        std::copy_n(reinterpret_cast<const OopType*>(byteBuf), count, jlongBuf);
        jlongArray longs = env->NewLongArray(count);
        env->SetLongArrayRegion(longs, 0, count, jlongBuf);
        env->SetObjectField(report, fid[valueLongs], longs);
        code = 6;
    }
    env->SetByteField(report, fid[valueType], code);
    return failed() ? -1 : 0;
}

jint describeSmallInteger(JNIEnv* env, OopType object, jobject report) {
    env->GetByteField(report, fid[valueType]);
    env->SetLongField(report, fid[oop], object);
    env->SetByteField(report, fid[objType], KCI_IMPL_SPECIAL);
    if (failed()) {
        return -1;
    }
    env->SetByteField(report, fid[valueType], 3);
    env->SetLongField(report, fid[valueLong], static_cast<KciLong>(object) >> 2);
    return 0;
}

template <size_t count>
void resolve(JNIEnv* env, jclass cls, const Field (&fields)[count], jfieldID* ids) {
    for (size_t i = 0; i < count; ++i) {
        ids[i] = env->GetFieldID(cls, fields[i].name, fields[i].signature);
    }
}

} // namespace

STRAIGHT(initialize)
(JNIEnv* env, jclass, jint, jstring jAppName, jint bufSize, jint preloadSize, jint, jlongArray kernelOops, jthrowable) {
    preloadBytes = preloadSize;
    preloadOops = preloadSize / 4;
    jclass cls = env->FindClass("com/kestrune/tmqkci/TmqKciReport");
    resolve(env, cls, reportFields, fid);
    env->DeleteLocalRef(cls);
    cls = env->FindClass("com/kestrune/tmqkci/TmqKciException");
    resolve(env, cls, exceptionFields, exceptionFid);
    env->DeleteLocalRef(cls);
    cls = env->FindClass("com/kestrune/tmqkci/TmqKciCacheStats");
    statsClass = static_cast<jclass>(env->NewGlobalRef(cls));
    resolve(env, cls, statsFields, statsFid);

    char path[1024] = "";
    std::strcat(std::strcat(path, getenv("KESTRUNE")), "/lib/libkcilnk");
    std::strcat(std::strcat(path, getenv("KCIRTL_VERSION")), ".so");
    void* library = dlopen(path, RTLD_LAZY | RTLD_GLOBAL | RTLD_DEEPBIND);
    kci = reinterpret_cast<KciGetRtlTableFuncPtr>(dlsym(library, "KciGetRtlTable"))();
    if (kci->KciProduct() != 1 || std::strcmp(kci->KciVersion(), "6.7") < 0) {
        return -1;
    }
    const char* name = env->GetStringUTFChars(jAppName, nullptr);
    kci->KciInitAppName(name, TRUE);
    if (!kci->KciInit()) {
        return -1;
    }
    byteBuf = static_cast<ByteType*>(malloc(static_cast<size_t>(bufSize)));
    oopBuf = static_cast<OopType*>(malloc(static_cast<size_t>(bufSize)));
    jlongBuf = static_cast<jlong*>(malloc(static_cast<size_t>(bufSize) * 2));
    env->SetLongArrayRegion(kernelOops, 0, 16, kernelTable);
    env->ReleaseStringUTFChars(jAppName, name);
    return 32;
}

STRAIGHT(isKindOf)(JNIEnv* env, jclass, jint session, jobject object, jobject cls, jthrowable) {
    kci->KciSetSessionId(session);
    if (failed()) {
        return -1;
    }
    const OopType objectOop = oopOf(env, object);
    const OopType classOop = oopOf(env, cls);
    const BoolType isKind = kci->KciIsKindOf(objectOop, classOop);
    return failed() ? -1 : isKind;
}

STRAIGHT(setup)(JNIEnv* env, jclass, jint session, jobject report, jthrowable) {
    kci->KciSetSessionId(session);
    if (failed()) {
        return -1;
    }
    return describeFully(env, static_cast<OopType>(env->GetLongField(report, fid[oop])), report);
}

STRAIGHT(getObjs)
(JNIEnv* env, jclass, jint session, jobject object, jlong start, jint count, jobjectArray reports, jthrowable) {
    kci->KciSetSessionId(session);
    if (failed() || env->GetArrayLength(reports) < count) {
        return -1;
    }
    const KciLong fetched = kci->KciFetchVaryingOops(oopOf(env, object), static_cast<KciLong>(start), oopBuf,
                                                     static_cast<ArraySizeType>(count));
    if (failed()) {
        return -1;
    }
    for (jint i = 0; i < fetched; ++i) {
        jobject report = env->GetObjectArrayElement(reports, i);
        if (describe(env, oopBuf[i], report) != 0) {
            return -1;
        }
        env->DeleteLocalRef(report);
    }
    return fetched;
}

STRAIGHT(getBytes)
(JNIEnv* env, jclass, jint session, jobject object, jlong start, jint count, jbyteArray bytes, jthrowable) {
    kci->KciSetSessionId(session);
    if (failed() || env->GetArrayLength(bytes) < count) {
        return -1;
    }
    const OopType receiver = oopOf(env, object);
    jbyte* elements = env->GetByteArrayElements(bytes, nullptr);
    const KciLong fetched =
        kci->KciFetchBytes(receiver, static_cast<KciLong>(start), reinterpret_cast<ByteType*>(elements),
                           static_cast<ArraySizeType>(count));
    if (failed()) {
        return -1;
    }
    env->ReleaseByteArrayElements(bytes, elements, 0);
    return fetched;
}

STRAIGHT(perform)
(JNIEnv* env, jclass, jint session, jobject receiver, jstring jSelector, jobjectArray args, jint count, jthrowable) {
    kci->KciSetSessionId(session);
    if (failed() || env->GetArrayLength(args) < count) {
        return -1;
    }
    const OopType receiverOop = oopOf(env, receiver);
    OopType argOops[20];
    for (jint i = 0; i < count; ++i) {
        argOops[i] = oopOf(env, env->GetObjectArrayElement(args, i));
    }
    const char* selector = env->GetStringUTFChars(jSelector, nullptr);
    kci->KciNbPerform(receiverOop, selector, argOops, static_cast<ArraySizeType>(count));
    env->ReleaseStringUTFChars(jSelector, selector);
    return 0;
}

STRAIGHT(nbEnd)(JNIEnv* env, jclass, jint session, jobject report, jthrowable) {
    kci->KciSetSessionId(session);
    void* result = nullptr;
    if (failed() || kci->KciNbEnd(&result) != KCI_RESULT_READY || failed()) {
        return -1;
    }
    const OopType object = *static_cast<OopType*>(result);
    return (object & 3) == 3 ? describeSmallInteger(env, object, report) : describeFully(env, object, report);
}
