// May run in a signal handler: no lock, no stdio stream, no allocation.
#include "hostsignal.h"

#include <cstdio>
#include <cstring>

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
                 slash != nullptr ? slash + 1 : file, line, static_cast<unsigned long>(HostThreadSelf()));
        HostSignalSafePrint(text);
    }
    return count;
}
