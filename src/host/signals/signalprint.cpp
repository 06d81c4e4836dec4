// May run in a signal handler: no lock, no stdio stream, no allocation.
#include "host/signals/signalprint.h"

#include <cstdarg>
#include <cstdio>

#include "hostsignal.h"

void hostSafePrintf(const char* format, ...) {
    char line[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    HostSignalSafePrint(line);
}
