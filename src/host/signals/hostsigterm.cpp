// May run in a signal handler: no lock, no stdio stream, no allocation.
#include "hostsignal.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "host/base/errnokeeper.h"
#include "hostatomic.h"
#include "hostthread.h"

namespace {
int sigTermCount;
}

void HostIncrementSigTerm() {
    HostAsmSyncCtrAdd(&sigTermCount, 1);
}

int HostGetSigTerm_() {
    return HostAsmSyncCtrAdd(&sigTermCount, 0);
}

int HostClearSigTerm() {
    return HostAsmSyncAnd(&sigTermCount, 0);
}

int HostGetSigTerm(const char* file, int line) {
    const int count = HostGetSigTerm_();
    if (count != 0) {
        const ErrnoKeeper errnoKeeper;
        const char* slash = strrchr(file, '/');
        char text[256];
        snprintf(text, sizeof text, "HostGetSigTerm: got sig term at %.150s line %d by tid %lu\n",
                 slash ? slash + 1 : file, line, static_cast<unsigned long>(HostThreadSelf()));
        HostSignalSafePrint(text);
    }
    return count;
}

void HostSignalSafePrint(const char* text) {
    size_t length = 0;
    while (text[length] != '\0')
        ++length;
    while (length > 0) {
        const ssize_t written = write(STDERR_FILENO, text, length);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        text += written;
        length -= static_cast<size_t>(written);
    }
}
