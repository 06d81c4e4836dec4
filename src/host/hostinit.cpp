#include "host/hostinit.h"

#include <cerrno>
#include <clocale>
#include <csignal>
#include <pthread.h>
#include <unistd.h>

#include "err/system/errnotext.h"
#include "host/faults/hostsigexit.h"
#include "host/names/hostexpand.h"
#include "host/report/reportneeds.h"
#include "host/report/reporttext.h"
#include "host/time/hostclock.h"
#include "hostunix.h"
#include "utlexit.h"
#include "vermsg.h"

namespace {
void initialiseOnce() {
    hostStartClocks();
    setlocale(LC_ALL, "");
    hostReadAutoMountPrefix();
    char loginName[64];
    if (getlogin_r(loginName, sizeof loginName) == 0) {
        HostSetEnv("KS_LOGIN_NAME", loginName);
    }
    sigset_t noInterrupts;
    sigemptyset(&noInterrupts);
    errno = pthread_sigmask(SIG_SETMASK, &noInterrupts, nullptr);
    if (errno != 0) {
        hostInitCrash("pthread_sigmask");
    }
    hostPrepareReport();
    hostClearExitModes();
    HostInstallFatalReportHandler(nullptr);
}
} // namespace

void HostInit() {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, initialiseOnce);
    noHalt = FALSE;
}

void hostInitCrash(const char* what) {
    const int error = errno;
    fflush(stdout);
    fputs("\n\n", stderr);
    VerLeadingEdge(stderr);
    hostReportLine(stderr, "host.initfail", "s", what);
    if (error != 0) {
        hostReportLine(stderr, "fault.errno", "ds", error, ErrnoText(error).text);
    }
    char time[reportTimeSize];
    hostReportLine(stderr, "fault.date", "s", hostReportTime(time, sizeof time));
    VerEndEdge(stderr);
    fflush(stderr);
    UtlExit(3);
}
