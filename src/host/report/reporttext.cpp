// Runs in a signal handler; takes no lock without a limit, and allocates nothing.
#include <cstdarg>

#include "err/messages/errcatalogue.h"
#include "host/report/fatalreport.h"
#include "vermsg.h"

void hostReportText(const char* sym, char* buf, unsigned size, const char* kinds, ...) {
    va_list arguments;
    va_start(arguments, kinds);
    errMsgBuildReport(sym, buf, size, kinds, arguments);
    va_end(arguments);
}

void hostReportLine(FILE* f, const char* sym, const char* kinds, ...) {
    char text[4096];
    va_list arguments;
    va_start(arguments, kinds);
    errMsgBuildReport(sym, text, sizeof text, kinds, arguments);
    va_end(arguments);
    VerMessage(f, text);
}
