#include "hostfile.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/names/filestatus.h"
#include "host/names/hostexpand.h"
#include "hostenv.h"
#include "syserror.h"

HostFileKindEType HostFileType(const char* name) {
    FileStatus status;
    if (!hostFileStatus(AT_FDCWD, name, AT_SYMLINK_NOFOLLOW, status)) {
        return HOST_FILE_KIND_ERROR;
    }
    switch (status.mode) {
    case S_IFREG:
        return HOST_FILE_KIND_FILE;
    case S_IFDIR:
        return HOST_FILE_KIND_DIR;
    case S_IFCHR:
        return HOST_FILE_KIND_CHRDEVICE;
    case S_IFBLK:
        return HOST_FILE_KIND_BLKDEVICE;
    case S_IFLNK:
        return HOST_FILE_KIND_LNK;
    default:
        return HOST_FILE_KIND_OTHER;
    }
}

BoolType HostFileExist(const char* name) {
    return HostFileExistSize(name, nullptr);
}

BoolType HostFileExistSize(const char* name, long* size) {
    HostFnameStrType path;
    hostExpand(name, path, sizeof path, LinkHandling::keep);
    FileStatus status;
    if (!hostFileStatus(AT_FDCWD, path, AT_SYMLINK_NOFOLLOW, status)) {
        return FALSE;
    }
    if (size != nullptr) {
        *size = static_cast<long>(std::min<uint64_t>(status.size, LONG_MAX));
    }
    return TRUE;
}

BoolType HostRemoveFile(const char* name, SysErrorSType* err) {
    HostFnameStrType path;
    hostExpand(name, path, sizeof path, LinkHandling::keep);
    if (unlink(path) == 0) {
        return TRUE;
    }
    SysErrorSet(err, errno, "unlink(%.3000s)", name);
    return FALSE;
}

FILE* HostOpenFile(const char* name, const char* mode, SysErrorSType* err, int flags) {
    FILE* file = nullptr;
    // fopen looks for "e" (close on exec) in the first few characters and before a comma: it goes second.
    char closingMode[64];
    const size_t length = strlen(mode);
    if (flags != 0 || length == 0 || length + 2 > sizeof closingMode) {
        errno = EINVAL;
    } else {
        snprintf(closingMode, sizeof closingMode, "%ce%s", mode[0], mode + 1);
        HostFnameStrType path;
        HostExpandFileName(name, path, sizeof path);
        file = fopen64(path, closingMode);
    }
    if (file == nullptr) {
        SysErrorSet(err, errno, "fopen(%.3000s,%.60s)", name, mode);
    }
    return file;
}

long Hostftell(FILE* f) {
    return ftell(f);
}

int Hostfseek(FILE* f, long offset, int whence) {
    return fseek(f, offset, whence);
}
