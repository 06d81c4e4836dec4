/*
 * Translations between the host's error numbers and portable codes, and the host's text of an error number.
 */
#ifndef TMQKCI_UNIXERR_H
#define TMQKCI_UNIXERR_H

#include "kcitypes.h"
#include "syserrcodes.h"

/* What kind of number an error number is. */
typedef enum SysErrCategoryEType {
    SYSERRCAT_ERRNO = 0, /* a value of errno */
    SYSERRCAT_HERRNO = 1 /* a value of the resolver's h_errno */
} SysErrCategoryEType;

TMQKCI_C_BEGIN

/*
 * The portable code of a host error number, or the negated number when there is none. Of numbers with several names 11
 * gives SYSERR_AGAIN, 35 SYSERR_DEADLOCK and 95 SYSERR_OPNOTSUPP. Thread- and signal-safe.
 */
TMQKCI_API int UnixErrOsErrToSysErr(int errCode, SysErrCategoryEType category);

/*
 * The host's number of a portable code, or -1 when there is none or the code is above 176. The resolver's codes give
 * the resolver's numbers, so that some results stand for several codes. Thread- and signal-safe.
 */
TMQKCI_API int UnixErrSysErrToOsErr(int code);

/*
 * The host's text of an errno value, in English whatever the locale, cut to size - 1 bytes and terminated in buf.
 * Returns buf. With size 0 nothing is written. errno is kept. Thread- and signal-safe.
 */
TMQKCI_API const char* HostGetErrMsg(int errnoValue, char* buf, unsigned size);

TMQKCI_C_END

#endif
