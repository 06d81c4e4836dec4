#include "bridge/state.h"

int TmqKciInitialized = 0;
BoolType TmqKciLinked;
JNIEnv* ENV = nullptr;
jint BufSizeBytes;
jint BufSizeOops;
ByteType* byteBuf;
OopType* oopBuf;
jlong* jlongBuf;
int PreloadSizeBytes;
int PreloadSizeOops;
jclass jTmqKciCacheStatsClass;
