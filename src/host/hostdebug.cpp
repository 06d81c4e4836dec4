#include "hostdebug.h"

#include <cerrno>
#include <cstdio>

#include "host/guarantee.h"

volatile BoolType noHalt = FALSE;
volatile long coreDumpEnabled = 1;

int HostCallDebugger() {
    const int savedErrno = errno;
    if (!noHalt) {
        fflush(stderr);
        fflush(stdout);
    }
    errno = savedErrno;
    return 0;
}

int HostCallDebuggerMsg(const char* msg) {
    const int savedErrno = errno;
    puts(msg);
    errno = savedErrno;
    return HostCallDebugger();
}

unsigned long HostCallDebuggerMsg_o(const char* msg, unsigned long arg) {
    const int savedErrno = errno;
    printf("\n%s arg:%lu\n", msg, arg);
    errno = savedErrno;
    HostCallDebugger();
    return arg;
}
