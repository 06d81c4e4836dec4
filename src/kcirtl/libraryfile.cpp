#include "kcirtl/libraryfile.h"

#include <cstdio>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <unistd.h>

const char* libraryFileName(const char* name, char (&buffer)[libraryFileNameSize]) {
    const char* const slash = strrchr(name, '/');
    const char* const baseName = slash != nullptr ? slash + 1 : name;
    if (strchr(baseName, '.') != nullptr) {
        return name;
    }
    const int length = snprintf(buffer, sizeof buffer, "%s.so", name);
    return length >= 0 && static_cast<size_t>(length) < sizeof buffer ? buffer : nullptr;
}

int libraryWordSize(const char* file) {
    // What waits for a writer, as a named pipe does, is no library.
    const int descriptor = open(file, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        return 0;
    }
    // The two classes' headers begin alike, as far as the machine.
    Elf32_Ehdr header;
    const ssize_t size = read(descriptor, &header, sizeof header);
    close(descriptor);
    if (size != sizeof header || memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) {
        return 0;
    }
    if (header.e_ident[EI_CLASS] == ELFCLASS32 && header.e_machine == EM_386) {
        return 32;
    }
    return header.e_ident[EI_CLASS] == ELFCLASS64 && header.e_machine == EM_X86_64 ? 64 : 0;
}
