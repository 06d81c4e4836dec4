// The bridge's chief header: what a file of native methods needs. The files below it include each other in this order
// only: state, trace, strings, errors; then the frame of a call, and conversion; then reports.
#pragma once

#include "bridge/conversion.h"
#include "bridge/nativecall.h"
#include "bridge/reports.h"

#define TMQKCI_NATIVE(name) extern "C" TMQKCI_API jint JNICALL Java_com_kestrune_tmqkci_TmqKciInterface__1##name
