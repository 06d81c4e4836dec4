// The statistics of the shared cache can't be read by a 32-bit library; the methods exist because Java binds them.

#include "bridge/TmqKciInterface.h"

namespace {

jint notDefined(JNIEnv* env, jobject jErrReport) {
    ENV = env;
    return NativeCall(0, jErrReport).refused("KCSI Interface not defined for 32-bit").status;
}

} // namespace

TMQKCI_NATIVE(KCSIinitialize)(JNIEnv* env, jclass, jthrowable jErrReport) {
    return notDefined(env, jErrReport);
}

TMQKCI_NATIVE(KCSIstatNames)(JNIEnv* env, jclass, jobjectArray, jthrowable jErrReport) {
    return notDefined(env, jErrReport);
}

TMQKCI_NATIVE(KCSIattach)(JNIEnv* env, jclass, jstring, jthrowable jErrReport) {
    return notDefined(env, jErrReport);
}

TMQKCI_NATIVE(KCSIdetach)(JNIEnv* env, jclass, jthrowable jErrReport) {
    return notDefined(env, jErrReport);
}

TMQKCI_NATIVE(KCSIsampleStats)(JNIEnv* env, jclass, jlongArray, jthrowable jErrReport) {
    return notDefined(env, jErrReport);
}

TMQKCI_NATIVE(KCSIgetStats)(JNIEnv* env, jclass, jlong, jobject, jthrowable jErrReport) {
    return notDefined(env, jErrReport);
}
