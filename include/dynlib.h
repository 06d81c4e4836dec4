/*
 * A thin wrapper over the dynamic linker (POSIX dlopen, dlsym, dlclose). Called by kcirtl. Not signal-safe; as
 * thread-safe as the dynamic linker itself.
 */
#ifndef TMQKCI_DYNLIB_H
#define TMQKCI_DYNLIB_H

#include "kcitypes.h"

typedef void* DynLibType;
typedef void* (*DynLibFuncPtr)(void);

TMQKCI_C_BEGIN

/*
 * Opens a shared library with its symbols global and preferred over the process's; ".so" is appended to a base name
 * without a dot. Stores the handle, or NULL, through resultPtr. TRUE when the library was opened; otherwise a line on
 * standard output tells why, and so does err, of errSize bytes, unless it is NULL.
 */
TMQKCI_API BoolType DynLibLoad(const char* name, DynLibType* resultPtr, char* err, ArraySizeType errSize);

/* Closes a library that DynLibLoad opened. */
TMQKCI_API void DynLibUnload(DynLibType dl);

/* Looks a symbol up. NULL when it is absent; err, of errSize bytes, then tells why, unless it is NULL. */
TMQKCI_API DynLibFuncPtr DynLibGetFunc(DynLibType dl, const char* funcname, char* err, ArraySizeType errSize);

TMQKCI_C_END

#endif
