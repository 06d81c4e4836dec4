#include "host/names/filestatus.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/base/errnokeeper.h"

bool hostFileStatus(int folder, const char* name, int flags, FileStatus& status) {
    struct statx answer;
    if (statx(folder, name, flags | AT_NO_AUTOMOUNT, STATX_TYPE | STATX_SIZE, &answer) != 0) {
        return false;
    }
    status = {answer.stx_mode & mode_t{S_IFMT}, answer.stx_size};
    return true;
}

FILE* hostOpenAtOnce(const char* path, FileStatus& status) {
    const int descriptor = open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | O_LARGEFILE);
    if (descriptor == -1) {
        return nullptr;
    }
    FILE* const file = hostFileStatus(descriptor, "", AT_EMPTY_PATH, status) ? fdopen(descriptor, "r") : nullptr;
    if (file == nullptr) {
        const ErrnoKeeper kept;
        close(descriptor);
    }
    return file;
}
