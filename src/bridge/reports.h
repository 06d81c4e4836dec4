// From a server object to a report.
#pragma once

#include "kcitypes.h"

#include <jni.h>

#pragma GCC visibility push(hidden)

// Scratch pointers into oopBuf (or byteBuf, read as identifiers) and jlongBuf. Defined where they are used most, which
// saves their addresses there.
extern OopType* oopPtr;
extern jlong* jlongPtr;

// Describes a server object into a report: its identifier only, or with fullSetup all of it. 0, -1 or -2.
jint setupReport(KciSessionIdType sessionId, OopType resultOop, jobject result, jobject jErrReport, BoolType fullSetup);

#pragma GCC visibility pop
