// Giving objects up, and learning which ones changed.

#include "bridge/TmqKciInterface.h"

#include <algorithm>

namespace {

constexpr ArrayTexts removeFromExportSetTexts = {
    "removeFromExportSet(): buffer size exceeded",
    "removeFromExportSet(): numObjs < 0",
    "removeFromExportSet(): jobjs is NULL or shorter than numObjs",
};
constexpr ArrayTexts releaseOopsTexts = {
    "releaseOops(): buffer size exceeded",
    "releaseOops(): numOops < 0",
    "releaseOops(): joops is NULL or shorter than numOops",
};
constexpr ArrayTexts changedOopsTexts = {
    "changedOops(): buffer size exceeded",
    "changedOops(): numOops < 0",
    "changedOops(): joops is NULL or shorter than numOops",
};

void traceOops(const OopType* oops, ArraySizeType count) {
    for (ArraySizeType i = 0; Debug && i < count; ++i) { // no look at each while nothing is traced
        TRACE_DEBUG("     %ld\n", shown(oops[i]));
    }
}

} // namespace

TMQKCI_NATIVE(removeFromExportSet)
(JNIEnv* env, jclass, jint sessionId, jobjectArray jobjs, jint numObjs, jthrowable jErrReport) {
    TRACE_DEBUG("RemoveFromExportSet: %d\n", sessionId);
    return inSession(env, sessionId, jErrReport, [&](const NativeCall& call) {
        if (const char* reason = arrayProblem(removeFromExportSetTexts, numObjs, BufSizeOops, jobjs,
                                              EmptyRequest::leavesArray)) [[unlikely]] {
            return call.refused(reason);
        }
        for (jint i = 0; i < numObjs; ++i) {
            jobject jarg = ENV->GetObjectArrayElement(jobjs, i);
            TRACE_DEBUG("     jobj[%d] = %lld\n", i, referenceValue(jarg));
            oopBuf[i] = KCI_OOP_NONE;
            if (const jint status = getOop(sessionId, jarg, &oopBuf[i], jErrReport)) {
                return call.passedOn(status);
            }
            ENV->DeleteLocalRef(jarg);
            TRACE_DEBUG("     oop[%d] = %ld\n", i, shown(oopBuf[i]));
        }
        rtlPrivKciRtlFuncs->KciReleaseOops(oopBuf, static_cast<ArraySizeType>(numObjs));
        if (call.clientError()) {
            return call.failed();
        }
        TRACE_DEBUG("removeFromExportSet completed.\n");
        return call.done(0);
    });
}

TMQKCI_NATIVE(releaseOops)(JNIEnv* env, jclass, jint sessionId, jlongArray joops, jint numOops, jthrowable jErrReport) {
    TRACE_DEBUG("ReleaseOops: %d\n", sessionId);
    return inSession(env, sessionId, jErrReport, [&](const NativeCall& call) {
        if (const char* reason = arrayProblem(releaseOopsTexts, numOops, BufSizeOops, joops, EmptyRequest::leavesArray))
            [[unlikely]] {
            return call.refused(reason);
        }
        if (numOops > 0) {
            ENV->GetLongArrayRegion(joops, 0, numOops, jlongBuf);
        }
        oopPtr = oopBuf;
        for (jint i = 0; i < numOops; ++i) {
            oopPtr[i] = static_cast<OopType>(jlongBuf[i]);
        }
        const auto count = static_cast<ArraySizeType>(numOops);
        TRACE_DEBUG("     Releasing %d oops:\n", numOops);
        traceOops(oopPtr, count);
        rtlPrivKciRtlFuncs->KciReleaseOops(oopPtr, count);
        if (call.clientError()) {
            return call.failed();
        }
        TRACE_DEBUG("ReleaseOops completed.\n");
        return call.done(0);
    });
}

TMQKCI_NATIVE(changedOops)(JNIEnv* env, jclass, jint sessionId, jlongArray joops, jint numOops, jthrowable jErrReport) {
    TRACE_DEBUG("ChangedOops: %d\n", sessionId);
    return inSession(env, sessionId, jErrReport, [&](const NativeCall& call) {
        if (const char* reason = arrayProblem(changedOopsTexts, numOops, BufSizeOops, joops, EmptyRequest::usesArray))
            [[unlikely]] {
            return call.refused(reason);
        }
        auto cnt = static_cast<ArraySizeType>(numOops);
        rtlPrivKciRtlFuncs->KciDirtySaveObjs(oopBuf, &cnt);
        if (call.clientError()) {
            return call.failed();
        }
        // A client that claims more than it was offered is not believed.
        cnt = std::min(cnt, static_cast<ArraySizeType>(numOops));
        TRACE_DEBUG("     Returning %d changed oops:\n", static_cast<jint>(cnt));
        traceOops(oopBuf, cnt);
        jlongPtr = jlongBuf;
        std::copy_n(oopBuf, cnt, jlongPtr);
        ENV->SetLongArrayRegion(joops, 0, static_cast<jsize>(cnt), jlongPtr);
        TRACE_DEBUG("ChangedOops completed.\n");
        return call.done(static_cast<jint>(cnt));
    });
}
