// Runs in a signal handler: no lock, no stdio stream, no allocation.
#include <cerrno>
#include <sys/wait.h>

#include "host/faults/hostreap.h"
#include "host/signals/interrupted.h"
#include "host/signals/signalprint.h"
#include "utlhost.h"

void hostReapChildren() {
    for (;;) {
        int status = 0;
        const pid_t pid = waitpid(-1, &status, WNOHANG | WUNTRACED);
        if (pid > 0) {
            continue;
        }
        if (pid == 0 || errno == ECHILD) {
            break;
        }
        if (shouldRetry()) {
            continue;
        }
        hostSafePrintf("handleChild: peculiar wait3 errno = %d\n", errno);
        UtlExit(4);
    }
}
