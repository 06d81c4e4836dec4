// Runs in a signal handler; takes no lock without a limit, and allocates nothing.
#include "host/report/reporttext.h"

#include <cstdarg>
#include <cstring>
#include <ctime>

#include "err/messages/errbuild.h"
#include "host/time/hostlocaltime.h"
#include "hosttime.h"
#include "vermsg.h"

void hostReportText(const char* sym, char* buf, unsigned size, const char* kinds, ...) {
    va_list arguments;
    va_start(arguments, kinds);
    errMsgBuildReport(sym, buf, size, kinds, arguments);
    va_end(arguments);
}

void hostReportLine(FILE* f, const char* sym, const char* kinds, ...) {
    char text[reportTextSize];
    va_list arguments;
    va_start(arguments, kinds);
    errMsgBuildReport(sym, text, sizeof text, kinds, arguments);
    va_end(arguments);
    VerMessage(f, text);
}

const char* hostReportTime(char* buf, unsigned size) {
    time_t seconds = 0;
    unsigned short milliseconds = 0;
    HostFtime(&seconds, &milliseconds);
    const tm local = hostLocalTime(seconds);
    const char* format = HostDateTimeFormat();
    if (strstr(format, "%s") != nullptr) {
        format = "%D %T"; // the C library would need the time zone's lock for the seconds since the epoch
    }
    if (strftime(buf, size, format, &local) == 0) {
        buf[0] = '\0';
    }
    return buf;
}
