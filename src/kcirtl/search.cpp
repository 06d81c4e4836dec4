#include "kcirtl/search.h"

#include "kcirtl/libraryfile.h"
#include "kcitable.h"

#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <unistd.h>

namespace {

constexpr size_t searchPathSize = 2048;
constexpr size_t candidateSize = 1024;
constexpr char noKestruneNote[] =
    "\nThe KESTRUNE environment variable is not defined.\nSetting it should correct this error.\n";
constexpr char noRemoteNote[] = "\nThe client library that was found is of the other word size; libkcirpc67.so, which "
                                "opens it, is missing: install tmqkci again.\n";

constexpr char remoteLibrary[] = "libkcirpc67.so";
// The folder of an installation that holds client libraries for this library's word size. A 64-bit library makes do
// with the ones of the other.
constexpr std::string_view libraryFolder = ownWordSize == 32 ? "lib" : "lib64";
constexpr std::string_view otherFolder = "lib";

std::string_view environmentValue(const char* variable) {
    const char* value = getenv(variable);
    return value != nullptr ? value : std::string_view();
}

std::string_view orDefault(std::string_view value, std::string_view otherwise) {
    return value.empty() ? otherwise : value;
}

} // namespace

bool buildLibraryName(LoaderText& name, bool useRpc) {
    return name.append("lib") && name.append(orDefault(environmentValue("KCIRTL_BASELIBNAME"), "kci")) &&
           name.append(useRpc ? "rpc" : "lnk") && name.append(orDefault(environmentValue("KCIRTL_VERSION"), "67"));
}

namespace {

bool appendFile(LoaderText& path, std::string_view folder, std::string_view name) {
    return path.append(folder) && path.appendSeparator() && path.append(name);
}

bool isThere(std::string_view kestrune, std::string_view folder, std::string_view libraryName) {
    char text[candidateSize];
    LoaderText path(text);
    char buffer[libraryFileNameSize];
    const char* const file = appendFile(path, kestrune, folder) && appendFile(path, "", libraryName)
                                 ? libraryFileName(path.c_str(), buffer)
                                 : nullptr;
    return file != nullptr && access(file, F_OK) == 0;
}

// The product's folder that holds the library: the one for this word size, unless only the other one's has it.
std::string_view productFolder(std::string_view kestrune, std::string_view libraryName) {
    const bool isElsewhere = libraryFolder != otherFolder && !isThere(kestrune, libraryFolder, libraryName) &&
                             isThere(kestrune, otherFolder, libraryName);
    return isElsewhere ? otherFolder : libraryFolder;
}

// The caller's folders first, the product's own last.
bool buildSearchPath(LoaderText& searchPath, const char* path, std::string_view kestrune,
                     std::string_view libraryName) {
    if (path != nullptr && !searchPath.append(path)) {
        return false;
    }
    if (kestrune.empty()) {
        return true;
    }
    return (searchPath.empty() || searchPath.append(";")) &&
           appendFile(searchPath, kestrune, productFolder(kestrune, libraryName));
}

// Opens a remote client library of this word size; the one of a database installation does not count.
DynLibType openRemoteLibraryIn(std::string_view folder) {
    char text[candidateSize];
    LoaderText candidate(text);
    DynLibType library = nullptr;
    if (!appendFile(candidate, folder, remoteLibrary) || libraryWordSize(candidate.c_str()) != ownWordSize ||
        !DynLibLoad(candidate.c_str(), &library, nullptr, 0)) {
        return nullptr;
    }
    if (remoteServe(library) == nullptr) {
        DynLibUnload(library);
        return nullptr;
    }
    return library;
}

// It lies beside this library, or where a library that was copied elsewhere comes from.
DynLibType openRemoteLibrary(std::string_view kestrune) {
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void*>(&openRemoteLibrary), &info) != 0 && info.dli_fname != nullptr) {
        const std::string_view file = info.dli_fname;
        const size_t slash = file.rfind('/');
        DynLibType beside = slash != std::string_view::npos ? openRemoteLibraryIn(file.substr(0, slash + 1)) : nullptr;
        if (beside != nullptr) {
            return beside;
        }
    }
    char text[candidateSize];
    LoaderText folder(text);
    return !kestrune.empty() && appendFile(folder, kestrune, libraryFolder) ? openRemoteLibraryIn(folder.view())
                                                                            : nullptr;
}

class Search {
public:
    Search(const LoaderText& name, bool useRpc, ErrorBuffer failure)
        : libraryName(name), kestrune(environmentValue("KESTRUNE")),
          hostWanted(!useRpc && environmentValue("KCIRTL_HOST") == "1"), error(failure) {}

    FoundLibrary run(const char* path) {
        char text[searchPathSize];
        LoaderText searchPath(text);
        if (!buildSearchPath(searchPath, path, kestrune, libraryName.view())) {
            fail("The search path for the KCI library is longer than 2047 characters; shorten KESTRUNE.");
        } else if (!searchFolders(searchPath.view()) && !openElsewhere()) {
            addNote(kestrune.empty(), noKestruneNote);
            addNote(foundForeign, noRemoteNote);
        }
        return found;
    }

private:
    // Each of these answers whether the search is over: a library is open, or the reason why none will be is told.

    bool fail(const char* reason) {
        LoaderText(error).appendCut(reason);
        return true;
    }

    bool searchFolders(std::string_view folders) {
        while (!folders.empty()) {
            const std::string_view folder = folders.substr(0, folders.find(';'));
            folders.remove_prefix(folder.size() < folders.size() ? folder.size() + 1 : folder.size());
            // An empty element is no folder; taking it for the current one would open whatever lies there.
            if (folder.empty()) {
                continue;
            }
            char text[candidateSize];
            LoaderText candidate(text);
            if (!appendFile(candidate, folder, libraryName.view())) {
                return fail("A folder in the search path for the KCI library is longer than about 1000 characters.");
            }
            if (openCandidate(candidate.c_str())) {
                return true;
            }
        }
        return false;
    }

    // A library of the other word size, or any on request, is opened in a process of its own.
    bool openCandidate(const char* name) {
        char buffer[libraryFileNameSize];
        const char* const file = libraryFileName(name, buffer);
        const int wordSize = file != nullptr ? libraryWordSize(file) : 0;
        if (wordSize != 0 && (hostWanted || wordSize != ownWordSize) && openHosted(file)) {
            return true;
        }
        return DynLibLoad(name, &found.handle, nullptr, 0) != FALSE;
    }

    // The dynamic linker's own places, and the failure that the caller sees.
    bool openElsewhere() {
        char buffer[libraryFileNameSize];
        return hostWanted ? openHosted(libraryFileName(libraryName.c_str(), buffer))
                          : DynLibLoad(libraryName.c_str(), &found.handle, error.data(), error.size()) != FALSE;
    }

    bool openHosted(const char* file) {
        DynLibType library = openRemoteLibrary(kestrune);
        if (library == nullptr) {
            foundForeign = true;
            return hostWanted && fail("KCIRTL_HOST is 1, and libkcirpc67.so is not beside the bridge's library; "
                                      "install tmqkci again.");
        }
        if (remoteServe(library)(file, error.data(), error.size())) {
            found = {library, true};
        } else {
            DynLibUnload(library);
        }
        return true;
    }

    void addNote(bool applies, const char* note) {
        if (applies && !error.empty()) {
            LoaderText(error, strnlen(error.data(), error.size())).appendCut(note);
        }
    }

    const LoaderText& libraryName;
    const std::string_view kestrune;
    const bool hostWanted;
    const ErrorBuffer error;
    FoundLibrary found;
    bool foundForeign = false; // a library of the other word size, and nothing to open it
};

} // namespace

KciRemoteServeFuncPtr remoteServe(DynLibType library) {
    const auto function = reinterpret_cast<KciOtherFunc*>(DynLibGetFunc(library, "KciRemoteServe", nullptr, 0));
    return reinterpret_cast<KciRemoteServeFuncPtr>(function);
}

FoundLibrary findLibrary(const LoaderText& libraryName, bool useRpc, const char* path, ErrorBuffer error) {
    return Search(libraryName, useRpc, error).run(path);
}
