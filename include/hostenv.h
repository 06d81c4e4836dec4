/*
 * Environment variables and the expansion of file names. As with getenv and putenv themselves (IEEE 1003.1), a caller
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

/*
 * Expands a file name into dst, of size bytes: "$NAME" or "$NAME/..." at its head is replaced by that environment
 * variable, a relative name becomes absolute, "." and ".." are removed, symbolic links are followed (at most 4095), and
 * a folder gets a "/" at its end. HostExpandFileName also takes the automounter's prefix off ($KS_AutoMountPrefix,
 * /tmp_mnt by default). No step fails: what would not fit is left out, and dst always holds a terminated text unless
 * size is 0. A src that lies in dst is not allowed. Thread-safe as long as nothing changes the environment or the
 * working directory. errno is kept.
 */
TMQKCI_API void HostUnixExpandFileName(const char* src, char* dst, unsigned size);
TMQKCI_API void HostExpandFileName(const char* src, char* dst, unsigned size);

TMQKCI_C_END

#endif
