/* C frames between a jump buffer and whoever unwinds to it. */
#include "unwindframes.h"

#include "hostunwind.h"

static int callDeep(int depth, void (*unwind)(void)) {
    volatile int frame = depth;
    if (depth == 0)
        unwind();
    else
        callDeep(depth - 1, unwind);
    return frame;
}

int unwindWith(void (*unwind)(void)) {
    UnwindJmpBufSType buffer;
    int caught;
    buffer.previous = UnwindGetCurrentJumpBuffer();
    caught = _setjmp(buffer.buf);
    if (caught == 0) {
        UnwindSetCurrentJumpBuffer(&buffer);
        callDeep(20, unwind);
    }
    UnwindSetCurrentJumpBuffer(buffer.previous);
    return caught;
}
