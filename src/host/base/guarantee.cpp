#include "host/base/guarantee.h"

#include <cerrno>
#include <cstdio>
#include <unistd.h>

#include "host/base/debuggerwait.h"
#include "host/base/errnokeeper.h"
#include "host/base/upwardcalls.h"

namespace {
struct GuaranteeText {
    GuaranteeText(const char* module, int line) {
        snprintf(text, sizeof text, "UTL_GUARANTEE failure in file %s at line %d", module, line);
    }
    char text[128];
};

void waitForDebugger(const char* reason) {
    if (!hostDebuggerWaitIsWanted()) {
        return;
    }
    fflush(stdout);
    fflush(stderr);
    fprintf(stderr,
            "\n __________________________________ \n"
            "| %s \n"
            "|  HostCallDebugger: Waiting for a C Debugger to attach,\n"
            "|  process %d (0x%x) \n"
            "|__________________________________ \n",
            reason, getpid(), static_cast<unsigned>(getpid()));
    fflush(stderr);
    for (;;) {
        sleep(2);
    }
}
} // namespace

void hostGuaranteeFailed(const char* module, int line) {
    {
        const ErrnoKeeper kept;
        waitForDebugger(GuaranteeText(module, line).text);
    }
    hostReportGuarantee(module, line);
}

void hostReportGuarantee(const char* module, int line) {
    const ErrnoKeeper kept;
    const GuaranteeText reason(module, line);
    errno = kept.value;
    HostCallDebuggerMsg(reason.text);
}

void hostPrintGuarantee(const char* module, int line) {
    puts(GuaranteeText(module, line).text);
    fflush(stdout);
}
