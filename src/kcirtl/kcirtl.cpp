#include "kcirtl.h"

#include "dynlib.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>

const KciRtlJumpSType* rtlPrivKciRtlFuncs = nullptr;

namespace {

constexpr KciLong highestCompatibilityLevel = 1;
constexpr size_t libraryNameSize = 24;
constexpr size_t searchPathSize = 2048;
constexpr size_t candidateSize = 1024;
// The folder of an installation that holds client libraries for this library's word size.
constexpr std::string_view libraryFolder = sizeof(void*) == 4 ? "lib" : "lib64";
constexpr char noKestruneNote[] =
    "\nThe KESTRUNE environment variable is not defined.\nSetting it should correct this error.\n";

DynLibType kcidl = nullptr;

// A text that grows in a buffer and is always terminated in it; in none, it stays nowhere.
class BoundedText {
public:
    explicit BoundedText(std::span<char> room) : BoundedText(room, 0) {}
    // Goes on behind what the buffer holds.
    BoundedText(std::span<char> room, size_t length) : buffer(room), used(length) { terminate(); }

    // The piece as a whole, or nothing of it and false.
    bool append(std::string_view piece) {
        if (piece.size() >= buffer.size() - used) {
            return false;
        }
        used += piece.copy(buffer.data() + used, piece.size());
        terminate();
        return true;
    }
    // As much of the piece as fits.
    void appendCut(std::string_view piece) {
        if (!buffer.empty()) {
            append(piece.substr(0, buffer.size() - 1 - used));
        }
    }
    bool appendSeparator() { return used == 0 || buffer[used - 1] == '/' || buffer[used - 1] == '\\' || append("/"); }

    [[nodiscard]] bool empty() const { return used == 0; }
    [[nodiscard]] const char* c_str() const { return buffer.data(); }
    [[nodiscard]] std::string_view view() const { return {buffer.data(), used}; }

private:
    void terminate() const {
        if (!buffer.empty()) {
            buffer[used] = '\0';
        }
    }

    std::span<char> buffer;
    size_t used;
};

// The caller's message buffer; a caller that passed none gets no message.
using ErrorBuffer = std::span<char>;

std::string_view environmentValue(const char* variable) {
    const char* value = getenv(variable);
    return value != nullptr ? value : std::string_view();
}

std::string_view orDefault(std::string_view value, std::string_view otherwise) {
    return value.empty() ? otherwise : value;
}

bool buildLibraryName(BoundedText& name, bool useRpc) {
    return name.append("lib") && name.append(orDefault(environmentValue("KCIRTL_BASELIBNAME"), "kci")) &&
           name.append(useRpc ? "rpc" : "lnk") && name.append(orDefault(environmentValue("KCIRTL_VERSION"), "67"));
}

// The caller's folders first, the product's own last.
bool buildSearchPath(BoundedText& searchPath, const char* path, std::string_view kestrune) {
    if (path != nullptr && !searchPath.append(path)) {
        return false;
    }
    if (kestrune.empty()) {
        return true;
    }
    return (searchPath.empty() || searchPath.append(";")) && searchPath.append(kestrune) &&
           searchPath.appendSeparator() && searchPath.append(libraryFolder);
}

enum class SearchResult { found, notFound, nameTooLong };

SearchResult searchFolders(std::string_view folders, std::string_view libraryName) {
    while (!folders.empty()) {
        const std::string_view folder = folders.substr(0, folders.find(';'));
        folders.remove_prefix(folder.size() < folders.size() ? folder.size() + 1 : folder.size());
        // An empty element is no folder; taking it for the current one would open whatever lies there.
        if (folder.empty()) {
            continue;
        }
        char text[candidateSize];
        BoundedText candidate(text);
        if (!candidate.append(folder) || !candidate.appendSeparator() || !candidate.append(libraryName)) {
            return SearchResult::nameTooLong;
        }
        if (DynLibLoad(candidate.c_str(), &kcidl, nullptr, 0)) {
            return SearchResult::found;
        }
    }
    return SearchResult::notFound;
}

bool openLibrary(const BoundedText& libraryName, const char* path, ErrorBuffer error) {
    const std::string_view kestrune = environmentValue("KESTRUNE");
    char text[searchPathSize];
    BoundedText searchPath(text);
    if (!buildSearchPath(searchPath, path, kestrune)) {
        BoundedText(error).appendCut(
            "The search path for the KCI library is longer than 2047 characters; shorten KESTRUNE.");
        return false;
    }
    switch (searchFolders(searchPath.view(), libraryName.view())) {
    case SearchResult::found:
        return true;
    case SearchResult::nameTooLong:
        BoundedText(error).appendCut(
            "A folder in the search path for the KCI library is longer than about 1000 characters.");
        return false;
    case SearchResult::notFound:
        break;
    }
    // The dynamic linker's own places, and the failure that the caller sees.
    if (DynLibLoad(libraryName.c_str(), &kcidl, error.data(), error.size())) {
        return true;
    }
    if (kestrune.empty() && !error.empty()) {
        BoundedText(error, strnlen(error.data(), error.size())).appendCut(noKestruneNote);
    }
    return false;
}

void cleanUp() {
    DynLibUnload(kcidl);
    kcidl = nullptr;
    rtlPrivKciRtlFuncs = nullptr;
}

const KciRtlJumpSType* acceptedTable(const BoundedText& libraryName, ErrorBuffer error) {
    const auto getTable =
        reinterpret_cast<KciGetRtlTableFuncPtr>(DynLibGetFunc(kcidl, "KciGetRtlTable", error.data(), error.size()));
    if (getTable == nullptr) {
        return nullptr;
    }
    const KciRtlJumpSType* table = getTable();
    const auto refuse = [&](const char* format) {
        BoundedText message(error);
        // kept: callers get an empty text where the name and the format as it stands, with its "%s", would not fit.
        if (strlen(format) + libraryName.view().size() <= error.size()) {
            snprintf(error.data(), error.size(), format, libraryName.c_str());
        }
        return nullptr;
    };
    if (table == nullptr) {
        return refuse("KCI library '%s' has no table of entry points.\n");
    }
    if (table->kciFeatureLevel < KCI_ENTRY_COUNT) {
        return refuse("Attempted to load old KCI library '%s'.\n");
    }
    if (table->kciCompatiblityLevel > highestCompatibilityLevel) {
        return refuse("Attempted to load incompatible KCI library '%s'.\n");
    }
    return table;
}

} // namespace

BoolType KciRtlIsLoaded(void) {
    return rtlPrivKciRtlFuncs != nullptr;
}

BoolType KciRtlLoad(BoolType useRpc, const char* path, char* errBuf, ArraySizeType errBufSize) {
    const ErrorBuffer error(errBuf, errBuf != nullptr ? errBufSize : 0);
    if (KciRtlIsLoaded()) {
        BoundedText(error).append("Library is already loaded.");
        return FALSE;
    }
    char text[libraryNameSize];
    BoundedText libraryName(text);
    if (!buildLibraryName(libraryName, useRpc != FALSE)) {
        BoundedText(error).appendCut(
            "KCIRTL_BASELIBNAME and KCIRTL_VERSION are longer than 17 characters together; shorten them.");
        return FALSE;
    }
    if (!openLibrary(libraryName, path, error)) {
        return FALSE;
    }
    rtlPrivKciRtlFuncs = acceptedTable(libraryName, error);
    if (rtlPrivKciRtlFuncs == nullptr) {
        cleanUp();
        return FALSE;
    }
    return TRUE;
}

void KciRtlUnload(void) {
    if (KciRtlIsLoaded()) {
        rtlPrivKciRtlFuncs->KciShutdown();
        rtlPrivKciRtlFuncs->KciUnload();
        cleanUp();
    }
}
