#include "syserror.h"

#include <cstddef>
#include <cstring>

#include "host/base/boundedtext.h"
#include "host/base/errnokeeper.h"

static_assert(offsetof(SysErrorSType, errCode) == 4 && offsetof(SysErrorSType, errMsg) == 8);
static_assert(sizeof(SysErrorSType) == 8 + SYSERROR_MAX_ERROR);

void SysErrorSetEx(SysErrorSType* err, int hostErrorNumber, SysErrCategoryEType category, const char* format,
                   va_list args) {
    if (err == nullptr) {
        return;
    }
    const ErrnoKeeper errnoKeeper;
    err->hostError = hostErrorNumber;
    err->errCode = SYSERR_NONE;
    BoundedText text(err->errMsg, sizeof err->errMsg);
    // Most callers name the call without arguments.
    if (strchr(format, '%') == nullptr) {
        text.appendCut(format);
    } else {
        text.formatCutV(format, args);
    }
    if (hostErrorNumber == 0) {
        text.appendCut(": failed with no error code");
    } else if (hostErrorNumber != -1) {
        err->errCode = UnixErrOsErrToSysErr(hostErrorNumber, category);
        text.appendCut(": ");
        HostGetErrMsg(hostErrorNumber, err->errMsg + text.length(),
                      static_cast<unsigned>(sizeof err->errMsg - text.length()));
    }
}

void SysErrorSet(SysErrorSType* err, int errCode, const char* syscall, ...) {
    va_list args;
    va_start(args, syscall);
    SysErrorSetEx(err, errCode, SYSERRCAT_ERRNO, syscall, args);
    va_end(args);
}

const char* SysErrorGetMessage(const SysErrorSType* err) {
    return err != nullptr ? err->errMsg : nullptr;
}

void SysErrorClear(SysErrorSType* err) {
    if (err == nullptr) {
        return;
    }
    err->errCode = SYSERR_NONE;
    err->errMsg[0] = '\0';
}

BoolType SysErrorIsSet(const SysErrorSType* err) {
    return static_cast<BoolType>(err != nullptr && (err->errCode != SYSERR_NONE || err->errMsg[0] != '\0'));
}
