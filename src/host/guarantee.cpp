#include "host/guarantee.h"

#include <cerrno>
#include <cstdio>

#include "hostdebug.h"

void hostGuaranteeFailed(const char* module, int line) {
    const int savedErrno = errno;
    char text[128];
    snprintf(text, sizeof text, "UTL_GUARANTEE failure in file %s at line %d", module, line);
    errno = savedErrno;
    HostCallDebuggerMsg(text);
}
