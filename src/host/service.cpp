#include "service.h"

int ServiceInit(int, ServiceStartFuncType*, ServiceCtrlFuncType*, ServiceCtrlFuncType*, ServiceCtrlFuncType*,
                ServiceUserCtrlFuncType*, ...) {
    return 0;
}

BoolType ServiceIsService() {
    return FALSE;
}

int ServiceStarting() {
    return 0;
}

void ServiceStopping() {}
void ServicePausing() {}
void ServiceContinuing() {}
void ServiceStarted() {}
void ServiceStopped() {}
void ServicePaused() {}
void ServiceDebugMsg(const char*) {}
void ServiceSetExitCode(int) {}
void ServiceSetLogName(const char*) {}
void ServiceLogFailed(const char*) {}
void ServiceCrashed(const char*) {}
