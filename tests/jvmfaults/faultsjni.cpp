// Natives of Faults.java: they install the fault handler in a Java virtual machine and provoke faults.
#include <atomic>
#include <csignal>
#include <jni.h>
#include <pthread.h>

#include "hostatomic.h"
#include "hostdebug.h"
#include "hostfault.h"
#include "hostsignal.h"

namespace {
std::atomic<int> segvCount;

void countThenHandle(int sig, siginfo_t* info, void* context) {
    ++segvCount;
    HostFaultHandler(sig, info, context);
}

void faultHere() {
    asm volatile("movl $0, 64");
}

void* faultInThread(void* barrier) {
    pthread_barrier_wait(static_cast<pthread_barrier_t*>(barrier));
    faultHere();
    return nullptr;
}
} // namespace

extern "C" {
JNIEXPORT void JNICALL Java_Faults_install(JNIEnv*, jclass) {
    HostInstallFaultHandler(nullptr, nullptr);
    UNIXIO_DO_SIGNAL(SIGSEGV, countThenHandle, nullptr);
}

JNIEXPORT jint JNICALL Java_Faults_segvCount(JNIEnv*, jclass) {
    return segvCount;
}

JNIEXPORT void JNICALL Java_Faults_faultInLibrary(JNIEnv*, jclass) {
    HostAsmSyncCtrAdd(reinterpret_cast<int*>(64), 1);
}

JNIEXPORT void JNICALL Java_Faults_faultInForeignCode(JNIEnv*, jclass) {
    faultHere();
}

JNIEXPORT void JNICALL Java_Faults_faultInTwoThreads(JNIEnv*, jclass) {
    pthread_barrier_t barrier;
    pthread_barrier_init(&barrier, nullptr, 2);
    pthread_t threads[2];
    for (pthread_t& thread : threads)
        pthread_create(&thread, nullptr, faultInThread, &barrier);
    for (const pthread_t thread : threads)
        pthread_join(thread, nullptr);
}

JNIEXPORT void JNICALL Java_Faults_postponeExits(JNIEnv*, jclass) {
    HostDelaySigExit([] {}, nullptr);
}

JNIEXPORT jboolean JNICALL Java_Faults_isTermPending(JNIEnv*, jclass) {
    return HostGetSigTerm_() != 0;
}

// Before install: the handler of another component, which install leaves alone.
JNIEXPORT void JNICALL Java_Faults_keepSigChld(JNIEnv*, jclass) {
    signal(SIGCHLD, [](int) {});
}
}
