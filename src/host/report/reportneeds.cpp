#include "host/report/reportneeds.h"

#include <cstdio>
#include <stdio_ext.h>
#include <unistd.h>

#include "err/messages/errcatalogue.h"
#include "host/base/errnokeeper.h"
#include "host/time/hostlocaltime.h"
#include "hostfile.h"

namespace {
// A stream's buffer is allocated on its first use. Gives stdout the one that it would get then.
void allocateOutputBuffer() {
    if (__fbufsize(stdout) != 0) {
        return;
    }
    const bool byLines = __flbf(stdout) != 0 || isatty(STDOUT_FILENO) != 0;
    setvbuf(stdout, nullptr, _IOFBF, 0); // glibc allocates here, and only here
    if (byLines) {
        setvbuf(stdout, nullptr, _IOLBF, 0);
    }
}
} // namespace

void hostPrepareReport() {
    const ErrnoKeeper kept;
    hostLearnLocalTime();
    printMutex(); // takes part in forks from here on
    HostFnameStrType name;
    HostExpandFileName("", name, sizeof name); // reads the automounter's prefix
    allocateOutputBuffer();
}
