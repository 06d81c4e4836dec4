#include "host/names/hostexpand.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/openat2.h>
#include <optional>
#include <pthread.h>
#include <string_view>
#include <sys/syscall.h>
#include <unistd.h>

#include "host/base/errnokeeper.h"
#include "hostenv.h"
#include "hostfile.h"

namespace {
using std::string_view;

// A name in the caller's buffer. No change makes it longer than the buffer.
class Name {
public:
    Name(char* text, size_t size) : buffer(text), capacity(size) {}

    string_view view() const { return {buffer, used}; }
    string_view before(size_t position) const { return {buffer, position}; }
    const char* text() const { return buffer; }
    size_t length() const { return used; }

    void setCut(string_view value) {
        used = std::min(value.size(), capacity - 1);
        memcpy(buffer, value.data(), used);
        buffer[used] = '\0';
    }

    // Puts two texts in place of the characters in [from, to). FALSE, with nothing changed, when they do not fit.
    bool replace(size_t from, size_t to, string_view first, string_view second = "") {
        const size_t rest = used - to;
        const size_t inserted = first.size() + second.size();
        if (from + inserted + rest >= capacity) {
            return false;
        }
        memmove(buffer + from + inserted, buffer + to, rest);
        first.copy(buffer + from, first.size()); // not memcpy: an empty view may have no address
        second.copy(buffer + from + first.size(), second.size());
        used = from + inserted + rest;
        buffer[used] = '\0';
        return true;
    }

    void erase(size_t from, size_t to) { replace(from, to, ""); }

    // The first "/" from a position on, or the end.
    size_t nextBoundary(size_t position) const {
        const void* slash = memchr(buffer + position, '/', used - position);
        return slash != nullptr ? static_cast<size_t>(static_cast<const char*>(slash) - buffer) : used;
    }

    // Reads the link that the first `end` characters name. Its length, or -1 when they name no link.
    ssize_t readLink(size_t end, char* target, size_t targetSize) {
        const char held = buffer[end];
        buffer[end] = '\0';
        const ssize_t length = readlink(buffer, target, targetSize);
        buffer[end] = held;
        return length;
    }

private:
    char* buffer;
    size_t capacity;
    size_t used = 0;
};

// getenv for a name that no terminator ends.
const char* findVariable(string_view name) {
    if (name.empty() || environ == nullptr) {
        return nullptr;
    }
    for (char** entry = environ; *entry != nullptr; ++entry) {
        if (strncmp(*entry, name.data(), name.size()) == 0 && (*entry)[name.size()] == '=') {
            return *entry + name.size() + 1;
        }
    }
    return nullptr;
}

// "$NAME" or "$NAME/..." at the head of src becomes the variable's value, when there is one that fits: value, rest and
// terminator together. A value that the buffer could not hold counts as not fitting, however short the rest is.
void substituteHeadVariable(string_view src, Name& name) {
    if (!src.starts_with('$')) {
        return;
    }
    const size_t end = std::min(src.find('/'), src.size());
    const char* value = findVariable({src.data() + 1, end - 1});
    if (value != nullptr) {
        name.replace(0, name.length(), value, {src.data() + end, src.size() - end});
    }
}

void makeAbsolute(Name& name) {
    if (name.view().starts_with('/') || name.view().starts_with('$')) {
        return;
    }
    char folder[HOST_FNAME_SIZE];
    if (getcwd(folder, sizeof folder) != nullptr) {
        name.replace(0, 0, folder, "/");
    }
}

// Removes "." and "..", follows links. Every "/" and the end are looked at in turn; `position` moves past those whose
// text before them is settled, so that no part of the name is looked up twice. Returns the kind of the file that the
// outcome names when the walk came to know it.
std::optional<HostFileKindEType> walk(Name& name, bool followLinks) {
    constexpr unsigned mostLinks = 4095;
    unsigned linksFollowed = 0;
    std::optional<HostFileKindEType> kind;
    char target[HOST_FNAME_SIZE];
    for (size_t position = 0; position <= name.length();) {
        const size_t end = name.nextBoundary(position);
        const string_view before = name.before(end);
        if (before.ends_with("/.")) {
            name.erase(end - 2, end);
            position = end - 1;
            continue;
        }
        // "/.." itself stays: above the root is the root.
        if (end > 3 && before.ends_with("/..")) {
            const size_t slash = before.rfind('/', end - 4);
            const size_t kept = slash == string_view::npos ? 0 : slash + 1;
            name.erase(kept, std::min(end + 1, name.length()));
            position = kept;
            continue;
        }
        position = end + 1;
        if (!followLinks || before.empty() || before.ends_with('/')) {
            continue;
        }
        if (end == name.length()) {
            kind = HostFileType(name.text());
            if (kind != HOST_FILE_KIND_LNK) {
                break;
            }
            kind.reset();
        }
        const ssize_t targetLength = name.readLink(end, target, sizeof target);
        if (targetLength <= 0) {
            continue;
        }
        const size_t from = target[0] == '/' ? 0 : before.rfind('/') + 1;
        if (!name.replace(from, end, {target, static_cast<size_t>(targetLength)}) || ++linksFollowed == mostLinks) {
            break;
        }
        position = from;
    }
    return kind;
}

enum class Target { folder, noFolder, mayHaveLinks };

// Asks the kernel in one call whether a link is involved in a name.
Target lookUpWithoutLinks(const Name& name) {
    static std::atomic<bool> unavailable{false};
    // For the walk a ".." takes back the empty component of "a//..", for the kernel it takes back "a".
    const bool leadsElsewhere =
        name.view().find("//") != string_view::npos && name.view().find("/..") != string_view::npos;
    if (leadsElsewhere || unavailable.load(std::memory_order_relaxed)) {
        return Target::mayHaveLinks;
    }
    open_how how{};
    how.flags = O_PATH | O_CLOEXEC | O_DIRECTORY;
    how.resolve = RESOLVE_NO_SYMLINKS;
    const long descriptor = syscall(SYS_openat2, AT_FDCWD, name.text(), &how, sizeof how);
    if (descriptor >= 0) {
        close(static_cast<int>(descriptor));
        return Target::folder;
    }
    switch (errno) {
    case ENOENT:
    case ENOTDIR:
        // No link as far as the name leads. With a ".." in it, what remains of the name may lead elsewhere.
        return name.view().find("/..") == string_view::npos ? Target::noFolder : Target::mayHaveLinks;
    case ENOSYS: // an older kernel,
    case EPERM:  // or a sandbox that does not know the call
        unavailable.store(true, std::memory_order_relaxed);
        return Target::mayHaveLinks;
    default:
        return Target::mayHaveLinks;
    }
}

HostFnameStrType autoMountPrefix;
pthread_once_t autoMountPrefixOnce = PTHREAD_ONCE_INIT;

void readAutoMountPrefix() {
    constexpr char usualPrefix[] = "/tmp_mnt";
    if (!HostGetEnv("KS_AutoMountPrefix", autoMountPrefix, sizeof autoMountPrefix - 1)) {
        memcpy(autoMountPrefix, usualPrefix, sizeof usualPrefix);
    }
}
} // namespace

void hostReadAutoMountPrefix() {
    pthread_once(&autoMountPrefixOnce, readAutoMountPrefix);
    readAutoMountPrefix();
}

void hostUnixExpand(const char* src, char* dst, unsigned size, LinkHandling links) {
    if (size == 0) {
        return;
    }
    const ErrnoKeeper errnoKeeper; // whatever the look-ups meet
    const string_view source(src);
    Name name(dst, size);
    name.setCut(source);
    if (source.empty()) {
        return;
    }
    substituteHeadVariable(source, name);
    makeAbsolute(name);

    const Target target = links == LinkHandling::follow ? lookUpWithoutLinks(name) : Target::mayHaveLinks;
    const bool mayHaveLinks = target == Target::mayHaveLinks;
    const auto kind = walk(name, links != LinkHandling::keep && mayHaveLinks);
    if (links == LinkHandling::keep || name.view().empty() || name.view().ends_with('/')) {
        return;
    }
    const bool isFolder =
        mayHaveLinks ? (kind ? *kind : HostFileType(dst)) == HOST_FILE_KIND_DIR : target == Target::folder;
    if (isFolder) {
        name.replace(name.length(), name.length(), "/");
    }
}

void hostExpand(const char* src, char* dst, unsigned size, LinkHandling links) {
    hostUnixExpand(src, dst, size, links);
    pthread_once(&autoMountPrefixOnce, readAutoMountPrefix);
    const size_t prefixLength = strlen(autoMountPrefix);
    if (size != 0 && strncmp(dst, autoMountPrefix, prefixLength) == 0 && dst[prefixLength] == '/') {
        memmove(dst, dst + prefixLength, strlen(dst + prefixLength) + 1);
    }
}

void HostUnixExpandFileName(const char* src, char* dst, unsigned size) {
    hostUnixExpand(src, dst, size, LinkHandling::follow);
}

void HostExpandFileName(const char* src, char* dst, unsigned size) {
    hostExpand(src, dst, size, LinkHandling::follow);
}
