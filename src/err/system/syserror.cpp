#include "syserror.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <string_view>

static_assert(offsetof(SysErrorSType, errCode) == 4 && offsetof(SysErrorSType, errMsg) == 8);
static_assert(sizeof(SysErrorSType) == 8 + SYSERROR_MAX_ERROR);

namespace {
constexpr size_t maxLength = SYSERROR_MAX_ERROR - 1;

// Appends what fits to a text of the given length; returns the new length.
size_t append(char* text, size_t length, std::string_view addition) {
    const size_t fitting = std::min(addition.size(), maxLength - length);
    std::copy_n(addition.data(), fitting, text + length);
    text[length + fitting] = '\0';
    return length + fitting;
}

// Most callers name the call without arguments.
size_t formatText(char* text, const char* format, va_list args) __attribute__((format(printf, 2, 0)));
size_t formatText(char* text, const char* format, va_list args) {
    const std::string_view literal(format);
    if (literal.find('%') == literal.npos)
        return append(text, 0, literal);
    const int written = vsnprintf(text, SYSERROR_MAX_ERROR, format, args);
    if (written < 0) {
        text[0] = '\0';
        return 0;
    }
    return std::min<size_t>(written, maxLength);
}
} // namespace

void SysErrorSetEx(SysErrorSType* err, int hostErrorNumber, SysErrCategoryEType category, const char* format,
                   va_list args) {
    if (!err)
        return;
    const int savedErrno = errno;
    err->hostError = hostErrorNumber;
    err->errCode = SYSERR_NONE;
    size_t length = formatText(err->errMsg, format, args);
    if (hostErrorNumber == 0) {
        append(err->errMsg, length, ": failed with no error code");
    } else if (hostErrorNumber != -1) {
        err->errCode = UnixErrOsErrToSysErr(hostErrorNumber, category);
        length = append(err->errMsg, length, ": ");
        HostGetErrMsg(hostErrorNumber, err->errMsg + length, static_cast<unsigned>(SYSERROR_MAX_ERROR - length));
    }
    errno = savedErrno;
}

void SysErrorSet(SysErrorSType* err, int errCode, const char* syscall, ...) {
    va_list args;
    va_start(args, syscall);
    SysErrorSetEx(err, errCode, SYSERRCAT_ERRNO, syscall, args);
    va_end(args);
}

const char* SysErrorGetMessage(const SysErrorSType* err) {
    return err ? err->errMsg : nullptr;
}

void SysErrorClear(SysErrorSType* err) {
    if (!err)
        return;
    err->errCode = SYSERR_NONE;
    err->errMsg[0] = '\0';
}

BoolType SysErrorIsSet(const SysErrorSType* err) {
    return err && (err->errCode != SYSERR_NONE || err->errMsg[0] != '\0');
}
