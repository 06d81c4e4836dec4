#include "kcirtl.h"

#include "kcirtl/loadfile.h"
#include "kcirtl/search.h"

#include <cstdio>
#include <cstring>

const KciRtlJumpSType* rtlPrivKciRtlFuncs = nullptr;

namespace {

constexpr KciLong highestCompatibilityLevel = 1;

DynLibType kcidl = nullptr;

void cleanUp() {
    DynLibUnload(kcidl);
    kcidl = nullptr;
    rtlPrivKciRtlFuncs = nullptr;
}

const KciRtlJumpSType* acceptedTable(const LoaderText& libraryName, bool hosted, ErrorBuffer error) {
    const auto getTable =
        reinterpret_cast<KciGetRtlTableFuncPtr>(DynLibGetFunc(kcidl, "KciGetRtlTable", error.data(), error.size()));
    if (getTable == nullptr) {
        return nullptr;
    }
    // A remote client library that was found by its own name serves the linked one beside it.
    const KciRemoteServeFuncPtr serve = hosted ? nullptr : remoteServe(kcidl);
    if (serve != nullptr && !serve(nullptr, error.data(), error.size())) {
        return nullptr;
    }
    const KciRtlJumpSType* table = getTable();
    const auto refuse = [&](const char* format) {
        LoaderText message(error);
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

BoolType publishTable(const LoaderText& libraryName, bool hosted, ErrorBuffer error) {
    rtlPrivKciRtlFuncs = acceptedTable(libraryName, hosted, error);
    if (rtlPrivKciRtlFuncs == nullptr) {
        cleanUp();
    }
    return KciRtlIsLoaded();
}

} // namespace

BoolType KciRtlIsLoaded(void) {
    return rtlPrivKciRtlFuncs != nullptr ? TRUE : FALSE;
}

BoolType KciRtlLoad(BoolType useRpc, const char* path, char* errBuf, ArraySizeType errBufSize) {
    const ErrorBuffer error(errBuf, errBuf != nullptr ? errBufSize : 0);
    if (KciRtlIsLoaded()) {
        LoaderText(error).append("Library is already loaded.");
        return FALSE;
    }
    char text[libraryNameSize];
    LoaderText libraryName(text);
    if (!buildLibraryName(libraryName, useRpc != FALSE)) {
        LoaderText(error).appendCut(
            "KCIRTL_BASELIBNAME and KCIRTL_VERSION are longer than 17 characters together; shorten them.");
        return FALSE;
    }
    const FoundLibrary found = findLibrary(libraryName, useRpc != FALSE, path, error);
    kcidl = found.handle;
    return kcidl != nullptr ? publishTable(libraryName, found.hosted, error) : FALSE;
}

bool kciRtlLoadFile(const char* file, char* errBuf, ArraySizeType errBufSize) {
    const char* const slash = strrchr(file, '/');
    std::string_view baseName = slash != nullptr ? slash + 1 : file;
    if (baseName.ends_with(".so")) {
        baseName.remove_suffix(3);
    }
    char text[libraryNameSize];
    LoaderText libraryName(text);
    libraryName.appendCut(baseName);
    return DynLibLoad(file, &kcidl, errBuf, errBufSize) != FALSE &&
           publishTable(libraryName, false, {errBuf, errBufSize}) != FALSE;
}

void KciRtlUnload(void) {
    if (KciRtlIsLoaded()) {
        rtlPrivKciRtlFuncs->KciShutdown();
        rtlPrivKciRtlFuncs->KciUnload();
        cleanUp();
    }
}
