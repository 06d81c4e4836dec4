#include "kcirtl.h"

#include "dynlib.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string_view>

const KciRtlJumpSType* rtlPrivKciRtlFuncs = nullptr;

namespace {

constexpr KciLong highestCompatibilityLevel = 1;
constexpr char noKestruneNote[] =
    "\nThe KESTRUNE environment variable is not defined.\nSetting it should correct this error.\n";

DynLibType kcidl = nullptr;

// The caller's message buffer; a caller that passed none gets no message.
struct ErrorText {
    char* buffer;
    ArraySizeType size;

    void set(const char* format, ...) const __attribute__((format(printf, 2, 3))) {
        va_list args;
        va_start(args, format);
        if (buffer != nullptr) {
            vsnprintf(buffer, size, format, args);
        }
        va_end(args);
    }

    // All of the text or, when the room asked for is not there, an empty one.
    void setWhole(size_t room, const char* format, const char* argument) const {
        if (room <= size) {
            set(format, argument);
        } else {
            set("%s", "");
        }
    }

    void append(const char* text) const {
        if (buffer != nullptr && size > 0) {
            const size_t length = strnlen(buffer, size - 1);
            snprintf(buffer + length, size - length, "%s", text);
        }
    }
};

// A text that grows in a fixed buffer; a piece that does not fit is left out whole.
template <size_t size>
class FixedText {
public:
    bool append(std::string_view piece) {
        if (piece.size() >= size - used) {
            return false;
        }
        memcpy(text + used, piece.data(), piece.size());
        used += piece.size();
        text[used] = '\0';
        return true;
    }
    bool appendSeparator() { return used == 0 || text[used - 1] == '/' || text[used - 1] == '\\' || append("/"); }
    [[nodiscard]] bool empty() const { return used == 0; }
    [[nodiscard]] const char* c_str() const { return text; }
    [[nodiscard]] std::string_view view() const { return {text, used}; }

private:
    size_t used = 0;
    char text[size] = {};
};

using LibraryName = FixedText<24>;
using SearchPath = FixedText<2048>;
using CandidateName = FixedText<1024>;

std::string_view environmentValue(const char* variable) {
    const char* value = getenv(variable);
    return value != nullptr ? value : std::string_view();
}

std::string_view orDefault(std::string_view value, std::string_view otherwise) {
    return value.empty() ? otherwise : value;
}

bool buildLibraryName(LibraryName& name, bool useRpc) {
    return name.append("lib") && name.append(orDefault(environmentValue("KCIRTL_BASELIBNAME"), "kci")) &&
           name.append(useRpc ? "rpc" : "lnk") && name.append(orDefault(environmentValue("KCIRTL_VERSION"), "67"));
}

// The caller's folders first, the product's own last.
bool buildSearchPath(SearchPath& searchPath, const char* path, std::string_view kestrune) {
    if (path != nullptr && !searchPath.append(path)) {
        return false;
    }
    if (kestrune.empty()) {
        return true;
    }
    return (searchPath.empty() || searchPath.append(";")) && searchPath.append(kestrune) &&
           searchPath.appendSeparator() && searchPath.append("lib");
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
        CandidateName candidate;
        if (!candidate.append(folder) || !candidate.appendSeparator() || !candidate.append(libraryName)) {
            return SearchResult::nameTooLong;
        }
        if (DynLibLoad(candidate.c_str(), &kcidl, nullptr, 0)) {
            return SearchResult::found;
        }
    }
    return SearchResult::notFound;
}

bool openLibrary(const LibraryName& libraryName, const char* path, const ErrorText& error) {
    const std::string_view kestrune = environmentValue("KESTRUNE");
    SearchPath searchPath;
    if (!buildSearchPath(searchPath, path, kestrune)) {
        error.set("The search path for the KCI library is longer than 2047 characters; shorten KESTRUNE.");
        return false;
    }
    switch (searchFolders(searchPath.view(), libraryName.view())) {
    case SearchResult::found:
        return true;
    case SearchResult::nameTooLong:
        error.set("A folder in the search path for the KCI library is longer than about 1000 characters.");
        return false;
    case SearchResult::notFound:
        break;
    }
    // The dynamic linker's own places, and the failure that the caller sees.
    if (DynLibLoad(libraryName.c_str(), &kcidl, error.buffer, error.size)) {
        return true;
    }
    if (kestrune.empty()) {
        error.append(noKestruneNote);
    }
    return false;
}

void cleanUp() {
    DynLibUnload(kcidl);
    kcidl = nullptr;
    rtlPrivKciRtlFuncs = nullptr;
}

const KciRtlJumpSType* acceptedTable(const LibraryName& libraryName, const ErrorText& error) {
    const auto getTable =
        reinterpret_cast<KciGetRtlTableFuncPtr>(DynLibGetFunc(kcidl, "KciGetRtlTable", error.buffer, error.size));
    if (getTable == nullptr) {
        return nullptr;
    }
    const KciRtlJumpSType* table = getTable();
    const auto refuse = [&](const char* format) {
        error.setWhole(strlen(format) + libraryName.view().size(), format, libraryName.c_str());
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
    const ErrorText error{errBuf, errBufSize};
    if (KciRtlIsLoaded()) {
        constexpr char text[] = "Library is already loaded.";
        error.setWhole(sizeof text, "%s", text);
        return FALSE;
    }
    LibraryName libraryName;
    if (!buildLibraryName(libraryName, useRpc != FALSE)) {
        error.set("KCIRTL_BASELIBNAME and KCIRTL_VERSION are longer than 17 characters together; shorten them.");
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
