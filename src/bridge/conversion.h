// From a report to a server object.
#pragma once

#include "bridge/codes.h"
#include "bridge/fields.h"
#include "bridge/state.h"
#include "kcitypes.h"

#include <jni.h>

#pragma GCC visibility push(hidden)

// The part of getOop that a report of an existing object does not need; jobj may be null.
jint convertValue(KciSessionIdType sessionId, jobject jobj, OopType* oop, jobject jErrReport);

// Finds or makes the server object that a report stands for. 0, -1 or -2; on a failure the exit is already traced and
// the strings are released. A value of a kind that cannot be sent leaves *oop as it was and answers 0.
inline jint getOop(KciSessionIdType sessionId, jobject jobj, OopType* oop, jobject jErrReport) {
    if (jobj == nullptr || ENV->GetByteField(jobj, objTypeFid) == objTypeJavaValue) [[unlikely]] {
        return convertValue(sessionId, jobj, oop, jErrReport);
    }
    *oop = static_cast<OopType>(ENV->GetLongField(jobj, oopFid));
    return 0;
}

#pragma GCC visibility pop
