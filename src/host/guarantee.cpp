#include "host/guarantee.h"

#include <cerrno>
#include <cstdio>

#include "host/fatalreport.h"
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
    const int savedErrno = errno;
    const GuaranteeText reason(module, line);
    hostWaitAfterGuarantee(reason.text);
    errno = savedErrno;
    HostCallDebuggerMsg(reason.text);
}

void hostPrintGuarantee(const char* module, int line) {
    puts(GuaranteeText(module, line).text);
    fflush(stdout);
}
