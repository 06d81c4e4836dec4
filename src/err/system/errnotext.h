#pragma once

#include "unixerr.h"

#pragma GCC visibility push(hidden)

// The host's text of an errno value (HostGetErrMsg), at hand for one statement.
struct ErrnoText {
    explicit ErrnoText(int error) { HostGetErrMsg(error, text, sizeof text); }
    char text[256];
};

#pragma GCC visibility pop
