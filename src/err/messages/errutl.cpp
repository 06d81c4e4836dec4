#include "errutl.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define __SANITIZE_ADDRESS__ 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#define ASAN_UNPOISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#endif

#include "err/messages/errimage.h"
#include "host/names/filestatus.h"
#include "hostfile.h"
#include "utl.h"
#include "utlhost.h"

ErrUtlHdrSType ErrUtlFileHdr;
FILE* ErrUtlErrFile;
char ErrUtlErrFileName[ERRUTL_FILE_NAME_SIZE];

namespace {

constexpr ByteType magicArray[4] = {0xDE, 0xAD, 0xBE, 0xEF};
constexpr char versionText[] = "67";
// Far above any real file; a larger one is a mistake that should not cost its size in memory.
constexpr uint64_t maxImageSize = 64 << 20;

BoolType errutl_is_init;

// Pages of their own instead of a block of the heap: the heap checks all its blocks again and again. The sanitizer is
// told where in the last page the file ends.
struct Image {
    char* bytes = nullptr;
    size_t size = 0;

    bool allocate(size_t wanted) {
        void* const pages = mmap(nullptr, wanted, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pages == MAP_FAILED) {
            return false;
        }
        bytes = static_cast<char*>(pages);
        size = wanted;
        ASAN_POISON_MEMORY_REGION(bytes + size, slack());
        return true;
    }
    void release() {
        if (bytes == nullptr) {
            return;
        }
        ASAN_UNPOISON_MEMORY_REGION(bytes + size, slack());
        munmap(bytes, size);
        *this = {};
    }

private:
    size_t slack() const { return (UtlGetPageSize() - size % UtlGetPageSize()) % UtlGetPageSize(); }
} image;

unsigned imageNumber = 1;

void closeFile() {
    if (ErrUtlErrFile != nullptr) {
        fclose(ErrUtlErrFile);
        ErrUtlErrFile = nullptr;
    }
    image.release();
    ++imageNumber;
}

// Takes the file's contents into memory. What is not a regular file, or is empty, leaves the image empty, so that every
// read in it fails.
bool loadImage(int descriptor) {
    FileStatus status;
    if (!hostFileStatus(descriptor, "", AT_EMPTY_PATH, status)) {
        return false;
    }
    if (!S_ISREG(status.mode) || status.size == 0) {
        return true;
    }
    if (status.size > maxImageSize) {
        errno = EFBIG;
        return false;
    }
    const auto size = static_cast<size_t>(status.size);
    if (!image.allocate(size)) {
        return false;
    }
    for (size_t position = 0; position < size;) {
        const ssize_t count = pread(descriptor, image.bytes + position, size - position, static_cast<off_t>(position));
        if (count > 0) {
            position += static_cast<size_t>(count);
        } else if (count == 0) {
            errno = EIO; // cut short since its size was asked for
            return false;
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

// The stream, or null with errno. What a pipe or a terminal has to say would have to be waited for.
FILE* openForReading(const char* name) {
    HostFnameStrType path;
    HostExpandFileName(name, path, sizeof path);
    FileStatus status;
    FILE* const file = hostOpenAtOnce(path, status);
    if (file != nullptr && (S_ISFIFO(status.mode) || isatty(fileno(file)) == 1)) {
        fclose(file);
        errno = ESPIPE;
        return nullptr;
    }
    return file;
}

// Determines the file's name, not yet expanded. FALSE when fileName is too long for any file.
bool locate(const char* fileName, HostFnameStrType& name) {
    if (fileName != nullptr) {
        const size_t length = strlen(fileName);
        if (length >= sizeof name) {
            return false;
        }
        memcpy(name, fileName, length + 1);
        return true;
    }
    if (!HostGetEnv("KESTRUNE_LANG", name, sizeof name - 1)) {
        snprintf(name, sizeof name, "$KESTRUNE/sys/english%s.err", versionText);
    }
    HostFnameStrType candidate;
    if (UtlFindExeFile(name, ".err", candidate, sizeof candidate)) {
        strcpy(name, candidate);
    }
    return true;
}

} // namespace

std::string_view errUtlImage() {
    return {image.bytes, image.size};
}

unsigned errUtlImageNumber() {
    return imageNumber;
}

BoolType ErrUtlInit(BoolType isCompiled, const char* fileName) {
    errutl_is_init = FALSE;
    HostFnameStrType name;
    if (!locate(fileName, name)) {
        fprintf(stderr, "ErrUtlInit: Unable to use file %s as a language file\n", fileName);
        return FALSE;
    }
    HostExpandFileName(name, ErrUtlErrFileName, sizeof ErrUtlErrFileName);
    if (!ErrUtlReset(isCompiled)) {
        fprintf(stderr, "ErrUtlInit: Unable to use file %s as a language file\n", ErrUtlErrFileName);
        return FALSE;
    }
    errutl_is_init = TRUE;
    return TRUE;
}

BoolType ErrUtlReset(BoolType isCompiled) {
    closeFile();
    ErrUtlErrFile = openForReading(ErrUtlErrFileName);
    if (ErrUtlErrFile == nullptr) {
        const long error = errno;
        fprintf(stderr, "ErrUtlReset: fopen() failure on \"%s\"\n", ErrUtlErrFileName);
        fprintf(stderr, "     errno = %ld (sorry, no translation available)\n", error);
        return FALSE;
    }
    if (isCompiled && !ErrUtlReadHdr(ErrUtlErrFile, &ErrUtlFileHdr)) {
        return FALSE;
    }
    if (!loadImage(fileno(ErrUtlErrFile))) {
        fprintf(stderr, "ErrUtlReset: unable to read \"%s\", errno = %d\n", ErrUtlErrFileName, errno);
        image.release();
        return FALSE;
    }
    return TRUE;
}

BoolType ErrUtlReadHdr(FILE* f, ErrUtlHdrSType* hdr) {
    rewind(f);
    errno = 0; // the end of the file is no error of the system
    ByteType bytes[ERRUTL_HEADER_SIZE];
    if (fread(bytes, sizeof bytes, 1, f) != 1) {
        fprintf(stderr, "ErrUtlReadHdr: fread() header failure, errno = %d\n", errno);
        return FALSE;
    }
    memcpy(hdr->magic, bytes, sizeof hdr->magic);
    if (memcmp(hdr->magic, magicArray, sizeof magicArray) != 0) {
        fputs("ErrUtlReadHdr:  bad magic number\n", stderr);
        return FALSE;
    }
    memcpy(hdr->transform, bytes + 4, sizeof hdr->transform);
    constexpr ByteType shortTransform[2] = {0, 1};
    if (!UtlValidateSwizzleTransforms(hdr->transform, shortTransform)) {
        fputs("ErrUtlReadHdr: illegal swizzle transforms\n", stderr);
        return FALSE;
    }
    hdr->vers = static_cast<int32_t>(decodeWord(bytes + 8, hdr->transform));
    hdr->tabSize = decodeWord(bytes + 12, hdr->transform);
    hdr->textBegin = decodeWord(bytes + 16, hdr->transform);
    if (hdr->vers != ERRUTL_VERSION) {
        fprintf(stderr, "ErrUtlReadHdr:  bad version = %ld\n", static_cast<long>(hdr->vers));
        return FALSE;
    }
    if (hdr->tabSize == 0) {
        fputs("ErrUtlReadHdr:  zero length hash table\n", stderr);
        return FALSE;
    }
    return TRUE;
}

const ByteType* ErrUtlGetMagic() {
    return magicArray;
}

BoolType ErrUtlIsUp() {
    return errutl_is_init;
}

void ErrUtlShutdown() {
    closeFile();
}
