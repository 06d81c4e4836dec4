#include "host/hostinit.h"

#include <cerrno>
#include <clocale>
#include <csignal>
#include <pthread.h>
#include <unistd.h>

#include "host/faults/faultstate.h"
#include "host/report/fatalreport.h"
#include "hostunix.h"

namespace {
void initialiseOnce() {
    hostStartClocks();
    setlocale(LC_ALL, "");
    hostReadAutoMountPrefix();
    char loginName[64];
    if (getlogin_r(loginName, sizeof loginName) == 0)
        HostSetEnv("KS_LOGIN_NAME", loginName);
    sigset_t noInterrupts;
    sigemptyset(&noInterrupts);
    errno = pthread_sigmask(SIG_SETMASK, &noInterrupts, nullptr);
    if (errno != 0)
        hostInitCrash("pthread_sigmask");
    hostPrepareReport();
    hostClearExitModes();
    hostClearFatalReportHandler();
}
} // namespace

void HostInit() {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, initialiseOnce);
    noHalt = FALSE;
}
