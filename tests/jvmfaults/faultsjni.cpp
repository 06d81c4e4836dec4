// Natives of Faults.java: they install the fault handler in a Java virtual machine and provoke faults.
#include <atomic>
#include <csignal>
#include <jni.h>

#include "hostatomic.h"
#include "hostfault.h"
#include "hostsignal.h"

namespace {
std::atomic<int> segvCount;
} // namespace

extern "C" {
JNIEXPORT void JNICALL Java_Faults_install(JNIEnv*, jclass) {
    HostInstallFaultHandler(nullptr, nullptr);
    const auto countThenHandle = [](int sig, siginfo_t* info, void* context) {
        ++segvCount;
        HostFaultHandler(sig, info, context);
    };
    UNIXIO_DO_SIGNAL(SIGSEGV, countThenHandle, nullptr);
}

JNIEXPORT jint JNICALL Java_Faults_segvCount(JNIEnv*, jclass) {
    return segvCount;
}

JNIEXPORT void JNICALL Java_Faults_faultInLibrary(JNIEnv*, jclass) {
    HostAsmSyncCtrAdd(reinterpret_cast<int*>(64), 1);
}

JNIEXPORT void JNICALL Java_Faults_faultInForeignCode(JNIEnv*, jclass) {
    asm volatile("movl $0, 64");
}
}
