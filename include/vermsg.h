/*
 * Version and banner lines: the rules around a block of lines, the lines themselves and the product's version. Called
 * by reports and log headers. Each writes plain lines to the stream and flushes nothing; thread-safe as the stream is,
 * not signal-safe.
 */
#ifndef TMQKCI_VERMSG_H
#define TMQKCI_VERMSG_H

#include "kcitypes.h"

#include <stdio.h>

TMQKCI_C_BEGIN

/* One line. A newline at the end of the text is not doubled. */
TMQKCI_API void VerMessage(FILE* f, const char* text);

/* The rules that open and close a block. */
TMQKCI_API void VerLeadingEdge(FILE* f);
TMQKCI_API void VerEndEdge(FILE* f);

/* One line with the text in the middle between the ends of the rules, or as it stands when it is longer. */
TMQKCI_API void VerCenteredMessage(FILE* f, const char* text);

/* The product's name, version, process and machine, a line each. */
TMQKCI_API void VerInfo(FILE* f);

TMQKCI_C_END

#endif
