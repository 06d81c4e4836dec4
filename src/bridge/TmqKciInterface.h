// The bridge's chief header: the process-wide state that all native methods share, and the helpers between them.
//
// The state is unguarded. Java enters the native methods from one thread at a time; nothing here is signal-safe.
#ifndef TMQKCI_BRIDGE_TMQKCIINTERFACE_H
#define TMQKCI_BRIDGE_TMQKCIINTERFACE_H

#include "codes.h"
#include "fields.h"
#include "kcirtl.h"
#include "trace.h"

#include <jni.h>

#include <initializer_list>

#define TMQKCI_NATIVE(name) extern "C" TMQKCI_API jint JNICALL Java_com_kestrune_tmqkci_TmqKciInterface__1##name

// 1 once _initialize has completed; never reset.
extern int TmqKciInitialized;
// The Java environment of the native call in progress.
extern JNIEnv* ENV;

// Transfer buffers and their capacities. byteBuf and jlongBuf also hold what is preloaded of one object, even where
// that is more than the capacity.
extern jint BufSizeBytes;
extern jint BufSizeOops;
extern ByteType* byteBuf;
extern OopType* oopBuf;
extern jlong* jlongBuf;
// Scratch pointers into oopBuf (or byteBuf, read as identifiers) and jlongBuf.
extern OopType* oopPtr;
extern jlong* jlongPtr;

// How much of an object's body comes along with its description.
extern int PreloadSizeBytes;
extern int PreloadSizeOops;

// The one record through which every error passes.
extern KciErrSType KciError;

// As FindClass returned it: a local reference, valid within _initialize only.
extern jclass jTmqKciCacheStatsClass;

// Errors. The Java error report may be null; nothing is written then.

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
inline jint leave(jint result);

// Objects.

// Describes a server object into a report: its identifier only, or with fullSetup all of it. 0, -1 or -2.
jint setupReport(KciSessionIdType sessionId, OopType resultOop, jobject result, jobject jErrReport, BoolType fullSetup);
// Finds or makes the server object that a report stands for. 0, -1 or -2; on a failure the exit is already traced and
// the strings are released. A value of a kind that cannot be sent leaves *oop as it was and answers 0.
inline jint getOop(KciSessionIdType sessionId, jobject jobj, OopType* oop, jobject jErrReport);
// The part of it that a report of an existing object does not need; jobj may be null.
jint convertValue(KciSessionIdType sessionId, jobject jobj, OopType* oop, jobject jErrReport);

// Strings, borrowed from the Java environment until ReleaseStrings at the end of the native call.

// Modified UTF-8 with a terminator. NULL when jstr is null, the table is full or Java cannot lend it.
const char* GetString(jstring jstr);
// UTF-16 units in the machine's byte order, without a terminator. NULL as for GetString.
const ByteType* GetDbString(jstring jstr);
inline void ReleaseStrings();
// How many strings are held, and the part of ReleaseStrings that runs when there are any.
extern jint AllocatedStringIndex;
void releaseHeldStrings();

inline jint getOop(KciSessionIdType sessionId, jobject jobj, OopType* oop, jobject jErrReport) {
    if (jobj == nullptr || ENV->GetByteField(jobj, objTypeFid) == objTypeJavaValue) [[unlikely]] {
        return convertValue(sessionId, jobj, oop, jErrReport);
    }
    *oop = static_cast<OopType>(ENV->GetLongField(jobj, oopFid));
    return 0;
}

inline jint leave(jint result) {
    TRACE_DEBUG("    Returning: %d\n", result);
    ReleaseStrings();
    return result;
}

inline void ReleaseStrings() {
    if (AllocatedStringIndex > 0) {
        releaseHeldStrings();
    }
}

// An identifier as the client's signed long, the way traces show it.
inline long shown(OopType oop) {
    return static_cast<KciLong>(oop);
}
// A Java reference as traces show it.
inline long long referenceValue(jobject reference) {
    return static_cast<long long>(reinterpret_cast<intptr_t>(reference));
}

#endif
