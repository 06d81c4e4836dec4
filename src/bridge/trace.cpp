#include "trace.h"

#include <stdarg.h>
#include <stdio.h>

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
