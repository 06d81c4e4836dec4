// Linked into every program and library of a build that counts coverage: enters its counters, which are its own.
#include "counted.h"

void __gcov_dump(void);
void __gcov_reset(void);

static struct Counted own = {__gcov_dump, __gcov_reset, 0};

__attribute__((constructor)) static void enter(void) {
    countedEnter(&own);
}
// Late: only the counters' own destructor, of priority 100, comes after it.
__attribute__((destructor(101))) static void leave(void) {
    countedLeave(&own);
}
