// Java strings, borrowed from the Java environment until ReleaseStrings at the end of the native call.
#pragma once

#include "kcitypes.h"

#include <jni.h>

#pragma GCC visibility push(hidden)

// Modified UTF-8 with a terminator. NULL when jstr is null, the table is full or Java cannot lend it.
const char* GetString(jstring jstr);
// UTF-16 units in the machine's byte order, without a terminator. NULL as for GetString.
const ByteType* GetDbString(jstring jstr);

// How many strings are held, and the part of ReleaseStrings that runs when there are any.
extern jint AllocatedStringIndex;
void releaseHeldStrings();

inline void ReleaseStrings() {
    if (AllocatedStringIndex > 0) {
        releaseHeldStrings();
    }
}

#pragma GCC visibility pop
