/*
 * System services, for programs that run as one on platforms that have them. On this platform a server is an ordinary
 * process: every function does nothing, and those with a result return 0. Thread- and signal-safe.
 */
#ifndef TMQKCI_SERVICE_H
#define TMQKCI_SERVICE_H

#include "kcitypes.h"

typedef int ServiceStartFuncType(int argc, char** argv);
typedef void ServiceCtrlFuncType(void);
typedef BoolType ServiceUserCtrlFuncType(long control);

TMQKCI_C_BEGIN

TMQKCI_API int ServiceInit(int argc, ServiceStartFuncType* start, ServiceCtrlFuncType* stop, ServiceCtrlFuncType* pause,
                           ServiceCtrlFuncType* cont, ServiceUserCtrlFuncType* userCtrl, ...);
TMQKCI_API BoolType ServiceIsService(void);
TMQKCI_API int ServiceStarting(void);
TMQKCI_API void ServiceStopping(void);
TMQKCI_API void ServicePausing(void);
TMQKCI_API void ServiceContinuing(void);
TMQKCI_API void ServiceStarted(void);
TMQKCI_API void ServiceStopped(void);
TMQKCI_API void ServicePaused(void);
TMQKCI_API void ServiceDebugMsg(const char* text);
TMQKCI_API void ServiceSetExitCode(int code);
TMQKCI_API void ServiceSetLogName(const char* name);
TMQKCI_API void ServiceLogFailed(const char* text);
TMQKCI_API void ServiceCrashed(const char* text);

TMQKCI_C_END

#endif
