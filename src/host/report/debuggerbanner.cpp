// May run in a signal handler. The streams and the catalogue are used all the same: the process is lost, and what it
// can still say is worth the risk.
#include "host/report/debuggerbanner.h"

#include <cstdio>

#include "err/system/errnotext.h"
#include "host/report/reporttext.h"
#include "hostsignal.h"
#include "vermsg.h"

void printDebuggerBanner(const char* who) {
    fflush(stderr);
    fflush(stdout);
    fputs("\n\n", stdout);
    VerLeadingEdge(stdout);
    hostReportLine(stdout, "host.debugger1", "s", who);
    char time[reportTimeSize];
    hostReportLine(stdout, "host.debugger2", "s", hostReportTime(time, sizeof time));
    fflush(stdout);
}

void printHostcallDebugger(int error, char* buf, unsigned size) {
    printDebuggerBanner("HostCallDebugger");
    hostReportText("fault.errno", buf, size, "ds", error, ErrnoText(error).text);
    HostSignalSafePrint(buf);
}
