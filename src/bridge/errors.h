// Errors on their way to Java. The Java error report may be null; nothing is written then.
#pragma once

#include "bridge/strings.h"
#include "bridge/trace.h"
#include "kcirtl.h"

#include <jni.h>

#include <initializer_list>

#pragma GCC visibility push(hidden)

// The one record through which every error passes.
extern KciErrSType KciError;

// Copies KciError into the Java error report. 0, or -2 when the Java environment cannot allocate.
jint setupError(jobject jErrRpt);
// Makes KciError an error of the bridge's own. A message longer than the record's field is cut between characters, so
// that Java can read what is left.
void setBridgeError(int32_t number, const char* message, std::initializer_list<OopType> args = {});
// Reports a generic error. As setupError.
jint genericError(jobject errRpt, const char* message);
// The second half of kciError: KciError holds a client error. Always 1.
[[gnu::cold]] jint clientErrorFound(jobject errRpt);
// Reports the client library's pending error. 1 when there was one, else 0; 0 too while no library is loaded.
inline jint kciError(jobject errRpt) {
    const KciRtlJumpSType* kci = rtlPrivKciRtlFuncs;
    if (kci == nullptr || !kci->KciErr(&KciError)) [[likely]] {
        return 0;
    }
    return clientErrorFound(errRpt);
}

// The ways to fail, each traced and answered with its status: the client library's error, which is reported already;
// the bridge's own, which is reported here; and the Java environment's refusal to lend or allocate.
[[gnu::cold]] jint clientFailure(KciSessionIdType sessionId);
[[gnu::cold]] jint genericFailure(jobject errRpt, const char* message);
[[gnu::cold]] jint allocationFailure();

// The end of a call with its result.
inline jint leave(jint result) {
    TRACE_DEBUG("    Returning: %d\n", result);
    ReleaseStrings();
    return result;
}

#pragma GCC visibility pop
