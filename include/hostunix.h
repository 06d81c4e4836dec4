/*
 * The host services as a whole: initialisation, the names of this machine and its users, and the headers of the other
 * host services.
 */
#ifndef TMQKCI_HOSTUNIX_H
#define TMQKCI_HOSTUNIX_H

#include <stddef.h>

#include "hostdebug.h"
#include "hostenv.h"
#include "hostfile.h"
#include "hostsignal.h"
#include "hosttime.h"
#include "kcitypes.h"

TMQKCI_C_BEGIN

/*
 * For an embedding program, once at its start (later calls change nothing but noHalt): records the clocks' starting
 * values, takes the locale and the time zone from the environment, gives stdout its buffer, puts the login name into
 * $KS_LOGIN_NAME, unblocks every signal and clears noHalt. It installs no signal handler. Without it every service
 * works and obtains what it needs on first use. Not to be called while another thread reads the environment.
 */
TMQKCI_API void HostInit(void);

/*
 * The name of this machine; the home directory of a user (NULL: the current one, for whom $HOME counts when the user
 * database has no entry); the name of the current user. Each goes into buf, of size bytes, with a terminator. FALSE,
 * with buf empty, when it is not known or does not fit. Thread-safe; not signal-safe.
 */
TMQKCI_API BoolType HostGetHostname(char* buf, unsigned size);
TMQKCI_API BoolType HostGetHomeDir(const char* user, char* buf, unsigned size);
TMQKCI_API BoolType HostGetUserName(char* buf, unsigned size);

/*
 * Orders two byte strings as memcmp (ISO C) does over the shorter length; of equal beginnings the shorter is smaller.
 * Returns -1, 0 or 1. Signal-safe.
 */
TMQKCI_API int HostStrCompare(const char* a, const char* b, size_t lengthA, size_t lengthB);

TMQKCI_C_END

#endif
