/*
 * The record of a failed system call: the host's error number, a portable code and a text that names the call and the
 * host's explanation. Called wherever the support layer reports the failure of a system call to its caller.
 *
 *     SysErrorSet(err, errno, "open(%s)", name);
 *
 * Records belong to their callers; functions accept NULL for "not wanted". Thread-safe on different records, not
 * signal-safe unless stated.
 */
#ifndef TMQKCI_SYSERROR_H
#define TMQKCI_SYSERROR_H

#include <stdarg.h>

#include "kcitypes.h"
#include "unixerr.h"

/* Bytes of the text with its terminator. */
#define SYSERROR_MAX_ERROR 4096

typedef struct SysErrorSType {
    int hostError;       /* the host's number, unchanged */
    SysErrEType errCode; /* 0: no error */
    char errMsg[SYSERROR_MAX_ERROR];

#ifdef __cplusplus
    SysErrorSType() {
        initialize();
    }
    /* Clears the number, the code and the text. Signal-safe. */
    void initialize() {
        hostError = 0;
        errCode = SYSERR_NONE;
        errMsg[0] = '\0';
    }
    /* Sets only the code, from a value of errno. Signal-safe. */
    void setErr(int anErrno) {
        errCode = UnixErrOsErrToSysErr(anErrno, SYSERRCAT_ERRNO);
    }
#endif
} SysErrorSType;

TMQKCI_C_BEGIN

/*
 * Fills a record: the number, its portable code, and the text: syscall is a printf format (ISO C) for the arguments
 * behind it; ": " and the host's text of the number follow. Number 0 gives no code and ": failed with no error code";
 * number -1 no code and no addition. A text that does not fit is cut. errno is kept.
 */
TMQKCI_API void SysErrorSet(SysErrorSType* err, int errCode, const char* syscall, ...)
    __attribute__((format(printf, 3, 4)));

/* The same for a number of a given category; the text's addition is the one of the errno value. */
TMQKCI_API void SysErrorSetEx(SysErrorSType* err, int hostErrorNumber, SysErrCategoryEType category, const char* format,
                              va_list args) __attribute__((format(printf, 4, 0)));

/* The record's text, or NULL for NULL. Signal-safe. */
TMQKCI_API const char* SysErrorGetMessage(const SysErrorSType* err);

/* Clears the code and the text; the host's number stays. Signal-safe. */
TMQKCI_API void SysErrorClear(SysErrorSType* err);

/* TRUE when the record has a code or a text; FALSE for NULL. Signal-safe. */
TMQKCI_API BoolType SysErrorIsSet(const SysErrorSType* err);

TMQKCI_C_END

#endif
