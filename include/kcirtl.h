/*
 * Finds, opens and checks the client library and publishes its table of entry points. Called once, by the bridge's
 * initialization. The state is process-wide and has no lock: callers serialise their calls. Not signal-safe.
 */
#ifndef TMQKCI_KCIRTL_H
#define TMQKCI_KCIRTL_H

#include "kcitable.h"

TMQKCI_C_BEGIN

/* The loaded library's own table; NULL exactly while no library is loaded. */
extern TMQKCI_DATA const KciRtlJumpSType* rtlPrivKciRtlFuncs;

TMQKCI_API BoolType KciRtlIsLoaded(void);

/*
 * Loads the client library: the remote flavour ("rpc") when useRpc, else the linked one ("lnk"). path is a list of
 * folders separated by ";", or NULL; $KESTRUNE/lib and the dynamic linker's own places are searched after it.
 * KCIRTL_BASELIBNAME and KCIRTL_VERSION change the library's name. TRUE when the library is loaded; otherwise errBuf,
 * of errBufSize bytes, holds the reason, unless it is NULL. A second load without KciRtlUnload is refused.
 */
TMQKCI_API BoolType KciRtlLoad(BoolType useRpc, const char* path, char* errBuf, ArraySizeType errBufSize);

/* Shuts the client library down and closes it; does nothing when none is loaded. */
TMQKCI_API void KciRtlUnload(void);

TMQKCI_C_END

#endif
