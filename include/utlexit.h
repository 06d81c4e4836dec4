/*
 * The end of the process.
 */
#ifndef TMQKCI_UTLEXIT_H
#define TMQKCI_UTLEXIT_H

#include "kcitypes.h"

TMQKCI_C_BEGIN

/*
 * Ends the process as exit (ISO C) does. The library ends it in no other orderly way. In HostFaultHandler the exit
 * handlers have ten seconds: they may wait for what the signal interrupted.
 */
TMQKCI_API void UtlExit(int code) __attribute__((noreturn));

TMQKCI_C_END

#endif
