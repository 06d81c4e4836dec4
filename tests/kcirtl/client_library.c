/*
 * A small client library for the loader's tests. It leaves what happens to it in the environment variable
 * CLIENT_LIBRARY_LOG, which outlives it. Compiled with FEATURE_LEVEL and COMPATIBILITY_LEVEL, or with NO_ENTRY_POINT;
 * with CHANGES_FLOATING_POINT its initializer spoils the floating-point environment.
 */
#define _GNU_SOURCE
#include "kcitable.h"

#include <fenv.h>
#include <stdio.h>
#include <stdlib.h>

static void note(const char* event) {
    const char* before = getenv("CLIENT_LIBRARY_LOG");
    char log[256];
    snprintf(log, sizeof log, "%s%s ", before ? before : "", event);
    setenv("CLIENT_LIBRARY_LOG", log, 1);
}

__attribute__((constructor)) static void opened(void) {
    note("opened");
#ifdef CHANGES_FLOATING_POINT
    fesetround(FE_UPWARD);
    feenableexcept(FE_DIVBYZERO | FE_INVALID);
    feraiseexcept(FE_INEXACT);
#endif
}

__attribute__((destructor)) static void closed(void) {
    note("closed");
}

#ifndef NO_ENTRY_POINT
static void shutDown(void) {
    note("KciShutdown");
}
static void unload(void) {
    note("KciUnload");
}
static const KciRtlJumpSType table = {.kciFeatureLevel = FEATURE_LEVEL,
                                      .kciCompatiblityLevel = COMPATIBILITY_LEVEL,
                                      .KciShutdown = shutDown,
                                      .KciUnload = unload};

__attribute__((visibility("default"))) const KciRtlJumpSType* KciGetRtlTable(void);
const KciRtlJumpSType* KciGetRtlTable(void) {
    return &table;
}
#endif
