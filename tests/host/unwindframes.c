/* Nested buffers across C frames, as the chain is used. */
#include "unwindframes.h"

#include "hostunwind.h"

static void meetError(int depth, int kind) {
    char frame[100];
    frame[0] = (char)depth;
    if (depth > 0)
        meetError(depth - 1, kind + (frame[0] - frame[0]));
    else
        UnwindDoUnwind(kind);
}

static int catchKind(int kind) {
    UnwindJmpBufSType buffer;
    int caught;
    buffer.previous = UnwindGetCurrentJumpBuffer();
    caught = _setjmp(buffer.buf);
    if (caught == 0) {
        UnwindSetCurrentJumpBuffer(&buffer);
        meetError(20, kind);
    }
    UnwindSetCurrentJumpBuffer(buffer.previous);
    return caught;
}

int unwindThroughNestedBuffers(int innerKind, int outerKind, int* innerCaught) {
    UnwindJmpBufSType buffer;
    int caught;
    buffer.previous = UnwindGetCurrentJumpBuffer();
    caught = _setjmp(buffer.buf);
    if (caught == 0) {
        UnwindSetCurrentJumpBuffer(&buffer);
        *innerCaught = catchKind(innerKind);
        meetError(5, outerKind);
    }
    UnwindSetCurrentJumpBuffer(buffer.previous);
    return caught;
}

int unwindWith(void (*unwind)(void)) {
    UnwindJmpBufSType buffer;
    int caught;
    buffer.previous = UnwindGetCurrentJumpBuffer();
    caught = _setjmp(buffer.buf);
    if (caught == 0) {
        UnwindSetCurrentJumpBuffer(&buffer);
        unwind();
    }
    UnwindSetCurrentJumpBuffer(buffer.previous);
    return caught;
}
