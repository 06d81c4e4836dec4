#include "vermsg.h"

#include <cstring>
#include <sys/utsname.h>
#include <unistd.h>

namespace {

constexpr int edgeWidth = 78;

} // namespace

void VerMessage(FILE* f, const char* text) {
    const size_t length = strlen(text);
    fprintf(f, length > 0 && text[length - 1] == '\n' ? "%s" : "%s\n", text);
}

void VerLeadingEdge(FILE* f) {
    char edge[edgeWidth + 1];
    memset(edge, '_', edgeWidth);
    edge[edgeWidth] = 0;
    fprintf(f, "%s\n", edge);
}

void VerEndEdge(FILE* f) {
    VerLeadingEdge(f);
}

void VerCenteredMessage(FILE* f, const char* text) {
    const int length = static_cast<int>(strnlen(text, edgeWidth));
    fprintf(f, "%*s%s\n", (edgeWidth - length) / 2, "", text);
}

void VerInfo(FILE* f) {
    fprintf(f, "%s, version %s (%d bits)\n", "libtmqkci313", "3.1.3", static_cast<int>(sizeof(void*)) * 8);
    fprintf(f, "Process: %d\n", static_cast<int>(getpid()));
    struct utsname system {};
    if (uname(&system) == 0) {
        fprintf(f, "Machine: %s, %s %s %s\n", system.nodename, system.sysname, system.release, system.machine);
    }
}
