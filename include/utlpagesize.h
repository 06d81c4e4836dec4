/*
 * The pages of memory.
 */
#ifndef TMQKCI_UTLPAGESIZE_H
#define TMQKCI_UTLPAGESIZE_H

#include "kcitypes.h"

TMQKCI_C_BEGIN

/* The size of a page of memory, in bytes. Thread- and signal-safe. */
TMQKCI_API unsigned UtlGetPageSize(void);

TMQKCI_C_END

#endif
