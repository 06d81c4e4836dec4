// Reading and writing the contents of an object in bulk.

#include "bridge/TmqKciInterface.h"

#include <algorithm>

namespace {

// The texts in which the six methods differ.
struct TransferTexts {
    const char* startBelowOne;
    ArrayTexts array;
    const char* nullElement;
    const char* completed;
};

// One transfer; a method that came through checked() may touch the object and the first `count` array elements.
struct Transfer {
    const NativeCall& call;
    const TransferTexts& texts;
    const jint sessionId;
    const jobject jErrReport;
    const jobject jobj;
    const jlong startIndex;
    const jint count;

    // The client takes the low 32 bits.
    [[nodiscard]] KciLong clientStart() const { return static_cast<KciLong>(startIndex); }
    [[nodiscard]] ArraySizeType clientCount() const { return static_cast<ArraySizeType>(count); }

    // The checks that come before the receiver is converted, in their order: NULL, or the reason to refuse.
    [[nodiscard]] const char* problem(jint limit, jarray array, EmptyRequest empty) const {
        if (startIndex < 1) [[unlikely]] {
            return texts.startBelowOne;
        }
        return arrayProblem(texts.array, count, limit, array, empty);
    }

    // Checks, converts the receiver, then runs body(receiver).
    template <class Body>
    Exit checked(jint limit, jarray array, EmptyRequest empty, Body body) const {
        if (const char* reason = problem(limit, array, empty)) [[unlikely]] {
            return call.refused(reason);
        }
        OopType receiver = KCI_OOP_NONE;
        if (const jint status = getOop(sessionId, jobj, &receiver, jErrReport)) [[unlikely]] {
            return call.passedOn(status);
        }
        return body(receiver);
    }

    // The element, as a local reference, or null with Java's own exception cleared.
    static jobject element(jobjectArray jobjs, jint index) {
        jobject obj = ENV->GetObjectArrayElement(jobjs, index);
        if (obj == nullptr) [[unlikely]] {
            ENV->ExceptionClear();
        }
        return obj;
    }

    // Describes what the client fetched into oopBuf.
    Exit describeFetched(jobjectArray jobjs, KciLong fetched) const {
        // A client that claims more than it was asked for is not believed.
        fetched = std::min(fetched, count);
        for (KciLong i = 0; i < fetched; ++i) {
            jobject obj = element(jobjs, i);
            if (obj == nullptr) [[unlikely]] {
                return call.refused(texts.nullElement);
            }
            const jint status = setupReport(sessionId, oopBuf[i], obj, jErrReport, FALSE);
            ENV->DeleteLocalRef(obj);
            if (status != 0) [[unlikely]] {
                return call.done(status);
            }
        }
        TRACE_DEBUG("%s\n", texts.completed);
        return call.done(fetched);
    }

    // Converts `count` elements into oopBuf, hands them to store(receiver) and ends the method.
    template <class Store>
    Exit storeElements(jobjectArray jobjs, Store store) const {
        return checked(BufSizeOops, jobjs, EmptyRequest::leavesArray, [&](OopType receiver) {
            for (jint i = 0; i < count; ++i) {
                jobject obj = element(jobjs, i);
                if (obj == nullptr) [[unlikely]] {
                    return call.refused(texts.nullElement);
                }
                oopBuf[i] = KCI_OOP_NONE;
                const jint status = getOop(sessionId, obj, &oopBuf[i], jErrReport);
                ENV->DeleteLocalRef(obj);
                if (status != 0) [[unlikely]] {
                    return call.passedOn(status);
                }
            }
            store(receiver);
            return stored();
        });
    }

    [[nodiscard]] Exit stored() const {
        if (call.clientError()) [[unlikely]] {
            return call.failed();
        }
        TRACE_DEBUG("%s\n", texts.completed);
        return call.done(0);
    }
};

constexpr TransferTexts getBytesTexts = {
    "getBytes(): startIndex < 1",
    {
        "getBytes(): numBytes requested exceeds buffer size",
        "getBytes(): numBytes < 0",
        "getBytes(): bytes is NULL or shorter than numBytes",
    },
    nullptr,
    "getBytes completed.",
};
constexpr TransferTexts putBytesTexts = {
    "putBytes(): startIndex < 1",
    {
        "putBytes(): numBytes requested exceeds buffer size",
        "putBytes(): numBytes < 0",
        "putBytes(): bytes is NULL or shorter than numBytes",
    },
    nullptr,
    "putBytes completed.",
};
constexpr TransferTexts getObjsTexts = {
    "getObjs(): startIndex < 1",
    {
        "getObjs(): numObjs requested exceeds buffer size",
        "getObjs(): numObjs < 0",
        "getObjs(): jobjs is NULL or shorter than numObjs",
    },
    "Problem with GetObjectArrayElement in getObjs()",
    "getObjs completed.",
};
constexpr TransferTexts getNamedObjsTexts = {
    "getNamedObjs(): startIndex < 1",
    {
        "getNamedObjs(): buffer size exceeded",
        "getNamedObjs(): numObjs < 0",
        "getNamedObjs(): jobjs is NULL or shorter than numObjs",
    },
    "Problem with GetObjectArrayElement in getNamedObjs()",
    "getNamedObjs completed.",
};
constexpr TransferTexts putObjsTexts = {
    "putObjs(): startIndex < 1",
    {
        "putObjs(): numObjs requested exceeds buffer size",
        "putObjs(): numObjs < 0",
        "putObjs(): jobjs is NULL or shorter than numObjs",
    },
    "Problem with GetObjectArrayElement in pubObjs()", // kept: callers compare this text
    "putObjs completed.",
};
constexpr TransferTexts putNamedObjsTexts = {
    "putNamedObjs(): startIndex < 1",
    {
        "putNamedObjs(): numObjs requested exceeds buffer size",
        "putNamedObjs(): numObjs < 0",
        "putNamedObjs(): jobjs is NULL or shorter than numObjs",
    },
    "Problem with GetObjectArrayElement in putNamedObjs()",
    "putNamedObjs completed.",
};

} // namespace

TMQKCI_NATIVE(getBytes)
(JNIEnv* env, jclass, jint sessionId, jobject jobj, jlong startIndex, jint numBytes, jbyteArray bytes,
 jthrowable jErrReport) {
    TRACE_DEBUG("%d: getBytes start %lld num %d\n", sessionId, static_cast<long long>(startIndex), numBytes);
    return inSession(env, sessionId, jErrReport, [&](const NativeCall& call) {
        const Transfer transfer{call, getBytesTexts, sessionId, jErrReport, jobj, startIndex, numBytes};
        return transfer.checked(BufSizeBytes, bytes, EmptyRequest::usesArray, [&](OopType receiver) {
            jbyte* buf = ENV->GetByteArrayElements(bytes, nullptr);
            if (buf == nullptr) {
                return call.notLent();
            }
            const KciLong fetchedBytes = rtlPrivKciRtlFuncs->KciFetchBytes(
                receiver, transfer.clientStart(), reinterpret_cast<ByteType*>(buf), transfer.clientCount());
            if (call.clientError()) {
                // kept: callers find their array as it was, for its elements stay borrowed.
                return call.failed();
            }
            TRACE_DEBUG("     fetchedBytes = %d\n", fetchedBytes);
            ENV->ReleaseByteArrayElements(bytes, buf, 0);
            if (fetchedBytes != numBytes) {
                return call.refused("Number of bytes fetched does not match request");
            }
            TRACE_DEBUG("%s\n", transfer.texts.completed);
            return call.done(fetchedBytes);
        });
    });
}

TMQKCI_NATIVE(putBytes)
(JNIEnv* env, jclass, jint sessionId, jobject jobj, jlong startIndex, jint numBytes, jbyteArray bytes,
 jthrowable jErrReport) {
    TRACE_DEBUG("%d: putBytes start %lld num %d\n", sessionId, static_cast<long long>(startIndex), numBytes);
    return inSession(env, sessionId, jErrReport, [&](const NativeCall& call) {
        const Transfer transfer{call, putBytesTexts, sessionId, jErrReport, jobj, startIndex, numBytes};
        return transfer.checked(BufSizeBytes, bytes, EmptyRequest::usesArray, [&](OopType receiver) {
            jbyte* buf = ENV->GetByteArrayElements(bytes, nullptr);
            if (buf == nullptr) {
                return call.notLent();
            }
            rtlPrivKciRtlFuncs->KciStoreBytesInstanceOf(KCI_OOP_NIL, receiver, transfer.clientStart(),
                                                        reinterpret_cast<const ByteType*>(buf), transfer.clientCount());
            ENV->ReleaseByteArrayElements(bytes, buf, 0);
            return transfer.stored();
        });
    });
}

TMQKCI_NATIVE(getObjs)
(JNIEnv* env, jclass, jint sessionId, jobject jobj, jlong startIndex, jint numObjs, jobjectArray jobjs,
 jthrowable jErrReport) {
    TRACE_DEBUG("%d: GetObjs start %lld num %d\n", sessionId, static_cast<long long>(startIndex), numObjs);
    return inSession(env, sessionId, jErrReport, [&](const NativeCall& call) {
        const Transfer transfer{call, getObjsTexts, sessionId, jErrReport, jobj, startIndex, numObjs};
        return transfer.checked(BufSizeOops, jobjs, EmptyRequest::leavesArray, [&](OopType receiver) {
            const KciLong oopsFetched = rtlPrivKciRtlFuncs->KciFetchVaryingOops(receiver, transfer.clientStart(),
                                                                                oopBuf, transfer.clientCount());
            if (call.clientError()) {
                return call.failed();
            }
            TRACE_DEBUG("%d:  GetObjs oopsFetched: %d\n", sessionId, oopsFetched);
            return transfer.describeFetched(jobjs, oopsFetched);
        });
    });
}

TMQKCI_NATIVE(getNamedObjs)
(JNIEnv* env, jclass, jint sessionId, jobject jobj, jlong startIndex, jint numObjs, jobjectArray jobjs,
 jthrowable jErrReport) {
    TRACE_DEBUG("%d: getNamedObjs start %lld num %d\n", sessionId, static_cast<long long>(startIndex), numObjs);
    return inSession(env, sessionId, jErrReport, [&](const NativeCall& call) {
        const Transfer transfer{call, getNamedObjsTexts, sessionId, jErrReport, jobj, startIndex, numObjs};
        return transfer.checked(BufSizeOops, jobjs, EmptyRequest::leavesArray, [&](OopType receiver) {
            const KciLong oopsFetched =
                rtlPrivKciRtlFuncs->KciFetchNamedOops(receiver, transfer.clientStart(), oopBuf, transfer.clientCount());
            if (call.clientError()) {
                return call.failed();
            }
            return transfer.describeFetched(jobjs, oopsFetched);
        });
    });
}

TMQKCI_NATIVE(putObjs)
(JNIEnv* env, jclass, jint sessionId, jobject jobj, jlong startIndex, jint numObjs, jobjectArray jobjs,
 jthrowable jErrReport) {
    TRACE_DEBUG("%d: putObjs start %lld num %d\n", sessionId, static_cast<long long>(startIndex), numObjs);
    return inSession(env, sessionId, jErrReport, [&](const NativeCall& call) {
        const Transfer transfer{call, putObjsTexts, sessionId, jErrReport, jobj, startIndex, numObjs};
        return transfer.storeElements(jobjs, [&](OopType receiver) {
            rtlPrivKciRtlFuncs->KciStoreIdxOops(receiver, transfer.clientStart(), oopBuf, transfer.clientCount());
        });
    });
}

TMQKCI_NATIVE(putNamedObjs)
(JNIEnv* env, jclass, jint sessionId, jobject jobj, jlong startIndex, jint numObjs, jobjectArray jobjs,
 jthrowable jErrReport) {
    TRACE_DEBUG("%d: putNamedObjs start %lld num %d\n", sessionId, static_cast<long long>(startIndex), numObjs);
    return inSession(env, sessionId, jErrReport, [&](const NativeCall& call) {
        const Transfer transfer{call, putNamedObjsTexts, sessionId, jErrReport, jobj, startIndex, numObjs};
        return transfer.storeElements(jobjs, [&](OopType receiver) {
            rtlPrivKciRtlFuncs->KciStoreNamedOops(receiver, transfer.clientStart(), oopBuf, transfer.clientCount());
        });
    });
}
