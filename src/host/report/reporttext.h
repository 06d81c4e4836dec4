// The texts of the fatal report, which runs in the thread that met the error, also in a signal handler.
#pragma once

#include <cstdio>

#pragma GCC visibility push(hidden)

// Bytes of the longest line, and of the time, with their terminators.
constexpr unsigned reportTextSize = 4096;
constexpr unsigned reportTimeSize = 256;

// Builds a message for the report as ErrMsgSymToText does. The error may have hit a thread that holds the catalogue's
// mutex: when that cannot be had within a moment, the message is built without the catalogue, in brackets.
void hostReportText(const char* sym, char* buf, unsigned size, const char* kinds, ...);

// The same, printed to a stream as one line.
void hostReportLine(FILE* f, const char* sym, const char* kinds, ...);

// The time as text in buf, which is returned.
const char* hostReportTime(char* buf, unsigned size);

#pragma GCC visibility pop
