// The search for the client library: where it is looked for, and how what is found is opened.
#pragma once

#include "dynlib.h"
#include "kciremote.h"
#include "kcirtl/loadertext.h"

#pragma GCC visibility push(hidden)

constexpr size_t libraryNameSize = 24;

// A client library that was opened.
struct FoundLibrary {
    DynLibType handle = nullptr;
    bool hosted = false; // a remote client library, which serves the one that was found in a host process
};

// Writes the library's name, without folder and extension, from its flavour and the environment. FALSE when it does not
// fit.
bool buildLibraryName(LoaderText& name, bool useRpc);

// Searches as KciRtlLoad says. Without a handle, `error` holds the reason.
FoundLibrary findLibrary(const LoaderText& libraryName, bool useRpc, const char* path, ErrorBuffer error);

// The function that the remote client library has, and no other client library: NULL for all others.
KciRemoteServeFuncPtr remoteServe(DynLibType library);

#pragma GCC visibility pop
