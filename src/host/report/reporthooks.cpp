#include "host/report/reporthooks.h"

std::atomic<rundownFuncType*> fileFlusherFct;
std::atomic<rundownFuncType*> shutdownFct;
std::atomic<PrintStackFuncType*> SmalltalkPrintStackFunc;
std::atomic<BoolType> HostFatalErr;

void HostSetSmalltalkPrintStackFunc(PrintStackFuncType* func) {
    SmalltalkPrintStackFunc = func;
}

BoolType HostGetFatalErr() {
    return HostFatalErr;
}

void HostSetFatalErr(BoolType value) {
    HostFatalErr = value;
}
