// What the fatal report has of building messages.
#pragma once

#include <cstdarg>

#include "errmsg.h"

#pragma GCC visibility push(hidden)

// ErrMsgBuildString for the fatal report: without the catalogue, in brackets, when its mutex cannot be had within a
// moment. Signal-safe once printMutex has been called in ordinary code.
void errMsgBuildReport(const char* sym, char* buf, ArraySizeType bufSize, const char* kinds, va_list ap);

#pragma GCC visibility pop
