// The process-wide state that all native methods share.
//
// It is unguarded. Java enters the native methods from one thread at a time; nothing here is signal-safe.
#pragma once

#include "kcitypes.h"

#include <jni.h>

#pragma GCC visibility push(hidden)

// 1 once _initialize has completed; never reset.
extern int TmqKciInitialized;
// Whether sessions run inside this process, as _initialize was told; means something once that has completed.
extern BoolType TmqKciLinked;
// The Java environment of the native call in progress.
extern JNIEnv* ENV;

// Transfer buffers and their capacities. byteBuf and jlongBuf also hold what is preloaded of one object, even where
// that is more than the capacity.
extern jint BufSizeBytes;
extern jint BufSizeOops;
extern ByteType* byteBuf;
extern OopType* oopBuf;
extern jlong* jlongBuf;

// How much of an object's body comes along with its description.
extern int PreloadSizeBytes;
extern int PreloadSizeOops;

// As FindClass returned it: a local reference, valid within _initialize only.
extern jclass jTmqKciCacheStatsClass;

#pragma GCC visibility pop
