// A library that every program and library of a build that counts coverage needs: counters are written, too, where a
// process ends without exit, sends itself a signal, or becomes another program.
#include <errno.h>
#include <signal.h>
#include <stdbool.h>
#include <stdlib.h>
#include <unistd.h>

#include "counted.h"

static struct Counted* all;

// Tests that let a library's calls fail spare these, which are made in its name.
static _Thread_local bool writing;
bool countersAreWritten(void) {
    return writing;
}

static void writeOut(const struct Counted* counted) {
    writing = true;
    counted->write();
    writing = false;
}

void countedEnter(struct Counted* counted) {
    counted->next = all;
    all = counted;
}
void countedLeave(struct Counted* counted) {
    writeOut(counted); // which the compiler's own writer then leaves undone
    struct Counted** at = &all;
    while (*at != NULL && *at != counted)
        at = &(*at)->next;
    if (*at != NULL) // NULL: the process ends while the library is being loaded
        *at = counted->next;
}

// Written ones begin at zero again: the process may go on, and a child's memory be its parent's.
static void writeAll(void) {
    const int error = errno;
    for (struct Counted* counted = all; counted != NULL; counted = counted->next) {
        writeOut(counted);
        counted->reset();
    }
    errno = error;
}

// What the linker's --wrap calls instead, and the compiler for execv.
void __wrap__exit(int status) {
    writeAll();
    _exit(status);
}
void __wrap_abort(void) {
    writeAll();
    abort();
}
int __wrap_kill(pid_t pid, int sig) {
    if (pid == getpid())
        writeAll();
    return kill(pid, sig);
}
int __gcov_execv(const char* path, char* const arguments[]) {
    writeAll();
    return execv(path, arguments);
}
