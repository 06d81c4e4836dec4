/*
 * The limit on open files (RLIMIT_NOFILE, IEEE 1003.1). Thread-safe; not signal-safe.
 */
#ifndef TMQKCI_HOSTLIMITS_H
#define TMQKCI_HOSTLIMITS_H

#include "kcitypes.h"

struct SysErrorSType; /* syserror.h */

TMQKCI_C_BEGIN

/*
 * Sets how many files this process may have open, up to its hard limit, which stays. max -1 asks for as many as
 * allowed, or for what $KESTRUNE_MAX_FD says: a number above 0 is the limit, 0 leaves the limits alone, a negative
 * number changes nothing about max. FALSE, with err (may be NULL) filled, when the limit could not be set.
 */
TMQKCI_API BoolType HostSetMaxFiles(int max, struct SysErrorSType* err);

/* How many files this process may have open; kept from one call to the next until HostSetMaxFiles changes it. */
TMQKCI_API int HostGetMaxFiles(void);

TMQKCI_C_END

#endif
