/*
 * Environment variables, and the size of file names. As with getenv and putenv themselves (IEEE 1003.1), a caller
 * must not change the environment in one thread while another reads it. Not signal-safe.
 */
#ifndef TMQKCI_HOSTENV_H
#define TMQKCI_HOSTENV_H

#include "kcitypes.h"

/* Size in bytes of a file name's buffer, its terminator included. */
#define HOST_FNAME_SIZE 4096
typedef char HostFnameStrType[HOST_FNAME_SIZE];

TMQKCI_C_BEGIN

/*
 * Copies a variable's value and its terminator into dst, which must hold size + 1 bytes: `size` is the longest value
 * taken, one below the buffer's size. FALSE, with dst untouched, when the variable is unset, empty or longer.
 */
TMQKCI_API BoolType HostGetEnv(const char* name, char* dst, unsigned size);

/* Puts name=value into the environment. The string is allocated for it and never freed. FALSE when out of memory. */
TMQKCI_API BoolType HostSetEnv(const char* name, const char* value);

/* TRUE when the variable is set to something of 1 to 256 bytes. */
TMQKCI_API BoolType HostEnvExists(const char* name);

TMQKCI_C_END

#endif
