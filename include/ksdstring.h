/*
 * A growable character string that is always terminated. Short texts live in the record itself; longer ones move to the
 * heap (UtlMalloc). Called by code that builds texts of unknown length piece by piece.
 *
 *     KsDString text;
 *     KsDStringInit(&text);
 *     KsDStringAppend(&text, "name=", -1);
 *     puts(text.string);
 *     KsDStringFree(&text);
 *
 * A string is used by one thread at a time. It points into itself: never copy or move the record. Not signal-safe.
 */
#ifndef TMQKCI_KSDSTRING_H
#define TMQKCI_KSDSTRING_H

#include "kcitypes.h"

#define KSDSTRING_STATIC_SIZE 200

/* string[length] is 0 and length is below spaceAvl. Read the fields; change them only through the functions below. */
typedef struct KsDString {
    char* string;  /* staticSpace or a heap block that the string owns */
    long length;   /* bytes in use, without the terminator */
    long spaceAvl; /* bytes at string, with the terminator's */
    char staticSpace[KSDSTRING_STATIC_SIZE];
} KsDString;

TMQKCI_C_BEGIN

/* Makes an empty string of an uninitialized record. */
TMQKCI_API void KsDStringInit(KsDString* dsPtr);

/*
 * Appends length bytes of string, which may be a part of the text itself; a negative length means up to its terminator.
 * Space that no longer suffices is replaced by twice the new length. Returns the text. Without memory, which UtlMalloc
 * reports, returns NULL and leaves the text as it was.
 */
TMQKCI_LEAF_API char* KsDStringAppend(KsDString* dsPtr, const char* string, long length);

/*
 * Cuts or extends the text to length bytes (below 0: to none). Added bytes are uninitialized. Space that no longer
 * suffices is replaced by exactly length + 1. Without memory, which UtlMalloc reports, the text stays as it was.
 */
TMQKCI_API void KsDStringSetLength(KsDString* dsPtr, long length);

/* Releases the heap block, if there is one, and makes the string empty; it can be used again. */
TMQKCI_API void KsDStringFree(KsDString* dsPtr);

TMQKCI_C_END

#endif
