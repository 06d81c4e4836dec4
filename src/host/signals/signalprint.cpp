// May run in a signal handler: no lock, no stdio stream, no allocation.
#include "host/signals/signalprint.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <unistd.h>

#include "hostsignal.h"

void HostSignalSafePrint(const char* text) {
    size_t length = 0;
    while (text[length] != '\0') {
        ++length;
    }
    while (length > 0) {
        const ssize_t written = write(STDERR_FILENO, text, length);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return;
        }
        text += written;
        length -= static_cast<size_t>(written);
    }
}

void hostSafePrintf(const char* format, ...) {
    char line[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    HostSignalSafePrint(line);
}
