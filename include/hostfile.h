/*
 * The expansion of file names, and files by name, whose names pass through HostExpandFileName first, except where a
 * comment says otherwise. Thread-safe; not signal-safe.
 */
#ifndef TMQKCI_HOSTFILE_H
#define TMQKCI_HOSTFILE_H

#include <stdio.h>

#include "hostenv.h"
#include "kcitypes.h"

struct SysErrorSType; /* syserror.h */

typedef enum HostFileKindEType {
    HOST_FILE_KIND_FILE = 0,
    HOST_FILE_KIND_DIR = 1,
    HOST_FILE_KIND_CHRDEVICE = 2,
    HOST_FILE_KIND_BLKDEVICE = 3,
    HOST_FILE_KIND_LNK = 4,
    HOST_FILE_KIND_OTHER = 5,
    HOST_FILE_KIND_ERROR = 6
} HostFileKindEType;

TMQKCI_C_BEGIN

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

/*
 * The kind of the file that exactly this name (not expanded) has; a symbolic link is a link, wherever it leads.
 * HOST_FILE_KIND_ERROR when the name cannot be examined; errno tells why.
 */
TMQKCI_API HostFileKindEType HostFileType(const char* name);

/*
 * TRUE when the name exists; a symbolic link exists even when it leads nowhere. size, unless NULL, receives the size
 * in bytes (a size beyond LONG_MAX is cut to it).
 */
TMQKCI_API BoolType HostFileExist(const char* name);
TMQKCI_API BoolType HostFileExistSize(const char* name, long* size);

/* Removes a file; of a symbolic link, the link. FALSE with err (may be NULL) filled when it could not be removed. */
TMQKCI_API BoolType HostRemoveFile(const char* name, struct SysErrorSType* err);

/*
 * fopen (ISO C) of the expanded name, with the descriptor closed on exec. flags must be 0. NULL on failure, with err
 * (may be NULL) filled under the text "fopen(name,mode)". The caller closes the stream with fclose.
 */
TMQKCI_API FILE* HostOpenFile(const char* name, const char* mode, struct SysErrorSType* err, int flags);

/* ftell and fseek (ISO C). -1 with errno set on failure, also for a position beyond LONG_MAX. */
TMQKCI_API long Hostftell(FILE* f);
TMQKCI_API int Hostfseek(FILE* f, long offset, int whence);

TMQKCI_C_END

#endif
