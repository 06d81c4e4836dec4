// The expansion of file names beside a small one that looks at each component of a name in turn. The input is a name,
// expanded in a folder with links of every kind, and the size of the buffer.
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "hostfile.h"
#include "quiet.h"

namespace {

std::string folder;

void makeFolder() {
    beQuiet();
    char name[] = "/dev/shm/expand-XXXXXX";
    if (mkdtemp(name) == nullptr || chdir(name) != 0)
        abort();
    folder = name;
    atexit([] { (void)!system(("rm -r " + folder).c_str()); });
    setenv("V", name, 1);
    setenv("W", "a/b", 1);
    setenv("E", "", 1);
    (void)!system(
        "mkdir -p a/b c; touch a/f c/f; ln -s a l; ln -s ../c a/m; ln -s f a/n; ln -s /dev/shm r; ln -s no d; "
        "ln -s o o; ln -s ./a/../c/ t; ln -s .. u");
}

// Takes "." and ".." back as they stand, follows a link where its name ends, and begins anew at what came in its place.
std::string expanded(std::string name) {
    if (name.starts_with('$')) {
        const size_t end = std::min(name.find('/'), name.size());
        if (const char* const value = getenv(name.substr(1, end - 1).c_str()))
            name = value + name.substr(end);
    }
    if (!name.starts_with('/') && !name.starts_with('$'))
        name = folder + "/" + name;
    unsigned links = 0;
    for (size_t at = 0; at <= name.size();) {
        const size_t end = std::min(name.find('/', at), name.size());
        const std::string before = name.substr(0, end);
        if (before.ends_with("/.")) {
            name.erase(end - 2, 2);
            at = end - 1;
        } else if (end > 3 && before.ends_with("/..")) {
            const size_t kept = before.rfind('/', end - 4) + 1; // 0 when there is none
            name.erase(kept, end + 1 - kept);
            at = kept;
        } else {
            char target[4096];
            const ssize_t length = before.ends_with('/') ? -1 : readlink(before.c_str(), target, sizeof target);
            at = end + 1;
            if (length > 0) {
                const size_t from = *target == '/' ? 0 : before.rfind('/') + 1;
                name.replace(from, end - from, target, length);
                at = from;
                if (++links == 4095)
                    break;
            }
        }
    }
    struct stat status {};
    const bool isFolder = lstat(name.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    return isFolder && !name.ends_with('/') ? name + "/" : name;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool made = (makeFolder(), true);
    (void)made;
    if (size < 1 || size > 500 || memchr(data, 0, size) != nullptr)
        return 0;
    const std::string name(reinterpret_cast<const char*>(data) + 1, size - 1);
    char small[257];
    const unsigned room = *data;
    small[room] = 'z';
    HostUnixExpandFileName(name.c_str(), small, room);
    if (small[room] != 'z' || (room > 0 && strnlen(small, room) == room))
        abort();
    HostFnameStrType out;
    HostUnixExpandFileName(name.c_str(), out, sizeof out);
    if (!name.empty() && out != expanded(name)) {
        dprintf(2, "'%s' became\n'%s', not\n'%s'\n", name.c_str(), out, expanded(name).c_str());
        abort();
    }
    return 0;
}
