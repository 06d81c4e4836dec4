// What a shared library's name and file say before it is opened.
#pragma once

#include <cstddef>

#pragma GCC visibility push(hidden)

constexpr size_t libraryFileNameSize = 2048;
constexpr int ownWordSize = static_cast<int>(sizeof(void*)) * 8;

// The file that a name stands for: ".so" is appended, in `buffer`, to a base name without a dot. NULL when it does not
// fit.
const char* libraryFileName(const char* name, char (&buffer)[libraryFileNameSize]);

// The word size that a library is built for, 32 or 64, from its file alone; 0 when the file cannot be read or is no ELF
// file (System V ABI) for x86.
int libraryWordSize(const char* file);

#pragma GCC visibility pop
