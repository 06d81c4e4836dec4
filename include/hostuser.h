/*
 * The names of this machine and its users, from the system's databases.
 */
#ifndef TMQKCI_HOSTUSER_H
#define TMQKCI_HOSTUSER_H

#include "kcitypes.h"

TMQKCI_C_BEGIN

/*
 * The name of this machine; the home directory of a user (NULL: the current one, for whom $HOME counts when the user
 * database has no entry); the name of the current user. Each goes into buf, of size bytes, with a terminator. FALSE,
 * with buf empty, when it is not known or does not fit. Thread-safe; not signal-safe.
 */
TMQKCI_API BoolType HostGetHostname(char* buf, unsigned size);
TMQKCI_API BoolType HostGetHomeDir(const char* user, char* buf, unsigned size);
TMQKCI_API BoolType HostGetUserName(char* buf, unsigned size);

TMQKCI_C_END

#endif
