#include "host/base/guarantee.h"

#include <cerrno>
#include <cstdio>

#include "host/base/errnokeeper.h"
#include "host/report/fatalreport.h"
#include "hostdebug.h"

namespace {
struct GuaranteeText {
    GuaranteeText(const char* module, int line) {
        snprintf(text, sizeof text, "UTL_GUARANTEE failure in file %s at line %d", module, line);
    }
    char text[128];
};
} // namespace

void hostGuaranteeFailed(const char* module, int line) {
    {
        const ErrnoKeeper kept;
        hostWaitAfterGuarantee(GuaranteeText(module, line).text);
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
