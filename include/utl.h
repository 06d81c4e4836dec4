/*
 * Small utilities. All are thread- and signal-safe and keep no state.
 */
#ifndef TMQKCI_UTL_H
#define TMQKCI_UTL_H

#include <stddef.h>

#include "kcitypes.h"

TMQKCI_C_BEGIN

/* Compares n bytes as unsigned values, like memcmp (ISO C): below, equal to or above 0. With n 0 nothing is read. */
TMQKCI_API int UtlMemcmp(const void* a, const void* b, size_t n);

/*
 * Orders two byte strings as memcmp (ISO C) does over the shorter length; of equal beginnings the shorter is smaller.
 * Returns -1, 0 or 1. Signal-safe.
 */
TMQKCI_API int HostStrCompare(const char* a, const char* b, size_t lengthA, size_t lengthB);

/*
 * TRUE when transform holds each of the byte positions 0 to 3 once and shortTransform holds 0 and 1 once: the
 * descriptions of a byte order that a file's header may carry.
 */
TMQKCI_API BoolType UtlValidateSwizzleTransforms(const ByteType transform[4], const ByteType shortTransform[2]);

TMQKCI_C_END

#endif
