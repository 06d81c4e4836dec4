// What a file is. The records of the C library's stat functions have 32 bits for an inode's number and for seconds on
// i386; a file that needs more is refused there (EOVERFLOW). This one asks for neither.
#pragma once

#include <cstdint>
#include <cstdio>
#include <sys/types.h>

#pragma GCC visibility push(hidden)

struct FileStatus {
    mode_t mode; // of the file's type alone
    uint64_t size;
};

// As fstatat (POSIX): false with errno. Signal-safe.
bool hostFileStatus(int folder, const char* name, int flags, FileStatus& status);

// Opens a file for reading, close-on-exec, and waits for nothing: neither for a pipe's writer nor, when it is read, for
// what is typed at a terminal. Null with errno; the caller closes the stream. Not signal-safe.
FILE* hostOpenAtOnce(const char* path, FileStatus& status);

#pragma GCC visibility pop
