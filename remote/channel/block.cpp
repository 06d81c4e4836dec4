#include "channel/block.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace remote {

namespace {

// More than this no single request may need.
constexpr size_t largestBody = size_t{1} << 30;

size_t pages(size_t size) {
    return (size + controlSize - 1) / controlSize * controlSize;
}

void* mapShared(int file, size_t size, off_t offset) {
    void* const where = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, offset);
    if (where == MAP_FAILED) {
        return nullptr;
    }
    // A process that forks off keeps no window on the conversation.
    madvise(where, size, MADV_DONTFORK);
    return where;
}

} // namespace

int Block::create() {
    file = memfd_create("tmqkci", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (file < 0) {
        return errno;
    }
    int problem = grow(firstBodySize);
    if (problem == 0 && fcntl(file, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_SEAL) != 0) {
        problem = errno;
    }
    if (problem != 0) {
        close();
    }
    return problem;
}

int Block::open(int descriptor) {
    file = descriptor;
    struct stat status {};
    const int seals = fcntl(file, F_GET_SEALS);
    int problem = seals < 0 || (seals & F_SEAL_SHRINK) == 0 || fstat(file, &status) != 0 ? EINVAL : 0;
    if (problem == 0) {
        problem = static_cast<uint64_t>(status.st_size) < controlSize + firstBodySize ? EINVAL : mapAll(firstBodySize);
    }
    if (problem != 0) {
        close();
    }
    return problem;
}

void Block::close() {
    if (controlWords != nullptr) {
        munmap(controlWords, controlSize);
    }
    if (bytes != nullptr) {
        munmap(bytes, size);
    }
    closeDescriptor();
    controlWords = nullptr;
    bytes = nullptr;
    size = 0;
}

void Block::closeDescriptor() {
    if (file >= 0) {
        ::close(file);
    }
    file = -1;
}

// The control words stay where they are: other threads look at them.
int Block::mapAll(size_t wanted) {
    if (controlWords == nullptr) {
        void* const where = mapShared(file, controlSize, 0);
        if (where == nullptr) {
            return errno;
        }
        controlWords = static_cast<Control*>(where);
    }
    void* const where = mapShared(file, wanted, controlSize);
    if (where == nullptr) {
        return errno;
    }
    if (bytes != nullptr) {
        munmap(bytes, size);
    }
    bytes = static_cast<ByteType*>(where);
    size = wanted;
    return 0;
}

int Block::grow(size_t wanted) {
    if (wanted <= size) {
        return 0;
    }
    if (wanted > largestBody) {
        return ENOMEM;
    }
    // Twice as much, where that much memory is there: a body seldom grows alone.
    const size_t generous = pages(wanted < largestBody / 2 && size > 0 ? wanted * 2 : wanted);
    for (const size_t next : {generous, pages(wanted)}) {
        // Reserved, not only allowed: a page that is not there when it is written to ends the process.
        if (fallocate(file, 0, 0, static_cast<off_t>(controlSize) + static_cast<off_t>(next)) == 0 &&
            mapAll(next) == 0) {
            return 0;
        }
    }
    return errno != 0 ? errno : ENOMEM;
}

bool Block::follow(size_t wanted) {
    if (wanted <= size) {
        return true;
    }
    struct stat status {};
    if (wanted > largestBody || wanted % controlSize != 0 || fstat(file, &status) != 0 ||
        static_cast<uint64_t>(status.st_size) < controlSize + wanted) {
        return false;
    }
    return mapAll(wanted) == 0;
}

} // namespace remote
