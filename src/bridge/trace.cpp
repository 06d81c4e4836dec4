#include "bridge/trace.h"

#include <cstdarg>
#include <cstdio>

BoolType Debug = FALSE;
BoolType Info = FALSE;

void traceLine(const char* prefix, const char* format, ...) {
    va_list args;
    va_start(args, format);
    fputs(prefix, stdout);
    vprintf(format, args);
    fflush(stdout);
    va_end(args);
}
